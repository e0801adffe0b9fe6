#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "eventfdInt.h"

namespace {

// eventfd2's own number among the system calls, which some kernels without it give back for a descriptor.
constexpr int kEchoedNumber = 0x122;

enum class Kernel { kUnknown, kNoEventFd2, kHasEventFd2, kHasEventFd, kHasNothing };

// What the kernel has, as far as it was asked. Two threads that ask at once find the same.
std::atomic<Kernel> kernel = Kernel::kUnknown;

int EventFd2(unsigned count, int flags) {
  return static_cast<int>(syscall(SYS_eventfd2, count, flags));
}

// Whether the kernel only said the call's number when it gave `fd` for a descriptor.
bool IsEcho(int fd, unsigned count, int flags) {
  if (fd != kEchoedNumber) {
    return false;
  }
  const int second = EventFd2(count, flags);
  if (second != -1 && second != kEchoedNumber) {
    close(second);
  }
  return second == kEchoedNumber;
}

// The first call: gives what eventfd2 gave, unless the kernel turns out to have none.
int ProbeEventFd2(unsigned count, int flags) {
  const int fd = EventFd2(count, flags);
  const bool isMissing = fd == -1 ? errno == ENOSYS : IsEcho(fd, count, flags);
  kernel = isMissing ? Kernel::kNoEventFd2 : Kernel::kHasEventFd2;
  return fd;
}

int EventFd(unsigned count) {
  const auto fd = static_cast<int>(syscall(SYS_eventfd, count));
  kernel = fd == -1 && errno == ENOSYS ? Kernel::kHasNothing : Kernel::kHasEventFd;
  return fd;
}

}  // namespace

int sync_kernel::eventfd(unsigned count, int flags) {
  if (kernel == Kernel::kUnknown) {
    const int fd = ProbeEventFd2(count, flags);
    if (kernel == Kernel::kHasEventFd2) {
      return fd;
    }
  }
  if (kernel == Kernel::kHasEventFd2) {
    return EventFd2(count, flags);
  }
  if (kernel == Kernel::kHasNothing) {
    errno = ENOSYS;
    return -1;
  }
  if (flags != 0) {
    errno = EINVAL;
    return -1;
  }
  return EventFd(count);
}

int sync_kernel::eventfd_write(int fd, uint64_t value) {
  const ssize_t written = write(fd, &value, sizeof value);
  if (written >= 0 && written != static_cast<ssize_t>(sizeof value)) {
    errno = EINVAL;
  }
  return written == static_cast<ssize_t>(sizeof value) ? 0 : -1;
}
