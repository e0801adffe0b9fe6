// What the tests of the log share.
#ifndef OST_LOG_LOGTESTINT_H
#define OST_LOG_LOGTESTINT_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "log.h"
#include "msg.h"
#include "preference.h"
#include "regexes.h"
#include "testhost.h"

namespace logtest {

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;

inline constexpr char kPrefix[] =
    R"([A-Z][a-z]{2} [0-3][0-9] [0-2][0-9]:[0-5][0-9]:[0-6][0-9]\.[0-9]{3}: app\| )";
inline constexpr size_t kBannerLines = 3;
inline constexpr char kDirectory[] = "/tmp/logs";
inline constexpr char kLog[] = "/tmp/logs/my.log";

// Enters a host that has a directory for logs, with these lines of settings.
inline void EnterHost(const std::string &settings = "") {
  testhost::Host host;
  host.Directory(kDirectory).File("/etc/ostrel/config", settings);
  host.Enter();
  unsetenv("TMPDIR");
  unsetenv("PID");
  Preference_DisablePolling();
  ASSERT_TRUE(Preference_Init());
}

inline void StartLog() {
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
}

// The log's lines, the last of them also without a line feed.
inline Strings Lines(const std::string &path) {
  std::istringstream stream(testhost::ReadFile(path));
  Strings lines;
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

// The lines behind the banner, each checked for the prefix and then without it.
inline Strings Texts(const std::string &path) {
  const std::string prefix = std::string("^") + kPrefix;
  Strings texts;
  const Strings lines = Lines(path);
  for (size_t i = kBannerLines; i < lines.size(); i++) {
    EXPECT_TRUE(testhost::RegexSearch(lines[i], prefix)) << lines[i];
    texts.push_back(testhost::RegexReplace(lines[i], prefix, ""));
  }
  return texts;
}

inline Strings Texts() {
  return Texts(Log_GetFileName());
}

// Lets signals come over and over while it lives, each of which `handler` takes.
class Signals {
 public:
  Signals(long nanoseconds, void (*handler)(int)) {
    std::signal(SIGUSR1, handler);
    struct sigevent event {};
    event.sigev_signo = SIGUSR1;
    EXPECT_EQ(timer_create(CLOCK_MONOTONIC, &event, &timer_), 0);
    const struct timespec interval = {0, nanoseconds};
    const struct itimerspec often = {interval, interval};
    EXPECT_EQ(timer_settime(timer_, 0, &often, nullptr), 0);
  }
  ~Signals() { timer_delete(timer_); }
  Signals(const Signals &) = delete;
  Signals &operator=(const Signals &) = delete;

 private:
  timer_t timer_ = nullptr;
};

// What a call writes to standard error.
template <typename Function>
std::string OnStandardError(Function function) {
  testing::internal::CaptureStderr();
  function();
  return testing::internal::GetCapturedStderr();
}

// The ids of the pending messages and, behind them, the text of all; none are pending afterwards.
inline Strings TakeMessages() {
  Strings result;
  for (const MsgList *message = Msg_GetMsgList(); message != nullptr; message = message->next) {
    result.emplace_back(message->id);
  }
  result.emplace_back(Msg_GetMessagesAndReset());
  return result;
}

inline std::string SwitchFailedText(const std::string &name) {
  return "Unable to open the log file \"" + name +
         "\". Make sure that the path specified for the log file is valid, and that you have write "
         "privileges "
         "in this directory.\n";
}

}  // namespace logtest

#endif
