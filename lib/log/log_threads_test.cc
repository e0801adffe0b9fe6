// The log shared by eight threads.

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "log.h"
#include "threads.h"

using testhost::kThreads;
using testhost::OnEightThreads;

namespace {

namespace fs = std::filesystem;

constexpr int kLines = 300;
constexpr size_t kBannerLines = 3;

class LogThreads : public testing::Test {
 protected:
  LogThreads() { EXPECT_NE(mkdtemp(directory_.data()), nullptr); }
  ~LogThreads() override {
    Log_Exit();
    fs::remove_all(directory_);
  }

  // rotateSize  bytes; 0 for no limit
  void Start(uint64_t rotateSize = 0) const {
    const std::string name = Path("a.log");
    LogInitParams params{};
    Log_GetInitDefaults(name.c_str(), nullptr, "setup", &params);
    params.rotateSize = rotateSize;
    params.keepOld = 1000;
    ASSERT_TRUE(Log_InitEx(&params));
  }

  std::string Path(const std::string &name) const { return directory_ + "/" + name; }

  // The texts of all lines of a file but the banner's.
  std::vector<std::string> Texts(const std::string &name) const {
    std::ifstream file(Path(name));
    std::vector<std::string> texts;
    size_t number = 0;
    for (std::string line; std::getline(file, line);) {
      if (number++ >= kBannerLines) {
        texts.push_back(line.substr(line.find("| ") + 2));
      }
    }
    return texts;
  }

  // Expects every line of every thread, whole and in that thread's order.
  static void ExpectAll(const std::vector<std::string> &texts) {
    std::array<int, kThreads> next{};
    for (const std::string &text : texts) {
      std::istringstream words(text);
      size_t thread = kThreads;
      int line = -1;
      std::string rest;
      words >> thread >> line >> rest;
      ASSERT_LT(thread, kThreads) << text;
      ASSERT_EQ(line, next.at(thread)++) << text;
      ASSERT_EQ(rest, Filling(thread, line));
    }
    for (const int count : next) {
      EXPECT_EQ(count, kLines);
    }
  }

  static std::string Filling(size_t thread, int line) {
    return std::string(static_cast<size_t>(1 + line % 150), static_cast<char>('a' + thread));
  }
  static void LogLines(size_t thread) {
    for (int line = 0; line < kLines; line++) {
      Log("%zu %d %s\n", thread, line, Filling(thread, line).c_str());
    }
  }

 private:
  std::string directory_ = "/tmp/log_threads.XXXXXX";
};

TEST_F(LogThreads, LoseAndMixNoLine) {
  Start();
  OnEightThreads(LogLines);
  ExpectAll(Texts("a.log"));
}

TEST_F(LogThreads, MayChangeTheFileMeanwhile) {
  Start();
  std::atomic<bool> done = false;
  std::thread changer([&] {
    for (int i = 0; !done; i++) {
      EXPECT_TRUE(Log_SetFile(Path(i % 2 == 0 ? "b.log" : "a.log").c_str(), nullptr, true));
      EXPECT_NE(Log_GetFileName(), nullptr);
      Log_SetAlwaysKeep(i % 2 == 0);
      Log_DisableThrottling();
    }
    EXPECT_TRUE(Log_SetFile(Path("end.log").c_str(), nullptr, true));
  });
  OnEightThreads(LogLines);
  done = true;
  changer.join();
  ExpectAll(Texts("end.log"));
}

TEST_F(LogThreads, MeetInRotations) {
  Start(20000);
  OnEightThreads(LogLines);
  std::vector<std::string> texts;
  int files = 0;
  while (fs::exists(Path("a-" + std::to_string(files) + ".log"))) {
    files++;
  }
  EXPECT_GT(files, 5);
  for (int number = files; number-- > 0;) {
    const auto part = Texts("a-" + std::to_string(number) + ".log");
    texts.insert(texts.end(), part.begin(), part.end());
  }
  const auto last = Texts("a.log");
  texts.insert(texts.end(), last.begin(), last.end());
  ExpectAll(texts);
}

TEST_F(LogThreads, ShareACounter) {
  Start();
  uint32_t count = 0;
  OnEightThreads([&count](size_t) {
    for (int i = 0; i < kLines; i++) {
      Log_Throttled(&count, "text\n");
    }
  });
  EXPECT_EQ(count, kThreads * kLines);
  EXPECT_EQ(Texts("a.log").size(), 99U + 24);
}

TEST_F(LogThreads, SetSwitchesMeanwhile) {
  Start();
  OnEightThreads([](size_t thread) {
    for (int i = 0; i < kLines; i++) {
      Log_SetQuietWarnings(true);
      EXPECT_TRUE(Log_GetQuietWarnings());
      EXPECT_TRUE(Log_Enabled());
      Warning("%zu\n", thread);
      Log_RegisterFunctions(nullptr, nullptr);
    }
  });
  EXPECT_EQ(Texts("a.log").size(), kThreads * kLines);
}

}  // namespace
