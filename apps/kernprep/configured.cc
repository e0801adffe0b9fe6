#include "configured.h"

#include <gtkmm.h>

#include "appUtil.h"
#include "icons.h"

int CheckConfigured(const Glib::ustring &appName, const Glib::ustring &icon) {
  Gtk::Window::set_default_icon_name(icon);
  RegisterIcons();
  if (Glib::file_test("/etc/ostrel-tools/not_configured", Glib::FILE_TEST_EXISTS)) {
    ShowError(Format("You must first run ostrel-tools-config.pl before running %s.", appName.c_str()));
    return 1;
  }
  return 0;
}
