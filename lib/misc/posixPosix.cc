#include "posixPosix.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "hashTable.h"
#include "owned.h"
#include "panicUser.h"
#include "util_misc.h"

namespace {

// The longest path and its NUL.
constexpr size_t kPathSize = 4096;
constexpr uint32_t kEnvironmentBuckets = 128;

// The two helpers that follow are the seam: every text to the system passes the first, every text from it
// the second.

// Makes a call with a text. The call comes as a pointer because it may be given null, which its declaration
// denies.
template <typename Result, typename... Parameters, typename... Arguments>
Result WithText(Result (*call)(const char *, Parameters...), const char *text, Arguments... arguments) {
  return call(text, arguments...);
}

// A new string (free).
char *FromSystem(const char *bytes) {
  return Util_SafeStrdup(bytes);
}

// Makes a call with two texts.
int WithTwoTexts(int (*call)(const char *, const char *), const char *first, const char *second) {
  return call(first, second);
}

int OpenWithMode(const char *path, int flags, mode_t mode) {
  int (*const call)(const char *, int, ...) = open;
  return call(path, flags, mode);
}

int SpawnAt(const char *path, pid_t *child, const posix_spawn_file_actions_t *actions,
            const char *const *arguments) {
  int (*const call)(pid_t *, const char *, const posix_spawn_file_actions_t *, const posix_spawnattr_t *,
                    char *const *, char *const *) = posix_spawn;
  return call(child, path, actions, nullptr, const_cast<char *const *>(arguments), environ);
}

// What a variable's value was when it was last asked for, and what it was before that value came.
struct EnvironmentValue {
  std::atomic<char *> current;
  std::atomic<char *> retired;
};

// The values handed out so far, by name. Made at the first question and kept until the process ends, so that
// what was handed out stays readable.
HashTable *volatile environmentValues = nullptr;

HashTable *EnvironmentTable() {
  return HashTable_AllocOnce(&environmentValues, kEnvironmentBuckets,
                             HASH_STRING_KEY | HASH_FLAG_ATOMIC | HASH_FLAG_COPYKEY, nullptr);
}

// Puts a value under a name that has none. Returns false, with the value still the caller's, when another
// thread was first.
bool EnvironmentInsert(HashTable *table, const char *name, char *value) {
  auto entry = std::make_unique<EnvironmentValue>();
  entry->current = value;
  if (!HashTable_Insert(table, name, entry.get())) {
    return false;
  }
  // The table has it from here on.
  static_cast<void>(entry.release());  // NOLINT(bugprone-unused-return-value)
  return true;
}

}  // namespace

int Posix_Open(const char *path, int flags, ...) {
  mode_t mode = 0;
  if ((flags & O_CREAT) != 0) {
    va_list args;
    va_start(args, flags);
    mode = va_arg(args, mode_t);
    va_end(args);
  }
  return WithText(OpenWithMode, path, flags, mode);
}

int Posix_Stat(const char *path, struct stat *data) {
  return WithText(stat, path, data);
}

int Posix_Lstat(const char *path, struct stat *data) {
  return WithText(lstat, path, data);
}

int Posix_Unlink(const char *path) {
  return WithText(unlink, path);
}

int Posix_Rmdir(const char *path) {
  return WithText(rmdir, path);
}

int Posix_Mkdir(const char *path, mode_t mode) {
  return WithText(mkdir, path, mode);
}

int Posix_Chmod(const char *path, mode_t mode) {
  return WithText(chmod, path, mode);
}

int Posix_Access(const char *path, int mode) {
  return WithText(access, path, mode);
}

int Posix_Rename(const char *from, const char *to) {
  return WithTwoTexts(rename, from, to);
}

int Posix_Symlink(const char *target, const char *linkPath) {
  return WithTwoTexts(symlink, target, linkPath);
}

int Posix_Link(const char *target, const char *linkPath) {
  return WithTwoTexts(link, target, linkPath);
}

char *Posix_ReadLink(const char *path) {
  char target[kPathSize];
  const ssize_t length = WithText(readlink, path, target, sizeof target - 1);
  if (length < 0) {
    return nullptr;
  }
  target[length] = '\0';
  return FromSystem(target);
}

char *Posix_RealPath(const char *path) {
  char resolved[kPathSize];
  if (WithText(realpath, path, resolved) == nullptr) {
    return nullptr;
  }
  return FromSystem(resolved);
}

DIR *Posix_OpenDir(const char *path) {
  // opendir itself would read through a null path.
  if (path == nullptr) {
    errno = EFAULT;
    return nullptr;
  }
  return WithText(opendir, path);
}

FILE *Posix_Fopen(const char *path, const char *mode) {
  ASSERT(mode != nullptr);
  return WithText(fopen, path, mode);
}

FILE *Posix_Popen(const char *command, const char *mode) {
  ASSERT(mode != nullptr);
  return WithText(popen, command, mode);
}

int Posix_System(const char *command) {
  return WithText(system, command);
}

int Posix_Execl(const char *path, const char *argument, ...) {
  std::vector<char *> arguments;
  va_list args;
  va_start(args, argument);
  for (const char *next = argument; next != nullptr; next = va_arg(args, const char *)) {
    arguments.push_back(const_cast<char *>(next));
  }
  va_end(args);
  arguments.push_back(nullptr);
  return WithText(execv, path, arguments.data());
}

int Posix_Spawn(pid_t *child, const char *path, const posix_spawn_file_actions_t *actions,
                const char *const *arguments) {
  return WithText(SpawnAt, path, child, actions, arguments);
}

const char *Posix_Getenv(const char *name) {
  const char *bytes = WithText(getenv, name);
  if (bytes == nullptr) {
    return nullptr;
  }
  OwnedString value(FromSystem(bytes));
  HashTable *table = EnvironmentTable();
  for (;;) {
    void *found = nullptr;
    if (!HashTable_Lookup(table, name, &found)) {
      if (EnvironmentInsert(table, name, value.get())) {
        return value.release();
      }
      continue;
    }
    auto *entry = static_cast<EnvironmentValue *>(found);
    char *current = entry->current;
    if (strcmp(current, value.get()) == 0) {
      return current;
    }
    if (entry->current.compare_exchange_strong(current, value.get())) {
      free(entry->retired.exchange(current));
      return value.release();
    }
  }
}
