#include <sys/time.h>
#include <unistd.h>

#include <ctime>
#include <optional>
#include <random>
#include <utility>

#include "hostinfoTime.h"
#include "logInt.h"
#include "logTestInt.h"

namespace {

// What the clock shows; nothing for the real time.
std::optional<timeval> clockShows;

}  // namespace

// A stand-in for the C library's.
extern "C" int gettimeofday(struct timeval *now, void * /*zone*/) noexcept {
  struct timespec real {};
  clock_gettime(CLOCK_REALTIME, &real);
  *now = clockShows.value_or(timeval{real.tv_sec, real.tv_nsec / 1000});
  return 0;
}

namespace {

using namespace logtest;

constexpr uint64_t kSecond = 1000000;

uint64_t NowUs() {
  int64_t now = 0;
  Hostinfo_GetTimeOfDay(&now);
  return static_cast<uint64_t>(now);
}

// A text of `size` bytes.
void LogBytes(size_t size) {
  for (; size > 4000; size -= 4000) {
    Log("%s\n", std::string(3999, 'x').c_str());
  }
  Log("%s\n", std::string(size - 1, 'x').c_str());
}

size_t Notices(const std::string &notice) {
  size_t count = 0;
  for (const std::string &text : Texts()) {
    count += text == notice ? 1 : 0;
  }
  return count;
}

TEST(LogThrottle, WithoutALimitNothingIsCounted) {
  EnterHost();
  StartLog();
  LogBytes(1200000);
  EXPECT_EQ(logState.throttle.bytesLogged, 0U);
  EXPECT_EQ(Texts().size(), 300U);
}

TEST(LogThrottle, EndsTheLogBehindTheThreshold) {
  EnterHost("log.noLogAfterThreshold = TRUE\n");
  StartLog();
  LogBytes(999999);
  EXPECT_EQ(Notices("<<< Log Throttled >>>"), 0U);
  const size_t before = Texts().size();
  Log("y\n");
  Strings texts = Texts();
  ASSERT_EQ(texts.size(), before + 2);
  EXPECT_EQ(texts[before], "") << "the notice begins with an end of line";
  EXPECT_EQ(texts[before + 1], "<<< Log Throttled >>>");
  const size_t size = testhost::ReadFile(Log_GetFileName()).size();
  LogBytes(10000);
  Log("last\n");
  EXPECT_EQ(testhost::ReadFile(Log_GetFileName()).size(), size);
  // What waited comes when the limit is lifted.
  Log_DisableThrottling();
  Log("free\n");
  texts = Texts();
  ASSERT_EQ(texts.size(), before + 2 + 1 + 3 + 2);
  EXPECT_EQ(texts[before + 2], "y");
  EXPECT_EQ(texts[texts.size() - 2], "last");
  EXPECT_EQ(texts.back(), "free");
}

TEST(LogThrottle, NewerTextPushesOutWhatWaits) {
  EnterHost("log.noLogAfterThreshold = TRUE\nlog.throttleThreshold = 1\n");
  StartLog();
  for (int i = 0; i < 10000; i++) {
    Log("line %d\n", i);
  }
  EXPECT_EQ(Texts(), (Strings{"", "<<< Log Throttled >>>"}));
  Log_DisableThrottling();
  Log("free\n");
  const Strings texts = Texts();
  EXPECT_GT(texts.size(), 500U);
  EXPECT_LT(testhost::ReadFile(Log_GetFileName()).size(), 32768U + 1000);
  for (size_t i = 2; i + 1 < texts.size(); i++) {
    EXPECT_EQ(texts[i], "line " + std::to_string(10000 - (texts.size() - 1 - i)));
  }
}

TEST(LogThrottle, CountsWhatGoesToAFileAlone) {
  EnterHost("log.noLogAfterThreshold = TRUE\nlog.throttleThreshold = 10\n");
  ASSERT_TRUE(Log_Init(nullptr, nullptr, "setup"));
  Log("123456789\n");
  EXPECT_EQ(logState.throttle.bytesLogged, 0U);
  ASSERT_TRUE(Log_SetFile(kLog, nullptr, true));
  Log("late\n");
  EXPECT_EQ(Texts(), (Strings{"123456789", "late"}));
}

TEST(LogThrottle, OfARateEngagesAboveIt) {
  EnterHost("log.throttleThreshold = 1000\nlog.throttleBytesPerSec = 100\n");
  StartLog();
  LogBytes(600);
  EXPECT_EQ(logState.throttle.lastTimeUs, 0U) << "the clock isn't read below the threshold";
  // 1100 bytes in 11 seconds are no more than 100 each.
  logState.throttle.lastTimeUs = NowUs() - 11 * kSecond - kSecond / 2;
  LogBytes(500);
  EXPECT_FALSE(logState.throttle.throttled);
  EXPECT_EQ(logState.throttle.lastBytes, 1100U);
  // 1111 bytes in 11 seconds are 101.
  logState.throttle.lastTimeUs = NowUs() - 11 * kSecond - kSecond / 2;
  LogBytes(1110);
  EXPECT_FALSE(logState.throttle.throttled);
  logState.throttle.lastTimeUs = NowUs() - 11 * kSecond - kSecond / 2;
  LogBytes(1111);
  EXPECT_TRUE(logState.throttle.throttled);
  EXPECT_EQ(Texts().back(), "<<< Log Throttled >>>");
}

TEST(LogThrottle, LooksAtTheRateEveryFiveSeconds) {
  EnterHost("log.throttleThreshold = 1\nlog.throttleBytesPerSec = 1\n");
  StartLog();
  logState.throttle.lastTimeUs = NowUs() - 4 * kSecond;
  const uint64_t last = logState.throttle.lastTimeUs;
  LogBytes(100000);
  EXPECT_FALSE(logState.throttle.throttled);
  EXPECT_EQ(logState.throttle.lastTimeUs, last);
  logState.throttle.lastTimeUs = NowUs() - 5 * kSecond - 1000;
  LogBytes(10);
  EXPECT_TRUE(logState.throttle.throttled);
}

TEST(LogThrottle, LooksAtTheRateOnlyBehindTheInterval) {
  EnterHost("log.throttleThreshold = 1\nlog.throttleBytesPerSec = 1\n");
  StartLog();
  clockShows = {1700000000, 0};
  const uint64_t now = NowUs();
  for (const auto &[interval, throttled] : {std::pair(5 * kSecond, false), {60 * kSecond, true}}) {
    EXPECT_EQ(logState.throttle.throttled, throttled);
    logState.throttle.lastTimeUs = now - interval;
    LogBytes(1000);
    EXPECT_EQ(logState.throttle.lastTimeUs, now - interval);
    EXPECT_EQ(logState.throttle.throttled, throttled);
    logState.throttle.lastTimeUs = now - interval - 1;
    LogBytes(1000);
    EXPECT_EQ(logState.throttle.lastTimeUs, now);
    EXPECT_TRUE(logState.throttle.throttled);
  }
}

TEST(LogThrottle, StaysWhenTheRateHasFallen) {
  EnterHost("log.throttleThreshold = 1\nlog.throttleBytesPerSec = 100\n");
  StartLog();
  logState.throttle.lastTimeUs = NowUs() - 6 * kSecond;
  LogBytes(10000);
  ASSERT_TRUE(logState.throttle.throttled);
  const size_t size = testhost::ReadFile(Log_GetFileName()).size();
  // Looked at once a minute now.
  logState.throttle.lastTimeUs = NowUs() - 59 * kSecond;
  uint64_t last = logState.throttle.lastTimeUs;
  LogBytes(10);
  EXPECT_EQ(logState.throttle.lastTimeUs, last);
  logState.throttle.lastTimeUs = NowUs() - 61 * kSecond;
  last = logState.throttle.lastTimeUs;
  LogBytes(10);
  EXPECT_GT(logState.throttle.lastTimeUs, last);
  EXPECT_TRUE(logState.throttle.throttled);
  EXPECT_EQ(testhost::ReadFile(Log_GetFileName()).size(), size);
  // Nor does a high rate write the notice again.
  logState.throttle.lastTimeUs = NowUs() - 61 * kSecond;
  LogBytes(100000);
  EXPECT_EQ(testhost::ReadFile(Log_GetFileName()).size(), size);
}

TEST(LogThrottle, AClockThatGoesBackBeginsTheCountAnew) {
  EnterHost("log.throttleThreshold = 1\nlog.throttleBytesPerSec = 1\n");
  StartLog();
  for (const bool throttled : {false, true}) {
    logState.throttle.throttled = throttled;
    logState.throttle.lastTimeUs = NowUs() + 3600 * kSecond;
    logState.throttle.lastBytes = 0;
    LogBytes(4000);
    EXPECT_EQ(logState.throttle.throttled, throttled);
    EXPECT_LE(logState.throttle.lastTimeUs, NowUs());
    EXPECT_GT(logState.throttle.lastTimeUs, NowUs() - 10 * kSecond);
    EXPECT_EQ(logState.throttle.lastBytes, logState.throttle.bytesLogged);
  }
  EXPECT_EQ(Notices("<<< Log Throttled >>>"), 0U);
}

// The limit as it is told, on a clock that is given.
struct Model {
  LogThrottleInfo info;

  bool Text(uint64_t size, uint64_t now) {
    if (info.bytesPerSec == LOG_NO_LIMIT) {
      return info.throttled;
    }
    info.bytesLogged += size;
    if (info.bytesLogged < info.threshold) {
      return info.throttled;
    }
    bool verdict = true;
    if (info.bytesPerSec != 0) {
      verdict = info.throttled;
      const uint64_t interval = info.throttled ? 60 * kSecond : 5 * kSecond;
      if (info.lastTimeUs > now) {
        info.lastTimeUs = now;
        info.lastBytes = info.bytesLogged;
      } else if (now - info.lastTimeUs > interval) {
        verdict =
            info.bytesPerSec < (info.bytesLogged - info.lastBytes) / ((now - info.lastTimeUs) / kSecond);
        info.lastTimeUs = now;
        info.lastBytes = info.bytesLogged;
      }
    }
    info.throttled = info.throttled || verdict;
    return info.throttled;
  }
};

TEST(LogThrottle, FollowsAPlainModel) {
  EnterHost();
  StartLog();
  std::mt19937 random(1);
  const auto below = [&random](uint32_t limit) { return static_cast<uint32_t>(random() % limit); };
  int throttled = 0;
  for (int round = 0; round < 400; round++) {
    const uint32_t limits[] = {0, LOG_NO_LIMIT, 1 + below(2000), 1 + below(2000)};
    Model model{{.throttled = below(8) == 0,
                 .threshold = below(3000),
                 .bytesPerSec = limits[below(4)],
                 .bytesLogged = below(1000),
                 .lastTimeUs = 0,
                 .lastBytes = 0}};
    LogThrottleInfo info = model.info;
    for (int step = 0; step < 20; step++) {
      // Half a second off each border, so that the test's own time decides nothing.
      const int64_t since = (static_cast<int64_t>(below(80)) - 3) * 1000000 + 500000;
      const uint64_t now = NowUs();
      info.lastTimeUs = model.info.lastTimeUs = now - static_cast<uint64_t>(since);
      const std::string text(below(4000), 'x');
      const bool expected = model.Text(text.size(), now);
      ASSERT_EQ(LogThrottle(&logState, &info, text), expected) << round << ' ' << step;
      ASSERT_EQ(info.throttled, model.info.throttled);
      ASSERT_EQ(info.bytesLogged, model.info.bytesLogged);
      ASSERT_EQ(info.lastBytes, model.info.lastBytes);
      ASSERT_LT(info.lastTimeUs - model.info.lastTimeUs, kSecond / 3);
      throttled += expected ? 1 : 0;
    }
  }
  EXPECT_GT(throttled, 1000);
  EXPECT_LT(throttled, 7000);
}

TEST(GuestLog, HasNoLimitOfItsOwnAtFirst) {
  EnterHost();
  StartLog();
  for (int i = 0; i < 1000; i++) {
    GuestLog("%s\n", std::string(999, 'x').c_str());
  }
  EXPECT_EQ(Texts().size(), 1000U);
}

TEST(GuestLog, ReadsItsLimitFromSettings) {
  EnterHost("log.guestThrottleThreshold = 5\nlog.guestThrottleBytesPerSec = 6\n");
  Log_InitGuestThrottle();
  EXPECT_EQ(guestLogThrottleInfo.threshold, 5U);
  EXPECT_EQ(guestLogThrottleInfo.bytesPerSec, 6U);
}

TEST(GuestLog, HasNoLimitByDefault) {
  EnterHost();
  Log_InitGuestThrottle();
  EXPECT_EQ(guestLogThrottleInfo.threshold, 500000U);
  EXPECT_EQ(guestLogThrottleInfo.bytesPerSec, LOG_NO_LIMIT);
}

TEST(GuestLog, ItsLimitHoldsBackNoOtherText) {
  EnterHost("log.guestNoLogAfterThreshold = TRUE\nlog.guestThrottleThreshold = 10\n");
  Log_InitGuestThrottle();
  StartLog();
  GuestLog("12345678\n");
  GuestLog("a\n");
  EXPECT_EQ(Texts(), (Strings{"12345678", "", "<<< Guest Log Throttled >>>"}));
  // Other text is written, and takes along what waits.
  Log("host\n");
  EXPECT_EQ(Texts(), (Strings{"12345678", "", "<<< Guest Log Throttled >>>", "a", "host"}));
  GuestLog("b\n");
  EXPECT_EQ(Texts().back(), "host");
}

TEST(GuestLog, CountsInBothLimits) {
  EnterHost(
      "log.guestNoLogAfterThreshold = TRUE\nlog.guestThrottleThreshold = 10\n"
      "log.noLogAfterThreshold = TRUE\nlog.throttleThreshold = 20\n");
  Log_InitGuestThrottle();
  StartLog();
  GuestLog("123456789\n");
  GuestLog("123456789\n");
  EXPECT_EQ(guestLogThrottleInfo.bytesLogged, 20U);
  EXPECT_EQ(logState.throttle.bytesLogged, 20U);
  EXPECT_TRUE(logState.throttle.throttled);
  EXPECT_EQ(Texts(), (Strings{"", "<<< Guest Log Throttled >>>", "123456789", "", "<<< Log Throttled >>>"}));
}

TEST(GuestLog, ItsOwnLimitComesFirst) {
  EnterHost(
      "log.guestNoLogAfterThreshold = TRUE\nlog.guestThrottleThreshold = 10\n"
      "log.noLogAfterThreshold = TRUE\nlog.throttleThreshold = 10\n");
  Log_InitGuestThrottle();
  StartLog();
  GuestLog("123456789\n");
  EXPECT_EQ(Texts(), (Strings{"", "<<< Guest Log Throttled >>>", "", "<<< Log Throttled >>>"}));
}

TEST(GuestLog, AFileThatItsNoticeLosesIsTriedOnce) {
  EnterHost(
      "log.guestNoLogAfterThreshold = TRUE\nlog.guestThrottleThreshold = 10\n"
      "log.noLogAfterThreshold = TRUE\nlog.throttleThreshold = 10\nlog.rotateSize = 20\n");
  Log_InitGuestThrottle();
  ASSERT_TRUE(Log_Init(kLog, nullptr, "setup"));
  fs::remove_all(kDirectory);
  // The guest's notice makes the file longer than it may be, and the log's own comes right behind it.
  GuestLog("123456789\n");
  EXPECT_EQ(logState.fd, -1);
  const Strings messages = TakeMessages();
  ASSERT_EQ(messages.size(), 3U);
  EXPECT_EQ(messages[1], "msg.log.switchFailed");
  // What came since waits.
  EXPECT_GT(logState.ringCount, 0U);
}

TEST(LogThrottled, WritesEverFewer) {
  EnterHost();
  StartLog();
  uint32_t count = 0;
  for (int i = 1; i <= 350; i++) {
    Log_Throttled(&count, "%d\n", i);
  }
  EXPECT_EQ(count, 350U);
  const Strings texts = Texts();
  ASSERT_EQ(texts.size(), 99U + 3);
  EXPECT_EQ(texts[98], "99");
  EXPECT_EQ(Strings(texts.begin() + 99, texts.end()), (Strings{"100", "200", "300"}));
}

TEST(WarningThrottled, WritesEverFewer) {
  EnterHost();
  StartLog();
  uint32_t count = 98;
  EXPECT_EQ(OnStandardError([&count] {
              for (int i = 99; i <= 200; i++) {
                Warning_Throttled(&count, "at %d\n", i);
              }
            }),
            "at 99\nat 100\nat 200\n");
  EXPECT_EQ(Texts(), (Strings{"at 99", "at 100", "at 200"}));
}

}  // namespace
