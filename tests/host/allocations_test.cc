#include "allocations.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace {

void *volatile kept;

void AllocateThrice() {
  for (size_t i = 1; i <= 3; i++) {
    kept = malloc(i);
    free(kept);
  }
}

TEST(CountAllocations, CountsTheBodysOwn) {
  EXPECT_EQ(testhost::CountAllocations(AllocateThrice), 3U);
  EXPECT_EQ(testhost::CountAllocations([] {}), 0U);
}

TEST(AllocationFault, FailsTheChosenAllocationAlone) {
  for (size_t nth = 0; nth < 3; nth++) {
    const testhost::AllocationFault fault(nth);
    for (size_t i = 0; i < 3; i++) {
      EXPECT_EQ(fault.Happened(), i > nth);
      errno = 0;
      kept = malloc(8);
      EXPECT_EQ(kept == nullptr, i == nth);
      EXPECT_EQ(errno, i == nth ? ENOMEM : 0);
      free(kept);
    }
  }
}

TEST(AllocationFault, FailsEachOfTheFunctions) {
  {
    const testhost::AllocationFault fault(0);
    kept = calloc(2, 8);
    EXPECT_EQ(kept, nullptr);
  }
  {
    const testhost::AllocationFault fault(0);
    kept = realloc(nullptr, 16);
    EXPECT_EQ(kept, nullptr);
  }
  {
    const testhost::AllocationFault fault(0);
    kept = strdup("text");
    EXPECT_EQ(kept, nullptr);
  }
  {
    const testhost::AllocationFault fault(0);
    kept = strndup("text", 2);
    EXPECT_EQ(kept, nullptr);
  }
}

TEST(AllocationFault, LeavesOtherThreadsAlone) {
  const testhost::AllocationFault fault(0);
  std::thread([] {
    kept = malloc(8);
    EXPECT_NE(kept, nullptr);
    free(kept);
  }).join();
  EXPECT_FALSE(fault.Happened());
}

TEST(AllocationFault, EndsWithItsLife) {
  { const testhost::AllocationFault fault(0); }
  kept = malloc(8);
  EXPECT_NE(kept, nullptr);
  free(kept);
}

}  // namespace
