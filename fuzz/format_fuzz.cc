// Formats: the same text into a new string and into a buffer of any size, and the C library's text where the
// two agree.
//
// The first byte of the input is the buffer's size, the rest is the format. Each argument that isn't a double
// is the same pointer, whatever the format takes it for: it points to a string that is a wide string as well,
// may be written to, and is a small number.

#include <sys/mman.h>

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>

#include "../lib/string/bsd_vsnprintfInt.h"
#include "bsd_output_shared.h"
#include "formats.h"
#include "owned.h"

namespace {

constexpr size_t kLongestFormat = 64;
constexpr size_t kLongestText = 1 << 16;

#define POINTERS_8 p, p, p, p, p, p, p, p
// More than a format of kLongestFormat bytes takes.
#define ARGUMENTS                                                                                     \
  POINTERS_8, 0.0, -0.5, 1e300, 5e-324, 123.456, 1e-5, 99.5, 0.1, POINTERS_8, POINTERS_8, POINTERS_8, \
      POINTERS_8, POINTERS_8, POINTERS_8, POINTERS_8, POINTERS_8

// The block that all pointers point to, filled anew for each print.
wchar_t *Block() {
  static void *const block = mmap(reinterpret_cast<void *>(0x10000), 4096, PROT_READ | PROT_WRITE,
                                  MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
  if (block == MAP_FAILED) {
    abort();
  }
  auto *text = static_cast<wchar_t *>(block);
  memset(text, 0, 64);
  text[0] = L'a';
  text[1] = L'b';
  return text;
}

int CallOurs(char **buffer, size_t size, const char *format, ...) {
  va_list args;
  va_start(args, format);
  const int length = bsd_vsnprintf(buffer, size, format, args);
  va_end(args);
  return length;
}

int Ours(char **buffer, size_t size, const std::string &format) {
  const wchar_t *p = Block();
  return CallOurs(buffer, size, format.c_str(), ARGUMENTS);
}

int Theirs(std::string *text, const std::string &format) {
  static int (*const print)(char *, size_t, const char *, ...) = snprintf;
  const wchar_t *p = Block();
  return print(text->data(), text->size(), format.c_str(), ARGUMENTS);
}

bool TakesPosition(const BsdOutput_Spec &spec) {
  return spec.position > 0 || spec.widthFrom > 0 || spec.precisionFrom > 0;
}

bool TakesNext(const BsdOutput_Spec &spec) {
  return (spec.kind != BsdOutput_Kind::NONE && spec.position == BSDOUTPUT_NEXT) ||
         spec.widthFrom == BSDOUTPUT_NEXT || spec.precisionFrom == BSDOUTPUT_NEXT;
}

void AddKinds(const BsdOutput_Spec &spec, std::set<BsdOutput_Kind> *kinds) {
  if (spec.widthFrom != BSDOUTPUT_STATED || spec.precisionFrom != BSDOUTPUT_STATED) {
    kinds->insert(BsdOutput_Kind::INT);
  }
  if (spec.kind != BsdOutput_Kind::NONE) {
    kinds->insert(spec.kind);
  }
}

// Whether the C library prints a format in the same way.
bool IsAgreedOn(const std::string &format) {
  bool positions = false;
  bool next = false;
  std::set<BsdOutput_Kind> kinds;
  for (size_t i = format.find('%'); i != std::string::npos; i = format.find('%', i)) {
    BsdOutput_Spec spec;
    const char *begin = format.c_str() + i + 1;
    const char *end = BsdOutput_ParseSpec(begin, &spec);
    if (end == nullptr || !IsAgreedOn(std::string(begin, end), spec, "IDOUSC")) {
      return false;
    }
    positions = positions || TakesPosition(spec);
    next = next || TakesNext(spec);
    AddKinds(spec, &kinds);
    i = static_cast<size_t>(end - format.c_str());
  }
  // Positions that are mixed, or asked for as two kinds, are ours to tell.
  return !positions || (!next && kinds.size() == 1);
}

void CheckBuffer(const std::string &format, const std::string &whole, size_t size) {
  const std::string mark(8, '#');
  std::string buffer = std::string(size, '#') + mark;
  char *place = buffer.data();
  if (Ours(&place, size, format) != static_cast<int>(whole.size()) || buffer.substr(size) != mark) {
    abort();
  }
  const size_t fitting = size == 0 ? 0 : std::min(size - 1, whole.size());
  if (buffer.compare(0, fitting, whole, 0, fitting) != 0 || (size > 0 && buffer[fitting] != '\0')) {
    abort();
  }
}

void CheckAgainstTheLibrary(const std::string &format, const std::string &ours) {
  std::string theirs(kLongestText, '\0');
  const int length = Theirs(&theirs, format);
  if (length != static_cast<int>(ours.size()) || theirs.compare(0, ours.size(), ours) != 0) {
    fprintf(stderr, "<%s> gives <%s>, not <%s>\n", format.c_str(), ours.c_str(), theirs.c_str());
    abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 2 || size > kLongestFormat) {
    return 0;
  }
  const std::string format = std::string(reinterpret_cast<const char *>(data + 1), size - 1).c_str();
  if (HasLargeNumber(format)) {
    return 0;
  }
  char *text = nullptr;
  const int length = Ours(&text, 0, format);
  const OwnedString owner(text);
  if (length < 0 || static_cast<size_t>(length) >= kLongestText) {
    return 0;
  }
  const std::string whole(text, static_cast<size_t>(length));
  CheckBuffer(format, whole, data[0]);
  if (IsAgreedOn(format)) {
    CheckAgainstTheLibrary(format, whole);
  }
  return 0;
}
