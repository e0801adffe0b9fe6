// Which formats the C library prints as ours do, for the targets that compare the two.
#ifndef OST_FUZZ_FORMATS_H
#define OST_FUZZ_FORMATS_H

#include <cstddef>
#include <cstring>
#include <string>

#include "bsd_output_shared.h"

// A position that has no argument, or a number that takes all memory.
inline bool HasLargeNumber(const std::string &format) {
  size_t digits = 0;
  for (const char byte : format) {
    if (byte == '$' && digits > 1) {
      return true;
    }
    digits = byte >= '0' && byte <= '9' ? digits + 1 : 0;
    if (digits > 4) {
      return true;
    }
  }
  return false;
}

inline bool IsOneOf(char byte, const char *set) {
  return byte != '\0' && strchr(set, byte) != nullptr;
}

// Whether the C library prints a conversion in the same way.
//
// text    what it was read from
// apart   letters that the two read differently
inline bool IsAgreedOn(const std::string &text, const BsdOutput_Spec &spec, const char *apart) {
  if (text.find_first_of(apart) != std::string::npos) {
    return false;
  }
  const bool plain = spec.length == BsdOutput_Length::NONE;
  if (IsOneOf(spec.conversion, "diouxX")) {
    return true;
  }
  if (IsOneOf(spec.conversion, "eEfFgG")) {
    // The library loses zeros of "%#g" when rounding makes a digit more.
    return (plain || spec.length == BsdOutput_Length::LONG) && !spec.alternate;
  }
  if (IsOneOf(spec.conversion, "sc")) {
    const bool wideString = spec.conversion == 's' && spec.length == BsdOutput_Length::LONG;
    return (plain || wideString) && !spec.zero && !spec.alternate && !spec.group;
  }
  return text == "%";
}

#endif
