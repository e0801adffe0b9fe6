#include "hostinfoCpu.h"

#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>

#include "hostinfoCpuInt.h"
#include "log.h"
#include "ostdio.h"
#include "owned.h"
#include "panicUser.h"
#include "posixPosix.h"
#include "strutil.h"
#include "util_misc.h"

namespace {

constexpr char kCpuInfo[] = "/proc/cpuinfo";
constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";

// The count of processors: 0 until there is one, and the same from then on.
std::atomic<int> cpuCount;

// Whether a failure to tell the load was logged.
std::atomic<bool> loadFailureLogged;

// A stream's next line; null at its end, and where it can't be read.
OwnedString NextLine(FILE *stream) {
  char *line = nullptr;
  StdIO_ReadNextLine(stream, &line, 0, nullptr);
  return OwnedString(line);
}

// A new string (free).
char *NewTrimmed(std::string_view text) {
  const size_t begin = text.find_first_not_of(kWhiteSpace);
  if (begin == std::string_view::npos) {
    return Util_SafeStrdup("");
  }
  const size_t end = text.find_last_not_of(kWhiteSpace) + 1;
  return Util_SafeStrndup(text.data() + begin, end - begin);
}

// What stands behind the first colon behind the key, borrowed from the line, or null.
const char *FindValue(const char *line, const char *key) {
  const char *found = strstr(line, key);
  const char *colon = found == nullptr ? nullptr : strchr(found + strlen(key), ':');
  return colon == nullptr ? nullptr : colon + 1;
}

}  // namespace

int HostinfoCountCPUs(FILE *cpuInfo) {
  int count = 0;
  while (const OwnedString line = NextLine(cpuInfo)) {
    count += StrUtil_StartsWith(line.get(), "processor") ? 1 : 0;
  }
  return count;
}

char *HostinfoFindCpuInfo(FILE *cpuInfo, int cpu, const char *key) {
  OwnedString value;
  int count = 0;
  while (const OwnedString line = NextLine(cpuInfo)) {
    const char *found = FindValue(line.get(), key);
    if (found == nullptr) {
      continue;
    }
    value.reset(NewTrimmed(found));
    count++;
    if (count > cpu) {
      break;
    }
  }
  return value.release();
}

int Hostinfo_NumCPUs() {
  const int known = cpuCount.load(std::memory_order_relaxed);
  if (known > 0) {
    return known;
  }
  const OwnedStream stream(Posix_Fopen(kCpuInfo, "r"));
  const int count = stream == nullptr ? 0 : HostinfoCountCPUs(stream.get());
  cpuCount.store(count, std::memory_order_relaxed);
  return count > 0 ? count : -1;
}

bool Hostinfo_IsSMP() {
  return Hostinfo_NumCPUs() > 1;
}

char *HostinfoGetCpuInfo(int cpu, const char *key) {
  const OwnedStream stream(Posix_Fopen(kCpuInfo, "r"));
  if (stream == nullptr) {
    Warning("HOSTINFO: %s: Unable to open /proc/cpuinfo\n", __func__);
    return nullptr;
  }
  return HostinfoFindCpuInfo(stream.get(), cpu, key);
}

char *Hostinfo_GetCpuModelName(int cpu) {
  return HostinfoGetCpuInfo(cpu, "model name");
}

bool Hostinfo_GetCpuMHz(int cpu, unsigned *mhz) {
  const OwnedString value(HostinfoGetCpuInfo(cpu, "cpu MHz"));
  if (value == nullptr) {
    return false;
  }
  float scanned = 0;
  if (sscanf(value.get(), "%f", &scanned) != 1) {
    return true;
  }
  const double rounded = static_cast<double>(scanned) + 0.5;
  if (rounded >= 0 && rounded <= std::numeric_limits<unsigned>::max()) {
    *mhz = static_cast<unsigned>(rounded);
  }
  return true;
}

bool Hostinfo_GetLoadAverage(double *one, double *five, double *fifteen) {
  double loads[3];
  if (getloadavg(loads, 3) != 3) {
    if (!loadFailureLogged.exchange(true, std::memory_order_relaxed)) {
      NOT_TESTED();
    }
    return false;
  }
  double *const outputs[] = {one, five, fifteen};
  for (size_t i = 0; i < 3; i++) {
    if (outputs[i] != nullptr) {
      *outputs[i] = loads[i];
    }
  }
  return true;
}

bool Hostinfo_GetLoadAverageInt(unsigned *load) {
  double one = 0;
  if (!Hostinfo_GetLoadAverage(&one, nullptr, nullptr)) {
    return false;
  }
  // Rounded, since a load such as 0.29 lies a little below its hundredths.
  *load = static_cast<unsigned>(std::lround(one * 100));
  return true;
}

void Hostinfo_LogLoadAverage() {
  double one = 0;
  double five = 0;
  double fifteen = 0;
  if (Hostinfo_GetLoadAverage(&one, &five, &fifteen)) {
    Log("LOADAVG: %.2f %.2f %.2f\n", one, five, fifteen);
  }
}
