#include "ostdio.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "owned.h"

namespace {

OwnedStream StreamOf(const std::string &content) {
  FILE *stream = tmpfile();
  fwrite(content.data(), 1, content.size(), stream);
  rewind(stream);
  return OwnedStream(stream);
}

// Every line of the content, until the end of file.
std::vector<std::string> Lines(const std::string &content) {
  const OwnedStream stream = StreamOf(content);
  std::vector<std::string> lines;
  char *line = nullptr;
  size_t length = 0;
  StdIO_Status status = StdIO_Success;
  while ((status = StdIO_ReadNextLine(stream.get(), &line, 0, &length)) == StdIO_Success) {
    lines.emplace_back(line, length);
    EXPECT_EQ(line[length], '\0');
    free(line);
  }
  EXPECT_EQ(status, StdIO_EOF);
  EXPECT_EQ(line, nullptr);
  return lines;
}

using Texts = std::vector<std::string>;

TEST(ReadNextLine, EndsLinesAtLineFeedCarriageReturnOrBoth) {
  EXPECT_EQ(Lines("a\rb"), (Texts{"a", "b"}));
  EXPECT_EQ(Lines("a\nb\n"), (Texts{"a", "b"}));
  EXPECT_EQ(Lines("a\r\nb\r\n"), (Texts{"a", "b"}));
  EXPECT_EQ(Lines("a\n\rb"), (Texts{"a", "", "b"}));
  EXPECT_EQ(Lines("a\r\rb"), (Texts{"a", "", "b"}));
  EXPECT_EQ(Lines("\n\n"), (Texts{"", ""}));
}

TEST(ReadNextLine, ACarriageReturnAtTheEndOfTheDataEndsALine) {
  EXPECT_EQ(Lines("a\r"), (Texts{"a"}));
  EXPECT_EQ(Lines("\r"), (Texts{""}));
}

TEST(ReadNextLine, LooksBehindACarriageReturnWithoutAMarkOnTheStream) {
  const OwnedStream stream = StreamOf("a\r");
  char *line = nullptr;
  EXPECT_EQ(StdIO_ReadNextLine(stream.get(), &line, 0, nullptr), StdIO_Success);
  free(line);
  EXPECT_EQ(feof(stream.get()), 0);
}

TEST(ReadNextLine, ALastLineWithoutTerminatorIsALine) {
  EXPECT_EQ(Lines("a\nlast"), (Texts{"a", "last"}));
}

TEST(ReadNextLine, AnEmptyStreamHasNoLine) {
  EXPECT_EQ(Lines(""), Texts{});
}

TEST(ReadNextLine, KeepsNulBytes) {
  EXPECT_EQ(Lines(std::string("a\0b\nc", 5)), (Texts{std::string("a\0b", 3), "c"}));
}

TEST(ReadNextLine, ReadsLinesOfEverySizeAroundTheBuffersSteps) {
  for (const size_t step : {size_t{1024}, size_t{2048}, size_t{0x40000}}) {
    for (size_t length = step - 3; length <= step + 3; length++) {
      const std::string line(length, 'x');
      std::string content = line;
      content.append("\n").append(line);
      EXPECT_EQ(Lines(content), (Texts{line, line}));
    }
  }
}

TEST(ReadNextLine, TakesNoCount) {
  const OwnedStream stream = StreamOf("abc\n");
  char *line = nullptr;
  EXPECT_EQ(StdIO_ReadNextLine(stream.get(), &line, 0, nullptr), StdIO_Success);
  EXPECT_STREQ(line, "abc");
  free(line);
}

TEST(ReadNextLine, TestsTheLimitOnlyWhenTheBufferGrows) {
  // The first growth makes room for 1022 bytes and a line end, however small the limit.
  const OwnedStream stream = StreamOf(std::string(1022, 'x') + "\n" + std::string(1023, 'y') + "\nz\n");
  char *line = nullptr;
  size_t length = 0;
  EXPECT_EQ(StdIO_ReadNextLine(stream.get(), &line, 10, &length), StdIO_Success);
  EXPECT_EQ(length, 1022U);
  free(line);
  errno = 0;
  EXPECT_EQ(StdIO_ReadNextLine(stream.get(), &line, 10, &length), StdIO_Error);
  EXPECT_EQ(errno, E2BIG);
  EXPECT_EQ(line, nullptr);
}

TEST(ReadNextLine, TakesALineThatReachesTheLimitExactly) {
  const std::string text(2046, 'x');
  const std::string full = text + "\n";
  const OwnedStream stream = StreamOf(full + full);
  char *line = nullptr;
  // 1023 bytes are read when the buffer first has to grow: not above this limit, but above the next one.
  ASSERT_EQ(StdIO_ReadNextLine(stream.get(), &line, 1023, nullptr), StdIO_Success);
  EXPECT_EQ(line, text);
  free(line);
  EXPECT_EQ(StdIO_ReadNextLine(stream.get(), &line, 1022, nullptr), StdIO_Error);
}

TEST(ReadNextLine, AReadErrorIsAnError) {
  const OwnedStream stream(fopen("/", "r"));
  ASSERT_NE(stream, nullptr);
  char *line = nullptr;
  errno = 0;
  EXPECT_EQ(StdIO_ReadNextLine(stream.get(), &line, 0, nullptr), StdIO_Error);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_EQ(line, nullptr);
}

}  // namespace
