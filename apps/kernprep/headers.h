// The panel for the header files of the running kernel.
#ifndef OST_KERNPREP_HEADERS_H
#define OST_KERNPREP_HEADERS_H

#include "requirement.h"

namespace kernprep {

class Headers final : public Requirement {
 public:
  // Fills the field with the first default directory that fits.
  Headers();

  bool IsValid() override;
  void OnRefreshClicked() override;
  void OnPathChanged() override;
  Glib::ustring GetDefaultPath() override;

 private:
  bool valid;  // the verdict of the last OnPathChanged
};

}  // namespace kernprep

#endif
