// Benchmarks of messages: made and rendered in some way, beside a peer that prints the same text at once.
//
//   void Render(MsgList *message) { ... }
//   MESSAGE_BENCHMARKS(Pending, Msg_Append, Render);
#ifndef OST_TESTS_HOST_MESSAGEBENCH_H
#define OST_TESTS_HOST_MESSAGEBENCH_H

#include <benchmark/benchmark.h>
#include <glib.h>

#include <cerrno>
#include <memory>
#include <string>

#include "err.h"
#include "msg.h"
#include "owned.h"

namespace messagebench {

using OwnedText = std::unique_ptr<char, Releaser<g_free>>;

// What the messages tell. Not constant, so that nothing is known at compile time.
struct Given {
  const char *name = "vmlinux";
  const char *path = "/lib/modules/6.1.0-56-amd64/misc";
  int status = 7;
  long size = 1234567890123;
};
inline Given given;

// Runs in a process that has met an error.
template <typename Tell>
void Ours(benchmark::State &state, const Tell &tell) {
  Err_Errno2String(ENOENT);
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(given);
    tell();
  }
}

template <typename Print>
void Peer(benchmark::State &state, const Print &print) {
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(given);
    const OwnedText text(print());
    benchmark::DoNotOptimize(text.get());
  }
}

// One string of the given size.
inline std::string Text(const benchmark::State &state) {
  return std::string(static_cast<size_t>(state.range(0)), 'x');
}

}  // namespace messagebench

// One message.
//
// subject  the name in BM_Ours_Config_<subject> and its peer
// make     gives the message of a format and its values
// render   makes its text and drops it
#define MESSAGE_BENCHMARK(subject, make, render, ...)                                  \
  void BM_Ours_Config_##subject(benchmark::State &state) {                             \
    messagebench::Ours(state, [] { render(make(MSGID(bench.message) __VA_ARGS__)); }); \
  }                                                                                    \
  BENCHMARK(BM_Ours_Config_##subject);                                                 \
  void BM_Peer_g_strdup_printf_Config_##subject(benchmark::State &state) {             \
    messagebench::Peer(state, [] { return g_strdup_printf(__VA_ARGS__); });            \
  }                                                                                    \
  BENCHMARK(BM_Peer_g_strdup_printf_Config_##subject)

// The messages that each way is measured with: plain, with a string, with several values, and with strings of
// some sizes.
#define MESSAGE_BENCHMARKS(subject, make, render)                                                        \
  MESSAGE_BENCHMARK(subject##Plain, make, render, "The configuration was changed while it was read.\n"); \
  MESSAGE_BENCHMARK(subject##String, make, render, "Cannot open \"%s\".\n", messagebench::given.path);   \
  MESSAGE_BENCHMARK(subject##Mixed, make, render,                                                        \
                    "Cannot load module \"%s\" from \"%s\": status %d, %ld bytes.\n",                    \
                    messagebench::given.name, messagebench::given.path, messagebench::given.status,      \
                    messagebench::given.size);                                                           \
  void BM_Ours_Config_##subject##Sized(benchmark::State &state) {                                        \
    const std::string text = messagebench::Text(state);                                                  \
    messagebench::Ours(state, [&text] { render(make(MSGID(bench.message) "<%s>\n", text.c_str())); });   \
  }                                                                                                      \
  BENCHMARK(BM_Ours_Config_##subject##Sized)->Arg(16)->Arg(512)->Arg(65536);                             \
  void BM_Peer_g_strdup_printf_Config_##subject##Sized(benchmark::State &state) {                        \
    const std::string text = messagebench::Text(state);                                                  \
    messagebench::Peer(state, [&text] { return g_strdup_printf("<%s>\n", text.c_str()); });              \
  }                                                                                                      \
  BENCHMARK(BM_Peer_g_strdup_printf_Config_##subject##Sized)->Arg(16)->Arg(512)->Arg(65536)

#endif
