// The log's start, end and settings.
#include <pthread.h>

#include <algorithm>
#include <cstdlib>
#include <optional>

#include "config.h"
#include "logInt.h"
#include "panicUser.h"
#include "productState.h"
#include "util_misc.h"

namespace {

constexpr int32_t kDefaultKeepOld = 3;

// A fork takes the log's mutex along, so that the child gets neither one that nobody gives back nor a log
// that another thread was changing. A lock function's lock is its owner's to take along: a child couldn't
// leave what has a thread of its parent for its owner.
thread_local std::optional<LogLock> lockOfFork;
int forkError;

// Registered before all others. So it is taken last before a fork, as by those who log under a guard of their
// own that forks wait for too, and left first behind it, when the child's lock knows its owner by the old
// identity still.
[[gnu::constructor(101)]] void LogHandleForks() {
  const auto take = [] {
    if (logState.lockFn == nullptr) {
      lockOfFork.emplace(&logState);
    }
  };
  const auto leave = [] { lockOfFork.reset(); };
  const auto leaveInChild = [] {
    // A file that the child began would not be its parent's.
    logState.rotateSize = 0;
    lockOfFork.reset();
  };
  forkError = pthread_atfork(take, leave, leaveInChild);
}

void LogFree(char **text) {
  free(*text);
  *text = nullptr;
}

void LogFreeNames(LogState *state) {
  for (char **name : {&state->fileName, &state->appName, &state->appVersion, &state->suffix}) {
    LogFree(name);
  }
}

void LogSetConfig(LogState *state, bool enable, bool append, int32_t keepOld, uint64_t rotateSize,
                  bool fastRotation) {
  state->append = append;
  state->keepOld = keepOld;
  state->rotateSize = rotateSize;
  state->fastRotation = fastRotation;
  state->keep = Config_GetLong(-1, "log.keep");
  state->timeStamp = Config_GetBool(true, "log.timeStamp");
  state->millisec = Config_GetBool(true, "log.millisec");
  state->threadName = Config_GetBool(true, "log.threadName");
  LogReadThrottle(logThrottleKeys, &state->throttle);
  // At last, so that what the reading of settings logs on the way is as late as they are.
  state->enable = enable;
}

void LogDestroyMutex(LogState *state) {
  if (state->mutexReady.exchange(false)) {
    SyncRecMutex_Destroy(&state->mutex);
  }
}

}  // namespace

bool Log_Init(const char *fileName, const char *config, const char *suffix) {
  LogInitParams params;
  Log_GetInitDefaults(fileName, config, suffix, &params);
  return Log_InitEx(&params);
}

bool Log_InitForApp(const char *fileName, const char *config, const char *suffix, const char *appName,
                    const char *appVersion) {
  LogInitParams params;
  Log_GetInitDefaults(fileName, config, suffix, &params);
  params.appName = appName;
  params.appVersion = appVersion;
  return Log_InitEx(&params);
}

void Log_GetInitDefaults(const char *fileName, const char *config, const char *suffix,
                         LogInitParams *params) {
  LogThrottleInfo throttle{};
  LogReadThrottle(logThrottleKeys, &throttle);
  *params = {
      .fileName = fileName,
      .config = config,
      .suffix = suffix,
      .appName = ProductState_GetName(),
      .appVersion = ProductState_GetVersion(),
      .enable = Config_GetBool(true, "logging"),
      .append = Config_GetBool(false, "log.append"),
      .keepOld = Config_GetLong(kDefaultKeepOld, "log.keepold"),
      .throttleThreshold = throttle.threshold,
      .throttleBytesPerSec = throttle.bytesPerSec,
      .switchFile = fileName == nullptr,
      .rotateSize = static_cast<uint64_t>(std::max(0, Config_GetLong(0, "log.rotateSize"))),
  };
}

bool Log_InitEx(const LogInitParams *params) {
  LogState *state = &logState;
  ASSERT(!state->initialized);
  ASSERT_MEM_ALLOC(forkError == 0);
  const bool wasEnabled = state->enable;
  const LogThrottleInfo formerThrottle = state->throttle;
  state->appName = Util_SafeStrdup(params->appName);
  state->appVersion = Util_SafeStrdup(params->appVersion);
  state->suffix = Util_SafeStrdup(params->suffix);
  LogSetConfig(state, params->enable, params->append, params->keepOld, params->rotateSize, false);
  state->throttle.threshold = params->throttleThreshold;
  state->throttle.bytesPerSec = params->throttleBytesPerSec;
  state->mutexReady = SyncRecMutex_Init(&state->mutex, nullptr);
  const bool wantsFile = params->fileName != nullptr || params->config != nullptr;
  if (wantsFile && !LogSetFile(state, params->fileName, params->config, params->switchFile)) {
    state->enable = wasEnabled;
    state->throttle = formerThrottle;
    LogDestroyMutex(state);
    LogFreeNames(state);
    return false;
  }
  const LogLock lock(state);
  state->initialized = true;
  return true;
}

void Log_Exit() {
  LogState *state = &logState;
  {
    const LogLock lock(state);
    state->initialized = false;
    state->rotateSize = 0;
    LogFreeNames(state);
    LogFree(&state->dir);
  }
  state->lockFn = nullptr;
  LogDestroyMutex(state);
}

void Log_SetConfig(bool enable, bool append, int32_t keepOld, uint64_t rotateSize, bool fastRotation) {
  const LogLock lock(&logState);
  LogSetConfig(&logState, enable, append, keepOld, rotateSize, fastRotation);
}

bool Log_Enabled() {
  return logState.enable;
}

void Log_SetQuietWarnings(bool quiet) {
  logState.quiet = quiet;
}

bool Log_GetQuietWarnings() {
  return logState.quiet;
}

void Log_SetAlwaysKeep(bool keep) {
  const LogLock lock(&logState);
  logState.keepAlways = keep;
}

void Log_RegisterFunctions(LogFunction logFn, LogFunction warningFn) {
  logState.logFn = logFn;
  logState.warningFn = warningFn;
}

void Log_SetLockFunc(LogLockFunction lockFn) {
  ASSERT(lockFn == nullptr || logState.lockFn == nullptr);
  logState.lockFn = lockFn;
}
