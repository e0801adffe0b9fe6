// What the tests of FileIO share.
#ifndef OST_FILE_FILEIOTESTINT_H
#define OST_FILE_FILEIOTESTINT_H

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <string>
#include <thread>

#include "fileIO.h"
#include "log.h"
#include "testhost.h"

namespace fileiotest {

inline constexpr uint32_t kReadWrite = FILEIO_ACCESS_READ | FILEIO_ACCESS_WRITE;

inline const auto kPanic = ::testing::ExitedWithCode(255);

#define EXPECT_FAILS(failure, number, call) \
  do {                                      \
    errno = 0;                              \
    EXPECT_EQ(call, failure);               \
    EXPECT_EQ(errno, number) << #call;      \
  } while (false)

// A host with a log and a file, and a descriptor that is closed in the end.
class FileIOHost : public ::testing::Test {
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
  virtual void Describe(testhost::Host & /*host*/) {}

  // Opens the descriptor of the test.
  void Open(const char *path, uint32_t access, FileIOAction action = FILEIO_OPEN) {
    ASSERT_EQ(FileIO_Open(&file_, path, access, action), FILEIO_SUCCESS);
  }

  static void MountSmall() { ASSERT_EQ(mount("none", "/t/small", "tmpfs", 0, "size=64k"), 0); }

  static std::string LogText() { return testhost::ReadFile(Log_GetFileName()); }
  // How often the log has a text.
  static int LogCount(const std::string &text) {
    const std::string log = LogText();
    int count = 0;
    for (size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + 1)) {
      count++;
    }
    return count;
  }

  FileIODescriptor file_{};
};

// The same as an ordinary user, who can't read "/t/secret".
class FileIOUserHost : public FileIOHost {
 protected:
  void Describe(testhost::Host &host) override {
    host.File("/t/secret", "content", 0600).File("/t/program", "", 0755);
    host.File("/t/unreadable", "", 0711).User(1234);
  }
};

inline long OpenDescriptors() {
  const std::filesystem::directory_iterator descriptors("/proc/self/fd");
  return std::distance(begin(descriptors), end(descriptors));
}

inline void ExpectInvalid(const FileIODescriptor &file) {
  EXPECT_FALSE(FileIO_IsValid(&file));
  EXPECT_EQ(file.posix, -1);
  EXPECT_EQ(file.flags, 0U);
  EXPECT_EQ(file.fileName, nullptr);
  EXPECT_EQ(file.lockToken, nullptr);
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

}  // namespace fileiotest

#endif
