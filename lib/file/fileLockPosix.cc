#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "file.h"
#include "fileLock.h"
#include "fileLockInt.h"
#include "idLinux.h"
#include "log.h"
#include "owned.h"
#include "panicUser.h"
#include "posixPosix.h"
#include "str.h"

namespace {

// The fields of a process's stat file between its name and its creation time.
constexpr int kFieldsBeforeCreation = 19;
constexpr uint32_t kFineSleep = 50;

// In whose name locks are taken; set by FileLock_Init, for the rest of the process.
struct {
  pid_t pid;  // below 1 for the calling process
  bool flag;
} effective;

// Takes the number that a text begins with, as scanf would: behind blanks and with a sign. Each member of a
// lock costs three of these.
bool ScanNumber(const char *text, uint64_t *value) {
  char *end = nullptr;
  *value = strtoul(text, &end, 10);
  return end != text;
}

// The text of a process's stat file, cut if it is longer than any is; empty when it can't be read.
std::string ReadProcessStat(pid_t pid) {
  char path[32];
  Str_Snprintf(path, sizeof path, "/proc/%d/stat", pid);
  const int fd = Posix_Open(path, O_RDONLY);
  if (fd == -1) {
    return {};
  }
  char text[1023];
  const ssize_t length = read(fd, text, sizeof text);
  close(fd);
  return {text, length > 0 ? static_cast<size_t>(length) : 0};
}

// The path whose lock directory is meant, or null. The name itself is left as it is: a link has a lock of its
// own, and a file that is yet to be made has the one that it will have then.
OwnedString NormalizePath(const char *path) {
  const std::string_view whole = path;
  const size_t split = whole.rfind('/') + 1;
  const std::string base(whole.substr(split));
  if (base.empty() || base == "." || base == "..") {
    return OwnedString(File_FullPath(path));
  }
  const std::string parent(whole.substr(0, split > 1 ? split - 1 : split));
  const OwnedString directory(File_FullPath(parent.c_str()));
  return OwnedString(directory == nullptr ? nullptr : File_PathJoin(directory.get(), base.c_str()));
}

}  // namespace

pid_t FileLockGetPid() {
  return effective.pid < 1 ? getpid() : effective.pid;
}

bool FileLockIsValidProcess(pid_t pid) {
  const uid_t user = Id_BeginSuperUser();
  const int error = kill(pid, 0) == -1 ? errno : 0;
  Id_EndSuperUser(user);
  if (error != 0 && error != EPERM && error != ESRCH) {
    Log("FILE: %s Unexpected errno (%d), assuming valid.\n", __func__, error);
  }
  return error != ESRCH;
}

std::string FileLockGetExecutionID() {
  char text[16];
  Str_Snprintf(text, sizeof text, "%d", FileLockGetPid());
  return text;
}

bool FileLockValidOwner(const char *executionID, const char *payload) {
  uint64_t pid = 0;
  if (!ScanNumber(executionID, &pid)) {
    Warning("FILE: %s pid conversion error on %s. Assuming valid.\n", __func__, executionID);
    return true;
  }
  if (!FileLockIsValidProcess(static_cast<pid_t>(pid))) {
    return false;
  }
  if (payload[0] == '\0') {
    return true;
  }
  uint64_t stored = 0;
  if (!ScanNumber(payload, &stored)) {
    Warning("FILE: %s payload conversion error on %s. Assuming valid.\n", __func__, payload);
    return true;
  }
  const uint64_t current = ProcessCreationTime(static_cast<pid_t>(pid));
  return stored == 0 || current == 0 || stored == current;
}

uint64_t ProcessCreationTime(pid_t pid) {
  const std::string text = ReadProcessStat(pid);
  return text.empty() ? 0 : CreationTimeInStat(text);
}

uint64_t CreationTimeInStat(const std::string &text) {
  // The name before it may hold anything, blanks and brackets too.
  const auto *bracket = static_cast<const char *>(memrchr(text.data(), ')', text.size()));
  size_t position = bracket == nullptr ? std::string::npos : static_cast<size_t>(bracket - text.data());
  for (int field = 0; field <= kFieldsBeforeCreation && position != std::string::npos; field++) {
    position = text.find(' ', position + 1);
  }
  std::string field;
  if (position != std::string::npos) {
    field = text.substr(position + 1, text.find(' ', position + 1) - position - 1);
  }
  uint64_t time = 0;
  if (!ScanNumber(field.c_str(), &time)) {
    Warning("FILE: %s creationTime conversion error on %s.\n", "ProcessCreationTime", field.c_str());
    return 0;
  }
  return time;
}

void FileSleeper(uint32_t msec) {
  static std::atomic<uint32_t> seed;
  uint32_t next = seed.load(std::memory_order_relaxed);
  next = next * 1103515245 + 12345;
  seed.store(next, std::memory_order_relaxed);
  usleep((msec + (next & (msec >= kFineSleep ? 3U : 1U))) * 1000);
}

void *FileLock_Lock(const char *filePath, bool readOnly, uint32_t msecMaxWaitTime, int *err) {
  ASSERT(filePath != nullptr);
  ASSERT(err != nullptr);
  const OwnedString path = NormalizePath(filePath);
  if (path == nullptr) {
    *err = EINVAL;
    return nullptr;
  }
  char payload[32];
  Str_Snprintf(payload, sizeof payload, "%lu", ProcessCreationTime(FileLockGetPid()));
  return FileLockIntrinsic(path.get(), !readOnly, msecMaxWaitTime, payload, err);
}

int FileLock_Unlock(const char *filePath, void *token) {
  ASSERT(filePath != nullptr);
  ASSERT(token != nullptr);
  const bool isKnown = NormalizePath(filePath) != nullptr;
  const int error = FileUnlockIntrinsic(token);
  return isKnown ? error : EINVAL;
}

bool FileLock_IsLocked(const char *filePath, int *err) {
  ASSERT(filePath != nullptr);
  const OwnedString path = NormalizePath(filePath);
  int error = EINVAL;
  const bool locked = path != nullptr && FileLockIsLocked(path.get(), &error);
  if (err != nullptr) {
    *err = error;
  }
  return locked;
}

int FileLock_DeleteIfSoleOwner(const char *filePath) {
  ASSERT(filePath != nullptr);
  const OwnedString path = NormalizePath(filePath);
  return path == nullptr ? EINVAL : FileLockHackOST(path.get());
}

void FileLock_Init(pid_t pid, bool flag) {
  effective = {pid, flag};
}
