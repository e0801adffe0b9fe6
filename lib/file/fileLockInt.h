// The lock algorithm, beneath the public entry points: Lamport's bakery with mkdir, rename and directory
// reads for its only means.
//
// What lies in the lock directory "<path>.lck", with one number for all that a contender puts there:
//
//   Dnnnnn.lck  a directory: the contender is choosing its ticket
//   Ennnnn.lck  its member file while that is being written
//   Mnnnnn.lck  its member file: it holds the lock or waits for it
#ifndef OST_FILE_FILELOCKINT_H
#define OST_FILE_FILELOCKINT_H

#include <sys/types.h>

#include <cstdint>
#include <list>
#include <string>

inline constexpr size_t kMemberSize = 512;
inline constexpr char kLockSuffix[] = ".lck";
inline constexpr char kSharedLock[] = "S";
inline constexpr char kExclusiveLock[] = "X";

// A contender that was seen choosing.
struct ActiveLock {
  uint32_t age;  // milliseconds
  bool marked;   // whether the running scan saw it
  std::string dirName;
};

// One contender or member.
struct LockValues {
  std::string machineID;
  std::string executionID;
  std::string payload;  // the process's creation time; empty for none
  std::string lockType;
  std::string locationChecksum;  // empty for none
  std::string memberName;
  uint32_t lamportNumber;
  uint32_t waitTime;         // milliseconds slept so far
  uint32_t msecMaxWaitTime;  // 0 tries once, FILELOCK_INFINITE_WAIT never gives up
  std::list<ActiveLock> lockList;
};

// Where a contender's entries are: its directory, its entry file and its member file.
struct LockEntry {
  std::string memberName;
  std::string directoryPath;
  std::string filePath;
  std::string memberPath;
};

// fileLockPosix.cc

// The process id that locks are taken for, as a number and as a text.
pid_t FileLockGetPid();
std::string FileLockGetExecutionID();
// Whether a member's owner must be taken for alive; it is when in doubt. An empty payload tells nothing.
bool FileLockValidOwner(const char *executionID, const char *payload);
// Whether a process lives; it does when in doubt.
bool FileLockIsValidProcess(pid_t pid);
// When a process started, in the system's clock ticks, or 0 when that can't be learned.
uint64_t ProcessCreationTime(pid_t pid);
// The same from the text of the process's stat file.
uint64_t CreationTimeInStat(const std::string &text);
// Sleeps, a little longer than asked for by chance.
void FileSleeper(uint32_t msec);

// fileLockPrimitive.cc

// Takes a lock on a normalised path. `payload` may be empty. The result is that of FileLock_Lock.
void *FileLockIntrinsic(const std::string &path, bool exclusive, uint32_t msecMaxWaitTime,
                        const std::string &payload, int *err);
// Gives the lock of a token back, where it was taken, and the token with it. Returns an error number, or 0.
int FileUnlockIntrinsic(void *token);
// FileLock_DeleteIfSoleOwner and FileLock_IsLocked of a normalised path.
int FileLockHackOST(const std::string &path);
bool FileLockIsLocked(const std::string &path, int *err);

// How long a waiter sleeps, in milliseconds, before it looks again. `*loops` counts the sleeps so far.
uint32_t FileLockWaitStep(uint32_t *loops);

// fileLockMember.cc

LockEntry FileLockEntryOfNumber(const std::string &lockDir, uint32_t number);
// Whether a name is one that a contender's entries may have.
bool FileLockIsValidName(const std::string &name);
// What a name stands for, the name itself and not what a link leads to. Returns an error number, or 0.
int FileLockFileType(const std::string &path, mode_t *type);
// Writes the entry file and makes it the member file by one rename, so that nobody sees half a member. Closes
// the file. Returns an error number, or 0.
int FileLockCreateMember(int fd, const LockValues &myValues, const LockEntry &entry);
// Opens a lock's file for reading. Waits until another program gives its lease on the file back, but for no
// writer of a pipe in the file's place. Returns -1 with errno set when it fails.
int FileLockOpen(const std::string &path);
// Reads a member file. One that can't be understood is deleted and counts as missing. Returns an error
// number, or 0.
int FileLockMemberValues(const std::string &lockDir, const std::string &fileName, LockValues *member);

// fileLockMachineID.cc

// This machine's identity, borrowed for ever.
const char *FileLockGetMachineID();
bool FileLockMachineIDMatch(const char *hostMachineID, const char *secondMachineID);

#endif
