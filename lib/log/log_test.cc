#include "log.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "allocations.h"
#include "logInt.h"
#include "logTestInt.h"
#include "panicUser.h"
#include "regexes.h"
#include "threads.h"
#include "vthread.h"

namespace {

// What the clock shows; nothing for the real time.
std::optional<timeval> clockShows;
// How a locale writes each time.
std::string timeInWords;
// Comes right before the next write; 0 for none.
int signalBeforeWrite;

}  // namespace

// Stand-ins for the C library's.
extern "C" size_t strftime(char *text, size_t size, const char *format, const struct tm *time) noexcept {
  static const auto real = reinterpret_cast<size_t (*)(char *, size_t, const char *, const struct tm *)>(
      dlsym(RTLD_NEXT, "strftime"));
  if (timeInWords.empty()) {
    return real(text, size, format, time);
  }
  text[timeInWords.copy(text, size - 1)] = '\0';
  return timeInWords.size();
}

extern "C" ssize_t write(int fd, const void *data, size_t size) {
  raise(std::exchange(signalBeforeWrite, 0));
  return syscall(SYS_write, fd, data, size);
}

extern "C" int gettimeofday(struct timeval *now, void * /*zone*/) noexcept {
  struct timespec real {};
  clock_gettime(CLOCK_REALTIME, &real);
  *now = clockShows.value_or(timeval{real.tv_sec, real.tv_nsec / 1000});
  return 0;
}

namespace {

using namespace logtest;

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
  EXPECT_TRUE(testhost::RegexMatch(lines[0],
                                   kPrefix + ("Log for Ostrel Tools pid=" + std::to_string(getpid())) +
                                       R"( version=[0-9]+\.[0-9]+\.[0-9]+ build=build-[0-9]{5} option=BETA)"))
      << lines[0];
  EXPECT_TRUE(testhost::RegexMatch(lines[1], std::string(kPrefix) + "The process is 64-bit\\."));
  EXPECT_TRUE(testhost::RegexMatch(lines[2], std::string(kPrefix) + "Host codepage=UTF-8 encoding=UTF-8"));
  EXPECT_TRUE(testhost::RegexMatch(lines[3], std::string(kPrefix) + "text"));
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
  ASSERT_EQ(close(logState.fd), 0);
  Log("text\n");
  EXPECT_EQ(errno, EXDEV);
  Log_WriteText("text\n");
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
  EXPECT_TRUE(testhost::RegexMatch(lines[0], std::string(kPrefix) + "Log for .*"));
  EXPECT_EQ(lines[3], "LOG NOT INITIALIZED | early");
  EXPECT_TRUE(testhost::RegexMatch(lines[4], std::string(kPrefix) + "late"));
}

TEST(Warning, WaitsWhileTheLogIsNotEnabled) {
  EnterHost();
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  Log("one\n");
  Log_SetConfig(false, false, 3, 0, false);
  Log("dropped\n");
  EXPECT_EQ(OnStandardError([] { Warning("two\n"); }), "two\n");
  EXPECT_EQ(Texts(kLog), Strings{"one"});
  Log_SetConfig(true, false, 3, 0, false);
  Log("three\n");
  EXPECT_EQ(Texts(kLog), (Strings{"one", "two", "three"}));
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
  EXPECT_TRUE(testhost::RegexMatch(Lines("/tmp/logs/my.log").back(), std::string(kPrefix) + "last"));
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

TEST(LogFork, AChildLeavesTheParentItsFile) {
  EnterHost("log.rotateSize = 1000\nlog.timeStamp = FALSE\nlog.threadName = FALSE\n");
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  if (fork() == 0) {
    for (int i = 0; i < 100; i++) {
      Log("%s\n", std::string(100, 'c').c_str());
    }
    _exit(0);
  }
  wait(nullptr);
  Log("parent\n");
  EXPECT_EQ(Lines(kLog).size(), 2 * kBannerLines + 101);
  EXPECT_EQ(Lines(kLog).back(), "parent");
  Log("%s\n", std::string(1000, 'p').c_str());
  EXPECT_EQ(Lines("/tmp/logs/my-0.log").size(), 2 * kBannerLines + 102) << "the parent goes on as before";
}

// The status of a child that logs, if it can within some seconds.
int LogInChild() {
  const pid_t child = fork();
  if (child == 0) {
    alarm(10);
    Log("child\n");
    _exit(0);
  }
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return status;
}

// Forks while another thread runs `log` over and over, and lets each child log too.
void ForkBeside(void (*log)()) {
  constexpr int kForks = 50;
  log();  // writes the banner, which a child would write too
  std::atomic<bool> done = false;
  std::thread thread([&] {
    while (!done) {
      log();
    }
  });
  int failed = 0;
  for (int i = 0; i < kForks && failed == 0; i++) {
    failed = LogInChild();
  }
  done = true;
  thread.join();
  EXPECT_EQ(failed, 0);
  const Strings texts = Texts(kLog);
  EXPECT_EQ(std::count(texts.begin(), texts.end(), "child"), kForks);
  EXPECT_EQ(std::count(texts.begin(), texts.end(), "thread"), texts.size() - kForks);
}

TEST(LogFork, AChildMayLogWhateverOtherThreadsDid) {
  EnterHost();
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  ForkBeside([] { Log("thread\n"); });
}

// As the program's own modules have them, from its start on.
std::mutex guard;
const int guardError = pthread_atfork([] { guard.lock(); }, [] { guard.unlock(); }, [] { guard.unlock(); });

TEST(LogFork, AThreadMayLogUnderAGuardThatForksWaitFor) {
  EnterHost();
  ASSERT_EQ(guardError, 0);
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  alarm(60);  // for a fork that waits for ever
  ForkBeside([] {
    const std::lock_guard locked(guard);
    Log("thread\n");
  });
}

// Knows its owner by the thread's number, which is another in a child.
std::recursive_mutex lockOfFunction;

TEST(LogFork, LeavesALockFunctionToItsOwner) {
  EnterHost();
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  Log_SetLockFunc([](bool lock) { lock ? lockOfFunction.lock() : lockOfFunction.unlock(); });
  EXPECT_EQ(LogInChild(), 0);
  EXPECT_EQ(Texts(kLog), Strings{"child"});
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

// --- The prefix

// What each line begins with in a log of these settings, with the digits as "0".
std::string PrefixWith(const std::string &settings) {
  EnterHost(settings);
  EXPECT_TRUE(Log_Init(kLog, nullptr, "setup"));
  Log("text\n");
  std::string prefix;
  for (const std::string &line : Lines(kLog)) {
    const Strings parts =
        testhost::RegexGroups(line, "^(.*?)(Log for .*|The process .*|Host codepage.*|text)$");
    EXPECT_EQ(parts.size(), 3U) << line;
    EXPECT_TRUE(prefix.empty() || prefix.size() == parts.at(1).size()) << line;
    prefix = parts.at(1);
  }
  return testhost::RegexReplace(testhost::RegexReplace(prefix, "[0-9]", "0"), "^[A-Z][a-z]{2}", "Mon");
}

TEST(LogPrefix, IsEmptyWithoutTimeAndThread) {
  EXPECT_EQ(PrefixWith("log.timeStamp = FALSE\nlog.threadName = FALSE\n"), "");
}

TEST(LogPrefix, MayBeTheThreadAlone) {
  EXPECT_EQ(PrefixWith("log.timeStamp = FALSE\n"), "app| ");
}

TEST(LogPrefix, MayBeTheTimeAlone) {
  EXPECT_EQ(PrefixWith("log.threadName = FALSE\n"), "Mon 00 00:00:00.000: ");
}

TEST(LogPrefix, MayBeWithoutMilliseconds) {
  EXPECT_EQ(PrefixWith("log.millisec = FALSE\n"), "Mon 00 00:00:00: app| ");
}

TEST(LogPrefix, NamesTheThread) {
  EnterHost();
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  const std::string name(31, 'n');
  VThread_Init(1, name.c_str());
  Log("text\n");
  EXPECT_TRUE(Lines(kLog).back().ends_with(": " + name + "| text")) << Lines(kLog).back();
  std::string own;
  std::thread([&own] {
    own = VThread_CurName();
    Log("text\n");
  }).join();
  EXPECT_TRUE(own.starts_with(name + "-"));
  EXPECT_TRUE(Lines(kLog).back().ends_with(": " + own + "| text")) << Lines(kLog).back();
}

TEST(LogPrefix, TellsWholeMilliseconds) {
  EnterHost();
  setenv("TZ", "UTC0", 1);
  tzset();
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  clockShows = {0, 10000};
  Log("text\n");
  EXPECT_EQ(Lines(kLog).back(), "Jan 01 00:00:00.010: app| text");
  clockShows = {1700000009, 7999};
  Log("text\n");
  EXPECT_EQ(Lines(kLog).back(), "Nov 14 22:13:29.007: app| text");
  clockShows = {1699000009, 999999};
  Log("text\n");
  EXPECT_EQ(Lines(kLog).back(), "Nov 03 08:26:49.999: app| text");
}

TEST(LogPrefix, HasAtMost94BytesOfWhichTheThreadGetsTheRest) {
  EnterHost();
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  clockShows = {1700000000, 0};
  timeInWords = std::string(60, 'm');
  VThread_Init(-1, std::string(31, 't').c_str());
  Log("text\n");
  const std::string prefix = timeInWords + ".000: " + std::string(94 - 2 - 66, 't') + "| ";
  ASSERT_EQ(prefix.size(), 94U);
  EXPECT_EQ(Lines(kLog).back(), prefix + "text");
}

TEST(LogPrefix, InASignalTellsWholeMillisecondsSinceTheLastLine) {
  EnterHost();
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  clockShows = {1700000000, 950999};
  Log("before\n");
  const std::string stamp = Lines(kLog).at(kBannerLines).substr(0, 19);
  VThread_SetIsInSignal(3, true);
  clockShows = {1700000002, 957000};
  Log("inside\n");
  clockShows = {1700000002, 949999};
  Log("inside\n");
  EXPECT_EQ(Lines(kLog).at(kBannerLines + 1), stamp + "+2.007: app| inside");
  EXPECT_EQ(Lines(kLog).at(kBannerLines + 2), stamp + "+1.999: app| inside");
}

TEST(LogPrefix, InASignalTellsTheTimeSinceTheLastLine) {
  EnterHost();
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  Log("before\n");
  usleep(1250000);
  VThread_SetIsInSignal(3, true);
  Log("inside\n");
  VThread_SetIsInSignal(3, false);
  const Strings lines = Lines(kLog);
  const std::string stamp = lines.at(kBannerLines).substr(0, 19);
  EXPECT_TRUE(testhost::RegexMatch(lines.at(kBannerLines + 1), stamp + R"(\+1\.[2-9][0-9]{2}: app\| inside)"))
      << lines.back();
  Log("after\n");
  EXPECT_TRUE(testhost::RegexMatch(Lines(kLog).back(), std::string(kPrefix) + "after"));
}

TEST(LogPrefix, InASignalMayBeWithoutMilliseconds) {
  EnterHost("log.millisec = FALSE\n");
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  Log("before\n");
  sleep(1);
  VThread_SetIsInSignal(3, true);
  Log("inside\n");
  const Strings lines = Lines(kLog);
  EXPECT_TRUE(
      testhost::RegexMatch(lines.back(), lines.at(kBannerLines).substr(0, 15) + R"(\+1: app\| inside)"))
      << lines.back();
}

TEST(LogPrefix, InASignalBeforeAnyLineTellsTheTimeSince1970) {
  EnterHost();
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  VThread_SetIsInSignal(3, true);
  Log("inside\n");
  EXPECT_TRUE(testhost::RegexMatch(Lines(kLog).back(), R"(\+[0-9]{10}\.[0-9]{3}: app\| inside)"))
      << Lines(kLog).back();
}

// Stands for a handler that a program has for a signal; at the second signal there is none.
void LogInSignal(int /*signal*/) {
  const struct rlimit limit { 1 << 20, RLIM_INFINITY };
  setrlimit(RLIMIT_FSIZE, &limit);
  VThread_SetIsInSignal(3, true);
  Log("inside\n");
  VThread_SetIsInSignal(3, false);
}

TEST(LogSignal, AHandlerMayLogWhileALineIsWritten) {
  EnterHost();
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  Log("before\n");
  struct sigaction action {};
  action.sa_handler = LogInSignal;
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  ASSERT_EQ(sigaction(SIGXFSZ, &action, nullptr), 0);
  // A file that may not grow makes the kernel send the signal in the middle of a write.
  const struct rlimit limit { fs::file_size(kLog), RLIM_INFINITY };
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  Log("what the file doesn't take\n");
  Log("after\n");
  const Strings lines = Lines(kLog);
  ASSERT_EQ(lines.size(), kBannerLines + 3);
  EXPECT_TRUE(lines[kBannerLines + 1].ends_with(": app| inside")) << lines[kBannerLines + 1];
  EXPECT_TRUE(testhost::RegexMatch(lines[kBannerLines + 2], std::string(kPrefix) + "after"))
      << lines[kBannerLines + 2];
  EXPECT_EQ(logState.ringCount, 0U);
}

TEST(LogSignal, AHandlerMayLogSeveralLinesBeforeALineIsTaken) {
  EnterHost("log.timeStamp = FALSE\nlog.threadName = FALSE\n");
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  Log("before\n");
  std::signal(SIGUSR1, [](int) {
    Log("inside\n");
    Log("inside again\n");
  });
  signalBeforeWrite = SIGUSR1;
  Log("what is being written when the signal comes\n");
  Log("after\n");
  const Strings lines = Lines(kLog);
  EXPECT_EQ(
      Strings(lines.begin() + kBannerLines, lines.end()),
      (Strings{"before", "inside", "inside again", "what is being written when the signal comes", "after"}));
}

TEST(LogSignal, AHandlerThatSaysTooMuchLosesItsOwnLinesOnly) {
  EnterHost("log.timeStamp = FALSE\nlog.threadName = FALSE\n");
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  Log("before\n");
  std::signal(SIGUSR1, [](int) {
    for (int i = 0; i < 20; i++) {
      Log("%s\n", std::string(2000, static_cast<char>('a' + i)).c_str());
    }
  });
  signalBeforeWrite = SIGUSR1;
  const std::string text(3000, 'X');
  Log("%s\n", text.c_str());
  Log("after\n");
  const Strings lines = Lines(kLog);
  ASSERT_GT(lines.size(), kBannerLines + 10);
  for (size_t i = kBannerLines + 1; i < lines.size() - 2; i++) {
    EXPECT_EQ(lines[i], std::string(2000, static_cast<char>('a' + (i - kBannerLines - 1))));
  }
  EXPECT_EQ(lines[lines.size() - 2], text);
  EXPECT_EQ(lines.back(), "after");
}

// A handler's line comes behind one that goes round the ring's end, and that it interrupts.
void ExpectLineBehindOneInTwoPieces(void (*handler)(int)) {
  EnterHost("log.timeStamp = FALSE\nlog.threadName = FALSE\n");
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  Log("before\n");
  std::signal(SIGUSR1, handler);
  signalBeforeWrite = SIGUSR1;
  logState.ringRead = logState.ringWrite = 32768 - 10;
  Log("what is being written when the signal comes\n");
  Log("after\n");
  const Strings lines = Lines(kLog);
  EXPECT_EQ(Strings(lines.begin() + kBannerLines, lines.end()),
            (Strings{"before", "what is being written when the signal comes", "inside", "after"}));
}

TEST(LogSignal, AHandlersLineComesBehindOneThatIsWrittenInTwoPieces) {
  ExpectLineBehindOneInTwoPieces([](int) { Log("inside\n"); });
}

TEST(LogSignal, AHandlersLineComesBehindOneWhoseSecondPieceIsBeingWritten) {
  ExpectLineBehindOneInTwoPieces([](int) {
    std::signal(SIGUSR1, [](int) { Log("inside\n"); });
    signalBeforeWrite = SIGUSR1;
  });
}

// Comes where a lock function is in the middle of its work; 0 for none.
int signalInLock;
bool isLocking;

void LockWithSignal(bool /*lock*/) {
  EXPECT_FALSE(isLocking) << "a lock that knows no owner yet would be waited for for ever";
  isLocking = true;
  raise(std::exchange(signalInLock, 0));
  isLocking = false;
}

TEST(LogSignal, AHandlerDoesNotEnterALockFunctionInItsMiddle) {
  EnterHost();
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  Log_SetLockFunc(LockWithSignal);
  std::signal(SIGUSR1, [](int) { Log("inside\n"); });
  signalInLock = SIGUSR1;
  Log("one\n");
  Log("two\n");
  EXPECT_EQ(Texts(kLog), (Strings{"one", "two"}));
  Log_SetLockFunc(nullptr);
}

std::atomic<int> handled;

TEST(LogSignal, AHandlerDoesNotWaitForALockThatItsThreadIsTaking) {
  EnterHost();
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  const Signals signals(20000, [](int) {
    VThread_SetIsInSignal(3, true);
    Log("inside\n");
    VThread_SetIsInSignal(3, false);
    handled++;
  });
  alarm(60);
  while (handled < 20000) {
    Log("line\n");
  }
}

#ifdef __x86_64__

// The instructions that were stepped through, and behind how many of them a handler logs.
size_t steps;
size_t loggingStep;

void LogAtItsStep(int /*signal*/) {
  if (++steps == loggingStep) {
    Log("inside %s\n", std::string(20, 'i').c_str());
  }
}

// From here on a SIGTRAP comes behind each instruction, or no more. The stack is written behind what a caller
// may have below its end.
[[gnu::noinline]] void StepFromHere() {
  asm volatile("leaq -128(%%rsp), %%rsp; pushfq; orq $0x100, (%%rsp); popfq; leaq 128(%%rsp), %%rsp" ::
                   : "memory");
}

[[gnu::noinline]] void StepNoMore() {
  asm volatile("leaq -128(%%rsp), %%rsp; pushfq; andq $~0x100, (%%rsp); popfq; leaq 128(%%rsp), %%rsp" ::
                   : "memory");
}

// Returns how many instructions a line took.
size_t StepThroughALine(size_t number, size_t step) {
  steps = 0;
  loggingStep = step;
  // Some lines end before the ring does, the others go round its end.
  logState.ringRead = logState.ringWrite = 32767 - number * 7 % 50;
  const std::string text = std::to_string(number) + " " + std::string(30, 'o') + "\n";
  StepFromHere();
  Log("%s", text.c_str());
  StepNoMore();
  return steps;
}

TEST(LogSignal, AHandlerMayLogBehindAnyInstruction) {
  EnterHost("log.timeStamp = FALSE\nlog.threadName = FALSE\n");
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  Log("start\n");
  std::signal(SIGTRAP, LogAtItsStep);
  constexpr size_t kLines = 250;
  const size_t all = StepThroughALine(0, 0);
  for (size_t number = 1; number < kLines; number++) {
    StepThroughALine(number, number * all / kLines);
  }
  Strings lines = Lines(kLog);
  const size_t inside = std::erase(lines, "inside " + std::string(20, 'i'));
  EXPECT_GT(inside, kLines / 2);
  ASSERT_EQ(lines.size(), kBannerLines + 1 + kLines);
  for (size_t number = 0; number < kLines; number++) {
    EXPECT_EQ(lines[kBannerLines + 1 + number], std::to_string(number) + " " + std::string(30, 'o'));
  }
  EXPECT_EQ(logState.ringCount, 0U);
  EXPECT_EQ(logState.ringTaken, 0U);
}

#endif

// A ring that can be touched by nobody until a handler lets it.
constexpr size_t kRingSize = 32768;
int touches;

void CloseRing() {
  ASSERT_EQ(mprotect(logState.ringStart, kRingSize, PROT_NONE), 0);
}

void OpenRingAndLog(int /*signal*/) {
  touches++;
  mprotect(logState.ringStart, kRingSize, PROT_READ | PROT_WRITE);
  Log("inside\n");
}

// Enters a host whose log has no file yet, no prefix, and such a ring.
void EnterHostWithRing() {
  EnterHost("log.timeStamp = FALSE\nlog.threadName = FALSE\n");
  ASSERT_TRUE(Log_Init(nullptr, nullptr, "setup"));
  void *const ring = mmap(nullptr, kRingSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(ring, MAP_FAILED);
  logState.ringStart = static_cast<char *>(ring);
  struct sigaction action {};
  action.sa_handler = OpenRingAndLog;
  ASSERT_EQ(sigaction(SIGSEGV, &action, nullptr), 0);
}

TEST(LogSignal, AHandlerLeavesARingAloneThatIsBeingFilled) {
  EnterHostWithRing();
  Log("early\n");
  ASSERT_TRUE(Log_SetFile(kLog, nullptr, true));
  CloseRing();
  Log("late\n");
  EXPECT_EQ(touches, 1);
  Log("after\n");
  const Strings lines = Lines(kLog);
  EXPECT_EQ(Strings(lines.begin() + kBannerLines, lines.end()), (Strings{"early", "late", "after"}));
  EXPECT_EQ(logState.ringCount, 0U);
}

TEST(LogSignal, AHandlerLeavesARingAloneThatDropsALine) {
  EnterHostWithRing();
  int line = 0;
  for (; logState.ringCount < kRingSize - 100; line++) {
    Log("line %d %s\n", line, std::string(static_cast<size_t>(line % 50), 'x').c_str());
  }
  CloseRing();
  Log("%s\n", std::string(1000, 'y').c_str());
  EXPECT_EQ(touches, 1);
  ASSERT_TRUE(Log_SetFile(kLog, nullptr, true));
  Log("after\n");
  const Strings lines = Lines(kLog);
  ASSERT_GT(lines.size(), 100U);
  int number = line;
  for (size_t i = lines.size() - 2; i-- > kBannerLines;) {
    number--;
    EXPECT_EQ(lines[i],
              "line " + std::to_string(number) + " " + std::string(static_cast<size_t>(number % 50), 'x'));
  }
}

// --- The ring

// What waits, as plain text.
std::string Waiting() {
  const size_t first = std::min(logState.ringCount, 32768 - logState.ringRead);
  return std::string(logState.ringStart + logState.ringRead, first) +
         std::string(logState.ringStart, logState.ringCount - first);
}

TEST(LogRing, FollowsAPlainModel) {
  EnterHost();
  std::mt19937 random(1);
  std::string model;
  for (int i = 0; i < 5000; i++) {
    const size_t limit = i % 100 == 0 ? 32768 : 700;
    std::string piece(random() % limit, static_cast<char>('a' + i % 26));
    if (!piece.empty() && random() % 4 != 0) {
      piece.back() = '\n';
    }
    LogQueue(&logState, piece);
    while (model.size() + piece.size() > 32768) {
      const size_t newline = model.find('\n');
      model.erase(0, newline == std::string::npos ? newline : newline + 1);
    }
    model += piece;
    ASSERT_EQ(Waiting() == model, true) << i;
  }
}

TEST(LogRing, TakesAPieceThatIsOneByteShorterThanItself) {
  EnterHost();
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  Log_WriteText((std::string(32766, 'x') + "\n").c_str());
  // It leaves no room for its own prefix.
  const Strings lines = Lines(kLog);
  ASSERT_EQ(lines.size(), kBannerLines + 1);
  EXPECT_EQ(lines.back(), std::string(32766, 'x'));
}

TEST(LogRingDeathTest, StopsAtAPieceOfItsOwnLength) {
  EnterHost();
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  const std::string text(32768, 'x');
  EXPECT_EXIT(Log_WriteText(text.c_str()), testing::ExitedWithCode(255),
              testing::StartsWith("ASSERT lib/log/logRing.cc:"));
  // The panic itself finds a log that works.
  EXPECT_TRUE(testhost::RegexMatch(Lines(kLog).at(kBannerLines),
                                   std::string(kPrefix) + "ASSERT lib/log/logRing.cc:[0-9]+"))
      << Lines(kLog).at(kBannerLines);
}

TEST(LogRing, WithoutMemoryTextIsDropped) {
  EnterHost();
  ASSERT_TRUE(Log_Init(nullptr, nullptr, "setup"));
  {
    // The prefix' allocation fails, and the text's doesn't.
    const testhost::AllocationFault fault(0);
    Log("one\n");
    EXPECT_TRUE(fault.Happened());
  }
  Log("two\n");
  ASSERT_TRUE(Log_SetFile(kLog, nullptr, false));
  Log("three\n");
  EXPECT_TRUE(Lines(kLog).at(kBannerLines) == "one") << Lines(kLog).at(kBannerLines);
  EXPECT_TRUE(testhost::RegexMatch(Lines(kLog).at(kBannerLines + 1), std::string(kPrefix) + "two"));
}

TEST(LogRing, IsAllThatALogAllocates) {
  EnterHost();
  EXPECT_EQ(testhost::CountAllocations([] { Log("dropped\n"); }), 0U);
  ASSERT_TRUE(Log_Init(nullptr, nullptr, "setup"));
  EXPECT_EQ(testhost::CountAllocations([] { Log("first\n"); }), 1U);
  const auto work = [] {
    for (int i = 0; i < 2000; i++) {
      Log("text %d\n", i);
    }
    Log("%s", std::string(5000, 'x').c_str());
    Log_WriteText("\ntext\n");
    Log_SetQuietWarnings(true);
    Warning("text\n");
  };
  EXPECT_EQ(testhost::CountAllocations(work), 0U);
  ASSERT_TRUE(Log_SetFile(kLog, nullptr, false));
  Log("the banner\n");
  EXPECT_EQ(testhost::CountAllocations(work), 0U);
}

// --- Ready text

TEST(LogWriteText, IsNoFormatAndIsNotCut) {
  EnterHost();
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  const std::string text = "100%s" + std::string(9000, 'x');
  Log_WriteText((text + "\ntwo\n").c_str());
  EXPECT_EQ(Texts(kLog), (Strings{text, "two"}));
}

TEST(LogWriteText, IsDroppedWithoutALog) {
  EnterHost();
  Log_WriteText("early\n");
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  Log("late\n");
  EXPECT_EQ(Texts(kLog), Strings{"late"});
}

// --- Many writers

TEST(LogThreads, LoseAndMixNoLine) {
  EnterHost();
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  constexpr int kLines = 100000;
  testhost::OnEightThreads([](size_t thread) {
    for (int line = 0; line < kLines; line++) {
      Log("%zu %d %s\n", thread, line,
          std::string(static_cast<size_t>(line % 100), static_cast<char>('a' + thread)).c_str());
    }
  });
  std::array<int, testhost::kThreads> next{};
  const Strings lines = Lines(kLog);
  ASSERT_EQ(lines.size(), kBannerLines + testhost::kThreads * kLines);
  for (size_t i = kBannerLines; i < lines.size(); i++) {
    const std::string text = lines[i].substr(lines[i].find("| ") + 2);
    const size_t thread = static_cast<size_t>(text.at(0) - '0');
    ASSERT_LT(thread, testhost::kThreads) << text;
    const int line = next.at(thread)++;
    ASSERT_EQ(text, std::to_string(thread) + " " + std::to_string(line) + " " +
                        std::string(static_cast<size_t>(line % 100), static_cast<char>('a' + thread)));
  }
}

TEST(LogKill, LeavesWholeLines) {
  EnterHost();
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  Log("start\n");
  const std::string text(150, 'k');
  for (int round = 0; round < 30; round++) {
    ASSERT_EQ(truncate(kLog, 0), 0);
    const pid_t child = fork();
    if (child == 0) {
      for (;;) {
        Log("%s\n", text.c_str());
      }
    }
    while (fs::file_size(kLog) == 0) {
      usleep(100);
    }
    usleep(static_cast<useconds_t>(round * 200));
    kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    const std::string content = testhost::ReadFile(kLog);
    // The kernel itself ends a write where a page of the file ends, when that is where the signal meets it.
    EXPECT_TRUE(content.back() == '\n' || content.size() % 4096 == 0) << content.size();
    Strings lines = Lines(kLog);
    if (content.back() != '\n') {
      lines.pop_back();
    }
    for (const std::string &line : lines) {
      ASSERT_TRUE(line.ends_with("| " + text)) << line;
      ASSERT_EQ(line.size(), lines[0].size());
    }
  }
}

// --- Recursion

TEST(Log, PanicsInTheMiddleOfItsOwnWorkReachTheFile) {
  EnterHost();
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  EXPECT_EXIT(
      {
        const LogLock lock(&logState);
        Panic("inside %d\n", 1);
      },
      testing::ExitedWithCode(255), testing::StartsWith("inside 1\n"));
  const Strings texts = Texts(kLog);
  EXPECT_EQ(texts.at(0), "inside 1");
  EXPECT_EQ(texts.at(1), "Backtrace:");
}

TEST(Log, WhatItsOwnStartLogsWaitsForTheFile) {
  testhost::Host host;
  host.Directory(kDirectory).Enter();
  // Settings that are not up log that they give their defaults.
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  Log("text\n");
  const Strings lines = Lines(Log_GetFileName());
  EXPECT_EQ(lines.at(kBannerLines),
            "LOG NOT INITIALIZED | PREF early PreferenceGet(setup.log.filename), using default");
  EXPECT_TRUE(testhost::RegexMatch(lines.back(), std::string(kPrefix) + "text"));
}

}  // namespace
