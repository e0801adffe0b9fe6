#include <cstdlib>

#include "allocations.h"
#include "unicodeInt.h"
#include "unicodeTestInt.h"

namespace {

using unicodetest::EnterHost;
using unicodetest::kPanic;
using unicodetest::Utf16;

class UnicodeInit : public unicodetest::UnicodeHost {};

// An argument or environment vector that a test may replace.
class Vector {
 public:
  explicit Vector(std::vector<std::string> words) : words_(std::move(words)) {
    for (std::string &word : words_) {
      pointers_.push_back(word.data());
    }
    pointers_.push_back(nullptr);
    vector_ = pointers_.data();
  }
  ~Vector() {
    if (IsReplaced()) {
      Unicode_FreeList(vector_, -1);
    }
  }
  Vector(const Vector &) = delete;
  Vector &operator=(const Vector &) = delete;

  char ***Address() { return &vector_; }
  [[nodiscard]] int Count() const { return static_cast<int>(words_.size()); }
  [[nodiscard]] bool IsReplaced() const { return vector_ != pointers_.data(); }
  [[nodiscard]] std::vector<std::string> Words() const {
    std::vector<std::string> words;
    for (char *const *word = vector_; *word != nullptr; word++) {
      words.emplace_back(*word);
    }
    return words;
  }

 private:
  std::vector<std::string> words_;
  std::vector<char *> pointers_;
  char **vector_;
};

using Words = std::vector<std::string>;

TEST(UnicodeInitInAnEncoding, MakesUtf8OfArgumentsAndEnvironment) {
  EnterHost("ISO-8859-1");
  Vector arguments({"prog", "caf\xE9", "", "plain"});
  Vector environment({"NAME=\xFC", "PLAIN=1"});
  Unicode_Init(arguments.Count(), arguments.Address(), environment.Address());
  EXPECT_TRUE(arguments.IsReplaced());
  EXPECT_EQ(arguments.Words(), (Words{"prog", "caf\xC3\xA9", "", "plain"}));
  EXPECT_EQ(environment.Words(), (Words{"NAME=\xC3\xBC", "PLAIN=1"}));
}

TEST_F(UnicodeInit, TakesUtf8ByDefault) {
  Vector arguments({"prog", "caf\xC3\xA9"});
  Unicode_Init(arguments.Count(), arguments.Address(), nullptr);
  EXPECT_TRUE(arguments.IsReplaced());
  EXPECT_EQ(arguments.Words(), (Words{"prog", "caf\xC3\xA9"}));
}

TEST_F(UnicodeInit, WorksOnce) {
  Vector arguments({"prog"});
  Unicode_Init(0, nullptr, nullptr);
  Unicode_Init(arguments.Count(), arguments.Address(), nullptr);
  EXPECT_FALSE(arguments.IsReplaced());
  // The engine's choice stays, too.
  Unicode_InitEx(0, nullptr, nullptr, "/t/icu");
  EXPECT_FALSE(CodeSet_IsEncodingSupported("IBM037"));
}

TEST_F(UnicodeInit, LooksForIcusData) {
  Unicode_InitEx(0, nullptr, nullptr, "/t/icu");
  EXPECT_TRUE(CodeSet_IsEncodingSupported("IBM037"));
}

TEST(UnicodeInitInAnEncoding, LeavesTheWorkToIconvForTheHostsEncoding) {
  EnterHost("IBM037");
  Vector arguments({"\x81\x82"});
  Unicode_InitEx(arguments.Count(), arguments.Address(), nullptr, "/t/icu");
  EXPECT_EQ(arguments.Words(), Words{"ab"});
  EXPECT_TRUE(CodeSet_IsEncodingSupported("IBM037"));
  EXPECT_FALSE(CodeSet_IsEncodingSupported("KOI8-R"));
}

TEST_F(UnicodeInit, TakesWideVectors) {
  std::string words[] = {Utf16({'p', 0}), Utf16({0x100, 0xD83D, 0xDE00, 0})};
  utf16_t *wide[] = {reinterpret_cast<utf16_t *>(words[0].data()),
                     reinterpret_cast<utf16_t *>(words[1].data()), nullptr};
  char **arguments = nullptr;
  char **environment = nullptr;
  Unicode_InitW(2, wide, wide + 1, &arguments, &environment);
  EXPECT_STREQ(arguments[0], "p");
  EXPECT_STREQ(arguments[1], "\xC4\x80\xF0\x9F\x98\x80");
  EXPECT_EQ(arguments[2], nullptr);
  EXPECT_STREQ(environment[0], "\xC4\x80\xF0\x9F\x98\x80");
  EXPECT_EQ(environment[1], nullptr);
  Unicode_FreeList(arguments, -1);
  Unicode_FreeList(environment, -1);
}

TEST_F(UnicodeInit, TakesNarrowVectorsInThePlaceOfMissingWideOnes) {
  Vector arguments({"prog"});
  Vector environment({"NAME=1"});
  Unicode_InitW(arguments.Count(), nullptr, nullptr, arguments.Address(), environment.Address());
  EXPECT_TRUE(arguments.IsReplaced());
  EXPECT_TRUE(environment.IsReplaced());
}

TEST(UnicodeInitInAnEncoding, StopsAtAnUnknownEncoding) {
  EnterHost("no-such-set");
  Vector arguments({"prog"});
  EXPECT_EXIT(Unicode_Init(arguments.Count(), arguments.Address(), nullptr), kPanic,
              "Unsupported local character encoding \"no-such-set\"\\.\n");
}

// Where the four lists are made, how often memory is given before.
size_t AllocationsBeforeLists() {
  Unicode_GetCurrentEncoding();
  return testhost::CountAllocations([] { CodeSet_Init(nullptr); });
}

TEST_F(UnicodeInit, StopsWithoutMemoryForAList) {
  const size_t before = AllocationsBeforeLists();
  Vector vector({"word"});
  std::string word = Utf16({'p', 0});
  utf16_t *wide[] = {reinterpret_cast<utf16_t *>(word.data()), nullptr};
  EXPECT_EXIT(
      {
        const testhost::AllocationFault fault(before);
        Unicode_InitW(1, wide, nullptr, vector.Address(), nullptr);
      },
      kPanic, "Unicode_AllocList1 failed\\.\n");
  EXPECT_EXIT(
      {
        const testhost::AllocationFault fault(before);
        Unicode_Init(1, vector.Address(), nullptr);
      },
      kPanic, "Unicode_AllocList2 failed\\.\n");
  EXPECT_EXIT(
      {
        const testhost::AllocationFault fault(before);
        Unicode_InitW(1, nullptr, wide, nullptr, vector.Address());
      },
      kPanic, "Unicode_AllocList3 failed\\.\n");
  EXPECT_EXIT(
      {
        const testhost::AllocationFault fault(before);
        Unicode_Init(1, nullptr, vector.Address());
      },
      kPanic, "Unicode_AllocList4 failed\\.\n");
}

TEST_F(UnicodeInit, StopsAtAnEnvironmentThatIsNull) {
  char **environment = nullptr;
  EXPECT_EXIT(Unicode_Init(0, nullptr, &environment), kPanic, "Unicode_AllocList4 failed\\.\n");
}

TEST_F(UnicodeInit, StopsAtArgumentsThatAreNull) {
  char **arguments = nullptr;
  char **environment = nullptr;
  EXPECT_EXIT(Unicode_Init(0, &arguments, &environment), kPanic,
              "ASSERT lib/unicode/unicodeLists\\.cc:[0-9]+");
}

TEST_F(UnicodeInit, StopsAtArgumentsThatCannotBeConverted) {
  Vector arguments({"prog", "caf\xC3"});
  EXPECT_EXIT(Unicode_Init(arguments.Count(), arguments.Address(), nullptr), kPanic, "PANIC lib/unicode");
  EXPECT_TRUE(Logged("Couldn't convert invalid buffer [caf\\xC3] from UTF-8 to Unicode.\n"));
}

// A start-up from a handler of the exit would wait for ever for a lock that is held.
TEST_F(UnicodeInit, ReleasesItsLockBeforeItStops) {
  char **environment = nullptr;
  EXPECT_EXIT(
      {
        atexit([] {
          Unicode_Init(0, nullptr, nullptr);
          fputs("started at the exit\n", stderr);
        });
        Unicode_Init(0, nullptr, &environment);
      },
      kPanic, "Unicode_AllocList4 failed\\.\n(.|\n)*started at the exit\n");
}

TEST(UnicodeInitInAnEncoding, IsNotNeededForTheCurrentEncoding) {
  EnterHost("ISO-8859-2");
  EXPECT_EQ(Unicode_GetCurrentEncoding(), STRING_ENCODING_ISO_8859_2);
  EXPECT_EQ(unicodetest::Text(Unicode_Alloc("\xB1", STRING_ENCODING_DEFAULT)), "\xC4\x85");
}

}  // namespace
