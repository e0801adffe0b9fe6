#include <clocale>
#include <cmath>

#include "msgTestInt.h"

namespace {

constexpr uint64_t kKilo = 1024;
constexpr uint64_t kMega = kKilo << 10;
constexpr uint64_t kGiga = kKilo << 20;
constexpr uint64_t kTera = kKilo << 30;

std::string SizeText(uint64_t size) {
  return OwnedString(Msg_FormatSizeInBytes(size)).get();
}

TEST(SizeInBytes, IsExactBelow1024) {
  EXPECT_EQ(SizeText(0), "0 bytes");
  EXPECT_EQ(SizeText(1), "1 byte");
  EXPECT_EQ(SizeText(2), "2 bytes");
  EXPECT_EQ(SizeText(1023), "1023 bytes");
}

TEST(SizeInBytes, HasTheLargestUnitOfWhichThereIsOne) {
  EXPECT_EQ(SizeText(kKilo), "1 KB");
  EXPECT_EQ(SizeText(1536), "1.5 KB");
  EXPECT_EQ(SizeText(kMega - 1), "1024 KB");
  EXPECT_EQ(SizeText(kMega), "1 MB");
  EXPECT_EQ(SizeText(kGiga - 1), "1024 MB");
  EXPECT_EQ(SizeText(kGiga), "1 GB");
  EXPECT_EQ(SizeText(kTera - 1), "1024 GB");
  EXPECT_EQ(SizeText(kTera), "1 TB");
  EXPECT_EQ(SizeText(kTera + kTera / 4), "1.2 TB");
  EXPECT_EQ(SizeText(UINT64_MAX), "16777216 TB");
}

TEST(SizeInBytes, IsWholeNearAWholeNumber) {
  // A hundredth of a kilobyte is 10.24 bytes, and one of a megabyte 10485.76.
  EXPECT_EQ(SizeText(2 * kKilo + 10), "2 KB");
  EXPECT_EQ(SizeText(2 * kKilo + 11), "2.0 KB");
  EXPECT_EQ(SizeText(2 * kKilo - 10), "2 KB");
  EXPECT_EQ(SizeText(2 * kKilo - 11), "2.0 KB");
  EXPECT_EQ(SizeText(5 * kMega + 10485), "5 MB");
  EXPECT_EQ(SizeText(5 * kMega + 10486), "5.0 MB");
  EXPECT_EQ(SizeText(5 * kMega - 10485), "5 MB");
  EXPECT_EQ(SizeText(5 * kMega - 10486), "5.0 MB");
  EXPECT_EQ(SizeText(kKilo + 52), "1.1 KB");
}

TEST(SizeInBytes, HoldsAPlainModel) {
  for (uint64_t size = kKilo; size < kMega; size += 7) {
    // In hundredths of a kilobyte, to be exact.
    const uint64_t offWhole = std::min(size % kKilo, kKilo - size % kKilo);
    char expected[64];
    snprintf(expected, sizeof expected, "%.*f KB", offWhole * 100 < kKilo ? 0 : 1,
             static_cast<double>(size) / 1024);
    ASSERT_EQ(SizeText(size), expected) << size;
  }
}

// Of a system without locales these are made for the test.
TEST(SizeInBytes, IsGroupedAsInTheLocale) {
  testhost::Host host;
  host.Directory("/t");
  host.Enter();
  ASSERT_EQ(
      testhost::Run("mkdir -p /usr/lib/locale && localedef -i de_DE -f UTF-8 /usr/lib/locale/de_DE.UTF-8"),
      0);
  ASSERT_NE(setlocale(LC_NUMERIC, "de_DE.UTF-8"), nullptr);
  EXPECT_EQ(SizeText(1023), "1.023 bytes");
  EXPECT_EQ(SizeText(kMega - 1), "1.024 KB");
  EXPECT_EQ(SizeText(1536), "1,5 KB");
  EXPECT_EQ(SizeText(UINT64_MAX), "16.777.216 TB");
}

TEST(SizeInBytes, IsToldInTheWordsOfTheCatalogue) {
  testhost::Host host;
  host.File("/t/catalogue",
            "msg.msg.byte.zero = \"%s Byte, nix\"\nmsg.msg.byte.one = \"%s Byte\"\n"
            "msg.msg.byte.twoOrMore = \"%s Bytes\"\nmsg.msg.kilobyte.abbreviation = \"%s Ko\"\n"
            "msg.msg.megabyte.abbreviation = \"%s Mo\"\nmsg.msg.gigabyte.abbreviation = \"%s Go\"\n"
            "msg.msg.terabyte.abbreviation = \"%s To\"\n");
  host.Enter();
  ASSERT_TRUE(Msg_LoadMessageFile("fr", "/t/catalogue"));
  EXPECT_EQ(SizeText(0), "0 Byte, nix");
  EXPECT_EQ(SizeText(1), "1 Byte");
  EXPECT_EQ(SizeText(2), "2 Bytes");
  EXPECT_EQ(SizeText(kKilo), "1 Ko");
  EXPECT_EQ(SizeText(kMega), "1 Mo");
  EXPECT_EQ(SizeText(kGiga), "1 Go");
  EXPECT_EQ(SizeText(kTera), "1 To");
}

}  // namespace
