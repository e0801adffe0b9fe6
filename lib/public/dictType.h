// Typed access to a dictionary by a printf-style name.
//
// The getters return what Dictionary_Get finds, with its default. A name is cut at 1023 bytes. The Plain
// forms mean entries that stay outside the encrypted section.
#ifndef OST_PUBLIC_DICTTYPE_H
#define OST_PUBLIC_DICTTYPE_H

#include <cstdint>

#include "dictionary.h"

#define OST_PRINTF(index, first) __attribute__((format(printf, index, first)))

// Return a new string (free); a null value or default is null.
char *Dict_GetString(Dictionary *dict, const char *defaultValue, const char *format, ...) OST_PRINTF(3, 4);
char *Dict_GetStringPlain(Dictionary *dict, const char *defaultValue, const char *format, ...)
    OST_PRINTF(3, 4);
bool Dict_GetBool(Dictionary *dict, bool defaultValue, const char *format, ...) OST_PRINTF(3, 4);
bool Dict_GetBoolPlain(Dictionary *dict, bool defaultValue, const char *format, ...) OST_PRINTF(3, 4);
int32_t Dict_GetLong(Dictionary *dict, int32_t defaultValue, const char *format, ...) OST_PRINTF(3, 4);
int32_t Dict_GetLongPlain(Dictionary *dict, int32_t defaultValue, const char *format, ...) OST_PRINTF(3, 4);
int64_t Dict_GetInt64(Dictionary *dict, int64_t defaultValue, const char *format, ...) OST_PRINTF(3, 4);
int64_t Dict_GetInt64Plain(Dictionary *dict, int64_t defaultValue, const char *format, ...) OST_PRINTF(3, 4);
double Dict_GetDouble(Dictionary *dict, double defaultValue, const char *format, ...) OST_PRINTF(3, 4);

void Dict_SetString(Dictionary *dict, const char *value, const char *format, ...) OST_PRINTF(3, 4);
void Dict_SetStringPlain(Dictionary *dict, const char *value, const char *format, ...) OST_PRINTF(3, 4);
void Dict_SetBool(Dictionary *dict, bool value, const char *format, ...) OST_PRINTF(3, 4);
void Dict_SetBoolPlain(Dictionary *dict, bool value, const char *format, ...) OST_PRINTF(3, 4);
void Dict_SetLong(Dictionary *dict, int32_t value, const char *format, ...) OST_PRINTF(3, 4);
void Dict_SetLongPlain(Dictionary *dict, int32_t value, const char *format, ...) OST_PRINTF(3, 4);
void Dict_SetInt64(Dictionary *dict, int64_t value, const char *format, ...) OST_PRINTF(3, 4);
void Dict_SetInt64Plain(Dictionary *dict, int64_t value, const char *format, ...) OST_PRINTF(3, 4);
void Dict_SetDouble(Dictionary *dict, double value, const char *format, ...) OST_PRINTF(3, 4);
// Sets a text that is read as the type that the entry has.
void Dict_SetAny(Dictionary *dict, const char *value, const char *format, ...) OST_PRINTF(3, 4);

// Reads a string that must be one of some choices. Another one gives the default; it posts an error unless it
// is empty.
//
// defaultValue  one of the choices, or null; anything else stops the program
// choices       ended by a null
//
// Returns a new string (free), or null.
char *Dict_GetStringEnum(Dictionary *dict, const char *defaultValue, const char *const *choices,
                         const char *format, ...) OST_PRINTF(4, 5);

#undef OST_PRINTF

#endif
