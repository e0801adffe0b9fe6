// A label that lays a long text out for the width that it is given, in as many lines as it needs.
//
// It asks for little width, so that the window decides how wide it gets, and for the height that its text
// takes at the width it holds. A label that hasn't been given a width yet asks for one line, and for more as
// soon as it knows better: a window grows by itself, and doesn't shrink.
//
//   auto *label = Gtk::manage(new view::WrapLabel("A long sentence ..."));
//   box.pack_start(*label, Gtk::PACK_SHRINK, 0);
//   label->set_text("Another one, which is wrapped anew.");
#ifndef OST_VIEW_WRAPLABEL_H
#define OST_VIEW_WRAPLABEL_H

#include <gtkmm/label.h>

namespace view {

class WrapLabel : public Gtk::Label {
 public:
  explicit WrapLabel(const Glib::ustring &text);

 protected:
  void on_size_request(Gtk::Requisition *requisition) override;
  void on_size_allocate(Gtk::Allocation &allocation) override;

 private:
  // Lays the text out for the width that the label holds.
  Glib::RefPtr<Pango::Layout> Wrap();

  int wrapWidth;  // pixels, or -1 before the first allocation
};

}  // namespace view

#endif
