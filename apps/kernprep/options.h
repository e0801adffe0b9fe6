// The command line.
#ifndef OST_KERNPREP_OPTIONS_H
#define OST_KERNPREP_OPTIONS_H

#include <glibmm.h>

// Takes the program's and the toolkit's options out of the argument vector.
//
// launcher, icon, appName      mandatory
// gcc, headers, ignoreMinor    left alone when not given
//
// Returns whether the command line is usable; a warning says why when it isn't. --help ends the process.
bool ParseOptions(int &argc, char **&argv, Glib::ustring &launcher, Glib::ustring &gcc,
                  Glib::ustring &headers, Glib::ustring &icon, Glib::ustring &appName, bool &ignoreMinor);

#endif
