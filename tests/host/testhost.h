// A private host for one test: its own files, kernel, programs and user.
//
//   TEST(OsInfo, KnowsSuse) {
//     testhost::Host host;
//     host.File("/etc/SuSE-release", "SUSE Linux Enterprise Server 10 (i586)\nVERSION =
//     10\n").Release("2.6.16.60-0.21-smp"); host.Enter();
//     ... // from here on the test lives in that host
//   }
//
// A host is a mount namespace with an overlay on the real root, so that compilers, make, tar, the module
// tools and the toolkit are the real ones while nothing that is written outlives the test. A host has process
// ids of its own, and every process in it ends with it. `uname` alone is answered by a preloaded library.
#ifndef OST_TESTS_HOST_TESTHOST_H
#define OST_TESTS_HOST_TESTHOST_H

#include <sys/types.h>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace testhost {

class Descriptor;

class Host {
 public:
  // Each of these describes the host and must come before Enter.

  // A file with its content, its mode, and its directories. Below /proc it stands in front of the real file
  // or, where the kernel has no such file, in a /proc made for the purpose.
  Host &File(const std::string &path, const std::string &content, mode_t mode = 0644);
  Host &Directory(const std::string &path, mode_t mode = 0755);
  Host &SymLink(const std::string &path, const std::string &target);
  // Takes a file or tree of the real host away.
  Host &Remove(const std::string &path);
  // Everything below a real directory, laid over the root.
  Host &Overlay(const std::string &directory);
  // What uname answers in every process of the host: the system's name is Linux unless told otherwise.
  Host &System(const std::string &name);
  Host &Release(const std::string &release);
  Host &Version(const std::string &version);
  Host &Machine(const std::string &machine);
  // The user that the test runs as after Enter. A user id without an entry gets one in the host's
  // /etc/passwd, with the name "user<id>" and the home directory /home/user<id>.
  Host &User(uid_t uid);
  // A program on the path, before every other of its name, that records how it was called and then runs
  // `body`, a fragment of /bin/sh ("exit 1"). Calls(name) reads the record.
  Host &Program(const std::string &name, const std::string &body = "");
  // Takes a program away from every directory of the path.
  Host &NoProgram(const std::string &name);
  // Leaves what the test changes in the host in an empty directory of the real system when the test ends,
  // with owners, modes and times. What it removed stands there in the file ".removed", a path on each line; a
  // path that is there as well was removed and made anew.
  Host &Keep(const std::string &directory);

  // Enters the host. The calling process must have one thread. It goes on as a child in the host; the
  // original process only waits for it and ends with its status. Stops the program with a message when the
  // host can't be made.
  void Enter();

 private:
  struct Entry {
    enum class Kind { kFile, kDirectory, kSymLink, kRemove, kOverlay } kind;
    std::string path;
    std::string content;  // or the link's target, or the directory to lay over
    mode_t mode;
  };

  void PutEntries(const std::vector<Descriptor> &overlays) const;
  std::set<std::string> RemovedBelowProc() const;

  std::vector<Entry> entries_;
  std::map<std::string, std::string> programs_;
  std::vector<std::string> missingPrograms_;
  std::optional<std::string> system_, release_, version_, machine_;
  std::optional<uid_t> user_;
  std::optional<std::string> kept_;
};

// One call of a recorded program: its arguments without the program's name.
using Call = std::vector<std::string>;

// How a program of Host::Program was called so far, in order.
std::vector<Call> Calls(const std::string &name);

// Reads a whole file, or as much of it as can be read; a missing file is an empty text. A process that ends
// while one of its files below /proc is read is no failure.
std::string ReadFile(const std::string &path);
// Makes the directories that are missing.
void WriteFile(const std::string &path, const std::string &content, mode_t mode = 0644);

// Runs a command line by /bin/sh and returns its exit status, or 128 plus the signal; `output`, if not null,
// gets what it wrote to standard output and standard error.
int Run(const std::string &command, std::string *output = nullptr);

}  // namespace testhost

#endif
