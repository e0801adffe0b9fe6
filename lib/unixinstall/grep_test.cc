#include "grep.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "owned.h"
#include "strutil.h"
#include "testhost.h"

namespace {

using Lines = std::vector<std::string>;

constexpr size_t kChunk = 1024;

Lines Take(char **lines) {
  Lines taken;
  for (char **line = lines; line && *line; ++line) {
    taken.emplace_back(*line);
  }
  Grep_FreeLines(lines);
  return taken;
}

// A file that goes with the test.
class ScratchFile {
 public:
  explicit ScratchFile(const std::string &content) {
    const int fd = mkstemp(path_.data());
    EXPECT_EQ(static_cast<ssize_t>(content.size()), write(fd, content.data(), content.size()));
    close(fd);
  }
  ~ScratchFile() { unlink(Path()); }
  ScratchFile(const ScratchFile &) = delete;
  ScratchFile &operator=(const ScratchFile &) = delete;
  const char *Path() const { return path_.c_str(); }

 private:
  std::string path_ = "/tmp/grep_test-XXXXXX";
};

Lines GrepText(const std::string &content, const char *text, const char *delimiters = "\n") {
  const ScratchFile file(content);
  return Take(Grep_File(file.Path(), text, delimiters));
}

Lines AllLines(const std::string &content) {
  return GrepText(content, "");
}

std::string Filler(size_t size) {
  return std::string(size, 'x');
}

// The algorithm chunk by chunk with C strings, as plain as can be: what the fast one is held against.
Lines PlainGrep(const std::string &content, const char *text, const char *delimiters) {
  Lines found;
  bool pending = false;
  std::string piece;
  for (size_t offset = 0; offset <= content.size(); offset += kChunk) {
    char buffer[kChunk + 1] = {};
    content.copy(buffer, kChunk, offset);
    unsigned position = 0;
    const auto behind = [&] { return position < kChunk ? buffer + position + 1 : ""; };
    while (strpbrk(behind(), delimiters)) {
      const OwnedString token(StrUtil_GetNextToken(&position, buffer, delimiters));
      if (!token) {
        break;
      }
      piece = pending ? piece.append(token.get()) : token.get();
      pending = false;
      if (strstr(piece.c_str(), text)) {
        found.push_back(piece);
      }
    }
    piece = pending ? piece.append(buffer + position) : behind();
    pending = true;
  }
  return found;
}

std::string RandomContent(std::mt19937 *random) {
  static constexpr size_t kSizes[] = {0, 1, 2, 7, 1023, 1024, 1025, 1026, 2047, 2048, 2049, 3072, 3100};
  static constexpr const char *kAlphabets[] = {"ab\n", "aab\n;", "\n;", "aaaaaaaaaaaaaaaaaaaaaaab\n",
                                               "aaa",  "ab"};
  std::string alphabet = kAlphabets[(*random)() % std::size(kAlphabets)];
  if ((*random)() % 3 == 0) {
    alphabet += '\0';
  }
  std::string content(kSizes[(*random)() % std::size(kSizes)], 'a');
  for (char &byte : content) {
    byte = alphabet[(*random)() % alphabet.size()];
  }
  // Ends of lines at and around the ends of chunks are where the rules are peculiar.
  for (size_t boundary = kChunk; boundary < content.size(); boundary += kChunk) {
    content[boundary - (*random)() % 3] = '\n';
  }
  return content;
}

}  // namespace

TEST(GrepFile, ReturnsTheLinesThatHoldTheText) {
  EXPECT_EQ(Lines({"c0100000 T printk"}), GrepText("c0100000 T printk\nc0100400 T vprintk\n", " printk"));
}

TEST(GrepFile, FindsTheTextAtEitherEndOfALineAndAsAWholeLine) {
  EXPECT_EQ(Lines({"key", "key b", "a key"}), GrepText("key\nkey b\na key\nke y\n", "key"));
}

TEST(GrepFile, ReturnsNullWhenNothingIsFound) {
  const ScratchFile file("one\ntwo\n");
  EXPECT_EQ(nullptr, Grep_File(file.Path(), "three", "\n"));
}

TEST(GrepFile, ReturnsNullForAnEmptyFile) {
  const ScratchFile file("");
  EXPECT_EQ(nullptr, Grep_File(file.Path(), "", "\n"));
  EXPECT_EQ(nullptr, Grep_ReadLines(file.Path(), "\n"));
}

TEST(GrepFile, ReturnsNullForAFileThatCannotBeOpened) {
  EXPECT_EQ(nullptr, Grep_File("/no/such/file", "a", "\n"));
}

TEST(GrepFile, ReturnsNullForADirectory) {
  EXPECT_EQ(nullptr, Grep_File("/tmp", "", "\n"));
}

TEST(GrepFile, ClosesTheFile) {
  const ScratchFile file("one\n");
  const int before = dup(0);
  close(before);
  Take(Grep_File(file.Path(), "one", "\n"));
  const int after = dup(0);
  close(after);
  EXPECT_EQ(before, after);
}

TEST(GrepReadLines, ReturnsEveryLine) {
  const ScratchFile file("a\nb c\n\xc3\xa9\xff\"'\n");
  EXPECT_EQ(Lines({"a", "b c", "\xc3\xa9\xff\"'"}), Take(Grep_ReadLines(file.Path(), "\n")));
}

TEST(GrepFreeLines, AcceptsNull) {
  Grep_FreeLines(nullptr);
}

TEST(GrepStream, GoesOnFromTheFilesPosition) {
  const ScratchFile file("one\ntwo\nthree\n");
  FileIODescriptor stream;
  FileIO_Invalidate(&stream);
  ASSERT_EQ(FILEIO_SUCCESS, FileIO_Open(&stream, file.Path(), FILEIO_ACCESS_READ, FILEIO_OPEN));
  FileIO_Seek(&stream, 4, FILEIO_SEEK_BEGIN);
  EXPECT_EQ(Lines({"two", "three"}), Take(Grep_Stream(&stream, "", "\n")));
  FileIO_Close(&stream);
}

TEST(GrepStream, DropsALastLineWithoutDelimiter) {
  EXPECT_EQ(Lines({"one"}), AllLines("one\ntwo"));
}

TEST(GrepStream, DropsAFileOfOneLineWithoutDelimiter) {
  EXPECT_EQ(Lines(), AllLines("one"));
}

TEST(GrepStream, TakesALastLineWithoutDelimiterBehindAnEmptyLine) {
  EXPECT_EQ(Lines({"one", "two"}), AllLines("one\n\ntwo"));
}

TEST(GrepStream, DropsEmptyLines) {
  EXPECT_EQ(Lines({"a", "b"}), AllLines("\n\na\n\n\nb\n"));
}

TEST(GrepStream, SplitsAtEveryDelimiter) {
  EXPECT_EQ(Lines({"a", "b", "c"}), GrepText("a;b\nc;d", "", "\n;"));
  EXPECT_EQ(Lines({"a1", "c1"}), GrepText("a1;b\nc1;", "1", "\n;"));
}

TEST(GrepStream, FindsNothingWithoutDelimiters) {
  EXPECT_EQ(Lines(), GrepText("a\nb\n", "", ""));
}

TEST(GrepStream, FindsNoTextThatCrossesLines) {
  EXPECT_EQ(Lines(), GrepText("ab\ncd\n", "b\nc"));
}

TEST(GrepStream, KeepsCarriageReturns) {
  EXPECT_EQ(Lines({"a\r", "b\r"}), AllLines("a\r\nb\r\n"));
}

TEST(GrepStream, EndsWhenOnlyDelimitersRemain) {
  EXPECT_EQ(Lines({"abc"}), AllLines("abc\n\n"));
  EXPECT_EQ(Lines(), AllLines("\n\n\n"));
  EXPECT_EQ(Lines(), AllLines(std::string(5000, '\n')));
}

TEST(GrepStream, JoinsALineThatCrossesIntoTheNextChunk) {
  const std::string line = "a long line";
  for (size_t before = kChunk - line.size() + 1; before < kChunk - 1; ++before) {
    const std::string first = Filler(before - 1);
    std::string content = first;
    content.append("\n").append(line).append("\nend\n");
    EXPECT_EQ(Lines({first, line, "end"}), AllLines(content)) << before;
    EXPECT_EQ(Lines({line}), GrepText(content, "long")) << before;
  }
}

TEST(GrepStream, TakesALineOfManyChunksWhole) {
  const std::string line = Filler(10000);
  EXPECT_EQ(Lines({"a", line, "b"}), AllLines("a\n" + line + "\nb\n"));
}

TEST(GrepStream, JoinsTwoLinesWhenOneEndsExactlyAtTheChunksEnd) {
  EXPECT_EQ(Lines({"a", Filler(kChunk - 2) + "next", "last"}),
            AllLines("a\n" + Filler(kChunk - 2) + "\nnext\nlast\n"));
}

TEST(GrepStream, LosesALineWhoseDelimiterAloneIsInTheLastChunk) {
  EXPECT_EQ(Lines({"a"}), AllLines("a\n" + Filler(kChunk - 2) + "\n"));
}

TEST(GrepStream, KeepsTwoLinesApartWhenTheDelimiterIsTheChunksLastByte) {
  EXPECT_EQ(Lines({Filler(kChunk - 1), "next"}), AllLines(Filler(kChunk - 1) + "\nnext\n"));
}

TEST(GrepStream, LosesTheFirstByteWhenTheFirstChunkHasNoDelimiter) {
  const std::string line = "A" + Filler(2000);
  EXPECT_EQ(Lines({line.substr(1), "b"}), AllLines(line + "\nb\n"));
}

TEST(GrepStream, DoesNotSeeADelimiterInTheFirstByteOfTheFirstChunk) {
  EXPECT_EQ(Lines({Filler(2000)}), AllLines("\n" + Filler(2000) + "\n"));
}

TEST(GrepStream, CutsALineBehindAnEmptyOneAtTheChunksEnd) {
  const std::string start = Filler(kChunk - 5);
  EXPECT_EQ(Lines({start, "abc", "def"}), AllLines(start + "\n\nabcdef\n"));
}

TEST(GrepStream, EndsAChunkAtItsFirstNul) {
  const std::string content = std::string("one\ntwo\0three\nfour\n", 19);
  EXPECT_EQ(Lines({"one"}), AllLines(content));
  const std::string rest = content + Filler(kChunk - content.size()) + "end\nlast\n";
  EXPECT_EQ(Lines({"one", "twoend", "last"}), AllLines(rest));
}

TEST(GrepStream, SeesTextBehindANulAgainWhenThePositionIsAtTheNul) {
  const std::string start("\n\nabc\0def", 9);
  EXPECT_EQ(Lines({"abc", "defend"}), AllLines(start + std::string(kChunk - start.size(), '\0') + "end\n"));
}

TEST(GrepStream, SurvivesBinaryData) {
  EXPECT_EQ(Lines(), AllLines(std::string(5000, '\0')));
  EXPECT_EQ(Lines(), AllLines(std::string(5000, '\xff')));
}

TEST(GrepStream, AgreesWithThePlainAlgorithmOnRandomData) {
  std::mt19937 random(20240521);
  const ScratchFile file("");
  for (int round = 0; round < 500; ++round) {
    const std::string content = RandomContent(&random);
    testhost::WriteFile(file.Path(), content);
    for (const char *text : {"", "a", "ab", "bab", "a\nb", ";"}) {
      for (const char *delimiters : {"\n", "\n;", ";", ""}) {
        ASSERT_EQ(PlainGrep(content, text, delimiters), Take(Grep_File(file.Path(), text, delimiters)))
            << "round " << round << " text '" << text << "' delimiters '" << delimiters << "'";
      }
    }
  }
}

TEST(GrepStream, AgreesWithThePlainAlgorithmOnALargeFile) {
  std::mt19937 random(7);
  std::string content;
  while (content.size() < 3000000) {
    content += std::string(random() % 80, 'a') + (random() % 50 == 0 ? " printk" : " symbol") + "\n";
  }
  EXPECT_EQ(PlainGrep(content, " printk", "\n"), GrepText(content, " printk"));
  EXPECT_EQ(PlainGrep(content, "", "\n"), AllLines(content));
}

TEST(GrepStream, ReadsAPipeThatComesInSmallPieces) {
  int ends[2];
  ASSERT_EQ(0, pipe(ends));
  std::string content;
  for (int i = 0; i < 500; ++i) {
    content += "line " + std::to_string(i) + "\n";
  }
  if (fork() == 0) {
    for (size_t i = 0; i < content.size(); i += 100) {
      const ssize_t written = write(ends[1], content.data() + i, std::min<size_t>(100, content.size() - i));
      if (written < 0) {
        _exit(1);
      }
    }
    _exit(0);
  }
  close(ends[1]);
  FileIODescriptor stream;
  FileIO_Invalidate(&stream);
  stream.posix = ends[0];
  EXPECT_EQ(PlainGrep(content, "line", "\n"), Take(Grep_Stream(&stream, "line", "\n")));
  close(ends[0]);
}

// The socket gives two whole chunks and a piece, and then EAGAIN.
TEST(GrepStream, ReturnsWhatWasFoundBeforeAReadError) {
  int ends[2];
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends));
  const std::string chunks = "first\n" + Filler(kChunk) + "\nsecond\n" + Filler(kChunk - 15) + "\n";
  ASSERT_EQ(2 * kChunk, chunks.size());
  const std::string sent = chunks + "lost\n";
  ASSERT_EQ(static_cast<ssize_t>(sent.size()), write(ends[1], sent.data(), sent.size()));
  FileIODescriptor stream;
  FileIO_Invalidate(&stream);
  stream.posix = ends[0];
  EXPECT_EQ(Lines({"first", Filler(kChunk), "second", Filler(kChunk - 15)}),
            Take(Grep_Stream(&stream, "", "\n")));
  close(ends[0]);
  close(ends[1]);
}

TEST(GrepStream, TakesAHundredMegabytesWithoutADelimiter) {
  const ScratchFile file("");
  ASSERT_EQ(0, truncate(file.Path(), 100L << 20));
  EXPECT_EQ(nullptr, Grep_ReadLines(file.Path(), "\n"));
  std::string content = "a\n" + Filler(100UL << 20) + "\n";
  testhost::WriteFile(file.Path(), content);
  const Lines lines = Take(Grep_ReadLines(file.Path(), "\n"));
  ASSERT_EQ(2U, lines.size());
  EXPECT_EQ(100UL << 20, lines[1].size());
}
