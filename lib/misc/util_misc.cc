#include "util_misc.h"

#include <cstdlib>
#include <cstring>

#include "panicUser.h"

namespace {

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
