// The tool's one window, and the owner of the run.
//
// It says what is about to happen, lets the user mend a requirement that isn't met, and carries each attempt
// through: check, rights, work. The result of the whole run is kept until the main loop has ended.
#ifndef OST_KERNPREP_KERNPREP_H
#define OST_KERNPREP_KERNPREP_H

#include <gtkmm/box.h>
#include <gtkmm/button.h>
#include <gtkmm/buttonbox.h>
#include <gtkmm/window.h>

#include "error.h"
#include "gcc.h"
#include "headers.h"

namespace kernprep {

class Modules;

class KernPrep : public Gtk::Window {
 public:
  // The window isn't shown. The engine must be up.
  //
  // gccPath, headersPath  what to take in place of the engine's choice; may be empty
  // command               the launcher's shell command, for a start as root
  // ignoreMinor           whether a compiler with another minor version is accepted unasked
  // moduleList            must outlive the window
  KernPrep(const Glib::ustring &gccPath, const Glib::ustring &headersPath, const Glib::ustring &appName,
           const Glib::ustring &command, bool ignoreMinor, Modules &moduleList);
  ~KernPrep() override;

  // Makes one attempt, and then quits, shows the window or starts the program again as root. The argument has
  // no effect.
  void Run(bool argument);
  // Ends the main loop with a result.
  void Quit(Error result);
  Error GetResult();
  // Resizes the window by one pixel, so that what wraps its text settles.
  void ForceResize();

 protected:
  bool on_delete_event(GdkEventAny *event) override;
  bool on_key_press_event(GdkEventKey *event) override;

 private:
  Gtk::HButtonBox *MakeButtonBox(Gtk::Button &help, Gtk::Button &install);
  void ApplyPaths(const Glib::ustring &gccPath, const Glib::ustring &headersPath, bool ignoreMinor);
  Error CheckRequirements(bool interactive);
  Error CheckCompiler(bool interactive);
  Error CheckHeaders(bool interactive);
  Error Install(bool argument);
  Error RunBuild();
  // Replaces this process with the privilege tool, which runs the launcher as root. Returns only on failure.
  void Relaunch();
  std::string GetRelaunchArguments(bool allPrebuilt);

  Glib::ustring launcherCommand;
  Error error;
  GCC gcc;
  Headers headers;
  Modules &modules;
  Gtk::VBox box;
};

}  // namespace kernprep

#endif
