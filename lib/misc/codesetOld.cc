#include <iconv.h>
#include <langinfo.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "codeset.h"
#include "codesetOldInt.h"
#include "codesetUtfInt.h"
#include "owned.h"
#include "panicUser.h"
#include "str.h"
#include "unicode.h"
#include "util_misc.h"

namespace {

using Result = CodeSetUtf_Result;

constexpr size_t kIconvFailed = static_cast<size_t>(-1);

// Text is given to iconv in pieces of so many bytes. glibc has room between its two steps for what 8160 bytes
// can stand for at most. Where that room ends inside a character that is several code points, glibc can
// repeat the first of these, once or without end. A few encodings treat what a cut separates otherwise, as
// they do where that room ends.
constexpr size_t kPiece = 8000;

// What iconv_open returns for failure.
iconv_t NoIconv() {
  return reinterpret_cast<iconv_t>(-1);  // NOLINT(performance-no-int-to-ptr): that is its interface
}

iconv_t IconvOpen(const char *codeIn, const char *codeOut, unsigned flags) {
  if (flags != CODESET_STOP) {
    const OwnedString target(Str_Asprintf(nullptr, "%s//TRANSLIT", codeOut));
    if (target == nullptr) {
      return NoIconv();
    }
    iconv_t iconvHandle = iconv_open(target.get(), codeIn);
    if (iconvHandle != NoIconv()) {
      return iconvHandle;
    }
  }
  return iconv_open(codeOut, codeIn);
}

// Converts what is at `*bufIn` once, into all the room that there is. Returns 0 or an errno value.
int IconvStep(iconv_t iconvHandle, char **bufIn, size_t *sizeIn, DynBuf *dynBuf) {
  char *out = dynBuf->data + dynBuf->size;
  size_t room = dynBuf->allocated - dynBuf->size;
  const int error = iconv(iconvHandle, bufIn, sizeIn, &out, &room) == kIconvFailed ? errno : 0;
  dynBuf->size = static_cast<size_t>(out - dynBuf->data);
  return error;
}

// What becomes of text that can't be converted.
struct Unconvertible {
  unsigned flags;
  bool isIgnored;  // the name of the target tells iconv so
};

// Converts a piece of what is at `*bufIn`. The part of a sequence that it may end in is left, and is an error
// only when there is nothing before it. So is what stands behind text that was ignored, because glibc calls
// that an error all the same. Returns 0 or an errno value.
int IconvPiece(iconv_t iconvHandle, char **bufIn, size_t *sizeIn, Unconvertible unconvertible,
               DynBuf *dynBuf) {
  const size_t piece = std::min(kPiece, *sizeIn);
  size_t left = piece;
  const int error = IconvStep(iconvHandle, bufIn, &left, dynBuf);
  const bool goesOn = error == EINVAL || (unconvertible.isIgnored && error == EILSEQ);
  *sizeIn -= piece - left;
  return goesOn && left < piece ? 0 : error;
}

// With flags, an invalid sequence ends the text.
bool IsEnd(int error, Unconvertible unconvertible) {
  return error == 0 || (unconvertible.flags != CODESET_STOP && error == EILSEQ);
}

// Takes out what the encoding holds back, and its way back to where text begins. A last letter that is
// ignored ends the first call before that.
int IconvFlush(iconv_t iconvHandle, Unconvertible unconvertible, DynBuf *dynBuf) {
  const int error = IconvStep(iconvHandle, nullptr, nullptr, dynBuf);
  return unconvertible.isIgnored && error == EILSEQ ? IconvStep(iconvHandle, nullptr, nullptr, dynBuf)
                                                    : error;
}

// Converts the text and what its encoding holds back until the end, from the beginning on, into the room that
// there is. Returns 0 or an errno value.
int IconvFromBeginning(iconv_t iconvHandle, const char *bufIn, size_t sizeIn, Unconvertible unconvertible,
                       DynBuf *dynBuf) {
  auto *rest = const_cast<char *>(bufIn);
  iconv(iconvHandle, nullptr, nullptr, nullptr, nullptr);
  int error = 0;
  do {
    error = IconvPiece(iconvHandle, &rest, &sizeIn, unconvertible, dynBuf);
  } while (error == 0 && sizeIn != 0);
  if (!IsEnd(error, unconvertible)) {
    return error;
  }
  return IconvFlush(iconvHandle, unconvertible, dynBuf);
}

// Converts all of the text. More room means a new beginning, because glibc repeats characters, too, when it
// goes on in new room.
bool IconvText(iconv_t iconvHandle, const char *bufIn, size_t sizeIn, Unconvertible unconvertible,
               DynBuf *dynBuf) {
  const size_t before = dynBuf->size;
  size_t room = CodeSetUtf_LikelySize(sizeIn);
  int error = 0;
  do {
    dynBuf->size = before;
    if (!CodeSetUtf_Reserve(dynBuf, room)) {
      return false;
    }
    error = IconvFromBeginning(iconvHandle, bufIn, sizeIn, unconvertible, dynBuf);
    room *= 4;
  } while (error == E2BIG);
  return IsEnd(error, unconvertible);
}

// In either case, alike in every locale.
bool IsIgnore(std::string_view suffix) {
  const auto isSame = [](char letter, char upper) { return letter == upper || letter == upper - 'A' + 'a'; };
  return std::ranges::equal(suffix, std::string_view("IGNORE"), isSame);
}

// Whether the name of a target tells iconv to ignore what can't be converted. As iconv itself reads it: from
// the end, one suffix after the other, while two slashes are left wherever they stand.
bool NamesIgnore(std::string_view codeOut) {
  while (true) {
    codeOut = codeOut.substr(0, codeOut.find_last_not_of(" \t\n\v\f\r,/") + 1);
    if (std::ranges::count(codeOut, '/') < 2) {
      return false;
    }
    const size_t place = codeOut.find_last_of(",/");
    if (IsIgnore(codeOut.substr(place + 1))) {
      return true;
    }
    codeOut = codeOut.substr(0, place);
  }
}

// The whole conversion on a handle of its own. Leaves what there is of a failed one.
bool IconvConvert(const char *codeIn, const char *bufIn, size_t sizeIn, const char *codeOut, unsigned flags,
                  DynBuf *dynBuf) {
  iconv_t iconvHandle = IconvOpen(codeIn, codeOut, flags);
  if (iconvHandle == NoIconv()) {
    return false;
  }
  const Unconvertible unconvertible = {.flags = flags, .isIgnored = NamesIgnore(codeOut)};
  const bool converted = IconvText(iconvHandle, bufIn, sizeIn, unconvertible, dynBuf);
  const bool closed = iconv_close(iconvHandle) == 0;
  return converted && closed;
}

// Hands out what `convert(dynBuf)` makes of an empty buffer.
template <typename Convert>
bool ConvertToNew(char **bufOut, size_t *sizeOut, const Convert &convert) {
  DynBuf dynBuf;
  DynBuf_Init(&dynBuf);
  const bool ok = convert(&dynBuf);
  return CodeSetDynBufFinalize(ok, &dynBuf, bufOut, sizeOut);
}

// What a converter between ASCII and UTF-8 does with what isn't ASCII.
struct BeyondAscii {
  bool isUtf8;                  // well-formed sequences are one, and not a number of bytes
  std::string_view substitute;  // stands for each
};

bool CopyAscii(const char *bufIn, size_t sizeIn, unsigned flags, const BeyondAscii &beyond, DynBuf *dynBuf) {
  ASSERT(flags <= CODESET_SKIP);
  std::string_view rest(bufIn, bufIn != nullptr ? sizeIn : 0);
  if (!CodeSetUtf_Reserve(dynBuf, rest.size() + kCodeSetTerminator)) {
    return false;
  }
  const size_t before = dynBuf->size;
  const std::string_view substitute = flags == CODESET_SUBSTITUTE ? beyond.substitute : "";
  while (!rest.empty()) {
    const size_t ascii = CodeSetUtf_AsciiLength(rest.data(), rest.size());
    bool ok = DynBuf_Append(dynBuf, rest.data(), ascii);
    rest.remove_prefix(ascii);
    if (!rest.empty()) {
      ok = ok && flags != CODESET_STOP && DynBuf_Append(dynBuf, substitute.data(), substitute.size());
      const size_t length = beyond.isUtf8 ? CodeSetUtf_SequenceLength(rest.data(), rest.size()) : 1;
      rest.remove_prefix(std::max<size_t>(length, 1));
    }
    if (!ok) {
      dynBuf->size = before;
      return false;
    }
  }
  return true;
}

OwnedString LocaleCodeSet() {
  locale_t locale = newlocale(LC_CTYPE_MASK, "", nullptr);
  if (locale == nullptr) {
    locale = newlocale(LC_CTYPE_MASK, "C", nullptr);
  }
  ASSERT(locale != nullptr);
  OwnedString name(Util_SafeStrdup(nl_langinfo_l(CODESET, locale)));
  freelocale(locale);
  return name;
}

OwnedString FindCurrentCodeSet() {
  const char *names = getenv("G_FILENAME_ENCODING");
  if (names != nullptr && *names != '\0') {
    OwnedString first(Util_SafeStrndup(names, strcspn(names, ",")));
    return strcmp(first.get(), "@locale") == 0 ? LocaleCodeSet() : std::move(first);
  }
  if (getenv("G_BROKEN_FILENAMES") != nullptr) {
    return LocaleCodeSet();
  }
  return OwnedString(Util_SafeStrdup("UTF-8"));
}

}  // namespace

bool CodeSetDynBufFinalize(bool ok, DynBuf *dynBuf, char **bufOut, size_t *sizeOut) {
  const size_t size = dynBuf->size;
  const size_t whole = size + kCodeSetTerminator;
  if (!ok || (dynBuf->allocated != whole && !DynBuf_Realloc(dynBuf, whole))) {
    DynBuf_Destroy(dynBuf);
    ok = false;
  } else {
    memset(dynBuf->data + size, 0, kCodeSetTerminator);
  }
  *bufOut = static_cast<char *>(DynBuf_Detach(dynBuf));
  if (sizeOut != nullptr) {
    *sizeOut = ok ? size : 0;
  }
  return ok;
}

const char *CodeSetOld_GetCurrentCodeSet() {
  // From the first call to the end of the process.
  static const char *const name = FindCurrentCodeSet().release();
  return name;
}

bool CodeSetOld_GenericToGenericDb(const char *codeIn, const char *bufIn, size_t sizeIn, const char *codeOut,
                                   unsigned flags, DynBuf *dynBuf) {
  ASSERT(flags <= CODESET_SKIP);
  const Result result = CodeSetUtf_Convert(codeIn, bufIn, sizeIn, codeOut, dynBuf);
  if (result == Result::kDone || result == Result::kNoMemory) {
    return result == Result::kDone;
  }
  if (bufIn == nullptr && sizeIn != 0) {
    return false;
  }
  const size_t before = dynBuf->size;
  const bool converted = IconvConvert(codeIn, bufIn, sizeIn, codeOut, flags, dynBuf);
  if (!converted) {
    dynBuf->size = before;
  }
  return converted;
}

bool CodeSetOld_GenericToGeneric(const char *codeIn, const char *bufIn, size_t sizeIn, const char *codeOut,
                                 unsigned flags, char **bufOut, size_t *sizeOut) {
  return ConvertToNew(bufOut, sizeOut, [&](DynBuf *dynBuf) {
    return CodeSetOld_GenericToGenericDb(codeIn, bufIn, sizeIn, codeOut, flags, dynBuf);
  });
}

bool CodeSetOld_Validate(const char *buffer, size_t size, const char *code) {
  DynBuf scratch;
  DynBuf_Init(&scratch);
  const bool isValid = CodeSetOld_GenericToGenericDb(code, buffer, size, "UTF-8", CODESET_STOP, &scratch);
  DynBuf_Destroy(&scratch);
  return isValid;
}

bool CodeSetOld_IsEncodingSupported(const char *name) {
  ASSERT(name != nullptr);
  return Unicode_EncodingNameToEnum(name) != STRING_ENCODING_UNKNOWN;
}

bool CodeSetOld_Utf8ToCurrent(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut) {
  return CodeSetOld_GenericToGeneric("UTF-8", bufIn, sizeIn, CodeSetOld_GetCurrentCodeSet(), CODESET_STOP,
                                     bufOut, sizeOut);
}

bool CodeSetOld_CurrentToUtf8(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut) {
  return CodeSetOld_GenericToGeneric(CodeSetOld_GetCurrentCodeSet(), bufIn, sizeIn, "UTF-8", CODESET_STOP,
                                     bufOut, sizeOut);
}

bool CodeSetOld_Utf16leToCurrent(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut) {
  return CodeSetOld_GenericToGeneric("UTF-16LE", bufIn, sizeIn, CodeSetOld_GetCurrentCodeSet(), CODESET_STOP,
                                     bufOut, sizeOut);
}

bool CodeSetOld_CurrentToUtf16le(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut) {
  return CodeSetOld_GenericToGeneric(CodeSetOld_GetCurrentCodeSet(), bufIn, sizeIn, "UTF-16LE", CODESET_STOP,
                                     bufOut, sizeOut);
}

bool CodeSetOld_Utf16beToCurrent(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut) {
  return CodeSetOld_GenericToGeneric("UTF-16BE", bufIn, sizeIn, CodeSetOld_GetCurrentCodeSet(), CODESET_STOP,
                                     bufOut, sizeOut);
}

bool CodeSetOld_Utf16leToUtf8(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut) {
  return CodeSetUtf_Utf16leToUtf8(bufIn, sizeIn, bufOut, sizeOut);
}

bool CodeSetOld_Utf16leToUtf8Db(const char *bufIn, size_t sizeIn, DynBuf *dynBuf) {
  return CodeSetUtf_Utf16leToUtf8Db(bufIn, sizeIn, dynBuf) == Result::kDone;
}

bool CodeSetOld_Utf16beToUtf8(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut) {
  return CodeSetUtf_Utf16beToUtf8(bufIn, sizeIn, bufOut, sizeOut);
}

bool CodeSetOld_Utf8ToUtf16le(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut) {
  return CodeSetUtf_Utf8ToUtf16le(bufIn, sizeIn, bufOut, sizeOut);
}

bool CodeSetOld_Utf8ToAscii(const char *bufIn, size_t sizeIn, unsigned flags, char **bufOut,
                            size_t *sizeOut) {
  return ConvertToNew(bufOut, sizeOut,
                      [&](DynBuf *dynBuf) { return CodeSetOld_Utf8ToAsciiDb(bufIn, sizeIn, flags, dynBuf); });
}

bool CodeSetOld_Utf8ToAsciiDb(const char *bufIn, size_t sizeIn, unsigned flags, DynBuf *dynBuf) {
  return CopyAscii(bufIn, sizeIn, flags, {.isUtf8 = true, .substitute = "\x1A"}, dynBuf);
}

bool CodeSetOld_AsciiToUtf8(const char *bufIn, size_t sizeIn, unsigned flags, char **bufOut,
                            size_t *sizeOut) {
  return ConvertToNew(bufOut, sizeOut,
                      [&](DynBuf *dynBuf) { return CodeSetOld_AsciiToUtf8Db(bufIn, sizeIn, flags, dynBuf); });
}

bool CodeSetOld_AsciiToUtf8Db(const char *bufIn, size_t sizeIn, unsigned flags, DynBuf *dynBuf) {
  return CopyAscii(bufIn, sizeIn, flags, {.isUtf8 = false, .substitute = "\uFFFD"}, dynBuf);
}

bool CodeSetOld_Utf8Normalize(const char * /*bufIn*/, size_t /*sizeIn*/, bool /*precomposed*/,
                              DynBuf * /*dynBuf*/) {
  NOT_IMPLEMENTED();
}

bool CodeSetOld_Utf8FormDToUtf8FormC(const char * /*bufIn*/, size_t /*sizeIn*/, char ** /*bufOut*/,
                                     size_t * /*sizeOut*/) {
  NOT_IMPLEMENTED();
}
