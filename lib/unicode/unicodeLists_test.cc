#include "allocations.h"
#include "unicodeInt.h"
#include "unicodeTestInt.h"

namespace {

using unicodetest::kPanic;
using unicodetest::Utf16;

class UnicodeLists : public unicodetest::UnicodeHost {};

TEST_F(UnicodeLists, KeepTheirTerminator) {
  const char *const bytes[] = {"caf\xE9", "", "b", nullptr, "behind"};
  char **list = Unicode_AllocList(bytes, -1, STRING_ENCODING_ISO_8859_1);
  EXPECT_STREQ(list[0], "caf\xC3\xA9");
  EXPECT_STREQ(list[1], "");
  EXPECT_STREQ(list[2], "b");
  EXPECT_EQ(list[3], nullptr);

  char **back = Unicode_GetAllocList(list, -1, STRING_ENCODING_ISO_8859_1);
  EXPECT_STREQ(back[0], "caf\xE9");
  EXPECT_STREQ(back[2], "b");
  EXPECT_EQ(back[3], nullptr);
  Unicode_FreeList(back, -1);
  Unicode_FreeList(list, -1);
}

TEST_F(UnicodeLists, HaveTheLengthThatIsGiven) {
  const char *const bytes[] = {"a", nullptr, "c", "behind"};
  char **list = Unicode_AllocList(bytes, 3, STRING_ENCODING_UTF8);
  EXPECT_STREQ(list[0], "a");
  EXPECT_EQ(list[1], nullptr);
  EXPECT_STREQ(list[2], "c");
  char **back = Unicode_GetAllocList(list, 3, STRING_ENCODING_DEFAULT);
  EXPECT_STREQ(back[0], "a");
  EXPECT_EQ(back[1], nullptr);
  EXPECT_STREQ(back[2], "c");
  Unicode_FreeList(back, 3);
  Unicode_FreeList(list, 3);
}

TEST_F(UnicodeLists, MayBeEmpty) {
  const char *const bytes[] = {nullptr};
  char **list = Unicode_AllocList(bytes, -1, STRING_ENCODING_UTF8);
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(list[0], nullptr);
  Unicode_FreeList(list, -1);
  list = Unicode_AllocList(bytes, 0, STRING_ENCODING_UTF8);
  EXPECT_NE(list, nullptr);
  Unicode_FreeList(list, 0);
}

TEST_F(UnicodeLists, TakeWideBytes) {
  const std::string wide = Utf16({'a', 0x100, 0});
  const char *const bytes[] = {wide.data(), nullptr};
  char **list = Unicode_AllocList(bytes, -1, STRING_ENCODING_UTF16_LE);
  EXPECT_STREQ(list[0], "a\xC4\x80");
  Unicode_FreeList(list, -1);
}

TEST_F(UnicodeLists, ThatAreNullStayNull) {
  for (const ssize_t length : {0, -1}) {
    EXPECT_EQ(Unicode_AllocList(nullptr, length, STRING_ENCODING_UTF8), nullptr);
    EXPECT_EQ(Unicode_GetAllocList(nullptr, length, STRING_ENCODING_UTF8), nullptr);
    Unicode_FreeList(nullptr, length);
  }
  const char *const assertion = "ASSERT lib/unicode/unicodeLists\\.cc:[0-9]+";
  EXPECT_EXIT(Unicode_AllocList(nullptr, 1, STRING_ENCODING_UTF8), kPanic, assertion);
  EXPECT_EXIT(Unicode_GetAllocList(nullptr, 1, STRING_ENCODING_UTF8), kPanic, assertion);
  EXPECT_EXIT(Unicode_FreeList(nullptr, 1), kPanic, assertion);
}

TEST_F(UnicodeLists, AreAllOrNothing) {
  const Unicode strings[] = {"a", "b", "\xE2\x82\xAC", "c", nullptr};
  EXPECT_EQ(Unicode_GetAllocList(strings, -1, STRING_ENCODING_ISO_8859_1), nullptr);
  EXPECT_EQ(Unicode_GetAllocList(strings, 4, STRING_ENCODING_US_ASCII), nullptr);
}

TEST_F(UnicodeLists, AreNullWithoutMemory) {
  const Unicode strings[] = {"a", "b", nullptr};
  const auto convert = [&strings] {
    char **list = Unicode_GetAllocList(strings, -1, STRING_ENCODING_UTF8);
    if (list == nullptr) {
      return false;
    }
    Unicode_FreeList(list, -1);
    return true;
  };
  ASSERT_EQ(testhost::CountAllocations(convert), 3U);
  for (size_t i = 0; i < 3; i++) {
    const testhost::AllocationFault fault(i);
    EXPECT_FALSE(convert()) << i;
  }
  const testhost::AllocationFault fault(0);
  EXPECT_EQ(Unicode_AllocList(strings, -1, STRING_ENCODING_UTF8), nullptr);
}

}  // namespace
