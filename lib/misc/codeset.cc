#include "codeset.h"

#include <sys/stat.h>
#include <unicode/putil.h>
#include <unicode/ucnv.h>
#include <unicode/ucnv_err.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <iterator>
#include <memory>

#include "codesetOldInt.h"
#include "codesetUtfInt.h"
#include "owned.h"
#include "panicUser.h"
#include "str.h"

namespace {

using Result = CodeSetUtf_Result;
using OwnedConverter = std::unique_ptr<UConverter, Releaser<ucnv_close>>;

constexpr size_t kPivotUnits = 1024;

// Which engine works. CodeSet_Init decides, called by Unicode_Init before there are threads, and
// CodeSet_DontUseIcu takes it back when the host's own encoding is one that is left to iconv.
bool dontUseIcu = true;

bool IsFile(const char *path) {
  struct stat status;
  return stat(path, &status) == 0 && !S_ISDIR(status.st_mode);
}

OwnedConverter OpenConverter(const char *code) {
  UErrorCode status = U_ZERO_ERROR;
  UConverter *converter = ucnv_open(code, &status);
  return OwnedConverter(U_SUCCESS(status) ? converter : nullptr);
}

bool SetCallbacks(UConverter *source, UConverter *target, unsigned flags) {
  static constexpr UConverterToUCallback kToUnicode[] = {
      UCNV_TO_U_CALLBACK_STOP, UCNV_TO_U_CALLBACK_SUBSTITUTE, UCNV_TO_U_CALLBACK_SKIP};
  static constexpr UConverterFromUCallback kFromUnicode[] = {
      UCNV_FROM_U_CALLBACK_STOP, UCNV_FROM_U_CALLBACK_SUBSTITUTE, UCNV_FROM_U_CALLBACK_SKIP};
  UErrorCode status = U_ZERO_ERROR;
  ucnv_setToUCallBack(source, kToUnicode[flags], nullptr, nullptr, nullptr, &status);
  ucnv_setFromUCallBack(target, kFromUnicode[flags], nullptr, nullptr, nullptr, &status);
  return U_SUCCESS(status);
}

// Converts all of the text; on failure leaves what there is of it.
bool IcuConvert(UConverter *source, const char *bufIn, size_t sizeIn, UConverter *target, DynBuf *dynBuf) {
  if (!CodeSetUtf_Reserve(dynBuf, CodeSetUtf_LikelySize(sizeIn))) {
    return false;
  }
  UChar pivot[kPivotUnits];
  UChar *pivotSource = pivot;
  UChar *pivotTarget = pivot;
  const char *rest = bufIn;
  while (true) {
    UErrorCode status = U_ZERO_ERROR;
    char *out = dynBuf->data + dynBuf->size;
    // ICU refuses to be given more than this.
    const size_t room = std::min<size_t>(dynBuf->allocated - dynBuf->size, INT_MAX);
    ucnv_convertEx(target, source, &out, out + room, &rest, bufIn + sizeIn, pivot, &pivotSource, &pivotTarget,
                   std::end(pivot), false, true, &status);
    dynBuf->size = static_cast<size_t>(out - dynBuf->data);
    if (status != U_BUFFER_OVERFLOW_ERROR) {
      return U_SUCCESS(status);
    }
    if (!DynBuf_Enlarge(dynBuf, dynBuf->allocated * 2)) {
      return false;
    }
  }
}

bool IcuGenericToGenericDb(const char *codeIn, const char *bufIn, size_t sizeIn, const char *codeOut,
                           unsigned flags, DynBuf *dynBuf) {
  const OwnedConverter source = OpenConverter(codeIn);
  const OwnedConverter target = OpenConverter(codeOut);
  if (source == nullptr || target == nullptr || !SetCallbacks(source.get(), target.get(), flags)) {
    return false;
  }
  const size_t before = dynBuf->size;
  const bool converted = IcuConvert(source.get(), bufIn, sizeIn, target.get(), dynBuf);
  if (!converted) {
    dynBuf->size = before;
  }
  return converted;
}

bool IcuValidate(const char *buffer, size_t size, const char *code) {
  const OwnedConverter converter = OpenConverter(code);
  if (converter == nullptr) {
    NOT_IMPLEMENTED();
  }
  UErrorCode status = U_ZERO_ERROR;
  ucnv_setToUCallBack(converter.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
  ASSERT(U_SUCCESS(status));
  ucnv_toUChars(converter.get(), nullptr, 0, buffer, static_cast<int32_t>(size), &status);
  // The text was measured to its end, and no target takes it.
  return status == U_BUFFER_OVERFLOW_ERROR;
}

}  // namespace

bool CodeSet_Init(const char *icuDataDir) {
  const OwnedString path(
      Str_Asprintf(nullptr, "%s/%s", icuDataDir != nullptr ? icuDataDir : "/etc/ostrel/icu", "icudt38l.dat"));
  dontUseIcu = path == nullptr || !IsFile(path.get());
  if (!dontUseIcu) {
    u_setDataDirectory(path.get());
  }
  return true;
}

void CodeSet_DontUseIcu() {
  dontUseIcu = true;
}

const char *CodeSet_GetCurrentCodeSet() {
  return CodeSetOld_GetCurrentCodeSet();
}

bool CodeSet_GenericToGenericDb(const char *codeIn, const char *bufIn, size_t sizeIn, const char *codeOut,
                                unsigned flags, DynBuf *dynBuf) {
  if (dontUseIcu) {
    return CodeSetOld_GenericToGenericDb(codeIn, bufIn, sizeIn, codeOut, flags, dynBuf);
  }
  ASSERT(flags <= CODESET_SKIP);
  if (bufIn == nullptr || sizeIn == 0) {
    return true;
  }
  const Result result = CodeSetUtf_Convert(codeIn, bufIn, sizeIn, codeOut, dynBuf);
  if (result == Result::kDone || result == Result::kNoMemory) {
    return result == Result::kDone;
  }
  return IcuGenericToGenericDb(codeIn, bufIn, sizeIn, codeOut, flags, dynBuf);
}

bool CodeSet_GenericToGeneric(const char *codeIn, const char *bufIn, size_t sizeIn, const char *codeOut,
                              unsigned flags, char **bufOut, size_t *sizeOut) {
  DynBuf dynBuf;
  DynBuf_Init(&dynBuf);
  const bool ok = CodeSet_GenericToGenericDb(codeIn, bufIn, sizeIn, codeOut, flags, &dynBuf);
  return CodeSetDynBufFinalize(ok, &dynBuf, bufOut, sizeOut);
}

bool CodeSet_Validate(const char *buffer, size_t size, const char *code) {
  if (size > INT_MAX) {
    NOT_IMPLEMENTED();
  }
  if (size == 0) {
    return true;
  }
  // Both engines would say the same, but that iconv takes code points above U+10FFFF.
  if (code != nullptr && strcmp(code, "UTF-8") == 0) {
    return buffer != nullptr && CodeSetUtf_IsUtf8(buffer, size);
  }
  return dontUseIcu ? CodeSetOld_Validate(buffer, size, code) : IcuValidate(buffer, size, code);
}

bool CodeSet_IsEncodingSupported(const char *name) {
  return dontUseIcu ? CodeSetOld_IsEncodingSupported(name) : OpenConverter(name) != nullptr;
}

bool CodeSet_Utf8ToCurrent(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut) {
  return dontUseIcu ? CodeSetOld_Utf8ToCurrent(bufIn, sizeIn, bufOut, sizeOut)
                    : CodeSet_GenericToGeneric("UTF-8", bufIn, sizeIn, CodeSet_GetCurrentCodeSet(),
                                               CODESET_STOP, bufOut, sizeOut);
}

bool CodeSet_CurrentToUtf8(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut) {
  return dontUseIcu ? CodeSetOld_CurrentToUtf8(bufIn, sizeIn, bufOut, sizeOut)
                    : CodeSet_GenericToGeneric(CodeSet_GetCurrentCodeSet(), bufIn, sizeIn, "UTF-8",
                                               CODESET_STOP, bufOut, sizeOut);
}

bool CodeSet_Utf16leToCurrent(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut) {
  return dontUseIcu ? CodeSetOld_Utf16leToCurrent(bufIn, sizeIn, bufOut, sizeOut)
                    : CodeSet_GenericToGeneric("UTF-16LE", bufIn, sizeIn, CodeSet_GetCurrentCodeSet(),
                                               CODESET_STOP, bufOut, sizeOut);
}

bool CodeSet_CurrentToUtf16le(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut) {
  return dontUseIcu ? CodeSetOld_CurrentToUtf16le(bufIn, sizeIn, bufOut, sizeOut)
                    : CodeSet_GenericToGeneric(CodeSet_GetCurrentCodeSet(), bufIn, sizeIn, "UTF-16LE",
                                               CODESET_STOP, bufOut, sizeOut);
}

bool CodeSet_Utf16beToCurrent(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut) {
  return dontUseIcu ? CodeSetOld_Utf16beToCurrent(bufIn, sizeIn, bufOut, sizeOut)
                    : CodeSet_GenericToGeneric("UTF-16BE", bufIn, sizeIn, CodeSet_GetCurrentCodeSet(),
                                               CODESET_STOP, bufOut, sizeOut);
}

// From here on both engines do the same: our own converters take and refuse just what ICU does, and faster.

bool CodeSet_Utf16leToUtf8(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut) {
  return CodeSetOld_Utf16leToUtf8(bufIn, sizeIn, bufOut, sizeOut);
}

bool CodeSet_Utf16leToUtf8Db(const char *bufIn, size_t sizeIn, DynBuf *dynBuf) {
  return CodeSetOld_Utf16leToUtf8Db(bufIn, sizeIn, dynBuf);
}

bool CodeSet_Utf16beToUtf8(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut) {
  return CodeSetOld_Utf16beToUtf8(bufIn, sizeIn, bufOut, sizeOut);
}

bool CodeSet_Utf8ToUtf16le(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut) {
  return CodeSetOld_Utf8ToUtf16le(bufIn, sizeIn, bufOut, sizeOut);
}

bool CodeSet_Utf8ToAscii(const char *bufIn, size_t sizeIn, unsigned flags, char **bufOut, size_t *sizeOut) {
  return CodeSetOld_Utf8ToAscii(bufIn, sizeIn, flags, bufOut, sizeOut);
}

bool CodeSet_Utf8ToAsciiDb(const char *bufIn, size_t sizeIn, unsigned flags, DynBuf *dynBuf) {
  return CodeSetOld_Utf8ToAsciiDb(bufIn, sizeIn, flags, dynBuf);
}

bool CodeSet_AsciiToUtf8(const char *bufIn, size_t sizeIn, unsigned flags, char **bufOut, size_t *sizeOut) {
  return CodeSetOld_AsciiToUtf8(bufIn, sizeIn, flags, bufOut, sizeOut);
}

bool CodeSet_AsciiToUtf8Db(const char *bufIn, size_t sizeIn, unsigned flags, DynBuf *dynBuf) {
  return CodeSetOld_AsciiToUtf8Db(bufIn, sizeIn, flags, dynBuf);
}

bool CodeSet_Utf8Normalize(const char *bufIn, size_t sizeIn, bool precomposed, DynBuf *dynBuf) {
  return CodeSetOld_Utf8Normalize(bufIn, sizeIn, precomposed, dynBuf);
}

bool CodeSet_Utf8FormDToUtf8FormC(const char *bufIn, size_t sizeIn, char **bufOut, size_t *sizeOut) {
  return CodeSetOld_Utf8FormDToUtf8FormC(bufIn, sizeIn, bufOut, sizeOut);
}
