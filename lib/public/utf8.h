// Sequences of UTF-8 at the border of a buffer.
#ifndef OST_PUBLIC_UTF8_H
#define OST_PUBLIC_UTF8_H

#include <cstddef>

// How many of the first `length` bytes of `text` can stay so that the last character isn't half a sequence:
// `length`, or up to three bytes fewer. A last character with no valid lead byte stops the program.
size_t Utf8_WholeLength(const char *text, size_t length);

#endif
