// What the modules of the wrappers share: the seam between the program's text and the system's bytes.
#ifndef OST_MISC_POSIXPOSIXINT_H
#define OST_MISC_POSIXPOSIXINT_H

#include <cerrno>
#include <type_traits>

#include "owned.h"
#include "unicode.h"

// A text on its way to the system, in the current encoding.
//
// It is the caller's own text where the two are the same, so it must not outlive that.
class PosixText {
 public:
  // Keeps errno, but that it is EINVAL when the text can't be converted.
  explicit PosixText(const char *text);

  // Whether the text could be converted; a null text is one that could.
  explicit operator bool() const { return isConverted_; }
  // Null for a null text.
  [[nodiscard]] const char *Bytes() const { return bytes_; }

 private:
  const char *bytes_;
  OwnedString owner_;
  bool isConverted_ = true;
};

// The same for a list that ends with a null pointer. A null list stays null.
class PosixTexts {
 public:
  explicit PosixTexts(const char *const *texts);

  explicit operator bool() const { return isConverted_; }
  // In the shape that the system's calls want, which leave it alone.
  [[nodiscard]] char *const *Bytes() const { return bytes_; }

 private:
  char *const *bytes_;
  OwnedUnicodeList owned_;
  bool isConverted_ = true;
};

// A text that the system gave, as a new string (free) of UTF-8. Null with EINVAL when it can't be converted;
// keeps errno otherwise.
char *PosixFromSystem(const char *bytes);

template <typename Result>
constexpr Result PosixFailure() {
  if constexpr (std::is_pointer_v<Result>) {
    return nullptr;
  } else {
    return -1;
  }
}

// Makes a call with a text. The call comes as a pointer because it may be given null, which its declaration
// denies.
template <typename Result, typename... Parameters, typename... Arguments>
Result PosixCall(Result (*call)(const char *, Parameters...), const char *text, Arguments... arguments) {
  const PosixText bytes(text);
  return bytes ? call(bytes.Bytes(), arguments...) : PosixFailure<Result>();
}

// The same for a call that would read through a null.
template <typename Result, typename... Parameters, typename... Arguments>
Result PosixCallNonNull(Result (*call)(const char *, Parameters...), const char *text,
                        Arguments... arguments) {
  if (text == nullptr) {
    errno = EFAULT;
    return PosixFailure<Result>();
  }
  return PosixCall(call, text, arguments...);
}

#endif
