// What the tests of the settings share.
#ifndef OST_CONFIG_PREFERENCETESTINT_H
#define OST_CONFIG_PREFERENCETESTINT_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <string>

#include "log.h"
#include "msg.h"
#include "owned.h"
#include "preference.h"
#include "regexes.h"
#include "testhost.h"

namespace preferencetest {

inline const auto kPanics = ::testing::ExitedWithCode(255);

inline constexpr char kSettings[] = "/usr/lib/ostrel/settings";
inline constexpr char kUserPreferences[] = "/home/person/.ostrel/preferences";
inline constexpr char kUserDefaults[] = "/home/person/.ostrel/config";
inline constexpr char kHostDefaults[] = "/etc/ostrel/config";
inline constexpr char kSiteDefaults[] = "/usr/lib/ostrel/config";

// The text, or "(null)".
inline std::string Take(char *text) {
  const OwnedString owned(text);
  return text == nullptr ? "(null)" : text;
}

// A host with a log, a home directory and no settings.
class SettingsHost : public ::testing::Test {
 protected:
  void SetUp() override {
    testhost::Host host;
    host.Directory("/home/person/.ostrel").Remove("/etc/ostrel").Remove("/usr/lib/ostrel");
    Describe(host);
    host.Enter();
    setenv("HOME", "/home/person", 1);
    ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
    // Numbers in messages don't depend on what stands before the log's first line.
    Log("start\n");
    Logged();
  }
  void TearDown() override { Preference_Exit(); }
  virtual void Describe(testhost::Host & /*host*/) {}

  static void Start() {
    Preference_DisablePolling();
    ASSERT_TRUE(Preference_Init());
  }

  // What the log got since the last call, without the lines' prefixes.
  std::string Logged() {
    const std::string log = testhost::ReadFile(Log_GetFileName());
    const std::string text = log.substr(logSize_);
    logSize_ = log.size();
    return testhost::RegexReplace(text, R"((^|\n)[A-Z][a-z]{2} [ \d]\d \d\d:\d\d:\d\d\.\d{3}: \w+\| )", "$1");
  }
  // The lines of it that begin so.
  std::string LoggedLines(const std::string &start) {
    std::istringstream lines(Logged());
    std::string text;
    for (std::string line; std::getline(lines, line);) {
      if (line.starts_with(start)) {
        text += line + '\n';
      }
    }
    return text;
  }
  bool HasLogged(const std::string &text) { return Logged().find(text) != std::string::npos; }

 private:
  size_t logSize_ = 0;
};

}  // namespace preferencetest

#endif
