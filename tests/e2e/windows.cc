#include "windows.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sstream>

#include "product.h"
#include "treeInt.h"

namespace e2e {

namespace {

constexpr char kSentinel[] = "end of history";
constexpr char kMark[] = "_OST_HISTORY_MARK";
constexpr char kRecord[] = "/run/windows";
constexpr long kLongest = 1024;

using Connection = std::unique_ptr<Display, int (*)(Display *)>;

Connection Connect() {
  return {XOpenDisplay(nullptr), XCloseDisplay};
}

// A property of a window, as far as it has `type`, with its count of items; null when it has none.
struct Property {
  std::unique_ptr<unsigned char, int (*)(void *)> data{nullptr, XFree};
  unsigned long count = 0;
};

Property GetProperty(Display *display, Window window, const char *name, Atom type) {
  Property property;
  Atom actualType = None;
  int format = 0;
  unsigned long left = 0;
  unsigned char *data = nullptr;
  if (XGetWindowProperty(display, window, XInternAtom(display, name, False), 0, kLongest, False, type,
                         &actualType, &format, &property.count, &left, &data) == Success) {
    property.data.reset(data);
  }
  return property;
}

std::vector<Window> GetClients(Display *display) {
  const Property list = GetProperty(display, DefaultRootWindow(display), "_NET_CLIENT_LIST", XA_WINDOW);
  const auto *windows = reinterpret_cast<const Window *>(list.data.get());
  return list.data ? std::vector<Window>(windows, windows + list.count) : std::vector<Window>();
}

std::string GetType(Display *display, Window window) {
  const Property type = GetProperty(display, window, "_NET_WM_WINDOW_TYPE", XA_ATOM);
  if (!type.data || type.count == 0) {
    return "plain";
  }
  const std::unique_ptr<char, int (*)(void *)> name(
      XGetAtomName(display, *reinterpret_cast<const Atom *>(type.data.get())), XFree);
  std::string word = std::string(name.get()).substr(sizeof "_NET_WM_WINDOW_TYPE_" - 1);
  std::transform(word.begin(), word.end(), word.begin(),
                 [](char c) { return static_cast<char>(tolower(c)); });
  return word;
}

std::string Describe(Display *display, Window window) {
  Property title = GetProperty(display, window, "_NET_WM_NAME", XInternAtom(display, "UTF8_STRING", False));
  if (!title.data || title.count == 0) {
    title = GetProperty(display, window, "WM_NAME", XA_STRING);
  }
  return GetType(display, window) + " " +
         (title.data ? reinterpret_cast<const char *>(title.data.get()) : "(gone)");
}

int IgnoreVanishedWindow(Display * /*display*/, XErrorEvent * /*event*/) {
  return 0;
}

// Writes a line for each window that joins the window manager's list, until the display goes away.
[[noreturn]] void Watch(int ready) {
  const Connection connection = Connect();
  Display *const display = connection.get();
  XSetErrorHandler(IgnoreVanishedWindow);
  XSelectInput(display, DefaultRootWindow(display), PropertyChangeMask);
  const Atom mark = XInternAtom(display, kMark, False);
  std::vector<Window> known = GetClients(display);
  FILE *const lines = fopen(kRecord, "we");
  close(ready);
  for (;;) {
    XEvent event;
    XNextEvent(display, &event);
    const std::vector<Window> clients = GetClients(display);
    for (const Window window : clients) {
      if (std::find(known.begin(), known.end(), window) == known.end()) {
        fprintf(lines, "%s\n", Describe(display, window).c_str());
        fflush(lines);
      }
    }
    known = clients;
    if (event.type == PropertyNotify && event.xproperty.atom == mark) {
      fprintf(lines, "%s\n", kMark);
      fflush(lines);
    }
  }
}

size_t Count(const std::string &text, const std::string &part) {
  size_t count = 0;
  for (size_t place = text.find(part); place != std::string::npos; place = text.find(part, place + 1)) {
    count++;
  }
  return count;
}

// Does something with a connection and waits until the record holds one more of `line`.
template <typename Action>
bool IsRecordedAfter(const char *line, const Action &action) {
  const size_t before = Count(testhost::ReadFile(kRecord), line);
  const Connection connection = Connect();
  action(connection.get());
  XFlush(connection.get());
  return Eventually([&] { return Count(testhost::ReadFile(kRecord), line) > before; });
}

}  // namespace

WindowHistory::WindowHistory() {
  int ready[2];
  testhost::Check(pipe(ready), "cannot make a pipe");
  watcher_ = fork();
  if (watcher_ == 0) {
    close(ready[0]);
    Watch(ready[1]);
  }
  close(ready[1]);
  char nothing = 0;
  testhost::Check(read(ready[0], &nothing, 1), "cannot wait for the watcher");
  close(ready[0]);
}

WindowHistory::~WindowHistory() {
  kill(watcher_, SIGKILL);
  waitpid(watcher_, nullptr, 0);
}

bool WindowHistory::CatchUp() {
  return IsRecordedAfter(kMark, [](Display *display) {
    const unsigned char nothing = 0;
    XChangeProperty(display, DefaultRootWindow(display), XInternAtom(display, kMark, False), XA_STRING, 8,
                    PropModeReplace, &nothing, 1);
  });
}

std::vector<std::string> WindowHistory::Seen() {
  // When the window manager has shown a window of ours, it has shown all that was mapped before.
  const bool isComplete = IsRecordedAfter(kSentinel, [](Display *display) {
    const Window window = XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 50, 50, 0, 0, 0);
    XStoreName(display, window, kSentinel);
    XMapWindow(display, window);
  });
  if (!isComplete) {
    return {"(the watcher is gone)"};
  }
  std::vector<std::string> windows;
  std::istringstream lines(testhost::ReadFile(kRecord));
  for (std::string line; std::getline(lines, line);) {
    if (line.find(kSentinel) == std::string::npos && line != kMark) {
      windows.push_back(line);
    }
  }
  return windows;
}

bool Desktop::WaitForWindow(const std::string &title) {
  return display.WaitForWindow(title) && history.CatchUp();
}

bool Desktop::Answer(const std::string &title, const std::string &keys) {
  if (!WaitForWindow(title)) {
    return false;
  }
  display.Keys(title, keys);
  return display.WaitForNoWindow(title);
}

Size WindowSize(const std::string &title) {
  std::string info;
  testhost::Run("exec xwininfo -name '" + title + "'", &info);
  const auto number = [&info](const std::string &name) {
    const size_t start = info.find(name);
    return start == std::string::npos ? 0 : atoi(info.c_str() + start + name.size());
  };
  return {number("  Width: "), number("  Height: ")};
}

}  // namespace e2e
