#include "util_misc.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

#include "escape.h"
#include "owned.h"
#include "panicUser.h"

namespace {

constexpr char kEscape = '#';

[[noreturn]] void UtilAllocationFailed(int bugNumber, const char *file, int line) {
  if (bugNumber == -1) {
    Panic("Unrecoverable memory allocation failure at %s:%d\n", file, line);
  }
  Panic("Unrecoverable memory allocation failure at %s:%d.  Bug number: %d\n", file, line, bugNumber);
}

}  // namespace

void *UtilSafeMallocInt(int bugNumber, size_t size, const char *file, int line) {
  void *block = malloc(size);
  if (block == nullptr && size != 0) {
    UtilAllocationFailed(bugNumber, file, line);
  }
  return block;
}

void *UtilSafeReallocInt(int bugNumber, void *pointer, size_t size, const char *file, int line) {
  void *block = realloc(pointer, size);
  if (block == nullptr && size != 0) {
    UtilAllocationFailed(bugNumber, file, line);
  }
  return block;
}

void *UtilSafeCallocInt(int bugNumber, size_t count, size_t size, const char *file, int line) {
  void *block = calloc(count, size);
  if (block == nullptr && count != 0 && size != 0) {
    UtilAllocationFailed(bugNumber, file, line);
  }
  return block;
}

char *UtilSafeStrdupInt(int bugNumber, const char *text, const char *file, int line) {
  if (text == nullptr) {
    return nullptr;
  }
  char *copy = strdup(text);
  if (copy == nullptr) {
    UtilAllocationFailed(bugNumber, file, line);
  }
  return copy;
}

char *UtilSafeStrndupInt(int bugNumber, const char *text, size_t length, const char *file, int line) {
  if (text == nullptr) {
    return nullptr;
  }
  char *copy = strndup(text, length);
  if (copy == nullptr) {
    UtilAllocationFailed(bugNumber, file, line);
  }
  return copy;
}

char *Util_CombineStrings(const char *const *list, size_t count) {
  std::string joined;
  for (size_t i = 0; i < count; i++) {
    joined.append(list[i], strlen(list[i]) + 1);
  }
  bool escaped[256] = {};
  escaped[0] = true;
  escaped[static_cast<unsigned char>(kEscape)] = true;
  char *combined = Escape_Do(kEscape, escaped, joined.data(), joined.size(), nullptr);
  ASSERT_MEM_ALLOC(combined != nullptr);
  return combined;
}

char **Util_SeparateStrings(const char *text, size_t *outCount) {
  size_t size = 0;
  const OwnedString joined(Escape_Undo(kEscape, text, strlen(text), &size));
  ASSERT_MEM_ALLOC(joined != nullptr);
  const char *begin = joined.get();
  const char *end = begin + size;
  // What no NUL ends is a string too.
  const bool isOpen = size != 0 && end[-1] != '\0';
  const size_t strings = static_cast<size_t>(std::count(begin, end, '\0')) + (isOpen ? 1 : 0);
  // An array of pointers is meant. NOLINTNEXTLINE(bugprone-sizeof-expression)
  auto *list = static_cast<char **>(Util_SafeCalloc(strings + 1, sizeof(char *)));
  const char *string = begin;
  for (size_t i = 0; i < strings; i++) {
    list[i] = Util_SafeStrdup(string);
    string += strlen(string) + 1;
  }
  *outCount = strings;
  return list;
}
