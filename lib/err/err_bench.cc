// The text of an error that was asked for before, beside the C library's.
#include <benchmark/benchmark.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "err.h"

namespace {

// How many different errors are asked for in turn.
int Errors(const benchmark::State &state) {
  return static_cast<int>(state.range(0));
}

void BM_Ours_Config_ErrorText(benchmark::State &state) {
  int number = 1;
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(Err_Errno2String(number));
    number = number == Errors(state) ? 1 : number + 1;
  }
}
BENCHMARK(BM_Ours_Config_ErrorText)->Arg(1)->Arg(16)->Arg(128);

void BM_Peer_strerror_Config_ErrorText(benchmark::State &state) {
  std::array<char, 256> buffer;
  int number = 1;
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(strerror_r(number, buffer.data(), buffer.size()));
    number = number == Errors(state) ? 1 : number + 1;
  }
}
BENCHMARK(BM_Peer_strerror_Config_ErrorText)->Arg(1)->Arg(16)->Arg(128);

}  // namespace
