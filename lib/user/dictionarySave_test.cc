#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "allocations.h"
#include "dictType.h"
#include "dictionaryInt.h"
#include "dictionaryTestInt.h"
#include "systemCalls.h"

namespace {

using namespace std::string_literals;
using dictionarytest::kPath;

class DictionarySave : public dictionarytest::DictionaryHost {
 protected:
  void ExpectFails(const char *path, const std::string &messages) {
    EXPECT_FALSE(Dictionary_Write(Dict(), path)) << path;
    EXPECT_EQ(Messages(), messages) << path;
  }
};

TEST_F(DictionarySave, GivesTheEncodingAloneForAnEmptyDictionary) {
  EXPECT_EQ(Saved(), ".encoding = \"UTF-8\"\n");
  EXPECT_TRUE(Dictionary_Write(Dict(), kPath));
  EXPECT_EQ(testhost::ReadFile(kPath), ".encoding = \"UTF-8\"\n");
}

TEST_F(DictionarySave, KeepsEachLineAsItWas) {
  const std::string lines = "\n  a\t=  \"x\" # note\n\t# indented\nB=|zz\n \n\n";
  EXPECT_EQ(LoadedAndSaved("# lead\n#\n" + lines), "# lead\n#\n.encoding = \"UTF-8\"\n" + lines);
}

TEST_F(DictionarySave, PutsTheEncodingBehindTheLeadingComments) {
  EXPECT_EQ(LoadedAndSaved("# 1\n# 2\na = 1\n# 3\nconfig.encoding = utf8\n# 4\n"),
            "# 1\n# 2\n.encoding = \"UTF-8\"\na = 1\n# 3\n# 4\n");
  // A comment leads only from the first byte of its line on.
  EXPECT_EQ(LoadedAndSaved(" # 1\n# 2\n"), ".encoding = \"UTF-8\"\n # 1\n# 2\n");
  EXPECT_EQ(LoadedAndSaved("\n# 1\n"), ".encoding = \"UTF-8\"\n\n# 1\n");
}

TEST_F(DictionarySave, WritesAChangedLineAnewAndNoOther) {
  EXPECT_TRUE(Load("a = \"x\" # note\n b = 2 # note\n"));
  Dict_SetString(Dict(), "y", "A");
  EXPECT_EQ(Saved(), ".encoding = \"UTF-8\"\na = \"y\"\n b = 2 # note\n");
}

TEST_F(DictionarySave, PutsNewEntriesBehindTheLines) {
  EXPECT_TRUE(Load("b = 1\n# last\n"));
  Dict_SetLong(Dict(), 2, "c");
  EXPECT_EQ(Dict_GetLong(Dict(), 7, "default"), 7);
  Dict_SetLong(Dict(), 3, "a");
  EXPECT_EQ(Saved(), ".encoding = \"UTF-8\"\nb = 1\n# last\nc = \"2\"\na = \"3\"\n");
  EXPECT_EQ(Saved(), ".encoding = \"UTF-8\"\nb = 1\n# last\nc = \"2\"\na = \"3\"\n");
}

TEST_F(DictionarySave, PutsNewHeaderEntriesBeforeTheLines) {
  EXPECT_TRUE(Load("# lead\na = 1\n"));
  const int32_t value = 7;
  Dictionary_Set(Dict(), &value, DICT_LONG | DICT_FLAG_HEADER, "h");
  Dictionary_Set(Dict(), &value, DICT_LONG | DICT_FLAG_HEADER, "a");
  EXPECT_EQ(Saved(), "# lead\n.encoding = \"UTF-8\"\nh = \"7\"\na = \"7\"\n");
}

TEST_F(DictionarySave, EscapesWhatItMust) {
  Dict_SetString(Dict(), "1\n2|3\"4\t5\x7F\xC3\xA9", "a");
  EXPECT_EQ(Saved(), ".encoding = \"UTF-8\"\na = \"1|0A2|7C3|224\t5|7F\xC3\xA9\"\n");
}

TEST_F(DictionarySave, KeepsTheTextOfAModifiedDefault) {
  EXPECT_TRUE(Load("a = 1 # note\n"));
  Dict_SetLong(Dict(), 2, "a");
  DictionaryFindVisible(Dict(), "a", 0)->isDefault = true;
  EXPECT_EQ(Saved(), ".encoding = \"UTF-8\"\na = 1 # note\n");
}

TEST_F(DictionarySave, StopsTheProgramForALeadingCommentWithAnEntry) {
  EXPECT_TRUE(Load("# note\na = 1\n"));
  (*Dict()->lines.begin())->entry = *Dict()->entries.begin();
  EXPECT_EXIT(Saved(), dictionarytest::kPanics, dictionarytest::AssertIn("dictionarySave"));
  (*Dict()->lines.begin())->entry = nullptr;
}

TEST_F(DictionarySave, StopsTheProgramForALineThatIsLost) {
  EXPECT_TRUE(Load("a = 1\n"));
  (*Dict()->lines.begin())->entry = nullptr;
  EXPECT_EXIT(Saved(), dictionarytest::kPanics, dictionarytest::AssertIn("dictionarySave"));
  (*Dict()->lines.begin())->entry = *Dict()->entries.begin();
}

TEST_F(DictionarySave, WritesInPlace) {
  testhost::WriteFile(kPath, std::string(10000, 'x'), 0640);
  struct stat before {};
  ASSERT_EQ(stat(kPath, &before), 0);
  Dict_SetLong(Dict(), 1, "a");
  EXPECT_TRUE(Dictionary_Write(Dict(), kPath));
  struct stat after {};
  ASSERT_EQ(stat(kPath, &after), 0);
  EXPECT_EQ(after.st_ino, before.st_ino);
  EXPECT_EQ(after.st_mode & 07777, 0640U);
  EXPECT_EQ(testhost::ReadFile(kPath), ".encoding = \"UTF-8\"\na = \"1\"\n");
  EXPECT_FALSE(Msg_Present());
}

TEST_F(DictionarySave, SyncsWhatItWrites) {
  testhost::SystemCalls calls({SYS_fsync});
  EXPECT_TRUE(Dictionary_Write(Dict(), kPath));
  EXPECT_EQ(calls.Count(SYS_fsync), 1U);
}

TEST_F(DictionarySave, TellsWhyItCannotOpen) {
  ExpectFails("/t/none/file",
              "[msg.dictionary.open] Cannot open configuration file \"/t/none/file\": No such file "
              "or directory.\n");
  ExpectFails("/t", "[msg.dictionary.open] Cannot open configuration file \"/t\": Is a directory.\n");
  ExpectFails(("/t/" + std::string(300, 'x')).c_str(), "[msg.dictionary.nameTooLong] File name too long");
}

TEST_F(DictionarySave, TellsThatItMayNot) {
  testhost::SystemCalls calls({SYS_openat});
  calls.Fail(SYS_openat, EPERM, {.count = 1});
  const bool written = Dictionary_Write(Dict(), kPath);
  calls.Clear();
  EXPECT_FALSE(written);
  EXPECT_EQ(
      Messages(),
      "[msg.dictionary.permissions] Access to \"/t/file\" failed due to file system permissions issues\n");
}

TEST(DictionarySaveAsUser, TellsOfPermissionsThatAreMissing) {
  testhost::Host host;
  host.Directory("/t", 0755).User(4321);
  host.Enter();
  const OwnedDictionary dict(Dictionary_Create());
  EXPECT_FALSE(Dictionary_Write(dict.get(), kPath));
  testing::internal::CaptureStderr();
  Msg_Post(3, MSGID(test.end) "End.\n");
  EXPECT_NE(testing::internal::GetCapturedStderr().find(
                "Access to \"/t/file\" failed due to file system permissions issues\n"),
            std::string::npos);
}

TEST_F(DictionarySave, TellsOfAReadOnlyFileSystem) {
  ASSERT_EQ(mount("t", "/t", "tmpfs", MS_RDONLY, nullptr), 0);
  ExpectFails(
      kPath,
      "[msg.dictionary.permissions] Access to \"/t/file\" failed due to file system permissions issues\n");
}

TEST_F(DictionarySave, TellsThatItCannotWriteAndSyncsNothing) {
  Dict_SetString(Dict(), std::string(100'000, 'x').c_str(), "a");
  const int fd = testhost::NextDescriptor();
  testhost::SystemCalls calls({SYS_write, SYS_fsync});
  calls.Fail(SYS_write, EDQUOT, {.from = 0, .count = 1, .first = static_cast<uint32_t>(fd)});
  const bool written = Dictionary_Write(Dict(), kPath);
  calls.Clear();
  EXPECT_FALSE(written);
  EXPECT_EQ(calls.Count(SYS_fsync), 0U);
  EXPECT_EQ(Messages(),
            "[msg.dictionary.write] An error occurred while writing configuration file \"/t/file\": "
            "Disk quota exceeded.\n");
}

TEST_F(DictionarySave, TakesAFailedFlushForASuccess) {
  const int fd = testhost::NextDescriptor();
  testhost::SystemCalls calls({SYS_write, SYS_fsync});
  calls.Fail(SYS_write, EDQUOT, {.from = 0, .count = 1, .first = static_cast<uint32_t>(fd)});
  const bool written = Dictionary_Write(Dict(), kPath);
  calls.Clear();
  EXPECT_TRUE(written);
  EXPECT_EQ(calls.Count(SYS_fsync), 1U);
  EXPECT_EQ(Messages(),
            "[msg.dictionary.flush] An error occurred while flushing configuration file \"/t/file\": "
            "Disk quota exceeded.\n");
}

TEST_F(DictionarySave, TakesAFailedSyncForASuccess) {
  testhost::FailSystemCall(SYS_fsync, EIO);
  EXPECT_TRUE(Dictionary_Write(Dict(), kPath));
  EXPECT_EQ(Messages(),
            "[msg.dictionary.sync] An error occurred while syncing configuration file \"/t/file\": "
            "Input/output error.\n");
  EXPECT_EQ(testhost::ReadFile(kPath), ".encoding = \"UTF-8\"\n");
}

TEST_F(DictionarySave, FailsWhenItCannotClose) {
  const int fd = testhost::NextDescriptor();
  testhost::FailSystemCall(SYS_close, EIO, static_cast<uint32_t>(fd));
  EXPECT_FALSE(Dictionary_Write(Dict(), kPath));
  EXPECT_EQ(Messages(),
            "[msg.dictionary.close] An error occurred while closing configuration file \"/t/file\": "
            "Input/output error.\n");
}

// What the disk doesn't take is lost here, and told, but a success.
TEST_F(DictionarySave, TellsOfAFullDisk) {
  EXPECT_TRUE(Dictionary_Write(Dict(), "/dev/full"));
  EXPECT_EQ(Messages(),
            "[msg.dictionary.flush] An error occurred while flushing configuration file "
            "\"/dev/full\": No space left on device.\n"
            "[msg.dictionary.sync] An error occurred while syncing configuration file "
            "\"/dev/full\": Invalid argument.\n");
}

TEST_F(DictionarySave, LeavesTheFileAloneWhenMemoryIsOut) {
  EXPECT_TRUE(Load("a = 1\nb = 2\n"));
  Dict_SetString(Dict(), "x", "a");
  const size_t count = testhost::CountAllocations([this] { Saved(); });
  ASSERT_GE(count, 3U);
  for (size_t i = 0; i < 3; i++) {
    bool written = true;
    {
      const testhost::AllocationFault fault(i);
      written = Dictionary_Write(Dict(), kPath);
    }
    EXPECT_FALSE(written) << i;
    EXPECT_EQ(Messages(),
              "[msg.dictionary.export] An error occurred while exporting a dictionary to a buffer.\n");
    EXPECT_EQ(testhost::ReadFile(kPath), "a = 1\nb = 2\n");
  }
  char *text = nullptr;
  size_t size = 7;
  const testhost::AllocationFault fault(0);
  EXPECT_FALSE(Dictionary_WriteToBuffer(Dict(), true, &text, &size));
  EXPECT_EQ(text, nullptr);
  EXPECT_EQ(size, 0U);
}

class DictionaryWriteFile : public DictionarySave {
 protected:
  void Open(uint32_t access) {
    testhost::WriteFile(kPath, std::string(1000, 'x'));
    FileIO_Invalidate(&file_);
    ASSERT_EQ(FileIO_Open(&file_, kPath, access, FILEIO_OPEN), FILEIO_SUCCESS);
  }
  void TearDown() override { EXPECT_FALSE(FileIO_Close(&file_)); }
  void ExpectMessages(bool written, const std::string &messages) {
    EXPECT_EQ(Dictionary_WriteFile(Dict(), &file_), written);
    EXPECT_EQ(Messages(), messages);
  }

  FileIODescriptor file_{};
};

TEST_F(DictionaryWriteFile, ReplacesTheContent) {
  Open(FILEIO_ACCESS_READ | FILEIO_ACCESS_WRITE);
  EXPECT_EQ(FileIO_Seek(&file_, 500, FILEIO_SEEK_BEGIN), 500);
  Dict_SetLong(Dict(), 1, "a");
  EXPECT_TRUE(Dictionary_WriteFile(Dict(), &file_));
  EXPECT_EQ(testhost::ReadFile(kPath), ".encoding = \"UTF-8\"\na = \"1\"\n");
  EXPECT_FALSE(Msg_Present());
  EXPECT_TRUE(Dictionary_LoadFile(Dict(), &file_));
  EXPECT_EQ(Entries(), "a=1;");
}

TEST_F(DictionaryWriteFile, TellsThatMemoryIsOut) {
  Open(FILEIO_ACCESS_WRITE);
  bool written = true;
  {
    const testhost::AllocationFault fault(0);
    written = Dictionary_WriteFile(Dict(), &file_);
  }
  EXPECT_FALSE(written);
  EXPECT_EQ(Messages(),
            "[msg.dictionary.writefile.export] An error occured while exporting a dictionary to a buffer.\n");
  EXPECT_EQ(testhost::ReadFile(kPath).size(), 1000U);
}

TEST_F(DictionaryWriteFile, TellsThatThereIsNoStream) {
  Open(FILEIO_ACCESS_WRITE);
  testhost::FailSystemCall(SYS_dup, EMFILE);
  testhost::FailSystemCall(SYS_fcntl, EMFILE, static_cast<uint32_t>(file_.posix));
  ExpectMessages(false,
                 "[msg.dictionary.writefile.descToStream] An error occurred while converting the descriptor "
                 "of file \"/t/file\" while it is open: Too many open files.\n");
}

TEST_F(DictionaryWriteFile, TellsThatItCannotSeek) {
  Open(FILEIO_ACCESS_WRITE);
  testhost::FailSystemCall(SYS_lseek, EIO, static_cast<uint32_t>(file_.posix));
  ExpectMessages(false,
                 "[msg.dictionary.writefile.seek] An error occurred while seeking within configuration file "
                 "\"/t/file\":Input/output error.\n");
}

TEST_F(DictionaryWriteFile, TellsThatItCannotTruncate) {
  Open(FILEIO_ACCESS_READ);
  ExpectMessages(false,
                 "[msg.dictionary.writefile.truncate] An error occurred while truncating configuration file "
                 "\"/t/file\":Invalid argument.\n");
  EXPECT_EQ(testhost::ReadFile(kPath).size(), 1000U);
}

TEST_F(DictionaryWriteFile, TellsThatItCannotWriteAndSyncsNothing) {
  Open(FILEIO_ACCESS_WRITE);
  Dict_SetString(Dict(), std::string(100'000, 'x').c_str(), "a");
  const int fd = testhost::NextDescriptor();
  testhost::SystemCalls calls({SYS_write, SYS_fsync});
  calls.Fail(SYS_write, EDQUOT, {.count = 1, .first = static_cast<uint32_t>(fd)});
  ExpectMessages(false,
                 "[msg.dictionary.writefile.write] An error occurred while writing configuration file "
                 "\"/t/file\": Disk quota exceeded.\n");
  EXPECT_EQ(calls.Count(SYS_fsync), 0U);
}

TEST_F(DictionaryWriteFile, TakesAFailedFlushForASuccess) {
  Open(FILEIO_ACCESS_WRITE);
  const int fd = testhost::NextDescriptor();
  testhost::SystemCalls calls({SYS_write, SYS_fsync});
  calls.Fail(SYS_write, EDQUOT, {.count = 1, .first = static_cast<uint32_t>(fd)});
  ExpectMessages(true,
                 "[msg.dictionary.writefile.flush] An error occurred while flushing configuration file "
                 "\"/t/file\": Disk quota exceeded.\n");
  EXPECT_EQ(calls.Count(SYS_fsync), 1U);
}

TEST_F(DictionaryWriteFile, TakesAFailedSyncForASuccess) {
  Open(FILEIO_ACCESS_WRITE);
  testhost::FailSystemCall(SYS_fsync, EIO);
  ExpectMessages(true,
                 "[msg.dictionary.writefile.sync] An error occurred while syncing configuration file "
                 "\"/t/file\": Input/output error.\n");
  EXPECT_EQ(testhost::ReadFile(kPath), ".encoding = \"UTF-8\"\n");
}

class DictionaryMakeExecutable : public DictionarySave {
 protected:
  static mode_t ModeAfter(mode_t mode) {
    testhost::WriteFile(kPath, "x");
    EXPECT_EQ(chmod(kPath, mode), 0);
    EXPECT_TRUE(Dictionary_MakeExecutable(kPath));
    struct stat data {};
    EXPECT_EQ(stat(kPath, &data), 0);
    return data.st_mode & 07777;
  }
};

TEST_F(DictionaryMakeExecutable, LetsThoseExecuteWhoMayRead) {
  EXPECT_EQ(ModeAfter(0644), 0755U);
  EXPECT_EQ(ModeAfter(0640), 0750U);
  EXPECT_EQ(ModeAfter(0600), 0700U);
  EXPECT_EQ(ModeAfter(0222), 0222U);
  EXPECT_EQ(ModeAfter(02604), 02705U);
  EXPECT_EQ(ModeAfter(0001), 0001U);
}

TEST_F(DictionaryMakeExecutable, LogsItsFailures) {
  EXPECT_FALSE(Dictionary_MakeExecutable("/t/none"));
  EXPECT_EQ(Logged(),
            "Dictionary_MakeExecutable: cannot stat configuration file /t/none: No such file or "
            "directory\n");
  testhost::WriteFile(kPath, "x");
  testhost::FailSystemCall(SYS_chmod, EPERM);
  EXPECT_FALSE(Dictionary_MakeExecutable(kPath));
  EXPECT_EQ(Logged(),
            "Dictionary_MakeExecutable: cannot change mode of file /t/file: Operation not permitted\n");
}

}  // namespace
