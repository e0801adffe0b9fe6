// Loads and saves of generated files, against what the rules of the format give.
#include <algorithm>
#include <cctype>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "dictType.h"
#include "dictionaryInt.h"
#include "dictionaryTestInt.h"

namespace {

using namespace std::string_literals;

struct Line {
  std::string text;
  std::string name;   // empty where it is no key line
  std::string value;  // in UTF-8
  bool meta = false;  // tells the encoding
};

struct Encoding {
  const char *name;
  std::string (*toUtf8)(unsigned char byte);  // what one byte from 0x80 on stands for
};

std::string FromLatin1(unsigned char byte) {
  return {static_cast<char>(0xC0 | byte >> 6), static_cast<char>(0x80 | (byte & 0x3F))};
}

// A to Z of Cyrillic lie at their code points less 0x360.
std::string FromLatin5(unsigned char byte) {
  const unsigned code = byte < 0xB0 ? '?' : byte + 0x360U;
  return {static_cast<char>(0xC0 | code >> 6), static_cast<char>(0x80 | (code & 0x3F))};
}

class Generator {
 public:
  explicit Generator(unsigned seed) : random_(seed) {}

  size_t Below(size_t limit) { return random_() % limit; }
  bool OneIn(size_t chances) { return Below(chances) == 0; }

  std::string Blanks() {
    std::string text;
    for (size_t i = Below(3); i > 0; i--) {
      text += OneIn(2) ? ' ' : '\t';
    }
    return text;
  }

  std::string Name() {
    static const std::string bytes = "abcXYZ019._-\"|$\x01\xC3\xA9";
    std::string name(1, "abcdefgh"[Below(8)]);
    for (size_t i = Below(5); i > 0; i--) {
      name += bytes[Below(bytes.size())];
    }
    return name;
  }

  std::string Comment() { return OneIn(2) ? "" : "#" + std::string(Below(10), "# \"=x|\xFF"[Below(7)]); }

  // A value as it may stand in a file, and what it means.
  std::string Value(const Encoding &encoding, std::string *meaning) {
    const bool quoted = OneIn(2);
    std::string text = quoted ? "\"" : "";
    for (size_t i = Below(8); i > 0; i--) {
      text += Piece(encoding, quoted, text.size() == (quoted ? 1U : 0U), meaning);
    }
    return text + (quoted ? "\"" : "");
  }

  Line KeyLine(const Encoding &encoding, std::set<std::string> *taken) {
    Line line;
    std::string folded;
    do {
      line.name = Name();
      folded = line.name;
      std::transform(folded.begin(), folded.end(), folded.begin(),
                     [](unsigned char c) { return static_cast<char>(tolower(c)); });
    } while (!taken->insert(folded).second);
    line.text = Blanks() + line.name + Blanks() + "=" + Blanks() + Value(encoding, &line.value) + Blanks();
    line.text += Comment();
    return line;
  }

 private:
  std::string Piece(const Encoding &encoding, bool quoted, bool first, std::string *meaning) {
    static const std::string plain = "azAZ09=.'/\\";
    switch (Below(6)) {
      case 0:
        *meaning += quoted ? " # \t" : "=";
        return quoted ? " # \t" : "=";
      case 1: {
        // An escape that is whole, in either case.
        const char byte = "\n\"|#\x7F "[Below(6)];
        char code[4];
        snprintf(code, sizeof code, OneIn(2) ? "|%02X" : "|%02x", static_cast<unsigned>(byte));
        *meaning += byte;
        return code;
      }
      case 2:
        *meaning += "|zz";
        return "|zz";
      case 3: {
        const auto byte = static_cast<unsigned char>(0xC0 + Below(0x20));
        *meaning += encoding.toUtf8 == nullptr ? "\xE2\x82\xAC" : encoding.toUtf8(byte);
        return encoding.toUtf8 == nullptr ? "\xE2\x82\xAC" : std::string(1, static_cast<char>(byte));
      }
      default: {
        const char byte = first && !quoted ? 'q' : plain[Below(plain.size())];
        *meaning += byte;
        return std::string(1, byte);
      }
    }
  }

  std::mt19937 random_;
};

struct File {
  std::vector<Line> lines;
  const char *encoding = nullptr;

  std::string Text(const char *lineEnd) const {
    std::string text;
    for (const Line &line : lines) {
      text += line.text + lineEnd;
    }
    return text;
  }

  // What a save gives; `changed` of the lines have this for their text.
  std::string Saved(const Line *changed, const std::string &changedText) const {
    std::string head;
    std::string rest;
    bool leading = true;
    for (const Line &line : lines) {
      if (line.meta) {
        continue;
      }
      leading = leading && line.text.starts_with('#');
      (leading ? head : rest) += (&line == changed ? changedText : line.text) + "\n";
    }
    return head + ".encoding = \"" + encoding + "\"\n" + rest;
  }
};

File Generate(Generator *generator, const Encoding &encoding) {
  static const char *const metaNames[] = {".encoding", "config.encoding", "Preferences.Encoding",
                                          "ostlist.encoding", "snapshot.encoding"};
  File file;
  file.encoding = encoding.name;
  std::set<std::string> taken;
  const size_t count = generator->Below(12);
  // UTF-8 need not be told.
  const bool told = encoding.toUtf8 != nullptr || generator->OneIn(2);
  const size_t metaAt = generator->Below(count + 1);
  for (size_t i = 0; i <= count; i++) {
    if (told && i == metaAt) {
      file.lines.push_back(
          {.text = metaNames[generator->Below(5)] + " = "s + encoding.name + generator->Blanks(),
           .name = {},
           .value = {},
           .meta = true});
    }
    switch (generator->Below(4)) {
      case 0:
        file.lines.push_back({.text = generator->Blanks() + generator->Comment(), .name = {}, .value = {}});
        break;
      case 1:
        file.lines.push_back({.text = "# lead", .name = {}, .value = {}});
        break;
      default:
        file.lines.push_back(generator->KeyLine(encoding, &taken));
    }
  }
  return file;
}

class DictionaryProperty : public dictionarytest::DictionaryHost,
                           public testing::WithParamInterface<Encoding> {
 protected:
  void ExpectValues(const File &file) const {
    for (const Line &line : file.lines) {
      if (!line.name.empty()) {
        EXPECT_EQ(GetText(line.name.c_str()), line.value) << line.text;
      }
    }
  }
};

TEST_P(DictionaryProperty, KeepsAGeneratedFileAndChangesOneLine) {
  Generator generator(815);
  const char *const lineEnds[] = {"\n", "\r\n", "\r"};
  for (int round = 0; round < 1000; round++) {
    const File file = Generate(&generator, GetParam());
    const std::string text = file.Text(lineEnds[generator.Below(3)]);
    ASSERT_TRUE(Load(text)) << text << Messages();
    ExpectValues(file);
    const std::string saved = Saved();
    ASSERT_EQ(saved, file.Saved(nullptr, ""));
    ASSERT_EQ(Saved(), saved);
    ASSERT_EQ(LoadedAndSaved(saved), saved);
    ExpectValues(file);

    const Line &line = file.lines[generator.Below(file.lines.size())];
    if (line.name.empty()) {
      continue;
    }
    Dict_SetAny(Dict(), "changed|\"", "%s", line.name.c_str());
    const std::string changed = Saved();
    ASSERT_EQ(changed, file.Saved(&line, line.name + " = \"changed|7C|22\""));
    ASSERT_EQ(LoadedAndSaved(changed), changed);
    EXPECT_EQ(GetText(line.name.c_str()), "changed|\"");
  }
}

INSTANTIATE_TEST_SUITE_P(Encodings, DictionaryProperty,
                         testing::Values(Encoding{"UTF-8", nullptr}, Encoding{"ISO-8859-1", FromLatin1},
                                         Encoding{"ISO-8859-5", FromLatin5}),
                         [](const auto &tested) {
                           std::string name = tested.param.name;
                           std::erase(name, '-');
                           return name;
                         });

}  // namespace
