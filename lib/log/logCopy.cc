// What the log's file holds, brought to another file.
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>

#include "err.h"
#include "logInt.h"
#include "msg.h"
#include "posixPosix.h"

namespace {

constexpr size_t kCopyBlock = 16384;
constexpr struct timespec kReaderTimeout { 1, 0 };

// Whether a pipe or a terminal that took no more takes something again, for its reader may only be slow.
// Signals wait, so that the time is the same however many come. False with the errno of what it didn't take.
bool LogWaitForReader(int fd) {
  struct pollfd waiting {
    fd, POLLOUT, 0
  };
  sigset_t signals;
  sigfillset(&signals);
  return errno == EAGAIN && ppoll(&waiting, 1, &kReaderTimeout, &signals) == 1;
}

// False with errno.
bool LogWriteAll(int fd, const char *data, size_t size) {
  while (size > 0) {
    const ssize_t written = write(fd, data, size);
    if (written == -1 && !LogWaitForReader(fd)) {
      return false;
    }
    const auto taken = static_cast<size_t>(std::max<ssize_t>(written, 0));
    data += taken;
    size -= taken;
  }
  return true;
}

// Copies what is left to read. False with errno.
bool LogCopyRest(int source, int destination) {
  char block[kCopyBlock];
  ssize_t size = 0;
  while ((size = read(source, block, sizeof block)) > 0) {
    if (!LogWriteAll(destination, block, static_cast<size_t>(size))) {
      return false;
    }
  }
  return size == 0;
}

void LogAppendSeekFailed(const char *fileName, int errorNumber) {
  Msg_Append(MSGID(log.copyLseekFailed) "Cannot seek to start of file '%s': %s\n", fileName,
             Err_Errno2String(errorNumber));
}

// Copies the state's file into another one, whose name is `path`. False with a message.
bool LogCopy(const LogState *state, int destination, const char *path) {
  if (!state->append && ftruncate(destination, 0) == -1) {
    Msg_Append(MSGID(log.copyFtruncateFailed) "Cannot truncate the log file '%s': %s\n", path,
               Err_ErrString());
    return false;
  }
  if (lseek(state->fd, 0, SEEK_SET) == -1) {
    LogAppendSeekFailed(state->fileName, errno);
    return false;
  }
  if (!LogCopyRest(state->fd, destination)) {
    Msg_Append(MSGID(log.copyWriteFailed) "A write error occurred when copying data to '%s': %s\n", path,
               Err_ErrString());
    return false;
  }
  return true;
}

// --- One file or two

bool LogSameSize(int fd1, int fd2) {
  struct stat data1 {};
  struct stat data2 {};
  return fstat(fd1, &data1) == 0 && fstat(fd2, &data2) == 0 && data1.st_size == data2.st_size;
}

bool LogSameOpenFile(int fd1, int fd2) {
  struct stat data1 {};
  struct stat data2 {};
  return fstat(fd1, &data1) == 0 && fstat(fd2, &data2) == 0 && LogSameInode(data1, data2);
}

// Whether a byte more in one is a byte more in the other: device and inode may differ where one file is seen
// through two mounts. A full disk, which takes no byte, leaves only those to tell by.
bool LogIsSameFile(int fd, int other) {
  if (!LogSameSize(fd, other)) {
    return false;
  }
  if (write(fd, "\n", 1) != 1) {
    return LogSameOpenFile(fd, other);
  }
  const bool same = LogSameSize(fd, other);
  struct stat data {};
  if (fstat(fd, &data) == 0) {
    [[maybe_unused]] const int result = ftruncate(fd, data.st_size - 1);
  }
  return same;
}

}  // namespace

bool LogMoveContent(LogState *state, int fd, const char *name) {
  if (LogIsSameFile(state->fd, fd)) {
    close(fd);
    return true;
  }
  if (!LogCopy(state, fd, name)) {
    close(fd);
    if (Posix_Unlink(name) == -1) {
      Msg_Append(MSGID(log.switchUnlinkFailed) "Failed to remove the log file '%s': %s\n", name,
                 Err_ErrString());
    }
    return false;
  }
  const bool isOwn = LogOwnsName(state);
  LogReplaceFd(state, fd);
  if (isOwn && Posix_Unlink(state->fileName) == -1) {
    // The log's name is the old file's still: no next file begins under it.
    state->rotating = true;
    Warning("Failed to unlink log file '%s': %s\n", state->fileName, Err_ErrString());
    state->rotating = false;
  }
  return true;
}

bool Log_CopyFile(const char *destination) {
  LogState *state = &logState;
  const LogLock lock(state);
  if (!LogHasFile(state)) {
    // Known before a destination is emptied.
    LogAppendSeekFailed("", EBADF);
    return false;
  }
  const int fd = LogOpen(destination);
  if (fd == -1) {
    return false;
  }
  const bool copied = LogSameOpenFile(state->fd, fd) || LogCopy(state, fd, destination);
  close(fd);
  return copied;
}
