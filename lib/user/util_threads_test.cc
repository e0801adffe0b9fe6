#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <barrier>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "owned.h"
#include "util.h"

namespace {

TEST(SafeTmpDirThreads, EightThreadsGetOneDirectory) {
  char base[] = "/tmp/util-threads-XXXXXX";
  ASSERT_NE(mkdtemp(base), nullptr);
  setenv("TMPDIR", base, 1);
  // Refused, so that whoever comes first makes one with a random name.
  const char *user = getuid() == 0 ? "root" : getenv("USER");
  ASSERT_EQ(mkdir((std::string(base) + "/ostrel-" + user).c_str(), 0755), 0);
  std::array<std::string, 8> seen;
  std::barrier start(seen.size());
  std::vector<std::thread> threads;
  threads.reserve(seen.size());
  for (std::string &path : seen) {
    threads.emplace_back([&start, &path] {
      start.arrive_and_wait();
      for (int i = 0; i < 50; i++) {
        path = OwnedString(Util_GetSafeTmpDir(true)).get();
      }
    });
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
  for (const std::string &path : seen) {
    EXPECT_EQ(path, seen[0]);
  }
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(base), {}), 2);
  std::filesystem::remove_all(base);
}

TEST(Crc32Threads, EightThreadsBuildOneTable) {
  std::array<uint32_t, 8> sums{};
  std::vector<std::thread> threads;
  threads.reserve(sums.size());
  for (uint32_t &sum : sums) {
    threads.emplace_back([&sum] { sum = Util_CRC32("123456789", 9); });
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
  for (const uint32_t sum : sums) {
    EXPECT_EQ(sum, 0xCBF43926U);
  }
}

}  // namespace
