// Reading and writing by vectors.
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "config.h"
#include "fileIO.h"
#include "fileIOInt.h"
#include "iovector.h"
#include "log.h"
#include "owned.h"
#include "panicUser.h"
#include "util_misc.h"

namespace {

constexpr size_t kPageSize = 4096;

// How the vector operations are tuned.
struct Tuning {
  bool coalesceEnable;    // gather small vectors
  bool coalesceAligned;   // into a buffer at the beginning of a page
  int32_t coalesceCount;  // gather only more entries than this
  int32_t coalesceSize;   // gather only entries that are smaller on average, in bytes
  int32_t aioNumThreads;  // has no effect
};

// For the life of the process. The settings are read at the first vector operation, and what is logged is so
// from the first time on.
struct {
  bool tuned;
  Tuning tuning;
  bool readInterruptionLogged, writeInterruptionLogged, shortWriteLogged;
} state;

const Tuning &VectorTuning() {
  if (!state.tuned) {
    state.tuned = true;
    state.tuning.coalesceEnable = Config_GetBool(true, "filePosix.coalesce.enable");
    state.tuning.coalesceAligned = Config_GetBool(false, "filePosix.coalesce.aligned");
    state.tuning.coalesceCount = Config_GetLong(5, "filePosix.coalesce.count");
    state.tuning.coalesceSize = Config_GetLong(16384, "filePosix.coalesce.size");
    state.tuning.aioNumThreads = Config_GetLong(0, "aiomgr.numThreads");
  }
  return state.tuning;
}

enum class Direction { kRead, kWrite };
enum class Gather { kAsTuned, kAlways };

bool IsGathered(const Tuning &tuning, int count, size_t totalSize, Gather gather) {
  if (count <= 1) {
    return false;
  }
  if (gather == Gather::kAlways) {
    return true;
  }
  return tuning.coalesceEnable && count > tuning.coalesceCount &&
         static_cast<int64_t>(totalSize / static_cast<size_t>(count)) < tuning.coalesceSize;
}

OwnedString NewBuffer(const Tuning &tuning, const FileIODescriptor &file, size_t size) {
  if (!tuning.coalesceAligned && (file.flags & FILEIO_ACCESS_UNBUFFERED) == 0) {
    return OwnedString(static_cast<char *>(Util_SafeMalloc(size)));
  }
  void *buffer = nullptr;
  ASSERT_MEM_ALLOC(posix_memalign(&buffer, kPageSize, size) == 0);
  return OwnedString(static_cast<char *>(buffer));
}

// What a vector operation moves: the caller's entries, or one buffer in their stead.
class Vector {
 public:
  Vector(const FileIODescriptor &file, const struct iovec *entries, int count, size_t totalSize,
         Direction direction, Gather gather)
      : entries_(entries), count_(count), totalSize_(totalSize) {
    const Tuning &tuning = VectorTuning();
    if (!IsGathered(tuning, count, totalSize, gather)) {
      return;
    }
    buffer_ = NewBuffer(tuning, file, totalSize);
    whole_ = {buffer_.get(), totalSize};
    if (direction == Direction::kWrite) {
      IOV_WriteIovToBuf(entries, count, buffer_.get(), totalSize);
    }
  }

  [[nodiscard]] const struct iovec *begin() const { return buffer_ != nullptr ? &whole_ : entries_; }
  [[nodiscard]] const struct iovec *end() const { return begin() + Count(); }
  [[nodiscard]] int Count() const { return buffer_ != nullptr ? 1 : count_; }

  // Gives the caller's entries what was read. Keeps errno.
  void Scatter(size_t actual) const {
    if (buffer_ == nullptr) {
      return;
    }
    if (actual != totalSize_) {
      Log("NOT_TESTED %s:%d\n", __FILE__, __LINE__);
    }
    IOV_WriteBufToIov(buffer_.get(), actual, entries_, count_);
  }

 private:
  const struct iovec *entries_;
  int count_;
  size_t totalSize_;
  OwnedString buffer_;
  struct iovec whole_ = {};
};

void CheckVector(const FileIODescriptor *file) {
  ASSERT(file != nullptr);
  ASSERT((file->flags & FILEIO_ACCESS_ASYNC) == 0);
}

void LogInterruption(const char *function, bool *logged) {
  if (!*logged) {
    *logged = true;
    Log("FILE: %s got EINTR.  Retrying\n", function);
    Log("NOT_TESTED %s:%d\n", __FILE__, __LINE__);
  }
}

FileIOResult WriteAt(const FileIODescriptor &file, const struct iovec &entry, uint64_t offset) {
  const char *rest = static_cast<const char *>(entry.iov_base);
  size_t size = entry.iov_len;
  while (size > 0) {
    const ssize_t written = pwrite(file.posix, rest, size, static_cast<off_t>(offset));
    if (written == -1 && errno == EINTR) {
      LogInterruption("FileIO_Pwritev", &state.writeInterruptionLogged);
      continue;
    }
    if (written == -1) {
      return FileIOErrnoToResult(errno);
    }
    if (written == 0) {
      Log("NOT_TESTED %s:%d\n", __FILE__, __LINE__);
      return FILEIO_NO_SPACE;
    }
    if (static_cast<size_t>(written) < size && !state.shortWriteLogged) {
      state.shortWriteLogged = true;
      Log("FILE: %s wrote %zd out of %zu bytes.\n", "FileIO_Pwritev", written, size);
    }
    rest += written;
    size -= static_cast<size_t>(written);
    offset += static_cast<size_t>(written);
  }
  return FILEIO_SUCCESS;
}

// Adds what was read to `actual`, also on failure.
FileIOResult ReadAt(const FileIODescriptor &file, const struct iovec &entry, uint64_t offset,
                    size_t *actual) {
  size_t done = 0;
  FileIOResult result = FILEIO_SUCCESS;
  while (done < entry.iov_len && result == FILEIO_SUCCESS) {
    const ssize_t got = pread(file.posix, static_cast<char *>(entry.iov_base) + done, entry.iov_len - done,
                              static_cast<off_t>(offset + done));
    if (got > 0) {
      done += static_cast<size_t>(got);
    } else if (got == 0) {
      result = FILEIO_READ_PAST_EOF;
    } else if (errno == EINTR) {
      LogInterruption("FileIO_Preadv", &state.readInterruptionLogged);
    } else {
      result = FileIOErrnoToResult(errno);
    }
  }
  *actual += done;
  return result;
}

// The result of one call that moved `moved` bytes or, with -1, failed.
FileIOResult WholeResult(ssize_t moved, size_t totalSize, FileIOResult tooFew, size_t *actual) {
  const size_t done = moved == -1 ? 0 : static_cast<size_t>(moved);
  if (actual != nullptr) {
    *actual = done;
  }
  if (moved == -1) {
    return FileIOErrnoToResult(errno);
  }
  return done < totalSize ? tooFew : FILEIO_SUCCESS;
}

FileIOResult NoEntries(size_t *actual) {
  if (actual != nullptr) {
    *actual = 0;
  }
  return FILEIO_ERROR;
}

}  // namespace

FileIOResult FileIO_Readv(FileIODescriptor *file, const struct iovec *entries, int count, size_t totalSize,
                          size_t *actual) {
  CheckVector(file);
  if (count == 0) {
    return NoEntries(actual);
  }
  const Vector vector(*file, entries, count, totalSize, Direction::kRead, Gather::kAsTuned);
  ssize_t got = -1;
  do {
    got = readv(file->posix, vector.begin(), vector.Count());
  } while (got == -1 && errno == EINTR);
  const FileIOResult result = WholeResult(got, totalSize, FILEIO_READ_PAST_EOF, actual);
  vector.Scatter(got == -1 ? 0 : static_cast<size_t>(got));
  return result;
}

FileIOResult FileIO_Writev(FileIODescriptor *file, const struct iovec *entries, int count, size_t totalSize,
                           size_t *actual) {
  CheckVector(file);
  if (count == 0) {
    return NoEntries(actual);
  }
  const Vector vector(*file, entries, count, totalSize, Direction::kWrite, Gather::kAsTuned);
  const ssize_t written = writev(file->posix, vector.begin(), vector.Count());
  return WholeResult(written, totalSize, FILEIO_NO_SPACE, actual);
}

FileIOResult FileIO_Preadv(FileIODescriptor *file, const struct iovec *entries, int count, uint64_t offset,
                           size_t totalSize) {
  CheckVector(file);
  if (totalSize > kFileIOMaxTransfer) {
    NOT_IMPLEMENTED();
  }
  const Vector vector(*file, entries, count, totalSize, Direction::kRead, Gather::kAlways);
  size_t actual = 0;
  FileIOResult result = FILEIO_SUCCESS;
  for (const struct iovec &entry : vector) {
    result = ReadAt(*file, entry, offset + actual, &actual);
    if (result != FILEIO_SUCCESS) {
      break;
    }
  }
  vector.Scatter(actual);
  return result;
}

FileIOResult FileIO_Pwritev(FileIODescriptor *file, const struct iovec *entries, int count, uint64_t offset,
                            size_t totalSize) {
  CheckVector(file);
  if (totalSize > kFileIOMaxTransfer) {
    NOT_IMPLEMENTED();
  }
  const Vector vector(*file, entries, count, totalSize, Direction::kWrite, Gather::kAlways);
  for (const struct iovec &entry : vector) {
    const FileIOResult result = WriteAt(*file, entry, offset);
    if (result != FILEIO_SUCCESS) {
      return result;
    }
    offset += entry.iov_len;
  }
  return FILEIO_SUCCESS;
}

FileIOResult FileIO_Pread(FileIODescriptor *file, void *buffer, size_t size, uint64_t offset) {
  const struct iovec entry = {buffer, size};
  return FileIO_Preadv(file, &entry, 1, offset, size);
}

FileIOResult FileIO_Pwrite(FileIODescriptor *file, const void *buffer, size_t size, uint64_t offset) {
  const struct iovec entry = {const_cast<void *>(buffer), size};
  return FileIO_Pwritev(file, &entry, 1, offset, size);
}
