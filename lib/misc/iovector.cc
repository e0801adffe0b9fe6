#include "iovector.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "log.h"
#include "panicUser.h"

namespace {

// What memory of no owner is filled with.
constexpr uintptr_t kPoison = 0xF0F0;

void CheckEntry(const struct iovec &entry) {
  ASSERT(entry.iov_base != nullptr && reinterpret_cast<uintptr_t>(entry.iov_base) != kPoison);
}

// Calls `copy` with each entry's base, the offset of its bytes in the flat buffer, and how many to copy.
template <typename Copy>
void WalkEntries(const struct iovec *iov, int count, size_t size, Copy copy) {
  size_t done = 0;
  for (int i = 0; i < count && done < size; i++) {
    CheckEntry(iov[i]);
    const size_t length = std::min(iov[i].iov_len, size - done);
    copy(iov[i].iov_base, done, length);
    done += length;
  }
}

}  // namespace

void IOV_WriteBufToIov(const void *buf, size_t size, const struct iovec *iov, int count) {
  ASSERT(buf != nullptr || size == 0);
  const char *source = static_cast<const char *>(buf);
  WalkEntries(iov, count, size,
              [=](void *base, size_t offset, size_t length) { memcpy(base, source + offset, length); });
}

void IOV_WriteIovToBuf(const struct iovec *iov, int count, void *buf, size_t size) {
  ASSERT(buf != nullptr || size == 0);
  char *target = static_cast<char *>(buf);
  WalkEntries(iov, count, size,
              [=](const void *base, size_t offset, size_t length) { memcpy(target + offset, base, length); });
}

int IOV_FindEntry(const struct iovec *iov, int count, size_t offset, size_t *entryOffset) {
  size_t rest = offset;
  for (int i = 0; i < count; i++) {
    CheckEntry(iov[i]);
    if (rest < iov[i].iov_len) {
      *entryOffset = rest;
      return i;
    }
    rest -= iov[i].iov_len;
  }
  Log("IOV: %s:%d i %d (of %d), offsets: entry %zu, iov %zu invalid iov offset\n", __FILE__, __LINE__, count,
      count, rest, offset);
  return count;
}
