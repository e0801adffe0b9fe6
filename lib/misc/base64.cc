#include "base64.h"

#include <array>
#include <cstdlib>
#include <cstring>

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// What a byte of the input means, besides the data values 0 to 63.
enum : int8_t { kIllegal = -1, kEnd = -2, kSkip = -3 };

constexpr std::array<int8_t, 256> MakeDecodeTable() {
  std::array<int8_t, 256> table{};
  table.fill(kIllegal);
  for (int8_t value = 0; value < 64; value++) {
    table[static_cast<unsigned char>(kAlphabet[value])] = value;
  }
  for (const char c : {'\t', '\n', '\v', '\f', '\r', ' '}) {
    table[static_cast<unsigned char>(c)] = kSkip;
  }
  table['\0'] = kEnd;
  table['='] = kEnd;
  return table;
}

constexpr std::array<int8_t, 256> kDecode = MakeDecodeTable();

char *Base64EncodeTriple(char *out, uint32_t triple) {
  out[0] = kAlphabet[triple >> 18];
  out[1] = kAlphabet[(triple >> 12) & 0x3f];
  out[2] = kAlphabet[(triple >> 6) & 0x3f];
  out[3] = kAlphabet[triple & 0x3f];
  return out + 4;
}

}  // namespace

bool Base64_Encode(const uint8_t *src, size_t srcSize, char *dst, size_t dstMax, size_t *dstSize) {
  const size_t length = Base64_EncodedLength(srcSize);
  const bool fits = length < dstMax;
  if (dstSize != nullptr) {
    *dstSize = fits ? length : 0;
  }
  if (!fits) {
    return false;
  }
  char *out = dst;
  const uint8_t *in = src;
  size_t left = srcSize;
  for (; left >= 3; left -= 3, in += 3) {
    out = Base64EncodeTriple(out, static_cast<uint32_t>(in[0] << 16 | in[1] << 8 | in[2]));
  }
  if (left > 0) {
    out = Base64EncodeTriple(out, static_cast<uint32_t>(in[0] << 16 | (left == 2 ? in[1] << 8 : 0)));
    memset(out - (3 - left), '=', 3 - left);
  }
  *out = '\0';
  return true;
}

bool Base64_Decode(const char *src, uint8_t *dst, size_t dstSize, size_t *dataLength) {
  if (dataLength != nullptr) {
    *dataLength = 0;
  }
  size_t length = 0;
  uint32_t bits = 0;
  int bitCount = 0;
  for (;; src++) {
    const int8_t value = kDecode[static_cast<unsigned char>(*src)];
    if (value == kEnd) {
      break;
    }
    if (value == kSkip) {
      continue;
    }
    if (value == kIllegal) {
      return false;
    }
    bits = bits << 6 | static_cast<uint32_t>(value);
    bitCount += 6;
    if (bitCount < 8) {
      continue;
    }
    if (length == dstSize) {
      return false;
    }
    bitCount -= 8;
    dst[length++] = static_cast<uint8_t>(bits >> bitCount);
  }
  if (dataLength != nullptr) {
    *dataLength = length;
  }
  return true;
}

bool Base64_ValidEncoding(const char *src, size_t srcSize) {
  for (size_t i = 0; i < srcSize; i++) {
    if (src[i] != '=' && kDecode[static_cast<unsigned char>(src[i])] < 0) {
      return false;
    }
  }
  return true;
}

bool Base64_EasyEncode(const uint8_t *src, size_t srcSize, char **target) {
  const size_t size = Base64_EncodedLength(srcSize) + 1;
  *target = static_cast<char *>(malloc(size));
  if (*target == nullptr) {
    return false;
  }
  return Base64_Encode(src, srcSize, *target, size, nullptr);
}

bool Base64_EasyDecode(const char *src, uint8_t **target, size_t *targetSize) {
  // Text without padding may hold two bytes beyond its last whole group of four.
  const size_t size = strlen(src) / 4 * 3 + 3;
  *target = static_cast<uint8_t *>(malloc(size));
  *targetSize = 0;
  if (*target != nullptr && Base64_Decode(src, *target, size, targetSize)) {
    return true;
  }
  free(*target);
  *target = nullptr;
  return false;
}

size_t Base64_EncodedLength(size_t srcSize) {
  return (srcSize + 2) / 3 * 4;
}

size_t Base64_DecodedLength(const char *src, size_t srcSize) {
  size_t length = srcSize / 4 * 3;
  if (length == 0) {
    return 0;
  }
  for (const char last : {src[srcSize - 1], src[srcSize - 2]}) {
    if (last == '=') {
      length--;
    }
  }
  return length;
}
