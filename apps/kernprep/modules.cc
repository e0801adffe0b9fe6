#include "modules.h"

namespace kernprep {
namespace {

std::list<Module> Copy(const GList *entries) {
  std::list<Module> copies;
  for (const GList *cell = entries; cell != nullptr; cell = cell->next) {
    const auto *entry = static_cast<const KernPrep_ModuleEntry *>(cell->data);
    copies.push_back({entry->name, entry->description, entry->key, entry->required});
  }
  return copies;
}

}  // namespace

bool Modules::Load(const Glib::ustring &path) {
  handle.reset(KernPrep_ReadModuleList(path.c_str()));
  modules = Copy(handle.get());
  return handle != nullptr;
}

bool Modules::HasUnsatisfied() const {
  return KernPrep_HasUnsatisfiedModules(handle.get());
}

std::list<Module> Modules::GetUnsatisfied() const {
  const std::unique_ptr<GList, Releaser<g_list_free>> entries(KernPrep_GetUnsatisfiedModules(handle.get()));
  return Copy(entries.get());
}

std::list<Module> Modules::GetToCompile() const {
  std::list<Module> toCompile = GetUnsatisfied();
  toCompile.remove_if([](const Module &module) { return module.HasPrebuilt(); });
  return toCompile;
}

bool Modules::IsAllPrebuilt() const {
  return GetToCompile().empty();
}

}  // namespace kernprep
