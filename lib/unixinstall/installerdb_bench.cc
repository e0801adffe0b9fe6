#include <benchmark/benchmark.h>

#include <filesystem>
#include <string>

#include "benchInt.h"
#include "installerdb.h"

namespace {

using enginebench::RunAndRead;

// A directory with a journal of `count` lines, as an installer leaves it.
class JournalDirectory {
 public:
  explicit JournalDirectory(int64_t count) {
    std::filesystem::create_directory(path_);
    std::ofstream journal(path_ + "/locations");
    journal
        << "answer BINDIR /usr/bin\nanswer LIBDIR /usr/lib/ostrel-tools\nanswer INITSCRIPTSDIR /etc/init.d\n";
    for (int64_t i = 3; i < count; ++i) {
      journal << "file /usr/lib/ostrel-tools/modules/source/part" << i % 100 << "/file" << i
              << ".c 1700000000\n";
    }
  }
  ~JournalDirectory() { std::filesystem::remove_all(path_); }
  JournalDirectory(const JournalDirectory &) = delete;
  JournalDirectory &operator=(const JournalDirectory &) = delete;
  const std::string &Path() const { return path_; }

 private:
  const std::string path_ = "/tmp/installerdb_bench-" + std::to_string(getpid());
};

void Sizes(benchmark::internal::Benchmark *bench) {
  bench->Arg(1000)->Arg(10000)->Arg(100000)->UseRealTime();
}

void BM_Ours_Replay(benchmark::State &state) {
  const JournalDirectory directory(state.range(0));
  while (state.KeepRunning()) {
    if (!InstallerDB_Init(directory.Path().c_str(), true)) {
      state.SkipWithError("the journal was refused");
    }
    InstallerDB_DeInit();
  }
}
BENCHMARK(BM_Ours_Replay)->Apply(Sizes);

void BM_Peer_GrepF_Replay(benchmark::State &state) {
  const JournalDirectory directory(state.range(0));
  const std::string command = "grep -F / " + directory.Path() + "/locations";
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(RunAndRead(command));
  }
}
BENCHMARK(BM_Peer_GrepF_Replay)->Apply(Sizes);

}  // namespace
