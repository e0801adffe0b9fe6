#include "module.h"

#include "kprep.h"

namespace kernprep {

bool Module::HasPrebuilt() const {
  return KernPrep_HasPrebuiltModule(name.c_str());
}

bool Module::InstallPrebuilt() const {
  return KernPrep_InstallPrebuiltModule(name.c_str(), nullptr, nullptr);
}

bool Module::Build(const Glib::ustring &gccPath, const Glib::ustring &headersPath) const {
  return KernPrep_BuildModule(name.c_str(), gccPath.c_str(), headersPath.c_str(), nullptr, nullptr);
}

}  // namespace kernprep
