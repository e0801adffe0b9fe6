// What the tests of locks do with lock directories.
#ifndef OST_FILE_FILELOCKTESTINT_H
#define OST_FILE_FILELOCKTESTINT_H

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "fileLockInt.h"
#include "log.h"
#include "testhost.h"

namespace locktest {

// A machine that isn't this one: 12 bytes of zeros but for the last.
inline constexpr char kOtherMachine[] = "AAAAAAAAAAAAAAAB";

// The names in a directory, none when it is missing.
inline std::vector<std::string> Names(const std::string &directory) {
  std::vector<std::string> names;
  std::error_code missing;
  for (const auto &entry : std::filesystem::directory_iterator(directory, missing)) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

// Puts a member file of `size` bytes into a lock directory, which is made if it is missing.
inline void WriteMember(const std::string &lockDir, const std::string &name, std::string line,
                        size_t size = kMemberSize) {
  std::filesystem::create_directories(lockDir);
  line.resize(size);
  testhost::WriteFile(lockDir + "/" + name, line);
}

// The line of a member of this machine.
inline std::string LocalLine(pid_t pid, const std::string &rest) {
  return std::string(FileLockGetMachineID()) + " " + std::to_string(pid) + " " + rest;
}

inline std::string RemoteLine(const std::string &rest) {
  return std::string(kOtherMachine) + " 1 " + rest;
}

inline std::string LogText() {
  return testhost::ReadFile(Log_GetFileName());
}

inline bool Logged(const std::string &text) {
  return LogText().find(text) != std::string::npos;
}

inline double Seconds(const std::function<void()> &work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Waits until `condition` holds; a failure of the test when it doesn't within some seconds.
inline void Await(const std::function<bool()> &condition) {
  // What held once may be over when it is asked again.
  for (int turn = 0; turn < 2000; turn++) {
    if (condition()) {
      return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  ADD_FAILURE() << "What was awaited didn't come.";
}

// Runs `work` in a child process, whose exit status is its result.
inline pid_t Child(const std::function<int()> &work) {
  const pid_t pid = fork();
  if (pid == 0) {
    _exit(work());
  }
  EXPECT_GT(pid, 0);
  return pid;
}

inline int StatusOf(pid_t pid) {
  int status = 0;
  EXPECT_EQ(waitpid(pid, &status, 0), pid);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace locktest

#endif
