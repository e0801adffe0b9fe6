#include "utf8.h"

#include <algorithm>

#include "panicUser.h"

namespace {

constexpr size_t kLongest = 4;

bool Utf8IsContinuation(unsigned char byte) {
  return (byte & 0xC0) == 0x80;
}

// The length of the sequence that `lead` begins, 0 when no sequence begins so.
size_t Utf8SequenceLength(unsigned char lead) {
  if (lead < 0x80) {
    return 1;
  }
  if (lead >= 0xF8 || Utf8IsContinuation(lead)) {
    return 0;
  }
  return lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
}

}  // namespace

size_t Utf8_WholeLength(const char *text, size_t length) {
  if (length == 0) {
    return 0;
  }
  const size_t farthest = length - std::min(length, kLongest);
  size_t lead = length - 1;
  while (lead > farthest && Utf8IsContinuation(static_cast<unsigned char>(text[lead]))) {
    lead--;
  }
  const size_t needed = Utf8SequenceLength(static_cast<unsigned char>(text[lead]));
  ASSERT(needed != 0);
  return lead + needed <= length ? length : lead;
}
