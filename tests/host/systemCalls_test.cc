#include "systemCalls.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <thread>

#include "testhost.h"

namespace testhost {
namespace {

// What access says about the root: 0, or an error number.
int Access() {
  return access("/", F_OK) == 0 ? 0 : errno;
}

// The same in a child.
int AccessInChild() {
  const pid_t child = fork();
  if (child == 0) {
    _exit(Access());
  }
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return WEXITSTATUS(status);
}

TEST(FailSystemCall, FailsItHereAndInWhatIsStarted) {
  EXPECT_EQ(Access(), 0);
  FailSystemCall(SYS_access, EIO);
  EXPECT_EQ(Access(), EIO);
  EXPECT_EQ(AccessInChild(), EIO);
  EXPECT_EQ(umask(022), umask(022));
}

TEST(FailSystemCall, GivesNothingForErrorZero) {
  FailSystemCall(SYS_umask, 0);
  EXPECT_EQ(syscall(SYS_umask, 077), 0);
  EXPECT_EQ(syscall(SYS_umask, 077), 0);
}

TEST(FailSystemCall, LooksAtTheFirstArgument) {
  FailSystemCall(SYS_umask, EIO, 077);
  EXPECT_EQ(syscall(SYS_umask, 077), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_NE(syscall(SYS_umask, 022), -1);
}

TEST(FailingDescriptor, FailsTheNextDescriptorOnly) {
  const int other = open("/dev/zero", O_RDONLY);
  const int next = NextDescriptor();
  char byte = 1;
  {
    const FailingDescriptor failing({SYS_read}, EIO);
    const int fd = open("/dev/zero", O_RDONLY);
    EXPECT_EQ(fd, next);
    EXPECT_EQ(read(fd, &byte, 1), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(read(other, &byte, 1), 1);
    close(fd);
  }
  EXPECT_NE(NextDescriptor(), next);
  close(other);
}

TEST(FailingDescriptor, LeftOpenEndsTheProgram) {
  EXPECT_EXIT(
      {
        const FailingDescriptor failing({SYS_read}, EIO);
        NextDescriptor();
        EXPECT_NE(open("/dev/zero", O_RDONLY), -1);
      },
      ::testing::ExitedWithCode(125), "the failing descriptor was left open");
}

TEST(SystemCalls, LeavesToTheKernelWhatItIsNotTold) {
  const SystemCalls calls({SYS_access});
  EXPECT_EQ(Access(), 0);
  EXPECT_EQ(calls.Count(SYS_access), 1U);
}

TEST(SystemCalls, FailsTheChosenCalls) {
  SystemCalls calls({SYS_access, SYS_umask});
  calls.Fail(SYS_access, EIO, {.from = 1, .count = 2});
  EXPECT_EQ(Access(), 0);
  EXPECT_EQ(Access(), EIO);
  EXPECT_EQ(Access(), EIO);
  EXPECT_EQ(Access(), 0);
  calls.Fail(SYS_access, EDQUOT, {.from = 1});
  EXPECT_EQ(Access(), 0);
  EXPECT_EQ(Access(), EDQUOT);
  EXPECT_EQ(Access(), EDQUOT);
  EXPECT_EQ(calls.Count(SYS_access), 7U);
  EXPECT_EQ(calls.Count(SYS_umask), 0U);
}

TEST(SystemCalls, CountsByTheFirstArgument) {
  SystemCalls calls({SYS_umask});
  calls.Fail(SYS_umask, EIO, {.from = 1, .first = 077});
  EXPECT_NE(syscall(SYS_umask, 022), -1);
  EXPECT_NE(syscall(SYS_umask, 077), -1);
  EXPECT_NE(syscall(SYS_umask, 022), -1);
  EXPECT_EQ(syscall(SYS_umask, 077), -1);
}

TEST(SystemCalls, LastAnswerCountsAndEarlierOnesGoOnCounting) {
  SystemCalls calls({SYS_access});
  calls.Fail(SYS_access, EIO, {.count = 2});
  calls.Fail(SYS_access, ENOSPC, {.count = 1});
  EXPECT_EQ(Access(), ENOSPC);
  EXPECT_EQ(Access(), EIO);
  EXPECT_EQ(Access(), 0);
}

TEST(SystemCalls, ReturnsAValueAndDoesNothing) {
  SystemCalls calls({SYS_write});
  const int fd = memfd_create("test", 0);
  calls.Return(SYS_write, 3, {.first = static_cast<uint32_t>(fd)});
  EXPECT_EQ(write(fd, "0123456789", 10), 3);
  struct stat data;
  EXPECT_EQ(fstat(fd, &data), 0);
  EXPECT_EQ(data.st_size, 0);
  close(fd);
}

TEST(SystemCalls, TellsATypeOfFileSystem) {
  SystemCalls calls({SYS_statfs, SYS_fstatfs});
  struct statfs system {};
  EXPECT_EQ(statfs("/", &system), 0);
  EXPECT_GT(system.f_blocks, 0U);
  calls.AnswerStatfs(0xff534d42);
  EXPECT_EQ(statfs("/no/such/file", &system), 0);
  EXPECT_EQ(system.f_type, 0xff534d42);
  EXPECT_EQ(system.f_blocks, 0U);
  system = {};
  EXPECT_EQ(fstatfs(0, &system), 0);
  EXPECT_EQ(system.f_type, 0xff534d42);
  EXPECT_EQ(syscall(SYS_statfs, "/", nullptr), -1);
  EXPECT_EQ(errno, EFAULT);
}

TEST(SystemCalls, ReachProcessesAndThreadsThatAreStartedLater) {
  SystemCalls calls({SYS_access, SYS_statfs});
  calls.Fail(SYS_access, EIO, {.from = 1});
  calls.AnswerStatfs(0x6969);
  EXPECT_EQ(AccessInChild(), 0);
  EXPECT_EQ(AccessInChild(), EIO);
  int inThread = 0;
  std::thread([&] { inThread = Access(); }).join();
  EXPECT_EQ(inThread, EIO);
  EXPECT_EQ(calls.Count(SYS_access), 3U);
  std::string output;
  EXPECT_EQ(testhost::Run("stat --file-system --format=%T /", &output), 0);
  EXPECT_EQ(output, "nfs\n");
}

TEST(SystemCalls, ShowWhatACallWasGiven) {
  const SystemCalls calls({SYS_lseek});
  EXPECT_EQ(syscall(SYS_lseek, -1, 0x123456789, 2), -1);
  EXPECT_EQ(calls.LastArguments(SYS_lseek)[1], 0x123456789U);
  EXPECT_EQ(syscall(SYS_lseek, -1, 5, 1), -1);
  EXPECT_EQ(calls.LastArguments(SYS_lseek)[1], 5U);
  EXPECT_EQ(calls.LastArguments(SYS_lseek)[2], 1U);
}

TEST(SystemCalls, AreTheKernelsAgainInTheEnd) {
  {
    SystemCalls calls({SYS_access});
    calls.Fail(SYS_access, EIO);
    EXPECT_EQ(Access(), EIO);
    calls.Clear();
    EXPECT_EQ(Access(), 0);
    calls.Fail(SYS_access, EROFS);
    EXPECT_EQ(Access(), EROFS);
  }
  EXPECT_EQ(Access(), 0);
}

TEST(SystemCalls, AnswerInAHostToAnOrdinaryUser) {
  Host host;
  host.User(1234).Enter();
  SystemCalls calls({SYS_access, SYS_statfs});
  calls.Fail(SYS_access, EIO);
  calls.AnswerStatfs(0xef53);
  EXPECT_EQ(Access(), EIO);
  struct statfs system {};
  EXPECT_EQ(statfs("/", &system), 0);
  EXPECT_EQ(system.f_type, 0xef53);
}

TEST(SystemCalls, AreNoChildrenAndHoldNothingOpen) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const SystemCalls calls({SYS_access});
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
  close(ends[1]);
  char byte;
  EXPECT_EQ(read(ends[0], &byte, 1), 0);
  close(ends[0]);
}

TEST(SystemCalls, CallThatIsNotListenedToEndsTheProgram) {
  EXPECT_EXIT(
      {
        SystemCalls calls({SYS_access});
        calls.Fail(SYS_umask, EIO);
      },
      ::testing::ExitedWithCode(125), "this system call isn't listened to");
}

}  // namespace
}  // namespace testhost
