#include "preference.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <map>
#include <random>
#include <string>

#include "allocations.h"
#include "fileIO.h"
#include "panicUser.h"
#include "preferenceTestInt.h"
#include "systemCalls.h"

namespace {

using preferencetest::kHostDefaults;
using preferencetest::kPanics;
using preferencetest::kSettings;
using preferencetest::kSiteDefaults;
using preferencetest::kUserDefaults;
using preferencetest::kUserPreferences;
using preferencetest::Take;
using testhost::WriteFile;
using testing::HasSubstr;

constexpr char kAssert[] = "ASSERT lib/config/preference.cc:[0-9]+\n";

class Preference : public preferencetest::SettingsHost {
 protected:
  // Nothing of this start reaches the user.
  static void StartUnheard() {
    testing::internal::CaptureStderr();
    Start();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_FALSE(Msg_Present());
  }
};

// What stands in the log for a file that can't be read.
std::string NoFile(const std::string &path) {
  return "PREF Optional preferences file not found at " + path + ". Using default values.\n";
}

// ---- The layers

TEST_F(Preference, WithoutFilesGivesDefaultsAndLogsEachFile) {
  StartUnheard();
  EXPECT_EQ(LoggedLines("PREF"), NoFile(kHostDefaults) + NoFile(kSettings) + NoFile(kSiteDefaults) +
                                     NoFile(kUserDefaults) + "PREF Failed to load user preferences.\n");
  EXPECT_TRUE(Preference_GetBool(true, "bool"));
  EXPECT_EQ(Preference_GetLong(7, "long"), 7);
  EXPECT_EQ(Preference_GetInt64(INT64_MIN, "int64"), INT64_MIN);
  EXPECT_EQ(Preference_GetDouble(0.5, "double"), 0.5);
  EXPECT_EQ(Preference_GetTriState(-1, "triState"), -1);
  EXPECT_EQ(Take(Preference_GetString("text", "string")), "text");
  EXPECT_EQ(Take(Preference_GetString(nullptr, "null")), "(null)");
  EXPECT_EQ(Take(Preference_GetStringPlain("plain", "stringPlain")), "plain");
  EXPECT_EQ(Take(Preference_GetStringPlain(nullptr, "nullPlain")), "(null)");
  EXPECT_EQ(Take(Preference_GetPathName("/path", "path")), "/path");
  EXPECT_EQ(Take(Preference_GetPathName(nullptr, "nullPath")), "(null)");
  EXPECT_EQ(Logged(), "");
}

TEST_F(Preference, LogsTheReasonOfAMissingFile) {
  Start();
  EXPECT_TRUE(
      HasLogged("[msg.dictionary.load.openFailed] Cannot open file \"/etc/ostrel/config\": No such file or "
                "directory.\n"));
}

TEST_F(Preference, AnswersFromAllFiles) {
  WriteFile(kSettings, "a = settings\n");
  WriteFile(kUserPreferences, "b = preferences\n");
  WriteFile(kUserDefaults, "c = user\n");
  WriteFile(kHostDefaults, "d = host\n");
  WriteFile(kSiteDefaults, "e = site\n");
  Start();
  EXPECT_EQ(LoggedLines("PREF"), "");
  EXPECT_EQ(Take(Preference_GetString(nullptr, "a")), "settings");
  EXPECT_EQ(Take(Preference_GetString(nullptr, "B")), "preferences");
  EXPECT_EQ(Take(Preference_GetString(nullptr, "c")), "user");
  EXPECT_EQ(Take(Preference_GetString(nullptr, "D")), "host");
  EXPECT_EQ(Take(Preference_GetString(nullptr, "e")), "site");
}

TEST_F(Preference, AnswersFromTheFirstLayerThatHoldsAKey) {
  WriteFile(kSiteDefaults, "a=site\nb=site\nc=site\nd=site\ne=site\nf=site\n");
  WriteFile(kHostDefaults, "a=host\nb=host\nc=host\nd=host\ne=host\n");
  WriteFile(kUserDefaults, "a=user\nb=user\nc=user\nd=user\n");
  WriteFile(kUserPreferences, "a=preferences\nb=preferences\nc=preferences\n");
  WriteFile(kSettings, "a=settings\n");
  Start();
  Preference_SetFromString("a=command", true);
  Preference_SetFromString("b=command", true);
  EXPECT_EQ(Take(Preference_GetString(nullptr, "a")), "settings");
  EXPECT_EQ(Take(Preference_GetString(nullptr, "b")), "command");
  EXPECT_EQ(Take(Preference_GetString(nullptr, "c")), "preferences");
  EXPECT_EQ(Take(Preference_GetString(nullptr, "d")), "user");
  EXPECT_EQ(Take(Preference_GetString(nullptr, "e")), "host");
  EXPECT_EQ(Take(Preference_GetString(nullptr, "f")), "site");
}

TEST_F(Preference, HostsFileMovesTheFilesOfTheLibrary) {
  WriteFile(kSettings, "a = wrong\n");
  WriteFile(kSiteDefaults, "b = wrong\n");
  WriteFile(kHostDefaults, "libdir = \"/opt/a b\"\n");
  WriteFile("/opt/a b/settings", "a = settings\n");
  WriteFile("/opt/a b/config", "b = site\n");
  Start();
  EXPECT_EQ(Take(Preference_GetString(nullptr, "a")), "settings");
  EXPECT_EQ(Take(Preference_GetString(nullptr, "b")), "site");
  EXPECT_EQ(Take(Preference_GetString(nullptr, "libdir")), "/opt/a b");
}

TEST_F(Preference, NoOtherFileMovesTheFilesOfTheLibrary) {
  for (const char *path : {kSettings, kSiteDefaults, kUserDefaults, kUserPreferences}) {
    WriteFile(path, "libdir = \"/opt\"\n");
  }
  WriteFile("/opt/settings", "a = wrong\n");
  WriteFile("/opt/config", "a = wrong\n");
  Start();
  EXPECT_EQ(Take(Preference_GetString("none", "a")), "none");
  Preference_LogFileNames();
  const std::string log = Logged();
  EXPECT_THAT(log, HasSubstr("Preference GLOBAL_SETTINGS found at /usr/lib/ostrel/settings\n"));
  EXPECT_THAT(log, HasSubstr("Preference SITE_DEFAULTS found at /usr/lib/ostrel/config\n"));
}

TEST_F(Preference, PathOfTheLibraryIsNotExpandedForItsFiles) {
  WriteFile(kHostDefaults, "libdir = \"~/$HOME\"\n");
  Start();
  Preference_LogFileNames();
  const std::string log = Logged();
  EXPECT_THAT(log, HasSubstr("Preference GLOBAL_SETTINGS found at ~/$HOME/settings\n"));
  EXPECT_THAT(log, HasSubstr("Preference SITE_DEFAULTS found at ~/$HOME/config\n"));
}

TEST_F(Preference, DefaultsThatTheStartReadsHideTheSitesValues) {
  WriteFile(kSiteDefaults, "libdir = /opt\ndisableUserPreferences = yes\n");
  Start();
  EXPECT_EQ(Take(Preference_GetString("none", "libdir")), "/usr/lib/ostrel");
  EXPECT_FALSE(Preference_GetBool(true, "disableUserPreferences"));
}

TEST_F(Preference, SettingsFileCannotBeOverridden) {
  WriteFile(kSettings, "a = settings\n");
  WriteFile(kUserPreferences, "a = preferences\n");
  Start();
  Preference_SetFromString("a=command", true);
  EXPECT_EQ(Take(Preference_GetString(nullptr, "a")), "settings");
}

TEST_F(Preference, KeepsTheFirstDefaultOfAKey) {
  Start();
  EXPECT_EQ(Preference_GetLong(5, "x"), 5);
  EXPECT_EQ(Preference_GetLong(7, "x"), 5);
  EXPECT_EQ(Preference_GetLong(9, "X"), 5);
  EXPECT_EQ(Take(Preference_GetString(nullptr, "s")), "(null)");
  EXPECT_EQ(Take(Preference_GetString("late", "s")), "(null)");
  // The user's layer holds it, and the command line's comes before that.
  Preference_SetFromString("x=11", true);
  EXPECT_EQ(Preference_GetLong(7, "x"), 11);
}

TEST_F(Preference, ReadsNoFileOfTheUsersUnderAnotherUsersRights) {
  WriteFile(kUserDefaults, "a = wrong\n");
  WriteFile(kUserPreferences, "b = wrong\n");
  WriteFile(kHostDefaults, "c = host\n");
  ASSERT_EQ(setresuid(1234, 0, 0), 0);
  Start();
  const std::string log = Logged();
  EXPECT_THAT(log, HasSubstr("Ignore user's config\n"));
  EXPECT_THAT(log, HasSubstr("Ignore user's preferences\nPREF Failed to load user preferences.\n"));
  EXPECT_EQ(Take(Preference_GetString("none", "a")), "none");
  EXPECT_EQ(Take(Preference_GetString("none", "b")), "none");
  EXPECT_EQ(Take(Preference_GetString("none", "c")), "host");
  Preference_LogFileNames();
  const std::string names = Logged();
  EXPECT_THAT(names, HasSubstr("Preference USER_PREFERENCES found at (null)\n"));
  EXPECT_THAT(names, HasSubstr("Preference USER_DEFAULTS found at (null)\n"));
}

TEST_F(Preference, ReadsNoFileOfTheUsersWhenTheUserIsUnknown) {
  WriteFile(kUserDefaults, "a = wrong\n");
  WriteFile(kUserPreferences, "b = wrong\n");
  testhost::SystemCalls calls({SYS_getresuid});
  calls.Fail(SYS_getresuid, EFAULT);
  Start();
  const std::string log = Logged();
  EXPECT_THAT(log, HasSubstr("Ignore user's config\n"));
  EXPECT_THAT(log, HasSubstr("Ignore user's preferences\n"));
  EXPECT_EQ(Take(Preference_GetString("none", "a")), "none");
  EXPECT_EQ(Take(Preference_GetString("none", "b")), "none");
}

TEST_F(Preference, BothReasonsToIgnoreTheUsersPreferencesAreLogged) {
  WriteFile(kHostDefaults, "disableUserPreferences = yes\n");
  ASSERT_EQ(setresuid(1234, 0, 0), 0);
  Start();
  EXPECT_TRUE(
      HasLogged("Ignore user's preferences\n"
                "PREF Disabling user preferences because disableUserPreferences is set.\n"
                "PREF Failed to load user preferences.\n"));
}

TEST_F(Preference, SavedUserIdIsNoOtherUser) {
  WriteFile(kUserDefaults, "a = user\n");
  ASSERT_EQ(setresuid(0, 0, 1234), 0);
  Start();
  EXPECT_FALSE(HasLogged("Ignore user's"));
  EXPECT_EQ(Take(Preference_GetString("none", "a")), "user");
}

TEST_F(Preference, HostsFileDisablesTheUsersPreferences) {
  WriteFile(kHostDefaults, "disableUserPreferences = TRUE\n");
  WriteFile(kUserPreferences, "a = wrong\n");
  WriteFile(kUserDefaults, "b = user\n");
  Start();
  EXPECT_EQ(LoggedLines("PREF"),
            NoFile(kSettings) + NoFile(kSiteDefaults) +
                "PREF Disabling user preferences because disableUserPreferences is set.\n"
                "PREF Failed to load user preferences.\n");
  EXPECT_EQ(Take(Preference_GetString("none", "a")), "none");
  EXPECT_EQ(Take(Preference_GetString("none", "b")), "user");
  Preference_LogFileNames();
  EXPECT_TRUE(HasLogged("Preference USER_PREFERENCES found at (null)\n"));
}

TEST_F(Preference, UsersFilesDisableNothing) {
  for (const char *path : {kSettings, kSiteDefaults, kUserDefaults, kUserPreferences}) {
    WriteFile(path, "disableUserPreferences = TRUE\n");
  }
  WriteFile(kUserPreferences, "disableUserPreferences = TRUE\na = preferences\n");
  Start();
  EXPECT_FALSE(HasLogged("Disabling"));
  EXPECT_EQ(Take(Preference_GetString("none", "a")), "preferences");
}

TEST_F(Preference, CallDisablesTheUsersPreferences) {
  WriteFile(kUserPreferences, "a = wrong\n");
  WriteFile(kUserDefaults, "b = user\n");
  Preference_DisableUserPreferences();
  ASSERT_TRUE(Preference_Init());
  EXPECT_TRUE(HasLogged("PREF Disabling user preferences because disableUserPreferences is set.\n"));
  EXPECT_EQ(Take(Preference_GetString("none", "a")), "none");
  EXPECT_EQ(Take(Preference_GetString("none", "b")), "user");
}

TEST_F(Preference, BadValueOfWhatDisablesIsToldEvenIfACallDisablesToo) {
  WriteFile(kHostDefaults, "disableUserPreferences = perhaps\n");
  Preference_DisableUserPreferences();
  testing::internal::CaptureStderr();
  ASSERT_TRUE(Preference_Init());
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("Value \"perhaps\" for variable \"disableUserPreferences\" is not a valid boolean "
                        "value. Using value \"FALSE\".\n"));
}

TEST_F(Preference, UserWithoutAHomeHasNoFiles) {
  unsetenv("HOME");
  Start();
  EXPECT_FALSE(Msg_Present());
  EXPECT_THAT(LoggedLines("PREF"),
              testing::EndsWith(NoFile("~/.ostrel/config") + "PREF Failed to load user preferences.\n"));
  EXPECT_EQ(Preference_GetLong(1, "x"), 1);
}

// ---- Bad files

TEST_F(Preference, FileWithASyntaxErrorCountsAsMissingButKeepsWhatCameBefore) {
  WriteFile(kSettings, "a = settings\nb = x y\nc = settings\n");
  WriteFile(kSiteDefaults, "a = site\nb = site\nc = site\n");
  StartUnheard();
  const std::string log = Logged();
  EXPECT_THAT(log,
              HasSubstr("[msg.dictionary.read.syntaxError] File \"/usr/lib/ostrel/settings\" line 2: Syntax "
                        "error.\n"));
  EXPECT_THAT(log, HasSubstr(NoFile(kSettings)));
  EXPECT_EQ(Take(Preference_GetString(nullptr, "a")), "settings");
  EXPECT_EQ(Take(Preference_GetString(nullptr, "b")), "site");
  EXPECT_EQ(Take(Preference_GetString(nullptr, "c")), "site");
}

TEST_F(Preference, UserPreferencesWithASyntaxErrorKeepWhatCameBefore) {
  WriteFile(kUserPreferences, "a = preferences\n?\nb = preferences\n");
  StartUnheard();
  const std::string log = Logged();
  EXPECT_THAT(log,
              HasSubstr("[msg.dictionary.read.syntaxError] File \"/home/person/.ostrel/preferences\" line 2: "
                        "Syntax error.\n"));
  EXPECT_THAT(log, HasSubstr("PREF Failed to load user preferences.\n"));
  EXPECT_EQ(Take(Preference_GetString("none", "a")), "preferences");
  EXPECT_EQ(Take(Preference_GetString("none", "b")), "none");
}

TEST_F(Preference, DirectoriesInPlaceOfFilesAreEmptyLayers) {
  for (const char *path : {kSettings, kSiteDefaults, kHostDefaults, kUserDefaults, kUserPreferences}) {
    WriteFile(std::string(path) + "/file", "");
  }
  Start();
  EXPECT_EQ(LoggedLines("PREF"), NoFile(kHostDefaults) + NoFile(kSettings) + NoFile(kSiteDefaults) +
                                     NoFile(kUserDefaults) + "PREF Failed to load user preferences.\n");
  EXPECT_EQ(Preference_GetLong(1, "x"), 1);
}

TEST_F(Preference, FilesThatCannotBeReadAreEmptyLayers) {
  WriteFile(kSettings, "a = settings\n");
  WriteFile(kSiteDefaults, "a = site\n");
  testhost::SystemCalls calls({SYS_openat});
  calls.Fail(SYS_openat, EIO, {.from = 1, .count = 1});
  Start();
  calls.Clear();
  EXPECT_TRUE(HasLogged("Cannot open file \"/usr/lib/ostrel/settings\": Input/output error.\n"));
  EXPECT_EQ(Take(Preference_GetString(nullptr, "a")), "site");
}

TEST_F(Preference, FileWithANameTwiceKeepsTheFirstValueAndAllOthers) {
  WriteFile(kSettings, "a = first\nA = second\nb = settings\n");
  WriteFile(kUserPreferences, "c = first\nc = second\nd = preferences\n");
  WriteFile(kSiteDefaults, "a = site\nb = site\n");
  StartUnheard();
  const std::string log = Logged();
  EXPECT_THAT(log,
              HasSubstr("File \"/usr/lib/ostrel/settings\" line 2: Variable \"A\" is already defined.\n"));
  EXPECT_THAT(log, HasSubstr(NoFile(kSettings)));
  EXPECT_THAT(log, HasSubstr("PREF Failed to load user preferences.\n"));
  EXPECT_EQ(Take(Preference_GetString(nullptr, "a")), "first");
  EXPECT_EQ(Take(Preference_GetString(nullptr, "b")), "settings");
  EXPECT_EQ(Take(Preference_GetString(nullptr, "c")), "first");
  EXPECT_EQ(Take(Preference_GetString(nullptr, "d")), "preferences");
}

TEST_F(Preference, FileWithAnEncryptedSectionCountsAsMissingButKeepsWhatIsReadable) {
  const std::string encrypted = "encryption.keySafe = safe\nencryption.data = data\n";
  WriteFile(kSettings, encrypted + "a = settings\n");
  WriteFile(kUserPreferences, encrypted + "b = preferences\n");
  StartUnheard();
  const std::string log = Logged();
  EXPECT_THAT(log, HasSubstr(NoFile(kSettings)));
  EXPECT_THAT(log, HasSubstr("PREF Failed to load user preferences.\n"));
  EXPECT_EQ(Take(Preference_GetString("none", "a")), "settings");
  EXPECT_EQ(Take(Preference_GetString("none", "b")), "preferences");
}

// ---- Values

TEST_F(Preference, ReadsEachType) {
  WriteFile(kHostDefaults,
            "bool = no\nlong = -0x10\nint64 = 0x100000000\ndouble = 2.5\n"
            "no = off\nyes = on\ndefault = auto\nstring = \"a b\"\npath = \"~/$OST_NAME\"\nempty =\n");
  Start();
  setenv("OST_NAME", "file", 1);
  EXPECT_FALSE(Preference_GetBool(true, "bool"));
  EXPECT_EQ(Preference_GetLong(1, "long"), -16);
  EXPECT_EQ(Preference_GetInt64(1, "int64"), int64_t{1} << 32);
  EXPECT_EQ(Preference_GetDouble(1, "double"), 2.5);
  EXPECT_EQ(Preference_GetTriState(-1, "no"), 0);
  EXPECT_EQ(Preference_GetTriState(-1, "yes"), 1);
  EXPECT_EQ(Preference_GetTriState(1, "default"), -1);
  EXPECT_EQ(Take(Preference_GetString(nullptr, "string")), "a b");
  EXPECT_EQ(Take(Preference_GetStringPlain(nullptr, "string")), "a b");
  EXPECT_EQ(Take(Preference_GetPathName(nullptr, "path")), "/home/person/file");
  EXPECT_EQ(Take(Preference_GetString("none", "empty")), "");
}

TEST_F(Preference, ExpandsTheDefaultOfAPath) {
  Start();
  EXPECT_EQ(Take(Preference_GetPathName("~/file", "path")), "/home/person/file");
  EXPECT_EQ(Take(Preference_GetString(nullptr, "path")), "~/file");
}

TEST_F(Preference, PathThatCannotBeExpandedIsNull) {
  std::string pieces;
  for (int i = 0; i < 101; i++) {
    pieces += "$HOME";
  }
  WriteFile(kHostDefaults, "path = \"" + pieces + "\"\n");
  Start();
  EXPECT_EQ(Take(Preference_GetPathName("/default", "path")), "(null)");
  EXPECT_TRUE(Msg_Present());
  Msg_Reset(false);
}

TEST_F(Preference, GivesANewStringEachTime) {
  WriteFile(kHostDefaults, "a = text\n");
  Start();
  const OwnedString first(Preference_GetString(nullptr, "a"));
  first.get()[0] = 'n';
  EXPECT_EQ(Take(Preference_GetString(nullptr, "a")), "text");
}

TEST_F(Preference, BadValueWarnsOnceAndAsksNoLowerLayer) {
  WriteFile(kSettings, "x = many\n");
  WriteFile(kSiteDefaults, "x = 3\n");
  Start();
  Logged();
  testing::internal::CaptureStderr();
  EXPECT_EQ(Preference_GetLong(5, "x"), 5);
  EXPECT_THAT(
      testing::internal::GetCapturedStderr(),
      HasSubstr("Value \"many\" for variable \"x\" is not a valid integer value. Using value \"5\".\n"));
  EXPECT_TRUE(
      HasLogged("[msg.dictionary.notInteger] Value \"many\" for variable \"x\" is not a valid integer value. "
                "Using value \"5\".\n"));
  EXPECT_EQ(Preference_GetLong(7, "x"), 5);
  EXPECT_EQ(Logged(), "");
}

// Lets everybody read the settings who has any.
void ReadSettings() {
  LogInitParams params{};
  Log_GetInitDefaults(nullptr, nullptr, "setup", &params);
  Log_SetConfig(true, true, 3, 0, false);
  Log_InitGuestThrottle();
  Log_BackupOldFiles("/tmp/none.log");
  Panic_LoadState();
  FileIODescriptor file;
  FileIO_Invalidate(&file);
  ASSERT_EQ(FileIO_Open(&file, "/dev/zero", FILEIO_ACCESS_READ, FILEIO_OPEN), FILEIO_SUCCESS);
  std::array<char, 2> bytes{'x', 'x'};
  const std::array<iovec, 2> entries = {iovec{bytes.data(), 1}, iovec{bytes.data() + 1, 1}};
  size_t actual = 0;
  EXPECT_EQ(FileIO_Readv(&file, entries.data(), 2, 2, &actual), FILEIO_SUCCESS);
  EXPECT_EQ(bytes, (std::array<char, 2>{}));
  EXPECT_FALSE(FileIO_Close(&file));
}

// Every setting that has a type which a text can miss, but msg.noOKnoWarning.
TEST_F(Preference, BadValuesOfAllSettingsAreTheirDefaultsWithAWarning) {
  const std::map<std::string, bool> booleans = {
      {"disableUserPreferences", false},
      {"logging", true},
      {"log.append", false},
      {"log.fastRotation", false},
      {"log.timeStamp", true},
      {"log.millisec", true},
      {"log.threadName", true},
      {"log.noLogAfterThreshold", false},
      {"log.guestNoLogAfterThreshold", false},
      {"msg.autoAnswer", false},
      {"msg.noOK", false},
      {"filePosix.coalesce.enable", true},
      {"filePosix.coalesce.aligned", false},
      {"coreDumpOnPanic", true},
      {"panic.loopOnPanic", false},
  };
  const std::map<std::string, int> integers = {
      {"log.keepold", 3},
      {"log.keep", -1},
      {"log.rotateSize", 0},
      {"log.throttleThreshold", 1000000},
      {"log.throttleBytesPerSec", -1},
      {"log.guestThrottleThreshold", 500000},
      {"log.guestThrottleBytesPerSec", 0},
      {"filePosix.coalesce.count", 5},
      {"filePosix.coalesce.size", 16384},
      {"aiomgr.numThreads", 0},
      {"panic.breakOnPanic", 0},
      {"coreDumpFlags", 0},
  };
  std::string settings;
  for (const auto &[key, unused] : booleans) {
    settings += key + " = perhaps\n";
  }
  for (const auto &[key, unused] : integers) {
    settings += key + " = 12monkeys\n";
  }
  WriteFile(kHostDefaults, settings);
  Start();
  ReadSettings();
  std::string log = Logged();
  const auto find = [&log, this](const std::string &value, const std::string &key, const std::string &kind,
                                 const std::string &defaultValue) {
    log += Logged();
    EXPECT_THAT(log, HasSubstr("Value \"" + value + "\" for variable \"" + key + "\" is not a valid " + kind +
                               " value. Using value \"" + defaultValue + "\".\n"));
  };
  // Whoever uses a setting has read it with its default, which counts from then on.
  for (const auto &[key, value] : booleans) {
    EXPECT_EQ(Preference_GetBool(!value, key.c_str()), value) << key;
    find("perhaps", key, "boolean", value ? "TRUE" : "FALSE");
  }
  for (const auto &[key, value] : integers) {
    EXPECT_EQ(Preference_GetLong(value + 1, key.c_str()), value) << key;
    find("12monkeys", key, "integer", std::to_string(value));
  }
}

// The warning of a bad value is a message, and a message asks for these settings itself.
TEST_F(Preference, BadSettingsOfMessagesWarnOnceEach) {
  WriteFile(kHostDefaults, "msg.autoAnswer = perhaps\nmsg.noOK = perhaps\nmsg.noOKnoWarning = perhaps\n");
  Start();
  Logged();
  testing::internal::CaptureStderr();
  Msg_Post(3, MSGID(test.one) "Text\n");
  Msg_Post(2, MSGID(test.two) "Second text\n");
  const std::string shown = testing::internal::GetCapturedStderr();
  EXPECT_THAT(shown, HasSubstr("Text\n"));
  EXPECT_THAT(shown, HasSubstr("Second text\n"));
  const std::string log = Logged();
  for (const char *key : {"msg.autoAnswer", "msg.noOK"}) {
    const std::string warning = "Value \"perhaps\" for variable \"" + std::string(key) +
                                "\" is not a valid boolean value. Using value \"FALSE\".\n";
    const size_t first = log.find(warning);
    EXPECT_NE(first, std::string::npos) << key;
    EXPECT_EQ(log.find(warning, first + 1), std::string::npos) << key;
  }
}

// Only who is told of messages by the log alone is asked whether even that is too much.
TEST_F(Preference, BadSettingOfMessagesThatAreWarningsWarnsOnce) {
  WriteFile(kHostDefaults, "msg.noOK = TRUE\nmsg.noOKnoWarning = perhaps\n");
  Start();
  Logged();
  testing::internal::CaptureStderr();
  Msg_Post(2, MSGID(test.one) "Text\n");
  Msg_Post(2, MSGID(test.two) "Second text\n");
  const std::string warning =
      "MSG: Value \"perhaps\" for variable \"msg.noOKnoWarning\" is not a valid boolean value. Using value "
      "\"FALSE\".\n\n";
  EXPECT_EQ(testing::internal::GetCapturedStderr(), warning + "MSG: Text\n\nMSG: Second text\n\n");
  EXPECT_TRUE(HasLogged(warning + "MSG: Text\n\n"));
}

TEST_F(Preference, OtherTypesOfAKeyStopTheProgram) {
  Start();
  EXPECT_EQ(Preference_GetLong(1, "x"), 1);
  EXPECT_EXIT(Preference_GetBool(true, "x"), kPanics, "ASSERT lib/user/dictionary.cc:[0-9]+ bugNr=[0-9]+\n");
}

// ---- Choices

constexpr const char *kChoices[] = {"red", "green", nullptr};

TEST_F(Preference, ChoiceIsOneOfThose) {
  WriteFile(kHostDefaults, "a = green\nb = blue\nc =\n");
  Start();
  EXPECT_EQ(Take(Preference_GetStringEnum("red", kChoices, "a")), "green");
  Logged();
  EXPECT_EQ(Take(Preference_GetStringEnum("red", kChoices, "b")), "red");
  EXPECT_TRUE(HasLogged("Value \"blue\" for variable \"b\" is not a valid value. Using value \"red\".\n"));
  EXPECT_EQ(Take(Preference_GetStringEnum(nullptr, kChoices, "b")), "(null)");
  EXPECT_TRUE(HasLogged("Value \"blue\" for variable \"b\" is not a valid value.\n"));
  EXPECT_EQ(Take(Preference_GetStringEnum("red", kChoices, "c")), "red");
  EXPECT_EQ(Logged(), "");
}

TEST_F(Preference, ChoiceOfTheFirstLayerThatHoldsItCounts) {
  WriteFile(kSettings, "a = red\nb = blue\n");
  WriteFile(kSiteDefaults, "a = green\nb = green\n");
  Start();
  EXPECT_EQ(Take(Preference_GetStringEnum(nullptr, kChoices, "a")), "red");
  EXPECT_EQ(Take(Preference_GetStringEnum("red", kChoices, "b")), "red");
}

TEST_F(Preference, DefaultOfAChoiceNobodyHoldsIsTakenAsItIs) {
  WriteFile(kHostDefaults, "held = red\n");
  Start();
  EXPECT_EQ(Take(Preference_GetStringEnum("blue", kChoices, "a")), "blue");
  EXPECT_EQ(Take(Preference_GetStringEnum(nullptr, kChoices, "n")), "(null)");
  // From now on a layer holds it, with a value that is no choice.
  EXPECT_EQ(Take(Preference_GetStringEnum("red", kChoices, "a")), "red");
  EXPECT_EXIT(Preference_GetStringEnum("blue", kChoices, "held"), kPanics,
              "ASSERT lib/user/dictType.cc:[0-9]+\n");
}

TEST_F(Preference, ChoiceNobodyHoldsIsReadByAFormat) {
  Start();
  EXPECT_EQ(Take(Preference_GetStringEnum("red", kChoices, "a%%b")), "red");
  EXPECT_EQ(Take(Preference_GetString("none", "a%b")), "red");
  EXPECT_EQ(Take(Preference_GetString("none", "a%%b")), "none");
  Preference_SetFromString("c%%d=green", true);
  EXPECT_EQ(Take(Preference_GetStringEnum("red", kChoices, "c%%d")), "green");
}

// ---- Before and after

TEST_F(Preference, GivesDefaultsBeforeItIsUp) {
  EXPECT_TRUE(Preference_GetBool(true, "a"));
  EXPECT_EQ(Preference_GetLong(1, "b"), 1);
  EXPECT_EQ(Preference_GetInt64(2, "c"), 2);
  EXPECT_EQ(Preference_GetDouble(0.5, "d"), 0.5);
  EXPECT_EQ(Preference_GetTriState(-1, "e"), -1);
  Preference_DisablePolling();
  EXPECT_EQ(Take(Preference_GetString("text", "f")), "text");
  EXPECT_EQ(Take(Preference_GetStringPlain(nullptr, "g")), "(null)");
  EXPECT_EQ(Take(Preference_GetPathName("~", "h")), "/home/person");
  EXPECT_EQ(Take(Preference_GetStringEnum("blue", kChoices, "i")), "blue");
  EXPECT_EQ(Take(Preference_GetStringEnum(nullptr, kChoices, "j")), "(null)");
  std::string lines;
  for (char key = 'a'; key <= 'j'; key++) {
    lines += std::string("PREF early PreferenceGet(") + key + "), using default\n";
  }
  EXPECT_EQ(Logged(), lines);
  // They weren't kept.
  EXPECT_TRUE(Preference_Init());
  EXPECT_EQ(Preference_GetLong(3, "b"), 3);
}

TEST_F(Preference, LogsNoEarlyReadsOfDictionaryErrors) {
  EXPECT_EQ(Take(Preference_GetString("x", "msg.dictionary.error")), "x");
  EXPECT_EQ(Take(Preference_GetString("x", "msg.dictionary.errors.any")), "x");
  EXPECT_EQ(Take(Preference_GetStringEnum("x", kChoices, "msg.dictionary.error")), "x");
  EXPECT_EQ(Logged(), "");
  EXPECT_EQ(Take(Preference_GetString("x", "msg.dictionary.erro")), "x");
  EXPECT_EQ(Take(Preference_GetString("x", "Msg.dictionary.error")), "x");
  EXPECT_EQ(Logged(),
            "PREF early PreferenceGet(msg.dictionary.erro), using default\n"
            "PREF early PreferenceGet(Msg.dictionary.error), using default\n");
}

TEST_F(Preference, ForgetsEverythingAtItsEnd) {
  WriteFile(kHostDefaults, "a = host\n");
  Start();
  Preference_SetFromString("b=command", true);
  EXPECT_EQ(Preference_GetLong(1, "c"), 1);
  Preference_Exit();
  Logged();
  EXPECT_EQ(Take(Preference_GetString("none", "a")), "none");
  EXPECT_EQ(Logged(), "PREF early PreferenceGet(a), using default\n");
  Preference_Exit();
  Start();
  EXPECT_EQ(Take(Preference_GetString("none", "a")), "host");
  EXPECT_EQ(Take(Preference_GetString("none", "b")), "none");
  EXPECT_EQ(Preference_GetLong(2, "c"), 2);
}

TEST_F(Preference, EndsBeforeItWasUp) {
  Preference_DisablePolling();
  Preference_Exit();
  Preference_DisableUserPreferences();
  Preference_Exit();
  Start();
  EXPECT_EQ(Preference_GetLong(1, "a"), 1);
}

TEST_F(Preference, CallsInAnotherOrderStopTheProgram) {
  EXPECT_EXIT(Preference_SetFromString("a=b", true), kPanics, kAssert);
  Preference_DisablePolling();
  EXPECT_EXIT(Preference_SetFromString("a=b", true), kPanics, kAssert);
  EXPECT_EXIT(Preference_DisablePolling(), kPanics, kAssert);
  EXPECT_EXIT(Preference_DisableUserPreferences(), kPanics, kAssert);
  ASSERT_TRUE(Preference_Init());
  EXPECT_EXIT(Preference_DisablePolling(), kPanics, kAssert);
  EXPECT_EXIT(Preference_DisableUserPreferences(), kPanics, kAssert);
  Logged();
  EXPECT_EXIT(Preference_Init(), kPanics, kAssert);
  EXPECT_EQ(LoggedLines("PREF"), "");
}

TEST_F(Preference, StartWithinAStartStopsTheProgram) {
  const auto start = [] {
    Log_RegisterFunctions(
        [](const char * /*format*/, va_list /*args*/) {
          Log_RegisterFunctions(nullptr, nullptr);
          Preference_Init();
        },
        nullptr);
    Preference_Init();
    _exit(0);
  };
  EXPECT_EXIT(start(), kPanics, kAssert);
}

// Memory runs out at each moment of the start, each time in a process of its own. That stops the program, but
// where a path is expanded or a file is opened, which then has no path or counts as missing.
TEST_F(Preference, StartWithoutMemoryStopsTheProgramOrGoesOn) {
  WriteFile(kUserPreferences, "a = preferences\n");
  WriteFile(kUserDefaults, "b = user\n");
  const auto start = [this](size_t nth) {
    Logged();
    {
      const testhost::AllocationFault fault(nth);
      Start();
    }
    const std::string log = Logged();
    const auto hasNoPath = [&log](const std::string &file) {
      return log.find("[msg.util.expandStringNoMemForResult] Cannot allocate memory for the expansion of \"" +
                      file + "\".\n") != std::string::npos;
    };
    const std::string found = Take(Preference_GetString("none", "a"));
    if (Msg_Present()) {
      return 99;
    }
    if (hasNoPath("~/.ostrel/preferences")) {
      const bool isTold = log.find(
                              "PREF Failed to find user preference file name.\nPREF Failed to load user "
                              "preferences.\n") != std::string::npos;
      return found == "none" && isTold ? 1 : 99;
    }
    if (hasNoPath("~/.ostrel/config")) {
      return found == "preferences" && Preference_NotSet("b") ? 2 : 99;
    }
    return found == "preferences" || log.find("PREF Failed to load user preferences.\n") != std::string::npos
               ? 0
               : 99;
  };
  const size_t count = testhost::CountAllocations(Start);
  Preference_Exit();
  std::map<int, int> ends;
  for (size_t nth = 0; nth < count; nth++) {
    const pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
      close(STDERR_FILENO);
      _exit(start(nth));
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status)) << nth;
    ends[WEXITSTATUS(status)]++;
  }
  EXPECT_EQ(ends[1], 1);
  EXPECT_EQ(ends[2], 1);
  EXPECT_GT(ends[0], 0);
  EXPECT_GT(ends[255], 0);
  EXPECT_EQ(ends[0] + ends[1] + ends[2] + ends[255], static_cast<int>(count));
}

TEST_F(Preference, NoMemoryForItsStateStopsTheProgram) {
  const auto start = [] {
    const testhost::AllocationFault fault(0);
    Preference_DisablePolling();
  };
  EXPECT_EXIT(start(), kPanics,
              "Unrecoverable memory allocation failure at lib/config/preference.cc:[0-9]+\n");
}

TEST_F(Preference, AnswersInAChildProcess) {
  WriteFile(kHostDefaults, "a = host\n");
  Start();
  const pid_t child = fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    _exit(Take(Preference_GetString("none", "a")) == "host" && Preference_GetLong(5, "x") == 5 ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(Preference_GetLong(7, "x"), 7);
}

// ---- Whether a key is set

TEST_F(Preference, NothingIsSetBeforeItIsUp) {
  WriteFile(kHostDefaults, "a = host\n");
  EXPECT_TRUE(Preference_NotSet("a"));
  Preference_DisablePolling();
  EXPECT_TRUE(Preference_NotSet("a"));
  ASSERT_TRUE(Preference_Init());
  EXPECT_FALSE(Preference_NotSet("a"));
  Preference_Exit();
  EXPECT_TRUE(Preference_NotSet("a"));
}

TEST_F(Preference, KeyIsSetInAnyLayer) {
  WriteFile(kSettings, "a =\n");
  WriteFile(kUserPreferences, "b =\n");
  WriteFile(kUserDefaults, "c =\n");
  WriteFile(kHostDefaults, "d =\n");
  WriteFile(kSiteDefaults, "e =\n");
  Start();
  Preference_SetFromString("f", true);
  for (const char *key : {"a", "b", "c", "d", "e", "f", "A", "F"}) {
    EXPECT_FALSE(Preference_NotSet(key)) << key;
  }
  EXPECT_TRUE(Preference_NotSet("g"));
}

TEST_F(Preference, DefaultSetsNothing) {
  Start();
  EXPECT_EQ(Preference_GetLong(5, "a"), 5);
  EXPECT_TRUE(Preference_NotSet("a"));
  // The two that the host's layer was asked for itself.
  EXPECT_TRUE(Preference_NotSet("libdir"));
  EXPECT_TRUE(Preference_NotSet("disableUserPreferences"));
  Preference_SetFromString("a=5", true);
  EXPECT_FALSE(Preference_NotSet("a"));
}

// ---- The command line's layer

TEST_F(Preference, CommandLineReplacesItsValues) {
  Start();
  Preference_SetFromString("a=1=2", true);
  EXPECT_EQ(Take(Preference_GetString(nullptr, "a")), "1=2");
  Preference_SetFromString("A=three", true);
  EXPECT_EQ(Take(Preference_GetString(nullptr, "a")), "three");
  Preference_SetFromString("b", true);
  EXPECT_EQ(Take(Preference_GetString(nullptr, "b")), "");
  Preference_SetFromString("c=", true);
  EXPECT_EQ(Take(Preference_GetString(nullptr, "c")), "");
}

TEST_F(Preference, CommandLineKeepsItsValuesWhenToldSo) {
  Start();
  Logged();
  Preference_SetFromString("a=1", false);
  EXPECT_EQ(Logged(), "");
  testing::internal::CaptureStderr();
  Preference_SetFromString("a=2", false);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("Variable \"a\" is already defined.\n"));
  EXPECT_TRUE(HasLogged("[msg.dictionary.alreadyDefined.string] Variable \"a\" is already defined.\n"));
  EXPECT_EQ(Preference_GetLong(0, "a"), 1);
}

TEST_F(Preference, CommandLineKnowsNoOtherLayersValues) {
  WriteFile(kUserPreferences, "a = 1\n");
  Start();
  Logged();
  Preference_SetFromString("a=2", false);
  EXPECT_EQ(Logged(), "");
  EXPECT_EQ(Preference_GetLong(0, "a"), 2);
}

// ---- The log

TEST_F(Preference, LogsTheFilesNames) {
  Preference_LogFileNames();
  Preference_LogAll();
  Preference_DisablePolling();
  Preference_LogFileNames();
  Preference_LogAll();
  EXPECT_EQ(Logged(), "");
  WriteFile(kHostDefaults, "libdir = /opt\n");
  ASSERT_TRUE(Preference_Init());
  Logged();
  Preference_LogFileNames();
  EXPECT_EQ(Logged(),
            "Preference GLOBAL_SETTINGS found at /opt/settings\n"
            "Preference USER_PREFERENCES found at /home/person/.ostrel/preferences\n"
            "Preference USER_DEFAULTS found at /home/person/.ostrel/config\n"
            "Preference HOST_DEFAULTS found at /etc/ostrel/config\n"
            "Preference SITE_DEFAULTS found at /opt/config\n");
}

TEST_F(Preference, LogsTheValues) {
  WriteFile(kSettings, "a = settings\n");
  WriteFile(kUserPreferences, "b = preferences\n");
  WriteFile(kUserDefaults, "c = user\n");
  WriteFile(kHostDefaults, "d = 7\n");
  WriteFile(kSiteDefaults, "e = site\n");
  Start();
  EXPECT_EQ(Preference_GetLong(0, "d"), 7);
  EXPECT_EQ(Preference_GetLong(9, "planted"), 9);
  Logged();
  Preference_LogAll();
  EXPECT_EQ(Logged(),
            "DICT --- USER PREFERENCES /home/person/.ostrel/preferences \n"
            "DICT                         b = preferences\n"
            "DICT --- USER DEFAULTS /home/person/.ostrel/config \n"
            "DICT                         c = user\n"
            "DICT --- HOST DEFAULTS /etc/ostrel/config \n"
            "DICT                         d = 7\n"
            "DICT --- SITE DEFAULTS /usr/lib/ostrel/config \n"
            "DICT                         e = site\n");
}

TEST_F(Preference, LogsNoPathWhereThereIsNone) {
  ASSERT_EQ(setresuid(1234, 0, 0), 0);
  Start();
  Logged();
  Preference_LogAll();
  EXPECT_EQ(Logged(),
            "DICT --- USER PREFERENCES\n"
            "DICT --- USER DEFAULTS\n"
            "DICT --- HOST DEFAULTS /etc/ostrel/config \n"
            "DICT --- SITE DEFAULTS /usr/lib/ostrel/config \n");
}

// ---- Generated tables

// Six maps, one above the other, that know what a key is to answer. A key's name begins with its type.
class Model {
 public:
  enum : size_t { kCommandLine = 1, kLayers = 6 };

  explicit Model(unsigned seed) : random_(seed) {
    for (std::map<std::string, std::string> &layer : layers_) {
      for (int i = Pick(30); i > 0; i--) {
        const std::string key = Key();
        layer[key] = Value(key[0]);
      }
    }
  }

  int Pick(int count) { return std::uniform_int_distribution<int>(0, count - 1)(random_); }
  std::string Key() { return std::string(1, "bls"[Pick(3)]) + "." + std::to_string(Pick(20)); }
  std::string Value(char type) {
    const char *const booleans[] = {"yes", "FALSE", "1", "0", "on", "off", "", "maybe"};
    const char *const longs[] = {"0", "-7", "0x1F", "017", "2147483647", "x", "8 "};
    const char *const strings[] = {"", "text", "yes", "7", "a#b", "a|7Cb"};
    switch (type) {
      case 'b':
        return booleans[Pick(std::size(booleans))];
      case 'l':
        return longs[Pick(std::size(longs))];
      default:
        return strings[Pick(std::size(strings))];
    }
  }

  // The text of a layer's file.
  std::string File(size_t layer) const {
    std::string text = "# generated\n";
    for (const auto &[key, value] : layers_[layer]) {
      text.append(key).append(" = \"").append(value).append("\"\n");
    }
    return text;
  }
  const std::map<std::string, std::string> &Layer(size_t layer) const { return layers_[layer]; }

  // What is to be answered; the first default of a key is kept.
  std::string Answer(const std::string &key, const std::string &defaultValue) {
    for (const std::map<std::string, std::string> &layer : layers_) {
      const auto found = layer.find(key);
      if (found != layer.end()) {
        return Typed(key, found->second, defaultValue);
      }
    }
    return planted_.try_emplace(key, defaultValue).first->second;
  }
  bool IsNotSet(const std::string &key) const {
    return std::none_of(layers_.begin(), layers_.end(),
                        [&key](const auto &layer) { return layer.contains(key); });
  }

 private:
  // A bad value stands for the default of its first read.
  std::string Typed(const std::string &key, const std::string &value, const std::string &defaultValue) {
    static const std::map<std::string, std::string> booleans = {
        {"yes", "1"}, {"FALSE", "0"}, {"1", "1"}, {"0", "0"}, {"on", "1"}, {"off", "0"}, {"", "1"}};
    static const std::map<std::string, std::string> longs = {
        {"0", "0"}, {"-7", "-7"}, {"0x1F", "31"}, {"017", "15"}, {"2147483647", "2147483647"}};
    if (key[0] == 's') {
      return value == "a|7Cb" ? "a|b" : value;
    }
    const auto &known = key[0] == 'b' ? booleans : longs;
    const auto found = known.find(value);
    return found != known.end() ? found->second : planted_.try_emplace(key, defaultValue).first->second;
  }

  std::mt19937 random_;
  std::array<std::map<std::string, std::string>, kLayers> layers_;
  std::map<std::string, std::string> planted_;
};

std::string Read(const std::string &key, const std::string &defaultValue) {
  switch (tolower(key[0])) {
    case 'b':
      return Preference_GetBool(defaultValue == "1", key.c_str()) ? "1" : "0";
    case 'l':
      return std::to_string(Preference_GetLong(std::stoi(defaultValue), key.c_str()));
    default:
      return Take(Preference_GetString(defaultValue.c_str(), key.c_str()));
  }
}

TEST_F(Preference, AnswersAsSixMapsOneAboveTheOther) {
  const char *const files[] = {kSettings,     nullptr,       kUserPreferences,
                               kUserDefaults, kHostDefaults, kSiteDefaults};
  Log_SetQuietWarnings(true);
  testing::internal::CaptureStderr();
  for (unsigned seed = 0; seed < 60; seed++) {
    Model model(seed);
    for (size_t layer = 0; layer < Model::kLayers; layer++) {
      if (files[layer] != nullptr) {
        WriteFile(files[layer], model.File(layer));
      }
    }
    Start();
    for (const auto &[key, value] : model.Layer(Model::kCommandLine)) {
      // A value of the command line isn't unescaped.
      Preference_SetFromString((key + "=" + (value == "a|7Cb" ? "a|b" : value)).c_str(), model.Pick(2) == 0);
    }
    for (int i = 0; i < 200; i++) {
      const std::string key = model.Key();
      std::string asked = key;
      asked[0] = model.Pick(2) == 0 ? key[0] : static_cast<char>(toupper(key[0]));
      const std::string defaultValue = key[0] == 's' ? "default" : std::to_string(model.Pick(2));
      ASSERT_EQ(Preference_NotSet(asked.c_str()), model.IsNotSet(key)) << seed << " " << key;
      const std::string answer = model.Answer(key, defaultValue);
      ASSERT_EQ(Read(asked, defaultValue), answer) << seed << " " << key;
    }
    Preference_Exit();
  }
  testing::internal::GetCapturedStderr();
}

}  // namespace
