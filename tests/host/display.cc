#include "display.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <sstream>
#include <thread>
#include <vector>

#include "rootInt.h"
#include "runInt.h"
#include "treeInt.h"

namespace testhost {

namespace {

constexpr auto kPollPeriod = std::chrono::milliseconds(20);
constexpr double kStartSeconds = 30;

template <typename Condition>
bool WaitUntil(double seconds, const Condition &condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= end) {
      return false;
    }
    std::this_thread::sleep_for(kPollPeriod);
  }
  return true;
}

// Starts a program with its output thrown away, but for `kept`, which becomes its descriptor 3.
pid_t Start(std::vector<std::string> command, int kept) {
  std::vector<char *> arguments;
  for (std::string &argument : command) {
    arguments.push_back(argument.data());
  }
  arguments.push_back(nullptr);
  const pid_t child = fork();
  Check(child, "cannot start " + command[0]);
  if (child == 0) {
    const int null = open("/dev/null", O_RDWR);
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
      dup2(null, standard);
    }
    if (kept >= 0) {
      dup2(kept, 3);
    }
    setpgid(0, 0);
    execvp(arguments[0], arguments.data());
    _exit(127);
  }
  return child;
}

void Stop(pid_t *process) {
  if (*process > 0) {
    kill(*process, SIGKILL);
    waitpid(*process, nullptr, 0);
  }
  *process = -1;
}

// The number of the display that the server at the other end of the pipe has taken.
std::string ReadDisplay(int pipe) {
  std::string number;
  char c = 0;
  pollfd ready = {pipe, POLLIN, 0};
  while (poll(&ready, 1, static_cast<int>(kStartSeconds * 1000)) > 0 && read(pipe, &c, 1) == 1 && c != '\n') {
    number += c;
  }
  if (number.empty()) {
    Fail("Xvfb did not start");
  }
  return ":" + number;
}

struct Window {
  std::string id;
  std::string title;
};

// The windows that the window manager shows, the newest last: from lines of an id, a desktop, a host and a
// title, of which only the title may hold blanks.
std::vector<Window> Windows() {
  std::string list;
  if (Run("exec wmctrl -l", &list) != 0) {
    return {};
  }
  std::vector<Window> windows;
  std::istringstream lines(list);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream fields(line);
    std::string id, skipped, title;
    fields >> id >> skipped >> skipped;
    fields.get();
    std::getline(fields, title);
    windows.push_back({id, title});
  }
  return windows;
}

// The id of the newest window with exactly this title, empty when there is none.
std::string FindWindow(const std::string &title) {
  std::string id;
  for (const Window &window : Windows()) {
    if (window.title == title) {
      id = window.id;
    }
  }
  return id;
}

std::string NeedWindow(const std::string &title) {
  const std::string id = FindWindow(title);
  if (id.empty()) {
    errno = ENOENT;
    Fail("no window has the title \"" + title + "\"");
  }
  return id;
}

void Need(const std::string &command) {
  std::string output;
  if (Run(command, &output) != 0) {
    errno = EIO;
    Fail("this failed: " + command + "\n" + output);
  }
}

// Gives a window the focus and waits until it has it.
void Activate(const std::string &title, const std::string &id) {
  Need("exec wmctrl -i -a " + id);
  const unsigned long window = std::stoul(id, nullptr, 0);
  const bool isActive = WaitUntil(kStartSeconds, [&] {
    std::string active;
    return Run("exec xdotool getactivewindow 2>/dev/null", &active) == 0 && std::stoul(active) == window;
  });
  if (!isActive) {
    errno = ETIMEDOUT;
    Fail("the window \"" + title + "\" does not get the focus");
  }
}

}  // namespace

Display::Display() {
  // Outside, nothing would end the server when a test dies.
  Check(access(kOwnDirectory, F_OK), "a display needs a host");
  int pipe[2];
  Check(pipe2(pipe, O_CLOEXEC), "cannot make a pipe");
  server_ = Start(
      {"Xvfb", "-displayfd", "3", "-screen", "0", "1280x1024x24", "-nolisten", "tcp", "-noreset", "-ac"},
      pipe[1]);
  close(pipe[1]);
  setenv("DISPLAY", ReadDisplay(pipe[0]).c_str(), 1);
  close(pipe[0]);
  // The toolkit would look for an accessibility service, which takes seconds where there is none.
  setenv("NO_AT_BRIDGE", "1", 1);
  manager_ = Start({"openbox", "--sm-disable"}, -1);
  if (!WaitUntil(kStartSeconds, [] { return Run("exec wmctrl -m >/dev/null 2>&1") == 0; })) {
    errno = ETIMEDOUT;
    Fail("the window manager did not start");
  }
}

Display::~Display() {
  Stop(&manager_);
  Stop(&server_);
}

bool Display::HasWindow(const std::string &title) {
  return !FindWindow(title).empty();
}

bool Display::WaitForWindow(const std::string &title, double seconds) {
  return WaitUntil(seconds, [&] { return HasWindow(title); });
}

bool Display::WaitForNoWindow(const std::string &title, double seconds) {
  return WaitUntil(seconds, [&] { return !HasWindow(title); });
}

void Display::Keys(const std::string &title, const std::string &keys) {
  Activate(title, NeedWindow(title));
  std::istringstream names(keys);
  std::string command = "exec xdotool key";
  for (std::string name; names >> name;) {
    command += " " + Quoted(name);
  }
  Need(command);
}

void Display::Type(const std::string &title, const std::string &text) {
  Activate(title, NeedWindow(title));
  Need("exec xdotool type -- " + Quoted(text));
}

void Display::Click(const std::string &title, int x, int y) {
  const std::string id = NeedWindow(title);
  Activate(title, id);
  Need("exec xdotool mousemove --window " + id + " " + std::to_string(x) + " " + std::to_string(y) +
       " click 1");
}

void Display::CloseWindow(const std::string &title) {
  Need("exec wmctrl -i -c " + NeedWindow(title));
}

void Display::Screenshot(const std::string &path) {
  Need("exec import -window root " + Quoted("png:" + path));
}

void Display::Kill() {
  Stop(&server_);
}

}  // namespace testhost
