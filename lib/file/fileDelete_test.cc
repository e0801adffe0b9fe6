#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "file.h"
#include "fileTestInt.h"
#include "systemCalls.h"
#include "testhost.h"

namespace {

class FileDelete : public FileHost {};
class FileDeleteLatin1 : public FileHostLatin1 {};
class FileDeleteAscii : public FileHostAscii {};

class FileDeleteUser : public FileHost {
  void Describe(testhost::Host &host) override {
    host.File("/t/locked/file", "content")
        .Directory("/t/locked", 0700)
        .Directory("/t/open", 0777)
        .SymLink("/t/open/link", "../file")
        .User(kUser);
  }
};

TEST_F(FileDelete, UnlinkRemovesAFile) {
  EXPECT_EQ(File_Unlink("/t/file"), 0);
  EXPECT_FALSE(IsThere("/t/file"));
}

TEST_F(FileDelete, UnlinkTellsWhyNot) {
  const struct {
    const char *path;
    int error;
  } rows[] = {{"/t/missing", ENOENT}, {"/t/dir", EISDIR}, {"/t/file/x", ENOTDIR},
              {"/t/file/", ENOTDIR},  {"", ENOENT},       {nullptr, EFAULT}};
  for (const auto &row : rows) {
    EXPECT_EQ(File_Unlink(row.path), -1) << row.path;
    EXPECT_EQ(errno, row.error) << row.path;
    EXPECT_EQ(File_UnlinkNoFollow(row.path), -1) << row.path;
    EXPECT_EQ(errno, row.error) << row.path;
    EXPECT_EQ(File_UnlinkIfExists(row.path), row.error == ENOENT ? 0 : -1) << row.path;
  }
  const std::string tooLong = "/t/" + std::string(8192, 'x');
  EXPECT_EQ(File_Unlink(tooLong.c_str()), -1);
  EXPECT_EQ(errno, ENAMETOOLONG);
}

TEST_F(FileDelete, UnlinkOfALinkRemovesBoth) {
  ASSERT_EQ(symlink("/t/file", "/t/absolute"), 0);
  EXPECT_EQ(File_Unlink("/t/absolute"), 0);
  EXPECT_FALSE(IsThere("/t/file"));
  EXPECT_FALSE(IsThere("/t/absolute"));
}

TEST_F(FileDelete, UnlinkNoFollowOfALinkRemovesTheLinkOnly) {
  ASSERT_EQ(symlink("/t/file", "/t/link"), 0);
  EXPECT_EQ(File_UnlinkNoFollow("/t/link"), 0);
  EXPECT_FALSE(IsThere("/t/link"));
  EXPECT_EQ(testhost::ReadFile("/t/file"), "content");
  EXPECT_EQ(File_UnlinkNoFollow("/t/file"), 0);
  EXPECT_FALSE(IsThere("/t/file"));
}

TEST_F(FileDelete, UnlinkSeesARelativeTargetFromTheLink) {
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

TEST_F(FileDelete, UnlinkFollowsOneLinkOfAChain) {
  ASSERT_EQ(symlink("file", "/t/inner"), 0);
  ASSERT_EQ(symlink("inner", "/t/outer"), 0);
  EXPECT_EQ(File_Unlink("/t/outer"), 0);
  EXPECT_FALSE(IsThere("/t/outer"));
  EXPECT_FALSE(IsThere("/t/inner"));
  EXPECT_TRUE(IsThere("/t/file"));
}

TEST_F(FileDelete, UnlinkOfADanglingLinkRemovesTheLink) {
  ASSERT_EQ(symlink("missing", "/t/dangling"), 0);
  EXPECT_EQ(File_Unlink("/t/dangling"), 0);
  EXPECT_FALSE(IsThere("/t/dangling"));
  ASSERT_EQ(symlink("missing", "/t/dangling"), 0);
  EXPECT_EQ(File_UnlinkIfExists("/t/dangling"), 0);
  EXPECT_FALSE(IsThere("/t/dangling"));
}

TEST_F(FileDelete, UnlinkKeepsALinkWhoseTargetStays) {
  ASSERT_EQ(symlink("dir", "/t/link"), 0);
  EXPECT_EQ(File_Unlink("/t/link"), -1);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_TRUE(IsThere("/t/link"));
  EXPECT_TRUE(IsThere("/t/dir"));
  EXPECT_EQ(File_UnlinkIfExists("/t/link"), -1);
  EXPECT_EQ(File_UnlinkNoFollow("/t/link"), 0);
  EXPECT_TRUE(IsThere("/t/dir"));
  ASSERT_EQ(symlink("file/x", "/t/link"), 0);
  EXPECT_EQ(File_Unlink("/t/link"), -1);
  EXPECT_EQ(errno, ENOTDIR);
  EXPECT_TRUE(IsThere("/t/link"));
}

TEST_F(FileDelete, UnlinkKeepsALinkThatCannotBeRead) {
  ASSERT_EQ(symlink("file", "/t/link"), 0);
  testhost::SystemCalls calls({SYS_readlink});
  calls.Fail(SYS_readlink, EIO);
  EXPECT_EQ(File_Unlink("/t/link"), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_TRUE(File_IsSymLink("/t/link"));
  EXPECT_TRUE(IsThere("/t/file"));
}

TEST_F(FileDeleteUser, UnlinkKeepsALinkToWhatMayNotBeDeleted) {
  EXPECT_EQ(File_Unlink("/t/open/link"), -1);
  EXPECT_EQ(errno, EACCES);
  EXPECT_TRUE(IsThere("/t/open/link"));
  EXPECT_TRUE(IsThere("/t/file"));
}

TEST_F(FileDeleteUser, UnlinkIfExistsOfWhatCannotBeReachedFails) {
  EXPECT_EQ(File_UnlinkIfExists("/t/locked/file"), -1);
  EXPECT_EQ(errno, EACCES);
}

TEST_F(FileDelete, UnlinkIfExistsAcceptsAMissingFile) {
  EXPECT_EQ(File_UnlinkIfExists("/t/missing"), 0);
  EXPECT_EQ(File_UnlinkIfExists("/t/file"), 0);
  EXPECT_FALSE(IsThere("/t/file"));
  EXPECT_EQ(File_UnlinkIfExists("/t/dir"), -1);
}

TEST_F(FileDelete, UnlinkOfAPipeOrANameThatIsNoText) {
  ASSERT_EQ(mkfifo("/t/fifo", 0600), 0);
  EXPECT_EQ(File_Unlink("/t/fifo"), 0);
  EXPECT_FALSE(IsThere("/t/fifo"));
  testhost::WriteFile("/t/caf\xE9", "");
  EXPECT_EQ(File_Unlink("/t/caf\xE9"), 0);
  EXPECT_FALSE(IsThere("/t/caf\xE9"));
}

TEST_F(FileDeleteLatin1, UnlinkConvertsTheNameAndTheTargets) {
  testhost::WriteFile("/t/caf\xE9", "");
  ASSERT_EQ(symlink("caf\xE9", "/t/\xE9t\xE9"), 0);
  EXPECT_EQ(File_Unlink("/t/\u00E9t\u00E9"), 0);
  EXPECT_FALSE(IsThere("/t/caf\xE9"));
  EXPECT_FALSE(IsThere("/t/\xE9t\xE9"));
}

TEST_F(FileDeleteAscii, UnlinkLogsAPathThatCannotBeExpressed) {
  testhost::WriteFile("/t/caf\u00E9", "");
  EXPECT_EQ(File_Unlink("/t/caf\u00E9"), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_TRUE(IsThere("/t/caf\u00E9"));
  EXPECT_TRUE(HasLogged("| FILE: FileDeletion: failed to convert \"/t/caf\u00E9\" to current encoding\n"));
}

}  // namespace
