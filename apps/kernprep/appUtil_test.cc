#include "appUtil.h"

#include <gtest/gtest.h>

#include "testDesktop.h"

namespace kernprep {
namespace {

TEST(Format, FillsInTheArguments) {
  EXPECT_EQ(Format("--icon=%s", "'a b'"), "--icon='a b'");
  EXPECT_EQ(Format("%d of %u, 100%%", -3, 7U), "-3 of 7, 100%");
  EXPECT_EQ(Format("%s", ""), "");
}

TEST(Format, HasNoLimitOfLength) {
  const std::string text(100000, 'x');
  EXPECT_EQ(Format("%s!", text.c_str()), text + "!");
}

TEST(Format, KeepsUtf8) {
  EXPECT_EQ(Format("%s", "Kernmodul für Ostrel"), "Kernmodul für Ostrel");
}

TEST(ShowError, IsAModalErrorBoxWithOneOkButton) {
  testhost::Host host;
  host.Enter();
  TestDesktop desktop;
  BoxUser user;
  EXPECT_EQ(ShowError("No luck."), Gtk::RESPONSE_OK);
  ASSERT_EQ(user.seen.size(), 1U);
  EXPECT_EQ(user.seen[0].text, "No luck.");
  EXPECT_TRUE(user.seen[0].error);
  EXPECT_TRUE(user.seen[0].modal);
  EXPECT_TRUE(user.seen[0].oneOkButton);
  EXPECT_EQ(user.seen[0].parent, nullptr);
  EXPECT_TRUE(VisibleWindows("Error").empty());
}

TEST(ShowError, StandsOverItsParent) {
  testhost::Host host;
  host.Enter();
  TestDesktop desktop;
  BoxUser user;
  Gtk::Window parent;
  parent.show();
  EXPECT_EQ(ShowError("No luck.", parent), Gtk::RESPONSE_OK);
  ASSERT_EQ(user.seen.size(), 1U);
  EXPECT_EQ(user.seen[0].parent, parent.gobj());
}

TEST(ShowError, ReadsTheMessageAsMarkup) {
  testhost::Host host;
  host.Enter();
  TestDesktop desktop;
  BoxUser user;
  ShowError("<b>No</b> luck &amp; no hope.");
  ASSERT_EQ(user.seen.size(), 1U);
  EXPECT_EQ(user.seen[0].text, "No luck & no hope.");
}

TEST(ShowError, ShowsWhatIsNoMarkupAsItStands) {
  testhost::Host host;
  host.Enter();
  TestDesktop desktop;
  BoxUser user;
  ShowError("See R&D's <log>.");
  ASSERT_EQ(user.seen.size(), 1U);
  EXPECT_EQ(user.seen[0].text, "See R&D's <log>.");
}

TEST(ShowError, AnswersWithTheCloseOfTheWindow) {
  testhost::Host host;
  host.Enter();
  TestDesktop desktop;
  EachTurn([&] {
    if (!desktop.display.HasWindow("Error")) {
      return true;
    }
    desktop.display.CloseWindow("Error");
    return false;
  });
  EXPECT_EQ(ShowError("No luck."), Gtk::RESPONSE_DELETE_EVENT);
}

}  // namespace
}  // namespace kernprep
