// Plain reads and writes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>

#include "fileIO.h"
#include "fileIOTestInt.h"
#include "systemCalls.h"
#include "testhost.h"

namespace {

using fileiotest::Interrupted;
using fileiotest::kReadWrite;

class FileIOTransfer : public fileiotest::FileIOHost {};

TEST_F(FileIOTransfer, ReadPastTheEndGivesWhatThereIs) {
  testhost::WriteFile("/t/file", std::string(100, 'x'));
  ASSERT_EQ(FileIO_Open(&file_, "/t/file", FILEIO_ACCESS_READ, FILEIO_OPEN), FILEIO_SUCCESS);
  char buffer[255] = "";
  size_t actual = 0;
  EXPECT_EQ(FileIO_Read(&file_, buffer, sizeof buffer, &actual), FILEIO_READ_PAST_EOF);
  EXPECT_EQ(actual, 100U);
  EXPECT_EQ(std::string(buffer), std::string(100, 'x'));
  EXPECT_EQ(FileIO_Read(&file_, buffer, sizeof buffer, &actual), FILEIO_READ_PAST_EOF);
  EXPECT_EQ(actual, 0U);
}

TEST_F(FileIOTransfer, ReadOfTheExactSizeIsASuccess) {
  ASSERT_EQ(FileIO_Open(&file_, "/t/file", FILEIO_ACCESS_READ, FILEIO_OPEN), FILEIO_SUCCESS);
  char buffer[7];
  size_t actual = 0;
  EXPECT_EQ(FileIO_Read(&file_, buffer, sizeof buffer, &actual), FILEIO_SUCCESS);
  EXPECT_EQ(std::string(buffer, actual), "content");
}

TEST_F(FileIOTransfer, NothingToDoIsASuccess) {
  ASSERT_EQ(FileIO_Open(&file_, "/t/file", kReadWrite, FILEIO_OPEN), FILEIO_SUCCESS);
  size_t actual = 9;
  EXPECT_EQ(FileIO_Write(&file_, nullptr, 0, &actual), FILEIO_SUCCESS);
  EXPECT_EQ(actual, 0U);
  actual = 9;
  EXPECT_EQ(FileIO_Read(&file_, nullptr, 0, &actual), FILEIO_SUCCESS);
  EXPECT_EQ(actual, 0U);
  EXPECT_EQ(testhost::ReadFile("/t/file"), "content");
}

TEST_F(FileIOTransfer, WrongDirectionIsAnError) {
  char byte = 'x';
  size_t actual = 9;
  ASSERT_EQ(FileIO_Open(&file_, "/t/file", FILEIO_ACCESS_WRITE, FILEIO_OPEN), FILEIO_SUCCESS);
  EXPECT_EQ(FileIO_Read(&file_, &byte, 1, &actual), FILEIO_ERROR);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(actual, 0U);
  EXPECT_NE(LogText().find("read failed, errno=9, Bad file descriptor\n"), std::string::npos);
  EXPECT_FALSE(FileIO_Close(&file_));
  ASSERT_EQ(FileIO_Open(&file_, "/t/file", FILEIO_ACCESS_READ, FILEIO_OPEN), FILEIO_SUCCESS);
  EXPECT_EQ(FileIO_Write(&file_, &byte, 1, &actual), FILEIO_ERROR);
  EXPECT_EQ(actual, 0U);
}

TEST_F(FileIOTransfer, FullDiskTellsWhatWasWritten) {
  MountSmall();
  ASSERT_EQ(FileIO_Open(&file_, "/t/small/file", FILEIO_ACCESS_WRITE, FILEIO_OPEN_CREATE), FILEIO_SUCCESS);
  const std::string content(100000, 'x');
  size_t actual = 0;
  EXPECT_EQ(FileIO_Write(&file_, content.data(), content.size(), &actual), FILEIO_NO_SPACE);
  EXPECT_EQ(actual, 65536U);
  EXPECT_EQ(errno, ENOSPC);
}

TEST_F(FileIOTransfer, SizeLimitIsFileTooLarge) {
  signal(SIGXFSZ, SIG_IGN);
  const rlimit limit{1000, RLIM_INFINITY};
  ASSERT_EQ(FileIO_Open(&file_, "/t/new", FILEIO_ACCESS_WRITE, FILEIO_OPEN_CREATE), FILEIO_SUCCESS);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  const std::string content(1001, 'x');
  size_t actual = 0;
  EXPECT_FAILS(FILEIO_FILE_TOO_LARGE, EFBIG, FileIO_Write(&file_, content.data(), content.size(), &actual));
  EXPECT_EQ(actual, 1000U);
  EXPECT_FAILS(FILEIO_FILE_TOO_LARGE, EFBIG, FileIO_Write(&file_, content.data(), 1, &actual));
  EXPECT_EQ(actual, 0U);
}

TEST_F(FileIOTransfer, EmptyNonblockingPipeIsAnErrorInTheLog) {
  ASSERT_EQ(mkfifo("/t/fifo", 0600), 0);
  ASSERT_EQ(FileIO_Open(&file_, "/t/fifo", FILEIO_ACCESS_READ | FILEIO_ACCESS_NONBLOCK, FILEIO_OPEN),
            FILEIO_SUCCESS);
  char byte = 0;
  size_t actual = 9;
  EXPECT_EQ(FileIO_Read(&file_, &byte, 1, &actual), FILEIO_READ_PAST_EOF);
  EXPECT_EQ(actual, 0U);
  const int writer = open("/t/fifo", O_WRONLY);
  EXPECT_EQ(FileIO_Read(&file_, &byte, 1, &actual), FILEIO_ERROR);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_NE(LogText().find("read failed, errno=11, Resource temporarily unavailable\n"), std::string::npos);
  close(writer);
}

TEST_F(FileIOTransfer, InterruptedReadGoesOn) {
  ASSERT_EQ(mkfifo("/t/fifo", 0600), 0);
  ASSERT_EQ(FileIO_Open(&file_, "/t/fifo", kReadWrite, FILEIO_OPEN), FILEIO_SUCCESS);
  char byte = 0;
  Interrupted([&] { EXPECT_EQ(FileIO_Read(&file_, &byte, 1, nullptr), FILEIO_SUCCESS); },
              [&] { EXPECT_EQ(write(file_.posix, "z", 1), 1); });
  EXPECT_EQ(byte, 'z');
  EXPECT_GE(LogCount("NOT_TESTED lib/file/fileIO.cc:"), 3);
}

TEST_F(FileIOTransfer, InterruptedWriteGoesOn) {
  ASSERT_EQ(mkfifo("/t/fifo", 0600), 0);
  ASSERT_EQ(FileIO_Open(&file_, "/t/fifo", kReadWrite, FILEIO_OPEN), FILEIO_SUCCESS);
  const std::string content(300000, 'x');  // more than a pipe holds
  size_t actual = 0;
  size_t drained = 0;
  Interrupted(
      [&] { EXPECT_EQ(FileIO_Write(&file_, content.data(), content.size(), &actual), FILEIO_SUCCESS); },
      [&] {
        char block[4096];
        while (drained < content.size()) {
          drained += static_cast<size_t>(read(file_.posix, block, sizeof block));
        }
      });
  EXPECT_EQ(actual, content.size());
  EXPECT_EQ(drained, content.size());
}

TEST_F(FileIOTransfer, SeekKnowsThreeOrigins) {
  ASSERT_EQ(FileIO_Open(&file_, "/t/file", FILEIO_ACCESS_READ, FILEIO_OPEN), FILEIO_SUCCESS);
  EXPECT_EQ(FileIO_Seek(&file_, 3, FILEIO_SEEK_BEGIN), 3);
  EXPECT_EQ(FileIO_Seek(&file_, 1, FILEIO_SEEK_CURRENT), 4);
  EXPECT_EQ(FileIO_Seek(&file_, -2, FILEIO_SEEK_END), 5);
  EXPECT_EQ(FileIO_Seek(&file_, 0x100000000, FILEIO_SEEK_BEGIN), 0x100000000);
  EXPECT_EQ(FileIO_Seek(&file_, -1, FILEIO_SEEK_BEGIN), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(FileIOTransfer, InterruptionsAreEachInTheLog) {
  Open("/t/file", kReadWrite);
  testhost::SystemCalls calls({SYS_read, SYS_write});
  const auto posix = static_cast<uint32_t>(file_.posix);
  calls.Fail(SYS_read, EINTR, {.count = 3, .first = posix});
  calls.Fail(SYS_write, EINTR, {.count = 2, .first = posix});
  char text[8] = "";
  EXPECT_EQ(FileIO_Read(&file_, text, 7, nullptr), FILEIO_SUCCESS);
  EXPECT_STREQ(text, "content");
  calls.Clear();
  EXPECT_EQ(LogCount("| NOT_TESTED lib/file/fileIO.cc:"), 3);
  calls.Fail(SYS_write, EINTR, {.count = 2, .first = posix});
  EXPECT_EQ(FileIO_Write(&file_, "more", 4, nullptr), FILEIO_SUCCESS);
  calls.Clear();
  EXPECT_EQ(LogCount("| NOT_TESTED lib/file/fileIO.cc:"), 5);
  EXPECT_EQ(testhost::ReadFile("/t/file"), "contentmore");
}

TEST_F(FileIOTransfer, ShortCallsGoOnWhereTheyEnded) {
  ASSERT_EQ(mkfifo("/t/fifo", 0600), 0);
  Open("/t/fifo", kReadWrite);
  const int other = open("/t/fifo", O_RDWR);
  ASSERT_EQ(write(other, "con", 3), 3);
  char text[8] = "";
  Interrupted([&] { EXPECT_EQ(FileIO_Read(&file_, text, 7, nullptr), FILEIO_SUCCESS); },
              [&] { EXPECT_EQ(write(other, "tent", 4), 4); });
  EXPECT_STREQ(text, "content");
  close(other);
}

TEST_F(FileIOTransfer, ShortWritesGoOnWhereTheyEnded) {
  Open("/t/file", FILEIO_ACCESS_WRITE);
  testhost::SystemCalls calls({SYS_write});
  calls.Return(SYS_write, 3, {.count = 2, .first = static_cast<uint32_t>(file_.posix)});
  size_t actual = 0;
  EXPECT_EQ(FileIO_Write(&file_, "0123456789", 10, &actual), FILEIO_SUCCESS);
  EXPECT_EQ(actual, 10U);
  EXPECT_EQ(testhost::ReadFile("/t/file"), "6789ent");
}

TEST_F(FileIOTransfer, WriteThatGivesNothingIsNoSpace) {
  Open("/t/file", FILEIO_ACCESS_WRITE);
  testhost::SystemCalls calls({SYS_write});
  calls.Return(SYS_write, 0, {.from = 1, .first = static_cast<uint32_t>(file_.posix)});
  calls.Return(SYS_write, 2, {.count = 1, .first = static_cast<uint32_t>(file_.posix)});
  size_t actual = 0;
  EXPECT_EQ(FileIO_Write(&file_, "0123456789", 10, &actual), FILEIO_NO_SPACE);
  EXPECT_EQ(actual, 2U);
}

TEST_F(FileIOTransfer, QuotaAndFullDiskHaveOneTextAndTwoIds) {
  Open("/t/file", FILEIO_ACCESS_WRITE);
  testhost::SystemCalls calls({SYS_write});
  const testhost::Which which = {.from = 1, .first = static_cast<uint32_t>(file_.posix)};
  calls.Return(SYS_write, 3, {.count = 1, .first = static_cast<uint32_t>(file_.posix)});
  calls.Fail(SYS_write, EDQUOT, which);
  size_t actual = 0;
  EXPECT_FAILS(FILEIO_QUOTA, EDQUOT, FileIO_Write(&file_, "0123456789", 10, &actual));
  EXPECT_EQ(actual, 3U);
  EXPECT_STREQ(FileIO_ErrorEnglish(FILEIO_QUOTA), FileIO_ErrorEnglish(FILEIO_NO_SPACE));
  EXPECT_STRNE(FileIO_MsgError(FILEIO_QUOTA), FileIO_MsgError(FILEIO_NO_SPACE));
}

TEST_F(FileIOTransfer, DiskThatFailsIsAnErrorInTheLogOfTheRead) {
  Open("/t/file", kReadWrite);
  testhost::SystemCalls calls({SYS_read, SYS_write});
  calls.Fail(SYS_read, EIO, {.first = static_cast<uint32_t>(file_.posix)});
  calls.Fail(SYS_write, EIO, {.first = static_cast<uint32_t>(file_.posix)});
  char byte = 'x';
  EXPECT_FAILS(FILEIO_ERROR, EIO, FileIO_Read(&file_, &byte, 1, nullptr));
  EXPECT_EQ(byte, 'x');
  EXPECT_FAILS(FILEIO_ERROR, EIO, FileIO_Write(&file_, &byte, 1, nullptr));
  calls.Clear();
  EXPECT_EQ(LogCount("| read failed, errno=5, Input/output error\n"), 1);
  EXPECT_EQ(LogCount("failed"), 1);
}

TEST_F(FileIOTransfer, ErrorWithAResultOfItsOwnIsNotInTheLog) {
  Open("/t/file", FILEIO_ACCESS_READ);
  testhost::SystemCalls calls({SYS_read});
  calls.Fail(SYS_read, EACCES, {.first = static_cast<uint32_t>(file_.posix)});
  char byte;
  EXPECT_FAILS(FILEIO_NO_PERMISSION, EACCES, FileIO_Read(&file_, &byte, 1, nullptr));
  calls.Clear();
  EXPECT_EQ(LogCount("read failed"), 0);
}

TEST_F(FileIOTransfer, DirectoryCannotBeRead) {
  Open("/t", FILEIO_ACCESS_READ);
  char byte;
  EXPECT_FAILS(FILEIO_ERROR, EISDIR, FileIO_Read(&file_, &byte, 1, nullptr));
  EXPECT_EQ(LogCount("read failed, errno=21, Is a directory\n"), 1);
}

TEST_F(FileIOTransfer, UnlinkedFileGoesOn) {
  Open("/t/file", kReadWrite);
  ASSERT_EQ(unlink("/t/file"), 0);
  char text[8] = "";
  EXPECT_EQ(FileIO_Read(&file_, text, 7, nullptr), FILEIO_SUCCESS);
  EXPECT_STREQ(text, "content");
  EXPECT_EQ(FileIO_Write(&file_, text, 7, nullptr), FILEIO_SUCCESS);
  EXPECT_EQ(FileIO_GetSize(&file_), 14);
}

TEST_F(FileIOTransfer, PipeEndsWithItsWriter) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  FileIO_AttachDescriptor(&file_, ends[0], O_RDONLY);
  ASSERT_EQ(write(ends[1], "text", 4), 4);
  close(ends[1]);
  char text[8] = "";
  size_t actual = 0;
  EXPECT_EQ(FileIO_Read(&file_, text, 8, &actual), FILEIO_READ_PAST_EOF);
  EXPECT_EQ(std::string(text, actual), "text");
}

TEST_F(FileIOTransfer, PipeWithoutAReaderIsAnError) {
  signal(SIGPIPE, SIG_IGN);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  FileIO_AttachDescriptor(&file_, ends[1], O_WRONLY);
  close(ends[0]);
  size_t actual = 9;
  EXPECT_FAILS(FILEIO_ERROR, EPIPE, FileIO_Write(&file_, "text", 4, &actual));
  EXPECT_EQ(actual, 0U);
  EXPECT_FAILS(-1, ESPIPE, FileIO_Seek(&file_, 0, FILEIO_SEEK_CURRENT));
}

TEST_F(FileIOTransfer, MostThatOneCallTakes) {
  constexpr size_t kMost = 0x7fffffff;
  void *room =
      mmap(nullptr, kMost, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(room, MAP_FAILED);
  Open("/t/file", kReadWrite);
  size_t actual = 0;
  EXPECT_EQ(FileIO_Read(&file_, room, kMost, &actual), FILEIO_READ_PAST_EOF);
  EXPECT_EQ(actual, 7U);
  FileIODescriptor sink;
  FileIO_Invalidate(&sink);
  ASSERT_EQ(FileIO_Open(&sink, "/dev/null", FILEIO_ACCESS_WRITE, FILEIO_OPEN), FILEIO_SUCCESS);
  EXPECT_EQ(FileIO_Write(&sink, room, kMost, &actual), FILEIO_SUCCESS);
  EXPECT_EQ(actual, kMost);
  EXPECT_FALSE(FileIO_Close(&sink));
  munmap(room, kMost);
}

}  // namespace
