#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <iostream>
#include <vector>

#include "appUtil.h"
#include "configured.h"
#include "initializer.h"
#include "installerdb.h"
#include "kernprep.h"
#include "kprep.h"
#include "log.h"
#include "modules.h"
#include "options.h"
#include "ostpoll.h"
#include "preference.h"
#include "threads.h"
#include "tmpLogs.h"
#include "unicode.h"

namespace {

// A standard stream that the program's caller closed would be the next file opened here: what is meant for
// standard error would go to the display.
void HoldStandardStreams() {
  int descriptor = STDIN_FILENO;
  while (descriptor >= 0 && descriptor <= STDERR_FILENO) {
    descriptor = open("/dev/null", O_RDWR);
  }
  close(descriptor);
}

}  // namespace

// The order of start matters, and each guard ends its subsystem on every way out of the scope.
int main(int argc, char **argv) {
  Glib::ustring launcher, icon, appName, gcc, headers;
  Glib::ustring quotedLauncher, iconArgument, nameArgument, launcherCommand;
  bool ignoreMinor = false;

  HoldStandardStreams();
  // Where the program's caller ignored it, no child's end could be told from a success.
  std::signal(SIGCHLD, SIG_DFL);
  CleanTmpLogs("setup");
  Unicode_Init(argc, &argv, nullptr);
  Preference_DisablePolling();
  // The toolkit and the options drop what they know from the vector that they get, so that it is a copy.
  const OwnedUnicodeList arguments(argv);
  std::vector<char *> rest(argv, argv + argc + 1);
  argv = rest.data();
  InitThreads();
  // Outside the scope of the guards, so that their failure can be shown.
  const Gtk::Main toolkit(argc, argv, true);
  try {
    const kernprep::Initializer poll(sigc::bind_return(sigc::ptr_fun(Poll_InitDefault), true),
                                     sigc::ptr_fun(Poll_Exit), "Unable to initialize polling library");
    const kernprep::Initializer preferences(sigc::ptr_fun(Preference_Init), sigc::ptr_fun(Preference_Exit),
                                            "Unable to initialize preferences library");
    const kernprep::Initializer log(
        sigc::bind(sigc::ptr_fun(Log_Init), nullptr, "setup.log.filename", "setup"), sigc::ptr_fun(Log_Exit),
        "Unable to initialize logging library");
    Log_SetQuietWarnings(false);
    Warning("Logging to %s\n", Log_GetFileName());

    if (!ParseOptions(argc, argv, launcher, gcc, headers, icon, appName, ignoreMinor)) {
      return kernprep::ERROR_REQUIREMENTS;
    }
    if (CheckConfigured(appName, icon) != 0) {
      return 1;
    }

    const kernprep::Initializer database(
        sigc::bind(sigc::ptr_fun(InstallerDB_Init), "/etc/ostrel-tools", geteuid() != 0),
        sigc::ptr_fun(InstallerDB_DeInit), "Unable to initialize installer database");
    const kernprep::Initializer engine(sigc::ptr_fun(KernPrep_Init), sigc::ptr_fun(KernPrep_DeInit),
                                       "Unable to initialize module building library");

    quotedLauncher = Glib::shell_quote(launcher);
    iconArgument = Format("--icon=%s", Glib::shell_quote(icon).c_str());
    nameArgument = Format("--appname=%s", Glib::shell_quote(appName).c_str());
    launcherCommand = Format("%s %s %s", quotedLauncher.c_str(), iconArgument.c_str(), nameArgument.c_str());

    const std::string path = Glib::build_filename(InstallerDB_GetLibDir(), "modules/modules.xml");
    kernprep::Modules modules;
    if (!modules.Load(path)) {
      Log("Unable to load kernel module list from %s\n", path.c_str());
      return kernprep::ERROR_REQUIREMENTS;
    }
    if (!modules.HasUnsatisfied()) {
      return kernprep::ERROR_NONE;
    }

    kernprep::KernPrep window(gcc, headers, appName, launcherCommand, ignoreMinor, modules);
    if (geteuid() == 0) {
      Glib::signal_idle().connect(
          sigc::bind_return(sigc::bind(sigc::mem_fun(window, &kernprep::KernPrep::Run), false), false),
          Glib::PRIORITY_DEFAULT_IDLE);
    } else {
      window.show();
    }
    Gtk::Main::run();
    return window.GetResult();
  } catch (const kernprep::InitializeError &error) {
    std::cerr << error.what() << '\n';
    ShowError(error.what());
    return 1;
  }
}
