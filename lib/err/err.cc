#include "err.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "hashTable.h"
#include "log.h"
#include "panicUser.h"
#include "utf8.h"
#include "util_misc.h"

namespace {

struct ErrInfo {
  Err_Number errorNumber;
  char *text;
};

constexpr uint32_t kBuckets = 2048;
constexpr size_t kTextSize = 2048;

// Every error number ever asked for, by number, by its text's address and by its text. Filled on demand by
// any thread, and only ever grows: callers keep the texts.
struct ErrTables {
  HashTable *volatile byNumber;
  HashTable *volatile byAddress;
  HashTable *volatile byText;
  std::atomic<size_t> longestText;
};
ErrTables errTables;

HashTable *ErrTable(HashTable *volatile *table, int keyType) {
  return HashTable_AllocOnce(table, kBuckets, keyType | HASH_FLAG_ATOMIC, nullptr);
}
HashTable *ErrByNumber() {
  return ErrTable(&errTables.byNumber, HASH_INT_KEY);
}
HashTable *ErrByAddress() {
  return ErrTable(&errTables.byAddress, HASH_INT_KEY);
}
HashTable *ErrByText() {
  return ErrTable(&errTables.byText, HASH_STRING_KEY);
}

const void *ErrNumberKey(Err_Number errorNumber) {
  // An integer key of a table is a pointer by contract. NOLINTNEXTLINE(performance-no-int-to-ptr)
  return reinterpret_cast<const void *>(static_cast<intptr_t>(errorNumber));
}

// A table that nobody has filled yet may be null.
ErrInfo *ErrFind(const HashTable *table, const void *key) {
  if (table == nullptr) {
    return nullptr;
  }
  void *info = nullptr;
  HashTable_Lookup(table, key, &info);
  return static_cast<ErrInfo *>(info);
}

ErrInfo *ErrNewInfo(Err_Number errorNumber) {
  char buffer[kTextSize];
  const char *text = strerror_r(errorNumber, buffer, sizeof buffer);
  auto *info = static_cast<ErrInfo *>(Util_SafeMalloc(sizeof(ErrInfo)));
  info->errorNumber = errorNumber;
  // The buffer may have cut the text inside a character.
  info->text = Util_SafeStrndup(text, Utf8_LenientWholeLength(text, strlen(text)));
  return info;
}

void ErrNoteLength(size_t length) {
  size_t longest = errTables.longestText;
  while (length > longest && !errTables.longestText.compare_exchange_weak(longest, length)) {
  }
}

// Whether no error has such a text, which is so of most texts that aren't of an error.
bool ErrIsTooLong(const char *text) {
  const size_t longest = errTables.longestText;
  return strnlen(text, longest + 1) > longest;
}

// Puts the record into all tables, or gives it up for one that came first. Returns the one that stays.
ErrInfo *ErrPublish(ErrInfo *info) {
  auto *winner =
      static_cast<ErrInfo *>(HashTable_LookupOrInsert(ErrByNumber(), ErrNumberKey(info->errorNumber), info));
  if (winner != info) {
    ASSERT(winner->errorNumber == info->errorNumber);
    ASSERT(strcmp(winner->text, info->text) == 0);
    free(info->text);
    free(info);
    return winner;
  }
  ErrNoteLength(strlen(info->text));
  HashTable_Insert(ErrByAddress(), info->text, info);
  HashTable_Insert(ErrByText(), info->text, info);
  return info;
}

}  // namespace

Err_Number Err_Errno() {
  return errno;
}

const char *Err_ErrString() {
  return Err_Errno2String(errno);
}

const char *Err_Errno2String(Err_Number errorNumber) {
  ASSERT(errorNumber != -1);
  const int savedErrno = errno;
  const ErrInfo *info = ErrFind(ErrByNumber(), ErrNumberKey(errorNumber));
  if (info == nullptr) {
    info = ErrPublish(ErrNewInfo(errorNumber));
  }
  errno = savedErrno;
  return info->text;
}

const char *Err_Errno2LocalString(Err_Number /*errorNumber*/) {
  return nullptr;
}

Err_Number Err_String2Errno(const char *text) {
  const ErrInfo *info = ErrFind(errTables.byAddress, text);
  return info == nullptr ? -1 : info->errorNumber;
}

Err_Number Err_String2ErrnoDebug(const char *text) {
  if (ErrIsTooLong(text)) {
    return -1;
  }
  const ErrInfo *info = ErrFind(errTables.byText, text);
  if (info == nullptr) {
    return -1;
  }
  if (info->text != text) {
    Log("%s: errno %d, string \"%s\" at %p, originally at %p.\n", __func__, info->errorNumber, text,
        static_cast<const void *>(text), static_cast<const void *>(info->text));
  }
  return info->errorNumber;
}
