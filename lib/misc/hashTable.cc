#include "hashTable.h"

#include <strings.h>

#include <bit>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "panicUser.h"
#include "util_misc.h"

namespace {

// Entries of an atomic table are published by their predecessor's link and never unlinked, so a reader that
// acquires a link may use all that stands behind it.
struct Entry {
  Entry *next;
  const void *key;
  void *clientData;
};

constexpr int kTypeMask = 7;

}  // namespace

struct HashTable {
  uint32_t numEntries;
  uint32_t numBits;
  int keyType;
  bool atomic;
  bool copyKey;
  HashTableFreeEntryFn freeEntryFn;
  Entry **buckets;
  size_t numElements;
};

namespace {

uint32_t HashTableHashString(const char *text) {
  uint32_t hash = 0;
  for (; *text != '\0'; text++) {
    hash = std::rotr(hash ^ static_cast<unsigned char>(*text), 27);
  }
  return hash;
}

uint32_t HashTableHashCaselessString(const char *text) {
  uint32_t hash = 0;
  for (; *text != '\0'; text++) {
    hash = std::rotr(hash ^ static_cast<uint32_t>(tolower(static_cast<unsigned char>(*text))), 27);
  }
  return hash;
}

uint32_t HashTableHashInteger(const void *key) {
  const auto number = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(key));
  return static_cast<uint32_t>((number >> 32) ^ number) * 48271U;
}

uint32_t HashTableHash(const HashTable *table, const void *key) {
  switch (table->keyType) {
    case HASH_STRING_KEY:
      return HashTableHashString(static_cast<const char *>(key));
    case HASH_ISTRING_KEY:
      return HashTableHashCaselessString(static_cast<const char *>(key));
    default:
      return HashTableHashInteger(key);
  }
}

uint32_t HashTableFold(const HashTable *table, uint32_t hash) {
  // A table of one bucket has no bits to fold by.
  if (table->numBits == 0) {
    return 0;
  }
  const uint32_t mask = (1U << table->numBits) - 1;
  while (hash > mask) {
    hash = (hash >> table->numBits) ^ (hash & mask);
  }
  ASSERT(hash < table->numEntries);
  return hash;
}

Entry **HashTableBucket(const HashTable *table, const void *key) {
  return &table->buckets[HashTableFold(table, HashTableHash(table, key))];
}

bool HashTableKeysEqual(const HashTable *table, const void *a, const void *b) {
  switch (table->keyType) {
    case HASH_STRING_KEY:
      return strcmp(static_cast<const char *>(a), static_cast<const char *>(b)) == 0;
    case HASH_ISTRING_KEY:
      return strcasecmp(static_cast<const char *>(a), static_cast<const char *>(b)) == 0;
    default:
      return a == b;
  }
}

Entry *HashTableFind(const HashTable *table, Entry *head, const void *key) {
  Entry *entry = head;
  while (entry != nullptr && !HashTableKeysEqual(table, entry->key, key)) {
    entry = entry->next;
  }
  return entry;
}

// The bucket's head, with everything behind it visible.
Entry *HashTableHead(Entry **bucket) {
  return __atomic_load_n(bucket, __ATOMIC_ACQUIRE);
}

Entry *HashTableNewEntry(const HashTable *table, const void *key, void *value) {
  auto *entry = static_cast<Entry *>(Util_SafeMalloc(sizeof(Entry)));
  entry->key = table->copyKey ? Util_SafeStrdup(static_cast<const char *>(key)) : key;
  entry->clientData = value;
  return entry;
}

// Frees the entry and a copied key; the value is left to the caller.
void HashTableFreeEntry(const HashTable *table, Entry *entry) {
  if (table->copyKey) {
    free(const_cast<void *>(entry->key));
  }
  free(entry);
}

void HashTableFreeValue(const HashTable *table, void *value) {
  if (table->freeEntryFn != nullptr) {
    table->freeEntryFn(value);
  }
}

// Puts `value` into the entry and returns the one that was there.
void *HashTableExchangeValue(const HashTable *table, Entry *entry, void *value) {
  return table->atomic ? __atomic_exchange_n(&entry->clientData, value, __ATOMIC_ACQ_REL)
                       : std::exchange(entry->clientData, value);
}

// Makes `entry` the bucket's head if `head` still is. Returns whether it did.
bool HashTableLink(HashTable *table, Entry **bucket, Entry *head, Entry *entry) {
  entry->next = head;
  if (!table->atomic) {
    *bucket = entry;
    table->numElements++;
    return true;
  }
  if (!__atomic_compare_exchange_n(bucket, &head, entry, false, __ATOMIC_RELEASE, __ATOMIC_RELAXED)) {
    return false;
  }
  __atomic_add_fetch(&table->numElements, 1, __ATOMIC_RELAXED);
  return true;
}

// The entry found under `key`, or null after a new one with `value` went in.
Entry *HashTableLookupOrInsertEntry(HashTable *table, const void *key, void *value) {
  Entry **bucket = HashTableBucket(table, key);
  Entry *created = nullptr;
  while (true) {
    Entry *head = HashTableHead(bucket);
    Entry *found = HashTableFind(table, head, key);
    if (found != nullptr) {
      if (created != nullptr) {
        HashTableFreeEntry(table, created);
      }
      return found;
    }
    if (created == nullptr) {
      created = HashTableNewEntry(table, key, value);
    }
    if (HashTableLink(table, bucket, head, created)) {
      return nullptr;
    }
  }
}

// Takes the entry out of its bucket. Null when the key isn't there.
Entry *HashTableUnlink(HashTable *table, const void *key) {
  ASSERT(!table->atomic);
  for (Entry **link = HashTableBucket(table, key); *link != nullptr; link = &(*link)->next) {
    Entry *entry = *link;
    if (HashTableKeysEqual(table, entry->key, key)) {
      *link = entry->next;
      table->numElements--;
      return entry;
    }
  }
  return nullptr;
}

}  // namespace

HashTable *HashTable_Alloc(uint32_t numEntries, int keyType, HashTableFreeEntryFn fn) {
  ASSERT(numEntries > 0);
  if (!std::has_single_bit(numEntries)) {
    Panic("%s only takes powers of 2 \n", __func__);
  }
  const int type = keyType & kTypeMask;
  ASSERT((keyType & ~(kTypeMask | HASH_FLAG_ATOMIC | HASH_FLAG_COPYKEY)) == 0);
  ASSERT(type <= HASH_INT_KEY);
  const bool copyKey = (keyType & HASH_FLAG_COPYKEY) != 0;
  ASSERT(!copyKey || type != HASH_INT_KEY);

  auto *table = static_cast<HashTable *>(Util_SafeMalloc(sizeof(HashTable)));
  table->numEntries = numEntries;
  table->numBits = static_cast<uint32_t>(std::countr_zero(numEntries));
  table->keyType = type;
  table->atomic = (keyType & HASH_FLAG_ATOMIC) != 0;
  table->copyKey = copyKey;
  table->freeEntryFn = fn;
  // An array of pointers is meant. NOLINTNEXTLINE(bugprone-sizeof-expression)
  table->buckets = static_cast<Entry **>(Util_SafeCalloc(numEntries, sizeof(Entry *)));
  table->numElements = 0;
  return table;
}

HashTable *HashTable_AllocOnce(HashTable *volatile *table, uint32_t numEntries, int keyType,
                               HashTableFreeEntryFn fn) {
  HashTable *current = __atomic_load_n(table, __ATOMIC_ACQUIRE);
  if (current != nullptr) {
    return current;
  }
  HashTable *created = HashTable_Alloc(numEntries, keyType, fn);
  if (__atomic_compare_exchange_n(table, &current, created, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE)) {
    return created;
  }
  created->atomic = false;
  HashTable_Free(created);
  return current;
}

void HashTable_Free(HashTable *table) {
  if (table == nullptr) {
    return;
  }
  HashTable_Clear(table);
  free(table->buckets);
  free(table);
}

void HashTable_Clear(HashTable *table) {
  ASSERT(!table->atomic);
  for (uint32_t i = 0; i < table->numEntries; i++) {
    Entry *entry = table->buckets[i];
    table->buckets[i] = nullptr;
    while (entry != nullptr) {
      Entry *next = entry->next;
      HashTableFreeValue(table, entry->clientData);
      HashTableFreeEntry(table, entry);
      entry = next;
    }
  }
  table->numElements = 0;
}

bool HashTable_Insert(HashTable *table, const void *key, void *value) {
  return HashTableLookupOrInsertEntry(table, key, value) == nullptr;
}

void *HashTable_LookupOrInsert(HashTable *table, const void *key, void *value) {
  Entry *entry = HashTableLookupOrInsertEntry(table, key, value);
  return entry == nullptr ? value : __atomic_load_n(&entry->clientData, __ATOMIC_ACQUIRE);
}

bool HashTable_ReplaceOrInsert(HashTable *table, const void *key, void *value) {
  Entry *entry = HashTableLookupOrInsertEntry(table, key, value);
  if (entry == nullptr) {
    return true;
  }
  HashTableFreeValue(table, HashTableExchangeValue(table, entry, value));
  return false;
}

bool HashTable_ReplaceIfEqual(HashTable *table, const void *key, void *oldValue, void *newValue) {
  Entry *entry = HashTableFind(table, HashTableHead(HashTableBucket(table, key)), key);
  if (entry == nullptr) {
    return false;
  }
  void *expected = oldValue;
  if (table->atomic) {
    if (!__atomic_compare_exchange_n(&entry->clientData, &expected, newValue, false, __ATOMIC_ACQ_REL,
                                     __ATOMIC_RELAXED)) {
      return false;
    }
  } else {
    if (entry->clientData != oldValue) {
      return false;
    }
    entry->clientData = newValue;
  }
  HashTableFreeValue(table, oldValue);
  return true;
}

bool HashTable_Lookup(const HashTable *table, const void *key, void **value) {
  const Entry *entry = HashTableFind(table, HashTableHead(HashTableBucket(table, key)), key);
  if (entry == nullptr) {
    return false;
  }
  if (value != nullptr) {
    *value = __atomic_load_n(&entry->clientData, __ATOMIC_ACQUIRE);
  }
  return true;
}

bool HashTable_Delete(HashTable *table, const void *key) {
  Entry *entry = HashTableUnlink(table, key);
  if (entry == nullptr) {
    return false;
  }
  HashTableFreeValue(table, entry->clientData);
  HashTableFreeEntry(table, entry);
  return true;
}

bool HashTable_LookupAndDelete(HashTable *table, const void *key, void **value) {
  Entry *entry = HashTableUnlink(table, key);
  if (entry == nullptr) {
    return false;
  }
  if (value != nullptr) {
    *value = entry->clientData;
  }
  HashTableFreeEntry(table, entry);
  return true;
}

size_t HashTable_GetNumElements(const HashTable *table) {
  ASSERT(!table->atomic);
  return table->numElements;
}

void HashTable_ToArray(const HashTable *table, void ***values, size_t *count) {
  ASSERT(!table->atomic);
  *count = table->numElements;
  *values = static_cast<void **>(Util_SafeCalloc(table->numElements, sizeof(void *)));
  size_t next = 0;
  for (uint32_t i = 0; i < table->numEntries; i++) {
    for (const Entry *entry = table->buckets[i]; entry != nullptr; entry = entry->next) {
      (*values)[next++] = entry->clientData;
    }
  }
}

int HashTable_ForEach(const HashTable *table, HashTableForEachCallback callback, void *clientData) {
  for (uint32_t i = 0; i < table->numEntries; i++) {
    for (const Entry *entry = HashTableHead(&table->buckets[i]); entry != nullptr; entry = entry->next) {
      void *value = __atomic_load_n(&entry->clientData, __ATOMIC_ACQUIRE);
      const int result = callback(static_cast<const char *>(entry->key), value, clientData);
      if (result != 0) {
        return result;
      }
    }
  }
  return 0;
}
