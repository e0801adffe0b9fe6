// What the files of the log share.
#ifndef OST_LOG_LOGINT_H
#define OST_LOG_LOGINT_H

#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string_view>

#include "log.h"
#include "syncRecMutex.h"

// The time that the last line showed.
struct LogStamp {
  time_t second;
  char text[64];  // of that second
  size_t length;
  int64_t timeMs;
  bool millisec;  // whether the line showed them too
};

// The log of the process. Log_InitEx fills it; text that comes before that, and after Log_Exit while the
// process's exit handlers run, uses it too, so it owns by plain pointers that no destructor clears. Its lock
// guards all but what is atomic: those are read before, or instead of, taking it.
// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding): one record, in the order of what belongs together
struct LogState {
  int32_t fd = -1;  // -1 for no file
  std::atomic<bool> quiet;
  std::atomic<LogFunction> logFn;
  std::atomic<LogFunction> warningFn;
  bool timeStamp;
  bool threadName;
  char *ringStart;  // null until the first text
  size_t ringWrite;
  size_t ringRead;
  size_t ringCount;
  bool bannerWritten;
  char *fileName;
  char *appName;
  char *appVersion;
  char *suffix;
  bool initialized;
  std::atomic<bool> enable;
  bool append;
  bool millisec;
  int32_t keep;
  bool keepAlways;
  bool fileIsTemp;
  bool partialLine;  // the last text had no newline at its end
  int32_t keepOld;
  bool fastRotation;
  char *dir;
  std::atomic<LogLockFunction> lockFn;
  SyncRecMutex mutex;
  std::atomic<bool> mutexReady;
  LogThrottleInfo throttle;
  uint64_t fileSize;
  uint64_t rotateSize;
  bool rotating;
  LogStamp stamp;
  // A signal's handler may find these so.
  volatile size_t ringTaken;    // bytes in front of ringRead that are being written
  volatile bool ringGoesRound;  // whether the outermost drain writes those behind a piece that ended the ring
};
extern LogState logState;

// While one lives, its thread is taking or leaving the log's lock, or changing the ring. A signal's handler
// that comes then can neither wait for the lock, which its own thread has, nor touch the ring.
class LogMoment {
 public:
  LogMoment() : wasNow_(isNow_) {
    isNow_ = true;
    std::atomic_signal_fence(std::memory_order_seq_cst);
  }
  ~LogMoment() {
    std::atomic_signal_fence(std::memory_order_seq_cst);
    isNow_ = wasNow_;
  }
  LogMoment(const LogMoment &) = delete;
  LogMoment &operator=(const LogMoment &) = delete;

  [[nodiscard]] static bool IsNow() { return isNow_; }

 private:
  static inline thread_local volatile bool isNow_;
  bool wasNow_;
};

// Holds the log's lock, once more where the thread has it, and nothing before the log has started or in a
// LogMoment.
class LogLock {
 public:
  explicit LogLock(LogState *state);
  ~LogLock();
  LogLock(const LogLock &) = delete;
  LogLock &operator=(const LogLock &) = delete;

 private:
  // What was taken, which may no longer be the state's own when it is left.
  LogLockFunction lockFn_ = nullptr;
  SyncRecMutex *mutex_ = nullptr;
};

class ErrnoKeeper {
 public:
  ErrnoKeeper() = default;
  ~ErrnoKeeper() { errno = saved_; }
  ErrnoKeeper(const ErrnoKeeper &) = delete;
  ErrnoKeeper &operator=(const ErrnoKeeper &) = delete;

 private:
  int saved_ = errno;
};

// Each of these is called with the log's lock.

// Puts the lines of a text into the ring, each with the prefix but for one that a former text began. With
// `flush`, and a file, all that waits is written, and the next file begun when this one is long enough.
void LogWrite(LogState *state, std::string_view text, bool flush);
// Puts a piece of text behind what waits in the ring, at the expense of the oldest lines. A piece as long as
// the ring stops the program.
void LogQueue(LogState *state, std::string_view piece);
// Writes all that waits in the ring to the file.
void LogDrain(LogState *state);
// Whether the text has to wait. Writes a notice when that begins.
bool LogThrottle(LogState *state, LogThrottleInfo *info, std::string_view text);

// Opens a log file. Returns -1 with a message on failure.
int LogOpen(const char *path);
// Makes a new descriptor the state's own under the number of the old one.
void LogReplaceFd(LogState *state, int fd);
// Whether there is a file that has a name: one that a log left open has none.
bool LogHasFile(const LogState *state);
bool LogSameInode(const struct stat &file1, const struct stat &file2);
// Whether an open file is no plain one: it never gets too long, and its name isn't the log's to give away.
bool LogIsDevice(int fd);
// Whether the state's file is plain, and its name still its own or nobody's. Only then that name may be given
// away. Of a file that isn't open any more, that the name is a plain file's or nobody's has to do.
bool LogOwnsName(const LogState *state);
// Goes on in a new file behind a copy of the old one, which is deleted under its own name. The new one is
// deleted when that fails, with messages. One file under two names stays as it is.
bool LogMoveContent(LogState *state, int fd, const char *name);
// Takes the lock itself.
bool LogSetFile(LogState *state, const char *fileName, const char *config, bool copy);
void LogAppendSwitchFailed(const char *fileName);

// Gives `fileName` a number in its name, and deletes the file that is then too many. Failures are logged.
void LogBackupByRenumber(const char *fileName, int32_t keepOld, bool fastRotation);
// Begins the next file of the state's name. Without one, logging to a file is over.
void LogRotate(LogState *state);

// The limit that settings tell, by the names of their keys and their defaults.
struct LogThrottleKeys {
  const char *threshold;
  int32_t thresholdDefault;
  const char *bytesPerSec;
  int32_t bytesPerSecDefault;
  const char *noLogAfterThreshold;
};
extern const LogThrottleKeys logThrottleKeys;
void LogReadThrottle(const LogThrottleKeys &keys, LogThrottleInfo *info);

#endif
