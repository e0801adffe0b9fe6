// A titled group: a bold title on a line of its own, with the content indented below it.
//
//   lui::Frame frame("_Location");
//   frame.Add(entry);
//   frame.SetMnemonicWidget(entry);
//   frame.show();
#ifndef OST_LUI_FRAME_H
#define OST_LUI_FRAME_H

#include <gtkmm/box.h>
#include <gtkmm/label.h>

namespace lui {

class Frame : public Gtk::VBox {
 public:
  explicit Frame(const Glib::ustring &title);

  // Plain text, in which an underscore makes a mnemonic of the next letter.
  void SetTitle(const Glib::ustring &title);
  // Sets the content, which must outlive the frame or be managed. There can be one: a second call stops the
  // program.
  void Add(Gtk::Widget &widget);
  // What the title's mnemonic activates.
  void SetMnemonicWidget(Gtk::Widget &widget);

 private:
  Gtk::HBox hbox;
  Gtk::Widget *child;
  Gtk::Label label;
};

}  // namespace lui

#endif
