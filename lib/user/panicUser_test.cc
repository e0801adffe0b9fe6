#include "panicUser.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "log.h"
#include "msg.h"
#include "panics.h"
#include "regexes.h"
#include "testhost.h"
#include "util_misc.h"

namespace {

std::string StartLog() {
  EXPECT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  return Log_GetFileName();
}

constexpr char kWithoutLog[] =
    "You can request support.  \n"
    "To collect data to submit to Ostrel support, select Help > About and click \"Collect Support Data\". "
    "You can also run the \"ost-support\" script in the Bench folder directly.\n"
    "We will respond on the basis of your support entitlement.\n";

// What a panic posts of this text and what stands behind it.
std::string Post(const std::string &text) {
  return "\nOstrel Tools Error:\nOstrel Tools unrecoverable error: (app)\n" + text + "\n";
}

// Panics again while the exit of the first panic runs its handlers.
[[noreturn]] void PanicTwice() {
  atexit([] { Panic("second\n"); });
  Panic("first\n");
}

[[noreturn]] void PanicThreeTimes() {
  atexit([] { Panic("third\n"); });
  PanicTwice();
}

TEST(PanicDeathTest, WritesItsTextAndAPostAndEndsWith255) {
  EXPECT_EXIT(Panic("Out of %s %d\n", "luck", 13), testing::ExitedWithCode(255),
              testing::Eq("Out of luck 13\n" + Post("Out of luck 13\n" + std::string(kWithoutLog))));
}

TEST(PanicDeathTest, CutsItsTextAt1023Bytes) {
  const std::string text(1023, 'x');
  EXPECT_EXIT(Panic("%s", std::string(5000, 'x').c_str()), testing::ExitedWithCode(255),
              testing::Eq(text + Post(text + kWithoutLog)));
}

TEST(PanicDeathTest, ItsTextIsNeverReadAsAFormat) {
  EXPECT_EXIT(Panic("%s", "100% of %s and %n\n"), testing::ExitedWithCode(255),
              testing::Eq("100% of %s and %n\n" + Post("100% of %s and %n\n" + std::string(kWithoutLog))));
}

TEST(PanicDeathTest, ASecondEntryIsALoop) {
  EXPECT_EXIT(PanicTwice(), testing::ExitedWithCode(1),
              testing::Eq("first\n" + Post("first\n" + std::string(kWithoutLog)) + "second\nPanic loop\n"));
}

TEST(PanicDeathTest, EveryLaterEntryIsALoopToo) {
  EXPECT_EXIT(PanicThreeTimes(), testing::ExitedWithCode(1),
              testhost::Panics(testing::Eq("first\nsecond\nPanic loop\nthird\nPanic loop\n")));
}

void FailingPost(int /*severity*/, const char * /*id*/, const char *text) {
  Panic("no post of %zu bytes\n", strlen(text));
}

TEST(PanicDeathTest, AMessageCallbackThatPanicsIsALoop) {
  MsgCallback callback;
  Msg_GetCallback(&callback);
  callback.post = FailingPost;
  Msg_SetCallback(&callback);
  EXPECT_EXIT(Panic("first\n"), testing::ExitedWithCode(1),
              testing::MatchesRegex("first\nno post of [0-9]+ bytes\nPanic loop\n"));
}

// A logger that a program may put in the place of the log, and that fails.
void FailingLog(const char * /*format*/, va_list /*args*/) {
  Panic("no log\n");
}

TEST(PanicDeathTest, ALogThatPanicsIsALoop) {
  EXPECT_EXIT(
      {
        Log_RegisterFunctions(FailingLog, FailingLog);
        Panic("first\n");
      },
      testing::ExitedWithCode(1), testing::Eq("first\nno log\nno log\nPanic loop\n"));
}

// A lock that a program may put in the place of the log's own, and that fails.
void FailingLock(bool /*lock*/) {
  Panic("no lock\n");
}

TEST(PanicDeathTest, ALockOfTheLogThatPanicsIsALoop) {
  EXPECT_EXIT(
      {
        Log_SetLockFunc(FailingLock);
        Panic("first\n");
      },
      testing::ExitedWithCode(1), testing::Eq("first\nno lock\nPanic loop\n"));
}

TEST(PanicDeathTest, LogsTheTextAndABackTraceAndKeepsTheLog) {
  testhost::Host host;
  host.Enter();
  const std::string file = StartLog();
  EXPECT_EXIT(
      {
        atexit([] { Log_RemoveFile(false); });
        Panic("No %s\n", "way");
      },
      testing::ExitedWithCode(255), testhost::Panics(testing::Eq("No way\n")));
  const std::string log = testhost::ReadFile(file);
  EXPECT_TRUE(testhost::RegexSearch(
      log, R"(: app\| No way\n[^\n]*: app\| Backtrace:\n[^\n]*: app\| Backtrace\[0\] [0-9a-f]{16} )"
           R"(rip=[0-9a-f]{16} rbx=[0-9a-f]{16} rbp=[0-9a-f]{16} r12=[0-9a-f]{16} )"
           R"(r13=[0-9a-f]{16} r14=[0-9a-f]{16} r15=[0-9a-f]{16}\n)"))
      << log;
  EXPECT_TRUE(testhost::RegexSearch(log, R"(Backtrace\[5\] )"));
}

TEST(PanicDeathTest, LogsItsPost) {
  testhost::Host host;
  host.Enter();
  const std::string file = StartLog();
  EXPECT_EXIT(Panic("No way\n"), testing::ExitedWithCode(255), "");
  const std::string log = testhost::ReadFile(file);
  EXPECT_TRUE(testhost::RegexSearch(
      log, R"(\| Msg_Post: Error\n[^\n]*\| \[msg\.log\.error\.unrecoverable\] Ostrel Tools )"
           R"(unrecoverable error: \(app\)\n[^\n]*\| No way\n)"))
      << log;
  EXPECT_NE(log.find("[msg.panic.haveLog] A log file is available in \"" + file +
                     "\".  [msg.panic.requestSupport.withLog] You can request support and include the "
                     "contents of the log file.  [msg.panic.requestSupport.ostSupport.linux] \n"),
            std::string::npos)
      << log;
  EXPECT_NE(log.find("[msg.panic.response] We will respond on the basis of your support entitlement.\n"),
            std::string::npos);
}

TEST(PanicDeathTest, LogsALoopOnce) {
  testhost::Host host;
  host.Enter();
  const std::string file = StartLog();
  EXPECT_EXIT(PanicThreeTimes(), testing::ExitedWithCode(1), "");
  const std::string log = testhost::ReadFile(file);
  EXPECT_TRUE(testhost::RegexSearch(log, R"(: app\| first\n)"));
  EXPECT_TRUE(testhost::RegexSearch(log, R"(: app\| second\n[^\n]*: app\| Panic loop\n$)")) << log;
  EXPECT_EQ(log.find("Backtrace:"), log.rfind("Backtrace:"));
}

TEST(PanicDeathTest, AssertionsNameSourceAndLine) {
  const auto panics = testing::ExitedWithCode(255);
  const auto at = [](const char *what, int line, const char *rest = "") {
    return testhost::Panics(
        testing::Eq(std::string(what) + " lib/user/panicUser_test.cc:" + std::to_string(line) + rest + "\n"));
  };
  EXPECT_EXIT(ASSERT(1 > 2), panics, at("ASSERT", __LINE__));
  EXPECT_EXIT(ASSERT_BUG(4711, 1 > 2), panics, at("ASSERT", __LINE__, " bugNr=4711"));
  EXPECT_EXIT(ASSERT_MEM_ALLOC(1 > 2), panics, at("MEM_ALLOC", __LINE__));
  EXPECT_EXIT(NOT_IMPLEMENTED(), panics, at("NOT_IMPLEMENTED", __LINE__));
  EXPECT_EXIT(NOT_REACHED(), panics, at("NOT_REACHED", __LINE__));
  EXPECT_EXIT(NOT_REACHED_BUG(4711), panics, at("NOT_REACHED", __LINE__, " bugNr=4711"));
  EXPECT_EXIT(PANIC(), panics, at("PANIC", __LINE__));
}

TEST(Panic, APathThatNobodyTriedIsALineInTheLog) {
  testhost::Host host;
  host.Enter();
  const std::string file = StartLog();
  const int line = __LINE__ + 1;
  NOT_TESTED();
  EXPECT_NE(
      testhost::ReadFile(file).find("| NOT_TESTED lib/user/panicUser_test.cc:" + std::to_string(line) + "\n"),
      std::string::npos);
}

TEST(Panic, AConditionThatHoldsIsEvaluatedOnce) {
  int count = 0;
  ASSERT(++count == 1);
  ASSERT_BUG(1, ++count == 2);
  ASSERT_MEM_ALLOC(++count == 3);
  EXPECT_EQ(count, 3);
}

}  // namespace
