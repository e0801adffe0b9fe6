#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <optional>

#include "product.h"
#include "windows.h"

using testhost::ReadFile;
using testhost::WriteFile;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

namespace e2e {
namespace {

constexpr char kQuestion[] = "dialog Question";
constexpr char kTypedCompiler[] = "/opt/cc";
constexpr char kHeaders[] = "/lib/modules/6.1.0-host/build/include";
constexpr char kTree[] = "/lib/modules/6.1.0-host/build";
constexpr char kOtherTree[] = "/opt/h";
constexpr char kOtherHeaders[] = "/opt/h/include";

// A host whose product has one module, which is missing and can be built from source.
class WindowTest : public testing::Test {
 protected:
  void Enter() {
    testhost::Host host;
    kernel_.Describe(host);
    host.Enter();
    product_.emplace();
    product_->Module("ostlink").Source("ostlink").Service(kWaitForProgress).Write();
    desktop_.emplace();
  }

  // As Enter, and a pre-built copy fits the kernel.
  void EnterPrebuilt() {
    kernel_.hostCompiler = "";
    kernel_.headers = false;
    Enter();
    product_->Set("host", Product::PerfectProperties(kernel_), {"ostlink"});
  }

  testing::AssertionResult IsWindowUp() {
    return desktop_->WaitForWindow(kWindowTitle) ? testing::AssertionSuccess()
                                                 : testing::AssertionFailure() << "the window doesn't come";
  }

  void Press(const std::string &keys) { desktop_->display.Keys(kWindowTitle, keys); }
  // At the window's lower right corner stands the Install button, and Cancel beside it.
  void ClickAtButtons(int fromRight) {
    const Size size = SettledSize();
    desktop_->display.Click(kWindowTitle, size.width - fromRight, size.height - 25);
  }
  void ClickCancel() { ClickAtButtons(150); }
  void ClickInstall() { ClickAtButtons(40); }
  // The way to the Install button from the field of the only panel, whose title has the mnemonic.
  void InstallBehind(const std::string &mnemonic) { Press("alt+" + mnemonic + " shift+Tab Return"); }
  // In the panel whose title has the mnemonic.
  void Type(const std::string &mnemonic, const std::string &text) {
    Press("alt+" + mnemonic + " ctrl+a");
    desktop_->display.Type(kWindowTitle, text);
  }
  void Refresh(const std::string &mnemonic) { Press("alt+" + mnemonic + " Tab Tab space"); }

  // The window's size when it no longer changes.
  static Size SettledSize() {
    Size size;
    int rounds = 0;
    Eventually([&] {
      const Size now = WindowSize(kWindowTitle);
      rounds = now.width == size.width && now.height == size.height ? rounds + 1 : 0;
      size = now;
      return rounds == 5;
    });
    return size;
  }

  void WriteCompiler(const std::string &path, const std::string &version) {
    WriteFile(path,
              "#!/bin/sh\n[ \"$1\" = -dumpversion ] && { echo " + version +
                  "; exit; }\nexec /usr/bin/gcc-12 \"$@\"\n",
              0755);
  }

  // A header tree of the running kernel.
  void WriteHeaders(const std::string &tree) {
    const std::string include = tree + "/include";
    WriteFile(tree + "/Makefile", "");
    WriteFile(tree + "/.config", "");
    WriteFile(include + "/linux/version.h", "#define LINUX_VERSION_CODE 393472\n");
    WriteFile(include + "/generated/utsrelease.h", "#define UTS_RELEASE \"" + kernel_.release + "\"\n");
    WriteFile(include + "/generated/autoconf.h", "#define CONFIG_SMP 1\n");
  }

  // How often no compiler was found by a plain name.
  static size_t CountSearches(const Tool &tool) {
    const std::string log = tool.Log();
    const std::string line = "| Searching for GCC ";
    size_t count = 0;
    for (size_t place = log.find(line); place != std::string::npos; place = log.find(line, place + 1)) {
      count++;
    }
    return count;
  }

  bool IsInstalled() const { return ReadFile(kernel_.ModulePath("ostlink")) == "object\n"; }

  std::vector<std::string> Seen() { return desktop_->history.Seen(); }

  Kernel kernel_;
  std::optional<Product> product_;
  std::optional<Desktop> desktop_;
};

TEST_F(WindowTest, EndsAsTheUserLeavesIt) {
  Enter();
  struct Way {
    const char *name;
    std::function<void()> leave;
    int status;
  };
  const std::vector<Way> ways = {
      {"Escape", [this] { Press("Escape"); }, 2},
      {"the close button", [this] { desktop_->display.CloseWindow(kWindowTitle); }, 2},
      {"Cancel by Tab", [this] { Press("Tab Return"); }, 5},
      {"Cancel by Shift and Tab", [this] { Press("shift+Tab space"); }, 5},
      {"Cancel by its mnemonic", [this] { Press("alt+c"); }, 5},
      {"a click on Cancel", [this] { ClickCancel(); }, 5},
  };
  const std::string journal = ReadFile(kJournal);
  for (const Way &way : ways) {
    Tool tool({}, kUser);
    ASSERT_TRUE(IsWindowUp());
    way.leave();
    EXPECT_EQ(tool.Wait(), way.status) << way.name;
  }
  EXPECT_EQ(Seen(), std::vector<std::string>(ways.size(), kWindow));
  EXPECT_EQ(ReadFile(kJournal), journal);
  EXPECT_EQ(PrivilegeCalls(), "");
  EXPECT_THAT(ServiceCalls(), IsEmpty());
}

TEST_F(WindowTest, InstallsAtAClick) {
  Enter();
  Tool tool({}, kUser);
  ASSERT_TRUE(IsWindowUp());
  ClickInstall();
  EXPECT_EQ(tool.Wait(), 0);
  EXPECT_TRUE(IsInstalled());
}

TEST_F(WindowTest, HasItsWidthFromWhatIsToBeDone) {
  Enter();
  {
    Tool tool({}, kUser);
    ASSERT_TRUE(IsWindowUp());
    EXPECT_EQ(WindowSize(kWindowTitle).width, 501);  // the default and the one pixel of the first resize
  }
  ASSERT_TRUE(desktop_->display.WaitForNoWindow(kWindowTitle));
  product_->Set("host", Product::PerfectProperties(kernel_), {"ostlink"});
  Tool tool({}, kUser);
  ASSERT_TRUE(IsWindowUp());
  EXPECT_EQ(WindowSize(kWindowTitle).width, 326);
}

TEST_F(WindowTest, WearsTheIconOfTheProduct) {
  Enter();
  ASSERT_EQ(testhost::Run("mkdir -p /usr/share/icons/hicolor/48x48/apps && cd /usr/share/icons/hicolor && "
                          "convert -size 48x48 xc:red 48x48/apps/product.png && "
                          "{ gtk-update-icon-cache -f . || rm -f icon-theme.cache; } >/dev/null 2>&1"),
            0);
  Tool tool({}, kUser);
  ASSERT_TRUE(IsWindowUp());
  std::string icon;
  testhost::Run(std::string("xprop -name '") + kWindowTitle + "' _NET_WM_ICON", &icon);
  EXPECT_THAT(icon, HasSubstr("Icon (48 x 48)"));
}

TEST_F(WindowTest, AsksForNothingWhenAllIsPrebuilt) {
  EnterPrebuilt();
  Tool tool({"--gcc=/no/such/gcc", "--headers=/no/such/headers"}, kUser);
  ASSERT_TRUE(IsWindowUp());
  Press("Return");
  EXPECT_EQ(tool.Wait(), 0) << tool.Output();
  EXPECT_EQ(ReadFile(kernel_.ModulePath("ostlink")), "prebuilt ostlink\n");
  EXPECT_THAT(Seen(), ElementsAre(kWindow, kProgress));
}

TEST_F(WindowTest, TakesACompilerThatTheUserTypes) {
  kernel_.hostCompiler = "";
  Enter();
  Tool tool({}, kUser);
  ASSERT_TRUE(IsWindowUp());
  InstallBehind("g");
  ASSERT_TRUE(desktop_->Answer("Error", "Return"));
  EXPECT_EQ(PrivilegeCalls(), "");
  Type("g", kTypedCompiler);
  // It finds nothing, so that the text stays. By then the last name is looked for.
  const size_t searches = CountSearches(tool);
  Refresh("g");
  ASSERT_TRUE(Eventually([&] { return CountSearches(tool) > searches; })) << tool.Log();
  WriteCompiler(kTypedCompiler, "12.2.1");
  // The headers are judged with the engine's own compiler.
  WriteCompiler("/testhost/bin/kgcc", "12.2.0");
  InstallBehind("g");
  EXPECT_EQ(tool.Wait(), 0) << tool.Output();
  EXPECT_TRUE(IsInstalled());
  EXPECT_THAT(PrivilegeCalls(), HasSubstr(" --gcc='/opt/cc' "));
  EXPECT_THAT(Seen(), ElementsAre(kWindow, kBox, kProgress));
}

TEST_F(WindowTest, FindsACompilerAtRefresh) {
  kernel_.hostCompiler = "";
  Enter();
  Tool tool({"--gcc=/no/such/gcc"}, kUser);
  ASSERT_TRUE(IsWindowUp());
  Type("g", "x");
  WriteCompiler("/testhost/bin/gcc", "12.2.0");
  Refresh("g");
  InstallBehind("g");
  EXPECT_EQ(tool.Wait(), 0) << tool.Output();
  EXPECT_TRUE(IsInstalled());
  EXPECT_THAT(PrivilegeCalls(), HasSubstr(" --gcc='/testhost/bin/gcc' "));
  EXPECT_THAT(Seen(), ElementsAre(kWindow, kProgress));
}

TEST_F(WindowTest, HasTheFocusOnInstallWhateverItShows) {
  kernel_.hostCompiler = "";
  Enter();
  Tool tool({}, kUser);
  ASSERT_TRUE(IsWindowUp());
  for (int i = 0; i < 2; i++) {
    Press("Return");
    ASSERT_TRUE(desktop_->Answer("Error", "Return"));
  }
  Press("shift+Tab Return");
  EXPECT_EQ(tool.Wait(), 5);
  EXPECT_THAT(Seen(), ElementsAre(kWindow, kBox, kBox));
}

TEST_F(WindowTest, GoesOnWhenTheHeadersHaveCome) {
  kernel_.headers = false;
  Enter();
  Tool tool({}, kUser);
  ASSERT_TRUE(IsWindowUp());
  for (int i = 0; i < 2; i++) {
    InstallBehind("k");
    ASSERT_TRUE(desktop_->Answer("Error", "Return"));
  }
  EXPECT_EQ(PrivilegeCalls(), "");
  WriteHeaders(kTree);
  InstallBehind("k");
  EXPECT_EQ(tool.Wait(), 0) << tool.Output();
  EXPECT_TRUE(IsInstalled());
  EXPECT_THAT(PrivilegeCalls(), HasSubstr(std::string(" --headers='") + kHeaders + "' "));
  EXPECT_THAT(Seen(), ElementsAre(kWindow, kBox, kBox, kProgress));
}

TEST_F(WindowTest, TakesHeadersThatTheUserTypes) {
  kernel_.headers = false;
  Enter();
  WriteHeaders(kOtherTree);
  Tool tool({}, kUser);
  ASSERT_TRUE(IsWindowUp());
  Type("k", kOtherHeaders);
  InstallBehind("k");
  EXPECT_EQ(tool.Wait(), 0) << tool.Output();
  EXPECT_TRUE(IsInstalled());
  EXPECT_THAT(PrivilegeCalls(), HasSubstr(std::string(" --headers='") + kOtherHeaders + "' "));
  EXPECT_THAT(Seen(), ElementsAre(kWindow, kProgress));
}

TEST_F(WindowTest, PrefersTheHeadersThatItFindsToThoseItIsGiven) {
  Enter();
  WriteHeaders(kOtherTree);
  Tool tool({std::string("--headers=") + kOtherHeaders}, kUser);
  ASSERT_TRUE(IsWindowUp());
  Press("Return");
  EXPECT_EQ(tool.Wait(), 0) << tool.Output();
  EXPECT_THAT(PrivilegeCalls(), HasSubstr(std::string(" --headers='") + kHeaders + "' "));
}

TEST_F(WindowTest, TakesTheHeadersItIsGivenWhereItFindsNone) {
  kernel_.headers = false;
  Enter();
  WriteHeaders(kOtherTree);
  Tool tool({std::string("--headers=") + kOtherHeaders}, kUser);
  ASSERT_TRUE(IsWindowUp());
  Press("Return");
  EXPECT_EQ(tool.Wait(), 0) << tool.Output();
  EXPECT_THAT(PrivilegeCalls(), HasSubstr(std::string(" --headers='") + kOtherHeaders + "' "));
  EXPECT_THAT(Seen(), ElementsAre(kWindow, kProgress));
}

TEST_F(WindowTest, AsksOnceWhetherAnotherMinorVersionWillDo) {
  kernel_.hostCompiler = "12.3.0";
  Enter();
  Tool tool({}, kUser);
  ASSERT_TRUE(IsWindowUp());
  EXPECT_THAT(Seen(), ElementsAre(kWindow));
  const int height = SettledSize().height;
  Press("Return");
  ASSERT_TRUE(desktop_->Answer("Question", "Escape"));
  EXPECT_TRUE(Eventually([&] { return WindowSize(kWindowTitle).height > height; })) << "no panel appears";
  EXPECT_EQ(PrivilegeCalls(), "");
  InstallBehind("g");
  ASSERT_TRUE(desktop_->Answer("Question", "Return"));
  EXPECT_EQ(tool.Wait(), 0) << tool.Output();
  EXPECT_TRUE(IsInstalled());
  EXPECT_THAT(PrivilegeCalls(), EndsWith(" --gcc-ignore-minor \n"));
  EXPECT_THAT(Seen(), ElementsAre(kWindow, kQuestion, kQuestion, kProgress));
}

TEST_F(WindowTest, DoesNotAskWhenToldToIgnoreTheMinorVersion) {
  kernel_.hostCompiler = "12.3.0";
  Enter();
  Tool tool({"--gcc-ignore-minor"}, kUser);
  ASSERT_TRUE(IsWindowUp());
  Press("Return");
  EXPECT_EQ(tool.Wait(), 0) << tool.Output();
  EXPECT_THAT(PrivilegeCalls(), EndsWith(" --gcc-ignore-minor \n"));
  EXPECT_THAT(Seen(), ElementsAre(kWindow, kProgress));
}

TEST_F(WindowTest, RefusesAnotherMajorVersionWhateverItIsTold) {
  kernel_.hostCompiler = "11.2.0";
  Enter();
  Tool tool({"--gcc-ignore-minor"}, kUser);
  ASSERT_TRUE(IsWindowUp());
  InstallBehind("g");
  ASSERT_TRUE(desktop_->Answer("Error", "Return"));
  Press("Escape");
  EXPECT_EQ(tool.Wait(), 2);
  EXPECT_EQ(PrivilegeCalls(), "");
  EXPECT_THAT(Seen(), ElementsAre(kWindow, kBox));
}

TEST_F(WindowTest, StopsWhenTheKernelDoesNotTellItsCompiler) {
  kernel_.compiler = "";
  Enter();
  for (const uid_t user : {uid_t{0}, kUser}) {
    Tool tool({}, user);
    EXPECT_EQ(tool.Wait(), 255);
    EXPECT_THAT(tool.Output(), ContainsRegex("\nASSERT apps/kernprep/kernprep\\.cc:[0-9]+\n"));
    EXPECT_THAT(tool.Log(), ContainsRegex("\\| ASSERT apps/kernprep/kernprep\\.cc:[0-9]+\n"));
    EXPECT_THAT(tool.Log(), HasSubstr("| Backtrace:\n"));
  }
  EXPECT_THAT(Seen(), IsEmpty());
  EXPECT_THAT(ServiceCalls(), IsEmpty());
}

TEST_F(WindowTest, NeedsNoCompilerOfTheKernelWhenAllIsPrebuilt) {
  kernel_.compiler = "";
  EnterPrebuilt();
  Tool tool;
  EXPECT_EQ(tool.Wait(), 0) << tool.Output();
  EXPECT_THAT(Seen(), ElementsAre(kProgress));
}

TEST_F(WindowTest, ComesForRootOnlyBehindTheErrorBox) {
  kernel_.headers = false;
  Enter();
  Tool tool;
  ASSERT_TRUE(desktop_->display.WaitForWindow("Error"));
  EXPECT_THAT(Seen(), ElementsAre(kBox));
  ASSERT_TRUE(desktop_->Answer("Error", "Return"));
  ASSERT_TRUE(IsWindowUp());
  WriteHeaders(kTree);
  InstallBehind("k");
  EXPECT_EQ(tool.Wait(), 0) << tool.Output();
  EXPECT_TRUE(IsInstalled());
  EXPECT_THAT(Seen(), ElementsAre(kBox, kWindow, kProgress));
  EXPECT_EQ(PrivilegeCalls(), "");
}

TEST_F(WindowTest, LetsRootLeaveAsAnOrdinaryUser) {
  kernel_.headers = false;
  Enter();
  const std::vector<std::pair<const char *, int>> ways = {{"Escape", 2}, {"alt+c", 5}};
  for (const auto &[keys, status] : ways) {
    Tool tool;
    ASSERT_TRUE(desktop_->Answer("Error", "Return"));
    ASSERT_TRUE(IsWindowUp());
    Press(keys);
    EXPECT_EQ(tool.Wait(), status) << keys;
  }
  EXPECT_THAT(Seen(), ElementsAre(kBox, kWindow, kBox, kWindow));
  EXPECT_THAT(ServiceCalls(), IsEmpty());
}

TEST_F(WindowTest, NeverComesWhenRootsRunSucceeds) {
  Enter();
  Tool tool;
  EXPECT_EQ(tool.Wait(), 0) << tool.Output();
  EXPECT_TRUE(IsInstalled());
  EXPECT_THAT(Seen(), ElementsAre(kProgress));
  EXPECT_THAT(ServiceCalls(), ElementsAre("stop", "start"));
}

TEST_F(WindowTest, ComesBackAfterEachFailureAndTriesAnew) {
  Enter();
  product_->Source("ostlink", "exit 1");
  Tool tool;
  ASSERT_TRUE(desktop_->Answer("Error", "Return"));
  ASSERT_TRUE(IsWindowUp());
  EXPECT_TRUE(tool.Running());
  Press("Return");
  ASSERT_TRUE(desktop_->Answer("Error", "Return"));
  ASSERT_TRUE(IsWindowUp());
  product_->Source("ostlink");
  Press("Return");
  EXPECT_EQ(tool.Wait(), 0) << tool.Output();
  EXPECT_TRUE(IsInstalled());
  EXPECT_THAT(ServiceCalls(), ElementsAre("stop", "stop", "stop", "start"));
  // The window was away each time while the progress window stood.
  EXPECT_THAT(Seen(), ElementsAre(kProgress, kBox, kWindow, kProgress, kBox, kWindow, kProgress));
}

TEST_F(WindowTest, NeverComesWhenRootCancelsTheProgressWindow) {
  Enter();
  product_->Source("ostlink", "touch /run/building\nexec sleep 600");
  const std::vector<std::function<void()>> ways = {[this] { Press("Return"); }, [this] { Press("Escape"); },
                                                   [this] { desktop_->display.CloseWindow(kWindowTitle); }};
  for (const auto &cancel : ways) {
    std::filesystem::remove("/run/building");
    Tool tool;
    ASSERT_TRUE(Eventually([] { return std::filesystem::exists("/run/building"); }));
    ASSERT_TRUE(IsWindowUp());
    cancel();
    EXPECT_EQ(tool.Wait(), 5) << tool.Output();
  }
  EXPECT_EQ(Seen(), std::vector<std::string>(ways.size(), kProgress));
  EXPECT_EQ(ServiceCalls(), std::vector<std::string>(ways.size(), "stop"));
}

TEST_F(WindowTest, EndsWhenThePrivilegeToolIsNotThere) {
  Enter();
  std::filesystem::remove(std::string(kBinDir) + "/ostrel-gksu");
  Tool tool({}, kUser);
  ASSERT_TRUE(IsWindowUp());
  Press("Return");
  ASSERT_TRUE(desktop_->Answer("Error", "Return"));
  EXPECT_EQ(tool.Wait(), 2);
  EXPECT_THAT(tool.Log(), HasSubstr(std::string("| Relaunching with ") + kBinDir + "/ostrel-gksu '"));
  EXPECT_THAT(Seen(), ElementsAre(kWindow, kBox));
}

}  // namespace
}  // namespace e2e
