// The locks beside those of the C library.
#include <benchmark/benchmark.h>
#include <pthread.h>

#include <cstdint>

#include "syncMutex.h"
#include "syncRecMutex.h"

namespace {

SyncMutex &Mutex() {
  static SyncMutex mutex;
  static const bool made = SyncMutex_Init(&mutex, nullptr);
  benchmark::DoNotOptimize(made);
  return mutex;
}

SyncRecMutex &RecMutex() {
  static SyncRecMutex mutex;
  static const bool made = SyncRecMutex_Init(&mutex, nullptr);
  benchmark::DoNotOptimize(made);
  return mutex;
}

pthread_mutex_t &PeerRecMutex() {
  static pthread_mutex_t mutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
  return mutex;
}

pthread_mutex_t peer = PTHREAD_MUTEX_INITIALIZER;
uint64_t counter;

void BM_Ours_Loop_Lock(benchmark::State &state) {
  SyncMutex &mutex = Mutex();
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(SyncMutex_Lock(&mutex));
    benchmark::DoNotOptimize(++counter);
    SyncMutex_Unlock(&mutex);
  }
}
BENCHMARK(BM_Ours_Loop_Lock);
// Contended: the same work shared by so many threads.
BENCHMARK(BM_Ours_Loop_Lock)
    ->Name("BM_Ours_Loop_LockContended")
    ->UseRealTime()
    ->Threads(2)
    ->Threads(4)
    ->Threads(8);

void BM_Peer_pthread_Loop_Lock(benchmark::State &state) {
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(pthread_mutex_lock(&peer));
    benchmark::DoNotOptimize(++counter);
    pthread_mutex_unlock(&peer);
  }
}
BENCHMARK(BM_Peer_pthread_Loop_Lock);
BENCHMARK(BM_Peer_pthread_Loop_Lock)
    ->Name("BM_Peer_pthread_Loop_LockContended")
    ->UseRealTime()
    ->Threads(2)
    ->Threads(4)
    ->Threads(8);

void BM_Ours_Loop_TryLock(benchmark::State &state) {
  SyncMutex &mutex = Mutex();
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(SyncMutex_Trylock(&mutex));
    SyncMutex_Unlock(&mutex);
  }
}
BENCHMARK(BM_Ours_Loop_TryLock);

void BM_Peer_pthread_Loop_TryLock(benchmark::State &state) {
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(pthread_mutex_trylock(&peer));
    pthread_mutex_unlock(&peer);
  }
}
BENCHMARK(BM_Peer_pthread_Loop_TryLock);

// Taken so often by its owner before it is left as often.
void BM_Ours_Loop_RecursiveLock(benchmark::State &state) {
  SyncRecMutex &mutex = RecMutex();
  while (state.KeepRunning()) {
    for (int64_t depth = 0; depth < state.range(0); depth++) {
      benchmark::DoNotOptimize(SyncRecMutex_Lock(&mutex));
    }
    for (int64_t depth = 0; depth < state.range(0); depth++) {
      SyncRecMutex_Unlock(&mutex);
    }
  }
}
BENCHMARK(BM_Ours_Loop_RecursiveLock)->Arg(1)->Arg(3)->Arg(30);

void BM_Peer_pthread_Loop_RecursiveLock(benchmark::State &state) {
  pthread_mutex_t &mutex = PeerRecMutex();
  while (state.KeepRunning()) {
    for (int64_t depth = 0; depth < state.range(0); depth++) {
      benchmark::DoNotOptimize(pthread_mutex_lock(&mutex));
    }
    for (int64_t depth = 0; depth < state.range(0); depth++) {
      pthread_mutex_unlock(&mutex);
    }
  }
}
BENCHMARK(BM_Peer_pthread_Loop_RecursiveLock)->Arg(1)->Arg(3)->Arg(30);

}  // namespace
