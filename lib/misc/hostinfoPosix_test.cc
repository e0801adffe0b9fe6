#include "hostinfoPosix.h"

#include <sched.h>
#include <sys/syscall.h>

#include <climits>

#include "log.h"
#include "owned.h"
#include "posixPosixTestInt.h"
#include "systemCalls.h"

namespace {

// Enters a host of this name, with these lines in its /etc/hosts.
void EnterHost(const std::string &name, const std::string &hosts) {
  testhost::Host host;
  host.File("/etc/nsswitch.conf", "hosts: files\n").File("/etc/hosts", hosts);
  host.Enter();
  ASSERT_EQ(unshare(CLONE_NEWUTS), 0);
  ASSERT_EQ(sethostname(name.data(), name.size()), 0);
}

std::string HostName() {
  const OwnedString name(Hostinfo_HostName());
  return name == nullptr ? "(null)" : name.get();
}

TEST(HostinfoHostName, PrefersTheCanonicalName) {
  EnterHost("node", "127.0.0.1 node.example.org node other\n");
  EXPECT_EQ(HostName(), "node.example.org");
}

TEST(HostinfoHostName, IsTheNodesNameWhereNothingElseIsKnown) {
  EnterHost("node", "127.0.0.1 localhost\n");
  EXPECT_EQ(HostName(), "node");
}

// As when the buffer of 1024 bytes isn't enough.
TEST(HostinfoHostName, IsTheNodesNameWhereTheEntryIsTooLong) {
  EnterHost("node", "127.0.0.1 node.example.org node " + std::string(1200, 'x') + "\n");
  EXPECT_EQ(HostName(), "node");
}

TEST(HostinfoHostName, AnEmptyNameIsNone) {
  EnterHost("", "127.0.0.1 localhost\n");
  EXPECT_EQ(HostName(), "(null)");
}

TEST(HostinfoHostName, IsNoneWhenTheSystemDoesNotTell) {
  EnterHost("node", "127.0.0.1 node\n");
  posixtest::AnswerSystemCalls({SYS_uname}, SECCOMP_RET_ERRNO | EIO);
  EXPECT_EQ(HostName(), "(null)");
}

TEST(HostinfoHostName, EndsAtAByteThatIsNotAscii) {
  EnterHost("caf\xE9-1", "127.0.0.1 localhost\n");
  EXPECT_EQ(HostName(), "caf");
}

TEST(HostinfoName, IsKept) {
  EnterHost("node", "127.0.0.1 node.example.org node\n");
  const char *name = Hostinfo_NameGet();
  EXPECT_STREQ(name, "node.example.org");
  ASSERT_EQ(sethostname("other", 5), 0);
  EXPECT_EQ(Hostinfo_NameGet(), name);
  EXPECT_STREQ(name, "node.example.org");
}

TEST(HostinfoName, IsAskedForUntilThereIsOne) {
  EnterHost("", "127.0.0.1 localhost\n");
  EXPECT_EQ(Hostinfo_NameGet(), nullptr);
  ASSERT_EQ(sethostname("late", 4), 0);
  EXPECT_STREQ(Hostinfo_NameGet(), "late");
}

std::string User() {
  const OwnedString name(Hostinfo_GetUser());
  return name == nullptr ? "(null)" : name.get();
}

constexpr uid_t kUser = 1234;

// A host with these lines in its user database; the test runs as a user of it, or of none.
void EnterAs(uid_t user, const std::string &users) {
  testhost::Host host;
  host.File("/etc/nsswitch.conf", "passwd: files\n").File("/etc/passwd", users);
  host.Enter();
  ASSERT_EQ(setenv("USER", "somebody", 1), 0);
  ASSERT_EQ(setresuid(user, 0, 0), 0);
}

TEST(HostinfoUser, IsTheRealOne) {
  EnterAs(kUser, "root:x:0:0::/:/bin/sh\nmaple:x:1234:1234::/:/bin/sh\n");
  EXPECT_EQ(User(), "maple");
}

TEST(HostinfoUser, IsTheEnvironmentsWhenTheDatabaseHasNone) {
  EnterAs(kUser, "root:x:0:0::/:/bin/sh\n");
  EXPECT_EQ(User(), "somebody");
  unsetenv("USER");
  EXPECT_EQ(User(), "(null)");
}

TEST(HostinfoUser, AnEntryMayTake8192Bytes) {
  EnterAs(kUser, "maple:x:1234:1234:" + std::string(8000, 'c') + ":/:/bin/sh\n");
  EXPECT_EQ(User(), "maple");
}

TEST(HostinfoUser, ALongerEntryIsNone) {
  EnterAs(kUser, "maple:x:1234:1234:" + std::string(8192, 'c') + ":/:/bin/sh\n");
  EXPECT_EQ(User(), "somebody");
}

TEST(HostinfoUser, ComesInUtf8) {
  posixtest::UseLatin1();
  EnterAs(kUser, "caf\xE9:x:1234:1234::/:/bin/sh\n");
  EXPECT_EQ(User(), NAME);
}

class ModulePath : public ::testing::Test {
 protected:
  static void Enter(const std::string &release) {
    testhost::Host host;
    host.Release(release).Enter();
    ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  }

  static std::string Path(unsigned privilege) {
    const OwnedString path(Hostinfo_GetModulePath(privilege));
    return path == nullptr ? "(null)" : path.get();
  }

  static std::string OwnPath() {
    char path[PATH_MAX] = "";
    EXPECT_GT(readlink("/proc/self/exe", path, sizeof path - 1), 0);
    return path;
  }

  static bool HasLogged(const std::string &text) {
    return testhost::ReadFile(Log_GetFileName()).find("| " + text) != std::string::npos;
  }
};

TEST_F(ModulePath, IsThatOfTheRunningProgram) {
  Enter("3.2.0");
  EXPECT_EQ(Path(HOSTINFO_MODULE_PATH_AS_ROOT), OwnPath());
  EXPECT_EQ(Path(HOSTINFO_MODULE_PATH_AS_SELF), OwnPath());
}

TEST_F(ModulePath, IsReadAsRootOnlyWhenAskedFor) {
  Enter("2.6.18");
  ASSERT_EQ(setresuid(kUser, kUser, 0), 0);
  testhost::SystemCalls calls({SYS_setresuid});
  EXPECT_EQ(Path(HOSTINFO_MODULE_PATH_AS_SELF), OwnPath());
  EXPECT_EQ(calls.Count(SYS_setresuid), 0U);
  EXPECT_EQ(Path(HOSTINFO_MODULE_PATH_AS_ROOT), OwnPath());
  EXPECT_EQ(calls.Count(SYS_setresuid), 2U);
  EXPECT_EQ(geteuid(), kUser);
  ASSERT_EQ(setresuid(0, 0, 0), 0);
}

TEST_F(ModulePath, OtherPrivilegesAreRefused) {
  Enter("3.1.0");
  EXPECT_EQ(Path(2), "(null)");
  EXPECT_TRUE(HasLogged("Hostinfo_GetModulePath: invalid privilege parameter\n"));
}

TEST_F(ModulePath, ALinkThatCannotBeReadIsAWarning) {
  Enter("3.2.0");
  testhost::FailSystemCall(SYS_readlink, EACCES);
  EXPECT_EQ(Path(HOSTINFO_MODULE_PATH_AS_ROOT), "(null)");
  EXPECT_TRUE(HasLogged("HOSTINFO: Hostinfo_GetModulePath: readlink failed: Permission denied\n"));
}

constexpr char kAssertion[] = "ASSERT lib/misc/hostinfoPosix\\.cc:[0-9]+\n";

// Each number of the kernel's version is looked at alone.
TEST_F(ModulePath, AKernelWithAMinorBelowTwoStopsTheProgram) {
  Enter("3.1.0");
  EXPECT_EXIT(Hostinfo_GetModulePath(1), posixtest::kPanic, kAssertion);
}

TEST_F(ModulePath, AKernelWithAMajorBelowTwoStopsTheProgram) {
  Enter("1.3.0");
  EXPECT_EXIT(Hostinfo_GetModulePath(1), posixtest::kPanic, kAssertion);
}

}  // namespace
