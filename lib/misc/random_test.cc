#include "random.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "allocations.h"
#include "log.h"
#include "owned.h"
#include "testhost.h"

namespace {
bool failClose = false;
}

// No device can be made to fail at its end, so the call is.
extern "C" int close(int fd) {
  const auto result = static_cast<int>(syscall(SYS_close, fd));
  if (failClose) {
    errno = EIO;
    return -1;
  }
  return result;
}

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

// The generator as its authors wrote it, which renews all words at once.
class Tt800 {
 public:
  explicit Tt800(uint32_t seed) {
    for (uint32_t &word : words_) {
      word ^= seed;
    }
  }

  uint32_t Next() {
    if (next_ == words_.size()) {
      Renew();
    }
    uint32_t y = words_.at(next_++);
    y ^= (y << 7) & 0x2b5b2500;
    y ^= (y << 15) & 0xdb8b0000;
    return y ^ (y >> 16);
  }

 private:
  void Renew() {
    for (size_t n = 0; n < words_.size(); n++) {
      const uint32_t word = words_.at(n);
      words_.at(n) = words_.at((n + 7) % 25) ^ (word >> 1) ^ (word % 2 == 0 ? 0 : 0x8ebfd028);
    }
    next_ = 0;
  }

  std::array<uint32_t, 25> words_ = {
      0x95f24dab, 0x0b685215, 0xe76ccae7, 0xaf3ec239, 0x715fad23, 0x24a590ad, 0x69e4b5ef,
      0xbf456141, 0x96bc1b7b, 0xa7bdf825, 0xc1de75b7, 0x8858a9c9, 0x2da87693, 0xb657f9dd,
      0xffdc8a9f, 0x8121da71, 0x8b823ecb, 0x885d05f5, 0x4e20cd47, 0x5a9ad5d9, 0x512c0c03,
      0xea857ccd, 0x4cc1d30f, 0x8891a8a1, 0xa6b7aadb,
  };
  size_t next_ = 25;
};

TEST(RandomQuick, GivesTheGeneratorsSequence) {
  // The well-known check of this generator is the 10000th word of its initial table, the 25 words of the
  // table counted in. We start behind those.
  EXPECT_EQ(Words(0, 10000 - 25 - 1, 1), std::vector<uint32_t>{2856609219});
  EXPECT_EQ(Words(0, 0, 3), (std::vector<uint32_t>{0x33c2a07e, 0x55ee93b7, 0x40bd28c3}));
}

TEST(RandomQuick, GivesTheGeneratorsSequenceForEverySeed) {
  for (const uint32_t seed : {0U, 1U, 12345U, 0x80000000U, 0xFFFFFFFFU}) {
    const OwnedState state(Random_QuickSeed(seed));
    Tt800 generator(seed);
    for (int i = 0; i < 1000; i++) {
      ASSERT_EQ(Random_Quick(state.get()), generator.Next()) << seed << " " << i;
    }
  }
}

TEST(RandomQuick, HasNoStateWithoutMemory) {
  const testhost::AllocationFault fault(0);
  EXPECT_EQ(Random_QuickSeed(1), nullptr);
  EXPECT_TRUE(fault.Happened());
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

void EnterWithLog(testhost::Host *host) {
  host->Enter();
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
}

// Lays what stands at `path` over the random device.
void UseAsDevice(const char *path) {
  ASSERT_EQ(mount(path, "/dev/urandom", nullptr, MS_BIND, nullptr), 0);
}

std::string LogText() {
  return testhost::ReadFile(Log_GetFileName());
}

void OnAlarm(int /*signal*/) {}

TEST(RandomCrypto, ReadsOnAfterAShortReadAndAnInterruption) {
  testhost::Host host;
  EnterWithLog(&host);
  ASSERT_EQ(mkfifo("/fifo", 0600), 0);
  UseAsDevice("/fifo");
  struct sigaction interrupt = {};
  interrupt.sa_handler = OnAlarm;  // and no restart
  ASSERT_EQ(sigaction(SIGALRM, &interrupt, nullptr), 0);
  const pthread_t reader = pthread_self();
  std::thread device([reader] {
    const int fd = open("/dev/urandom", O_WRONLY | O_CLOEXEC);
    for (const char *piece : {"abc", "de", "fghij"}) {
      EXPECT_EQ(write(fd, piece, strlen(piece)), static_cast<ssize_t>(strlen(piece)));
      // Time for the reader to wait again, and to be woken by the signal.
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      pthread_kill(reader, SIGALRM);
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    close(fd);
  });
  char bytes[] = "----------x";
  EXPECT_TRUE(Random_Crypto(10, bytes));
  EXPECT_STREQ(bytes, "abcdefghijx");
  device.join();
  EXPECT_EQ(LogText().find("Random_Crypto"), std::string::npos);
}

TEST(RandomCrypto, LogsADeviceThatCannotBeRead) {
  testhost::Host host;
  EnterWithLog(&host);
  UseAsDevice("/proc/self/mem");  // with nothing at address 0
  uint32_t number = 5;
  EXPECT_FALSE(Random_Crypto(sizeof number, &number));
  EXPECT_NE(LogText().find("| Random_Crypto: Short read: 5\n"), std::string::npos);
}

TEST(RandomCrypto, LogsADeviceThatCannotBeClosed) {
  testhost::Host host;
  EnterWithLog(&host);
  uint32_t number = 5;
  failClose = true;
  EXPECT_FALSE(Random_Crypto(sizeof number, &number));
  failClose = false;
  EXPECT_NE(LogText().find("| Random_Crypto: Failed to close: 5\n"), std::string::npos);
}

// By plain arithmetic.
TEST(RandomMinimalStandard, IsTheSequencesNextNumber) {
  constexpr uint64_t kModulus = 0x7fffffff;
  for (const uint32_t start : {1U, 2U, 4711U, 0x7ffffffeU}) {
    uint32_t x = start;
    for (int i = 0; i < 100000; i++) {
      const auto expected = static_cast<uint32_t>(uint64_t{x} * 16807 % kModulus);
      x = Random_MinimalStandard(x);
      ASSERT_EQ(x, expected) << i;
    }
  }
}

TEST(RandomMinimalStandard, NumbersOutsideTheSequenceGiveOnesBelowTwoToThe31) {
  EXPECT_EQ(Random_MinimalStandard(0), 1U);
  EXPECT_EQ(Random_MinimalStandard(0x7fffffff), 0x7fffffffU);
  for (uint64_t x = 0x80000000; x <= 0xffffffff; x += 65521) {
    const uint32_t next = Random_MinimalStandard(static_cast<uint32_t>(x));
    ASSERT_TRUE(next > 0 && next <= 0x7fffffff) << x;
  }
}

TEST(RandomCrypto, LogsADeviceThatGivesTooLittle) {
  testhost::Host host;
  EnterWithLog(&host);
  UseAsDevice("/dev/null");
  uint32_t number = 5;
  // What an earlier call left behind says nothing of this one.
  errno = EINTR;
  EXPECT_FALSE(Random_Crypto(sizeof number, &number));
  EXPECT_NE(LogText().find("| Random_Crypto: Short read: 0\n"), std::string::npos);
}

TEST(RandomCrypto, LogsAMissingDevice) {
  testhost::Host host;
  EnterWithLog(&host);
  ASSERT_EQ(mount("none", "/dev", "tmpfs", 0, nullptr), 0);
  uint32_t number = 5;
  EXPECT_FALSE(Random_Crypto(sizeof number, &number));
  EXPECT_EQ(number, 5U);
  EXPECT_NE(LogText().find("| Random_Crypto: Failed to open random device: 2\n"), std::string::npos);
}

}  // namespace
