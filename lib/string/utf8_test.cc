#include "utf8.h"

#include <gtest/gtest.h>

#include <string>

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
  EXPECT_EQ(Whole("ab\xF0\x9F\x98"), 2U);
  EXPECT_EQ(Whole("\xF0"), 0U);
}

TEST(Utf8WholeLengthDeathTest, StopsAtABadLeadByte) {
  const auto panics = testing::ExitedWithCode(255);
  const char *text = "^ASSERT lib/string/utf8.cc:[0-9]+\n$";
  EXPECT_EXIT(Whole("ab\xFF"), panics, text);
  EXPECT_EXIT(Whole("ab\x80\x80\x80\x80"), panics, text);
  EXPECT_EXIT(Whole("\x80"), panics, text);
}

}  // namespace
