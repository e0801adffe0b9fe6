#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cerrno>
#include <cstring>
#include <cwchar>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "allocations.h"
#include "err.h"
#include "log.h"
#include "msgfmt.h"
#include "msgfmtInt.h"
#include "msgfmtTestInt.h"
#include "panics.h"
#include "testhost.h"

namespace {

using msgfmttest::Print;
using msgfmttest::Take;
using msgfmttest::Taken;

// ---- Types

// What the type of a specifier is when nothing is wrong with it.
MsgFmt_ArgType TypeOf(const std::string &specifier) {
  const Taken taken = Take(("%" + specifier).c_str(), nullptr, 0.0);
  EXPECT_EQ(taken.error, "") << specifier;
  EXPECT_EQ(taken.numArgs, taken.error.empty() ? 1 : 0) << specifier;
  return taken.error.empty() ? taken.args[0].type : MSGFMT_ARG_INVALID;
}

void ExpectTypes(std::string_view conversions, const std::vector<std::string> &modifiers,
                 MsgFmt_ArgType type) {
  for (const char conversion : conversions) {
    for (const std::string &modifier : modifiers) {
      EXPECT_EQ(TypeOf(modifier + conversion), type) << modifier << conversion;
    }
  }
}

TEST(MsgFmtArgs, HaveTheTypesOfTheirSpecifiers) {
  const std::vector<std::string> all = {"",  "h", "hh", "I32", "l", "ll", "q",
                                        "L", "j", "t",  "z",   "Z", "I",  "I64"};
  ExpectTypes("aAeEfFgG", {"", "h", "hh", "I32", "l", "t", "z", "Z", "I"}, MSGFMT_ARG_FLOAT64);
  ExpectTypes("cC", all, MSGFMT_ARG_INT32);
  ExpectTypes("diouxX", {"", "h", "hh", "I32"}, MSGFMT_ARG_INT32);
  ExpectTypes("diouxX", {"l", "ll", "q", "L", "I64", "j", "t", "z", "Z", "I"}, MSGFMT_ARG_INT64);
  ExpectTypes("p", all, MSGFMT_ARG_PTR64);
  ExpectTypes("s", {"", "h", "hh", "I32", "t", "z", "Z", "I"}, MSGFMT_ARG_STRING8);
  ExpectTypes("s", {"l", "ll", "q", "L", "I64", "j"}, MSGFMT_ARG_STRING32);
  ExpectTypes("S", all, MSGFMT_ARG_STRING32);
}

TEST(MsgFmtArgs, HoldTheValues) {
  int target = 0;
  const Taken taken = Take("%d %ld %p %f %s %ls %c", -1, INT64_MIN, &target, 0.5, "text", L"wide", 'c');
  ASSERT_EQ(taken.numArgs, 7);
  EXPECT_EQ(taken.args[0].value.int32, -1);
  EXPECT_EQ(taken.args[1].value.int64, INT64_MIN);
  EXPECT_EQ(taken.args[2].value.pointer, &target);
  EXPECT_EQ(taken.args[3].value.float64, 0.5);
  EXPECT_STREQ(taken.args[4].value.string8, "text");
  EXPECT_STREQ(taken.args[5].value.string32, L"wide");
  EXPECT_EQ(taken.args[6].value.int32, 'c');
  for (int i = 0; i < taken.numArgs; i++) {
    EXPECT_EQ(taken.args[i].errorKind, MSGFMT_ERROR_NONE);
    EXPECT_EQ(taken.args[i].errorCode, 0);
    EXPECT_EQ(taken.args[i].localString, nullptr);
  }
}

TEST(MsgFmtArgs, AreTakenInTheOrderOfPositions) {
  const Taken taken = Take("%2$s %1$d %3$s", 1, "two", "three");
  ASSERT_EQ(taken.numArgs, 3);
  EXPECT_EQ(taken.args[0].value.int32, 1);
  EXPECT_STREQ(taken.args[1].value.string8, "two");
  EXPECT_STREQ(taken.args[2].value.string8, "three");
}

TEST(MsgFmtArgs, MayBeAskedForTwice) {
  EXPECT_EQ(Print("%1$s %1$s", Take("%1$s %1$s", "a")), "a a");
  const Taken taken = Take("%1$u %1$x %1$c", 65);
  ASSERT_EQ(taken.numArgs, 1);
  EXPECT_EQ(taken.args[0].type, MSGFMT_ARG_INT32);
}

TEST(MsgFmtArgs, AreNoneForAFormatWithoutSpecifiers) {
  for (const char *format : {"", "text", "100%%"}) {
    const Taken taken = Take(format);
    EXPECT_EQ(taken.error, "");
    EXPECT_EQ(taken.args, nullptr);
    EXPECT_EQ(taken.numArgs, 0);
  }
}

TEST(MsgFmtArgs, GrowWithTheFormat) {
  std::string format;
  std::string expected;
  for (int i = 1000; i > 0; i--) {
    format.append("%").append(std::to_string(i)).append("$s");
    expected += "x";
  }
  const char *x = "x";
#define TEN x, x, x, x, x, x, x, x, x, x
#define HUNDRED TEN, TEN, TEN, TEN, TEN, TEN, TEN, TEN, TEN, TEN
  const Taken taken = Take(format.c_str(), HUNDRED, HUNDRED, HUNDRED, HUNDRED, HUNDRED, HUNDRED, HUNDRED,
                           HUNDRED, HUNDRED, HUNDRED);
  EXPECT_EQ(taken.numArgs, 1000);
  EXPECT_EQ(Print(format.c_str(), taken), expected);
}

// ---- Strings

TEST(MsgFmtArgs, CopyNoMoreOfAStringThanItsPrecision) {
  const auto open = std::make_unique<char[]>(3);
  memcpy(open.get(), "abc", 3);
  const Taken bytes = Take("%.3s|%.3s|%.0s|%.s", "0123456789", open.get(), "x", "x");
  ASSERT_EQ(bytes.numArgs, 4);
  EXPECT_STREQ(bytes.args[0].value.string8, "012");
  EXPECT_STREQ(bytes.args[1].value.string8, "abc");
  EXPECT_STREQ(bytes.args[2].value.string8, "");
  EXPECT_STREQ(bytes.args[3].value.string8, "");
  EXPECT_EQ(Print("%s", bytes), "012");
  const auto openWide = std::make_unique<wchar_t[]>(2);
  wmemcpy(openWide.get(), L"ab", 2);
  const Taken wide = Take("%.2ls|%.5S|%.3ls", openWide.get(), L"cd", L"0123456789");
  ASSERT_EQ(wide.numArgs, 3);
  EXPECT_STREQ(wide.args[0].value.string32, L"ab");
  EXPECT_STREQ(wide.args[1].value.string32, L"cd");
  EXPECT_STREQ(wide.args[2].value.string32, L"012");
}

TEST(MsgFmtArgs, CopyWhatTheWidestPrecisionShows) {
  EXPECT_EQ(Print("%1$.2s %1$.4s %1$.3s", Take("%1$.2s %1$.4s %1$.3s", "012345")), "01 0123 012");
  EXPECT_EQ(Print("%1$.2s %1$s %1$.3s", Take("%1$.2s %1$s %1$.3s", "012345")), "01 012345 012");
  EXPECT_STREQ(Take("%1$.2s %1$.4s %1$.3s", "012345").args[0].value.string8, "0123");
}

TEST(MsgFmtArgs, KeepNullStrings) {
  const Taken taken = Take("%s %.3s %ls", nullptr, nullptr, nullptr);
  ASSERT_EQ(taken.numArgs, 3);
  EXPECT_EQ(taken.args[0].type, MSGFMT_ARG_STRING8);
  EXPECT_EQ(taken.args[2].type, MSGFMT_ARG_STRING32);
  for (int i = 0; i < taken.numArgs; i++) {
    EXPECT_EQ(taken.args[i].value.pointer, nullptr);
  }
  EXPECT_EQ(Print("%s %.3s %ls", taken), "(null) (nu (null)");
}

TEST(MsgFmtArgs, TakeAHundredMegabytes) {
  const std::string text(100 << 20, 'x');
  EXPECT_EQ(Print("%s", Take("%s", text.c_str())), text);
}

// ---- Errors as values

TEST(MsgFmtArgs, RecognizeTheTextOfAnError) {
  testhost::Host host;
  host.Enter();
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  const char *text = Err_Errno2String(ENOENT);
  const Taken taken = Take("%s: %.2s", text, text);
  ASSERT_EQ(taken.numArgs, 2);
  for (int i = 0; i < 2; i++) {
    EXPECT_EQ(taken.args[i].type, MSGFMT_ARG_ERRNO);
    EXPECT_EQ(taken.args[i].errorKind, 1);
    EXPECT_EQ(taken.args[i].errorCode, ENOENT);
    EXPECT_NE(taken.args[i].value.string8, text);
  }
  EXPECT_STREQ(taken.args[0].value.string8, text);
  EXPECT_STREQ(taken.args[1].value.string8, "No");
  EXPECT_EQ(testhost::ReadFile(Log_GetFileName()), "");
}

TEST(MsgFmtArgs, RecognizeTheCopyOfAnErrorsTextAndLogIt) {
  testhost::Host host;
  host.Enter();
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  const std::string copy = Err_Errno2String(EACCES);
  const Taken taken = Take("%s", copy.c_str());
  ASSERT_EQ(taken.numArgs, 1);
  EXPECT_EQ(taken.args[0].type, MSGFMT_ARG_ERRNO);
  EXPECT_EQ(taken.args[0].errorKind, MSGFMT_ERROR_ERRNO);
  EXPECT_EQ(taken.args[0].errorCode, EACCES);
  char pointer[32];
  snprintf(pointer, sizeof pointer, "%lX", reinterpret_cast<unsigned long>(copy.c_str()));
  const std::string log = testhost::ReadFile(Log_GetFileName());
  EXPECT_NE(log.find(std::string("MsgFmt_GetArgsWithBuf: failed to look up copied error string at ") +
                     pointer + ".\n"),
            std::string::npos)
      << log;
}

// Of a longer text, what its precision leaves may be that of an error.
TEST(MsgFmtArgs, RecognizeTheCutCopyOfAnErrorsText) {
  const std::string error = Err_Errno2String(EACCES);
  const std::string text = error + " for the user";
  const Taken cut = Take(("%." + std::to_string(error.size()) + "s").c_str(), text.c_str());
  EXPECT_EQ(cut.args[0].type, MSGFMT_ARG_ERRNO);
  EXPECT_EQ(cut.args[0].errorCode, EACCES);
  const Taken less = Take(("%." + std::to_string(error.size() - 1) + "s").c_str(), error.c_str());
  EXPECT_EQ(less.args[0].type, MSGFMT_ARG_STRING8);
}

// A text that hasn't become an error in this process is a string.
TEST(MsgFmtArgs, KnowNoErrorThatNobodyAskedFor) {
  const Taken taken = Take("%s", "Permission denied");
  EXPECT_EQ(taken.args[0].type, MSGFMT_ARG_STRING8);
}

// ---- What is wrong

TEST(MsgFmtArgs, TellWhatIsWrong) {
  EXPECT_EQ(Take("%1$s %s", "a", "b").error, "MsgFmt_GetArgs: error in format string");
  EXPECT_EQ(Take("%5%").error, "MsgFmt_GetArgs: error in format string");
  EXPECT_EQ(Take("%").error, "MsgFmt_GetArgs: error in format string");
  EXPECT_EQ(Take("%2$s", "a", "b").error, "MsgFmt_GetArgs: gap in arguments at position 1");
  EXPECT_EQ(Take("%1$s %4$s %2$s", "a", "b").error, "MsgFmt_GetArgs: gap in arguments at position 3");
  EXPECT_EQ(Take("%1$d %1$s").error,
            "MsgFmtGetArg1: incompatible specifiers for argument 1, old type 1, new type 6, pos \"1\", type "
            "\"s\"");
  EXPECT_EQ(Take("%s%2147483648d%n").error,
            "MsgFmtGetArg1: bad specifier, status -2, pos \"2\", type \"2147483648d\"");
  EXPECT_EQ(Take("%2147483648$d").error,
            "MsgFmtGetArg1: bad specifier, status -2, pos \"2147483648\", type \"d\"");
  EXPECT_EQ(Take("%1$.5-d").error, "MsgFmtGetArg1: bad specifier, status -2, pos \"1\", type \".5-d\"");
  EXPECT_EQ(Take("%n").error, "MsgFmtGetArg1: %n not supported, pos \"1\", type \"n\"");
  EXPECT_EQ(Take("%s%-5hhn").error, "MsgFmtGetArg1: %n not supported, pos \"2\", type \"-5hhn\"");
  EXPECT_EQ(Take("%5.1Lf").error, "MsgFmtGetArg1: %Lf not supported, pos \"1\", type \"5.1Lf\"");
  EXPECT_EQ(Take("%llG").error, "MsgFmtGetArg1: %LG not supported, pos \"1\", type \"llG\"");
  EXPECT_EQ(Take("%ja").error, "MsgFmtGetArg1: %ja not supported, pos \"1\", type \"ja\"");
}

TEST(MsgFmtArgs, RefuseAGapOfAnySize) {
  const std::string gap = "MsgFmt_GetArgs: gap in arguments at position 1";
  EXPECT_EQ(Take("%1000000$d").error, gap);
  // Not left to the heap, which may or may not have that much.
  const testhost::AllocationFault fault(0);
  EXPECT_EQ(Take("%2147483647$d").error, "MsgFmt_GetArgs: out of memory");
}

TEST(MsgFmtArgs, LeaveTheRecordsOfALargeGapUntouched) {
  const auto faults = [] {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt;
  };
  constexpr int kRecords = 10000000;
  constexpr long kPages = kRecords * long{sizeof(MsgFmt_Arg)} / 4096;
  for (const char *format : {"%10000000$d", "%10000000$d%n"}) {
    const long before = faults();
    EXPECT_NE(Take(format).error, "");
    EXPECT_LT(faults() - before, kPages / 2) << format;
  }
}

TEST(MsgFmtArgs, CanBeClaimedByTheWin32Form) {
  MsgFmtParseState state;
  EXPECT_EQ(MsgFmt_ParseWin32(nullptr, MsgFmtGetArg1, &state, "%2!d! %1"), 0);
  ASSERT_EQ(state.numArgs, 2);
  EXPECT_EQ(state.args[0].type, MSGFMT_ARG_STRING8);
  EXPECT_EQ(state.args[1].type, MSGFMT_ARG_INT32);
  MsgFmt_FreeArgs(state.args, state.numArgs);
}

void ClaimWin32(const char *format) {
  MsgFmtParseState state;
  MsgFmt_ParseWin32(nullptr, MsgFmtGetArg1, &state, format);
}

TEST(MsgFmtArgsDeathTest, AnUnknownConversionStopsTheProgram) {
  EXPECT_EXIT(ClaimWin32("%1!5y!"), testing::ExitedWithCode(255),
              testhost::Panics("^MsgFmtGetArg1: %y not understood, pos \"1\", type \"5y\"$"));
}

TEST(MsgFmtArgsDeathTest, ASecondErrorStopsTheProgram) {
  MsgFmtParseState state;
  EXPECT_EQ(MsgFmtGetArg1(&state, "1", 1, "n", 1), -2);
  EXPECT_EXIT(MsgFmtGetArg1(&state, "1", 1, "n", 1), testing::ExitedWithCode(255),
              testhost::Panics("^ASSERT lib/misc/msgfmtArgs.cc:[0-9]+\n$"));
  free(state.error);
}

// ---- Without memory

TEST(MsgFmtArgs, TellThatMemoryIsOut) {
  Err_Errno2String(ENOENT);
  const auto take = [] { return Take("%s %d %ls %s %s %s", "a", 1, L"b", "c", "d", "e").error; };
  ASSERT_EQ(take(), "");
  const size_t count = testhost::CountAllocations([&] { take(); });
  // Two tables and five strings.
  EXPECT_EQ(count, 7U);
  for (size_t i = 0; i < count; i++) {
    const testhost::AllocationFault fault(i);
    EXPECT_EQ(take(), "MsgFmt_GetArgs: out of memory") << i;
    EXPECT_TRUE(fault.Happened()) << i;
  }
}

TEST(MsgFmtArgsDeathTest, AnErrorThatCannotBeToldStopsTheProgram) {
  const auto fail = [] {
    const testhost::AllocationFault fault(0);
    Take("%");
  };
  EXPECT_EXIT(fail(), testing::ExitedWithCode(255),
              testhost::Panics("^MEM_ALLOC lib/misc/msgfmtArgs.cc:[0-9]+\n$"));
}

// ---- In a buffer

struct Block {
  explicit Block(size_t capacity) : bytes(std::make_unique<char[]>(capacity)), size(capacity) {}

  std::unique_ptr<char[]> bytes;
  size_t size;  // used, once values are taken
  MsgFmt_Arg *args = nullptr;
  int numArgs = -1;
  char *error = nullptr;

  // `offset` is where in the bytes the buffer begins.
  bool Take(size_t offset, const char *format, ...) {
    va_list list;
    va_start(list, format);
    size -= offset;
    const bool succeeded =
        MsgFmt_GetArgsWithBuf(format, list, &args, &numArgs, &error, bytes.get() + offset, &size);
    va_end(list);
    return succeeded;
  }
};

bool IsWithin(const void *pointer, const Block &block) {
  const auto *byte = static_cast<const char *>(pointer);
  return byte >= block.bytes.get() && byte < block.bytes.get() + block.size;
}

TEST(MsgFmtArgsInABuffer, TakeNothingFromTheHeap) {
  const char *error = Err_Errno2String(ENOENT);
  Block block(4096);
  EXPECT_EQ(testhost::CountAllocations(
                [&] { block.Take(0, "%s %ls %d %s %s", "text", L"wide", 7, nullptr, error); }),
            0U);
  EXPECT_EQ(block.error, nullptr);
  ASSERT_EQ(block.numArgs, 5);
  EXPECT_TRUE(IsWithin(block.args, block));
  EXPECT_TRUE(IsWithin(block.args[0].value.string8, block));
  EXPECT_TRUE(IsWithin(block.args[1].value.string32, block));
  EXPECT_TRUE(IsWithin(block.args[4].value.string8 + strlen(error), block));
  EXPECT_EQ(block.args[4].type, MSGFMT_ARG_ERRNO);
  EXPECT_EQ(Print("%s %ls %d %s %s", block.args, block.numArgs), std::string("text wide 7 (null) ") + error);
}

TEST(MsgFmtArgsInABuffer, TellHowMuchIsUsed) {
  Block block(4096);
  ASSERT_TRUE(block.Take(0, "%s%s", "abc", "d"));
  EXPECT_EQ(block.size, 4 * sizeof(MsgFmt_Arg) + 4 + 2);
  Block none(4096);
  ASSERT_TRUE(none.Take(0, "text"));
  EXPECT_EQ(none.size, 0U);
  EXPECT_EQ(none.args, nullptr);
}

// By what there was, so that a table of many positions isn't made anew for each.
TEST(MsgFmtArgsInABuffer, GrowToThePositionAndTheOldCapacity) {
  const std::pair<const char *, size_t> tables[] = {
      {"%d", 4},         {"%4$d%3$d%2$d%1$d", 4},          {"%5$d%4$d%3$d%2$d%1$d", 5},
      {"%d%d%d%d%d", 9}, {"%1$d%2$d%3$d%4$d%6$d%5$d", 10}, {"%d%d%d%d%d%d%d%d%d%d", 19}};
  for (const auto &[format, records] : tables) {
    Block block(4096);
    ASSERT_TRUE(block.Take(0, format, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10));
    EXPECT_EQ(block.size, records * sizeof(MsgFmt_Arg)) << format;
  }
}

TEST(MsgFmtArgsInABuffer, StandAtTheirAlignment) {
  for (size_t offset = 0; offset < 16; offset++) {
    Block block(4096);
    ASSERT_TRUE(block.Take(offset, "%s%ls", "ab", L"wide"));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(block.args) % alignof(MsgFmt_Arg), 0U);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(block.args[1].value.string32) % alignof(wchar_t), 0U);
    EXPECT_EQ(Print("%s%ls", block.args, block.numArgs), "abwide");
  }
}

TEST(MsgFmtArgsInABuffer, FitOrTellThatTheyDont) {
  const std::string table = "MsgFmtGetArg1: out of memory at arg 1";
  const size_t kTable = 4 * sizeof(MsgFmt_Arg);
  for (size_t size = table.size() + 1; size < kTable + 10; size++) {
    Block block(size);
    const bool fits = size >= kTable + 4;
    EXPECT_EQ(block.Take(0, "%s", "abc"), fits) << size;
    if (fits) {
      EXPECT_EQ(block.size, kTable + 4);
      continue;
    }
    const std::string expected = size < kTable ? table : "MsgFmt_GetArgs: out of memory";
    EXPECT_EQ(block.error, expected) << size;
    EXPECT_EQ(block.error, block.bytes.get());
    EXPECT_EQ(block.size, expected.size() + 1);
    EXPECT_EQ(block.args, nullptr);
    EXPECT_EQ(block.numArgs, 0);
  }
  Block second(4 * sizeof(MsgFmt_Arg));
  EXPECT_FALSE(second.Take(0, "%d%d%d%d%d", 1, 2, 3, 4, 5));
  EXPECT_STREQ(second.error, "MsgFmtGetArg1: out of memory at arg 5");
}

TEST(MsgFmtArgsInABuffer, TellTheErrorInTheBuffer) {
  Block block(4096);
  EXPECT_EQ(testhost::CountAllocations([&] { EXPECT_FALSE(block.Take(0, "%1$d %1$s", 1)); }), 0U);
  EXPECT_EQ(block.error, block.bytes.get());
  EXPECT_STREQ(block.error,
               "MsgFmtGetArg1: incompatible specifiers for argument 1, old type 1, new type 6, pos \"1\", "
               "type \"s\"");
  EXPECT_EQ(block.size, strlen(block.error) + 1);
}

TEST(MsgFmtArgsInABufferDeathTest, ABufferWithoutRoomForTheErrorStopsTheProgram) {
  const std::string text = "MsgFmtGetArg1: out of memory at arg 1";
  const auto take = [](size_t size) { Block(size).Take(0, "%s", "abc"); };
  for (const size_t size : {size_t{0}, size_t{1}, text.size()}) {
    EXPECT_EXIT(take(size), testing::ExitedWithCode(255),
                testhost::Panics("^MEM_ALLOC lib/misc/msgfmtArgs.cc:[0-9]+\n$"));
  }
}

// ---- Copies

TEST(MsgFmtCopyArgs, OwnsItsStrings) {
  const char *error = Err_Errno2String(ENOENT);
  Taken copy;
  {
    const Taken taken = Take("%s %d %s %s", "text", 7, nullptr, error);
    taken.args[0].localString = taken.args[0].value.string8;
    copy.args = MsgFmt_CopyArgs(taken.args, taken.numArgs);
    copy.numArgs = taken.numArgs;
    EXPECT_NE(copy.args[0].value.string8, taken.args[0].value.string8);
  }
  EXPECT_EQ(copy.args[0].localString, nullptr);
  EXPECT_EQ(copy.args[3].type, MSGFMT_ARG_ERRNO);
  EXPECT_EQ(copy.args[3].errorCode, ENOENT);
  EXPECT_EQ(Print("%s %d %s %s", copy), std::string("text 7 (null) ") + error);
}

TEST(MsgFmtCopyArgs, IsNotNullForNoArguments) {
  MsgFmt_Arg *copy = MsgFmt_CopyArgs(nullptr, 0);
  EXPECT_NE(copy, nullptr);
  MsgFmt_FreeArgs(copy, 0);
}

TEST(MsgFmtCopyArgs, IsNullWithoutMemory) {
  const Taken taken = Take("%s %d %s", "a", 1, "b");
  const auto copy = [&] {
    MsgFmt_Arg *args = MsgFmt_CopyArgs(taken.args, taken.numArgs);
    const bool copied = args != nullptr;
    MsgFmt_FreeArgs(args, copied ? taken.numArgs : 0);
    return copied;
  };
  const size_t count = testhost::CountAllocations(copy);
  EXPECT_EQ(count, 3U);
  for (size_t i = 0; i < count; i++) {
    const testhost::AllocationFault fault(i);
    EXPECT_FALSE(copy()) << i;
  }
}

TEST(MsgFmtCopyArgsDeathTest, AWideStringStopsTheProgram) {
  MsgFmt_Arg arg{};
  for (const MsgFmt_ArgType type : {MSGFMT_ARG_STRING16, MSGFMT_ARG_STRING32}) {
    arg.type = type;
    EXPECT_EXIT(MsgFmt_CopyArgs(&arg, 1), testing::ExitedWithCode(255),
                testhost::Panics("^NOT_IMPLEMENTED lib/misc/msgfmtArgs.cc:[0-9]+\n$"));
  }
  arg.type = MSGFMT_ARG_PTR32;
  EXPECT_EXIT(MsgFmt_CopyArgs(&arg, 1), testing::ExitedWithCode(255),
              testhost::Panics("^ASSERT lib/misc/msgfmtArgs.cc:[0-9]+\n$"));
}

// ---- Moves

TEST(MsgFmtSwizzleArgs, LetsABlockMove) {
  Block block(4096);
  ASSERT_TRUE(block.Take(0, "%s %d %ls %s", "text", 7, L"wide", nullptr));
  MsgFmt_SwizzleArgs(block.args, block.numArgs);
  EXPECT_EQ(block.args[0].value.int64, 4 * static_cast<int64_t>(sizeof(MsgFmt_Arg)));
  EXPECT_EQ(block.args[1].value.int32, 7);
  EXPECT_EQ(block.args[3].value.int64, 0);
  const size_t table = static_cast<size_t>(reinterpret_cast<char *>(block.args) - block.bytes.get());
  auto moved = std::make_unique<char[]>(block.size);
  memcpy(moved.get(), block.bytes.get(), block.size);
  memset(block.bytes.get(), 0xFF, block.size);
  auto *args = reinterpret_cast<MsgFmt_Arg *>(moved.get() + table);
  MsgFmt_UnswizzleArgs(args, block.numArgs);
  EXPECT_EQ(Print("%s %d %ls %s", args, block.numArgs), "text 7 wide (null)");
}

// Wanted: a text of an error is no offset.
TEST(MsgFmtSwizzleArgs, LeavesErrorsAlone) {
  const Taken taken = Take("%s", Err_Errno2String(ENOENT));
  const char *text = taken.args[0].value.string8;
  MsgFmt_SwizzleArgs(taken.args, taken.numArgs);
  EXPECT_EQ(taken.args[0].value.string8, text);
  MsgFmt_UnswizzleArgs(taken.args, taken.numArgs);
  EXPECT_EQ(taken.args[0].value.string8, text);
}

TEST(MsgFmtSwizzleArgs, ComesBackToWhatItWas) {
  const Taken taken = Take("%s %ls %s", "text", L"wide", nullptr);
  const std::string before(reinterpret_cast<const char *>(taken.args), 3 * sizeof(MsgFmt_Arg));
  MsgFmt_SwizzleArgs(taken.args, taken.numArgs);
  EXPECT_NE(std::string(reinterpret_cast<const char *>(taken.args), 3 * sizeof(MsgFmt_Arg)), before);
  MsgFmt_UnswizzleArgs(taken.args, taken.numArgs);
  EXPECT_EQ(std::string(reinterpret_cast<const char *>(taken.args), 3 * sizeof(MsgFmt_Arg)), before);
}

}  // namespace
