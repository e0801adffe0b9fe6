// Memory: allocation that cannot fail, and lists of strings as one text.
//
// A failing allocation ends the process with "Unrecoverable memory allocation failure at %s:%d\n" and the
// caller's source and line, or, when the bug number isn't -1, with
// "Unrecoverable memory allocation failure at %s:%d.  Bug number: %d\n".
//
// What these return is freed with free(). A null string gives null; a size of 0 may give null.
#ifndef OST_PUBLIC_UTIL_MISC_H
#define OST_PUBLIC_UTIL_MISC_H

#include <cstddef>

void *UtilSafeMallocInt(int bugNumber, size_t size, const char *file, int line);
void *UtilSafeReallocInt(int bugNumber, void *pointer, size_t size, const char *file, int line);
void *UtilSafeCallocInt(int bugNumber, size_t count, size_t size, const char *file, int line);
char *UtilSafeStrdupInt(int bugNumber, const char *text, const char *file, int line);
// Copies at most `length` bytes of `text`.
char *UtilSafeStrndupInt(int bugNumber, const char *text, size_t length, const char *file, int line);

#define Util_SafeMalloc(size) UtilSafeMallocInt(-1, size, __FILE__, __LINE__)
#define Util_SafeRealloc(pointer, size) UtilSafeReallocInt(-1, pointer, size, __FILE__, __LINE__)
#define Util_SafeCalloc(count, size) UtilSafeCallocInt(-1, count, size, __FILE__, __LINE__)
#define Util_SafeStrdup(text) UtilSafeStrdupInt(-1, text, __FILE__, __LINE__)
#define Util_SafeStrndup(text, length) UtilSafeStrndupInt(-1, text, length, __FILE__, __LINE__)

// One text of `count` strings, in which they can be told apart whatever they hold. Returns a new string
// (free).
char *Util_CombineStrings(const char *const *list, size_t count);
// Undoes that. Returns a new array of `*outCount` new strings (free each, and the array).
char **Util_SeparateStrings(const char *text, size_t *outCount);

#endif
