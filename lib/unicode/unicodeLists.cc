#include "panicUser.h"
#include "unicodeInt.h"

namespace {

using ListConverter = char *(*)(const char *entry, StringEncoding encoding);

// How many entries stand before the null that ends a list.
size_t CountEntries(const char *const *list) {
  size_t count = 0;
  while (list[count] != nullptr) {
    count++;
  }
  return count;
}

// A new list of the converted entries, or null when one can't be converted or memory is out.
char **ConvertList(const char *const *list, ssize_t length, StringEncoding encoding, ListConverter convert) {
  if (list == nullptr) {
    ASSERT(length <= 0);
    return nullptr;
  }
  const size_t count = length == -1 ? CountEntries(list) + 1 : static_cast<size_t>(length);
  // An array of pointers is meant. NOLINTNEXTLINE(bugprone-sizeof-expression)
  auto **converted = static_cast<char **>(calloc(count == 0 ? 1 : count, sizeof(char *)));
  if (converted == nullptr) {
    return nullptr;
  }
  for (size_t i = 0; i < count; i++) {
    if (list[i] == nullptr) {
      continue;
    }
    converted[i] = convert(list[i], encoding);
    if (converted[i] == nullptr) {
      Unicode_FreeList(converted, static_cast<ssize_t>(i));
      return nullptr;
    }
  }
  return converted;
}

char *AllocEntry(const char *entry, StringEncoding encoding) {
  return const_cast<char *>(Unicode_Alloc(entry, encoding));
}

}  // namespace

char **Unicode_AllocList(const char *const *list, ssize_t length, StringEncoding encoding) {
  return ConvertList(list, length, encoding, AllocEntry);
}

char **Unicode_GetAllocList(const Unicode *list, ssize_t length, StringEncoding encoding) {
  return ConvertList(list, length, encoding, Unicode_GetAllocBytes);
}

void Unicode_FreeList(char **list, ssize_t length) {
  if (list == nullptr) {
    ASSERT(length <= 0);
    return;
  }
  const size_t count = length == -1 ? CountEntries(list) : static_cast<size_t>(length);
  for (size_t i = 0; i < count; i++) {
    free(list[i]);
  }
  free(list);
}
