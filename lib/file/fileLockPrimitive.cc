#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <optional>
#include <string_view>
#include <vector>

#include "err.h"
#include "file.h"
#include "fileLock.h"
#include "fileLockInt.h"
#include "log.h"
#include "owned.h"
#include "panicUser.h"
#include "posixPosix.h"
#include "random.h"
#include "str.h"
#include "util_misc.h"

namespace {

constexpr mode_t kDirectoryMode = 0777;
constexpr mode_t kMemberMode = 0644;
constexpr uint32_t kScanInterval = 200;  // milliseconds, as are those that follow
constexpr uint32_t kMaxChoosingTime = 8000;
constexpr uint32_t kMaxSleep = 900;

// The token of a reader's lock where nothing can be written.
char implicitReadToken[] = "implicit";

// Works on a member during a scan. Returns an error number to end the scan, or 0.
using ScanFunction = int (*)(const std::string &lockDir, const std::string &fileName,
                             const LockValues &member, LockValues *myValues);

// What the threads of this process share, for its whole life: the generator of numbers, made by the first
// lock, and the mask of new files. The guard is over both. A generator's torn step would leave its table, and
// of two threads that set the mask to 0 one would keep the other's.
struct {
  std::mutex guard;
  RandomQuickState *generator = nullptr;
} shared;

// A fork waits for the guard, so that the child gets neither one that nobody gives back nor a mask of 0.
const int forksWait =
    pthread_atfork([] { shared.guard.lock(); }, [] { shared.guard.unlock(); }, [] { shared.guard.unlock(); });

int Unlink(const std::string &path) {
  return Posix_Unlink(path.c_str()) == -1 ? errno : 0;
}

int RemoveDirectory(const std::string &path) {
  return Posix_Rmdir(path.c_str()) == -1 ? errno : 0;
}

// Makes a directory that everyone can use. Returns an error number, or 0.
int MakeDirectory(const std::string &path) {
  ASSERT_MEM_ALLOC(forksWait == 0);
  const std::lock_guard<std::mutex> locked(shared.guard);
  const mode_t mask = umask(0);
  const int error = Posix_Mkdir(path.c_str(), kDirectoryMode) == -1 ? errno : 0;
  umask(mask);
  return error;
}

int RemoveLockingFile(const std::string &lockDir, const std::string &fileName) {
  const std::string path = lockDir + '/' + fileName;
  const int error = Unlink(path);
  if (error == 0 || error == ENOENT) {
    return 0;
  }
  Warning("FILE: %s of '%s' failed: %s\n", __func__, path.c_str(), Err_Errno2String(error));
  return error;
}

std::string LocationChecksum(const std::string &lockDir) {
  uint32_t hash = 5381;
  for (const char byte : lockDir) {
    hash = hash * 33 + static_cast<uint32_t>(static_cast<signed char>(byte));
  }
  char text[16];
  Str_Snprintf(text, sizeof text, "%u", hash);
  return text;
}

// Choosing a number

uint32_t ByteSum(const std::string &text) {
  uint32_t sum = 0;
  for (const char byte : text) {
    sum += static_cast<uint32_t>(static_cast<signed char>(byte));
  }
  return sum;
}

uint32_t ChooseNumber(const LockValues &myValues) {
  const std::lock_guard<std::mutex> locked(shared.guard);
  if (shared.generator == nullptr) {
    shared.generator = Random_QuickSeed(ByteSum(myValues.machineID) + ByteSum(myValues.executionID));
    ASSERT_MEM_ALLOC(shared.generator != nullptr);
  }
  return (Random_Quick(shared.generator) >> 8) & 0xffff;
}

// Makes sure that the lock directory is there. Returns an error number, or 0.
int CreateLockDirectory(const std::string &lockDir) {
  for (;;) {
    mode_t type = 0;
    int error = FileLockFileType(lockDir, &type);
    if (error == ENOENT) {
      error = MakeDirectory(lockDir);
      if (error == 0 || error == EEXIST) {
        return 0;
      }
      Warning("FILE: %s creation failure on '%s': %s\n", "CreateEntryDirectory", lockDir.c_str(),
              Err_Errno2String(error));
      return error;
    }
    if (error != 0) {
      Warning("FILE: %s stat failure on '%s': %s\n", "CreateEntryDirectory", lockDir.c_str(),
              Err_Errno2String(error));
      return error;
    }
    if (type == S_IFDIR) {
      return 0;
    }
    if (type == S_IFREG) {
      Log("FILE: %s: '%s' exists; an old style lock file?\n", "CreateEntryDirectory", lockDir.c_str());
      return EAGAIN;
    }
    error = Unlink(lockDir);
    // Another contender may have deleted it, and made the directory.
    if (error != 0 && error != ENOENT && error != EISDIR) {
      Warning("FILE: %s: '%s' exists and is not a directory.\n", "CreateEntryDirectory", lockDir.c_str());
      return ENOTDIR;
    }
  }
}

// Begins the choosing: takes a number that nobody has, by making its entry directory. Returns an error
// number, or 0.
int CreateEntryDirectory(const LockValues &myValues, const std::string &lockDir, LockEntry *entry) {
  for (;;) {
    const int lockDirError = CreateLockDirectory(lockDir);
    if (lockDirError != 0) {
      return lockDirError;
    }
    *entry = FileLockEntryOfNumber(lockDir, ChooseNumber(myValues));
    const int entryError = MakeDirectory(entry->directoryPath);
    if (entryError == EEXIST || entryError == ENOENT) {
      continue;
    }
    if (entryError != 0) {
      Warning("FILE: %s creation failure on '%s': %s\n", __func__, entry->directoryPath.c_str(),
              Err_Errno2String(entryError));
      return entryError;
    }
    mode_t type = 0;
    const int memberError = FileLockFileType(entry->memberPath, &type);
    if (memberError == ENOENT) {
      return 0;
    }
    if (memberError != 0) {
      Log("FILE: %s stat failure on '%s': %s\n", __func__, entry->memberPath.c_str(),
          Err_Errno2String(memberError));
    }
    RemoveDirectory(entry->directoryPath);
  }
}

// Scanning

std::optional<std::vector<std::string>> ListLockDirectory(const std::string &lockDir) {
  char **names = nullptr;
  const int count = File_ListDirectory(lockDir.c_str(), &names);
  if (count == -1) {
    return std::nullopt;
  }
  std::vector<std::string> list(names, names + count);
  File_FreeNames(names, count);
  return list;
}

void MarkActiveLock(const std::string &dirName, std::list<ActiveLock> *lockList) {
  const auto known = std::find_if(lockList->begin(), lockList->end(),
                                  [&dirName](const ActiveLock &lock) { return lock.dirName == dirName; });
  if (known == lockList->end()) {
    lockList->push_front({0, true, dirName});
  } else {
    known->marked = true;
  }
}

// Sorts out the names that are no members: those that nobody may use are removed, and the contenders that are
// choosing go, with `cleanUp`, to the lock list.
void TakeOtherNames(const std::string &lockDir, bool cleanUp, std::vector<std::string> *names,
                    LockValues *myValues) {
  std::erase_if(*names, [&](const std::string &name) {
    if (!FileLockIsValidName(name)) {
      Log("FILE: %s discarding %s from %s'; invalid file name.\n", "ScanDirectory", name.c_str(),
          lockDir.c_str());
      RemoveLockingFile(lockDir, name);
      return true;
    }
    if (name[0] != 'D') {
      return false;
    }
    if (cleanUp) {
      MarkActiveLock(name, &myValues->lockList);
    }
    return true;
  });
}

// Why a member doesn't count, or null.
const char *DiscardReason(const LockValues &member, const LockValues &myValues,
                          const std::string &locationChecksum) {
  if (!FileLockMachineIDMatch(myValues.machineID.c_str(), member.machineID.c_str())) {
    return nullptr;
  }
  if (!FileLockValidOwner(member.executionID.c_str(), member.payload.c_str())) {
    return "invalid executionID.";
  }
  if (member.executionID == myValues.executionID && !member.locationChecksum.empty() &&
      member.locationChecksum != locationChecksum) {
    return "lock file has been moved.";
  }
  return nullptr;
}

int ScanMember(const std::string &lockDir, const std::string &name, ScanFunction func,
               const std::string &locationChecksum, LockValues *myValues) {
  if (name == myValues->memberName) {
    return func(lockDir, name, *myValues, myValues);
  }
  LockValues member = {};
  const int error = FileLockMemberValues(lockDir, name, &member);
  if (error != 0) {
    return error == ENOENT ? 0 : error;
  }
  const char *reason = DiscardReason(member, *myValues, locationChecksum);
  if (reason != nullptr) {
    Log("FILE: %s discarding %s from %s': %s\n", "ScanDirectory", name.c_str(), lockDir.c_str(), reason);
    return RemoveLockingFile(lockDir, name);
  }
  return func(lockDir, name, member, myValues);
}

int ScanMembers(const std::string &lockDir, const std::vector<std::string> &names, ScanFunction func,
                LockValues *myValues) {
  const std::string locationChecksum = LocationChecksum(lockDir);
  for (const std::string &name : names) {
    if (name[0] == 'E') {
      continue;
    }
    const int error = ScanMember(lockDir, name, func, locationChecksum, myValues);
    if (error != 0) {
      return error;
    }
  }
  return 0;
}

// Removes all that a contender left which died while choosing. Returns an error number when something stays
// that looks like one that is choosing, or 0.
int RemoveActiveLock(const std::string &lockDir, const std::string &dirName) {
  Log("FILE: %s discarding %s data from '%s'.\n", "Scanner", dirName.c_str(), lockDir.c_str());
  const std::string directory = lockDir + '/' + dirName;
  std::string file = directory;
  for (const char kind : {'M', 'E'}) {
    file[directory.rfind('D')] = kind;
    Unlink(file);
  }
  int error = RemoveDirectory(directory);
  if (error == ENOTDIR) {
    error = Unlink(directory);
  }
  return error == ENOENT ? 0 : error;
}

// Takes those off the list that are done or were choosing for too long, and makes the others older. Returns
// an error number, or 0.
int AgeActiveLocks(const std::string &lockDir, std::list<ActiveLock> *lockList) {
  int error = 0;
  lockList->remove_if([&lockDir, &error](ActiveLock &lock) {
    if (!lock.marked) {
      return true;
    }
    if (lock.age > kMaxChoosingTime) {
      const int removalError = RemoveActiveLock(lockDir, lock.dirName);
      error = removalError != 0 ? removalError : error;
      return true;
    }
    lock.age += kScanInterval;
    lock.marked = false;
    return false;
  });
  return error;
}

// Gives every member to `func`, with `cleanUp` only when nobody is choosing. Returns an error number, or 0.
int ScanDirectory(const std::string &lockDir, ScanFunction func, LockValues *myValues, bool cleanUp) {
  myValues->lockList.clear();
  for (;;) {
    auto names = ListLockDirectory(lockDir);
    if (!names) {
      Log("FILE: %s: Could not read the directory '%s': %d\n", __func__, lockDir.c_str(), errno);
      myValues->lockList.clear();
      return EDOM;
    }
    TakeOtherNames(lockDir, cleanUp, &*names, myValues);
    if (myValues->lockList.empty()) {
      return ScanMembers(lockDir, *names, func, myValues);
    }
    const int error = AgeActiveLocks(lockDir, &myValues->lockList);
    if (error != 0) {
      return error;
    }
    FileSleeper(kScanInterval);
  }
}

int NumberScan(const std::string &, const std::string &, const LockValues &member, LockValues *myValues) {
  myValues->lamportNumber = std::max(myValues->lamportNumber, member.lamportNumber);
  return 0;
}

int CountScan(const std::string &, const std::string &, const LockValues &, LockValues *myValues) {
  myValues->lamportNumber++;
  return 0;
}

// Waiting

// Sleeps for the next step of a wait.
void SleepAStep(uint32_t *loops, LockValues *myValues) {
  uint32_t rest = FileLockWaitStep(loops);
  myValues->waitTime += rest;
  while (rest > 0) {
    const uint32_t piece = std::min(rest, kMaxSleep);
    FileSleeper(piece);
    rest -= piece;
  }
}

bool GoesFirst(const LockValues &member, const std::string &memberName, const LockValues &myValues) {
  return member.lamportNumber < myValues.lamportNumber ||
         (member.lamportNumber == myValues.lamportNumber && memberName < myValues.memberName);
}

// Whether the file now is another's, whose number came up again: one that goes later.
bool IsLaterMember(const std::string &lockDir, const std::string &fileName, const LockValues &myValues) {
  LockValues member = {};
  return FileLockMemberValues(lockDir, fileName, &member) == 0 && !GoesFirst(member, fileName, myValues);
}

void LogTimeout(const LockValues &member, const std::string &memberPath, bool local) {
  if (local) {
    Log("FILE: %s timeout on '%s' due to a local process (%s)\n", "WaitForPossession", memberPath.c_str(),
        member.executionID.c_str());
  } else {
    Log("FILE: %s timeout on '%s' due to another machine (%s)\n", "WaitForPossession", memberPath.c_str(),
        member.machineID.c_str());
  }
}

// Waits until a member that goes first is gone. Returns an error number, EAGAIN when the time is over, or 0.
int WaitForPossession(const std::string &lockDir, const std::string &fileName, const LockValues &member,
                      LockValues *myValues) {
  if (!GoesFirst(member, fileName, *myValues)) {
    return 0;
  }
  if (member.lockType == kSharedLock && myValues->lockType == kSharedLock) {
    return 0;
  }
  if (myValues->msecMaxWaitTime == 0) {
    return EAGAIN;
  }
  const bool local = FileLockMachineIDMatch(myValues->machineID.c_str(), member.machineID.c_str());
  const std::string path = lockDir + '/' + fileName;
  uint32_t loops = 0;
  while (myValues->msecMaxWaitTime == FILELOCK_INFINITE_WAIT ||
         myValues->waitTime <= myValues->msecMaxWaitTime) {
    SleepAStep(&loops, myValues);
    mode_t type = 0;
    const int error = FileLockFileType(path, &type);
    if (error != 0) {
      return error == ENOENT ? 0 : error;
    }
    if (IsLaterMember(lockDir, fileName, *myValues)) {
      return 0;
    }
    if (local && !FileLockValidOwner(member.executionID.c_str(), member.payload.c_str())) {
      Warning("FILE: %s discarding file '%s'; invalid executionID.\n", __func__, path.c_str());
      return RemoveLockingFile(lockDir, fileName);
    }
  }
  LogTimeout(member, path, local);
  return EAGAIN;
}

// Locking

LockValues MyValues(const std::string &lockDir) {
  LockValues values = {};
  values.machineID = FileLockGetMachineID();
  values.executionID = FileLockGetExecutionID();
  values.locationChecksum = LocationChecksum(lockDir);
  return values;
}

// Makes the entry file. What another one left in its name is nobody's, and no part of the member. Returns -1
// with errno set when it fails.
int OpenEntryFile(const std::string &path) {
  constexpr int kFlags = O_CREAT | O_EXCL | O_WRONLY;
  const int fd = Posix_Open(path.c_str(), kFlags, kMemberMode);
  if (fd != -1 || errno != EEXIST) {
    return fd;
  }
  Unlink(path);
  return Posix_Open(path.c_str(), kFlags, kMemberMode);
}

// Takes a ticket behind all that are there, with the entry directory standing. Returns an error number, or 0,
// with the member file in its place.
int TakeTicket(const std::string &lockDir, const LockEntry &entry, LockValues *myValues) {
  const int fd = OpenEntryFile(entry.filePath);
  if (fd == -1) {
    return errno;
  }
  const int scanError = ScanDirectory(lockDir, NumberScan, myValues, false);
  if (scanError != 0) {
    close(fd);
    Unlink(entry.filePath);
    return scanError;
  }
  myValues->lamportNumber++;
  myValues->memberName = entry.memberName;
  const int error = FileLockCreateMember(fd, *myValues, entry);
  if (error != 0) {
    Unlink(entry.filePath);
    Unlink(entry.memberPath);
  }
  return error;
}

// Stands in the queue until the lock is ours. Returns an error number, or 0.
int WaitForTurn(const std::string &lockDir, const LockEntry &entry, LockValues *myValues) {
  int error = ScanDirectory(lockDir, WaitForPossession, myValues, true);
  if (error == 0) {
    // Who chose for too long was taken for dead, and lost its place.
    mode_t type = 0;
    error = FileLockFileType(entry.memberPath, &type);
  }
  if (error != 0) {
    Unlink(entry.memberPath);
  }
  return error;
}

}  // namespace

void *FileLockIntrinsic(const std::string &path, bool exclusive, uint32_t msecMaxWaitTime,
                        const std::string &payload, int *err) {
  const std::string lockDir = path + kLockSuffix;
  LockValues myValues = MyValues(lockDir);
  myValues.payload = payload;
  myValues.lockType = exclusive ? kExclusiveLock : kSharedLock;
  myValues.msecMaxWaitTime = msecMaxWaitTime;

  LockEntry entry;
  *err = CreateEntryDirectory(myValues, lockDir, &entry);
  if (!exclusive && (*err == EACCES || *err == EROFS)) {
    Warning("FILE: %s implicit %s lock succeeded on '%s'.\n", __func__, kSharedLock, path.c_str());
    *err = 0;
    return implicitReadToken;
  }
  if (*err == 0) {
    *err = TakeTicket(lockDir, entry, &myValues);
    RemoveDirectory(entry.directoryPath);
    if (*err == 0) {
      *err = WaitForTurn(lockDir, entry, &myValues);
    }
    if (*err == 0) {
      return Util_SafeStrdup(entry.memberPath.c_str());
    }
  }
  RemoveDirectory(lockDir);
  *err = *err == EAGAIN ? 0 : *err;
  return nullptr;
}

int FileUnlockIntrinsic(void *token) {
  if (token == implicitReadToken) {
    return 0;
  }
  const OwnedString memberPath(static_cast<char *>(token));
  const int error = Unlink(memberPath.get());
  if (error != 0) {
    Log("FILE: %s failed for '%s': %s\n", __func__, memberPath.get(), Err_Errno2String(error));
  }
  RemoveDirectory(std::string(memberPath.get(), strrchr(memberPath.get(), '/')));
  return error;
}

int FileLockHackOST(const std::string &path) {
  const std::string lockDir = path + kLockSuffix;
  LockValues myValues = MyValues(lockDir);
  LockEntry entry;
  int error = CreateEntryDirectory(myValues, lockDir, &entry);
  if (error == 0) {
    error = ScanDirectory(lockDir, CountScan, &myValues, false);
    if (error == 0 && myValues.lamportNumber == 1) {
      error = Unlink(path);
    }
    RemoveDirectory(entry.directoryPath);
  }
  RemoveDirectory(lockDir);
  if (error != 0) {
    Warning("FILE: %s clean-up failure for '%s': %s\n", __func__, path.c_str(), Err_Errno2String(error));
  }
  return error;
}

bool FileLockIsLocked(const std::string &path, int *err) {
  const auto names = ListLockDirectory(path + kLockSuffix);
  *err = names ? 0 : errno;
  return names &&
         std::any_of(names->begin(), names->end(), [](const std::string &name) { return name[0] == 'M'; });
}

uint32_t FileLockWaitStep(uint32_t *loops) {
  if (*loops <= 20) {
    ++*loops;
    return 100;
  }
  if (*loops < 40) {
    return 100 * (*loops)++ - 1900;
  }
  return 2000;
}
