#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "file.h"
#include "log.h"
#include "owned.h"
#include "posixPosix.h"
#include "random.h"
#include "str.h"
#include "strutil.h"
#include "syncMutex.h"
#include "util.h"
#include "util_misc.h"

namespace {

constexpr char kProductPrefix[] = "ostrel";
constexpr int kMaxRandomNames = 251;

// The one safe directory of the process and its lock, both made by the first request. The directory is tested
// again by each request, and replaced when it fails the test.
struct SafeTmpDir {
  std::atomic<SyncMutex *> lock;
  char *path;
};
SafeTmpDir safeTmpDir;

// Whether the directory could be made, or is there and this user's alone.
bool UtilAcceptableSafeTmpDir(const char *path, uid_t userId) {
  if (Posix_Mkdir(path, 0700) == 0) {
    return true;
  }
  if (errno != EEXIST) {
    return false;
  }
  struct stat data {};
  if (Posix_Lstat(path, &data) == -1) {
    return false;
  }
  return S_ISDIR(data.st_mode) && data.st_uid == userId &&
         (data.st_mode & 07777 & ~static_cast<mode_t>(S_ISGID)) == 0700;
}

// A new string (free), or null with a warning.
char *UtilGetUserName(uid_t userId) {
  const long size = sysconf(_SC_GETPW_R_SIZE_MAX);
  if (size == -1) {
    Warning("UtilGetUserName: sysconf(_SC_GETPW_R_SIZE_MAX) failed.\n");
    return nullptr;
  }
  const OwnedString buffer(static_cast<char *>(malloc(static_cast<size_t>(size))));
  if (buffer == nullptr) {
    Warning("UtilGetUserName: Not enough memory.\n");
    return nullptr;
  }
  struct passwd entry {};
  struct passwd *found = nullptr;
  if (Posix_Getpwuid_r(userId, &entry, buffer.get(), static_cast<size_t>(size), &found) != 0 ||
      found == nullptr) {
    Warning("UtilGetUserName: Unable to retrieve the username associated with user ID %u.\n", userId);
    return nullptr;
  }
  return Util_SafeStrdup(entry.pw_name);
}

// The part of the directory's name that tells the user, a new string (free).
char *UtilGetUserPart(uid_t userId) {
  char *name = UtilGetUserName(userId);
  if (name != nullptr) {
    return name;
  }
  Warning("%s: UtilGetUserName failed, using numeric ID as username instead.\n", "Util_GetSafeTmpDir");
  return Str_SafeAsprintf(nullptr, "uid-%d", static_cast<int>(userId));
}

// The first acceptable "<base>/ostrel-<user>-..." that is already there, a new string (free), or null.
char *UtilFindListedSafeTmpDir(const char *base, const char *user, uid_t userId) {
  const OwnedString prefix(Str_SafeAsprintf(nullptr, "%s-%s-", kProductPrefix, user));
  char **names = nullptr;
  const int count = File_ListDirectory(base, &names);
  if (count < 0) {
    return nullptr;
  }
  OwnedString found;
  for (int i = 0; i < count && found == nullptr; i++) {
    if (!StrUtil_StartsWith(names[i], prefix.get())) {
      continue;
    }
    OwnedString path(Str_SafeAsprintf(nullptr, "%s/%s", base, names[i]));
    if (File_IsDirectory(path.get()) && UtilAcceptableSafeTmpDir(path.get(), userId)) {
      found = std::move(path);
    }
  }
  File_FreeNames(names, count);
  return found.release();
}

// A directory with a random name, a new string (free), or null with a warning.
char *UtilCreateSafeTmpDir(const char *base, const char *user, uid_t userId) {
  OwnedString path;
  for (int i = 0; i < kMaxRandomNames; i++) {
    uint32_t number = 0;
    if (!Random_Crypto(sizeof number, &number)) {
      Warning("%s: Call to Random_Crypto failed.\n", __func__);
      return nullptr;
    }
    path.reset(Str_SafeAsprintf(nullptr, "%s/%s-%s-%u", base, kProductPrefix, user, number));
    if (UtilAcceptableSafeTmpDir(path.get(), userId)) {
      return path.release();
    }
  }
  Warning(
      "%s: Failed to create a safe temporary directory, path \"%s\". The maximum number of attempts was "
      "exceeded.\n",
      __func__, path.get());
  return nullptr;
}

// A new string (free), or null with a warning.
char *UtilFindSafeTmpDir(bool useConf, uid_t userId) {
  const OwnedString base(File_GetTmpDir(useConf));
  if (base == nullptr) {
    Warning("%s: File_GetTmpDir failed.\n", "Util_GetSafeTmpDir");
    return nullptr;
  }
  const OwnedString user(UtilGetUserPart(userId));
  OwnedString path(Str_SafeAsprintf(nullptr, "%s/%s-%s", base.get(), kProductPrefix, user.get()));
  if (UtilAcceptableSafeTmpDir(path.get(), userId)) {
    return path.release();
  }
  path.reset(UtilFindListedSafeTmpDir(base.get(), user.get(), userId));
  if (path != nullptr) {
    return path.release();
  }
  return UtilCreateSafeTmpDir(base.get(), user.get(), userId);
}

// Under the lock. A new string (free), or null with a warning.
char *UtilTakeSafeTmpDir(bool useConf) {
  const uid_t userId = geteuid();
  if (safeTmpDir.path == nullptr || !UtilAcceptableSafeTmpDir(safeTmpDir.path, userId)) {
    char *found = UtilFindSafeTmpDir(useConf, userId);
    if (found == nullptr) {
      return nullptr;
    }
    free(safeTmpDir.path);
    safeTmpDir.path = found;
  }
  return Util_SafeStrdup(safeTmpDir.path);
}

}  // namespace

char *Util_GetSafeTmpDir(bool useConf) {
  SyncMutex *lock = SyncMutex_CreateSingleton(&safeTmpDir.lock);
  if (!SyncMutex_Lock(lock)) {
    return nullptr;
  }
  char *path = UtilTakeSafeTmpDir(useConf);
  SyncMutex_Unlock(lock);
  return path;
}

int Util_MakeSafeTemp(const char *tag, char **outName) {
  if (tag != nullptr && strchr(tag, '/') != nullptr) {
    char *directory = nullptr;
    char *name = nullptr;
    File_GetPathName(tag, &directory, &name);
    const OwnedString directoryOwner(directory);
    const OwnedString nameOwner(name);
    return File_MakeTempEx(directory, name, outName);
  }
  const OwnedString directory(Util_GetSafeTmpDir(true));
  return File_MakeTempEx(directory.get(), tag == nullptr ? kProductPrefix : tag, outName);
}
