#include <cstring>

#include "allocations.h"
#include "owned.h"
#include "posixPosix.h"
#include "posixPosixTestInt.h"

namespace {

using posixtest::kNotLatin1;
using posixtest::kPanic;

TEST(PosixGetenv, UnsetIsNull) {
  unsetenv("OST_A");
  EXPECT_EQ(Posix_Getenv("OST_A"), nullptr);
}

TEST(PosixGetenv, NoNameIsNoVariable) {
  EXPECT_EQ(Posix_Getenv(nullptr), nullptr);
  EXPECT_EQ(Posix_Getenv(""), nullptr);
}

TEST(PosixGetenv, LeavesErrnoAlone) {
  setenv("OST_A", "1", 1);
  errno = ECHILD;
  EXPECT_STREQ(Posix_Getenv("OST_A"), "1");
  setenv("OST_A", "2", 1);
  errno = ECHILD;
  EXPECT_STREQ(Posix_Getenv("OST_A"), "2");
  EXPECT_EQ(errno, ECHILD);
}

TEST(PosixGetenv, SameValueGivesTheSamePointer) {
  setenv("CC", "gcc-4.1", 1);
  const char *first = Posix_Getenv("CC");
  EXPECT_STREQ(first, "gcc-4.1");
  EXPECT_EQ(Posix_Getenv("CC"), first);
  // The pointer isn't the environment's own, which a new value of the same length would overwrite.
  EXPECT_NE(first, getenv("CC"));
}

TEST(PosixGetenv, ValueStaysReadableUntilTheSecondChange) {
  setenv("CC", "one", 1);
  const char *first = Posix_Getenv("CC");
  setenv("CC", "two", 1);
  const char *second = Posix_Getenv("CC");
  EXPECT_STREQ(second, "two");
  EXPECT_STREQ(first, "one");
  setenv("CC", "three", 1);
  EXPECT_STREQ(Posix_Getenv("CC"), "three");
  EXPECT_STREQ(second, "two");
}

// Changes that nobody asked about in between don't count.
TEST(PosixGetenv, AChangeIsOneThatWasSeen) {
  setenv("CC", "one", 1);
  const char *first = Posix_Getenv("CC");
  for (const char *value : {"two", "three", "four"}) {
    setenv("CC", value, 1);
  }
  EXPECT_STREQ(Posix_Getenv("CC"), "four");
  EXPECT_STREQ(first, "one");
}

TEST(PosixGetenv, UnsettingKeepsWhatWasHandedOut) {
  setenv("CC", "one", 1);
  const char *first = Posix_Getenv("CC");
  unsetenv("CC");
  EXPECT_EQ(Posix_Getenv("CC"), nullptr);
  EXPECT_STREQ(first, "one");
  setenv("CC", "one", 1);
  EXPECT_EQ(Posix_Getenv("CC"), first);
}

TEST(PosixGetenv, NamesAreKeptApart) {
  setenv("OST_A", "a", 1);
  setenv("OST_B", "b", 1);
  const char *first = Posix_Getenv("OST_A");
  EXPECT_STREQ(Posix_Getenv("OST_B"), "b");
  EXPECT_EQ(Posix_Getenv("OST_A"), first);
  setenv("ost_a", "a", 1);
  EXPECT_NE(Posix_Getenv("ost_a"), first);
  EXPECT_EQ(Posix_Getenv("OST_A"), first);
}

TEST(PosixGetenv, TheCallersNameIsNotKept) {
  setenv("OST_A", "a", 1);
  char name[] = "OST_A";
  const char *first = Posix_Getenv(name);
  name[4] = 'B';
  EXPECT_EQ(Posix_Getenv("OST_A"), first);
}

// More names than the table has buckets.
TEST(PosixGetenv, ManyNamesKeepTheirValues) {
  std::vector<const char *> values;
  const auto name = [](int number) { return "OST_" + std::to_string(number); };
  for (int i = 0; i < 300; i++) {
    setenv(name(i).c_str(), std::to_string(i).c_str(), 1);
    values.push_back(Posix_Getenv(name(i).c_str()));
  }
  for (int i = 0; i < 300; i++) {
    EXPECT_STREQ(values[static_cast<size_t>(i)], std::to_string(i).c_str());
    EXPECT_EQ(Posix_Getenv(name(i).c_str()), values[static_cast<size_t>(i)]);
  }
}

TEST(PosixGetenv, NameAndValueAreConverted) {
  posixtest::UseLatin1();
  setenv("OST_" LATIN1_NAME, LATIN1_NAME, 1);
  const char *value = Posix_Getenv("OST_" NAME);
  EXPECT_STREQ(value, NAME);
  EXPECT_EQ(Posix_Getenv("OST_" NAME), value);
}

TEST(PosixGetenv, AValueThatIsNoTextIsNull) {
  setenv("OST_A", LATIN1_NAME, 1);
  EXPECT_FAILS(nullptr, EINVAL, Posix_Getenv("OST_A"));
  setenv("OST_A", NAME, 1);
  EXPECT_STREQ(Posix_Getenv("OST_A"), NAME);
}

TEST(PosixGetenv, LackOfMemoryForTheValueIsNull) {
  setenv("OST_A", "a", 1);
  const char *value = Posix_Getenv("OST_A");
  {
    const testhost::AllocationFault fault(0);
    EXPECT_FAILS(nullptr, EINVAL, Posix_Getenv("OST_A"));
  }
  EXPECT_EQ(Posix_Getenv("OST_A"), value);
}

TEST(PosixGetenv, LackOfMemoryForTheTableStopsTheProgram) {
  setenv("OST_A", "a", 1);
  setenv("OST_B", "b", 1);
  EXPECT_STREQ(Posix_Getenv("OST_A"), "a");
  const size_t count = [] {
    setenv("OST_C", "c", 1);
    return testhost::CountAllocations([] { Posix_Getenv("OST_C"); });
  }();
  ASSERT_GE(count, 3U);
  for (size_t i = 1; i < count; i++) {
    EXPECT_EXIT(
        {
          const testhost::AllocationFault fault(i);
          Posix_Getenv("OST_B");
        },
        kPanic, "Unrecoverable memory allocation failure at lib/misc/");
  }
}

TEST(PosixEnvironment, TextsAreConverted) {
  posixtest::UseLatin1();
  EXPECT_EQ(Posix_Setenv("OST_" NAME, NAME, 0), 0);
  EXPECT_STREQ(getenv("OST_" LATIN1_NAME), LATIN1_NAME);
  EXPECT_EQ(Posix_Setenv("OST_" NAME, "other", 0), 0);
  EXPECT_STREQ(getenv("OST_" LATIN1_NAME), LATIN1_NAME);
  EXPECT_EQ(Posix_Setenv("OST_" NAME, "other", 1), 0);
  EXPECT_STREQ(getenv("OST_" LATIN1_NAME), "other");
  EXPECT_EQ(Posix_Unsetenv("OST_" NAME), 0);
  EXPECT_EQ(getenv("OST_" LATIN1_NAME), nullptr);
}

TEST(PosixEnvironment, BadTextChangesNothing) {
  posixtest::UseLatin1();
  EXPECT_FAILS(-1, EINVAL, Posix_Setenv("OST_A", kNotLatin1, 1));
  EXPECT_EQ(getenv("OST_A"), nullptr);
}

TEST(PosixEnvironment, BadNamesAreTheSystemsToRefuse) {
  EXPECT_FAILS(-1, EINVAL, Posix_Setenv("", "a", 1));
  EXPECT_FAILS(-1, EINVAL, Posix_Setenv("A=B", "a", 1));
  EXPECT_FAILS(-1, EINVAL, Posix_Setenv(nullptr, "a", 1));
  EXPECT_FAILS(-1, EFAULT, Posix_Setenv("OST_A", nullptr, 1));
  EXPECT_FAILS(-1, EINVAL, Posix_Unsetenv(nullptr));
}

TEST(PosixEnvironment, PutenvGivesThePointerAway) {
  static char text[] = "OST_A=one";
  EXPECT_EQ(Posix_Putenv(text), 0);
  EXPECT_EQ(getenv("OST_A"), text + strlen("OST_A="));
  text[strlen("OST_A=")] = 'O';
  EXPECT_STREQ(Posix_Getenv("OST_A"), "One");
}

TEST(PosixEnvironment, PutenvTakesAsciiOnly) {
  static char ascii[] = "OST_A=\x7F";
  EXPECT_EQ(Posix_Putenv(ascii), 0);
  static char text[] = "OST_A=\x80";
  EXPECT_EXIT(Posix_Putenv(text), kPanic, "ASSERT lib/misc/posixPosixEnvironment\\.cc:[0-9]+");
  EXPECT_EXIT(Posix_Putenv(nullptr), kPanic, "ASSERT lib/misc/posixPosixEnvironment\\.cc:[0-9]+");
}

}  // namespace
