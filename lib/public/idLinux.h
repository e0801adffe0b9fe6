// The user and group of the process, and its effective user for a moment another one.
#ifndef OST_PUBLIC_IDLINUX_H
#define OST_PUBLIC_IDLINUX_H

#include <sys/types.h>

// Becomes root as effective user, where the process may; in this thread alone. Returns what Id_EndSuperUser
// takes. An effective user of -1 stops the program.
uid_t Id_BeginSuperUser();
// Ends what Id_BeginSuperUser began. To go back to root from another user stops the program.
void Id_EndSuperUser(uid_t user);

// The system's setuid and setgid, in this thread alone. Return 0, or -1 with errno.
int Id_SetUid(uid_t user);
int Id_SetGid(gid_t group);

#endif
