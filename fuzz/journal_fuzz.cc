// The installer's journal: whatever it holds, it is replayed or refused, and answers are what they were said
// to be.

#include <cstring>

#include "fuzzFile.h"
#include "installerdb.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::WriteInput("locations", data, size);
  if (!InstallerDB_Init(fuzz::Directory().c_str(), true)) {
    return 0;
  }
  for (const char *answer :
       {InstallerDB_GetBinDir(), InstallerDB_GetLibDir(), InstallerDB_GetInitScriptsDir()}) {
    if (!answer || *answer == '\0' || strpbrk(answer, " \n")) {
      abort();
    }
  }
  InstallerDB_IsFileKnown("/lib/modules/x");
  InstallerDB_DeInit();
  return 0;
}
