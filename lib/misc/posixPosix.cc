#include "posixPosix.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdarg>

#include "panicUser.h"
#include "posixPosixInt.h"

namespace {

// The longest path and its NUL.
constexpr size_t kPathSize = 4096;

int OpenWithMode(const char *path, int flags, mode_t mode) {
  int (*const call)(const char *, int, ...) = open;
  return call(path, flags, mode);
}

// Makes a call with two texts.
int CallWithTwo(int (*call)(const char *, const char *), const char *first, const char *second) {
  const PosixText firstBytes(first);
  const PosixText secondBytes(second);
  return firstBytes && secondBytes ? call(firstBytes.Bytes(), secondBytes.Bytes()) : -1;
}

}  // namespace

int Posix_Open(const char *path, int flags, ...) {
  mode_t mode = 0;
  if ((flags & O_CREAT) != 0) {
    va_list args;
    va_start(args, flags);
    // The list is started above. NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
    mode = va_arg(args, mode_t);
    va_end(args);
  }
  return PosixCall(OpenWithMode, path, flags, mode);
}

int Posix_Creat(const char *path, mode_t mode) {
  return Posix_Open(path, O_WRONLY | O_CREAT | O_TRUNC, mode);
}

int Posix_Stat(const char *path, struct stat *data) {
  return PosixCall(stat, path, data);
}

int Posix_Lstat(const char *path, struct stat *data) {
  return PosixCall(lstat, path, data);
}

int Posix_Statfs(const char *path, struct statfs *data) {
  return PosixCall(statfs, path, data);
}

int Posix_Unlink(const char *path) {
  return PosixCall(unlink, path);
}

int Posix_Rmdir(const char *path) {
  return PosixCall(rmdir, path);
}

int Posix_Mkdir(const char *path, mode_t mode) {
  return PosixCall(mkdir, path, mode);
}

int Posix_Chdir(const char *path) {
  return PosixCall(chdir, path);
}

int Posix_Chmod(const char *path, mode_t mode) {
  return PosixCall(chmod, path, mode);
}

int Posix_Chown(const char *path, uid_t owner, gid_t group) {
  return PosixCall(chown, path, owner, group);
}

int Posix_Lchown(const char *path, uid_t owner, gid_t group) {
  return PosixCall(lchown, path, owner, group);
}

int Posix_Truncate(const char *path, off_t length) {
  return PosixCall(truncate, path, length);
}

int Posix_Utime(const char *path, const struct utimbuf *times) {
  return PosixCall(utime, path, times);
}

int Posix_Utimes(const char *path, const struct timeval *times) {
  return PosixCall(utimes, path, times);
}

int Posix_Access(const char *path, int mode) {
  return PosixCall(access, path, mode);
}

long Posix_Pathconf(const char *path, int name) {
  return PosixCallNonNull(pathconf, path, name);
}

int Posix_Mkfifo(const char *path, mode_t mode) {
  return PosixCall(mkfifo, path, mode);
}

int Posix_Mknod(const char *path, mode_t mode, dev_t device) {
  return PosixCall(mknod, path, mode, device);
}

int Posix_Rename(const char *from, const char *to) {
  return CallWithTwo(rename, from, to);
}

int Posix_Symlink(const char *target, const char *linkPath) {
  return CallWithTwo(symlink, target, linkPath);
}

int Posix_Link(const char *target, const char *linkPath) {
  return CallWithTwo(link, target, linkPath);
}

char *Posix_ReadLink(const char *path) {
  char target[kPathSize];
  const ssize_t length = PosixCall(readlink, path, target, sizeof target - 1);
  if (length < 0) {
    return nullptr;
  }
  target[length] = '\0';
  return PosixFromSystem(target);
}

char *Posix_RealPath(const char *path) {
  char resolved[kPathSize];
  if (PosixCall(realpath, path, resolved) == nullptr) {
    return nullptr;
  }
  return PosixFromSystem(resolved);
}

DIR *Posix_OpenDir(const char *path) {
  return PosixCallNonNull(opendir, path);
}

FILE *Posix_Fopen(const char *path, const char *mode) {
  ASSERT(mode != nullptr);
  return PosixCall(fopen, path, mode);
}

FILE *Posix_Freopen(const char *path, const char *mode, FILE *stream) {
  ASSERT(mode != nullptr);
  return PosixCall(freopen, path, mode, stream);
}

int Posix_Mount(const char *source, const char *target, const char *type, unsigned long flags,
                const void *data) {
  const PosixText sourceBytes(source);
  const PosixText targetBytes(target);
  return sourceBytes && targetBytes ? mount(sourceBytes.Bytes(), targetBytes.Bytes(), type, flags, data) : -1;
}

int Posix_Umount(const char *path) {
  return PosixCall(umount, path);
}
