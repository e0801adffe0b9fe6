// Running shell commands and looking at what came of them.
#ifndef OST_TESTS_HOST_RUNINT_H
#define OST_TESTS_HOST_RUNINT_H

#include <string>

#include "testhost.h"

namespace testhost {

struct Outcome {
  int status;
  std::string output;
};

inline Outcome RunCommand(const std::string &command) {
  Outcome outcome;
  outcome.status = Run(command, &outcome.output);
  return outcome;
}

inline std::string OutputOf(const std::string &command) {
  return RunCommand(command).output;
}

// A text as one word of a shell command.
inline std::string Quoted(const std::string &text) {
  std::string quoted = "'";
  for (const char c : text) {
    quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  }
  return quoted + "'";
}

}  // namespace testhost

#endif
