// Conversion of bytes between character sets by name.
//
// Two engines stand behind one switch: ICU when its data file is found at start-up, otherwise the C library's
// iconv with converters of our own for UTF-8, UTF-16 and ASCII.
//
// Unless told otherwise each conversion takes `sizeIn` bytes at `bufIn`, gives a new buffer (free) at
// `bufOut` with four NUL bytes behind it, and at `sizeOut`, when not null, its size in bytes without those
// four. Each returns whether it worked; when not, `*bufOut` is null and `*sizeOut` 0. A Db form appends to a
// DynBuf, with nothing behind it.
//
// Null is an empty text, whatever its size. Only CodeSet_Validate, and under iconv the generic conversions
// and those of the current code set, fail on null with a size.
#ifndef OST_PUBLIC_CODESET_H
#define OST_PUBLIC_CODESET_H

#include <cstddef>

#include "dynbuf.h"

// What is done with a sequence that has no counterpart or is none. Under iconv the last two are the same: the
// text may be transliterated, and an invalid sequence ends it. Characters that show nothing and have no
// counterpart are dropped under any of them: by ICU all such, as U+200B, by iconv the tags from U+E0000 on.
enum {
  CODESET_STOP = 0,        // the call fails
  CODESET_SUBSTITUTE = 1,  // the substitution character stands for it
  CODESET_SKIP = 2,        // it is dropped
};

// Looks for ICU's data file, once at start-up.
//
// icuDataDir  the directory to look in; null for the default
//
// Always true: without the file iconv does the work.
bool CodeSet_Init(const char *icuDataDir);
// Leaves the work to iconv from now on.
void CodeSet_DontUseIcu();
// The name of the encoding of file names, borrowed until the process ends. First called before there are
// threads.
const char *CodeSet_GetCurrentCodeSet();

bool CodeSet_GenericToGenericDb(const char *codeIn, const char *bufIn, size_t sizeIn, const char *codeOut,
                                unsigned flags, DynBuf *dynBuf);
bool CodeSet_GenericToGeneric(const char *codeIn, const char *bufIn, size_t sizeIn, const char *codeOut,
                              unsigned flags, char **bufOut, size_t *sizeOut);
// Whether `size` bytes are well-formed text in the encoding `code`. A size of 2 GiB or more stops the
// program.
bool CodeSet_Validate(const char *buffer, size_t size, const char *code);
// Whether the engine in use knows the encoding. Null stops the program when iconv is in use.
bool CodeSet_IsEncodingSupported(const char *name);

bool CodeSet_Utf8ToCurrent(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut);
bool CodeSet_CurrentToUtf8(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut);
bool CodeSet_Utf16leToCurrent(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut);
bool CodeSet_CurrentToUtf16le(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut);
bool CodeSet_Utf16beToCurrent(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut);
bool CodeSet_Utf16leToUtf8(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut);
bool CodeSet_Utf16leToUtf8Db(const char *bufIn, size_t sizeIn, DynBuf *dynBuf);
bool CodeSet_Utf16beToUtf8(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut);
bool CodeSet_Utf8ToUtf16le(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut);
bool CodeSet_Utf8ToAscii(const char *bufIn, size_t sizeIn, unsigned flags, char **bufOut, size_t *sizeOut);
bool CodeSet_Utf8ToAsciiDb(const char *bufIn, size_t sizeIn, unsigned flags, DynBuf *dynBuf);
bool CodeSet_AsciiToUtf8(const char *bufIn, size_t sizeIn, unsigned flags, char **bufOut, size_t *sizeOut);
bool CodeSet_AsciiToUtf8Db(const char *bufIn, size_t sizeIn, unsigned flags, DynBuf *dynBuf);

// Normalization isn't there on either engine: these stop the program.
bool CodeSet_Utf8Normalize(const char *bufIn, size_t sizeIn, bool precomposed, DynBuf *dynBuf);
bool CodeSet_Utf8FormDToUtf8FormC(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut);

#endif
