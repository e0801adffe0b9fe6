#include "timeutil.h"

namespace {

constexpr uint64_t kUnitsPerSecond = 10000000;
constexpr int64_t kNanosecondsPerUnit = 100;
// 1970 as a file time.
constexpr uint64_t kUnixEpoch = 116444736000000000;

}  // namespace

uint64_t TimeUtil_UnixTimeToNtTime(int64_t sec, int64_t nsec) {
  return static_cast<uint64_t>(sec) * kUnitsPerSecond + static_cast<uint64_t>(nsec / kNanosecondsPerUnit) +
         kUnixEpoch;
}

int TimeUtil_NtTimeToUnixTime(struct timespec *unixTime, uint64_t ntTime) {
  *unixTime = {};
  if (ntTime < kUnixEpoch) {
    return -1;
  }
  const uint64_t units = ntTime - kUnixEpoch;
  unixTime->tv_sec = static_cast<time_t>(units / kUnitsPerSecond);
  unixTime->tv_nsec = static_cast<long>(units % kUnitsPerSecond) * kNanosecondsPerUnit;
  return 0;
}
