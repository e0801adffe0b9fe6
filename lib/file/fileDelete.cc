#include <cerrno>
#include <cstring>
#include <string>

#include "file.h"
#include "fileInt.h"
#include "log.h"
#include "owned.h"
#include "posixPosix.h"

namespace {

// The path that a link leads to, seen from where the link is.
std::string LinkTargetPath(const char *linkPath, const char *target) {
  const char *slash = strrchr(linkPath, '/');
  if (target[0] == '/' || slash == nullptr) {
    return target;
  }
  return std::string(linkPath, slash + 1) + target;
}

// Unlinks what a link leads to; nothing being there counts as done. Returns an error number, or 0.
int UnlinkTarget(const char *linkPath) {
  const OwnedString target(Posix_ReadLink(linkPath));
  if (target == nullptr) {
    return errno;
  }
  const bool failed = Posix_Unlink(LinkTargetPath(linkPath, target.get()).c_str()) == -1;
  return failed && errno != ENOENT ? errno : 0;
}

// 0, or -1 with errno.
int CallResult(int error) {
  if (error == 0) {
    return 0;
  }
  errno = error;
  return -1;
}

}  // namespace

int FileDeletion(const char *path, bool handleLink) {
  if (path == nullptr) {
    return EFAULT;
  }
  if (handleLink && File_IsSymLink(path)) {
    const int error = UnlinkTarget(path);
    if (error != 0) {
      return error;
    }
  }
  if (Posix_Unlink(path) == 0) {
    return 0;
  }
  const int error = errno;
  // No call was made with such a path.
  if (error == EINVAL && !FileIsConvertible(path)) {
    Log("FILE: %s: failed to convert \"%s\" to current encoding\n", __func__, path);
  }
  return error;
}

int File_Unlink(const char *path) {
  return CallResult(FileDeletion(path, true));
}

int File_UnlinkNoFollow(const char *path) {
  return CallResult(FileDeletion(path, false));
}

int File_UnlinkIfExists(const char *path) {
  const int error = FileDeletion(path, true);
  return CallResult(error == ENOENT ? 0 : error);
}
