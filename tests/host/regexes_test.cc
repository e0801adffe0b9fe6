#include "regexes.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace testhost {
namespace {

using Groups = std::vector<std::string>;

TEST(Regexes, MatchesTheWholeTextOnly) {
  EXPECT_TRUE(RegexMatch("a12", "a\\d+"));
  EXPECT_FALSE(RegexMatch("a12 ", "a\\d+"));
  EXPECT_FALSE(RegexMatch(" a12", "a\\d+"));
  EXPECT_FALSE(RegexMatch("a12\n", "a\\d+"));
}

TEST(Regexes, FindsAPart) {
  EXPECT_TRUE(RegexSearch("see a12\n", "a\\d+"));
  EXPECT_FALSE(RegexSearch("see a\n", "a\\d+"));
  EXPECT_FALSE(RegexSearch("see a12", "^a\\d+"));
}

TEST(Regexes, GivesTheGroupsOfAWholeMatch) {
  EXPECT_EQ(RegexGroups("a12-x", "a(\\d+)-(y)?(x)"), (Groups{"a12-x", "12", "", "x"}));
  EXPECT_EQ(RegexGroups("a12-x.", "a(\\d+)-(y)?(x)"), Groups());
}

TEST(Regexes, ReplacesEachPart) {
  EXPECT_EQ(RegexReplace("1: a\n2: b\n", "(^|\n)\\d: ", "$1"), "a\nb\n");
  EXPECT_EQ(RegexReplace("a", "b", "c"), "a");
}

TEST(Regexes, KeepsPatternsApart) {
  for (int turn = 0; turn < 2; turn++) {
    EXPECT_TRUE(RegexMatch("a", "a"));
    EXPECT_FALSE(RegexMatch("a", "b"));
  }
}

TEST(Regexes, RefusesWhatIsNoPattern) {
  EXPECT_THROW(RegexMatch("a", "("), std::runtime_error);
}

}  // namespace
}  // namespace testhost
