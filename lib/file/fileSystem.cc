#include <fcntl.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "err.h"
#include "file.h"
#include "fileInt.h"
#include "log.h"
#include "owned.h"
#include "panicUser.h"
#include "posixPosix.h"

namespace {

// Types of file systems, as statfs tells them.
enum FileSystemType : uint32_t {
  FILE_SYSTEM_NFS = 0x6969,
  FILE_SYSTEM_SMB = 0x517b,
  FILE_SYSTEM_CIFS = 0xff534d42,
  FILE_SYSTEM_OSTFS = 0x2fabf15e,
};

constexpr uint64_t kLargeFile = 0x100000000;
// What every file system can hold.
constexpr uint64_t kOrdinaryFiles = 0x80000000;
constexpr char kProbeName[] = ".ostBigFileTest";

// Tells the type of the file system that a path is on. Returns false, with errno, when that fails.
bool TypeOfFileSystem(const char *path, uint32_t *type) {
  struct statfs data;
  if (Posix_Statfs(path, &data) == -1) {
    return false;
  }
  *type = static_cast<uint32_t>(data.f_type);
  return true;
}

// Looks at the file system that a path is on or, with `ascend`, at that of the nearest parent there is.
bool StatfsAscending(std::string path, bool ascend, struct statfs *data) {
  while (Posix_Statfs(path.c_str(), data) == -1) {
    if (errno != ENOENT || !ascend || !FilePosixGetParent(&path)) {
      return false;
    }
  }
  return true;
}

// The same for any path.
bool StatfsOfPath(const char *path, bool ascend, struct statfs *data) {
  const OwnedString full(File_FullPath(path));
  return full != nullptr && StatfsAscending(full.get(), ascend, data);
}

int64_t BytesOfBlocks(const struct statfs &data, fsblkcnt_t blocks) {
  return static_cast<int64_t>(blocks * static_cast<uint64_t>(data.f_bsize));
}

// Whether two files agree in all that a file system tells of them, for one that can't be trusted with
// numbers.
bool IsSameInAll(const struct stat &one, const struct stat &other) {
  return one.st_ino == other.st_ino && one.st_mode == other.st_mode && one.st_nlink == other.st_nlink &&
         one.st_uid == other.st_uid && one.st_gid == other.st_gid && one.st_rdev == other.st_rdev &&
         one.st_size == other.st_size && one.st_blksize == other.st_blksize &&
         one.st_blocks == other.st_blocks;
}

bool OSTFSSupportsFileSize() {
  Log("FILE: %s: did not execute properly\n", "File_OSTFSSupportsFileSize");
  return false;
}

// The directory that a path is, or that it is in.
std::string DirectoryOf(const char *path) {
  if (File_IsDirectory(path)) {
    return path;
  }
  char *directory = nullptr;
  File_GetPathName(path, &directory, nullptr);
  const OwnedString owner(directory);
  return *directory == '\0' ? "/" : directory;
}

bool SupportsBySeeking(FileIODescriptor *file, uint64_t size) {
  const bool supports = FileIO_SupportsFileSize(file, size);
  FileIO_Close(file);
  return supports;
}

// Asks a temporary file.
bool DirectorySupportsFileSize(const std::string &directory, uint64_t size) {
  const OwnedString tag(File_PathJoin(directory.c_str(), kProbeName));
  char *path = nullptr;
  const int fd = File_MakeTemp(tag.get(), &path);
  if (fd == -1) {
    return false;
  }
  const OwnedString owner(path);
  FileIODescriptor file;
  FileIO_AttachDescriptor(&file, fd, O_RDWR);
  const bool supports = SupportsBySeeking(&file, size);
  File_Unlink(path);
  return supports;
}

}  // namespace

bool File_IsRemote(const char *path) {
  uint32_t type = 0;
  if (!TypeOfFileSystem(path, &type)) {
    Log("FILE: %s: statfs(%s) failed: %s\n", __func__, path, Err_ErrString());
    return true;
  }
  return type == FILE_SYSTEM_NFS || type == FILE_SYSTEM_SMB || type == FILE_SYSTEM_CIFS;
}

bool File_IsSameFile(const char *path1, const char *path2) {
  ASSERT(path1 != nullptr && path2 != nullptr);
  if (strcmp(path1, path2) == 0) {
    return true;
  }
  struct stat data1;
  struct stat data2;
  if (Posix_Stat(path1, &data1) == -1 || Posix_Stat(path2, &data2) == -1 || data1.st_dev != data2.st_dev) {
    return false;
  }
  uint32_t type1 = 0;
  uint32_t type2 = 0;
  if (!TypeOfFileSystem(path1, &type1) || !TypeOfFileSystem(path2, &type2)) {
    return false;
  }
  // A number may stand for two files there.
  const bool isNfs = type1 == FILE_SYSTEM_NFS || type2 == FILE_SYSTEM_NFS;
  return isNfs ? IsSameInAll(data1, data2) : data1.st_ino == data2.st_ino;
}

int64_t File_GetCapacity(const char *path) {
  struct statfs data;
  if (!StatfsOfPath(path, true, &data)) {
    Warning("FILE: %s: Couldn't statfs\n", __func__);
    return -1;
  }
  return BytesOfBlocks(data, data.f_blocks);
}

int64_t File_GetFreeSpace(const char *path, bool doNotAscend) {
  struct statfs data;
  if (!StatfsOfPath(path, !doNotAscend, &data)) {
    Warning("%s: Couldn't statfs %s\n", __func__, path);
    return -1;
  }
  return BytesOfBlocks(data, data.f_bavail);
}

bool File_SupportsLargeFiles(const char *path) {
  return File_SupportsFileSize(path, kLargeFile);
}

bool File_SupportsFileSize(const char *path, uint64_t size) {
  if (size < kOrdinaryFiles) {
    return true;
  }
  const OwnedString full(File_FullPath(path));
  if (full == nullptr) {
    Log("FILE: %s: Error acquiring full path\n", __func__);
    return false;
  }
  const std::string directory = DirectoryOf(full.get());
  uint32_t type = 0;
  if (TypeOfFileSystem(directory.c_str(), &type) && type == FILE_SYSTEM_OSTFS) {
    return OSTFSSupportsFileSize();
  }
  FileIODescriptor file;
  FileIO_Invalidate(&file);
  if (File_IsFile(full.get()) &&
      FileIO_Open(&file, full.get(), FILEIO_ACCESS_READ, FILEIO_OPEN) == FILEIO_SUCCESS) {
    return SupportsBySeeking(&file, size);
  }
  return DirectorySupportsFileSize(directory, size);
}
