// One wrapper for each system call that takes or gives a text: text is UTF-8 on this side and in the current
// encoding on the other. A wrapper returns what its system call returns, with errno as the call left it; text
// that can't be converted gives EINVAL and the call's failure value. A null path goes on as it is, so that
// the call itself refuses it.
#ifndef OST_PUBLIC_POSIXPOSIX_H
#define OST_PUBLIC_POSIXPOSIX_H

#include <dirent.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/vfs.h>

#include <cstdio>

// The mode is taken only with O_CREAT.
int Posix_Open(const char *path, int flags, ...);
int Posix_Stat(const char *path, struct stat *data);
int Posix_Lstat(const char *path, struct stat *data);
int Posix_Unlink(const char *path);
int Posix_Rmdir(const char *path);
int Posix_Mkdir(const char *path, mode_t mode);
int Posix_Chmod(const char *path, mode_t mode);
int Posix_Access(const char *path, int mode);
int Posix_Rename(const char *from, const char *to);
int Posix_Symlink(const char *target, const char *linkPath);
int Posix_Link(const char *target, const char *linkPath);
// A new string (free) of at most 4095 bytes, or null with errno.
char *Posix_ReadLink(const char *path);
// A new string (free), or null with errno.
char *Posix_RealPath(const char *path);
DIR *Posix_OpenDir(const char *path);
FILE *Posix_Fopen(const char *path, const char *mode);
FILE *Posix_Popen(const char *command, const char *mode);
// Runs a command line by the shell. Returns a wait status, or -1.
int Posix_System(const char *command);
// Replaces the process. The arguments, the program's name first, end with a null pointer. Returns -1 on
// failure.
int Posix_Execl(const char *path, const char *argument, ...) __attribute__((sentinel));
// Starts a program as a child, without the cost of copying a big process that forking has.
//
// child      gets the child's process id
// actions    what the child does with its files before the program begins, or null
// arguments  the program's name first, ended by a null pointer
//
// Returns 0 or, without a child, an errno value.
int Posix_Spawn(pid_t *child, const char *path, const posix_spawn_file_actions_t *actions,
                const char *const *arguments);
// The value of an environment variable, borrowed: it stays readable until the variable has changed twice.
// Null when unset.
const char *Posix_Getenv(const char *name);

#endif
