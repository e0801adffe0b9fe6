#include "hashTable.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "owned.h"

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

template <typename Function>
void OnEightThreads(Function function) {
  std::vector<std::thread> threads;
  threads.reserve(8);
  for (int thread = 0; thread < 8; thread++) {
    threads.emplace_back(function, thread);
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
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
  std::vector<std::string> seen;
  const int result = HashTable_ForEach(
      table.get(),
      [](const char *key, void * /*value*/, void *data) {
        static_cast<std::vector<std::string> *>(data)->emplace_back(key);
        return 0;
      },
      &seen);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(seen, (std::vector<std::string>{"third", "second", "first"}));
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

TEST(HashTableDeathTest, AllocRefusesWhatIsNotAllowed) {
  EXPECT_EXIT(HashTable_Alloc(0, HASH_STRING_KEY, nullptr), testing::ExitedWithCode(255),
              "^ASSERT lib/misc/hashTable.cc:[0-9]+\n$");
  EXPECT_EXIT(HashTable_Alloc(12, HASH_STRING_KEY, nullptr), testing::ExitedWithCode(255),
              testing::Eq("HashTable_Alloc only takes powers of 2 \n"));
  EXPECT_EXIT(HashTable_Alloc(16, HASH_INT_KEY | HASH_FLAG_COPYKEY, nullptr), testing::ExitedWithCode(255),
              "^ASSERT lib/misc/hashTable.cc:[0-9]+\n$");
  EXPECT_EXIT(HashTable_Alloc(16, 3, nullptr), testing::ExitedWithCode(255), "^ASSERT ");
  EXPECT_EXIT(HashTable_Alloc(16, 32, nullptr), testing::ExitedWithCode(255), "^ASSERT ");
}

TEST(HashTableDeathTest, AnAtomicTableCannotBeEmptiedOrCounted) {
  static HashTable *table = HashTable_Alloc(16, HASH_STRING_KEY | HASH_FLAG_ATOMIC, nullptr);
  HashTable_Insert(table, "a", nullptr);
  const auto panics = testing::ExitedWithCode(255);
  const char *text = "^ASSERT lib/misc/hashTable.cc:[0-9]+\n$";
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

TEST(AtomicHashTable, EightThreadsInsertEachKeyOnce) {
  constexpr int kKeys = 5000;
  // Few buckets, so that threads meet at the same heads.
  static HashTable *table =
      HashTable_Alloc(16, HASH_STRING_KEY | HASH_FLAG_ATOMIC | HASH_FLAG_COPYKEY, nullptr);
  std::vector<std::atomic<int>> wins(kKeys);
  std::vector<std::atomic<intptr_t>> winner(kKeys);
  OnEightThreads([&](int thread) {
    for (int i = 0; i < kKeys; i++) {
      if (HashTable_Insert(table, ("key" + std::to_string(i)).c_str(), Value(thread * kKeys + i + 1))) {
        wins[static_cast<size_t>(i)]++;
        winner[static_cast<size_t>(i)] = thread * kKeys + i + 1;
      }
    }
  });
  for (size_t i = 0; i < kKeys; i++) {
    EXPECT_EQ(wins[i], 1);
    EXPECT_EQ(Find(table, ("key" + std::to_string(i)).c_str()), Value(winner[i]));
  }
}

TEST(AtomicHashTable, EightThreadsReplaceWithoutLosingAnUpdate) {
  static HashTable *table = HashTable_Alloc(1, HASH_STRING_KEY | HASH_FLAG_ATOMIC, nullptr);
  HashTable_Insert(table, "count", Value(0));
  OnEightThreads([](int /*thread*/) {
    for (int i = 0; i < 2000; i++) {
      void *old = nullptr;
      do {
        HashTable_Lookup(table, "count", &old);
      } while (!HashTable_ReplaceIfEqual(table, "count", old, static_cast<char *>(old) + 1));
    }
  });
  EXPECT_EQ(Find(table, "count"), Value(16000));
}

TEST(AtomicHashTable, ReplaceOrInsertFreesEachReplacedValueOnce) {
  static std::atomic<intptr_t> freedSum;
  static HashTable *table = HashTable_Alloc(1, HASH_STRING_KEY | HASH_FLAG_ATOMIC, [](void *value) {
    freedSum += reinterpret_cast<intptr_t>(value);
  });
  std::atomic<int> created = 0;
  std::atomic<intptr_t> givenSum = 0;
  OnEightThreads([&](intptr_t thread) {
    for (intptr_t i = 1; i <= 2000; i++) {
      givenSum += thread * 2000 + i;
      created += HashTable_ReplaceOrInsert(table, "k", Value(thread * 2000 + i)) ? 1 : 0;
    }
  });
  EXPECT_EQ(created, 1);
  EXPECT_EQ(freedSum + reinterpret_cast<intptr_t>(Find(table, "k")), givenSum);
}

TEST(AtomicHashTable, AllocOnceGivesEveryThreadTheSameTable) {
  for (int round = 0; round < 200; round++) {
    HashTable *volatile shared = nullptr;
    std::array<HashTable *, 8> seen{};
    OnEightThreads([&](int thread) {
      seen.at(static_cast<size_t>(thread)) =
          HashTable_AllocOnce(&shared, 2, HASH_STRING_KEY | HASH_FLAG_COPYKEY, nullptr);
    });
    HashTable *const one = shared;
    EXPECT_NE(one, nullptr);
    for (const HashTable *table : seen) {
      EXPECT_EQ(table, one);
    }
    HashTable_Free(one);
  }
}

}  // namespace
