#include "utf8.h"

#include <algorithm>

#include "panicUser.h"

namespace {

// The last character of a text, as its bytes have it.
struct LastCharacter {
  size_t start;
  size_t needed;  // bytes that its lead byte asks for, 0 when no sequence begins so
};

bool Utf8IsContinuation(unsigned char byte) {
  return (byte & 0xC0) == 0x80;
}

size_t Utf8SequenceLength(unsigned char lead) {
  if (lead < 0x80) {
    return 1;
  }
  if (lead >= 0xF8 || Utf8IsContinuation(lead)) {
    return 0;
  }
  return lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
}

// `length` is at least 1.
LastCharacter Utf8FindLast(const char *text, size_t length) {
  const size_t farthest = length - std::min(length, UTF8_LONGEST);
  size_t start = length - 1;
  while (start > farthest && Utf8IsContinuation(static_cast<unsigned char>(text[start]))) {
    start--;
  }
  return {start, Utf8SequenceLength(static_cast<unsigned char>(text[start]))};
}

size_t Utf8CutBefore(const LastCharacter &last, size_t length) {
  return last.start + last.needed <= length ? length : last.start;
}

char Utf8Byte(char32_t value) {
  return static_cast<char>(value);
}

char Utf8Continuation(char32_t value, unsigned shift) {
  return Utf8Byte(0x80 | ((value >> shift) & 0x3F));
}

}  // namespace

size_t Utf8_WholeLength(const char *text, size_t length) {
  if (length == 0) {
    return 0;
  }
  const LastCharacter last = Utf8FindLast(text, length);
  ASSERT(last.needed != 0);
  return Utf8CutBefore(last, length);
}

size_t Utf8_LenientWholeLength(const char *text, size_t length) {
  return length == 0 ? 0 : Utf8CutBefore(Utf8FindLast(text, length), length);
}

size_t Utf8_LenientSize(char32_t value) {
  if (value < 0x80) {
    return 1;
  }
  if (value < 0x800) {
    return 2;
  }
  if (value < 0x10000) {
    return 3;
  }
  return value <= 0x10FFFF ? 4 : 0;
}

size_t Utf8_LenientEncode(char32_t value, char bytes[UTF8_LONGEST]) {
  const size_t size = Utf8_LenientSize(value);
  switch (size) {
    case 1:
      bytes[0] = Utf8Byte(value);
      break;
    case 2:
      bytes[0] = Utf8Byte(0xC0 | (value >> 6));
      bytes[1] = Utf8Continuation(value, 0);
      break;
    case 3:
      bytes[0] = Utf8Byte(0xE0 | (value >> 12));
      bytes[1] = Utf8Continuation(value, 6);
      bytes[2] = Utf8Continuation(value, 0);
      break;
    case 4:
      bytes[0] = Utf8Byte(0xF0 | (value >> 18));
      bytes[1] = Utf8Continuation(value, 12);
      bytes[2] = Utf8Continuation(value, 6);
      bytes[3] = Utf8Continuation(value, 0);
      break;
    default:
      break;
  }
  return size;
}
