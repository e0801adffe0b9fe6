#include "display.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>

#include "runInt.h"

namespace testhost {
namespace {

using testing::ExitedWithCode;
using testing::HasSubstr;
using testing::Not;

constexpr char kTitle[] = "A message, with  blanks";

// Shows a message with two buttons, the first of which ends it with status 3 and the second, which the Return
// key chooses, with 4.
class Message {
 public:
  explicit Message(const std::string &title = kTitle) : process_(fork()) {
    if (process_ == 0) {
      execlp("xmessage", "xmessage", "-title", title.c_str(), "-buttons", "first:3,second:4", "-default",
             "second", "text", nullptr);
      _exit(127);
    }
  }
  int Status() const {
    int status = 0;
    waitpid(process_, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t process_;
};

Host EnteredHost() {
  Host host;
  host.Enter();
  return host;
}

class DisplayTest : public testing::Test {
 private:
  const Host host_ = EnteredHost();

 protected:
  Display display_;
};

TEST_F(DisplayTest, KnowsItsWindowsByTheirWholeTitles) {
  EXPECT_FALSE(display_.HasWindow(kTitle));
  const Message message;
  EXPECT_TRUE(display_.WaitForWindow(kTitle, 10));
  EXPECT_TRUE(display_.HasWindow(kTitle));
  EXPECT_FALSE(display_.HasWindow("A message"));
  EXPECT_FALSE(display_.HasWindow("A message, with blanks"));
  EXPECT_FALSE(display_.HasWindow("a message, with  blanks"));
  EXPECT_FALSE(display_.WaitForNoWindow(kTitle, 0.1));
}

TEST_F(DisplayTest, WaitsNoLongerThanAsked) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(display_.WaitForWindow(kTitle, 0.3));
  const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
  EXPECT_GE(passed.count(), 0.3);
  EXPECT_LT(passed.count(), 5);
}

TEST_F(DisplayTest, PressesKeysInTheWindow) {
  const Message message;
  ASSERT_TRUE(display_.WaitForWindow(kTitle, 10));
  display_.Keys(kTitle, "a Return");
  EXPECT_EQ(message.Status(), 4);
  EXPECT_TRUE(display_.WaitForNoWindow(kTitle, 10));
}

TEST_F(DisplayTest, PressesKeysInTheWindowThatIsBehind) {
  const Message behind("behind");
  ASSERT_TRUE(display_.WaitForWindow("behind", 10));
  const Message front("front");
  ASSERT_TRUE(display_.WaitForWindow("front", 10));
  display_.Keys("behind", "Return");
  EXPECT_EQ(behind.Status(), 4);
  EXPECT_TRUE(display_.HasWindow("front"));
}

TEST_F(DisplayTest, ClicksWhereItIsTold) {
  const Message message;
  ASSERT_TRUE(display_.WaitForWindow(kTitle, 10));
  // The first button is at the lower left corner.
  const std::string height =
      OutputOf("xwininfo -name '" + std::string(kTitle) + "' | sed -n 's/ *Height: //p'");
  display_.Click(kTitle, 15, std::stoi(height) - 15);
  EXPECT_EQ(message.Status(), 3);
}

TEST_F(DisplayTest, TypesAsAPersonDoes) {
  // The event tester prints what it receives and whether it was made up by another client.
  ASSERT_EQ(testhost::Run("xev -name typing -event keyboard >/tmp/events 2>&1 &"), 0);
  ASSERT_TRUE(display_.WaitForWindow("typing", 10));
  display_.Type("typing", "aZ $'");
  for (int i = 0; i < 250 && ReadFile("/tmp/events").find("apostrophe") == std::string::npos; ++i) {
    usleep(20000);
  }
  const std::string events = OutputOf("grep -A3 '^KeyPress' /tmp/events");
  for (const char *key : {"keysym 0x61, a", "keysym 0x5a, Z", "keysym 0x20, space", "keysym 0x24, dollar",
                          "keysym 0x27, apostrophe"}) {
    EXPECT_THAT(events, HasSubstr(key));
  }
  EXPECT_THAT(events, HasSubstr("synthetic NO"));
  EXPECT_THAT(events, Not(HasSubstr("synthetic YES")));
}

TEST_F(DisplayTest, ClosesAWindow) {
  const Message message;
  ASSERT_TRUE(display_.WaitForWindow(kTitle, 10));
  display_.CloseWindow(kTitle);
  EXPECT_TRUE(display_.WaitForNoWindow(kTitle, 10));
  EXPECT_NE(message.Status(), 4);
}

TEST_F(DisplayTest, TakesAPictureOfWhatIsShown) {
  display_.Screenshot("/tmp/empty.png");
  const Message message;
  ASSERT_TRUE(display_.WaitForWindow(kTitle, 10));
  display_.Screenshot("/tmp/it's a window.png");
  EXPECT_EQ(OutputOf("identify -format '%m %w %h' /tmp/empty.png"), "PNG 1280 1024");
  EXPECT_EQ(OutputOf("identify -format '%m %w %h' \"/tmp/it's a window.png\""), "PNG 1280 1024");
  EXPECT_NE(ReadFile("/tmp/empty.png"), ReadFile("/tmp/it's a window.png"));
}

TEST_F(DisplayTest, IsGoneAtOnceWhenKilled) {
  const Message message;
  ASSERT_TRUE(display_.WaitForWindow(kTitle, 10));
  display_.Kill();
  EXPECT_FALSE(display_.HasWindow(kTitle));
  EXPECT_EQ(message.Status(), 1);
}

TEST_F(DisplayTest, FailsWhenItsWindowIsNotThere) {
  EXPECT_EXIT(display_.Keys("nothing", "Return"), ExitedWithCode(125), "no window has the title \"nothing\"");
  EXPECT_EXIT(display_.Click("nothing", 1, 1), ExitedWithCode(125), "no window has the title \"nothing\"");
}

TEST(Display, EndsWithTheObject) {
  Host host;
  host.Enter();
  {
    const Display display;
    EXPECT_EQ(testhost::Run("wmctrl -m >/dev/null"), 0);
  }
  EXPECT_NE(testhost::Run("wmctrl -m >/dev/null 2>&1"), 0);
  EXPECT_EQ(OutputOf("pgrep -x 'Xvfb|openbox'"), "");
}

TEST(Display, WorksForAnotherUser) {
  Host host;
  host.User(1234).File("/etc/sudoers.d/test", "user1234 ALL=(ALL) NOPASSWD: ALL\n", 0440);
  host.Enter();
  Display display;
  const Message message;
  ASSERT_TRUE(display.WaitForWindow(kTitle, 10));
  EXPECT_EQ(testhost::Run("sudo -n DISPLAY=$DISPLAY wmctrl -l | grep -q blanks"), 0) << "root can use it too";
}

TEST(Display, IsNotStartedOutsideAHost) {
  EXPECT_EXIT(Display(), ExitedWithCode(125), "testhost: a display needs a host");
}

TEST(Display, IsNotStartedWithoutAServer) {
  const auto start = [] {
    Host host;
    host.NoProgram("Xvfb").Enter();
    const Display display;
  };
  EXPECT_EXIT(start(), ExitedWithCode(125), "testhost: Xvfb did not start");
}

}  // namespace
}  // namespace testhost
