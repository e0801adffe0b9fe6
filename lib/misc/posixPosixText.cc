#include <atomic>
#include <cstring>

#include "codeset.h"
#include "codesetUtfInt.h"
#include "posixPosixInt.h"
#include "unicode.h"

namespace {

// Filled at first use, and the same until the process ends.
std::atomic<StringEncoding> currentEncoding{STRING_ENCODING_UNKNOWN};

StringEncoding CurrentEncoding() {
  StringEncoding encoding = currentEncoding.load(std::memory_order_relaxed);
  if (encoding == STRING_ENCODING_UNKNOWN) {
    encoding = Unicode_GetCurrentEncoding();
    currentEncoding.store(encoding, std::memory_order_relaxed);
  }
  return encoding;
}

// Whether the system's bytes are the program's text. They go to the system as they are then, so that a file
// whose name is no text can still be reached.
bool IsSystemUtf8() {
  return CurrentEncoding() == STRING_ENCODING_UTF8;
}

// Whether the system reads all of the bytes, which in an encoding of wide characters hold NULs.
bool IsReadWhole(const char *bytes) {
  return strlen(bytes) == static_cast<size_t>(Unicode_LengthInBytes(bytes, CurrentEncoding()));
}

bool AreReadWhole(char *const *list) {
  for (; *list != nullptr; list++) {
    if (!IsReadWhole(*list)) {
      return false;
    }
  }
  return true;
}

char *ToUtf8(const char *bytes) {
  if (IsSystemUtf8()) {
    return CodeSetUtf_IsUtf8(bytes, strlen(bytes)) ? strdup(bytes) : nullptr;
  }
  char *text = nullptr;
  CodeSet_GenericToGeneric(Unicode_EncodingEnumToName(CurrentEncoding()), bytes, strlen(bytes), "UTF-8",
                           CODESET_STOP, &text, nullptr);
  return text;
}

}  // namespace

PosixText::PosixText(const char *text) : bytes_(text) {
  const int error = errno;
  if (text != nullptr && !IsSystemUtf8()) {
    owner_.reset(Unicode_GetAllocBytes(text, CurrentEncoding()));
    bytes_ = owner_.get();
    isConverted_ = bytes_ != nullptr && IsReadWhole(bytes_);
  }
  errno = isConverted_ ? error : EINVAL;
}

PosixTexts::PosixTexts(const char *const *texts) : bytes_(const_cast<char *const *>(texts)) {
  const int error = errno;
  if (texts != nullptr && !IsSystemUtf8()) {
    owned_.reset(Unicode_GetAllocList(texts, -1, CurrentEncoding()));
    bytes_ = owned_.get();
    isConverted_ = bytes_ != nullptr && AreReadWhole(bytes_);
  }
  errno = isConverted_ ? error : EINVAL;
}

char *PosixFromSystem(const char *bytes) {
  const int error = errno;
  char *text = ToUtf8(bytes);
  errno = text != nullptr ? error : EINVAL;
  return text;
}
