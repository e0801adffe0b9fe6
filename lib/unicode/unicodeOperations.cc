#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <initializer_list>
#include <string_view>

#include "unicodeInt.h"
#include "util_misc.h"

namespace {

// A new string of the parts, one behind the other.
Unicode Concatenate(std::initializer_list<std::string_view> parts) {
  size_t length = 0;
  for (const std::string_view part : parts) {
    length += part.size();
  }
  auto *str = static_cast<char *>(Util_SafeMalloc(length + 1));
  char *at = str;
  for (const std::string_view part : parts) {
    at = std::copy(part.begin(), part.end(), at);
  }
  *at = '\0';
  return str;
}

}  // namespace

void UnicodePinIndices(Unicode str, UnicodeIndex *strStart, UnicodeIndex *strLength) {
  const auto end = static_cast<UnicodeIndex>(strlen(str));
  if (*strStart < 0 || *strStart > end) {
    *strStart = end;
  }
  if (*strLength < 0 || *strLength > end - *strStart) {
    *strLength = end - *strStart;
  }
}

std::string_view UnicodeRange(Unicode str, UnicodeIndex start, UnicodeIndex length) {
  UnicodePinIndices(str, &start, &length);
  return {str + start, static_cast<size_t>(length)};
}

UnicodeIndex Unicode_FindSubstrInRange(Unicode str, UnicodeIndex strStart, UnicodeIndex strLength,
                                       Unicode strToFind, UnicodeIndex strToFindStart,
                                       UnicodeIndex strToFindLength) {
  const std::string_view haystack = UnicodeRange(str, strStart, strLength);
  const std::string_view needle = UnicodeRange(strToFind, strToFindStart, strToFindLength);
  const void *found = memmem(haystack.data(), haystack.size(), needle.data(), needle.size());
  return found == nullptr ? -1 : static_cast<const char *>(found) - str;
}

UnicodeIndex Unicode_FindLastSubstrInRange(Unicode str, UnicodeIndex strStart, UnicodeIndex strLength,
                                           Unicode strToFind, UnicodeIndex strToFindStart,
                                           UnicodeIndex strToFindLength) {
  const std::string_view haystack = UnicodeRange(str, strStart, strLength);
  const std::string_view needle = UnicodeRange(strToFind, strToFindStart, strToFindLength);
  // An empty range is found at the start from this side also.
  const size_t found = needle.empty() ? 0 : haystack.rfind(needle);
  return found == std::string_view::npos ? -1 : haystack.data() + found - str;
}

Unicode Unicode_Substr(Unicode str, UnicodeIndex start, UnicodeIndex length) {
  return Concatenate({UnicodeRange(str, start, length)});
}

Unicode Unicode_ReplaceRange(Unicode destination, UnicodeIndex destinationStart,
                             UnicodeIndex destinationLength, Unicode source, UnicodeIndex sourceStart,
                             UnicodeIndex sourceLength) {
  const std::string_view replaced = UnicodeRange(destination, destinationStart, destinationLength);
  const auto before = static_cast<size_t>(replaced.data() - destination);
  return Concatenate({{destination, before},
                      UnicodeRange(source, sourceStart, sourceLength),
                      replaced.data() + replaced.size()});
}

Unicode Unicode_Join(Unicode first, ...) {
  if (first == nullptr) {
    return nullptr;
  }
  size_t length = 0;
  char *str = nullptr;
  va_list rest;
  va_start(rest, first);
  // The list is started above. NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
  for (Unicode next = first; next != nullptr; next = va_arg(rest, Unicode)) {
    const size_t part = strlen(next);
    str = static_cast<char *>(Util_SafeRealloc(str, length + part + 1));
    memcpy(str + length, next, part + 1);
    length += part;
  }
  va_end(rest);
  return str;
}
