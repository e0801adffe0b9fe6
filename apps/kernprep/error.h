// The result of a step and of the whole run.
#ifndef OST_KERNPREP_ERROR_H
#define OST_KERNPREP_ERROR_H

namespace kernprep {

// The values are the program's exit statuses, and fixed.
enum Error : int {
  ERROR_UNSET = -1,        // no result yet
  ERROR_NONE = 0,          // the work is done, or there is nothing left to check
  ERROR_REQUIREMENTS = 2,  // a requirement isn't met, or the user left the window
  ERROR_BUILD_FAILED = 4,  // a task failed fatally
  ERROR_CANCELLED = 5,     // the user cancelled
  ERROR_NEED_ROOT = 6,     // everything holds, but the process isn't root
};

}  // namespace kernprep

#endif
