// The line reader: lines are what stands between line ends, whatever the size of the stream's buffer, which
// the first byte gives.

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "ostdio.h"
#include "owned.h"

namespace {

void Expect(bool holds) {
  if (!holds) {
    abort();
  }
}

std::vector<std::string> SplitLines(const std::string &content) {
  std::vector<std::string> lines;
  for (size_t at = 0; at < content.size();) {
    const size_t end = std::min(content.find_first_of("\r\n", at), content.size());
    lines.push_back(content.substr(at, end - at));
    at = end + (content.compare(end, 2, "\r\n") == 0 ? 2 : 1);
  }
  return lines;
}

OwnedStream Open(std::string &content, std::vector<char> &buffer) {
  OwnedStream stream(fmemopen(content.data(), content.size(), "r"));
  Expect(stream != nullptr && setvbuf(stream.get(), buffer.data(), _IOFBF, buffer.size()) == 0);
  return stream;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 2) {
    return 0;
  }
  std::string content(reinterpret_cast<const char *>(data) + 1, size - 1);
  std::vector<char> buffer(data[0] + size_t{2});
  OwnedStream stream = Open(content, buffer);
  std::vector<std::string> lines;
  char *line = nullptr;
  size_t length = 0;
  StdIO_Status status = StdIO_Success;
  while ((status = StdIO_ReadNextLine(stream.get(), &line, 0, &length)) == StdIO_Success) {
    lines.emplace_back(OwnedString(line).get(), length);
  }
  Expect(status == StdIO_EOF && line == nullptr);
  Expect(lines == SplitLines(content));

  stream = Open(content, buffer);
  constexpr size_t kLimit = 2000;
  while ((status = StdIO_ReadNextLine(stream.get(), &line, kLimit, &length)) == StdIO_Success) {
    free(line);
    // The last growth that the limit allows is from 1024 to 2048 bytes.
    Expect(length < 2048);
  }
  Expect(status == StdIO_EOF || errno == E2BIG);
  return 0;
}
