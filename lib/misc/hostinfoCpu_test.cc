#include "hostinfoCpu.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "hostinfoTestInt.h"
#include "owned.h"

namespace {

// What the stand-in below answers.
std::vector<double> loads;

}  // namespace

// A stand-in for the C library's, since a host's load is everybody's.
extern "C" int getloadavg(double *averages, int count) noexcept {
  const size_t given = std::min(loads.size(), static_cast<size_t>(count));
  std::copy_n(loads.begin(), given, averages);
  return loads.empty() ? -1 : static_cast<int>(given);
}

namespace {

constexpr char kPath[] = "/proc/cpuinfo";

// A text of so many processors with 1000.25, 2000.25 and so on megahertz.
std::string CpuInfo(int count) {
  std::string text;
  for (int i = 0; i < count; i++) {
    text += "processor\t: " + std::to_string(i) + "\nvendor_id\t: Maple\nmodel\t\t: 7" +
            "\nmodel name\t: Maple(TM) 9: " + std::to_string(i) +
            "  \ncpu MHz\t\t: " + std::to_string(i + 1) + "000.25\nflags\t\t:\n\n";
  }
  return text;
}

class Cpu : public hostinfotest::LoggingHost {
 protected:
  void EnterWith(const std::string &cpuInfo) {
    host_.File(kPath, cpuInfo);
    Enter();
  }

  static std::string Info(int cpu, const char *key) {
    const OwnedString value(HostinfoGetCpuInfo(cpu, key));
    return value == nullptr ? "(null)" : value.get();
  }

  // 9 when there is no value, and 7 when the output was left alone.
  static unsigned MHz(int cpu) {
    unsigned mhz = 7;
    return Hostinfo_GetCpuMHz(cpu, &mhz) ? mhz : 9;
  }
};

TEST_F(Cpu, CountsTheLinesThatBeginWithProcessor) {
  EnterWith(CpuInfo(4) + "a processor\nProcessor: 9\nprocessors");
  EXPECT_EQ(Hostinfo_NumCPUs(), 5);
  EXPECT_TRUE(Hostinfo_IsSMP());
}

TEST_F(Cpu, OneProcessorIsNotSeveral) {
  EnterWith(CpuInfo(1));
  EXPECT_FALSE(Hostinfo_IsSMP());
  EXPECT_EQ(Hostinfo_NumCPUs(), 1);
}

TEST_F(Cpu, TheCountIsKeptOnceThereIsOne) {
  EnterWith("");
  EXPECT_EQ(Hostinfo_NumCPUs(), -1);
  EXPECT_FALSE(Hostinfo_IsSMP());
  testhost::WriteFile(kPath, CpuInfo(3));
  EXPECT_EQ(Hostinfo_NumCPUs(), 3);
  testhost::WriteFile(kPath, CpuInfo(1));
  EXPECT_EQ(Hostinfo_NumCPUs(), 3);
}

TEST_F(Cpu, WithoutTheFileNothingIsKnown) {
  host_.Remove(kPath);
  Enter();
  EXPECT_EQ(Hostinfo_NumCPUs(), -1);
  EXPECT_FALSE(Hostinfo_IsSMP());
  EXPECT_EQ(CountLogged("HOSTINFO: HostinfoGetCpuInfo: Unable to open /proc/cpuinfo"), 0U);
  EXPECT_EQ(Info(0, "model name"), "(null)");
  EXPECT_EQ(CountLogged("HOSTINFO: HostinfoGetCpuInfo: Unable to open /proc/cpuinfo"), 1U);
  EXPECT_EQ(Hostinfo_GetCpuModelName(0), nullptr);
  EXPECT_EQ(MHz(0), 9U);
}

TEST_F(Cpu, GivesTheValueOfEachProcessor) {
  EnterWith(CpuInfo(4));
  EXPECT_EQ(Info(0, "cpu MHz"), "1000.25");
  EXPECT_EQ(Info(2, "cpu MHz"), "3000.25");
  EXPECT_EQ(Info(3, "cpu MHz"), "4000.25");
}

TEST_F(Cpu, GivesTheLastProcessorsWhenThereAreFewer) {
  EnterWith(CpuInfo(4));
  EXPECT_EQ(Info(4, "cpu MHz"), "4000.25");
  EXPECT_EQ(Info(5, "cpu MHz"), "4000.25");
  EXPECT_EQ(Info(-1, "cpu MHz"), "1000.25");
}

TEST_F(Cpu, AValueBeginsBehindTheFirstColonAndHasNoBlanksAround) {
  EnterWith(CpuInfo(2) + "a:b model name \v x\f: \t c : d\v \n");
  EXPECT_EQ(Info(1, "model name"), "Maple(TM) 9: 1");
  EXPECT_EQ(Info(9, "model name"), "c : d");
  EXPECT_EQ(Info(0, "flags"), "");
  const OwnedString name(Hostinfo_GetCpuModelName(1));
  EXPECT_STREQ(name.get(), "Maple(TM) 9: 1");
}

// So the second line of the first processor is taken for the second processor's.
TEST_F(Cpu, AKeyIsFoundWithinLongerOnes) {
  EnterWith(CpuInfo(2));
  EXPECT_EQ(Info(0, "model"), "7");
  EXPECT_EQ(Info(1, "model"), "Maple(TM) 9: 0");
}

TEST_F(Cpu, LinesWithoutTheKeyOrAColonBehindItGiveNothing) {
  EnterWith("cpu: MHz\ncpu MHz 12\n12: cpu MHz\n");
  EXPECT_EQ(Info(0, "cpu MHz"), "(null)");
  EXPECT_EQ(MHz(0), 9U);
}

TEST_F(Cpu, ReadsLongLines) {
  const std::string flags(1000000, 'f');
  EnterWith("flags : " + flags + "\nprocessor: 1\nflags : last");
  EXPECT_EQ(Info(0, "flags"), flags);
  EXPECT_EQ(Info(1, "flags"), "last");
  EXPECT_EQ(Hostinfo_NumCPUs(), 1);
}

TEST_F(Cpu, MegahertzAreRounded) {
  EnterWith("cpu MHz: 2399.4\ncpu MHz: 2399.5\ncpu MHz: 0\ncpu MHz: 1e3x\n");
  EXPECT_EQ(MHz(0), 2399U);
  EXPECT_EQ(MHz(1), 2400U);
  EXPECT_EQ(MHz(2), 0U);
  EXPECT_EQ(MHz(3), 1000U);
}

TEST_F(Cpu, MegahertzThatAreNoNumberAreLeftAlone) {
  EnterWith("cpu MHz: fast\ncpu MHz:\ncpu MHz: -2\ncpu MHz: nan\ncpu MHz: 5e9\ncpu MHz: 1e99\n");
  for (int cpu = 0; cpu < 6; cpu++) {
    EXPECT_EQ(MHz(cpu), 7U) << cpu;
  }
}

class Load : public hostinfotest::LoggingHost {
 protected:
  void SetUp() override {
    Enter();
    loads = {0.29, 1.5, 12.75};
  }
  // However the line's number changes.
  static bool LoggedOneFailure() {
    const std::string log = testhost::ReadFile(Log_GetFileName());
    const std::string text = "| NOT_TESTED lib/misc/hostinfoCpu.cc:";
    const size_t at = log.find(text);
    return at != std::string::npos && log.find(text, at + 1) == std::string::npos;
  }
};

TEST_F(Load, IsThatOfThreeTimes) {
  double one = 0;
  double five = 0;
  double fifteen = 0;
  EXPECT_TRUE(Hostinfo_GetLoadAverage(&one, &five, &fifteen));
  EXPECT_EQ(one, 0.29);
  EXPECT_EQ(five, 1.5);
  EXPECT_EQ(fifteen, 12.75);
  EXPECT_TRUE(Hostinfo_GetLoadAverage(nullptr, nullptr, nullptr));
}

TEST_F(Load, IsGivenInHundredths) {
  unsigned load = 0;
  EXPECT_TRUE(Hostinfo_GetLoadAverageInt(&load));
  EXPECT_EQ(load, 29U);
}

TEST_F(Load, IsLogged) {
  Hostinfo_LogLoadAverage();
  EXPECT_EQ(CountLogged("LOADAVG: 0.29 1.50 12.75"), 1U);
}

TEST_F(Load, OnlyTheFirstFailureIsLogged) {
  loads.pop_back();
  double one = 7;
  double five = 7;
  unsigned load = 7;
  EXPECT_FALSE(Hostinfo_GetLoadAverage(&one, &five, nullptr));
  EXPECT_FALSE(Hostinfo_GetLoadAverageInt(&load));
  EXPECT_EQ(one, 7);
  EXPECT_EQ(five, 7);
  EXPECT_EQ(load, 7U);
  EXPECT_TRUE(LoggedOneFailure());
  const std::string log = testhost::ReadFile(Log_GetFileName());
  loads.clear();
  Hostinfo_LogLoadAverage();
  EXPECT_EQ(testhost::ReadFile(Log_GetFileName()), log);
}

}  // namespace
