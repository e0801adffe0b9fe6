// The module list: whatever it holds, it gives whole entries or none.

#include "fuzzFile.h"
#include "kprep.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  GList *list = KernPrep_ReadModuleList(fuzz::WriteInput("modules.xml", data, size).c_str());
  for (const GList *cell = list; cell; cell = cell->next) {
    const auto *entry = static_cast<const KernPrep_ModuleEntry *>(cell->data);
    if (!entry->name || !entry->description || !entry->key) {
      abort();
    }
    for (const GList *dependency = entry->dependencies; dependency; dependency = dependency->next) {
      if (!dependency->data) {
        abort();
      }
    }
  }
  KernPrep_FreeModuleList(list);
  return 0;
}
