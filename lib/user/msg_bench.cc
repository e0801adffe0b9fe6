#include <benchmark/benchmark.h>
#include <glib.h>

#include <cerrno>
#include <memory>
#include <string>

#include "err.h"
#include "msg.h"
#include "owned.h"

namespace {

using OwnedText = std::unique_ptr<char, Releaser<g_free>>;

// What the messages tell. Not constant, so that nothing is known at compile time.
struct {
  const char *name = "vmlinux";
  const char *path = "/lib/modules/6.1.0-56-amd64/misc";
  int status = 7;
  long size = 1234567890123;
} given;

// A message appended, rendered and dropped, in a process that has met an error. Both sides make the same
// text.
void Ours(benchmark::State &state, void (*append)()) {
  Err_Errno2String(ENOENT);
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(given);
    append();
    benchmark::DoNotOptimize(Msg_GetMessagesAndReset());
  }
}

void Peer(benchmark::State &state, char *(*print)()) {
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(given);
    const OwnedText text(print());
    benchmark::DoNotOptimize(text.get());
  }
}

#define BENCHMARK_PENDING(subject, ...)                                           \
  void BM_Ours_Config_Pending##subject(benchmark::State &state) {                 \
    Ours(state, [] { Msg_Append(MSGID(bench.message) __VA_ARGS__); });            \
  }                                                                               \
  BENCHMARK(BM_Ours_Config_Pending##subject);                                     \
  void BM_Peer_g_strdup_printf_Config_Pending##subject(benchmark::State &state) { \
    Peer(state, [] { return g_strdup_printf(__VA_ARGS__); });                     \
  }                                                                               \
  BENCHMARK(BM_Peer_g_strdup_printf_Config_Pending##subject);

BENCHMARK_PENDING(Plain, "The configuration was changed while it was read.\n")
BENCHMARK_PENDING(String, "Cannot open \"%s\".\n", given.path)
BENCHMARK_PENDING(Mixed, "Cannot load module \"%s\" from \"%s\": status %d, %ld bytes.\n", given.name,
                  given.path, given.status, given.size)

// One string of the given size.
std::string Text(const benchmark::State &state) {
  return std::string(static_cast<size_t>(state.range(0)), 'x');
}

void BM_Ours_Config_PendingSized(benchmark::State &state) {
  const std::string argument = Text(state);
  while (state.KeepRunning()) {
    Msg_Append(MSGID(bench.message) "<%s>\n", argument.c_str());
    benchmark::DoNotOptimize(Msg_GetMessagesAndReset());
  }
}
BENCHMARK(BM_Ours_Config_PendingSized)->Arg(16)->Arg(512)->Arg(65536);

void BM_Peer_g_strdup_printf_Config_PendingSized(benchmark::State &state) {
  const std::string argument = Text(state);
  while (state.KeepRunning()) {
    const OwnedText text(g_strdup_printf("<%s>\n", argument.c_str()));
    benchmark::DoNotOptimize(text.get());
  }
}
BENCHMARK(BM_Peer_g_strdup_printf_Config_PendingSized)->Arg(16)->Arg(512)->Arg(65536);

// As many messages as the size tells, as one text.
void BM_Ours_Config_PendingList(benchmark::State &state) {
  while (state.KeepRunning()) {
    for (int64_t i = 0; i < state.range(0); i++) {
      Msg_Append(MSGID(bench.message) "Cannot open \"%s\".\n", given.path);
    }
    benchmark::DoNotOptimize(Msg_GetMessagesAndReset());
  }
}
BENCHMARK(BM_Ours_Config_PendingList)->Arg(1)->Arg(10)->Arg(1000);

void BM_Peer_g_strdup_printf_Config_PendingList(benchmark::State &state) {
  while (state.KeepRunning()) {
    GString *all = g_string_new(nullptr);
    for (int64_t i = 0; i < state.range(0); i++) {
      const OwnedText text(g_strdup_printf("Cannot open \"%s\".\n", given.path));
      g_string_append(all, text.get());
    }
    benchmark::DoNotOptimize(all->str);
    g_string_free(all, TRUE);
  }
}
BENCHMARK(BM_Peer_g_strdup_printf_Config_PendingList)->Arg(1)->Arg(10)->Arg(1000);

}  // namespace
