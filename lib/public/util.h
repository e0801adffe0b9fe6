// Path expansion and the user's private temporary directory.
#ifndef OST_PUBLIC_UTIL_H
#define OST_PUBLIC_UTIL_H

// Expands "~", "~user" and "$NAME" in a file name. Returns a new string (free), or null with a message
// pending.
char *Util_ExpandString(const char *fileName);

// The directory "<tmp>/ostrel-<user>", mode 0700 and owned by the effective user, made when it is missing.
// One directory serves the process; a directory that is no longer acceptable is not trusted again.
//
// useConf  whether the configuration may name the temporary directory
//
// Returns a new string (free), or null with a warning in the log.
char *Util_GetSafeTmpDir(bool useConf);

#endif
