#include "wrapLabel.h"

#include <algorithm>

namespace view {

namespace {

constexpr int kMinimalWidth = 50;

}  // namespace

WrapLabel::WrapLabel(const Glib::ustring &text) : Gtk::Label(text), wrapWidth(-1) {
  set_line_wrap(true);
  // A path can be longer than a line.
  set_line_wrap_mode(Pango::WRAP_WORD_CHAR);
}

void WrapLabel::on_size_request(Gtk::Requisition *requisition) {
  int xPadding = 0;
  int yPadding = 0;
  get_padding(xPadding, yPadding);
  int width = 0;
  int height = 0;
  Wrap()->get_pixel_size(width, height);
  requisition->width = std::min(width, kMinimalWidth) + 2 * xPadding;
  requisition->height = height + 2 * yPadding;
}

void WrapLabel::on_size_allocate(Gtk::Allocation &allocation) {
  // The toolkit aligns what was requested, and the text is wider than that. So the text begins at the left
  // edge in either direction of reading.
  set_alignment(get_direction() == Gtk::TEXT_DIR_RTL ? 1.0F : 0.0F, 0.0F);
  Gtk::Label::on_size_allocate(allocation);

  int xPadding = 0;
  int yPadding = 0;
  get_padding(xPadding, yPadding);
  const int width = std::max(allocation.get_width() - 2 * xPadding, 1);
  if (width == wrapWidth) {
    return;
  }
  wrapWidth = width;
  Wrap();
  queue_resize();
}

Glib::RefPtr<Pango::Layout> WrapLabel::Wrap() {
  Glib::RefPtr<Pango::Layout> layout = get_layout();
  layout->set_width(wrapWidth < 0 ? -1 : wrapWidth * Pango::SCALE);
  return layout;
}

}  // namespace view
