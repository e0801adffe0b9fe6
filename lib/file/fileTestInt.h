// The host that the tests of file operations live in.
#ifndef OST_FILE_FILETESTINT_H
#define OST_FILE_FILETESTINT_H

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "log.h"
#include "msg.h"
#include "owned.h"
#include "testhost.h"

inline constexpr uid_t kUser = 1234;

// A host with a file ("content"), an empty directory, and a place to mount on; the log is open.
class FileHost : public ::testing::Test {
 protected:
  void SetUp() override {
    testhost::Host host;
    host.Directory("/t").Directory("/t/dir").Directory("/t/small").File("/t/file", "content");
    Describe(host);
    host.Enter();
    umask(022);
    ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
    unsetenv("TMPDIR");
    log_.reset(fopen(Log_GetFileName(), "r"));
  }
  virtual void Describe(testhost::Host & /*host*/) {}

  // What an open file holds.
  static std::string TextOf(FILE *file) {
    rewind(file);
    std::string text(100000, '\0');
    text.resize(fread(text.data(), 1, text.size(), file));
    return text;
  }
  // What the log holds.
  std::string LogText() { return TextOf(log_.get()); }
  bool HasLogged(const std::string &text) { return LogText().find(text) != std::string::npos; }
  // Whether the text, which may be of several lines, is a message's; drops what is pending into the log
  // first.
  bool HasMessage(const std::string &text) {
    Msg_Reset(true);
    std::istringstream log(LogText());
    std::string messages;
    for (std::string line; std::getline(log, line);) {
      messages += line.substr(line.find("| ") + 2) + '\n';
    }
    return messages.find(text) != std::string::npos;
  }

  // Gives up root for the rest of the test.
  static void BecomeMemberOf(const std::vector<gid_t> &groups) {
    ASSERT_EQ(setgroups(groups.size(), groups.data()), 0);
    ASSERT_EQ(setresgid(kUser, kUser, kUser), 0);
    ASSERT_EQ(setresuid(kUser, kUser, kUser), 0);
  }

 private:
  // Open from the start, so that a test that became another user can still read it.
  OwnedStream log_;
};

// What stands in the names of files is Latin-1.
class FileHostLatin1 : public FileHost {
 protected:
  void Describe(testhost::Host & /*host*/) override { setenv("G_FILENAME_ENCODING", "ISO-8859-1", 1); }
};

// Names of files can be ASCII only.
class FileHostAscii : public FileHost {
 protected:
  void Describe(testhost::Host & /*host*/) override { setenv("G_FILENAME_ENCODING", "US-ASCII", 1); }
};

inline bool IsThere(const std::string &path) {
  return std::filesystem::exists(std::filesystem::symlink_status(path));
}

// A string that a function gave, or "null".
inline std::string Take(char *text) {
  const OwnedString owner(text);
  return text == nullptr ? "null" : text;
}

// Runs `body` in `count` processes at once and returns how many said that all was well.
inline int RunInProcesses(int count, const std::function<bool(int)> &body) {
  std::vector<pid_t> children;
  for (int number = 0; number < count; number++) {
    children.push_back(fork());
    if (children.back() == 0) {
      _exit(body(number) ? 0 : 1);
    }
  }
  int good = 0;
  for (const pid_t child : children) {
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    good += status == 0 ? 1 : 0;
  }
  return good;
}

#endif
