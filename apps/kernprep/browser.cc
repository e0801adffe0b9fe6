#include "browser.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>

#include "appUtil.h"
#include "installerdb.h"
#include "owned.h"
#include "panicUser.h"
#include "preference.h"
#include "productState.h"

namespace kernprep {

std::string Browser::sBrowser;
std::string Browser::sHelpBrowser;
bool Browser::sMozRemote = false;
std::vector<Glib::ustring> Browser::sEnvVars;

namespace {

struct StockBrowser {
  const char *name;
  bool takesRemote;
};

const StockBrowser sStockBrowsers[] = {
    {"mozilla-firefox", true}, {"firefox", true}, {"mozilla", true},
    {"netscape", true},        {"galeon", false}, {nullptr, false},
};

Glib::SpawnFlags SilentFlags() {
  return Glib::SPAWN_STDOUT_TO_DEV_NULL | Glib::SPAWN_STDERR_TO_DEV_NULL;
}

std::vector<std::string> ShellCommand(const std::string &text) {
  return {"/bin/sh", "-c", text};
}

// Returns the shell's wait status.
int RunSilently(const std::string &text, const Glib::SlotSpawnChildSetup &childSetup) {
  int status = 0;
  Glib::spawn_sync(".", ShellCommand(text), SilentFlags(), childSetup, nullptr, nullptr, &status);
  return status;
}

bool IsInPath(const char *program) {
  return !Glib::find_program_in_path(program).empty();
}

bool IsKdeSession() {
  return Glib::getenv("GNOME_DESKTOP_SESSION_ID").empty() && !Glib::getenv("KDE_FULL_SESSION").empty();
}

// The first known browser on the path; its name is null when there is none.
const StockBrowser &FindStockBrowser() {
  const StockBrowser *browser = sStockBrowsers;
  while (browser->name != nullptr && !IsInPath(browser->name)) {
    browser++;
  }
  return *browser;
}

// Whether the protocol is used: when the probe fails.
bool ProbeNetscape() {
  return RunSilently("netscape -remote 'openURL(file:///dev/null/foo, new-window)'", {}) != 0;
}

void ShowNoBrowser() {
  ShowError(Format(
      "%s could not find a suitable default browser and is therefore unable to provide the information you "
      "requested. Please install FireFox, Mozilla or Netscape. If you wish to use a different web browser, "
      "please place the following in your %s/preferences file:\n\npref.webBrowser = \"/path/to/browser\"",
      ProductState_GetName(), "~/.ostrel"));
}

std::string PlainCommand(const std::string &command, const std::string &quotedUrl) {
  const size_t place = command.find("%s");
  if (place == std::string::npos) {
    return Format("%s %s", Glib::shell_quote(command).c_str(), quotedUrl.c_str());
  }
  return std::string(command).replace(place, 2, quotedUrl);
}

void RestoreVariable(const std::string &name) {
  const std::string saved = Glib::getenv("OSTREL_" + name);
  if (saved == "0") {
    Glib::unsetenv(name);
  } else if (!saved.empty() && saved[0] == '1') {
    Glib::setenv(name, saved.substr(1), true);
  }
}

unsigned ParseId(const std::string &text) {
  return static_cast<unsigned>(std::strtoul(text.c_str(), nullptr, 10));
}

// The user goes first, and the browser starts whatever comes of it.
void DropPrivileges() {
  const std::string user = Glib::getenv("SUDO_UID");
  const std::string group = Glib::getenv("SUDO_GID");
  if (user.empty()) {
    return;
  }
  syscall(SYS_setuid, ParseId(user));
  if (!group.empty()) {
    syscall(SYS_setgid, ParseId(group));
  }
}

}  // namespace

void Browser::OpenLibDirURL(const std::string &path, bool throughXdg) {
  Open("file:" + Glib::build_filename(InstallerDB_GetLibDir(), path), throughXdg);
}

void Browser::Choose() {
  ASSERT(sBrowser.empty());
  if (IsKdeSession() && IsInPath("konqueror")) {
    sBrowser = sHelpBrowser = "konqueror";
    return;
  }
  const OwnedString preferred(Preference_GetString("", "pref.webBrowser"));
  if (*preferred != '\0') {
    sBrowser = preferred.get();
  } else if (const StockBrowser &stock = FindStockBrowser(); stock.name != nullptr) {
    sBrowser = stock.name;
    sMozRemote = stock.takesRemote;
  }
  sHelpBrowser = sBrowser;
  if (sBrowser == "netscape") {
    sMozRemote = ProbeNetscape();
  }
}

void Browser::Open(const Glib::ustring &url, bool throughXdg) {
  if (sBrowser.empty()) {
    Choose();
  }
  const std::string &command = throughXdg ? sHelpBrowser : sBrowser;
  if (command.empty()) {
    ShowNoBrowser();
    return;
  }
  const std::string quotedUrl = Glib::shell_quote(url);
  if (sMozRemote && OpenRemotely(command, quotedUrl, throughXdg)) {
    return;
  }
  Glib::spawn_async(".", ShellCommand(PlainCommand(command, quotedUrl)), SilentFlags(),
                    sigc::bind(sigc::ptr_fun(&Browser::ResetEnvVars), throughXdg, true));
}

// Asks a browser that runs already. Returns whether there was one.
bool Browser::OpenRemotely(const std::string &command, const std::string &quotedUrl, bool throughXdg) {
  const std::string text =
      Format("%s -remote 'openURL('%s', new-window)'", Glib::shell_quote(command).c_str(), quotedUrl.c_str());
  return RunSilently(text, sigc::bind(sigc::ptr_fun(&Browser::ResetEnvVars), throughXdg, true)) == 0;
}

void Browser::ResetEnvVars(bool throughXdg, bool dropPrivileges) {
  static const std::vector<Glib::ustring> overridden = {
      "LD_LIBRARY_PATH",    "LD_PRELOAD",      "PANGO_RC_FILE", "GDK_PIXBUF_MODULE_FILE",
      "GTK_IM_MODULE_FILE", "FONTCONFIG_PATH", "GTK2_RC_FILES", "GTK_PATH",
  };
  for (const Glib::ustring &name : overridden) {
    RestoreVariable(name);
  }
  if (throughXdg) {
    Glib::setenv("THROUGHXDG", "1", true);
  }
  if (dropPrivileges) {
    DropPrivileges();
  }
}

}  // namespace kernprep
