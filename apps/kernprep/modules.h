// The module list, and what is still to be done about it.
//
// Every question asks the system anew, since modules come to be installed while the program runs.
#ifndef OST_KERNPREP_MODULES_H
#define OST_KERNPREP_MODULES_H

#include <list>
#include <memory>

#include "kprep.h"
#include "module.h"
#include "owned.h"

namespace kernprep {

class Modules {
 public:
  Modules() = default;
  virtual ~Modules() = default;
  Modules(const Modules &) = delete;
  Modules &operator=(const Modules &) = delete;

  // Reads the module list file. Call once. Returns false, with the reason in the log, when it gives no
  // module.
  bool Load(const Glib::ustring &path);
  // Every entry, in the file's order.
  const std::list<Module> &GetAll() const { return modules; }
  // Whether a wanted module is missing.
  bool HasUnsatisfied() const;
  // The wanted modules that are missing, in the file's order.
  std::list<Module> GetUnsatisfied() const;
  // Those of GetUnsatisfied() that have no pre-built copy. Costs a scan of the pre-built sets, and for
  // compatible sets live trials, for each module.
  std::list<Module> GetToCompile() const;
  // Whether nothing must be compiled; so too when nothing is missing. Costs what GetToCompile costs.
  bool IsAllPrebuilt() const;

 private:
  std::list<Module> modules;
  std::unique_ptr<GList, Releaser<KernPrep_FreeModuleList>> handle;
};

}  // namespace kernprep

#endif
