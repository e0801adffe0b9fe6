#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <utility>
#include <vector>

#include "logInt.h"
#include "logTestInt.h"
#include "panics.h"
#include "productState.h"
#include "regexes.h"
#include "systemCalls.h"
#include "vthread.h"

namespace {

using namespace logtest;

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

TEST(LogInit, RefusesASymbolicLink) {
  EnterHost();
  testhost::WriteFile("/tmp/logs/target", "precious\n");
  ASSERT_EQ(symlink("/tmp/logs/target", "/tmp/logs/my.log"), 0);
  EXPECT_FALSE(Log_Init(kLog, nullptr, "setup"));
  EXPECT_EQ(TakeMessages(),
            (Strings{"msg.log.openIsLink", "msg.log.switchFailed",
                     "Log file '/tmp/logs/my.log' is a symbolic link.\n" + SwitchFailedText(kLog)}));
  EXPECT_EQ(Log_GetFileName(), nullptr);
  EXPECT_EQ(testhost::ReadFile("/tmp/logs/target"), "precious\n");
}

TEST(LogInit, RefusesAFileThatCannotBeOpened) {
  EnterHost();
  constexpr char kName[] = "/tmp/logs/no/my.log";
  EXPECT_FALSE(Log_Init(kName, nullptr, "setup"));
  EXPECT_EQ(TakeMessages(),
            (Strings{"msg.log.openFailed", "msg.log.switchFailed",
                     "Cannot open or create the log file '/tmp/logs/no/my.log': No such file or directory\n" +
                         SwitchFailedText(kName)}));
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
              testhost::Panics("^ASSERT lib/log/logConfig.cc:[0-9]+\n$"));
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
  // What was pending of the name isn't told as well.
  EXPECT_EXIT(StartLog(), testing::ExitedWithCode(255), testing::Not(testing::HasSubstr("chunks")));
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

TEST(LogInit, TakesSettings) {
  EnterHost(
      "log.append = TRUE\nlog.keepold = 5\nlog.rotateSize = 1000\nlog.keep = 2\nlog.timeStamp = FALSE\n"
      "log.millisec = FALSE\nlog.threadName = FALSE\nlog.throttleThreshold = 77\n"
      "log.throttleBytesPerSec = 88\nlog.fastRotation = TRUE\n");
  StartLog();
  EXPECT_TRUE(logState.append);
  EXPECT_EQ(logState.keepOld, 5);
  EXPECT_EQ(logState.rotateSize, 1000U);
  EXPECT_EQ(logState.keep, 2);
  EXPECT_FALSE(logState.timeStamp);
  EXPECT_FALSE(logState.millisec);
  EXPECT_FALSE(logState.threadName);
  EXPECT_EQ(logState.throttle.threshold, 77U);
  EXPECT_EQ(logState.throttle.bytesPerSec, 88U);
  EXPECT_FALSE(logState.fastRotation) << "only an argument sets this";
}

TEST(LogInit, HasDefaults) {
  EnterHost();
  StartLog();
  EXPECT_TRUE(Log_Enabled());
  EXPECT_FALSE(logState.append);
  EXPECT_EQ(logState.keepOld, 3);
  EXPECT_EQ(logState.rotateSize, 0U);
  EXPECT_EQ(logState.keep, -1);
  EXPECT_TRUE(logState.timeStamp);
  EXPECT_TRUE(logState.millisec);
  EXPECT_TRUE(logState.threadName);
  EXPECT_FALSE(logState.fastRotation);
  EXPECT_EQ(logState.throttle.threshold, 1000000U);
  EXPECT_EQ(logState.throttle.bytesPerSec, LOG_NO_LIMIT);
}

TEST(LogInit, ANegativeSizeIsNoLimit) {
  EnterHost("log.rotateSize = -5\n");
  StartLog();
  EXPECT_EQ(logState.rotateSize, 0U);
}

TEST(LogGetInitDefaults, AreThoseOfSettingsAndProduct) {
  EnterHost("log.keepold = 7\nlog.noLogAfterThreshold = TRUE\nlogging = FALSE\n");
  LogInitParams params{};
  Log_GetInitDefaults(nullptr, "key", "suffix", &params);
  EXPECT_EQ(params.fileName, nullptr);
  EXPECT_STREQ(params.config, "key");
  EXPECT_STREQ(params.suffix, "suffix");
  EXPECT_STREQ(params.appName, ProductState_GetName());
  EXPECT_STREQ(params.appVersion, ProductState_GetVersion());
  EXPECT_FALSE(params.enable);
  EXPECT_FALSE(params.append);
  EXPECT_EQ(params.keepOld, 7);
  EXPECT_EQ(params.throttleThreshold, 1000000U);
  EXPECT_EQ(params.throttleBytesPerSec, 0U);
  EXPECT_TRUE(params.switchFile);
  EXPECT_EQ(params.rotateSize, 0U);
  Log_GetInitDefaults(kLog, "key", nullptr, &params);
  EXPECT_STREQ(params.fileName, kLog);
  EXPECT_FALSE(params.switchFile);
}

TEST(LogInitEx, OverridesTheSettingsOfTheLimit) {
  EnterHost("log.noLogAfterThreshold = TRUE\n");
  LogInitParams params{};
  Log_GetInitDefaults(kLog, nullptr, "setup", &params);
  params.throttleThreshold = 5;
  params.throttleBytesPerSec = 6;
  ASSERT_TRUE(Log_InitEx(&params));
  EXPECT_EQ(logState.throttle.threshold, 5U);
  EXPECT_EQ(logState.throttle.bytesPerSec, 6U);
}

TEST(LogInitForApp, NamesTheProgramInTheBanner) {
  EnterHost();
  ASSERT_TRUE(Log_InitForApp(kLog, nullptr, "setup", "Other Program", "9.8"));
  Log("text\n");
  EXPECT_TRUE(testhost::RegexMatch(
      Lines(kLog).at(0), std::string(kPrefix) + "Log for Other Program pid=" + std::to_string(getpid()) +
                             " version=9.8 build=build-[0-9]{5} option=BETA"));
}

TEST(LogInit, NamesTheProductInTheBanner) {
  EnterHost();
  ProductState_Set(0, "Bench", "4.5.6", 4711, 0);
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  Log("text\n");
  EXPECT_TRUE(testhost::RegexMatch(Lines(kLog).at(0), std::string(kPrefix) +
                                                          "Log for Bench pid=" + std::to_string(getpid()) +
                                                          " version=4.5.6 build=build-04711 option=BETA"));
}

// The banner of a program whose version is that long.
Strings BannerOf(size_t versionLength) {
  EXPECT_TRUE(Log_InitForApp(kLog, nullptr, "setup", "Bench", std::string(versionLength, 'v').c_str()));
  Log("text\n");
  Strings lines = Lines(kLog);
  EXPECT_EQ(lines.size(), kBannerLines + 1);
  EXPECT_TRUE(lines.at(1).ends_with("-bit.")) << lines.at(1);
  return lines;
}

TEST(LogInitForApp, ALongNameStandsInTheBannerWhole) {
  EnterHost();
  EXPECT_TRUE(BannerOf(3900).front().ends_with(std::string(3900, 'v') + " build=build-00000 option=BETA"));
}

TEST(LogInitForApp, ATooLongNameEndsItsLineOnly) {
  EnterHost();
  const std::string line = BannerOf(5000).front();
  EXPECT_EQ(line.size(), 4094U);
  EXPECT_TRUE(line.ends_with("vvv")) << line;
}

TEST(LogInit, AFailedStartCanBeTriedAgain) {
  EnterHost();
  const int next = testhost::NextDescriptor();
  EXPECT_FALSE(Log_Init("/tmp/logs/no/my.log", nullptr, "setup"));
  TakeMessages();
  EXPECT_EQ(testhost::NextDescriptor(), next);
  EXPECT_FALSE(Log_Enabled());
  EXPECT_EQ(logState.appName, nullptr);
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  Log("text\n");
  EXPECT_EQ(Texts(kLog), Strings{"text"});
}

TEST(LogInit, AFailedStartLeavesTheFormerFile) {
  EnterHost();
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  Log_Exit();
  LogInitParams params{};
  Log_GetInitDefaults("/tmp/logs/no/my.log", nullptr, "setup", &params);
  params.throttleThreshold = 0;
  params.throttleBytesPerSec = 0;
  EXPECT_FALSE(Log_InitEx(&params));
  TakeMessages();
  Log("text\n");
  EXPECT_EQ(Lines(kLog).back(), "LOG NOT INITIALIZED | text");
}

TEST(LogExit, ABannerAfterItHasNoNames) {
  EnterHost();
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  Log_Exit();
  Log("text\n");
  const Strings lines = Lines(kLog);
  ASSERT_EQ(lines.size(), kBannerLines + 1);
  EXPECT_TRUE(lines[0].starts_with("LOG NOT INITIALIZED | Log for ")) << lines[0];
}

TEST(LogExit, LeavesNoDescriptorBehindTheNextStart) {
  EnterHost();
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  Log_Exit();
  const int fd = logState.fd;
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  ASSERT_NE(logState.fd, fd);
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

TEST(LogSetConfig, TakesArgumentsAndReadsTheRest) {
  EnterHost("log.keep = 4\n");
  StartLog();
  Log_SetConfig(false, true, 9, 500, true);
  EXPECT_FALSE(Log_Enabled());
  EXPECT_TRUE(logState.append);
  EXPECT_EQ(logState.keepOld, 9);
  EXPECT_EQ(logState.rotateSize, 500U);
  EXPECT_TRUE(logState.fastRotation);
  EXPECT_EQ(logState.keep, 4);
  Log("dropped\n");
  EXPECT_EQ(testhost::ReadFile(Log_GetFileName()), "");
}

// --- Replacements

std::string replaced;

void Take(const char *name, const char *format, va_list args) __attribute__((format(printf, 2, 0)));
void Take(const char *name, const char *format, va_list args) {
  char text[100];
  vsnprintf(text, sizeof text, format, args);
  replaced += std::string(name) + text;
}
void TakeLog(const char *format, va_list args) __attribute__((format(printf, 1, 0)));
void TakeLog(const char *format, va_list args) {
  Take("log ", format, args);
}
void TakeWarning(const char *format, va_list args) __attribute__((format(printf, 1, 0)));
void TakeWarning(const char *format, va_list args) {
  Take("warning ", format, args);
  Log_WriteText("by hand\n");
}

TEST(LogRegisterFunctions, PutsOthersInTheirPlace) {
  EnterHost();
  Log_RegisterFunctions(TakeLog, TakeWarning);
  Log("%d\n", 1);
  GuestLog("%d\n", 2);
  StartLog();
  Log("%d\n", 3);
  uint32_t count = 0;
  Log_Throttled(&count, "%d\n", 4);
  EXPECT_EQ(OnStandardError([&count] {
              Warning("%d\n", 5);
              Warning_Throttled(&count, "%d\n", 6);
            }),
            "");
  EXPECT_EQ(count, 2U);
  EXPECT_EQ(replaced, "log 1\nlog 2\nlog 3\nlog 4\nwarning 5\nwarning 6\n");
  Log_RegisterFunctions(nullptr, nullptr);
  Log("own\n");
  EXPECT_EQ(Texts(), (Strings{"by hand", "by hand", "own"}));
}

// --- Locking

int depth;
int locks;

void CountLock(bool lock) {
  depth += lock ? 1 : -1;
  locks += lock ? 1 : 0;
  EXPECT_GE(depth, 0);
}

TEST(LogSetLockFunc, GuardsEachCall) {
  EnterHost();
  StartLog();
  Log_SetLockFunc(CountLock);
  Log("text\n");
  EXPECT_EQ(locks, 1);
  EXPECT_EQ(depth, 0);
  Log_SetAlwaysKeep(true);
  EXPECT_EQ(locks, 2);
  Log_SetLockFunc(nullptr);
  Log("text\n");
  EXPECT_EQ(locks, 2);
  Log_SetLockFunc(CountLock);
  Log_Exit();
  Warning("text\n");
  EXPECT_EQ(locks, 3);
  EXPECT_EQ(depth, 0);
}

TEST(LogSetLockFunc, GuardsAllThatTheLogHas) {
  EnterHost();
  StartLog();
  Log_SetQuietWarnings(true);
  Log_SetLockFunc(CountLock);
  const std::vector<std::pair<const char *, void (*)()>> calls = {
      {"GuestLog", [] { GuestLog("text\n"); }},
      {"Warning", [] { Warning("text\n"); }},
      {"WriteText", [] { Log_WriteText("text\n"); }},
      {"InitGuestThrottle", Log_InitGuestThrottle},
      {"DisableThrottling", Log_DisableThrottling},
      {"SetConfig", [] { Log_SetConfig(true, false, 3, 0, false); }},
      {"SetDir", [] { Log_SetDir(kDirectory); }},
      {"GetDir", [] { free(Log_GetDir()); }},
      {"GetFileName", [] { Log_GetFileName(); }},
      {"SetFile", [] { EXPECT_TRUE(Log_SetFile(kLog, nullptr, true)); }},
      {"CopyFile", [] { EXPECT_TRUE(Log_CopyFile("/tmp/logs/copy")); }},
      {"RemoveFile", [] { EXPECT_TRUE(Log_RemoveFile(true)); }},
  };
  for (const auto &[name, call] : calls) {
    locks = 0;
    call();
    EXPECT_GT(locks, 0) << name;
    EXPECT_EQ(depth, 0) << name;
  }
}

int deepest;

void NoteDepth(bool lock) {
  CountLock(lock);
  deepest = std::max(deepest, depth);
}

TEST(LogSetLockFunc, IsNotCalledAroundTheSearchForADirectory) {
  EnterHost();
  ASSERT_TRUE(Log_Init(nullptr, nullptr, "setup"));
  Log_SetLockFunc(NoteDepth);
  // A user without a name makes the search warn, under a lock of its own.
  ASSERT_EQ(setresuid(54321, 54321, 0), 0);
  EXPECT_NE(OnStandardError([] { EXPECT_TRUE(Log_SetFile(nullptr, nullptr, true)); }), "");
  ASSERT_EQ(setresuid(0, 0, 0), 0);
  EXPECT_GT(locks, 2);
  EXPECT_EQ(deepest, 1);
  EXPECT_EQ(depth, 0);
}

TEST(LogSetLockFuncDeathTest, TakesOneFunctionOnly) {
  EnterHost();
  Log_SetLockFunc(CountLock);
  EXPECT_EXIT(Log_SetLockFunc(CountLock), testing::ExitedWithCode(255),
              testing::HasSubstr("ASSERT lib/log/logConfig.cc:"));
}

}  // namespace
