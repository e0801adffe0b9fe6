// Threads that lock share the machine's identity, the random numbers, and the mask of the process.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <string>

#include "fileLock.h"
#include "threads.h"

namespace {

namespace fs = std::filesystem;

class FileLockThreads : public ::testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/fileLockThreads-XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    directory_ = name;
  }
  void TearDown() override { fs::remove_all(directory_); }

  // Lets each thread lock the file of its number and give it back, many times.
  template <typename Path, typename Work>
  static void LockInThreads(int turns, Path path, Work work) {
    testhost::OnEightThreads([&](size_t number) {
      const std::string file = path(number);
      for (int turn = 0; turn < turns; turn++) {
        int error = -1;
        void *token = FileLock_Lock(file.c_str(), false, FILELOCK_INFINITE_WAIT, &error);
        ASSERT_NE(token, nullptr) << error;
        work();
        EXPECT_EQ(FileLock_Unlock(file.c_str(), token), 0);
      }
    });
  }

  std::string directory_;
};

TEST_F(FileLockThreads, FilesOfTheirOwnLeaveNothingAndTheMaskAsItWas) {
  umask(027);
  LockInThreads(
      300, [this](size_t number) { return directory_ + "/f" + std::to_string(number); }, [] {});
  EXPECT_EQ(umask(022), 027U);
  EXPECT_TRUE(fs::is_empty(directory_));
}

TEST_F(FileLockThreads, OneFileIsHeldByOneOfThem) {
  std::atomic<int> holders = 0;
  size_t turns = 0;
  LockInThreads(
      2, [this](size_t) { return directory_ + "/f"; },
      [&] {
        EXPECT_EQ(++holders, 1);
        turns++;
        holders--;
      });
  EXPECT_EQ(turns, testhost::kThreads * 2);
  EXPECT_TRUE(fs::is_empty(directory_));
}

}  // namespace
