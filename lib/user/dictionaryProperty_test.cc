// Loads and saves of generated files, against what the rules of the format give.
#include <iconv.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <iterator>
#include <optional>
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

// What the C library makes of UTF-8 text in an encoding, or nothing.
std::optional<std::string> Encode(const char *encoding, const std::string &text) {
  auto *const converter = iconv_open(encoding, "UTF-8");
  EXPECT_NE(reinterpret_cast<intptr_t>(converter), -1) << encoding;
  std::string bytes(100 + 8 * text.size(), '\0');
  std::string copy = text;
  char *from = copy.data();
  char *to = bytes.data();
  size_t fromLeft = text.size();
  size_t toLeft = bytes.size();
  const bool done = iconv(converter, &from, &fromLeft, &to, &toLeft) == 0 &&
                    iconv(converter, nullptr, nullptr, &to, &toLeft) == 0;
  iconv_close(converter);
  bytes.resize(bytes.size() - toLeft);
  return done ? std::optional(bytes) : std::nullopt;
}

struct Encoding {
  explicit Encoding(const char *newName) : name(newName) {
    // Some of them hold the bytes of quotes, bars and backslashes in their second half.
    for (const char *letter :
         {"\u00E9", "\u00DF", "\u0105", "\u011F", "\u0436", "\u03B1", "\u05D0", "\u0639", "\u0E01", "\u65E5",
          "\u30BD", "\u30DD", "\u80B2", "\u4E2D", "\u20AC", "\U0001F600"}) {
      if (Encode(name, letter)) {
        letters.emplace_back(letter);
      }
    }
    // There the byte of a backslash is that of a Yen sign to some converters.
    if (name != "Shift_JIS"s) {
      letters.emplace_back("\\");
    }
  }

  const char *name;
  std::vector<std::string> letters;  // that it can express, beside those of ASCII
  bool hasAscii = Encode(name, "|zz") == "|zz";
};

// A value of a line that the system writes.
std::string Escaped(const std::string &bytes) {
  std::string text;
  for (const char byte : bytes) {
    const auto code = static_cast<unsigned char>(byte);
    const bool escapes = (code < 0x20 && code != '\t') || code == '"' || code == '|' || code == 0x7F;
    char written[4] = {byte};
    if (escapes) {
      snprintf(written, sizeof written, "|%02X", unsigned{code});
    }
    text += written;
  }
  return text;
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
    for (size_t i = Below(8); i > 0; i--) {
      *meaning += Piece(encoding);
    }
    const bool quoted = OneIn(2);
    std::string text;
    const std::string bytes = Encode(encoding.name, *meaning).value_or("");
    for (const char byte : bytes) {
      text += Byte(byte, quoted, text.empty());
    }
    if (encoding.hasAscii && OneIn(3)) {
      *meaning += "|zz";
      text += "|zz";
    }
    return quoted ? "\"" + text + "\"" : text;
  }

  std::string Letter(const Encoding &encoding) {
    return encoding.letters.empty() ? "" : encoding.letters[Below(encoding.letters.size())];
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
  std::string Piece(const Encoding &encoding) {
    static const std::string plain = "azAZ09=.'/ \t#\"|\n\r\x7F\x01";
    return OneIn(3) ? Letter(encoding) : std::string(1, plain[Below(plain.size())]);
  }

  // As it stands, or as an escape in either case.
  std::string Byte(char byte, bool quoted, bool first) {
    const std::string escaped = quoted ? "\0\r\n|\""s : "\0\r\n| \t#"s;
    if (escaped.find(byte) == std::string::npos && !(first && byte == '"') && !OneIn(8)) {
      return {byte};
    }
    char code[4];
    snprintf(code, sizeof code, OneIn(2) ? "|%02X" : "|%02x", unsigned{static_cast<unsigned char>(byte)});
    return code;
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
  const bool told = encoding.name != "UTF-8"s || generator->OneIn(2);
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
                           public testing::WithParamInterface<const char *> {
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
  const Encoding encoding(GetParam());
  Generator generator(815);
  const char *const lineEnds[] = {"\n", "\r\n", "\r"};
  for (int round = 0; round < 1000; round++) {
    const File file = Generate(&generator, encoding);
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
    const std::string value = "changed|\"" + generator.Letter(encoding);
    Dict_SetAny(Dict(), value.c_str(), "%s", line.name.c_str());
    const std::string changed = Saved();
    ASSERT_EQ(changed, file.Saved(&line, line.name + " = \"" +
                                             Escaped(Encode(GetParam(), value).value_or("")) + "\""));
    ASSERT_EQ(LoadedAndSaved(changed), changed);
    EXPECT_EQ(GetText(line.name.c_str()), value);
  }
}

constexpr const char *kEncodings[] = {
    "UTF-8",        "UTF-16LE",     "UTF-16BE",     "UTF-16",       "UTF-32LE",     "UTF-32BE",
    "UTF-32",       "UTF-7",        "ASCII",        "ISO-8859-1",   "ISO-8859-2",   "ISO-8859-3",
    "ISO-8859-4",   "ISO-8859-5",   "ISO-8859-6",   "ISO-8859-7",   "ISO-8859-8",   "ISO-8859-9",
    "ISO-8859-10",  "ISO-8859-13",  "ISO-8859-14",  "ISO-8859-15",  "windows-1250", "windows-1251",
    "windows-1252", "windows-1253", "windows-1254", "windows-1255", "windows-1256", "windows-1257",
    "windows-1258", "Shift_JIS",    "Windows-31J",  "GBK",          "Big5",         "TIS-620"};

INSTANTIATE_TEST_SUITE_P(Encodings, DictionaryProperty, testing::ValuesIn(kEncodings),
                         [](const auto &tested) {
                           std::string name = tested.param;
                           std::erase(name, '-');
                           std::erase(name, '_');
                           return name;
                         });

// Those that a file can name and the host can convert.
TEST(DictionaryPropertyEncodings, AreAll) {
  for (int value = 0; value < STRING_ENCODING_COUNT; value++) {
    const auto encoding = static_cast<StringEncoding>(value);
    const std::string name = Unicode_EncodingEnumToName(encoding);
    const bool counts = Unicode_EncodingNameToEnum(name.c_str()) == encoding &&
                        Unicode_CanGetBytesWithEncoding("a", encoding);
    EXPECT_EQ(std::count(std::begin(kEncodings), std::end(kEncodings), name), counts ? 1 : 0) << name;
  }
}

}  // namespace
