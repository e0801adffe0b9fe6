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

// The two characters of each 12 bits.
using Pair = std::array<char, 2>;

constexpr std::array<Pair, 4096> MakePairs() {
  std::array<Pair, 4096> pairs{};
  for (size_t bits = 0; bits < pairs.size(); bits++) {
    pairs[bits] = {kAlphabet[bits >> 6], kAlphabet[bits & 0x3f]};
  }
  return pairs;
}

constexpr std::array<Pair, 4096> kPairs = MakePairs();

char *Base64EncodeTriple(char *out, uint32_t triple) {
  memcpy(out, &kPairs[triple >> 12], sizeof(Pair));
  memcpy(out + 2, &kPairs[triple & 0xfff], sizeof(Pair));
  return out + 4;
}

int8_t Base64DecodeByte(char c) {
  return kDecode[static_cast<unsigned char>(c)];
}

// Decodes groups of four data bytes as long as they come and `size` has room for three more bytes. Reads
// nothing behind a byte that is no data. Returns how many groups there were.
size_t Base64DecodeGroups(const char *src, uint8_t *dst, size_t size) {
  size_t groups = 0;
  for (; size >= 3; groups++, src += 4, dst += 3, size -= 3) {
    int8_t a;
    int8_t b;
    int8_t c;
    int8_t d;
    if ((a = Base64DecodeByte(src[0])) < 0 || (b = Base64DecodeByte(src[1])) < 0 ||
        (c = Base64DecodeByte(src[2])) < 0 || (d = Base64DecodeByte(src[3])) < 0) {
      break;
    }
    dst[0] = static_cast<uint8_t>(a << 2 | b >> 4);
    dst[1] = static_cast<uint8_t>(b << 4 | c >> 2);
    dst[2] = static_cast<uint8_t>(c << 6 | d);
  }
  return groups;
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
  while (true) {
    if (bitCount == 0) {
      const size_t groups = Base64DecodeGroups(src, dst + length, dstSize - length);
      src += groups * 4;
      length += groups * 3;
    }
    const int8_t value = Base64DecodeByte(*src++);
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
    if (src[i] != '=' && Base64DecodeByte(src[i]) < 0) {
      return false;
    }
  }
  return true;
}

bool Base64_EasyEncode(const uint8_t *src, size_t srcSize, char **target) {
  const size_t length = Base64_EncodedLength(srcSize);
  *target = length == SIZE_MAX ? nullptr : static_cast<char *>(malloc(length + 1));
  return *target != nullptr && Base64_Encode(src, srcSize, *target, length + 1, nullptr);
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
  return srcSize > SIZE_MAX / 4 * 3 ? SIZE_MAX : (srcSize + 2) / 3 * 4;
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
