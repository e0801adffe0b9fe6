#include <algorithm>
#include <climits>
#include <ctime>
#include <random>

#include "allocations.h"
#include "hostinfoTime.h"
#include "pollDefaultTestInt.h"

namespace {

using namespace polltest;

class Timers : public PollHost {
 protected:
  void SetUp() override {
    PollHost::SetUp();
    TakeTime();
  }

  void AddTimer(const std::string &name, int delay, bool periodic = false,
                std::function<void()> act = nullptr) {
    Poll_AddTimer(Play, NewActor(name, std::move(act)), delay, periodic, nullptr);
  }

  static void Pass(int64_t microseconds) { *world.clock += microseconds; }
};

TEST_F(Timers, FireInTheOrderOfTheirTimeAndOnce) {
  AddTimer("c", 3000);
  AddTimer("a", 1000);
  AddTimer("b", 2000);
  Turn();
  EXPECT_EQ(Fired(), "");
  Pass(2000);
  Turn();
  EXPECT_EQ(Fired(), "a b");
  Pass(1000);
  Turn();
  EXPECT_EQ(Fired(), "c");
  Pass(100000);
  Turn();
  EXPECT_EQ(Fired(), "");
  EXPECT_EQ(CountFree(), 3);
}

TEST_F(Timers, OfOneTimeFireTheLastAddedFirst) {
  AddTimer("a", 1000);
  AddTimer("b", 1000);
  AddTimer("later", 1001);
  AddTimer("c", 1000);
  Pass(1001);
  Turn();
  EXPECT_EQ(Fired(), "c b a later");
}

TEST_F(Timers, WithoutPeriodNeverFireEarly) {
  AddTimer("a", 5001);
  for (int passed = 0; passed < 5001; passed++) {
    Turn();
    ASSERT_EQ(Fired(), "") << passed;
    Pass(1);
  }
  Turn();
  EXPECT_EQ(Fired(), "a");
}

TEST_F(Timers, WithPeriodFireUpToTwoMillisecondsEarly) {
  AddTimer("a", 5001, true);
  Pass(3000);
  Turn();
  EXPECT_EQ(Fired(), "");
  Pass(1);
  Turn();
  EXPECT_EQ(Fired(), "a");
}

TEST_F(Timers, WithPeriodCountItFromWhenTheyFired) {
  AddTimer("a", 10000, true);
  Pass(12345);
  const int64_t now = *world.clock;
  Turn();
  EXPECT_EQ(Fired(), "a");
  EXPECT_EQ(pollDefault.state->queues[POLL_TYPE_TIMER]->time, now + 10000);
  Pass(7999);
  Turn();
  EXPECT_EQ(Fired(), "");
  Pass(1);
  Turn();
  EXPECT_EQ(Fired(), "a");
}

TEST_F(Timers, WithAPeriodBelowTheTwoMillisecondsFireOnceATurn) {
  AddTimer("short", 1, true);
  AddTimer("shorter", 1, true);
  AddTimer("long", 2000, true);
  Turn();
  EXPECT_EQ(Fired(), "shorter short long");
  Turn();
  EXPECT_EQ(Fired(), "short shorter long");
}

TEST_F(Timers, PassOverOnesThatAreNotDueToPeriodicOnesBehind) {
  AddTimer("once", 1000);
  AddTimer("periodic", 2000, true);
  AddTimer("far", 2001, true);
  Turn();
  EXPECT_EQ(Fired(), "periodic");
}

// Whatever a callback does to the one that would be next, which the search for more goes on from.
TEST_F(Timers, FireEarlyWhenTheNextIsRemovedOrAddedAnewOrOneIsDueBefore) {
  Actor *next = NewActor("next");
  const auto removeNext = [=] { EXPECT_TRUE(Poll_RemoveTimer(Play, next, true)); };
  Actor *first = NewActor("first");
  const auto turn = [&](const std::function<void()> &act) {
    first->act = act;
    Poll_AddTimer(Play, first, 1000, true, nullptr);
    Poll_AddTimer(Play, next, 1100, true, nullptr);
    AddTimer("last", 1200, true);
    AddTimer("once", 900);
    Turn();
    Poll_Exit();
    Poll_InitDefault();
    return Fired();
  };
  EXPECT_EQ(turn(nullptr), "first next last");
  EXPECT_EQ(turn(removeNext), "first last");
  const auto addNextAgain = [&] {
    removeNext();
    Poll_AddTimer(Play, next, 1900, true, nullptr);  // in the same record
  };
  EXPECT_EQ(turn(addNextAgain), "first last");
  EXPECT_EQ(turn([&] { AddTimer("due", 0); }), "first due next last");
  EXPECT_EQ(turn([&] { AddTimer("due", 0, false, removeNext); }), "first due last");
}

TEST_F(Timers, OfTheMainClassAreFiredByNoOtherLoop) {
  AddTimer("a", 0);
  AddTimer("b", 0, true);
  for (unsigned eventClass = 1; eventClass < kPollClasses; eventClass++) {
    Turn(eventClass);
    EXPECT_EQ(Fired(), "");
  }
  Poll_RemoveTimer(Play, pollDefault.state->queues[POLL_TYPE_TIMER]->clientData, true);
  Turn();
  EXPECT_EQ(Fired(), "a");
}

TEST_F(Timers, ThatRemoveThemselvesFireOnceAndFreeTheirRecord) {
  Actor *actor = NewActor("a");
  actor->act = [=] {
    EXPECT_TRUE(Poll_RemoveTimer(Play, actor, true));
    EXPECT_EQ(CountFree(), 0);  // the record stays alive until the callback returns
    EXPECT_FALSE(Poll_RemoveTimer(Play, actor, true));
  };
  Poll_AddTimer(Play, actor, 1000, true, nullptr);
  const PollCallback *record = pollDefault.state->queues[POLL_TYPE_TIMER];
  Pass(1000);
  Turn();
  EXPECT_EQ(Fired(), "a");
  EXPECT_EQ(pollDefault.state->freeList, record);
  EXPECT_EQ(CountFree(), 1);
  Pass(1000000);
  Turn();
  EXPECT_EQ(Fired(), "");
}

TEST_F(Timers, WithoutPeriodAreGoneWhenTheyFire) {
  Actor *actor = NewActor("a");
  actor->act = [=] { EXPECT_FALSE(Poll_RemoveTimer(Play, actor, false)); };
  Poll_AddTimer(Play, actor, 0, false, nullptr);
  Turn();
  EXPECT_EQ(Fired(), "a");
  EXPECT_EQ(CountFree(), 1);
}

TEST_F(Timers, RemovedByAnEarlierOneOfTheTurnDoNotFire) {
  Actor *second = NewActor("second");
  AddTimer("first", 1000, false, [=] { EXPECT_TRUE(Poll_RemoveTimer(Play, second, false)); });
  Poll_AddTimer(Play, second, 1001, false, nullptr);
  Pass(2000);
  Turn();
  EXPECT_EQ(Fired(), "first");
}

TEST_F(Timers, ThatBecomeDueWhileOthersFireWaitForTheNextTurn) {
  AddTimer("slow", 1000, false, [] { Pass(5000); });
  AddTimer("next", 2000);
  Pass(1000);
  Turn();
  EXPECT_EQ(Fired(), "slow");
  Turn();
  EXPECT_EQ(Fired(), "next");
}

TEST_F(Timers, AddedInATurnFireInItWhenTheyAreDue) {
  AddTimer("first", 0, false, [this] { AddTimer("second", 0); });
  Turn();
  EXPECT_EQ(Fired(), "first second");
}

TEST_F(Timers, DecideHowLongTheLoopWaits) {
  Turn(0, 50000);
  EXPECT_EQ(Waited(), std::vector{50});
  AddTimer("a", 20001);
  Turn(0, 50000);
  EXPECT_EQ(Waited(), std::vector{21});  // rounded up, so that nothing is early
  EXPECT_EQ(Fired(), "");                // timers come before the wait
  Turn(0, 0);
  EXPECT_EQ(Fired(), "a");
  EXPECT_EQ(Waited(), std::vector<int>{});
  AddTimer("b", 60000);
  Turn(0, 50000);
  EXPECT_EQ(Waited(), std::vector{50});
  Turn(1, 70000);  // it isn't of this class
  EXPECT_EQ(Waited(), std::vector{70});
}

TEST_F(Timers, AreWaitedForFromWhenTheCallbacksHaveReturned) {
  AddTimer("slow", 0, false, [] { Pass(30000); });
  AddTimer("b", 40000);
  Turn(0, 50000);
  EXPECT_EQ(Waited(), std::vector{10});
  AddTimer("slower", 0, false, [] { Pass(30000); });
  AddTimer("c", 20000);
  Turn(0, 50000);
  EXPECT_EQ(Fired(), "slow slower b");
  EXPECT_EQ(Waited(), std::vector<int>{});
}

TEST_F(Timers, TimeoutsAreRoundedUpToMilliseconds) {
  const std::pair<int, int> rounded[] = {{1, 1},    {999, 1},       {1000, 1},
                                         {1001, 2}, {999999, 1000}, {INT_MAX, INT_MAX / 1000 + 1}};
  for (const auto &[timeout, wait] : rounded) {
    Turn(0, timeout);
    EXPECT_EQ(Waited(), std::vector{wait});
  }
}

TEST_F(Timers, FireWhenTheHostsClockWasSetBack) {
  AddTimer("a", 1000000);
  Pass(-3600 * int64_t{1000000});
  Turn();
  EXPECT_EQ(Fired(), "");
  Pass(999998);
  Turn();
  EXPECT_EQ(Fired(), "");
  Pass(1000);
  Turn();
  EXPECT_EQ(Fired(), "a");
}

TEST_F(Timers, KeepTheirPlaceWithTheLongestDelay) {
  AddTimer("far", INT_MAX);
  AddTimer("near", INT_MAX - 1);
  const PollCallback *first = pollDefault.state->queues[POLL_TYPE_TIMER];
  EXPECT_EQ(first->time, *world.clock + INT_MAX - 1);
  EXPECT_EQ(first->next->time, *world.clock + INT_MAX);
  EXPECT_EQ(first->next->next, nullptr);
}

TEST_F(Timers, TellTheirPeriodInTheirRecord) {
  Actor *actor = NewActor("a");
  Poll_AddTimer(Play, actor, 4000, true, nullptr);
  const PollCallback *record = pollDefault.state->queues[POLL_TYPE_TIMER];
  EXPECT_EQ(record->count, 1);
  EXPECT_EQ(record->flags, POLL_FLAG_PERIODIC | POLL_FLAG_STANDARD);
  EXPECT_TRUE(record->onQueue);
  EXPECT_TRUE(record->func == Play);
  EXPECT_EQ(record->clientData, actor);
  EXPECT_EQ(record->time, *world.clock + 4000);
  EXPECT_EQ(record->info, 4000);
  EXPECT_TRUE(PollClassSet_Equal(record->classSet, Classes({0})));
  EXPECT_TRUE(Poll_RemoveTimer(Play, actor, true));
  Poll_AddTimer(Play, actor, 5000, false, nullptr);
  EXPECT_EQ(pollDefault.state->queues[POLL_TYPE_TIMER], record);  // which is used again
  EXPECT_EQ(record->flags, POLL_FLAG_STANDARD);
  EXPECT_EQ(record->info, 0);
}

TEST_F(Timers, WithPeriodRunWithoutAnAllocation) {
  int count = 0;
  Poll_AddTimer([](void *data) { ++*static_cast<int *>(data); }, &count, 10000, true, nullptr);
  const size_t allocations = testhost::CountAllocations([] {
    for (int i = 0; i < 1000; i++) {
      Pass(10000);
      Turn();
    }
  });
  EXPECT_EQ(count, 1000);
  EXPECT_EQ(allocations, 0U);
}

TEST_F(Timers, TakeTurnsWithoutAnAllocationOnceTheirRecordsAreThere) {
  int count = 0;
  const PollFn add = [](void *data) { ++*static_cast<int *>(data); };
  Poll_AddTimer(add, &count, 0, false, nullptr);
  Turn();
  EXPECT_EQ(testhost::CountAllocations([&] {
              Poll_AddTimer(add, &count, 0, false, nullptr);
              Turn();
            }),
            0U);
  EXPECT_EQ(count, 2);
}

// What the queue should hold, kept the plain way.
struct Expected {
  int64_t time;
  PollFn func;
  void *clientData;
  bool periodic;

  bool operator==(const Expected &) const = default;
};

std::vector<Expected> Queued() {
  std::vector<Expected> queued;
  for (const PollCallback *record = pollDefault.state->queues[POLL_TYPE_TIMER]; record != nullptr;
       record = record->next) {
    queued.push_back(
        {record->time, record->func, record->clientData, (record->flags & POLL_FLAG_PERIODIC) != 0});
  }
  return queued;
}

// The express lanes hold, in the queue's order, just those that say so.
void ExpectLanes() {
  for (int lane = 0; lane < kPollTimerLanes; lane++) {
    const PollCallback *next = pollDefault.state->lanes[lane];
    for (const PollCallback *record = pollDefault.state->queues[POLL_TYPE_TIMER]; record != nullptr;
         record = record->next) {
      if (record->lanes > lane) {
        ASSERT_EQ(record, next);
        next = record->lane[lane].next;
      }
    }
    ASSERT_EQ(next, nullptr);
  }
}

TEST_F(Timers, KeepTheOrderOfAPlainListThroughThousandsOfChanges) {
  std::mt19937 random(20261121);
  const auto draw = [&](int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit)); };
  std::vector<Expected> expected;
  const PollFn funcs[] = {Play, PlayToo};
  Actor *const actors[] = {NewActor("a"), NewActor("b"), NewActor("c"), NewActor("d"), NewActor("e")};
  for (int step = 0; step < 20000; step++) {
    const PollFn func = funcs[draw(2)];
    Actor *actor = actors[draw(5)];
    const bool periodic = draw(2) == 0;
    const bool growing = step / 1000 % 2 == 0;
    const auto same = [&](const Expected &one) {
      return one.func == func && one.clientData == actor && one.periodic == periodic;
    };
    const auto sameFunction = [&](const Expected &one) {
      return one.func == func && one.periodic == periodic;
    };
    switch (draw(10)) {
      case 0: {
        const auto found = std::find_if(expected.begin(), expected.end(), sameFunction);
        void *clientData = nullptr;
        const unsigned flags = periodic ? 3 : 2;
        ASSERT_EQ(Poll_RemoveOneByFunction(Classes({0}), flags, func, POLL_TYPE_TIMER, &clientData),
                  found != expected.end());
        if (found != expected.end()) {
          ASSERT_EQ(clientData, found->clientData);
          expected.erase(found);
        }
        break;
      }
      case 1:
        Pass(draw(20));
        break;
      default:
        if (growing ? draw(3) != 0 : draw(3) == 0) {
          const int delay = 10000 + draw(300);
          const Expected added = {Hostinfo_SystemTimerUS() + delay, func, actor, periodic};
          expected.insert(std::lower_bound(expected.begin(), expected.end(), added,
                                           [](const auto &a, const auto &b) { return a.time < b.time; }),
                          added);
          Poll_AddTimer(func, actor, delay, periodic, nullptr);
        } else {
          const auto found = std::find_if(expected.begin(), expected.end(), same);
          ASSERT_EQ(Poll_RemoveTimer(func, actor, periodic), found != expected.end());
          if (found != expected.end()) {
            expected.erase(found);
          }
        }
    }
    if (step % 50 == 0) {
      ASSERT_EQ(Queued(), expected) << step;
      ExpectLanes();
    }
  }
  EXPECT_GT(expected.size(), 0U);
}

// Neither many that are alike nor many of others in front make a removal slow.
TEST_F(Timers, GoByTheTensOfThousandsInNoTime) {
  constexpr int kCount = 30000;
  Actor *alike = NewActor("alike");
  std::vector<char> others(kCount);
  const clock_t start = clock();
  for (int i = 0; i < kCount; i++) {
    Poll_AddTimer(Play, alike, 1000000 + i % 1000, false, nullptr);
  }
  for (int i = 0; i < kCount; i++) {
    ASSERT_TRUE(Poll_RemoveTimer(Play, alike, false));
  }
  for (char &other : others) {
    Poll_AddTimer(Play, &other, 1000000, false, nullptr);
  }
  for (char &other : others) {
    ASSERT_TRUE(Poll_RemoveTimer(Play, &other, false));  // the last of the queue
  }
  EXPECT_EQ(CountFree(), kCount);
  EXPECT_LT(clock() - start, 2 * CLOCKS_PER_SEC);
}

// Nor do many that aren't due yet, in front of many periodic ones that may fire early, make a turn slow.
TEST_F(Timers, FireEarlyByTheTensOfThousandsInNoTime) {
  constexpr int kCount = 20000;
  int once = 0;
  int periodic = 0;
  const PollFn add = [](void *data) { ++*static_cast<int *>(data); };
  for (int i = 0; i < kCount; i++) {
    Poll_AddTimer(add, &once, 1000, false, nullptr);
    Poll_AddTimer(add, &periodic, 1500, true, nullptr);
  }
  const clock_t start = clock();
  Turn();
  EXPECT_LT(clock() - start, 2 * CLOCKS_PER_SEC);
  EXPECT_EQ(once, 0);
  EXPECT_EQ(periodic, kCount);
}

using TimersDeathTest = Timers;

TEST_F(TimersDeathTest, ANegativeDelayPanics) {
  EXPECT_EXIT(AddTimer("a", -1), kPanics, BugIn("pollDefault"));
  EXPECT_EXIT(AddTimer("a", INT_MIN, true), kPanics, BugIn("pollDefault"));
}

TEST_F(TimersDeathTest, ATimeOfZeroPanics) {
  world.clock = 0;  // the system doesn't tell
  EXPECT_EXIT(AddTimer("a", 0), kPanics, BugIn("pollDefault"));
}

TEST_F(TimersDeathTest, APeriodOfZeroPanicsWhenItIsTimeToFire) {
  AddTimer("a", 0, true);
  EXPECT_EXIT(Turn(), kPanics, AssertIn("pollDefaultLoop"));
}

TEST_F(TimersDeathTest, OtherClassesThanTheMainOneAreNotImplemented) {
  constexpr char kNotImplemented[] = "^NOT_IMPLEMENTED lib/pollDefault/pollDefault\\.cc:[0-9]+\n";
  const std::initializer_list<PollClassSet> refused = {Classes({1}), Classes({0, 1}), Classes({0, 127}), {}};
  for (const PollClassSet &set : refused) {
    EXPECT_EXIT(Poll_AddCallback(set, 0, Play, nullptr, POLL_TYPE_TIMER, 1, nullptr), kPanics,
                kNotImplemented);
  }
}

TEST_F(TimersDeathTest, LinkingARecordToItselfPanics) {
  AddTimer("a", 1000);
  PollCallback *record = pollDefault.state->queues[POLL_TYPE_TIMER];
  EXPECT_EXIT(PollDefaultLinkTimer(record), kPanics, AssertIn("pollDefault"));
}

}  // namespace
