// The built-in callbacks, which use the terminal.

#include <cstdio>

#include "msgInt.h"
#include "productState.h"
#include "str.h"

namespace {

// Raw, as warnings are, so that a terminal of any encoding gets the text.
void ConsolePost(int severity, const char *, const char *text) {
  const OwnedString output(
      Str_SafeAsprintf(nullptr, "\n%s %s:\n%s\n", ProductState_GetName(), MsgSeverityTitle(severity), text));
  fputs(output.get(), stderr);
}

}  // namespace

const MsgCallback msgConsoleCallback = {
    .post = ConsolePost,
    .question = nullptr,
    .progress = nullptr,
    .hint = nullptr,
    .lazyProgressStart = nullptr,
    .lazyProgress = nullptr,
    .lazyProgressEnd = nullptr,
    .postList = nullptr,
    .questionList = nullptr,
    .progressList = nullptr,
    .hintList = nullptr,
    .lazyProgressStartList = nullptr,
};
