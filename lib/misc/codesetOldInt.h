// The engine without ICU: iconv, with converters of our own for UTF-8, UTF-16 and ASCII.
//
// Each of these is what stands behind the function of like name in codeset.h when ICU isn't in use, and
// promises the same. What doesn't depend on the engine is here, too.
#ifndef OST_MISC_CODESETOLDINT_H
#define OST_MISC_CODESETOLDINT_H

#include <cstddef>

#include "dynbuf.h"

// Turns what was converted into a result: four NUL bytes behind it, and a block of just that size.
//
// ok       whether the conversion worked; if not, what there is of it is dropped
// dynBuf   taken over
// bufOut   gets the block (free), or null on failure
// sizeOut  if not null, gets the size without the NUL bytes, or 0 on failure
//
// Returns false when `ok` is false or memory is out.
bool CodeSetDynBufFinalize(bool ok, DynBuf *dynBuf, char **bufOut, size_t *sizeOut);

const char *CodeSetOld_GetCurrentCodeSet();

bool CodeSetOld_GenericToGenericDb(const char *codeIn, const char *bufIn, size_t sizeIn, const char *codeOut,
                                   unsigned flags, DynBuf *dynBuf);
bool CodeSetOld_GenericToGeneric(const char *codeIn, const char *bufIn, size_t sizeIn, const char *codeOut,
                                 unsigned flags, char **bufOut, size_t *sizeOut);
bool CodeSetOld_Validate(const char *buffer, size_t size, const char *code);
bool CodeSetOld_IsEncodingSupported(const char *name);

bool CodeSetOld_Utf8ToCurrent(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut);
bool CodeSetOld_CurrentToUtf8(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut);
bool CodeSetOld_Utf16leToCurrent(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut);
bool CodeSetOld_CurrentToUtf16le(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut);
bool CodeSetOld_Utf16beToCurrent(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut);
bool CodeSetOld_Utf16leToUtf8(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut);
bool CodeSetOld_Utf16leToUtf8Db(const char *bufIn, size_t sizeIn, DynBuf *dynBuf);
bool CodeSetOld_Utf16beToUtf8(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut);
bool CodeSetOld_Utf8ToUtf16le(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut);
bool CodeSetOld_Utf8ToAscii(const char *bufIn, size_t sizeIn, unsigned flags, char **bufOut, size_t *sizeOut);
bool CodeSetOld_Utf8ToAsciiDb(const char *bufIn, size_t sizeIn, unsigned flags, DynBuf *dynBuf);
bool CodeSetOld_AsciiToUtf8(const char *bufIn, size_t sizeIn, unsigned flags, char **bufOut, size_t *sizeOut);
bool CodeSetOld_AsciiToUtf8Db(const char *bufIn, size_t sizeIn, unsigned flags, DynBuf *dynBuf);

bool CodeSetOld_Utf8Normalize(const char *bufIn, size_t sizeIn, bool precomposed, DynBuf *dynBuf);
bool CodeSetOld_Utf8FormDToUtf8FormC(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut);

#endif
