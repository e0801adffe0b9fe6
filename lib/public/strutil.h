// Tokens, numbers and comparisons on plain strings.
#ifndef OST_PUBLIC_STRUTIL_H
#define OST_PUBLIC_STRUTIL_H

#include <cstdint>

// The next token of `str`: skips delimiters from `*index`, takes what stands up to the next delimiter or the
// end, and moves `*index` behind it.
//
// index       byte position, in and out
// delimiters  every byte of it separates tokens
//
// Returns a new string (free), or null when only delimiters remain: then `*index` is left alone.
char *StrUtil_GetNextToken(unsigned *index, const char *str, const char *delimiters);

// Parse the whole of `str` with C's prefixes for bases. Return false, with `*out` unspecified, when something
// is left over or the value is out of range.
bool StrUtil_StrToInt(int32_t *out, const char *str);
bool StrUtil_StrToUint(uint32_t *out, const char *str);
bool StrUtil_StrToInt64(int64_t *out, const char *str);

bool StrUtil_StartsWith(const char *str, const char *prefix);
bool StrUtil_EndsWith(const char *str, const char *suffix);

#endif
