#include <benchmark/benchmark.h>
#include <glib.h>

#include <cerrno>
#include <memory>
#include <string>

#include "err.h"
#include "msgList.h"
#include "msgfmt.h"
#include "owned.h"

namespace {

using OwnedList = std::unique_ptr<MsgList, Releaser<MsgList_Free>>;
using OwnedText = std::unique_ptr<char, Releaser<g_free>>;

// What the messages tell. Not constant, so that nothing is known at compile time.
struct {
  const char *name = "vmlinux";
  const char *path = "/lib/modules/6.1.0-56-amd64/misc";
  int status = 7;
  long size = 1234567890123;
} given;

// A message appended, rendered and dropped, in a process that has met an error. Both sides print the same
// text.
void Ours(benchmark::State &state, MsgList *(*create)()) {
  Err_Errno2String(ENOENT);
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(given);
    const OwnedList message(create());
    const OwnedString text(MsgFmt_Asprintf(nullptr, message->format, message->args, message->numArgs));
    benchmark::DoNotOptimize(text.get());
  }
}

void Peer(benchmark::State &state, char *(*print)()) {
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(given);
    const OwnedText text(print());
    benchmark::DoNotOptimize(text.get());
  }
}

#define BENCHMARK_MESSAGE(subject, ...)                                           \
  void BM_Ours_Config_Message##subject(benchmark::State &state) {                 \
    Ours(state, [] { return MsgList_Create(MSGID_BENCH __VA_ARGS__); });          \
  }                                                                               \
  BENCHMARK(BM_Ours_Config_Message##subject);                                     \
  void BM_Peer_g_strdup_printf_Config_Message##subject(benchmark::State &state) { \
    Peer(state, [] { return g_strdup_printf(__VA_ARGS__); });                     \
  }                                                                               \
  BENCHMARK(BM_Peer_g_strdup_printf_Config_Message##subject);
#define MSGID_BENCH "@&!*@*@(msg.bench.message)"

BENCHMARK_MESSAGE(Plain, "The configuration was changed while it was read.\n")
BENCHMARK_MESSAGE(String, "Cannot open \"%s\".\n", given.path)
BENCHMARK_MESSAGE(Mixed, "Cannot load module \"%s\" from \"%s\": status %d, %ld bytes.\n", given.name,
                  given.path, given.status, given.size)
// Positions are POSIX and no C++.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"
BENCHMARK_MESSAGE(Positional, "%4$ld bytes of \"%1$s\" from \"%2$s\": status %3$d.\n", given.name, given.path,
                  given.status, given.size)
#pragma GCC diagnostic pop

// One string of the given size.
std::string Text(const benchmark::State &state) {
  return std::string(static_cast<size_t>(state.range(0)), 'x');
}

void BM_Ours_Config_MessageSized(benchmark::State &state) {
  Err_Errno2String(ENOENT);
  const std::string argument = Text(state);
  while (state.KeepRunning()) {
    const OwnedList message(MsgList_Create(MSGID_BENCH "<%s>\n", argument.c_str()));
    const OwnedString text(MsgFmt_Asprintf(nullptr, message->format, message->args, message->numArgs));
    benchmark::DoNotOptimize(text.get());
  }
}
BENCHMARK(BM_Ours_Config_MessageSized)->Arg(16)->Arg(512)->Arg(65536);

void BM_Peer_g_strdup_printf_Config_MessageSized(benchmark::State &state) {
  const std::string argument = Text(state);
  while (state.KeepRunning()) {
    const OwnedText text(g_strdup_printf("<%s>\n", argument.c_str()));
    benchmark::DoNotOptimize(text.get());
  }
}
BENCHMARK(BM_Peer_g_strdup_printf_Config_MessageSized)->Arg(16)->Arg(512)->Arg(65536);

}  // namespace
