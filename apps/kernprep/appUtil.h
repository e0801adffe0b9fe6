// Formatting and the error box of the application layer (util.cc; the foundation has the name util.h).
#ifndef OST_KERNPREP_APPUTIL_H
#define OST_KERNPREP_APPUTIL_H

#include <gtkmm.h>

#include <string>

// The foundation's formatted print (Str_SafeVasprintf) into a string. A failure stops the program.
std::string Format(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Shows a modal error box titled "Error" with an OK button, and waits until the user leaves it.
//
// message  is read as Pango markup; a text that isn't valid markup is shown as it stands
// parent   the window that the box stands over
//
// Returns the dialog's response.
int ShowError(const Glib::ustring &message);
int ShowError(const Glib::ustring &message, Gtk::Window &parent);

#endif
