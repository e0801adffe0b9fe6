// What the modules of the file operations share.
#ifndef OST_FILE_FILEINT_H
#define OST_FILE_FILEINT_H

#include "unicode.h"

// A name that the system gave, or null with EINVAL when it can't be converted. Where the system's names are
// UTF-8 one that is no text stays as it is, so that its file can still be reached.
OwnedUnicode FileFromSystem(const char *bytes);

#endif
