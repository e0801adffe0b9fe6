#include "initializer.h"

namespace kernprep {

InitializeError::InitializeError(const Glib::ustring &message) : std::runtime_error(message.raw()) {}

Initializer::Initializer(const sigc::slot<bool> &start, const sigc::slot<void> &end,
                         const Glib::ustring &failureMessage)
    : init(start), deinit(end) {
  // An empty or blocked slot would answer false of itself; the test says that this is meant.
  if (init.empty() || init.blocked() || !init()) {
    throw InitializeError(failureMessage);
  }
}

Initializer::~Initializer() {
  if (!deinit.empty() && !deinit.blocked()) {
    deinit();
  }
}

}  // namespace kernprep
