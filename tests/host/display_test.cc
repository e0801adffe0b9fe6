#include "display.h"

#include <gtest/gtest.h>

#include "testhost.h"

namespace testhost {
namespace {

TEST(Display, ShowsAWindowAndPressesItsKeys) {
  Host host;
  host.Enter();
  Display display;
  std::string output;
  ASSERT_EQ(
      testhost::Run("xmessage -title 'A message' -buttons yes:3,no:4 -default no hello & echo $!", &output),
      0);
  ASSERT_TRUE(display.WaitForWindow("A message", 5));
  display.Keys("A message", "Return");
  EXPECT_TRUE(display.WaitForNoWindow("A message", 5));
}

}  // namespace
}  // namespace testhost
