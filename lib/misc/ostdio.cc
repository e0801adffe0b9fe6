#include "ostdio.h"

#include <cerrno>
#include <cstdlib>

#include "dynbuf.h"

namespace {

// The least free space a turn of reading starts with: one byte of the line and its NUL.
constexpr size_t kRoom = 2;

class LineBuffer {
 public:
  LineBuffer() { DynBuf_Init(&buf_); }
  ~LineBuffer() { DynBuf_Destroy(&buf_); }
  LineBuffer(const LineBuffer &) = delete;
  LineBuffer &operator=(const LineBuffer &) = delete;

  // False with errno when a turn can't have its room.
  bool MakeRoom(size_t limit) {
    if (buf_.allocated - buf_.size >= kRoom) {
      return true;
    }
    if (limit != 0 && buf_.size > limit) {
      errno = E2BIG;
      return false;
    }
    if (!DynBuf_Enlarge(&buf_, buf_.size + kRoom)) {
      errno = ENOMEM;
      return false;
    }
    return true;
  }

  bool HasRoom() const { return buf_.allocated - buf_.size >= kRoom; }
  void Put(int c) { buf_.data[buf_.size++] = static_cast<char>(c); }
  size_t Size() const { return buf_.size; }

  char *Detach() {
    Put('\0');
    DynBuf_Trim(&buf_);
    return static_cast<char *>(DynBuf_Detach(&buf_));
  }

 private:
  DynBuf buf_;
};

// After a carriage return: a line feed belongs to the same line end, anything else to the next line.
void StdIOSkipLineFeed(FILE *stream) {
  const int next = getc(stream);
  if (next != '\n' && next != EOF) {
    ungetc(next, stream);
  }
  // The line is complete, whatever the look ahead ran into.
  clearerr(stream);
}

enum class Turn { kLine, kFull, kEnd };

// Reads until the line's end, the stream's end, or as far as the room goes.
Turn StdIOReadTurn(FILE *stream, LineBuffer *line) {
  while (line->HasRoom()) {
    const int c = getc(stream);
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
  return Turn::kFull;
}

}  // namespace

StdIO_Status StdIO_ReadNextLine(FILE *stream, char **buf, size_t maxBufLength, size_t *count) {
  *buf = nullptr;
  LineBuffer line;
  Turn turn = Turn::kFull;
  while (turn == Turn::kFull) {
    if (!line.MakeRoom(maxBufLength)) {
      return StdIO_Error;
    }
    turn = StdIOReadTurn(stream, &line);
  }
  if (turn == Turn::kEnd && ferror(stream) != 0) {
    return StdIO_Error;
  }
  if (turn == Turn::kEnd && line.Size() == 0) {
    return StdIO_EOF;
  }
  if (count != nullptr) {
    *count = line.Size();
  }
  *buf = line.Detach();
  return StdIO_Success;
}
