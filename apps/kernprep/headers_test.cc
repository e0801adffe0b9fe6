#include "headers.h"

#include <gtest/gtest.h>

#include "productHostInt.h"
#include "widgetTestInt.h"

using producthost::Product;
using widgettest::FindButton;
using widgettest::GetChild;

namespace kernprep {
namespace {

constexpr char kNotFound[] =
    "C header files matching your running kernel were not found.  Refer to your distribution's documentation "
    "for "
    "installation instructions.";
constexpr char kUsersTree[] = "/home/me/linux/include";
constexpr char kOtherTree[] = "/home/me/other/include";

class HeadersTest : public testing::Test {
 protected:
  void Start(const Product &product) {
    testhost::Host host = producthost::Describe(product);
    producthost::AddHeaderTree(host, kUsersTree, producthost::kRelease);
    producthost::AddHeaderTree(host, kOtherTree, "6.1.99-other");
    host.Enter();
    running_.emplace();
  }

  std::optional<producthost::Running> running_;
};

TEST_F(HeadersTest, CarriesTheKernelsReleaseInItsTitle) {
  Start({});
  Headers panel;
  EXPECT_EQ(GetChild<Gtk::Label>(panel, 0)->get_label(), "<b>_Kernel Headers 6.1.99-test</b>");
  EXPECT_EQ(GetChild<Gtk::Label>(panel, 0)->get_mnemonic_keyval(), static_cast<unsigned>(GDK_k));
}

TEST_F(HeadersTest, IsFilledInAtOnce) {
  Start({});
  Headers panel;
  EXPECT_EQ(panel.GetPath(), producthost::kHeaderDir);
  EXPECT_TRUE(panel.IsValid());
  EXPECT_EQ(panel.GetError(), "");
  EXPECT_FALSE(panel.get_visible());
  EXPECT_EQ(panel.GetDefaultPath(), "/usr/src");
}

TEST_F(HeadersTest, FailsAtOnceWhereThereAreNone) {
  Start({.headers = false});
  Headers panel;
  EXPECT_EQ(panel.GetPath(), "");
  EXPECT_FALSE(panel.IsValid());
  EXPECT_EQ(panel.GetError(), kNotFound);
}

TEST_F(HeadersTest, JudgesEachPath) {
  Start({.headers = false});
  Headers panel;
  panel.SetPath(kUsersTree);
  EXPECT_TRUE(panel.IsValid());
  EXPECT_EQ(panel.GetError(), "");
  panel.SetPath(kOtherTree);
  EXPECT_FALSE(panel.IsValid());
  EXPECT_EQ(panel.GetError(), kNotFound);
}

TEST_F(HeadersTest, HoldsTheVerdictOfTheLastChange) {
  Start({.headers = false});
  Headers panel;
  panel.SetPath(kUsersTree);
  testhost::Run(std::string("rm -r ") + kUsersTree);
  EXPECT_TRUE(panel.IsValid());
  panel.OnPathChanged();
  EXPECT_FALSE(panel.IsValid());
}

TEST_F(HeadersTest, KeepsAndJudgesTheUsersPathWhenTheSearchFindsNothing) {
  Start({.headers = false});
  Headers panel;
  panel.SetPath(kUsersTree);
  panel.SetError("not judged");
  FindButton(panel, "_Refresh")->clicked();
  EXPECT_EQ(panel.GetPath(), kUsersTree);
  EXPECT_TRUE(panel.IsValid());
  EXPECT_EQ(panel.GetError(), "");
}

TEST_F(HeadersTest, OverwritesTheUsersPathWhenTheSearchFindsATree) {
  Start({});
  Headers panel;
  panel.SetPath(kOtherTree);
  EXPECT_FALSE(panel.IsValid());
  FindButton(panel, "_Refresh")->clicked();
  EXPECT_EQ(panel.GetPath(), producthost::kHeaderDir);
  EXPECT_TRUE(panel.IsValid());
}

TEST_F(HeadersTest, DoesNotJudgeAPathThatTheSearchFindsAgain) {
  Start({});
  Headers panel;
  panel.SetError("not judged");
  FindButton(panel, "_Refresh")->clicked();
  EXPECT_EQ(panel.GetError(), "not judged");
}

TEST_F(HeadersTest, BrowsesForAFolder) {
  Start({.headers = false});
  Headers panel;
  panel.SetPath(kUsersTree);
  std::string folder;
  const widgettest::OnWindow chooser("Select Path", [&, chosen = false](Gtk::Window &window) mutable {
    auto &dialog = dynamic_cast<Gtk::FileChooserDialog &>(window);
    EXPECT_EQ(dialog.Gtk::FileChooser::get_action(), Gtk::FILE_CHOOSER_ACTION_SELECT_FOLDER);
    if (!chosen) {
      folder = dialog.get_current_folder();
      if (folder != kUsersTree) {
        return false;
      }
      dialog.set_filename(kOtherTree);
      chosen = true;
    }
    if (dialog.get_filename() != kOtherTree) {
      return false;
    }
    FindButton(*dialog.get_action_area(), "gtk-ok")->clicked();
    return true;
  });
  FindButton(panel, "_Browse...")->clicked();
  EXPECT_EQ(folder, kUsersTree);
  EXPECT_EQ(panel.GetPath(), kOtherTree);
  EXPECT_EQ(panel.GetError(), kNotFound);
}

}  // namespace
}  // namespace kernprep
