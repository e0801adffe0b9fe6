#include "str.h"

#include <cstdio>
#include <cstdlib>

#include "panicUser.h"
#include "utf8.h"

int Str_Vsnprintf(char *buffer, size_t size, const char *format, va_list args) {
  ASSERT(buffer != nullptr);
  ASSERT(format != nullptr);
  // The callers' lists are started. NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
  const int length = vsnprintf(buffer, size, format, args);
  if (length < 0 || size == 0) {
    return -1;
  }
  if (static_cast<size_t>(length) < size) {
    return length;
  }
  buffer[Utf8_WholeLength(buffer, size - 1)] = '\0';
  return -1;
}

void Str_Snprintf(char *buffer, size_t size, const char *format, ...) {
  va_list args;
  va_start(args, format);
  Str_Vsnprintf(buffer, size, format, args);
  va_end(args);
}

char *Str_Vasprintf(size_t *outLength, const char *format, va_list args) {
  char *text = nullptr;
  const int length = vasprintf(&text, format, args);
  if (length < 0) {
    return nullptr;
  }
  if (outLength != nullptr) {
    *outLength = static_cast<size_t>(length);
  }
  return text;
}

char *Str_Asprintf(size_t *outLength, const char *format, ...) {
  va_list args;
  va_start(args, format);
  char *text = Str_Vasprintf(outLength, format, args);
  va_end(args);
  return text;
}

char *Str_SafeVasprintf(size_t *outLength, const char *format, va_list args) {
  char *text = Str_Vasprintf(outLength, format, args);
  if (text == nullptr) {
    NOT_IMPLEMENTED();
  }
  return text;
}

char *Str_SafeAsprintf(size_t *outLength, const char *format, ...) {
  va_list args;
  va_start(args, format);
  char *text = Str_SafeVasprintf(outLength, format, args);
  va_end(args);
  return text;
}
