// What tests of root's run share: a product on a host, and what a run did to both.
#ifndef OST_TESTS_E2E_RUNTEST_H
#define OST_TESTS_E2E_RUNTEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "product.h"
#include "windows.h"

namespace e2e {

// Where a script or a recipe of a test says that it is under way.
inline constexpr char kBusy[] = "/run/busy";

// Also true of a link that leads nowhere.
inline bool Exists(const std::string &path) {
  return std::filesystem::exists(std::filesystem::symlink_status(path));
}

// A host with a product whose services and modules the test describes.
class RunTest : public testing::Test {
 protected:
  void Enter() {
    testhost::Host host;
    Enter(host);
  }
  void Enter(testhost::Host &host) {
    kernel_.Describe(host);
    host.Enter();
    product_.emplace();
    desktop_.emplace();
  }
  // As Enter, and the product has one module, which can be built from source.
  void EnterWithModule() {
    Enter();
    product_->Module("ostlink").Source("ostlink").Write();
    journal_ = testhost::ReadFile(kJournal);
  }

  static bool IsBusy() {
    return Eventually([] { return Exists(kBusy); });
  }

  bool IsWindowUp() { return desktop_->display.WaitForWindow(kWindowTitle); }

  // Takes the run through its error box to the window.
  void PassBox() {
    ASSERT_TRUE(desktop_->Answer("Error", "Return"));
    ASSERT_TRUE(IsWindowUp());
  }

  // Leaves a run that has failed by its window.
  void LeaveAfterBox(Tool *tool) {
    PassBox();
    desktop_->display.Keys(kWindowTitle, "Escape");
    EXPECT_EQ(tool->Wait(), 2) << tool->Output();
  }

  void PressInstall() { desktop_->display.Keys(kWindowTitle, "Return"); }

  // What was added to the journal since the product was written.
  std::string Added() {
    const std::string now = testhost::ReadFile(kJournal);
    EXPECT_THAT(now, testing::StartsWith(journal_));
    return now.substr(std::min(now.size(), journal_.size()));
  }
  // The journal's lines for an installed module.
  std::string LinesFor(const std::string &module) {
    const std::string object = kernel_.ModulePath(module);
    struct stat info = {};
    EXPECT_EQ(stat(object.c_str(), &info), 0) << object;
    return "file " + object + " " + std::to_string(info.st_mtime) + "\nfile " + Link(module) + "\n";
  }
  std::string Link(const std::string &module) {
    return "/lib/modules/" + kernel_.release + "/misc/" + module + ".ko";
  }
  bool IsInstalled(const std::string &module, const std::string &content = "object\n") {
    std::error_code error;
    return testhost::ReadFile(kernel_.ModulePath(module)) == content &&
           std::filesystem::read_symlink(Link(module), error) == kernel_.ModulePath(module);
  }
  void ExpectNothingInstalled() {
    EXPECT_EQ(Added(), "");
    EXPECT_FALSE(Exists(kernel_.ModulePath("ostlink")));
    EXPECT_FALSE(Exists(Link("ostlink")));
  }

  std::vector<std::string> Seen() { return desktop_->history.Seen(); }

  Kernel kernel_;
  std::optional<Product> product_;
  std::optional<Desktop> desktop_;
  std::string journal_;
};

}  // namespace e2e

#endif
