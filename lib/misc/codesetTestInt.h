// What the tests of code sets share: results as values, the choice of the engine, and the engines called
// directly.
#ifndef OST_MISC_CODESETTESTINT_H
#define OST_MISC_CODESETTESTINT_H

#include <gtest/gtest.h>
#include <iconv.h>
#include <unicode/ucnv.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "codeset.h"
#include "owned.h"

namespace codesettest {

using namespace std::string_literals;

// What a conversion gave; nothing when it failed.
using Text = std::optional<std::string>;

enum class Engine { kIconv, kIcu };
inline constexpr Engine kEngines[] = {Engine::kIconv, Engine::kIcu};

inline const char *Name(Engine engine) {
  return engine == Engine::kIcu ? "ICU" : "iconv";
}

// Chooses the engine as a start of the program does.
inline void Use(Engine engine) {
  const std::filesystem::path directory =
      std::filesystem::temp_directory_path() / ("codeset_test-" + std::to_string(getpid()));
  std::filesystem::create_directory(directory);
  if (engine == Engine::kIcu) {
    std::ofstream(directory / "icudt38l.dat").flush();
  }
  EXPECT_TRUE(CodeSet_Init(directory.c_str()));
  std::filesystem::remove_all(directory);
}

// Takes over what `convert(bufOut, sizeOut)` gives, and holds it to what every conversion promises.
template <typename Convert>
Text Take(const Convert &convert) {
  char *bytes = const_cast<char *>("untouched");
  size_t size = 99;
  if (!convert(&bytes, &size)) {
    EXPECT_EQ(bytes, nullptr);
    EXPECT_EQ(size, 0U);
    return std::nullopt;
  }
  const OwnedString owner(bytes);
  EXPECT_EQ(std::string(bytes + size, 4), "\0\0\0\0"s);
  return std::string(bytes, size);
}

using Converter = bool (*)(const char *, size_t, char **, size_t *);

// The input in a block of just its size, so that a look behind it is seen by the sanitizer.
class Exactly {
 public:
  explicit Exactly(std::string_view text)
      : size_(text.size()), block_(static_cast<char *>(calloc(1, size_))) {
    text.copy(block_.get(), size_);
  }
  [[nodiscard]] const char *Data() const { return block_.get(); }
  [[nodiscard]] size_t Size() const { return size_; }

 private:
  size_t size_;
  OwnedString block_;
};

inline Text Convert(Converter converter, std::string_view text) {
  const Exactly input(text);
  return Take([&](char **out, size_t *size) { return converter(input.Data(), input.Size(), out, size); });
}

inline Text Generic(const char *from, std::string_view text, const char *to, unsigned flags = CODESET_STOP) {
  const Exactly input(text);
  return Take([&](char **out, size_t *size) {
    return CodeSet_GenericToGeneric(from, input.Data(), input.Size(), to, flags, out, size);
  });
}

inline bool Validate(std::string_view text, const char *code) {
  const Exactly input(text);
  return CodeSet_Validate(input.Data(), input.Size(), code);
}

// An engine called directly, strictly, for one pair of encodings.
class Peer {
 public:
  virtual ~Peer() = default;
  virtual Text operator()(std::string_view text) = 0;
};

class IcuPeer : public Peer {
 public:
  IcuPeer(const char *from, const char *to) {
    UErrorCode status = U_ZERO_ERROR;
    from_ = ucnv_open(from, &status);
    to_ = ucnv_open(to, &status);
    ucnv_setToUCallBack(from_, UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
    ucnv_setFromUCallBack(to_, UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
    EXPECT_TRUE(U_SUCCESS(status)) << from << " " << to;
  }
  IcuPeer(const IcuPeer &) = delete;
  IcuPeer &operator=(const IcuPeer &) = delete;
  ~IcuPeer() override {
    ucnv_close(from_);
    ucnv_close(to_);
  }
  Text operator()(std::string_view text) override {
    std::string out(text.size() * 4 + 16, '\0');
    UChar pivot[256];
    UChar *pivotSource = pivot;
    UChar *pivotTarget = pivot;
    const char *source = text.data();
    char *target = out.data();
    UErrorCode status = U_ZERO_ERROR;
    ucnv_convertEx(to_, from_, &target, out.data() + out.size(), &source, text.data() + text.size(), pivot,
                   &pivotSource, &pivotTarget, std::end(pivot), true, true, &status);
    out.resize(static_cast<size_t>(target - out.data()));
    return U_SUCCESS(status) ? Text(out) : std::nullopt;
  }

 private:
  UConverter *from_ = nullptr;
  UConverter *to_ = nullptr;
};

class IconvPeer : public Peer {
 public:
  IconvPeer(const char *from, const char *to) : iconv_(iconv_open(to, from)) {}
  IconvPeer(const IconvPeer &) = delete;
  IconvPeer &operator=(const IconvPeer &) = delete;
  ~IconvPeer() override { iconv_close(iconv_); }
  Text operator()(std::string_view text) override {
    std::string out(text.size() * 4 + 16, '\0');
    auto *source = const_cast<char *>(text.data());
    char *target = out.data();
    size_t left = text.size();
    size_t room = out.size();
    iconv(iconv_, nullptr, nullptr, nullptr, nullptr);
    const bool failed = iconv(iconv_, &source, &left, &target, &room) == static_cast<size_t>(-1) ||
                        iconv(iconv_, nullptr, nullptr, &target, &room) == static_cast<size_t>(-1);
    out.resize(static_cast<size_t>(target - out.data()));
    return failed ? std::nullopt : Text(out);
  }

 private:
  iconv_t iconv_;
};

inline std::unique_ptr<Peer> NewPeer(Engine engine, const char *from, const char *to) {
  if (engine == Engine::kIcu) {
    return std::make_unique<IcuPeer>(from, to);
  }
  return std::make_unique<IconvPeer>(from, to);
}

// UTF-8 as the standard's table has it, also for what has none: surrogates and up to U+1FFFFF.
inline std::string Utf8(uint32_t codePoint) {
  const auto byte = [](uint32_t value) { return static_cast<char>(value); };
  const auto tail = [&](int shift) { return byte(0x80 | (codePoint >> shift & 0x3F)); };
  if (codePoint < 0x80) {
    return {byte(codePoint)};
  }
  if (codePoint < 0x800) {
    return {byte(0xC0 | codePoint >> 6), tail(0)};
  }
  if (codePoint < 0x10000) {
    return {byte(0xE0 | codePoint >> 12), tail(6), tail(0)};
  }
  return {byte(0xF0 | codePoint >> 18), tail(12), tail(6), tail(0)};
}

inline std::string Utf16Unit(uint32_t unit) {
  return {static_cast<char>(unit), static_cast<char>(unit >> 8)};
}

inline std::string Utf16(uint32_t codePoint) {
  if (codePoint < 0x10000) {
    return Utf16Unit(codePoint);
  }
  return Utf16Unit(0xD800 + ((codePoint - 0x10000) >> 10)) + Utf16Unit(0xDC00 + (codePoint & 0x3FF));
}

inline std::string Swapped(std::string units) {
  for (size_t i = 0; i + 1 < units.size(); i += 2) {
    std::swap(units[i], units[i + 1]);
  }
  return units;
}

inline bool IsSurrogate(uint32_t codePoint) {
  return codePoint >= 0xD800 && codePoint <= 0xDFFF;
}

}  // namespace codesettest

#endif
