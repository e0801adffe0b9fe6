// Arguments taken and printed in tests.
#ifndef OST_MISC_MSGFMTTESTINT_H
#define OST_MISC_MSGFMTTESTINT_H

#include <cstdarg>
#include <string>
#include <utility>

#include "msgfmt.h"
#include "owned.h"

namespace msgfmttest {

// The values of a format on the heap, or what is wrong with it.
struct Taken {
  MsgFmt_Arg *args = nullptr;
  int numArgs = -1;
  std::string error;

  Taken() = default;
  Taken(Taken &&other) noexcept
      : args(std::exchange(other.args, nullptr)),
        numArgs(std::exchange(other.numArgs, 0)),
        error(std::move(other.error)) {}
  Taken(const Taken &) = delete;
  Taken &operator=(const Taken &) = delete;
  Taken &operator=(Taken &&) = delete;
  ~Taken() { MsgFmt_FreeArgs(args, numArgs); }
};

// Not checked by the compiler, since formats are made at run time.
inline Taken Take(const char *format, ...) {
  Taken taken;
  char *error = nullptr;
  va_list args;
  va_start(args, format);
  const bool succeeded = MsgFmt_GetArgs(format, args, &taken.args, &taken.numArgs, &error);
  va_end(args);
  const OwnedString owner(error);
  if (succeeded != (error == nullptr) || (!succeeded && (taken.args != nullptr || taken.numArgs != 0))) {
    taken.error = "inconsistent";
  } else if (!succeeded) {
    taken.error = error;
  }
  return taken;
}

// The text of values in a format, "failed" when there is none.
inline std::string Print(const char *format, const MsgFmt_Arg *args, int numArgs) {
  size_t length = 0;
  const OwnedString text(MsgFmt_Asprintf(&length, format, args, numArgs));
  return text == nullptr ? "failed" : std::string(text.get(), length);
}

inline std::string Print(const char *format, const Taken &taken) {
  return Print(format, taken.args, taken.numArgs);
}

}  // namespace msgfmttest

#endif
