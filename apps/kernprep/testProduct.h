// A product on a host with a kernel, and the engine started on it, for tests of the application.
#ifndef OST_KERNPREP_TESTPRODUCT_H
#define OST_KERNPREP_TESTPRODUCT_H

#include <gtest/gtest.h>

#include "installerdb.h"
#include "kprep.h"
#include "product.h"
#include "testDesktop.h"

namespace kernprep {

class EnteredHost {
 public:
  explicit EnteredHost(testhost::Host host) {
    e2e::Kernel().Describe(host);
    host.Enter();
  }
};

// Enters a host that has the kernel beside what the test describes. The product's parts come next, then
// Start.
class TestProduct : private EnteredHost, public e2e::Product {
 public:
  explicit TestProduct(const testhost::Host &host = {}) : EnteredHost(host) {}

  // Writes the list and starts the engine.
  void Start() {
    Write();
    ASSERT_TRUE(InstallerDB_Init("/etc/ostrel-tools", false));
    ASSERT_TRUE(KernPrep_Init());
  }

  static std::string ListPath() { return std::string(e2e::kLibDir) + "/modules/modules.xml"; }
};

}  // namespace kernprep

#endif
