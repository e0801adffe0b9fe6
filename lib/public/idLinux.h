// The effective user of the process, for a moment another one.
#ifndef OST_PUBLIC_IDLINUX_H
#define OST_PUBLIC_IDLINUX_H

#include <sys/types.h>

// Becomes root as effective user, where the process may. Returns what Id_EndSuperUser takes.
uid_t Id_BeginSuperUser();
// Ends what Id_BeginSuperUser began.
void Id_EndSuperUser(uid_t user);

#endif
