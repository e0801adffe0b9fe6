#include "display.h"

#include <X11/Xlib.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <optional>
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
  arguments.reserve(command.size() + 1);
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

// A connection to the display. Windows vanish while they are looked at, and the server may; neither is to end
// the process, as it would by default.
class Connection {
 public:
  Connection() : before_(XSetErrorHandler([](::Display *, XErrorEvent *) { return 0; })) {
    display_ = XOpenDisplay(nullptr);
    if (display_) {
      XSetIOErrorExitHandler(
          display_, [](::Display *, void *) {}, nullptr);
    }
  }
  ~Connection() {
    if (display_) {
      XCloseDisplay(display_);
    }
    XSetErrorHandler(before_);
  }
  Connection(const Connection &) = delete;
  Connection &operator=(const Connection &) = delete;

  bool IsOpen() const { return display_ != nullptr; }
  ::Window Root() const { return DefaultRootWindow(display_); }

  // The bytes of a window's property, those of an item of 32 bits being the ones of a long.
  std::optional<std::string> Property(::Window window, const char *property) const {
    const Atom name = XInternAtom(display_, property, False);
    const long limit = 1 << 20;
    Atom type = None;
    int format = 0;
    unsigned long count = 0, left = 0;
    unsigned char *value = nullptr;
    if (XGetWindowProperty(display_, window, name, 0, limit, False, AnyPropertyType, &type, &format, &count,
                           &left, &value) != Success ||
        type == None) {
      return std::nullopt;
    }
    const size_t size = format == 32 ? sizeof(long) : static_cast<size_t>(format) / 8;
    const std::string bytes(reinterpret_cast<const char *>(value), count * size);
    XFree(value);
    return bytes;
  }

  std::vector<::Window> WindowsOf(::Window window, const char *property) const {
    const std::string bytes = Property(window, property).value_or("");
    std::vector<::Window> windows(bytes.size() / sizeof(::Window));
    std::copy(bytes.begin(), bytes.end(), reinterpret_cast<char *>(windows.data()));
    return windows;
  }

  void Map(::Window window) const { XMapWindow(display_, window); }
  ::Window MakeWindow() const { return XCreateSimpleWindow(display_, Root(), 0, 0, 1, 1, 0, 0, 0); }

 private:
  XErrorHandler before_;
  ::Display *display_;
};

void NeedManager(bool isThere) {
  if (!isThere) {
    errno = ETIMEDOUT;
    Fail("the window manager did not start");
  }
}

// Waits until a window manager shows windows. It loses some that come while it starts, after it has said that
// it is there, so that only a window that it has taken over tells that it has started.
void WaitForManager() {
  const Connection connection;
  NeedManager(connection.IsOpen());
  NeedManager(WaitUntil(kStartSeconds, [&] {
    return connection.Property(connection.Root(), "_NET_SUPPORTING_WM_CHECK").has_value();
  }));
  const ::Window window = connection.MakeWindow();
  NeedManager(WaitUntil(kStartSeconds, [&] {
    connection.Map(window);
    return connection.Property(window, "WM_STATE").has_value();
  }));
}

// The newest window of the window manager's with exactly this title, None when there is none.
::Window FindWindow(const std::string &title) {
  const Connection connection;
  ::Window found = None;
  if (!connection.IsOpen()) {
    return found;
  }
  for (const ::Window window : connection.WindowsOf(connection.Root(), "_NET_CLIENT_LIST")) {
    std::optional<std::string> name = connection.Property(window, "_NET_WM_NAME");
    if (!name) {
      name = connection.Property(window, "WM_NAME");
    }
    if (name == title) {
      found = window;
    }
  }
  return found;
}

bool IsActive(::Window window) {
  const Connection connection;
  return connection.IsOpen() &&
         connection.WindowsOf(connection.Root(), "_NET_ACTIVE_WINDOW") == std::vector<::Window>{window};
}

::Window NeedWindow(const std::string &title) {
  const ::Window window = FindWindow(title);
  if (window == None) {
    errno = ENOENT;
    Fail("no window has the title \"" + title + "\"");
  }
  return window;
}

// A window as an argument of a tool.
std::string IdOf(::Window window) {
  std::ostringstream text;
  text << "0x" << std::hex << window;
  return text.str();
}

void Need(const std::string &command) {
  std::string output;
  if (Run(command, &output) != 0) {
    errno = EIO;
    Fail("this failed: " + command + "\n" + output);
  }
}

// Gives a window the focus and waits until it has it.
void Activate(const std::string &title, ::Window window) {
  Need("exec wmctrl -i -a " + IdOf(window));
  if (!WaitUntil(kStartSeconds, [&] { return IsActive(window); })) {
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
  WaitForManager();
}

Display::~Display() {
  Stop(&manager_);
  Stop(&server_);
}

bool Display::HasWindow(const std::string &title) {
  return FindWindow(title) != None;
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
  const ::Window window = NeedWindow(title);
  Activate(title, window);
  Need("exec xdotool mousemove --window " + IdOf(window) + " " + std::to_string(x) + " " + std::to_string(y) +
       " click 1");
}

void Display::CloseWindow(const std::string &title) {
  Need("exec wmctrl -i -c " + IdOf(NeedWindow(title)));
}

void Display::Screenshot(const std::string &path) {
  Need("exec import -window root " + Quoted("png:" + path));
}

void Display::Kill() {
  Stop(&server_);
}

}  // namespace testhost
