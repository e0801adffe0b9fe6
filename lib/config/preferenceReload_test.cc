// The timer that reads the user's preferences again, in a loop that the test turns itself.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>

#include <optional>
#include <vector>

#include "ostpoll.h"
#include "pollImpl.h"
#include "preferenceTestInt.h"
#include "systemCalls.h"

namespace {

// What the clock has gone on by at each reading, in microseconds; the host's clock is read when there is
// nothing.
std::optional<int64_t> clockStep;
int64_t clockNow = 1700000000000000;

}  // namespace

// A stand-in for the C library's, since a slow tick can't be had.
extern "C" int gettimeofday(timeval *time, void * /*zone*/) noexcept {
  if (!clockStep) {
    return static_cast<int>(syscall(SYS_gettimeofday, time, nullptr));
  }
  clockNow += *clockStep;
  *time = {clockNow / 1000000, clockNow % 1000000};
  return 0;
}

namespace {

using preferencetest::kHostDefaults;
using preferencetest::kUserPreferences;
using testhost::WriteFile;
using testing::HasSubstr;

constexpr int kSecond = 1000000;

struct Registration {
  PollClassSet classSet;
  unsigned flags;
  PollFn func;
  void *clientData;
  int type;
  int delay;
  bool areSettingsUp;
};
std::vector<Registration> registrations;

void Nothing() {}

void Loop(bool /*loop*/, const volatile bool * /*exit*/, unsigned /*eventClass*/, int /*timeoutMicro*/) {}

void Add(PollClassSet classSet, unsigned flags, PollFn func, void *clientData, int type, int info,
         void *lock) {
  EXPECT_EQ(lock, nullptr);
  registrations.push_back({classSet, flags, func, clientData, type, info, !Preference_NotSet("up")});
}

bool Remove(PollClassSet classSet, unsigned flags, PollFn func, void *clientData, int type) {
  return std::erase_if(registrations, [=](const Registration &one) {
           return PollClassSet_Equal(one.classSet, classSet) && one.flags == flags && one.func == func &&
                  one.clientData == clientData && one.type == type;
         }) == 1;
}

bool RemoveOne(PollClassSet /*classSet*/, unsigned /*flags*/, PollFn /*func*/, int /*type*/,
               void ** /*clientData*/) {
  return false;
}

constexpr PollImpl kLoop = {Nothing, Nothing, Loop, Add, Remove, RemoveOne};

class PreferenceReload : public preferencetest::SettingsHost {
 protected:
  void SetUp() override {
    SettingsHost::SetUp();
    Poll_Install(&kLoop);
  }
  void TearDown() override {
    SettingsHost::TearDown();
    Poll_Exit();
    EXPECT_TRUE(registrations.empty());
  }

  // Writes the file with a time of change of its own.
  void Write(const std::string &content) {
    WriteFile(kUserPreferences, content);
    Stamp(++time_);
  }
  static void Stamp(time_t time) {
    const struct timespec times[2] = {{time, 0}, {time, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, kUserPreferences, times, 0), 0);
  }
  void StartWith(const std::string &content) {
    Write(content);
    ASSERT_TRUE(Preference_Init());
    Logged();
  }
  // Fires the timer, which is gone then.
  static void Tick() {
    ASSERT_EQ(registrations.size(), 1U);
    const Registration timer = registrations[0];
    registrations.clear();
    timer.func(timer.clientData);
  }
  static int Delay() { return registrations.size() == 1 ? registrations[0].delay : -1; }

 private:
  time_t time_ = 1600000000;
};

TEST_F(PreferenceReload, TimerIsArmedOnceTheSettingsAreUp) {
  WriteFile(kHostDefaults, "up = 1\n");
  ASSERT_TRUE(Preference_Init());
  ASSERT_EQ(registrations.size(), 1U);
  EXPECT_TRUE(registrations[0].areSettingsUp);
  EXPECT_EQ(registrations[0].type, POLL_TYPE_TIMER);
  EXPECT_EQ(registrations[0].flags & POLL_FLAG_PERIODIC, 0U);
  EXPECT_TRUE(PollClassSet_Equal(registrations[0].classSet, PollClassSet_Singleton(POLL_CLASS_MAIN)));
  EXPECT_EQ(registrations[0].delay, kSecond);
  Tick();
  EXPECT_EQ(registrations.size(), 1U);
  Preference_Exit();
  EXPECT_TRUE(registrations.empty());
}

TEST_F(PreferenceReload, NoTimerIsArmedWhenPollingIsDisabled) {
  Preference_DisablePolling();
  ASSERT_TRUE(Preference_Init());
  EXPECT_TRUE(registrations.empty());
  Preference_Exit();
  Preference_DisableUserPreferences();
  ASSERT_TRUE(Preference_Init());
  EXPECT_TRUE(registrations.empty());
}

TEST_F(PreferenceReload, ChangedFileIsMerged) {
  StartWith("a = 1\nb = 2\n");
  EXPECT_EQ(Preference_GetLong(0, "a"), 1);
  EXPECT_EQ(Preference_GetLong(5, "c"), 5);
  Write("a = 11\nc = 7\nd = 8\n");
  Tick();
  EXPECT_EQ(Preference_GetLong(0, "a"), 11);
  EXPECT_EQ(Preference_GetLong(0, "b"), 2);
  EXPECT_EQ(Preference_GetLong(0, "c"), 7);
  EXPECT_EQ(Preference_GetLong(0, "d"), 8);
  EXPECT_FALSE(Preference_NotSet("c"));
  EXPECT_EQ(Logged(), "");
}

TEST_F(PreferenceReload, BadValueOfAKeyThatWasReadCountsAsFarAsItGoes) {
  StartWith("a = 1\n");
  EXPECT_EQ(Preference_GetLong(5, "a"), 1);
  EXPECT_EQ(Preference_GetLong(5, "b"), 5);
  Write("a = 12monkeys\nb = many\nc = many\n");
  testing::internal::CaptureStderr();
  Tick();
  const std::string shown = testing::internal::GetCapturedStderr();
  EXPECT_THAT(shown, HasSubstr("Value \"12monkeys\" for variable \"a\" is not a valid integer value. Using "
                               "value \"12\".\n"));
  EXPECT_THAT(shown, HasSubstr("Value \"many\" for variable \"b\" is not a valid integer value. Using value "
                               "\"0\".\n"));
  EXPECT_EQ(Preference_GetLong(5, "a"), 12);
  EXPECT_EQ(Preference_GetLong(5, "b"), 0);
  // Nobody has read this one yet.
  EXPECT_EQ(Preference_GetLong(5, "c"), 5);
}

TEST_F(PreferenceReload, FileThatIsOlderThanBeforeIsMergedToo) {
  StartWith("a = 1\n");
  WriteFile(kUserPreferences, "a = 2\n");
  Stamp(1000);
  Tick();
  EXPECT_EQ(Preference_GetLong(0, "a"), 2);
}

TEST_F(PreferenceReload, FileOfTheSameTimeIsNotReadAgain) {
  StartWith("a = 1\n");
  struct stat before {};
  ASSERT_EQ(stat(kUserPreferences, &before), 0);
  WriteFile(kUserPreferences, "a = 2\n");
  Stamp(before.st_mtime);
  Tick();
  EXPECT_EQ(Preference_GetLong(0, "a"), 1);
}

TEST_F(PreferenceReload, FileThatAppearsIsRead) {
  ASSERT_TRUE(Preference_Init());
  Logged();
  Tick();
  EXPECT_EQ(Logged(), "");
  Write("a = 1\n");
  Tick();
  EXPECT_EQ(Preference_GetLong(0, "a"), 1);
}

TEST_F(PreferenceReload, FileThatGoesAwayChangesNothing) {
  StartWith("a = 1\n");
  ASSERT_EQ(unlink(kUserPreferences), 0);
  Tick();
  EXPECT_EQ(Preference_GetLong(0, "a"), 1);
  EXPECT_EQ(Logged(), "");
}

TEST_F(PreferenceReload, OnlyTheUsersPreferencesAreReadAgain) {
  StartWith("a = 1\n");
  WriteFile(kHostDefaults, "b = 1\n");
  WriteFile(preferencetest::kUserDefaults, "c = 1\n");
  Tick();
  EXPECT_EQ(Preference_GetLong(0, "b"), 0);
  EXPECT_EQ(Preference_GetLong(0, "c"), 0);
}

TEST_F(PreferenceReload, UserWithoutPreferencesHasNothingToRead) {
  WriteFile(kHostDefaults, "disableUserPreferences = yes\n");
  StartWith("a = 1\n");
  Write("a = 2\n");
  clockStep = 0;
  Tick();
  EXPECT_EQ(Preference_GetLong(0, "a"), 0);
  EXPECT_EQ(Delay(), kSecond);
}

TEST_F(PreferenceReload, BadFileIsLoggedAndChangesNothing) {
  StartWith("a = 1\n");
  Write("a = 2\n?\n");
  testing::internal::CaptureStderr();
  Tick();
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_FALSE(Msg_Present());
  const std::string log = Logged();
  EXPECT_THAT(log, HasSubstr("line 2: Syntax error.\n"));
  EXPECT_THAT(log, testing::EndsWith("PREF Failed to load 1 time(s).\n"));
  EXPECT_EQ(Preference_GetLong(0, "a"), 1);
  Tick();
  EXPECT_TRUE(HasLogged("PREF Failed to load 2 time(s).\n"));
  // A good file ends the count.
  Write("a = 3\n");
  Tick();
  EXPECT_EQ(Preference_GetLong(0, "a"), 3);
  Write("?\n");
  Tick();
  EXPECT_TRUE(HasLogged("PREF Failed to load 1 time(s).\n"));
}

TEST_F(PreferenceReload, UserIsToldOnceThatAFileStaysBad) {
  StartWith("a = 1\n");
  for (int turn = 0; turn < 2; turn++) {
    Write("?\n");
    testing::internal::CaptureStderr();
    for (int failure = 1; failure < 60; failure++) {
      Tick();
      ASSERT_EQ(LoggedLines("PREF"), "PREF Failed to load " + std::to_string(failure) + " time(s).\n");
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    testing::internal::CaptureStderr();
    Tick();
    const std::string shown = testing::internal::GetCapturedStderr();
    EXPECT_THAT(shown, HasSubstr("line 1: Syntax error.\n"));
    EXPECT_THAT(shown, HasSubstr("Unable to read user preferences.\n"));
    const std::string log = Logged();
    EXPECT_THAT(log, HasSubstr("Msg_Post: Error\n"));
    EXPECT_THAT(log, HasSubstr("[msg.preference.readFailed] Unable to read user preferences.\n"));
    EXPECT_THAT(log, testing::Not(HasSubstr("PREF")));
    EXPECT_FALSE(Msg_Present());
    // It isn't tried again until it changes.
    Tick();
    Tick();
    EXPECT_EQ(Logged(), "");
    EXPECT_EQ(Preference_GetLong(0, "a"), 1);
  }
  Write("a = 2\n");
  Tick();
  EXPECT_EQ(Preference_GetLong(0, "a"), 2);
}

TEST_F(PreferenceReload, FileThatWasBadAtTheStartIsTriedAgain) {
  StartWith("?\n");
  Tick();
  EXPECT_TRUE(HasLogged("PREF Failed to load 1 time(s).\n"));
}

TEST_F(PreferenceReload, FileWhoseTimeIsUnknownIsReadAgain) {
  Write("a = 1\n");
  testhost::SystemCalls calls({SYS_newfstatat});
  calls.Fail(SYS_newfstatat, EACCES, {.first = static_cast<uint32_t>(AT_FDCWD)});
  ASSERT_TRUE(Preference_Init());
  calls.Clear();
  EXPECT_EQ(Preference_GetLong(0, "a"), 1);
  struct stat before {};
  ASSERT_EQ(stat(kUserPreferences, &before), 0);
  WriteFile(kUserPreferences, "a = 2\n");
  Stamp(before.st_mtime);
  Tick();
  EXPECT_EQ(Preference_GetLong(0, "a"), 2);
}

TEST_F(PreferenceReload, FileWhoseNewTimeIsUnknownKeepsTheOldOne) {
  StartWith("a = 1\n");
  struct stat before {};
  ASSERT_EQ(stat(kUserPreferences, &before), 0);
  Write("a = 2\n");
  testhost::SystemCalls calls({SYS_newfstatat});
  calls.Fail(SYS_newfstatat, EACCES, {.from = 1, .first = static_cast<uint32_t>(AT_FDCWD)});
  Tick();
  calls.Clear();
  EXPECT_EQ(Preference_GetLong(0, "a"), 2);
  WriteFile(kUserPreferences, "a = 3\n");
  Stamp(before.st_mtime);
  Tick();
  EXPECT_EQ(Preference_GetLong(0, "a"), 2);
}

TEST_F(PreferenceReload, FileBehindALinkIsTheOneWhoseTimeCounts) {
  constexpr char kFile[] = "/home/person/file";
  WriteFile(kFile, "a = 1\n");
  ASSERT_EQ(symlink(kFile, kUserPreferences), 0);
  Stamp(1000);
  ASSERT_TRUE(Preference_Init());
  WriteFile(kFile, "a = 2\n");
  Stamp(1000);
  Tick();
  EXPECT_EQ(Preference_GetLong(0, "a"), 1);
  Stamp(1001);
  Tick();
  EXPECT_EQ(Preference_GetLong(0, "a"), 2);
}

TEST_F(PreferenceReload, FileThatCannotBeLookedAtChangesNothing) {
  StartWith("a = 1\n");
  Write("a = 2\n");
  testhost::SystemCalls calls({SYS_newfstatat});
  calls.Fail(SYS_newfstatat, EACCES, {.first = static_cast<uint32_t>(AT_FDCWD)});
  clockStep = 0;
  Tick();
  calls.Clear();
  EXPECT_EQ(Preference_GetLong(0, "a"), 1);
  EXPECT_EQ(Delay(), kSecond);
  Tick();
  EXPECT_EQ(Preference_GetLong(0, "a"), 2);
}

TEST_F(PreferenceReload, DelayFollowsTheMeanOfTheTicks) {
  StartWith("a = 1\n");
  clockStep = 100000;
  Tick();
  EXPECT_EQ(Delay(), 2500000);
  Tick();
  EXPECT_EQ(Delay(), 4375000);
  clockStep = 0;
  Tick();
  EXPECT_EQ(Delay(), 3281250);
  for (int turn = 0; turn < 20; turn++) {
    Tick();
  }
  EXPECT_EQ(Delay(), kSecond);
}

TEST_F(PreferenceReload, DelayCountsTheTimeOfTheLoad) {
  StartWith("a = 1\n");
  Write("?\n");
  clockStep = 0;
  static const int64_t later = clockNow + 100000;
  Log_RegisterFunctions([](const char * /*format*/, va_list /*args*/) { clockNow = later; }, nullptr);
  Tick();
  Log_RegisterFunctions(nullptr, nullptr);
  EXPECT_EQ(Delay(), 2500000);
}

TEST_F(PreferenceReload, DelayIsFractionsOfAMillisecondToo) {
  StartWith("a = 1\n");
  clockStep = 40010;
  Tick();
  EXPECT_EQ(Delay(), 1000250);
}

TEST_F(PreferenceReload, DelayIsAQuarterOfAnHourAtMost) {
  StartWith("a = 1\n");
  clockStep = int64_t{35999} * 1000;
  Tick();
  EXPECT_EQ(Delay(), 899975000);
  clockStep = int64_t{3600} * kSecond;
  Tick();
  EXPECT_EQ(Delay(), 900 * kSecond);
}

}  // namespace
