// Gets one kernel module onto the machine: a pre-built copy where there is one, else from source.
#ifndef OST_KERNPREP_MODULETASK_H
#define OST_KERNPREP_MODULETASK_H

#include "buildTask.h"
#include "module.h"

namespace kernprep {

class ModuleTask : public BuildTask {
 public:
  // gccPath, headersPath  what the user accepted; unused for a pre-built module
  ModuleTask(const Module &module, const Glib::ustring &gccPath, const Glib::ustring &headersPath);

  bool IsFatal() const override { return module.required; }
  // A pre-built copy that fails to install isn't compiled instead.
  bool Run() override;
  Glib::ustring GetFailureText() const override;

 private:
  Module module;
  Glib::ustring gccPath;
  Glib::ustring headersPath;
};

}  // namespace kernprep

#endif
