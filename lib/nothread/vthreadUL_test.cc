#include <gtest/gtest.h>
#include <pthread.h>

#include <string>
#include <thread>

#include "panics.h"
#include "vthread.h"

// The names are the process's, so each of these needs one of its own.

namespace {

using testhost::Panics;

const auto kPanics = testing::ExitedWithCode(255);
constexpr char kAssertion[] = "ASSERT lib/nothread/vthreadUL.cc:[0-9]+\n";

// What another thread is called, and the number that it goes by.
struct Elsewhere {
  std::string name;
  std::string number;
};

Elsewhere AskElsewhere() {
  Elsewhere elsewhere;
  std::thread([&] { elsewhere = {VThread_CurName(), std::to_string(pthread_self())}; }).join();
  return elsewhere;
}

TEST(VThread, IsTheAppWithoutAnyCall) {
  EXPECT_EQ(VThread_CurID(), 3);
  EXPECT_STREQ(VThread_CurName(), "app");
}

TEST(VThread, IsTheAppInEveryThreadWithoutAnyCall) {
  EXPECT_EQ(AskElsewhere().name, "app");
}

TEST(VThread, InitTakesIdsUpToThree) {
  VThread_Init(-1, "nobody's");
  EXPECT_EQ(VThread_CurID(), 3);
  EXPECT_STREQ(VThread_CurName(), "nobody's");
  for (const int id : {0, 1, 2, 3}) {
    const std::string name = "own" + std::to_string(id);
    VThread_Init(id, name.c_str());
    EXPECT_EQ(VThread_CurID(), id);
    EXPECT_EQ(VThread_CurName(), name);
  }
  EXPECT_EXIT(VThread_Init(4, "four"), kPanics, Panics(testing::MatchesRegex(kAssertion)));
  EXPECT_EXIT(VThread_Init(-2, "less"), kPanics, Panics(testing::MatchesRegex(kAssertion)));
}

TEST(VThread, InitThreadTakesIdsFrom36To95) {
  EXPECT_EQ(VThread_InitThread(-1, "a"), 3);
  EXPECT_STREQ(VThread_CurName(), "a");
  EXPECT_EQ(VThread_InitThread(-2, "b"), 3);
  EXPECT_STREQ(VThread_CurName(), "b");
  for (const int id : {36, 37, 94, 95}) {
    const std::string name = "further" + std::to_string(id);
    EXPECT_EQ(VThread_InitThread(id, name.c_str()), id);
    EXPECT_EQ(VThread_CurID(), id);
    EXPECT_EQ(VThread_CurName(), name);
  }
  for (const int id : {-3, 0, 3, 35, 96}) {
    EXPECT_EXIT(VThread_InitThread(id, "c"), kPanics, Panics(testing::MatchesRegex(kAssertion))) << id;
  }
}

TEST(VThread, EachIdHasAName) {
  VThread_Init(1, "one");
  const char *one = VThread_CurName();
  VThread_InitThread(36, "far");
  EXPECT_STREQ(VThread_CurName(), "far");
  EXPECT_STREQ(one, "one");
  VThread_Init(1, "won");
  EXPECT_STREQ(one, "won");
}

TEST(VThread, NamesWhoHasNoName) {
  VThread_InitThread(36, nullptr);
  EXPECT_STREQ(VThread_CurName(), "vthread-36");
  VThread_InitThread(95, nullptr);
  EXPECT_STREQ(VThread_CurName(), "vthread-95");
  VThread_InitThread(-1, nullptr);
  EXPECT_STREQ(VThread_CurName(), "vthread-3");
  // Only there.
  EXPECT_EXIT(VThread_Init(3, nullptr), kPanics,
              Panics(testing::Eq("ASSERT lib/nothread/vthreadUL.cc:124\n")));
}

TEST(VThread, KeepsThirtyOneBytesOfAName) {
  VThread_InitThread(95, "next to the end");
  for (const int id : {3, 2}) {
    VThread_Init(id, std::string(31, 'x').c_str());
    EXPECT_EQ(VThread_CurName(), std::string(31, 'x'));
    VThread_Init(id, (std::string(31, 'y') + "z").c_str());
    EXPECT_EQ(VThread_CurName(), std::string(31, 'y'));
    VThread_Init(id, "short");
    EXPECT_STREQ(VThread_CurName(), "short");
  }
  VThread_InitThread(95, std::string(100, 'w').c_str());
  EXPECT_EQ(VThread_CurName(), std::string(31, 'w'));
}

TEST(VThread, AnotherThreadHasItsNumberBehindTheName) {
  VThread_Init(2, "ui");
  EXPECT_STREQ(VThread_CurName(), "ui");
  const Elsewhere elsewhere = AskElsewhere();
  EXPECT_EQ(elsewhere.name, "ui-" + elsewhere.number);
  // Who comes second doesn't take the first one's place.
  std::thread([] {
    VThread_InitThread(40, "helper");
    EXPECT_EQ(VThread_CurName(), "helper-" + std::to_string(pthread_self()));
  }).join();
  EXPECT_STREQ(VThread_CurName(), "helper");
}

TEST(VThread, InitThreadAloneTellsWhoseTheNamesAre) {
  VThread_InitThread(40, "first");
  EXPECT_STREQ(VThread_CurName(), "first");
  const Elsewhere elsewhere = AskElsewhere();
  EXPECT_EQ(elsewhere.name, "first-" + elsewhere.number);
}

TEST(VThread, AnotherThreadsNameIsCutAt47Bytes) {
  VThread_Init(3, std::string(31, 'n').c_str());
  const Elsewhere elsewhere = AskElsewhere();
  EXPECT_EQ(elsewhere.name, (std::string(31, 'n') + "-" + elsewhere.number).substr(0, 47));
}

TEST(VThread, HandlesNoSignalUntilItIsTold) {
  EXPECT_FALSE(VThread_IsInSignal());
  VThread_SetIsInSignal(3, true);
  EXPECT_TRUE(VThread_IsInSignal());
  std::thread([] { EXPECT_TRUE(VThread_IsInSignal()); }).join();
  VThread_SetIsInSignal(36, false);  // one flag for all ids
  EXPECT_FALSE(VThread_IsInSignal());
}

}  // namespace
