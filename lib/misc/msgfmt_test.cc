#include "msgfmt.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "panics.h"

namespace {

using Parse = decltype(&MsgFmt_Parse);

// What a walk gave: "[text]" and "{position:specifier}" in order.
struct Walk {
  std::string parts;
  int literalResult = 0;
  int specifierResult = 0;
};

int TakeLiteral(void *clientData, const char *text, size_t length) {
  auto *walk = static_cast<Walk *>(clientData);
  walk->parts.append("[").append(text, length).append("]");
  return walk->literalResult;
}

int TakeSpecifier(void *clientData, const char *position, size_t positionLength, const char *type,
                  size_t typeLength) {
  auto *walk = static_cast<Walk *>(clientData);
  walk->parts.append("{").append(position, positionLength).append(":");
  walk->parts.append(type, typeLength).append("}");
  return walk->specifierResult;
}

std::string Parts(const std::string &format, Parse parse = MsgFmt_Parse) {
  Walk walk;
  const int status = parse(TakeLiteral, TakeSpecifier, &walk, format.c_str());
  return status == 0 ? walk.parts : "status " + std::to_string(status);
}

int Status(const std::string &format, Parse parse = MsgFmt_Parse) {
  return parse(nullptr, nullptr, nullptr, format.c_str());
}

// ---- The plain form

TEST(MsgFmtParse, CutsAFormatIntoTextAndSpecifiers) {
  EXPECT_EQ(Parts(""), "[]");
  EXPECT_EQ(Parts("plain"), "[plain]");
  EXPECT_EQ(Parts("a%sb%dc"), "[a]{1:s}[b]{2:d}[c]");
  EXPECT_EQ(Parts("%s%s"), "[]{1:s}[]{2:s}[]");
  EXPECT_EQ(Parts("%2$s %1$s"), "[]{2:s}[ ]{1:s}[]");
  EXPECT_EQ(Parts("%12$-5.3ld\n"), "[]{12:-5.3ld}[\n]");
}

TEST(MsgFmtParse, KeepsOnePercentOfTwo) {
  EXPECT_EQ(Parts("100%%"), "[100%][]");
  EXPECT_EQ(Parts("%%%%"), "[%][%][]");
  EXPECT_EQ(Parts("%%%d%%d"), "[%][]{1:d}[%][d]");
}

TEST(MsgFmtParse, TakesDigitsWithoutADollarForAWidth) {
  EXPECT_EQ(Parts("%5d"), "[]{1:5d}[]");
  EXPECT_EQ(Parts("%05d"), "[]{1:05d}[]");
  EXPECT_EQ(Parts("%10.2f"), "[]{1:10.2f}[]");
}

TEST(MsgFmtParse, KnowsItsConversionsAndNoOthers) {
  const std::string_view conversions = "ACEFGSXacdefginopsux";
  const std::string_view within = "0123456789.#- +'LlhzZtqjI";
  for (int byte = 1; byte < 256; byte++) {
    const char letter = static_cast<char>(byte);
    const bool known = conversions.find(letter) != std::string_view::npos || letter == '%';
    EXPECT_EQ(Status(std::string("%") + letter), known ? 0 : -2) << byte;
    const bool stays = within.find(letter) != std::string_view::npos;
    EXPECT_EQ(Status(std::string("% ") + letter + "d"), stays || (known && letter != '%') ? 0 : -2) << byte;
  }
}

TEST(MsgFmtParse, RefusesWhatIsNoSpecifier) {
  for (const char *format : {"%",   "100%", "%5%",     "%1$", "%5", "%-", "%1$%", "%1$2$s", "%0$s", "%01$s",
                             "%*d", "%.*f", "%2$*1$d", "%y",  "%D", "%O", "%U",   "%m",     "% %",  "%s%"}) {
    EXPECT_EQ(Status(format), -2) << format;
  }
}

TEST(MsgFmtParse, RefusesPositionsThatNotAllSpecifiersTell) {
  EXPECT_EQ(Status("%1$s %s"), -2);
  EXPECT_EQ(Status("%s %1$s"), -2);
  EXPECT_EQ(Status("%1$s %2$s %s"), -2);
  EXPECT_EQ(Status("%1$s %% %1$s"), 0);
}

TEST(MsgFmtParse, HandsOutNothingOfASpecifierThatItRefuses) {
  Walk walk;
  EXPECT_EQ(MsgFmt_Parse(TakeLiteral, TakeSpecifier, &walk, "a%sb%y"), -2);
  EXPECT_EQ(walk.parts, "[a]{1:s}");
  walk.parts.clear();
  EXPECT_EQ(MsgFmt_Parse(TakeLiteral, TakeSpecifier, &walk, "a%sb%2$s"), -2);
  EXPECT_EQ(walk.parts, "[a]{1:s}");
}

TEST(MsgFmtParse, EndsWithTheNegativeResultOfACallback) {
  for (const Parse parse : {MsgFmt_Parse, MsgFmt_ParseWin32}) {
    const char *format = parse == MsgFmt_Parse ? "a%1$sb" : "a%1b";
    Walk walk;
    walk.literalResult = -7;
    EXPECT_EQ(parse(TakeLiteral, TakeSpecifier, &walk, format), -7);
    EXPECT_EQ(walk.parts, "[a]");
    walk = {};
    walk.specifierResult = -8;
    EXPECT_EQ(parse(TakeLiteral, TakeSpecifier, &walk, format), -8);
    EXPECT_EQ(walk.parts, "[a]{1:s}");
    walk = {};
    walk.literalResult = 1;
    walk.specifierResult = 2;
    EXPECT_EQ(parse(TakeLiteral, TakeSpecifier, &walk, format), 0);
    EXPECT_EQ(walk.parts, "[a]{1:s}[b]");
  }
  Walk walk;
  walk.literalResult = -9;
  EXPECT_EQ(MsgFmt_Parse(TakeLiteral, nullptr, &walk, "a%%b"), -9);
  EXPECT_EQ(walk.parts, "[a%]");
  EXPECT_EQ(MsgFmt_Parse(TakeLiteral, nullptr, &walk, "text"), -9);
}

TEST(MsgFmtParse, NeedsNoCallback) {
  Walk walk;
  EXPECT_EQ(MsgFmt_Parse(TakeLiteral, nullptr, &walk, "a%sb"), 0);
  EXPECT_EQ(walk.parts, "[a][b]");
  walk.parts.clear();
  EXPECT_EQ(MsgFmt_Parse(nullptr, TakeSpecifier, &walk, "a%sb"), 0);
  EXPECT_EQ(walk.parts, "{1:s}");
}

TEST(MsgFmtParse, CountsAMillionSpecifiers) {
  std::string format;
  for (int i = 0; i < 1000000; i++) {
    format += "%d";
  }
  std::string last;
  const auto keepLast = [](void *clientData, const char *position, size_t length, const char *, size_t) {
    static_cast<std::string *>(clientData)->assign(position, length);
    return 0;
  };
  EXPECT_EQ(MsgFmt_Parse(nullptr, keepLast, &last, format.c_str()), 0);
  EXPECT_EQ(last, "1000000");
}

TEST(MsgFmtParse, WalksAHundredMegabytes) {
  const std::string text(100 << 20, 'x');
  EXPECT_EQ(Parts(text).size(), text.size() + 2);
  EXPECT_EQ(Status("%" + std::string(100 << 20, '1') + "$s"), 0);
  EXPECT_EQ(Status("%" + std::string(100 << 20, '-')), -2);
}

// The walk as a machine that looks at one byte after the other.
class Machine {
 public:
  explicit Machine(std::string format) : format_(std::move(format)) {}

  std::string Run() {
    for (size_t i = 0; i < format_.size(); i++) {
      if (!Step(i)) {
        return "status -2";
      }
    }
    return state_ == State::TEXT ? parts_ + "[" + format_.substr(text_) + "]" : "status -2";
  }

 private:
  enum class State { TEXT, PERCENT, POSITION, SPECIFIER };

  bool Step(size_t i) {
    const char byte = format_[i];
    switch (state_) {
      case State::TEXT:
        percent_ = i;
        state_ = byte == '%' ? State::PERCENT : State::TEXT;
        return true;
      case State::PERCENT:
        return StepBehindPercent(i);
      case State::POSITION:
        if (byte >= '0' && byte <= '9') {
          return true;
        }
        state_ = State::SPECIFIER;
        if (byte == '$') {
          specifier_ = i + 1;
          return true;
        }
        return StepInSpecifier(i);
      default:
        return StepInSpecifier(i);
    }
  }

  bool StepBehindPercent(size_t i) {
    if (format_[i] == '%') {
      parts_ += "[" + format_.substr(text_, i - text_) + "]";
      text_ = i + 1;
      state_ = State::TEXT;
      return true;
    }
    position_ = specifier_ = i;
    if (format_[i] >= '1' && format_[i] <= '9') {
      state_ = State::POSITION;
      return true;
    }
    state_ = State::SPECIFIER;
    return StepInSpecifier(i);
  }

  bool StepInSpecifier(size_t i) {
    if (strchr("0123456789.#- +'LlhzZtqjI", format_[i]) != nullptr) {
      return true;
    }
    return strchr("ACEFGSXacdefginopsux", format_[i]) != nullptr && Finish(i + 1);
  }

  bool Finish(size_t end) {
    const bool positional = specifier_ != position_;
    if (++count_ > 1 && positional != positional_) {
      return false;
    }
    positional_ = positional;
    const std::string position =
        positional ? format_.substr(position_, specifier_ - 1 - position_) : std::to_string(count_);
    parts_ += "[" + format_.substr(text_, percent_ - text_) + "]{" + position + ":" +
              format_.substr(specifier_, end - specifier_) + "}";
    text_ = end;
    state_ = State::TEXT;
    return true;
  }

  std::string format_;
  std::string parts_;
  State state_ = State::TEXT;
  size_t text_ = 0;
  size_t percent_ = 0;
  size_t position_ = 0;
  size_t specifier_ = 0;
  int count_ = 0;
  bool positional_ = false;
};

TEST(MsgFmtParse, IsTheMachineOnAllShortFormats) {
  const std::string_view bytes = "%10$s.lx";
  const size_t kLongest = 7;
  std::vector<size_t> digits;
  int accepted = 0;
  while (digits.size() <= kLongest) {
    std::string format;
    for (const size_t digit : digits) {
      format += bytes[digit];
    }
    const std::string got = Parts(format);
    accepted += got.starts_with('[') ? 1 : 0;
    if (got != Machine(format).Run()) {
      ADD_FAILURE() << format << " gives " << got << ", not " << Machine(format).Run();
    }
    size_t i = 0;
    while (i < digits.size() && ++digits[i] == bytes.size()) {
      digits[i++] = 0;
    }
    if (i == digits.size()) {
      digits.push_back(0);
    }
  }
  EXPECT_GT(accepted, 100000);
}

// ---- The Win32 form

TEST(MsgFmtParseWin32, TakesNumbersWithOrWithoutASpecifier) {
  EXPECT_EQ(Parts("", MsgFmt_ParseWin32), "[]");
  EXPECT_EQ(Parts("a%1b", MsgFmt_ParseWin32), "[a]{1:s}[b]");
  EXPECT_EQ(Parts("%1!d!", MsgFmt_ParseWin32), "[]{1:d}[]");
  EXPECT_EQ(Parts("%12!-5.3ld! %2%1!s!!", MsgFmt_ParseWin32), "[]{12:-5.3ld}[ ]{2:s}[]{1:s}[!]");
  EXPECT_EQ(Parts("%1!!", MsgFmt_ParseWin32), "[]{1:}[]");
}

TEST(MsgFmtParseWin32, LeavesOtherPercentsInTheText) {
  EXPECT_EQ(Parts("100%% %s %!%1", MsgFmt_ParseWin32), "[100%% %s %!]{1:s}[]");
  EXPECT_EQ(Parts("%%1", MsgFmt_ParseWin32), "[%%1]");
}

TEST(MsgFmtParseWin32, RefusesAFormatThatEndsWithin) {
  for (const char *format : {"%", "a%", "%1!", "%1!s", "%1!s! %"}) {
    EXPECT_EQ(Status(format, MsgFmt_ParseWin32), -2) << format;
  }
}

TEST(MsgFmtParseWin32DeathTest, StopsAtWhatItHasNotGot) {
  const auto text = testhost::Panics("^NOT_IMPLEMENTED lib/misc/msgfmt.cc:[0-9]+\n$");
  EXPECT_EXIT(Status("a%n", MsgFmt_ParseWin32), testing::ExitedWithCode(255), text);
  EXPECT_EXIT(Status("a%0", MsgFmt_ParseWin32), testing::ExitedWithCode(255), text);
}

// ---- Specifiers

struct Spec {
  int position = 0;
  unsigned flags = 0;
  int width = 0;
  int precision = 0;
  char lengthModifier = '?';
  char conversion = '?';

  bool operator==(const Spec &other) const = default;
};

int Read(std::string_view position, std::string_view type, Spec *spec) {
  return MsgFmt_ParseSpec(position.data(), position.size(), type.data(), type.size(), &spec->position,
                          &spec->flags, &spec->width, &spec->precision, &spec->lengthModifier,
                          &spec->conversion);
}

Spec SpecOf(std::string_view position, std::string_view type) {
  Spec spec;
  EXPECT_EQ(Read(position, type, &spec), 0) << position << " " << type;
  return spec;
}

TEST(MsgFmtParseSpec, ReadsAllParts) {
  EXPECT_EQ(SpecOf("1", "s"), (Spec{1, 0, -1, -1, '\0', 's'}));
  EXPECT_EQ(SpecOf("2147483647", "12.34lx"), (Spec{2147483647, 0, 12, 34, 'l', 'x'}));
  EXPECT_EQ(SpecOf("007", ".f"), (Spec{7, 0, -1, 0, '\0', 'f'}));
  EXPECT_EQ(SpecOf("3", "2147483647.2147483647d"), (Spec{3, 0, 2147483647, 2147483647, '\0', 'd'}));
  EXPECT_EQ(SpecOf("3", ".007d"), (Spec{3, 0, -1, 7, '\0', 'd'}));
}

TEST(MsgFmtParseSpec, ReadsFlagsInAnyOrder) {
  EXPECT_EQ(SpecOf("1", " d").flags, MSGFMT_FLAG_SPACE);
  EXPECT_EQ(SpecOf("1", "#d").flags, MSGFMT_FLAG_ALTERNATE);
  EXPECT_EQ(SpecOf("1", "'d").flags, MSGFMT_FLAG_GROUP);
  EXPECT_EQ(SpecOf("1", "+d").flags, MSGFMT_FLAG_PLUS);
  EXPECT_EQ(SpecOf("1", "-d").flags, MSGFMT_FLAG_LEFT);
  EXPECT_EQ(SpecOf("1", "0d").flags, MSGFMT_FLAG_ZERO);
  EXPECT_EQ(SpecOf("1", "0-#0 +'5d"), (Spec{1, 63, 5, -1, '\0', 'd'}));
}

TEST(MsgFmtParseSpec, NormalizesLengthModifiers) {
  const std::pair<const char *, char> modifiers[] = {
      {"I64", 'L'}, {"ll", 'L'}, {"q", 'L'}, {"L", 'L'}, {"I32", '\0'}, {"I", 'z'}, {"Z", 'z'},
      {"z", 'z'},   {"hh", 'H'}, {"h", 'h'}, {"l", 'l'}, {"j", 'j'},    {"t", 't'}, {"", '\0'}};
  for (const auto &[spelling, letter] : modifiers) {
    EXPECT_EQ(SpecOf("1", std::string(spelling) + "d"), (Spec{1, 0, -1, -1, letter, 'd'})) << spelling;
  }
}

TEST(MsgFmtParseSpec, TakesAnyLastByteForTheConversion) {
  EXPECT_EQ(SpecOf("1", "y").conversion, 'y');
  EXPECT_EQ(SpecOf("1", "%").conversion, '%');
  EXPECT_EQ(SpecOf("1", "hl"), (Spec{1, 0, -1, -1, 'h', 'l'}));
}

TEST(MsgFmtParseSpec, RefusesBadPositionsAndSpecifiers) {
  Spec spec;
  for (const char *position : {"", "0", "-1", "+1", " 1", "1 ", "x", "1x", "2147483648", "99999999999999"}) {
    EXPECT_EQ(Read(position, "s", &spec), -2) << position;
  }
  for (const char *type : {"", "5", ".", "l", "sx", "lllx", "5-d", ".5.5d", ".-5d", "2147483648d",
                           ".2147483648d", "I65d", "*d", "lhd"}) {
    EXPECT_EQ(Read("1", type, &spec), -2) << type;
  }
}

}  // namespace
