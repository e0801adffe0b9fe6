#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <regex>
#include <string>
#include <vector>

#include "log.h"
#include "testhost.h"
#include "util.h"

namespace {

void Collect(void *data, const char *format, ...) __attribute__((format(printf, 2, 3)));
void Collect(void *data, const char *format, ...) {
  char line[600];
  va_list args;
  va_start(args, format);
  // The list is started above. NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
  vsnprintf(line, sizeof line, format, args);
  va_end(args);
  static_cast<std::vector<std::string> *>(data)->emplace_back(line);
}

// Goes `depth` frames down before it asks for the back trace.
[[gnu::noinline]] int TraceFrom(int depth, std::vector<std::string> *lines) {
  if (depth == 0) {
    Util_BacktraceWithFunc(0, Collect, lines);
    return 0;
  }
  const int below = TraceFrom(depth - 1, lines);
  // Work after the call, so that the compiler keeps the frame.
  asm volatile("" ::: "memory");
  return below + 1;
}

TEST(Backtrace, WritesAFrameALineUpwards) {
  std::vector<std::string> lines;
  TraceFrom(20, &lines);
  ASSERT_GT(lines.size(), 22U);
  EXPECT_EQ(lines[0], "Backtrace:\n");
  unsigned long last = 0;
  for (size_t i = 1; i < lines.size(); i++) {
    unsigned index = 0;
    unsigned long frame = 0;
    unsigned long rip = 0;
    ASSERT_EQ(sscanf(lines[i].c_str(), "Backtrace[%u] %lx rip=%lx rbx=", &index, &frame, &rip), 3)
        << lines[i];
    EXPECT_EQ(index, i - 1);
    EXPECT_GT(frame, last);
    // The frame that the process began with returns nowhere.
    EXPECT_EQ(rip == 0, i == lines.size() - 1);
    last = frame;
  }
}

TEST(Backtrace, StopsAfter500Frames) {
  std::vector<std::string> lines;
  TraceFrom(1000, &lines);
  EXPECT_EQ(lines.size(), 501U);
}

TEST(Backtrace, HeadingNamesTheBug) {
  std::vector<std::string> lines;
  Util_BacktraceWithFunc(4711, Collect, &lines);
  EXPECT_EQ(lines[0], "Backtrace for bugNr=4711\n");
}

TEST(Backtrace, GoesToTheLog) {
  testhost::Host host;
  host.Enter();
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  Util_Backtrace(12);
  EXPECT_TRUE(std::regex_search(
      testhost::ReadFile(Log_GetFileName()),
      std::regex(R"(\| Backtrace for bugNr=12\n[^\n]*\| Backtrace\[0\] [^\n]* r15=[0-9a-f]{16}\n)")));
}

TEST(Backtrace, AHeadingNamesABugBelowZeroToo) {
  std::vector<std::string> lines;
  Util_BacktraceWithFunc(-1, Collect, &lines);
  EXPECT_EQ(lines[0], "Backtrace for bugNr=-1\n");
}

unsigned long FrameOf(const std::string &line) {
  unsigned index = 0;
  unsigned long frame = 0;
  EXPECT_EQ(sscanf(line.c_str(), "Backtrace[%u] %lx", &index, &frame), 2) << line;
  return frame;
}

TEST(BacktraceFromPointer, WritesTheFramesFromThereWithoutAHeading) {
  std::vector<std::string> all;
  Util_BacktraceWithFunc(0, Collect, &all);
  const int here = 0;
  std::vector<std::string> lines;
  Util_BacktraceFromPointerWithFunc(&here, Collect, &lines);
  ASSERT_GT(lines.size(), 2U);
  EXPECT_GE(FrameOf(lines[0]), reinterpret_cast<unsigned long>(&here));
  EXPECT_EQ(lines[0].substr(0, 13), "Backtrace[0] ");
  // The outer frames are the same.
  EXPECT_EQ(FrameOf(lines.back()), FrameOf(all.back()));
  EXPECT_EQ(lines.size(), all.size() - 2);
}

TEST(BacktraceFromPointer, PassesOverTenFramesAtMost) {
  std::vector<std::string> lines;
  const auto *top = reinterpret_cast<const void *>(~0UL);  // NOLINT(performance-no-int-to-ptr)
  Util_BacktraceFromPointerWithFunc(top, Collect, &lines);
  EXPECT_TRUE(lines.empty());
}

TEST(BacktraceFromPointer, GoesToTheLog) {
  testhost::Host host;
  host.Enter();
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  const int here = 0;
  Util_BacktraceFromPointer(&here);
  const std::string log = testhost::ReadFile(Log_GetFileName());
  EXPECT_NE(log.find("| Backtrace[0] "), std::string::npos);
  EXPECT_EQ(log.find("Backtrace:"), std::string::npos);
}

}  // namespace
