#include <benchmark/benchmark.h>
#include <glib.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include "ostdio.h"
#include "owned.h"

namespace {

constexpr size_t kTotal = 1 << 20;

// A file of a MiB below /tmp with lines of the given length, that goes with the object.
class LineFile {
 public:
  LineFile(int64_t length, const char *lineEnd) {
    std::ofstream out(path_, std::ios::binary);
    const std::string line = std::string(static_cast<size_t>(length), 'x') + lineEnd;
    for (size_t size = 0; size < kTotal; size += line.size()) {
      out << line;
    }
  }
  ~LineFile() { unlink(Path()); }
  LineFile(const LineFile &) = delete;
  LineFile &operator=(const LineFile &) = delete;
  const char *Path() const { return path_.c_str(); }

 private:
  const std::string path_ = "/tmp/ostdio_bench-" + std::to_string(getpid());
};

void Lengths(benchmark::internal::Benchmark *bench) {
  bench->Arg(16)->Arg(64)->Arg(500)->Arg(20000);
}

void ReadAllLines(benchmark::State &state, const LineFile &file) {
  while (state.KeepRunning()) {
    const OwnedStream stream(fopen(file.Path(), "re"));
    char *line = nullptr;
    size_t length = 0;
    while (StdIO_ReadNextLine(stream.get(), &line, 0, &length) == StdIO_Success) {
      benchmark::DoNotOptimize(line);
      free(line);
    }
  }
}

void BM_Ours_Text_ReadNextLine(benchmark::State &state) {
  ReadAllLines(state, LineFile(state.range(0), "\n"));
}
BENCHMARK(BM_Ours_Text_ReadNextLine)->Apply(Lengths);

// As we do it: each line is the caller's to keep.
void BM_Peer_getlineNew_Text_ReadNextLine(benchmark::State &state) {
  const LineFile file(state.range(0), "\n");
  while (state.KeepRunning()) {
    const OwnedStream stream(fopen(file.Path(), "re"));
    while (true) {
      char *line = nullptr;
      size_t size = 0;
      const ssize_t length = getline(&line, &size, stream.get());
      benchmark::DoNotOptimize(line);
      free(line);
      if (length < 0) {
        break;
      }
    }
  }
}
BENCHMARK(BM_Peer_getlineNew_Text_ReadNextLine)->Apply(Lengths);

// All lines in one buffer that is used again.
void BM_Peer_getline_Text_ReadNextLine(benchmark::State &state) {
  const LineFile file(state.range(0), "\n");
  while (state.KeepRunning()) {
    const OwnedStream stream(fopen(file.Path(), "re"));
    char *line = nullptr;
    size_t size = 0;
    while (getline(&line, &size, stream.get()) >= 0) {
      benchmark::DoNotOptimize(line);
    }
    free(line);
  }
}
BENCHMARK(BM_Peer_getline_Text_ReadNextLine)->Apply(Lengths);

void BM_Peer_ifstream_Text_ReadNextLine(benchmark::State &state) {
  const LineFile file(state.range(0), "\n");
  while (state.KeepRunning()) {
    std::ifstream stream(file.Path());
    std::string line;
    while (std::getline(stream, line)) {
      benchmark::DoNotOptimize(line.data());
    }
  }
}
BENCHMARK(BM_Peer_ifstream_Text_ReadNextLine)->Apply(Lengths);

void ReadAllChannelLines(benchmark::State &state, const LineFile &file) {
  while (state.KeepRunning()) {
    GIOChannel *channel = g_io_channel_new_file(file.Path(), "r", nullptr);
    g_io_channel_set_encoding(channel, nullptr, nullptr);
    char *line = nullptr;
    while (g_io_channel_read_line(channel, &line, nullptr, nullptr, nullptr) == G_IO_STATUS_NORMAL) {
      benchmark::DoNotOptimize(line);
      g_free(line);
    }
    g_io_channel_unref(channel);
  }
}

void BM_Peer_GIOChannel_Text_ReadNextLine(benchmark::State &state) {
  ReadAllChannelLines(state, LineFile(state.range(0), "\n"));
}
BENCHMARK(BM_Peer_GIOChannel_Text_ReadNextLine)->Apply(Lengths);

void BM_Ours_Text_ReadNextLineCrLf(benchmark::State &state) {
  ReadAllLines(state, LineFile(state.range(0), "\r\n"));
}
BENCHMARK(BM_Ours_Text_ReadNextLineCrLf)->Apply(Lengths);

void BM_Peer_GIOChannel_Text_ReadNextLineCrLf(benchmark::State &state) {
  ReadAllChannelLines(state, LineFile(state.range(0), "\r\n"));
}
BENCHMARK(BM_Peer_GIOChannel_Text_ReadNextLineCrLf)->Apply(Lengths);

}  // namespace
