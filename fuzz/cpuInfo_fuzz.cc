// Texts of /proc/cpuinfo: a value is what a plain reading of the lines gives. The first line is the key, and
// its first byte the processor.

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "../lib/misc/hostinfoCpuInt.h"
#include "owned.h"

namespace {

using Value = std::optional<std::string>;

void Expect(bool holds) {
  if (!holds) {
    abort();
  }
}

// The lines, each up to its first NUL.
std::vector<std::string> Lines(const std::string &text) {
  std::vector<std::string> lines;
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find_first_of("\r\n", at), text.size());
    lines.emplace_back(text.substr(at, end - at).c_str());
    at = end + (text.compare(end, 2, "\r\n") == 0 ? 2 : 1);
  }
  return lines;
}

std::string Trimmed(std::string text) {
  const auto isBlank = [](char byte) { return isspace(static_cast<unsigned char>(byte)) != 0; };
  while (!text.empty() && isBlank(text.back())) {
    text.pop_back();
  }
  while (!text.empty() && isBlank(text.front())) {
    text.erase(0, 1);
  }
  return text;
}

Value Find(const std::vector<std::string> &lines, int cpu, const std::string &key) {
  Value value;
  for (const std::string &line : lines) {
    const size_t at = line.find(key);
    const size_t colon = at == std::string::npos ? at : line.find(':', at + key.size());
    if (colon != std::string::npos) {
      value = Trimmed(line.substr(colon + 1));
      if (cpu-- <= 0) {
        break;
      }
    }
  }
  return value;
}

// The text, which isn't empty, as a stream.
FILE *Stream(std::string *text) {
  return fmemopen(text->data(), text->size(), "r");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string input(reinterpret_cast<const char *>(data), size);
  const size_t end = input.find('\n');
  if (end == std::string::npos || end == 0 || end + 1 == size) {
    return 0;
  }
  const int cpu = input[0] - '0';
  const std::string key = input.substr(1, end - 1).c_str();
  std::string text = input.substr(end + 1);
  const std::vector<std::string> lines = Lines(text);

  const OwnedStream stream(Stream(&text));
  const OwnedString found(HostinfoFindCpuInfo(stream.get(), cpu, key.c_str()));
  const Value expected = Find(lines, cpu, key);
  Expect((found != nullptr) == expected.has_value());
  Expect(!expected || *expected == found.get());

  rewind(stream.get());
  int count = 0;
  for (const std::string &line : lines) {
    count += line.compare(0, 9, "processor") == 0 ? 1 : 0;
  }
  Expect(HostinfoCountCPUs(stream.get()) == count);
  return 0;
}
