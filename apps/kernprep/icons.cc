#include "icons.h"

#include "panicUser.h"

namespace kernprep {

// Filled before main, and never changed.
const std::array<StateIcon, 5> stateIcons{{
    {BuildTask::STATE_SUCCESS, "ostrel-kernprep-success", Gtk::Stock::APPLY},
    {BuildTask::STATE_IN_PROGRESS, "ostrel-kernprep-in-progress", Gtk::Stock::GO_FORWARD},
    {BuildTask::STATE_PENDING, "ostrel-kernprep-pending", Gtk::Stock::REMOVE},
    {BuildTask::STATE_FAILURE_WARNING, "ostrel-kernprep-failure-warning", Gtk::Stock::DIALOG_WARNING},
    {BuildTask::STATE_FAILURE_FATAL, "ostrel-kernprep-failure-fatal", Gtk::Stock::DIALOG_ERROR},
}};

}  // namespace kernprep

void RegisterIcons() {
  const Glib::RefPtr<Gtk::IconTheme> theme = Gtk::IconTheme::get_default();
  ASSERT(theme);
  const Glib::RefPtr<Gtk::IconFactory> factory = Gtk::IconFactory::create();
  ASSERT(factory);
  factory->add_default();
  for (const kernprep::StateIcon &icon : kernprep::stateIcons) {
    if (!theme->has_icon(icon.name)) {
      factory->add(Gtk::StockID(icon.name), Gtk::IconSet::lookup_default(icon.fallback));
    }
  }
}
