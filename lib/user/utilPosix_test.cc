#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "log.h"
#include "msg.h"
#include "systemCalls.h"
#include "testhost.h"
#include "util.h"

namespace {

class UtilPosix : public testing::Test {
 protected:
  // Call this first.
  void Enter(testhost::Host host = {}) {
    host.Directory("/t", 0777);
    host.Enter();
    ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
    Log("start\n");
    Logged();
  }

  // What the log got since the last call.
  std::string Logged() {
    const std::string log = testhost::ReadFile(Log_GetFileName());
    std::string fresh = log.substr(logSize_);
    logSize_ = log.size();
    return fresh;
  }

 private:
  size_t logSize_ = 0;
};
using MakeSureDir = UtilPosix;
using GetProcessName = UtilPosix;
using BumpNoFds = UtilPosix;

// The pending messages as "id: text", which are dropped.
std::string Messages() {
  const MsgList *message = Msg_GetMsgList();
  if (message == nullptr) {
    return "";
  }
  const std::string id = message->id;
  return id + ": " + Msg_GetMessagesAndReset();
}

TEST_F(MakeSureDir, MakesADirectoryThatIsMissing) {
  Enter();
  setenv("NEW", "new", 1);
  EXPECT_TRUE(Util_MakeSureDirExistsAndAccessible("/t/$NEW", 0751));
  struct stat data {};
  ASSERT_EQ(stat("/t/new", &data), 0);
  EXPECT_EQ(data.st_mode, S_IFDIR | 0751U);
  EXPECT_TRUE(Util_MakeSureDirExistsAndAccessible("/t/new", 0700));
  ASSERT_EQ(stat("/t/new", &data), 0);
  EXPECT_EQ(data.st_mode, S_IFDIR | 0751U);
  EXPECT_EQ(Messages(), "");
}

TEST_F(MakeSureDir, TellsWhyADirectoryCannotBeMade) {
  Enter();
  EXPECT_FALSE(Util_MakeSureDirExistsAndAccessible("/t/a/b", 0755));
  EXPECT_EQ(Messages(),
            "msg.util.msde.mkdir: Cannot create directory \"/t/a/b\": No such file or directory.\n");
  ASSERT_EQ(symlink("/t/none", "/t/link"), 0);
  EXPECT_FALSE(Util_MakeSureDirExistsAndAccessible("/t/link", 0755));
  EXPECT_EQ(Messages(), "msg.util.msde.mkdir: Cannot create directory \"/t/link\": File exists.\n");
}

TEST_F(MakeSureDir, ADirectoryThatAppearsMeanwhileIsFine) {
  Enter();
  ASSERT_EQ(mkdir("/t/there", 0755), 0);
  testhost::SystemCalls calls({SYS_newfstatat});
  calls.Fail(SYS_newfstatat, ENOENT, {.count = 1});
  EXPECT_TRUE(Util_MakeSureDirExistsAndAccessible("/t/there", 0755));
  EXPECT_EQ(Messages(), "");
}

TEST_F(MakeSureDir, RefusesAFile) {
  Enter();
  testhost::WriteFile("/t/file", "");
  EXPECT_FALSE(Util_MakeSureDirExistsAndAccessible("/t/file", 0755));
  EXPECT_EQ(Messages(), "msg.util.msde.notDir: The path \"/t/file\" exists, but it is not a directory.\n");
}

TEST_F(MakeSureDir, WantsEveryRightInIt) {
  testhost::Host host;
  host.User(1234);
  Enter(host);
  for (const mode_t mode : {0500U, 0300U, 0600U}) {
    ASSERT_EQ(mkdir("/t/closed", mode), 0);
    EXPECT_FALSE(Util_MakeSureDirExistsAndAccessible("/t/closed", 0755));
    EXPECT_EQ(Messages(),
              "msg.util.msde.noAccess: Directory \"/t/closed\" is not accessible: Permission denied.\n");
    ASSERT_EQ(rmdir("/t/closed"), 0);
  }
}

TEST_F(MakeSureDir, LeavesTheMessageOfAPathThatCannotBeExpanded) {
  Enter();
  EXPECT_FALSE(Util_MakeSureDirExistsAndAccessible(std::string(101, '$').c_str(), 0755));
  EXPECT_EQ(Messages(), "msg.util.expandStringTooManyChunks: Filename \"" + std::string(101, '$') +
                            "\" has too many chunks.\n");
}

TEST_F(GetProcessName, UndoesTheKernelsEscapes) {
  Enter();
  char name[100];
  ASSERT_EQ(prctl(PR_SET_NAME, "a b\\c\nd\te"), 0);
  ASSERT_TRUE(Util_GetProcessName(getpid(), name, sizeof name));
  EXPECT_STREQ(name, "a b\\c\nd\te");
  EXPECT_EQ(Logged(), "");
}

TEST_F(GetProcessName, WantsRoomForTheWholeName) {
  Enter();
  char name[8] = "?";
  ASSERT_EQ(prctl(PR_SET_NAME, "exactly"), 0);
  ASSERT_TRUE(Util_GetProcessName(getpid(), name, 8));
  EXPECT_STREQ(name, "exactly");
  name[0] = '?';
  EXPECT_FALSE(Util_GetProcessName(getpid(), name, 7));
  EXPECT_EQ(name[0], '?');
  EXPECT_NE(
      Logged().find("| Util_GetProcessName: Error, process name (7 bytes) is larger than output buffer\n"),
      std::string::npos);
}

TEST_F(GetProcessName, LogsWhatCannotBeOpened) {
  Enter();
  char name[100];
  EXPECT_FALSE(Util_GetProcessName(-5, name, sizeof name));
  EXPECT_NE(Logged().find("| Util_GetProcessName: Error: cannot open /proc/-5/status\n"), std::string::npos);
}

TEST_F(GetProcessName, LogsWhatCannotBeRead) {
  Enter();
  char name[100];
  const std::string path = "/proc/" + std::to_string(getpid()) + "/status";
  {
    const testhost::FailingDescriptor failing({SYS_read}, ESRCH);
    EXPECT_FALSE(Util_GetProcessName(getpid(), name, sizeof name));
  }
  EXPECT_NE(Logged().find("| Util_GetProcessName: Error: could not read " + path + "\n"), std::string::npos);
}

TEST_F(GetProcessName, LogsWhatHasNoName) {
  testhost::Host host;
  host.File("/proc/77777/status", "State: R\n")
      .File("/proc/77778/status", "")
      .File("/proc/77779/status", "Name:\t\n");
  Enter(host);
  char name[100];
  for (const pid_t pid : {77777, 77778, 77779}) {
    EXPECT_FALSE(Util_GetProcessName(pid, name, sizeof name));
    EXPECT_NE(Logged().find("| Util_GetProcessName: Error, could not parse contents of /proc/" +
                            std::to_string(pid) + "/status\n"),
              std::string::npos);
  }
}

TEST_F(GetProcessName, ReadsTheBeginningAlone) {
  testhost::Host host;
  host.File("/proc/77777/status", "Name:\t" + std::string(500, 'n') + "\n");
  Enter(host);
  char name[200];
  ASSERT_TRUE(Util_GetProcessName(77777, name, sizeof name));
  EXPECT_EQ(name, std::string(129 - 6, 'n'));
}

void SetFds(rlim_t soft, rlim_t hard) {
  const struct rlimit limit { soft, hard };
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
}

std::string Fds() {
  struct rlimit limit {};
  EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  return std::to_string(limit.rlim_cur) + " of " + std::to_string(limit.rlim_max);
}

TEST_F(BumpNoFds, LeavesALimitThatIsHighEnough) {
  Enter();
  const testhost::SystemCalls calls({SYS_prlimit64});
  for (const rlim_t soft : {2048U, 3000U}) {
    SetFds(soft, 4096);
    uint32_t current = 0;
    uint32_t wanted = 0;
    const size_t before = calls.Count(SYS_prlimit64);
    EXPECT_EQ(Util_BumpNoFds(&current, &wanted), 0);
    // It only asked.
    EXPECT_EQ(calls.Count(SYS_prlimit64), before + 1);
    EXPECT_EQ(current, soft);
    EXPECT_EQ(wanted, 2048U);
    EXPECT_EQ(Fds(), std::to_string(soft) + " of 4096");
  }
}

TEST_F(BumpNoFds, RaisesTheSoftLimitOfAnOrdinaryUser) {
  Enter();
  SetFds(2047, 4096);
  ASSERT_EQ(setresuid(1234, 1234, 1234), 0);
  uint32_t current = 0;
  EXPECT_EQ(Util_BumpNoFds(&current, nullptr), 0);
  EXPECT_EQ(current, 2047U);
  EXPECT_EQ(Fds(), "2048 of 4096");
}

// What becomes of a hard limit that is too low when this process uses root's rights: not every container lets
// its root raise it.
std::string AsRoot() {
  const std::string status = testhost::ReadFile("/proc/self/status");
  const std::string capabilities = status.substr(status.find("CapBnd:") + 7);
  const bool may = (strtoull(capabilities.c_str(), nullptr, 16) >> CAP_SYS_RESOURCE & 1) != 0;
  return may ? "2048 of 2048" : "1024 of 1024";
}

TEST_F(BumpNoFds, RaisesBothLimitsForRoot) {
  Enter();
  SetFds(512, 1024);
  EXPECT_EQ(Util_BumpNoFds(nullptr, nullptr), 0);
  EXPECT_EQ(Fds(), AsRoot());
}

TEST_F(BumpNoFds, BorrowsRootsRightsWhereItMay) {
  Enter();
  SetFds(512, 1024);
  ASSERT_EQ(setresuid(1234, 1234, 0), 0);
  EXPECT_EQ(Util_BumpNoFds(nullptr, nullptr), 0);
  EXPECT_EQ(Fds(), AsRoot());
  EXPECT_EQ(geteuid(), 1234U);
  ASSERT_EQ(setresuid(0, 0, 0), 0);
}

TEST_F(BumpNoFds, WhatRootsRightsGaveIsLeftAtThat) {
  Enter();
  SetFds(512, 1024);
  ASSERT_EQ(setresuid(1234, 1234, 0), 0);
  testhost::SystemCalls calls({SYS_prlimit64, SYS_setresuid});
  // The first call asks for the limits, and the second is the user's own.
  calls.Fail(SYS_prlimit64, EPERM, {.from = 1, .count = 1});
  calls.Return(SYS_prlimit64, 0, {.from = 2, .count = 1});
  EXPECT_EQ(Util_BumpNoFds(nullptr, nullptr), 0);
  EXPECT_EQ(calls.Count(SYS_prlimit64), 3U);
  // To root and back.
  EXPECT_EQ(calls.Count(SYS_setresuid), 2U);
  EXPECT_EQ(geteuid(), 1234U);
  ASSERT_EQ(setresuid(0, 0, 0), 0);
}

TEST_F(BumpNoFds, GoesAsFarAsTheHardLimitOtherwise) {
  Enter();
  SetFds(512, 1024);
  ASSERT_EQ(setresuid(1234, 1234, 1234), 0);
  uint32_t current = 0;
  uint32_t wanted = 0;
  EXPECT_EQ(Util_BumpNoFds(&current, &wanted), 0);
  EXPECT_EQ(Fds(), "1024 of 1024");
  EXPECT_EQ(current, 512U);
  EXPECT_EQ(wanted, 2048U);
}

TEST_F(BumpNoFds, TriesAgainAsRootOnlyWhereThatMayHelp) {
  Enter();
  SetFds(512, 4096);
  testhost::SystemCalls calls({SYS_prlimit64});
  // The first call asks for the limits.
  calls.Fail(SYS_prlimit64, EINVAL, {.from = 1, .count = 1});
  EXPECT_EQ(Util_BumpNoFds(nullptr, nullptr), 0);
  EXPECT_EQ(calls.Count(SYS_prlimit64), 3U);
  calls.Clear();
  EXPECT_EQ(Fds(), "4096 of 4096");
}

TEST_F(BumpNoFds, TriesAgainAsRootWhereItIsNotPermitted) {
  Enter();
  SetFds(512, 4096);
  testhost::SystemCalls calls({SYS_prlimit64});
  calls.Fail(SYS_prlimit64, EPERM, {.from = 1, .count = 1});
  EXPECT_EQ(Util_BumpNoFds(nullptr, nullptr), 0);
  EXPECT_EQ(calls.Count(SYS_prlimit64), 3U);
  calls.Clear();
  EXPECT_EQ(Fds(), "2048 of 4096");
}

TEST_F(BumpNoFds, TriesAgainAsRootWhereTheHardLimitIsTooLow) {
  Enter();
  SetFds(512, 1024);
  testhost::SystemCalls calls({SYS_prlimit64});
  calls.Fail(SYS_prlimit64, EINVAL, {.from = 1, .count = 2});
  EXPECT_EQ(Util_BumpNoFds(nullptr, nullptr), 0);
  EXPECT_EQ(calls.Count(SYS_prlimit64), 4U);
  calls.Clear();
  EXPECT_EQ(Fds(), "1024 of 1024");
}

TEST_F(BumpNoFds, ChangesNothingThatItCannotAskFor) {
  Enter();
  testhost::SystemCalls calls({SYS_prlimit64});
  calls.Fail(SYS_prlimit64, EPERM, {.count = 1});
  EXPECT_EQ(Util_BumpNoFds(nullptr, nullptr), EPERM);
  EXPECT_EQ(calls.Count(SYS_prlimit64), 1U);
  EXPECT_NE(
      Logged().find("| UTIL: Failed to set number of fds at 2048, was 0: Operation not permitted (1)\n"),
      std::string::npos);
}

TEST_F(BumpNoFds, LogsAFailure) {
  Enter();
  SetFds(512, 1024);
  testhost::SystemCalls calls({SYS_prlimit64});
  calls.Fail(SYS_prlimit64, EPERM, {.from = 1});
  EXPECT_EQ(Util_BumpNoFds(nullptr, nullptr), EPERM);
  calls.Clear();
  EXPECT_NE(
      Logged().find("| UTIL: Failed to set number of fds at 2048, was 512: Operation not permitted (1)\n"),
      std::string::npos);
  EXPECT_EQ(Fds(), "512 of 1024");
}

}  // namespace
