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

// How many bytes the texts begin with in common, in whole characters, as far as CodeSet_Validate takes them.
size_t CommonCharacters(std::string_view text1, std::string_view text2) {
  size_t length = std::min<size_t>(CommonLength(text1, text2), INT_MAX);
  while (length > 0 && (IsContinuationAt(text1, length) || IsContinuationAt(text2, length))) {
    length--;
  }
  return length;
}

// Drops what both texts begin with in common. Returns false when that isn't valid.
bool DropCommonCharacters(std::string_view *text1, std::string_view *text2) {
  while (const size_t common = CommonCharacters(*text1, *text2)) {
    if (!CodeSet_Validate(text1->data(), common, "UTF-8")) {
      return false;
    }
    text1->remove_prefix(common);
    text2->remove_prefix(common);
  }
  return true;
}

// Drops all but the first character, which decides where the texts differ in it, if CodeSet_Validate takes
// that much. Returns false when what is dropped isn't valid.
bool KeepFirstCharacter(std::string_view *text) {
  size_t length = std::min<size_t>(text->size(), 1);
  while (IsContinuationAt(*text, length)) {
    length++;
  }
  const std::string_view rest = text->substr(length);
  if (rest.size() > INT_MAX) {
    return true;
  }
  *text = text->substr(0, length);
  return CodeSet_Validate(rest.data(), rest.size(), "UTF-8");
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
  // What is the same in both needs no conversion to be compared, only to be valid.
  if (!DropCommonCharacters(&text1, &text2)) {
    return -1;
  }
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
