#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "bsd_output_vectorInt.h"

namespace {

constexpr size_t kGrowth = 64;

size_t RoundUp(size_t size) {
  return (size + kGrowth - 1) / kGrowth * kGrowth;
}

// Makes room for `length` bytes and the NUL.
bool Grow(BsdOutput *out, size_t length) {
  const size_t size = RoundUp(std::max(length, 2 * out->capacity) + 1);
  char *grown = static_cast<char *>(realloc(out->buffer, size));
  if (grown == nullptr) {
    out->failed = true;
    return false;
  }
  out->buffer = grown;
  out->capacity = size - 1;
  return true;
}

// Most pieces are short, for which a call costs more than the bytes.
inline void Copy(char *to, const char *from, size_t length) {
  if (length > 16) {
    memcpy(to, from, length);
  } else if (length >= 8) {
    uint64_t first = 0;
    uint64_t last = 0;
    memcpy(&first, from, sizeof first);
    memcpy(&last, from + length - sizeof last, sizeof last);
    memcpy(to, &first, sizeof first);
    memcpy(to + length - sizeof last, &last, sizeof last);
  } else if (length >= 4) {
    uint32_t first = 0;
    uint32_t last = 0;
    memcpy(&first, from, sizeof first);
    memcpy(&last, from + length - sizeof last, sizeof last);
    memcpy(to, &first, sizeof first);
    memcpy(to + length - sizeof last, &last, sizeof last);
  } else if (length > 0) {
    to[0] = from[0];
    to[length / 2] = from[length / 2];
    to[length - 1] = from[length - 1];
  }
}

// Makes room for the pieces that wait. Returns false when the print has failed.
bool GrowForPieces(BsdOutput *out) {
  uint64_t total = out->total;
  for (size_t i = 0; i < out->numPieces; i++) {
    total += out->pieces[i].length;
  }
  out->failed = out->failed || total > INT_MAX;
  return !out->failed && (total <= out->capacity || Grow(out, static_cast<size_t>(total)));
}

// Counts what of a long padding doesn't come into the buffer. Returns how much does: nothing of what would
// make a new text too long.
size_t CutPadding(BsdOutput *out, size_t count) {
  BsdOutput_Flush(out);
  const bool tooLong = out->total + count > INT_MAX;
  const size_t room = !out->growing ? out->capacity - out->used : tooLong ? 0 : count;
  const size_t fitting = std::min(count, room);
  out->total += count - fitting;
  return fitting;
}

}  // namespace

void BsdOutput_Flush(BsdOutput *out) {
  const size_t numPieces = out->growing && !GrowForPieces(out) ? 0 : out->numPieces;
  char *to = out->buffer + out->used;
  size_t room = out->capacity - out->used;
  uint64_t total = out->total;
  for (size_t i = 0; i < numPieces; i++) {
    const BsdOutput::Piece &piece = out->pieces[i];
    const size_t length = std::min(piece.length, room);
    Copy(to, piece.text, length);
    to += length;
    room -= length;
    total += piece.length;
  }
  out->numPieces = 0;
  out->used = out->capacity - room;
  out->total = total;
  out->failed = out->failed || total > INT_MAX;
}

void BsdOutput_Pad(BsdOutput *out, const char *block, size_t count) {
  if (count > BSDOUTPUT_BLOCK * BsdOutput::kPieces) {
    count = CutPadding(out, count);
  }
  for (; count > BSDOUTPUT_BLOCK; count -= BSDOUTPUT_BLOCK) {
    BsdOutput_AddPiece(out, block, BSDOUTPUT_BLOCK);
  }
  BsdOutput_Add(out, block, count);
}

void BsdOutput_Init(BsdOutput *out, char *buffer, size_t size, const char *format) {
  out->buffer = buffer;
  out->capacity = buffer == nullptr || size == 0 ? 0 : size - 1;
  out->used = 0;
  out->total = 0;
  out->growing = buffer == nullptr;
  out->terminated = out->growing || size > 0;
  out->failed = false;
  out->numPieces = 0;
  out->scratchUsed = 0;
  if (out->growing) {
    Grow(out, strlen(format));
  }
}

int BsdOutput_Finish(BsdOutput *out, char **outBuffer) {
  BsdOutput_Flush(out);
  if (out->growing && out->failed) {
    free(out->buffer);
    *outBuffer = nullptr;
    return -1;
  }
  if (out->terminated) {
    out->buffer[out->used] = '\0';
  }
  *outBuffer = out->buffer;
  return out->failed ? -1 : static_cast<int>(out->total);
}
