#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "err.h"
#include "threads.h"

namespace {

TEST(Err, EightThreadsGetTheSamePointers) {
  std::array<std::vector<const char *>, testhost::kThreads> seen;
  testhost::OnEightThreads([&seen](size_t thread) {
    for (int number = 0; number < 3000; number++) {
      seen.at(thread).push_back(Err_Errno2String(number));
    }
  });
  for (const std::vector<const char *> &texts : seen) {
    EXPECT_EQ(texts, seen[0]);
  }
  for (int number = 0; number < 3000; number++) {
    EXPECT_EQ(Err_String2Errno(seen[0][static_cast<size_t>(number)]), number);
  }
}

}  // namespace
