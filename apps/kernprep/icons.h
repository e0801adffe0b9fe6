// The icons of the progress window's rows.
#ifndef OST_KERNPREP_ICONS_H
#define OST_KERNPREP_ICONS_H

#include <gtkmm.h>

#include <array>

#include "buildTask.h"

namespace kernprep {

struct StateIcon {
  BuildTask::State state;
  const char *name;
  Gtk::StockID fallback;  // stands in when the icon theme lacks the name
};

extern const std::array<StateIcon, 5> stateIcons;

}  // namespace kernprep

// Registers, under the name of each state icon that the icon theme lacks, its stock icon. The toolkit must be
// up.
void RegisterIcons();

#endif
