#include "frame.h"

#include <gtest/gtest.h>

#include <optional>

#include "spacer.h"
#include "testhost.h"
#include "widgetTestInt.h"

using widgettest::GetChild;
using widgettest::GetPacking;

namespace {

constexpr widgettest::Packing kFill = {false, true, 0, GTK_PACK_START};

class FrameTest : public testing::Test {
 protected:
  void SetUp() override {
    testhost::Host().Enter();
    desktop_.emplace();
  }

 private:
  std::optional<widgettest::Desktop> desktop_;
};

TEST_F(FrameTest, StacksTitleAndIndentedRow) {
  lui::Frame frame("Title");
  EXPECT_FALSE(frame.get_visible());
  EXPECT_EQ(frame.get_spacing(), 10);
  EXPECT_FALSE(frame.get_homogeneous());
  ASSERT_EQ(widgettest::GetChildren(frame).size(), 2U);

  auto *label = GetChild<Gtk::Label>(frame, 0);
  ASSERT_NE(label, nullptr);
  EXPECT_TRUE(label->get_visible());
  EXPECT_EQ(GetPacking(*label), kFill);
  EXPECT_EQ(label->property_xalign().get_value(), 0.0F);
  EXPECT_TRUE(label->get_use_markup());
  EXPECT_TRUE(label->get_use_underline());
  EXPECT_EQ(label->get_justify(), Gtk::JUSTIFY_LEFT);

  auto *row = GetChild<Gtk::HBox>(frame, 1);
  ASSERT_NE(row, nullptr);
  EXPECT_TRUE(row->get_visible());
  EXPECT_EQ(row->get_spacing(), 0);
  EXPECT_FALSE(row->get_homogeneous());
  EXPECT_EQ(GetPacking(*row), widgettest::kExpandWidget);
  auto *spacer = GetChild<lui::Spacer>(*row, 0);
  ASSERT_NE(spacer, nullptr);
  EXPECT_TRUE(spacer->get_visible());
  EXPECT_EQ(GetPacking(*spacer), kFill);
  EXPECT_EQ(spacer->size_request().width, 20);
  EXPECT_EQ(spacer->size_request().height, 0);
}

TEST_F(FrameTest, ShowsATitleInBold) {
  lui::Frame frame("");
  frame.SetTitle("_GCC 4.1.2");
  auto *label = GetChild<Gtk::Label>(frame, 0);
  EXPECT_EQ(label->get_label(), "<b>_GCC 4.1.2</b>");
  EXPECT_EQ(label->get_text(), "GCC 4.1.2");
  EXPECT_EQ(label->get_mnemonic_keyval(), static_cast<unsigned>(GDK_g));
}

TEST_F(FrameTest, ShowsAnAmpersandAndAnglesAsTextAndKeepsTheMnemonic) {
  lui::Frame frame("R&D <_Tools> a_b");
  auto *label = GetChild<Gtk::Label>(frame, 0);
  EXPECT_EQ(label->get_label(), "<b>R&amp;D &lt;_Tools&gt; a_b</b>");
  EXPECT_EQ(label->get_text(), "R&D <Tools> ab");
  EXPECT_EQ(label->get_mnemonic_keyval(), static_cast<unsigned>(GDK_t));
}

TEST_F(FrameTest, IndentsItsContentBelowTheTitle) {
  Gtk::Window window;
  lui::Frame frame("Title");
  Gtk::Entry entry;
  frame.Add(entry);
  EXPECT_EQ(GetPacking(entry), widgettest::kExpandWidget);
  window.add(frame);
  window.set_default_size(300, -1);
  frame.show();
  entry.show();
  window.show();
  widgettest::Settle();
  auto *label = GetChild<Gtk::Label>(frame, 0);
  EXPECT_EQ(label->get_allocation().get_x(), 0);
  EXPECT_EQ(entry.get_allocation().get_x(), 20);
  EXPECT_EQ(entry.get_width(), 280);
  EXPECT_EQ(entry.get_allocation().get_y(), label->get_height() + 10);
}

TEST_F(FrameTest, ActivatesAWidgetByTheTitlesMnemonic) {
  Gtk::Window window;
  lui::Frame frame("_Location");
  Gtk::VBox box;
  Gtk::Button other("other");
  Gtk::Entry entry;
  box.add(other);
  box.add(entry);
  frame.Add(box);
  frame.SetMnemonicWidget(entry);
  window.add(frame);
  window.show_all();
  other.grab_focus();
  EXPECT_EQ(GetChild<Gtk::Label>(frame, 0)->get_mnemonic_widget(), &entry);
  EXPECT_TRUE(window.mnemonic_activate(GDK_l, Gdk::MOD1_MASK));
  EXPECT_EQ(window.get_focus(), &entry);
}

TEST_F(FrameTest, StopsTheProgramAtASecondContent) {
  lui::Frame frame("Title");
  Gtk::Label first("first");
  Gtk::Label second("second");
  frame.Add(first);
  EXPECT_EXIT(frame.Add(second), testing::ExitedWithCode(255), "ASSERT apps/lib/lui/frame\\.cc:[0-9]+\n");
}

}  // namespace
