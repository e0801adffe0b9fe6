#include "strutil.h"

#include <strings.h>

#include <array>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>

#include "owned.h"
#include "panicUser.h"
#include "str.h"
#include "util_misc.h"

namespace {

constexpr long double kSectorSize = 512;

// Parses with strtoll or a sibling. An empty text has nothing left over, and so is wanted to give 0.
template <typename T>
bool StrUtilParse(T (*parse)(const char *, char **, int), T *out, const char *str) {
  char *end = nullptr;
  errno = 0;
  *out = parse(str, &end, 0);
  return *end == '\0' && errno != ERANGE;
}

// Takes the next token and parses it.
template <typename T>
bool StrUtilParseNext(bool (*parse)(T *, const char *), T *out, unsigned *index, const char *str,
                      const char *delimiters) {
  const OwnedString token(StrUtil_GetNextToken(index, str, delimiters));
  return token != nullptr && parse(out, token.get());
}

// What one stands for under a suffix that is there, or 0 when the suffix is another.
uint64_t CapacityMultiplier(std::string_view suffix) {
  constexpr std::string_view kUnits = "KMGT";
  const char letter = static_cast<char>(toupper(static_cast<unsigned char>(suffix.front())));
  if (suffix.size() == 1 && letter == 'B') {
    return 1;
  }
  if (suffix.size() == 1 && letter == 'S') {
    return uint64_t{1} << 9;
  }
  const size_t unit = kUnits.find(letter);
  const bool whole = suffix.size() == 1 || (suffix.size() == 2 && (suffix[1] == 'B' || suffix[1] == 'b'));
  return unit != std::string_view::npos && whole ? uint64_t{1} << (10 * (unit + 1)) : 0;
}

struct SizeUnit {
  unsigned bits;
  const char *format;
};

constexpr std::array<SizeUnit, 4> kSizeUnits = {{
    {40, "%s TB"},
    {30, "%s GB"},
    {20, "%s MB"},
    {10, "%s KB"},
}};

char *FormatNumber(double value, unsigned decimals) {
  const OwnedString format(Str_SafeAsprintf(nullptr, "%%.%uf", decimals));
  return Str_SafeAsprintf(nullptr, format.get(), value);
}

}  // namespace

char *StrUtil_GetNextToken(unsigned *index, const char *str, const char *delimiters) {
  const char *rest = str + *index;
  const char *token = rest + strspn(rest, delimiters);
  if (*token == '\0') {
    return nullptr;
  }
  const size_t length = strcspn(token, delimiters);
  *index = static_cast<unsigned>(token + length - str);
  return Util_SafeStrndup(token, length);
}

bool StrUtil_GetNextIntToken(int32_t *out, unsigned *index, const char *str, const char *delimiters) {
  return StrUtilParseNext(StrUtil_StrToInt, out, index, str, delimiters);
}

bool StrUtil_GetNextUintToken(uint32_t *out, unsigned *index, const char *str, const char *delimiters) {
  return StrUtilParseNext(StrUtil_StrToUint, out, index, str, delimiters);
}

bool StrUtil_GetNextInt64Token(int64_t *out, unsigned *index, const char *str, const char *delimiters) {
  return StrUtilParseNext(StrUtil_StrToInt64, out, index, str, delimiters);
}

bool StrUtil_StrToInt(int32_t *out, const char *str) {
  long long value = 0;
  if (!StrUtilParse(strtoll, &value, str)) {
    return false;
  }
  *out = static_cast<int32_t>(value);
  return value == *out;
}

bool StrUtil_StrToUint(uint32_t *out, const char *str) {
  unsigned long long value = 0;
  if (!StrUtilParse(strtoull, &value, str)) {
    return false;
  }
  *out = static_cast<uint32_t>(value);
  return value == *out;
}

bool StrUtil_StrToInt64(int64_t *out, const char *str) {
  long long value = 0;
  if (!StrUtilParse(strtoll, &value, str)) {
    return false;
  }
  *out = value;
  return true;
}

bool StrUtil_DecimalStrToUint(uint32_t *out, const char **str) {
  const char *at = *str;
  uint32_t value = 0;
  for (; *at >= '0' && *at <= '9'; at++) {
    const auto digit = static_cast<uint32_t>(*at - '0');
    if (__builtin_mul_overflow(value, 10U, &value) || __builtin_add_overflow(value, digit, &value)) {
      return false;
    }
  }
  if (at == *str) {
    return false;
  }
  *out = value;
  *str = at;
  return true;
}

bool StrUtil_StartsWith(const char *str, const char *prefix) {
  return strncmp(str, prefix, strlen(prefix)) == 0;
}

bool StrUtil_CaselessStartsWith(const char *str, const char *prefix) {
  return strncasecmp(str, prefix, strlen(prefix)) == 0;
}

bool StrUtil_EndsWith(const char *str, const char *suffix) {
  return std::string_view(str).ends_with(suffix);
}

bool StrUtil_CapacityToSectors(uint64_t *out, const char *str, unsigned defaultMultiplier) {
  char *end = nullptr;
  errno = 0;
  // The widest type, so that whole numbers of 64 bits stay exact.
  const long double value = strtold(str, &end);
  if (end == str || errno == ERANGE || !std::isfinite(value) || value < 0) {
    return false;
  }
  const char *suffix = end + strspn(end, " \t");
  const uint64_t multiplier = *suffix == '\0' ? defaultMultiplier : CapacityMultiplier(suffix);
  if (multiplier == 0 && *suffix != '\0') {
    return false;
  }
  // To add half a sector first would itself be rounded where counts take all 64 bits.
  const long double sectors = std::round(static_cast<long double>(multiplier) * value / kSectorSize);
  if (sectors >= std::ldexp(1.0L, std::numeric_limits<uint64_t>::digits)) {
    return false;
  }
  *out = static_cast<uint64_t>(sectors);
  return true;
}

char *StrUtil_FormatSizeInBytes(uint64_t size) {
  constexpr double kNearly = 0.01;
  for (const SizeUnit &unit : kSizeUnits) {
    if (size < uint64_t{1} << unit.bits) {
      continue;
    }
    const double value = std::ldexp(static_cast<double>(size), -static_cast<int>(unit.bits));
    const double nearest = std::round(value);
    const bool whole = std::fabs(value - nearest) <= kNearly;
    const OwnedString number(whole ? FormatNumber(nearest, 0) : FormatNumber(value, 1));
    return Str_SafeAsprintf(nullptr, unit.format, number.get());
  }
  const OwnedString number(FormatNumber(static_cast<double>(size), 0));
  return Str_SafeAsprintf(nullptr, size == 1 ? "%s byte" : "%s bytes", number.get());
}

bool StrUtil_VDynBufPrintf(DynBuf *buf, const char *format, va_list args) {
  size_t length = 0;
  const OwnedString text(Str_Vasprintf(&length, format, args));
  return text != nullptr && DynBuf_Append(buf, text.get(), length);
}

bool StrUtil_DynBufPrintf(DynBuf *buf, const char *format, ...) {
  va_list args;
  va_start(args, format);
  const bool printed = StrUtil_VDynBufPrintf(buf, format, args);
  va_end(args);
  return printed;
}

void StrUtil_SafeDynBufPrintf(DynBuf *buf, const char *format, ...) {
  va_list args;
  va_start(args, format);
  const bool printed = StrUtil_VDynBufPrintf(buf, format, args);
  va_end(args);
  ASSERT_MEM_ALLOC(printed);
}
