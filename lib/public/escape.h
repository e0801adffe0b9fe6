// Escaping and its reverse: of bytes by an escape and two hexadecimal digits, of single bytes by a byte
// before them, of C's string literals, of a shell's words, and of line ends.
//
//   bool special[256] = {};
//   special['#'] = special[';'] = true;
//   const OwnedString safe(Escape_Do('#', special, "a;b", 3, nullptr));     // "a#3Bb"
//   const OwnedString again(Escape_Undo('#', safe.get(), 5, nullptr));      // "a;b"
//
// Input may hold any byte where a size goes with it, and may then be null when the size is 0. What is
// returned is a new string (free) with a NUL behind it, or null when memory is out. `outSize`, when not null,
// gets the size in bytes without that NUL, 0 when memory is out.
#ifndef OST_PUBLIC_ESCAPE_H
#define OST_PUBLIC_ESCAPE_H

#include <cstddef>

// Turns each flagged byte into `escStr` and two upper-case hexadecimal digits.
//
// bytesToEsc  256 flags; the first byte of `escStr` must be flagged, or the program stops
char *Escape_DoString(const char *escStr, const bool *bytesToEsc, const void *buf, size_t size,
                      size_t *outSize);
// The same with a string of one byte.
char *Escape_Do(char escByte, const bool *bytesToEsc, const void *buf, size_t size, size_t *outSize);
// Turns each escape byte with two hexadecimal digits of either case into the byte they name. An escape that
// isn't whole stays as it stands, and the byte that breaks it is looked at no more: "%%41" stays "%%41".
char *Escape_Undo(char escByte, const void *buf, size_t size, size_t *outSize);

// Drops each escape byte and keeps the byte behind it whatever it is.
char *Escape_Unescape(char escByte, const char *str);
// The first `c` in `str` that no escape byte stands before: borrowed from `str`, or null when there is none.
// The terminating NUL is never found. An escape byte that equals `c` stops the program.
const char *Escape_Strchr(char escByte, const char *str, char c);

// Undoes C's escapes in place: "\n", "\\", and a backslash with a number that scanf reads by "%03o", of which
// the lowest eight bits become the byte. Another backslash stays, and the byte behind it is treated as any
// other.
void Escape_UnescapeCString(char *str);

// Quotes a text so that a shell takes it as one word.
char *Escape_Sh(const void *buf, size_t size, size_t *outSize);

// Removes each carriage return that stands directly before a line feed.
char *Escape_AnsiToUnix(const void *buf, size_t size, size_t *outSize);

#endif
