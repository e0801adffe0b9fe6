#include "gcc.h"

#include <gtkmm/button.h>
#include <gtkmm/image.h>
#include <gtkmm/messagedialog.h>
#include <gtkmm/stock.h>

#include "appUtil.h"
#include "kprep.h"
#include "owned.h"
#include "panicUser.h"

namespace kernprep {

GCC::GCC() : Requirement("", Gtk::FILE_CHOOSER_ACTION_OPEN), ignoreMinor(false) {
  const OwnedString version(KernPrep_GetKernelCompilerVersion());
  SetTitle(Format("_GCC %s", version ? version.get() : ""));
  GCC::OnRefreshClicked();
}

bool GCC::IsValid() {
  return KernPrep_CompareCompiler(GetPath().c_str()) == KERNPREP_COMPILER_MATCH;
}

void GCC::OnRefreshClicked() {
  const OwnedString path(KernPrep_FindCompiler());
  if (path) {
    SetPath(path.get());
  } else {
    OnPathChanged();
  }
}

void GCC::OnPathChanged() {
  switch (KernPrep_CompareCompiler(GetPath().c_str())) {
    case KERNPREP_COMPILER_UNKNOWN:
      SetError(
          "GCC was not found.  Refer to your distribution's documentation for installation instructions.");
      break;
    case KERNPREP_COMPILER_OTHER_MAJOR:
      SetError("This major version of GCC is not compatible.");
      break;
    case KERNPREP_COMPILER_MATCH:
    case KERNPREP_COMPILER_OTHER_MINOR:
      SetError("");
      break;
    default:
      SetError("Unable to determine GCC version.");
  }
}

Glib::ustring GCC::GetDefaultPath() {
  return "/usr/bin";
}

unsigned GCC::CheckVersion(bool interactive) {
  const unsigned match = KernPrep_CompareCompiler(GetPath().c_str());
  if (match != KERNPREP_COMPILER_OTHER_MINOR) {
    return match;
  }
  if (ignoreMinor) {
    return KERNPREP_COMPILER_MATCH;
  }
  if (!interactive) {
    return KERNPREP_COMPILER_OTHER_MINOR;
  }
  ignoreMinor = AskToInstall();
  return ignoreMinor ? KERNPREP_COMPILER_OTHER_MINOR : KERNPREP_COMPILER_OTHER_MAJOR;
}

bool GCC::AskToInstall() {
  OwnedString kernelVersion(KernPrep_GetKernelCompilerVersion());
  OwnedString version(KernPrep_GetCompilerVersion(GetPath().c_str()));
  ASSERT(kernelVersion && version);
  Gtk::MessageDialog dialog(
      Format(
          "Your kernel was compiled with gcc version %s while the version located is %s.  Compiling kernel "
          "modules with this version is not recommended.\n\nWould you like to install anyway?",
          kernelVersion.get(), version.get()),
      false, Gtk::MESSAGE_QUESTION, Gtk::BUTTONS_NONE, false);
  kernelVersion.reset();
  version.reset();
  dialog.set_title("Question");
  dialog.add_button(Gtk::Stock::CANCEL, Gtk::RESPONSE_NO);
  dialog.add_button("_Install", Gtk::RESPONSE_YES)
      ->set_image(*Gtk::manage(new Gtk::Image(Gtk::Stock::OK, Gtk::ICON_SIZE_BUTTON)));
  dialog.set_default_response(Gtk::RESPONSE_YES);
  return dialog.run() == Gtk::RESPONSE_YES;
}

bool GCC::GetIgnoreMinor() {
  return ignoreMinor;
}

void GCC::SetIgnoreMinor(bool ignore) {
  ignoreMinor = ignore;
}

}  // namespace kernprep
