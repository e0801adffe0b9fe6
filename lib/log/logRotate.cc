// Old log files and their numbers.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "config.h"
#include "err.h"
#include "file.h"
#include "logInt.h"
#include "owned.h"
#include "posixPosix.h"
#include "str.h"

namespace {

struct LogName {
  std::string base;
  std::string extension;  // with its dot; may be empty
};

LogName LogSplitName(const std::string &fileName) {
  const size_t dot = fileName.rfind('.');
  const size_t slash = fileName.rfind('/');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) {
    return {fileName, ""};
  }
  return {fileName.substr(0, dot), fileName.substr(dot)};
}

std::string LogNumbered(const LogName &name, int64_t number) {
  return name.base + "-" + std::to_string(number) + name.extension;
}

// --- Which numbers there are

// A pattern takes "%" for what begins a conversion, but file names may have it.
std::string LogQuoted(const std::string &text) {
  std::string quoted;
  for (const char c : text) {
    quoted.append(c == '%' ? 2 : 1, c);
  }
  return quoted;
}

// Finds the numbers, in their order, of the files of `name`, whose base is in `directory`. False with errno
// where that can't be listed.
bool LogFindNumbers(const char *directory, const LogName &name, std::vector<int> *numbers) {
  char **entries = nullptr;
  const int count = File_ListDirectory(directory, &entries);
  if (count == -1) {
    return false;
  }
  const OwnedString pattern(Str_SafeAsprintf(nullptr, "%s-%%d%s%%n", LogQuoted(name.base).c_str(),
                                             LogQuoted(name.extension).c_str()));
  for (int i = 0; i < count; i++) {
    int number = 0;
    int length = -1;
    if (sscanf(entries[i], pattern.get(), &number, &length) == 1 &&
        length == static_cast<int>(strlen(entries[i]))) {
      numbers->push_back(number);
    }
  }
  File_FreeNames(entries, count);
  std::sort(numbers->begin(), numbers->end());
  return true;
}

// --- A fixed series: 0 is the youngest

void LogRename(const std::string &from, const std::string &to) {
  if (Posix_Rename(from.c_str(), to.c_str()) == -1 && errno != ENOENT) {
    Log("LOG failed to rename %s -> %s: %s\n", from.c_str(), to.c_str(), Err_ErrString());
  }
}

void LogMoveUp(const LogName &name, int64_t number) {
  LogRename(LogNumbered(name, number), LogNumbered(name, number + 1));
}

// Settings may allow for so many that a look at each number would stop the work, so only those are moved
// that are there. None are where there is no directory.
void LogMoveAllUp(const LogName &name, int32_t keepOld) {
  const size_t base = name.base.rfind('/') + 1;
  const std::string directory = base == 0 ? "." : name.base.substr(0, base);
  std::vector<int> numbers;
  if (LogFindNumbers(directory.c_str(), {name.base.substr(base), name.extension}, &numbers)) {
    std::for_each(numbers.rbegin(), numbers.rend(), [&name, keepOld](int number) {
      if (number >= 0 && number < keepOld - 1) {
        LogMoveUp(name, number);
      }
    });
    return;
  }
  if (errno == ENOENT) {
    return;
  }
  for (int64_t number = keepOld - 2; number >= 0; number--) {
    LogMoveUp(name, number);
  }
}

void LogRenumberAll(const std::string &fileName, int32_t keepOld) {
  const LogName name = LogSplitName(fileName);
  const std::string oldest = LogNumbered(name, keepOld - 1);
  if (Posix_Unlink(oldest.c_str()) == -1 && errno != ENOENT) {
    Log("LOG failed to remove %s: %s\n", oldest.c_str(), Err_ErrString());
  }
  LogMoveAllUp(name, keepOld);
  LogRename(fileName, LogNumbered(name, 0));
}

// --- A growing series: the youngest has the highest number

constexpr char kFunction[] = "LogBackupByRenumber";

void LogAddToSeries(const std::string &fileName, const LogName &full, const std::vector<int> &numbers) {
  const int64_t highest = numbers.empty() ? 0 : numbers.back();
  const std::string next = LogNumbered(full, highest + 1);
  if (Posix_Rename(fileName.c_str(), next.c_str()) == -1 && errno != ENOENT) {
    Log("%s: failed to rename %s -> %s failed: %s\n", kFunction, fileName.c_str(), next.c_str(),
        Err_ErrString());
  }
}

void LogShortenSeries(const LogName &full, const std::vector<int> &numbers, int32_t keepOld) {
  const auto count = static_cast<int64_t>(numbers.size());
  if (keepOld > count) {
    return;
  }
  const int64_t lowest = numbers.front();
  for (int64_t number = lowest; number <= count + lowest - keepOld; number++) {
    const std::string old = LogNumbered(full, number);
    if (Posix_Unlink(old.c_str()) == -1) {
      Log("%s: failed to remove %s: %s\n", kFunction, old.c_str(), Err_ErrString());
    }
  }
}

void LogNumberOne(const std::string &fileName, int32_t keepOld) {
  const LogName name = LogSplitName(fileName);
  const OwnedString path(File_FullPath(name.base.c_str()));
  if (path == nullptr) {
    Log("%s: failed to get full path for '%s'.\n", kFunction, name.base.c_str());
    return;
  }
  char *parts[2] = {};
  File_GetPathName(path.get(), &parts[0], &parts[1]);
  const OwnedString directory(parts[0]);
  const OwnedString base(parts[1]);
  if (directory.get()[0] == '\0') {
    Log("%s: failed to get base dir for path '%s'.\n", kFunction, path.get());
    return;
  }
  std::vector<int> numbers;
  if (!LogFindNumbers(directory.get(), {base.get(), name.extension}, &numbers)) {
    Log("%s: failed to read the directory '%s'.\n", kFunction, directory.get());
    return;
  }
  const LogName full = {std::string(directory.get()) + "/" + base.get(), name.extension};
  LogAddToSeries(fileName, full, numbers);
  LogShortenSeries(full, numbers, keepOld);
}

}  // namespace

void LogBackupByRenumber(const char *fileName, int32_t keepOld, bool fastRotation) {
  if (fastRotation) {
    LogNumberOne(fileName, keepOld);
  } else {
    LogRenumberAll(fileName, keepOld);
  }
}

void LogRotate(LogState *state) {
  if (LogIsDevice(state->fd)) {
    state->fileSize = 0;
    return;
  }
  state->rotating = true;
  if (state->keepOld > 0) {
    LogBackupByRenumber(state->fileName, state->keepOld, state->fastRotation);
  }
  const int fd = LogOpen(state->fileName);
  if (fd == -1) {
    LogAppendSwitchFailed(state->fileName);
    close(state->fd);
    state->fd = -1;
  } else {
    state->fileSize = 0;
    LogReplaceFd(state, fd);
    state->bannerWritten = false;
  }
  state->rotating = false;
}

void Log_BackupOldFiles(const char *fileName) {
  const int32_t keepOld = Config_GetLong(3, "log.keepold");
  if (keepOld >= 1) {
    LogBackupByRenumber(fileName, keepOld, Config_GetBool(false, "log.fastRotation"));
  }
}
