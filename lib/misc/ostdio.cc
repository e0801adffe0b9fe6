#include "ostdio.h"

#include <sys/single_threaded.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "dynbuf.h"

namespace {

// The least free space a turn of reading starts with: one byte of the line and its NUL.
constexpr size_t kRoom = 2;
// A line's buffer at first. The limit isn't tested before this is full.
constexpr size_t kFirstSize = 1024;

// Keeps other threads from the stream while a line is taken.
class StreamLock {
 public:
  explicit StreamLock(FILE *stream) : stream_(__libc_single_threaded ? nullptr : stream) {
    if (stream_ != nullptr) {
      flockfile(stream_);
    }
  }
  ~StreamLock() {
    if (stream_ != nullptr) {
      funlockfile(stream_);
    }
  }
  StreamLock(const StreamLock &) = delete;
  StreamLock &operator=(const StreamLock &) = delete;

 private:
  FILE *const stream_;
};

// A line as it grows: at first on the stack, so that most are allocated once, at their size.
class LineBuffer {
 public:
  // cppcheck-suppress uninitMemberVar ; the first bytes are written before they are read
  LineBuffer() { DynBuf_Init(&buf_); }
  ~LineBuffer() { DynBuf_Destroy(&buf_); }
  LineBuffer(const LineBuffer &) = delete;
  LineBuffer &operator=(const LineBuffer &) = delete;

  bool HasRoom() const { return allocated_ - size_ >= kRoom; }
  // How many bytes the line may still take before its NUL, when there is room.
  size_t Room() const { return allocated_ - size_ - 1; }
  size_t Size() const { return size_; }

  // False with errno when a turn can't have its room.
  bool MakeRoom(size_t limit) {
    if (HasRoom()) {
      return true;
    }
    if (limit != 0 && size_ > limit) {
      errno = E2BIG;
      return false;
    }
    return Grow();
  }

  void Put(int c) { data_[size_++] = static_cast<char>(c); }
  void Put(std::string_view bytes) {
    memcpy(data_ + size_, bytes.data(), bytes.size());
    size_ += bytes.size();
  }

  // Null with errno when memory is out.
  char *Detach() {
    Put('\0');
    if (data_ != first_) {
      return DynBuf_Realloc(&buf_, size_) ? static_cast<char *>(DynBuf_Detach(&buf_)) : nullptr;
    }
    auto *line = static_cast<char *>(malloc(size_));
    return line == nullptr ? nullptr : static_cast<char *>(memcpy(line, first_, size_));
  }

 private:
  bool Grow() {
    // The heap goes on where the stack ended.
    if (!DynBuf_Enlarge(&buf_, 2 * kFirstSize)) {
      return false;
    }
    if (data_ == first_) {
      memcpy(buf_.data, first_, size_);
    }
    data_ = buf_.data;
    allocated_ = buf_.allocated;
    return true;
  }

  char first_[kFirstSize];
  DynBuf buf_;
  char *data_ = first_;
  size_t size_ = 0;
  size_t allocated_ = kFirstSize;
};

// What the stream has read ahead. It may be told to be nothing: then the bytes come one by one.
std::string_view StdIOReadAhead([[maybe_unused]] const FILE *stream) {
#ifdef __GLIBC__
  return {stream->_IO_read_ptr, static_cast<size_t>(stream->_IO_read_end - stream->_IO_read_ptr)};
#else
  return {};
#endif
}

void StdIOSkipReadAhead([[maybe_unused]] FILE *stream, [[maybe_unused]] size_t size) {
#ifdef __GLIBC__
  stream->_IO_read_ptr += size;
#endif
}

// The size of what stands before the first line end, which is all of it when there is none.
size_t StdIOFindLineEnd(std::string_view bytes) {
  for (const char lineEnd : {'\n', '\r'}) {
    if (const void *found = bytes.empty() ? nullptr : memchr(bytes.data(), lineEnd, bytes.size())) {
      bytes = bytes.substr(0, static_cast<size_t>(static_cast<const char *>(found) - bytes.data()));
    }
  }
  return bytes.size();
}

// After a carriage return: a line feed belongs to the same line end, anything else to the next line.
void StdIOSkipLineFeed(FILE *stream) {
  const int next = getc_unlocked(stream);
  if (next != '\n' && next != EOF) {
    ungetc(next, stream);
  }
  // The line is complete, whatever the look ahead ran into.
  clearerr_unlocked(stream);
}

// Takes a line that the stream has read ahead whole, into a block of its size: most lines are. Null, with
// nothing taken, for any other, or when memory is out.
char *StdIOTakeShortLine(FILE *stream, size_t *length) {
  const std::string_view ahead = StdIOReadAhead(stream).substr(0, kFirstSize - 1);
  *length = StdIOFindLineEnd(ahead);
  auto *line = *length == ahead.size() ? nullptr : static_cast<char *>(malloc(*length + 1));
  if (line == nullptr) {
    return nullptr;
  }
  memcpy(line, ahead.data(), *length);
  line[*length] = '\0';
  const bool carriageReturn = ahead[*length] == '\r';
  StdIOSkipReadAhead(stream, *length + 1);
  if (carriageReturn) {
    StdIOSkipLineFeed(stream);
  }
  return line;
}

enum class Turn { kLine, kFull, kEnd };

// Reads until the line's end, the stream's end, or as far as the room goes.
Turn StdIOReadTurn(FILE *stream, LineBuffer *line) {
  while (true) {
    const std::string_view ahead = StdIOReadAhead(stream).substr(0, line->Room());
    const size_t size = StdIOFindLineEnd(ahead);
    if (size != 0) {
      line->Put(ahead.substr(0, size));
      StdIOSkipReadAhead(stream, size);
    }
    if (!line->HasRoom()) {
      return Turn::kFull;
    }
    const int c = getc_unlocked(stream);
    if (c == EOF) {
      return Turn::kEnd;
    }
    if (c == '\n') {
      return Turn::kLine;
    }
    if (c == '\r') {
      StdIOSkipLineFeed(stream);
      return Turn::kLine;
    }
    line->Put(c);
  }
}

StdIO_Status StdIOReadLine(FILE *stream, char **buf, size_t maxBufLength, size_t *length) {
  LineBuffer line;
  Turn turn = Turn::kFull;
  while (turn == Turn::kFull) {
    if (!line.MakeRoom(maxBufLength)) {
      return StdIO_Error;
    }
    turn = StdIOReadTurn(stream, &line);
  }
  if (turn == Turn::kEnd && ferror_unlocked(stream) != 0) {
    return StdIO_Error;
  }
  if (turn == Turn::kEnd && line.Size() == 0) {
    return StdIO_EOF;
  }
  *length = line.Size();
  *buf = line.Detach();
  return *buf == nullptr ? StdIO_Error : StdIO_Success;
}

}  // namespace

StdIO_Status StdIO_ReadNextLine(FILE *stream, char **buf, size_t maxBufLength, size_t *count) {
  const StreamLock lock(stream);
  size_t length = 0;
  *buf = StdIOTakeShortLine(stream, &length);
  const StdIO_Status status =
      *buf != nullptr ? StdIO_Success : StdIOReadLine(stream, buf, maxBufLength, &length);
  if (status == StdIO_Success && count != nullptr) {
    *count = length;
  }
  return status;
}
