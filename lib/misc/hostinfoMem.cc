#include "hostinfoMem.h"

#include <fcntl.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>

#include "log.h"
#include "posixPosix.h"

namespace {

constexpr unsigned kPageShift = 12;
constexpr uint64_t kMinPages = 128;
constexpr uint64_t kMegabyte = 1U << 20;
// Memory above this is rounded to the greater unit.
constexpr uint64_t kSmallMemory = 0x7ffffff;

constexpr size_t kMemInfoSize = 4095;
constexpr size_t kStatmSize = 63;

uint64_t RoundUp(uint64_t value, uint64_t unit) {
  return (value + unit - 1) / unit * unit;
}

void Give(uint64_t *output, uint64_t value) {
  if (output != nullptr) {
    *output = value;
  }
}

// The beginning of a file, at most so many bytes: empty when it can't be read, nothing when it can't be
// opened.
std::optional<std::string> ReadBeginning(const char *path, size_t size) {
  const int fd = Posix_Open(path, O_RDONLY | O_CLOEXEC);
  if (fd == -1) {
    return std::nullopt;
  }
  std::string text(size, '\0');
  const ssize_t length = read(fd, text.data(), size);
  close(fd);
  text.resize(length > 0 ? static_cast<size_t>(length) : 0);
  return text;
}

// The kilobytes of cached files that a text of /proc/meminfo tells, or 0.
uint64_t ParseCached(const std::string &memInfo) {
  constexpr char kKey[] = "Cached:";
  const char *found = strstr(memInfo.c_str(), kKey);
  if (found == nullptr) {
    return 0;
  }
  const char *number = found + strlen(kKey);
  number += strspn(number, " \t");
  uint64_t kilobytes = 0;
  std::from_chars(number, number + strlen(number), kilobytes);
  return kilobytes;
}

}  // namespace

bool HostinfoSysinfo(uint64_t *totalRam, uint64_t *freeRam, uint64_t *totalSwap, uint64_t *freeSwap) {
  struct sysinfo info;
  if (sysinfo(&info) == -1) {
    return false;
  }
  const uint64_t unit = info.mem_unit == 0 ? 1 : info.mem_unit;
  Give(totalRam, info.totalram * unit);
  Give(freeRam, info.freeram * unit);
  Give(totalSwap, info.totalswap * unit);
  Give(freeSwap, info.freeswap * unit);
  return true;
}

bool HostinfoGetSwapInfo(uint64_t *total, uint64_t *free) {
  uint64_t totalBytes = 0;
  uint64_t freeBytes = 0;
  if (!HostinfoSysinfo(nullptr, nullptr, &totalBytes, &freeBytes)) {
    return false;
  }
  Give(total, totalBytes >> kPageShift);
  Give(free, freeBytes >> kPageShift);
  return true;
}

bool HostinfoGetMemInfo(uint64_t *minSize, uint64_t *maxSize, uint64_t *currentSize) {
  uint64_t total = 0;
  uint64_t free = 0;
  if (!HostinfoSysinfo(&total, &free, nullptr, nullptr)) {
    return false;
  }
  total = RoundUp(total, (total > kSmallMemory ? 32 : 8) * kMegabyte);
  *minSize = kMinPages;
  *maxSize = total >> kPageShift;

  const std::optional<std::string> memInfo = ReadBeginning("/proc/meminfo", kMemInfoSize);
  if (!memInfo) {
    Warning("HOSTINFO: %s: Unable to open /proc/meminfo\n", __func__);
  }
  const uint64_t cached = memInfo ? ParseCached(*memInfo) : 0;
  Give(currentSize, (cached >> 2) + (free >> kPageShift));
  return true;
}

bool Hostinfo_GetMemoryInfoInPages(uint64_t *minSize, uint64_t *maxSize, uint64_t *currentSize) {
  return HostinfoGetMemInfo(minSize, maxSize, currentSize);
}

void Hostinfo_LogMemUsage() {
  const std::optional<std::string> statm = ReadBeginning("/proc/self/statm", kStatmSize);
  int sizes[7];
  if (statm && sscanf(statm->c_str(), "%d %d %d %d %d %d %d", &sizes[0], &sizes[1], &sizes[2], &sizes[3],
                      &sizes[4], &sizes[5], &sizes[6]) == 7) {
    Log("RUSAGE size=%d resident=%d share=%d trs=%d lrs=%d drs=%d dt=%d\n", sizes[0], sizes[1], sizes[2],
        sizes[3], sizes[4], sizes[5], sizes[6]);
  }
}
