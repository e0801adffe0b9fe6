// The product's help pages in the user's web browser, started by a program that runs as root in an
// environment that the product's launcher rewrote for its own libraries.
//
// The browser is chosen once in the life of the process: konqueror in a KDE session, the preference
// "pref.webBrowser", or the first of the known browsers on the path. A preference may hold "%s" where the URL
// goes, and its own arguments.
#ifndef OST_KERNPREP_BROWSER_H
#define OST_KERNPREP_BROWSER_H

#include <glibmm.h>

#include <string>
#include <vector>

namespace kernprep {

class Browser {
 public:
  Browser() = delete;

  // Shows a page of the product's library directory. Without any browser an error box tells what to do.
  // Doesn't wait for the browser. Throws Glib::SpawnError when the shell can't be started.
  //
  // path         below the library directory
  // throughXdg   marks the browser's environment with THROUGHXDG=1
  static void OpenLibDirURL(const std::string &path, bool throughXdg);

  // What a child does before it becomes the browser: gives the variables that the launcher overrode their
  // former state back, which the launcher left in "OSTREL_" + NAME as "1" and the value, or "0" for none.
  //
  // dropPrivileges  becomes the user SUDO_UID, and then the group SUDO_GID
  static void ResetEnvVars(bool throughXdg, bool dropPrivileges);

 private:
  static void Open(const Glib::ustring &url, bool throughXdg);
  static void Choose();
  static bool OpenRemotely(const std::string &command, const std::string &quotedUrl, bool throughXdg);

  static std::string sBrowser;                 // the command, empty until one is chosen
  static std::string sHelpBrowser;             // the same, for help pages
  static bool sMozRemote;                      // whether the command takes the -remote protocol
  static std::vector<Glib::ustring> sEnvVars;  // stays empty: that is wanted
};

}  // namespace kernprep

#endif
