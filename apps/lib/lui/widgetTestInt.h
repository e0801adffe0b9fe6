// For tests: walks a window's widgets, and keeps the main loop going.
#ifndef OST_LUI_WIDGETTESTINT_H
#define OST_LUI_WIDGETTESTINT_H

#include <gtkmm.h>

#include <functional>
#include <string>
#include <vector>

#include "display.h"

namespace widgettest {

// A display with the toolkit on it. Make it after Host::Enter.
class Desktop {
 public:
  Desktop() : toolkit_(argc_, argv_, true) {}

  testhost::Display display;

 private:
  int argc_ = 0;
  char **argv_ = nullptr;
  Gtk::Main toolkit_;
};

// How a box holds a widget.
struct Packing {
  bool expand = false;
  bool fill = false;
  unsigned padding = 0;
  GtkPackType side = GTK_PACK_START;

  bool operator==(const Packing &) const = default;
};

constexpr Packing kShrink = {false, false, 0, GTK_PACK_START};
constexpr Packing kExpandPadding = {true, false, 0, GTK_PACK_START};
constexpr Packing kExpandWidget = {true, true, 0, GTK_PACK_START};
constexpr Packing kShrinkAtEnd = {false, false, 0, GTK_PACK_END};

inline std::ostream &operator<<(std::ostream &out, const Packing &packing) {
  return out << (packing.expand ? "expand " : "") << (packing.fill ? "fill " : "") << packing.padding
             << (packing.side == GTK_PACK_START ? " start" : " end");
}

inline Packing GetPacking(Gtk::Widget &widget) {
  gboolean expand = FALSE;
  gboolean fill = FALSE;
  Packing packing;
  gtk_box_query_child_packing(GTK_BOX(widget.get_parent()->gobj()), widget.gobj(), &expand, &fill,
                              &packing.padding, &packing.side);
  packing.expand = expand != FALSE;
  packing.fill = fill != FALSE;
  return packing;
}

// A container's own children, hidden ones included, in their order.
inline std::vector<Gtk::Widget *> GetChildren(Gtk::Container &container) {
  return container.get_children();
}

// The child at a place, as what it must be; null when it isn't.
template <typename T>
T *GetChild(Gtk::Container &container, size_t index) {
  const std::vector<Gtk::Widget *> children = GetChildren(container);
  return index < children.size() ? dynamic_cast<T *>(children[index]) : nullptr;
}

// Everything of a type below a container, in depth first order.
template <typename T>
std::vector<T *> FindAll(Gtk::Container &container) {
  std::vector<T *> found;
  for (Gtk::Widget *child : GetChildren(container)) {
    if (auto *match = dynamic_cast<T *>(child)) {
      found.push_back(match);
    }
    if (auto *inner = dynamic_cast<Gtk::Container *>(child)) {
      const std::vector<T *> more = FindAll<T>(*inner);
      found.insert(found.end(), more.begin(), more.end());
    }
  }
  return found;
}

// The button with a text or stock name; null when there is none.
inline Gtk::Button *FindButton(Gtk::Container &container, const Glib::ustring &text) {
  for (Gtk::Button *button : FindAll<Gtk::Button>(container)) {
    if (button->get_label() == text) {
      return button;
    }
  }
  return nullptr;
}

inline Glib::ustring GetStockImage(Gtk::Button &button) {
  auto *image = dynamic_cast<Gtk::Image *>(button.get_image());
  if (image == nullptr || image->get_storage_type() != Gtk::IMAGE_STOCK) {
    return "";
  }
  Gtk::StockID stock;
  Gtk::IconSize size;
  image->get_stock(stock, size);
  return size == Gtk::ICON_SIZE_BUTTON ? stock.get_string() : "another size";
}

// The response that a dialog's button gives.
inline int GetResponse(Gtk::Dialog &dialog, Gtk::Widget &button) {
  return gtk_dialog_get_response_for_widget(dialog.gobj(), button.gobj());
}

// Runs the main loop until a condition holds. Returns false when `seconds` have passed.
inline bool SpinUntil(const std::function<bool()> &condition, double seconds = 30) {
  const Glib::Timer timer;
  while (!condition()) {
    if (timer.elapsed() > seconds) {
      return false;
    }
    // Wakes the loop when nothing else does.
    sigc::connection tick = Glib::signal_timeout().connect([] { return false; }, 20);
    Gtk::Main::iteration(true);
    tick.disconnect();
  }
  return true;
}

// Runs the main loop until the server has answered everything and sizes have settled.
inline void Settle(double seconds = 0.3) {
  SpinUntil([] { return false; }, seconds);
}

inline Gtk::Window *FindWindow(const Glib::ustring &title) {
  for (Gtk::Window *window : std::vector<Gtk::Window *>(Gtk::Window::list_toplevels())) {
    if (window->get_title() == title && window->is_mapped()) {
      return window;
    }
  }
  return nullptr;
}

// Waits inside the main loop, whoever runs it, for a window with the title, and acts on it every 50 ms until
// the action answers true.
class OnWindow {
 public:
  OnWindow(const Glib::ustring &title, const std::function<bool(Gtk::Window &)> &action)
      : title_(title), action_(action) {
    connection_ = Glib::signal_timeout().connect(sigc::mem_fun(*this, &OnWindow::Look), 50);
  }
  ~OnWindow() { connection_.disconnect(); }
  OnWindow(const OnWindow &) = delete;
  OnWindow &operator=(const OnWindow &) = delete;

  bool Seen() const { return seen_; }

 private:
  bool Look() {
    Gtk::Window *window = FindWindow(title_);
    if (window == nullptr) {
      return true;
    }
    seen_ = true;
    auto *dialog = dynamic_cast<Gtk::Dialog *>(window);
    if (++turns_ == 400 && dialog != nullptr) {
      dialog->response(Gtk::RESPONSE_NONE);
      return false;
    }
    return !action_(*window);
  }

  Glib::ustring title_;
  std::function<bool(Gtk::Window &)> action_;
  sigc::connection connection_;
  bool seen_ = false;
  int turns_ = 0;
};

}  // namespace widgettest

#endif
