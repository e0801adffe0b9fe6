#include "hostinfoMem.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <optional>
#include <string>

#include "hostinfoTestInt.h"
#include "owned.h"
#include "systemCalls.h"

namespace {

// What the stand-in below answers; the kernel does when there is nothing.
std::optional<struct sysinfo> answer;

}  // namespace

// A stand-in for the C library's, since no host can be given another memory.
extern "C" int sysinfo(struct sysinfo *info) noexcept {
  if (answer) {
    *info = *answer;
    return 0;
  }
  return static_cast<int>(syscall(SYS_sysinfo, info));
}

namespace {

constexpr char kMemInfo[] = "/proc/meminfo";
constexpr char kNoMemInfo[] = "HOSTINFO: HostinfoGetMemInfo: Unable to open /proc/meminfo";
constexpr uint64_t kPage = 4096;

void AnswerMemory(uint64_t total, uint64_t free, unsigned unit = 1) {
  answer.emplace();
  answer->totalram = total;
  answer->freeram = free;
  answer->totalswap = 3 * total;
  answer->freeswap = 2 * free;
  answer->mem_unit = unit;
}

class Mem : public hostinfotest::LoggingHost {
 protected:
  void EnterWith(const std::string &memInfo) {
    host_.File(kMemInfo, memInfo);
    Enter();
  }

  static uint64_t MaxPages(uint64_t totalBytes) {
    AnswerMemory(totalBytes, 0);
    uint64_t min = 0;
    uint64_t max = 0;
    EXPECT_TRUE(Hostinfo_GetMemoryInfoInPages(&min, &max, nullptr));
    EXPECT_EQ(min, 128U);
    return max;
  }

  // The pages that are free or cached, with no byte free.
  static uint64_t Cached(const std::string &memInfo) {
    testhost::WriteFile(kMemInfo, memInfo);
    AnswerMemory(kPage, 0);
    uint64_t min = 0;
    uint64_t max = 0;
    uint64_t current = 7;
    EXPECT_TRUE(HostinfoGetMemInfo(&min, &max, &current));
    return current;
  }
};

TEST_F(Mem, IsWhatTheKernelTells) {
  Enter();
  uint64_t total = 0;
  uint64_t free = 0;
  uint64_t totalSwap = 1;
  ASSERT_TRUE(HostinfoSysinfo(&total, &free, &totalSwap, nullptr));
  struct sysinfo real;
  ASSERT_EQ(syscall(SYS_sysinfo, &real), 0);
  EXPECT_EQ(total, real.totalram * real.mem_unit);
  EXPECT_EQ(totalSwap, real.totalswap * real.mem_unit);
  EXPECT_GT(free, 0U);
  EXPECT_LE(free, total);
}

TEST_F(Mem, IsCountedInTheKernelsUnits) {
  uint64_t values[4] = {};
  AnswerMemory(100, 10, 4096);
  EXPECT_TRUE(HostinfoSysinfo(&values[0], &values[1], &values[2], &values[3]));
  EXPECT_EQ(values[0], 409600U);
  EXPECT_EQ(values[1], 40960U);
  EXPECT_EQ(values[2], 1228800U);
  EXPECT_EQ(values[3], 81920U);
  EXPECT_TRUE(HostinfoSysinfo(nullptr, nullptr, nullptr, nullptr));
}

TEST_F(Mem, AUnitOfNothingIsAByte) {
  uint64_t total = 0;
  AnswerMemory(100, 10, 0);
  EXPECT_TRUE(HostinfoSysinfo(&total, nullptr, nullptr, nullptr));
  EXPECT_EQ(total, 100U);
}

TEST_F(Mem, NothingIsGivenWhenTheSystemDoesNotTell) {
  Enter();
  testhost::FailSystemCall(SYS_sysinfo, EFAULT);
  uint64_t value = 7;
  EXPECT_FALSE(HostinfoSysinfo(&value, &value, &value, &value));
  EXPECT_FALSE(HostinfoGetSwapInfo(&value, &value));
  EXPECT_FALSE(HostinfoGetMemInfo(&value, &value, &value));
  EXPECT_FALSE(Hostinfo_GetMemoryInfoInPages(&value, &value, &value));
  EXPECT_EQ(value, 7U);
}

TEST_F(Mem, SwapSpaceIsGivenInPages) {
  AnswerMemory(3 * kPage + 1000, 2 * kPage + 2047);
  uint64_t total = 0;
  uint64_t free = 0;
  EXPECT_TRUE(HostinfoGetSwapInfo(&total, &free));
  EXPECT_EQ(total, 9U);
  EXPECT_EQ(free, 4U);
  EXPECT_TRUE(HostinfoGetSwapInfo(nullptr, nullptr));
}

TEST_F(Mem, RoundsMuchMemoryTo32MegabytesAndLittleTo8) {
  Enter();
  EXPECT_EQ(MaxPages(0x7ffffff), 0x8000000U / kPage);
  EXPECT_EQ(MaxPages(0x8000000), 0x8000000U / kPage);
  EXPECT_EQ(MaxPages(0x8000001), 0xa000000U / kPage);
  EXPECT_EQ(MaxPages(0x7800000), 0x7800000U / kPage);
  EXPECT_EQ(MaxPages(0x7000001), 0x7800000U / kPage);
  EXPECT_EQ(MaxPages(1), 0x800000U / kPage);
  EXPECT_EQ(MaxPages(uint64_t{1} << 46), (uint64_t{1} << 46) / kPage);
}

TEST_F(Mem, WhatIsCachedCountsAsFree) {
  EnterWith("MemTotal: 9999 kB\nCached: \t 4003 kB\nSwapCached: 9999 kB\n");
  AnswerMemory(100 * kPage, 5 * kPage + 4095);
  uint64_t min = 0;
  uint64_t max = 0;
  uint64_t current = 0;
  EXPECT_TRUE(Hostinfo_GetMemoryInfoInPages(&min, &max, &current));
  EXPECT_EQ(current, 1005U);
}

TEST_F(Mem, OtherTextsCacheNothing) {
  EnterWith("");
  for (const char *text : {"", "Cached:", "Cached: kB", "Cached: -4000", "Cached: +4000", "Cached:\n4000",
                           "Cached: 18446744073709551616 kB", "cached: 4000", "Cached : 4000"}) {
    EXPECT_EQ(Cached(text), 0U) << text;
  }
  EXPECT_EQ(Cached("Cached:4000"), 1000U);
  // The first that is found.
  EXPECT_EQ(Cached("SwapCached: 400 kB\nCached: 4000 kB\n"), 100U);
  EXPECT_EQ(Cached("Cached: 18446744073709551615 kB"), 0x3fffffffffffffffU);
}

TEST_F(Mem, ReadsNoMoreThan4095Bytes) {
  EnterWith("");
  EXPECT_EQ(Cached(std::string(4095 - 11, ' ') + "Cached:4000"), 1000U);
  EXPECT_EQ(Cached(std::string(4095 - 10, ' ') + "Cached:4000"), 100U);
  EXPECT_EQ(Cached(std::string(4095, ' ') + "Cached:4000"), 0U);
}

TEST_F(Mem, WithoutTheFileNothingIsCached) {
  host_.Remove(kMemInfo);
  Enter();
  AnswerMemory(100 * kPage, 5 * kPage);
  uint64_t min = 0;
  uint64_t max = 0;
  uint64_t current = 0;
  EXPECT_TRUE(HostinfoGetMemInfo(&min, &max, &current));
  EXPECT_EQ(min, 128U);
  EXPECT_EQ(max, 2048U);
  EXPECT_EQ(current, 5U);
  EXPECT_EQ(CountLogged(kNoMemInfo), 1U);
}

class MemUsage : public hostinfotest::LoggingHost {
 protected:
  // What is logged for a text in the place of the process's own.
  std::string LoggedFor(const std::string &statm) {
    testhost::WriteFile("/t/statm", statm);
    EXPECT_EQ(mount("/t/statm", "/proc/self/statm", nullptr, MS_BIND, nullptr), 0);
    const size_t before = testhost::ReadFile(Log_GetFileName()).size();
    Hostinfo_LogMemUsage();
    const std::string logged = testhost::ReadFile(Log_GetFileName()).substr(before);
    EXPECT_EQ(umount("/proc/self/statm"), 0);
    return logged.empty() ? "" : logged.substr(logged.find("| ") + 2);
  }
};

TEST_F(MemUsage, IsLogged) {
  Enter();
  Log("begin\n");
  EXPECT_EQ(LoggedFor("1 2 3 4 5 6 7\n"), "RUSAGE size=1 resident=2 share=3 trs=4 lrs=5 drs=6 dt=7\n");
  EXPECT_EQ(LoggedFor("1 2 3 4 5 6\n"), "");
  EXPECT_EQ(LoggedFor(""), "");
  EXPECT_EQ(LoggedFor("size 1 2 3 4 5 6 7\n"), "");
  // The first 63 bytes count.
  EXPECT_EQ(LoggedFor("1 2 3 4 5 6" + std::string(63 - 13, ' ') + "789"),
            "RUSAGE size=1 resident=2 share=3 trs=4 lrs=5 drs=6 dt=78\n");
}

TEST_F(MemUsage, IsTheProcesssOwn) {
  Enter();
  Hostinfo_LogMemUsage();
  const std::string log = testhost::ReadFile(Log_GetFileName());
  EXPECT_NE(log.find("RUSAGE size="), std::string::npos);
  EXPECT_EQ(log.find("RUSAGE size=0 "), std::string::npos);
}

TEST_F(MemUsage, IsNotLoggedWhenTheFileCannotBeOpened) {
  Enter();
  Log("begin\n");
  const OwnedStream log(fopen(Log_GetFileName(), "r"));
  testhost::FailSystemCall(SYS_openat, ENOENT);
  Hostinfo_LogMemUsage();
  std::string text(10000, '\0');
  text.resize(fread(text.data(), 1, text.size(), log.get()));
  EXPECT_TRUE(text.ends_with("| begin\n")) << text;
}

}  // namespace
