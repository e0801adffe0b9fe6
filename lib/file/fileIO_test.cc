#include "fileIO.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "fileIOTestInt.h"
#include "owned.h"
#include "systemCalls.h"
#include "testhost.h"

namespace {

using fileiotest::ExpectInvalid;
using fileiotest::kPanic;
using fileiotest::kReadWrite;
using fileiotest::OpenDescriptors;

class FileIO : public fileiotest::FileIOHost {};
class FileIOUser : public fileiotest::FileIOUserHost {};

// The names of files are in Latin-1.
class FileIOLatin1 : public FileIO {
 protected:
  void Describe(testhost::Host &host) override {
    setenv("G_FILENAME_ENCODING", "ISO-8859-1", 1);
    host.File("/t/caf\xE9", "content");
  }
};

mode_t ModeOf(const char *path) {
  struct stat data;
  EXPECT_EQ(stat(path, &data), 0) << path;
  return data.st_mode & 07777;
}

TEST_F(FileIO, InvalidateMakesAValueThatStandsForNoFile) {
  FileIODescriptor file{5, 7, nullptr, &file};
  FileIO_Invalidate(&file);
  ExpectInvalid(file);
}

TEST_F(FileIO, OpenKeepsNameAndAccess) {
  ASSERT_EQ(FileIO_Open(&file_, "/t/file", kReadWrite, FILEIO_OPEN), FILEIO_SUCCESS);
  EXPECT_TRUE(FileIO_IsValid(&file_));
  EXPECT_STREQ(file_.fileName, "/t/file");
  EXPECT_EQ(file_.flags, kReadWrite);
  EXPECT_FALSE(FileIO_Close(&file_));
  ExpectInvalid(file_);
}

TEST_F(FileIO, AccessBecomesOpenFlags) {
  const struct {
    uint32_t access;
    int flags;
  } rows[] = {
      {FILEIO_ACCESS_READ, O_RDONLY},
      {FILEIO_ACCESS_WRITE, O_WRONLY},
      {kReadWrite, O_RDWR},
      {kReadWrite | FILEIO_ACCESS_SYNC, O_RDWR | O_SYNC},
      {FILEIO_ACCESS_WRITE | FILEIO_ACCESS_SYNC, O_WRONLY | O_SYNC},
      {FILEIO_ACCESS_READ | FILEIO_ACCESS_NONBLOCK, O_RDONLY | O_NONBLOCK},
  };
  for (const auto &row : rows) {
    ASSERT_EQ(FileIO_Open(&file_, "/t/file", row.access, FILEIO_OPEN), FILEIO_SUCCESS);
    EXPECT_EQ(fcntl(file_.posix, F_GETFL) & (O_ACCMODE | O_SYNC | O_NONBLOCK), row.flags) << row.access;
    EXPECT_FALSE(FileIO_Close(&file_));
  }
}

TEST_F(FileIO, AllAccessThatIsGivenIsKept) {
  constexpr uint32_t kAccess = kReadWrite | FILEIO_ACCESS_SYNC | FILEIO_ACCESS_UNLINK_OPEN |
                               FILEIO_ACCESS_LOCK | FILEIO_ACCESS_ASYNC | FILEIO_ACCESS_NONBLOCK |
                               FILEIO_ACCESS_SUPERUSER | FILEIO_ACCESS_EXCLUSIVE;
  Open("/t/new", kAccess | FILEIO_ACCESS_UNBUFFERED, FILEIO_OPEN_CREATE);
  EXPECT_EQ(FileIO_GetFlags(&file_), kAccess);
}

TEST_F(FileIO, ActionsDecideWhatAMissingAndAnExistingFileBecome) {
  const struct {
    FileIOAction action;
    FileIOResult missing, existing;
    const char *content;
  } rows[] = {
      {FILEIO_OPEN, FILEIO_FILE_NOT_FOUND, FILEIO_SUCCESS, "content"},
      {FILEIO_OPEN_EMPTY, FILEIO_FILE_NOT_FOUND, FILEIO_SUCCESS, ""},
      {FILEIO_OPEN_CREATE, FILEIO_SUCCESS, FILEIO_SUCCESS, "content"},
      {FILEIO_OPEN_CREATE_SAFE, FILEIO_SUCCESS, FILEIO_FILE_EXISTS, "content"},
      {FILEIO_OPEN_CREATE_EMPTY, FILEIO_SUCCESS, FILEIO_SUCCESS, ""},
  };
  for (const auto &row : rows) {
    EXPECT_EQ(FileIO_Open(&file_, "/t/new", FILEIO_ACCESS_WRITE, row.action), row.missing);
    EXPECT_EQ(FileIO_IsValid(&file_), row.missing == FILEIO_SUCCESS);
    TearDown();
    unlink("/t/new");
    testhost::WriteFile("/t/old", "content");
    EXPECT_EQ(FileIO_Open(&file_, "/t/old", FILEIO_ACCESS_WRITE, row.action), row.existing);
    EXPECT_EQ(FileIO_IsValid(&file_), row.existing == FILEIO_SUCCESS);
    TearDown();
    EXPECT_EQ(testhost::ReadFile("/t/old"), row.content) << row.action;
  }
}

TEST_F(FileIO, OpenMakesPrivateFilesAndCreateAsAsked) {
  ASSERT_EQ(FileIO_Open(&file_, "/t/a", FILEIO_ACCESS_WRITE, FILEIO_OPEN_CREATE), FILEIO_SUCCESS);
  EXPECT_EQ(ModeOf("/t/a"), 0600);
  EXPECT_FALSE(FileIO_Close(&file_));
  ASSERT_EQ(FileIO_Create(&file_, "/t/b", FILEIO_ACCESS_WRITE, FILEIO_OPEN_CREATE, 0664), FILEIO_SUCCESS);
  EXPECT_EQ(ModeOf("/t/b"), 0644);
}

TEST_F(FileIO, FailuresAreMappedAndLeaveTheDescriptorInvalid) {
  const std::string longName = "/t/" + std::string(300, 'x');
  const struct {
    const char *path;
    FileIOResult result;
    int error;
  } rows[] = {
      {"/t/missing", FILEIO_FILE_NOT_FOUND, ENOENT},
      {longName.c_str(), FILEIO_NAME_TOO_LONG, ENAMETOOLONG},
      {"/t", FILEIO_ERROR, EISDIR},
      {"/t/file/below", FILEIO_ERROR, ENOTDIR},
      {"", FILEIO_FILE_NOT_FOUND, ENOENT},
      {nullptr, FILEIO_ERROR, EFAULT},
  };
  const long before = OpenDescriptors();
  for (const auto &row : rows) {
    EXPECT_EQ(FileIO_Open(&file_, row.path, FILEIO_ACCESS_WRITE, FILEIO_OPEN), row.result) << row.path;
    EXPECT_EQ(errno, row.error);
    ExpectInvalid(file_);
  }
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(FileIOUser, UnreadableFileIsNoPermission) {
  EXPECT_EQ(FileIO_Open(&file_, "/t/secret", FILEIO_ACCESS_READ, FILEIO_OPEN), FILEIO_NO_PERMISSION);
  EXPECT_EQ(errno, EACCES);
  ExpectInvalid(file_);
}

TEST_F(FileIO, UnlinkOpenLeavesAHandleWithoutAName) {
  ASSERT_EQ(FileIO_Open(&file_, "/t/new", kReadWrite | FILEIO_ACCESS_UNLINK_OPEN, FILEIO_OPEN_CREATE),
            FILEIO_SUCCESS);
  EXPECT_FALSE(std::filesystem::exists("/t/new"));
  char text[4] = "";
  EXPECT_EQ(FileIO_Write(&file_, "abc", 3, nullptr), FILEIO_SUCCESS);
  EXPECT_EQ(FileIO_Seek(&file_, 0, FILEIO_SEEK_BEGIN), 0);
  EXPECT_EQ(FileIO_Read(&file_, text, 3, nullptr), FILEIO_SUCCESS);
  EXPECT_STREQ(text, "abc");
}

TEST_F(FileIO, UnlinkOpenFailsWhereNothingCanBeUnlinked) {
  ASSERT_EQ(mount("none", "/t/small", "tmpfs", 0, "size=64k"), 0);
  testhost::WriteFile("/t/small/file", "content");
  ASSERT_EQ(mount("none", "/t/small", "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr), 0);
  const long before = OpenDescriptors();
  EXPECT_EQ(FileIO_Open(&file_, "/t/small/file", FILEIO_ACCESS_READ | FILEIO_ACCESS_UNLINK_OPEN, FILEIO_OPEN),
            FILEIO_ERROR);
  EXPECT_EQ(errno, EROFS);
  ExpectInvalid(file_);
  EXPECT_EQ(OpenDescriptors(), before);
  EXPECT_EQ(testhost::ReadFile("/t/small/file"), "content");
}

TEST_F(FileIO, UnbufferedFallsBackWithOneLogLine) {
  for (int turn = 0; turn < 2; turn++) {
    ASSERT_EQ(FileIO_Open(&file_, "/t/file", FILEIO_ACCESS_READ | FILEIO_ACCESS_UNBUFFERED, FILEIO_OPEN),
              FILEIO_SUCCESS);
    EXPECT_EQ(file_.flags, FILEIO_ACCESS_READ);
    EXPECT_FALSE(FileIO_Close(&file_));
  }
  EXPECT_EQ(LogCount("FILE: FileIO_Create reverting to buffered IO on /t/file.\n"), 1);
  EXPECT_EQ(LogCount("reverting"), 1);
}

TEST_F(FileIO, BothExclusiveBitsRefuseAnExistingFile) {
  for (const uint32_t oneBit : {0x200U, 0x400U}) {
    Open("/t/file", FILEIO_ACCESS_WRITE | oneBit, FILEIO_OPEN_CREATE);
    EXPECT_EQ(file_.flags, FILEIO_ACCESS_WRITE | oneBit);
    EXPECT_FALSE(FileIO_Close(&file_));
  }
  EXPECT_EQ(FileIO_Open(&file_, "/t/file", FILEIO_ACCESS_WRITE | FILEIO_ACCESS_EXCLUSIVE, FILEIO_OPEN_CREATE),
            FILEIO_FILE_EXISTS);
  ExpectInvalid(file_);
}

TEST_F(FileIO, EachErrorOfTheOpenHasItsResult) {
  const struct {
    int error;
    FileIOResult result;
  } rows[] = {
      {EFBIG, FILEIO_FILE_TOO_LARGE}, {ENOENT, FILEIO_FILE_NOT_FOUND}, {EACCES, FILEIO_NO_PERMISSION},
      {EEXIST, FILEIO_FILE_EXISTS},   {ENOSPC, FILEIO_NO_SPACE},       {ENAMETOOLONG, FILEIO_NAME_TOO_LONG},
      {EDQUOT, FILEIO_QUOTA},         {EPERM, FILEIO_ERROR},           {EIO, FILEIO_ERROR},
      {EINTR, FILEIO_ERROR},          {EROFS, FILEIO_ERROR},           {ENOMEM, FILEIO_ERROR},
  };
  testhost::SystemCalls calls({SYS_openat});
  for (const auto &row : rows) {
    calls.Fail(SYS_openat, row.error, {.count = 1});
    EXPECT_FAILS(row.result, row.error, FileIO_Open(&file_, "/t/file", FILEIO_ACCESS_READ, FILEIO_OPEN));
    ExpectInvalid(file_);
  }
}

TEST_F(FileIO, LengthOfAPathIsTheSystemsToJudge) {
  for (const size_t size : {4095U, 4096U, 8192U}) {
    std::string path(size, '/');
    path.replace(size - 6, std::string::npos, "t/file");
    if (size == 4095) {
      Open(path.c_str(), FILEIO_ACCESS_READ);
      EXPECT_EQ(FileIO_Filename(&file_), path);
      EXPECT_FALSE(FileIO_Close(&file_));
    } else {
      EXPECT_FAILS(FILEIO_NAME_TOO_LONG, ENAMETOOLONG,
                   FileIO_Open(&file_, path.c_str(), FILEIO_ACCESS_READ, FILEIO_OPEN));
    }
  }
}

TEST_F(FileIO, LinksAreFollowed) {
  ASSERT_EQ(symlink("target", "/t/dangling"), 0);
  ASSERT_EQ(symlink("loop", "/t/loop"), 0);
  ASSERT_EQ(symlink("file", "/t/link"), 0);
  EXPECT_FAILS(FILEIO_FILE_NOT_FOUND, ENOENT,
               FileIO_Open(&file_, "/t/dangling", FILEIO_ACCESS_READ, FILEIO_OPEN));
  EXPECT_FAILS(FILEIO_ERROR, ELOOP, FileIO_Open(&file_, "/t/loop", FILEIO_ACCESS_READ, FILEIO_OPEN));
  EXPECT_FAILS(FILEIO_FILE_EXISTS, EEXIST,
               FileIO_Open(&file_, "/t/dangling", FILEIO_ACCESS_WRITE, FILEIO_OPEN_CREATE_SAFE));
  Open("/t/dangling", FILEIO_ACCESS_WRITE, FILEIO_OPEN_CREATE);
  EXPECT_TRUE(std::filesystem::exists("/t/target"));
  EXPECT_FALSE(FileIO_Close(&file_));
  // The name is taken away, and not what it leads to.
  Open("/t/link", FILEIO_ACCESS_READ | FILEIO_ACCESS_UNLINK_OPEN);
  EXPECT_FALSE(std::filesystem::is_symlink("/t/link"));
  EXPECT_TRUE(std::filesystem::exists("/t/file"));
}

TEST_F(FileIO, RelativePathIsBelowTheWorkingDirectory) {
  ASSERT_EQ(chdir("/t/small"), 0);
  Open("..//file", FILEIO_ACCESS_READ);
  EXPECT_STREQ(FileIO_Filename(&file_), "..//file");
}

TEST_F(FileIO, DirectoryIsOpenForReading) {
  Open("/t/", FILEIO_ACCESS_READ);
}

TEST_F(FileIO, NameThatIsNoUtf8ReachesItsFile) {
  testhost::WriteFile("/t/caf\xE9", "content");
  Open("/t/caf\xE9", FILEIO_ACCESS_READ);
}

TEST_F(FileIOLatin1, NameIsConverted) {
  Open("/t/caf\u00E9", FILEIO_ACCESS_READ | FILEIO_ACCESS_UNLINK_OPEN);
  EXPECT_STREQ(FileIO_Filename(&file_), "/t/caf\u00E9");
  EXPECT_FALSE(std::filesystem::exists("/t/caf\xE9"));
}

TEST_F(FileIOLatin1, NameThatCannotBeConvertedIsAnError) {
  for (const char *path : {"/t/\u20AC", "/t/caf\xE9"}) {
    EXPECT_FAILS(FILEIO_ERROR, EINVAL, FileIO_Open(&file_, path, FILEIO_ACCESS_WRITE, FILEIO_OPEN_CREATE));
    ExpectInvalid(file_);
  }
}

TEST_F(FileIO, PipeWithoutAReaderIsAnError) {
  ASSERT_EQ(mkfifo("/t/fifo", 0600), 0);
  EXPECT_FAILS(FILEIO_ERROR, ENXIO,
               FileIO_Open(&file_, "/t/fifo", FILEIO_ACCESS_WRITE | FILEIO_ACCESS_NONBLOCK, FILEIO_OPEN));
}

TEST_F(FileIO, NoDescriptorsLeftIsAnError) {
  rlimit limit;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit none = {static_cast<rlim_t>(testhost::NextDescriptor()), limit.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  EXPECT_FAILS(FILEIO_ERROR, EMFILE, FileIO_Open(&file_, "/t/file", FILEIO_ACCESS_READ, FILEIO_OPEN));
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  ExpectInvalid(file_);
}

TEST_F(FileIO, CloseTellsAFailureAndInvalidatesNevertheless) {
  ASSERT_EQ(FileIO_Open(&file_, "/t/file", FILEIO_ACCESS_READ, FILEIO_OPEN), FILEIO_SUCCESS);
  close(file_.posix);
  EXPECT_TRUE(FileIO_Close(&file_));
  EXPECT_EQ(errno, EBADF);
  ExpectInvalid(file_);
}

TEST_F(FileIO, CloseThatFailsUnlocksNevertheless) {
  Open("/t/file", FILEIO_ACCESS_READ | FILEIO_ACCESS_LOCK);
  testhost::SystemCalls calls({SYS_close});
  calls.Fail(SYS_close, EIO, {.count = 1, .first = static_cast<uint32_t>(file_.posix)});
  const int posix = file_.posix;
  EXPECT_FAILS(true, EIO, FileIO_Close(&file_));
  ExpectInvalid(file_);
  EXPECT_FALSE(std::filesystem::exists("/t/file.lck"));
  close(posix);
}

TEST_F(FileIO, SuperuserOpensWhatTheUserMayNot) {
  testhost::WriteFile("/t/secret", "content", 0600);
  ASSERT_EQ(setresuid(1234, 1234, 0), 0);
  EXPECT_EQ(FileIO_Open(&file_, "/t/secret", FILEIO_ACCESS_READ, FILEIO_OPEN), FILEIO_NO_PERMISSION);
  EXPECT_EQ(FileIO_Open(&file_, "/t/secret", FILEIO_ACCESS_READ | FILEIO_ACCESS_SUPERUSER, FILEIO_OPEN),
            FILEIO_SUCCESS);
  EXPECT_EQ(geteuid(), 1234U);
  FileIODescriptor missing;
  FileIO_Invalidate(&missing);
  EXPECT_EQ(FileIO_Open(&missing, "/t/missing", FILEIO_ACCESS_READ | FILEIO_ACCESS_SUPERUSER, FILEIO_OPEN),
            FILEIO_FILE_NOT_FOUND);
  EXPECT_EQ(errno, ENOENT);
  ASSERT_EQ(setresuid(0, 0, 0), 0);
}

TEST_F(FileIO, SuperuserMakesFilesAsAsked) {
  testhost::WriteFile("/t/secret", "content", 0600);
  ASSERT_EQ(setresuid(1234, 1234, 0), 0);
  ASSERT_EQ(FileIO_Create(&file_, "/t/new", FILEIO_ACCESS_WRITE | FILEIO_ACCESS_SUPERUSER,
                          FILEIO_OPEN_CREATE_SAFE, 0664),
            FILEIO_SUCCESS);
  EXPECT_FALSE(FileIO_Close(&file_));
  EXPECT_EQ(ModeOf("/t/new"), 0644);
  EXPECT_FAILS(FILEIO_FILE_EXISTS, EEXIST,
               FileIO_Create(&file_, "/t/new", FILEIO_ACCESS_WRITE | FILEIO_ACCESS_SUPERUSER,
                             FILEIO_OPEN_CREATE_SAFE, 0664));
  Open("/t/secret", FILEIO_ACCESS_WRITE | FILEIO_ACCESS_SUPERUSER, FILEIO_OPEN_EMPTY);
  EXPECT_EQ(FileIO_GetSize(&file_), 0);
  ASSERT_EQ(setresuid(0, 0, 0), 0);
}

TEST_F(FileIO, ChangeBackFromSuperuserLeavesErrnoAlone) {
  testhost::SystemCalls calls({SYS_setresuid});
  ASSERT_EQ(setresuid(1234, 1234, 0), 0);
  calls.Fail(SYS_setresuid, EAGAIN, {.from = 1});
  EXPECT_FAILS(FILEIO_FILE_NOT_FOUND, ENOENT,
               FileIO_Open(&file_, "/t/missing", FILEIO_ACCESS_READ | FILEIO_ACCESS_SUPERUSER, FILEIO_OPEN));
  EXPECT_EQ(calls.Count(SYS_setresuid), 3U);
}

TEST_F(FileIO, SuperuserThatMayNotBeIsNoPermission) {
  testhost::WriteFile("/t/secret", "content", 0600);
  ASSERT_EQ(setresuid(1234, 1234, 1234), 0);
  EXPECT_FAILS(FILEIO_NO_PERMISSION, EACCES,
               FileIO_Open(&file_, "/t/secret", FILEIO_ACCESS_READ | FILEIO_ACCESS_SUPERUSER, FILEIO_OPEN));
  EXPECT_FAILS(-1, EACCES, FileIO_PrivilegedPosixOpen("/t/secret", O_RDONLY));
}

TEST_F(FileIO, PrivilegedOpenGivesADescriptorAndTheUserBack) {
  testhost::WriteFile("/t/secret", "content", 0600);
  ASSERT_EQ(setresuid(1234, 1234, 0), 0);
  const int fd = FileIO_PrivilegedPosixOpen("/t/secret", O_RDWR | O_APPEND);
  EXPECT_EQ(geteuid(), 1234U);
  EXPECT_EQ(fcntl(fd, F_GETFL) & (O_ACCMODE | O_APPEND), O_RDWR | O_APPEND);
  EXPECT_EQ(close(fd), 0);
  EXPECT_FAILS(-1, ENOENT, FileIO_PrivilegedPosixOpen("/t/missing", O_RDONLY));
  EXPECT_FAILS(-1, EFAULT, FileIO_PrivilegedPosixOpen(nullptr, O_RDONLY));
  EXPECT_EQ(geteuid(), 1234U);
  ASSERT_EQ(setresuid(0, 0, 0), 0);
}

TEST_F(FileIO, AttachTakesADescriptorOverWithoutAName) {
  const struct {
    int flags;
    uint32_t access;
  } rows[] = {
      {O_RDONLY, FILEIO_ACCESS_READ},
      {O_WRONLY, FILEIO_ACCESS_WRITE},
      {O_RDWR, kReadWrite},
      {O_RDWR | O_SYNC, kReadWrite | FILEIO_ACCESS_SYNC},
      {O_WRONLY | O_SYNC | O_APPEND | O_NONBLOCK, FILEIO_ACCESS_WRITE | FILEIO_ACCESS_SYNC},
      {O_WRONLY | O_DSYNC, FILEIO_ACCESS_WRITE},
  };
  for (const auto &row : rows) {
    const int fd = open("/t/file", row.flags);
    FileIO_AttachDescriptor(&file_, fd, row.flags);
    EXPECT_EQ(file_.posix, fd);
    EXPECT_EQ(FileIO_GetFlags(&file_), row.access) << row.flags;
    EXPECT_EQ(FileIO_Filename(&file_), nullptr);
    EXPECT_EQ(file_.lockToken, nullptr);
    EXPECT_FALSE(FileIO_Close(&file_));
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    ExpectInvalid(file_);
  }
}

TEST_F(FileIO, StreamReadsAndWritesWhatTheFileMay) {
  for (const bool text : {false, true}) {
    Open("/t/file", FILEIO_ACCESS_READ);
    const OwnedStream reader(FileIO_DescriptorToStream(&file_, text));
    EXPECT_FALSE(FileIO_Close(&file_));
    EXPECT_EQ(fgetc(reader.get()), 'c');
    EXPECT_EQ(fputc('x', reader.get()), EOF);
  }
  Open("/t/file", FILEIO_ACCESS_WRITE);
  OwnedStream writer(FileIO_DescriptorToStream(&file_, false));
  EXPECT_NE(fileno(writer.get()), file_.posix);
  EXPECT_EQ(fcntl(fileno(writer.get()), F_GETFD), 0);
  EXPECT_EQ(fputs("CON", writer.get()), 1);
  EXPECT_EQ(fgetc(writer.get()), EOF);
  writer.reset();
  EXPECT_FALSE(FileIO_Close(&file_));
  // Neither emptied nor at an end.
  EXPECT_EQ(testhost::ReadFile("/t/file"), "CONtent");
  Open("/t/file", kReadWrite);
  EXPECT_EQ(FileIO_Seek(&file_, 3, FILEIO_SEEK_BEGIN), 3);
  const OwnedStream both(FileIO_DescriptorToStream(&file_, false));
  EXPECT_EQ(fgetc(both.get()), 't');
  EXPECT_EQ(fseek(both.get(), 0, SEEK_SET), 0);
  EXPECT_EQ(fputs("k", both.get()), 1);
  EXPECT_EQ(fflush(both.get()), 0);
  EXPECT_EQ(FileIO_Seek(&file_, 0, FILEIO_SEEK_CURRENT), 1);
  EXPECT_EQ(testhost::ReadFile("/t/file"), "kONtent");
}

TEST_F(FileIO, NoStreamWhereThereIsNoDescriptorOrTheModeIsWrong) {
  EXPECT_FAILS(nullptr, EBADF, FileIO_DescriptorToStream(&file_, false));
  FileIO_AttachDescriptor(&file_, open("/t/file", O_RDONLY), O_RDWR);
  const long before = OpenDescriptors();
  EXPECT_FAILS(nullptr, EINVAL, FileIO_DescriptorToStream(&file_, false));
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST(FileIOMessages, EveryResultHasItsText) {
  const struct {
    FileIOResult result;
    const char *id;
    const char *text;
  } rows[] = {
      {FILEIO_SUCCESS, "success", "Success"},
      {FILEIO_CANCELLED, "cancel", "The operation was canceled by the user"},
      {FILEIO_ERROR, "generic", "Error"},
      {FILEIO_FILE_EXISTS, "exists", "The file already exists"},
      {FILEIO_LOCK_FAILED, "lock", "Failed to lock the file"},
      {FILEIO_READ_PAST_EOF, "eof", "Tried to read beyond the end of the file"},
      {FILEIO_FILE_NOT_FOUND, "notfound", "Could not find the file"},
      {FILEIO_NO_PERMISSION, "noPerm", "Insufficient permission to access the file"},
      {FILEIO_NAME_TOO_LONG, "namelong", "The file name is too long"},
      {FILEIO_FILE_TOO_LARGE, "fBig", "The file is too large"},
      {FILEIO_NO_SPACE, "noSpc", "There is no space left on the device"},
      {FILEIO_QUOTA, "dQuot", "There is no space left on the device"},
  };
  for (const auto &row : rows) {
    EXPECT_STREQ(FileIO_ErrorEnglish(row.result), row.text);
    EXPECT_EQ(FileIO_MsgError(row.result), std::string("@&!*@*@(msg.fileio.") + row.id + ")" + row.text);
  }
}

TEST_F(FileIO, ProgrammingErrorsEndTheProcess) {
  const char *const assertion = "ASSERT lib/file/fileIO\\.cc:[0-9]+\n";
  const char *const missing = "NOT_IMPLEMENTED lib/file/fileIO\\.cc:[0-9]+\n";
  char byte = 0;
  EXPECT_EXIT(FileIO_Invalidate(nullptr), kPanic, assertion);
  EXPECT_EXIT(FileIO_IsValid(nullptr), kPanic, assertion);
  EXPECT_EXIT(FileIO_Open(nullptr, "/", FILEIO_ACCESS_READ, FILEIO_OPEN), kPanic, assertion);
  EXPECT_EXIT(FileIO_Create(nullptr, nullptr, FILEIO_ACCESS_READ, FILEIO_OPEN, 0), kPanic, assertion);
  EXPECT_EXIT(FileIO_Close(nullptr), kPanic, assertion);
  EXPECT_EXIT(FileIO_Read(nullptr, &byte, 1, nullptr), kPanic, assertion);
  EXPECT_EXIT(FileIO_Write(nullptr, &byte, 1, nullptr), kPanic, assertion);
  EXPECT_EXIT(FileIO_Seek(nullptr, 0, FILEIO_SEEK_BEGIN), kPanic, assertion);
  EXPECT_EXIT(FileIO_AttachDescriptor(nullptr, 0, O_RDONLY), kPanic, assertion);
  EXPECT_EXIT(FileIO_DescriptorToStream(nullptr, false), kPanic, assertion);
  EXPECT_EXIT(FileIO_Lock(nullptr, 0), kPanic, assertion);
  EXPECT_EXIT(FileIO_Unlock(nullptr), kPanic, assertion);
  EXPECT_EXIT(FileIO_GetFlags(nullptr), kPanic, assertion);
  EXPECT_EXIT(FileIO_Filename(nullptr), kPanic, assertion);
  EXPECT_EXIT(FileIO_PrivilegedPosixOpen("/t/new", O_WRONLY | O_CREAT), kPanic, assertion);
  EXPECT_EXIT(FileIO_PrivilegedPosixOpen("/t/file", O_WRONLY | O_TRUNC), kPanic, assertion);
  EXPECT_EXIT(FileIO_Read(&file_, &byte, 0x80000000, nullptr), kPanic, missing);
  EXPECT_EXIT(FileIO_Write(&file_, &byte, 0x80000000, nullptr), kPanic, missing);
  EXPECT_EXIT(FileIO_ErrorEnglish(FILEIO_NOT_IMPLEMENTED), kPanic, missing);
  EXPECT_EXIT(FileIO_MsgError(FILEIO_NOT_IMPLEMENTED), kPanic, missing);
  for (const int code : {-1, 13, 1000}) {
    const std::string warning = "FileIO_MsgError was passed bad code " + std::to_string(code);
    EXPECT_EXIT(FileIO_MsgError(static_cast<FileIOResult>(code)), kPanic,
                warning + "\n(.|\n)*ASSERT lib/file/fileIO\\.cc:[0-9]+\n");
  }
  FileIODescriptor open{0, 0, nullptr, nullptr};
  EXPECT_EXIT(FileIO_Open(&open, "/", FILEIO_ACCESS_READ, FILEIO_OPEN), kPanic, assertion);
  FileIODescriptor locked{-1, 0, nullptr, &byte};
  EXPECT_EXIT(FileIO_Open(&locked, "/", FILEIO_ACCESS_READ, FILEIO_OPEN), kPanic, assertion);
  EXPECT_EXIT(FileIO_Lock(&locked, FILEIO_ACCESS_LOCK), kPanic, assertion);
  EXPECT_EQ(testhost::ReadFile("/t/file"), "content");
  EXPECT_FALSE(std::filesystem::exists("/t/new"));
}

}  // namespace
