#include <cctype>
#include <clocale>
#include <cstring>
#include <random>

#include "allocations.h"
#include "unicodeInt.h"
#include "unicodeTableInt.h"
#include "unicodeTestInt.h"

namespace {

using unicodetest::EnterHost;
using unicodetest::kPanic;
using unicodetest::UseIcu;

class EncodingNames : public unicodetest::UnicodeHost {};

StringEncoding EncodingOf(const std::string &name) {
  return Unicode_EncodingNameToEnum(name.c_str());
}

std::string Normalized(const std::string &name) {
  std::string normalized;
  for (const char c : name) {
    if (isascii(c) != 0 && isalnum(static_cast<unsigned char>(c)) != 0) {
      normalized += static_cast<char>(tolower(static_cast<unsigned char>(c)));
    }
  }
  return normalized;
}

// The walk that the index stands for: every name of every row by strcmp, and then normalized.
int Walk(const std::string &name) {
  for (const bool normalize : {false, true}) {
    for (size_t row = 0; row < kUnicodeXRefRows; row++) {
      for (const char *const *each = xRef[row].names; *each != nullptr; each++) {
        if (normalize ? Normalized(*each) == Normalized(name) : *each == name) {
          return static_cast<int>(row);
        }
      }
    }
  }
  return -1;
}

bool IsCodePageName(const std::string &name) {
  return (name.starts_with("windows-") || name.starts_with("Windows-")) &&
         name.find_first_not_of("0123456789", strlen("windows-")) == std::string::npos;
}

TEST_F(EncodingNames, TakeAnySpelling) {
  for (const char *name : {"utf_8", "UTF8", "Utf 8", "UTF-8", "utf-8", "u.t.f:8", "cp1208"}) {
    EXPECT_EQ(EncodingOf(name), STRING_ENCODING_UTF8) << name;
  }
  for (const char *name : {"iso_8859_1", "ISO8859-1", "latin1", "ISO_8859-1:1987", "819"}) {
    EXPECT_EQ(EncodingOf(name), STRING_ENCODING_ISO_8859_1) << name;
  }
}

TEST_F(EncodingNames, TakeCodePages) {
  EXPECT_EQ(EncodingOf("Windows-1252"), 36);
  EXPECT_EQ(EncodingOf("windows-1252"), 36);
  EXPECT_EQ(EncodingOf("cp1252"), 36);
  // By its letters only.
  EXPECT_EQ(EncodingOf("WINDOWS-1252"), 36);
  EXPECT_EQ(EncodingOf("WINDOWS_936"), EncodingOf("GBK"));
  EXPECT_EQ(EncodingOf("windows-28591"), STRING_ENCODING_ISO_8859_1);
  EXPECT_EQ(EncodingOf("windows-0028591"), STRING_ENCODING_ISO_8859_1);
  EXPECT_EQ(EncodingOf("windows-65001"), STRING_ENCODING_UTF8);
  EXPECT_EQ(EncodingOf("windows-708"), STRING_ENCODING_ISO_8859_6);
  // Wanted, though Thai is what it names elsewhere.
  EXPECT_EQ(EncodingOf("windows-874"), EncodingOf("ISO-8859-15"));
  EXPECT_EQ(UnicodeIANALookup("windows-874"), Walk("ISO-8859-15") + 1);
  EXPECT_EQ(UnicodeIANALookup("windows-20932"), Walk("EUC-JP"));
  EXPECT_EQ(UnicodeIANALookup("windows-51932"), Walk("EUC-JP") + 1);
}

TEST_F(EncodingNames, AreUnknownWithTheirCodePage) {
  // The last two would be one without an overflow, and the mark of a row without a code page.
  for (const char *name :
       {"windows-99999", "windows-", "Windows-", "windows-0", "windows-1252x", "windows--1",
        "windows-4294968548", "windows-18446744073709552868", "windows-4294967295"}) {
    EXPECT_EQ(EncodingOf(name), STRING_ENCODING_UNKNOWN) << name;
    EXPECT_TRUE(
        Logged(std::string("UnicodeIANALookup: Did not find an IANA match for encoding \"") + name + "\"\n"))
        << name;
  }
}

TEST_F(EncodingNames, AreUnknown) {
  // The last two are numbers of code pages, but not behind what tells them.
  for (const char *name : {"", "-", "_.:", "UTF-9", "UTF", "UTF-88", "\xC3\xBCTF-8 \xFF!", "8",
                           "WINDOWS-28591", "windows_28591"}) {
    EXPECT_EQ(UnicodeIANALookup(name), -1) << name;
  }
  EXPECT_EQ(EncodingOf(std::string(100000, 'x')), STRING_ENCODING_UNKNOWN);
  EXPECT_EQ(EncodingOf("utf" + std::string(100000, '-') + "8"), STRING_ENCODING_UTF8);
}

TEST_F(EncodingNames, MeanTheSameInAnyLocale) {
  std::string output;
  ASSERT_EQ(testhost::Run("localedef -i de_DE -f ISO-8859-1 /t/xx_XX", &output), 0) << output;
  setenv("LOCPATH", "/t", 1);
  ASSERT_NE(setlocale(LC_ALL, "xx_XX"), nullptr);
  ASSERT_NE(isalpha(0xE4), 0);
  EXPECT_EQ(EncodingOf("UTF\xE4-8"), STRING_ENCODING_UTF8);
}

TEST_F(EncodingNames, AreFoundAsByTheWalk) {
  std::mt19937 random(1);  // NOLINT(cert-msc51-cpp): the same names each time
  static constexpr char kAlphabet[] = "-_. :aB8iSo1";
  for (const UnicodeXRef &row : xRef) {
    for (const char *const *each = row.names; *each != nullptr; each++) {
      std::string name = *each;
      for (int change = 0; change < 6; change++) {
        if (!IsCodePageName(name)) {
          EXPECT_EQ(UnicodeIANALookup(name.c_str()), Walk(name)) << name;
        }
        const size_t at = random() % (name.size() + 1);
        name.insert(at, 1, kAlphabet[random() % (sizeof kAlphabet - 1)]);
        if (change % 2 == 1) {
          name.erase(random() % name.size(), 1);
        }
      }
    }
  }
}

TEST_F(EncodingNames, AreRememberedWithoutRegardToCase) {
  // Exact in its own row, but alike to "iso-ir-91", which comes later.
  const int first = UnicodeIANALookup("iso-ir-9-1");
  EXPECT_EQ(first, Walk("iso-ir-9-1"));
  EXPECT_EQ(UnicodeIANALookup("iso-ir-91"), Walk("iso-ir-91"));
  EXPECT_NE(first, UnicodeIANALookup("iso-ir-91"));
  // In capitals it is only alike to both, and would be the first of them.
  ASSERT_EQ(Walk("ISO-IR-91"), first);
  EXPECT_EQ(UnicodeIANALookup("ISO-IR-91"), Walk("iso-ir-91"));
  const auto allocations = testhost::CountAllocations([] { UnicodeIANALookup("ISO-IR-91"); });
  EXPECT_EQ(allocations, 0U);
  EXPECT_GT(testhost::CountAllocations([] { UnicodeIANALookup("iso_ir_91"); }), 0U);
  EXPECT_EQ(testhost::CountAllocations([] { UnicodeIANALookup("iso_ir_91"); }), 0U);
}

TEST_F(EncodingNames, OfUnsupportedSetsAreUnknown) {
  UseIcu();
  for (const char *name : {"IBM037", "EUC-JP", "windows-51932", "GB18030", "KOI8-R", "Windows-20269"}) {
    EXPECT_EQ(EncodingOf(name), STRING_ENCODING_UNKNOWN) << name;
  }
  // Known to ICU, so that the switch shows.
  EXPECT_TRUE(CodeSet_IsEncodingSupported("KOI8-R"));
}

TEST(EncodingNamesInAnEncoding, OfTheHostSwitchIcuOff) {
  EnterHost("KOI8-R");
  UseIcu();
  ASSERT_TRUE(CodeSet_IsEncodingSupported("IBM037"));
  // Another unsupported one changes nothing.
  EXPECT_EQ(EncodingOf("IBM037"), STRING_ENCODING_UNKNOWN);
  ASSERT_TRUE(CodeSet_IsEncodingSupported("IBM037"));

  const StringEncoding encoding = EncodingOf("koi8_r");
  EXPECT_STREQ(Unicode_EncodingEnumToName(encoding), "KOI8-R");
  EXPECT_FALSE(CodeSet_IsEncodingSupported("IBM037"));
  EXPECT_EQ(Unicode_GetCurrentEncoding(), encoding);
  // And iconv converts it.
  EXPECT_EQ(unicodetest::Text(Unicode_Alloc("\xC1", STRING_ENCODING_DEFAULT)), "\xD0\xB0");
}

// Asking again would switch ICU off again.
TEST(EncodingNamesInAnEncoding, OfTheCurrentEncodingAreAskedForOnce) {
  EnterHost("KOI8-R");
  EXPECT_STREQ(Unicode_EncodingEnumToName(STRING_ENCODING_DEFAULT), "KOI8-R");
  UseIcu();
  EXPECT_STREQ(Unicode_EncodingEnumToName(STRING_ENCODING_DEFAULT), "KOI8-R");
  EXPECT_TRUE(CodeSet_IsEncodingSupported("IBM037"));
}

TEST(EncodingNamesInAnEncoding, OfTheHostMeanOneRow) {
  EnterHost("EUC-JP");
  EXPECT_NE(EncodingOf("EUC-JP"), STRING_ENCODING_UNKNOWN);
  EXPECT_EQ(EncodingOf("windows-51932"), STRING_ENCODING_UNKNOWN);
}

TEST_F(EncodingNames, GoBothWays) {
  for (int value = 0; value < STRING_ENCODING_COUNT; value++) {
    const auto encoding = static_cast<StringEncoding>(value);
    const char *name = Unicode_EncodingEnumToName(encoding);
    const int row = UnicodeIANALookup(name);
    ASSERT_GE(row, 0) << name;
    EXPECT_EQ(xRef[row].encoding, encoding) << name;
    EXPECT_EQ(EncodingOf(name), xRef[row].isSupported ? encoding : STRING_ENCODING_UNKNOWN) << name;
  }
}

TEST_F(EncodingNames, ArePrimary) {
  EXPECT_STREQ(Unicode_EncodingEnumToName(STRING_ENCODING_US_ASCII), "ASCII");
  EXPECT_STREQ(Unicode_EncodingEnumToName(STRING_ENCODING_ISO_8859_6), "ISO-8859-6");
  EXPECT_STREQ(Unicode_EncodingEnumToName(STRING_ENCODING_UTF32_XE), "UTF-32");
  EXPECT_STREQ(Unicode_EncodingEnumToName(STRING_ENCODING_DEFAULT), "UTF-8");
}

TEST(EncodingNamesInAnEncoding, OfTheCurrentEncodingFollowTheHost) {
  EnterHost("ISO-8859-15,UTF-8");
  EXPECT_STREQ(Unicode_EncodingEnumToName(STRING_ENCODING_DEFAULT), "ISO-8859-15");
  EXPECT_EQ(Unicode_GetCurrentEncoding(), EncodingOf("Latin-9"));
}

TEST_F(EncodingNames, AreMissingForOtherValues) {
  for (const int value : {-2, 316, 1000000, INT32_MAX, INT32_MIN}) {
    EXPECT_EXIT(Unicode_EncodingEnumToName(static_cast<StringEncoding>(value)), kPanic,
                "NOT_REACHED lib/unicode/unicodeNames\\.cc:[0-9]+");
    EXPECT_TRUE(Logged("Unicode_EncodingEnumToName: Unknown encoding " + std::to_string(value) + ".\n"));
  }
}

TEST(EncodingNamesInAnEncoding, StopAtAnUnknownCurrentEncoding) {
  EnterHost("no-such-set");
  EXPECT_EXIT(Unicode_GetCurrentEncoding(), kPanic, "ASSERT lib/unicode/unicodeNames\\.cc:[0-9]+");
}

TEST_F(EncodingNames, NeedMemoryToBeRemembered) {
  const size_t count = testhost::CountAllocations([] { UnicodeIANALookup("latin2"); });
  EXPECT_GT(count, 0U);
  EXPECT_EXIT(
      {
        const testhost::AllocationFault fault(0);
        UnicodeIANALookup("latin3");
      },
      kPanic, "Unrecoverable memory allocation failure at lib/misc/hashTable\\.cc:[0-9]+");
}

TEST(EncodingValues, AreValidInTheTableOnly) {
  int valid = 0;
  for (int value = -10; value < 1000; value++) {
    valid += Unicode_IsEncodingValid(static_cast<StringEncoding>(value)) ? 1 : 0;
  }
  EXPECT_EQ(valid, 316);
  EXPECT_TRUE(Unicode_IsEncodingValid(STRING_ENCODING_UTF8));
  EXPECT_TRUE(Unicode_IsEncodingValid(static_cast<StringEncoding>(315)));
  EXPECT_FALSE(Unicode_IsEncodingValid(STRING_ENCODING_DEFAULT));
  EXPECT_FALSE(Unicode_IsEncodingValid(STRING_ENCODING_UNKNOWN));
}

}  // namespace
