#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "file.h"
#include "fileLock.h"
#include "fileLockInt.h"
#include "fileLockTestInt.h"
#include "log.h"
#include "regexes.h"
#include "systemCalls.h"
#include "testhost.h"

namespace fs = std::filesystem;
using namespace locktest;

namespace {

constexpr char kFile[] = "/t/file";
constexpr char kLockDir[] = "/t/file.lck";
const auto kPanic = ::testing::ExitedWithCode(255);

class FileLock : public ::testing::Test {
 protected:
  void SetUp() override {
    testhost::Host host;
    host.Directory("/t").Directory("/t/dir").Directory("/t/small").File(kFile, "content");
    Describe(host);
    host.Enter();
    umask(022);
    ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  }
  virtual void Describe(testhost::Host &) {}
};

class FileLockUser : public FileLock {
 protected:
  void Describe(testhost::Host &host) override {
    host.Directory("/t/open", 0777).Directory("/t/open/unlisted.lck", 0333).User(1234);
  }
};

void *Lock(bool readOnly = false, uint32_t limit = 0) {
  int error = -1;
  void *token = FileLock_Lock(kFile, readOnly, limit, &error);
  EXPECT_EQ(error, 0);
  return token;
}

// Locks and unlocks in a moment.
void ExpectFree() {
  void *token = Lock();
  ASSERT_NE(token, nullptr);
  EXPECT_EQ(FileLock_Unlock(kFile, token), 0);
  EXPECT_FALSE(fs::exists(kLockDir));
}

void ExpectHeld() {
  const auto before = Names(kLockDir);
  EXPECT_EQ(Lock(), nullptr);
  EXPECT_EQ(Names(kLockDir), before);
}

// How many members stand at the lock when nobody is choosing.
size_t Members() {
  const auto names = Names(kLockDir);
  const bool choosing = !names.empty() && names[0][0] != 'M';
  return choosing ? 0 : names.size();
}

void AwaitMembers(size_t count) {
  Await([count] { return Members() == count; });
}

mode_t ModeOf(const std::string &path) {
  struct stat data;
  EXPECT_EQ(stat(path.c_str(), &data), 0) << path;
  return data.st_mode & 07777;
}

// A process that holds a lock until it is told to end.
class Holder {
 public:
  explicit Holder(bool readOnly = false) {
    EXPECT_EQ(pipe(ready_), 0);
    pid_ = Child([this, readOnly] {
      void *token = Lock(readOnly);
      EXPECT_EQ(write(ready_[1], "x", 1), 1);
      pause();
      return token != nullptr;
    });
    char byte;
    EXPECT_EQ(read(ready_[0], &byte, 1), 1);
  }
  ~Holder() { Kill(); }
  Holder(const Holder &) = delete;
  Holder &operator=(const Holder &) = delete;

  void Kill() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      StatusOf(pid_);
      pid_ = -1;
    }
  }
  pid_t Pid() const { return pid_; }

 private:
  int ready_[2] = {};
  pid_t pid_ = -1;
};

TEST_F(FileLock, LeavesOneMemberFileAndUnlockingNothing) {
  void *token = Lock();
  ASSERT_NE(token, nullptr);
  EXPECT_EQ(ModeOf(kLockDir), 0777);
  const auto names = Names(kLockDir);
  ASSERT_EQ(names.size(), 1U);
  EXPECT_TRUE(testhost::RegexMatch(names[0], "M[0-9]{5}\\.lck")) << names[0];
  const std::string member = std::string(kLockDir) + "/" + names[0];
  EXPECT_STREQ(static_cast<char *>(token), member.c_str());
  EXPECT_EQ(ModeOf(member), 0644);
  EXPECT_EQ(FileLock_Unlock(kFile, token), 0);
  EXPECT_FALSE(fs::exists(kLockDir));
}

TEST_F(FileLock, MemberFileTellsWhoHoldsTheLock) {
  void *token = Lock();
  ASSERT_NE(token, nullptr);
  const std::string member = testhost::ReadFile(static_cast<char *>(token));
  ASSERT_EQ(member.size(), 512U);
  uint32_t checksum = 5381;
  for (const char byte : std::string(kLockDir)) {
    checksum = checksum * 33 + static_cast<uint32_t>(byte);
  }
  std::string creationTime;
  testhost::Run("cut -d' ' -f22 /proc/" + std::to_string(getpid()) + "/stat", &creationTime);
  creationTime.pop_back();
  const std::string line = std::string(FileLockGetMachineID()) + " " + std::to_string(getpid()) + " 1 X " +
                           creationTime + " lc=" + std::to_string(checksum);
  EXPECT_EQ(member, line + std::string(512 - line.size(), '\0'));
  FileLock_Unlock(kFile, token);
}

TEST_F(FileLock, ChecksumTakesBytesAsSigned) {
  int error = 0;
  void *token = FileLock_Lock("/t/\xc3\xa4", false, 0, &error);
  ASSERT_NE(token, nullptr);
  uint32_t checksum = 5381;
  for (const int byte :
       std::initializer_list<int>{'/', 't', '/', 0xc3 - 256, 0xa4 - 256, '.', 'l', 'c', 'k'}) {
    checksum = checksum * 33 + static_cast<uint32_t>(byte);
  }
  EXPECT_NE(testhost::ReadFile(static_cast<char *>(token)).find(" lc=" + std::to_string(checksum)),
            std::string::npos);
  FileLock_Unlock("/t/\xc3\xa4", token);
}

TEST_F(FileLock, SharedLocksCoexist) {
  void *first = Lock(true);
  void *second = Lock(true);
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(Names(kLockDir).size(), 2U);
  EXPECT_NE(testhost::ReadFile(static_cast<char *>(second)).find(" 2 S "), std::string::npos);
  EXPECT_EQ(FileLock_Unlock(kFile, first), 0);
  EXPECT_EQ(Names(kLockDir).size(), 1U);
  EXPECT_EQ(FileLock_Unlock(kFile, second), 0);
  EXPECT_FALSE(fs::exists(kLockDir));
}

TEST_F(FileLock, SharedAndExclusiveExcludeEachOther) {
  for (const bool firstShared : {true, false}) {
    for (const bool secondShared : {true, false}) {
      void *first = Lock(firstShared);
      void *second = Lock(secondShared);
      EXPECT_EQ(second != nullptr, firstShared && secondShared);
      if (second != nullptr) {
        FileLock_Unlock(kFile, second);
      }
      FileLock_Unlock(kFile, first);
    }
  }
}

TEST_F(FileLock, TimeLimitOfZeroGivesUpAtOnceAndLeavesNothing) {
  const Holder holder;
  const std::string log = LogText();
  const testhost::SystemCalls calls({SYS_clock_nanosleep});
  ExpectHeld();
  EXPECT_EQ(calls.Count(SYS_clock_nanosleep), 0U);
  EXPECT_EQ(LogText(), log);
}

TEST_F(FileLock, TimeLimitIsPassedByTheLastSleep) {
  const Holder holder;
  const auto before = Names(kLockDir);
  const testhost::SystemCalls calls({SYS_clock_nanosleep});
  const double seconds = Seconds([] { EXPECT_EQ(Lock(false, 250), nullptr); });
  EXPECT_GE(seconds, 0.3);
  EXPECT_EQ(calls.Count(SYS_clock_nanosleep), 3U);
  EXPECT_EQ(Names(kLockDir), before);
  EXPECT_TRUE(Logged("FILE: WaitForPossession timeout on '" + std::string(kLockDir) + "/" + before[0] +
                     "' due to a local process (" + std::to_string(holder.Pid()) + ")\n"));
}

TEST_F(FileLock, TimeLimitEndsTheWaitForAnotherMachine) {
  // Whether its process lives can't be known; here it would be dead.
  WriteMember(kLockDir, "M00001.lck", std::string(kOtherMachine) + " 2147483647 1 X [ lc=1");
  EXPECT_EQ(Lock(false, 50), nullptr);
  EXPECT_EQ(Names(kLockDir), std::vector<std::string>{"M00001.lck"});
  EXPECT_TRUE(Logged("FILE: WaitForPossession timeout on '/t/file.lck/M00001.lck' due to another machine (" +
                     std::string(kOtherMachine) + ")\n"));
}

TEST_F(FileLock, LaterTicketWaitsUntilTheFormerIsGone) {
  void *token = Lock();
  const pid_t waiter = Child([] { return Lock(true, FILELOCK_INFINITE_WAIT) == nullptr; });
  AwaitMembers(2);
  int status = 0;
  EXPECT_EQ(waitpid(waiter, &status, WNOHANG), 0);
  EXPECT_EQ(FileLock_Unlock(kFile, token), 0);
  EXPECT_EQ(StatusOf(waiter), 0);
}

TEST_F(FileLock, WaiterIsNotFooledByALaterMemberOfTheFormersName) {
  WriteMember(kLockDir, "M00001.lck", LocalLine(getppid(), "1 X"));
  const pid_t waiter = Child([] { return Lock(false, 5000) == nullptr; });
  AwaitMembers(2);
  // The former is gone, and before anybody looked its number came up again.
  WriteMember("/t", "later", LocalLine(getppid(), "3 X"));
  fs::rename("/t/later", std::string(kLockDir) + "/M00001.lck");
  EXPECT_EQ(StatusOf(waiter), 0);
}

TEST_F(FileLock, WaiterStandsInTheLineAsAHolderDoes) {
  Holder reader(true);
  const pid_t writer = Child([] {
    void *token = Lock(false, FILELOCK_INFINITE_WAIT);
    return token == nullptr ? 1 : FileLock_Unlock(kFile, token);
  });
  AwaitMembers(2);
  EXPECT_EQ(Lock(true), nullptr);
  reader.Kill();
  EXPECT_EQ(StatusOf(writer), 0);
  ExpectFree();
}

TEST_F(FileLock, NobodyIsOvertaken) {
  constexpr size_t kContenders = 8;
  testhost::WriteFile(kFile, "");
  void *token = Lock();
  std::vector<pid_t> contenders;
  for (size_t number = 0; number < kContenders; number++) {
    contenders.push_back(Child([number] {
      void *mine = Lock(number % 3 == 2, FILELOCK_INFINITE_WAIT);
      testhost::WriteFile(kFile, testhost::ReadFile(kFile) + std::to_string(number));
      return FileLock_Unlock(kFile, mine);
    }));
    AwaitMembers(number + 2);
  }
  FileLock_Unlock(kFile, token);
  for (const pid_t contender : contenders) {
    EXPECT_EQ(StatusOf(contender), 0);
  }
  EXPECT_EQ(testhost::ReadFile(kFile), "01234567");
}

TEST_F(FileLock, ThirtyTwoWaitersTimeOutAndLeaveNothing) {
  const Holder holder;
  const auto names = Names(kLockDir);
  std::vector<pid_t> waiters;
  const double seconds = Seconds([&waiters] {
    for (int number = 0; number < 32; number++) {
      waiters.push_back(Child([] { return Lock(false, 1000) == nullptr ? 0 : 1; }));
    }
    for (const pid_t waiter : waiters) {
      EXPECT_EQ(StatusOf(waiter), 0);
    }
  });
  // They look at the members anew while one of them chooses, which isn't counted.
  EXPECT_GT(seconds, 1);
  EXPECT_LT(seconds, 60);
  EXPECT_EQ(Names(kLockDir), names);
}

TEST_F(FileLock, EightContendersLoseNoUpdate) {
  constexpr int kContenders = 8;
  constexpr int kTurns = 2;
  testhost::WriteFile(kFile, "0");
  std::vector<pid_t> contenders;
  contenders.reserve(kContenders);
  for (int number = 0; number < kContenders; number++) {
    contenders.push_back(Child([] {
      for (int turn = 0; turn < kTurns; turn++) {
        void *token = Lock(false, FILELOCK_INFINITE_WAIT);
        const int count = std::stoi(testhost::ReadFile(kFile));
        usleep(2000);
        testhost::WriteFile(kFile, std::to_string(count + 1));
        if (token == nullptr || FileLock_Unlock(kFile, token) != 0) {
          return 1;
        }
      }
      return 0;
    }));
  }
  for (const pid_t contender : contenders) {
    EXPECT_EQ(StatusOf(contender), 0);
  }
  EXPECT_EQ(testhost::ReadFile(kFile), std::to_string(kContenders * kTurns));
  EXPECT_FALSE(fs::exists(kLockDir));
}

TEST_F(FileLock, ReadersNeverSeeHalfAWrite) {
  testhost::WriteFile(kFile, "aaaa");
  std::vector<pid_t> children;
  for (int number = 0; number < 3; number++) {
    children.push_back(Child([number] {
      void *token = Lock(false, FILELOCK_INFINITE_WAIT);
      testhost::WriteFile(kFile, "half");
      usleep(5000);
      testhost::WriteFile(kFile, std::string(4, static_cast<char>('b' + number)));
      return FileLock_Unlock(kFile, token);
    }));
    children.push_back(Child([] {
      void *token = Lock(true, FILELOCK_INFINITE_WAIT);
      const std::string text = testhost::ReadFile(kFile);
      FileLock_Unlock(kFile, token);
      return text == std::string(4, text[0]) ? 0 : 1;
    }));
  }
  for (const pid_t child : children) {
    EXPECT_EQ(StatusOf(child), 0);
  }
  EXPECT_FALSE(fs::exists(kLockDir));
}

TEST_F(FileLock, KilledHoldersFileIsRemovedByTheNext) {
  Holder holder;
  const auto names = Names(kLockDir);
  holder.Kill();
  ASSERT_EQ(Names(kLockDir), names);
  ExpectFree();
  EXPECT_TRUE(
      Logged("FILE: ScanDirectory discarding " + names[0] + " from /t/file.lck': invalid executionID.\n"));
}

TEST_F(FileLock, HolderKilledDuringAWaitMakesWay) {
  Holder holder;
  const auto names = Names(kLockDir);
  std::thread killer([&holder] {
    // A member beside the holder's and nothing else: the other one waits.
    AwaitMembers(2);
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    holder.Kill();
  });
  void *token = Lock(false, FILELOCK_INFINITE_WAIT);
  killer.join();
  EXPECT_NE(token, nullptr);
  EXPECT_EQ(Names(kLockDir).size(), 1U);
  EXPECT_TRUE(Logged("FILE: WaitForPossession discarding file '/t/file.lck/" + names[0] +
                     "'; invalid executionID.\n"));
  FileLock_Unlock(kFile, token);
}

TEST_F(FileLock, ContenderThatDiedWhileChoosingCostsEightSeconds) {
  fs::create_directories("/t/file.lck/D00007.lck");
  testhost::WriteFile("/t/file.lck/E00007.lck", "half a mem");
  const testhost::SystemCalls calls({SYS_clock_nanosleep});
  void *token = nullptr;
  const double seconds = Seconds([&token] { token = Lock(); });
  EXPECT_NE(token, nullptr);
  EXPECT_GT(seconds, 8);
  // Of a fifth of a second each, which ends late on a crowded machine.
  EXPECT_EQ(calls.Count(SYS_clock_nanosleep), 42U);
  EXPECT_EQ(Names(kLockDir).size(), 1U);
  EXPECT_TRUE(Logged("FILE: Scanner discarding D00007.lck data from '/t/file.lck'.\n"));
  FileLock_Unlock(kFile, token);
}

TEST_F(FileLock, MembersAreNotLookedAtWhileSomebodyChooses) {
  const Holder holder;
  fs::create_directories("/t/file.lck/D00007.lck");
  std::thread chooser([] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    fs::remove("/t/file.lck/D00007.lck");
  });
  const double seconds = Seconds([] { EXPECT_EQ(Lock(), nullptr); });
  chooser.join();
  EXPECT_GT(seconds, 0.3);
  EXPECT_LT(seconds, 4);
}

// Locks while a strange contender is choosing, and gives it, with our own ticket, the number `name`.
void *LockBesideAnEqualTicket(const std::string &name) {
  fs::create_directories("/t/file.lck/D00007.lck");
  std::thread chooser([&name] {
    Await([] {
      const auto names = Names(kLockDir);
      return names.size() == 2 && names[1][0] == 'M';
    });
    WriteMember(kLockDir, name, RemoteLine("1 X [ lc=1"));
    fs::remove("/t/file.lck/D00007.lck");
  });
  void *token = Lock();
  chooser.join();
  return token;
}

TEST_F(FileLock, EqualTicketWithALowerNameGoesFirst) {
  EXPECT_EQ(LockBesideAnEqualTicket("M00000.lck"), nullptr);
  EXPECT_EQ(Names(kLockDir), std::vector<std::string>{"M00000.lck"});
}

TEST_F(FileLock, EqualTicketWithAHigherNameGoesLast) {
  void *token = LockBesideAnEqualTicket("M99999.lck");
  ASSERT_NE(token, nullptr);
  EXPECT_EQ(FileLock_Unlock(kFile, token), 0);
  EXPECT_EQ(Names(kLockDir), std::vector<std::string>{"M99999.lck"});
}

TEST_F(FileLock, TicketIsOneAboveTheHighest) {
  WriteMember(kLockDir, "M00001.lck", RemoteLine("7 S [ lc=1"));
  WriteMember(kLockDir, "M00002.lck", RemoteLine("41 S [ lc=1"));
  WriteMember(kLockDir, "M00003.lck", RemoteLine("12 S [ lc=1"));
  void *token = Lock(true);
  ASSERT_NE(token, nullptr);
  EXPECT_NE(testhost::ReadFile(static_cast<char *>(token)).find(" 42 S "), std::string::npos);
  FileLock_Unlock(kFile, token);
}

TEST_F(FileLock, MemberFileOfAWrongSizeIsDeleted) {
  for (const size_t size : {0U, 511U, 513U}) {
    WriteMember(kLockDir, "M00001.lck", RemoteLine("1 X [ lc=1"), size);
    ExpectFree();
    EXPECT_TRUE(Logged("FILE: FileLockMemberValues file '/t/file.lck/M00001.lck': size " +
                       std::to_string(size) + ", required size 512\n"));
  }
  EXPECT_TRUE(Logged("FILE: FileLockMemberValues removing problematic lock file '/t/file.lck/M00001.lck'\n"));
  EXPECT_FALSE(Logged("contents are:"));
}

TEST_F(FileLock, MemberFileThatSaysNothingIsDeleted) {
  for (const std::string &line :
       {std::string(), RemoteLine("1"), RemoteLine("x X"), RemoteLine("-1 X"), RemoteLine("4294967296 X"),
        RemoteLine("0x1 X"), RemoteLine("1 Y"), RemoteLine("1 XX"), RemoteLine("1 X [ lc"),
        RemoteLine("1 X [ =1"), RemoteLine("1 X [ lc="),
        RemoteLine("1 X [ a=1 a=2 a=3 a=4 a=5 a=6 a=7 a=8 "
                   "a=9 a=10 a=11 a=12")}) {
    WriteMember(kLockDir, "M00001.lck", line);
    SCOPED_TRACE(line);
    ExpectFree();
  }
}

TEST_F(FileLock, ContentsOfAProblematicFileAreLogged) {
  WriteMember(kLockDir, "M00001.lck", "one two 3");
  ExpectFree();
  EXPECT_TRUE(Logged("FILE: FileLockMemberValues '/t/file.lck/M00001.lck' contents are:\n"));
  EXPECT_TRUE(Logged("FILE: FileLockMemberValues /t/file.lck/M00001.lck argv[0]: 'one'\n"));
  EXPECT_TRUE(Logged("FILE: FileLockMemberValues /t/file.lck/M00001.lck argv[2]: '3'\n"));
}

TEST_F(FileLock, EveryGoodMemberFileHolds) {
  for (const std::string &line : {RemoteLine("1 X"), RemoteLine("4294967294 X"), RemoteLine("1 X ["),
                                  RemoteLine("1 S 123 lc=1"), RemoteLine("1 X [ other=x lc=1"),
                                  RemoteLine("1 X [ a=1 a=2 a=3 a=4 a=5 a=6 a=7 a=8 a=9 a=10 a=11")}) {
    WriteMember(kLockDir, "M00001.lck", line);
    SCOPED_TRACE(line);
    ExpectHeld();
  }
}

TEST_F(FileLock, NoiseIsRemoved) {
  for (const char *name : {"noise", "M1234.lck", "X12345.lck", "M12345.lc", "M1234x.lck", "M12345lck"}) {
    WriteMember(kLockDir, name, RemoteLine("1 X"));
    ExpectFree();
    EXPECT_TRUE(Logged("FILE: ScanDirectory discarding " + std::string(name) +
                       " from /t/file.lck'; invalid file name.\n"))
        << name;
  }
}

TEST_F(FileLock, NoiseThatCannotBeRemovedHindersNobody) {
  fs::create_directories("/t/file.lck/noise");
  void *token = Lock();
  ASSERT_NE(token, nullptr);
  EXPECT_EQ(FileLock_Unlock(kFile, token), 0);
  EXPECT_TRUE(Logged("FILE: RemoveLockingFile of '/t/file.lck/noise' failed: Is a directory\n"));
}

TEST_F(FileLock, WhatLiesBetweenNumberAndSuffixIsNotLookedAt) {
  WriteMember(kLockDir, "M12345between.lck", RemoteLine("1 X"));
  ExpectHeld();
}

TEST_F(FileLock, FilesBeingWrittenAreNotLookedAt) {
  WriteMember(kLockDir, "E00001.lck", "half");
  void *token = Lock();
  ASSERT_NE(token, nullptr);
  EXPECT_EQ(FileLock_Unlock(kFile, token), 0);
  EXPECT_EQ(Names(kLockDir), std::vector<std::string>{"E00001.lck"});
}

TEST_F(FileLock, OwnersAreJudgedByPidAndStartTime) {
  const pid_t alive = Child([] { return pause(); });
  const pid_t dead = Child([] { return 0; });
  StatusOf(dead);
  const std::string started = std::to_string(ProcessCreationTime(alive));
  const struct {
    std::string line;
    bool holds;
  } rows[] = {
      {LocalLine(alive, "1 X " + started + " lc=1"), true},
      {LocalLine(alive, "1 X " + started + "1 lc=1"), false},
      {LocalLine(alive, "1 X 0 lc=1"), true},
      {LocalLine(alive, "1 X [ lc=1"), true},
      {LocalLine(alive, "1 X"), true},
      {LocalLine(alive, "1 X never"), true},
      {LocalLine(dead, "1 X " + started + " lc=1"), false},
      {LocalLine(dead, "1 X"), false},
      {RemoteLine("1 X 12345"), true},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    WriteMember(kLockDir, "M00001.lck", row.line);
    if (row.holds) {
      ExpectHeld();
    } else {
      ExpectFree();
    }
  }
  EXPECT_TRUE(Logged("FILE: FileLockValidOwner payload conversion error on never. Assuming valid.\n"));
  EXPECT_TRUE(Logged("FILE: ScanDirectory discarding M00001.lck from /t/file.lck': invalid executionID.\n"));
  kill(alive, SIGKILL);
  StatusOf(alive);
}

TEST_F(FileLock, OwnerWithoutAPidIsTakenForAlive) {
  WriteMember(kLockDir, "M00001.lck", std::string(FileLockGetMachineID()) + " nobody 1 X");
  ExpectHeld();
  EXPECT_TRUE(Logged("FILE: FileLockValidOwner pid conversion error on nobody. Assuming valid.\n"));
}

TEST_F(FileLock, CopiedTreeDropsMembersOfThisProcessAlone) {
  void *token = Lock();
  fs::create_directories("/t/copy");
  fs::copy("/t/file.lck", "/t/copy/file.lck");
  int error = -1;
  void *copied = FileLock_Lock("/t/copy/file", false, 0, &error);
  EXPECT_NE(copied, nullptr);
  EXPECT_TRUE(Logged(" from /t/copy/file.lck': lock file has been moved.\n"));
  FileLock_Unlock("/t/copy/file", copied);
  FileLock_Unlock(kFile, token);

  const Holder holder;
  fs::copy("/t/file.lck", "/t/copy/file.lck");
  EXPECT_EQ(FileLock_Lock("/t/copy/file", false, 0, &error), nullptr);
  EXPECT_EQ(error, 0);
}

TEST_F(FileLock, MemberWithoutAChecksumIsNeverMoved) {
  WriteMember(kLockDir, "M00001.lck", LocalLine(getpid(), "1 X ["));
  ExpectHeld();
}

TEST_F(FileLock, OldStyleLockFileIsHeld) {
  testhost::WriteFile(kLockDir, "1234");
  EXPECT_EQ(Lock(false, 10000), nullptr);
  EXPECT_EQ(testhost::ReadFile(kLockDir), "1234");
  EXPECT_TRUE(Logged("FILE: CreateEntryDirectory: '/t/file.lck' exists; an old style lock file?\n"));
}

TEST_F(FileLock, WhatIsNoDirectoryMakesWay) {
  ASSERT_EQ(symlink("/t/file", kLockDir), 0);
  ExpectFree();
  ASSERT_EQ(symlink("/t/missing", kLockDir), 0);
  ExpectFree();
  ASSERT_EQ(mkfifo(kLockDir, 0600), 0);
  ExpectFree();
  EXPECT_EQ(testhost::ReadFile(kFile), "content");
}

TEST_F(FileLock, ReadOnlyPlaceNeedsNoLockForReaders) {
  ASSERT_EQ(mount("none", "/t/small", "tmpfs", MS_RDONLY, "size=64k"), 0);
  int error = -1;
  void *first = FileLock_Lock("/t/small/file", true, 0, &error);
  EXPECT_NE(first, nullptr);
  EXPECT_EQ(error, 0);
  EXPECT_TRUE(Logged("FILE: FileLockIntrinsic implicit S lock succeeded on '/t/small/file'.\n"));
  EXPECT_EQ(FileLock_Unlock("/t/small/file", first), 0);
  EXPECT_EQ(FileLock_Unlock("/t/small/file", FileLock_Lock("/t/small/file", true, 0, &error)), 0);
  EXPECT_EQ(FileLock_Lock("/t/small/file", false, 0, &error), nullptr);
  EXPECT_EQ(error, EROFS);
  EXPECT_TRUE(
      Logged("FILE: CreateEntryDirectory creation failure on '/t/small/file.lck': Read-only file system\n"));
}

TEST_F(FileLockUser, UnwritablePlaceNeedsNoLockForReaders) {
  int error = -1;
  void *token = FileLock_Lock(kFile, true, 0, &error);
  EXPECT_NE(token, nullptr);
  EXPECT_EQ(error, 0);
  EXPECT_EQ(FileLock_Unlock(kFile, token), 0);
  EXPECT_EQ(FileLock_Lock(kFile, false, 0, &error), nullptr);
  EXPECT_EQ(error, EACCES);
}

TEST_F(FileLockUser, UnreadableLockDirectoryIsAnError) {
  int error = -1;
  EXPECT_EQ(FileLock_Lock("/t/open/unlisted", false, 0, &error), nullptr);
  EXPECT_EQ(error, 33);
  EXPECT_TRUE(Logged("FILE: ScanDirectory: Could not read the directory '/t/open/unlisted.lck': 13\n"));
  EXPECT_FALSE(fs::exists("/t/open/unlisted.lck")) << "something stayed in it";
}

TEST_F(FileLock, MissingDirectoryIsAnError) {
  int error = -1;
  EXPECT_EQ(FileLock_Lock("/t/missing/file", false, 0, &error), nullptr);
  EXPECT_EQ(error, ENOENT);
  EXPECT_TRUE(
      Logged("FILE: CreateEntryDirectory creation failure on '/t/missing/file.lck': No such file or "
             "directory\n"));
}

TEST_F(FileLock, FullDiskIsAnErrorThatLeavesNothing) {
  ASSERT_EQ(mount("none", "/t/small", "tmpfs", 0, "size=4k"), 0);
  testhost::WriteFile("/t/small/filler", std::string(4096, 'x'));
  int error = -1;
  EXPECT_EQ(FileLock_Lock("/t/small/file", false, 0, &error), nullptr);
  EXPECT_EQ(error, ENOSPC);
  EXPECT_EQ(Names("/t/small"), std::vector<std::string>{"filler"});
  EXPECT_TRUE(Logged("FILE: CreateMemberFile write of '/t/small/file.lck/E"));
}

TEST_F(FileLock, UnresolvablePathIsInvalid) {
  ASSERT_EQ(mkdir("/t/work", 0700), 0);
  ASSERT_EQ(chdir("/t/work"), 0);
  ASSERT_EQ(rmdir("/t/work"), 0);
  int error = -1;
  EXPECT_EQ(FileLock_Lock("file", false, 0, &error), nullptr);
  EXPECT_EQ(error, EINVAL);
  EXPECT_FALSE(FileLock_IsLocked("file", &error));
  EXPECT_EQ(error, EINVAL);
  EXPECT_EQ(FileLock_DeleteIfSoleOwner("file"), EINVAL);
}

TEST_F(FileLock, UnlockNeedsNoWorkingDirectory) {
  int error = -1;
  ASSERT_EQ(chdir("/t"), 0);
  void *token = FileLock_Lock("file", false, 0, &error);
  ASSERT_NE(token, nullptr);
  ASSERT_EQ(chdir("/t/dir"), 0);
  ASSERT_EQ(rmdir("/t/dir"), 0);
  EXPECT_EQ(FileLock_Unlock("file", token), EINVAL);
  EXPECT_FALSE(fs::exists(kLockDir));
}

TEST_F(FileLock, UnlockGoesToWhereTheLockWasTaken) {
  ASSERT_EQ(mkdir("/t/dir/file.lck", 0777), 0);
  ASSERT_EQ(symlink(".", "/t/link"), 0);
  const std::vector<std::string> paths = {"file", "link/file", "link/new"};
  for (const std::string &path : paths) {
    SCOPED_TRACE(path);
    int error = -1;
    ASSERT_EQ(chdir("/t"), 0);
    void *token = FileLock_Lock(path.c_str(), false, 0, &error);
    ASSERT_NE(token, nullptr);
    fs::remove("/t/link");
    ASSERT_EQ(symlink("/t/dir", "/t/link"), 0);
    ASSERT_EQ(chdir("/t/dir"), 0);
    EXPECT_EQ(FileLock_Unlock(path.c_str(), token), 0);
    EXPECT_EQ(Names("/t"), (std::vector<std::string>{"dir", "file", "link", "small"}));
    EXPECT_TRUE(fs::exists("/t/dir/file.lck")) << "another's was taken away";
    fs::remove("/t/link");
    ASSERT_EQ(symlink(".", "/t/link"), 0);
  }
}

TEST_F(FileLock, LockOfALinkBelongsToTheLink) {
  ASSERT_EQ(symlink("file", "/t/link"), 0);
  ASSERT_EQ(symlink("dir", "/t/dirlink"), 0);
  ASSERT_EQ(symlink("missing", "/t/dirlink/dangling"), 0);
  ASSERT_EQ(symlink("/t/dir", "/rootlink"), 0);
  ASSERT_EQ(chdir("/t/dir"), 0);
  const struct {
    const char *path;
    const char *lockDir;
  } rows[] = {
      {"/t/link", "/t/link.lck"},
      {"/t/dirlink/new", "/t/dir/new.lck"},
      {"/t/dirlink/dangling", "/t/dir/dangling.lck"},
      {"/t/dirlink/../file", "/t/file.lck"},
      {"../file", "/t/file.lck"},
      {"dangling", "/t/dir/dangling.lck"},
      {"/rootlink", "/rootlink.lck"},
      {"/t//new", "/t/new.lck"},
      {"/new", "/new.lck"},
      {"new", "/t/dir/new.lck"},
      {"/t/dirlink", "/t/dirlink.lck"},
      {"/t/dirlink/", "/t/dir.lck"},
      {"/t/dirlink/.", "/t/dir.lck"},
      {"/t/dirlink/..", "/t.lck"},
      {"", "/t/dir.lck"},
  };
  for (const auto &row : rows) {
    int error = -1;
    void *token = FileLock_Lock(row.path, false, 0, &error);
    ASSERT_NE(token, nullptr) << row.path;
    EXPECT_EQ(fs::path(static_cast<char *>(token)).parent_path(), row.lockDir) << row.path;
    EXPECT_TRUE(fs::exists(row.lockDir)) << row.path;
    EXPECT_EQ(FileLock_Unlock(row.path, token), 0);
    EXPECT_FALSE(fs::exists(row.lockDir)) << row.path;
  }
}

TEST_F(FileLock, FileThatAppearsOrGoesKeepsItsLock) {
  ASSERT_EQ(symlink("dir", "/t/dirlink"), 0);
  ASSERT_EQ(symlink("target", "/t/dirlink/dangling"), 0);
  ASSERT_EQ(chdir("/t/dirlink"), 0);
  for (const char *path : {"/t/dirlink/new", "/t/dir/../new", "/t/dirlink/../new", "/t//.//new", "../new",
                           "new", "/t/dirlink/dangling"}) {
    SCOPED_TRACE(path);
    int error = -1;
    void *token = FileLock_Lock(path, false, 0, &error);
    ASSERT_NE(token, nullptr);
    for (const bool isThere : {true, false}) {
      const std::string target = std::string(path).ends_with("dangling") ? "/t/dir/target" : path;
      if (isThere) {
        testhost::WriteFile(target, "content");
      } else {
        fs::remove(target);
      }
      EXPECT_EQ(FileLock_Lock(path, false, 0, &error), nullptr) << isThere;
      EXPECT_EQ(error, 0);
      EXPECT_TRUE(FileLock_IsLocked(path, &error)) << isThere;
      EXPECT_TRUE(fs::exists(static_cast<char *>(token)));
    }
    EXPECT_EQ(FileLock_Unlock(path, token), 0);
    EXPECT_FALSE(FileLock_IsLocked(path, &error));
  }
}

TEST_F(FileLock, SoleOwnerDeletesWhatItMadeBelowALink) {
  ASSERT_EQ(symlink("dir", "/t/dirlink"), 0);
  int error = -1;
  void *token = FileLock_Lock("/t/dirlink/new", false, 0, &error);
  ASSERT_NE(token, nullptr);
  testhost::WriteFile("/t/dirlink/new", "content");
  EXPECT_EQ(FileLock_DeleteIfSoleOwner("/t/dirlink/new"), 0);
  EXPECT_EQ(Names("/t/dir"), std::vector<std::string>{"new.lck"});
  EXPECT_EQ(FileLock_Unlock("/t/dirlink/new", token), 0);
  EXPECT_TRUE(fs::is_empty("/t/dir"));
}

TEST_F(FileLock, IsLockedLooksForMembers) {
  int error = -1;
  EXPECT_FALSE(FileLock_IsLocked(kFile, &error));
  EXPECT_EQ(error, ENOENT);
  EXPECT_FALSE(FileLock_IsLocked(kFile, nullptr));
  void *token = Lock();
  EXPECT_TRUE(FileLock_IsLocked(kFile, &error));
  EXPECT_EQ(error, 0);
  FileLock_Unlock(kFile, token);
  fs::create_directories("/t/file.lck/D00007.lck");
  EXPECT_FALSE(FileLock_IsLocked(kFile, &error));
  EXPECT_EQ(error, 0);
}

TEST_F(FileLock, UnlockTellsThatTheMemberWasGone) {
  void *token = Lock();
  const std::string member = static_cast<char *>(token);
  fs::remove(member);
  EXPECT_EQ(FileLock_Unlock(kFile, token), ENOENT);
  EXPECT_TRUE(Logged("FILE: FileUnlockIntrinsic failed for '" + member + "': No such file or directory\n"));
  EXPECT_FALSE(fs::exists(kLockDir));
}

TEST_F(FileLock, SoleOwnerDeletesTheFile) {
  void *token = Lock();
  EXPECT_EQ(FileLock_DeleteIfSoleOwner(kFile), 0);
  EXPECT_FALSE(fs::exists(kFile));
  EXPECT_EQ(Names(kLockDir).size(), 1U);
  EXPECT_EQ(FileLock_Unlock(kFile, token), 0);
  EXPECT_FALSE(fs::exists(kLockDir));
}

TEST_F(FileLock, OneOfTwoOwnersDeletesNothing) {
  void *token = Lock(true);
  const Holder holder(true);
  EXPECT_EQ(FileLock_DeleteIfSoleOwner(kFile), 0);
  EXPECT_TRUE(fs::exists(kFile));
  EXPECT_EQ(Names(kLockDir).size(), 2U);
  FileLock_Unlock(kFile, token);
}

TEST_F(FileLock, SoleOwnersFailureIsTold) {
  int error = -1;
  void *token = FileLock_Lock("/t/missing", false, 0, &error);
  EXPECT_EQ(FileLock_DeleteIfSoleOwner("/t/missing"), ENOENT);
  EXPECT_TRUE(Logged("FILE: FileLockHackOST clean-up failure for '/t/missing': No such file or directory\n"));
  FileLock_Unlock("/t/missing", token);
}

TEST_F(FileLock, LocksMayBeTakenForAnotherProcess) {
  const pid_t other = Child([] { return pause(); });
  FileLock_Init(other, false);
  void *token = Lock();
  ASSERT_NE(token, nullptr);
  EXPECT_EQ(testhost::ReadFile(static_cast<char *>(token)).find(LocalLine(other, "1 X ")), 0U);
  FileLock_Init(0, false);
  ExpectHeld();
  kill(other, SIGKILL);
  StatusOf(other);
  ExpectFree();
  free(token);
}

TEST(FileLockDeath, NullArgumentsEndTheProcess) {
  int error = 0;
  const char *const assertion = "ASSERT lib/file/fileLockPosix\\.cc:[0-9]+";
  EXPECT_EXIT(FileLock_Lock(nullptr, true, 0, &error), kPanic, assertion);
  EXPECT_EXIT(FileLock_Lock("/t/file", true, 0, nullptr), kPanic, assertion);
  EXPECT_EXIT(FileLock_Unlock(nullptr, &error), kPanic, assertion);
  EXPECT_EXIT(FileLock_Unlock("/t/file", nullptr), kPanic, assertion);
  EXPECT_EXIT(FileLock_IsLocked(nullptr, &error), kPanic, assertion);
}

TEST(ProcessCreationTime, IsFieldTwentyTwoBehindAnyName) {
  testhost::Host host;
  host.Enter();
  fs::copy("/bin/sleep", "/tmp/a) b (c) 1");
  const pid_t pid = Child([] { return execl("/tmp/a) b (c) 1", "sleep", "10", nullptr); });
  const std::string statPath = "/proc/" + std::to_string(pid) + "/stat";
  Await([&statPath] { return testhost::ReadFile(statPath).find("(a) b (c) 1)") != std::string::npos; });
  const std::string stat = testhost::ReadFile(statPath);
  std::string expected;
  testhost::Run("sed 's/.*) //' " + statPath + " | cut -d' ' -f20", &expected);
  EXPECT_EQ(std::to_string(ProcessCreationTime(pid)) + "\n", expected);
  EXPECT_GT(ProcessCreationTime(pid), 0U);
  kill(pid, SIGKILL);
  StatusOf(pid);
  EXPECT_EQ(ProcessCreationTime(pid), 0U);
}

}  // namespace
