// Regular expressions of ECMAScript. What <regex> does is templates, which take each source that uses them
// seconds to compile; here they are compiled once.
#ifndef OST_TESTS_HOST_REGEXES_H
#define OST_TESTS_HOST_REGEXES_H

#include <string>
#include <vector>

namespace testhost {

// Whether the whole text matches.
bool RegexMatch(const std::string &text, const std::string &pattern);
// Whether a part of the text matches.
bool RegexSearch(const std::string &text, const std::string &pattern);
// If the whole text matches, it and then what each group took; otherwise nothing.
std::vector<std::string> RegexGroups(const std::string &text, const std::string &pattern);
// The text with each part that matches replaced; `$1` in `by` is what the first group took.
std::string RegexReplace(const std::string &text, const std::string &pattern, const std::string &by);

}  // namespace testhost

#endif
