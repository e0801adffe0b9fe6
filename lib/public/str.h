// Bounded strings and formatted printing with one fixed behaviour.
#ifndef OST_PUBLIC_STR_H
#define OST_PUBLIC_STR_H

#include <cstdarg>
#include <cstddef>

// Prints into `buffer` of `size` bytes. Returns the count of bytes without the NUL, or -1 when the text did
// not fit: then the buffer holds a terminated prefix that never ends in half a UTF-8 sequence.
int Str_Vsnprintf(char *buffer, size_t size, const char *format, va_list args)
    __attribute__((format(printf, 3, 0)));
void Str_Snprintf(char *buffer, size_t size, const char *format, ...) __attribute__((format(printf, 3, 4)));

// Print into a new string (free). `outLength`, when not null, gets the length in bytes without the NUL. Null
// on failure; in the Safe forms a failure stops the program.
char *Str_Vasprintf(size_t *outLength, const char *format, va_list args)
    __attribute__((format(printf, 2, 0)));
char *Str_Asprintf(size_t *outLength, const char *format, ...) __attribute__((format(printf, 2, 3)));
char *Str_SafeVasprintf(size_t *outLength, const char *format, va_list args)
    __attribute__((format(printf, 2, 0)));
char *Str_SafeAsprintf(size_t *outLength, const char *format, ...) __attribute__((format(printf, 2, 3)));

#endif
