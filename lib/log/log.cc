#include "log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string_view>

#include "err.h"
#include "msg.h"
#include "owned.h"
#include "panicUser.h"
#include "posixPosix.h"
#include "productState.h"
#include "str.h"
#include "util.h"
#include "util_misc.h"

namespace {

constexpr char kEncoding[] = "UTF-8";
// The thread's name in a program with one thread.
constexpr char kThreadName[] = "app";

constexpr size_t kTextSize = 4096;
constexpr size_t kRingSize = 32768;

// The log of the process: filled by Log_Init, and still usable after Log_Exit and while the process's exit
// handlers run, so it owns by plain pointers that no destructor clears.
struct LogState {
  int fd = -1;
  bool quiet;
  char *ring;  // null until the first text
  size_t ringWrite;
  size_t ringRead;
  size_t ringCount;
  bool bannerWritten;
  char *fileName;
  char *suffix;
  bool initialized;
  bool enable;
  bool keepAlways;
  bool fileIsTemp;
  bool partialLine;
  time_t stampSecond;  // the second that `stamp` shows
  char stamp[32];
};
LogState logState;

class ErrnoKeeper {
 public:
  ErrnoKeeper() = default;
  ~ErrnoKeeper() { errno = saved_; }
  ErrnoKeeper(const ErrnoKeeper &) = delete;
  ErrnoKeeper &operator=(const ErrnoKeeper &) = delete;

 private:
  int saved_ = errno;
};

struct LogPrefix {
  char text[95];
  size_t length;
};

// Formatting the time of day costs as much as writing the line, so a second's text is made once.
const char *LogStamp(LogState *state, time_t second) {
  if (state->stamp[0] == '\0' || state->stampSecond != second) {
    struct tm local {};
    localtime_r(&second, &local);
    state->stamp[strftime(state->stamp, sizeof state->stamp, "%b %d %H:%M:%S", &local)] = '\0';
    state->stampSecond = second;
  }
  return state->stamp;
}

LogPrefix LogMakePrefix(LogState *state) {
  LogPrefix prefix{};
  if (!state->initialized) {
    Str_Snprintf(prefix.text, sizeof prefix.text, "LOG NOT INITIALIZED | ");
  } else {
    struct timeval now {};
    gettimeofday(&now, nullptr);
    Str_Snprintf(prefix.text, sizeof prefix.text, "%s.%03d: %s| ", LogStamp(state, now.tv_sec),
                 static_cast<int>(now.tv_usec / 1000), kThreadName);
  }
  prefix.length = strlen(prefix.text);
  return prefix;
}

void LogRingDrop(LogState *state, size_t size) {
  state->ringRead = (state->ringRead + size) % kRingSize;
  state->ringCount -= size;
}

void LogRingDropOldestLine(LogState *state) {
  bool newline = false;
  while (!newline && state->ringCount > 0) {
    newline = state->ring[state->ringRead] == '\n';
    LogRingDrop(state, 1);
  }
}

void LogQueue(LogState *state, std::string_view piece) {
  ASSERT(piece.size() < kRingSize);
  if (state->ring == nullptr) {
    state->ring = static_cast<char *>(malloc(kRingSize));
    if (state->ring == nullptr) {
      return;
    }
  }
  while (piece.size() > kRingSize - state->ringCount) {
    LogRingDropOldestLine(state);
  }
  const size_t first = std::min(piece.size(), kRingSize - state->ringWrite);
  memcpy(state->ring + state->ringWrite, piece.data(), first);
  memcpy(state->ring, piece.data() + first, piece.size() - first);
  state->ringWrite = (state->ringWrite + piece.size()) % kRingSize;
  state->ringCount += piece.size();
}

// Logging never stops the work: what the file doesn't take is lost.
void LogWriteToFile(const LogState *state, const char *data, size_t size) {
  [[maybe_unused]] const ssize_t written = write(state->fd, data, size);
}

void LogDrain(LogState *state) {
  while (state->ringCount > 0) {
    const size_t size = std::min(state->ringCount, kRingSize - state->ringRead);
    LogWriteToFile(state, state->ring + state->ringRead, size);
    LogRingDrop(state, size);
  }
  // From the start again, so that the next line goes out in one piece.
  state->ringRead = 0;
  state->ringWrite = 0;
}

void LogWriteBanner(const LogState *state, const LogPrefix &prefix) {
  char text[1024];
  Str_Snprintf(text, sizeof text,
               "%sLog for %s pid=%d version=%s build=build-%05u option=%s\n"
               "%sThe process is %zu-bit.\n"
               "%sHost codepage=%s encoding=%s\n",
               prefix.text, ProductState_GetName(), getpid(), ProductState_GetVersion(),
               ProductState_GetBuildNumber(), "BETA", prefix.text, sizeof(void *) * 8, prefix.text, kEncoding,
               kEncoding);
  LogWriteToFile(state, text, strlen(text));
}

// Puts the lines of a text into the ring, each with the prefix, but for a line that a former text began.
void LogQueueLines(LogState *state, const LogPrefix &prefix, std::string_view text) {
  while (!text.empty()) {
    const size_t newline = text.find('\n');
    const size_t length = newline == std::string_view::npos ? text.size() : newline + 1;
    if (!state->partialLine) {
      LogQueue(state, {prefix.text, prefix.length});
    }
    LogQueue(state, text.substr(0, length));
    state->partialLine = newline == std::string_view::npos;
    text.remove_prefix(length);
  }
}

void LogWrite(LogState *state, std::string_view text) {
  const LogPrefix prefix = LogMakePrefix(state);
  LogQueueLines(state, prefix, text);
  if (!state->enable || state->fd == -1) {
    return;
  }
  if (!state->bannerWritten) {
    LogWriteBanner(state, prefix);
    state->bannerWritten = true;
  }
  LogDrain(state);
}

// Whether the open descriptor is the file that the path names, and no link led to it. False with a message.
bool LogIsPlainFile(int fd, const char *path) {
  struct stat opened {};
  if (fstat(fd, &opened) == -1) {
    Msg_Append(MSGID(log.openFstatFailed) "Cannot fstat the file %s: '%s'\n", path, Err_ErrString());
    return false;
  }
  struct stat named {};
  if (Posix_Lstat(path, &named) == -1) {
    Msg_Append(MSGID(log.openLstatFailed) "Cannot stat the file %s: '%s'\n", path, Err_ErrString());
    return false;
  }
  if (S_ISLNK(named.st_mode)) {
    Msg_Append(MSGID(log.openIsLink) "Log file '%s' is a symbolic link.\n", path);
    return false;
  }
  if (opened.st_dev != named.st_dev || opened.st_ino != named.st_ino) {
    Msg_Append(MSGID(log.openChanged) "Log file '%s' has changed.\n", path);
    return false;
  }
  return true;
}

// Opens a log file. Returns -1 with a message on failure.
int LogOpen(const char *path) {
  const int fd = Posix_Open(path, O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (fd == -1) {
    Msg_Append(MSGID(log.openFailed) "Cannot open or create the log file '%s': %s\n", path, Err_ErrString());
    return -1;
  }
  if (!LogIsPlainFile(fd, path)) {
    close(fd);
    return -1;
  }
  return fd;
}

// The log's name in the safe temporary directory, a new string (free). Without it the program can't run.
char *LogTempName(const LogState *state) {
  const OwnedString directory(Util_GetSafeTmpDir(true));
  if (directory == nullptr) {
    Panic("Cannot get temporary directory for log file.\n");
  }
  const OwnedString pattern(Str_SafeAsprintf(nullptr, "%s/%s%s$PID.log", directory.get(), state->suffix,
                                             state->suffix[0] == '\0' ? "" : "-"));
  char *name = Util_ExpandString(pattern.get());
  if (name == nullptr) {
    Msg_Reset(true);
    Panic("Cannot get log file name.\n");
  }
  return name;
}

// Starts logging to `fileName` or, when it is null, anew in the temporary file. False with messages.
bool LogSetFile(LogState *state, const char *fileName) {
  const bool temporary = fileName == nullptr;
  OwnedString name(temporary ? LogTempName(state) : Util_SafeStrdup(fileName));
  const int fd = LogOpen(name.get());
  if (fd == -1) {
    Msg_Append(MSGID(log.switchFailed) "Unable to open the log file \"%s\". Make sure that the path "
                                       "specified for the log file is valid, and that you have write "
                                       "privileges in this directory.\n",
               name.get());
    return false;
  }
  if (temporary) {
    // A file of this name was left by a process that had the same id.
    [[maybe_unused]] const int result = ftruncate(fd, 0);
  }
  if (state->fd != -1) {
    close(state->fd);
  }
  state->fd = fd;
  state->bannerWritten = false;
  free(state->fileName);
  state->fileName = name.release();
  state->fileIsTemp = temporary;
  return true;
}

void LogForgetNames(LogState *state) {
  free(state->fileName);
  state->fileName = nullptr;
  free(state->suffix);
  state->suffix = nullptr;
}

}  // namespace

bool Log_Init(const char *fileName, const char *config, const char *suffix) {
  LogState *state = &logState;
  ASSERT(!state->initialized);
  state->suffix = Util_SafeStrdup(suffix);
  state->enable = true;
  // Without a name of either kind the text waits for a file.
  const bool wantsFile = fileName != nullptr || config != nullptr;
  if (wantsFile && !LogSetFile(state, fileName)) {
    state->enable = false;
    LogForgetNames(state);
    return false;
  }
  state->initialized = true;
  return true;
}

void Log_Exit() {
  logState.initialized = false;
  LogForgetNames(&logState);
}

void Log(const char *format, ...) {
  if (!logState.enable) {
    return;
  }
  const ErrnoKeeper keeper;
  char text[kTextSize];
  va_list args;
  va_start(args, format);
  Str_Vsnprintf(text, sizeof text, format, args);
  va_end(args);
  LogWrite(&logState, text);
}

void Warning(const char *format, ...) {
  const ErrnoKeeper keeper;
  char text[kTextSize];
  va_list args;
  va_start(args, format);
  Str_Vsnprintf(text, sizeof text, format, args);
  va_end(args);
  LogWrite(&logState, text);
  if (!logState.quiet) {
    fputs(text, stderr);
  }
}

bool Log_RemoveFile(bool force) {
  LogState *state = &logState;
  if (!state->initialized) {
    Log("LOG trying to remove log file when not initialized.\n");
    return true;
  }
  if (state->fileName == nullptr || (!force && (state->keepAlways || !state->fileIsTemp))) {
    return true;
  }
  Log("LOG removing %s.\n", state->fileName);
  close(state->fd);
  state->fd = -1;
  const bool removed = Posix_Unlink(state->fileName) == 0;
  free(state->fileName);
  state->fileName = nullptr;
  return removed;
}

const char *Log_GetFileName() {
  return logState.fileName;
}

void Log_SetQuietWarnings(bool quiet) {
  logState.quiet = quiet;
}

bool Log_GetQuietWarnings() {
  return logState.quiet;
}

void Log_SetAlwaysKeep(bool keep) {
  logState.keepAlways = keep;
}

// No limit on the log's rate can be configured yet, so there is none to lift.
void Log_DisableThrottling() {}
