// What the engine must know of the distribution.
#ifndef OST_PUBLIC_OSINFO_H
#define OST_PUBLIC_OSINFO_H

#include <cstdint>

enum { OSINFO_DISTRIBUTION_UNKNOWN = 0, OSINFO_DISTRIBUTION_SUSE = 1 };
enum { OSINFO_VARIANT_NONE = 0, OSINFO_VARIANT_SUSE_ENTERPRISE = 1 };

struct KernPrep_OsInfo {
  int32_t distribution;
  int32_t variant;
  int32_t versionMajor;  // 0 when unknown
  int32_t versionMinor;
};

// Looks at the host. Never fails; freed with g_free.
KernPrep_OsInfo *OsInfo_Probe();

#endif
