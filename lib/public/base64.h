// Base64 with the standard alphabet and "=" padding.
#ifndef OST_PUBLIC_BASE64_H
#define OST_PUBLIC_BASE64_H

#include <cstddef>
#include <cstdint>

// Encodes into `dst` with a NUL behind the text.
//
// dstMax   the size of `dst`; must be greater than the encoded length
// dstSize  if not null, gets the length without the NUL, or 0 on failure
//
// Returns false when `dst` is too small.
bool Base64_Encode(const uint8_t *src, size_t srcSize, char *dst, size_t dstMax, size_t *dstSize);
// Decodes up to the first NUL or "="; blanks and line ends are skipped, and padding isn't checked.
//
// dstSize     the size of `dst`
// dataLength  if not null, gets the count of bytes decoded, or 0 on failure
//
// Returns false for a byte that is neither, or when the data doesn't fit.
bool Base64_Decode(const char *src, uint8_t *dst, size_t dstSize, size_t *dataLength);
// Whether every one of the bytes is a letter, a digit, "+", "=" or "/".
bool Base64_ValidEncoding(const char *src, size_t srcSize);
// Encode and decode into a new block (free) at `*target`, null on failure.
bool Base64_EasyEncode(const uint8_t *src, size_t srcSize, char **target);
bool Base64_EasyDecode(const char *src, uint8_t **target, size_t *targetSize);
// The length of the encoded text of `srcSize` bytes, without a NUL, or SIZE_MAX when it is beyond all sizes.
size_t Base64_EncodedLength(size_t srcSize);
// The bytes that `srcSize` bytes of padded text without blanks hold.
size_t Base64_DecodedLength(const char *src, size_t srcSize);

#endif
