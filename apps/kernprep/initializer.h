// Ties the start of a subsystem to its end, on every way out of a scope.
//
//   const kernprep::Initializer library(sigc::ptr_fun(KernPrep_Init), sigc::ptr_fun(KernPrep_DeInit),
//                                       "Unable to initialize module building library");
#ifndef OST_KERNPREP_INITIALIZER_H
#define OST_KERNPREP_INITIALIZER_H

#include <gtkmm.h>

#include <stdexcept>

namespace kernprep {

// A subsystem that didn't start; what() is the text for the user.
class InitializeError : public std::runtime_error {
 public:
  explicit InitializeError(const Glib::ustring &message);
};

class Initializer {
 public:
  // Starts the subsystem.
  //
  // start           answers whether the subsystem is up
  // end             is called by the destructor
  // failureMessage  the text of the InitializeError that is thrown when `start` is empty, blocked or answers
  //                 false; `end` isn't called then
  Initializer(const sigc::slot<bool> &start, const sigc::slot<void> &end,
              const Glib::ustring &failureMessage);
  virtual ~Initializer();
  Initializer(const Initializer &) = delete;
  Initializer &operator=(const Initializer &) = delete;

 private:
  sigc::slot<bool> init;
  sigc::slot<void> deinit;
};

}  // namespace kernprep

#endif
