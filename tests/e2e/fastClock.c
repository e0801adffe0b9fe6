/* Preloaded into the program: its monotonic clock runs faster, and what it waits for in poll comes sooner, so
   that a limit of minutes passes in seconds. Every other program keeps its clock. */
#define _GNU_SOURCE
#include <errno.h>
#include <poll.h>
#include <string.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

enum { kFactor = 300 };

static int IsFast(void) {
  return strcmp(program_invocation_short_name, "ostrel-kernprep") == 0;
}

int clock_gettime(clockid_t clock, struct timespec *now) {
  static const long long kNanoseconds = 1000000000;
  static long long origin;
  const long result = syscall(SYS_clock_gettime, clock, now);
  if (result != 0 || clock != CLOCK_MONOTONIC || !IsFast()) {
    return (int)result;
  }
  const long long time = now->tv_sec * kNanoseconds + now->tv_nsec;
  if (origin == 0) {
    origin = time;
  }
  const long long fast = origin + (time - origin) * kFactor;
  now->tv_sec = fast / kNanoseconds;
  now->tv_nsec = fast % kNanoseconds;
  return 0;
}

int poll(struct pollfd *files, nfds_t count, int timeout) {
  if (timeout > 0 && IsFast()) {
    timeout = (timeout + kFactor - 1) / kFactor;
  }
  return (int)syscall(SYS_poll, files, count, timeout);
}
