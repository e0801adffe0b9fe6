#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "fileLock.h"
#include "fileLockInt.h"
#include "fileLockTestInt.h"
#include "testhost.h"

namespace fs = std::filesystem;
using namespace locktest;

namespace {

// A dead chooser is waited for this long, in seconds, and all that contend here side by side take more. Two
// dead ones in a row would be waited for twice as long.
constexpr double kLongestWait = 8.4 + 6;

class FileLockKill : public ::testing::Test {
 protected:
  void SetUp() override {
    testhost::Host host;
    host.Directory("/t");
    host.Enter();
    ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  }
};

// Runs `work` in a child and kills it at its stop number `stop`: each of its system calls has one before it
// is made and one after. Returns how many stops the child came to.
int KillAtStop(const std::function<void()> &work, int stop) {
  const pid_t child = fork();
  if (child == 0) {
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    raise(SIGSTOP);
    work();
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_EXITKILL);
  for (int stops = 0;; stops++) {
    ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
    waitpid(child, &status, 0);
    if (!WIFSTOPPED(status)) {
      return stops;
    }
    if (stops == stop) {
      kill(child, SIGKILL);
      waitpid(child, &status, 0);
      return stops + 1;
    }
  }
}

// Takes and gives back the lock that a killed contender may have left something at. Returns what is wrong, or
// an empty text.
std::string LockAfterKill(const std::string &path) {
  int error = 0;
  void *token = nullptr;
  const double seconds =
      Seconds([&] { token = FileLock_Lock(path.c_str(), false, FILELOCK_INFINITE_WAIT, &error); });
  if (token == nullptr) {
    return "no lock, error " + std::to_string(error);
  }
  const auto names = Names(path + ".lck");
  const int unlocked = FileLock_Unlock(path.c_str(), token);
  if (seconds > kLongestWait) {
    return "waited " + std::to_string(seconds) + " s";
  }
  if (names.size() != 1 || unlocked != 0 || fs::exists(path + ".lck")) {
    return std::to_string(names.size()) + " names, unlocking gave " + std::to_string(unlocked);
  }
  return {};
}

// Kills one contender at each of its stops, all of them side by side, each with a file of its own, and lets
// another one lock after it.
//
// prepare  makes the file's surroundings
// work     the contender's
// release  what ends the surroundings' hold, before the other one locks
void KillEverywhere(const std::function<void(const std::string &)> &prepare,
                    const std::function<void(const std::string &)> &work,
                    const std::function<void(const std::string &)> &release) {
  prepare("/t/probe");
  const int stops = KillAtStop([&work] { work("/t/probe"); }, -1);
  ASSERT_GT(stops, 40);
  std::vector<pid_t> supervisors;
  supervisors.reserve(static_cast<size_t>(stops));
  for (int stop = 0; stop < stops; stop++) {
    supervisors.push_back(Child([&, stop] {
      const std::string path = "/t/f" + std::to_string(stop);
      prepare(path);
      if (KillAtStop([&] { work(path); }, stop) < stop + 1) {
        return 0;
      }
      release(path);
      const std::string wrong = LockAfterKill(path);
      fprintf(stderr, "%s%s", wrong.c_str(), wrong.empty() ? "" : "\n");
      return wrong.empty() ? 0 : 1;
    }));
  }
  for (int stop = 0; stop < stops; stop++) {
    EXPECT_EQ(StatusOf(supervisors[static_cast<size_t>(stop)]), 0) << "killed at stop " << stop;
  }
}

void LockAndUnlock(const std::string &path, bool readOnly, uint32_t limit) {
  int error = 0;
  void *token = FileLock_Lock(path.c_str(), readOnly, limit, &error);
  if (token != nullptr) {
    FileLock_Unlock(path.c_str(), token);
  }
}

TEST_F(FileLockKill, HolderKilledAnywhereMakesWayAndLeavesNothing) {
  KillEverywhere([](const std::string &path) { testhost::WriteFile(path, ""); },
                 [](const std::string &path) { LockAndUnlock(path, false, 0); }, [](const std::string &) {});
}

TEST_F(FileLockKill, WaiterKilledAnywhereMakesWayAndLeavesNothing) {
  KillEverywhere(
      [](const std::string &path) {
        testhost::WriteFile(path, "");
        WriteMember(path + ".lck", "M00001.lck", RemoteLine("1 X"));
      },
      [](const std::string &path) { LockAndUnlock(path, true, 150); },
      [](const std::string &path) { fs::remove(path + ".lck/M00001.lck"); });
}

}  // namespace
