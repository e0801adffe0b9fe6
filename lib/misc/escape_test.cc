#include "escape.h"

#include <gmock/gmock-matchers.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "allocations.h"
#include "owned.h"

// A size that can't be had gives null under the sanitizer too.
extern "C" const char *__asan_default_options() {
  return "allocator_may_return_null=1";
}

namespace {

using Flags = std::array<bool, 256>;

Flags Flagged(const std::string &bytes) {
  Flags flags{};
  for (const char c : bytes) {
    flags[static_cast<unsigned char>(c)] = true;
  }
  return flags;
}

// The text of a result, after a look at its size and its NUL.
std::string Taken(char *result, size_t size) {
  const OwnedString owned(result);
  EXPECT_NE(result, nullptr);
  EXPECT_EQ(result[size], '\0');
  return {result, size};
}

std::string DoString(const char *escStr, const std::string &flagged, const std::string &text) {
  size_t size = 999;
  char *result = Escape_DoString(escStr, Flagged(flagged).data(), text.data(), text.size(), &size);
  return Taken(result, size);
}

std::string Do(char escByte, const std::string &flagged, const std::string &text) {
  size_t size = 999;
  char *result = Escape_Do(escByte, Flagged(flagged).data(), text.data(), text.size(), &size);
  return Taken(result, size);
}

std::string Undo(char escByte, const std::string &text) {
  size_t size = 999;
  char *result = Escape_Undo(escByte, text.data(), text.size(), &size);
  return Taken(result, size);
}

std::string Sh(const std::string &text) {
  size_t size = 999;
  char *result = Escape_Sh(text.data(), text.size(), &size);
  return Taken(result, size);
}

std::string AnsiToUnix(const std::string &text) {
  size_t size = 999;
  char *result = Escape_AnsiToUnix(text.data(), text.size(), &size);
  return Taken(result, size);
}

std::string Unescape(char escByte, const std::string &text) {
  char *result = Escape_Unescape(escByte, text.c_str());
  return Taken(result, strlen(result));
}

// All of the buffer, for an octal escape may put a NUL into it.
std::string UnescapeCString(const std::string &text) {
  std::vector<char> buffer(text.begin(), text.end());
  buffer.push_back('\0');
  buffer.push_back('#');
  Escape_UnescapeCString(buffer.data());
  EXPECT_EQ(buffer.back(), '#');
  return {buffer.begin(), buffer.end() - 2};
}

std::string AllBytes() {
  std::string bytes;
  for (int i = 0; i < 256; i++) {
    bytes += static_cast<char>(i);
  }
  return bytes;
}

// As a C string.
std::string UnescapedText(const std::string &text) {
  const std::string buffer = UnescapeCString(text);
  return buffer.substr(0, buffer.find('\0'));
}

TEST(EscapeDo, TurnsFlaggedBytesIntoUpperCaseDigits) {
  EXPECT_EQ(Do('#', "#;", "a;b#c"), "a#3Bb#23c");
  EXPECT_EQ(Do('%', "%\n\xff", "100%\n\xff"), "100%25%0A%FF");
  EXPECT_EQ(Do('#', "#;", "plain"), "plain");
  EXPECT_EQ(Do('#', "#;", ""), "");
  EXPECT_EQ(Do('\0', std::string("\0b", 2), "abc"), std::string("a\00062c", 5));
  EXPECT_EQ(Do('#', std::string("#\0", 2), std::string("a\0b", 3)), "a#00b");
}

TEST(EscapeDo, GivesEveryByteItsTwoDigits) {
  const std::string all = AllBytes();
  std::string expected;
  for (int i = 0; i < 256; i++) {
    char code[4];
    snprintf(code, sizeof code, "%%%02X", static_cast<unsigned>(i));
    expected += code;
  }
  EXPECT_EQ(Do('%', all, all), expected);
  EXPECT_EQ(Undo('%', expected), all);
}

TEST(EscapeDoString, PutsTheWholeStringBeforeTheDigits) {
  EXPECT_EQ(DoString("\\x", "\\\n", "a\nb\\"), "a\\x0Ab\\x5C");
  EXPECT_EQ(DoString("<esc>", "<>", ""), "");
}

TEST(EscapeDoString, TakesNoBufferOfSizeNothingAndNoCount) {
  const Flags flags = Flagged("%");
  const OwnedString text(Escape_Do('%', flags.data(), nullptr, 0, nullptr));
  EXPECT_STREQ(text.get(), "");
  EXPECT_STREQ(OwnedString(Escape_Undo('%', nullptr, 0, nullptr)).get(), "");
  EXPECT_STREQ(OwnedString(Escape_Sh(nullptr, 0, nullptr)).get(), "''");
  EXPECT_STREQ(OwnedString(Escape_AnsiToUnix(nullptr, 0, nullptr)).get(), "");
}

TEST(EscapeDoStringDeathTest, StopsWhenItsOwnFirstByteIsNotFlagged) {
  const Flags flags = Flagged(";x");
  const auto stops = testing::HasSubstr("ASSERT lib/misc/escape.cc:");
  EXPECT_EXIT(Escape_Do('#', flags.data(), "a", 1, nullptr), testing::ExitedWithCode(255), stops);
  EXPECT_EXIT(Escape_DoString("\\x", flags.data(), "a", 1, nullptr), testing::ExitedWithCode(255), stops);
  EXPECT_EXIT(Escape_DoString(nullptr, flags.data(), "a", 1, nullptr), testing::ExitedWithCode(255), stops);
  EXPECT_EXIT(Escape_DoString("#", nullptr, "a", 1, nullptr), testing::ExitedWithCode(255), stops);
}

TEST(EscapeUndo, TakesDigitsOfBothCases) {
  EXPECT_EQ(Undo('%', "%41%6a%4A%fF"), "AjJ\xff");
  EXPECT_EQ(Undo('#', "a#3Bb"), "a;b");
  EXPECT_EQ(Undo('%', "x%00y"), std::string("x\0y", 3));
}

TEST(EscapeUndo, LeavesABrokenSequenceAsItStands) {
  EXPECT_EQ(Undo('%', "%4"), "%4");
  EXPECT_EQ(Undo('%', "%"), "%");
  EXPECT_EQ(Undo('%', "a%4"), "a%4");
  EXPECT_EQ(Undo('%', "%4g%g4%41"), "%4g%g4A");
  EXPECT_EQ(Undo('%', "%@0%`0%:0%/0%G0"), "%@0%`0%:0%/0%G0");
}

TEST(EscapeUndo, TheByteThatBreaksASequenceBeginsNoOther) {
  EXPECT_EQ(Undo('%', "%%41"), "%%41");
  EXPECT_EQ(Undo('%', "%4%41"), "%4%41");
  EXPECT_EQ(Undo('%', "%%%41"), "%%A");
  EXPECT_EQ(Undo('%', "%4%%41"), "%4%A");
}

TEST(EscapeUndo, AnEscapeByteMayBeADigit) {
  EXPECT_EQ(Undo('A', "A41A"), "AA");
  EXPECT_EQ(Undo('4', "4441"), "D1");
}

// The reverse as a machine of three states, byte by byte.
std::string UndoByStates(char escByte, const std::string &text) {
  const auto value = [](char c) {
    const char *digits = "0123456789abcdef";
    const char *found = c == '\0' ? nullptr : strchr(digits, tolower(static_cast<unsigned char>(c)));
    return found == nullptr ? -1 : static_cast<int>(found - digits);
  };
  std::string out;
  std::string pending;
  int state = 0;
  int high = 0;
  for (const char c : text) {
    pending += c;
    if (state == 0) {
      state = c == escByte ? 1 : 0;
    } else if (state == 1) {
      high = value(c);
      state = high < 0 ? 0 : 2;
    } else {
      if (value(c) >= 0) {
        pending.resize(pending.size() - 3);
        pending += static_cast<char>(high * 16 + value(c));
      }
      state = 0;
    }
    if (state == 0) {
      out += pending;
      pending.clear();
    }
  }
  return out + pending;
}

TEST(EscapeUndo, AgreesWithTheStatesOnEveryShortText) {
  const std::string letters = "%4aG";
  for (size_t length = 0; length <= 7; length++) {
    size_t count = 1;
    for (size_t i = 0; i < length; i++) {
      count *= letters.size();
    }
    for (size_t number = 0; number < count; number++) {
      std::string text;
      for (size_t rest = number; text.size() < length; rest /= letters.size()) {
        text += letters[rest % letters.size()];
      }
      ASSERT_EQ(Undo('%', text), UndoByStates('%', text)) << text;
    }
  }
}

TEST(EscapeUndo, GivesBackWhatDoTook) {
  std::mt19937 random(1);
  for (int i = 0; i < 300; i++) {
    std::string text(random() % 300, '\0');
    for (char &c : text) {
      c = static_cast<char>(random());
    }
    const std::string flagged = "%" + text.substr(0, text.size() / 4);
    EXPECT_EQ(Undo('%', Do('%', flagged, text)), text);
  }
}

TEST(EscapeUnescape, DropsEachEscapeAndKeepsTheNextByte) {
  EXPECT_EQ(Unescape('\\', "a\\bc"), "abc");
  EXPECT_EQ(Unescape('\\', "\\\\a\\\\\\b"), "\\a\\b");
  EXPECT_EQ(Unescape('\\', "a\\"), "a");
  EXPECT_EQ(Unescape('\\', "a\\\\"), "a\\");
  EXPECT_EQ(Unescape('\\', "plain"), "plain");
  EXPECT_EQ(Unescape('\\', ""), "");
  EXPECT_EQ(Unescape('|', "\\|\\"), "\\\\");
}

TEST(EscapeStrchr, FindsTheFirstByteThatIsNotEscaped) {
  const char *text = "a\\,b\\\\,c,";
  EXPECT_EQ(Escape_Strchr('\\', text, ','), text + 6);
  EXPECT_EQ(Escape_Strchr('\\', "a\\,", ','), nullptr);
  EXPECT_EQ(Escape_Strchr('\\', "\\\\\\,", ','), nullptr);
  EXPECT_EQ(Escape_Strchr('\\', "abc", ','), nullptr);
  EXPECT_EQ(Escape_Strchr('\\', "", ','), nullptr);
  const char *escapedTwice = "\\,\\,,";
  EXPECT_EQ(Escape_Strchr('\\', escapedTwice, ','), escapedTwice + 4);
}

TEST(EscapeStrchr, NeverFindsTheEnd) {
  EXPECT_EQ(Escape_Strchr('\\', "abc", '\0'), nullptr);
  EXPECT_EQ(Escape_Strchr('\\', "abc\\", '\0'), nullptr);
}

TEST(EscapeStrchrDeathTest, StopsWhenTheEscapeIsWhatIsLookedFor) {
  EXPECT_EXIT(Escape_Strchr(',', "a,b", ','), testing::ExitedWithCode(255),
              testing::HasSubstr("ASSERT lib/misc/escape.cc:"));
}

TEST(EscapeStrchr, AgreesWithReadingByteByByte) {
  std::mt19937 random(2);
  for (int i = 0; i < 5000; i++) {
    std::string text;
    for (size_t length = random() % 12; text.size() < length;) {
      text += "\\,a"[random() % 3];
    }
    const char *expected = nullptr;
    bool escaped = false;
    for (const char *at = text.c_str(); *at != '\0' && expected == nullptr; at++) {
      expected = !escaped && *at == ',' ? at : nullptr;
      escaped = !escaped && *at == '\\';
    }
    EXPECT_EQ(Escape_Strchr('\\', text.c_str(), ','), expected) << text;
  }
}

TEST(EscapeUnescapeCString, UndoesLineFeedsBackslashesAndOctals) {
  EXPECT_EQ(UnescapedText("a\\nb"), "a\nb");
  EXPECT_EQ(UnescapedText("a\\\\nb"), "a\\nb");
  EXPECT_EQ(UnescapedText("\\101\\040\\012"), "A \n");
  EXPECT_EQ(UnescapedText("\\1011"), "A1");
  EXPECT_EQ(UnescapedText("\\7x\\18"), "\ax\0018");
  EXPECT_EQ(UnescapedText("\\777"), "\xff");
  EXPECT_EQ(UnescapedText("plain"), "plain");
  EXPECT_EQ(UnescapedText(""), "");
  EXPECT_EQ(UnescapeCString("a\\0b").substr(0, 4), std::string("a\0b\0", 4));
}

TEST(EscapeUnescapeCString, LeavesABackslashBeforeAnythingElse) {
  EXPECT_EQ(UnescapedText("\\t\\\"\\x41\\8"), "\\t\\\"\\x41\\8");
  EXPECT_EQ(UnescapedText("end\\"), "end\\");
  EXPECT_EQ(UnescapedText("\\q\\n"), "\\q\n");
}

// A backslash and what scanf reads behind it, for every text of up to four of these bytes.
TEST(EscapeUnescapeCString, ReadsOctalsAsScanfDoes) {
  const std::string letters = "07+- \t8x";
  for (size_t number = 0; number < size_t{8} * 8 * 8 * 8 * 5; number++) {
    std::string behind;
    for (size_t rest = number / 5; behind.size() < number % 5; rest /= 8) {
      behind += letters[rest % 8];
    }
    const std::string escaped = "\\" + behind;
    unsigned value = 0;
    int used = 0;
    std::string expected = escaped;
    if (sscanf(escaped.c_str(), "\\%03o%n", &value, &used) == 1) {
      expected = static_cast<char>(value) + escaped.substr(static_cast<size_t>(used));
    }
    const std::string result = UnescapeCString(escaped);
    EXPECT_EQ(result.substr(0, expected.size()), expected) << escaped;
    if (expected.size() < result.size()) {
      EXPECT_EQ(result[expected.size()], '\0');
    }
  }
}

TEST(EscapeSh, QuotesForAShell) {
  EXPECT_EQ(Sh("it's"), "'it'\"'\"'s'");
  EXPECT_EQ(Sh(""), "''");
  EXPECT_EQ(Sh("a b;$(c)\n"), "'a b;$(c)\n'");
  EXPECT_EQ(Sh("''"), "''\"'\"''\"'\"''");
}

TEST(EscapeSh, AShellReadsTheTextBack) {
  std::string text = AllBytes().substr(1) + "''a'";
  const std::string command = "printf %s " + Sh(text);
  const std::unique_ptr<FILE, Releaser<pclose>> output(popen(command.c_str(), "r"));
  ASSERT_NE(output, nullptr);
  std::vector<char> read(text.size() + 1);
  const size_t size = fread(read.data(), 1, read.size(), output.get());
  EXPECT_EQ(std::string(read.data(), size), text);
}

TEST(EscapeAnsiToUnix, RemovesCarriageReturnsDirectlyBeforeLineFeeds) {
  EXPECT_EQ(AnsiToUnix("a\r\nb\r\n"), "a\nb\n");
  EXPECT_EQ(AnsiToUnix("a\rb\n\r"), "a\rb\n\r");
  EXPECT_EQ(AnsiToUnix("\r\r\n"), "\r\n");
  EXPECT_EQ(AnsiToUnix("\n\n"), "\n\n");
  EXPECT_EQ(AnsiToUnix(""), "");
  EXPECT_EQ(AnsiToUnix(std::string("\0\r\n\0", 4)), std::string("\0\n\0", 3));
}

TEST(Escape, LooksAtNothingBehindTheSize) {
  const Flags flags = Flagged("%");
  EXPECT_STREQ(OwnedString(Escape_Undo('%', "%41", 2, nullptr)).get(), "%4");
  EXPECT_STREQ(OwnedString(Escape_Undo('%', "%41", 1, nullptr)).get(), "%");
  EXPECT_STREQ(OwnedString(Escape_AnsiToUnix("\r\n", 1, nullptr)).get(), "\r");
  EXPECT_STREQ(OwnedString(Escape_Do('%', flags.data(), "a%", 1, nullptr)).get(), "a");
  EXPECT_STREQ(OwnedString(Escape_Sh("a'", 1, nullptr)).get(), "'a'");
}

// Behind the text's NUL is nothing that can be read or written.
TEST(Escape, LooksAtNothingBehindTheEndOfAString) {
  const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  void *pages = mmap(nullptr, 2 * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(pages, MAP_FAILED);
  ASSERT_EQ(mprotect(pages, page, PROT_READ | PROT_WRITE), 0);
  const auto atEnd = [&](const std::string &text) {
    char *copy = static_cast<char *>(pages) + page - text.size() - 1;
    return static_cast<char *>(memcpy(copy, text.c_str(), text.size() + 1));
  };
  EXPECT_EQ(Escape_Strchr('\\', atEnd("a\\"), ','), nullptr);
  EXPECT_STREQ(OwnedString(Escape_Unescape('\\', atEnd("a\\"))).get(), "a");
  EXPECT_STREQ(OwnedString(Escape_Unescape('\\', atEnd("a\\\\"))).get(), "a\\");
  for (const std::string behind : {"", "x", " ", "-", "8"}) {
    char *text = atEnd("a\\" + behind);
    Escape_UnescapeCString(text);
    EXPECT_EQ(text, "a\\" + behind);
  }
  for (const char *octal : {"\\7", "\\07", "\\007", "\\ 7"}) {
    char *text = atEnd(octal);
    Escape_UnescapeCString(text);
    EXPECT_STREQ(text, "\a");
  }
  munmap(pages, 2 * page);
}

using Operation = std::function<char *(size_t *outSize)>;

// Each operation on a text that makes its work buffer larger than its result.
std::vector<Operation> Operations() {
  static const Flags flags = Flagged("%");
  return {
      [](size_t *outSize) { return Escape_DoString("%", flags.data(), "a%b", 3, outSize); },
      [](size_t *outSize) { return Escape_Undo('%', "a%41", 4, outSize); },
      [](size_t *outSize) { return Escape_Sh("it's", 4, outSize); },
      [](size_t *outSize) { return Escape_AnsiToUnix("a\r\n", 3, outSize); },
      [](size_t *outSize) {
        *outSize = 0;
        return Escape_Unescape('\\', "a\\b");
      },
  };
}

TEST(Escape, GivesNullForEachAllocationThatFails) {
  for (const Operation &operation : Operations()) {
    size_t size = 0;
    const auto run = [&] { return OwnedString(operation(&size)) != nullptr; };
    const size_t count = testhost::CountAllocations(run);
    EXPECT_GE(count, 1U);
    for (size_t i = 0; i < count; i++) {
      size = 999;
      const testhost::AllocationFault fault(i);
      EXPECT_FALSE(run()) << i;
      EXPECT_TRUE(fault.Happened());
      EXPECT_EQ(size, 0U);
    }
  }
}

TEST(Escape, ASizeThatNoBufferHasIsOutOfMemory) {
  const volatile size_t most = SIZE_MAX;
  size_t size = 999;
  EXPECT_EQ(Escape_Undo('%', "", most, &size), nullptr);
  EXPECT_EQ(size, 0U);
  EXPECT_EQ(Escape_AnsiToUnix("", most, nullptr), nullptr);
  EXPECT_EQ(Escape_AnsiToUnix("", most / 2, nullptr), nullptr);
}

TEST(Escape, ResultsAreTrimmedToTheirSize) {
  const std::string text(100000, '%');
  std::string codes;
  for (int i = 0; i < 100000; i++) {
    codes += "%41";
  }
  size_t size = 0;
  const OwnedString undone(Escape_Undo('%', codes.data(), codes.size(), &size));
  EXPECT_EQ(size, 100000U);
  EXPECT_LT(malloc_usable_size(undone.get()), 110000U);
}

}  // namespace
