// The dictionary beside GLib's key files, on files of the same keys and values: with the 512 buckets that it
// has, chains are 200 long at 100,000 keys.
#include <benchmark/benchmark.h>
#include <glib.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "dictType.h"
#include "dictionary.h"
#include "owned.h"

namespace {

using OwnedKeyFile = std::unique_ptr<GKeyFile, Releaser<g_key_file_unref>>;
constexpr char kGroup[] = "g";

std::vector<std::string> Names(int64_t count) {
  std::vector<std::string> names;
  for (int64_t i = 0; i < count; i++) {
    names.push_back("setting" + std::to_string(i) + ".fileName");
  }
  return names;
}

// The keys in an order that is not the file's.
std::vector<const char *> Shuffled(const std::vector<std::string> &names) {
  std::vector<const char *> shuffled;
  for (size_t i = 0; i < names.size(); i++) {
    shuffled.push_back(names[i * 7919 % names.size()].c_str());
  }
  return shuffled;
}

// A file in the temporary directory for as long as this lives.
class TemporaryFile {
 public:
  explicit TemporaryFile(const std::string &content) {
    const int fd = mkstemp(path_.data());
    if (fd == -1 || write(fd, content.data(), content.size()) != static_cast<ssize_t>(content.size())) {
      abort();
    }
    close(fd);
  }
  ~TemporaryFile() { unlink(path_.c_str()); }
  TemporaryFile(const TemporaryFile &) = delete;
  TemporaryFile &operator=(const TemporaryFile &) = delete;

  const char *Path() const { return path_.c_str(); }

 private:
  std::string path_ = "/tmp/dictionary-bench-XXXXXX";
};

std::string Content(int64_t count, const char *head, const char *quote) {
  std::string content = head;
  for (const std::string &name : Names(count)) {
    content.append(name).append(" = ").append(quote).append("/usr/lib/ostrel/").append(name);
    content.append(quote).append("\n");
  }
  return content;
}

std::string OurContent(int64_t count) {
  return Content(count, ".encoding = \"UTF-8\"\n", "\"");
}

std::string PeerContent(int64_t count) {
  return Content(count, "[g]\n", "");
}

OwnedDictionary LoadedDictionary(const TemporaryFile &file) {
  OwnedDictionary dict(Dictionary_Create());
  if (!Dictionary_Load(dict.get(), file.Path())) {
    abort();
  }
  return dict;
}

OwnedKeyFile LoadedKeyFile(const TemporaryFile &file) {
  OwnedKeyFile keys(g_key_file_new());
  if (!g_key_file_load_from_file(keys.get(), file.Path(), G_KEY_FILE_KEEP_COMMENTS, nullptr)) {
    abort();
  }
  return keys;
}

void BM_Ours_Config_DictionaryLoad(benchmark::State &state) {
  const TemporaryFile file(OurContent(state.range(0)));
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(LoadedDictionary(file));
  }
}

void BM_Peer_GKeyFile_Config_DictionaryLoad(benchmark::State &state) {
  const TemporaryFile file(PeerContent(state.range(0)));
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(LoadedKeyFile(file));
  }
}

void BM_Ours_Config_DictionaryLookup(benchmark::State &state) {
  const TemporaryFile file(OurContent(state.range(0)));
  const OwnedDictionary dict = LoadedDictionary(file);
  const std::vector<std::string> names = Names(state.range(0));
  const std::vector<const char *> shuffled = Shuffled(names);
  for ([[maybe_unused]] auto _ : state) {
    for (const char *name : shuffled) {
      const OwnedString value(Dict_GetString(dict.get(), nullptr, "%s", name));
      benchmark::DoNotOptimize(value.get());
    }
  }
}

void BM_Peer_GKeyFile_Config_DictionaryLookup(benchmark::State &state) {
  const TemporaryFile file(PeerContent(state.range(0)));
  const OwnedKeyFile keys = LoadedKeyFile(file);
  const std::vector<std::string> names = Names(state.range(0));
  const std::vector<const char *> shuffled = Shuffled(names);
  for ([[maybe_unused]] auto _ : state) {
    for (const char *name : shuffled) {
      char *value = g_key_file_get_string(keys.get(), kGroup, name, nullptr);
      benchmark::DoNotOptimize(value);
      g_free(value);
    }
  }
}

// Every tenth value is changed, so that its line is made anew.
void BM_Ours_Config_DictionarySave(benchmark::State &state) {
  const TemporaryFile file(OurContent(state.range(0)));
  const OwnedDictionary dict = LoadedDictionary(file);
  const std::vector<std::string> names = Names(state.range(0));
  for (size_t i = 0; i < names.size(); i += 10) {
    Dict_SetString(dict.get(), "changed", "%s", names[i].c_str());
  }
  for ([[maybe_unused]] auto _ : state) {
    char *text = nullptr;
    size_t size = 0;
    benchmark::DoNotOptimize(Dictionary_WriteToBuffer(dict.get(), true, &text, &size));
    free(text);
  }
}

void BM_Peer_GKeyFile_Config_DictionarySave(benchmark::State &state) {
  const TemporaryFile file(PeerContent(state.range(0)));
  const OwnedKeyFile keys = LoadedKeyFile(file);
  const std::vector<std::string> names = Names(state.range(0));
  for (size_t i = 0; i < names.size(); i += 10) {
    g_key_file_set_string(keys.get(), kGroup, names[i].c_str(), "changed");
  }
  for ([[maybe_unused]] auto _ : state) {
    gsize size = 0;
    char *text = g_key_file_to_data(keys.get(), &size, nullptr);
    benchmark::DoNotOptimize(text);
    g_free(text);
  }
}

#define CONFIG_BENCHMARK(name) BENCHMARK(name)->Arg(10)->Arg(100)->Arg(1000)->Arg(4096)->Arg(100000)
CONFIG_BENCHMARK(BM_Ours_Config_DictionaryLoad);
CONFIG_BENCHMARK(BM_Peer_GKeyFile_Config_DictionaryLoad);
CONFIG_BENCHMARK(BM_Ours_Config_DictionaryLookup);
CONFIG_BENCHMARK(BM_Peer_GKeyFile_Config_DictionaryLookup);
CONFIG_BENCHMARK(BM_Ours_Config_DictionarySave);
CONFIG_BENCHMARK(BM_Peer_GKeyFile_Config_DictionarySave);

}  // namespace
