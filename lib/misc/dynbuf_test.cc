#include "dynbuf.h"

#include <gmock/gmock-matchers.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "allocations.h"
#include "owned.h"
#include "panics.h"

// A size that can't be had gives null under the sanitizer too.
extern "C" const char *__asan_default_options() {
  return "allocator_may_return_null=1";
}

namespace {

class Buffer : public DynBuf {
 public:
  Buffer() { DynBuf_Init(this); }
  ~Buffer() { DynBuf_Destroy(this); }
  Buffer(const Buffer &) = delete;
  Buffer &operator=(const Buffer &) = delete;
  std::string Text() const { return {data, size}; }
};

volatile size_t tooMuch = PTRDIFF_MAX;
volatile size_t beyondAll = SIZE_MAX - 1;

TEST(DynBuf, IsAllZeroAtFirstAndAfterDestroy) {
  Buffer buf;
  EXPECT_EQ(buf.data, nullptr);
  EXPECT_EQ(buf.size, 0U);
  EXPECT_EQ(buf.allocated, 0U);
  DynBuf_Append(&buf, "abc", 3);
  DynBuf_Destroy(&buf);
  EXPECT_EQ(buf.data, nullptr);
  EXPECT_EQ(buf.size, 0U);
  EXPECT_EQ(buf.allocated, 0U);
}

TEST(DynBuf, GrowsByDoublingThenBySteps) {
  Buffer buf;
  size_t expected = 1024;
  while (expected <= 0x40000) {
    EXPECT_TRUE(DynBuf_Enlarge(&buf, 1));
    EXPECT_EQ(buf.allocated, expected);
    expected *= 2;
  }
  EXPECT_TRUE(DynBuf_Enlarge(&buf, 1));
  EXPECT_EQ(buf.allocated, 0x80000U);
  EXPECT_TRUE(DynBuf_Enlarge(&buf, 1));
  EXPECT_EQ(buf.allocated, 0xC0000U);
}

TEST(DynBuf, EnlargesToTheSizeThatIsAskedWhenThatIsMore) {
  Buffer buf;
  EXPECT_TRUE(DynBuf_Enlarge(&buf, 5000));
  EXPECT_EQ(buf.allocated, 5000U);
  EXPECT_TRUE(DynBuf_Enlarge(&buf, 5001));
  EXPECT_EQ(buf.allocated, 10000U);
}

TEST(DynBuf, AppendsBytesOfAnyKind) {
  Buffer buf;
  std::string expected;
  for (int i = 0; i < 3000; i++) {
    const char bytes[] = {static_cast<char>(i), '\0', 'x'};
    EXPECT_TRUE(DynBuf_Append(&buf, bytes, sizeof bytes));
    expected.append(bytes, sizeof bytes);
  }
  EXPECT_EQ(buf.Text(), expected);
  EXPECT_EQ(buf.allocated, 16384U);
}

TEST(DynBuf, AppendOfNothingDoesNotLookAtThePointer) {
  Buffer buf;
  EXPECT_TRUE(DynBuf_Append(&buf, nullptr, 0));
  EXPECT_EQ(buf.data, nullptr);
}

TEST(DynBuf, AFailureLeavesTheOldBlock) {
  Buffer buf;
  DynBuf_Append(&buf, "keep", 4);
  const char *block = buf.data;
  EXPECT_FALSE(DynBuf_Realloc(&buf, tooMuch));
  EXPECT_FALSE(DynBuf_Enlarge(&buf, tooMuch));
  EXPECT_FALSE(DynBuf_Append(&buf, "x", tooMuch));
  // A sum that wraps around is no small size.
  EXPECT_FALSE(DynBuf_Append(&buf, "x", beyondAll));
  EXPECT_EQ(buf.data, block);
  EXPECT_EQ(buf.Text(), "keep");
  EXPECT_EQ(buf.allocated, 1024U);
}

TEST(DynBuf, LosesNothingWhenMemoryRunsOut) {
  Buffer buf;
  DynBuf_Append(&buf, "keep", 4);
  Buffer other;
  const std::string more(2000, 'x');
  const std::vector<std::function<bool()>> operations = {
      [&] { return DynBuf_Append(&buf, more.data(), more.size()); },
      [&] { return DynBuf_Enlarge(&buf, 1); },
      [&] { return DynBuf_Realloc(&buf, 5000); },
      [&] { return DynBuf_Trim(&buf); },
      [&] { return DynBuf_AllocGet(&buf) != nullptr; },
      [&] { return DynBuf_Copy(&buf, &other); },
  };
  for (const auto &operation : operations) {
    const testhost::AllocationFault fault(0);
    EXPECT_FALSE(operation());
    EXPECT_TRUE(fault.Happened());
    EXPECT_EQ(buf.Text(), "keep");
    EXPECT_EQ(buf.allocated, 1024U);
    EXPECT_EQ(other.data, nullptr);
  }
}

TEST(DynBuf, EnlargesByStepsFromTheBorderOn) {
  Buffer buf;
  EXPECT_TRUE(DynBuf_Realloc(&buf, 0x3FFFF));
  EXPECT_TRUE(DynBuf_Enlarge(&buf, 0));
  EXPECT_EQ(buf.allocated, 0x7FFFEU);
  EXPECT_TRUE(DynBuf_Realloc(&buf, 0x40000));
  EXPECT_TRUE(DynBuf_Enlarge(&buf, 0));
  EXPECT_EQ(buf.allocated, 0x80000U);
}

TEST(DynBuf, ReallocToNothingFreesTheBlock) {
  Buffer buf;
  DynBuf_Append(&buf, "abc", 3);
  EXPECT_TRUE(DynBuf_Realloc(&buf, 0));
  EXPECT_EQ(buf.data, nullptr);
  EXPECT_EQ(buf.allocated, 0U);
}

TEST(DynBuf, TrimGivesBackTheRest) {
  Buffer buf;
  DynBuf_Append(&buf, "abc", 3);
  EXPECT_TRUE(DynBuf_Trim(&buf));
  EXPECT_EQ(buf.allocated, 3U);
  EXPECT_EQ(buf.Text(), "abc");
}

TEST(DynBuf, DetachHandsTheBlockOver) {
  Buffer buf;
  DynBuf_Append(&buf, "abc", 4);
  const OwnedString text(static_cast<char *>(DynBuf_Detach(&buf)));
  EXPECT_STREQ(text.get(), "abc");
  EXPECT_EQ(buf.data, nullptr);
  EXPECT_EQ(buf.allocated, 0U);
  EXPECT_EQ(buf.size, 4U);
}

TEST(DynBuf, AttachTakesABlockOver) {
  Buffer buf;
  DynBuf_Append(&buf, "old", 3);
  DynBuf_Attach(&buf, 5, strdup("text"));
  EXPECT_EQ(buf.Text(), std::string("text\0", 5));
  EXPECT_EQ(buf.allocated, 5U);
}

TEST(DynBuf, AllocGetGivesACopyWithANulBehindIt) {
  Buffer buf;
  const OwnedString empty(static_cast<char *>(DynBuf_AllocGet(&buf)));
  EXPECT_STREQ(empty.get(), "");
  DynBuf_Append(&buf, "abc", 3);
  const OwnedString text(static_cast<char *>(DynBuf_AllocGet(&buf)));
  EXPECT_STREQ(text.get(), "abc");
  EXPECT_NE(text.get(), buf.data);
}

TEST(DynBuf, CopyAppendsTheContent) {
  Buffer from;
  Buffer to;
  EXPECT_TRUE(DynBuf_Copy(&from, &to));
  DynBuf_Append(&from, "def", 3);
  DynBuf_Append(&to, "abc", 3);
  EXPECT_TRUE(DynBuf_Copy(&from, &to));
  EXPECT_EQ(to.Text(), "abcdef");
  EXPECT_EQ(from.Text(), "def");
}

TEST(DynBuf, SafeAppendAppends) {
  Buffer buf;
  DynBuf_SafeAppend(&buf, "abc", 3);
  EXPECT_EQ(buf.Text(), "abc");
}

TEST(DynBufDeathTest, SafeAppendStopsTheProgramOnFailure) {
  Buffer buf;
  const int line = __LINE__ + 1;
  EXPECT_EXIT(DynBuf_SafeAppend(&buf, "x", beyondAll), testing::ExitedWithCode(255),
              testhost::Panics(
                  testing::EndsWith("Unrecoverable memory allocation failure at lib/misc/dynbuf_test.cc:" +
                                    std::to_string(line) + "\n")));
}

}  // namespace
