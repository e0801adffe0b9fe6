// Who and what runs here: the host's name, the user, the program.
#ifndef OST_PUBLIC_HOSTINFOPOSIX_H
#define OST_PUBLIC_HOSTINFOPOSIX_H

// The host's canonical name, or its node name when it has no other, as a new string (free). Null when it has
// no name.
char *Hostinfo_HostName();
// The same, asked for until there is a name and kept from then on: borrowed, lives for ever. Safe in every
// thread: all get the same name.
const char *Hostinfo_NameGet();

// The name of the real user, from the user database or else from the environment's USER, as a new string
// (free). Null when neither tells.
char *Hostinfo_GetUser();

inline constexpr unsigned HOSTINFO_MODULE_PATH_AS_ROOT = 0;
inline constexpr unsigned HOSTINFO_MODULE_PATH_AS_SELF = 1;

// The path of the running program.
//
// privilege  HOSTINFO_MODULE_PATH_AS_ROOT to become super-user for it, where the process may, or
//            HOSTINFO_MODULE_PATH_AS_SELF
//
// Returns a new string (free), or null with a warning. A kernel whose major or minor number is below 2, 3.1
// and 6.1 too, stops the program.
char *Hostinfo_GetModulePath(unsigned privilege);

#endif
