// What the parts of FileIO share.
#ifndef OST_FILE_FILEIOINT_H
#define OST_FILE_FILEIOINT_H

#include "fileIO.h"

// The most bytes that one call may be asked to move.
constexpr size_t kFileIOMaxTransfer = 0x7fffffff;

FileIOResult FileIOErrnoToResult(int error);

#endif
