#include "url.h"

#include <gmock/gmock-matchers.h>
#include <gtest/gtest.h>

#include <string>

#include "allocations.h"
#include "owned.h"

namespace {

std::string Get(int id, bool withAppends) {
  const OwnedString address(URL_Get(id, withAppends));
  return address == nullptr ? "none" : address.get();
}

constexpr char kInfo[] = "https://www.ostrel.example/info?id=";

TEST(UrlGet, AsksForTheRowByItsNumber) {
  EXPECT_EQ(Get(1, false), std::string(kInfo) + "1");
  EXPECT_EQ(Get(99, true), std::string(kInfo) + "99");
  EXPECT_EQ(Get(0, false), "none");
  EXPECT_EQ(Get(100, false), "none");
  EXPECT_EQ(Get(-1, false), "none");
}

TEST(UrlGet, TakesAppendsThatHaveAValue) {
  URL_SetAppend(1, "1.0.0-rc/2 \xc3\xa9");
  EXPECT_EQ(Get(7, true), std::string(kInfo) + "7&version=1%2e0%2e0%2drc%2f2%20%c3%a9");
  EXPECT_EQ(Get(7, false), std::string(kInfo) + "7");
  URL_SetAppend(2, "de");
  URL_SetAppend(0, "Tools");
  EXPECT_EQ(Get(7, true), std::string(kInfo) + "7&log=Tools&version=1%2e0%2e0%2drc%2f2%20%c3%a9&lang=de");
  URL_SetAppend(1, nullptr);
  URL_SetAppend(0, "");
  EXPECT_EQ(Get(7, true), std::string(kInfo) + "7&log=&lang=de");
}

TEST(UrlGet, TakesTheAppendsOfItsRowAlone) {
  URL_SetAppend(0, "Tools");
  URL_SetAppend(1, "1");
  URL_SetAppend(2, "de");
  EXPECT_EQ(Get(90, true), std::string(kInfo) + "90&log=Tools&version=1&lang=de");
  EXPECT_EQ(Get(91, true), std::string(kInfo) + "91&lang=de");
  // A redirect changes where the row leads, and not what goes with it.
  URL_SetRedirect(91, 5);
  EXPECT_EQ(Get(91, true), std::string(kInfo) + "5&lang=de");
}

TEST(UrlGet, CutsALongValueBehindAWholeCode) {
  const std::string start = std::string(kInfo) + "7&log=";
  URL_SetAppend(0, std::string(1023, 'x').c_str());
  EXPECT_EQ(Get(7, true), start + std::string(1023, 'x'));
  URL_SetAppend(0, std::string(1024, 'x').c_str());
  EXPECT_EQ(Get(7, true), start + std::string(1023, 'x'));
  URL_SetAppend(0, (std::string(1021, 'x') + "/").c_str());
  EXPECT_EQ(Get(7, true), start + std::string(1021, 'x'));
  URL_SetAppend(0, (std::string(1020, 'x') + "/").c_str());
  EXPECT_EQ(Get(7, true), start + std::string(1020, 'x') + "%2f");
}

TEST(UrlSetAppend, KeepsACopy) {
  std::string value = "one";
  URL_SetAppend(2, value.c_str());
  value = "two";
  EXPECT_EQ(Get(3, true), std::string(kInfo) + "3&lang=one");
}

TEST(UrlSetAppendDeathTest, StopsAtASlotThatIsNone) {
  EXPECT_EXIT(URL_SetAppend(3, "x"), testing::ExitedWithCode(255),
              testing::HasSubstr("ASSERT lib/misc/url.cc:"));
}

TEST(UrlSetAppendDeathTest, StopsWhenMemoryIsOut) {
  const auto setWithoutMemory = [] {
    const testhost::AllocationFault fault(0);
    URL_SetAppend(0, "x");
  };
  EXPECT_EXIT(setWithoutMemory(), testing::ExitedWithCode(255),
              testing::HasSubstr("Unrecoverable memory allocation failure at lib/misc/url.cc:"));
}

TEST(UrlSetRedirect, LeadsARowElsewhere) {
  URL_SetRedirect(5, 42);
  EXPECT_EQ(Get(5, false), std::string(kInfo) + "42");
  EXPECT_EQ(Get(42, false), std::string(kInfo) + "42");
  URL_SetRedirect(5, 1000);
  EXPECT_EQ(Get(5, false), std::string(kInfo) + "1000");
}

TEST(UrlSetRedirect, WarnsOfATargetOfNothing) {
  testing::internal::CaptureStderr();
  URL_SetRedirect(5, 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "URL_SetRedirect: Invalid target ID 0.\n");
  EXPECT_EQ(Get(5, false), std::string(kInfo) + "5");
}

TEST(UrlSetRedirect, WarnsOfAnUnknownId) {
  testing::internal::CaptureStderr();
  URL_SetRedirect(100, 5);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "URL_SetRedirect: ID 100 doesn't exist.\n");
}

TEST(UrlExit, ForgetsAppendsAndRedirects) {
  URL_SetAppend(0, "x");
  URL_SetRedirect(5, 6);
  URL_Exit();
  EXPECT_EQ(Get(5, true), std::string(kInfo) + "5");
  URL_Exit();
}

}  // namespace
