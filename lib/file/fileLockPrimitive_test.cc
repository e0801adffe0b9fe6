#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <numeric>
#include <string>
#include <vector>

#include "base64.h"
#include "fileLockInt.h"
#include "fileLockTestInt.h"
#include "log.h"
#include "machineID.h"
#include "testhost.h"

using namespace locktest;

namespace {

TEST(FileLockWaitStep, GrowsFromATenthOfASecondToTwoSeconds) {
  uint32_t loops = 0;
  for (int step = 0; step < 21; step++) {
    EXPECT_EQ(FileLockWaitStep(&loops), 100U) << step;
  }
  for (uint32_t expected = 200; expected <= 2000; expected += 100) {
    EXPECT_EQ(FileLockWaitStep(&loops), expected);
  }
  for (int step = 0; step < 100; step++) {
    EXPECT_EQ(FileLockWaitStep(&loops), 2000U);
  }
}

TEST(FileSleeper, SleepsAtMostAFewMillisecondsMore) {
  for (const uint32_t msec : {1U, 50U, 100U}) {
    // A crowded machine adds to a sleep, but not to each.
    double least = Seconds([msec] { FileSleeper(msec); });
    for (int turn = 1; turn < 5; turn++) {
      least = std::min(least, Seconds([msec] { FileSleeper(msec); }));
    }
    EXPECT_GE(least, msec / 1000.0);
    EXPECT_LT(least, (msec + 60) / 1000.0);
  }
}

TEST(FileLockMachineID, IsHashAndHardwareInOneName) {
  testhost::Host host;
  host.Enter();
  uint32_t hostNameHash = 0;
  uint64_t hardwareID = 0;
  Hostinfo_MachineID(&hostNameHash, &hardwareID);
  std::string text = FileLockGetMachineID();
  EXPECT_EQ(text.size(), 16U);
  EXPECT_EQ(text.find('/'), std::string::npos);
  std::replace(text.begin(), text.end(), '-', '/');
  struct {
    uint32_t hash, low, high;
  } raw = {};
  size_t length = 0;
  ASSERT_TRUE(Base64_Decode(text.c_str(), reinterpret_cast<uint8_t *>(&raw), sizeof raw, &length));
  EXPECT_EQ(length, 12U);
  EXPECT_EQ(raw.hash, hostNameHash);
  EXPECT_EQ(raw.low + (static_cast<uint64_t>(raw.high) << 32), hardwareID);
  EXPECT_EQ(FileLockGetMachineID(), FileLockGetMachineID());
}

TEST(FileLockMachineID, HasNoSlash) {
  testhost::Host host;
  host.Enter();
  ASSERT_EQ(unshare(CLONE_NEWNET), 0);
  std::string output;
  ASSERT_EQ(
      testhost::Run("ip tuntap add eth0 mode tap && ip link set eth0 address 02:00:ff:ff:ff:ff", &output), 0)
      << output;
  // What stands for the last six of the twelve bytes, ff ff ff ff 00 00.
  EXPECT_EQ(std::string(FileLockGetMachineID()).substr(8), "-----wAA");
}

class FileLockMachineIDMatches : public ::testing::Test {
 protected:
  void SetUp() override {
    testhost::Host host;
    host.Enter();
    ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  }
};

TEST_F(FileLockMachineIDMatches, ComparesLikeWithLike) {
  EXPECT_TRUE(FileLockMachineIDMatch("abc", "abc"));
  EXPECT_FALSE(FileLockMachineIDMatch("abc", "abd"));
  EXPECT_TRUE(FileLockMachineIDMatch("uuid=abc", "uuid=abc"));
  EXPECT_FALSE(FileLockMachineIDMatch("uuid=abc", "uuid=abd"));
  EXPECT_FALSE(FileLockMachineIDMatch("abc", "uuid=abc"));
  EXPECT_FALSE(FileLockMachineIDMatch(FileLockGetMachineID(), "uuid=abc"));
  EXPECT_FALSE(Logged("decode problem"));
}

TEST_F(FileLockMachineIDMatches, KnowsItsHardwareUnderAFormerHostName) {
  const std::string mine = FileLockGetMachineID();
  uint8_t raw[12];
  std::string plain = mine;
  std::replace(plain.begin(), plain.end(), '-', '/');
  ASSERT_TRUE(Base64_Decode(plain.c_str(), raw, sizeof raw, nullptr));
  const auto encoded = [&raw] {
    char text[20];
    EXPECT_TRUE(Base64_Encode(raw, sizeof raw, text, sizeof text, nullptr));
    std::string result = text;
    std::replace(result.begin(), result.end(), '/', '-');
    return result;
  };
  EXPECT_TRUE(FileLockMachineIDMatch("uuid=abc", mine.c_str()));
  raw[0] ^= 0xff;
  raw[3] ^= 0xff;
  EXPECT_TRUE(FileLockMachineIDMatch("uuid=abc", encoded().c_str()));
  EXPECT_FALSE(FileLockMachineIDMatch(mine.c_str(), encoded().c_str()));
  raw[4] ^= 1;
  EXPECT_FALSE(FileLockMachineIDMatch("uuid=abc", encoded().c_str()));
  raw[4] ^= 1;
  raw[11] ^= 1;
  EXPECT_FALSE(FileLockMachineIDMatch("uuid=abc", encoded().c_str()));
}

TEST_F(FileLockMachineIDMatches, WarnsOfWhatCannotBeDecoded) {
  for (const char *text : {"AAAA", "AAAAAAAAAAAAAAAAAAAA", "!AAAAAAAAAAAAAAA"}) {
    EXPECT_FALSE(FileLockMachineIDMatch("uuid=abc", text));
    EXPECT_TRUE(Logged("OldMachineIDMatch: unexpected decode problem #2 (" + std::string(text) + ")\n"))
        << text;
  }
}

class FileLockMember : public FileLockMachineIDMatches {
 protected:
  static int Read(const std::string &line, LockValues *member) {
    WriteMember("/tmp/x.lck", "M00001.lck", line);
    return FileLockMemberValues("/tmp/x.lck", "M00001.lck", member);
  }
};

TEST_F(FileLockMember, FieldsAreTaken) {
  LockValues member = {};
  ASSERT_EQ(Read("machine 123 4294967295 S 99 other=x=y lc=77", &member), 0);
  EXPECT_EQ(member.machineID, "machine");
  EXPECT_EQ(member.executionID, "123");
  EXPECT_EQ(member.lamportNumber, 4294967295U);
  EXPECT_EQ(member.lockType, "S");
  EXPECT_EQ(member.payload, "99");
  EXPECT_EQ(member.locationChecksum, "77");
  EXPECT_EQ(member.memberName, "M00001.lck");
}

TEST_F(FileLockMember, ShortFormHasNeitherPayloadNorChecksum) {
  LockValues member = {};
  ASSERT_EQ(Read("machine 123 5 X", &member), 0);
  EXPECT_EQ(member.payload, "");
  EXPECT_EQ(member.locationChecksum, "");
  ASSERT_EQ(Read("machine 123 5 X [ lc=1", &member), 0);
  EXPECT_EQ(member.payload, "");
}

TEST_F(FileLockMember, TextMayFillTheFile) {
  LockValues member = {};
  const std::string start = "machine 123 5 X [ lc=";
  ASSERT_EQ(Read(start + std::string(512 - start.size(), '7'), &member), 0);
  EXPECT_EQ(member.locationChecksum, std::string(512 - start.size(), '7'));
}

TEST_F(FileLockMember, MissingFileIsQuiet) {
  LockValues member = {};
  const std::string log = LogText();
  EXPECT_EQ(FileLockMemberValues("/tmp/x.lck", "M00002.lck", &member), ENOENT);
  EXPECT_EQ(LogText(), log);
}

TEST_F(FileLockMember, BadFileIsGoneAfterwards) {
  LockValues member = {};
  EXPECT_EQ(Read("machine 123 5", &member), ENOENT);
  EXPECT_FALSE(std::filesystem::exists("/tmp/x.lck/M00001.lck"));
}

TEST_F(FileLockMember, DirectoryInItsPlaceIsAnError) {
  LockValues member = {};
  std::filesystem::create_directories("/tmp/x.lck/M00003.lck");
  EXPECT_EQ(FileLockMemberValues("/tmp/x.lck", "M00003.lck", &member), EISDIR);
  EXPECT_TRUE(std::filesystem::exists("/tmp/x.lck/M00003.lck"));
}

}  // namespace
