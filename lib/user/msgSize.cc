// Sizes as text.

#include <cmath>

#include "msg.h"
#include "owned.h"
#include "str.h"

namespace {

constexpr uint64_t kKilobyte = 1024;
constexpr uint64_t kMegabyte = kKilobyte * 1024;
constexpr uint64_t kGigabyte = kMegabyte * 1024;
constexpr uint64_t kTerabyte = kGigabyte * 1024;
// A number that is this near to a whole one is told as that.
constexpr double kNearlyWhole = 0.01;

// A number with the grouping of the locale.
OwnedString NumberText(double number, unsigned decimals) {
  char format[sizeof "%'.4294967295f"];
  Str_Sprintf(format, sizeof format, "%%'.%uf", decimals);
  return OwnedString(Str_SafeAsprintf(nullptr, format, number));
}

OwnedString ScaledText(uint64_t size, uint64_t unit) {
  const double number = static_cast<double>(size) / static_cast<double>(unit);
  const bool isWhole = std::abs(number - std::round(number)) <= kNearlyWhole;
  return NumberText(number, isWhole ? 0 : 1);
}

}  // namespace

char *Msg_FormatSizeInBytes(uint64_t size) {
  if (size >= kTerabyte) {
    return Msg_Format(MSGID(msg.terabyte.abbreviation) "%s TB", ScaledText(size, kTerabyte).get());
  }
  if (size >= kGigabyte) {
    return Msg_Format(MSGID(msg.gigabyte.abbreviation) "%s GB", ScaledText(size, kGigabyte).get());
  }
  if (size >= kMegabyte) {
    return Msg_Format(MSGID(msg.megabyte.abbreviation) "%s MB", ScaledText(size, kMegabyte).get());
  }
  if (size >= kKilobyte) {
    return Msg_Format(MSGID(msg.kilobyte.abbreviation) "%s KB", ScaledText(size, kKilobyte).get());
  }
  const OwnedString count = NumberText(static_cast<double>(size), 0);
  if (size == 0) {
    return Msg_Format(MSGID(msg.byte.zero) "%s bytes", count.get());
  }
  if (size == 1) {
    return Msg_Format(MSGID(msg.byte.one) "%s byte", count.get());
  }
  return Msg_Format(MSGID(msg.byte.twoOrMore) "%s bytes", count.get());
}
