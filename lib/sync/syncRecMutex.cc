#include "syncRecMutex.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "panicUser.h"

namespace {

constexpr pid_t kNobody = -1;

// Set for ever when the kernel has no identities of threads.
std::atomic<bool> hasNoThreadIds;

// Asked of the kernel once in each thread, and again in a child of fork. 0 before.
thread_local pid_t knownId;

pid_t AskThreadId() {
  if (!hasNoThreadIds) {
    const auto id = static_cast<pid_t>(syscall(SYS_gettid));
    if (id != -1) {
      return id;
    }
    ASSERT(errno == ENOSYS);
    hasNoThreadIds = true;
  }
  return getpid();
}

void ForgetId() {
  knownId = 0;
}

pid_t LearnThreadId() {
  static const int forgetting = pthread_atfork(nullptr, nullptr, ForgetId);
  ASSERT(forgetting == 0);
  knownId = AskThreadId();
  return knownId;
}

pid_t CurrentThread() {
  return knownId != 0 ? knownId : LearnThreadId();
}

// Counts one more lock of the owner's. Returns false when the caller isn't the owner.
bool LockAgain(SyncRecMutex *mutex, pid_t self) {
  if (mutex->owner.load(std::memory_order_relaxed) != self) {
    return false;
  }
  ASSERT(mutex->count != 0);
  mutex->count++;
  return true;
}

void BecomeOwner(SyncRecMutex *mutex, pid_t self) {
  ASSERT(mutex->owner.load(std::memory_order_relaxed) == kNobody);
  ASSERT(mutex->count == 0);
  mutex->owner.store(self, std::memory_order_relaxed);
  mutex->count = 1;
}

}  // namespace

bool SyncRecMutex_Init(SyncRecMutex *mutex, const char *path) {
  mutex->owner = kNobody;
  mutex->count = 0;
  return SyncMutex_Init(&mutex->mutex, path);
}

void SyncRecMutex_Destroy(SyncRecMutex *mutex) {
  SyncMutex_Destroy(&mutex->mutex);
}

bool SyncRecMutex_Lock(SyncRecMutex *mutex) {
  const pid_t self = CurrentThread();
  if (LockAgain(mutex, self)) {
    return true;
  }
  if (!SyncMutex_Lock(&mutex->mutex)) {
    return false;
  }
  BecomeOwner(mutex, self);
  return true;
}

bool SyncRecMutex_Trylock(SyncRecMutex *mutex) {
  const pid_t self = CurrentThread();
  if (LockAgain(mutex, self)) {
    return true;
  }
  if (!SyncMutex_Trylock(&mutex->mutex)) {
    return false;
  }
  BecomeOwner(mutex, self);
  return true;
}

bool SyncRecMutex_Unlock(SyncRecMutex *mutex) {
  ASSERT(mutex->owner.load(std::memory_order_relaxed) == CurrentThread());
  ASSERT(mutex->count != 0);
  mutex->count--;
  if (mutex->count == 0) {
    mutex->owner.store(kNobody, std::memory_order_relaxed);
    SyncMutex_Unlock(&mutex->mutex);
  }
  return true;
}
