#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "file.h"
#include "fileTestInt.h"
#include "owned.h"
#include "systemCalls.h"
#include "testhost.h"

namespace fs = std::filesystem;

namespace {

class FileDirectory : public FileHost {};
class FileDirectoryAscii : public FileHostAscii {};

class FileDirectoryLatin1 : public FileHostLatin1 {
  void Describe(testhost::Host &host) override {
    FileHostLatin1::Describe(host);
    host.File("/t/dir/caf\xE9", "");
  }
};

class FileDirectoryUser : public FileHost {
  void Describe(testhost::Host &host) override {
    host.File("/t/locked/file", "content").Directory("/t/locked", 0700).User(kUser);
  }
};

// The names that a listing gives, in its order.
std::vector<std::string> List(const char *path) {
  char **names = nullptr;
  const int count = File_ListDirectory(path, &names);
  EXPECT_GE(count, 0);
  std::vector<std::string> found(names, names + std::max(count, 0));
  File_FreeNames(names, count);
  return found;
}

std::vector<std::string> Sorted(std::vector<std::string> names) {
  std::sort(names.begin(), names.end());
  return names;
}

// ---- Making

TEST_F(FileDirectory, CreateDirectoryRefusesAnExistingOne) {
  EXPECT_TRUE(File_CreateDirectory("/t/new"));
  struct stat data;
  ASSERT_EQ(stat("/t/new", &data), 0);
  EXPECT_EQ(data.st_mode & 07777, 0755U);
  EXPECT_FALSE(File_CreateDirectory("/t/new"));
  EXPECT_EQ(errno, EEXIST);
  EXPECT_FALSE(File_CreateDirectory("/t/a/b"));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(File_CreateDirectory(nullptr));
  EXPECT_EQ(errno, EFAULT);
}

TEST_F(FileDirectory, CreateDirectoryGivesAllThatTheMaskLeaves) {
  umask(0);
  EXPECT_TRUE(File_CreateDirectory("/t/new"));
  struct stat data;
  ASSERT_EQ(stat("/t/new", &data), 0);
  EXPECT_EQ(data.st_mode & 07777, 0777U);
}

TEST_F(FileDirectory, EnsureDirectoryAcceptsAnExistingOne) {
  ASSERT_EQ(symlink("dir", "/t/link"), 0);
  ASSERT_EQ(symlink("missing", "/t/dangling"), 0);
  EXPECT_TRUE(File_EnsureDirectory("/t/new"));
  EXPECT_TRUE(fs::is_directory("/t/new"));
  EXPECT_TRUE(File_EnsureDirectory("/t/new"));
  EXPECT_TRUE(File_EnsureDirectory("/t/link"));
  EXPECT_FALSE(File_EnsureDirectory("/t/file"));
  EXPECT_EQ(errno, EEXIST);
  EXPECT_FALSE(File_EnsureDirectory("/t/dangling"));
  EXPECT_FALSE(File_EnsureDirectory("/t/a/b"));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(File_EnsureDirectory(nullptr));
}

TEST_F(FileDirectory, HierarchyMakesEachLevelThatIsMissing) {
  for (const char *path : {"/t/a/b/c", "/t/a", "/t/a/x", "/t/y//z/", "/"}) {
    EXPECT_TRUE(File_CreateDirectoryHierarchy(path)) << path;
    EXPECT_TRUE(fs::is_directory(path)) << path;
  }
  ASSERT_EQ(chdir("/t/dir"), 0);
  EXPECT_TRUE(File_CreateDirectoryHierarchy("p/../q/r"));
  EXPECT_TRUE(fs::is_directory("/t/dir/q/r"));
  EXPECT_TRUE(fs::is_directory("/t/dir/p"));
}

TEST_F(FileDirectory, HierarchyOfNothingIsDone) {
  EXPECT_TRUE(File_CreateDirectoryHierarchy(nullptr));
  EXPECT_TRUE(File_CreateDirectoryHierarchy(""));
}

TEST_F(FileDirectory, HierarchyFailsAtAFile) {
  EXPECT_FALSE(File_CreateDirectoryHierarchy("/t/file"));
  EXPECT_FALSE(File_CreateDirectoryHierarchy("/t/file/x"));
  EXPECT_FALSE(File_CreateDirectoryHierarchy(("/t/new/" + std::string(256, 'x') + "/y").c_str()));
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_TRUE(fs::is_directory("/t/new"));
}

TEST_F(FileDirectory, HierarchyGoesThroughLinks) {
  ASSERT_EQ(symlink("dir", "/t/link"), 0);
  EXPECT_TRUE(File_CreateDirectoryHierarchy("/t/link/x"));
  EXPECT_TRUE(fs::is_directory("/t/dir/x"));
}

TEST_F(FileDirectory, HierarchyIsMadeByManyAtOnce) {
  std::string path = "/t";
  for (int level = 0; level < 200; level++) {
    path += "/" + std::to_string(level);
  }
  EXPECT_EQ(RunInProcesses(4, [&path](int) { return File_CreateDirectoryHierarchy(path.c_str()); }), 4);
  EXPECT_TRUE(fs::is_directory(path));
}

TEST_F(FileDirectory, DeleteEmptyDirectoryDeletesNothingElse) {
  EXPECT_TRUE(File_DeleteEmptyDirectory("/t/dir"));
  EXPECT_FALSE(IsThere("/t/dir"));
  EXPECT_FALSE(File_DeleteEmptyDirectory("/t"));
  EXPECT_EQ(errno, ENOTEMPTY);
  EXPECT_FALSE(File_DeleteEmptyDirectory("/t/file"));
  EXPECT_EQ(errno, ENOTDIR);
  EXPECT_FALSE(File_DeleteEmptyDirectory("/t/missing"));
  EXPECT_FALSE(File_DeleteEmptyDirectory(nullptr));
}

// ---- Listing

TEST_F(FileDirectory, ListGivesAllNamesButTheTwoDots) {
  for (const char *name : {"/t/dir/b", "/t/dir/.a", "/t/dir/...", "/t/dir/\u00E4"}) {
    testhost::WriteFile(name, "");
  }
  EXPECT_EQ(Sorted(List("/t/dir")), (std::vector<std::string>{"...", ".a", "b", "\u00E4"}));
  EXPECT_EQ(File_ListDirectory("/t/dir", nullptr), 4);
}

TEST_F(FileDirectory, ListOfAnEmptyOne) {
  char **names = nullptr;
  EXPECT_EQ(File_ListDirectory("/t/small", &names), 0);
  ASSERT_NE(names, nullptr);
  File_FreeNames(names, 0);
}

TEST_F(FileDirectory, ListKeepsTheSystemsOrder) {
  for (int number = 0; number < 50; number++) {
    testhost::WriteFile("/t/dir/" + std::to_string(number * 7919 % 50), "");
  }
  std::vector<std::string> expected;
  const OwnedDirectory directory(opendir("/t/dir"));
  while (const dirent *entry = readdir(directory.get())) {
    if (entry->d_name[0] != '.') {
      expected.emplace_back(entry->d_name);
    }
  }
  EXPECT_EQ(expected.size(), 50U);
  EXPECT_EQ(List("/t/dir"), expected);
}

TEST_F(FileDirectory, ListFails) {
  char leftAlone = 0;
  char *place = &leftAlone;
  char **names = &place;
  const struct {
    const char *path;
    int error;
  } rows[] = {{"/t/missing", ENOENT}, {"/t/file", ENOTDIR}, {"", ENOENT}, {nullptr, EFAULT}};
  for (const auto &row : rows) {
    EXPECT_EQ(File_ListDirectory(row.path, &names), -1) << row.path;
    EXPECT_EQ(errno, row.error) << row.path;
  }
  EXPECT_EQ(names, &place);
}

TEST_F(FileDirectory, ListFailsInTheMiddle) {
  for (int number = 0; number < 3000; number++) {
    testhost::WriteFile("/t/dir/" + std::to_string(number), "");
  }
  testhost::SystemCalls calls({SYS_getdents64});
  calls.Fail(SYS_getdents64, EIO, {.from = 1});
  EXPECT_EQ(File_ListDirectory("/t/dir", nullptr), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(calls.Count(SYS_getdents64), 2U);
  EXPECT_FALSE(File_IsEmptyDirectory("/t/dir"));
  EXPECT_FALSE(File_DeleteDirectoryTree("/t/dir"));
  calls.Clear();
  EXPECT_EQ(File_ListDirectory("/t/dir", nullptr), 3000) << "nothing is deleted after a failed listing";
}

TEST_F(FileDirectory, ListKeepsNamesThatAreNoText) {
  testhost::WriteFile("/t/dir/caf\xE9", "");
  EXPECT_EQ(List("/t/dir"), (std::vector<std::string>{"caf\xE9"}));
}

TEST_F(FileDirectoryLatin1, ListConvertsNames) {
  EXPECT_EQ(List("/t/dir"), (std::vector<std::string>{"caf\u00E9"}));
}

TEST_F(FileDirectoryAscii, ListFailsAtANameThatCannotBeConverted) {
  testhost::WriteFile("/t/dir/caf\xE9", "");
  EXPECT_EQ(File_ListDirectory("/t/dir", nullptr), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(FileDirectory, EmptyIsADirectoryWithNothingInIt) {
  EXPECT_TRUE(File_IsEmptyDirectory("/t/dir"));
  testhost::WriteFile("/t/dir/.hidden", "");
  EXPECT_FALSE(File_IsEmptyDirectory("/t/dir"));
  EXPECT_FALSE(File_IsEmptyDirectory("/t/file"));
  EXPECT_FALSE(File_IsEmptyDirectory("/t/missing"));
  EXPECT_FALSE(File_IsEmptyDirectory(nullptr));
}

// ---- Deleting a tree

TEST_F(FileDirectory, TreeGoesWithAllThatIsInIt) {
  fs::create_directories("/t/tree/a/b/c");
  testhost::WriteFile("/t/tree/a/file", "x");
  testhost::WriteFile("/t/tree/.hidden", "x");
  testhost::WriteFile("/t/tree/caf\xE9/\xE9", "x");
  ASSERT_EQ(mkfifo("/t/tree/fifo", 0600), 0);
  ASSERT_EQ(symlink("missing", "/t/tree/dangling"), 0);
  EXPECT_TRUE(File_DeleteDirectoryTree("/t/tree/"));
  EXPECT_FALSE(IsThere("/t/tree"));
}

TEST_F(FileDirectory, TreeThatIsNotThereIsDone) {
  EXPECT_TRUE(File_DeleteDirectoryTree("/t/missing"));
  EXPECT_TRUE(File_DeleteDirectoryTree("/t/file/below"));
  EXPECT_TRUE(File_DeleteDirectoryTree(""));
}

TEST_F(FileDirectory, TreeThatIsNoneFails) {
  EXPECT_FALSE(File_DeleteDirectoryTree(nullptr));
  EXPECT_FALSE(File_DeleteDirectoryTree(("/t/" + std::string(4096, 'x')).c_str()));
  EXPECT_FALSE(File_DeleteDirectoryTree("/t/file"));
  EXPECT_TRUE(IsThere("/t/file"));
}

TEST_F(FileDirectory, TreeWithALinkToADirectoryLeavesBoth) {
  testhost::WriteFile("/t/tree/sub/file", "x");
  testhost::WriteFile("/t/dir/file", "x");
  ASSERT_EQ(symlink("/t/dir", "/t/tree/sub/link"), 0);
  EXPECT_FALSE(File_DeleteDirectoryTree("/t/tree"));
  EXPECT_EQ(testhost::ReadFile("/t/dir/file"), "x");
  EXPECT_EQ(List("/t/tree/sub"), (std::vector<std::string>{"link"}));
}

TEST_F(FileDirectory, TreeTakesTheFilesThatItsLinksLeadTo) {
  fs::create_directories("/t/tree");
  ASSERT_EQ(symlink("/t/file", "/t/tree/link"), 0);
  EXPECT_TRUE(File_DeleteDirectoryTree("/t/tree"));
  EXPECT_FALSE(IsThere("/t/tree"));
  EXPECT_FALSE(IsThere("/t/file"));
}

TEST_F(FileDirectory, TreeWithLinksAmongItsFilesGoesInAnyOrder) {
  for (int number = 0; number < 20; number++) {
    const std::string name = "/t/tree/" + std::to_string(number);
    testhost::WriteFile(name, "x");
    ASSERT_EQ(symlink(name.c_str(), (name + ".one").c_str()), 0);
    ASSERT_EQ(symlink((name + ".one").c_str(), (name + ".two").c_str()), 0);
    ASSERT_EQ(symlink(("../" + std::to_string(number)).c_str(), (name + ".loop").c_str()), 0);
  }
  ASSERT_EQ(symlink("loop", "/t/tree/loop"), 0);
  EXPECT_TRUE(File_DeleteDirectoryTree("/t/tree"));
  EXPECT_FALSE(IsThere("/t/tree"));
}

TEST_F(FileDirectory, TreeBehindALinkIsEmptiedAndTheLinkStays) {
  testhost::WriteFile("/t/dir/sub/file", "x");
  ASSERT_EQ(symlink("dir", "/t/link"), 0);
  EXPECT_FALSE(File_DeleteDirectoryTree("/t/link"));
  EXPECT_TRUE(IsThere("/t/link"));
  EXPECT_TRUE(File_IsEmptyDirectory("/t/dir"));
}

TEST_F(FileDirectory, TreeIsDeletedOnAfterAFailure) {
  fs::create_directories("/t/tree/mounted");
  for (const char *name : {"/t/tree/a", "/t/tree/z", "/t/tree/x/file"}) {
    testhost::WriteFile(name, "x");
  }
  ASSERT_EQ(mount("none", "/t/tree/mounted", "tmpfs", 0, "size=64k"), 0);
  EXPECT_FALSE(File_DeleteDirectoryTree("/t/tree"));
  EXPECT_EQ(List("/t/tree"), (std::vector<std::string>{"mounted"}));
}

TEST_F(FileDirectory, TreeThatManyDeleteIsGoneForEach) {
  for (int directory = 0; directory < 20; directory++) {
    for (int number = 0; number < 50; number++) {
      testhost::WriteFile("/t/tree/" + std::to_string(directory) + "/" + std::to_string(number), "");
    }
  }
  EXPECT_EQ(RunInProcesses(4, [](int) { return File_DeleteDirectoryTree("/t/tree"); }), 4);
  EXPECT_FALSE(IsThere("/t/tree"));
}

TEST_F(FileDirectory, TreeOnAFileSystemThatTellsNoTypesGoes) {
  std::string output;
  ASSERT_EQ(
      testhost::Run("truncate --size=4M /t/image && /usr/sbin/mke2fs -q -F -t ext2 -O ^filetype /t/image "
                    "&& mount -o loop /t/image /t/small",
                    &output),
      0)
      << output;
  fs::create_directories("/t/small/tree/sub");
  testhost::WriteFile("/t/small/tree/sub/file", "x");
  testhost::WriteFile("/t/small/target", "x");
  ASSERT_EQ(symlink("/t/small/target", "/t/small/tree/sub/link"), 0);
  {
    const OwnedDirectory directory(opendir("/t/small/tree"));
    ASSERT_EQ(readdir(directory.get())->d_type, DT_UNKNOWN);
  }
  EXPECT_TRUE(File_DeleteDirectoryTree("/t/small/tree"));
  EXPECT_FALSE(IsThere("/t/small/tree"));
  EXPECT_FALSE(IsThere("/t/small/target"));
  ASSERT_EQ(umount("/t/small"), 0);
}

TEST_F(FileDirectoryLatin1, TreeWithNamesOfAnotherEncodingGoes) {
  EXPECT_TRUE(File_DeleteDirectoryTree("/t/dir"));
  EXPECT_FALSE(IsThere("/t/dir"));
}

TEST_F(FileDirectoryAscii, TreeWithANameThatCannotBeConvertedStays) {
  testhost::WriteFile("/t/dir/caf\xE9", "");
  EXPECT_FALSE(File_DeleteDirectoryTree("/t/dir"));
  EXPECT_TRUE(IsThere("/t/dir/caf\xE9"));
}

TEST_F(FileDirectoryUser, WhatCannotBeReadFails) {
  EXPECT_EQ(File_ListDirectory("/t/locked", nullptr), -1);
  EXPECT_EQ(errno, EACCES);
  EXPECT_FALSE(File_IsEmptyDirectory("/t/locked"));
  EXPECT_FALSE(File_DeleteDirectoryTree("/t/locked"));
  EXPECT_FALSE(File_DeleteDirectoryTree("/t/locked/file"));
}

// The most memory that the process ever had, in KiB.
size_t PeakMemory() {
  const std::string status = testhost::ReadFile("/proc/self/status");
  return std::stoul(status.substr(status.find("VmHWM:") + 6));
}

TEST_F(FileDirectory, TreeTakesTheMemoryOfOneDirectory) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer keeps what is freed";
#endif
  ASSERT_EQ(mount("none", "/t/small", "tmpfs", 0, nullptr), 0);
  const std::string name(200, 'x');
  for (int directory = 0; directory < 100; directory++) {
    const std::string path = "/t/small/tree/" + std::to_string(directory) + "/";
    fs::create_directories(path);
    for (int number = 0; number < 500; number++) {
      close(open((path + name + std::to_string(number)).c_str(), O_CREAT | O_WRONLY, 0600));
    }
  }
  const size_t before = PeakMemory();
  EXPECT_TRUE(File_DeleteDirectoryTree("/t/small/tree"));
  EXPECT_LT(PeakMemory() - before, 2000U) << "all names take 10 MB, those of one directory 0.1";
}

}  // namespace
