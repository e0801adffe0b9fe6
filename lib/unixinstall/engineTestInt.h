// What tests of the engine's memory share: a journal that names the product, and the log's lines.
#ifndef OST_UNIXINSTALL_ENGINETESTINT_H
#define OST_UNIXINSTALL_ENGINETESTINT_H

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "log.h"
#include "testhost.h"

namespace enginetest {

using Lines = std::vector<std::string>;

constexpr char kConfigDir[] = "/etc/ostrel-tools";
constexpr char kJournal[] = "/etc/ostrel-tools/locations";
constexpr char kAnswers[] =
    "answer BINDIR /opt/ostrel/bin\nanswer LIBDIR /opt/ostrel/lib\nanswer INITSCRIPTSDIR /etc/init.d\n";

// Enters the host and starts the log there.
inline void Enter(testhost::Host &host) {
  host.Enter();
  Log_Init(nullptr, "setup.log.filename", "setup");
}

// Every line of the log so far, without its time.
inline Lines LogLines() {
  std::istringstream log(testhost::ReadFile(Log_GetFileName()));
  Lines lines;
  for (std::string line; std::getline(log, line);) {
    const size_t bar = line.find("| ");
    lines.push_back(bar == std::string::npos ? line : line.substr(bar + 2));
  }
  return lines;
}

inline bool Logged(const std::string &line) {
  const Lines lines = LogLines();
  return std::find(lines.begin(), lines.end(), line) != lines.end();
}

}  // namespace enginetest

#endif
