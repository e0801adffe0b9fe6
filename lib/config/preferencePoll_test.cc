// The timer in the event loop itself.
#include <fcntl.h>
#include <sys/stat.h>

#include "ostpoll.h"
#include "preferenceTestInt.h"

namespace {

using preferencetest::kUserPreferences;
using testhost::WriteFile;

class PreferencePoll : public preferencetest::SettingsHost {
 protected:
  void SetUp() override {
    SettingsHost::SetUp();
    Poll_InitDefault();
  }
  void TearDown() override {
    SettingsHost::TearDown();
    Poll_Exit();
  }

  // Turns the loop for as many microseconds as one timer needs, or that time alone.
  static void Turn(int timeoutMicro) {
    Poll_RunTimed(false, nullptr, POLL_CLASS_MAIN, timeoutMicro);
    Poll_RunTimed(false, nullptr, POLL_CLASS_MAIN, 0);
  }
  // A tick that a busy host makes slow puts off the next one.
  static void TurnUntilRead(int32_t value) {
    for (int turn = 0; turn < 20 && Preference_GetLong(0, "a") != value; turn++) {
      Turn(1200000);
    }
  }
  // Writes a file that is told from another by its time, though that is of the same second.
  static void Write(const std::string &content, time_t time) {
    WriteFile(kUserPreferences, content);
    const struct timespec times[2] = {{time, 0}, {time, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, kUserPreferences, times, 0), 0);
  }
};

TEST_F(PreferencePoll, ReadsTheUsersPreferencesAgainAndAgain) {
  ASSERT_TRUE(Preference_Init());
  EXPECT_EQ(Preference_GetLong(0, "a"), 0);
  Write("a = 1\n", 1600000001);
  TurnUntilRead(1);
  EXPECT_EQ(Preference_GetLong(0, "a"), 1);
  Write("a = 2\n", 1600000002);
  TurnUntilRead(2);
  EXPECT_EQ(Preference_GetLong(0, "a"), 2);
}

TEST_F(PreferencePoll, TimerIsGoneAtTheEnd) {
  ASSERT_TRUE(Preference_Init());
  Preference_Exit();
  WriteFile(kUserPreferences, "a = 1\n");
  Logged();
  Turn(1200000);
  EXPECT_EQ(Logged(), "");
}

TEST_F(PreferencePoll, NothingIsReadAgainWhenPollingIsDisabled) {
  Start();
  WriteFile(kUserPreferences, "a = 1\n");
  Turn(1200000);
  EXPECT_EQ(Preference_GetLong(0, "a"), 0);
}

}  // namespace
