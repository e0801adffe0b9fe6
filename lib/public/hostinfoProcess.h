// Starting programs from a process that holds more than they should inherit.
#ifndef OST_PUBLIC_HOSTINFOPROCESS_H
#define OST_PUBLIC_HOSTINFOPROCESS_H

#include <cstddef>

// Makes a fresh child ready to become another program: no interval timer runs, every signal has its default
// action, all descriptors but standard input, output and error are closed, the address space may grow to its
// hard limit, and there is no I/O privilege. What is blocked stays blocked. The log's file is closed with the
// rest; the text of a warning still goes to standard error.
//
// keepFds  descriptors to keep, in any order, or null when there are none
// count    how many
//
// A process that is root for another real user, and an I/O privilege that can't be given up, stop the
// program.
void Hostinfo_ResetProcessState(const int *keepFds, size_t count);

// Runs a program as a child that was made ready in this way.
//
// path       looked for on the path when it has no slash
// arguments  the program's name first, ended by a null pointer
// wait       whether to wait for its end
//
// Returns the wait status, where a program that can't be run exits with 127; 0 without waiting, the child
// being the caller's to reap, and when somebody else has reaped it; -1 with errno when there is no child or
// waiting fails; 1 for a null path.
int Hostinfo_Execute(const char *path, const char *const *arguments, bool wait);

#endif
