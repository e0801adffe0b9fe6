#include "configured.h"

#include <gtest/gtest.h>

#include "testDesktop.h"

namespace {

TEST(CheckConfigured, GoesOnWithoutAWordWhenThereIsNoMarker) {
  testhost::Host().Enter();
  const kernprep::TestDesktop desktop;
  const kernprep::BoxUser user;
  EXPECT_EQ(CheckConfigured("Ostrel Bench", "product"), 0);
  EXPECT_TRUE(user.seen.empty());
  EXPECT_STREQ(gtk_window_get_default_icon_name(), "product");
  EXPECT_NE(gtk_icon_factory_lookup_default("ostrel-kernprep-pending"), nullptr);
}

TEST(CheckConfigured, TellsTheUserWhatToRunFirst) {
  testhost::Host host;
  host.File("/etc/ostrel-tools/not_configured", "").Enter();
  const kernprep::TestDesktop desktop;
  const kernprep::BoxUser user;
  EXPECT_EQ(CheckConfigured("Ostrel Bench", "product"), 1);
  ASSERT_EQ(user.seen.size(), 1U);
  EXPECT_EQ(user.seen[0].text, "You must first run ostrel-tools-config.pl before running Ostrel Bench.");
  EXPECT_EQ(user.seen[0].parent, nullptr);
}

TEST(CheckConfigured, TakesADirectoryForTheMarkerToo) {
  testhost::Host host;
  host.Directory("/etc/ostrel-tools/not_configured").Enter();
  const kernprep::TestDesktop desktop;
  const kernprep::BoxUser user;
  EXPECT_EQ(CheckConfigured("Ostrel Bench", "product"), 1);
  EXPECT_EQ(user.seen.size(), 1U);
}

}  // namespace
