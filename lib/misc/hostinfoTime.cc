#include "hostinfoTime.h"

#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <limits>

#include "err.h"
#include "log.h"
#include "panicUser.h"
#include "posixPosix.h"
#include "syncMutex.h"

namespace {

constexpr int64_t kMicrosecondsPerSecond = 1000000;
constexpr char kUpTime[] = "/proc/uptime";
constexpr size_t kUpTimeSize = 256;

// The clock that never goes backward: all zero at first, so that it begins as the host's, and under the lock
// from then on.
struct SystemTimer {
  std::atomic<SyncMutex *> lock;
  int64_t baseReading;  // of the host's clock
  int64_t baseValue;    // what that reading stands for
  int64_t lastValue;
};
SystemTimer systemTimer;

// The descriptor of the first thread that opened /proc/uptime, open until the process ends; -1 before.
struct UpTimeFile {
  std::atomic<int> fd{-1};
  std::atomic<bool> failureLogged;
};
UpTimeFile upTimeFile;

int64_t Microseconds(const timeval &time) {
  return time.tv_sec * kMicrosecondsPerSecond + time.tv_usec;
}

// What a reading of the host's clock stands for. The caller holds the lock.
int64_t SystemTimerValue(int64_t reading) {
  int64_t value = reading - systemTimer.baseReading + systemTimer.baseValue;
  if (value < systemTimer.lastValue) {
    value = systemTimer.lastValue + 1;
    systemTimer.baseReading = reading;
    systemTimer.baseValue = value;
  }
  systemTimer.lastValue = value;
  return value;
}

int OpenUpTime() {
  return Posix_Open(kUpTime, O_RDONLY | O_CLOEXEC);
}

// The descriptor that all threads share, or -1 with a warning.
int SharedUpTime() {
  int shared = upTimeFile.fd.load(std::memory_order_acquire);
  if (shared != -1) {
    return shared;
  }
  const int fd = OpenUpTime();
  if (fd == -1) {
    Warning("HOSTINFO: Failed to open /proc/uptime: %s\n", Err_ErrString());
    return -1;
  }
  if (upTimeFile.fd.compare_exchange_strong(shared, fd, std::memory_order_acq_rel)) {
    return fd;
  }
  close(fd);
  return shared;
}

// Reads the file's beginning into `text`, with a NUL behind it. Returns false with errno on failure.
bool ReadUpTime(int fd, char (&text)[kUpTimeSize]) {
  const ssize_t length = pread(fd, text, sizeof text - 1, 0);
  text[length > 0 ? length : 0] = '\0';
  return length != -1;
}

// The same for a descriptor of its own. Returns false with a warning on failure.
bool ReadUpTimeAfresh(char (&text)[kUpTimeSize]) {
  const int fd = OpenUpTime();
  if (fd == -1) {
    Warning("HOSTINFO: Failed to retry open /proc/uptime: %s\n", Err_ErrString());
    return false;
  }
  const bool isRead = ReadUpTime(fd, text);
  if (!isRead) {
    Warning("HOSTINFO: Failed to read /proc/uptime: %s\n", Err_ErrString());
  }
  close(fd);
  return isRead;
}

// Returns 0 with a warning when the text doesn't begin with a time.
uint64_t ParseUpTime(const char *text) {
  double seconds = 0;
  const bool isNumber = sscanf(text, "%lf", &seconds) == 1;
  const double microseconds = seconds * 1000 * 1000;
  if (!isNumber || !(microseconds >= 0) ||
      microseconds >= std::ldexp(1.0, std::numeric_limits<uint64_t>::digits)) {
    Warning("HOSTINFO: Failed to parse /proc/uptime\n");
    return 0;
  }
  return static_cast<uint64_t>(microseconds);
}

}  // namespace

uint64_t Hostinfo_RawSystemTimerUS() {
  timeval now;
  if (gettimeofday(&now, nullptr) != 0) {
    Log("%s: failure!\n", __func__);
    return 0;
  }
  return static_cast<uint64_t>(Microseconds(now));
}

void Hostinfo_GetTimeOfDay(int64_t *result) {
  timeval now{};
  gettimeofday(&now, nullptr);
  *result = Microseconds(now);
}

int64_t Hostinfo_SystemTimerUS() {
  SyncMutex *lock = SyncMutex_CreateSingleton(&systemTimer.lock);
  ASSERT(SyncMutex_Lock(lock));
  const auto reading = static_cast<int64_t>(Hostinfo_RawSystemTimerUS());
  const int64_t value = reading == 0 ? 0 : SystemTimerValue(reading);
  SyncMutex_Unlock(lock);
  return value;
}

uint64_t Hostinfo_SystemUpTime() {
  const int fd = SharedUpTime();
  if (fd == -1) {
    return 0;
  }
  char text[kUpTimeSize];
  if (!ReadUpTime(fd, text)) {
    if (!upTimeFile.failureLogged.exchange(true)) {
      Warning("HOSTINFO: Failed to pread /proc/uptime: %s\n", Err_ErrString());
    }
    if (!ReadUpTimeAfresh(text)) {
      return 0;
    }
  }
  return ParseUpTime(text);
}
