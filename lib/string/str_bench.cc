#include <absl/strings/str_format.h>
#include <benchmark/benchmark.h>
#include <glib.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "owned.h"
#include "str.h"

namespace {

// What is printed. Not constant, so that nothing is printed at compile time.
struct {
  int number = -48213;
  unsigned small = 7;
  long large = 1234567890123;
  unsigned long address = 0x7FFFD0A7B2C4;
  const char *name = "vmlinux";
  const char *path = "/lib/modules/6.1.0-56-amd64/misc";
  double measure = 3.14159265358979;
  double tiny = 6.62607015e-34;
  double huge = 1.7e300;
} given;

char buffer[1 << 17];

// Called through a pointer, since the compiler prints what it can of the C library's at compile time.
int (*volatile librarySnprintf)(char *, size_t, const char *, ...) = snprintf;

// A benchmark of one call by us and by each peer: BENCHMARK_PRINT(Integers, "%d of %u", given.number,
// given.small).
#define BENCHMARK_PRINT(subject, ...)                                                           \
  BENCHMARK_CALL(Ours_Text_##subject, Str_Snprintf(buffer, sizeof buffer, __VA_ARGS__))         \
  BENCHMARK_CALL(Peer_libc_Text_##subject, librarySnprintf(buffer, sizeof buffer, __VA_ARGS__)) \
  BENCHMARK_CALL(Peer_glib_Text_##subject, g_snprintf(buffer, sizeof buffer, __VA_ARGS__))      \
  BENCHMARK_CALL(Peer_absl_Text_##subject, absl::SNPrintF(buffer, sizeof buffer, __VA_ARGS__))
#define BENCHMARK_CALL(name, call)          \
  void BM_##name(benchmark::State &state) { \
    while (state.KeepRunning()) {           \
      benchmark::DoNotOptimize(given);      \
      call;                                 \
      benchmark::DoNotOptimize(buffer[0]);  \
    }                                       \
  }                                         \
  BENCHMARK(BM_##name);

BENCHMARK_PRINT(PrintLiteral, "no conversion in a short line of text")
BENCHMARK_PRINT(PrintInteger, "%d", given.number)
BENCHMARK_PRINT(PrintIntegers, "%d %u %ld %lx", given.number, given.small, given.large, given.address)
BENCHMARK_PRINT(PrintPadded, "%8d|%-16s|%016lx", given.number, given.name, given.address)
BENCHMARK_PRINT(PrintLine, "%s: module %s loaded at 0x%lx, %d bytes, status %u\n", given.path, given.name,
                given.address, given.number, given.small)
// Positions are POSIX and no C++.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"
BENCHMARK_PRINT(PrintPositional, "%2$s has %1$d, %3$lx", given.number, given.name, given.address)
#pragma GCC diagnostic pop
BENCHMARK_PRINT(PrintFixed, "%.2f", given.measure)
BENCHMARK_PRINT(PrintDefaultFixed, "%f", given.measure)
BENCHMARK_PRINT(PrintExponent, "%e", given.tiny)
BENCHMARK_PRINT(PrintGeneral, "%g", given.measure)
BENCHMARK_PRINT(PrintAllDigits, "%.17g", given.measure)
BENCHMARK_PRINT(PrintHugeFixed, "%f", given.huge)
BENCHMARK_PRINT(PrintManyDigits, "%.40e", given.measure)

// A string of the given size.
#define BENCHMARK_STRING(who, call)                                   \
  void BM_##who##_Text_PrintString(benchmark::State &state) {         \
    const std::string text(static_cast<size_t>(state.range(0)), 'x'); \
    const char *argument = text.c_str();                              \
    while (state.KeepRunning()) {                                     \
      benchmark::DoNotOptimize(argument);                             \
      call(buffer, sizeof buffer, "%s\n", argument);                  \
      benchmark::DoNotOptimize(buffer[0]);                            \
    }                                                                 \
  }                                                                   \
  BENCHMARK(BM_##who##_Text_PrintString)->Arg(16)->Arg(512)->Arg(65536);

BENCHMARK_STRING(Ours, Str_Snprintf)
BENCHMARK_STRING(Peer_libc, librarySnprintf)
BENCHMARK_STRING(Peer_glib, g_snprintf)
BENCHMARK_STRING(Peer_absl, absl::SNPrintF)

// A new string that takes `size` bytes.
template <typename Print>
void PrintNew(benchmark::State &state, const Print &print) {
  const std::string text(static_cast<size_t>(state.range(0)), 'x');
  while (state.KeepRunning()) {
    const OwnedString printed(print(text.c_str()));
    benchmark::DoNotOptimize(printed.get());
  }
}

void BM_Ours_Text_PrintNew(benchmark::State &state) {
  PrintNew(state, [](const char *text) { return Str_Asprintf(nullptr, "%s/%d", text, given.number); });
}
BENCHMARK(BM_Ours_Text_PrintNew)->Arg(16)->Arg(512)->Arg(65536);

void BM_Peer_libc_Text_PrintNew(benchmark::State &state) {
  PrintNew(state, [](const char *text) {
    char *printed = nullptr;
    return asprintf(&printed, "%s/%d", text, given.number) < 0 ? nullptr : printed;
  });
}
BENCHMARK(BM_Peer_libc_Text_PrintNew)->Arg(16)->Arg(512)->Arg(65536);

void BM_Peer_glib_Text_PrintNew(benchmark::State &state) {
  PrintNew(state, [](const char *text) { return g_strdup_printf("%s/%d", text, given.number); });
}
BENCHMARK(BM_Peer_glib_Text_PrintNew)->Arg(16)->Arg(512)->Arg(65536);

// A copy of a string of the given size into a bounded buffer.
template <typename Copy>
void CopyBounded(benchmark::State &state, const Copy &copy) {
  const std::string text(static_cast<size_t>(state.range(0)), 'x');
  while (state.KeepRunning()) {
    copy(text.c_str());
    benchmark::DoNotOptimize(buffer[0]);
  }
}

void BM_Ours_Text_CopyBounded(benchmark::State &state) {
  CopyBounded(state, [](const char *text) { Str_Strcpy(buffer, text, sizeof buffer); });
}
BENCHMARK(BM_Ours_Text_CopyBounded)->Arg(16)->Arg(512)->Arg(65536);

void BM_Peer_glib_Text_CopyBounded(benchmark::State &state) {
  CopyBounded(state, [](const char *text) { g_strlcpy(buffer, text, sizeof buffer); });
}
BENCHMARK(BM_Peer_glib_Text_CopyBounded)->Arg(16)->Arg(512)->Arg(65536);

// A short word at the end of a text of the given size.
template <typename Find>
void FindWord(benchmark::State &state, const Find &find) {
  const std::string text = std::string(static_cast<size_t>(state.range(0)), 'x') + "needle";
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(find(text));
  }
}

void BM_Ours_Text_FindWord(benchmark::State &state) {
  FindWord(state, [](const std::string &text) { return Str_Strnstr(text.c_str(), "needle", text.size()); });
}
BENCHMARK(BM_Ours_Text_FindWord)->Arg(16)->Arg(512)->Arg(65536);

void BM_Peer_glib_Text_FindWord(benchmark::State &state) {
  FindWord(state, [](const std::string &text) {
    return g_strstr_len(text.c_str(), static_cast<gssize>(text.size()), "needle");
  });
}
BENCHMARK(BM_Peer_glib_Text_FindWord)->Arg(16)->Arg(512)->Arg(65536);

}  // namespace
