#include "hashTable.h"

#include <strings.h>

#include <algorithm>
#include <bit>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <utility>

#include "panicUser.h"
#include "util_misc.h"

namespace {

// A chain falls into runs of up to eight entries, so that a look-up in a long one reads one entry of each run
// and not all. An entry holds a byte of the hash, its tag, for itself and for those behind it in its run.
//
// Once an entry is linked only its value changes. The store that links it is a release and a bucket's head is
// read with an acquire, so whoever finds a head may use all that stands behind it without further ado. An
// atomic table's entries are never unlinked.
struct Entry {
  Entry *next;
  const void *key;
  void *clientData;
  Entry *nextRun;  // the first entry behind this one's run
  uint64_t tags;   // the entry's own in the lowest byte, the next one's above it, 0 behind the run's last
};

// A table that no threads share takes its entries from blocks: they lie side by side and cost no malloc each.
struct Block {
  Block *next;
  Entry entries[64];  // those not in use have no tags
};

constexpr int kTypeMask = 7;
constexpr uint64_t kEachByte = 0x0101010101010101;

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
  Block *blocks;
  Entry *unused;  // the blocks' free entries, linked by `next`
};

namespace {

struct AsItIs {
  uint64_t operator()(uint64_t bytes) const { return bytes; }
};

// tolower() of the C locale for eight bytes, whatever locale the toolkit sets: a key must not move to another
// bucket.
struct LowerCase {
  uint64_t operator()(uint64_t bytes) const {
    // A byte's top bit tells whether it is "A" or above, and above "Z"; nothing is carried to the next byte.
    const uint64_t low = bytes & (0x7F * kEachByte);
    const uint64_t fromA = low + (0x80 - 'A') * kEachByte;
    const uint64_t aboveZ = low + (0x7F - 'Z') * kEachByte;
    const uint64_t isUpper = (fromA ^ aboveZ) & ~bytes & (0x80 * kEachByte);
    return bytes | isUpper >> 2;
  }
};

static_assert(std::endian::native == std::endian::little, "the first byte of a text is the lowest");

template <typename Number>
uint64_t HashTableLoad(const char *text) {
  Number number;
  memcpy(&number, text, sizeof number);
  return number;
}

// Fewer than eight bytes with zeros before them. Those in the middle are taken twice where that saves a loop.
uint64_t HashTableLoadRest(const char *text, size_t size) {
  if (size == 0) {
    return 0;
  }
  const size_t shift = 8 * (8 - size);
  if (size >= 4) {
    return HashTableLoad<uint32_t>(text) << shift | HashTableLoad<uint32_t>(text + size - 4) << 32;
  }
  const size_t middle = size / 2;
  return HashTableLoad<uint8_t>(text) << shift |
         HashTableLoad<uint8_t>(text + middle) << (shift + 8 * middle) |
         HashTableLoad<uint8_t>(text + size - 1) << 56;
}

// What eight rounds make of eight bytes and a hash of 0. Bytes are joined to pairs, these to fours, and so
// on.
uint32_t HashTableHashBytes(uint64_t bytes) {
  constexpr uint64_t kPairs = 0x00FF00FF00FF00FF;
  constexpr uint64_t kFours = 0x0000FFFF0000FFFF;
  const uint64_t pairs = (bytes & kPairs) << 5 ^ (bytes >> 8 & kPairs);
  const uint64_t fours = (pairs & kFours) << 10 ^ (pairs >> 16 & kFours);
  const uint64_t all = (fours & UINT32_MAX) << 25 ^ fours >> 32 << 5;
  return static_cast<uint32_t>(all ^ all >> 32);
}

// For each byte, h = (h XOR byte) rotated right by 27. Both operations are linear, so eight bytes can be put
// in their places first, and no round waits for another. Zeros before the first byte change nothing.
template <typename Fold>
uint32_t HashTableHashText(const char *text, Fold fold) {
  uint32_t hash = 0;
  size_t size = strlen(text);
  for (; size >= 8; text += 8, size -= 8) {
    hash = std::rotr(hash, 8 * 27) ^ HashTableHashBytes(fold(HashTableLoad<uint64_t>(text)));
  }
  const int rotation = static_cast<int>(27 * size);
  return std::rotr(hash, rotation) ^ HashTableHashBytes(fold(HashTableLoadRest(text, size)));
}

inline uint32_t HashTableHashInteger(const void *key) {
  const auto number = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(key));
  return static_cast<uint32_t>((number >> 32) ^ number) * 48271U;
}

inline uint32_t HashTableHash(const HashTable *table, const void *key) {
  switch (table->keyType) {
    case HASH_STRING_KEY:
      return HashTableHashText(static_cast<const char *>(key), AsItIs());
    case HASH_ISTRING_KEY:
      return HashTableHashText(static_cast<const char *>(key), LowerCase());
    default:
      return HashTableHashInteger(key);
  }
}

// While h is above the mask of `numBits` bits, h = (h >> numBits) XOR (h AND mask), which comes to the XOR of
// its pieces of that many bits. A table of one bucket has no bits to fold by.
inline Entry **HashTableBucket(const HashTable *table, uint32_t hash) {
  uint32_t folded = hash;
  if (table->numBits != 0) {
    for (uint32_t rest = hash >> table->numBits; rest != 0; rest >>= table->numBits) {
      folded ^= rest;
    }
  }
  folded &= table->numEntries - 1;
  ASSERT(folded < table->numEntries);
  return &table->buckets[folded];
}

// Never 0. The keys of one chain have much of their hashes in common, which the multiplication spreads.
uint64_t HashTableTag(uint32_t hash) {
  return std::max(hash * 0x9E3779B1U >> 24, 1U);
}

uint64_t HashTableOwnTag(const Entry *entry) {
  return entry->tags & 0xff;
}

// Whether one of the bytes is the tag: when 1 is taken from each byte of the differences, the lowest that is
// 0 turns its top bit on, and no byte turns it on as long as none is 0.
bool HashTableHasTag(uint64_t tags, uint64_t tag) {
  const uint64_t differences = tags ^ (tag * kEachByte);
  return ((differences - kEachByte) & ~differences & (kEachByte << 7)) != 0;
}

// strcasecmp() of the same locale as LowerCase.
int HashTableCaselessCompare(const char *a, const char *b) {
  static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", nullptr);
  return strcasecmp_l(a, b, cLocale);
}

bool HashTableTextsEqual(const HashTable *table, const void *a, const void *b) {
  const char *textA = static_cast<const char *>(a);
  const char *textB = static_cast<const char *>(b);
  // Most keys are in the same case, which is told faster.
  return strcmp(textA, textB) == 0 ||
         (table->keyType == HASH_ISTRING_KEY && HashTableCaselessCompare(textA, textB) == 0);
}

Entry *HashTableFindText(const HashTable *table, Entry *head, uint64_t tag, const void *key) {
  for (Entry *run = head; run != nullptr; run = run->nextRun) {
    if (!HashTableHasTag(run->tags, tag)) {
      continue;
    }
    for (Entry *entry = run; entry != run->nextRun; entry = entry->next) {
      if (HashTableOwnTag(entry) == tag && HashTableTextsEqual(table, entry->key, key)) {
        return entry;
      }
    }
  }
  return nullptr;
}

// Numbers are compared faster than their tags.
Entry *HashTableFindNumber(Entry *head, const void *key) {
  while (head != nullptr && head->key != key) {
    head = head->next;
  }
  return head;
}

inline Entry *HashTableFindInChain(const HashTable *table, Entry *head, uint32_t hash, const void *key) {
  return table->keyType == HASH_INT_KEY ? HashTableFindNumber(head, key)
                                        : HashTableFindText(table, head, HashTableTag(hash), key);
}

Entry *HashTableHead(Entry *const *bucket) {
  return __atomic_load_n(bucket, __ATOMIC_ACQUIRE);
}

inline Entry *HashTableFind(const HashTable *table, const void *key) {
  const uint32_t hash = HashTableHash(table, key);
  return HashTableFindInChain(table, HashTableHead(HashTableBucket(table, hash)), hash, key);
}

// The value another thread put into a linked entry comes with all that it points to.
void *HashTableValue(const Entry *entry) {
  return __atomic_load_n(&entry->clientData, __ATOMIC_ACQUIRE);
}

void HashTableGiveUnused(HashTable *table, Entry *entry) {
  entry->tags = 0;
  entry->next = std::exchange(table->unused, entry);
}

void HashTableAddBlock(HashTable *table) {
  auto *block = static_cast<Block *>(Util_SafeMalloc(sizeof(Block)));
  block->next = std::exchange(table->blocks, block);
  for (size_t i = std::size(block->entries); i > 0; i--) {
    HashTableGiveUnused(table, &block->entries[i - 1]);
  }
}

Entry *HashTableTakeUnused(HashTable *table) {
  if (table->atomic) {
    return static_cast<Entry *>(Util_SafeMalloc(sizeof(Entry)));
  }
  if (table->unused == nullptr) {
    HashTableAddBlock(table);
  }
  return std::exchange(table->unused, table->unused->next);
}

// A new entry that isn't linked yet.
Entry *HashTableNewEntry(HashTable *table, uint32_t hash, const void *key, void *value) {
  Entry *entry = HashTableTakeUnused(table);
  entry->key = table->copyKey ? Util_SafeStrdup(static_cast<const char *>(key)) : key;
  entry->clientData = value;
  entry->tags = HashTableTag(hash);
  return entry;
}

void HashTableFreeKey(const HashTable *table, Entry *entry) {
  if (table->copyKey) {
    free(const_cast<void *>(entry->key));
  }
}

// Frees the entry and a copied key; the value is left to the caller.
void HashTableFreeEntry(HashTable *table, Entry *entry) {
  HashTableFreeKey(table, entry);
  if (table->atomic) {
    free(entry);
  } else {
    HashTableGiveUnused(table, entry);
  }
}

void HashTableFreeValue(const HashTable *table, void *value) {
  if (table->freeEntryFn != nullptr) {
    table->freeEntryFn(value);
  }
}

// Puts `value` into the entry and returns the one that was there, ready to be freed.
void *HashTableExchangeValue(const HashTable *table, Entry *entry, void *value) {
  return table->atomic ? __atomic_exchange_n(&entry->clientData, value, __ATOMIC_ACQ_REL)
                       : std::exchange(entry->clientData, value);
}

// Sets the entry's links to stand before `head`. It starts a run of its own when the head's is full.
void HashTablePutBefore(Entry *entry, Entry *head) {
  const bool joins = head != nullptr && head->tags >> 56 == 0;
  entry->next = head;
  entry->nextRun = joins ? head->nextRun : head;
  entry->tags = HashTableOwnTag(entry) | (joins ? head->tags << 8 : 0);
}

// Makes `entry` the bucket's head if `head` still is. Returns whether it did.
bool HashTableLink(HashTable *table, Entry **bucket, Entry *head, Entry *entry) {
  HashTablePutBefore(entry, head);
  if (!table->atomic) {
    *bucket = entry;
    table->numElements++;
    return true;
  }
  // What a failure reads is dropped: the caller looks at the head again.
  if (!__atomic_compare_exchange_n(bucket, &head, entry, false, __ATOMIC_RELEASE, __ATOMIC_RELAXED)) {
    return false;
  }
  // Nobody takes the count for a sign of anything else.
  __atomic_add_fetch(&table->numElements, 1, __ATOMIC_RELAXED);
  return true;
}

// The entry found under `key`, or null after a new one with `value` went in.
Entry *HashTableLookupOrInsertEntry(HashTable *table, const void *key, void *value) {
  const uint32_t hash = HashTableHash(table, key);
  Entry **bucket = HashTableBucket(table, hash);
  Entry *created = nullptr;
  while (true) {
    Entry *head = HashTableHead(bucket);
    Entry *found = HashTableFindInChain(table, head, hash, key);
    if (found != nullptr) {
      if (created != nullptr) {
        HashTableFreeEntry(table, created);
      }
      return found;
    }
    if (created == nullptr) {
      created = HashTableNewEntry(table, hash, key, value);
    }
    if (HashTableLink(table, bucket, head, created)) {
      return nullptr;
    }
  }
}

// Takes the entry out of its bucket. Null when the key isn't there.
Entry *HashTableUnlink(HashTable *table, const void *key) {
  ASSERT(!table->atomic);
  const uint32_t hash = HashTableHash(table, key);
  Entry **bucket = HashTableBucket(table, hash);
  Entry *found = HashTableFindInChain(table, *bucket, hash, key);
  if (found == nullptr) {
    return nullptr;
  }
  // Those before it are taken off, and put back the last first, to form their runs anew.
  Entry *taken = nullptr;
  for (Entry *entry = *bucket; entry != found;) {
    Entry *next = std::exchange(entry->next, taken);
    taken = std::exchange(entry, next);
  }
  *bucket = found->next;
  while (taken != nullptr) {
    Entry *next = taken->next;
    HashTablePutBefore(taken, *bucket);
    *bucket = std::exchange(taken, next);
  }
  table->numElements--;
  return found;
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

  auto *table = static_cast<HashTable *>(Util_SafeCalloc(1, sizeof(HashTable)));
  table->numEntries = numEntries;
  table->numBits = static_cast<uint32_t>(std::countr_zero(numEntries));
  table->keyType = type;
  table->atomic = (keyType & HASH_FLAG_ATOMIC) != 0;
  table->copyKey = copyKey;
  table->freeEntryFn = fn;
  // An array of pointers is meant. NOLINTNEXTLINE(bugprone-sizeof-expression)
  table->buckets = static_cast<Entry **>(Util_SafeCalloc(numEntries, sizeof(Entry *)));
  return table;
}

HashTable *HashTable_AllocOnce(HashTable *volatile *table, uint32_t numEntries, int keyType,
                               HashTableFreeEntryFn fn) {
  HashTable *current = __atomic_load_n(table, __ATOMIC_ACQUIRE);
  if (current != nullptr) {
    return current;
  }
  HashTable *created = HashTable_Alloc(numEntries, keyType, fn);
  // The winner's table is seen with its content, by the next one as by the loser.
  if (__atomic_compare_exchange_n(table, &current, created, false, __ATOMIC_RELEASE, __ATOMIC_ACQUIRE)) {
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
  if (table->blocks == nullptr) {
    return;
  }
  std::fill_n(table->buckets, table->numEntries, nullptr);
  table->unused = nullptr;
  table->numElements = 0;
  for (Block *block = std::exchange(table->blocks, nullptr); block != nullptr;) {
    for (Entry &entry : block->entries) {
      if (entry.tags != 0) {
        HashTableFreeValue(table, entry.clientData);
        HashTableFreeKey(table, &entry);
      }
    }
    free(std::exchange(block, block->next));
  }
}

bool HashTable_Insert(HashTable *table, const void *key, void *value) {
  return HashTableLookupOrInsertEntry(table, key, value) == nullptr;
}

void *HashTable_LookupOrInsert(HashTable *table, const void *key, void *value) {
  const Entry *entry = HashTableLookupOrInsertEntry(table, key, value);
  return entry == nullptr ? value : HashTableValue(entry);
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
  Entry *entry = HashTableFind(table, key);
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
  const Entry *entry = HashTableFind(table, key);
  if (entry == nullptr) {
    return false;
  }
  if (value != nullptr) {
    *value = HashTableValue(entry);
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
      const int result = callback(static_cast<const char *>(entry->key), HashTableValue(entry), clientData);
      if (result != 0) {
        return result;
      }
    }
  }
  return 0;
}
