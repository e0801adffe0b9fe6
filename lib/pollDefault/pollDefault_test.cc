#include <sys/resource.h>

#include <algorithm>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "allocations.h"
#include "pollDefaultTestInt.h"
#include "systemCalls.h"

namespace {

using namespace polltest;

constexpr unsigned kRead = POLL_FLAG_PERIODIC | POLL_FLAG_READ;
constexpr unsigned kWrite = POLL_FLAG_PERIODIC | POLL_FLAG_WRITE;

void Add(PollClassSet set, unsigned flags, Actor *actor, int fd) {
  Poll_AddCallback(set, flags, Play, actor, POLL_TYPE_DEVICE, fd, nullptr);
}

bool Remove(PollClassSet set, unsigned flags, Actor *actor) {
  return Poll_RemoveCallback(set, flags, Play, actor, POLL_TYPE_DEVICE);
}

const PollClass &Table(size_t eventClass) {
  return std::as_const(pollDefault.state->classes)[eventClass];
}

PollCallback *FirstDevice() {
  return pollDefault.state->queues[POLL_TYPE_DEVICE];
}

using Registrations = PollHost;

TEST_F(Registrations, OfTheMainLoopHaveNoTimeAndGoInFront) {
  Actor *one = NewActor("one");
  Actor *two = NewActor("two");
  Poll_AddCallback(Classes({0, 3}), POLL_FLAG_PERIODIC, Play, one, POLL_TYPE_MAIN_LOOP, 0, nullptr);
  Poll_AddCallback(Classes({0}), 0, PlayToo, two, POLL_TYPE_MAIN_LOOP, 0, nullptr);
  const PollCallback *first = pollDefault.state->queues[POLL_TYPE_MAIN_LOOP];
  EXPECT_EQ(first->clientData, two);
  EXPECT_TRUE(first->func == PlayToo);
  EXPECT_EQ(first->flags, 0U);
  EXPECT_EQ(first->next->clientData, one);
  EXPECT_EQ(first->next->flags, POLL_FLAG_PERIODIC);
  EXPECT_TRUE(PollClassSet_Equal(first->next->classSet, Classes({0, 3})));
  for (const PollCallback *record = first; record != nullptr; record = record->next) {
    EXPECT_EQ(record->count, 1);
    EXPECT_EQ(record->info, -1);
    EXPECT_EQ(record->time, 0);
    EXPECT_TRUE(record->onQueue);
  }
  EXPECT_FALSE(pollDefault.state->fdsChanged);
}

TEST_F(Registrations, AreRemovedByAllThatTheyWereMadeWith) {
  Actor *actor = NewActor("actor");
  const PollClassSet set = Classes({0, 2});
  Poll_AddCallback(set, POLL_FLAG_STANDARD, Play, actor, POLL_TYPE_MAIN_LOOP, 0, nullptr);
  const auto remove = [](PollClassSet classes, unsigned flags, PollFn func, void *data, int type) {
    return Poll_RemoveCallback(classes, flags, func, data, type);
  };
  EXPECT_FALSE(remove(Classes({0}), POLL_FLAG_STANDARD, Play, actor, POLL_TYPE_MAIN_LOOP));
  EXPECT_FALSE(remove(Classes({0, 2, 64}), POLL_FLAG_STANDARD, Play, actor, POLL_TYPE_MAIN_LOOP));
  EXPECT_FALSE(remove(set, 0, Play, actor, POLL_TYPE_MAIN_LOOP));
  EXPECT_FALSE(remove(set, POLL_FLAG_STANDARD | POLL_FLAG_PERIODIC, Play, actor, POLL_TYPE_MAIN_LOOP));
  EXPECT_FALSE(remove(set, POLL_FLAG_STANDARD, PlayToo, actor, POLL_TYPE_MAIN_LOOP));
  EXPECT_FALSE(remove(set, POLL_FLAG_STANDARD, Play, nullptr, POLL_TYPE_MAIN_LOOP));
  EXPECT_FALSE(remove(set, POLL_FLAG_STANDARD, Play, actor, POLL_TYPE_TIMER));
  EXPECT_EQ(CountQueue(POLL_TYPE_MAIN_LOOP), 1);
  EXPECT_TRUE(remove(set, POLL_FLAG_STANDARD, Play, actor, POLL_TYPE_MAIN_LOOP));
  EXPECT_EQ(CountQueue(POLL_TYPE_MAIN_LOOP), 0);
  EXPECT_EQ(CountFree(), 1);
  EXPECT_FALSE(remove(set, POLL_FLAG_STANDARD, Play, actor, POLL_TYPE_MAIN_LOOP));
}

TEST_F(Registrations, AreRemovedByFunctionFromTheFront) {
  Actor *one = NewActor("one");
  Actor *two = NewActor("two");
  for (Actor *actor : {one, two}) {
    Poll_AddCallback(Classes({0}), 0, Play, actor, POLL_TYPE_MAIN_LOOP, 0, nullptr);
  }
  void *data = this;
  const auto remove = [&](unsigned flags, PollFn func) {
    return Poll_RemoveOneByFunction(Classes({0}), flags, func, POLL_TYPE_MAIN_LOOP, &data);
  };
  EXPECT_FALSE(remove(POLL_FLAG_PERIODIC, Play));
  EXPECT_FALSE(remove(0, PlayToo));
  EXPECT_EQ(data, this);
  EXPECT_TRUE(remove(0, Play));
  EXPECT_EQ(data, two);
  EXPECT_TRUE(remove(0, Play));
  EXPECT_EQ(data, one);
  EXPECT_FALSE(remove(0, Play));
  EXPECT_EQ(data, one);
  Poll_AddCallback(Classes({0}), 0, Play, nullptr, POLL_TYPE_MAIN_LOOP, 0, nullptr);
  EXPECT_TRUE(remove(0, Play));
  EXPECT_EQ(data, nullptr);
}

TEST_F(Registrations, ThatAreAlikeAreRemovedFromTheLastAdded) {
  Actor *actor = NewActor("actor");
  const int fds[] = {Pipe()[0], Pipe()[0], Pipe()[0]};
  for (const int fd : fds) {
    Poll_AddDevice(Play, actor, fd, true);
  }
  EXPECT_TRUE(Poll_RemoveDevice(Play, actor, true));
  ASSERT_EQ(Table(0).count, 2);
  EXPECT_EQ(PollDefaultFindDevice(0, fds[2]), nullptr);
  void *data = nullptr;
  EXPECT_TRUE(
      Poll_RemoveOneByFunction(Classes({0}), kRead | POLL_FLAG_STANDARD, Play, POLL_TYPE_DEVICE, &data));
  EXPECT_EQ(data, actor);
  ASSERT_EQ(Table(0).count, 1);
  EXPECT_EQ(Table(0).devices[0].fd, fds[0]);
}

TEST_F(Registrations, UseFreeRecordsAgain) {
  Actor *actor = NewActor("actor");
  Poll_AddTimer(Play, actor, 1000, true, nullptr);
  const PollCallback *record = pollDefault.state->queues[POLL_TYPE_TIMER];
  EXPECT_TRUE(Poll_RemoveTimer(Play, actor, true));
  EXPECT_EQ(pollDefault.state->freeList, record);
  const int fd = Pipe()[0];
  EXPECT_EQ(testhost::CountAllocations([=] { Poll_AddDevice(Play, actor, fd, true); }), 0U);
  EXPECT_EQ(FirstDevice(), record);
  EXPECT_EQ(record->time, 0);
  EXPECT_EQ(record->info, fd);
  EXPECT_EQ(pollDefault.state->freeList, nullptr);
}

TEST_F(Registrations, UseAllFreeRecordsAgain) {
  Actor *actor = NewActor("actor");
  const auto add = [=] {
    for (int i = 0; i < 3; i++) {
      Poll_AddTimer(Play, actor, 1000, true, nullptr);
    }
  };
  add();
  while (Poll_RemoveTimer(Play, actor, true)) {
  }
  EXPECT_EQ(CountFree(), 3);
  EXPECT_EQ(testhost::CountAllocations(add), 0U);
}

TEST_F(Registrations, OfADeviceEnterTheTablesOfItsClasses) {
  const int fd = Pipe()[0];
  Actor *actor = NewActor("actor");
  Add(Classes({0, 2, 4, 5, 64, 127}), kRead, actor, fd);
  EXPECT_TRUE(pollDefault.state->fdsChanged);
  for (const size_t eventClass : {0U, 2U, 4U}) {
    const PollClass &table = Table(eventClass);
    ASSERT_EQ(table.count, 1);
    EXPECT_EQ(table.devices[0].fd, fd);
    EXPECT_EQ(table.devices[0].events, 1);
    EXPECT_EQ(table.devices[0].read, FirstDevice());
    EXPECT_EQ(table.devices[0].write, nullptr);
  }
  EXPECT_EQ(Table(1).count, 0);
  EXPECT_EQ(Table(3).count, 0);
  pollDefault.state->fdsChanged = false;
  EXPECT_TRUE(Remove(Classes({0, 2, 4, 5, 64, 127}), kRead, actor));
  EXPECT_TRUE(pollDefault.state->fdsChanged);
  for (const PollClass &table : pollDefault.state->classes) {
    EXPECT_EQ(table.count, 0);
  }
}

TEST_F(Registrations, ThatReadAndWriteADescriptorShareAnEntry) {
  const int fd = open("/dev/null", O_RDWR | O_CLOEXEC);
  Actor *actor = NewActor("actor");
  Add(Classes({0}), kRead, actor, fd);
  Add(Classes({0}), kWrite, actor, fd);
  ASSERT_EQ(Table(0).count, 1);
  EXPECT_EQ(Table(0).devices[0].events, 5);
  EXPECT_TRUE(Remove(Classes({0}), kRead, actor));
  ASSERT_EQ(Table(0).count, 1);
  EXPECT_EQ(Table(0).devices[0].events, 4);
  EXPECT_EQ(Table(0).devices[0].read, nullptr);
  Turn();
  EXPECT_EQ(Fired(), "actor");
  Add(Classes({0}), kRead, actor, fd);
  EXPECT_TRUE(Remove(Classes({0}), kWrite, actor));
  ASSERT_EQ(Table(0).count, 1);
  EXPECT_EQ(Table(0).devices[0].events, 1);
  EXPECT_EQ(Table(0).devices[0].write, nullptr);
  Turn();
  EXPECT_EQ(Fired(), "actor");
  EXPECT_TRUE(Remove(Classes({0}), kRead, actor));
  EXPECT_EQ(Table(0).count, 0);
  close(fd);
}

TEST_F(Registrations, ThatGoLeaveTheirEntryToTheLast) {
  const int fds[] = {Pipe()[0], Pipe()[0], Pipe()[0]};
  Actor *const actors[] = {NewActor("a"), NewActor("b"), NewActor("c")};
  for (size_t i = 0; i < 3; i++) {
    Poll_AddDevice(Play, actors[i], fds[i], true);
  }
  EXPECT_TRUE(Poll_RemoveDevice(Play, actors[0], true));
  ASSERT_EQ(Table(0).count, 2);
  EXPECT_EQ(Table(0).devices[0].fd, fds[2]);
  EXPECT_EQ(Table(0).devices[0].read->clientData, actors[2]);
  EXPECT_EQ(Table(0).devices[1].fd, fds[1]);
  EXPECT_EQ(PollDefaultFindDevice(0, fds[2]), &Table(0).devices[0]);
  EXPECT_TRUE(Poll_RemoveDevice(Play, actors[1], true));
  EXPECT_TRUE(Poll_RemoveDevice(Play, actors[2], true));
  EXPECT_EQ(Table(0).count, 0);
}

// Those far apart are looked for in one chain, the one beside them isn't.
TEST_F(Registrations, OfDescriptorsFarApartAreFoundWhicheverGo) {
  rlimit limit = {8192, 8192};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  const auto [near, beside] = Pipe();
  const int step = static_cast<int>(kPollPlaces);
  std::map<int, Actor *> actors = {{near, NewActor("near")}, {beside, NewActor("beside")}};
  for (const int fd : {near + step, near + 4 * step}) {
    ASSERT_EQ(fcntl(near, F_DUPFD_CLOEXEC, fd), fd);
    actors[fd] = NewActor("far");
  }
  std::vector<int> order = {near, beside, near + step, near + 4 * step};
  do {
    for (const auto &[fd, actor] : actors) {
      Add(Classes({0, 1}), kRead, actor, fd);
    }
    std::set<int> left(order.begin(), order.end());
    for (const int gone : order) {
      ASSERT_TRUE(Remove(Classes({0, 1}), kRead, actors[gone]));
      left.erase(gone);
      for (const auto &[fd, actor] : actors) {
        for (unsigned eventClass = 0; eventClass < 3; eventClass++) {
          const PollDevice *device = PollDefaultFindDevice(eventClass, fd);
          ASSERT_EQ(device != nullptr, eventClass < 2 && left.count(fd) != 0);
          ASSERT_TRUE(device == nullptr || (device->fd == fd && device->read->clientData == actor));
        }
      }
      ASSERT_EQ(static_cast<size_t>(Table(0).count), left.size());
    }
  } while (std::next_permutation(order.begin(), order.end()));
  close(near + step);
  close(near + 4 * step);
}

TEST_F(Registrations, CanBeRemovedWhenTheirDescriptorIsClosed) {
  const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
  Actor *actor = NewActor("actor");
  Poll_AddDevice(Play, actor, fd, true);
  close(fd);
  EXPECT_TRUE(Poll_RemoveDevice(Play, actor, true));
  EXPECT_EQ(Table(0).count, 0);
}

using Life = PollHost;

TEST_F(Life, FreesAllThatIsRegisteredAndBeginsAnew) {
  const int fd = Pipe()[0];
  for (int round = 0; round < 3; round++) {
    Actor *actor = NewActor("actor");
    Poll_AddTimer(Play, actor, 0, true, nullptr);
    Poll_AddTimer(Play, actor, 1, false, nullptr);
    Poll_RemoveTimer(Play, actor, false);
    Add(Classes({0, 1, 2, 3, 4}), kRead, actor, fd);
    Poll_AddCallback(Classes({0}), 0, Play, actor, POLL_TYPE_MAIN_LOOP, 0, nullptr);
    Poll_Exit();
    EXPECT_EQ(pollDefault.state, nullptr);
    Poll_InitDefault();
    for (const PollCallback *queue : pollDefault.state->queues) {
      EXPECT_EQ(queue, nullptr);
    }
    EXPECT_EQ(pollDefault.state->freeList, nullptr);
    for (const PollClass &table : pollDefault.state->classes) {
      EXPECT_EQ(table.count, 0);
    }
    Turn();
    EXPECT_EQ(Fired(), "");
  }
}

TEST_F(Life, HasNoLockAndNoWrapperUnlessTheyAreAskedFor) {
  EXPECT_EQ(pollDefault.state->lock, nullptr);
  EXPECT_EQ(pollDefault.state->wrapper, nullptr);
  EXPECT_EQ(pollDefault.state->owner, 0U);
  EXPECT_TRUE(PollDefaultIsLocked());
}

std::string wrapped;

void Wrapper(PollFn func, void *clientData, void *wrapperData) {
  wrapped += *static_cast<std::string *>(wrapperData);
  EXPECT_TRUE(func == Play);
  func(clientData);
}

TEST_F(Life, WithAWrapperInvokesEveryCallbackThroughIt) {
  Poll_Exit();
  std::string data = "<";
  Poll_InitOptions({.locked = false, .reserved = false, .wrapper = Wrapper, .wrapperData = &data});
  Poll_AddTimer(Play, NewActor("timer"), 0, false, nullptr);
  Poll_AddDevice(Play, NewActor("device"), ReadyPipe(), false);
  Poll_AddCallback(Classes({0}), 0, Play, NewActor("turn"), POLL_TYPE_MAIN_LOOP, 0, nullptr);
  Turn();
  EXPECT_EQ(Fired(), "turn timer device");
  EXPECT_EQ(wrapped, "<<<");
}

TEST_F(Life, AWrapperMayKeepACallbackFromRunning) {
  Poll_Exit();
  Poll_InitOptions({.locked = false,
                    .reserved = false,
                    .wrapper = [](PollFn, void *, void *wrapperData) { ++*static_cast<int *>(wrapperData); },
                    .wrapperData = nullptr});
  int count = 0;
  pollDefault.state->wrapperData = &count;
  Poll_AddTimer(Play, NewActor("timer"), 0, false, nullptr);
  Turn();
  EXPECT_EQ(Fired(), "");
  EXPECT_EQ(count, 1);
}

TEST_F(Life, KeepsTheOptionsForTheNextStart) {
  Poll_Exit();
  Poll_InitLocked();
  EXPECT_TRUE(pollDefault.options.locked);
  EXPECT_TRUE(pollDefault.options.reserved);
  EXPECT_EQ(pollDefault.options.wrapper, nullptr);
  Poll_Exit();
  Poll_InitDefault();
  EXPECT_NE(pollDefault.state->lock, nullptr);
  Poll_Exit();
  Poll_InitOptions({});
  EXPECT_EQ(pollDefault.state->lock, nullptr);
}

TEST_F(Life, HasALockByTheFirstOfTheTwoFlags) {
  Poll_Exit();
  Poll_InitOptions({.locked = true, .reserved = false, .wrapper = nullptr, .wrapperData = nullptr});
  EXPECT_NE(pollDefault.state->lock, nullptr);
  Poll_Exit();
  Poll_InitOptions({.locked = false, .reserved = true, .wrapper = nullptr, .wrapperData = nullptr});
  EXPECT_EQ(pollDefault.state->lock, nullptr);
}

TEST_F(Life, TakesTheLocksDescriptorWithIt) {
  Poll_Exit();
  const int next = dup(0);
  close(next);
  Poll_InitLocked();
  const int behindTheLock = dup(0);
  EXPECT_GT(behindTheLock, next);
  close(behindTheLock);
  Poll_Exit();
  EXPECT_EQ(dup(0), next);
  close(next);
}

TEST_F(Life, WithALockCallbacksRunWithoutIt) {
  Poll_Exit();
  Poll_InitLocked();
  EXPECT_FALSE(PollDefaultIsLocked());
  for (const bool periodic : {true, false}) {
    Poll_AddTimer(Play, NewActor("timer", [] { EXPECT_FALSE(PollDefaultIsLocked()); }), 1, periodic, nullptr);
  }
  PollDefaultLock();
  EXPECT_TRUE(PollDefaultIsLocked());
  PollDefaultUnlock();
  usleep(2000);
  Turn();
  EXPECT_EQ(Fired(), "timer timer");
  EXPECT_EQ(pollDefault.state->owner, 0U);
}

TEST_F(Life, WithALockMakesNoFurtherSystemCallsForIt) {
  Poll_Exit();
  Poll_InitLocked();
  const std::array numbers = {SYS_futex, SYS_poll, SYS_eventfd2, SYS_gettid, SYS_dup};
  const testhost::SystemCalls calls({SYS_futex, SYS_poll, SYS_eventfd2, SYS_gettid, SYS_dup});
  const auto count = [&] {
    size_t sum = 0;
    for (const long number : numbers) {
      sum += calls.Count(static_cast<int>(number));
    }
    return sum;
  };
  Actor *actor = NewActor("actor");
  const auto addAndRemove = [=] {
    Poll_AddTimer(Play, actor, 1000, true, nullptr);
    Poll_RemoveTimer(Play, actor, true);
  };
  addAndRemove();  // the clock makes a lock of its own at its first use
  const size_t before = count();
  addAndRemove();
  EXPECT_EQ(count(), before);
}

// Refusals

class RegistrationsDeathTest : public PollHost {
 protected:
  static void AddPlay(PollClassSet set, unsigned flags, int type, int info) {
    Poll_AddCallback(set, flags, Play, nullptr, type, info, nullptr);
  }
};

constexpr char kNotImplemented[] = "^NOT_IMPLEMENTED lib/pollDefault/pollDefault\\.cc:[0-9]+\n";

TEST_F(RegistrationsDeathTest, OfNoTypePanic) {
  for (const int type : {0, -1}) {
    EXPECT_EXIT(AddPlay(Classes({0}), 0, type, 0), kPanics, kNotImplemented);
    EXPECT_EXIT(Poll_RemoveCallback(Classes({0}), 0, Play, nullptr, type), kPanics, kNotImplemented);
  }
  for (const int type : {4, -2}) {
    EXPECT_EXIT(AddPlay(Classes({0}), 0, type, 0), kPanics, AssertIn("pollDefault"));
    EXPECT_EXIT(Poll_RemoveCallback(Classes({0}), 0, Play, nullptr, type), kPanics, AssertIn("pollDefault"));
  }
}

TEST_F(RegistrationsDeathTest, WithFlagsThatAreNotTheTypesPanic) {
  for (const unsigned flag : {POLL_FLAG_READ, POLL_FLAG_WRITE}) {
    EXPECT_EXIT(AddPlay(Classes({0}), flag, POLL_TYPE_TIMER, 1), kPanics, AssertIn("pollDefault"));
    EXPECT_EXIT(AddPlay(Classes({0}), flag, POLL_TYPE_MAIN_LOOP, 0), kPanics, AssertIn("pollDefault"));
  }
  EXPECT_EXIT(AddPlay(Classes({0}), POLL_FLAG_READ | POLL_FLAG_WRITE, POLL_TYPE_DEVICE, 0), kPanics,
              AssertIn("pollDefault"));
  EXPECT_EXIT(pollDefaultImpl.add(Classes({0}), 0, Play, nullptr, POLL_TYPE_DEVICE, 0, nullptr), kPanics,
              AssertIn("pollDefault"));
}

TEST_F(RegistrationsDeathTest, OutsideTheMainClassPanic) {
  EXPECT_EXIT(AddPlay(Classes({1}), 0, POLL_TYPE_DEVICE, 0), kPanics, AssertIn("pollDefault"));
  EXPECT_EXIT(AddPlay(Classes({}), 0, POLL_TYPE_MAIN_LOOP, 0), kPanics, AssertIn("pollDefault"));
}

TEST_F(RegistrationsDeathTest, WithAnInfoForTheMainLoopPanic) {
  EXPECT_EXIT(AddPlay(Classes({0}), 0, POLL_TYPE_MAIN_LOOP, 1), kPanics, AssertIn("pollDefault"));
  EXPECT_EXIT(AddPlay(Classes({0}), 0, POLL_TYPE_MAIN_LOOP, -1), kPanics, AssertIn("pollDefault"));
}

TEST_F(RegistrationsDeathTest, WithoutFunctionOrWithALockPanicBehindTheFacadeToo) {
  EXPECT_EXIT(pollDefaultImpl.add(Classes({0}), 0, nullptr, nullptr, POLL_TYPE_TIMER, 1, nullptr), kPanics,
              AssertIn("pollDefault"));
  EXPECT_EXIT(pollDefaultImpl.add(Classes({0}), 0, Play, nullptr, POLL_TYPE_TIMER, 1, this), kPanics,
              AssertIn("pollDefault"));
}

TEST_F(RegistrationsDeathTest, WithoutAStatePanic) {
  Poll_Exit();
  void *data = nullptr;
  EXPECT_EXIT(pollDefaultImpl.add(Classes({0}), 0, Play, nullptr, POLL_TYPE_TIMER, 1, nullptr), kPanics,
              BugIn("pollDefault"));
  EXPECT_EXIT(pollDefaultImpl.remove(Classes({0}), 0, Play, nullptr, POLL_TYPE_TIMER), kPanics,
              BugIn("pollDefault"));
  EXPECT_EXIT(pollDefaultImpl.removeOne(Classes({0}), 0, Play, POLL_TYPE_TIMER, &data), kPanics,
              BugIn("pollDefault"));
  EXPECT_EXIT(pollDefaultImpl.loop(false, nullptr, 0, 0), kPanics, BugIn("pollDefaultLoop"));
  EXPECT_EXIT(pollDefaultImpl.exit(), kPanics, BugIn("pollDefault"));
}

TEST_F(RegistrationsDeathTest, OfDescriptorsThatAreNotOpenPanic) {
  const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(fd);
  for (const int closed : {fd, -1, 1 << 30}) {
    EXPECT_EXIT(Poll_AddDevice(Play, nullptr, closed, true), kPanics, AssertIn("pollDefaultDevice"));
  }
}

TEST_F(RegistrationsDeathTest, ASecondOfOneKindForADescriptorPanics) {
  const auto ends = Pipe();
  Actor *actor = NewActor("actor");
  Add(Classes({0}), kRead, actor, ends[0]);
  Add(Classes({0}), kWrite, actor, ends[1]);
  EXPECT_EXIT(Add(Classes({0}), kRead, NewActor("other"), ends[0]), kPanics, AssertIn("pollDefaultDevice"));
  EXPECT_EXIT(Add(Classes({0, 1}), POLL_FLAG_WRITE, NewActor("other"), ends[1]), kPanics,
              AssertIn("pollDefaultDevice"));
}

TEST_F(RegistrationsDeathTest, The513thDescriptorOfAClassPanicsWithAWarning) {
  rlimit limit = {2048, 2048};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  Actor *actor = NewActor("actor");
  const int first = Pipe()[0];
  for (int i = 0; i < kPollMaxDevices; i++) {
    Add(i % 2 == 0 ? Classes({0, 1}) : Classes({0, 1, 3}), kRead, actor, fcntl(first, F_DUPFD_CLOEXEC, 0));
  }
  EXPECT_EQ(Table(0).count, 512);
  EXPECT_EQ(Table(1).count, 512);
  EXPECT_EQ(Table(3).count, 256);
  const int fd = fcntl(first, F_DUPFD_CLOEXEC, 0);
  EXPECT_EXIT(Add(Classes({0}), kRead, actor, fd), kPanics,
              "POLL: reached limit of 512 events in class 0\n(.|\n)*ASSERT "
              "lib/pollDefault/pollDefaultDevice\\.cc:[0-9]+\n");
  EXPECT_EQ(CountLogged("POLL: reached limit of 512 events in class 0"), 1U);
  // One that is there already may get its other half.
  Add(Classes({0}), kWrite, actor, Table(0).devices[511].fd);
  EXPECT_EQ(Table(0).devices[511].events, 5);
}

TEST_F(RegistrationsDeathTest, TheLimitIsEachClassesOwn) {
  rlimit limit = {2048, 2048};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  pollDefault.state->classes[3].count = kPollMaxDevices;
  for (PollDevice &device : pollDefault.state->classes[3].devices) {
    device.fd = -1;
  }
  EXPECT_EXIT(Add(Classes({0, 3}), kRead, nullptr, 0), kPanics,
              "POLL: reached limit of 512 events in class 3\n(.|\n)*ASSERT ");
  pollDefault.state->classes[3].count = 0;
}

TEST_F(RegistrationsDeathTest, WithoutMemoryPanic) {
  EXPECT_EXIT(
      {
        const testhost::AllocationFault fault(0);
        AddPlay(Classes({0}), 0, POLL_TYPE_MAIN_LOOP, 0);
      },
      kPanics, "^MEM_ALLOC lib/pollDefault/pollDefault\\.cc:[0-9]+\n");
}

using LifeDeathTest = PollHost;

TEST_F(LifeDeathTest, ASecondStartPanics) {
  EXPECT_EXIT(Poll_InitDefault(), kPanics, "^ASSERT lib/poll/poll\\.cc:[0-9]+\n");
  EXPECT_EXIT(Poll_InitLocked(), kPanics, "^ASSERT lib/poll/poll\\.cc:[0-9]+\n");
  EXPECT_EXIT(pollDefaultImpl.init(), kPanics, AssertIn("pollDefault"));
}

TEST_F(LifeDeathTest, AStartWithoutMemoryPanics) {
  Poll_Exit();
  EXPECT_EXIT(
      {
        const testhost::AllocationFault fault(0);
        Poll_InitDefault();
      },
      kPanics, "^MEM_ALLOC lib/pollDefault/pollDefault\\.cc:[0-9]+\n");
}

TEST_F(LifeDeathTest, AStartWithoutADescriptorForItsLockPanics) {
  Poll_Exit();
  testhost::FailSystemCall(SYS_eventfd2, EPERM);
  EXPECT_EXIT(Poll_InitLocked(), kPanics, AssertIn("pollDefault"));
}

TEST_F(LifeDeathTest, AnExitWithTheLockTakenPanics) {
  Poll_Exit();
  Poll_InitLocked();
  EXPECT_EXIT(
      {
        PollDefaultLock();
        Poll_Exit();
      },
      kPanics, AssertIn("pollDefault"));
}

TEST_F(LifeDeathTest, AnExitChecksTheCountsOfItsRecords) {
  Actor *actor = NewActor("actor");
  Poll_AddTimer(Play, actor, 1, true, nullptr);
  PollCallback *record = pollDefault.state->queues[POLL_TYPE_TIMER];
  record->count = 0;
  EXPECT_EXIT(Poll_Exit(), kPanics, AssertIn("pollDefault"));
  record->count = 1;
  Poll_RemoveTimer(Play, actor, true);
  record->count = 1;
  EXPECT_EXIT(Poll_Exit(), kPanics, AssertIn("pollDefault"));
  EXPECT_EXIT(Poll_AddTimer(Play, actor, 1, true, nullptr), kPanics, AssertIn("pollDefault"));
  record->count = 0;
  PollCallback stranger{};
  stranger.count = 1;  // as it should be, but not in this queue
  pollDefault.state->queues[0] = &stranger;
  EXPECT_EXIT(Poll_Exit(), kPanics, AssertIn("pollDefault"));
  pollDefault.state->queues[0] = nullptr;
}

TEST_F(LifeDeathTest, WorkWithoutTheLockPanics) {
  Poll_Exit();
  Poll_InitLocked();
  const auto ends = Pipe();
  Poll_AddDevice(Play, nullptr, ends[0], true);
  Poll_AddTimer(Play, nullptr, 1000, true, nullptr);
  PollCallback *device = FirstDevice();
  PollCallback *timer = pollDefault.state->queues[POLL_TYPE_TIMER];
  EXPECT_EXIT(PollDefaultUnlock(), kPanics, AssertIn("pollDefault"));
  pollDefault.state->owner = 1;
  EXPECT_EXIT(PollDefaultLock(), kPanics, AssertIn("pollDefault"));
  pollDefault.state->owner = 0;
  EXPECT_EXIT(PollDefaultHold(timer), kPanics, AssertIn("pollDefault"));
  EXPECT_EXIT(PollDefaultDrop(timer), kPanics, AssertIn("pollDefault"));
  EXPECT_EXIT(PollDefaultDequeue(timer, POLL_TYPE_TIMER), kPanics, AssertIn("pollDefault"));
  EXPECT_EXIT(PollDefaultUnlinkTimer(timer), kPanics, AssertIn("pollDefault"));
  PollCallback *queue = nullptr;
  EXPECT_EXIT(PollDefaultLink(timer, &queue), kPanics, AssertIn("pollDefault"));
  PollCallback other = *device;
  other.info = ends[1];
  EXPECT_EXIT(PollDefaultAddDevice(&other), kPanics, AssertIn("pollDefaultDevice"));
  EXPECT_EXIT(PollDefaultRemoveDevice(device), kPanics, AssertIn("pollDefaultDevice"));
}

// The self-check

class SelfCheckDeathTest : public PollHost {
 protected:
  void SetUp() override {
    PollHost::SetUp();
    const auto ends = Pipe();
    Add(Classes({0, 2}), kRead, NewActor("reader"), ends[0]);
    reader_ = FirstDevice();
    Add(Classes({0}), kWrite, NewActor("writer"), ends[1]);
    writer_ = FirstDevice();
    PollDefaultCheck();
  }

  static PollDevice &Entry(size_t eventClass, size_t place) {
    return pollDefault.state->classes[eventClass].devices[place];
  }

  // Changes the tables as if a record were for these classes.
  static void WithClasses(PollCallback *record, std::initializer_list<unsigned> classes,
                          void (*change)(PollCallback *)) {
    const PollClassSet own = std::exchange(record->classSet, Classes(classes));
    change(record);
    record->classSet = own;
  }

  static void ExpectCaught() { EXPECT_EXIT(PollDefaultCheck(), kPanics, AssertIn("pollDefaultDevice")); }

  PollCallback *reader_;
  PollCallback *writer_;
};

TEST_F(SelfCheckDeathTest, CatchesARecordWithoutReferences) {
  reader_->count = 0;
  ExpectCaught();
  reader_->count = 1;
}

TEST_F(SelfCheckDeathTest, CatchesARecordThatIsNotOnTheQueue) {
  // Nor in the main class's table, so that nothing else tells.
  WithClasses(reader_, {0}, PollDefaultRemoveDevice);
  reader_->classSet = Classes({2});
  PollDefaultCheck();
  reader_->onQueue = false;
  ExpectCaught();
  reader_->onQueue = true;
}

TEST_F(SelfCheckDeathTest, CatchesARecordThatIsMissingInAClass) {
  Entry(2, 0).read = nullptr;
  ExpectCaught();
  Entry(2, 0).read = reader_;
  WithClasses(reader_, {2}, PollDefaultRemoveDevice);
  ExpectCaught();
}

TEST_F(SelfCheckDeathTest, CatchesAWriterThatIsMissingInAClass) {
  Entry(0, 1).write = nullptr;
  ExpectCaught();
  Entry(0, 1).write = writer_;
}

TEST_F(SelfCheckDeathTest, CatchesARecordInAClassThatIsNotItsOwn) {
  WithClasses(reader_, {3}, PollDefaultAddDevice);
  ExpectCaught();
  WithClasses(reader_, {3}, PollDefaultRemoveDevice);
  WithClasses(writer_, {3}, PollDefaultAddDevice);
  ExpectCaught();
}

TEST_F(SelfCheckDeathTest, CatchesARecordInTheOtherHalf) {
  Entry(2, 0).write = reader_;
  ExpectCaught();
  Entry(2, 0).write = nullptr;
}

TEST_F(SelfCheckDeathTest, CatchesChangedFlags) {
  reader_->flags = kWrite;
  ExpectCaught();
  reader_->flags = POLL_FLAG_PERIODIC;
  ExpectCaught();
  reader_->flags = kRead | POLL_FLAG_WRITE;
  ExpectCaught();
  reader_->flags = kRead;
}

TEST_F(SelfCheckDeathTest, CatchesAChangedDescriptor) {
  const int fd = reader_->info;
  reader_->info = writer_->info;
  ExpectCaught();
  reader_->info = fd;
  Entry(2, 0).fd = 1000;
  ExpectCaught();
}

// What stands in the main class's table and not in the queue.
TEST_F(SelfCheckDeathTest, CatchesStrangersInTheMainClass) {
  PollCallback stranger{};
  stranger.onQueue = true;
  stranger.flags = kRead;
  stranger.info = writer_->info;
  Entry(0, 1).read = &stranger;
  PollDefaultCheck();
  stranger.onQueue = false;
  ExpectCaught();
  stranger.onQueue = true;
  stranger.flags = POLL_FLAG_PERIODIC;
  ExpectCaught();
  stranger.flags = kRead;
  stranger.info++;
  ExpectCaught();
  Entry(0, 1).read = nullptr;
  stranger.flags = kWrite;
  stranger.info = reader_->info;
  Entry(0, 0).write = &stranger;
  PollDefaultCheck();
  stranger.flags = kRead;
  ExpectCaught();
  Entry(0, 0).write = nullptr;
}

TEST_F(SelfCheckDeathTest, CatchesMoreThan512Devices) {
  rlimit limit = {2048, 2048};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  for (int i = 2; i < kPollMaxDevices; i++) {
    Add(Classes({0}), kRead, NewActor("more"), fcntl(reader_->info, F_DUPFD_CLOEXEC, 0));
  }
  PollDefaultCheck();
  pollDefault.lockEvents = 0;
  Add(Classes({0}), kWrite, NewActor("one too many"), reader_->info);
  ExpectCaught();
}

TEST_F(SelfCheckDeathTest, RunsAtEach512thTimeThatTheLockIsTakenOrReleased) {
  reader_->count = 0;
  for (const unsigned taken : {511U, 1023U, ~0U}) {
    pollDefault.lockEvents = taken;
    EXPECT_EXIT(PollDefaultLock(), kPanics, AssertIn("pollDefaultDevice"));
    EXPECT_EXIT(PollDefaultUnlock(), kPanics, AssertIn("pollDefaultDevice"));
  }
  pollDefault.lockEvents = 0;
  for (int i = 0; i < 255; i++) {
    PollDefaultLock();
    PollDefaultUnlock();
  }
  PollDefaultLock();
  EXPECT_EQ(pollDefault.lockEvents, 511U);
  EXPECT_EXIT(PollDefaultUnlock(), kPanics, AssertIn("pollDefaultDevice"));
  reader_->count = 1;
}

// What a removal finds in the tables

using RemovalDeathTest = SelfCheckDeathTest;

TEST_F(RemovalDeathTest, PanicsWithoutAnEntry) {
  Entry(2, 0).fd = -1;
  EXPECT_EXIT(PollDefaultDequeue(reader_, POLL_TYPE_DEVICE), kPanics, AssertIn("pollDefaultDevice"));
}

TEST_F(RemovalDeathTest, PanicsWhenTheEntryIsAnothers) {
  Entry(2, 0).read = writer_;
  EXPECT_EXIT(PollDefaultDequeue(reader_, POLL_TYPE_DEVICE), kPanics, AssertIn("pollDefaultDevice"));
}

TEST_F(RemovalDeathTest, PanicsWhenTheMaskIsEmpty) {
  Entry(0, 0).events = 0;
  EXPECT_EXIT(PollDefaultDequeue(reader_, POLL_TYPE_DEVICE), kPanics, AssertIn("pollDefaultDevice"));
}

TEST_F(RemovalDeathTest, PanicsWhenTheRecordIsNotOnTheQueue) {
  reader_->onQueue = false;
  EXPECT_EXIT(PollDefaultDequeue(reader_, POLL_TYPE_DEVICE), kPanics, AssertIn("pollDefault"));
  reader_->onQueue = true;
}

TEST_F(RemovalDeathTest, PanicsWhenTheLastReferenceGoesFromTheQueue) {
  EXPECT_EXIT(PollDefaultDrop(reader_), kPanics, AssertIn("pollDefault"));
  reader_->count = 0;
  EXPECT_EXIT(PollDefaultHold(reader_), kPanics, AssertIn("pollDefault"));
  reader_->onQueue = false;  // so that nothing else tells
  EXPECT_EXIT(PollDefaultDrop(reader_), kPanics, AssertIn("pollDefault"));
  reader_->onQueue = true;
  reader_->count = 1;
}

}  // namespace
