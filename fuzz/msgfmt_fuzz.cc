// Message formats: the values that a format takes, on the heap and in buffers of any size, printed, copied
// and moved, and held against the C library's text where the two agree.
//
// The first byte of the input is a size, the rest is the format. Each argument that isn't a double is the
// same pointer, whatever the format takes it for: it points to a string that is a wide string as well, and is
// a small number.

#include <sys/mman.h>

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "bsd_output_shared.h"
#include "formats.h"
#include "msgfmt.h"
#include "owned.h"

namespace {

constexpr size_t kLongestFormat = 64;
constexpr size_t kLongestText = 1 << 16;
// Holds each error there is for such formats.
constexpr size_t kLeastBuffer = 256;

#define POINTERS_8 p, p, p, p, p, p, p, p
// More than a format of kLongestFormat bytes takes.
#define ARGUMENTS                                                                                     \
  POINTERS_8, 0.0, -0.5, 1e300, 5e-324, 123.456, 1e-5, 99.5, 0.1, POINTERS_8, POINTERS_8, POINTERS_8, \
      POINTERS_8, POINTERS_8, POINTERS_8, POINTERS_8, POINTERS_8

void Require(bool holds, const char *what, const std::string &format) {
  if (!holds) {
    fprintf(stderr, "<%s>: %s\n", format.c_str(), what);
    abort();
  }
}

const wchar_t *Block() {
  static wchar_t *const block = [] {
    void *room = mmap(reinterpret_cast<void *>(0x10000), 4096, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
    if (room == MAP_FAILED) {
      abort();
    }
    auto *text = static_cast<wchar_t *>(room);
    text[0] = L'a';
    text[1] = L'b';
    return text;
  }();
  return block;
}

struct Taken {
  bool succeeded = false;
  MsgFmt_Arg *args = nullptr;
  int numArgs = 0;
  char *error = nullptr;
};

Taken CallTake(void *buffer, size_t *size, const char *format, ...) {
  Taken taken;
  va_list args;
  va_start(args, format);
  taken.succeeded =
      MsgFmt_GetArgsWithBuf(format, args, &taken.args, &taken.numArgs, &taken.error, buffer, size);
  va_end(args);
  return taken;
}

Taken Take(void *buffer, size_t *size, const std::string &format) {
  const wchar_t *p = Block();
  return CallTake(buffer, size, format.c_str(), ARGUMENTS);
}

std::string Print(const std::string &format, const MsgFmt_Arg *args, int numArgs) {
  size_t length = 0;
  const OwnedString text(MsgFmt_Asprintf(&length, format.c_str(), args, numArgs));
  return text == nullptr ? "failed" : std::string(text.get(), length);
}

std::string Theirs(const std::string &format) {
  static int (*const print)(char *, size_t, const char *, ...) = snprintf;
  const wchar_t *p = Block();
  std::string text(kLongestText, '\0');
  const int length = print(text.data(), text.size(), format.c_str(), ARGUMENTS);
  text.resize(length < 0 ? 0 : static_cast<size_t>(length));
  return text;
}

// Whether the C library prints a format that we take in the same way.
bool IsAgreedOn(const std::string &format) {
  bool positions = false;
  std::set<BsdOutput_Kind> kinds;
  for (size_t i = format.find('%'); i != std::string::npos; i = format.find('%', i)) {
    BsdOutput_Spec spec;
    const char *begin = format.c_str() + i + 1;
    const char *end = BsdOutput_ParseSpec(begin, &spec);
    if (end == nullptr || !IsAgreedOn(std::string(begin, end), spec, "ISC")) {
      return false;
    }
    positions = positions || spec.position > 0;
    if (spec.kind != BsdOutput_Kind::NONE) {
      kinds.insert(spec.kind);
    }
    i = static_cast<size_t>(end - format.c_str());
  }
  // One position that is asked for as two kinds is ours to tell.
  return !positions || kinds.size() == 1;
}

bool HasWide(const Taken &taken) {
  for (int i = 0; i < taken.numArgs; i++) {
    if (taken.args[i].type == MSGFMT_ARG_STRING32) {
      return true;
    }
  }
  return false;
}

void CheckCopy(const std::string &format, const Taken &taken, const std::string &text) {
  if (HasWide(taken)) {
    return;
  }
  MsgFmt_Arg *copy = MsgFmt_CopyArgs(taken.args, taken.numArgs);
  Require(Print(format, copy, taken.numArgs) == text, "the copy differs", format);
  MsgFmt_FreeArgs(copy, taken.numArgs);
}

// The values in a buffer, moved to another place.
void CheckMoved(const std::string &format, const Taken &taken, std::vector<char> *buffer, size_t used,
                const std::string &text) {
  const auto table = static_cast<size_t>(reinterpret_cast<char *>(taken.args) - buffer->data());
  MsgFmt_SwizzleArgs(taken.args, taken.numArgs);
  std::vector<char> moved(buffer->begin(), buffer->begin() + static_cast<ptrdiff_t>(used));
  std::fill(buffer->begin(), buffer->end(), '\xFF');
  auto *args = reinterpret_cast<MsgFmt_Arg *>(moved.data() + table);
  MsgFmt_UnswizzleArgs(args, taken.numArgs);
  Require(Print(format, args, taken.numArgs) == text, "the moved values differ", format);
}

void CheckBuffer(const std::string &format, size_t size, const Taken &onHeap, const std::string &text) {
  std::vector<char> buffer(size);
  size_t used = size;
  const Taken taken = Take(buffer.data(), &used, format);
  Require(used <= size, "more is used than there is", format);
  if (!taken.succeeded) {
    Require(taken.error == buffer.data() && used == strlen(taken.error) + 1, "the error is elsewhere",
            format);
    const bool full = strstr(taken.error, "out of memory") != nullptr;
    Require(full || (!onHeap.succeeded && strcmp(taken.error, onHeap.error) == 0), "another error", format);
    return;
  }
  Require(onHeap.succeeded && taken.numArgs == onHeap.numArgs, "other values in a buffer", format);
  Require(Print(format, taken.args, taken.numArgs) == text, "another text from a buffer", format);
  if (taken.numArgs > 0) {
    CheckMoved(format, taken, &buffer, used, text);
  }
}

int TakeLiteral(void *clientData, const char *text, size_t length) {
  static_cast<std::string *>(clientData)->append(text, length);
  return 0;
}

int TakeSpecifier(void *clientData, const char *position, size_t positionLength, const char *type,
                  size_t typeLength) {
  auto *whole = static_cast<std::string *>(clientData);
  whole->append("%").append(position, positionLength).append("!").append(type, typeLength).append("!");
  return 0;
}

// A Win32 format whose specifiers are written in full gives itself.
void CheckWin32(const std::string &format) {
  if (format.find("%n") != std::string::npos || format.find("%0") != std::string::npos) {
    return;
  }
  std::string full;
  if (MsgFmt_ParseWin32(TakeLiteral, TakeSpecifier, &full, format.c_str()) == 0) {
    std::string again;
    Require(MsgFmt_ParseWin32(TakeLiteral, TakeSpecifier, &again, full.c_str()) == 0 && again == full,
            "the Win32 form changes", format);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 2 || size > kLongestFormat) {
    return 0;
  }
  const std::string format = std::string(reinterpret_cast<const char *>(data + 1), size - 1).c_str();
  CheckWin32(format);
  if (HasLargeNumber(format)) {
    return 0;
  }
  const Taken taken = Take(nullptr, nullptr, format);
  const OwnedString error(taken.error);
  Require(taken.succeeded == (taken.error == nullptr), "success and an error", format);
  std::string text;
  if (taken.succeeded) {
    text = Print(format, taken.args, taken.numArgs);
    CheckCopy(format, taken, text);
    if (text.size() < kLongestText && IsAgreedOn(format)) {
      Require(text == Theirs(format), "not the library's text", format);
    }
  }
  CheckBuffer(format, kLeastBuffer + size_t{8} * data[0], taken, text);
  MsgFmt_FreeArgs(taken.args, taken.numArgs);
  return 0;
}
