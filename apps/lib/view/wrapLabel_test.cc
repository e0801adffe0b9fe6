#include "wrapLabel.h"

#include <gtest/gtest.h>

#include <optional>

#include "testhost.h"
#include "widgetTestInt.h"

using widgettest::Settle;

namespace {

constexpr char kSentence[] =
    "Before you can run Ostrel Workbench, several modules must be compiled and loaded into the running "
    "kernel.";
constexpr char kShort[] = "Done.";

// What the text takes at a width, asked of the text engine and not of the label.
int HeightAt(Gtk::Label &label, int width) {
  const Glib::RefPtr<Pango::Layout> layout = label.create_pango_layout(label.get_text());
  layout->set_width(width * Pango::SCALE);
  layout->set_wrap(Pango::WRAP_WORD_CHAR);
  int textWidth = 0;
  int textHeight = 0;
  layout->get_pixel_size(textWidth, textHeight);
  return textHeight;
}

int LineHeight(Gtk::Label &label) {
  return HeightAt(label, 100000);
}

// Waits until the window manager and the label agree on the height that the text takes at a width.
testing::AssertionResult FitsWidth(Gtk::Label &label, int width) {
  const int height = HeightAt(label, width);
  if (widgettest::SpinUntil([&] { return label.get_width() == width && label.get_height() == height; }, 10)) {
    return testing::AssertionSuccess();
  }
  return testing::AssertionFailure() << label.get_width() << "x" << label.get_height() << " instead of "
                                     << width << "x" << height;
}

// The text that is drawn lies within the label.
void ExpectNothingCutOff(Gtk::Label &label) {
  int x = 0;
  int y = 0;
  label.get_layout_offsets(x, y);
  const Gtk::Allocation room = label.get_allocation();
  const Pango::Rectangle text = label.get_layout()->get_pixel_logical_extents();
  EXPECT_GE(x + text.get_x(), room.get_x());
  EXPECT_LE(x + text.get_x() + text.get_width(), room.get_x() + room.get_width());
  EXPECT_GE(y, room.get_y());
  EXPECT_LE(y + text.get_height(), room.get_y() + room.get_height());
}

class WrapLabelTest : public testing::Test {
 protected:
  void SetUp() override {
    testhost::Host().Enter();
    desktop_.emplace();
  }

  // Shows a label in a window, as wide as told.
  void Show(Gtk::Label &label, int width) {
    window_.emplace();
    box_ = Gtk::manage(new Gtk::VBox(false, 20));
    box_->pack_start(label, Gtk::PACK_SHRINK, 0);
    window_->add(*box_);
    window_->set_default_size(width, -1);
    box_->show();
    label.show();
    window_->show();
    ASSERT_TRUE(widgettest::SpinUntil([&] { return window_->is_mapped(); }));
  }

  void Resize(int width) {
    window_->resize(width, 1);
    ASSERT_TRUE(widgettest::SpinUntil([&] { return box_->get_width() == width; }));
  }

  std::optional<widgettest::Desktop> desktop_;
  std::optional<Gtk::Window> window_;
  Gtk::VBox *box_ = nullptr;
};

TEST_F(WrapLabelTest, TakesAsManyLinesAsItsWidthNeeds) {
  view::WrapLabel label(kSentence);
  Show(label, 325);
  EXPECT_TRUE(FitsWidth(label, 325));
  EXPECT_GT(label.get_height(), LineHeight(label));
  EXPECT_TRUE(label.get_line_wrap());
  ExpectNothingCutOff(label);
  window_.reset();
}

TEST_F(WrapLabelTest, AsksForLittleWidth) {
  view::WrapLabel label(kSentence);
  EXPECT_LE(label.size_request().width, 50);
  EXPECT_EQ(label.size_request().height, LineHeight(label));
  Show(label, 600);
  EXPECT_TRUE(FitsWidth(label, 600));
  EXPECT_LE(label.size_request().width, 50);
  EXPECT_EQ(label.size_request().height, HeightAt(label, 600));
  window_.reset();
}

TEST_F(WrapLabelTest, NeverAsksForMoreWidthThanAShortTextTakes) {
  view::WrapLabel label("a");
  EXPECT_LT(label.size_request().width, 20);
}

TEST_F(WrapLabelTest, WrapsAnewWhenTheWindowGetsNarrowerOrWider) {
  view::WrapLabel label(kSentence);
  Show(label, 500);
  for (const int width : {200, 90, 800, 325, 1000, 500}) {
    Resize(width);
    EXPECT_TRUE(FitsWidth(label, width));
    EXPECT_EQ(label.size_request().height, HeightAt(label, width)) << width;
    ExpectNothingCutOff(label);
  }
  window_.reset();
}

TEST_F(WrapLabelTest, KeepsTheWindowsWidthWhateverItsText) {
  view::WrapLabel label("");
  Show(label, 325);
  for (int repeats = 1; repeats < 6; ++repeats) {
    label.set_text(label.get_text() + " " + kSentence);
    EXPECT_TRUE(FitsWidth(label, 325));
    EXPECT_EQ(box_->get_width(), 325);
    ExpectNothingCutOff(label);
  }
  window_.reset();
}

TEST_F(WrapLabelTest, ShrinksAgainForAShorterText) {
  view::WrapLabel label(kSentence);
  Show(label, 200);
  EXPECT_TRUE(FitsWidth(label, 200));
  const int tall = label.get_height();
  label.set_text(kShort);
  EXPECT_TRUE(FitsWidth(label, 200));
  EXPECT_LT(label.get_height(), tall);
  EXPECT_EQ(label.get_height(), LineHeight(label));
  label.set_text(kSentence);
  EXPECT_TRUE(FitsWidth(label, 200));
  EXPECT_EQ(label.get_height(), tall);
  window_.reset();
}

TEST_F(WrapLabelTest, SettlesAfterTheOneExtraResizeAtRealization) {
  view::WrapLabel label(kSentence);
  window_.emplace();
  window_->signal_realize().connect(
      [this] {
        int width = 0;
        int height = 0;
        window_->get_size(width, height);
        window_->resize(width + 1, height);
      },
      false);
  box_ = Gtk::manage(new Gtk::VBox(false, 20));
  box_->pack_start(label, Gtk::PACK_SHRINK, 0);
  window_->add(*box_);
  window_->set_default_size(325, -1);
  window_->set_border_width(10);
  window_->show_all();
  EXPECT_TRUE(FitsWidth(label, 306));
  Settle();
  int width = 0;
  int height = 0;
  window_->get_size(width, height);
  EXPECT_EQ(width, 326);
  EXPECT_TRUE(FitsWidth(label, 306));
  EXPECT_EQ(height, label.get_height() + 20);
  ExpectNothingCutOff(label);

  int allocations = 0;
  label.signal_size_allocate().connect([&](Gtk::Allocation &) { ++allocations; });
  Settle(1);
  EXPECT_EQ(allocations, 0);
  window_.reset();
}

TEST_F(WrapLabelTest, BreaksAWordThatIsLongerThanTheLine) {
  view::WrapLabel label("/opt/" + std::string(200, 'x') + "/bin");
  Show(label, 200);
  EXPECT_TRUE(FitsWidth(label, 200));
  EXPECT_EQ(box_->get_width(), 200);
  EXPECT_GT(label.get_height(), 3 * LineHeight(label));
  ExpectNothingCutOff(label);
  window_.reset();
}

TEST_F(WrapLabelTest, FitsATextThatComesAfterItWasHidden) {
  view::WrapLabel label("");
  Show(label, 325);
  label.hide();
  Settle();
  label.set_text(kSentence);
  label.show();
  EXPECT_TRUE(FitsWidth(label, 325));
  EXPECT_EQ(box_->get_width(), 325);
  window_.reset();
}

TEST_F(WrapLabelTest, ShowsPlainText) {
  view::WrapLabel label("a <b>&amp;</b> _c");
  EXPECT_EQ(label.get_text(), "a <b>&amp;</b> _c");
  EXPECT_FALSE(label.get_use_markup());
  label.set_text("<i>");
  EXPECT_EQ(label.get_text(), "<i>");
}

TEST_F(WrapLabelTest, KeepsItsPaddingFree) {
  view::WrapLabel label(kSentence);
  label.set_padding(15, 7);
  Show(label, 325);
  const int height = HeightAt(label, 295) + 14;
  EXPECT_TRUE(widgettest::SpinUntil([&] { return label.get_height() == height; }, 10));
  ExpectNothingCutOff(label);
  window_.reset();
}

TEST_F(WrapLabelTest, StaysWithinItsWidthWhenReadFromRightToLeft) {
  Gtk::Widget::set_default_direction(Gtk::TEXT_DIR_RTL);
  view::WrapLabel label(kSentence);
  Show(label, 325);
  EXPECT_TRUE(FitsWidth(label, 325));
  ExpectNothingCutOff(label);
  window_.reset();
}

TEST_F(WrapLabelTest, FollowsALargerFont) {
  view::WrapLabel label(kSentence);
  Show(label, 325);
  EXPECT_TRUE(FitsWidth(label, 325));
  const int before = label.get_height();
  label.modify_font(Pango::FontDescription("Sans 20"));
  EXPECT_TRUE(FitsWidth(label, 325));
  EXPECT_GT(label.get_height(), before);
  ExpectNothingCutOff(label);
  window_.reset();
}

TEST_F(WrapLabelTest, LivesManagedToo) {
  auto *label = Gtk::manage(new view::WrapLabel(kSentence));
  Show(*label, 325);
  EXPECT_TRUE(FitsWidth(*label, 325));
  window_.reset();
}

}  // namespace
