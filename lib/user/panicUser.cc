#include "panicUser.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "config.h"
#include "log.h"
#include "msg.h"
#include "productState.h"
#include "str.h"
#include "util.h"
#include "util_misc.h"
#include "vthread.h"

namespace {

constexpr size_t kTextSize = 1024;
constexpr int kErrorSeverity = 3;
// Of the product's capabilities: it has a folder for its user interface from which data can be collected.
constexpr uint64_t kCapabilityViewer = 8;
// What Panic_SetBreakOnPanic stores for true; what lies above 1 means the same.
constexpr int kBreak = 2;

// What a panic does, and how often the process entered Panic. The count only rises: the exit that the first
// entry starts runs handlers, and those may fail too. It all lives as long as the process, handlers included.
struct PanicState {
  bool msgPostOnPanic = true;
  bool coreDumpOnPanic = true;
  volatile bool loopOnPanic = false;  // a debugger clears it
  int breakOnPanic = 0;
  int coreDumpFlags = 0;
  char *coreDumpFile = nullptr;
  int panicCount = 0;
};
PanicState panicState;

[[noreturn]] void PanicFirst(const char *text) {
  Log("%s", text);
  Util_Backtrace(0);
  Log_SetAlwaysKeep(true);
  Panic_LoopOnPanic();
  Panic_PostPanicMsg("%s", text);
  exit(-1);
}

// Append where the log and the core file are, and what support is to have of them.

void PanicAppendCoreFile(bool haveLog) {
  if (panicState.coreDumpFile[0] == '\0') {
    NOT_REACHED();
  }
  Msg_Append(MSGID(panic.haveCore) "A core file is available in \"%s\".  ", panicState.coreDumpFile);
  if (haveLog) {
    Msg_Append(MSGID(panic.requestSupport.withLogAndCore) "You can request support and include the contents "
                                                          "of the log file and the core file.  ");
  } else {
    Msg_Append(MSGID(panic.requestSupport.withCore) "You can request support and include the contents of the "
                                                    "core file.  ");
  }
}

void PanicAppendNoCoreFile(bool haveLog) {
  if (haveLog) {
    Msg_Append(MSGID(panic.requestSupport.withLog) "You can request support and include the contents of the "
                                                   "log file.  ");
  } else {
    Msg_Append(MSGID(panic.requestSupport.withoutLog) "You can request support.  ");
  }
}

void PanicAppendFiles() {
  const char *log = Log_GetFileName();
  if (log != nullptr) {
    Msg_Append(MSGID(panic.haveLog) "A log file is available in \"%s\".  ", log);
  }
  if (panicState.coreDumpFile != nullptr) {
    PanicAppendCoreFile(log != nullptr);
  } else {
    PanicAppendNoCoreFile(log != nullptr);
  }
}

void PanicAppendHowToCollect() {
  // A line break inside an id would be a blank of the id.
  // clang-format off
  if ((ProductState_GetCapabilities() & kCapabilityViewer) != 0) {
    Msg_Append(
        MSGID(panic.requestSupport.ostSupport.windowsOrLinux.viewer)
        "\nTo collect data to submit to Ostrel support, run \"ost-support\".\n");
  } else {
    Msg_Append(
        MSGID(panic.requestSupport.ostSupport.linux)
        "\nTo collect data to submit to Ostrel support, select Help > About and click "
        "\"Collect Support Data\". You can also run the \"ost-support\" script in the Bench folder directly.\n");
  }
  // clang-format on
}

}  // namespace

void Panic(const char *format, ...) {
  va_list args;
  va_start(args, format);
  Panic_Panic(format, args);
  // cppcheck-suppress va_end_missing ; nothing comes behind a panic
}

void Panic_Panic(const char *format, va_list args) {
  char text[kTextSize];
  Str_Vsnprintf(text, sizeof text, format, args);
  fputs(text, stderr);
  panicState.panicCount++;
  // Takes the log's lock, which may be what panics.
  if (panicState.panicCount <= 2) {
    Log_DisableThrottling();
  }
  if (panicState.panicCount == 1) {
    PanicFirst(text);
  }
  if (panicState.panicCount == 2) {
    Log("%s", text);
    Log("Panic loop\n");
  }
  fputs("Panic loop\n", stderr);
  exit(1);
}

void Panic_PostPanicMsg(const char *format, ...) {
  if (!panicState.msgPostOnPanic) {
    return;
  }
  char text[kTextSize];
  va_list args;
  va_start(args, format);
  Str_Vsnprintf(text, sizeof text, format, args);
  va_end(args);
  Msg_Append(MSGID(log.error.unrecoverable) "%s%s unrecoverable error: (%s)\n%s", Msg_Present() ? "\n" : "",
             ProductState_GetName(), VThread_CurName(), text);
  PanicAppendFiles();
  PanicAppendHowToCollect();
  Msg_Post(kErrorSeverity,
           MSGID(panic.response) "We will respond on the basis of your support entitlement.\n");
}

void Panic_LoopOnPanic() {
  if (!panicState.loopOnPanic) {
    return;
  }
  fprintf(stderr, "Looping pid=%d\n", getpid());
  while (panicState.loopOnPanic) {
    sleep(1);
  }
}

void Panic_LoadState() {
  const PanicState defaults;
  panicState.coreDumpOnPanic = Config_GetBool(defaults.coreDumpOnPanic, "coreDumpOnPanic");
  panicState.loopOnPanic = Config_GetBool(defaults.loopOnPanic, "panic.loopOnPanic");
  panicState.breakOnPanic = Config_GetLong(defaults.breakOnPanic, "panic.breakOnPanic");
  panicState.coreDumpFlags = Config_GetLong(defaults.coreDumpFlags, "coreDumpFlags");
}

void Panic_SetPanicMsgPost(bool post) {
  panicState.msgPostOnPanic = post;
}

bool Panic_GetPanicMsgPost() {
  return panicState.msgPostOnPanic;
}

void Panic_SetCoreDumpOnPanic(bool dump) {
  panicState.coreDumpOnPanic = dump;
}

bool Panic_GetCoreDumpOnPanic() {
  return panicState.coreDumpOnPanic;
}

void Panic_SetCoreDumpFlags(int flags) {
  panicState.coreDumpFlags = flags;
}

int Panic_GetCoreDumpFlags() {
  return panicState.coreDumpFlags;
}

void Panic_SetCoreDumpFileName(const char *fileName) {
  char *copy = Util_SafeStrdup(fileName);
  free(panicState.coreDumpFile);
  panicState.coreDumpFile = copy;
}

const char *Panic_GetCoreDumpFileName() {
  return panicState.coreDumpFile;
}

void Panic_SetBreakOnPanic(bool stop) {
  panicState.breakOnPanic = stop ? kBreak : 0;
}

bool Panic_GetBreakOnPanic() {
  return panicState.breakOnPanic > 1;
}
