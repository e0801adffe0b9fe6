#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <optional>

#include "product.h"
#include "windows.h"

using testhost::ReadFile;
using testhost::WriteFile;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace e2e {
namespace {

constexpr char kCommand[] = "'/usr/lib/ostrel-tools/bin/launcher' --icon='product' --appname='Ostrel Bench'";
constexpr char kPrivilegeTool[] = "/usr/lib/ostrel-tools/bin/ostrel-gksu";
constexpr char kPathArguments[] =
    " --gcc='/testhost/bin/gcc' --headers='/lib/modules/6.1.0-host/build/include'";

// A host whose product has one module, which is missing and can be built from source.
class RelaunchTest : public testing::Test {
 protected:
  void Enter() {
    testhost::Host host;
    kernel_.Describe(host);
    host.Enter();
    product_.emplace();
    product_->Module("ostlink").Source("ostlink").Service(kWaitForProgress).Write();
    desktop_.emplace();
  }

  // Waits for an ordinary user's window and presses Install.
  void Install() {
    ASSERT_TRUE(desktop_->WaitForWindow(kWindowTitle));
    desktop_->display.Keys(kWindowTitle, "Return");
  }

  bool IsInstalled() const { return ReadFile(kernel_.ModulePath("ostlink")) == "object\n"; }

  Kernel kernel_;
  std::optional<Product> product_;
  std::optional<Desktop> desktop_;
};

// The words as a program sees them, each with its end.
std::string Arguments(const std::vector<std::string> &words) {
  std::string arguments;
  for (const std::string &word : words) {
    arguments += word + '\0';
  }
  return arguments;
}

// A launcher that records how it is called, and installs the module itself: the build would hand an awkward
// path of a compiler to a shell as it stands.
void WriteRecordingLauncher(const std::string &path, const std::string &module) {
  const std::string record = "for each; do printf '%s\\0' \"$each\"; done >/run/launcher-arguments\n";
  const std::string install = "install -D /dev/null " + module + "\n";
  WriteFile(path, "#!/bin/sh\n" + record + install + "exec ostrel-kernprep --launcher=\"$0\" \"$@\"\n", 0755);
}

// A privilege tool that waits for /run/go, as for a password, before it does its work.
void WriteHangingPrivilegeTool() {
  std::string tool = ReadFile(kPrivilegeTool);
  tool.insert(tool.rfind("exec "), "until test -e /run/go; do sleep 0.05; done\n");
  WriteFile(kPrivilegeTool, tool, 0755);
}

TEST_F(RelaunchTest, TakesAnOrdinaryUserFromInstallToInstalledModules) {
  Enter();
  const std::string before = ReadFile(kJournal);
  Tool tool({"--class=Other"}, kUser);
  Install();
  EXPECT_EQ(tool.Wait(), 0) << tool.Output();
  EXPECT_TRUE(IsInstalled());
  EXPECT_THAT(ServiceCalls(), ElementsAre("stop", "start"));
  EXPECT_THAT(desktop_->history.Seen(), ElementsAre(kWindow, kProgress));
  const std::string arguments = std::string(kCommand) + kPathArguments + "  ";
  EXPECT_EQ(PrivilegeCalls(), arguments + "\n");
  const std::vector<std::string> logs = tool.LogPaths();
  ASSERT_EQ(logs.size(), 2U);
  EXPECT_THAT(logs[0], StartsWith("/tmp/ostrel-person/setup-"));
  EXPECT_THAT(logs[1], StartsWith("/tmp/ostrel-root/setup-"));
  EXPECT_THAT(ReadFile(logs[0]),
              HasSubstr("| Relaunching with /usr/lib/ostrel-tools/bin/ostrel-gksu " + arguments + "\n"));
  const std::string journal = ReadFile(kJournal);
  ASSERT_THAT(journal, StartsWith(before));
  EXPECT_THAT(journal.substr(before.size()),
              ContainsRegex("^file /lib/modules/6\\.1\\.0-host/misc/ostlink\\.o [0-9]+\n"));
}

TEST_F(RelaunchTest, LeavesTheUsersScratchDirectoryBehind) {
  Enter();
  Tool tool({}, kUser);
  Install();
  EXPECT_EQ(tool.Wait(), 0) << tool.Output();
  EXPECT_TRUE(std::filesystem::is_directory("/tmp/ostrel-person/modules"));
  EXPECT_FALSE(std::filesystem::exists("/tmp/ostrel-root/modules"));
}

TEST_F(RelaunchTest, PassesNoPathsWhenAllIsPrebuilt) {
  Enter();
  product_->Set("host", Product::PerfectProperties(kernel_), {"ostlink"});
  Tool tool({"--gcc=/no/such/gcc", "--headers=/no/such/headers", "--gcc-ignore-minor"}, kUser);
  Install();
  EXPECT_EQ(tool.Wait(), 0) << tool.Output();
  // The flag means nothing where nothing is compiled, and the blanks of the two paths stay.
  EXPECT_EQ(PrivilegeCalls(), std::string(kCommand) + "    \n");
}

TEST_F(RelaunchTest, KeepsAwkwardTextsWhole) {
  Enter();
  const std::vector<std::string> names = {"it's a \"Bench\"",
                                          "$HOME `id` $(id) \\ \\n * ;&|<>#!~",
                                          "two\nlines\tand\rmore",
                                          "\xc3\x96st \xe2\x9c\x93 \xf0\x9f\x9a\x80",
                                          "' --gcc-ignore-minor '",
                                          "%s%n%d",
                                          "<b>&amp;</i>"};
  const std::string launcher = "/opt/a launcher's $HOME/\"start\"";
  const std::string compiler = "/opt/a compiler's \"$HOME\"/gcc";
  WriteRecordingLauncher(launcher, kernel_.ModulePath("ostlink"));
  WriteFile(compiler, "#!/bin/sh\necho 12.2.0\n", 0755);
  for (const std::string &name : names) {
    SCOPED_TRACE(name);
    std::filesystem::remove(kernel_.ModulePath("ostlink"));
    Tool tool =
        Tool::Bare({"--launcher=" + launcher, "--icon=an icon's", "--appname=" + name, "--gcc=" + compiler},
                   kUser, {"LC_ALL=C.UTF-8"});
    Install();
    ASSERT_EQ(tool.Wait(), 0) << tool.Output();
    EXPECT_EQ(ReadFile("/run/launcher-arguments"),
              Arguments({"--icon=an icon's", "--appname=" + name, "--gcc=" + compiler,
                         "--headers=/lib/modules/6.1.0-host/build/include"}));
  }
}

TEST_F(RelaunchTest, EndsAsThePrivilegeToolEnds) {
  Enter();
  WriteFile(kPrivilegeTool, "#!/bin/sh\nexit 77\n", 0755);
  Tool tool({}, kUser);
  Install();
  EXPECT_EQ(tool.Wait(), 77) << tool.Output();
  EXPECT_FALSE(IsInstalled());
  EXPECT_THAT(ServiceCalls(), IsEmpty());
  EXPECT_THAT(desktop_->history.Seen(), ElementsAre(kWindow));
}

TEST_F(RelaunchTest, LeavesTheScreenToAPrivilegeToolThatHangs) {
  Enter();
  WriteHangingPrivilegeTool();
  Tool tool({}, kUser);
  Install();
  ASSERT_TRUE(desktop_->display.WaitForNoWindow(kWindowTitle));
  EXPECT_EQ(tool.Wait(1), -1) << "it has all the time that its user needs";
  EXPECT_THAT(ReadFile("/proc/" + std::to_string(tool.Pid()) + "/cmdline"), HasSubstr(kPrivilegeTool))
      << "it has taken the window's process over";
  EXPECT_EQ(PrivilegeCalls(), std::string(kCommand) + kPathArguments + "  \n");
  EXPECT_THAT(ServiceCalls(), IsEmpty());
  EXPECT_FALSE(IsInstalled());
  WriteFile("/run/go", "");
  EXPECT_EQ(tool.Wait(), 0) << tool.Output();
  EXPECT_TRUE(IsInstalled());
  EXPECT_THAT(desktop_->history.Seen(), ElementsAre(kWindow, kProgress));
}

TEST_F(RelaunchTest, IsInNobodysWayWhileThePrivilegeToolHangs) {
  Enter();
  WriteHangingPrivilegeTool();
  Tool hanging({}, kUser);
  Install();
  ASSERT_TRUE(Eventually([] { return !PrivilegeCalls().empty(); }));
  Tool root;
  EXPECT_EQ(root.Wait(), 0) << root.Output();
  EXPECT_TRUE(IsInstalled());
  ASSERT_TRUE(hanging.Running());
  kill(hanging.Pid(), SIGTERM);
  EXPECT_EQ(hanging.Wait(), 128 + SIGTERM);
  EXPECT_THAT(ServiceCalls(), ElementsAre("stop", "start"));
}

TEST_F(RelaunchTest, WorksBesideAnotherWindow) {
  Enter();
  Tool first({}, kUser);
  ASSERT_TRUE(desktop_->WaitForWindow(kWindowTitle));
  Tool second({}, kUser);
  ASSERT_TRUE(Eventually([this] { return desktop_->history.Seen().size() == 2; }));
  Install();  // in the newest
  EXPECT_EQ(second.Wait(), 0) << second.Output();
  EXPECT_TRUE(IsInstalled());
  EXPECT_TRUE(first.Running());
  Install();
  EXPECT_EQ(first.Wait(), 0) << first.Output();
  // The second run as root found nothing left to do.
  EXPECT_THAT(ServiceCalls(), ElementsAre("stop", "start"));
  EXPECT_THAT(desktop_->history.Seen(), ElementsAre(kWindow, kWindow, kProgress));
}

// As root the path ends before the byte that is no text, and there is no compiler.
TEST_F(RelaunchTest, AsksRootForACompilerWhenItsPathIsNoUtf8) {
  Enter();
  WriteFile("/opt/\xff/gcc",
            "#!/bin/sh\n[ \"$1\" = -dumpversion ] && { echo 12.2.0; exit; }\nexec /usr/bin/gcc \"$@\"\n",
            0755);
  Tool tool({}, kUser, {"LC_ALL=C.UTF-8", std::string("PATH=/opt/\xff:") + getenv("PATH")});
  Install();
  ASSERT_TRUE(desktop_->Answer("Error", "Return"));
  ASSERT_TRUE(desktop_->Answer(kWindowTitle, "Escape"));
  EXPECT_EQ(tool.Wait(), 2) << tool.Output();
  EXPECT_THAT(PrivilegeCalls(), HasSubstr(" --gcc='/opt/\xff/gcc' "));
  EXPECT_FALSE(IsInstalled());
  EXPECT_THAT(ServiceCalls(), IsEmpty());
}

}  // namespace
}  // namespace e2e
