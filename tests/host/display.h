// A virtual X display with a window manager, for the life of an object, and what a person does on it.
#ifndef OST_TESTS_HOST_DISPLAY_H
#define OST_TESTS_HOST_DISPLAY_H

#include <sys/types.h>

#include <string>

namespace testhost {

class Display {
 public:
  // Starts Xvfb and a window manager and sets DISPLAY. Call after Host::Enter.
  Display();
  ~Display();
  Display(const Display &) = delete;
  Display &operator=(const Display &) = delete;

  // Waits until a visible window has the title; false when `seconds` have passed.
  bool WaitForWindow(const std::string &title, double seconds = 30);
  bool WaitForNoWindow(const std::string &title, double seconds = 30);
  bool HasWindow(const std::string &title);
  // Gives the titled window the focus and presses keys, in xdotool's names ("Return", "Escape", "Tab").
  void Keys(const std::string &title, const std::string &keys);
  void Type(const std::string &title, const std::string &text);
  // Clicks at a point of the titled window, in pixels from its upper left corner.
  void Click(const std::string &title, int x, int y);
  // Asks the window manager to close the titled window, as its close button does.
  void CloseWindow(const std::string &title);
  // Writes a picture of the whole display, PNG.
  void Screenshot(const std::string &path);
  // Ends the server at once, as a display that goes away.
  void Kill();

 private:
  pid_t server_ = -1;
  pid_t manager_ = -1;
};

}  // namespace testhost

#endif
