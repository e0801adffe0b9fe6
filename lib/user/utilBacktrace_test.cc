#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "log.h"
#include "regexes.h"
#include "testhost.h"
#include "util.h"

// Calls the function while each register that a call preserves holds a value of its own.
extern "C" void CallWithRegisters(void (*function)());
asm(R"(
  .pushsection .text
CallWithRegisters:
  .cfi_startproc
  push %rbx
  .cfi_adjust_cfa_offset 8
  .cfi_rel_offset rbx, 0
  push %rbp
  .cfi_adjust_cfa_offset 8
  .cfi_rel_offset rbp, 0
  push %r12
  .cfi_adjust_cfa_offset 8
  .cfi_rel_offset r12, 0
  push %r13
  .cfi_adjust_cfa_offset 8
  .cfi_rel_offset r13, 0
  push %r14
  .cfi_adjust_cfa_offset 8
  .cfi_rel_offset r14, 0
  push %r15
  .cfi_adjust_cfa_offset 8
  .cfi_rel_offset r15, 0
  sub $8, %rsp
  .cfi_adjust_cfa_offset 8
  mov $0xb0, %rbx
  mov $0xb1, %rbp
  mov $0xb2, %r12
  mov $0xb3, %r13
  mov $0xb4, %r14
  mov $0xb5, %r15
  call *%rdi
  add $8, %rsp
  .cfi_adjust_cfa_offset -8
  pop %r15
  .cfi_adjust_cfa_offset -8
  .cfi_restore r15
  pop %r14
  .cfi_adjust_cfa_offset -8
  .cfi_restore r14
  pop %r13
  .cfi_adjust_cfa_offset -8
  .cfi_restore r13
  pop %r12
  .cfi_adjust_cfa_offset -8
  .cfi_restore r12
  pop %rbp
  .cfi_adjust_cfa_offset -8
  .cfi_restore rbp
  pop %rbx
  .cfi_adjust_cfa_offset -8
  .cfi_restore rbx
  ret
  .cfi_endproc
  .popsection
)");

// Calls the function in a frame that says of itself that it lies at the same address as the function's.
extern "C" void CallInSameFrame(void (*function)());
asm(R"(
  .pushsection .text
CallInSameFrame:
  .cfi_startproc
  sub $8, %rsp
  .cfi_def_cfa_offset 0
  .cfi_offset rip, 8
  .cfi_val_offset rsp, 16
  call *%rdi
  add $8, %rsp
  ret
  .cfi_endproc
  .popsection
)");

namespace {

using Lines = std::vector<std::string>;

void Collect(void *data, const char *format, ...) __attribute__((format(printf, 2, 3)));
void Collect(void *data, const char *format, ...) {
  char line[600];
  va_list args;
  va_start(args, format);
  // The list is started above. NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
  vsnprintf(line, sizeof line, format, args);
  va_end(args);
  static_cast<Lines *>(data)->emplace_back(line);
}

// Goes `depth` frames down before it asks for the back trace.
[[gnu::noinline]] int TraceFrom(int depth, Lines *lines) {
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
  Lines lines;
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
  Lines lines;
  TraceFrom(1000, &lines);
  EXPECT_EQ(lines.size(), 501U);
}

TEST(Backtrace, HeadingNamesTheBug) {
  Lines lines;
  Util_BacktraceWithFunc(4711, Collect, &lines);
  EXPECT_EQ(lines[0], "Backtrace for bugNr=4711\n");
}

TEST(Backtrace, GoesToTheLog) {
  testhost::Host host;
  host.Enter();
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  Util_Backtrace(12);
  EXPECT_TRUE(testhost::RegexSearch(
      testhost::ReadFile(Log_GetFileName()),
      R"(\| Backtrace for bugNr=12\n[^\n]*\| Backtrace\[0\] [^\n]* r15=[0-9a-f]{16}\n)"));
}

TEST(Backtrace, AHeadingNamesABugBelowZeroToo) {
  Lines lines;
  Util_BacktraceWithFunc(-1, Collect, &lines);
  EXPECT_EQ(lines[0], "Backtrace for bugNr=-1\n");
}

unsigned long FrameOf(const std::string &line) {
  unsigned index = 0;
  unsigned long frame = 0;
  EXPECT_EQ(sscanf(line.c_str(), "Backtrace[%u] %lx", &index, &frame), 2) << line;
  return frame;
}

Lines linesOfHandler;

void TraceInHandler(int /*signal*/) {
  Util_BacktraceFromPointerWithFunc(nullptr, Collect, &linesOfHandler);
}

[[gnu::noinline]] void Interrupt() {
  raise(SIGUSR1);
  asm volatile("" ::: "memory");
}

TEST(BacktraceFromPointer, StopsWhereTheNextFrameLiesBelow) {
  // A handler's stack that lies above what it interrupts.
  alignas(16) std::array<char, 65536> memory;
  const stack_t stack = {memory.data(), 0, memory.size()};
  ASSERT_EQ(sigaltstack(&stack, nullptr), 0);
  struct sigaction action {};
  action.sa_handler = TraceInHandler;
  action.sa_flags = SA_ONSTACK;
  ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
  Interrupt();
  const stack_t none = {nullptr, SS_DISABLE, 0};
  ASSERT_EQ(sigaltstack(&none, nullptr), 0);
  EXPECT_FALSE(linesOfHandler.empty());
  for (const std::string &line : linesOfHandler) {
    EXPECT_GE(FrameOf(line), reinterpret_cast<unsigned long>(memory.begin()));
    EXPECT_LE(FrameOf(line), reinterpret_cast<unsigned long>(memory.end()));
  }
}

Lines linesWithRegisters;

TEST(Backtrace, TellsTheRegistersOfAFrame) {
  CallWithRegisters([] { Util_BacktraceWithFunc(0, Collect, &linesWithRegisters); });
  const std::string line =
      "Backtrace\\[[0-9]+\\] [0-9a-f]{16} rip=([0-9a-f]{16}) rbx=00000000000000b0 rbp=00000000000000b1 "
      "r12=00000000000000b2 r13=00000000000000b3 r14=00000000000000b4 r15=00000000000000b5\n";
  // What it calls may have left all of them alone, and then shows them too.
  const auto begin = reinterpret_cast<unsigned long>(CallWithRegisters);
  EXPECT_TRUE(std::any_of(linesWithRegisters.begin(), linesWithRegisters.end(), [&](const std::string &text) {
    const Lines registers = testhost::RegexGroups(text, line);
    const unsigned long rip = registers.empty() ? 0 : std::stoul(registers[1], nullptr, 16);
    return begin < rip && rip < begin + 200;
  })) << testing::PrintToString(linesWithRegisters);
}

TEST(BacktraceFromPointer, WritesTheFramesFromThereWithoutAHeading) {
  Lines all;
  Util_BacktraceWithFunc(0, Collect, &all);
  const int here = 0;
  Lines lines;
  Util_BacktraceFromPointerWithFunc(&here, Collect, &lines);
  ASSERT_GT(lines.size(), 2U);
  EXPECT_GE(FrameOf(lines[0]), reinterpret_cast<unsigned long>(&here));
  EXPECT_EQ(lines[0].substr(0, 13), "Backtrace[0] ");
  // The outer frames are the same.
  EXPECT_EQ(FrameOf(lines.back()), FrameOf(all.back()));
  EXPECT_EQ(lines.size(), all.size() - 2);
}

Lines linesInSameFrame;

TEST(Backtrace, EndsBeforeAFrameThatIsNoHigherThanTheLast) {
  CallInSameFrame([] { TraceFrom(0, &linesInSameFrame); });
  Lines whole;
  TraceFrom(0, &whole);
  EXPECT_GT(linesInSameFrame.size(), 1U);
  EXPECT_LT(linesInSameFrame.size(), whole.size());
}

struct Traces {
  Lines all;
  Lines fromBase;
};

// Goes `depth` frames down before it asks for all frames and for those from `base` on.
[[gnu::noinline]] void TraceBothFrom(int depth, const void *base, Traces *traces) {
  if (depth == 0) {
    Util_BacktraceFromPointerWithFunc(nullptr, Collect, &traces->all);
    Util_BacktraceFromPointerWithFunc(base, Collect, &traces->fromBase);
  } else {
    TraceBothFrom(depth - 1, base, traces);
  }
  // Work after each call, so that the compiler keeps the frame.
  asm volatile("" ::: "memory");
}

TEST(BacktraceFromPointer, PassesOverTenFramesAtMost) {
  const int base = 0;
  std::vector<ptrdiff_t> passed;
  for (int depth = 0; depth < 15; depth++) {
    Traces traces;
    TraceBothFrom(depth, &base, &traces);
    const ptrdiff_t inner = std::count_if(traces.all.begin(), traces.all.end(), [&base](const auto &line) {
      return FrameOf(line) < reinterpret_cast<unsigned long>(&base);
    });
    passed.push_back(inner);
    EXPECT_EQ(traces.fromBase.size(), inner > 10 ? 0 : traces.all.size() - static_cast<size_t>(inner))
        << inner;
  }
  EXPECT_EQ(std::count(passed.begin(), passed.end(), 10), 1);
  EXPECT_EQ(std::count(passed.begin(), passed.end(), 11), 1);
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
