#include "requirement.h"

#include <gtest/gtest.h>

#include "contentBox.h"
#include "testDesktop.h"
#include "widgetTestInt.h"

using widgettest::FindAll;
using widgettest::FindButton;
using widgettest::GetChild;
using widgettest::GetChildren;
using widgettest::GetPacking;

namespace kernprep {
namespace {

constexpr char kNotText[] = "/opt/tool chest/\xff";
constexpr char kJapanese[] = "/opt/\xe9\x81\x93\xe5\x85\xb7";

// A panel that counts what is asked of it.
class CountingPanel : public Requirement {
 public:
  explicit CountingPanel(Gtk::FileChooserAction chooserAction = Gtk::FILE_CHOOSER_ACTION_OPEN)
      : Requirement("_Thing 1.0", chooserAction) {}

  bool IsValid() override { return valid; }
  void OnRefreshClicked() override { ++refreshes; }
  void OnPathChanged() override { ++changes; }
  Glib::ustring GetDefaultPath() override { return "/usr/share"; }

  bool valid = false;
  int refreshes = 0;
  int changes = 0;
};

class RequirementTest : public testing::Test {
 protected:
  void SetUp() override {
    testhost::Host host;
    host.File("/opt/tool chest/run", "").Directory("/opt/tool chest/parts");
    host.File(kNotText, "").Directory(kJapanese);
    host.Enter();
    desktop_.emplace();
  }

  std::optional<TestDesktop> desktop_;
};

Gtk::VBox *GetContent(Requirement &panel) {
  return GetChild<Gtk::VBox>(*GetChild<Gtk::HBox>(panel, 1), 1);
}

Gtk::HBox *GetRow(Requirement &panel) {
  return GetChild<Gtk::HBox>(*GetContent(panel), 1);
}

Gtk::Entry *GetEntry(Requirement &panel) {
  return FindAll<Gtk::Entry>(panel).at(0);
}

view::WrapLabel *GetInfo(Requirement &panel) {
  return FindAll<view::WrapLabel>(panel).at(0);
}

TEST_F(RequirementTest, HoldsATextAboveARowWithFieldAndButtons) {
  CountingPanel panel;
  EXPECT_FALSE(panel.get_visible());
  Gtk::VBox *content = GetContent(panel);
  ASSERT_NE(content, nullptr);
  EXPECT_TRUE(content->get_visible());
  EXPECT_FALSE(content->get_homogeneous());
  EXPECT_EQ(content->get_spacing(), 10);
  EXPECT_EQ(GetPacking(*content), widgettest::kExpandWidget);
  ASSERT_EQ(GetChildren(*content).size(), 2U);

  auto *text = GetChild<view::ContentBox>(*content, 0);
  ASSERT_NE(text, nullptr);
  EXPECT_TRUE(text->get_visible());
  EXPECT_EQ(GetPacking(*text), widgettest::kExpandWidget);
  auto *info = GetChild<view::WrapLabel>(*text, 0);
  ASSERT_NE(info, nullptr);
  EXPECT_TRUE(info->get_visible());
  EXPECT_EQ(info->get_text(), "");
  EXPECT_EQ(GetPacking(*info), widgettest::kExpandWidget);

  Gtk::HBox *row = GetRow(panel);
  ASSERT_NE(row, nullptr);
  EXPECT_TRUE(row->get_visible());
  EXPECT_FALSE(row->get_homogeneous());
  EXPECT_EQ(row->get_spacing(), 10);
  EXPECT_EQ(GetPacking(*row), widgettest::kExpandWidget);
  ASSERT_EQ(GetChildren(*row).size(), 4U);
}

TEST_F(RequirementTest, OffersALocationAndTwoButtonsWithPicturesAndPlainUnderscores) {
  CountingPanel panel;
  Gtk::HBox &row = *GetRow(panel);
  auto *location = GetChild<Gtk::Label>(row, 0);
  ASSERT_NE(location, nullptr);
  EXPECT_EQ(location->get_text(), "Location:");
  EXPECT_FALSE(location->get_use_underline());
  EXPECT_EQ(GetPacking(*location), widgettest::kShrink);
  auto *entry = GetChild<Gtk::Entry>(row, 1);
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(GetPacking(*entry), widgettest::kExpandWidget);
  auto *browse = GetChild<Gtk::Button>(row, 2);
  ASSERT_NE(browse, nullptr);
  EXPECT_EQ(browse->get_label(), "_Browse...");
  EXPECT_EQ(widgettest::GetStockImage(*browse), "gtk-directory");
  auto *refresh = GetChild<Gtk::Button>(row, 3);
  ASSERT_NE(refresh, nullptr);
  EXPECT_EQ(refresh->get_label(), "_Refresh");
  EXPECT_EQ(widgettest::GetStockImage(*refresh), "gtk-refresh");
  for (Gtk::Button *button : {browse, refresh}) {
    EXPECT_FALSE(button->get_use_underline());
    EXPECT_EQ(GetPacking(*button), widgettest::kShrink);
  }
  for (Gtk::Widget *widget : GetChildren(row)) {
    EXPECT_TRUE(widget->get_visible());
  }
}

TEST_F(RequirementTest, ReachesTheFieldByTheTitlesMnemonic) {
  CountingPanel panel;
  auto *title = GetChild<Gtk::Label>(panel, 0);
  EXPECT_EQ(title->get_text(), "Thing 1.0");
  EXPECT_EQ(title->get_mnemonic_widget(), GetEntry(panel));
}

TEST_F(RequirementTest, JudgesEachChangeOfThePathAndNoRepetition) {
  CountingPanel panel;
  EXPECT_EQ(panel.GetPath(), "");
  panel.SetPath("/a");
  EXPECT_EQ(panel.changes, 1);
  EXPECT_EQ(panel.GetPath(), "/a");
  panel.SetPath("/a");
  EXPECT_EQ(panel.changes, 1);
  GetEntry(panel)->set_text("");
  EXPECT_EQ(panel.GetPath(), "");
  EXPECT_EQ(panel.changes, 2);
}

TEST_F(RequirementTest, JudgesEachKeystroke) {
  Gtk::Window window;
  window.set_title("Typing");
  CountingPanel panel;
  window.add(panel);
  panel.show();
  window.show();
  GetEntry(panel)->grab_focus();
  ASSERT_TRUE(widgettest::SpinUntil([&] { return desktop_->display.HasWindow("Typing"); }));
  desktop_->display.Type("Typing", "abc");
  EXPECT_TRUE(widgettest::SpinUntil([&] { return panel.GetPath() == "abc"; }));
  EXPECT_EQ(panel.changes, 3);
}

TEST_F(RequirementTest, ShowsATextAndHidesAnEmptyOne) {
  CountingPanel panel;
  panel.SetInfo("Something is missing.");
  EXPECT_EQ(GetInfo(panel)->get_text(), "Something is missing.");
  EXPECT_TRUE(GetInfo(panel)->get_visible());
  panel.SetInfo("");
  EXPECT_EQ(GetInfo(panel)->get_text(), "");
  EXPECT_FALSE(GetInfo(panel)->get_visible());
  panel.SetInfo("Again.");
  EXPECT_TRUE(GetInfo(panel)->get_visible());
}

TEST_F(RequirementTest, KeepsTheTextOfTheLastFailure) {
  CountingPanel panel;
  EXPECT_EQ(panel.GetError(), "");
  panel.SetError("No luck.");
  EXPECT_EQ(panel.GetError(), "No luck.");
}

TEST_F(RequirementTest, RefreshesByItsButton) {
  CountingPanel panel;
  FindButton(panel, "_Refresh")->clicked();
  EXPECT_EQ(panel.refreshes, 1);
  EXPECT_EQ(panel.changes, 0);
}

// Presses Browse and leaves the chooser with Cancel once it stands in a folder.
void ExpectBrowseOpens(Requirement &panel, const std::string &folder) {
  std::string last;
  const widgettest::OnWindow chooser("Select Path", [&, tries = 0](Gtk::Window &window) mutable {
    auto &dialog = dynamic_cast<Gtk::FileChooserDialog &>(window);
    last = dialog.get_current_folder();
    if (last != folder && ++tries < 60) {
      return false;
    }
    dialog.response(Gtk::RESPONSE_CANCEL);
    return true;
  });
  FindButton(panel, "_Browse...")->clicked();
  EXPECT_TRUE(chooser.Seen());
  EXPECT_EQ(last, folder);
}

TEST_F(RequirementTest, BrowsesInTheDefaultPlaceWhileTheFieldIsNotValid) {
  CountingPanel panel;
  panel.SetPath("/opt/tool chest/parts");
  ExpectBrowseOpens(panel, "/usr/share");
}

TEST_F(RequirementTest, BrowsesInAValidDirectory) {
  CountingPanel panel(Gtk::FILE_CHOOSER_ACTION_SELECT_FOLDER);
  panel.valid = true;
  panel.SetPath("/opt/tool chest/parts");
  ExpectBrowseOpens(panel, "/opt/tool chest/parts");
}

TEST_F(RequirementTest, BrowsesInTheDirectoryThatWasJudgedWhateverTheEncodingOfNames) {
  Glib::setenv("G_FILENAME_ENCODING", "ISO-8859-1");
  CountingPanel panel(Gtk::FILE_CHOOSER_ACTION_SELECT_FOLDER);
  panel.valid = true;
  panel.SetPath(kJapanese);
  ExpectBrowseOpens(panel, kJapanese);
}

TEST_F(RequirementTest, BrowsesBesideAValidFile) {
  CountingPanel panel;
  panel.valid = true;
  panel.SetPath("/opt/tool chest/run");
  ExpectBrowseOpens(panel, "/opt/tool chest");
}

TEST_F(RequirementTest, LeavesThePathWhenTheChooserIsCancelled) {
  CountingPanel panel;
  panel.SetPath("/opt/tool chest/run");
  panel.changes = 0;
  ExpectBrowseOpens(panel, "/usr/share");
  EXPECT_EQ(panel.GetPath(), "/opt/tool chest/run");
  EXPECT_EQ(panel.changes, 0);
}

// Presses Browse, chooses a path and leaves the chooser with OK.
void Browse(Requirement &panel, const std::string &path, Gtk::FileChooserAction action) {
  const widgettest::OnWindow chooser("Select Path", [&, set = false](Gtk::Window &window) mutable {
    auto &dialog = dynamic_cast<Gtk::FileChooserDialog &>(window);
    EXPECT_EQ(dialog.Gtk::FileChooser::get_action(), action);
    if (!set) {
      dialog.set_filename(path);
      set = true;
    }
    if (dialog.get_filename() != path) {
      return false;
    }
    EXPECT_EQ(widgettest::GetResponse(dialog, *FindButton(*dialog.get_action_area(), "gtk-cancel")), -6);
    EXPECT_EQ(widgettest::GetResponse(dialog, *FindButton(*dialog.get_action_area(), "gtk-ok")), -5);
    FindButton(*dialog.get_action_area(), "gtk-ok")->clicked();
    return true;
  });
  FindButton(panel, "_Browse...")->clicked();
  EXPECT_TRUE(chooser.Seen());
}

TEST_F(RequirementTest, TakesTheChosenFile) {
  CountingPanel panel;
  Browse(panel, "/opt/tool chest/run", Gtk::FILE_CHOOSER_ACTION_OPEN);
  EXPECT_EQ(panel.GetPath(), "/opt/tool chest/run");
  EXPECT_EQ(panel.changes, 1);
}

TEST_F(RequirementTest, JudgesAChosenNameThatIsNoTextAsItIsShown) {
  CountingPanel panel;
  Browse(panel, kNotText, Gtk::FILE_CHOOSER_ACTION_OPEN);
  EXPECT_EQ(panel.GetPath(), Glib::filename_display_name(kNotText));
  EXPECT_EQ(panel.changes, 1);
}

TEST_F(RequirementTest, TakesTheChosenFolder) {
  CountingPanel panel(Gtk::FILE_CHOOSER_ACTION_SELECT_FOLDER);
  Browse(panel, "/opt/tool chest/parts", Gtk::FILE_CHOOSER_ACTION_SELECT_FOLDER);
  EXPECT_EQ(panel.GetPath(), "/opt/tool chest/parts");
  EXPECT_EQ(panel.changes, 1);
}

}  // namespace
}  // namespace kernprep
