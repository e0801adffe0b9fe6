// The program's one string type, and its one vocabulary of character encodings.
//
// Inside the program text is a Unicode: valid, NUL-terminated UTF-8 on the heap. Bytes in other encodings are
// there at the borders only, and pass them through these functions.
#ifndef OST_PUBLIC_UNICODE_H
#define OST_PUBLIC_UNICODE_H

#include <cstddef>
#include <cstdint>

#include "owned.h"

using Unicode = const char *;
using utf16_t = uint16_t;
// A count of code units, which are bytes; -1 means up to the end or, as a result, nothing found.
using UnicodeIndex = int64_t;

enum StringEncoding : int32_t {
  STRING_ENCODING_UNKNOWN = -2,
  STRING_ENCODING_DEFAULT = -1,  // the current encoding
  STRING_ENCODING_UTF8 = 0,
  STRING_ENCODING_UTF16_LE = 1,
  STRING_ENCODING_UTF16_BE = 2,
  STRING_ENCODING_UTF16_XE = 3,
  STRING_ENCODING_UTF32_LE = 4,
  STRING_ENCODING_UTF32_BE = 5,
  STRING_ENCODING_UTF32_XE = 6,
  STRING_ENCODING_US_ASCII = 7,
  STRING_ENCODING_ISO_8859_1 = 8,
};

// The encoding of a name in any of its spellings, STRING_ENCODING_UNKNOWN when there is none or this program
// can't convert it.
StringEncoding Unicode_EncodingNameToEnum(const char *name);

#endif
