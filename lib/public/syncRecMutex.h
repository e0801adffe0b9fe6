// A lock that its owner may take again. It opens when it was left as often as it was taken.
#ifndef OST_PUBLIC_SYNCRECMUTEX_H
#define OST_PUBLIC_SYNCRECMUTEX_H

#include <sys/types.h>

#include <atomic>
#include <cstdint>

#include "syncMutex.h"

struct SyncRecMutex {
  SyncMutex mutex;
  std::atomic<pid_t> owner = -1;  // a thread's identity in the system; -1 when free
  uint32_t count = 0;             // how often the owner has it
};

// As SyncMutex_Init and SyncMutex_Destroy.
bool SyncRecMutex_Init(SyncRecMutex *mutex, const char *path);
void SyncRecMutex_Destroy(SyncRecMutex *mutex);

// Waits until the lock is free or the caller's own. Returns false where SyncMutex_Lock does.
bool SyncRecMutex_Lock(SyncRecMutex *mutex);
// Takes the lock if it is free or the caller's own. Returns whether it did.
bool SyncRecMutex_Trylock(SyncRecMutex *mutex);
// Takes one Lock back. Another thread's lock, and a free one, stop the program. Returns true.
bool SyncRecMutex_Unlock(SyncRecMutex *mutex);

#endif
