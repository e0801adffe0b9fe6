// Lines of a file that hold a text.
//
// A line array is a null-terminated array of owned strings; a null array means no line.
#ifndef OST_PUBLIC_GREP_H
#define OST_PUBLIC_GREP_H

#include "fileIO.h"

// Reads an open file to its end and gives the lines that hold `text`, split at any byte of `delimiters`.
// Returns a new array (Grep_FreeLines) or null. Empty lines vanish, and so does a last line without a
// delimiter unless an empty line stands before it. After a read error it is what was found up to there.
char **Grep_Stream(FileIODescriptor *file, const char *text, const char *delimiters);
// The same over a file by name; a file that can't be opened gives null.
char **Grep_File(const char *path, const char *text, const char *delimiters);
// All lines of a file.
char **Grep_ReadLines(const char *path, const char *delimiters);
// Null is accepted.
void Grep_FreeLines(char **lines);

#endif
