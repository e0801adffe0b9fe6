#include <unwind.h>

#include <cstdarg>
#include <cstdint>

#include "log.h"
#include "str.h"
#include "strutil.h"
#include "util.h"

namespace {

constexpr unsigned kMaxFrames = 500;
constexpr unsigned kMaxInnerFrames = 10;
constexpr size_t kLineSize = 509;

struct BacktraceWalk {
  Util_OutputFn outFunc;
  void *outData;
  uintptr_t limit;  // frames go upward from here
  unsigned frames;  // written so far
  unsigned inner;   // passed over: below the start
};

// The processor's numbers of the registers that a call preserves.
enum : int { kRbx = 3, kRbp = 6, kR12 = 12, kR13 = 13, kR14 = 14, kR15 = 15 };

_Unwind_Reason_Code UtilBacktraceFrame(struct _Unwind_Context *context, void *data) {
  auto *walk = static_cast<BacktraceWalk *>(data);
  const uintptr_t frame = _Unwind_GetCFA(context);
  if (frame < walk->limit) {
    const bool mayPass = walk->frames == 0 && walk->inner < kMaxInnerFrames;
    walk->inner++;
    return mayPass ? _URC_NO_REASON : _URC_END_OF_STACK;
  }
  const auto value = [context](int number) {
    return static_cast<unsigned long>(_Unwind_GetGR(context, number));
  };
  walk->outFunc(walk->outData,
                "Backtrace[%u] %016lx rip=%016lx rbx=%016lx rbp=%016lx r12=%016lx r13=%016lx r14=%016lx "
                "r15=%016lx\n",
                walk->frames, static_cast<unsigned long>(frame),
                static_cast<unsigned long>(_Unwind_GetIP(context)), value(kRbx), value(kRbp), value(kR12),
                value(kR13), value(kR14), value(kR15));
  walk->limit = frame + sizeof(void *);
  walk->frames++;
  return walk->frames < kMaxFrames ? _URC_NO_REASON : _URC_END_OF_STACK;
}

void UtilOutputToLog(void * /*outData*/, const char *format, ...) __attribute__((format(printf, 2, 3)));
void UtilOutputToLog(void * /*outData*/, const char *format, ...) {
  char line[kLineSize];
  va_list args;
  va_start(args, format);
  Str_Vsnprintf(line, sizeof line, format, args);
  va_end(args);
  Log("%s%s", line, StrUtil_EndsWith(line, "\n") ? "" : "\n");
}

}  // namespace

void Util_Backtrace(int bugNumber) {
  Util_BacktraceWithFunc(bugNumber, UtilOutputToLog, nullptr);
}

void Util_BacktraceWithFunc(int bugNumber, Util_OutputFn outFunc, void *outData) {
  if (bugNumber != 0) {
    outFunc(outData, "Backtrace for bugNr=%d\n", bugNumber);
  } else {
    outFunc(outData, "Backtrace:\n");
  }
  const char here = 0;
  Util_BacktraceFromPointerWithFunc(&here, outFunc, outData);
}

void Util_BacktraceFromPointer(const void *basePointer) {
  Util_BacktraceFromPointerWithFunc(basePointer, UtilOutputToLog, nullptr);
}

void Util_BacktraceFromPointerWithFunc(const void *basePointer, Util_OutputFn outFunc, void *outData) {
  BacktraceWalk walk{outFunc, outData, reinterpret_cast<uintptr_t>(basePointer), 0, 0};
  _Unwind_Backtrace(UtilBacktraceFrame, &walk);
}
