// Sequences of UTF-8 at the border of a buffer, and single characters as UTF-8.
#ifndef OST_PUBLIC_UTF8_H
#define OST_PUBLIC_UTF8_H

#include <cstddef>

constexpr size_t UTF8_LONGEST = 4;

// How many of the first `length` bytes of `text` can stay so that the last character isn't half a sequence:
// `length`, or up to three bytes fewer. A last character with no valid lead byte stops the program.
size_t Utf8_WholeLength(const char *text, size_t length);
// The same, but a last character with no valid lead byte is kept.
size_t Utf8_LenientWholeLength(const char *text, size_t length);

// How many bytes a UTF-32 value takes, 0 when it is above U+10FFFF. Lenient: a surrogate is a value like any
// other.
size_t Utf8_LenientSize(char32_t value);
// Writes that many bytes for the value, and returns how many.
size_t Utf8_LenientEncode(char32_t value, char bytes[UTF8_LONGEST]);

#endif
