#include <gtest/gtest.h>
#include <unistd.h>

#include <bit>
#include <cfloat>
#include <climits>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <limits>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "allocations.h"
#include "bsd_output_shared.h"
#include "bsd_vsnprintfInt.h"
#include "owned.h"
#include "str.h"

namespace {

// The formats here are partly made at run time, partly unknown to the compiler, so that they are checked
// nowhere else.
int Print(char *buffer, size_t size, const char *format, ...) {
  va_list args;
  va_start(args, format);
  const int length = bsd_vsnprintf(&buffer, size, format, args);
  va_end(args);
  return length;
}

int PrintNew(OwnedString *text, const char *format, ...) {
  va_list args;
  va_start(args, format);
  char *printed = nullptr;
  const int length = bsd_vsnprintf(&printed, 0, format, args);
  va_end(args);
  text->reset(printed);
  return length;
}

// The text that a format gives; "failed" when it gives none.
template <typename... Args>
std::string Ours(const char *format, Args... args) {
  OwnedString text;
  const int length = PrintNew(&text, format, args...);
  return length < 0 ? "failed" : std::string(text.get(), static_cast<size_t>(length));
}

template <typename... Args>
std::string Theirs(const char *format, Args... args) {
  static int (*const print)(char *, size_t, const char *, ...) = snprintf;
  std::string text(1 << 13, '\0');
  const int length = print(text.data(), text.size(), format, args...);
  text.resize(length < 0 ? 0 : static_cast<size_t>(length));
  return text;
}

template <typename... Args>
void ExpectAsTheLibrary(const std::string &format, Args... args) {
  const std::string expected = Theirs(format.c_str(), args...);
  const std::string got = Ours(format.c_str(), args...);
  // Not EXPECT_EQ for each of a million texts: that would take the test's time.
  if (got != expected) {
    ADD_FAILURE() << format << " gives '" << got << "', not '" << expected << "'";
  }
}

std::string Joined(std::initializer_list<std::string_view> parts) {
  std::string whole;
  for (const std::string_view part : parts) {
    whole += part;
  }
  return whole;
}

// Every set of the flags.
std::vector<std::string> FlagSets(const std::string &flags) {
  std::vector<std::string> sets = {""};
  for (const char flag : flags) {
    const size_t count = sets.size();
    for (size_t i = 0; i < count; i++) {
      sets.push_back(sets[i] + flag);
    }
  }
  return sets;
}

// ---- Held against the C library

template <typename Integer>
void CompareIntegers(const std::string &length) {
  using Limits = std::numeric_limits<Integer>;
  for (const std::string &flags : FlagSets("-+ #0")) {
    for (const char *width : {"", "1", "7", "40"}) {
      for (const char *precision : {"", ".", ".0", ".1", ".5", ".30"}) {
        for (const char conversion : {'d', 'i', 'o', 'u', 'x', 'X'}) {
          const std::string format = Joined({"<%", flags, width, precision, length, {&conversion, 1}, ">"});
          for (const Integer value : {Integer(0), Integer(1), Integer(8), Integer(-1), Integer(99),
                                      Integer(100), Limits::min(), Limits::max(), Integer(-12345)}) {
            ExpectAsTheLibrary(format, value);
          }
        }
      }
    }
  }
}

TEST(PrintedIntegers, AreTheLibrarysInEveryWidth) {
  CompareIntegers<int>("");
  CompareIntegers<int>("h");
  CompareIntegers<int>("hh");
  CompareIntegers<long>("l");
  CompareIntegers<long long>("ll");
  CompareIntegers<long long>("q");
  CompareIntegers<long long>("L");
  CompareIntegers<intmax_t>("j");
  CompareIntegers<ptrdiff_t>("t");
  CompareIntegers<ssize_t>("z");
  CompareIntegers<ssize_t>("Z");
}

TEST(PrintedIntegers, AreTheLibrarysForEveryNumberOfDigits) {
  for (uint64_t power = 1;; power *= 10) {
    for (const uint64_t value : {power - 1, power, power + 1}) {
      ExpectAsTheLibrary("%lu %lo %lx %ld", value, value, value, value);
    }
    if (power > UINT64_MAX / 10) {
      break;
    }
  }
}

TEST(PrintedStrings, AreTheLibrarys) {
  for (const char *flags : {"", "-"}) {
    for (const char *width : {"", "1", "5", "16", "17", "200"}) {
      for (const char *precision : {"", ".", ".0", ".1", ".4", ".100"}) {
        const std::string front = std::string("<%") + flags + width + precision;
        for (const char *text : {"", "a", "abcd", "0123456789abcdefg"}) {
          ExpectAsTheLibrary(front + "s>", text);
        }
        ExpectAsTheLibrary(std::string("<%") + flags + width + "c>", 'x');
      }
    }
  }
}

// A double of the exponent, with a random fraction.
double WithExponent(unsigned exponent, std::mt19937_64 *random) {
  const uint64_t fraction = (*random)() & ((uint64_t{1} << 52) - 1);
  return std::bit_cast<double>((uint64_t{exponent} << 52) | fraction);
}

TEST(PrintedDoubles, AreTheLibrarysForEveryExponentAndPrecision) {
  std::mt19937_64 random(1);
  const std::vector<std::string> flagSets = FlagSets("-+ #0");
  for (unsigned exponent = 0; exponent < 2047; exponent++) {
    for (int precision = 0; precision <= 40; precision++) {
      const double value = (random() % 2 == 0 ? 1 : -1) * WithExponent(exponent, &random);
      const std::string &flags = flagSets[random() % flagSets.size()];
      const std::string digits = std::to_string(precision);
      const std::string width = random() % 2 == 0 ? "" : std::to_string(1 + random() % 60);
      for (const char *conversion : {"e", "f", "g"}) {
        ExpectAsTheLibrary(Joined({"<%", flags, width, ".", digits, conversion, ">"}), value);
      }
    }
  }
}

TEST(PrintedDoubles, AreTheLibrarysWhereRoundingIsClose) {
  std::vector<double> values = {0.0,     -0.0,    0.5,     1.5,         2.5,         0.125,
                                0.375,   9.5,     99.5,    0.05,        0.25,        0.35,
                                1e15,    1e16,    1e17,    1e21,        1e22,        1e23,
                                5e-324,  DBL_MIN, DBL_MAX, DBL_EPSILON, 9.995,       999999.5,
                                9999995, 0.0001,  0.00001, 0.00099995,  123456789.0, 4503599627370496.5};
  for (int power = -30; power <= 30; power++) {
    const double ten = std::pow(10.0, power);
    values.insert(values.end(),
                  {ten, std::nextafter(ten, 0), std::nextafter(ten, HUGE_VAL), 5 * ten, 9.5 * ten});
  }
  for (const double value : values) {
    for (const char *flags : {"", "+", "0", "-", "#"}) {
      for (const char *conversion : {"e", "E", "f", "F", "g", "G"}) {
        // The C library loses the zeros of a "#" when rounding makes one digit more.
        if (*flags == '#' && (*conversion == 'g' || *conversion == 'G')) {
          continue;
        }
        ExpectAsTheLibrary(std::string("<%") + flags + "30" + conversion + ">", value);
        for (int precision = 0; precision <= 20; precision++) {
          ExpectAsTheLibrary(std::string("<%") + flags + "." + std::to_string(precision) + conversion + ">",
                             value);
        }
      }
    }
  }
}

TEST(PrintedDoubles, AreTheLibrarysHalfwayBetweenTwoTexts) {
  std::mt19937_64 random(2);
  // An odd number over 2 to the nth has n digits behind the point, of which the last is a 5.
  for (int digits = 1; digits <= 40; digits++) {
    for (int i = 0; i < 200; i++) {
      const auto odd = static_cast<double>((random() >> (11 + random() % 50)) | 1);
      const double value = std::ldexp(odd, -digits);
      ExpectAsTheLibrary("%.*f|%.*f|%.*f", digits - 1, value, digits - 1, std::nextafter(value, 0),
                         digits - 1, std::nextafter(value, HUGE_VAL));
    }
  }
}

TEST(PrintedDoubles, AreTheLibrarysWhereTheirDigitsFill64Bits) {
  for (int precision = 0; precision <= 21; precision++) {
    double value = 0x1p64 / std::pow(10.0, precision);
    for (int i = 0; i < 50; i++) {
      value = std::nextafter(value, 0);
    }
    for (int i = 0; i < 100; i++) {
      ExpectAsTheLibrary("%.*f", precision, value);
      value = std::nextafter(value, HUGE_VAL);
    }
  }
}

TEST(PrintedDoubles, KeepTheirZerosWhenRoundingMakesADigitMore) {
  EXPECT_EQ(Ours("%#.2g %#.3g %#g %#.1g %.2g", 99.5, 999.5, 999999.5, 9.5, 99.5),
            "1.0e+02 1.00e+03 1.00000e+06 1.e+01 1e+02");
  EXPECT_EQ(Ours("%#.3g %#.2g", 9.9999, 0.99999), "10.0 1.0");
}

TEST(PrintedDoubles, AreTheLibrarysToTheLastDigit) {
  for (const double value :
       {5e-324, 2.2250738585072009e-308, DBL_MIN, DBL_MAX, -DBL_MAX, 0.1, 1.0, 0.0, 1e-5}) {
    for (const int precision : {41, 309, 400, 765, 766, 767, 768, 1073, 1074, 1075, 1100, 5000}) {
      for (const char *conversion : {"e", "f", "g"}) {
        for (const char *flags : {"", "#", "0", "-"}) {
          ExpectAsTheLibrary(std::string("<%") + flags + "6000.*" + conversion + ">", precision, value);
        }
      }
    }
  }
}

TEST(PrintedDoubles, OfManyDigitsWaitForEachOther) {
  ExpectAsTheLibrary("%.900f|%.900f|%.700e|%d|%.900f", 1.0 / 3, 2.0 / 3, 0.1, 7, DBL_MAX);
}

TEST(PrintedDoubles, AreTheLibrarysForALongDoubleThatADoubleHolds) {
  ExpectAsTheLibrary("%Lf %.3Le %LG", 1.25L, -0.1L * 0 + 3.0L, 1e300L);
  EXPECT_EQ(Ours("%Lf", static_cast<long double>(LDBL_MAX)), "inf");
}

TEST(PrintedLines, AreTheLibrarys) {
  ExpectAsTheLibrary("%s: module %s loaded at 0x%lx, %d%% of %u\n", "kprep", "vmci", 0xFFFF8000UL, -5, 7U);
  ExpectAsTheLibrary("%*d|%-*d|%.*s|%*.*f", 6, 42, 6, 42, 2, "abc", 9, 3, 2.0);
  ExpectAsTheLibrary("%*d|%.*d|%.*f", -6, 42, -1, 42, -5, 2.0);
  ExpectAsTheLibrary("%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13,
                     14, 15, 16, 17, 18, 19, 20);
  ExpectAsTheLibrary("%5d%%%-5u|%f%g%e", 1, 2U, 1.0, 2.0, 3.0);
  ExpectAsTheLibrary("%%%c%c%c", 'a', '\0', 'b');
}

TEST(PrintedPositions, AreTheLibrarys) {
  ExpectAsTheLibrary("%2$s %1$s", "one", "two");
  ExpectAsTheLibrary("%1$*2$d|%1$-*2$d|%3$.*2$f", 42, 5, 1.5);
  ExpectAsTheLibrary("%3$Lf %2$lld %1$c %2$lld", 'x', 1LL << 40, 2.5L);
  ExpectAsTheLibrary("%1$s %1$s %1$.2s", "abc");
  ExpectAsTheLibrary("%10$d %9$d %8$d %7$d %6$d %5$d %4$d %3$d %2$d %1$d", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10);
  ExpectAsTheLibrary("%10$.1f %9$d %8$.1f %7$d %6$.1f %5$d %4$.1f %3$d %2$.1f %1$d", 1, 2.5, 3, 4.5, 5, 6.5,
                     7, 8.5, 9, 10.5);
}

// ---- Where the C library does it in another way, or not

TEST(PrintedPositions, MayStandBesideValuesWithoutOne) {
  EXPECT_EQ(Ours("%*2$d|", 7, 4), "   7|");
  EXPECT_EQ(Ours("%d %3$d %d %1$d", 1, 2, 3, 4), "1 3 4 1");
  EXPECT_EQ(Ours("%.*2$f|%d", 1.25, 1), "1.2|1");
  EXPECT_EQ(Ours("%2$*1$d|", 4, 7), "   7|");
  EXPECT_EQ(Ours("%d %*1$d|", 3, 7), "3   7|");
  EXPECT_EQ(Ours("%.*1$d|", 3), "003|");
  EXPECT_EQ(Ours("%y%d%2$s", 5, "x"), "y5x");
}

TEST(PrintedPositions, PassOverAGapAsAnInt) {
  EXPECT_EQ(Ours("%3$s%1$s", "a", 1, "c"), "ca");
}

TEST(PrintedPositions, FailWhenAskedForAsTwoKinds) {
  EXPECT_EQ(Ours("%1$d %1$s", 1), "failed");
  EXPECT_EQ(Ours("%1$f %1$d", 1.0), "failed");
  EXPECT_EQ(Ours("%1$f %1$Lf", 1.0), "failed");
  EXPECT_EQ(Ours("%s %*1$d", "x", 1), "failed");
}

TEST(PrintedPositions, TakeTheWidestIntegerThatIsAskedFor) {
  EXPECT_EQ(Ours("%1$d %1$ld", 1L << 33), "0 8589934592");
  EXPECT_EQ(Ours("%1$ld %1$hhd", (1L << 33) + 5), "8589934597 5");
}

TEST(PrintedPositions, GoUpToTheSystemsLimit) {
  BsdOutput_Spec spec;
  const char *format = "4096$d";
  EXPECT_EQ(BsdOutput_ParseSpec(format, &spec), format + strlen(format));
  EXPECT_EQ(spec.position, 4096);
}

TEST(PrintedPositions, FailOutsideTheirRange) {
  EXPECT_EQ(Ours("%4097$d", 1), "failed");
  EXPECT_EQ(Ours("%99999999999999999999$d", 1), "failed");
  EXPECT_EQ(Ours("%*0$d", 1), "failed");
  EXPECT_EQ(Ours("%.*0$d", 1), "failed");
  EXPECT_EQ(Ours("%.*4097$d", 1), "failed");
  EXPECT_EQ(Ours("%1$d %2147483648$d", 1), "failed");
  // A 0 is a flag, and then "$" an unknown conversion.
  EXPECT_EQ(Ours("%0$d", 1), "$d");
  // Digits behind a star are a position or nothing.
  EXPECT_EQ(Ours("%*5d", 1), "5d");
  EXPECT_EQ(Ours("%*2147483648d", 1), "failed");
}

TEST(PrintedPositions, EndWithTheFormat) {
  EXPECT_EQ(Ours("%1$s and %2$", "x"), "x and ");
}

// A format that takes `count` ints from last to first.
std::string ManyPositions(int count) {
  std::string format;
  for (int i = count; i > 0; i--) {
    format += "%" + std::to_string(i) + "$d ";
  }
  return format;
}

// Calls a printer with the numbers from 1 to 40.
template <typename Printer>
int WithForty(const Printer &printer) {
  return printer(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25,
                 26, 27, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40);
}

TEST(PrintedPositions, NeedTheHeapOnlyWhenTheyAreMany) {
  char buffer[256];
  const auto print = [&buffer](int count) {
    return WithForty([&](auto... numbers) {
      return Print(buffer, sizeof buffer, ManyPositions(count).c_str(), numbers...);
    });
  };
  EXPECT_EQ(testhost::CountAllocations([&] { EXPECT_GT(print(32), 0); }), 0U);
  EXPECT_EQ(testhost::CountAllocations([&] { EXPECT_GT(print(33), 0); }), 1U);
  EXPECT_EQ(print(40), 111);
  EXPECT_STREQ(buffer,
               "40 39 38 37 36 35 34 33 32 31 30 29 28 27 26 25 24 23 22 21 20 19 18 17 16 15 14 13 12 11 10 "
               "9 8 7 6 5 4 3 2 "
               "1 ");
  const testhost::AllocationFault fault(0);
  EXPECT_EQ(print(40), -1);
  EXPECT_TRUE(fault.Happened());
  EXPECT_STREQ(buffer, "");
}

TEST(PrintedPositions, MoveToALargerTableWhole) {
  // The table grows at 33 and at 65, behind positions that are known already.
  OwnedString text;
  ASSERT_GE(PrintNew(&text, "%1$s %33$s %2$s %65$s", "a", "b", "", "", "", "", "", "", "", "", "", "", "", "",
                     "", "", "", "", "", "", "", "", "", "", "", "", "", "", "", "", "", "", "c", "", "", "",
                     "", "", "", "", "", "", "", "", "", "", "", "", "", "", "", "", "", "", "", "", "", "",
                     "", "", "", "", "", "", "d"),
            0);
  EXPECT_STREQ(text.get(), "a c b d");
}

TEST(LengthModifiers, OfOtherSystemsAreKnown) {
  EXPECT_EQ(Ours("%I64d %I64x", INT64_MIN, UINT64_MAX), "-9223372036854775808 ffffffffffffffff");
  EXPECT_EQ(Ours("%I32d %I32u", -1, 7U), "-1 7");
  EXPECT_EQ(Ours("%Zu %Iu", SIZE_MAX, SIZE_MAX), "18446744073709551615 18446744073709551615");
  EXPECT_EQ(Ours("%D %O %U", -1L, 8L, ULONG_MAX), "-1 10 18446744073709551615");
  EXPECT_EQ(Ours("%qd", 1LL << 62), "4611686018427387904");
}

TEST(StoredCount, HasTheWidthOfTheLengthModifier) {
  struct {
    signed char c[2] = {-1, -1};
    short s[2] = {-1, -1};
    int i[2] = {-1, -1};
    long l[2] = {-1, -1};
    long long ll[2] = {-1, -1};
    intmax_t j = -1;
    ptrdiff_t t = -1;
    size_t z = 1;
    size_t Z = 1;
    int64_t i64 = -1;
    int32_t i32[2] = {-1, -1};
  } n;
  EXPECT_EQ(Ours("a%hhnb%hnc%nd%lne%llnf%jng%tnh%zni%Znj%I64nk%I32nl", n.c, n.s, n.i, n.l, n.ll, &n.j, &n.t,
                 &n.z, &n.Z, &n.i64, n.i32),
            "abcdefghijkl");
  EXPECT_EQ(n.c[0], 1);
  EXPECT_EQ(n.c[1], -1);
  EXPECT_EQ(n.s[0], 2);
  EXPECT_EQ(n.s[1], -1);
  EXPECT_EQ(n.i[0], 3);
  EXPECT_EQ(n.i[1], -1);
  EXPECT_EQ(n.l[0], 4);
  EXPECT_EQ(n.l[1], -1);
  EXPECT_EQ(n.ll[0], 5);
  EXPECT_EQ(n.j, 6);
  EXPECT_EQ(n.t, 7);
  EXPECT_EQ(n.z, 8U);
  EXPECT_EQ(n.Z, 9U);
  EXPECT_EQ(n.i64, 10);
  EXPECT_EQ(n.i32[0], 11);
  EXPECT_EQ(n.i32[1], -1);
}

TEST(StoredCount, CountsWhatDoesNotFitToo) {
  char buffer[4];
  int count = 0;
  EXPECT_EQ(Print(buffer, sizeof buffer, "%200s%n!", "x", &count), 201);
  EXPECT_EQ(count, 200);
}

TEST(WideText, IsUtf8WhateverTheLocaleIs) {
  EXPECT_STREQ(setlocale(LC_ALL, nullptr), "C");
  EXPECT_EQ(Ours("%ls|%S|%lls", L"aé€😀", L"é", L"é"), "aé€😀|é|é");
  EXPECT_EQ(Ours("%lc%C|%3lc|%-3lc|", L'é', L'😀', L'é', L'é'), "é😀| é|é |");
  EXPECT_EQ(Ours("%lc", L'\0'), std::string(1, '\0'));
  EXPECT_EQ(Ours("%6ls|%-6S|", L"é€", L"é€"), " é€|é€ |");
  EXPECT_EQ(Ours("%ls", L"\U0010FFFF\u07FF\u0800\uFFFF\x7F\u0080"), "\U0010FFFF\u07FF\u0800\uFFFF\x7F\u0080");
}

TEST(WideText, HasItsPrecisionInBytesAndWholeCharacters) {
  EXPECT_EQ(Ours("%.4ls|%.3ls|%.5ls|%.6ls", L"aé€", L"aé€", L"aé€", L"aé€"), "aé|aé|aé|aé€");
  EXPECT_EQ(Ours("%.0ls|", L"é"), "|");
  EXPECT_EQ(Ours("%.1S|", L"é"), "|");
  const wchar_t open[] = {L'a', L'b'};  // no NUL: nothing behind the precision is read
  EXPECT_EQ(Ours("%.2ls", open), "ab");
}

TEST(WideText, MayHoldALoneSurrogate) {
  const wchar_t text[] = {0xD800, L'x', 0xDFFF, 0};
  EXPECT_EQ(Ours("%ls", text), "\xED\xA0\x80x\xED\xBF\xBF");
}

TEST(WideText, FailsAboveTheLastCharacter) {
  for (const int bad : {0x110000, -1, 0x7FFFFFFF}) {
    const wchar_t text[] = {L'a', bad, 0};
    EXPECT_EQ(Ours("%ls", text), "failed");
    EXPECT_EQ(Ours("%lc", bad), "failed");
    // Not when the precision ends before it.
    EXPECT_EQ(Ours("%.1ls", text), "a");
    char buffer[8] = "xxxxxxx";
    EXPECT_EQ(Print(buffer, sizeof buffer, "ab%ls", text), -1);
    EXPECT_STREQ(buffer, "ab");
  }
}

TEST(WideText, OfAnyLengthNeedsNoMemory) {
  const std::wstring text(5000, L'€');
  std::vector<char> buffer(20000);
  EXPECT_EQ(testhost::CountAllocations(
                [&] { EXPECT_EQ(Print(buffer.data(), 20000, "%16000ls", text.c_str()), 16000); }),
            0U);
  EXPECT_EQ(std::string(buffer.data()).substr(995, 8), "     €");
}

TEST(PrintedStrings, AreNotCutWithinACharacter) {
  EXPECT_EQ(Ours("%.3s", "aéb"), "aé");
  EXPECT_EQ(Ours("%.2s|", "aéb"), "a|");
  EXPECT_EQ(Ours("%.1s|", "é"), "|");
  EXPECT_EQ(Ours("%.3s|%.4s|", "😀", "😀"), "|😀|");
  EXPECT_EQ(Ours("%5.2s|%-5.2s|", "aéb", "aéb"), "    a|a    |");
  const char open[] = {'a', 'b'};  // no NUL: nothing behind the precision is read
  EXPECT_EQ(Ours("%.2s", open), "ab");
}

TEST(PrintedStrings, ThatAreNoUtf8AreCutAtTheByte) {
  EXPECT_EQ(Ours("%.2s", "a\xFF\xFF"), "a\xFF");
  EXPECT_EQ(Ours("%.5s", "\x80\x80\x80\x80\x80\x80"), "\x80\x80\x80\x80\x80");
}

TEST(PrintedStrings, ShowANull) {
  const char *none = nullptr;
  const wchar_t *noneWide = nullptr;
  EXPECT_EQ(Ours("%s %ls %S %8s|%-8s|%.3s", none, noneWide, noneWide, none, none, none),
            "(null) (null) (null)   (null)|(null)  |(nu");
}

TEST(UnknownConversions, PrintTheirByte) {
  EXPECT_EQ(Ours("%y"), "y");
  EXPECT_EQ(Ours("%a%A|%d", 5), "aA|5");
  EXPECT_EQ(Ours("%5y|%-5y|%l!|%m"), "    y|y    |!|m");
  EXPECT_EQ(Ours("%5%|"), "    %|");
  EXPECT_EQ(Ours("%\xC3\xA9"), "\xC3\xA9");
}

TEST(UnknownConversions, EndTheOutputAtTheEndOfTheFormat) {
  for (const char *format :
       {"abc%", "abc%5", "abc%-+", "abc%5.3", "abc%l", "abc%hh", "abc%I64", "abc%.", "abc%2$"}) {
    EXPECT_EQ(Ours(format), "abc") << format;
  }
}

TEST(Pointers, AreUpperCaseHexadecimal) {
  void *const pointer = reinterpret_cast<void *>(0xDEADBEEF12UL);
  EXPECT_EQ(Ours("%p|%12p|%-12p|%012p|%#p", pointer, pointer, pointer, pointer, pointer),
            "DEADBEEF12|  DEADBEEF12|DEADBEEF12  |00DEADBEEF12|DEADBEEF12");
  void *const none = nullptr;
  EXPECT_EQ(Ours("%p", none), "0");
}

TEST(NonFinite, FollowTheCaseAndLoseTheSignOfNoNumber) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(Ours("%f %F %e %E %g %G", HUGE_VAL, HUGE_VAL, HUGE_VAL, HUGE_VAL, HUGE_VAL, HUGE_VAL),
            "inf INF inf INF inf INF");
  EXPECT_EQ(Ours("%f %F %e %E %g %G", nan, nan, nan, nan, nan, nan), "nan NAN nan NAN nan NAN");
  EXPECT_EQ(Ours("%f %+f % f %08f|%-8f|%.1f", -HUGE_VAL, HUGE_VAL, HUGE_VAL, HUGE_VAL, HUGE_VAL, HUGE_VAL),
            "-inf +inf  inf      inf|inf     |inf");
  EXPECT_EQ(Ours("%f %+f % f %08f|%-8f|", -nan, nan, nan, nan, nan), "nan nan nan      nan|nan     |");
}

TEST(Padding, OfZerosGoesBeforeAnyValue) {
  EXPECT_EQ(Ours("%05s|%05c|%-05s|", "ab", 'x', "ab"), "000ab|0000x|ab   |");
}

// ---- Sizes

TEST(Lengths, AreOfTheWholeTextWhateverFits) {
  const std::string format = "<%-20s|%s|%05d|%.3f>";
  const std::string whole = Ours(format.c_str(), "left", "middle", 42, 1.5);
  for (size_t size = 0; size <= whole.size() + 2; size++) {
    std::vector<char> buffer(size + 1, '#');
    EXPECT_EQ(Print(buffer.data(), size, format.c_str(), "left", "middle", 42, 1.5),
              static_cast<int>(whole.size()));
    EXPECT_EQ(buffer[size], '#') << size;
    if (size > 0) {
      EXPECT_EQ(std::string(buffer.data()), whole.substr(0, size - 1)) << size;
    }
  }
}

TEST(Lengths, OfMoreThanAnIntFail) {
  char buffer[4] = "xxx";
  EXPECT_EQ(Print(buffer, sizeof buffer, "%2147483647d", 1), INT_MAX);
  EXPECT_STREQ(buffer, "   ");
  EXPECT_EQ(Print(buffer, sizeof buffer, "%-2147483647d", 1), INT_MAX);
  EXPECT_STREQ(buffer, "1  ");
  EXPECT_EQ(Print(buffer, sizeof buffer, "%.2147483647d", 1), INT_MAX);
  EXPECT_EQ(Print(buffer, sizeof buffer, "%.2147483645f", 1.0), INT_MAX);
  EXPECT_EQ(Print(buffer, sizeof buffer, "%2147483647dx", 1), -1);
  EXPECT_EQ(Print(buffer, sizeof buffer, "%-2147483647dx", 1), -1);
  EXPECT_EQ(Print(buffer, sizeof buffer, "%.2147483646f", 1.0), -1);
  EXPECT_EQ(Print(buffer, sizeof buffer, "%+.2147483647d", 1), -1);
  EXPECT_EQ(Print(buffer, sizeof buffer, "%.2147483647e", 1.0), -1);
  EXPECT_EQ(Print(buffer, sizeof buffer, "%1073741824d%1073741824d", 1, 1), -1);
  EXPECT_EQ(Print(buffer, sizeof buffer, "%2147483647d%2147483647d%2147483647d", 1, 1, 1), -1);
  EXPECT_EQ(Print(buffer, sizeof buffer, "%*d", INT_MIN, 1), -1);
  EXPECT_EQ(Print(buffer, sizeof buffer, "%*d", -INT_MAX, 1), INT_MAX);
  EXPECT_EQ(Print(buffer, sizeof buffer, "%.*d", INT_MIN, 1), 1);
}

TEST(Lengths, OfMoreThanAnIntLeaveTheTextsBeginning) {
  char buffer[8];
  for (const char *format : {"ab%2147483647d", "ab%2147483647d!", "ab%2147483646dx%d"}) {
    EXPECT_EQ(Print(buffer, sizeof buffer, format, 7, 8), -1) << format;
    EXPECT_STREQ(buffer, "ab     ");
  }
  EXPECT_EQ(Print(buffer, sizeof buffer, "ab%.2147483647d", 7), -1);
  EXPECT_STREQ(buffer, "ab00000");
  EXPECT_EQ(Print(buffer, sizeof buffer, "a%.2147483647f", 7.0), -1);
  EXPECT_STREQ(buffer, "a7.0000");
}

TEST(Lengths, OfMoreThanAnIntAreNoNumberInAFormat) {
  char buffer[4] = "xxx";
  for (const char *format :
       {"ab%2147483648d", "ab%.2147483648d", "ab%99999999999999999999999d", "ab%1.99999999999f"}) {
    EXPECT_EQ(Print(buffer, sizeof buffer, format, 1), -1) << format;
    EXPECT_STREQ(buffer, "ab");
  }
}

TEST(Lengths, OfMoreThanAnIntFailInANewString) {
  OwnedString text;
  EXPECT_EQ(PrintNew(&text, "ab%2147483647d", 1), -1);
  EXPECT_EQ(text, nullptr);
}

// ---- Memory

TEST(Allocations, AreNotMadeForABuffer) {
  char buffer[8192];
  const auto print = [&buffer] {
    EXPECT_GT(Print(buffer, sizeof buffer, "%s %d %*d %.400f %.1500e %g %ls %'d %'f", "text", 1, 7, 2,
                    DBL_MAX, 0.1, 0.2, L"é", 1000000, 1e9),
              2000);
  };
  EXPECT_EQ(testhost::CountAllocations(print), 0U);
}

TEST(Allocations, BeginWithTheFormatsLengthAndGrow) {
  OwnedString text;
  // 63 bytes and the NUL are the first 64.
  EXPECT_EQ(testhost::CountAllocations([&text] { PrintNew(&text, "%63s", "x"); }), 1U);
  EXPECT_EQ(testhost::CountAllocations([&text] { PrintNew(&text, "%64s", "x"); }), 2U);
  const std::string format(64, 'f');
  EXPECT_EQ(testhost::CountAllocations([&] { PrintNew(&text, format.c_str()); }), 1U);
  EXPECT_EQ(text.get(), format);
}

TEST(Allocations, ThatFailFailThePrint) {
  const std::string format = "%1$2000d" + ManyPositions(40);
  const auto print = [&format] {
    OwnedString text;
    const int length =
        WithForty([&](auto... numbers) { return PrintNew(&text, format.c_str(), numbers...); });
    EXPECT_EQ(length, text == nullptr ? -1 : 2111);
    return text != nullptr;
  };
  // The first buffer, the table, and the buffer's growing.
  const size_t count = testhost::CountAllocations([&print] { EXPECT_TRUE(print()); });
  EXPECT_GE(count, 4U);
  for (size_t i = 0; i < count; i++) {
    const testhost::AllocationFault fault(i);
    EXPECT_FALSE(print()) << i;
    EXPECT_TRUE(fault.Happened());
  }
}

TEST(Allocations, GrowThroughALongText) {
  std::string format;
  std::string expected;
  for (int i = 0; i < 5000; i++) {
    format += "%1$s-%2$d,";
    expected += "word-42,";
  }
  EXPECT_EQ(Ours(format.c_str(), "word", 42), expected);
}

// ---- Locales

// A locale that is compiled for the test, and is the process's while the object lives.
class TestLocale {
 public:
  TestLocale(const std::string &source, const std::string &charmap) {
    char path[] = "/tmp/bsd_vsnprintf_test-XXXXXX";
    path_ = mkdtemp(path);
    const std::string command =
        "localedef --no-archive -c -i " + source + " -f " + charmap + " " + path_ + "/test >/dev/null 2>&1";
    made_ = WEXITSTATUS(system(command.c_str())) <= 1;
    setenv("LOCPATH", path_.c_str(), 1);
    set_ = setlocale(LC_ALL, "test") != nullptr;
  }
  ~TestLocale() {
    setlocale(LC_ALL, "C");
    unsetenv("LOCPATH");
    std::filesystem::remove_all(path_);
  }
  TestLocale(const TestLocale &) = delete;
  TestLocale &operator=(const TestLocale &) = delete;
  [[nodiscard]] bool Works() const { return made_ && set_; }

 private:
  std::string path_;
  bool made_ = false;
  bool set_ = false;
};

TEST(Grouping, IsNoneInThePlainLocale) {
  EXPECT_EQ(Ours("%'d %'u %'.2f", -1234567, 1234567U, 1234567.5), "-1234567 1234567 1234567.50");
}

TEST(Grouping, AndThePointAreTheLocales) {
  const TestLocale german("de_DE", "UTF-8");
  ASSERT_TRUE(german.Works());
  EXPECT_EQ(Ours("%.2f %e %g %G %.0f %#.0f", 1.5, 1.5, 1.5, 0.5, 2.0, 2.0), "1,50 1,500000e+00 1,5 0,5 2 2,");
  EXPECT_EQ(Ours("%'d %'d %'d %'d %'d", 1, 999, 1000, -1234567, 100000), "1 999 1.000 -1.234.567 100.000");
  EXPECT_EQ(Ours("%'llu %'i", ULLONG_MAX, INT_MIN), "18.446.744.073.709.551.615 -2.147.483.648");
  EXPECT_EQ(Ours("%'.2f %'f %'g %'.9g", 1234567.5, -999.0, 123456.0, 1234567.25),
            "1.234.567,50 -999,000000 123.456 1.234.567,25");
  EXPECT_EQ(Ours("%'12d|%-'12d|%'012d|%+'d", 12345, 12345, 12345, 12345),
            "      12.345|12.345      |00000012.345|+12.345");
  EXPECT_EQ(Ours("%d %x %'x", 12345, 12345, 12345), "12345 3039 3039");
  for (const char *format : {"%'d", "%'15d", "%-'15d", "%+'d"}) {
    for (const int value : {0, 1, 12, 123, 1234, 12345, 123456, 1234567, INT_MAX, INT_MIN}) {
      ExpectAsTheLibrary(format, value);
    }
  }
  for (const char *format : {"%'f", "%'.0f", "%'25.3f", "%-'25f|", "%'g", "%'.12g", "%e", "%#.0e", "%g"}) {
    for (const double value : {0.0, 1.0, 999.5, 1000.0, 123456.0, 1234567.25, 1e15, 1e100, -1e300, 1e-7}) {
      ExpectAsTheLibrary(format, value);
    }
  }
}

TEST(Grouping, TakesAPrecisionAsDigits) {
  const TestLocale german("de_DE", "UTF-8");
  ASSERT_TRUE(german.Works());
  EXPECT_EQ(Ours("%'.8d|%'.0d|%'4.0d|", 12345, 0, 0), "00012.345||    |");
}

TEST(Grouping, MayHaveSizesThatDiffer) {
  const TestLocale indian("en_IN", "UTF-8");
  ASSERT_TRUE(indian.Works());
  EXPECT_EQ(Ours("%'d %'.1f", 123456789, 1234567.5), "12,34,56,789 12,34,567.5");
}

TEST(Grouping, MayEndBehindItsLastSize) {
  const std::string source = testing::TempDir() + "bsd_vsnprintf_test-" + std::to_string(getpid());
  std::ofstream(source) << "LC_NUMERIC\n"
                           "decimal_point \",\"\n"
                           "thousands_sep \".\"\n"
                           "grouping 3;2;-1\n"
                           "END LC_NUMERIC\n";
  const TestLocale ending(source, "UTF-8");
  std::filesystem::remove(source);
  ASSERT_TRUE(ending.Works());
  EXPECT_STREQ(localeconv()->grouping, "\3\2\x7F");
  EXPECT_EQ(Ours("%'d %'d %'d", 12, 12345, 123456789), "12 12.345 1234.56.789");
  // All digits of the largest double but the last five are one group.
  const std::string digits = Ours("%.0f", DBL_MAX);
  EXPECT_EQ(Ours("%'.0f", DBL_MAX),
            digits.substr(0, 304) + "." + digits.substr(304, 2) + "." + digits.substr(306));
}

TEST(Grouping, MayHaveASeparatorOfSeveralBytes) {
  const TestLocale french("fr_FR", "UTF-8");
  ASSERT_TRUE(french.Works());
  EXPECT_EQ(Ours("%'d|%'12d|", 1234567, 1234), "1\u202F234\u202F567|     1\u202F234|");
  char buffer[8];
  EXPECT_EQ(Print(buffer, sizeof buffer, "%'d", 1234567), 13);
}

}  // namespace
