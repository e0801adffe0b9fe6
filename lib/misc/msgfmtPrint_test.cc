#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <clocale>
#include <cstdarg>
#include <cwchar>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "allocations.h"
#include "err.h"
#include "msgfmt.h"
#include "msgfmtTestInt.h"
#include "owned.h"
#include "panics.h"
#include "str.h"

namespace {

using msgfmttest::Print;
using msgfmttest::Take;
using msgfmttest::Taken;

// ---- As the engine prints

// The engine's own text of a format.
std::string Engine(const char *format, ...) {
  va_list args;
  va_start(args, format);
  const OwnedString text(Str_SafeVasprintf(nullptr, format, args));
  va_end(args);
  return text.get();
}

template <typename... Args>
void ExpectAsTheEngine(const std::string &format, Args... args) {
  const Taken taken = Take(format.c_str(), args...);
  EXPECT_EQ(taken.error, "") << format;
  const std::string got = Print(format.c_str(), taken);
  const std::string expected = Engine(format.c_str(), args...);
  if (got != expected) {
    ADD_FAILURE() << format << " gives '" << got << "', not '" << expected << "'";
  }
}

TEST(MsgFmtPrint, PrintsAsTheEngineDoes) {
  std::mt19937 random(1);
  const auto pick = [&random](const std::vector<std::string> &from) { return from[random() % from.size()]; };
  const auto front = [&] {
    return pick({"", "-", "0", "+", " ", "#", "-0"}) + pick({"", "1", "12", "40"}) +
           pick({"", ".", ".0", ".2", ".9"});
  };
  for (int i = 0; i < 20000; i++) {
    const bool positional = random() % 2 == 0;
    const auto at = [positional](int position) {
      return positional ? "%" + std::to_string(position) + "$" : std::string("%");
    };
    std::vector<std::string> specifiers = {
        at(1) + front() + pick({"", "h", "hh", "I32"}) + pick({"d", "u", "x", "X", "o", "i"}),
        at(2) + front() + pick({"l", "ll", "q", "j", "z", "t", "I64", "Z"}) + pick({"d", "u", "x"}),
        at(3) + front() + pick({"", "l", "z"}) + pick({"f", "e", "G", "g", "E", "F"}),
        at(4) + front() + pick({"s", "hs", "zs"}),
        at(5) + front() + pick({"ls", "S", "lls"}),
        at(6) + front() + pick({"c", "lc", "C"}),
        at(7) + front() + "p",
    };
    if (positional) {
      std::shuffle(specifiers.begin(), specifiers.end(), random);
    }
    std::string format = pick({"", "text ", "100%% "});
    for (const std::string &specifier : specifiers) {
      format += specifier + pick({"", " ", "|", "%%"});
    }
    ExpectAsTheEngine(format, static_cast<int>(random()), static_cast<int64_t>(random()) << 20,
                      static_cast<double>(random()) / 1024, "a\u00e9\u20acz", L"w\u00e9\u20acx", 'c',
                      static_cast<const void *>(&random));
  }
}

TEST(MsgFmtPrint, TakesEachArgumentFromItsPosition) {
  const Taken taken = Take("%2$s %1$s", "one", "two");
  EXPECT_EQ(Print("%2$s %1$s", taken), "two one");
  EXPECT_EQ(Print("%1$s %2$s", taken), "one two");
  EXPECT_EQ(Print("%s %s", taken), "one two");
  EXPECT_EQ(Print("%2$s", taken), "two");
}

TEST(MsgFmtPrint, PrintsWhatTakesNoValue) {
  EXPECT_EQ(Print("", nullptr, 0), "");
  EXPECT_EQ(Print("100%%", nullptr, 0), "100%");
  EXPECT_EQ(Print("%y", nullptr, 0), "y");
  EXPECT_EQ(Print("end %", nullptr, 0), "end ");
}

TEST(MsgFmtPrint, TakesWidthsAndPrecisionsFromTheArrayToo) {
  const Taken taken = Take("%d %d %s", 8, 2, "text");
  EXPECT_EQ(Print("<%*.*s>", taken), "<      te>");
  EXPECT_EQ(Print("<%3$*1$s>", taken), "<    text>");
  EXPECT_EQ(Print("<%3$-*1$.*2$s>", taken), "<te      >");
  EXPECT_EQ(Print("%*d %*d", Take("%d", 3)), "failed");
  EXPECT_EQ(Print("%*d", Take("%s%d", "a", 3)), "failed");
  EXPECT_EQ(Print("%.*d", Take("%s%d", "a", 3)), "failed");
}

// Wanted: the engine has no "a", which takes its value all the same.
TEST(MsgFmtPrint, PrintsTheLetterOfAHexadecimalDouble) {
  const Taken taken = Take("%a %A %d", 1.0, 2.0, 3);
  ASSERT_EQ(taken.numArgs, 3);
  EXPECT_EQ(Print("%a %A %d", taken), "a A 3");
  EXPECT_EQ(Print("%3$d %1$a", taken), "3 a");
  EXPECT_EQ(Print("%a", Take("%d", 1)), "failed");
}

// ---- Failing

TEST(MsgFmtPrint, FailsBehindTheLastArgument) {
  const Taken taken = Take("%d", 1);
  EXPECT_EQ(Print("%d", taken), "1");
  EXPECT_EQ(Print("%d %d", taken), "failed");
  EXPECT_EQ(Print("%2$d", taken), "failed");
  EXPECT_EQ(Print("%4096$d", taken), "failed");
  EXPECT_EQ(Print("%99999999999$d", taken), "failed");
  EXPECT_EQ(Print("%d", nullptr, 0), "failed");
}

TEST(MsgFmtPrint, FailsForAValueOfAnotherType) {
  const char *formats[] = {"%d", "%ld", "%p", "%f", "%s", "%ls"};
  int target = 0;
  const Taken values[] = {Take("%d", 1),   Take("%ld", 1L), Take("%p", &target),
                          Take("%f", 1.0), Take("%s", "s"), Take("%ls", L"w")};
  for (size_t i = 0; i < std::size(formats); i++) {
    for (size_t j = 0; j < std::size(values); j++) {
      EXPECT_EQ(Print(formats[i], values[j]) == "failed", i != j) << formats[i] << " " << formats[j];
    }
  }
  const MsgFmt_Arg invalid{};
  EXPECT_EQ(Print("%d", &invalid, 1), "failed");
}

TEST(MsgFmtPrint, FailsForWhatCannotBeTaken) {
  int64_t count = 5;
  EXPECT_EQ(Print("%n", Take("%p", &count)), "failed");
  EXPECT_EQ(count, 5);
  EXPECT_EQ(Print("%Lf", Take("%f", 1.0)), "failed");
  EXPECT_EQ(Print("%jf", Take("%f", 1.0)), "failed");
}

TEST(MsgFmtPrint, FailsForAWideStringThatIsNoText) {
  const wchar_t bad[] = {L'a', static_cast<wchar_t>(0x7FFFFFFF), 0};
  const Taken taken = Take("%d %ls", 1, bad);
  EXPECT_EQ(Print("%d %ls", taken), "failed");
  EXPECT_EQ(Print("%d %2$.1ls", taken), "1 a");
}

TEST(MsgFmtPrint, FailsWithoutMemory) {
  const std::string text(500, 'x');
  const Taken taken = Take("%s%s", text.c_str(), text.c_str());
  const auto print = [&] { return Print("%s%s", taken); };
  const size_t count = testhost::CountAllocations(print);
  EXPECT_EQ(count, 2U);
  for (size_t i = 0; i < count; i++) {
    const testhost::AllocationFault fault(i);
    EXPECT_EQ(print(), "failed") << i;
  }
}

TEST(MsgFmtPrintDeathTest, ATypeThatIsNeverMadeStopsTheProgram) {
  MsgFmt_Arg arg{};
  for (const MsgFmt_ArgType type : {MSGFMT_ARG_PTR32, MSGFMT_ARG_STRING16}) {
    arg.type = type;
    EXPECT_EXIT(Print("%p", &arg, 1), testing::ExitedWithCode(255),
                testhost::Panics("^ASSERT lib/misc/msgfmtPrint.cc:[0-9]+\n$"));
  }
}

// ---- Strings

TEST(MsgFmtPrint, PrintsMarkedStringsWithoutMarkerAndId) {
  EXPECT_EQ(Print("<%s>", Take("%s", "@&!*@*@(button.ok)OK")), "<OK>");
  EXPECT_EQ(Print("<%.1s|%1$4s>", Take("%s", "@&!*@*@(button.ok)OK")), "<O|  OK>");
  for (const char *text : {"@&!*@*@button.ok)OK", "@&!*@*@(button.ok", "x@&!*@*@(button.ok)OK", "@&!*@*@"}) {
    EXPECT_EQ(Print("%s", Take("%s", text)), text);
  }
}

TEST(MsgFmtPrint, PrefersTheLocalString) {
  char local[] = "@&!*@*@(x)lokal";
  const Taken taken = Take("%s %s %s", "text", nullptr, Err_Errno2String(ENOENT));
  EXPECT_EQ(Print("%3$s", taken), Err_Errno2String(ENOENT));
  for (int i = 0; i < 3; i++) {
    taken.args[i].localString = local;
  }
  EXPECT_EQ(Print("%1$s|%2$s|%3$.6s", taken), "@&!*@*@(x)lokal|@&!*@*@(x)lokal|@&!*@*");
}

TEST(MsgFmtPrint, PrintsWideStringsWhateverTheLocaleIs) {
  setlocale(LC_ALL, "C");
  EXPECT_EQ(Print("%ls|%.3S|%5ls", Take("%ls%S%ls", L"\u00e9\u20ac", L"\u00e9\u20ac", L"\u00e9")),
            "\u00e9\u20ac|\u00e9|   \u00e9");
}

TEST(MsgFmtPrint, ShowsNoMoreOfAStringThanWasTaken) {
  EXPECT_EQ(Print("%.8s|%1$s", Take("%.3s", "0123456789")), "012|012");
}

// ---- Where the text goes

TEST(MsgFmtPrint, CutsWhatDoesNotFit) {
  const Taken taken = Take("%s:%d", "name", 12345);
  const std::string whole = "name:12345";
  for (size_t size = 0; size <= whole.size() + 1; size++) {
    std::string bytes(size + 4, '#');
    char *buffer = bytes.data();
    EXPECT_EQ(MsgFmt_Snprintf(&buffer, size, "%s:%d", taken.args, taken.numArgs), 10);
    EXPECT_EQ(buffer, bytes.data());
    EXPECT_EQ(bytes.substr(size), "####");
    if (size > 0) {
      EXPECT_STREQ(buffer, whole.substr(0, size - 1).c_str());
    }
  }
}

TEST(MsgFmtPrint, LeavesWhatCameBeforeAFailure) {
  const Taken taken = Take("%s", "name");
  char bytes[32];
  char *buffer = bytes;
  EXPECT_EQ(MsgFmt_Snprintf(&buffer, sizeof bytes, "a %s %s", taken.args, taken.numArgs), -1);
  EXPECT_STREQ(bytes, "a name ");
}

TEST(MsgFmtPrint, MakesABufferWhenNoneIsGiven) {
  const Taken taken = Take("%s", "name");
  char *buffer = nullptr;
  EXPECT_EQ(MsgFmt_Snprintf(&buffer, 0, "<%s>", taken.args, taken.numArgs), 6);
  const OwnedString owner(buffer);
  EXPECT_STREQ(buffer, "<name>");
  char *failed = nullptr;
  EXPECT_EQ(MsgFmt_Snprintf(&failed, 0, "<%d>", taken.args, taken.numArgs), -1);
  EXPECT_EQ(failed, nullptr);
}

TEST(MsgFmtPrint, TellsTheLengthOfANewString) {
  const Taken taken = Take("%c%s", 0, "x");
  size_t length = 99;
  const OwnedString text(MsgFmt_Asprintf(&length, "%c%s", taken.args, taken.numArgs));
  EXPECT_EQ(length, 2U);
  EXPECT_EQ(std::string(text.get(), 2), std::string("\0x", 2));
  length = 99;
  EXPECT_EQ(MsgFmt_Asprintf(&length, "%d", taken.args + 1, 1), nullptr);
  EXPECT_EQ(length, 99U);
  EXPECT_STREQ(OwnedString(MsgFmt_Asprintf(nullptr, "%s", taken.args + 1, 1)).get(), "x");
}

// More pieces than wait at once, and more than the first buffer holds.
TEST(MsgFmtPrint, PrintsAThousandValues) {
  const std::string word(50, 'w');
  const Taken taken = Take("%s%d", word.c_str(), -7);
  std::string format;
  std::string expected;
  for (int i = 0; i < 1000; i++) {
    format += "%1$s%2$5d|";
    expected += word + "   -7|";
  }
  EXPECT_EQ(Print(format.c_str(), taken), expected);
}

}  // namespace
