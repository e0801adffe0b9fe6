#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "posixPosix.h"

namespace {

// A file below a directory of its own, with a path of about `size` bytes; gone with its owner.
class Path {
 public:
  Path(int64_t size, const std::string &pattern) {
    char directory[] = "/tmp/posixPosix_bench.XXXXXX";
    if (mkdtemp(directory) == nullptr) {
      abort();
    }
    directory_ = directory;
    path_ = directory_ + "/";
    while (path_.size() + pattern.size() < static_cast<size_t>(size)) {
      path_ += pattern;
    }
    close(open(path_.c_str(), O_CREAT | O_WRONLY, 0600));
  }
  ~Path() {
    unlink(path_.c_str());
    rmdir(directory_.c_str());
  }
  Path(const Path &) = delete;
  Path &operator=(const Path &) = delete;

  [[nodiscard]] const char *Get() const { return path_.c_str(); }

 private:
  std::string directory_;
  std::string path_;
};

constexpr char kAscii[] = "abcdefg-";
constexpr char kMixed[] = "caf\u00E9\u20AC";

void Sizes(benchmark::internal::Benchmark *bench) {
  bench->Arg(40)->Arg(80)->Arg(240);
}

template <typename Call>
void StatEach(benchmark::State &state, const char *pattern, Call call) {
  const Path path(state.range(0), pattern);
  struct stat data;
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(call(path.Get(), &data));
  }
}

void BM_Ours_Files_WrappedStat(benchmark::State &state) {
  StatEach(state, kAscii, Posix_Stat);
}
BENCHMARK(BM_Ours_Files_WrappedStat)->Apply(Sizes);
void BM_Peer_System_Files_WrappedStat(benchmark::State &state) {
  StatEach(state, kAscii, static_cast<int (*)(const char *, struct stat *)>(stat));
}
BENCHMARK(BM_Peer_System_Files_WrappedStat)->Apply(Sizes);

void BM_Ours_Files_WrappedStatMixed(benchmark::State &state) {
  StatEach(state, kMixed, Posix_Stat);
}
BENCHMARK(BM_Ours_Files_WrappedStatMixed)->Apply(Sizes);
void BM_Peer_System_Files_WrappedStatMixed(benchmark::State &state) {
  StatEach(state, kMixed, static_cast<int (*)(const char *, struct stat *)>(stat));
}
BENCHMARK(BM_Peer_System_Files_WrappedStatMixed)->Apply(Sizes);

// The shortest of all: the name isn't there.
void BM_Ours_Files_WrappedAccessMissing(benchmark::State &state) {
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(Posix_Access("/missing", F_OK));
  }
}
BENCHMARK(BM_Ours_Files_WrappedAccessMissing);
void BM_Peer_System_Files_WrappedAccessMissing(benchmark::State &state) {
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(access("/missing", F_OK));
  }
}
BENCHMARK(BM_Peer_System_Files_WrappedAccessMissing);

void BM_Ours_Files_WrappedOpen(benchmark::State &state) {
  const Path path(state.range(0), kAscii);
  while (state.KeepRunning()) {
    close(Posix_Open(path.Get(), O_RDONLY));
  }
}
BENCHMARK(BM_Ours_Files_WrappedOpen)->Apply(Sizes);
void BM_Peer_System_Files_WrappedOpen(benchmark::State &state) {
  const Path path(state.range(0), kAscii);
  while (state.KeepRunning()) {
    close(open(path.Get(), O_RDONLY));
  }
}
BENCHMARK(BM_Peer_System_Files_WrappedOpen)->Apply(Sizes);

}  // namespace
