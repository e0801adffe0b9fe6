#include <vector>

#include "msgTestInt.h"

namespace {

using msgtest::Block;
using msgtest::kPanics;
using msgtest::PanicIn;

// What callbacks were told.
std::vector<std::string> told;

void RecordPost(int severity, const char *id, const char *text) {
  told.push_back("post " + std::to_string(severity) + " " + id + " " + text);
}

void RecordPostList(int severity, MsgList *messages) {
  std::string list = "postList " + std::to_string(severity);
  for (; messages != nullptr; messages = messages->next) {
    list += std::string(" ") + messages->id;
  }
  told.push_back(list);
}

class MsgPost : public msgtest::MsgHost {
 protected:
  // Posts after two messages. Returns what standard error got.
  static std::string PostThree(int severity) {
    testing::internal::CaptureStderr();
    Msg_Append(MSGID(test.one) "One.\n");
    Msg_Append(MSGID(test.two) "Two %d.\n", 2);
    Msg_Post(severity, MSGID(test.three) "Three \"%s\".\n", "x");
    return testing::internal::GetCapturedStderr();
  }

  static std::string LoggedThree(const std::string &title) {
    return Block("Msg_Post: " + title,
                 "[msg.test.one] One.\n[msg.test.two] Two 2.\n[msg.test.three] Three \"x\".\n");
  }
};

constexpr char kText[] = "One.\nTwo 2.\nThree \"x\".\n";

TEST_F(MsgPost, TellsAllThatIsPendingInOneText) {
  Enter();
  EXPECT_EQ(PostThree(3), std::string("\nOstrel Bench Error:\n") + kText + "\n");
  EXPECT_FALSE(Msg_Present());
  EXPECT_EQ(Logged(), LoggedThree("Error"));
}

TEST_F(MsgPost, ShowsTheTitleOfItsSeverity) {
  Enter();
  const std::vector<std::string> titles = {
      "Information",          "Information", "Warning", "Error", "Configuration editor", "", "", "",
      "Home page information"};
  for (size_t severity = 0; severity < titles.size(); severity++) {
    testing::internal::CaptureStderr();
    Msg_Post(static_cast<int>(severity), MSGID(test.one) "Text\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "\nOstrel Bench " + titles[severity] + ":\nText\n\n");
    const std::string head = titles[severity].empty() ? "Msg_Post:" : "Msg_Post: " + titles[severity];
    EXPECT_EQ(Logged(), Block(head, "[msg.test.one] Text\n"));
  }
}

TEST(MsgSeverities, AreMessages) {
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

TEST(MsgPostDeathTest, ASeverityFrom9OnStopsTheProgram) {
  const auto text = PanicIn("ASSERT", "user/msgPost");
  EXPECT_EXIT(Msg_Post(9, MSGID(test.one) "Text\n"), kPanics, text);
  EXPECT_EXIT(Msg_Post(-1, MSGID(test.one) "Text\n"), kPanics, text);
}

TEST_F(MsgPost, OfARecordTakesItsArguments) {
  Enter();
  MsgList *message = MsgList_Create(MSGID(test.one) "<%s>\n", "value");
  Msg_Append(MSGID(test.zero) "Zero\n");
  testing::internal::CaptureStderr();
  Msg_PostMsgList(2, message);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "\nOstrel Bench Warning:\nZero\n<value>\n\n");
  EXPECT_EQ(message->args, nullptr);
  EXPECT_EQ(message->numArgs, 0);
  MsgList_Free(message);
}

TEST_F(MsgPost, CallsTheListFormFirstAndThenTheOther) {
  Enter();
  MsgCallback callback;
  Msg_GetCallback(&callback);
  callback.post = RecordPost;
  callback.postList = RecordPostList;
  Msg_SetCallback(&callback);
  EXPECT_EQ(PostThree(4), "");
  EXPECT_EQ(told, (std::vector<std::string>{"postList 4 msg.test.one msg.test.two msg.test.three",
                                            std::string("post 4 msg.test.three ") + kText}));
  callback.post = nullptr;
  Msg_SetCallback(&callback);
  PostThree(4);
  EXPECT_EQ(told.size(), 3U);
}

// ---- Settings

TEST_F(MsgPost, ShowsNothingWithAnAutomaticAnswer) {
  Enter("msg.autoAnswer = \"TRUE\"\n");
  for (const auto &[severity, title] : {std::pair{2, "Warning"}, std::pair{3, "Error"}}) {
    EXPECT_EQ(PostThree(severity), "");
    EXPECT_EQ(Logged(), LoggedThree(title));
    EXPECT_FALSE(Msg_Present());
  }
}

TEST_F(MsgPost, WarnsInsteadOfAsking) {
  Enter("msg.noOK = \"TRUE\"\n");
  for (const auto &[severity, title] : {std::pair{0, "Information"}, std::pair{2, "Warning"}}) {
    EXPECT_EQ(PostThree(severity), std::string("MSG: ") + kText + "\n");
    EXPECT_EQ(Logged(), LoggedThree(title) + "MSG: " + kText + "\n");
  }
  EXPECT_EQ(PostThree(3), std::string("\nOstrel Bench Error:\n") + kText + "\n");
  EXPECT_EQ(Logged(), LoggedThree("Error"));
}

TEST_F(MsgPost, LeavesAWarningToTheLogAlone) {
  Enter("msg.noOK = \"TRUE\"\nmsg.noOKnoWarning = \"TRUE\"\n");
  EXPECT_EQ(PostThree(2), "");
  EXPECT_EQ(Logged(), LoggedThree("Warning"));
  EXPECT_EQ(PostThree(3), std::string("\nOstrel Bench Error:\n") + kText + "\n");
}

TEST_F(MsgPost, HasNoUseForNoWarningAlone) {
  Enter("msg.noOKnoWarning = \"TRUE\"\n");
  EXPECT_EQ(PostThree(2), std::string("\nOstrel Bench Warning:\n") + kText + "\n");
}

TEST_F(MsgPost, OfABadSettingOfItsOwnEnds) {
  Enter("msg.autoAnswer = \"maybe\"\nmsg.noOK = \"perhaps\"\n");
  const std::string shown = PostThree(2);
  EXPECT_NE(shown.find("\"maybe\""), std::string::npos) << shown;
  EXPECT_NE(shown.find("\"perhaps\""), std::string::npos) << shown;
  EXPECT_TRUE(shown.ends_with(std::string("\nOstrel Bench Warning:\n") + kText + "\n")) << shown;
  EXPECT_EQ(PostThree(2), std::string("\nOstrel Bench Warning:\n") + kText + "\n");
}

TEST_F(MsgPost, OfABadSettingHeedsTheOthers) {
  Enter("msg.autoAnswer = \"maybe\"\nmsg.noOK = \"TRUE\"\nmsg.noOKnoWarning = \"TRUE\"\n");
  EXPECT_EQ(PostThree(2), "");
  EXPECT_EQ(Logged(), LoggedThree("Warning") +
                          Block("Msg_Post: Warning",
                                "[msg.dictionary.notBoolean] Value \"maybe\" for variable \"msg.autoAnswer\" "
                                "is not a valid boolean value. Using value \"FALSE\".\n"));
}

TEST(MsgPostEarly, ShowsBeforeThereAreSettings) {
  ProductState_Set(0, "P", nullptr, 0, 0);
  testing::internal::CaptureStderr();
  Msg_Post(2, MSGID(test.one) "Text\n");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "\nP Warning:\nText\n\n");
}

}  // namespace
