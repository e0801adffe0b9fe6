#include "serviceTask.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>

#include <csignal>
#include <cstring>

#include "testProduct.h"
#include "util_misc.h"

namespace kernprep {
namespace {

// A service task in a window, which owns its widgets.
class Shown : public Gtk::Window {
 public:
  explicit Shown(int action) : task("Services", action) {
    add(box);
    box.pack_start(*task.GetImage());
    box.pack_start(*task.GetLabel());
  }

  ServiceTask task;

 private:
  Gtk::HBox box;
};

// The exit status of the task's child, or 128 plus the signal that ended it.
int RunInChild(ServiceTask &task) {
  int status = -1;
  const pid_t pid = task.Start();
  EXPECT_EQ(waitpid(pid, &status, 0), pid);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void SetInitDir(const char *directory) {
  ASSERT_TRUE(InstallerDB_SetAnswer(Util_SafeStrdup("INITSCRIPTSDIR"), Util_SafeStrdup(directory)));
}

class ServiceTaskTest : public testing::Test {
 protected:
  void SetUp() override { product.Start(); }

  TestProduct product;
  TestDesktop desktop;
};

TEST_F(ServiceTaskTest, CallsTheInitScriptWithItsWord) {
  Shown stop(1);
  EXPECT_EQ(RunInChild(stop.task), 0);
  Shown start(0);
  EXPECT_EQ(RunInChild(start.task), 0);
  EXPECT_EQ(e2e::ServiceCalls(), (std::vector<std::string>{"stop", "start"}));
}

TEST_F(ServiceTaskTest, IsFatalAndHasTenMinutes) {
  const Shown stop(1);
  const Shown start(0);
  EXPECT_TRUE(stop.task.IsFatal());
  EXPECT_TRUE(start.task.IsFatal());
  EXPECT_EQ(stop.task.GetTimeout(), 600000U);
  EXPECT_EQ(start.task.GetTimeout(), 600000U);
  EXPECT_EQ(stop.task.GetFailureText(), "Unable to stop services.");
  EXPECT_EQ(start.task.GetFailureText(), "Unable to start services.");
}

TEST_F(ServiceTaskTest, FailsWhenTheScriptFails) {
  product.Service("exit 1");
  Shown stop(1);
  EXPECT_EQ(RunInChild(stop.task), 1);
  product.Service("exit 7");
  EXPECT_EQ(RunInChild(stop.task), 1);
}

TEST_F(ServiceTaskTest, FailsWhenTheScriptIsKilled) {
  product.Service("kill -KILL $$");
  Shown stop(1);
  EXPECT_EQ(RunInChild(stop.task), 1);
}

TEST_F(ServiceTaskTest, LogsAScriptThatIsMissingByTheWordAlone) {
  SetInitDir("/no/such/directory");
  Shown stop(1);
  EXPECT_EQ(RunInChild(stop.task), 1);
  const std::string log = TestLog();
  EXPECT_NE(log.find("Unable to execute stop.  Error:\n"), std::string::npos) << log;
  EXPECT_NE(log.find("No such file or directory"), std::string::npos) << log;
}

TEST_F(ServiceTaskTest, LogsAScriptThatCannotBeExecuted) {
  testhost::WriteFile("/etc/other-init/ostrel-tools", "#!/bin/sh\nexit 0\n", 0644);
  SetInitDir("/etc/other-init");
  Shown start(0);
  EXPECT_EQ(RunInChild(start.task), 1);
  const std::string log = TestLog();
  EXPECT_NE(log.find("Unable to execute start.  Error:\n"), std::string::npos) << log;
  EXPECT_NE(log.find("Permission denied"), std::string::npos) << log;
}

TEST_F(ServiceTaskTest, RunsNothingWhenTheInitDirectoryIsUnknown) {
  ASSERT_TRUE(InstallerDB_RemoveAnswer("INITSCRIPTSDIR"));
  Shown stop(1);
  const std::string log = TestLog();
  EXPECT_NE(log.find("Unable to lookup initdir\n"), std::string::npos) << log;
  EXPECT_EQ(RunInChild(stop.task), 1);
  EXPECT_EQ(TestLog(), log);
  EXPECT_TRUE(e2e::ServiceCalls().empty());
}

TEST_F(ServiceTaskTest, QuotesThePathOfTheScript) {
  testhost::WriteFile("/etc/it's \"$HOME\" here/ostrel-tools", "#!/bin/sh\necho $1 >>/run/quoted\n", 0755);
  SetInitDir("/etc/it's \"$HOME\" here");
  Shown stop(1);
  EXPECT_EQ(RunInChild(stop.task), 0);
  EXPECT_EQ(testhost::ReadFile("/run/quoted"), "stop\n");
}

TEST_F(ServiceTaskTest, PaysNoHeedToTheVariableThatSkipsServices) {
  setenv("OSTREL_SKIP_SERVICES", "1", 1);
  Shown stop(1);
  EXPECT_EQ(RunInChild(stop.task), 0);
  EXPECT_EQ(e2e::ServiceCalls(), std::vector<std::string>{"stop"});
}

TEST_F(ServiceTaskTest, LetsTheScriptWriteWhereTheProgramWrites) {
  product.Service("echo said; echo complained >&2");
  Shown stop(1);
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  EXPECT_EQ(RunInChild(stop.task), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "said\n");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "complained\n");
}

// Sends the group SIGTERM as soon as the script runs.
int EndWhileRunning(ServiceTask &task) {
  int status = -1;
  const pid_t pid = task.Start();
  EXPECT_TRUE(e2e::Eventually([] { return testhost::ReadFile("/run/ready") == "ready\n"; }));
  killpg(pid, SIGTERM);
  EXPECT_EQ(waitpid(pid, &status, 0), pid);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

TEST_F(ServiceTaskTest, FailsWhenTheTimeLimitsSignalEndsTheScript) {
  product.Service("echo ready >/run/ready; sleep 100");
  Shown stop(1);
  EXPECT_EQ(EndWhileRunning(stop.task), 1);
  EXPECT_TRUE(e2e::ProcessesWith("ostrel-tools").empty());
}

TEST_F(ServiceTaskTest, SucceedsWhenTheScriptEndsWellInSpiteOfTheSignal) {
  product.Service("trap 'exit 0' TERM; echo ready >/run/ready; while :; do sleep 0.1; done");
  Shown stop(1);
  EXPECT_EQ(EndWhileRunning(stop.task), 0);
}

class ToldTask : public ServiceTask {
 public:
  // Sends the group SIGTERM in the script's fork, which comes behind that of the task.
  static void EndInFork() {
    static int forks = 0;
    if (++forks == 2) {
      killpg(0, SIGTERM);
    }
  }

  // The same as if it came later, when nothing looks at the mark any more.
  static void EndBehindFork() {
    EndInFork();
    toldToEnd = 0;
  }
};

TEST_F(ServiceTaskTest, StartsNoScriptWhenTheSignalComesRightBeforeItsFork) {
  Shown stop(1);
  ASSERT_EQ(pthread_atfork(ToldTask::EndInFork, nullptr, nullptr), 0);
  EXPECT_EQ(RunInChild(stop.task), 1);
  EXPECT_TRUE(e2e::ServiceCalls().empty());
}

TEST_F(ServiceTaskTest, StartsNoScriptWhenTheSignalComesRightBehindItsFork) {
  Shown stop(1);
  ASSERT_EQ(pthread_atfork(nullptr, nullptr, ToldTask::EndBehindFork), 0);
  EXPECT_EQ(RunInChild(stop.task), 1);
  EXPECT_TRUE(e2e::ServiceCalls().empty());
}

TEST_F(ServiceTaskTest, StopsTheProgramForAnUnknownAction) {
  Shown shown(2);
  EXPECT_EXIT(shown.task.Run(), testing::ExitedWithCode(255),
              "NOT_IMPLEMENTED apps/kernprep/serviceTask.cc:[0-9]+");
  EXPECT_EXIT(shown.task.GetFailureText(), testing::ExitedWithCode(255),
              "NOT_IMPLEMENTED apps/kernprep/serviceTask.cc:[0-9]+");
}

}  // namespace
}  // namespace kernprep
