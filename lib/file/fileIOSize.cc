// Sizes of files, room for them, and what the system can do.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "file.h"
#include "fileIO.h"
#include "hostinfoOs.h"
#include "owned.h"
#include "panicUser.h"
#include "posixPosix.h"

namespace {

constexpr int64_t kBlockSize = 512;  // of a file's count of blocks, whatever its file system
constexpr uint32_t kSectorSize = 512;
constexpr int kExtFileSystem = 0xef53;

// Each number of the version is judged alone, so that 3.0 fails; that is wanted.
bool KernelPreallocates() {
  return Hostinfo_OSVersion(0) >= 2 && Hostinfo_OSVersion(1) >= 6 && Hostinfo_OSVersion(2) >= 23;
}

}  // namespace

int64_t FileIO_GetSize(const FileIODescriptor *file) {
  ASSERT(file != nullptr);
  struct stat data;
  return fstat(file->posix, &data) == -1 ? -1 : data.st_size;
}

int64_t FileIO_GetSizeByPath(const char *path) {
  FileIODescriptor file;
  FileIO_Invalidate(&file);
  if (FileIO_Open(&file, path, FILEIO_ACCESS_READ, FILEIO_OPEN) != FILEIO_SUCCESS) {
    return -1;
  }
  const int64_t size = FileIO_GetSize(&file);
  FileIO_Close(&file);
  return size;
}

int64_t FileIO_StatSize(const char *path) {
  struct stat data;
  return Posix_Stat(path, &data) == -1 ? -1 : data.st_size;
}

int64_t FileIO_GetAllocatedSize(const FileIODescriptor *file) {
  ASSERT(file != nullptr);
  struct stat data;
  return fstat(file->posix, &data) == -1 ? -1 : data.st_blocks * kBlockSize;
}

int64_t FileIO_GetModTime(const FileIODescriptor *file) {
  ASSERT(file != nullptr);
  struct stat data;
  return fstat(file->posix, &data) == -1 ? -1 : data.st_mtime;
}

bool FileIO_Truncate(FileIODescriptor *file, uint64_t size) {
  ASSERT(file != nullptr);
  return ftruncate(file->posix, static_cast<off_t>(size)) == 0;
}

int FileIO_Sync(const FileIODescriptor *file) {
  ASSERT(file != nullptr);
  return fsync(file->posix);
}

bool FileIO_Preallocate(FileIODescriptor *file, uint64_t size) {
  const int64_t allocated = FileIO_GetAllocatedSize(file);
  if (allocated == -1) {
    return false;
  }
  if (size < static_cast<uint64_t>(allocated)) {
    errno = EINVAL;
    return false;
  }
  const uint64_t wanted = size - static_cast<uint64_t>(allocated);
  return fallocate(file->posix, FALLOC_FL_KEEP_SIZE, allocated, static_cast<off_t>(wanted)) == 0;
}

bool FileIO_SupportsPreallocate(const char *path, bool checkFileSystem) {
  if (!KernelPreallocates()) {
    return false;
  }
  if (!checkFileSystem) {
    return true;
  }
  const OwnedString fullPath(File_FullPath(path));
  struct statfs system;
  return fullPath != nullptr && Posix_Statfs(fullPath.get(), &system) == 0 && system.f_type == kExtFileSystem;
}

bool FileIO_SupportsFileSize(FileIODescriptor *file, uint64_t size) {
  const int64_t position = FileIO_Seek(file, 0, FILEIO_SEEK_CURRENT);
  if (position == -1) {
    return false;
  }
  const int64_t reached = FileIO_Seek(file, static_cast<int64_t>(size), FILEIO_SEEK_BEGIN);
  if (FileIO_Seek(file, position, FILEIO_SEEK_BEGIN) != position) {
    NOT_IMPLEMENTED();
  }
  return reached >= 0 && static_cast<uint64_t>(reached) == size;
}

bool FileIO_GetSectorSize(const FileIODescriptor *file, uint32_t *size) {
  ASSERT(file != nullptr);
  *size = kSectorSize;
  return true;
}

FileIOResult FileIO_Access(const char *path, int mode) {
  if (path == nullptr) {
    errno = EFAULT;
    return FILEIO_ERROR;
  }
  int wanted = F_OK;
  wanted |= (mode & FILEIO_TEST_READ) != 0 ? R_OK : 0;
  wanted |= (mode & FILEIO_TEST_WRITE) != 0 ? W_OK : 0;
  wanted |= (mode & FILEIO_TEST_EXECUTE) != 0 ? X_OK : 0;
  return Posix_Access(path, wanted) == -1 ? FILEIO_ERROR : FILEIO_SUCCESS;
}
