// The container of a panel's content: its widgets stand below one another.
#ifndef OST_VIEW_CONTENTBOX_H
#define OST_VIEW_CONTENTBOX_H

#include <gtkmm/box.h>

namespace view {

class ContentBox : public Gtk::VBox {
 public:
  ContentBox();
};

}  // namespace view

#endif
