#include "requirement.h"

#include <glibmm/convert.h>
#include <glibmm/fileutils.h>
#include <glibmm/miscutils.h>
#include <gtkmm/button.h>
#include <gtkmm/filechooserdialog.h>
#include <gtkmm/image.h>
#include <gtkmm/label.h>
#include <gtkmm/stock.h>

#include "contentBox.h"

namespace kernprep {

namespace {

constexpr int kSpacing = 10;

Gtk::Button *AddButton(Gtk::HBox &row, const Glib::ustring &text, const Gtk::StockID &image) {
  auto *button = Gtk::manage(new Gtk::Button(text, false));
  button->set_image(*Gtk::manage(new Gtk::Image(image, Gtk::ICON_SIZE_BUTTON)));
  button->show();
  row.pack_start(*button, Gtk::PACK_SHRINK, 0);
  return button;
}

// A name that isn't text is taken as it is shown, and is judged like any other path.
Glib::ustring AsText(const std::string &filename) {
  try {
    return Glib::filename_to_utf8(filename);
  } catch (const Glib::ConvertError &) {
    return Glib::filename_display_name(filename);
  }
}

}  // namespace

Requirement::Requirement(const Glib::ustring &title, Gtk::FileChooserAction chooserAction)
    : lui::Frame(title), box(false, kSpacing), info(""), action(chooserAction) {
  box.show();
  Add(box);
  auto *content = Gtk::manage(new view::ContentBox);
  content->show();
  box.pack_start(*content, Gtk::PACK_EXPAND_WIDGET, 0);
  info.show();
  content->pack_start(info, Gtk::PACK_EXPAND_WIDGET, 0);
  PackPathRow();
  SetMnemonicWidget(entry);
}

void Requirement::PackPathRow() {
  auto *row = Gtk::manage(new Gtk::HBox(false, kSpacing));
  row->show();
  box.pack_start(*row, Gtk::PACK_EXPAND_WIDGET, 0);
  auto *location = Gtk::manage(new Gtk::Label("Location:", false));
  location->show();
  row->pack_start(*location, Gtk::PACK_SHRINK, 0);
  row->pack_start(entry, Gtk::PACK_EXPAND_WIDGET, 0);
  entry.show();
  entry.signal_changed().connect(sigc::mem_fun(*this, &Requirement::OnPathChanged));
  AddButton(*row, "_Browse...", Gtk::Stock::DIRECTORY)
      ->signal_clicked()
      .connect(sigc::mem_fun(*this, &Requirement::OnBrowseClicked));
  AddButton(*row, "_Refresh", Gtk::Stock::REFRESH)
      ->signal_clicked()
      .connect(sigc::mem_fun(*this, &Requirement::OnRefreshClicked));
}

Glib::ustring Requirement::GetError() {
  return error;
}

Glib::ustring Requirement::GetPath() {
  return entry.get_text();
}

void Requirement::SetPath(const Glib::ustring &path) {
  entry.set_text(path);
}

void Requirement::SetInfo(const Glib::ustring &text) {
  info.set_text(text);
  info.set_visible(!text.empty());
}

void Requirement::SetError(const Glib::ustring &text) {
  error = text;
}

std::string Requirement::GetBrowseFolder() {
  if (!IsValid()) {
    return GetDefaultPath();
  }
  const std::string path = GetPath();
  return Glib::file_test(path, Glib::FILE_TEST_IS_DIR) ? path : Glib::path_get_dirname(path);
}

void Requirement::OnBrowseClicked() {
  Gtk::FileChooserDialog dialog("Select Path", action);
  dialog.add_button(Gtk::Stock::CANCEL, Gtk::RESPONSE_CANCEL);
  dialog.add_button(Gtk::Stock::OK, Gtk::RESPONSE_OK);
  dialog.set_current_folder(GetBrowseFolder());
  if (dialog.run() == Gtk::RESPONSE_OK) {
    entry.set_text(AsText(dialog.get_filename()));
  }
}

}  // namespace kernprep
