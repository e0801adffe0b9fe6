#include "bsd_output_shared.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <climits>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <limits>
#include <string_view>

#include "bsd_output_vectorInt.h"
#include "utf8.h"

namespace {

// What the largest and the smallest double need to be told to the last digit. Behind that are zeros alone.
constexpr size_t kIntegerDigits = std::numeric_limits<double>::max_exponent10 + 1;
constexpr size_t kFractionDigits = 1074;
constexpr size_t kSignificantDigits = 767;
// The room that %g needs to set "0.000" before the digits.
constexpr size_t kLeadingZeros = 5;
constexpr size_t kDoubleFrame = 1 + kIntegerDigits + 1 + kLeadingZeros;
static_assert(kDoubleFrame + kFractionDigits <= BsdOutput::kScratch);

// The longest integer: its octal digits behind a base prefix or a sign.
constexpr size_t kLongestPrefix = 2;
constexpr size_t kLongestInteger = kLongestPrefix + 22;

// ---- Padding

size_t Missing(const BsdOutput_Spec &spec, size_t length) {
  return spec.width > length ? spec.width - length : 0;
}

// What stands left of the digits of a value that takes `length` bytes without padding.
void PutFront(BsdOutput *out, const BsdOutput_Spec &spec, bool zero, const char *prefix, size_t prefixLength,
              size_t length) {
  const size_t missing = spec.left ? 0 : Missing(spec, length);
  if (missing > 0 && !zero) {
    BsdOutput_Pad(out, BSDOUTPUT_BLANKS, missing);
  }
  BsdOutput_Add(out, prefix, prefixLength);
  if (missing > 0 && zero) {
    BsdOutput_Pad(out, BSDOUTPUT_ZEROS, missing);
  }
}

void PutBack(BsdOutput *out, const BsdOutput_Spec &spec, size_t length) {
  if (spec.left) {
    BsdOutput_Pad(out, BSDOUTPUT_BLANKS, Missing(spec, length));
  }
}

[[gnu::noinline]] void PutPaddedText(BsdOutput *out, const BsdOutput_Spec &spec, const char *text,
                                     size_t length) {
  PutFront(out, spec, spec.zero, nullptr, 0, length);
  BsdOutput_Add(out, text, length);
  PutBack(out, spec, length);
}

inline void PutText(BsdOutput *out, const BsdOutput_Spec &spec, const char *text, size_t length) {
  if (spec.width <= length) {
    BsdOutput_Add(out, text, length);
  } else {
    PutPaddedText(out, spec, text, length);
  }
}

void PutByte(BsdOutput *out, const BsdOutput_Spec &spec, char byte) {
  char *text = BsdOutput_Scratch(out, 1);
  *text = byte;
  PutText(out, spec, text, 1);
}

// ---- Groups of digits

// Digits cut into groups as the locale has them.
class Groups {
 public:
  explicit Groups(size_t numDigits);
  [[nodiscard]] size_t SeparatorBytes() const { return count_ == 0 ? 0 : (count_ - 1) * separatorLength_; }
  void Put(BsdOutput *out, const char *digits) const;

 private:
  const char *separator_ = "";
  size_t separatorLength_ = 0;
  size_t count_ = 0;
  uint16_t sizes_[kIntegerDigits];  // from the right
};

Groups::Groups(size_t numDigits) {
  const lconv *locale = localeconv();
  const char *grouping = locale->grouping;
  const bool grouped = *grouping != '\0' && *locale->thousands_sep != '\0';
  if (grouped) {
    separator_ = locale->thousands_sep;
    separatorLength_ = strlen(separator_);
  }
  size_t size = numDigits;
  for (size_t left = numDigits; left > 0; left -= sizes_[count_++]) {
    // The last size told goes on for the rest, unless it is the end of all groups.
    if (grouped && *grouping != '\0') {
      size = *grouping == CHAR_MAX ? numDigits : static_cast<size_t>(*grouping);
      grouping++;
    }
    sizes_[count_] = static_cast<uint16_t>(std::min(size, left));
  }
}

void Groups::Put(BsdOutput *out, const char *digits) const {
  for (size_t i = count_; i-- > 0;) {
    BsdOutput_Add(out, digits, sizes_[i]);
    digits += sizes_[i];
    if (i > 0) {
      BsdOutput_Add(out, separator_, separatorLength_);
    }
  }
}

// Null stands for digits that aren't grouped.
size_t SeparatorBytes(const Groups *groups) {
  return groups == nullptr ? 0 : groups->SeparatorBytes();
}

void PutDigits(BsdOutput *out, const Groups *groups, const char *digits, size_t numDigits) {
  if (groups == nullptr) {
    BsdOutput_Add(out, digits, numDigits);
  } else {
    groups->Put(out, digits);
  }
}

// ---- Integers

// By length modifier.
constexpr size_t kIntegerSizes[] = {sizeof(int),       sizeof(char),     sizeof(short),     sizeof(long),
                                    sizeof(long long), sizeof(intmax_t), sizeof(ptrdiff_t), sizeof(size_t)};

size_t IntegerSize(BsdOutput_Length length) {
  return kIntegerSizes[static_cast<size_t>(length)];
}

unsigned SpareBits(BsdOutput_Length length) {
  return static_cast<unsigned>((sizeof(int64_t) - IntegerSize(length)) * CHAR_BIT);
}

uint64_t AsUnsigned(int64_t value, BsdOutput_Length length) {
  const unsigned spare = SpareBits(length);
  return static_cast<uint64_t>(value) << spare >> spare;
}

int64_t AsSigned(int64_t value, BsdOutput_Length length) {
  const unsigned spare = SpareBits(length);
  return static_cast<int64_t>(static_cast<uint64_t>(value) << spare) >> spare;
}

char SignOf(const BsdOutput_Spec &spec, bool negative) {
  return negative ? '-' : spec.plus ? '+' : spec.space ? ' ' : '\0';
}

// The digits of an integer, with what stands before them.
struct Integer {
  char *digits;
  size_t numDigits = 0;
  size_t prefixLength = 0;  // right before the digits

  // Room for them in the scratch, to be filled from the right.
  explicit Integer(BsdOutput *out) : digits(BsdOutput_Scratch(out, kLongestInteger) + kLongestInteger) {}
  void Digit(char byte) {
    *--digits = byte;
    numDigits++;
  }
  void Prefix(char byte) { *(digits - ++prefixLength) = byte; }
  [[nodiscard]] const char *Start() const { return digits - prefixLength; }
  [[nodiscard]] size_t Length() const { return prefixLength + numDigits; }
};

// A 0 with the precision 0 has no digit at all.
bool HasNoDigit(const BsdOutput_Spec &spec, uint64_t value) {
  return value == 0 && spec.precision == 0;
}

inline size_t MissingDigits(const BsdOutput_Spec &spec, const Integer &integer) {
  const size_t least = spec.precision < 0 ? 0 : static_cast<size_t>(spec.precision);
  return least > integer.numDigits ? least - integer.numDigits : 0;
}

constexpr auto kPairs = [] {
  std::array<char, 200> pairs{};
  for (size_t i = 0; i < 100; i++) {
    pairs[2 * i] = static_cast<char>('0' + i / 10);
    pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
  }
  return pairs;
}();

// Writes the digits that end before `end`. Returns where they begin.
char *WriteDecimal(char *end, uint64_t value) {
  char *digits = end;
  for (; value >= 100; value /= 100) {
    digits -= 2;
    memcpy(digits, &kPairs[value % 100 * 2], 2);
  }
  if (value >= 10) {
    digits -= 2;
    memcpy(digits, &kPairs[value * 2], 2);
  } else {
    *--digits = static_cast<char>('0' + value);
  }
  return digits;
}

void DecimalDigits(Integer *integer, uint64_t value) {
  char *end = integer->digits;
  integer->digits = WriteDecimal(end, value);
  integer->numDigits = static_cast<size_t>(end - integer->digits);
}

void OctalDigits(Integer *integer, uint64_t value) {
  do {
    integer->Digit(static_cast<char>('0' + (value & 7)));
    value >>= 3;
  } while (value > 0);
}

void HexadecimalDigits(Integer *integer, uint64_t value, const char *digits) {
  do {
    integer->Digit(digits[value & 15]);
    value >>= 4;
  } while (value > 0);
}

[[gnu::noinline]] void PutPaddedInteger(BsdOutput *out, const BsdOutput_Spec &spec, const Integer &integer,
                                        const Groups *groups) {
  const size_t zeros = MissingDigits(spec, integer);
  const size_t length = integer.Length() + zeros + SeparatorBytes(groups);
  PutFront(out, spec, spec.zero && spec.precision < 0, integer.Start(), integer.prefixLength, length);
  BsdOutput_Pad(out, BSDOUTPUT_ZEROS, zeros);
  PutDigits(out, groups, integer.digits, integer.numDigits);
  PutBack(out, spec, length);
}

inline void PutInteger(BsdOutput *out, const BsdOutput_Spec &spec, const Integer &integer) {
  if (spec.width <= integer.Length() && MissingDigits(spec, integer) == 0) {
    BsdOutput_AddPiece(out, integer.Start(), integer.Length());
  } else {
    PutPaddedInteger(out, spec, integer, nullptr);
  }
}

void PutDecimal(BsdOutput *out, const BsdOutput_Spec &spec, uint64_t magnitude, char sign) {
  Integer integer(out);
  if (!HasNoDigit(spec, magnitude)) {
    DecimalDigits(&integer, magnitude);
  }
  if (sign != '\0') {
    integer.Prefix(sign);
  }
  if (spec.group) {
    const Groups groups(integer.numDigits);
    PutPaddedInteger(out, spec, integer, &groups);
  } else {
    PutInteger(out, spec, integer);
  }
}

void PutSigned(BsdOutput *out, const BsdOutput_Spec &spec, int64_t value) {
  const int64_t narrowed = AsSigned(value, spec.length);
  const auto bits = static_cast<uint64_t>(narrowed);
  PutDecimal(out, spec, narrowed < 0 ? 0 - bits : bits, SignOf(spec, narrowed < 0));
}

void PutOctal(BsdOutput *out, const BsdOutput_Spec &spec, uint64_t value) {
  Integer integer(out);
  if (!HasNoDigit(spec, value)) {
    OctalDigits(&integer, value);
  }
  // The leading zero that "#" asks for is there when the precision adds some, and when the 0 itself is
  // printed.
  const bool leadingZero = value == 0 ? spec.precision != 0 : MissingDigits(spec, integer) > 0;
  if (spec.alternate && !leadingZero) {
    integer.Digit('0');
  }
  PutInteger(out, spec, integer);
}

void PutHexadecimal(BsdOutput *out, const BsdOutput_Spec &spec, uint64_t value, bool prefixed, bool upper) {
  Integer integer(out);
  if (!HasNoDigit(spec, value)) {
    HexadecimalDigits(&integer, value, upper ? "0123456789ABCDEF" : "0123456789abcdef");
  }
  if (prefixed && value != 0) {
    integer.Prefix(upper ? 'X' : 'x');
    integer.Prefix('0');
  }
  PutInteger(out, spec, integer);
}

// ---- Doubles

// A double's text in the scratch: the integer digits, a point and the fraction when there is one, the
// exponent.
struct Decimal {
  char *text;
  size_t numInteger = 0;
  size_t numFraction = 0;
  size_t numExponent = 0;
  size_t zeros = 0;  // that belong behind the fraction and aren't in the text

  [[nodiscard]] char *Fraction() const { return text + numInteger + 1; }
  [[nodiscard]] char *Exponent() const {
    return numFraction == 0 ? text + numInteger : Fraction() + numFraction;
  }
  [[nodiscard]] size_t Length() const { return static_cast<size_t>(Exponent() - text) + numExponent; }
};

// Converts to at most `most` digits behind the point. There is room for them, so that this can't fail.
Decimal Convert(BsdOutput *out, double magnitude, std::chars_format format, size_t precision, size_t most) {
  const size_t digits = std::min(precision, most);
  const size_t room = kDoubleFrame + digits;
  Decimal decimal;
  decimal.text = BsdOutput_Scratch(out, room) + 1;
  char *end =
      std::to_chars(decimal.text, decimal.text + room - 1, magnitude, format, static_cast<int>(digits)).ptr;
  decimal.numFraction = digits;
  decimal.zeros = precision - digits;
  const auto length = static_cast<size_t>(end - decimal.text);
  const size_t pointed = digits == 0 ? 0 : digits + 1;
  decimal.numInteger = format == std::chars_format::fixed ? length - pointed : 1;
  decimal.numExponent = length - pointed - decimal.numInteger;
  return decimal;
}

// The powers of ten that 64 bits hold.
constexpr auto kPowers = [] {
  std::array<uint64_t, 20> powers{};
  uint64_t power = 1;
  for (uint64_t &each : powers) {
    each = power;
    power *= 10;
  }
  return powers;
}();

// A double is an integer of 53 bits, shifted to the right unless it is large. Times a power of ten that goes
// into 128 bits, so that most values' digits up to `precision` behind the point can be had from one shift.
//
// digits  gets them as an integer, rounded to even where two are as near
//
// Returns false for a value that is shifted too far or not at all, and for too many digits.
bool ScaleExactly(double magnitude, size_t precision, uint64_t *digits) {
  __extension__ using Wide = unsigned __int128;
  constexpr int kFractionBits = std::numeric_limits<double>::digits - 1;
  constexpr uint64_t kHiddenBit = uint64_t{1} << kFractionBits;
  const auto bits = std::bit_cast<uint64_t>(magnitude);
  const int shift =
      std::numeric_limits<double>::max_exponent - 1 + kFractionBits - static_cast<int>(bits >> kFractionBits);
  if (precision >= kPowers.size() || shift < 1 || shift > 127) {
    return false;
  }
  const Wide scaled = Wide{(bits & (kHiddenBit - 1)) | kHiddenBit} * kPowers[precision];
  const Wide whole = scaled >> shift;
  if (whole >= UINT64_MAX) {
    return false;
  }
  const Wide rest = scaled - (whole << shift);
  const Wide half = Wide{1} << (shift - 1);
  const bool up = rest > half || (rest == half && (whole & 1) != 0);
  *digits = static_cast<uint64_t>(whole) + (up ? 1 : 0);
  return true;
}

// Writes digits with the last `precision` of them behind the point.
Decimal WriteFixed(BsdOutput *out, uint64_t digits, size_t precision) {
  constexpr size_t kRoom = 1 + kPowers.size() + 1 + kPowers.size();
  char *end = BsdOutput_Scratch(out, kRoom) + kRoom;
  Decimal decimal;
  decimal.numFraction = precision;
  if (precision > 0) {
    const char *fraction = end - precision;
    end = WriteDecimal(end, digits % kPowers[precision]);
    while (end > fraction) {
      *--end = '0';
    }
    *--end = '.';
  }
  decimal.text = WriteDecimal(end, digits / kPowers[precision]);
  decimal.numInteger = static_cast<size_t>(end - decimal.text);
  return decimal;
}

Decimal ConvertFixed(BsdOutput *out, double magnitude, size_t precision) {
  uint64_t digits = 0;
  if (ScaleExactly(magnitude, precision, &digits)) {
    return WriteFixed(out, digits, precision);
  }
  return Convert(out, magnitude, std::chars_format::fixed, precision, kFractionDigits);
}

Decimal ConvertScientific(BsdOutput *out, double magnitude, size_t precision) {
  return Convert(out, magnitude, std::chars_format::scientific, precision, kSignificantDigits - 1);
}

void CutTrailingZeros(Decimal *decimal) {
  const char *exponent = decimal->Exponent();
  while (decimal->numFraction > 0 && decimal->Fraction()[decimal->numFraction - 1] == '0') {
    decimal->numFraction--;
  }
  memmove(decimal->Exponent(), exponent, decimal->numExponent);
  decimal->zeros = 0;
}

int ReadExponent(const Decimal &decimal) {
  const char *sign = decimal.Exponent() + 1;
  int exponent = 0;
  std::from_chars(sign + 1, decimal.text + decimal.Length(), exponent);
  return *sign == '-' ? -exponent : exponent;
}

// Turns "d.ddd" with an exponent into the same value without one.
void SetPoint(Decimal *decimal, int exponent) {
  char *text = decimal->text;
  decimal->numExponent = 0;
  if (exponent >= 0) {
    const auto moved = static_cast<size_t>(exponent);
    memmove(text + 1, text + 2, moved);
    text[moved + 1] = '.';
    decimal->numInteger += moved;
    decimal->numFraction -= moved;
    return;
  }
  const auto zeros = static_cast<size_t>(-exponent);
  const char first = *text;
  memmove(text + zeros + 2, text + 2, decimal->numFraction);
  memset(text, '0', zeros + 1);
  text[1] = '.';
  text[zeros + 1] = first;
  decimal->numFraction += zeros;
}

Decimal ConvertGeneral(BsdOutput *out, double magnitude, size_t precision, bool keepZeros) {
  const size_t digits = std::max<size_t>(precision, 1);
  Decimal decimal = ConvertScientific(out, magnitude, digits - 1);
  const int exponent = ReadExponent(decimal);
  if (exponent >= -4 && exponent < static_cast<int64_t>(digits)) {
    SetPoint(&decimal, exponent);
  }
  if (!keepZeros) {
    CutTrailingZeros(&decimal);
  }
  return decimal;
}

Decimal ConvertDouble(BsdOutput *out, const BsdOutput_Spec &spec, double magnitude) {
  const size_t precision = spec.precision < 0 ? 6 : static_cast<size_t>(spec.precision);
  switch (spec.conversion) {
    case 'f':
    case 'F':
      return ConvertFixed(out, magnitude, precision);
    case 'e':
    case 'E':
      return ConvertScientific(out, magnitude, precision);
    default:
      return ConvertGeneral(out, magnitude, precision, spec.alternate);
  }
}

// In pieces, since it isn't as it stands in the scratch.
void PutSplit(BsdOutput *out, const BsdOutput_Spec &spec, const Decimal &decimal, size_t signLength,
              const char *point, const Groups *groups) {
  const size_t pointLength = strlen(point);
  const size_t length = signLength + decimal.numInteger + SeparatorBytes(groups) + pointLength +
                        decimal.numFraction + decimal.zeros + decimal.numExponent;
  PutFront(out, spec, spec.zero, decimal.text - signLength, signLength, length);
  PutDigits(out, groups, decimal.text, decimal.numInteger);
  BsdOutput_Add(out, point, pointLength);
  BsdOutput_Add(out, decimal.Fraction(), decimal.numFraction);
  BsdOutput_Pad(out, BSDOUTPUT_ZEROS, decimal.zeros);
  BsdOutput_Add(out, decimal.Exponent(), decimal.numExponent);
  PutBack(out, spec, length);
}

void PutWhole(BsdOutput *out, const BsdOutput_Spec &spec, const Decimal &decimal, size_t signLength) {
  const size_t length = signLength + decimal.Length();
  if (spec.width <= length) {
    BsdOutput_AddPiece(out, decimal.text - signLength, length);
    return;
  }
  PutFront(out, spec, spec.zero, decimal.text - signLength, signLength, length);
  BsdOutput_Add(out, decimal.text, decimal.Length());
  PutBack(out, spec, length);
}

void PutFinite(BsdOutput *out, const BsdOutput_Spec &spec, double value) {
  const Decimal decimal = ConvertDouble(out, spec, std::fabs(value));
  BsdOutput_TrimScratch(out, decimal.text + decimal.Length());
  if (decimal.numExponent > 0 && (spec.conversion == 'E' || spec.conversion == 'G')) {
    *decimal.Exponent() = 'E';
  }
  const char sign = SignOf(spec, std::signbit(value));
  const size_t signLength = sign == '\0' ? 0 : 1;
  decimal.text[-1] = sign;
  const bool pointed = decimal.numFraction > 0 || spec.alternate;
  const char *point = pointed ? localeconv()->decimal_point : "";
  const bool standsInText = decimal.numFraction > 0 ? strcmp(point, ".") == 0 : !pointed;
  if (spec.group) {
    const Groups groups(decimal.numInteger);
    PutSplit(out, spec, decimal, signLength, point, &groups);
  } else if (!standsInText || decimal.zeros > 0) {
    PutSplit(out, spec, decimal, signLength, point, nullptr);
  } else {
    PutWhole(out, spec, decimal, signLength);
  }
}

// Infinity, or no number, which has no sign.
void PutNonFinite(BsdOutput *out, const BsdOutput_Spec &spec, double value) {
  const bool upper = spec.conversion >= 'A' && spec.conversion <= 'Z';
  const bool infinite = std::isinf(value);
  const char sign = infinite ? SignOf(spec, value < 0) : '\0';
  const std::string_view name = infinite ? upper ? "INF" : "inf" : upper ? "NAN" : "nan";
  char *text = BsdOutput_Scratch(out, 1 + name.size());
  *text = sign;
  char *end = std::copy(name.begin(), name.end(), sign == '\0' ? text : text + 1);
  BsdOutput_TrimScratch(out, end);
  BsdOutput_Spec blank = spec;
  blank.zero = false;
  PutText(out, blank, text, static_cast<size_t>(end - text));
}

void PutDouble(BsdOutput *out, const BsdOutput_Spec &spec, double value) {
  if (std::isfinite(value)) {
    PutFinite(out, spec, value);
  } else {
    PutNonFinite(out, spec, value);
  }
}

// ---- Strings

void PutString(BsdOutput *out, const BsdOutput_Spec &spec, const char *text) {
  if (text == nullptr) {
    text = "(null)";
  }
  if (spec.precision < 0) {
    PutText(out, spec, text, strlen(text));
    return;
  }
  const auto limit = static_cast<size_t>(spec.precision);
  const size_t length = strnlen(text, limit);
  PutText(out, spec, text, length < limit ? length : Utf8_LenientWholeLength(text, length));
}

// How much of a wide string is printed.
struct WideExtent {
  size_t characters = 0;
  size_t bytes = 0;
};

// The whole string, or what fits into `limit` bytes; nothing behind that is read. Returns false when a
// character is none.
bool MeasureWide(const wchar_t *text, size_t limit, WideExtent *extent) {
  while (extent->bytes < limit && text[extent->characters] != L'\0') {
    const size_t size = Utf8_LenientSize(static_cast<char32_t>(text[extent->characters]));
    if (size == 0) {
      return false;
    }
    if (size > limit - extent->bytes) {
      break;
    }
    extent->bytes += size;
    extent->characters++;
  }
  return true;
}

void PutWideCharacters(BsdOutput *out, const wchar_t *text, size_t characters) {
  constexpr size_t kAtOnce = 64;
  while (characters > 0 && !out->failed) {
    const size_t now = std::min(characters, kAtOnce);
    char *bytes = BsdOutput_Scratch(out, now * UTF8_LONGEST);
    char *end = bytes;
    for (size_t i = 0; i < now; i++) {
      end += Utf8_LenientEncode(static_cast<char32_t>(text[i]), end);
    }
    BsdOutput_TrimScratch(out, end);
    BsdOutput_Add(out, bytes, static_cast<size_t>(end - bytes));
    text += now;
    characters -= now;
  }
}

void PutWideString(BsdOutput *out, const BsdOutput_Spec &spec, const wchar_t *text) {
  if (text == nullptr) {
    PutString(out, spec, nullptr);
    return;
  }
  const size_t limit = spec.precision < 0 ? SIZE_MAX : static_cast<size_t>(spec.precision);
  WideExtent extent;
  if (!MeasureWide(text, limit, &extent)) {
    out->failed = true;
    return;
  }
  PutFront(out, spec, spec.zero, nullptr, 0, extent.bytes);
  PutWideCharacters(out, text, extent.characters);
  PutBack(out, spec, extent.bytes);
}

void PutWideCharacter(BsdOutput *out, const BsdOutput_Spec &spec, char32_t character) {
  char *bytes = BsdOutput_Scratch(out, UTF8_LONGEST);
  const size_t size = Utf8_LenientEncode(character, bytes);
  if (size == 0) {
    out->failed = true;
    return;
  }
  PutText(out, spec, bytes, size);
}

// Stores how much there is up to now, in the width that the length modifier tells.
void StoreCount(BsdOutput *out, BsdOutput_Length length, void *target) {
  BsdOutput_Flush(out);
  switch (IntegerSize(length)) {
    case sizeof(int8_t):
      *static_cast<int8_t *>(target) = static_cast<int8_t>(out->total);
      break;
    case sizeof(int16_t):
      *static_cast<int16_t *>(target) = static_cast<int16_t>(out->total);
      break;
    case sizeof(int32_t):
      *static_cast<int32_t *>(target) = static_cast<int32_t>(out->total);
      break;
    default:
      *static_cast<int64_t *>(target) = static_cast<int64_t>(out->total);
  }
}

}  // namespace

void BsdOutput_Print(BsdOutput *out, const BsdOutput_Spec &spec, const BsdOutput_Value &value) {
  switch (spec.conversion) {
    case 'd':
    case 'i':
      PutSigned(out, spec, value.integer);
      break;
    case 'u':
      PutDecimal(out, spec, AsUnsigned(value.integer, spec.length), '\0');
      break;
    case 'o':
      PutOctal(out, spec, AsUnsigned(value.integer, spec.length));
      break;
    case 'x':
    case 'X':
      PutHexadecimal(out, spec, AsUnsigned(value.integer, spec.length), spec.alternate,
                     spec.conversion == 'X');
      break;
    case 'p':
      PutHexadecimal(out, spec, reinterpret_cast<uintptr_t>(value.pointer), false, true);
      break;
    case 'e':
    case 'E':
    case 'f':
    case 'F':
    case 'g':
    case 'G':
      PutDouble(out, spec, value.real);
      break;
    case 'c':
      if (BsdOutput_IsWide(spec)) {
        PutWideCharacter(out, spec, static_cast<char32_t>(value.integer));
      } else {
        PutByte(out, spec, static_cast<char>(value.integer));
      }
      break;
    case 's':
      if (BsdOutput_IsWide(spec)) {
        PutWideString(out, spec, static_cast<const wchar_t *>(value.pointer));
      } else {
        PutString(out, spec, static_cast<const char *>(value.pointer));
      }
      break;
    case 'n':
      StoreCount(out, spec.length, const_cast<void *>(value.pointer));
      break;
    default:
      PutByte(out, spec, spec.conversion);
  }
}
