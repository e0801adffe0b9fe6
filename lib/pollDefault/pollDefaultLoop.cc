#include <fcntl.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>

#include "hostinfoTime.h"
#include "log.h"
#include "pollDefaultInt.h"

namespace {

// How early a periodic timer may fire, in microseconds.
constexpr int64_t kTimerSlack = 2000;
constexpr int kTooManyReadyBug = 5104;
constexpr int kClosedDeviceBug = 5105;
constexpr int kReadMask = POLLIN | POLLERR | POLLHUP;
constexpr int kWriteMask = POLLOUT | POLLERR | POLLHUP;

// What a turn runs with.
struct Turn {
  const volatile bool *exit;
  unsigned eventClass;
  int timeoutMicro;
};

// Callbacks to fire, with a reference on each.
struct Gathered {
  int count;
  PollCallback *records[kPollMaxDevices];
};

bool IsAskedToReturn(const volatile bool *exit) {
  return exit != nullptr && __atomic_load_n(exit, __ATOMIC_ACQUIRE);
}

void Gather(Gathered *gathered, PollCallback *record) {
  ASSERT_BUG(kTooManyReadyBug, gathered->count < kPollMaxDevices);
  PollDefaultHold(record);
  gathered->records[gathered->count++] = record;
}

// Takes the lock again, in a loop that left it. What it has in hand is gone when its Poll has ended.
void LockAgain(unsigned start) {
  ASSERT_BUG(kNoStateBug, pollDefault.state != nullptr && pollDefault.starts == start);
  PollDefaultLock();
}

// Invokes a callback without the lock. The caller has a reference.
void Invoke(const PollCallback *record) {
  const PollState *state = pollDefault.state;
  const unsigned start = pollDefault.starts;
  PollDefaultUnlock();
  if (state->wrapper != nullptr) {
    state->wrapper(record->func, record->clientData, state->wrapperData);
  } else {
    record->func(record->clientData);
  }
  LockAgain(start);
}

void Fire(PollCallback *record, int type) {
  ASSERT(record->count > 0);
  if (!record->onQueue) {
    return;  // an earlier callback of this turn removed it
  }
  PollDefaultHold(record);
  if ((record->flags & POLL_FLAG_PERIODIC) == 0) {
    PollDefaultDequeue(record, type);
  }
  Invoke(record);
  PollDefaultDrop(record);
}

void FireGathered(const Gathered *gathered, int type) {
  for (int i = 0; i < gathered->count; i++) {
    Fire(gathered->records[i], type);
    PollDefaultDrop(gathered->records[i]);
  }
}

// They are gathered first, so that what a callback registers waits for the next turn.
void FireMainLoop(unsigned eventClass) {
  Gathered gathered;
  gathered.count = 0;
  for (PollCallback *record = pollDefault.state->queues[POLL_TYPE_MAIN_LOOP]; record != nullptr;
       record = record->next) {
    if (PollClassSet_IsMember(record->classSet, eventClass)) {
      Gather(&gathered, record);
    }
  }
  FireGathered(&gathered, POLL_TYPE_MAIN_LOOP);
}

// Timers are of the main class alone.
PollCallback *FirstTimer(unsigned eventClass) {
  return eventClass == POLL_CLASS_MAIN ? pollDefault.state->queues[POLL_TYPE_TIMER] : nullptr;
}

// The first timer to fire from a record on, or null. A periodic timer that came behind `lastOrder` is fired
// when it is due and not before, or one with a period below the slack would be fired for ever.
PollCallback *FindTimerToFire(PollCallback *record, int64_t now, uint64_t lastOrder) {
  for (; record != nullptr && record->time <= now + kTimerSlack; record = record->next) {
    const bool isPeriodic = (record->flags & POLL_FLAG_PERIODIC) != 0;
    if (record->time <= now || (isPeriodic && record->order <= lastOrder)) {
      return record;
    }
  }
  return nullptr;
}

void FireTimer(PollCallback *record, int64_t now) {
  PollDefaultHold(record);
  if ((record->flags & POLL_FLAG_PERIODIC) == 0) {
    PollDefaultDequeue(record, POLL_TYPE_TIMER);
  } else {
    ASSERT(record->info != 0);
    PollDefaultUnlinkTimer(record);
    record->time = now + record->info;
    PollDefaultLinkTimer(record);
  }
  Invoke(record);
  PollDefaultDrop(record);
}

// What was passed over is not to fire in this turn any more, so that the search goes on behind it, unless a
// callback took the next record from its place or made one due. A record that is gone can still be looked at.
void FireTimers(unsigned eventClass) {
  PollCallback *record = FirstTimer(eventClass);
  if (record == nullptr) {
    return;
  }
  const int64_t now = Hostinfo_SystemTimerUS();
  const uint64_t lastOrder = pollDefault.state->lastOrder;
  while ((record = FindTimerToFire(record, now, lastOrder)) != nullptr) {
    PollCallback *next = record->next;
    const uint64_t order = next != nullptr ? next->order : 0;
    FireTimer(record, now);
    record = FirstTimer(eventClass);
    if (next != nullptr && next->onQueue && next->order == order && record->time > now) {
      record = next;
    }
  }
}

// How long to wait, in microseconds.
int64_t FindWait(const Turn &turn) {
  const PollCallback *first = FirstTimer(turn.eventClass);
  if (turn.timeoutMicro == 0 || first == nullptr) {
    return turn.timeoutMicro;
  }
  const int64_t untilDue = std::max<int64_t>(first->time - Hostinfo_SystemTimerUS(), 0);
  return std::min<int64_t>(turn.timeoutMicro, untilDue);
}

char Letter(int events, int event, char letter) {
  return (events & event) != 0 ? letter : '-';
}

[[noreturn]] void DumpClosedDevices(const pollfd *fds, int count, unsigned eventClass) {
  for (int i = 0; i < count; i++) {
    Log("POLL fds %d: %c%c\n", fds[i].fd, Letter(fds[i].events, POLLIN, 'r'),
        Letter(fds[i].events, POLLOUT, 'w'));
  }
  Log("POLL class %d\n", static_cast<int>(eventClass));
  for (const PollCallback *record = pollDefault.state->queues[POLL_TYPE_DEVICE]; record != nullptr;
       record = record->next) {
    Log("POLL func %p(%p) flags %#x count %d onQueue %d handle %d %s\n",
        reinterpret_cast<void *>(record->func), record->clientData, record->flags, record->count,
        record->onQueue ? 1 : 0, record->info, fcntl(record->info, F_GETFD) != -1 ? "good" : "bad");
  }
  NOT_REACHED_BUG(kClosedDeviceBug);
}

// Waits without the lock for the descriptors of a class, which it copies to `fds`. Returns how many are
// ready; 0 as well when the table changed meanwhile, so that they no longer tell whose they are.
int WaitForDevices(unsigned eventClass, int64_t wait, pollfd (&fds)[kPollMaxDevices]) {
  PollState *state = pollDefault.state;
  const PollClass *table = &state->classes[eventClass];
  const int count = table->count;
  for (int i = 0; i < count; i++) {
    fds[i] = {table->devices[i].fd, static_cast<short>(table->devices[i].events), 0};
  }
  state->fdsChanged = false;
  const unsigned start = pollDefault.starts;
  PollDefaultUnlock();
  const int ready = poll(fds, static_cast<nfds_t>(count), static_cast<int>((wait + 999) / 1000));
  const int error = errno;
  LockAgain(start);
  if (state->fdsChanged) {
    return 0;
  }
  if (ready == -1 && error == EBADF) {
    DumpClosedDevices(fds, count, eventClass);
  }
  return std::max(ready, 0);
}

void GatherReady(Gathered *gathered, const PollDevice *device, int events) {
  if ((events & kReadMask) != 0 && device->read != nullptr) {
    Gather(gathered, device->read);
  }
  if ((events & kWriteMask) != 0 && device->write != nullptr && device->write != device->read) {
    Gather(gathered, device->write);
  }
}

void FireReady(unsigned eventClass, const pollfd (&fds)[kPollMaxDevices], int ready) {
  const PollClass *table = &pollDefault.state->classes[eventClass];
  Gathered gathered;
  gathered.count = 0;
  int handled = 0;
  for (int i = 0; i < table->count && handled < ready; i++) {
    if (fds[i].revents != 0) {
      GatherReady(&gathered, &table->devices[i], fds[i].revents);
      handled++;
    }
  }
  ASSERT(handled == ready);
  FireGathered(&gathered, POLL_TYPE_DEVICE);
}

void RunTurn(const Turn &turn) {
  FireMainLoop(turn.eventClass);
  if (IsAskedToReturn(turn.exit)) {
    return;
  }
  FireTimers(turn.eventClass);
  if (IsAskedToReturn(turn.exit)) {
    return;
  }
  const int64_t wait = FindWait(turn);
  if (pollDefault.state->classes[turn.eventClass].count == 0 && wait == 0) {
    return;
  }
  pollfd fds[kPollMaxDevices];
  const int ready = WaitForDevices(turn.eventClass, wait, fds);
  if (ready == 0 || IsAskedToReturn(turn.exit)) {
    return;
  }
  FireReady(turn.eventClass, fds, ready);
}

}  // namespace

void PollDefaultLoop(bool loop, const volatile bool *exit, unsigned eventClass, int timeoutMicro) {
  ASSERT_BUG(kNoStateBug, pollDefault.state != nullptr);
  ASSERT(timeoutMicro >= 0);
  if (IsAskedToReturn(exit)) {
    Warning("Poll: Asked to return before even starting!\n");
    return;
  }
  PollDefaultLock();
  ASSERT(eventClass < kPollClasses);
  const Turn turn = {exit, eventClass, timeoutMicro};
  do {
    RunTurn(turn);
  } while (loop && !IsAskedToReturn(exit));
  PollDefaultUnlock();
}
