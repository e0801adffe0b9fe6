// The event loop held against a model that does the plain thing, through sequences of changes and turns.
#include <algorithm>
#include <iterator>
#include <random>
#include <set>
#include <sstream>

#include "hostinfoTime.h"
#include "pollDefaultTestInt.h"

namespace {

using namespace polltest;

constexpr int kActors = 24;
constexpr int kPipes = 6;

// One registration, as the model has it.
struct Registered {
  int type;
  PollClassSet set;
  unsigned flags;
  Actor *actor;
  int fd;  // of a device
  int64_t time;
  int period;
};

class Model : public PollHost {
 protected:
  void SetUp() override {
    PollHost::SetUp();
    TakeTime();
    for (int i = 0; i < kActors; i++) {
      actors_.push_back(NewActor(std::to_string(i)));
    }
    for (int i = 0; i < kPipes; i++) {
      pipes_.push_back(i % 2 == 0 ? ReadyPipe() : Pipe()[i % 4 == 1 ? 0 : 1]);
      spares_.push_back(fcntl(pipes_.back(), F_DUPFD_CLOEXEC, 0));
    }
  }

  void TearDown() override {
    PollHost::TearDown();
    for (const int fd : spares_) {
      close(fd);
    }
  }

  int Draw(int limit) { return static_cast<int>(random_() % static_cast<unsigned>(limit)); }

  PollClassSet DrawSet() {
    PollClassSet set = Classes({0});
    for (unsigned eventClass = 1; eventClass < kPollClasses; eventClass++) {
      if (Draw(2) == 0) {
        PollClassSet_Include(&set, eventClass);
      }
    }
    return set;
  }

  // Whether a device's half is taken in one of the classes.
  bool IsTaken(int fd, unsigned flags, PollClassSet set) const {
    return std::any_of(registered_.begin(), registered_.end(), [=](const Registered &one) {
      return one.type == POLL_TYPE_DEVICE && one.fd == fd &&
             (one.flags & flags & (POLL_FLAG_READ | POLL_FLAG_WRITE)) != 0 &&
             (one.set.words[0] & set.words[0]) != 0;
    });
  }

  static bool IsOpen(int fd) { return fcntl(fd, F_GETFD) != -1; }

  // Closes a descriptor, whoever waits for it, or opens it again.
  void CloseOrReopen() {
    const auto at = static_cast<size_t>(Draw(kPipes));
    if (IsOpen(pipes_[at])) {
      close(pipes_[at]);
    } else {
      ASSERT_EQ(dup3(spares_[at], pipes_[at], O_CLOEXEC), pipes_[at]);
    }
  }

  void AddTimer(Actor *actor, unsigned flags) {
    const int delay = 1 + Draw(9000);
    Poll_AddCallback(Classes({0}), flags, Play, actor, POLL_TYPE_TIMER, delay, nullptr);
    const Registered added = {
        POLL_TYPE_TIMER, Classes({0}), flags, actor, 0, Hostinfo_SystemTimerUS() + delay, delay};
    InsertTimer(added);
  }

  // In front of the first timer with an equal or larger time; the other types go in front of all.
  void InsertTimer(const Registered &added) {
    const auto isBehind = [&](const Registered &one) {
      return one.type == POLL_TYPE_TIMER && one.time >= added.time;
    };
    registered_.insert(std::find_if(registered_.begin(), registered_.end(), isBehind), added);
  }

  void AddDevice(Actor *actor, unsigned flags, PollClassSet set) {
    const int fd = pipes_[static_cast<size_t>(Draw(kPipes))];
    flags |= Draw(2) == 0 ? POLL_FLAG_READ : POLL_FLAG_WRITE;
    if (!IsOpen(fd) || IsTaken(fd, flags, set)) {
      return;
    }
    Poll_AddCallback(set, flags, Play, actor, POLL_TYPE_DEVICE, fd, nullptr);
    registered_.insert(registered_.begin(), {POLL_TYPE_DEVICE, set, flags, actor, fd, 0, 0});
  }

  void AddMainLoop(Actor *actor, unsigned flags) {
    const PollClassSet set = DrawSet();
    Poll_AddCallback(set, flags, Play, actor, POLL_TYPE_MAIN_LOOP, 0, nullptr);
    registered_.insert(registered_.begin(), {POLL_TYPE_MAIN_LOOP, set, flags, actor, 0, 0, 0});
  }

  void AddOne() { Register(actors_[static_cast<size_t>(Draw(kActors))]); }

  // As whatever comes.
  void Register(Actor *actor) {
    const unsigned flags = Draw(2) == 0 ? POLL_FLAG_PERIODIC : 0U;
    switch (Draw(3)) {
      case 0:
        return AddTimer(actor, flags);
      case 1:
        return AddDevice(actor, flags, DrawSet());
      default:
        return AddMainLoop(actor, flags);
    }
  }

  // Removes one that is there, or one that may not be.
  void RemoveOne() {
    if (registered_.empty()) {
      return;
    }
    Registered wanted = registered_[static_cast<size_t>(Draw(static_cast<int>(registered_.size())))];
    if (Draw(4) == 0) {
      wanted.actor = actors_[static_cast<size_t>(Draw(kActors))];
    }
    const auto found = std::find_if(registered_.begin(), registered_.end(), [&](const Registered &one) {
      return one.type == wanted.type && one.actor == wanted.actor && one.flags == wanted.flags &&
             PollClassSet_Equal(one.set, wanted.set);
    });
    EXPECT_EQ(Poll_RemoveCallback(wanted.set, wanted.flags, Play, wanted.actor, wanted.type),
              found != registered_.end());
    if (found != registered_.end()) {
      registered_.erase(found);
    }
  }

  // The same without keeping the model: what is registered is read from the queues themselves.

  void AddBlindly() {
    Actor *actor = actors_[static_cast<size_t>(Draw(kActors))];
    const unsigned flags = Draw(2) == 0 ? POLL_FLAG_PERIODIC : 0U;
    const int fd = pipes_[static_cast<size_t>(Draw(kPipes))];
    const PollDevice *device = PollDefaultFindDevice(0, fd);
    switch (Draw(3)) {
      case 0:
        return Poll_AddCallback(Classes({0}), flags, Play, actor, POLL_TYPE_TIMER, 1 + Draw(9000), nullptr);
      case 1:
        if (IsOpen(fd) && (device == nullptr || device->read == nullptr)) {
          Poll_AddCallback(DrawSet(), flags | POLL_FLAG_READ, Play, actor, POLL_TYPE_DEVICE, fd, nullptr);
        }
        return;
      default:
        return Poll_AddCallback(DrawSet(), flags, Play, actor, POLL_TYPE_MAIN_LOOP, 0, nullptr);
    }
  }

  void RemoveBlindly() {
    const int type = 1 + Draw(3);
    const PollCallback *record = pollDefault.state->queues[type];
    for (int i = Draw(5); i > 0 && record != nullptr; i--) {
      record = record->next;
    }
    if (record != nullptr) {
      EXPECT_TRUE(Poll_RemoveCallback(record->classSet, record->flags, Play, record->clientData, type));
    }
  }

  // The queues hold what the model has, in its order.
  void ExpectQueues() {
    for (const int type : {POLL_TYPE_TIMER, POLL_TYPE_DEVICE, POLL_TYPE_MAIN_LOOP}) {
      const PollCallback *record = pollDefault.state->queues[type];
      for (const Registered &one : registered_) {
        if (one.type != type) {
          continue;
        }
        ASSERT_NE(record, nullptr);
        ASSERT_EQ(record->clientData, one.actor);
        ASSERT_EQ(record->flags, one.flags);
        ASSERT_EQ(record->count, 1);
        ASSERT_EQ(record->time, one.time);
        ASSERT_TRUE(PollClassSet_Equal(record->classSet, one.set));
        record = record->next;
      }
      ASSERT_EQ(record, nullptr);
    }
    ASSERT_EQ(pollDefault.state->queues[0], nullptr);
    PollDefaultCheck();
  }

  // What a turn of a class fires, and what then is left.
  std::multiset<std::string> Fire(unsigned eventClass) {
    std::multiset<std::string> names;
    const int64_t now = Hostinfo_SystemTimerUS();
    std::vector<Registered> left;
    std::vector<Registered> again;
    for (const Registered &one : registered_) {
      const bool periodic = (one.flags & POLL_FLAG_PERIODIC) != 0;
      const bool fires = PollClassSet_IsMember(one.set, eventClass) && IsReady(one, now);
      if (fires) {
        names.insert(one.actor->name);
      }
      if (fires && periodic && one.type == POLL_TYPE_TIMER) {
        again.push_back(one);
      } else if (!fires || periodic) {
        left.push_back(one);
      }
    }
    registered_ = left;
    for (Registered one : again) {
      one.time = now + one.period;
      InsertTimer(one);
    }
    return names;
  }

  static bool IsReady(const Registered &one, int64_t now) {
    if (one.type == POLL_TYPE_TIMER) {
      return one.time <= now || ((one.flags & POLL_FLAG_PERIODIC) != 0 && one.time <= now + 2000);
    }
    if (one.type == POLL_TYPE_MAIN_LOOP) {
      return true;
    }
    const int wanted = (one.flags & POLL_FLAG_READ) != 0 ? POLLIN : POLLOUT;
    pollfd fd = {one.fd, static_cast<short>(wanted), 0};
    return syscall(SYS_poll, &fd, 1, 0) == 1 && (fd.revents & (wanted | POLLERR | POLLHUP)) != 0;
  }

  static std::multiset<std::string> FiredNames() {
    std::istringstream names(Fired());
    return {std::istream_iterator<std::string>(names), {}};
  }

  std::mt19937 random_{51};
  std::vector<Actor *> actors_;
  std::vector<int> pipes_;
  std::vector<int> spares_;  // the same ends, which stay open
  std::vector<Registered> registered_;
};

TEST_F(Model, AgreesThroughThousandsOfChangesAndTurnsInAllClasses) {
  size_t fires = 0;
  for (int step = 0; step < 20000; step++) {
    const int what = Draw(21);
    if (what == 20) {
      CloseOrReopen();
    } else if (what < 8) {
      AddOne();
    } else if (what < 14) {
      RemoveOne();
    } else if (what < 17) {
      *world.clock += Draw(3000);
    } else {
      const auto eventClass = static_cast<unsigned>(Draw(static_cast<int>(kPollClasses)));
      const std::multiset<std::string> expected = Fire(eventClass);
      Turn(eventClass);
      const std::multiset<std::string> names = FiredNames();
      ASSERT_EQ(names, expected) << step;
      fires += names.size();
    }
    ExpectQueues();
    ASSERT_FALSE(HasFatalFailure()) << step;
  }
  EXPECT_GT(fires, 9000U);
}

// Callbacks that remove others and themselves. Each registration has an actor of its own, which tells what
// fired.
class RemovingModel : public Model {
 protected:
  void Add() {
    Actor *actor = NewActor("");
    actor->act = [this, actor] { HaveFired(actor); };
    Register(actor);
  }

  void RemoveAny() {
    if (registered_.empty()) {
      return;
    }
    const auto at = registered_.begin() + Draw(static_cast<int>(registered_.size()));
    const Registered gone = *at;
    registered_.erase(at);
    mustFire_.erase(gone.actor);
    EXPECT_TRUE(Poll_RemoveCallback(gone.set, gone.flags, Play, gone.actor, gone.type));
    EXPECT_FALSE(Poll_RemoveCallback(gone.set, gone.flags, Play, gone.actor, gone.type));
    removed_++;
  }

  // What each callback does.
  void HaveFired(Actor *actor) {
    EXPECT_EQ(mustFire_.erase(actor), 1U);
    const auto at = std::find_if(registered_.begin(), registered_.end(),
                                 [=](const Registered &one) { return one.actor == actor; });
    ASSERT_NE(at, registered_.end());
    Registered one = *at;
    const bool isTimer = one.type == POLL_TYPE_TIMER;
    const bool periodic = (one.flags & POLL_FLAG_PERIODIC) != 0;
    if (isTimer || !periodic) {
      registered_.erase(at);
    }
    if (!periodic) {
      EXPECT_FALSE(Poll_RemoveCallback(one.set, one.flags, Play, one.actor, one.type));
    } else if (isTimer) {
      one.time = Hostinfo_SystemTimerUS() + one.period;
      InsertTimer(one);
    }
    for (int i = Draw(3); i > 0; i--) {
      RemoveAny();
    }
    if (Draw(4) == 0) {
      // It waits for the next turn.
      Actor *added = NewActor("");
      added->act = [this, added] { HaveFired(added); };
      AddMainLoop(added, 0);
    }
  }

  // Turns, and expects that everything fires that is ready and isn't removed before.
  void ExpectTurn(unsigned eventClass) {
    const int64_t now = Hostinfo_SystemTimerUS();
    for (const Registered &one : registered_) {
      if (PollClassSet_IsMember(one.set, eventClass) && IsReady(one, now)) {
        mustFire_.insert(one.actor);
      }
    }
    fires_ += mustFire_.size();
    Turn(eventClass);
    EXPECT_TRUE(mustFire_.empty());
    Fired();
  }

  std::set<Actor *> mustFire_;
  size_t fires_ = 0;
  size_t removed_ = 0;
};

TEST_F(RemovingModel, AgreesWhenCallbacksRemoveWhatIsRegistered) {
  for (int step = 0; step < 20000; step++) {
    const int what = Draw(20);
    if (what < 13 && registered_.size() < 200) {
      Add();
    } else if (what == 13) {
      CloseOrReopen();
    } else if (what < 17) {
      *world.clock += Draw(3000);
    } else {
      ExpectTurn(static_cast<unsigned>(Draw(static_cast<int>(kPollClasses))));
    }
    ExpectQueues();
    ASSERT_FALSE(HasFailure()) << step;
  }
  EXPECT_GT(fires_, 5000U);
  EXPECT_GT(removed_, 2000U);
}

// Callbacks that add and remove at will.
TEST_F(Model, StaysSoundWhenCallbacksChangeEverything) {
  for (Actor *actor : actors_) {
    actor->act = [this] {
      const int changes = Draw(3);
      for (int i = 0; i < changes; i++) {
        Draw(2) == 0 ? AddBlindly() : RemoveBlindly();
      }
    };
  }
  size_t fires = 0;
  for (int step = 0; step < 5000; step++) {
    AddBlindly();
    if (CountQueue(POLL_TYPE_MAIN_LOOP) > 200) {
      for (int i = 0; i < 500; i++) {
        RemoveBlindly();
      }
    }
    *world.clock += Draw(3000);
    if (Draw(5) == 0) {
      CloseOrReopen();
    }
    Turn(static_cast<unsigned>(Draw(static_cast<int>(kPollClasses))));
    fires += FiredNames().size();
    PollDefaultCheck();
    for (const PollCallback *queue : pollDefault.state->queues) {
      for (const PollCallback *record = queue; record != nullptr; record = record->next) {
        ASSERT_EQ(record->count, 1) << step;
        ASSERT_TRUE(record->onQueue);
      }
    }
    CountFree();
  }
  EXPECT_GT(fires, 5000U);
}

}  // namespace
