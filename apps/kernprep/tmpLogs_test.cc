#include "tmpLogs.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

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
  ASSERT_EQ(current.find(SafeTmpDir() + "/setup"), 0U);
  EXPECT_FALSE(Survives("setup-4711.log"));
  EXPECT_TRUE(Exists(current));
}

TEST(CleanTmpLogs, LeavesNoLockBehind) {
  testhost::Host().Enter();
  EXPECT_FALSE(Survives("setup-4711.log"));
  EXPECT_FALSE(Exists(SafeTmpDir() + "/setup-4711.log.lck"));
}

TEST(CleanTmpLogs, DoesNothingWithoutADirectory) {
  testhost::Host host;
  host.Remove("/tmp").Remove("/var/tmp").Remove("/usr/tmp").Enter();
  unsetenv("TMPDIR");
  CleanTmpLogs("setup");
  EXPECT_FALSE(Exists("/tmp"));
}

}  // namespace
