#include "str.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "owned.h"

namespace {

int Print(char *buffer, size_t size, const char *format, ...) __attribute__((format(printf, 3, 4)));
int Print(char *buffer, size_t size, const char *format, ...) {
  va_list args;
  va_start(args, format);
  const int length = Str_Vsnprintf(buffer, size, format, args);
  va_end(args);
  return length;
}

TEST(StrVsnprintf, GivesTheLength) {
  char buffer[16];
  EXPECT_EQ(Print(buffer, sizeof buffer, "%s-%d", "ab", 7), 4);
  EXPECT_STREQ(buffer, "ab-7");
  EXPECT_EQ(Print(buffer, sizeof buffer, "%s", ""), 0);
  EXPECT_STREQ(buffer, "");
}

TEST(StrVsnprintf, ATextThatFitsExactlyIsNotCut) {
  char buffer[4];
  EXPECT_EQ(Print(buffer, sizeof buffer, "abc"), 3);
  EXPECT_STREQ(buffer, "abc");
}

TEST(StrVsnprintf, CutsWhatDoesNotFit) {
  char buffer[5] = "wxyz";
  EXPECT_EQ(Print(buffer, 4, "%s", "abcd"), -1);
  EXPECT_STREQ(buffer, "abc");
  EXPECT_EQ(buffer[4], '\0');
  EXPECT_EQ(Print(buffer, 1, "%s", "abcd"), -1);
  EXPECT_STREQ(buffer, "");
}

TEST(StrVsnprintf, NeverLeavesHalfACharacter) {
  char buffer[8];
  EXPECT_EQ(Print(buffer, 4, "%s", "ab\xC3\xA9"), -1);
  EXPECT_STREQ(buffer, "ab");
  EXPECT_EQ(Print(buffer, 6, "%s", "ab\xF0\x9F\x98\x80"), -1);
  EXPECT_STREQ(buffer, "ab");
  EXPECT_EQ(Print(buffer, 5, "%s", "ab\xC3\xA9z"), -1);
  EXPECT_STREQ(buffer, "ab\xC3\xA9");
}

TEST(StrVsnprintf, WritesNothingIntoABufferOfNoSize) {
  char buffer[2] = "x";
  EXPECT_EQ(Print(buffer, 0, "%s", "abcd"), -1);
  EXPECT_EQ(Print(buffer, 0, "%s", ""), -1);
  EXPECT_STREQ(buffer, "x");
}

TEST(StrSnprintf, CutsInTheSameWay) {
  char buffer[4];
  Str_Snprintf(buffer, sizeof buffer, "%s", "ab\xC3\xA9");
  EXPECT_STREQ(buffer, "ab");
}

TEST(StrAsprintf, GivesANewStringAndItsLength) {
  size_t length = 0;
  const OwnedString text(Str_Asprintf(&length, "%s:%05d", "x", 42));
  EXPECT_STREQ(text.get(), "x:00042");
  EXPECT_EQ(length, 7U);
  const std::string large(100000, 'y');
  const OwnedString safe(Str_SafeAsprintf(nullptr, "%s!", large.c_str()));
  EXPECT_EQ(safe.get(), large + "!");
}

TEST(StrAsprintfDeathTest, TheSafeFormStopsTheProgramOnFailure) {
  // The C library refuses a width that no int holds.
  const std::string wide = "%99999999999d";
  const char *format = wide.c_str();
  size_t length = 5;
  EXPECT_EQ(Str_Asprintf(&length, format, 1), nullptr);
  EXPECT_EQ(length, 5U);
  EXPECT_EXIT(Str_SafeAsprintf(nullptr, format, 1), testing::ExitedWithCode(255),
              "^NOT_IMPLEMENTED lib/string/str.cc:[0-9]+\n$");
}

TEST(StrVsnprintfDeathTest, TakesNoNull) {
  char buffer[4];
  const char *none = nullptr;
  EXPECT_EXIT(Print(nullptr, 4, "x"), testing::ExitedWithCode(255), "^ASSERT lib/string/str.cc:[0-9]+\n$");
  EXPECT_EXIT(Print(buffer, 4, none, 0), testing::ExitedWithCode(255), "^ASSERT lib/string/str.cc:[0-9]+\n$");
}

}  // namespace
