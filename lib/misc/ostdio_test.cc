#include "ostdio.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <latch>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "allocations.h"
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

TEST(ReadNextLine, TestsTheLimitAgainAtEachGrowth) {
  const OwnedStream stream = StreamOf(std::string(2046, 'x') + "\n" + std::string(2047, 'y') + "\n");
  char *line = nullptr;
  ASSERT_EQ(StdIO_ReadNextLine(stream.get(), &line, 1500, nullptr), StdIO_Success);
  free(line);
  errno = 0;
  EXPECT_EQ(StdIO_ReadNextLine(stream.get(), &line, 1500, nullptr), StdIO_Error);
  EXPECT_EQ(errno, E2BIG);
}

// The lines of a content by their definition.
Texts SplitLines(const std::string &content) {
  Texts lines;
  for (size_t at = 0; at < content.size();) {
    const size_t end = std::min(content.find_first_of("\r\n", at), content.size());
    lines.push_back(content.substr(at, end - at));
    at = end + (content.compare(end, 2, "\r\n") == 0 ? 2 : 1);
  }
  return lines;
}

// Line ends then meet the ends of the stream's own buffer in every way.
TEST(ReadNextLine, FindsLineEndsWhereverTheStreamsBufferEnds) {
  std::mt19937 random(3);
  for (const int mode : {_IOFBF, _IOLBF, _IONBF}) {
    for (const size_t size : {size_t{2}, size_t{3}, size_t{7}, size_t{64}, size_t{4096}}) {
      std::string content;
      while (content.size() < 6000) {
        content.append(random() % 9, static_cast<char>('a' + random() % 26));
        content += std::array{"\n", "\r", "\r\n", "\r\r\n", "x"}[random() % 5];
      }
      const OwnedStream stream = StreamOf(content);
      std::vector<char> buffer(size);
      ASSERT_EQ(setvbuf(stream.get(), buffer.data(), mode, size), 0);
      Texts lines;
      char *line = nullptr;
      size_t length = 0;
      while (StdIO_ReadNextLine(stream.get(), &line, 0, &length) == StdIO_Success) {
        lines.emplace_back(line, length);
        free(line);
      }
      EXPECT_EQ(lines, SplitLines(content)) << mode << " " << size;
    }
  }
}

TEST(ReadNextLine, StandsWithOtherReadersOfTheStream) {
  const OwnedStream stream = StreamOf("ab\ncd\r\nef\rgh\n");
  EXPECT_EQ(getc(stream.get()), 'a');
  ungetc('x', stream.get());
  char *line = nullptr;
  const auto next = [&] {
    EXPECT_EQ(StdIO_ReadNextLine(stream.get(), &line, 0, nullptr), StdIO_Success);
    return std::string(OwnedString(line).get());
  };
  EXPECT_EQ(next(), "xb");
  EXPECT_EQ(ftell(stream.get()), 3);
  EXPECT_EQ(next(), "cd");
  EXPECT_EQ(ftell(stream.get()), 7);
  EXPECT_EQ(next(), "ef");
  EXPECT_EQ(ftell(stream.get()), 10);
  EXPECT_EQ(getc(stream.get()), 'g');
  EXPECT_EQ(next(), "h");
}

TEST(ReadNextLine, TakesFromAPipeWhatIsThere) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const OwnedStream in(fdopen(ends[0], "r"));
  const OwnedStream out(fdopen(ends[1], "w"));
  fputs("first\r\nsec", out.get());
  fflush(out.get());
  char *line = nullptr;
  ASSERT_EQ(StdIO_ReadNextLine(in.get(), &line, 0, nullptr), StdIO_Success);
  EXPECT_EQ(std::string(OwnedString(line).get()), "first");
  fputs("ond\n", out.get());
  fflush(out.get());
  ASSERT_EQ(StdIO_ReadNextLine(in.get(), &line, 0, nullptr), StdIO_Success);
  EXPECT_EQ(std::string(OwnedString(line).get()), "second");
}

TEST(ReadNextLine, GivesWholeLinesToThreadsThatShareAStream) {
  constexpr size_t kLines = 100000;
  constexpr int kThreads = 4;
  std::string content;
  for (size_t i = 0; i < kLines; i++) {
    content += std::string(1 + i % 50, static_cast<char>('a' + i % 26)) + (i % 2 == 0 ? "\n" : "\r\n");
  }
  const OwnedStream stream = StreamOf(content);
  std::atomic<size_t> count{0};
  std::atomic<size_t> broken{0};
  std::latch start(kThreads);
  const auto read = [&] {
    start.arrive_and_wait();
    char *line = nullptr;
    size_t length = 0;
    while (StdIO_ReadNextLine(stream.get(), &line, 0, &length) == StdIO_Success) {
      const OwnedString owned(line);
      count++;
      broken += length == 0 || strspn(line, std::string(1, line[0]).c_str()) != length ? 1 : 0;
    }
  };
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int i = 0; i < kThreads; i++) {
    threads.emplace_back(read);
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
  EXPECT_EQ(count, kLines);
  EXPECT_EQ(broken, 0U);
}

TEST(ReadNextLine, FailsForEachAllocationThatFails) {
  for (const size_t length : {size_t{10}, size_t{1023}, size_t{5000}, size_t{300000}}) {
    const std::string content = std::string(length, 'x') + "\n";
    const auto read = [&] {
      const OwnedStream stream = StreamOf(content);
      setvbuf(stream.get(), nullptr, _IONBF, 0);
      char *line = nullptr;
      size_t count = 4711;
      const StdIO_Status status = StdIO_ReadNextLine(stream.get(), &line, 0, &count);
      const OwnedString owned(line);
      EXPECT_EQ(line != nullptr, status == StdIO_Success);
      EXPECT_EQ(count, status == StdIO_Success ? length : 4711);
      return status;
    };
    const size_t count = testhost::CountAllocations(read);
    EXPECT_GE(count, 1U);
    for (size_t i = 0; i < count; i++) {
      const testhost::AllocationFault fault(i);
      errno = 0;
      EXPECT_EQ(read(), StdIO_Error) << i;
      EXPECT_TRUE(fault.Happened());
    }
  }
}

TEST(ReadNextLine, SaysThatMemoryIsOut) {
  const OwnedStream stream = StreamOf("abc\n");
  char *line = nullptr;
  const testhost::AllocationFault fault(0);
  errno = 0;
  EXPECT_EQ(StdIO_ReadNextLine(stream.get(), &line, 0, nullptr), StdIO_Error);
  EXPECT_EQ(errno, ENOMEM);
}

TEST(ReadNextLine, LosesNothingOfALineThatIsThereWhenItsFirstAllocationFails) {
  const OwnedStream stream = StreamOf("first\nsecond\nthird\n");
  char *line = nullptr;
  ASSERT_EQ(StdIO_ReadNextLine(stream.get(), &line, 0, nullptr), StdIO_Success);
  free(line);
  {
    const testhost::AllocationFault fault(0);
    ASSERT_EQ(StdIO_ReadNextLine(stream.get(), &line, 0, nullptr), StdIO_Success);
    EXPECT_TRUE(fault.Happened());
  }
  EXPECT_EQ(std::string(OwnedString(line).get()), "second");
  ASSERT_EQ(StdIO_ReadNextLine(stream.get(), &line, 0, nullptr), StdIO_Success);
  EXPECT_EQ(std::string(OwnedString(line).get()), "third");
}

TEST(ReadNextLine, AllocatesALineAtItsSize) {
  const OwnedStream stream = StreamOf("abc\n" + std::string(100000, 'x') + "\n");
  char *line = nullptr;
  ASSERT_EQ(StdIO_ReadNextLine(stream.get(), &line, 0, nullptr), StdIO_Success);
  EXPECT_LT(malloc_usable_size(line), 64U);
  free(line);
  ASSERT_EQ(StdIO_ReadNextLine(stream.get(), &line, 0, nullptr), StdIO_Success);
  EXPECT_LT(malloc_usable_size(line), 101000U);
  free(line);
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
