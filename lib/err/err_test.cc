#include "err.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "log.h"
#include "panics.h"
#include "regexes.h"
#include "testhost.h"

namespace {

constexpr int kLongError = 4711;
// The text of that error.
std::string longText;
constexpr int kRacedError = 4712;
// What the one gets who asks for that error while another does.
const char *firstText = nullptr;

}  // namespace

// A stand-in for the C library's, none of whose texts fills a buffer and which seldom changes errno.
extern "C" char *strerror_r(int errorNumber, char *buffer, size_t size) noexcept {
  static const auto real = reinterpret_cast<char *(*)(int, char *, size_t)>(dlsym(RTLD_NEXT, "strerror_r"));
  if (errorNumber == kRacedError && firstText == nullptr) {
    firstText = "";
    firstText = Err_Errno2String(kRacedError);
  }
  if (errorNumber != kLongError) {
    char *text = real(errorNumber, buffer, size);
    errno = ERANGE;
    return text;
  }
  buffer[longText.copy(buffer, size - 1)] = '\0';
  return buffer;
}

namespace {

TEST(Err, OneNumberAlwaysGivesTheSamePointer) {
  const char *text = Err_Errno2String(ENOENT);
  EXPECT_STREQ(text, "No such file or directory");
  EXPECT_EQ(Err_Errno2String(ENOENT), text);
  EXPECT_NE(Err_Errno2String(EACCES), text);
}

TEST(Err, KeepsErrno) {
  errno = EXDEV;
  Err_Errno2String(ENOTDIR);
  EXPECT_EQ(errno, EXDEV);
  EXPECT_EQ(Err_Errno(), EXDEV);
  EXPECT_STREQ(Err_ErrString(), "Invalid cross-device link");
  EXPECT_EQ(errno, EXDEV);
}

TEST(Err, GivesUpItsRecordForTheOneThatCameFirst) {
  errno = EXDEV;
  const char *text = Err_Errno2String(kRacedError);
  EXPECT_EQ(errno, EXDEV);
  EXPECT_EQ(text, firstText);
  EXPECT_STREQ(text, "Unknown error 4712");
  EXPECT_EQ(Err_String2Errno(text), kRacedError);
  EXPECT_EQ(Err_String2ErrnoDebug(text), kRacedError);
}

TEST(Err, GivesAnUnknownNumberATextToo) {
  EXPECT_STREQ(Err_Errno2String(98765), "Unknown error 98765");
  EXPECT_STREQ(Err_Errno2String(-5), "Unknown error -5");
  EXPECT_STREQ(Err_Errno2String(0), "Success");
}

TEST(Err, KeepsALastCharacterThatIsWhole) {
  longText = std::string(2045, 'x') + "\xC3\xA9";
  EXPECT_EQ(Err_Errno2String(kLongError), longText);
}

TEST(Err, DropsALastCharacterThatIsCut) {
  const std::string whole(2046, 'x');
  longText = whole + "\xC3\xA9";
  EXPECT_EQ(Err_Errno2String(kLongError), whole);
  EXPECT_EQ(Err_String2ErrnoDebug(Err_Errno2String(kLongError)), kLongError);
}

TEST(Err, FindsTheNumberByTheTextsAddressAlone) {
  const std::string copy = Err_Errno2String(EPERM);
  EXPECT_EQ(Err_String2Errno(Err_Errno2String(EPERM)), EPERM);
  EXPECT_EQ(Err_String2Errno(copy.c_str()), -1);
  EXPECT_EQ(Err_String2Errno(nullptr), -1);
}

TEST(Err, FindsACopiedTextAndLogsThatItWasCopied) {
  testhost::Host host;
  host.Enter();
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  const char *text = Err_Errno2String(EPERM);
  const std::string copy = text;
  EXPECT_EQ(Err_String2ErrnoDebug(text), EPERM);
  EXPECT_EQ(testhost::ReadFile(Log_GetFileName()), "");
  EXPECT_EQ(Err_String2ErrnoDebug(copy.c_str()), EPERM);
  EXPECT_EQ(Err_String2ErrnoDebug("no such text"), -1);
  EXPECT_TRUE(
      testhost::RegexSearch(testhost::ReadFile(Log_GetFileName()),
                            R"(\| Err_String2ErrnoDebug: errno 1, string "Operation not permitted" at )"
                            R"([0-9A-F]+, originally at [0-9A-F]+\.\n)"));
}

TEST(Err, FindsALongTextAlsoAfterAShorterOne) {
  const std::string text = Err_Errno2String(ENOENT);
  ASSERT_LT(strlen(Err_Errno2String(EIO)), text.size());
  EXPECT_EQ(Err_String2ErrnoDebug(text.c_str()), ENOENT);
}

TEST(Err, HasNoLocalTexts) {
  EXPECT_EQ(Err_Errno2LocalString(ENOENT), nullptr);
}

TEST(ErrDeathTest, MinusOneIsNoErrorNumber) {
  EXPECT_EXIT(Err_Errno2String(-1), testing::ExitedWithCode(255),
              testhost::Panics("^ASSERT lib/err/err.cc:[0-9]+\n$"));
}

}  // namespace
