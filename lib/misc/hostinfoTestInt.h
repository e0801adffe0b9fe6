// What the tests of the host's facts share.
#ifndef OST_MISC_HOSTINFOTESTINT_H
#define OST_MISC_HOSTINFOTESTINT_H

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <string>

#include "log.h"
#include "testhost.h"

namespace hostinfotest {

// The descriptor of the log's file, or -1.
inline int LogDescriptor() {
  for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    if (std::filesystem::equivalent(entry.path(), Log_GetFileName(), gone)) {
      return std::stoi(entry.path().filename());
    }
  }
  return -1;
}

// A host with a log, for what a test adds to it.
class LoggingHost : public ::testing::Test {
 protected:
  void Enter() {
    host_.Enter();
    ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  }

  // How often a line was logged.
  static size_t CountLogged(const std::string &line) {
    const std::string log = testhost::ReadFile(Log_GetFileName());
    const std::string searched = "| " + line + "\n";
    size_t count = 0;
    for (size_t at = log.find(searched); at != std::string::npos; at = log.find(searched, at + 1)) {
      count++;
    }
    return count;
  }

  testhost::Host host_;
};

}  // namespace hostinfotest

#endif
