// A product and a kernel for whole-program tests, laid out on a test host.
//
//   testhost::Host host;
//   e2e::Kernel().Describe(host);
//   host.Enter();
//   e2e::Product product;
//   product.Module("ostlink").Source("ostlink").Write();
//   testhost::Display display;
//   e2e::Tool tool;                       // the built program, started as the launcher would
//   EXPECT_EQ(tool.Wait(), 0);
//
// The compiler, make, tar and the shell are the real ones. The module tools are stand-ins that record their
// calls: modinfo finds what lies in /lib/modules/<release>/misc, insmod, rmmod and lsmod keep a list of
// loaded modules.
#ifndef OST_TESTS_E2E_PRODUCT_H
#define OST_TESTS_E2E_PRODUCT_H

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

#include "display.h"
#include "testhost.h"

namespace e2e {

inline constexpr char kWindowTitle[] = "Ostrel Kernel Module Updater";
inline constexpr char kLibDir[] = "/usr/lib/ostrel-tools";
inline constexpr char kBinDir[] = "/usr/lib/ostrel-tools/bin";
inline constexpr char kInitDir[] = "/etc/ostrel-tools/init";
inline constexpr char kJournal[] = "/etc/ostrel-tools/locations";
inline constexpr char kServiceRecord[] = "/run/ostrel-services";
// The ordinary user that every product's host knows.
inline constexpr uid_t kUser = 4711;
inline constexpr char kUserName[] = "person";

// The kernel that the test's host pretends to run, with headers that the preprocessor can read.
struct Kernel {
  std::string release = "6.1.0-host";
  std::string version = "#1 SMP PREEMPT_DYNAMIC";
  std::string machine = "x86_64";
  std::string compiler = "12.2.0";      // that built the kernel; empty when its version line doesn't tell
  std::string hostCompiler = "12.2.0";  // what gcc on the path answers; empty for no gcc at all
  bool headers = true;
  bool moduleDirectory = true;

  // Lays the kernel, its header tree, the compiler and the module tools over the host. Call before
  // Host::Enter.
  void Describe(testhost::Host &host) const;
  std::string ModulePath(const std::string &module) const {
    return "/lib/modules/" + release + "/misc/" + module + ".o";
  }
};

// One module of the product's list.
struct ModuleSpec {
  std::string name;
  bool required = true;
  std::string key = {};
  std::vector<std::string> dependencies = {};
};

// The product's files: journal, module list, sources, pre-built sets, service script, launcher and privilege
// tool. Each operation writes at once; all need root. Call after Host::Enter.
class Product {
 public:
  // Writes the journal with the three directories, the service script, the launcher and the privilege tool.
  Product();

  // Adds a module to the list that Write puts down; its description is "The <name> module".
  Product &Module(const ModuleSpec &module);
  Product &Module(const std::string &name) { return Module(ModuleSpec{.name = name}); }
  Product &Answer(const std::string &key, const std::string &value);
  // The source tar of a module whose auto-build runs `recipe` (shell lines) in <name>-only before it leaves
  // ../<name>.o.
  Product &Source(const std::string &module, const std::string &recipe = ":");
  // A set of pre-built modules: a perfect match for the kernel unless the properties say otherwise.
  Product &Set(const std::string &set, const std::string &properties,
               const std::vector<std::string> &modules);
  // The body of the service script, a shell fragment with "$1" being "start" or "stop"; it records its calls
  // first.
  Product &Service(const std::string &body);
  void Write() const;

  // Properties of a set that fits `kernel` perfectly.
  static std::string PerfectProperties(const Kernel &kernel);

 private:
  std::vector<ModuleSpec> modules_;
};

// One run of the built program, started in the background with its output captured.
class Tool {
 public:
  // Arguments beside --launcher, --icon and --appname; `user` runs it as that user (0: root), `environment`
  // holds NAME=value words that are added.
  explicit Tool(const std::vector<std::string> &arguments = {}, uid_t user = 0,
                const std::vector<std::string> &environment = {});
  // The program with exactly these arguments.
  static Tool Bare(const std::vector<std::string> &arguments, uid_t user = 0,
                   const std::vector<std::string> &environment = {});
  ~Tool();
  Tool(Tool &&other) noexcept;
  Tool(const Tool &) = delete;
  Tool &operator=(const Tool &) = delete;
  Tool &operator=(Tool &&) = delete;

  // The exit status, or 128 plus the signal that ended it; -1 when `seconds` have passed.
  int Wait(double seconds = 60);
  bool Running();
  pid_t Pid() const { return pid_; }
  // What it wrote to standard error so far (and standard output, which shares the channel).
  std::string Output() const;
  // The logs' paths as the tool announced them: after a relaunch the user's and then root's.
  std::vector<std::string> LogPaths() const;
  // The path and the text of the last of them.
  std::string LogPath() const;
  std::string Log() const;

 private:
  struct Exactly {};
  Tool(Exactly /*tag*/, const std::vector<std::string> &arguments, uid_t user,
       const std::vector<std::string> &environment);

  pid_t pid_ = -1;
  int status_ = -1;
  std::string outputPath_;
};

// The service script's record: one "start" or "stop" a call.
std::vector<std::string> ServiceCalls();

// What the privilege tool was asked to run, a line each.
std::string PrivilegeCalls();

// Waits until `condition` holds; false when `seconds` have passed.
template <typename Condition>
bool Eventually(Condition condition, double seconds = 30);

// Pids of all processes in the host whose command line holds the text.
std::vector<pid_t> ProcessesWith(const std::string &text);

void Pause(std::chrono::milliseconds time);

template <typename Condition>
bool Eventually(Condition condition, double seconds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) {
      return false;
    }
    Pause(std::chrono::milliseconds(20));
  }
  return true;
}

}  // namespace e2e

#endif
