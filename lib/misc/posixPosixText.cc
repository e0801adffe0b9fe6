#include <algorithm>
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

// Whether the system's bytes are the program's text: no copy needs to be made then, only looked at.
bool IsSystemUtf8() {
  return CurrentEncoding() == STRING_ENCODING_UTF8;
}

bool IsUtf8(const char *text) {
  return CodeSetUtf_IsUtf8(text, strlen(text));
}

bool AreUtf8(const char *const *texts) {
  for (; *texts != nullptr; texts++) {
    if (!IsUtf8(*texts)) {
      return false;
    }
  }
  return true;
}

char *ToUtf8(const char *bytes) {
  if (IsSystemUtf8()) {
    return IsUtf8(bytes) ? strdup(bytes) : nullptr;
  }
  char *text = nullptr;
  CodeSet_GenericToGeneric(Unicode_EncodingEnumToName(CurrentEncoding()), bytes, strlen(bytes), "UTF-8",
                           CODESET_STOP, &text, nullptr);
  return text;
}

}  // namespace

PosixText::PosixText(const char *text) : bytes_(text) {
  if (text == nullptr) {
    return;
  }
  const int error = errno;
  if (IsSystemUtf8()) {
    isConverted_ = IsUtf8(text);
  } else {
    owner_.reset(Unicode_GetAllocBytes(text, CurrentEncoding()));
    bytes_ = owner_.get();
    isConverted_ = bytes_ != nullptr;
  }
  errno = isConverted_ ? error : EINVAL;
}

PosixTexts::PosixTexts(const char *const *texts) : bytes_(const_cast<char *const *>(texts)) {
  if (texts == nullptr) {
    return;
  }
  const int error = errno;
  if (IsSystemUtf8()) {
    isConverted_ = AreUtf8(texts);
  } else {
    owned_ = Unicode_GetAllocList(texts, -1, CurrentEncoding());
    bytes_ = owned_;
    isConverted_ = bytes_ != nullptr;
  }
  errno = isConverted_ ? error : EINVAL;
}

PosixTexts::~PosixTexts() {
  Unicode_FreeList(owned_, -1);
}

char *PosixFromSystem(const char *bytes) {
  const int error = errno;
  char *text = ToUtf8(bytes);
  errno = text != nullptr ? error : EINVAL;
  return text;
}
