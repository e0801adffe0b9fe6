#include "escape.h"

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "panicUser.h"

namespace {

constexpr char kShellQuote[] = "'\"'\"'";
constexpr size_t kShellQuoteLength = sizeof kShellQuote - 1;

using HexCode = std::array<char, 2>;

constexpr std::array<HexCode, 256> MakeHexCodes() {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::array<HexCode, 256> codes{};
  for (size_t i = 0; i < codes.size(); i++) {
    codes[i] = {kDigits[i >> 4], kDigits[i & 0xf]};
  }
  return codes;
}

constexpr std::array<HexCode, 256> kHexCodes = MakeHexCodes();

constexpr int8_t kNoDigit = -1;

constexpr std::array<int8_t, 256> MakeHexValues() {
  std::array<int8_t, 256> values{};
  values.fill(kNoDigit);
  for (int8_t i = 0; i < 10; i++) {
    values[static_cast<size_t>('0' + i)] = i;
  }
  for (int8_t i = 0; i < 6; i++) {
    values[static_cast<size_t>('A' + i)] = static_cast<int8_t>(10 + i);
    values[static_cast<size_t>('a' + i)] = static_cast<int8_t>(10 + i);
  }
  return values;
}

constexpr std::array<int8_t, 256> kHexValues = MakeHexValues();

int8_t HexValue(char c) {
  return kHexValues[static_cast<unsigned char>(c)];
}

// The text under construction, with room for its NUL.
class Output {
 public:
  explicit Output(size_t capacity)
      : capacity_(capacity),
        text_(capacity == SIZE_MAX ? nullptr : static_cast<char *>(malloc(capacity + 1))) {
    end_ = text_;
  }
  ~Output() { free(text_); }
  Output(const Output &) = delete;
  Output &operator=(const Output &) = delete;

  bool Allocated() const { return text_ != nullptr; }
  void Put(char c) { *end_++ = c; }
  void Put(const char *from, size_t size) {
    if (size != 0) {
      memcpy(end_, from, size);
      end_ += size;
    }
  }
  // A byte as it is, or an escape byte with its two digits. Writes all three without a branch that would
  // hang on the data, so that something must come behind it.
  void PutByteOrCode(char escByte, unsigned char byte, bool escaped) {
    end_[0] = escaped ? escByte : static_cast<char>(byte);
    memcpy(end_ + 1, kHexCodes[byte].data(), sizeof(HexCode));
    end_ += 1 + 2 * static_cast<size_t>(escaped);
  }
  void Put(const char *from, const char *to) { Put(from, static_cast<size_t>(to - from)); }

  // Hands the text over, trimmed to its size.
  char *Detach(size_t *outSize) {
    *end_ = '\0';
    const auto size = static_cast<size_t>(end_ - text_);
    char *trimmed = size == capacity_ ? text_ : static_cast<char *>(realloc(text_, size + 1));
    if (trimmed == nullptr) {
      return nullptr;
    }
    text_ = nullptr;
    if (outSize != nullptr) {
      *outSize = size;
    }
    return trimmed;
  }

 private:
  const size_t capacity_;
  char *text_;
  char *end_;
};

void ClearSize(size_t *outSize) {
  if (outSize != nullptr) {
    *outSize = 0;
  }
}

// memchr that looks at the first byte itself, which hits at once where one wanted byte follows another.
const char *Find(const char *from, const char *end, char c) {
  if (from == end || *from == c) {
    return from == end ? nullptr : from;
  }
  return static_cast<const char *>(memchr(from, c, static_cast<size_t>(end - from)));
}

size_t CountFlagged(const unsigned char *bytes, size_t size, const bool *flags) {
  size_t count = 0;
  for (size_t i = 0; i < size; i++) {
    count += flags[bytes[i]] ? 1 : 0;
  }
  return count;
}

size_t CountByte(const char *from, const char *end, char c) {
  size_t count = 0;
  while ((from = Find(from, end, c)) != nullptr) {
    from++;
    count++;
  }
  return count;
}

// `size` and `count` times `each`, or SIZE_MAX when that is too much.
size_t SumWith(size_t size, size_t count, size_t each) {
  size_t more = 0;
  size_t sum = 0;
  if (__builtin_mul_overflow(count, each, &more) || __builtin_add_overflow(size, more, &sum)) {
    return SIZE_MAX;
  }
  return sum;
}

// Puts the escape and two digits for each flagged byte.
char *EscapeFlagged(std::string_view escape, const bool *flags, const void *buf, size_t size,
                    size_t *outSize) {
  ClearSize(outSize);
  const auto *bytes = static_cast<const unsigned char *>(buf);
  // A flagged byte's two digits take the place of the byte and one more.
  Output output(SumWith(size, CountFlagged(bytes, size, flags), escape.size() + 1));
  if (!output.Allocated()) {
    return nullptr;
  }
  size_t i = 0;
  if (escape.size() == 1) {
    for (; i + 1 < size; i++) {
      output.PutByteOrCode(escape[0], bytes[i], flags[bytes[i]]);
    }
  }
  for (; i < size; i++) {
    if (flags[bytes[i]]) {
      output.Put(escape.data(), escape.size());
      output.Put(kHexCodes[bytes[i]].data(), sizeof(HexCode));
    } else {
      output.Put(static_cast<char>(bytes[i]));
    }
  }
  return output.Detach(outSize);
}

// How many escape bytes end at `end`; an odd count escapes what stands there.
size_t CountEscapesBefore(char escByte, const char *begin, const char *end) {
  const char *run = end;
  while (run > begin && run[-1] == escByte) {
    run--;
  }
  return static_cast<size_t>(end - run);
}

bool IsScanfBlank(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

// Reads a number as scanf does by "%03o": blanks, then at most three characters, a sign among them. Returns
// what stands behind the number, or null when there is none.
const char *ReadOctal(const char *text, char *byte) {
  while (IsScanfBlank(*text)) {
    text++;
  }
  const char *limit = text + 3;
  const bool negative = *text == '-';
  if (negative || *text == '+') {
    text++;
  }
  const char *digits = text;
  unsigned value = 0;
  for (; text < limit && *text >= '0' && *text <= '7'; text++) {
    value = value * 8 + static_cast<unsigned>(*text - '0');
  }
  *byte = static_cast<char>(negative ? 0 - value : value);
  return text == digits ? nullptr : text;
}

// What stands behind the escape whose backslash stands before `text`, or null when it isn't one.
const char *ReadCEscape(const char *text, char *byte) {
  if (*text == 'n' || *text == '\\') {
    *byte = *text == 'n' ? '\n' : '\\';
    return text + 1;
  }
  // Most backslashes that are no escape stand before a letter, with which no number begins.
  return *text > '7' ? nullptr : ReadOctal(text, byte);
}

}  // namespace

char *Escape_DoString(const char *escStr, const bool *bytesToEsc, const void *buf, size_t size,
                      size_t *outSize) {
  ASSERT(escStr != nullptr && bytesToEsc != nullptr);
  ASSERT(bytesToEsc[static_cast<unsigned char>(escStr[0])]);
  return EscapeFlagged(escStr, bytesToEsc, buf, size, outSize);
}

char *Escape_Do(char escByte, const bool *bytesToEsc, const void *buf, size_t size, size_t *outSize) {
  ASSERT(bytesToEsc != nullptr && bytesToEsc[static_cast<unsigned char>(escByte)]);
  return EscapeFlagged({&escByte, 1}, bytesToEsc, buf, size, outSize);
}

char *Escape_Undo(char escByte, const void *buf, size_t size, size_t *outSize) {
  ClearSize(outSize);
  Output output(size);
  if (!output.Allocated()) {
    return nullptr;
  }
  const char *rest = static_cast<const char *>(buf);
  const char *end = rest + size;
  const char *escape = nullptr;
  while ((escape = Find(rest, end, escByte)) != nullptr && end - escape > 2) {
    const int8_t high = HexValue(escape[1]);
    const int8_t low = HexValue(escape[2]);
    if (high == kNoDigit || low == kNoDigit) {
      // The byte that breaks the escape goes out with it, and begins no other.
      const char *behind = escape + (high == kNoDigit ? 2 : 3);
      output.Put(rest, behind);
      rest = behind;
      continue;
    }
    output.Put(rest, escape);
    output.Put(static_cast<char>(high << 4 | low));
    rest = escape + 3;
  }
  output.Put(rest, end);
  return output.Detach(outSize);
}

char *Escape_Unescape(char escByte, const char *str) {
  ASSERT(str != nullptr);
  auto *text = static_cast<char *>(malloc(strlen(str) + 1));
  if (text == nullptr) {
    return nullptr;
  }
  char *out = text;
  while (char c = *str++) {
    if (c == escByte && (c = *str++) == '\0') {
      break;
    }
    *out++ = c;
  }
  *out = '\0';
  return text;
}

const char *Escape_Strchr(char escByte, const char *str, char c) {
  ASSERT(str != nullptr);
  ASSERT(escByte != c);
  if (c == '\0') {
    return nullptr;
  }
  const char *found = strchr(str, c);
  while (found != nullptr && CountEscapesBefore(escByte, str, found) % 2 != 0) {
    found = strchr(found + 1, c);
  }
  return found;
}

void Escape_UnescapeCString(char *str) {
  ASSERT(str != nullptr);
  char *out = strchr(str, '\\');
  if (out == nullptr) {
    return;
  }
  const char *in = out;
  while (char c = *in++) {
    char byte = '\0';
    const char *behind = c == '\\' ? ReadCEscape(in, &byte) : nullptr;
    if (behind != nullptr) {
      c = byte;
      in = behind;
    }
    *out++ = c;
  }
  *out = '\0';
}

char *Escape_Sh(const void *buf, size_t size, size_t *outSize) {
  ClearSize(outSize);
  const char *rest = static_cast<const char *>(buf);
  const char *end = rest + size;
  // The text has a quote on either side, and each quote in it takes the place of one byte.
  const size_t quotes = CountByte(rest, end, '\'');
  Output output(SumWith(SumWith(size, quotes, kShellQuoteLength - 1), 1, 2));
  if (!output.Allocated()) {
    return nullptr;
  }
  output.Put('\'');
  while (const char *quote = Find(rest, end, '\'')) {
    output.Put(rest, quote);
    output.Put(kShellQuote, kShellQuoteLength);
    rest = quote + 1;
  }
  output.Put(rest, end);
  output.Put('\'');
  return output.Detach(outSize);
}

char *Escape_AnsiToUnix(const void *buf, size_t size, size_t *outSize) {
  ClearSize(outSize);
  Output output(size);
  if (!output.Allocated()) {
    return nullptr;
  }
  const char *rest = static_cast<const char *>(buf);
  const char *end = rest + size;
  while (const char *carriageReturn = Find(rest, end, '\r')) {
    const char *behind = carriageReturn + 1;
    output.Put(rest, behind < end && *behind == '\n' ? carriageReturn : behind);
    rest = behind;
  }
  output.Put(rest, end);
  return output.Detach(outSize);
}
