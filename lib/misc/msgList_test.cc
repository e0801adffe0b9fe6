#include "msgList.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <string>

#include "allocations.h"
#include "err.h"
#include "log.h"
#include "msg.h"
#include "owned.h"
#include "panics.h"
#include "regexes.h"
#include "testhost.h"

namespace {

using OwnedList = std::unique_ptr<MsgList, Releaser<MsgList_Free>>;

// Through no printf attribute, so that formats can be tried that no caller may write.
template <typename... Args>
MsgList *Create(const char *format, Args... args) {
  MsgList *(*volatile create)(const char *, ...) = MsgList_Create;
  return create(format, args...);
}

std::string TextOf(const MsgList *message) {
  const OwnedString text(MsgFmt_Asprintf(nullptr, message->format, message->args, message->numArgs));
  return text.get();
}

// A list of two messages.
OwnedList Two() {
  OwnedList list(MsgList_Create(MSGID(test.first) "%s: %d\n", "one", 1));
  list->next = MsgList_Create(MSGID(test.second) "%s\n", Err_Errno2String(ENOENT));
  return list;
}

TEST(MsgList, KeepsAMessageAsData) {
  const OwnedList message(Create("@&!*@*@(MSG.Test)%2$s has (%1$d)\n", 7, "disk"));
  EXPECT_EQ(message->next, nullptr);
  EXPECT_STREQ(message->id, "MSG.Test");
  EXPECT_STREQ(message->format, "%2$s has (%1$d)\n");
  ASSERT_EQ(message->numArgs, 2);
  EXPECT_EQ(message->args[0].type, MSGFMT_ARG_INT32);
  EXPECT_EQ(message->args[1].type, MSGFMT_ARG_STRING8);
  EXPECT_EQ(TextOf(message.get()), "disk has (7)\n");
}

TEST(MsgList, TakesNoArgumentForWhatIsInTheId) {
  const OwnedList message(Create("@&!*@*@(msg.100%d)%s\n", "text"));
  EXPECT_STREQ(message->id, "msg.100%d");
  ASSERT_EQ(message->numArgs, 1);
  EXPECT_STREQ(message->args[0].value.string8, "text");
}

TEST(MsgList, TakesAnIdOf127Bytes) {
  const std::string id = "msg." + std::string(123, 'i');
  const std::string format = "@&!*@*@(" + id + ")";
  const OwnedList message(Create(format.c_str()));
  EXPECT_EQ(message->id, id);
  EXPECT_STREQ(message->format, "");
  EXPECT_EQ(message->numArgs, 0);
}

TEST(MsgListDeathTest, AFormatThatIsNoMessageStopsTheProgram) {
  const auto panics = testing::ExitedWithCode(255);
  const auto text = testhost::Panics("^ASSERT lib/misc/msgList.cc:[0-9]+\n$");
  MsgList *(*volatile create)(const char *, ...) = MsgList_Create;
  EXPECT_EXIT(create(nullptr), panics, text);
  EXPECT_EXIT(Create("plain"), panics, text);
  EXPECT_EXIT(Create(""), panics, text);
  EXPECT_EXIT(Create("@&!*@*@"), panics, text);
  EXPECT_EXIT(Create("@&!*@*@msg.x)text"), panics, text);
  EXPECT_EXIT(Create("@&!*@*@(msg.x"), panics, text);
  EXPECT_EXIT(Create("@&!*@*@(button.ok)OK"), panics, text);
  EXPECT_EXIT(Create("@&!*@*@(ms)g.x"), panics, text);
  EXPECT_EXIT(Create(("@&!*@*@(msg." + std::string(124, 'i') + ")").c_str()), panics,
              testhost::Panics("^NOT_IMPLEMENTED lib/misc/msgList.cc:[0-9]+\n$"));
}

TEST(MsgListDeathTest, AFormatThatCannotBeTakenIsLoggedAndStopsTheProgram) {
  testhost::Host host;
  host.Enter();
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  EXPECT_EXIT(Create("@&!*@*@(msg.x)%1$s %s", "a", "b"), testing::ExitedWithCode(255),
              testhost::Panics("^PANIC lib/misc/msgList.cc:[0-9]+\n$"));
  const std::string log = testhost::ReadFile(Log_GetFileName());
  EXPECT_NE(log.find("MsgList_VCreate error: MsgFmt_GetArgs: error in format string\n"), std::string::npos)
      << log;
  EXPECT_NE(log.find("format <@&!*@*@(msg.x)%1$s %s>\n"), std::string::npos) << log;
}

TEST(MsgList, CopiesAllInOrder) {
  OwnedList list = Two();
  const OwnedList copy(MsgList_Copy(list.get()));
  const MsgList *second = copy->next;
  EXPECT_NE(copy->id, list->id);
  EXPECT_NE(copy->format, list->format);
  list.reset();
  EXPECT_STREQ(copy->id, "msg.test.first");
  EXPECT_EQ(TextOf(copy.get()), "one: 1\n");
  ASSERT_NE(second, nullptr);
  EXPECT_STREQ(second->id, "msg.test.second");
  EXPECT_EQ(second->args[0].type, MSGFMT_ARG_ERRNO);
  EXPECT_EQ(second->args[0].errorCode, ENOENT);
  EXPECT_EQ(TextOf(second), std::string(Err_Errno2String(ENOENT)) + "\n");
  EXPECT_EQ(second->next, nullptr);
}

TEST(MsgList, NullIsAnEmptyList) {
  EXPECT_EQ(MsgList_Copy(nullptr), nullptr);
  EXPECT_EQ(MsgList_GetMsgID(nullptr), nullptr);
  MsgList_Free(nullptr);
  MsgList_Log(nullptr);
}

TEST(MsgList, CopiesAMessageWithoutArguments) {
  const OwnedList list(MsgList_Create(MSGID(test.plain) "Text\n"));
  const OwnedList copy(MsgList_Copy(list.get()));
  EXPECT_EQ(copy->numArgs, 0);
  EXPECT_EQ(TextOf(copy.get()), "Text\n");
}

TEST(MsgList, TellsTheIdOfTheLastMessage) {
  const OwnedList list = Two();
  EXPECT_STREQ(MsgList_GetMsgID(list.get()), "msg.test.second");
  EXPECT_STREQ(MsgList_GetMsgID(list->next), "msg.test.second");
}

TEST(MsgList, LogsEachMessageInItsDefaultWording) {
  testhost::Host host;
  host.Enter();
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  MsgList_Log(Two().get());
  const std::string log = testhost::ReadFile(Log_GetFileName());
  const std::string lines = R"(app\| \[msg\.test\.first\] one: 1\n[^\n]*app\| \[msg\.test\.second\] )" +
                            std::string(Err_Errno2String(ENOENT)) + "\n$";
  EXPECT_TRUE(testhost::RegexSearch(log, lines)) << log;
}

TEST(MsgList, FreesAndCopiesAHundredThousandMessages) {
  MsgList *list = nullptr;
  for (int i = 0; i < 100000; i++) {
    MsgList *message = MsgList_Create(MSGID(test.many) "%d\n", i);
    message->next = list;
    list = message;
  }
  const OwnedList owner(list);
  const OwnedList copy(MsgList_Copy(list));
  int expected = 100000;
  for (const MsgList *message = copy.get(); message != nullptr; message = message->next) {
    ASSERT_EQ(message->args[0].value.int32, --expected);
  }
  EXPECT_EQ(expected, 0);
}

TEST(MsgListDeathTest, WithoutMemoryTheProgramStops) {
  Err_Errno2String(ENOENT);
  const auto stops = [](const auto &body) {
    const size_t count = testhost::CountAllocations(body);
    EXPECT_GT(count, 0U);
    for (size_t i = 0; i < count; i++) {
      const auto withoutMemory = [&] {
        const testhost::AllocationFault fault(i);
        body();
      };
      EXPECT_EXIT(withoutMemory(), testing::ExitedWithCode(255),
                  "^(Unrecoverable memory allocation failure at|MEM_ALLOC|PANIC) lib/misc/msgList.cc")
          << i;
    }
  };
  const OwnedList list = Two();
  stops([] { OwnedList(MsgList_Create(MSGID(test.x) "%s\n", "text")); });
  stops([&] { OwnedList(MsgList_Copy(list.get())); });
  stops([&] { MsgList_Log(list.get()); });
}

}  // namespace
