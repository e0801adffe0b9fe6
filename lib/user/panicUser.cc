#include "panicUser.h"

#include <cstdio>
#include <cstdlib>

#include "log.h"
#include "str.h"
#include "util.h"

namespace {

// How often the process entered Panic. It only rises: the exit that the first entry starts runs handlers, and
// those may fail too.
int panicCount;

[[noreturn]] void PanicFirst(const char *text) {
  Log("%s", text);
  Util_Backtrace(0);
  Log_SetAlwaysKeep(true);
  exit(-1);
}

}  // namespace

void Panic(const char *format, ...) {
  va_list args;
  va_start(args, format);
  Panic_Panic(format, args);
  // cppcheck-suppress va_end_missing ; nothing comes behind a panic
}

void Panic_Panic(const char *format, va_list args) {
  char text[1024];
  Str_Vsnprintf(text, sizeof text, format, args);
  fputs(text, stderr);
  Log_DisableThrottling();
  panicCount++;
  if (panicCount == 1) {
    PanicFirst(text);
  }
  if (panicCount == 2) {
    Log("%s", text);
    Log("Panic loop\n");
  }
  fputs("Panic loop\n", stderr);
  exit(1);
}
