// The engine of formatted printing. The format language is the C standard's, with positions, more length
// modifiers and wide text that becomes UTF-8 whatever the locale is.
#ifndef OST_STRING_BSD_VSNPRINTFINT_H
#define OST_STRING_BSD_VSNPRINTFINT_H

#include <cstdarg>
#include <cstddef>

// Prints into a buffer, as much as fits, and ends it with a NUL.
//
// outBuffer  the buffer; when it holds null, it gets a new one (free), or null on failure
// size       of a buffer that is given; with 0 nothing is written
//
// Returns how many bytes the whole text takes without the NUL, or -1 on a failed conversion, a failed
// allocation, a number in the format that is out of range, or a text longer than INT_MAX.
int bsd_vsnprintf(char **outBuffer, size_t size, const char *format, va_list args);

#endif
