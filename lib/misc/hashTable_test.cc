#include "hashTable.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <array>
#include <cctype>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "allocations.h"
#include "owned.h"
#include "panics.h"
#include "testhost.h"
#include "threads.h"

namespace {
// What comes between an insertion's look-up and its store: called once, when the key is copied.
std::function<void()> beforeTheStore;
}  // namespace

extern "C" char *strdup(const char *text) {
  if (const auto interrupt = std::exchange(beforeTheStore, nullptr)) {
    interrupt();
  }
  static const auto original = reinterpret_cast<decltype(&strdup)>(dlsym(RTLD_NEXT, "strdup"));
  return original(text);
}

namespace {

using OwnedTable = std::unique_ptr<HashTable, Releaser<HashTable_Free>>;

std::vector<void *> freedValues;
void NoteFreed(void *value) {
  freedValues.push_back(value);
}

// The table never looks behind these pointers. NOLINTBEGIN(performance-no-int-to-ptr)
void *Value(intptr_t number) {
  return reinterpret_cast<void *>(number);
}
const void *Key(uintptr_t number) {
  return reinterpret_cast<const void *>(number);
}
// NOLINTEND(performance-no-int-to-ptr)

void *Find(const HashTable *table, const void *key) {
  void *value = nullptr;
  EXPECT_TRUE(HashTable_Lookup(table, key, &value));
  return value;
}

// The keys of a table in the order of the walk, which goes bucket by bucket.
std::vector<std::string> KeysInOrder(const HashTable *table) {
  std::vector<std::string> keys;
  HashTable_ForEach(
      table,
      [](const char *key, void * /*value*/, void *data) {
        static_cast<std::vector<std::string> *>(data)->emplace_back(key);
        return 0;
      },
      &keys);
  return keys;
}

// The hash and the folding as they are told, one byte at a time.
uint32_t ToldHash(const std::string &key, bool caseless) {
  uint32_t hash = 0;
  for (const char c : key) {
    const auto byte = static_cast<unsigned char>(c);
    hash ^= caseless ? static_cast<uint32_t>(tolower(byte)) : byte;
    hash = hash >> 27 | hash << 5;
  }
  return hash;
}

uint32_t ToldBucket(uint32_t hash, uint32_t bits) {
  const uint32_t mask = (1U << bits) - 1;
  while (bits > 0 && hash > mask) {
    hash = (hash >> bits) ^ (hash & mask);
  }
  return bits > 0 ? hash : 0;
}

// Texts of all lengths and of all bytes but NUL.
std::vector<std::string> ManyKeys(size_t count) {
  std::mt19937 random(7);
  std::set<std::string> keys;
  while (keys.size() < count) {
    std::string key;
    for (size_t length = random() % 40; length > 0; length--) {
      key += static_cast<char>(1 + random() % 255);
    }
    keys.insert(key);
  }
  return {keys.begin(), keys.end()};
}

TEST(HashTable, InsertRefusesAKeyThatExists) {
  const OwnedTable table(HashTable_Alloc(16, HASH_STRING_KEY, NoteFreed));
  EXPECT_TRUE(HashTable_Insert(table.get(), "one", Value(1)));
  EXPECT_FALSE(HashTable_Insert(table.get(), "one", Value(2)));
  EXPECT_EQ(Find(table.get(), "one"), Value(1));
  EXPECT_EQ(HashTable_GetNumElements(table.get()), 1U);
  EXPECT_TRUE(freedValues.empty());
}

TEST(HashTable, LookupLeavesTheValueAloneWithoutTheKey) {
  const OwnedTable table(HashTable_Alloc(16, HASH_STRING_KEY, nullptr));
  HashTable_Insert(table.get(), "there", Value(1));
  void *value = Value(77);
  EXPECT_FALSE(HashTable_Lookup(table.get(), "elsewhere", &value));
  EXPECT_EQ(value, Value(77));
  EXPECT_TRUE(HashTable_Lookup(table.get(), "there", nullptr));
}

TEST(HashTable, LookupOrInsertGivesTheValueThatStays) {
  const OwnedTable table(HashTable_Alloc(16, HASH_STRING_KEY, nullptr));
  EXPECT_EQ(HashTable_LookupOrInsert(table.get(), "k", Value(1)), Value(1));
  EXPECT_EQ(HashTable_LookupOrInsert(table.get(), "k", Value(2)), Value(1));
  EXPECT_EQ(HashTable_GetNumElements(table.get()), 1U);
}

TEST(HashTable, ReplaceOrInsertFreesTheOldValue) {
  const OwnedTable table(HashTable_Alloc(16, HASH_STRING_KEY, NoteFreed));
  EXPECT_TRUE(HashTable_ReplaceOrInsert(table.get(), "k", Value(1)));
  EXPECT_FALSE(HashTable_ReplaceOrInsert(table.get(), "k", Value(2)));
  EXPECT_EQ(freedValues, std::vector<void *>{Value(1)});
  EXPECT_EQ(Find(table.get(), "k"), Value(2));
  EXPECT_EQ(HashTable_GetNumElements(table.get()), 1U);
}

TEST(HashTable, ReplaceIfEqualReplacesOnlyTheExpectedValue) {
  for (const int flags : {0, static_cast<int>(HASH_FLAG_ATOMIC)}) {
    freedValues.clear();
    HashTable *table = HashTable_Alloc(16, HASH_STRING_KEY | flags, NoteFreed);
    EXPECT_FALSE(HashTable_ReplaceIfEqual(table, "k", Value(1), Value(2)));
    HashTable_Insert(table, "k", Value(1));
    EXPECT_FALSE(HashTable_ReplaceIfEqual(table, "k", Value(9), Value(2)));
    EXPECT_EQ(Find(table, "k"), Value(1));
    EXPECT_TRUE(freedValues.empty());
    EXPECT_TRUE(HashTable_ReplaceIfEqual(table, "k", Value(1), Value(2)));
    EXPECT_EQ(Find(table, "k"), Value(2));
    EXPECT_EQ(freedValues, std::vector<void *>{Value(1)});
    static std::array<HashTable *, 2> kept;  // an atomic table can't be freed
    kept.at(flags == 0 ? 0 : 1) = table;
  }
}

TEST(HashTable, DeleteFreesTheValueAndLookupAndDeleteHandsItOver) {
  const OwnedTable table(HashTable_Alloc(1, HASH_STRING_KEY | HASH_FLAG_COPYKEY, NoteFreed));
  for (const char *key : {"a", "b", "c"}) {
    HashTable_Insert(table.get(), key, Value(key[0]));
  }
  EXPECT_TRUE(HashTable_Delete(table.get(), "b"));
  EXPECT_FALSE(HashTable_Delete(table.get(), "b"));
  EXPECT_EQ(freedValues, std::vector<void *>{Value('b')});
  void *value = nullptr;
  EXPECT_TRUE(HashTable_LookupAndDelete(table.get(), "a", &value));
  EXPECT_EQ(value, Value('a'));
  EXPECT_FALSE(HashTable_LookupAndDelete(table.get(), "a", &value));
  EXPECT_EQ(freedValues.size(), 1U);
  EXPECT_EQ(HashTable_GetNumElements(table.get()), 1U);
  EXPECT_EQ(Find(table.get(), "c"), Value('c'));
}

TEST(HashTable, CopiedKeysOutliveTheCallersText) {
  const OwnedTable table(HashTable_Alloc(16, HASH_STRING_KEY | HASH_FLAG_COPYKEY, nullptr));
  std::string key = "key";
  HashTable_Insert(table.get(), key.c_str(), Value(1));
  key = "xxx";
  EXPECT_EQ(Find(table.get(), "key"), Value(1));
  EXPECT_FALSE(HashTable_Lookup(table.get(), "xxx", nullptr));
}

TEST(HashTable, KeysThatDifferInCaseAreOneOnlyWithoutRegardToCase) {
  const OwnedTable caseless(HashTable_Alloc(1024, HASH_ISTRING_KEY, nullptr));
  EXPECT_TRUE(HashTable_Insert(caseless.get(), "libdir", Value(1)));
  EXPECT_FALSE(HashTable_Insert(caseless.get(), "LibDir", Value(2)));
  EXPECT_EQ(Find(caseless.get(), "LIBDIR"), Value(1));

  const OwnedTable exact(HashTable_Alloc(1024, HASH_STRING_KEY, nullptr));
  EXPECT_TRUE(HashTable_Insert(exact.get(), "libdir", Value(1)));
  EXPECT_TRUE(HashTable_Insert(exact.get(), "LibDir", Value(2)));
}

TEST(HashTable, AKeyStaysWhereItIsWhenTheLocaleChanges) {
  const OwnedTable table(HashTable_Alloc(4096, HASH_ISTRING_KEY, nullptr));
  HashTable_Insert(table.get(),
                   "Gr\xd6\xdf"
                   "E",
                   Value(1));
  testhost::Host host;
  host.Enter();
  ASSERT_EQ(system("localedef -i de_DE -f ISO-8859-1 /usr/lib/locale/de_DE"), 0);
  ASSERT_NE(setlocale(LC_ALL, "de_DE"), nullptr);
  ASSERT_EQ(tolower(0xd6), 0xf6);
  EXPECT_EQ(Find(table.get(),
                 "gR\xd6\xdf"
                 "e"),
            Value(1));
  EXPECT_FALSE(HashTable_Lookup(table.get(),
                                "gr\xf6\xdf"
                                "e",
                                nullptr));
}

// Turkish has an "i" without a dot, whose capital is the plain "I".
TEST(HashTable, KeysThatDifferInCaseAreOneInAnyLocale) {
  testhost::Host host;
  host.Enter();
  ASSERT_EQ(system("localedef -i tr_TR -f UTF-8 /usr/lib/locale/tr_TR"), 0);
  ASSERT_NE(setlocale(LC_ALL, "tr_TR"), nullptr);
  ASSERT_NE(tolower('I'), 'i');
  const OwnedTable table(HashTable_Alloc(1024, HASH_ISTRING_KEY, nullptr));
  EXPECT_TRUE(HashTable_Insert(table.get(), "ISO-8859-9", Value(1)));
  EXPECT_FALSE(HashTable_Insert(table.get(), "iso-8859-9", Value(2)));
  EXPECT_EQ(Find(table.get(), "Iso-8859-9"), Value(1));
}

TEST(HashTable, IntegerKeysUseAll64Bits) {
  const OwnedTable table(HashTable_Alloc(8, HASH_INT_KEY, nullptr));
  const std::vector<uintptr_t> keys = {0, 1, 0x100000000, 0x100000001, UINTPTR_MAX};
  for (const uintptr_t key : keys) {
    EXPECT_TRUE(HashTable_Insert(table.get(), Key(key), Value(static_cast<intptr_t>(key + 5))));
  }
  for (const uintptr_t key : keys) {
    EXPECT_EQ(Find(table.get(), Key(key)), Value(static_cast<intptr_t>(key + 5)));
  }
  EXPECT_EQ(HashTable_GetNumElements(table.get()), keys.size());
}

TEST(HashTable, ManyKeysAreFoundAtEveryBucketCount) {
  for (uint32_t buckets = 1; buckets <= 4096; buckets *= 8) {
    const OwnedTable table(HashTable_Alloc(buckets, HASH_STRING_KEY | HASH_FLAG_COPYKEY, nullptr));
    for (intptr_t i = 0; i < 1000; i++) {
      EXPECT_TRUE(HashTable_Insert(table.get(), ("key" + std::to_string(i)).c_str(), Value(i)));
    }
    for (intptr_t i = 0; i < 1000; i++) {
      EXPECT_EQ(Find(table.get(), ("key" + std::to_string(i)).c_str()), Value(i));
    }
  }
}

TEST(HashTable, KeepsABucketsNewestEntryFirst) {
  const OwnedTable table(HashTable_Alloc(1, HASH_STRING_KEY, nullptr));
  for (const char *key : {"first", "second", "third"}) {
    HashTable_Insert(table.get(), key, nullptr);
  }
  EXPECT_EQ(KeysInOrder(table.get()), (std::vector<std::string>{"third", "second", "first"}));
}

TEST(HashTable, PutsEachTextInTheBucketOfItsHash) {
  for (const bool caseless : {false, true}) {
    for (const uint32_t bits : {0U, 1U, 2U, 5U, 7U, 11U, 12U, 16U, 17U}) {
      const OwnedTable table(
          HashTable_Alloc(1U << bits, caseless ? HASH_ISTRING_KEY : HASH_STRING_KEY, nullptr));
      std::map<uint32_t, std::vector<std::string>> buckets;
      const std::vector<std::string> keys = ManyKeys(500);
      for (const std::string &key : keys) {
        if (HashTable_Insert(table.get(), key.c_str(), nullptr)) {
          auto &bucket = buckets[ToldBucket(ToldHash(key, caseless), bits)];
          bucket.insert(bucket.begin(), key);
        }
      }
      std::vector<std::string> expected;
      for (const auto &[number, bucket] : buckets) {
        expected.insert(expected.end(), bucket.begin(), bucket.end());
      }
      EXPECT_EQ(KeysInOrder(table.get()), expected) << bits << " bits, caseless " << caseless;
    }
  }
}

TEST(HashTable, PutsEachNumberInTheBucketOfItsHash) {
  const OwnedTable table(HashTable_Alloc(64, HASH_INT_KEY, nullptr));
  std::map<uint32_t, std::vector<void *>> buckets;
  std::mt19937_64 random(7);
  for (int i = 0; i < 500; i++) {
    const uint64_t number = random() >> random() % 64;
    const auto hash = static_cast<uint32_t>(((number >> 32) ^ number) * 48271);
    void *value = Value(static_cast<intptr_t>(number));
    if (HashTable_Insert(table.get(), Key(number), value)) {
      auto &bucket = buckets[ToldBucket(hash, 6)];
      bucket.insert(bucket.begin(), value);
    }
  }
  std::vector<void *> expected;
  for (const auto &[number, bucket] : buckets) {
    expected.insert(expected.end(), bucket.begin(), bucket.end());
  }
  void **values = nullptr;
  size_t count = 0;
  HashTable_ToArray(table.get(), &values, &count);
  EXPECT_EQ(std::vector<void *>(values, values + count), expected);
  free(static_cast<void *>(values));
}

TEST(HashTable, FindsWhatIsThereAfterAnyDeletions) {
  for (const int keyType : {static_cast<int>(HASH_STRING_KEY), HASH_STRING_KEY | HASH_FLAG_COPYKEY}) {
    // Chains of a length on both sides of any border that they may have.
    const OwnedTable table(HashTable_Alloc(4, keyType, nullptr));
    const std::vector<std::string> keys = ManyKeys(150);
    std::map<std::string, void *> model;
    std::mt19937 random(7);
    for (intptr_t i = 1; i <= 6000; i++) {
      const std::string &key = keys[random() % keys.size()];
      void *value = nullptr;
      if (random() % 2 == 0) {
        EXPECT_EQ(HashTable_Insert(table.get(), key.c_str(), Value(i)),
                  model.try_emplace(key, Value(i)).second);
      } else if (random() % 2 == 0) {
        EXPECT_EQ(HashTable_Delete(table.get(), key.c_str()), model.erase(key) == 1);
      } else {
        const auto known = model.extract(key);
        EXPECT_EQ(HashTable_LookupAndDelete(table.get(), key.c_str(), &value), !known.empty());
        EXPECT_EQ(value, known.empty() ? nullptr : known.mapped());
      }
      const std::string &other = keys[random() % keys.size()];
      EXPECT_EQ(HashTable_Lookup(table.get(), other.c_str(), nullptr), model.contains(other));
    }
    EXPECT_EQ(HashTable_GetNumElements(table.get()), model.size());
    for (const auto &[key, value] : model) {
      EXPECT_EQ(Find(table.get(), key.c_str()), value);
    }
  }
}

TEST(HashTable, DeletionKeepsTheOrderOfTheOthers) {
  const OwnedTable table(HashTable_Alloc(1, HASH_STRING_KEY | HASH_FLAG_COPYKEY, nullptr));
  std::vector<std::string> expected;
  for (int i = 0; i < 40; i++) {
    expected.insert(expected.begin(), std::to_string(i));
    HashTable_Insert(table.get(), expected.front().c_str(), nullptr);
  }
  for (const size_t gone : {39U, 20U, 7U, 7U, 8U, 0U}) {
    EXPECT_TRUE(HashTable_Delete(table.get(), expected[gone].c_str()));
    expected.erase(expected.begin() + static_cast<ptrdiff_t>(gone));
    EXPECT_EQ(KeysInOrder(table.get()), expected);
  }
}

TEST(HashTable, ForEachStopsAtTheFirstResultOtherThanZero) {
  const OwnedTable table(HashTable_Alloc(4, HASH_STRING_KEY, nullptr));
  for (const char *key : {"a", "b", "c"}) {
    HashTable_Insert(table.get(), key, Value(key[0]));
  }
  int calls = 0;
  const int result = HashTable_ForEach(
      table.get(),
      [](const char *key, void *value, void *data) {
        EXPECT_EQ(value, Value(key[0]));
        return ++*static_cast<int *>(data) == 2 ? -7 : 0;
      },
      &calls);
  EXPECT_EQ(result, -7);
  EXPECT_EQ(calls, 2);
}

TEST(HashTable, ToArrayGivesEveryValue) {
  const OwnedTable table(HashTable_Alloc(4, HASH_INT_KEY, nullptr));
  for (uintptr_t i = 0; i < 20; i++) {
    HashTable_Insert(table.get(), Key(i), Value(static_cast<intptr_t>(i * 10)));
  }
  void **values = nullptr;
  size_t count = 0;
  HashTable_ToArray(table.get(), &values, &count);
  const std::set<void *> found(values, values + count);
  free(static_cast<void *>(values));
  EXPECT_EQ(count, 20U);
  EXPECT_EQ(found.size(), 20U);
  EXPECT_TRUE(found.contains(Value(190)));
}

TEST(HashTable, ClearFreesEveryValueAndTheTableGoesOn) {
  const OwnedTable table(HashTable_Alloc(4, HASH_STRING_KEY | HASH_FLAG_COPYKEY, NoteFreed));
  HashTable_Insert(table.get(), "a", Value(1));
  HashTable_Insert(table.get(), "b", Value(2));
  HashTable_Clear(table.get());
  EXPECT_EQ(freedValues.size(), 2U);
  EXPECT_EQ(HashTable_GetNumElements(table.get()), 0U);
  EXPECT_FALSE(HashTable_Lookup(table.get(), "a", nullptr));
  EXPECT_TRUE(HashTable_Insert(table.get(), "a", Value(3)));
}

TEST(HashTable, FreeTakesNull) {
  HashTable_Free(nullptr);
}

TEST(HashTable, ToArrayOfAnEmptyTableHasNoValues) {
  const OwnedTable table(HashTable_Alloc(4, HASH_INT_KEY, nullptr));
  void **values = nullptr;
  size_t count = 7;
  HashTable_ToArray(table.get(), &values, &count);
  free(static_cast<void *>(values));
  EXPECT_EQ(count, 0U);
}

TEST(HashTableDeathTest, StopsAtEachAllocationThatFails) {
  const auto text =
      testhost::Panics("Unrecoverable memory allocation failure at lib/misc/hashTable.cc:[0-9]+\n$");
  for (const int flags : {static_cast<int>(HASH_FLAG_COPYKEY), HASH_FLAG_COPYKEY | HASH_FLAG_ATOMIC}) {
    const auto fill = [&] {
      static std::array<HashTable *, 3> kept;  // an atomic table can't be freed
      static size_t used;
      HashTable *&table = kept.at(used++);
      table = HashTable_Alloc(4, HASH_STRING_KEY | flags, nullptr);
      HashTable_Insert(table, "key", nullptr);
    };
    const size_t count = testhost::CountAllocations(fill);
    EXPECT_EQ(count, 4U);  // table, buckets, entries, key
    for (size_t i = 0; i < count; i++) {
      EXPECT_EXIT(
          {
            const testhost::AllocationFault fault(i);
            fill();
          },
          testing::ExitedWithCode(255), text)
          << i;
    }
  }
}

TEST(HashTableDeathTest, StopsWhenThereIsNoMemoryForTheArray) {
  const OwnedTable table(HashTable_Alloc(4, HASH_INT_KEY, nullptr));
  HashTable_Insert(table.get(), Key(1), Value(1));
  void **values = nullptr;
  size_t count = 0;
  EXPECT_EXIT(
      {
        const testhost::AllocationFault fault(0);
        HashTable_ToArray(table.get(), &values, &count);
      },
      testing::ExitedWithCode(255),
      testhost::Panics("Unrecoverable memory allocation failure at lib/misc/hashTable.cc:[0-9]+\n$"));
}

TEST(HashTable, AnInsertionThatComesTooLateLooksAgain) {
  static HashTable *table =
      HashTable_Alloc(1, HASH_STRING_KEY | HASH_FLAG_ATOMIC | HASH_FLAG_COPYKEY, NoteFreed);
  beforeTheStore = [] { EXPECT_TRUE(HashTable_Insert(table, "key", Value(1))); };
  // The leak checker sees an entry, or a key, that was made in vain and stays.
  EXPECT_FALSE(HashTable_Insert(table, "key", Value(2)));
  EXPECT_EQ(beforeTheStore, nullptr);
  EXPECT_EQ(Find(table, "key"), Value(1));
  beforeTheStore = [] { HashTable_Insert(table, "between", Value(3)); };
  EXPECT_EQ(HashTable_LookupOrInsert(table, "late", Value(4)), Value(4));
  EXPECT_EQ(KeysInOrder(table), (std::vector<std::string>{"late", "between", "key"}));
  beforeTheStore = [] { HashTable_Insert(table, "both", Value(5)); };
  EXPECT_FALSE(HashTable_ReplaceOrInsert(table, "both", Value(6)));
  EXPECT_EQ(freedValues, std::vector<void *>{Value(5)});
  EXPECT_EQ(Find(table, "both"), Value(6));
}

TEST(HashTable, AnEntryThatComesTooLateStandsInItsRunAsAnyOther) {
  static HashTable *table =
      HashTable_Alloc(1, HASH_STRING_KEY | HASH_FLAG_ATOMIC | HASH_FLAG_COPYKEY, nullptr);
  for (int i = 0; i < 40; i += 2) {
    beforeTheStore = [=] { HashTable_Insert(table, std::to_string(i).c_str(), Value(i)); };
    EXPECT_TRUE(HashTable_Insert(table, std::to_string(i + 1).c_str(), Value(i + 1)));
  }
  for (int i = 0; i < 40; i++) {
    EXPECT_EQ(Find(table, std::to_string(i).c_str()), Value(i));
  }
}

// The leak checker sees a table that lost the race and stays.
TEST(HashTable, AllocOnceLeavesNoOtherTableBehind) {
  static std::array<HashTable *volatile, 100> tables;
  for (auto &table : tables) {
    testhost::OnEightThreads(
        [&table](size_t) { HashTable_AllocOnce(&table, 2, HASH_STRING_KEY | HASH_FLAG_ATOMIC, nullptr); });
  }
}

TEST(HashTableDeathTest, AllocRefusesWhatIsNotAllowed) {
  EXPECT_EXIT(HashTable_Alloc(0, HASH_STRING_KEY, nullptr), testing::ExitedWithCode(255),
              testhost::Panics("^ASSERT lib/misc/hashTable.cc:[0-9]+\n$"));
  EXPECT_EXIT(HashTable_Alloc(12, HASH_STRING_KEY, nullptr), testing::ExitedWithCode(255),
              testhost::Panics(testing::Eq("HashTable_Alloc only takes powers of 2 \n")));
  EXPECT_EXIT(HashTable_Alloc(16, HASH_INT_KEY | HASH_FLAG_COPYKEY, nullptr), testing::ExitedWithCode(255),
              testhost::Panics("^ASSERT lib/misc/hashTable.cc:[0-9]+\n$"));
  EXPECT_EXIT(HashTable_Alloc(16, 3, nullptr), testing::ExitedWithCode(255), "^ASSERT ");
  EXPECT_EXIT(HashTable_Alloc(16, 32, nullptr), testing::ExitedWithCode(255), "^ASSERT ");
}

TEST(HashTableDeathTest, AnAtomicTableCannotBeEmptiedOrCounted) {
  static HashTable *table = HashTable_Alloc(16, HASH_STRING_KEY | HASH_FLAG_ATOMIC, nullptr);
  HashTable_Insert(table, "a", nullptr);
  const auto panics = testing::ExitedWithCode(255);
  const auto text = testhost::Panics("^ASSERT lib/misc/hashTable.cc:[0-9]+\n$");
  void **values = nullptr;
  void *value = nullptr;
  size_t count = 0;
  EXPECT_EXIT(HashTable_Free(table), panics, text);
  EXPECT_EXIT(HashTable_Clear(table), panics, text);
  EXPECT_EXIT(HashTable_GetNumElements(table), panics, text);
  EXPECT_EXIT(HashTable_ToArray(table, &values, &count), panics, text);
  EXPECT_EXIT(HashTable_Delete(table, "a"), panics, text);
  EXPECT_EXIT(HashTable_LookupAndDelete(table, "a", &value), panics, text);
}

}  // namespace
