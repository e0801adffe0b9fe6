#include "util.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "owned.h"
#include "panics.h"

namespace {

std::string Derive(const char *source, const char *name, const char *ext) {
  const OwnedString result(Util_DeriveFileName(source, name, ext));
  return result == nullptr ? "(null)" : result.get();
}

TEST(DeriveFileName, PutsARelativeNameUnderTheDirectory) {
  EXPECT_EQ(Derive("/a/b/vm.cfg", "disk", nullptr), "/a/b/disk");
  EXPECT_EQ(Derive("/a/b/vm.cfg", "disk", "img"), "/a/b/disk.img");
  EXPECT_EQ(Derive("a/vm.cfg", "sub/disk.x", "img"), "a/sub/disk.x.img");
  EXPECT_EQ(Derive("../vm.cfg", "disk", nullptr), "../disk");
}

TEST(DeriveFileName, LeavesAFullNameAndOneWithoutADirectoryAlone) {
  EXPECT_EQ(Derive("/a/vm.cfg", "/x/disk", "img"), "/x/disk.img");
  EXPECT_EQ(Derive("vm.cfg", "disk", nullptr), "disk");
  EXPECT_EQ(Derive("./vm.cfg", "disk", "img"), "disk.img");
  // The directory of a file in the root is the empty one.
  EXPECT_EQ(Derive("/vm.cfg", "disk", nullptr), "disk");
}

TEST(DeriveFileName, ExchangesTheLastExtension) {
  EXPECT_EQ(Derive("/a.d/vm.tar.gz", nullptr, "img"), "/a.d/vm.tar.img");
  EXPECT_EQ(Derive("/a.d/vm", nullptr, "img"), "/a.d/vm.img");
  EXPECT_EQ(Derive("vm.cfg", nullptr, "img"), "vm.img");
  EXPECT_EQ(Derive("./vm.cfg", nullptr, "img"), "vm.img");
  EXPECT_EQ(Derive("/a/.hidden", nullptr, "img"), "/a/.img");
}

TEST(DeriveFileName, WarnsWithoutWhatItNeeds) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(Derive(nullptr, "disk", "img"), "(null)");
  EXPECT_EQ(Derive("/a/vm.cfg", nullptr, nullptr), "(null)");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "invalid use of function\ninvalid use of function\n");
}

TEST(Throttle, TellsEverFewer) {
  const auto told = [](uint32_t from, uint32_t to) {
    uint32_t count = 0;
    for (uint32_t i = from; i < to; i++) {
      count += Util_Throttle(i) ? 1 : 0;
    }
    return count;
  };
  EXPECT_EQ(told(0, 100), 100U);
  EXPECT_EQ(told(100, 10000), 99U);
  EXPECT_EQ(told(10000, 1000000), 99U);
  EXPECT_EQ(told(1000000, 4000000), 3U);
  EXPECT_TRUE(Util_Throttle(100));
  EXPECT_FALSE(Util_Throttle(101));
  EXPECT_TRUE(Util_Throttle(9900));
  EXPECT_FALSE(Util_Throttle(10100));
  EXPECT_TRUE(Util_Throttle(990000));
  EXPECT_FALSE(Util_Throttle(1010000));
  EXPECT_TRUE(Util_Throttle(4000000000));
}

TEST(CompareDotted, ComparesFieldByField) {
  EXPECT_EQ(Util_CompareDotted("1.2.3.4.5", "1.2.3.4.5"), 0);
  EXPECT_EQ(Util_CompareDotted("1.2.3.4.5", "1.2.3.4.6"), -1);
  EXPECT_EQ(Util_CompareDotted("2", "1.9.9.9.9"), 1);
  EXPECT_EQ(Util_CompareDotted("2.10", "2.9"), 1);
  EXPECT_EQ(Util_CompareDotted("2.6", "2.6.0.0.0"), 0);
  EXPECT_EQ(Util_CompareDotted("2.6", "2.6.1"), -1);
}

TEST(CompareDotted, WhatIsNoNumberEndsAVersion) {
  EXPECT_EQ(Util_CompareDotted("2.6.18-5", "2.6.18"), 0);
  EXPECT_EQ(Util_CompareDotted("1.x.5", "1.0.0"), 0);
  EXPECT_EQ(Util_CompareDotted("", "0"), 0);
  EXPECT_EQ(Util_CompareDotted("1.2.3.4.5.6", "1.2.3.4.5.7"), 0);
  EXPECT_EQ(Util_CompareDotted("-1", "0"), -1);
}

TEST(GetPrime, AgreesWithASieve) {
  constexpr uint32_t kLimit = 100000;
  std::vector<bool> composite(kLimit + 100);
  for (size_t i = 2; i * i < composite.size(); i++) {
    for (size_t multiple = i * i; multiple < composite.size(); multiple += i) {
      composite[multiple] = true;
    }
  }
  uint32_t prime = 2;
  for (uint32_t start = 0; start < kLimit; start++) {
    while (prime < start || composite[prime]) {
      prime++;
    }
    ASSERT_EQ(Util_GetPrime(start), prime) << start;
  }
}

TEST(GetPrime, KnowsTheLargestOnes) {
  EXPECT_EQ(Util_GetPrime(4294967280), 4294967291U);
  EXPECT_EQ(Util_GetPrime(0xFFFFFFFB), 0xFFFFFFFBU);
  // A square of a prime.
  EXPECT_EQ(Util_GetPrime(65521U * 65521U), 4293001469U);
}

TEST(GetPrimeDeathTest, NothingIsAboveTheLargest) {
  EXPECT_EXIT(Util_GetPrime(0xFFFFFFFC), testing::ExitedWithCode(255),
              testhost::Panics("^NOT_IMPLEMENTED lib/user/util.cc:[0-9]+\n$"));
}

// The text, and "..." when it isn't all.
std::string Hex(const std::string &bytes, size_t size) {
  std::string buffer(size + 1, '?');
  const bool whole = Util_Data2Buffer(buffer.data(), size, bytes.data(), bytes.size());
  EXPECT_EQ(buffer.back(), '?') << "beyond the buffer";
  return buffer.substr(0, buffer.find('\0')) + (whole ? "" : "...");
}

TEST(Data2Buffer, WritesBytesApart) {
  EXPECT_EQ(Hex(std::string("\x00\xAB\xff", 3), 9), "00 AB FF");
  EXPECT_EQ(Hex("\x0a", 3), "0A");
  EXPECT_EQ(Hex("", 1), "");
  EXPECT_EQ(Hex("AB", 100), "41 42");
}

TEST(Data2Buffer, CutsBehindAWholeByte) {
  EXPECT_EQ(Hex("ABC", 8), "41 42...");
  EXPECT_EQ(Hex("ABC", 3), "41...");
  EXPECT_EQ(Hex("ABC", 2), "...");
  EXPECT_EQ(Hex("ABC", 1), "...");
  char none = '?';
  EXPECT_FALSE(Util_Data2Buffer(&none, 0, "", 0));
  EXPECT_EQ(none, '?');
}

}  // namespace
