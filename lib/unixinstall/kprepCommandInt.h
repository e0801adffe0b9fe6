// Command lines, as the engine's files form and run them.
#ifndef OST_UNIXINSTALL_KPREPCOMMANDINT_H
#define OST_UNIXINSTALL_KPREPCOMMANDINT_H

#include "formatInt.h"
#include "kprep.h"
#include "owned.h"
#include "posixPosix.h"
#include "util_misc.h"

// A program's path that outlives the next search, or null when the program isn't found.
inline OwnedString KernPrepProgramPath(const char *program) {
  return OwnedString(Util_SafeStrdup(KernPrep_FindInPath(program)));
}

// Runs a command line in the system shell. Returns whether its status was 0.
inline bool KernPrepRun(const OwnedString &command) {
  return Posix_System(command.get()) == 0;
}

#endif
