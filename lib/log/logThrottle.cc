// The limits on the log's rate.
#include "config.h"
#include "hostinfoTime.h"
#include "logInt.h"

LogThrottleInfo guestLogThrottleInfo = {.throttled = false,
                                        .threshold = 0,
                                        .bytesPerSec = LOG_NO_LIMIT,
                                        .bytesLogged = 0,
                                        .lastTimeUs = 0,
                                        .lastBytes = 0};

const LogThrottleKeys logThrottleKeys = {"log.throttleThreshold", 1000000, "log.throttleBytesPerSec", -1,
                                         "log.noLogAfterThreshold"};

namespace {

constexpr LogThrottleKeys kGuestKeys = {"log.guestThrottleThreshold", 500000, "log.guestThrottleBytesPerSec",
                                        0, "log.guestNoLogAfterThreshold"};

constexpr uint64_t kMicroseconds = 1000000;
constexpr uint64_t kInterval = 5 * kMicroseconds;
constexpr uint64_t kThrottledInterval = 60 * kMicroseconds;

uint64_t LogNowUs() {
  int64_t now = 0;
  Hostinfo_GetTimeOfDay(&now);
  return static_cast<uint64_t>(now);
}

void LogLookFrom(LogThrottleInfo *info, uint64_t nowUs) {
  info->lastTimeUs = nowUs;
  info->lastBytes = info->bytesLogged;
}

// Whether text comes faster than the limit. Between two looks it is as it was.
bool LogIsTooFast(LogThrottleInfo *info) {
  const uint64_t now = LogNowUs();
  if (info->lastTimeUs > now) {
    // The clock went back.
    LogLookFrom(info, now);
    return info->throttled;
  }
  const uint64_t elapsed = now - info->lastTimeUs;
  if (elapsed <= (info->throttled ? kThrottledInterval : kInterval)) {
    return info->throttled;
  }
  const uint64_t rate = (info->bytesLogged - info->lastBytes) / (elapsed / kMicroseconds);
  LogLookFrom(info, now);
  return info->bytesPerSec < rate;
}

}  // namespace

bool LogThrottle(LogState *state, LogThrottleInfo *info, std::string_view text) {
  if (info->bytesPerSec == LOG_NO_LIMIT) {
    return info->throttled;
  }
  info->bytesLogged += text.size();
  if (info->bytesLogged < info->threshold) {
    return info->throttled;
  }
  // Wanted: a rate that has fallen again doesn't end it.
  if ((info->bytesPerSec == 0 || LogIsTooFast(info)) && !info->throttled) {
    info->throttled = true;
    LogWrite(state,
             info == &guestLogThrottleInfo ? "\n<<< Guest Log Throttled >>>\n" : "\n<<< Log Throttled >>>\n",
             true);
  }
  return info->throttled;
}

void LogReadThrottle(const LogThrottleKeys &keys, LogThrottleInfo *info) {
  info->threshold = static_cast<uint32_t>(Config_GetLong(keys.thresholdDefault, "%s", keys.threshold));
  info->bytesPerSec = static_cast<uint32_t>(Config_GetLong(keys.bytesPerSecDefault, "%s", keys.bytesPerSec));
  if (info->bytesPerSec == 0) {
    info->bytesPerSec = LOG_NO_LIMIT;
  }
  if (Config_GetBool(false, "%s", keys.noLogAfterThreshold)) {
    info->bytesPerSec = 0;
  }
}

void Log_InitGuestThrottle() {
  const LogLock lock(&logState);
  LogReadThrottle(kGuestKeys, &guestLogThrottleInfo);
}

void Log_DisableThrottling() {
  const LogLock lock(&logState);
  logState.throttle.bytesPerSec = LOG_NO_LIMIT;
  logState.throttle.throttled = false;
}
