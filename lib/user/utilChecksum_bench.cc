// The CRC-32 beside zlib's.
#include <benchmark/benchmark.h>
#include <zlib.h>

#include <string>

#include "util.h"

namespace {

void Sizes(benchmark::internal::Benchmark *bench) {
  bench->Arg(16)->Arg(1000)->Arg(100000);
}

void BM_Ours_Text_Crc32(benchmark::State &state) {
  const std::string data(static_cast<size_t>(state.range(0)), 'x');
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(Util_CRC32(data.data(), static_cast<ssize_t>(data.size())));
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Ours_Text_Crc32)->Apply(Sizes);

void BM_Peer_zlib_Text_Crc32(benchmark::State &state) {
  const std::string data(static_cast<size_t>(state.range(0)), 'x');
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(
        crc32(0, reinterpret_cast<const unsigned char *>(data.data()), static_cast<unsigned>(data.size())));
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Peer_zlib_Text_Crc32)->Apply(Sizes);

}  // namespace
