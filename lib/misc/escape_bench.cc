#include <benchmark/benchmark.h>
#include <glib.h>

#include <array>
#include <cstring>
#include <string>

#include "escape.h"
#include "owned.h"

namespace {

using OwnedText = std::unique_ptr<char, Releaser<g_free>>;
using OwnedBytes = std::unique_ptr<GBytes, Releaser<g_bytes_unref>>;

constexpr char kUnreserved[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";

// Text with one byte in eight that must be escaped, among them `special`.
std::string Sample(int64_t size, char special) {
  std::string text;
  for (uint32_t seed = 1; text.size() < static_cast<size_t>(size);) {
    seed = seed * 1664525 + 1013904223;
    text += seed >> 29 == 0 ? special : static_cast<char>('a' + (seed >> 24) % 26);
  }
  return text;
}

// What g_uri_escape_bytes escapes.
std::array<bool, 256> Reserved() {
  std::array<bool, 256> flags{};
  flags.fill(true);
  for (const char *c = kUnreserved; *c != '\0'; c++) {
    flags[static_cast<unsigned char>(*c)] = false;
  }
  return flags;
}

void Sizes(benchmark::internal::Benchmark *bench) {
  bench->Arg(32)->Arg(1024)->Arg(65536);
}

void BM_Ours_Text_EscapeDo(benchmark::State &state) {
  const std::string text = Sample(state.range(0), '/');
  const std::array<bool, 256> flags = Reserved();
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(OwnedString(Escape_Do('%', flags.data(), text.data(), text.size(), nullptr)));
  }
}
BENCHMARK(BM_Ours_Text_EscapeDo)->Apply(Sizes);

void BM_Peer_GLib_Text_EscapeDo(benchmark::State &state) {
  const std::string text = Sample(state.range(0), '/');
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(
        OwnedText(g_uri_escape_bytes(reinterpret_cast<const guint8 *>(text.data()), text.size(), nullptr)));
  }
}
BENCHMARK(BM_Peer_GLib_Text_EscapeDo)->Apply(Sizes);

// The loop that a programmer would write.
void BM_Peer_string_Text_EscapeDo(benchmark::State &state) {
  const std::string text = Sample(state.range(0), '/');
  const std::array<bool, 256> flags = Reserved();
  while (state.KeepRunning()) {
    std::string out;
    for (const char c : text) {
      const auto byte = static_cast<unsigned char>(c);
      if (flags[byte]) {
        out += '%';
        out += "0123456789ABCDEF"[byte >> 4];
        out += "0123456789ABCDEF"[byte & 15];
      } else {
        out += c;
      }
    }
    benchmark::DoNotOptimize(out.data());
  }
}
BENCHMARK(BM_Peer_string_Text_EscapeDo)->Apply(Sizes);

// As g_uri_escape_bytes leaves it: one escape in eight bytes of the text.
std::string Escaped(int64_t size) {
  const std::string text = Sample(size, '/');
  const OwnedText escaped(
      g_uri_escape_bytes(reinterpret_cast<const guint8 *>(text.data()), text.size(), nullptr));
  return escaped.get();
}

void BM_Ours_Text_EscapeUndo(benchmark::State &state) {
  const std::string text = Escaped(state.range(0));
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(OwnedString(Escape_Undo('%', text.data(), text.size(), nullptr)));
  }
}
BENCHMARK(BM_Ours_Text_EscapeUndo)->Apply(Sizes);

void BM_Peer_GLib_Text_EscapeUndo(benchmark::State &state) {
  const std::string text = Escaped(state.range(0));
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(
        OwnedBytes(g_uri_unescape_bytes(text.data(), static_cast<gssize>(text.size()), nullptr, nullptr)));
  }
}
BENCHMARK(BM_Peer_GLib_Text_EscapeUndo)->Apply(Sizes);

void BM_Ours_Text_EscapeSh(benchmark::State &state) {
  const std::string text = Sample(state.range(0), '\'');
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(OwnedString(Escape_Sh(text.data(), text.size(), nullptr)));
  }
}
BENCHMARK(BM_Ours_Text_EscapeSh)->Apply(Sizes);

void BM_Peer_GLib_Text_EscapeSh(benchmark::State &state) {
  const std::string text = Sample(state.range(0), '\'');
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(OwnedText(g_shell_quote(text.c_str())));
  }
}
BENCHMARK(BM_Peer_GLib_Text_EscapeSh)->Apply(Sizes);

void BM_Ours_Text_EscapeUnescape(benchmark::State &state) {
  const std::string text = Sample(state.range(0), '\\');
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(OwnedString(Escape_Unescape('\\', text.c_str())));
  }
}
BENCHMARK(BM_Ours_Text_EscapeUnescape)->Apply(Sizes);

void BM_Peer_GLib_Text_EscapeUnescape(benchmark::State &state) {
  const std::string text = Sample(state.range(0), '\\');
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(OwnedText(g_strcompress(text.c_str())));
  }
}
BENCHMARK(BM_Peer_GLib_Text_EscapeUnescape)->Apply(Sizes);

// In place, in a buffer that is filled again each time; g_strcompress makes a new one.
void BM_Ours_Text_EscapeUnescapeCString(benchmark::State &state) {
  const std::string text = Sample(state.range(0), '\\');
  std::string buffer = text;
  while (state.KeepRunning()) {
    memcpy(buffer.data(), text.c_str(), text.size() + 1);
    Escape_UnescapeCString(buffer.data());
    benchmark::DoNotOptimize(buffer.data());
  }
}
BENCHMARK(BM_Ours_Text_EscapeUnescapeCString)->Apply(Sizes);

void BM_Peer_GLib_Text_EscapeUnescapeCString(benchmark::State &state) {
  BM_Peer_GLib_Text_EscapeUnescape(state);
}
BENCHMARK(BM_Peer_GLib_Text_EscapeUnescapeCString)->Apply(Sizes);

// One escaped hit in eight bytes, and none that isn't: all of the text is read.
std::string EscapedHits(int64_t size) {
  std::string text;
  while (text.size() < static_cast<size_t>(size)) {
    text += "abcdef\\,";
  }
  return text;
}

void BM_Ours_Text_EscapeStrchr(benchmark::State &state) {
  const std::string text = EscapedHits(state.range(0));
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(Escape_Strchr('\\', text.c_str(), ','));
  }
}
BENCHMARK(BM_Ours_Text_EscapeStrchr)->Apply(Sizes);

// Looks for the next of both bytes, and skips what an escape stands before.
void BM_Peer_strpbrk_Text_EscapeStrchr(benchmark::State &state) {
  const std::string text = EscapedHits(state.range(0));
  while (state.KeepRunning()) {
    const char *at = text.c_str();
    while ((at = strpbrk(at, "\\,")) != nullptr && *at == '\\' && at[1] != '\0') {
      at += 2;
    }
    benchmark::DoNotOptimize(at);
  }
}
BENCHMARK(BM_Peer_strpbrk_Text_EscapeStrchr)->Apply(Sizes);

std::string AnsiLines(int64_t size) {
  std::string text;
  while (text.size() < static_cast<size_t>(size)) {
    text += "a line of thirty bytes it is.\r\n";
  }
  return text;
}

void BM_Ours_Text_EscapeAnsiToUnix(benchmark::State &state) {
  const std::string text = AnsiLines(state.range(0));
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(OwnedString(Escape_AnsiToUnix(text.data(), text.size(), nullptr)));
  }
}
BENCHMARK(BM_Ours_Text_EscapeAnsiToUnix)->Apply(Sizes);

void BM_Peer_GLib_Text_EscapeAnsiToUnix(benchmark::State &state) {
  const std::string text = AnsiLines(state.range(0));
  while (state.KeepRunning()) {
    GString *out = g_string_new_len(text.data(), static_cast<gssize>(text.size()));
    g_string_replace(out, "\r\n", "\n", 0);
    benchmark::DoNotOptimize(OwnedText(g_string_free(out, FALSE)));
  }
}
BENCHMARK(BM_Peer_GLib_Text_EscapeAnsiToUnix)->Apply(Sizes);

// The loop that a programmer would write.
void BM_Peer_string_Text_EscapeAnsiToUnix(benchmark::State &state) {
  const std::string text = AnsiLines(state.range(0));
  while (state.KeepRunning()) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); i++) {
      if (text[i] != '\r' || i + 1 == text.size() || text[i + 1] != '\n') {
        out += text[i];
      }
    }
    benchmark::DoNotOptimize(out.data());
  }
}
BENCHMARK(BM_Peer_string_Text_EscapeAnsiToUnix)->Apply(Sizes);

}  // namespace
