#include "msg.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "log.h"
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
