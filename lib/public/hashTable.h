// A chained hash table with a fixed number of buckets. An atomic table takes insertions, look-ups and
// replacements from any thread without a lock, and can't be emptied, counted or shrunk.
#ifndef OST_PUBLIC_HASHTABLE_H
#define OST_PUBLIC_HASHTABLE_H

#include <cstddef>
#include <cstdint>

struct HashTable;

enum {
  HASH_STRING_KEY = 0,
  HASH_ISTRING_KEY = 1,  // without regard to case
  HASH_INT_KEY = 2,      // integer or pointer
  HASH_FLAG_ATOMIC = 8,
  HASH_FLAG_COPYKEY = 16,  // the table owns copies of its string keys
};

using HashTableFreeEntryFn = void (*)(void *value);
// Called with key, value and the caller's argument; a result other than 0 stops the walk.
using HashTableForEachCallback = int (*)(const char *key, void *value, void *clientData);

// Makes a table.
//
// numEntries  the bucket count, a power of 2
// keyType     a key type and flags, ORed
// fn          frees a value that is deleted or replaced; may be null
//
// Returns a new table (HashTable_Free). A count or type that isn't allowed stops the program.
HashTable *HashTable_Alloc(uint32_t numEntries, int keyType, HashTableFreeEntryFn fn);
// Makes the table at `*table` once, whichever thread comes first, and returns it.
HashTable *HashTable_AllocOnce(HashTable *volatile *table, uint32_t numEntries, int keyType,
                               HashTableFreeEntryFn fn);
// Null is accepted by HashTable_Free.
void HashTable_Free(HashTable *table);
void HashTable_Clear(HashTable *table);

// Puts `value` under `key` unless the key is there. Returns whether it went in.
bool HashTable_Insert(HashTable *table, const void *key, void *value);
// The value found under `key`, or `value` after it was put there.
void *HashTable_LookupOrInsert(HashTable *table, const void *key, void *value);
// Puts `value` under `key`, freeing a value that was there. Returns whether the key is new.
bool HashTable_ReplaceOrInsert(HashTable *table, const void *key, void *value);
// Replaces the value under `key` only when it is `oldValue`. Returns whether it did.
bool HashTable_ReplaceIfEqual(HashTable *table, const void *key, void *oldValue, void *newValue);
// Hashes and finds `key`.
//
// value  if not null, gets the stored value when the key is there; left alone otherwise
//
// Returns whether the key is there. Safe beside insertions by other threads on an atomic table.
bool HashTable_Lookup(const HashTable *table, const void *key, void **value);
// Removes one entry and frees its value. Returns whether the key was there.
bool HashTable_Delete(HashTable *table, const void *key);
// Removes one entry and hands its value to the caller.
bool HashTable_LookupAndDelete(HashTable *table, const void *key, void **value);
size_t HashTable_GetNumElements(const HashTable *table);
// A new array (free) of the values, and their count.
void HashTable_ToArray(const HashTable *table, void ***values, size_t *count);
int HashTable_ForEach(const HashTable *table, HashTableForEachCallback callback, void *clientData);

#endif
