#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <csignal>
#include <functional>

#include "msgTestInt.h"

namespace {

constexpr int kPatienceMs = 10000;
constexpr char kEndOfInput[] = "\x04";
constexpr char kPrompt[] = "Select a number from 0-1: ";

// What a descriptor gives within `timeoutMs`, until it ends with `end`.
std::string ReadUntil(int fd, const std::string &end, int timeoutMs) {
  std::string text;
  char c = 0;
  pollfd ready = {fd, POLLIN, 0};
  while (!(text.ends_with(end) && !end.empty()) && poll(&ready, 1, timeoutMs) > 0 && read(fd, &c, 1) == 1) {
    text += c;
  }
  return text;
}

// A child at a real terminal, which leaves line ends alone and doesn't echo. The child's exit status is what
// `body` returns.
class Terminal {
 public:
  explicit Terminal(const std::function<int()> &body) {
    termios modes{};
    cfmakeraw(&modes);
    modes.c_lflag |= ICANON;
    modes.c_cflag |= CREAD;
    modes.c_cc[VEOF] = kEndOfInput[0];
    fflush(nullptr);
    child_ = forkpty(&master_, nullptr, &modes, nullptr);
    EXPECT_NE(child_, -1);
    if (child_ == 0) {
      const int status = body();
      fflush(nullptr);
      _exit(status);
    }
  }
  ~Terminal() {
    if (child_ > 0) {
      kill(child_, SIGKILL);
      waitpid(child_, nullptr, 0);
    }
    close(master_);
  }
  Terminal(const Terminal &) = delete;
  Terminal &operator=(const Terminal &) = delete;

  // Returns what is shown up to `end`.
  std::string ReadTo(const std::string &end) const { return ReadUntil(master_, end, kPatienceMs); }
  void Type(const std::string &text) const {
    EXPECT_EQ(write(master_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  // Types, and expects to be asked again.
  void TypeInVain(const std::string &text, const std::string &between = "") const {
    Type(text);
    EXPECT_EQ(ReadTo(kPrompt), between + kPrompt) << text;
  }
  // Types what ends the child. Returns its status.
  int TypeAndEnd(const std::string &text) {
    Type(text);
    EXPECT_EQ(ReadTo(""), "") << text;
    return End();
  }
  int End() {
    int status = 0;
    EXPECT_EQ(waitpid(child_, &status, 0), child_);
    EXPECT_TRUE(WIFEXITED(status));
    child_ = -1;
    return WEXITSTATUS(status);
  }

 private:
  pid_t child_ = -1;
  int master_ = -1;
};

class MsgConsole : public msgtest::MsgHost {
 protected:
  void SetUp() override {
    testhost::Host host;
    Enter("", &host);
  }
};

int AskYesNo() {
  static constexpr const char *kNames[] = {MSGID_BUTTON(yes) "_Yes", MSGID_BUTTON(no) "_No", nullptr};
  Msg_Append(MSGID(test.one) "It is full.\n");
  return Msg_Question(kNames, 0, MSGID(test.ask) "Go on with \"%s\"?\n", "x");
}

constexpr char kMenu[] =
    "\n\nOstrel Bench Question:\nIt is full.\nGo on with \"x\"?\n\n0) _Yes\n1) _No\n\n"
    "Select a number from 0-1: ";

TEST_F(MsgConsole, AsksByAMenu) {
  Terminal terminal(AskYesNo);
  EXPECT_EQ(terminal.ReadTo(kPrompt), kMenu);
  EXPECT_EQ(terminal.TypeAndEnd("1\n"), 1);
}

TEST_F(MsgConsole, TakesTheFirstAnswerToo) {
  Terminal terminal(AskYesNo);
  terminal.ReadTo(kPrompt);
  EXPECT_EQ(terminal.TypeAndEnd("0\n"), 0);
}

TEST_F(MsgConsole, TakesANumberAmongBlanks) {
  Terminal terminal(AskYesNo);
  terminal.ReadTo(kPrompt);
  EXPECT_EQ(terminal.TypeAndEnd(" \t\r0001\r \t\n"), 1);
}

TEST_F(MsgConsole, AsksAgainForWhatIsNoChoice) {
  Terminal terminal(AskYesNo);
  terminal.ReadTo(kPrompt);
  for (const char *text : {"\n", " \t\r\n", "x\n", "2\n", "-1\n", "+1\n", "1x\n", "1 1\n", "1.\n", "\v1\n",
                           "4294967297\n", "18446744073709551617\n", "yes\n"}) {
    terminal.TypeInVain(text);
  }
  terminal.TypeInVain(std::string("1\0\n", 3));
  EXPECT_EQ(terminal.TypeAndEnd("1\n"), 1);
}

TEST_F(MsgConsole, ALineHasAtMost1024Bytes) {
  Terminal terminal(AskYesNo);
  terminal.ReadTo(kPrompt);
  terminal.TypeInVain(std::string(1023, ' ') + "1\n");
  terminal.TypeInVain(std::string(3000, '0') + "\n");
  EXPECT_EQ(terminal.TypeAndEnd(std::string(1022, ' ') + "1\n"), 1);
}

TEST_F(MsgConsole, AsksAgainAtTheEndOfInput) {
  Terminal terminal(AskYesNo);
  terminal.ReadTo(kPrompt);
  terminal.TypeInVain(kEndOfInput, "\n");
  terminal.TypeInVain(kEndOfInput, "\n");
  // A line that isn't complete is none.
  terminal.TypeInVain(std::string("1") + kEndOfInput + kEndOfInput, "\n");
  EXPECT_EQ(terminal.TypeAndEnd("1\n"), 1);
}

// A child whose input has ended from the start.
class ChildWithoutInput {
 public:
  explicit ChildWithoutInput(const std::function<int()> &body) {
    int pipes[2];
    EXPECT_EQ(pipe(pipes), 0);
    fflush(nullptr);
    child_ = fork();
    if (child_ == 0) {
      const int empty = open("/dev/null", O_RDONLY);
      dup2(empty, STDIN_FILENO);
      dup2(pipes[1], STDOUT_FILENO);
      _exit(body());
    }
    close(pipes[1]);
    out_ = pipes[0];
  }
  ~ChildWithoutInput() {
    if (child_ > 0) {
      kill(child_, SIGKILL);
      waitpid(child_, nullptr, 0);
    }
    close(out_);
  }
  ChildWithoutInput(const ChildWithoutInput &) = delete;
  ChildWithoutInput &operator=(const ChildWithoutInput &) = delete;

  std::string ReadTo(const std::string &end) const { return ReadUntil(out_, end, kPatienceMs); }
  // Whether it goes on asking, with `again`, and never ends.
  [[nodiscard]] bool AsksForEver(const std::string &again) const {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(300);
    while (std::chrono::steady_clock::now() < end) {
      if (ReadTo(again) != again) {
        return false;
      }
    }
    return waitpid(child_, nullptr, WNOHANG) == 0;
  }

 private:
  pid_t child_ = -1;
  int out_ = -1;
};

TEST_F(MsgConsole, NeverReturnsFromAQuestionAtTheEndOfStandardInput) {
  const ChildWithoutInput child(AskYesNo);
  EXPECT_EQ(child.ReadTo(kPrompt), kMenu);
  EXPECT_TRUE(child.AsksForEver(std::string("\n") + kPrompt));
}

// ---- Hints

std::function<int()> Hint(int hintType) {
  return
      [hintType] { return static_cast<int>(Msg_Hint(false, hintType, MSGID(test.hint) "Try %s.\n", "it")); };
}

TEST_F(MsgConsole, HintsByAMenu) {
  Terminal terminal(Hint(MSG_HINT_TYPE_OK_CANCEL));
  EXPECT_EQ(terminal.ReadTo(kPrompt),
            std::string("\n\nOstrel Bench Hint:\nTry it.\n\n0) OK\n1) Cancel\n\n") + kPrompt);
  EXPECT_EQ(terminal.TypeAndEnd("1\n"), MSG_HINT_CANCEL);
}

TEST_F(MsgConsole, HintsWithOneChoice) {
  Terminal terminal(Hint(MSG_HINT_TYPE_OK));
  const std::string prompt = "Select a number from 0-0: ";
  EXPECT_EQ(terminal.ReadTo(prompt), "\n\nOstrel Bench Hint:\nTry it.\n\n0) OK\n\n" + prompt);
  terminal.Type("1\n");
  EXPECT_EQ(terminal.ReadTo(prompt), prompt);
  EXPECT_EQ(terminal.TypeAndEnd("0\n"), MSG_HINT_OK);
}

TEST_F(MsgConsole, AHintTakesTheNumberThatALineBeginsWith) {
  Terminal terminal(Hint(MSG_HINT_TYPE_OK_CANCEL));
  terminal.ReadTo(kPrompt);
  for (const char *text : {"x\n", "2\n", "-1\n", "4294967297\n", "18446744073709551616\n", "x 1\n"}) {
    terminal.TypeInVain(text);
  }
  terminal.TypeInVain(kEndOfInput);
  EXPECT_EQ(terminal.TypeAndEnd("\n \n 1x 7\n"), MSG_HINT_CANCEL);
}

TEST_F(MsgConsole, NeverReturnsFromAHintAtTheEndOfStandardInput) {
  const ChildWithoutInput child(Hint(MSG_HINT_TYPE_OK_CANCEL));
  child.ReadTo(kPrompt);
  EXPECT_TRUE(child.AsksForEver(kPrompt));
}

// ---- Progress

// A line of 79 columns.
std::string Line(const std::string &text) {
  return "\r" + text + std::string(79 - text.size(), ' ');
}

TEST_F(MsgConsole, OverwritesOneLineOfProgress) {
  Terminal terminal([] {
    int result = Msg_Progress(-1, false, MSGID(test.copy) "Copying %s", "x");
    result += Msg_Progress(0, false, nullptr);
    result += Msg_Progress(50, true, MSGID(test.other) "Not shown");
    result += Msg_Progress(100, false, nullptr);
    result += Msg_Progress(101, false, nullptr);
    result += Msg_Progress(-5, false, nullptr);
    return result + Msg_Progress(3, false, nullptr);
  });
  EXPECT_EQ(terminal.ReadTo(""), Line("Copying x (-1%)") + Line("Copying x (0%)") + Line("Copying x (50%)") +
                                     Line("Copying x (100%)") + Line("Copying x (101%)") + "\n" +
                                     Line(" (-5%)") + Line(" (3%)"));
  EXPECT_EQ(terminal.End(), 0);
}

TEST_F(MsgConsole, ShowsAtMost64BytesOfAText) {
  const std::string full(64, 'a');
  const std::string character = "\xc3\xa9";
  const Terminal terminal([&] {
    Msg_Progress(-1, false, MSGID(test.copy) "%s", (full + std::string(200, 'b')).c_str());
    Msg_Progress(INT_MIN, false, MSGID(test.copy) "%s", (full + "b").c_str());
    // A character isn't cut.
    Msg_Progress(-1, false, MSGID(test.copy) "%s", (full.substr(1) + character).c_str());
    return Msg_Progress(-1, false, MSGID(test.copy) "%s", std::string(200, '\xe9').c_str());
  });
  EXPECT_EQ(terminal.ReadTo(""), Line(full + " (-1%)") + Line(full + " (-2147483648%)") +
                                     Line(full.substr(1) + " (-1%)") +
                                     Line(std::string(63, '\xe9') + " (-1%)"));
}

TEST_F(MsgConsole, AProgressIsSeenAtOnce) {
  Terminal terminal([] {
    Msg_Progress(-1, false, MSGID(test.copy) "Copying");
    sleep(100);
    return 0;
  });
  EXPECT_EQ(terminal.ReadTo("  "), "\rCopying (-1%)  ");
}

// ---- The catalogue

TEST_F(MsgConsole, SpeaksTheLanguageOfTheCatalogue) {
  testhost::WriteFile("/t/catalogue",
                      "msg.msg.question = \"Frage\"\nmsg.msg.hint = \"Hinweis\"\nbutton.ok = \"Gut\"\n"
                      "button.yes = \"_Ja\"\nmsg.msg.chooseNumber = \"Zahl von 0-%d: \"\n"
                      "msg.test.ask = \"Weiter mit %s?|0A\"\n");
  ASSERT_TRUE(Msg_LoadMessageFile("de", "/t/catalogue"));
  Terminal question(AskYesNo);
  EXPECT_EQ(question.ReadTo("0-1: "),
            "\n\nOstrel Bench Frage:\nIt is full.\nWeiter mit x?\n\n0) _Ja\n1) _No\n\n"
            "Zahl von 0-1: ");
  EXPECT_EQ(question.TypeAndEnd("1\n"), 1);
  Terminal hint(Hint(MSG_HINT_TYPE_OK));
  EXPECT_EQ(hint.ReadTo("0-0: "), "\n\nOstrel Bench Hinweis:\nTry it.\n\n0) Gut\n\nZahl von 0-0: ");
}

}  // namespace
