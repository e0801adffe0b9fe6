#include "productState.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "allocations.h"
#include "owned.h"

namespace {

constexpr uint32_t kAll = 31;

std::string Serialized(uint32_t mask = kAll) {
  const OwnedString text(ProductState_Serialize(mask));
  return text.get();
}

void SetSample() {
  ProductState_Set(6, "Setup", "2.1.13", 42, 1234567890123456789);
}

TEST(ProductState, IsEmptyWithDefaultsAtFirst) {
  EXPECT_EQ(ProductState_GetProduct(), 0U);
  EXPECT_STREQ(ProductState_GetName(), "Ostrel Tools");
  EXPECT_EQ(ProductState_GetBuildNumber(), unsigned{OST_BUILD_NUMBER});
  EXPECT_STREQ(ProductState_GetVersion(), OST_VERSION);
  EXPECT_EQ(ProductState_GetCapabilities(), 0U);
  EXPECT_FALSE(ProductState_IsProduct(~0U));
}

TEST(ProductState, KeepsWhatIsSet) {
  std::string name = "Setup";
  ProductState_Set(6, name.c_str(), "2.1.13", 42, 1234567890123456789);
  name = "other";
  EXPECT_EQ(ProductState_GetProduct(), 6U);
  EXPECT_STREQ(ProductState_GetName(), "Setup");
  EXPECT_STREQ(ProductState_GetVersion(), "2.1.13");
  EXPECT_EQ(ProductState_GetBuildNumber(), 42U);
  EXPECT_EQ(ProductState_GetCapabilities(), 1234567890123456789U);
}

TEST(ProductState, IsOfTheKindsOfItsMask) {
  SetSample();
  EXPECT_TRUE(ProductState_IsProduct(2));
  EXPECT_TRUE(ProductState_IsProduct(4 | 1));
  EXPECT_FALSE(ProductState_IsProduct(1 | 8));
  EXPECT_FALSE(ProductState_IsProduct(0));
}

TEST(ProductState, TextsThatAreNotSetHaveTheirDefaults) {
  ProductState_Set(1, nullptr, nullptr, 0, 0);
  EXPECT_STREQ(ProductState_GetName(), "Ostrel Tools");
  EXPECT_STREQ(ProductState_GetVersion(), OST_VERSION);
  EXPECT_EQ(ProductState_GetBuildNumber(), 0U);
}

TEST(ProductState, MayBeSetToItsOwnTexts) {
  SetSample();
  ProductState_Set(1, ProductState_GetVersion(), ProductState_GetName(), 1, 1);
  EXPECT_STREQ(ProductState_GetName(), "2.1.13");
  EXPECT_STREQ(ProductState_GetVersion(), "Setup");
}

TEST(ProductState, ResetBringsTheDefaultsBack) {
  SetSample();
  ProductState_GetFullVersion();
  ProductState_GetRegistryPath();
  ProductState_Reset();
  EXPECT_EQ(Serialized(), "product=0;name=Ostrel Tools;version=" OST_VERSION ";buildnumber=" +
                              std::to_string(OST_BUILD_NUMBER) + ";capabilities=0;");
  ProductState_Reset();
}

TEST(ProductState, TextsThatAreMadeAreKeptUntilReset) {
  SetSample();
  const char *build = ProductState_GetBuildNumberString();
  const char *full = ProductState_GetFullVersion();
  const char *path = ProductState_GetRegistryPath();
  EXPECT_STREQ(build, "build-00042");
  EXPECT_STREQ(full, "2.1.13 build-00042");
  EXPECT_STREQ(path, "SOFTWARE\\Ostrel, Inc.\\Setup");
  ProductState_Set(1, "Other", "3.0.0", 1234567, 0);
  EXPECT_EQ(ProductState_GetBuildNumberString(), build);
  EXPECT_EQ(ProductState_GetFullVersion(), full);
  EXPECT_EQ(ProductState_GetRegistryPath(), path);
  ProductState_Reset();
  ProductState_Set(1, "Other", "3.0.0", 1234567, 0);
  EXPECT_STREQ(ProductState_GetBuildNumberString(), "build-1234567");
  EXPECT_STREQ(ProductState_GetFullVersion(), "3.0.0 build-1234567");
  EXPECT_STREQ(ProductState_GetRegistryPath(), "SOFTWARE\\Ostrel, Inc.\\Other");
}

TEST(ProductState, AnotherProductsRegistryPathIsNotKept) {
  const OwnedString path(ProductState_GetRegistryPathForProduct("Setup"));
  EXPECT_STREQ(path.get(), "SOFTWARE\\Ostrel, Inc.\\Setup");
  EXPECT_STREQ(ProductState_GetRegistryPath(), "SOFTWARE\\Ostrel, Inc.\\Ostrel Tools");
}

std::string Numbers() {
  unsigned numbers[3] = {};
  ProductState_GetVersionNumber(&numbers[0], &numbers[1], &numbers[2]);
  return std::to_string(numbers[0]) + "." + std::to_string(numbers[1]) + "." + std::to_string(numbers[2]);
}

TEST(ProductVersion, IsReadOnceAndKept) {
  ProductState_Set(0, nullptr, "12.3.456 beta", 0, 0);
  unsigned minor = 0;
  ProductState_GetVersionNumber(nullptr, &minor, nullptr);
  EXPECT_EQ(minor, 3U);
  ProductState_GetVersionNumber(nullptr, nullptr, nullptr);
  ProductState_Set(0, nullptr, "7.8.9", 0, 0);
  EXPECT_EQ(Numbers(), "12.3.456");
  ProductState_Reset();
  EXPECT_EQ(Numbers(), "12.3.456");
}

TEST(ProductVersion, IsTheBuildsByDefault) {
  EXPECT_EQ(Numbers(), OST_VERSION);
}

TEST(ProductVersion, IsTheBuildsInADevelopmentBuild) {
  ProductState_Set(0, nullptr, "e.x.p", 0, 0);
  EXPECT_EQ(Numbers(), OST_VERSION);
  EXPECT_STREQ(ProductState_GetVersion(), "e.x.p");
}

TEST(ProductVersion, ATextWithoutThreeNumbersStopsTheProgram) {
  for (const char *version : {"", "1.2", "1.2.x", "e.x.p.", "v1.2.3", "1,2,3"}) {
    ProductState_Set(0, nullptr, version, 0, 0);
    EXPECT_EXIT(Numbers(), ::testing::ExitedWithCode(255),
                "ASSERT lib/productState/productState\\.cc:[0-9]+\n")
        << version;
  }
}

TEST(ProductSerialized, HasTheItemsOfTheMask) {
  ProductState_Set(4294967295, "A#b;c=d", "1;2", 4294967295, 18446744073709551615U);
  EXPECT_EQ(Serialized(0), "");
  EXPECT_EQ(Serialized(1), "product=4294967295;");
  EXPECT_EQ(Serialized(2), "name=A#23b#3Bc=d;");
  EXPECT_EQ(Serialized(4), "version=1#3B2;");
  EXPECT_EQ(Serialized(8), "buildnumber=4294967295;");
  EXPECT_EQ(Serialized(16), "capabilities=18446744073709551615;");
  EXPECT_EQ(Serialized(1 | 4 | 16), "product=4294967295;version=1#3B2;capabilities=18446744073709551615;");
  EXPECT_EQ(Serialized(~kAll), "");
}

TEST(ProductSerialized, ComesBack) {
  ProductState_Set(6, "A#b;c=d %s \u00E9\n", "1;2", 42, 18446744073709551615U);
  const std::string text = Serialized();
  ProductState_Reset();
  EXPECT_EQ(ProductState_Deserialize(text.c_str()), kAll);
  EXPECT_EQ(Serialized(), text);
  EXPECT_STREQ(ProductState_GetName(), "A#b;c=d %s \u00E9\n");
}

TEST(ProductDeserialized, LeavesWhatIsNotNamedAsItWas) {
  SetSample();
  EXPECT_EQ(ProductState_Deserialize("name=A#3Bb;junk;"), 2U);
  EXPECT_EQ(Serialized(),
            "product=6;name=A#3Bb;version=2.1.13;buildnumber=42;capabilities=1234567890123456789;");
  EXPECT_STREQ(ProductState_GetName(), "A;b");
}

TEST(ProductDeserialized, KnowsEachKey) {
  SetSample();
  EXPECT_EQ(ProductState_Deserialize("product=1"), 1U);
  EXPECT_EQ(ProductState_Deserialize(";;version=9.9.9;"), 4U);
  EXPECT_EQ(ProductState_Deserialize("buildnumber=7;"), 8U);
  EXPECT_EQ(ProductState_Deserialize("capabilities=18446744073709551615;"), 16U);
  EXPECT_EQ(Serialized(),
            "product=1;name=Setup;version=9.9.9;buildnumber=7;capabilities=18446744073709551615;");
}

TEST(ProductDeserialized, SkipsWhatItCannotRead) {
  SetSample();
  const std::string before = Serialized();
  for (const char *text : {"",
                           ";",
                           "=",
                           "junk",
                           "name",
                           "name=",
                           "=name",
                           "Name=x",
                           " name=x",
                           "name =x",
                           "product=",
                           "product=x",
                           "product=1x",
                           "product= 1",
                           "product=1 ",
                           "product=-1",
                           "product=+1",
                           "product=0x1",
                           "product=4294967296",
                           "buildnumber=4294967296",
                           "buildnumber=1.5",
                           "product=1#00",
                           "capabilities=18446744073709551616",
                           "capabilities=-1",
                           "unknown=1"}) {
    EXPECT_EQ(ProductState_Deserialize(text), 0U) << text;
    EXPECT_EQ(Serialized(), before) << text;
  }
}

TEST(ProductDeserialized, NumbersAreDecimalAndMayBeEscaped) {
  EXPECT_EQ(ProductState_Deserialize("product=010;buildnumber=#312;"), 9U);
  EXPECT_EQ(ProductState_GetProduct(), 10U);
  EXPECT_EQ(ProductState_GetBuildNumber(), 12U);
}

TEST(ProductDeserialized, SplitsAtTheFirstEqualSignAndTakesTheLastOfTwo) {
  EXPECT_EQ(ProductState_Deserialize("name=a=b;version=1;version=x=;product=7;product=z"), 7U);
  EXPECT_STREQ(ProductState_GetName(), "a=b");
  EXPECT_STREQ(ProductState_GetVersion(), "x=");
  EXPECT_EQ(ProductState_GetProduct(), 7U);
}

TEST(ProductDeserialized, KeepsEscapesThatAreNone) {
  EXPECT_EQ(ProductState_Deserialize("name=a#;version=#zz#41"), 6U);
  EXPECT_STREQ(ProductState_GetName(), "a#");
  EXPECT_STREQ(ProductState_GetVersion(), "#zzA");
}

TEST(ProductDeserialized, TakesLongTexts) {
  const std::string name(1000000, 'n');
  EXPECT_EQ(ProductState_Deserialize(("name=" + name + ";" + std::string(1000000, ';')).c_str()), 2U);
  EXPECT_EQ(ProductState_GetName(), name);
}

// Without memory there is no half of a record.
TEST(ProductState, MemoryThatIsOutStopsTheProgram) {
  const auto use = [] {
    ProductState_Deserialize("name=x;version=1.2.3;");
    free(ProductState_Serialize(kAll));
  };
  const size_t count = testhost::CountAllocations(use);
  ASSERT_GT(count, 0U);
  for (size_t i = 0; i < count; i++) {
    EXPECT_EXIT(
        {
          const testhost::AllocationFault fault(i);
          use();
        },
        ::testing::ExitedWithCode(255),
        "lib/(productState/productState|misc/strutil|misc/util_misc|misc/dynbuf).*\\.cc:[0-9]+")
        << i;
  }
}

}  // namespace
