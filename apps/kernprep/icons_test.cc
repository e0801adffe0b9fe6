#include "icons.h"

#include <gtest/gtest.h>

#include "testDesktop.h"

namespace kernprep {
namespace {

constexpr char kThemed[] = "ostrel-kernprep-success";

const char kSvg[] =
    "<svg xmlns='http://www.w3.org/2000/svg' width='16' height='16'><rect width='16' height='16'/></svg>";

bool IsRegistered(const char *name) {
  return gtk_icon_factory_lookup_default(name) != nullptr;
}

TEST(RegisterIcons, PutsStockIconsUnderTheNamesThatTheThemeLacks) {
  testhost::Host().Enter();
  const TestDesktop desktop;
  for (const StateIcon &icon : stateIcons) {
    EXPECT_FALSE(IsRegistered(icon.name)) << icon.name;
  }
  RegisterIcons();
  for (const StateIcon &icon : stateIcons) {
    EXPECT_EQ(gtk_icon_factory_lookup_default(icon.name),
              gtk_icon_factory_lookup_default(icon.fallback.get_c_str()))
        << icon.name;
  }
}

TEST(RegisterIcons, LeavesTheThemesOwnIconAlone) {
  testhost::Host host;
  host.File(std::string("/usr/share/icons/hicolor/scalable/apps/") + kThemed + ".svg", kSvg)
      .Remove("/usr/share/icons/hicolor/icon-theme.cache")
      .Enter();
  const TestDesktop desktop;
  RegisterIcons();
  for (const StateIcon &icon : stateIcons) {
    EXPECT_EQ(IsRegistered(icon.name), std::string(icon.name) != kThemed) << icon.name;
  }
}

TEST(StateIcons, NamesEachStateWithItsFallbackInOrder) {
  struct Row {
    BuildTask::State state;
    const char *name;
    Gtk::StockID fallback;
  };
  const Row rows[] = {
      {BuildTask::STATE_SUCCESS, "ostrel-kernprep-success", Gtk::Stock::APPLY},
      {BuildTask::STATE_IN_PROGRESS, "ostrel-kernprep-in-progress", Gtk::Stock::GO_FORWARD},
      {BuildTask::STATE_PENDING, "ostrel-kernprep-pending", Gtk::Stock::REMOVE},
      {BuildTask::STATE_FAILURE_WARNING, "ostrel-kernprep-failure-warning", Gtk::Stock::DIALOG_WARNING},
      {BuildTask::STATE_FAILURE_FATAL, "ostrel-kernprep-failure-fatal", Gtk::Stock::DIALOG_ERROR},
  };
  for (size_t i = 0; i < stateIcons.size(); i++) {
    EXPECT_EQ(stateIcons[i].state, rows[i].state);
    EXPECT_STREQ(stateIcons[i].name, rows[i].name);
    EXPECT_EQ(stateIcons[i].fallback, rows[i].fallback);
  }
}

}  // namespace
}  // namespace kernprep
