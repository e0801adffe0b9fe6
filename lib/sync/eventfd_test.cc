#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "eventfdInt.h"
#include "syncTestInt.h"
#include "systemCalls.h"

// What the kernel has is found once in a process, so each of these needs one of its own.

namespace {

using sync_kernel::eventfd;
using sync_kernel::eventfd_write;
using testhost::SystemCalls;

constexpr int kSuspect = 0x122;

uint64_t ReadCount(int fd) {
  uint64_t count = 0;
  return read(fd, &count, sizeof count) == sizeof count ? count : UINT64_MAX;
}

void ExpectFails(int fd, int error) {
  EXPECT_EQ(fd, -1);
  EXPECT_EQ(errno, error);
}

class EventFd : public testing::Test {
 protected:
  SystemCalls calls_{SYS_eventfd2, SYS_eventfd, SYS_write};
};

TEST_F(EventFd, GoesByTheNewestCall) {
  const int fd = eventfd(5, O_NONBLOCK);
  EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, O_NONBLOCK);
  EXPECT_EQ(ReadCount(fd), 5U);
  EXPECT_EQ(ReadCount(fd), UINT64_MAX);  // it doesn't block
  close(fd);
  close(eventfd(1, 0));
  EXPECT_EQ(calls_.Count(SYS_eventfd2), 2U);
  EXPECT_EQ(calls_.Count(SYS_eventfd), 0U);
}

TEST_F(EventFd, GoesByThePlainCallWhereTheNewestIsMissing) {
  calls_.Fail(SYS_eventfd2, ENOSYS);
  for (uint64_t count = 1; count <= 3; count++) {
    const int fd = eventfd(static_cast<unsigned>(count), 0);
    EXPECT_EQ(ReadCount(fd), count);
    close(fd);
    EXPECT_EQ(calls_.Count(SYS_eventfd), count);
  }
  EXPECT_EQ(calls_.Count(SYS_eventfd2), 1U);
}

TEST_F(EventFd, ThePlainCallHasNoFlags) {
  calls_.Fail(SYS_eventfd2, ENOSYS);
  ExpectFails(eventfd(0, O_NONBLOCK), EINVAL);
  ExpectFails(eventfd(0, O_CLOEXEC), EINVAL);
  EXPECT_EQ(calls_.Count(SYS_eventfd), 0U);
  const int fd = eventfd(0, 0);
  EXPECT_NE(fd, -1);
  close(fd);
  // And now that it is known to be there.
  ExpectFails(eventfd(0, O_NONBLOCK), EINVAL);
  EXPECT_EQ(calls_.Count(SYS_eventfd2), 1U);
  EXPECT_EQ(calls_.Count(SYS_eventfd), 1U);
}

TEST_F(EventFd, AKernelWithNeitherIsAskedOnce) {
  calls_.Fail(SYS_eventfd2, ENOSYS);
  calls_.Fail(SYS_eventfd, ENOSYS);
  ExpectFails(eventfd(0, O_NONBLOCK), EINVAL);
  ExpectFails(eventfd(0, 0), ENOSYS);
  errno = 0;
  ExpectFails(eventfd(0, 0), ENOSYS);
  errno = 0;
  ExpectFails(eventfd(0, O_NONBLOCK), ENOSYS);
  EXPECT_EQ(calls_.Count(SYS_eventfd2), 1U);
  EXPECT_EQ(calls_.Count(SYS_eventfd), 1U);
}

TEST_F(EventFd, AKernelThatEchoesTheNumberHasNone) {
  calls_.Return(SYS_eventfd2, kSuspect);
  const int fd = eventfd(7, 0);
  EXPECT_NE(fd, kSuspect);
  EXPECT_EQ(ReadCount(fd), 7U);
  close(fd);
  EXPECT_EQ(calls_.Count(SYS_eventfd2), 2U);
  EXPECT_EQ(calls_.Count(SYS_eventfd), 1U);
}

TEST_F(EventFd, AnEchoedNumberWithFlagsIsInvalid) {
  calls_.Return(SYS_eventfd2, kSuspect);
  ExpectFails(eventfd(7, O_NONBLOCK), EINVAL);
  EXPECT_EQ(calls_.Count(SYS_eventfd2), 2U);
}

TEST_F(EventFd, ADescriptorThatHappensToHaveTheNumberIsGood) {
  while (testhost::NextDescriptor() < kSuspect) {
    ASSERT_NE(open("/dev/null", O_RDONLY | O_CLOEXEC), -1);
  }
  EXPECT_EQ(eventfd(9, O_NONBLOCK), kSuspect);
  EXPECT_EQ(ReadCount(kSuspect), 9U);
  EXPECT_EQ(calls_.Count(SYS_eventfd2), 2U);
  EXPECT_EQ(testhost::NextDescriptor(), kSuspect + 1);  // the second was closed
  // Once known, the call is made once.
  close(kSuspect);
  EXPECT_EQ(eventfd(9, O_NONBLOCK), kSuspect);
  EXPECT_EQ(calls_.Count(SYS_eventfd2), 3U);
}

TEST_F(EventFd, ASuspectWhoseSecondCallFailsIsGood) {
  while (testhost::NextDescriptor() < kSuspect) {
    ASSERT_NE(open("/dev/null", O_RDONLY | O_CLOEXEC), -1);
  }
  calls_.Fail(SYS_eventfd2, EMFILE, {.from = 1, .count = 1});
  EXPECT_EQ(eventfd(9, 0), kSuspect);
  EXPECT_EQ(ReadCount(kSuspect), 9U);
}

TEST_F(EventFd, AnotherFailureTellsThatTheCallIsThere) {
  calls_.Fail(SYS_eventfd2, EMFILE, {.count = 1});
  ExpectFails(eventfd(0, 0), EMFILE);
  const int fd = eventfd(3, 0);
  EXPECT_EQ(ReadCount(fd), 3U);
  close(fd);
  EXPECT_EQ(calls_.Count(SYS_eventfd), 0U);
}

TEST_F(EventFd, AFailureOfThePlainCallTellsThatItIsThere) {
  calls_.Fail(SYS_eventfd2, ENOSYS);
  calls_.Fail(SYS_eventfd, ENFILE, {.count = 1});
  ExpectFails(eventfd(0, 0), ENFILE);
  const int fd = eventfd(3, 0);
  EXPECT_EQ(ReadCount(fd), 3U);
  close(fd);
}

TEST_F(EventFd, AWriteAdds) {
  const int fd = eventfd(2, 0);
  EXPECT_EQ(eventfd_write(fd, 40), 0);
  EXPECT_EQ(ReadCount(fd), 42U);
  close(fd);
}

TEST_F(EventFd, AShortWriteIsInvalid) {
  const int fd = eventfd(0, O_NONBLOCK);
  const auto target = static_cast<uint32_t>(fd);
  calls_.Return(SYS_write, 7, {.first = target});
  ExpectFails(eventfd_write(fd, 1), EINVAL);
  calls_.Return(SYS_write, 0, {.first = target});
  errno = 0;
  ExpectFails(eventfd_write(fd, 1), EINVAL);
  close(fd);
}

TEST_F(EventFd, AFailedWriteTellsWhy) {
  const int fd = eventfd(0, O_NONBLOCK);
  EXPECT_EQ(eventfd_write(fd, UINT64_MAX - 1), 0);
  ExpectFails(eventfd_write(fd, 1), EAGAIN);
  close(fd);
  ExpectFails(eventfd_write(fd, 1), EBADF);
}

}  // namespace
