// The whole program beside the least that does the same: an empty gtkmm program and the bare tools.

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "installerdb.h"
#include "kprep.h"
#include "owned.h"
#include "product.h"

namespace {

constexpr char kRelease[] = "6.1.0-bench";
const std::vector<std::string> kModules = {"ostlink", "ostchan", "ostpool", "ostbloc"};
const std::vector<std::string> kToolCommand = {"ostrel-kernprep", "--launcher=/bin/true", "--icon=product",
                                               "--appname=Ostrel Bench"};
const std::vector<std::string> kEmptyCommand = {EMPTY_PROGRAM};

// The compiler wrapper that Debian needs: its compiler answers with the major number alone.
constexpr char kCompiler[] =
    "#!/bin/sh\n[ \"$1\" = -dumpversion ] && exec /usr/bin/gcc -dumpfullversion\nexec /usr/bin/gcc \"$@\"\n";

// Real objects, as far as the real modinfo and depmod look at them, for the first `count` modules of the
// list.
void InstallModules(size_t count) {
  const std::string directory = std::string("/lib/modules/") + kRelease + "/misc";
  testhost::Run("rm -rf " + directory + " && mkdir -p " + directory);
  for (size_t i = 0; i < count; ++i) {
    testhost::Run("cp /run/module.o " + directory + "/" + kModules[i] + ".ko");
  }
  testhost::Run("depmod");
}

// The host that all measurements share: a product with four modules, all of them installed.
class BenchHost {
 public:
  BenchHost() {
    testhost::Host host;
    e2e::Kernel kernel;
    kernel.release = kRelease;
    // The kernel's files without the stand-ins for the tools: only the real ones tell a time.
    host.Release(kernel.release).Version(kernel.version).Machine(kernel.machine);
    host.File("/proc/version", "Linux version 6.1.0-bench (builder@host) (gcc version 12.2.0 (Debian)) #1\n");
    const std::string build = std::string("/lib/modules/") + kRelease + "/build";
    host.File(build + "/Makefile", "").File(build + "/.config", "");
    host.File(build + "/include/linux/version.h", "");
    host.File(build + "/include/generated/utsrelease.h", "#define UTS_RELEASE \"6.1.0-bench\"\n");
    host.File(build + "/include/generated/autoconf.h", "#define CONFIG_SMP 1\n");
    host.File("/usr/local/bin/gcc", kCompiler, 0755);
    host.Enter();
    testhost::WriteFile("/run/module.c",
                        "static const char license[] __attribute__((section(\".modinfo\"), used)) = "
                        "\"license=GPL\";\n");
    testhost::Run("/usr/bin/gcc -c -o /run/module.o /run/module.c");
    e2e::Product product;
    for (const std::string &module : kModules) {
      product.Module(module);
    }
    product.Write();
    display_ = std::make_unique<testhost::Display>();
  }

 private:
  std::unique_ptr<testhost::Display> display_;
};

// With a module missing the tool shows its window.
void EnterHost(size_t installedModules) {
  static const BenchHost host;
  InstallModules(installedModules);
}

// Starts a program with its output thrown away, as root or as the ordinary user.
pid_t Start(const std::vector<std::string> &command, bool asUser) {
  std::vector<char *> arguments;
  arguments.reserve(command.size() + 1);
  for (const std::string &word : command) {
    arguments.push_back(const_cast<char *>(word.c_str()));
  }
  arguments.push_back(nullptr);
  const pid_t pid = fork();
  if (pid != 0) {
    return pid;
  }
  const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
  dup2(nothing, STDOUT_FILENO);
  dup2(nothing, STDERR_FILENO);
  if (asUser && (setgroups(0, nullptr) != 0 || setgid(e2e::kUser) != 0 || setuid(e2e::kUser) != 0)) {
    _exit(126);
  }
  execvp(arguments[0], arguments.data());
  _exit(127);
}

// Runs a program to its end. Returns its peak memory in KiB, or -1 when it didn't end with 0.
long RunToEnd(const std::vector<std::string> &command) {
  int status = 0;
  rusage usage = {};
  const pid_t pid = Start(command, false);
  return wait4(pid, &status, 0, &usage) == pid && status == 0 ? usage.ru_maxrss : -1;
}

void ReadWholeFile(const char *path) {
  std::vector<char> buffer(1 << 16);
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  while (read(fd, buffer.data(), buffer.size()) > 0) {
  }
  close(fd);
}

void Report(benchmark::State &state, long peak) {
  if (peak < 0) {
    state.SkipWithError("the program failed");
  }
  state.counters["peak_KiB"] = static_cast<double>(peak);
}

void BM_Ours_NothingToDo(benchmark::State &state) {
  EnterHost(kModules.size());
  long peak = 0;
  while (state.KeepRunning()) {
    peak = RunToEnd(kToolCommand);
  }
  Report(state, peak);
}
BENCHMARK(BM_Ours_NothingToDo)->UseRealTime();

void BM_Peer_BareProgramAndTools_NothingToDo(benchmark::State &state) {
  EnterHost(kModules.size());
  long peak = 0;
  while (state.KeepRunning()) {
    peak = RunToEnd(kEmptyCommand);
    for (const std::string &module : kModules) {
      if (RunToEnd({"modinfo", module}) < 0) {
        state.SkipWithError("modinfo failed");
      }
    }
    ReadWholeFile("/proc/kallsyms");
  }
  Report(state, peak);
}
BENCHMARK(BM_Peer_BareProgramAndTools_NothingToDo)->UseRealTime();

// The display as the window manager tells of it.
class ManagedWindows {
 public:
  ManagedWindows()
      : display_(XOpenDisplay(nullptr)), list_(XInternAtom(display_, "_NET_CLIENT_LIST", False)) {
    XSelectInput(display_, DefaultRootWindow(display_), PropertyChangeMask);
  }
  ~ManagedWindows() { XCloseDisplay(display_); }
  ManagedWindows(const ManagedWindows &) = delete;
  ManagedWindows &operator=(const ManagedWindows &) = delete;

  // Waits until windows are managed, or until none is.
  void WaitFor(bool windows) {
    while ((Count() > 0) != windows) {
      XEvent event;
      XNextEvent(display_, &event);
    }
  }

 private:
  unsigned long Count() {
    Atom type = None;
    int format = 0;
    unsigned long count = 0;
    unsigned long left = 0;
    unsigned char *data = nullptr;
    XGetWindowProperty(display_, DefaultRootWindow(display_), list_, 0, 64, False, XA_WINDOW, &type, &format,
                       &count, &left, &data);
    XFree(data);
    return count;
  }

  ::Display *display_;
  Atom list_;
};

// Starts a program, and ends it when its window is there. Only the way to the window counts.
void ShowWindow(benchmark::State &state, const std::vector<std::string> &command,
                void (*alongside)(benchmark::State &)) {
  ManagedWindows windows;
  while (state.KeepRunning()) {
    const pid_t pid = Start(command, true);
    windows.WaitFor(true);
    alongside(state);
    state.PauseTiming();
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    windows.WaitFor(false);
    state.ResumeTiming();
  }
}

void Nothing(benchmark::State & /*state*/) {}

// The questions on the way to the window, by the engine's own commands: those of the kernel and the modules
// once, those of the panels, which search and judge, and those of the window, which checks both. The tool
// asks for the modules twice more.
void CheckRequirements(benchmark::State &state) {
  ReadWholeFile("/proc/kallsyms");
  for (const std::string &module : kModules) {
    // Not through the engine, which would leave modinfo its output.
    if ((RunToEnd({"sh", "-c", "modinfo " + module}) < 0) != (module == kModules.back())) {
      state.SkipWithError("modinfo failed");
    }
  }
  const OwnedString compiler(KernPrep_FindCompiler());
  benchmark::DoNotOptimize(KernPrep_CompareCompiler(compiler.get()));
  const OwnedString headers(KernPrep_FindHeaderDir());
  benchmark::DoNotOptimize(KernPrep_ValidateHeaderDir(headers.get()));
  benchmark::DoNotOptimize(KernPrep_CompareCompiler(compiler.get()));
  const OwnedString again(KernPrep_FindHeaderDir());
}

void StartEngine() {
  static const bool started = InstallerDB_Init("/etc/ostrel-tools", true) && KernPrep_Init();
  benchmark::DoNotOptimize(started);
}

void BM_Ours_WindowAppears(benchmark::State &state) {
  EnterHost(kModules.size() - 1);
  ShowWindow(state, kToolCommand, Nothing);
}
BENCHMARK(BM_Ours_WindowAppears)->UseRealTime()->Iterations(5);

void BM_Peer_EmptyWindowAndChecks_WindowAppears(benchmark::State &state) {
  EnterHost(kModules.size() - 1);
  StartEngine();
  ShowWindow(state, {EMPTY_PROGRAM, "window"}, CheckRequirements);
}
BENCHMARK(BM_Peer_EmptyWindowAndChecks_WindowAppears)->UseRealTime()->Iterations(5);

}  // namespace
