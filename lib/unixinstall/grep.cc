#include "grep.h"

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "dynbuf.h"
#include "util_misc.h"

namespace {

// What is told of the ends of a chunk depends on its size. Reading many at once changes nothing of it.
constexpr size_t kChunkSize = 1024;
constexpr size_t kChunksAtOnce = 64;

std::string_view UpToNul(std::string_view bytes) {
  return bytes.substr(0, bytes.find('\0'));
}

bool Holds(std::string_view line, std::string_view text) {
  return memmem(line.data(), line.size(), text.data(), text.size()) != nullptr;
}

class DelimiterSet {
 public:
  explicit DelimiterSet(std::string_view delimiters) : delimiters_(delimiters) {}

  // The position of the first delimiter from `from` on, or the text's size.
  size_t Find(std::string_view text, size_t from) const {
    const size_t found =
        delimiters_.size() == 1 ? text.find(delimiters_[0], from) : text.find_first_of(delimiters_, from);
    return found < text.size() ? found : text.size();
  }

  // The position of the first other byte from `from` on, or the text's size.
  size_t Skip(std::string_view text, size_t from) const {
    while (from < text.size() && Has(text[from])) {
      ++from;
    }
    return from;
  }

  // Where the last run of delimiters between two positions starts, or `from` when there is none.
  size_t LastRun(std::string_view text, size_t from, size_t to) const {
    while (to > from && !Has(text[to - 1])) {
      --to;
    }
    while (to > from && Has(text[to - 1])) {
      --to;
    }
    return to;
  }

 private:
  bool Has(char byte) const { return delimiters_.find(byte) != std::string_view::npos; }

  std::string_view delimiters_;
};

// Where a text occurs in a chunk. The questions of one chunk come in rising order, and the chunk is searched
// only when one of them passes the last find.
class Occurrence {
 public:
  Occurrence(std::string_view chunk, std::string_view text) : chunk_(chunk), text_(text) { Search(0); }

  // The first occurrence from `from` on, or the chunk's size.
  size_t From(size_t from) {
    if (next_ < from) {
      Search(from);
    }
    return next_;
  }

  bool LiesIn(size_t from, size_t to) { return From(from) < chunk_.size() && next_ + text_.size() <= to; }

 private:
  void Search(size_t from) {
    const auto *found = static_cast<const char *>(
        memmem(chunk_.data() + from, chunk_.size() - from, text_.data(), text_.size()));
    next_ = found ? static_cast<size_t>(found - chunk_.data()) : chunk_.size();
  }

  std::string_view chunk_, text_;
  size_t next_;
};

class Grep {
 public:
  Grep(const char *text, const char *delimiters) : text_(text), delimiters_(delimiters) {
    DynBuf_Init(&lines_);
  }
  ~Grep() { DynBuf_Destroy(&lines_); }
  Grep(const Grep &) = delete;
  Grep &operator=(const Grep &) = delete;

  // Takes the next chunk of the stream. A chunk is a C string: it ends at its first NUL.
  void TakeChunk(std::string_view bytes) {
    const std::string_view chunk = UpToNul(bytes);
    Occurrence occurrence(chunk, text_);
    size_t position = 0;
    while (true) {
      if (!pending_) {
        // The lines before the one that holds the text next are passed over at once.
        position = delimiters_.LastRun(chunk, position, occurrence.From(position));
      }
      const size_t start = delimiters_.Skip(chunk, position);
      if (start == chunk.size()) {
        break;  // only delimiters remain
      }
      const size_t end = delimiters_.Find(chunk, start);
      // The byte at the position itself counts for no delimiter, only those behind it do.
      if (end == chunk.size() && start < position + 2) {
        break;
      }
      if (pending_) {
        TakePiecewiseLine(chunk.substr(start, end - start));
      } else if (occurrence.LiesIn(start, end)) {
        Append(chunk.substr(start, end - start));
      }
      position = end;
    }
    KeepRest(bytes, chunk, position);
  }

  // The lines found: a new line array, or null.
  char **Finish() {
    if (lines_.size == 0) {
      return nullptr;
    }
    constexpr char *kEnd = nullptr;
    DynBuf_SafeAppend(&lines_, &kEnd, sizeof kEnd);
    return static_cast<char **>(DynBuf_Detach(&lines_));
  }

 private:
  void TakePiecewiseLine(std::string_view token) {
    piece_ += token;
    pending_ = false;
    if (Holds(piece_, text_)) {
      Append(piece_);
    }
  }

  // Keeps what remains behind the position, for the next chunk to go on from.
  void KeepRest(std::string_view bytes, std::string_view chunk, size_t position) {
    if (pending_) {
      piece_ += chunk.substr(position);
      return;
    }
    pending_ = true;
    // The byte at the position is taken for the delimiter, whatever it is. Where it is the NUL that ended the
    // chunk, what stands behind the NUL is seen again.
    piece_ = position < bytes.size() ? UpToNul(bytes.substr(position + 1)) : std::string_view();
  }

  void Append(std::string_view line) {
    char *copy = Util_SafeStrndup(line.data(), line.size());
    DynBuf_SafeAppend(&lines_, &copy, sizeof copy);
  }

  std::string_view text_;
  DelimiterSet delimiters_;
  DynBuf lines_;  // of char *
  std::string piece_;
  bool pending_ = false;
};

}  // namespace

char **Grep_Stream(FileIODescriptor *file, const char *text, const char *delimiters) {
  Grep grep(text, delimiters);
  std::vector<char> buffer(kChunkSize * kChunksAtOnce);
  FileIOResult result;
  do {
    size_t size = 0;
    result = FileIO_Read(file, buffer.data(), buffer.size(), &size);
    if (result != FILEIO_SUCCESS && result != FILEIO_READ_PAST_EOF) {
      size -= size % kChunkSize;  // the chunk that the error struck is not looked at
    }
    for (size_t offset = 0; offset < size; offset += kChunkSize) {
      grep.TakeChunk(std::string_view(buffer.data(), size).substr(offset, kChunkSize));
    }
  } while (result == FILEIO_SUCCESS);
  return grep.Finish();
}

char **Grep_File(const char *path, const char *text, const char *delimiters) {
  FileIODescriptor file;
  FileIO_Invalidate(&file);
  if (FileIO_Open(&file, path, FILEIO_ACCESS_READ, FILEIO_OPEN) != FILEIO_SUCCESS) {
    return nullptr;
  }
  char **lines = Grep_Stream(&file, text, delimiters);
  FileIO_Close(&file);
  return lines;
}

char **Grep_ReadLines(const char *path, const char *delimiters) {
  return Grep_File(path, "", delimiters);
}

void Grep_FreeLines(char **lines) {
  if (!lines) {
    return;
  }
  for (char **line = lines; *line; ++line) {
    free(*line);
  }
  free(lines);
}
