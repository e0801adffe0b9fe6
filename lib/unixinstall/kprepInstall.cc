#include <glib.h>

#include "file.h"
#include "installerdb.h"
#include "kprep.h"
#include "kprepCommandInt.h"
#include "kprepInt.h"
#include "log.h"

namespace {

bool PlaceModule(const char *module, const char *objectPath, const char *subdirectory,
                 const char *installName) {
  Log("Installing module %s from %s.\n", module, objectPath);
  if (!File_IsFile(objectPath)) {
    Log("Error: %s is not a valid module path.\n", objectPath);
    return false;
  }
  const char *release = kernPrep.kernel.utsRelease;
  if (!File_IsDirectory(EngineFormat("/lib/modules/%s", release).get())) {
    Log("Can't figure out where to install the kernel module.\n");
    return false;
  }
  g_mkdir_with_parents(EngineFormat("/lib/modules/%s/%s", release, subdirectory).get(), 0755);

  const OwnedString object(EngineFormat("/lib/modules/%s/%s/%s.o", release, subdirectory, installName));
  if (!InstallerDB_CopyFile(objectPath, object.get(), INSTALLERDB_TIMESTAMP)) {
    Log("Failed to install the module %s to %s.\n", objectPath, object.get());
    return false;
  }
  const OwnedString link(EngineFormat("/lib/modules/%s/%s/%s.ko", release, subdirectory, installName));
  if (!InstallerDB_Link(true, object.get(), link.get())) {
    Log("Failed to create symlink from %s to %s.\n", object.get(), link.get());
    return false;
  }
  // The file that an old installation left without a suffix: its own name and place, whatever was asked for.
  File_UnlinkIfExists(EngineFormat("/lib/modules/%s/misc/%s", release, module).get());
  return true;
}

}  // namespace

bool KernPrep_InstallModule(const char *module, const char *objectPath, const char *subdirectory,
                            const char *installName) {
  ASSERT(module);
  ASSERT(objectPath);
  const bool placed = PlaceModule(module, objectPath, subdirectory ? subdirectory : "misc",
                                  installName ? installName : module);
  Posix_System("depmod");
  return placed;
}

bool KernPrep_LoadModule(const char *module) {
  const OwnedString path(EngineFormat("/lib/modules/%s/misc/%s.o", kernPrep.kernel.utsRelease, module));
  return KernPrepRun(EngineFormat("%s %s %s %s", KernPrep_FindInPath("insmod"), "", path.get(), ""));
}

bool KernPrep_UnloadModule(const char *module) {
  return KernPrepRun(EngineFormat("%s %s >/dev/null 2>&1", KernPrep_FindInPath("rmmod"), module));
}
