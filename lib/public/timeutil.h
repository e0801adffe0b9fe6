// Conversion between Unix time, in seconds and nanoseconds since 1970, and Windows file time, in units of 100
// nanoseconds since 1601.
#ifndef OST_PUBLIC_TIMEUTIL_H
#define OST_PUBLIC_TIMEUTIL_H

#include <cstdint>
#include <ctime>

// The file time of `sec` seconds and `nsec` nanoseconds; what lies below 100 nanoseconds is dropped.
uint64_t TimeUtil_UnixTimeToNtTime(int64_t sec, int64_t nsec);

// The reverse. Returns 0, or -1 for a time before 1970: then `*unixTime` is 0.
int TimeUtil_NtTimeToUnixTime(struct timespec *unixTime, uint64_t ntTime);

#endif
