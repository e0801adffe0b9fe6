// Code sets against ICU and iconv called directly: our own converters of Unicode's forms take and refuse what
// those do, and the generic conversion by each engine gives what that engine gives.
//
// The first byte chooses the encodings of the generic conversion and its flags, the rest is the text.

#include <iconv.h>
#include <unicode/ucnv.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

#include "codeset.h"
#include "fuzzFile.h"
#include "owned.h"

namespace {

using Text = std::optional<std::string>;

constexpr const char *kCodes[] = {"UTF-8",        "UTF-16LE",  "UTF-16BE", "ISO-8859-1",
                                  "windows-1252", "Shift_JIS", "Big5",     "UTF-7"};

void Demand(bool condition) {
  if (!condition) {
    abort();
  }
}

template <typename Convert>
Text Take(const Convert &convert) {
  char *bytes = nullptr;
  size_t size = 0;
  if (!convert(&bytes, &size)) {
    Demand(bytes == nullptr && size == 0);
    return std::nullopt;
  }
  const OwnedString owner(bytes);
  Demand(std::string_view(bytes + size, 4) == std::string_view("\0\0\0\0", 4));
  return std::string(bytes, size);
}

Text Ours(bool (*convert)(const char *, size_t, char **, size_t *), std::string_view text) {
  return Take([&](char **out, size_t *size) { return convert(text.data(), text.size(), out, size); });
}

Text Generic(const char *from, std::string_view text, const char *to, unsigned flags) {
  return Take([&](char **out, size_t *size) {
    return CodeSet_GenericToGeneric(from, text.data(), text.size(), to, flags, out, size);
  });
}

// Both engines called directly, strictly.

Text Icu(const char *from, std::string_view text, const char *to) {
  UErrorCode status = U_ZERO_ERROR;
  UConverter *source = ucnv_open(from, &status);
  UConverter *target = ucnv_open(to, &status);
  ucnv_setToUCallBack(source, UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
  ucnv_setFromUCallBack(target, UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
  std::string result(text.size() * 8 + 64, '\0');
  UChar pivot[64];
  UChar *pivotSource = pivot;
  UChar *pivotTarget = pivot;
  const char *in = text.data();
  char *out = result.data();
  ucnv_convertEx(target, source, &out, out + result.size(), &in, in + text.size(), pivot, &pivotSource,
                 &pivotTarget, std::end(pivot), true, true, &status);
  ucnv_close(source);
  ucnv_close(target);
  result.resize(static_cast<size_t>(out - result.data()));
  return U_SUCCESS(status) ? Text(result) : std::nullopt;
}

Text Iconv(const char *from, std::string_view text, const char *to) {
  iconv_t iconvHandle = iconv_open(to, from);
  std::string result(text.size() * 8 + 64, '\0');
  auto *in = const_cast<char *>(text.data());
  char *out = result.data();
  size_t left = text.size();
  size_t room = result.size();
  const bool failed = iconv(iconvHandle, &in, &left, &out, &room) == static_cast<size_t>(-1) ||
                      iconv(iconvHandle, nullptr, nullptr, &out, &room) == static_cast<size_t>(-1);
  iconv_close(iconvHandle);
  result.resize(static_cast<size_t>(out - result.data()));
  return failed ? std::nullopt : Text(result);
}

void UseIcu() {
  static const bool hasFile = [] {
    std::ofstream(fuzz::Directory() + "/icudt38l.dat").flush();
    return true;
  }();
  Demand(hasFile && CodeSet_Init(fuzz::Directory().c_str()));
}

void CheckUnicode(std::string_view text) {
  const Text units = Icu("UTF-8", text, "UTF-16LE");
  Demand(Ours(CodeSet_Utf8ToUtf16le, text) == units);
  Demand(CodeSet_Validate(text.data(), text.size(), "UTF-8") == units.has_value());
  if (units.has_value()) {
    Demand(Iconv("UTF-8", text, "UTF-16LE") == units);
    Demand(Ours(CodeSet_Utf16leToUtf8, *units) == std::string(text));
  }
  const std::string_view even = text.substr(0, text.size() / 2 * 2);
  Demand(Ours(CodeSet_Utf16leToUtf8, text) == Icu("UTF-16LE", text, "UTF-8"));
  Demand(Ours(CodeSet_Utf16leToUtf8, even) == Iconv("UTF-16LE", even, "UTF-8"));
  Demand(Ours(CodeSet_Utf16beToUtf8, even) == Icu("UTF-16BE", even, "UTF-8"));
  for (const unsigned flags : {CODESET_SUBSTITUTE, CODESET_SKIP}) {
    const auto ascii = [&](auto convert) {
      return Take(
          [&](char **out, size_t *size) { return convert(text.data(), text.size(), flags, out, size); });
    };
    Demand(ascii(CodeSet_Utf8ToAscii)->size() <= text.size());
    Demand(CodeSet_Validate(ascii(CodeSet_AsciiToUtf8)->data(), ascii(CodeSet_AsciiToUtf8)->size(), "UTF-8"));
  }
}

void CheckGeneric(uint8_t choice, std::string_view text) {
  const char *from = kCodes[choice & 7];
  const char *to = kCodes[choice >> 3 & 7];
  CodeSet_DontUseIcu();
  Demand(Generic(from, text, to, CODESET_STOP) == Iconv(from, text, to));
  Generic(from, text, to, CODESET_SUBSTITUTE);
  UseIcu();
  Demand(Generic(from, text, to, CODESET_STOP) == Icu(from, text, to));
  Demand(Generic(from, text, to, CODESET_SUBSTITUTE).has_value());
  Demand(Generic(from, text, to, CODESET_SKIP).has_value());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) {
    return 0;
  }
  const std::string_view text(reinterpret_cast<const char *>(data) + 1, size - 1);
  CheckUnicode(text);
  CheckGeneric(*data, text);
  return 0;
}
