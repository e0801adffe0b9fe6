#include "threads.h"

#include <glibmm.h>

void InitThreads() {
  // Deprecated since the library does it by itself; older ones don't.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  if (g_threads_got_initialized == FALSE) {
    g_thread_init(nullptr);
    Glib::thread_init();
  }
#pragma GCC diagnostic pop
}
