// The log's file: opening, changing and removing it.
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

void LogAppendIsLink(const char *path) {
  Msg_Append(MSGID(log.openIsLink) "Log file '%s' is a symbolic link.\n", path);
}

bool LogIsLink(const char *path) {
  struct stat named {};
  return Posix_Lstat(path, &named) == 0 && S_ISLNK(named.st_mode);
}

// Appends why a path wasn't opened.
void LogAppendOpenFailed(const char *path, int errorNumber) {
  if (errorNumber == ELOOP && LogIsLink(path)) {
    LogAppendIsLink(path);
  } else {
    Msg_Append(MSGID(log.openFailed) "Cannot open or create the log file '%s': %s\n", path,
               Err_Errno2String(errorNumber));
  }
}

// Whether the open descriptor is the file that the path names, and no link took its place. False with a
// message.
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
    LogAppendIsLink(path);
    return false;
  }
  if (!LogSameInode(opened, named)) {
    Msg_Append(MSGID(log.openChanged) "Log file '%s' has changed.\n", path);
    return false;
  }
  return true;
}

// Whether a path names a plain file, or nothing yet. A link, a directory or a device isn't the log's to
// rename, to empty or to delete.
bool LogMayReplace(const char *path) {
  struct stat named {};
  return Posix_Lstat(path, &named) == -1 || S_ISREG(named.st_mode);
}

// Whether a path leads to the state's file. It need not be the path that the state knows.
bool LogIsOwnFile(const LogState *state, const char *path) {
  struct stat opened {};
  struct stat named {};
  return LogHasFile(state) && fstat(state->fd, &opened) == 0 && Posix_Stat(path, &named) == 0 &&
         LogSameInode(opened, named);
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

char *LogCopyDir(LogState *state) {
  const LogLock lock(state);
  return Util_SafeStrdup(state->dir);
}

// A new string (free). Found without the log's lock, since the search for the temporary directory logs under
// a lock of its own.
//
// temporary  gets whether it is in the temporary directory
char *LogFindName(LogState *state, const char *fileName, const char *config, bool *temporary) {
  *temporary = false;
  if (fileName != nullptr) {
    return Util_SafeStrdup(fileName);
  }
  char *configured = config == nullptr ? nullptr : Config_GetPathName(nullptr, "%s", config);
  if (configured != nullptr) {
    return configured;
  }
  const char *suffix = state->suffix == nullptr ? "" : state->suffix;
  const OwnedString dir(LogCopyDir(state));
  if (dir != nullptr) {
    return Str_SafeAsprintf(nullptr, "%s%s%s%s.log", dir.get(), "/ostrel", suffix[0] == '\0' ? "" : "-",
                            suffix);
  }
  *temporary = true;
  return LogTempName(suffix);
}

// --- Changing the file

void LogStartFile(LogState *state, int fd, bool anew) {
  if (state->fd != -1) {
    // Of a log that has ended, or a device.
    close(state->fd);
  }
  state->fd = fd;
  if (anew) {
    [[maybe_unused]] const int result = ftruncate(fd, 0);
  }
  state->bannerWritten = false;
}

// False with messages.
bool LogSwitch(LogState *state, const char *name, bool copy) {
  const int fd = LogOpen(name);
  if (fd == -1) {
    return false;
  }
  // A device doesn't give back what it had.
  if (!LogHasFile(state) || (copy && LogIsDevice(state->fd))) {
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
  const bool mayCopy = copy && LogMayReplace(name);
  const bool anew = mayCopy && !state->append;
  // A number for the log's own file, under whatever name, would take the file away from the log.
  if (anew && !temporary && state->keepOld > 0 && !LogIsOwnFile(state, name)) {
    LogBackupByRenumber(name, state->keepOld, state->fastRotation);
  }
  const bool renamed =
      anew && LogHasFile(state) && LogOwnsName(state) && Posix_Rename(state->fileName, name) == 0;
  return renamed || LogSwitch(state, name, mayCopy);
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
  // Opening what a link leads to would already make a file there. A terminal isn't to become the program's
  // own, which ends with it.
  const int fd = Posix_Open(path, O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY, 0644);
  if (fd == -1) {
    LogAppendOpenFailed(path, errno);
    return -1;
  }
  if (!LogIsPlainFile(fd, path)) {
    close(fd);
    return -1;
  }
  if (LogIsDevice(fd)) {
    // A pipe or a terminal that nobody reads from doesn't stop the work.
    fcntl(fd, F_SETFL, O_APPEND | O_NONBLOCK);
  }
  return fd;
}

void LogReplaceFd(LogState *state, int fd) {
  // The numbers are one where something else has closed the log's.
  if (fd != state->fd) {
    dup3(fd, state->fd, O_CLOEXEC);
    close(fd);
  }
}

bool LogHasFile(const LogState *state) {
  return state->fileName != nullptr && state->fd != -1;
}

bool LogIsDevice(int fd) {
  struct stat data {};
  return fstat(fd, &data) == 0 && !S_ISREG(data.st_mode);
}

bool LogOwnsName(const LogState *state) {
  struct stat opened {};
  struct stat named {};
  if (fstat(state->fd, &opened) == -1) {
    return LogMayReplace(state->fileName);
  }
  return S_ISREG(opened.st_mode) &&
         (Posix_Lstat(state->fileName, &named) == -1 || LogSameInode(opened, named));
}

bool LogSameInode(const struct stat &file1, const struct stat &file2) {
  return file1.st_dev == file2.st_dev && file1.st_ino == file2.st_ino;
}

void LogAppendSwitchFailed(const char *fileName) {
  Msg_Append(MSGID(log.switchFailed) "Unable to open the log file \"%s\". Make sure that the path specified "
                                     "for the log file is valid, and that you have write privileges in this "
                                     "directory.\n",
             fileName);
}

bool LogSetFile(LogState *state, const char *fileName, const char *config, bool copy) {
  if (!state->enable) {
    return true;
  }
  bool temporary = false;
  OwnedString name(LogFindName(state, fileName, config, &temporary));
  const LogLock lock(state);
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
  const bool isDevice = LogIsDevice(state->fd);
  const bool isOwn = LogOwnsName(state);
  close(state->fd);
  state->fd = -1;
  const bool removed = isDevice || (isOwn && Posix_Unlink(state->fileName) == 0);
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
  return LogCopyDir(&logState);
}
