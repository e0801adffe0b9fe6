// The handle on an open file: a small descriptor value with a common result code.
//
//   FileIODescriptor file;
//   FileIO_Invalidate(&file);
//   if (FileIO_Open(&file, path, FILEIO_ACCESS_READ, FILEIO_OPEN) == FILEIO_SUCCESS) { ...
//   FileIO_Close(&file); }
#ifndef OST_PUBLIC_FILEIO_H
#define OST_PUBLIC_FILEIO_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

struct FileIODescriptor {
  int32_t posix;    // -1 means invalid
  uint32_t flags;   // the access flags of the open
  char *fileName;   // owned while open
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

// Makes a descriptor that stands for no file; the one way to make such a value.
void FileIO_Invalidate(FileIODescriptor *file);
bool FileIO_IsValid(const FileIODescriptor *file);
// Opens `path`; a file made by it gets `mode`. On failure the descriptor is invalid and errno is that of the
// failed call.
FileIOResult FileIO_Create(FileIODescriptor *file, const char *path, uint32_t access, FileIOAction action,
                           mode_t mode);
// FileIO_Create with mode 0600.
FileIOResult FileIO_Open(FileIODescriptor *file, const char *path, uint32_t access, FileIOAction action);
// Closes and invalidates. Returns true on failure.
bool FileIO_Close(FileIODescriptor *file);
// Reads until `size` bytes or the end: the end gives FILEIO_READ_PAST_EOF with what was read in `*actual`
// (may be null).
FileIOResult FileIO_Read(FileIODescriptor *file, void *buffer, size_t size, size_t *actual);
// Writes all of the buffer or fails; `*actual` (may be null) is what was written.
FileIOResult FileIO_Write(FileIODescriptor *file, const void *buffer, size_t size, size_t *actual);
// Returns the new position in bytes from the file's start, or -1.
int64_t FileIO_Seek(FileIODescriptor *file, int64_t offset, FileIOSeekOrigin origin);
// Tests `path` for the FILEIO_TEST bits.
FileIOResult FileIO_Access(const char *path, int mode);
// The result's text with its id, to be the argument of a message. Borrowed for ever.
const char *FileIO_MsgError(FileIOResult result);
// The result's English text, borrowed for ever.
const char *FileIO_ErrorEnglish(FileIOResult result);

#endif
