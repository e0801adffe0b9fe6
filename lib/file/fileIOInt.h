// What the parts of FileIO share.
#ifndef OST_FILE_FILEIOINT_H
#define OST_FILE_FILEIOINT_H

#include "fileIO.h"

// The most bytes that one call may be asked to move.
constexpr size_t kFileIOMaxTransfer = 0x7fffffff;

// How the vector operations are tuned.
struct FileIOTuning {
  bool coalesceEnable = true;    // gather small vectors
  bool coalesceAligned = false;  // into a buffer at the beginning of a page
  int coalesceCount = 5;         // gather only more entries than this
  int coalesceSize = 16384;      // gather only entries that are smaller on average, in bytes
  int aioNumThreads = 0;         // has no effect
};

// Tunes the vector operations of the process from here on.
void FileIOSetTuning(const FileIOTuning &tuning);

FileIOResult FileIOErrnoToResult(int error);

#endif
