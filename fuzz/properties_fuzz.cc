// A set's properties: whatever they hold, a set that comes out of the scan has a name, a release and a
// category.

#include "../lib/unixinstall/kprepInt.h"
#include "fuzzFile.h"
#include "kprep.h"

namespace {

char release[] = "2.6.18-92.el5";
char version[] = "#1 SMP Tue Jun 10 18:51:06 EDT 2008";
char machine[] = "x86_64";
char athlon[] = "forbidden";
KernPrep_OsInfo host = {};

void DescribeKernel() {
  kernPrep.kernel.osInfo = &host;
  kernPrep.kernel.smp = true;
  kernPrep.kernel.athlonKernel = athlon;
  kernPrep.kernel.utsMachine = machine;
  kernPrep.kernel.utsRelease = release;
  kernPrep.kernel.utsVersion = version;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  DescribeKernel();
  fuzz::WriteInput("set/properties", data, size);
  KernPrep_PbmSet *sets = KernPrep_ScanPbmSets(fuzz::Directory().c_str());
  if (sets && (sets->next || !sets->name || !sets->utsRelease || sets->category == KERNPREP_PBM_DONT_USE)) {
    abort();
  }
  KernPrep_FreePbmSets(sets);
  return 0;
}
