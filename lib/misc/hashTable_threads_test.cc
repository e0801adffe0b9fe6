// An atomic table shared by eight threads.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <string>
#include <vector>

#include "hashTable.h"
#include "threads.h"

using testhost::kThreads;
using testhost::OnEightThreads;

namespace {

// What a thread puts into a table: written without a lock before, read by others after.
struct Record {
  int key = 0;
  size_t writer = 0;
};

const Record *Find(const HashTable *table, const void *key) {
  void *value = nullptr;
  return HashTable_Lookup(table, key, &value) ? static_cast<Record *>(value) : nullptr;
}

// An atomic table can't be freed, so each test keeps its own until the process ends.

TEST(AtomicHashTable, EightThreadsInsertEachKeyOnce) {
  constexpr size_t kKeys = 500;
  // Few buckets, so that threads meet at the same heads.
  static HashTable *table =
      HashTable_Alloc(4, HASH_STRING_KEY | HASH_FLAG_ATOMIC | HASH_FLAG_COPYKEY, nullptr);
  std::array<std::vector<Record>, kThreads> records;
  std::vector<std::atomic<int>> wins(kKeys);
  std::vector<std::atomic<size_t>> winner(kKeys);
  OnEightThreads([&](size_t thread) {
    auto &own = records.at(thread);
    own.resize(kKeys);
    for (size_t i = 0; i < kKeys; i++) {
      own[i] = {static_cast<int>(i), thread};
      if (HashTable_Insert(table, ("key" + std::to_string(i)).c_str(), &own[i])) {
        wins[i]++;
        winner[i] = thread;
      }
      // Whoever came first, what stands there is whole.
      const Record *found = Find(table, ("key" + std::to_string(i)).c_str());
      ASSERT_NE(found, nullptr);
      EXPECT_EQ(found->key, static_cast<int>(i));
    }
  });
  for (size_t i = 0; i < kKeys; i++) {
    EXPECT_EQ(wins[i], 1);
    EXPECT_EQ(Find(table, ("key" + std::to_string(i)).c_str())->writer, winner[i]);
  }
}

TEST(AtomicHashTable, EightThreadsAgreeOnWhatStaysUnderANumber) {
  constexpr size_t kKeys = 500;
  static HashTable *table = HashTable_Alloc(4, HASH_INT_KEY | HASH_FLAG_ATOMIC, nullptr);
  static std::array<char, kKeys> keys;
  std::array<std::vector<Record>, kThreads> records;
  std::array<std::array<const Record *, kKeys>, kThreads> seen{};
  OnEightThreads([&](size_t thread) {
    records.at(thread).resize(kKeys);
    for (size_t i = 0; i < kKeys; i++) {
      Record *own = &records.at(thread)[i];
      *own = {static_cast<int>(i), thread};
      const auto *stays = static_cast<Record *>(HashTable_LookupOrInsert(table, &keys.at(i), own));
      EXPECT_EQ(stays->key, static_cast<int>(i));
      seen.at(thread).at(i) = stays;
    }
  });
  for (const auto &one : seen) {
    EXPECT_EQ(one, seen.front());
  }
}

TEST(AtomicHashTable, ReadersSeeEachReplacedValueWhole) {
  static HashTable *table = HashTable_Alloc(1, HASH_ISTRING_KEY | HASH_FLAG_ATOMIC, nullptr);
  std::array<std::vector<Record>, kThreads> records;
  OnEightThreads([&](size_t thread) {
    auto &own = records.at(thread);
    own.resize(1000);
    for (Record &record : own) {
      record = {42, thread};
      HashTable_ReplaceOrInsert(table, "Key", &record);
      EXPECT_EQ(Find(table, "kEY")->key, 42);
    }
  });
}

TEST(AtomicHashTable, EightThreadsReplaceWithoutLosingAnUpdate) {
  static HashTable *table = HashTable_Alloc(1, HASH_STRING_KEY | HASH_FLAG_ATOMIC, nullptr);
  static std::array<char, kThreads * 1000 + 1> counts;  // the place of a pointer in it is the count
  HashTable_Insert(table, "count", counts.data());
  OnEightThreads([](size_t) {
    for (int i = 0; i < 1000; i++) {
      void *old = nullptr;
      do {
        HashTable_Lookup(table, "count", &old);
      } while (!HashTable_ReplaceIfEqual(table, "count", old, static_cast<char *>(old) + 1));
    }
  });
  void *last = nullptr;
  HashTable_Lookup(table, "count", &last);
  EXPECT_EQ(last, &counts.back());
}

TEST(AtomicHashTable, ReplaceOrInsertFreesEachReplacedValueOnce) {
  static std::atomic<size_t> freed;
  // Freeing writes to a value that another thread may have made.
  static HashTable *table = HashTable_Alloc(1, HASH_STRING_KEY | HASH_FLAG_ATOMIC, [](void *value) {
    static_cast<Record *>(value)->writer++;
    freed++;
  });
  constexpr size_t kValues = 1000;
  std::array<std::vector<Record>, kThreads> records;
  std::atomic<int> created = 0;
  OnEightThreads([&](size_t thread) {
    auto &own = records.at(thread);
    own.resize(kValues);
    for (Record &record : own) {
      record = {1, 0};
      created += HashTable_ReplaceOrInsert(table, "k", &record) ? 1 : 0;
    }
  });
  EXPECT_EQ(created, 1);
  EXPECT_EQ(freed, kThreads * kValues - 1);
  const Record *last = Find(table, "k");
  for (const auto &own : records) {
    for (const Record &record : own) {
      EXPECT_EQ(record.writer, &record == last ? 0U : 1U);
    }
  }
}

TEST(AtomicHashTable, ReplaceIfEqualFreesEachReplacedValueOnce) {
  static HashTable *table = HashTable_Alloc(1, HASH_STRING_KEY | HASH_FLAG_ATOMIC,
                                            [](void *value) { static_cast<Record *>(value)->writer++; });
  Record first;
  HashTable_Insert(table, "k", &first);
  std::array<std::vector<Record>, kThreads> records;
  OnEightThreads([&](size_t thread) {
    auto &own = records.at(thread);
    own.resize(1000);
    for (Record &record : own) {
      record = {1, 0};
      void *old = nullptr;
      do {
        HashTable_Lookup(table, "k", &old);
      } while (!HashTable_ReplaceIfEqual(table, "k", old, &record));
    }
  });
  EXPECT_EQ(first.writer, 1U);
  const Record *last = Find(table, "k");
  for (const auto &own : records) {
    for (const Record &record : own) {
      EXPECT_EQ(record.writer, &record == last ? 0U : 1U);
    }
  }
}

TEST(AtomicHashTable, AWalkBesideInsertionsSeesWholeEntries) {
  static HashTable *table =
      HashTable_Alloc(2, HASH_STRING_KEY | HASH_FLAG_ATOMIC | HASH_FLAG_COPYKEY, nullptr);
  std::array<Record, kThreads> records;
  OnEightThreads([&](size_t thread) {
    Record &own = records.at(thread);
    own = {7, thread};
    for (int i = 0; i < 100; i++) {
      HashTable_Insert(table, (std::to_string(thread) + "-" + std::to_string(i)).c_str(), &own);
      if (i % 10 == 0) {
        const int wrong = HashTable_ForEach(
            table,
            [](const char *key, void *value, void * /*data*/) {
              const auto *record = static_cast<Record *>(value);
              return record->key == 7 && std::to_string(record->writer)[0] == key[0] ? 0 : 1;
            },
            nullptr);
        EXPECT_EQ(wrong, 0);
      }
    }
  });
}

TEST(AtomicHashTable, AllocOnceGivesEveryThreadTheSameTable) {
  for (int round = 0; round < 100; round++) {
    HashTable *volatile shared = nullptr;
    std::array<HashTable *, kThreads> seen{};
    OnEightThreads([&](size_t thread) {
      HashTable *table =
          HashTable_AllocOnce(&shared, 2, HASH_STRING_KEY | HASH_FLAG_ATOMIC | HASH_FLAG_COPYKEY, nullptr);
      HashTable_Insert(table, std::to_string(thread).c_str(), nullptr);
      seen.at(thread) = table;
    });
    EXPECT_NE(seen.front(), nullptr);
    for (size_t thread = 0; thread < kThreads; thread++) {
      EXPECT_EQ(seen.at(thread), seen.front());
      EXPECT_TRUE(HashTable_Lookup(seen.front(), std::to_string(thread).c_str(), nullptr));
    }
    static std::vector<HashTable *> kept;
    kept.push_back(seen.front());
  }
}

}  // namespace
