#include <vector>

#include "msgTestInt.h"

namespace {

using msgtest::kPanics;
using msgtest::PanicIn;

// What callbacks were told, and what they answer.
std::vector<std::string> told;
int marker;

std::string IdAndText(const char *id, const char *text) {
  return std::string(id == nullptr ? "(null)" : id) + " <" + text + ">";
}

std::string Describe(const MsgList *messages) {
  return messages == nullptr ? "(null)" : std::string(messages->id) + " <" + messages->format + ">";
}

int RecordProgress(const char *id, const char *text, int percent, bool cancelButton) {
  told.push_back("progress " + IdAndText(id, text) + " " + std::to_string(percent) +
                 (cancelButton ? " cancel" : ""));
  return 5;
}

int RecordProgressList(MsgList *messages, int percent, bool cancelButton) {
  told.push_back("list " + Describe(messages) + " " + std::to_string(percent) +
                 (cancelButton ? " cancel" : ""));
  return 6;
}

void *RecordStart(const char *id, const char *text, bool allowCancel) {
  told.push_back("start " + IdAndText(id, text) + (allowCancel ? " cancel" : ""));
  return &marker;
}

void *RecordStartList(MsgList *messages) {
  told.push_back("startList " + Describe(messages));
  return &told;
}

bool RecordLazy(void *handle, const char *id, const char *text, bool allowCancel, int percent) {
  told.push_back(std::string("lazy ") + (handle == &marker ? "" : "other ") + IdAndText(id, text) + " " +
                 std::to_string(percent) + (allowCancel ? " cancel" : ""));
  return true;
}

void RecordEnd(void *handle) {
  told.emplace_back(handle == &marker ? "end" : "end of another");
}

MsgCallback Table() {
  MsgCallback callback;
  Msg_GetCallback(&callback);
  return callback;
}

// Only `progress` stands, and records.
void Record() {
  MsgCallback callback = Table();
  callback.progress = RecordProgress;
  Msg_SetCallback(&callback);
}

using Told = std::vector<std::string>;

TEST(MsgProgress, TellsItsCallback) {
  Record();
  EXPECT_EQ(Msg_Progress(30, true, MSGID(test.copy) "Copying %s to %d", "x", 7), 5);
  EXPECT_EQ(Msg_Progress(31, false, nullptr), 5);
  EXPECT_EQ(Msg_Progress(32, false, "@&!*@*@(other.id)Text"), 5);
  EXPECT_EQ(told, (Told{"progress msg.test.copy <Copying x to 7> 30 cancel", "progress (null) <> 31",
                        "progress other.id <Text> 32"}));
}

TEST(MsgProgress, TheListFormComesLastAndCounts) {
  MsgCallback callback = Table();
  callback.progress = RecordProgress;
  callback.progressList = RecordProgressList;
  Msg_SetCallback(&callback);
  EXPECT_EQ(Msg_Progress(30, true, MSGID(test.copy) "Copying %s", "x"), 6);
  EXPECT_EQ(Msg_Progress(31, false, nullptr), 6);
  EXPECT_EQ(told,
            (Told{"progress msg.test.copy <Copying x> 30 cancel", "list msg.test.copy <Copying %s> 30 cancel",
                  "progress (null) <> 31", "list (null) 31"}));
  callback.progress = nullptr;
  Msg_SetCallback(&callback);
  EXPECT_EQ(Msg_Progress(32, false, nullptr), 6);
  EXPECT_EQ(told.size(), 5U);
}

TEST(MsgProgress, LeavesThePendingMessagesAlone) {
  Record();
  Msg_Append(MSGID(test.one) "One\n");
  Msg_Progress(-1, false, MSGID(test.copy) "Copying");
  EXPECT_STREQ(Msg_GetMessagesAndReset(), "One\n");
}

// The format goes through a variable, so that formats which no caller may write can be tried.
int Progress(const std::string &format) {
  return Msg_Progress(0, false, format.c_str(), 0);
}
void *Start(const std::string &format) {
  return Msg_LazyProgressStart(false, format.c_str(), 0);
}
bool Lazy(const std::string &format) {
  return Msg_LazyProgress(nullptr, false, 0, format.c_str(), 0);
}

constexpr char kBad[] = "@&!*@*@(msg.test.bad)%d %";

class MsgProgressLog : public msgtest::MsgHost {};

TEST_F(MsgProgressLog, ABadFormatStopsTheProgram) {
  Enter();
  MsgCallback callback = Table();
  callback.lazyProgressStart = RecordStart;
  callback.lazyProgress = RecordLazy;
  Msg_SetCallback(&callback);
  const auto text = PanicIn("PANIC", "user/msgProgress");
  const auto line = [](const std::string &function) {
    return function + " error: MsgFmt_GetArgs: error in format string\nformat <" + kBad + ">\n";
  };
  EXPECT_EXIT(Progress(kBad), kPanics, text);
  EXPECT_TRUE(Logged().starts_with(line("Msg_Progress")));
  EXPECT_EXIT(Start(kBad), kPanics, text);
  EXPECT_TRUE(Logged().starts_with(line("Msg_LazyProgressStart")));
  EXPECT_EXIT(Lazy(kBad), kPanics, text);
  EXPECT_TRUE(Logged().starts_with(line("Msg_LazyProgress")));
}

TEST(MsgProgressDeathTest, AFormatWithoutAnIdStopsTheProgram) {
  EXPECT_EXIT(Progress("plain"), kPanics, PanicIn("ASSERT", "user/msgText"));
  EXPECT_EXIT(Progress("@&!*@*@(" + std::string(128, 'i') + ")"), kPanics,
              PanicIn("NOT_IMPLEMENTED", "user/msgText"));
}

// ---- Scaled

TEST(MsgProgressScaled, PassesThePercentWithoutOperations) {
  Record();
  EXPECT_EQ(Msg_ProgressScaled(42, 9, 0, true), 5);
  EXPECT_EQ(Msg_ProgressScaled(-1, 0, 0, false), 5);
  EXPECT_EQ(Msg_ProgressScaled(101, 0, 0, false), 5);
  EXPECT_EQ(told, (Told{"progress (null) <> 42 cancel", "progress (null) <> -1", "progress (null) <> 101"}));
}

TEST(MsgProgressScaled, IsSilentAtTheEndsOfAnOperation) {
  Record();
  EXPECT_EQ(Msg_ProgressScaled(-1, 0, 3, false), 0);
  EXPECT_EQ(Msg_ProgressScaled(101, 2, 3, false), 0);
  EXPECT_TRUE(told.empty());
}

TEST(MsgProgressScaled, HoldsAPlainModel) {
  MsgCallback callback = Table();
  callback.progress = [](const char *, const char *, int percent, bool) { return percent; };
  Msg_SetCallback(&callback);
  for (int total = 1; total <= 120; total++) {
    for (int done = 0; done < total; done++) {
      const int begin = done * 100 / total;
      const int end = (done + 1) * 100 / total;
      for (int percent = 0; percent <= 100; percent++) {
        ASSERT_EQ(Msg_ProgressScaled(percent, done, total, false), begin + (end - begin) * percent / 100)
            << done << " of " << total << ", " << percent;
      }
    }
  }
  EXPECT_EQ(Msg_ProgressScaled(50, 1, 3, false), 49);
  EXPECT_EQ(Msg_ProgressScaled(100, 2, 3, false), 100);
  EXPECT_EQ(Msg_ProgressScaled(100, INT32_MAX - 1, INT32_MAX, false), 100);
}

TEST(MsgProgressScaledDeathTest, OperationsOutOfRangeStopTheProgram) {
  const auto text = PanicIn("ASSERT", "user/msgProgress");
  EXPECT_EXIT(Msg_ProgressScaled(0, 0, -1, false), kPanics, text);
  EXPECT_EXIT(Msg_ProgressScaled(0, -1, 3, false), kPanics, text);
  EXPECT_EXIT(Msg_ProgressScaled(0, 3, 3, false), kPanics, text);
  EXPECT_EXIT(Msg_ProgressScaled(101, 3, 3, false), kPanics, text);
}

// ---- Lazy

TEST(MsgLazyProgress, IsNothingToTheBuiltInTable) {
  EXPECT_EQ(Msg_LazyProgressStart(true, MSGID(test.copy) "Copying"), nullptr);
  EXPECT_FALSE(Msg_LazyProgress(&marker, true, 5, MSGID(test.copy) "Copying"));
  Msg_LazyProgressEnd(&marker);
  // Nobody reads these formats.
  EXPECT_EQ(Start(kBad), nullptr);
  EXPECT_FALSE(Lazy(kBad));
}

TEST(MsgLazyProgress, TellsItsCallbacks) {
  MsgCallback callback = Table();
  callback.lazyProgressStart = RecordStart;
  callback.lazyProgress = RecordLazy;
  callback.lazyProgressEnd = RecordEnd;
  Msg_SetCallback(&callback);
  EXPECT_EQ(Msg_LazyProgressStart(true, MSGID(test.copy) "Copying %s", "x"), &marker);
  EXPECT_TRUE(Msg_LazyProgress(&marker, true, 5, MSGID(test.more) "More %d", 1));
  EXPECT_TRUE(Msg_LazyProgress(&marker, false, 6, nullptr));
  Msg_LazyProgressEnd(&marker);
  EXPECT_EQ(told, (Told{"start msg.test.copy <Copying x> cancel", "lazy msg.test.more <More 1> 5 cancel",
                        "lazy (null) <> 6", "end"}));
}

TEST(MsgLazyProgress, TheHandleOfTheListFormCounts) {
  MsgCallback callback = Table();
  callback.lazyProgressStart = RecordStart;
  callback.lazyProgressStartList = RecordStartList;
  Msg_SetCallback(&callback);
  EXPECT_EQ(Msg_LazyProgressStart(false, MSGID(test.copy) "Copying %s", "x"), &told);
  EXPECT_EQ(told, (Told{"start msg.test.copy <Copying x>", "startList msg.test.copy <Copying %s>"}));
  callback.lazyProgressStart = nullptr;
  Msg_SetCallback(&callback);
  EXPECT_EQ(Msg_LazyProgressStart(false, nullptr), &told);
  EXPECT_EQ(told.back(), "startList (null)");
}

}  // namespace
