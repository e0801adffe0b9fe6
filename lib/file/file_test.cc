#include "file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <ctime>
#include <string>

#include "fileInt.h"
#include "fileTestInt.h"
#include "testhost.h"

namespace {

class File : public FileHost {};
class FileLatin1 : public FileHostLatin1 {};
class FileAscii : public FileHostAscii {};

class FileUser : public FileHost {
  void Describe(testhost::Host &host) override {
    host.File("/t/locked/file", "content").Directory("/t/locked", 0700).User(kUser);
  }
};

mode_t ModeOf(const char *path) {
  struct stat data;
  return stat(path, &data) == 0 ? data.st_mode & 07777 : 0;
}

TEST_F(File, TestsTellKindsApart) {
  ASSERT_EQ(mkfifo("/t/fifo", 0600), 0);
  ASSERT_EQ(mknod("/t/block", S_IFBLK | 0600, makedev(7, 0)), 0);
  ASSERT_EQ(symlink("dir", "/t/link"), 0);
  ASSERT_EQ(symlink("/dev/null", "/t/toDevice"), 0);
  ASSERT_EQ(symlink("missing", "/t/dangling"), 0);
  ASSERT_EQ(symlink("loop", "/t/loop"), 0);
  const struct {
    const char *path;
    bool exists, isFile, isDirectory, isCharDevice, isSymLink;
  } rows[] = {
      {"/t/file", true, true, false, false, false},    {"/t/dir", true, false, true, false, false},
      {"/t//dir/", true, false, true, false, false},   {"/t/link", true, false, true, false, true},
      {"/t/link/", true, false, true, false, false},   {"/t/fifo", true, false, false, false, false},
      {"/t/block", true, false, false, false, false},  {"/dev/null", true, false, false, true, false},
      {"/t/toDevice", true, false, false, true, true}, {"/t/missing", false, false, false, false, false},
      {"/t/file/", false, false, false, false, false}, {"/t/dangling", false, false, false, false, true},
      {"/t/loop", false, false, false, false, true},   {"", false, false, false, false, false},
      {nullptr, false, false, false, false, false},
  };
  for (const auto &row : rows) {
    EXPECT_EQ(File_Exists(row.path), row.exists) << row.path;
    EXPECT_EQ(File_IsFile(row.path), row.isFile) << row.path;
    EXPECT_EQ(File_IsDirectory(row.path), row.isDirectory) << row.path;
    EXPECT_EQ(File_IsCharDevice(row.path), row.isCharDevice) << row.path;
    EXPECT_EQ(File_IsSymLink(row.path), row.isSymLink) << row.path;
  }
}

TEST_F(File, TestsOfPathsThatAreTooLongAreFalse) {
  for (const size_t size : {4096U, 8192U}) {
    const std::string path = "/t/file" + std::string(size - 7, '/');
    EXPECT_FALSE(File_Exists(path.c_str()));
    EXPECT_FALSE(File_IsFile(path.c_str()));
    EXPECT_EQ(File_GetSize(path.c_str()), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
  }
  EXPECT_TRUE(File_IsDirectory(("/t/dir" + std::string(4095 - 6, '/')).c_str()));
}

TEST_F(FileLatin1, TestsConvertTheName) {
  testhost::WriteFile("/t/caf\xE9", "");
  EXPECT_TRUE(File_IsFile("/t/caf\u00E9"));
  EXPECT_FALSE(File_Exists("/t/caf\xE9"));
}

TEST_F(FileAscii, TestsOfWhatCannotBeExpressedAreFalse) {
  testhost::WriteFile("/t/caf\u00E9", "");
  EXPECT_FALSE(File_Exists("/t/caf\u00E9"));
  EXPECT_FALSE(File_IsFile("/t/caf\u00E9"));
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(FileUser, WhatCannotBeReachedIsNotThere) {
  EXPECT_FALSE(File_Exists("/t/locked/file"));
  EXPECT_FALSE(File_IsFile("/t/locked/file"));
  EXPECT_EQ(errno, EACCES);
  EXPECT_TRUE(File_IsDirectory("/t/locked"));
}

TEST_F(File, AttributesAreAllThatStatTells) {
  ASSERT_EQ(chown("/t/file", 12, 34), 0);
  ASSERT_EQ(chmod("/t/file", 04751), 0);
  const timespec times[] = {{1000, 5}, {2000, 6}};
  ASSERT_EQ(utimensat(AT_FDCWD, "/t/file", times, 0), 0);
  struct stat expected;
  ASSERT_EQ(stat("/t/file", &expected), 0);
  FileData data;
  ASSERT_TRUE(FileAttributes("/t/file", &data));
  EXPECT_EQ(data.fileAccessTime, 1000);
  EXPECT_EQ(data.fileCreationTime, expected.st_ctime);
  EXPECT_EQ(data.fileModificationTime, 2000);
  EXPECT_EQ(data.fileSize, 7);
  EXPECT_EQ(data.fileType, 0);
  EXPECT_EQ(data.fileMode, 04751U);
  EXPECT_EQ(data.fileOwner, 12U);
  EXPECT_EQ(data.fileGroup, 34U);
}

TEST_F(File, AttributesTellTheType) {
  ASSERT_EQ(mkfifo("/t/fifo", 0600), 0);
  ASSERT_EQ(mknod("/t/block", S_IFBLK | 0600, makedev(7, 0)), 0);
  ASSERT_EQ(symlink("dir", "/t/link"), 0);
  const struct {
    const char *path;
    int type, linkType;
  } rows[] = {{"/t/file", 0, 0},   {"/t/dir", 1, 1},  {"/t/block", 2, 2},
              {"/dev/null", 3, 3}, {"/t/link", 1, 4}, {"/t/fifo", 7, 7}};
  for (const auto &row : rows) {
    FileData data;
    ASSERT_TRUE(FileAttributes(row.path, &data));
    EXPECT_EQ(data.fileType, row.type) << row.path;
    ASSERT_TRUE(FileLinkAttributes(row.path, &data));
    EXPECT_EQ(data.fileType, row.linkType) << row.path;
  }
}

TEST_F(File, AttributesOfNothingTellWhy) {
  FileData data = {};
  data.fileSize = 99;
  EXPECT_FALSE(FileAttributes("/t/missing", &data));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(FileAttributes("/t/file/x", &data));
  EXPECT_EQ(errno, ENOTDIR);
  EXPECT_FALSE(FileLinkAttributes(nullptr, &data));
  EXPECT_EQ(errno, EFAULT);
  EXPECT_EQ(data.fileSize, 99);
}

TEST_F(File, SizeIsInBytes) {
  EXPECT_EQ(File_GetSize("/t/file"), 7);
  ASSERT_EQ(truncate("/t/file", 5LL << 30), 0);
  EXPECT_EQ(File_GetSize("/t/file"), 5LL << 30);
  EXPECT_EQ(File_GetSize("/t/missing"), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(File_GetSize(nullptr), -1);
}

void SetModTime(const char *path, time_t time) {
  const timespec times[] = {{1, 0}, {time, 999}};
  ASSERT_EQ(utimensat(AT_FDCWD, path, times, 0), 0);
}

TEST_F(File, ModTimeIsThatOfTheFile) {
  SetModTime("/t/file", 1234567890);
  EXPECT_EQ(File_GetModTime("/t/file"), 1234567890);
  EXPECT_EQ(File_GetModTime("/t/missing"), -1);
  EXPECT_EQ(errno, ENOENT);
}

void SetTimeZone(const char *zone) {
  setenv("TZ", zone, 1);
  tzset();
}

TEST_F(File, ModTimeInWordsIsOfTheLocalClock) {
  SetTimeZone("UTC0");
  SetModTime("/t/file", 1234567890);
  EXPECT_EQ(Take(File_GetModTimeString("/t/file")), "Fri Feb 13 23:31:30 2009");
  SetTimeZone("XST-2");
  EXPECT_EQ(Take(File_GetModTimeString("/t/file")), "Sat Feb 14 01:31:30 2009");
  SetModTime("/t/file", 0);
  EXPECT_EQ(Take(File_GetModTimeString("/t/file")), "Thu Jan  1 02:00:00 1970");
}

TEST_F(File, ModTimeThatHasNoWordsIsNull) {
  EXPECT_EQ(File_GetModTimeString("/t/missing"), nullptr);
  EXPECT_EQ(File_GetModTimeString(nullptr), nullptr);
  ASSERT_EQ(mount("none", "/t/small", "tmpfs", 0, "size=64k"), 0);
  testhost::WriteFile("/t/small/late", "");
  SetModTime("/t/small/late", 100000000000000000);
  ASSERT_EQ(File_GetModTime("/t/small/late"), 100000000000000000);
  EXPECT_EQ(File_GetModTimeString("/t/small/late"), nullptr);
}

TEST_F(File, PermissionsAreTheModeWithoutTheType) {
  mode_t mode = 1;
  ASSERT_EQ(chmod("/t/dir", 03751), 0);
  EXPECT_TRUE(File_GetFilePermissions("/t/dir", &mode));
  EXPECT_EQ(mode, 03751U);
  EXPECT_FALSE(File_GetFilePermissions("/t/missing", &mode));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(mode, 03751U);
}

TEST_F(File, SetFilePermissionsSetsTheMode) {
  EXPECT_TRUE(File_SetFilePermissions("/t/file", 04751));
  EXPECT_EQ(ModeOf("/t/file"), 04751U);
}

TEST_F(File, SetFilePermissionsLogsAFailure) {
  EXPECT_FALSE(File_SetFilePermissions("/t/missing", 0644));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_TRUE(
      HasLogged("| FILE: File_SetFilePermissions: failed to change permissions on file "
                "\"/t/missing\": No such file or directory\n"));
  EXPECT_FALSE(File_SetFilePermissions(nullptr, 0644));
  EXPECT_EQ(errno, EFAULT);
}

TEST_F(File, MakingAConfigurationsFileExecutableAnswersTheWrongWayRound) {
  const struct {
    mode_t before, after;
  } rows[] = {{0, 0700},    {0644, 0755}, {0640, 0750},   {0604, 0705},
              {0622, 0722}, {0600, 0700}, {04644, 04755}, {0444, 0755}};
  for (const auto &row : rows) {
    ASSERT_EQ(chmod("/t/file", row.before), 0);
    EXPECT_FALSE(File_MakeCfgFileExecutable("/t/file")) << row.before;
    EXPECT_EQ(ModeOf("/t/file"), row.after) << row.before;
    EXPECT_TRUE(File_MakeCfgFileExecutable("/t/file")) << "nothing to change";
    EXPECT_EQ(ModeOf("/t/file"), row.after) << row.before;
  }
}

TEST_F(File, AConfigurationsFileThatIsMissingIsNotExecutable) {
  EXPECT_FALSE(File_MakeCfgFileExecutable("/t/missing"));
  EXPECT_FALSE(File_MakeCfgFileExecutable(nullptr));
}

TEST_F(FileUser, AConfigurationsFileThatCannotBeChangedAnswersTrue) {
  const mode_t before = ModeOf("/t/file");
  ASSERT_EQ(before & S_IXUSR, 0U);
  EXPECT_TRUE(File_MakeCfgFileExecutable("/t/file"));
  EXPECT_EQ(ModeOf("/t/file"), before);
}

// 1970 in units of 100 nanoseconds since 1601.
constexpr int64_t kEpoch = 116444736000000000;

struct Times {
  int64_t create = 5, access = 5, write = 5, change = 5;
  bool isKnown = false;
};

Times TimesOf(const char *path) {
  Times times;
  times.isKnown = File_GetTimes(path, &times.create, &times.access, &times.write, &times.change);
  return times;
}

TEST_F(File, TimesAreInHundredsOfNanoseconds) {
  const timespec set[] = {{1, 234567899}, {1234567890, 100}};
  ASSERT_EQ(utimensat(AT_FDCWD, "/t/file", set, 0), 0);
  struct stat data;
  ASSERT_EQ(stat("/t/file", &data), 0);
  const Times times = TimesOf("/t/file");
  EXPECT_TRUE(times.isKnown);
  EXPECT_EQ(times.create, -1);
  EXPECT_EQ(times.access, kEpoch + 12345678);
  EXPECT_EQ(times.write, kEpoch + 12345678900000001);
  EXPECT_EQ(times.change, kEpoch + data.st_ctim.tv_sec * 10000000 + data.st_ctim.tv_nsec / 100);
}

TEST_F(File, TimesOfALinkAreItsOwn) {
  ASSERT_EQ(symlink("file", "/t/link"), 0);
  const timespec set[] = {{100, 0}, {200, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, "/t/link", set, AT_SYMLINK_NOFOLLOW), 0);
  EXPECT_EQ(TimesOf("/t/link").write, kEpoch + 200 * 10000000LL);
}

TEST_F(File, TimesOfAMissingFileAreNone) {
  const Times times = TimesOf("/t/missing");
  EXPECT_FALSE(times.isKnown);
  EXPECT_EQ(times.create, -1);
  EXPECT_EQ(times.access, -1);
  EXPECT_EQ(times.write, -1);
  EXPECT_EQ(times.change, -1);
  EXPECT_TRUE(
      HasLogged("| FILE: File_GetTimes: error stating file \"/t/missing\": No such file or directory\n"));
}

TEST_F(File, EachTimeNeedsAPlace) {
  int64_t time = 0;
  const char *asserts = "ASSERT lib/file/file.cc:";
  EXPECT_EXIT(File_GetTimes("/t/file", nullptr, &time, &time, &time), testing::ExitedWithCode(255), asserts);
  EXPECT_EXIT(File_GetTimes("/t/file", &time, nullptr, &time, &time), testing::ExitedWithCode(255), asserts);
  EXPECT_EXIT(File_GetTimes("/t/file", &time, &time, nullptr, &time), testing::ExitedWithCode(255), asserts);
  EXPECT_EXIT(File_GetTimes("/t/file", &time, &time, &time, nullptr), testing::ExitedWithCode(255), asserts);
}

TEST_F(File, SetTimesSetsToMicroseconds) {
  EXPECT_TRUE(File_SetTimes("/t/file", 99, kEpoch + 12345678, kEpoch + 12345678900000019));
  const Times times = TimesOf("/t/file");
  EXPECT_EQ(times.access, kEpoch + 12345670);
  EXPECT_EQ(times.write, kEpoch + 12345678900000010);
}

TEST_F(File, SetTimesKeepsATimeThatIsNotGivenInWholeSeconds) {
  const timespec set[] = {{100, 500000000}, {200, 600000000}};
  ASSERT_EQ(utimensat(AT_FDCWD, "/t/file", set, 0), 0);
  EXPECT_TRUE(File_SetTimes("/t/file", 0, -1, kEpoch + 300 * 10000000LL));
  EXPECT_EQ(TimesOf("/t/file").access, kEpoch + 100 * 10000000LL);
  EXPECT_EQ(TimesOf("/t/file").write, kEpoch + 300 * 10000000LL);
  EXPECT_TRUE(File_SetTimes("/t/file", 0, kEpoch + 400 * 10000000LL, 0));
  EXPECT_EQ(TimesOf("/t/file").access, kEpoch + 400 * 10000000LL);
  EXPECT_EQ(TimesOf("/t/file").write, kEpoch + 300 * 10000000LL);
}

TEST_F(File, SetTimesBefore1970Sets1970) {
  EXPECT_TRUE(File_SetTimes("/t/file", 0, 1, kEpoch - 1));
  EXPECT_EQ(TimesOf("/t/file").access, kEpoch);
  EXPECT_EQ(TimesOf("/t/file").write, kEpoch);
}

TEST_F(File, SetTimesStartsFromALinksOwnTimesAndSetsItsTargets) {
  ASSERT_EQ(symlink("file", "/t/link"), 0);
  const timespec set[] = {{100, 0}, {200, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, "/t/link", set, AT_SYMLINK_NOFOLLOW), 0);
  EXPECT_TRUE(File_SetTimes("/t/link", 0, kEpoch + 300 * 10000000LL, 0));
  EXPECT_EQ(TimesOf("/t/file").access, kEpoch + 300 * 10000000LL);
  EXPECT_EQ(TimesOf("/t/file").write, kEpoch + 200 * 10000000LL);
  EXPECT_EQ(TimesOf("/t/link").write, kEpoch + 200 * 10000000LL);
}

TEST_F(File, SetTimesLogsAFailure) {
  EXPECT_FALSE(File_SetTimes("/t/missing", 0, 0, 0));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_TRUE(
      HasLogged("| FILE: File_SetTimes: error stating file \"/t/missing\": No such file or directory\n"));
  EXPECT_FALSE(File_SetTimes(nullptr, 0, 0, 0));
  EXPECT_EQ(errno, EFAULT);
}

TEST_F(FileUser, SetTimesOfAnothersFileFails) {
  EXPECT_FALSE(File_SetTimes("/t/file", 0, kEpoch + 1, 0));
  EXPECT_EQ(errno, EPERM);
  EXPECT_TRUE(
      HasLogged("| FILE: File_SetTimes: utimes error on file \"/t/file\": Operation not permitted\n"));
}

TEST_F(FileAscii, SetTimesLogsAPathThatCannotBeExpressed) {
  EXPECT_FALSE(File_SetTimes("/t/caf\u00E9", 0, 0, 0));
  EXPECT_EQ(errno, EINVAL);
  EXPECT_TRUE(HasLogged("| FILE: File_SetTimes: failed to convert \"/t/caf\u00E9\" to current encoding\n"));
}

}  // namespace
