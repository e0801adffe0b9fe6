// Texts and command lines, as the engine's files form them.
#ifndef OST_UNIXINSTALL_KPREPCOMMANDINT_H
#define OST_UNIXINSTALL_KPREPCOMMANDINT_H

#include <cstdarg>

#include "kprep.h"
#include "owned.h"
#include "panicUser.h"
#include "posixPosix.h"
#include "str.h"
#include "util_misc.h"

// A formatted text. A null string prints as "(null)"; memory that is out stops the program.
__attribute__((format(printf, 1, 2))) inline OwnedString KernPrepFormat(const char *format, ...) {
  va_list args;
  va_start(args, format);
  OwnedString text(Str_Vasprintf(nullptr, format, args));
  va_end(args);
  ASSERT_MEM_ALLOC(text);
  return text;
}

// A program's path that outlives the next search, or null when the program isn't found.
inline OwnedString KernPrepProgramPath(const char *program) {
  return OwnedString(Util_SafeStrdup(KernPrep_FindInPath(program)));
}

// Runs a command line in the system shell. Returns whether its status was 0.
inline bool KernPrepRun(const OwnedString &command) {
  return Posix_System(command.get()) == 0;
}

#endif
