// Filling a growable buffer, beside GLib's byte array and the library's string.
#include <benchmark/benchmark.h>
#include <glib.h>

#include <string>

#include "dynbuf.h"

namespace {

// (bytes in all, bytes at once)
void Sizes(benchmark::internal::Benchmark *bench) {
  for (const int64_t total : {1000, 100000, 10000000}) {
    for (const int64_t piece : {1, 16, 200}) {
      bench->Args({total, piece});
    }
  }
}

template <typename Append>
void Fill(benchmark::State &state, Append append) {
  const std::string piece(static_cast<size_t>(state.range(1)), 'x');
  for (int64_t done = 0; done < state.range(0); done += state.range(1)) {
    append(piece.data(), piece.size());
  }
}

void BM_Ours_Text_Append(benchmark::State &state) {
  while (state.KeepRunning()) {
    DynBuf buf;
    DynBuf_Init(&buf);
    Fill(state, [&](const char *data, size_t size) { DynBuf_Append(&buf, data, size); });
    benchmark::DoNotOptimize(buf.data);
    DynBuf_Destroy(&buf);
  }
}
BENCHMARK(BM_Ours_Text_Append)->Apply(Sizes);

void BM_Peer_GByteArray_Text_Append(benchmark::State &state) {
  while (state.KeepRunning()) {
    GByteArray *array = g_byte_array_new();
    Fill(state, [&](const char *data, size_t size) {
      g_byte_array_append(array, reinterpret_cast<const guint8 *>(data), static_cast<guint>(size));
    });
    benchmark::DoNotOptimize(array->data);
    g_byte_array_unref(array);
  }
}
BENCHMARK(BM_Peer_GByteArray_Text_Append)->Apply(Sizes);

void BM_Peer_Std_Text_Append(benchmark::State &state) {
  while (state.KeepRunning()) {
    std::string text;
    Fill(state, [&](const char *data, size_t size) { text.append(data, size); });
    benchmark::DoNotOptimize(text.data());
  }
}
BENCHMARK(BM_Peer_Std_Text_Append)->Apply(Sizes);

}  // namespace
