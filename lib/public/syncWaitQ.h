// A queue of waiting threads that is one file descriptor: who waits polls it, alone or beside others, and one
// wake-up makes it readable for all that wait.
//
//   const int fd = SyncWaitQ_Add(&queue);
//   if (!IsReady()) {                      // looked at again: what happened before the Add wakes nobody
//     pollfd waiting = {fd, POLLIN, 0};
//     poll(&waiting, 1, -1);
//   }
//   SyncWaitQ_Remove(&queue, fd);
//
// The queue knows no waiters. All hold duplicates of one descriptor; a wake-up puts a new one in its place
// and makes the old one readable.
//
// A queue without a path name serves the threads of one process. One with a path name serves all processes
// that have it in shared memory, by FIFOs "<path>.<number>" with a new number for each wake-up; the text at
// `pathName` must then be readable in each of them, as it is in children of the process that called
// SyncWaitQ_Init.
//
// All but Init and Destroy are safe in every thread. A descriptor too many, of the process or of the whole
// system, stops the program with the limit that was reached.
#ifndef OST_PUBLIC_SYNCWAITQ_H
#define OST_PUBLIC_SYNCWAITQ_H

#include <atomic>
#include <cstdint>

struct SyncWaitQ {
  bool initialized = false;
  bool usesEventFd = false;
  std::atomic<bool> waiters = false;   // somebody may wait
  std::atomic<uint64_t> sequence = 0;  // how many wake-ups there were
  char *pathName = nullptr;            // owned; null for a queue of one process
  std::atomic<uint64_t> handles = 0;   // the eventfd, or both ends of a pipe, in one word
};

// Makes a queue of what `queue` holds, whatever that is.
//
// path  what the names of its FIFOs begin with, or null for a queue of one process; an empty one stops the
// program
//
// Returns false, with errno, when the system has no descriptor for it.
bool SyncWaitQ_Init(SyncWaitQ *queue, const char *path);
// Closes what the queue holds, and deletes a named queue's FIFO. Nobody may wait in it. A queue that isn't
// initialised is left alone.
void SyncWaitQ_Destroy(SyncWaitQ *queue);

// Enters the queue. Returns a descriptor that becomes readable at the next wake-up, for SyncWaitQ_Remove, or
// -1 with errno; it may be readable at once.
int SyncWaitQ_Add(SyncWaitQ *queue);
// Leaves the queue: closes what SyncWaitQ_Add gave. Returns false when that fails or the queue isn't
// initialised.
bool SyncWaitQ_Remove(SyncWaitQ *queue, int fd);
// Wakes all that have entered so far. Without any it makes no system call. Returns false, mostly with a
// warning, when they can't be woken.
bool SyncWaitQ_WakeUp(SyncWaitQ *queue);

#endif
