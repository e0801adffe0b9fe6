#include <algorithm>
#include <cstring>

#include "codeset.h"
#include "panicUser.h"
#include "unicodeInt.h"
#include "utf8.h"

namespace {

struct Bytes {
  OwnedString data;
  size_t size;
};

Bytes CopyOf(Unicode str, size_t length) {
  OwnedString copy(UnicodeCopy(str, length));
  const size_t size = copy == nullptr ? 0 : length;
  return {std::move(copy), size};
}

Bytes ToUtf16(Unicode str, size_t length) {
  char *converted = nullptr;
  size_t size = 0;
  const bool done = CodeSet_Utf8ToUtf16le(str, length, &converted, &size);
  // What is valid can be converted, if there is memory.
  ASSERT_MEM_ALLOC(done || !Unicode_IsBufferValid(str, static_cast<ssize_t>(length), STRING_ENCODING_UTF8));
  return {OwnedString(converted), size};
}

Bytes ToGeneric(Unicode str, size_t length, StringEncoding encoding) {
  char *converted = nullptr;
  size_t size = 0;
  CodeSet_GenericToGeneric("UTF-8", str, length, Unicode_EncodingEnumToName(encoding), CODESET_STOP,
                           &converted, &size);
  return {OwnedString(converted), size};
}

Bytes ToBytes(Unicode str, size_t length, StringEncoding encoding) {
  switch (encoding) {
    case STRING_ENCODING_UTF16_LE:
      return ToUtf16(str, length);
    case STRING_ENCODING_US_ASCII:
      return UnicodeIsAscii(str, length) ? CopyOf(str, length) : Bytes();
    case STRING_ENCODING_UTF8:
      return CopyOf(str, length);
    default:
      return ToGeneric(str, length, encoding);
  }
}

bool IsHighSurrogate(utf16_t unit) {
  return (unit & 0xFC00) == 0xD800;
}

// How many of the first `limit` bytes of UTF-16LE stay when it is cut there: whole characters.
size_t WholeUtf16Length(const char *bytes, size_t limit) {
  const size_t length = limit - limit % sizeof(utf16_t);
  if (length == 0) {
    return 0;
  }
  utf16_t last;
  memcpy(&last, bytes + length - sizeof last, sizeof last);
  return IsHighSurrogate(last) ? length - sizeof last : length;
}

// How many of `size` bytes stay in a buffer with room for `limit`.
size_t FittingLength(const char *bytes, size_t size, size_t limit, StringEncoding encoding) {
  if (size <= limit) {
    return size;
  }
  switch (encoding) {
    case STRING_ENCODING_UTF16_LE:
      return WholeUtf16Length(bytes, limit);
    case STRING_ENCODING_UTF8:
      return Utf8_WholeLength(bytes, limit);
    default:
      return limit;
  }
}

// The sizes in bytes of a basic character, and of one that has four bytes in UTF-8.
struct CharacterSizes {
  size_t basic;
  size_t extended;
};

CharacterSizes CharacterSizesOf(StringEncoding encoding) {
  switch (encoding) {
    case STRING_ENCODING_UTF16_LE:
    case STRING_ENCODING_UTF16_BE:
    case STRING_ENCODING_UTF16_XE:
      return {2, 4};
    case STRING_ENCODING_UTF32_LE:
    case STRING_ENCODING_UTF32_BE:
    case STRING_ENCODING_UTF32_XE:
      return {4, 4};
    case STRING_ENCODING_US_ASCII:
    case STRING_ENCODING_ISO_8859_1:
    case STRING_ENCODING_WINDOWS_1252:
      return {1, 1};
    default:
      // Enough for an escape sequence before each character.
      return {7, 7};
  }
}

// The length that a lead byte gives its sequence, 0 for a byte that is none.
size_t SequenceLength(unsigned char lead) {
  if (lead < 0x80) {
    return 1;
  }
  if (lead < 0xC2 || lead > 0xF4) {
    return 0;
  }
  return lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
}

}  // namespace

char *UnicodeGetAllocBytesInternal(Unicode str, StringEncoding encoding, ssize_t lengthInBytes,
                                   size_t *retLength) {
  const size_t length = lengthInBytes == -1 ? strlen(str) : static_cast<size_t>(lengthInBytes);
  Bytes bytes = ToBytes(str, length, UnicodeResolveEncoding(encoding));
  if (retLength != nullptr) {
    *retLength = bytes.size;
  }
  return bytes.data.release();
}

char *Unicode_GetAllocBytes(Unicode str, StringEncoding encoding) {
  return Unicode_GetAllocBytesWithLength(str, encoding, -1);
}

char *Unicode_GetAllocBytesWithLength(Unicode str, StringEncoding encoding, ssize_t lengthInBytes) {
  if (str == nullptr) {
    return nullptr;
  }
  return UnicodeGetAllocBytesInternal(str, encoding, lengthInBytes, nullptr);
}

bool Unicode_CanGetBytesWithEncoding(Unicode str, StringEncoding encoding) {
  return OwnedString(Unicode_GetAllocBytes(str, encoding)) != nullptr;
}

bool Unicode_CopyBytes(void *destBuffer, Unicode srcBuffer, size_t maxLengthInBytes, size_t *retLength,
                       StringEncoding encoding) {
  const StringEncoding resolved = UnicodeResolveEncoding(encoding);
  const size_t terminator = resolved == STRING_ENCODING_UTF16_LE ? sizeof(utf16_t) : 1;
  if (retLength != nullptr) {
    *retLength = 0;
  }
  if (maxLengthInBytes < terminator) {
    return false;
  }

  char *dest = static_cast<char *>(destBuffer);
  memset(dest, 0, terminator);
  // These two stand in the string as they are.
  const bool plain = resolved == STRING_ENCODING_UTF8 || resolved == STRING_ENCODING_US_ASCII;
  size_t size = strlen(srcBuffer);
  if (resolved == STRING_ENCODING_US_ASCII && !UnicodeIsAscii(srcBuffer, size)) {
    return false;
  }
  const OwnedString converted(
      plain ? nullptr : UnicodeGetAllocBytesInternal(srcBuffer, resolved, static_cast<ssize_t>(size), &size));
  if (!plain && converted == nullptr) {
    return false;
  }

  const char *bytes = plain ? srcBuffer : converted.get();
  const size_t length = FittingLength(bytes, size, maxLengthInBytes - terminator, resolved);
  memcpy(dest, bytes, length);
  memset(dest + length, 0, terminator);
  if (retLength != nullptr) {
    *retLength = length;
  }
  return length == size;
}

size_t Unicode_BytesRequired(Unicode str, StringEncoding encoding) {
  const StringEncoding resolved = UnicodeResolveEncoding(encoding);
  const size_t length = strlen(str);
  if (resolved == STRING_ENCODING_UTF8) {
    return length + 1;
  }

  const CharacterSizes sizes = CharacterSizesOf(resolved);
  size_t required = 10 * sizes.basic;
  size_t at = 0;
  while (at < length) {
    const size_t step = SequenceLength(static_cast<unsigned char>(str[at]));
    if (step == 0) {
      break;
    }
    required += step == 4 ? sizes.extended : sizes.basic;
    at += step;
  }
  return required;
}
