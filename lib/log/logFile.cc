// The log's file: opening, changing, copying and removing it.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "config.h"
#include "err.h"
#include "logInt.h"
#include "msg.h"
#include "owned.h"
#include "panicUser.h"
#include "posixPosix.h"
#include "str.h"
#include "url.h"
#include "util.h"
#include "util_misc.h"

namespace {

constexpr size_t kCopyBlock = 16384;

// --- Copying

// False with errno.
bool LogWriteAll(int fd, const char *data, size_t size) {
  while (size > 0) {
    const ssize_t written = write(fd, data, size);
    if (written == -1) {
      return false;
    }
    data += written;
    size -= static_cast<size_t>(written);
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

// --- Facts of files

// Whether the open descriptor is the file that the path names, and no link led to it. False with a message.
bool LogIsPlainFile(int fd, const char *path) {
  struct stat opened {};
  if (fstat(fd, &opened) == -1) {
    Msg_Append(MSGID(log.openFstatFailed) "Cannot fstat the file %s: '%s'\n", path, Err_ErrString());
    return false;
  }
  struct stat named {};
  if (Posix_Lstat(path, &named) == -1) {
    Msg_Append(MSGID(log.openLstatFailed) "Cannot stat the file %s: '%s'\n", path, Err_ErrString());
    return false;
  }
  if (S_ISLNK(named.st_mode)) {
    Msg_Append(MSGID(log.openIsLink) "Log file '%s' is a symbolic link.\n", path);
    return false;
  }
  if (opened.st_dev != named.st_dev || opened.st_ino != named.st_ino) {
    Msg_Append(MSGID(log.openChanged) "Log file '%s' has changed.\n", path);
    return false;
  }
  return true;
}

bool LogSameSize(int fd1, int fd2) {
  struct stat data1 {};
  struct stat data2 {};
  return fstat(fd1, &data1) == 0 && fstat(fd2, &data2) == 0 && data1.st_size == data2.st_size;
}

bool LogSameInode(int fd1, int fd2) {
  struct stat data1 {};
  struct stat data2 {};
  return fstat(fd1, &data1) == 0 && fstat(fd2, &data2) == 0 && data1.st_dev == data2.st_dev &&
         data1.st_ino == data2.st_ino;
}

// Whether a byte more in one is a byte more in the other: device and inode may differ where one file is seen
// through two mounts. A full disk, which takes no byte, leaves only those to tell by.
bool LogIsSameFile(int fd, int other) {
  if (!LogSameSize(fd, other)) {
    return false;
  }
  if (write(fd, "\n", 1) != 1) {
    return LogSameInode(fd, other);
  }
  const bool same = LogSameSize(fd, other);
  struct stat data {};
  if (fstat(fd, &data) == 0) {
    [[maybe_unused]] const int result = ftruncate(fd, data.st_size - 1);
  }
  return same;
}

// --- Names

// The log's name in the safe temporary directory, a new string (free). Without it the program can't run.
char *LogTempName(const char *suffix) {
  const OwnedString directory(Util_GetSafeTmpDir(true));
  if (directory == nullptr) {
    Panic("Cannot get temporary directory for log file.\n");
  }
  const OwnedString pattern(
      Str_SafeAsprintf(nullptr, "%s/%s%s$PID.log", directory.get(), suffix, suffix[0] == '\0' ? "" : "-"));
  char *name = Util_ExpandString(pattern.get());
  if (name == nullptr) {
    Msg_Reset(true);
    Panic("Cannot get log file name.\n");
  }
  return name;
}

// A new string (free).
//
// temporary  gets whether it is in the temporary directory
char *LogFindName(const LogState *state, const char *fileName, const char *config, bool *temporary) {
  *temporary = false;
  if (fileName != nullptr) {
    return Util_SafeStrdup(fileName);
  }
  char *configured = config == nullptr ? nullptr : Config_GetPathName(nullptr, "%s", config);
  if (configured != nullptr) {
    return configured;
  }
  const char *suffix = state->suffix == nullptr ? "" : state->suffix;
  if (state->dir != nullptr) {
    return Str_SafeAsprintf(nullptr, "%s%s%s%s.log", state->dir, "/ostrel", suffix[0] == '\0' ? "" : "-",
                            suffix);
  }
  *temporary = true;
  return LogTempName(suffix);
}

// --- Changing the file

bool LogHasFile(const LogState *state) {
  return state->fileName != nullptr && state->fd != -1;
}

void LogStartFile(LogState *state, int fd, bool anew) {
  if (state->fd != -1) {
    // Of a log that has ended.
    close(state->fd);
  }
  state->fd = fd;
  if (anew) {
    [[maybe_unused]] const int result = ftruncate(fd, 0);
  }
  state->bannerWritten = false;
}

// Goes on in a new file behind a copy of the old one, which is deleted. The new one is deleted when that
// fails, with messages.
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
  LogReplaceFd(state, fd);
  if (Posix_Unlink(state->fileName) == -1) {
    Warning("Failed to unlink log file '%s': %s\n", state->fileName, Err_ErrString());
  }
  return true;
}

// False with messages.
bool LogSwitch(LogState *state, const char *name, bool copy) {
  const int fd = LogOpen(name);
  if (fd == -1) {
    return false;
  }
  if (!LogHasFile(state)) {
    LogStartFile(state, fd, copy && !state->append);
    return true;
  }
  if (copy) {
    return LogMoveContent(state, fd, name);
  }
  LogReplaceFd(state, fd);
  return true;
}

// Makes the file the log's own under a name. False with messages.
bool LogGoTo(LogState *state, const char *name, bool temporary, bool copy) {
  if (state->fileName != nullptr && strcmp(name, state->fileName) == 0) {
    return true;
  }
  const bool anew = copy && !state->append;
  if (anew && !temporary && state->keepOld > 0) {
    LogBackupByRenumber(name, state->keepOld, state->fastRotation);
  }
  const bool renamed = anew && LogHasFile(state) && Posix_Rename(state->fileName, name) == 0;
  return renamed || LogSwitch(state, name, copy);
}

// `name` becomes the state's.
void LogTakeName(LogState *state, char *name, bool temporary) {
  free(state->fileName);
  state->fileName = name;
  if (state == &logState) {
    URL_SetAppend(URL_APPEND_LOG, name);
  }
  state->fileIsTemp = temporary;
  struct stat data {};
  if (fstat(state->fd, &data) == -1) {
    Log("LOG fstat failed: %s\n", Err_ErrString());
  }
  state->fileSize = static_cast<uint64_t>(data.st_size);
}

// Whether Log_RemoveFile leaves the file alone.
bool LogIsKept(const LogState *state) {
  return state->keepAlways || state->keep > 0 || (state->keep != 0 && !state->fileIsTemp);
}

}  // namespace

int LogOpen(const char *path) {
  const int fd = Posix_Open(path, O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (fd == -1) {
    Msg_Append(MSGID(log.openFailed) "Cannot open or create the log file '%s': %s\n", path, Err_ErrString());
    return -1;
  }
  if (!LogIsPlainFile(fd, path)) {
    close(fd);
    return -1;
  }
  return fd;
}

void LogReplaceFd(LogState *state, int fd) {
  dup3(fd, state->fd, O_CLOEXEC);
  close(fd);
}

void LogAppendSwitchFailed(const char *fileName) {
  Msg_Append(MSGID(log.switchFailed) "Unable to open the log file \"%s\". Make sure that the path specified "
                                     "for the log file is valid, and that you have write privileges in this "
                                     "directory.\n",
             fileName);
}

bool LogSetFile(LogState *state, const char *fileName, const char *config, bool copy) {
  const LogLock lock(state);
  if (!state->enable) {
    return true;
  }
  bool temporary = false;
  OwnedString name(LogFindName(state, fileName, config, &temporary));
  if (!LogGoTo(state, name.get(), temporary, copy)) {
    LogAppendSwitchFailed(name.get());
    if (LogHasFile(state)) {
      Msg_Append(MSGID(log.switchFailedHasOldFile) "The current log file is still '%s'.\n", state->fileName);
    }
    return false;
  }
  LogTakeName(state, name.release(), temporary);
  return true;
}

bool Log_SetFile(const char *fileName, const char *config, bool copy) {
  return LogSetFile(&logState, fileName, config, copy);
}

const char *Log_GetFileName() {
  const LogLock lock(&logState);
  return logState.fileName;
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
  const bool copied = LogSameInode(state->fd, fd) || LogCopy(state, fd, destination);
  close(fd);
  return copied;
}

bool Log_RemoveFile(bool force) {
  LogState *state = &logState;
  const LogLock lock(state);
  if (!state->initialized) {
    Log("LOG trying to remove log file when not initialized.\n");
    return true;
  }
  if (state->fileName == nullptr || (!force && LogIsKept(state))) {
    return true;
  }
  Log("LOG removing %s.\n", state->fileName);
  close(state->fd);
  state->fd = -1;
  const bool removed = Posix_Unlink(state->fileName) == 0;
  free(state->fileName);
  state->fileName = nullptr;
  return removed;
}

void Log_SetDir(const char *dir) {
  LogState *state = &logState;
  const LogLock lock(state);
  free(state->dir);
  state->dir = Util_SafeStrdup(dir);
}

char *Log_GetDir() {
  const LogLock lock(&logState);
  return Util_SafeStrdup(logState.dir);
}
