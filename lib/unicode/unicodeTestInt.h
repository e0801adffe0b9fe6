// What the tests of this folder share.
#ifndef OST_UNICODE_UNICODETESTINT_H
#define OST_UNICODE_UNICODETESTINT_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "codeset.h"
#include "log.h"
#include "testhost.h"
#include "unicode.h"

namespace unicodetest {

inline const auto kPanic = ::testing::ExitedWithCode(255);

inline void EnterHost() {
  testhost::Host host;
  host.File("/t/icu/icudt38l.dat", "");
  host.Enter();
}

// The same where file names have this encoding. It has to be told first, and an unknown one allows no log.
inline void EnterHost(const char *fileNameEncoding) {
  setenv("G_FILENAME_ENCODING", fileNameEncoding, 1);
  EnterHost();
}

inline void UseIcu() {
  ASSERT_TRUE(CodeSet_Init("/t/icu"));
}

// A host of the test's own, with a log, in which ICU does the work when it is wanted.
class UnicodeHost : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    EnterHost();
    ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  }

  static bool Logged(const std::string &text) {
    return testhost::ReadFile(Log_GetFileName()).find(text) != std::string::npos;
  }
};

// What isn't UTF-8 wherever it stands.
inline const std::vector<std::string> kMalformed = {
    "\x80",  // continuations without a lead byte
    "\xBF",
    "\xC0\x80",  // overlong
    "\xC1\xBF",
    "\xE0\x80\x80",
    "\xE0\x9F\xBF",
    "\xF0\x80\x80\x80",
    "\xF0\x8F\xBF\xBF",
    "\xED\xA0\x80",  // surrogates
    "\xED\xAF\xBF",
    "\xED\xB0\x80",
    "\xED\xBF\xBF",
    "\xF4\x90\x80\x80",  // above U+10FFFF
    "\xF5\x80\x80\x80",
    "\xF8\x88\x80\x80\x80",
    "\xFE",
    "\xFF",
    "\xC3",  // truncated
    "\xE2\x82",
    "\xE2",
    "\xF0\x9F\x98",
    "\xF0\x9F",
    "\xF0",
};

inline std::string Utf16(std::initializer_list<unsigned> units) {
  std::string bytes;
  for (const unsigned unit : units) {
    bytes += static_cast<char>(unit & 0xFF);
    bytes += static_cast<char>(unit >> 8);
  }
  return bytes;
}

// The text of a new string, "(null)" for none.
inline std::string Text(const char *str) {
  const OwnedUnicode owner(str);
  return str == nullptr ? "(null)" : str;
}

}  // namespace unicodetest

#endif
