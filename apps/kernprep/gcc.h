// The panel for a compiler that fits the one which built the kernel.
#ifndef OST_KERNPREP_GCC_H
#define OST_KERNPREP_GCC_H

#include "requirement.h"

namespace kernprep {

class GCC final : public Requirement {
 public:
  // Fills the field with the engine's choice.
  GCC();

  bool IsValid() override;
  void OnRefreshClicked() override;
  void OnPathChanged() override;
  Glib::ustring GetDefaultPath() override;

  // Judges the path in full.
  //
  // interactive  whether the user may be asked to accept a compiler with another minor version
  //
  // Returns a KernPrep_CompilerMatch, in which a difference that was accepted before counts as a match. 0 and
  // 1 are failures, a refusal included; any other value is a pass.
  unsigned CheckVersion(bool interactive);
  bool GetIgnoreMinor();
  void SetIgnoreMinor(bool ignore);

 private:
  // Whether the user accepts a compiler with another minor version.
  bool AskToInstall();

  bool ignoreMinor;
};

}  // namespace kernprep

#endif
