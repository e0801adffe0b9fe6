// What a panic posts, and its settings.

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include "log.h"
#include "msg.h"
#include "panicUser.h"
#include "panics.h"
#include "preference.h"
#include "productState.h"
#include "systemCalls.h"
#include "testhost.h"
#include "vthread.h"

namespace {

constexpr char kHead[] = "\nBench Error:\nBench unrecoverable error: (app)\ntext\n";
constexpr char kCollect[] =
    "\nTo collect data to submit to Ostrel support, select Help > About and click \"Collect Support Data\". "
    "You can also run the \"ost-support\" script in the Bench folder directly.\n";
constexpr char kResponse[] = "We will respond on the basis of your support entitlement.\n\n";

// What is posted of the text "text\n".
std::string Posted() {
  testing::internal::CaptureStderr();
  Panic_PostPanicMsg("%s\n", "text");
  return testing::internal::GetCapturedStderr();
}

// Stands for the debugger.
void LetGoSoon() {
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  Preference_SetFromString("panic.loopOnPanic=FALSE", true);
  Panic_LoadState();
}

class PanicPost : public testing::Test {
 protected:
  void SetUp() override {
    testhost::Host host;
    host.File("/root/.ostrel/preferences",
              "panic.loopOnPanic = TRUE\ncoreDumpOnPanic = FALSE\n"
              "panic.breakOnPanic = 2\ncoreDumpFlags = 5\n");
    host.Enter();
    setenv("HOME", "/root", 1);
    ProductState_Set(0, "Bench", nullptr, 0, 0);
  }
  static void StartPreferences() {
    Preference_DisablePolling();
    ASSERT_TRUE(Preference_Init());
  }
  static std::string StartLog() {
    EXPECT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
    return Log_GetFileName();
  }
};
using PanicPostDeathTest = PanicPost;
using PanicSettings = PanicPost;

TEST_F(PanicPost, WithoutFiles) {
  EXPECT_EQ(Posted(), kHead + std::string("You can request support.  ") + kCollect + kResponse);
  EXPECT_FALSE(Msg_Present());
}

TEST_F(PanicPost, WithALog) {
  const std::string log = StartLog();
  EXPECT_EQ(Posted(), kHead + ("A log file is available in \"" + log + "\".  ") +
                          "You can request support and include the contents of the log file.  " + kCollect +
                          kResponse);
}

TEST_F(PanicPost, WithACoreFile) {
  Panic_SetCoreDumpFileName("/tmp/core 1");
  EXPECT_EQ(Posted(), kHead + std::string("A core file is available in \"/tmp/core 1\".  ") +
                          "You can request support and include the contents of the core file.  " + kCollect +
                          kResponse);
}

TEST_F(PanicPost, WithLogAndCoreFile) {
  const std::string log = StartLog();
  Panic_SetCoreDumpFileName("/tmp/core");
  EXPECT_EQ(Posted(),
            kHead + ("A log file is available in \"" + log + "\".  ") +
                "A core file is available in \"/tmp/core\".  " +
                "You can request support and include the contents of the log file and the core file.  " +
                kCollect + kResponse);
  const std::string text = testhost::ReadFile(log);
  for (const char *id : {"[msg.log.error.unrecoverable] Bench", "[msg.panic.haveLog] A",
                         "[msg.panic.haveCore] A", "[msg.panic.requestSupport.withLogAndCore] You",
                         "[msg.panic.requestSupport.ostSupport.linux] \n", "[msg.panic.response] We"}) {
    EXPECT_NE(text.find(id), std::string::npos) << id;
  }
}

TEST_F(PanicPost, EachKindHasItsId) {
  const std::string log = StartLog();
  Posted();
  EXPECT_NE(testhost::ReadFile(log).find("[msg.panic.requestSupport.withLog] You"), std::string::npos);
  ProductState_Set(0, "Bench", nullptr, 0, 8);
  Panic_SetCoreDumpFileName("/tmp/core");
  Log_RemoveFile(true);
  ASSERT_EQ(Log_GetFileName(), nullptr);
  // Behind the file's end the ids can still be seen among the pending messages of a callback.
  static std::string ids;
  MsgCallback callback;
  Msg_GetCallback(&callback);
  callback.postList = [](int severity, MsgList *messages) {
    EXPECT_EQ(severity, 3);
    for (const MsgList *message = messages; message != nullptr; message = message->next) {
      ids += std::string(message->id) + "\n";
    }
  };
  callback.post = nullptr;
  Msg_SetCallback(&callback);
  Posted();
  Panic_SetCoreDumpFileName(nullptr);
  Posted();
  EXPECT_EQ(ids,
            "msg.log.error.unrecoverable\nmsg.panic.haveCore\nmsg.panic.requestSupport.withCore\n"
            "msg.panic.requestSupport.ostSupport.windowsOrLinux.viewer\nmsg.panic.response\n"
            "msg.log.error.unrecoverable\nmsg.panic.requestSupport.withoutLog\n"
            "msg.panic.requestSupport.ostSupport.windowsOrLinux.viewer\nmsg.panic.response\n");
}

TEST_F(PanicPost, AProductWithAViewerHasAnotherScript) {
  for (const uint64_t capabilities : {8U, 15U}) {
    ProductState_Set(0, "Bench", nullptr, 0, capabilities);
    EXPECT_EQ(Posted(), kHead + std::string("You can request support.  ") +
                            "\nTo collect data to submit to Ostrel support, run \"ost-support\".\n" +
                            kResponse);
  }
  for (const uint64_t capabilities : {7U, 256U}) {
    ProductState_Set(0, "Bench", nullptr, 0, capabilities);
    EXPECT_EQ(Posted(), kHead + std::string("You can request support.  ") + kCollect + kResponse);
  }
}

TEST_F(PanicPost, FollowsWhatIsPendingOnALineOfItsOwn) {
  Msg_Append(MSGID(test.pending) "Pending.\n");
  EXPECT_EQ(Posted(),
            "\nBench Error:\nPending.\n\nBench unrecoverable error: (app)\ntext\n"
            "You can request support.  " +
                std::string(kCollect) + kResponse);
}

TEST_F(PanicPost, NamesTheThread) {
  VThread_Init(-1, "worker");
  EXPECT_EQ(Posted().find("\nBench Error:\nBench unrecoverable error: (worker)\ntext\n"), 0U);
}

TEST_F(PanicPost, CutsItsTextAt1023Bytes) {
  testing::internal::CaptureStderr();
  Panic_PostPanicMsg("%s", std::string(5000, 'x').c_str());
  EXPECT_NE(testing::internal::GetCapturedStderr().find(": (app)\n" + std::string(1023, 'x') + "You can"),
            std::string::npos);
}

TEST_F(PanicPost, IsNotMadeWhenItIsSwitchedOff) {
  EXPECT_TRUE(Panic_GetPanicMsgPost());
  Panic_SetPanicMsgPost(false);
  EXPECT_FALSE(Panic_GetPanicMsgPost());
  Msg_Append(MSGID(test.pending) "Pending.\n");
  EXPECT_EQ(Posted(), "");
  EXPECT_TRUE(Msg_Present());
  EXPECT_EXIT(Panic("alone\n"), testing::ExitedWithCode(255), testing::Eq("alone\n"));
}

TEST_F(PanicPostDeathTest, ACoreFileHasAName) {
  Panic_SetCoreDumpFileName("");
  EXPECT_EXIT(Panic_PostPanicMsg("text\n"), testing::ExitedWithCode(1),
              testing::MatchesRegex("NOT_REACHED lib/user/panicUser\\.cc:[0-9]+\n"
                                    "NOT_REACHED lib/user/panicUser\\.cc:[0-9]+\nPanic loop\n"));
  EXPECT_EXIT(Panic("text\n"), testing::ExitedWithCode(1),
              testing::MatchesRegex("text\nNOT_REACHED lib/user/panicUser\\.cc:[0-9]+\nPanic loop\n"));
}

TEST_F(PanicPostDeathTest, ItsTextReachesALogThatIsThrottled) {
  StartPreferences();
  Preference_SetFromString("log.noLogAfterThreshold=TRUE", true);
  Preference_SetFromString("log.throttleThreshold=1000", true);
  const std::string file = StartLog();
  Log("%s\n", std::string(1000, 'x').c_str());
  Log("hidden\n");
  ASSERT_EQ(testhost::ReadFile(file).find("hidden"), std::string::npos);
  EXPECT_EXIT(Panic("No way\n"), testing::ExitedWithCode(255), "");
  EXPECT_NE(testhost::ReadFile(file).find(": app| No way\n"), std::string::npos);
}

TEST_F(PanicPostDeathTest, ItWaitsForADebuggerBeforeItsPost) {
  StartPreferences();
  Panic_LoadState();
  EXPECT_EXIT(
      {
        std::thread(LetGoSoon).detach();
        Panic("wait\n");
      },
      testing::ExitedWithCode(255), testing::ContainsRegex("^wait\nLooping pid=[0-9]+\n\nBench Error:\n"));
}

TEST_F(PanicSettings, HaveTheirFirstValues) {
  EXPECT_TRUE(Panic_GetPanicMsgPost());
  EXPECT_TRUE(Panic_GetCoreDumpOnPanic());
  EXPECT_FALSE(Panic_GetBreakOnPanic());
  EXPECT_EQ(Panic_GetCoreDumpFlags(), 0);
  EXPECT_EQ(Panic_GetCoreDumpFileName(), nullptr);
  testing::internal::CaptureStderr();
  Panic_LoopOnPanic();
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(PanicSettings, KeepWhatIsSet) {
  Panic_SetCoreDumpOnPanic(false);
  EXPECT_FALSE(Panic_GetCoreDumpOnPanic());
  Panic_SetBreakOnPanic(true);
  EXPECT_TRUE(Panic_GetBreakOnPanic());
  Panic_SetBreakOnPanic(false);
  EXPECT_FALSE(Panic_GetBreakOnPanic());
  Panic_SetCoreDumpFlags(-3);
  EXPECT_EQ(Panic_GetCoreDumpFlags(), -3);
  std::string name = "one";
  Panic_SetCoreDumpFileName(name.c_str());
  name = "two";
  EXPECT_STREQ(Panic_GetCoreDumpFileName(), "one");
  Panic_SetCoreDumpFileName(nullptr);
  EXPECT_EQ(Panic_GetCoreDumpFileName(), nullptr);
}

TEST_F(PanicSettings, AreReadFromTheConfiguration) {
  StartPreferences();
  Panic_LoadState();
  EXPECT_FALSE(Panic_GetCoreDumpOnPanic());
  EXPECT_TRUE(Panic_GetBreakOnPanic());
  EXPECT_EQ(Panic_GetCoreDumpFlags(), 5);
}

TEST_F(PanicSettings, AValueOf1IsNoBreak) {
  StartPreferences();
  Preference_SetFromString("panic.breakOnPanic=1", true);
  Panic_LoadState();
  EXPECT_FALSE(Panic_GetBreakOnPanic());
}

TEST_F(PanicSettings, HaveDefaultsWithoutAConfiguration) {
  Panic_SetCoreDumpOnPanic(false);
  Panic_SetBreakOnPanic(true);
  Panic_SetCoreDumpFlags(7);
  Panic_LoadState();
  EXPECT_TRUE(Panic_GetCoreDumpOnPanic());
  EXPECT_FALSE(Panic_GetBreakOnPanic());
  EXPECT_EQ(Panic_GetCoreDumpFlags(), 0);
}

TEST_F(PanicSettings, AWaitForADebuggerEndsWithTheSetting) {
  StartPreferences();
  Panic_LoadState();
  Preference_Exit();
  Panic_LoadState();
  testing::internal::CaptureStderr();
  Panic_LoopOnPanic();
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(PanicSettings, APanicWaitsForADebuggerThatClearsTheSetting) {
  StartPreferences();
  Panic_LoadState();
  const testhost::SystemCalls calls({SYS_clock_nanosleep});
  const auto start = std::chrono::steady_clock::now();
  std::thread debugger(LetGoSoon);
  testing::internal::CaptureStderr();
  Panic_LoopOnPanic();
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Looping pid=" + std::to_string(getpid()) + "\n");
  debugger.join();
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1500));
  // Two sleeps or a few more, and that of the thread.
  EXPECT_GE(calls.Count(SYS_clock_nanosleep), 3U);
  EXPECT_LE(calls.Count(SYS_clock_nanosleep), 10U);
}

}  // namespace
