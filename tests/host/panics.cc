#include "panics.h"

#include <regex>

namespace testhost {

std::string WithoutPosts(const std::string &output) {
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

}  // namespace testhost
