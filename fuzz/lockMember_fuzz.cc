// Member files of locks: a good one gives its fields, and a bad one is gone afterwards and counts as missing.

#include <cctype>
#include <cerrno>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "../lib/file/fileLockInt.h"
#include "fuzzFile.h"
#include "log.h"

namespace {

void Expect(bool holds) {
  if (!holds) {
    abort();
  }
}

bool operator==(const LockValues &a, const LockValues &b) {
  return a.machineID == b.machineID && a.executionID == b.executionID && a.lamportNumber == b.lamportNumber &&
         a.lockType == b.lockType && a.payload == b.payload && a.locationChecksum == b.locationChecksum;
}

std::vector<std::string> Words(const std::string &bytes) {
  std::vector<std::string> words;
  std::istringstream stream(bytes.substr(0, bytes.find('\0')));
  std::string word;
  while (std::getline(stream, word, ' ')) {
    if (!word.empty()) {
      words.push_back(word);
    }
  }
  return words;
}

// What a member file says, if it is a good one.
std::optional<LockValues> Parse(const std::string &bytes) {
  const std::vector<std::string> words = Words(bytes);
  if (bytes.size() != kMemberSize || words.size() < 4 || words.size() > 16) {
    return std::nullopt;
  }
  LockValues values = {};
  values.machineID = words[0];
  values.executionID = words[1];
  uint64_t number = 0;
  for (const char digit : words[2]) {
    number = number * 10 + static_cast<uint64_t>(digit - '0');
    if (isdigit(static_cast<unsigned char>(digit)) == 0 || number > UINT32_MAX) {
      return std::nullopt;
    }
  }
  values.lamportNumber = static_cast<uint32_t>(number);
  values.lockType = words[3];
  if (words[3] != "S" && words[3] != "X") {
    return std::nullopt;
  }
  if (words.size() > 4 && words[4] != "[") {
    values.payload = words[4];
  }
  for (size_t index = 5; index < words.size(); index++) {
    const size_t equals = words[index].find('=');
    if (equals == std::string::npos || equals == 0 || equals + 1 == words[index].size()) {
      return std::nullopt;
    }
    if (words[index].substr(0, equals) == "lc") {
      values.locationChecksum = words[index].substr(equals + 1);
    }
  }
  return values;
}

void ReadMember(const std::string &bytes) {
  const std::string path =
      fuzz::WriteInput("M00001.lck", reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
  const std::optional<LockValues> expected = Parse(bytes);
  LockValues member = {};
  const int error = FileLockMemberValues(fuzz::Directory(), "M00001.lck", &member);
  Expect(error == (expected ? 0 : ENOENT));
  Expect(!expected || member == *expected);
  Expect(std::filesystem::exists(path) == expected.has_value());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Log_SetQuietWarnings(true);
  // Once as it is, which is a wrong size nearly always, and once as it would be on the disk.
  std::string bytes(reinterpret_cast<const char *>(data), size);
  ReadMember(bytes);
  bytes.resize(kMemberSize);
  ReadMember(bytes);
  return 0;
}
