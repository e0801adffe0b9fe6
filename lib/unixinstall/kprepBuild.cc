#include <glib.h>

#include <cstring>

#include "file.h"
#include "kprep.h"
#include "kprepCommandInt.h"
#include "kprepInt.h"
#include "log.h"

namespace {

using OwnedNames = std::unique_ptr<GList, Releaser<KernPrep_FreeNameList>>;
using OwnedTable = std::unique_ptr<GHashTable, Releaser<g_hash_table_destroy>>;

// Marks of the dependency walk.
enum Mark : int { kUnmarked = 0, kVisiting = 1, kFinished = 2 };

Mark GetMark(GHashTable *marks, const char *name) {
  return static_cast<Mark>(GPOINTER_TO_INT(g_hash_table_lookup(marks, name)));
}

void SetMark(GHashTable *marks, char *name, Mark mark) {
  g_hash_table_insert(marks, name, GINT_TO_POINTER(mark));
}

GList *AppendName(OwnedNames names, const char *name) {
  return g_list_append(names.release(), Util_SafeStrdup(name));
}

// Finds the entry of a module; it stays null when the list doesn't know the name. Returns false when the name
// stands twice.
bool FindEntry(GList *list, const char *module, const KernPrep_ModuleEntry **entry) {
  *entry = nullptr;
  for (const GList *cell = list; cell; cell = cell->next) {
    const auto *candidate = static_cast<const KernPrep_ModuleEntry *>(cell->data);
    if (strcmp(candidate->name, module) != 0) {
      continue;
    }
    Log("Found dependencies for module %s.\n", module);
    if (*entry) {
      Log("Module %s was found twice in module list!", module);  // without a newline; that is wanted
      return false;
    }
    *entry = candidate;
  }
  return true;
}

// Adds what a dependency brings along. Returns false for a cycle or a failure below.
bool WalkDependency(GList *list, const char *module, char *dependency, GHashTable *marks, OwnedNames *names) {
  Log("Inspecting dependency %s.\n", dependency);
  const Mark mark = GetMark(marks, dependency);
  if (mark == kVisiting) {
    Log("Cyclic dependency detected in the dependencies for module %s!\n", module);
    return false;
  }
  if (mark == kFinished) {
    Log("Already descended into dependency %s, skipping.\n", dependency);
    return true;
  }
  SetMark(marks, dependency, kVisiting);
  GList *found = KernPrep_WalkDependencies(list, dependency, marks);
  if (!found) {
    Log("An error occurred. Cleaning up.\n");
    return false;
  }
  names->reset(g_list_concat(names->release(), found));
  SetMark(marks, dependency, kFinished);
  return true;
}

OwnedNames BuildOrder(const char *module) {
  const OwnedTable marks(g_hash_table_new(g_str_hash, g_str_equal));
  return OwnedNames(KernPrep_WalkDependencies(kernPrep.moduleList, module, marks.get()));
}

bool CheckBuildTools() {
  if (!kernPrep.buildToolsUnchecked) {
    return true;
  }
  for (const char *tool : {"make", "echo", "tar", "grep", "rmmod", "insmod"}) {
    if (!KernPrep_FindInPath(tool)) {
      Log("Can't get required utilities make, tar, echo, grep, rmmod, insmod\n");
      return false;
    }
  }
  kernPrep.buildToolsUnchecked = false;
  return true;
}

bool ExtractSource(const char *name) {
  const bool legacy = kernPrep.kernel.versionCode <= KernPrepVersionCode(2, 6, 8);
  const OwnedString source(
      EngineFormat("%s/modules/source/%s%s.tar", kernPrep.libDir, legacy ? "legacy/" : "", name));
  if (!File_Exists(source.get())) {
    Log("Source file does not exist at %s\n", source.get());
    return false;
  }
  Log("Extracting the sources of the %s module.\n", name);
  return KernPrepRun(
      EngineFormat("%s -C %s -xopf %s", KernPrep_FindInPath("tar"), kernPrep.tempDir, source.get()));
}

void CopySymbolTable(const char *from, const char *to) {
  for (const char *file : {"Modules.symvers", "Module.symvers"}) {
    const OwnedString source(EngineFormat("%s/%s-only/%s", kernPrep.tempDir, from, file));
    const OwnedString destination(EngineFormat("%s/%s-only/%s", kernPrep.tempDir, to, file));
    if (File_CopyFromNameToName(source.get(), destination.get(), FILE_PROMPT_OVERWRITE)) {
      return;
    }
  }
  Warning("Could NOT copy Modules.symvers or Module.symversfile from ostlink!\n\n");
}

bool CompileModule(const char *name, const char *compiler, const char *headerDir) {
  ASSERT(name);
  ASSERT(compiler);
  ASSERT(headerDir);
  const OwnedString version(KernPrep_GetCompilerVersion(compiler));
  const OwnedString make(KernPrepProgramPath("make"));
  const OwnedString grep(KernPrepProgramPath("grep"));
  const KernPrep_KernelIdentity &kernel = kernPrep.kernel;
  const OwnedString command(
      EngineFormat("%s -C %s/%s-only auto-build %s HEADER_DIR=%s CC=%s GREP=%s IS_GCC_3=%s OSTCCVER=%s",
                   make.get(), kernPrep.tempDir, name, kernel.smp ? "SUPPORT_SMP=1" : "", headerDir, compiler,
                   grep.get(), kernel.compilerMajor == 3 ? "yes" : "no", version.get()));
  Log("Building module with command: %s\n", command.get());
  return KernPrepRun(command);
}

void RememberBuilt(const char *name) {
  const OwnedString object(EngineFormat("%s/%s.o", kernPrep.tempDir, name));
  g_hash_table_insert(kernPrep.builtModules, g_strdup(name), g_strdup(object.get()));
}

enum class Outcome { kAlreadyBuilt, kCompiled, kNotExtracted, kNotCompiled };

Outcome BuildOne(const char *name, const char *compiler, const char *headerDir) {
  if (g_hash_table_lookup(kernPrep.builtModules, name)) {
    Log("Module %s is already built.\n", name);
    return Outcome::kAlreadyBuilt;
  }
  Log("Building module %s.\n", name);
  if (!ExtractSource(name)) {
    Log("Could not extract source for module %s!\n", name);
    return Outcome::kNotExtracted;
  }
  if (strcmp(name, "ostchan") == 0) {
    CopySymbolTable("ostlink", name);
  }
  if (!CompileModule(name, compiler, headerDir)) {
    Log("Failed to compile module %s!\n", name);
    return Outcome::kNotCompiled;
  }
  RememberBuilt(name);
  return Outcome::kCompiled;
}

}  // namespace

bool KernPrep_BuildModule(const char *module, const char *compiler, const char *headerDir,
                          const char *subdirectory, const char *installName) {
  const OwnedNames order(BuildOrder(module));
  if (!order) {
    Warning(
        "Could not determine the module build dependences for %s. Pleaseensure the integrity of "
        "modules.xml.\n",
        module);
    return false;
  }
  if (!CheckBuildTools()) {
    Warning("Could not prepare build system.\n");
    return false;
  }
  bool compiledAny = false;
  for (const GList *cell = order.get(); cell; cell = cell->next) {
    switch (BuildOne(static_cast<const char *>(cell->data), compiler, headerDir)) {
      case Outcome::kAlreadyBuilt:
        break;
      case Outcome::kCompiled:
        compiledAny = true;
        break;
      case Outcome::kNotExtracted:
        return compiledAny;  // true once something was compiled, though nothing is installed; that is wanted
      case Outcome::kNotCompiled:
        return false;
    }
  }
  const auto *object = static_cast<const char *>(g_hash_table_lookup(kernPrep.builtModules, module));
  return KernPrep_InstallModule(module, object, subdirectory, installName);
}

GList *KernPrep_WalkDependencies(GList *list, const char *module, GHashTable *marks) {
  const KernPrep_ModuleEntry *entry = nullptr;
  if (!FindEntry(list, module, &entry)) {
    return nullptr;
  }
  OwnedNames names;
  for (const GList *cell = entry ? entry->dependencies : nullptr; cell; cell = cell->next) {
    if (!WalkDependency(list, module, static_cast<char *>(cell->data), marks, &names)) {
      return nullptr;
    }
  }
  return AppendName(std::move(names), module);
}

void KernPrep_FreeNameList(GList *list) {
  g_list_free_full(list, free);
}
