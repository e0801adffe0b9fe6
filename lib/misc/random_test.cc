#include "random.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "log.h"
#include "owned.h"
#include "testhost.h"

namespace {

using OwnedState = std::unique_ptr<RandomQuickState, Releaser<free>>;

std::vector<uint32_t> Words(uint32_t seed, int skip, size_t count) {
  const OwnedState state(Random_QuickSeed(seed));
  for (int i = 0; i < skip; i++) {
    Random_Quick(state.get());
  }
  std::vector<uint32_t> words(count);
  for (uint32_t &word : words) {
    word = Random_Quick(state.get());
  }
  return words;
}

TEST(RandomQuick, GivesTheGeneratorsSequence) {
  EXPECT_EQ(Words(0, 0, 3), (std::vector<uint32_t>{0x33c2a07e, 0x55ee93b7, 0x40bd28c3}));
  EXPECT_EQ(Words(0, 1000, 3), (std::vector<uint32_t>{0xfba898e1, 0x4af0ddc5, 0xdc8ae7d2}));
  EXPECT_EQ(Words(12345, 0, 3), (std::vector<uint32_t>{0x6c270396, 0x0a0b305f, 0x1f588b2b}));
  EXPECT_EQ(Words(0xFFFFFFFF, 24, 3), (std::vector<uint32_t>{0xecc96171, 0x02223bd7, 0x76454c99}));
}

TEST(RandomQuick, StatesDoNotShareASequence) {
  const OwnedState one(Random_QuickSeed(7));
  const uint32_t first = Random_Quick(one.get());
  const OwnedState two(Random_QuickSeed(7));
  EXPECT_EQ(Random_Quick(two.get()), first);
  EXPECT_EQ(Random_Quick(one.get()), Random_Quick(two.get()));
}

TEST(RandomCrypto, FillsTheWholeBufferAndNoMore) {
  std::string one(100001, 'x');
  std::string two(100001, 'x');
  EXPECT_TRUE(Random_Crypto(100000, one.data()));
  EXPECT_TRUE(Random_Crypto(100000, two.data()));
  EXPECT_EQ(one.back(), 'x');
  // No part was left as it was, and no two calls give the same.
  EXPECT_EQ(one.find(std::string(16, 'x')), std::string::npos);
  EXPECT_NE(one.substr(99900), two.substr(99900));
}

TEST(RandomCrypto, FillsNothingWhenNothingIsAsked) {
  char byte = 'x';
  EXPECT_TRUE(Random_Crypto(0, &byte));
  EXPECT_EQ(byte, 'x');
}

TEST(RandomCrypto, LogsADeviceThatGivesTooLittle) {
  testhost::Host host;
  host.Enter();
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  ASSERT_EQ(mount("/dev/null", "/dev/urandom", nullptr, MS_BIND, nullptr), 0);
  uint32_t number = 5;
  // What an earlier call left behind says nothing of this one.
  errno = EINTR;
  EXPECT_FALSE(Random_Crypto(sizeof number, &number));
  EXPECT_NE(testhost::ReadFile(Log_GetFileName()).find("| Random_Crypto: Short read: 0\n"),
            std::string::npos);
}

TEST(RandomCrypto, LogsAMissingDevice) {
  testhost::Host host;
  host.Enter();
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  ASSERT_EQ(mount("none", "/dev", "tmpfs", 0, nullptr), 0);
  uint32_t number = 5;
  EXPECT_FALSE(Random_Crypto(sizeof number, &number));
  EXPECT_EQ(number, 5U);
  EXPECT_NE(testhost::ReadFile(Log_GetFileName()).find("| Random_Crypto: Failed to open random device: 2\n"),
            std::string::npos);
}

}  // namespace
