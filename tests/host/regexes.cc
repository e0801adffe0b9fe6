#include "regexes.h"

#include <map>
#include <regex>

namespace testhost {

namespace {

// Tests hold many lines against one pattern.
const std::regex &Compiled(const std::string &pattern) {
  thread_local std::map<std::string, std::regex> compiled;
  return compiled.try_emplace(pattern, pattern).first->second;
}

}  // namespace

bool RegexMatch(const std::string &text, const std::string &pattern) {
  return std::regex_match(text, Compiled(pattern));
}

bool RegexSearch(const std::string &text, const std::string &pattern) {
  return std::regex_search(text, Compiled(pattern));
}

std::vector<std::string> RegexGroups(const std::string &text, const std::string &pattern) {
  std::smatch match;
  std::regex_match(text, match, Compiled(pattern));
  return {match.begin(), match.end()};
}

std::string RegexReplace(const std::string &text, const std::string &pattern, const std::string &by) {
  return std::regex_replace(text, Compiled(pattern), by);
}

}  // namespace testhost
