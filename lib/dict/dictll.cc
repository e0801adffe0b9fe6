#include "dictll.h"

#include <array>
#include <cstring>
#include <utility>

#include "escape.h"
#include "ostdio.h"
#include "panicUser.h"

namespace {

using std::string_view;

constexpr char kEscape = '|';

using ByteSet = std::array<bool, 256>;

constexpr ByteSet MakeSet(string_view bytes) {
  ByteSet set{};
  for (const char byte : bytes) {
    set[static_cast<unsigned char>(byte)] = true;
  }
  return set;
}

// Tabs and what isn't ASCII stay readable.
constexpr ByteSet MakeBytesToEscape() {
  ByteSet set = MakeSet("\"|\x7F");
  for (size_t byte = 0; byte < 0x20; byte++) {
    set[byte] = byte != '\t';
  }
  return set;
}

constexpr ByteSet kBytesToEscape = MakeBytesToEscape();
constexpr ByteSet kBlanks = MakeSet(" \t");
// What a name and a bare value end at.
constexpr ByteSet kNoName = MakeSet({" \t#=\0", 5});
constexpr ByteSet kNoBareValue = MakeSet({" \t#\0", 4});

// Where the bytes from `at` on that are in `set`, or those that aren't, end: at the NUL behind a line at the
// latest.
const char *SkipAll(const char *at, const ByteSet &set) {
  while (set[static_cast<unsigned char>(*at)]) {
    at++;
  }
  return at;
}

const char *SkipUpTo(const char *at, const ByteSet &ends) {
  while (!ends[static_cast<unsigned char>(*at)]) {
    at++;
  }
  return at;
}

// Finds the value at `at`, with its escapes. Returns what stands behind it, or null without a closing quote.
const char *SplitValue(const char *at, string_view *value) {
  const bool quoted = *at == '"';
  const char *start = quoted ? at + 1 : at;
  const char *end = quoted ? strchrnul(start, '"') : SkipUpTo(start, kNoBareValue);
  *value = {start, end};
  if (!quoted) {
    return end;
  }
  return *end == '"' ? end + 1 : nullptr;
}

// Finds name and value, the value with its escapes. False when it isn't a key line. A NUL stands behind it.
bool SplitLine(string_view text, string_view *name, string_view *value) {
  const char *start = SkipAll(text.data(), kBlanks);
  const char *at = SkipUpTo(start, kNoName);
  *name = {start, at};
  at = SkipAll(at, kBlanks);
  if (name->empty() || *at != '=') {
    return false;
  }
  at = SplitValue(SkipAll(at + 1, kBlanks), value);
  if (at == nullptr) {
    return false;
  }
  at = SkipAll(at, kBlanks);
  return *at == '#' || at == text.data() + text.size();
}

}  // namespace

DictLL_Status DictLL_ReadLine(FILE *stream, DictLL_Line *line) {
  char *text = nullptr;
  size_t size = 0;
  switch (StdIO_ReadNextLine(stream, &text, 0, &size)) {
    case StdIO_EOF:
      return DICTLL_EOF;
    case StdIO_Success:
      *line = DictLL_UnmarshalLine(OwnedString(text), size);
      return DICTLL_LINE;
    default:
      return DICTLL_ERROR;
  }
}

DictLL_Line DictLL_UnmarshalLine(OwnedString text, size_t size) {
  DictLL_Line line;
  line.text = std::move(text);
  line.textSize = size;
  string_view name;
  string_view value;
  if (!SplitLine({line.text.get(), size}, &name, &value)) {
    return line;
  }
  if (value.find(kEscape) != string_view::npos) {
    size_t unescapedSize = 0;
    line.unescaped.reset(Escape_Undo(kEscape, value.data(), value.size(), &unescapedSize));
    ASSERT_MEM_ALLOC(line.unescaped != nullptr);
    value = {line.unescaped.get(), unescapedSize};
  }
  line.name = name;
  line.value = value;
  return line;
}

bool DictLL_MarshalLine(DynBuf *output, const char *name, const void *value, size_t size) {
  size_t escapedSize = 0;
  const OwnedString escaped(Escape_Do(kEscape, kBytesToEscape.data(), value, size, &escapedSize));
  return escaped != nullptr && DynBuf_Append(output, name, strlen(name)) &&
         DynBuf_Append(output, " = \"", 4) && DynBuf_Append(output, escaped.get(), escapedSize) &&
         DynBuf_Append(output, "\"\n", 2);
}
