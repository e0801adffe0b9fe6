#include <cerrno>
#include <climits>

#include "allocations.h"
#include "unicodeInt.h"
#include "unicodeTestInt.h"

namespace {

using unicodetest::kMalformed;
using unicodetest::kPanic;
using unicodetest::Text;
using unicodetest::Utf16;

constexpr char kReplacement[] = "\xEF\xBF\xBD";

class UnicodeStrings : public unicodetest::UnicodeHost {};

// The tests of this name run with each engine.
class UnicodeAlloc : public unicodetest::UnicodeHost {
 protected:
  void SetUp() override {
    UnicodeHost::SetUp();
    if (GetParam()) {
      unicodetest::UseIcu();
    }
  }
};
INSTANTIATE_TEST_SUITE_P(Engine, UnicodeAlloc, ::testing::Bool(),
                         [](const auto &engine) { return engine.param ? "Icu" : "Iconv"; });

StringEncoding EncodingOf(const char *name) {
  return Unicode_EncodingNameToEnum(name);
}

std::string Alloc(const std::string &bytes, StringEncoding encoding) {
  return Text(Unicode_AllocWithLength(bytes.data(), static_cast<ssize_t>(bytes.size()), encoding));
}

std::string Strict(const std::string &bytes, StringEncoding encoding) {
  return Text(UnicodeAllocInternal(bytes.data(), bytes.size(), encoding, true));
}

bool IsValid(const std::string &bytes, StringEncoding encoding) {
  return Unicode_IsBufferValid(bytes.data(), static_cast<ssize_t>(bytes.size()), encoding);
}

TEST_P(UnicodeAlloc, ConvertsFromEachKindOfEncoding) {
  const std::string text = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
  EXPECT_EQ(Alloc(text, STRING_ENCODING_UTF8), text);
  EXPECT_EQ(Alloc(text, STRING_ENCODING_DEFAULT), text);
  EXPECT_EQ(Alloc(Utf16({'a', 0xE9, 0x20AC, 0xD83D, 0xDE00}), STRING_ENCODING_UTF16_LE), text);
  EXPECT_EQ(Alloc(std::string("\0a\0\xE9\x20\xAC", 6), STRING_ENCODING_UTF16_BE), "a\xC3\xA9\xE2\x82\xAC");
  EXPECT_EQ(Alloc(std::string("a\0\0\0\0\xF6\1\0", 8), STRING_ENCODING_UTF32_LE), "a\xF0\x9F\x98\x80");
  EXPECT_EQ(Alloc("plain", STRING_ENCODING_US_ASCII), "plain");
  EXPECT_EQ(Alloc("\xE9", STRING_ENCODING_ISO_8859_1), "\xC3\xA9");
  EXPECT_EQ(Alloc("\x80", STRING_ENCODING_WINDOWS_1252), "\xE2\x82\xAC");
  EXPECT_EQ(Alloc("\x83\x65", EncodingOf("Shift_JIS")), "\xE3\x83\x86");
  EXPECT_EQ(Alloc("", STRING_ENCODING_UTF16_BE), "");
}

TEST_P(UnicodeAlloc, MeasuresTerminatedBytes) {
  EXPECT_EQ(Text(Unicode_Alloc("caf\xE9", STRING_ENCODING_ISO_8859_1)), "caf\xC3\xA9");
  const std::string utf16 = Utf16({'a', 0x100, 0, 'b'});
  EXPECT_EQ(Text(Unicode_Alloc(utf16.data(), STRING_ENCODING_UTF16_LE)), "a\xC4\x80");
  EXPECT_EQ(Text(Unicode_AllocWithLength(utf16.data(), -1, STRING_ENCODING_UTF16_LE)), "a\xC4\x80");
  EXPECT_EQ(Text(Unicode_Alloc("", STRING_ENCODING_DEFAULT)), "");
}

TEST_P(UnicodeAlloc, KeepsEmbeddedNulsOfAGivenLength) {
  for (const StringEncoding encoding :
       {STRING_ENCODING_UTF8, STRING_ENCODING_US_ASCII, STRING_ENCODING_ISO_8859_1}) {
    const OwnedUnicode str(Unicode_AllocWithLength("a\0b", 3, encoding));
    EXPECT_EQ(std::string(str.get(), 4), std::string("a\0b\0", 4)) << encoding;
  }
}

TEST_P(UnicodeAlloc, LeavesNullAlone) {
  for (const int encoding : {-2, -1, 0, 1, 7, 300, 999}) {
    EXPECT_EQ(Unicode_AllocWithLength(nullptr, 0, static_cast<StringEncoding>(encoding)), nullptr);
    EXPECT_EQ(Unicode_AllocWithLength(nullptr, -1, static_cast<StringEncoding>(encoding)), nullptr);
    EXPECT_EQ(Unicode_Alloc(nullptr, static_cast<StringEncoding>(encoding)), nullptr);
  }
  EXPECT_EXIT(Unicode_AllocWithLength(nullptr, 1, STRING_ENCODING_UTF8), kPanic,
              "ASSERT lib/unicode/unicodeStrings\\.cc:[0-9]+");
}

TEST_P(UnicodeAlloc, StopsAtEncodingsThatAreNone) {
  for (const int encoding : {-2, 316, INT_MAX, INT_MIN}) {
    EXPECT_EXIT(Unicode_Alloc("text", static_cast<StringEncoding>(encoding)), kPanic,
                "NOT_REACHED lib/unicode/unicodeNames\\.cc:[0-9]+");
  }
}

TEST_F(UnicodeStrings, SubstituteMalformedUtf8WithIcu) {
  unicodetest::UseIcu();
  for (const std::string &bytes : kMalformed) {
    for (const std::string before : {"", "x", "\xC3\xA9"}) {
      for (const std::string after : {"", "y"}) {
        std::string bad = before;
        bad.append(bytes).append(after);
        const std::string text = Alloc(bad, STRING_ENCODING_UTF8);
        EXPECT_TRUE(text.starts_with(before + kReplacement)) << testing::PrintToString(bytes);
        EXPECT_TRUE(text.ends_with(kReplacement + after)) << testing::PrintToString(bytes);
        EXPECT_TRUE(IsValid(text, STRING_ENCODING_UTF8));
      }
    }
  }
}

TEST_F(UnicodeStrings, EndAtMalformedUtf8WithIconv) {
  for (const std::string &bytes : kMalformed) {
    // iconv takes what is above U+10FFFF for text.
    if (static_cast<unsigned char>(bytes[0]) < 0xF4 || static_cast<unsigned char>(bytes[0]) >= 0xFE) {
      EXPECT_EQ(Alloc("before" + bytes + "after", STRING_ENCODING_UTF8), "before")
          << testing::PrintToString(bytes);
    } else {
      EXPECT_EXIT(Alloc("before" + bytes + "after", STRING_ENCODING_UTF8), kPanic, "PANIC lib/unicode");
    }
  }
  EXPECT_EXIT(Alloc(std::string("\0\x11\0\0", 4), STRING_ENCODING_UCS4), kPanic, "PANIC lib/unicode");
}

TEST_F(UnicodeStrings, SubstituteWhatIsNoAscii) {
  EXPECT_EQ(Alloc("before\xE9", STRING_ENCODING_US_ASCII), "before");
  unicodetest::UseIcu();
  EXPECT_EQ(Alloc("before\xE9 after", STRING_ENCODING_US_ASCII),
            std::string("before") + kReplacement + " after");
}

// What iconv takes for an unfinished sequence isn't substituted.
TEST_F(UnicodeStrings, StopTheProgramAtWhatCannotBeConverted) {
  EXPECT_EXIT(Unicode_Alloc("a\\b\n\xC3", STRING_ENCODING_UTF8), kPanic,
              "PANIC lib/unicode/unicodeStrings\\.cc:[0-9]+");
  EXPECT_TRUE(
      Logged("Unicode_AllocWithLength: Error: Couldn't convert invalid buffer [a\\x5Cb\\x0A\\xC3] from "
             "UTF-8 to Unicode.\n"));
  EXPECT_EXIT(Unicode_AllocWithLength("a\0b", 3, STRING_ENCODING_UTF16_LE), kPanic, "PANIC lib/unicode");
  EXPECT_TRUE(Logged("Couldn't convert invalid buffer [a\\x00b] from UTF-16LE to Unicode.\n"));
}

TEST_F(UnicodeStrings, StopTheProgramWithoutTheEngine) {
  // Known to ICU alone.
  EXPECT_EXIT(Unicode_Alloc("text", EncodingOf("Windows-57002")), kPanic, "PANIC lib/unicode");
  EXPECT_TRUE(Logged("Couldn't convert invalid buffer [text] from Windows-57002 to Unicode.\n"));
  unicodetest::UseIcu();
  EXPECT_EQ(Alloc("\xA4", EncodingOf("Windows-57002")), "\xE0\xA4\x85");
}

TEST_F(UnicodeStrings, StopTheProgramWithoutMemory) {
  const auto alloc = [] { Unicode_Free(Unicode_Alloc("caf\xC3\xA9", STRING_ENCODING_UTF8)); };
  const size_t count = testhost::CountAllocations(alloc);
  ASSERT_GT(count, 0U);
  for (size_t i = 0; i < count; i++) {
    EXPECT_EXIT(
        {
          const testhost::AllocationFault fault(i);
          alloc();
        },
        kPanic, "PANIC lib/unicode/unicodeStrings\\.cc:[0-9]+");
    EXPECT_TRUE(Logged("Couldn't convert invalid buffer [caf\\xC3\\xA9] from UTF-8 to Unicode.\n"));
  }
}

TEST_F(UnicodeStrings, StopTheProgramWithoutMemoryToShowTheBytes) {
  // One of the allocations is for the bytes to be shown; those behind it are the log's and the panic's, which
  // may panic in its turn.
  const auto panics = [](int status) {
    return testing::ExitedWithCode(255)(status) || testing::ExitedWithCode(1)(status);
  };
  for (size_t i = 0; i < 8; i++) {
    EXPECT_EXIT(
        {
          const testhost::AllocationFault fault(i);
          Unicode_Alloc("a\xC3", STRING_ENCODING_UTF8);
        },
        panics, "^PANIC lib/unicode/unicodeStrings\\.cc:[0-9]+\n");
  }
  EXPECT_TRUE(Logged("Couldn't convert invalid buffer [(couldn't escape bytes)] from UTF-8 to Unicode.\n"));
}

TEST_P(UnicodeAlloc, IsStrictWhenWanted) {
  EXPECT_EQ(Strict("caf\xC3\xA9", STRING_ENCODING_UTF8), "caf\xC3\xA9");
  EXPECT_EQ(Strict("cafe", STRING_ENCODING_US_ASCII), "cafe");
  EXPECT_EQ(Strict("\xE9", STRING_ENCODING_ISO_8859_1), "\xC3\xA9");
  EXPECT_EQ(Strict(Utf16({0xD83D, 0xDE00}), STRING_ENCODING_UTF16_LE), "\xF0\x9F\x98\x80");
  EXPECT_EQ(Strict("", STRING_ENCODING_UTF8), "");
  for (const std::string &bytes : kMalformed) {
    EXPECT_EQ(Strict(bytes, STRING_ENCODING_UTF8), "(null)") << testing::PrintToString(bytes);
    EXPECT_EQ(Strict("x" + bytes + "y", STRING_ENCODING_UTF8), "(null)") << testing::PrintToString(bytes);
  }
  EXPECT_EQ(Strict("caf\xC3\xA9", STRING_ENCODING_US_ASCII), "(null)");
  EXPECT_EQ(Strict("abc", STRING_ENCODING_UTF16_LE), "(null)");
  EXPECT_EQ(Strict(Utf16({0xD83D}), STRING_ENCODING_UTF16_LE), "(null)");
  EXPECT_EQ(Strict(Utf16({0xDE00, 0xD83D}), STRING_ENCODING_UTF16_LE), "(null)");
  EXPECT_EQ(Strict("\x83", EncodingOf("Shift_JIS")), "(null)");
}

TEST_P(UnicodeAlloc, TellsValidBuffers) {
  EXPECT_TRUE(IsValid("caf\xC3\xA9", STRING_ENCODING_UTF8));
  EXPECT_TRUE(IsValid("caf\xC3\xA9", STRING_ENCODING_DEFAULT));
  EXPECT_TRUE(IsValid("\xE9", STRING_ENCODING_ISO_8859_1));
  EXPECT_TRUE(IsValid("", STRING_ENCODING_UTF16_LE));
  for (const std::string &bytes : kMalformed) {
    for (const std::string before : {"", "1234567", "\xC3\xA9"}) {
      EXPECT_FALSE(IsValid(before + bytes, STRING_ENCODING_UTF8)) << testing::PrintToString(bytes);
      EXPECT_FALSE(IsValid(before + bytes + "x", STRING_ENCODING_UTF8)) << testing::PrintToString(bytes);
    }
  }
  EXPECT_FALSE(IsValid("abc", STRING_ENCODING_UTF16_LE));
  EXPECT_FALSE(IsValid(Utf16({0xDC00}), STRING_ENCODING_UTF16_LE));
}

TEST_P(UnicodeAlloc, TellsAscii) {
  for (size_t length = 0; length < 40; length++) {
    const std::string text(length, '\x7F');
    EXPECT_TRUE(IsValid(text, STRING_ENCODING_US_ASCII));
    for (size_t at = 0; at < length; at++) {
      std::string bad = text;
      bad[at] = static_cast<char>(0x80 + at);
      EXPECT_FALSE(IsValid(bad, STRING_ENCODING_US_ASCII)) << length << " " << at;
    }
  }
}

TEST_P(UnicodeAlloc, MeasuresBuffersToTest) {
  EXPECT_TRUE(Unicode_IsBufferValid("caf\xC3\xA9\0\xFF", -1, STRING_ENCODING_UTF8));
  EXPECT_FALSE(Unicode_IsBufferValid("caf\xC3\0\xA9", -1, STRING_ENCODING_UTF8));
  EXPECT_FALSE(Unicode_IsBufferValid("\xE9", -1, STRING_ENCODING_US_ASCII));
  EXPECT_TRUE(Unicode_IsBufferValid(Utf16({'a', 0, 0xD800}).data(), -1, STRING_ENCODING_UTF16_LE));
}

TEST_P(UnicodeAlloc, CallsNullValid) {
  EXPECT_TRUE(Unicode_IsBufferValid(nullptr, 0, STRING_ENCODING_UTF8));
  EXPECT_TRUE(Unicode_IsBufferValid(nullptr, -1, STRING_ENCODING_UNKNOWN));
  EXPECT_EXIT(Unicode_IsBufferValid(nullptr, 1, STRING_ENCODING_UTF8), kPanic,
              "ASSERT lib/unicode/unicodeStrings\\.cc:[0-9]+");
}

TEST_P(UnicodeAlloc, TestsNothingOfTwoGibibytes) {
  EXPECT_EXIT(Unicode_IsBufferValid("", static_cast<ssize_t>(INT_MAX) + 1, STRING_ENCODING_UTF8), kPanic,
              "NOT_IMPLEMENTED lib/misc/codeset");
}

TEST(UnicodeLength, EndsAtTheEncodingsTerminator) {
  static constexpr char kBytes[] = "a\0\0b\0\0\0\0\0\0";
  EXPECT_EQ(Unicode_LengthInBytes(kBytes, STRING_ENCODING_UTF8), 1);
  EXPECT_EQ(Unicode_LengthInBytes(kBytes, STRING_ENCODING_DEFAULT), 1);
  EXPECT_EQ(Unicode_LengthInBytes(kBytes, STRING_ENCODING_ISO_8859_1), 1);
  for (const StringEncoding encoding :
       {STRING_ENCODING_UTF16_LE, STRING_ENCODING_UTF16_BE, STRING_ENCODING_UTF16_XE, STRING_ENCODING_UCS2}) {
    EXPECT_EQ(Unicode_LengthInBytes(kBytes, encoding), 4) << encoding;
    // However it lies.
    EXPECT_EQ(Unicode_LengthInBytes(kBytes + 3, encoding), 2) << encoding;
  }
  for (const StringEncoding encoding :
       {STRING_ENCODING_UTF32_LE, STRING_ENCODING_UTF32_BE, STRING_ENCODING_UTF32_XE, STRING_ENCODING_UCS4}) {
    EXPECT_EQ(Unicode_LengthInBytes(kBytes, encoding), 4) << encoding;
    EXPECT_EQ(Unicode_LengthInBytes(kBytes + 4, encoding), 0) << encoding;
  }
  EXPECT_EQ(Unicode_LengthInCodeUnits("caf\xC3\xA9"), 5);
}

TEST(UnicodeDuplicate, CopiesAndKeepsNull) {
  Unicode str = "caf\xC3\xA9";
  const OwnedUnicode copy(Unicode_Duplicate(str));
  EXPECT_STREQ(copy.get(), str);
  EXPECT_NE(copy.get(), str);
  EXPECT_EQ(UTF8(str), str);
  EXPECT_EQ(Unicode_Duplicate(nullptr), nullptr);
  EXPECT_EXIT(
      {
        const testhost::AllocationFault fault(0);
        Unicode_Duplicate("text");
      },
      kPanic, "Unrecoverable memory allocation failure at lib/unicode/unicodeStrings\\.cc:[0-9]+");
}

TEST(UnicodeFree, TakesNullAndKeepsErrno) {
  errno = EXDEV;
  Unicode_Free(nullptr);
  Unicode_Free(Unicode_Duplicate("text"));
  EXPECT_EQ(errno, EXDEV);
}

TEST(UnicodeFormat, Prints) {
  EXPECT_EQ(Text(Unicode_Format("%s has %d", "caf\xC3\xA9", 4)), "caf\xC3\xA9 has 4");
  EXPECT_EQ(Text(Unicode_Format("%s", "")), "");
  const testhost::AllocationFault fault(0);
  EXPECT_EQ(Unicode_Format("%d", 1), nullptr);
}

TEST(Utf16Strdup, CopiesToTheTerminator) {
  static constexpr utf16_t kText[] = {'a', 0x100, 0, 'b', 0};
  utf16_t *copy = Unicode_UTF16Strdup(kText);
  const OwnedString owner(reinterpret_cast<char *>(copy));
  EXPECT_EQ(copy[0], 'a');
  EXPECT_EQ(copy[1], 0x100);
  EXPECT_EQ(copy[2], 0);
  static constexpr utf16_t kEmpty[] = {0};
  utf16_t *empty = Unicode_UTF16Strdup(kEmpty);
  EXPECT_EQ(*empty, 0);
  free(empty);
  EXPECT_EQ(Unicode_UTF16Strdup(nullptr), nullptr);
}

}  // namespace
