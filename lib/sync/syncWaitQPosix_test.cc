#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "panics.h"
#include "syncTestInt.h"
#include "syncWaitQ.h"
#include "systemCalls.h"

namespace {

// Moments in the middle of an entering or a wake-up.
synctest::Interruption beforeDuplicate;
synctest::Interruption beforeFifo;
synctest::Interruption beforeOpen;
synctest::Interruption beforeSignal;

// How many wake-ups came so far as to tell the waiters: wrote to them, or looked for them under their FIFO's
// name.
std::atomic<uint64_t> signals;

// What becomes of those who ask for a pipe. The sanitizers do so too, so it is looked at only during a call.
struct Pipes {
  bool watched;
  int error;  // of the first, or 0
  size_t asked;
};
Pipes pipes;

template <typename Function>
bool WithPipes(int error, Function call) {
  pipes = {true, error, 0};
  const bool result = call();
  pipes.watched = false;
  return result;
}

}  // namespace

// Stand-ins for the C library's.

extern "C" int fcntl(int fd, int command, ...) {
  va_list args;
  va_start(args, command);
  const long argument = va_arg(args, long);
  va_end(args);
  if (command == F_DUPFD_CLOEXEC) {
    beforeDuplicate.Happen();
  }
  return static_cast<int>(syscall(SYS_fcntl, fd, command, argument));
}

extern "C" int pipe(int *ends) noexcept {
  pipes.asked += pipes.watched ? 1 : 0;
  if (pipes.watched && pipes.error != 0) {
    errno = std::exchange(pipes.error, 0);
    return -1;
  }
  return static_cast<int>(syscall(SYS_pipe2, ends, 0));
}

extern "C" int mkfifo(const char *path, mode_t mode) noexcept {
  beforeFifo.Happen();
  return static_cast<int>(syscall(SYS_mknodat, AT_FDCWD, path, mode | S_IFIFO, 0));
}

extern "C" int open(const char *path, int flags, ...) {
  va_list args;
  va_start(args, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(args, mode_t) : 0;
  va_end(args);
  beforeOpen.Happen();
  signals += (flags & O_ACCMODE) == O_WRONLY ? 1 : 0;
  return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

extern "C" ssize_t write(int fd, const void *data, size_t size) {
  if (size == 1 || size == sizeof(uint64_t)) {
    beforeSignal.Happen();
    signals++;
  }
  return syscall(SYS_write, fd, data, size);
}

namespace {

using synctest::CountDescriptors;
using synctest::IsOpen;
using synctest::IsReadable;
using testhost::Panics;
using testhost::SystemCalls;

const auto kPanics = testing::ExitedWithCode(255);
constexpr char kTooMany[] = "SyncWaitQPanicOnFdLimit: Too many file descriptors are in use by the process.\n";
constexpr char kSystemLimit[] =
    "SyncWaitQPanicOnFdLimit: The system limit on the total number of open files has been reached.\n";

std::string ReadAll(int fd) {
  std::array<char, 16> data{};
  const ssize_t length = read(fd, data.data(), data.size());
  return length > 0 ? std::string(data.data(), static_cast<size_t>(length)) : "";
}

bool IsAFifo(const std::string &path) {
  struct stat data {};
  return stat(path.c_str(), &data) == 0 && S_ISFIFO(data.st_mode);
}

bool Exists(const std::string &path) {
  return access(path.c_str(), F_OK) == 0;
}

// What standard error got while something was done.
template <typename Function>
std::string Warned(Function act) {
  testing::internal::CaptureStderr();
  act();
  return testing::internal::GetCapturedStderr();
}

// The three things that a queue can be made of.
enum class Kind { kEventFd, kPipe, kNamed };

class AnyQueue : public testing::TestWithParam<Kind> {
 protected:
  void SetUp() override {
    if (GetParam() == Kind::kPipe) {
      calls_.Fail(SYS_eventfd2, ENOSYS);
      calls_.Fail(SYS_eventfd, ENOSYS);
    }
    before_ = CountDescriptors();
    ASSERT_TRUE(Init());
  }

  bool Init() {
    return SyncWaitQ_Init(&queue_, GetParam() == Kind::kNamed ? scratch_.Path("q").c_str() : nullptr);
  }

  synctest::Scratch scratch_;
  SystemCalls calls_{SYS_eventfd2, SYS_eventfd};
  SyncWaitQ queue_;
  size_t before_ = 0;
};

std::string NameOfKind(const testing::TestParamInfo<Kind> &kind) {
  const std::array<std::string, 3> names = {"OfEventFd", "OfPipe", "Named"};
  return names.at(static_cast<size_t>(kind.param));
}

INSTANTIATE_TEST_SUITE_P(SyncWaitQ, AnyQueue, testing::Values(Kind::kEventFd, Kind::kPipe, Kind::kNamed),
                         NameOfKind);

TEST_P(AnyQueue, KnowsWhatItIsMadeOf) {
  EXPECT_TRUE(queue_.initialized);
  EXPECT_EQ(queue_.usesEventFd, GetParam() == Kind::kEventFd);
  EXPECT_EQ(queue_.pathName != nullptr, GetParam() == Kind::kNamed);
  EXPECT_FALSE(queue_.waiters);
  EXPECT_EQ(queue_.sequence, 0U);
  SyncWaitQ_Destroy(&queue_);
  EXPECT_FALSE(queue_.initialized);
  EXPECT_EQ(CountDescriptors(), before_);
}

TEST_P(AnyQueue, OneWakeUpWakesAllThatWait) {
  std::array<int, 3> waiting{};
  for (int &fd : waiting) {
    fd = SyncWaitQ_Add(&queue_);
    ASSERT_NE(fd, -1);
    EXPECT_FALSE(IsReadable(fd));
  }
  EXPECT_TRUE(queue_.waiters);
  EXPECT_TRUE(SyncWaitQ_WakeUp(&queue_));
  EXPECT_FALSE(queue_.waiters);
  EXPECT_EQ(queue_.sequence, 1U);
  for (const int fd : waiting) {
    EXPECT_TRUE(IsReadable(fd));
  }
  for (const int fd : waiting) {
    EXPECT_TRUE(SyncWaitQ_Remove(&queue_, fd));
    EXPECT_FALSE(IsOpen(fd));
  }
  SyncWaitQ_Destroy(&queue_);
  EXPECT_EQ(CountDescriptors(), before_);
}

TEST_P(AnyQueue, AWakeUpWakesNobodyWhoComesLater) {
  for (int round = 0; round < 3; round++) {
    const int first = SyncWaitQ_Add(&queue_);
    EXPECT_TRUE(SyncWaitQ_WakeUp(&queue_));
    const int second = SyncWaitQ_Add(&queue_);
    EXPECT_TRUE(IsReadable(first));
    EXPECT_FALSE(IsReadable(second));
    EXPECT_TRUE(SyncWaitQ_WakeUp(&queue_));
    EXPECT_TRUE(IsReadable(second));
    EXPECT_TRUE(SyncWaitQ_Remove(&queue_, first));
    EXPECT_TRUE(SyncWaitQ_Remove(&queue_, second));
  }
  EXPECT_EQ(queue_.sequence, 6U);
  SyncWaitQ_Destroy(&queue_);
}

TEST_P(AnyQueue, WakesAThreadThatWaits) {
  const int fd = SyncWaitQ_Add(&queue_);
  std::thread waker([this] {
    usleep(20000);
    EXPECT_TRUE(SyncWaitQ_WakeUp(&queue_));
  });
  pollfd waiting = {fd, POLLIN, 0};
  EXPECT_EQ(poll(&waiting, 1, 60000), 1);
  waker.join();
  EXPECT_TRUE(SyncWaitQ_Remove(&queue_, fd));
  SyncWaitQ_Destroy(&queue_);
}

TEST_P(AnyQueue, AWakeUpWithNobodyWaitingCostsOneTest) {
  EXPECT_TRUE(SyncWaitQ_WakeUp(&queue_));
  EXPECT_EQ(queue_.sequence, 0U);
  const auto wake = [queue = &queue_] {
    synctest::ForbidSystemCalls();
    if (SyncWaitQ_WakeUp(queue)) {
      synctest::LeaveQuietly();
    }
  };
  EXPECT_EXIT(wake(), testing::ExitedWithCode(0), "");
  SyncWaitQ_Remove(&queue_, SyncWaitQ_Add(&queue_));
  // With somebody in the queue it makes one, which ends the process.
  EXPECT_EXIT(wake(), testing::KilledBySignal(SIGSYS), "");
  SyncWaitQ_Destroy(&queue_);
}

TEST_P(AnyQueue, AWakeUpWhileOneEntersMakesItReadableAtOnce) {
  size_t opened = 0;
  const auto wake = [&] {
    opened = CountDescriptors();
    EXPECT_TRUE(SyncWaitQ_WakeUp(&queue_));
  };
  (GetParam() == Kind::kNamed ? beforeFifo : beforeDuplicate).Plan(wake);
  const int fd = SyncWaitQ_Add(&queue_);
  EXPECT_EQ(queue_.sequence, 1U);
  EXPECT_TRUE(IsReadable(fd));
  EXPECT_FALSE(Exists(scratch_.Path("q.0")));
  EXPECT_EQ(CountDescriptors(), opened + 1);  // what it had opened for the wake-up before is closed
  if (GetParam() == Kind::kPipe) {
    EXPECT_EQ(ReadAll(fd), "X");
    EXPECT_EQ(ReadAll(fd), "");  // the write end is closed
    EXPECT_TRUE(IsReadable(fd));
  } else {
    EXPECT_EQ(ReadAll(fd), std::string("\1\0\0\0\0\0\0\0", 8));
  }
  EXPECT_TRUE(SyncWaitQ_Remove(&queue_, fd));
  SyncWaitQ_Destroy(&queue_);
  EXPECT_EQ(CountDescriptors(), before_);
}

// It has cleared the flag, and not yet come to ending the generation: the next one must know of the waiter.
TEST_P(AnyQueue, AWakeUpUnderWayDoesNotHideWhoEnters) {
  (GetParam() == Kind::kNamed ? beforeFifo : beforeDuplicate).Plan([this] { queue_.waiters = false; });
  const int fd = SyncWaitQ_Add(&queue_);
  EXPECT_TRUE(queue_.waiters);
  EXPECT_TRUE(SyncWaitQ_WakeUp(&queue_));
  EXPECT_TRUE(IsReadable(fd));
  SyncWaitQ_Remove(&queue_, fd);
  SyncWaitQ_Destroy(&queue_);
}

// The flag is cleared before the generation ends. Cleared behind it, it would hide who waits for the next.
TEST_P(AnyQueue, WhoEntersDuringAWakeUpIsWokenByTheNext) {
  const int first = SyncWaitQ_Add(&queue_);
  int second = -1;
  beforeSignal.Plan([&] { second = SyncWaitQ_Add(&queue_); });
  EXPECT_TRUE(SyncWaitQ_WakeUp(&queue_));
  EXPECT_TRUE(IsReadable(first));
  EXPECT_FALSE(IsReadable(second));
  EXPECT_TRUE(SyncWaitQ_WakeUp(&queue_));
  EXPECT_TRUE(IsReadable(second));
  SyncWaitQ_Remove(&queue_, first);
  SyncWaitQ_Remove(&queue_, second);
  SyncWaitQ_Destroy(&queue_);
}

TEST_P(AnyQueue, WakeUpsAtOnceEndAGenerationEach) {
  signals = 0;
  constexpr size_t kWakers = 4;
  std::vector<std::thread> wakers;
  wakers.reserve(kWakers);
  for (size_t waker = 0; waker < kWakers; waker++) {
    wakers.emplace_back([this] {
      for (int i = 0; i < 20000; i++) {
        queue_.waiters = true;
        EXPECT_TRUE(SyncWaitQ_WakeUp(&queue_));
      }
    });
  }
  for (std::thread &waker : wakers) {
    waker.join();
  }
  EXPECT_EQ(queue_.sequence, signals);
  SyncWaitQ_Destroy(&queue_);
  EXPECT_EQ(CountDescriptors(), before_);
}

TEST_P(AnyQueue, NothingThatItGivesBlocks) {
  const auto expectGiven = [this] {
    const int fd = SyncWaitQ_Add(&queue_);
    EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, O_NONBLOCK);
    SyncWaitQ_Remove(&queue_, fd);
  };
  const auto wake = [this] { SyncWaitQ_WakeUp(&queue_); };
  expectGiven();
  wake();
  expectGiven();
  (GetParam() == Kind::kNamed ? beforeFifo : beforeDuplicate).Plan(wake);
  expectGiven();
  SyncWaitQ_Destroy(&queue_);
}

TEST_P(AnyQueue, WhatIsReadableAtOnceMayFindNoDescriptor) {
  const auto wakeAndUseUp = [&] {
    SyncWaitQ_WakeUp(&queue_);
    synctest::UseUpDescriptors(0);
  };
  const auto enter = [&] {
    (GetParam() == Kind::kNamed ? beforeFifo : beforeDuplicate).Plan(wakeAndUseUp);
    SyncWaitQ_Add(&queue_);
  };
  EXPECT_EXIT(enter(), kPanics, Panics(testing::Eq(kTooMany)));
  SyncWaitQ_Destroy(&queue_);
}

TEST_P(AnyQueue, NoDescriptorLeftStopsWhoEnters) {
  const auto enter = [&] {
    synctest::UseUpDescriptors();
    SyncWaitQ_Add(&queue_);
  };
  EXPECT_EXIT(enter(), kPanics, Panics(testing::Eq(kTooMany)));
  SyncWaitQ_Destroy(&queue_);
}

TEST_P(AnyQueue, NoDescriptorLeftStopsWhoWakes) {
  const int fd = SyncWaitQ_Add(&queue_);
  const auto wake = [&] {
    synctest::UseUpDescriptors();
    SyncWaitQ_WakeUp(&queue_);
  };
  EXPECT_EXIT(wake(), kPanics, Panics(testing::Eq(kTooMany)));
  SyncWaitQ_Remove(&queue_, fd);
  SyncWaitQ_Destroy(&queue_);
}

TEST_P(AnyQueue, IsMadeAnewAfterItsEnd) {
  SyncWaitQ_Remove(&queue_, SyncWaitQ_Add(&queue_));
  SyncWaitQ_WakeUp(&queue_);
  SyncWaitQ_Remove(&queue_, SyncWaitQ_Add(&queue_));
  SyncWaitQ_Destroy(&queue_);
  ASSERT_TRUE(Init());
  EXPECT_EQ(queue_.sequence, 0U);
  EXPECT_FALSE(queue_.waiters);
  const int fd = SyncWaitQ_Add(&queue_);
  EXPECT_TRUE(SyncWaitQ_WakeUp(&queue_));
  EXPECT_TRUE(IsReadable(fd));
  SyncWaitQ_Remove(&queue_, fd);
  SyncWaitQ_Destroy(&queue_);
}

TEST(SyncWaitQ, AnEmptyPathPanics) {
  SyncWaitQ queue;
  EXPECT_EXIT(SyncWaitQ_Init(&queue, ""), kPanics,
              Panics(testing::MatchesRegex("ASSERT lib/sync/syncWaitQPosix.cc:[0-9]+\n")));
}

TEST(SyncWaitQ, WithoutItsInitItDoesNothing) {
  SyncWaitQ queue;
  EXPECT_EQ(SyncWaitQ_Add(&queue), -1);
  EXPECT_EQ(errno, EINVAL);
  const int fd = dup(0);
  EXPECT_FALSE(SyncWaitQ_Remove(&queue, fd));
  EXPECT_TRUE(IsOpen(fd));
  close(fd);
  EXPECT_TRUE(SyncWaitQ_WakeUp(&queue));
  SyncWaitQ_Destroy(&queue);
  EXPECT_TRUE(IsOpen(0));
}

TEST(SyncWaitQ, RemovingWhatIsNotOpenFails) {
  SyncWaitQ queue;
  ASSERT_TRUE(SyncWaitQ_Init(&queue, nullptr));
  EXPECT_FALSE(SyncWaitQ_Remove(&queue, testhost::NextDescriptor()));
  EXPECT_EQ(errno, EBADF);
  SyncWaitQ_Destroy(&queue);
}

TEST(SyncWaitQ, AProgramThatIsRunGetsNoneOfItsDescriptors) {
  SyncWaitQ queue;
  ASSERT_TRUE(SyncWaitQ_Init(&queue, nullptr));
  const int fd = SyncWaitQ_Add(&queue);
  EXPECT_EQ(fcntl(static_cast<int>(static_cast<uint32_t>(queue.handles)), F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
  SyncWaitQ_Remove(&queue, fd);
  SyncWaitQ_Destroy(&queue);
}

TEST(SyncWaitQ, AHandleThatSomebodyElseClosedStopsItsEnd) {
  SyncWaitQ queue;
  ASSERT_TRUE(SyncWaitQ_Init(&queue, nullptr));
  close(static_cast<int>(static_cast<uint32_t>(queue.handles)));
  EXPECT_EXIT(SyncWaitQ_Destroy(&queue), kPanics,
              Panics(testing::MatchesRegex("ASSERT lib/sync/syncWaitQPosix.cc:[0-9]+\n")));
}

// ---- Failures of queues of one process

class FailingQueue : public testing::Test {
 protected:
  void LoseEventFd() {
    calls_.Fail(SYS_eventfd2, ENOSYS);
    calls_.Fail(SYS_eventfd, ENOSYS);
  }

  bool Init(int pipeError = 0) {
    return WithPipes(pipeError, [queue = &queue_] { return SyncWaitQ_Init(queue, nullptr); });
  }

  void ExpectNoInit(int error, int pipeError = 0) {
    const size_t before = CountDescriptors();
    errno = 0;
    EXPECT_FALSE(Init(pipeError));
    EXPECT_EQ(errno, error);
    EXPECT_FALSE(queue_.initialized);
    EXPECT_EQ(CountDescriptors(), before);
  }

  SystemCalls calls_{SYS_eventfd2, SYS_eventfd, SYS_fcntl, SYS_write};
  SyncWaitQ queue_;
};

TEST_F(FailingQueue, AKernelWhoseCallHasNoFlagsGetsAPipe) {
  calls_.Fail(SYS_eventfd2, ENOSYS);
  ASSERT_TRUE(Init());
  EXPECT_FALSE(queue_.usesEventFd);
  EXPECT_EQ(calls_.Count(SYS_eventfd), 0U);
  EXPECT_EQ(pipes.asked, 1U);
  const auto readEnd = static_cast<int>(static_cast<uint32_t>(queue_.handles));
  const auto writeEnd = static_cast<int>(static_cast<uint32_t>(queue_.handles >> 32U));
  EXPECT_EQ(fcntl(readEnd, F_GETFL), O_RDONLY | O_NONBLOCK);
  EXPECT_EQ(fcntl(writeEnd, F_GETFL), O_WRONLY | O_NONBLOCK);
  SyncWaitQ_Destroy(&queue_);
}

TEST_F(FailingQueue, AnInvalidEventFdGetsAPipeToo) {
  calls_.Fail(SYS_eventfd2, EINVAL);
  ASSERT_TRUE(Init());
  EXPECT_FALSE(queue_.usesEventFd);
  EXPECT_EQ(pipes.asked, 1U);
  SyncWaitQ_Destroy(&queue_);
}

TEST_F(FailingQueue, AnotherFailureOfEventFdIsOne) {
  calls_.Fail(SYS_eventfd2, ENOMEM);
  ExpectNoInit(ENOMEM);
  EXPECT_EQ(pipes.asked, 0U);
}

TEST_F(FailingQueue, TheProcessesLimitStopsInit) {
  calls_.Fail(SYS_eventfd2, EMFILE);
  EXPECT_EXIT(SyncWaitQ_Init(&queue_, nullptr), kPanics, Panics(testing::Eq(kTooMany)));
}

TEST_F(FailingQueue, TheSystemsLimitStopsInit) {
  calls_.Fail(SYS_eventfd2, ENFILE);
  EXPECT_EXIT(SyncWaitQ_Init(&queue_, nullptr), kPanics, Panics(testing::Eq(kSystemLimit)));
}

TEST_F(FailingQueue, ALimitStopsInitByAPipeToo) {
  LoseEventFd();
  EXPECT_EXIT(Init(ENFILE), kPanics, Panics(testing::Eq(kSystemLimit)));
}

TEST_F(FailingQueue, WithoutAPipeEitherThereIsNone) {
  LoseEventFd();
  ExpectNoInit(ENOMEM, ENOMEM);
}

TEST_F(FailingQueue, AnEndThatCanBlockIsNotTaken) {
  LoseEventFd();
  for (const uint32_t end : {0U, 1U}) {
    const size_t before = CountDescriptors();
    calls_.Fail(SYS_fcntl, EPERM, {.from = end, .count = 1});
    EXPECT_EQ(Warned([&] { EXPECT_FALSE(SyncWaitQ_Init(&queue_, nullptr)); }),
              "SyncWaitQCreateNonBlockingPipe: fcntl failed, Operation not permitted (1)\n");
    EXPECT_EQ(CountDescriptors(), before);
  }
}

TEST_F(FailingQueue, WhatCannotBeDuplicatedCannotBeEntered) {
  ASSERT_TRUE(SyncWaitQ_Init(&queue_, nullptr));
  calls_.Fail(SYS_fcntl, EBADF);
  EXPECT_EQ(SyncWaitQ_Add(&queue_), -1);
  EXPECT_EQ(errno, EBADF);
  calls_.Fail(SYS_fcntl, ENFILE);
  EXPECT_EXIT(SyncWaitQ_Add(&queue_), kPanics, Panics(testing::Eq(kSystemLimit)));
  SyncWaitQ_Destroy(&queue_);
}

// The handle may be closed by the very wake-up that comes between; that is no failure.
TEST_F(FailingQueue, AFailedDuplicateOfAWokenQueueIsReadableAtOnce) {
  ASSERT_TRUE(SyncWaitQ_Init(&queue_, nullptr));
  beforeDuplicate.Plan([&] { SyncWaitQ_WakeUp(&queue_); });
  calls_.Fail(SYS_fcntl, EBADF);
  const int fd = SyncWaitQ_Add(&queue_);
  calls_.Clear();
  EXPECT_TRUE(IsReadable(fd));
  SyncWaitQ_Remove(&queue_, fd);
  SyncWaitQ_Destroy(&queue_);
}

TEST_F(FailingQueue, WhatIsReadableAtOnceMayFail) {
  ASSERT_TRUE(SyncWaitQ_Init(&queue_, nullptr));
  beforeDuplicate.Plan([&] {
    SyncWaitQ_WakeUp(&queue_);
    calls_.Fail(SYS_eventfd2, ENOMEM);
  });
  const size_t before = CountDescriptors();
  EXPECT_EQ(SyncWaitQ_Add(&queue_), -1);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(CountDescriptors(), before);
  SyncWaitQ_Destroy(&queue_);
}

TEST_F(FailingQueue, WhatIsReadableAtOnceMayBeAPipeInAQueueOfEventFd) {
  for (const int error : {ENOSYS, EINVAL}) {
    ASSERT_TRUE(SyncWaitQ_Init(&queue_, nullptr));
    beforeDuplicate.Plan([&] {
      SyncWaitQ_WakeUp(&queue_);
      calls_.Fail(SYS_eventfd2, error);
    });
    const int fd = SyncWaitQ_Add(&queue_);
    calls_.Clear();
    EXPECT_EQ(ReadAll(fd), "X");
    SyncWaitQ_Remove(&queue_, fd);
    SyncWaitQ_Destroy(&queue_);
  }
}

TEST_F(FailingQueue, AnEventFdThatWorkedOnceMustWorkAgain) {
  ASSERT_TRUE(SyncWaitQ_Init(&queue_, nullptr));
  SyncWaitQ_Remove(&queue_, SyncWaitQ_Add(&queue_));
  for (const int error : {ENOSYS, EINVAL}) {
    calls_.Fail(SYS_eventfd2, error);
    EXPECT_EXIT(SyncWaitQ_WakeUp(&queue_), kPanics,
                Panics(testing::MatchesRegex("NOT_REACHED lib/sync/syncWaitQPosix.cc:[0-9]+\n")));
  }
  calls_.Clear();
  SyncWaitQ_Destroy(&queue_);
}

TEST_F(FailingQueue, AWakeUpWithoutANewHandleFails) {
  for (const bool hasEventFd : {true, false}) {
    if (!hasEventFd) {
      LoseEventFd();
    }
    ASSERT_TRUE(SyncWaitQ_Init(&queue_, nullptr));
    const int fd = SyncWaitQ_Add(&queue_);
    if (hasEventFd) {
      calls_.Fail(SYS_eventfd2, ENOMEM);
    }
    EXPECT_FALSE(WithPipes(ENOMEM, [queue = &queue_] { return SyncWaitQ_WakeUp(queue); }));
    EXPECT_EQ(queue_.sequence, 0U);
    EXPECT_FALSE(IsReadable(fd));
    SyncWaitQ_Remove(&queue_, fd);
    SyncWaitQ_Destroy(&queue_);
    calls_.Clear();
  }
}

// Makes a queue with one waiter and wakes it while the write fails or writes less. What is told happens.
class FailingWrite : public FailingQueue {
 protected:
  void Enter() {
    before_ = CountDescriptors();
    ASSERT_TRUE(SyncWaitQ_Init(&queue_, nullptr));
    waiting_ = SyncWaitQ_Add(&queue_);
    const auto end = static_cast<uint32_t>(queue_.handles >> 32U);
    which_ = {.first = end};
  }

  std::string WakeUp() {
    std::string warning = Warned([&] { EXPECT_FALSE(SyncWaitQ_WakeUp(&queue_)); });
    calls_.Clear();
    EXPECT_EQ(queue_.sequence, 1U);
    SyncWaitQ_Remove(&queue_, waiting_);
    SyncWaitQ_Destroy(&queue_);
    EXPECT_EQ(CountDescriptors(), before_);
    return warning;
  }

  size_t before_ = 0;
  int waiting_ = -1;
  testhost::Which which_;
};

TEST_F(FailingWrite, ToAnEventFdWarns) {
  Enter();
  calls_.Fail(SYS_write, EIO, which_);
  EXPECT_EQ(WakeUp(), "SyncWaitQWakeUpAnon: eventfd_write failed, Input/output error (5)\n");
}

TEST_F(FailingWrite, ShortToAnEventFdIsInvalid) {
  Enter();
  calls_.Return(SYS_write, 4, which_);
  EXPECT_EQ(WakeUp(), "SyncWaitQWakeUpAnon: eventfd_write failed, Invalid argument (22)\n");
}

TEST_F(FailingWrite, ToAPipeWarns) {
  LoseEventFd();
  Enter();
  calls_.Fail(SYS_write, EIO, which_);
  EXPECT_EQ(WakeUp(), "SyncWaitQWakeUpAnon: write to pipe failed, Input/output error (5)\n");
}

TEST_F(FailingWrite, OfNothingToAPipeWarns) {
  LoseEventFd();
  Enter();
  calls_.Return(SYS_write, 0, which_);
  EXPECT_EQ(WakeUp(), "SyncWaitQWakeUpAnon: write to pipe failed, 0 bytes written\n");
}

// ---- Named queues

class NamedQueue : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(SyncWaitQ_Init(&queue_, scratch_.Path("q").c_str())); }
  void TearDown() override { SyncWaitQ_Destroy(&queue_); }

  synctest::Scratch scratch_;
  SyncWaitQ queue_;
};

TEST_F(NamedQueue, KeepsACopyOfItsPath) {
  EXPECT_EQ(queue_.pathName, scratch_.Path("q"));
  EXPECT_FALSE(Exists(scratch_.Path("q.0")));  // nobody waits yet
}

TEST_F(NamedQueue, HasAFifoForEachGeneration) {
  umask(0);
  int fd = SyncWaitQ_Add(&queue_);
  struct stat data {};
  ASSERT_EQ(stat(scratch_.Path("q.0").c_str(), &data), 0);
  EXPECT_EQ(data.st_mode, S_IFIFO | 0600U);
  EXPECT_TRUE(SyncWaitQ_WakeUp(&queue_));
  EXPECT_FALSE(Exists(scratch_.Path("q.0")));
  EXPECT_EQ(ReadAll(fd), "X");
  SyncWaitQ_Remove(&queue_, fd);

  queue_.sequence = 0xABCDEF0123U;
  fd = SyncWaitQ_Add(&queue_);
  EXPECT_TRUE(IsAFifo(scratch_.Path("q.abcdef0123")));
  SyncWaitQ_Remove(&queue_, fd);
  SyncWaitQ_Destroy(&queue_);
  EXPECT_FALSE(Exists(scratch_.Path("q.abcdef0123")));
  EXPECT_EQ(queue_.pathName, nullptr);
}

TEST_F(NamedQueue, TakesAFifoThatIsThere) {
  ASSERT_EQ(mkfifo(scratch_.Path("q.0").c_str(), 0600), 0);
  const int fd = SyncWaitQ_Add(&queue_);
  ASSERT_NE(fd, -1);
  EXPECT_TRUE(SyncWaitQ_WakeUp(&queue_));
  EXPECT_EQ(ReadAll(fd), "X");
  SyncWaitQ_Remove(&queue_, fd);
}

TEST_F(NamedQueue, CannotBeEnteredWithoutItsDirectory) {
  SyncWaitQ nowhere;
  ASSERT_TRUE(SyncWaitQ_Init(&nowhere, scratch_.Path("none/q").c_str()));
  EXPECT_EQ(SyncWaitQ_Add(&nowhere), -1);
  EXPECT_EQ(errno, ENOENT);
  SyncWaitQ_Destroy(&nowhere);
}

TEST_F(NamedQueue, AFifoThatIsNotMadeStopsAtALimit) {
  SystemCalls calls({SYS_mknodat});
  calls.Fail(SYS_mknodat, ENFILE);
  EXPECT_EXIT(SyncWaitQ_Add(&queue_), kPanics, Panics(testing::Eq(kSystemLimit)));
}

TEST_F(NamedQueue, AFifoThatIsNotOpenedCannotBeEntered) {
  beforeOpen.Plan([&] { unlink(scratch_.Path("q.0").c_str()); });
  EXPECT_EQ(SyncWaitQ_Add(&queue_), -1);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(NamedQueue, AWakeUpBetweenMakingAndOpeningTheFifoIsReadableAtOnce) {
  beforeOpen.Plan([&] { EXPECT_TRUE(SyncWaitQ_WakeUp(&queue_)); });
  const int fd = SyncWaitQ_Add(&queue_);
  EXPECT_EQ(queue_.sequence, 1U);
  EXPECT_TRUE(IsReadable(fd));
  EXPECT_FALSE(Exists(scratch_.Path("q.0")));
  SyncWaitQ_Remove(&queue_, fd);
}

// The one that wakes has ended the generation, and comes to open its FIFO only after somebody has deleted it.
TEST_F(NamedQueue, WhoDeletesTheFifoWakesTheOthersThatWaitOnIt) {
  const int other = SyncWaitQ_Add(&queue_);
  beforeOpen.Plan([&] { queue_.sequence++; });
  const int fd = SyncWaitQ_Add(&queue_);
  EXPECT_TRUE(IsReadable(fd));
  EXPECT_FALSE(Exists(scratch_.Path("q.0")));
  EXPECT_TRUE(IsReadable(other));
  SyncWaitQ_Remove(&queue_, other);
  SyncWaitQ_Remove(&queue_, fd);
}

TEST_F(NamedQueue, WakingThoseWhoLeftIsSuccess) {
  SyncWaitQ_Remove(&queue_, SyncWaitQ_Add(&queue_));
  EXPECT_TRUE(IsAFifo(scratch_.Path("q.0")));
  EXPECT_EQ(Warned([&] { EXPECT_TRUE(SyncWaitQ_WakeUp(&queue_)); }), "");  // ENXIO
  EXPECT_FALSE(Exists(scratch_.Path("q.0")));

  SyncWaitQ_Remove(&queue_, SyncWaitQ_Add(&queue_));
  unlink(scratch_.Path("q.1").c_str());
  EXPECT_EQ(Warned([&] { EXPECT_TRUE(SyncWaitQ_WakeUp(&queue_)); }), "");  // ENOENT
  EXPECT_EQ(queue_.sequence, 2U);
}

TEST_F(NamedQueue, AWakeUpThatCannotOpenTheFifoWarns) {
  SyncWaitQ_Remove(&queue_, SyncWaitQ_Add(&queue_));
  unlink(scratch_.Path("q.0").c_str());
  mkdir(scratch_.Path("q.0").c_str(), 0700);
  EXPECT_EQ(Warned([&] { EXPECT_FALSE(SyncWaitQ_WakeUp(&queue_)); }),
            "SyncWaitQWakeUpNamed: open failed, Is a directory (21)\n");
  EXPECT_EQ(queue_.sequence, 1U);
}

// How often SIGPIPE came to somebody.
volatile sig_atomic_t brokenPipes;

TEST_F(NamedQueue, AWaiterThatLeavesDuringTheWakeUpIsNoFailure) {
  const int fd = SyncWaitQ_Add(&queue_);
  const size_t before = CountDescriptors();
  beforeSignal.Plan([&] { close(fd); });
  // The default action of the signal would end the process.
  EXPECT_EQ(Warned([&] { EXPECT_TRUE(SyncWaitQ_WakeUp(&queue_)); }), "");
  EXPECT_EQ(CountDescriptors(), before - 1);
  EXPECT_FALSE(Exists(scratch_.Path("q.0")));
}

TEST_F(NamedQueue, ASignalOfABrokenPipeThatWaitsStaysForItsReceiver) {
  signal(SIGPIPE, [](int) { brokenPipes = brokenPipes + 1; });
  sigset_t brokenPipe;
  sigemptyset(&brokenPipe);
  sigaddset(&brokenPipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &brokenPipe, nullptr);
  pthread_kill(pthread_self(), SIGPIPE);
  const int fd = SyncWaitQ_Add(&queue_);
  beforeSignal.Plan([&] { close(fd); });
  EXPECT_TRUE(SyncWaitQ_WakeUp(&queue_));
  EXPECT_EQ(brokenPipes, 0);
  pthread_sigmask(SIG_UNBLOCK, &brokenPipe, nullptr);
  EXPECT_EQ(brokenPipes, 1);

  // Without one that waits, nobody hears of it.
  const int second = SyncWaitQ_Add(&queue_);
  beforeSignal.Plan([&] { close(second); });
  EXPECT_TRUE(SyncWaitQ_WakeUp(&queue_));
  EXPECT_EQ(brokenPipes, 1);
  raise(SIGPIPE);
  EXPECT_EQ(brokenPipes, 2);
}

class FailingFifo : public NamedQueue {
 protected:
  // Wakes a waiter while writes to the FIFO get an answer of `tell`.
  std::string WakeUp(const std::function<void(const testhost::Which &)> &tell) {
    const int fd = SyncWaitQ_Add(&queue_);
    std::string warning = Warned([&] {
      const int fifo = testhost::NextDescriptor();
      tell({.first = static_cast<uint32_t>(fifo)});
      EXPECT_FALSE(SyncWaitQ_WakeUp(&queue_));
      calls_.Clear();
      EXPECT_FALSE(IsOpen(fifo));
    });
    SyncWaitQ_Remove(&queue_, fd);
    return warning;
  }

  SystemCalls calls_{SYS_write};
};

TEST_F(FailingFifo, AFailedWriteWarns) {
  EXPECT_EQ(WakeUp([this](const testhost::Which &which) { calls_.Fail(SYS_write, EIO, which); }),
            "SyncWaitQWakeUpNamed: write failed, Input/output error (5)\n");
}

TEST_F(FailingFifo, AWriteOfNothingWarns) {
  EXPECT_EQ(WakeUp([this](const testhost::Which &which) { calls_.Return(SYS_write, 0, which); }),
            "SyncWaitQWakeUpNamed: write failed, 0 bytes written\n");
}

}  // namespace
