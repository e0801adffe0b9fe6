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
#include <regex>
#include <string>
#include <utility>

namespace testhost {

// Takes the posts out of an output. What isn't posted as it should be stays.
inline std::string WithoutPosts(const std::string &output) {
  static const std::regex kPost(
      "\n[^\n]* Error:\n(?:[^]*?\n)??[^\n]* unrecoverable error: \\([^\n]*\\)\n"
      "([^]*?)(?:A log file is available in \"[^\n]*\"\\.  )?(?:A core file is available in \"[^\n]*\"\\.  )?"
      "You can request support[^.]*\\.  \nTo collect data to submit to Ostrel support, [^\n]*\n"
      "We will respond on the basis of your support entitlement\\.\n\n");
  std::string rest;
  std::string left = output;
  std::smatch post;
  while (std::regex_search(left, post, kPost)) {
    const std::string before = post.prefix();
    // The post repeats the panic's text.
    const bool repeats = before.ends_with(post.str(1));
    rest += repeats ? before : before + post.str(0);
    left = post.suffix();
  }
  return rest + left;
}

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
