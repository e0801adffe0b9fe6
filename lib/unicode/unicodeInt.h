// What the modules of this folder share.
#ifndef OST_UNICODE_UNICODEINT_H
#define OST_UNICODE_UNICODEINT_H

#include <string_view>

#include "unicode.h"

// The row of the table that a name in any of its spellings belongs to, or -1 with a line in the log. Safe
// from any thread.
int UnicodeIANALookup(const char *name);

// The encoding itself, or the current one for STRING_ENCODING_DEFAULT.
StringEncoding UnicodeResolveEncoding(StringEncoding encoding);
// How many bytes a unit and the terminator of the encoding have.
size_t UnicodeUnitSize(StringEncoding encoding);
bool UnicodeIsAscii(const char *bytes, size_t size);
// A new copy with a NUL behind it; null when memory is out.
char *UnicodeCopy(const char *bytes, size_t size);

// Converts `length` bytes into a new string; null when that fails.
//
// strict  whether bytes that aren't in the encoding are a failure, instead of being substituted
char *UnicodeAllocInternal(const char *buffer, size_t length, StringEncoding encoding, bool strict);
// Converts the first bytes of a string, all when `lengthInBytes` is -1, into new bytes with their terminator.
//
// retLength  if not null, gets the bytes without the terminator
//
// Null when the encoding can't express them. In UTF-16LE a lack of memory stops the program.
char *UnicodeGetAllocBytesInternal(Unicode str, StringEncoding encoding, ssize_t lengthInBytes,
                                   size_t *retLength);

// Fits a range to its string.
void UnicodePinIndices(Unicode str, UnicodeIndex *strStart, UnicodeIndex *strLength);
// What a range fitted so covers.
std::string_view UnicodeRange(Unicode str, UnicodeIndex start, UnicodeIndex length);

#endif
