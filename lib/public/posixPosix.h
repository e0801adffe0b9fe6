// One wrapper for each system call that takes or gives a text: text is UTF-8 on this side and in the current
// encoding on the other.
//
//   struct stat data;
//   if (Posix_Stat(path, &data) == -1 && errno == ENOENT) ...
//
// Unless told otherwise a wrapper takes the arguments of its system call and returns what that returns, with
// errno as the call left it. Text that can't be converted gives EINVAL and the call's failure value, and the
// call isn't made; so does text whose bytes hold NULs in an encoding of wide characters. Where the current
// encoding is UTF-8 text goes to the system as it is, also when it is no valid UTF-8; what comes from the
// system must be valid in each. A null text goes on as it is, so that the call itself refuses it; where it
// would read through the null, the wrapper gives EFAULT in its stead.
#ifndef OST_PUBLIC_POSIXPOSIX_H
#define OST_PUBLIC_POSIXPOSIX_H

#include <dirent.h>
#include <grp.h>
#include <mntent.h>
#include <pwd.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/types.h>
#include <sys/vfs.h>
#include <utime.h>

#include <cstddef>
#include <cstdio>

static_assert(sizeof(off_t) == 8, "files are handled in the large-file form (_FILE_OFFSET_BITS=64)");

// ---- Files by path

// The mode is taken only with O_CREAT.
int Posix_Open(const char *path, int flags, ...);
int Posix_Creat(const char *path, mode_t mode);
int Posix_Stat(const char *path, struct stat *data);
int Posix_Lstat(const char *path, struct stat *data);
int Posix_Statfs(const char *path, struct statfs *data);
int Posix_Unlink(const char *path);
int Posix_Rmdir(const char *path);
int Posix_Mkdir(const char *path, mode_t mode);
int Posix_Chdir(const char *path);
int Posix_Chmod(const char *path, mode_t mode);
int Posix_Chown(const char *path, uid_t owner, gid_t group);
int Posix_Lchown(const char *path, uid_t owner, gid_t group);
int Posix_Truncate(const char *path, off_t length);
int Posix_Utime(const char *path, const struct utimbuf *times);
// times  access and modification time; null for now
int Posix_Utimes(const char *path, const struct timeval *times);
int Posix_Access(const char *path, int mode);
long Posix_Pathconf(const char *path, int name);
int Posix_Mkfifo(const char *path, mode_t mode);
int Posix_Mknod(const char *path, mode_t mode, dev_t device);
int Posix_Rename(const char *from, const char *to);
int Posix_Symlink(const char *target, const char *linkPath);
int Posix_Link(const char *target, const char *linkPath);
// A new string (free) of what the first 4095 bytes of the target say, or null with errno.
char *Posix_ReadLink(const char *path);
// A new string (free), or null with errno.
char *Posix_RealPath(const char *path);
DIR *Posix_OpenDir(const char *path);
// A null mode stops the program.
FILE *Posix_Fopen(const char *path, const char *mode);
FILE *Posix_Freopen(const char *path, const char *mode, FILE *stream);
// The type and the data go on unconverted.
int Posix_Mount(const char *source, const char *target, const char *type, unsigned long flags,
                const void *data);
int Posix_Umount(const char *path);

// ---- Programs

// A null mode stops the program.
FILE *Posix_Popen(const char *command, const char *mode);
// Runs a command line by the shell. Returns a wait status, or -1.
int Posix_System(const char *command);

// These replace the process; they return -1 on failure. Arguments, the program's name first, and environment
// end with a null pointer. The forms with p look for the program on the path.
int Posix_Execl(const char *path, const char *argument, ...) __attribute__((sentinel));
int Posix_Execlp(const char *path, const char *argument, ...) __attribute__((sentinel));
int Posix_Execv(const char *path, const char *const *arguments);
int Posix_Execvp(const char *path, const char *const *arguments);
int Posix_Execve(const char *path, const char *const *arguments, const char *const *environment);
// Starts a program as a child, without the cost of copying a big process that forking has.
//
// child      gets the child's process id
// actions    what the child does with its files before the program begins, or null
// arguments  the program's name first, ended by a null pointer
//
// Returns 0 or, without a child, an errno value.
int Posix_Spawn(pid_t *child, const char *path, const posix_spawn_file_actions_t *actions,
                const char *const *arguments);

// ---- Environment

// The value of an environment variable, borrowed: it stays readable until the variable has changed twice.
// Null when unset or when the value can't be converted. Safe from any thread as long as none changes the
// environment meanwhile.
const char *Posix_Getenv(const char *name);
int Posix_Setenv(const char *name, const char *value, int overwrite);
int Posix_Unsetenv(const char *name);
// The environment keeps the pointer itself. A text ("NAME=value") that isn't ASCII stops the program.
int Posix_Putenv(char *text);

// ---- Terminal output

// Formatted as by Str_Asprintf. Return the count of bytes written, or -1.
int Posix_Printf(const char *format, ...) __attribute__((format(printf, 1, 2)));
int Posix_Fprintf(FILE *stream, const char *format, ...) __attribute__((format(printf, 2, 3)));
// Writes nothing when the text can't be converted.
void Posix_Perror(const char *text);

// ---- Users, groups and mounts
//
// What the plain forms return is borrowed until the next of them that asks for the same kind of record; they
// aren't safe across threads. Null with ENOMEM when a text of the record can't be converted.
//
// The forms with _r keep the converted texts in the caller's buffer. Those for users and groups return 0,
// with null at `result` when there is no such entry, or an errno value, which is in errno too;
// Posix_Getmntent_r returns null with errno. ERANGE tells that the buffer is too small, ENOMEM that a text
// can't be converted.

passwd *Posix_Getpwnam(const char *name);
passwd *Posix_Getpwuid(uid_t user);
passwd *Posix_Getpwent();
int Posix_Getpwnam_r(const char *name, passwd *record, char *buffer, size_t size, passwd **result);
int Posix_Getpwuid_r(uid_t user, passwd *record, char *buffer, size_t size, passwd **result);
group *Posix_Getgrnam(const char *name);
int Posix_Getgrnam_r(const char *name, group *record, char *buffer, size_t size, group **result);
// A name that can't be converted gives EINVAL and the list of just `group`: 1, or -1 when there was no room.
int Posix_Getgrouplist(const char *user, gid_t group, gid_t *groups, int *count);
// Opens a mount table; closed with endmntent. A null mode stops the program.
FILE *Posix_Setmntent(const char *path, const char *mode);
mntent *Posix_Getmntent(FILE *stream);
mntent *Posix_Getmntent_r(FILE *stream, mntent *record, char *buffer, int size);

#endif
