#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string>

#include "config.h"
#include "err.h"
#include "file.h"
#include "fileInt.h"
#include "log.h"
#include "msg.h"
#include "owned.h"
#include "posixPosix.h"
#include "str.h"
#include "util.h"

namespace {

constexpr char kDefaultTag[] = "ostrel";
constexpr mode_t kTempMode = 0600;
// The number that stands for the end of them.
constexpr uint32_t kNoNumber = 0xffffffff;

using OwnedGroups = std::unique_ptr<gid_t, Releaser<free>>;

// Gives the list room for `count` groups. Returns whether there is the memory.
bool GrowGroups(OwnedGroups *groups, int count) {
  auto *grown = static_cast<gid_t *>(realloc(groups->get(), static_cast<size_t>(count) * sizeof(gid_t)));
  if (grown == nullptr) {
    return false;
  }
  static_cast<void>(groups->release());
  groups->reset(grown);
  return true;
}

// Whether the process has the group among its supplementary ones.
bool FileIsGroupsMember(gid_t group) {
  OwnedGroups groups;
  int count = getgroups(0, nullptr);
  while (count > 0) {
    if (!GrowGroups(&groups, count)) {
      Warning("FILE: %s: Couldn't realloc\n", __func__);
      return false;
    }
    const int got = getgroups(count, groups.get());
    if (got >= 0) {
      return std::find(groups.get(), groups.get() + got, group) != groups.get() + got;
    }
    // The list may have grown since it was counted.
    count = errno == EINVAL ? getgroups(0, nullptr) : -1;
  }
  if (count == -1) {
    Warning("FILE: %s: Couldn't getgroups\n", __func__);
  }
  return false;
}

// Whether this user can write and search a directory.
bool IsWritableDirectory(const char *path) {
  FileData data;
  if (!FileAttributes(path, &data) || data.fileType != FILE_TYPE_DIRECTORY) {
    return false;
  }
  const uid_t user = geteuid();
  if (user == 0) {
    return true;
  }
  mode_t needed = S_IWOTH | S_IXOTH;
  if (data.fileOwner == user) {
    needed = S_IWUSR | S_IXUSR;
  } else if (FileIsGroupsMember(data.fileGroup)) {
    needed = S_IWGRP | S_IXGRP;
  }
  return (data.fileMode & needed) == needed;
}

// The directory in its expanded form, or null when it can't serve.
OwnedString UsableTmpDir(const char *directory) {
  if (directory == nullptr) {
    return nullptr;
  }
  OwnedString expanded(Util_ExpandString(directory));
  if (expanded == nullptr || !IsWritableDirectory(expanded.get())) {
    return nullptr;
  }
  return expanded;
}

// The path to try with a number, a new string.
OwnedString NumberedPath(const std::string &path, uint32_t number) {
  return OwnedString(Str_SafeAsprintf(nullptr, "%s%d", path.c_str(), static_cast<int>(number)));
}

}  // namespace

char *File_GetTmpDir(bool useConfiguration) {
  const OwnedString configured(useConfiguration ? Config_GetString(nullptr, "tmpDirectory") : nullptr);
  // "/tmp" is tried twice; this is wanted.
  for (const char *directory :
       {static_cast<const char *>(configured.get()), Posix_Getenv("TMPDIR"), "/tmp", "/tmp", "~"}) {
    OwnedString usable = UsableTmpDir(directory);
    if (usable != nullptr) {
      return usable.release();
    }
  }
  const OwnedString workingDirectory(File_Cwd(nullptr));
  for (const char *directory : {static_cast<const char *>(workingDirectory.get()), "/"}) {
    OwnedString usable = UsableTmpDir(directory);
    if (usable != nullptr) {
      return usable.release();
    }
  }
  Warning("%s: Couldn't get a temporary directory\n", __func__);
  return nullptr;
}

int FileMakeTempFrom(uint32_t first, const char *directory, const char *name, char **path) {
  const OwnedString joined(File_PathJoin(directory, name));
  for (uint32_t number = first; number != kNoNumber; number++) {
    OwnedString numbered = NumberedPath(joined.get(), number);
    const int fd = Posix_Open(numbered.get(), O_RDWR | O_CREAT | O_EXCL, kTempMode);
    if (fd != -1) {
      *path = numbered.release();
      return fd;
    }
    if (errno != EEXIST) {
      const int error = errno;
      Msg_Append(MSGID(file.maketemp.openFailed) "Failed to create temporary file \"%s\": %s.\n",
                 numbered.get(), Err_Errno2String(error));
      errno = error;
      return -1;
    }
  }
  Msg_Append(MSGID(file.maketemp.fullNamespace) "Failed to create temporary file \"%s\": The name space is "
             "full.\n",
             joined.get());
  errno = EAGAIN;
  return -1;
}

int File_MakeTempEx(const char *directory, const char *name, char **path) {
  if (directory == nullptr || name == nullptr || path == nullptr) {
    errno = EFAULT;
    return -1;
  }
  return FileMakeTempFrom(0, directory, name, path);
}

int File_MakeTemp(const char *tag, char **path) {
  if (!File_IsFullPath(tag)) {
    const OwnedString directory(File_GetTmpDir(true));
    return File_MakeTempEx(directory.get(), tag == nullptr ? kDefaultTag : tag, path);
  }
  char *directory = nullptr;
  char *name = nullptr;
  File_GetPathName(tag, &directory, &name);
  const OwnedString directoryOwner(directory);
  const OwnedString nameOwner(name);
  return File_MakeTempEx(directory, name, path);
}
