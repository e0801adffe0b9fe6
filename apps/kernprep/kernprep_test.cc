#include "kernprep.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <optional>

#include "productHostInt.h"
#include "widgetTestInt.h"

using producthost::Product;
using widgettest::FindAll;
using widgettest::FindButton;
using widgettest::GetChild;
using widgettest::GetChildren;
using widgettest::GetPacking;

namespace kernprep {
namespace {

constexpr char kTitle[] = "Ostrel Kernel Module Updater";
constexpr char kLauncher[] = "/opt/ostrel/bin/ostrel '--icon=ostrel' '--appname=Ostrel Workbench'";
constexpr char kGccInfo[] =
    "GNU C Compiler (gcc) version 12.2.0 was not found.  If you installed it in a non-default path you can "
    "specify "
    "the path below.  Otherwise refer to your distribution's documentation for installation instructors and "
    "click "
    "Refresh to search again in default locations.";
constexpr char kHeadersInfo[] =
    "Kernel headers for version 6.1.99-test were not found.  If you installed them in a non-default path you "
    "can "
    "specify the path below.  Otherwise refer to your distribution's documentation for installation "
    "instructions "
    "and click Refresh to search again in default locations.";
constexpr char kGccError[] =
    "GCC was not found.  Refer to your distribution's documentation for installation instructions.";
constexpr char kHeadersError[] =
    "C header files matching your running kernel were not found.  Refer to your distribution's documentation "
    "for "
    "installation instructions.";
constexpr char kUsersTree[] = "/home/me/linux/include";
constexpr char kOtherMinor[] = "/opt/compilers/12.3.0";
constexpr char kOtherMajor[] = "/opt/compilers/11.2.0";
constexpr char kRecord[] = "/tmp/record";
constexpr uid_t kUser = 1234;

testhost::Host DescribeHost(const Product &product) {
  testhost::Host host = producthost::Describe(product);
  for (const char *path : {kOtherMinor, kOtherMajor}) {
    host.File(path, "#!/bin/sh\n" + producthost::GetCompilerScript(Glib::path_get_basename(path)), 0755);
  }
  producthost::AddHeaderTree(host, kUsersTree, producthost::kRelease);
  return host;
}

// The window, with what a test looks at.
struct TestWindow {
  explicit TestWindow(Modules &modules, const char *gccPath = "", const char *headersPath = "",
                      bool ignoreMinor = false)
      : window(gccPath, headersPath, "Ostrel Workbench", kLauncher, ignoreMinor, modules),
        box(*GetChild<Gtk::VBox>(window, 0)),
        label(*GetChild<view::WrapLabel>(box, 0)),
        gcc(*GetChild<GCC>(box, 1)),
        headers(*GetChild<Headers>(box, 2)),
        buttons(*GetChild<Gtk::HButtonBox>(box, 3)) {}

  view::WrapLabel &GetInfo(Requirement &panel) { return *FindAll<view::WrapLabel>(panel).at(0); }
  Gtk::Entry &GetEntry(Requirement &panel) { return *FindAll<Gtk::Entry>(panel).at(0); }
  void Press(const char *button) { FindButton(buttons, button)->clicked(); }

  // Runs the main loop with a press in it.
  void PressAndRun(const char *button) {
    Glib::signal_timeout().connect(
        [this, button] {
          Press(button);
          return false;
        },
        20);
    Gtk::Main::run();
  }

  KernPrep window;
  Gtk::VBox &box;
  view::WrapLabel &label;
  GCC &gcc;
  Headers &headers;
  Gtk::HButtonBox &buttons;
};

class KernPrepTest : public testing::Test {
 protected:
  void Start(const Product &product) {
    DescribeHost(product).Enter();
    running_.emplace();
  }

  TestWindow &Open(const char *gccPath = "", const char *headersPath = "", bool ignoreMinor = false) {
    return test_.emplace(running_->modules, gccPath, headersPath, ignoreMinor);
  }

  // A journal without the answer doesn't even open. The removal isn't written, since the journal is only
  // read.
  static void ForgetBinDir() {
    InstallerDB_RemoveAnswer("BINDIR");
    ASSERT_EQ(InstallerDB_GetBinDir(), nullptr);
  }

  std::optional<producthost::Running> running_;
  std::optional<TestWindow> test_;
};

TEST_F(KernPrepTest, StacksSentencePanelsAndButtons) {
  Start({});
  TestWindow &test = Open();
  EXPECT_FALSE(test.window.get_visible());
  EXPECT_EQ(test.window.get_title(), kTitle);
  EXPECT_EQ(test.window.get_border_width(), 10U);
  EXPECT_EQ(test.window.property_window_position().get_value(), Gtk::WIN_POS_CENTER);
  EXPECT_EQ(test.window.property_type().get_value(), Gtk::WINDOW_TOPLEVEL);
  EXPECT_TRUE(test.box.get_visible());
  EXPECT_FALSE(test.box.get_homogeneous());
  EXPECT_EQ(test.box.get_spacing(), 20);
  ASSERT_EQ(GetChildren(test.box).size(), 4U);
  EXPECT_TRUE(test.label.get_visible());
  EXPECT_EQ(GetPacking(test.label), widgettest::kShrink);
  EXPECT_EQ(GetPacking(test.gcc), widgettest::kExpandPadding);
  EXPECT_EQ(GetPacking(test.headers), widgettest::kExpandPadding);
  EXPECT_TRUE(test.buttons.get_visible());
  EXPECT_EQ(GetPacking(test.buttons), widgettest::kShrinkAtEnd);
}

TEST_F(KernPrepTest, HoldsAHiddenHelpCancelAndInstall) {
  Start({});
  TestWindow &test = Open();
  EXPECT_EQ(test.buttons.get_layout(), Gtk::BUTTONBOX_END);
  EXPECT_EQ(test.buttons.get_spacing(), 10);
  const std::vector<Gtk::Widget *> children = GetChildren(test.buttons);
  ASSERT_EQ(children.size(), 3U);
  Gtk::Button *help = FindButton(test.buttons, "gtk-help");
  Gtk::Button *cancel = FindButton(test.buttons, "gtk-cancel");
  Gtk::Button *install = FindButton(test.buttons, "_Install");
  EXPECT_EQ(children, (std::vector<Gtk::Widget *>{help, cancel, install}));
  for (Gtk::Widget *child : children) {
    EXPECT_EQ(GetPacking(*child), widgettest::kExpandWidget);
  }
  EXPECT_FALSE(help->get_visible());
  EXPECT_TRUE(test.buttons.get_child_secondary(*help));
  EXPECT_TRUE(cancel->get_visible());
  EXPECT_TRUE(cancel->get_use_stock());
  EXPECT_TRUE(install->get_visible());
  EXPECT_FALSE(install->get_use_underline());
  EXPECT_EQ(widgettest::GetStockImage(*install), "gtk-ok");
  EXPECT_EQ(test.window.get_focus(), install);

  test.window.show();
  EXPECT_TRUE(widgettest::SpinUntil([&] { return install->has_focus(); }, 10));
  EXPECT_FALSE(help->get_visible());
}

TEST_F(KernPrepTest, FocusesInstallBesideAPanelToo) {
  Start({.headers = false});
  TestWindow &test = Open();
  test.window.show();
  EXPECT_TRUE(test.headers.get_visible());
  EXPECT_TRUE(widgettest::SpinUntil([&] { return FindButton(test.buttons, "_Install")->has_focus(); }, 10));
}

TEST_F(KernPrepTest, HasAHelpButtonThatOpensThePage) {
  DescribeHost({})
      .Program("mozilla-firefox", "echo \"${THROUGHXDG-unmarked}\" > /tmp/asked")
      .NoProgram("konqueror")
      .Enter();
  running_.emplace();
  Open().Press("gtk-help");
  EXPECT_EQ(testhost::Calls("mozilla-firefox"),
            (std::vector<testhost::Call>{
                {"-remote", "openURL(file:/opt/ostrel/lib/help-manual/kp_install_linux.html, new-window)"}}));
  EXPECT_EQ(testhost::ReadFile("/tmp/asked"), "unmarked\n");
}

TEST_F(KernPrepTest, StaysUsableWithoutABrowserForTheHelp) {
  testhost::Host host = DescribeHost({});
  for (const char *name : {"mozilla-firefox", "firefox", "mozilla", "netscape", "galeon", "konqueror"}) {
    host.NoProgram(name);
  }
  host.Enter();
  running_.emplace();
  BoxUser user;
  TestWindow &test = Open();
  test.window.show();
  test.Press("gtk-help");
  ASSERT_EQ(user.seen.size(), 1U);
  EXPECT_NE(user.seen[0].text.find(" could not find a suitable default browser "), std::string::npos);
  EXPECT_EQ(user.seen[0].parent, nullptr);
  EXPECT_TRUE(test.window.is_visible());
  test.PressAndRun("gtk-cancel");
  EXPECT_EQ(test.window.GetResult(), ERROR_CANCELLED);
}

TEST_F(KernPrepTest, SaysThatModulesMustBeCompiled) {
  Start({});
  TestWindow &test = Open();
  EXPECT_EQ(
      test.label.get_text(),
      "Before you can run Ostrel Workbench, several modules must be compiled and loaded into the running "
      "kernel.");
  int width = 0;
  int height = 0;
  test.window.get_default_size(width, height);
  EXPECT_EQ(width, 500);
  EXPECT_EQ(height, -1);
}

TEST_F(KernPrepTest, KeepsThePanelsHiddenWithEverythingPrebuilt) {
  Start({.compiler = "", .headers = false, .prebuilt = true, .user = kUser});
  TestWindow &test = Open("/no/such/gcc", "/no/such/tree", true);
  EXPECT_EQ(test.label.get_text(),
            "Before you can run Ostrel Workbench, several pre-built modules must be loaded into the running "
            "kernel.");
  int width = 0;
  int height = 0;
  test.window.get_default_size(width, height);
  EXPECT_EQ(width, 325);
  EXPECT_EQ(height, -1);
  EXPECT_EQ(test.gcc.GetPath(), "");
  EXPECT_FALSE(test.gcc.GetIgnoreMinor());
  EXPECT_EQ(test.headers.GetPath(), "");
  test.window.show();
  widgettest::Settle();
  EXPECT_FALSE(test.gcc.get_visible());
  EXPECT_FALSE(test.headers.get_visible());
}

TEST_F(KernPrepTest, WidensByOnePixelAtRealization) {
  Start({.prebuilt = true});
  TestWindow &test = Open();
  test.window.show();
  int width = 0;
  int height = 0;
  EXPECT_TRUE(widgettest::SpinUntil(
      [&] {
        test.window.get_size(width, height);
        return width == 326;
      },
      10));
  widgettest::Settle();
  test.window.get_size(width, height);
  EXPECT_EQ(width, 326);
  EXPECT_EQ(height, test.window.size_request().height);
  EXPECT_EQ(test.label.get_width(), 306);
}

TEST_F(KernPrepTest, WidensAheadOfOtherHandlersOfItsRealization) {
  Start({.prebuilt = true});
  TestWindow &test = Open();
  int width = 0;
  int height = 0;
  test.window.signal_realize().connect([&] { test.window.get_size(width, height); }, false);
  test.window.show();
  EXPECT_EQ(width, 326);
}

TEST_F(KernPrepTest, TakesTheCommandLinesPaths) {
  Start({});
  TestWindow &test = Open(kOtherMinor, "", true);
  EXPECT_EQ(test.gcc.GetPath(), kOtherMinor);
  EXPECT_TRUE(test.gcc.GetIgnoreMinor());
  EXPECT_EQ(test.headers.GetPath(), producthost::kHeaderDir);
}

TEST_F(KernPrepTest, KeepsTheEnginesChoiceWhereTheCommandLineGivesNone) {
  Start({});
  TestWindow &test = Open();
  EXPECT_EQ(test.gcc.GetPath(), OwnedString(KernPrep_FindCompiler()).get());
  EXPECT_FALSE(test.gcc.GetIgnoreMinor());
}

TEST_F(KernPrepTest, OverwritesAHeaderPathWheneverTheSearchFindsATree) {
  Start({.user = kUser});
  TestWindow &test = Open("", kUsersTree);
  EXPECT_EQ(test.headers.GetPath(), producthost::kHeaderDir);
}

TEST_F(KernPrepTest, CountsTheUsersHeaderPathWhenTheSearchFindsNone) {
  Start({.headers = false});
  TestWindow &test = Open("", kUsersTree);
  EXPECT_EQ(test.headers.GetPath(), kUsersTree);
  EXPECT_TRUE(test.headers.IsValid());
  EXPECT_FALSE(test.headers.get_visible());
}

TEST_F(KernPrepTest, ShowsNoPanelWhileEverythingHolds) {
  Start({});
  TestWindow &test = Open();
  EXPECT_FALSE(test.gcc.get_visible());
  EXPECT_FALSE(test.headers.get_visible());
}

TEST_F(KernPrepTest, ShowsTheCompilerPanelInAdvanceAndWithoutABox) {
  Start({.compiler = "", .headers = false});
  const BoxUser user;
  TestWindow &test = Open();
  EXPECT_TRUE(test.gcc.get_visible());
  EXPECT_EQ(test.GetInfo(test.gcc).get_text(), kGccInfo);
  EXPECT_TRUE(test.GetInfo(test.gcc).get_visible());
  // The headers aren't looked at before the compiler holds.
  EXPECT_FALSE(test.headers.get_visible());
  widgettest::Settle();
  EXPECT_TRUE(user.seen.empty());
}

TEST_F(KernPrepTest, ShowsTheHeaderPanelInAdvance) {
  Start({.headers = false});
  const BoxUser user;
  TestWindow &test = Open();
  EXPECT_FALSE(test.gcc.get_visible());
  EXPECT_TRUE(test.headers.get_visible());
  EXPECT_EQ(test.GetInfo(test.headers).get_text(), kHeadersInfo);
  widgettest::Settle();
  EXPECT_TRUE(user.seen.empty());
}

TEST_F(KernPrepTest, LetsAnotherMinorVersionPassInAdvance) {
  Start({});
  const widgettest::OnWindow question("Question", [](Gtk::Window &) { return true; });
  TestWindow &test = Open(kOtherMinor);
  EXPECT_FALSE(test.gcc.get_visible());
  widgettest::Settle();
  EXPECT_FALSE(question.Seen());
}

TEST_F(KernPrepTest, ReportsAMissingCompilerInABoxOfItsOwn) {
  Start({.compiler = "", .user = kUser});
  BoxUser user;
  TestWindow &test = Open();
  test.window.show();
  test.Press("_Install");
  ASSERT_EQ(user.seen.size(), 1U);
  EXPECT_EQ(user.seen[0].text, kGccError);
  EXPECT_EQ(user.seen[0].parent, nullptr);
  EXPECT_TRUE(test.window.get_visible());
  EXPECT_EQ(test.window.GetResult(), ERROR_UNSET);
}

TEST_F(KernPrepTest, ReportsACompilerOfAnotherMajorVersion) {
  Start({.user = kUser});
  BoxUser user;
  TestWindow &test = Open();
  test.gcc.SetPath(kOtherMajor);
  test.Press("_Install");
  ASSERT_EQ(user.seen.size(), 1U);
  EXPECT_EQ(user.seen[0].text, "This major version of GCC is not compatible.");
  EXPECT_EQ(test.GetInfo(test.gcc).get_text(), kGccInfo);
  EXPECT_TRUE(test.gcc.get_visible());
}

TEST_F(KernPrepTest, ReportsMissingHeadersAboveTheWindow) {
  Start({.headers = false, .user = kUser});
  BoxUser user;
  TestWindow &test = Open();
  test.window.show();
  test.headers.SetPath("/no/such/tree");
  test.Press("_Install");
  ASSERT_EQ(user.seen.size(), 1U);
  EXPECT_EQ(user.seen[0].text, kHeadersError);
  EXPECT_EQ(user.seen[0].parent, test.window.Gtk::Window::gobj());
  EXPECT_TRUE(test.headers.get_visible());
  EXPECT_EQ(test.headers.GetPath(), "/no/such/tree");
}

TEST_F(KernPrepTest, EmptiesAPanelsTextAndKeepsThePanelOnceItHolds) {
  Start({.compiler = "", .headers = false, .user = kUser});
  BoxUser user;
  TestWindow &test = Open();
  EXPECT_TRUE(test.gcc.get_visible());
  test.gcc.SetPath(kOtherMajor);
  test.Press("_Install");
  test.gcc.SetPath(kOtherMinor);
  test.gcc.SetIgnoreMinor(true);
  test.Press("_Install");
  EXPECT_EQ(user.seen.size(), 2U);
  EXPECT_TRUE(test.gcc.get_visible());
  EXPECT_FALSE(test.GetInfo(test.gcc).get_visible());
  EXPECT_EQ(test.GetInfo(test.gcc).get_text(), "");
  EXPECT_TRUE(test.headers.get_visible());
}

// Answers the compiler question by a button.
widgettest::OnWindow *AnswerQuestion(const char *button) {
  return new widgettest::OnWindow("Question", [button](Gtk::Window &window) {
    FindButton(*dynamic_cast<Gtk::Dialog &>(window).get_action_area(), button)->clicked();
    return true;
  });
}

TEST_F(KernPrepTest, TakesANoAsAMissingCompilerWithoutABox) {
  Start({.user = kUser});
  const BoxUser user;
  TestWindow &test = Open(kOtherMinor);
  const std::unique_ptr<widgettest::OnWindow> question(AnswerQuestion("gtk-cancel"));
  test.Press("_Install");
  EXPECT_TRUE(question->Seen());
  EXPECT_TRUE(test.gcc.get_visible());
  EXPECT_EQ(test.GetInfo(test.gcc).get_text(), kGccInfo);
  EXPECT_TRUE(test.window.get_visible());
  widgettest::Settle();
  EXPECT_TRUE(user.seen.empty());
}

TEST_F(KernPrepTest, GoesOnToTheHeadersAfterAYes) {
  Start({.headers = false, .user = kUser});
  BoxUser user;
  TestWindow &test = Open(kOtherMinor);
  const std::unique_ptr<widgettest::OnWindow> question(AnswerQuestion("_Install"));
  test.Press("_Install");
  EXPECT_TRUE(question->Seen());
  EXPECT_TRUE(test.gcc.GetIgnoreMinor());
  ASSERT_EQ(user.seen.size(), 1U);
  EXPECT_EQ(user.seen[0].text, kHeadersError);
}

TEST_F(KernPrepTest, LeavesTheCompilerPathAloneWhereItOverwritesTheHeaderPath) {
  Start({.user = kUser});
  ForgetBinDir();
  BoxUser user;
  TestWindow &test = Open(kOtherMajor);
  test.headers.SetPath(kUsersTree);
  test.Press("_Install");
  EXPECT_EQ(test.gcc.GetPath(), kOtherMajor);
  EXPECT_EQ(test.headers.GetPath(), kUsersTree);
  test.gcc.SetPath(kOtherMinor);
  const std::unique_ptr<widgettest::OnWindow> question(AnswerQuestion("_Install"));
  test.Press("_Install");
  EXPECT_EQ(test.gcc.GetPath(), kOtherMinor);
  EXPECT_EQ(test.headers.GetPath(), producthost::kHeaderDir);
}

// Leaving

TEST_F(KernPrepTest, EndsWith5ByCancel) {
  Start({});
  TestWindow &test = Open();
  test.PressAndRun("gtk-cancel");
  EXPECT_EQ(test.window.GetResult(), ERROR_CANCELLED);
  EXPECT_EQ(static_cast<int>(test.window.GetResult()), 5);
}

TEST_F(KernPrepTest, EndsWith2ByEscape) {
  Start({});
  TestWindow &test = Open();
  test.window.show();
  const widgettest::OnWindow user(kTitle, [this](Gtk::Window &) {
    if (!running_->desktop.display.HasWindow(kTitle)) {
      return false;
    }
    running_->desktop.display.Keys(kTitle, "Escape");
    return true;
  });
  Gtk::Main::run();
  EXPECT_EQ(test.window.GetResult(), ERROR_REQUIREMENTS);
  EXPECT_EQ(static_cast<int>(test.window.GetResult()), 2);
}

TEST_F(KernPrepTest, EndsWith2ByClosingTheWindow) {
  Start({});
  TestWindow &test = Open();
  test.window.show();
  const widgettest::OnWindow user(kTitle, [this](Gtk::Window &) {
    if (!running_->desktop.display.HasWindow(kTitle)) {
      return false;
    }
    running_->desktop.display.CloseWindow(kTitle);
    return true;
  });
  Gtk::Main::run();
  EXPECT_EQ(test.window.GetResult(), ERROR_REQUIREMENTS);
  EXPECT_TRUE(test.window.get_visible());
}

TEST_F(KernPrepTest, LeavesOtherKeysToTheToolkit) {
  Start({.headers = false});
  TestWindow &test = Open();
  test.window.show();
  ASSERT_TRUE(widgettest::SpinUntil([this] { return running_->desktop.display.HasWindow(kTitle); }));
  test.GetEntry(test.headers).grab_focus();
  widgettest::Settle();
  running_->desktop.display.Type(kTitle, "/x");
  EXPECT_TRUE(widgettest::SpinUntil([&] { return test.headers.GetPath() == "/x"; }, 10));
  running_->desktop.display.Keys(kTitle, "Tab");
  EXPECT_TRUE(widgettest::SpinUntil([&] { return FindButton(test.headers, "_Browse...")->has_focus(); }, 10));
}

// As an ordinary user: the start as root

// What the privilege tool does: it writes down how many arguments it was given, and the first.
constexpr char kTool[] = "#!/bin/sh\nprintf '%s:%s' \"$#\" \"$1\" >/tmp/record\n";
constexpr char kToolPath[] = "/opt/ostrel/bin/ostrel-gksu";

class RelaunchTest : public testing::Test {
 protected:
  static testhost::Host Describe(const Product &product) {
    return DescribeHost(product).File(kToolPath, kTool, 0755);
  }
};

// How a process of its own ended.
struct Ended {
  int status;          // as exit status
  std::string errors;  // what it wrote to standard error
};

// Runs a part of a test in a process of its own, since it ends the process or replaces it.
Ended RunInChild(const std::function<void()> &body) {
  constexpr char kErrors[] = "/tmp/errors";
  const pid_t child = fork();
  if (child == 0) {
    const int errors = open(kErrors, O_CREAT | O_WRONLY | O_TRUNC, 0666);
    dup2(errors, STDERR_FILENO);
    body();
    _exit(99);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), testhost::ReadFile(kErrors)};
}

// Opens the window and presses Install, in a process whose place the privilege tool takes.
void InstallInChild(const std::function<void(TestWindow &)> &prepare, const char *gccPath = "",
                    bool ignoreMinor = false) {
  const Ended ended = RunInChild([&] {
    producthost::Running running;
    testhost::WriteFile("/tmp/log", Log_GetFileName());
    TestWindow test(running.modules, gccPath, "", ignoreMinor);
    prepare(test);
    test.Press("_Install");
  });
  EXPECT_EQ(ended.status, 0);
}

void Nothing(TestWindow & /*test*/) {}

TEST_F(RelaunchTest, GivesTheToolOneArgument) {
  Describe({.user = kUser}).Enter();
  InstallInChild([](TestWindow &test) { testhost::WriteFile("/tmp/gcc", test.gcc.GetPath()); });
  const std::string arguments = std::string(kLauncher) + " --gcc='" + testhost::ReadFile("/tmp/gcc") +
                                "' --headers='" + producthost::kHeaderDir + "'  ";
  EXPECT_EQ(testhost::ReadFile(kRecord), "1:" + arguments);
  EXPECT_NE(testhost::ReadFile(testhost::ReadFile("/tmp/log"))
                .find(std::string("Relaunching with ") + kToolPath + " " + arguments + "\n"),
            std::string::npos);
}

TEST_F(RelaunchTest, RunsTheToolUnderItsOwnName) {
  // The shell reports its first argument, which is no file, under the name that it was given.
  DescribeHost({.user = kUser}).SymLink(kToolPath, "/bin/dash").Enter();
  const Ended ended = RunInChild([] {
    producthost::Running running;
    TestWindow(running.modules).Press("_Install");
  });
  EXPECT_EQ(ended.status, 2);
  EXPECT_NE(ended.errors.find("ostrel-gksu: 0: cannot open /opt/ostrel/bin/ostrel '--icon=ostrel'"),
            std::string::npos)
      << ended.errors;
}

TEST_F(RelaunchTest, PassesTheFlagOn) {
  Describe({.user = kUser}).Enter();
  InstallInChild(Nothing, kOtherMinor, true);
  EXPECT_EQ(testhost::ReadFile(kRecord), std::string("1:") + kLauncher + " --gcc='" + kOtherMinor +
                                             "' --headers='" + producthost::kHeaderDir +
                                             "' --gcc-ignore-minor ");
}

TEST_F(RelaunchTest, PassesAYesOn) {
  Describe({.user = kUser}).Enter();
  // The answer waits for its question to the child's end.
  // cppcheck-suppress leakReturnValNotUsed
  InstallInChild([](TestWindow & /*test*/) { AnswerQuestion("_Install"); }, kOtherMinor);
  EXPECT_EQ(testhost::ReadFile(kRecord), std::string("1:") + kLauncher + " --gcc='" + kOtherMinor +
                                             "' --headers='" + producthost::kHeaderDir +
                                             "' --gcc-ignore-minor ");
}

TEST_F(RelaunchTest, QuotesPathsForAShell) {
  const std::string compiler = "/opt/my tools/it's $HOME/gcc";
  Describe({.user = kUser})
      .File(compiler, "#!/bin/sh\n" + producthost::GetCompilerScript("12.2.9"), 0755)
      .Enter();
  InstallInChild(Nothing, compiler.c_str());
  const std::string record = testhost::ReadFile(kRecord);
  EXPECT_NE(record.find(R"( --gcc='/opt/my tools/it'\''s $HOME/gcc' --headers=)"), std::string::npos)
      << record;
  // What a shell makes of it.
  std::string words;
  testhost::Run("set -- " + record.substr(2) + "; for word in \"$@\"; do echo \"[$word]\"; done", &words);
  EXPECT_EQ(words, "[/opt/ostrel/bin/ostrel]\n[--icon=ostrel]\n[--appname=Ostrel Workbench]\n[--gcc=" +
                       compiler + "]\n[--headers=" + producthost::kHeaderDir + "]\n");
}

TEST_F(RelaunchTest, LeavesThePathsOutWithEverythingPrebuilt) {
  Describe({.compiler = "", .headers = false, .prebuilt = true, .user = kUser}).Enter();
  InstallInChild(Nothing);
  EXPECT_EQ(testhost::ReadFile(kRecord), std::string("1:") + kLauncher + "    ");
}

TEST_F(RelaunchTest, KeepsTheFlagWithEverythingPrebuilt) {
  Describe({.prebuilt = true, .user = kUser}).Enter();
  InstallInChild([](TestWindow &test) { test.gcc.SetIgnoreMinor(true); });
  EXPECT_EQ(testhost::ReadFile(kRecord), std::string("1:") + kLauncher + "   --gcc-ignore-minor ");
}

TEST_F(KernPrepTest, StaysWithoutABinaryDirectory) {
  Start({.user = kUser});
  ForgetBinDir();
  const BoxUser user;
  TestWindow &test = Open();
  test.window.show();
  testing::internal::CaptureStderr();
  test.Press("_Install");
  EXPECT_NE(testing::internal::GetCapturedStderr().find("Unable to relaunch, BINDIR is not set.\n"),
            std::string::npos);
  EXPECT_TRUE(producthost::IsLogged("Unable to relaunch, BINDIR is not set.\n"));
  widgettest::Settle();
  EXPECT_TRUE(user.seen.empty());
  EXPECT_TRUE(test.window.get_visible());
  EXPECT_EQ(test.window.GetResult(), ERROR_UNSET);
}

TEST_F(KernPrepTest, EndsWith2WhenThePrivilegeToolCannotBeRun) {
  Start({.prebuilt = true, .user = kUser});
  const BoxUser user;
  TestWindow &test = Open();
  test.window.show();
  test.PressAndRun("_Install");
  EXPECT_EQ(test.window.GetResult(), ERROR_REQUIREMENTS);
  ASSERT_EQ(user.seen.size(), 1U);
  EXPECT_EQ(user.seen[0].text, "Unable to relaunch program with root access.");
  EXPECT_EQ(user.seen[0].parent, test.window.Gtk::Window::gobj());
  EXPECT_TRUE(producthost::IsLogged("Relaunching with /opt/ostrel/bin/ostrel-gksu "));
}

TEST_F(KernPrepTest, StopsWhenTheKernelDoesNotNameItsCompiler) {
  DescribeHost({.kernelCompiler = ""}).Enter();
  const Ended ended = RunInChild([] {
    producthost::Running running;
    const TestWindow test(running.modules);
  });
  EXPECT_EQ(ended.status, 255);
  EXPECT_NE(ended.errors.find("ASSERT apps/kernprep/kernprep.cc:"), std::string::npos) << ended.errors;
}

// As root: the work

class RootTest : public KernPrepTest {
 protected:
  // Every module has a copy; the init script does what is told.
  void StartPrebuilt(const std::string &script) {
    DescribeHost({.prebuilt = true})
        .File("/etc/init.d/ostrel-tools", "#!/bin/sh\necho $1 >>/tmp/services\n" + script + "\n", 0755)
        .Program("depmod")
        .Enter();
    running_.emplace();
  }

  static void Release() { testhost::WriteFile("/tmp/go", ""); }
};

// An init script that hangs until it is let go.
constexpr char kHang[] = "while [ ! -e /tmp/go ]; do sleep 0.05; done";

TEST_F(RootTest, EndsWith0WhenTheWorkIsDone) {
  StartPrebuilt("exit 0");
  TestWindow &test = Open();
  bool shown = false;
  test.window.signal_map().connect([&] { shown = true; });
  Glib::signal_idle().connect([&] {
    test.window.Run(false);
    return false;
  });
  Gtk::Main::run();
  EXPECT_EQ(test.window.GetResult(), ERROR_NONE);
  EXPECT_FALSE(shown);
  EXPECT_EQ(testhost::ReadFile("/tmp/services"), "stop\nstart\n");
  EXPECT_EQ(testhost::ReadFile("/lib/modules/6.1.99-test/misc/ostlink.o"), "object");
}

TEST_F(RootTest, HidesItselfWhileTheWorkRuns) {
  StartPrebuilt(kHang);
  TestWindow &test = Open();
  test.window.show();
  bool hidden = false;
  EachTurn([&] {
    auto *dialog = dynamic_cast<Gtk::Dialog *>(widgettest::FindWindow(kTitle));
    if (dialog == nullptr) {
      return true;
    }
    hidden = !test.window.get_visible();
    Release();
    return false;
  });
  test.PressAndRun("_Install");
  EXPECT_TRUE(hidden);
  EXPECT_EQ(test.window.GetResult(), ERROR_NONE);
}

TEST_F(RootTest, ComesBackAfterAFatalFailureAndTriesAgain) {
  StartPrebuilt("[ -e /tmp/go ]");
  BoxUser user;
  TestWindow &test = Open();
  test.Press("_Install");
  EXPECT_TRUE(test.window.get_visible());
  EXPECT_EQ(test.window.GetResult(), ERROR_UNSET);
  ASSERT_EQ(user.seen.size(), 1U);
  EXPECT_NE(user.seen[0].text.find("Unable to stop services."), std::string::npos);
  EXPECT_EQ(testhost::ReadFile("/tmp/services"), "stop\n");

  Release();
  test.PressAndRun("_Install");
  EXPECT_EQ(test.window.GetResult(), ERROR_NONE);
  EXPECT_EQ(testhost::ReadFile("/tmp/services"), "stop\nstop\nstart\n");
}

TEST_F(RootTest, ComesBackWithThePanelsAsTheyWere) {
  DescribeHost({.headers = false}).File("/etc/init.d/ostrel-tools", "#!/bin/sh\nexit 1\n", 0755).Enter();
  running_.emplace();
  BoxUser user;
  TestWindow &test = Open();
  ASSERT_TRUE(test.headers.get_visible());
  test.headers.SetPath(kUsersTree);
  test.Press("_Install");
  ASSERT_EQ(user.seen.size(), 1U);
  EXPECT_NE(user.seen[0].text.find("Unable to stop services."), std::string::npos);
  EXPECT_TRUE(test.window.get_visible());
  EXPECT_TRUE(test.headers.get_visible());
  EXPECT_EQ(test.headers.GetPath(), kUsersTree);
  // The check that passed took the text away.
  EXPECT_EQ(test.GetInfo(test.headers).get_text(), "");
  EXPECT_FALSE(test.GetInfo(test.headers).get_visible());
  EXPECT_FALSE(test.gcc.get_visible());
  EXPECT_FALSE(FindButton(test.buttons, "gtk-help")->get_visible());
}

// Waits for the progress window and does something to it.
void OnProgress(const std::function<void(Gtk::Dialog &)> &action) {
  EachTurn([action] {
    auto *dialog = dynamic_cast<Gtk::Dialog *>(widgettest::FindWindow(kTitle));
    if (dialog == nullptr) {
      return true;
    }
    action(*dialog);
    return false;
  });
}

TEST_F(RootTest, EndsWith5WhenTheProgressWindowIsCancelled) {
  StartPrebuilt(kHang);
  TestWindow &test = Open();
  OnProgress([](Gtk::Dialog &dialog) { FindButton(*dialog.get_action_area(), "gtk-cancel")->clicked(); });
  test.PressAndRun("_Install");
  EXPECT_EQ(test.window.GetResult(), ERROR_CANCELLED);
}

TEST_F(RootTest, EndsWith5WhenTheProgressWindowIsClosed) {
  StartPrebuilt(kHang);
  TestWindow &test = Open();
  EachTurn([this] {
    if (!running_->desktop.display.HasWindow(kTitle)) {
      return true;
    }
    running_->desktop.display.CloseWindow(kTitle);
    return false;
  });
  test.PressAndRun("_Install");
  EXPECT_EQ(test.window.GetResult(), ERROR_CANCELLED);
}

TEST_F(RootTest, StopsAtAnAnswerThatItDoesNotKnow) {
  DescribeHost({.prebuilt = true})
      .File("/etc/init.d/ostrel-tools", std::string("#!/bin/sh\n") + kHang + "\n", 0755)
      .Enter();
  const Ended ended = RunInChild([] {
    producthost::Running running;
    TestWindow test(running.modules);
    OnProgress([](Gtk::Dialog &dialog) { dialog.response(42); });
    test.Press("_Install");
  });
  EXPECT_EQ(ended.status, 255);
  EXPECT_NE(ended.errors.find("NOT_IMPLEMENTED apps/kernprep/kernprep.cc:"), std::string::npos)
      << ended.errors;
}

TEST_F(RootTest, ShowsAFailedRequirementsBoxBeforeTheWindow) {
  Start({.headers = false});
  TestWindow &test = Open();
  bool boxFirst = false;
  EachTurn([&] {
    const std::vector<GtkWindow *> boxes = VisibleWindows("Error");
    if (boxes.empty()) {
      return true;
    }
    boxFirst = !test.window.get_visible();
    gtk_dialog_response(GTK_DIALOG(boxes[0]), GTK_RESPONSE_OK);
    return false;
  });
  Glib::signal_idle().connect([&] {
    test.window.Run(false);
    return false;
  });
  EXPECT_TRUE(widgettest::SpinUntil([&] { return test.window.get_visible(); }));
  EXPECT_TRUE(boxFirst);
  EXPECT_TRUE(test.headers.get_visible());
  EXPECT_EQ(test.window.GetResult(), ERROR_UNSET);
}

}  // namespace
}  // namespace kernprep
