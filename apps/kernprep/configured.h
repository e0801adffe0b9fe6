// Whether the product's configuration script has run.
#ifndef OST_KERNPREP_CONFIGURED_H
#define OST_KERNPREP_CONFIGURED_H

#include <glibmm.h>

// Makes `icon` every window's icon, registers the state icons, and looks for the marker of a product that
// isn't configured.
//
// Returns 0 when the program may go on, 1 when an error box has told the user that it may not.
int CheckConfigured(const Glib::ustring &appName, const Glib::ustring &icon);

#endif
