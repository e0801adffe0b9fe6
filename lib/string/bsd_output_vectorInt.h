// The vector of pieces through which all printed text goes, for the sources of bsd_output_shared.h.
#ifndef OST_STRING_BSD_OUTPUT_VECTORINT_H
#define OST_STRING_BSD_OUTPUT_VECTORINT_H

#include "bsd_output_shared.h"

constexpr size_t BSDOUTPUT_BLOCK = 16;
inline constexpr char BSDOUTPUT_BLANKS[BSDOUTPUT_BLOCK + 1] = "                ";
inline constexpr char BSDOUTPUT_ZEROS[BSDOUTPUT_BLOCK + 1] = "0000000000000000";

// Writes the waiting pieces into the buffer.
void BsdOutput_Flush(BsdOutput *out);

// Appends `count` bytes of a block.
void BsdOutput_Pad(BsdOutput *out, const char *block, size_t count);

// Appends a piece that may be empty; of those there should be few.
inline void BsdOutput_AddPiece(BsdOutput *out, const char *text, size_t length) {
  if (out->numPieces == BsdOutput::kPieces) {
    BsdOutput_Flush(out);
  }
  out->pieces[out->numPieces++] = {text, length};
}

// Appends a piece unless it is empty.
inline void BsdOutput_Add(BsdOutput *out, const char *text, size_t length) {
  if (length > 0) {
    BsdOutput_AddPiece(out, text, length);
  }
}

// Room for a converted value, which stays until the vector is flushed for more room.
inline char *BsdOutput_Scratch(BsdOutput *out, size_t size) {
  if (size > BsdOutput::kScratch - out->scratchUsed) {
    BsdOutput_Flush(out);
    out->scratchUsed = 0;
  }
  char *room = out->scratch + out->scratchUsed;
  out->scratchUsed += size;
  return room;
}

// Gives back what of the last room is behind `end`.
inline void BsdOutput_TrimScratch(BsdOutput *out, const char *end) {
  out->scratchUsed = static_cast<size_t>(end - out->scratch);
}

#endif
