#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "logInt.h"
#include "logTestInt.h"
#include "systemCalls.h"

namespace {

using namespace logtest;

constexpr char kOld[] = "/tmp/logs/a.log";

// The names in the directory of logs.
Strings Names() {
  Strings names;
  for (const auto &entry : fs::directory_iterator(kDirectory)) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string Content(const std::string &name) {
  return testhost::ReadFile(std::string(kDirectory) + "/" + name);
}

// Makes files whose content is their name.
void Make(const Strings &names) {
  for (const std::string &name : names) {
    testhost::WriteFile(std::string(kDirectory) + "/" + name, name);
  }
}

// Enters a host where a log beside the directory runs.
void EnterWithLog(const std::string &settings = "") {
  EnterHost(settings);
  ASSERT_TRUE(Log_Init("/tmp/running.log", nullptr, "setup"));
}

Strings Logged() {
  return Texts("/tmp/running.log");
}

// --- The fixed series

TEST(LogBackup, GivesTheFixedSeriesOnePlaceMore) {
  EnterWithLog();
  Make({"a.log", "a-0.log", "a-1.log", "a-2.log", "a-3.log"});
  Log_BackupOldFiles(kOld);
  EXPECT_EQ(Names(), (Strings{"a-0.log", "a-1.log", "a-2.log", "a-3.log"}));
  EXPECT_EQ(Content("a-0.log"), "a.log");
  EXPECT_EQ(Content("a-1.log"), "a-0.log");
  EXPECT_EQ(Content("a-2.log"), "a-1.log");
  EXPECT_EQ(Content("a-3.log"), "a-3.log") << "one beyond the series is left alone";
  EXPECT_EQ(Logged(), Strings{});
}

TEST(LogBackup, SeriesWithGapsMoveUp) {
  EnterWithLog("log.keepold = 4\n");
  Make({"a.log", "a-1.log"});
  Log_BackupOldFiles(kOld);
  EXPECT_EQ(Names(), (Strings{"a-0.log", "a-2.log"}));
  EXPECT_EQ(Logged(), Strings{});
}

TEST(LogBackup, KeepsAllOfThemInNoTime) {
  EnterWithLog("log.keepold = 2147483647\n");
  Make({"a.log", "a-0.log", "a-7.log", "a-2000000000.log"});
  alarm(10);  // for a look at each number
  Log_BackupOldFiles(kOld);
  EXPECT_EQ(Names(), (Strings{"a-0.log", "a-1.log", "a-2000000001.log", "a-8.log"}));
  EXPECT_EQ(Content("a-0.log"), "a.log");
  EXPECT_EQ(Content("a-1.log"), "a-0.log");
  EXPECT_EQ(Content("a-8.log"), "a-7.log");
  EXPECT_EQ(Logged(), Strings{});
}

TEST(LogBackup, LeavesWhatIsNoPlaceOfTheSeries) {
  EnterWithLog();
  Make({"a.log", "a--1.log", "a-1.log.gz", "a-20261121.log", "a-b.log"});
  Log_BackupOldFiles(kOld);
  EXPECT_EQ(Names(), (Strings{"a--1.log", "a-0.log", "a-1.log.gz", "a-20261121.log", "a-b.log"}));
  EXPECT_EQ(Logged(), Strings{});
}

TEST(LogBackup, NumbersInADirectoryThatHasNoPath) {
  EnterWithLog();
  ASSERT_EQ(chdir(kDirectory), 0);
  Make({"a.log", "a-0.log", "a-1.log"});
  Log_BackupOldFiles("a.log");
  EXPECT_EQ(Names(), (Strings{"a-0.log", "a-1.log", "a-2.log"}));
  EXPECT_EQ(Content("a-1.log"), "a-0.log");
  EXPECT_EQ(Content("a-2.log"), "a-1.log");
}

TEST(LogBackup, NumbersInADirectoryThatCannotBeListed) {
  EnterWithLog();
  Make({"a.log", "a-0.log", "a-1.log", "a-2.log"});
  testhost::FailSystemCall(SYS_getdents64, EACCES);
  Log_BackupOldFiles(kOld);
  EXPECT_EQ(Content("a-0.log"), "a.log");
  EXPECT_EQ(Content("a-1.log"), "a-0.log");
  EXPECT_EQ(Content("a-2.log"), "a-1.log");
  EXPECT_EQ(Logged(), Strings{});
}

TEST(LogBackup, FindsNoneInADirectoryThatIsNowhere) {
  EnterWithLog("log.keepold = 2147483647\n");
  alarm(10);  // for a look at each number
  Log_BackupOldFiles("/tmp/logs/no/a.log");
  EXPECT_EQ(Logged(), Strings{});
}

TEST(LogBackup, OneIsKept) {
  EnterWithLog("log.keepold = 1\n");
  Make({"a.log", "a-0.log"});
  Log_BackupOldFiles(kOld);
  EXPECT_EQ(Names(), Strings{"a-0.log"});
  EXPECT_EQ(Content("a-0.log"), "a.log");
}

TEST(LogBackup, NoneAreKept) {
  EnterWithLog("log.keepold = 0\n");
  Make({"a.log", "a-0.log"});
  Log_BackupOldFiles(kOld);
  EXPECT_EQ(Names(), (Strings{"a-0.log", "a.log"}));
}

TEST(LogBackup, NumbersComeBeforeTheLastDotOfTheName) {
  EnterWithLog();
  Make({"a", "a.b.log", "x.d/log"});
  Log_BackupOldFiles("/tmp/logs/a");
  Log_BackupOldFiles("/tmp/logs/a.b.log");
  Log_BackupOldFiles("/tmp/logs/x.d/log");
  EXPECT_EQ(Names(), (Strings{"a-0", "a.b-0.log", "x.d"}));
  EXPECT_TRUE(fs::exists("/tmp/logs/x.d/log-0"));
}

TEST(LogBackup, TellsWhatCannotBeRenamedOrRemovedAndGoesOn) {
  EnterWithLog();
  Make({"a.log", "a-0.log", "a-1.log/file", "a-2.log/file"});
  Log_BackupOldFiles(kOld);
  EXPECT_EQ(Logged(),
            (Strings{"LOG failed to remove /tmp/logs/a-2.log: Is a directory",
                     "LOG failed to rename /tmp/logs/a-1.log -> /tmp/logs/a-2.log: Directory not "
                     "empty",
                     "LOG failed to rename /tmp/logs/a-0.log -> /tmp/logs/a-1.log: Is a directory"}));
  EXPECT_EQ(Content("a-0.log"), "a.log");
}

// --- The growing series

constexpr char kFast[] = "log.fastRotation = TRUE\n";

TEST(LogBackupFast, GivesTheNextNumberAndDeletesTheLowest) {
  EnterWithLog(kFast);
  Make({"a.log", "a-4.log", "a-5.log", "a-6.log", "a-b.log", "b-9.log", "a-7.log.gz", "xa-8.log"});
  Log_BackupOldFiles(kOld);
  EXPECT_EQ(Names(),
            (Strings{"a-5.log", "a-6.log", "a-7.log", "a-7.log.gz", "a-b.log", "b-9.log", "xa-8.log"}));
  EXPECT_EQ(Content("a-7.log"), "a.log");
  EXPECT_EQ(Logged(), Strings{});
}

TEST(LogBackupFast, BeginsWithOne) {
  EnterWithLog(kFast);
  Make({"a.log"});
  Log_BackupOldFiles(kOld);
  EXPECT_EQ(Names(), Strings{"a-1.log"});
}

TEST(LogBackupFast, DeletesNothingBelowTheLimit) {
  EnterWithLog(kFast);
  Make({"a.log", "a-1.log", "a-2.log"});
  Log_BackupOldFiles(kOld);
  EXPECT_EQ(Names(), (Strings{"a-1.log", "a-2.log", "a-3.log"}));
}

TEST(LogBackupFast, DeletesAllThatAreTooMany) {
  EnterWithLog(kFast);
  Make({"a.log", "a-1.log", "a-2.log", "a-3.log", "a-4.log", "a-5.log", "a-6.log"});
  Log_BackupOldFiles(kOld);
  EXPECT_EQ(Names(), (Strings{"a-5.log", "a-6.log", "a-7.log"}));
}

TEST(LogBackupFast, TellsOfGapsAndGoesOn) {
  EnterWithLog(kFast);
  Make({"a.log", "a-1.log", "a-3.log", "a-9.log"});
  Log_BackupOldFiles(kOld);
  // One place of the series is counted for each file, whatever number it has.
  EXPECT_EQ(Names(), (Strings{"a-10.log", "a-3.log", "a-9.log"}));
  Make({"a.log"});
  ASSERT_EQ(unlink("/tmp/logs/a-3.log"), 0);
  Make({"a-0.log", "a-4.log"});
  Log_BackupOldFiles(kOld);
  EXPECT_EQ(Names(), (Strings{"a-10.log", "a-11.log", "a-4.log", "a-9.log"}));
  EXPECT_EQ(Logged(),
            Strings{"LogBackupByRenumber: failed to remove /tmp/logs/a-1.log: No such file or directory"});
}

TEST(LogBackupFast, APercentSignIsAnOrdinaryCharacter) {
  EnterWithLog(kFast);
  Make({"a%s%n.l%dg", "a%s%n-4.l%dg"});
  Log_BackupOldFiles("/tmp/logs/a%s%n.l%dg");
  EXPECT_EQ(Names(), (Strings{"a%s%n-4.l%dg", "a%s%n-5.l%dg"}));
}

TEST(LogBackupFast, TheHighestNumberOfAllDoesNotWrapAround) {
  EnterWithLog(kFast);
  Make({"a.log", "a-2147483647.log"});
  Log_BackupOldFiles(kOld);
  EXPECT_EQ(Names(), (Strings{"a-2147483647.log", "a-2147483648.log"}));
}

TEST(LogBackupFast, AMissingFileIsNoFailure) {
  EnterWithLog(kFast);
  Make({"a-1.log"});
  Log_BackupOldFiles(kOld);
  EXPECT_EQ(Names(), Strings{"a-1.log"});
  EXPECT_EQ(Logged(), Strings{});
}

TEST(LogBackupFast, TellsWhatCannotBeDone) {
  EnterWithLog(std::string(kFast) + "log.keepold = 1\n");
  Log_BackupOldFiles("/tmp/logs/no/a.log");
  Log_BackupOldFiles("/a.log");
  Make({"a.log", "a-1.log", "a-2.log/file"});
  Log_BackupOldFiles(kOld);
  Make({"a.log", "a-4.log/file"});
  {
    testhost::SystemCalls calls({SYS_rename});
    calls.Fail(SYS_rename, EROFS);
    Log_BackupOldFiles(kOld);
  }
  EXPECT_EQ(Logged(), (Strings{"LogBackupByRenumber: failed to read the directory '/tmp/logs/no'.",
                               "LogBackupByRenumber: failed to get base dir for path '/a'.",
                               "LogBackupByRenumber: failed to remove /tmp/logs/a-2.log: Is a directory",
                               std::string("LogBackupByRenumber: failed to rename ") +
                                   "/tmp/logs/a.log -> /tmp/logs/a-5.log failed: Read-only file system",
                               "LogBackupByRenumber: failed to remove /tmp/logs/a-2.log: Is a directory",
                               "LogBackupByRenumber: failed to remove /tmp/logs/a-4.log: Is a directory"}));
}

TEST(LogBackupFast, TellsOfAPathThatIsNowhere) {
  EnterWithLog(kFast);
  ASSERT_EQ(mkdir("/tmp/gone", 0700), 0);
  ASSERT_EQ(chdir("/tmp/gone"), 0);
  ASSERT_EQ(rmdir("/tmp/gone"), 0);
  Log_BackupOldFiles("a.log");
  EXPECT_EQ(Logged(), (Strings{"FILE: File_Cwd: getcwd() failed: No such file or directory",
                               "LogBackupByRenumber: failed to get full path for 'a'."}));
}

// --- By size

// Starts a log whose files have at most a little more than 1000 bytes.
void StartRotating(int32_t keepOld, bool fast) {
  ASSERT_TRUE(Log_Init(kOld, nullptr, "setup"));
  Log_SetConfig(true, false, keepOld, 1000, fast);
}

// What makes a line of 100 bytes with its prefix and its newline.
std::string Filling(char c) {
  return std::string(100 - 27, c);
}

void LogHundred(int count, char c) {
  for (int i = 0; i < count; i++) {
    Log("%s\n", Filling(c).c_str());
  }
}

size_t Banners(const std::string &text) {
  size_t count = 0;
  for (size_t at = 0; (at = text.find("Log for ", at)) != std::string::npos; at++) {
    count++;
  }
  return count;
}

TEST(LogRotate, EachCrossingOfTheSizeBeginsAFileWithABanner) {
  EnterHost("log.rotateSize = 1000\nlog.keepold = 2\n");
  ASSERT_TRUE(Log_Init(kOld, nullptr, "setup"));
  // The tenth line makes it 1000 bytes; the eleventh crosses.
  LogHundred(10, 'a');
  EXPECT_EQ(logState.fileSize, 1000U);
  EXPECT_EQ(Names(), Strings{"a.log"});
  LogHundred(1, 'b');
  EXPECT_EQ(Names(), (Strings{"a-0.log", "a.log"}));
  EXPECT_EQ(Content("a.log"), "");
  LogHundred(11, 'c');
  LogHundred(11, 'd');
  LogHundred(1, 'e');
  EXPECT_EQ(Names(), (Strings{"a-0.log", "a-1.log", "a.log"}));
  for (const std::string &name : Names()) {
    EXPECT_EQ(Banners(Content(name)), 1U) << name;
  }
  EXPECT_EQ(Texts("/tmp/logs/a-1.log"), Strings(11, Filling('c')));
  EXPECT_EQ(Texts("/tmp/logs/a-0.log"), Strings(11, Filling('d')));
  EXPECT_EQ(Texts("/tmp/logs/a.log"), Strings{Filling('e')});
}

TEST(LogRotate, CountsWhatAFileHadAtTheStart) {
  EnterHost("log.rotateSize = 1000\n");
  testhost::WriteFile(kOld, std::string(999, 'o') + "\n");
  ASSERT_TRUE(Log_Init(kOld, nullptr, "setup"));
  LogHundred(1, 'a');
  EXPECT_EQ(Names(), (Strings{"a-0.log", "a.log"}));
}

TEST(LogRotate, CanNumberUpwards) {
  EnterHost();
  StartRotating(2, true);
  for (char c = 'a'; c < 'e'; c++) {
    LogHundred(11, c);
  }
  EXPECT_EQ(Names(), (Strings{"a-3.log", "a-4.log", "a.log"}));
  EXPECT_EQ(Texts("/tmp/logs/a-4.log"), Strings(11, Filling('d')));
}

TEST(LogRotate, WithoutOldFilesTheFileGoesOnUnderANewBanner) {
  EnterHost();
  StartRotating(0, false);
  LogHundred(12, 'a');
  EXPECT_EQ(Names(), Strings{"a.log"});
  EXPECT_EQ(Banners(Content("a.log")), 2U);
}

TEST(LogRotate, KeepsTheDescriptorAndOpensNoOther) {
  EnterHost();
  StartRotating(3, false);
  const int fd = logState.fd;
  const int next = testhost::NextDescriptor();
  LogHundred(111, 'a');
  EXPECT_EQ(logState.fd, fd);
  EXPECT_EQ(testhost::NextDescriptor(), next);
}

TEST(LogRotate, ADeviceKeepsItsName) {
  EnterHost();
  ASSERT_EQ(mknod("/tmp/logs/null", S_IFCHR | 0600, makedev(1, 3)), 0);
  ASSERT_TRUE(Log_Init("/tmp/logs/null", nullptr, "setup"));
  Log_SetConfig(true, false, 3, 1000, false);
  LogHundred(12, 'a');
  EXPECT_EQ(Names(), Strings{"null"});
  EXPECT_EQ(logState.fileSize, 100U);
}

TEST(LogRotate, BringsBackADescriptorThatWasClosed) {
  EnterHost();
  StartRotating(3, false);
  const int fd = logState.fd;
  ASSERT_EQ(close(fd), 0);
  ASSERT_EQ(testhost::NextDescriptor(), fd) << "the next file is to get the same number";
  LogHundred(11, 'a');
  LogHundred(1, 'b');
  EXPECT_EQ(logState.fd, fd);
  EXPECT_EQ(Texts(kOld), Strings{Filling('b')});
}

TEST(LogRotate, AFileThatALogLeftOpenGoesOn) {
  EnterHost("log.rotateSize = 1000\n");
  ASSERT_TRUE(Log_Init(kOld, nullptr, "setup"));
  LogHundred(1, 'a');
  Log_Exit();
  EXPECT_EQ(logState.rotateSize, 0U);
  ASSERT_TRUE(Log_Init(nullptr, nullptr, "setup"));
  LogHundred(11, 'b');
  EXPECT_EQ(Names(), Strings{"a.log"});
  EXPECT_EQ(Texts(kOld).size(), 12U);
}

TEST(LogRotate, ALostFileEndsTheLoggingToFiles) {
  EnterHost();
  StartRotating(3, false);
  LogHundred(10, 'a');
  ASSERT_EQ(link(kOld, "/tmp/linked.log"), 0);
  fs::remove_all(kDirectory);
  const int fd = logState.fd;
  LogHundred(1, 'b');
  EXPECT_EQ(logState.fd, -1);
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);
  EXPECT_EQ(TakeMessages(),
            (Strings{"msg.log.openFailed", "msg.log.switchFailed",
                     "Cannot open or create the log file '/tmp/logs/a.log': No such file or directory\n" +
                         SwitchFailedText(kOld)}));
  EXPECT_EQ(OnStandardError([] { Warning("still here\n"); }), "still here\n");
  EXPECT_EQ(Texts("/tmp/linked.log").size(), 11U);
}

TEST(LogRotate, ALogThatLostItsFileCanHaveAnother) {
  EnterHost();
  StartRotating(0, false);
  LogHundred(10, 'a');
  ASSERT_EQ(unlink(kOld), 0);
  ASSERT_EQ(symlink("elsewhere", kOld), 0);
  LogHundred(1, 'b');
  ASSERT_EQ(logState.fd, -1);
  LogHundred(1, 'c');
  // What has the old name now is no file of the log's.
  ASSERT_TRUE(Log_SetFile("/tmp/logs/b.log", nullptr, true));
  LogHundred(1, 'd');
  EXPECT_TRUE(fs::is_symlink(kOld));
  EXPECT_EQ(Texts("/tmp/logs/b.log"), (Strings{Filling('c'), Filling('d')}));
}

TEST(LogRotate, AFailureInItIsWrittenOnce) {
  EnterHost();
  ASSERT_EQ(mkdir("/tmp/logs/a-0.log", 0700), 0);
  testhost::WriteFile("/tmp/logs/a-0.log/file", "");
  StartRotating(1, false);
  LogHundred(11, 'a');
  Strings expected(11, Filling('a'));
  expected.emplace_back("LOG failed to remove /tmp/logs/a-0.log: Is a directory");
  expected.emplace_back("LOG failed to rename /tmp/logs/a.log -> /tmp/logs/a-0.log: Is a directory");
  EXPECT_EQ(Texts(kOld), expected);
}

}  // namespace
