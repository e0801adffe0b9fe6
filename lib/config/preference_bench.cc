// Settings by a key beside GLib's key files: a key that a file holds, and one that has only a default, each
// among 10 to 10,000 keys of the user's file.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <glib.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <type_traits>

#include "config.h"
#include "owned.h"
#include "preference.h"
#include "testhost.h"

namespace {

using OwnedKeyFile = std::unique_ptr<GKeyFile, Releaser<g_key_file_unref>>;
constexpr char kGroup[] = "g";
constexpr char kUnset[] = "unset.key";

constexpr const char *kBool[] = {"set.bool", "TRUE"};
constexpr const char *kLong[] = {"set.long", "16384"};
constexpr const char *kInt64[] = {"set.int64", "4294967296"};
constexpr const char *kDouble[] = {"set.double", "0.5"};
constexpr const char *kString[] = {"set.string", "/usr/lib/ostrel"};

std::string Content(int64_t count) {
  std::string content;
  for (int64_t i = 0; i < count; i++) {
    content += "setting" + std::to_string(i) + ".fileName = /usr/lib/ostrel/" + std::to_string(i) + "\n";
  }
  for (const auto *pair : {kBool, kLong, kInt64, kDouble, kString}) {
    content.append(pair[0]).append(" = ").append(pair[1]).append("\n");
  }
  return content;
}

// Settings of a home directory of this one's own, for as long as this lives.
class Settings {
 public:
  explicit Settings(int64_t count) {
    if (mkdtemp(home_.data()) == nullptr) {
      abort();
    }
    testhost::WriteFile(home_ + "/.ostrel/preferences", Content(count));
    setenv("HOME", home_.c_str(), 1);
    Preference_DisablePolling();
    Preference_Init();
  }
  ~Settings() {
    Preference_Exit();
    unlink((home_ + "/.ostrel/preferences").c_str());
    rmdir((home_ + "/.ostrel").c_str());
    rmdir(home_.c_str());
  }
  Settings(const Settings &) = delete;
  Settings &operator=(const Settings &) = delete;

 private:
  std::string home_ = "/tmp/preference-bench-XXXXXX";
};

OwnedKeyFile KeyFile(int64_t count) {
  OwnedKeyFile keys(g_key_file_new());
  const std::string content = "[g]\n" + Content(count);
  if (!g_key_file_load_from_data(keys.get(), content.c_str(), content.size(), G_KEY_FILE_NONE, nullptr)) {
    abort();
  }
  return keys;
}

template <typename T>
void Drop(T value) {
  benchmark::DoNotOptimize(value);
  if constexpr (std::is_same_v<T, char *>) {
    free(value);
  }
}

template <auto get, typename Default>
void Ours(benchmark::State &state, const char *key, Default defaultValue) {
  const Settings settings(state.range(0));
  for ([[maybe_unused]] auto _ : state) {
    Drop(get(defaultValue, key));
  }
}

// A key file has no defaults: the error is what tells its caller to take one.
template <auto get>
void Peer(benchmark::State &state, const char *key) {
  const OwnedKeyFile keys = KeyFile(state.range(0));
  for ([[maybe_unused]] auto _ : state) {
    GError *error = nullptr;
    Drop(get(keys.get(), kGroup, key, &error));
    g_clear_error(&error);
  }
}

#define CONFIG_BENCHMARK(name) BENCHMARK(name)->Arg(10)->Arg(1000)->Arg(10000)
#define CONFIG_PAIR(type, getOurs, getPeer, key, defaultValue)   \
  void BM_Ours_Config_##type(benchmark::State &state) {          \
    Ours<getOurs>(state, key, defaultValue);                     \
  }                                                              \
  void BM_Peer_GKeyFile_Config_##type(benchmark::State &state) { \
    Peer<getPeer>(state, key);                                   \
  }                                                              \
  CONFIG_BENCHMARK(BM_Ours_Config_##type);                       \
  CONFIG_BENCHMARK(BM_Peer_GKeyFile_Config_##type)

CONFIG_PAIR(GetBoolSet, Config_GetBool, g_key_file_get_boolean, kBool[0], false);
CONFIG_PAIR(GetLongSet, Config_GetLong, g_key_file_get_integer, kLong[0], 0);
CONFIG_PAIR(GetInt64Set, Config_GetInt64, g_key_file_get_int64, kInt64[0], 0);
CONFIG_PAIR(GetDoubleSet, Config_GetDouble, g_key_file_get_double, kDouble[0], 0.0);
CONFIG_PAIR(GetStringSet, Config_GetString, g_key_file_get_string, kString[0], nullptr);
CONFIG_PAIR(GetBoolDefault, Config_GetBool, g_key_file_get_boolean, kUnset, true);
CONFIG_PAIR(GetLongDefault, Config_GetLong, g_key_file_get_integer, kUnset, 5);
CONFIG_PAIR(GetInt64Default, Config_GetInt64, g_key_file_get_int64, kUnset, 5);
CONFIG_PAIR(GetDoubleDefault, Config_GetDouble, g_key_file_get_double, kUnset, 0.5);
CONFIG_PAIR(GetStringDefault, Config_GetString, g_key_file_get_string, kUnset, "/tmp");

}  // namespace
