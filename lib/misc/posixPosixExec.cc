#include <unistd.h>

#include <cstdarg>
#include <memory>

#include "panicUser.h"
#include "posixPosix.h"
#include "posixPosixInt.h"

namespace {

using ExecCall = int (*)(const char *path, char *const *arguments);
using OwnedList = std::unique_ptr<const char *, Releaser<free>>;

// What the C library's own loops over a list take in the place of none, as the kernel does.
char *const *NonNullList(char *const *list) {
  static char *const kEmpty[] = {nullptr};
  return list != nullptr ? list : kEmpty;
}

// execvp itself would read through a null name.
int ExecOnPath(const char *name, char *const *arguments) {
  if (name == nullptr) {
    errno = EFAULT;
    return -1;
  }
  return execvp(name, NonNullList(arguments));
}

int Exec(ExecCall call, const char *path, const char *const *arguments) {
  const PosixText pathBytes(path);
  const PosixTexts argumentBytes(arguments);
  return pathBytes && argumentBytes ? call(pathBytes.Bytes(), argumentBytes.Bytes()) : -1;
}

size_t CountArguments(const char *first, va_list rest) {
  size_t count = 0;
  // The callers' lists are started. NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
  for (const char *next = first; next != nullptr; next = va_arg(rest, const char *)) {
    count++;
  }
  return count;
}

// The arguments with the null pointer behind them; null when memory is out.
OwnedList GatherArguments(const char *first, va_list rest) {
  va_list counted;
  va_copy(counted, rest);
  const size_t count = CountArguments(first, counted);
  va_end(counted);
  // An array of pointers is meant. NOLINTNEXTLINE(bugprone-sizeof-expression)
  OwnedList list(static_cast<const char **>(calloc(count + 1, sizeof(char *))));
  const char *next = first;
  for (size_t i = 0; list != nullptr && i < count; i++) {
    list.get()[i] = next;
    next = va_arg(rest, const char *);
  }
  return list;
}

int ExecList(ExecCall call, const char *path, const char *first, va_list rest) {
  const OwnedList list = GatherArguments(first, rest);
  if (list == nullptr) {
    errno = EINVAL;
    return -1;
  }
  return Exec(call, path, list.get());
}

}  // namespace

FILE *Posix_Popen(const char *command, const char *mode) {
  ASSERT(mode != nullptr);
  return PosixCall(popen, command, mode);
}

int Posix_System(const char *command) {
  return PosixCall(system, command);
}

int Posix_Execl(const char *path, const char *argument, ...) {
  va_list args;
  va_start(args, argument);
  const int result = ExecList(execv, path, argument, args);
  va_end(args);
  return result;
}

int Posix_Execlp(const char *path, const char *argument, ...) {
  va_list args;
  va_start(args, argument);
  const int result = ExecList(ExecOnPath, path, argument, args);
  va_end(args);
  return result;
}

int Posix_Execv(const char *path, const char *const *arguments) {
  return Exec(execv, path, arguments);
}

int Posix_Execvp(const char *path, const char *const *arguments) {
  return Exec(ExecOnPath, path, arguments);
}

int Posix_Execve(const char *path, const char *const *arguments, const char *const *environment) {
  const PosixText pathBytes(path);
  const PosixTexts argumentBytes(arguments);
  const PosixTexts environmentBytes(environment);
  if (!pathBytes || !argumentBytes || !environmentBytes) {
    return -1;
  }
  int (*const call)(const char *, char *const *, char *const *) = execve;
  return call(pathBytes.Bytes(), argumentBytes.Bytes(), environmentBytes.Bytes());
}

int Posix_Spawn(pid_t *child, const char *path, const posix_spawn_file_actions_t *actions,
                const char *const *arguments) {
  const PosixText pathBytes(path);
  const PosixTexts argumentBytes(arguments);
  if (!pathBytes || !argumentBytes) {
    return EINVAL;
  }
  int (*const call)(pid_t *, const char *, const posix_spawn_file_actions_t *, const posix_spawnattr_t *,
                    char *const *, char *const *) = posix_spawn;
  return call(child, pathBytes.Bytes(), actions, nullptr, NonNullList(argumentBytes.Bytes()), environ);
}
