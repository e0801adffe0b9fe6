#include "syncMutex.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <functional>
#include <new>
#include <thread>
#include <utility>
#include <vector>

#include "panics.h"
#include "syncTestInt.h"
#include "systemCalls.h"

namespace {

synctest::Interruption beforeDuplicate;
// Answers a poll in the kernel's stead.
std::function<int(int timeOutMs)> answerPoll;

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

extern "C" int poll(pollfd *fds, nfds_t count, int timeOutMs) {
  return answerPoll ? answerPoll(timeOutMs) : static_cast<int>(syscall(SYS_poll, fds, count, timeOutMs));
}

namespace {

using synctest::CountDescriptors;
using testhost::Panics;
using testhost::SystemCalls;

void AnswerPoll(std::function<int(int timeOutMs)> answer) {
  answerPoll = std::move(answer);
}

const auto kPanics = testing::ExitedWithCode(255);

class Mutex : public testing::Test {
 protected:
  void SetUp() override {
    before_ = CountDescriptors();
    ASSERT_TRUE(SyncMutex_Init(&mutex_, nullptr));
  }
  void TearDown() override {
    AnswerPoll(nullptr);
    SyncMutex_Destroy(&mutex_);
    EXPECT_EQ(CountDescriptors(), before_);
  }

  SyncMutex mutex_;
  size_t before_ = 0;
};

TEST_F(Mutex, IsFreeAtFirst) {
  EXPECT_EQ(mutex_.unlocked, 1U);
  EXPECT_TRUE(SyncMutex_Lock(&mutex_));
  EXPECT_EQ(mutex_.unlocked, 0U);
  EXPECT_FALSE(SyncMutex_Trylock(&mutex_));
  SyncMutex_Unlock(&mutex_);
  EXPECT_EQ(mutex_.unlocked, 1U);
  EXPECT_TRUE(SyncMutex_Trylock(&mutex_));
  SyncMutex_Unlock(&mutex_);
}

TEST_F(Mutex, WithoutContentionMakesNoSystemCall) {
  const auto lockOften = [mutex = &mutex_] {
    synctest::ForbidSystemCalls();
    for (int i = 0; i < 1000; i++) {
      if (!SyncMutex_Lock(mutex)) {
        abort();
      }
      SyncMutex_Unlock(mutex);
      if (!SyncMutex_Trylock(mutex) || SyncMutex_Trylock(mutex)) {
        abort();
      }
      SyncMutex_Unlock(mutex);
    }
    synctest::LeaveQuietly();
  };
  EXPECT_EXIT(lockOften(), testing::ExitedWithCode(0), "");
  // A second lock has to wait, which takes a call.
  const auto lockTwice = [mutex = &mutex_] {
    synctest::ForbidSystemCalls();
    SyncMutex_Lock(mutex);
    SyncMutex_Lock(mutex);
  };
  EXPECT_EXIT(lockTwice(), testing::KilledBySignal(SIGSYS), "");
}

TEST_F(Mutex, WaitsUntilItIsLeft) {
  ASSERT_TRUE(SyncMutex_Lock(&mutex_));
  std::atomic<bool> isLeft = false;
  std::thread other([&] {
    EXPECT_TRUE(SyncMutex_Lock(&mutex_));
    EXPECT_TRUE(isLeft);
    SyncMutex_Unlock(&mutex_);
  });
  while (!mutex_.queue.waiters) {
    usleep(1000);
  }
  usleep(20000);
  isLeft = true;
  SyncMutex_Unlock(&mutex_);
  other.join();
}

// The release comes when the waiter has found the lock taken, and before it is in the queue.
TEST_F(Mutex, TriesAgainOnceItIsInTheQueue) {
  ASSERT_TRUE(SyncMutex_Lock(&mutex_));
  beforeDuplicate.Plan([this] { SyncMutex_Unlock(&mutex_); });
  AnswerPoll([](int) -> int { abort(); });
  EXPECT_TRUE(SyncMutex_Lock(&mutex_));
  EXPECT_FALSE(SyncMutex_Trylock(&mutex_));
  SyncMutex_Unlock(&mutex_);
}

TEST_F(Mutex, ALostWakeUpCostsFiveSeconds) {
  ASSERT_TRUE(SyncMutex_Lock(&mutex_));
  std::vector<int> timeOuts;
  AnswerPoll([&](int timeOutMs) {
    timeOuts.push_back(timeOutMs);
    mutex_.unlocked = timeOuts.size() == 3 ? 1 : 0;  // left, and nobody is told
    return 0;
  });
  EXPECT_TRUE(SyncMutex_Lock(&mutex_));
  EXPECT_EQ(timeOuts, std::vector<int>({5000, 5000, 5000}));
  SyncMutex_Unlock(&mutex_);
}

TEST_F(Mutex, ASignalRepeatsTheWait) {
  ASSERT_TRUE(SyncMutex_Lock(&mutex_));
  int polls = 0;
  int entries = 0;
  const std::function<void()> countEntry = [&] { entries++; };
  beforeDuplicate.Plan(countEntry);
  AnswerPoll([&](int) {
    polls++;
    if (polls < 3) {
      errno = EINTR;
      return -1;
    }
    SyncMutex_Unlock(&mutex_);
    beforeDuplicate.Plan(countEntry);
    return 1;
  });
  EXPECT_TRUE(SyncMutex_Lock(&mutex_));
  EXPECT_EQ(polls, 3);
  EXPECT_EQ(entries, 2);  // it stayed in the queue while it was interrupted
  SyncMutex_Unlock(&mutex_);
}

TEST_F(Mutex, AFailedWaitDoesNotLock) {
  ASSERT_TRUE(SyncMutex_Lock(&mutex_));
  const size_t before = CountDescriptors();
  AnswerPoll([](int) {
    errno = ENOMEM;
    return -1;
  });
  EXPECT_FALSE(SyncMutex_Lock(&mutex_));
  EXPECT_EQ(CountDescriptors(), before);
  SyncMutex_Unlock(&mutex_);
}

TEST_F(Mutex, MoreThanOneReadyDescriptorPanics) {
  ASSERT_TRUE(SyncMutex_Lock(&mutex_));
  AnswerPoll([](int) { return 2; });
  EXPECT_EXIT(SyncMutex_Lock(&mutex_), kPanics,
              Panics(testing::MatchesRegex("ASSERT lib/sync/syncMutex.cc:[0-9]+\n")));
}

TEST_F(Mutex, IsNotLockedWhereNobodyCanEnterItsQueue) {
  SystemCalls calls({SYS_fcntl});
  ASSERT_TRUE(SyncMutex_Lock(&mutex_));
  calls.Fail(SYS_fcntl, EBADF);
  EXPECT_FALSE(SyncMutex_Lock(&mutex_));
}

TEST_F(Mutex, ADescriptorThatDoesNotCloseEndsTheWait) {
  ASSERT_TRUE(SyncMutex_Lock(&mutex_));
  const int waiting = testhost::NextDescriptor();
  AnswerPoll([&](int) {
    close(waiting);
    return 0;
  });
  EXPECT_FALSE(SyncMutex_Lock(&mutex_));
  EXPECT_EQ(mutex_.unlocked, 0U);
}

// The failure is told though the lock is taken.
TEST_F(Mutex, ADescriptorThatDoesNotCloseIsToldWithTheLockTaken) {
  SystemCalls calls({SYS_close});
  ASSERT_TRUE(SyncMutex_Lock(&mutex_));
  int waiting = -1;
  beforeDuplicate.Plan([&] {
    mutex_.unlocked = 1;  // without a wake-up, so that it's the duplicate that is given back
    waiting = testhost::NextDescriptor();
    calls.Fail(SYS_close, EIO, {.count = 1, .first = static_cast<uint32_t>(waiting)});
  });
  EXPECT_FALSE(SyncMutex_Lock(&mutex_));
  EXPECT_FALSE(SyncMutex_Trylock(&mutex_));
  close(waiting);
  SyncMutex_Unlock(&mutex_);
}

TEST(SyncMutex, IsNotMadeWithoutADescriptor) {
  SystemCalls calls({SYS_eventfd2});
  calls.Fail(SYS_eventfd2, ENOMEM);
  SyncMutex mutex;
  EXPECT_FALSE(SyncMutex_Init(&mutex, nullptr));
  EXPECT_EQ(errno, ENOMEM);
  SyncMutex_Destroy(&mutex);
}

TEST(SyncMutex, OfANameLeavesNoFile) {
  const synctest::Scratch scratch;
  SyncMutex mutex;
  ASSERT_TRUE(SyncMutex_Init(&mutex, scratch.Path("lock").c_str()));
  EXPECT_STREQ(mutex.queue.pathName, scratch.Path("lock").c_str());
  ASSERT_TRUE(SyncMutex_Lock(&mutex));
  std::thread other([&] { EXPECT_TRUE(SyncMutex_Lock(&mutex)); });
  while (access(scratch.Path("lock.0").c_str(), F_OK) != 0) {
    usleep(1000);
  }
  SyncMutex_Unlock(&mutex);
  other.join();
  SyncMutex_Destroy(&mutex);
  EXPECT_TRUE(std::filesystem::is_empty(scratch.Path(".")));
}

TEST(SyncMutexSingleton, IsMadeOnce) {
  std::atomic<SyncMutex *> pointer = nullptr;
  SyncMutex *mutex = SyncMutex_CreateSingleton(&pointer);
  EXPECT_EQ(pointer, mutex);
  EXPECT_EQ(SyncMutex_CreateSingleton(&pointer), mutex);
  EXPECT_EQ(mutex->unlocked, 1U);
  EXPECT_TRUE(mutex->queue.initialized);
  SyncMutex_Destroy(mutex);
  delete mutex;
}

TEST(SyncMutexSingleton, PanicsWhenItCannotBeMade) {
  SystemCalls calls({SYS_eventfd2});
  calls.Fail(SYS_eventfd2, ENOMEM);
  std::atomic<SyncMutex *> pointer = nullptr;
  EXPECT_EXIT(SyncMutex_CreateSingleton(&pointer), kPanics,
              Panics(testing::MatchesRegex("ASSERT lib/sync/syncMutex.cc:[0-9]+\n")));
}

}  // namespace
