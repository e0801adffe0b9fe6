#include "msg.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "log.h"
#include "productState.h"
#include "testhost.h"

namespace {

// The log's lines behind the banner, without their prefixes.
std::string LoggedText() {
  const std::string log = testhost::ReadFile(Log_GetFileName());
  return std::regex_replace(
      log, std::regex(R"([^\n]*: app\| (Log for|The process is|Host codepage)[^\n]*\n|[^\n]*: app\| )"), "");
}

TEST(Msg, IsPendingUntilItIsReset) {
  EXPECT_FALSE(Msg_Present());
  Msg_Reset(false);
  Msg_Append(MSGID(test.one) "Text\n");
  EXPECT_TRUE(Msg_Present());
  Msg_Reset(false);
  EXPECT_FALSE(Msg_Present());
}

TEST(Msg, ResetLogsWhatItDropsInOrder) {
  testhost::Host host;
  host.Enter();
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  Msg_Append(MSGID(test.one) "Cannot open \"%s\": %d.\n", "file", 7);
  Msg_Append("@&!*@*@(MSG.Two)(%s)\n", "second");
  Msg_Reset(true);
  EXPECT_EQ(LoggedText(),
            "Msg_Reset:\n"
            "[msg.test.one] Cannot open \"file\": 7.\n"
            "[MSG.Two] (second)\n"
            "----------------------------------------\n");
  EXPECT_FALSE(Msg_Present());
}

TEST(Msg, ResetLogsNothingWithoutMessagesOrWithoutBeingAsked) {
  testhost::Host host;
  host.Enter();
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  Msg_Reset(true);
  Msg_Append(MSGID(test.one) "Text\n");
  Msg_Reset(false);
  Msg_Reset(true);
  EXPECT_EQ(testhost::ReadFile(Log_GetFileName()), "");
}

TEST(Msg, TakesALongText) {
  Msg_Append(MSGID(test.long) "%s\n", std::string(100000, 'x').c_str());
  EXPECT_TRUE(Msg_Present());
  Msg_Reset(true);
  EXPECT_FALSE(Msg_Present());
}

TEST(Msg, PostTellsAllThatIsPendingInOneText) {
  testhost::Host host;
  host.Enter();
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  ProductState_Set(0, "Ostrel Bench", nullptr, 0, 0);
  Msg_Append(MSGID(test.one) "One.\n");
  Msg_Append(MSGID(test.two) "Two %d.\n", 2);
  testing::internal::CaptureStderr();
  Msg_Post(3, MSGID(test.three) "Three \"%s\".\n", "x");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "\nOstrel Bench Error:\nOne.\nTwo 2.\nThree \"x\".\n\n");
  EXPECT_FALSE(Msg_Present());
  EXPECT_EQ(LoggedText(),
            "Msg_Post: Error\n"
            "[msg.test.one] One.\n"
            "[msg.test.two] Two 2.\n"
            "[msg.test.three] Three \"x\".\n"
            "----------------------------------------\n");
}

std::string Posted(int severity) {
  testing::internal::CaptureStderr();
  Msg_Post(severity, MSGID(test.one) "Text\n");
  return testing::internal::GetCapturedStderr();
}

TEST(Msg, PostShowsTheTitleOfItsSeverity) {
  ProductState_Set(0, "P", nullptr, 0, 0);
  EXPECT_EQ(Posted(0), "\nP Information:\nText\n\n");
  EXPECT_EQ(Posted(1), "\nP Information:\nText\n\n");
  EXPECT_EQ(Posted(2), "\nP Warning:\nText\n\n");
  EXPECT_EQ(Posted(3), "\nP Error:\nText\n\n");
  EXPECT_EQ(Posted(4), "\nP Configuration editor:\nText\n\n");
  EXPECT_EQ(Posted(5), "\nP :\nText\n\n");
  EXPECT_EQ(Posted(8), "\nP Home page information:\nText\n\n");
}

TEST(Msg, PostLogsNoBlankBehindATitleWithoutASeverity) {
  testhost::Host host;
  host.Enter();
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  Posted(7);
  EXPECT_EQ(LoggedText(), "Msg_Post:\n[msg.test.one] Text\n----------------------------------------\n");
}

TEST(Msg, SeveritiesAreMessages) {
  EXPECT_STREQ(Msg_Severities[0], "@&!*@*@(msg.msg.info)Information");
  EXPECT_STREQ(Msg_Severities[1], "@&!*@*@(msg.msg.info)Information");
  EXPECT_STREQ(Msg_Severities[2], "@&!*@*@(msg.msg.warning)Warning");
  EXPECT_STREQ(Msg_Severities[3], "@&!*@*@(msg.msg.error)Error");
  EXPECT_STREQ(Msg_Severities[4], "@&!*@*@(msg.msg.configEditor)Configuration editor");
  for (int severity = 5; severity < 8; severity++) {
    EXPECT_EQ(Msg_Severities[severity], nullptr);
  }
  EXPECT_STREQ(Msg_Severities[8], "@&!*@*@(msg.msg.homePageInfo)Home page information");
}

TEST(MsgDeathTest, ASeverityFrom9OnStopsTheProgram) {
  const char *text = "^ASSERT lib/user/msg.cc:[0-9]+\n$";
  EXPECT_EXIT(Msg_Post(9, MSGID(test.one) "Text\n"), testing::ExitedWithCode(255), text);
  EXPECT_EXIT(Msg_Post(-1, MSGID(test.one) "Text\n"), testing::ExitedWithCode(255), text);
}

// The format goes through a variable, so that formats which no caller may write can be tried.
void Append(const std::string &format) {
  Msg_Append(format.c_str(), 0);
}

TEST(MsgDeathTest, AFormatWithoutAnIdStopsTheProgram) {
  const auto panics = testing::ExitedWithCode(255);
  const char *text = "^ASSERT lib/user/msg.cc:[0-9]+\n$";
  EXPECT_EXIT(Append("plain"), panics, text);
  EXPECT_EXIT(Append(""), panics, text);
  EXPECT_EXIT(Append("@&!*@*@"), panics, text);
  EXPECT_EXIT(Append("@&!*@*@msg.x)text"), panics, text);
  EXPECT_EXIT(Append("@&!*@*@(msg.x"), panics, text);
  EXPECT_EXIT(Append("@&!*@*@(button.ok)OK"), panics, text);
  EXPECT_EXIT(Append("@&!*@*@(ms)g.x"), panics, text);
}

TEST(MsgDeathTest, AnIdOf128BytesStopsTheProgram) {
  Append("@&!*@*@(msg." + std::string(123, 'i') + ")text");
  EXPECT_TRUE(Msg_Present());
  EXPECT_EXIT(Append("@&!*@*@(msg." + std::string(124, 'i') + ")text"), testing::ExitedWithCode(255),
              "^NOT_IMPLEMENTED lib/user/msg.cc:[0-9]+\n$");
}

}  // namespace
