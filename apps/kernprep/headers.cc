#include "headers.h"

#include "appUtil.h"
#include "kprep.h"
#include "owned.h"

namespace kernprep {

Headers::Headers() : Requirement("", Gtk::FILE_CHOOSER_ACTION_SELECT_FOLDER), valid(false) {
  const OwnedString release(KernPrep_GetKernelRelease());
  SetTitle(Format("_Kernel Headers %s", release ? release.get() : ""));
  Headers::OnRefreshClicked();
}

bool Headers::IsValid() {
  return valid;
}

void Headers::OnRefreshClicked() {
  const OwnedString path(KernPrep_FindHeaderDir());
  if (path) {
    SetPath(path.get());
  } else {
    OnPathChanged();
  }
}

void Headers::OnPathChanged() {
  valid = KernPrep_ValidateHeaderDir(GetPath().c_str());
  SetError(valid
               ? ""
               : "C header files matching your running kernel were not found.  Refer to your distribution's "
                 "documentation for installation instructions.");
}

Glib::ustring Headers::GetDefaultPath() {
  return "/usr/src";
}

}  // namespace kernprep
