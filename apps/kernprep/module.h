// One entry of the module list, as the application sees it.
#ifndef OST_KERNPREP_MODULE_H
#define OST_KERNPREP_MODULE_H

#include <glibmm.h>

namespace kernprep {

struct Module {
  Glib::ustring name;
  Glib::ustring description;  // text for the user
  Glib::ustring key;          // name of an answer in the installer database, empty when the list gives none
  bool required = false;

  // Whether a set of pre-built modules fits the running kernel and holds this one.
  bool HasPrebuilt() const;
  // Installs the pre-built copy. Returns false, with the reason in the log, on failure.
  bool InstallPrebuilt() const;
  // Builds the module from source and installs it. Returns false, with the reason in the log, on failure.
  bool Build(const Glib::ustring &gccPath, const Glib::ustring &headersPath) const;
};

}  // namespace kernprep

#endif
