#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <thread>

#include "logInt.h"
#include "logTestInt.h"
#include "owned.h"
#include "regexes.h"
#include "systemCalls.h"
#include "url.h"

namespace {

using namespace logtest;

constexpr char kOther[] = "/tmp/logs/other.log";
// Another file system, to which nothing can be renamed.
constexpr char kFar[] = "/tmp/far/my.log";

void MountFar(const char *options = "") {
  ASSERT_EQ(mkdir("/tmp/far", 0700), 0);
  ASSERT_EQ(mount("none", "/tmp/far", "tmpfs", 0, options), 0);
}

// Starts a log that has one line.
void StartAt(const char *name) {
  ASSERT_TRUE(Log_Init(name, nullptr, "setup"));
  Log("one\n");
}

ino_t InodeOf(const std::string &path) {
  struct stat data {};
  EXPECT_EQ(stat(path.c_str(), &data), 0) << path;
  return data.st_ino;
}

ino_t InodeOfLog() {
  struct stat data {};
  EXPECT_EQ(fstat(logState.fd, &data), 0);
  return data.st_ino;
}

// --- Opening

// Starts a log whose file's name becomes that of what lies beside it, between the opening and the look at it.
void StartWhileSwapped() {
  // An open file that has a lease can't be opened by others until the lease ends.
  sigset_t lease;
  sigemptyset(&lease);
  sigaddset(&lease, SIGIO);
  ASSERT_EQ(sigprocmask(SIG_BLOCK, &lease, nullptr), 0);
  const pid_t swapper = fork();
  if (swapper == 0) {
    const int fd = open(kLog, O_RDONLY | O_CLOEXEC);
    if (fd == -1 || fcntl(fd, F_SETLEASE, F_RDLCK) == -1) {
      _exit(1);
    }
    testhost::WriteFile("/tmp/logs/leased", "");
    siginfo_t info;
    sigwaitinfo(&lease, &info);
    rename(kOther, kLog);
    fcntl(fd, F_SETLEASE, F_UNLCK);
    _exit(0);
  }
  while (!fs::exists("/tmp/logs/leased")) {
    usleep(1000);
  }
  EXPECT_FALSE(Log_Init(kLog, nullptr, "setup"));
  EXPECT_EQ(logState.fd, -1);
}

TEST(LogOpen, RefusesAFileThatWasSwapped) {
  EnterHost();
  ASSERT_EQ(mount("none", kDirectory, "tmpfs", 0, ""), 0);
  testhost::WriteFile(kLog, "first\n");
  testhost::WriteFile(kOther, "second\n");
  StartWhileSwapped();
  EXPECT_EQ(TakeMessages(), (Strings{"msg.log.openChanged", "msg.log.switchFailed",
                                     "Log file '/tmp/logs/my.log' has changed.\n" + SwitchFailedText(kLog)}));
  EXPECT_EQ(testhost::ReadFile(kLog), "second\n");
}

TEST(LogOpen, RefusesALinkThatTookTheFilesPlace) {
  EnterHost();
  ASSERT_EQ(mount("none", kDirectory, "tmpfs", 0, ""), 0);
  testhost::WriteFile(kLog, "first\n");
  ASSERT_EQ(symlink("target", kOther), 0);
  StartWhileSwapped();
  EXPECT_EQ(TakeMessages(),
            (Strings{"msg.log.openIsLink", "msg.log.switchFailed",
                     "Log file '/tmp/logs/my.log' is a symbolic link.\n" + SwitchFailedText(kLog)}));
}

TEST(LogOpen, DoesNotMakeWhatALinkLeadsTo) {
  EnterHost();
  ASSERT_EQ(symlink("target", kLog), 0);
  EXPECT_FALSE(Log_Init(kLog, nullptr, "setup"));
  EXPECT_EQ(TakeMessages(),
            (Strings{"msg.log.openIsLink", "msg.log.switchFailed",
                     "Log file '/tmp/logs/my.log' is a symbolic link.\n" + SwitchFailedText(kLog)}));
  EXPECT_FALSE(fs::exists("/tmp/logs/target"));
}

TEST(LogOpen, TellsOfLinksThatLeadNowhereBeforeTheName) {
  EnterHost();
  ASSERT_EQ(symlink("loop", "/tmp/logs/loop"), 0);
  EXPECT_FALSE(Log_Init("/tmp/logs/loop/my.log", nullptr, "setup"));
  EXPECT_EQ(TakeMessages().at(2),
            "Cannot open or create the log file '/tmp/logs/loop/my.log': Too many "
            "levels of symbolic links\n" +
                SwitchFailedText("/tmp/logs/loop/my.log"));
}

TEST(LogOpen, TellsThatAFileHasNoFacts) {
  EnterHost();
  const int next = testhost::NextDescriptor();
  {
    testhost::SystemCalls calls({SYS_newfstatat});
    calls.Fail(SYS_newfstatat, EIO, {.count = 1});
    EXPECT_FALSE(Log_SetFile(kLog, nullptr, false) && Log_Init(kLog, nullptr, "setup"));
  }
  EXPECT_EQ(TakeMessages(), (Strings{"msg.log.openFstatFailed", "msg.log.switchFailed",
                                     "Cannot fstat the file /tmp/logs/my.log: 'Input/output error'\n" +
                                         SwitchFailedText(kLog)}));
  EXPECT_EQ(testhost::NextDescriptor(), next) << "a descriptor stays open";
}

TEST(LogOpen, TellsThatAPathHasNoFacts) {
  EnterHost();
  const int next = testhost::NextDescriptor();
  {
    testhost::SystemCalls calls({SYS_newfstatat});
    calls.Fail(SYS_newfstatat, EACCES, {.from = 1, .count = 1});
    EXPECT_FALSE(Log_Init(kLog, nullptr, "setup"));
  }
  EXPECT_EQ(TakeMessages(), (Strings{"msg.log.openLstatFailed", "msg.log.switchFailed",
                                     "Cannot stat the file /tmp/logs/my.log: 'Permission denied'\n" +
                                         SwitchFailedText(kLog)}));
  EXPECT_EQ(testhost::NextDescriptor(), next) << "a descriptor stays open";
}

TEST(LogOpen, MakesAFileThatAllMayRead) {
  EnterHost();
  umask(0);
  StartAt(kLog);
  struct stat data {};
  ASSERT_EQ(stat(kLog, &data), 0);
  EXPECT_EQ(data.st_mode, S_IFREG | 0644U);
  const int flags = fcntl(logState.fd, F_GETFL);
  EXPECT_EQ(flags & O_ACCMODE, O_RDWR);
  EXPECT_EQ(flags & O_APPEND, O_APPEND);
}

// --- The name

TEST(LogSetFile, TakesTheConfiguredName) {
  EnterHost("setup.log.filename = \"~/my.log\"\n");
  setenv("HOME", kDirectory, 1);
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  EXPECT_STREQ(Log_GetFileName(), kLog);
  EXPECT_FALSE(logState.fileIsTemp);
}

TEST(LogSetFile, PrefersTheGivenNameToTheConfiguredOne) {
  EnterHost("setup.log.filename = \"/tmp/logs/other.log\"\n");
  ASSERT_TRUE(Log_Init(kLog, "setup.log.filename", "setup"));
  EXPECT_STREQ(Log_GetFileName(), kLog);
}

TEST(LogSetFile, NamesAFileInTheLogsOwnDirectoryByTheSuffix) {
  EnterHost();
  EXPECT_EQ(Log_GetDir(), nullptr);
  Log_SetDir(kDirectory);
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  EXPECT_STREQ(Log_GetFileName(), "/tmp/logs/ostrel-setup.log");
  EXPECT_FALSE(logState.fileIsTemp);
  const OwnedString directory(Log_GetDir());
  EXPECT_STREQ(directory.get(), kDirectory);
  Log_Exit();
  EXPECT_EQ(Log_GetDir(), nullptr);
  Log_SetDir(kDirectory);
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", ""));
  EXPECT_STREQ(Log_GetFileName(), "/tmp/logs/ostrel.log");
  Log_Exit();
  Log_SetDir(kDirectory);
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", nullptr));
  EXPECT_STREQ(Log_GetFileName(), "/tmp/logs/ostrel.log");
  Log_SetDir(nullptr);
  EXPECT_EQ(Log_GetDir(), nullptr);
}

TEST(LogSetFile, TakesTheLogsOwnDirectoryWithoutAKeyToo) {
  EnterHost();
  Log_SetDir(kDirectory);
  ASSERT_TRUE(Log_Init(nullptr, nullptr, "setup"));
  ASSERT_TRUE(Log_SetFile(nullptr, nullptr, true));
  EXPECT_STREQ(Log_GetFileName(), "/tmp/logs/ostrel-setup.log");
}

TEST(LogSetFile, TellsTheAddressesOfPagesTheName) {
  EnterHost();
  StartAt(kLog);
  const OwnedString before(URL_Get(1, true));
  EXPECT_TRUE(std::string(before.get()).ends_with("&log=%2ftmp%2flogs%2fmy%2elog")) << before.get();
  ASSERT_TRUE(Log_SetFile(kOther, nullptr, false));
  const OwnedString after(URL_Get(1, true));
  EXPECT_TRUE(std::string(after.get()).ends_with("&log=%2ftmp%2flogs%2fother%2elog")) << after.get();
}

TEST(LogSetFile, DoesNothingWithoutALog) {
  EnterHost("logging = FALSE\n");
  EXPECT_TRUE(Log_SetFile(kLog, nullptr, true));
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  EXPECT_FALSE(Log_Enabled());
  EXPECT_EQ(Log_GetFileName(), nullptr);
  EXPECT_FALSE(fs::exists(kLog));
}

// --- The first file

TEST(LogSetFile, BringsWhatWaitedBehindTheBanner) {
  EnterHost();
  ASSERT_TRUE(Log_Init(nullptr, nullptr, "setup"));
  Log("early\n");
  ASSERT_TRUE(Log_SetFile(kLog, nullptr, true));
  EXPECT_EQ(testhost::ReadFile(kLog), "");
  Log("late\n");
  EXPECT_EQ(Texts(kLog), (Strings{"early", "late"}));
}

TEST(LogSetFile, AFirstFileBeginsAnew) {
  EnterHost("log.keepold = 0\n");
  testhost::WriteFile(kLog, "old\n");
  ASSERT_TRUE(Log_Init(nullptr, nullptr, "setup"));
  ASSERT_TRUE(Log_SetFile(kLog, nullptr, true));
  Log("text\n");
  EXPECT_EQ(Texts(kLog), Strings{"text"});
}

TEST(LogSetFile, AFirstFileGoesOnWhenTheLogAppends) {
  EnterHost("log.append = TRUE\n");
  testhost::WriteFile(kLog, "old\n");
  ASSERT_TRUE(Log_Init(nullptr, nullptr, "setup"));
  ASSERT_TRUE(Log_SetFile(kLog, nullptr, true));
  Log("text\n");
  EXPECT_EQ(Lines(kLog).at(0), "old");
  EXPECT_FALSE(fs::exists("/tmp/logs/my-0.log"));
}

TEST(LogSetFile, OldFilesKeepTheirNumbersBeforeAFirstFile) {
  EnterHost("setup.log.filename = \"/tmp/logs/my.log\"\n");
  testhost::WriteFile(kLog, "old\n");
  StartLog();
  Log("text\n");
  EXPECT_EQ(testhost::ReadFile("/tmp/logs/my-0.log"), "old\n");
  EXPECT_EQ(Texts(kLog), Strings{"text"});
}

TEST(LogSetFile, ATemporaryFileHasNoOldOnes) {
  EnterHost();
  setenv("PID", "x", 1);
  ASSERT_EQ(mkdir("/tmp/ostrel-root", 0700), 0);
  testhost::WriteFile("/tmp/ostrel-root/setup-x.log", "old\n");
  StartLog();
  EXPECT_EQ(testhost::ReadFile("/tmp/ostrel-root/setup-x.log"), "");
  EXPECT_FALSE(fs::exists("/tmp/ostrel-root/setup-x-0.log"));
}

TEST(LogSetFile, AStartNumbersTheFileThatALogLeftOpen) {
  EnterHost("setup.log.filename = \"/tmp/logs/my.log\"\n");
  StartLog();
  Log("one\n");
  Log_Exit();
  StartLog();
  Log("two\n");
  EXPECT_EQ(Texts("/tmp/logs/my-0.log"), Strings{"one"});
  EXPECT_EQ(Texts(kLog), Strings{"two"});
}

TEST(LogSetFile, RefusesASymbolicLinkOfAConfiguredName) {
  EnterHost("setup.log.filename = \"/tmp/logs/my.log\"\n");
  testhost::WriteFile("/tmp/logs/target", "precious\n");
  ASSERT_EQ(symlink("target", kLog), 0);
  EXPECT_FALSE(Log_Init(nullptr, "setup.log.filename", "setup"));
  EXPECT_EQ(TakeMessages(),
            (Strings{"msg.log.openIsLink", "msg.log.switchFailed",
                     "Log file '/tmp/logs/my.log' is a symbolic link.\n" + SwitchFailedText(kLog)}));
  EXPECT_TRUE(fs::is_symlink(kLog));
  EXPECT_EQ(testhost::ReadFile("/tmp/logs/target"), "precious\n");
}

TEST(LogSetFile, RefusesADirectoryOfAConfiguredName) {
  EnterHost("setup.log.filename = \"/tmp/logs/my.log\"\n");
  testhost::WriteFile("/tmp/logs/my.log/file", "precious\n");
  EXPECT_FALSE(Log_Init(nullptr, "setup.log.filename", "setup"));
  EXPECT_EQ(TakeMessages(),
            (Strings{"msg.log.openFailed", "msg.log.switchFailed",
                     "Cannot open or create the log file '/tmp/logs/my.log': Is a directory\n" +
                         SwitchFailedText(kLog)}));
  EXPECT_EQ(testhost::ReadFile("/tmp/logs/my.log/file"), "precious\n");
}

TEST(LogSetFile, ADeviceOfAConfiguredNameStaysInItsPlace) {
  EnterHost("setup.log.filename = \"/tmp/logs/my.log\"\n");
  ASSERT_EQ(mknod(kLog, S_IFCHR | 0600, makedev(1, 3)), 0);
  StartLog();
  Log("text\n");
  EXPECT_TRUE(fs::is_character_file(kLog));
  EXPECT_FALSE(fs::exists("/tmp/logs/my-0.log"));
}

// --- From one file to another

TEST(LogSetFile, NeitherReplacesNorDeletesADevice) {
  EnterHost();
  ASSERT_EQ(mknod(kOther, S_IFCHR | 0600, makedev(1, 3)), 0);
  StartAt(kLog);
  const std::string before = testhost::ReadFile(kLog);
  EXPECT_TRUE(Log_SetFile(kOther, nullptr, true));
  Log("two\n");
  EXPECT_TRUE(fs::is_character_file(kOther));
  EXPECT_FALSE(fs::exists("/tmp/logs/other-0.log"));
  EXPECT_EQ(testhost::ReadFile(kLog), before);
}

// Starts a log whose file is a device that anybody may write to.
void StartAtDevice() {
  ASSERT_EQ(mknod(kOther, S_IFCHR | 0600, makedev(1, 3)), 0);
  StartAt(kOther);
}

TEST(LogSetFile, LeavesADeviceInItsPlace) {
  EnterHost();
  StartAtDevice();
  testhost::WriteFile(kLog, "old\n");
  EXPECT_TRUE(Log_SetFile(kLog, nullptr, true));
  Log("two\n");
  EXPECT_TRUE(fs::is_character_file(kOther));
  EXPECT_EQ(testhost::ReadFile("/tmp/logs/my-0.log"), "old\n");
  EXPECT_EQ(Texts(kLog), Strings{"two"});
}

TEST(LogSetFile, GoesOnBehindADeviceWithoutABanner) {
  EnterHost();
  StartAtDevice();
  EXPECT_TRUE(Log_SetFile(kLog, nullptr, false));
  Log("two\n");
  EXPECT_EQ(Lines(kLog).size(), 1U);
}

TEST(LogSetFile, LeavesADeviceForAFileElsewhere) {
  EnterHost("log.keepold = 0\n");
  MountFar();
  testhost::WriteFile(kFar, "old\n");
  StartAtDevice();
  EXPECT_TRUE(Log_SetFile(kFar, nullptr, true));
  Log("two\n");
  EXPECT_TRUE(fs::is_character_file(kOther));
  EXPECT_EQ(Texts(kFar), Strings{"two"});
}

TEST(LogSetFile, LeavesAPipeThatTookTheFilesName) {
  EnterHost();
  StartAt(kLog);
  fs::remove(kLog);
  ASSERT_EQ(mkfifo(kLog, 0600), 0);
  EXPECT_TRUE(Log_SetFile(kOther, nullptr, true));
  Log("two\n");
  ASSERT_TRUE(fs::is_fifo(kLog));
  EXPECT_EQ(Texts(kOther), (Strings{"one", "two"}));
}

TEST(LogSetFile, LeavesALinkToWhereTheFileWent) {
  EnterHost();
  StartAt(kLog);
  fs::rename(kLog, "/tmp/moved.log");
  fs::create_symlink("/tmp/moved.log", kLog);
  EXPECT_TRUE(Log_SetFile(kOther, nullptr, true));
  Log("two\n");
  EXPECT_TRUE(fs::is_symlink(kLog));
  EXPECT_EQ(Texts("/tmp/moved.log"), Strings{"one"});
  EXPECT_EQ(Texts(kOther), (Strings{"one", "two"}));
}

TEST(LogSetFile, LeavesAFileThatTookAPipesName) {
  EnterHost();
  ASSERT_EQ(mkfifo(kLog, 0600), 0);
  StartAt(kLog);
  fs::remove(kLog);
  testhost::WriteFile(kLog, "foreign\n");
  EXPECT_TRUE(Log_SetFile(kOther, nullptr, true));
  Log("two\n");
  EXPECT_EQ(testhost::ReadFile(kLog), "foreign\n");
  EXPECT_EQ(Texts(kOther), Strings{"two"});
}

// Gives the log's file another name, and its name to another file.
void SwapFile() {
  fs::rename(kLog, "/tmp/logs/moved.log");
  testhost::WriteFile(kLog, "another's\n");
}

TEST(LogSetFile, LeavesAnotherFileThatTookTheFilesName) {
  EnterHost();
  StartAt(kLog);
  SwapFile();
  const std::string before = testhost::ReadFile("/tmp/logs/moved.log");
  EXPECT_TRUE(Log_SetFile(kOther, nullptr, true));
  Log("two\n");
  EXPECT_EQ(testhost::ReadFile(kLog), "another's\n");
  EXPECT_EQ(testhost::ReadFile("/tmp/logs/moved.log"), before);
  EXPECT_EQ(Texts(kOther), (Strings{"one", "two"}));
}

TEST(LogSetFile, AFileWithoutItsNameGoesOnWithItsText) {
  EnterHost();
  StartAt(kLog);
  fs::remove(kLog);
  EXPECT_NE(OnStandardError([] { EXPECT_TRUE(Log_SetFile(kOther, nullptr, true)); }), "");
  EXPECT_EQ(Texts(kOther).at(0), "one");
}

TEST(LogSetFile, ATerminalDoesNotBecomeTheProgramsOwn) {
  EnterHost();
  const int keyboard = posix_openpt(O_RDWR | O_NOCTTY);
  ASSERT_EQ(unlockpt(keyboard), 0);
  const auto logThere = [keyboard] {
    setsid();
    const bool started = Log_Init(ptsname(keyboard), nullptr, "setup");
    // Such a program has a terminal as soon as it opens one otherwise.
    const bool hasNone = open("/dev/tty", O_RDWR) == -1;
    open(ptsname(keyboard), O_RDWR);
    const bool hasOne = open("/dev/tty", O_RDWR) != -1;
    _exit(started && hasNone && hasOne ? 0 : 1);
  };
  EXPECT_EXIT(logThere(), testing::ExitedWithCode(0), "");
}

TEST(LogSetFile, APipeThatNobodyReadsDoesNotStopTheWork) {
  EnterHost();
  ASSERT_EQ(mkfifo(kOther, 0600), 0);
  StartAt(kOther);
  alarm(10);
  const std::string text(1000, 'x');
  for (int i = 0; i < 1000; i++) {
    Log("%s\n", text.c_str());
  }
  EXPECT_TRUE(Log_SetFile(kLog, nullptr, false));
  Log("two\n");
  EXPECT_TRUE(Lines(kLog).back().ends_with("| two"));
}

TEST(LogSetFile, ASymbolicLinkLeavesTheOldFile) {
  EnterHost();
  testhost::WriteFile("/tmp/logs/target", "precious\n");
  ASSERT_EQ(symlink("target", kOther), 0);
  StartAt(kLog);
  EXPECT_FALSE(Log_SetFile(kOther, nullptr, true));
  EXPECT_EQ(TakeMessages(),
            (Strings{"msg.log.openIsLink", "msg.log.switchFailed", "msg.log.switchFailedHasOldFile",
                     "Log file '/tmp/logs/other.log' is a symbolic link.\n" + SwitchFailedText(kOther) +
                         "The current log file is still '/tmp/logs/my.log'.\n"}));
  EXPECT_TRUE(fs::is_symlink(kOther));
  EXPECT_EQ(testhost::ReadFile("/tmp/logs/target"), "precious\n");
}

TEST(LogSetFile, TheSameNameChangesNothing) {
  EnterHost();
  StartAt(kLog);
  const ino_t inode = InodeOf(kLog);
  ASSERT_TRUE(Log_SetFile(kLog, nullptr, true));
  Log("two\n");
  EXPECT_EQ(Texts(kLog), (Strings{"one", "two"}));
  EXPECT_EQ(InodeOf(kLog), inode);
  EXPECT_FALSE(fs::exists("/tmp/logs/my-0.log"));
}

TEST(LogSetFile, RenamesTheFile) {
  EnterHost();
  StartAt(kLog);
  testhost::WriteFile(kOther, "old\n");
  const ino_t inode = InodeOf(kLog);
  const int fd = logState.fd;
  ASSERT_TRUE(Log_SetFile(kOther, nullptr, true));
  Log("two\n");
  EXPECT_STREQ(Log_GetFileName(), kOther);
  EXPECT_FALSE(fs::exists(kLog));
  EXPECT_EQ(InodeOf(kOther), inode);
  EXPECT_EQ(logState.fd, fd);
  EXPECT_EQ(Texts(kOther), (Strings{"one", "two"}));
  EXPECT_EQ(testhost::ReadFile("/tmp/logs/other-0.log"), "old\n");
}

TEST(LogSetFile, CopiesWhatCannotBeRenamed) {
  EnterHost();
  MountFar();
  StartAt(kLog);
  Log("%s\n", std::string(3000, 'x').c_str());
  for (int i = 0; i < 10; i++) {
    Log("%s\n", std::string(4000, static_cast<char>('a' + i)).c_str());
  }
  const std::string before = testhost::ReadFile(kLog);
  ASSERT_GT(before.size(), 2 * 16384U);
  const int fd = logState.fd;
  const int next = testhost::NextDescriptor();
  ASSERT_TRUE(Log_SetFile(kFar, nullptr, true));
  EXPECT_EQ(testhost::ReadFile(kFar), before);
  EXPECT_FALSE(fs::exists(kLog));
  EXPECT_EQ(logState.fd, fd);
  EXPECT_EQ(testhost::NextDescriptor(), next);
  EXPECT_EQ(logState.fileSize, before.size());
  Log("two\n");
  EXPECT_EQ(Texts(kFar).back(), "two");
  EXPECT_EQ(InodeOfLog(), InodeOf(kFar));
  std::string open;
  testhost::Run("ls -l /proc/self/fd", &open);
  EXPECT_EQ(open.find(kFar), std::string::npos) << open;
}

TEST(LogSetFile, ALogThatAppendsCopiesBehindWhatIsThere) {
  EnterHost("log.append = TRUE\n");
  testhost::WriteFile(kOther, "old\n");
  StartAt(kLog);
  const std::string before = testhost::ReadFile(kLog);
  ASSERT_TRUE(Log_SetFile(kOther, nullptr, true));
  EXPECT_EQ(testhost::ReadFile(kOther), "old\n" + before);
  EXPECT_FALSE(fs::exists(kLog));
}

TEST(LogSetFile, WithoutCopyBothFilesStay) {
  EnterHost();
  testhost::WriteFile(kOther, "old\n");
  StartAt(kLog);
  const std::string before = testhost::ReadFile(kLog);
  ASSERT_TRUE(Log_SetFile(kOther, nullptr, false));
  Log("two\n");
  EXPECT_EQ(testhost::ReadFile(kLog), before);
  const Strings lines = Lines(kOther);
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0], "old");
  EXPECT_TRUE(testhost::RegexMatch(lines[1], std::string(kPrefix) + "two"));
  EXPECT_EQ(logState.fileSize, testhost::ReadFile(kOther).size());
}

// What two names of one file leave alone.
void ExpectOneFile(const char *name) {
  const std::string before = testhost::ReadFile(kLog);
  const ino_t inode = InodeOf(kLog);
  const int fd = logState.fd;
  const int next = testhost::NextDescriptor();
  ASSERT_TRUE(Log_SetFile(name, nullptr, true));
  EXPECT_STREQ(Log_GetFileName(), name);
  EXPECT_EQ(testhost::ReadFile(name), before);
  EXPECT_EQ(InodeOf(name), inode);
  EXPECT_EQ(InodeOfLog(), inode);
  EXPECT_EQ(logState.fd, fd);
  EXPECT_EQ(testhost::NextDescriptor(), next);
  EXPECT_EQ(logState.fileSize, before.size());
  Log("two\n");
  EXPECT_EQ(Texts(name), (Strings{"one", "two"}));
}

TEST(LogSetFile, TwoNamesOfOneFileLeaveItAlone) {
  EnterHost("log.keepold = 0\n");
  StartAt(kLog);
  ASSERT_EQ(link(kLog, kOther), 0);
  ExpectOneFile(kOther);
}

TEST(LogSetFile, TwoNamesOfOneFileLeaveItAloneWhereTheLogAppends) {
  EnterHost("log.append = TRUE\n");
  StartAt(kLog);
  ASSERT_EQ(link(kLog, kOther), 0);
  ExpectOneFile(kOther);
  EXPECT_TRUE(fs::exists(kLog));
}

TEST(LogSetFile, OneFileSeenThroughTwoMountsIsLeftAlone) {
  EnterHost("log.keepold = 0\n");
  ASSERT_EQ(mkdir("/tmp/again", 0700), 0);
  ASSERT_EQ(mount(kDirectory, "/tmp/again", nullptr, MS_BIND, nullptr), 0);
  StartAt(kLog);
  ExpectOneFile("/tmp/again/my.log");
}

TEST(LogSetFile, AnotherSpellingOfTheNameLeavesTheFileAlone) {
  EnterHost();
  StartAt(kLog);
  ExpectOneFile("/tmp/logs/./my.log");
  EXPECT_FALSE(fs::exists("/tmp/logs/my-0.log"));
}

TEST(LogSetFile, AWayThroughALinkToTheDirectoryLeavesTheFileAlone) {
  EnterHost();
  ASSERT_EQ(symlink(kDirectory, "/tmp/linked"), 0);
  StartAt(kLog);
  ExpectOneFile("/tmp/linked/my.log");
  EXPECT_FALSE(fs::exists("/tmp/logs/my-0.log"));
}

TEST(LogSetFile, OneFileOnAFullDiskIsLeftAlone) {
  EnterHost("log.append = TRUE\n");
  MountFar("size=64k");
  ASSERT_TRUE(Log_Init(kFar, nullptr, "setup"));
  Log("%s\n", std::string(4000, 'x').c_str());
  testhost::Run("cat /dev/zero > /tmp/far/filler");
  while (write(logState.fd, "y", 1) == 1) {
  }
  const std::string before = testhost::ReadFile(kFar);
  ASSERT_EQ(link(kFar, "/tmp/far/other.log"), 0);
  ASSERT_TRUE(Log_SetFile("/tmp/far/other.log", nullptr, true));
  EXPECT_EQ(testhost::ReadFile("/tmp/far/other.log"), before);
}

TEST(LogSetFile, TwoFilesOfOneSizeAreTwoOnAFullDiskToo) {
  EnterHost("log.append = TRUE\n");
  MountFar("size=64k");
  ASSERT_TRUE(Log_Init(kFar, nullptr, "setup"));
  Log("%s\n", std::string(4000, 'x').c_str());
  testhost::WriteFile("/tmp/far/other.log", std::string(4096, 'o'));
  testhost::Run("cat /dev/zero > /tmp/far/filler");
  while (write(logState.fd, "y", 1) == 1) {
  }
  ASSERT_EQ(ftruncate(logState.fd, 4096), 0);
  // The page that the disk has left again.
  testhost::Run("cat /dev/zero > /tmp/far/filling");
  EXPECT_FALSE(Log_SetFile("/tmp/far/other.log", nullptr, true));
  EXPECT_EQ(TakeMessages().at(0), "msg.log.copyWriteFailed");
  EXPECT_STREQ(Log_GetFileName(), kFar);
}

TEST(LogSetFile, TwoFilesOfOneSizeAreTwo) {
  EnterHost("log.append = TRUE\n");
  StartAt(kLog);
  const std::string before = testhost::ReadFile(kLog);
  testhost::WriteFile(kOther, std::string(before.size(), 'o'));
  ASSERT_TRUE(Log_SetFile(kOther, nullptr, true));
  EXPECT_EQ(testhost::ReadFile(kOther), std::string(before.size(), 'o') + before);
  EXPECT_FALSE(fs::exists(kLog));
}

TEST(LogSetFile, AFileThatIsOneByteLongerIsAnother) {
  EnterHost("log.append = TRUE\n");
  StartAt(kLog);
  const std::string before = testhost::ReadFile(kLog);
  const std::string longer(before.size() + 1, 'o');
  testhost::WriteFile(kOther, longer);
  ASSERT_TRUE(Log_SetFile(kOther, nullptr, true));
  EXPECT_EQ(testhost::ReadFile(kOther), longer + before);
}

TEST(LogSetFile, AFileOfTheSameNumberInAnotherFileSystemIsAnother) {
  EnterHost();
  ASSERT_EQ(mount("none", kDirectory, "tmpfs", 0, ""), 0);
  MountFar();
  StartAt(kLog);
  testhost::WriteFile(kFar, "old\n");
  ASSERT_EQ(InodeOf(kFar), InodeOfLog());
  ASSERT_TRUE(Log_SetFile(kFar, nullptr, true));
  EXPECT_EQ(testhost::ReadFile("/tmp/far/my-0.log"), "old\n");
  EXPECT_EQ(Texts(kFar), Strings{"one"});
}

TEST(LogSetFile, ANewNameThatCannotBeOpenedLeavesTheOldFile) {
  EnterHost();
  StartAt(kLog);
  EXPECT_FALSE(Log_SetFile("/tmp/logs/no/my.log", nullptr, true));
  EXPECT_EQ(TakeMessages(),
            (Strings{"msg.log.openFailed", "msg.log.switchFailed", "msg.log.switchFailedHasOldFile",
                     "Cannot open or create the log file '/tmp/logs/no/my.log': No such file or directory\n" +
                         SwitchFailedText("/tmp/logs/no/my.log") +
                         "The current log file is still '/tmp/logs/my.log'.\n"}));
  EXPECT_STREQ(Log_GetFileName(), kLog);
  Log("two\n");
  EXPECT_EQ(Texts(kLog), (Strings{"one", "two"}));
}

// Goes over to a file on a disk that has no room for the log.
void GoToFullDisk(Strings expected) {
  testhost::Run("cat /dev/zero > /tmp/far/filler");
  for (int i = 0; i < 20; i++) {
    Log("%s\n", std::string(4000, 'x').c_str());
  }
  const std::string before = testhost::ReadFile(kLog);
  const int next = testhost::NextDescriptor();
  EXPECT_FALSE(Log_SetFile(kFar, nullptr, true));
  expected.push_back(
      "A write error occurred when copying data to '/tmp/far/my.log': No space left on device\n");
  const Strings messages = TakeMessages();
  ASSERT_EQ(messages.size(), expected.size());
  EXPECT_EQ(Strings(messages.begin(), messages.end() - 1), Strings(expected.begin(), expected.end() - 1));
  EXPECT_TRUE(messages.back().starts_with(expected.back())) << messages.back();
  EXPECT_TRUE(messages.back().ends_with(SwitchFailedText(kFar) +
                                        "The current log file is still '/tmp/logs/my.log'.\n"));
  EXPECT_EQ(testhost::NextDescriptor(), next);
  EXPECT_STREQ(Log_GetFileName(), kLog);
  EXPECT_EQ(testhost::ReadFile(kLog), before);
  Log("two\n");
  EXPECT_EQ(Texts(kLog).back(), "two");
}

TEST(LogSetFile, ACopyThatFindsNoRoomIsDeletedAgain) {
  EnterHost();
  MountFar("size=64k");
  StartAt(kLog);
  GoToFullDisk({"msg.log.copyWriteFailed", "msg.log.switchFailed", "msg.log.switchFailedHasOldFile"});
  EXPECT_FALSE(fs::exists(kFar));
}

TEST(LogSetFile, TellsOfACopyThatCannotBeDeleted) {
  EnterHost("log.keepold = 0\n");
  MountFar("size=64k");
  StartAt(kLog);
  testhost::WriteFile(kFar, "");
  testhost::SystemCalls calls({SYS_unlink, SYS_rename});
  calls.Fail(SYS_unlink, EPERM);
  calls.Fail(SYS_rename, EXDEV);
  EXPECT_NO_FATAL_FAILURE(GoToFullDisk({"msg.log.copyWriteFailed", "msg.log.switchUnlinkFailed",
                                        "msg.log.switchFailed", "msg.log.switchFailedHasOldFile"}));
  EXPECT_TRUE(fs::exists(kFar));
}

TEST(LogSetFile, BeginsNoNextFileUnderTheNameOfOneThatCannotBeDeleted) {
  EnterHost("log.keepold = 0\nlog.rotateSize = 200\n");
  MountFar();
  StartAt(kLog);
  Log("%s\n", std::string(100, 'x').c_str());
  testhost::SystemCalls calls({SYS_unlink});
  calls.Fail(SYS_unlink, EPERM);
  EXPECT_NE(OnStandardError([] { EXPECT_TRUE(Log_SetFile(kFar, nullptr, true)); }), "");
  Log("two\n");
  EXPECT_NE(testhost::ReadFile(kFar).find("Failed to unlink"), std::string::npos);
  EXPECT_TRUE(Lines(kFar).back().ends_with("| two"));
}

TEST(LogSetFile, WarnsOfAnOldFileThatCannotBeDeleted) {
  EnterHost("log.keepold = 0\n");
  MountFar();
  StartAt(kLog);
  testhost::SystemCalls calls({SYS_unlink});
  calls.Fail(SYS_unlink, EPERM);
  EXPECT_EQ(OnStandardError([] { EXPECT_TRUE(Log_SetFile(kFar, nullptr, true)); }),
            "Failed to unlink log file '/tmp/logs/my.log': Operation not permitted\n");
  EXPECT_STREQ(Log_GetFileName(), kFar);
  EXPECT_EQ(Texts(kFar),
            (Strings{"one", "Failed to unlink log file '/tmp/logs/my.log': Operation not permitted"}));
}

TEST(LogSetFile, TellsOfAFileWithoutASize) {
  EnterHost();
  testhost::SystemCalls calls({SYS_newfstatat});
  calls.Fail(SYS_newfstatat, EIO, {.from = 3, .count = 1});
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  EXPECT_EQ(logState.fileSize, 0U);
  EXPECT_EQ(Lines(kLog).at(kBannerLines), "LOG NOT INITIALIZED | LOG fstat failed: Input/output error");
}

// --- Copies

TEST(LogCopyFile, CopiesTheWholeLog) {
  EnterHost();
  StartAt(kLog);
  testhost::WriteFile(kOther, "old\n");
  EXPECT_TRUE(Log_CopyFile(kOther));
  EXPECT_EQ(testhost::ReadFile(kOther), testhost::ReadFile(kLog));
  Log("two\n");
  EXPECT_EQ(Texts(kLog), (Strings{"one", "two"}));
  EXPECT_EQ(Texts(kOther), Strings{"one"});
  EXPECT_STREQ(Log_GetFileName(), kLog);
}

TEST(LogCopyFile, AddsToAFileWhereTheLogAppends) {
  EnterHost("log.append = TRUE\n");
  StartAt(kLog);
  testhost::WriteFile(kOther, "old\n");
  EXPECT_TRUE(Log_CopyFile(kOther));
  EXPECT_EQ(testhost::ReadFile(kOther), "old\n" + testhost::ReadFile(kLog));
}

TEST(LogCopyFile, APipeThatNobodyReadsIsAFailure) {
  EnterHost("log.append = TRUE\n");
  StartAt(kLog);
  const std::string text(1000, 'x');
  for (int i = 0; i < 100; i++) {  // more than a pipe holds
    Log("%s\n", text.c_str());
  }
  ASSERT_EQ(mkfifo(kOther, 0600), 0);
  const Signals signals(300000000, [](int) {});
  alarm(10);
  EXPECT_FALSE(Log_CopyFile(kOther));
  EXPECT_EQ(TakeMessages(), (Strings{"msg.log.copyWriteFailed",
                                     "A write error occurred when copying data to '/tmp/logs/other.log': "
                                     "Resource temporarily unavailable\n"}));
}

TEST(LogCopyFile, WaitsForASlowReaderOfAPipe) {
  EnterHost("log.append = TRUE\n");
  StartAt(kLog);
  const std::string line(1000, 'x');
  for (int i = 0; i < 200; i++) {  // more than a pipe holds
    Log("%s\n", line.c_str());
  }
  const std::string whole = testhost::ReadFile(kLog);
  ASSERT_EQ(mkfifo(kOther, 0600), 0);
  const int pipe = open(kOther, O_RDWR);
  std::string got;
  std::thread reader([pipe, &got, &whole] {
    char block[4096];
    while (got.size() < whole.size()) {
      usleep(2000);
      got.append(block, static_cast<size_t>(std::max<ssize_t>(read(pipe, block, sizeof block), 0)));
    }
  });
  alarm(10);
  {
    const Signals signals(1000000, [](int) {});
    EXPECT_TRUE(Log_CopyFile(kOther));
  }
  reader.join();
  EXPECT_EQ(got == whole, true);
  close(pipe);
}

TEST(LogCopyFile, ToItselfKeepsTheContent) {
  EnterHost();
  StartAt(kLog);
  const std::string before = testhost::ReadFile(kLog);
  EXPECT_TRUE(Log_CopyFile(kLog));
  EXPECT_EQ(testhost::ReadFile(kLog), before);
}

TEST(LogCopyFile, GoesOnBehindAWriteThatWasShort) {
  EnterHost();
  StartAt(kLog);
  const std::string before = testhost::ReadFile(kLog);
  {
    testhost::SystemCalls calls({SYS_write});
    // Three bytes that the kernel says it took, and didn't.
    calls.Return(SYS_write, 3, {.count = 1});
    EXPECT_TRUE(Log_CopyFile(kOther));
  }
  EXPECT_EQ(testhost::ReadFile(kOther), before.substr(3));
}

TEST(LogCopyFile, WithoutALogLeavesTheDestinationAlone) {
  EnterHost();
  testhost::WriteFile(kOther, "precious\n");
  EXPECT_FALSE(Log_CopyFile(kOther));
  EXPECT_EQ(TakeMessages(),
            (Strings{"msg.log.copyLseekFailed", "Cannot seek to start of file '': Bad file descriptor\n"}));
  EXPECT_EQ(testhost::ReadFile(kOther), "precious\n");
}

TEST(LogCopyFile, TellsEachFailure) {
  EnterHost();
  StartAt(kLog);
  EXPECT_FALSE(Log_CopyFile("/tmp/logs/no/other.log"));
  EXPECT_EQ(TakeMessages(), (Strings{"msg.log.openFailed",
                                     "Cannot open or create the log file '/tmp/logs/no/other.log': No such "
                                     "file or directory\n"}));
  const int next = testhost::NextDescriptor();
  testhost::SystemCalls calls({SYS_ftruncate, SYS_lseek, SYS_write, SYS_read});
  calls.Fail(SYS_ftruncate, EINVAL);
  EXPECT_FALSE(Log_CopyFile(kOther));
  EXPECT_EQ(TakeMessages(),
            (Strings{"msg.log.copyFtruncateFailed",
                     "Cannot truncate the log file '/tmp/logs/other.log': Invalid argument\n"}));
  calls.Clear();
  calls.Fail(SYS_lseek, ESPIPE);
  EXPECT_FALSE(Log_CopyFile(kOther));
  EXPECT_EQ(TakeMessages(), (Strings{"msg.log.copyLseekFailed",
                                     "Cannot seek to start of file '/tmp/logs/my.log': Illegal seek\n"}));
  calls.Clear();
  calls.Fail(SYS_write, EIO, {.count = 1});
  EXPECT_FALSE(Log_CopyFile(kOther));
  EXPECT_EQ(TakeMessages(), (Strings{"msg.log.copyWriteFailed",
                                     "A write error occurred when copying data to '/tmp/logs/other.log': "
                                     "Input/output error\n"}));
  calls.Clear();
  calls.Fail(SYS_read, EIO, {.count = 1});
  EXPECT_FALSE(Log_CopyFile(kOther));
  EXPECT_EQ(TakeMessages(), (Strings{"msg.log.copyWriteFailed",
                                     "A write error occurred when copying data to '/tmp/logs/other.log': "
                                     "Input/output error\n"}));
  calls.Clear();
  EXPECT_EQ(testhost::NextDescriptor(), next);
  EXPECT_TRUE(Log_CopyFile(kOther));
  EXPECT_EQ(testhost::ReadFile(kOther), testhost::ReadFile(kLog));
}

// --- Removing

TEST(LogRemoveFile, RemovesATemporaryLogOnly) {
  EnterHost();
  StartLog();
  const std::string temporary = Log_GetFileName();
  const int fd = logState.fd;
  EXPECT_TRUE(Log_RemoveFile(false));
  EXPECT_FALSE(fs::exists(temporary));
  EXPECT_EQ(Log_GetFileName(), nullptr);
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);
  Log("goes nowhere\n");
  EXPECT_TRUE(Log_RemoveFile(true));
  Log_Exit();

  ASSERT_TRUE(Log_Init("/tmp/logs/my.log", nullptr, "setup"));
  EXPECT_TRUE(Log_RemoveFile(false));
  EXPECT_TRUE(fs::exists("/tmp/logs/my.log"));
  EXPECT_TRUE(Log_RemoveFile(true));
  EXPECT_FALSE(fs::exists("/tmp/logs/my.log"));
}

TEST(LogRemoveFile, KeepsALogThatIsToBeKept) {
  EnterHost();
  StartLog();
  const std::string name = Log_GetFileName();
  Log_SetAlwaysKeep(true);
  EXPECT_TRUE(Log_RemoveFile(false));
  EXPECT_TRUE(fs::exists(name));
  EXPECT_TRUE(Log_RemoveFile(true));
  EXPECT_FALSE(fs::exists(name));
}

TEST(LogRemoveFile, TellsOfAFailure) {
  EnterHost();
  StartLog();
  fs::remove(Log_GetFileName());
  EXPECT_FALSE(Log_RemoveFile(true));
}

TEST(LogRemoveFile, LeavesADeviceInItsPlace) {
  EnterHost();
  StartAtDevice();
  EXPECT_TRUE(Log_RemoveFile(true));
  EXPECT_EQ(logState.fd, -1);
  EXPECT_EQ(Log_GetFileName(), nullptr);
  EXPECT_TRUE(fs::is_character_file(kOther));
}

TEST(LogRemoveFile, LeavesAPipeThatTookTheFilesName) {
  EnterHost();
  StartAt(kLog);
  fs::remove(kLog);
  ASSERT_EQ(mkfifo(kLog, 0600), 0);
  EXPECT_FALSE(Log_RemoveFile(true));
  EXPECT_TRUE(fs::is_fifo(kLog));
  EXPECT_EQ(Log_GetFileName(), nullptr);
}

TEST(LogRemoveFile, TellsOfADirectoryThatTookTheFilesName) {
  EnterHost();
  StartAt(kLog);
  fs::remove(kLog);
  ASSERT_EQ(mkdir(kLog, 0700), 0);
  EXPECT_FALSE(Log_RemoveFile(true));
  EXPECT_TRUE(fs::is_directory(kLog));
}

TEST(LogRemoveFile, LeavesAFileThatTookAPipesName) {
  EnterHost();
  ASSERT_EQ(mkfifo(kLog, 0600), 0);
  StartAt(kLog);
  fs::remove(kLog);
  testhost::WriteFile(kLog, "foreign\n");
  EXPECT_TRUE(Log_RemoveFile(true));
  EXPECT_EQ(testhost::ReadFile(kLog), "foreign\n");
}

TEST(LogRemoveFile, LeavesAnotherFileThatTookTheFilesName) {
  EnterHost();
  StartAt(kLog);
  SwapFile();
  EXPECT_FALSE(Log_RemoveFile(true));
  EXPECT_EQ(testhost::ReadFile(kLog), "another's\n");
  EXPECT_EQ(Log_GetFileName(), nullptr);
}

TEST(LogRemoveFile, RemovesTheFileOfALostDescriptor) {
  EnterHost();
  StartAt(kLog);
  ASSERT_EQ(close(logState.fd), 0);
  EXPECT_TRUE(Log_RemoveFile(true));
  EXPECT_FALSE(fs::exists(kLog));
}

TEST(LogRemoveFile, DoesNothingBeforeTheStart) {
  EnterHost();
  EXPECT_TRUE(Log_RemoveFile(true));
  ASSERT_TRUE(Log_Init("/tmp/logs/my.log", nullptr, "setup"));
  Log_Exit();
  EXPECT_TRUE(Log_RemoveFile(true));
  EXPECT_EQ(Lines("/tmp/logs/my.log").back(),
            "LOG NOT INITIALIZED | LOG trying to remove log file when not initialized.");
}

TEST(LogRemoveFile, GoesByTheNumberOfFilesToKeep) {
  EnterHost("log.keep = 1\n");
  StartLog();
  const std::string temporary = Log_GetFileName();
  EXPECT_TRUE(Log_RemoveFile(false));
  EXPECT_TRUE(fs::exists(temporary));
}

TEST(LogRemoveFile, RemovesANamedLogWhenNoneIsToBeKept) {
  EnterHost("log.keep = 0\n");
  StartAt(kLog);
  EXPECT_TRUE(Log_RemoveFile(false));
  EXPECT_FALSE(fs::exists(kLog));
}

TEST(LogRemoveFile, TellsTheLogBefore) {
  EnterHost();
  StartAt(kLog);
  ASSERT_EQ(link(kLog, kOther), 0);
  EXPECT_TRUE(Log_RemoveFile(true));
  EXPECT_EQ(Texts(kOther), (Strings{"one", "LOG removing /tmp/logs/my.log."}));
}

TEST(LogRemoveFile, TextWaitsForTheNextFile) {
  EnterHost();
  StartAt(kLog);
  EXPECT_TRUE(Log_RemoveFile(true));
  Log("two\n");
  ASSERT_TRUE(Log_SetFile(kOther, nullptr, true));
  Log("three\n");
  EXPECT_EQ(Texts(kOther), (Strings{"two", "three"}));
}

}  // namespace
