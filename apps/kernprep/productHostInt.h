// For tests: a host with an installed product, a running kernel, a compiler and a header tree, and the engine
// started in it.
#ifndef OST_KERNPREP_PRODUCTHOSTINT_H
#define OST_KERNPREP_PRODUCTHOSTINT_H

#include <unistd.h>

#include <cstdlib>
#include <optional>
#include <string>

#include "installerdb.h"
#include "kprep.h"
#include "log.h"
#include "modules.h"
#include "testDesktop.h"
#include "testhost.h"

namespace producthost {

constexpr char kRelease[] = "6.1.99-test";
constexpr char kVersion[] = "#1 SMP PREEMPT Mon Nov 14 09:30:05 UTC 2022";
constexpr char kHeaderDir[] = "/lib/modules/6.1.99-test/build/include";
constexpr char kModuleList[] = "/opt/ostrel/lib/modules/modules.xml";

// What a test wants of its host.
struct Product {
  std::string kernelCompiler = "12.2.0";  // empty: the kernel doesn't say
  std::string compiler = "12.2.0";        // what "gcc" says of itself; empty: there is none
  bool headers = true;
  bool prebuilt = false;  // every module has a copy made for the running kernel
  std::optional<uid_t> user = std::nullopt;
};

inline std::string GetProcVersion(const std::string &compiler) {
  const std::string builder = compiler.empty() ? "clang" : "gcc version " + compiler + " (Debian)";
  return "Linux version 6.1.99-test (build@host) (" + builder + ") " + kVersion + "\n";
}

// A compiler that tells a version, and preprocesses as the host's own does.
inline std::string GetCompilerScript(const std::string &version) {
  return "if [ \"$1\" = -dumpversion ]; then echo " + version + "; exit; fi\nexec /usr/bin/gcc \"$@\"\n";
}

inline void AddHeaderTree(testhost::Host &host, const std::string &include, const std::string &release) {
  host.File(include + "/linux/version.h", "#define LINUX_VERSION_CODE 393571\n")
      .File(include + "/generated/utsrelease.h", "#define UTS_RELEASE \"" + release + "\"\n")
      .File(include + "/generated/autoconf.h", "#define CONFIG_SMP 1\n")
      .File(include + "/../Makefile", "\n")
      .File(include + "/../.config", "CONFIG_SMP=y\n");
}

// The host of a product with one module, "ostlink", which is missing.
inline testhost::Host Describe(const Product &product) {
  testhost::Host host;
  host.Release(kRelease)
      .Version(kVersion)
      .Machine("x86_64")
      .File("/proc/version", GetProcVersion(product.kernelCompiler))
      .File(
          "/etc/ostrel-tools/locations",
          "answer BINDIR /opt/ostrel/bin\nanswer LIBDIR /opt/ostrel/lib\nanswer INITSCRIPTSDIR /etc/init.d\n")
      .File(kModuleList,
            "<modules><module name=\"ostlink\" required=\"true\" description=\"Link\"/></modules>\n")
      .Directory("/opt/ostrel/lib/modules/binary")
      .Program("modinfo", "exit 1");
  if (product.compiler.empty()) {
    host.NoProgram("gcc");
  } else {
    host.Program("gcc", GetCompilerScript(product.compiler));
  }
  if (product.headers) {
    AddHeaderTree(host, kHeaderDir, kRelease);
  }
  if (product.prebuilt) {
    const std::string set = "/opt/ostrel/lib/modules/binary/test";
    host.File(set + "/properties",
              std::string("UtsRelease ") + kRelease + "\nUtsVersion " + kVersion +
                  "\nUtsMachine x86_64\nAthlonKernel forbidden\nModVersion no\nSMP yes\n")
        .File(set + "/objects/ostlink.o", "object");
  }
  if (product.user) {
    host.User(*product.user);
  }
  return host;
}

// A display with the toolkit on it, the log and the engine, for the life of the object. Make it after
// Host::Enter.
class Running {
 public:
  Running() {
    unsetenv("CC");
    InstallerDB_Init("/etc/ostrel-tools", geteuid() != 0);
    KernPrep_Init();
    modules.Load(kModuleList);
  }
  ~Running() {
    KernPrep_DeInit();
    InstallerDB_DeInit();
    Log_Exit();
  }
  Running(const Running &) = delete;
  Running &operator=(const Running &) = delete;

  kernprep::TestDesktop desktop;
  kernprep::Modules modules;
};

inline bool IsLogged(const std::string &text) {
  return kernprep::TestLog().find(text) != std::string::npos;
}

}  // namespace producthost

#endif
