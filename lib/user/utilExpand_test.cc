#include <gtest/gtest.h>
#include <unistd.h>

#include <clocale>
#include <cstdlib>
#include <string>

#include "allocations.h"
#include "log.h"
#include "msg.h"
#include "owned.h"
#include "panics.h"
#include "testhost.h"
#include "util.h"

namespace {

// The expansion, or "(null)".
std::string Expand(const std::string &name) {
  const OwnedString result(Util_ExpandString(name.c_str()));
  return result == nullptr ? "(null)" : result.get();
}

TEST(ExpandString, CopiesWhatHasNothingToExpand) {
  EXPECT_EQ(Expand("/plain/x~y"), "/plain/x~y");
  EXPECT_EQ(Expand(""), "");
}

TEST(ExpandString, HomeIsFromTheEnvironment) {
  setenv("HOME", "/home/me", 1);
  EXPECT_EQ(Expand("~/x"), "/home/me/x");
  EXPECT_EQ(Expand("~"), "/home/me");
  EXPECT_EQ(Expand("a/~/x"), "a/~/x");
  EXPECT_EQ(Expand("$HOME/~"), "/home/me/~");
}

TEST(ExpandString, KeepsTheTildeWithoutAHome) {
  testhost::Host host;
  host.Enter();
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  unsetenv("HOME");
  EXPECT_EQ(Expand("~/x"), "~/x");
  EXPECT_NE(testhost::ReadFile(Log_GetFileName()).find("| Could not expand environment variable HOME.\n"),
            std::string::npos);
}

TEST(ExpandString, FindsAUsersDirectory) {
  EXPECT_EQ(Expand("~root/x"), "/root/x");
  EXPECT_EQ(Expand("~root"), "/root");
  // Only at the beginning of the name, not of what follows a variable.
  setenv("A", "one", 1);
  EXPECT_EQ(Expand("$A~root/x"), "one~root/x");
  EXPECT_EQ(Expand("$A~"), "one~");
  EXPECT_EQ(Expand("$A~x$A/y"), "one~xone/y");
}

TEST(ExpandString, KeepsAnUnknownUser) {
  testhost::Host host;
  host.Enter();
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  EXPECT_EQ(Expand("~nobody-of-this-name/x"), "~nobody-of-this-name/x");
  // The user's name runs up to the slash, whatever it holds.
  setenv("SOME", "root", 1);
  EXPECT_EQ(Expand("~$SOME/x"), "~$SOME/x");
  const std::string log = testhost::ReadFile(Log_GetFileName());
  EXPECT_NE(log.find("| Could not get information for user 'nobody-of-this-name'.\n"), std::string::npos);
  EXPECT_NE(log.find("| Could not get information for user '$SOME'.\n"), std::string::npos);
}

TEST(ExpandString, ReplacesVariablesOfTheEnvironment) {
  setenv("A_1", "one", 1);
  setenv("EMPTY", "", 1);
  EXPECT_EQ(Expand("x/$A_1.y$A_1$A_1"), "x/one.yoneone");
  EXPECT_EQ(Expand("$EMPTY/x"), "/x");
  EXPECT_EQ(Expand("$A_1"), "one");
}

TEST(ExpandString, KeepsALoneDollar) {
  setenv("A", "one", 1);
  EXPECT_EQ(Expand("$"), "$");
  EXPECT_EQ(Expand("a$/$A"), "a$/one");
  EXPECT_EQ(Expand("$$A"), "$one");
}

TEST(ExpandString, AnUnsetVariableGivesNothingAndAWarning) {
  unsetenv("UNSET");
  testing::internal::CaptureStderr();
  EXPECT_EQ(Expand("$UNSET/x"), "/x");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Environment variable 'UNSET' not defined in '$UNSET/x'.\n");
}

TEST(ExpandString, KnowsProcessIdAndUserInAnyCase) {
  unsetenv("PID");
  unsetenv("Pid");
  unsetenv("USER");
  unsetenv("user");
  EXPECT_EQ(Expand("a-$PID.log"), "a-" + std::to_string(getpid()) + ".log");
  EXPECT_EQ(Expand("$Pid"), std::to_string(getpid()));
  EXPECT_EQ(Expand("$user"), "root");
  setenv("PID", "mine", 1);
  EXPECT_EQ(Expand("$PID"), "mine");
  EXPECT_EQ(Expand("$Pid"), std::to_string(getpid()));
  setenv("PID", "", 1);
  EXPECT_EQ(Expand("$PID"), "");
  setenv("USER", "other", 1);
  EXPECT_EQ(Expand("$USER"), "other");
}

TEST(ExpandString, AUserWithoutANameIsUnknown) {
  unsetenv("USER");
  // The real user counts, whatever rights the process has.
  ASSERT_EQ(setresuid(54321, 0, 0), 0);
  EXPECT_EQ(Expand("$USER"), "unknown");
  ASSERT_EQ(setresuid(0, 0, 0), 0);
}

TEST(ExpandString, RefusesMoreThan100Chunks) {
  testhost::Host host;
  host.Enter();
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  setenv("A", "x", 1);
  std::string name;
  std::string expected;
  for (int i = 0; i < 50; i++) {
    name += "$A/";
    expected += "x/";
  }
  EXPECT_EQ(Expand(name), expected);
  EXPECT_FALSE(Msg_Present());
  name += "$A";
  EXPECT_EQ(Expand(name), "(null)");
  Msg_Reset(true);
  EXPECT_NE(
      testhost::ReadFile(Log_GetFileName())
          .find("| [msg.util.expandStringTooManyChunks] Filename \"" + name + "\" has too many chunks.\n"),
      std::string::npos);
}

TEST(ExpandString, TakesAHundredMegabytes) {
  testhost::Host host;
  host.Enter();
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  std::string text;
  text.append(100'000'000, 'x');
  setenv("A", "one", 1);
  EXPECT_EQ(Expand(text), text);
  EXPECT_EQ(Expand("$A/" + text), "one/" + text);
  EXPECT_EQ(Expand("~" + text + "/y"), "~" + text + "/y");  // nobody has that name
  testing::internal::CaptureStderr();
  EXPECT_EQ(Expand("$" + text + "/y"), "/y");
  EXPECT_TRUE(testing::internal::GetCapturedStderr().starts_with("Environment variable 'xxx"));
}

TEST(ExpandString, TakesAnyBytes) {
  setenv("A", "one", 1);
  EXPECT_EQ(Expand("\r$A\r\n\xFF\xC3$A\x01"), "\rone\r\n\xFF\xC3one\x01");
}

TEST(ExpandStringDeathTest, TakesNoNull) {
  EXPECT_EXIT(Util_ExpandString(nullptr), testing::ExitedWithCode(255),
              testhost::Panics("^ASSERT lib/user/utilExpand.cc:[0-9]+\n$"));
}

TEST(ExpandString, ANameEndsAtAByteThatIsNoLetterInAnyLocale) {
  testhost::Host host;
  host.Enter();
  setenv("A", "one", 1);
  // A letter of its own where bytes are Latin-1, and the rest of one where they are UTF-8.
  for (const char *locale : {"C", "C.UTF-8"}) {
    ASSERT_NE(setlocale(LC_ALL, locale), nullptr);
    EXPECT_EQ(Expand("$A\xC3\xA9"), "one\xC3\xA9");
  }
}

TEST(ExpandString, TakesNoValueForAName) {
  setenv("A", "$B~", 1);
  setenv("B", "two", 1);
  EXPECT_EQ(Expand("$A/$B"), "$B~/two");
  setenv("HOME", "$B", 1);
  EXPECT_EQ(Expand("~/$B"), "$B/two");
}

TEST(ExpandString, LeavesAMessageWithoutMemoryForItsResult) {
  setenv("A", "one", 1);
  // The value of a variable is kept from the first time on.
  EXPECT_EQ(Expand("$A"), "one");
  const size_t count = testhost::CountAllocations([] { Expand("x/$A"); });
  ASSERT_GT(count, 0U);
  {
    const testhost::AllocationFault fault(count - 1);
    EXPECT_EQ(Util_ExpandString("x/$A"), nullptr);
    EXPECT_TRUE(fault.Happened());
  }
  ASSERT_TRUE(Msg_Present());
  EXPECT_STREQ(Msg_GetMsgList()->id, "msg.util.expandStringNoMemForResult");
  EXPECT_STREQ(Msg_GetMessages(), "Cannot allocate memory for the expansion of \"x/$A\".\n");
}

TEST(ExpandStringDeathTest, ACopyCannotFail) {
  EXPECT_EXIT(
      {
        const testhost::AllocationFault fault(0);
        Util_ExpandString("plain");
      },
      testing::ExitedWithCode(255),
      testhost::Panics("^Unrecoverable memory allocation failure at lib/user/utilExpand.cc:[0-9]+\n$"));
}

}  // namespace
