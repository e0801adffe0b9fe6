#include <sys/resource.h>

#include <random>
#include <sstream>

#include "allocations.h"
#include "pollDefaultTestInt.h"
#include "str.h"
#include "systemCalls.h"

namespace {

using namespace polltest;

constexpr unsigned kRead = POLL_FLAG_PERIODIC | POLL_FLAG_READ;
constexpr unsigned kWrite = POLL_FLAG_PERIODIC | POLL_FLAG_WRITE;

class Loop : public PollHost {
 protected:
  void AddTurn(const std::string &name, std::function<void()> act = nullptr, PollClassSet set = {{1, 0}},
               unsigned flags = POLL_FLAG_PERIODIC) {
    Poll_AddCallback(set, flags, Play, NewActor(name, std::move(act)), POLL_TYPE_MAIN_LOOP, 0, nullptr);
  }

  Actor *AddDevice(const std::string &name, int fd, std::function<void()> act = nullptr,
                   unsigned flags = kRead, PollClassSet set = {{1, 0}}) {
    Actor *actor = NewActor(name, std::move(act));
    Poll_AddCallback(set, flags, Play, actor, POLL_TYPE_DEVICE, fd, nullptr);
    return actor;
  }

  static bool RemoveDevice(Actor *actor, unsigned flags = kRead) {
    return Poll_RemoveCallback({{1, 0}}, flags, Play, actor, POLL_TYPE_DEVICE);
  }

  // What each wait answers from now on.
  static void Answer(int ready, short events) {
    world.wait = [=](pollfd *fds, nfds_t count, int) {
      for (nfds_t i = 0; i < count; i++) {
        fds[i].revents = events;
      }
      return ready;
    };
  }

  bool quit_ = false;
};

TEST_F(Loop, RunsMainLoopCallbacksFromTheLastAddedOn) {
  AddTurn("a");
  AddTurn("b");
  AddTurn("once", nullptr, Classes({0}), 0);
  Turn();
  EXPECT_EQ(Fired(), "once b a");
  Turn();
  EXPECT_EQ(Fired(), "b a");
}

TEST_F(Loop, RunsOnlyWhatIsOfItsClass) {
  for (unsigned eventClass = 1; eventClass < 5; eventClass++) {
    AddTurn("turn" + std::to_string(eventClass), nullptr, Classes({0, eventClass}));
    AddDevice("device" + std::to_string(eventClass), ReadyPipe(), nullptr, kRead, Classes({0, eventClass}));
  }
  for (unsigned eventClass = 1; eventClass < 5; eventClass++) {
    Turn(eventClass);
    EXPECT_EQ(Fired(), "turn" + std::to_string(eventClass) + " device" + std::to_string(eventClass));
  }
  Turn(0);
  EXPECT_EQ(Fired(), "turn4 turn3 turn2 turn1 device1 device2 device3 device4");
}

TEST_F(Loop, MainLoopCallbacksAddedInATurnWaitForTheNext) {
  AddTurn("adds", [this] { AddTurn("added", nullptr, Classes({0}), 0); });
  Turn();
  EXPECT_EQ(Fired(), "adds");
  Turn();
  EXPECT_EQ(Fired(), "added adds");
}

TEST_F(Loop, ARemovedMainLoopCallbackDoesNotRunInItsTurn) {
  Actor *second = NewActor("second");
  Poll_AddCallback({{1, 0}}, 1, Play, second, POLL_TYPE_MAIN_LOOP, 0, nullptr);
  AddTurn("first", [=] { EXPECT_TRUE(Poll_RemoveCallback({{1, 0}}, 1, Play, second, POLL_TYPE_MAIN_LOOP)); });
  Turn();
  EXPECT_EQ(Fired(), "first");
  EXPECT_EQ(CountFree(), 1);
}

TEST_F(Loop, FiresReadersAndWritersThatAreReady) {
  const auto quiet = Pipe();
  AddDevice("quiet", quiet[0]);
  AddDevice("ready", ReadyPipe());
  AddDevice("writer", quiet[1], nullptr, kWrite);
  Turn(0, 1000000);
  EXPECT_EQ(Fired(), "ready writer");
}

TEST_F(Loop, WaitsForADescriptorThatIsWritten) {
  const auto ends = Pipe();
  AddDevice("reader", ends[0], [=] {
    char byte = 0;
    EXPECT_EQ(read(ends[0], &byte, 1), 1);
  });
  Turn(0, 1000);
  EXPECT_EQ(Fired(), "");
  EXPECT_EQ(write(ends[1], "x", 1), 1);
  Turn(0, 1000);
  EXPECT_EQ(Fired(), "reader");
  Turn(0, 1000);
  EXPECT_EQ(Fired(), "");
}

TEST_F(Loop, DevicesWithoutPeriodFireOnce) {
  const int fd = ReadyPipe();
  AddDevice(
      "once", fd, [=] { EXPECT_EQ(PollDefaultFindDevice(0, fd), nullptr); }, POLL_FLAG_READ);
  Turn();
  EXPECT_EQ(Fired(), "once");
  EXPECT_EQ(CountFree(), 1);
  Turn();
  EXPECT_EQ(Fired(), "");
}

TEST_F(Loop, ADeviceRemovedByAnEarlierOneOfTheTurnIsSkipped) {
  Actor *second = nullptr;
  AddDevice("first", ReadyPipe(), [&] { EXPECT_TRUE(RemoveDevice(second)); });
  second = AddDevice("second", ReadyPipe());
  AddDevice("third", ReadyPipe());
  Turn();
  EXPECT_EQ(Fired(), "first third");
  EXPECT_EQ(CountFree(), 1);
}

TEST_F(Loop, AWriterRemovedByTheReaderOfItsDescriptorIsSkipped) {
  const int fd = open("/dev/null", O_RDWR | O_CLOEXEC);
  Actor *writer = nullptr;
  AddDevice("reader", fd, [&] { EXPECT_TRUE(RemoveDevice(writer, kWrite)); });
  writer = AddDevice("writer", fd, nullptr, kWrite);
  Turn();
  EXPECT_EQ(Fired(), "reader");
  close(fd);
}

TEST_F(Loop, ARemovedAndAddedDeviceIsANewOne) {
  const int fd = ReadyPipe();
  Actor *second = nullptr;
  AddDevice("first", ReadyPipe(), [&] {
    EXPECT_TRUE(RemoveDevice(second));
    Poll_AddCallback({{1, 0}}, kRead, Play, second, POLL_TYPE_DEVICE, fd, nullptr);
  });
  second = AddDevice("second", fd);
  Turn();
  EXPECT_EQ(Fired(), "first");
  EXPECT_EQ(CountQueue(POLL_TYPE_DEVICE), 2);
}

// Which of a descriptor's callbacks each event makes fire.
TEST_F(Loop, ErrorsAndHangUpsFireReadersAndWriters) {
  const int fd = ReadyPipe();
  AddDevice("reader", fd);
  AddDevice("writer", fd, nullptr, kWrite);
  const std::pair<short, const char *> expected[] = {{POLLIN, "reader"},
                                                     {POLLOUT, "writer"},
                                                     {POLLERR, "reader writer"},
                                                     {POLLHUP, "reader writer"},
                                                     {POLLIN | POLLOUT, "reader writer"},
                                                     {POLLPRI, ""},
                                                     {POLLNVAL, ""},
                                                     {POLLPRI | POLLOUT, "writer"}};
  for (const auto &[events, names] : expected) {
    Answer(1, events);
    Turn();
    EXPECT_EQ(Fired(), names) << events;
  }
}

TEST_F(Loop, ErrorsAndHangUpsFireWhatThereIs) {
  AddDevice("reader", Pipe()[0]);
  AddDevice("writer", Pipe()[1], nullptr, kWrite);
  for (const short events : {short{POLLERR}, short{POLLHUP}}) {
    Answer(2, events);
    Turn();
    EXPECT_EQ(Fired(), "reader writer") << events;
  }
}

TEST_F(Loop, ARecordInBothHalvesFiresOnce) {
  AddDevice("both", Pipe()[0]);
  PollDevice &device = pollDefault.state->classes[0].devices[0];
  device.write = device.read;
  Answer(1, POLLHUP);
  Turn();
  EXPECT_EQ(Fired(), "both");
  device.write = nullptr;
}

TEST_F(Loop, OneOfManyDescriptorsIsFound) {
  for (int i = 0; i < 20; i++) {
    AddDevice("device" + std::to_string(i), Pipe()[0]);
  }
  for (nfds_t ready = 0; ready < 20; ready++) {
    world.wait = [=](pollfd *fds, nfds_t count, int) {
      EXPECT_EQ(count, 20U);
      fds[ready].revents = POLLIN;
      return 1;
    };
    Turn();
    EXPECT_EQ(Fired(), "device" + std::to_string(ready));
  }
}

TEST_F(Loop, TellsTheSystemWhatItWaitsFor) {
  const auto ends = Pipe();
  AddDevice("reader", ends[0]);
  AddDevice("both", ends[1]);
  AddDevice("both", ends[1], nullptr, kWrite);
  std::ostringstream asked;
  const Waits answers([&](const pollfd *fds, nfds_t count, int timeout) {
    for (nfds_t i = 0; i < count; i++) {
      asked << fds[i].fd - ends[0] << ":" << fds[i].events << ":" << fds[i].revents << " ";
    }
    asked << timeout;
    return 0;
  });
  Turn(0, 7000);
  EXPECT_EQ(asked.str(), "0:1:0 1:5:0 7");
}

TEST_F(Loop, RunsWithWaitsOfASecond) {
  std::vector<int> timeouts;
  const Waits answers([&](const pollfd *, nfds_t, int timeout) {
    timeouts.push_back(timeout);
    quit_ = timeouts.size() == 3;
    return 0;
  });
  Poll_Run(true, &quit_, 0);
  EXPECT_EQ(timeouts, (std::vector{1000, 1000, 1000}));
  quit_ = false;
  Poll_Run(false, &quit_, 0);
  EXPECT_EQ(timeouts.size(), 4U);
}

TEST_F(Loop, WithoutWaitAndDescriptorsMakesNoSystemCallForThem) {
  const testhost::SystemCalls calls({SYS_poll});
  Turn(0, 0);
  Turn(3, 0);
  EXPECT_EQ(calls.Count(SYS_poll), 0U);
  AddDevice("reader", Pipe()[0]);
  Turn(3, 0);
  EXPECT_EQ(calls.Count(SYS_poll), 0U);
  Turn(0, 0);
  EXPECT_EQ(calls.Count(SYS_poll), 1U);
  Turn(3, 1);
  EXPECT_EQ(calls.Count(SYS_poll), 2U);
}

// What is ready no longer tells whose it is when the table changed while the loop waited.
TEST_F(Loop, DropsWhatArrivesWhenTheTableHasChanged) {
  AddDevice("reader", ReadyPipe());
  const int fd = ReadyPipe();
  const Waits answers([&](pollfd *fds, nfds_t count, int) {
    AddDevice("added", fd);
    return static_cast<int>(syscall(SYS_poll, fds, count, 0));
  });
  Turn();
  EXPECT_EQ(Fired(), "");
}

TEST_F(Loop, DropsWhatArrivesWhenTheTableHasShrunk) {
  AddDevice("reader", ReadyPipe());
  Actor *added = NewActor("gone");
  Poll_AddDevice(Play, added, Pipe()[0], true);
  const Waits answers([&](pollfd *fds, nfds_t count, int) {
    Poll_RemoveDevice(Play, added, true);
    return static_cast<int>(syscall(SYS_poll, fds, count, 0));
  });
  Turn();
  EXPECT_EQ(Fired(), "");
}

TEST_F(Loop, DropsABadDescriptorToo) {
  AddDevice("reader", ReadyPipe());
  const int fd = ReadyPipe();
  const Waits answers([&](const pollfd *, nfds_t, int) {
    AddDevice("added", fd);
    errno = EBADF;
    return -1;
  });
  Turn();
  EXPECT_EQ(Fired(), "");
}

TEST_F(Loop, IgnoresOtherFailuresOfTheWait) {
  AddDevice("reader", ReadyPipe());
  testhost::SystemCalls calls({SYS_poll});
  for (const int error : {EINTR, EINVAL, ENOMEM, EFAULT}) {
    calls.Fail(SYS_poll, error, {.count = 1});
    Turn();
    EXPECT_EQ(Fired(), "");
    Turn();
    EXPECT_EQ(Fired(), "reader");
  }
}

TEST_F(Loop, GoesOnWhenADescriptorIsClosedUnderIt) {
  const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
  Actor *closed = AddDevice("closed", fd);
  AddDevice("reader", ReadyPipe());
  close(fd);
  Turn();
  EXPECT_EQ(Fired(), "reader");
  EXPECT_TRUE(RemoveDevice(closed));
  Turn();
  EXPECT_EQ(Fired(), "reader");
}

TEST_F(Loop, IsNotStartedWhenItIsAskedToReturn) {
  quit_ = true;
  AddTurn("turn");
  Poll_Run(true, &quit_, 0);
  EXPECT_EQ(Fired(), "");
  EXPECT_EQ(CountLogged("Poll: Asked to return before even starting!"), 1U);
}

TEST_F(Loop, ReturnsBehindTheStepThatAsksForIt) {
  const int fd = ReadyPipe();
  const auto quit = [this] { quit_ = true; };
  AddTurn("turn");
  Poll_AddTimer(Play, NewActor("timer"), 0, true, nullptr);
  pollDefault.state->queues[POLL_TYPE_TIMER]->info = 1;
  AddDevice("reader", fd);
  const auto run = [&](int type, const std::function<void()> &act) {
    auto *actor = static_cast<Actor *>(pollDefault.state->queues[type]->clientData);
    actor->act = act;
    quit_ = false;
    Poll_RunTimed(true, &quit_, 0, 1000);
    actor->act = nullptr;
    return Fired();
  };
  EXPECT_EQ(run(POLL_TYPE_MAIN_LOOP, quit), "turn");
  EXPECT_EQ(run(POLL_TYPE_TIMER, quit), "turn timer");
  EXPECT_EQ(run(POLL_TYPE_DEVICE, quit), "turn timer reader");
  const Waits answers([&](pollfd *fds, nfds_t count, int) {
    quit();
    return static_cast<int>(syscall(SYS_poll, fds, count, 0));
  });
  quit_ = false;
  Poll_RunTimed(true, &quit_, 0, 1000);
  EXPECT_EQ(Fired(), "turn timer");
}

TEST_F(Loop, DoesNotWaitWhenACallbackHasAskedItToReturn) {
  TakeTime();
  const auto quit = [this] { quit_ = true; };
  AddTurn("turn", quit, Classes({0}), 0);
  Poll_RunTimed(true, &quit_, 0, 1000);
  EXPECT_EQ(Fired(), "turn");
  quit_ = false;
  Poll_AddTimer(Play, NewActor("timer", quit), 0, false, nullptr);
  Poll_RunTimed(true, &quit_, 0, 1000);
  EXPECT_EQ(Fired(), "timer");
  EXPECT_EQ(Waited(), std::vector<int>{});
}

TEST_F(Loop, GoesOnUntilItIsAskedToReturn) {
  int turns = 0;
  AddTurn("turn", [&] { quit_ = ++turns == 1000; });
  Poll_RunTimed(true, &quit_, 0, 0);
  EXPECT_EQ(turns, 1000);
}

TEST_F(Loop, RunsInsideACallback) {
  AddDevice("inner", ReadyPipe());
  AddTurn(
      "outer", [] { Turn(0, 0); }, Classes({0}), 0);
  Turn();
  EXPECT_EQ(Fired(), "outer inner inner");
}

TEST_F(Loop, TakesItsTurnsWithoutAnAllocation) {
  int count = 0;
  const PollFn add = [](void *data) { ++*static_cast<int *>(data); };
  Poll_AddDevice(add, &count, ReadyPipe(), true);
  Poll_AddDevice(add, &count, ReadyPipe(), true);
  Poll_AddCallback({{1, 0}}, 1, add, &count, POLL_TYPE_MAIN_LOOP, 0, nullptr);
  EXPECT_EQ(testhost::CountAllocations([] {
              for (int i = 0; i < 1000; i++) {
                Turn();
              }
            }),
            0U);
  EXPECT_EQ(count, 3000);
}

using LoopDeathTest = Loop;

TEST_F(LoopDeathTest, ANegativeTimeoutPanics) {
  EXPECT_EXIT(Turn(0, -1), kPanics, AssertIn("pollDefaultLoop"));
}

TEST_F(LoopDeathTest, AClassAbove4Panics) {
  EXPECT_EXIT(Turn(5, 0), kPanics, AssertIn("pollDefaultLoop"));
  EXPECT_EXIT(Turn(128, 0), kPanics, AssertIn("pollDefaultLoop"));
}

TEST_F(LoopDeathTest, MoreThan512MainLoopCallbacksPanic) {
  for (int i = 0; i < 512; i++) {
    AddTurn("x");
  }
  Turn();
  EXPECT_EQ(Fired().size(), 1023U);
  AddTurn("x");
  EXPECT_EXIT(Turn(), kPanics, BugIn("pollDefaultLoop"));
}

TEST_F(LoopDeathTest, MoreThan512ReadyCallbacksPanic) {
  rlimit limit = {2048, 2048};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  const int first = Pipe()[0];
  for (int i = 0; i < 256; i++) {
    const int fd = fcntl(first, F_DUPFD_CLOEXEC, 0);
    AddDevice("x", fd);
    AddDevice("x", fd, nullptr, kWrite);
  }
  Answer(256, POLLHUP);
  pollDefault.lockEvents = 0;
  Turn();
  EXPECT_EQ(Fired().size(), 1023U);
  pollDefault.lockEvents = 0;
  AddDevice("x", first);
  Answer(257, POLLHUP);
  EXPECT_EXIT(Turn(), kPanics, BugIn("pollDefaultLoop"));
}

TEST_F(LoopDeathTest, ACountThatDoesNotComeOutPanics) {
  AddDevice("a", ReadyPipe());
  AddDevice("b", ReadyPipe());
  Answer(3, POLLIN);
  EXPECT_EXIT(Turn(), kPanics, AssertIn("pollDefaultLoop"));
  Answer(1, 0);
  EXPECT_EXIT(Turn(), kPanics, AssertIn("pollDefaultLoop"));
}

TEST_F(LoopDeathTest, ARecordWithoutReferencesPanicsWhenItIsFired) {
  AddTurn("a");
  PollCallback *record = pollDefault.state->queues[POLL_TYPE_MAIN_LOOP];
  record->count = 0;
  EXPECT_EXIT(Turn(), kPanics, AssertIn("pollDefault"));
  record->count = 1;
}

// What ends Poll under a loop that goes on.
TEST_F(LoopDeathTest, ACallbackThatEndsPollAndReturnsPanics) {
  AddTurn("ends", [] { Poll_Exit(); });
  EXPECT_EXIT(Turn(), kPanics, BugIn("pollDefaultLoop"));
}

TEST_F(LoopDeathTest, ACallbackThatStartsPollAnewAndReturnsPanics) {
  Poll_AddTimer(Play,
                NewActor("restarts",
                         [] {
                           Poll_Exit();
                           Poll_InitDefault();
                         }),
                0, true, nullptr);
  pollDefault.state->queues[POLL_TYPE_TIMER]->info = 1;
  EXPECT_EXIT(Turn(), kPanics, BugIn("pollDefaultLoop"));
}

TEST_F(LoopDeathTest, AnEndOfPollInAWaitPanics) {
  const Waits answers([](const pollfd *, nfds_t, int) {
    Poll_Exit();
    return 0;
  });
  EXPECT_EXIT(Turn(0, 1000), kPanics, BugIn("pollDefaultLoop"));
}

TEST_F(LoopDeathTest, ACallbackThatDoesNotReturnMayEndPoll) {
  Poll_Exit();
  Poll_InitLocked();
  AddDevice("quits", ReadyPipe(), [] {
    Poll_Exit();
    _exit(pollDefault.state == nullptr ? 3 : 4);
  });
  EXPECT_EXIT(Turn(), testing::ExitedWithCode(3), "");
}

std::string Line(const Actor *actor, unsigned flags, int fd, const char *state) {
  char text[200];
  Str_Sprintf(text, sizeof text, "POLL func %p(%p) flags %#x count 1 onQueue 1 handle %d %s",
              reinterpret_cast<void *>(Play), static_cast<const void *>(actor), flags, fd, state);
  return text;
}

TEST_F(LoopDeathTest, ABadDescriptorPanicsAndTellsAllOfThem) {
  const auto ends = Pipe();
  const int closed = open("/dev/null", O_RDWR | O_CLOEXEC);
  const Actor *reader = AddDevice("reader", ends[0], nullptr, kRead, Classes({0, 2}));
  const Actor *writer = AddDevice("writer", ends[1], nullptr, kWrite, Classes({0, 2}));
  const Actor *bad = AddDevice("bad", closed, nullptr, kRead, Classes({0, 2}));
  const Actor *badToo = AddDevice("bad", closed, nullptr, kWrite, Classes({0, 2}));
  const int other = Pipe()[0];
  const Actor *outside = AddDevice("other class", other);
  close(closed);
  testhost::FailSystemCall(SYS_poll, EBADF);
  EXPECT_EXIT(Turn(2), kPanics, "^NOT_REACHED lib/pollDefault/pollDefaultLoop\\.cc:[0-9]+ bugNr=[0-9]+\n");
  const std::string log = testhost::ReadFile(Log_GetFileName());
  std::string dump;
  std::istringstream lines(log);
  for (std::string line; std::getline(lines, line);) {
    const size_t at = line.find("| POLL ");
    if (at != std::string::npos) {
      dump += line.substr(at + 2) + "\n";
    }
  }
  EXPECT_EQ(dump, "POLL fds " + std::to_string(ends[0]) + ": r-\nPOLL fds " + std::to_string(ends[1]) +
                      ": -w\nPOLL fds " + std::to_string(closed) + ": rw\nPOLL class 2\n" +
                      Line(outside, 5, other, "good") + "\n" + Line(badToo, 9, closed, "bad") + "\n" +
                      Line(bad, 5, closed, "bad") + "\n" + Line(writer, 9, ends[1], "good") + "\n" +
                      Line(reader, 5, ends[0], "good") + "\n");
}

}  // namespace
