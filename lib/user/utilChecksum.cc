#include <endian.h>

#include <array>
#include <bit>
#include <cstring>

#include "util.h"

namespace {

constexpr uint32_t kCrcPolynomial = 0xEDB88320;
constexpr size_t kCrcStep = 16;
constexpr size_t kCrcReach = 2 * kCrcStep;

// What each byte does to the remainder, alone and with up to 31 bytes behind it, so that sixteen bytes are
// taken at once, with sixteen others left out behind them.
using CrcTables = std::array<std::array<uint32_t, 256>, kCrcReach>;

CrcTables MakeCrcTables() {
  CrcTables tables{};
  for (uint32_t byte = 0; byte < 256; byte++) {
    uint32_t remainder = byte;
    for (int bit = 0; bit < 8; bit++) {
      remainder = (remainder >> 1) ^ ((remainder & 1) != 0 ? kCrcPolynomial : 0);
    }
    tables[0][byte] = remainder;
  }
  for (size_t behind = 1; behind < kCrcReach; behind++) {
    for (size_t byte = 0; byte < 256; byte++) {
      const uint32_t before = tables[behind - 1][byte];
      tables[behind][byte] = (before >> 8) ^ tables[0][before & 0xff];
    }
  }
  return tables;
}

uint32_t LoadWord(const unsigned char *bytes) {
  uint32_t word = 0;
  memcpy(&word, bytes, sizeof word);
  return word;
}

// What a word does that `behind` bytes follow. A call would cost more than this and a step do.
[[gnu::always_inline]] inline uint32_t CrcOfWord(const CrcTables &tables, uint32_t word, size_t behind) {
  return tables[behind + 3][word & 0xff] ^ tables[behind + 2][(word >> 8) & 0xff] ^
         tables[behind + 1][(word >> 16) & 0xff] ^ tables[behind][word >> 24];
}

// What a step that `behind` bytes follow does to the remainder. The word that meets the remainder comes last,
// since only it has to wait for the step before.
[[gnu::always_inline]] inline uint32_t CrcOfStep(const CrcTables &tables, uint32_t remainder,
                                                 const unsigned char *bytes, size_t behind) {
  const uint32_t rest = CrcOfWord(tables, le32toh(LoadWord(bytes + 12)), behind) ^
                        CrcOfWord(tables, le32toh(LoadWord(bytes + 8)), behind + 4) ^
                        CrcOfWord(tables, le32toh(LoadWord(bytes + 4)), behind + 8);
  return rest ^ CrcOfWord(tables, le32toh(LoadWord(bytes)) ^ remainder, behind + 12);
}

}  // namespace

uint32_t Util_CRC32(const void *data, ssize_t length) {
  if (length < 1) {
    return 0;
  }
  static const CrcTables tables = MakeCrcTables();
  const auto *bytes = static_cast<const unsigned char *>(data);
  auto rest = static_cast<size_t>(length);
  uint32_t remainder = UINT32_MAX;
  // Every second step has a remainder of its own, so that neither waits for the other, until they meet behind
  // the next step.
  uint32_t second = 0;
  for (; rest >= kCrcReach + kCrcStep; rest -= kCrcReach, bytes += kCrcReach) {
    remainder = CrcOfStep(tables, remainder, bytes, kCrcStep);
    second = CrcOfStep(tables, second, bytes + kCrcStep, kCrcStep);
  }
  for (; rest >= kCrcStep; rest -= kCrcStep, bytes += kCrcStep) {
    remainder = CrcOfStep(tables, remainder, bytes, 0) ^ second;
    second = 0;
  }
  for (; rest > 0; rest--, bytes++) {
    remainder = (remainder >> 8) ^ tables[0][(remainder ^ *bytes) & 0xff];
  }
  return ~remainder;
}

uint32_t Util_Checksum32(const void *data, size_t length) {
  const auto *bytes = static_cast<const unsigned char *>(data);
  uint32_t sum = 0;
  for (size_t at = 0; at + sizeof sum <= length; at += sizeof sum) {
    sum ^= LoadWord(bytes + at);
  }
  return sum;
}

uint32_t Util_Checksum(const void *data, size_t length) {
  const size_t left = length % sizeof(uint32_t);
  const unsigned char *bytes = static_cast<const unsigned char *>(data) + (length - left);
  uint32_t sum = Util_Checksum32(data, length);
  for (size_t i = 0; i < left; i++) {
    sum ^= static_cast<uint32_t>(bytes[i]) << (8 * i);
  }
  return sum;
}

uint32_t Util_Checksumv(const struct iovec *pieces, size_t count) {
  uint32_t sum = 0;
  size_t length = 0;
  for (size_t i = 0; i < count; i++) {
    const auto shift = static_cast<int>(8 * (length % sizeof(uint32_t)));
    sum ^= std::rotl(Util_Checksum(pieces[i].iov_base, pieces[i].iov_len), shift);
    length += pieces[i].iov_len;
  }
  return sum;
}
