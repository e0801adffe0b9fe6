#include <climits>
#include <cstdarg>
#include <cstring>

#include "codeset.h"
#include "log.h"
#include "panicUser.h"
#include "str.h"
#include "unicodeInt.h"
#include "util_misc.h"

namespace {

template <typename Unit>
size_t LengthInUnits(const void *buffer) {
  const char *bytes = static_cast<const char *>(buffer);
  for (size_t length = 0;; length++) {
    Unit unit;
    memcpy(&unit, bytes + length * sizeof unit, sizeof unit);
    if (unit == 0) {
      return length;
    }
  }
}

// `lengthInBytes`, or the measured length for -1.
size_t MeasuredLength(const void *buffer, ssize_t lengthInBytes, StringEncoding encoding) {
  return static_cast<size_t>(lengthInBytes == -1 ? Unicode_LengthInBytes(buffer, encoding) : lengthInBytes);
}

// Whether converted bytes are what a string may hold: iconv lets code points above U+10FFFF through. More
// than CodeSet_Validate takes isn't looked at.
bool IsText(const char *bytes, size_t size) {
  return size > INT_MAX || CodeSet_Validate(bytes, size, "UTF-8");
}

char *AllocGeneric(const char *buffer, size_t length, StringEncoding encoding, unsigned flags) {
  char *converted = nullptr;
  size_t size = 0;
  CodeSet_GenericToGeneric(Unicode_EncodingEnumToName(encoding), buffer, length, "UTF-8", flags, &converted,
                           &size);
  OwnedString owner(converted);
  return converted != nullptr && IsText(converted, size) ? owner.release() : nullptr;
}

// Whether the bytes are in an encoding that strings have too.
bool IsPlain(const char *buffer, size_t length, StringEncoding encoding) {
  switch (encoding) {
    case STRING_ENCODING_US_ASCII:
      return UnicodeIsAscii(buffer, length);
    case STRING_ENCODING_UTF8:
      return length <= INT_MAX && CodeSet_Validate(buffer, length, "UTF-8");
    default:
      return false;
  }
}

char *AllocSubstituting(const char *buffer, size_t length, StringEncoding encoding) {
  return IsPlain(buffer, length, encoding) ? UnicodeCopy(buffer, length)
                                           : AllocGeneric(buffer, length, encoding, CODESET_SUBSTITUTE);
}

char *AllocUtf16(const char *buffer, size_t length) {
  char *converted = nullptr;
  CodeSet_Utf16leToUtf8(buffer, length, &converted, nullptr);
  return converted;
}

[[noreturn]] void StopAtInvalidBuffer(const void *buffer, size_t length, StringEncoding encoding) {
  const OwnedString escaped(Unicode_EscapeBuffer(buffer, static_cast<ssize_t>(length), encoding));
  Log("%s: Error: Couldn't convert invalid buffer [%s] from %s to Unicode.\n", "Unicode_AllocWithLength",
      escaped == nullptr ? "(couldn't escape bytes)" : escaped.get(), Unicode_EncodingEnumToName(encoding));
  PANIC();
}

}  // namespace

size_t UnicodeUnitSize(StringEncoding encoding) {
  switch (encoding) {
    case STRING_ENCODING_UTF16_LE:
    case STRING_ENCODING_UTF16_BE:
    case STRING_ENCODING_UTF16_XE:
    case STRING_ENCODING_UCS2:
      return 2;
    case STRING_ENCODING_UTF32_LE:
    case STRING_ENCODING_UTF32_BE:
    case STRING_ENCODING_UTF32_XE:
    case STRING_ENCODING_UCS4:
      return 4;
    default:
      return 1;
  }
}

bool UnicodeIsAscii(const char *bytes, size_t size) {
  constexpr uint64_t kHighBits = 0x8080808080808080;
  uint64_t seen = 0;
  size_t at = 0;
  for (; at + sizeof seen <= size; at += sizeof seen) {
    uint64_t word;
    memcpy(&word, bytes + at, sizeof word);
    seen |= word;
  }
  for (; at < size; at++) {
    seen |= static_cast<unsigned char>(bytes[at]);
  }
  return (seen & kHighBits) == 0;
}

char *UnicodeCopy(const char *bytes, size_t size) {
  auto *copy = static_cast<char *>(malloc(size + 1));
  if (copy == nullptr) {
    return nullptr;
  }
  memcpy(copy, bytes, size);
  copy[size] = '\0';
  return copy;
}

char *UnicodeAllocInternal(const char *buffer, size_t length, StringEncoding encoding, bool strict) {
  if (!strict) {
    return AllocSubstituting(buffer, length, encoding);
  }
  switch (encoding) {
    case STRING_ENCODING_UTF16_LE:
      return AllocUtf16(buffer, length);
    case STRING_ENCODING_UTF8:
    case STRING_ENCODING_US_ASCII:
      return Unicode_IsBufferValid(buffer, static_cast<ssize_t>(length), encoding)
                 ? UnicodeCopy(buffer, length)
                 : nullptr;
    default:
      return AllocGeneric(buffer, length, encoding, CODESET_STOP);
  }
}

Unicode Unicode_AllocWithLength(const void *buffer, ssize_t lengthInBytes, StringEncoding encoding) {
  if (buffer == nullptr) {
    ASSERT(lengthInBytes <= 0);
    return nullptr;
  }
  const StringEncoding resolved = UnicodeResolveEncoding(encoding);
  const size_t length = MeasuredLength(buffer, lengthInBytes, resolved);
  char *str = UnicodeAllocInternal(static_cast<const char *>(buffer), length, resolved, false);
  if (str == nullptr) {
    StopAtInvalidBuffer(buffer, length, resolved);
  }
  return str;
}

Unicode Unicode_Alloc(const void *buffer, StringEncoding encoding) {
  return Unicode_AllocWithLength(buffer, -1, encoding);
}

Unicode Unicode_Duplicate(Unicode str) {
  return Util_SafeStrdup(str);
}

void Unicode_Free(Unicode str) {
  free(const_cast<char *>(str));
}

Unicode Unicode_Format(const char *format, ...) {
  va_list args;
  va_start(args, format);
  Unicode str = Str_Vasprintf(nullptr, format, args);
  va_end(args);
  return str;
}

UnicodeIndex Unicode_LengthInCodeUnits(Unicode str) {
  return static_cast<UnicodeIndex>(strlen(str));
}

bool Unicode_IsBufferValid(const void *buffer, ssize_t lengthInBytes, StringEncoding encoding) {
  if (buffer == nullptr) {
    ASSERT(lengthInBytes <= 0);
    return true;
  }
  const StringEncoding resolved = UnicodeResolveEncoding(encoding);
  const char *bytes = static_cast<const char *>(buffer);
  const size_t length = MeasuredLength(buffer, lengthInBytes, resolved);
  if (resolved == STRING_ENCODING_US_ASCII) {
    return UnicodeIsAscii(bytes, length);
  }
  return CodeSet_Validate(bytes, length, Unicode_EncodingEnumToName(resolved));
}

ssize_t Unicode_LengthInBytes(const void *buffer, StringEncoding encoding) {
  const size_t unitSize = UnicodeUnitSize(UnicodeResolveEncoding(encoding));
  switch (unitSize) {
    case 2:
      return static_cast<ssize_t>(unitSize * LengthInUnits<uint16_t>(buffer));
    case 4:
      return static_cast<ssize_t>(unitSize * LengthInUnits<uint32_t>(buffer));
    default:
      return static_cast<ssize_t>(strlen(static_cast<const char *>(buffer)));
  }
}

utf16_t *Unicode_UTF16Strdup(const utf16_t *str) {
  if (str == nullptr) {
    return nullptr;
  }
  const size_t size = static_cast<size_t>(Unicode_LengthInBytes(str, STRING_ENCODING_UTF16_LE)) + sizeof *str;
  auto *copy = static_cast<utf16_t *>(Util_SafeMalloc(size));
  memcpy(copy, str, size);
  return copy;
}
