// The names and the version of the host, asked for by eight threads at once.

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "hostinfoOs.h"
#include "threads.h"

using testhost::kThreads;
using testhost::OnEightThreads;

namespace {

// A directory whose lsb_release answers with a number of its own in each process, when it runs eight times at
// once or ten seconds have passed. It stands before all others on the path.
class Answers {
 public:
  Answers() {
    std::filesystem::create_directory(directory_);
    std::ofstream(Program()) << "#!/bin/sh\ncd '" << directory_.string() << "'\n: > run.$$\n"
                             << "for turn in $(seq 1000); do\n  set -- run.*\n"
                             << "  test $# -ge 8 && break\n  sleep 0.01\ndone\necho \"Gentoo $$\"\n";
    std::filesystem::permissions(Program(), std::filesystem::perms::owner_all);
    const std::string path = directory_.string() + ":" + getenv("PATH");
    setenv("PATH", path.c_str(), 1);
  }
  ~Answers() { std::filesystem::remove_all(directory_); }
  Answers(const Answers &) = delete;
  Answers &operator=(const Answers &) = delete;

  [[nodiscard]] long Runs() const {
    return std::distance(std::filesystem::directory_iterator(directory_), {}) - 1;
  }

 private:
  [[nodiscard]] std::filesystem::path Program() const { return directory_ / "lsb_release"; }

  const std::filesystem::path directory_ =
      std::filesystem::temp_directory_path() / ("hostinfoOs_threads_test-" + std::to_string(getpid()));
};

TEST(HostOSThreads, AllGetTheNamesOfTheFirst) {
  const Answers answers;
  std::array<std::string, kThreads> names;
  OnEightThreads([&](size_t thread) {
    char fullName[192];
    char shortName[64];
    ASSERT_TRUE(Hostinfo_GetOSName(sizeof fullName, sizeof shortName, fullName, shortName));
    names.at(thread) = std::string(fullName) + "|" + shortName;
  });
  EXPECT_NE(names[0].find(" Gentoo "), std::string::npos) << names[0];
  EXPECT_NE(names[0].find("|Gentoo"), std::string::npos) << names[0];
  for (const std::string &one : names) {
    EXPECT_EQ(one, names[0]);
  }
  // All searched at once.
  EXPECT_EQ(answers.Runs(), long{kThreads});
}

TEST(HostOSThreads, AllGetTheSameVersion) {
  std::array<const char *, kThreads> texts{};
  std::array<int, kThreads> majors{};
  OnEightThreads([&](size_t thread) {
    texts.at(thread) = Hostinfo_OSVersionString();
    majors.at(thread) = Hostinfo_OSVersion(0);
  });
  EXPECT_GT(majors[0], 0);
  for (size_t i = 0; i < kThreads; i++) {
    EXPECT_EQ(texts.at(i), texts[0]);
    EXPECT_EQ(majors.at(i), majors[0]);
  }
}

}  // namespace
