#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/mman.h>

#include <cstring>
#include <string>

#include "benchInt.h"
#include "grep.h"

namespace {

using enginebench::DataFile;
using enginebench::RunAndRead;

// As /proc/kallsyms has it, with the wanted symbol once in a thousand lines.
std::string Symbols(int64_t count) {
  std::string text;
  for (int64_t i = 0; i < count; ++i) {
    char line[64];
    snprintf(line, sizeof line, "%08x T %s%d\n", static_cast<unsigned>(0xc0100000 + i * 64),
             i % 1000 == 500 ? "printk" : "some_kernel_symbol_", static_cast<int>(i));
    text += line;
  }
  return text;
}

void Sizes(benchmark::internal::Benchmark *bench) {
  bench->Arg(1000)->Arg(10000)->Arg(100000)->UseRealTime();
}

void BM_Ours_Grep(benchmark::State &state) {
  const DataFile file(Symbols(state.range(0)));
  while (state.KeepRunning()) {
    char **lines = Grep_File(file.Path(), " printk", "\n");
    benchmark::DoNotOptimize(lines);
    Grep_FreeLines(lines);
  }
}
BENCHMARK(BM_Ours_Grep)->Apply(Sizes);

void BM_Peer_GrepF_Grep(benchmark::State &state) {
  const DataFile file(Symbols(state.range(0)));
  const std::string command = std::string("grep -F ' printk' ") + file.Path();
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(RunAndRead(command));
  }
}
BENCHMARK(BM_Peer_GrepF_Grep)->Apply(Sizes);

// Counts the hits in the mapped file: no lines, no copies.
void BM_Peer_Memmem_Grep(benchmark::State &state) {
  const std::string content = Symbols(state.range(0));
  const DataFile file(content);
  while (state.KeepRunning()) {
    const int fd = open(file.Path(), O_RDONLY | O_CLOEXEC);
    void *map = mmap(nullptr, content.size(), PROT_READ, MAP_PRIVATE, fd, 0);
    close(fd);
    const char *at = static_cast<const char *>(map);
    const char *end = at + content.size();
    size_t hits = 0;
    while (const void *hit = memmem(at, static_cast<size_t>(end - at), " printk", 7)) {
      at = static_cast<const char *>(hit) + 7;
      ++hits;
    }
    benchmark::DoNotOptimize(hits);
    munmap(map, content.size());
  }
}
BENCHMARK(BM_Peer_Memmem_Grep)->Apply(Sizes);

void BM_Ours_ReadLines(benchmark::State &state) {
  const DataFile file(Symbols(state.range(0)));
  while (state.KeepRunning()) {
    char **lines = Grep_ReadLines(file.Path(), "\n");
    benchmark::DoNotOptimize(lines);
    Grep_FreeLines(lines);
  }
}
BENCHMARK(BM_Ours_ReadLines)->Apply(Sizes);

void BM_Peer_GrepF_ReadLines(benchmark::State &state) {
  const DataFile file(Symbols(state.range(0)));
  const std::string command = std::string("grep -F '' ") + file.Path();
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(RunAndRead(command));
  }
}
BENCHMARK(BM_Peer_GrepF_ReadLines)->Apply(Sizes);

}  // namespace
