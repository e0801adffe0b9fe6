#include <benchmark/benchmark.h>
#include <glib.h>
#include <iconv.h>
#include <unicode/ucnv.h>
#include <unicode/ustring.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "codeset.h"
#include "owned.h"

namespace {

struct Kind {
  const char *name;
  std::string_view sample;
  std::string_view space = " ";  // between two words
};

constexpr Kind kKinds[] = {
    {"Ascii",
     "The kernel modules of this product were built for another kernel, and must be built anew: now."},
    {"Latin",
     "Où l'œuvre naïve à Zürich coûte 20 €, über façade et señor: déjà vu, très élevé près de là, cher ami."},
    {"Cjk",
     "内核 模块 必须 为 正在 运行的 内核 重新 编译。 カーネル モジュールを 再構築 します。 커널 모듈을 다시 "
     "빌드합니다",
     ""},
    {"Emoji", "😀😃 😄🚀 🎉🐧 💻🔧 🛠🧪🌍 🌟 👍🏽 ok 🙂🙃😉"},
};

constexpr int64_t kSizes[] = {16, 1024, 64 << 10, 16 << 20};

bool BeginsSequence(char byte) {
  return (byte & 0xC0) != 0x80;
}

// `size` bytes of UTF-8: words of the sample in random order.
std::string Text(const Kind &kind, size_t size, std::minstd_rand &random) {
  std::istringstream stream{std::string(kind.sample)};
  const std::vector<std::string> words{std::istream_iterator<std::string>(stream), {}};
  std::string text;
  while (text.size() <= size) {
    text += words[random() % words.size()];
    text += kind.space;
  }
  size_t end = size;
  while (!BeginsSequence(text[end])) {
    end--;
  }
  text.resize(end);
  text.resize(size, '.');
  return text;
}

using Texts = std::vector<std::string>;

// Texts of one size, so many that a processor can't learn the branches that they take, as it would with a
// short text that is converted over and over.
Texts NewTexts(const Kind &kind, int64_t size) {
  constexpr int64_t kTogether = 128 << 10;
  std::minstd_rand random;
  Texts texts;
  for (int64_t i = 0; i < std::max<int64_t>(kTogether / size, 1); i++) {
    texts.push_back(Text(kind, static_cast<size_t>(size), random));
  }
  return texts;
}

// Bytes that a conversion gave, in a block of its own.
struct Converted {
  OwnedString bytes;
  size_t size = 0;
};

using Converter = bool (*)(const char *, size_t, char **, size_t *);

template <Converter convert>
Converted Ours(const std::string &text) {
  Converted result;
  char *bytes = nullptr;
  if (!convert(text.data(), text.size(), &bytes, &result.size)) {
    abort();
  }
  result.bytes.reset(bytes);
  return result;
}

Converted OursGeneric(const std::string &text, const char *codeIn, const char *codeOut) {
  Converted result;
  char *bytes = nullptr;
  if (!CodeSet_GenericToGeneric(codeIn, text.data(), text.size(), codeOut, CODESET_STOP, &bytes,
                                &result.size)) {
    abort();
  }
  result.bytes.reset(bytes);
  return result;
}

// Room for the most that the text can need, and nothing copied afterwards: the fastest way to call these.
OwnedString NewBlock(size_t size) {
  return OwnedString(static_cast<char *>(malloc(size)));
}

Converted IcuToUtf16(const std::string &text) {
  OwnedString block = NewBlock((text.size() + 1) * sizeof(UChar));
  UErrorCode status = U_ZERO_ERROR;
  int32_t units = 0;
  u_strFromUTF8(reinterpret_cast<UChar *>(block.get()), static_cast<int32_t>(text.size() + 1), &units,
                text.data(), static_cast<int32_t>(text.size()), &status);
  return {std::move(block), static_cast<size_t>(units) * sizeof(UChar)};
}

Converted IcuToUtf8(const std::string &text) {
  const size_t units = text.size() / sizeof(UChar);
  OwnedString block = NewBlock(units * 3 + 1);
  UErrorCode status = U_ZERO_ERROR;
  int32_t size = 0;
  u_strToUTF8(block.get(), static_cast<int32_t>(units * 3 + 1), &size,
              reinterpret_cast<const UChar *>(text.data()), static_cast<int32_t>(units), &status);
  return {std::move(block), static_cast<size_t>(size)};
}

Converted GlibToUtf16(const std::string &text) {
  glong units = 0;
  gunichar2 *block = g_utf8_to_utf16(text.data(), static_cast<glong>(text.size()), nullptr, &units, nullptr);
  return {OwnedString(reinterpret_cast<char *>(block)), static_cast<size_t>(units) * sizeof(gunichar2)};
}

Converted GlibToUtf8(const std::string &text) {
  glong size = 0;
  char *block = g_utf16_to_utf8(reinterpret_cast<const gunichar2 *>(text.data()),
                                static_cast<glong>(text.size() / sizeof(gunichar2)), nullptr, &size, nullptr);
  return {OwnedString(block), static_cast<size_t>(size)};
}

// The engines as whoever wants a whole text, or none, calls them.

Converted Iconv(const std::string &text, const char *codeIn, const char *codeOut, size_t most) {
  OwnedString block = NewBlock(most);
  iconv_t iconvHandle = iconv_open(codeOut, codeIn);
  auto *in = const_cast<char *>(text.data());
  char *out = block.get();
  size_t left = text.size();
  iconv(iconvHandle, &in, &left, &out, &most);
  iconv(iconvHandle, nullptr, nullptr, &out, &most);
  iconv_close(iconvHandle);
  const auto size = static_cast<size_t>(out - block.get());
  return {std::move(block), size};
}

Converted Icu(const std::string &text, const char *codeIn, const char *codeOut, size_t most) {
  OwnedString block = NewBlock(most);
  UErrorCode status = U_ZERO_ERROR;
  UConverter *source = ucnv_open(codeIn, &status);
  UConverter *target = ucnv_open(codeOut, &status);
  ucnv_setToUCallBack(source, UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
  ucnv_setFromUCallBack(target, UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
  UChar pivot[1024];
  UChar *pivotSource = pivot;
  UChar *pivotTarget = pivot;
  const char *in = text.data();
  char *out = block.get();
  ucnv_convertEx(target, source, &out, out + most, &in, in + text.size(), pivot, &pivotSource, &pivotTarget,
                 pivot + std::size(pivot), false, true, &status);
  ucnv_close(source);
  ucnv_close(target);
  const auto size = static_cast<size_t>(out - block.get());
  return {std::move(block), size};
}

// ICU on, in a process that has no data file of its own.
void UseIcu(bool use) {
  if (!use) {
    CodeSet_DontUseIcu();
    return;
  }
  static const std::filesystem::path directory =
      std::filesystem::temp_directory_path() / ("codeset_bench-" + std::to_string(getpid()));
  std::filesystem::create_directory(directory);
  std::ofstream(directory / "icudt38l.dat").flush();
  CodeSet_Init(directory.c_str());
  std::filesystem::remove_all(directory);
}

using Conversion = std::function<Converted(const std::string &)>;

struct Case {
  std::shared_ptr<const Texts> texts;
  Conversion convert, ours;
  bool withIcu;
};

void Measure(benchmark::State &state, const Case &one) {
  UseIcu(one.withIcu);
  for (const std::string &text : *one.texts) {
    if (one.convert(text).size != one.ours(text).size) {
      state.SkipWithError("a conversion gave another size than ours");
      return;
    }
  }
  size_t next = 0;
  while (state.KeepRunning()) {
    const Converted result = one.convert((*one.texts)[next]);
    benchmark::DoNotOptimize(result.bytes.get());
    next = next + 1 < one.texts->size() ? next + 1 : 0;
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(one.texts->front().size()));
}

class CaseBenchmark : public benchmark::internal::Benchmark {
 public:
  CaseBenchmark(const std::string &name, Case one) : Benchmark(name.c_str()), case_(std::move(one)) {}
  void Run(benchmark::State &state) override { Measure(state, case_); }

 private:
  Case case_;
};

// One subject: ours and its peers on the same texts.
void Register(const std::string &subject, int64_t size, const Texts &texts, bool withIcu,
              const Conversion &ours, const std::vector<std::pair<std::string, Conversion>> &peers) {
  const auto shared = std::make_shared<const Texts>(texts);
  const std::string suffix = "Text_" + subject + "/" + std::to_string(size);
  const auto add = [&](const std::string &name, const Conversion &convert) {
    const Case one = {shared, convert, ours, withIcu};
    benchmark::internal::RegisterBenchmarkInternal(new CaseBenchmark(name + suffix, one));
  };  // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks): the registry owns it
  add("BM_Ours_", ours);
  for (const auto &[name, convert] : peers) {
    add("BM_Peer_" + name + "_", convert);
  }
}

Texts ConvertEach(const Texts &texts, const Conversion &convert) {
  Texts result;
  for (const std::string &text : texts) {
    const Converted converted = convert(text);
    result.emplace_back(converted.bytes.get(), converted.size);
  }
  return result;
}

void RegisterUnicode(const Kind &kind, int64_t size) {
  const Texts texts = NewTexts(kind, size);
  const auto most = static_cast<size_t>(size) * 2;
  Register(std::string("Utf8ToUtf16") + kind.name, size, texts, false, Ours<CodeSet_Utf8ToUtf16le>,
           {{"Icu", IcuToUtf16}, {"Glib", GlibToUtf16}, {"Iconv", [=](const std::string &in) {
                                                           return Iconv(in, "UTF-8", "UTF-16LE", most);
                                                         }}});
  Register(std::string("Utf16ToUtf8") + kind.name, size, ConvertEach(texts, Ours<CodeSet_Utf8ToUtf16le>),
           false, Ours<CodeSet_Utf16leToUtf8>,
           {{"Icu", IcuToUtf8}, {"Glib", GlibToUtf8}, {"Iconv", [=](const std::string &in) {
                                                         return Iconv(in, "UTF-16LE", "UTF-8", most);
                                                       }}});
  const auto validate = [](const std::string &in) {
    return Converted{nullptr, CodeSet_Validate(in.data(), in.size(), "UTF-8")};
  };
  const auto icu = [](const std::string &in) {
    UErrorCode status = U_ZERO_ERROR;
    u_strFromUTF8(nullptr, 0, nullptr, in.data(), static_cast<int32_t>(in.size()), &status);
    return Converted{nullptr, status == U_BUFFER_OVERFLOW_ERROR};
  };
  const auto glib = [](const std::string &in) {
    return Converted{
        nullptr, static_cast<size_t>(g_utf8_validate(in.data(), static_cast<gssize>(in.size()), nullptr))};
  };
  Register(std::string("ValidateUtf8") + kind.name, size, texts, true, validate,
           {{"Icu", icu}, {"Glib", glib}});
}

// An encoding that both engines have, and text that it has.
struct Encoding {
  const char *code;
  Kind kind;
};

constexpr Encoding kEncodings[] = {
    {"windows-1252", kKinds[1]},
    {"Shift_JIS", {"Japanese", "カーネル モジュールを 再構築 します。 新しい 版を 組み込む。", ""}},
    {"UTF-32LE", kKinds[3]},
};

void RegisterGeneric(const Encoding &encoding, int64_t size, bool withIcu) {
  UseIcu(withIcu);
  const std::string engine = withIcu ? "WithIcu" : "WithIconv";
  const auto add = [&](const char *direction, const Texts &texts, const char *from, const char *to) {
    const Conversion ours = [=](const std::string &text) { return OursGeneric(text, from, to); };
    // The peers know how long a result can be.
    size_t most = 0;
    for (const std::string &result : ConvertEach(texts, ours)) {
      most = std::max(most, result.size() + 16);
    }
    const Conversion peer = [=](const std::string &text) {
      return withIcu ? Icu(text, from, to, most) : Iconv(text, from, to, most);
    };
    Register(engine + direction + encoding.kind.name, size, texts, withIcu, ours,
             {{withIcu ? "Icu" : "Iconv", peer}});
  };
  const Texts texts = NewTexts(encoding.kind, size);
  const auto encode = [&](const std::string &text) { return OursGeneric(text, "UTF-8", encoding.code); };
  add("From", ConvertEach(texts, encode), encoding.code, "UTF-8");
  add("To", texts, "UTF-8", encoding.code);
}

const bool kRegistered = [] {
  for (const int64_t size : kSizes) {
    for (const Kind &kind : kKinds) {
      RegisterUnicode(kind, size);
    }
    for (const Encoding &encoding : kEncodings) {
      RegisterGeneric(encoding, size, false);
      RegisterGeneric(encoding, size, true);
    }
  }
  return true;
}();

}  // namespace
