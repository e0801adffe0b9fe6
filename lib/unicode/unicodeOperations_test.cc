#include <climits>
#include <random>

#include "allocations.h"
#include "unicodeInt.h"
#include "unicodeTestInt.h"

namespace {

using unicodetest::kPanic;
using unicodetest::Text;

UnicodeIndex Find(Unicode str, Unicode toFind) {
  return Unicode_FindSubstrInRange(str, 0, -1, toFind, 0, -1);
}

UnicodeIndex FindLast(Unicode str, Unicode toFind) {
  return Unicode_FindLastSubstrInRange(str, 0, -1, toFind, 0, -1);
}

TEST(PinIndices, FitsRangesToTheString) {
  const struct {
    UnicodeIndex start, length, pinnedStart, pinnedLength;
  } rows[] = {
      {0, -1, 0, 5},        {0, 5, 0, 5},         {1, 3, 1, 3},         {0, 0, 0, 0},         {5, -1, 5, 0},
      {6, 1, 5, 0},         {-1, -1, 5, 0},       {-1, 2, 5, 0},        {2, -7, 2, 3},        {2, 4, 2, 3},
      {INT64_MAX, 1, 5, 0}, {INT64_MIN, 1, 5, 0}, {1, INT64_MAX, 1, 4}, {1, INT64_MIN, 1, 4}, {4, 1, 4, 1},
  };
  for (const auto &row : rows) {
    UnicodeIndex start = row.start;
    UnicodeIndex length = row.length;
    UnicodePinIndices("01234", &start, &length);
    EXPECT_EQ(start, row.pinnedStart) << row.start << " " << row.length;
    EXPECT_EQ(length, row.pinnedLength) << row.start << " " << row.length;
  }
}

TEST(FindSubstr, FindsTheFirstAndTheLast) {
  EXPECT_EQ(Find("abcabc", "bc"), 1);
  EXPECT_EQ(FindLast("abcabc", "bc"), 4);
  EXPECT_EQ(Find("aaaa", "aa"), 0);
  EXPECT_EQ(FindLast("aaaa", "aa"), 2);
  EXPECT_EQ(Find("abc", "abc"), 0);
  EXPECT_EQ(FindLast("abc", "abc"), 0);
  EXPECT_EQ(Find("abc", "abd"), -1);
  EXPECT_EQ(FindLast("abc", "xbc"), -1);
  EXPECT_EQ(Find("abc", "abcd"), -1);
  EXPECT_EQ(FindLast("abc", "abcd"), -1);
  EXPECT_EQ(Find("", "a"), -1);
  EXPECT_EQ(Find("caf\xC3\xA9!", "\xC3\xA9"), 3);
  EXPECT_EQ(FindLast("\xC3\xA9\xC3\xA9", "\xC3\xA9"), 2);
}

TEST(FindSubstr, FindsAnEmptyRangeAtTheStart) {
  EXPECT_EQ(Find("abc", ""), 0);
  EXPECT_EQ(FindLast("abc", ""), 0);
  EXPECT_EQ(Find("", ""), 0);
  EXPECT_EQ(Unicode_FindSubstrInRange("abc", 2, -1, "x", 0, 0), 2);
  EXPECT_EQ(Unicode_FindLastSubstrInRange("abc", 1, 2, "x", 1, -1), 1);
  EXPECT_EQ(Unicode_FindSubstrInRange("abc", 9, -1, "", 0, -1), 3);
}

TEST(FindSubstr, StaysInItsRanges) {
  EXPECT_EQ(Unicode_FindSubstrInRange("abcabc", 2, -1, "abc", 0, -1), 3);
  EXPECT_EQ(Unicode_FindSubstrInRange("abcabc", 1, 4, "abc", 0, -1), -1);
  EXPECT_EQ(Unicode_FindSubstrInRange("abcabc", 1, 5, "abc", 0, -1), 3);
  EXPECT_EQ(Unicode_FindLastSubstrInRange("abcabc", 0, 5, "abc", 0, -1), 0);
  EXPECT_EQ(Unicode_FindLastSubstrInRange("abcabc", 1, 4, "abc", 0, -1), -1);
  EXPECT_EQ(Unicode_FindSubstrInRange("abcabc", 0, -1, "xcax", 1, 2), 2);
  EXPECT_EQ(Unicode_FindLastSubstrInRange("abcabc", 0, -1, "xbc", 1, INT64_MAX), 4);
  EXPECT_EQ(Unicode_FindSubstrInRange("abcabc", -1, -1, "a", 0, -1), -1);
}

TEST(FindSubstr, FindsWhatSlowSearchingFinds) {
  std::mt19937 random(1);  // NOLINT(cert-msc51-cpp): the same texts each time
  for (int i = 0; i < 20000; i++) {
    std::string text(random() % 20, 'a');
    std::string wanted(random() % 5, 'a');
    for (std::string *each : {&text, &wanted}) {
      for (char &c : *each) {
        c = static_cast<char>('a' + random() % 2);
      }
    }
    const size_t first = text.find(wanted);
    const size_t last = wanted.empty() ? 0 : text.rfind(wanted);
    EXPECT_EQ(Find(text.c_str(), wanted.c_str()), static_cast<UnicodeIndex>(first)) << text << " " << wanted;
    EXPECT_EQ(FindLast(text.c_str(), wanted.c_str()), static_cast<UnicodeIndex>(last))
        << text << " " << wanted;
  }
}

TEST(Substr, CopiesARange) {
  EXPECT_EQ(Text(Unicode_Substr("01234", 1, 3)), "123");
  EXPECT_EQ(Text(Unicode_Substr("01234", 1, -1)), "1234");
  EXPECT_EQ(Text(Unicode_Substr("01234", 0, INT64_MAX)), "01234");
  EXPECT_EQ(Text(Unicode_Substr("01234", -1, -1)), "");
  EXPECT_EQ(Text(Unicode_Substr("01234", 5, 1)), "");
  EXPECT_EQ(Text(Unicode_Substr("", 0, -1)), "");
}

TEST(ReplaceRange, PutsARangeInItsPlace) {
  EXPECT_EQ(Text(Unicode_ReplaceRange("01234", 1, 2, "abc", 0, -1)), "0abc34");
  EXPECT_EQ(Text(Unicode_ReplaceRange("01234", 1, 2, "abc", 1, 1)), "0b34");
  EXPECT_EQ(Text(Unicode_ReplaceRange("01234", 0, -1, "abc", 0, -1)), "abc");
  EXPECT_EQ(Text(Unicode_ReplaceRange("01234", 2, 0, "abc", 0, -1)), "01abc234");
  EXPECT_EQ(Text(Unicode_ReplaceRange("01234", 2, 2, "abc", 0, 0)), "014");
  EXPECT_EQ(Text(Unicode_ReplaceRange("01234", 9, 9, "abc", 0, -1)), "01234abc");
  EXPECT_EQ(Text(Unicode_ReplaceRange("01234", -1, -1, "abc", -1, -1)), "01234");
  EXPECT_EQ(Text(Unicode_ReplaceRange("", 0, 0, "", 0, 0)), "");
}

TEST(Join, JoinsUpToTheNull) {
  EXPECT_EQ(Text(Unicode_Join("a", nullptr)), "a");
  EXPECT_EQ(Text(Unicode_Join("a", "", "bc", "\xC3\xA9", nullptr)), "abc\xC3\xA9");
  EXPECT_EQ(Text(Unicode_Join("", nullptr)), "");
  EXPECT_EQ(Unicode_Join(nullptr, "a", nullptr), nullptr);
}

TEST(UnicodeOperations, NeedMemory) {
  const char *const failure =
      "Unrecoverable memory allocation failure at lib/unicode/unicodeOperations\\.cc:[0-9]+";
  const auto withoutMemory = [](auto operation) {
    const testhost::AllocationFault fault(0);
    operation();
  };
  EXPECT_EXIT(withoutMemory([] { Unicode_Substr("text", 0, 1); }), kPanic, failure);
  EXPECT_EXIT(withoutMemory([] { Unicode_ReplaceRange("text", 0, 1, "x", 0, 1); }), kPanic, failure);
  EXPECT_EXIT(withoutMemory([] { Unicode_Join("a", "b", nullptr); }), kPanic, failure);
}

}  // namespace
