#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <functional>
#include <optional>
#include <sstream>

#include "runTest.h"

using testhost::ReadFile;
using testhost::WriteFile;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

namespace e2e {
namespace {

constexpr char kClock[] = "/run/fast-clock.so";
constexpr char kGo[] = "/run/go";
constexpr char kScript[] = "/etc/ostrel-tools/init/ostrel-tools";

// Shell that says that it is under way, with processes below it, and stays.
constexpr char kStay[] =
    "(sleep 600; touch /run/late) & sh -c 'sleep 600 & sleep 600 & touch /run/busy; wait' & wait";
// Shell that says that it is under way and waits for leave to go on.
constexpr char kWaitForGo[] = "touch /run/busy; while test ! -e /run/go; do sleep 0.05; done";

// What /proc/<pid>/stat tells of a process behind its name: its state, its parent, its group.
struct Process {
  pid_t pid = -1;
  char state = '?';
  pid_t parent = -1;
  pid_t group = -1;
};

std::vector<Process> LiveProcesses() {
  std::vector<Process> processes;
  for (const pid_t pid : ProcessesWith("")) {
    const std::string stat = ReadFile("/proc/" + std::to_string(pid) + "/stat");
    const size_t name = stat.rfind(") ");
    if (name == std::string::npos) {
      continue;
    }
    Process process{.pid = pid};
    std::istringstream(stat.substr(name + 2)) >> process.state >> process.parent >> process.group;
    if (process.state != 'Z') {
      processes.push_back(process);
    }
  }
  return processes;
}

// The processes of a group that haven't ended.
std::vector<pid_t> MembersOf(pid_t group) {
  std::vector<pid_t> members;
  for (const Process &process : LiveProcesses()) {
    if (process.group == group) {
      members.push_back(process.pid);
    }
  }
  return members;
}

bool IsGroupGone(pid_t group) {
  return Eventually([group] { return MembersOf(group).empty(); });
}

// The task that a tool runs, which leads a group of its own; -1 when there is none.
pid_t TaskOf(pid_t tool) {
  for (const Process &process : LiveProcesses()) {
    if (process.parent == tool && process.group == process.pid) {
      return process.pid;
    }
  }
  return -1;
}

TEST_F(RunTest, InstallsAndCompilesWhatIsMissingAndNeverShowsTheWindow) {
  Enter();
  product_->Service(kWaitForProgress);
  product_->Set("host", Product::PerfectProperties(kernel_), {"ostlink", "ostpool"});
  product_->Module("ostlink").Source("ostlink");
  product_->Module(ModuleSpec{.name = "ostchan", .dependencies = {"ostlink"}});
  product_->Source("ostchan", "grep -q symbols Module.symvers");  // those of ostlink
  product_->Module(ModuleSpec{.name = "ostpool", .required = false, .key = "POOL"}).Answer("POOL", "yes");
  product_->Module(ModuleSpec{.name = "unwanted", .key = "NO_ANSWER"}).Write();
  journal_ = ReadFile(kJournal);
  Tool tool;
  EXPECT_EQ(tool.Wait(), 0) << tool.Output();
  EXPECT_TRUE(IsInstalled("ostlink", "prebuilt ostlink\n"));
  EXPECT_TRUE(IsInstalled("ostchan"));
  EXPECT_TRUE(IsInstalled("ostpool", "prebuilt ostpool\n"));
  struct stat info = {};
  ASSERT_EQ(stat(kernel_.ModulePath("ostchan").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777U, 0644U);
  EXPECT_EQ(Added(), LinesFor("ostlink") + LinesFor("ostchan") + LinesFor("ostpool"));
  EXPECT_EQ(testhost::Calls("depmod").size(), 3U);
  EXPECT_THAT(ServiceCalls(), ElementsAre("stop", "start"));
  EXPECT_THAT(Seen(), ElementsAre(kProgress));
  EXPECT_FALSE(Exists("/tmp/ostrel-root/modules"));
  EXPECT_FALSE(Exists(std::string(kJournal) + ".lck"));
  EXPECT_THAT(tool.Log(), HasSubstr("| Building module with command: "));
}

TEST_F(RunTest, LooksAtItsTasksEndsThoughItsCallerIgnoredItsOwn) {
  EnterWithModule();
  product_->Service("test $1 = stop");
  std::signal(SIGCHLD, SIG_IGN);
  Tool tool;
  std::signal(SIGCHLD, SIG_DFL);
  LeaveAfterBox(&tool);
  EXPECT_TRUE(IsInstalled("ostlink"));
  EXPECT_THAT(ServiceCalls(), ElementsAre("stop", "start"));
}

// Standard streams that the program's caller closes.
struct Closed {
  const char *name;
  const char *redirection;
};

void PrintTo(const Closed &closed, std::ostream *out) {
  *out << closed.name;
}

class StreamTest : public RunTest, public testing::WithParamInterface<Closed> {};

INSTANTIATE_TEST_SUITE_P(Streams, StreamTest,
                         testing::Values(Closed{"Input", "<&-"}, Closed{"Output", ">&-"},
                                         Closed{"Error", "2>&-"}, Closed{"All", "<&- >&- 2>&-"}),
                         [](const auto &closed) { return std::string(closed.param.name); });

TEST_P(StreamTest, RunsWithNothingInThePlaceOfTheStream) {
  EnterWithModule();
  product_->Service(
      "streams=$(readlink /proc/$$/fd/0 /proc/$$/fd/1 /proc/$$/fd/2); echo \"$streams\" >/run/streams");
  const std::string command = std::string("exec timeout 60 ostrel-kernprep --launcher=/bin/true ") +
                              "--icon=product --appname=Bench </dev/null >/dev/null 2>/dev/null ";
  EXPECT_EQ(testhost::Run(command + GetParam().redirection), 0);
  EXPECT_EQ(ReadFile("/run/streams"), "/dev/null\n/dev/null\n/dev/null\n");
  EXPECT_TRUE(IsInstalled("ostlink"));
  EXPECT_EQ(Added(), LinesFor("ostlink"));
  EXPECT_THAT(ServiceCalls(), ElementsAre("stop", "start"));
}

TEST_F(RunTest, HasNothingToDoAfterARunThatSucceeded) {
  EnterWithModule();
  product_->Service(kWaitForProgress);
  ASSERT_EQ(Tool().Wait(), 0);
  const std::string before = ReadFile(kJournal);
  Tool second;
  EXPECT_EQ(second.Wait(), 0);
  EXPECT_EQ(ReadFile(kJournal), before);
  EXPECT_THAT(ServiceCalls(), ElementsAre("stop", "start"));
  EXPECT_THAT(Seen(), ElementsAre(kProgress));
}

TEST_F(RunTest, EndsWhenTheServicesCannotBeStopped) {
  EnterWithModule();
  struct Case {
    const char *name;
    std::function<void()> spoil;
    bool isCalled;
    const char *logged;
  };
  const std::string cannotExecute = "| Unable to execute stop.  Error:\n";
  const std::vector<Case> cases = {
      {"fails", [this] { product_->Service("exit 3"); }, true, ""},
      {"kills itself", [this] { product_->Service("kill -KILL $$"); }, true, ""},
      {"kills its group", [this] { product_->Service("kill -KILL 0"); }, true, ""},
      {"isn't executable", [] { chmod(kScript, 0644); }, false, cannotExecute.c_str()},
      {"lacks its interpreter", [] { WriteFile(kScript, "#!/no/such/shell\n", 0755); }, false,
       cannotExecute.c_str()},
      {"is missing", [] { std::filesystem::remove(kScript); }, false, cannotExecute.c_str()},
      {"is a directory",
       [] {
         std::filesystem::remove(kScript);
         std::filesystem::create_directory(kScript);
       },
       false, cannotExecute.c_str()},
      {"is in no directory", [] { std::filesystem::remove_all(kInitDir); }, false, cannotExecute.c_str()},
  };
  for (const Case &each : cases) {
    SCOPED_TRACE(each.name);
    std::filesystem::remove_all(kScript);
    std::filesystem::remove(kServiceRecord);
    product_->Service("exit 0");
    each.spoil();
    Tool tool;
    LeaveAfterBox(&tool);
    EXPECT_THAT(tool.Log(), HasSubstr(each.logged));
    EXPECT_EQ(ServiceCalls(), std::vector<std::string>(each.isCalled ? 1 : 0, "stop"));
    ExpectNothingInstalled();
  }
}

TEST_F(RunTest, SucceedsAtTheSecondTryWhenTheServicesCanBeStopped) {
  EnterWithModule();
  product_->Service("exit 1");
  Tool tool;
  PassBox();
  product_->Service(kWaitForProgress);
  PressInstall();
  EXPECT_EQ(tool.Wait(), 0) << tool.Output();
  EXPECT_TRUE(IsInstalled("ostlink"));
  EXPECT_THAT(ServiceCalls(), ElementsAre("stop", "stop", "start"));
  EXPECT_THAT(Seen(), ElementsAre(kProgress, kBox, kWindow, kProgress));
}

TEST_F(RunTest, SucceedsAtTheSecondTryWhenTheSourceIsMended) {
  EnterWithModule();
  product_->Service(kWaitForProgress);
  const std::string tar = std::string(kLibDir) + "/modules/source/ostlink.tar";
  std::filesystem::resize_file(tar, 1030);  // in the makefile's text
  Tool tool;
  PassBox();
  EXPECT_THAT(tool.Log(), EndsWith("| Could not extract source for module ostlink!\n"));
  ExpectNothingInstalled();
  EXPECT_THAT(ServiceCalls(), ElementsAre("stop"));
  product_->Source("ostlink");
  PressInstall();
  EXPECT_EQ(tool.Wait(), 0) << tool.Output();
  EXPECT_TRUE(IsInstalled("ostlink"));
  EXPECT_EQ(Added(), LinesFor("ostlink"));
  EXPECT_THAT(ServiceCalls(), ElementsAre("stop", "stop", "start"));
  EXPECT_THAT(Seen(), ElementsAre(kProgress, kBox, kWindow, kProgress));
}

TEST_F(RunTest, KeepsWhatWasInstalledBeforeARequiredModuleFailed) {
  Enter();
  product_->Module("ostlink").Source("ostlink").Module("ostchan").Source("ostchan", "exit 1").Write();
  journal_ = ReadFile(kJournal);
  Tool tool;
  PassBox();
  EXPECT_TRUE(IsInstalled("ostlink"));
  EXPECT_EQ(Added(), LinesFor("ostlink"));
  product_->Source("ostchan");
  PressInstall();
  EXPECT_EQ(tool.Wait(), 0) << tool.Output();
  EXPECT_EQ(Added(), LinesFor("ostlink") + LinesFor("ostchan"));
  EXPECT_THAT(ServiceCalls(), ElementsAre("stop", "stop", "start"));
}

TEST_F(RunTest, GoesOnWithoutAnOptionalModule) {
  Enter();
  product_->Module(ModuleSpec{.name = "ostpool", .required = false, .key = "POOL"}).Answer("POOL", "yes");
  product_->Source("ostpool", "exit 1").Module("ostlink").Source("ostlink").Service(kWaitForProgress).Write();
  journal_ = ReadFile(kJournal);
  Tool tool;
  EXPECT_EQ(tool.Wait(), 0) << tool.Output();
  EXPECT_THAT(tool.Log(), HasSubstr("| Failed to compile module ostpool!\n"));
  EXPECT_EQ(Added(), LinesFor("ostlink"));
  EXPECT_THAT(ServiceCalls(), ElementsAre("stop", "start"));
  EXPECT_THAT(Seen(), ElementsAre(kProgress));
}

TEST_F(RunTest, TriesNoModuleAnewWhenOnlyTheServicesFailedToStart) {
  EnterWithModule();
  product_->Service("test $1 = stop");
  Tool tool;
  PassBox();
  EXPECT_TRUE(IsInstalled("ostlink"));
  product_->Service(kWaitForProgress);
  PressInstall();
  EXPECT_EQ(tool.Wait(), 0) << tool.Output();
  EXPECT_EQ(Added(), LinesFor("ostlink"));
  EXPECT_THAT(ServiceCalls(), ElementsAre("stop", "start", "stop", "start"));
  EXPECT_THAT(Seen(), ElementsAre(kProgress, kBox, kWindow, kProgress));
}

TEST_F(RunTest, TakesAKilledTaskForAFailure) {
  EnterWithModule();
  product_->Source("ostlink", kStay);
  Tool tool;
  ASSERT_TRUE(IsBusy());
  const pid_t task = TaskOf(tool.Pid());
  ASSERT_GT(task, 0);
  kill(task, SIGKILL);
  LeaveAfterBox(&tool);
  ExpectNothingInstalled();
  EXPECT_THAT(ServiceCalls(), ElementsAre("stop"));
  killpg(task, SIGKILL);
}

class CancelTest : public RunTest, public testing::WithParamInterface<const char *> {
 protected:
  // In the way of the parameter.
  void Cancel() {
    ASSERT_TRUE(IsWindowUp());
    const std::string way = GetParam();
    if (way == "CloseButton") {
      desktop_->display.CloseWindow(kWindowTitle);
    } else {
      desktop_->display.Keys(kWindowTitle, way);
    }
  }
};

INSTANTIATE_TEST_SUITE_P(Ways, CancelTest, testing::Values("CloseButton", "Escape", "space"),
                         [](const auto &way) { return std::string(way.param); });

TEST_P(CancelTest, EndsACompilationWithAllItsProcesses) {
  EnterWithModule();
  product_->Source("ostlink", kStay);
  Tool tool;
  ASSERT_TRUE(IsBusy());
  const pid_t task = TaskOf(tool.Pid());
  ASSERT_GE(MembersOf(task).size(), 7U) << "the task, make, its shells and their sleepers";
  Cancel();
  EXPECT_EQ(tool.Wait(), 5) << tool.Output();
  EXPECT_TRUE(IsGroupGone(task));
  ExpectNothingInstalled();
  EXPECT_THAT(ServiceCalls(), ElementsAre("stop"));
  EXPECT_THAT(Seen(), ElementsAre(kProgress));
  EXPECT_FALSE(Exists("/tmp/ostrel-root/modules"));
}

TEST_F(RunTest, SucceedsAfterARunThatWasCancelled) {
  EnterWithModule();
  product_->Source("ostlink", kStay);
  Tool tool;
  ASSERT_TRUE(IsBusy());
  ASSERT_TRUE(IsWindowUp());
  desktop_->display.Keys(kWindowTitle, "Escape");
  ASSERT_EQ(tool.Wait(), 5);
  product_->Source("ostlink");
  Tool second;
  EXPECT_EQ(second.Wait(), 0) << second.Output();
  EXPECT_EQ(Added(), LinesFor("ostlink"));
  EXPECT_THAT(ServiceCalls(), ElementsAre("stop", "stop", "start"));
}

TEST_F(RunTest, CanBeCancelledWhileTheServicesStopOrStart) {
  EnterWithModule();
  const std::vector<std::pair<std::string, std::vector<std::string>>> words = {{"stop", {"stop"}},
                                                                               {"start", {"stop", "start"}}};
  for (const auto &[word, calls] : words) {
    SCOPED_TRACE(word);
    std::filesystem::remove(kBusy);
    std::filesystem::remove(kServiceRecord);
    product_->Service("test $1 = " + word + " || exit 0\n" + kStay);
    Tool tool;
    ASSERT_TRUE(IsBusy());
    const pid_t task = TaskOf(tool.Pid());
    ASSERT_GE(MembersOf(task).size(), 6U);
    ASSERT_TRUE(IsWindowUp());
    desktop_->display.Keys(kWindowTitle, "Return");
    EXPECT_EQ(tool.Wait(), 5) << tool.Output();
    EXPECT_TRUE(IsGroupGone(task));
    EXPECT_EQ(ServiceCalls(), calls);
    EXPECT_EQ(IsInstalled("ostlink"), word == "start");
  }
}

class ClockTest : public RunTest {
 protected:
  // As EnterWithModule, with a clock for the program on which the ten minutes pass in two seconds.
  void EnterWithClock() {
    testhost::Host host;
    host.File(kClock, ReadFile(FAST_CLOCK), 0755);
    Enter(host);
    product_->Module("ostlink").Source("ostlink").Write();
  }
  static Tool StartWithClock() { return Tool({}, 0, {std::string("LD_PRELOAD=") + kClock}); }
};

// The script keeps when it was called and when it was told to end.
constexpr char kHang[] = "date +%s%N >/run/called; ";
constexpr char kTellEnd[] = "trap 'date +%s%N >/run/ended; exit $STATUS' TERM\n";
constexpr char kHangOn[] = "sleep 600 & wait\n";

double SecondsOfHanging() {
  const auto time = [](const char *path) { return std::stod("0" + ReadFile(path)) / 1e9; };
  return time("/run/ended") - time("/run/called");
}

TEST_F(ClockTest, EndsAServiceScriptThatHangs) {
  EnterWithClock();
  journal_ = ReadFile(kJournal);
  product_->Service(std::string(kHang) + "STATUS=1; " + kTellEnd + kHangOn);
  Tool tool = StartWithClock();
  ASSERT_TRUE(Eventually([&tool] { return TaskOf(tool.Pid()) > 0; }));
  const pid_t task = TaskOf(tool.Pid());
  LeaveAfterBox(&tool);
  EXPECT_GT(SecondsOfHanging(), 1.0) << "a limit of 600 seconds takes two";
  EXPECT_TRUE(IsGroupGone(task));
  ExpectNothingInstalled();
  EXPECT_THAT(ServiceCalls(), ElementsAre("stop"));
  EXPECT_THAT(Seen(), ElementsAre(kProgress, kBox, kWindow));
}

TEST_F(ClockTest, GoesOnWhenAHangingScriptEndsWellAtItsLimit) {
  EnterWithClock();
  product_->Service(std::string("test $1 = start && exit\n") + kHang + "STATUS=0; " + kTellEnd + kHangOn);
  Tool tool = StartWithClock();
  EXPECT_EQ(tool.Wait(), 0) << tool.Output();
  EXPECT_GT(SecondsOfHanging(), 1.0) << "a limit of 600 seconds takes two";
  EXPECT_TRUE(IsInstalled("ostlink"));
  EXPECT_THAT(ServiceCalls(), ElementsAre("stop", "start"));
  EXPECT_THAT(Seen(), ElementsAre(kProgress));
}

TEST_F(ClockTest, EndsServicesThatHangAtTheirStart) {
  EnterWithClock();
  product_->Service(std::string("test $1 = stop && exit\n") + kHang + "STATUS=1; " + kTellEnd + kHangOn);
  Tool tool = StartWithClock();
  LeaveAfterBox(&tool);
  EXPECT_GT(SecondsOfHanging(), 1.0) << "a limit of 600 seconds takes two";
  EXPECT_TRUE(IsInstalled("ostlink"));
}

TEST_F(ClockTest, GivesACompilationAllTheTimeItTakes) {
  EnterWithClock();
  product_->Source("ostlink", "sleep 3");  // a quarter of an hour on the program's clock
  Tool tool = StartWithClock();
  EXPECT_EQ(tool.Wait(), 0) << tool.Output();
  EXPECT_TRUE(IsInstalled("ostlink"));
}

// Ways in which a run ends that nobody cancels.
struct Blow {
  const char *name;
  int signal;  // to the tool; 0 takes the display away
  int status;
};

void PrintTo(const Blow &blow, std::ostream *out) {
  *out << blow.name;
}

class BlowTest : public RunTest, public testing::WithParamInterface<Blow> {
 protected:
  void Strike(const Tool &tool) {
    if (GetParam().signal == 0) {
      desktop_->display.Kill();
    } else {
      kill(tool.Pid(), GetParam().signal);
    }
  }
};

INSTANTIATE_TEST_SUITE_P(Blows, BlowTest,
                         testing::Values(Blow{"Display", 0, 1}, Blow{"Terminate", SIGTERM, 128 + SIGTERM},
                                         Blow{"HangUp", SIGHUP, 128 + SIGHUP},
                                         Blow{"Interrupt", SIGINT, 128 + SIGINT},
                                         Blow{"Kill", SIGKILL, 128 + SIGKILL}),
                         [](const auto &blow) { return std::string(blow.param.name); });

TEST_P(BlowTest, EndsTheCompilationAndKeepsWhatIsInstalled) {
  Enter();
  product_->Module("ostlink").Source("ostlink").Module("ostchan").Source("ostchan", kStay).Write();
  journal_ = ReadFile(kJournal);
  Tool tool;
  ASSERT_TRUE(IsBusy());
  const pid_t task = TaskOf(tool.Pid());
  ASSERT_GT(task, 0);
  Strike(tool);
  EXPECT_EQ(tool.Wait(), GetParam().status);
  EXPECT_TRUE(IsGroupGone(task));
  EXPECT_TRUE(IsInstalled("ostlink"));
  EXPECT_FALSE(Exists(kernel_.ModulePath("ostchan")));
  EXPECT_EQ(Added(), LinesFor("ostlink"));
  EXPECT_THAT(ServiceCalls(), ElementsAre("stop"));
}

TEST_P(BlowTest, LeavesNothingInTheWayOfTheNextRun) {
  EnterWithModule();
  product_->Source("ostlink", kWaitForGo);
  Tool tool;
  ASSERT_TRUE(IsBusy());
  const pid_t task = TaskOf(tool.Pid());
  Strike(tool);
  EXPECT_EQ(tool.Wait(), GetParam().status);
  product_->Source("ostlink");
  {
    const testhost::Display display;
    Tool second;
    EXPECT_EQ(second.Wait(), 0) << second.Output();
  }
  WriteFile(kGo, "");
  EXPECT_TRUE(IsGroupGone(task));
  // Nothing that the first run left behind has written beside the second.
  EXPECT_TRUE(IsInstalled("ostlink"));
  EXPECT_EQ(Added(), LinesFor("ostlink"));
  EXPECT_THAT(ServiceCalls(), ElementsAre("stop", "stop", "start"));
}

TEST_P(BlowTest, EndsTheServiceScript) {
  EnterWithModule();
  product_->Service(kStay);
  Tool tool;
  ASSERT_TRUE(IsBusy());
  const pid_t task = TaskOf(tool.Pid());
  Strike(tool);
  EXPECT_EQ(tool.Wait(), GetParam().status);
  EXPECT_TRUE(IsGroupGone(task));
  ExpectNothingInstalled();
}

TEST_F(RunTest, TellsACancelledScriptOnlyOnceToEnd) {
  EnterWithModule();
  product_->Service(
      "trap 'echo told >>/run/told' TERM; touch /run/busy; until test -e /run/go; do sleep 0.05; done");
  Tool tool;
  ASSERT_TRUE(IsBusy());
  ASSERT_TRUE(IsWindowUp());
  const pid_t task = TaskOf(tool.Pid());
  desktop_->display.Keys(kWindowTitle, "Escape");
  EXPECT_EQ(tool.Wait(), 5);
  EXPECT_TRUE(Eventually([] { return Exists("/run/told"); }));
  WriteFile(kGo, "");
  EXPECT_TRUE(IsGroupGone(task));
  EXPECT_EQ(ReadFile("/run/told"), "told\n");
}

TEST_F(RunTest, TakesItsWindowAlongWhenItIsEndedAlthoughTheScriptGoesOn) {
  EnterWithModule();
  product_->Service(std::string("trap '' TERM; ") + kWaitForGo);
  Tool tool;
  ASSERT_TRUE(IsBusy());
  ASSERT_TRUE(IsWindowUp());
  const pid_t task = TaskOf(tool.Pid());
  kill(tool.Pid(), SIGTERM);
  EXPECT_EQ(tool.Wait(), 128 + SIGTERM);
  EXPECT_TRUE(desktop_->display.WaitForNoWindow(kWindowTitle));
  EXPECT_FALSE(MembersOf(task).empty());
  WriteFile(kGo, "");
  EXPECT_TRUE(IsGroupGone(task));
}

TEST_F(RunTest, InstallsOnceWhenTwoStartTogether) {
  EnterWithModule();
  product_->Source("ostlink", "sleep 0.2");
  Tool first;
  Tool second;
  Tool *const both[] = {&first, &second};
  ASSERT_TRUE(Eventually([&] {
    if (desktop_->display.HasWindow("Error")) {
      desktop_->Answer("Error", "Return");
    }
    return std::none_of(std::begin(both), std::end(both), [](Tool *tool) { return tool->Running(); });
  }));
  // The one that comes late waits for the other, or gives up with a box when that takes too long.
  EXPECT_EQ(std::min(first.Wait(), second.Wait()), 0) << first.Output() << second.Output();
  EXPECT_LE(std::max(first.Wait(), second.Wait()), 1) << first.Output() << second.Output();
  EXPECT_TRUE(IsInstalled("ostlink"));
  EXPECT_EQ(Added(), LinesFor("ostlink"));
  EXPECT_THAT(ServiceCalls(), ElementsAre("stop", "start"));
}

}  // namespace
}  // namespace e2e
