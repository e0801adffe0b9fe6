#include "util_misc.h"

#include <gmock/gmock-matchers.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "allocations.h"
#include "owned.h"

// A size that can't be had gives null under the sanitizer too, which then says so on standard error.
extern "C" const char *__asan_default_options() {
  return "allocator_may_return_null=1";
}

namespace {

volatile size_t tooMuch = PTRDIFF_MAX;

TEST(UtilSafe, GivesBlocksThatFreeFrees) {
  OwnedString block(static_cast<char *>(Util_SafeMalloc(10)));
  memset(block.get(), 'x', 10);
  block.reset(static_cast<char *>(Util_SafeRealloc(block.release(), 1000)));
  EXPECT_EQ(memcmp(block.get(), "xxxxxxxxxx", 10), 0);
  const OwnedString zeros(static_cast<char *>(Util_SafeCalloc(4, 4)));
  EXPECT_EQ(memcmp(zeros.get(), "\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 16), 0);
}

TEST(UtilSafe, CopiesStrings) {
  const OwnedString whole(Util_SafeStrdup("text"));
  EXPECT_STREQ(whole.get(), "text");
  const OwnedString part(Util_SafeStrndup("text", 2));
  EXPECT_STREQ(part.get(), "te");
  const OwnedString longer(Util_SafeStrndup("text", 100));
  EXPECT_STREQ(longer.get(), "text");
  EXPECT_EQ(Util_SafeStrdup(nullptr), nullptr);
  EXPECT_EQ(Util_SafeStrndup(nullptr, 5), nullptr);
}

TEST(UtilSafe, ASizeOfNothingIsNoFailure) {
  free(Util_SafeMalloc(0));
  free(Util_SafeCalloc(0, 8));
  free(Util_SafeCalloc(8, 0));
  // Frees the block, and may well give null.
  free(Util_SafeRealloc(Util_SafeMalloc(8), 0));
}

TEST(UtilSafe, ASizeOfNothingMayGiveNull) {
  const std::vector<std::function<void *()>> family = {
      [] { return Util_SafeMalloc(0); },
      [] { return Util_SafeRealloc(nullptr, 0); },
      [] { return Util_SafeCalloc(0, 8); },
      [] { return Util_SafeCalloc(8, 0); },
  };
  for (const auto &allocate : family) {
    const testhost::AllocationFault fault(0);
    EXPECT_EQ(allocate(), nullptr);
    EXPECT_TRUE(fault.Happened());
  }
}

TEST(UtilSafeDeathTest, AllocationFailureStopsTheProgram) {
  const auto panics = testing::ExitedWithCode(255);
  const std::string place = "Unrecoverable memory allocation failure at lib/misc/util_misc_test.cc:";
  int line = __LINE__ + 1;
  EXPECT_EXIT(Util_SafeMalloc(tooMuch), panics, testing::EndsWith(place + std::to_string(line) + "\n"));
  line = __LINE__ + 1;
  EXPECT_EXIT(Util_SafeRealloc(nullptr, tooMuch), panics,
              testing::EndsWith(place + std::to_string(line) + "\n"));
  line = __LINE__ + 1;
  EXPECT_EXIT(Util_SafeCalloc(tooMuch, 2), panics, testing::EndsWith(place + std::to_string(line) + "\n"));
}

TEST(UtilSafeDeathTest, EveryMemberOfTheFamilyStopsTheProgram) {
  const std::vector<std::function<void(int)>> family = {
      [](int bug) { free(UtilSafeMallocInt(bug, 1, "some/file.cc", 12)); },
      [](int bug) { free(UtilSafeReallocInt(bug, nullptr, 1, "some/file.cc", 12)); },
      [](int bug) { free(UtilSafeCallocInt(bug, 1, 1, "some/file.cc", 12)); },
      [](int bug) { free(UtilSafeStrdupInt(bug, "", "some/file.cc", 12)); },
      [](int bug) { free(UtilSafeStrndupInt(bug, "", 0, "some/file.cc", 12)); },
  };
  const std::string text = "Unrecoverable memory allocation failure at some/file.cc:12";
  for (const auto &[bug, end] :
       {std::pair(-1, "\n"), {0, ".  Bug number: 0\n"}, {4711, ".  Bug number: 4711\n"}}) {
    for (const auto &allocate : family) {
      allocate(bug);
      EXPECT_EXIT(
          {
            const testhost::AllocationFault fault(0);
            allocate(bug);
          },
          testing::ExitedWithCode(255), testing::EndsWith(text + end));
    }
  }
}

}  // namespace
