// The engine's process-wide state, shared by its files.
#ifndef OST_UNIXINSTALL_KPREPINT_H
#define OST_UNIXINSTALL_KPREPINT_H

#include <glib.h>

#include <cstdint>

#include "osinfo.h"

// Kernel version code: 2.6.18 is 0x20612.
constexpr int32_t KernPrepVersionCode(uint32_t first, uint32_t second, uint32_t third) {
  return static_cast<int32_t>((first << 16) | (second << 8) | third);
}

// The running kernel. Filled once by KernPrep_Init; only the compiler's numbers change afterwards.
struct KernPrep_KernelIdentity {
  int32_t versionCode;
  uint32_t versionParts[4];
  bool globalCliVersioned;  // recorded and never consulted
  uint8_t compilerMajor;    // of the compiler most recently chosen
  uint8_t compilerMinor;
  KernPrep_OsInfo *osInfo;
  bool modVersion;
  bool smp;
  char *athlonKernel;  // "required" or "forbidden"
  char *pageOffset;    // such as "c0000000", or null
  char *utsMachine;
  char *utsRelease;
  char *utsVersion;
};

// What the engine keeps from KernPrep_Init to KernPrep_DeInit.
struct KernPrepState {
  KernPrep_KernelIdentity kernel;
  const char *libDir;   // borrowed from the installer database
  const char *initDir;  // borrowed likewise
  GList *moduleList;
  GHashTable *builtModules;  // module name to the path of the object built by this process
  char *tempDir;             // scratch directory
  bool buildToolsUnchecked = true;
};

extern KernPrepState kernPrep;

#endif
