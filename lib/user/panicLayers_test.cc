// Panics of each part of the foundation inside a panic: while one is posted, in the handlers of its exit, and
// in the middle of the part's own work.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <ostream>
#include <string>

#include "codeset.h"
#include "config.h"
#include "dictType.h"
#include "dictionary.h"
#include "err.h"
#include "escape.h"
#include "fileIO.h"
#include "fileLock.h"
#include "hashTable.h"
#include "log.h"
#include "msg.h"
#include "msgList.h"
#include "ostpoll.h"
#include "panicUser.h"
#include "panics.h"
#include "posixPosix.h"
#include "preference.h"
#include "str.h"
#include "syncMutex.h"
#include "syncRecMutex.h"
#include "testhost.h"
#include "unicode.h"
#include "util.h"
#include "vthread.h"

namespace {

struct Layer {
  const char *name;
  void (*fail)();
  const char *text;  // a regular expression
};

void PrintTo(const Layer &layer, std::ostream *os) {
  *os << layer.name;
}

void FailInARunOfTheLoop(void *data) {
  SyncMutex_Lock(static_cast<SyncMutex *>(data));
  Panic("in a turn\n");
}

constexpr Layer kLayers[] = {
    {"Strings",
     [] {
       char text[4];
       Str_Strcpy(text, "text", sizeof text);
     },
     "lib/string/str\\.cc:[0-9]+ Buffer too small 0x[0-9a-f]+\n"},
    {"HashTable", [] { HashTable_Alloc(3, HASH_STRING_KEY, nullptr); },
     "HashTable_Alloc only takes powers of 2 \n"},
    {"HashTableAtWork",
     [] {
       HashTable *table = HashTable_Alloc(4, HASH_STRING_KEY, nullptr);
       HashTable_Insert(table, "key", nullptr);
       HashTable_ForEach(
           table, [](const char *key, void * /*value*/, void * /*data*/) -> int { Panic("at %s\n", key); },
           nullptr);
     },
     "at key\n"},
    {"Escapes", [] { free(Escape_Do('%', nullptr, "", 0, nullptr)); },
     "ASSERT lib/misc/escape\\.cc:[0-9]+\n"},
    {"Unicode", [] { Unicode_EncodingEnumToName(static_cast<StringEncoding>(STRING_ENCODING_COUNT)); },
     "NOT_REACHED lib/unicode/unicodeNames\\.cc:[0-9]+\n"},
    {"CodeSets",
     [] {
       char *text = nullptr;
       size_t size = 0;
       CodeSet_GenericToGeneric("UTF-8", "x", 1, "UTF-16LE", UINT_MAX, &text, &size);
     },
     "ASSERT lib/misc/codesetOld\\.cc:[0-9]+\n"},
    {"Posix", [] { fclose(Posix_Fopen("/dev/null", nullptr)); }, "ASSERT lib/misc/posixPosix\\.cc:[0-9]+\n"},
    {"Files", [] { FileIO_Close(nullptr); }, "ASSERT lib/file/fileIO\\.cc:[0-9]+\n"},
    {"FileLocks", [] { FileLock_LockDevice(nullptr); }, "ASSERT lib/file/fileLockDevice\\.cc:[0-9]+\n"},
    {"Dictionary", [] { Dictionary_Get(Dictionary_Create(), nullptr, DICT_LONG, "a"); },
     "ASSERT lib/user/dictionary\\.cc:[0-9]+\n"},
    {"DictionaryAtWork",
     [] {
       Dictionary *dict = Dictionary_Create();
       Dict_SetLong(dict, 1, "a");
       Dictionary_Iterate(
           dict,
           [](const char *name, const char *value, int /*index*/, void * /*data*/) {
             Panic("at %s = %s\n", name, value);
           },
           nullptr, false);
     },
     "at a = 1\n"},
    {"Preferences", [] { Preference_DisablePolling(); }, "ASSERT lib/config/preference\\.cc:[0-9]+\n"},
    {"Config", [] { Config_SetLong(1, "a"); }, "NOT_IMPLEMENTED lib/config/configTypeUL\\.cc:[0-9]+\n"},
    {"MessageFormats", [] { MsgList_Free(MsgList_Create("no id\n")); },
     "ASSERT lib/misc/msgList\\.cc:[0-9]+\n"},
    {"Messages", [] { Msg_Append("no id\n"); }, "ASSERT lib/misc/msgList\\.cc:[0-9]+\n"},
    {"Severities", [] { Msg_Post(9, MSGID(test.nine) "Nine.\n"); }, "ASSERT lib/user/msgPost\\.cc:[0-9]+\n"},
    {"Log",
     [] {
       Log_SetLockFunc([](bool) {});
       Log_SetLockFunc([](bool) {});
     },
     "ASSERT lib/log/logConfig\\.cc:[0-9]+\n"},
    {"Errors", [] { Err_Errno2String(-1); }, "ASSERT lib/err/err\\.cc:[0-9]+\n"},
    {"Expansion", [] { free(Util_ExpandString(nullptr)); }, "ASSERT lib/user/utilExpand\\.cc:[0-9]+\n"},
    {"Poll", [] { Poll_AddTimer(nullptr, nullptr, 1, false, nullptr); },
     "ASSERT lib/poll/poll\\.cc:[0-9]+\n"},
    {"PollLoop", [] { Poll_RunTimed(false, nullptr, 0, -1); },
     "ASSERT lib/pollDefault/pollDefaultLoop\\.cc:[0-9]+\n"},
    {"PollAtWork",
     [] {
       static SyncMutex mutex;
       SyncMutex_Init(&mutex, nullptr);
       Poll_AddTimer(FailInARunOfTheLoop, &mutex, 0, false, nullptr);
       Poll_RunTimed(false, nullptr, 0, 0);
     },
     "in a turn\n"},
    {"Locks",
     [] {
       static SyncRecMutex mutex;
       SyncRecMutex_Init(&mutex, nullptr);
       SyncRecMutex_Unlock(&mutex);
     },
     "ASSERT lib/sync/syncRecMutex\\.cc:[0-9]+\n"},
    {"Threads", [] { VThread_Init(99, "x"); }, "ASSERT lib/nothread/vthreadUL\\.cc:[0-9]+\n"},
};

// What fails while a panic is posted or the program ends.
const Layer *failing = nullptr;

void FailingPost(int /*severity*/, const char * /*id*/, const char * /*text*/) {
  failing->fail();
}

class PanicOf : public testing::TestWithParam<Layer> {
 protected:
  void SetUp() override {
    testhost::Host host;
    host.Enter();
    Preference_DisablePolling();
    ASSERT_TRUE(Preference_Init());
    ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
    Poll_InitLocked();
    Log("start\n");
    failing = &GetParam();
  }

  static void FailInPosts() {
    MsgCallback callback;
    Msg_GetCallback(&callback);
    callback.post = FailingPost;
    Msg_SetCallback(&callback);
  }

  // What the log ends with, behind the back trace of the first panic.
  static void ExpectLogEnds() {
    const std::string log = testhost::ReadFile(Log_GetFileName());
    EXPECT_THAT(log,
                testing::ContainsRegex("\\| " + std::string(GetParam().text) + "[^\n]*\\| Panic loop\n$"));
  }
};

TEST_P(PanicOf, IsALoopInThePostOfAnother) {
  FailInPosts();
  EXPECT_EXIT(Panic("first\n"), testing::ExitedWithCode(1),
              testing::MatchesRegex("first\n" + std::string(GetParam().text) + "Panic loop\n"));
  ExpectLogEnds();
}

TEST_P(PanicOf, IsALoopInThePostOfItsOwn) {
  FailInPosts();
  const std::string text = GetParam().text;
  EXPECT_EXIT(GetParam().fail(), testing::ExitedWithCode(1),
              testing::MatchesRegex(text + text + "Panic loop\n"));
  ExpectLogEnds();
}

TEST_P(PanicOf, IsALoopAtTheEndThatAnotherMakes) {
  const std::string text = GetParam().text;
  EXPECT_EXIT(
      {
        atexit([] { failing->fail(); });
        Panic("first\n");
      },
      testing::ExitedWithCode(1), testhost::Panics(testing::MatchesRegex("first\n" + text + "Panic loop\n")));
  ExpectLogEnds();
}

INSTANTIATE_TEST_SUITE_P(Layers, PanicOf, testing::ValuesIn(kLayers),
                         [](const auto &tested) { return std::string(tested.param.name); });

}  // namespace
