#include "strutil.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "owned.h"

namespace {

TEST(GetNextToken, WalksTheTokens) {
  unsigned index = 0;
  std::vector<std::string> tokens;
  std::vector<unsigned> ends;
  OwnedString token;
  while (token.reset(StrUtil_GetNextToken(&index, " ,one, two three ,", " ,")), token != nullptr) {
    tokens.emplace_back(token.get());
    ends.push_back(index);
  }
  EXPECT_EQ(tokens, (std::vector<std::string>{"one", "two", "three"}));
  EXPECT_EQ(ends, (std::vector<unsigned>{5, 10, 16}));
}

TEST(GetNextToken, LeavesTheIndexAloneWhenOnlyDelimitersRemain) {
  unsigned index = 3;
  EXPECT_EQ(StrUtil_GetNextToken(&index, "abc   ", " "), nullptr);
  EXPECT_EQ(index, 3U);
  index = 0;
  EXPECT_EQ(StrUtil_GetNextToken(&index, "", " "), nullptr);
  EXPECT_EQ(index, 0U);
}

TEST(GetNextToken, TakesTheRestWhenNoDelimiterFollows) {
  unsigned index = 0;
  const OwnedString token(StrUtil_GetNextToken(&index, "abc", ":"));
  EXPECT_STREQ(token.get(), "abc");
  EXPECT_EQ(index, 3U);
}

TEST(StrToInt, ReadsEveryBase) {
  int32_t value = 0;
  EXPECT_TRUE(StrUtil_StrToInt(&value, "42"));
  EXPECT_EQ(value, 42);
  EXPECT_TRUE(StrUtil_StrToInt(&value, "-0x10"));
  EXPECT_EQ(value, -16);
  EXPECT_TRUE(StrUtil_StrToInt(&value, "010"));
  EXPECT_EQ(value, 8);
}

TEST(StrToInt, RefusesWhatIsLeftOverOrTooLarge) {
  int32_t value = 0;
  EXPECT_TRUE(StrUtil_StrToInt(&value, "2147483647"));
  EXPECT_EQ(value, INT32_MAX);
  EXPECT_TRUE(StrUtil_StrToInt(&value, "-2147483648"));
  EXPECT_EQ(value, INT32_MIN);
  for (const char *text :
       {"2147483648", "-2147483649", "12x", "12 ", "x", " ", "09", "99999999999999999999"}) {
    EXPECT_FALSE(StrUtil_StrToInt(&value, text)) << text;
  }
}

TEST(StrToInt, ReadsAnEmptyTextAsZero) {
  int32_t value = 7;
  EXPECT_TRUE(StrUtil_StrToInt(&value, ""));
  EXPECT_EQ(value, 0);
}

TEST(StrToUint, FitsIn32Bits) {
  uint32_t value = 0;
  EXPECT_TRUE(StrUtil_StrToUint(&value, "4294967295"));
  EXPECT_EQ(value, UINT32_MAX);
  EXPECT_TRUE(StrUtil_StrToUint(&value, "0xff"));
  EXPECT_EQ(value, 255U);
  for (const char *text : {"4294967296", "-1", "1.5", "18446744073709551616"}) {
    EXPECT_FALSE(StrUtil_StrToUint(&value, text)) << text;
  }
}

TEST(StrToInt64, FitsIn64Bits) {
  int64_t value = 0;
  EXPECT_TRUE(StrUtil_StrToInt64(&value, "9223372036854775807"));
  EXPECT_EQ(value, INT64_MAX);
  EXPECT_TRUE(StrUtil_StrToInt64(&value, "-0x8000000000000000"));
  EXPECT_EQ(value, INT64_MIN);
  EXPECT_FALSE(StrUtil_StrToInt64(&value, "9223372036854775808"));
  EXPECT_FALSE(StrUtil_StrToInt64(&value, "1k"));
}

TEST(StartsWith, ComparesTheBeginning) {
  EXPECT_TRUE(StrUtil_StartsWith("abc", "ab"));
  EXPECT_TRUE(StrUtil_StartsWith("abc", ""));
  EXPECT_TRUE(StrUtil_StartsWith("abc", "abc"));
  EXPECT_FALSE(StrUtil_StartsWith("abc", "abcd"));
  EXPECT_FALSE(StrUtil_StartsWith("abc", "AB"));
}

TEST(EndsWith, ComparesTheEnd) {
  EXPECT_TRUE(StrUtil_EndsWith("abc", "bc"));
  EXPECT_TRUE(StrUtil_EndsWith("abc", ""));
  EXPECT_TRUE(StrUtil_EndsWith("abc", "abc"));
  EXPECT_FALSE(StrUtil_EndsWith("abc", "xabc"));
  EXPECT_FALSE(StrUtil_EndsWith("abc", "b"));
}

}  // namespace
