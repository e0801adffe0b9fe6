#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <thread>

#include "dictType.h"
#include "dictionaryInt.h"
#include "dictionaryTestInt.h"
#include "fileIO.h"
#include "systemCalls.h"

namespace {

using namespace std::string_literals;
using dictionarytest::kPath;

class DictionaryLoad : public dictionarytest::DictionaryHost {
 protected:
  // Whether a load of this text fails, and with these messages.
  void ExpectFails(const std::string &content, const std::string &messages) {
    EXPECT_FALSE(Load(content)) << content;
    EXPECT_EQ(Messages(), messages) << content;
  }
  static std::string SyntaxErrorInLine(int line) {
    return "[msg.dictionary.read.syntaxError] File \"/t/file\" line " + std::to_string(line) +
           ": Syntax error.\n";
  }
};

TEST_F(DictionaryLoad, TakesKeysInTheirOrder) {
  EXPECT_TRUE(Load("b = 1\n# note\n\n  a=\"2\" # note\nC = \n"));
  EXPECT_EQ(Entries(), "b=1;a=2;C=;");
  EXPECT_EQ(GetText("c"), "");
  EXPECT_EQ(GetText("B"), "1");
  EXPECT_EQ(Messages(), "");
}

TEST_F(DictionaryLoad, EndsLinesAtEachKindOfLineEnd) {
  EXPECT_TRUE(Load("a = 1\rb = 2\r\nc = 3\n\rd = 4"));
  EXPECT_EQ(Entries(), "a=1;b=2;c=3;d=4;");
}

TEST_F(DictionaryLoad, TakesAnEmptyFile) {
  EXPECT_TRUE(Load(""));
  EXPECT_EQ(Entries(), "");
  EXPECT_EQ(Dictionary_GetEncoding(Dict()), STRING_ENCODING_UTF8);
}

TEST_F(DictionaryLoad, StopsAtASyntaxError) {
  for (const char *line : {"a = x y", "=b", "a = \"x", "word", "two words", "a = \"x\"y", "\r\v"}) {
    const int at = strcmp(line, "\r\v") == 0 ? 3 : 2;
    ExpectFails("before = 1\n"s + line + "\nafter = 2\n", SyntaxErrorInLine(at));
    EXPECT_EQ(Entries(), "before=1;");
  }
}

TEST_F(DictionaryLoad, StopsAtANulOutsideOfAComment) {
  ExpectFails("a = 1\nb = x\0y\n"s, SyntaxErrorInLine(2));
  ExpectFails("a = 1\n\0\n"s, SyntaxErrorInLine(2));
  EXPECT_TRUE(Load("a = 1 # x\0y\n#\0z\n"s));
  EXPECT_EQ(Saved(), ".encoding = \"UTF-8\"\na = 1 # x\0y\n#\0z\n"s);
}

TEST_F(DictionaryLoad, KeepsTheFirstOfTwoValuesAndTheTextOfTheSecond) {
  ExpectFails(
      "a = 1\nA = \"2\" # note\na = 3\nb = 4\n",
      "[msg.dictionary.alreadyDefined] File \"/t/file\" line 2: Variable \"A\" is already defined.\n"
      "[msg.dictionary.alreadyDefined] File \"/t/file\" line 3: Variable \"a\" is already defined.\n");
  EXPECT_EQ(Entries(), "a=1;b=4;");
  EXPECT_EQ(Saved(), ".encoding = \"UTF-8\"\na = 1\nA = \"2\" # note\na = 3\nb = 4\n");
}

TEST_F(DictionaryLoad, DropsUnknownMetavariables) {
  EXPECT_TRUE(Load("a = 1\n.version = 7 # note\nb = 2\n"));
  EXPECT_EQ(Logged(),
            "DictionaryParseReadLine: \"/t/file\" line 2: unrecognized metavariable \".version\"\n");
  EXPECT_EQ(Entries(), "a=1;b=2;");
  EXPECT_EQ(Saved(), ".encoding = \"UTF-8\"\na = 1\nb = 2\n");
}

TEST_F(DictionaryLoad, NamesNoFileWhereThereIsNone) {
  EXPECT_TRUE(Dictionary_LoadFromBuffer(Dict(), ".x = 7\n", false));
  EXPECT_EQ(Logged(), "DictionaryParseReadLine: \"(null)\" line 1: unrecognized metavariable \".x\"\n");
  EXPECT_FALSE(Dictionary_LoadFromBuffer(Dict(), "a = 1\nword\n", false));
  EXPECT_EQ(Messages(), "[msg.dictionary.read.syntaxErrorNoFile] Syntax error.\n");
  EXPECT_FALSE(Dictionary_LoadFromBuffer(Dict(), "a = 1\na = 2\n", false));
  EXPECT_EQ(Messages(), "[msg.dictionary.alreadyDefinedNoFile] Variable \"a\" is already defined.\n");
}

TEST_F(DictionaryLoad, ClearsWhatWasThere) {
  EXPECT_TRUE(Load(".encoding = \"ISO-8859-1\"\na = 1\n"));
  EXPECT_TRUE(Load("b = 2\n"));
  EXPECT_EQ(Entries(), "b=2;");
  EXPECT_EQ(Dictionary_GetEncoding(Dict()), STRING_ENCODING_UTF8);
}

TEST_F(DictionaryLoad, AppendsToWhatWasThere) {
  EXPECT_TRUE(Load("# one\na = 1\n"));
  testhost::WriteFile("/t/more", "# two\nb = 2\n");
  EXPECT_TRUE(Dictionary_Append(Dict(), "/t/more"));
  EXPECT_EQ(Saved(), "# one\n.encoding = \"UTF-8\"\na = 1\n# two\nb = 2\n");
  EXPECT_FALSE(Dictionary_Append(Dict(), "/t/more"));
  EXPECT_EQ(Messages(),
            "[msg.dictionary.alreadyDefined] File \"/t/more\" line 2: Variable \"b\" is already defined.\n");
}

TEST_F(DictionaryLoad, TakesADefaultThatWasReadForDefined) {
  EXPECT_EQ(Dict_GetLong(Dict(), 5, "a"), 5);
  testhost::WriteFile(kPath, "a = 7\n");
  EXPECT_FALSE(Dictionary_Append(Dict(), kPath));
  EXPECT_EQ(Dict_GetLong(Dict(), 9, "a"), 5);
}

TEST_F(DictionaryLoad, ReadsNothingWithoutAName) {
  EXPECT_TRUE(Load("a = 1\n"));
  EXPECT_TRUE(Dictionary_Append(Dict(), nullptr));
  EXPECT_EQ(Entries(), "a=1;");
  EXPECT_TRUE(Dictionary_Load(Dict(), nullptr));
  EXPECT_EQ(Entries(), "");
  EXPECT_EQ(Dictionary_GetEncoding(Dict()), STRING_ENCODING_UNKNOWN);
}

TEST_F(DictionaryLoad, ReadsStandardInput) {
  testhost::WriteFile("/t/in", "a = 1\nword\n");
  ASSERT_NE(freopen("/t/in", "r", stdin), nullptr);
  EXPECT_FALSE(Dictionary_Load(Dict(), "-"));
  EXPECT_EQ(Messages(), "[msg.dictionary.read.syntaxError] File \"<stdin>\" line 2: Syntax error.\n");
  EXPECT_EQ(Entries(), "a=1;");
}

TEST_F(DictionaryLoad, TakesNoByteOrderMarkFromStandardInput) {
  testhost::WriteFile("/t/in",
                      "\xEF\xBB\xBF"
                      "a = 1\n");
  ASSERT_NE(freopen("/t/in", "r", stdin), nullptr);
  EXPECT_TRUE(Dictionary_Load(Dict(), "-"));
  EXPECT_EQ(Entries(),
            "\xEF\xBB\xBF"
            "a=1;");
}

TEST_F(DictionaryLoad, SkipsAByteOrderMark) {
  EXPECT_TRUE(
      Load("\xEF\xBB\xBF"
           "a = 1\n"));
  EXPECT_EQ(Entries(), "a=1;");
  EXPECT_TRUE(Load("\xEF\xBB\xBF"));
  EXPECT_EQ(Saved(), ".encoding = \"UTF-8\"\n");
  EXPECT_TRUE(
      Load("\xEF\xBB\xBF\xEF\xBB\xBF"
           "a = 1\n"));
  EXPECT_EQ(Entries(),
            "\xEF\xBB\xBF"
            "a=1;");
}

TEST_F(DictionaryLoad, TakesPartsOfAByteOrderMarkForText) {
  EXPECT_TRUE(Load("\xEF=1\n"));
  EXPECT_EQ(Entries(), "\xEF=1;");
  EXPECT_TRUE(Load("\xEF\xBB=1\n"));
  EXPECT_EQ(Entries(), "\xEF\xBB=1;");
  ExpectFails("\xEF\xBB", SyntaxErrorInLine(1));
}

TEST_F(DictionaryLoad, TakesPartsOfAByteOrderMarkThatComeOneByOne) {
  ASSERT_EQ(mkfifo("/t/fifo", 0600), 0);
  std::thread writer([] {
    const int fd = open("/t/fifo", O_WRONLY);
    for (const char *byte = "\xEF\xBB=1\nb=2\n"; *byte != '\0'; byte++) {
      EXPECT_EQ(write(fd, byte, 1), 1);
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    close(fd);
  });
  EXPECT_TRUE(Dictionary_Load(Dict(), "/t/fifo"));
  writer.join();
  EXPECT_EQ(Entries(), "\xEF\xBB=1;b=2;");
}

TEST_F(DictionaryLoad, TellsWhyAFileCannotBeOpened) {
  EXPECT_FALSE(Dictionary_Load(Dict(), "/t/none"));
  EXPECT_EQ(Messages(),
            "[msg.dictionary.load.openFailed] Cannot open file \"/t/none\": No such file or directory.\n");
  EXPECT_FALSE(Dictionary_Load(Dict(), "/t"));
  EXPECT_EQ(Messages(), "[msg.dictionary.load.isDirectory] \"/t\" is a directory.\n");
  EXPECT_FALSE(Dictionary_Load(Dict(), ""));
  EXPECT_EQ(Messages(),
            "[msg.dictionary.load.openFailed] Cannot open file \"\": No such file or directory.\n");
}

TEST(DictionaryLoadAsUser, TellsThatAFileIsUnreadable) {
  testhost::Host host;
  host.File("/t/secret", "a = 1\n", 0600).User(4321);
  host.Enter();
  const OwnedDictionary dict(Dictionary_Create());
  EXPECT_FALSE(Dictionary_Load(dict.get(), "/t/secret"));
  testing::internal::CaptureStderr();
  Msg_Post(3, MSGID(test.end) "End.\n");
  EXPECT_NE(
      testing::internal::GetCapturedStderr().find("Cannot open file \"/t/secret\": Permission denied.\n"),
      std::string::npos);
}

TEST_F(DictionaryLoad, TellsThatAFileCannotBeLookedAt) {
  testhost::WriteFile(kPath, "a = 1\n");
  testhost::FailSystemCall(SYS_newfstatat, EIO);
  EXPECT_FALSE(Dictionary_Load(Dict(), kPath));
  EXPECT_EQ(Messages(),
            "[msg.dictionary.load.statFailed] Unable to get information about file \"/t/file\": "
            "Input/output error.\n");
}

TEST_F(DictionaryLoad, TellsAReadErrorWithItsLine) {
  testhost::WriteFile(kPath, std::string(10000, '#') + "\na = 1\n" + std::string(100000, '#') + "\n");
  testhost::SystemCalls calls({SYS_read});
  calls.Fail(SYS_read, EIO, {.from = 4, .first = static_cast<uint32_t>(testhost::NextDescriptor())});
  EXPECT_FALSE(Dictionary_Load(Dict(), kPath));
  calls.Clear();
  EXPECT_EQ(Messages(), "[msg.dictionary.read.readError] File \"/t/file\" line 2: Input/output error.\n");
  EXPECT_EQ(Entries(), "a=1;");
}

TEST_F(DictionaryLoad, TellsAReadErrorBeforeTheFirstLine) {
  FileIODescriptor file;
  FileIO_Invalidate(&file);
  const int fd = open("/t", O_RDONLY);
  FileIO_AttachDescriptor(&file, fd, O_RDONLY);
  EXPECT_FALSE(Dictionary_LoadFile(Dict(), &file));
  EXPECT_EQ(Messages(), "[msg.dictionary.read.readError] File \"(null)\" line 0: Is a directory.\n");
  EXPECT_FALSE(FileIO_Close(&file));
}

class DictionaryLoadFile : public DictionaryLoad {
 protected:
  void Open(const std::string &content) {
    testhost::WriteFile(kPath, content);
    FileIO_Invalidate(&file_);
    ASSERT_EQ(FileIO_Open(&file_, kPath, FILEIO_ACCESS_READ, FILEIO_OPEN), FILEIO_SUCCESS);
  }
  void TearDown() override { EXPECT_FALSE(FileIO_Close(&file_)); }
  FileIODescriptor *File() { return &file_; }

 private:
  FileIODescriptor file_{};
};

TEST_F(DictionaryLoadFile, ReadsFromTheStartAndGoesBackThere) {
  Open("a = 1\n");
  EXPECT_EQ(FileIO_Seek(File(), 3, FILEIO_SEEK_BEGIN), 3);
  EXPECT_TRUE(Dictionary_LoadFile(Dict(), File()));
  EXPECT_EQ(Entries(), "a=1;");
  EXPECT_EQ(FileIO_Seek(File(), 0, FILEIO_SEEK_CURRENT), 0);
}

TEST_F(DictionaryLoadFile, GoesBackToTheStartAfterAFailure) {
  Open("a = 1\nword\n");
  EXPECT_FALSE(Dictionary_LoadFile(Dict(), File()));
  EXPECT_EQ(FileIO_Seek(File(), 0, FILEIO_SEEK_CURRENT), 0);
  EXPECT_EQ(Messages(), SyntaxErrorInLine(2));
}

TEST_F(DictionaryLoadFile, AppendsOrClearsAsTold) {
  Open("a = \"\xE9\"\n");
  EXPECT_TRUE(Dictionary_LoadFileWithDefaultEncoding(Dict(), File(), STRING_ENCODING_ISO_8859_1));
  EXPECT_EQ(Entries(), "a=\xC3\xA9;");
  EXPECT_FALSE(Dictionary_AppendFile(Dict(), File()));
  EXPECT_EQ(Messages(),
            "[msg.dictionary.alreadyDefined] File \"/t/file\" line 1: Variable \"a\" is already defined.\n");
  EXPECT_FALSE(Dictionary_LoadFile(Dict(), File()));
  EXPECT_EQ(Entries(), "a=\xE9;");
  Msg_Reset(false);
  Dictionary_Clear(Dict());
  Dict_SetLong(Dict(), 1, "b");
  EXPECT_FALSE(Dictionary_AppendFile(Dict(), File()));
  EXPECT_EQ(Entries(), "b=1;a=\xE9;");
}

TEST_F(DictionaryLoadFile, TellsThatItCannotSeek) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  FileIO_Invalidate(File());
  FileIO_AttachDescriptor(File(), fds[0], O_RDONLY);
  EXPECT_FALSE(Dictionary_LoadFile(Dict(), File()));
  EXPECT_EQ(Messages(), "[msg.dictionary.loadFile.seekFailed] Cannot seek file \"(null)\": Illegal seek.\n");
  close(fds[1]);
}

TEST_F(DictionaryLoadFile, TellsThatItCannotSeekBack) {
  Open("a = 1\n");
  testhost::SystemCalls calls({SYS_lseek});
  calls.Fail(SYS_lseek, EIO, {.from = 1, .first = static_cast<uint32_t>(File()->posix)});
  EXPECT_FALSE(Dictionary_LoadFile(Dict(), File()));
  calls.Clear();
  EXPECT_EQ(Messages(),
            "[msg.dictionary.loadFile.seekFailed] Cannot seek file \"/t/file\": Input/output error.\n");
  EXPECT_EQ(Entries(), "a=1;");
}

TEST_F(DictionaryLoadFile, TellsThatThereIsNoStream) {
  Open("a = 1\n");
  testhost::FailSystemCall(SYS_dup, EMFILE);
  testhost::FailSystemCall(SYS_fcntl, EMFILE, static_cast<uint32_t>(File()->posix));
  EXPECT_FALSE(Dictionary_LoadFile(Dict(), File()));
  EXPECT_EQ(Messages(),
            "[msg.dictionary.load.openFailed] Cannot open file \"/t/file\": Too many open files.\n");
}

TEST_F(DictionaryLoad, ReadsABuffer) {
  EXPECT_TRUE(Dictionary_LoadFromBuffer(Dict(), "a = 1\r\nb = \"2\"\n\nc = 3", false));
  EXPECT_EQ(Entries(), "a=1;b=2;c=3;");
  EXPECT_EQ(Saved(), ".encoding = \"UTF-8\"\na = 1\nb = \"2\"\n\nc = 3\n");
  EXPECT_TRUE(Dictionary_LoadFromBuffer(Dict(), "d = 4", true));
  EXPECT_EQ(Entries(), "a=1;b=2;c=3;d=4;");
  EXPECT_TRUE(Dictionary_LoadFromBuffer(Dict(), "", false));
  EXPECT_EQ(Saved(), ".encoding = \"UTF-8\"\n");
}

TEST_F(DictionaryLoad, TakesALoneCarriageReturnOfABufferForText) {
  EXPECT_FALSE(Dictionary_LoadFromBuffer(Dict(), "a = 1\r\nb = \"x\"\r\r\nc = 3\n", false));
  EXPECT_EQ(Entries(), "a=1;");
  EXPECT_EQ(Messages(), "[msg.dictionary.read.syntaxErrorNoFile] Syntax error.\n");
}

TEST_F(DictionaryLoad, KeepsCarriageReturnsInTheMiddleOfABuffersLines) {
  EXPECT_TRUE(Dictionary_LoadFromBuffer(Dict(), "a = 1\r2\r\nb = \"x\r\"\r\n#\r", false));
  EXPECT_EQ(GetText("a"), "1\r2");
  EXPECT_EQ(GetText("b"), "x\r");
  EXPECT_EQ(Saved(), ".encoding = \"UTF-8\"\na = 1\r2\nb = \"x\r\"\n#\r\n");
  // Without a line feed behind it, it ends no line.
  EXPECT_TRUE(Dictionary_LoadFromBuffer(Dict(), "a = 1\r", false));
  EXPECT_EQ(GetText("a"), "1\r");
}

TEST_F(DictionaryLoad, LeavesTheBufferAlone) {
  char text[] = "a = 1\r\nb = 2\r\n";
  EXPECT_TRUE(Dictionary_LoadFromBuffer(Dict(), text, false));
  EXPECT_STREQ(text, "a = 1\r\nb = 2\r\n");
}

TEST_F(DictionaryLoad, UsesTheDefaultEncodingOfABuffer) {
  EXPECT_TRUE(Dictionary_LoadFromBuffer(Dict(), "a = \xE9", false, STRING_ENCODING_ISO_8859_1));
  EXPECT_EQ(GetText("a"), "\xC3\xA9");
}

TEST_F(DictionaryLoad, UnlocksWhatItLoads) {
  testhost::WriteFile(kPath, "a = 1\n");
  EXPECT_TRUE(Dictionary_LoadAndUnlock(Dict(), kPath, nullptr, nullptr));
  testhost::WriteFile(kPath, "encryption.keySafe = x\nencryption.data = y\n");
  EXPECT_FALSE(Dictionary_LoadAndUnlock(Dict(), kPath, nullptr, nullptr));
  EXPECT_FALSE(Dictionary_LoadAndUnlock(Dict(), "/t/none", nullptr, nullptr));
  FileIODescriptor file;
  FileIO_Invalidate(&file);
  ASSERT_EQ(FileIO_Open(&file, kPath, FILEIO_ACCESS_READ, FILEIO_OPEN), FILEIO_SUCCESS);
  EXPECT_FALSE(Dictionary_LoadFileAndUnlock(Dict(), &file, nullptr, nullptr));
  testhost::WriteFile(kPath, "a = 1\n");
  EXPECT_TRUE(Dictionary_LoadFileAndUnlock(Dict(), &file, nullptr, nullptr));
  EXPECT_FALSE(FileIO_Close(&file));
}

TEST_F(DictionaryLoad, ForgetsFileAndLineAfterwards) {
  EXPECT_FALSE(Load("word\n"));
  EXPECT_EQ(Dict()->fileName, nullptr);
  EXPECT_EQ(Dict()->lineNumber, 0);
  EXPECT_TRUE(Load("a = 1\n"));
  EXPECT_EQ(Dict()->fileName, nullptr);
  EXPECT_EQ(Dict()->lineNumber, 0);
}

TEST_F(DictionaryLoad, StopsTheProgramInALoadWithinALoad) {
  Dict()->lineNumber = 1;
  EXPECT_EXIT(Dictionary_LoadFromBuffer(Dict(), "a = 1", true), dictionarytest::kPanics,
              dictionarytest::AssertIn("dictionaryLoad"));
  Dict()->lineNumber = 0;
  Dict()->fileName = "x";
  EXPECT_EXIT(Dictionary_LoadFromBuffer(Dict(), "a = 1", true), dictionarytest::kPanics,
              dictionarytest::AssertIn("dictionaryLoad"));
  Dict()->fileName = nullptr;
}

// --- What nobody would write by hand

std::string Endless(size_t size, char byte) {
  return std::string().append(size, byte);
}

std::string ManyKeys(int count) {
  std::string content;
  for (int i = 0; i < count; i++) {
    content += "key" + std::to_string(i) + " = " + std::to_string(i) + "\n";
  }
  return content;
}

TEST_F(DictionaryLoad, TakesAnEndlessLine) {
  const std::string value = Endless(100'000'000, 'x');
  EXPECT_TRUE(Load("a = \"" + value + "\"\nb = 2\n"));
  EXPECT_EQ(GetText("a"), value);
  EXPECT_EQ(GetText("b"), "2");
  EXPECT_EQ(Saved().size(), strlen(".encoding = \"UTF-8\"\na = \"\"\nb = 2\n") + value.size());
}

TEST_F(DictionaryLoad, RefusesAnEndlessWord) {
  const std::string word = Endless(100'000'000, 'x');
  ExpectFails("a = 1\n" + word, SyntaxErrorInLine(2));
}

TEST_F(DictionaryLoad, TakesAnEndlessName) {
  const std::string name = Endless(100'000'000, 'n');
  EXPECT_TRUE(Load(name + " = 1\n"));
  EXPECT_EQ(GetText(name.c_str()), "1");
  EXPECT_FALSE(Load(name + " = 1\n" + name + " = 2\n"));
  EXPECT_NE(Messages().find("Variable \"nnn"), std::string::npos);
}

TEST_F(DictionaryLoad, TellsOfANameThatIsNoText) {
  const std::string name(10000, '\xFF');
  EXPECT_FALSE(Load("\xFF = 1\n\xFF = 2\n"));
  EXPECT_EQ(
      Messages(),
      "[msg.dictionary.alreadyDefined] File \"/t/file\" line 2: Variable \"\\xFF\" is already defined.\n");
  EXPECT_FALSE(Load(name + " = 1\n" + name + " = 2\n"));
  EXPECT_NE(Messages().find("Variable \"\\xFF\\xFF"), std::string::npos);
  EXPECT_TRUE(Load("." + name + " = 1\n"));
  EXPECT_NE(Logged().find("unrecognized metavariable \".\\xFF\\xFF"), std::string::npos);
}

TEST_F(DictionaryLoad, TakesManyKeys) {
  const std::string content = ManyKeys(1'000'000);
  EXPECT_TRUE(Load(content));
  EXPECT_EQ(GetText("key0"), "0");
  EXPECT_EQ(GetText("KEY999999"), "999999");
  EXPECT_EQ(Saved(), ".encoding = \"UTF-8\"\n" + content);
}

TEST_F(DictionaryLoad, TakesABufferOfAnySize) {
  const std::string value = Endless(100'000'000, 'x');
  EXPECT_TRUE(Dictionary_LoadFromBuffer(Dict(), ("a = \"" + value + "\"\r\nb = 2\r\n").c_str(), false));
  EXPECT_EQ(GetText("a"), value);
  EXPECT_EQ(GetText("b"), "2");
  EXPECT_FALSE(Dictionary_LoadFromBuffer(Dict(), value.c_str(), false));
  EXPECT_EQ(Messages(), "[msg.dictionary.read.syntaxErrorNoFile] Syntax error.\n");
  Dictionary_SetFromString(Dict(), ("c=" + value).c_str(), false, true);
  EXPECT_EQ(GetText("c"), value);
  const std::string content = ManyKeys(100'000);
  EXPECT_TRUE(Dictionary_LoadFromBuffer(Dict(), content.c_str(), false));
  EXPECT_EQ(Saved(), ".encoding = \"UTF-8\"\n" + content);
}

TEST_F(DictionaryLoad, TakesAFileThatShrinksAsItIsRead) {
  constexpr int kKeys = 100'000;
  const std::string content = ManyKeys(kKeys);
  FileIODescriptor file;
  FileIO_Invalidate(&file);
  bool loaded = false;
  // Again where it was read to its end before it shrank.
  for (int round = 0; round < 50 && (round == 0 || Dict()->entryCount == kKeys); round++) {
    testhost::WriteFile(kPath, content);
    ASSERT_EQ(FileIO_Open(&file, kPath, FILEIO_ACCESS_READ, FILEIO_OPEN), FILEIO_SUCCESS);
    std::thread shrinker([fd = file.posix] {
      while (lseek(fd, 0, SEEK_CUR) == 0) {
      }
      EXPECT_EQ(truncate(kPath, 5000), 0);
    });
    loaded = Dictionary_LoadFile(Dict(), &file);
    shrinker.join();
    EXPECT_FALSE(FileIO_Close(&file));
  }
  EXPECT_LT(Dict()->entryCount, kKeys);
  // Cut within a line, the rest of it is a key with less of its value, or no key.
  const std::string messages = Messages();
  EXPECT_TRUE(loaded || messages.find("Syntax error.\n") != std::string::npos) << messages;
  EXPECT_EQ(GetText("key10"), "10");
}

TEST_F(DictionaryLoad, ReadsAFifo) {
  ASSERT_EQ(mkfifo("/t/fifo", 0600), 0);
  std::thread writer([] { testhost::WriteFile("/t/fifo", "a = 1\nb = 2\n"); });
  EXPECT_TRUE(Dictionary_Load(Dict(), "/t/fifo"));
  writer.join();
  EXPECT_EQ(Entries(), "a=1;b=2;");
}

}  // namespace
