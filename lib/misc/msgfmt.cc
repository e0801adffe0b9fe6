#include "msgfmt.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <cstring>
#include <string_view>

#include "panicUser.h"

namespace {

bool IsDigit(char byte) {
  return byte >= '0' && byte <= '9';
}

const char *SkipDigits(const char *text) {
  while (IsDigit(*text)) {
    text++;
  }
  return text;
}

// ---- Walking a format

struct Specifier {
  std::string_view position;
  std::string_view type;
};

struct Callbacks {
  MsgFmt_LiteralCallback literal;
  MsgFmt_SpecifierCallback specifier;
  void *clientData;

  // Both return 0 or a negative status.
  [[nodiscard]] int Literal(const char *begin, const char *end) const {
    return literal == nullptr ? 0 : std::min(literal(clientData, begin, static_cast<size_t>(end - begin)), 0);
  }
  [[nodiscard]] int LiteralAndSpecifier(const char *begin, const char *end, const Specifier &spec) const {
    const int status = Literal(begin, end);
    if (status < 0 || specifier == nullptr) {
      return status;
    }
    const auto [position, type] = spec;
    return std::min(specifier(clientData, position.data(), position.size(), type.data(), type.size()), 0);
  }
};

enum class ByteClass : unsigned char { OTHER, WITHIN, CONVERSION };

// What a byte is behind the position of a specifier.
constexpr auto kClasses = [] {
  std::array<ByteClass, UCHAR_MAX + 1> classes{};
  const auto set = [&classes](std::string_view bytes, ByteClass byteClass) {
    for (const char byte : bytes) {
      classes[static_cast<unsigned char>(byte)] = byteClass;
    }
  };
  set("0123456789.#- +'LlhzZtqjI", ByteClass::WITHIN);
  set("ACEFGSXacdefginopsux", ByteClass::CONVERSION);
  return classes;
}();

ByteClass ClassOf(char byte) {
  return kClasses[static_cast<unsigned char>(byte)];
}

// Reads a specifier from the byte behind its "%"; the position may be missing. Returns where it ends, null
// when it is none.
const char *ReadSpecifier(const char *text, Specifier *spec) {
  spec->position = {};
  if (IsDigit(*text) && *text != '0') {
    // Digits that no "$" ends are a width.
    const char *end = SkipDigits(text);
    if (*end == '$') {
      spec->position = {text, end};
      text = end + 1;
    }
  }
  const char *last = text;
  while (ClassOf(*last) == ByteClass::WITHIN) {
    last++;
  }
  spec->type = {text, last + 1};
  return ClassOf(*last) == ByteClass::CONVERSION ? last + 1 : nullptr;
}

// Tells the specifiers of a format their positions.
class Numbering {
 public:
  // Returns false for one that tells its position when others don't, or the other way round.
  bool Number(Specifier *spec) {
    const bool positional = !spec->position.empty();
    if (count_ == 0) {
      positional_ = positional;
    }
    count_++;
    if (!positional) {
      const char *end = std::to_chars(digits_, digits_ + sizeof digits_, count_).ptr;
      spec->position = {digits_, end};
    }
    return positional == positional_;
  }

 private:
  unsigned count_ = 0;
  bool positional_ = false;
  char digits_[10];
};

// Reads a specifier of the Win32 form from its position on. Returns where it ends, null when it doesn't.
const char *ReadWin32Specifier(const char *text, Specifier *spec) {
  const char *end = SkipDigits(text);
  *spec = {{text, end}, "s"};
  if (*end != '!') {
    return end;
  }
  const char *close = strchr(end + 1, '!');
  if (close == nullptr) {
    return nullptr;
  }
  spec->type = {end + 1, close};
  return close + 1;
}

// ---- Reading a specifier

// Takes a number off the front of a text, where a digit must be. Returns false when it has more than 31 bits.
bool TakeNumber(std::string_view *text, int *number) {
  // Most positions and widths are one digit.
  if (text->size() == 1 || !IsDigit((*text)[1])) {
    *number = text->front() - '0';
    text->remove_prefix(1);
    return true;
  }
  const std::from_chars_result result = std::from_chars(text->data(), text->data() + text->size(), *number);
  text->remove_prefix(static_cast<size_t>(result.ptr - text->data()));
  return result.ec == std::errc();
}

bool BeginsWithDigit(std::string_view text) {
  return !text.empty() && IsDigit(text.front());
}

unsigned FlagOf(char byte) {
  switch (byte) {
    case ' ':
      return MSGFMT_FLAG_SPACE;
    case '#':
      return MSGFMT_FLAG_ALTERNATE;
    case '\'':
      return MSGFMT_FLAG_GROUP;
    case '+':
      return MSGFMT_FLAG_PLUS;
    case '-':
      return MSGFMT_FLAG_LEFT;
    case '0':
      return MSGFMT_FLAG_ZERO;
    default:
      return 0;
  }
}

unsigned TakeFlags(std::string_view *text) {
  unsigned flags = 0;
  while (!text->empty() && FlagOf(text->front()) != 0) {
    flags |= FlagOf(text->front());
    text->remove_prefix(1);
  }
  return flags;
}

bool TakeWidth(std::string_view *text, int *width) {
  *width = -1;
  return !BeginsWithDigit(*text) || TakeNumber(text, width);
}

bool TakePrecision(std::string_view *text, int *precision) {
  *precision = -1;
  if (!text->starts_with('.')) {
    return true;
  }
  text->remove_prefix(1);
  *precision = 0;
  return !BeginsWithDigit(*text) || TakeNumber(text, precision);
}

char TakeLengthModifier(std::string_view *text) {
  struct Modifier {
    std::string_view spelling;
    char letter;
  };
  // What another begins with comes after that.
  static constexpr Modifier kModifiers[] = {{"I64", 'L'}, {"I32", '\0'}, {"I", 'z'}, {"Z", 'z'}, {"z", 'z'},
                                            {"ll", 'L'},  {"l", 'l'},    {"q", 'L'}, {"L", 'L'}, {"hh", 'H'},
                                            {"h", 'h'},   {"j", 'j'},    {"t", 't'}};
  // Most have none.
  if (!text->empty() && ClassOf(text->front()) == ByteClass::CONVERSION) {
    return '\0';
  }
  for (const Modifier &modifier : kModifiers) {
    if (text->starts_with(modifier.spelling)) {
      text->remove_prefix(modifier.spelling.size());
      return modifier.letter;
    }
  }
  return '\0';
}

bool ReadPosition(std::string_view text, int *position) {
  return BeginsWithDigit(text) && TakeNumber(&text, position) && text.empty() && *position >= 1;
}

}  // namespace

int MsgFmt_Parse(MsgFmt_LiteralCallback literalCallback, MsgFmt_SpecifierCallback specifierCallback,
                 void *clientData, const char *format) {
  const Callbacks callbacks = {literalCallback, specifierCallback, clientData};
  Numbering numbering;
  const char *text = format;
  const char *percent = strchrnul(text, '%');
  for (; *percent != '\0'; percent = strchrnul(text, '%')) {
    int status = 0;
    if (percent[1] == '%') {
      status = callbacks.Literal(text, percent + 1);
      text = percent + 2;
    } else {
      Specifier spec;
      const char *end = ReadSpecifier(percent + 1, &spec);
      if (end == nullptr || !numbering.Number(&spec)) {
        return MSGFMT_BAD_FORMAT;
      }
      status = callbacks.LiteralAndSpecifier(text, percent, spec);
      text = end;
    }
    if (status < 0) {
      return status;
    }
  }
  return callbacks.Literal(text, percent);
}

int MsgFmt_ParseWin32(MsgFmt_LiteralCallback literalCallback, MsgFmt_SpecifierCallback specifierCallback,
                      void *clientData, const char *format) {
  const Callbacks callbacks = {literalCallback, specifierCallback, clientData};
  const char *text = format;
  const char *percent = strchrnul(text, '%');
  while (*percent != '\0') {
    const char next = percent[1];
    if (next == '\0') {
      return MSGFMT_BAD_FORMAT;
    }
    if (next == 'n' || next == '0') {
      NOT_IMPLEMENTED();
    }
    if (!IsDigit(next)) {
      percent = strchrnul(percent + 2, '%');
      continue;
    }
    Specifier spec;
    const char *end = ReadWin32Specifier(percent + 1, &spec);
    if (end == nullptr) {
      return MSGFMT_BAD_FORMAT;
    }
    const int status = callbacks.LiteralAndSpecifier(text, percent, spec);
    if (status < 0) {
      return status;
    }
    text = end;
    percent = strchrnul(text, '%');
  }
  return callbacks.Literal(text, percent);
}

int MsgFmt_ParseSpec(const char *position, size_t positionLength, const char *type, size_t typeLength,
                     int *outPosition, unsigned *outFlags, int *outWidth, int *outPrecision,
                     char *outLengthModifier, char *outConversion) {
  if (!ReadPosition({position, positionLength}, outPosition)) {
    return MSGFMT_BAD_FORMAT;
  }
  std::string_view rest(type, typeLength);
  *outFlags = TakeFlags(&rest);
  if (!TakeWidth(&rest, outWidth) || !TakePrecision(&rest, outPrecision)) {
    return MSGFMT_BAD_FORMAT;
  }
  *outLengthModifier = TakeLengthModifier(&rest);
  if (rest.size() != 1) {
    return MSGFMT_BAD_FORMAT;
  }
  *outConversion = rest.front();
  return 0;
}
