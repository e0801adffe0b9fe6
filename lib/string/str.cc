#include "str.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "bsd_vsnprintfInt.h"
#include "owned.h"
#include "panicUser.h"
#include "utf8.h"

#define BUFFER_TOO_SMALL() StrBufferTooSmall(__LINE__, __builtin_return_address(0))

namespace {

using OwnedWide = std::unique_ptr<wchar_t, Releaser<free>>;

[[noreturn]] void StrBufferTooSmall(int line, const void *caller) {
  Panic("%s:%d Buffer too small 0x%x\n", __FILE__, line,
        static_cast<unsigned>(reinterpret_cast<uintptr_t>(caller)));
}

size_t StrLength(const char *text, size_t maxLength) {
  return strnlen(text, maxLength);
}

size_t StrLength(const wchar_t *text, size_t maxLength) {
  return wcsnlen(text, maxLength);
}

// Whether two lengths together leave no room for the NUL.
bool StrReaches(size_t length, size_t added, size_t maxSize) {
  size_t sum = 0;
  return __builtin_add_overflow(length, added, &sum) || sum >= maxSize;
}

// Each of these returns false when `dest` is too small, and has then written nothing.
template <typename Character>
bool StrCopy(Character *dest, const Character *source, size_t maxSize) {
  ASSERT(dest != nullptr);
  ASSERT(source != nullptr);
  const size_t length = StrLength(source, maxSize);
  if (length >= maxSize) {
    return false;
  }
  std::copy_n(source, length + 1, dest);
  return true;
}

template <typename Character>
bool StrAppend(Character *dest, const Character *source, size_t maxSize) {
  ASSERT(dest != nullptr);
  ASSERT(source != nullptr);
  const size_t length = StrLength(dest, maxSize);
  const size_t added = StrLength(source, maxSize);
  if (StrReaches(length, added, maxSize)) {
    return false;
  }
  std::copy_n(source, added + 1, dest + length);
  return true;
}

template <typename Character>
bool StrAppendCounted(Character *dest, const Character *source, size_t count, size_t maxSize) {
  ASSERT(dest != nullptr);
  ASSERT(source != nullptr);
  const size_t length = StrLength(dest, maxSize);
  if (StrReaches(length, count, maxSize) && StrReaches(length, StrLength(source, maxSize), maxSize)) {
    return false;
  }
  const size_t added = StrLength(source, count);
  std::copy_n(source, added, dest + length);
  dest[length + added] = Character();
  return true;
}

}  // namespace

char *Str_Strcpy(char *dest, const char *source, size_t maxSize) {
  if (!StrCopy(dest, source, maxSize)) {
    BUFFER_TOO_SMALL();
  }
  return dest;
}

char *Str_Strcat(char *dest, const char *source, size_t maxSize) {
  if (!StrAppend(dest, source, maxSize)) {
    BUFFER_TOO_SMALL();
  }
  return dest;
}

char *Str_Strncat(char *dest, size_t maxSize, const char *source, size_t count) {
  if (!StrAppendCounted(dest, source, count, maxSize)) {
    BUFFER_TOO_SMALL();
  }
  return dest;
}

char *Str_Mbscpy(char *dest, const char *source, size_t maxSize) {
  if (!StrCopy(dest, source, maxSize)) {
    BUFFER_TOO_SMALL();
  }
  return dest;
}

char *Str_Mbscat(char *dest, const char *source, size_t maxSize) {
  if (!StrAppend(dest, source, maxSize)) {
    BUFFER_TOO_SMALL();
  }
  return dest;
}

wchar_t *Str_Wcscpy(wchar_t *dest, const wchar_t *source, size_t maxSize) {
  if (!StrCopy(dest, source, maxSize)) {
    BUFFER_TOO_SMALL();
  }
  return dest;
}

wchar_t *Str_Wcscat(wchar_t *dest, const wchar_t *source, size_t maxSize) {
  if (!StrAppend(dest, source, maxSize)) {
    BUFFER_TOO_SMALL();
  }
  return dest;
}

wchar_t *Str_Wcsncat(wchar_t *dest, size_t maxSize, const wchar_t *source, size_t count) {
  if (!StrAppendCounted(dest, source, count, maxSize)) {
    BUFFER_TOO_SMALL();
  }
  return dest;
}

char *Str_ToLower(char *text) {
  ASSERT(text != nullptr);
  for (char *byte = text; *byte != '\0'; byte++) {
    if (*byte >= 'A' && *byte <= 'Z') {
      *byte = static_cast<char>(*byte - 'A' + 'a');
    }
  }
  return text;
}

size_t Str_Strlen(const char *text, size_t maxLength) {
  ASSERT(text != nullptr);
  return strnlen(text, maxLength);
}

const char *Str_Strnstr(const char *text, const char *substring, size_t maxLength) {
  ASSERT(text != nullptr);
  ASSERT(substring != nullptr);
  return static_cast<const char *>(memmem(text, strnlen(text, maxLength), substring, strlen(substring)));
}

int Str_Vsnprintf(char *buffer, size_t size, const char *format, va_list args) {
  ASSERT(buffer != nullptr);
  ASSERT(format != nullptr);
  const int length = bsd_vsnprintf(&buffer, size, format, args);
  if (length >= 0 && static_cast<size_t>(length) < size) {
    return length;
  }
  if (size == 0) {
    return -1;
  }
  // A print that failed may have ended before the buffer did.
  if (length >= 0 || strnlen(buffer, size) == size - 1) {
    buffer[Utf8_WholeLength(buffer, size - 1)] = '\0';
  }
  return -1;
}

void Str_Snprintf(char *buffer, size_t size, const char *format, ...) {
  va_list args;
  va_start(args, format);
  Str_Vsnprintf(buffer, size, format, args);
  va_end(args);
}

int Str_Sprintf(char *buffer, size_t size, const char *format, ...) {
  va_list args;
  va_start(args, format);
  const int length = Str_Vsnprintf(buffer, size, format, args);
  va_end(args);
  if (length < 0) {
    BUFFER_TOO_SMALL();
  }
  return length;
}

char *Str_Vasprintf(size_t *outLength, const char *format, va_list args) {
  ASSERT(format != nullptr);
  char *text = nullptr;
  const int length = bsd_vsnprintf(&text, 0, format, args);
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

int Str_Vswprintf(wchar_t *buffer, size_t size, const wchar_t *format, va_list args) {
  ASSERT(buffer != nullptr);
  ASSERT(format != nullptr);
  // No text takes more, and the library's pointers would wrap around in a larger buffer.
  const size_t usable = std::min(size, size_t{INT_MAX} + 1);
  // The callers' lists are started. NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
  const int length = vswprintf(buffer, usable, format, args);
  // The library ends a text that it failed to convert, but not one that it cut.
  if (length < 0 && usable > 0 && wcsnlen(buffer, usable - 1) == usable - 1) {
    buffer[usable - 1] = L'\0';
  }
  return length;
}

void Str_Snwprintf(wchar_t *buffer, size_t size, const wchar_t *format, ...) {
  va_list args;
  va_start(args, format);
  Str_Vswprintf(buffer, size, format, args);
  va_end(args);
}

int Str_Swprintf(wchar_t *buffer, size_t size, const wchar_t *format, ...) {
  va_list args;
  va_start(args, format);
  const int length = Str_Vswprintf(buffer, size, format, args);
  va_end(args);
  if (length < 0) {
    BUFFER_TOO_SMALL();
  }
  return length;
}

wchar_t *Str_Vaswprintf(size_t *outLength, const wchar_t *format, va_list args) {
  ASSERT(format != nullptr);
  for (size_t size = std::max<size_t>(2 * wcslen(format), 1); size <= INT_MAX; size *= 2) {
    OwnedWide text(static_cast<wchar_t *>(malloc(size * sizeof(wchar_t))));
    if (text == nullptr) {
      return nullptr;
    }
    va_list again;
    va_copy(again, args);
    errno = 0;
    // As above. NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
    const int length = vswprintf(text.get(), size, format, again);
    va_end(again);
    if (length >= 0) {
      if (outLength != nullptr) {
        *outLength = static_cast<size_t>(length);
      }
      return text.release();
    }
    // More room doesn't help a text that can't be converted.
    if (errno == EILSEQ) {
      return nullptr;
    }
  }
  return nullptr;
}

wchar_t *Str_Aswprintf(size_t *outLength, const wchar_t *format, ...) {
  va_list args;
  va_start(args, format);
  wchar_t *text = Str_Vaswprintf(outLength, format, args);
  va_end(args);
  return text;
}

wchar_t *Str_SafeVaswprintf(size_t *outLength, const wchar_t *format, va_list args) {
  wchar_t *text = Str_Vaswprintf(outLength, format, args);
  if (text == nullptr) {
    NOT_IMPLEMENTED();
  }
  return text;
}

wchar_t *Str_SafeAswprintf(size_t *outLength, const wchar_t *format, ...) {
  va_list args;
  va_start(args, format);
  wchar_t *text = Str_SafeVaswprintf(outLength, format, args);
  va_end(args);
  return text;
}
