#include "strutil.h"

#include <gmock/gmock-matchers.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "allocations.h"
#include "owned.h"

namespace {

TEST(GetNextToken, WalksTheTokens) {
  unsigned index = 0;
  std::vector<std::string> tokens;
  std::vector<unsigned> ends;
  OwnedString token;
  while (token.reset(StrUtil_GetNextToken(&index, " ,one, two three ,", " ,")), token != nullptr) {
    tokens.emplace_back(token.get());
    ends.push_back(index);
  }
  EXPECT_EQ(tokens, (std::vector<std::string>{"one", "two", "three"}));
  EXPECT_EQ(ends, (std::vector<unsigned>{5, 10, 16}));
}

TEST(GetNextToken, LeavesTheIndexAloneWhenOnlyDelimitersRemain) {
  unsigned index = 3;
  EXPECT_EQ(StrUtil_GetNextToken(&index, "abc   ", " "), nullptr);
  EXPECT_EQ(index, 3U);
  index = 0;
  EXPECT_EQ(StrUtil_GetNextToken(&index, "", " "), nullptr);
  EXPECT_EQ(index, 0U);
}

TEST(GetNextToken, TakesTheRestWhenNoDelimiterFollows) {
  unsigned index = 0;
  const OwnedString token(StrUtil_GetNextToken(&index, "abc", ":"));
  EXPECT_STREQ(token.get(), "abc");
  EXPECT_EQ(index, 3U);
}

TEST(StrToInt, ReadsEveryBase) {
  int32_t value = 0;
  EXPECT_TRUE(StrUtil_StrToInt(&value, "42"));
  EXPECT_EQ(value, 42);
  EXPECT_TRUE(StrUtil_StrToInt(&value, "-0x10"));
  EXPECT_EQ(value, -16);
  EXPECT_TRUE(StrUtil_StrToInt(&value, "010"));
  EXPECT_EQ(value, 8);
}

TEST(StrToInt, RefusesWhatIsLeftOverOrTooLarge) {
  int32_t value = 0;
  EXPECT_TRUE(StrUtil_StrToInt(&value, "2147483647"));
  EXPECT_EQ(value, INT32_MAX);
  EXPECT_TRUE(StrUtil_StrToInt(&value, "-2147483648"));
  EXPECT_EQ(value, INT32_MIN);
  for (const char *text :
       {"2147483648", "-2147483649", "12x", "12 ", "x", " ", "09", "99999999999999999999"}) {
    EXPECT_FALSE(StrUtil_StrToInt(&value, text)) << text;
  }
}

TEST(StrToInt, ReadsAnEmptyTextAsZero) {
  int32_t value = 7;
  EXPECT_TRUE(StrUtil_StrToInt(&value, ""));
  EXPECT_EQ(value, 0);
}

TEST(StrToUint, FitsIn32Bits) {
  uint32_t value = 0;
  EXPECT_TRUE(StrUtil_StrToUint(&value, "4294967295"));
  EXPECT_EQ(value, UINT32_MAX);
  EXPECT_TRUE(StrUtil_StrToUint(&value, "0xff"));
  EXPECT_EQ(value, 255U);
  for (const char *text : {"4294967296", "-1", "1.5", "18446744073709551616"}) {
    EXPECT_FALSE(StrUtil_StrToUint(&value, text)) << text;
  }
}

TEST(StrToInt64, FitsIn64Bits) {
  int64_t value = 0;
  EXPECT_TRUE(StrUtil_StrToInt64(&value, "9223372036854775807"));
  EXPECT_EQ(value, INT64_MAX);
  EXPECT_TRUE(StrUtil_StrToInt64(&value, "-0x8000000000000000"));
  EXPECT_EQ(value, INT64_MIN);
  EXPECT_FALSE(StrUtil_StrToInt64(&value, "9223372036854775808"));
  EXPECT_FALSE(StrUtil_StrToInt64(&value, "1k"));
}

// What an earlier call left in errno says nothing of these.
TEST(StrToInt, ReadsANumberWhateverErrnoWas) {
  int32_t value = 0;
  uint32_t natural = 0;
  int64_t wide = 0;
  uint64_t sectors = 0;
  errno = ERANGE;
  EXPECT_TRUE(StrUtil_StrToInt(&value, "1"));
  errno = ERANGE;
  EXPECT_TRUE(StrUtil_StrToUint(&natural, "2"));
  errno = ERANGE;
  EXPECT_TRUE(StrUtil_StrToInt64(&wide, "3"));
  errno = ERANGE;
  EXPECT_TRUE(StrUtil_CapacityToSectors(&sectors, "4S", 1));
  EXPECT_EQ(std::tuple(value, natural, wide, sectors), std::tuple(1, 2U, 3, 4U));
}

TEST(StartsWith, ComparesTheBeginning) {
  EXPECT_TRUE(StrUtil_StartsWith("abc", "ab"));
  EXPECT_TRUE(StrUtil_StartsWith("abc", ""));
  EXPECT_TRUE(StrUtil_StartsWith("abc", "abc"));
  EXPECT_FALSE(StrUtil_StartsWith("abc", "abcd"));
  EXPECT_FALSE(StrUtil_StartsWith("abc", "AB"));
}

TEST(GetNextIntToken, ParsesTokenByToken) {
  unsigned index = 0;
  int32_t value = 0;
  const char *text = "1, -0x10,,x, 2147483648";
  EXPECT_TRUE(StrUtil_GetNextIntToken(&value, &index, text, ", "));
  EXPECT_EQ(value, 1);
  EXPECT_EQ(index, 1U);
  EXPECT_TRUE(StrUtil_GetNextIntToken(&value, &index, text, ", "));
  EXPECT_EQ(value, -16);
  EXPECT_FALSE(StrUtil_GetNextIntToken(&value, &index, text, ", "));
  EXPECT_EQ(index, 11U);
  EXPECT_FALSE(StrUtil_GetNextIntToken(&value, &index, text, ", "));
  EXPECT_EQ(index, 23U);
  EXPECT_FALSE(StrUtil_GetNextIntToken(&value, &index, text, ", "));
  EXPECT_EQ(index, 23U);
}

TEST(GetNextUintToken, ParsesTokenByToken) {
  unsigned index = 0;
  uint32_t value = 0;
  EXPECT_TRUE(StrUtil_GetNextUintToken(&value, &index, "4294967295.-1", "."));
  EXPECT_EQ(value, UINT32_MAX);
  EXPECT_FALSE(StrUtil_GetNextUintToken(&value, &index, "4294967295.-1", "."));
}

TEST(GetNextInt64Token, ParsesTokenByToken) {
  unsigned index = 0;
  int64_t value = 0;
  EXPECT_TRUE(StrUtil_GetNextInt64Token(&value, &index, "-9223372036854775808 9223372036854775808", " "));
  EXPECT_EQ(value, INT64_MIN);
  EXPECT_FALSE(StrUtil_GetNextInt64Token(&value, &index, "-9223372036854775808 9223372036854775808", " "));
}

TEST(GetNextTokenDeathTest, StopsWhenMemoryIsOut) {
  const auto takeWithoutMemory = [] {
    unsigned index = 0;
    const testhost::AllocationFault fault(0);
    free(StrUtil_GetNextToken(&index, "abc", " "));
  };
  EXPECT_EXIT(takeWithoutMemory(), testing::ExitedWithCode(255),
              testing::HasSubstr("Unrecoverable memory allocation failure at lib/misc/strutil.cc:"));
}

TEST(DecimalStrToUint, ReadsDigitsAndMovesBehindThem) {
  uint32_t value = 7;
  const char *text = "0108.x";
  const char *at = text;
  EXPECT_TRUE(StrUtil_DecimalStrToUint(&value, &at));
  EXPECT_EQ(value, 108U);
  EXPECT_EQ(at, text + 4);
  at = "4294967295";
  EXPECT_TRUE(StrUtil_DecimalStrToUint(&value, &at));
  EXPECT_EQ(value, UINT32_MAX);
  EXPECT_EQ(*at, '\0');
}

TEST(DecimalStrToUint, LeavesEverythingAloneWhenItFails) {
  for (const char *text :
       {"", "x1", " 1", "-1", "+1", "4294967296", "42949672950", "99999999999999999999999"}) {
    uint32_t value = 7;
    const char *at = text;
    EXPECT_FALSE(StrUtil_DecimalStrToUint(&value, &at)) << text;
    EXPECT_EQ(at, text);
    EXPECT_EQ(value, 7U);
  }
}

TEST(CaselessStartsWith, ComparesTheBeginningWithoutCase) {
  EXPECT_TRUE(StrUtil_CaselessStartsWith("aBc", "Ab"));
  EXPECT_TRUE(StrUtil_CaselessStartsWith("abc", ""));
  EXPECT_TRUE(StrUtil_CaselessStartsWith("", ""));
  EXPECT_FALSE(StrUtil_CaselessStartsWith("ab", "abc"));
  EXPECT_FALSE(StrUtil_CaselessStartsWith("abc", "bc"));
}

std::optional<uint64_t> Sectors(const char *text, unsigned defaultMultiplier = 1) {
  uint64_t sectors = 4711;
  if (StrUtil_CapacityToSectors(&sectors, text, defaultMultiplier)) {
    return sectors;
  }
  EXPECT_EQ(sectors, 4711U) << text;
  return std::nullopt;
}

TEST(CapacityToSectors, KnowsEachSuffix) {
  EXPECT_EQ(Sectors("1024B"), 2U);
  EXPECT_EQ(Sectors("3S"), 3U);
  EXPECT_EQ(Sectors("3K"), 6U);
  EXPECT_EQ(Sectors("3M"), 3U << 11);
  EXPECT_EQ(Sectors("3G"), 3U << 21);
  EXPECT_EQ(Sectors("3T"), uint64_t{3} << 31);
  for (const char *text : {"2k", "2kb", "2KB", "2kB", "2Kb", "2 K", "2 \t KB", "2\tk"}) {
    EXPECT_EQ(Sectors(text), 4U) << text;
  }
  EXPECT_EQ(Sectors("1024b"), 2U);
  EXPECT_EQ(Sectors("3s"), 3U);
  EXPECT_EQ(Sectors("1mb"), 2048U);
  EXPECT_EQ(Sectors("1gB"), 1U << 21);
  EXPECT_EQ(Sectors("1Tb"), uint64_t{1} << 31);
}

TEST(CapacityToSectors, TakesTheDefaultWithoutASuffix) {
  EXPECT_EQ(Sectors("4", 1024), 8U);
  EXPECT_EQ(Sectors("4 \t", 1024), 8U);
  EXPECT_EQ(Sectors("4", 0), 0U);
  EXPECT_EQ(Sectors("4", UINT32_MAX), 33554432U);
}

TEST(CapacityToSectors, RoundsToTheNearestSector) {
  EXPECT_EQ(Sectors("0"), 0U);
  EXPECT_EQ(Sectors("255"), 0U);
  EXPECT_EQ(Sectors("256"), 1U);
  EXPECT_EQ(Sectors("767"), 1U);
  EXPECT_EQ(Sectors("768"), 2U);
  EXPECT_EQ(Sectors("1.5K"), 3U);
  EXPECT_EQ(Sectors("0.25 K"), 1U);
}

TEST(CapacityToSectors, RefusesAnyOtherSuffix) {
  for (const char *text : {"1X", "1BB", "1SB", "1KK", "1KBB", "1K ", "1 K B", "1P", "1K\n", "1,5K", "1\nK"}) {
    EXPECT_EQ(Sectors(text), std::nullopt) << text;
  }
}

TEST(CapacityToSectors, RefusesWhatIsNoNumber) {
  for (const char *text : {"", " ", "K", "KB", "x1", "-1", "-0.1K", "inf", "nan", "infinity K", "."}) {
    EXPECT_EQ(Sectors(text), std::nullopt) << text;
  }
}

TEST(CapacityToSectors, RefusesWhatIsOutOfRange) {
  EXPECT_EQ(Sectors("18446744073709551615B"), uint64_t{1} << 55);
  EXPECT_EQ(Sectors("9223372036854775807S"), uint64_t{INT64_MAX});
  EXPECT_EQ(Sectors("9223372036854775809S"), (uint64_t{1} << 63) + 1);
  EXPECT_EQ(Sectors("18446744073709551615S"), UINT64_MAX);
  EXPECT_EQ(Sectors("18446744073709551616S"), std::nullopt);
  EXPECT_EQ(Sectors("8589934592T"), std::nullopt);
  EXPECT_EQ(Sectors("8589934591T"), uint64_t{8589934591} << 31);
  EXPECT_EQ(Sectors("1e5000"), std::nullopt);
  EXPECT_EQ(Sectors("1e-5000"), std::nullopt);
}

std::string SizeText(uint64_t size) {
  return OwnedString(StrUtil_FormatSizeInBytes(size)).get();
}

TEST(FormatSizeInBytes, ChoosesTheLargestUnit) {
  EXPECT_EQ(SizeText(0), "0 bytes");
  EXPECT_EQ(SizeText(1), "1 byte");
  EXPECT_EQ(SizeText(2), "2 bytes");
  EXPECT_EQ(SizeText(1023), "1023 bytes");
  EXPECT_EQ(SizeText(1024), "1 KB");
  EXPECT_EQ(SizeText(1536), "1.5 KB");
  EXPECT_EQ(SizeText(uint64_t{1} << 20), "1 MB");
  EXPECT_EQ(SizeText(uint64_t{5} << 29), "2.5 GB");
  EXPECT_EQ(SizeText(uint64_t{1} << 30), "1 GB");
  EXPECT_EQ(SizeText(uint64_t{1} << 40), "1 TB");
  EXPECT_EQ(SizeText(UINT64_MAX), "16777216 TB");
}

TEST(FormatSizeInBytes, DropsTheDecimalWithinAHundredthOfAnInteger) {
  // Of a KB, 10 bytes are less than a hundredth and 11 more.
  EXPECT_EQ(SizeText(2048 + 10), "2 KB");
  EXPECT_EQ(SizeText(2048 + 11), "2.0 KB");
  EXPECT_EQ(SizeText(2048 - 10), "2 KB");
  EXPECT_EQ(SizeText(2048 - 11), "2.0 KB");
  // It stays in its unit.
  EXPECT_EQ(SizeText((1 << 20) - 1), "1024 KB");
  EXPECT_EQ(SizeText((1 << 20) - 20), "1024.0 KB");
}

class Buffer : public DynBuf {
 public:
  Buffer() { DynBuf_Init(this); }
  ~Buffer() { DynBuf_Destroy(this); }
  Buffer(const Buffer &) = delete;
  Buffer &operator=(const Buffer &) = delete;
  std::string Text() const { return {data, size}; }
};

TEST(DynBufPrintf, PrintsToTheEndWithoutANul) {
  Buffer buf;
  EXPECT_TRUE(StrUtil_DynBufPrintf(&buf, "%s-%d", "abc", 12));
  EXPECT_EQ(buf.Text(), "abc-12");
  StrUtil_SafeDynBufPrintf(&buf, "%c%s", 'x', "");
  EXPECT_EQ(buf.Text(), "abc-12x");
  EXPECT_TRUE(StrUtil_DynBufPrintf(&buf, "%s", ""));
  EXPECT_EQ(buf.Text(), "abc-12x");
}

TEST(DynBufPrintf, PrintsTextsOfEverySizeAroundTheRoom) {
  for (size_t room = 0; room <= 3; room++) {
    for (size_t length = 1020; length <= 1027; length++) {
      Buffer buf;
      StrUtil_SafeDynBufPrintf(&buf, "%s", std::string(room, 'a').c_str());
      const std::string text(length, 'b');
      EXPECT_TRUE(StrUtil_DynBufPrintf(&buf, "%s", text.c_str()));
      EXPECT_EQ(buf.Text(), std::string(room, 'a') + text);
    }
  }
}

// Bytes that are no UTF-8 are the caller's own matter, wherever the room ends.
TEST(DynBufPrintf, PrintsBytesThatAreNoUtf8) {
  Buffer buf;
  std::string expected;
  for (int i = 0; i < 3000; i++) {
    EXPECT_TRUE(StrUtil_DynBufPrintf(&buf, "%s", "\x80\x80\x80\x80\xff"));
    expected += "\x80\x80\x80\x80\xff";
  }
  EXPECT_EQ(buf.Text(), expected);
}

TEST(DynBufPrintf, FailsForEachAllocationThatFailsAndLeavesTheBufferAlone) {
  const std::string text(5000, 'x');
  const auto print = [&] {
    Buffer buf;
    StrUtil_SafeDynBufPrintf(&buf, "%s", "abc");
    return StrUtil_DynBufPrintf(&buf, "%s", text.c_str());
  };
  const size_t first = testhost::CountAllocations([] {
    Buffer buf;
    StrUtil_SafeDynBufPrintf(&buf, "%s", "abc");
  });
  const size_t count = testhost::CountAllocations(print);
  EXPECT_GT(count, first);
  for (size_t i = first; i < count; i++) {
    const testhost::AllocationFault fault(i);
    EXPECT_FALSE(print()) << i;
    EXPECT_TRUE(fault.Happened());
  }
}

TEST(DynBufPrintfDeathTest, TheSafeFormStopsWhenMemoryIsOut) {
  const auto printWithoutMemory = [] {
    Buffer buf;
    const testhost::AllocationFault fault(0);
    StrUtil_SafeDynBufPrintf(&buf, "%s", "abc");
  };
  EXPECT_EXIT(printWithoutMemory(), testing::ExitedWithCode(255),
              testing::HasSubstr("MEM_ALLOC lib/misc/strutil.cc:"));
}

TEST(EndsWith, ComparesTheEnd) {
  EXPECT_TRUE(StrUtil_EndsWith("abc", "bc"));
  EXPECT_TRUE(StrUtil_EndsWith("abc", ""));
  EXPECT_TRUE(StrUtil_EndsWith("abc", "abc"));
  EXPECT_FALSE(StrUtil_EndsWith("abc", "xabc"));
  EXPECT_FALSE(StrUtil_EndsWith("abc", "b"));
}

}  // namespace
