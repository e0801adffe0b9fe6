// Strict converters between the forms of Unicode, which serve both engines.
//
// Well-formed is what the Unicode standard calls so: in UTF-8 no overlong sequence and no surrogate, in
// UTF-16 no surrogate without its other half, nothing above U+10FFFF. On well-formed text these give what ICU
// and iconv give, and what they refuse those refuse too, but for glibc's iconv, which takes code points above
// U+10FFFF from UTF-8.
#ifndef OST_MISC_CODESETUTFINT_H
#define OST_MISC_CODESETUTFINT_H

#include <cstddef>

#include "dynbuf.h"

// The NUL bytes behind every result.
inline constexpr size_t kCodeSetTerminator = 4;

enum class CodeSetUtf_Result {
  kDone,
  kMalformed,  // the text isn't well-formed
  kNoMemory,
  kOther,  // not a pair of encodings of this module
};

// How many bytes below 0x80 `text` begins with.
size_t CodeSetUtf_AsciiLength(const char *text, size_t size);
// The length of the well-formed sequence that `text` begins with, 1 to 4, or 0 when there is none.
size_t CodeSetUtf_SequenceLength(const char *text, size_t size);
bool CodeSetUtf_IsUtf8(const char *text, size_t size);

// Makes room for `extra` bytes behind the content. A buffer without a block gets exactly that, so that a
// result of known size needs no trimming. Returns false when memory is out.
bool CodeSetUtf_Reserve(DynBuf *buf, size_t extra);
// The room, with that for the terminator, that is enough for most text of `size` bytes in any encoding.
constexpr size_t CodeSetUtf_LikelySize(size_t size) {
  return size + size / 2 + kCodeSetTerminator;
}

// These append the converted text to `buf` and leave room for the terminator behind it, or leave its content
// alone. UTF-16 with a last single byte is malformed.
CodeSetUtf_Result CodeSetUtf_Utf8ToUtf16leDb(const char *text, size_t size, DynBuf *buf);
CodeSetUtf_Result CodeSetUtf_Utf16leToUtf8Db(const char *text, size_t size, DynBuf *buf);
// From UTF-8 or UTF-16LE to one of these two, named so and not otherwise.
CodeSetUtf_Result CodeSetUtf_Convert(const char *codeIn, const char *text, size_t size, const char *codeOut,
                                     DynBuf *buf);

// These give the converted text as codeset.h tells.
bool CodeSetUtf_Utf8ToUtf16le(const char *text, size_t size, char **bufOut, size_t *sizeOut);
bool CodeSetUtf_Utf16leToUtf8(const char *text, size_t size, char **bufOut, size_t *sizeOut);
bool CodeSetUtf_Utf16beToUtf8(const char *text, size_t size, char **bufOut, size_t *sizeOut);

#endif
