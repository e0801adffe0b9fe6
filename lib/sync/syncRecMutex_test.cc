#include "syncRecMutex.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstddef>
#include <thread>

#include "panics.h"
#include "syncTestInt.h"
#include "systemCalls.h"

namespace {

// How threads ask for their ids. The sanitizers ask the kernel themselves, and go on getting them.
struct ThreadIds {
  int error;  // 0 while they can be had
  size_t asked;
};
ThreadIds threadIds;

}  // namespace

// A stand-in for the C library's.
extern "C" long syscall(long number, ...) noexcept {
  static const auto real = reinterpret_cast<long (*)(long, ...)>(dlsym(RTLD_NEXT, "syscall"));
  long arguments[6];
  va_list args;
  va_start(args, number);
  for (long &argument : arguments) {
    argument = va_arg(args, long);
  }
  va_end(args);
  if (number == SYS_gettid) {
    threadIds.asked++;
    errno = threadIds.error;
    if (threadIds.error != 0) {
      return -1;
    }
  }
  return real(number, arguments[0], arguments[1], arguments[2], arguments[3], arguments[4], arguments[5]);
}

namespace {

using testhost::Panics;
using testhost::SystemCalls;

const auto kPanics = testing::ExitedWithCode(255);
constexpr char kAssertion[] = "ASSERT lib/sync/syncRecMutex.cc:[0-9]+\n";

template <typename Function>
auto OnAnotherThread(Function act) {
  decltype(act()) result{};
  std::thread([&] { result = act(); }).join();
  return result;
}

class RecMutex : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(SyncRecMutex_Init(&mutex_, nullptr)); }
  void TearDown() override { SyncRecMutex_Destroy(&mutex_); }

  bool IsFreeForOthers() {
    return OnAnotherThread([this] { return SyncRecMutex_Trylock(&mutex_) && SyncRecMutex_Unlock(&mutex_); });
  }

  SyncRecMutex mutex_;
};

TEST_F(RecMutex, TakenThreeTimesNeedsThreeUnlocks) {
  EXPECT_EQ(mutex_.owner, -1);
  EXPECT_TRUE(SyncRecMutex_Lock(&mutex_));
  EXPECT_TRUE(SyncRecMutex_Lock(&mutex_));
  EXPECT_TRUE(SyncRecMutex_Trylock(&mutex_));
  EXPECT_EQ(mutex_.owner, gettid());
  for (uint32_t count = 3; count > 0; count--) {
    EXPECT_EQ(mutex_.count, count);
    EXPECT_FALSE(IsFreeForOthers());
    EXPECT_TRUE(SyncRecMutex_Unlock(&mutex_));
  }
  EXPECT_EQ(mutex_.owner, -1);
  EXPECT_TRUE(IsFreeForOthers());
}

TEST_F(RecMutex, WaitsUntilItsOwnerHasLeftItAsOften) {
  ASSERT_TRUE(SyncRecMutex_Trylock(&mutex_));
  ASSERT_TRUE(SyncRecMutex_Lock(&mutex_));
  std::atomic<int> unlocks = 0;
  std::thread other([&] {
    EXPECT_TRUE(SyncRecMutex_Lock(&mutex_));
    EXPECT_EQ(unlocks, 2);
    EXPECT_EQ(mutex_.owner, gettid());
    EXPECT_EQ(mutex_.count, 1U);
    EXPECT_TRUE(SyncRecMutex_Unlock(&mutex_));
  });
  while (!mutex_.mutex.queue.waiters) {
    usleep(1000);
  }
  for (; unlocks < 2;) {
    usleep(20000);
    unlocks++;
    EXPECT_TRUE(SyncRecMutex_Unlock(&mutex_));
  }
  other.join();
}

TEST_F(RecMutex, WithoutContentionMakesNoSystemCall) {
  // The first lock of a thread asks who it is.
  ASSERT_TRUE(SyncRecMutex_Lock(&mutex_));
  ASSERT_TRUE(SyncRecMutex_Unlock(&mutex_));
  const auto lockOften = [mutex = &mutex_] {
    // And so does that of a forked process.
    if (!SyncRecMutex_Lock(mutex) || !SyncRecMutex_Unlock(mutex)) {
      abort();
    }
    synctest::ForbidSystemCalls();
    for (int i = 0; i < 1000; i++) {
      if (!SyncRecMutex_Lock(mutex) || !SyncRecMutex_Trylock(mutex) || !SyncRecMutex_Unlock(mutex) ||
          !SyncRecMutex_Unlock(mutex)) {
        abort();
      }
    }
    synctest::LeaveQuietly();
  };
  EXPECT_EXIT(lockOften(), testing::ExitedWithCode(0), "");
}

TEST_F(RecMutex, UnlockingAnothersPanics) {
  ASSERT_TRUE(SyncRecMutex_Lock(&mutex_));
  const auto unlockElsewhere = [this] { OnAnotherThread([this] { return SyncRecMutex_Unlock(&mutex_); }); };
  // A thread can be made in a forked process as well, where the lock is held by a thread that isn't there.
  EXPECT_EXIT(unlockElsewhere(), kPanics, Panics(testing::MatchesRegex(kAssertion)));
  EXPECT_TRUE(SyncRecMutex_Unlock(&mutex_));
}

TEST_F(RecMutex, UnlockingAFreeOnePanics) {
  EXPECT_EXIT(SyncRecMutex_Unlock(&mutex_), kPanics, Panics(testing::MatchesRegex(kAssertion)));
  SyncRecMutex_Lock(&mutex_);
  SyncRecMutex_Unlock(&mutex_);
  EXPECT_EXIT(SyncRecMutex_Unlock(&mutex_), kPanics, Panics(testing::MatchesRegex(kAssertion)));
}

TEST_F(RecMutex, AnOwnerWithoutACountPanics) {
  const auto locks = {SyncRecMutex_Lock, SyncRecMutex_Trylock, SyncRecMutex_Unlock};
  for (const auto lock : locks) {
    const auto lockAsOwner = [&] {
      mutex_.owner = gettid();  // of the process that is to die
      lock(&mutex_);
    };
    EXPECT_EXIT(lockAsOwner(), kPanics, Panics(testing::MatchesRegex(kAssertion)));
  }
}

TEST_F(RecMutex, AFreeLockWithAnOwnerPanics) {
  mutex_.owner = 1;
  EXPECT_EXIT(SyncRecMutex_Lock(&mutex_), kPanics, Panics(testing::MatchesRegex(kAssertion)));
  EXPECT_EXIT(SyncRecMutex_Trylock(&mutex_), kPanics, Panics(testing::MatchesRegex(kAssertion)));
  mutex_.owner = -1;
  mutex_.count = 1;
  EXPECT_EXIT(SyncRecMutex_Lock(&mutex_), kPanics, Panics(testing::MatchesRegex(kAssertion)));
}

TEST_F(RecMutex, AFailedLockHasNoOwner) {
  ASSERT_TRUE(SyncRecMutex_Lock(&mutex_));
  SystemCalls calls({SYS_fcntl});
  calls.Fail(SYS_fcntl, EBADF);
  std::thread([this] { EXPECT_FALSE(SyncRecMutex_Lock(&mutex_)); }).join();
  EXPECT_EQ(mutex_.owner, gettid());
  EXPECT_EQ(mutex_.count, 1U);
  SyncRecMutex_Unlock(&mutex_);
}

TEST_F(RecMutex, AForkedProcessIsAnotherOwner) {
  ASSERT_TRUE(SyncRecMutex_Lock(&mutex_));
  const pid_t child = fork();
  if (child == 0) {
    _exit(SyncRecMutex_Trylock(&mutex_) ? 1 : 0);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(SyncRecMutex_Unlock(&mutex_));
}

TEST_F(RecMutex, AThreadIsKnownByItsIdInTheSystem) {
  const pid_t id = OnAnotherThread([this] {
    SyncRecMutex_Lock(&mutex_);
    const pid_t owner = mutex_.owner;
    SyncRecMutex_Unlock(&mutex_);
    return owner == gettid() ? owner : -1;
  });
  EXPECT_GT(id, 0);
  EXPECT_NE(id, getpid());
}

TEST_F(RecMutex, AKernelWithoutThreadsIdsIsAskedOnce) {
  threadIds.error = ENOSYS;
  ASSERT_TRUE(SyncRecMutex_Lock(&mutex_));
  EXPECT_EQ(mutex_.owner, getpid());
  SyncRecMutex_Unlock(&mutex_);
  EXPECT_EQ(threadIds.asked, 1U);
  // Not even where it would answer now.
  threadIds.error = 0;
  EXPECT_EQ(OnAnotherThread([this] {
              SyncRecMutex_Lock(&mutex_);
              const pid_t owner = mutex_.owner;
              SyncRecMutex_Unlock(&mutex_);
              return owner;
            }),
            getpid());
  EXPECT_EQ(threadIds.asked, 1U);
}

TEST_F(RecMutex, AnotherFailureToTellTheThreadsIdPanics) {
  threadIds.error = EPERM;
  EXPECT_EXIT(SyncRecMutex_Lock(&mutex_), kPanics, Panics(testing::MatchesRegex(kAssertion)));
}

}  // namespace
