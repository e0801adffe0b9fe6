#include <climits>
#include <cstring>
#include <optional>

#include "allocations.h"
#include "unicodeInt.h"
#include "unicodeTestInt.h"

namespace {

using unicodetest::kMalformed;
using unicodetest::kPanic;
using unicodetest::Utf16;

constexpr char kEuro[] = "\xE2\x82\xAC";
constexpr char kSmile[] = "\xF0\x9F\x98\x80";

class UnicodeBytes : public unicodetest::UnicodeHost {};

// The tests of this name run with each engine.
class UnicodeGetBytes : public unicodetest::UnicodeHost {
 protected:
  void SetUp() override {
    UnicodeHost::SetUp();
    if (GetParam()) {
      unicodetest::UseIcu();
    }
  }
};
INSTANTIATE_TEST_SUITE_P(Engine, UnicodeGetBytes, ::testing::Bool(),
                         [](const auto &engine) { return engine.param ? "Icu" : "Iconv"; });

StringEncoding EncodingOf(const char *name) {
  return Unicode_EncodingNameToEnum(name);
}

// The new bytes with the `terminator` NULs that stand behind them, or "(null)".
std::string GetBytes(Unicode str, StringEncoding encoding, ssize_t length = -1) {
  if (str == nullptr) {
    return "(null)";
  }
  size_t size = 0;
  const OwnedString bytes(UnicodeGetAllocBytesInternal(str, encoding, length, &size));
  if (bytes == nullptr) {
    EXPECT_EQ(size, 0U);
    return "(null)";
  }
  const size_t unit = UnicodeUnitSize(encoding);
  EXPECT_EQ(std::string(bytes.get() + size, unit), std::string(unit, '\0')) << encoding;
  return {bytes.get(), size};
}

struct Copied {
  bool whole;
  std::string bytes;
  bool operator==(const Copied &) const = default;
};

void PrintTo(const Copied &copied, std::ostream *out) {
  *out << copied.whole << " " << testing::PrintToString(copied.bytes);
}

// Copies into a buffer of exactly this size, and looks at its terminator.
Copied Copy(const std::string &str, size_t size, StringEncoding encoding) {
  const size_t terminator = encoding == STRING_ENCODING_UTF16_LE ? 2 : 1;
  const OwnedString buffer(static_cast<char *>(malloc(size + 1)));
  memset(buffer.get(), 'x', size + 1);
  size_t length = 99;
  const bool whole = Unicode_CopyBytes(buffer.get(), str.c_str(), size, &length, encoding);
  EXPECT_EQ(buffer.get()[size], 'x');
  EXPECT_LE(length + terminator, size);
  EXPECT_EQ(std::string(buffer.get() + length, terminator), std::string(terminator, '\0'));
  return {whole, {buffer.get(), length}};
}

TEST_P(UnicodeGetBytes, ConvertsToEachKindOfEncoding) {
  const std::string text = std::string("a\xC3\xA9") + kEuro + kSmile;
  EXPECT_EQ(GetBytes(text.c_str(), STRING_ENCODING_UTF8), text);
  EXPECT_EQ(GetBytes(text.c_str(), STRING_ENCODING_DEFAULT), text);
  EXPECT_EQ(GetBytes(text.c_str(), STRING_ENCODING_UTF16_LE), Utf16({'a', 0xE9, 0x20AC, 0xD83D, 0xDE00}));
  EXPECT_EQ(GetBytes("a\xC3\xA9", STRING_ENCODING_UTF16_BE), std::string("\0a\0\xE9", 4));
  EXPECT_EQ(GetBytes(kSmile, STRING_ENCODING_UTF32_LE), std::string("\0\xF6\1\0", 4));
  EXPECT_EQ(GetBytes("plain", STRING_ENCODING_US_ASCII), "plain");
  EXPECT_EQ(GetBytes("caf\xC3\xA9", STRING_ENCODING_ISO_8859_1), "caf\xE9");
  EXPECT_EQ(GetBytes(kEuro, STRING_ENCODING_WINDOWS_1252), "\x80");
  EXPECT_EQ(GetBytes("\xE3\x83\x86", EncodingOf("Shift_JIS")), "\x83\x65");
  for (const StringEncoding encoding :
       {STRING_ENCODING_UTF8, STRING_ENCODING_UTF16_LE, STRING_ENCODING_US_ASCII, STRING_ENCODING_ISO_8859_1,
        STRING_ENCODING_UTF32_BE}) {
    EXPECT_EQ(GetBytes("", encoding), "") << encoding;
  }
}

TEST_P(UnicodeGetBytes, IsNullForWhatCannotBeExpressed) {
  EXPECT_EQ(Unicode_GetAllocBytes(kEuro, STRING_ENCODING_ISO_8859_1), nullptr);
  EXPECT_EQ(Unicode_GetAllocBytes("caf\xC3\xA9", STRING_ENCODING_US_ASCII), nullptr);
  EXPECT_EQ(Unicode_GetAllocBytes(kSmile, EncodingOf("Shift_JIS")), nullptr);
  EXPECT_EQ(Unicode_GetAllocBytes(nullptr, STRING_ENCODING_UTF8), nullptr);
  EXPECT_EQ(Unicode_GetAllocBytesWithLength(nullptr, STRING_ENCODING_UTF16_LE, -1), nullptr);
  EXPECT_EQ(Unicode_GetAllocBytesWithLength(nullptr, STRING_ENCODING_UNKNOWN, 0), nullptr);
}

// No string of the program is so; one that is doesn't end it.
TEST_P(UnicodeGetBytes, IsNullForMalformedText) {
  for (const std::string &bytes : kMalformed) {
    EXPECT_EQ(GetBytes(bytes.c_str(), STRING_ENCODING_UTF16_LE), "(null)") << testing::PrintToString(bytes);
    EXPECT_EQ(GetBytes(("x" + bytes + "y").c_str(), STRING_ENCODING_UTF16_BE), "(null)")
        << testing::PrintToString(bytes);
    EXPECT_EQ(GetBytes(bytes.c_str(), STRING_ENCODING_US_ASCII), "(null)");
  }
}

TEST_P(UnicodeGetBytes, TakesTheLengthThatIsGiven) {
  EXPECT_EQ(GetBytes("caf\xC3\xA9", STRING_ENCODING_UTF8, 3), "caf");
  EXPECT_EQ(GetBytes("caf\xC3\xA9", STRING_ENCODING_US_ASCII, 3), "caf");
  EXPECT_EQ(GetBytes("caf\xC3\xA9", STRING_ENCODING_ISO_8859_1, 5), "caf\xE9");
  EXPECT_EQ(GetBytes("caf\xC3\xA9", STRING_ENCODING_UTF16_LE, 3), Utf16({'c', 'a', 'f'}));
  EXPECT_EQ(GetBytes("caf\xC3\xA9", STRING_ENCODING_UTF8, 0), "");
  // Half a character.
  EXPECT_EQ(GetBytes("caf\xC3\xA9", STRING_ENCODING_UTF16_LE, 4), "(null)");
  const OwnedString bytes(Unicode_GetAllocBytesWithLength("text", STRING_ENCODING_UTF8, 2));
  EXPECT_STREQ(bytes.get(), "te");
}

TEST_P(UnicodeGetBytes, SaysWhetherItCan) {
  EXPECT_TRUE(Unicode_CanGetBytesWithEncoding("caf\xC3\xA9", STRING_ENCODING_ISO_8859_1));
  EXPECT_TRUE(Unicode_CanGetBytesWithEncoding("", STRING_ENCODING_US_ASCII));
  EXPECT_FALSE(Unicode_CanGetBytesWithEncoding(kEuro, STRING_ENCODING_ISO_8859_1));
  EXPECT_FALSE(Unicode_CanGetBytesWithEncoding("caf\xC3\xA9", STRING_ENCODING_US_ASCII));
}

TEST_F(UnicodeBytes, AreNullWithoutMemory) {
  for (const StringEncoding encoding :
       {STRING_ENCODING_UTF8, STRING_ENCODING_US_ASCII, STRING_ENCODING_ISO_8859_1}) {
    const auto convert = [encoding] {
      size_t size = 99;
      const OwnedString bytes(UnicodeGetAllocBytesInternal("text", encoding, -1, &size));
      EXPECT_EQ(size, bytes == nullptr ? 0U : 4U);
      return bytes != nullptr;
    };
    const size_t count = testhost::CountAllocations(convert);
    ASSERT_GT(count, 0U);
    for (size_t i = 0; i < count; i++) {
      const testhost::AllocationFault fault(i);
      EXPECT_FALSE(convert()) << encoding << " " << i;
    }
  }
}

TEST_F(UnicodeBytes, OfUtf16NeedMemory) {
  const auto convert = [] { free(Unicode_GetAllocBytes("text", STRING_ENCODING_UTF16_LE)); };
  const size_t count = testhost::CountAllocations(convert);
  ASSERT_GT(count, 0U);
  for (size_t i = 0; i < count; i++) {
    EXPECT_EXIT(
        {
          const testhost::AllocationFault fault(i);
          convert();
        },
        kPanic, "MEM_ALLOC lib/unicode/unicodeBytes\\.cc:[0-9]+");
  }
}

TEST_P(UnicodeGetBytes, CopiesWhatFits) {
  EXPECT_EQ(Copy("text", 5, STRING_ENCODING_UTF8), (Copied{true, "text"}));
  EXPECT_EQ(Copy("text", 4, STRING_ENCODING_UTF8), (Copied{false, "tex"}));
  EXPECT_EQ(Copy("text", 4, STRING_ENCODING_US_ASCII), (Copied{false, "tex"}));
  EXPECT_EQ(Copy("text", 4, STRING_ENCODING_DEFAULT), (Copied{false, "tex"}));
  EXPECT_EQ(Copy("", 1, STRING_ENCODING_UTF8), (Copied{true, ""}));
  EXPECT_EQ(Copy("text", 1, STRING_ENCODING_UTF8), (Copied{false, ""}));
  EXPECT_EQ(Copy("caf\xC3\xA9", 5, STRING_ENCODING_ISO_8859_1), (Copied{true, "caf\xE9"}));
  EXPECT_EQ(Copy("caf\xC3\xA9", 4, STRING_ENCODING_ISO_8859_1), (Copied{false, "caf"}));
}

TEST_P(UnicodeGetBytes, CopiesWholeCharactersOfUtf8) {
  EXPECT_EQ(Copy("\xC3\xA9", 2, STRING_ENCODING_UTF8), (Copied{false, ""}));
  EXPECT_EQ(Copy("\xC3\xA9", 3, STRING_ENCODING_UTF8), (Copied{true, "\xC3\xA9"}));
  const std::string text = std::string("\xC3\xA9") + kEuro + kSmile;
  const size_t ends[] = {0, 0, 2, 2, 2, 5, 5, 5, 5, 9};
  for (size_t room = 0; room < std::size(ends); room++) {
    EXPECT_EQ(Copy(text, room + 1, STRING_ENCODING_UTF8), (Copied{room == 9, text.substr(0, ends[room])}))
        << room;
  }
}

TEST_P(UnicodeGetBytes, StopsAtACutWithoutALeadByte) {
  EXPECT_EQ(Copy("a\x80\x80\x80\x80", 6, STRING_ENCODING_UTF8), (Copied{true, "a\x80\x80\x80\x80"}));
  char buffer[8];
  EXPECT_EXIT(Unicode_CopyBytes(buffer, "a\x80\x80\x80\x80\x80", 6, nullptr, STRING_ENCODING_UTF8), kPanic,
              "ASSERT lib/string/utf8\\.cc:[0-9]+");
}

TEST_P(UnicodeGetBytes, CopiesWholeCharactersOfUtf16) {
  const std::string whole = Utf16({'a', 0xD83D, 0xDE00, 'b'});
  const std::string text = std::string("a") + kSmile + "b";
  const size_t ends[] = {0, 0, 2, 2, 2, 2, 6, 6, 8};
  for (size_t room = 0; room < std::size(ends); room++) {
    EXPECT_EQ(Copy(text, room + 2, STRING_ENCODING_UTF16_LE),
              (Copied{room == 8, whole.substr(0, ends[room])}))
        << room;
  }
  EXPECT_EQ(Copy("", 2, STRING_ENCODING_UTF16_LE), (Copied{true, ""}));
}

// Wanted: only the two forms above are cut between characters.
TEST_P(UnicodeGetBytes, MayCutOtherEncodingsAnywhere) {
  EXPECT_EQ(Copy("\xE3\x83\x86", 2, EncodingOf("Shift_JIS")), (Copied{false, "\x83"}));
  EXPECT_EQ(Copy("ab", 4, STRING_ENCODING_UTF16_BE), (Copied{false, std::string("\0a\0", 3)}));
}

TEST_P(UnicodeGetBytes, CopiesNothingThatCannotBeExpressed) {
  EXPECT_EQ(Copy("caf\xC3\xA9", 20, STRING_ENCODING_US_ASCII), (Copied{false, ""}));
  EXPECT_EQ(Copy(kEuro, 20, STRING_ENCODING_ISO_8859_1), (Copied{false, ""}));
  EXPECT_EQ(Copy("\xFF", 20, STRING_ENCODING_UTF16_LE), (Copied{false, ""}));
}

TEST_P(UnicodeGetBytes, LeavesABufferWithoutRoomAlone) {
  for (const StringEncoding encoding : {STRING_ENCODING_UTF8, STRING_ENCODING_UTF16_LE,
                                        STRING_ENCODING_US_ASCII, STRING_ENCODING_ISO_8859_1}) {
    for (const std::string text : {"", "text"}) {
      size_t length = 99;
      EXPECT_FALSE(Unicode_CopyBytes(nullptr, text.c_str(), 0, &length, encoding));
      EXPECT_EQ(length, 0U);
    }
  }
  char byte = 'x';
  EXPECT_FALSE(Unicode_CopyBytes(&byte, "", 1, nullptr, STRING_ENCODING_UTF16_LE));
  EXPECT_EQ(byte, 'x');
}

TEST_P(UnicodeGetBytes, CopiesIntoAnyLargeSize) {
  char buffer[16];
  for (const size_t size : {static_cast<size_t>(INT_MAX), static_cast<size_t>(INT_MAX) + 1, SIZE_MAX}) {
    size_t length = 99;
    EXPECT_TRUE(Unicode_CopyBytes(buffer, "text", size, &length, STRING_ENCODING_UTF8));
    EXPECT_EQ(length, 4U);
    EXPECT_TRUE(Unicode_CopyBytes(buffer, "text", size, nullptr, STRING_ENCODING_UTF16_LE));
    EXPECT_TRUE(Unicode_CopyBytes(buffer, "text", size, nullptr, STRING_ENCODING_ISO_8859_1));
    EXPECT_STREQ(buffer, "text");
  }
}

TEST(UnicodeBytesRequired, AddsUpCharacters) {
  const std::string text = std::string("a\xC3\xA9") + kEuro + kSmile;  // 1, 2, 3 and 4 bytes
  EXPECT_EQ(Unicode_BytesRequired(text.c_str(), STRING_ENCODING_UTF8), 11U);
  EXPECT_EQ(Unicode_BytesRequired(text.c_str(), STRING_ENCODING_DEFAULT), 11U);
  EXPECT_EQ(Unicode_BytesRequired("", STRING_ENCODING_UTF8), 1U);
  for (const StringEncoding encoding :
       {STRING_ENCODING_UTF16_LE, STRING_ENCODING_UTF16_BE, STRING_ENCODING_UTF16_XE}) {
    EXPECT_EQ(Unicode_BytesRequired(text.c_str(), encoding), 3U * 2 + 4 + 20) << encoding;
  }
  for (const StringEncoding encoding :
       {STRING_ENCODING_UTF32_LE, STRING_ENCODING_UTF32_BE, STRING_ENCODING_UTF32_XE}) {
    EXPECT_EQ(Unicode_BytesRequired(text.c_str(), encoding), 4U * 4 + 40) << encoding;
  }
  for (const StringEncoding encoding :
       {STRING_ENCODING_US_ASCII, STRING_ENCODING_ISO_8859_1, STRING_ENCODING_WINDOWS_1252}) {
    EXPECT_EQ(Unicode_BytesRequired(text.c_str(), encoding), 4U + 10) << encoding;
  }
  for (const StringEncoding encoding :
       {STRING_ENCODING_ISO_8859_2, STRING_ENCODING_UCS2, STRING_ENCODING_UCS4}) {
    EXPECT_EQ(Unicode_BytesRequired(text.c_str(), encoding), 4U * 7 + 70) << encoding;
  }
}

TEST(UnicodeBytesRequired, KnowsEachLength) {
  for (const std::string text : {"\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xEF\xBF\xBF",
                                 "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
    EXPECT_EQ(Unicode_BytesRequired((text + "b").c_str(), STRING_ENCODING_UTF32_LE), 4U + 4 + 40)
        << testing::PrintToString(text);
  }
}

TEST(UnicodeBytesRequired, StopsAtAnInvalidLeadByte) {
  for (const char *lead : {"\x80", "\xBF", "\xC0", "\xC1", "\xF5", "\xFF"}) {
    const std::string text = std::string("ab") + lead + "cdef";
    EXPECT_EQ(Unicode_BytesRequired(text.c_str(), STRING_ENCODING_UTF16_LE), 2U * 2 + 20);
  }
  // The last character counts though it is cut.
  EXPECT_EQ(Unicode_BytesRequired("ab\xF0\x9F", STRING_ENCODING_UTF16_LE), 2U * 2 + 4 + 20);
}

TEST_P(UnicodeGetBytes, FitsIntoTheBytesRequired) {
  for (const std::string text :
       {"", "text", "\xC3\xA9\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\xE3\x83\x86z"}) {
    for (int value = 0; value <= STRING_ENCODING_WINDOWS_1258; value++) {
      const auto encoding = static_cast<StringEncoding>(value);
      if (!Unicode_CanGetBytesWithEncoding(text.c_str(), encoding)) {
        continue;
      }
      const size_t size = Unicode_BytesRequired(text.c_str(), encoding);
      EXPECT_TRUE(Copy(text, size, encoding).whole) << text << " " << value;
    }
  }
}

}  // namespace
