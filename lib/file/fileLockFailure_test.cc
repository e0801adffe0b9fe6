#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "fileLock.h"
#include "fileLockInt.h"
#include "fileLockTestInt.h"
#include "log.h"
#include "random.h"
#include "systemCalls.h"
#include "testhost.h"

namespace fs = std::filesystem;
using namespace locktest;
using testhost::SystemCalls;

// What sleeps this thread asked for since it was emptied, in microseconds.
static thread_local std::vector<useconds_t> sleeps;
// What happens at this thread's next sleep, and at its next making of a directory.
static thread_local std::function<void()> atSleep;
static thread_local std::function<void()> atMkdir;

// These stand in front of the library's.

extern "C" int mkdir(const char *path, mode_t mode) {
  if (const auto event = std::exchange(atMkdir, nullptr)) {
    event();
  }
  return static_cast<int>(syscall(SYS_mkdir, path, mode));
}

extern "C" int usleep(useconds_t microseconds) {
  sleeps.push_back(microseconds);
  if (const auto event = std::exchange(atSleep, nullptr)) {
    event();
  }
  std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
  return 0;
}

namespace {

constexpr char kFile[] = "/t/file";
constexpr char kLockDir[] = "/t/file.lck";
constexpr char kMember[] = "/t/file.lck/M00001.lck";

// The descriptor that the next open gets.
testhost::Which OfNextDescriptor() {
  return {.from = 0, .count = 1, .first = static_cast<uint32_t>(testhost::NextDescriptor())};
}

class FileLockFailure : public ::testing::Test {
 protected:
  void SetUp() override {
    testhost::Host host;
    host.Directory("/t").File(kFile, "content");
    host.Enter();
    umask(022);
    ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
    FileLockGetMachineID();
    ::testing::internal::CaptureStderr();
  }

  // Locks with nothing but the calls of the algorithm. Returns the error number.
  int Lock(uint32_t limit = 0) {
    int error = -1;
    token_ = FileLockIntrinsic(kFile, true, limit, "", &error);
    return error;
  }
  [[nodiscard]] bool IsHeld() const { return token_ != nullptr; }
  [[nodiscard]] std::string Token() const { return static_cast<char *>(token_); }
  void Unlock(int expected = 0) { EXPECT_EQ(FileLock_Unlock(kFile, token_), expected); }

  static void ExpectNothingLeft() { EXPECT_EQ(Names("/t"), std::vector<std::string>{"file"}); }
  // What was warned of, with "NNNNN" for the contender's number.
  static std::string Warnings() { return WithoutNumbers(::testing::internal::GetCapturedStderr()); }
  static bool LoggedOfANumber(const std::string &text) {
    return WithoutNumbers(LogText()).find(text) != std::string::npos;
  }

 private:
  static std::string WithoutNumbers(std::string text) {
    for (size_t at = text.find(".lck/"); at != std::string::npos; at = text.find(".lck/", at + 1)) {
      text.replace(std::min(at + 6, text.size()), 5, "NNNNN");
    }
    return text;
  }

  void *token_ = nullptr;
};

TEST_F(FileLockFailure, EntryFileThatCannotBeMadeLeavesNothing) {
  SystemCalls calls({SYS_openat});
  calls.Fail(SYS_openat, EMFILE, {.count = 1});
  EXPECT_EQ(Lock(), EMFILE);
  EXPECT_FALSE(IsHeld());
  ExpectNothingLeft();
}

TEST_F(FileLockFailure, ShortWriteLeavesNothing) {
  SystemCalls calls({SYS_write});
  calls.Return(SYS_write, 100, OfNextDescriptor());
  EXPECT_EQ(Lock(), EIO);
  EXPECT_FALSE(IsHeld());
  EXPECT_EQ(Warnings(),
            "FILE: CreateMemberFile write length issue on '/t/file.lck/ENNNNN.lck': 512 and 100\n");
  ExpectNothingLeft();
}

TEST_F(FileLockFailure, WriteErrorLeavesNothing) {
  SystemCalls calls({SYS_write});
  calls.Fail(SYS_write, EDQUOT, OfNextDescriptor());
  EXPECT_EQ(Lock(), EDQUOT);
  EXPECT_EQ(Warnings(),
            "FILE: CreateMemberFile write of '/t/file.lck/ENNNNN.lck' failed: Disk quota exceeded\n");
  ExpectNothingLeft();
}

TEST_F(FileLockFailure, CloseErrorLeavesNothing) {
  // A sanitizer may open and close something of its own the first time.
  ASSERT_EQ(Lock(), 0);
  Unlock();
  SystemCalls calls({SYS_close});
  calls.Fail(SYS_close, EIO, OfNextDescriptor());
  EXPECT_EQ(Lock(), EIO);
  EXPECT_EQ(Warnings(),
            "FILE: CreateMemberFile close of '/t/file.lck/ENNNNN.lck' failed: Input/output error\n");
  ExpectNothingLeft();
}

TEST_F(FileLockFailure, RenameErrorTellsWhatIsThereAndLeavesNothing) {
  SystemCalls calls({SYS_rename});
  calls.Fail(SYS_rename, EIO);
  EXPECT_EQ(Lock(), EIO);
  EXPECT_FALSE(IsHeld());
  EXPECT_EQ(Warnings(),
            "FILE: CreateMemberFile FileRename of '/t/file.lck/ENNNNN.lck' to '/t/file.lck/MNNNNN.lck' "
            "failed: Input/output error\n");
  EXPECT_TRUE(
      LoggedOfANumber("FILE: CreateMemberFile FileLockFileType() of '/t/file.lck/ENNNNN.lck': Success\n"));
  EXPECT_TRUE(LoggedOfANumber(
      "FILE: CreateMemberFile FileLockFileType() of '/t/file.lck/MNNNNN.lck': No such file or directory\n"));
  ExpectNothingLeft();
}

TEST_F(FileLockFailure, EntryDirectoryThatCannotBeMadeLeavesNothing) {
  SystemCalls calls({SYS_mkdir});
  calls.Fail(SYS_mkdir, ENOSPC, {.from = 1});
  EXPECT_EQ(Lock(), ENOSPC);
  EXPECT_EQ(Warnings(),
            "FILE: CreateEntryDirectory creation failure on '/t/file.lck/DNNNNN.lck': No space left on "
            "device\n");
  ExpectNothingLeft();
  calls.Clear();
  calls.Fail(SYS_mkdir, ENOSPC, {.from = 1});
  EXPECT_EQ(FileLock_DeleteIfSoleOwner(kFile), ENOSPC);
  ExpectNothingLeft();
}

TEST_F(FileLockFailure, NumberThatIsTakenAndLockDirectoryThatIsGoneAreTriedAnew) {
  SystemCalls calls({SYS_mkdir});
  for (const int error : {EEXIST, ENOENT}) {
    calls.Clear();
    calls.Fail(SYS_mkdir, error, {.from = 1, .count = 1});
    EXPECT_EQ(Lock(), 0);
    ASSERT_TRUE(IsHeld()) << error;
    Unlock();
  }
  EXPECT_EQ(calls.Count(SYS_mkdir), 6U);
  EXPECT_EQ(Warnings(), "");
}

TEST_F(FileLockFailure, LockDirectoryThatAnotherMadeMeanwhileIsTaken) {
  SystemCalls calls({SYS_newfstatat});
  fs::create_directory(kLockDir);
  calls.Fail(SYS_newfstatat, ENOENT, {.count = 1});
  EXPECT_EQ(Lock(), 0);
  ASSERT_TRUE(IsHeld());
  EXPECT_EQ(Warnings(), "");
  Unlock();
}

TEST_F(FileLockFailure, PathTooLongForItsMembersLeavesNothing) {
  std::string path = "/t";
  while (path.size() + 201 < 4085) {
    path += "/" + std::string(200, 'd');
    ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
  }
  const std::string directory = path;
  path += "/" + std::string(4085 - path.size() - 1, 'f');
  int error = -1;
  EXPECT_EQ(FileLock_Lock(path.c_str(), false, 0, &error), nullptr);
  EXPECT_EQ(error, ENAMETOOLONG);
  EXPECT_TRUE(Names(directory).empty());
}

TEST_F(FileLockFailure, PathTooLongForItsLockIsAnError) {
  const std::string path = "/t/" + std::string(252, 'f');
  int error = -1;
  EXPECT_EQ(FileLock_Lock(path.c_str(), false, 0, &error), nullptr);
  EXPECT_EQ(error, ENAMETOOLONG);
  EXPECT_EQ(Warnings(),
            "FILE: CreateEntryDirectory stat failure on '" + path + ".lck': File name too long\n");
}

TEST_F(FileLockFailure, MemberPathThatCannotBeLookedAtIsNotTaken) {
  SystemCalls calls({SYS_newfstatat});
  // Behind the lock directory's.
  calls.Fail(SYS_newfstatat, EIO, {.from = 1, .count = 1});
  EXPECT_EQ(Lock(), 0);
  ASSERT_TRUE(IsHeld());
  calls.Clear();
  EXPECT_EQ(Warnings(), "");
  EXPECT_TRUE(LoggedOfANumber(
      "FILE: CreateEntryDirectory stat failure on '/t/file.lck/MNNNNN.lck': Input/output error\n"));
  EXPECT_EQ(Names(kLockDir).size(), 1U);
  Unlock();
}

TEST_F(FileLockFailure, WhatIsNoDirectoryAndStaysIsAnError) {
  ASSERT_EQ(mkfifo(kLockDir, 0600), 0);
  SystemCalls calls({SYS_unlink});
  calls.Fail(SYS_unlink, EPERM);
  EXPECT_EQ(Lock(), ENOTDIR);
  EXPECT_EQ(Warnings(), "FILE: CreateEntryDirectory: '/t/file.lck' exists and is not a directory.\n");
}

TEST_F(FileLockFailure, WhatIsNoDirectoryMayBeDeletedByAnother) {
  SystemCalls calls({SYS_unlink});
  for (const int error : {ENOENT, EISDIR}) {
    ASSERT_EQ(mkfifo(kLockDir, 0600), 0);
    calls.Clear();
    calls.Fail(SYS_unlink, error, {.count = 1});
    EXPECT_EQ(Lock(), 0);
    ASSERT_TRUE(IsHeld()) << error;
    Unlock();
  }
  EXPECT_EQ(Warnings(), "");
}

TEST_F(FileLockFailure, ChooserThatWasTakenForDeadHoldsNothing) {
  SystemCalls calls({SYS_rmdir});
  calls.Fail(SYS_rmdir, EIO, {.count = 1});
  EXPECT_EQ(Lock(FILELOCK_INFINITE_WAIT), ENOENT);
  EXPECT_FALSE(IsHeld());
  ExpectNothingLeft();
}

TEST_F(FileLockFailure, FileInTheNameOfAChooserGoesAsOne) {
  fs::create_directory(kLockDir);
  testhost::WriteFile(std::string(kLockDir) + "/D00007.lck", "");
  sleeps.clear();
  EXPECT_EQ(Lock(), 0);
  ASSERT_TRUE(IsHeld());
  // Scans see it at 0 to 8000 milliseconds, take it away at 8200, and look once more.
  EXPECT_EQ(sleeps.size(), 8000 / 200 + 2U);
  EXPECT_EQ(Names(kLockDir).size(), 1U);
  EXPECT_TRUE(Logged("FILE: Scanner discarding D00007.lck data from '/t/file.lck'.\n"));
  EXPECT_EQ(Warnings(), "");
  Unlock();
}

TEST_F(FileLockFailure, FilesOfADeadChooserAreNamedByTheLastDOfItsPath) {
  const std::string path = "/t/D1/file";
  const std::string lockDir = path + ".lck/";
  fs::create_directories(lockDir + "D00007.lck");
  fs::create_directories(lockDir + "D00008D.lck");
  testhost::WriteFile(lockDir + "E00007.lck", "");
  testhost::WriteFile(lockDir + "E00008D.lck", "");
  WriteMember(lockDir, "M00007.lck", RemoteLine("1 X"));
  int error = -1;
  void *token = FileLock_Lock(path.c_str(), false, 0, &error);
  ASSERT_NE(token, nullptr) << error;
  EXPECT_EQ(FileLock_Unlock(path.c_str(), token), 0);
  EXPECT_EQ(Names(lockDir), std::vector<std::string>{"E00008D.lck"});
}

TEST_F(FileLockFailure, ChooserThatCannotBeRemovedIsNotWaitedForForEver) {
  fs::create_directories(std::string(kLockDir) + "/D00007.lck/full");
  EXPECT_EQ(Lock(FILELOCK_INFINITE_WAIT), ENOTEMPTY);
  EXPECT_FALSE(IsHeld());
  EXPECT_EQ(Names(kLockDir), std::vector<std::string>{"D00007.lck"});
}

TEST_F(FileLockFailure, SecondListingThatFailsTakesTheMemberAway) {
  SystemCalls calls({SYS_getdents64});
  calls.Fail(SYS_getdents64, EIO, {.from = 2});
  EXPECT_EQ(Lock(), EDOM);
  EXPECT_FALSE(IsHeld());
  calls.Clear();
  EXPECT_TRUE(Logged("FILE: ScanDirectory: Could not read the directory '/t/file.lck': 5\n"));
  EXPECT_EQ(Warnings(), "");
  ExpectNothingLeft();
}

TEST_F(FileLockFailure, MemberThatCannotBeLookedAtEndsTheWait) {
  WriteMember(kLockDir, "M00001.lck", RemoteLine("1 X"));
  SystemCalls calls({SYS_newfstatat, SYS_clock_nanosleep});
  // The directory, our member, two listings with the member's size in each, and then the wait.
  calls.Fail(SYS_newfstatat, ESTALE, {.from = 6});
  EXPECT_EQ(Lock(FILELOCK_INFINITE_WAIT), ESTALE);
  EXPECT_EQ(calls.Count(SYS_clock_nanosleep), 1U);
  calls.Clear();
  EXPECT_EQ(Names(kLockDir), std::vector<std::string>{"M00001.lck"});
  EXPECT_FALSE(Logged("timeout"));
}

TEST_F(FileLockFailure, TimeLimitThatIsJustReachedIsNotOver) {
  WriteMember(kLockDir, "M00001.lck", RemoteLine("1 X"));
  SystemCalls calls({SYS_clock_nanosleep});
  EXPECT_EQ(Lock(99), 0);
  EXPECT_EQ(calls.Count(SYS_clock_nanosleep), 1U);
  EXPECT_EQ(Lock(100), 0);
  EXPECT_EQ(calls.Count(SYS_clock_nanosleep), 3U);
  EXPECT_FALSE(IsHeld());
}

TEST_F(FileLockFailure, DeadMemberThatCannotBeRemovedIsAnError) {
  const pid_t dead = Child([] { return 0; });
  StatusOf(dead);
  WriteMember(kLockDir, "M00001.lck", LocalLine(dead, "1 X"));
  SystemCalls calls({SYS_unlink});
  calls.Fail(SYS_unlink, EPERM, {.count = 1});
  EXPECT_EQ(Lock(), EPERM);
  EXPECT_EQ(Names(kLockDir), std::vector<std::string>{"M00001.lck"});
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "FILE: RemoveLockingFile of '/t/file.lck/M00001.lck' failed: Operation not permitted\n");
}

class FileLockMemberFailure : public FileLockFailure {
 protected:
  void SetUp() override {
    FileLockFailure::SetUp();
    WriteMember(kLockDir, "M00001.lck", RemoteLine("1 X"));
  }
  static int Read() {
    LockValues member = {};
    return FileLockMemberValues(kLockDir, "M00001.lck", &member);
  }
  static std::string Warnings() { return ::testing::internal::GetCapturedStderr(); }
};

TEST_F(FileLockMemberFailure, IsToldAndLeavesTheFile) {
  const struct {
    int number;
    int error;
    const char *warning;
  } rows[] = {
      {SYS_openat, EACCES, "open failure on '/t/file.lck/M00001.lck': Permission denied"},
      {SYS_newfstatat, EIO, "file size failure on '/t/file.lck/M00001.lck': Input/output error"},
      {SYS_read, EIO, "read failure on '/t/file.lck/M00001.lck': Input/output error"},
  };
  std::string expected;
  SystemCalls calls({SYS_openat, SYS_newfstatat, SYS_read});
  for (const auto &row : rows) {
    calls.Clear();
    calls.Fail(row.number, row.error, {.count = 1});
    EXPECT_EQ(Read(), row.error) << row.warning;
    expected += std::string("FILE: FileLockMemberValues ") + row.warning + "\n";
  }
  calls.Clear();
  calls.Return(SYS_read, 100, {.count = 1});
  EXPECT_EQ(Read(), EIO);
  expected += "FILE: FileLockMemberValues read length issue on '/t/file.lck/M00001.lck': 100 and 512\n";
  calls.Clear();
  EXPECT_EQ(Warnings(), expected);
  EXPECT_EQ(Read(), 0);
}

TEST_F(FileLockMemberFailure, ProblematicFileThatStaysIsAnError) {
  testhost::WriteFile(kMember, "short");
  SystemCalls calls({SYS_unlink});
  calls.Fail(SYS_unlink, EPERM, {.count = 1});
  EXPECT_EQ(Lock(), EPERM);
  EXPECT_EQ(Names(kLockDir), std::vector<std::string>{"M00001.lck"});
  EXPECT_EQ(Warnings(),
            "FILE: FileLockMemberValues file '/t/file.lck/M00001.lck': size 5, required size 512\n"
            "FILE: FileLockMemberValues removing problematic lock file '/t/file.lck/M00001.lck'\n");
}

TEST_F(FileLockMemberFailure, PipeInItsPlaceIsNotWaitedFor) {
  fs::remove(kMember);
  ASSERT_EQ(mkfifo(kMember, 0600), 0);
  alarm(5);
  EXPECT_EQ(Read(), ENOENT);
  EXPECT_FALSE(fs::exists(kMember));
}

// Keeps a lease on a file, as a file server does, until another process wants to open the file. Tells by a
// byte when it has the lease.
int KeepLease(const char *path, int ready) {
  sigset_t broken;
  sigemptyset(&broken);
  sigaddset(&broken, SIGIO);
  sigprocmask(SIG_BLOCK, &broken, nullptr);
  const int fd = open(path, O_RDWR);
  const bool leased = fcntl(fd, F_SETLEASE, F_WRLCK) == 0;
  if (!leased || write(ready, "x", 1) != 1 || sigwaitinfo(&broken, nullptr) != SIGIO) {
    return 1;
  }
  usleep(20000);
  return fcntl(fd, F_SETLEASE, F_UNLCK) == 0 ? 0 : 1;
}

TEST_F(FileLockMemberFailure, LeaseOnItIsWaitedFor) {
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t server = Child([&ready] { return KeepLease(kMember, ready[1]); });
  close(ready[1]);
  char byte = 0;
  ASSERT_EQ(read(ready[0], &byte, 1), 1) << "no lease";
  EXPECT_EQ(Read(), 0);
  EXPECT_EQ(StatusOf(server), 0);
  EXPECT_EQ(Warnings(), "");
}

TEST_F(FileLockMemberFailure, SixteenFieldsAreLogged) {
  std::string line = RemoteLine("1 X [");
  for (int number = 5; number < 30; number++) {
    line += " a=" + std::to_string(number);
  }
  WriteMember(kLockDir, "M00001.lck", line);
  EXPECT_EQ(Read(), ENOENT);
  EXPECT_TRUE(Logged("FILE: FileLockMemberValues /t/file.lck/M00001.lck argv[15]: 'a=15'\n"));
  EXPECT_FALSE(Logged("argv[16]"));
}

TEST_F(FileLockFailure, ProcessIsDeadOnlyWhenTheSystemSaysSo) {
  SystemCalls calls({SYS_kill});
  const struct {
    int error;
    bool lives;
    const char *log;
  } rows[] = {
      {ESRCH, false, ""},
      {EPERM, true, ""},
      {EINVAL, true, "FILE: FileLockIsValidProcess Unexpected errno (22), assuming valid.\n"},
  };
  for (const auto &row : rows) {
    const std::string before = LogText();
    calls.Clear();
    calls.Fail(SYS_kill, row.error);
    EXPECT_EQ(FileLockIsValidProcess(getpid()), row.lives) << row.error;
    const std::string log = LogText().substr(before.size());
    EXPECT_EQ(log.substr(log.empty() ? 0 : log.find("FILE:")), row.log);
  }
  EXPECT_EQ(Warnings(), "");
}

TEST_F(FileLockFailure, StartTimeThatIsNoNumberIsToldAndCountsForNothing) {
  const std::string fields = " S 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 ";
  EXPECT_EQ(CreationTimeInStat("1 (a) b)" + fields + "77 20"), 77U);
  EXPECT_EQ(CreationTimeInStat("1 (a) b)" + fields + "x7 20"), 0U);
  EXPECT_EQ(CreationTimeInStat("1 (a) b) S 1"), 0U);
  EXPECT_EQ(CreationTimeInStat("no bracket"), 0U);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "FILE: ProcessCreationTime creationTime conversion error on x7.\n"
            "FILE: ProcessCreationTime creationTime conversion error on .\n"
            "FILE: ProcessCreationTime creationTime conversion error on .\n");
}

TEST_F(FileLockFailure, ForkedProcessNeitherHoldsNorReleases) {
  ASSERT_EQ(Lock(), 0);
  ASSERT_TRUE(IsHeld());
  const pid_t child = Child([] {
    int error = -1;
    return FileLock_Lock(kFile, false, 0, &error) == nullptr && error == 0 ? 0 : 1;
  });
  EXPECT_EQ(StatusOf(child), 0);
  EXPECT_TRUE(fs::exists(Token()));
  Unlock();
  ExpectNothingLeft();
}

TEST_F(FileLockFailure, ProcessForkedBesideAThreadThatLocksIsNotHindered) {
  std::atomic<bool> inside = false;
  std::thread other([&inside] {
    atMkdir = [&inside] {
      inside = true;
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
    };
    int error = -1;
    void *token = FileLock_Lock("/t/other", false, 0, &error);
    EXPECT_EQ(FileLock_Unlock("/t/other", token), 0);
  });
  Await([&inside] { return inside.load(); });
  const pid_t child = Child([] {
    alarm(5);
    int error = -1;
    void *token = FileLock_Lock(kFile, false, 0, &error);
    const bool unlocked = token != nullptr && FileLock_Unlock(kFile, token) == 0;
    return unlocked && umask(0) == 022 ? 0 : 1;
  });
  EXPECT_EQ(StatusOf(child), 0);
  other.join();
  ExpectNothingLeft();
}

TEST_F(FileLockFailure, WhatIsUsualIsLoggedWithoutAWarning) {
  const pid_t dead = Child([] { return 0; });
  StatusOf(dead);
  WriteMember(kLockDir, "M00001.lck", LocalLine(dead, "1 X"));
  WriteMember(kLockDir, "noise", "");
  WriteMember(kLockDir, "M00002.lck", LocalLine(getppid(), "1 X"));
  EXPECT_EQ(Lock(50), 0);
  EXPECT_FALSE(IsHeld());
  WriteMember(kLockDir, "M00002.lck", RemoteLine("1 X"));
  EXPECT_EQ(Lock(50), 0);
  EXPECT_FALSE(IsHeld());
  fs::remove_all(kLockDir);
  testhost::WriteFile(kLockDir, "");
  EXPECT_EQ(Lock(), 0);
  EXPECT_FALSE(IsHeld());
  fs::remove(kLockDir);
  EXPECT_EQ(Lock(), 0);
  ASSERT_TRUE(IsHeld());
  fs::remove(Token());
  Unlock(ENOENT);
  for (const char *text : {"invalid file name", "invalid executionID", "due to a local process",
                           "due to another machine", "old style lock file", "FileUnlockIntrinsic failed"}) {
    EXPECT_TRUE(Logged(text)) << text;
  }
  EXPECT_EQ(Warnings(), "");
}

TEST_F(FileLockFailure, WhatIsUnusualIsWarnedOf) {
  SystemCalls calls({SYS_mkdir});
  calls.Fail(SYS_mkdir, EROFS, {.count = 2});
  int error = -1;
  EXPECT_NE(FileLockIntrinsic(kFile, false, 0, "", &error), nullptr);
  EXPECT_EQ(error, 0);
  EXPECT_EQ(FileLock_DeleteIfSoleOwner(kFile), EROFS);
  const std::string creation =
      "FILE: CreateEntryDirectory creation failure on '/t/file.lck': Read-only file system\n";
  EXPECT_EQ(Warnings(), creation + "FILE: FileLockIntrinsic implicit S lock succeeded on '/t/file'.\n" +
                            creation +
                            "FILE: FileLockHackOST clean-up failure for '/t/file': Read-only file system\n");
}

TEST_F(FileLockFailure, HolderThatDiedDuringAWaitIsWarnedOf) {
  const pid_t holder = Child([] { return pause(); });
  WriteMember(kLockDir, "M00001.lck", LocalLine(holder, "1 X"));
  atSleep = [holder] {
    kill(holder, SIGKILL);
    StatusOf(holder);
  };
  EXPECT_EQ(Lock(FILELOCK_INFINITE_WAIT), 0);
  ASSERT_TRUE(IsHeld());
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "FILE: WaitForPossession discarding file '/t/file.lck/M00001.lck'; invalid executionID.\n");
  Unlock();
}

TEST_F(FileLockFailure, SleepsAreLongerByAFewMilliseconds) {
  uint32_t seed = 0;
  for (const uint32_t msec : {0U, 0U, 1U, 49U, 49U, 50U, 50U, 50U, 50U, 51U}) {
    seed = seed * 1103515245 + 12345;
    sleeps.clear();
    FileSleeper(msec);
    EXPECT_EQ(sleeps, std::vector<useconds_t>{(msec + (seed & (msec < 50 ? 1 : 3))) * 1000});
  }
}

TEST_F(FileLockFailure, LongSleepsAreTakenInPieces) {
  WriteMember(kLockDir, "M00001.lck", RemoteLine("1 X"));
  sleeps.clear();
  // 21 of a tenth of a second, then 200 to 900, 1000 and 1100.
  EXPECT_EQ(Lock(2100 + 4400 + 1000), 0);
  EXPECT_FALSE(IsHeld());
  const std::vector<useconds_t> rest = {200, 300, 400, 500, 600, 700, 800, 900, 900, 100, 900, 200};
  ASSERT_EQ(sleeps.size(), 21 + rest.size());
  for (size_t index = 0; index < sleeps.size(); index++) {
    const useconds_t expected = index < 21 ? 100 : rest[index - 21];
    EXPECT_EQ(sleeps[index] / 1000 - sleeps[index] / 1000 % 100, expected) << index;
  }
}

TEST_F(FileLockFailure, NobodysFileIsNotDeleted) {
  EXPECT_EQ(FileLock_DeleteIfSoleOwner(kFile), 0);
  ExpectNothingLeft();
}

TEST_F(FileLockFailure, StartTimeThatCannotBeReadIsNoReasonToBeDead) {
  EXPECT_FALSE(FileLockValidOwner(FileLockGetExecutionID().c_str(), "1"));
  SystemCalls calls({SYS_openat});
  calls.Fail(SYS_openat, EACCES, {.count = 1});
  EXPECT_TRUE(FileLockValidOwner(FileLockGetExecutionID().c_str(), "1"));
}

TEST_F(FileLockFailure, MemberIsWrittenByItsOwnerAlone) {
  umask(0);
  EXPECT_EQ(Lock(), 0);
  ASSERT_TRUE(IsHeld());
  EXPECT_EQ(fs::status(Token()).permissions(), static_cast<fs::perms>(0644));
  EXPECT_EQ(fs::status(kLockDir).permissions(), static_cast<fs::perms>(0777));
  Unlock();
}

// What the locks of this process will put into the lock directory, one after the other.
class ComingEntries {
 public:
  ComingEntries() {
    uint32_t seed = 0;
    for (const char byte : FileLockGetMachineID() + FileLockGetExecutionID()) {
      seed += static_cast<uint32_t>(static_cast<signed char>(byte));
    }
    random_ = Random_QuickSeed(seed);
  }
  ~ComingEntries() { free(random_); }
  ComingEntries(const ComingEntries &) = delete;
  ComingEntries &operator=(const ComingEntries &) = delete;

  LockEntry Next() { return FileLockEntryOfNumber(kLockDir, (Random_Quick(random_) >> 8) & 0xffff); }

 private:
  RandomQuickState *random_;
};

TEST_F(FileLockFailure, NumberComesFromMachineAndProcess) {
  ComingEntries entries;
  for (int turn = 0; turn < 3; turn++) {
    EXPECT_EQ(Lock(), 0);
    ASSERT_TRUE(IsHeld());
    EXPECT_EQ(Token(), entries.Next().memberPath);
    Unlock();
  }
}

TEST_F(FileLockFailure, WhatLiesInTheEntryFilesPlaceIsNoPartOfTheMember) {
  const std::function<void(const std::string &)> obstacles[] = {
      [](const std::string &path) { testhost::WriteFile(path, std::string(600, 'x')); },
      [](const std::string &path) { EXPECT_EQ(symlink(kFile, path.c_str()), 0); },
      [](const std::string &path) { EXPECT_EQ(mkfifo(path.c_str(), 0600), 0); },
  };
  ComingEntries entries;
  alarm(5);
  for (const auto &obstacle : obstacles) {
    fs::create_directory(kLockDir);
    obstacle(entries.Next().filePath);
    EXPECT_EQ(Lock(), 0);
    ASSERT_TRUE(IsHeld());
    EXPECT_EQ(testhost::ReadFile(Token()).size(), kMemberSize);
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(Token())));
    EXPECT_EQ(testhost::ReadFile(kFile), "content");
    Unlock();
  }
}

TEST_F(FileLockFailure, UnlockAfterTheTreeWasMovedFindsNothing) {
  fs::create_directory("/t/old");
  int error = -1;
  void *token = FileLock_Lock("/t/old/file", false, 0, &error);
  ASSERT_NE(token, nullptr);
  fs::rename("/t/old", "/t/new");
  EXPECT_EQ(FileLock_Unlock("/t/new/file", token), ENOENT);
  EXPECT_EQ(Names("/t/new/file.lck").size(), 1U);
  // What stayed says another place, and is no hindrance.
  token = FileLock_Lock("/t/new/file", false, 0, &error);
  ASSERT_NE(token, nullptr);
  EXPECT_EQ(FileLock_Unlock("/t/new/file", token), 0);
  EXPECT_TRUE(Names("/t/new").empty());
}

}  // namespace
