#include <algorithm>
#include <climits>
#include <cstring>
#include <string_view>

#include "codeset.h"
#include "unicodeCaseFoldInt.h"
#include "unicodeInt.h"

namespace {

constexpr utf16_t kHighSurrogates = 0xD800;
constexpr utf16_t kLowSurrogates = 0xDC00;

// Text as UTF-16.
struct Units {
  OwnedString bytes;  // null when the text isn't valid or memory is out
  size_t count;

  [[nodiscard]] utf16_t At(size_t i) const {
    utf16_t unit;
    memcpy(&unit, bytes.get() + i * sizeof unit, sizeof unit);
    return unit;
  }
};

Units Convert(std::string_view text) {
  char *bytes = nullptr;
  size_t size = 0;
  CodeSet_Utf8ToUtf16le(text.data(), text.size(), &bytes, &size);
  return {OwnedString(bytes), size / sizeof(utf16_t)};
}

// How many bytes the texts begin with in common.
size_t CommonLength(std::string_view text1, std::string_view text2) {
  const size_t limit = std::min(text1.size(), text2.size());
  size_t length = 0;
  while (limit - length >= sizeof(uint64_t) &&
         memcmp(text1.data() + length, text2.data() + length, sizeof(uint64_t)) == 0) {
    length += sizeof(uint64_t);
  }
  while (length < limit && text1[length] == text2[length]) {
    length++;
  }
  return length;
}

bool IsContinuationAt(std::string_view text, size_t at) {
  return at < text.size() && (text[at] & 0xC0) == 0x80;
}

// How many bytes the texts begin with in common, in whole characters.
size_t CommonCharacters(std::string_view text1, std::string_view text2) {
  size_t length = CommonLength(text1, text2);
  while (length > 0 && (IsContinuationAt(text1, length) || IsContinuationAt(text2, length))) {
    length--;
  }
  return length;
}

// Of any size, while CodeSet_Validate takes INT_MAX bytes.
bool IsValid(std::string_view text) {
  while (!text.empty()) {
    size_t length = std::min<size_t>(text.size(), INT_MAX);
    while (length > 0 && IsContinuationAt(text, length)) {
      length--;
    }
    if (length == 0 || !CodeSet_Validate(text.data(), length, "UTF-8")) {
      return false;
    }
    text.remove_prefix(length);
  }
  return true;
}

// Drops all but the first character, which decides where the texts differ in it. Returns false when what is
// dropped isn't valid.
bool KeepFirstCharacter(std::string_view *text) {
  size_t length = std::min<size_t>(text->size(), 1);
  while (IsContinuationAt(*text, length)) {
    length++;
  }
  const std::string_view rest = text->substr(length);
  *text = text->substr(0, length);
  return IsValid(rest);
}

// What a unit is ordered by: the code point that begins with it. A second half of a pair differs from another
// behind the same first half, and orders as it is.
uint32_t CodePointAt(const Units &units, size_t i, utf16_t unit) {
  if (unit < kHighSurrogates || unit >= kLowSurrogates) {
    return unit;
  }
  return 0x10000 + (static_cast<uint32_t>(unit - kHighSurrogates) << 10) + (units.At(i + 1) - kLowSurrogates);
}

int CompareUnits(const Units &units1, const Units &units2, bool ignoreCase) {
  const size_t common = std::min(units1.count, units2.count);
  for (size_t i = 0; i < common; i++) {
    utf16_t unit1 = units1.At(i);
    utf16_t unit2 = units2.At(i);
    if (unit1 == unit2) {
      continue;
    }
    if (ignoreCase) {
      unit1 = UnicodeSimpleCaseFold(unit1);
      unit2 = UnicodeSimpleCaseFold(unit2);
    }
    if (unit1 == unit2) {
      continue;
    }
    return CodePointAt(units1, i, unit1) < CodePointAt(units2, i, unit2) ? -1 : 1;
  }
  return units1.count == units2.count ? 0 : units1.count < units2.count ? -1 : 1;
}

}  // namespace

int Unicode_CompareRange(Unicode str1, UnicodeIndex str1Start, UnicodeIndex str1Length, Unicode str2,
                         UnicodeIndex str2Start, UnicodeIndex str2Length, bool ignoreCase) {
  std::string_view text1 = UnicodeRange(str1, str1Start, str1Length);
  std::string_view text2 = UnicodeRange(str2, str2Start, str2Length);
  // What is the same in both, or stands behind what decides, needs no conversion, only to be valid.
  const size_t common = CommonCharacters(text1, text2);
  if (!IsValid(text1.substr(0, common))) {
    return -1;
  }
  text1.remove_prefix(common);
  text2.remove_prefix(common);
  if (!ignoreCase && (!KeepFirstCharacter(&text1) || !KeepFirstCharacter(&text2))) {
    return -1;
  }
  const Units units1 = Convert(text1);
  const Units units2 = Convert(text2);
  if (units1.bytes == nullptr || units2.bytes == nullptr) {
    return -1;
  }
  return CompareUnits(units1, units2, ignoreCase);
}
