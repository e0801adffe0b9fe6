// What the tests of the dictionary share.
#ifndef OST_USER_DICTIONARYTESTINT_H
#define OST_USER_DICTIONARYTESTINT_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <string>

#include "dictionary.h"
#include "log.h"
#include "msg.h"
#include "owned.h"
#include "panics.h"
#include "preference.h"
#include "testhost.h"

namespace dictionarytest {

inline const auto kPanics = ::testing::ExitedWithCode(255);
inline constexpr char kPath[] = "/t/file";

// An assertion of a source of the dictionary.
inline testing::Matcher<const std::string &> AssertIn(const std::string &file) {
  return testhost::Panics("^ASSERT lib/user/" + file + "\\.cc:[0-9]+\n$");
}

// A host with preferences and a log, and an empty dictionary.
class DictionaryHost : public ::testing::Test {
 protected:
  void SetUp() override {
    testhost::Host host;
    host.Directory("/t");
    host.Enter();
    Preference_DisablePolling();
    ASSERT_TRUE(Preference_Init());
    ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
    // Numbers in messages don't depend on what stands before the log's first line.
    Log("start\n");
    Logged();
  }

  Dictionary *Dict() const { return dict_.get(); }

  bool Load(const std::string &content, StringEncoding defaultEncoding = STRING_ENCODING_DEFAULT) const {
    testhost::WriteFile(kPath, content);
    return Dictionary_LoadWithDefaultEncoding(Dict(), kPath, defaultEncoding);
  }

  // The text that a save makes.
  std::string Saved() const {
    char *text = nullptr;
    size_t size = 0;
    EXPECT_TRUE(Dictionary_WriteToBuffer(Dict(), true, &text, &size));
    const OwnedString owned(text);
    if (text == nullptr || size == 0) {
      return "(null)";
    }
    EXPECT_EQ(text[size - 1], '\0');
    return {text, size - 1};
  }

  // What was loaded and saved without a change.
  std::string LoadedAndSaved(const std::string &content) const {
    EXPECT_TRUE(Load(content)) << content;
    return Saved();
  }

  std::string GetText(const char *name) const {
    const char *text = Dictionary_GetAsString(Dict(), name);
    return text == nullptr ? "(null)" : text;
  }

  // What the log got since the last call, without the lines' prefixes and the banner.
  std::string Logged() {
    const std::string log = testhost::ReadFile(Log_GetFileName());
    std::istringstream lines(log.substr(logSize_));
    logSize_ = log.size();
    std::string text;
    for (std::string line; std::getline(lines, line);) {
      const std::string prefix = ": app| ";
      const size_t at = line.find(prefix);
      line = at == std::string::npos ? line : line.substr(at + prefix.size());
      text += line + '\n';
    }
    return text;
  }

  // The messages that are pending, "[id] text" each, which then are no more.
  std::string Messages() {
    Logged();
    Msg_Reset(true);
    std::string text = Logged();
    const std::string head = "Msg_Reset:\n";
    const std::string tail = "----------------------------------------\n";
    if (text.empty()) {
      return text;
    }
    EXPECT_TRUE(text.starts_with(head) && text.ends_with(tail)) << text;
    return text.substr(head.size(), text.size() - head.size() - tail.size());
  }

  // What a post of these messages leaves in the log.
  static std::string Post(const std::string &title, const std::string &messages) {
    return "Msg_Post: " + title + "\n" + messages + "----------------------------------------\n";
  }

  // "name=value;" for each entry.
  std::string Entries(bool includeDefaults = false) const {
    std::string text;
    Dictionary_Iterate(
        Dict(),
        [](const char *name, const char *value, int /*index*/, void *data) {
          *static_cast<std::string *>(data) +=
              std::string(name) + "=" + (value == nullptr ? "(null)" : value) + ";";
        },
        &text, includeDefaults);
    return text;
  }

 private:
  OwnedDictionary dict_{Dictionary_Create()};
  size_t logSize_ = 0;
};

}  // namespace dictionarytest

#endif
