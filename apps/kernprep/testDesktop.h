// What tests of the application stand on: a display, the toolkit, the log, and a user who answers boxes.
#ifndef OST_KERNPREP_TESTDESKTOP_H
#define OST_KERNPREP_TESTDESKTOP_H

#include <gtkmm.h>

#include <functional>
#include <string>
#include <vector>

#include "display.h"
#include "log.h"
#include "testhost.h"

namespace kernprep {

// A display with the toolkit on it. Make it after Host::Enter.
class TestDesktop {
 public:
  TestDesktop() : toolkit(argc, argv, true) { Log_Init(nullptr, "setup.log.filename", "setup"); }

  testhost::Display display;

 private:
  int argc = 0;
  char **argv = nullptr;
  Gtk::Main toolkit;
};

inline std::string TestLog() {
  return testhost::ReadFile(Log_GetFileName());
}

// Calls `step` every 20 ms in whatever main loop runs, until it answers false.
inline void EachTurn(const std::function<bool()> &step) {
  Glib::signal_timeout().connect([step] { return step(); }, 20);
}

// The visible top-level windows with a title.
inline std::vector<GtkWindow *> VisibleWindows(const std::string &title) {
  std::vector<GtkWindow *> found;
  GList *windows = gtk_window_list_toplevels();
  for (GList *cell = windows; cell != nullptr; cell = cell->next) {
    auto *window = GTK_WINDOW(cell->data);
    const char *text = gtk_window_get_title(window);
    if (gtk_widget_get_visible(GTK_WIDGET(window)) != FALSE && text != nullptr && text == title) {
      found.push_back(window);
    }
  }
  g_list_free(windows);
  return found;
}

// A box as the user saw it.
struct SeenBox {
  std::string text;  // as shown, with the markup carried out
  bool error;        // of the error type
  bool modal;
  bool oneOkButton;
  GtkWindow *parent;  // null when it has none
};

inline void ShownText(GtkWidget *widget, void *text) {
  if (GTK_IS_LABEL(widget)) {
    *static_cast<std::string *>(text) += gtk_label_get_text(GTK_LABEL(widget));
  } else if (GTK_IS_CONTAINER(widget)) {
    gtk_container_forall(GTK_CONTAINER(widget), ShownText, text);
  }
}

inline SeenBox Describe(GtkWindow *window) {
  SeenBox box{};
  GtkMessageType type = GTK_MESSAGE_OTHER;
  g_object_get(window, "message-type", &type, nullptr);
  box.error = type == GTK_MESSAGE_ERROR;
  box.modal = gtk_window_get_modal(window) != FALSE;
  box.parent = gtk_window_get_transient_for(window);
  ShownText(gtk_message_dialog_get_message_area(GTK_MESSAGE_DIALOG(window)), &box.text);
  GList *buttons = gtk_container_get_children(GTK_CONTAINER(gtk_dialog_get_action_area(GTK_DIALOG(window))));
  box.oneOkButton =
      g_list_length(buttons) == 1 &&
      gtk_dialog_get_response_for_widget(GTK_DIALOG(window), GTK_WIDGET(buttons->data)) == GTK_RESPONSE_OK;
  g_list_free(buttons);
  return box;
}

// Looks at each box titled "Error" as it appears, and leaves it with OK. Lives as long as the main loops.
class BoxUser {
 public:
  BoxUser() {
    EachTurn([this] {
      for (GtkWindow *window : VisibleWindows("Error")) {
        seen.push_back(Describe(window));
        gtk_dialog_response(GTK_DIALOG(window), GTK_RESPONSE_OK);
      }
      return true;
    });
  }

  std::vector<SeenBox> seen;
};

}  // namespace kernprep

#endif
