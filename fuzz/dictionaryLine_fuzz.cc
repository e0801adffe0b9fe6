// A dictionary's lines: a line is a key's or not as its bytes say, read one by one, and a value that is
// written is read back.

#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "dictll.h"

namespace {

void Expect(bool holds) {
  if (!holds) {
    abort();
  }
}

DictLL_Line Unmarshal(const std::string &text) {
  auto *copy = static_cast<char *>(malloc(text.size() + 1));
  memcpy(copy, text.c_str(), text.size() + 1);
  return DictLL_UnmarshalLine(OwnedString(copy), text.size());
}

// The format, step by step.
struct Reader {
  const std::string &text;
  size_t at = 0;

  bool More() const { return at < text.size(); }
  void Blanks() {
    while (More() && (text[at] == ' ' || text[at] == '\t')) {
      at++;
    }
  }
  std::string Until(const std::string &ends) {
    const size_t start = at;
    while (More() && text[at] != '\0' && ends.find(text[at]) == std::string::npos) {
      at++;
    }
    return text.substr(start, at - start);
  }
  bool Take(char byte) {
    const bool found = More() && text[at] == byte;
    at += found ? 1 : 0;
    return found;
  }
};

bool ReadKey(const std::string &text, std::string *name, std::string *value) {
  Reader reader{text};
  reader.Blanks();
  *name = reader.Until(" \t#=");
  reader.Blanks();
  if (name->empty() || !reader.Take('=')) {
    return false;
  }
  reader.Blanks();
  const bool quoted = reader.Take('"');
  *value = reader.Until(quoted ? "\"" : " \t#");
  if (quoted && !reader.Take('"')) {
    return false;
  }
  reader.Blanks();
  return !reader.More() || text[reader.at] == '#';
}

void CheckWritten(const std::string &value) {
  DynBuf buf;
  DynBuf_Init(&buf);
  Expect(DictLL_MarshalLine(&buf, "name", value.data(), value.size()));
  std::string written(buf.data, buf.size);
  DynBuf_Destroy(&buf);
  Expect(written.ends_with('\n'));
  written.pop_back();
  Expect(written.find_first_of("\r\n") == std::string::npos);
  const DictLL_Line line = Unmarshal(written);
  Expect(line.name == "name" && line.value == value);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string text(reinterpret_cast<const char *>(data), size);
  const DictLL_Line line = Unmarshal(text);
  Expect(std::string(line.text.get(), line.textSize) == text);
  std::string name;
  std::string value;
  const bool isKey = ReadKey(text, &name, &value);
  Expect((line.name.data() != nullptr) == isKey && (line.value.data() != nullptr) == isKey);
  if (isKey) {
    Expect(line.name == name && line.value.size() <= value.size());
    Expect(value.find('|') != std::string::npos || line.value == value);
  }
  CheckWritten(text);
  return 0;
}
