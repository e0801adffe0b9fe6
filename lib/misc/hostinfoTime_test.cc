#include "hostinfoTime.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "hostinfoTestInt.h"
#include "systemCalls.h"

namespace {

// What the stand-in below answers, in microseconds, or -1 for a failure; the kernel does when there is
// nothing.
std::optional<int64_t> hostClock;

}  // namespace

// A stand-in for the C library's, since the host's clock is everybody's.
extern "C" int gettimeofday(timeval *time, void * /*zone*/) noexcept {
  if (!hostClock) {
    return static_cast<int>(syscall(SYS_gettimeofday, time, nullptr));
  }
  if (*hostClock == -1) {
    errno = EFAULT;
    return -1;
  }
  *time = {*hostClock / 1000000, *hostClock % 1000000};
  return 0;
}

namespace {

constexpr char kUpTime[] = "/proc/uptime";
constexpr int64_t kHour = int64_t{3600} * 1000000;
constexpr int64_t kNow = 1700000000123456;

int64_t TimerAt(int64_t hostTime) {
  hostClock = hostTime;
  return Hostinfo_SystemTimerUS();
}

class Clock : public hostinfotest::LoggingHost {
 protected:
  void SetUp() override { Enter(); }
};

TEST_F(Clock, IsTheHosts) {
  const auto before = static_cast<uint64_t>(time(nullptr));
  const uint64_t now = Hostinfo_RawSystemTimerUS();
  EXPECT_GE(now / 1000000, before);
  EXPECT_LE(now / 1000000, before + 60);
  hostClock = kNow;
  EXPECT_EQ(Hostinfo_RawSystemTimerUS(), static_cast<uint64_t>(kNow));
  int64_t same = 0;
  Hostinfo_GetTimeOfDay(&same);
  EXPECT_EQ(same, kNow);
}

TEST_F(Clock, AHostThatDoesNotTellGivesNothing) {
  hostClock = -1;
  EXPECT_EQ(Hostinfo_RawSystemTimerUS(), 0U);
  EXPECT_EQ(CountLogged("Hostinfo_RawSystemTimerUS: failure!"), 1U);
  int64_t none = 7;
  Hostinfo_GetTimeOfDay(&none);
  EXPECT_EQ(none, 0);
  EXPECT_EQ(CountLogged("Hostinfo_RawSystemTimerUS: failure!"), 1U);
}

TEST_F(Clock, TimerRunsWithTheHosts) {
  EXPECT_EQ(TimerAt(kNow), kNow);
  EXPECT_EQ(TimerAt(kNow), kNow);
  EXPECT_EQ(TimerAt(kNow + 5), kNow + 5);
  EXPECT_EQ(TimerAt(kNow + kHour), kNow + kHour);
}

TEST_F(Clock, TimerStepsByOneWhenTheHostsIsSetBackAndRunsOnFromThere) {
  EXPECT_EQ(TimerAt(kNow), kNow);
  EXPECT_EQ(TimerAt(kNow - kHour), kNow + 1);
  EXPECT_EQ(TimerAt(kNow - kHour), kNow + 1);
  EXPECT_EQ(TimerAt(kNow - kHour + 10), kNow + 11);
  // Back once more, from the new base.
  EXPECT_EQ(TimerAt(kNow - 2 * kHour), kNow + 12);
  EXPECT_EQ(TimerAt(kNow - 2 * kHour + 100), kNow + 112);
  // And forward again.
  EXPECT_EQ(TimerAt(kNow), kNow + 12 + 2 * kHour);
}

TEST_F(Clock, TimerRunsOnAfterAFailure) {
  EXPECT_EQ(TimerAt(-1), 0);
  EXPECT_EQ(TimerAt(kNow), kNow);
  EXPECT_EQ(TimerAt(-1), 0);
  EXPECT_EQ(TimerAt(kNow - 1), kNow + 1);
}

// The first question makes the lock.
TEST_F(Clock, TimerStopsTheProgramWhereItsLockCannotBeMade) {
  const auto ask = [] {
    testhost::FailSystemCall(SYS_eventfd2, EMFILE);
    Hostinfo_SystemTimerUS();
  };
  EXPECT_EXIT(ask(), ::testing::ExitedWithCode(255),
              "Too many file descriptors are in use by the process\\.\n");
  EXPECT_EQ(TimerAt(kNow), kNow);
}

class UpTime : public hostinfotest::LoggingHost {
 protected:
  void EnterWith(const std::string &upTime) {
    host_.File(kUpTime, upTime);
    Enter();
  }

  static uint64_t After(const std::string &upTime) {
    testhost::WriteFile(kUpTime, upTime);
    return Hostinfo_SystemUpTime();
  }

  // The descriptors of the file that are open.
  static std::vector<int> Descriptors() {
    std::vector<int> found;
    for (int fd = 0; fd < 1000; fd++) {
      char target[PATH_MAX] = "";
      const ssize_t length =
          readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), target, sizeof target - 1);
      if (length > 0 && std::string(target).ends_with("/uptime")) {
        found.push_back(fd);
      }
    }
    return found;
  }

  static constexpr char kNoParse[] = "HOSTINFO: Failed to parse /proc/uptime";
};

TEST_F(UpTime, IsTheHosts) {
  Enter();
  timespec boot{};
  ASSERT_EQ(clock_gettime(CLOCK_BOOTTIME, &boot), 0);
  const double now = static_cast<double>(Hostinfo_SystemUpTime()) / 1e6;
  EXPECT_NEAR(now, static_cast<double>(boot.tv_sec), 60);
}

TEST_F(UpTime, IsReadAnewFromOneDescriptor) {
  EnterWith("12345.67 1.00\n");
  EXPECT_EQ(Hostinfo_SystemUpTime(), 12345670000U);
  ASSERT_EQ(Descriptors().size(), 1U);
  EXPECT_EQ(fcntl(Descriptors()[0], F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(After("12345.68 1.00\n"), 12345680000U);
  EXPECT_EQ(After("  7 "), 7000000U);
  EXPECT_EQ(After("0.00 0.00\n"), 0U);
  EXPECT_EQ(Descriptors().size(), 1U);
  EXPECT_EQ(CountLogged(kNoParse), 0U);
}

TEST_F(UpTime, OtherTextsAreNoTime) {
  EnterWith("1 1\n");
  EXPECT_EQ(Hostinfo_SystemUpTime(), 1000000U);
  size_t failures = 0;
  for (const char *text : {"", "soon", "-1 2", "nan", "inf", "1e300"}) {
    EXPECT_EQ(After(text), 0U) << text;
    EXPECT_EQ(CountLogged(kNoParse), ++failures) << text;
  }
  // No more than 255 bytes are read.
  EXPECT_EQ(After(std::string(254, ' ') + "78"), 7000000U);
  EXPECT_EQ(After(std::string(255, ' ') + "8"), 0U);
}

TEST_F(UpTime, IsAskedForUntilTheFileCanBeOpened) {
  EnterWith("5 5\n");
  rlimit before;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit none{0, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  EXPECT_EQ(Hostinfo_SystemUpTime(), 0U);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(CountLogged("HOSTINFO: Failed to open /proc/uptime: Too many open files"), 1U);
  EXPECT_EQ(Hostinfo_SystemUpTime(), 5000000U);
}

TEST_F(UpTime, AMissingFileIsAWarning) {
  host_.Remove(kUpTime);
  Enter();
  EXPECT_EQ(Hostinfo_SystemUpTime(), 0U);
  EXPECT_EQ(CountLogged("HOSTINFO: Failed to open /proc/uptime: No such file or directory"), 1U);
}

TEST_F(UpTime, IsReadAfreshWhereTheDescriptorHasGone) {
  EnterWith("5 5\n");
  EXPECT_EQ(Hostinfo_SystemUpTime(), 5000000U);
  ASSERT_EQ(Descriptors().size(), 1U);
  close(Descriptors()[0]);
  EXPECT_EQ(After("6 6\n"), 6000000U);
  EXPECT_EQ(After("7 7\n"), 7000000U);
  EXPECT_EQ(CountLogged("HOSTINFO: Failed to pread /proc/uptime: Bad file descriptor"), 1U);
  EXPECT_EQ(Descriptors().size(), 0U);
}

TEST_F(UpTime, AFailureToOpenAfreshGivesNothing) {
  EnterWith("5 5\n");
  EXPECT_EQ(Hostinfo_SystemUpTime(), 5000000U);
  ASSERT_EQ(Descriptors().size(), 1U);
  close(Descriptors()[0]);
  rlimit before;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit none{0, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  EXPECT_EQ(Hostinfo_SystemUpTime(), 0U);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(CountLogged("HOSTINFO: Failed to pread /proc/uptime: Bad file descriptor"), 1U);
  EXPECT_EQ(CountLogged("HOSTINFO: Failed to retry open /proc/uptime: Too many open files"), 1U);
}

TEST_F(UpTime, AFailureToReadAfreshGivesNothing) {
  EnterWith("5 5\n");
  testhost::FailSystemCall(SYS_pread64, EIO);
  EXPECT_EQ(Hostinfo_SystemUpTime(), 0U);
  EXPECT_EQ(Hostinfo_SystemUpTime(), 0U);
  EXPECT_EQ(CountLogged("HOSTINFO: Failed to pread /proc/uptime: Input/output error"), 1U);
  EXPECT_EQ(CountLogged("HOSTINFO: Failed to read /proc/uptime: Input/output error"), 2U);
  EXPECT_EQ(Descriptors().size(), 1U);
}

}  // namespace
