#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "err.h"
#include "msgTestInt.h"
#include "regexes.h"

namespace {

using msgtest::Block;

constexpr char kGerman[] = "/usr/lib/ostrel/messages/de/tool.ostmsg";

constexpr char kCatalogue[] =
    "msg.test.order = \"%2$s vor %1$s|0A\"\n"
    "MSG.Test.Value = \"der Wert\"\n"
    "msg.test.bad = \"%d|0A\"\n"
    "msg.test.utf8 = \"gr\xc3\xb6\xc3\x9f"
    "er|0A\"\n"
    "msg.msg.systemError = \"Fehler %d [%s]\"\n"
    "msg.msg.systemErrorWindows = \"Fehler %d, 0x%x [%s]\"\n"
    "msg.msg.error = \"Fehler\"\n"
    "button.yes = \"_Ja\"\n";

// The text that a callback was told last.
std::string told;

MsgHintResult RecordHint(int, const char *, const char *text) {
  told = text;
  return MSG_HINT_OK;
}

int RecordProgress(const char *, const char *text, int, bool) {
  told = text;
  return 0;
}

class MsgCatalogue : public msgtest::MsgHost {
 protected:
  // In a host with a catalogue.
  void EnterGerman(const std::string &settings = "") {
    testhost::Host host;
    host.File(kGerman, kCatalogue);
    Enter(settings, &host);
    Msg_SetLocale("de", "tool");
    ASSERT_STREQ(Msg_GetLocale(), "de");
    Logged();
  }
};

// The text of what is pending, which then is no more.
std::string Rendered() {
  return Msg_GetMessagesAndReset();
}

std::string Loaded(const char *locale, const char *name) {
  testing::internal::CaptureStderr();
  Msg_SetLocale(locale, name);
  return testing::internal::GetCapturedStderr();
}

TEST_F(MsgCatalogue, ReplacesTheWordingByItsId) {
  EnterGerman();
  Msg_Append(MSGID(test.order) "%s after %s\n", "one", "two");
  Msg_Append(MSGID(test.missing) "as %s\n", "ever");
  Msg_Append(MSGID(test.utf8) "bigger\n");
  EXPECT_EQ(Rendered(),
            "two vor one\nas ever\ngr\xc3\xb6\xc3\x9f"
            "er\n");
}

TEST_F(MsgCatalogue, LeavesTheLogInTheDefaultWording) {
  EnterGerman();
  testing::internal::CaptureStderr();
  Msg_Post(3, MSGID(test.order) "%s after %s\n", "@&!*@*@(msg.test.value)the value", "x");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "\nOstrel Bench Error:\nx vor der Wert\n\n");
  EXPECT_EQ(Logged(), Block("Msg_Post: Error", "[msg.test.order] the value after x\n"));
}

TEST_F(MsgCatalogue, TellsHintsAndLeavesTheirLogInTheDefaultWording) {
  EnterGerman();
  MsgCallback callback;
  Msg_GetCallback(&callback);
  callback.hint = RecordHint;
  Msg_SetCallback(&callback);
  EXPECT_EQ(Msg_Hint(true, MSG_HINT_TYPE_OK, MSGID(test.order) "%s after %s\n", "one", "two"), MSG_HINT_OK);
  EXPECT_EQ(told, "two vor one\n");
  EXPECT_EQ(Logged(),
            "MsgHint: msg.test.order (sent)\none after two\n---------------------------------------\n");
}

TEST_F(MsgCatalogue, TellsProgress) {
  EnterGerman();
  MsgCallback callback;
  Msg_GetCallback(&callback);
  callback.progress = RecordProgress;
  Msg_SetCallback(&callback);
  Msg_Progress(5, false, MSGID(test.order) "%s after %s\n", "one", "two");
  EXPECT_EQ(told, "two vor one\n");
}

TEST_F(MsgCatalogue, WarnsInsteadOfAsking) {
  EnterGerman("msg.noOK = \"TRUE\"\n");
  testing::internal::CaptureStderr();
  Msg_Post(2, MSGID(test.order) "%s after %s\n", "one", "two");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "MSG: two vor one\n\n");
  EXPECT_EQ(Logged(),
            Block("Msg_Post: Warning", "[msg.test.order] one after two\n") + "MSG: two vor one\n\n");
}

TEST_F(MsgCatalogue, ReplacesMarkedValues) {
  EnterGerman();
  const char *volatile none = nullptr;
  MsgList *message = Msg_Append(MSGID(test.nested) "<%s> <%s> <%s>\n", "@&!*@*@(msg.test.value)the value",
                                "@&!*@*@(msg.test.missing)%d%s", none);
  EXPECT_STREQ(Msg_GetMessages(), "<der Wert> <%d%s> <(null)>\n");
  // For that rendering alone.
  EXPECT_EQ(message->args[0].localString, nullptr);
  Msg_SetLocale(nullptr, nullptr);
  EXPECT_EQ(Rendered(), "<the value> <%d%s> <(null)>\n");
}

// Whatever renders it, its panic posts without meeting it again.
TEST_F(MsgCatalogue, AMarkedValueHasAnIdOfAtMost127Bytes) {
  Enter();
  const auto text = msgtest::PanicIn("NOT_IMPLEMENTED", "user/msgText");
  Msg_Append(MSGID(test.nested) "%s\n", ("@&!*@*@(" + std::string(128, 'i') + ")x").c_str());
  EXPECT_EXIT(Rendered(), msgtest::kPanics, text);
  EXPECT_EXIT(Msg_GetMessages(), msgtest::kPanics, text);
  Msg_Reset(false);
}

// A value may be what a user named a file, and so may begin with anything.
TEST_F(MsgCatalogue, HasNothingForAnIdThatItsFileCannotHave) {
  EnterGerman();
  Msg_Append(MSGID(test.nested) "<%s> <%s>\n", "@&!*@*@()empty", "@&!*@*@(.encoding)dotted");
  EXPECT_EQ(Rendered(), "<empty> <dotted>\n");
  EXPECT_STREQ(Msg_GetString("@&!*@*@()empty"), "empty");
  EXPECT_STREQ(Msg_GetString("@&!*@*@(.encoding)dotted"), "dotted");
}

TEST_F(MsgCatalogue, TellsTheNumberOfAnError) {
  EnterGerman();
  const std::string reason = strerror(ENOENT);
  MsgList *message = Msg_Append(MSGID(test.error) "Cannot open: %s.\n", Err_Errno2String(ENOENT));
  EXPECT_EQ(std::string(Msg_GetMessages()), "Cannot open: Fehler 2 [" + reason + "].\n");
  message->args[0].errorKind = MSGFMT_ERROR_WINDOWS;
  message->args[0].errorCode = 31;
  EXPECT_EQ(std::string(Msg_GetMessages()), "Cannot open: Fehler 31, 0x1f [" + reason + "].\n");
  Msg_SetLocale(nullptr, nullptr);
  EXPECT_EQ(Rendered(), "Cannot open: " + reason + ".\n");
}

TEST_F(MsgCatalogue, TellsTheNumberOfAnErrorInEnglishWithoutWordsForIt) {
  testhost::Host host;
  host.File("/t/catalogue", "msg.test.other = \"x\"\n");
  Enter("", &host);
  ASSERT_TRUE(Msg_LoadMessageFile("de", "/t/catalogue"));
  MsgList *message = Msg_Append(MSGID(test.error) "%s\n", Err_Errno2String(ENOENT));
  EXPECT_EQ(std::string(Msg_GetMessages()), std::string("Error 2 [") + strerror(ENOENT) + "]\n");
  message->args[0].errorKind = MSGFMT_ERROR_WINDOWS;
  message->args[0].errorCode = 31;
  EXPECT_EQ(Rendered(), std::string("Error 31 (0x1f) [") + strerror(ENOENT) + "]\n");
}

TEST_F(MsgCatalogue, AWordingThatDoesNotSuitItsValuesIsLeftOut) {
  EnterGerman();
  Msg_Append(MSGID(test.bad) "%s\n", "text");
  EXPECT_EQ(Rendered(), "text\n");
}

TEST_F(MsgCatalogue, HasTheNamesOfButtons) {
  EnterGerman("answer.msg.test.ask = \"ja\"\n");
  const OwnedString name(Msg_GetPlainButtonText(MSGID_BUTTON(yes) "_Yes"));
  EXPECT_STREQ(name.get(), "Ja");
  EXPECT_STREQ(Msg_GetString(MSGID_BUTTON(yes) "_Yes"), "_Ja");
  const char *names[] = {MSGID_BUTTON(no) "_No", MSGID_BUTTON(yes) "_Yes", nullptr};
  EXPECT_EQ(Msg_Question(names, 0, MSGID(test.ask) "?\n"), 1);
}

TEST_F(MsgCatalogue, NamesTheAnswerOfADefault) {
  EnterGerman("msg.autoAnswer = \"TRUE\"\n");
  const char *names[] = {MSGID_BUTTON(yes) "_Yes", nullptr};
  EXPECT_EQ(Msg_Question(names, 0, MSGID(test.ask) "?\n"), 0);
  EXPECT_NE(Logged().find("Using builtin default '_Ja' as the answer for 'msg.test.ask'\n"),
            std::string::npos);
}

TEST_F(MsgCatalogue, IsPrintedDirectly) {
  EnterGerman();
  const OwnedString text(Msg_Format(MSGID(test.order) "%s after %s\n", "one", "two"));
  EXPECT_STREQ(text.get(), "two vor one\n");
  const OwnedString copy(Msg_GetStringSafe("@&!*@*@(msg.test.value)the value"));
  EXPECT_STREQ(copy.get(), "der Wert");
}

// ---- Loading

TEST_F(MsgCatalogue, IsInTheLibraryDirectory) {
  testhost::Host host;
  host.File("/t/lib/messages/fr/tool.ostmsg", "msg.test.value = \"la valeur\"\n");
  Enter("libdir = \"/t/$OST_TEST_DIR\"\n", &host);
  setenv("OST_TEST_DIR", "lib", 1);
  EXPECT_EQ(Loaded("fr", "tool"), "");
  EXPECT_STREQ(Msg_GetString("@&!*@*@(msg.test.value)the value"), "la valeur");
  EXPECT_STREQ(Msg_GetLocale(), "fr");
  EXPECT_TRUE(testhost::RegexMatch(Logged(), "Msg_SetLocale: HostLocale=\\S+ UserLocale=fr\n"));
}

TEST_F(MsgCatalogue, EndsWithItsLocale) {
  EnterGerman();
  Msg_SetLocale(nullptr, "tool");
  EXPECT_EQ(Msg_GetLocale(), nullptr);
  EXPECT_STREQ(Msg_GetString("@&!*@*@(msg.test.value)the value"), "the value");
  EXPECT_TRUE(testhost::RegexMatch(Logged(), "Msg_SetLocale: HostLocale=\\S+ UserLocale=NULL\n"));
  EXPECT_EQ(Loaded("de", "tool"), "");
  Msg_Exit();
  EXPECT_EQ(Msg_GetLocale(), nullptr);
  EXPECT_STREQ(Msg_GetString("@&!*@*@(msg.test.value)the value"), "the value");
}

TEST_F(MsgCatalogue, ThatIsMissingLeavesTheOldOne) {
  EnterGerman();
  Msg_Append(MSGID(test.before) "Before.\n");
  const std::string path = "/usr/lib/ostrel/messages/xx/tool.ostmsg";
  const std::string warning = "Cannot load message dictionary \"" + path + "\".\n";
  EXPECT_EQ(Loaded("xx", "tool"), warning);
  EXPECT_FALSE(Msg_Present());
  EXPECT_STREQ(Msg_GetLocale(), "de");
  EXPECT_STREQ(Msg_GetString("@&!*@*@(msg.test.value)the value"), "der Wert");
  const std::string logged = Logged();
  EXPECT_EQ(
      logged.substr(logged.find('\n') + 1),
      Block("Msg_Reset:", "[msg.test.before] Before.\n[msg.dictionary.load.openFailed] Cannot open file \"" +
                              path + "\": " + strerror(ENOENT) + ".\n") +
          warning);
}

TEST_F(MsgCatalogue, IsNotMissedByEnglish) {
  Enter();
  EXPECT_EQ(Loaded("en", "tool"), "");
  EXPECT_EQ(Loaded("en_GB", "tool"), "");
  EXPECT_NE(Logged().find("[msg.dictionary.load.openFailed]"), std::string::npos);
  EXPECT_EQ(Msg_GetLocale(), nullptr);
  EXPECT_NE(Loaded("EN", "tool"), "");
}

TEST_F(MsgCatalogue, ThatIsBrokenLeavesTheDefaultWording) {
  testhost::Host host;
  host.File(kGerman, "msg.test.value = \"der Wert\"\n\"\n");
  Enter("", &host);
  EXPECT_EQ(Loaded("de", "tool"), std::string("Cannot load message dictionary \"") + kGerman + "\".\n");
  EXPECT_STREQ(Msg_GetString("@&!*@*@(msg.test.value)the value"), "the value");
  EXPECT_EQ(Msg_GetLocale(), nullptr);
}

TEST_F(MsgCatalogue, ALibraryDirectoryThatCannotBeExpandedIsAFailure) {
  testhost::Host host;
  host.File("/t/(null)/messages/de/tool.ostmsg", kCatalogue);
  std::string settings = "libdir = \"";
  for (int i = 0; i < 101; i++) {
    settings += "/$a";
  }
  Enter(settings + "\"\n", &host);
  ASSERT_EQ(chdir("/t"), 0);
  EXPECT_EQ(Loaded("de", "tool"), "Cannot load message dictionary \"(null)/messages/de/tool.ostmsg\".\n");
  EXPECT_NE(Logged().find("[msg.util.expandStringTooManyChunks]"), std::string::npos);
  EXPECT_FALSE(Msg_Present());
  EXPECT_EQ(Msg_GetLocale(), nullptr);
}

TEST_F(MsgCatalogue, IsMadeOfAFile) {
  testhost::Host host;
  host.File("/t/one", kCatalogue);
  Enter("", &host);
  EXPECT_FALSE(Msg_LoadMessageFile("de", nullptr));
  EXPECT_EQ(Logged(), "");
  EXPECT_TRUE(Msg_LoadMessageFile("de", "/t/one"));
  EXPECT_STREQ(Msg_GetLocale(), "de");
  EXPECT_STREQ(Msg_GetString("@&!*@*@(msg.test.value)the value"), "der Wert");
}

TEST_F(MsgCatalogue, GrowsByAFile) {
  testhost::Host host;
  host.File("/t/two", "msg.test.other = \"\xc3\xa4hnlich\"\n");
  host.File(kGerman, kCatalogue);
  Enter("", &host);
  Msg_SetLocale("de", "tool");
  EXPECT_TRUE(Msg_LoadMessageFile("at", "/t/two"));
  EXPECT_STREQ(Msg_GetLocale(), "de");
  EXPECT_STREQ(Msg_GetString("@&!*@*@(msg.test.value)the value"), "der Wert");
  EXPECT_STREQ(Msg_GetString("@&!*@*@(msg.test.other)alike"), "\xc3\xa4hnlich");
}

TEST_F(MsgCatalogue, GrowsByTextsThatWereMissed) {
  testhost::Host host;
  host.File("/t/two", "msg.test.other = \"\xc3\xa4hnlich\"\n");
  host.File(kGerman, kCatalogue);
  Enter("", &host);
  Msg_SetLocale("de", "tool");
  EXPECT_STREQ(Msg_GetString("@&!*@*@(msg.test.other)alike"), "alike");
  EXPECT_TRUE(Msg_LoadMessageFile("de", "/t/two"));
  EXPECT_STREQ(Msg_GetString("@&!*@*@(msg.test.other)alike"), "\xc3\xa4hnlich");
}

TEST_F(MsgCatalogue, OfAFileMayHaveNoLocale) {
  testhost::Host host;
  host.File("/t/one", kCatalogue);
  Enter("", &host);
  EXPECT_TRUE(Msg_LoadMessageFile(nullptr, "/t/one"));
  EXPECT_EQ(Msg_GetLocale(), nullptr);
  EXPECT_STREQ(Msg_GetString("@&!*@*@(msg.test.value)the value"), "der Wert");
}

TEST_F(MsgCatalogue, OfAFileThatIsNoneKeepsWhatItHas) {
  EnterGerman();
  testhost::WriteFile("/t/nul", std::string("msg.test.nul = \"a\0b\"\n", 21));
  testhost::WriteFile("/t/encoding",
                      "msg.test.latin1 = \"gr\xF6\xDF"
                      "er\"\n");
  testhost::WriteFile("/t/word", std::string().append(100'000'000, 'x'));
  ASSERT_EQ(mkdir("/t/directory", 0755), 0);
  for (const std::string path : {"/t/nul", "/t/encoding", "/t/word", "/t/directory"}) {
    testing::internal::CaptureStderr();
    EXPECT_FALSE(Msg_LoadMessageFile("de", path.c_str()));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Cannot load message dictionary \"" + path + "\".\n");
    EXPECT_FALSE(Msg_Present());
    EXPECT_STREQ(Msg_GetString("@&!*@*@(msg.test.value)the value"), "der Wert");
  }
}

TEST_F(MsgCatalogue, OfAFileMayBeOfAnySize) {
  EnterGerman();
  std::string keys = "msg.test.cr = \"x\"\r";
  for (int i = 0; i < 100'000; i++) {
    keys += "msg.test.n" + std::to_string(i) + " = \"Nummer " + std::to_string(i) + "\"\n";
  }
  testhost::WriteFile("/t/keys", keys);
  std::string text;
  text.append(100'000'000, 'x');
  testhost::WriteFile("/t/line", "msg.test.long = \"" + text + "\"\n");
  testhost::WriteFile("/t/empty", "");
  for (const char *path : {"/t/empty", "/t/keys", "/t/line"}) {
    EXPECT_TRUE(Msg_LoadMessageFile("de", path)) << path;
  }
  EXPECT_STREQ(Msg_GetString("@&!*@*@(msg.test.n99999)number"), "Nummer 99999");
  EXPECT_STREQ(Msg_GetString("@&!*@*@(msg.test.cr)number"), "x");
  EXPECT_EQ(Msg_GetString("@&!*@*@(msg.test.long)long"), text);
  EXPECT_STREQ(Msg_GetString("@&!*@*@(msg.test.value)the value"), "der Wert");
}

TEST_F(MsgCatalogue, TellsOfAFileThatIsMissing) {
  EnterGerman();
  const auto load = [](const char *locale) {
    testing::internal::CaptureStderr();
    EXPECT_FALSE(Msg_LoadMessageFile(locale, "/t/missing"));
    return testing::internal::GetCapturedStderr();
  };
  const std::string warning = "Cannot load message dictionary \"/t/missing\".\n";
  EXPECT_EQ(load("de"), warning);
  EXPECT_EQ(load(nullptr), warning);
  EXPECT_EQ(load("en"), "");
  EXPECT_FALSE(Msg_Present());
  EXPECT_STREQ(Msg_GetString("@&!*@*@(msg.test.value)the value"), "der Wert");
  Msg_SetLocale(nullptr, nullptr);
  EXPECT_EQ(load("de"), warning);
  EXPECT_EQ(Msg_GetLocale(), nullptr);
}

}  // namespace
