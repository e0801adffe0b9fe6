#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "bsd_output_vectorInt.h"

namespace {

bool IsDigit(char byte) {
  return byte >= '0' && byte <= '9';
}

// Reads digits, of which there may be none: then the number is 0. Returns where they end, null on overflow.
const char *ParseNumber(const char *text, int *number) {
  int64_t value = 0;
  for (; IsDigit(*text); text++) {
    value = value * 10 + (*text - '0');
    if (value > INT_MAX) {
      return nullptr;
    }
  }
  *number = static_cast<int>(value);
  return text;
}

// Reads a position, if there is one: digits that end in "$". Returns null when it is out of range.
const char *ParsePosition(const char *text, int *position) {
  int number = 0;
  const char *end = ParseNumber(text, &number);
  if (end == nullptr) {
    return nullptr;
  }
  if (end == text || *end != '$') {
    return text;
  }
  *position = number;
  return number > 0 && number <= NL_ARGMAX ? end + 1 : nullptr;
}

const char *ParseFlags(const char *text, BsdOutput_Spec *spec) {
  for (;; text++) {
    switch (*text) {
      case '-':
        spec->left = true;
        break;
      case '+':
        spec->plus = true;
        break;
      case ' ':
        spec->space = true;
        break;
      case '#':
        spec->alternate = true;
        break;
      case '0':
        spec->zero = true;
        break;
      case '\'':
        spec->group = true;
        break;
      default:
        return text;
    }
  }
}

const char *ParseWidth(const char *text, BsdOutput_Spec *spec) {
  if (*text == '*') {
    spec->widthFrom = BSDOUTPUT_NEXT;
    return ParsePosition(text + 1, &spec->widthFrom);
  }
  int width = 0;
  text = ParseNumber(text, &width);
  spec->width = static_cast<size_t>(width);
  return text;
}

// From the byte behind the point.
const char *ParsePrecision(const char *text, BsdOutput_Spec *spec) {
  if (*text == '*') {
    spec->precisionFrom = BSDOUTPUT_NEXT;
    return ParsePosition(text + 1, &spec->precisionFrom);
  }
  return ParseNumber(text, &spec->precision);
}

const char *ParseLength(const char *text, BsdOutput_Length *length) {
  const auto found = [text, length](BsdOutput_Length what, size_t size) {
    *length = what;
    return text + size;
  };
  switch (*text) {
    case 'h':
      return text[1] == 'h' ? found(BsdOutput_Length::CHAR, 2) : found(BsdOutput_Length::SHORT, 1);
    case 'l':
      return text[1] == 'l' ? found(BsdOutput_Length::LONG_LONG, 2) : found(BsdOutput_Length::LONG, 1);
    case 'L':
    case 'q':
      return found(BsdOutput_Length::LONG_LONG, 1);
    case 'j':
      return found(BsdOutput_Length::MAX, 1);
    case 't':
      return found(BsdOutput_Length::PTRDIFF, 1);
    case 'z':
    case 'Z':
      return found(BsdOutput_Length::SIZE, 1);
    case 'I':
      if (strncmp(text, "I64", 3) == 0) {
        return found(BsdOutput_Length::LONG_LONG, 3);
      }
      return strncmp(text, "I32", 3) == 0 ? found(BsdOutput_Length::NONE, 3)
                                          : found(BsdOutput_Length::SIZE, 1);
    default:
      return text;
  }
}

// The kind of a value by its conversion, when there is no length modifier.
constexpr auto kPlainKinds = [] {
  std::array<BsdOutput_Kind, 256> kinds{};
  const auto set = [&kinds](std::string_view conversions, BsdOutput_Kind kind) {
    for (const char conversion : conversions) {
      kinds[static_cast<unsigned char>(conversion)] = kind;
    }
  };
  set("diouxXc", BsdOutput_Kind::INT);
  set("spn", BsdOutput_Kind::POINTER);
  set("eEfFgG", BsdOutput_Kind::DOUBLE);
  return kinds;
}();

inline BsdOutput_Kind PlainKind(char conversion) {
  return kPlainKinds[static_cast<unsigned char>(conversion)];
}

BsdOutput_Kind IntegerKind(BsdOutput_Length length) {
  switch (length) {
    case BsdOutput_Length::NONE:
    case BsdOutput_Length::CHAR:
    case BsdOutput_Length::SHORT:
      return BsdOutput_Kind::INT;
    case BsdOutput_Length::LONG_LONG:
    case BsdOutput_Length::MAX:
      return BsdOutput_Kind::LONG_LONG;
    default:
      return BsdOutput_Kind::LONG;
  }
}

BsdOutput_Kind KindOf(char conversion, BsdOutput_Length length) {
  const BsdOutput_Kind kind = PlainKind(conversion);
  if (kind == BsdOutput_Kind::INT && conversion != 'c') {
    return IntegerKind(length);
  }
  const bool longer = kind == BsdOutput_Kind::DOUBLE && length == BsdOutput_Length::LONG_LONG;
  return longer ? BsdOutput_Kind::LONG_DOUBLE : kind;
}

inline const char *ParseConversion(const char *text, BsdOutput_Spec *spec) {
  spec->conversion = *text;
  if (*text == 'D' || *text == 'O' || *text == 'U' || *text == 'S' || *text == 'C') {
    spec->length = BsdOutput_Length::LONG;
    spec->conversion = static_cast<char>(*text - 'A' + 'a');
  }
  spec->kind = KindOf(spec->conversion, spec->length);
  return *text == '\0' ? text : text + 1;
}

// What stands between the "%" and the length modifier.
const char *ParseFront(const char *text, BsdOutput_Spec *spec) {
  if (IsDigit(*text) && *text != '0') {
    text = ParsePosition(text, &spec->position);
    if (text == nullptr || *text >= 'A') {
      return text;
    }
  }
  text = ParseWidth(ParseFlags(text, spec), spec);
  return text != nullptr && *text == '.' ? ParsePrecision(text + 1, spec) : text;
}

[[gnu::noinline]] const char *ParseLongSpec(const char *text, BsdOutput_Spec *spec) {
  // Flags, digits, points and stars are all below the letters.
  if (*text < 'A') {
    text = ParseFront(text, spec);
    if (text == nullptr) {
      return nullptr;
    }
  }
  return ParseConversion(ParseLength(text, &spec->length), spec);
}

// Most specifications are a letter alone.
inline const char *ParseSpec(const char *text, BsdOutput_Spec *spec) {
  *spec = {};
  const BsdOutput_Kind kind = PlainKind(*text);
  if (kind == BsdOutput_Kind::NONE) {
    return ParseLongSpec(text, spec);
  }
  spec->kind = kind;
  spec->conversion = *text;
  return text + 1;
}

}  // namespace

const char *BsdOutput_ParseSpec(const char *text, BsdOutput_Spec *spec) {
  return ParseSpec(text, spec);
}

const char *BsdOutput_NextSpec(BsdOutput *out, const char *format, BsdOutput_Spec *spec) {
  if (out->failed) {
    return nullptr;
  }
  const char *percent = *format == '%' ? format : strchrnul(format, '%');
  BsdOutput_Add(out, format, static_cast<size_t>(percent - format));
  if (*percent == '\0') {
    return nullptr;
  }
  const char *end = ParseSpec(percent + 1, spec);
  if (end == nullptr) {
    out->failed = true;
    return nullptr;
  }
  return spec->conversion == '\0' ? nullptr : end;
}

void BsdOutput_SetWidth(BsdOutput_Spec *spec, int width) {
  spec->left = spec->left || width < 0;
  spec->width = static_cast<size_t>(std::abs(static_cast<int64_t>(width)));
}

void BsdOutput_SetPrecision(BsdOutput_Spec *spec, int precision) {
  spec->precision = std::max(precision, -1);
}
