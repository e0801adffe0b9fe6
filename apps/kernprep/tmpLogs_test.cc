#include "tmpLogs.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>

#include "fileLock.h"
#include "log.h"
#include "owned.h"
#include "testhost.h"
#include "util.h"

namespace {

std::string SafeTmpDir() {
  return OwnedString(Util_GetSafeTmpDir(false)).get();
}

bool Exists(const std::string &path) {
  return access(path.c_str(), F_OK) == 0;
}

// Whether a file of that name is still there after a cleaning for "setup".
bool Survives(const std::string &name) {
  const std::string path = SafeTmpDir() + "/" + name;
  testhost::WriteFile(path, "old");
  CleanTmpLogs("setup");
  return Exists(path);
}

TEST(CleanTmpLogs, DeletesTheLogsOfEarlierRuns) {
  testhost::Host().Enter();
  EXPECT_FALSE(Survives("setup-4711.log"));
  EXPECT_FALSE(Survives("setup.log"));
  EXPECT_FALSE(Survives("setup and more.old.log"));
}

TEST(CleanTmpLogs, KeepsWhatIsNoLogOfThisProgram) {
  testhost::Host().Enter();
  EXPECT_TRUE(Survives("setup-4711.log.0"));
  EXPECT_TRUE(Survives("setup-4711"));
  EXPECT_TRUE(Survives("my-setup-4711.log"));
  EXPECT_TRUE(Survives("Setup-4711.log"));
  EXPECT_TRUE(Survives("setup-4711.LOG"));
  EXPECT_TRUE(Survives("setup-4711log"));
}

TEST(CleanTmpLogs, LetsPrefixAndEndingShareNothing) {
  testhost::Host().Enter();
  testhost::WriteFile(SafeTmpDir() + "/a.log", "old");
  CleanTmpLogs("a.lo");
  EXPECT_TRUE(Exists(SafeTmpDir() + "/a.log"));
}

TEST(CleanTmpLogs, KeepsTheLogInUse) {
  testhost::Host().Enter();
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  const std::string current = Log_GetFileName();
  ASSERT_TRUE(current.starts_with(SafeTmpDir() + "/setup")) << current;
  EXPECT_FALSE(Survives("setup-4711.log"));
  EXPECT_TRUE(Exists(current));
}

TEST(CleanTmpLogs, LeavesNoLockBehind) {
  testhost::Host().Enter();
  EXPECT_FALSE(Survives("setup-4711.log"));
  EXPECT_FALSE(Exists(SafeTmpDir() + "/setup-4711.log.lck"));
}

TEST(CleanTmpLogs, PassesSilentlyOverALogThatAnotherProcessHasLocked) {
  testhost::Host().Enter();
  const std::string path = SafeTmpDir() + "/setup-4711.log";
  testhost::WriteFile(path, "old");
  int toParent[2];
  ASSERT_EQ(pipe(toParent), 0);
  const pid_t holder = fork();
  if (holder == 0) {
    int error = 0;
    const char answer = FileLock_Lock(path.c_str(), false, 0, &error) != nullptr ? 'y' : 'n';
    _exit(write(toParent[1], &answer, 1) == 1 && pause() == 0 ? 0 : 1);
  }
  char locked = 'n';
  ASSERT_EQ(read(toParent[0], &locked, 1), 1);
  ASSERT_EQ(locked, 'y');
  const auto start = std::chrono::steady_clock::now();
  testing::internal::CaptureStderr();
  CleanTmpLogs("setup");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  const std::chrono::duration<double> waited = std::chrono::steady_clock::now() - start;
  EXPECT_TRUE(Exists(path));
  EXPECT_GE(waited.count(), 2.4);
  EXPECT_LT(waited.count(), 10);
  kill(holder, SIGKILL);
  waitpid(holder, nullptr, 0);
  CleanTmpLogs("setup");
  EXPECT_FALSE(Exists(path));
}

TEST(CleanTmpLogs, WarnsOfALockThatCannotBeTaken) {
  testhost::Host().Enter();
  // The lock's name is longer by four, and so too long for a file system.
  const std::string path = SafeTmpDir() + "/setup" + std::string(244, '-') + ".log";
  testhost::WriteFile(path, "old");
  testing::internal::CaptureStderr();
  CleanTmpLogs("setup");
  const std::string errors = testing::internal::GetCapturedStderr();
  EXPECT_TRUE(errors.ends_with("CleanTmpLogs lock failure on " + path + ": File name too long\n")) << errors;
  EXPECT_TRUE(Exists(path));
}

TEST(CleanTmpLogs, DoesNothingWithoutADirectory) {
  testhost::Host host;
  host.User(4711).Directory("/tmp", 0555).Enter();
  unsetenv("TMPDIR");
  setenv("HOME", "/no/such/home", 1);
  ASSERT_EQ(chdir("/"), 0);
  ASSERT_EQ(OwnedString(Util_GetSafeTmpDir(false)), nullptr) << SafeTmpDir();
  CleanTmpLogs("setup");
}

}  // namespace
