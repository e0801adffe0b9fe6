#include "log.h"

#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "codeset.h"
#include "logInt.h"
#include "productState.h"
#include "str.h"
#include "unicode.h"
#include "util.h"
#include "vthread.h"

constinit LogState logState{};

namespace {

constexpr size_t kTextSize = 4096;
constexpr size_t kMaxPrefix = 94;
// What ends the time, and what ends the thread's name.
constexpr size_t kEndLength = 2;

struct LogPrefix {
  char text[kMaxPrefix + 1];
  size_t length;
};

// Appends as much of `text` as leaves room for the end.
void LogPrefixAppend(LogPrefix *prefix, std::string_view text) {
  const size_t length = std::min(text.size(), kMaxPrefix - kEndLength - prefix->length);
  memcpy(prefix->text + prefix->length, text.data(), length);
  prefix->length += length;
}

void LogPrefixEnd(LogPrefix *prefix, char mark) {
  prefix->text[prefix->length++] = mark;
  prefix->text[prefix->length++] = ' ';
}

void LogPrefixAppendMillisec(LogPrefix *prefix, int64_t timeMs) {
  // ".%03d" by hand, for each line pays for it.
  const auto value = static_cast<unsigned>(timeMs % 1000);
  const char text[] = {'.', static_cast<char>('0' + value / 100), static_cast<char>('0' + value / 10 % 10),
                       static_cast<char>('0' + value % 10)};
  LogPrefixAppend(prefix, {text, sizeof text});
}

// Formatting the time of day costs as much as writing the line, so a second's text is made once.
void LogStampSecond(LogStamp *stamp, time_t second) {
  if (stamp->length > 0 && stamp->second == second) {
    return;
  }
  struct tm local {};
  localtime_r(&second, &local);
  stamp->length = strftime(stamp->text, sizeof stamp->text, "%b %d %H:%M:%S", &local);
  stamp->second = second;
}

void LogPrefixAppendStamp(LogPrefix *prefix, const LogStamp &stamp) {
  LogPrefixAppend(prefix, {stamp.text, stamp.length});
  if (stamp.millisec) {
    LogPrefixAppendMillisec(prefix, stamp.timeMs);
  }
}

// A signal handler must not ask for the local time, so there the stamp tells how long ago the last one was.
void LogPrefixAppendElapsed(LogPrefix *prefix, int64_t elapsedMs, bool millisec) {
  char text[32];
  Str_Snprintf(text, sizeof text, "+%d", static_cast<int>(elapsedMs / 1000));
  LogPrefixAppend(prefix, text);
  if (millisec) {
    Str_Snprintf(text, sizeof text, ".%03d", static_cast<int>(elapsedMs % 1000));
    LogPrefixAppend(prefix, text);
  }
}

void LogPrefixAppendTime(LogPrefix *prefix, LogState *state) {
  LogStamp *stamp = &state->stamp;
  struct timeval now {};
  gettimeofday(&now, nullptr);
  const int64_t nowMs = int64_t{now.tv_sec} * 1000 + now.tv_usec / 1000;
  if (VThread_IsInSignal()) {
    LogPrefixAppendStamp(prefix, *stamp);
    LogPrefixAppendElapsed(prefix, nowMs - stamp->timeMs, state->millisec);
  } else {
    LogStampSecond(stamp, now.tv_sec);
    stamp->timeMs = nowMs;
    stamp->millisec = state->millisec;
    LogPrefixAppendStamp(prefix, *stamp);
  }
  LogPrefixEnd(prefix, ':');
}

LogPrefix LogMakePrefix(LogState *state) {
  LogPrefix prefix;
  prefix.length = 0;
  if (!state->initialized) {
    LogPrefixAppend(&prefix, "LOG NOT INITIALIZED | ");
  } else {
    if (state->timeStamp) {
      LogPrefixAppendTime(&prefix, state);
    }
    if (state->threadName) {
      LogPrefixAppend(&prefix, VThread_CurName());
      LogPrefixEnd(&prefix, '|');
    }
  }
  prefix.text[prefix.length] = '\0';
  return prefix;
}

// Writes a line straight to the file. One that is too long ends earlier.
[[gnu::format(printf, 2, 3)]] void LogWriteLine(const LogState *state, const char *format, ...) {
  char line[kTextSize];
  va_list args;
  va_start(args, format);
  if (Str_Vsnprintf(line, sizeof line, format, args) == -1) {
    line[strlen(line) - 1] = '\n';
  }
  va_end(args);
  [[maybe_unused]] const ssize_t written = write(state->fd, line, strlen(line));
}

void LogWriteBanner(const LogState *state, const LogPrefix &prefix) {
  char build[32];
  Str_Snprintf(build, sizeof build, "build-%05u", ProductState_GetBuildNumber());
  LogWriteLine(state, "%sLog for %s pid=%d version=%s build=%s option=%s\n", prefix.text, state->appName,
               getpid(), state->appVersion, build, "BETA");
  LogWriteLine(state, "%sThe process is %zu-bit.\n", prefix.text, sizeof(void *) * 8);
  LogWriteLine(state, "%sHost codepage=%s encoding=%s\n", prefix.text, CodeSet_GetCurrentCodeSet(),
               Unicode_EncodingEnumToName(Unicode_GetCurrentEncoding()));
}

void LogQueueLines(LogState *state, const LogPrefix &prefix, std::string_view text) {
  while (!text.empty()) {
    const size_t newline = text.find('\n');
    const bool whole = newline != std::string_view::npos;
    if (!state->partialLine) {
      LogQueue(state, {prefix.text, prefix.length});
      state->partialLine = true;
    }
    const size_t length = whole ? newline + 1 : text.size();
    LogQueue(state, text.substr(0, length));
    state->partialLine = !whole;
    text.remove_prefix(length);
  }
}

// Whether neither limit holds the text back. The log's own counts a guest's text too.
bool LogMayFlush(LogState *state, std::string_view text, bool isGuest) {
  if (!state->enable || state->fd == -1) {
    return false;
  }
  const bool guestThrottled = isGuest && LogThrottle(state, &guestLogThrottleInfo, text);
  const bool throttled = LogThrottle(state, &state->throttle, text);
  return !guestThrottled && !throttled;
}

void LogWriteChecked(LogState *state, std::string_view text, bool isGuest) {
  if (LogMoment::IsNow()) {
    // What a signal's handler has to say is lost.
    return;
  }
  const LogLock lock(state);
  LogWrite(state, text, LogMayFlush(state, text, isGuest));
}

std::string_view LogFormat(char (&text)[kTextSize], const char *format, va_list args)
    __attribute__((format(printf, 2, 0)));
std::string_view LogFormat(char (&text)[kTextSize], const char *format, va_list args) {
  const int length = Str_Vsnprintf(text, sizeof text, format, args);
  return length == -1 ? std::string_view(text) : std::string_view(text, static_cast<size_t>(length));
}

void LogVLog(bool isGuest, const char *format, va_list args) __attribute__((format(printf, 2, 0)));
void LogVLog(bool isGuest, const char *format, va_list args) {
  LogState *state = &logState;
  if (const LogFunction function = state->logFn) {
    function(format, args);
    return;
  }
  if (!state->enable) {
    return;
  }
  const ErrnoKeeper keeper;
  char text[kTextSize];
  LogWriteChecked(state, LogFormat(text, format, args), isGuest);
}

void LogVWarning(const char *format, va_list args) __attribute__((format(printf, 1, 0)));
void LogVWarning(const char *format, va_list args) {
  LogState *state = &logState;
  if (const LogFunction function = state->warningFn) {
    function(format, args);
    return;
  }
  const ErrnoKeeper keeper;
  char text[kTextSize];
  LogWriteChecked(state, LogFormat(text, format, args), false);
  if (!state->quiet) {
    fputs(text, stderr);
  }
}

// Counts one more, and tells whether that is worth a text.
bool LogCount(uint32_t *count) {
  return Util_Throttle(std::atomic_ref(*count).fetch_add(1) + 1);
}

}  // namespace

LogLock::LogLock(LogState *state) {
  if (LogMoment::IsNow()) {
    return;
  }
  const LogMoment moment;
  lockFn_ = state->lockFn;
  if (lockFn_ != nullptr) {
    lockFn_(true);
  } else if (state->mutexReady && SyncRecMutex_Lock(&state->mutex)) {
    mutex_ = &state->mutex;
  }
}

LogLock::~LogLock() {
  const LogMoment moment;
  if (lockFn_ != nullptr) {
    lockFn_(false);
  } else if (mutex_ != nullptr) {
    SyncRecMutex_Unlock(mutex_);
  }
}

void LogWrite(LogState *state, std::string_view text, bool flush) {
  const LogPrefix prefix = LogMakePrefix(state);
  LogQueueLines(state, prefix, text);
  // A notice of a limit that came before may have begun a next file, and failed.
  if (!flush || state->fd == -1) {
    return;
  }
  if (!state->bannerWritten) {
    LogWriteBanner(state, prefix);
    state->bannerWritten = true;
  }
  LogDrain(state);
  if (state->rotateSize != 0 && state->fileSize > state->rotateSize && !state->rotating &&
      state->fileName != nullptr) {
    LogRotate(state);
  }
}

void Log(const char *format, ...) {
  va_list args;
  va_start(args, format);
  LogVLog(false, format, args);
  va_end(args);
}

void Warning(const char *format, ...) {
  va_list args;
  va_start(args, format);
  LogVWarning(format, args);
  va_end(args);
}

void Log_Throttled(uint32_t *count, const char *format, ...) {
  if (!LogCount(count)) {
    return;
  }
  va_list args;
  va_start(args, format);
  LogVLog(false, format, args);
  va_end(args);
}

void Warning_Throttled(uint32_t *count, const char *format, ...) {
  if (!LogCount(count)) {
    return;
  }
  va_list args;
  va_start(args, format);
  LogVWarning(format, args);
  va_end(args);
}

void GuestLog(const char *format, ...) {
  va_list args;
  va_start(args, format);
  LogVLog(true, format, args);
  va_end(args);
}

void Log_WriteText(const char *text) {
  if (!logState.enable) {
    return;
  }
  const ErrnoKeeper keeper;
  LogWriteChecked(&logState, text, false);
}
