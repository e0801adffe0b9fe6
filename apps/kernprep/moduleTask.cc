#include "moduleTask.h"

namespace kernprep {

ModuleTask::ModuleTask(const Module &module_, const Glib::ustring &gccPath_,
                       const Glib::ustring &headersPath_)
    : BuildTask(""), module(module_), gccPath(gccPath_), headersPath(headersPath_) {
  SetText(module.description);
}

bool ModuleTask::Run() {
  if (!module.HasPrebuilt()) {
    return module.Build(gccPath, headersPath);
  }
  return module.InstallPrebuilt();
}

Glib::ustring ModuleTask::GetFailureText() const {
  return "Unable to build kernel module.";
}

}  // namespace kernprep
