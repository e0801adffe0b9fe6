#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "err.h"
#include "escape.h"
#include "idLinux.h"
#include "log.h"
#include "msg.h"
#include "owned.h"
#include "posixPosix.h"
#include "str.h"
#include "util.h"

namespace {

constexpr size_t kStatusSize = 129;
constexpr rlim_t kWantedFds = 2048;

// ---- Directories

// Makes the directory unless it is there. False with a message.
bool UtilMakeDirectory(const char *path, mode_t mode) {
  struct stat data {};
  if (Posix_Stat(path, &data) == -1) {
    if (Posix_Mkdir(path, mode) == 0) {
      return true;
    }
    const int error = errno;
    // Somebody else may have been quicker.
    if (Posix_Stat(path, &data) == -1) {
      Msg_Append(MSGID(util.msde.mkdir) "Cannot create directory \"%s\": %s.\n", path,
                 Err_Errno2String(error));
      return false;
    }
  }
  if (!S_ISDIR(data.st_mode)) {
    Msg_Append(MSGID(util.msde.notDir) "The path \"%s\" exists, but it is not a directory.\n", path);
    return false;
  }
  return true;
}

// ---- Processes

// Reads the beginning of a file into a text. False with a line in the log.
bool UtilReadStatus(const char *caller, const char *path, char (&text)[kStatusSize + 1]) {
  const int fd = Posix_Open(path, O_RDONLY | O_CLOEXEC);
  if (fd == -1) {
    Log("%s: Error: cannot open %s\n", caller, path);
    return false;
  }
  const ssize_t size = read(fd, text, kStatusSize);
  close(fd);
  if (size == -1) {
    Log("%s: Error: could not read %s\n", caller, path);
    return false;
  }
  text[size] = '\0';
  return true;
}

// ---- Limits

bool UtilSetFds(rlim_t soft, rlim_t hard) {
  const struct rlimit limit { soft, hard };
  return setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

bool UtilSetFdsAsRoot(rlim_t soft, rlim_t hard) {
  const uid_t user = Id_BeginSuperUser();
  const bool isSet = UtilSetFds(soft, hard);
  Id_EndSuperUser(user);
  return isSet;
}

// Raises the limits to what is wanted, or as far as they go. False with errno.
bool UtilRaiseFds(const struct rlimit &old) {
  const rlim_t hard = std::max(old.rlim_max, kWantedFds);
  if (UtilSetFds(kWantedFds, hard)) {
    return true;
  }
  const bool mayHelp = old.rlim_max < kWantedFds || errno == EPERM;
  return (mayHelp && UtilSetFdsAsRoot(kWantedFds, hard)) || UtilSetFds(old.rlim_max, old.rlim_max);
}

}  // namespace

bool Util_MakeSureDirExistsAndAccessible(const char *path, mode_t mode) {
  const OwnedString expanded(Util_ExpandString(path));
  if (expanded == nullptr || !UtilMakeDirectory(expanded.get(), mode)) {
    return false;
  }
  if (Posix_Access(expanded.get(), R_OK | W_OK | X_OK) == -1) {
    Msg_Append(MSGID(util.msde.noAccess) "Directory \"%s\" is not accessible: %s.\n", expanded.get(),
               Err_ErrString());
    return false;
  }
  return true;
}

bool Util_GetProcessName(pid_t pid, char *buffer, size_t bufferSize) {
  char path[32];
  Str_Snprintf(path, sizeof path, "/proc/%d/status", pid);
  char text[kStatusSize + 1];
  if (!UtilReadStatus(__func__, path, text)) {
    return false;
  }
  char name[kStatusSize];
  // A conversion to a text of a stated size. NOLINTNEXTLINE(cert-err34-c)
  if (sscanf(text, "Name:   %128[^\n]\n", name) != 1) {
    Log("%s: Error, could not parse contents of %s\n", __func__, path);
    return false;
  }
  Escape_UnescapeCString(name);
  const size_t length = strlen(name);
  if (length >= bufferSize) {
    Log("%s: Error, process name (%zu bytes) is larger than output buffer\n", __func__, length);
    return false;
  }
  memcpy(buffer, name, length + 1);
  return true;
}

int Util_BumpNoFds(uint32_t *outCurrent, uint32_t *outWanted) {
  struct rlimit limit {};
  const bool isKnown = getrlimit(RLIMIT_NOFILE, &limit) == 0;
  const auto current = static_cast<uint32_t>(std::min<rlim_t>(limit.rlim_cur, UINT32_MAX));
  if (outCurrent != nullptr) {
    *outCurrent = current;
  }
  if (outWanted != nullptr) {
    *outWanted = kWantedFds;
  }
  if (isKnown && (limit.rlim_cur >= kWantedFds || UtilRaiseFds(limit))) {
    return 0;
  }
  const int error = errno;
  Log("UTIL: Failed to set number of fds at %u, was %u: %s (%d)\n", static_cast<uint32_t>(kWantedFds),
      current, Err_Errno2String(error), error);
  return error;
}
