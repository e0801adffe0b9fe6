// testhost: runs a command in a private host.
#include <fcntl.h>
#include <getopt.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "testhost.h"
#include "treeInt.h"

namespace {

constexpr int kStatusUsage = 2;
constexpr int kStatusCannotRun = 126;
constexpr int kStatusNoCommand = 127;

constexpr char kUsage[] =
    R"(Usage: testhost [OPTION ...] [--] COMMAND [ARG ...]

Runs COMMAND in a private host: a copy of this system's files that vanishes with
the command, with process ids of its own. Nothing of the real system is changed.

  --files DIR     lay what is below DIR over the root (DIR/etc/..., DIR/lib/modules/...);
                  files below DIR/proc stand in front of the kernel's or beside them
  --release R     what uname answers as the kernel's release
  --version V     ... as its version
  --machine M     ... as the machine
  --user UID      run COMMAND as this user, who is made if there is none
  --keep DIR      leave what COMMAND changed in DIR, which must be new or empty; the
                  paths that it removed are listed in DIR/.removed
  --help          show this text

The programs built with testhost come first on the path. The exit status is
COMMAND's; 125 if there is no host to run it in, 126 if it can't be run, 127 if
it isn't found, 2 for a bad command line. This needs root.
)";

[[noreturn]] void EndWithUsage(const std::string &complaint) {
  fprintf(stderr, "testhost: %s\nTry 'testhost --help'.\n", complaint.c_str());
  exit(kStatusUsage);  // NOLINT(concurrency-mt-unsafe)
}

uid_t ParseUser(const char *text) {
  const bool isNumber = *text != '\0' && std::all_of(text, text + strlen(text), isdigit);
  errno = 0;
  const unsigned long user = strtoul(text, nullptr, 10);
  if (!isNumber || errno != 0 || user >= UINT_MAX) {
    EndWithUsage("'" + std::string(text) + "' is no user id");
  }
  return static_cast<uid_t>(user);
}

void CheckFiles(const std::string &directory) {
  const testhost::Descriptor opened(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (opened.Get() < 0) {
    EndWithUsage("cannot lay " + directory + " over the root: " + strerror(errno));
  }
}

void PrepareKept(const std::string &directory) {
  const bool isThere = mkdir(directory.c_str(), 0755) == 0 || errno == EEXIST;
  const testhost::Descriptor opened(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!isThere || opened.Get() < 0) {
    EndWithUsage("cannot keep anything in " + directory + ": " + strerror(errno));
  }
  if (!testhost::Names(opened.Get()).empty()) {
    EndWithUsage("cannot keep anything in " + directory + ": it isn't empty");
  }
}

// Describes the host that the options ask for.
//
// Returns the command, as the rest of `argv`.
char **ParseOptions(int argc, char **argv, testhost::Host *host) {
  enum { kHelp, kFiles, kRelease, kVersion, kMachine, kUser, kKeep };
  static const option kOptions[] = {{"help", no_argument, nullptr, kHelp},
                                    {"files", required_argument, nullptr, kFiles},
                                    {"release", required_argument, nullptr, kRelease},
                                    {"version", required_argument, nullptr, kVersion},
                                    {"machine", required_argument, nullptr, kMachine},
                                    {"user", required_argument, nullptr, kUser},
                                    {"keep", required_argument, nullptr, kKeep},
                                    {nullptr, 0, nullptr, 0}};
  std::optional<std::string> kept;
  int which = 0;
  while ((which = getopt_long(argc, argv, "+", kOptions, nullptr)) != -1) {  // NOLINT(concurrency-mt-unsafe)
    switch (which) {
      case kHelp:
        fputs(kUsage, stdout);
        exit(0);  // NOLINT(concurrency-mt-unsafe)
      case kFiles:
        CheckFiles(optarg);
        host->Overlay(optarg);
        break;
      case kRelease:
        host->Release(optarg);
        break;
      case kVersion:
        host->Version(optarg);
        break;
      case kMachine:
        host->Machine(optarg);
        break;
      case kUser:
        host->User(ParseUser(optarg));
        break;
      case kKeep:
        kept = optarg;
        break;
      default:
        fprintf(stderr, "Try 'testhost --help'.\n");
        exit(kStatusUsage);  // NOLINT(concurrency-mt-unsafe)
    }
  }
  if (optind == argc) {
    EndWithUsage("there is no command to run");
  }
  if (kept) {
    PrepareKept(*kept);
    host->Keep(*kept);
  }
  return argv + optind;
}

}  // namespace

int main(int argc, char **argv) {
  testhost::Host host;
  char **const command = ParseOptions(argc, argv, &host);
  host.Enter();
  execvp(command[0], command);
  const int reason = errno;
  fprintf(stderr, "testhost: cannot run %s: %s\n", command[0], strerror(reason));
  return reason == ENOENT ? kStatusNoCommand : kStatusCannotRun;
}
