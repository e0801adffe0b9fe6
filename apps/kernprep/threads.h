// GLib's thread system, for library versions that don't bring it up by themselves.
#ifndef OST_KERNPREP_THREADS_H
#define OST_KERNPREP_THREADS_H

// Must come before any other use of GLib's threads.
void InitThreads();

#endif
