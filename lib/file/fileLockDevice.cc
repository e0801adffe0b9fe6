#include <fcntl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "err.h"
#include "fileLock.h"
#include "fileLockInt.h"
#include "idLinux.h"
#include "log.h"
#include "owned.h"
#include "panicUser.h"
#include "posixPosix.h"
#include "str.h"

namespace {

constexpr char kDirectory[] = "/var/lock";
constexpr mode_t kTemporaryMode = 0444;
constexpr mode_t kLockFileMode = 0644;
constexpr size_t kLineSize = 1000;

// File systems by the numbers that statfs gives them, and whether a link is made there at once for all hosts.
constexpr uint32_t kLinkingTypes[] = {0xEF53,     0xADFF,     0xEF51,     0x6969,    0x482B,
                                      0x137D,     0x12FF7B4,  0x12FF7B5,  0x12FF7B6, 0x12FF7B7,
                                      0x3153464A, 0x52654973, 0x58465342, 0x11954,   0x1021994};
constexpr uint32_t kNonLinkingTypes[] = {0x517B, 0x4D44, 0x2FABF15E};

// What an attempt to place the lock file came to, and what a look at the one that is there.
enum class Attempt { kLocked, kExists, kFailed };
enum class Holder { kAlive, kGone, kUnknown };

std::string LockFilePath(const char *deviceName) {
  const OwnedString path(Str_SafeAsprintf(nullptr, "%s/LCK..%s", kDirectory, deviceName));
  return path.get();
}

std::string TemporaryPath(const char *deviceName) {
  const OwnedString path(
      Str_SafeAsprintf(nullptr, "%s/LTMP..%s.t%05d", kDirectory, deviceName, FileLockGetPid()));
  return path.get();
}

// Calls as root, where the process may. The call gives -1 with errno when it fails. Returns an error number,
// or 0.
template <typename Call>
int AsSuperUser(const Call &call) {
  const uid_t user = Id_BeginSuperUser();
  const int error = call() == -1 ? errno : 0;
  Id_EndSuperUser(user);
  return error;
}

int UnlinkAsSuperUser(const std::string &path) {
  return AsSuperUser([&path] { return Posix_Unlink(path.c_str()); });
}

// Whether the lock file's file system makes links in one step. A lock file that isn't there yet tells
// nothing, and the answer is no; this is wanted.
bool CanLink(const std::string &lockPath) {
  struct statfs data;
  if (Posix_Statfs(lockPath.c_str(), &data) == -1) {
    Log("FILE: Bad statfs using %s (%s).\n", lockPath.c_str(), Err_ErrString());
    return false;
  }
  const auto type = static_cast<uint32_t>(data.f_type);
  const auto isType = [type](uint32_t known) { return known == type; };
  if (std::any_of(std::begin(kLinkingTypes), std::end(kLinkingTypes), isType)) {
    return true;
  }
  if (std::none_of(std::begin(kNonLinkingTypes), std::end(kNonLinkingTypes), isType)) {
    Warning("FILE: Unknown filesystem 0x%x. Using non-linking locking.\n", type);
  }
  return false;
}

// Writes who holds the lock, and closes. Returns an error number, or 0.
int WriteHolder(int fd) {
  char line[kLineSize];
  Str_Snprintf(line, sizeof line, "%d %s\n", FileLockGetPid(), FileLockGetMachineID());
  const auto length = static_cast<ssize_t>(strlen(line));
  const ssize_t written = write(fd, line, static_cast<size_t>(length));
  int error = written == length ? 0 : EIO;
  if (written == -1) {
    error = errno;
  }
  if (close(fd) == -1 && error == 0) {
    error = errno;
  }
  return error;
}

// Makes a file that tells who holds the lock. When that fails half-way no file stays.
Attempt CreateHolderFile(const std::string &path, mode_t mode) {
  int fd = -1;
  const int openError =
      AsSuperUser([&] { return fd = Posix_Open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY, mode); });
  if (openError != 0) {
    Log("FILE: Failed to create new lock file %s (%s).\n", path.c_str(), Err_Errno2String(openError));
    return openError == EEXIST ? Attempt::kExists : Attempt::kFailed;
  }
  const int writeError = WriteHolder(fd);
  if (writeError != 0) {
    Warning("FILE: Failed to write to new lock file %s (%s).\n", path.c_str(), Err_Errno2String(writeError));
    UnlinkAsSuperUser(path);
    return Attempt::kFailed;
  }
  return Attempt::kLocked;
}

// Writes a file aside and links it to the lock file's name, so that nobody sees half a lock file.
Attempt PlaceByLinking(const std::string &lockPath, const std::string &temporaryPath) {
  const Attempt created = CreateHolderFile(temporaryPath, kTemporaryMode);
  if (created != Attempt::kLocked) {
    return created;
  }
  const int linkError = AsSuperUser([&] { return Posix_Link(temporaryPath.c_str(), lockPath.c_str()); });
  const int unlinkError = UnlinkAsSuperUser(temporaryPath);
  if (unlinkError != 0) {
    Log("FILE: Failed to remove temporary lock file %s (%s).\n", temporaryPath.c_str(),
        Err_Errno2String(unlinkError));
  }
  if (linkError == 0) {
    return Attempt::kLocked;
  }
  return linkError == EEXIST ? Attempt::kExists : Attempt::kFailed;
}

// Whether the line of a lock file tells of a holder that must be taken for alive: one of this machine that
// runs, or any of another one.
bool TellsOfHolder(const std::string &lockPath, const char *line) {
  int pid = 0;
  char machineID[kLineSize];
  if (sscanf(line, "%d %999s", &pid, machineID) != 2) {
    Warning("FILE: Badly formatted lock file %s.\n", lockPath.c_str());
    return false;
  }
  return machineID != std::string_view(FileLockGetMachineID()) || FileLockIsValidProcess(pid);
}

bool IsLink(const std::string &path) {
  struct stat data;
  return Posix_Lstat(path.c_str(), &data) == 0 && S_ISLNK(data.st_mode);
}

// Removes a lock file that nobody holds any more.
Holder RemoveStaleLock(const std::string &lockPath) {
  Log("FILE: Found a previous instance of lock file '%s'. It will be removed automatically.\n",
      lockPath.c_str());
  const int error = UnlinkAsSuperUser(lockPath);
  if (error != 0) {
    Log("FILE: Failed to remove stale lock file %s (%s).\n", lockPath.c_str(), Err_Errno2String(error));
    return Holder::kUnknown;
  }
  return Holder::kGone;
}

// Looks who holds the lock file that is there, and removes it when that is nobody.
Holder ExamineLockFile(const std::string &lockPath) {
  const int fd = FileLockOpen(lockPath);
  if (fd == -1) {
    const int error = errno;
    Warning("FILE: Failed to open existing lock file %s (%s).\n", lockPath.c_str(), Err_Errno2String(error));
    if (error != ENOENT) {
      return Holder::kUnknown;
    }
    // A link that leads nowhere is in the way of a new lock file for ever.
    return IsLink(lockPath) ? RemoveStaleLock(lockPath) : Holder::kGone;
  }
  OwnedStream stream(fdopen(fd, "r"));
  ASSERT_MEM_ALLOC(stream != nullptr);
  char line[kLineSize];
  errno = 0;
  if (fgets(line, sizeof line, stream.get()) == nullptr) {
    Warning("FILE: Failed to read line from lock file %s (%s).\n", lockPath.c_str(), Err_ErrString());
  } else if (TellsOfHolder(lockPath, line)) {
    return Holder::kAlive;
  }
  stream.reset();
  return RemoveStaleLock(lockPath);
}

}  // namespace

int FileLock_LockDevice(const char *deviceName) {
  ASSERT(deviceName != nullptr);
  const std::string lockPath = LockFilePath(deviceName);
  for (;;) {
    const Attempt attempt = CanLink(lockPath) ? PlaceByLinking(lockPath, TemporaryPath(deviceName))
                                              : CreateHolderFile(lockPath, kLockFileMode);
    if (attempt != Attempt::kExists) {
      return attempt == Attempt::kLocked ? 1 : -1;
    }
    const Holder holder = ExamineLockFile(lockPath);
    if (holder != Holder::kGone) {
      return holder == Holder::kAlive ? 0 : -1;
    }
  }
}

bool FileLock_UnlockDevice(const char *deviceName) {
  ASSERT(deviceName != nullptr);
  const std::string lockPath = LockFilePath(deviceName);
  const int error = UnlinkAsSuperUser(lockPath);
  if (error != 0) {
    Log("FILE: Cannot remove lock file %s (%s).\n", lockPath.c_str(), Err_Errno2String(error));
  }
  return error == 0;
}
