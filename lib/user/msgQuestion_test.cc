#include <vector>

#include "msgTestInt.h"

namespace {

using msgtest::Block;
using msgtest::kPanics;
using msgtest::PanicIn;

// What callbacks were told, and what they answer.
std::vector<std::string> told;
int reply = 1;
int listReply = 2;
MsgHintResult hintResult = MSG_HINT_CANCEL;

std::string Join(const char *const *names) {
  std::string text;
  for (; *names != nullptr; names++) {
    text += std::string("[") + *names + "]";
  }
  return text;
}

int RecordQuestion(const char *const *names, int defaultAnswer, const char *id, const char *text) {
  told.push_back("question " + Join(names) + std::to_string(defaultAnswer) + " " + id + " " + text);
  return reply;
}

int RecordQuestionList(const char *const *names, int defaultAnswer, MsgList *messages) {
  told.push_back("list " + Join(names) + std::to_string(defaultAnswer) + " " + messages->id);
  return listReply;
}

MsgHintResult RecordHint(int hintType, const char *id, const char *text) {
  told.push_back("hint " + std::to_string(hintType) + " " + id + " " + text);
  return hintResult;
}

MsgHintResult RecordHintList(int hintType, MsgList *messages) {
  told.push_back("hintList " + std::to_string(hintType) + " " + messages->id);
  return MSG_HINT_OK;
}

MsgCallback Table() {
  MsgCallback callback;
  Msg_GetCallback(&callback);
  callback.question = RecordQuestion;
  callback.hint = RecordHint;
  return callback;
}

// Only these record, of all the forms.
void Record() {
  const MsgCallback callback = Table();
  Msg_SetCallback(&callback);
}

constexpr const char *kNames[] = {MSGID_BUTTON(yes) "_Yes", MSGID_BUTTON(no) "_No",
                                  MSGID_BUTTON(cancel) "Cancel", nullptr};

using Told = std::vector<std::string>;

class MsgQuestion : public msgtest::MsgHost {
 protected:
  // Asks with a message pending.
  static int Ask(int defaultAnswer = 2) {
    Msg_Append(MSGID(test.one) "One.\n");
    return Msg_Question(kNames, defaultAnswer, MSGID(test.ask) "Go on with %d?\n", 7);
  }

  // What the log has of this question.
  static std::string Asked(const std::string &answered, int answer) {
    return Block("Msg_Question:", "[msg.test.one] One.\n[msg.test.ask] Go on with 7?\n") + answered +
           "MsgQuestion: msg.test.ask reply=" + std::to_string(answer) + "\n";
  }

  static std::string Configured(const std::string &value) {
    return "MsgIsQuestionAnswered: Using config default '" + value + "' as the answer for 'msg.test.ask'\n";
  }
};

TEST_F(MsgQuestion, AsksAllThatIsPending) {
  Enter();
  Record();
  EXPECT_EQ(Ask(), 1);
  EXPECT_EQ(told, Told{"question [_Yes][_No][Cancel]2 msg.test.ask One.\nGo on with 7?\n"});
  EXPECT_FALSE(Msg_Present());
  EXPECT_EQ(Logged(), Asked("", 1));
}

TEST_F(MsgQuestion, TheListFormComesLastAndCounts) {
  Enter();
  MsgCallback callback = Table();
  callback.questionList = RecordQuestionList;
  Msg_SetCallback(&callback);
  EXPECT_EQ(Ask(), 2);
  EXPECT_EQ(told, (Told{"question [_Yes][_No][Cancel]2 msg.test.ask One.\nGo on with 7?\n",
                        "list [@&!*@*@(button.yes)_Yes][@&!*@*@(button.no)_No][@&!*@*@(button.cancel)Cancel]"
                        "2 msg.test.one"}));
  EXPECT_EQ(Logged(), Asked("", 2));
  callback.question = nullptr;
  Msg_SetCallback(&callback);
  EXPECT_EQ(Ask(), 2);
  EXPECT_EQ(told.size(), 3U);
}

TEST_F(MsgQuestion, OffersTheFirstNineNames) {
  Enter();
  Record();
  const char *names[12] = {};
  for (int i = 0; i < 11; i++) {
    names[i] = MSGID_BUTTON(x) "X";
  }
  Msg_Question(names, 10, MSGID(test.ask) "?\n");
  EXPECT_EQ(told, Told{"question [X][X][X][X][X][X][X][X][X]10 msg.test.ask ?\n"});
}

TEST_F(MsgQuestion, NamesUpToTheDefaultMustBeThere) {
  Enter();
  Record();
  const auto text = PanicIn("ASSERT", "user/msgQuestion");
  EXPECT_EXIT(Msg_Question(kNames, 3, MSGID(test.ask) "?\n"), kPanics, text);
  EXPECT_EXIT(Msg_Question(kNames, -1, MSGID(test.ask) "?\n"), kPanics, text);
  EXPECT_EQ(Msg_Question(kNames, 2, MSGID(test.ask) "?\n"), 1);
}

// ---- Answers of the settings

TEST_F(MsgQuestion, IsAnsweredByItsKey) {
  Enter("answer.msg.test.ask = \"No\"\n");
  Record();
  EXPECT_EQ(Ask(), 1);
  EXPECT_TRUE(told.empty());
  EXPECT_FALSE(Msg_Present());
  EXPECT_EQ(Logged(), Asked(Configured("No"), 1));
}

TEST_F(MsgQuestion, IsAnsweredInAnyCaseAndWithoutAccelerators) {
  Enter("answer.msg.test.ask = \"yes\"\nanswer.msg.test.other = \"CAN_CEL\"\n");
  Record();
  EXPECT_EQ(Ask(), 0);
  EXPECT_EQ(Logged(), Asked(Configured("yes"), 0));
  EXPECT_EQ(Msg_Question(kNames, 0, MSGID(test.other) "?\n"), 2);
  EXPECT_TRUE(told.empty());
}

TEST_F(MsgQuestion, TheFirstOfTwoEqualNamesAnswers) {
  Enter("answer.msg.test.ask = \"yes\"\n");
  Record();
  const char *names[] = {MSGID_BUTTON(no) "No", MSGID_BUTTON(yes) "Y_es", MSGID_BUTTON(yes) "Yes", nullptr};
  EXPECT_EQ(Msg_Question(names, 0, MSGID(test.ask) "?\n"), 1);
}

// The files of settings, from the strongest to the weakest.
class MsgQuestionOfALayer : public MsgQuestion, public testing::WithParamInterface<const char *> {};

TEST_P(MsgQuestionOfALayer, IsAnsweredByItsKey) {
  testhost::Host host;
  host.File(GetParam(), "answer.msg.test.ask = \"no\"\n");
  Enter("other = \"1\"\n", &host);
  Record();
  EXPECT_EQ(Ask(), 1);
  EXPECT_EQ(Logged(), Asked(Configured("no"), 1));
}

INSTANTIATE_TEST_SUITE_P(Files, MsgQuestionOfALayer,
                         testing::Values("/usr/lib/ostrel/settings", "/root/.ostrel/config",
                                         "/etc/ostrel/config", "/usr/lib/ostrel/config"));

TEST_F(MsgQuestion, IgnoresAnAnswerThatIsNone) {
  Enter("answer.msg.test.ask = \"perhaps\"\n");
  Record();
  EXPECT_EQ(Ask(), 1);
  EXPECT_EQ(told.size(), 1U);
  EXPECT_EQ(Logged(), Asked("", 1));
}

TEST_F(MsgQuestion, IsAnsweredByItsDefault) {
  Enter("msg.autoAnswer = \"TRUE\"\n");
  Record();
  EXPECT_EQ(Ask(1), 1);
  EXPECT_TRUE(told.empty());
  EXPECT_FALSE(Msg_Present());
  EXPECT_EQ(
      Logged(),
      Asked("MsgIsQuestionAnswered: Using builtin default '_No' as the answer for 'msg.test.ask'\n", 1));
}

TEST_F(MsgQuestion, ItsKeyWinsOverItsDefault) {
  Enter("msg.autoAnswer = \"TRUE\"\nanswer.msg.test.ask = \"yes\"\n");
  Record();
  EXPECT_EQ(Ask(1), 0);
  EXPECT_EQ(Logged(), Asked(Configured("yes"), 0));
}

TEST_F(MsgQuestion, AnAnswerThatIsNoneLeavesTheDefault) {
  Enter("msg.autoAnswer = \"TRUE\"\nanswer.msg.test.ask = \"perhaps\"\n");
  Record();
  EXPECT_EQ(Ask(2), 2);
  EXPECT_EQ(
      Logged(),
      Asked("MsgIsQuestionAnswered: Using builtin default 'Cancel' as the answer for 'msg.test.ask'\n", 2));
}

TEST_F(MsgQuestion, IsAskedWithoutOK) {
  Enter("msg.noOK = \"TRUE\"\nmsg.noOKnoWarning = \"TRUE\"\n");
  Record();
  EXPECT_EQ(Ask(), 1);
  EXPECT_EQ(told.size(), 1U);
}

// ---- Hints

class MsgHint : public MsgQuestion {
 protected:
  static MsgHintResult Hint(int hintType) {
    return Msg_Hint(true, hintType, MSGID(test.hint) "Try %s.\n", "this");
  }

  static std::string HintLine(const std::string &shown) {
    return "MsgHint: msg.test.hint (" + shown + "sent)\nTry this.\n---------------------------------------\n";
  }
};

TEST_F(MsgHint, IsShownAndLogged) {
  Enter();
  Record();
  Msg_Append(MSGID(test.one) "One.\n");
  EXPECT_EQ(Hint(MSG_HINT_TYPE_OK_CANCEL), MSG_HINT_CANCEL);
  EXPECT_EQ(told, Told{"hint 1 msg.test.hint Try this.\n"});
  EXPECT_EQ(Logged(), HintLine(""));
  EXPECT_STREQ(Msg_GetMessagesAndReset(), "One.\n");
}

TEST_F(MsgHint, OfARecordLeavesIt) {
  Enter();
  Record();
  MsgList *message = MsgList_Create(MSGID(test.hint) "Try %s.\n", "this");
  EXPECT_EQ(Msg_HintMsgList(false, MSG_HINT_TYPE_OK, message), MSG_HINT_CANCEL);
  EXPECT_EQ(told, Told{"hint 0 msg.test.hint Try this.\n"});
  EXPECT_EQ(message->numArgs, 1);
  MsgList_Free(message);
  EXPECT_FALSE(Msg_Present());
}

TEST_F(MsgHint, TheListFormComesLastAndCounts) {
  Enter();
  MsgCallback callback = Table();
  callback.hintList = RecordHintList;
  Msg_SetCallback(&callback);
  EXPECT_EQ(Hint(0), MSG_HINT_OK);
  EXPECT_EQ(told, (Told{"hint 0 msg.test.hint Try this.\n", "hintList 0 msg.test.hint"}));
  callback.hint = nullptr;
  Msg_SetCallback(&callback);
  EXPECT_EQ(Hint(0), MSG_HINT_OK);
  EXPECT_EQ(told.size(), 3U);
}

TEST_F(MsgHint, IsNotShownWithAnAutomaticAnswer) {
  Enter("msg.autoAnswer = \"TRUE\"\n");
  Record();
  EXPECT_EQ(Hint(1), MSG_HINT_NOT_SHOWN);
  EXPECT_TRUE(told.empty());
  EXPECT_EQ(Logged(), HintLine("not "));
}

TEST_F(MsgHint, IsNotShownWithoutOK) {
  Enter("msg.noOK = \"TRUE\"\n");
  Record();
  EXPECT_EQ(Hint(1), MSG_HINT_NOT_SHOWN);
  EXPECT_TRUE(told.empty());
  EXPECT_EQ(Logged(), HintLine("not "));
}

TEST_F(MsgHint, OfAnotherTypeStopsTheProgram) {
  Enter();
  Record();
  EXPECT_EXIT(Hint(2), kPanics, PanicIn("ASSERT", "user/msgQuestion"));
}

}  // namespace
