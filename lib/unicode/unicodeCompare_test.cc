#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <random>

#include "allocations.h"
#include "unicodeCaseFoldInt.h"
#include "unicodeInt.h"
#include "unicodeTestInt.h"

namespace {

using unicodetest::kMalformed;

// The tests run with each engine.
class CompareRange : public unicodetest::UnicodeHost {
 protected:
  void SetUp() override {
    UnicodeHost::SetUp();
    if (GetParam()) {
      unicodetest::UseIcu();
    }
  }
};
INSTANTIATE_TEST_SUITE_P(Engine, CompareRange, ::testing::Bool(),
                         [](const auto &engine) { return engine.param ? "Icu" : "Iconv"; });

int Compare(const std::string &a, const std::string &b, bool ignoreCase = false) {
  return Unicode_CompareRange(a.c_str(), 0, -1, b.c_str(), 0, -1, ignoreCase);
}

TEST_P(CompareRange, ComparesWholeStrings) {
  EXPECT_EQ(Compare("", ""), 0);
  EXPECT_EQ(Compare("abc", "abc"), 0);
  EXPECT_EQ(Compare("abc", "abd"), -1);
  EXPECT_EQ(Compare("abd", "abc"), 1);
  EXPECT_EQ(Compare("ab", "abc"), -1);
  EXPECT_EQ(Compare("abc", "ab"), 1);
  EXPECT_EQ(Compare("", "a"), -1);
  EXPECT_EQ(Compare("A", "a"), -1);
  EXPECT_EQ(Compare("z", "\xC3\xA9"), -1);
}

// UTF-16 units would give another order.
TEST_P(CompareRange, OrdersByCodePoint) {
  const std::string wideTilde = "\xEF\xBD\x9E";    // U+FF5E
  const std::string linearB = "\xF0\x90\x80\x80";  // U+10000
  const std::string last = "\xF4\x8F\xBF\xBF";     // U+10FFFF
  EXPECT_EQ(Compare(wideTilde, linearB), -1);
  EXPECT_EQ(Compare(linearB, wideTilde), 1);
  EXPECT_EQ(Compare(wideTilde, linearB, true), -1);
  EXPECT_EQ(Compare("x" + wideTilde, "x" + last), -1);
  EXPECT_EQ(Compare(last, "\xEF\xBF\xBF"), 1);
  EXPECT_EQ(Compare(linearB, last), -1);
  EXPECT_EQ(Compare("\xF0\x90\x80\x80", "\xF0\x90\x80\x81"),
            -1);  // their low surrogates differ
  EXPECT_EQ(Compare("\xF0\x90\x80\x81", "\xF0\x90\x80\x80"), 1);
  EXPECT_EQ(Compare("\xED\x9F\xBF", linearB), -1);  // U+D7FF
}

TEST_P(CompareRange, OrdersAsTheCodePointsDo) {
  const char32_t points[] = {0,      'A',    'z',    0x80,    0x7FF,   0x800,   0xD7FF,
                             0xE000, 0xFF5E, 0xFFFF, 0x10000, 0x1F600, 0x10FFFF};
  const auto encode = [](char32_t point) {
    std::string text = "x";
    if (point < 0x80) {
      text += static_cast<char>(point == 0 ? 1 : point);
    } else if (point < 0x800) {
      text += {static_cast<char>(0xC0 | point >> 6), static_cast<char>(0x80 | (point & 0x3F))};
    } else if (point < 0x10000) {
      text += {static_cast<char>(0xE0 | point >> 12), static_cast<char>(0x80 | (point >> 6 & 0x3F)),
               static_cast<char>(0x80 | (point & 0x3F))};
    } else {
      text += {static_cast<char>(0xF0 | point >> 18), static_cast<char>(0x80 | (point >> 12 & 0x3F)),
               static_cast<char>(0x80 | (point >> 6 & 0x3F)), static_cast<char>(0x80 | (point & 0x3F))};
    }
    return text + "y";
  };
  for (const char32_t a : points) {
    for (const char32_t b : points) {
      EXPECT_EQ(Compare(encode(a), encode(b)), a < b   ? -1
                                               : a > b ? 1
                                                       : 0)
          << std::hex << static_cast<uint32_t>(a) << " " << static_cast<uint32_t>(b);
    }
  }
}

TEST_P(CompareRange, FoldsCase) {
  EXPECT_EQ(Compare("STRASSE", "strasse", true), 0);
  EXPECT_EQ(Compare("\xC3\x89", "\xC3\xA9", true), 0);
  EXPECT_EQ(Compare("\xCE\xA3", "\xCF\x82", true),
            0);                                                 // capital and final sigma
  EXPECT_EQ(Compare("\xE2\x84\xA6", "\xCF\x89", true), 0);      // ohm and omega
  EXPECT_EQ(Compare("\xEF\xBC\xA1", "\xEF\xBD\x81", true), 0);  // wide A
  EXPECT_EQ(Compare("_", "a", true), -1);
  EXPECT_EQ(Compare("_", "A", true), -1);
  EXPECT_EQ(Compare("B", "a", true), 1);
  EXPECT_EQ(Compare("\xC3\x9F", "ss", true), 1);
  EXPECT_EQ(Compare("\xE1\xBA\x9E", "\xC3\x9F", true),
            1);                                  // capital sharp s stays
  EXPECT_EQ(Compare("\xC4\xB0", "i", true), 1);  // I with a dot stays
  EXPECT_EQ(Compare("\xC4\xB1", "I", true), 1);  // i without one stays
  // Above the Basic Multilingual Plane nothing is folded.
  EXPECT_EQ(Compare("\xF0\x90\x90\x80", "\xF0\x90\x90\xA8", true), -1);
}

TEST_P(CompareRange, ComparesRanges) {
  EXPECT_EQ(Unicode_CompareRange("xabcx", 1, 3, "abc", 0, -1, false), 0);
  EXPECT_EQ(Unicode_CompareRange("abcd", 0, 3, "abce", 0, 3, false), 0);
  EXPECT_EQ(Unicode_CompareRange("abc", 1, INT64_MAX, "zbc", 1, -1, false), 0);
  EXPECT_EQ(Unicode_CompareRange("abc", -1, -1, "", 0, 0, false), 0);
  EXPECT_EQ(Unicode_CompareRange("abc", 3, 1, "a", 0, 1, false), -1);
  EXPECT_EQ(Unicode_CompareRange("abc", 0, 1, "a", 5, 1, false), 1);
}

TEST_P(CompareRange, IsLessWithMalformedText) {
  for (const std::string &bytes : kMalformed) {
    EXPECT_EQ(Compare("b" + bytes, "a"), -1) << testing::PrintToString(bytes);
    EXPECT_EQ(Compare("b", "a" + bytes), -1) << testing::PrintToString(bytes);
    EXPECT_EQ(Compare(bytes, bytes), -1) << testing::PrintToString(bytes);
    EXPECT_EQ(Compare(bytes + "x", bytes + "x", true), -1) << testing::PrintToString(bytes);
  }
  // Half a character of good text.
  EXPECT_EQ(Unicode_CompareRange("\xC3\xA9", 0, 1, "", 0, -1, false), -1);
  EXPECT_EQ(Unicode_CompareRange("\xC3\xA9", 1, 1, "", 0, -1, false), -1);
}

// Both texts converted as a whole, and their code points compared; -1 when one
// can't be.
int CompareWhole(const std::string &a, const std::string &b, bool ignoreCase) {
  std::u32string points[2];
  for (int i = 0; i < 2; i++) {
    const std::string &text = i == 0 ? a : b;
    char *bytes = nullptr;
    size_t size = 0;
    if (!CodeSet_GenericToGeneric("UTF-8", text.data(), text.size(), "UTF-32LE", CODESET_STOP, &bytes,
                                  &size) ||
        !Unicode_IsBufferValid(text.data(), static_cast<ssize_t>(text.size()), STRING_ENCODING_UTF8)) {
      free(bytes);
      return -1;
    }
    points[i].assign(reinterpret_cast<char32_t *>(bytes), size / sizeof(char32_t));
    free(bytes);
    for (char32_t &point : points[i]) {
      if (ignoreCase && point <= 0xFFFF) {
        point = UnicodeSimpleCaseFold(static_cast<utf16_t>(point));
      }
    }
  }
  return points[0] < points[1] ? -1 : points[0] > points[1] ? 1 : 0;
}

TEST_P(CompareRange, ComparesAsWholeConversionsDo) {
  std::mt19937 random(1);  // NOLINT(cert-msc51-cpp): the same texts each time
  const std::vector<std::string> pieces = {"a",
                                           "b",
                                           "A",
                                           "\xC3\x89",
                                           "\xC3\xA9",
                                           "\xC3\xAA",
                                           "\xEF\xBD\x9E",
                                           "\xE2\x82\xAC",
                                           "\xF0\x90\x80\x80",
                                           "\xF0\x90\x80\x81",
                                           "\xEF\xBF\xBF",
                                           "12345678"};
  int results[3] = {};
  for (int i = 0; i < 20000; i++) {
    std::string common;
    std::string texts[2];
    for (std::string *each : {&common, &texts[0], &texts[1]}) {
      for (size_t count = random() % 6; count > 0; count--) {
        *each += pieces[random() % pieces.size()];
      }
    }
    for (std::string &text : texts) {
      text.insert(0, common);
      if (random() % 10 == 0) {
        text.insert(random() % (text.size() + 1), kMalformed[random() % kMalformed.size()]);
      }
    }
    const bool ignoreCase = i % 2 == 1;
    const int expected = CompareWhole(texts[0], texts[1], ignoreCase);
    EXPECT_EQ(Compare(texts[0], texts[1], ignoreCase), expected)
        << testing::PrintToString(texts[0]) << " " << testing::PrintToString(texts[1]) << " " << ignoreCase;
    results[expected + 1]++;
  }
  EXPECT_GT(*std::min_element(std::begin(results), std::end(results)), 500);
}

// Twice as much text as CodeSet_Validate takes, of one block over and over, whose characters don't end where
// that is cut.
class CompareLongRange : public ::testing::Test {
 protected:
  static constexpr size_t kBlock = size_t{3} << 20;
  static constexpr size_t kHalf = size_t{INT_MAX} / kBlock * kBlock + kBlock;
  static constexpr size_t kSize = 2 * kHalf;
  static_assert(INT_MAX % 3 != 0);

  void SetUp() override {
    std::string block;
    while (block.size() < kBlock) {
      block += "\xE2\x82\xAC";
    }
    const int file = memfd_create("block", 0);
    ASSERT_EQ(write(file, block.data(), kBlock), static_cast<ssize_t>(kBlock));
    void *room = mmap(nullptr, kSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(room, MAP_FAILED);
    text = static_cast<char *>(room);
    for (size_t at = 0; at < kSize; at += kBlock) {
      ASSERT_NE(mmap(text + at, kBlock, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_FIXED, file, 0),
                MAP_FAILED);
    }
    close(file);
    text[kSize - 1] = '\0';
  }
  void TearDown() override { munmap(text, kSize); }

  char *text = nullptr;
};

TEST_F(CompareLongRange, DiffersBehindTwoGibibytes) {
  text[kHalf + 2]--;
  EXPECT_EQ(Unicode_CompareRange(text, 0, kHalf + 3, text, 3, kHalf, false), 1);
}

TEST_F(CompareLongRange, HasTwoGibibytesBehindTheDifference) {
  const Unicode rest = text + kHalf - kBlock;
  EXPECT_EQ(Unicode_CompareRange(rest, 0, kHalf + kBlock - 3, "a", 0, -1, false), 1);
  // Half a character is left of the last one.
  EXPECT_EQ(Unicode_CompareRange(rest, 0, -1, "a", 0, -1, false), -1);
}

TEST_P(CompareRange, IsLessWithoutMemory) {
  const auto compare = [] { return Compare("b", "a"); };
  ASSERT_EQ(compare(), 1);
  const size_t count = testhost::CountAllocations(compare);
  ASSERT_GT(count, 0U);
  for (size_t i = 0; i < count; i++) {
    const testhost::AllocationFault fault(i);
    EXPECT_EQ(compare(), -1) << i;
  }
}

}  // namespace
