#include <cstring>

#include "panicUser.h"
#include "unicodeInt.h"
#include "util_misc.h"

namespace {

bool IsAscii(char c) {
  return static_cast<unsigned char>(c) < 0x80;
}

// The value of a hexadecimal digit; anything else stops the program.
uint32_t HexDigit(char c) {
  if (c >= '0' && c <= '9') {
    return static_cast<uint32_t>(c - '0');
  }
  const int letter = c | 0x20;
  if (letter < 'a' || letter > 'f') {
    NOT_IMPLEMENTED();
  }
  return static_cast<uint32_t>(letter - 'a' + 10);
}

uint32_t ReadHex(const char **at, int digits) {
  uint32_t value = 0;
  for (int i = 0; i < digits; i++) {
    value = value << 4 | HexDigit(*(*at)++);
  }
  return value;
}

// Reads the character behind a backslash.
uint32_t ReadEscape(const char **at) {
  const char c = *(*at)++;
  if (c == 'u') {
    return ReadHex(at, 4);
  }
  if (c == 'U') {
    return ReadHex(at, 8);
  }
  if (c == '\0') {
    NOT_IMPLEMENTED();
  }
  return static_cast<unsigned char>(c);
}

// Reads one character of a literal. One of another kind than ASCII stops the program.
uint32_t ReadCharacter(const char **at) {
  const char c = *(*at)++;
  if (!IsAscii(c) || (c == '\\' && !IsAscii(**at))) {
    NOT_IMPLEMENTED();
  }
  return c == '\\' ? ReadEscape(at) : static_cast<uint32_t>(c);
}

size_t WriteUtf16(uint32_t codePoint, utf16_t *units) {
  if (codePoint > 0x10FFFF) {
    NOT_IMPLEMENTED();
  }
  if (codePoint < 0x10000) {
    units[0] = static_cast<utf16_t>(codePoint);
    return 1;
  }
  units[0] = static_cast<utf16_t>(0xD800 + ((codePoint - 0x10000) >> 10));
  units[1] = static_cast<utf16_t>(0xDC00 + (codePoint & 0x3FF));
  return 2;
}

Unicode AllocUnescaped(const char *asciiBytes) {
  // No character has more units than bytes in the literal.
  const OwnedString buffer(static_cast<char *>(Util_SafeMalloc((strlen(asciiBytes) + 1) * sizeof(utf16_t))));
  auto *units = reinterpret_cast<utf16_t *>(buffer.get());
  size_t count = 0;
  for (const char *at = asciiBytes; *at != '\0';) {
    count += WriteUtf16(ReadCharacter(&at), units + count);
  }

  const size_t size = count * sizeof *units;
  Unicode str = UnicodeAllocInternal(buffer.get(), size, STRING_ENCODING_UTF16_LE, true);
  if (str == nullptr) {
    // What is valid can be converted, if there is memory; half a surrogate pair isn't.
    ASSERT_MEM_ALLOC(
        !Unicode_IsBufferValid(buffer.get(), static_cast<ssize_t>(size), STRING_ENCODING_UTF16_LE));
    NOT_IMPLEMENTED();
  }
  return str;
}

void AppendEscaped(char **at, unsigned char byte) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  if (byte >= 0x20 && byte < 0x7F && byte != '\\') {
    *(*at)++ = static_cast<char>(byte);
    return;
  }
  *(*at)++ = '\\';
  *(*at)++ = 'x';
  *(*at)++ = kDigits[byte >> 4];
  *(*at)++ = kDigits[byte & 0xF];
}

}  // namespace

Unicode Unicode_AllocStatic(const char *asciiBytes, bool unescape) {
  if (unescape) {
    return AllocUnescaped(asciiBytes);
  }
  ASSERT(UnicodeIsAscii(asciiBytes, strlen(asciiBytes)));
  return Util_SafeStrdup(asciiBytes);
}

char *Unicode_EscapeBuffer(const void *buffer, ssize_t lengthInBytes, StringEncoding encoding) {
  const auto *bytes = static_cast<const unsigned char *>(buffer);
  const auto length =
      static_cast<size_t>(lengthInBytes == -1 ? Unicode_LengthInBytes(buffer, encoding) : lengthInBytes);
  auto *escaped = static_cast<char *>(malloc(strlen("\\x00") * length + 1));
  if (escaped == nullptr) {
    return nullptr;
  }
  char *at = escaped;
  for (size_t i = 0; i < length; i++) {
    AppendEscaped(&at, bytes[i]);
  }
  *at = '\0';
  return escaped;
}
