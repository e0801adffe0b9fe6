#include "codeset.h"

#include <sys/mman.h>
#include <unicode/putil.h>

#include <cctype>
#include <climits>
#include <clocale>
#include <cstring>
#include <functional>
#include <vector>

#include "allocations.h"
#include "codesetTestInt.h"
#include "testhost.h"
#include "unicode.h"

namespace {

using namespace codesettest;

// "a", a byte that is no UTF-8, "b": ICU puts U+FFFD for it, iconv ends the text.
constexpr std::string_view kBadMiddle =
    "a\xFF"
    "b";

Engine EngineInUse() {
  return Generic("UTF-8", kBadMiddle, "UTF-8", CODESET_SUBSTITUTE) == "a\uFFFDb" ? Engine::kIcu
                                                                                 : Engine::kIconv;
}

TEST(CodeSetInit, UsesIconvUntilItIsCalled) {
  EXPECT_EQ(EngineInUse(), Engine::kIconv);
}

TEST(CodeSetInit, WithoutTheDataFileLeavesTheWorkToIconv) {
  testhost::Host().Remove("/etc/ostrel/icu").Enter();
  EXPECT_TRUE(CodeSet_Init(nullptr));
  EXPECT_EQ(EngineInUse(), Engine::kIconv);
}

TEST(CodeSetInit, WithTheDataFileUsesIcuAndTellsItThePath) {
  testhost::Host().File("/etc/ostrel/icu/icudt38l.dat", "").Enter();
  EXPECT_TRUE(CodeSet_Init(nullptr));
  EXPECT_EQ(EngineInUse(), Engine::kIcu);
  EXPECT_STREQ(u_getDataDirectory(), "/etc/ostrel/icu/icudt38l.dat");
}

TEST(CodeSetInit, LooksInTheGivenDirectory) {
  testhost::Host().File("/given/icudt38l.dat", "").File("/etc/ostrel/icu/other.dat", "").Enter();
  EXPECT_TRUE(CodeSet_Init("/given"));
  EXPECT_EQ(EngineInUse(), Engine::kIcu);
  EXPECT_STREQ(u_getDataDirectory(), "/given/icudt38l.dat");
}

TEST(CodeSetInit, TakesNoDirectoryForTheDataFile) {
  testhost::Host().Directory("/given/icudt38l.dat").Enter();
  EXPECT_TRUE(CodeSet_Init("/given"));
  EXPECT_EQ(EngineInUse(), Engine::kIconv);
}

TEST(CodeSetInit, FollowsLinksToTheDataFile) {
  testhost::Host()
      .File("/real.dat", "")
      .SymLink("/file/icudt38l.dat", "/real.dat")
      .SymLink("/directory/icudt38l.dat", "/etc")
      .SymLink("/dangling/icudt38l.dat", "/nowhere")
      .Enter();
  EXPECT_TRUE(CodeSet_Init("/directory"));
  EXPECT_EQ(EngineInUse(), Engine::kIconv);
  EXPECT_TRUE(CodeSet_Init("/file"));
  EXPECT_EQ(EngineInUse(), Engine::kIcu);
  EXPECT_TRUE(CodeSet_Init("/dangling"));
  EXPECT_EQ(EngineInUse(), Engine::kIconv);
}

TEST(CodeSetInit, TakesAnEmptyNameForTheRootDirectory) {
  testhost::Host().File("/icudt38l.dat", "").Enter();
  EXPECT_TRUE(CodeSet_Init(""));
  EXPECT_EQ(EngineInUse(), Engine::kIcu);
  EXPECT_STREQ(u_getDataDirectory(), "/icudt38l.dat");
}

TEST(CodeSetInit, WithoutTheDataFileTurnsIcuOff) {
  Use(Engine::kIcu);
  ASSERT_EQ(EngineInUse(), Engine::kIcu);
  EXPECT_TRUE(CodeSet_Init("/nowhere"));
  EXPECT_EQ(EngineInUse(), Engine::kIconv);
}

TEST(CodeSetInit, WithoutMemoryLeavesTheWorkToIconv) {
  testhost::Host().File("/given/icudt38l.dat", "").Enter();
  {
    const testhost::AllocationFault fault(0);
    EXPECT_TRUE(CodeSet_Init("/given"));
    EXPECT_TRUE(fault.Happened());
  }
  EXPECT_EQ(EngineInUse(), Engine::kIconv);
}

TEST(CodeSetDontUseIcu, LeavesTheWorkToIconv) {
  Use(Engine::kIcu);
  CodeSet_DontUseIcu();
  EXPECT_EQ(EngineInUse(), Engine::kIconv);
}

// The name of the current code set is found once in a process, and each of these is a process of its own.

void SetVariables(const char *encoding, const char *broken, const char *locale = nullptr) {
  const auto set = [](const char *name, const char *value) {
    return value != nullptr ? setenv(name, value, 1) : unsetenv(name);
  };
  ASSERT_EQ(set("G_FILENAME_ENCODING", encoding), 0);
  ASSERT_EQ(set("G_BROKEN_FILENAMES", broken), 0);
  ASSERT_EQ(set("LC_ALL", locale), 0);
}

// A host with a locale in Latin-1, which is in force.
void EnterLatin1Host(const char *encoding, const char *broken) {
  testhost::Host().Directory("/usr/lib/locale").Enter();
  std::string output;
  ASSERT_EQ(testhost::Run("localedef -i en_US -f ISO-8859-1 /usr/lib/locale/xx_XX", &output), 0) << output;
  SetVariables(encoding, broken, "xx_XX");
}

TEST(CodeSetCurrent, IsUtf8WithoutVariables) {
  SetVariables(nullptr, nullptr);
  EXPECT_STREQ(CodeSet_GetCurrentCodeSet(), "UTF-8");
}

TEST(CodeSetCurrent, IsUtf8InAnyLocaleWithoutVariables) {
  EnterLatin1Host(nullptr, nullptr);
  EXPECT_STREQ(CodeSet_GetCurrentCodeSet(), "UTF-8");
}

TEST(CodeSetCurrent, IsTheFirstNameOfTheVariable) {
  SetVariables("ISO-8859-15,UTF-8", nullptr);
  EXPECT_STREQ(CodeSet_GetCurrentCodeSet(), "ISO-8859-15");
}

TEST(CodeSetCurrent, IsTheOnlyNameOfTheVariableEvenIfUnknown) {
  SetVariables("no-such-encoding", "1");
  EXPECT_STREQ(CodeSet_GetCurrentCodeSet(), "no-such-encoding");
}

TEST(CodeSetCurrent, IsTheEmptyNameBeforeAComma) {
  SetVariables(",UTF-8", nullptr);
  EXPECT_STREQ(CodeSet_GetCurrentCodeSet(), "");
}

TEST(CodeSetCurrent, IsTheLocalesOnRequest) {
  EnterLatin1Host("@locale,UTF-8", nullptr);
  EXPECT_STREQ(CodeSet_GetCurrentCodeSet(), "ISO-8859-1");
}

TEST(CodeSetCurrent, IsTheLocalesWhenFileNamesAreBroken) {
  EnterLatin1Host(nullptr, "");
  EXPECT_STREQ(CodeSet_GetCurrentCodeSet(), "ISO-8859-1");
}

TEST(CodeSetCurrent, FallsThroughAnEmptyVariable) {
  EnterLatin1Host("", "1");
  EXPECT_STREQ(CodeSet_GetCurrentCodeSet(), "ISO-8859-1");
}

TEST(CodeSetCurrent, IsUtf8WithAnEmptyVariableAlone) {
  SetVariables("", nullptr);
  EXPECT_STREQ(CodeSet_GetCurrentCodeSet(), "UTF-8");
}

TEST(CodeSetCurrent, IsThatOfTheCLocaleWhenTheLocaleIsMissing) {
  SetVariables("@locale", nullptr, "no_such_locale");
  EXPECT_STREQ(CodeSet_GetCurrentCodeSet(), "ANSI_X3.4-1968");
}

TEST(CodeSetCurrent, StopsTheProgramWhenMemoryIsOut) {
  for (const char *variable : {"", "ISO-8859-15", "@locale"}) {
    SetVariables(variable, nullptr);
    const auto find = [] {
      const testhost::AllocationFault fault(0);
      CodeSet_GetCurrentCodeSet();
    };
    EXPECT_EXIT(find(), testing::ExitedWithCode(255),
                testing::ContainsRegex("Unrecoverable memory allocation failure at lib/misc/codesetOld.cc:"))
        << variable;
  }
}

TEST(CodeSetCurrent, StaysAsItWasFirst) {
  SetVariables("ISO-8859-15", nullptr);
  const char *const name = CodeSet_GetCurrentCodeSet();
  SetVariables("ISO-8859-2", nullptr);
  EXPECT_EQ(CodeSet_GetCurrentCodeSet(), name);
  EXPECT_STREQ(name, "ISO-8859-15");
}

TEST(CodeSetCurrent, IsConvertedToAndFrom) {
  SetVariables("ISO-8859-1", nullptr);
  for (const Engine engine : kEngines) {
    Use(engine);
    SCOPED_TRACE(Name(engine));
    EXPECT_EQ(Convert(CodeSet_Utf8ToCurrent, "café"), "caf\xE9");
    EXPECT_EQ(Convert(CodeSet_CurrentToUtf8, "caf\xE9"), "café");
    EXPECT_EQ(Convert(CodeSet_Utf16leToCurrent, "\xE9\0!\0"s), "\xE9!");
    EXPECT_EQ(Convert(CodeSet_CurrentToUtf16le, "\xE9!"), "\xE9\0!\0"s);
    EXPECT_EQ(Convert(CodeSet_Utf16beToCurrent, "\0\xE9\0!"s), "\xE9!");
    EXPECT_EQ(Convert(CodeSet_Utf8ToCurrent, "中"), std::nullopt);
    EXPECT_EQ(Convert(CodeSet_Utf16leToCurrent, Utf16(0x4E2D)), std::nullopt);
    EXPECT_EQ(Convert(CodeSet_Utf16beToCurrent, Swapped(Utf16(0x4E2D))), std::nullopt);
    EXPECT_EQ(Convert(CodeSet_Utf8ToCurrent, "\xFF"), std::nullopt);
  }
}

TEST(CodeSetCurrent, IsConvertedToAndFromWhenItIsUtf8) {
  SetVariables(nullptr, nullptr);
  for (const Engine engine : kEngines) {
    Use(engine);
    SCOPED_TRACE(Name(engine));
    EXPECT_EQ(Convert(CodeSet_Utf8ToCurrent, "é中"), "é中");
    EXPECT_EQ(Convert(CodeSet_CurrentToUtf8, "é中"), "é中");
    EXPECT_EQ(Convert(CodeSet_Utf16leToCurrent, Utf16(0x1F600)), "😀");
    EXPECT_EQ(Convert(CodeSet_CurrentToUtf16le, "😀"), Utf16(0x1F600));
    EXPECT_EQ(Convert(CodeSet_Utf16beToCurrent, Swapped(Utf16(0x1F600))), "😀");
    EXPECT_EQ(Convert(CodeSet_CurrentToUtf8, "\xC3"), std::nullopt);
    EXPECT_EQ(Convert(CodeSet_CurrentToUtf16le, "\xED\xA0\x80"), std::nullopt);
  }
}

class CodeSetGeneric : public testing::TestWithParam<Engine> {
 protected:
  void SetUp() override { Use(GetParam()); }
  [[nodiscard]] bool IsIcu() const { return GetParam() == Engine::kIcu; }
  [[nodiscard]] Text Of(const char *withIcu, const char *withIconv) const {
    return IsIcu() ? withIcu : withIconv;
  }
};

INSTANTIATE_TEST_SUITE_P(Engines, CodeSetGeneric, testing::ValuesIn(kEngines),
                         [](const auto &parameter) { return Name(parameter.param); });

// Every character that an encoding may have, alone, and all bytes and pairs of them the other way.
TEST_P(CodeSetGeneric, GivesWhatTheEngineCalledDirectlyGives) {
  constexpr const char *kCodes[] = {"windows-1252", "ISO-8859-7", "Shift_JIS",
                                    "Big5",         "UTF-16BE",   "UTF-32LE"};
  for (const char *code : kCodes) {
    const auto to = NewPeer(GetParam(), "UTF-8", code);
    const auto from = NewPeer(GetParam(), code, "UTF-8");
    for (uint32_t codePoint = 0; codePoint <= 0x10FFFF; codePoint += codePoint < 0x10000 ? 5 : 251) {
      const std::string text = Utf8(codePoint);
      ASSERT_EQ(Generic("UTF-8", text, code), (*to)(text)) << code << " " << std::hex << codePoint;
    }
    for (uint32_t pair = 0; pair <= 0xFFFF; pair += 7) {
      const std::string text = Utf16Unit(pair);
      ASSERT_EQ(Generic(code, text, "UTF-8"), (*from)(text)) << code << " " << std::hex << pair;
      ASSERT_EQ(Generic(code, text.substr(0, 1), "UTF-8"), (*from)(text.substr(0, 1))) << code << " " << pair;
    }
  }
}

TEST_P(CodeSetGeneric, ConvertsTextThatGrows) {
  std::string latin;
  std::string utf8;
  for (int i = 0; i < 300000; i++) {
    latin += '\xE9';
    utf8 += "é";
  }
  EXPECT_EQ(Generic("ISO-8859-1", latin, "UTF-8"), utf8);
  EXPECT_EQ(Generic("UTF-8", utf8, "ISO-8859-1"), latin);
  const Text wide = Generic("UTF-8", utf8, "UTF-32BE");
  ASSERT_TRUE(wide.has_value());
  EXPECT_EQ(wide->size(), 1200000U);
  EXPECT_EQ(wide->substr(1199996), "\0\0\0\xE9"s);
}

TEST_P(CodeSetGeneric, EndsAnEncodingThatHasStates) {
  EXPECT_EQ(Generic("UTF-8", "é", "UTF-7"), "+AOk-");
  EXPECT_EQ(Generic("UTF-8", "日", "ISO-2022-JP"), "\x1B$BF|\x1B(B");
  // The end doesn't fit behind the text in the room that is made first.
  EXPECT_EQ(Generic("ISO-8859-1", "\xA7", "ISO-2022-JP"), "\x1B$B!x\x1B(B");
}

// A letter waits for a mark that may follow it.
TEST_P(CodeSetGeneric, KeepsTheLastLetterOfAnEncodingThatHasMarks) {
  EXPECT_EQ(Generic("windows-1258", "xa", "UTF-8"), "xa");
  EXPECT_EQ(Generic("windows-1258", "\xC2", "ISO-8859-1", CODESET_SUBSTITUTE), "\xC2");
  EXPECT_EQ(Generic("windows-1258", "x\xC3", "ISO-8859-1"), std::nullopt);
}

// Braille has no Latin letters, nor what could stand for them.
TEST(CodeSetIconv, EndsAtALastLetterThatTheTargetLacksAsAtAnyOther) {
  Use(Engine::kIconv);
  EXPECT_EQ(Generic("windows-1258", "a.", "ISO_11548-1", CODESET_SKIP), "");
  EXPECT_EQ(Generic("windows-1258", "a", "ISO_11548-1", CODESET_SKIP), "");
  EXPECT_EQ(Generic("windows-1258", "a", "ISO_11548-1"), std::nullopt);
}

TEST_P(CodeSetGeneric, StopsAtABadSequence) {
  EXPECT_EQ(Generic("UTF-8", kBadMiddle, "UTF-8"), std::nullopt);
  EXPECT_EQ(Generic("UTF-8", kBadMiddle, "ISO-8859-1"), std::nullopt);
  EXPECT_EQ(Generic("UTF-8", "\xFF", "UTF-16BE"), std::nullopt);
  EXPECT_EQ(Generic("Shift_JIS", "a\xFD", "UTF-8"), std::nullopt);
}

TEST_P(CodeSetGeneric, EndsOrReplacesAtABadSequenceByTheFlags) {
  EXPECT_EQ(Generic("UTF-8", kBadMiddle, "UTF-8", CODESET_SUBSTITUTE), Of("a\uFFFDb", "a"));
  EXPECT_EQ(Generic("UTF-8", kBadMiddle, "UTF-8", CODESET_SKIP), Of("ab", "a"));
  EXPECT_EQ(Generic("UTF-8", kBadMiddle, "ISO-8859-1", CODESET_SUBSTITUTE), Of("a\x1A"
                                                                               "b",
                                                                               "a"));
  EXPECT_EQ(Generic("UTF-8", "\xFFx", "UTF-8", CODESET_SKIP), Of("x", ""));
  EXPECT_EQ(Generic("UTF-16LE", "a\0\0\xD8"s + "b\0"s, "UTF-8", CODESET_SUBSTITUTE), Of("a\uFFFDb", "a"));
}

TEST_P(CodeSetGeneric, TreatsTextThatEndsInASequenceByTheEngine) {
  EXPECT_EQ(Generic("UTF-8", "a\xC3", "UTF-8"), std::nullopt);
  EXPECT_EQ(Generic("UTF-8", "a\xC3", "UTF-8", CODESET_SUBSTITUTE), IsIcu() ? Text("a\uFFFD") : std::nullopt);
  EXPECT_EQ(Generic("UTF-8", "a\xC3", "UTF-8", CODESET_SKIP), IsIcu() ? Text("a") : std::nullopt);
}

TEST_P(CodeSetGeneric, TreatsWhatTheTargetLacksByTheFlags) {
  EXPECT_EQ(Generic("UTF-8", "a中b", "ISO-8859-1"), std::nullopt);
  EXPECT_EQ(Generic("UTF-8", "a中b", "ISO-8859-1", CODESET_SUBSTITUTE), Of("a\x1A"
                                                                           "b",
                                                                           "a?b"));
  EXPECT_EQ(Generic("UTF-8", "a中b", "ISO-8859-1", CODESET_SKIP), Of("ab", "a?b"));
  EXPECT_EQ(Generic("UTF-8", "ﬁn", "ISO-8859-1", CODESET_SUBSTITUTE), Of("\x1An", "fin"));
}

// Wanted: what shows nothing isn't missed, even where a lack is a failure.
TEST_P(CodeSetGeneric, DropsWhatShowsNothingAndTheTargetLacks) {
  const Text dropped = "ab";
  for (const unsigned flags : {CODESET_STOP, CODESET_SUBSTITUTE, CODESET_SKIP}) {
    EXPECT_EQ(Generic("UTF-8", "a\U000E0061b", "ISO-8859-1", flags), dropped) << flags;
  }
  for (const char *text : {"a\u200Bb", "a\u2060b", "a\uFEFFb"}) {
    EXPECT_EQ(Generic("UTF-8", text, "ISO-8859-1"), IsIcu() ? dropped : std::nullopt);
  }
  EXPECT_EQ(Generic("UTF-8", "\u00AD", "ISO-8859-1"), "\xAD");
}

TEST_P(CodeSetGeneric, GivesNothingForNothing) {
  EXPECT_EQ(Generic("UTF-8", "", "ISO-8859-1"), "");
  EXPECT_EQ(Generic("UTF-8", "", "UTF-8"), "");
  EXPECT_EQ(Take([](char **out, size_t *size) {
              return CodeSet_GenericToGeneric("ISO-8859-1", nullptr, 0, "UTF-8", CODESET_STOP, out, size);
            }),
            "");
}

// As ICU itself takes them; iconv has nothing to take them for.
TEST_P(CodeSetGeneric, TakesNullForNoTextAndNoNameForIcusDefault) {
  const auto generic = [](const char *from, const char *text, const char *to, unsigned flags) {
    return Take([&](char **out, size_t *size) {
      return CodeSet_GenericToGeneric(from, text, 64, to, flags, out, size);
    });
  };
  for (const unsigned flags : {CODESET_STOP, CODESET_SUBSTITUTE}) {
    EXPECT_EQ(generic("ISO-8859-1", nullptr, "UTF-8", flags), IsIcu() ? Text("") : std::nullopt);
    EXPECT_EQ(generic("UTF-8", nullptr, "UTF-16LE", flags), IsIcu() ? Text("") : std::nullopt);
  }
  if (IsIcu()) {
    const std::string text(64, 'a');
    EXPECT_EQ(generic(nullptr, text.data(), "UTF-8", CODESET_STOP), text);
    EXPECT_EQ(generic("UTF-8", text.data(), nullptr, CODESET_STOP), text);
    EXPECT_TRUE(CodeSet_Validate("a", 1, nullptr));
  }
}

TEST_P(CodeSetGeneric, RefusesEncodingsThatTheEngineLacks) {
  EXPECT_EQ(Generic("no-such-encoding", "a", "UTF-8"), std::nullopt);
  EXPECT_EQ(Generic("UTF-8", "a", "no-such-encoding"), std::nullopt);
  EXPECT_EQ(Generic("UTF-8", "a", "no-such-encoding", CODESET_SUBSTITUTE), std::nullopt);
}

TEST_P(CodeSetGeneric, NeedsNoPlaceForTheSize) {
  char *bytes = nullptr;
  ASSERT_TRUE(CodeSet_GenericToGeneric("UTF-8", "é", 2, "ISO-8859-1", CODESET_STOP, &bytes, nullptr));
  const OwnedString owner(bytes);
  EXPECT_EQ(std::string(bytes, 5), "\xE9\0\0\0\0"s);
  ASSERT_FALSE(CodeSet_GenericToGeneric("UTF-8", "\xFF", 1, "ISO-8859-1", CODESET_STOP, &bytes, nullptr));
  EXPECT_EQ(bytes, nullptr);
}

TEST_P(CodeSetGeneric, AppendsToABufferAndKeepsItOnFailure) {
  DynBuf buffer;
  DynBuf_Init(&buffer);
  const auto content = [&] { return std::string(buffer.data, buffer.size); };
  EXPECT_TRUE(CodeSet_GenericToGenericDb("ISO-8859-1", "\xE9", 1, "UTF-8", CODESET_STOP, &buffer));
  EXPECT_TRUE(CodeSet_GenericToGenericDb("UTF-8", "中", 3, "UTF-8", CODESET_STOP, &buffer));
  EXPECT_TRUE(CodeSet_GenericToGenericDb("UTF-8", "!", 1, "UTF-16LE", CODESET_STOP, &buffer));
  EXPECT_EQ(content(), "é中!\0"s);
  EXPECT_FALSE(CodeSet_GenericToGenericDb("UTF-8", "ab\xFF", 3, "ISO-8859-1", CODESET_STOP, &buffer));
  EXPECT_FALSE(CodeSet_GenericToGenericDb("UTF-8", "ab\xFF", 3, "UTF-8", CODESET_STOP, &buffer));
  EXPECT_EQ(content(), "é中!\0"s);
  DynBuf_Destroy(&buffer);
}

TEST_P(CodeSetGeneric, FailsWhenMemoryIsOutAtAnyAllocation) {
  const std::string latin(3000, '\xE9');
  struct Case {
    const char *from;
    std::string_view text;
    const char *to;
    unsigned flags;
  };
  const Case cases[] = {{"ISO-8859-1", latin, "UTF-8", CODESET_STOP},
                        {"ISO-8859-1", latin, "UTF-8", CODESET_SUBSTITUTE},
                        {"UTF-8", "é", "UTF-8", CODESET_SUBSTITUTE},
                        {"UTF-8", "é", "UTF-16LE", CODESET_STOP},
                        {"UTF-16LE", "ab", "UTF-8", CODESET_STOP}};
  for (const Case &one : cases) {
    const auto convert = [&](char **out, size_t *size) {
      return CodeSet_GenericToGeneric(one.from, one.text.data(), one.text.size(), one.to, one.flags, out,
                                      size);
    };
    const size_t count = testhost::CountAllocations([&] { EXPECT_TRUE(Take(convert).has_value()); });
    ASSERT_GE(count, 1U);
    for (size_t i = 0; i < count; i++) {
      const testhost::AllocationFault fault(i);
      EXPECT_EQ(Take(convert), std::nullopt) << one.from << " " << one.to << " " << i;
      EXPECT_TRUE(fault.Happened());
    }
  }
}

TEST_P(CodeSetGeneric, StopsTheProgramAtUnknownFlags) {
  const auto stops = testing::ContainsRegex("ASSERT lib/misc/codesetOld\\.cc:|ASSERT lib/misc/codeset\\.cc:");
  EXPECT_EXIT(Generic("UTF-8", "a", "UTF-8", 3), testing::ExitedWithCode(255), stops);
  EXPECT_EXIT(Generic("UTF-8", "", "UTF-8", 3), testing::ExitedWithCode(255), stops);
  const auto ascii = [](auto convert) {
    return Take([&](char **out, size_t *size) { return convert("a", 1, 3, out, size); });
  };
  EXPECT_EXIT(ascii(CodeSet_Utf8ToAscii), testing::ExitedWithCode(255), stops);
  EXPECT_EXIT(ascii(CodeSet_AsciiToUtf8), testing::ExitedWithCode(255), stops);
}

// Of a character that is two in Unicode, glibc repeats the first without end when it goes on behind room that
// ended there.
TEST(CodeSetIconv, GivesTheSameWhereverTheRoomEnds) {
  Use(Engine::kIconv);
  for (const char *code : {"EUC-JISX0213", "SHIFT_JISX0213", "ISO-2022-JP-3", "BIG5-HKSCS"}) {
    const Text two = Generic("UTF-8", code == "BIG5-HKSCS"s ? "\u00CA\u0304" : "\u304B\u309A", code);
    ASSERT_TRUE(two.has_value()) << code;
    for (const char *to : {"UTF-32LE", "UTF-32", "UTF-16"}) {
      for (size_t i = 0; i < 100; i++) {
        const std::string text = std::string(i, 'a') + *two + std::string(i % 7, 'b');
        ASSERT_EQ(Generic(code, text, to), (*NewPeer(Engine::kIconv, code, to))(text)) << code << to << i;
      }
    }
  }
}

// It does so, too, or repeats it once and loses another, where its own room between two steps ends, however
// much there is for the result.
TEST(CodeSetIconv, ConvertsLongTextOfCharactersThatAreSeveral) {
  constexpr size_t kFewAllocations = 8;
  Use(Engine::kIconv);
  for (const char *code : {"EUC-JISX0213", "SHIFT_JISX0213", "ISO-2022-JP-3", "TSCII"}) {
    const std::string several = code == "TSCII"s ? "ab\u0BB8\u0BCD\u0BB0\u0BC0" : "\u304B\u309A";
    for (size_t before = 0; before < 6; before++) {
      std::string utf8(before, 'a');
      for (size_t i = 0; i < 20000; i++) {
        utf8 += several;
      }
      const Text text = Generic("UTF-8", utf8, code);
      ASSERT_TRUE(text.has_value()) << code;
      const testhost::AllocationFault fault(kFewAllocations);
      EXPECT_TRUE(Generic(code, *text, "UTF-8") == utf8) << code << " " << before;
      EXPECT_FALSE(fault.Happened());
    }
  }
}

// Long text is converted in pieces, which cut it inside characters, shift states and pairs of surrogates.
TEST_P(CodeSetGeneric, ConvertsLongTextInOne) {
  for (const char *code :
       {"UTF-7", "UTF-16", "UTF-16BE", "UTF-32", "ISO-2022-JP", "ISO-2022-KR", "Shift_JIS"}) {
    const std::string characters = code == "ISO-2022-KR"s ? "\uAC00\uB098z" : "\u65E5\u672Cz";
    const bool isUnicode = strncmp(code, "UTF", 3) == 0;
    for (size_t before = 0; before < 12; before++) {
      std::string utf8(before, 'a');
      for (size_t i = 0; i < 10000; i++) {
        utf8 += characters;
        utf8 += isUnicode ? "\U0001F600" : "";
      }
      const Text text = Generic("UTF-8", utf8, code);
      ASSERT_TRUE(text.has_value()) << code;
      EXPECT_TRUE(Generic(code, *text, "UTF-8") == utf8) << code << " " << before;
    }
  }
}

TEST_P(CodeSetGeneric, TreatsTheEndOfLongTextAsThatOfShort) {
  for (size_t size = 7990; size < 8010; size++) {
    const std::string latin(size, 'a');
    EXPECT_EQ(Generic("UTF-8", latin + "\xE6\x97", "UTF-16BE"), std::nullopt) << size;
    EXPECT_EQ(Generic("UTF-8", latin + "\xFFz", "ISO-8859-1"), std::nullopt) << size;
    const Text skipped = Generic("UTF-8", latin + "\xFFz", "ISO-8859-1", CODESET_SKIP);
    EXPECT_TRUE(skipped == Of((latin + "z").c_str(), latin.c_str())) << size;
  }
}

// glibc calls what it was told to ignore an error all the same, once it has converted what it was given.
TEST(CodeSetIconv, IgnoresWhatTheNameOfTheTargetTellsItToWhereverItStands) {
  Use(Engine::kIconv);
  for (const unsigned flags : {CODESET_STOP, CODESET_SUBSTITUTE, CODESET_SKIP}) {
    const std::function<Text(const std::string &)> ignoring = [&](const std::string &text) {
      return Generic("UTF-8", text, "ISO-8859-1//IGNORE", flags);
    };
    EXPECT_EQ(ignoring("\xFF"), "");
    EXPECT_EQ(ignoring("a\xFF\xC3"), std::nullopt);
    EXPECT_EQ(Generic("windows-1258", "ab", "ISO_11548-1//IGNORE", flags), "");
    for (size_t size = 7990; size < 8010; size++) {
      const std::string latin(size, 'a');
      EXPECT_TRUE(ignoring(latin + "\xFFz") == latin + "z") << size;
      EXPECT_TRUE(ignoring(latin + "\xFF") == latin) << size;
      EXPECT_TRUE(ignoring("\xFF" + latin + "éz") == latin + "\xE9z") << size;
    }
  }
}

// A letter that waits for its mark is only known to be the last when the text has ended, and the way back to
// ASCII stands behind it.
TEST(CodeSetIconv, LeavesAnEncodingInItsInitialStateBehindAnIgnoredLastLetter) {
  Use(Engine::kIconv);
  EXPECT_EQ(Generic("windows-1258", "\xA7\xE3", "ISO-2022-JP//IGNORE"), "\x1B$B!x\x1B(B");
  EXPECT_EQ(Generic("windows-1255", "\x26\xD1\xBA\xE9", "IBM930//IGNORE").value_or("").back(), '\x0F');
}

TEST(CodeSetIconv, IgnoresByAWholeSuffixOnly) {
  Use(Engine::kIconv);
  for (const char *suffix : {"//IGNORE", "//TRANSLIT,IGNORE", "//FOO//IGNORE", "///IGNORE/x", "//IGNORE \n",
                             "//IGNORE /", "//IGNORE ,FOO", "/ /IGNORE", "/,/IGNORE"}) {
    EXPECT_EQ(Generic("windows-1258", "a", (std::string("ISO_11548-1") + suffix).c_str()), "") << suffix;
  }
  for (const char *suffix : {"//IGNOREX", "//XIGNORE", "// IGNORE", "//FOO,IGNORANT", "//"}) {
    EXPECT_EQ(Generic("windows-1258", "a", (std::string("ISO_11548-1") + suffix).c_str()), std::nullopt)
        << suffix;
  }
}

// Turkish has an "i" without a dot, whose capital is the plain "I".
TEST(CodeSetIconv, IgnoresByANameAlikeInEveryLocale) {
  testhost::Host().Directory("/usr/lib/locale").Enter();
  std::string output;
  ASSERT_EQ(testhost::Run("localedef -i tr_TR -f UTF-8 /usr/lib/locale/tr_TR", &output), 0) << output;
  ASSERT_NE(setlocale(LC_ALL, "tr_TR"), nullptr);
  ASSERT_NE(tolower('I'), 'i');
  Use(Engine::kIconv);
  for (const char *to : {"ISO-8859-1//IGNORE", "ISO-8859-1//ignore", "ISO-8859-1//TRANSLIT,Ignore"}) {
    EXPECT_EQ(Generic("UTF-8", "\xFFz", to), "z") << to;
  }
}

// As much text as ICU counts, and more; the pages are never touched.
TEST_P(CodeSetGeneric, RefusesMoreThanIcuCanCount) {
  const size_t size = size_t{INT_MAX} + 2;
  void *zeros = mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(zeros, MAP_FAILED);
  Use(Engine::kIcu);
  EXPECT_EQ(Take([&](char **out, size_t *sizeOut) {
              return CodeSet_GenericToGeneric("ISO-8859-1", static_cast<char *>(zeros), size, "UTF-8",
                                              CODESET_STOP, out, sizeOut);
            }),
            std::nullopt);
  munmap(zeros, size);
}

// The room that is made for it is more than ICU counts.
TEST_P(CodeSetGeneric, ConvertsNearlyAsMuchAsIcuCanCount) {
  const size_t size = size_t{INT_MAX} - 3;
  void *zeros = mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(zeros, MAP_FAILED);
  char *bytes = nullptr;
  size_t sizeOut = 0;
  EXPECT_TRUE(CodeSet_GenericToGeneric("UTF-32LE", static_cast<char *>(zeros), size, "UTF-8", CODESET_STOP,
                                       &bytes, &sizeOut));
  EXPECT_EQ(sizeOut, size / 4);
  free(bytes);
  munmap(zeros, size);
}

TEST_P(CodeSetGeneric, ValidatesTextByTheEngine) {
  EXPECT_TRUE(Validate("", "UTF-8"));
  EXPECT_TRUE(Validate("", "no-such-encoding"));
  EXPECT_TRUE(Validate("é中😀\0x"s, "UTF-8"));
  EXPECT_FALSE(Validate("a\xC3", "UTF-8"));
  EXPECT_FALSE(Validate("\xED\xA0\x80", "UTF-8"));
  EXPECT_FALSE(Validate("\xC0\x80", "UTF-8"));
  EXPECT_FALSE(Validate("\xF4\x90\x80\x80", "UTF-8"));
  EXPECT_TRUE(Validate("a\0"s, "UTF-16LE"));
  EXPECT_FALSE(Validate("a\0b"s, "UTF-16LE"));
  EXPECT_FALSE(Validate("\0\xD8"s, "UTF-16LE"));
  EXPECT_TRUE(Validate("\x93\xFA", "Shift_JIS"));
  EXPECT_FALSE(Validate("\x93", "Shift_JIS"));
  EXPECT_TRUE(Validate("\xE9\xFF", "ISO-8859-1"));
}

TEST_P(CodeSetGeneric, ValidatesNoNull) {
  for (const char *code : {"UTF-8", "UTF-16LE", "ISO-8859-1"}) {
    EXPECT_TRUE(CodeSet_Validate(nullptr, 0, code));
    EXPECT_FALSE(CodeSet_Validate(nullptr, 1, code)) << code;
    EXPECT_FALSE(CodeSet_Validate(nullptr, 64, code)) << code;
  }
}

// ICU measures nothing for a mark of byte order alone, and takes that for a failure.
TEST_P(CodeSetGeneric, ValidatesAByteOrderMarkAloneByTheEngine) {
  EXPECT_EQ(Validate("\xFF\xFE", "UTF-16"), !IsIcu());
  EXPECT_TRUE(Validate("\uFEFF", "UTF-8"));
}

TEST_P(CodeSetGeneric, ValidatingInAnUnknownEncodingIsFalseOrStopsTheProgram) {
  if (IsIcu()) {
    EXPECT_EXIT(Validate("a", "no-such-encoding"), testing::ExitedWithCode(255),
                testing::ContainsRegex("NOT_IMPLEMENTED lib/misc/codeset.cc:[0-9]+\n"));
  } else {
    EXPECT_FALSE(Validate("a", "no-such-encoding"));
  }
}

TEST_P(CodeSetGeneric, ValidatingTwoGigabytesStopsTheProgram) {
  for (const size_t size : {size_t{INT_MAX} + 1, SIZE_MAX}) {
    EXPECT_EXIT(CodeSet_Validate("", size, "UTF-8"), testing::ExitedWithCode(255),
                testing::ContainsRegex("NOT_IMPLEMENTED lib/misc/codeset.cc:[0-9]+\n"));
  }
}

TEST_P(CodeSetGeneric, ValidatingWithoutMemoryIsFalseOrNeedsNone) {
  const testhost::AllocationFault fault(0);
  EXPECT_TRUE(CodeSet_Validate("é", 2, "UTF-8"));
  EXPECT_EQ(CodeSet_Validate("\xE9", 1, "ISO-8859-1"), IsIcu());
}

TEST_P(CodeSetGeneric, KnowsTheEncodingsThatAreSupported) {
  for (const char *name :
       {"UTF-8", "utf8", "ISO-8859-1", "latin1", "windows-1252", "Shift_JIS", "UTF-16LE"}) {
    EXPECT_TRUE(CodeSet_IsEncodingSupported(name)) << name;
  }
  EXPECT_FALSE(CodeSet_IsEncodingSupported("no-such-encoding"));
  // A row of the table that this program doesn't convert, though both engines could.
  EXPECT_EQ(CodeSet_IsEncodingSupported("IBM037"), IsIcu());
}

TEST_P(CodeSetGeneric, ANullNameStopsTheProgramUnlessIcuTakesItForItsDefault) {
  if (IsIcu()) {
    EXPECT_TRUE(CodeSet_IsEncodingSupported(nullptr));
  } else {
    EXPECT_EXIT(CodeSet_IsEncodingSupported(nullptr), testing::ExitedWithCode(255),
                testing::ContainsRegex("ASSERT lib/misc/codesetOld.cc:[0-9]+\n"));
  }
}

TEST_P(CodeSetGeneric, NormalizationStopsTheProgram) {
  DynBuf buffer;
  DynBuf_Init(&buffer);
  char *bytes = nullptr;
  const auto stops = testing::ContainsRegex("NOT_IMPLEMENTED lib/misc/codesetOld.cc:[0-9]+\n");
  EXPECT_EXIT(CodeSet_Utf8Normalize("a", 1, true, &buffer), testing::ExitedWithCode(255), stops);
  EXPECT_EXIT(CodeSet_Utf8FormDToUtf8FormC("a", 1, &bytes, nullptr), testing::ExitedWithCode(255), stops);
}

TEST_P(CodeSetGeneric, AsciiIsTheSameByBothEngines) {
  struct Row {
    std::string_view text;
    unsigned flags;
    Text toAscii;
    Text toUtf8;
  };
  const Row rows[] = {
      {"", CODESET_STOP, "", ""},
      {"plain \x7F text", CODESET_STOP, "plain \x7F text", "plain \x7F text"},
      {"aéb", CODESET_STOP, std::nullopt, std::nullopt},
      {"aéb", CODESET_SUBSTITUTE,
       "a\x1A"
       "b",
       "a\uFFFD\uFFFDb"},
      {"aéb", CODESET_SKIP, "ab", "ab"},
      {"中😀", CODESET_SUBSTITUTE, "\x1A\x1A", "\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"},
      // A malformed sequence counts by its bytes.
      {"\xED\xA0\x80"
       "a",
       CODESET_SUBSTITUTE,
       "\x1A\x1A\x1A"
       "a",
       "\uFFFD\uFFFD\uFFFD"
       "a"},
      {"\xC0\x80", CODESET_SUBSTITUTE, "\x1A\x1A", "\uFFFD\uFFFD"},
      {"\xE4\xB8", CODESET_SUBSTITUTE, "\x1A\x1A", "\uFFFD\uFFFD"},
      {"\xE4\xB8z", CODESET_SKIP, "z", "z"},
      {"0123456789abcdefghij\xFF", CODESET_SKIP, "0123456789abcdefghij", "0123456789abcdefghij"},
  };
  for (const Row &row : rows) {
    const Exactly input(row.text);
    const auto convert = [&](auto converter) {
      return Take([&](char **out, size_t *size) {
        return converter(input.Data(), input.Size(), row.flags, out, size);
      });
    };
    EXPECT_EQ(convert(CodeSet_Utf8ToAscii), row.toAscii) << row.text << row.flags;
    EXPECT_EQ(convert(CodeSet_AsciiToUtf8), row.toUtf8) << row.text << row.flags;
  }
}

TEST_P(CodeSetGeneric, BuffersOfTheFixedConversionsGrowAndAreKeptOnFailure) {
  DynBuf buffer;
  DynBuf_Init(&buffer);
  const auto content = [&] { return std::string(buffer.data, buffer.size); };
  EXPECT_TRUE(CodeSet_Utf16leToUtf8Db("\xE9\0"s.data(), 2, &buffer));
  EXPECT_TRUE(CodeSet_Utf8ToAsciiDb("xéy", 4, CODESET_SUBSTITUTE, &buffer));
  EXPECT_TRUE(CodeSet_AsciiToUtf8Db("z\xFF", 2, CODESET_SUBSTITUTE, &buffer));
  EXPECT_EQ(content(), "éx\x1Ayz\uFFFD");
  EXPECT_FALSE(CodeSet_Utf16leToUtf8Db("a\0\0\xDC"s.data(), 4, &buffer));
  EXPECT_FALSE(CodeSet_Utf16leToUtf8Db("a\0b"s.data(), 3, &buffer));
  EXPECT_FALSE(CodeSet_Utf8ToAsciiDb("xé", 3, CODESET_STOP, &buffer));
  EXPECT_FALSE(CodeSet_AsciiToUtf8Db("x\xFF", 2, CODESET_STOP, &buffer));
  EXPECT_EQ(content(), "éx\x1Ayz\uFFFD");
  DynBuf_Destroy(&buffer);
}

TEST_P(CodeSetGeneric, FixedConversionsFailWhenMemoryIsOutAtAnyAllocation) {
  ASSERT_STREQ(CodeSet_GetCurrentCodeSet(), "UTF-8");
  const std::string bytes(3000, '\xE9');
  const std::function<bool(char **, size_t *)> conversions[] = {
      [](char **out, size_t *size) { return CodeSet_Utf8ToUtf16le("é", 2, out, size); },
      [](char **out, size_t *size) { return CodeSet_Utf16leToUtf8("ab", 2, out, size); },
      [](char **out, size_t *size) { return CodeSet_Utf16beToUtf8("ab", 2, out, size); },
      [](char **out, size_t *size) { return CodeSet_Utf8ToAscii("aé", 3, CODESET_SKIP, out, size); },
      [&](char **out, size_t *size) {
        return CodeSet_AsciiToUtf8(bytes.data(), bytes.size(), CODESET_SUBSTITUTE, out, size);
      },
      [](char **out, size_t *size) { return CodeSet_Utf8ToCurrent("é", 2, out, size); },
  };
  for (const auto &conversion : conversions) {
    const size_t count = testhost::CountAllocations([&] { EXPECT_TRUE(Take(conversion).has_value()); });
    ASSERT_GE(count, 1U);
    for (size_t i = 0; i < count; i++) {
      const testhost::AllocationFault fault(i);
      EXPECT_EQ(Take(conversion), std::nullopt) << i;
    }
  }
}

TEST_P(CodeSetGeneric, FixedConversionsTakeNothing) {
  EXPECT_EQ(Convert(CodeSet_Utf8ToUtf16le, ""), "");
  EXPECT_EQ(Convert(CodeSet_Utf16leToUtf8, ""), "");
  EXPECT_EQ(Convert(CodeSet_Utf16beToUtf8, ""), "");
  EXPECT_EQ(Convert(CodeSet_Utf16leToUtf8, "a"), std::nullopt);
  EXPECT_EQ(Convert(CodeSet_Utf16beToUtf8, "a"), std::nullopt);
}

TEST_P(CodeSetGeneric, FixedConversionsTakeNullForNothing) {
  const Converter converters[] = {
      CodeSet_Utf8ToUtf16le,
      CodeSet_Utf16leToUtf8,
      CodeSet_Utf16beToUtf8,
      [](const char *in, size_t size, char **out, size_t *sizeOut) {
        return CodeSet_Utf8ToAscii(in, size, CODESET_STOP, out, sizeOut);
      },
      [](const char *in, size_t size, char **out, size_t *sizeOut) {
        return CodeSet_AsciiToUtf8(in, size, CODESET_SKIP, out, sizeOut);
      },
  };
  for (const Converter converter : converters) {
    for (const size_t size : {size_t{0}, size_t{1}, size_t{1} << 50}) {
      EXPECT_EQ(Take([&](char **out, size_t *sizeOut) { return converter(nullptr, size, out, sizeOut); }),
                "");
    }
  }
  DynBuf buffer;
  DynBuf_Init(&buffer);
  EXPECT_TRUE(CodeSet_Utf16leToUtf8Db(nullptr, 64, &buffer));
  EXPECT_EQ(buffer.size, 0U);
  DynBuf_Destroy(&buffer);
}

}  // namespace
