#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>

#include "file.h"
#include "fileTestInt.h"
#include "systemCalls.h"
#include "testhost.h"

namespace {

constexpr uint32_t kNfs = 0x6969;
constexpr uint32_t kSmb = 0x517b;
constexpr uint32_t kCifs = 0xff534d42;
constexpr uint32_t kOstfs = 0x2fabf15e;
constexpr uint64_t kTwoGigabytes = 0x80000000;

class FileSystem : public FileHost {
 protected:
  void SetUp() override {
    FileHost::SetUp();
    ASSERT_EQ(mount("none", "/t/small", "tmpfs", 0, "size=64k"), 0);
  }
};
class FileSystemAscii : public FileHostAscii {};

class FileSystemUser : public FileHost {
  void Describe(testhost::Host &host) override {
    host.File("/t/open/secret", "content", 0600).Directory("/t/open", 0777).User(kUser);
  }
};

// ---- Remote file systems; their answers are made up, for want of a network

TEST_F(FileSystem, RemoteOnesAreThoseOfTheNetwork) {
  const struct {
    uint32_t type;
    bool isRemote;
  } rows[] = {{kNfs, true},    {kSmb, true},        {kCifs, true},   {kOstfs, false},
              {0xef53, false}, {0x01021994, false}, {0x6968, false}, {0, false}};
  testhost::SystemCalls calls({SYS_statfs});
  for (const auto &row : rows) {
    calls.AnswerStatfs(row.type);
    EXPECT_EQ(File_IsRemote("/t/file"), row.isRemote) << std::hex << row.type;
    calls.Clear();
  }
  EXPECT_FALSE(File_IsRemote("/t/file"));
  EXPECT_FALSE(HasLogged("statfs"));
}

TEST_F(FileSystem, WhatCannotBeToldIsRemote) {
  EXPECT_TRUE(File_IsRemote("/t/missing"));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_TRUE(HasLogged("| FILE: File_IsRemote: statfs(/t/missing) failed: No such file or directory\n"));
  EXPECT_TRUE(File_IsRemote(nullptr));
  testhost::SystemCalls calls({SYS_statfs});
  calls.Fail(SYS_statfs, EIO);
  EXPECT_TRUE(File_IsRemote("/t/file"));
  EXPECT_TRUE(HasLogged("| FILE: File_IsRemote: statfs(/t/file) failed: Input/output error\n"));
}

TEST_F(FileSystemAscii, WhatCannotBeExpressedIsRemote) {
  EXPECT_TRUE(File_IsRemote("/t/caf\u00E9"));
  EXPECT_EQ(errno, EINVAL);
}

// ---- The same file

class FileSystemSame : public FileSystem {
 protected:
  void SetUp() override {
    FileSystem::SetUp();
    testhost::WriteFile("/t/twin", "content");
    testhost::WriteFile("/t/small/file", "content");
    ASSERT_EQ(link("/t/file", "/t/hard"), 0);
    ASSERT_EQ(symlink("file", "/t/link"), 0);
    const timespec times[] = {{1, 0}, {1, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, "/t/twin", times, 0), 0);
  }

  static void ExpectTheUsual() {
    EXPECT_TRUE(File_IsSameFile("/t/file", "/t/hard"));
    EXPECT_TRUE(File_IsSameFile("/t/link", "/t/file"));
    EXPECT_TRUE(File_IsSameFile("/t/file", "/t//dir/../file"));
    EXPECT_FALSE(File_IsSameFile("/t/file", "/t/twin"));
    EXPECT_FALSE(File_IsSameFile("/t/file", "/t"));
  }
};

TEST_F(FileSystemSame, IsToldByTheNumber) {
  ExpectTheUsual();
  EXPECT_FALSE(File_IsSameFile("/t/file", "/t/small/file"));
}

TEST_F(FileSystemSame, EqualTextsAreNotLookedAt) {
  const testhost::SystemCalls calls({SYS_newfstatat, SYS_statfs});
  EXPECT_TRUE(File_IsSameFile("/t/missing", "/t/missing"));
  EXPECT_TRUE(File_IsSameFile("", ""));
  EXPECT_EQ(calls.Count(SYS_newfstatat), 0U);
  EXPECT_EQ(calls.Count(SYS_statfs), 0U);
}

TEST_F(FileSystemSame, WhatIsMissingIsNot) {
  EXPECT_FALSE(File_IsSameFile("/t/file", "/t/missing"));
  EXPECT_FALSE(File_IsSameFile("/t/missing", "/t/file"));
}

TEST_F(FileSystemSame, WithoutItsFileSystemIsNot) {
  testhost::SystemCalls calls({SYS_statfs});
  calls.Fail(SYS_statfs, EIO, {.from = 1});
  EXPECT_FALSE(File_IsSameFile("/t/file", "/t/hard"));
  calls.Clear();
  calls.Fail(SYS_statfs, EIO);
  EXPECT_FALSE(File_IsSameFile("/t/file", "/t/hard"));
}

TEST_F(FileSystemSame, OnNfsIsToldByAllFacts) {
  testhost::SystemCalls calls({SYS_statfs});
  calls.AnswerStatfs(kNfs);
  ExpectTheUsual();
}

// Whether, with a process that changes the mode all the time, two names of one file are ever told apart.
bool AreEverToldApart() {
  const pid_t changer = fork();
  if (changer == 0) {
    for (;;) {
      chmod("/t/file", 0600);
      chmod("/t/file", 0644);
    }
  }
  bool isApart = false;
  for (int turn = 0; turn < 5000 && !isApart; turn++) {
    isApart = !File_IsSameFile("/t/file", "/t/hard");
  }
  kill(changer, SIGKILL);
  waitpid(changer, nullptr, 0);
  return isApart;
}

TEST_F(FileSystemSame, OnNfsIsNotTheFileWithOtherFacts) {
  EXPECT_FALSE(AreEverToldApart());
  testhost::SystemCalls calls({SYS_statfs});
  calls.AnswerStatfs(kNfs);
  EXPECT_TRUE(AreEverToldApart());
}

// ---- Room

TEST_F(FileSystem, CapacityAndFreeSpaceAreInBytes) {
  EXPECT_EQ(File_GetCapacity("/t/small"), 65536);
  EXPECT_EQ(File_GetFreeSpace("/t/small", true), 65536);
  testhost::WriteFile("/t/small/file", std::string(5000, 'x'));
  EXPECT_EQ(File_GetCapacity("/t/small/file"), 65536);
  EXPECT_EQ(File_GetFreeSpace("/t/small/file", true), 65536 - 8192);
  ASSERT_EQ(chdir("/t/small"), 0);
  EXPECT_EQ(File_GetCapacity(""), 65536);
  EXPECT_EQ(File_GetFreeSpace("file", true), 65536 - 8192);
}

TEST_F(FileSystem, FreeSpaceIsThatOfAnOrdinaryUser) {
  struct statfs data;
  ASSERT_EQ(statfs("/dev/shm", &data), 0);
  EXPECT_EQ(File_GetCapacity("/dev/shm"),
            static_cast<int64_t>(data.f_blocks) * static_cast<int64_t>(data.f_bsize));
  struct statfs root;
  ASSERT_EQ(statfs("/", &root), 0);
  EXPECT_NEAR(static_cast<double>(File_GetFreeSpace("/", true)),
              static_cast<double>(root.f_bavail) * static_cast<double>(root.f_bsize), 1e9);
}

TEST_F(FileSystem, RoomOfWhatIsMissingIsThatOfTheNearestParent) {
  EXPECT_EQ(File_GetCapacity("/t/small/a/b//c/"), 65536);
  EXPECT_EQ(File_GetFreeSpace("/t/small/a/b//c/", false), 65536);
  EXPECT_EQ(File_GetCapacity("/missing/x"), File_GetCapacity("/"));
}

TEST_F(FileSystem, FreeSpaceDoesNotAscendWhenTold) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(File_GetFreeSpace("/t/small/a/b", true), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "File_GetFreeSpace: Couldn't statfs /t/small/a/b\n");
  EXPECT_TRUE(HasLogged("| File_GetFreeSpace: Couldn't statfs /t/small/a/b\n"));
}

TEST_F(FileSystem, RoomThatCannotBeToldIsWarnedOf) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(File_GetCapacity("/t/file/x"), -1);
  EXPECT_EQ(errno, ENOTDIR);
  EXPECT_EQ(File_GetFreeSpace("/t/file/x", false), -1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "FILE: File_GetCapacity: Couldn't statfs\nFile_GetFreeSpace: Couldn't statfs /t/file/x\n");
  testhost::SystemCalls calls({SYS_statfs});
  calls.Fail(SYS_statfs, ENOENT);
  EXPECT_EQ(File_GetCapacity("/t/small/x"), -1);
  EXPECT_EQ(calls.Count(SYS_statfs), 4U) << "each parent and the root";
}

TEST_F(FileSystem, RoomOfAnUnknownPlaceIsUnknown) {
  ASSERT_EQ(chdir("/t/dir"), 0);
  ASSERT_EQ(rmdir("/t/dir"), 0);
  EXPECT_EQ(File_GetCapacity("x"), -1);
  EXPECT_EQ(File_GetFreeSpace(nullptr, false), -1);
  EXPECT_EQ(errno, ENOENT);
}

// ---- Sizes of files

TEST_F(FileSystem, SizesBelowTwoGigabytesAreNotLookedAt) {
  const testhost::SystemCalls calls({SYS_newfstatat, SYS_statfs, SYS_openat, SYS_getcwd, SYS_readlink});
  EXPECT_TRUE(File_SupportsFileSize("/t/small", 0x7fffffff));
  EXPECT_TRUE(File_SupportsFileSize("/t/missing/x", 0x7fffffff));
  EXPECT_TRUE(File_SupportsFileSize(nullptr, 0));
  for (const int call : {SYS_newfstatat, SYS_statfs, SYS_openat, SYS_getcwd, SYS_readlink}) {
    EXPECT_EQ(calls.Count(call), 0U);
  }
}

TEST_F(FileSystem, LargeFilesAreSupportedHere) {
  EXPECT_TRUE(File_SupportsLargeFiles("/t/file"));
  EXPECT_TRUE(File_SupportsLargeFiles("/t/small"));
  EXPECT_TRUE(File_SupportsLargeFiles("/t/small/new"));
  EXPECT_TRUE(File_SupportsFileSize("/t/small/new", kTwoGigabytes));
  EXPECT_TRUE(File_IsEmptyDirectory("/t/small"));
  EXPECT_EQ(testhost::ReadFile("/t/file"), "content");
}

TEST_F(FileSystem, SizesThatNoFileCanHaveAreNotSupported) {
  for (const char *path : {"/t/file", "/t/small", "/t/small/new"}) {
    EXPECT_FALSE(File_SupportsFileSize(path, 0x8000000000000000)) << path;
  }
  EXPECT_TRUE(File_IsEmptyDirectory("/t/small"));
}

TEST_F(FileSystem, SizesAreAskedOfAFileWithoutMakingAnother) {
  const testhost::SystemCalls calls({SYS_openat, SYS_unlink});
  EXPECT_TRUE(File_SupportsLargeFiles("/t/file"));
  EXPECT_EQ(calls.Count(SYS_openat), 1U);
  EXPECT_EQ(calls.Count(SYS_unlink), 0U);
}

TEST_F(FileSystem, SizesAreAskedOfATemporaryFileWhoseNameIsFree) {
  testhost::WriteFile("/t/small/.ostBigFileTest0", "there");
  {
    // With no answer for its end it can be seen.
    testhost::SystemCalls calls({SYS_unlink});
    calls.Fail(SYS_unlink, EPERM);
    EXPECT_TRUE(File_SupportsLargeFiles("/t/small/new"));
  }
  EXPECT_TRUE(IsThere("/t/small/.ostBigFileTest1"));
  EXPECT_EQ(testhost::ReadFile("/t/small/.ostBigFileTest0"), "there");
}

TEST_F(FileSystemUser, SizesForAFileThatCannotBeReadAreAskedBesideIt) {
  EXPECT_TRUE(File_SupportsLargeFiles("/t/open/secret"));
  EXPECT_EQ(File_ListDirectory("/t/open", nullptr), 1);
  EXPECT_FALSE(File_SupportsLargeFiles("/t/dir"));
  EXPECT_TRUE(File_SupportsLargeFiles("/t/file")) << "can be read";
}

TEST_F(FileSystem, SizesWhereNothingCanBeMadeAreNotSupported) {
  EXPECT_FALSE(File_SupportsLargeFiles("/t/missing/x"));
  ASSERT_EQ(mount("none", "/t/small", nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
  EXPECT_FALSE(File_SupportsLargeFiles("/t/small"));
}

TEST_F(FileSystem, SizesOfAnUnknownPlaceAreNotSupported) {
  ASSERT_EQ(chdir("/t/dir"), 0);
  ASSERT_EQ(rmdir("/t/dir"), 0);
  EXPECT_FALSE(File_SupportsLargeFiles("x"));
  EXPECT_TRUE(HasLogged("| FILE: File_SupportsFileSize: Error acquiring full path\n"));
}

TEST_F(FileSystem, SizesOnTheProductsOwnFileSystemAreNotTold) {
  Log("The first line of a log may open what tells the time zone.\n");
  testhost::SystemCalls calls({SYS_statfs, SYS_openat});
  // The answer stands in for that file system.
  calls.AnswerStatfs(kOstfs);
  EXPECT_FALSE(File_SupportsLargeFiles("/t/file"));
  EXPECT_FALSE(File_SupportsLargeFiles("/t/small/new"));
  EXPECT_EQ(calls.Count(SYS_openat), 0U);
  EXPECT_TRUE(HasLogged("| FILE: File_OSTFSSupportsFileSize: did not execute properly\n"));
  EXPECT_TRUE(File_SupportsFileSize("/t/file", 0x7fffffff));
  calls.Clear();
  calls.Fail(SYS_statfs, EIO);
  EXPECT_TRUE(File_SupportsLargeFiles("/t/file"));
}

}  // namespace
