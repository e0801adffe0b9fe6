// Names of encodings: what the index and the cache find is what a plain walk over the table finds.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "../lib/unicode/unicodeInt.h"
#include "../lib/unicode/unicodeTableInt.h"

namespace {

std::string Normalized(const std::string &name) {
  std::string normalized;
  for (const char c : name) {
    if ((c >= '0' && c <= '9') || (c >= 'a' && c <= 'z')) {
      normalized += c;
    } else if (c >= 'A' && c <= 'Z') {
      normalized += static_cast<char>(c | 0x20);
    }
  }
  return normalized;
}

int WalkNames(const std::string &name, bool normalize) {
  const std::string wanted = normalize ? Normalized(name) : name;
  for (size_t row = 0; row < kUnicodeXRefRows; row++) {
    for (const char *const *each = xRef[row].names; *each != nullptr; each++) {
      if ((normalize ? Normalized(*each) : *each) == wanted) {
        return static_cast<int>(row);
      }
    }
  }
  return -1;
}

int WalkCodePages(const std::string &name) {
  const std::string number = name.substr(strlen("windows-"));
  if (number.find_first_not_of("0123456789") != std::string::npos || number.size() > 9) {
    return -1;
  }
  const unsigned long codePage = number.empty() ? 0 : std::stoul(number);
  for (size_t row = 0; row < kUnicodeXRefRows; row++) {
    if (xRef[row].windowsCodePage == codePage) {
      return static_cast<int>(row);
    }
  }
  return -1;
}

int Walk(const std::string &name) {
  int row = name.starts_with("windows-") || name.starts_with("Windows-") ? WalkCodePages(name) : -1;
  if (row == -1) {
    row = WalkNames(name, false);
  }
  return row != -1 ? row : WalkNames(name, true);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string name = std::string(reinterpret_cast<const char *>(data), size).c_str();
  // Numbers of ten and more digits may have leading zeros, which the walk here doesn't read.
  if (name.size() > strlen("windows-") + 9 &&
      (name.starts_with("windows-0") || name.starts_with("Windows-0"))) {
    return 0;
  }
  const int row = UnicodeIANALookup(name.c_str());
  // A spelling that differs in its case alone may have been asked before and is remembered in its place,
  // which matters where two names are alike.
  const std::string normalized = Normalized(name);
  const bool isAmbiguous = normalized == "isoir91" || normalized == "isoir92";
  if (row != UnicodeIANALookup(name.c_str()) || (!isAmbiguous && row != Walk(name))) {
    abort();
  }
  const StringEncoding encoding = Unicode_EncodingNameToEnum(name.c_str());
  if (Unicode_IsEncodingValid(encoding) ? row == -1 || xRef[row].encoding != encoding
                                        : encoding != STRING_ENCODING_UNKNOWN) {
    abort();
  }
  return 0;
}
