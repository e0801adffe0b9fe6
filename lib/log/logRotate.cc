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

struct LogSeries {
  int64_t count;
  int lowest;
  int highest;
};

// A pattern takes "%" for what begins a conversion, but file names may have it.
std::string LogQuoted(const std::string &text) {
  std::string quoted;
  for (const char c : text) {
    quoted.append(c == '%' ? 2 : 1, c);
  }
  return quoted;
}

// Finds the numbered files of `name`, whose base is in `directory`. False where that can't be listed.
bool LogFindSeries(const char *directory, const LogName &name, LogSeries *series) {
  char **entries = nullptr;
  const int count = File_ListDirectory(directory, &entries);
  if (count == -1) {
    return false;
  }
  const OwnedString pattern(Str_SafeAsprintf(nullptr, "%s-%%d%s%%n", LogQuoted(name.base).c_str(),
                                             LogQuoted(name.extension).c_str()));
  *series = {};
  for (int i = 0; i < count; i++) {
    int number = 0;
    int length = -1;
    if (sscanf(entries[i], pattern.get(), &number, &length) != 1 ||
        length != static_cast<int>(strlen(entries[i]))) {
      continue;
    }
    series->lowest = series->count == 0 ? number : std::min(series->lowest, number);
    series->highest = series->count == 0 ? number : std::max(series->highest, number);
    series->count++;
  }
  File_FreeNames(entries, count);
  return true;
}

// --- A fixed series: 0 is the youngest

void LogRename(const std::string &from, const std::string &to) {
  if (Posix_Rename(from.c_str(), to.c_str()) == -1 && errno != ENOENT) {
    Log("LOG failed to rename %s -> %s: %s\n", from.c_str(), to.c_str(), Err_ErrString());
  }
}

// The highest place that a file of the series moves to. Settings may allow for so many that a look at each of
// them would stop the work.
int64_t LogHighestPlace(const LogName &name, int32_t keepOld) {
  const int64_t last = keepOld - 1;
  const size_t base = name.base.rfind('/') + 1;
  const std::string directory = base == 0 ? "." : name.base.substr(0, base);
  LogSeries series{};
  if (!LogFindSeries(directory.c_str(), {name.base.substr(base), name.extension}, &series)) {
    return last;
  }
  return std::min(last, int64_t{series.highest} + 1);
}

void LogRenumberAll(const std::string &fileName, int32_t keepOld) {
  const LogName name = LogSplitName(fileName);
  const std::string oldest = LogNumbered(name, keepOld - 1);
  if (Posix_Unlink(oldest.c_str()) == -1 && errno != ENOENT) {
    Log("LOG failed to remove %s: %s\n", oldest.c_str(), Err_ErrString());
  }
  for (int64_t number = LogHighestPlace(name, keepOld); number > 0; number--) {
    LogRename(LogNumbered(name, number - 1), LogNumbered(name, number));
  }
  LogRename(fileName, LogNumbered(name, 0));
}

// --- A growing series: the youngest has the highest number

constexpr char kFunction[] = "LogBackupByRenumber";

void LogAddToSeries(const std::string &fileName, const LogName &full, const LogSeries &series) {
  const std::string next = LogNumbered(full, int64_t{series.highest} + 1);
  if (Posix_Rename(fileName.c_str(), next.c_str()) == -1 && errno != ENOENT) {
    Log("%s: failed to rename %s -> %s failed: %s\n", kFunction, fileName.c_str(), next.c_str(),
        Err_ErrString());
  }
}

void LogShortenSeries(const LogName &full, const LogSeries &series, int32_t keepOld) {
  for (int64_t number = series.lowest; number <= series.count + series.lowest - keepOld; number++) {
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
  LogSeries series{};
  if (!LogFindSeries(directory.get(), {base.get(), name.extension}, &series)) {
    Log("%s: failed to read the directory '%s'.\n", kFunction, directory.get());
    return;
  }
  const LogName full = {std::string(directory.get()) + "/" + base.get(), name.extension};
  LogAddToSeries(fileName, full, series);
  LogShortenSeries(full, series, keepOld);
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
