// Escapes: what Do takes Undo gives back, and each reverse agrees with reading byte by byte. The first byte
// is the escape byte.

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "escape.h"
#include "owned.h"

namespace {

void Expect(bool holds) {
  if (!holds) {
    abort();
  }
}

std::string Taken(char *text, size_t size) {
  const OwnedString owned(text);
  Expect(text != nullptr && text[size] == '\0');
  return {text, size};
}

void CheckDo(char escByte, const std::string &text) {
  std::array<bool, 256> flags{};
  flags[static_cast<unsigned char>(escByte)] = true;
  for (size_t i = 0; i < text.size(); i += 2) {
    flags[static_cast<unsigned char>(text[i])] = true;
  }
  size_t size = 0;
  char *result = Escape_Do(escByte, flags.data(), text.data(), text.size(), &size);
  const std::string escaped = Taken(result, size);
  // A digit that is an escape byte too is never told from one.
  if (isxdigit(static_cast<unsigned char>(escByte)) != 0) {
    return;
  }
  result = Escape_Undo(escByte, escaped.data(), escaped.size(), &size);
  Expect(Taken(result, size) == text);
}

void CheckUndo(char escByte, const std::string &text) {
  std::string expected;
  for (size_t i = 0; i < text.size();) {
    const auto isDigit = [&](size_t at) { return isxdigit(static_cast<unsigned char>(text[at])) != 0; };
    size_t taken = 1;
    if (text[i] == escByte && i + 1 < text.size()) {
      taken = i + 2 < text.size() && isDigit(i + 1) ? 3 : 2;
    }
    if (taken == 3 && isDigit(i + 2)) {
      expected += static_cast<char>(strtoul(text.substr(i + 1, 2).c_str(), nullptr, 16));
    } else {
      expected += text.substr(i, taken);
    }
    i += taken;
  }
  size_t size = 0;
  char *result = Escape_Undo(escByte, text.data(), text.size(), &size);
  Expect(Taken(result, size) == expected);
}

void CheckStrchr(char escByte, const std::string &text) {
  const char c = escByte == ',' ? ';' : ',';
  const char *expected = nullptr;
  bool escaped = false;
  for (const char *at = text.c_str(); *at != '\0' && expected == nullptr; at++) {
    expected = !escaped && *at == c ? at : nullptr;
    escaped = !escaped && *at == escByte;
  }
  Expect(Escape_Strchr(escByte, text.c_str(), c) == expected);
}

void CheckUnescape(char escByte, const std::string &text) {
  std::string expected;
  bool escaped = false;
  for (const char *at = text.c_str(); *at != '\0'; at++) {
    escaped = !escaped && *at == escByte;
    if (!escaped) {
      expected += *at;
    }
  }
  Expect(OwnedString(Escape_Unescape(escByte, text.c_str())).get() == expected);
}

void CheckUnescapeCString(const std::string &text) {
  std::string expected;
  for (const char *at = text.c_str(); *at != '\0';) {
    unsigned value = 0;
    int used = 1;
    if (at[0] == '\\' && (at[1] == 'n' || at[1] == '\\')) {
      expected += at[1] == 'n' ? '\n' : '\\';
      used = 2;
    } else if (sscanf(at, "\\%03o%n", &value, &used) == 1) {
      expected += static_cast<char>(value);
    } else {
      expected += *at;
    }
    at += used;
  }
  const OwnedString copy(strdup(text.c_str()));
  Escape_UnescapeCString(copy.get());
  // An octal escape may put a NUL into it.
  Expect(memcmp(copy.get(), expected.c_str(), expected.size() + 1) == 0);
}

void CheckQuotesAndLineEnds(const std::string &text) {
  size_t size = 0;
  char *result = Escape_Sh(text.data(), text.size(), &size);
  const std::string quoted = Taken(result, size);
  const auto quotes = static_cast<size_t>(std::count(text.begin(), text.end(), '\''));
  Expect(quoted.size() == text.size() + 2 + 4 * quotes);
  result = Escape_AnsiToUnix(text.data(), text.size(), &size);
  std::string expected;
  for (size_t i = 0; i < text.size(); i++) {
    if (text.compare(i, 2, "\r\n") != 0) {
      expected += text[i];
    }
  }
  Expect(Taken(result, size) == expected);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) {
    return 0;
  }
  const char escByte = static_cast<char>(data[0]);
  const std::string text(reinterpret_cast<const char *>(data) + 1, size - 1);
  CheckDo(escByte, text);
  CheckUndo(escByte, text);
  CheckStrchr(escByte, text);
  CheckQuotesAndLineEnds(text);
  CheckUnescape(escByte, text);
  CheckUnescapeCString(text);
  return 0;
}
