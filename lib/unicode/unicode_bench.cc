#include <benchmark/benchmark.h>
#include <glib.h>
#include <unicode/stringoptions.h>
#include <unicode/ucnv.h>
#include <unicode/ustring.h>

#include <cstring>
#include <string>
#include <vector>

#include "unicode.h"

namespace {

constexpr char kAscii[] = "/usr/lib/modules/6.1.0-56-amd64/kernel/drivers/net/";
constexpr char kMixed[] =
    "Gr\xC3\xBC\xC3\x9F"
    "e \xE2\x82\xAC 42 \xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E \xF0\x9F\x98\x80 ";

std::string TextOf(const char *pattern, int64_t size) {
  std::string text;
  while (static_cast<int64_t>(text.size()) < size) {
    text += pattern;
  }
  return text;
}

// Two texts that differ at both ends, or at their end alone.
struct Pair {
  Pair(const char *pattern, int64_t size, const char *start1, const char *start2)
      : first(start1 + TextOf(pattern, size) + "a"), second(start2 + TextOf(pattern, size) + "b") {}
  std::string first, second;
};

void Sizes(benchmark::internal::Benchmark *bench) {
  bench->Arg(16)->Arg(1024)->Arg(65536);
}

void OursCompare(benchmark::State &state, const Pair &pair, bool ignoreCase) {
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(
        Unicode_CompareRange(pair.first.c_str(), 0, -1, pair.second.c_str(), 0, -1, ignoreCase));
  }
}

// A new buffer of ICU's UTF-16.
std::vector<UChar> IcuUtf16(const std::string &text) {
  std::vector<UChar> units(text.size() + 1);
  int32_t length = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strFromUTF8(units.data(), static_cast<int32_t>(units.size()), &length, text.data(),
                static_cast<int32_t>(text.size()), &status);
  units.resize(static_cast<size_t>(length));
  return units;
}

void IcuCompare(benchmark::State &state, const Pair &pair, bool ignoreCase) {
  while (state.KeepRunning()) {
    const std::vector<UChar> a = IcuUtf16(pair.first);
    const std::vector<UChar> b = IcuUtf16(pair.second);
    UErrorCode status = U_ZERO_ERROR;
    benchmark::DoNotOptimize(ignoreCase ? u_strCaseCompare(a.data(), static_cast<int32_t>(a.size()), b.data(),
                                                           static_cast<int32_t>(b.size()),
                                                           U_COMPARE_CODE_POINT_ORDER, &status)
                                        : u_strCompare(a.data(), static_cast<int32_t>(a.size()), b.data(),
                                                       static_cast<int32_t>(b.size()), true));
  }
}

void BM_Ours_Text_CompareAscii(benchmark::State &state) {
  OursCompare(state, Pair(kAscii, state.range(0), "", ""), false);
}
BENCHMARK(BM_Ours_Text_CompareAscii)->Apply(Sizes);
void BM_Peer_Icu_Text_CompareAscii(benchmark::State &state) {
  IcuCompare(state, Pair(kAscii, state.range(0), "", ""), false);
}
BENCHMARK(BM_Peer_Icu_Text_CompareAscii)->Apply(Sizes);

void BM_Ours_Text_CompareMixed(benchmark::State &state) {
  OursCompare(state, Pair(kMixed, state.range(0), "", ""), false);
}
BENCHMARK(BM_Ours_Text_CompareMixed)->Apply(Sizes);
void BM_Peer_Icu_Text_CompareMixed(benchmark::State &state) {
  IcuCompare(state, Pair(kMixed, state.range(0), "", ""), false);
}
BENCHMARK(BM_Peer_Icu_Text_CompareMixed)->Apply(Sizes);

void BM_Ours_Text_CompareMixedStart(benchmark::State &state) {
  OursCompare(state, Pair(kMixed, state.range(0), "x", "y"), false);
}
BENCHMARK(BM_Ours_Text_CompareMixedStart)->Apply(Sizes);
void BM_Peer_Icu_Text_CompareMixedStart(benchmark::State &state) {
  IcuCompare(state, Pair(kMixed, state.range(0), "x", "y"), false);
}
BENCHMARK(BM_Peer_Icu_Text_CompareMixedStart)->Apply(Sizes);

void BM_Ours_Text_CompareCaseless(benchmark::State &state) {
  OursCompare(state, Pair(kMixed, state.range(0), "x", "X"), true);
}
BENCHMARK(BM_Ours_Text_CompareCaseless)->Apply(Sizes);
void BM_Peer_Icu_Text_CompareCaseless(benchmark::State &state) {
  IcuCompare(state, Pair(kMixed, state.range(0), "x", "X"), true);
}
BENCHMARK(BM_Peer_Icu_Text_CompareCaseless)->Apply(Sizes);
void BM_Peer_GLib_Text_CompareCaseless(benchmark::State &state) {
  const Pair pair(kMixed, state.range(0), "x", "X");
  while (state.KeepRunning()) {
    char *a = g_utf8_casefold(pair.first.c_str(), -1);
    char *b = g_utf8_casefold(pair.second.c_str(), -1);
    benchmark::DoNotOptimize(strcmp(a, b));
    g_free(a);
    g_free(b);
  }
}
BENCHMARK(BM_Peer_GLib_Text_CompareCaseless)->Apply(Sizes);

template <typename LookUp>
void LookUpNames(benchmark::State &state, const std::vector<std::string> &names, LookUp lookUp) {
  size_t next = 0;
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(lookUp(names[next].c_str()));
    next = next + 1 < names.size() ? next + 1 : 0;
  }
}

// Names that both know, in spellings that are no name of the table.
std::vector<std::string> CommonNames() {
  return {"utf_8",  "iso_8859_1",   "ISO8859-15", "Utf-16le", "shift-jis",
          "KOI8_R", "windows_1252", "us_ascii",   "BIG-5",    "gb_k"};
}

const char *IcuName(const char *name) {
  UErrorCode status = U_ZERO_ERROR;
  return ucnv_getStandardName(name, "IANA", &status);
}

void BM_Ours_Text_EncodingName(benchmark::State &state) {
  LookUpNames(state, CommonNames(), Unicode_EncodingNameToEnum);
}
BENCHMARK(BM_Ours_Text_EncodingName);
void BM_Peer_Icu_Text_EncodingName(benchmark::State &state) {
  LookUpNames(state, CommonNames(), IcuName);
}
BENCHMARK(BM_Peer_Icu_Text_EncodingName);

// Spellings that weren't asked before, so that none is remembered.
constexpr int64_t kFreshNames = 400;

std::vector<std::string> FreshNames() {
  static int generation = 0;
  generation++;
  std::vector<std::string> names;
  const std::vector<std::string> common = CommonNames();
  for (int64_t i = 0; i < kFreshNames; i++) {
    std::string marks;
    for (int64_t rest = i + generation * kFreshNames; rest > 0; rest /= 4) {
      marks += "-_ ."[rest % 4];
    }
    names.push_back(common[static_cast<size_t>(i) % common.size()] + marks);
  }
  return names;
}

void BM_Ours_Text_EncodingNameFirst(benchmark::State &state) {
  LookUpNames(state, FreshNames(), Unicode_EncodingNameToEnum);
}
BENCHMARK(BM_Ours_Text_EncodingNameFirst)->Iterations(kFreshNames);
void BM_Peer_Icu_Text_EncodingNameFirst(benchmark::State &state) {
  LookUpNames(state, FreshNames(), IcuName);
}
BENCHMARK(BM_Peer_Icu_Text_EncodingNameFirst)->Iterations(kFreshNames);

void BM_Ours_Text_Alloc(benchmark::State &state) {
  const std::string text = TextOf(kMixed, state.range(0));
  while (state.KeepRunning()) {
    Unicode_Free(
        Unicode_AllocWithLength(text.data(), static_cast<ssize_t>(text.size()), STRING_ENCODING_UTF8));
  }
}
BENCHMARK(BM_Ours_Text_Alloc)->Apply(Sizes);
void BM_Peer_GLib_Text_Alloc(benchmark::State &state) {
  const std::string text = TextOf(kMixed, state.range(0));
  while (state.KeepRunning()) {
    g_free(g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
  }
}
BENCHMARK(BM_Peer_GLib_Text_Alloc)->Apply(Sizes);

}  // namespace
