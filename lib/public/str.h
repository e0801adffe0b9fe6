// Bounded strings that stop the program instead of overflowing, and formatted printing with one fixed
// behaviour.
//
//   char name[16];
//   Str_Strcpy(name, source, sizeof name);
//   const OwnedString text(Str_SafeAsprintf(nullptr, "%s of %d", name, count));
//
// An overflow ends in Panic with "%s:%d Buffer too small 0x%x\n": source, line and the caller's address. Null
// for a string or a buffer is a fatal assertion.
//
// The format language is the C standard's, whatever the host's C library has, but for these:
//   - "%2$s" takes the value from a position and "%*2$d" a width or a precision;
//   - the length modifiers q and L are ll, Z and I are z, I64 is 64 bits, I32 changes nothing; D, O and U
//     are ld, lo and lu, S and C are ls and lc;
//   - wide text becomes UTF-8 whatever the locale is, and a precision never splits a character;
//   - "'" groups digits by the locale;
//   - p is upper-case hexadecimal with no prefix, a NaN has no sign, and there is no a and no A;
//   - an unknown conversion prints its byte, and a format that ends within one ends the output.
#ifndef OST_PUBLIC_STR_H
#define OST_PUBLIC_STR_H

#include <cstdarg>
#include <cstddef>

// ---- Bounded copies

// Copy, and append. `maxSize` is the size of `dest`, in bytes or in wide characters.
//
// The forms with a count append at most `count` of `source`. They stop the program only when both `count` and
// the length of `source` are too large.
//
// Return `dest`.
char *Str_Strcpy(char *dest, const char *source, size_t maxSize);
char *Str_Strcat(char *dest, const char *source, size_t maxSize);
char *Str_Strncat(char *dest, size_t maxSize, const char *source, size_t count);
char *Str_Mbscpy(char *dest, const char *source, size_t maxSize);
char *Str_Mbscat(char *dest, const char *source, size_t maxSize);
wchar_t *Str_Wcscpy(wchar_t *dest, const wchar_t *source, size_t maxSize);
wchar_t *Str_Wcscat(wchar_t *dest, const wchar_t *source, size_t maxSize);
wchar_t *Str_Wcsncat(wchar_t *dest, size_t maxSize, const wchar_t *source, size_t count);

// ---- Looking

// Turns A to Z into lower case in place and leaves all other bytes alone. Returns `text`.
char *Str_ToLower(char *text);
// The length, counted up to `maxLength`.
size_t Str_Strlen(const char *text, size_t maxLength);
// The first match that lies within the first `maxLength` bytes, borrowed from `text`, or null. An empty
// substring matches at once.
const char *Str_Strnstr(const char *text, const char *substring, size_t maxLength);

// ---- Printing into a buffer

// Prints into `buffer` of `size` bytes. Returns the count of bytes without the NUL, or -1 when the text did
// not fit, or the print failed: then the buffer holds a terminated prefix that isn't cut within a UTF-8
// sequence. A cut behind bytes that are no UTF-8 stops the program.
int Str_Vsnprintf(char *buffer, size_t size, const char *format, va_list args)
    __attribute__((format(printf, 3, 0)));
void Str_Snprintf(char *buffer, size_t size, const char *format, ...) __attribute__((format(printf, 3, 4)));
// The same, but a text that doesn't fit, or a failed print, stops the program.
int Str_Sprintf(char *buffer, size_t size, const char *format, ...) __attribute__((format(printf, 3, 4)));

// ---- Printing into a new string

// Print into a new string (free). `outLength`, when not null, gets the length in bytes without the NUL. Null
// on failure; in the Safe forms a failure stops the program.
char *Str_Vasprintf(size_t *outLength, const char *format, va_list args)
    __attribute__((format(printf, 2, 0)));
char *Str_Asprintf(size_t *outLength, const char *format, ...) __attribute__((format(printf, 2, 3)));
char *Str_SafeVasprintf(size_t *outLength, const char *format, va_list args)
    __attribute__((format(printf, 2, 0)));
char *Str_SafeAsprintf(size_t *outLength, const char *format, ...) __attribute__((format(printf, 2, 3)));

// ---- Printing wide text

// The same for wide strings, with the format language of the C library's vswprintf. Sizes and lengths are in
// characters. A text that doesn't fit is cut behind size - 1 characters.
int Str_Vswprintf(wchar_t *buffer, size_t size, const wchar_t *format, va_list args);
void Str_Snwprintf(wchar_t *buffer, size_t size, const wchar_t *format, ...);
int Str_Swprintf(wchar_t *buffer, size_t size, const wchar_t *format, ...);
wchar_t *Str_Vaswprintf(size_t *outLength, const wchar_t *format, va_list args);
wchar_t *Str_Aswprintf(size_t *outLength, const wchar_t *format, ...);
wchar_t *Str_SafeVaswprintf(size_t *outLength, const wchar_t *format, va_list args);
wchar_t *Str_SafeAswprintf(size_t *outLength, const wchar_t *format, ...);

#endif
