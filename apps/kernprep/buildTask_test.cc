#include "buildTask.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <functional>
#include <vector>

#include "icons.h"
#include "msg.h"
#include "testDesktop.h"

namespace kernprep {
namespace {

class WorkTask : public BuildTask {
 public:
  explicit WorkTask(std::function<bool()> work_) : BuildTask("Working"), work(std::move(work_)) {}
  bool IsFatal() const override { return true; }
  bool Run() override { return work(); }
  Glib::ustring GetFailureText() const override { return "Unable to work."; }

 private:
  std::function<bool()> work;
};

// A window to own the task's widgets.
class Row : public Gtk::Window {
 public:
  explicit Row(BuildTask &task) {
    add(box);
    box.pack_start(*task.GetImage());
    box.pack_start(*task.GetLabel());
  }

 private:
  Gtk::HBox box;
};

std::string StockOf(const BuildTask &task) {
  Gtk::StockID id;
  Gtk::IconSize size;
  task.GetImage()->get_stock(id, size);
  EXPECT_EQ(size, Gtk::ICON_SIZE_SMALL_TOOLBAR);
  return id.get_string();
}

void BlockSignals() {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, nullptr);
}

std::vector<int> BlockedSignals() {
  sigset_t blocked;
  pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
  std::vector<int> signals;
  for (int number = 1; number < NSIG; number++) {
    if (sigismember(&blocked, number) == 1) {
      signals.push_back(number);
    }
  }
  return signals;
}

int StatusOf(BuildTask &task) {
  int status = -1;
  const pid_t pid = task.Start();
  EXPECT_EQ(waitpid(pid, &status, 0), pid);
  return status;
}

TEST(BuildTask, BeginsPendingWithItsTextAtTheLeft) {
  testhost::Host().Enter();
  const TestDesktop desktop;
  WorkTask task([] { return true; });
  const Row row(task);
  EXPECT_EQ(task.GetLabel()->get_text(), "Working");
  float x = -1;
  float y = -1;
  task.GetLabel()->get_alignment(x, y);
  EXPECT_EQ(x, 0.0F);
  EXPECT_EQ(y, 0.5F);
  EXPECT_EQ(StockOf(task), "ostrel-kernprep-pending");
  EXPECT_EQ(task.GetTimeout(), 0U);
  task.SetText("Still working");
  EXPECT_EQ(task.GetLabel()->get_text(), "Still working");
}

TEST(BuildTask, ShowsEachStateAtTheSmallToolbarSize) {
  testhost::Host().Enter();
  const TestDesktop desktop;
  RegisterIcons();
  WorkTask task([] { return true; });
  const Row row(task);
  const std::pair<BuildTask::State, const char *> rows[] = {
      {BuildTask::STATE_PENDING, "ostrel-kernprep-pending"},
      {BuildTask::STATE_IN_PROGRESS, "ostrel-kernprep-in-progress"},
      {BuildTask::STATE_SUCCESS, "ostrel-kernprep-success"},
      {BuildTask::STATE_FAILURE_FATAL, "ostrel-kernprep-failure-fatal"},
      {BuildTask::STATE_FAILURE_WARNING, "ostrel-kernprep-failure-warning"},
  };
  int number = 0;
  for (const auto &[state, name] : rows) {
    EXPECT_EQ(state, number++);
    task.SetState(state);
    EXPECT_EQ(StockOf(task), name);
  }
}

TEST(BuildTask, KeepsTheRowsSizeInEveryState) {
  testhost::Host().Enter();
  const TestDesktop desktop;
  RegisterIcons();
  WorkTask task([] { return true; });
  Row row(task);
  row.show_all();
  const int height = task.GetImage()->size_request().height;
  for (const StateIcon &icon : stateIcons) {
    task.SetState(icon.state);
    EXPECT_EQ(task.GetImage()->size_request().height, height) << icon.name;
  }
}

TEST(BuildTask, ShowsTheThemesOwnIconWhereItHasOne) {
  testhost::Host host;
  host.File("/usr/share/icons/hicolor/scalable/apps/ostrel-kernprep-success.svg",
            "<svg xmlns='http://www.w3.org/2000/svg' width='16' height='16'/>")
      .Remove("/usr/share/icons/hicolor/icon-theme.cache")
      .Enter();
  const TestDesktop desktop;
  RegisterIcons();
  WorkTask task([] { return true; });
  const Row row(task);
  task.SetState(BuildTask::STATE_SUCCESS);
  EXPECT_EQ(task.GetImage()->get_storage_type(), Gtk::IMAGE_ICON_NAME);
  const char *name = nullptr;
  GtkIconSize size = GTK_ICON_SIZE_INVALID;
  gtk_image_get_icon_name(task.GetImage()->gobj(), &name, &size);
  EXPECT_STREQ(name, "ostrel-kernprep-success");
  EXPECT_EQ(size, GTK_ICON_SIZE_SMALL_TOOLBAR);
  task.SetState(BuildTask::STATE_PENDING);
  EXPECT_EQ(StockOf(task), "ostrel-kernprep-pending");
}

TEST(BuildTaskDeathTest, StopsTheProgramForAnUnknownState) {
  testhost::Host().Enter();
  const TestDesktop desktop;
  WorkTask task([] { return true; });
  const Row row(task);
  EXPECT_EXIT(task.SetState(static_cast<BuildTask::State>(5)), testing::ExitedWithCode(255),
              "NOT_IMPLEMENTED apps/kernprep/buildTask.cc:[0-9]+");
}

TEST(BuildTask, GivesTheWorksResultAsTheChildsStatus) {
  testhost::Host().Enter();
  const TestDesktop desktop;
  WorkTask good([] { return true; });
  const Row goodRow(good);
  EXPECT_EQ(StatusOf(good), 0);
  WorkTask bad([] { return false; });
  const Row badRow(bad);
  const int status = StatusOf(bad);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 1);
}

TEST(BuildTask, RunsInAGroupOfItsOwnFromTheStart) {
  testhost::Host().Enter();
  const TestDesktop desktop;
  WorkTask task([] { return getpgrp() == getpid(); });
  const Row row(task);
  const pid_t pid = task.Start();
  EXPECT_EQ(getpgid(pid), pid);
  int status = -1;
  waitpid(pid, &status, 0);
  EXPECT_EQ(status, 0);
}

TEST(BuildTask, RunsInAGroupOfItsOwnThoughTheProgramComesLate) {
  testhost::Host().Enter();
  const TestDesktop desktop;
  // The program goes on only when the work is done.
  ASSERT_EQ(pthread_atfork(
                nullptr,
                [] {
                  siginfo_t end = {};
                  EXPECT_EQ(waitid(P_ALL, 0, &end, WEXITED | WNOWAIT), 0);
                },
                nullptr),
            0);
  WorkTask task([] { return getpgrp() == getpid(); });
  const Row row(task);
  EXPECT_EQ(StatusOf(task), 0);
}

TEST(BuildTask, RunsNoExitHandlersOfTheParent) {
  testhost::Host().Enter();
  const TestDesktop desktop;
  std::atexit([] { testhost::WriteFile("/tmp/handler-" + std::to_string(getpid()), "ran"); });
  WorkTask task([] { return true; });
  const Row row(task);
  const pid_t pid = task.Start();
  waitpid(pid, nullptr, 0);
  EXPECT_EQ(access(("/tmp/handler-" + std::to_string(pid)).c_str(), F_OK), -1);
}

TEST(BuildTask, EndsAtTheSignalThoughTheProgramsCallerIgnoredIt) {
  testhost::Host().Enter();
  const TestDesktop desktop;
  std::signal(SIGTERM, SIG_IGN);
  WorkTask task([] {
    killpg(0, SIGTERM);
    return true;
  });
  const Row row(task);
  const int status = StatusOf(task);
  ASSERT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGTERM);
}

TEST(BuildTask, EndsAtTheSignalThoughTheProgramsCallerBlockedIt) {
  testhost::Host().Enter();
  const TestDesktop desktop;
  BlockSignals();
  WorkTask task([] {
    killpg(0, SIGTERM);
    return true;
  });
  const Row row(task);
  const int status = StatusOf(task);
  ASSERT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGTERM);
}

TEST(BuildTask, EndsAtASignalRightBehindTheForkThoughTheProgramsCallerIgnoredIt) {
  testhost::Host().Enter();
  const TestDesktop desktop;
  std::signal(SIGTERM, SIG_IGN);
  ASSERT_EQ(pthread_atfork(nullptr, nullptr, [] { kill(getpid(), SIGTERM); }), 0);
  WorkTask task([] { return true; });
  const Row row(task);
  const int status = StatusOf(task);
  ASSERT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGTERM);
}

TEST(BuildTask, BlocksNoSignalForItsWorkAndLeavesTheProgramsOwnAlone) {
  testhost::Host().Enter();
  const TestDesktop desktop;
  sigset_t usr1;
  sigemptyset(&usr1);
  sigaddset(&usr1, SIGUSR1);
  pthread_sigmask(SIG_SETMASK, &usr1, nullptr);
  WorkTask task([] { return BlockedSignals().empty(); });
  const Row row(task);
  EXPECT_EQ(StatusOf(task), 0);
  EXPECT_EQ(BlockedSignals(), std::vector<int>{SIGUSR1});
}

// The status of a task whose program ends right behind the fork.
int StatusBehindProgram() {
  WorkTask task([] { return true; });
  const Row row(task);
  EXPECT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
  const pid_t program = fork();
  if (program == 0) {
    static const pid_t parent = getpid();
    pthread_atfork(nullptr, nullptr, [] {
      while (getppid() == parent) {
        usleep(1000);
      }
    });
    testhost::WriteFile("/run/task", std::to_string(task.Start()));
    _exit(0);
  }
  EXPECT_EQ(waitpid(program, nullptr, 0), program);
  const pid_t child = std::stoi(testhost::ReadFile("/run/task"));
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return status;
}

TEST(BuildTask, EndsAlsoWhenTheProgramEndsRightBehindTheFork) {
  testhost::Host().Enter();
  const TestDesktop desktop;
  const int status = StatusBehindProgram();
  ASSERT_TRUE(WIFSIGNALED(status)) << status;
  EXPECT_EQ(WTERMSIG(status), SIGTERM);
}

TEST(BuildTask, EndsWithTheProgramThoughItsCallerBlockedSignals) {
  testhost::Host().Enter();
  const TestDesktop desktop;
  BlockSignals();
  const int status = StatusBehindProgram();
  ASSERT_TRUE(WIFSIGNALED(status)) << status;
  EXPECT_EQ(WTERMSIG(status), SIGTERM);
}

TEST(BuildTask, LogsWhatAFailedTaskLeftPending) {
  testhost::Host().Enter();
  const TestDesktop desktop;
  WorkTask task([] {
    Msg_Append(MSGID(test.full) "Disk %s is full.\n", "A");
    return false;
  });
  const Row row(task);
  StatusOf(task);
  EXPECT_NE(TestLog().find("Disk A is full."), std::string::npos) << TestLog();
  EXPECT_FALSE(Msg_Present());
}

TEST(BuildTask, LeavesTheMessagesOfASuccessUnlogged) {
  testhost::Host().Enter();
  const TestDesktop desktop;
  WorkTask task([] {
    Msg_Append(MSGID(test.full) "Disk %s is full.\n", "A");
    return true;
  });
  const Row row(task);
  EXPECT_EQ(StatusOf(task), 0);
  EXPECT_EQ(TestLog().find("Disk A is full."), std::string::npos);
}

}  // namespace
}  // namespace kernprep
