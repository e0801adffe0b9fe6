// The ends of the process: a programming error, or a stated fatal failure.
//
// ASSERT and its family end in Panic with the source path, from the project's root, and the line.
#ifndef OST_PUBLIC_PANICUSER_H
#define OST_PUBLIC_PANICUSER_H

#include <cstdarg>

// Ends the process: writes the message to standard error and the log, keeps the log file, and exits with
// status 255. A panic from inside a panic writes "Panic loop\n" and exits with status 1.
[[noreturn]] void Panic(const char *format, ...) __attribute__((format(printf, 1, 2)));
[[noreturn]] void Panic_Panic(const char *format, va_list args) __attribute__((format(printf, 1, 0)));

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
#define PANIC() Panic("PANIC %s:%d\n", __FILE__, __LINE__)

#endif
