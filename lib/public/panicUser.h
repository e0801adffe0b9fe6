// The ends of the process: a programming error, or a stated fatal failure.
//
// ASSERT and its family end in Panic with the source path, from the project's root, and the line.
#ifndef OST_PUBLIC_PANICUSER_H
#define OST_PUBLIC_PANICUSER_H

#include <cstdarg>

#include "log.h"

// Ends the process: writes the message to standard error and the log, keeps the log file, posts what happened
// to the user, and exits with status 255. A panic from inside a panic writes "Panic loop\n" and exits with
// status 1.
[[noreturn]] void Panic(const char *format, ...) __attribute__((format(printf, 1, 2)));
[[noreturn]] void Panic_Panic(const char *format, va_list args) __attribute__((format(printf, 1, 0)));

// Tells the user, behind the messages that are pending, that the process can't go on, and where its log and
// core file are. Does nothing when panics aren't posted.
void Panic_PostPanicMsg(const char *format, ...) __attribute__((format(printf, 1, 2)));

// When the process is to wait for a debugger, says so on standard error and sleeps until the debugger clears
// that setting. Returns at once otherwise.
void Panic_LoopOnPanic();

// Reads the settings that the configuration may hold.
void Panic_LoadState();

// Whether a panic is posted to the user; it is by default.
void Panic_SetPanicMsgPost(bool post);
bool Panic_GetPanicMsgPost();
// Whether a panic is to leave a core file, and how. Nothing here makes one: these keep what is set.
void Panic_SetCoreDumpOnPanic(bool dump);
bool Panic_GetCoreDumpOnPanic();
void Panic_SetCoreDumpFlags(int flags);
int Panic_GetCoreDumpFlags();
// The core file that a post names: null by default, not empty otherwise. The name is copied; what is got is
// borrowed until the next is set.
void Panic_SetCoreDumpFileName(const char *fileName);
const char *Panic_GetCoreDumpFileName();
// Whether a panic is to stop in a debugger.
void Panic_SetBreakOnPanic(bool stop);
bool Panic_GetBreakOnPanic();

#define ASSERT(condition)                                                   \
  (__builtin_expect(static_cast<bool>(condition), 1) ? static_cast<void>(0) \
                                                     : Panic("ASSERT %s:%d\n", __FILE__, __LINE__))
#define ASSERT_BUG(bugNr, condition)                 \
  (__builtin_expect(static_cast<bool>(condition), 1) \
       ? static_cast<void>(0)                        \
       : Panic("ASSERT %s:%d bugNr=%d\n", __FILE__, __LINE__, bugNr))
#define ASSERT_MEM_ALLOC(condition)                                         \
  (__builtin_expect(static_cast<bool>(condition), 1) ? static_cast<void>(0) \
                                                     : Panic("MEM_ALLOC %s:%d\n", __FILE__, __LINE__))
#define NOT_IMPLEMENTED() Panic("NOT_IMPLEMENTED %s:%d\n", __FILE__, __LINE__)
#define NOT_REACHED() Panic("NOT_REACHED %s:%d\n", __FILE__, __LINE__)
#define NOT_REACHED_BUG(bugNr) Panic("NOT_REACHED %s:%d bugNr=%d\n", __FILE__, __LINE__, bugNr)
#define PANIC() Panic("PANIC %s:%d\n", __FILE__, __LINE__)
// No end: a line in the log that tells that a path ran that nobody has tried.
#define NOT_TESTED() Log("NOT_TESTED %s:%d\n", __FILE__, __LINE__)

#endif
