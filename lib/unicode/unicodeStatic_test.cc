#include <cstring>

#include "allocations.h"
#include "unicodeInt.h"
#include "unicodeTestInt.h"

namespace {

using unicodetest::kPanic;
using unicodetest::Text;
using unicodetest::Utf16;

std::string Static(const char *literal) {
  return Text(Unicode_AllocStatic(literal, true));
}

std::string Escaped(const std::string &bytes) {
  return Text(Unicode_EscapeBuffer(bytes.data(), static_cast<ssize_t>(bytes.size()), STRING_ENCODING_UTF8));
}

TEST(AllocStatic, CopiesPlainLiterals) {
  static constexpr char kLiteral[] = "a\\u0041 \x7F";
  const OwnedUnicode str(Unicode_AllocStatic(kLiteral, false));
  EXPECT_STREQ(str.get(), kLiteral);
  EXPECT_NE(str.get(), kLiteral);
  EXPECT_EQ(Text(Unicode_AllocStatic("", false)), "");
  const char *const assertion = "ASSERT lib/unicode/unicodeStatic\\.cc:[0-9]+";
  EXPECT_EXIT(Unicode_AllocStatic("caf\xC3\xA9", false), kPanic, assertion);
  EXPECT_EXIT(Unicode_AllocStatic("\x80", false), kPanic, assertion);
}

TEST(AllocStatic, Unescapes) {
  EXPECT_EQ(Static(""), "");
  EXPECT_EQ(Static("plain"), "plain");
  EXPECT_EQ(Static("caf\\u00e9"), "caf\xC3\xA9");
  EXPECT_EQ(Static("\\u20AC\\u20ac1"),
            "\xE2\x82\xAC\xE2\x82\xAC"
            "1");
  EXPECT_EQ(Static("\\U0001F600"), "\xF0\x9F\x98\x80");
  EXPECT_EQ(Static("\\U0010FFFF\\U00010000\\uFFFF"), "\xF4\x8F\xBF\xBF\xF0\x90\x80\x80\xEF\xBF\xBF");
  EXPECT_EQ(Static("\\U00000041x"), "Ax");
  EXPECT_EQ(Static("\\\\ \\n \\\" \\x"), "\\ n \" x");
  EXPECT_EQ(Static("\\\\u0041"), "\\u0041");
  // A pair of surrogates is a character however it is written.
  EXPECT_EQ(Static("\\uD83D\\U0000DE00"), "\xF0\x9F\x98\x80");
}

TEST(AllocStatic, StopsAtWhatItDoesNotKnow) {
  for (const char *literal : {"caf\xC3\xA9", "\x80",        "\\\xC3\xA9", "\\\xE9x",     "\\",
                              "text\\",      "\\u",         "\\u12",      "\\u12g4",     "\\u-123",
                              "\\u 123",     "\\U",         "\\U0001F60", "\\U0001F60x", "\\U00110000",
                              "\\UFFFFFFFF", "\\U04010000", "\\u00\xC3",  "\\u00/0",     "\\u00:0",
                              "\\u00@0",     "\\u00G0",     "\\u00`0",    "\\uD83D",     "\\uDE00\\uD83D",
                              "\\U0000D800x"}) {
    EXPECT_EXIT(Unicode_AllocStatic(literal, true), kPanic,
                "NOT_IMPLEMENTED lib/unicode/unicodeStatic\\.cc:[0-9]+")
        << literal;
  }
}

TEST(AllocStatic, NeedsMemory) {
  const auto alloc = [] { Unicode_Free(Unicode_AllocStatic("\\u20AC", true)); };
  const size_t count = testhost::CountAllocations(alloc);
  ASSERT_GT(count, 1U);
  for (size_t i = 0; i < count; i++) {
    EXPECT_EXIT(
        {
          const testhost::AllocationFault fault(i);
          alloc();
        },
        kPanic,
        i == 0 ? "Unrecoverable memory allocation failure at lib/unicode/unicodeStatic\\.cc:[0-9]+"
               : "MEM_ALLOC lib/unicode/unicodeStatic\\.cc:[0-9]+");
  }
}

TEST(EscapeBuffer, ShowsBytes) {
  EXPECT_EQ(Escaped(""), "");
  EXPECT_EQ(Escaped("plain ~[text]"), "plain ~[text]");
  EXPECT_EQ(Escaped(std::string("\0\x1F \\\x7F\x80\xAF\xFF", 8)), "\\x00\\x1F \\x5C\\x7F\\x80\\xAF\\xFF");
  std::string all;
  size_t escapes = 0;
  for (int byte = 0; byte < 256; byte++) {
    all += static_cast<char>(byte);
    escapes += byte < 0x20 || byte >= 0x7F || byte == '\\' ? 1 : 0;
  }
  EXPECT_EQ(Escaped(all).size(), 256 + 3 * escapes);
}

TEST(EscapeBuffer, MeasuresByTheEncoding) {
  EXPECT_EQ(Text(Unicode_EscapeBuffer("a\xFF\0b", -1, STRING_ENCODING_UTF8)), "a\\xFF");
  EXPECT_EQ(Text(Unicode_EscapeBuffer("a\xFF\0b", -1, STRING_ENCODING_DEFAULT)), "a\\xFF");
  EXPECT_EQ(Text(Unicode_EscapeBuffer(Utf16({'a', 0x1234, 0}).data(), -1, STRING_ENCODING_UTF16_LE)),
            "a\\x004\\x12");
}

TEST(EscapeBuffer, IsNullWithoutMemory) {
  const testhost::AllocationFault fault(0);
  EXPECT_EQ(Unicode_EscapeBuffer("a", 1, STRING_ENCODING_UTF8), nullptr);
}

}  // namespace
