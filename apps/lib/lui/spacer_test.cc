#include "spacer.h"

#include <gtest/gtest.h>

#include <optional>

#include "testhost.h"
#include "widgetTestInt.h"

namespace {

class SpacerTest : public testing::Test {
 protected:
  void SetUp() override {
    testhost::Host().Enter();
    desktop_.emplace();
  }

 private:
  std::optional<widgettest::Desktop> desktop_;
};

TEST_F(SpacerTest, AsksForItsSize) {
  lui::Spacer spacer(20, 0);
  const Gtk::Requisition size = spacer.size_request();
  EXPECT_EQ(size.width, 20);
  EXPECT_EQ(size.height, 0);
}

TEST_F(SpacerTest, TakesItsWidthOfARowAndAddsNothingToItsHeight) {
  Gtk::Window window;
  Gtk::HBox row(false, 0);
  lui::Spacer spacer(20, 0);
  Gtk::Label label("text");
  row.pack_start(spacer, false, true, 0);
  row.pack_start(label, true, true, 0);
  window.add(row);
  window.show_all();
  widgettest::Settle();
  EXPECT_EQ(spacer.get_width(), 20);
  EXPECT_EQ(label.get_allocation().get_x(), 20);
  EXPECT_EQ(row.size_request().height, label.size_request().height);
}

TEST_F(SpacerTest, HasNoWindowAndATypeOfItsOwn) {
  lui::Spacer spacer(1, 1);
  EXPECT_TRUE(spacer.has_no_window());
  EXPECT_NE(std::string(G_OBJECT_TYPE_NAME(spacer.gobj())).find("lui_Spacer"), std::string::npos);
}

TEST_F(SpacerTest, ResizesWhenItsSizeIsSet) {
  Gtk::Window window;
  Gtk::HBox row(false, 0);
  lui::Spacer spacer(20, 0);
  row.pack_start(spacer, false, true, 0);
  window.add(row);
  window.show_all();
  widgettest::Settle();
  spacer.SetWidth(45);
  EXPECT_TRUE(widgettest::SpinUntil([&] { return spacer.get_width() == 45; }, 10));
  spacer.SetHeight(17);
  EXPECT_TRUE(widgettest::SpinUntil([&] { return spacer.get_height() == 17; }, 10));
  EXPECT_EQ(row.get_height(), 17);
}

TEST_F(SpacerTest, LivesManagedToo) {
  Gtk::HBox row(false, 0);
  row.pack_start(*Gtk::manage(new lui::Spacer(3, 4)));
  row.show_all();
  EXPECT_EQ(row.size_request().width, 3);
  EXPECT_EQ(row.size_request().height, 4);
}

}  // namespace
