#include "contentBox.h"

namespace view {

ContentBox::ContentBox() : Gtk::VBox(false, 10) {}

}  // namespace view
