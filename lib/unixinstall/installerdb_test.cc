#include "installerdb.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "engineTestInt.h"
#include "fileIO.h"
#include "owned.h"
#include "util_misc.h"

namespace {

using enginetest::kAnswers;
using enginetest::kConfigDir;
using enginetest::kJournal;
using testhost::Host;

// A host with a journal of the three answers that every installation has, and then some lines.
class Installation : public Host {
 public:
  explicit Installation(const std::string &lines = "") { File(kJournal, kAnswers + lines); }
  ~Installation() { InstallerDB_DeInit(); }
  Installation(const Installation &) = delete;
  Installation &operator=(const Installation &) = delete;

  // Enters the host and opens the journal.
  bool Open(bool readOnly = false) {
    enginetest::Enter(*this);
    return InstallerDB_Init(kConfigDir, readOnly);
  }
};

// What the journal got behind the three answers.
std::string Added() {
  return testhost::ReadFile(kJournal).substr(strlen(kAnswers));
}

std::string Answer(const char *key) {
  const char *answer = InstallerDB_GetAnswer(key);
  return answer ? answer : "(null)";
}

bool SetAnswer(const char *key, const char *value) {
  return InstallerDB_SetAnswer(Util_SafeStrdup(key), Util_SafeStrdup(value));
}

// Opens a journal of this content alone, which is refused without a word on standard error.
void ExpectRefused(const std::string &content) {
  Host host;
  host.File(kJournal, content);
  enginetest::Enter(host);
  testing::internal::CaptureStderr();
  EXPECT_FALSE(InstallerDB_Init(kConfigDir, true));
  EXPECT_EQ("", testing::internal::GetCapturedStderr());
  EXPECT_FALSE(InstallerDB_IsInitialized());
  InstallerDB_DeInit();
}

// Opens the journal of the host that the test is in.
void ExpectRefusedWithText(bool readOnly) {
  testing::internal::CaptureStderr();
  EXPECT_FALSE(InstallerDB_Init(kConfigDir, readOnly));
  const std::string errors = testing::internal::GetCapturedStderr();
  EXPECT_NE(std::string::npos, errors.find("Couldn't open /etc/ostrel-tools/locations! Failure!\n"))
      << errors;
  EXPECT_FALSE(InstallerDB_IsInitialized());
}

void ExpectCannotBeOpened(Host &host, bool readOnly) {
  enginetest::Enter(host);
  ExpectRefusedWithText(readOnly);
}

// Another program's hold on the journal.
class OtherWriter {
 public:
  OtherWriter() {
    FileIO_Invalidate(&file_);
    result_ = FileIO_Open(&file_, kJournal, FILEIO_ACCESS_WRITE | FILEIO_ACCESS_LOCK, FILEIO_OPEN);
  }
  ~OtherWriter() {
    if (FileIO_IsValid(&file_)) {
      FileIO_Close(&file_);
    }
  }
  OtherWriter(const OtherWriter &) = delete;
  OtherWriter &operator=(const OtherWriter &) = delete;
  FileIOResult Result() const { return result_; }

 private:
  FileIODescriptor file_;
  FileIOResult result_;
};

int64_t ModTime(const std::string &path) {
  struct stat data = {};
  EXPECT_EQ(0, stat(path.c_str(), &data));
  return data.st_mtime;
}

// The next free descriptor, to see what stays open.
int NextDescriptor() {
  const int next = dup(0);
  close(next);
  return next;
}

// Fills the rest of the file system that holds the journal.
void FillDisk() {
  std::ofstream filler(std::string(kConfigDir) + "/filler");
  while (filler << std::string(4096, 'x') << std::flush) {
  }
}

}  // namespace

TEST(InstallerDBInit, ReplaysTheJournal) {
  Installation host("file /a 12\nfile /b\nanswer KEY value\n");
  ASSERT_TRUE(host.Open());
  EXPECT_TRUE(InstallerDB_IsInitialized());
  EXPECT_STREQ("/opt/ostrel/bin", InstallerDB_GetBinDir());
  EXPECT_STREQ("/opt/ostrel/lib", InstallerDB_GetLibDir());
  EXPECT_STREQ("/etc/init.d", InstallerDB_GetInitScriptsDir());
  EXPECT_EQ("value", Answer("KEY"));
  EXPECT_EQ("(null)", Answer("key"));
  EXPECT_TRUE(InstallerDB_IsFileKnown("/a"));
  EXPECT_TRUE(InstallerDB_IsFileKnown("/b"));
  EXPECT_FALSE(InstallerDB_IsFileKnown("/c"));
  EXPECT_EQ("file /a 12\nfile /b\nanswer KEY value\n", Added()) << "opening writes nothing";
}

TEST(InstallerDBInit, SucceedsAgainWhileOpen) {
  Installation host;
  ASSERT_TRUE(host.Open());
  ASSERT_TRUE(SetAnswer("KEY", "value"));
  EXPECT_TRUE(InstallerDB_Init(kConfigDir, false));
  EXPECT_EQ("value", Answer("KEY"));
}

TEST(InstallerDBInit, AsksForNoAnswerAgainWhileOpen) {
  Installation host;
  ASSERT_TRUE(host.Open());
  ASSERT_TRUE(InstallerDB_RemoveAnswer("BINDIR"));
  EXPECT_TRUE(InstallerDB_Init(kConfigDir, false));
  EXPECT_TRUE(InstallerDB_IsInitialized());
}

// The empty tables of the first call outlive it, so that the second one replays nothing.
TEST(InstallerDBInit, FailsOnceMoreAfterAnEmptyJournal) {
  Host host;
  host.File(kJournal, "");
  enginetest::Enter(host);
  EXPECT_FALSE(InstallerDB_Init(kConfigDir, true));
  testhost::WriteFile(kJournal, kAnswers);
  EXPECT_FALSE(InstallerDB_Init(kConfigDir, true));
  EXPECT_TRUE(InstallerDB_Init(kConfigDir, true));
  InstallerDB_DeInit();
}

TEST(InstallerDBInit, OpensAgainAfterDeInit) {
  Installation host;
  ASSERT_TRUE(host.Open());
  ASSERT_TRUE(SetAnswer("KEY", "value"));
  InstallerDB_DeInit();
  EXPECT_FALSE(InstallerDB_IsInitialized());
  ASSERT_TRUE(InstallerDB_Init(kConfigDir, false));
  EXPECT_EQ("value", Answer("KEY"));
}

TEST(InstallerDBInit, LetsTheFirstOfTwoAnswersWin) {
  Installation host("answer A 1\nanswer A 2\n");
  ASSERT_TRUE(host.Open());
  EXPECT_EQ("1", Answer("A"));
}

TEST(InstallerDBInit, LetsTheSecondAnswerWinAfterARemoval) {
  Installation host("answer A 1\nremove_answer A\nanswer A 2\n");
  ASSERT_TRUE(host.Open());
  EXPECT_EQ("2", Answer("A"));
}

TEST(InstallerDBInit, DropsALastLineWithoutNewline) {
  Installation host("answer A 1\nanswer B 2");
  ASSERT_TRUE(host.Open());
  EXPECT_EQ("1", Answer("A"));
  EXPECT_EQ("(null)", Answer("B"));
}

TEST(InstallerDBInit, EndsAPathAtItsFirstBlankButARemovalAtItsLinesEnd) {
  Installation host(
      "file /a b 5\nfile /x y\nremove_file /x y\nanswer  K   v  w\nanswer L v\nremove_answer L v\n"
      "answer T a\tb\n");
  ASSERT_TRUE(host.Open());
  EXPECT_TRUE(InstallerDB_IsFileKnown("/a"));
  EXPECT_FALSE(InstallerDB_IsFileKnown("/a b"));
  EXPECT_TRUE(InstallerDB_IsFileKnown("/x")) << "the removal was of '/x y'";
  EXPECT_EQ("v", Answer("K"));
  EXPECT_EQ("v", Answer("L")) << "the removal was of 'L v'";
  EXPECT_EQ("a\tb", Answer("T")) << "only a blank ends a field";
}

TEST(InstallerDBInit, ReplaysRemovals) {
  Installation host(
      "file /a 1\nremove_file /a\nanswer A 1\nremove_answer A\nremove_file /no\nremove_answer NO\n");
  ASSERT_TRUE(host.Open());
  EXPECT_FALSE(InstallerDB_IsFileKnown("/a"));
  EXPECT_EQ("(null)", Answer("A"));
}

TEST(InstallerDBInit, TakesAnAnswerWithoutValueForAMissingOneThatStillStands) {
  Installation host("answer A\nanswer A \nanswer A 2\n");
  ASSERT_TRUE(host.Open());
  EXPECT_EQ("(null)", Answer("A"));
}

TEST(InstallerDBInit, IgnoresOtherLines) {
  Installation host(
      "file\nfile \nanswer\nanswer \nanswer  \n file /a\nFILE /b\nfiles /c\n# x\n\nanswer A 1\n");
  ASSERT_TRUE(host.Open());
  EXPECT_FALSE(InstallerDB_IsFileKnown("/a"));
  EXPECT_FALSE(InstallerDB_IsFileKnown(""));
  EXPECT_EQ("1", Answer("A"));
}

TEST(InstallerDBInit, KeepsTheCarriageReturnOfADosLine) {
  Installation host("answer A yes\r\nremove_answer LIBDIR\r\n");
  ASSERT_TRUE(host.Open());
  EXPECT_EQ("yes\r", Answer("A"));
  EXPECT_STREQ("/opt/ostrel/lib", InstallerDB_GetLibDir());
}

TEST(InstallerDBInit, TakesBytesOfAnyEncodingAndQuotes) {
  Installation host("answer \xc3\xa9 \"it's\"\nfile /\xff\xfe 1\n");
  ASSERT_TRUE(host.Open());
  EXPECT_EQ("\"it's\"", Answer("\xc3\xa9"));
  EXPECT_TRUE(InstallerDB_IsFileKnown("/\xff\xfe"));
}

TEST(InstallerDBInit, TakesVeryLongLines) {
  const std::string path = "/" + std::string(100000, 'p');
  Installation host("file " + path + " 7\n");
  ASSERT_TRUE(host.Open());
  EXPECT_TRUE(InstallerDB_IsFileKnown(path.c_str()));
}

TEST(InstallerDBInit, TakesABinaryTail) {
  Installation host("answer A 1\n" + std::string(5000, '\0') + "\nanswer B 2\n");
  ASSERT_TRUE(host.Open());
  EXPECT_EQ("1", Answer("A"));
}

TEST(InstallerDBInit, TakesAHundredMegabytes) {
  std::string lines;
  const std::string other = "# " + std::string(1000, 'x') + "\n";
  while (lines.size() < 100UL << 20) {
    lines += other;
  }
  Installation host(lines + "answer A 1\n");
  ASSERT_TRUE(host.Open());
  EXPECT_EQ("1", Answer("A"));
}

TEST(InstallerDBInit, RefusesAnEmptyJournal) {
  ExpectRefused("");
}

TEST(InstallerDBInit, RefusesAJournalOfNuls) {
  ExpectRefused(std::string(5000, '\0'));
}

TEST(InstallerDBInit, RefusesAJournalWithoutBinDir) {
  ExpectRefused("answer LIBDIR /l\nanswer INITSCRIPTSDIR /i\nanswer X 1\n");
}

TEST(InstallerDBInit, RefusesAJournalWithoutLibDir) {
  ExpectRefused("answer BINDIR /b\nanswer INITSCRIPTSDIR /i\nanswer LIBDIR\n");
}

TEST(InstallerDBInit, RefusesATruncatedJournal) {
  const std::string answers = kAnswers;
  ExpectRefused(answers.substr(0, answers.size() - 5));
}

TEST(InstallerDBInit, ReportsAMissingJournal) {
  Host host;
  ExpectCannotBeOpened(host, true);
}

TEST(InstallerDBInit, ReportsAJournalThatMayNotBeRead) {
  Host host;
  host.File(kJournal, kAnswers, 0).User(1234);
  ExpectCannotBeOpened(host, true);
}

TEST(InstallerDBInit, ReportsADirectoryThatIsToBeWritten) {
  Host host;
  host.Directory(kJournal);
  ExpectCannotBeOpened(host, false);
}

TEST(InstallerDBInit, RefusesADirectory) {
  Host host;
  host.Directory(kJournal);
  enginetest::Enter(host);
  EXPECT_FALSE(InstallerDB_Init(kConfigDir, true));
  InstallerDB_DeInit();
}

TEST(InstallerDBInit, ClosesTheJournalThatItRefuses) {
  Host host;
  host.File(kJournal, "answer BINDIR /b\n");
  enginetest::Enter(host);
  const int before = NextDescriptor();
  EXPECT_FALSE(InstallerDB_Init(kConfigDir, false));
  EXPECT_EQ(before, NextDescriptor());
  testhost::WriteFile(kJournal, "");
  EXPECT_FALSE(InstallerDB_Init(kConfigDir, false));
  EXPECT_EQ(before, NextDescriptor());
}

TEST(InstallerDBInit, KeepsOtherWritersOutWhileOpenForWriting) {
  Installation host;
  ASSERT_TRUE(host.Open());
  EXPECT_EQ(FILEIO_LOCK_FAILED, OtherWriter().Result());
  InstallerDB_DeInit();
  EXPECT_EQ(FILEIO_SUCCESS, OtherWriter().Result());
}

TEST(InstallerDBInit, ReportsAJournalThatAnotherWriterHolds) {
  Installation host;
  enginetest::Enter(host);
  const OtherWriter other;
  ASSERT_EQ(FILEIO_SUCCESS, other.Result());
  ExpectRefusedWithText(false);
}

TEST(InstallerDBInit, ReadsBesideAWriter) {
  Installation host;
  enginetest::Enter(host);
  const OtherWriter other;
  ASSERT_EQ(FILEIO_SUCCESS, other.Result());
  EXPECT_TRUE(InstallerDB_Init(kConfigDir, true));
}

TEST(InstallerDBInit, RefusesAJournalWithoutAnEnd) {
  Host host;
  host.Directory(kConfigDir);
  enginetest::Enter(host);
  ASSERT_EQ(0, mkfifo(kJournal, 0600));
  testing::internal::CaptureStderr();
  const int before = NextDescriptor();
  EXPECT_FALSE(InstallerDB_Init(kConfigDir, false));
  EXPECT_EQ(before, NextDescriptor());
  EXPECT_EQ("", testing::internal::GetCapturedStderr());
  EXPECT_FALSE(InstallerDB_IsInitialized());
}

TEST(InstallerDBDeathTest, StopsWhenAskedBeforeItIsOpen) {
  Host host;
  enginetest::Enter(host);
  EXPECT_EXIT(InstallerDB_GetAnswer("A"), testing::ExitedWithCode(255),
              "ASSERT lib/unixinstall/installerdb.cc:");
  EXPECT_EXIT(SetAnswer("A", "1"), testing::ExitedWithCode(255), "ASSERT lib/unixinstall/installerdb.cc:");
  EXPECT_EXIT(InstallerDB_RemoveAnswer("A"), testing::ExitedWithCode(255),
              "ASSERT lib/unixinstall/installerdb.cc:");
  EXPECT_EXIT(InstallerDB_IsFileKnown("A"), testing::ExitedWithCode(255),
              "ASSERT lib/unixinstall/installerdb.cc:");
  EXPECT_EXIT(InstallerDB_AddFile("A", 0), testing::ExitedWithCode(255),
              "ASSERT lib/unixinstall/installerdb.cc:");
  EXPECT_EXIT(InstallerDB_RemoveFile("A"), testing::ExitedWithCode(255),
              "ASSERT lib/unixinstall/installerdb.cc:");
}

TEST(InstallerDBDeInit, IsHarmlessWhenNothingIsOpen) {
  InstallerDB_DeInit();
  InstallerDB_DeInit();
  EXPECT_FALSE(InstallerDB_IsInitialized());
}

TEST(InstallerDBSetAnswer, AppendsALine) {
  Installation host;
  ASSERT_TRUE(host.Open());
  EXPECT_TRUE(SetAnswer("A", "1"));
  EXPECT_EQ("1", Answer("A"));
  EXPECT_EQ("answer A 1\n", Added());
}

TEST(InstallerDBSetAnswer, WritesTheRemovalOfAnOldAnswerFirst) {
  Installation host("answer A 1\n");
  ASSERT_TRUE(host.Open());
  EXPECT_TRUE(SetAnswer("A", "2"));
  EXPECT_EQ("2", Answer("A"));
  EXPECT_EQ("answer A 1\nremove_answer A\nanswer A 2\n", Added());
}

TEST(InstallerDBSetAnswer, FailsForAKeyThatStandsWithoutValue) {
  Installation host("answer A\n");
  ASSERT_TRUE(host.Open());
  EXPECT_FALSE(SetAnswer("A", "2"));
  EXPECT_EQ("(null)", Answer("A"));
  EXPECT_EQ("answer A\nanswer A 2\n", Added());
}

TEST(InstallerDBRemoveAnswer, AppendsALineForAKnownKeyOnly) {
  Installation host("answer A 1\n");
  ASSERT_TRUE(host.Open());
  EXPECT_FALSE(InstallerDB_RemoveAnswer("B"));
  EXPECT_TRUE(InstallerDB_RemoveAnswer("A"));
  EXPECT_FALSE(InstallerDB_RemoveAnswer("A"));
  EXPECT_EQ("answer A 1\nremove_answer A\n", Added());
  EXPECT_EQ("(null)", Answer("A"));
}

TEST(InstallerDBAddFile, RecordsTheTimeWhenAsked) {
  Installation host;
  ASSERT_TRUE(host.Open());
  testhost::WriteFile("/tmp/f", "x");
  EXPECT_TRUE(InstallerDB_AddFile("/tmp/f", INSTALLERDB_TIMESTAMP));
  EXPECT_EQ("file /tmp/f " + std::to_string(ModTime("/tmp/f")) + "\n", Added());
  EXPECT_TRUE(InstallerDB_IsFileKnown("/tmp/f"));
}

TEST(InstallerDBAddFile, RecordsNoTimeOtherwise) {
  Installation host;
  ASSERT_TRUE(host.Open());
  EXPECT_TRUE(InstallerDB_AddFile("/no/such", 0));
  EXPECT_TRUE(InstallerDB_AddFile("/no/such too", 2)) << "only bit 0 asks for the time";
  EXPECT_EQ("file /no/such\nfile /no/such too\n", Added());
}

TEST(InstallerDBAddFile, WritesBytesOfAnyEncoding) {
  Installation host;
  ASSERT_TRUE(host.Open());
  EXPECT_TRUE(InstallerDB_AddFile("/\xff\xfe%s", 0));
  EXPECT_EQ("file /\xff\xfe%s\n", Added());
}

TEST(InstallerDBAddFile, FailsWithoutATime) {
  Installation host("file /no/such\n");
  ASSERT_TRUE(host.Open());
  EXPECT_FALSE(InstallerDB_AddFile("/no/such", INSTALLERDB_TIMESTAMP));
  EXPECT_EQ("file /no/such\nremove_file /no/such\n", Added()) << "the removal comes first";
  EXPECT_FALSE(InstallerDB_IsFileKnown("/no/such"));
}

TEST(InstallerDBAddFile, WritesTheRemovalOfAKnownPathFirst) {
  Installation host("file /a 5\n");
  ASSERT_TRUE(host.Open());
  EXPECT_TRUE(InstallerDB_AddFile("/a", 0));
  EXPECT_EQ("file /a 5\nremove_file /a\nfile /a\n", Added());
}

TEST(InstallerDBRemoveFile, AppendsALineForAKnownPathOnly) {
  Installation host("file /a\n");
  ASSERT_TRUE(host.Open());
  EXPECT_FALSE(InstallerDB_RemoveFile("/b"));
  EXPECT_TRUE(InstallerDB_RemoveFile("/a"));
  EXPECT_EQ("file /a\nremove_file /a\n", Added());
}

TEST(InstallerDBWriting, FailsOnAJournalOpenForReading) {
  Installation host("answer A 1\nfile /a\n");
  ASSERT_TRUE(host.Open(true));
  const std::string before = testhost::ReadFile(kJournal);
  EXPECT_FALSE(SetAnswer("B", "1"));
  EXPECT_EQ("(null)", Answer("B"));
  EXPECT_FALSE(InstallerDB_RemoveAnswer("A"));
  EXPECT_EQ("(null)", Answer("A")) << "the table has changed all the same";
  EXPECT_FALSE(InstallerDB_RemoveFile("/a"));
  EXPECT_FALSE(InstallerDB_IsFileKnown("/a"));
  EXPECT_FALSE(InstallerDB_AddFile("/b", 0));
  EXPECT_TRUE(InstallerDB_IsFileKnown("/b"));
  EXPECT_EQ(before, testhost::ReadFile(kJournal));
}

TEST(InstallerDBWriting, GivesALineThatBreaksOffItsEndFirst) {
  Installation host("answer A 1\nfile /half");
  ASSERT_TRUE(host.Open());
  EXPECT_TRUE(InstallerDB_AddFile("/b", 0));
  EXPECT_EQ("answer A 1\nfile /half\nfile /b\n", Added());
  EXPECT_TRUE(InstallerDB_RemoveAnswer("A"));
  EXPECT_EQ("answer A 1\nfile /half\nfile /b\nremove_answer A\n", Added()) << "it breaks off only once";
  InstallerDB_DeInit();
  ASSERT_TRUE(InstallerDB_Init(kConfigDir, true));
  EXPECT_TRUE(InstallerDB_IsFileKnown("/b"));
  EXPECT_FALSE(InstallerDB_IsFileKnown("/halffile")) << "no record is swallowed by the broken one";
  EXPECT_EQ("(null)", Answer("A"));
}

TEST(InstallerDBWriting, EndsABrokenOffLineBehindWhateverComesFirst) {
  const struct {
    bool (*write)();
    const char *expected;
  } rows[] = {{[] { return SetAnswer("B", "2"); }, "answer B 2\n"},
              {[] { return SetAnswer("A", "2"); }, "remove_answer A\nanswer A 2\n"},
              {[] { return InstallerDB_RemoveAnswer("A"); }, "remove_answer A\n"},
              {[] { return InstallerDB_RemoveFile("/a"); }, "remove_file /a\n"},
              {[] { return InstallerDB_AddFile("/a", 0); }, "remove_file /a\nfile /a\n"}};
  const std::string start = "answer A 1\nfile /a\nremove_file /x";
  Installation host;
  enginetest::Enter(host);
  for (const auto &row : rows) {
    testhost::WriteFile(kJournal, kAnswers + start);
    ASSERT_TRUE(InstallerDB_Init(kConfigDir, false));
    EXPECT_TRUE(row.write()) << row.expected;
    EXPECT_EQ(start + "\n" + row.expected, Added());
    InstallerDB_DeInit();
  }
}

TEST(InstallerDBWriting, LeavesAJournalThatBreaksOffAloneUntilARecordComes) {
  const std::string lines = "answer A 1\nfile /half";
  Installation host(lines);
  ASSERT_TRUE(host.Open());
  EXPECT_FALSE(InstallerDB_RemoveFile("/half")) << "it isn't known";
  InstallerDB_DeInit();
  EXPECT_EQ(lines, Added());
  ASSERT_TRUE(InstallerDB_Init(kConfigDir, true));
  EXPECT_FALSE(InstallerDB_AddFile("/b", 0));
  EXPECT_EQ(lines, Added()) << "nothing is written through a handle for reading";
}

TEST(InstallerDBWriting, LosesNothingOnAFullDisk) {
  Host host;
  host.Directory(kConfigDir);
  enginetest::Enter(host);
  ASSERT_EQ(0, mount("tmpfs", kConfigDir, "tmpfs", 0, "size=64k"));
  constexpr size_t kPage = 4096;
  constexpr size_t kRoom = 10;
  std::string before = kAnswers;
  before += "# " + std::string(kPage - kRoom - before.size() - 3, 'x') + "\n";
  testhost::WriteFile(kJournal, before);
  ASSERT_TRUE(InstallerDB_Init(kConfigDir, false));
  FillDisk();
  EXPECT_FALSE(InstallerDB_AddFile("/a/path/longer/than/the/room", 0));
  EXPECT_EQ(before, testhost::ReadFile(kJournal)) << "half a line would swallow the next one";
  EXPECT_TRUE(InstallerDB_AddFile("/b", 0));
  EXPECT_EQ(before + "file /b\n", testhost::ReadFile(kJournal));
  InstallerDB_DeInit();
}

TEST(InstallerDBRemoveInstalledFile, DeletesAKnownFile) {
  Installation host("file /tmp/f 1\n");
  host.File("/tmp/f", "x").File("/tmp/g", "x");
  ASSERT_TRUE(host.Open());
  EXPECT_TRUE(InstallerDB_RemoveInstalledFile("/tmp/f"));
  EXPECT_FALSE(std::filesystem::exists("/tmp/f"));
  EXPECT_EQ("file /tmp/f 1\nremove_file /tmp/f\n", Added());
  EXPECT_FALSE(InstallerDB_RemoveInstalledFile("/tmp/g")) << "not known";
  EXPECT_TRUE(std::filesystem::exists("/tmp/g"));
}

TEST(InstallerDBRemoveInstalledFile, FailsForAFileThatIsGoneOrStays) {
  Installation host("file /tmp/f 1\nfile /tmp/d\nfile /tmp/l\n");
  host.Directory("/tmp/d").SymLink("/tmp/l", "/tmp/nowhere");
  ASSERT_TRUE(host.Open());
  EXPECT_FALSE(InstallerDB_RemoveInstalledFile("/tmp/f"));
  EXPECT_FALSE(InstallerDB_RemoveInstalledFile("/tmp/d"));
  EXPECT_FALSE(InstallerDB_RemoveInstalledFile("/tmp/l")) << "the file that it names doesn't exist";
  EXPECT_TRUE(std::filesystem::is_symlink("/tmp/l"));
  EXPECT_EQ("file /tmp/f 1\nfile /tmp/d\nfile /tmp/l\n", Added());
}

TEST(InstallerDBCopyFile, CopiesWithModeAndTime) {
  Installation host;
  host.File("/tmp/source", "content", 0600);
  ASSERT_TRUE(host.Open());
  EXPECT_TRUE(InstallerDB_CopyFile("/tmp/source", "/tmp/copy", INSTALLERDB_TIMESTAMP));
  EXPECT_EQ("content", testhost::ReadFile("/tmp/copy"));
  struct stat data = {};
  ASSERT_EQ(0, stat("/tmp/copy", &data));
  EXPECT_EQ(0644U, data.st_mode & 07777U);
  EXPECT_EQ("file /tmp/copy " + std::to_string(ModTime("/tmp/copy")) + "\n", Added());
}

TEST(InstallerDBCopyFile, ReplacesAnUnknownFileWithoutARemovalLine) {
  Installation host;
  host.File("/tmp/source", "new").File("/tmp/other", "old").SymLink("/tmp/copy", "/tmp/other");
  ASSERT_TRUE(host.Open());
  EXPECT_TRUE(InstallerDB_CopyFile("/tmp/source", "/tmp/copy", 0));
  EXPECT_EQ("new", testhost::ReadFile("/tmp/copy"));
  EXPECT_EQ("old", testhost::ReadFile("/tmp/other")) << "the link went, its target stays";
  EXPECT_EQ("file /tmp/copy\n", Added());
}

TEST(InstallerDBCopyFile, ReplacesAKnownFileWithARemovalLine) {
  Installation host("file /tmp/copy 5\n");
  host.File("/tmp/source", "new").File("/tmp/copy", "old");
  ASSERT_TRUE(host.Open());
  EXPECT_TRUE(InstallerDB_CopyFile("/tmp/source", "/tmp/copy", 0));
  EXPECT_EQ("new", testhost::ReadFile("/tmp/copy"));
  EXPECT_EQ("file /tmp/copy 5\nremove_file /tmp/copy\nfile /tmp/copy\n", Added());
}

TEST(InstallerDBCopyFile, FailsWithoutASource) {
  Installation host;
  ASSERT_TRUE(host.Open());
  EXPECT_FALSE(InstallerDB_CopyFile("/tmp/no-source", "/tmp/copy", 0));
  EXPECT_FALSE(std::filesystem::exists("/tmp/copy"));
  EXPECT_EQ("", Added());
}

TEST(InstallerDBCopyFile, HasRemovedAKnownFileWhenTheCopyFails) {
  Installation host("file /tmp/copy 5\n");
  host.File("/tmp/copy", "old");
  ASSERT_TRUE(host.Open());
  EXPECT_FALSE(InstallerDB_CopyFile("/tmp/no-source", "/tmp/copy", 0));
  EXPECT_FALSE(std::filesystem::exists("/tmp/copy"));
  EXPECT_FALSE(InstallerDB_IsFileKnown("/tmp/copy"));
  EXPECT_EQ("file /tmp/copy 5\nremove_file /tmp/copy\n", Added());
}

TEST(InstallerDBCopyFile, FailsAfterTheCopyOnAJournalOpenForReading) {
  Installation host;
  host.File("/tmp/source", "new");
  ASSERT_TRUE(host.Open(true));
  EXPECT_FALSE(InstallerDB_CopyFile("/tmp/source", "/tmp/copy", 0));
  EXPECT_EQ("new", testhost::ReadFile("/tmp/copy"));
  EXPECT_EQ("", Added());
}

TEST(InstallerDBLink, MakesASymbolicLinkWithoutTime) {
  Installation host;
  host.File("/tmp/target", "x");
  ASSERT_TRUE(host.Open());
  EXPECT_TRUE(InstallerDB_Link(true, "/tmp/target", "/tmp/link"));
  EXPECT_EQ("/tmp/target", std::filesystem::read_symlink("/tmp/link"));
  EXPECT_EQ("file /tmp/link\n", Added());
}

TEST(InstallerDBLink, MakesAHardLink) {
  Installation host;
  host.File("/tmp/target", "x");
  ASSERT_TRUE(host.Open());
  EXPECT_TRUE(InstallerDB_Link(false, "/tmp/target", "/tmp/link"));
  EXPECT_TRUE(std::filesystem::equivalent("/tmp/target", "/tmp/link"));
  EXPECT_FALSE(std::filesystem::is_symlink("/tmp/link"));
}

TEST(InstallerDBLink, ReplacesAKnownLinkAndKeepsItsTarget) {
  Installation host;
  host.File("/tmp/target", "x");
  ASSERT_TRUE(host.Open());
  ASSERT_TRUE(InstallerDB_Link(true, "/tmp/target", "/tmp/link"));
  EXPECT_TRUE(InstallerDB_Link(true, "/tmp/target", "/tmp/link"));
  EXPECT_EQ("x", testhost::ReadFile("/tmp/target"));
  EXPECT_EQ("file /tmp/link\nremove_file /tmp/link\nfile /tmp/link\n", Added());
}

TEST(InstallerDBLink, ReplacesAnUnknownFileWithoutARemovalLine) {
  Installation host;
  host.File("/tmp/link", "old").File("/tmp/target", "x");
  ASSERT_TRUE(host.Open());
  EXPECT_TRUE(InstallerDB_Link(true, "/tmp/target", "/tmp/link"));
  EXPECT_EQ("x", testhost::ReadFile("/tmp/link"));
  EXPECT_EQ("file /tmp/link\n", Added());
}

TEST(InstallerDBLink, ReplacesAKnownLinkWhoseTargetIsGone) {
  Installation host("file /tmp/link\n");
  host.SymLink("/tmp/link", "/tmp/nowhere").File("/tmp/target", "x");
  ASSERT_TRUE(host.Open());
  EXPECT_TRUE(InstallerDB_Link(true, "/tmp/target", "/tmp/link"));
  EXPECT_EQ("x", testhost::ReadFile("/tmp/link"));
  EXPECT_EQ("file /tmp/link\nremove_file /tmp/link\nfile /tmp/link\n", Added());
}

TEST(InstallerDBLink, HasRemovedAKnownFileWhenTheLinkFails) {
  Installation host("file /tmp/link 5\n");
  host.File("/tmp/link", "old");
  ASSERT_TRUE(host.Open());
  EXPECT_FALSE(InstallerDB_Link(false, "/tmp/no-target", "/tmp/link"));
  EXPECT_FALSE(std::filesystem::exists("/tmp/link"));
  EXPECT_EQ("file /tmp/link 5\nremove_file /tmp/link\n", Added());
}

TEST(InstallerDBLink, FailsWhereNoLinkCanBe) {
  Installation host;
  ASSERT_TRUE(host.Open());
  EXPECT_FALSE(InstallerDB_Link(true, "/tmp/target", "/no/directory/link"));
  EXPECT_FALSE(InstallerDB_Link(false, "/tmp/no-target", "/tmp/link"));
  EXPECT_EQ("", Added());
}

TEST(InstallerDBBackupFile, TakesTheFirstFreeName) {
  Installation host;
  host.File("/tmp/x", "now").File("/tmp/x.old.0", "then").File("/tmp/x.old.2", "then");
  ASSERT_TRUE(host.Open());
  EXPECT_TRUE(InstallerDB_BackupFile("/tmp/x"));
  EXPECT_EQ("now", testhost::ReadFile("/tmp/x.old.1"));
  EXPECT_EQ("then", testhost::ReadFile("/tmp/x.old.0"));
  EXPECT_EQ("", Added());
}

TEST(InstallerDBBackupFile, TakesTheHundredthName) {
  Installation host;
  host.File("/tmp/x", "now");
  for (int n = 0; n < 99; ++n) {
    host.File("/tmp/x.old." + std::to_string(n), "then");
  }
  ASSERT_TRUE(host.Open());
  EXPECT_TRUE(InstallerDB_BackupFile("/tmp/x"));
  EXPECT_EQ("now", testhost::ReadFile("/tmp/x.old.99"));
}

TEST(InstallerDBBackupFile, FailsWithoutAFile) {
  Installation host;
  ASSERT_TRUE(host.Open());
  EXPECT_FALSE(InstallerDB_BackupFile("/tmp/no-such"));
  EXPECT_FALSE(std::filesystem::exists("/tmp/no-such.old.0"));
}

TEST(InstallerDBBackupFile, GivesUpAfterAHundredNames) {
  Installation host;
  host.File("/tmp/x", "now");
  for (int n = 0; n < 100; ++n) {
    host.File("/tmp/x.old." + std::to_string(n), "then");
  }
  ASSERT_TRUE(host.Open());
  EXPECT_FALSE(InstallerDB_BackupFile("/tmp/x"));
  EXPECT_EQ("then", testhost::ReadFile("/tmp/x.old.99"));
  EXPECT_FALSE(std::filesystem::exists("/tmp/x.old.100"));
}

TEST(InstallerDBRunInitScript, RunsTheQuotedScriptWithItsAction) {
  Installation host;
  host.File("/etc/init.d/it's here", "#!/bin/sh\necho \"$#:$1\" >>/tmp/called\n[ \"$1\" = start ]\n", 0755);
  ASSERT_TRUE(host.Open());
  EXPECT_TRUE(InstallerDB_RunInitScript("it's here", INSTALLERDB_SCRIPT_START));
  EXPECT_FALSE(InstallerDB_RunInitScript("it's here", INSTALLERDB_SCRIPT_STOP));
  EXPECT_EQ("1:start\n1:stop\n", testhost::ReadFile("/tmp/called"));
}

TEST(InstallerDBRunInitScript, DoesNothingWhenServicesAreSkipped) {
  Installation host;
  ASSERT_TRUE(host.Open());
  setenv("OSTREL_SKIP_SERVICES", "", 1);
  EXPECT_TRUE(InstallerDB_RunInitScript("no-such-script", INSTALLERDB_SCRIPT_START));
  EXPECT_TRUE(enginetest::Logged("Skipping starting/stopping services"));
}

TEST(InstallerDBRunInitScript, FailsWithoutInitDir) {
  Installation host;
  ASSERT_TRUE(host.Open());
  ASSERT_TRUE(InstallerDB_RemoveAnswer("INITSCRIPTSDIR"));
  EXPECT_FALSE(InstallerDB_RunInitScript("script", INSTALLERDB_SCRIPT_START));
  EXPECT_TRUE(enginetest::Logged("Unable to lookup initdir"));
}

TEST(InstallerDBHasRequiredAnswers, NeedsAllThree) {
  Installation host;
  ASSERT_TRUE(host.Open());
  for (const char *key : {"BINDIR", "LIBDIR", "INITSCRIPTSDIR"}) {
    EXPECT_TRUE(InstallerDB_HasRequiredAnswers());
    ASSERT_TRUE(InstallerDB_RemoveAnswer(key));
    EXPECT_FALSE(InstallerDB_HasRequiredAnswers()) << key;
    ASSERT_TRUE(SetAnswer(key, "/x"));
  }
}

TEST(InstallerDBIsDspInstall, LooksForTheMark) {
  Host host;
  host.File("/usr/lib/ostrel-tools/dsp", "");
  EXPECT_FALSE(InstallerDB_IsDspInstall());
  host.Enter();
  EXPECT_TRUE(InstallerDB_IsDspInstall());
  ASSERT_TRUE(std::filesystem::remove("/usr/lib/ostrel-tools/dsp"));
  EXPECT_FALSE(InstallerDB_IsDspInstall());
}
