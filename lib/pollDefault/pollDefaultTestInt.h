// What the tests of the event loop share: a host with a log, a clock and a wait that the test can take over.
#ifndef OST_POLLDEFAULT_POLLDEFAULTTESTINT_H
#define OST_POLLDEFAULT_POLLDEFAULTTESTINT_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <functional>
#include <list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "log.h"
#include "pollDefaultInt.h"
#include "testhost.h"

namespace polltest {

inline const auto kPanics = ::testing::ExitedWithCode(255);

// What the stand-ins below answer; the kernel does when there is nothing.
struct World {
  std::optional<int64_t> clock;  // in microseconds
  std::function<int(pollfd *fds, nfds_t count, int timeout)> wait;
};
inline World world;

// While it lives, waits are answered by a function.
class Waits {
 public:
  explicit Waits(decltype(World::wait) wait) { world.wait = std::move(wait); }
  ~Waits() { world.wait = nullptr; }
  Waits(const Waits &) = delete;
  Waits &operator=(const Waits &) = delete;
};

// An assertion of a source of the event loop.
inline std::string AssertIn(const std::string &file) {
  return "^ASSERT lib/pollDefault/" + file + "\\.cc:[0-9]+\n";
}
inline std::string BugIn(const std::string &file) {
  return "^ASSERT lib/pollDefault/" + file + "\\.cc:[0-9]+ bugNr=[0-9]+\n";
}

inline PollClassSet Classes(std::initializer_list<unsigned> classes) {
  PollClassSet set{};
  for (const unsigned eventClass : classes) {
    PollClassSet_Include(&set, eventClass);
  }
  return set;
}

// A callback with a name, for Play; what it does beside telling that it fired.
struct Actor {
  std::string name;
  std::function<void()> act;
};

// The names of the actors that fired since the last look.
inline std::string fired;

inline void Play(void *clientData) {
  const auto *actor = static_cast<Actor *>(clientData);
  fired += (fired.empty() ? "" : " ") + actor->name;
  if (actor->act) {
    actor->act();
  }
}

// Like Play, but another function.
inline void PlayToo(void *clientData) {
  Play(clientData);
}

inline std::string Fired() {
  return std::exchange(fired, "");
}

// A host with a log and a Poll that was started.
class PollHost : public ::testing::Test {
 protected:
  void SetUp() override {
    testhost::Host host;
    host.Enter();
    ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
    Poll_InitDefault();
  }

  void TearDown() override {
    world = {};
    if (pollDefault.state != nullptr) {
      Poll_Exit();
    }
    for (const int fd : fds_) {
      close(fd);
    }
  }

  // Time stands still until the test or a wait moves it; waits end at once.
  static void TakeTime() {
    timeval now{};
    syscall(SYS_gettimeofday, &now, nullptr);
    world.clock = (now.tv_sec + 3600) * int64_t{1000000};
    waits = {};
    world.wait = [](pollfd *fds, nfds_t count, int timeout) {
      waits.push_back(timeout);
      const auto ready = static_cast<int>(syscall(SYS_poll, fds, count, 0));
      if (ready == 0) {
        *world.clock += int64_t{timeout} * 1000;
      }
      return ready;
    };
  }

  // The time-outs of the waits since the last look, in milliseconds.
  static std::vector<int> Waited() { return std::exchange(waits, {}); }

  Actor *NewActor(const std::string &name, std::function<void()> act = nullptr) {
    return &actors_.emplace_back(Actor{name, std::move(act)});
  }

  static void Turn(unsigned eventClass = 0, int timeoutMicro = 0) {
    Poll_RunTimed(false, nullptr, eventClass, timeoutMicro);
  }

  // Both ends of a pipe, which live as long as the test.
  std::array<int, 2> Pipe() {
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK), 0);
    fds_.insert(fds_.end(), ends.begin(), ends.end());
    return ends;
  }

  // The end to read of a pipe that holds a byte.
  int ReadyPipe() {
    const auto ends = Pipe();
    EXPECT_EQ(write(ends[1], "x", 1), 1);
    return ends[0];
  }

  static int CountQueue(int type) {
    int count = 0;
    for (const PollCallback *record = pollDefault.state->queues[type]; record != nullptr;
         record = record->next) {
      count++;
    }
    return count;
  }

  static int CountFree() {
    int count = 0;
    for (const PollCallback *record = pollDefault.state->freeList; record != nullptr; record = record->next) {
      EXPECT_EQ(record->count, 0);
      EXPECT_FALSE(record->onQueue);
      count++;
    }
    return count;
  }

  // How often a line was logged.
  static size_t CountLogged(const std::string &line) {
    const std::string log = testhost::ReadFile(Log_GetFileName());
    const std::string searched = "| " + line + "\n";
    size_t count = 0;
    for (size_t at = log.find(searched); at != std::string::npos; at = log.find(searched, at + 1)) {
      count++;
    }
    return count;
  }

 private:
  inline static std::vector<int> waits;
  std::list<Actor> actors_;
  std::vector<int> fds_;
};

}  // namespace polltest

// Stand-ins for the C library's. Each test program is one source, so they are there once.

// NOLINTNEXTLINE(misc-definitions-in-headers): see above
extern "C" int gettimeofday(timeval *time, void * /*zone*/) noexcept {
  const auto &clock = polltest::world.clock;
  if (!clock) {
    return static_cast<int>(syscall(SYS_gettimeofday, time, nullptr));
  }
  *time = {*clock / 1000000, *clock % 1000000};
  return 0;
}

// NOLINTNEXTLINE(misc-definitions-in-headers): see above
extern "C" int poll(pollfd *fds, nfds_t count, int timeout) {
  return polltest::world.wait ? polltest::world.wait(fds, count, timeout)
                              : static_cast<int>(syscall(SYS_poll, fds, count, timeout));
}

#endif
