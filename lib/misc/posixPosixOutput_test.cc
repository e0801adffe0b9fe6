#include "owned.h"
#include "posixPosix.h"
#include "posixPosixTestInt.h"

namespace {

using posixtest::kNotLatin1;
using posixtest::Written;

class PosixOutput : public posixtest::PosixHost {};
class PosixOutputLatin1 : public posixtest::Latin1Host {};

TEST_F(PosixOutput, PrintsByTheProgramsOwnFormats) {
  EXPECT_EQ(Written(STDOUT_FILENO, [] { EXPECT_EQ(Posix_Printf("%s-%d " NAME, "a", 5), 9); }), "a-5 " NAME);
  // The C library would write 0xf.
  EXPECT_EQ(Written(STDOUT_FILENO, [] { Posix_Printf("%p", reinterpret_cast<void *>(0xF)); }), "F");
}

TEST_F(PosixOutput, ATextIsNoFormat) {
  EXPECT_EQ(Written(STDOUT_FILENO, [] { EXPECT_EQ(Posix_Printf("%s%%n", "%s"), 4); }), "%s%n");
}

TEST_F(PosixOutputLatin1, OutputIsConverted) {
  // Counted as it is written.
  EXPECT_EQ(Written(STDOUT_FILENO, [] { EXPECT_EQ(Posix_Printf("<%s>", NAME), 6); }), "<" LATIN1_NAME ">");
  EXPECT_EQ(Written(STDERR_FILENO, [] { EXPECT_EQ(Posix_Fprintf(stderr, "%s\n", NAME), 5); }),
            LATIN1_NAME "\n");
}

TEST_F(PosixOutputLatin1, TextThatCannotBeConvertedIsNotWritten) {
  EXPECT_EQ(Written(STDOUT_FILENO, [] { EXPECT_FAILS(-1, EINVAL, Posix_Printf("text %s", kNotLatin1)); }),
            "");
  EXPECT_EQ(
      Written(STDERR_FILENO, [] { EXPECT_FAILS(-1, EINVAL, Posix_Fprintf(stderr, "text %s", kNotLatin1)); }),
      "");
}

TEST_F(PosixOutputLatin1, LackOfMemoryWritesNothing) {
  const OwnedStream stream(fopen("/t/new", "w"));
  const auto print = [&] { return Posix_Fprintf(stream.get(), "<%s>", NAME); };
  const size_t count = posixtest::CountAllocations(print);
  ASSERT_GE(count, 2U);
  for (size_t i = 0; i < count; i++) {
    const testhost::AllocationFault fault(i);
    SCOPED_TRACE(i);
    EXPECT_FAILS(-1, EINVAL, print());
  }
  fflush(stream.get());
  EXPECT_EQ(testhost::ReadFile("/t/new"), "<" LATIN1_NAME "><" LATIN1_NAME ">");
}

TEST_F(PosixOutput, AStreamThatTakesNothingIsTheCallsOwnFailure) {
  const OwnedStream stream(fopen("/dev/full", "w"));
  setbuf(stream.get(), nullptr);
  EXPECT_FAILS(-1, ENOSPC, Posix_Fprintf(stream.get(), "text"));
}

TEST_F(PosixOutputLatin1, PerrorTellsTheErrorOfItsCaller) {
  const auto tell = [](const char *text) {
    errno = ENOENT;
    Posix_Perror(text);
  };
  EXPECT_EQ(Written(STDERR_FILENO, [&] { tell(NAME); }), LATIN1_NAME ": No such file or directory\n");
  EXPECT_EQ(Written(STDERR_FILENO, [&] { tell(nullptr); }), "No such file or directory\n");
  EXPECT_EQ(Written(STDERR_FILENO, [&] { tell(kNotLatin1); }), "");
}

}  // namespace
