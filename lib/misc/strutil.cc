#include "strutil.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>

#include "util_misc.h"

namespace {

// Parses with strtol or a sibling. An empty text has nothing left over, and so is wanted to give 0.
template <typename T>
bool StrUtilParse(T (*parse)(const char *, char **, int), T *out, const char *str) {
  char *end = nullptr;
  errno = 0;
  *out = parse(str, &end, 0);
  return *end == '\0' && errno != ERANGE;
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

bool StrUtil_StrToInt(int32_t *out, const char *str) {
  long value = 0;
  if (!StrUtilParse(strtol, &value, str)) {
    return false;
  }
  *out = static_cast<int32_t>(value);
  return value == *out;
}

bool StrUtil_StrToUint(uint32_t *out, const char *str) {
  unsigned long value = 0;
  if (!StrUtilParse(strtoul, &value, str)) {
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

bool StrUtil_StartsWith(const char *str, const char *prefix) {
  return std::string_view(str).starts_with(prefix);
}

bool StrUtil_EndsWith(const char *str, const char *suffix) {
  return std::string_view(str).ends_with(suffix);
}
