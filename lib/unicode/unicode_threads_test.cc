#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "unicode.h"

namespace {

constexpr int kThreads = 8;

template <typename Work>
void InThreads(const Work &work) {
  std::atomic<bool> go = false;
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int thread = 0; thread < kThreads; thread++) {
    threads.emplace_back([&, thread] {
      while (!go) {
      }
      work(thread);
    });
  }
  go = true;
  for (std::thread &thread : threads) {
    thread.join();
  }
}

TEST(UnicodeThreads, StartOnce) {
  char word[] = "word";
  char *vector[] = {word, nullptr};
  char **arguments[kThreads];
  InThreads([&](int thread) {
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

TEST(UnicodeThreads, LookNamesUpTogether) {
  InThreads([](int thread) {
    for (int round = 0; round < 200; round++) {
      const int part = 1 + (round + thread) % 10;
      const std::string name = (round % 2 == 0 ? "iso_8859_" : "ISO8859-") + std::to_string(part);
      EXPECT_EQ(Unicode_EncodingNameToEnum(name.c_str()), 7 + part);
      EXPECT_STREQ(Unicode_EncodingEnumToName(STRING_ENCODING_DEFAULT), "UTF-8");
      const OwnedUnicode str(Unicode_Alloc("\xE9", STRING_ENCODING_ISO_8859_1));
      EXPECT_STREQ(str.get(), "\xC3\xA9");
    }
  });
}

}  // namespace
