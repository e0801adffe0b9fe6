#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "hashTable.h"
#include "panicUser.h"
#include "posixPosix.h"
#include "posixPosixInt.h"
#include "util_misc.h"

namespace {

constexpr uint32_t kEnvironmentBuckets = 128;

// What a variable's value was when it was last asked for, and what it was before that value came.
struct EnvironmentValue {
  std::atomic<char *> current;
  std::atomic<char *> retired;
};

// The values handed out so far, by name. Made at the first question and kept until the process ends, so that
// what was handed out stays readable.
HashTable *volatile environmentValues = nullptr;

HashTable *EnvironmentTable() {
  return HashTable_AllocOnce(&environmentValues, kEnvironmentBuckets,
                             HASH_STRING_KEY | HASH_FLAG_ATOMIC | HASH_FLAG_COPYKEY, nullptr);
}

// Puts a value under a name that has none. Returns false, with the value still the caller's, when another
// thread was first.
bool EnvironmentInsert(HashTable *table, const char *name, char *value) {
  OwnedString block(static_cast<char *>(Util_SafeMalloc(sizeof(EnvironmentValue))));
  auto *entry = new (block.get()) EnvironmentValue{value, nullptr};
  if (!HashTable_Insert(table, name, entry)) {
    return false;
  }
  // The table has it from here on.
  static_cast<void>(block.release());  // NOLINT(bugprone-unused-return-value)
  return true;
}

// Puts a value in the place of the current one. Returns false, with the value still the caller's, when
// another thread was first.
bool EnvironmentReplace(EnvironmentValue *entry, char *current, char *value) {
  if (!entry->current.compare_exchange_strong(current, value)) {
    return false;
  }
  free(entry->retired.exchange(current));
  return true;
}

// Returns what the table holds for the name from now on.
const char *EnvironmentKeep(const char *name, OwnedString value) {
  HashTable *table = EnvironmentTable();
  for (;;) {
    void *found = nullptr;
    if (!HashTable_Lookup(table, name, &found)) {
      if (EnvironmentInsert(table, name, value.get())) {
        return value.release();
      }
      continue;
    }
    auto *entry = static_cast<EnvironmentValue *>(found);
    char *current = entry->current;
    if (strcmp(current, value.get()) == 0) {
      return current;
    }
    if (EnvironmentReplace(entry, current, value.get())) {
      return value.release();
    }
  }
}

// getenv without its denial of a null name, which no variable has.
char *EnvironmentGet(const char *name) {
  return name == nullptr ? nullptr : getenv(name);
}

bool IsAscii(const char *text) {
  for (; *text != '\0'; text++) {
    if (static_cast<unsigned char>(*text) >= 0x80) {
      return false;
    }
  }
  return true;
}

}  // namespace

const char *Posix_Getenv(const char *name) {
  const char *bytes = PosixCall(EnvironmentGet, name);
  if (bytes == nullptr) {
    return nullptr;
  }
  OwnedString value(PosixFromSystem(bytes));
  return value == nullptr ? nullptr : EnvironmentKeep(name, std::move(value));
}

int Posix_Setenv(const char *name, const char *value, int overwrite) {
  // setenv itself would read through a null value.
  if (value == nullptr) {
    errno = EFAULT;
    return -1;
  }
  const PosixText valueBytes(value);
  return valueBytes ? PosixCall(setenv, name, valueBytes.Bytes(), overwrite) : -1;
}

int Posix_Unsetenv(const char *name) {
  return PosixCall(unsetenv, name);
}

int Posix_Putenv(char *text) {
  ASSERT(text != nullptr && IsAscii(text));
  return putenv(text);
}
