#include "options.h"

#include <gtkmm.h>

#include "log.h"

namespace {

Glib::OptionEntry Entry(const char *name, const char *description, const char *argument) {
  Glib::OptionEntry entry;
  entry.set_long_name(name);
  entry.set_description(description);
  entry.set_arg_description(argument);
  entry.set_flags(Glib::OptionEntry::FLAG_IN_MAIN);
  return entry;
}

}  // namespace

bool ParseOptions(int &argc, char **&argv, Glib::ustring &launcher, Glib::ustring &gcc,
                  Glib::ustring &headers, Glib::ustring &icon, Glib::ustring &appName, bool &ignoreMinor) {
  Glib::OptionContext context("");
  Glib::OptionGroup group("kernprep", "Module configurator options", "");
  group.add_entry(Entry("launcher", "Path to launcher script", "LAUNCHER"), launcher);
  group.add_entry(Entry("icon", "Icon name", "PATH"), icon);
  group.add_entry(Entry("appname", "Application name to use", "NAME"), appName);
  group.add_entry(Entry("gcc", "Path to GCC", "GCC"), gcc);
  group.add_entry(Entry("headers", "Path to kernel headers", "HEADERS"), headers);
  group.add_entry(Entry("gcc-ignore-minor", "Accept minor incompatibilities with gcc", ""), ignoreMinor);
  context.set_main_group(group);
  Gtk::Main::add_gtk_option_group(context, true);

  try {
    if (!context.parse(argc, argv)) {
      Warning("Unable to parse program arguments.\n");
      return false;
    }
    if (launcher.empty()) {
      Warning("Path to launcher is required.\n");
      return false;
    }
    if (icon.empty()) {
      Warning("Icon name must be set.\n");
      return false;
    }
    if (appName.empty()) {
      Warning("Application name must be set.\n");
      return false;
    }
    return true;
  } catch (const Glib::Error &error) {
    // Not only Glib::OptionError: a value that the locale can't hold is a Glib::ConvertError.
    Warning("Failed to parse options.\n%s\n", error.what().c_str());
    return false;
  }
}
