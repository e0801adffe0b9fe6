// The default event loop's state, and what its files share.
//
// Everything here but the locking itself is called with the lock held, where there is one.
#ifndef OST_POLLDEFAULT_POLLDEFAULTINT_H
#define OST_POLLDEFAULT_POLLDEFAULTINT_H

#include <pthread.h>

#include <cstddef>
#include <cstdint>

#include "ostpoll.h"
#include "pollImpl.h"
#include "syncMutex.h"

constexpr unsigned kPollClasses = 5;
constexpr int kPollTypes = 4;  // with 0, which is none
constexpr int kPollMaxDevices = 512;

constexpr int kNoStateBug = 5101;  // Poll was not started

// Timers are kept in a list that is sorted by time, with express lanes above it: a quarter of a lane's timers
// stand in the next one.
constexpr int kPollTimerLanes = 7;
constexpr size_t kPollBuckets = 8192;
constexpr size_t kPollPlaces = 1024;

struct PollCallback;

// Where a timer stands in an express lane.
struct PollLane {
  PollCallback *next;
  PollCallback **link;  // what leads to the timer
};

// One registration.
struct PollCallback {
  PollCallback *next;  // in its queue or the free list
  int count;           // references: of the queue, and of those who fire it
  PollClassSet classSet;
  unsigned flags;
  bool onQueue;
  PollFn func;
  void *clientData;
  int64_t time;  // when a timer is due, in microseconds of the system timer; otherwise 0
  int info;      // a periodic timer's period, 0 for one that isn't; the descriptor; -1 for the main loop's

  // The rest only shortens searches.
  PollCallback **link;       // what leads to it in its queue
  uint64_t order;            // counts the entries into queues
  PollCallback *alike;       // the next record of its bucket
  PollCallback **alikeLink;  // what leads to it there
  int lanes;                 // how many express lanes a timer stands in
  PollLane lane[kPollTimerLanes];
};

// A descriptor of a class.
struct PollDevice {
  PollCallback *read;
  PollCallback *write;
  int fd;
  int events;  // POLLIN and POLLOUT
};

struct PollClass {
  int count;
  PollDevice devices[kPollMaxDevices];
};

// Finds the descriptors of a class: chains of places in its table, counted from 1, so that 0 is none.
struct PollPlaces {
  uint16_t first[kPollPlaces];     // by descriptor
  uint16_t next[kPollMaxDevices];  // by place
};

struct PollState {
  PollCallback *queues[kPollTypes];
  PollCallback *freeList;
  bool fdsChanged;
  SyncMutex *lock;  // null without locking
  uintptr_t owner;  // the thread that has the lock, 0 when it is free
  PollWrapperFn wrapper;
  void *wrapperData;
  PollClass classes[kPollClasses];

  // The rest only shortens searches.
  uint64_t lastOrder;                    // of the last record that entered a queue
  uint32_t laneDraw;                     // decides how many lanes a timer stands in
  PollCallback *lanes[kPollTimerLanes];  // the first timer of each
  PollPlaces places[kPollClasses];
  PollCallback *alike[kPollTypes][kPollBuckets];  // what is queued, by function and client data
};

// The module's life: `state` from the table's init to its exit. The options stay when Poll ends, and hold for
// the next start. `starts` counts the inits, so that a loop knows its Poll again. `lockEvents` counts under
// the lock how often it was taken and released.
struct PollDefault {
  PollState *state;
  PollOptions options;
  unsigned starts;
  unsigned lockEvents;
};
extern PollDefault pollDefault;

extern const PollImpl pollDefaultImpl;

// pollDefault.cc

inline uintptr_t PollDefaultThread() {
  return static_cast<uintptr_t>(pthread_self());
}
void PollDefaultLock();
void PollDefaultUnlock();
// Whether the caller has the lock. Always true without one.
inline bool PollDefaultIsLocked() {
  const PollState *state = pollDefault.state;
  return state->lock == nullptr || state->owner == PollDefaultThread();
}

void PollDefaultHold(PollCallback *record);
// Gives a reference back; the last one makes the record free.
void PollDefaultDrop(PollCallback *record);
// Takes a record that is queued off its queue and out of the tables, and drops the queue's reference.
void PollDefaultDequeue(PollCallback *record, int type);
void PollDefaultLink(PollCallback *record, PollCallback **link);
// Keeps the reference.
void PollDefaultUnlink(PollCallback *record);

// pollDefaultTimer.cc: the queue of timers

// Puts a record in front of the first with an equal or larger time.
void PollDefaultLinkTimer(PollCallback *record);
// Keeps the reference.
void PollDefaultUnlinkTimer(PollCallback *record);

// pollDefaultDevice.cc: the tables of descriptors

// A class's entry for a descriptor, or null.
PollDevice *PollDefaultFindDevice(unsigned eventClass, int fd);
// Enters a record in the tables of all its classes.
void PollDefaultAddDevice(PollCallback *record);
void PollDefaultRemoveDevice(PollCallback *record);
// Stops the program when the queue of devices and the tables disagree.
void PollDefaultCheck();

// pollDefaultLoop.cc

void PollDefaultLoop(bool loop, const volatile bool *exit, unsigned eventClass, int timeoutMicro);

#endif
