#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "file.h"
#include "fileInt.h"
#include "fileTestInt.h"
#include "testhost.h"

namespace {

class FileBlockDevice : public FileHost {
 protected:
  static void WriteTable(const std::string &content) {
    unlink("/etc/mtab");
    testhost::WriteFile("/etc/mtab", content);
  }
};

class FileBlockDeviceLatin1 : public FileHostLatin1 {};

std::string DeviceOf(const char *path) {
  return Take(FilePosixGetBlockDevice(path));
}

TEST(FileParent, OfAPathIsUpToItsLastSlash) {
  const struct {
    const char *path, *parent;
  } rows[] = {{"/a/b", "/a"}, {"/a", "/"},    {"/", nullptr}, {"/a/b/", "/a/b"},
              {"a/b", "a"},   {"a", nullptr}, {"", nullptr},  {"//", "/"}};
  for (const auto &row : rows) {
    std::string path = row.path;
    EXPECT_EQ(FilePosixGetParent(&path), row.parent != nullptr) << row.path;
    EXPECT_EQ(path, row.parent != nullptr ? row.parent : row.path);
  }
}

TEST_F(FileBlockDevice, IsThatOfTheNearestMount) {
  WriteTable("/dev/root / ext4 rw 0 0\n/dev/inner /t ext4 rw 0 0\n");
  EXPECT_EQ(DeviceOf("/t/file"), "/dev/inner");
  EXPECT_EQ(DeviceOf("/t"), "/dev/inner");
  EXPECT_EQ(DeviceOf("/tmp"), "/dev/root");
  EXPECT_EQ(DeviceOf("/"), "/dev/root");
}

TEST_F(FileBlockDevice, IsThatOfTheLastMountOfAPlace) {
  WriteTable("rootfs / rootfs rw 0 0\n/dev/root / ext4 rw 0 0\n");
  EXPECT_EQ(DeviceOf("/t/file"), "/dev/root");
}

TEST_F(FileBlockDevice, OfAMissingPathIsThatOfWhatExists) {
  WriteTable("/dev/root / ext4 rw 0 0\n/dev/inner /t/dir ext4 rw 0 0\n");
  EXPECT_EQ(DeviceOf("/t/dir/missing/x//y"), "/dev/inner");
  EXPECT_EQ(DeviceOf("/missing/x"), "/dev/root");
  EXPECT_EQ(DeviceOf("/missing"), "/dev/root");
  ASSERT_EQ(chdir("/t/dir"), 0);
  EXPECT_EQ(DeviceOf("missing/x"), "/dev/inner");
  EXPECT_EQ(DeviceOf("missing"), "/dev/inner");
  EXPECT_EQ(DeviceOf(""), "/dev/inner");
}

TEST_F(FileBlockDevice, IsSeenThroughLinks) {
  WriteTable("/dev/root / ext4 rw 0 0\n/dev/inner /t/dir ext4 rw 0 0\n");
  ASSERT_EQ(symlink("t/dir", "/link"), 0);
  EXPECT_EQ(DeviceOf("/link"), "/dev/inner");
  EXPECT_EQ(DeviceOf("/link/missing"), "/dev/inner");
}

TEST_F(FileBlockDevice, IsUnknownWithoutAnEntry) {
  WriteTable("/dev/inner /t/dir ext4 rw 0 0\n");
  EXPECT_EQ(DeviceOf("/t/file"), "null");
  WriteTable("");
  EXPECT_EQ(DeviceOf("/t/file"), "null");
  unlink("/etc/mtab");
  EXPECT_EQ(DeviceOf("/t/file"), "null");
}

TEST_F(FileBlockDevice, IsFoundBesideEntriesThatAreNone) {
  WriteTable("\n# a remark\nbroken\n" + std::string(5000, 'x') +
             " /t ext4 rw 0 0\n/dev/caf\xE9 /x ext4 rw\n" + "/dev/inner /t/dir ext4 rw 0 0");
  EXPECT_EQ(DeviceOf("/t/dir"), "/dev/inner");
}

TEST_F(FileBlockDevice, IsSeenThroughABindMount) {
  WriteTable(
      "/dev/root / ext4 rw 0 0\n/dev/data /data ext4 rw 0 0\n"
      "/data/sub /t/dir none rw,bind 0 0\n/ /t/small none rbind,rw 0 0\n");
  testhost::WriteFile("/t/dir/a/b", "");
  EXPECT_EQ(DeviceOf("/t/dir/a/b"), "/dev/data");
  EXPECT_EQ(DeviceOf("/t/dir"), "/dev/data");
  EXPECT_EQ(DeviceOf("/t/small"), "/dev/root");
}

TEST_F(FileBlockDevice, KeepsWhatFollowedABindMount) {
  // Only what is behind /source/a is on the inner device.
  WriteTable(
      "/dev/root / ext4 rw 0 0\n/dev/inner /source/a ext4 rw 0 0\n/source /t/dir none bind 0 0\n"
      "/t /t/small none bind 0 0\n");
  testhost::WriteFile("/t/dir/a/b", "");
  testhost::WriteFile("/t/dir/ab", "");
  EXPECT_EQ(DeviceOf("/t/dir/a/b"), "/dev/inner");
  EXPECT_EQ(DeviceOf("/t/dir/ab"), "/dev/root");
  testhost::WriteFile("/t/small/dir/a/b", "");
  EXPECT_EQ(DeviceOf("/t/small/dir/a/b"), "/dev/inner");
}

TEST_F(FileBlockDevice, ARootThatIsABindMountIsReplacedWhole) {
  WriteTable("/source / none bind 0 0\n/dev/inner /source/t ext4 rw 0 0\n/dev/outer /source ext4 rw 0 0\n");
  EXPECT_EQ(DeviceOf("/t/file"), "/dev/inner");
  EXPECT_EQ(DeviceOf("/"), "/dev/outer");
}

TEST_F(FileBlockDevice, AnOptionThatOnlySoundsAlikeIsNoBindMount) {
  WriteTable("/dev/inner /t none rw,nobindings,x-bind 0 0\n");
  EXPECT_EQ(DeviceOf("/t/file"), "/dev/inner");
}

TEST_F(FileBlockDevice, ABindMountOfNoDirectoryLeadsNowhere) {
  WriteTable("/dev/root / ext4 rw 0 0\nnone /t none bind 0 0\n");
  EXPECT_EQ(DeviceOf("/t/file"), "null");
  EXPECT_FALSE(HasLogged("Giving up"));
}

// A table in which `count` bind mounts stand between /t/dir and a device.
std::string Chain(int count) {
  std::string table = "/dev/end / ext4 rw 0 0\n";
  std::string place = "/t/dir";
  for (int number = 0; number < count; number++) {
    const std::string next = "/chain" + std::to_string(number);
    table.append(next).append(" ").append(place).append(" none rw,bind 0 0\n");
    place = next;
  }
  return table;
}

TEST_F(FileBlockDevice, TenBindMountsAreFollowedAndNoMore) {
  for (const int count : {0, 1, 9, 10}) {
    WriteTable(Chain(count));
    EXPECT_EQ(DeviceOf("/t/dir"), "/dev/end") << count;
  }
  EXPECT_FALSE(HasLogged("Giving up"));
  for (const int count : {11, 12}) {
    WriteTable(Chain(count));
    testing::internal::CaptureStderr();
    EXPECT_EQ(DeviceOf("/t/dir"), "null") << count;
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "FILE: FilePosixGetBlockDevice: The --[r]bind mount count exceeds 10. Giving up.\n");
  }
  EXPECT_TRUE(
      HasLogged("| FILE: FilePosixGetBlockDevice: The --[r]bind mount count exceeds 10. Giving up.\n"));
}

TEST_F(FileBlockDevice, ABindMountOfItselfEnds) {
  WriteTable("/t/dir /t/dir none bind 0 0\n");
  EXPECT_EQ(DeviceOf("/t/dir"), "null");
  EXPECT_TRUE(HasLogged("Giving up"));
}

TEST_F(FileBlockDevice, IsKnownOnThisHost) {
  EXPECT_EQ(DeviceOf("/proc"), "proc");
}

TEST_F(FileBlockDeviceLatin1, IsConverted) {
  ASSERT_EQ(mkdir("/t/\xE9t\xE9", 0755), 0);
  unlink("/etc/mtab");
  testhost::WriteFile("/etc/mtab", "/dev/\xE9 /t/\xE9t\xE9 ext4 rw 0 0\n");
  EXPECT_EQ(DeviceOf("/t/\u00E9t\u00E9/x"), "/dev/\u00E9");
}

}  // namespace
