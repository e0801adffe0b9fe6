// A lock whose waiters wait on a file descriptor. Taken and left without contention it makes no system call.
//
//   SyncMutex *lock = SyncMutex_CreateSingleton(&module.lock);
//   if (SyncMutex_Lock(lock)) {
//     module.value++;
//     SyncMutex_Unlock(lock);
//   }
//
// It isn't recursive (syncRecMutex.h is) and knows no owner.
#ifndef OST_PUBLIC_SYNCMUTEX_H
#define OST_PUBLIC_SYNCMUTEX_H

#include <atomic>
#include <cstdint>

#include "syncWaitQ.h"

struct SyncMutex {
  SyncWaitQ queue;
  std::atomic<uint32_t> unlocked = 0;  // 1 when free
};

// Makes a free lock.
//
// path  null for the threads of one process; otherwise see syncWaitQ.h
//
// Returns false, with errno, when the system has no descriptor for it.
bool SyncMutex_Init(SyncMutex *mutex, const char *path);
// Nobody may hold the lock or wait for it.
void SyncMutex_Destroy(SyncMutex *mutex);

// Waits for the lock. Returns false when it can't wait, or can't close what it waited on; the caller then
// hasn't got the lock, but for that second failure right after a wait that the lock's release forestalled.
bool SyncMutex_Lock(SyncMutex *mutex);
// Takes the lock if it is free. Returns whether it did.
bool SyncMutex_Trylock(SyncMutex *mutex);
void SyncMutex_Unlock(SyncMutex *mutex);

// The lock that a pointer, null at first, leads to; whoever comes first makes it. It lives for ever. A lock
// that can't be made stops the program. Safe in every thread.
SyncMutex *SyncMutex_CreateSingleton(std::atomic<SyncMutex *> *pointer);

#endif
