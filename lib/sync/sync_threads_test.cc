// The locks under crowds of threads.

#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <string>

#include "syncMutex.h"
#include "syncRecMutex.h"
#include "syncWaitQ.h"
#include "threads.h"
#include "vthread.h"

using testhost::kThreads;
using testhost::OnEightThreads;

namespace {

constexpr int kRounds = 2000;

size_t CountDescriptors() {
  const std::filesystem::directory_iterator descriptors("/proc/self/fd");
  return static_cast<size_t>(std::distance(begin(descriptors), end(descriptors)));
}

// From here on the kernel of this process knows no eventfd.
void LoseEventFd() {
  sock_filter steps[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_K | BPF_JEQ, SYS_eventfd2, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog program = {std::size(steps), steps};
  ASSERT_EQ(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
  ASSERT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program), 0);
}

// What isn't atomic is changed by one thread at a time.
void ExpectGuards(SyncMutex *mutex) {
  int counter = 0;
  OnEightThreads([&](size_t /*thread*/) {
    for (int i = 0; i < kRounds; i++) {
      ASSERT_TRUE(SyncMutex_Lock(mutex));
      counter++;
      if (i % 16 == 0) {
        sched_yield();
      }
      SyncMutex_Unlock(mutex);
    }
  });
  EXPECT_EQ(counter, kRounds * static_cast<int>(kThreads));
  EXPECT_GT(mutex->queue.sequence, 0U);  // some had to wait
}

TEST(SyncThreads, AMutexGuards) {
  const size_t before = CountDescriptors();
  SyncMutex mutex;
  ASSERT_TRUE(SyncMutex_Init(&mutex, nullptr));
  ExpectGuards(&mutex);
  SyncMutex_Destroy(&mutex);
  EXPECT_EQ(CountDescriptors(), before);
}

TEST(SyncThreads, AMutexOfPipesGuards) {
  LoseEventFd();
  const size_t before = CountDescriptors();
  SyncMutex mutex;
  ASSERT_TRUE(SyncMutex_Init(&mutex, nullptr));
  EXPECT_FALSE(mutex.queue.usesEventFd);
  ExpectGuards(&mutex);
  SyncMutex_Destroy(&mutex);
  EXPECT_EQ(CountDescriptors(), before);
}

TEST(SyncThreads, ANamedMutexGuards) {
  char directory[] = "/tmp/sync-threads-XXXXXX";
  ASSERT_NE(mkdtemp(directory), nullptr);
  const size_t before = CountDescriptors();
  SyncMutex mutex;
  ASSERT_TRUE(SyncMutex_Init(&mutex, (std::string(directory) + "/lock").c_str()));
  ExpectGuards(&mutex);
  SyncMutex_Destroy(&mutex);
  EXPECT_EQ(CountDescriptors(), before);
  EXPECT_EQ(rmdir(directory), 0);  // no FIFO is left
}

TEST(SyncThreads, WhoTriesNeverGetsATakenLock) {
  SyncMutex mutex;
  ASSERT_TRUE(SyncMutex_Init(&mutex, nullptr));
  int counter = 0;
  std::atomic<int> taken = 0;
  OnEightThreads([&](size_t /*thread*/) {
    for (int i = 0; i < kRounds; i++) {
      if (SyncMutex_Trylock(&mutex)) {
        counter++;
        taken++;
        SyncMutex_Unlock(&mutex);
      }
    }
  });
  EXPECT_EQ(counter, taken);
  EXPECT_GT(counter, 0);
  SyncMutex_Destroy(&mutex);
}

TEST(SyncThreads, ARecursiveMutexGuardsUntilItsLastUnlock) {
  SyncRecMutex mutex;
  ASSERT_TRUE(SyncRecMutex_Init(&mutex, nullptr));
  int counter = 0;
  std::atomic<int> tried = 0;
  OnEightThreads([&](size_t thread) {
    for (int i = 0; i < kRounds; i++) {
      const size_t depth = 1 + (static_cast<size_t>(i) + thread) % 3;
      if (thread == 0 ? !SyncRecMutex_Trylock(&mutex) : !SyncRecMutex_Lock(&mutex)) {
        continue;
      }
      tried += thread == 0 ? 1 : 0;
      for (size_t level = 1; level < depth; level++) {
        ASSERT_TRUE(level % 2 == 0 ? SyncRecMutex_Lock(&mutex) : SyncRecMutex_Trylock(&mutex));
      }
      for (size_t level = 0; level < depth; level++) {
        counter += level == depth - 1 ? 1 : 0;
        ASSERT_TRUE(SyncRecMutex_Unlock(&mutex));
      }
    }
  });
  EXPECT_EQ(counter, kRounds * static_cast<int>(kThreads - 1) + tried);
  EXPECT_EQ(mutex.count, 0U);
  EXPECT_EQ(mutex.owner, -1);
  SyncRecMutex_Destroy(&mutex);
}

TEST(SyncThreads, ASingletonIsOneForAll) {
  for (int round = 0; round < 100; round++) {
    const size_t before = CountDescriptors();
    std::atomic<SyncMutex *> pointer = nullptr;
    std::array<SyncMutex *, kThreads> got{};
    OnEightThreads([&](size_t thread) { got.at(thread) = SyncMutex_CreateSingleton(&pointer); });
    for (const SyncMutex *mutex : got) {
      EXPECT_EQ(mutex, pointer);
    }
    // Those that came too late have closed theirs.
    EXPECT_EQ(CountDescriptors(), before + 1);
    SyncMutex_Destroy(pointer);
    delete pointer;
  }
}

// Four wake while four wait for the next step; a step that nobody is told of would hold one of them up.
TEST(SyncThreads, EachStepReachesAllThatWaitForIt) {
  SyncWaitQ queue;
  ASSERT_TRUE(SyncWaitQ_Init(&queue, nullptr));
  constexpr int kSteps = 4 * 500;
  std::atomic<int> step = 0;
  std::atomic<int> lost = 0;
  OnEightThreads([&](size_t thread) {
    if (thread % 2 == 0) {
      for (int i = 0; i < kSteps / 4; i++) {
        sched_yield();
        step++;
        EXPECT_TRUE(SyncWaitQ_WakeUp(&queue));
      }
      return;
    }
    for (int seen = 0; seen < kSteps; seen = step) {
      const int fd = SyncWaitQ_Add(&queue);
      ASSERT_NE(fd, -1);
      pollfd waiting = {fd, POLLIN, 0};
      if (step == seen && poll(&waiting, 1, 30000) == 0) {
        lost++;
      }
      EXPECT_TRUE(SyncWaitQ_Remove(&queue, fd));
    }
  });
  EXPECT_EQ(lost, 0);
  SyncWaitQ_Destroy(&queue);
}

TEST(SyncThreads, EachHasItsOwnName) {
  VThread_Init(2, "main");
  OnEightThreads([](size_t /*thread*/) {
    for (int i = 0; i < kRounds; i++) {
      ASSERT_EQ(VThread_CurName(), "main-" + std::to_string(pthread_self()));
      VThread_SetIsInSignal(2, VThread_IsInSignal());
    }
  });
}

}  // namespace
