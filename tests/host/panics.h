// What a program that panics writes on standard error.
//
//   EXPECT_EXIT(Path(nullptr), ExitedWithCode(255), testhost::Panics("^ASSERT lib/x\\.cc:[0-9]+\n$"));
//
// Behind its text a panic posts what happened to the user. This takes posts away wherever they stand, looks
// at each of them, and holds the rest against a regular expression or a matcher.
#ifndef OST_TESTS_HOST_PANICS_H
#define OST_TESTS_HOST_PANICS_H

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <utility>

namespace testhost {

// Takes the posts out of an output. What isn't posted as it should be stays.
std::string WithoutPosts(const std::string &output);

class Panics {
 public:
  using is_gtest_matcher = void;

  explicit Panics(testing::Matcher<const std::string &> text) : text_(std::move(text)) {}
  explicit Panics(const std::string &regex) : text_(testing::ContainsRegex(regex)) {}
  explicit Panics(const char *regex) : Panics(std::string(regex)) {}

  bool MatchAndExplain(const std::string &output, std::ostream *listener) const {
    const std::string rest = WithoutPosts(output);
    if (listener != nullptr) {
      *listener << "which is without its posts " << testing::PrintToString(rest);
    }
    return rest != output && text_.Matches(rest);
  }
  void DescribeTo(std::ostream *os) const {
    *os << "is posted, and without that ";
    text_.DescribeTo(os);
  }
  void DescribeNegationTo(std::ostream *os) const {
    *os << "isn't posted, or without that ";
    text_.DescribeNegationTo(os);
  }

 private:
  testing::Matcher<const std::string &> text_;
};

}  // namespace testhost

#endif
