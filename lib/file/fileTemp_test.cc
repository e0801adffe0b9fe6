#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "allocations.h"
#include "file.h"
#include "fileInt.h"
#include "fileTestInt.h"
#include "msg.h"
#include "owned.h"
#include "preference.h"
#include "systemCalls.h"
#include "testhost.h"

namespace {

class FileTemp : public FileHost {};
class FileTempLatin1 : public FileHostLatin1 {};
class FileTempAscii : public FileHostAscii {};

class FileTempUser : public FileHost {
  void Describe(testhost::Host &host) override {
    host.Directory("/t/locked", 0700).Directory("/t/open", 0777).Directory("/t/writeonly", 0772).User(kUser);
  }
};

void Configure(const std::string &tmpDirectory) {
  testhost::WriteFile("/etc/ostrel/config", "tmpDirectory = \"" + tmpDirectory + "\"\n");
  Preference_Exit();
  Preference_DisablePolling();
  ASSERT_TRUE(Preference_Init());
}

std::string TmpDir(bool useConfiguration = false) {
  return Take(File_GetTmpDir(useConfiguration));
}

// ---- The directory

TEST_F(FileTemp, DirectoryIsThatOfTheEnvironmentFirst) {
  setenv("TMPDIR", "/t/dir", 1);
  EXPECT_EQ(TmpDir(), "/t/dir");
  unsetenv("TMPDIR");
  EXPECT_EQ(TmpDir(), "/tmp");
}

TEST_F(FileTemp, DirectoryOfTheConfigurationComesBeforeThatWhereItIsUsed) {
  setenv("TMPDIR", "/t/dir", 1);
  EXPECT_EQ(TmpDir(true), "/t/dir");
  EXPECT_TRUE(HasLogged("| PREF early PreferenceGet(tmpDirectory), using default\n"));
  Configure("/t/small");
  EXPECT_EQ(TmpDir(true), "/t/small");
  EXPECT_EQ(TmpDir(false), "/t/dir");
  Configure("/t/missing");
  EXPECT_EQ(TmpDir(true), "/t/dir");
  setenv("OST_PLACE", "small", 1);
  Configure("/t/$OST_PLACE");
  EXPECT_EQ(TmpDir(true), "/t/small");
}

TEST_F(FileTemp, DirectoryIsExpanded) {
  setenv("OST_PLACE", "dir", 1);
  setenv("TMPDIR", "/t/$OST_PLACE", 1);
  EXPECT_EQ(TmpDir(), "/t/dir");
  setenv("HOME", "/t/small", 1);
  setenv("TMPDIR", "~", 1);
  EXPECT_EQ(TmpDir(), "/t/small");
}

TEST_F(FileTemp, DirectoryOfRootNeedsNoBits) {
  ASSERT_EQ(chmod("/t/dir", 0), 0);
  setenv("TMPDIR", "/t/dir", 1);
  EXPECT_EQ(TmpDir(), "/t/dir");
}

TEST_F(FileTemp, DirectoryMustBeOne) {
  for (const char *directory : {"/t/file", "/t/missing", ""}) {
    setenv("TMPDIR", directory, 1);
    EXPECT_EQ(TmpDir(), "/tmp") << directory;
  }
}

TEST_F(FileTempUser, DirectoryMustBeWritableAndSearchable) {
  for (const char *directory : {"/t/dir", "/t/locked", "/t/writeonly"}) {
    setenv("TMPDIR", directory, 1);
    EXPECT_EQ(TmpDir(), "/tmp") << directory;
  }
  setenv("TMPDIR", "/t/open", 1);
  EXPECT_EQ(TmpDir(), "/t/open");
}

TEST_F(FileTemp, DirectoryIsJudgedByTheBitsOfTheOneClassTheUserIsIn) {
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
      {"/t/other-not", 0, 3000, 0770, false},       {"/t/last", 0, 2001, 0030, true},
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

TEST_F(FileTemp, ManyGroupsAreAllLookedAt) {
  std::vector<gid_t> groups;
  for (gid_t group = 2000; group < 12000; group++) {
    groups.push_back(group);
  }
  ASSERT_EQ(chown("/t/dir", 0, 11999), 0);
  ASSERT_EQ(chmod("/t/dir", 0070), 0);
  BecomeMemberOf(groups);
  setenv("TMPDIR", "/t/dir", 1);
  EXPECT_EQ(TmpDir(), "/t/dir");
}

// A directory that members of a group of the user's can use, and others too unless `others` is 0.
void MakeGroupDirectory(mode_t others) {
  ASSERT_EQ(chown("/t/dir", 0, 2000), 0);
  ASSERT_EQ(chmod("/t/dir", 0070 | others), 0);
  setenv("TMPDIR", "/t/dir", 1);
}

TEST_F(FileTemp, AListOfGroupsThatGrowsMeanwhileIsReadAgain) {
  MakeGroupDirectory(0);
  BecomeMemberOf({2000});
  testhost::SystemCalls calls({SYS_getgroups});
  calls.Fail(SYS_getgroups, EINVAL, {.from = 1, .count = 1});
  EXPECT_EQ(TmpDir(), "/t/dir");
  EXPECT_EQ(calls.Count(SYS_getgroups), 4U);
}

TEST_F(FileTemp, WithoutTheGroupsTheOtherBitsCount) {
  MakeGroupDirectory(0);
  BecomeMemberOf({2000});
  testhost::SystemCalls calls({SYS_getgroups});
  calls.Fail(SYS_getgroups, EPERM);
  testing::internal::CaptureStderr();
  EXPECT_EQ(TmpDir(), "/tmp");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "FILE: FileIsGroupsMember: Couldn't getgroups\nFILE: FileIsGroupsMember: Couldn't getgroups\n")
      << "for each directory";
  calls.Clear();
  EXPECT_TRUE(HasLogged("| FILE: FileIsGroupsMember: Couldn't getgroups\n"));
}

TEST_F(FileTemp, WithoutTheGroupsOfThisMomentTheOtherBitsCount) {
  MakeGroupDirectory(0007);
  BecomeMemberOf({2000});
  testhost::SystemCalls calls({SYS_getgroups});
  calls.Fail(SYS_getgroups, EPERM, {.from = 1});
  EXPECT_EQ(TmpDir(), "/t/dir");
  calls.Clear();
  EXPECT_TRUE(HasLogged("| FILE: FileIsGroupsMember: Couldn't getgroups\n"));
}

TEST_F(FileTemp, WithoutMemoryForTheGroupsTheOtherBitsCount) {
  MakeGroupDirectory(0);
  BecomeMemberOf({2000});
  const size_t count = testhost::CountAllocations([] { EXPECT_EQ(TmpDir(), "/t/dir"); });
  bool isOther = false;
  testing::internal::CaptureStderr();
  for (size_t nth = 0; nth < count && !isOther; nth++) {
    // Most of the others stop the program.
    const pid_t child = fork();
    if (child == 0) {
      const testhost::AllocationFault fault(nth);
      _exit(TmpDir() == "/tmp" ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    isOther = status == 0 && HasLogged("realloc");
  }
  EXPECT_TRUE(isOther);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("FILE: FileIsGroupsMember: Couldn't realloc\n"),
            std::string::npos);
  EXPECT_TRUE(HasLogged("| FILE: FileIsGroupsMember: Couldn't realloc\n"));
}

TEST_F(FileTemp, DirectoryFallsToTheHomeThenTheWorkingDirectoryThenTheRoot) {
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

TEST_F(FileTemp, SlashTmpIsTriedTwice) {
  ASSERT_EQ(chmod("/tmp", 0755), 0);
  setenv("HOME", "/t/dir", 1);
  ASSERT_EQ(chmod("/t/dir", 0777), 0);
  BecomeMemberOf({2000});
  const testhost::SystemCalls calls({SYS_newfstatat});
  EXPECT_EQ(TmpDir(), "/t/dir");
  EXPECT_EQ(calls.Count(SYS_newfstatat), 3U);
}

TEST_F(FileTemp, ThatThereIsNoDirectoryIsTold) {
  // Made now, since the user can make no file.
  const OwnedStream warnings(tmpfile());
  ASSERT_NE(dup2(fileno(warnings.get()), STDERR_FILENO), -1);
  ASSERT_EQ(chmod("/tmp", 0755), 0);
  ASSERT_EQ(mkdir("/t/work", 0700), 0);
  ASSERT_EQ(chdir("/t/work"), 0);
  ASSERT_EQ(rmdir("/t/work"), 0);
  setenv("HOME", "/t/missing", 1);
  BecomeMemberOf({});
  EXPECT_EQ(TmpDir(), "null");
  EXPECT_EQ(TextOf(warnings.get()),
            "FILE: File_Cwd: getcwd() failed: No such file or directory\n"
            "File_GetTmpDir: Couldn't get a temporary directory\n");
  EXPECT_TRUE(HasLogged("| File_GetTmpDir: Couldn't get a temporary directory\n"));
  EXPECT_TRUE(HasLogged("| FILE: File_Cwd: getcwd() failed: No such file or directory\n"));
  char *path = nullptr;
  EXPECT_EQ(File_MakeTemp("tag", &path), -1);
  EXPECT_EQ(errno, EFAULT);
}

// ---- The files

// The path that a call made, "null" when it failed.
std::string Made(int fd, char *path) {
  if (fd == -1) {
    EXPECT_EQ(path, nullptr);
    return "null";
  }
  struct stat open;
  struct stat named;
  EXPECT_EQ(fstat(fd, &open), 0);
  EXPECT_EQ(stat(path, &named), 0);
  EXPECT_EQ(open.st_ino, named.st_ino);
  EXPECT_EQ(named.st_mode, static_cast<mode_t>(S_IFREG | 0600));
  EXPECT_EQ(fcntl(fd, F_GETFL) & O_ACCMODE, O_RDWR);
  EXPECT_EQ(fcntl(fd, F_GETFD), 0);
  close(fd);
  return Take(path);
}

std::string MakeTemp(const char *tag) {
  char *path = nullptr;
  const int fd = File_MakeTemp(tag, &path);
  return Made(fd, path);
}

std::string MakeTempFrom(uint32_t first) {
  char *path = nullptr;
  const int fd = FileMakeTempFrom(first, "/t/dir", "name", &path);
  return Made(fd, path);
}

std::string MakeTempEx(const char *directory, const char *name) {
  char *path = nullptr;
  const int fd = File_MakeTempEx(directory, name, &path);
  return Made(fd, path);
}

TEST_F(FileTemp, FilesAreNumberedFrom0) {
  EXPECT_EQ(MakeTempEx("/t/dir", "name"), "/t/dir/name0");
  EXPECT_EQ(MakeTempEx("/t/dir/", "name"), "/t/dir/name1");
  ASSERT_EQ(symlink("missing", "/t/dir/name2"), 0);
  ASSERT_EQ(mkdir("/t/dir/name3", 0700), 0);
  EXPECT_EQ(MakeTempEx("/t/dir", "name"), "/t/dir/name4");
  ASSERT_EQ(unlink("/t/dir/name0"), 0);
  EXPECT_EQ(MakeTempEx("/t/dir", "name"), "/t/dir/name0");
  EXPECT_EQ(MakeTempEx("/t/dir", ""), "/t/dir/0");
  ASSERT_EQ(chdir("/t/dir"), 0);
  EXPECT_EQ(MakeTempEx(".", "x"), "./x0");
  EXPECT_FALSE(Msg_Present());
}

TEST_F(FileTemp, TagIsANameInTheTemporaryDirectoryOrAPath) {
  Configure("/t/small");
  EXPECT_EQ(MakeTemp(nullptr), "/t/small/ostrel0");
  EXPECT_EQ(MakeTemp("tag"), "/t/small/tag0");
  EXPECT_EQ(MakeTemp("/t/dir/tag"), "/t/dir/tag0");
  EXPECT_EQ(MakeTemp("/tag"), "/tag0");
  EXPECT_EQ(MakeTemp("/t/dir/"), "/t/dir/0");
}

TEST_F(FileTemp, FilesOfManyProcessesAreTheirOwn) {
  EXPECT_EQ(RunInProcesses(4,
                           [](int) {
                             bool isMade = true;
                             for (int number = 0; number < 100; number++) {
                               isMade = MakeTempEx("/t/dir", "name") != "null" && isMade;
                             }
                             return isMade;
                           }),
            4);
  EXPECT_EQ(File_ListDirectory("/t/dir", nullptr), 400);
}

TEST_F(FileTemp, ANullArgumentIsEFAULT) {
  char *path = nullptr;
  EXPECT_EQ(File_MakeTempEx(nullptr, "name", &path), -1);
  EXPECT_EQ(errno, EFAULT);
  errno = 0;
  EXPECT_EQ(File_MakeTempEx("/t/dir", nullptr, &path), -1);
  EXPECT_EQ(errno, EFAULT);
  errno = 0;
  EXPECT_EQ(File_MakeTempEx("/t/dir", "name", nullptr), -1);
  EXPECT_EQ(errno, EFAULT);
  errno = 0;
  EXPECT_EQ(File_MakeTemp("/t/dir/name", nullptr), -1);
  EXPECT_EQ(errno, EFAULT);
  EXPECT_EQ(path, nullptr);
  EXPECT_TRUE(File_IsEmptyDirectory("/t/dir"));
}

TEST_F(FileTemp, AFailureIsToldWithTheErrnoKept) {
  EXPECT_EQ(MakeTempEx("/t/missing", "name"), "null");
  EXPECT_EQ(errno, ENOENT);
  EXPECT_TRUE(
      HasMessage("[msg.file.maketemp.openFailed] Failed to create temporary file "
                 "\"/t/missing/name0\": No such file or directory.\n"));
  EXPECT_EQ(MakeTempEx("/t/dir", std::string(255, 'x').c_str()), "null");
  EXPECT_EQ(errno, ENAMETOOLONG);
}

TEST_F(FileTempUser, AFailureOfAnOrdinaryUser) {
  EXPECT_EQ(MakeTemp("/t/dir/name"), "null");
  EXPECT_EQ(errno, EACCES);
  EXPECT_TRUE(HasMessage("Failed to create temporary file \"/t/dir/name0\": Permission denied.\n"));
}

TEST_F(FileTemp, TheLastNumbersAreShownAsSignedOnes) {
  EXPECT_EQ(MakeTempFrom(0xfffffffe), "/t/dir/name-2");
}

TEST_F(FileTemp, ThatAllNamesAreTakenIsTold) {
  testhost::WriteFile("/t/dir/name-2", "");
  testhost::WriteFile("/t/dir/name-3", "");
  EXPECT_EQ(MakeTempFrom(0xfffffffd), "null");
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_TRUE(
      HasMessage("[msg.file.maketemp.fullNamespace] Failed to create temporary file \"/t/dir/name\": "
                 "The name space is full.\n"));
}

TEST_F(FileTempLatin1, PathsAreConverted) {
  char *path = nullptr;
  const int fd = File_MakeTempEx("/t/dir", "caf\u00E9", &path);
  close(fd);
  EXPECT_EQ(Take(path),
            "/t/dir/caf\u00E9"
            "0");
  EXPECT_TRUE(
      IsThere("/t/dir/caf\xE9"
              "0"));
}

TEST_F(FileTempAscii, PathsThatCannotBeExpressedFail) {
  EXPECT_EQ(MakeTempEx("/t/dir", "caf\u00E9"), "null");
  EXPECT_EQ(errno, EINVAL);
}

}  // namespace
