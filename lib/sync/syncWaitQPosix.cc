#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>

#include "err.h"
#include "eventfdInt.h"
#include "log.h"
#include "owned.h"
#include "panicUser.h"
#include "posixPosix.h"
#include "str.h"
#include "syncWaitQ.h"
#include "util_misc.h"

namespace {

constexpr mode_t kFifoMode = 0600;
constexpr char kWakeUpByte = 'X';
constexpr int kEventFdFlags = O_NONBLOCK | O_CLOEXEC;

// What a queue of one process waits on. An eventfd is both ends in one.
struct Handles {
  int read;
  int write;
};

uint64_t Pack(Handles handles) {
  return static_cast<uint64_t>(static_cast<uint32_t>(handles.write)) << 32U |
         static_cast<uint32_t>(handles.read);
}

Handles Unpack(uint64_t word) {
  return {static_cast<int>(static_cast<uint32_t>(word)),
          static_cast<int>(static_cast<uint32_t>(word >> 32U))};
}

// How much was written, and why no more.
struct Written {
  ssize_t length;
  int error;
};

Written WriteByte(int fd) {
  const ssize_t length = write(fd, &kWakeUpByte, 1);
  return {length, errno};
}

// Stops the program where errno says that descriptors have run out.
void SyncWaitQPanicOnFdLimit(int error) {
  if (error == ENFILE) {
    Panic("%s: The system limit on the total number of open files has been reached.\n", __func__);
  }
  if (error == EMFILE) {
    Panic("%s: Too many file descriptors are in use by the process.\n", __func__);
  }
}

bool KernelHasNoEventFd(int error) {
  return error == ENOSYS || error == EINVAL;
}

// Returns false with errno.
bool SyncWaitQCreateNonBlockingPipe(Handles *handles) {
  int ends[2];
  if (pipe(ends) == -1) {
    return false;
  }
  if (fcntl(ends[0], F_SETFL, O_NONBLOCK) == -1 || fcntl(ends[1], F_SETFL, O_WRONLY | O_NONBLOCK) == -1) {
    const int error = errno;
    close(ends[0]);
    close(ends[1]);
    Warning("%s: fcntl failed, %s (%d)\n", __func__, Err_Errno2String(error), error);
    errno = error;
    return false;
  }
  *handles = {ends[0], ends[1]};
  return true;
}

// Returns false with errno.
bool MakeEventFd(Handles *handles) {
  const int fd = sync_kernel::eventfd(0, kEventFdFlags);
  *handles = {fd, fd};
  return fd != -1;
}

// Returns false with errno.
bool InitHandles(SyncWaitQ *queue) {
  Handles handles;
  queue->usesEventFd = MakeEventFd(&handles);
  const bool made =
      queue->usesEventFd || (KernelHasNoEventFd(errno) && SyncWaitQCreateNonBlockingPipe(&handles));
  if (made) {
    queue->handles = Pack(handles);
  }
  return made;
}

OwnedString FifoName(const SyncWaitQ *queue, uint64_t sequence) {
  return OwnedString(
      Str_SafeAsprintf(nullptr, "%s.%lx", queue->pathName, static_cast<unsigned long>(sequence)));
}

// Opens the FIFO of one generation for waiting on it. Returns -1 with errno.
int OpenFifo(const char *name) {
  if (Posix_Mkfifo(name, kFifoMode) == -1 && errno != EEXIST) {
    return -1;
  }
  return Posix_Open(name, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
}

// Another thread may wake the queue meanwhile, and close the handle or have it given out anew; the sequence
// then tells that the duplicate is worth nothing.
int DuplicateHandle(const SyncWaitQ *queue) {
  return fcntl(Unpack(queue->handles).read, F_DUPFD_CLOEXEC, 0);
}

// Opens what the waiters of one generation wait on. Returns -1 with errno.
int OpenGeneration(const SyncWaitQ *queue, uint64_t sequence) {
  const int fd =
      queue->pathName == nullptr ? DuplicateHandle(queue) : OpenFifo(FifoName(queue, sequence).get());
  if (fd == -1) {
    SyncWaitQPanicOnFdLimit(errno);
  }
  return fd;
}

// A pipe that is readable, now by its byte and for ever by its end. Returns -1 with errno.
int MakeReadablePipe() {
  Handles handles;
  if (!SyncWaitQCreateNonBlockingPipe(&handles)) {
    return -1;
  }
  WriteByte(handles.write);
  close(handles.write);
  return handles.read;
}

// A descriptor that is readable at once, or -1 with errno.
int MakeReadable() {
  int fd = sync_kernel::eventfd(1, kEventFdFlags);
  if (fd == -1 && KernelHasNoEventFd(errno)) {
    fd = MakeReadablePipe();
  }
  if (fd == -1) {
    SyncWaitQPanicOnFdLimit(errno);
  }
  return fd;
}

constexpr char kWakeUpAnon[] = "SyncWaitQWakeUpAnon";
constexpr char kWakeUpNamed[] = "SyncWaitQWakeUpNamed";

bool SignalEventFd(int fd) {
  const bool isSignalled = sync_kernel::eventfd_write(fd, 1) == 0;
  const int error = errno;
  close(fd);
  if (!isSignalled) {
    Warning("%s: eventfd_write failed, %s (%d)\n", kWakeUpAnon, Err_Errno2String(error), error);
  }
  return isSignalled;
}

bool SignalPipe(Handles handles) {
  const Written written = WriteByte(handles.write);
  close(handles.read);
  close(handles.write);
  if (written.length == -1) {
    Warning("%s: write to pipe failed, %s (%d)\n", kWakeUpAnon, Err_Errno2String(written.error),
            written.error);
  } else if (written.length != 1) {
    Warning("%s: write to pipe failed, %zd bytes written\n", kWakeUpAnon, written.length);
  }
  return written.length == 1;
}

// Warnings come last in a wake-up: they take the log's lock, which may be the one whose queue this is.
bool SyncWaitQWakeUpAnon(SyncWaitQ *queue) {
  Handles fresh;
  if (!(queue->usesEventFd ? MakeEventFd(&fresh) : SyncWaitQCreateNonBlockingPipe(&fresh))) {
    if (queue->usesEventFd && KernelHasNoEventFd(errno)) {
      NOT_REACHED();
    }
    SyncWaitQPanicOnFdLimit(errno);
    return false;
  }
  const Handles old = Unpack(queue->handles.exchange(Pack(fresh)));
  queue->sequence++;
  return queue->usesEventFd ? SignalEventFd(old.read) : SignalPipe(old);
}

// Writes to a FIFO whose readers may have gone, which is no reason to end the program by a signal.
Written WriteByteWithoutSignal(int fd) {
  sigset_t brokenPipe;
  sigset_t pending;
  sigset_t before;
  sigemptyset(&brokenPipe);
  sigaddset(&brokenPipe, SIGPIPE);
  sigpending(&pending);
  pthread_sigmask(SIG_BLOCK, &brokenPipe, &before);
  const Written written = WriteByte(fd);
  if (written.length == -1 && written.error == EPIPE && sigismember(&pending, SIGPIPE) == 0) {
    constexpr timespec kNow = {0, 0};
    sigtimedwait(&brokenPipe, nullptr, &kNow);
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return written;
}

bool SignalFifo(int fd) {
  const Written written = WriteByteWithoutSignal(fd);
  close(fd);
  if (written.length == 1 || (written.length == -1 && written.error == EPIPE)) {
    return true;
  }
  if (written.length == -1) {
    Warning("%s: write failed, %s (%d)\n", kWakeUpNamed, Err_Errno2String(written.error), written.error);
  } else {
    Warning("%s: write failed, %zd bytes written\n", kWakeUpNamed, written.length);
  }
  return false;
}

uint64_t NextGeneration(std::atomic<uint64_t> *sequence) {
  uint64_t old = *sequence;
  while (!sequence->compare_exchange_weak(old, old + 1)) {
  }
  return old;
}

// Wakes those who wait on the FIFO of one generation, which is over, and deletes it.
bool WakeFifo(const char *name) {
  const int fd = Posix_Open(name, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  const int error = errno;
  Posix_Unlink(name);
  if (fd != -1) {
    return SignalFifo(fd);
  }
  if (error == ENXIO || error == ENOENT) {
    return true;
  }
  SyncWaitQPanicOnFdLimit(error);
  Warning("%s: open failed, %s (%d)\n", kWakeUpNamed, Err_Errno2String(error), error);
  return false;
}

bool SyncWaitQWakeUpNamed(SyncWaitQ *queue) {
  return WakeFifo(FifoName(queue, NextGeneration(&queue->sequence)).get());
}

// Gives up what was opened for a generation that is over. Others may wait on its FIFO, and who ended it may
// come to open it only now: who deletes it wakes them.
void CloseGeneration(const SyncWaitQ *queue, uint64_t sequence, int fd) {
  if (fd != -1) {
    close(fd);
  }
  if (queue->pathName != nullptr) {
    WakeFifo(FifoName(queue, sequence).get());
  }
}

void DestroyHandles(const SyncWaitQ *queue) {
  const Handles handles = Unpack(queue->handles);
  if (queue->usesEventFd) {
    ASSERT(close(handles.read) == 0);
  } else {
    close(handles.read);
    close(handles.write);
  }
}

void DestroyName(SyncWaitQ *queue) {
  Posix_Unlink(FifoName(queue, queue->sequence).get());
  free(queue->pathName);
  queue->pathName = nullptr;
}

}  // namespace

bool SyncWaitQ_Init(SyncWaitQ *queue, const char *path) {
  ASSERT(path == nullptr || *path != '\0');
  queue->initialized = false;
  queue->usesEventFd = false;
  queue->waiters = false;
  queue->sequence = 0;
  queue->pathName = Util_SafeStrdup(path);
  queue->handles = 0;
  if (path == nullptr && !InitHandles(queue)) {
    SyncWaitQPanicOnFdLimit(errno);
    return false;
  }
  queue->initialized = true;
  return true;
}

void SyncWaitQ_Destroy(SyncWaitQ *queue) {
  if (!queue->initialized) {
    return;
  }
  queue->initialized = false;
  if (queue->pathName == nullptr) {
    DestroyHandles(queue);
  } else {
    DestroyName(queue);
  }
}

int SyncWaitQ_Add(SyncWaitQ *queue) {
  if (!queue->initialized) {
    errno = EINVAL;
    return -1;
  }
  queue->waiters = true;
  const uint64_t sequence = queue->sequence;
  const int fd = OpenGeneration(queue, sequence);
  if (queue->sequence == sequence) {
    // A wake-up that was under way may have cleared it and not come further.
    queue->waiters = true;
    return fd;
  }
  CloseGeneration(queue, sequence, fd);
  return MakeReadable();
}

bool SyncWaitQ_Remove(SyncWaitQ *queue, int fd) {
  return queue->initialized && close(fd) == 0;
}

bool SyncWaitQ_WakeUp(SyncWaitQ *queue) {
  if (!queue->waiters) {
    return true;
  }
  queue->waiters = false;
  return queue->pathName == nullptr ? SyncWaitQWakeUpAnon(queue) : SyncWaitQWakeUpNamed(queue);
}
