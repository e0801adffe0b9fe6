// The strict converters against both engines, called directly: all of Unicode, and bytes that are none of it.
#include <initializer_list>
#include <random>
#include <vector>

#include "codesetTestInt.h"

namespace {

using namespace codesettest;

// Everything but surrogates, in order.
std::string AllOfUtf8() {
  std::string text;
  for (uint32_t codePoint = 0; codePoint <= 0x10FFFF; codePoint++) {
    text += IsSurrogate(codePoint) ? "" : Utf8(codePoint);
  }
  return text;
}

// glibc's iconv reads code points above U+10FFFF, which don't exist; this tells whether there is one.
bool HasTooHigh(std::string_view text) {
  for (size_t i = 0; i < text.size(); i++) {
    const auto lead = static_cast<uint8_t>(text[i]);
    if (lead > 0xF4 || (lead == 0xF4 && i + 1 < text.size() && static_cast<uint8_t>(text[i + 1]) > 0x8F)) {
      return true;
    }
  }
  return false;
}

// The conversions that don't depend on the engine, with the direct calls of one.
class Conversions {
 public:
  explicit Conversions(Engine engine)
      : engine_(engine),
        to16_(NewPeer(engine, "UTF-8", "UTF-16LE")),
        to8_(NewPeer(engine, "UTF-16LE", "UTF-8")),
        toSame_(NewPeer(engine, "UTF-8", "UTF-8")),
        from16be_(NewPeer(engine, "UTF-16BE", "UTF-8")) {
    Use(engine);
  }

  // Holds what is said of `text`, taken as UTF-8, to the engine.
  [[nodiscard]] bool AgreeOnUtf8(std::string_view text) {
    if (engine_ == Engine::kIconv && HasTooHigh(text)) {
      return Convert(CodeSet_Utf8ToUtf16le, text) == std::nullopt && !Validate(text, "UTF-8");
    }
    const Text units = (*to16_)(text);
    return Convert(CodeSet_Utf8ToUtf16le, text) == units && Generic("UTF-8", text, "UTF-16LE") == units &&
           Generic("UTF-8", text, "UTF-8") == (*toSame_)(text) &&
           Validate(text, "UTF-8") == units.has_value();
  }

  [[nodiscard]] bool AgreeOnUtf16(std::string_view text) {
    const Text bytes = (*to8_)(text);
    const std::string swapped = Swapped(std::string(text));
    return Convert(CodeSet_Utf16leToUtf8, text) == bytes && Generic("UTF-16LE", text, "UTF-8") == bytes &&
           Convert(CodeSet_Utf16beToUtf8, swapped) == (*from16be_)(swapped);
  }

 private:
  Engine engine_;
  std::unique_ptr<Peer> to16_, to8_, toSame_, from16be_;
};

std::string Hex(std::string_view text) {
  std::string hex;
  for (const char c : text) {
    char digits[4];
    snprintf(digits, sizeof digits, "%02X ", static_cast<uint8_t>(c));
    hex += digits;
  }
  return hex;
}

class CodeSetUtf : public testing::TestWithParam<Engine> {
 protected:
  Conversions conversions_{GetParam()};
};

TEST_P(CodeSetUtf, ConvertsEveryCodePointAsTheEngineDoes) {
  constexpr uint32_t kTogether = 32;
  for (uint32_t first = 0; first <= 0x10FFFF; first += kTogether) {
    std::string bytes;
    std::string units;
    for (uint32_t codePoint = first; codePoint < first + kTogether; codePoint++) {
      bytes += Utf8(codePoint);
      units += Utf16(codePoint);
    }
    ASSERT_TRUE(conversions_.AgreeOnUtf8(bytes)) << std::hex << first;
    ASSERT_TRUE(conversions_.AgreeOnUtf16(units)) << std::hex << first;
  }
}

TEST_P(CodeSetUtf, TreatsEverySurrogateAndMarkAloneAsTheEngineDoes) {
  std::vector<uint32_t> codePoints = {0, 0xFEFF, 0xFFFE, 0xFFFF, 0x1FFFE, 0x10FFFF, 0x110000};
  for (uint32_t codePoint = 0xD7FF; codePoint <= 0xE000; codePoint++) {
    codePoints.push_back(codePoint);
  }
  for (const uint32_t codePoint : codePoints) {
    ASSERT_TRUE(conversions_.AgreeOnUtf8(Utf8(codePoint))) << std::hex << codePoint;
    ASSERT_TRUE(conversions_.AgreeOnUtf16(Utf16(codePoint))) << std::hex << codePoint;
  }
}

TEST_P(CodeSetUtf, ConvertsEveryCodePointToItsStandardForm) {
  for (uint32_t codePoint = 0; codePoint <= 0x10FFFF; codePoint++) {
    const bool exists = !IsSurrogate(codePoint);
    ASSERT_EQ(Convert(CodeSet_Utf8ToUtf16le, Utf8(codePoint)), exists ? Text(Utf16(codePoint)) : std::nullopt)
        << std::hex << codePoint;
    ASSERT_EQ(Convert(CodeSet_Utf16leToUtf8, Utf16(codePoint)), exists ? Text(Utf8(codePoint)) : std::nullopt)
        << std::hex << codePoint;
  }
}

TEST_P(CodeSetUtf, ConvertsAllOfUnicodeAsOneText) {
  const std::string text = AllOfUtf8();
  ASSERT_TRUE(conversions_.AgreeOnUtf8(text));
  const Text units = Convert(CodeSet_Utf8ToUtf16le, text);
  ASSERT_TRUE(units.has_value());
  ASSERT_EQ(Convert(CodeSet_Utf16leToUtf8, *units), text);
  ASSERT_EQ(Convert(CodeSet_Utf16beToUtf8, Swapped(*units)), text);
  ASSERT_TRUE(conversions_.AgreeOnUtf16(*units));
}

TEST_P(CodeSetUtf, RefusesWhatTheEngineRefusesInShortSequences) {
  constexpr uint8_t kTails[] = {0x00, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0, 0xE0, 0xF4, 0xFF};
  for (uint32_t lead = 0x80; lead <= 0xFF; lead++) {
    const std::string one(1, static_cast<char>(lead));
    ASSERT_TRUE(conversions_.AgreeOnUtf8(one)) << Hex(one);
    for (uint32_t second = 0; second <= 0xFF; second++) {
      const std::string two = one + static_cast<char>(second);
      ASSERT_TRUE(conversions_.AgreeOnUtf8(two)) << Hex(two);
    }
    for (const uint8_t second : kTails) {
      for (const uint8_t third : kTails) {
        const std::string three = one + static_cast<char>(second) + static_cast<char>(third);
        ASSERT_TRUE(conversions_.AgreeOnUtf8(three)) << Hex(three);
        const std::string four = three + static_cast<char>(0x80);
        ASSERT_TRUE(conversions_.AgreeOnUtf8(four)) << Hex(four);
      }
    }
  }
}

TEST_P(CodeSetUtf, AgreesWithTheEngineOnEveryPairOfSurrogatesBorders) {
  constexpr uint32_t kUnits[] = {0,      0x7F,   0x80,   0x7FF,  0x800,  0xD7FF,
                                 0xD800, 0xDBFF, 0xDC00, 0xDFFF, 0xE000, 0xFFFF};
  for (const uint32_t first : kUnits) {
    for (const uint32_t second : kUnits) {
      for (const uint32_t third : kUnits) {
        const std::string text = Utf16Unit(first) + Utf16Unit(second) + Utf16Unit(third);
        ASSERT_TRUE(conversions_.AgreeOnUtf16(text)) << Hex(text);
      }
    }
  }
}

TEST_P(CodeSetUtf, AgreesWithTheEngineOnRandomBytes) {
  std::mt19937 random(GetParam() == Engine::kIcu ? 1 : 2);
  for (int i = 0; i < 20000; i++) {
    std::string text(random() % 40, '\0');
    for (char &c : text) {
      c = static_cast<char>(random());
    }
    ASSERT_TRUE(conversions_.AgreeOnUtf8(text)) << Hex(text);
    text.resize(text.size() / 2 * 2);
    ASSERT_TRUE(conversions_.AgreeOnUtf16(text)) << Hex(text);
  }
}

// Well-formed text of one to a few hundred characters, mixed or mostly of one length, then spoilt or not.
TEST_P(CodeSetUtf, AgreesWithTheEngineOnRandomTextThatIsSpoilt) {
  std::mt19937 random(GetParam() == Engine::kIcu ? 3 : 4);
  constexpr uint32_t kFirst[] = {0, 0x80, 0x800, 0x4E00, 0x10000};
  constexpr uint32_t kCount[] = {0x80, 0x780, 0xF000, 0x5000, 0x100000};
  for (int i = 0; i < 30000; i++) {
    std::string bytes;
    std::string units;
    const size_t favourite = random() % std::size(kFirst);
    const size_t length = random() % (i % 10 == 0 ? 400 : 120);
    for (size_t k = 0; k < length; k++) {
      const size_t kind = random() % 8 == 0 ? random() % std::size(kFirst) : favourite;
      const uint32_t codePoint = kFirst[kind] + static_cast<uint32_t>(random()) % kCount[kind];
      if (!IsSurrogate(codePoint)) {
        bytes += Utf8(codePoint);
        units += Utf16(codePoint);
      }
    }
    ASSERT_EQ(Convert(CodeSet_Utf8ToUtf16le, bytes), units) << Hex(bytes);
    ASSERT_EQ(Convert(CodeSet_Utf16leToUtf8, units), bytes) << Hex(units);
    if (bytes.empty()) {
      continue;
    }
    bytes[random() % bytes.size()] = static_cast<char>(random());
    units[random() % units.size()] = static_cast<char>(random() % 2 == 0 ? random() : 0xD8 + random() % 8);
    bytes.resize(bytes.size() - random() % 2);
    ASSERT_TRUE(conversions_.AgreeOnUtf8(bytes)) << Hex(bytes);
    ASSERT_TRUE(conversions_.AgreeOnUtf16(units)) << Hex(units);
  }
}

INSTANTIATE_TEST_SUITE_P(Engines, CodeSetUtf, testing::ValuesIn(kEngines),
                         [](const auto &parameter) { return Name(parameter.param); });

// Whatever stands before and behind, a malformed sequence is found, also where a block or a stripe ends.
TEST(CodeSetUtfMalformed, IsFoundAtEveryPosition) {
  const std::vector<std::string> malformed = {"\x80",
                                              "\xBF",
                                              "\xC0\x80",
                                              "\xC1\xBF",
                                              "\xC3",
                                              "\xE0\x9F\xBF",
                                              "\xE4\xB8",
                                              "\xED\xA0\x80",
                                              "\xED\xBF\xBF",
                                              "\xF0\x8F\xBF\xBF",
                                              "\xF0\x9F\x98",
                                              "\xF4\x90\x80\x80",
                                              "\xF5\x80\x80\x80",
                                              "\xF8\x88\x80\x80\x80",
                                              "\xFE",
                                              "\xFF",
                                              "\xC3\xC3\xA9",
                                              "\xE4\xE4\xB8\xAD"};
  const std::vector<std::string> fillings = {"a", "é", "中", "😀", "aé中😀"};
  for (const std::string &filling : fillings) {
    for (const std::string &sequence : malformed) {
      std::string before;
      while (before.size() < 180) {
        for (const size_t behind : std::initializer_list<size_t>{0, 1, 15, 16, 100}) {
          for (const std::string &other : {filling, "a"s}) {
            std::string text = before + sequence;
            for (size_t i = 0; i < behind; i++) {
              text += other;
            }
            ASSERT_FALSE(Validate(text, "UTF-8")) << Hex(text);
            ASSERT_EQ(Convert(CodeSet_Utf8ToUtf16le, text), std::nullopt) << Hex(text);
          }
        }
        before += filling;
      }
    }
  }
}

TEST(CodeSetUtfMalformed, IsFoundAtEveryPositionOfUtf16) {
  const std::vector<std::string> malformed = {Utf16Unit(0xD800),
                                              Utf16Unit(0xDBFF),
                                              Utf16Unit(0xDC00),
                                              Utf16Unit(0xDFFF),
                                              Utf16Unit(0xD83D) + Utf16Unit(0xD83D),
                                              Utf16Unit(0xDE00) + Utf16Unit(0xD83D)};
  const std::vector<std::string> fillings = {Utf16('a'), Utf16(0xE9), Utf16(0x4E2D), Utf16(0x1F600),
                                             Utf16('a') + Utf16(0x4E2D)};
  for (const std::string &filling : fillings) {
    for (const std::string &sequence : malformed) {
      std::string before;
      while (before.size() < 360) {
        for (const size_t behind : std::initializer_list<size_t>{0, 1, 7, 8, 100}) {
          std::string text = before + sequence;
          for (size_t i = 0; i < behind; i++) {
            text += filling;
          }
          ASSERT_EQ(Convert(CodeSet_Utf16leToUtf8, text), std::nullopt) << Hex(text);
          ASSERT_EQ(Convert(CodeSet_Utf16beToUtf8, Swapped(text)), std::nullopt) << Hex(text);
        }
        before += filling;
      }
    }
  }
}

}  // namespace
