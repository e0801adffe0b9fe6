#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <string>
#include <thread>

#include "threads.h"
#include "unicode.h"

using testhost::kThreads;
using testhost::OnEightThreads;

namespace {

TEST(UnicodeThreads, StartOnce) {
  char word[] = "word";
  char *vector[] = {word, nullptr};
  char **arguments[kThreads];
  OnEightThreads([&](size_t thread) {
    arguments[thread] = vector;
    Unicode_Init(1, &arguments[thread], nullptr);
    // Whoever did it, it is done.
    EXPECT_EQ(Unicode_GetCurrentEncoding(), STRING_ENCODING_UTF8);
  });
  int replaced = 0;
  for (char **each : arguments) {
    EXPECT_STREQ(each[0], "word");
    if (each != vector) {
      replaced++;
      Unicode_FreeList(each, -1);
    }
  }
  EXPECT_EQ(replaced, 1);
}

// An argument that can't be read for a time, so that the start-up that reads it lasts as long.
struct {
  char *page;
  std::atomic<bool> isRead;
  std::atomic<bool> mayBeRead;
} slowArgument;

constexpr size_t kPage = 4096;

void WaitAtThePage(int /*signal*/) {
  slowArgument.isRead = true;
  while (!slowArgument.mayBeRead) {
    usleep(1000);
  }
  mprotect(slowArgument.page, kPage, PROT_READ);
}

TEST(UnicodeThreads, WaitForAStartThatLasts) {
  slowArgument.page =
      static_cast<char *>(mmap(nullptr, kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(slowArgument.page, MAP_FAILED);
  memcpy(slowArgument.page, "word", sizeof "word");
  ASSERT_EQ(mprotect(slowArgument.page, kPage, PROT_NONE), 0);
  signal(SIGSEGV, WaitAtThePage);

  char *vector[] = {slowArgument.page, nullptr};
  char **first = vector;
  std::thread starting([&] { Unicode_Init(1, &first, nullptr); });
  while (!slowArgument.isRead) {
    usleep(1000);
  }
  char **second = vector;
  std::atomic<bool> isDone = false;
  std::thread waiting([&] {
    Unicode_Init(1, &second, nullptr);
    isDone = true;
  });
  // More than two of its looks at the lock.
  usleep(600000);
  EXPECT_FALSE(isDone);

  slowArgument.mayBeRead = true;
  starting.join();
  waiting.join();
  signal(SIGSEGV, SIG_DFL);
  EXPECT_NE(first, vector);
  EXPECT_STREQ(first[0], "word");
  EXPECT_EQ(second, vector);
  Unicode_FreeList(first, -1);
  munmap(slowArgument.page, kPage);
}

TEST(UnicodeThreads, LookNamesUpTogether) {
  OnEightThreads([](size_t thread) {
    for (int round = 0; round < 200; round++) {
      const int part = 1 + (round + static_cast<int>(thread)) % 10;
      const std::string name = (round % 2 == 0 ? "iso_8859_" : "ISO8859-") + std::to_string(part);
      EXPECT_EQ(Unicode_EncodingNameToEnum(name.c_str()), 7 + part);
      EXPECT_STREQ(Unicode_EncodingEnumToName(STRING_ENCODING_DEFAULT), "UTF-8");
      const OwnedUnicode str(Unicode_Alloc("\xE9", STRING_ENCODING_ISO_8859_1));
      EXPECT_STREQ(str.get(), "\xC3\xA9");
    }
  });
}

}  // namespace
