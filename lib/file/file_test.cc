#include "file.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "log.h"
#include "msg.h"
#include "owned.h"
#include "testhost.h"

namespace fs = std::filesystem;

namespace {

class File : public ::testing::Test {
 protected:
  void SetUp() override {
    testhost::Host host;
    host.Directory("/t").Directory("/t/dir").Directory("/t/small").File("/t/file", "content");
    Describe(host);
    host.Enter();
    umask(022);
    ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
    unsetenv("TMPDIR");
  }
  virtual void Describe(testhost::Host &) {}

  static std::string LogText() { return testhost::ReadFile(Log_GetFileName()); }
  // What is pending, by way of the log.
  static std::string Messages() {
    Msg_Reset(true);
    return LogText();
  }
};

constexpr uid_t kUser = 1234;

class FileUser : public File {
 protected:
  void Describe(testhost::Host &host) override {
    host.Directory("/t/locked", 0700)
        .File("/t/locked/file", "content")
        .File("/t/secret", "content", 0600)
        .Directory("/t/open", 0777)
        .Directory("/t/writeonly", 0772)
        .User(kUser);
  }
};

// The same with what an ordinary user is looked at by set up first, as root.
class FileGroup : public File {
 protected:
  static void BecomeMemberOf(const std::vector<gid_t> &groups) {
    ASSERT_EQ(setgroups(groups.size(), groups.data()), 0);
    ASSERT_EQ(setresgid(kUser, kUser, kUser), 0);
    ASSERT_EQ(setresuid(kUser, kUser, kUser), 0);
  }
};

bool IsThere(const char *path) {
  return fs::exists(fs::symlink_status(path));
}

std::string TmpDir() {
  const OwnedString directory(File_GetTmpDir(false));
  return directory == nullptr ? "none" : directory.get();
}

TEST_F(File, TestsTellKindsApart) {
  ASSERT_EQ(mkfifo("/t/fifo", 0600), 0);
  ASSERT_EQ(symlink("dir", "/t/link"), 0);
  ASSERT_EQ(symlink("missing", "/t/dangling"), 0);
  const struct {
    const char *path;
    bool exists, isFile, isDirectory;
  } rows[] = {
      {"/t/file", true, true, false},       {"/t/dir", true, false, true},
      {"/t/link", true, false, true},       {"/t/fifo", true, false, false},
      {"/dev/null", true, false, false},    {"/t/missing", false, false, false},
      {"/t/dangling", false, false, false}, {"", false, false, false},
      {nullptr, false, false, false},
  };
  for (const auto &row : rows) {
    EXPECT_EQ(File_Exists(row.path), row.exists) << row.path;
    EXPECT_EQ(File_IsFile(row.path), row.isFile) << row.path;
    EXPECT_EQ(File_IsDirectory(row.path), row.isDirectory) << row.path;
  }
}

TEST_F(File, ModTimeIsThatOfTheFile) {
  const timespec times[] = {{1, 0}, {1234567890, 999}};
  ASSERT_EQ(utimensat(AT_FDCWD, "/t/file", times, 0), 0);
  EXPECT_EQ(File_GetModTime("/t/file"), 1234567890);
  EXPECT_EQ(File_GetModTime("/t/missing"), -1);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(File, CreateDirectoryRefusesAnExistingOne) {
  EXPECT_TRUE(File_CreateDirectory("/t/new"));
  struct stat data;
  ASSERT_EQ(stat("/t/new", &data), 0);
  EXPECT_EQ(data.st_mode & 07777, 0755U);
  EXPECT_FALSE(File_CreateDirectory("/t/new"));
  EXPECT_EQ(errno, EEXIST);
  EXPECT_FALSE(File_CreateDirectory("/t/a/b"));
}

TEST_F(File, UnlinkRemovesAFile) {
  EXPECT_EQ(File_Unlink("/t/file"), 0);
  EXPECT_FALSE(IsThere("/t/file"));
}

TEST_F(File, UnlinkTellsWhy) {
  EXPECT_EQ(File_Unlink("/t/missing"), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(File_Unlink("/t/dir"), -1);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_EQ(File_Unlink(nullptr), -1);
  EXPECT_EQ(errno, EFAULT);
  EXPECT_EQ(File_UnlinkIfExists(nullptr), -1);
  EXPECT_EQ(errno, EFAULT);
}

TEST_F(File, UnlinkOfALinkRemovesBoth) {
  ASSERT_EQ(symlink("/t/file", "/t/absolute"), 0);
  EXPECT_EQ(File_Unlink("/t/absolute"), 0);
  EXPECT_FALSE(IsThere("/t/file"));
  EXPECT_FALSE(IsThere("/t/absolute"));
}

TEST_F(File, UnlinkSeesARelativeTargetFromTheLink) {
  ASSERT_EQ(chdir("/t/dir"), 0);
  testhost::WriteFile("/t/dir/file", "of the working directory");
  ASSERT_EQ(symlink("file", "/t/link"), 0);
  EXPECT_EQ(File_Unlink("/t/link"), 0);
  EXPECT_FALSE(IsThere("/t/file"));
  EXPECT_FALSE(IsThere("/t/link"));
  EXPECT_TRUE(IsThere("/t/dir/file"));
  ASSERT_EQ(symlink("file", "link"), 0);
  EXPECT_EQ(File_Unlink("link"), 0);
  EXPECT_FALSE(IsThere("/t/dir/file"));
}

TEST_F(File, UnlinkOfADanglingLinkRemovesTheLink) {
  ASSERT_EQ(symlink("missing", "/t/dangling"), 0);
  EXPECT_EQ(File_Unlink("/t/dangling"), 0);
  EXPECT_FALSE(IsThere("/t/dangling"));
  ASSERT_EQ(symlink("missing", "/t/dangling"), 0);
  EXPECT_EQ(File_UnlinkIfExists("/t/dangling"), 0);
  EXPECT_FALSE(IsThere("/t/dangling"));
}

TEST_F(File, UnlinkKeepsALinkWhoseTargetStays) {
  ASSERT_EQ(symlink("dir", "/t/link"), 0);
  EXPECT_EQ(File_Unlink("/t/link"), -1);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_TRUE(IsThere("/t/link"));
  EXPECT_TRUE(IsThere("/t/dir"));
}

TEST_F(File, UnlinkIfExistsAcceptsAMissingFile) {
  EXPECT_EQ(File_UnlinkIfExists("/t/missing"), 0);
  EXPECT_EQ(File_UnlinkIfExists("/t/file"), 0);
  EXPECT_FALSE(IsThere("/t/file"));
  EXPECT_EQ(File_UnlinkIfExists("/t/dir"), -1);
}

TEST_F(File, DeleteDirectoryTreeTakesAll) {
  fs::create_directories("/t/tree/a/b/c");
  testhost::WriteFile("/t/tree/a/file", "x");
  testhost::WriteFile("/t/tree/.hidden", "x");
  ASSERT_EQ(mkfifo("/t/tree/fifo", 0600), 0);
  ASSERT_EQ(symlink("missing", "/t/tree/dangling"), 0);
  EXPECT_TRUE(File_DeleteDirectoryTree("/t/tree"));
  EXPECT_FALSE(IsThere("/t/tree"));
}

TEST_F(File, DeleteDirectoryTreeCountsNothingAsDone) {
  EXPECT_TRUE(File_DeleteDirectoryTree("/t/missing"));
  EXPECT_TRUE(File_DeleteDirectoryTree("/t/file/below"));
  EXPECT_FALSE(File_DeleteDirectoryTree(nullptr));
  EXPECT_FALSE(File_DeleteDirectoryTree("/t/file"));
  EXPECT_TRUE(IsThere("/t/file"));
}

TEST_F(File, DeleteDirectoryTreeLeavesADirectoryBehindALink) {
  fs::create_directories("/t/tree");
  testhost::WriteFile("/t/dir/file", "x");
  ASSERT_EQ(symlink("/t/dir", "/t/tree/link"), 0);
  EXPECT_FALSE(File_DeleteDirectoryTree("/t/tree"));
  EXPECT_TRUE(IsThere("/t/dir/file"));
}

TEST_F(File, DeleteDirectoryTreeCarriesOnAfterAFailure) {
  fs::create_directories("/t/tree/mounted");
  fs::create_directories("/t/tree/x");
  for (const char *name : {"/t/tree/a", "/t/tree/z", "/t/tree/x/file"}) {
    testhost::WriteFile(name, "x");
  }
  ASSERT_EQ(mount("none", "/t/tree/mounted", "tmpfs", 0, "size=64k"), 0);
  EXPECT_FALSE(File_DeleteDirectoryTree("/t/tree"));
  EXPECT_EQ(File_ListDirectory("/t/tree", nullptr), 1);
  EXPECT_TRUE(IsThere("/t/tree/mounted"));
}

TEST_F(File, SetFilePermissionsSetsTheMode) {
  EXPECT_TRUE(File_SetFilePermissions("/t/file", 0751));
  struct stat data;
  ASSERT_EQ(stat("/t/file", &data), 0);
  EXPECT_EQ(data.st_mode & 07777, 0751U);
}

TEST_F(File, SetFilePermissionsLogsAFailure) {
  EXPECT_FALSE(File_SetFilePermissions("/t/missing", 0644));
  EXPECT_NE(LogText().find("FILE: File_SetFilePermissions: failed to change permissions on file "
                           "\"/t/missing\": No such file or directory\n"),
            std::string::npos);
}

TEST_F(File, ListDirectoryGivesAllNamesButTheTwoDots) {
  for (const char *name : {"/t/dir/b", "/t/dir/.a", "/t/dir/...", "/t/dir/\xc3\xa4"}) {
    testhost::WriteFile(name, "");
  }
  char **names = nullptr;
  const int count = File_ListDirectory("/t/dir", &names);
  ASSERT_EQ(count, 4);
  std::vector<std::string> found(names, names + count);
  File_FreeNames(names, count);
  std::sort(found.begin(), found.end());
  EXPECT_EQ(found, (std::vector<std::string>{"...", ".a", "b", "\xc3\xa4"}));
  EXPECT_EQ(File_ListDirectory("/t/dir", nullptr), 4);
}

TEST_F(File, ListDirectoryOfAnEmptyOne) {
  char **names = nullptr;
  EXPECT_EQ(File_ListDirectory("/t/small", &names), 0);
  File_FreeNames(names, 0);
}

TEST_F(File, ListDirectoryKeepsTheSystemsOrder) {
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
  char **names = nullptr;
  const int count = File_ListDirectory("/t/dir", &names);
  ASSERT_EQ(count, 50);
  EXPECT_EQ(std::vector<std::string>(names, names + count), expected);
  File_FreeNames(names, count);
}

TEST_F(File, ListDirectoryFails) {
  EXPECT_EQ(File_ListDirectory("/t/missing", nullptr), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(File_ListDirectory("/t/file", nullptr), -1);
  EXPECT_EQ(errno, ENOTDIR);
  EXPECT_EQ(File_ListDirectory(nullptr, nullptr), -1);
  EXPECT_EQ(errno, EFAULT);
}

// What stands in these files' names is Latin-1.
class FileLatin1 : public File {
  void Describe(testhost::Host &host) override {
    setenv("G_FILENAME_ENCODING", "ISO-8859-1", 1);
    host.File("/t/dir/caf\xE9", "").SymLink("/t/small/link", "caf\xE9").Directory("/t/\xE9t\xE9");
  }
};

TEST_F(FileLatin1, ListedNamesAreConverted) {
  char **names = nullptr;
  ASSERT_EQ(File_ListDirectory("/t/dir", &names), 1);
  EXPECT_STREQ(names[0], "caf\u00E9");
  File_FreeNames(names, 1);
  EXPECT_TRUE(File_DeleteDirectoryTree("/t/dir"));
  EXPECT_FALSE(fs::exists("/t/dir"));
}

TEST_F(FileLatin1, TheWorkingDirectoryIsConverted) {
  ASSERT_EQ(chdir("/t/\xE9t\xE9"), 0);
  const OwnedString full(File_FullPathKeepLink("name"));
  EXPECT_STREQ(full.get(), "/t/\u00E9t\u00E9/name");
}

TEST_F(File, NamesThatAreNoTextAreListedAndDeleted) {
  testhost::WriteFile("/t/dir/caf\xE9", "");
  char **names = nullptr;
  ASSERT_EQ(File_ListDirectory("/t/dir", &names), 1);
  EXPECT_STREQ(names[0], "caf\xE9");
  File_FreeNames(names, 1);
  EXPECT_TRUE(File_DeleteDirectoryTree("/t/dir"));
  EXPECT_FALSE(fs::exists("/t/dir"));
}

class FileAscii : public File {
  void Describe(testhost::Host & /*host*/) override { setenv("G_FILENAME_ENCODING", "US-ASCII", 1); }
};

TEST_F(FileAscii, ANameThatCannotBeConvertedFailsTheListing) {
  testhost::WriteFile("/t/dir/caf\xE9", "");
  EXPECT_EQ(File_ListDirectory("/t/dir", nullptr), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_FALSE(File_DeleteDirectoryTree("/t/dir"));
  EXPECT_TRUE(fs::exists("/t/dir/caf\xE9"));
}

TEST_F(FileAscii, AWorkingDirectoryThatCannotBeConvertedIsUnknown) {
  fs::create_directory("/t/\xE9t\xE9");
  ASSERT_EQ(chdir("/t/\xE9t\xE9"), 0);
  EXPECT_EQ(File_FullPathKeepLink("name"), nullptr);
  const std::string log = Messages();
  EXPECT_NE(log.find("FILE: File_Cwd: getcwd() failed: Invalid argument\n"), std::string::npos) << log;
  EXPECT_NE(log.find("Unable to retrieve the current working directory: Invalid argument. Check if the "
                     "directory has been deleted or unmounted.\n"),
            std::string::npos);
}

TEST_F(File, CopyTakesTheContent) {
  std::string content;
  for (int number = 0; number < 20000; number++) {
    content += static_cast<char>(number * number / 7);
  }
  for (const size_t size : {size_t{0}, size_t{1}, size_t{8191}, size_t{8192}, size_t{8193}, size_t{20000}}) {
    testhost::WriteFile("/t/file", content.substr(0, size));
    EXPECT_TRUE(File_CopyFromNameToName("/t/file", "/t/copy", FILE_PROMPT_OVERWRITE));
    EXPECT_EQ(testhost::ReadFile("/t/copy"), content.substr(0, size)) << size;
  }
  struct stat data;
  ASSERT_EQ(stat("/t/copy", &data), 0);
  EXPECT_EQ(data.st_mode & 07777, 0600U);
  EXPECT_FALSE(Msg_Present());
}

TEST_F(File, CopyOfAMissingSourceLeavesAMessage) {
  EXPECT_FALSE(File_CopyFromNameToName("/t/missing", "/t/copy", FILE_PROMPT_OVERWRITE));
  EXPECT_FALSE(IsThere("/t/copy"));
  EXPECT_NE(Messages().find("[msg.File.CopyFromNameToName.open.failure] Unable to open the '/t/missing' file "
                            "for read access: Could not find the file."),
            std::string::npos);
}

TEST_F(File, CopyToAMissingDirectoryLeavesAMessage) {
  EXPECT_FALSE(File_CopyFromNameToName("/t/file", "/t/missing/copy", FILE_PROMPT_CANCEL));
  EXPECT_NE(Messages().find("[msg.File.CopyFromFdToName.create.failure] Unable to create a new "
                            "'/t/missing/copy' file: Could not find the file."),
            std::string::npos);
}

TEST_F(File, CopyCancelledByAnExistingFileIsSilent) {
  testhost::WriteFile("/t/copy", "old");
  EXPECT_FALSE(File_CopyFromNameToName("/t/file", "/t/copy", FILE_PROMPT_CANCEL));
  EXPECT_FALSE(Msg_Present());
  EXPECT_EQ(testhost::ReadFile("/t/copy"), "old");
}

TEST_F(File, CopyOverwritesWhenTold) {
  testhost::WriteFile("/t/copy", "a longer content that was there", 0640);
  EXPECT_TRUE(File_CopyFromNameToName("/t/file", "/t/copy", FILE_PROMPT_OVERWRITE));
  EXPECT_EQ(testhost::ReadFile("/t/copy"), "content");
}

TEST_F(File, CopyRetriesUntilTheFileIsGone) {
  testhost::WriteFile("/t/copy", "old");
  std::thread remover([] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    unlink("/t/copy");
  });
  EXPECT_TRUE(File_CopyFromNameToName("/t/file", "/t/copy", FILE_PROMPT_RETRY));
  remover.join();
  EXPECT_EQ(testhost::ReadFile("/t/copy"), "content");
}

TEST_F(File, CopyThatFillsTheDiskLeavesNoDestination) {
  ASSERT_EQ(mount("none", "/t/small", "tmpfs", 0, "size=64k"), 0);
  testhost::WriteFile("/t/file", std::string(100000, 'x'));
  EXPECT_FALSE(File_CopyFromNameToName("/t/file", "/t/small/copy", FILE_PROMPT_OVERWRITE));
  EXPECT_FALSE(IsThere("/t/small/copy"));
  EXPECT_NE(Messages().find("[msg.File.CopyFromFdToFd.write.failure] Write error: There is no space left on "
                            "the device."),
            std::string::npos);
}

TEST_F(File, CopyOfADirectoryFailsInReading) {
  EXPECT_FALSE(File_CopyFromNameToName("/t/dir", "/t/copy", FILE_PROMPT_OVERWRITE));
  EXPECT_FALSE(IsThere("/t/copy"));
  const std::string messages = Messages();
  EXPECT_NE(messages.find("[msg.File.CopyFromFdToFd.read.failure] Read error: Error."), std::string::npos);
  EXPECT_NE(messages.find("read failed, errno=21, Is a directory\n"), std::string::npos);
}

TEST_F(FileUser, CopyOfAnUnreadableFileLeavesAMessage) {
  EXPECT_FALSE(File_CopyFromNameToName("/t/secret", "/t/open/copy", FILE_PROMPT_OVERWRITE));
  EXPECT_NE(Messages().find("Insufficient permission to access the file."), std::string::npos);
}

TEST_F(FileUser, UnreachableFilesAreFailures) {
  EXPECT_FALSE(File_Exists("/t/locked/file"));
  EXPECT_EQ(File_UnlinkIfExists("/t/locked/file"), -1);
  EXPECT_EQ(errno, EACCES);
  EXPECT_EQ(File_ListDirectory("/t/locked", nullptr), -1);
  EXPECT_FALSE(File_DeleteDirectoryTree("/t/locked"));
  EXPECT_FALSE(File_DeleteDirectoryTree("/t/locked/file"));
}

TEST_F(File, TmpDirIsThatOfTheEnvironmentFirst) {
  setenv("TMPDIR", "/t/dir", 1);
  EXPECT_EQ(TmpDir(), "/t/dir");
  unsetenv("TMPDIR");
  EXPECT_EQ(TmpDir(), "/tmp");
}

TEST_F(File, TmpDirIsExpanded) {
  setenv("OST_PLACE", "dir", 1);
  setenv("TMPDIR", "/t/$OST_PLACE", 1);
  EXPECT_EQ(TmpDir(), "/t/dir");
}

TEST_F(File, TmpDirOfRootNeedsNoBits) {
  ASSERT_EQ(chmod("/t/dir", 0), 0);
  setenv("TMPDIR", "/t/dir", 1);
  EXPECT_EQ(TmpDir(), "/t/dir");
}

TEST_F(File, TmpDirMustBeADirectory) {
  for (const char *directory : {"/t/file", "/t/missing", ""}) {
    setenv("TMPDIR", directory, 1);
    EXPECT_EQ(TmpDir(), "/tmp") << directory;
  }
}

TEST_F(FileUser, TmpDirMustBeWritableAndSearchable) {
  for (const char *directory : {"/t/dir", "/t/locked", "/t/writeonly"}) {
    setenv("TMPDIR", directory, 1);
    EXPECT_EQ(TmpDir(), "/tmp") << directory;
  }
  setenv("TMPDIR", "/t/open", 1);
  EXPECT_EQ(TmpDir(), "/t/open");
}

TEST_F(FileGroup, TmpDirIsJudgedByTheBitsOfTheOneClassTheUserIsIn) {
  const struct {
    const char *path;
    uid_t owner;
    gid_t group;
    mode_t mode;
    bool usable;
  } rows[] = {
      {"/t/owner", kUser, 0, 0300, true},           {"/t/owner-not", kUser, 2000, 0077, false},
      {"/t/member", 0, 2000, 0030, true},           {"/t/member-not", 0, 2000, 0707, false},
      {"/t/member-noSearch", 0, 2000, 0020, false}, {"/t/other", 0, 3000, 0003, true},
      {"/t/other-not", 0, 3000, 0770, false},
  };
  for (const auto &row : rows) {
    ASSERT_EQ(mkdir(row.path, 0700), 0);
    ASSERT_EQ(chown(row.path, row.owner, row.group), 0);
    ASSERT_EQ(chmod(row.path, row.mode), 0);
  }
  BecomeMemberOf({1999, 2000, 2001});
  for (const auto &row : rows) {
    setenv("TMPDIR", row.path, 1);
    EXPECT_EQ(TmpDir(), row.usable ? row.path : "/tmp");
  }
}

TEST_F(FileGroup, TmpDirFallsToTheHomeThenTheWorkingDirectoryThenTheRoot) {
  ASSERT_EQ(chmod("/tmp", 0755), 0);
  ASSERT_EQ(chmod("/", 0777), 0);
  for (const char *path : {"/t/home", "/t/work"}) {
    ASSERT_EQ(mkdir(path, 0700), 0);
    ASSERT_EQ(chown(path, kUser, kUser), 0);
  }
  ASSERT_EQ(chdir("/t/work"), 0);
  setenv("HOME", "/t/home", 1);
  BecomeMemberOf({});
  EXPECT_EQ(TmpDir(), "/t/home");
  ASSERT_EQ(chmod("/t/home", 0), 0);
  EXPECT_EQ(TmpDir(), "/t/work");
  ASSERT_EQ(chmod("/t/work", 0), 0);
  EXPECT_EQ(TmpDir(), "/");
}

TEST_F(FileGroup, TmpDirTellsWhenThereIsNone) {
  ASSERT_EQ(chmod("/tmp", 0755), 0);
  ASSERT_EQ(mkdir("/t/work", 0700), 0);
  ASSERT_EQ(chdir("/t/work"), 0);
  ASSERT_EQ(rmdir("/t/work"), 0);
  setenv("HOME", "/t/missing", 1);
  const OwnedStream logFile(fopen(Log_GetFileName(), "r"));
  BecomeMemberOf({});
  EXPECT_EQ(TmpDir(), "none");
  Msg_Reset(true);
  std::string log(100000, '\0');
  log.resize(fread(log.data(), 1, log.size(), logFile.get()));
  EXPECT_NE(log.find("File_GetTmpDir: Couldn't get a temporary directory\n"), std::string::npos);
  EXPECT_NE(log.find("FILE: File_Cwd: getcwd() failed: No such file or directory\n"), std::string::npos);
  EXPECT_NE(
      log.find("[msg.filePosix.getcwd] Unable to retrieve the current working directory: No such file or "
               "directory. Check if the directory has been deleted or unmounted.\n"),
      std::string::npos);
}

}  // namespace
