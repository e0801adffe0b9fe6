// What the tests of user messages share.
#ifndef OST_USER_MSGTESTINT_H
#define OST_USER_MSGTESTINT_H

#include <gtest/gtest.h>

#include <string>

#include "log.h"
#include "msg.h"
#include "owned.h"
#include "panics.h"
#include "preference.h"
#include "productState.h"
#include "regexes.h"
#include "testhost.h"

namespace msgtest {

inline const auto kPanics = ::testing::ExitedWithCode(255);

// What a death test sees of a panic by name, in a file of lib ("user/msg"): "ASSERT lib/user/msg.cc:12".
inline testing::Matcher<const std::string &> PanicIn(const std::string &name, const std::string &file) {
  return testhost::Panics("(^|\n)" + name + " lib/" + file + "\\.cc:[0-9]+\n$");
}

// A host with a product, a log and the settings of the test.
class MsgHost : public ::testing::Test {
 protected:
  // Call this first.
  //
  // settings  lines of the user's preferences
  void Enter(const std::string &settings = "", testhost::Host *described = nullptr) {
    testhost::Host plain;
    testhost::Host &host = described == nullptr ? plain : *described;
    host.Directory("/t").File("/root/.ostrel/preferences", settings);
    host.Enter();
    setenv("HOME", "/root", 1);
    ProductState_Set(0, "Ostrel Bench", nullptr, 0, 0);
    Preference_DisablePolling();
    ASSERT_TRUE(Preference_Init());
    ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
    Log("start\n");
    Logged();
  }

  // What the log got since the last call, without the lines' prefixes.
  std::string Logged() {
    const std::string log = testhost::ReadFile(Log_GetFileName());
    const std::string fresh = log.substr(logSize_);
    logSize_ = log.size();
    return testhost::RegexReplace(fresh, R"((^|\n)[^\n]*?: app\| )", "$1");
  }

 private:
  size_t logSize_ = 0;
};

// The block of a list in the log.
inline std::string Block(const std::string &head, const std::string &messages) {
  return head + "\n" + messages + "----------------------------------------\n";
}

}  // namespace msgtest

#endif
