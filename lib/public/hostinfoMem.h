// The host's memory. A page has 4096 bytes, whatever the kernel's pages are.
#ifndef OST_PUBLIC_HOSTINFOMEM_H
#define OST_PUBLIC_HOSTINFOMEM_H

#include <cstdint>

// The host's memory and swap space in bytes; each may be null. Returns false, with all left alone, when the
// system doesn't tell.
bool HostinfoSysinfo(uint64_t *totalRam, uint64_t *freeRam, uint64_t *totalSwap, uint64_t *freeSwap);

// The swap space in pages; each may be null. Fails in the same way.
bool HostinfoGetSwapInfo(uint64_t *total, uint64_t *free);

// The memory that programs can have, in pages.
//
// minSize      gets 128
// maxSize      gets all memory, rounded up to 32 MB, or to 8 MB when there are less than 128 MB
// currentSize  if not null, gets what is free or holds cached files; a size of the cache that isn't known,
//              with a warning when /proc/meminfo can't be opened, counts as 0
//
// Returns false, with all left alone, when the system doesn't tell.
bool Hostinfo_GetMemoryInfoInPages(uint64_t *minSize, uint64_t *maxSize, uint64_t *currentSize);
// What stands behind it on this system, and promises the same.
bool HostinfoGetMemInfo(uint64_t *minSize, uint64_t *maxSize, uint64_t *currentSize);

// Logs the process's own use of memory, if the system tells it, in the kernel's pages.
void Hostinfo_LogMemUsage();

#endif
