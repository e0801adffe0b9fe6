#include <algorithm>
#include <cstring>

#include "codeset.h"
#include "unicodeCaseFoldInt.h"
#include "unicodeInt.h"

namespace {

constexpr utf16_t kSurrogates = 0xD800;
constexpr utf16_t kLowSurrogates = 0xDC00;
constexpr utf16_t kBehindSurrogates = 0xE000;

// A range as UTF-16.
struct Units {
  OwnedString bytes;  // null when the range isn't valid text or memory is out
  size_t count;

  [[nodiscard]] utf16_t At(size_t i) const {
    utf16_t unit;
    memcpy(&unit, bytes.get() + i * sizeof unit, sizeof unit);
    return unit;
  }
};

Units ConvertRange(Unicode str, UnicodeIndex start, UnicodeIndex length) {
  UnicodePinIndices(str, &start, &length);
  char *bytes = nullptr;
  size_t size = 0;
  CodeSet_Utf8ToUtf16le(str + start, static_cast<size_t>(length), &bytes, &size);
  return {OwnedString(bytes), size / sizeof(utf16_t)};
}

bool IsSurrogate(utf16_t unit) {
  return unit >= kSurrogates && unit < kBehindSurrogates;
}

// The code point that the unit belongs to.
uint32_t CodePointAt(const Units &units, size_t i) {
  const utf16_t unit = units.At(i);
  if (!IsSurrogate(unit)) {
    return unit;
  }
  const size_t high = unit < kLowSurrogates ? i : i - 1;
  return 0x10000 + (static_cast<uint32_t>(units.At(high) - kSurrogates) << 10) +
         (units.At(high + 1) - kLowSurrogates);
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
    const uint32_t codePoint1 = IsSurrogate(unit1) ? CodePointAt(units1, i) : unit1;
    const uint32_t codePoint2 = IsSurrogate(unit2) ? CodePointAt(units2, i) : unit2;
    return codePoint1 < codePoint2 ? -1 : 1;
  }
  return units1.count == units2.count ? 0 : units1.count < units2.count ? -1 : 1;
}

}  // namespace

int Unicode_CompareRange(Unicode str1, UnicodeIndex str1Start, UnicodeIndex str1Length, Unicode str2,
                         UnicodeIndex str2Start, UnicodeIndex str2Length, bool ignoreCase) {
  const Units units1 = ConvertRange(str1, str1Start, str1Length);
  const Units units2 = ConvertRange(str2, str2Start, str2Length);
  if (units1.bytes == nullptr || units2.bytes == nullptr) {
    return -1;
  }
  return CompareUnits(units1, units2, ignoreCase);
}
