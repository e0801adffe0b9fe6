// What stood on the screen, as the window manager knows it.
#ifndef OST_TESTS_E2E_WINDOWS_H
#define OST_TESTS_E2E_WINDOWS_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "display.h"

namespace e2e {

// The program's windows, as the history of windows has them.
inline constexpr char kBox[] = "dialog Error";
inline constexpr char kWindow[] = "normal Ostrel Kernel Module Updater";
inline constexpr char kProgress[] = "dialog Ostrel Kernel Module Updater";

// A fragment of a shell script that waits until the history holds the progress window, which a quick run
// might take away before it was looked at.
inline constexpr char kWaitForProgress[] =
    "until tail -n 1 /run/windows | grep -q '^dialog Ostrel'; do sleep 0.02; done";

// Every window that was shown on the display since the object was made. Make it after the display, and one
// for a host.
class WindowHistory {
 public:
  WindowHistory();
  ~WindowHistory();
  WindowHistory(const WindowHistory &) = delete;
  WindowHistory &operator=(const WindowHistory &) = delete;

  // The windows in the order in which they appeared, each as its type and title: "normal Ostrel Kernel
  // Module Updater", "dialog Error". A window that was hidden and shown again is there twice.
  std::vector<std::string> Seen();
  // Waits until what the window manager shows now is in the history. False when that takes too long.
  bool CatchUp();

 private:
  pid_t watcher_ = -1;
};

// A display whose windows are remembered.
struct Desktop {
  testhost::Display display;
  WindowHistory history;

  // As of the display, when the history holds the window.
  bool WaitForWindow(const std::string &title);
  // Waits for the titled window, presses keys in it, and waits until it is gone. False when it doesn't come
  // or doesn't go.
  bool Answer(const std::string &title, const std::string &keys);
};

// Size of a titled window's content in pixels. Zero when there is no such window.
struct Size {
  int width = 0;
  int height = 0;
};
Size WindowSize(const std::string &title);

}  // namespace e2e

#endif
