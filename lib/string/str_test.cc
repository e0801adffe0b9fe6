#include "str.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <string>

#include "allocations.h"
#include "owned.h"
#include "panics.h"

namespace {

const auto kPanics = testing::ExitedWithCode(255);
const auto kAssertion = testhost::Panics("^ASSERT lib/string/str.cc:[0-9]+\n$");
const auto kTooSmall = testhost::Panics("^lib/string/str.cc:[0-9]+ Buffer too small 0x[0-9a-f]+\n$");

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

TEST(StrAsprintf, GivesNullWhenThereIsNoMemory) {
  const std::string argument(200, 'x');
  const auto print = [&argument] {
    size_t length = 5;
    const OwnedString text(Str_Asprintf(&length, "%s", argument.c_str()));
    EXPECT_EQ(length, text == nullptr ? 5U : 200U);
    return text != nullptr;
  };
  const size_t count = testhost::CountAllocations([&print] { EXPECT_TRUE(print()); });
  EXPECT_EQ(count, 2U);
  for (size_t i = 0; i < count; i++) {
    const testhost::AllocationFault fault(i);
    EXPECT_FALSE(print()) << i;
  }
}

TEST(StrAsprintfDeathTest, TheSafeFormStopsTheProgramOnFailure) {
  const std::string wide = "%99999999999d";
  const char *format = wide.c_str();
  size_t length = 5;
  EXPECT_EQ(Str_Asprintf(&length, format, 1), nullptr);
  EXPECT_EQ(length, 5U);
  EXPECT_EXIT(Str_SafeAsprintf(nullptr, format, 1), kPanics,
              testhost::Panics("^NOT_IMPLEMENTED lib/string/str.cc:[0-9]+\n$"));
  EXPECT_EXIT(
      {
        const testhost::AllocationFault fault(0);
        Str_SafeAsprintf(nullptr, "x");
      },
      kPanics, testhost::Panics("^NOT_IMPLEMENTED lib/string/str.cc:[0-9]+\n$"));
}

TEST(StrVsnprintfDeathTest, TakesNoNull) {
  char buffer[4];
  const char *none = nullptr;
  EXPECT_EXIT(Print(nullptr, 4, "x"), kPanics, kAssertion);
  EXPECT_EXIT(Print(buffer, 4, none, 0), kPanics, kAssertion);
  EXPECT_EXIT(Str_Asprintf(nullptr, none, 0), kPanics, kAssertion);
}

TEST(StrVsnprintfDeathTest, StopsAtACutBehindBytesThatAreNoUtf8) {
  char buffer[4];
  EXPECT_EXIT(Print(buffer, sizeof buffer, "%s", "ab\xFFxx"), kPanics,
              testhost::Panics("^ASSERT lib/string/utf8.cc:[0-9]+\n$"));
  // Nothing is cut here.
  EXPECT_EQ(Print(buffer, sizeof buffer, "%s", "ab\xFF"), 3);
}

TEST(StrVsnprintf, KeepsWhatCameBeforeAFailedConversion) {
  const wchar_t none[] = {0x110000, 0};
  char buffer[8] = "xxxxxxx";
  EXPECT_EQ(Print(buffer, sizeof buffer, "ab\xC3\xA9%ls", none), -1);
  EXPECT_STREQ(buffer, "ab\xC3\xA9");
  EXPECT_EQ(Print(buffer, 4, "ab\xC3\xA9%ls", none), -1);
  EXPECT_STREQ(buffer, "ab");
  EXPECT_EQ(Print(buffer, 0, "ab%ls", none), -1);
}

TEST(StrVsnprintf, TakesASizeAboveAnInt) {
  char buffer[8];
  EXPECT_EQ(Print(buffer, SIZE_MAX, "abc"), 3);
  EXPECT_EQ(Print(buffer, size_t{INT_MAX} + 1, "abc%d", 7), 4);
  EXPECT_STREQ(buffer, "abc7");
}

TEST(StrSprintf, GivesTheLengthOfWhatFits) {
  char buffer[5];
  EXPECT_EQ(Str_Sprintf(buffer, sizeof buffer, "%s-%d", "ab", 7), 4);
  EXPECT_STREQ(buffer, "ab-7");
  EXPECT_EQ(Str_Sprintf(buffer, 1, "%s", ""), 0);
  EXPECT_STREQ(buffer, "");
}

TEST(StrSprintfDeathTest, StopsTheProgramWhenOneByteIsMissing) {
  char buffer[5];
  EXPECT_EXIT(Str_Sprintf(buffer, 4, "%s", "abcd"), kPanics, kTooSmall);
  EXPECT_EXIT(Str_Sprintf(buffer, 0, "%s", ""), kPanics, kTooSmall);
}

// ---- Bounded copies

// Overflow from these very functions.
[[gnu::noinline]] void OverflowACopy() {
  char buffer[2];
  Str_Strcpy(buffer, "ab", sizeof buffer);
  asm volatile("");
}

[[gnu::noinline]] void OverflowAPrint() {
  char buffer[2];
  Str_Sprintf(buffer, sizeof buffer, "%d", 10);
  asm volatile("");
}

TEST(StrOverflowDeathTest, TellsTheCallersAddress) {
  // Death test and this process are the same program at the same address.
  testing::FLAGS_gtest_death_test_style = "fast";
  for (void (*const caller)() : {OverflowACopy, OverflowAPrint}) {
    const auto start = static_cast<unsigned>(reinterpret_cast<uintptr_t>(caller));
    const auto isWithin = testing::ResultOf(
        [start](const std::string &text) {
          const size_t address = text.find(" 0x");
          return address == std::string::npos
                     ? UINT_MAX
                     : static_cast<unsigned>(std::stoul(text.substr(address), nullptr, 16)) - start;
        },
        testing::AllOf(testing::Gt(0U), testing::Lt(400U)));
    EXPECT_EXIT(caller(), kPanics, isWithin);
  }
}

TEST(StrCopies, CopyWhatFitsExactly) {
  char buffer[6] = "#####";
  EXPECT_EQ(Str_Strcpy(buffer, "abc", 4), buffer);
  EXPECT_EQ(memcmp(buffer, "abc\0#", 6), 0);
  EXPECT_EQ(Str_Strcpy(buffer, "", 1), buffer);
  EXPECT_STREQ(buffer, "");
  EXPECT_EQ(Str_Mbscpy(buffer, "\xC3\xA9", 3), buffer);
  EXPECT_STREQ(buffer, "\xC3\xA9");
  EXPECT_EQ(Str_Strcpy(buffer, "abc", SIZE_MAX), buffer);
  wchar_t wide[4] = L"###";
  EXPECT_EQ(Str_Wcscpy(wide, L"ab", 3), wide);
  EXPECT_EQ(wcscmp(wide, L"ab"), 0);
}

TEST(StrCopies, AppendWhatFitsExactly) {
  char buffer[8] = "ab";
  EXPECT_EQ(Str_Strcat(buffer, "cd", 5), buffer);
  EXPECT_STREQ(buffer, "abcd");
  EXPECT_EQ(Str_Strcat(buffer, "", 5), buffer);
  EXPECT_EQ(Str_Mbscat(buffer, "\xC3\xA9", 7), buffer);
  EXPECT_STREQ(buffer, "abcd\xC3\xA9");
  wchar_t wide[5] = L"ab";
  EXPECT_EQ(Str_Wcscat(wide, L"cd", 5), wide);
  EXPECT_EQ(wcscmp(wide, L"abcd"), 0);
}

TEST(StrCopies, AppendACount) {
  char buffer[8] = "ab\0####";
  EXPECT_EQ(Str_Strncat(buffer, sizeof buffer, "cdef", 2), buffer);
  EXPECT_STREQ(buffer, "abcd");
  const char open[] = {'x', 'y'};  // no NUL: nothing behind the count is read
  EXPECT_EQ(Str_Strncat(buffer, 7, open, 2), buffer);
  EXPECT_STREQ(buffer, "abcdxy");
  wchar_t wide[6] = L"ab\0##";
  EXPECT_EQ(Str_Wcsncat(wide, 5, L"cdef", 2), wide);
  EXPECT_EQ(wcscmp(wide, L"abcd"), 0);
}

TEST(StrCopies, AppendACountThatIsTooLargeForAStringThatIsNot) {
  for (const size_t count : {size_t{100}, size_t{6}, SIZE_MAX, SIZE_MAX - 1}) {
    char buffer[8] = "ab";
    EXPECT_EQ(Str_Strncat(buffer, 6, "cde", count), buffer);
    EXPECT_STREQ(buffer, "abcde");
    wchar_t wide[8] = L"ab";
    EXPECT_EQ(Str_Wcsncat(wide, 6, L"cde", count), wide);
    EXPECT_EQ(wcscmp(wide, L"abcde"), 0);
  }
  char buffer[6] = "ab";
  EXPECT_STREQ(Str_Strncat(buffer, 6, "cdefgh", 3), "abcde");
}

TEST(StrCopiesDeathTest, StopTheProgramWhenOneIsMissing) {
  char buffer[8] = "ab";
  EXPECT_EXIT(Str_Strcpy(buffer, "abc", 3), kPanics, kTooSmall);
  EXPECT_EXIT(Str_Strcpy(buffer, "", 0), kPanics, kTooSmall);
  EXPECT_EXIT(Str_Mbscpy(buffer, "\xC3\xA9", 2), kPanics, kTooSmall);
  EXPECT_EXIT(Str_Strcat(buffer, "cd", 4), kPanics, kTooSmall);
  EXPECT_EXIT(Str_Strcat(buffer, "", 2), kPanics, kTooSmall);
  EXPECT_EXIT(Str_Strcat(buffer, "", 0), kPanics, kTooSmall);
  EXPECT_EXIT(Str_Mbscat(buffer, "\xC3\xA9", 4), kPanics, kTooSmall);
  EXPECT_EXIT(Str_Strncat(buffer, 4, "cdef", 2), kPanics, kTooSmall);
  EXPECT_EXIT(Str_Strncat(buffer, 4, "cd", SIZE_MAX), kPanics, kTooSmall);
  wchar_t wide[8] = L"ab";
  EXPECT_EXIT(Str_Wcscpy(wide, L"abc", 3), kPanics, kTooSmall);
  EXPECT_EXIT(Str_Wcscat(wide, L"cd", 4), kPanics, kTooSmall);
  EXPECT_EXIT(Str_Wcsncat(wide, 4, L"cdef", 2), kPanics, kTooSmall);
}

TEST(StrCopiesDeathTest, TakeNoNull) {
  char buffer[8] = "";
  wchar_t wide[8] = L"";
  EXPECT_EXIT(Str_Strcpy(nullptr, "", 8), kPanics, kAssertion);
  EXPECT_EXIT(Str_Strcpy(buffer, nullptr, 8), kPanics, kAssertion);
  EXPECT_EXIT(Str_Strcat(nullptr, "", 8), kPanics, kAssertion);
  EXPECT_EXIT(Str_Strcat(buffer, nullptr, 8), kPanics, kAssertion);
  EXPECT_EXIT(Str_Strncat(nullptr, 8, "", 1), kPanics, kAssertion);
  EXPECT_EXIT(Str_Strncat(buffer, 8, nullptr, 1), kPanics, kAssertion);
  EXPECT_EXIT(Str_Mbscpy(nullptr, "", 8), kPanics, kAssertion);
  EXPECT_EXIT(Str_Mbscat(buffer, nullptr, 8), kPanics, kAssertion);
  EXPECT_EXIT(Str_Wcscpy(nullptr, L"", 8), kPanics, kAssertion);
  EXPECT_EXIT(Str_Wcscpy(wide, nullptr, 8), kPanics, kAssertion);
  EXPECT_EXIT(Str_Wcscat(nullptr, L"", 8), kPanics, kAssertion);
  EXPECT_EXIT(Str_Wcscat(wide, nullptr, 8), kPanics, kAssertion);
  EXPECT_EXIT(Str_Wcsncat(nullptr, 8, L"", 1), kPanics, kAssertion);
  EXPECT_EXIT(Str_Wcsncat(wide, 8, nullptr, 1), kPanics, kAssertion);
  EXPECT_EXIT(Str_ToLower(nullptr), kPanics, kAssertion);
  EXPECT_EXIT(Str_Strlen(nullptr, 8), kPanics, kAssertion);
  EXPECT_EXIT(Str_Strnstr(nullptr, "", 8), kPanics, kAssertion);
  EXPECT_EXIT(Str_Strnstr("", nullptr, 8), kPanics, kAssertion);
}

// ---- Looking

TEST(StrToLower, ChangesTheLettersOfAsciiAlone) {
  char text[257];
  for (int i = 1; i < 256; i++) {
    text[i - 1] = static_cast<char>(i);
  }
  text[255] = '\0';
  EXPECT_EQ(Str_ToLower(text), text);
  for (int i = 1; i < 256; i++) {
    const int expected = i >= 'A' && i <= 'Z' ? i + 32 : i;
    EXPECT_EQ(static_cast<unsigned char>(text[i - 1]), expected);
  }
}

TEST(StrStrlen, EndsAtTheLimit) {
  EXPECT_EQ(Str_Strlen("abc", 10), 3U);
  EXPECT_EQ(Str_Strlen("abc", 3), 3U);
  EXPECT_EQ(Str_Strlen("abc", 2), 2U);
  EXPECT_EQ(Str_Strlen("abc", 0), 0U);
  const char open[] = {'x', 'y'};
  EXPECT_EQ(Str_Strlen(open, 2), 2U);
}

TEST(StrStrnstr, FindsWhatLiesWithinTheLimit) {
  const char *text = "abcabd";
  EXPECT_EQ(Str_Strnstr(text, "abd", 6), text + 3);
  EXPECT_EQ(Str_Strnstr(text, "abd", SIZE_MAX), text + 3);
  EXPECT_EQ(Str_Strnstr(text, "abd", 5), nullptr);
  EXPECT_EQ(Str_Strnstr(text, "ab", 6), text);
  EXPECT_EQ(Str_Strnstr(text, "x", 6), nullptr);
  EXPECT_EQ(Str_Strnstr(text, "abcabde", 6), nullptr);
  EXPECT_EQ(Str_Strnstr(text, "", 0), text);
  EXPECT_EQ(Str_Strnstr("", "a", 5), nullptr);
  EXPECT_EQ(Str_Strnstr("a\0b", "b", 3), nullptr);
  const char open[] = {'x', 'y'};
  EXPECT_EQ(Str_Strnstr(open, "y", 2), open + 1);
}

// ---- Wide printing

int PrintWide(wchar_t *buffer, size_t size, const wchar_t *format, ...) {
  va_list args;
  va_start(args, format);
  const int length = Str_Vswprintf(buffer, size, format, args);
  va_end(args);
  return length;
}

TEST(StrVswprintf, GivesTheLengthInCharacters) {
  wchar_t buffer[8];
  EXPECT_EQ(PrintWide(buffer, 8, L"%ls-%d", L"ab", 7), 4);
  EXPECT_EQ(std::wstring(buffer), L"ab-7");
  EXPECT_EQ(PrintWide(buffer, 5, L"%ls-%d", L"ab", 7), 4);
  EXPECT_EQ(PrintWide(buffer, 0, L""), -1);
}

TEST(StrVswprintf, CutsWhatDoesNotFit) {
  wchar_t buffer[6] = L"wxyz#";
  EXPECT_EQ(PrintWide(buffer, 4, L"%ls", L"abcd"), -1);
  EXPECT_EQ(std::wstring(buffer), L"abc");
  EXPECT_EQ(buffer[4], L'#');
  Str_Snwprintf(buffer, 3, L"%d", 12345);
  EXPECT_EQ(std::wstring(buffer), L"12");
  EXPECT_EQ(PrintWide(buffer, 1, L"x"), -1);
  EXPECT_EQ(std::wstring(buffer), L"");
}

TEST(StrVswprintf, TakesASizeAboveAnInt) {
  wchar_t buffer[8] = L"#######";
  for (const size_t size : {size_t{INT_MAX} + 2, SIZE_MAX / sizeof(wchar_t), SIZE_MAX}) {
    EXPECT_EQ(PrintWide(buffer + 1, size, L"%d", 42), 2) << size;
    EXPECT_EQ(std::wstring(buffer), L"#42");
  }
}

TEST(StrVswprintf, KeepsWhatCameBeforeAFailedConversion) {
  for (const size_t size : {size_t{8}, SIZE_MAX}) {
    wchar_t buffer[8] = L"#######";
    EXPECT_EQ(PrintWide(buffer, size, L"ab%s", "\xFF"), -1);
    EXPECT_EQ(std::wstring(buffer), L"ab");
  }
}

TEST(StrSwprintfDeathTest, StopsTheProgramWhenOneIsMissing) {
  wchar_t buffer[8];
  EXPECT_EQ(Str_Swprintf(buffer, 5, L"%ls", L"abcd"), 4);
  EXPECT_EXIT(Str_Swprintf(buffer, 4, L"%ls", L"abcd"), kPanics, kTooSmall);
  EXPECT_EXIT(PrintWide(nullptr, 4, L"x"), kPanics, kAssertion);
  EXPECT_EXIT(PrintWide(buffer, 4, nullptr), kPanics, kAssertion);
  EXPECT_EXIT(Str_Aswprintf(nullptr, nullptr), kPanics, kAssertion);
}

using OwnedWide = std::unique_ptr<wchar_t, Releaser<free>>;

TEST(StrAswprintf, DoublesUntilTheTextFits) {
  size_t length = 0;
  OwnedWide text;
  // Twice the format's length is 6, and then 12, of which one is the NUL's.
  EXPECT_EQ(testhost::CountAllocations([&] { text.reset(Str_Aswprintf(&length, L"%5d", 1)); }), 1U);
  EXPECT_EQ(std::wstring(text.get()), L"    1");
  EXPECT_EQ(length, 5U);
  EXPECT_EQ(testhost::CountAllocations([&] { text.reset(Str_SafeAswprintf(&length, L"%6d", 1)); }), 2U);
  EXPECT_EQ(length, 6U);
  EXPECT_EQ(testhost::CountAllocations([&] { text.reset(Str_Aswprintf(nullptr, L"")); }), 1U);
  EXPECT_EQ(std::wstring(text.get()), L"");
  const std::wstring large(100000, L'y');
  text.reset(Str_Aswprintf(&length, L"%ls!", large.c_str()));
  EXPECT_EQ(std::wstring(text.get()), large + L"!");
}

TEST(StrAswprintfDeathTest, FailsWithoutMemoryAndWhereTextCanNotBeConverted) {
  const auto print = [](size_t *length) { return OwnedWide(Str_Aswprintf(length, L"%6d", 1)) != nullptr; };
  for (size_t i = 0; i < 2; i++) {
    const testhost::AllocationFault fault(i);
    size_t length = 5;
    EXPECT_FALSE(print(&length)) << i;
    EXPECT_EQ(length, 5U);
  }
  const char *noText = "\xFF";
  EXPECT_EQ(Str_Aswprintf(nullptr, L"%s", noText), nullptr);
  EXPECT_EXIT(Str_SafeAswprintf(nullptr, L"%s", noText), kPanics,
              testhost::Panics("^NOT_IMPLEMENTED lib/string/str.cc:[0-9]+\n$"));
}

}  // namespace
