// A line of the log beside one bare write of the same bytes, and beside spdlog when it flushes each line.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "log.h"

namespace {

constexpr char kPrefix[] = "Nov 14 09:30:05.123: app| ";
constexpr int kLinesInFile = 1000;

// A file in the temporary directory for as long as this lives. It is emptied now and then, so that it doesn't
// fill the disk.
class TemporaryFile {
 public:
  TemporaryFile() {
    fd_ = mkostemp(path_.data(), O_APPEND | O_CLOEXEC);
    if (fd_ == -1) {
      abort();
    }
  }
  ~TemporaryFile() {
    close(fd_);
    unlink(path_.c_str());
  }
  TemporaryFile(const TemporaryFile &) = delete;
  TemporaryFile &operator=(const TemporaryFile &) = delete;

  [[nodiscard]] const std::string &Path() const { return path_; }
  [[nodiscard]] int Descriptor() const { return fd_; }

  void LineWritten(benchmark::State &state) {
    if (++lines_ % kLinesInFile == 0) {
      state.PauseTiming();
      if (ftruncate(fd_, 0) == -1) {
        abort();
      }
      state.ResumeTiming();
    }
  }

 private:
  std::string path_ = "/tmp/log_bench.XXXXXX";
  int fd_;
  int lines_ = 0;
};

// A text that makes a line of `size` bytes with its prefix and its newline.
std::string TextFor(int64_t size) {
  return std::string(static_cast<size_t>(size) - sizeof kPrefix, 'x');
}

void Sizes(benchmark::internal::Benchmark *benchmark) {
  benchmark->Arg(60)->Arg(400)->Arg(4000);
}

void StartLog(const char *fileName) {
  if (!Log_Init(fileName, nullptr, "bench")) {
    abort();
  }
}

// Log_Exit alone would leave the file open.
void StopLog() {
  Log_RemoveFile(true);
  Log_Exit();
}

void BM_Ours_Config_LogLine(benchmark::State &state) {
  TemporaryFile file;
  StartLog(file.Path().c_str());
  const std::string text = TextFor(state.range(0));
  while (state.KeepRunning()) {
    Log("%s\n", text.c_str());
    file.LineWritten(state);
  }
  StopLog();
}
BENCHMARK(BM_Ours_Config_LogLine)->Apply(Sizes);

void BM_Peer_write_Config_LogLine(benchmark::State &state) {
  TemporaryFile file;
  const std::string line = kPrefix + TextFor(state.range(0)) + "\n";
  while (state.KeepRunning()) {
    if (write(file.Descriptor(), line.data(), line.size()) == -1) {
      abort();
    }
    file.LineWritten(state);
  }
}
BENCHMARK(BM_Peer_write_Config_LogLine)->Apply(Sizes);

void BM_Peer_spdlog_Config_LogLine(benchmark::State &state) {
  TemporaryFile file;
  const auto logger = spdlog::basic_logger_mt("bench", file.Path());
  logger->set_pattern("%b %d %H:%M:%S.%e: app| %v");
  logger->flush_on(spdlog::level::info);
  const std::string text = TextFor(state.range(0));
  while (state.KeepRunning()) {
    logger->info("{}", text);
    file.LineWritten(state);
  }
  spdlog::drop("bench");
}
BENCHMARK(BM_Peer_spdlog_Config_LogLine)->Apply(Sizes);

// Text that has no file yet.
void BM_Ours_Config_LogWaiting(benchmark::State &state) {
  StartLog(nullptr);
  const std::string text = TextFor(state.range(0));
  while (state.KeepRunning()) {
    Log("%s\n", text.c_str());
  }
  StopLog();
}
BENCHMARK(BM_Ours_Config_LogWaiting)->Apply(Sizes);

void BM_Ours_Config_LogThrottled(benchmark::State &state) {
  TemporaryFile file;
  LogInitParams params{};
  Log_GetInitDefaults(file.Path().c_str(), nullptr, "bench", &params);
  params.throttleThreshold = 1;
  params.throttleBytesPerSec = 0;
  if (!Log_InitEx(&params)) {
    abort();
  }
  const std::string text = TextFor(state.range(0));
  while (state.KeepRunning()) {
    Log("%s\n", text.c_str());
  }
  Log_DisableThrottling();
  StopLog();
}
BENCHMARK(BM_Ours_Config_LogThrottled)->Apply(Sizes);

// A repeat that isn't worth a line.
void BM_Ours_Config_LogDroppedRepeat(benchmark::State &state) {
  TemporaryFile file;
  StartLog(file.Path().c_str());
  uint32_t count = 1000000;
  while (state.KeepRunning()) {
    Log_Throttled(&count, "text %u\n", count);
  }
  StopLog();
}
BENCHMARK(BM_Ours_Config_LogDroppedRepeat);

}  // namespace
