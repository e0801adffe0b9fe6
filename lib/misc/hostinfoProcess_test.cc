#include "hostinfoProcess.h"

#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/time.h>

#include <csignal>

#include "hostinfoTestInt.h"
#include "log.h"
#include "posixPosixTestInt.h"
#include "systemCalls.h"

namespace {

using posixtest::HoldsInChild;
using posixtest::kPanic;

class Process : public posixtest::PosixHost {};

bool IsOpen(int fd) {
  return fcntl(fd, F_GETFD) != -1;
}

void Reset() {
  Hostinfo_ResetProcessState(nullptr, 0);
}

TEST_F(Process, ResetStopsTheTimers) {
  EXPECT_TRUE(HoldsInChild([] {
    for (const auto timer : {ITIMER_REAL, ITIMER_VIRTUAL, ITIMER_PROF}) {
      const itimerval hour = {{3600, 0}, {3600, 0}};
      ASSERT_EQ(setitimer(timer, &hour, nullptr), 0);
    }
    Reset();
    for (const auto timer : {ITIMER_REAL, ITIMER_VIRTUAL, ITIMER_PROF}) {
      itimerval now = {{7, 7}, {7, 7}};
      ASSERT_EQ(getitimer(timer, &now), 0);
      EXPECT_EQ(now.it_value.tv_sec + now.it_value.tv_usec, 0);
      EXPECT_EQ(now.it_interval.tv_sec + now.it_interval.tv_usec, 0);
    }
  }));
}

TEST_F(Process, ResetGivesEverySignalItsDefault) {
  EXPECT_TRUE(HoldsInChild([] {
    signal(SIGTERM, SIG_IGN);
    signal(SIGPIPE, SIG_IGN);
    signal(SIGUSR1, [](int) {});
    signal(SIGRTMAX, [](int) {});
    Reset();
    for (const int number : {SIGHUP, SIGTERM, SIGPIPE, SIGUSR1, SIGCHLD, SIGSYS, SIGRTMIN, SIGRTMAX}) {
      struct sigaction action {};
      ASSERT_EQ(sigaction(number, nullptr, &action), 0);
      EXPECT_EQ(action.sa_handler, SIG_DFL) << number;
      EXPECT_NE(action.sa_flags & SA_RESTART, 0) << number;
      EXPECT_EQ(sigismember(&action.sa_mask, SIGHUP), 1) << number;
      EXPECT_EQ(sigismember(&action.sa_mask, SIGRTMAX), 1) << number;
    }
  }));
}

TEST_F(Process, ResetLeavesBlockedWhatIsBlocked) {
  EXPECT_TRUE(HoldsInChild([] {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR2);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    Reset();
    sigprocmask(SIG_SETMASK, nullptr, &set);
    EXPECT_EQ(sigismember(&set, SIGUSR2), 1);
  }));
}

// Opens these descriptors and resets the state. Returns those that are open then, up to 100.
std::vector<int> OpenAfterReset(const std::vector<int> &opened, const std::vector<int> &kept) {
  for (const int fd : opened) {
    EXPECT_EQ(dup2(STDOUT_FILENO, fd), fd);
  }
  Hostinfo_ResetProcessState(kept.data(), kept.size());
  std::vector<int> open;
  for (int fd = 0; fd <= 100; fd++) {
    if (IsOpen(fd)) {
      open.push_back(fd);
    }
  }
  return open;
}

TEST_F(Process, ResetClosesDescriptors) {
  EXPECT_TRUE(HoldsInChild([] {
    EXPECT_EQ(OpenAfterReset({3, 4, 10, 99}, {}), (std::vector<int>{0, 1, 2}));
  }));
}

TEST_F(Process, ResetKeepsDescriptorsInAnyOrder) {
  EXPECT_TRUE(HoldsInChild([] {
    EXPECT_EQ(OpenAfterReset({3, 4, 5, 10, 11, 50, 99}, {50, 3, 11, 50, 60, 1, -1}),
              (std::vector<int>{0, 1, 2, 3, 11, 50}));
  }));
}

TEST_F(Process, ResetClosesUpToTheLimitOnly) {
  EXPECT_TRUE(HoldsInChild([] {
    ASSERT_EQ(dup2(1, 69), 69);
    ASSERT_EQ(dup2(1, 70), 70);
    rlimit limit;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    limit.rlim_cur = 70;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    const int beyond[] = {2000};
    Hostinfo_ResetProcessState(beyond, 1);
    EXPECT_FALSE(IsOpen(69));
    EXPECT_TRUE(IsOpen(70));
  }));
}

// A kernel that can't close a range.
TEST_F(Process, ResetClosesDescriptorsOneByOne) {
  EXPECT_TRUE(HoldsInChild([] {
    testhost::FailSystemCall(SYS_close_range, ENOSYS);
    EXPECT_EQ(OpenAfterReset({3, 4, 5, 10, 99}, {4, 10}), (std::vector<int>{0, 1, 2, 4, 10}));
  }));
}

TEST_F(Process, ResetLetsTheAddressSpaceGrow) {
  EXPECT_TRUE(HoldsInChild([] {
    constexpr rlim_t kHard = rlim_t{1} << 50;
    const rlimit limit = {rlim_t{1} << 45, kHard};
    ASSERT_EQ(setrlimit(RLIMIT_AS, &limit), 0);
    Reset();
    rlimit now;
    ASSERT_EQ(getrlimit(RLIMIT_AS, &now), 0);
    EXPECT_EQ(now.rlim_cur, kHard);
    EXPECT_EQ(now.rlim_max, kHard);
  }));
}

TEST_F(Process, ResetLeavesAnAddressSpaceAloneThatCannotBeRead) {
  EXPECT_TRUE(HoldsInChild([] {
    const rlimit limit = {rlim_t{1} << 45, rlim_t{1} << 50};
    ASSERT_EQ(setrlimit(RLIMIT_AS, &limit), 0);
    {
      testhost::SystemCalls calls({SYS_prlimit64});
      calls.Fail(SYS_prlimit64, EPERM);
      Reset();
    }
    rlimit now;
    ASSERT_EQ(getrlimit(RLIMIT_AS, &now), 0);
    EXPECT_EQ(now.rlim_cur, limit.rlim_cur);
  }));
}

TEST_F(Process, ResetGivesUpTheIoPrivilegeAsRoot) {
  EXPECT_TRUE(HoldsInChild([] {
    ASSERT_EQ(setresuid(1234, 1234, 0), 0);
    testhost::SystemCalls calls({SYS_iopl, SYS_setresuid});
    calls.Return(SYS_iopl, 0);
    Reset();
    EXPECT_EQ(calls.Count(SYS_iopl), 1U);
    EXPECT_EQ(calls.Count(SYS_setresuid), 2U);
    EXPECT_EQ(geteuid(), 1234U);
  }));
}

TEST_F(Process, ResetStopsWhereThePrivilegeCannotBeGivenUp) {
  testhost::FailSystemCall(SYS_iopl, EPERM);
  EXPECT_EXIT(Reset(), kPanic, "NOT_IMPLEMENTED lib/misc/hostinfoProcess\\.cc:[0-9]+\n");
}

TEST_F(Process, ResetTakesAKernelWithoutThePrivilege) {
  EXPECT_TRUE(HoldsInChild([] {
    testhost::FailSystemCall(SYS_iopl, ENOSYS);
    Reset();
  }));
}

TEST_F(Process, ResetRefusesRootForAnotherUser) {
  ASSERT_EQ(setresuid(1234, 0, 0), 0);
  EXPECT_EXIT(Reset(), kPanic, "ASSERT lib/misc/hostinfoProcess\\.cc:[0-9]+\n");
}

// The log that the child inherits is the parent's, which goes on.
TEST_F(Process, ResetInAChildLeavesTheParentsLog) {
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  Log("before\n");
  const int logFd = hostinfotest::LogDescriptor();
  ASSERT_GT(logFd, STDERR_FILENO);
  EXPECT_TRUE(HoldsInChild([&] {
    Reset();
    EXPECT_FALSE(IsOpen(logFd));
    Log("lost\n");
  }));
  Log("behind\n");
  const std::string log = testhost::ReadFile(Log_GetFileName());
  EXPECT_NE(log.find("| before\n"), std::string::npos);
  EXPECT_EQ(log.find("lost"), std::string::npos);
  EXPECT_TRUE(log.ends_with("| behind\n"));
}

int Execute(const std::string &script, bool wait = true) {
  const char *const arguments[] = {"sh", "-c", script.c_str(), nullptr};
  return Hostinfo_Execute("sh", arguments, wait);
}

TEST_F(Process, ExecuteGivesTheWaitStatus) {
  EXPECT_EQ(Execute("exit 0"), 0);
  EXPECT_EQ(Execute("exit 3"), W_EXITCODE(3, 0));
  EXPECT_EQ(Execute("kill -TERM $$"), SIGTERM);
}

TEST_F(Process, ExecuteOfNoPathGivesOne) {
  const char *const arguments[] = {"sh", nullptr};
  EXPECT_EQ(Hostinfo_Execute(nullptr, arguments, true), 1);
  EXPECT_EQ(Hostinfo_Execute(nullptr, nullptr, false), 1);
}

TEST_F(Process, ExecuteOfAMissingProgramExitsWith127) {
  const char *const arguments[] = {"missing", nullptr};
  EXPECT_EQ(Hostinfo_Execute("/t/missing", arguments, true), W_EXITCODE(127, 0));
  EXPECT_EQ(Hostinfo_Execute("no-such-program", arguments, true), W_EXITCODE(127, 0));
  EXPECT_EQ(Hostinfo_Execute("", arguments, true), W_EXITCODE(127, 0));
  EXPECT_EQ(Hostinfo_Execute("/t/file", arguments, true), W_EXITCODE(127, 0));
}

TEST_F(Process, ExecuteGivesTheProgramItsArguments) {
  EXPECT_EQ(Execute("echo \"$0\" > /t/out"), 0);
  EXPECT_EQ(testhost::ReadFile("/t/out"), "sh\n");
}

TEST_F(Process, ExecuteGivesTheProgramAFreshState) {
  signal(SIGUSR1, SIG_IGN);
  ASSERT_EQ(dup2(STDOUT_FILENO, 50), 50);
  EXPECT_EQ(Execute("grep SigIgn /proc/self/status > /t/out; test ! -e /proc/self/fd/50"), 0);
  EXPECT_EQ(testhost::ReadFile("/t/out"), "SigIgn:\t0000000000000000\n");
  EXPECT_TRUE(IsOpen(50));
}

TEST_F(Process, ExecuteDoesNotWaitUnlessToldTo) {
  ASSERT_EQ(mkfifo("/t/go", 0600), 0);
  EXPECT_EQ(Execute("read line < /t/go; exit 5", false), 0);
  // The child waits for this.
  testhost::WriteFile("/t/go", "on\n");
  int status = 0;
  EXPECT_GT(wait(&status), 0);
  EXPECT_EQ(status, W_EXITCODE(5, 0));
}

TEST_F(Process, ExecuteWaitsForItsOwnChild) {
  const pid_t other = fork();
  if (other == 0) {
    _exit(9);
  }
  EXPECT_EQ(Execute("sleep 0.1; exit 3"), W_EXITCODE(3, 0));
  int status = 0;
  EXPECT_EQ(waitpid(other, &status, 0), other);
  EXPECT_EQ(status, W_EXITCODE(9, 0));
}

TEST_F(Process, ExecuteWaitsOnWhenInterrupted) {
  testhost::SystemCalls calls({SYS_wait4});
  calls.Fail(SYS_wait4, EINTR, {.count = 3});
  EXPECT_EQ(Execute("exit 3"), W_EXITCODE(3, 0));
}

TEST_F(Process, ExecuteTakesAChildThatSomebodyElseReapsForASuccess) {
  signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(Execute("exit 3"), 0);
}

TEST_F(Process, ExecuteFailsWithTheWait) {
  testhost::SystemCalls calls({SYS_wait4});
  calls.Fail(SYS_wait4, EINVAL, {.count = 1});
  EXPECT_FAILS(-1, EINVAL, Execute("exit 0"));
}

TEST_F(Process, ExecuteFailsWithoutAChild) {
  EXPECT_TRUE(HoldsInChild([] {
    testhost::FailSystemCall(SYS_clone, EAGAIN);
    EXPECT_FAILS(-1, EAGAIN, Execute("exit 0"));
    EXPECT_FAILS(-1, EAGAIN, Execute("exit 0", false));
  }));
}

class Latin1Process : public posixtest::Latin1Host {};

TEST_F(Latin1Process, ExecuteConvertsPathAndArguments) {
  testhost::WriteFile("/t/say" LATIN1_NAME, "#!/bin/sh\nprintf %s \"$1\" > /t/out\n", 0755);
  const char *const arguments[] = {"say", NAME, nullptr};
  EXPECT_EQ(Hostinfo_Execute("/t/say" NAME, arguments, true), 0);
  EXPECT_EQ(testhost::ReadFile("/t/out"), LATIN1_NAME);
  EXPECT_EQ(Hostinfo_Execute(posixtest::kNotLatin1, arguments, true), W_EXITCODE(127, 0));
}

}  // namespace
