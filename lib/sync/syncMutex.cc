#include "syncMutex.h"

#include <sys/poll.h>

#include <cerrno>
#include <new>

#include "panicUser.h"

namespace {

// A wake-up that got lost costs this much and no more.
constexpr int kWaitMs = 5000;

// Waits for a wake-up or the end of the time. Returns false with errno.
bool WaitOn(int fd) {
  pollfd waiting = {fd, POLLIN, 0};
  int ready = 0;
  do {
    ready = poll(&waiting, 1, kWaitMs);
  } while (ready == -1 && errno == EINTR);
  ASSERT(ready <= 1);
  return ready != -1;
}

bool LockSlowly(SyncMutex *mutex) {
  for (;;) {
    const int fd = SyncWaitQ_Add(&mutex->queue);
    if (fd == -1) {
      return false;
    }
    // The lock may have been left before this thread was in the queue.
    if (SyncMutex_Trylock(mutex)) {
      return SyncWaitQ_Remove(&mutex->queue, fd);
    }
    const bool hasWaited = WaitOn(fd);
    const bool isRemoved = SyncWaitQ_Remove(&mutex->queue, fd);
    if (!hasWaited || !isRemoved) {
      return false;
    }
  }
}

}  // namespace

bool SyncMutex_Init(SyncMutex *mutex, const char *path) {
  mutex->unlocked = 1;
  return SyncWaitQ_Init(&mutex->queue, path);
}

void SyncMutex_Destroy(SyncMutex *mutex) {
  SyncWaitQ_Destroy(&mutex->queue);
}

bool SyncMutex_Lock(SyncMutex *mutex) {
  return SyncMutex_Trylock(mutex) || LockSlowly(mutex);
}

bool SyncMutex_Trylock(SyncMutex *mutex) {
  uint32_t isFree = 1;
  return mutex->unlocked.compare_exchange_strong(isFree, 0);
}

void SyncMutex_Unlock(SyncMutex *mutex) {
  mutex->unlocked = 1;
  SyncWaitQ_WakeUp(&mutex->queue);
}

SyncMutex *SyncMutex_CreateSingleton(std::atomic<SyncMutex *> *pointer) {
  SyncMutex *winner = *pointer;
  if (winner != nullptr) {
    return winner;
  }
  auto *mutex = new SyncMutex;
  ASSERT(SyncMutex_Init(mutex, nullptr));
  if (pointer->compare_exchange_strong(winner, mutex)) {
    return mutex;
  }
  SyncMutex_Destroy(mutex);
  delete mutex;
  return winner;
}
