// Tokens, numbers, sizes and comparisons on plain strings, and printing to the end of a DynBuf.
#ifndef OST_PUBLIC_STRUTIL_H
#define OST_PUBLIC_STRUTIL_H

#include <cstdarg>
#include <cstdint>

#include "dynbuf.h"

// The next token of `str`: skips delimiters from `*index`, takes what stands up to the next delimiter or the
// end, and moves `*index` behind it.
//
// index       byte position, in and out
// delimiters  every byte of it separates tokens
//
// Returns a new string (free), or null when only delimiters remain: then `*index` is left alone.
char *StrUtil_GetNextToken(unsigned *index, const char *str, const char *delimiters);
// Take the next token in the same way and parse it as below. Return false, with `*out` unspecified, when
// there is none or it doesn't parse.
bool StrUtil_GetNextIntToken(int32_t *out, unsigned *index, const char *str, const char *delimiters);
bool StrUtil_GetNextUintToken(uint32_t *out, unsigned *index, const char *str, const char *delimiters);
bool StrUtil_GetNextInt64Token(int64_t *out, unsigned *index, const char *str, const char *delimiters);

// Parse the whole of `str` with C's prefixes for bases; an empty text is 0. Return false, with `*out`
// unspecified, when something is left over or the value is out of range.
bool StrUtil_StrToInt(int32_t *out, const char *str);
bool StrUtil_StrToUint(uint32_t *out, const char *str);
bool StrUtil_StrToInt64(int64_t *out, const char *str);
// Parses the decimal digits at `*str`, without blanks or a sign, and moves `*str` behind them. Returns false,
// with both left alone, when there is no digit or the value is out of range.
bool StrUtil_DecimalStrToUint(uint32_t *out, const char **str);

bool StrUtil_StartsWith(const char *str, const char *prefix);
bool StrUtil_CaselessStartsWith(const char *str, const char *prefix);
bool StrUtil_EndsWith(const char *str, const char *suffix);

// Reads a capacity such as "40 GB" or "1.5t" as a count of sectors of 512 bytes, rounded to the nearest.
//
// str                a number not below 0, blanks or tabs, and B (bytes), S (sectors), K, M, G or T, the last
//                    four also with a B behind them, in either case, or no suffix
// defaultMultiplier  the bytes that one stands for when there is no suffix
//
// Returns false, with `*out` left alone, when the number is missing or out of range, or the suffix is
// another.
bool StrUtil_CapacityToSectors(uint64_t *out, const char *str, unsigned defaultMultiplier);
// A size in bytes as people read it: "1.5 KB", "2 GB", "1 byte". Returns a new string (free).
char *StrUtil_FormatSizeInBytes(uint64_t size);

// Print to the end of a buffer, without a NUL. Return false, with the buffer's content left alone, when
// memory is out or the format fails; in the Safe form a failure stops the program.
bool StrUtil_VDynBufPrintf(DynBuf *buf, const char *format, va_list args)
    __attribute__((format(printf, 2, 0)));
bool StrUtil_DynBufPrintf(DynBuf *buf, const char *format, ...) __attribute__((format(printf, 2, 3)));
void StrUtil_SafeDynBufPrintf(DynBuf *buf, const char *format, ...) __attribute__((format(printf, 2, 3)));

#endif
