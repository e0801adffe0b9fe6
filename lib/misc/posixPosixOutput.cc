#include <cstdarg>
#include <cstdio>

#include "posixPosix.h"
#include "posixPosixInt.h"
#include "str.h"

namespace {

[[gnu::format(printf, 2, 0)]] int Print(FILE *stream, const char *format, va_list args) {
  const int error = errno;
  const OwnedString text(Str_Vasprintf(nullptr, format, args));
  errno = error;
  if (text == nullptr) {
    errno = EINVAL;
    return -1;
  }
  const PosixText bytes(text.get());
  return bytes ? fprintf(stream, "%s", bytes.Bytes()) : -1;
}

}  // namespace

int Posix_Printf(const char *format, ...) {
  va_list args;
  va_start(args, format);
  const int count = Print(stdout, format, args);
  va_end(args);
  return count;
}

int Posix_Fprintf(FILE *stream, const char *format, ...) {
  va_list args;
  va_start(args, format);
  const int count = Print(stream, format, args);
  va_end(args);
  return count;
}

void Posix_Perror(const char *text) {
  const PosixText bytes(text);
  if (bytes) {
    perror(bytes.Bytes());
  }
}
