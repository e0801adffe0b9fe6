// File names with "~" and "$": what is expanded is what a reading byte by byte gives.

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "log.h"
#include "msg.h"
#include "owned.h"
#include "util.h"

namespace {

constexpr int kMaxChunks = 100;

void Expect(bool holds) {
  if (!holds) {
    abort();
  }
}

bool IsNameByte(char c) {
  return c == '_' || (static_cast<unsigned char>(c) < 0x80 && isalnum(static_cast<unsigned char>(c)) != 0);
}

// The value of the text at `*at`, a "$" with or without a name, which is moved behind.
std::string ReadVariable(const std::string &text, size_t *at) {
  const size_t begin = ++*at;
  while (*at < text.size() && IsNameByte(text[*at])) {
    ++*at;
  }
  const std::string name = text.substr(begin, *at - begin);
  if (name.empty()) {
    return "$";
  }
  return name == "A" ? "value" : "";
}

// The expansion, and in how many chunks the text is cut. Names that mean something to the host aren't known.
std::string Read(const std::string &text, int *chunks) {
  std::string result;
  size_t at = 0;
  *chunks = 0;
  if (!text.empty() && text[0] == '~') {
    at = std::min(text.find('/'), text.size());
    result = at == 1 ? "/home" : text.substr(0, at);
    ++*chunks;
  }
  while (at < text.size()) {
    ++*chunks;
    if (text[at] == '$') {
      result += ReadVariable(text, &at);
    } else {
      const size_t end = std::min(text.find('$', at), text.size());
      result += text.substr(at, end - at);
      at = end;
    }
  }
  return result;
}

bool StartOnce() {
  clearenv();
  setenv("A", "value", 1);
  setenv("HOME", "/home", 1);
  Log_SetQuietWarnings(true);
  return true;
}

// Whether the text asks the host for a user or a process.
bool AsksTheHost(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return toupper(c); });
  return text.find("$PID") != std::string::npos || text.find("$USER") != std::string::npos ||
         (text.size() > 1 && text[0] == '~' && text[1] != '/');
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const bool isStarted = StartOnce();
  Expect(isStarted);
  const std::string text = std::string(reinterpret_cast<const char *>(data), size).c_str();
  const OwnedString result(Util_ExpandString(text.c_str()));
  int chunks = 0;
  const std::string expected = Read(text, &chunks);
  const bool isPlain = text.empty() || (text[0] != '~' && text.find('$') == std::string::npos);
  Expect((result == nullptr) == (!isPlain && chunks > kMaxChunks));
  Expect((result == nullptr) == Msg_Present());
  Msg_Reset(false);
  if (result != nullptr && !AsksTheHost(text)) {
    Expect(result.get() == expected);
  }
  return 0;
}
