#include "appUtil.h"
#include "owned.h"
#include "str.h"

namespace {

// Text that isn't valid markup would leave the box empty.
Glib::ustring AsMarkup(const Glib::ustring &message) {
  const bool valid = pango_parse_markup(message.c_str(), -1, 0, nullptr, nullptr, nullptr, nullptr) != FALSE;
  return valid ? message : Glib::Markup::escape_text(message);
}

int RunError(Gtk::MessageDialog &dialog) {
  dialog.set_title("Error");
  return dialog.run();
}

}  // namespace

std::string Format(const char *format, ...) {
  va_list args;
  va_start(args, format);
  size_t length = 0;
  const OwnedString text(Str_SafeVasprintf(&length, format, args));
  va_end(args);
  return {text.get(), length};
}

int ShowError(const Glib::ustring &message) {
  Gtk::MessageDialog dialog(AsMarkup(message), true, Gtk::MESSAGE_ERROR, Gtk::BUTTONS_OK, true);
  return RunError(dialog);
}

int ShowError(const Glib::ustring &message, Gtk::Window &parent) {
  Gtk::MessageDialog dialog(parent, AsMarkup(message), true, Gtk::MESSAGE_ERROR, Gtk::BUTTONS_OK, true);
  return RunError(dialog);
}
