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

// Takes bytes off the front of `text`, as long as being in `set` is `wanted` of them.
string_view TakeWhile(string_view *text, const ByteSet &set, bool wanted) {
  size_t count = 0;
  while (count < text->size() && set[static_cast<unsigned char>((*text)[count])] == wanted) {
    count++;
  }
  const string_view taken = text->substr(0, count);
  text->remove_prefix(count);
  return taken;
}

string_view TakeUpTo(string_view *text, const ByteSet &ends) {
  return TakeWhile(text, ends, false);
}

void SkipBlanks(string_view *text) {
  TakeWhile(text, kBlanks, true);
}

bool TakeByte(string_view *text, char byte) {
  const bool found = text->starts_with(byte);
  text->remove_prefix(found ? 1 : 0);
  return found;
}

bool TakeValue(string_view *text, string_view *value) {
  if (!TakeByte(text, '"')) {
    *value = TakeUpTo(text, kNoBareValue);
    return true;
  }
  *value = text->substr(0, text->find('"'));
  text->remove_prefix(value->size());
  return value->find('\0') == string_view::npos && TakeByte(text, '"');
}

// Finds name and value, the value with its escapes. False when it isn't a key line.
bool SplitLine(string_view text, string_view *name, string_view *value) {
  SkipBlanks(&text);
  *name = TakeUpTo(&text, kNoName);
  SkipBlanks(&text);
  if (name->empty() || !TakeByte(&text, '=')) {
    return false;
  }
  SkipBlanks(&text);
  if (!TakeValue(&text, value)) {
    return false;
  }
  SkipBlanks(&text);
  return text.empty() || text.front() == '#';
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
