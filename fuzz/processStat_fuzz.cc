// The stat file of a process: its creation time is what the twentieth word behind the name says.

#include <cstdlib>
#include <string>

#include "../lib/file/fileLockInt.h"
#include "log.h"

namespace {

// The word behind so many single blanks from the last bracket on.
std::string Word(const std::string &text, int blanks) {
  std::string word;
  const size_t bracket = text.rfind(')');
  for (size_t at = bracket; at < text.size() && blanks >= 0; at++) {
    if (text[at] == ' ') {
      blanks--;
    } else if (blanks == 0) {
      word += text[at];
    }
  }
  return word;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Log_SetQuietWarnings(true);
  const std::string text(reinterpret_cast<const char *>(data), size);
  const std::string word = Word(text, 20);
  uint64_t expected = 0;
  if (sscanf(word.c_str(), "%lu", &expected) != 1) {
    expected = 0;
  }
  if (CreationTimeInStat(text) != expected) {
    abort();
  }
  return 0;
}
