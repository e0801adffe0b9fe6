// The timer in the event loop itself.
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
};

TEST_F(PreferencePoll, ReadsTheUsersPreferencesAgainAndAgain) {
  ASSERT_TRUE(Preference_Init());
  EXPECT_EQ(Preference_GetLong(0, "a"), 0);
  WriteFile(kUserPreferences, "a = 1\n");
  Turn(1200000);
  EXPECT_EQ(Preference_GetLong(0, "a"), 1);
  WriteFile(kUserPreferences, "a = 2\n");
  Turn(1200000);
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
