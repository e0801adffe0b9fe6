#include "fileIO.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>

#include "log.h"
#include "testhost.h"

namespace {

constexpr uint32_t kReadWrite = FILEIO_ACCESS_READ | FILEIO_ACCESS_WRITE;

class FileIO : public ::testing::Test {
 protected:
  void SetUp() override {
    testhost::Host host;
    host.Directory("/t").Directory("/t/small").File("/t/file", "content");
    Describe(host);
    host.Enter();
    umask(022);
    FileIO_Invalidate(&file_);
    ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  }
  void TearDown() override {
    if (FileIO_IsValid(&file_)) {
      EXPECT_FALSE(FileIO_Close(&file_));
    }
  }
  virtual void Describe(testhost::Host &) {}

  static std::string LogText() { return testhost::ReadFile(Log_GetFileName()); }

  FileIODescriptor file_{};
};

// The same as an ordinary user, who can't read "/t/secret".
class FileIOUser : public FileIO {
 protected:
  void Describe(testhost::Host &host) override {
    host.File("/t/secret", "content", 0600).File("/t/program", "", 0755).User(1234);
  }
};

long OpenDescriptors() {
  const std::filesystem::directory_iterator descriptors("/proc/self/fd");
  return std::distance(begin(descriptors), end(descriptors));
}

mode_t ModeOf(const char *path) {
  struct stat data;
  EXPECT_EQ(stat(path, &data), 0) << path;
  return data.st_mode & 07777;
}

void ExpectInvalid(const FileIODescriptor &file) {
  EXPECT_FALSE(FileIO_IsValid(&file));
  EXPECT_EQ(file.posix, -1);
  EXPECT_EQ(file.flags, 0U);
  EXPECT_EQ(file.fileName, nullptr);
  EXPECT_EQ(file.lockToken, nullptr);
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
      {FILEIO_ACCESS_READ | FILEIO_ACCESS_NONBLOCK, O_RDONLY | O_NONBLOCK},
  };
  for (const auto &row : rows) {
    ASSERT_EQ(FileIO_Open(&file_, "/t/file", row.access, FILEIO_OPEN), FILEIO_SUCCESS);
    EXPECT_EQ(fcntl(file_.posix, F_GETFL) & (O_ACCMODE | O_SYNC | O_NONBLOCK), row.flags) << row.access;
    EXPECT_FALSE(FileIO_Close(&file_));
  }
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
  const std::string log = LogText();
  const std::string line = "FILE: FileIO_Create reverting to buffered IO on /t/file.\n";
  ASSERT_NE(log.find(line), std::string::npos);
  EXPECT_EQ(log.find(line), log.rfind(line));
}

TEST_F(FileIO, BothExclusiveBitsRefuseAnExistingFile) {
  constexpr uint32_t kOneBit = 0x200;
  EXPECT_EQ(FileIO_Open(&file_, "/t/file", FILEIO_ACCESS_WRITE | kOneBit, FILEIO_OPEN_CREATE),
            FILEIO_SUCCESS);
  EXPECT_FALSE(FileIO_Close(&file_));
  EXPECT_EQ(FileIO_Open(&file_, "/t/file", FILEIO_ACCESS_WRITE | FILEIO_ACCESS_EXCLUSIVE, FILEIO_OPEN_CREATE),
            FILEIO_FILE_EXISTS);
  ExpectInvalid(file_);
}

TEST_F(FileIO, ReadPastTheEndGivesWhatThereIs) {
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

TEST_F(FileIO, ReadOfTheExactSizeIsASuccess) {
  ASSERT_EQ(FileIO_Open(&file_, "/t/file", FILEIO_ACCESS_READ, FILEIO_OPEN), FILEIO_SUCCESS);
  char buffer[7];
  size_t actual = 0;
  EXPECT_EQ(FileIO_Read(&file_, buffer, sizeof buffer, &actual), FILEIO_SUCCESS);
  EXPECT_EQ(std::string(buffer, actual), "content");
}

TEST_F(FileIO, NothingToDoIsASuccess) {
  ASSERT_EQ(FileIO_Open(&file_, "/t/file", kReadWrite, FILEIO_OPEN), FILEIO_SUCCESS);
  size_t actual = 9;
  EXPECT_EQ(FileIO_Write(&file_, nullptr, 0, &actual), FILEIO_SUCCESS);
  EXPECT_EQ(actual, 0U);
  actual = 9;
  EXPECT_EQ(FileIO_Read(&file_, nullptr, 0, &actual), FILEIO_SUCCESS);
  EXPECT_EQ(actual, 0U);
  EXPECT_EQ(testhost::ReadFile("/t/file"), "content");
}

TEST_F(FileIO, WrongDirectionIsAnError) {
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

TEST_F(FileIO, FullDiskTellsWhatWasWritten) {
  ASSERT_EQ(mount("none", "/t/small", "tmpfs", 0, "size=64k"), 0);
  ASSERT_EQ(FileIO_Open(&file_, "/t/small/file", FILEIO_ACCESS_WRITE, FILEIO_OPEN_CREATE), FILEIO_SUCCESS);
  const std::string content(100000, 'x');
  size_t actual = 0;
  EXPECT_EQ(FileIO_Write(&file_, content.data(), content.size(), &actual), FILEIO_NO_SPACE);
  EXPECT_EQ(actual, 65536U);
  EXPECT_EQ(errno, ENOSPC);
}

TEST_F(FileIO, SizeLimitIsFileTooLarge) {
  signal(SIGXFSZ, SIG_IGN);
  const rlimit limit{1000, RLIM_INFINITY};
  ASSERT_EQ(FileIO_Open(&file_, "/t/new", FILEIO_ACCESS_WRITE, FILEIO_OPEN_CREATE), FILEIO_SUCCESS);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  const std::string content(1001, 'x');
  size_t actual = 0;
  EXPECT_EQ(FileIO_Write(&file_, content.data(), content.size(), &actual), FILEIO_FILE_TOO_LARGE);
  EXPECT_EQ(actual, 1000U);
}

TEST_F(FileIO, EmptyNonblockingPipeIsAnErrorInTheLog) {
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

// Interrupts this thread every 20 ms, with a handler that lets no call restart, while `work` runs; then runs
// `release` once some interruptions came.
template <typename Work, typename Release>
void Interrupted(Work work, Release release) {
  static std::atomic<int> interruptions;
  struct sigaction action = {};
  action.sa_handler = [](int) { interruptions++; };
  ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
  const pthread_t worker = pthread_self();
  std::thread interrupter([worker, release] {
    while (interruptions < 3) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      pthread_kill(worker, SIGUSR1);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    release();
  });
  work();
  interrupter.join();
}

TEST_F(FileIO, InterruptedReadGoesOn) {
  ASSERT_EQ(mkfifo("/t/fifo", 0600), 0);
  ASSERT_EQ(FileIO_Open(&file_, "/t/fifo", kReadWrite, FILEIO_OPEN), FILEIO_SUCCESS);
  char byte = 0;
  Interrupted([&] { EXPECT_EQ(FileIO_Read(&file_, &byte, 1, nullptr), FILEIO_SUCCESS); },
              [&] { EXPECT_EQ(write(file_.posix, "z", 1), 1); });
  EXPECT_EQ(byte, 'z');
  EXPECT_NE(LogText().find("NOT_TESTED lib/file/fileIO.cc:"), std::string::npos);
}

TEST_F(FileIO, InterruptedWriteGoesOn) {
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

TEST_F(FileIO, CloseTellsAFailureAndInvalidatesNevertheless) {
  ASSERT_EQ(FileIO_Open(&file_, "/t/file", FILEIO_ACCESS_READ, FILEIO_OPEN), FILEIO_SUCCESS);
  close(file_.posix);
  EXPECT_TRUE(FileIO_Close(&file_));
  EXPECT_EQ(errno, EBADF);
  ExpectInvalid(file_);
}

// The result of a brief open with a lock, in a process of its own.
int OpenLocked(const char *path, uint32_t access) {
  const pid_t pid = fork();
  if (pid == 0) {
    FileIODescriptor file;
    FileIO_Invalidate(&file);
    const FileIOResult result = FileIO_Open(&file, path, access | FILEIO_ACCESS_LOCK, FILEIO_OPEN);
    _exit(FileIO_IsValid(&file) && FileIO_Close(&file) ? 99 : result);
  }
  int status = 0;
  EXPECT_EQ(waitpid(pid, &status, 0), pid);
  return WEXITSTATUS(status);
}

TEST_F(FileIO, LockIsHeldUntilTheClose) {
  EXPECT_EQ(OpenLocked("/t/file", FILEIO_ACCESS_READ), FILEIO_SUCCESS);
  EXPECT_FALSE(std::filesystem::exists("/t/file.lck"));
  ASSERT_EQ(FileIO_Open(&file_, "/t/file", kReadWrite | FILEIO_ACCESS_LOCK, FILEIO_OPEN), FILEIO_SUCCESS);
  EXPECT_NE(file_.lockToken, nullptr);
  EXPECT_TRUE(std::filesystem::exists("/t/file.lck"));
  EXPECT_FALSE(FileIO_Close(&file_));
  ExpectInvalid(file_);
  EXPECT_FALSE(std::filesystem::exists("/t/file.lck"));
}

TEST_F(FileIO, LockedFileFailsAfterTwoAndAHalfSeconds) {
  ASSERT_EQ(FileIO_Open(&file_, "/t/file", kReadWrite | FILEIO_ACCESS_LOCK, FILEIO_OPEN), FILEIO_SUCCESS);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(OpenLocked("/t/file", FILEIO_ACCESS_READ), FILEIO_LOCK_FAILED);
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
  EXPECT_GT(seconds.count(), 2.5);
  EXPECT_LT(seconds.count(), 3);
  EXPECT_NE(LogText().find("FILE: FileIO_Lock on '/t/file' failed: Lock timed out\n"), std::string::npos);
}

TEST_F(FileIO, ReadersShareTheLock) {
  ASSERT_EQ(FileIO_Open(&file_, "/t/file", FILEIO_ACCESS_READ | FILEIO_ACCESS_LOCK, FILEIO_OPEN),
            FILEIO_SUCCESS);
  EXPECT_EQ(OpenLocked("/t/file", FILEIO_ACCESS_READ), FILEIO_SUCCESS);
}

TEST_F(FileIO, FailedOpenGivesTheLockBack) {
  EXPECT_EQ(FileIO_Open(&file_, "/t/missing", FILEIO_ACCESS_READ | FILEIO_ACCESS_LOCK, FILEIO_OPEN),
            FILEIO_FILE_NOT_FOUND);
  EXPECT_EQ(errno, ENOENT);
  ExpectInvalid(file_);
  EXPECT_FALSE(std::filesystem::exists("/t/missing.lck"));
}

TEST_F(FileIO, LockErrorsAreMapped) {
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
    EXPECT_EQ(FileIO_Open(&file_, row.path, kReadWrite | FILEIO_ACCESS_LOCK, FILEIO_OPEN_CREATE), row.result)
        << row.path;
    EXPECT_EQ(errno, row.error) << row.path;
    ExpectInvalid(file_);
    EXPECT_NE(LogText().find("FILE: FileIO_Lock on '" + std::string(row.path) + "' failed: " + row.reason),
              std::string::npos)
        << row.path;
  }
}

TEST_F(FileIOUser, LockWithoutPermission) {
  EXPECT_EQ(FileIO_Open(&file_, "/t/file", kReadWrite | FILEIO_ACCESS_LOCK, FILEIO_OPEN),
            FILEIO_NO_PERMISSION);
  ExpectInvalid(file_);
  EXPECT_EQ(FileIO_Open(&file_, "/t/file", FILEIO_ACCESS_READ | FILEIO_ACCESS_LOCK, FILEIO_OPEN),
            FILEIO_SUCCESS);
}

TEST_F(FileIO, LockThatVanishedIsAWarningOfTheClose) {
  ASSERT_EQ(FileIO_Open(&file_, "/t/file", FILEIO_ACCESS_READ | FILEIO_ACCESS_LOCK, FILEIO_OPEN),
            FILEIO_SUCCESS);
  std::filesystem::remove_all("/t/file.lck");
  EXPECT_FALSE(FileIO_Close(&file_));
  ExpectInvalid(file_);
  EXPECT_NE(LogText().find("FILE: FileIO_Unlock on '/t/file' failed: No such file or directory\n"),
            std::string::npos);
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

TEST_F(FileIO, SeekKnowsThreeOrigins) {
  ASSERT_EQ(FileIO_Open(&file_, "/t/file", FILEIO_ACCESS_READ, FILEIO_OPEN), FILEIO_SUCCESS);
  EXPECT_EQ(FileIO_Seek(&file_, 3, FILEIO_SEEK_BEGIN), 3);
  EXPECT_EQ(FileIO_Seek(&file_, 1, FILEIO_SEEK_CURRENT), 4);
  EXPECT_EQ(FileIO_Seek(&file_, -2, FILEIO_SEEK_END), 5);
  EXPECT_EQ(FileIO_Seek(&file_, 0x100000000, FILEIO_SEEK_BEGIN), 0x100000000);
  EXPECT_EQ(FileIO_Seek(&file_, -1, FILEIO_SEEK_BEGIN), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(FileIOUser, AccessTestsEachBit) {
  EXPECT_EQ(FileIO_Access("/t/secret", FILEIO_TEST_EXISTS), FILEIO_SUCCESS);
  EXPECT_EQ(FileIO_Access("/t/secret", FILEIO_TEST_READ), FILEIO_ERROR);
  EXPECT_EQ(FileIO_Access("/t/file", FILEIO_TEST_READ), FILEIO_SUCCESS);
  EXPECT_EQ(FileIO_Access("/t/file", FILEIO_TEST_READ | FILEIO_TEST_WRITE), FILEIO_ERROR);
  EXPECT_EQ(FileIO_Access("/t/file", FILEIO_TEST_EXECUTE), FILEIO_ERROR);
  EXPECT_EQ(FileIO_Access("/t/program", FILEIO_TEST_READ | FILEIO_TEST_EXECUTE), FILEIO_SUCCESS);
  EXPECT_EQ(FileIO_Access("/t/missing", FILEIO_TEST_EXISTS), FILEIO_ERROR);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(FileIO_Access(nullptr, FILEIO_TEST_EXISTS), FILEIO_ERROR);
  EXPECT_EQ(errno, EFAULT);
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

TEST(FileIODeath, ProgrammingErrorsEndTheProcess) {
  FileIODescriptor file;
  FileIO_Invalidate(&file);
  const auto panic = ::testing::ExitedWithCode(255);
  const char *const assertion = "ASSERT lib/file/fileIO\\.cc:[0-9]+";
  const char *const missing = "NOT_IMPLEMENTED lib/file/fileIO\\.cc:[0-9]+";
  char byte = 0;
  EXPECT_EXIT(FileIO_Invalidate(nullptr), panic, assertion);
  EXPECT_EXIT(FileIO_Open(nullptr, "/", FILEIO_ACCESS_READ, FILEIO_OPEN), panic, assertion);
  EXPECT_EXIT(FileIO_Close(nullptr), panic, assertion);
  EXPECT_EXIT(FileIO_Read(&file, &byte, 0x80000000, nullptr), panic, missing);
  EXPECT_EXIT(FileIO_Write(&file, &byte, 0x80000000, nullptr), panic, missing);
  EXPECT_EXIT(FileIO_ErrorEnglish(FILEIO_NOT_IMPLEMENTED), panic, missing);
  EXPECT_EXIT(FileIO_MsgError(static_cast<FileIOResult>(13)), panic,
              "FileIO_MsgError was passed bad code 13\n(.|\n)*ASSERT lib/file/fileIO\\.cc:[0-9]+");
  FileIODescriptor open{0, 0, nullptr, nullptr};
  EXPECT_EXIT(FileIO_Open(&open, "/", FILEIO_ACCESS_READ, FILEIO_OPEN), panic, assertion);
  FileIODescriptor locked{-1, 0, nullptr, &byte};
  EXPECT_EXIT(FileIO_Open(&locked, "/", FILEIO_ACCESS_READ, FILEIO_OPEN), panic, assertion);
}

}  // namespace
