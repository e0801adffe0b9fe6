// Who the running thread is, in a program that has one thread: one current id for the whole process, and a
// name for each id. Without any call the id is 3 and the name "app".
#ifndef OST_PUBLIC_VTHREAD_H
#define OST_PUBLIC_VTHREAD_H

using VThreadID = int;

// Tells which thread runs.
//
// id    0 to 3, or -1 for 3; another one stops the program
// name  copied, at most 31 bytes of it; null stops the program
//
// The first caller is from then on the thread that the names belong to.
void VThread_Init(VThreadID id, const char *name);
// The same for a further thread.
//
// id    36 to 95, or -1 or -2 for 3; another one stops the program
// name  copied, at most 31 bytes of it; null for "vthread-<id>"
//
// Returns the id.
VThreadID VThread_InitThread(VThreadID id, const char *name);

VThreadID VThread_CurID();
// The name of the current id, borrowed: it stays until that id gets another. In a thread other than the one
// that the names belong to it is "<name>-<thread>" instead, cut at 47 bytes, and stays until the caller asks
// again.
const char *VThread_CurName();

// Whether a signal is being handled, when the log makes do without the host's time zone. One flag for the
// process, false at first, whatever the id.
bool VThread_IsInSignal();
void VThread_SetIsInSignal(VThreadID id, bool isInSignal);

#endif
