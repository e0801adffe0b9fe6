#include "moduleTask.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include "testProduct.h"

namespace kernprep {
namespace {

const std::string &Headers() {
  static const std::string headers = "/lib/modules/" + e2e::Kernel().release + "/build/include";
  return headers;
}

// A module task in a window, which owns its widgets.
class Shown : public Gtk::Window {
 public:
  explicit Shown(const std::string &name, bool required = true)
      : task({.name = name, .description = "The " + name + " module", .key = {}, .required = required},
             "/usr/bin/gcc", Headers()) {
    add(box);
    box.pack_start(*task.GetImage());
    box.pack_start(*task.GetLabel());
  }

  ModuleTask task;

 private:
  Gtk::HBox box;
};

bool Succeeds(ModuleTask &task) {
  int status = -1;
  const pid_t pid = task.Start();
  EXPECT_EQ(waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFEXITED(status));
  return status == 0;
}

std::string Installed(const std::string &module) {
  return testhost::ReadFile(e2e::Kernel().ModulePath(module));
}

class ModuleTaskTest : public testing::Test {
 protected:
  ModuleTaskTest() { product.Module("ostlink").Module("ostchan"); }
  void Start() {
    product.Start();
    desktop = std::make_unique<TestDesktop>();
  }

  TestProduct product;
  std::unique_ptr<TestDesktop> desktop;
};

TEST_F(ModuleTaskTest, ShowsTheDescriptionAndHasNoLimit) {
  Start();
  const Shown required("ostlink");
  const Shown optional("ostlink", false);
  EXPECT_EQ(required.task.GetLabel()->get_text(), "The ostlink module");
  EXPECT_TRUE(required.task.IsFatal());
  EXPECT_FALSE(optional.task.IsFatal());
  EXPECT_EQ(required.task.GetTimeout(), 0U);
  EXPECT_EQ(required.task.GetFailureText(), "Unable to build kernel module.");
}

TEST_F(ModuleTaskTest, CompilesAModuleWithoutAPrebuiltCopy) {
  product.Source("ostlink");
  Start();
  Shown shown("ostlink");
  EXPECT_TRUE(Succeeds(shown.task));
  EXPECT_EQ(Installed("ostlink"), "object\n");
}

TEST_F(ModuleTaskTest, TakesAPrebuiltCopyAlsoWhenAnotherModuleIsCompiled) {
  product.Source("ostlink").Source("ostchan");
  product.Set("host", e2e::Product::PerfectProperties(e2e::Kernel()), {"ostchan"});
  Start();
  Shown prebuilt("ostchan");
  EXPECT_TRUE(Succeeds(prebuilt.task));
  EXPECT_EQ(Installed("ostchan"), "prebuilt ostchan\n");
  EXPECT_TRUE(testhost::Calls("gcc").empty());
  Shown compiled("ostlink");
  EXPECT_TRUE(Succeeds(compiled.task));
  EXPECT_EQ(Installed("ostlink"), "object\n");
}

TEST_F(ModuleTaskTest, FailsWhenTheBuildFails) {
  product.Source("ostlink", "false");
  Start();
  Shown shown("ostlink");
  EXPECT_FALSE(Succeeds(shown.task));
  EXPECT_EQ(Installed("ostlink"), "");
}

TEST_F(ModuleTaskTest, DoesNotCompileWhenThePrebuiltCopyFailsToInstall) {
  product.Source("ostlink").Set("host", e2e::Product::PerfectProperties(e2e::Kernel()), {"ostlink"});
  Start();
  // Nothing can be put where a file stands for the directory.
  testhost::WriteFile("/lib/modules/" + e2e::Kernel().release + "/misc", "");
  Shown shown("ostlink");
  EXPECT_FALSE(Succeeds(shown.task));
  EXPECT_TRUE(testhost::Calls("gcc").empty());
  EXPECT_EQ(TestLog().find("Building module"), std::string::npos);
}

}  // namespace
}  // namespace kernprep
