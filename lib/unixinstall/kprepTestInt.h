// What the engine's tests share: a host with a small product on it, the engine started there, and its log.
#ifndef OST_UNIXINSTALL_KPREPTESTINT_H
#define OST_UNIXINSTALL_KPREPTESTINT_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "installerdb.h"
#include "kprep.h"
#include "kprepInt.h"
#include "log.h"
#include "owned.h"
#include "testhost.h"

namespace kpreptest {

using Lines = std::vector<std::string>;

constexpr char kLibDir[] = "/opt/ostrel/lib";
constexpr char kPbmRoot[] = "/opt/ostrel/lib/modules/binary";
constexpr char kRelease[] = "2.6.18-92.el5";
constexpr char kVersion[] = "#1 SMP Tue Jun 10 18:49:47 EDT 2008";
constexpr char kJournal[] = "/etc/ostrel-tools/locations";

// The product on a multiprocessor kernel of 32 bits that was compiled with 4.1.2.
class Product : public testhost::Host {
 public:
  Product() {
    File(kJournal,
         "answer BINDIR /opt/ostrel/bin\nanswer LIBDIR /opt/ostrel/lib\nanswer INITSCRIPTSDIR /etc/init.d\n");
    File("/proc/kallsyms", "ffffffff81000000 T printk\n");
    Compiler("4.1.2");
    Release(kRelease).Version(kVersion).Machine("i686");
    Directory("/opt/ostrel/bin").Directory(kPbmRoot);
  }

  // The compiler that built the kernel.
  Product &Compiler(const std::string &version) {
    File("/proc/version", "Linux version 2.6.18 (builder@host) (gcc version " + version + " 20071124) #1\n");
    return *this;
  }

  // The module list's text between the root tags.
  Product &ModuleList(const std::string &modules) {
    File(std::string(kLibDir) + "/modules/modules.xml", "<modules>" + modules + "</modules>\n");
    return *this;
  }
};

inline std::string Whole(const OwnedString &text) {
  return text ? text.get() : "(none)";
}

// The engine from KernPrep_Init to KernPrep_DeInit. Make it after the host has been described.
class Engine {
 public:
  explicit Engine(testhost::Host &host, bool readOnlyJournal = false) {
    host.Enter();
    EXPECT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
    EXPECT_TRUE(InstallerDB_Init("/etc/ostrel-tools", readOnlyJournal));
    EXPECT_TRUE(KernPrep_Init());
    NewLog();
  }

  ~Engine() {
    KernPrep_DeInit();
    InstallerDB_DeInit();
  }

  Engine(const Engine &) = delete;
  Engine &operator=(const Engine &) = delete;

  // The log's lines since the last call, without their times.
  Lines NewLog() {
    const std::string whole = testhost::ReadFile(Log_GetFileName());
    std::istringstream fresh(whole.substr(seen_));
    seen_ = whole.size();
    Lines lines;
    for (std::string line; std::getline(fresh, line);) {
      const size_t bar = line.find("| ");
      lines.push_back(bar == std::string::npos ? line : line.substr(bar + 2));
    }
    return lines;
  }

 private:
  size_t seen_ = 0;
};

// Puts a shell before /bin/sh that notes each command line that a process hands to it.
inline void RecordShell(testhost::Host &host) {
  host.File("/usr/bin/sh",
            "#!/bin/dash\nif [ \"$1\" = -c ]; then\nfor last; do :; done\n"
            "printf '%s\\n' \"$last\" >>/tmp/shell-commands\nfi\nexec /bin/dash \"$@\"\n",
            0755);
}

inline std::string ShellCommands() {
  return testhost::ReadFile("/tmp/shell-commands");
}

// What the process writes to standard error while the action runs.
template <typename Action>
std::string ErrorsOf(Action action) {
  testing::internal::CaptureStderr();
  action();
  return testing::internal::GetCapturedStderr();
}

inline std::string Path(const char *program) {
  const char *path = KernPrep_FindInPath(program);
  return path ? path : "(null)";
}

}  // namespace kpreptest

#endif
