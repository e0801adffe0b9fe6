// Text that waits for the file.
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "logInt.h"
#include "panicUser.h"

namespace {

constexpr size_t kRingSize = 32768;

void LogRingDrop(LogState *state, size_t size) {
  state->ringRead = (state->ringRead + size) % kRingSize;
  state->ringCount -= size;
}

void LogRingDropOldestLine(LogState *state) {
  bool newline = false;
  while (!newline && state->ringCount > 0) {
    const char *start = state->ringStart + state->ringRead;
    const size_t size = std::min(state->ringCount, kRingSize - state->ringRead);
    const auto *end = static_cast<const char *>(memchr(start, '\n', size));
    newline = end != nullptr;
    LogRingDrop(state, newline ? static_cast<size_t>(end - start) + 1 : size);
  }
}

}  // namespace

void LogQueue(LogState *state, std::string_view piece) {
  ASSERT(piece.size() < kRingSize);
  if (state->ringStart == nullptr) {
    state->ringStart = static_cast<char *>(malloc(kRingSize));
    if (state->ringStart == nullptr) {
      return;
    }
  }
  while (piece.size() > kRingSize - state->ringCount) {
    LogRingDropOldestLine(state);
  }
  const size_t first = std::min(piece.size(), kRingSize - state->ringWrite);
  memcpy(state->ringStart + state->ringWrite, piece.data(), first);
  if (first < piece.size()) {
    memcpy(state->ringStart, piece.data() + first, piece.size() - first);
  }
  state->ringWrite = (state->ringWrite + piece.size()) % kRingSize;
  state->ringCount += piece.size();
}

void LogDrain(LogState *state) {
  while (state->ringCount > 0) {
    const char *start = state->ringStart + state->ringRead;
    const size_t size = std::min(state->ringCount, kRingSize - state->ringRead);
    // Before the write, for a signal's handler that logs in the middle of it drains the ring too.
    LogRingDrop(state, size);
    // Logging never stops the work: what the file doesn't take is lost.
    [[maybe_unused]] const ssize_t written = write(state->fd, start, size);
    state->fileSize += size;
  }
  // From the start again, so that the next line goes out in one piece.
  state->ringRead = 0;
  state->ringWrite = 0;
}
