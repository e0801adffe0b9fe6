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
#include "panics.h"

// A size that can't be had gives null under the sanitizer too, which then says so on standard error.
extern "C" const char *__asan_default_options() {
  return "allocator_may_return_null=1";
}

namespace {

// The end of what is on standard error before the post of a panic.
testing::Matcher<const std::string &> PanicEnd(const std::string &end) {
  return testhost::Panics(testing::Matcher<const std::string &>(testing::EndsWith(end)));
}

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
  EXPECT_EXIT(Util_SafeMalloc(tooMuch), panics, PanicEnd(place + std::to_string(line) + "\n"));
  line = __LINE__ + 1;
  EXPECT_EXIT(Util_SafeRealloc(nullptr, tooMuch), panics, PanicEnd(place + std::to_string(line) + "\n"));
  line = __LINE__ + 1;
  EXPECT_EXIT(Util_SafeCalloc(tooMuch, 2), panics, PanicEnd(place + std::to_string(line) + "\n"));
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
          testing::ExitedWithCode(255), PanicEnd(text + end));
    }
  }
}

std::string Combined(const std::vector<const char *> &list) {
  return OwnedString(Util_CombineStrings(list.data(), list.size())).get();
}

std::vector<std::string> Separated(const std::string &text) {
  size_t count = 0;
  char **list = Util_SeparateStrings(text.c_str(), &count);
  std::vector<std::string> strings;
  for (size_t i = 0; i < count; i++) {
    strings.emplace_back(OwnedString(list[i]).get());
  }
  free(list);
  return strings;
}

using Strings = std::vector<std::string>;

TEST(CombineStrings, EscapesWhatTellsThemApart) {
  EXPECT_EQ(Combined({"a", "", "#b;c"}), "a#00#00#23b;c#00");
  EXPECT_EQ(Combined({}), "");
  EXPECT_EQ(Combined({""}), "#00");
}

TEST(SeparateStrings, GivesBackWhatWasCombined) {
  const Strings strings = {"", "#", "#00", "two words", "", "caf\xC3\xA9", ""};
  std::vector<const char *> list;
  list.reserve(strings.size());
  for (const std::string &string : strings) {
    list.push_back(string.c_str());
  }
  EXPECT_EQ(Separated(Combined(list)), strings);
  EXPECT_EQ(Separated(""), Strings{});
}

TEST(SeparateStrings, ReadsATextThatNobodyCombined) {
  EXPECT_EQ(Separated("a#00b"), (Strings{"a", "b"}));
  EXPECT_EQ(Separated("a#0"), (Strings{"a#0"}));
}

TEST(CombineStringsDeathTest, CannotFail) {
  const auto text = testhost::Panics("^MEM_ALLOC lib/misc/util_misc.cc:[0-9]+\n$");
  const auto withoutMemory = [](const auto &body) {
    const testhost::AllocationFault fault(0);
    body();
  };
  EXPECT_EXIT(withoutMemory([] { Combined({"a"}); }), testing::ExitedWithCode(255), text);
  EXPECT_EXIT(withoutMemory([] { Separated("a"); }), testing::ExitedWithCode(255), text);
}

}  // namespace
