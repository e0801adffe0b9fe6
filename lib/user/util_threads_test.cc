#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "owned.h"
#include "threads.h"
#include "util.h"

using testhost::kThreads;
using testhost::OnEightThreads;

namespace {

TEST(SafeTmpDirThreads, EightThreadsGetOneDirectory) {
  char base[] = "/tmp/util-threads-XXXXXX";
  ASSERT_NE(mkdtemp(base), nullptr);
  setenv("TMPDIR", base, 1);
  // Refused, so that whoever comes first makes one with a random name.
  const char *user = getuid() == 0 ? "root" : getenv("USER");
  ASSERT_EQ(mkdir((std::string(base) + "/ostrel-" + user).c_str(), 0755), 0);
  std::array<std::string, kThreads> seen;
  OnEightThreads([&seen](size_t thread) {
    for (int i = 0; i < 50; i++) {
      seen.at(thread) = OwnedString(Util_GetSafeTmpDir(true)).get();
    }
  });
  for (const std::string &path : seen) {
    EXPECT_EQ(path, seen[0]);
  }
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(base), {}), 2);
  std::filesystem::remove_all(base);
}

TEST(Crc32Threads, EightThreadsBuildOneTable) {
  std::array<uint32_t, kThreads> sums{};
  OnEightThreads([&sums](size_t thread) { sums.at(thread) = Util_CRC32("123456789", 9); });
  for (const uint32_t sum : sums) {
    EXPECT_EQ(sum, 0xCBF43926U);
  }
}

}  // namespace
