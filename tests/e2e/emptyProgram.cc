// The least that a gtkmm program can be, to measure the tool beside it.
//
//   empty_program           starts the toolkit and ends
//   empty_program window    shows an empty window and runs until it is ended

#include <gtkmm/main.h>
#include <gtkmm/window.h>

int main(int argc, char **argv) {
  const Gtk::Main toolkit(argc, argv, true);
  if (argc > 1) {
    Gtk::Window window;
    window.show();
    Gtk::Main::run();
  }
  return 0;
}
