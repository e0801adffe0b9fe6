#include "kernprep.h"

#include <gdk/gdkkeysyms.h>
#include <glibmm/miscutils.h>
#include <glibmm/shell.h>
#include <gtkmm/button.h>
#include <gtkmm/buttonbox.h>
#include <gtkmm/dialog.h>
#include <gtkmm/image.h>
#include <gtkmm/main.h>
#include <gtkmm/stock.h>
#include <unistd.h>

#include "appUtil.h"
#include "browser.h"
#include "build.h"
#include "installerdb.h"
#include "kprep.h"
#include "log.h"
#include "modules.h"
#include "owned.h"
#include "panicUser.h"
#include "posixPosix.h"

namespace kernprep {

namespace {

constexpr char kHelpPage[] = "help-manual/kp_install_linux.html";

constexpr int kBorder = 10;
constexpr int kSpacing = 20;
constexpr int kButtonSpacing = 10;
constexpr int kPrebuiltWidth = 325;
constexpr int kCompileWidth = 500;

}  // namespace

KernPrep::KernPrep(const Glib::ustring &gccPath, const Glib::ustring &headersPath,
                   const Glib::ustring &appName, const Glib::ustring &command, bool ignoreMinor,
                   Modules &moduleList)
    : Gtk::Window(Gtk::WINDOW_TOPLEVEL),
      launcherCommand(command),
      error(ERROR_UNSET),
      modules(moduleList),
      box(false, kSpacing) {
  property_title().signal_changed().connect(sigc::slot<void>());
  set_title("Ostrel Kernel Module Updater");
  set_position(Gtk::WIN_POS_CENTER);
  set_border_width(kBorder);
  signal_realize().connect(sigc::mem_fun(*this, &KernPrep::ForceResize), false);
  add(box);
  box.show();

  auto *label = Gtk::manage(new view::WrapLabel(""));
  label->show();
  box.pack_start(*label, Gtk::PACK_SHRINK, 0);
  auto *help = Gtk::manage(new Gtk::Button(Gtk::Stock::HELP));
  auto *install = Gtk::manage(new Gtk::Button("_Install", false));
  Gtk::HButtonBox *buttons = MakeButtonBox(*help, *install);
  box.pack_start(gcc, Gtk::PACK_EXPAND_PADDING, 0);
  box.pack_start(headers, Gtk::PACK_EXPAND_PADDING, 0);

  if (modules.IsAllPrebuilt()) {
    label->set_text(
        Format("Before you can run %s, several pre-built modules must be loaded into the running kernel.",
               appName.c_str()));
    set_default_size(kPrebuiltWidth, -1);
  } else {
    set_default_size(kCompileWidth, -1);
    label->set_text(
        Format("Before you can run %s, several modules must be compiled and loaded into the running kernel.",
               appName.c_str()));
    ApplyPaths(gccPath, headersPath, ignoreMinor);
  }

  box.pack_end(*buttons, Gtk::PACK_SHRINK, 0);
  buttons->set_child_secondary(*help);
  // Outside a window there is no focus to grab.
  install->grab_focus();
  CheckRequirements(false);
}

KernPrep::~KernPrep() = default;

Gtk::HButtonBox *KernPrep::MakeButtonBox(Gtk::Button &help, Gtk::Button &install) {
  auto *buttons = Gtk::manage(new Gtk::HButtonBox(Gtk::BUTTONBOX_END, kButtonSpacing));
  buttons->show();

  // Wired, and not shown: that is wanted.
  buttons->pack_start(help, Gtk::PACK_EXPAND_WIDGET, 0);
  help.signal_clicked().connect(
      sigc::bind(sigc::ptr_fun(&Browser::OpenLibDirURL), std::string(kHelpPage), false));

  auto *cancel = Gtk::manage(new Gtk::Button(Gtk::Stock::CANCEL));
  cancel->show();
  buttons->pack_start(*cancel, Gtk::PACK_EXPAND_WIDGET, 0);
  cancel->signal_clicked().connect(sigc::bind(sigc::mem_fun(*this, &KernPrep::Quit), ERROR_CANCELLED));

  install.set_image(*Gtk::manage(new Gtk::Image(Gtk::Stock::OK, Gtk::ICON_SIZE_BUTTON)));
  install.show();
  buttons->pack_start(install, Gtk::PACK_EXPAND_WIDGET, 0);
  install.signal_clicked().connect(sigc::bind(sigc::mem_fun(*this, &KernPrep::Run), true));
  return buttons;
}

void KernPrep::ApplyPaths(const Glib::ustring &gccPath, const Glib::ustring &headersPath, bool ignoreMinor) {
  if (!gccPath.empty()) {
    gcc.SetPath(gccPath);
  }
  gcc.SetIgnoreMinor(ignoreMinor);
  if (!headersPath.empty()) {
    headers.SetPath(headersPath);
  }
}

void KernPrep::Run(bool argument) {
  const Error result = Install(argument);
  switch (result) {
    case ERROR_REQUIREMENTS:
    case ERROR_BUILD_FAILED:
      show();
      break;
    case ERROR_NEED_ROOT:
      Relaunch();
      break;
    default:
      Quit(result);
  }
}

void KernPrep::Quit(Error result) {
  error = result;
  Gtk::Main::quit();
}

Error KernPrep::GetResult() {
  return error;
}

void KernPrep::ForceResize() {
  int width = 0;
  int height = 0;
  get_size(width, height);
  resize(width + 1, height);
}

bool KernPrep::on_delete_event(GdkEventAny * /*event*/) {
  Quit(ERROR_REQUIREMENTS);
  return true;
}

bool KernPrep::on_key_press_event(GdkEventKey *event) {
  if (event->keyval == GDK_Escape) {
    Quit(ERROR_REQUIREMENTS);
    return true;
  }
  return Gtk::Widget::on_key_press_event(event);
}

Error KernPrep::CheckRequirements(bool interactive) {
  if (modules.IsAllPrebuilt()) {
    return ERROR_NONE;
  }
  const Error compiler = CheckCompiler(interactive);
  return compiler == ERROR_NONE ? CheckHeaders(interactive) : compiler;
}

Error KernPrep::CheckCompiler(bool interactive) {
  const unsigned match = gcc.CheckVersion(interactive);
  if (match != KERNPREP_COMPILER_UNKNOWN && match != KERNPREP_COMPILER_OTHER_MAJOR) {
    gcc.SetInfo("");
    return ERROR_NONE;
  }
  const OwnedString version(KernPrep_GetKernelCompilerVersion());
  ASSERT(version);
  gcc.SetInfo(Format(
      "GNU C Compiler (gcc) version %s was not found.  If you installed it in a non-default path you can "
      "specify the path below.  Otherwise refer to your distribution's documentation for installation "
      "instructors and click Refresh to search again in default locations.",
      version.get()));
  gcc.show();
  if (interactive && !gcc.GetError().empty()) {
    ShowError(gcc.GetError());
  }
  return ERROR_REQUIREMENTS;
}

Error KernPrep::CheckHeaders(bool interactive) {
  headers.OnRefreshClicked();
  if (headers.IsValid()) {
    headers.SetInfo("");
    return ERROR_NONE;
  }
  const OwnedString release(KernPrep_GetKernelRelease());
  ASSERT(release);
  headers.SetInfo(Format(
      "Kernel headers for version %s were not found.  If you installed them in a non-default path you can "
      "specify the path below.  Otherwise refer to your distribution's documentation for installation "
      "instructions and click Refresh to search again in default locations.",
      release.get()));
  headers.show();
  if (interactive) {
    ShowError(headers.GetError(), *this);
  }
  return ERROR_REQUIREMENTS;
}

Error KernPrep::Install(bool /*argument*/) {
  const Error result = CheckRequirements(true);
  if (result != ERROR_NONE) {
    return result;
  }
  if (geteuid() != 0) {
    return ERROR_NEED_ROOT;
  }
  hide();
  return RunBuild();
}

Error KernPrep::RunBuild() {
  const Glib::ustring headersPath = headers.GetPath();
  Build build(*this, modules, gcc.GetPath(), headersPath);
  switch (build.Run()) {
    case Gtk::RESPONSE_YES:
      return ERROR_NONE;
    case Gtk::RESPONSE_NO:
      return ERROR_BUILD_FAILED;
    case Gtk::RESPONSE_CANCEL:
    case Gtk::RESPONSE_DELETE_EVENT:
      return ERROR_CANCELLED;
    default:
      NOT_IMPLEMENTED();
  }
}

void KernPrep::Relaunch() {
  const char *answer = InstallerDB_GetBinDir();
  const std::string directory = answer == nullptr ? "" : answer;
  const bool allPrebuilt = modules.IsAllPrebuilt();
  if (directory.empty()) {
    Warning("Unable to relaunch, BINDIR is not set.\n");
    return;
  }
  const std::string tool = Glib::build_filename(directory, "ostrel-gksu");
  const std::string arguments = GetRelaunchArguments(allPrebuilt);
  Log("Relaunching with %s %s\n", tool.c_str(), arguments.c_str());
  Posix_Execl(tool.c_str(), "ostrel-gksu", arguments.c_str(), static_cast<char *>(nullptr));
  ShowError("Unable to relaunch program with root access.", *this);
  Quit(ERROR_REQUIREMENTS);
}

std::string KernPrep::GetRelaunchArguments(bool allPrebuilt) {
  std::string compilerArgument;
  std::string headerArgument;
  if (!allPrebuilt) {
    compilerArgument = Format("--gcc=%s", Glib::shell_quote(gcc.GetPath()).c_str());
    headerArgument = Format("--headers=%s", Glib::shell_quote(headers.GetPath()).c_str());
  }
  return Format("%s %s %s %s", launcherCommand.c_str(), compilerArgument.c_str(), headerArgument.c_str(),
                gcc.GetIgnoreMinor() ? "--gcc-ignore-minor " : " ");
}

}  // namespace kernprep
