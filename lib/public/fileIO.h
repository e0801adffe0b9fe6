// The handle on an open file: a small descriptor value with a common result code.
//
//   FileIODescriptor file;
//   FileIO_Invalidate(&file);
//   if (FileIO_Open(&file, path, FILEIO_ACCESS_READ, FILEIO_OPEN) == FILEIO_SUCCESS) { ...
//   FileIO_Close(&file); }
//
// Paths are UTF-8. A null `file` stops the program; a file that isn't open fails as the system says, with
// EBADF. Where a function fails with something else than a text, errno is that of the failed call. A
// descriptor belongs to one thread at a time.
#ifndef OST_PUBLIC_FILEIO_H
#define OST_PUBLIC_FILEIO_H

#include <sys/types.h>
#include <sys/uio.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>

struct FileIODescriptor {
  int32_t posix;    // -1 means invalid
  uint32_t flags;   // the access flags of the open
  char *fileName;   // owned while open; null for a descriptor that was opened elsewhere
  void *lockToken;  // null when the file isn't locked
};

enum FileIOResult {
  FILEIO_SUCCESS = 0,
  FILEIO_CANCELLED = 1,
  FILEIO_ERROR = 2,
  FILEIO_FILE_EXISTS = 3,
  FILEIO_LOCK_FAILED = 4,
  FILEIO_READ_PAST_EOF = 5,
  FILEIO_FILE_NOT_FOUND = 6,
  FILEIO_NO_PERMISSION = 7,
  FILEIO_NAME_TOO_LONG = 8,
  FILEIO_FILE_TOO_LARGE = 9,
  FILEIO_NO_SPACE = 10,
  FILEIO_QUOTA = 11,
  FILEIO_NOT_IMPLEMENTED = 12,
};

enum FileIOAccess : uint32_t {
  FILEIO_ACCESS_READ = 0x1,
  FILEIO_ACCESS_WRITE = 0x2,
  FILEIO_ACCESS_SYNC = 0x4,
  FILEIO_ACCESS_UNLINK_OPEN = 0x8,
  FILEIO_ACCESS_UNBUFFERED = 0x10,  // not available here; the open drops it
  FILEIO_ACCESS_LOCK = 0x20,
  FILEIO_ACCESS_ASYNC = 0x40,  // not for the vector operations
  FILEIO_ACCESS_NONBLOCK = 0x80,
  FILEIO_ACCESS_SUPERUSER = 0x100,
  FILEIO_ACCESS_EXCLUSIVE = 0x600,  // only both bits together count
};

enum FileIOAction {
  FILEIO_OPEN = 0,
  FILEIO_OPEN_EMPTY = 1,
  FILEIO_OPEN_CREATE = 2,
  FILEIO_OPEN_CREATE_SAFE = 3,
  FILEIO_OPEN_CREATE_EMPTY = 4
};

enum FileIOSeekOrigin { FILEIO_SEEK_BEGIN = 0, FILEIO_SEEK_CURRENT = 1, FILEIO_SEEK_END = 2 };

// Mode bits of FileIO_Access.
enum { FILEIO_TEST_READ = 1, FILEIO_TEST_WRITE = 2, FILEIO_TEST_EXECUTE = 4, FILEIO_TEST_EXISTS = 8 };

// ---- The life of a descriptor

// Makes a descriptor that stands for no file; the one way to make such a value.
void FileIO_Invalidate(FileIODescriptor *file);
bool FileIO_IsValid(const FileIODescriptor *file);
// Opens a file.
//
// file    invalid, without a lock, or the program stops
// path    null gives FILEIO_ERROR with EFAULT
// access  FileIOAccess bits. With FILEIO_ACCESS_LOCK it waits up to 2500 ms for the file's lock, a shared one
//         without FILEIO_ACCESS_WRITE
// mode    of a file that is made, less the umask
//
// On failure the descriptor is invalid, nothing stays locked, and errno is that of the failed call, or 0
// where the lock timed out.
FileIOResult FileIO_Create(FileIODescriptor *file, const char *path, uint32_t access, FileIOAction action,
                           mode_t mode);
// FileIO_Create with mode 0600.
FileIOResult FileIO_Open(FileIODescriptor *file, const char *path, uint32_t access, FileIOAction action);
// Closes, unlocks and invalidates, in any case. Returns true on failure of the close, with its errno.
bool FileIO_Close(FileIODescriptor *file);
// Opens as root, where the process may become root.
//
// flags  those of open; O_CREAT or O_TRUNC stops the program
//
// Returns a descriptor, or -1 with errno; EFAULT for a null path.
int FileIO_PrivilegedPosixOpen(const char *path, int flags);
// Makes `file` a handle on a descriptor that it takes over, without a name.
//
// posixFlags  those of open that `fd` was opened with
void FileIO_AttachDescriptor(FileIODescriptor *file, int fd, int posixFlags);
// A new stream (fclose) on a duplicate of the descriptor, for reading, writing or both as the file is. They
// share their position. `text` is ignored. Null with errno on failure.
FILE *FileIO_DescriptorToStream(const FileIODescriptor *file, bool text);

// Locks an open file by its name, where `access` has FILEIO_ACCESS_LOCK; otherwise a success that does
// nothing. Waits as FileIO_Create does. A file that holds a lock stops the program. A failure is in the log.
FileIOResult FileIO_Lock(FileIODescriptor *file, uint32_t access);
// Gives the lock back, if there is one. FILEIO_ERROR, and a line in the log, on failure; the lock is
// forgotten in any case.
FileIOResult FileIO_Unlock(FileIODescriptor *file);

// The access flags of the open.
uint32_t FileIO_GetFlags(const FileIODescriptor *file);
// Borrowed until the close.
const char *FileIO_Filename(const FileIODescriptor *file);

// ---- Reading and writing at the file's position
//
// A size above 0x7fffffff stops the program. Interrupted calls go on.

// Reads until `size` bytes or the end.
//
// actual  if not null, gets the count of bytes read, also on failure
//
// FILEIO_READ_PAST_EOF at the end, which is how a reader learns that it has all. FILEIO_ERROR is in the log.
FileIOResult FileIO_Read(FileIODescriptor *file, void *buffer, size_t size, size_t *actual);
// Writes all of the buffer or fails; `actual`, if not null, gets the count of bytes written.
FileIOResult FileIO_Write(FileIODescriptor *file, const void *buffer, size_t size, size_t *actual);
// Returns the new position in bytes from the file's start, or -1.
int64_t FileIO_Seek(FileIODescriptor *file, int64_t offset, FileIOSeekOrigin origin);

// ---- Reading and writing by vectors
//
// totalSize  the sum of the entries' lengths in bytes
//
// Many small entries go through one buffer. A file with FILEIO_ACCESS_ASYNC stops the program.

// Read or write at the file's position by one system call; only the read goes on when it is interrupted.
//
// count   entries; 0 is FILEIO_ERROR, and so are more than the system takes (1024) where they aren't gathered
// actual  if not null, gets the count of bytes moved; 0 on other failures than those below
//
// Fewer bytes than `totalSize` give FILEIO_READ_PAST_EOF and FILEIO_NO_SPACE.
FileIOResult FileIO_Readv(FileIODescriptor *file, const struct iovec *entries, int count, size_t totalSize,
                          size_t *actual);
FileIOResult FileIO_Writev(FileIODescriptor *file, const struct iovec *entries, int count, size_t totalSize,
                           size_t *actual);
// Read or write all entries, one behind the other, at `offset` bytes from the file's start, and leave the
// position alone. What could be read before a failure, as before the end of the file, which is
// FILEIO_READ_PAST_EOF, is in the entries. A total above 0x7fffffff stops the program.
FileIOResult FileIO_Preadv(FileIODescriptor *file, const struct iovec *entries, int count, uint64_t offset,
                           size_t totalSize);
FileIOResult FileIO_Pwritev(FileIODescriptor *file, const struct iovec *entries, int count, uint64_t offset,
                            size_t totalSize);
// The same with one buffer.
FileIOResult FileIO_Pread(FileIODescriptor *file, void *buffer, size_t size, uint64_t offset);
FileIOResult FileIO_Pwrite(FileIODescriptor *file, const void *buffer, size_t size, uint64_t offset);

// ---- Sizes and what the system can do
//
// Sizes are in bytes.

// Return -1 with errno on failure. FileIO_GetSizeByPath opens the file for reading, FileIO_StatSize doesn't.
int64_t FileIO_GetSize(const FileIODescriptor *file);
int64_t FileIO_GetSizeByPath(const char *path);
int64_t FileIO_StatSize(const char *path);
// What the file takes on its disk.
int64_t FileIO_GetAllocatedSize(const FileIODescriptor *file);
// Seconds since 1970, or -1 with errno.
int64_t FileIO_GetModTime(const FileIODescriptor *file);
// Gives the file this size. Returns false with errno on failure.
bool FileIO_Truncate(FileIODescriptor *file, uint64_t size);
// Waits until all that was written is on the disk. Returns 0, or -1 with errno.
int FileIO_Sync(const FileIODescriptor *file);
// Takes room on the disk, so that the file has `size` bytes of it; its size stays.
//
// size  more than is allocated already, otherwise it fails with EINVAL
//
// Returns false with errno on failure.
bool FileIO_Preallocate(FileIODescriptor *file, uint64_t size);
// Whether FileIO_Preallocate works, by the kernel's version: major, minor and patch must each for itself
// reach 2, 6 and 23.
//
// checkFileSystem  also asks whether the file system of `path` is ext2, ext3 or ext4
bool FileIO_SupportsPreallocate(const char *path, bool checkFileSystem);
// Whether the file could be `size` bytes long. A file that can't go back to its position afterwards stops the
// program.
bool FileIO_SupportsFileSize(FileIODescriptor *file, uint64_t size);
// Always true, and 512.
bool FileIO_GetSectorSize(const FileIODescriptor *file, uint32_t *size);
// Tests `path` for the FILEIO_TEST bits. FILEIO_ERROR, with errno, for every failure.
FileIOResult FileIO_Access(const char *path, int mode);

// ---- What a result says
//
// FILEIO_NOT_IMPLEMENTED and what is no result stop the program.

// The result's text with its id, to be the argument of a message. Borrowed for ever.
const char *FileIO_MsgError(FileIOResult result);
// The result's English text, borrowed for ever.
const char *FileIO_ErrorEnglish(FileIOResult result);

#endif
