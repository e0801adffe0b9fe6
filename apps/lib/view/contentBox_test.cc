#include "contentBox.h"

#include <gtest/gtest.h>

#include "testhost.h"
#include "widgetTestInt.h"

namespace {

TEST(ContentBox, GivesItsContentTheWholeRoom) {
  testhost::Host().Enter();
  const widgettest::Desktop desktop;
  Gtk::Window window;
  auto *box = Gtk::manage(new view::ContentBox);
  Gtk::Label first("first");
  Gtk::Label second("second");
  box->pack_start(first, Gtk::PACK_EXPAND_WIDGET, 0);
  box->pack_start(second, Gtk::PACK_EXPAND_WIDGET, 0);
  window.add(*box);
  window.set_default_size(200, 100);
  window.show();
  box->show();
  first.show();
  widgettest::Settle();
  EXPECT_EQ(first.get_width(), 200);
  EXPECT_EQ(first.get_height(), 100);

  second.show();
  widgettest::Settle();
  EXPECT_EQ(second.get_width(), 200);
  EXPECT_EQ(second.get_allocation().get_y(), first.get_height() + 10);
}

}  // namespace
