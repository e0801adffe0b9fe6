#include "util.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "file.h"
#include "log.h"
#include "owned.h"
#include "panicUser.h"
#include "str.h"

namespace {

constexpr uint32_t kLastPrime = 0xFFFFFFFB;

// Of an odd number above 1.
bool IsPrime(uint32_t number) {
  for (uint64_t divisor = 3; divisor * divisor <= number; divisor += 2) {
    if (number % divisor == 0) {
      return false;
    }
  }
  return true;
}

using Version = std::array<int, 5>;

Version ParseVersion(const char *text) {
  Version version{};
  // What isn't there stays 0. NOLINTNEXTLINE(cert-err34-c)
  sscanf(text, "%d.%d.%d.%d.%d", &version[0], &version[1], &version[2], &version[3], &version[4]);
  return version;
}

}  // namespace

char *Util_DeriveFileName(const char *source, const char *name, const char *ext) {
  if (source == nullptr || (name == nullptr && ext == nullptr)) {
    Warning("invalid use of function\n");
    return nullptr;
  }
  char *directory = nullptr;
  char *base = nullptr;
  File_GetPathName(source, &directory, &base);
  const OwnedString ownedDirectory(directory);
  const OwnedString ownedBase(base);
  if (name == nullptr) {
    char *extension = strrchr(base, '.');
    if (extension != nullptr) {
      *extension = '\0';
    }
  }
  const char *stem = name == nullptr ? base : name;
  const bool isUnder = !File_IsFullPath(stem) && directory[0] != '\0' && strcmp(directory, ".") != 0;
  return Str_SafeAsprintf(nullptr, "%s%s%s%s%s", isUnder ? directory : "", isUnder ? "/" : "", stem,
                          ext == nullptr ? "" : ".", ext == nullptr ? "" : ext);
}

bool Util_Throttle(uint32_t count) {
  if (count < 100) {
    return true;
  }
  if (count < 10000) {
    return count % 100 == 0;
  }
  return count % (count < 1000000 ? 10000 : 1000000) == 0;
}

int Util_CompareDotted(const char *version1, const char *version2) {
  const Version left = ParseVersion(version1);
  const Version right = ParseVersion(version2);
  if (left == right) {
    return 0;
  }
  return left < right ? -1 : 1;
}

uint32_t Util_GetPrime(uint32_t start) {
  if (start < 3) {
    return 2;
  }
  if (start > kLastPrime) {
    NOT_IMPLEMENTED();
  }
  uint32_t number = start | 1;
  while (!IsPrime(number)) {
    number += 2;
  }
  return number;
}

bool Util_Data2Buffer(char *buffer, size_t bufferSize, const void *data, size_t dataSize) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  // A byte takes two digits and a blank, for which the last one has the NUL.
  constexpr size_t kTextOfByte = 3;
  if (bufferSize == 0) {
    return false;
  }
  const auto *bytes = static_cast<const unsigned char *>(data);
  const size_t count = std::min(dataSize, bufferSize / kTextOfByte);
  for (size_t i = 0; i < count; i++) {
    char *text = buffer + i * kTextOfByte;
    text[0] = kDigits[bytes[i] >> 4];
    text[1] = kDigits[bytes[i] & 0xf];
    text[2] = ' ';
  }
  buffer[count == 0 ? 0 : count * kTextOfByte - 1] = '\0';
  return count == dataSize;
}
