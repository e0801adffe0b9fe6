#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "util.h"

namespace {

uint32_t Crc(const std::string &text) {
  return Util_CRC32(text.data(), static_cast<ssize_t>(text.size()));
}

// Bit by bit, as the polynomial is defined.
uint32_t PlainCrc(const std::string &text) {
  uint32_t remainder = 0xFFFFFFFF;
  for (const char c : text) {
    remainder ^= static_cast<unsigned char>(c);
    for (int bit = 0; bit < 8; bit++) {
      remainder = (remainder >> 1) ^ ((remainder & 1) != 0 ? 0xEDB88320 : 0);
    }
  }
  return ~remainder;
}

// Bytes without a pattern.
std::string Bytes(size_t size) {
  std::string bytes;
  uint32_t state = 1;
  for (size_t i = 0; i < size; i++) {
    state = state * 1664525 + 1013904223;
    bytes += static_cast<char>(state >> 24);
  }
  return bytes;
}

TEST(Crc32, GivesTheWellKnownValues) {
  EXPECT_EQ(Crc("123456789"), 0xCBF43926U);
  EXPECT_EQ(Crc("a"), 0xE8B7BE43U);
  EXPECT_EQ(Crc("The quick brown fox jumps over the lazy dog"), 0x414FA339U);
  EXPECT_EQ(Crc(std::string(32, '\0')), 0x190A55ADU);
  EXPECT_EQ(Crc(std::string(32, '\xFF')), 0xFF6CAB0BU);
}

TEST(Crc32, IsTheSameAtAnyLengthAndAddress) {
  const std::string bytes = Bytes(300);
  for (size_t at = 0; at < 9; at++) {
    for (size_t size = 1; size + at <= bytes.size(); size += size < 70 ? 1 : 13) {
      ASSERT_EQ(Util_CRC32(bytes.data() + at, static_cast<ssize_t>(size)), PlainCrc(bytes.substr(at, size)))
          << at << ' ' << size;
    }
  }
}

TEST(Crc32, ALengthBelow1GivesNothing) {
  EXPECT_EQ(Util_CRC32("abc", 0), 0U);
  EXPECT_EQ(Util_CRC32("abc", -1), 0U);
  EXPECT_EQ(Util_CRC32(nullptr, 0), 0U);
}

TEST(Checksum, FoldsWordsAndTheBytesLeftOver) {
  EXPECT_EQ(Util_Checksum32("\x01\x02\x03\x04\x10\x20\x30\x40", 8), 0x44332211U);
  EXPECT_EQ(Util_Checksum("\x01\x02\x03\x04\x10\x20\x30\x40", 8), 0x44332211U);
  EXPECT_EQ(Util_Checksum("\x01\x02\x03\x04\x10", 5), 0x04030211U);
  EXPECT_EQ(Util_Checksum("\x01\x02\x03\x04\x10\x20\xF0", 7), 0x04F32211U);
  EXPECT_EQ(Util_Checksum32("\x01\x02\x03\x04\x10\x20\xF0", 7), 0x04030201U);
  EXPECT_EQ(Util_Checksum("\xF0", 1), 0xF0U);
  EXPECT_EQ(Util_Checksum("", 0), 0U);
}

TEST(Checksum, APieceGoesOnWhereTheLastOneEnds) {
  std::string bytes = Bytes(101);
  for (size_t first = 0; first <= 9; first++) {
    for (size_t second = 0; second <= 9; second++) {
      const std::vector<iovec> pieces = {{bytes.data(), first},
                                         {bytes.data() + first, second},
                                         {nullptr, 0},
                                         {bytes.data() + first + second, bytes.size() - first - second}};
      EXPECT_EQ(Util_Checksumv(pieces.data(), pieces.size()), Util_Checksum(bytes.data(), bytes.size()))
          << first << ' ' << second;
    }
  }
  EXPECT_EQ(Util_Checksumv(nullptr, 0), 0U);
}

}  // namespace
