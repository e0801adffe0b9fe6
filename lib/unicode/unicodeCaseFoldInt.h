// The simple case folding of single UTF-16 units.
#ifndef OST_UNICODE_UNICODECASEFOLDINT_H
#define OST_UNICODE_UNICODECASEFOLDINT_H

#include "unicode.h"

// By a unit's high byte the foldings of its 256 units, null where each folds to itself.
extern const utf16_t *const unicodeCaseFoldPages[256];

inline utf16_t UnicodeSimpleCaseFold(utf16_t unit) {
  const utf16_t *page = unicodeCaseFoldPages[unit >> 8];
  return page == nullptr ? unit : page[unit & 0xFF];
}

#endif
