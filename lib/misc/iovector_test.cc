#include "iovector.h"

#include <gmock/gmock-matchers.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>

#include "log.h"
#include "testhost.h"

namespace {

// Three entries of 3, 0 and 4 bytes, filled with dots.
struct Vector {
  std::string first = "...";
  std::string second = ".";
  std::string third = "....";
  std::array<struct iovec, 3> iov = {{{first.data(), 3}, {second.data(), 0}, {third.data(), 4}}};

  std::string Text() const { return first + "|" + second + "|" + third; }
};

void *Address(uintptr_t address) {
  return reinterpret_cast<void *>(address);  // NOLINT(performance-no-int-to-ptr): the number is what's tested
}

TEST(WriteBufToIov, FillsTheEntriesInOrder) {
  Vector vector;
  IOV_WriteBufToIov("abcdefg", 7, vector.iov.data(), 3);
  EXPECT_EQ(vector.Text(), "abc|.|defg");
}

TEST(WriteBufToIov, EndsWithTheBuffer) {
  for (const auto &[size, expected] : {std::pair<size_t, const char *>{0, "...|.|...."},
                                       {2, "ab.|.|...."},
                                       {3, "abc|.|...."},
                                       {5, "abc|.|de.."}}) {
    Vector vector;
    IOV_WriteBufToIov("abcdefg", size, vector.iov.data(), 3);
    EXPECT_EQ(vector.Text(), expected);
  }
}

TEST(WriteBufToIov, EndsWithTheEntries) {
  Vector vector;
  IOV_WriteBufToIov("abcdefghij", 10, vector.iov.data(), 3);
  EXPECT_EQ(vector.Text(), "abc|.|defg");
  Vector one;
  IOV_WriteBufToIov("abcdefghij", 10, one.iov.data(), 1);
  EXPECT_EQ(one.Text(), "abc|.|....");
  IOV_WriteBufToIov("abc", 3, nullptr, 0);
}

TEST(WriteIovToBuf, EndsWithTheBufferOrTheEntries) {
  Vector vector;
  IOV_WriteBufToIov("abcdefg", 7, vector.iov.data(), 3);
  for (const auto &[size, expected] : {std::pair<size_t, const char *>{0, "----------"},
                                       {2, "ab--------"},
                                       {5, "abcde-----"},
                                       {7, "abcdefg---"},
                                       {10, "abcdefg---"}}) {
    std::string buffer(10, '-');
    IOV_WriteIovToBuf(vector.iov.data(), 3, buffer.data(), size);
    EXPECT_EQ(buffer, expected);
  }
  IOV_WriteIovToBuf(vector.iov.data(), 3, nullptr, 0);
}

TEST(FindEntry, FindsTheEntryThatHoldsTheOffset) {
  Vector vector;
  size_t offset = 99;
  EXPECT_EQ(IOV_FindEntry(vector.iov.data(), 3, 0, &offset), 0);
  EXPECT_EQ(offset, 0U);
  EXPECT_EQ(IOV_FindEntry(vector.iov.data(), 3, 2, &offset), 0);
  EXPECT_EQ(offset, 2U);
  EXPECT_EQ(IOV_FindEntry(vector.iov.data(), 3, 3, &offset), 2);
  EXPECT_EQ(offset, 0U);
  EXPECT_EQ(IOV_FindEntry(vector.iov.data(), 3, 6, &offset), 2);
  EXPECT_EQ(offset, 3U);
}

TEST(FindEntry, LogsAnOffsetPastTheEnd) {
  testhost::Host host;
  host.Directory("/tmp/logs");
  host.Enter();
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  const std::string log = Log_GetFileName();
  Vector vector;
  size_t offset = 99;
  EXPECT_EQ(IOV_FindEntry(vector.iov.data(), 3, 7, &offset), 3);
  EXPECT_EQ(IOV_FindEntry(vector.iov.data(), 3, 1000, &offset), 3);
  EXPECT_EQ(IOV_FindEntry(nullptr, 0, 0, &offset), 0);
  EXPECT_EQ(offset, 99U);
  EXPECT_THAT(
      testhost::ReadFile(log),
      testing::ContainsRegex("IOV: lib/misc/iovector.cc:[0-9]+ i 3 \\(of 3\\), offsets: entry 0, iov 7 "
                             "invalid iov offset\n"));
  EXPECT_THAT(testhost::ReadFile(log),
              testing::HasSubstr(" i 3 (of 3), offsets: entry 993, iov 1000 invalid iov offset\n"));
  EXPECT_THAT(testhost::ReadFile(log),
              testing::HasSubstr(" i 0 (of 0), offsets: entry 0, iov 0 invalid iov offset\n"));
}

TEST(IOVDeathTest, RefusesABaseOfNothing) {
  for (void *base : {Address(0), Address(0xF0F0)}) {
    Vector vector;
    vector.iov[2].iov_base = base;
    std::string buffer(7, '-');
    size_t offset = 0;
    const auto panics = testing::ExitedWithCode(255);
    const auto stops = testing::HasSubstr("ASSERT lib/misc/iovector.cc:");
    EXPECT_EXIT(IOV_WriteBufToIov("abcdefg", 7, vector.iov.data(), 3), panics, stops);
    EXPECT_EXIT(IOV_WriteIovToBuf(vector.iov.data(), 3, buffer.data(), 7), panics, stops);
    EXPECT_EXIT(IOV_FindEntry(vector.iov.data(), 3, 3, &offset), panics, stops);
    // What isn't looked at isn't refused.
    IOV_WriteIovToBuf(vector.iov.data(), 3, buffer.data(), 3);
    EXPECT_EQ(buffer, "...----");
    EXPECT_EQ(IOV_FindEntry(vector.iov.data(), 3, 2, &offset), 0);
  }
}

TEST(IOVDeathTest, RefusesABufferOfNothing) {
  Vector vector;
  const auto stops = testing::HasSubstr("ASSERT lib/misc/iovector.cc:");
  EXPECT_EXIT(IOV_WriteBufToIov(nullptr, 1, vector.iov.data(), 3), testing::ExitedWithCode(255), stops);
  EXPECT_EXIT(IOV_WriteIovToBuf(vector.iov.data(), 3, nullptr, 1), testing::ExitedWithCode(255), stops);
}

}  // namespace
