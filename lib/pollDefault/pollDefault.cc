#include <bit>
#include <cstdlib>
#include <new>

#include "hostinfoTime.h"
#include "pollDefaultInt.h"

PollDefault pollDefault;

namespace {

constexpr unsigned kCheckInterval = 512;
constexpr int kNegativeDelayBug = 5102;
constexpr int kNoTimeBug = 5103;

void CountLockEvent() {
  if (++pollDefault.lockEvents % kCheckInterval == 0) {
    PollDefaultCheck();
  }
}

PollCallback *TakeRecord() {
  PollState *state = pollDefault.state;
  PollCallback *record = state->freeList;
  if (record == nullptr) {
    record = static_cast<PollCallback *>(calloc(1, sizeof *record));
    ASSERT_MEM_ALLOC(record != nullptr);
  } else {
    state->freeList = record->next;
  }
  ASSERT(record->count == 0);
  return record;
}

void CheckNewCallback(PollClassSet classSet, unsigned flags, int type) {
  const bool reads = (flags & POLL_FLAG_READ) != 0;
  const bool writes = (flags & POLL_FLAG_WRITE) != 0;
  ASSERT((reads || writes) == (type == POLL_TYPE_DEVICE));
  ASSERT(!(reads && writes));
  if (type == POLL_TYPE_TIMER && !PollClassSet_Equal(classSet, PollClassSet_Singleton(POLL_CLASS_MAIN))) {
    NOT_IMPLEMENTED();
  }
  ASSERT(PollClassSet_IsMember(classSet, POLL_CLASS_MAIN));
}

void CheckType(int type) {
  if (type == 0 || type == -1) {
    NOT_IMPLEMENTED();
  }
  ASSERT(type > 0 && type < kPollTypes);
}

PollCallback **AlikeBucket(int type, PollFn func, const void *clientData) {
  constexpr uint64_t kSpread = 0x9E3779B97F4A7C15;
  constexpr int kBits = std::countr_zero(kPollBuckets);
  const uint64_t key = reinterpret_cast<uintptr_t>(func) * 31 + reinterpret_cast<uintptr_t>(clientData);
  return &pollDefault.state->alike[type][key * kSpread >> (64 - kBits)];
}

void LinkAlike(PollCallback *record, int type) {
  PollCallback **link = AlikeBucket(type, record->func, record->clientData);
  record->alike = *link;
  record->alikeLink = link;
  if (*link != nullptr) {
    (*link)->alikeLink = &record->alike;
  }
  *link = record;
}

void UnlinkAlike(PollCallback *record) {
  *record->alikeLink = record->alike;
  if (record->alike != nullptr) {
    record->alike->alikeLink = record->alikeLink;
  }
}

void EnqueueFirst(PollCallback *record, int type) {
  PollDefaultLink(record, &pollDefault.state->queues[type]);
}

void EnqueueMainLoop(PollCallback *record, int info) {
  ASSERT(info == 0);
  record->info = -1;
  record->time = 0;
  EnqueueFirst(record, POLL_TYPE_MAIN_LOOP);
}

void EnqueueTimer(PollCallback *record, int delay) {
  ASSERT_BUG(kNegativeDelayBug, delay >= 0);
  record->info = (record->flags & POLL_FLAG_PERIODIC) != 0 ? delay : 0;
  record->time = delay + Hostinfo_SystemTimerUS();
  ASSERT_BUG(kNoTimeBug, record->time > 0);
  PollDefaultLinkTimer(record);
}

void EnqueueDevice(PollCallback *record, int fd) {
  record->time = 0;
  record->info = fd;
  PollDefaultAddDevice(record);
  EnqueueFirst(record, POLL_TYPE_DEVICE);
}

void Enqueue(PollCallback *record, int type, int info) {
  LinkAlike(record, type);
  switch (type) {
    case POLL_TYPE_TIMER:
      return EnqueueTimer(record, info);
    case POLL_TYPE_DEVICE:
      return EnqueueDevice(record, info);
    default:
      return EnqueueMainLoop(record, info);
  }
}

// What a removal looks for.
struct Wanted {
  PollClassSet classSet;
  unsigned flags;
  PollFn func;
  void *clientData;
  bool anyClientData;
};

bool Matches(const PollCallback *record, const Wanted &wanted) {
  return record->func == wanted.func && (wanted.anyClientData || record->clientData == wanted.clientData) &&
         PollClassSet_Equal(record->classSet, wanted.classSet) && record->flags == wanted.flags;
}

PollCallback *FindInQueue(const Wanted &wanted, int type) {
  PollCallback *record = pollDefault.state->queues[type];
  while (record != nullptr && !Matches(record, wanted)) {
    record = record->next;
  }
  return record;
}

// Whether the one stands in front of the other in their queue, where the last that came of one time is first.
bool IsInFront(const PollCallback *one, const PollCallback *other) {
  return one->time != other->time ? one->time < other->time : one->order > other->order;
}

// The first of the queue as well. It looks along the queue and through those that are alike by turns, for
// either may be the shorter way; those that are alike are never more than the queue has.
PollCallback *FindAlike(const Wanted &wanted, int type) {
  PollCallback *found = nullptr;
  PollCallback *queued = pollDefault.state->queues[type];
  for (PollCallback *record = *AlikeBucket(type, wanted.func, wanted.clientData); record != nullptr;
       record = record->alike) {
    if (Matches(queued, wanted)) {
      return queued;
    }
    queued = queued->next;
    if (Matches(record, wanted) && (found == nullptr || IsInFront(record, found))) {
      found = record;
    }
  }
  return found;
}

// Removes what is wanted. Returns whether it was there; `clientData`, if not null, gets its client data then.
bool Remove(const Wanted &wanted, int type, void **clientData) {
  ASSERT_BUG(kNoStateBug, pollDefault.state != nullptr);
  CheckType(type);
  PollDefaultLock();
  PollCallback *record = wanted.anyClientData ? FindInQueue(wanted, type) : FindAlike(wanted, type);
  if (record != nullptr) {
    if (clientData != nullptr) {
      *clientData = record->clientData;
    }
    PollDefaultDequeue(record, type);
  }
  PollDefaultUnlock();
  return record != nullptr;
}

SyncMutex *NewLock() {
  auto *lock = new (std::nothrow) SyncMutex;
  ASSERT_MEM_ALLOC(lock != nullptr);
  ASSERT(SyncMutex_Init(lock, nullptr));
  return lock;
}

void FreeLock(PollState *state) {
  ASSERT(state->owner == 0);
  if (state->lock != nullptr) {
    SyncMutex_Destroy(state->lock);
    delete state->lock;
  }
}

void FreeRecords(PollCallback *records, bool areQueued) {
  while (records != nullptr) {
    PollCallback *record = records;
    records = record->next;
    ASSERT(areQueued ? record->count >= 1 : record->count == 0);
    free(record);
  }
}

// The operations of the table

void Init() {
  ASSERT(pollDefault.state == nullptr);
  auto *state = static_cast<PollState *>(calloc(1, sizeof(PollState)));
  ASSERT_MEM_ALLOC(state != nullptr);
  state->lock = pollDefault.options.locked ? NewLock() : nullptr;
  state->wrapper = pollDefault.options.wrapper;
  state->wrapperData = pollDefault.options.wrapperData;
  pollDefault.state = state;
  pollDefault.starts++;
}

void Exit() {
  PollState *state = pollDefault.state;
  ASSERT_BUG(kNoStateBug, state != nullptr);
  ASSERT(state->queues[0] == nullptr);
  for (PollCallback *queue : state->queues) {
    FreeRecords(queue, true);
  }
  FreeRecords(state->freeList, false);
  FreeLock(state);
  free(state);
  pollDefault.state = nullptr;
}

void Add(PollClassSet classSet, unsigned flags, PollFn func, void *clientData, int type, int info,
         void *lock) {
  ASSERT(func != nullptr);
  ASSERT(lock == nullptr);
  ASSERT_BUG(kNoStateBug, pollDefault.state != nullptr);
  CheckType(type);
  PollDefaultLock();
  CheckNewCallback(classSet, flags, type);
  PollCallback *record = TakeRecord();
  record->count = 1;
  record->func = func;
  record->classSet = classSet;
  record->flags = flags;
  record->clientData = clientData;
  Enqueue(record, type, info);
  PollDefaultUnlock();
}

bool RemoveCallback(PollClassSet classSet, unsigned flags, PollFn func, void *clientData, int type) {
  return Remove({classSet, flags, func, clientData, false}, type, nullptr);
}

bool RemoveOneByFunction(PollClassSet classSet, unsigned flags, PollFn func, int type, void **clientData) {
  return Remove({classSet, flags, func, nullptr, true}, type, clientData);
}

}  // namespace

const PollImpl pollDefaultImpl = {
    .init = Init,
    .exit = Exit,
    .loop = PollDefaultLoop,
    .add = Add,
    .remove = RemoveCallback,
    .removeOne = RemoveOneByFunction,
};

void PollDefaultLock() {
  PollState *state = pollDefault.state;
  if (state->lock != nullptr) {
    ASSERT(SyncMutex_Lock(state->lock));
    ASSERT(state->owner == 0);
    state->owner = PollDefaultThread();
  }
  CountLockEvent();
}

void PollDefaultUnlock() {
  ASSERT(PollDefaultIsLocked());
  CountLockEvent();
  PollState *state = pollDefault.state;
  if (state->lock != nullptr) {
    state->owner = 0;
    SyncMutex_Unlock(state->lock);
  }
}

void PollDefaultHold(PollCallback *record) {
  ASSERT(PollDefaultIsLocked());
  ASSERT(record->count > 0);
  record->count++;
}

void PollDefaultDrop(PollCallback *record) {
  ASSERT(PollDefaultIsLocked());
  ASSERT(record->count > 0);
  record->count--;
  if (record->count > 0) {
    return;
  }
  ASSERT(!record->onQueue);
  record->next = pollDefault.state->freeList;
  pollDefault.state->freeList = record;
}

void PollDefaultDequeue(PollCallback *record, int type) {
  if (type == POLL_TYPE_TIMER) {
    PollDefaultUnlinkTimer(record);
  } else {
    PollDefaultUnlink(record);
  }
  if (type == POLL_TYPE_DEVICE) {
    PollDefaultRemoveDevice(record);
  }
  UnlinkAlike(record);
  PollDefaultDrop(record);
}

void PollDefaultLink(PollCallback *record, PollCallback **link) {
  ASSERT(PollDefaultIsLocked());
  ASSERT(*link != record);
  record->next = *link;
  record->link = link;
  record->order = ++pollDefault.state->lastOrder;
  if (record->next != nullptr) {
    record->next->link = &record->next;
  }
  *link = record;
  record->onQueue = true;
}

void PollDefaultUnlink(PollCallback *record) {
  ASSERT(PollDefaultIsLocked());
  ASSERT(record->onQueue);
  *record->link = record->next;
  if (record->next != nullptr) {
    record->next->link = record->link;
  }
  record->onQueue = false;
}

void Poll_InitDefault() {
  Poll_Install(&pollDefaultImpl);
}

void Poll_InitOptions(const PollOptions &options) {
  pollDefault.options = options;
  Poll_InitDefault();
}

void Poll_InitLocked() {
  Poll_InitOptions({.locked = true, .reserved = true, .wrapper = nullptr, .wrapperData = nullptr});
}
