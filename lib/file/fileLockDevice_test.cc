#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>

#include "fileLock.h"
#include "fileLockInt.h"
#include "fileLockTestInt.h"
#include "systemCalls.h"
#include "testhost.h"

namespace fs = std::filesystem;
using namespace locktest;

namespace {

constexpr char kLockFile[] = "/var/lock/LCK..tty";
constexpr uint32_t kTmpfs = 0x1021994;
constexpr uint32_t kVfat = 0x4D44;

class FileLockDevice : public ::testing::Test {
 protected:
  void SetUp() override {
    testhost::Host host;
    Describe(host);
    host.Enter();
    // /var/lock may be a link, and what it leads to may hold what this machine's programs locked.
    ASSERT_EQ(mount("locks", fs::canonical("/var/lock").c_str(), "tmpfs", 0, "mode=1777"), 0);
    umask(022);
    ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  }
  virtual void Describe(testhost::Host &) {}
};

class FileLockDeviceUser : public FileLockDevice {
 protected:
  void SetUp() override {
    FileLockDevice::SetUp();
    ASSERT_EQ(setresuid(1234, 1234, 0), 0);
  }
  // Who changed between users may be traced by root alone, and a leak checker traces the test.
  void TearDown() override { EXPECT_EQ(seteuid(0), 0); }
};

std::string Line(pid_t pid, const std::string &machineID = FileLockGetMachineID()) {
  return std::to_string(pid) + " " + machineID + "\n";
}

// A process id that no process has any more.
pid_t DeadPid() {
  const pid_t pid = Child([] { return 0; });
  StatusOf(pid);
  return pid;
}

std::string TemporaryName() {
  char name[64];
  snprintf(name, sizeof name, "LTMP..tty.t%05d", getpid());
  return name;
}

mode_t ModeOf(const std::string &path) {
  struct stat data;
  EXPECT_EQ(stat(path.c_str(), &data), 0) << path;
  return data.st_mode & 07777;
}

TEST_F(FileLockDevice, LockFileTellsWhoHoldsTheDevice) {
  EXPECT_EQ(FileLock_LockDevice("tty"), 1);
  EXPECT_EQ(testhost::ReadFile(kLockFile), Line(getpid()));
  EXPECT_EQ(ModeOf(kLockFile), 0644U);
  EXPECT_EQ(Names("/var/lock"), std::vector<std::string>{"LCK..tty"});
  EXPECT_TRUE(FileLock_UnlockDevice("tty"));
  EXPECT_TRUE(Names("/var/lock").empty());
}

TEST_F(FileLockDevice, FirstLockNeverLinks) {
  EXPECT_EQ(FileLock_LockDevice("tty"), 1);
  EXPECT_TRUE(Logged("FILE: Bad statfs using /var/lock/LCK..tty (No such file or directory).\n"));
}

TEST_F(FileLockDevice, IsHeldByTheProcessItself) {
  EXPECT_EQ(FileLock_LockDevice("tty"), 1);
  EXPECT_EQ(FileLock_LockDevice("tty"), 0);
  EXPECT_EQ(FileLock_LockDevice("other"), 1);
  EXPECT_EQ(testhost::ReadFile(kLockFile), Line(getpid()));
}

TEST_F(FileLockDevice, IsHeldByAnotherProcessThatLives) {
  const std::string line = Line(getppid());
  testhost::WriteFile(kLockFile, line);
  EXPECT_EQ(FileLock_LockDevice("tty"), 0);
  EXPECT_EQ(testhost::ReadFile(kLockFile), line);
  EXPECT_EQ(Names("/var/lock").size(), 1U);
}

TEST_F(FileLockDevice, ProcessOfAnotherMachineIsTakenForAlive) {
  testhost::WriteFile(kLockFile, Line(DeadPid(), kOtherMachine));
  EXPECT_EQ(FileLock_LockDevice("tty"), 0);
}

TEST_F(FileLockDevice, MachineIsComparedByteByByte) {
  testhost::WriteFile(kLockFile, Line(DeadPid(), std::string("uuid=") + FileLockGetMachineID()));
  EXPECT_EQ(FileLock_LockDevice("tty"), 0);
}

TEST_F(FileLockDevice, LockOfADeadProcessIsReplaced) {
  testhost::WriteFile(kLockFile, Line(DeadPid()));
  EXPECT_EQ(FileLock_LockDevice("tty"), 1);
  EXPECT_EQ(testhost::ReadFile(kLockFile), Line(getpid()));
  EXPECT_EQ(Names("/var/lock").size(), 1U);
  EXPECT_TRUE(
      Logged("FILE: Found a previous instance of lock file '/var/lock/LCK..tty'. "
             "It will be removed automatically.\n"));
}

TEST_F(FileLockDevice, LockFileThatSaysNothingIsReplaced) {
  for (const std::string text : {"noise\n", "12\n", " ", "x 12 machine\n", "\n"}) {
    testhost::WriteFile(kLockFile, text);
    EXPECT_EQ(FileLock_LockDevice("tty"), 1) << text;
    EXPECT_EQ(testhost::ReadFile(kLockFile), Line(getpid()));
  }
  EXPECT_TRUE(Logged("FILE: Badly formatted lock file /var/lock/LCK..tty.\n"));
}

TEST_F(FileLockDevice, EmptyLockFileIsReplaced) {
  testhost::WriteFile(kLockFile, "");
  EXPECT_EQ(FileLock_LockDevice("tty"), 1);
  EXPECT_TRUE(Logged("FILE: Failed to read line from lock file /var/lock/LCK..tty ("));
  EXPECT_FALSE(Logged("Badly formatted"));
}

TEST_F(FileLockDevice, PipeInItsPlaceIsReplaced) {
  ASSERT_EQ(mkfifo(kLockFile, 0666), 0);
  alarm(5);
  EXPECT_EQ(FileLock_LockDevice("tty"), 1);
  EXPECT_EQ(testhost::ReadFile(kLockFile), Line(getpid()));
}

TEST_F(FileLockDevice, OnlyTheFirst999BytesOfALineAreRead) {
  const std::string mine = FileLockGetMachineID();
  const std::string pid = std::to_string(DeadPid());
  // The machine's name is cut off in the first and complete in the second.
  testhost::WriteFile(kLockFile, pid + std::string(999 - pid.size() - mine.size() + 1, ' ') + mine + "\n");
  EXPECT_EQ(FileLock_LockDevice("tty"), 0);
  testhost::WriteFile(kLockFile, pid + std::string(999 - pid.size() - mine.size(), ' ') + mine + "\n");
  EXPECT_EQ(FileLock_LockDevice("tty"), 1);
}

TEST_F(FileLockDevice, DirectoryInItsPlaceIsAFailure) {
  fs::create_directory(kLockFile);
  EXPECT_EQ(FileLock_LockDevice("tty"), -1);
  EXPECT_TRUE(Logged("FILE: Failed to read line from lock file /var/lock/LCK..tty (Is a directory).\n"));
  EXPECT_TRUE(Logged("FILE: Failed to remove stale lock file /var/lock/LCK..tty (Is a directory).\n"));
  EXPECT_TRUE(fs::exists(kLockFile));
}

TEST_F(FileLockDevice, LinkThatLeadsNowhereIsReplaced) {
  fs::create_symlink("/nowhere", kLockFile);
  EXPECT_EQ(FileLock_LockDevice("tty"), 1);
  EXPECT_FALSE(fs::is_symlink(kLockFile));
  EXPECT_EQ(testhost::ReadFile(kLockFile), Line(getpid()));
}

TEST_F(FileLockDevice, MissingDirectoryIsAFailure) {
  EXPECT_EQ(FileLock_LockDevice("no/tty"), -1);
  EXPECT_TRUE(
      Logged("FILE: Failed to create new lock file /var/lock/LCK..no/tty (No such file or "
             "directory).\n"));
}

TEST_F(FileLockDevice, UnlockingTellsThatNothingWasLocked) {
  EXPECT_FALSE(FileLock_UnlockDevice("tty"));
  EXPECT_TRUE(Logged("FILE: Cannot remove lock file /var/lock/LCK..tty (No such file or directory).\n"));
}

TEST_F(FileLockDevice, MayBeTakenForAnotherProcess) {
  const pid_t other = getppid();
  FileLock_Init(other, false);
  EXPECT_EQ(FileLock_LockDevice("tty"), 1);
  EXPECT_EQ(testhost::ReadFile(kLockFile), Line(other));
}

TEST_F(FileLockDevice, FullDiskLeavesNoHalfLock) {
  // Linux gives a tmpfs at least a page, so the file system is full without a byte of the lock's.
  ASSERT_EQ(mount("small", fs::canonical("/var/lock").c_str(), "tmpfs", 0, "size=4096"), 0);
  testhost::WriteFile("/var/lock/ballast", std::string(4096, 'x'));
  EXPECT_EQ(FileLock_LockDevice("tty"), -1);
  EXPECT_TRUE(
      Logged("FILE: Failed to write to new lock file /var/lock/LCK..tty (No space left on device).\n"));
  EXPECT_EQ(Names("/var/lock"), std::vector<std::string>{"ballast"});
}

TEST_F(FileLockDevice, ShortWriteLeavesNoHalfLock) {
  testhost::SystemCalls calls({SYS_write});
  calls.Return(SYS_write, 3, {.count = 1, .first = static_cast<uint32_t>(testhost::NextDescriptor())});
  const int result = FileLock_LockDevice("tty");
  calls.Clear();
  EXPECT_EQ(result, -1) << LogText();
  EXPECT_TRUE(Logged("FILE: Failed to write to new lock file /var/lock/LCK..tty (Input/output error).\n"));
  EXPECT_FALSE(fs::exists(kLockFile));
}

TEST_F(FileLockDeviceUser, LocksAsRoot) {
  EXPECT_EQ(FileLock_LockDevice("tty"), 1);
  struct stat data;
  ASSERT_EQ(stat(kLockFile, &data), 0);
  EXPECT_EQ(data.st_uid, 0U);
  EXPECT_EQ(geteuid(), 1234U);
  // Beneath the sticky bit only root removes root's file.
  EXPECT_EQ(unlink(kLockFile), -1);
  EXPECT_TRUE(FileLock_UnlockDevice("tty"));
  EXPECT_EQ(geteuid(), 1234U);
}

TEST_F(FileLockDeviceUser, StaleLockIsRemovedAsRoot) {
  ASSERT_EQ(seteuid(0), 0);
  testhost::WriteFile(kLockFile, Line(DeadPid()));
  ASSERT_EQ(seteuid(1234), 0);
  EXPECT_EQ(FileLock_LockDevice("tty"), 1);
  EXPECT_EQ(testhost::ReadFile(kLockFile), Line(getpid()));
}

TEST_F(FileLockDeviceUser, LinksAsRoot) {
  // Where only root writes, only root links.
  ASSERT_EQ(seteuid(0), 0);
  ASSERT_EQ(chmod(fs::canonical("/var/lock").c_str(), 0755), 0);
  testhost::SystemCalls calls({SYS_statfs});
  calls.AnswerStatfs(kTmpfs);
  ASSERT_EQ(seteuid(1234), 0);
  EXPECT_EQ(FileLock_LockDevice("tty"), 1);
  EXPECT_EQ(ModeOf(kLockFile), 0444U);
  EXPECT_EQ(Names("/var/lock"), std::vector<std::string>{"LCK..tty"});
}

TEST_F(FileLockDeviceUser, HalfLockIsRemovedAsRoot) {
  testhost::SystemCalls calls({SYS_write});
  calls.Return(SYS_write, 3, {.count = 1, .first = static_cast<uint32_t>(testhost::NextDescriptor())});
  const int result = FileLock_LockDevice("tty");
  calls.Clear();
  EXPECT_EQ(result, -1) << LogText();
  EXPECT_FALSE(fs::exists(kLockFile));
}

TEST_F(FileLockDeviceUser, LockThatCannotBeReadIsAFailure) {
  ASSERT_EQ(FileLock_LockDevice("tty"), 1);
  ASSERT_EQ(seteuid(0), 0);
  ASSERT_EQ(chmod(kLockFile, 0600), 0);
  ASSERT_EQ(seteuid(1234), 0);
  EXPECT_EQ(FileLock_LockDevice("tty"), -1);
  ASSERT_EQ(seteuid(0), 0);
  EXPECT_TRUE(Logged("FILE: Failed to open existing lock file /var/lock/LCK..tty (Permission denied).\n"));
  EXPECT_TRUE(fs::exists(kLockFile));
}

// The kinds of file system, of which this machine has few, through an answer in the kernel's stead.
class FileLockDeviceOn : public FileLockDevice {
 protected:
  void SetUp() override {
    FileLockDevice::SetUp();
    calls_ = std::make_unique<testhost::SystemCalls>(
        std::initializer_list<int>{SYS_statfs, SYS_link, SYS_linkat, SYS_openat, SYS_unlink});
  }
  testhost::SystemCalls &Calls() { return *calls_; }
  [[nodiscard]] size_t Links() const { return calls_->Count(SYS_link) + calls_->Count(SYS_linkat); }

 private:
  std::unique_ptr<testhost::SystemCalls> calls_;
};

TEST_F(FileLockDeviceOn, SomeFileSystemsLink) {
  for (const uint32_t type :
       {0xEF53U, 0xADFFU, 0xEF51U, 0x6969U, 0x482BU, 0x137DU, 0x12FF7B4U, 0x12FF7B5U, 0x12FF7B6U, 0x12FF7B7U,
        0x3153464AU, 0x52654973U, 0x58465342U, 0x11954U, kTmpfs}) {
    const size_t links = Links();
    Calls().AnswerStatfs(type);
    EXPECT_EQ(FileLock_LockDevice("tty"), 1);
    EXPECT_EQ(Links(), links + 1) << type;
    EXPECT_EQ(ModeOf(kLockFile), 0444U);
    EXPECT_EQ(testhost::ReadFile(kLockFile), Line(getpid()));
    EXPECT_EQ(Names("/var/lock").size(), 1U);
    EXPECT_TRUE(FileLock_UnlockDevice("tty"));
  }
  EXPECT_FALSE(Logged("Unknown filesystem"));
}

TEST_F(FileLockDeviceOn, SomeFileSystemsDoNot) {
  for (const uint32_t type : {0x517BU, kVfat, 0x2FABF15EU}) {
    Calls().AnswerStatfs(type);
    EXPECT_EQ(FileLock_LockDevice("tty"), 1);
    EXPECT_EQ(Links(), 0U) << type;
    EXPECT_EQ(ModeOf(kLockFile), 0644U);
    EXPECT_TRUE(FileLock_UnlockDevice("tty"));
  }
  EXPECT_FALSE(Logged("Unknown filesystem"));
}

TEST_F(FileLockDeviceOn, UnknownFileSystemDoesNotLink) {
  for (const uint32_t type : {0x12FF7B3U, 0x12FF7B8U, 0xFF534D42U}) {
    Calls().AnswerStatfs(type);
    EXPECT_EQ(FileLock_LockDevice("tty"), 1);
    EXPECT_TRUE(FileLock_UnlockDevice("tty"));
    char number[16];
    snprintf(number, sizeof number, "0x%x", type);
    EXPECT_TRUE(Logged("FILE: Unknown filesystem " + std::string(number) + ". Using non-linking locking.\n"));
  }
  EXPECT_EQ(Links(), 0U);
}

TEST_F(FileLockDeviceOn, LinkToALockThatIsHeldLeavesNothing) {
  Calls().AnswerStatfs(kTmpfs);
  const std::string line = Line(getppid());
  testhost::WriteFile(kLockFile, line);
  EXPECT_EQ(FileLock_LockDevice("tty"), 0);
  EXPECT_EQ(Links(), 1U);
  EXPECT_EQ(testhost::ReadFile(kLockFile), line);
  EXPECT_EQ(Names("/var/lock").size(), 1U);
}

TEST_F(FileLockDeviceOn, FailingLinkIsAFailureThatLeavesNothing) {
  Calls().AnswerStatfs(kTmpfs);
  Calls().Fail(SYS_link, EMLINK);
  Calls().Fail(SYS_linkat, EMLINK);
  EXPECT_EQ(FileLock_LockDevice("tty"), -1);
  EXPECT_TRUE(Names("/var/lock").empty());
}

TEST_F(FileLockDeviceOn, TemporaryFileOfAFormerProcessIsNoObstacle) {
  Calls().AnswerStatfs(kTmpfs, {.count = 1});
  testhost::WriteFile("/var/lock/" + TemporaryName(), "");
  testhost::WriteFile(kLockFile, Line(DeadPid()));
  EXPECT_EQ(FileLock_LockDevice("tty"), 1);
  EXPECT_EQ(testhost::ReadFile(kLockFile), Line(getpid()));
}

TEST_F(FileLockDeviceOn, TemporaryFileThatStaysIsTold) {
  Calls().AnswerStatfs(kTmpfs);
  Calls().Fail(SYS_unlink, EIO);
  EXPECT_EQ(FileLock_LockDevice("tty"), 1);
  EXPECT_TRUE(Logged("FILE: Failed to remove temporary lock file /var/lock/" + TemporaryName() +
                     " (Input/output error).\n"));
}

TEST_F(FileLockDeviceOn, LockThatGoesMeanwhileIsTakenAnew) {
  Calls().AnswerStatfs(kVfat);
  Calls().Fail(SYS_openat, EEXIST, {.count = 1});
  EXPECT_EQ(FileLock_LockDevice("tty"), 1);
  EXPECT_TRUE(
      Logged("FILE: Failed to open existing lock file /var/lock/LCK..tty (No such file or directory).\n"));
}

TEST_F(FileLockDevice, KilledHolderMakesWay) {
  const pid_t holder = Child([] {
    if (FileLock_LockDevice("tty") == 1) {
      pause();
    }
    return 1;
  });
  Await([holder] { return fs::exists(kLockFile) && testhost::ReadFile(kLockFile) == Line(holder); });
  EXPECT_EQ(FileLock_LockDevice("tty"), 0);
  kill(holder, SIGKILL);
  EXPECT_EQ(StatusOf(holder), 128 + SIGKILL);
  EXPECT_EQ(FileLock_LockDevice("tty"), 1);
}

using FileLockDeviceDeath = FileLockDevice;

TEST_F(FileLockDeviceDeath, NullNameEndsTheProcess) {
  EXPECT_EXIT(FileLock_LockDevice(nullptr), ::testing::ExitedWithCode(255), "");
  EXPECT_EXIT(FileLock_UnlockDevice(nullptr), ::testing::ExitedWithCode(255), "");
}

}  // namespace
