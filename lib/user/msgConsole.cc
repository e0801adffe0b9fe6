// The built-in callbacks, which use the terminal.

#include <cstdio>
#include <optional>
#include <string>

#include "msgInt.h"
#include "productState.h"
#include "str.h"

namespace {

constexpr size_t kMaxLine = 1024;
constexpr size_t kProgressTextSize = 80;
constexpr int kProgressShown = 64;
constexpr int kProgressLine = 79;

// ---- Posts

// Raw, as warnings are, so that a terminal of any encoding gets the text.
void ConsolePost(int severity, const char *, const char *text) {
  const OwnedString output(
      Str_SafeAsprintf(nullptr, "\n%s %s:\n%s\n", ProductState_GetName(), MsgSeverityTitle(severity), text));
  fputs(output.get(), stderr);
}

// ---- Menus

// Prints to standard output, raw too.
void Print(const char *format, ...) __attribute__((format(printf, 1, 2)));
void Print(const char *format, ...) {
  va_list args;
  va_start(args, format);
  const OwnedString output(Str_SafeVasprintf(nullptr, format, args));
  va_end(args);
  fputs(output.get(), stdout);
}

void PrintHead(const char *titleFormat, const char *text) {
  Print("\n\n%s %s:\n%s\n", ProductState_GetName(), Msg_GetString(titleFormat), text);
}

void PrintItem(int number, const char *label) {
  Print("%d) %s\n", number, label);
}

void Prompt(int last) {
  const OwnedString prompt(Msg_Format(MSGID(msg.chooseNumber) "Select a number from 0-%d: ", last));
  fputs(prompt.get(), stdout);
  fflush(stdout);
}

// Reads a line without its LF. Nothing at the end of input, which a terminal may go on behind.
std::optional<std::string> ReadLine() {
  std::string line;
  for (;;) {
    const int c = getchar();
    if (c == EOF) {
      clearerr(stdin);
      return std::nullopt;
    }
    if (c == '\n') {
      return line;
    }
    if (line.size() < kMaxLine) {
      line += static_cast<char>(c);
    }
  }
}

// The number of a line that has nothing but its digits and blanks around them, if it is below `count`.
std::optional<int> ParseChoice(const std::string &line, int count) {
  static constexpr char kBlanks[] = " \t\r";
  const size_t begin = line.find_first_not_of(kBlanks);
  if (begin == std::string::npos || line.size() >= kMaxLine) {
    return std::nullopt;
  }
  const size_t end = line.find_last_not_of(kBlanks) + 1;
  int number = 0;
  for (size_t i = begin; i < end; i++) {
    const char digit = line[i];
    if (digit < '0' || digit > '9') {
      return std::nullopt;
    }
    number = number * 10 + (digit - '0');
    if (number >= count) {
      return std::nullopt;
    }
  }
  return number;
}

// There is no way out but a number: the default isn't taken, and the end of input doesn't end it.
int ConsoleQuestion(const char *const *names, int, const char *, const char *text) {
  PrintHead(MSGID(msg.question) "Question", text);
  int count = 0;
  for (; names[count] != nullptr; count++) {
    PrintItem(count, names[count]);
  }
  Print("\n");
  for (;;) {
    Prompt(count - 1);
    const std::optional<std::string> line = ReadLine();
    if (!line) {
      Print("\n");
      continue;
    }
    const std::optional<int> choice = ParseChoice(*line, count);
    if (choice) {
      return *choice;
    }
  }
}

// Reads a number and what follows it up to the LF. Returns -1 when there is none.
long ScanNumber() {
  long number = -1;
  // What doesn't fit becomes the largest long, which is no choice.
  if (scanf("%ld", &number) != 1) {
    number = -1;
  }
  int c = 0;
  while ((c = getchar()) != '\n' && c != EOF) {
  }
  if (c == EOF) {
    clearerr(stdin);
  }
  return number;
}

MsgHintResult ConsoleHint(int hintType, const char *, const char *text) {
  PrintHead(MSGID(msg.hint) "Hint", text);
  PrintItem(0, Msg_GetString(MSGID_BUTTON(ok) "OK"));
  if (hintType == MSG_HINT_TYPE_OK_CANCEL) {
    PrintItem(1, Msg_GetString(MSGID_BUTTON(cancel) "Cancel"));
  }
  Print("\n");
  long choice = -1;
  while (choice < 0 || choice > hintType) {
    Prompt(hintType);
    choice = ScanNumber();
  }
  return static_cast<MsgHintResult>(choice);
}

// ---- Progress

int ConsoleProgress(const char *, const char *text, int percent, bool) {
  static char current[kProgressTextSize];
  if (percent < 0) {
    Str_Sprintf(current, sizeof current, "%.*s", static_cast<int>(sizeof current - 1), text);
  }
  char shown[kProgressTextSize];
  Str_Sprintf(shown, sizeof shown, "%.*s (%d%%)", kProgressShown, current, percent);
  Print("\r%-*.*s", kProgressLine, kProgressLine, shown);
  if (percent > 100) {
    Print("\n");
  }
  fflush(stdout);
  return 0;
}

}  // namespace

const MsgCallback msgConsoleCallback = {
    .post = ConsolePost,
    .question = ConsoleQuestion,
    .progress = ConsoleProgress,
    .hint = ConsoleHint,
    .lazyProgressStart = nullptr,
    .lazyProgress = nullptr,
    .lazyProgressEnd = nullptr,
    .postList = nullptr,
    .questionList = nullptr,
    .progressList = nullptr,
    .hintList = nullptr,
    .lazyProgressStartList = nullptr,
};
