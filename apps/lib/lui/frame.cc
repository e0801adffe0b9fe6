#include "frame.h"

#include <glibmm/markup.h>

#include "panicUser.h"
#include "spacer.h"

namespace lui {

namespace {

constexpr int kTitleSpacing = 10;
constexpr int kIndentation = 20;

}  // namespace

Frame::Frame(const Glib::ustring &title) : Gtk::VBox(false, kTitleSpacing), hbox(false, 0), child(nullptr) {
  label.show();
  pack_start(label, false, true, 0);
  label.property_xalign() = 0.0F;
  label.property_use_markup() = true;
  label.property_use_underline() = true;
  label.property_justify() = Gtk::JUSTIFY_LEFT;
  SetTitle(title);

  hbox.show();
  pack_start(hbox, true, true, 0);
  auto *spacer = Gtk::manage(new Spacer(kIndentation, 0));
  spacer->show();
  hbox.pack_start(*spacer, false, true, 0);
}

void Frame::SetTitle(const Glib::ustring &title) {
  label.property_label() = "<b>" + Glib::Markup::escape_text(title) + "</b>";
}

void Frame::Add(Gtk::Widget &widget) {
  ASSERT(child == nullptr);
  hbox.pack_start(widget, true, true, 0);
  child = &widget;
}

void Frame::SetMnemonicWidget(Gtk::Widget &widget) {
  label.set_mnemonic_widget(widget);
}

}  // namespace lui
