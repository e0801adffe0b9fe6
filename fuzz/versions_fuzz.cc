// Releases and compiler versions: comparing is antisymmetric, mangling ends and never lengthens.

#include <cstring>
#include <string>

#include "../lib/unixinstall/kprepInt.h"
#include "fuzzFile.h"
#include "kprep.h"
#include "owned.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static KernPrep_OsInfo host = {OSINFO_DISTRIBUTION_SUSE, OSINFO_VARIANT_SUSE_ENTERPRISE, 10, 0};
  kernPrep.kernel.osInfo = &host;
  const std::string text(reinterpret_cast<const char *>(data), size);
  const size_t cut = std::min(text.find('|'), text.size());
  const std::string first = text.substr(0, cut).c_str();
  const std::string second = text.substr(std::min(cut + 1, text.size())).c_str();

  const int comparison = KernPrep_CompareReleases(first.c_str(), second.c_str());
  if (comparison != -KernPrep_CompareReleases(second.c_str(), first.c_str()) ||
      KernPrep_CompareReleases(first.c_str(), first.c_str()) != 0) {
    abort();
  }
  if (strlen(OwnedString(KernPrep_MangleRelease(first.c_str())).get()) > first.size()) {
    abort();
  }
  uint32_t parts[4];
  KernPrep_ParseVersion(first.c_str(), parts);
  uint8_t major = 0;
  uint8_t minor = 0;
  KernPrep_ParseCompilerVersion(first.c_str(), &major, &minor);
  return 0;
}
