// Numbers, capacities and tokens: what is accepted is what the C library reads too, and every size prints.

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "owned.h"
#include "strutil.h"

namespace {

void Expect(bool holds) {
  if (!holds) {
    abort();
  }
}

void CheckNumbers(const char *text) {
  char *end = nullptr;
  errno = 0;
  const long long expected = strtoll(text, &end, 0);
  const bool whole = *end == '\0' && errno != ERANGE;
  int64_t wide = 0;
  Expect(StrUtil_StrToInt64(&wide, text) == whole && (!whole || wide == expected));
  int32_t narrow = 0;
  const bool fits = whole && expected == static_cast<int32_t>(expected);
  Expect(StrUtil_StrToInt(&narrow, text) == fits && (!fits || narrow == expected));
  uint32_t natural = 0;
  if (fits && expected >= 0) {
    Expect(StrUtil_StrToUint(&natural, text) && natural == static_cast<uint32_t>(expected));
  }
}

void CheckDecimal(const char *text) {
  const char *at = text;
  uint32_t value = 0;
  if (StrUtil_DecimalStrToUint(&value, &at)) {
    Expect(at > text && strspn(text, "0123456789") == static_cast<size_t>(at - text));
    Expect(strtoull(text, nullptr, 10) == value);
  } else {
    Expect(at == text);
  }
}

void CheckCapacity(const char *text) {
  uint64_t sectors = 0;
  uint64_t doubled = 0;
  if (StrUtil_CapacityToSectors(&sectors, text, 512) && sectors < uint64_t{1} << 53) {
    OwnedString(StrUtil_FormatSizeInBytes(sectors * 512));
    const std::string twice = std::string(text) + "K";
    // A number alone may take a suffix.
    if (strspn(text, "0123456789") == strlen(text)) {
      Expect(StrUtil_CapacityToSectors(&doubled, twice.c_str(), 512) && doubled == 2 * sectors);
    }
  }
}

void CheckTokens(const char *text) {
  std::string joined;
  unsigned index = 0;
  OwnedString token;
  while (token.reset(StrUtil_GetNextToken(&index, text, " ,")), token != nullptr) {
    Expect(*token != '\0' && strpbrk(token.get(), " ,") == nullptr);
    Expect(index >= strlen(token.get()) &&
           StrUtil_StartsWith(text + index - strlen(token.get()), token.get()));
    joined += token.get();
  }
  std::string expected;
  for (const char *at = text; *at != '\0'; at++) {
    if (*at != ' ' && *at != ',') {
      expected += *at;
    }
  }
  Expect(joined == expected);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  uint64_t number = 0;
  memcpy(&number, data, size < sizeof number ? size : sizeof number);
  Expect(strpbrk(OwnedString(StrUtil_FormatSizeInBytes(number)).get(), "0123456789") != nullptr);
  const std::string text(reinterpret_cast<const char *>(data), size);
  CheckNumbers(text.c_str());
  CheckDecimal(text.c_str());
  CheckCapacity(text.c_str());
  CheckTokens(text.c_str());
  return 0;
}
