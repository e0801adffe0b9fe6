#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include "file.h"
#include "fileTestInt.h"
#include "msg.h"
#include "systemCalls.h"
#include "testhost.h"

namespace {

class FileCopy : public FileHost {};
class FileCopyAscii : public FileHostAscii {};

class FileCopyUser : public FileHost {
  void Describe(testhost::Host &host) override {
    host.File("/t/secret", "content", 0600).Directory("/t/open", 0777).User(kUser);
  }
};

mode_t ModeOf(const char *path) {
  struct stat data;
  return stat(path, &data) == 0 ? data.st_mode & 07777 : 0;
}

// A file opened for reading and writing; closed with its owner.
class Opened {
 public:
  explicit Opened(const char *path, uint32_t access = FILEIO_ACCESS_READ | FILEIO_ACCESS_WRITE) {
    FileIO_Invalidate(&file_);
    EXPECT_EQ(FileIO_Open(&file_, path, access, FILEIO_OPEN_CREATE), FILEIO_SUCCESS);
  }
  ~Opened() { FileIO_Close(&file_); }
  Opened(const Opened &) = delete;
  Opened &operator=(const Opened &) = delete;

  FileIODescriptor *Get() { return &file_; }

 private:
  FileIODescriptor file_;
};

std::string ManyBytes(size_t count) {
  std::string bytes;
  for (size_t number = 0; number < count; number++) {
    bytes += static_cast<char>(number * number / 7);
  }
  return bytes;
}

// ---- Content

TEST_F(FileCopy, TakesTheContent) {
  const std::string content = ManyBytes(100000);
  for (const size_t size : {0U, 1U, 8191U, 8192U, 8193U, 16384U, 100000U}) {
    testhost::WriteFile("/t/file", content.substr(0, size));
    EXPECT_TRUE(File_Copy("/t/file", "/t/copy", true));
    EXPECT_EQ(testhost::ReadFile("/t/copy"), content.substr(0, size)) << size;
    EXPECT_TRUE(File_CopyFromNameToName("/t/file", "/t/copy2", FILE_PROMPT_OVERWRITE));
    EXPECT_EQ(testhost::ReadFile("/t/copy2"), content.substr(0, size)) << size;
  }
  EXPECT_EQ(ModeOf("/t/copy"), 0600U);
  EXPECT_EQ(ModeOf("/t/copy2"), 0600U);
  EXPECT_FALSE(Msg_Present());
}

TEST_F(FileCopy, ReadsAndWritesBlocksOf8192Bytes) {
  testhost::WriteFile("/t/file", ManyBytes(20000));
  Opened source("/t/file");
  Opened destination("/t/copy");
  const testhost::SystemCalls calls({SYS_read, SYS_write});
  EXPECT_TRUE(File_CopyFromFdToFd(source.Get(), destination.Get()));
  EXPECT_EQ(calls.Count(SYS_read), 4U);
  EXPECT_EQ(calls.Count(SYS_write), 3U);
}

TEST_F(FileCopy, FromADescriptorTakesWhatIsLeftAndKeepsItOpen) {
  Opened source("/t/file");
  ASSERT_EQ(FileIO_Seek(source.Get(), 3, FILEIO_SEEK_BEGIN), 3);
  EXPECT_TRUE(File_CopyFromFd(source.Get(), "/t/copy", false));
  EXPECT_EQ(testhost::ReadFile("/t/copy"), "tent");
  ASSERT_EQ(FileIO_Seek(source.Get(), 5, FILEIO_SEEK_BEGIN), 5);
  EXPECT_TRUE(File_CopyFromFdToName(source.Get(), "/t/copy2", FILE_PROMPT_CANCEL));
  EXPECT_EQ(testhost::ReadFile("/t/copy2"), "nt");
  EXPECT_TRUE(FileIO_IsValid(source.Get()));
}

TEST_F(FileCopy, FromDescriptorToDescriptorGoesOnWhereBothStand) {
  testhost::WriteFile("/t/copy", "0123456789abcdef");
  Opened source("/t/file");
  Opened destination("/t/copy");
  ASSERT_EQ(FileIO_Seek(source.Get(), 3, FILEIO_SEEK_BEGIN), 3);
  ASSERT_EQ(FileIO_Seek(destination.Get(), 10, FILEIO_SEEK_BEGIN), 10);
  EXPECT_TRUE(File_CopyFromFdToFd(source.Get(), destination.Get()));
  EXPECT_EQ(testhost::ReadFile("/t/copy"), "0123456789tentef");
}

TEST_F(FileCopy, FromAPipeTakesAllUpToItsEnd) {
  ASSERT_EQ(mkfifo("/t/fifo", 0600), 0);
  const std::string content = ManyBytes(300000);
  std::thread writer([&content] { testhost::WriteFile("/t/fifo", content); });
  EXPECT_TRUE(File_Copy("/t/fifo", "/t/copy", false));
  writer.join();
  EXPECT_EQ(testhost::ReadFile("/t/copy"), content);
}

TEST_F(FileCopy, OfAnUnlinkedFile) {
  Opened source("/t/file");
  ASSERT_EQ(unlink("/t/file"), 0);
  EXPECT_TRUE(File_CopyFromFd(source.Get(), "/t/copy", false));
  EXPECT_EQ(testhost::ReadFile("/t/copy"), "content");
}

// ---- An existing destination

TEST_F(FileCopy, OverwritesOnlyWhenTold) {
  testhost::WriteFile("/t/copy", "a longer content that was there", 0640);
  EXPECT_FALSE(File_Copy("/t/file", "/t/copy", false));
  EXPECT_EQ(testhost::ReadFile("/t/copy"), "a longer content that was there");
  EXPECT_TRUE(
      HasMessage("[msg.File.CopyFromFdToName.create.failure] Unable to create a new '/t/copy' file: "
                 "The file already exists.\n\n"));
  EXPECT_TRUE(File_Copy("/t/file", "/t/copy", true));
  EXPECT_EQ(testhost::ReadFile("/t/copy"), "content");
  EXPECT_EQ(ModeOf("/t/copy"), 0640U);
}

TEST_F(FileCopy, OverwritesWhatALinkLeadsTo) {
  testhost::WriteFile("/t/target", "old");
  ASSERT_EQ(symlink("target", "/t/link"), 0);
  EXPECT_FALSE(File_Copy("/t/file", "/t/link", false));
  EXPECT_TRUE(File_Copy("/t/file", "/t/link", true));
  EXPECT_EQ(testhost::ReadFile("/t/target"), "content");
  EXPECT_TRUE(File_IsSymLink("/t/link"));
}

TEST_F(FileCopy, CancelledByAnExistingFileIsSilent) {
  testhost::WriteFile("/t/copy", "old");
  EXPECT_FALSE(File_CopyFromNameToName("/t/file", "/t/copy", FILE_PROMPT_CANCEL));
  EXPECT_FALSE(Msg_Present());
  EXPECT_EQ(testhost::ReadFile("/t/copy"), "old");
}

// What the user is asked, and the answers that are still to be given.
std::vector<std::string> questions;
std::vector<int> answers;

// Answers the questions of the rest of the test. The file is moved away by a retry.
void AnswerWith(const std::vector<int> &given) {
  answers = given;
  MsgCallback callback;
  Msg_GetCallback(&callback);
  callback.question = [](const char *const *names, int defaultAnswer, const char *id, const char *text) {
    std::string question = std::string(id) + "\n" + text;
    for (; *names != nullptr; names++) {
      question += std::string("[") + *names + "]";
    }
    questions.push_back(question + std::to_string(defaultAnswer));
    const int answer = answers.front();
    answers.erase(answers.begin());
    if (answer == FILE_PROMPT_RETRY && answers.empty()) {
      rename("/t/copy", "/t/moved");
    }
    return answer;
  };
  Msg_SetCallback(&callback);
}

constexpr char kQuestion[] =
    "msg.File.CreatePrompt.question\n"
    "The file '/t/copy' already exists.\n"
    "To overwrite the content of the file, select Overwrite.\n"
    "To retry the operation after you have moved the file to another location, select Retry.\n"
    "To cancel the operation, select Cancel.\n"
    "[Retry][Overwrite][Cancel]2";

TEST_F(FileCopy, AsksTheUserAndOverwrites) {
  testhost::WriteFile("/t/copy", "a longer content that was there");
  AnswerWith({FILE_PROMPT_OVERWRITE});
  EXPECT_TRUE(File_CopyFromNameToName("/t/file", "/t/copy", FILE_PROMPT_ASK));
  EXPECT_EQ(questions, std::vector<std::string>{kQuestion});
  EXPECT_EQ(testhost::ReadFile("/t/copy"), "content");
}

TEST_F(FileCopy, AsksTheUserAndIsCancelled) {
  for (const int prompt : {FILE_PROMPT_ASK, FILE_PROMPT_ASK_AGAIN}) {
    testhost::WriteFile("/t/copy", "old");
    AnswerWith({FILE_PROMPT_CANCEL});
    questions.clear();
    EXPECT_FALSE(File_CopyFromNameToName("/t/file", "/t/copy", prompt)) << prompt;
    EXPECT_EQ(questions, std::vector<std::string>{kQuestion});
    EXPECT_FALSE(Msg_Present());
    EXPECT_EQ(testhost::ReadFile("/t/copy"), "old");
  }
}

TEST_F(FileCopy, AsksTheUserAgainUntilARetrySucceeds) {
  testhost::WriteFile("/t/copy", "old");
  AnswerWith({FILE_PROMPT_RETRY, FILE_PROMPT_RETRY});
  EXPECT_TRUE(File_CopyFromNameToName("/t/file", "/t/copy", FILE_PROMPT_ASK_AGAIN));
  EXPECT_EQ(questions, (std::vector<std::string>{kQuestion, kQuestion}));
  EXPECT_EQ(testhost::ReadFile("/t/copy"), "content");
  EXPECT_EQ(testhost::ReadFile("/t/moved"), "old");
}

TEST_F(FileCopy, AnAnswerThatIsNoneStopsTheProgram) {
  testhost::WriteFile("/t/copy", "old");
  AnswerWith({3});
  EXPECT_EXIT(File_CopyFromNameToName("/t/file", "/t/copy", FILE_PROMPT_ASK), testing::ExitedWithCode(255),
              "NOT_REACHED lib/file/fileCopy.cc:");
}

TEST_F(FileCopy, TellsItsFailuresInTheWordsOfTheCatalogue) {
  testhost::WriteFile("/t/catalogue",
                      "msg.fileio.notfound = \"Nicht da\"\n"
                      "msg.File.Copy.open.failure = \"%2$s: %1$s.|0A\"\n");
  ASSERT_TRUE(Msg_LoadMessageFile("de", "/t/catalogue"));
  EXPECT_FALSE(File_Copy("/t/missing", "/t/copy", false));
  EXPECT_STREQ(Msg_GetMessagesAndReset(), "Nicht da: /t/missing.\n");
}

TEST_F(FileCopy, PromptOverwrites) {
  testhost::WriteFile("/t/copy", "a longer content that was there");
  EXPECT_TRUE(File_CopyFromNameToName("/t/file", "/t/copy", FILE_PROMPT_OVERWRITE));
  EXPECT_EQ(testhost::ReadFile("/t/copy"), "content");
}

TEST_F(FileCopy, PromptRetriesUntilTheFileIsGone) {
  testhost::WriteFile("/t/copy", "old");
  std::thread remover([] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    unlink("/t/copy");
  });
  EXPECT_TRUE(File_CopyFromNameToName("/t/file", "/t/copy", FILE_PROMPT_RETRY));
  remover.join();
  EXPECT_EQ(testhost::ReadFile("/t/copy"), "content");
}

TEST_F(FileCopy, CreatePromptAddsWritingToTheAccess) {
  FileIODescriptor file;
  FileIO_Invalidate(&file);
  ASSERT_EQ(File_CreatePrompt(&file, "/t/new", FILEIO_ACCESS_READ, FILE_PROMPT_CANCEL), FILEIO_SUCCESS);
  EXPECT_EQ(fcntl(file.posix, F_GETFL) & O_ACCMODE, O_RDWR);
  EXPECT_EQ(file.flags, uint32_t{FILEIO_ACCESS_READ | FILEIO_ACCESS_WRITE});
  FileIO_Close(&file);
  ASSERT_EQ(File_CreatePrompt(&file, "/t/file", 0, FILE_PROMPT_OVERWRITE), FILEIO_SUCCESS);
  EXPECT_EQ(fcntl(file.posix, F_GETFL) & O_ACCMODE, O_WRONLY);
  FileIO_Close(&file);
  EXPECT_EQ(File_GetSize("/t/file"), 0);
}

TEST_F(FileCopy, CreatePromptTellsWhatEndedIt) {
  FileIODescriptor file;
  FileIO_Invalidate(&file);
  EXPECT_EQ(File_CreatePrompt(&file, "/t/file", 0, FILE_PROMPT_CANCEL), FILEIO_CANCELLED);
  EXPECT_FALSE(FileIO_IsValid(&file));
  EXPECT_EQ(File_CreatePrompt(&file, "/t/missing/x", 0, FILE_PROMPT_RETRY), FILEIO_FILE_NOT_FOUND);
  EXPECT_EQ(File_CreatePrompt(&file, "/t/dir", 0, FILE_PROMPT_OVERWRITE), FILEIO_ERROR);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_EQ(File_CreatePrompt(&file, nullptr, 0, FILE_PROMPT_RETRY), FILEIO_ERROR);
  EXPECT_EQ(errno, EFAULT);
}

TEST_F(FileCopy, APromptThatIsNoneStopsTheProgram) {
  FileIODescriptor file;
  FileIO_Invalidate(&file);
  for (const int prompt : {3, -3}) {
    EXPECT_EXIT(File_CreatePrompt(&file, "/t/file", 0, prompt), testing::ExitedWithCode(255),
                "NOT_REACHED lib/file/fileCopy.cc:");
  }
}

// ---- Failures

TEST_F(FileCopy, OfAMissingSourceLeavesAMessage) {
  EXPECT_FALSE(File_CopyFromNameToName("/t/missing", "/t/copy", FILE_PROMPT_OVERWRITE));
  EXPECT_TRUE(
      HasMessage("[msg.File.CopyFromNameToName.open.failure] Unable to open the '/t/missing' file for "
                 "read access: Could not find the file.\n\n"));
  EXPECT_FALSE(File_Copy("/t/missing", "/t/copy", true));
  EXPECT_TRUE(
      HasMessage("[msg.File.Copy.open.failure] Unable to open the '/t/missing' file for read access: "
                 "Could not find the file.\n\n"));
  EXPECT_FALSE(IsThere("/t/copy"));
}

TEST_F(FileCopyUser, OfAnUnreadableFileLeavesAMessage) {
  EXPECT_FALSE(File_Copy("/t/secret", "/t/open/copy", true));
  EXPECT_TRUE(HasMessage("Insufficient permission to access the file.\n\n"));
  EXPECT_FALSE(IsThere("/t/open/copy"));
}

TEST_F(FileCopy, ToAMissingDirectoryLeavesAMessage) {
  EXPECT_FALSE(File_CopyFromNameToName("/t/file", "/t/missing/copy", FILE_PROMPT_CANCEL));
  EXPECT_TRUE(
      HasMessage("[msg.File.CopyFromFdToName.create.failure] Unable to create a new "
                 "'/t/missing/copy' file: Could not find the file.\n\n"));
}

TEST_F(FileCopy, WithoutANameFails) {
  EXPECT_FALSE(File_Copy(nullptr, "/t/copy", true));
  EXPECT_FALSE(File_Copy("/t/file", nullptr, true));
  EXPECT_FALSE(File_Copy("", "/t/copy", true));
  EXPECT_FALSE(File_Copy("/t/file", "", true));
  EXPECT_FALSE(File_Copy("/t/file", ("/t/" + std::string(256, 'x')).c_str(), true));
  EXPECT_TRUE(HasMessage("The file name is too long.\n\n"));
}

TEST_F(FileCopy, ThatFillsTheDiskLeavesNoDestination) {
  ASSERT_EQ(mount("none", "/t/small", "tmpfs", 0, "size=64k"), 0);
  testhost::WriteFile("/t/file", std::string(100000, 'x'));
  for (const bool overwrite : {false, true}) {
    EXPECT_FALSE(File_Copy("/t/file", "/t/small/copy", overwrite));
    EXPECT_FALSE(IsThere("/t/small/copy"));
    EXPECT_TRUE(
        HasMessage("[msg.File.CopyFromFdToFd.write.failure] Write error: There is no space left on the "
                   "device.\n\n"));
    testhost::WriteFile("/t/small/copy", "old");
  }
}

TEST_F(FileCopy, ThatFailsThroughALinkLeavesNeitherName) {
  ASSERT_EQ(mount("none", "/t/small", "tmpfs", 0, "size=64k"), 0);
  testhost::WriteFile("/t/file", std::string(100000, 'x'));
  ASSERT_EQ(symlink("target", "/t/small/link"), 0);
  EXPECT_FALSE(File_Copy("/t/file", "/t/small/link", true));
  EXPECT_TRUE(File_IsEmptyDirectory("/t/small"));
}

TEST_F(FileCopy, BeyondTheLimitOfFileSizesLeavesNoDestination) {
  testhost::WriteFile("/t/file", std::string(100000, 'x'));
  signal(SIGXFSZ, SIG_IGN);
  const rlimit limit = {50000, 50000};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  EXPECT_FALSE(File_Copy("/t/file", "/t/copy", false));
  EXPECT_FALSE(IsThere("/t/copy"));
  EXPECT_TRUE(HasMessage("[msg.File.CopyFromFdToFd.write.failure] Write error: The file is too large.\n\n"));
}

TEST_F(FileCopy, BeyondTheQuotaLeavesNoDestination) {
  testhost::WriteFile("/t/file", std::string(100000, 'x'));
  {
    testhost::SystemCalls calls({SYS_write});
    calls.Fail(SYS_write, EDQUOT, {.from = 3});
    EXPECT_FALSE(File_Copy("/t/file", "/t/copy", false));
  }
  EXPECT_FALSE(IsThere("/t/copy"));
  EXPECT_TRUE(HasMessage("Write error: There is no space left on the device.\n\n"));
}

TEST_F(FileCopy, ThatCannotReadOnLeavesNoDestination) {
  testhost::WriteFile("/t/file", std::string(100000, 'x'));
  testhost::SystemCalls calls({SYS_read});
  calls.Fail(SYS_read, EIO, {.from = 3});
  EXPECT_FALSE(File_CopyFromNameToName("/t/file", "/t/copy", FILE_PROMPT_CANCEL));
  EXPECT_FALSE(IsThere("/t/copy"));
  calls.Clear();
  EXPECT_TRUE(HasMessage("[msg.File.CopyFromFdToFd.read.failure] Read error: Error.\n\n"));
  EXPECT_TRUE(HasLogged("read failed, errno=5, Input/output error\n"));
}

TEST_F(FileCopy, ThatMayNotReadOnLeavesNoDestination) {
  testhost::WriteFile("/t/file", std::string(100000, 'x'));
  testhost::SystemCalls calls({SYS_read});
  calls.Fail(SYS_read, EACCES, {.from = 3});
  EXPECT_FALSE(File_Copy("/t/file", "/t/copy", false));
  EXPECT_FALSE(IsThere("/t/copy"));
  calls.Clear();
  EXPECT_TRUE(HasMessage("Read error: Insufficient permission to access the file.\n\n"));
}

TEST_F(FileCopy, OfADirectoryFailsInReading) {
  EXPECT_FALSE(File_Copy("/t/dir", "/t/copy", true));
  EXPECT_FALSE(IsThere("/t/copy"));
  EXPECT_TRUE(HasMessage("[msg.File.CopyFromFdToFd.read.failure] Read error: Error.\n\n"));
  EXPECT_TRUE(HasLogged("read failed, errno=21, Is a directory\n"));
}

TEST_F(FileCopy, ThatIsInterruptedGoesOn) {
  const std::string content = ManyBytes(30000);
  testhost::WriteFile("/t/file", content);
  testhost::SystemCalls calls({SYS_read, SYS_write});
  calls.Fail(SYS_read, EINTR, {.from = 1, .count = 2});
  calls.Fail(SYS_write, EINTR, {.from = 1, .count = 1});
  EXPECT_TRUE(File_Copy("/t/file", "/t/copy", false));
  calls.Clear();
  EXPECT_EQ(testhost::ReadFile("/t/copy"), content);
}

TEST_F(FileCopy, WhoseDestinationCannotBeClosedLeavesNone) {
  {
    testhost::SystemCalls calls({SYS_close});
    calls.Fail(SYS_close, EIO, {.count = 1});
    EXPECT_FALSE(File_Copy("/t/file", "/t/copy", false));
  }
  EXPECT_FALSE(IsThere("/t/copy"));
  EXPECT_TRUE(
      HasMessage("[msg.File.CopyFromFdToName.close.failure] Unable to close the '/t/copy' file: "
                 "Input/output error.\n\n"));
  EXPECT_FALSE(HasLogged("File.Copy.close.failure"));
}

TEST_F(FileCopy, WhoseSourceCannotBeClosedFailsAndKeepsTheCopy) {
  {
    testhost::SystemCalls calls({SYS_close});
    calls.Fail(SYS_close, EIO, {.from = 1, .count = 1});
    EXPECT_FALSE(File_Copy("/t/file", "/t/copy", false));
    calls.Clear();
    calls.Fail(SYS_close, EDQUOT, {.from = 1, .count = 1});
    EXPECT_FALSE(File_CopyFromNameToName("/t/file", "/t/copy2", FILE_PROMPT_CANCEL));
  }
  EXPECT_EQ(testhost::ReadFile("/t/copy"), "content");
  EXPECT_EQ(testhost::ReadFile("/t/copy2"), "content");
  EXPECT_TRUE(
      HasMessage("[msg.File.Copy.close.failure] Unable to close the '/t/file' file: Input/output "
                 "error.\n\n"));
  EXPECT_TRUE(
      HasMessage("[msg.File.CopyFromNameToName.close.failure] Unable to close the '/t/file' file: Disk "
                 "quota exceeded.\n\n"));
}

// ---- Moving

TEST_F(FileCopy, MoveRenames) {
  struct stat before;
  ASSERT_EQ(stat("/t/file", &before), 0);
  testhost::WriteFile("/t/there", "old");
  EXPECT_TRUE(File_Move("/t/file", "/t/there"));
  struct stat after;
  ASSERT_EQ(stat("/t/there", &after), 0);
  EXPECT_EQ(after.st_ino, before.st_ino);
  EXPECT_FALSE(IsThere("/t/file"));
  ASSERT_EQ(mkdir("/t/new", 0700), 0);
  EXPECT_TRUE(File_Move("/t/new", "/t/dir2"));
  EXPECT_TRUE(File_IsDirectory("/t/dir2"));
}

TEST_F(FileCopy, MoveToAnotherFileSystemCopies) {
  ASSERT_EQ(mount("none", "/t/small", "tmpfs", 0, "size=64k"), 0);
  testhost::WriteFile("/t/small/there", "old content that is longer");
  EXPECT_TRUE(File_Move("/t/file", "/t/small/there"));
  EXPECT_EQ(testhost::ReadFile("/t/small/there"), "content");
  EXPECT_FALSE(IsThere("/t/file"));
}

TEST_F(FileCopy, MoveOfALinkToAnotherFileSystemTakesTheFile) {
  ASSERT_EQ(mount("none", "/t/small", "tmpfs", 0, "size=64k"), 0);
  ASSERT_EQ(symlink("file", "/t/link"), 0);
  EXPECT_TRUE(File_Move("/t/link", "/t/small/there"));
  EXPECT_EQ(testhost::ReadFile("/t/small/there"), "content");
  EXPECT_FALSE(IsThere("/t/link"));
  EXPECT_FALSE(IsThere("/t/file"));
}

TEST_F(FileCopy, MoveThatFailsKeepsTheSource) {
  ASSERT_EQ(mount("none", "/t/small", "tmpfs", 0, "size=64k"), 0);
  testhost::WriteFile("/t/file", std::string(100000, 'x'));
  EXPECT_FALSE(File_Move("/t/file", "/t/small/there"));
  EXPECT_FALSE(IsThere("/t/small/there"));
  EXPECT_EQ(File_GetSize("/t/file"), 100000);
  EXPECT_TRUE(HasMessage("Write error: There is no space left on the device.\n\n"));
  EXPECT_FALSE(File_Move("/t/missing", "/t/x"));
  EXPECT_TRUE(
      HasMessage("[msg.File.Copy.open.failure] Unable to open the '/t/missing' file for read access"));
}

TEST_F(FileCopy, MoveOntoItselfLosesNothing) {
  ASSERT_EQ(link("/t/file", "/t/other"), 0);
  EXPECT_TRUE(File_Move("/t/file", "/t/file"));
  EXPECT_TRUE(File_Move("/t/file", "/t/other"));
  EXPECT_EQ(testhost::ReadFile("/t/other"), "content");
}

TEST_F(FileCopyUser, MoveWhoseSourceCannotBeDeletedHasMoved) {
  EXPECT_TRUE(File_Move("/t/file", "/t/open/there"));
  EXPECT_EQ(testhost::ReadFile("/t/open/there"), "content");
  EXPECT_TRUE(IsThere("/t/file"));
}

// ---- Replacing

TEST_F(FileCopy, ReplaceGivesTheModeAndThePlace) {
  testhost::WriteFile("/t/new", "new content", 0600);
  ASSERT_EQ(chmod("/t/file", 04751), 0);
  EXPECT_TRUE(File_Replace("/t/file", "/t/new"));
  EXPECT_EQ(testhost::ReadFile("/t/file"), "new content");
  EXPECT_EQ(ModeOf("/t/file"), 04751U);
  EXPECT_FALSE(IsThere("/t/new"));
  EXPECT_FALSE(Msg_Present());
}

TEST_F(FileCopy, ReplaceOfNothingKeepsTheMode) {
  ASSERT_EQ(chmod("/t/file", 0640), 0);
  EXPECT_TRUE(File_Replace("/t/missing", "/t/file"));
  EXPECT_EQ(testhost::ReadFile("/t/missing"), "content");
  EXPECT_EQ(ModeOf("/t/missing"), 0640U);
}

TEST_F(FileCopy, ReplaceThatCannotRenameTellsWhy) {
  testhost::WriteFile("/t/new", "new content");
  EXPECT_FALSE(File_Replace("/t/dir", "/t/new"));
  EXPECT_EQ(errno, EISDIR);
  EXPECT_TRUE(
      HasMessage("[msg.filePosix.replaceRenameFailed] Failed to rename \"/t/new\" to \"/t/dir\": Is a "
                 "directory\n"));
  EXPECT_TRUE(IsThere("/t/new"));
}

TEST_F(FileCopy, ReplaceByNothingTellsWhy) {
  EXPECT_FALSE(File_Replace("/t/file", "/t/missing"));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_TRUE(
      HasMessage("[msg.filePosix.replaceChmodFailed] Failed to duplicate file permissions from "
                 "\"/t/file\" to \"/t/missing\": No such file or directory\n"));
  EXPECT_EQ(testhost::ReadFile("/t/file"), "content");
  EXPECT_FALSE(File_Replace(nullptr, "/t/file"));
  EXPECT_EQ(errno, EFAULT);
  EXPECT_FALSE(File_Replace("/t/file", nullptr));
}

TEST_F(FileCopyAscii, ReplaceTellsWhichPathCannotBeExpressed) {
  EXPECT_FALSE(File_Replace("/t/caf\u00E9", "/t/file"));
  EXPECT_EQ(errno, EINVAL);
  EXPECT_TRUE(
      HasMessage("[msg.filePosix.replaceConversionFailed] Failed to convert file path \"/t/caf\u00E9\" "
                 "to current encoding\n"));
  EXPECT_FALSE(File_Replace("/t/file", "/t/caf\u00E8"));
  EXPECT_EQ(errno, EINVAL);
  EXPECT_TRUE(HasMessage("Failed to convert file path \"/t/caf\u00E8\" to current encoding\n"));
  EXPECT_EQ(testhost::ReadFile("/t/file"), "content");
}

}  // namespace
