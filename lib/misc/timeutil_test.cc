#include "timeutil.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace {

constexpr uint64_t kUnixEpoch = 116444736000000000;

TEST(UnixTimeToNtTime, CountsUnitsSince1601) {
  EXPECT_EQ(TimeUtil_UnixTimeToNtTime(0, 0), kUnixEpoch);
  EXPECT_EQ(TimeUtil_UnixTimeToNtTime(1, 0), kUnixEpoch + 10000000);
  // 2000-01-01 00:00:00, a file time that is widely known.
  EXPECT_EQ(TimeUtil_UnixTimeToNtTime(946684800, 0), 125911584000000000U);
}

TEST(UnixTimeToNtTime, DropsWhatIsBelowItsUnit) {
  EXPECT_EQ(TimeUtil_UnixTimeToNtTime(0, 99), kUnixEpoch);
  EXPECT_EQ(TimeUtil_UnixTimeToNtTime(0, 100), kUnixEpoch + 1);
  EXPECT_EQ(TimeUtil_UnixTimeToNtTime(0, 999999999), kUnixEpoch + 9999999);
}

TEST(UnixTimeToNtTime, GoesBackTo1601) {
  EXPECT_EQ(TimeUtil_UnixTimeToNtTime(-1, 0), kUnixEpoch - 10000000);
  EXPECT_EQ(TimeUtil_UnixTimeToNtTime(-11644473600, 0), 0U);
}

TEST(NtTimeToUnixTime, Reverses) {
  struct timespec time = {};
  for (const int64_t sec : {int64_t{0}, int64_t{1}, int64_t{946684800}, int64_t{4102444800}}) {
    for (const int64_t nsec : {0, 100, 123456700, 999999900}) {
      EXPECT_EQ(TimeUtil_NtTimeToUnixTime(&time, TimeUtil_UnixTimeToNtTime(sec, nsec)), 0);
      EXPECT_EQ(time.tv_sec, sec);
      EXPECT_EQ(time.tv_nsec, nsec);
    }
  }
  EXPECT_EQ(TimeUtil_NtTimeToUnixTime(&time, UINT64_MAX), 0);
  EXPECT_EQ(time.tv_sec, 1833029933770);
  EXPECT_EQ(time.tv_nsec, 955161500);
}

TEST(NtTimeToUnixTime, YieldsNothingBefore1970) {
  struct timespec time = {5, 6};
  EXPECT_EQ(TimeUtil_NtTimeToUnixTime(&time, kUnixEpoch), 0);
  EXPECT_EQ(time.tv_sec, 0);
  for (const uint64_t before : {kUnixEpoch - 1, uint64_t{0}}) {
    time = {5, 6};
    EXPECT_EQ(TimeUtil_NtTimeToUnixTime(&time, before), -1);
    EXPECT_EQ(time.tv_sec, 0);
    EXPECT_EQ(time.tv_nsec, 0);
  }
}

}  // namespace
