// The lock of a file that is opened, held against other processes.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <string>

#include "fileIO.h"
#include "fileIOTestInt.h"
#include "systemCalls.h"
#include "testhost.h"

namespace {

using fileiotest::ExpectInvalid;
using fileiotest::kReadWrite;

class FileIOLock : public fileiotest::FileIOHost {};
class FileIOLockUser : public fileiotest::FileIOUserHost {};

// The result of a brief open with a lock, in a process of its own.
int OpenLocked(const char *path, uint32_t access, FileIOAction action = FILEIO_OPEN) {
  const pid_t pid = fork();
  if (pid == 0) {
    FileIODescriptor file;
    FileIO_Invalidate(&file);
    const FileIOResult result = FileIO_Open(&file, path, access | FILEIO_ACCESS_LOCK, action);
    _exit(FileIO_IsValid(&file) && FileIO_Close(&file) ? 99 : result);
  }
  int status = 0;
  EXPECT_EQ(waitpid(pid, &status, 0), pid);
  return WEXITSTATUS(status);
}

TEST_F(FileIOLock, LockIsHeldUntilTheClose) {
  EXPECT_EQ(OpenLocked("/t/file", FILEIO_ACCESS_READ), FILEIO_SUCCESS);
  EXPECT_FALSE(std::filesystem::exists("/t/file.lck"));
  ASSERT_EQ(FileIO_Open(&file_, "/t/file", kReadWrite | FILEIO_ACCESS_LOCK, FILEIO_OPEN), FILEIO_SUCCESS);
  EXPECT_NE(file_.lockToken, nullptr);
  EXPECT_TRUE(std::filesystem::exists("/t/file.lck"));
  EXPECT_FALSE(FileIO_Close(&file_));
  ExpectInvalid(file_);
  EXPECT_FALSE(std::filesystem::exists("/t/file.lck"));
}

TEST_F(FileIOLock, LockedFileFailsAfterTwoAndAHalfSeconds) {
  ASSERT_EQ(FileIO_Open(&file_, "/t/file", kReadWrite | FILEIO_ACCESS_LOCK, FILEIO_OPEN), FILEIO_SUCCESS);
  const testhost::SystemCalls calls({SYS_clock_nanosleep});
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(OpenLocked("/t/file", FILEIO_ACCESS_READ), FILEIO_LOCK_FAILED);
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
  EXPECT_GT(seconds.count(), 2.5);
  EXPECT_EQ(calls.Count(SYS_clock_nanosleep), 23U);
  EXPECT_NE(LogText().find("FILE: FileIO_Lock on '/t/file' failed: Lock timed out\n"), std::string::npos);
}

TEST_F(FileIOLock, LockedFileIsNotEmptied) {
  Open("/t/file", FILEIO_ACCESS_READ | FILEIO_ACCESS_LOCK);
  EXPECT_EQ(OpenLocked("/t/file", FILEIO_ACCESS_WRITE, FILEIO_OPEN_CREATE_EMPTY), FILEIO_LOCK_FAILED);
  EXPECT_EQ(testhost::ReadFile("/t/file"), "content");
}

TEST_F(FileIOLock, ReadersShareTheLock) {
  ASSERT_EQ(FileIO_Open(&file_, "/t/file", FILEIO_ACCESS_READ | FILEIO_ACCESS_LOCK, FILEIO_OPEN),
            FILEIO_SUCCESS);
  EXPECT_EQ(OpenLocked("/t/file", FILEIO_ACCESS_READ), FILEIO_SUCCESS);
}

TEST_F(FileIOLock, FailedOpenGivesTheLockBack) {
  EXPECT_FAILS(FILEIO_FILE_NOT_FOUND, ENOENT,
               FileIO_Open(&file_, "/t/missing", FILEIO_ACCESS_READ | FILEIO_ACCESS_LOCK, FILEIO_OPEN));
  ExpectInvalid(file_);
  EXPECT_FALSE(std::filesystem::exists("/t/missing.lck"));
}

TEST_F(FileIOLock, LockErrorsAreMapped) {
  ASSERT_EQ(mount("none", "/t/small", "tmpfs", MS_RDONLY, "size=64k"), 0);
  testhost::WriteFile("/t/old.lck", "of an old style");
  testhost::WriteFile("/t/below", "a file");
  const std::string longName = "/t/" + std::string(253, 'x');
  const struct {
    const char *path;
    FileIOResult result;
    int error;
    const char *reason;
  } rows[] = {
      {"/t/old", FILEIO_LOCK_FAILED, 0, "Lock timed out"},
      {"/t/small/file", FILEIO_LOCK_FAILED, EROFS, "Read-only file system"},
      {"/t/missing/file", FILEIO_FILE_NOT_FOUND, ENOENT, "No such file or directory"},
      {longName.c_str(), FILEIO_NAME_TOO_LONG, ENAMETOOLONG, "File name too long"},
      {"/t/below/file", FILEIO_ERROR, ENOTDIR, "Not a directory"},
  };
  for (const auto &row : rows) {
    errno = EXDEV;
    testing::internal::CaptureStderr();
    EXPECT_EQ(FileIO_Open(&file_, row.path, kReadWrite | FILEIO_ACCESS_LOCK, FILEIO_OPEN_CREATE), row.result)
        << row.path;
    EXPECT_EQ(errno, row.error) << row.path;
    ExpectInvalid(file_);
    const std::string warning = "FILE: FileIO_Lock on '" + std::string(row.path) + "' failed: " + row.reason;
    EXPECT_NE(testing::internal::GetCapturedStderr().find(warning + '\n'), std::string::npos) << row.path;
    EXPECT_EQ(LogCount("| " + warning + '\n'), 1) << row.path;
    EXPECT_FALSE(std::filesystem::exists(row.path)) << row.path;
  }
}

TEST_F(FileIOLockUser, LockWithoutPermission) {
  EXPECT_EQ(FileIO_Open(&file_, "/t/file", kReadWrite | FILEIO_ACCESS_LOCK, FILEIO_OPEN),
            FILEIO_NO_PERMISSION);
  ExpectInvalid(file_);
  EXPECT_EQ(FileIO_Open(&file_, "/t/file", FILEIO_ACCESS_READ | FILEIO_ACCESS_LOCK, FILEIO_OPEN),
            FILEIO_SUCCESS);
}

TEST_F(FileIOLock, LockThatVanishedIsAWarningOfTheClose) {
  ASSERT_EQ(FileIO_Open(&file_, "/t/file", FILEIO_ACCESS_READ | FILEIO_ACCESS_LOCK, FILEIO_OPEN),
            FILEIO_SUCCESS);
  std::filesystem::remove_all("/t/file.lck");
  EXPECT_FALSE(FileIO_Close(&file_));
  ExpectInvalid(file_);
  EXPECT_NE(LogText().find("FILE: FileIO_Unlock on '/t/file' failed: No such file or directory\n"),
            std::string::npos);
}

TEST_F(FileIOLock, OpenFileIsLockedAndUnlockedByItsName) {
  Open("/t/file", kReadWrite);
  EXPECT_EQ(file_.lockToken, nullptr);
  EXPECT_EQ(FileIO_Lock(&file_, kReadWrite | FILEIO_ACCESS_LOCK), FILEIO_SUCCESS);
  EXPECT_NE(file_.lockToken, nullptr);
  EXPECT_EQ(OpenLocked("/t/file", FILEIO_ACCESS_READ), FILEIO_LOCK_FAILED);
  EXPECT_EQ(FileIO_Unlock(&file_), FILEIO_SUCCESS);
  EXPECT_EQ(file_.lockToken, nullptr);
  EXPECT_EQ(OpenLocked("/t/file", kReadWrite), FILEIO_SUCCESS);
  EXPECT_EQ(FileIO_Unlock(&file_), FILEIO_SUCCESS);
  EXPECT_TRUE(FileIO_IsValid(&file_));
}

TEST_F(FileIOLock, NothingHappensWhereNoLockIsAskedFor) {
  Open("/t/file", kReadWrite);
  EXPECT_EQ(FileIO_Lock(&file_, kReadWrite), FILEIO_SUCCESS);
  EXPECT_EQ(file_.lockToken, nullptr);
  EXPECT_FALSE(std::filesystem::exists("/t/file.lck"));
}

TEST_F(FileIOLock, LockIsSharedUnlessTheFileIsWritten) {
  Open("/t/file", kReadWrite);
  EXPECT_EQ(FileIO_Lock(&file_, FILEIO_ACCESS_READ | FILEIO_ACCESS_LOCK), FILEIO_SUCCESS);
  EXPECT_EQ(OpenLocked("/t/file", FILEIO_ACCESS_READ), FILEIO_SUCCESS);
  EXPECT_EQ(OpenLocked("/t/file", FILEIO_ACCESS_WRITE), FILEIO_LOCK_FAILED);
}

TEST_F(FileIOLock, UnlockThatFailsForgetsTheLock) {
  Open("/t/file", FILEIO_ACCESS_READ | FILEIO_ACCESS_LOCK);
  std::filesystem::remove_all("/t/file.lck");
  EXPECT_FAILS(FILEIO_ERROR, ENOENT, FileIO_Unlock(&file_));
  EXPECT_EQ(file_.lockToken, nullptr);
  EXPECT_EQ(LogCount("FILE: FileIO_Unlock on '/t/file' failed: No such file or directory\n"), 1);
  EXPECT_EQ(FileIO_Unlock(&file_), FILEIO_SUCCESS);
}

TEST_F(FileIOLock, UnlockTellsTheFirstOfItsFailures) {
  Open("/t/file", FILEIO_ACCESS_READ | FILEIO_ACCESS_LOCK);
  testhost::SystemCalls calls({SYS_unlink});
  calls.Fail(SYS_unlink, EIO);
  testing::internal::CaptureStderr();
  EXPECT_FAILS(FILEIO_ERROR, EIO, FileIO_Unlock(&file_));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "FILE: FileIO_Unlock on '/t/file' failed: Input/output error\n");
  EXPECT_EQ(file_.lockToken, nullptr);
}

TEST_F(FileIOLock, PathThatCannotBeResolvedIsAnError) {
  ASSERT_EQ(mkdir("/t/gone", 0700), 0);
  ASSERT_EQ(chdir("/t/gone"), 0);
  ASSERT_EQ(rmdir("/t/gone"), 0);
  EXPECT_FAILS(FILEIO_ERROR, EINVAL,
               FileIO_Open(&file_, "file", FILEIO_ACCESS_READ | FILEIO_ACCESS_LOCK, FILEIO_OPEN));
  ExpectInvalid(file_);
  EXPECT_EQ(LogCount("| FILE: FileIO_Lock on 'file' failed: Invalid argument\n"), 1);
}

TEST_F(FileIOLock, FileThatIsMadeBelowALinkIsLocked) {
  ASSERT_EQ(symlink("/t", "/link"), 0);
  Open("/link/new", kReadWrite | FILEIO_ACCESS_LOCK, FILEIO_OPEN_CREATE);
  FileIODescriptor second;
  FileIO_Invalidate(&second);
  EXPECT_EQ(FileIO_Open(&second, "/link/new", kReadWrite | FILEIO_ACCESS_LOCK, FILEIO_OPEN),
            FILEIO_LOCK_FAILED);
  EXPECT_EQ(OpenLocked("/t/new", FILEIO_ACCESS_READ), FILEIO_LOCK_FAILED);
  EXPECT_FALSE(FileIO_Close(&file_));
  EXPECT_FALSE(std::filesystem::exists("/t/new.lck"));
}

TEST_F(FileIOLock, RelativeNameIsUnlockedFromAnywhere) {
  ASSERT_EQ(chdir("/t"), 0);
  Open("file", kReadWrite | FILEIO_ACCESS_LOCK);
  ASSERT_EQ(chdir("/"), 0);
  EXPECT_EQ(FileIO_Unlock(&file_), FILEIO_SUCCESS);
  EXPECT_EQ(file_.lockToken, nullptr);
  EXPECT_FALSE(std::filesystem::exists("/t/file.lck"));
}

TEST_F(FileIOLock, FailedUnlinkGivesTheLockBack) {
  const long before = fileiotest::OpenDescriptors();
  EXPECT_FAILS(FILEIO_ERROR, EISDIR,
               FileIO_Open(&file_, "/t/small",
                           FILEIO_ACCESS_READ | FILEIO_ACCESS_LOCK | FILEIO_ACCESS_UNLINK_OPEN, FILEIO_OPEN));
  ExpectInvalid(file_);
  EXPECT_EQ(fileiotest::OpenDescriptors(), before);
  EXPECT_FALSE(std::filesystem::exists("/t/small.lck"));
}

TEST_F(FileIOLock, LockOutlivesAFileThatIsUnlinked) {
  Open("/t/new", kReadWrite | FILEIO_ACCESS_LOCK | FILEIO_ACCESS_UNLINK_OPEN, FILEIO_OPEN_CREATE);
  EXPECT_FALSE(std::filesystem::exists("/t/new"));
  EXPECT_TRUE(std::filesystem::exists("/t/new.lck"));
  EXPECT_FALSE(FileIO_Close(&file_));
  EXPECT_FALSE(std::filesystem::exists("/t/new.lck"));
}

}  // namespace
