// Reads and writes by vectors.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "allocations.h"
#include "fileIO.h"
#include "fileIOInt.h"
#include "fileIOTestInt.h"
#include "preference.h"
#include "systemCalls.h"
#include "testhost.h"

namespace {

using fileiotest::Interrupted;
using fileiotest::kPanic;
using fileiotest::kReadWrite;

constexpr char kNotTested[] = "| NOT_TESTED lib/file/fileIOVector.cc:";

// Entries of equal size, with a text in them or room for one.
class Entries {
 public:
  Entries(int count, size_t size, const std::string &content = "abcdefghijklmnopqrstuvwxyz")
      : text_(static_cast<size_t>(count) * size, '\0') {
    for (size_t i = 0; i < text_.size(); i++) {
      text_[i] = content[i % content.size()];
    }
    for (int i = 0; i < count; i++) {
      list_.push_back({&text_[static_cast<size_t>(i) * size], size});
    }
  }
  static Entries Room(int count, size_t size) { return {count, size, std::string(1, '-')}; }
  // The list points into the text.
  Entries(const Entries &) = delete;
  Entries &operator=(const Entries &) = delete;

  [[nodiscard]] const struct iovec *List() const { return list_.data(); }
  [[nodiscard]] int Count() const { return static_cast<int>(list_.size()); }
  [[nodiscard]] size_t Size() const { return text_.size(); }
  [[nodiscard]] const std::string &Text() const { return text_; }

 private:
  std::string text_;
  std::vector<struct iovec> list_;
};

class FileIOVector : public fileiotest::FileIOHost {
 protected:
  FileIOResult Writev(const Entries &entries, size_t *actual = nullptr) {
    return FileIO_Writev(&file_, entries.List(), entries.Count(), entries.Size(), actual);
  }
  FileIOResult Readv(const Entries &entries, size_t *actual = nullptr) {
    return FileIO_Readv(&file_, entries.List(), entries.Count(), entries.Size(), actual);
  }
  FileIOResult Pwritev(const Entries &entries, uint64_t offset) {
    return FileIO_Pwritev(&file_, entries.List(), entries.Count(), offset, entries.Size());
  }
  FileIOResult Preadv(const Entries &entries, uint64_t offset) {
    return FileIO_Preadv(&file_, entries.List(), entries.Count(), offset, entries.Size());
  }
  [[nodiscard]] uint32_t Posix() const { return static_cast<uint32_t>(file_.posix); }
  // Must come before the first vector operation.
  static void Configure(const std::string &settings) {
    testhost::WriteFile("/etc/ostrel/config", settings);
    Preference_DisablePolling();
    ASSERT_TRUE(Preference_Init());
  }
};

// How many entries the system gets where a file is written with `count` entries of `size` bytes.
uint64_t EntriesWritten(FileIODescriptor *file, const testhost::SystemCalls &calls, int count, size_t size) {
  const Entries entries(count, size);
  EXPECT_EQ(FileIO_Seek(file, 0, FILEIO_SEEK_BEGIN), 0);
  EXPECT_TRUE(FileIO_Truncate(file, 0));
  size_t actual = 0;
  EXPECT_EQ(FileIO_Writev(file, entries.List(), count, entries.Size(), &actual), FILEIO_SUCCESS);
  EXPECT_EQ(actual, entries.Size());
  const uint64_t written = calls.LastArguments(SYS_writev)[2];
  EXPECT_EQ(testhost::ReadFile("/t/file"), entries.Text());
  const Entries room = Entries::Room(count, size);
  EXPECT_EQ(FileIO_Seek(file, 0, FILEIO_SEEK_BEGIN), 0);
  EXPECT_EQ(FileIO_Readv(file, room.List(), count, room.Size(), &actual), FILEIO_SUCCESS);
  EXPECT_EQ(actual, entries.Size());
  EXPECT_EQ(calls.LastArguments(SYS_readv)[2], written);
  EXPECT_EQ(room.Text(), entries.Text());
  return written;
}

TEST_F(FileIOVector, ManySmallEntriesAreOneToTheSystem) {
  Open("/t/file", kReadWrite);
  const testhost::SystemCalls calls({SYS_readv, SYS_writev});
  EXPECT_EQ(EntriesWritten(&file_, calls, 1, 10), 1U);
  EXPECT_EQ(EntriesWritten(&file_, calls, 2, 10), 2U);
  EXPECT_EQ(EntriesWritten(&file_, calls, 5, 10), 5U);
  EXPECT_EQ(EntriesWritten(&file_, calls, 6, 10), 1U);
  EXPECT_EQ(EntriesWritten(&file_, calls, 6, 16383), 1U);
  EXPECT_EQ(EntriesWritten(&file_, calls, 6, 16384), 6U);
  EXPECT_EQ(EntriesWritten(&file_, calls, 3000, 1), 1U);
  EXPECT_EQ(calls.Count(SYS_writev), 7U);
  EXPECT_EQ(calls.Count(SYS_readv), 7U);
  EXPECT_EQ(LogCount("NOT_TESTED"), 0);
}

TEST_F(FileIOVector, AverageIsOfWholeBytes) {
  Open("/t/file", FILEIO_ACCESS_WRITE);
  const testhost::SystemCalls calls({SYS_writev});
  constexpr size_t kSize = 16384;
  std::string text(6 * kSize, 'x');
  struct iovec list[6];
  for (size_t i = 0; i < 6; i++) {
    list[i] = {&text[i * kSize], kSize};
  }
  EXPECT_EQ(FileIO_Writev(&file_, list, 6, 6 * kSize, nullptr), FILEIO_SUCCESS);
  EXPECT_EQ(calls.LastArguments(SYS_writev)[2], 6U);
  list[5].iov_len--;
  EXPECT_EQ(FileIO_Writev(&file_, list, 6, 6 * kSize - 1, nullptr), FILEIO_SUCCESS);
  EXPECT_EQ(calls.LastArguments(SYS_writev)[2], 1U);
}

TEST_F(FileIOVector, SettingsDecideHowManyAndHowSmallEntriesAreGathered) {
  Configure("filePosix.coalesce.count = 2\nfilePosix.coalesce.size = 100\n");
  Open("/t/file", kReadWrite);
  const testhost::SystemCalls calls({SYS_readv, SYS_writev});
  EXPECT_EQ(EntriesWritten(&file_, calls, 2, 10), 2U);
  EXPECT_EQ(EntriesWritten(&file_, calls, 3, 99), 1U);
  EXPECT_EQ(EntriesWritten(&file_, calls, 3, 100), 3U);
}

TEST_F(FileIOVector, NegativeCountGathersAllButASingleEntry) {
  Configure("filePosix.coalesce.count = -1\n");
  Open("/t/file", kReadWrite);
  const testhost::SystemCalls calls({SYS_readv, SYS_writev});
  EXPECT_EQ(EntriesWritten(&file_, calls, 1, 10), 1U);
  EXPECT_EQ(EntriesWritten(&file_, calls, 2, 10), 1U);
}

TEST_F(FileIOVector, SizeOf0GathersNothing) {
  Configure("filePosix.coalesce.count = 0\nfilePosix.coalesce.size = 0\n");
  Open("/t/file", kReadWrite);
  const testhost::SystemCalls calls({SYS_readv, SYS_writev});
  EXPECT_EQ(EntriesWritten(&file_, calls, 2, 10), 2U);
}

TEST_F(FileIOVector, SettingTurnsGatheringOff) {
  Configure("filePosix.coalesce.enable = FALSE\n");
  Open("/t/file", kReadWrite);
  const testhost::SystemCalls calls({SYS_readv, SYS_writev});
  EXPECT_EQ(EntriesWritten(&file_, calls, 100, 10), 100U);
}

TEST_F(FileIOVector, SettingsAreReadOnceAtTheFirstOperation) {
  Configure("");
  Open("/t/file", kReadWrite);
  const char *const keys[] = {"filePosix.coalesce.enable", "filePosix.coalesce.aligned",
                              "filePosix.coalesce.count", "filePosix.coalesce.size", "aiomgr.numThreads"};
  const testhost::SystemCalls calls({SYS_readv, SYS_writev});
  Preference_SetFromString("filePosix.coalesce.count=2", true);
  EXPECT_EQ(EntriesWritten(&file_, calls, 3, 10), 1U);
  Preference_SetFromString("filePosix.coalesce.count=100", true);
  EXPECT_EQ(EntriesWritten(&file_, calls, 3, 10), 1U);
  Preference_Exit();
  EXPECT_EQ(EntriesWritten(&file_, calls, 3, 10), 1U);
  for (const char *key : keys) {
    EXPECT_EQ(LogCount(key), 0);
  }
}

TEST_F(FileIOVector, DefaultsHoldBeforeSettingsAreUp) {
  Open("/t/file", kReadWrite);
  const testhost::SystemCalls calls({SYS_readv, SYS_writev});
  EXPECT_EQ(EntriesWritten(&file_, calls, 6, 16383), 1U);
  EXPECT_EQ(LogCount("| PREF early PreferenceGet(filePosix.coalesce.enable), using default\n"), 1);
  EXPECT_EQ(LogCount("| PREF early PreferenceGet(filePosix.coalesce.aligned), using default\n"), 1);
  EXPECT_EQ(LogCount("| PREF early PreferenceGet(filePosix.coalesce.count), using default\n"), 1);
  EXPECT_EQ(LogCount("| PREF early PreferenceGet(filePosix.coalesce.size), using default\n"), 1);
  EXPECT_EQ(LogCount("| PREF early PreferenceGet(aiomgr.numThreads), using default\n"), 1);
}

TEST_F(FileIOVector, BadSettingsAreTheirDefaults) {
  Configure(
      "filePosix.coalesce.enable = maybe\nfilePosix.coalesce.aligned = maybe\n"
      "filePosix.coalesce.count = few\nfilePosix.coalesce.size = 16k\naiomgr.numThreads = one\n");
  Open("/t/file", kReadWrite);
  const testhost::SystemCalls calls({SYS_readv, SYS_writev});
  EXPECT_EQ(EntriesWritten(&file_, calls, 5, 10), 5U);
  EXPECT_EQ(EntriesWritten(&file_, calls, 6, 16383), 1U);
  EXPECT_EQ(EntriesWritten(&file_, calls, 6, 16384), 6U);
  EXPECT_EQ(
      LogCount("Value \"maybe\" for variable \"filePosix.coalesce.enable\" is not a valid boolean value. "
               "Using value \"TRUE\".\n"),
      1);
  EXPECT_EQ(
      LogCount("Value \"maybe\" for variable \"filePosix.coalesce.aligned\" is not a valid boolean value. "
               "Using value \"FALSE\".\n"),
      1);
  EXPECT_EQ(LogCount("Value \"few\" for variable \"filePosix.coalesce.count\" is not a valid integer value. "
                     "Using value \"5\".\n"),
            1);
  EXPECT_EQ(LogCount("Value \"16k\" for variable \"filePosix.coalesce.size\" is not a valid integer value. "
                     "Using value \"16384\".\n"),
            1);
  EXPECT_EQ(LogCount("Value \"one\" for variable \"aiomgr.numThreads\" is not a valid integer value. "
                     "Using value \"0\".\n"),
            1);
}

TEST_F(FileIOVector, EntriesOfMixedSizesAndNoneKeepTheirOrder) {
  Open("/t/file", kReadWrite);
  char texts[] = "onetwothree";
  const struct iovec list[] = {{texts, 3}, {texts, 0},     {texts + 3, 3},
                               {texts, 0}, {texts + 6, 5}, {texts, 0}};
  size_t actual = 0;
  EXPECT_EQ(FileIO_Writev(&file_, list, 6, 11, &actual), FILEIO_SUCCESS);
  EXPECT_EQ(actual, 11U);
  EXPECT_EQ(testhost::ReadFile("/t/file"), "onetwothree");
  EXPECT_EQ(FileIO_Pwritev(&file_, list, 6, 11, 11), FILEIO_SUCCESS);
  EXPECT_EQ(testhost::ReadFile("/t/file"), "onetwothreeonetwothree");
}

TEST_F(FileIOVector, PositionedCallsAlwaysGather) {
  Configure("filePosix.coalesce.enable = FALSE\n");
  Open("/t/file", kReadWrite);
  const testhost::SystemCalls calls({SYS_pread64, SYS_pwrite64});
  EXPECT_EQ(FileIO_Seek(&file_, 2, FILEIO_SEEK_BEGIN), 2);
  for (const size_t size : {10U, 100000U}) {
    const Entries entries(2, size);
    const size_t before = calls.Count(SYS_pwrite64);
    EXPECT_EQ(Pwritev(entries, 5), FILEIO_SUCCESS);
    EXPECT_EQ(calls.Count(SYS_pwrite64), before + 1);
    EXPECT_EQ(calls.LastArguments(SYS_pwrite64)[2], entries.Size());
    EXPECT_EQ(testhost::ReadFile("/t/file"), "conte" + entries.Text());
    const Entries room = Entries::Room(2, size);
    EXPECT_EQ(Preadv(room, 5), FILEIO_SUCCESS);
    EXPECT_EQ(calls.Count(SYS_pread64), before + 1);
    EXPECT_EQ(room.Text(), entries.Text());
  }
  EXPECT_EQ(FileIO_Seek(&file_, 0, FILEIO_SEEK_CURRENT), 2);
}

TEST_F(FileIOVector, SingleEntryIsNeverCopied) {
  Open("/t/file", kReadWrite);
  const testhost::SystemCalls calls({SYS_pread64, SYS_pwrite64});
  const char text[] = "text";
  EXPECT_EQ(FileIO_Pwrite(&file_, text, 4, 0x100000000), FILEIO_SUCCESS);
  EXPECT_EQ(calls.LastArguments(SYS_pwrite64)[1], reinterpret_cast<uintptr_t>(text));
  EXPECT_EQ(calls.LastArguments(SYS_pwrite64)[3], 0x100000000U);
  char room[4];
  EXPECT_EQ(FileIO_Pread(&file_, room, 4, 0x100000000), FILEIO_SUCCESS);
  EXPECT_EQ(calls.LastArguments(SYS_pread64)[1], reinterpret_cast<uintptr_t>(room));
  EXPECT_EQ(std::string(room, 4), "text");
  EXPECT_EQ(FileIO_GetSize(&file_), 0x100000004);
  EXPECT_EQ(FileIO_Seek(&file_, 0, FILEIO_SEEK_CURRENT), 0);
}

TEST_F(FileIOVector, BufferBeginsAPageWhereThatIsAskedFor) {
  Open("/t/file", kReadWrite);
  const testhost::SystemCalls calls({SYS_pwrite64});
  const Entries entries(2, 1 << 20);
  EXPECT_EQ(Pwritev(entries, 0), FILEIO_SUCCESS);
  EXPECT_NE(calls.LastArguments(SYS_pwrite64)[1] % 4096, 0U);
  file_.flags |= FILEIO_ACCESS_UNBUFFERED;
  EXPECT_EQ(Pwritev(entries, 0), FILEIO_SUCCESS);
  EXPECT_EQ(calls.LastArguments(SYS_pwrite64)[1] % 4096, 0U);
  EXPECT_EQ(testhost::ReadFile("/t/file"), entries.Text());
}

TEST_F(FileIOVector, BufferBeginsAPageByASetting) {
  Configure("filePosix.coalesce.aligned = TRUE\n");
  Open("/t/file", FILEIO_ACCESS_WRITE);
  const testhost::SystemCalls calls({SYS_pwrite64});
  const Entries entries(2, 1 << 20);
  EXPECT_EQ(Pwritev(entries, 0), FILEIO_SUCCESS);
  EXPECT_EQ(calls.LastArguments(SYS_pwrite64)[1] % 4096, 0U);
  EXPECT_EQ(testhost::ReadFile("/t/file"), entries.Text());
}

TEST_F(FileIOVector, ReadBehindTheEndGivesTheEntriesWhatThereIs) {
  const std::string text = "0123456789";
  testhost::WriteFile("/t/file", text);
  Open("/t/file", FILEIO_ACCESS_READ);
  for (const int count : {4, 6}) {  // one by one, and gathered
    const Entries room = Entries::Room(count, 4);
    size_t actual = 0;
    EXPECT_EQ(FileIO_Seek(&file_, 0, FILEIO_SEEK_BEGIN), 0);
    EXPECT_EQ(Readv(room, &actual), FILEIO_READ_PAST_EOF);
    EXPECT_EQ(actual, 10U);
    EXPECT_EQ(room.Text(), text + std::string(room.Size() - 10, '-'));
    EXPECT_EQ(LogCount(kNotTested), count == 6 ? 1 : 0);
    EXPECT_EQ(Readv(room, nullptr), FILEIO_READ_PAST_EOF);
  }
}

TEST_F(FileIOVector, PositionedReadBehindTheEndGivesTheEntriesWhatThereIs) {
  Open("/t/file", FILEIO_ACCESS_READ);
  const Entries room = Entries::Room(2, 4);
  EXPECT_EQ(Preadv(room, 2), FILEIO_READ_PAST_EOF);
  EXPECT_EQ(room.Text(), "ntent---");
  EXPECT_EQ(LogCount(kNotTested), 1);
  char bytes[4] = "---";
  EXPECT_EQ(FileIO_Pread(&file_, bytes, 3, 5), FILEIO_READ_PAST_EOF);
  EXPECT_STREQ(bytes, "nt-");
  EXPECT_EQ(FileIO_Pread(&file_, bytes, 3, 1000), FILEIO_READ_PAST_EOF);
  EXPECT_EQ(LogCount(kNotTested), 1);
}

TEST_F(FileIOVector, NoEntriesAreAnErrorOnlyAtThePosition) {
  Open("/t/file", kReadWrite);
  const testhost::SystemCalls calls({SYS_readv, SYS_writev, SYS_pread64, SYS_pwrite64});
  size_t actual = 9;
  EXPECT_EQ(FileIO_Writev(&file_, nullptr, 0, 0, &actual), FILEIO_ERROR);
  EXPECT_EQ(actual, 0U);
  actual = 9;
  EXPECT_EQ(FileIO_Readv(&file_, nullptr, 0, 0, &actual), FILEIO_ERROR);
  EXPECT_EQ(actual, 0U);
  EXPECT_EQ(FileIO_Readv(&file_, nullptr, 0, 0, nullptr), FILEIO_ERROR);
  EXPECT_EQ(FileIO_Pwritev(&file_, nullptr, 0, 0, 0), FILEIO_SUCCESS);
  EXPECT_EQ(FileIO_Preadv(&file_, nullptr, 0, 0, 0), FILEIO_SUCCESS);
  EXPECT_EQ(FileIO_Pwrite(&file_, nullptr, 0, 0), FILEIO_SUCCESS);
  EXPECT_EQ(FileIO_Pread(&file_, nullptr, 0, 100), FILEIO_SUCCESS);
  for (const int number : {SYS_readv, SYS_writev, SYS_pread64, SYS_pwrite64}) {
    EXPECT_EQ(calls.Count(number), 0U);
  }
}

TEST_F(FileIOVector, MoreEntriesThanTheSystemTakesAreAnError) {
  Configure("filePosix.coalesce.enable = FALSE\n");
  Open("/t/file", kReadWrite);
  const Entries entries(1025, 1);
  size_t actual = 9;
  EXPECT_FAILS(FILEIO_ERROR, EINVAL, Writev(entries, &actual));
  EXPECT_EQ(actual, 0U);
  EXPECT_FAILS(FILEIO_ERROR, EINVAL, Readv(entries, &actual));
  EXPECT_EQ(testhost::ReadFile("/t/file"), "content");
}

TEST_F(FileIOVector, InterruptedPositionedCallsGoOnAndLogItOnce) {
  Open("/t/file", kReadWrite);
  testhost::SystemCalls calls({SYS_pread64, SYS_pwrite64});
  const Entries entries(3, 4);
  for (int turn = 0; turn < 2; turn++) {
    calls.Fail(SYS_pwrite64, EINTR, {.count = 3});
    EXPECT_EQ(Pwritev(entries, 0), FILEIO_SUCCESS);
  }
  EXPECT_EQ(calls.Count(SYS_pwrite64), 8U);
  EXPECT_EQ(LogCount("| FILE: FileIO_Pwritev got EINTR.  Retrying\n"), 1);
  EXPECT_EQ(LogCount(kNotTested), 1);
  const Entries room = Entries::Room(3, 4);
  for (int turn = 0; turn < 2; turn++) {
    calls.Fail(SYS_pread64, EINTR, {.count = 3});
    EXPECT_EQ(Preadv(room, 0), FILEIO_SUCCESS);
  }
  EXPECT_EQ(room.Text(), entries.Text());
  EXPECT_EQ(LogCount("| FILE: FileIO_Preadv got EINTR.  Retrying\n"), 1);
  EXPECT_EQ(LogCount(kNotTested), 2);
}

TEST_F(FileIOVector, InterruptedReadGoesOnAndWriteDoesNot) {
  ASSERT_EQ(mkfifo("/t/fifo", 0600), 0);
  Open("/t/fifo", kReadWrite);
  const Entries room = Entries::Room(6, 1);
  Interrupted([&] { EXPECT_EQ(Readv(room), FILEIO_SUCCESS); },
              [&] { EXPECT_EQ(write(file_.posix, "abcdef", 6), 6); });
  EXPECT_EQ(room.Text(), "abcdef");
  EXPECT_EQ(LogCount("EINTR"), 0);
  // A pipe without room.
  ASSERT_EQ(fcntl(file_.posix, F_SETFL, O_RDWR | O_NONBLOCK), 0);
  const std::string filling(65536, 'x');
  while (write(file_.posix, filling.data(), filling.size()) > 0) {
  }
  ASSERT_EQ(fcntl(file_.posix, F_SETFL, O_RDWR), 0);
  size_t actual = 9;
  Interrupted([&] { EXPECT_FAILS(FILEIO_ERROR, EINTR, Writev(room, &actual)); }, [] {});
  EXPECT_EQ(actual, 0U);
}

TEST_F(FileIOVector, ShortPositionedWriteGoesOnAndLogsItOnce) {
  Open("/t/file", kReadWrite, FILEIO_OPEN_EMPTY);
  testhost::SystemCalls calls({SYS_pwrite64});
  const Entries entries(3, 8);
  for (const uint64_t offset : {0U, 24U}) {
    calls.Return(SYS_pwrite64, 3, {.count = 1});
    calls.Return(SYS_pwrite64, 4, {.from = 1, .count = 1});
    EXPECT_EQ(Pwritev(entries, offset), FILEIO_SUCCESS);
    EXPECT_EQ(calls.LastArguments(SYS_pwrite64)[2], 17U);
    EXPECT_EQ(calls.LastArguments(SYS_pwrite64)[3], offset + 7);
  }
  // What was only said to be written is missing.
  const std::string half = std::string(7, '\0') + entries.Text().substr(7);
  EXPECT_EQ(testhost::ReadFile("/t/file"), half + half);
  EXPECT_EQ(LogCount("| FILE: FileIO_Pwritev wrote 3 out of 24 bytes.\n"), 1);
  EXPECT_EQ(LogCount("out of"), 1);
}

TEST_F(FileIOVector, ShortPositionedReadGoesOnWithoutALine) {
  Open("/t/file", FILEIO_ACCESS_READ);
  testhost::SystemCalls calls({SYS_pread64});
  calls.Return(SYS_pread64, 3, {.count = 1});
  char text[8] = "+++++++";
  EXPECT_EQ(FileIO_Pread(&file_, text, 7, 0), FILEIO_SUCCESS);
  EXPECT_STREQ(text, "+++tent");
  EXPECT_EQ(LogCount("FILE:"), 0);
  EXPECT_EQ(LogCount("NOT_TESTED"), 0);
}

TEST_F(FileIOVector, ReadThatFailsMidwayKeepsWhatWasRead) {
  Open("/t/file", FILEIO_ACCESS_READ);
  testhost::SystemCalls calls({SYS_pread64});
  const Entries room = Entries::Room(2, 5);
  calls.Fail(SYS_pread64, EIO, {.from = 1});
  EXPECT_FAILS(FILEIO_ERROR, EIO, Preadv(room, 0));
  EXPECT_EQ(room.Text(), "content---");
  EXPECT_EQ(LogCount(kNotTested), 1);
}

TEST_F(FileIOVector, WriteThatGivesNothingIsNoSpace) {
  Open("/t/file", FILEIO_ACCESS_WRITE);
  testhost::SystemCalls calls({SYS_pwrite64, SYS_writev});
  calls.Return(SYS_pwrite64, 0);
  calls.Return(SYS_writev, 0);
  const Entries entries(6, 4);
  EXPECT_EQ(Pwritev(entries, 0), FILEIO_NO_SPACE);
  EXPECT_EQ(LogCount(kNotTested), 1);
  EXPECT_EQ(Pwritev(entries, 0), FILEIO_NO_SPACE);
  EXPECT_EQ(LogCount(kNotTested), 2);
  size_t actual = 9;
  EXPECT_EQ(Writev(entries, &actual), FILEIO_NO_SPACE);
  EXPECT_EQ(actual, 0U);
  EXPECT_EQ(calls.Count(SYS_writev), 1U);
  EXPECT_EQ(LogCount(kNotTested), 2);
}

TEST_F(FileIOVector, FullDiskIsNoSpace) {
  MountSmall();
  for (const int count : {5, 10}) {  // one by one, and gathered
    Open("/t/small/file", kReadWrite, FILEIO_OPEN_CREATE_EMPTY);
    const Entries entries(count, 100000 / static_cast<size_t>(count));
    size_t actual = 0;
    EXPECT_EQ(Writev(entries, &actual), FILEIO_NO_SPACE);
    EXPECT_EQ(actual, 65536U);
    EXPECT_FAILS(FILEIO_NO_SPACE, ENOSPC, Writev(entries, &actual));
    EXPECT_EQ(actual, 0U);
    ASSERT_TRUE(FileIO_Truncate(&file_, 0));
    EXPECT_FAILS(FILEIO_NO_SPACE, ENOSPC, Pwritev(entries, 0));
    EXPECT_EQ(testhost::ReadFile("/t/small/file"), entries.Text().substr(0, 65536));
    EXPECT_FALSE(FileIO_Close(&file_));
  }
  EXPECT_EQ(LogCount("FILE: FileIO_Pwritev wrote 65536 out of 100000 bytes.\n"), 1);
}

TEST_F(FileIOVector, SizeLimitIsFileTooLarge) {
  signal(SIGXFSZ, SIG_IGN);
  Open("/t/new", kReadWrite, FILEIO_OPEN_CREATE);
  const rlimit limit{1000, RLIM_INFINITY};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  const Entries entries(10, 101);
  EXPECT_FAILS(FILEIO_FILE_TOO_LARGE, EFBIG, Pwritev(entries, 0));
  EXPECT_EQ(FileIO_GetSize(&file_), 1000);
  size_t actual = 0;
  EXPECT_EQ(Writev(entries, &actual), FILEIO_NO_SPACE);
  EXPECT_EQ(actual, 1000U);
  EXPECT_FAILS(FILEIO_FILE_TOO_LARGE, EFBIG, Writev(entries, &actual));
  EXPECT_EQ(actual, 0U);
  EXPECT_FAILS(FILEIO_FILE_TOO_LARGE, EFBIG, FileIO_Pwrite(&file_, "x", 1, 1000));
}

TEST_F(FileIOVector, QuotaAndFailingDisksHaveTheirResults) {
  Open("/t/file", kReadWrite);
  testhost::SystemCalls calls({SYS_readv, SYS_writev, SYS_pread64, SYS_pwrite64});
  const Entries entries(6, 4);
  size_t actual = 9;
  for (const int number : {SYS_writev, SYS_pwrite64}) {
    calls.Fail(number, EDQUOT);
  }
  for (const int number : {SYS_readv, SYS_pread64}) {
    calls.Fail(number, EIO);
  }
  EXPECT_FAILS(FILEIO_QUOTA, EDQUOT, Writev(entries, &actual));
  EXPECT_EQ(actual, 0U);
  EXPECT_FAILS(FILEIO_QUOTA, EDQUOT, Pwritev(entries, 0));
  actual = 9;
  EXPECT_FAILS(FILEIO_ERROR, EIO, Readv(entries, &actual));
  EXPECT_EQ(actual, 0U);
  EXPECT_EQ(LogCount(kNotTested), 1);
  EXPECT_FAILS(FILEIO_ERROR, EIO, Preadv(entries, 0));
  EXPECT_EQ(LogCount(kNotTested), 2);
}

TEST_F(FileIOVector, WrongFilesAreErrors) {
  const Entries entries(6, 4);
  EXPECT_FAILS(FILEIO_ERROR, EBADF, Writev(entries));
  EXPECT_FAILS(FILEIO_ERROR, EBADF, Readv(entries));
  EXPECT_FAILS(FILEIO_ERROR, EBADF, Pwritev(entries, 0));
  EXPECT_FAILS(FILEIO_ERROR, EBADF, Preadv(entries, 0));
  ASSERT_EQ(mkfifo("/t/fifo", 0600), 0);
  Open("/t/fifo", kReadWrite);
  EXPECT_FAILS(FILEIO_ERROR, ESPIPE, Pwritev(entries, 0));
  EXPECT_FAILS(FILEIO_ERROR, ESPIPE, Preadv(entries, 0));
  EXPECT_FALSE(FileIO_Close(&file_));
  Open("/t", FILEIO_ACCESS_READ);
  EXPECT_FAILS(FILEIO_ERROR, EISDIR, Readv(entries));
  EXPECT_FAILS(FILEIO_ERROR, EISDIR, Preadv(entries, 0));
  EXPECT_FALSE(FileIO_Close(&file_));
  Open("/t/file", kReadWrite);
  EXPECT_FAILS(FILEIO_ERROR, EINVAL, Preadv(entries, uint64_t{1} << 63));
  EXPECT_FAILS(FILEIO_ERROR, EINVAL, Pwritev(entries, uint64_t{1} << 63));
  EXPECT_FAILS(FILEIO_ERROR, EINVAL, Preadv(entries, std::numeric_limits<int64_t>::max()));
  EXPECT_FAILS(FILEIO_ERROR, EINVAL, Pwritev(entries, std::numeric_limits<int64_t>::max()));
}

TEST_F(FileIOVector, MostThatAPositionedCallTakes) {
  constexpr size_t kMost = 0x7fffffff;
  void *room =
      mmap(nullptr, kMost, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(room, MAP_FAILED);
  Open("/t/file", FILEIO_ACCESS_READ);
  EXPECT_EQ(FileIO_Pread(&file_, room, kMost, 0), FILEIO_READ_PAST_EOF);
  EXPECT_EQ(std::string(static_cast<char *>(room), 8), std::string("content\0", 8));
  EXPECT_FALSE(FileIO_Close(&file_));
  Open("/dev/null", FILEIO_ACCESS_WRITE);
  EXPECT_EQ(FileIO_Pwrite(&file_, room, kMost, 0), FILEIO_SUCCESS);
  munmap(room, kMost);
}

TEST_F(FileIOVector, AsynchronousFilesAndBadArgumentsEndTheProcess) {
  const char *const assertion = "ASSERT lib/file/fileIOVector\\.cc:[0-9]+\n";
  const char *const missing = "NOT_IMPLEMENTED lib/file/fileIOVector\\.cc:[0-9]+\n";
  const Entries entries(6, 4);
  char byte = 'x';
  Open("/t/file", kReadWrite);
  EXPECT_EXIT(FileIO_Pwritev(&file_, entries.List(), 6, 0, 0x80000000), kPanic, missing);
  EXPECT_EXIT(FileIO_Preadv(&file_, entries.List(), 6, 0, 0x80000000), kPanic, missing);
  EXPECT_EXIT(FileIO_Pwrite(&file_, &byte, 0x80000000, 0), kPanic, missing);
  EXPECT_EXIT(FileIO_Pread(&file_, &byte, 0x80000000, 0), kPanic, missing);
  EXPECT_EXIT(FileIO_Writev(nullptr, entries.List(), 6, 24, nullptr), kPanic, assertion);
  EXPECT_EXIT(FileIO_Readv(nullptr, entries.List(), 6, 24, nullptr), kPanic, assertion);
  EXPECT_EXIT(FileIO_Pwritev(nullptr, entries.List(), 6, 0, 24), kPanic, assertion);
  EXPECT_EXIT(FileIO_Preadv(nullptr, entries.List(), 6, 0, 24), kPanic, assertion);
  EXPECT_EXIT(FileIO_Pwrite(nullptr, &byte, 1, 0), kPanic, assertion);
  EXPECT_EXIT(FileIO_Pread(nullptr, &byte, 1, 0), kPanic, assertion);
  file_.flags |= FILEIO_ACCESS_ASYNC;
  EXPECT_EXIT(Writev(entries), kPanic, assertion);
  EXPECT_EXIT(Readv(entries), kPanic, assertion);
  EXPECT_EXIT(Pwritev(entries, 0), kPanic, assertion);
  EXPECT_EXIT(Preadv(entries, 0), kPanic, assertion);
  EXPECT_EXIT(FileIO_Pwrite(&file_, &byte, 1, 0), kPanic, assertion);
  EXPECT_EXIT(FileIO_Pread(&file_, &byte, 1, 0), kPanic, assertion);
  EXPECT_EXIT(FileIO_Writev(&file_, nullptr, 0, 0, nullptr), kPanic, assertion);
  EXPECT_EQ(testhost::ReadFile("/t/file"), "content");
}

TEST_F(FileIOVector, NoRoomToGatherEndsTheProcess) {
  Open("/t/file", kReadWrite);
  const Entries entries(6, 4);
  EXPECT_EXIT(
      {
        const testhost::AllocationFault fault(0);
        Writev(entries);
      },
      kPanic, "Unrecoverable memory allocation failure at lib/file/fileIOVector\\.cc:[0-9]+\n");
}

}  // namespace
