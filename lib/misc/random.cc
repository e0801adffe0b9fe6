#include "random.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "log.h"
#include "posixPosix.h"

namespace {

constexpr unsigned kWords = 25;
// How far the second index runs ahead of the first.
constexpr unsigned kAhead = 7;

// The generator's published initial words.
constexpr uint32_t kInitial[kWords] = {
    0x95f24dab, 0x0b685215, 0xe76ccae7, 0xaf3ec239, 0x715fad23, 0x24a590ad, 0x69e4b5ef,
    0xbf456141, 0x96bc1b7b, 0xa7bdf825, 0xc1de75b7, 0x8858a9c9, 0x2da87693, 0xb657f9dd,
    0xffdc8a9f, 0x8121da71, 0x8b823ecb, 0x885d05f5, 0x4e20cd47, 0x5a9ad5d9, 0x512c0c03,
    0xea857ccd, 0x4cc1d30f, 0x8891a8a1, 0xa6b7aadb,
};

// Reads until the buffer is full. False with the reason in the log.
bool RandomReadAll(int fd, size_t size, char *buffer) {
  size_t done = 0;
  while (done < size) {
    const ssize_t got = read(fd, buffer + done, size - done);
    if (got > 0) {
      done += static_cast<size_t>(got);
    } else if (got == 0 || errno != EINTR) {
      Log("%s: Short read: %d\n", "Random_Crypto", got == 0 ? 0 : errno);
      return false;
    }
  }
  return true;
}

}  // namespace

struct RandomQuickState {
  uint32_t words[kWords];
  unsigned i;
  unsigned j;
};

RandomQuickState *Random_QuickSeed(uint32_t seed) {
  auto *state = static_cast<RandomQuickState *>(malloc(sizeof(RandomQuickState)));
  if (state == nullptr) {
    return nullptr;
  }
  for (unsigned n = 0; n < kWords; n++) {
    state->words[n] = kInitial[n] ^ seed;
  }
  state->i = kWords - 1;
  state->j = kAhead - 1;
  return state;
}

uint32_t Random_Quick(RandomQuickState *state) {
  state->i = (state->i + 1) % kWords;
  state->j = (state->j + 1) % kWords;
  const uint32_t oldest = state->words[state->i];
  uint32_t y = (oldest >> 1) ^ state->words[state->j];
  if ((oldest & 1) != 0) {
    y ^= 0x8EBFD028;
  }
  state->words[state->i] = y;

  y ^= (y << 7) & 0x2B5B2500;
  y ^= (y << 15) & 0xDB8B0000;
  return y ^ (y >> 16);
}

uint32_t Random_MinimalStandard(uint32_t x) {
  // Twice the multiplier, so that the high half counts the multiples of 2^31 and the low half is doubled.
  const uint64_t product = uint64_t{x} * 33614;
  const uint32_t sum = (static_cast<uint32_t>(product) >> 1) + static_cast<uint32_t>(product >> 32);
  return static_cast<int32_t>(sum) > 0 ? sum : (sum & 0x7fffffff) + 1;
}

bool Random_Crypto(size_t size, void *buffer) {
  const int fd = Posix_Open("/dev/urandom", O_RDONLY | O_CLOEXEC);
  if (fd == -1) {
    Log("%s: Failed to open random device: %d\n", __func__, errno);
    return false;
  }
  const bool filled = RandomReadAll(fd, size, static_cast<char *>(buffer));
  if (close(fd) == -1) {
    Log("%s: Failed to close: %d\n", __func__, errno);
    return false;
  }
  return filled;
}
