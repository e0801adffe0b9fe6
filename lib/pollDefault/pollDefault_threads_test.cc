// The event loop with its lock: callbacks come and go in many threads while one runs the loop.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <thread>
#include <vector>

#include "ostpoll.h"
#include "pollDefaultInt.h"

namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 300;

void Count(void *data) {
  ++*static_cast<std::atomic<int> *>(data);
}

void Quit(void *data) {
  __atomic_store_n(static_cast<bool *>(data), true, __ATOMIC_RELEASE);
}

class LockedPoll : public testing::Test {
 protected:
  void SetUp() override { Poll_InitLocked(); }
  void TearDown() override { Poll_Exit(); }
};

TEST_F(LockedPoll, LetsEveryThreadAddAndRemoveWhileOneRuns) {
  bool quit = false;
  std::thread loop([&] { Poll_RunTimed(true, &quit, POLL_CLASS_MAIN, 1000); });
  // A callback may still run when its removal returns, so what it counts in outlives its thread.
  std::atomic<int> fired = 0;
  std::array<std::atomic<int>, kThreads> counts{};
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int thread = 0; thread < kThreads; thread++) {
    threads.emplace_back([&, &own = counts.at(static_cast<size_t>(thread))] {
      std::array<int, 2> ends{};
      ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
      ASSERT_EQ(write(ends[1], "x", 1), 1);
      for (int round = 0; round < kRounds; round++) {
        Poll_AddTimer(Count, &own, 100, true, nullptr);
        Poll_AddTimer(Count, &fired, 0, false, nullptr);
        Poll_AddDevice(Count, &own, ends[0], true);
        Poll_AddCallback({{3, 0}}, POLL_FLAG_PERIODIC, Count, &fired, POLL_TYPE_MAIN_LOOP, 0, nullptr);
        if (round % 30 == 0) {
          usleep(1000);
        }
        EXPECT_TRUE(Poll_RemoveCallback({{3, 0}}, POLL_FLAG_PERIODIC, Count, &fired, POLL_TYPE_MAIN_LOOP));
        EXPECT_TRUE(Poll_RemoveDevice(Count, &own, true));
        EXPECT_TRUE(Poll_RemoveTimer(Count, &own, true));
      }
      close(ends[0]);
      close(ends[1]);
    });
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
  Poll_AddTimer(Quit, &quit, 10000, false, nullptr);
  loop.join();
  // Every timer without a period fired, and the main loop's callbacks besides.
  EXPECT_GE(fired, kThreads * kRounds);
  for (const PollCallback *queue : pollDefault.state->queues) {
    for (const PollCallback *record = queue; record != nullptr; record = record->next) {
      EXPECT_EQ(record->count, 1);
    }
  }
  EXPECT_EQ(pollDefault.state->queues[POLL_TYPE_DEVICE], nullptr);
  EXPECT_EQ(pollDefault.state->classes[POLL_CLASS_MAIN].count, 0);
  EXPECT_EQ(pollDefault.state->owner, 0U);
}

TEST_F(LockedPoll, FiresWhatAnotherThreadAddsBeforeTheWaitEnds) {
  bool quit = false;
  std::thread loop([&] { Poll_RunTimed(true, &quit, POLL_CLASS_MAIN, 1000); });
  for (int i = 0; i < 20; i++) {
    std::atomic<int> fired = 0;
    Poll_AddTimer(Count, &fired, 1, false, nullptr);
    while (fired == 0) {
      usleep(100);
    }
    EXPECT_EQ(fired, 1);
  }
  Poll_AddTimer(Quit, &quit, 0, false, nullptr);
  loop.join();
}

TEST_F(LockedPoll, KnowsWhichThreadHasTheLock) {
  const auto isAnothers = [] {
    bool isLocked = true;
    std::thread([&] { isLocked = PollDefaultIsLocked(); }).join();
    return !isLocked;
  };
  PollDefaultLock();
  EXPECT_TRUE(PollDefaultIsLocked());
  EXPECT_TRUE(isAnothers());
  PollDefaultUnlock();
  EXPECT_FALSE(PollDefaultIsLocked());
  EXPECT_TRUE(isAnothers());
}

TEST_F(LockedPoll, AnotherThreadEndsTheLoopAtomically) {
  bool quit = false;
  std::thread loop([&] { Poll_RunTimed(true, &quit, POLL_CLASS_MAIN, 1000); });
  usleep(5000);
  Quit(&quit);
  loop.join();
}

}  // namespace
