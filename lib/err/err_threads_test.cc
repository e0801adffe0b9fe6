#include <gtest/gtest.h>

#include <array>
#include <thread>
#include <vector>

#include "err.h"

namespace {

TEST(Err, EightThreadsGetTheSamePointers) {
  std::array<std::vector<const char *>, 8> seen;
  std::vector<std::thread> threads;
  threads.reserve(seen.size());
  for (std::vector<const char *> &texts : seen) {
    threads.emplace_back([&texts] {
      for (int number = 0; number < 3000; number++) {
        texts.push_back(Err_Errno2String(number));
      }
    });
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
  for (const std::vector<const char *> &texts : seen) {
    EXPECT_EQ(texts, seen[0]);
  }
  for (int number = 0; number < 3000; number++) {
    EXPECT_EQ(Err_String2Errno(seen[0][static_cast<size_t>(number)]), number);
  }
}

}  // namespace
