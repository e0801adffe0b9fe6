// A panel for one thing that the compilation of modules needs of the host: a path that the engine has found
// or the user changes, an explanatory text, and two buttons.
//
// A panel judges its path at each change and remembers the text of the last failure. The window decides when
// the panel is shown and what it says at the top.
#ifndef OST_KERNPREP_REQUIREMENT_H
#define OST_KERNPREP_REQUIREMENT_H

#include <gtkmm/entry.h>
#include <gtkmm/filechooser.h>

#include "frame.h"
#include "wrapLabel.h"

namespace kernprep {

class Requirement : public lui::Frame {
 public:
  // Whether the path in the field is acceptable as it stands.
  virtual bool IsValid() = 0;
  // The text of the last failure, empty when there was none.
  virtual Glib::ustring GetError();
  // Searches the default places again.
  virtual void OnRefreshClicked() = 0;
  // Judges the field's text.
  virtual void OnPathChanged() = 0;
  // Where the file chooser opens when the field isn't valid.
  virtual Glib::ustring GetDefaultPath() = 0;

  Glib::ustring GetPath();
  // A changed text is judged.
  void SetPath(const Glib::ustring &path);
  // The text at the top of the panel; an empty one hides it.
  void SetInfo(const Glib::ustring &text);
  void SetError(const Glib::ustring &text);
  // Lets the user choose the path.
  void OnBrowseClicked();

 protected:
  // action  what the file chooser selects
  Requirement(const Glib::ustring &title, Gtk::FileChooserAction chooserAction);

 private:
  void PackPathRow();
  // The folder that the file chooser begins in.
  std::string GetBrowseFolder();

  Gtk::Entry entry;
  Gtk::VBox box;
  Glib::ustring error;
  view::WrapLabel info;
  Gtk::FileChooserAction action;
};

}  // namespace kernprep

#endif
