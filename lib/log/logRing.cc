// Text that waits for the file.
#include <unistd.h>

#include <algorithm>
#include <atomic>
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

// Takes what can be written in one piece out of the ring, where it stays until the outermost drain has
// written its own and takes more. Nothing when nothing is left.
std::string_view LogRingTake(LogState *state, bool isNested) {
  const LogMoment moment;
  if (!isNested) {
    state->ringGoesRound = state->ringTaken > 0 && state->ringRead == 0;
    state->ringTaken = 0;
    if (state->ringCount == 0) {
      // From the start again, so that the next line goes out in one piece.
      state->ringRead = 0;
      state->ringWrite = 0;
    }
  }
  const std::string_view piece(state->ringStart + state->ringRead,
                               std::min(state->ringCount, kRingSize - state->ringRead));
  LogRingDrop(state, piece.size());
  state->ringTaken = state->ringTaken + piece.size();
  return piece;
}

}  // namespace

void LogQueue(LogState *state, std::string_view piece) {
  ASSERT(piece.size() < kRingSize);
  const LogMoment moment;
  if (state->ringStart == nullptr) {
    state->ringStart = static_cast<char *>(malloc(kRingSize));
    if (state->ringStart == nullptr) {
      return;
    }
  }
  while (piece.size() > kRingSize - state->ringTaken - state->ringCount) {
    // No room is won in front of what is being written.
    if (state->ringTaken > 0) {
      return;
    }
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
  // A signal's handler that logs in the middle of a write drains the ring too, behind what was taken; but not
  // where that ends with the ring, or goes on from its start, for there a line may be in two pieces.
  const bool isNested = state->ringTaken > 0;
  if (isNested && (state->ringRead == 0 || state->ringGoesRound)) {
    return;
  }
  for (std::string_view piece = LogRingTake(state, isNested); !piece.empty();
       piece = LogRingTake(state, isNested)) {
    // Logging never stops the work: what the file doesn't take is lost.
    [[maybe_unused]] const ssize_t written = write(state->fd, piece.data(), piece.size());
    state->fileSize += piece.size();
  }
}
