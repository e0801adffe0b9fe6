#include "utf8.h"

#include <gtest/gtest.h>

#include <string>

#include "panics.h"

namespace {

size_t Whole(const std::string &text) {
  return Utf8_WholeLength(text.data(), text.size());
}

TEST(Utf8WholeLength, KeepsWholeCharacters) {
  for (const char *text : {"", "a", "ab", "ab\xC3\xA9", "\xE2\x82\xAC", "x\xF0\x9F\x98\x80"}) {
    EXPECT_EQ(Whole(text), std::string(text).size()) << text;
  }
}

TEST(Utf8WholeLength, LeavesOutHalfACharacter) {
  EXPECT_EQ(Whole("ab\xC3"), 2U);
  EXPECT_EQ(Whole("ab\xE2\x82"), 2U);
  EXPECT_EQ(Whole("ab\xE2"), 2U);
  // The first lead bytes of their lengths.
  EXPECT_EQ(Whole("ab\xE0\xA4"), 2U);
  EXPECT_EQ(Whole("ab\xF0\x90\x80"), 2U);
  EXPECT_EQ(Whole("ab\xF0\x9F\x98"), 2U);
  EXPECT_EQ(Whole("\xF0"), 0U);
}

TEST(Utf8WholeLengthDeathTest, StopsAtABadLeadByte) {
  const auto panics = testing::ExitedWithCode(255);
  const auto text = testhost::Panics("^ASSERT lib/string/utf8.cc:[0-9]+\n$");
  EXPECT_EXIT(Whole("ab\xFF"), panics, text);
  EXPECT_EXIT(Whole("ab\x80\x80\x80\x80"), panics, text);
  EXPECT_EXIT(Whole("\x80"), panics, text);
}

TEST(Utf8LenientWholeLength, CutsHalfACharacterAndKeepsOtherBytes) {
  const auto whole = [](const std::string &text) {
    return Utf8_LenientWholeLength(text.data(), text.size());
  };
  EXPECT_EQ(whole(""), 0U);
  EXPECT_EQ(whole("ab\xC3\xA9"), 4U);
  EXPECT_EQ(whole("ab\xC3"), 2U);
  EXPECT_EQ(whole("ab\xF0\x9F\x98"), 2U);
  EXPECT_EQ(whole("ab\xFF"), 3U);
  EXPECT_EQ(whole("\x80"), 1U);
  EXPECT_EQ(whole("ab\x80\x80\x80\x80"), 6U);
}

std::string Encoded(char32_t value) {
  char bytes[UTF8_LONGEST];
  const size_t size = Utf8_LenientEncode(value, bytes);
  EXPECT_EQ(size, Utf8_LenientSize(value));
  return {bytes, size};
}

TEST(Utf8LenientEncode, ChangesItsSizeAtTheBorders) {
  EXPECT_EQ(Encoded(0), std::string(1, '\0'));
  EXPECT_EQ(Encoded(0x7F), "\x7F");
  EXPECT_EQ(Encoded(0x80), "\xC2\x80");
  EXPECT_EQ(Encoded(0x7FF), "\xDF\xBF");
  EXPECT_EQ(Encoded(0x800), "\xE0\xA0\x80");
  EXPECT_EQ(Encoded(0xFFFF), "\xEF\xBF\xBF");
  EXPECT_EQ(Encoded(0x10000), "\xF0\x90\x80\x80");
  EXPECT_EQ(Encoded(0x10FFFF), "\xF4\x8F\xBF\xBF");
}

TEST(Utf8LenientEncode, TakesSurrogatesAndNothingAboveTheLastCharacter) {
  EXPECT_EQ(Encoded(0xD800), "\xED\xA0\x80");
  EXPECT_EQ(Encoded(0xDFFF), "\xED\xBF\xBF");
  EXPECT_EQ(Encoded(0x110000), "");
  EXPECT_EQ(Encoded(0xFFFFFFFF), "");
}

}  // namespace
