#include "base64.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "owned.h"

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

TEST(Base64, TellsLengths) {
  EXPECT_EQ(Base64_EncodedLength(0), 0U);
  EXPECT_EQ(Base64_EncodedLength(1), 4U);
  EXPECT_EQ(Base64_EncodedLength(3), 4U);
  EXPECT_EQ(Base64_EncodedLength(4), 8U);
  EXPECT_EQ(Base64_DecodedLength("", 0), 0U);
  EXPECT_EQ(Base64_DecodedLength("Zg==", 4), 1U);
  EXPECT_EQ(Base64_DecodedLength("Zm8=", 4), 2U);
  EXPECT_EQ(Base64_DecodedLength("Zm9v", 4), 3U);
  // What stands behind the last whole group doesn't count.
  EXPECT_EQ(Base64_DecodedLength("Zm9vYm", 6), 3U);
  EXPECT_EQ(Base64_DecodedLength("=", 1), 0U);
}

}  // namespace
