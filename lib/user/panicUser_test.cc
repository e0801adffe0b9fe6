#include "panicUser.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>
#include <string>

#include "log.h"
#include "testhost.h"
#include "util_misc.h"

namespace {

std::string StartLog() {
  EXPECT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  return Log_GetFileName();
}

bool Matches(const std::string &text, const char *pattern) {
  return std::regex_search(text, std::regex(pattern));
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

TEST(PanicDeathTest, WritesItsTextAndEndsWith255) {
  EXPECT_EXIT(Panic("Out of %s %d\n", "luck", 13), testing::ExitedWithCode(255),
              testing::Eq("Out of luck 13\n"));
}

TEST(PanicDeathTest, CutsItsTextAt1023Bytes) {
  EXPECT_EXIT(Panic("%s", std::string(5000, 'x').c_str()), testing::ExitedWithCode(255),
              testing::Eq(std::string(1023, 'x')));
}

TEST(PanicDeathTest, ASecondEntryIsALoop) {
  EXPECT_EXIT(PanicTwice(), testing::ExitedWithCode(1), testing::Eq("first\nsecond\nPanic loop\n"));
}

TEST(PanicDeathTest, EveryLaterEntryIsALoopToo) {
  EXPECT_EXIT(PanicThreeTimes(), testing::ExitedWithCode(1),
              testing::Eq("first\nsecond\nPanic loop\nthird\nPanic loop\n"));
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
      testing::ExitedWithCode(255), testing::Eq("No way\n"));
  const std::string log = testhost::ReadFile(file);
  EXPECT_TRUE(
      Matches(log, R"(: app\| No way\n[^\n]*: app\| Backtrace:\n[^\n]*: app\| Backtrace\[0\] [0-9a-f]{16} )"
                   R"(rip=[0-9a-f]{16} rbx=[0-9a-f]{16} rbp=[0-9a-f]{16} r12=[0-9a-f]{16} )"
                   R"(r13=[0-9a-f]{16} r14=[0-9a-f]{16} r15=[0-9a-f]{16}\n)"))
      << log;
  EXPECT_TRUE(Matches(log, R"(Backtrace\[5\] )"));
}

TEST(PanicDeathTest, LogsALoopOnce) {
  testhost::Host host;
  host.Enter();
  const std::string file = StartLog();
  EXPECT_EXIT(PanicThreeTimes(), testing::ExitedWithCode(1), "");
  const std::string log = testhost::ReadFile(file);
  EXPECT_TRUE(Matches(log, R"(: app\| first\n)"));
  EXPECT_TRUE(Matches(log, R"(: app\| second\n[^\n]*: app\| Panic loop\n$)")) << log;
  EXPECT_EQ(log.find("Backtrace:"), log.rfind("Backtrace:"));
}

TEST(PanicDeathTest, AssertionsNameSourceAndLine) {
  const auto panics = testing::ExitedWithCode(255);
  const auto at = [](const char *what, int line, const char *rest = "") {
    return testing::Eq(std::string(what) + " lib/user/panicUser_test.cc:" + std::to_string(line) + rest +
                       "\n");
  };
  EXPECT_EXIT(ASSERT(1 > 2), panics, at("ASSERT", __LINE__));
  EXPECT_EXIT(ASSERT_BUG(4711, 1 > 2), panics, at("ASSERT", __LINE__, " bugNr=4711"));
  EXPECT_EXIT(ASSERT_MEM_ALLOC(1 > 2), panics, at("MEM_ALLOC", __LINE__));
  EXPECT_EXIT(NOT_IMPLEMENTED(), panics, at("NOT_IMPLEMENTED", __LINE__));
  EXPECT_EXIT(NOT_REACHED(), panics, at("NOT_REACHED", __LINE__));
}

TEST(Panic, AConditionThatHoldsIsEvaluatedOnce) {
  int count = 0;
  ASSERT(++count == 1);
  ASSERT_BUG(1, ++count == 2);
  ASSERT_MEM_ALLOC(++count == 3);
  EXPECT_EQ(count, 3);
}

}  // namespace
