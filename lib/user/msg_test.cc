#include "msg.h"

#include <memory>
#include <vector>

#include "allocations.h"
#include "msgTestInt.h"

namespace {

using msgtest::Block;
using msgtest::kPanics;
using msgtest::PanicIn;

using OwnedList = std::unique_ptr<MsgList, Releaser<MsgList_Free>>;

class PendingMessages : public msgtest::MsgHost {};

// The ids of a list in order.
std::vector<std::string> Ids(const MsgList *messages) {
  std::vector<std::string> ids;
  for (; messages != nullptr; messages = messages->next) {
    ids.emplace_back(messages->id);
  }
  return ids;
}

TEST(Msg, IsPendingUntilItIsReset) {
  EXPECT_FALSE(Msg_Present());
  EXPECT_EQ(Msg_GetMsgList(), nullptr);
  Msg_Reset(false);
  Msg_Append(MSGID(test.one) "Text\n");
  EXPECT_TRUE(Msg_Present());
  Msg_Reset(false);
  EXPECT_FALSE(Msg_Present());
}

TEST(Msg, AppendReturnsTheRecord) {
  const MsgList *one = Msg_Append(MSGID(test.one) "%s is %d\n", "x", 5);
  const MsgList *two = Msg_Append(MSGID(test.two) "Text\n");
  EXPECT_EQ(Msg_GetMsgList(), one);
  EXPECT_EQ(one->next, two);
  EXPECT_EQ(two->next, nullptr);
  EXPECT_STREQ(one->id, "msg.test.one");
  EXPECT_STREQ(one->format, "%s is %d\n");
  ASSERT_EQ(one->numArgs, 2);
  EXPECT_STREQ(one->args[0].value.string8, "x");
  EXPECT_EQ(one->args[1].value.int32, 5);
  Msg_Reset(false);
}

TEST(Msg, AppendsACopyOfAMessageAndTakesItsArguments) {
  const OwnedList chain(MsgList_Create(MSGID(test.one) "%s\n", "value"));
  chain->next = MsgList_Create(MSGID(test.other) "Other\n");
  const MsgFmt_Arg *args = chain->args;
  Msg_Append(MSGID(test.zero) "Zero\n");
  MsgList *copy = Msg_AppendMsgList(chain.get());
  EXPECT_EQ(Ids(Msg_GetMsgList()), (std::vector<std::string>{"msg.test.zero", "msg.test.one"}));
  EXPECT_EQ(copy->args, args);
  EXPECT_EQ(copy->numArgs, 1);
  EXPECT_NE(copy->id, chain->id);
  EXPECT_EQ(chain->args, nullptr);
  EXPECT_EQ(chain->numArgs, 0);
  EXPECT_STREQ(Msg_GetMessages(), "Zero\nvalue\n");
  Msg_Reset(false);
}

TEST(Msg, DetachHandsTheListOver) {
  EXPECT_EQ(Msg_DetachMsgList(), nullptr);
  Msg_Append(MSGID(test.one) "One\n");
  Msg_Append(MSGID(test.two) "Two\n");
  const OwnedList detached(Msg_DetachMsgList());
  EXPECT_FALSE(Msg_Present());
  EXPECT_EQ(Ids(detached.get()), (std::vector<std::string>{"msg.test.one", "msg.test.two"}));
  Msg_Append(MSGID(test.three) "Three\n");
  EXPECT_EQ(Ids(Msg_GetMsgList()), std::vector<std::string>{"msg.test.three"});
  EXPECT_EQ(Ids(detached.get()).size(), 2U);
  Msg_Reset(false);
}

TEST(Msg, MessagesAreOneText) {
  EXPECT_STREQ(Msg_GetMessages(), "");
  Msg_Append(MSGID(test.one) "One, ");
  Msg_Append(MSGID(test.two) "two: %d%%.\n", 2);
  const char *text = Msg_GetMessages();
  EXPECT_STREQ(text, "One, two: 2%.\n");
  EXPECT_TRUE(Msg_Present());
  EXPECT_STREQ(Msg_GetMessages(), "One, two: 2%.\n");
  Msg_Reset(false);
  EXPECT_STREQ(Msg_GetMessages(), "");
}

TEST(Msg, MessagesAndResetHasABufferOfItsOwn) {
  Msg_Append(MSGID(test.one) "One\n");
  const char *kept = Msg_GetMessages();
  Msg_Append(MSGID(test.two) "%s\n", std::string(100000, 'x').c_str());
  EXPECT_EQ(std::string(Msg_GetMessagesAndReset()), "One\n" + std::string(100000, 'x') + "\n");
  EXPECT_FALSE(Msg_Present());
  EXPECT_STREQ(kept, "One\n");
  EXPECT_STREQ(Msg_GetMessagesAndReset(), "");
}

TEST_F(PendingMessages, AreLoggedInOrderByReset) {
  Enter();
  Msg_Append(MSGID(test.one) "Cannot open \"%s\": %d.\n", "file", 7);
  Msg_Append("@&!*@*@(MSG.Two)(%s)\n", "second");
  Msg_Reset(true);
  EXPECT_EQ(Logged(), Block("Msg_Reset:", "[msg.test.one] Cannot open \"file\": 7.\n[MSG.Two] (second)\n"));
  EXPECT_FALSE(Msg_Present());
}

TEST_F(PendingMessages, AreNotLoggedWithoutBeingAsked) {
  Enter();
  Msg_Reset(true);
  Msg_Append(MSGID(test.one) "Text\n");
  Msg_Reset(false);
  Msg_Append(MSGID(test.one) "Text\n");
  Msg_GetMessagesAndReset();
  Msg_Append(MSGID(test.one) "Text\n");
  MsgList_Free(Msg_DetachMsgList());
  Msg_Append(MSGID(test.one) "Text\n");
  Msg_Exit();
  EXPECT_EQ(Logged(), "");
}

TEST(Msg, ExitEndsTheState) {
  MsgCallback callback;
  Msg_GetCallback(&callback);
  const MsgCallback builtIn = callback;
  callback.post = [](int, const char *, const char *) {};
  Msg_SetCallback(&callback);
  Msg_Append(MSGID(test.one) "Text\n");
  Msg_Exit();
  EXPECT_FALSE(Msg_Present());
  MsgCallback afterwards;
  Msg_GetCallback(&afterwards);
  EXPECT_EQ(afterwards.post, builtIn.post);
  Msg_Exit();
  Msg_Exit();
}

TEST(Msg, ItsTableStartsWithTheTerminal) {
  MsgCallback callback;
  Msg_GetCallback(&callback);
  EXPECT_NE(callback.post, nullptr);
  EXPECT_NE(callback.question, nullptr);
  EXPECT_NE(callback.progress, nullptr);
  EXPECT_NE(callback.hint, nullptr);
  EXPECT_EQ(callback.lazyProgressStart, nullptr);
  EXPECT_EQ(callback.lazyProgress, nullptr);
  EXPECT_EQ(callback.lazyProgressEnd, nullptr);
  EXPECT_EQ(callback.postList, nullptr);
  EXPECT_EQ(callback.questionList, nullptr);
  EXPECT_EQ(callback.progressList, nullptr);
  EXPECT_EQ(callback.hintList, nullptr);
  EXPECT_EQ(callback.lazyProgressStartList, nullptr);
}

void ListPost(int, MsgList *) {}
int ListQuestion(const char *const *, int, MsgList *) {
  return 0;
}
int ListProgress(MsgList *, int, bool) {
  return 0;
}
MsgHintResult ListHint(int, MsgList *) {
  return MSG_HINT_OK;
}

TEST(MsgDeathTest, ACallbackInNeitherFormStopsTheProgram) {
  MsgCallback builtIn;
  Msg_GetCallback(&builtIn);
  const auto set = [](const MsgCallback &callback) { Msg_SetCallback(&callback); };
  MsgCallback callback = builtIn;
  callback.post = nullptr;
  // The table in force posts it, not the one that is refused.
  EXPECT_EXIT(set(callback), kPanics, PanicIn("ASSERT", "user/msg"));
  callback.postList = ListPost;
  set(callback);
  const std::string text = "^ASSERT lib/user/msg\\.cc:[0-9]+\n$";
  callback.question = nullptr;
  EXPECT_EXIT(set(callback), kPanics, text);
  callback.questionList = ListQuestion;
  set(callback);
  callback.progress = nullptr;
  EXPECT_EXIT(set(callback), kPanics, text);
  callback.progressList = ListProgress;
  set(callback);
  callback.hint = nullptr;
  EXPECT_EXIT(set(callback), kPanics, text);
  callback.hintList = ListHint;
  set(callback);
  MsgCallback afterwards;
  Msg_GetCallback(&afterwards);
  EXPECT_EQ(afterwards.hintList, ListHint);
  EXPECT_EQ(afterwards.post, nullptr);
}

// The format goes through a variable, so that formats which no caller may write can be tried.
void Append(const std::string &format) {
  Msg_Append(format.c_str(), 0);
}

TEST(MsgDeathTest, AFormatWithoutAnIdStopsTheProgram) {
  const auto text = PanicIn("ASSERT", "misc/msgList");
  EXPECT_EXIT(Append("plain"), kPanics, text);
  EXPECT_EXIT(Append(""), kPanics, text);
  EXPECT_EXIT(Append("@&!*@*@"), kPanics, text);
  EXPECT_EXIT(Append("@&!*@*@msg.x)text"), kPanics, text);
  EXPECT_EXIT(Append("@&!*@*@(msg.x"), kPanics, text);
  EXPECT_EXIT(Append("@&!*@*@(button.ok)OK"), kPanics, text);
  EXPECT_EXIT(Append("@&!*@*@(ms)g.x"), kPanics, text);
}

TEST(MsgDeathTest, AnIdOf128BytesStopsTheProgram) {
  Append("@&!*@*@(msg." + std::string(123, 'i') + ")text");
  EXPECT_TRUE(Msg_Present());
  EXPECT_EXIT(Append("@&!*@*@(msg." + std::string(124, 'i') + ")text"), kPanics,
              PanicIn("NOT_IMPLEMENTED", "misc/msgList"));
}

TEST_F(PendingMessages, StopTheProgramForABadFormat) {
  Enter();
  EXPECT_EXIT(Append("@&!*@*@(msg.test.bad)%d %"), kPanics, PanicIn("PANIC", "misc/msgList"));
  EXPECT_NE(Logged().find("MsgList_VCreate error: MsgFmt_GetArgs: error in format string\n"
                          "format <@&!*@*@(msg.test.bad)%d %>\n"),
            std::string::npos);
}

TEST(MsgDeathTest, AStateWithoutMemoryStopsTheProgram) {
  const auto present = [] {
    const testhost::AllocationFault fault(0);
    Msg_Present();
  };
  EXPECT_EXIT(present(), kPanics, PanicIn("Unrecoverable memory allocation failure at", "user/msg"));
}

// The two that render have a buffer each, so that the one that is tried is still without it.
TEST(MsgDeathTest, RunningOutOfMemoryStopsTheProgram) {
  Msg_Append(MSGID(test.one) "%s\n", std::string(5000, 'x').c_str());
  const size_t count = testhost::CountAllocations([] { Msg_GetMessages(); });
  EXPECT_GT(count, 1U);
  const auto text = PanicIn("MEM_ALLOC", "user/msgRender");
  for (size_t i = 0; i < count; i++) {
    EXPECT_EXIT(
        {
          const testhost::AllocationFault fault(i);
          Msg_GetMessagesAndReset();
        },
        kPanics, text)
        << i;
  }
  Msg_Reset(false);
}

}  // namespace
