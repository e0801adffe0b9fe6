#include "posixPosix.h"

#include <sys/mount.h>
#include <sys/sysmacros.h>

#include <cstring>
#include <string>

#include "owned.h"
#include "posixPosixTestInt.h"

namespace {

using posixtest::kNotLatin1;
using posixtest::kPanic;

class Posix : public posixtest::PosixHost {};
class PosixLatin1 : public posixtest::Latin1Host {};

constexpr char kText[] = "/t/" NAME;
constexpr char kBytes[] = "/t/" LATIN1_NAME;
constexpr char kNewText[] = "/t/new" NAME;
constexpr char kNewBytes[] = "/t/new" LATIN1_NAME;
constexpr char kDirectoryText[] = "/t/dir" NAME;
constexpr char kDirectoryBytes[] = "/t/dir" LATIN1_NAME;

// Of the name itself, as the system knows it.
struct stat StatusOf(const char *bytes) {
  struct stat data {};
  EXPECT_EQ(lstat(bytes, &data), 0) << bytes;
  return data;
}

mode_t ModeOf(const char *bytes) {
  return StatusOf(bytes).st_mode & 07777;
}

bool Exists(const char *bytes) {
  return access(bytes, F_OK) == 0;
}

TEST_F(Posix, NullPathIsAnsweredWithEFAULT) {
  struct stat data;
  EXPECT_FAILS(-1, EFAULT, Posix_Open(nullptr, O_RDONLY));
  EXPECT_FAILS(-1, EFAULT, Posix_Creat(nullptr, 0666));
  EXPECT_FAILS(-1, EFAULT, Posix_Stat(nullptr, &data));
  EXPECT_FAILS(-1, EFAULT, Posix_Lstat(nullptr, &data));
  EXPECT_FAILS(-1, EFAULT, Posix_Unlink(nullptr));
  EXPECT_FAILS(-1, EFAULT, Posix_Rmdir(nullptr));
  EXPECT_FAILS(-1, EFAULT, Posix_Mkdir(nullptr, 0777));
  EXPECT_FAILS(-1, EFAULT, Posix_Chdir(nullptr));
  EXPECT_FAILS(-1, EFAULT, Posix_Chmod(nullptr, 0777));
  EXPECT_FAILS(-1, EFAULT, Posix_Chown(nullptr, 0, 0));
  EXPECT_FAILS(-1, EFAULT, Posix_Lchown(nullptr, 0, 0));
  EXPECT_FAILS(-1, EFAULT, Posix_Truncate(nullptr, 0));
  EXPECT_FAILS(-1, EFAULT, Posix_Utime(nullptr, nullptr));
  EXPECT_FAILS(-1, EFAULT, Posix_Utimes(nullptr, nullptr));
  EXPECT_FAILS(-1, EFAULT, Posix_Access(nullptr, F_OK));
  EXPECT_FAILS(-1, EFAULT, Posix_Pathconf(nullptr, _PC_NAME_MAX));
  EXPECT_FAILS(-1, EFAULT, Posix_Mkfifo(nullptr, 0666));
  EXPECT_FAILS(-1, EFAULT, Posix_Mknod(nullptr, S_IFREG | 0666, 0));
  EXPECT_FAILS(-1, EFAULT, Posix_Rename(nullptr, "/t/new"));
  EXPECT_FAILS(-1, EFAULT, Posix_Rename("/t/file", nullptr));
  EXPECT_FAILS(-1, EFAULT, Posix_Symlink(nullptr, "/t/new"));
  EXPECT_FAILS(-1, EFAULT, Posix_Link("/t/file", nullptr));
#ifndef __SANITIZE_ADDRESS__  // whose calls read the path themselves
  struct statfs system;
  EXPECT_FAILS(-1, EFAULT, Posix_Statfs(nullptr, &system));
  EXPECT_FAILS(nullptr, EFAULT, Posix_ReadLink(nullptr));
#endif
  EXPECT_FAILS(nullptr, EFAULT, Posix_OpenDir(nullptr));
  EXPECT_FAILS(nullptr, EFAULT, Posix_Fopen(nullptr, "r"));
  EXPECT_FAILS(-1, EFAULT, Posix_Mount("none", nullptr, "tmpfs", 0, nullptr));
  EXPECT_FAILS(-1, EFAULT, Posix_Umount(nullptr));
  // realpath's own answer.
  EXPECT_FAILS(nullptr, EINVAL, Posix_RealPath(nullptr));
  EXPECT_EQ(testhost::ReadFile("/t/file"), "content");
}

TEST_F(Posix, FailuresAreThoseOfTheCall) {
  struct stat data;
  EXPECT_FAILS(-1, ENOENT, Posix_Open("/t/missing", O_RDONLY));
  EXPECT_FAILS(-1, EEXIST, Posix_Open("/t/file", O_CREAT | O_EXCL | O_WRONLY, 0600));
  EXPECT_FAILS(-1, ENOTDIR, Posix_Stat("/t/file/below", &data));
  EXPECT_FAILS(-1, EISDIR, Posix_Unlink("/t/dir"));
  EXPECT_FAILS(-1, ENOTDIR, Posix_Rmdir("/t/file"));
  EXPECT_FAILS(-1, EEXIST, Posix_Mkdir("/t/dir", 0777));
  EXPECT_FAILS(nullptr, EINVAL, Posix_ReadLink("/t/file"));
  EXPECT_FAILS(nullptr, ENOENT, Posix_RealPath("/t/missing"));
  EXPECT_FAILS(nullptr, ENOTDIR, Posix_OpenDir("/t/file"));
  EXPECT_FAILS(-1, ENOENT, Posix_Stat("", &data));
  EXPECT_FAILS(-1, EINVAL, Posix_Umount("/t/dir"));
  EXPECT_FAILS(-1, ENODEV, Posix_Mount("none", "/t/dir", "no-such-type", 0, nullptr));
  EXPECT_FAILS(-1, EINVAL, Posix_Truncate("/t/file", -1));
}

TEST_F(Posix, LengthOfAPathIsTheSystemsToJudge) {
  for (const size_t size : {4095U, 4096U, 8192U}) {
    std::string path(size, '/');
    path.replace(size - strlen("t/file"), std::string::npos, "t/file");
    if (size == 4095) {
      EXPECT_EQ(Posix_Access(path.c_str(), F_OK), 0);
    } else {
      EXPECT_FAILS(-1, ENAMETOOLONG, Posix_Access(path.c_str(), F_OK));
    }
  }
}

TEST_F(Posix, SuccessLeavesErrnoAlone) {
  struct stat data;
  errno = ECHILD;
  EXPECT_EQ(Posix_Stat("/t/file", &data), 0);
  EXPECT_EQ(Posix_Chmod("/t/file", 0600), 0);
  EXPECT_EQ(Posix_Rename("/t/file", "/t/other"), 0);
  const OwnedString target(Posix_ReadLink("/t/link"));
  EXPECT_STREQ(target.get(), "file");
  EXPECT_EQ(errno, ECHILD);
}

TEST_F(PosixLatin1, SuccessLeavesErrnoAlone) {
  struct stat data;
  errno = ECHILD;
  EXPECT_EQ(Posix_Stat(kText, &data), 0);
  EXPECT_EQ(Posix_Rename(kText, kNewText), 0);
  const OwnedString target(Posix_ReadLink("/t/link" NAME));
  EXPECT_STREQ(target.get(), NAME);
  EXPECT_EQ(errno, ECHILD);
}

TEST_F(Posix, OpenUsesTheModeOfANewFile) {
  const int fd = Posix_Open("/t/new", O_CREAT | O_WRONLY, 0664);
  ASSERT_GE(fd, 0);
  close(fd);
  EXPECT_EQ(ModeOf("/t/new"), 0644);
}

TEST_F(Posix, CreatEmptiesAndOpensForWriting) {
  const int fd = Posix_Creat("/t/file", 0600);
  EXPECT_EQ(fcntl(fd, F_GETFL) & (O_ACCMODE | O_APPEND), O_WRONLY);
  close(fd);
  EXPECT_EQ(StatusOf("/t/file").st_size, 0);
}

TEST_F(Posix, BeyondTwoGigabytesFilesAreFiles) {
  constexpr off_t kLarge = (off_t{1} << 32) + 5;
  EXPECT_EQ(Posix_Truncate("/t/file", kLarge), 0);
  struct stat data;
  EXPECT_EQ(Posix_Stat("/t/file", &data), 0);
  EXPECT_EQ(data.st_size, kLarge);
}

TEST_F(Posix, CallsReachTheirSystemCall) {
  struct stat data;
  EXPECT_EQ(Posix_Lstat("/t/link", &data), 0);
  EXPECT_TRUE(S_ISLNK(data.st_mode));
  EXPECT_EQ(Posix_Stat("/t/link", &data), 0);
  EXPECT_TRUE(S_ISREG(data.st_mode));
  EXPECT_EQ(Posix_Mkdir("/t/dir/below", 0750), 0);
  EXPECT_EQ(ModeOf("/t/dir/below"), 0750);
  EXPECT_EQ(Posix_Rmdir("/t/dir/below"), 0);
  EXPECT_EQ(Posix_Symlink("a/b", "/t/dir/symbolic"), 0);
  EXPECT_EQ(Posix_Link("/t/file", "/t/dir/hard"), 0);
  EXPECT_EQ(Posix_Stat("/t/dir/hard", &data), 0);
  EXPECT_EQ(data.st_nlink, 2U);
  const OwnedString target(Posix_ReadLink("/t/dir/symbolic"));
  EXPECT_STREQ(target.get(), "a/b");
  const OwnedStream stream(Posix_Fopen("/t/file", "r"));
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(fgetc(stream.get()), 'c');
  EXPECT_EQ(Posix_Unlink("/t/file"), 0);
  EXPECT_NE(access("/t/file", F_OK), 0);
}

TEST_F(Posix, RealPathResolvesLinks) {
  const OwnedString resolved(Posix_RealPath("/t/dir/../link"));
  EXPECT_STREQ(resolved.get(), "/t/file");
}

TEST_F(Posix, ReadLinkGivesUpTo4095Bytes) {
  const std::string target(4095, 'x');
  ASSERT_EQ(symlink(target.c_str(), "/t/dir/long"), 0);
  const OwnedString read(Posix_ReadLink("/t/dir/long"));
  EXPECT_EQ(read.get(), target);
}

TEST_F(Posix, UnderUtf8NamesGoAsTheyAre) {
  EXPECT_EQ(Posix_Mkdir("/t/\u20AC\U0001F600", 0755), 0);
  EXPECT_TRUE(Exists("/t/\xE2\x82\xAC\xF0\x9F\x98\x80"));
}

TEST_F(Posix, WhatLeadsToNoTextIsNoTarget) {
  ASSERT_EQ(symlink(kBytes, "/t/bad"), 0);
  EXPECT_FAILS(nullptr, EINVAL, Posix_ReadLink("/t/bad"));
  EXPECT_FAILS(nullptr, EINVAL, Posix_RealPath("/t/bad"));
}

TEST_F(PosixLatin1, OpensAndMakesFiles) {
  const int old = Posix_Open(kText, O_RDONLY);
  EXPECT_GE(old, 0);
  close(old);
  const int made = Posix_Open(kNewText, O_CREAT | O_WRONLY, 0640);
  EXPECT_GE(made, 0);
  close(made);
  EXPECT_EQ(ModeOf(kNewBytes), 0640);
  const int emptied = Posix_Creat(kText, 0600);
  EXPECT_GE(emptied, 0);
  close(emptied);
  EXPECT_EQ(StatusOf(kBytes).st_size, 0);
  EXPECT_FALSE(Exists(kText));
  EXPECT_FAILS(-1, ELOOP, Posix_Open("/t/link" NAME, O_RDONLY | O_NOFOLLOW));
}

TEST_F(PosixLatin1, LooksAtFiles) {
  struct stat data;
  EXPECT_EQ(Posix_Stat("/t/link" NAME, &data), 0);
  EXPECT_EQ(data.st_size, 5);
  EXPECT_EQ(Posix_Lstat("/t/link" NAME, &data), 0);
  EXPECT_TRUE(S_ISLNK(data.st_mode));
  struct statfs system {};
  EXPECT_EQ(Posix_Statfs(kText, &system), 0);
  EXPECT_GT(system.f_bsize, 0);
  EXPECT_EQ(Posix_Access(kText, R_OK), 0);
  EXPECT_FAILS(-1, EACCES, Posix_Access(kText, X_OK));
  EXPECT_FAILS(-1, ENOENT, Posix_Access(kNewText, F_OK));
  EXPECT_EQ(Posix_Pathconf(kText, _PC_NAME_MAX), 255);
  EXPECT_EQ(Posix_Pathconf(kText, _PC_PATH_MAX), 4096);
  EXPECT_TRUE(posixtest::HoldsInChild([] {
    ASSERT_EQ(setuid(1234), 0);
    EXPECT_EQ(Posix_Access(kText, R_OK), 0);
    EXPECT_FAILS(-1, EACCES, Posix_Access(kText, W_OK));
  }));
}

TEST_F(PosixLatin1, ChangesFiles) {
  EXPECT_EQ(Posix_Chmod(kText, 0604), 0);
  EXPECT_EQ(ModeOf(kBytes), 0604);
  EXPECT_EQ(Posix_Chown("/t/link" NAME, 11, 22), 0);
  EXPECT_EQ(StatusOf(kBytes).st_uid, 11U);
  EXPECT_EQ(StatusOf(kBytes).st_gid, 22U);
  EXPECT_EQ(Posix_Lchown("/t/link" NAME, 33, 55), 0);
  EXPECT_EQ(StatusOf("/t/link" LATIN1_NAME).st_uid, 33U);
  EXPECT_EQ(StatusOf("/t/link" LATIN1_NAME).st_gid, 55U);
  EXPECT_EQ(Posix_Truncate(kText, 3), 0);
  EXPECT_EQ(testhost::ReadFile(kBytes), "lat");
  const utimbuf seconds = {100, 200};
  EXPECT_EQ(Posix_Utime(kText, &seconds), 0);
  EXPECT_EQ(StatusOf(kBytes).st_atime, 100);
  EXPECT_EQ(StatusOf(kBytes).st_mtime, 200);
  const timeval times[] = {{300, 1}, {400, 2}};
  EXPECT_EQ(Posix_Utimes(kText, times), 0);
  EXPECT_EQ(StatusOf(kBytes).st_atime, 300);
  EXPECT_EQ(StatusOf(kBytes).st_mtim.tv_nsec, 2000);
}

TEST_F(PosixLatin1, NoTimesAreNow) {
  const timeval past[] = {{300, 0}, {400, 0}};
  const time_t start = time(nullptr);
  const auto expectNow = [&] {
    EXPECT_GE(StatusOf(kBytes).st_atime, start - 1);
    EXPECT_GE(StatusOf(kBytes).st_mtime, start - 1);
    EXPECT_EQ(Posix_Utimes(kText, past), 0);
  };
  EXPECT_EQ(Posix_Utimes(kText, past), 0);
  EXPECT_EQ(Posix_Utime(kText, nullptr), 0);
  expectNow();
  EXPECT_EQ(Posix_Utimes(kText, nullptr), 0);
  expectNow();
}

TEST_F(PosixLatin1, MakesAndRemovesNames) {
  EXPECT_EQ(Posix_Mkdir(kNewText, 0750), 0);
  EXPECT_EQ(ModeOf(kNewBytes), 0750);
  EXPECT_EQ(Posix_Rmdir(kNewText), 0);
  EXPECT_FALSE(Exists(kNewBytes));
  EXPECT_EQ(Posix_Mkfifo(kNewText, 0600), 0);
  EXPECT_TRUE(S_ISFIFO(StatusOf(kNewBytes).st_mode));
  EXPECT_EQ(ModeOf(kNewBytes), 0600);
  EXPECT_EQ(Posix_Unlink(kNewText), 0);
  EXPECT_FALSE(Exists(kNewBytes));
  EXPECT_EQ(Posix_Mknod(kNewText, S_IFCHR | 0600, makedev(1, 3)), 0);
  EXPECT_TRUE(S_ISCHR(StatusOf(kNewBytes).st_mode));
  EXPECT_EQ(ModeOf(kNewBytes), 0600);
  EXPECT_EQ(StatusOf(kNewBytes).st_rdev, makedev(1, 3));
}

TEST_F(PosixLatin1, ConvertsBothOfTwoNames) {
  EXPECT_EQ(Posix_Rename(kText, kNewText), 0);
  EXPECT_EQ(testhost::ReadFile(kNewBytes), "latin");
  EXPECT_EQ(Posix_Link(kNewText, kText), 0);
  EXPECT_EQ(StatusOf(kBytes).st_nlink, 2U);
  EXPECT_EQ(Posix_Symlink(kText, "/t/symbolic" NAME), 0);
  EXPECT_EQ(testhost::ReadFile("/t/symbolic" LATIN1_NAME), "latin");
}

TEST_F(PosixLatin1, EitherOfTwoNamesCanFail) {
  for (const auto call : {Posix_Rename, Posix_Link, Posix_Symlink}) {
    EXPECT_FAILS(-1, EINVAL, call(kNotLatin1, kNewText));
    EXPECT_FAILS(-1, EINVAL, call(kText, kNotLatin1));
  }
  EXPECT_TRUE(Exists(kBytes));
  EXPECT_FALSE(Exists(kNewBytes));
}

TEST_F(PosixLatin1, GivesTargetsAsText) {
  const OwnedString target(Posix_ReadLink("/t/link" NAME));
  EXPECT_STREQ(target.get(), NAME);
  const OwnedString resolved(Posix_RealPath("/t/link" NAME));
  EXPECT_STREQ(resolved.get(), kText);
}

TEST_F(PosixLatin1, CutsALongTargetByItsBytes) {
  const std::string target(4095, '\xE9');
  ASSERT_EQ(symlink(target.c_str(), kNewBytes), 0);
  const OwnedString read(Posix_ReadLink(kNewText));
  ASSERT_NE(read, nullptr);
  EXPECT_EQ(strlen(read.get()), 2U * 4095);
}

TEST_F(PosixLatin1, EntersAndOpensDirectories) {
  EXPECT_EQ(Posix_Chdir(kDirectoryText), 0);
  char buffer[100] = "";
  EXPECT_STREQ(getcwd(buffer, sizeof buffer), kDirectoryBytes);
  EXPECT_NE(OwnedDirectory(Posix_OpenDir(kDirectoryText)), nullptr);
}

TEST_F(PosixLatin1, OpensStreams) {
  OwnedStream stream(Posix_Fopen(kText, "r"));
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(fgetc(stream.get()), 'l');
  FILE *again = Posix_Freopen(kNewText, "w", stream.get());
  ASSERT_EQ(again, stream.get());
  fputs("new", again);
  stream.reset();
  EXPECT_EQ(testhost::ReadFile(kNewBytes), "new");
  stream.reset(Posix_Fopen(kNewText, "a"));
  ASSERT_NE(stream, nullptr);
  fputs("er", stream.get());
  stream.reset();
  EXPECT_EQ(testhost::ReadFile(kNewBytes), "newer");
}

// The system reopens the same file.
TEST_F(Posix, AStreamWithoutANewNameGetsAnotherMode) {
  const OwnedStream stream(Posix_Fopen("/t/file", "r"));
  ASSERT_EQ(Posix_Freopen(nullptr, "r+", stream.get()), stream.get());
  EXPECT_EQ(fputs("CON", stream.get()), 1);
  fflush(stream.get());
  EXPECT_EQ(testhost::ReadFile("/t/file"), "CONtent");
}

TEST_F(PosixLatin1, AStreamStaysOpenWhenItsNewNameCannotBeConverted) {
  const OwnedStream stream(Posix_Fopen(kText, "r"));
  EXPECT_FAILS(nullptr, EINVAL, Posix_Freopen(kNotLatin1, "r", stream.get()));
  EXPECT_EQ(fgetc(stream.get()), 'l');
}

TEST_F(PosixLatin1, MountsAndUnmounts) {
  EXPECT_EQ(Posix_Mount("source" NAME, kDirectoryText, "tmpfs", MS_NOSUID | MS_NOATIME, "mode=700,size=64k"),
            0);
  EXPECT_EQ(ModeOf(kDirectoryBytes), 0700);
  const std::string mounts = testhost::ReadFile("/proc/self/mounts");
  EXPECT_NE(mounts.find("\nsource" LATIN1_NAME " /t/dir" LATIN1_NAME " tmpfs rw,nosuid,noatime"),
            std::string::npos)
      << mounts;
  struct statfs system {};
  EXPECT_EQ(Posix_Statfs(kDirectoryText, &system), 0);
  EXPECT_EQ(static_cast<uint64_t>(system.f_bsize) * system.f_blocks, 65536U);
  EXPECT_EQ(Posix_Umount(kDirectoryText), 0);
  EXPECT_EQ(ModeOf(kDirectoryBytes), 0755);
  EXPECT_FAILS(-1, EINVAL, Posix_Mount("none", kNotLatin1, "tmpfs", 0, nullptr));
  EXPECT_FAILS(-1, EINVAL, Posix_Mount(kNotLatin1, kDirectoryText, "tmpfs", 0, nullptr));
  // The system asks no source of this kind.
  EXPECT_EQ(Posix_Mount(nullptr, kDirectoryText, "tmpfs", 0, nullptr), 0);
}

TEST_F(PosixLatin1, LackOfMemoryIsTextThatCannotBeConverted) {
  const auto look = [] { return Posix_Access(kText, F_OK); };
  const size_t count = posixtest::CountAllocations(look);
  ASSERT_GT(count, 0U);
  for (size_t i = 0; i < count; i++) {
    const testhost::AllocationFault fault(i);
    SCOPED_TRACE(i);
    EXPECT_FAILS(-1, EINVAL, look());
  }
  const auto read = [] { return OwnedString(Posix_ReadLink("/t/link" NAME)); };
  const size_t readCount = posixtest::CountAllocations([&] { read(); });
  ASSERT_GT(readCount, count);
  for (size_t i = 0; i < readCount; i++) {
    const testhost::AllocationFault fault(i);
    SCOPED_TRACE(i);
    EXPECT_FAILS(nullptr, EINVAL, read());
  }
}

TEST_F(Posix, UnderUtf8NothingIsAllocated) {
  EXPECT_EQ(posixtest::CountAllocations([] { EXPECT_EQ(Posix_Access("/t/file", F_OK), 0); }), 0U);
}

TEST_F(Posix, NullModeAsserts) {
  EXPECT_EXIT(Posix_Fopen("/t/file", nullptr), kPanic, "ASSERT lib/misc/posixPosix\\.cc:[0-9]+");
  EXPECT_EXIT(Posix_Freopen("/t/file", nullptr, stdin), kPanic, "ASSERT lib/misc/posixPosix\\.cc:[0-9]+");
  EXPECT_EXIT(Posix_Popen("true", nullptr), kPanic, "ASSERT lib/misc/posixPosixExec\\.cc:[0-9]+");
  EXPECT_EXIT(Posix_Setmntent("/t/file", nullptr), kPanic, "ASSERT lib/misc/posixPosixRecords\\.cc:[0-9]+");
}

}  // namespace
