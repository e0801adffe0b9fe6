// The environment asked by eight threads at once.

#include <gtest/gtest.h>

#include <array>
#include <barrier>
#include <cstdlib>
#include <string>
#include <vector>

#include "posixPosix.h"
#include "threads.h"

using testhost::kThreads;
using testhost::OnEightThreads;

namespace {

std::string NameOf(int number) {
  return "OST_" + std::to_string(number);
}

// The table, the current encoding and each name's entry are made by whoever comes first.
TEST(PosixGetenvOnThreads, EachNameHasOneValue) {
  constexpr int kNames = 200;
  for (int i = 0; i < kNames; i++) {
    setenv(NameOf(i).c_str(), std::to_string(i).c_str(), 1);
  }
  std::array<std::vector<const char *>, kThreads> values;
  OnEightThreads([&](size_t thread) {
    for (int i = 0; i < kNames; i++) {
      values.at(thread).push_back(Posix_Getenv(NameOf(i).c_str()));
    }
  });
  for (size_t i = 0; i < kNames; i++) {
    EXPECT_STREQ(values[0][i], std::to_string(i).c_str());
    for (const auto &own : values) {
      EXPECT_EQ(own[i], values[0][i]);
    }
  }
}

// Each change is swapped in by one thread; the others take its string, and the one before stays readable.
TEST(PosixGetenvOnThreads, AChangedValueIsSwappedInOnce) {
  constexpr int kRounds = 500;
  std::array<const char *, kThreads> now{};
  std::array<const char *, kThreads> before{};
  int round = 0;
  // Between two rounds one thread looks at the last and changes the value, while all others wait.
  std::barrier next(kThreads, [&]() noexcept {
    for (const char *value : now) {
      EXPECT_EQ(value, now[0]);
      EXPECT_STREQ(value, round == 0 ? nullptr : std::to_string(round).c_str());
    }
    for (const char *value : before) {
      EXPECT_STREQ(value, round < 2 ? nullptr : std::to_string(round - 1).c_str());
    }
    round++;
    setenv("OST_A", std::to_string(round).c_str(), 1);
  });
  OnEightThreads([&](size_t thread) {
    next.arrive_and_wait();
    for (int i = 0; i < kRounds; i++) {
      before.at(thread) = now.at(thread);
      now.at(thread) = Posix_Getenv("OST_A");
      next.arrive_and_wait();
    }
  });
}

}  // namespace
