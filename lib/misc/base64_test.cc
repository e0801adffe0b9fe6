#include "base64.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "allocations.h"
#include "owned.h"

// A size that can't be had gives null under the sanitizer too.
extern "C" const char *__asan_default_options() {
  return "allocator_may_return_null=1";
}

namespace {

const uint8_t *Bytes(const std::string &text) {
  return reinterpret_cast<const uint8_t *>(text.data());
}

std::string Encode(const std::string &data) {
  char *text = nullptr;
  EXPECT_TRUE(Base64_EasyEncode(Bytes(data), data.size(), &text));
  const OwnedString owner(text);
  return text;
}

// The decoded bytes, or "(refused)".
std::string Decode(const std::string &text) {
  uint8_t *data = nullptr;
  size_t size = 99;
  if (!Base64_EasyDecode(text.c_str(), &data, &size)) {
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(size, 0U);
    return "(refused)";
  }
  std::string result(reinterpret_cast<char *>(data), size);
  free(data);
  return result;
}

TEST(Base64, EncodesWithPadding) {
  EXPECT_EQ(Encode(""), "");
  EXPECT_EQ(Encode("f"), "Zg==");
  EXPECT_EQ(Encode("fo"), "Zm8=");
  EXPECT_EQ(Encode("foo"), "Zm9v");
  EXPECT_EQ(Encode("foobar"), "Zm9vYmFy");
  EXPECT_EQ(Encode("\xfb\xff\xbf"), "+/+/");
}

TEST(Base64, DecodesWhatItEncodes) {
  std::string data;
  for (int length = 0; length < 300; length++) {
    EXPECT_EQ(Decode(Encode(data)), data);
    EXPECT_EQ(Base64_DecodedLength(Encode(data).c_str(), Encode(data).size()), data.size());
    data += static_cast<char>(length * 37 + 11);
  }
}

TEST(Base64, EncodeWantsRoomForTheNul) {
  char text[9];
  size_t size = 77;
  EXPECT_FALSE(Base64_Encode(Bytes("abcd"), 4, text, 8, &size));
  EXPECT_EQ(size, 0U);
  memset(text, 'x', sizeof text);
  EXPECT_TRUE(Base64_Encode(Bytes("abcd"), 4, text, 9, &size));
  EXPECT_EQ(size, 8U);
  EXPECT_STREQ(text, "YWJjZA==");
  EXPECT_TRUE(Base64_Encode(Bytes("abcd"), 4, text, 9, nullptr));
}

TEST(Base64, DecodeDoesNotCheckPadding) {
  EXPECT_EQ(Decode("QQ"), "A");
  EXPECT_EQ(Decode("QQ="), "A");
  EXPECT_EQ(Decode("QUI"), "AB");
  EXPECT_EQ(Decode("QQ==and the rest?"), "A");
  EXPECT_EQ(Decode("Q"), "");
}

TEST(Base64, DecodeSkipsBlanks) {
  EXPECT_EQ(Decode(" Z\tm\n9\vv\fY\r\nmFy "), "foobar");
}

TEST(Base64, DecodeRefusesForeignBytes) {
  for (const char *text : {"Zm9v!", "Zm-v", "Zm_v", "Zm9\x80", "\xff"}) {
    EXPECT_EQ(Decode(text), "(refused)") << text;
  }
}

TEST(Base64, DecodeSkipsBlanksAnywhere) {
  const std::string data = "any carnal pleasure.";
  const std::string text = Encode(data);
  for (size_t at = 0; at <= text.size(); at++) {
    for (const char *blanks : {" ", "\r\n", "\t\v\f", "     \n     "}) {
      EXPECT_EQ(Decode(std::string(text).insert(at, blanks)), data) << at;
    }
  }
}

// Each byte stands at each place of a group, with a whole group before it and one behind.
TEST(Base64, DecodeKnowsEveryByte) {
  const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  for (int byte = 0; byte < 256; byte++) {
    for (size_t at = 4; at < 8; at++) {
      std::string text = "Zm9vAAAAZm9v";
      text[at] = static_cast<char>(byte);
      const std::string decoded = Decode(text);
      const size_t value = alphabet.find(static_cast<char>(byte));
      if (value != std::string::npos) {
        const auto triple = static_cast<uint32_t>(value << (6 * (7 - at)));
        const std::string expected = {'f',
                                      'o',
                                      'o',
                                      static_cast<char>(triple >> 16),
                                      static_cast<char>(triple >> 8),
                                      static_cast<char>(triple),
                                      'f',
                                      'o',
                                      'o'};
        EXPECT_EQ(decoded, expected) << byte;
      } else if (byte == '\0' || byte == '=') {
        EXPECT_EQ(decoded, std::string("foo\0\0\0", 3 + (at - 4) * 6 / 8)) << byte;
      } else if (std::strchr("\t\n\v\f\r ", byte) != nullptr) {
        EXPECT_EQ(decoded.size(), 8U) << byte;
      } else {
        EXPECT_EQ(decoded, "(refused)") << byte;
      }
    }
  }
}

TEST(Base64, DecodeReadsNothingBehindTheEnd) {
  // On the heap, where the sanitizer sees it.
  for (const std::string text : {"Zm9v=", "Zm9vQ=", "Zm9vQQ=", "Zm9vQQI=", "Zm9v!", "Zm9vQQ!"}) {
    const std::unique_ptr<char[]> block(new char[text.size()]);
    memcpy(block.get(), text.data(), text.size());
    uint8_t data[16];
    EXPECT_EQ(Base64_Decode(block.get(), data, sizeof data, nullptr), text.back() == '=') << text;
  }
}

TEST(Base64, DecodeFillsABufferOfAnySizeAndNoMore) {
  const std::string data = "0123456789";
  const std::string text = Encode(data);
  for (size_t size = 0; size <= data.size() + 3; size++) {
    const std::unique_ptr<uint8_t[]> block(new uint8_t[size]);
    size_t length = 77;
    const bool fits = size >= data.size();
    EXPECT_EQ(Base64_Decode(text.c_str(), block.get(), size, &length), fits) << size;
    EXPECT_EQ(length, fits ? data.size() : 0) << size;
  }
}

TEST(Base64, DecodeRefusesOutputBeyondTheBuffer) {
  uint8_t data[3] = {9, 9, 9};
  size_t length = 77;
  EXPECT_FALSE(Base64_Decode("Zm9v", data, 2, &length));
  EXPECT_EQ(length, 0U);
  EXPECT_EQ(data[2], 9);
  EXPECT_TRUE(Base64_Decode("Zm9v", data, 3, &length));
  EXPECT_EQ(length, 3U);
  EXPECT_EQ(memcmp(data, "foo", 3), 0);
  EXPECT_TRUE(Base64_Decode("Zm9v", data, 3, nullptr));
}

TEST(Base64, ValidEncodingLooksAtEveryByteAlone) {
  EXPECT_TRUE(Base64_ValidEncoding("Az09+/==", 8));
  EXPECT_TRUE(Base64_ValidEncoding("=a=", 3));
  EXPECT_TRUE(Base64_ValidEncoding("", 0));
  EXPECT_TRUE(Base64_ValidEncoding("ab cd", 2));
  EXPECT_FALSE(Base64_ValidEncoding("ab cd", 5));
  EXPECT_FALSE(Base64_ValidEncoding("ab\0d", 4));
  EXPECT_FALSE(Base64_ValidEncoding("ab-d", 4));
}

TEST(Base64, TellsSizesWhoseTextNothingCouldHold) {
  const size_t most = SIZE_MAX / 4 * 3;
  EXPECT_EQ(Base64_EncodedLength(most), SIZE_MAX - 3);
  EXPECT_EQ(Base64_EncodedLength(most + 1), SIZE_MAX);
  EXPECT_EQ(Base64_EncodedLength(SIZE_MAX), SIZE_MAX);
  char text[8] = "";
  size_t size = 77;
  for (const size_t tooMuch : {most, most + 1, SIZE_MAX - 1, SIZE_MAX}) {
    EXPECT_FALSE(Base64_Encode(Bytes("x"), tooMuch, text, sizeof text, &size));
    EXPECT_EQ(size, 0U);
    char *target = text;
    EXPECT_FALSE(Base64_EasyEncode(Bytes("x"), tooMuch, &target));
    EXPECT_EQ(target, nullptr);
  }
}

TEST(Base64, TheAllocatingFormsFailWithoutMemory) {
  char *text = nullptr;
  uint8_t *data = nullptr;
  size_t size = 77;
  {
    const testhost::AllocationFault fault(0);
    EXPECT_FALSE(Base64_EasyEncode(Bytes("foo"), 3, &text));
    EXPECT_TRUE(fault.Happened());
  }
  const testhost::AllocationFault fault(0);
  EXPECT_FALSE(Base64_EasyDecode("Zm9v", &data, &size));
  EXPECT_TRUE(fault.Happened());
  EXPECT_EQ(text, nullptr);
  EXPECT_EQ(data, nullptr);
  EXPECT_EQ(size, 0U);
}

TEST(Base64, TellsLengths) {
  EXPECT_EQ(Base64_EncodedLength(0), 0U);
  EXPECT_EQ(Base64_EncodedLength(1), 4U);
  EXPECT_EQ(Base64_EncodedLength(3), 4U);
  EXPECT_EQ(Base64_EncodedLength(4), 8U);
  EXPECT_EQ(Base64_DecodedLength("", 0), 0U);
  EXPECT_EQ(Base64_DecodedLength("Zg==", 4), 1U);
  EXPECT_EQ(Base64_DecodedLength("Zm8=", 4), 2U);
  EXPECT_EQ(Base64_DecodedLength("Zm9v", 4), 3U);
  EXPECT_EQ(Base64_DecodedLength("====", 4), 1U);
  // What stands behind the last whole group doesn't count.
  EXPECT_EQ(Base64_DecodedLength("Zm9vYm", 6), 3U);
  EXPECT_EQ(Base64_DecodedLength("=", 1), 0U);
}

}  // namespace
