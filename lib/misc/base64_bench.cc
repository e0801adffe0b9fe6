// Base64 beside GLib's and Abseil's, each into memory of its own as a caller would have it.
#include <absl/strings/escaping.h>
#include <benchmark/benchmark.h>
#include <glib.h>

#include <memory>
#include <string>

#include "base64.h"
#include "owned.h"

namespace {

using OwnedGText = std::unique_ptr<char, Releaser<g_free>>;
using OwnedBytes = std::unique_ptr<unsigned char, Releaser<free>>;

std::string Data(benchmark::State &state) {
  std::string data(static_cast<size_t>(state.range(0)), '\0');
  unsigned value = 1;
  for (char &byte : data) {
    value = value * 1103515245 + 12345;
    byte = static_cast<char>(value >> 16);
  }
  return data;
}

OwnedString Encode(const std::string &data) {
  char *text = nullptr;
  Base64_EasyEncode(reinterpret_cast<const uint8_t *>(data.data()), data.size(), &text);
  return OwnedString(text);
}

// The text of the data, in lines of 76 characters when `inLines`.
std::string Text(benchmark::State &state, bool inLines = false) {
  std::string text = Encode(Data(state)).get();
  if (inLines) {
    for (size_t at = 76; at < text.size(); at += 77) {
      text.insert(at, 1, '\n');
    }
  }
  return text;
}

void Sizes(benchmark::internal::Benchmark *bench) {
  bench->Arg(16)->Arg(1000)->Arg(100000);
}

template <typename Function>
void Measure(benchmark::State &state, Function function) {
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(function());
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_Ours_Text_Base64Encode(benchmark::State &state) {
  const std::string data = Data(state);
  Measure(state, [&] { return Encode(data); });
}
BENCHMARK(BM_Ours_Text_Base64Encode)->Apply(Sizes);

void BM_Peer_GLib_Text_Base64Encode(benchmark::State &state) {
  const std::string data = Data(state);
  Measure(state, [&] {
    return OwnedGText(g_base64_encode(reinterpret_cast<const guchar *>(data.data()), data.size()));
  });
}
BENCHMARK(BM_Peer_GLib_Text_Base64Encode)->Apply(Sizes);

void BM_Peer_Absl_Text_Base64Encode(benchmark::State &state) {
  const std::string data = Data(state);
  Measure(state, [&] { return absl::Base64Escape(data); });
}
BENCHMARK(BM_Peer_Absl_Text_Base64Encode)->Apply(Sizes);

void DecodeOurs(benchmark::State &state, const std::string &text) {
  Measure(state, [&] {
    uint8_t *data = nullptr;
    size_t size = 0;
    Base64_EasyDecode(text.c_str(), &data, &size);
    return OwnedBytes(data);
  });
}

void DecodeGLib(benchmark::State &state, const std::string &text) {
  Measure(state, [&] {
    gsize size = 0;
    return std::unique_ptr<guchar, Releaser<g_free>>(g_base64_decode(text.c_str(), &size));
  });
}

void DecodeAbsl(benchmark::State &state, const std::string &text) {
  Measure(state, [&] {
    std::string data;
    absl::Base64Unescape(text, &data);
    return data;
  });
}

void BM_Ours_Text_Base64Decode(benchmark::State &state) {
  DecodeOurs(state, Text(state));
}
BENCHMARK(BM_Ours_Text_Base64Decode)->Apply(Sizes);
void BM_Peer_GLib_Text_Base64Decode(benchmark::State &state) {
  DecodeGLib(state, Text(state));
}
BENCHMARK(BM_Peer_GLib_Text_Base64Decode)->Apply(Sizes);
void BM_Peer_Absl_Text_Base64Decode(benchmark::State &state) {
  DecodeAbsl(state, Text(state));
}
BENCHMARK(BM_Peer_Absl_Text_Base64Decode)->Apply(Sizes);

void BM_Ours_Text_Base64DecodeLines(benchmark::State &state) {
  DecodeOurs(state, Text(state, true));
}
BENCHMARK(BM_Ours_Text_Base64DecodeLines)->Apply(Sizes);
void BM_Peer_GLib_Text_Base64DecodeLines(benchmark::State &state) {
  DecodeGLib(state, Text(state, true));
}
BENCHMARK(BM_Peer_GLib_Text_Base64DecodeLines)->Apply(Sizes);
void BM_Peer_Absl_Text_Base64DecodeLines(benchmark::State &state) {
  DecodeAbsl(state, Text(state, true));
}
BENCHMARK(BM_Peer_Absl_Text_Base64DecodeLines)->Apply(Sizes);

}  // namespace
