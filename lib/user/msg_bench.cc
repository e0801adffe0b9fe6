#include "messageBench.h"

namespace {

void Render(MsgList *) {
  benchmark::DoNotOptimize(Msg_GetMessagesAndReset());
}

MESSAGE_BENCHMARKS(Pending, Msg_Append, Render);

// As many messages as the size tells, as one text.
void BM_Ours_Config_PendingList(benchmark::State &state) {
  while (state.KeepRunning()) {
    for (int64_t i = 0; i < state.range(0); i++) {
      Msg_Append(MSGID(bench.message) "Cannot open \"%s\".\n", messagebench::given.path);
    }
    benchmark::DoNotOptimize(Msg_GetMessagesAndReset());
  }
}
BENCHMARK(BM_Ours_Config_PendingList)->Arg(1)->Arg(10)->Arg(1000);

void BM_Peer_g_strdup_printf_Config_PendingList(benchmark::State &state) {
  while (state.KeepRunning()) {
    GString *all = g_string_new(nullptr);
    for (int64_t i = 0; i < state.range(0); i++) {
      const messagebench::OwnedText text(g_strdup_printf("Cannot open \"%s\".\n", messagebench::given.path));
      g_string_append(all, text.get());
    }
    benchmark::DoNotOptimize(all->str);
    g_string_free(all, TRUE);
  }
}
BENCHMARK(BM_Peer_g_strdup_printf_Config_PendingList)->Arg(1)->Arg(10)->Arg(1000);

}  // namespace
