#include "gcc.h"

#include <gtest/gtest.h>

#include "productHostInt.h"
#include "widgetTestInt.h"

using producthost::Product;
using widgettest::FindAll;
using widgettest::FindButton;
using widgettest::GetChild;

namespace kernprep {
namespace {

constexpr char kNotFound[] =
    "GCC was not found.  Refer to your distribution's documentation for installation instructions.";
constexpr char kOtherMajor[] = "This major version of GCC is not compatible.";

class GccTest : public testing::Test {
 protected:
  // Compilers of other versions lie beside the path, where no search finds them.
  void Start(const Product &product) {
    testhost::Host host = producthost::Describe(product);
    for (const char *version : {"12.2.1", "12.3.0", "12.4.0", "11.2.0"}) {
      host.File(std::string("/opt/compilers/") + version,
                "#!/bin/sh\n" + producthost::GetCompilerScript(version), 0755);
    }
    host.Enter();
    running_.emplace();
  }

  std::optional<producthost::Running> running_;
};

Glib::ustring GetTitle(GCC &panel) {
  return GetChild<Gtk::Label>(panel, 0)->get_label();
}

// How often the compiler on the path was asked for its version.
size_t CountQuestions() {
  return testhost::Calls("gcc").size();
}

std::string FindGcc() {
  return OwnedString(KernPrep_FindCompiler()).get();
}

TEST_F(GccTest, CarriesTheKernelsCompilerVersionInItsTitle) {
  Start({.kernelCompiler = "4.1.2"});
  GCC panel;
  EXPECT_EQ(GetTitle(panel), "<b>_GCC 4.1.2</b>");
  EXPECT_EQ(GetChild<Gtk::Label>(panel, 0)->get_mnemonic_keyval(), static_cast<unsigned>(GDK_g));
}

TEST_F(GccTest, HasATitleWithATrailingBlankWhenTheVersionIsUnknown) {
  Start({.kernelCompiler = ""});
  GCC panel;
  EXPECT_EQ(GetTitle(panel), "<b>_GCC </b>");
  EXPECT_EQ(panel.GetPath(), "");
  EXPECT_EQ(panel.GetError(), kNotFound);
}

TEST_F(GccTest, IsFilledInAtOnce) {
  Start({});
  GCC panel;
  EXPECT_EQ(panel.GetPath(), FindGcc());
  EXPECT_EQ(panel.GetError(), "");
  EXPECT_TRUE(panel.IsValid());
  EXPECT_FALSE(panel.get_visible());
  EXPECT_FALSE(panel.GetIgnoreMinor());
  EXPECT_EQ(panel.GetDefaultPath(), "/usr/bin");
}

TEST_F(GccTest, JudgesEachPath) {
  Start({});
  GCC panel;
  const struct {
    const char *path;
    const char *error;
    bool valid;
    unsigned check;
  } rows[] = {
      {"", kNotFound, false, 0},
      {"/no/such/gcc", kNotFound, false, 0},
      {"/etc/passwd", kNotFound, false, 0},
      {"/opt/compilers/11.2.0", kOtherMajor, false, 1},
      {"/opt/compilers/12.2.1", "", true, 2},
      {"/opt/compilers/12.3.0", "", false, 3},
  };
  for (const auto &row : rows) {
    panel.SetError("not judged");
    panel.SetPath(row.path);
    EXPECT_EQ(panel.GetError(), row.error) << row.path;
    EXPECT_EQ(panel.IsValid(), row.valid) << row.path;
    EXPECT_EQ(panel.CheckVersion(false), row.check) << row.path;
  }
}

TEST_F(GccTest, FindsNoCompilerFitWhenTheKernelsIsUnknown) {
  Start({.kernelCompiler = ""});
  GCC panel;
  panel.SetPath("/opt/compilers/12.2.1");
  EXPECT_EQ(panel.GetError(), kNotFound);
  EXPECT_EQ(panel.CheckVersion(true), 0U);
}

TEST_F(GccTest, KeepsAndJudgesTheUsersPathWhenTheSearchFindsNothing) {
  Start({.compiler = ""});
  GCC panel;
  EXPECT_EQ(panel.GetPath(), "");
  EXPECT_EQ(panel.GetError(), kNotFound);
  panel.SetPath("/opt/compilers/11.2.0");
  panel.SetError("not judged");
  FindButton(panel, "_Refresh")->clicked();
  EXPECT_EQ(panel.GetPath(), "/opt/compilers/11.2.0");
  EXPECT_EQ(panel.GetError(), kOtherMajor);
}

TEST_F(GccTest, OverwritesTheUsersPathWhenTheSearchFindsACompiler) {
  Start({});
  GCC panel;
  panel.SetPath("/opt/compilers/11.2.0");
  FindButton(panel, "_Refresh")->clicked();
  EXPECT_EQ(panel.GetPath(), FindGcc());
  EXPECT_EQ(panel.GetError(), "");
}

TEST_F(GccTest, DoesNotJudgeAPathThatTheSearchFindsAgain) {
  Start({});
  GCC panel;
  const size_t before = CountQuestions();
  panel.SetError("not judged");
  FindButton(panel, "_Refresh")->clicked();
  EXPECT_EQ(CountQuestions(), before + 1);  // the search's own
  EXPECT_EQ(panel.GetError(), "not judged");
}

TEST_F(GccTest, AsksTheEngineAnewEachTime) {
  Start({});
  GCC panel;
  const size_t before = CountQuestions();
  panel.IsValid();
  panel.IsValid();
  panel.CheckVersion(true);
  EXPECT_EQ(CountQuestions(), before + 3);
}

TEST_F(GccTest, LetsAnotherMinorVersionPassUnasked) {
  Start({});
  GCC panel;
  panel.SetPath("/opt/compilers/12.3.0");
  EXPECT_EQ(panel.CheckVersion(false), 3U);
  panel.SetIgnoreMinor(true);
  EXPECT_TRUE(panel.GetIgnoreMinor());
  EXPECT_EQ(panel.CheckVersion(true), 2U);
  EXPECT_EQ(panel.CheckVersion(false), 2U);
}

TEST_F(GccTest, RefusesAnotherMajorVersionWhateverTheFlag) {
  Start({});
  GCC panel;
  panel.SetPath("/opt/compilers/11.2.0");
  panel.SetIgnoreMinor(true);
  EXPECT_EQ(panel.CheckVersion(true), 1U);
}

// Answers the compiler question in the way told and returns CheckVersion's result.
unsigned Ask(GCC &panel, testhost::Display &display,
             const std::function<void(Gtk::MessageDialog &)> &answer) {
  const widgettest::OnWindow question("Question", [&](Gtk::Window &window) {
    if (!display.HasWindow("Question")) {
      return false;
    }
    answer(dynamic_cast<Gtk::MessageDialog &>(window));
    return true;
  });
  const unsigned result = panel.CheckVersion(true);
  EXPECT_TRUE(question.Seen());
  return result;
}

TEST_F(GccTest, AsksAboutAnotherMinorVersion) {
  Start({});
  GCC panel;
  panel.SetPath("/opt/compilers/12.3.0");
  Ask(panel, running_->desktop.display, [](Gtk::MessageDialog &dialog) {
    EXPECT_EQ(dialog.property_message_type().get_value(), Gtk::MESSAGE_QUESTION);
    EXPECT_EQ(
        dialog.property_text().get_value(),
        "Your kernel was compiled with gcc version 12.2.0 while the version located is 12.3.0.  Compiling "
        "kernel modules with this version is not recommended.\n\nWould you like to install anyway?");
    EXPECT_FALSE(dialog.property_use_markup().get_value());
    const std::vector<Gtk::Button *> buttons = FindAll<Gtk::Button>(*dialog.get_action_area());
    ASSERT_EQ(buttons.size(), 2U);
    Gtk::Button *cancel = FindButton(*dialog.get_action_area(), "gtk-cancel");
    Gtk::Button *install = FindButton(*dialog.get_action_area(), "_Install");
    ASSERT_NE(cancel, nullptr);
    ASSERT_NE(install, nullptr);
    EXPECT_EQ(widgettest::GetResponse(dialog, *cancel), -9);
    EXPECT_EQ(widgettest::GetResponse(dialog, *install), -8);
    EXPECT_EQ(widgettest::GetStockImage(*install), "gtk-ok");
    EXPECT_TRUE(install->has_default());
    cancel->clicked();
  });
}

TEST_F(GccTest, RemembersAYesForEveryLaterMinorVersion) {
  Start({});
  GCC panel;
  panel.SetPath("/opt/compilers/12.3.0");
  EXPECT_EQ(
      Ask(panel, running_->desktop.display,
          [](Gtk::MessageDialog &dialog) { FindButton(*dialog.get_action_area(), "_Install")->clicked(); }),
      3U);
  EXPECT_TRUE(panel.GetIgnoreMinor());
  EXPECT_EQ(panel.CheckVersion(true), 2U);
  panel.SetPath("/opt/compilers/12.4.0");
  EXPECT_EQ(panel.CheckVersion(true), 2U);
}

TEST_F(GccTest, TakesANoAsAFailureWithoutAnErrorText) {
  Start({});
  GCC panel;
  panel.SetPath("/opt/compilers/12.3.0");
  EXPECT_EQ(
      Ask(panel, running_->desktop.display,
          [](Gtk::MessageDialog &dialog) { FindButton(*dialog.get_action_area(), "gtk-cancel")->clicked(); }),
      1U);
  EXPECT_FALSE(panel.GetIgnoreMinor());
  EXPECT_EQ(panel.GetError(), "");
}

TEST_F(GccTest, TakesEscapeAsANo) {
  Start({});
  GCC panel;
  panel.SetPath("/opt/compilers/12.3.0");
  EXPECT_EQ(Ask(panel, running_->desktop.display,
                [this](Gtk::MessageDialog &) { running_->desktop.display.Keys("Question", "Escape"); }),
            1U);
  EXPECT_FALSE(panel.GetIgnoreMinor());
}

TEST_F(GccTest, TakesReturnAsAYes) {
  Start({});
  GCC panel;
  panel.SetPath("/opt/compilers/12.3.0");
  EXPECT_EQ(Ask(panel, running_->desktop.display,
                [this](Gtk::MessageDialog &) { running_->desktop.display.Keys("Question", "Return"); }),
            3U);
  EXPECT_TRUE(panel.GetIgnoreMinor());
}

// Where the chooser opens, and what it selects.
std::pair<std::string, Gtk::FileChooserAction> Browse(GCC &panel) {
  std::pair<std::string, Gtk::FileChooserAction> seen;
  const widgettest::OnWindow chooser("Select Path", [&, last = std::string()](Gtk::Window &window) mutable {
    auto &dialog = dynamic_cast<Gtk::FileChooserDialog &>(window);
    seen = {dialog.get_current_folder(), dialog.Gtk::FileChooser::get_action()};
    if (seen.first.empty() || seen.first != last) {
      last = seen.first;
      return false;
    }
    dialog.response(Gtk::RESPONSE_CANCEL);
    return true;
  });
  FindButton(panel, "_Browse...")->clicked();
  return seen;
}

TEST_F(GccTest, BrowsesForAFileBesideACompilerThatFits) {
  Start({});
  GCC panel;
  panel.SetPath("/opt/compilers/12.2.1");
  EXPECT_EQ(Browse(panel), std::pair(std::string("/opt/compilers"), Gtk::FILE_CHOOSER_ACTION_OPEN));
}

TEST_F(GccTest, BrowsesInTheDefaultPlaceWithAnotherMinorVersionEvenWhenAccepted) {
  Start({});
  GCC panel;
  panel.SetIgnoreMinor(true);
  panel.SetPath("/opt/compilers/12.3.0");
  EXPECT_EQ(Browse(panel).first, "/usr/bin");
}

}  // namespace
}  // namespace kernprep
