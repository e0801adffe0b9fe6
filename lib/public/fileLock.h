// Advisory locks on files that work between processes and, over a shared file system, between hosts, without
// help from the kernel.
//
//   int error = 0;
//   void *token = FileLock_Lock(path, false, 2500, &error);
//   if (token != nullptr) { ...
//   FileLock_Unlock(path, token); }
//
// A lock on `path` is a directory "<path>.lck" with one member file for each holder and waiter. A lock on a
// symbolic link belongs to the link itself. A file need not be there: its lock is the same before it is made
// and after.
#ifndef OST_PUBLIC_FILELOCK_H
#define OST_PUBLIC_FILELOCK_H

#include <sys/types.h>

#include <cstdint>

// A time limit that never ends.
constexpr uint32_t FILELOCK_INFINITE_WAIT = 0xffffffff;

// Locks a file, waiting for those who came first.
//
// readOnly         a shared lock, which goes beside other shared ones; otherwise an exclusive one
// msecMaxWaitTime  milliseconds; 0 tries once
// err              gets an error number; 0 with a null result when the time ran out
//
// Returns a token that FileLock_Unlock takes back, or null.
void *FileLock_Lock(const char *filePath, bool readOnly, uint32_t msecMaxWaitTime, int *err);
// Gives a lock back, where it was taken, even if the path leads elsewhere by now. Returns an error number, or
// 0; EINVAL when the path can't be resolved any more. The token is gone in each case.
int FileLock_Unlock(const char *filePath, void *token);
// Whether somebody holds a lock or waits for one. `err`, when not null, gets an error number, or 0.
bool FileLock_IsLocked(const char *filePath, int *err);
// Deletes a file whose lock has one holder and no waiter; the holder asks. Returns an error number, or 0.
int FileLock_DeleteIfSoleOwner(const char *filePath);
// Locks in the name of another process from here on; a pid below 1 means the calling one. The flag is kept
// and has no effect.
void FileLock_Init(pid_t pid, bool flag);

// Locks a device among all programs that keep lock files "LCK..<device>" in /var/lock, as root where the
// process may.
//
// deviceName  the device's name below /dev, as "ttyS0"
//
// Returns 1 when the device is locked now, 0 when another process holds it, -1 on failure, with the reason in
// the log. The lock file of a process that is gone is replaced.
int FileLock_LockDevice(const char *deviceName);
// Removes the device's lock file, whoever made it. Returns whether it did.
bool FileLock_UnlockDevice(const char *deviceName);

#endif
