#include "tmpLogs.h"

#include <string_view>

#include "err.h"
#include "file.h"
#include "fileLock.h"
#include "log.h"
#include "owned.h"
#include "posixPosix.h"
#include "util.h"

namespace {

constexpr std::string_view kSuffix = ".log";
constexpr uint32_t kLockWait = 2500;  // milliseconds

bool IsLogOf(std::string_view name, std::string_view prefix) {
  return name.size() >= prefix.size() + kSuffix.size() && name.starts_with(prefix) && name.ends_with(kSuffix);
}

void DeleteLocked(const char *path) {
  int error = 0;
  void *lock = FileLock_Lock(path, false, kLockWait, &error);
  if (lock != nullptr) {
    Posix_Unlink(path);
    FileLock_Unlock(path, lock);
  } else if (error != 0) {
    Warning("%s lock failure on %s: %s\n", "CleanTmpLogs", path, Err_Errno2String(error));
  }
}

}  // namespace

void CleanTmpLogs(const std::string &prefix) {
  const OwnedString directory(Util_GetSafeTmpDir(false));
  if (!directory) {
    return;
  }
  char **names = nullptr;
  const int count = File_ListDirectory(directory.get(), &names);
  if (count == -1) {
    return;
  }
  const char *current = Log_GetFileName();
  for (int i = 0; i < count; i++) {
    const std::string path = std::string(directory.get()) + "/" + names[i];
    if (IsLogOf(names[i], prefix) && (current == nullptr || path != current)) {
      DeleteLocked(path.c_str());
    }
  }
  File_FreeNames(names, count);
}
