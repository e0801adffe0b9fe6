#include "modules.h"

#include <gtest/gtest.h>

#include "testProduct.h"

namespace kernprep {
namespace {

std::string NamesOf(const std::list<Module> &modules) {
  std::string names;
  for (const Module &module : modules) {
    names += (names.empty() ? "" : " ") + module.name.raw();
  }
  return names;
}

// As if the module had been installed.
void Install(const std::string &module) {
  testhost::WriteFile(e2e::Kernel().ModulePath(module), "object\n");
}

TEST(Modules, IsEmptyBeforeLoad) {
  TestProduct().Start();
  const Modules modules;
  EXPECT_TRUE(modules.GetAll().empty());
  EXPECT_FALSE(modules.HasUnsatisfied());
  EXPECT_TRUE(modules.GetUnsatisfied().empty());
  EXPECT_TRUE(modules.GetToCompile().empty());
  EXPECT_TRUE(modules.IsAllPrebuilt());
}

TEST(Modules, LoadsEveryEntryFieldByFieldInOrder) {
  TestProduct product;
  product.Module(e2e::ModuleSpec{.name = "ostlink"})
      .Module(e2e::ModuleSpec{.name = "ostchan", .required = false, .key = "CHAN"});
  product.Start();
  Modules modules;
  ASSERT_TRUE(modules.Load(TestProduct::ListPath()));
  ASSERT_EQ(NamesOf(modules.GetAll()), "ostlink ostchan");
  EXPECT_EQ(modules.GetAll().front().description, "The ostlink module");
  EXPECT_EQ(modules.GetAll().front().key, "");
  EXPECT_TRUE(modules.GetAll().front().required);
  EXPECT_EQ(modules.GetAll().back().key, "CHAN");
  EXPECT_FALSE(modules.GetAll().back().required);
}

TEST(Modules, DoesNotLoadAListThatGivesNothing) {
  TestProduct().Start();
  Modules modules;
  EXPECT_FALSE(modules.Load("/no/such/list.xml"));
  EXPECT_FALSE(modules.Load(TestProduct::ListPath()));
  EXPECT_TRUE(modules.GetAll().empty());
  EXPECT_FALSE(modules.HasUnsatisfied());
}

TEST(Modules, FindsTheWantedOnesThatAreMissing) {
  TestProduct product;
  product.Answer("CHAN", "yes").Answer("POOL", "no");
  product.Module("here").Module("ostlink").Module(e2e::ModuleSpec{.name = "optional", .required = false});
  product.Module(e2e::ModuleSpec{.name = "ostchan", .required = false, .key = "CHAN"})
      .Module(e2e::ModuleSpec{.name = "ostpool", .key = "POOL"});
  product.Start();
  Install("here");
  Modules modules;
  ASSERT_TRUE(modules.Load(TestProduct::ListPath()));
  EXPECT_TRUE(modules.HasUnsatisfied());
  EXPECT_EQ(NamesOf(modules.GetUnsatisfied()), "ostlink ostchan");
  Install("ostlink");
  EXPECT_EQ(NamesOf(modules.GetUnsatisfied()), "ostchan");
  Install("ostchan");
  EXPECT_FALSE(modules.HasUnsatisfied());
  EXPECT_TRUE(modules.GetUnsatisfied().empty());
}

TEST(Modules, CompilesThoseWithoutAPrebuiltCopy) {
  TestProduct product;
  product.Module("ostlink").Module("ostchan").Module("ostpool");
  product.Set("host", e2e::Product::PerfectProperties(e2e::Kernel()), {"ostchan"});
  product.Start();
  Modules modules;
  ASSERT_TRUE(modules.Load(TestProduct::ListPath()));
  EXPECT_EQ(NamesOf(modules.GetToCompile()), "ostlink ostpool");
  EXPECT_FALSE(modules.IsAllPrebuilt());
  Install("ostlink");
  Install("ostpool");
  EXPECT_TRUE(modules.GetToCompile().empty());
  EXPECT_TRUE(modules.IsAllPrebuilt());
}

TEST(Module, InstallsItsPrebuiltCopy) {
  TestProduct product;
  product.Module("ostlink").Set("host", e2e::Product::PerfectProperties(e2e::Kernel()), {"ostlink"});
  product.Start();
  const Module module{.name = "ostlink", .description = {}, .key = {}};
  EXPECT_TRUE(module.HasPrebuilt());
  EXPECT_TRUE(module.InstallPrebuilt());
  EXPECT_EQ(testhost::ReadFile(e2e::Kernel().ModulePath("ostlink")), "prebuilt ostlink\n");
}

TEST(Module, IsBuiltWithTheGivenCompilerAndHeaders) {
  TestProduct product;
  product.Module("ostlink").Source("ostlink", "echo $(CC) $(HEADER_DIR) >/run/built-with");
  product.Start();
  const std::string headers = "/lib/modules/" + e2e::Kernel().release + "/build/include";
  const Module module{.name = "ostlink", .description = {}, .key = {}};
  EXPECT_FALSE(module.HasPrebuilt());
  EXPECT_FALSE(module.InstallPrebuilt());
  EXPECT_TRUE(module.Build("/usr/bin/gcc", headers));
  EXPECT_EQ(testhost::ReadFile("/run/built-with"), "/usr/bin/gcc " + headers + "\n");
  EXPECT_EQ(testhost::ReadFile(e2e::Kernel().ModulePath("ostlink")), "object\n");
}

}  // namespace
}  // namespace kernprep
