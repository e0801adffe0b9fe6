// The table of character sets, and the two constant indexes that spare walking it.
#ifndef OST_UNICODE_UNICODETABLEINT_H
#define OST_UNICODE_UNICODETABLEINT_H

#include <cstddef>
#include <cstdint>

#include "unicode.h"

constexpr size_t kUnicodeXRefRows = 319;
constexpr size_t kUnicodeNames = 1304;
constexpr uint32_t kUnicodeNoCodePage = 0xFFFFFFFF;

struct UnicodeXRef {
  int32_t mibEnum;           // IANA's number, -1 for none
  uint32_t windowsCodePage;  // kUnicodeNoCodePage for none
  StringEncoding encoding;
  bool isSupported;
  uint32_t preferredMime;  // the index of the primary name
  const char *names[20];   // null-terminated
};

struct UnicodeNameReference {
  uint16_t row;
  uint16_t name;
};

extern const UnicodeXRef xRef[kUnicodeXRefRows];
// All names in the order of their letters and digits in lower case; names that are alike in these stand in
// the table's order.
extern const UnicodeNameReference unicodeNameIndex[kUnicodeNames];
// The first row of each encoding.
extern const uint16_t unicodeRowOfEncoding[STRING_ENCODING_COUNT];

#endif
