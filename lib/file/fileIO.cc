#include "fileIO.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "err.h"
#include "fileIOInt.h"
#include "fileLock.h"
#include "idLinux.h"
#include "log.h"
#include "msg.h"
#include "panicUser.h"
#include "posixPosix.h"
#include "util_misc.h"

namespace {

constexpr mode_t kDefaultMode = 0600;
constexpr uint32_t kLockWait = 2500;  // milliseconds

int AccessFlags(uint32_t access) {
  int flags = 0;
  if ((access & FILEIO_ACCESS_WRITE) != 0) {
    flags = (access & FILEIO_ACCESS_READ) != 0 ? O_RDWR : O_WRONLY;
  }
  if ((access & FILEIO_ACCESS_SYNC) != 0) {
    flags |= O_SYNC;
  }
  if ((access & FILEIO_ACCESS_NONBLOCK) != 0) {
    flags |= O_NONBLOCK;
  }
  if ((access & FILEIO_ACCESS_EXCLUSIVE) == FILEIO_ACCESS_EXCLUSIVE) {
    flags |= O_EXCL;
  }
  return flags;
}

int ActionFlags(FileIOAction action) {
  switch (action) {
    case FILEIO_OPEN:
      return 0;
    case FILEIO_OPEN_EMPTY:
      return O_TRUNC;
    case FILEIO_OPEN_CREATE:
      return O_CREAT;
    case FILEIO_OPEN_CREATE_SAFE:
      return O_CREAT | O_EXCL;
    case FILEIO_OPEN_CREATE_EMPTY:
      return O_CREAT | O_TRUNC;
  }
  NOT_REACHED();
}

// The access that a descriptor with these flags of open gives.
uint32_t AccessOfFlags(int flags) {
  const uint32_t sync = (flags & O_SYNC) == O_SYNC ? FILEIO_ACCESS_SYNC : 0U;
  switch (flags & O_ACCMODE) {
    case O_RDWR:
      return FILEIO_ACCESS_READ | FILEIO_ACCESS_WRITE | sync;
    case O_WRONLY:
      return FILEIO_ACCESS_WRITE | sync;
    default:
      return FILEIO_ACCESS_READ | sync;
  }
}

const char *StreamMode(uint32_t access) {
  if ((access & FILEIO_ACCESS_WRITE) == 0) {
    return "r";
  }
  return (access & FILEIO_ACCESS_READ) != 0 ? "r+" : "w";
}

void CloseKeepingErrno(int posix) {
  const int error = errno;
  close(posix);
  errno = error;
}

// The access that can be given: all but unbuffered, which is logged once in the process.
uint32_t AvailableAccess(const char *path, uint32_t access) {
  static bool logged = false;
  if ((access & FILEIO_ACCESS_UNBUFFERED) != 0 && !logged) {
    logged = true;
    Log("FILE: %s reverting to buffered IO on %s.\n", "FileIO_Create", path);
  }
  return access & ~static_cast<uint32_t>(FILEIO_ACCESS_UNBUFFERED);
}

// Gives back all that the descriptor holds but the system's descriptor. Keeps errno.
void Release(FileIODescriptor *file) {
  const int error = errno;
  FileIO_Unlock(file);
  free(file->fileName);
  FileIO_Invalidate(file);
  errno = error;
}

int OpenAsSuperUser(const char *path, int flags, mode_t mode) {
  const uid_t user = Id_BeginSuperUser();
  const int posix = Posix_Open(path, flags, mode);
  const int error = errno;
  Id_EndSuperUser(user);
  errno = error;
  return posix;
}

// Opens the file and takes its name away where that was asked for. Returns the descriptor, or -1 with errno.
int OpenDescriptor(const char *path, uint32_t access, FileIOAction action, mode_t mode) {
  const int flags = AccessFlags(access) | ActionFlags(action);
  const int posix = (access & FILEIO_ACCESS_SUPERUSER) != 0 ? OpenAsSuperUser(path, flags, mode)
                                                            : Posix_Open(path, flags, mode);
  if (posix == -1 || (access & FILEIO_ACCESS_UNLINK_OPEN) == 0 || Posix_Unlink(path) == 0) {
    return posix;
  }
  CloseKeepingErrno(posix);
  return -1;
}

// Repeats `step`, a call that moves up to the given count of bytes at the given offset of the buffer, until
// `size` bytes are moved.
//
// atEnd  the result when a step moves nothing
template <typename Step>
FileIOResult Transfer(size_t size, size_t *actual, FileIOResult atEnd, Step step) {
  if (size > kFileIOMaxTransfer) {
    NOT_IMPLEMENTED();
  }
  FileIOResult result = FILEIO_SUCCESS;
  size_t done = 0;
  while (done < size && result == FILEIO_SUCCESS) {
    const ssize_t moved = step(done, size - done);
    if (moved > 0) {
      done += static_cast<size_t>(moved);
    } else if (moved == 0) {
      result = atEnd;
    } else if (errno == EINTR) {
      Log("NOT_TESTED %s:%d\n", __FILE__, __LINE__);
    } else {
      result = FileIOErrnoToResult(errno);
    }
  }
  if (actual != nullptr) {
    *actual = done;
  }
  return result;
}

// The result of a lock that failed, with an error number or, where it timed out, 0.
FileIOResult LockResult(int error) {
  switch (error) {
    case 0:
    case EROFS:
      return FILEIO_LOCK_FAILED;
    case ENOENT:
    case EACCES:
    case ENAMETOOLONG:
      return FileIOErrnoToResult(error);
    default:
      return FILEIO_ERROR;
  }
}

void WarnOfLock(const char *function, const FileIODescriptor &file, int error) {
  Warning("FILE: %s on '%s' failed: %s\n", function, file.fileName,
          error == 0 ? "Lock timed out" : Err_Errno2String(error));
}

}  // namespace

FileIOResult FileIOErrnoToResult(int error) {
  switch (error) {
    case EFBIG:
      return FILEIO_FILE_TOO_LARGE;
    case ENOENT:
      return FILEIO_FILE_NOT_FOUND;
    case EACCES:
      return FILEIO_NO_PERMISSION;
    case EEXIST:
      return FILEIO_FILE_EXISTS;
    case ENOSPC:
      return FILEIO_NO_SPACE;
    case ENAMETOOLONG:
      return FILEIO_NAME_TOO_LONG;
    case EDQUOT:
      return FILEIO_QUOTA;
    default:
      return FILEIO_ERROR;
  }
}

void FileIO_Invalidate(FileIODescriptor *file) {
  ASSERT(file != nullptr);
  *file = {};
  file->posix = -1;
}

bool FileIO_IsValid(const FileIODescriptor *file) {
  ASSERT(file != nullptr);
  return file->posix != -1;
}

FileIOResult FileIO_Create(FileIODescriptor *file, const char *path, uint32_t access, FileIOAction action,
                           mode_t mode) {
  ASSERT(file != nullptr);
  if (path == nullptr) {
    errno = EFAULT;
    return FILEIO_ERROR;
  }
  ASSERT(!FileIO_IsValid(file));
  ASSERT(file->lockToken == nullptr);

  file->fileName = Util_SafeStrdup(path);
  FileIOResult result = FileIO_Lock(file, access);
  if (result == FILEIO_SUCCESS) {
    file->flags = AvailableAccess(path, access);
    file->posix = OpenDescriptor(path, file->flags, action, mode);
    result = file->posix == -1 ? FileIOErrnoToResult(errno) : FILEIO_SUCCESS;
  }
  if (result != FILEIO_SUCCESS) {
    Release(file);
  }
  return result;
}

FileIOResult FileIO_Open(FileIODescriptor *file, const char *path, uint32_t access, FileIOAction action) {
  return FileIO_Create(file, path, access, action, kDefaultMode);
}

bool FileIO_Close(FileIODescriptor *file) {
  ASSERT(file != nullptr);
  const bool failed = close(file->posix) == -1;
  Release(file);
  return failed;
}

int FileIO_PrivilegedPosixOpen(const char *path, int flags) {
  if (path == nullptr) {
    errno = EFAULT;
    return -1;
  }
  ASSERT((flags & (O_CREAT | O_TRUNC)) == 0);
  return OpenAsSuperUser(path, flags, 0);
}

void FileIO_AttachDescriptor(FileIODescriptor *file, int fd, int posixFlags) {
  FileIO_Invalidate(file);
  file->posix = fd;
  file->flags = AccessOfFlags(posixFlags);
}

FILE *FileIO_DescriptorToStream(const FileIODescriptor *file, bool /*text*/) {
  ASSERT(file != nullptr);
  const int posix = dup(file->posix);
  if (posix == -1) {
    return nullptr;
  }
  FILE *stream = fdopen(posix, StreamMode(file->flags));
  if (stream == nullptr) {
    CloseKeepingErrno(posix);
  }
  return stream;
}

FileIOResult FileIO_Lock(FileIODescriptor *file, uint32_t access) {
  ASSERT(file != nullptr);
  if ((access & FILEIO_ACCESS_LOCK) == 0) {
    return FILEIO_SUCCESS;
  }
  ASSERT(file->lockToken == nullptr);
  const bool readOnly = (access & FILEIO_ACCESS_WRITE) == 0;
  int error = 0;
  file->lockToken = FileLock_Lock(file->fileName, readOnly, kLockWait, &error);
  if (file->lockToken != nullptr) {
    return FILEIO_SUCCESS;
  }
  WarnOfLock("FileIO_Lock", *file, error);
  errno = error;
  return LockResult(error);
}

FileIOResult FileIO_Unlock(FileIODescriptor *file) {
  ASSERT(file != nullptr);
  if (file->lockToken == nullptr) {
    return FILEIO_SUCCESS;
  }
  const int error = FileLock_Unlock(file->fileName, file->lockToken);
  file->lockToken = nullptr;
  if (error == 0) {
    return FILEIO_SUCCESS;
  }
  WarnOfLock("FileIO_Unlock", *file, error);
  errno = error;
  return FILEIO_ERROR;
}

uint32_t FileIO_GetFlags(const FileIODescriptor *file) {
  ASSERT(file != nullptr);
  return file->flags;
}

const char *FileIO_Filename(const FileIODescriptor *file) {
  ASSERT(file != nullptr);
  return file->fileName;
}

FileIOResult FileIO_Read(FileIODescriptor *file, void *buffer, size_t size, size_t *actual) {
  ASSERT(file != nullptr);
  const FileIOResult result =
      Transfer(size, actual, FILEIO_READ_PAST_EOF, [file, buffer](size_t offset, size_t rest) {
        return read(file->posix, static_cast<char *>(buffer) + offset, rest);
      });
  if (result == FILEIO_ERROR) {
    Log("read failed, errno=%d, %s\n", errno, Err_ErrString());
  }
  return result;
}

FileIOResult FileIO_Write(FileIODescriptor *file, const void *buffer, size_t size, size_t *actual) {
  ASSERT(file != nullptr);
  return Transfer(size, actual, FILEIO_NO_SPACE, [file, buffer](size_t offset, size_t rest) {
    return write(file->posix, static_cast<const char *>(buffer) + offset, rest);
  });
}

int64_t FileIO_Seek(FileIODescriptor *file, int64_t offset, FileIOSeekOrigin origin) {
  ASSERT(file != nullptr);
  static constexpr int kWhence[] = {SEEK_SET, SEEK_CUR, SEEK_END};
  return lseek(file->posix, offset, kWhence[origin]);
}

const char *FileIO_MsgError(FileIOResult result) {
  switch (result) {
    case FILEIO_SUCCESS:
      return MSGID(fileio.success) "Success";
    case FILEIO_CANCELLED:
      return MSGID(fileio.cancel) "The operation was canceled by the user";
    case FILEIO_ERROR:
      return MSGID(fileio.generic) "Error";
    case FILEIO_FILE_EXISTS:
      return MSGID(fileio.exists) "The file already exists";
    case FILEIO_LOCK_FAILED:
      return MSGID(fileio.lock) "Failed to lock the file";
    case FILEIO_READ_PAST_EOF:
      return MSGID(fileio.eof) "Tried to read beyond the end of the file";
    case FILEIO_FILE_NOT_FOUND:
      return MSGID(fileio.notfound) "Could not find the file";
    case FILEIO_NO_PERMISSION:
      return MSGID(fileio.noPerm) "Insufficient permission to access the file";
    case FILEIO_NAME_TOO_LONG:
      return MSGID(fileio.namelong) "The file name is too long";
    case FILEIO_FILE_TOO_LARGE:
      return MSGID(fileio.fBig) "The file is too large";
    case FILEIO_NO_SPACE:
      return MSGID(fileio.noSpc) "There is no space left on the device";
    case FILEIO_QUOTA:
      return MSGID(fileio.dQuot) "There is no space left on the device";
    case FILEIO_NOT_IMPLEMENTED:
      NOT_IMPLEMENTED();
  }
  Warning("FileIO_MsgError was passed bad code %d\n", static_cast<int>(result));
  ASSERT(false);
  return nullptr;
}

const char *FileIO_ErrorEnglish(FileIOResult result) {
  return strchr(FileIO_MsgError(result), ')') + 1;
}
