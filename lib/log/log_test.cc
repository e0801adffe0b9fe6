#include "log.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "msg.h"
#include "panics.h"
#include "testhost.h"

namespace {

namespace fs = std::filesystem;

constexpr char kPrefix[] = R"([A-Z][a-z]{2} [0-3][0-9] [0-2][0-9]:[0-5][0-9]:[0-6][0-9]\.[0-9]{3}: app\| )";
constexpr size_t kBannerLines = 3;

void EnterHost() {
  testhost::Host host;
  host.Directory("/tmp/logs");
  host.Enter();
}

void StartLog() {
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
}

// The log's lines, the last of them also without a line feed.
std::vector<std::string> Lines(const std::string &path) {
  std::istringstream stream(testhost::ReadFile(path));
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

// The lines behind the banner, each checked for the prefix and then without it.
std::vector<std::string> Texts(const std::string &path) {
  const std::regex prefix(std::string("^") + kPrefix);
  std::vector<std::string> texts;
  const std::vector<std::string> lines = Lines(path);
  for (size_t i = kBannerLines; i < lines.size(); i++) {
    std::smatch match;
    EXPECT_TRUE(std::regex_search(lines[i], match, prefix)) << lines[i];
    texts.push_back(match.suffix());
  }
  return texts;
}

std::vector<std::string> Texts() {
  return Texts(Log_GetFileName());
}

bool Matches(const std::string &text, const std::string &pattern) {
  return std::regex_match(text, std::regex(pattern));
}

// What a call writes to standard error.
template <typename Function>
std::string OnStandardError(Function function) {
  testing::internal::CaptureStderr();
  function();
  return testing::internal::GetCapturedStderr();
}

using Strings = std::vector<std::string>;

TEST(Log, FileIsNamedByTheProcessInTheSafeDirectory) {
  EnterHost();
  EXPECT_EQ(Log_GetFileName(), nullptr);
  unsetenv("PID");
  StartLog();
  EXPECT_EQ(Log_GetFileName(), "/tmp/ostrel-root/setup-" + std::to_string(getpid()) + ".log");
  struct stat data {};
  ASSERT_EQ(stat(Log_GetFileName(), &data), 0);
  EXPECT_EQ(data.st_mode, S_IFREG | 0644U);
}

TEST(Log, FileOfAnEmptySuffixIsTheProcessIdAlone) {
  EnterHost();
  unsetenv("PID");
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", ""));
  EXPECT_EQ(Log_GetFileName(), "/tmp/ostrel-root/" + std::to_string(getpid()) + ".log");
}

TEST(Log, AnEnvironmentVariablePidNamesTheFileToo) {
  EnterHost();
  setenv("PID", "x", 1);
  StartLog();
  EXPECT_STREQ(Log_GetFileName(), "/tmp/ostrel-root/setup-x.log");
}

TEST(Log, BeginsWithABannerOfThreeLines) {
  EnterHost();
  StartLog();
  EXPECT_EQ(testhost::ReadFile(Log_GetFileName()), "");
  Log("text\n");
  const Strings lines = Lines(Log_GetFileName());
  ASSERT_EQ(lines.size(), kBannerLines + 1);
  EXPECT_TRUE(Matches(lines[0], kPrefix + ("Log for Ostrel Tools pid=" + std::to_string(getpid())) +
                                    R"( version=[0-9]+\.[0-9]+\.[0-9]+ build=build-[0-9]{5} option=BETA)"))
      << lines[0];
  EXPECT_TRUE(Matches(lines[1], std::string(kPrefix) + "The process is 64-bit\\."));
  EXPECT_TRUE(Matches(lines[2], std::string(kPrefix) + "Host codepage=UTF-8 encoding=UTF-8"));
  EXPECT_TRUE(Matches(lines[3], std::string(kPrefix) + "text"));
}

TEST(Log, StampsLinesWithLocalTimeAndMilliseconds) {
  EnterHost();
  setenv("TZ", "XYZ-5:30", 1);
  tzset();
  StartLog();
  const time_t before = time(nullptr);
  Log("text\n");
  const time_t after = time(nullptr);
  const std::string line = Lines(Log_GetFileName()).at(kBannerLines);
  Strings allowed;
  for (time_t second = before; second <= after; second++) {
    char stamp[32];
    const time_t shifted = second + 19800;
    struct tm local {};
    strftime(stamp, sizeof stamp, "%b %d %H:%M:%S", gmtime_r(&shifted, &local));
    allowed.emplace_back(stamp);
  }
  EXPECT_NE(std::find(allowed.begin(), allowed.end(), line.substr(0, 15)), allowed.end()) << line;
}

TEST(Log, StampFollowsTheClock) {
  EnterHost();
  StartLog();
  Log("one\n");
  sleep(1);
  Log("two\n");
  const Strings lines = Lines(Log_GetFileName());
  EXPECT_NE(lines.at(kBannerLines).substr(0, 15), lines.at(kBannerLines + 1).substr(0, 15));
}

TEST(Log, GivesEachLineOfATextItsPrefix) {
  EnterHost();
  StartLog();
  Log("one\ntwo\n\nfour\n");
  EXPECT_EQ(Texts(), (Strings{"one", "two", "", "four"}));
}

TEST(Log, ContinuesALineThatHasNoEndYet) {
  EnterHost();
  StartLog();
  Log("one ");
  Log("more ");
  Log("end\ntwo");
  Log("\n");
  Log("three\n");
  EXPECT_EQ(Texts(), (Strings{"one more end", "two", "three"}));
}

TEST(Log, WritesNothingForAnEmptyText) {
  EnterHost();
  StartLog();
  Log("%s", "");
  Log("one\n");
  Log("%s", "");
  Log("two\n");
  EXPECT_EQ(Texts(), (Strings{"one", "two"}));
}

TEST(Log, CutsATextAt4095Bytes) {
  EnterHost();
  StartLog();
  Log("%s\n", std::string(4094, 'a').c_str());
  Log("%s\n", std::string(4095, 'b').c_str());
  // The cut took the line's end, so the next text goes on in the same line.
  Log("|%s\n", std::string(10000, 'c').c_str());
  Log("|\n");
  EXPECT_EQ(Texts(),
            (Strings{std::string(4094, 'a'), std::string(4095, 'b') + "|" + std::string(4094, 'c') + "|"}));
}

TEST(Log, KeepsErrno) {
  EnterHost();
  StartLog();
  ASSERT_EQ(OnStandardError([] {
              errno = EXDEV;
              Log("text\n");
              EXPECT_EQ(errno, EXDEV);
              Warning("text\n");
              EXPECT_EQ(errno, EXDEV);
            }),
            "text\n");
  close(STDERR_FILENO);
  Warning("text\n");
  EXPECT_EQ(errno, EXDEV);
}

TEST(Log, DropsTextBeforeItsStart) {
  EnterHost();
  EXPECT_EQ(OnStandardError([] { Log("early\n"); }), "");
  StartLog();
  Log("late\n");
  EXPECT_EQ(Texts(), Strings{"late"});
}

TEST(Warning, GoesToLogAndStandardError) {
  EnterHost();
  StartLog();
  EXPECT_EQ(OnStandardError([] { Warning("Danger %d\n", 7); }), "Danger 7\n");
  EXPECT_EQ(Texts(), Strings{"Danger 7"});
}

TEST(Warning, IsQuietWhenAsked) {
  EnterHost();
  StartLog();
  EXPECT_FALSE(Log_GetQuietWarnings());
  Log_SetQuietWarnings(true);
  EXPECT_TRUE(Log_GetQuietWarnings());
  EXPECT_EQ(OnStandardError([] { Warning("Danger\n"); }), "");
  EXPECT_EQ(Texts(), Strings{"Danger"});
}

TEST(Warning, BeforeTheStartWaitsUnderItsOwnPrefixBehindTheBanner) {
  EnterHost();
  EXPECT_EQ(OnStandardError([] { Warning("early\n"); }), "early\n");
  StartLog();
  EXPECT_EQ(testhost::ReadFile(Log_GetFileName()), "");
  Log("late\n");
  const Strings lines = Lines(Log_GetFileName());
  ASSERT_EQ(lines.size(), kBannerLines + 2);
  EXPECT_TRUE(Matches(lines[0], std::string(kPrefix) + "Log for .*"));
  EXPECT_EQ(lines[3], "LOG NOT INITIALIZED | early");
  EXPECT_TRUE(Matches(lines[4], std::string(kPrefix) + "late"));
}

TEST(LogRing, DropsItsOldestWholeLines) {
  EnterHost();
  Log_SetQuietWarnings(true);
  constexpr int kCount = 2000;
  size_t waiting = 0;
  for (int i = 0; i < kCount; i++) {
    Warning("line %d %s\n", i, std::string(static_cast<size_t>(i % 90), 'x').c_str());
  }
  StartLog();
  Log("late\n");
  const Strings lines = Lines(Log_GetFileName());
  // From the end backwards: what was last is there, line by line and whole.
  int number = kCount;
  for (size_t i = lines.size() - 1; i-- > kBannerLines;) {
    number--;
    EXPECT_EQ(lines[i], "LOG NOT INITIALIZED | line " + std::to_string(number) + " " +
                            std::string(static_cast<size_t>(number % 90), 'x'));
    waiting += lines[i].size() + 1;
  }
  // The text of the start itself pushed some out, and one line more would not have fitted.
  EXPECT_LE(waiting, 32768U);
  EXPECT_GT(waiting, 32768U - 2 * 150);
}

TEST(LogRing, TakesTextsOfEveryLength) {
  EnterHost();
  Log_SetQuietWarnings(true);
  Strings written;
  for (size_t length = 0; length < 4094; length += 7) {
    Warning("%s\n", std::string(length, 'x').c_str());
    written.push_back("LOG NOT INITIALIZED | " + std::string(length, 'x'));
  }
  StartLog();
  Log("late\n");
  // Eight lines of 4061 to 4110 bytes, and this last one, fill the ring but for less than another of them.
  Strings lines = Lines(Log_GetFileName());
  ASSERT_EQ(lines.size(), kBannerLines + 8 + 1);
  EXPECT_EQ(Strings(lines.begin() + kBannerLines, lines.end() - 1),
            Strings(written.end() - 8, written.end()));
}

TEST(LogInit, AppendsToANamedFile) {
  EnterHost();
  testhost::WriteFile("/tmp/logs/my.log", "old\n");
  ASSERT_TRUE(Log_Init("/tmp/logs/my.log", nullptr, "setup"));
  EXPECT_STREQ(Log_GetFileName(), "/tmp/logs/my.log");
  Log("text\n");
  const Strings lines = Lines("/tmp/logs/my.log");
  ASSERT_EQ(lines.size(), 1 + kBannerLines + 1);
  EXPECT_EQ(lines[0], "old");
}

TEST(LogInit, EmptiesATemporaryFileThatIsThere) {
  EnterHost();
  setenv("PID", "x", 1);
  ASSERT_EQ(mkdir("/tmp/ostrel-root", 0700), 0);
  testhost::WriteFile("/tmp/ostrel-root/setup-x.log", "old\n");
  StartLog();
  EXPECT_EQ(testhost::ReadFile("/tmp/ostrel-root/setup-x.log"), "");
}

// What stays pending after a start that failed, as the next log shows it.
Strings PendingAfterFailedStart(const char *name) {
  EXPECT_FALSE(Log_Init(name, nullptr, "setup"));
  EXPECT_EQ(Log_GetFileName(), nullptr);
  EXPECT_TRUE(Msg_Present());
  StartLog();
  Msg_Reset(true);
  return Texts();
}

Strings SwitchFailure(const std::string &name, const std::string &reason) {
  return {"Msg_Reset:", reason,
          "[msg.log.switchFailed] Unable to open the log file \"" + name +
              "\". Make sure that the path specified for the log file is valid, and that you have write "
              "privileges in this directory.",
          "----------------------------------------"};
}

TEST(LogInit, RefusesASymbolicLink) {
  EnterHost();
  testhost::WriteFile("/tmp/logs/target", "precious\n");
  ASSERT_EQ(symlink("/tmp/logs/target", "/tmp/logs/my.log"), 0);
  EXPECT_EQ(PendingAfterFailedStart("/tmp/logs/my.log"),
            SwitchFailure("/tmp/logs/my.log",
                          "[msg.log.openIsLink] Log file '/tmp/logs/my.log' is a symbolic link."));
  EXPECT_EQ(testhost::ReadFile("/tmp/logs/target"), "precious\n");
}

TEST(LogInit, RefusesAFileThatCannotBeOpened) {
  EnterHost();
  EXPECT_EQ(PendingAfterFailedStart("/tmp/logs/no/my.log"),
            SwitchFailure("/tmp/logs/no/my.log",
                          "[msg.log.openFailed] Cannot open or create the log file '/tmp/logs/no/my.log': No "
                          "such file or directory"));
}

TEST(LogInit, AFailedStartLeavesTheProcessRunning) {
  EnterHost();
  EXPECT_FALSE(Log_Init("/tmp/logs", nullptr, "setup"));
  Msg_Reset(false);
  Log("dropped\n");
  EXPECT_EQ(OnStandardError([] { Warning("kept\n"); }), "kept\n");
  StartLog();
  Log("late\n");
  const Strings lines = Lines(Log_GetFileName());
  ASSERT_EQ(lines.size(), kBannerLines + 2);
  EXPECT_EQ(lines[kBannerLines], "LOG NOT INITIALIZED | kept");
}

TEST(LogInit, WithoutAnyNameTextWaits) {
  EnterHost();
  ASSERT_TRUE(Log_Init(nullptr, nullptr, "setup"));
  EXPECT_EQ(Log_GetFileName(), nullptr);
  Log("waiting\n");
  Log_Exit();
  StartLog();
  Log("late\n");
  EXPECT_EQ(Texts(), (Strings{"waiting", "late"}));
}

TEST(LogInitDeathTest, StartsOnlyOnce) {
  EnterHost();
  StartLog();
  EXPECT_EXIT(Log_Init("/tmp/logs/other.log", nullptr, "setup"), testing::ExitedWithCode(255),
              testhost::Panics("^ASSERT lib/log/log.cc:[0-9]+\n$"));
}

TEST(LogInitDeathTest, NeedsATemporaryDirectory) {
  EnterHost();
  ASSERT_EQ(mount("none", "/tmp/logs", "tmpfs", MS_RDONLY, nullptr), 0);
  setenv("TMPDIR", "/tmp/logs", 1);
  EXPECT_EXIT(StartLog(), testing::ExitedWithCode(255),
              testhost::Panics("Cannot get temporary directory for log file.\n$"));
}

TEST(LogInitDeathTest, NeedsANameThatCanBeExpanded) {
  EnterHost();
  const std::string base = "/tmp/" + std::string(101, '$');
  ASSERT_EQ(mkdir(base.c_str(), 0700), 0);
  setenv("BASE", base.c_str(), 1);
  setenv("TMPDIR", "$BASE", 1);
  EXPECT_EXIT(StartLog(), testing::ExitedWithCode(255),
              testhost::Panics(testing::Eq("Cannot get log file name.\n")));
}

TEST(LogExit, LeavesTheFileOpen) {
  EnterHost();
  StartLog();
  Log("in\n");
  const std::string name = Log_GetFileName();
  Log_Exit();
  EXPECT_EQ(Log_GetFileName(), nullptr);
  Log("out\n");
  const Strings lines = Lines(name);
  ASSERT_EQ(lines.size(), kBannerLines + 2);
  EXPECT_EQ(lines.back(), "LOG NOT INITIALIZED | out");
}

TEST(LogExit, AllowsANewStart) {
  EnterHost();
  ASSERT_TRUE(Log_Init("/tmp/logs/one.log", nullptr, "setup"));
  Log("one\n");
  Log_Exit();
  ASSERT_TRUE(Log_Init("/tmp/logs/two.log", nullptr, "setup"));
  Log("two\n");
  EXPECT_EQ(Texts("/tmp/logs/one.log"), Strings{"one"});
  EXPECT_EQ(Texts("/tmp/logs/two.log"), Strings{"two"});
}

TEST(LogRemoveFile, RemovesATemporaryLogOnly) {
  EnterHost();
  StartLog();
  const std::string temporary = Log_GetFileName();
  EXPECT_TRUE(Log_RemoveFile(false));
  EXPECT_FALSE(fs::exists(temporary));
  EXPECT_EQ(Log_GetFileName(), nullptr);
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

TEST(LogRemoveFile, DoesNothingBeforeTheStart) {
  EnterHost();
  EXPECT_TRUE(Log_RemoveFile(true));
  ASSERT_TRUE(Log_Init("/tmp/logs/my.log", nullptr, "setup"));
  Log_Exit();
  EXPECT_TRUE(Log_RemoveFile(true));
  EXPECT_EQ(Lines("/tmp/logs/my.log").back(),
            "LOG NOT INITIALIZED | LOG trying to remove log file when not initialized.");
}

TEST(LogFault, ARemovedDirectoryDoesNotStopTheWork) {
  EnterHost();
  StartLog();
  Log("one\n");
  fs::remove_all("/tmp/ostrel-root");
  EXPECT_EQ(OnStandardError([] {
              Log("two\n");
              Warning("three\n");
            }),
            "three\n");
  EXPECT_FALSE(fs::exists("/tmp/ostrel-root"));
}

TEST(LogFault, AFullDiskDoesNotStopTheWork) {
  EnterHost();
  ASSERT_EQ(mount("none", "/tmp/logs", "tmpfs", 0, "size=64k"), 0);
  ASSERT_TRUE(Log_Init("/tmp/logs/my.log", nullptr, "setup"));
  Log("first\n");
  ASSERT_NE(testhost::Run("cat /dev/zero > /tmp/logs/filler"), 0);
  errno = EXDEV;
  for (int i = 0; i < 100; i++) {
    Log("%s\n", std::string(1000, 'x').c_str());
  }
  EXPECT_EQ(errno, EXDEV);
  const size_t whenFull = testhost::ReadFile("/tmp/logs/my.log").size();
  EXPECT_LE(whenFull, 4096U);
  ASSERT_EQ(unlink("/tmp/logs/filler"), 0);
  Log("\nlast\n");
  EXPECT_TRUE(Matches(Lines("/tmp/logs/my.log").back(), std::string(kPrefix) + "last"));
}

TEST(LogFork, AChildWritesToTheSameFile) {
  EnterHost();
  StartLog();
  Log("parent before\n");
  const pid_t child = fork();
  if (child == 0) {
    Log("child\n");
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  Log("parent after\n");
  EXPECT_EQ(Texts(), (Strings{"parent before", "child", "parent after"}));
}

TEST(LogFork, LinesOfManyProcessesStayWhole) {
  EnterHost();
  StartLog();
  Log("start\n");
  constexpr int kChildren = 8;
  constexpr int kTexts = 500;
  for (int i = 0; i < kChildren; i++) {
    if (fork() == 0) {
      for (int n = 0; n < kTexts; n++) {
        Log("%s\n", std::string(200, static_cast<char>('a' + i)).c_str());
      }
      _exit(0);
    }
  }
  for (int i = 0; i < kChildren; i++) {
    wait(nullptr);
  }
  const Strings texts = Texts();
  ASSERT_EQ(texts.size(), size_t{1 + kChildren * kTexts});
  for (size_t i = 1; i < texts.size(); i++) {
    EXPECT_EQ(texts[i], std::string(200, texts[i].at(0)));
  }
}

TEST(LogFork, AnExecutedProgramDoesNotInheritTheFile) {
  EnterHost();
  StartLog();
  std::string output;
  testhost::Run("ls -l /proc/self/fd", &output);
  EXPECT_EQ(output.find(Log_GetFileName()), std::string::npos) << output;
}

}  // namespace
