#include "file.h"

#include <sys/stat.h>
#include <sys/time.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "err.h"
#include "fileInt.h"
#include "log.h"
#include "panicUser.h"
#include "posixPosix.h"
#include "timeutil.h"
#include "util_misc.h"

namespace {

constexpr mode_t kPermissions = 07777;
constexpr long kNanosecondsPerMicrosecond = 1000;

FileType TypeOfMode(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFREG:
      return FILE_TYPE_REGULAR;
    case S_IFDIR:
      return FILE_TYPE_DIRECTORY;
    case S_IFBLK:
      return FILE_TYPE_BLOCKDEVICE;
    case S_IFCHR:
      return FILE_TYPE_CHARDEVICE;
    case S_IFLNK:
      return FILE_TYPE_SYMLINK;
    default:
      return FILE_TYPE_UNCERTAIN;
  }
}

bool AttributesBy(int (*call)(const char *, struct stat *), const char *path, FileData *data) {
  struct stat found;
  if (call(path, &found) == -1) {
    return false;
  }
  *data = {
      .fileAccessTime = found.st_atime,
      .fileCreationTime = found.st_ctime,
      .fileModificationTime = found.st_mtime,
      .fileSize = found.st_size,
      .fileType = TypeOfMode(found.st_mode),
      .fileMode = found.st_mode & kPermissions,
      .fileOwner = found.st_uid,
      .fileGroup = found.st_gid,
  };
  return true;
}

bool IsOfType(const char *path, FileType type) {
  FileData data;
  return FileAttributes(path, &data) && data.fileType == type;
}

// Looks at a file, or at the link itself, in the name of a public function.
bool LstatLogged(const char *path, struct stat *data, const char *function) {
  if (Posix_Lstat(path, data) == 0) {
    return true;
  }
  Log("FILE: %s: error stating file \"%s\": %s\n", function, path, Err_ErrString());
  return false;
}

int64_t FileTimeOf(const timespec &time) {
  return static_cast<int64_t>(TimeUtil_UnixTimeToNtTime(time.tv_sec, time.tv_nsec));
}

// The time to set: `fileTime` or, where that says none, the one that the file has.
timeval TimeToSet(int64_t fileTime, time_t present) {
  if (fileTime <= 0) {
    return {.tv_sec = present, .tv_usec = 0};
  }
  timespec time;
  TimeUtil_NtTimeToUnixTime(&time, static_cast<uint64_t>(fileTime));
  return {.tv_sec = time.tv_sec, .tv_usec = time.tv_nsec / kNanosecondsPerMicrosecond};
}

}  // namespace

bool FileAttributes(const char *path, FileData *data) {
  return AttributesBy(Posix_Stat, path, data);
}

bool FileLinkAttributes(const char *path, FileData *data) {
  return AttributesBy(Posix_Lstat, path, data);
}

OwnedUnicode FileFromSystem(const char *bytes, StringEncoding current) {
  if (current == STRING_ENCODING_UTF8) {
    return OwnedUnicode(Unicode_Duplicate(bytes));
  }
  if (!Unicode_IsBufferValid(bytes, -1, current)) {
    errno = EINVAL;
    return nullptr;
  }
  return OwnedUnicode(Unicode_Alloc(bytes, current));
}

bool FileIsConvertible(const char *path) {
  const int error = errno;
  const bool isConvertible = path == nullptr || Unicode_GetCurrentEncoding() == STRING_ENCODING_UTF8 ||
                             Unicode_CanGetBytesWithEncoding(path, STRING_ENCODING_DEFAULT);
  errno = isConvertible ? error : EINVAL;
  return isConvertible;
}

bool File_Exists(const char *path) {
  return FileIO_Access(path, FILEIO_TEST_EXISTS) == FILEIO_SUCCESS;
}

bool File_IsFile(const char *path) {
  return IsOfType(path, FILE_TYPE_REGULAR);
}

bool File_IsDirectory(const char *path) {
  return IsOfType(path, FILE_TYPE_DIRECTORY);
}

bool File_IsCharDevice(const char *path) {
  return IsOfType(path, FILE_TYPE_CHARDEVICE);
}

bool File_IsSymLink(const char *path) {
  FileData data;
  return FileLinkAttributes(path, &data) && data.fileType == FILE_TYPE_SYMLINK;
}

int64_t File_GetSize(const char *path) {
  FileData data;
  return FileAttributes(path, &data) ? data.fileSize : -1;
}

int64_t File_GetModTime(const char *path) {
  FileData data;
  return FileAttributes(path, &data) ? data.fileModificationTime : -1;
}

char *File_GetModTimeString(const char *path) {
  struct stat data;
  if (Posix_Stat(path, &data) == -1) {
    return nullptr;
  }
  // The text of the largest year that a time can have.
  char text[64];
  if (ctime_r(&data.st_mtime, text) == nullptr) {
    return nullptr;
  }
  return Util_SafeStrndup(text, strcspn(text, "\n"));
}

bool File_GetFilePermissions(const char *path, mode_t *mode) {
  ASSERT(mode != nullptr);
  FileData data;
  if (!FileAttributes(path, &data)) {
    return false;
  }
  *mode = data.fileMode;
  return true;
}

bool File_SetFilePermissions(const char *path, mode_t mode) {
  if (Posix_Chmod(path, mode) == 0) {
    return true;
  }
  Log("FILE: %s: failed to change permissions on file \"%s\": %s\n", __func__, path, Err_ErrString());
  return false;
}

bool File_MakeCfgFileExecutable(const char *path) {
  mode_t mode = 0;
  if (!File_GetFilePermissions(path, &mode)) {
    return false;
  }
  const mode_t wanted = mode | S_IRWXU | ((mode & (S_IRGRP | S_IROTH)) >> 2);
  // The answer is the wrong way round for a change; it stands.
  return wanted == mode || Posix_Chmod(path, wanted) != 0;
}

bool File_GetTimes(const char *path, int64_t *createTime, int64_t *accessTime, int64_t *writeTime,
                   int64_t *changeTime) {
  ASSERT(createTime != nullptr && accessTime != nullptr && writeTime != nullptr && changeTime != nullptr);
  *createTime = *accessTime = *writeTime = *changeTime = -1;
  struct stat data;
  if (!LstatLogged(path, &data, __func__)) {
    return false;
  }
  *accessTime = FileTimeOf(data.st_atim);
  *writeTime = FileTimeOf(data.st_mtim);
  *changeTime = FileTimeOf(data.st_ctim);
  return true;
}

bool File_SetTimes(const char *path, int64_t /*createTime*/, int64_t accessTime, int64_t writeTime) {
  if (!FileIsConvertible(path)) {
    Log("FILE: %s: failed to convert \"%s\" to current encoding\n", __func__, path);
    return false;
  }
  struct stat data;
  if (!LstatLogged(path, &data, __func__)) {
    return false;
  }
  const std::array times = {TimeToSet(accessTime, data.st_atime), TimeToSet(writeTime, data.st_mtime)};
  if (Posix_Utimes(path, times.data()) == 0) {
    return true;
  }
  Log("FILE: %s: utimes error on file \"%s\": %s\n", __func__, path, Err_ErrString());
  return false;
}
