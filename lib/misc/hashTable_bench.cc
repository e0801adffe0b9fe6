// The hash table beside GLib's, the library's and Abseil's, at the bucket counts and loads of its users. All
// of them keep keys by pointer, as ours does without HASH_FLAG_COPYKEY; where keys are copied, all copy them.
#include <absl/container/flat_hash_map.h>
#include <benchmark/benchmark.h>
#include <glib.h>
#include <strings.h>

#include <cctype>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "hashTable.h"
#include "owned.h"

namespace {

using OwnedTable = std::unique_ptr<HashTable, Releaser<HashTable_Free>>;
using OwnedGTable = std::unique_ptr<GHashTable, Releaser<g_hash_table_unref>>;

// Paths as the installer's journal has them.
std::vector<std::string> Paths(int64_t count, const char *root = "/usr/lib") {
  std::vector<std::string> paths;
  for (int64_t i = 0; i < count; i++) {
    paths.push_back(std::string(root) + "/ostrel-tools/modules/source/part" + std::to_string(i % 100) +
                    "/file" + std::to_string(i) + ".c");
  }
  return paths;
}

// Names as a configuration file has them.
std::vector<std::string> Names(int64_t count) {
  std::vector<std::string> names;
  for (int64_t i = 0; i < count; i++) {
    names.push_back("Setting" + std::to_string(i) + ".fileName");
  }
  return names;
}

// The keys in an order that is not the one they went in by.
std::vector<const char *> Shuffled(const std::vector<std::string> &keys) {
  std::vector<const char *> shuffled;
  for (size_t i = 0; i < keys.size(); i++) {
    shuffled.push_back(keys[i * 7919 % keys.size()].c_str());
  }
  return shuffled;
}

void *Value(const std::string &key) {
  return const_cast<char *>(key.c_str());
}

unsigned GLibCaselessHash(const void *key) {
  unsigned hash = 5381;
  for (const auto *c = static_cast<const char *>(key); *c != '\0'; c++) {
    hash = hash * 33 + static_cast<unsigned char>(g_ascii_tolower(*c));
  }
  return hash;
}

int GLibCaselessEqual(const void *a, const void *b) {
  return g_ascii_strcasecmp(static_cast<const char *>(a), static_cast<const char *>(b)) == 0;
}

// (bucket count, keys)
void JournalLoads(benchmark::internal::Benchmark *bench) {
  bench->Args({4096, 100})->Args({4096, 1000})->Args({4096, 10000})->Args({4096, 100000});
}
void DictionaryLoads(benchmark::internal::Benchmark *bench) {
  bench->Args({512, 10})->Args({512, 100})->Args({512, 1000})->Args({512, 10000});
}
void ErrorLoads(benchmark::internal::Benchmark *bench) {
  bench->Args({2048, 133});
}

void SetItems(benchmark::State &state) {
  state.SetItemsProcessed(state.iterations() * state.range(1));
}

// Looks every key up once in each iteration; `find` gives the value.
template <typename Keys, typename Find>
void LookUpAll(benchmark::State &state, const Keys &keys, Find find) {
  while (state.KeepRunning()) {
    for (const auto &key : keys) {
      benchmark::DoNotOptimize(find(key));
    }
  }
  SetItems(state);
}

void *OursFind(const OwnedTable &table, const void *key) {
  void *value = nullptr;
  HashTable_Lookup(table.get(), key, &value);
  return value;
}

OwnedTable OursOf(benchmark::State &state, int keyType, const std::vector<std::string> &keys) {
  OwnedTable table(HashTable_Alloc(static_cast<uint32_t>(state.range(0)), keyType, nullptr));
  for (const std::string &key : keys) {
    HashTable_Insert(table.get(), key.c_str(), Value(key));
  }
  return table;
}

OwnedGTable GLibOf(GHashFunc hash, GEqualFunc equal, const std::vector<std::string> &keys) {
  OwnedGTable table(g_hash_table_new(hash, equal));
  for (const std::string &key : keys) {
    g_hash_table_insert(table.get(), Value(key), Value(key));
  }
  return table;
}

template <typename Map>
Map MapOf(const std::vector<std::string> &keys) {
  Map map;
  for (const std::string &key : keys) {
    map.try_emplace(key.c_str(), Value(key));
  }
  return map;
}

using StdMap = std::unordered_map<std::string_view, void *>;
using AbslMap = absl::flat_hash_map<std::string_view, void *>;

// --- look-up of keys that are there ---

void BM_Ours_Text_HashLookup(benchmark::State &state) {
  const auto keys = Paths(state.range(1));
  const OwnedTable table = OursOf(state, HASH_STRING_KEY, keys);
  LookUpAll(state, Shuffled(keys), [&](const char *key) { return OursFind(table, key); });
}
BENCHMARK(BM_Ours_Text_HashLookup)->Apply(JournalLoads);

void BM_Peer_GHashTable_Text_HashLookup(benchmark::State &state) {
  const auto keys = Paths(state.range(1));
  const OwnedGTable table = GLibOf(g_str_hash, g_str_equal, keys);
  LookUpAll(state, Shuffled(keys), [&](const char *key) { return g_hash_table_lookup(table.get(), key); });
}
BENCHMARK(BM_Peer_GHashTable_Text_HashLookup)->Apply(JournalLoads);

template <typename Map>
void MapLookup(benchmark::State &state) {
  const auto keys = Paths(state.range(1));
  const Map map = MapOf<Map>(keys);
  LookUpAll(state, Shuffled(keys), [&](const char *key) { return map.find(key)->second; });
}
void BM_Peer_Std_Text_HashLookup(benchmark::State &state) {
  MapLookup<StdMap>(state);
}
BENCHMARK(BM_Peer_Std_Text_HashLookup)->Apply(JournalLoads);
void BM_Peer_Absl_Text_HashLookup(benchmark::State &state) {
  MapLookup<AbslMap>(state);
}
BENCHMARK(BM_Peer_Absl_Text_HashLookup)->Apply(JournalLoads);

// --- look-up of keys that are not there ---

void BM_Ours_Text_HashMiss(benchmark::State &state) {
  const auto keys = Paths(state.range(1));
  const auto others = Paths(state.range(1), "/opt/lib");
  const OwnedTable table = OursOf(state, HASH_STRING_KEY, keys);
  LookUpAll(state, Shuffled(others), [&](const char *key) { return OursFind(table, key); });
}
BENCHMARK(BM_Ours_Text_HashMiss)->Apply(JournalLoads);

void BM_Peer_GHashTable_Text_HashMiss(benchmark::State &state) {
  const auto keys = Paths(state.range(1));
  const auto others = Paths(state.range(1), "/opt/lib");
  const OwnedGTable table = GLibOf(g_str_hash, g_str_equal, keys);
  LookUpAll(state, Shuffled(others), [&](const char *key) { return g_hash_table_lookup(table.get(), key); });
}
BENCHMARK(BM_Peer_GHashTable_Text_HashMiss)->Apply(JournalLoads);

// --- look-up without regard to case ---

void BM_Ours_Text_HashCaselessLookup(benchmark::State &state) {
  const auto keys = Names(state.range(1));
  const OwnedTable table = OursOf(state, HASH_ISTRING_KEY, keys);
  LookUpAll(state, Shuffled(keys), [&](const char *key) { return OursFind(table, key); });
}
BENCHMARK(BM_Ours_Text_HashCaselessLookup)->Apply(DictionaryLoads);

void BM_Peer_GHashTable_Text_HashCaselessLookup(benchmark::State &state) {
  const auto keys = Names(state.range(1));
  const OwnedGTable table = GLibOf(GLibCaselessHash, GLibCaselessEqual, keys);
  LookUpAll(state, Shuffled(keys), [&](const char *key) { return g_hash_table_lookup(table.get(), key); });
}
BENCHMARK(BM_Peer_GHashTable_Text_HashCaselessLookup)->Apply(DictionaryLoads);

// --- look-up by number ---

// The table never looks behind the pointers. NOLINTBEGIN(performance-no-int-to-ptr)
std::vector<void *> Numbers(int64_t count) {
  std::vector<void *> numbers;
  for (int64_t i = 1; i <= count; i++) {
    numbers.push_back(reinterpret_cast<void *>(i));
  }
  return numbers;
}
// NOLINTEND(performance-no-int-to-ptr)

void BM_Ours_Text_HashNumberLookup(benchmark::State &state) {
  const auto numbers = Numbers(state.range(1));
  const OwnedTable table(HashTable_Alloc(static_cast<uint32_t>(state.range(0)), HASH_INT_KEY, nullptr));
  for (void *number : numbers) {
    HashTable_Insert(table.get(), number, number);
  }
  LookUpAll(state, numbers, [&](void *number) { return OursFind(table, number); });
}
BENCHMARK(BM_Ours_Text_HashNumberLookup)->Apply(ErrorLoads);

void BM_Peer_GHashTable_Text_HashNumberLookup(benchmark::State &state) {
  const auto numbers = Numbers(state.range(1));
  const OwnedGTable table(g_hash_table_new(nullptr, nullptr));
  for (void *number : numbers) {
    g_hash_table_insert(table.get(), number, number);
  }
  LookUpAll(state, numbers, [&](void *number) { return g_hash_table_lookup(table.get(), number); });
}
BENCHMARK(BM_Peer_GHashTable_Text_HashNumberLookup)->Apply(ErrorLoads);

void BM_Peer_Std_Text_HashNumberLookup(benchmark::State &state) {
  std::unordered_map<void *, void *> map;
  const auto numbers = Numbers(state.range(1));
  for (void *number : numbers) {
    map.try_emplace(number, number);
  }
  LookUpAll(state, numbers, [&](void *number) { return map.find(number)->second; });
}
BENCHMARK(BM_Peer_Std_Text_HashNumberLookup)->Apply(ErrorLoads);

// --- a table's whole life: made, filled, freed ---

void BM_Ours_Text_HashFill(benchmark::State &state) {
  const auto keys = Paths(state.range(1));
  while (state.KeepRunning()) {
    OursOf(state, HASH_STRING_KEY, keys);
  }
  SetItems(state);
}
BENCHMARK(BM_Ours_Text_HashFill)->Apply(JournalLoads);

void BM_Peer_GHashTable_Text_HashFill(benchmark::State &state) {
  const auto keys = Paths(state.range(1));
  while (state.KeepRunning()) {
    GLibOf(g_str_hash, g_str_equal, keys);
  }
  SetItems(state);
}
BENCHMARK(BM_Peer_GHashTable_Text_HashFill)->Apply(JournalLoads);

template <typename Map>
void MapFill(benchmark::State &state) {
  const auto keys = Paths(state.range(1));
  while (state.KeepRunning()) {
    MapOf<Map>(keys);
  }
  SetItems(state);
}
void BM_Peer_Std_Text_HashFill(benchmark::State &state) {
  MapFill<StdMap>(state);
}
BENCHMARK(BM_Peer_Std_Text_HashFill)->Apply(JournalLoads);
void BM_Peer_Absl_Text_HashFill(benchmark::State &state) {
  MapFill<AbslMap>(state);
}
BENCHMARK(BM_Peer_Absl_Text_HashFill)->Apply(JournalLoads);

// --- the same with copied keys ---

void BM_Ours_Text_HashFillCopied(benchmark::State &state) {
  const auto keys = Names(state.range(1));
  while (state.KeepRunning()) {
    OursOf(state, HASH_STRING_KEY | HASH_FLAG_COPYKEY, keys);
  }
  SetItems(state);
}
BENCHMARK(BM_Ours_Text_HashFillCopied)->Args({128, 40})->Args({512, 100})->Args({512, 1000});

void BM_Peer_GHashTable_Text_HashFillCopied(benchmark::State &state) {
  const auto keys = Names(state.range(1));
  while (state.KeepRunning()) {
    const OwnedGTable table(g_hash_table_new_full(g_str_hash, g_str_equal, g_free, nullptr));
    for (const std::string &key : keys) {
      g_hash_table_insert(table.get(), g_strdup(key.c_str()), Value(key));
    }
  }
  SetItems(state);
}
BENCHMARK(BM_Peer_GHashTable_Text_HashFillCopied)->Args({128, 40})->Args({512, 100})->Args({512, 1000});

void BM_Peer_Std_Text_HashFillCopied(benchmark::State &state) {
  const auto keys = Names(state.range(1));
  while (state.KeepRunning()) {
    std::unordered_map<std::string, void *> map;
    for (const std::string &key : keys) {
      map.try_emplace(key, Value(key));
    }
  }
  SetItems(state);
}
BENCHMARK(BM_Peer_Std_Text_HashFillCopied)->Args({128, 40})->Args({512, 100})->Args({512, 1000});

}  // namespace
