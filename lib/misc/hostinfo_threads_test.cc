// Facts that are found once for all threads, and the clock that all of them share.

#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <string>
#include <thread>

#include "hostinfoPosix.h"
#include "hostinfoTime.h"
#include "threads.h"

using testhost::kThreads;
using testhost::OnEightThreads;

namespace {

// Whether the host's clock is set back now and then.
std::atomic<bool> unsteady;
std::atomic<int64_t> asked;
// How many threads ask it at once, and whether those were ever several.
std::atomic<int> asking;
std::atomic<bool> askedAtOnce;

}  // namespace

// A stand-in for the C library's, since the host's clock is everybody's.
extern "C" int gettimeofday(timeval *time, void * /*zone*/) noexcept {
  if (asking++ > 0) {
    askedAtOnce = true;
  }
  const auto result = static_cast<int>(syscall(SYS_gettimeofday, time, nullptr));
  if (unsteady) {
    const int64_t count = asked++;
    time->tv_sec -= count % 7 == 0 ? 3600 : count % 100;
    // Let others come in.
    if (count % 100 == 0) {
      std::this_thread::yield();
    }
  }
  asking--;
  return result;
}

// The C library's resolver has locks that can't be seen.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the name that the sanitizer asks for
extern "C" const char *__tsan_default_suppressions() {
  return "race:dynarray_emplace_enlarge\n";
}

namespace {

TEST(HostinfoThreads, AllGetTheNameOfTheFirst) {
  std::array<const char *, kThreads> names{};
  OnEightThreads([&](size_t thread) { names.at(thread) = Hostinfo_NameGet(); });
  ASSERT_NE(names[0], nullptr);
  EXPECT_STRNE(names[0], "");
  for (const char *name : names) {
    EXPECT_EQ(name, names[0]);
  }
}

TEST(HostinfoThreads, AllReadTheUpTimeFromOneDescriptor) {
  std::array<uint64_t, kThreads> times{};
  testing::internal::CaptureStderr();
  OnEightThreads([&](size_t thread) { times.at(thread) = Hostinfo_SystemUpTime(); });
  // Nobody reads from the one that it has closed.
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  for (const uint64_t time : times) {
    EXPECT_NEAR(static_cast<double>(time), static_cast<double>(times[0]), 60e6);
  }
  size_t descriptors = 0;
  for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    descriptors += std::filesystem::read_symlink(entry.path(), gone) == "/proc/uptime" ? 1 : 0;
  }
  EXPECT_EQ(descriptors, 1U);
}

// What one thread has read, no other reads an earlier time than behind it.
TEST(HostinfoThreads, TheTimerGoesBackwardForNone) {
  unsteady = true;
  askedAtOnce = false;
  std::atomic<int64_t> latest = 0;
  std::atomic<int> wrong = 0;
  OnEightThreads([&](size_t /*thread*/) {
    for (int i = 0; i < 5000; i++) {
      int64_t before = latest;
      const int64_t now = Hostinfo_SystemTimerUS();
      wrong += now < before ? 1 : 0;
      while (before < now && !latest.compare_exchange_weak(before, now)) {
      }
    }
  });
  EXPECT_EQ(wrong, 0);
  // Nobody comes to its reading while another one goes on.
  EXPECT_FALSE(askedAtOnce);
  EXPECT_GE(asked, 5000 * static_cast<int64_t>(kThreads));
}

}  // namespace
