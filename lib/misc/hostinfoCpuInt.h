// The readers of /proc/cpuinfo, for text from anywhere.
#ifndef OST_MISC_HOSTINFOCPUINT_H
#define OST_MISC_HOSTINFOCPUINT_H

#include <cstdio>

// How many lines begin with "processor".
int HostinfoCountCPUs(FILE *cpuInfo);

// What HostinfoGetCpuInfo finds: a new string (free), or null.
char *HostinfoFindCpuInfo(FILE *cpuInfo, int cpu, const char *key);

#endif
