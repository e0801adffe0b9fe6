#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "ostpoll.h"
#include "pollImpl.h"

namespace {

// An implementation that records how it is called.
std::string calls;

void Record(const std::string &call) {
  calls += call + "\n";
}

void Callback(void * /*clientData*/) {}

std::string Text(PollClassSet set) {
  std::ostringstream text;
  text << "{" << set.words[0] << "," << set.words[1] << "}";
  return text.str();
}

std::string Text(PollClassSet set, unsigned flags, PollFn func, const void *clientData, int type) {
  std::ostringstream text;
  text << Text(set) << " flags " << flags << (func == Callback ? " Callback" : " ?") << " data "
       << (clientData == nullptr ? 0 : *static_cast<const int *>(clientData)) << " type " << type;
  return text.str();
}

bool answer;
int found = 77;
int data = 5;

const PollImpl kRecorder = {
    .init = [] { Record("init"); },
    .exit = [] { Record("exit"); },
    .loop =
        [](bool loop, const volatile bool *exit, unsigned eventClass, int timeoutMicro) {
          Record("loop " + std::to_string(loop) + " " + std::to_string(exit != nullptr && *exit) + " " +
                 std::to_string(eventClass) + " " + std::to_string(timeoutMicro));
        },
    .add =
        [](PollClassSet set, unsigned flags, PollFn func, void *clientData, int type, int info, void *lock) {
          Record("add " + Text(set, flags, func, clientData, type) + " info " + std::to_string(info) +
                 (lock == nullptr ? "" : " lock"));
        },
    .remove =
        [](PollClassSet set, unsigned flags, PollFn func, void *clientData, int type) {
          Record("remove " + Text(set, flags, func, clientData, type));
          return answer;
        },
    .removeOne =
        [](PollClassSet set, unsigned flags, PollFn func, int type, void **clientData) {
          *clientData = &found;
          Record("removeOne " + Text(set, flags, func, nullptr, type));
          return answer;
        },
};

class Poll : public testing::Test {
 protected:
  void SetUp() override {
    Poll_Install(&kRecorder);
    EXPECT_EQ(Called(), "init\n");
  }

  static std::string Called() {
    std::string text;
    std::swap(text, calls);
    return text;
  }
};

constexpr PollClassSet kMainAndSixtyFive = {{1, 2}};

TEST_F(Poll, ExitsAndCanBeInstalledAgain) {
  Poll_Exit();
  EXPECT_EQ(Called(), "exit\n");
  Poll_Install(&kRecorder);
  EXPECT_EQ(Called(), "init\n");
}

TEST_F(Poll, IsThereUntilItsExitReturns) {
  Poll_Exit();
  PollImpl removes = kRecorder;
  removes.exit = [] { Poll_RemoveTimer(Callback, &data, true); };
  Poll_Install(&removes);
  Called();
  Poll_Exit();
  EXPECT_EQ(Called(), "remove {1,0} flags 3 Callback data 5 type 1\n");
}

TEST_F(Poll, RunsForASecondUnlessToldOtherwise) {
  bool exit = true;
  Poll_Run(true, &exit, 3);
  EXPECT_EQ(Called(), "loop 1 1 3 1000000\n");
  exit = false;
  Poll_RunTimed(false, &exit, 127, -1);
  EXPECT_EQ(Called(), "loop 0 0 127 -1\n");
}

TEST_F(Poll, PassesCallbacksOnAsTheyAre) {
  Poll_AddCallback(kMainAndSixtyFive, POLL_FLAG_PERIODIC, Callback, &data, POLL_TYPE_MAIN_LOOP, -9, nullptr);
  EXPECT_EQ(Called(), "add {1,2} flags 1 Callback data 5 type 3 info -9\n");
  Poll_AddCallback(kMainAndSixtyFive, 0, Callback, nullptr, POLL_TYPE_TIMER, 7, nullptr);
  EXPECT_EQ(Called(), "add {1,2} flags 0 Callback data 0 type 1 info 7\n");
  answer = true;
  EXPECT_TRUE(Poll_RemoveCallback(kMainAndSixtyFive, 0, Callback, &data, POLL_TYPE_TIMER));
  EXPECT_EQ(Called(), "remove {1,2} flags 0 Callback data 5 type 1\n");
  answer = false;
  EXPECT_FALSE(Poll_RemoveCallback(kMainAndSixtyFive, 0, Callback, &data, POLL_TYPE_MAIN_LOOP));
  EXPECT_EQ(Called(), "remove {1,2} flags 0 Callback data 5 type 3\n");
}

TEST_F(Poll, RemovesByFunctionAndTellsTheClientData) {
  for (const bool result : {true, false}) {
    answer = result;
    void *clientData = nullptr;
    EXPECT_EQ(Poll_RemoveOneByFunction(kMainAndSixtyFive, 3, Callback, POLL_TYPE_TIMER, &clientData), result);
    EXPECT_EQ(clientData, &found);
    EXPECT_EQ(Called(), "removeOne {1,2} flags 3 Callback data 0 type 1\n");
  }
}

TEST_F(Poll, ADeviceReadsUnlessToldOtherwise) {
  const unsigned told[][2] = {{0, 4}, {3, 7}, {4, 4}, {8, 8}, {9, 9}, {12, 12}};
  for (const auto &[flags, passed] : told) {
    const std::string text = "{1,2} flags " + std::to_string(passed) + " Callback data ";
    Poll_AddCallback(kMainAndSixtyFive, flags, Callback, &data, POLL_TYPE_DEVICE, 6, nullptr);
    EXPECT_EQ(Called(), "add " + text + "5 type 2 info 6\n");
    Poll_RemoveCallback(kMainAndSixtyFive, flags, Callback, &data, POLL_TYPE_DEVICE);
    EXPECT_EQ(Called(), "remove " + text + "5 type 2\n");
    void *clientData = nullptr;
    Poll_RemoveOneByFunction(kMainAndSixtyFive, flags, Callback, POLL_TYPE_DEVICE, &clientData);
    EXPECT_EQ(Called(), "removeOne " + text + "0 type 2\n");
  }
}

TEST_F(Poll, TimersAreStandardCallbacksOfTheMainClass) {
  Poll_AddTimer(Callback, &data, 1234, true, nullptr);
  EXPECT_EQ(Called(), "add {1,0} flags 3 Callback data 5 type 1 info 1234\n");
  Poll_AddTimer(Callback, &data, 0, false, nullptr);
  EXPECT_EQ(Called(), "add {1,0} flags 2 Callback data 5 type 1 info 0\n");
  for (const bool result : {true, false}) {
    answer = result;
    EXPECT_EQ(Poll_RemoveTimer(Callback, &data, true), result);
    EXPECT_EQ(Called(), "remove {1,0} flags 3 Callback data 5 type 1\n");
    EXPECT_EQ(Poll_RemoveTimer(Callback, &data, false), result);
    EXPECT_EQ(Called(), "remove {1,0} flags 2 Callback data 5 type 1\n");
  }
}

TEST_F(Poll, DevicesAreStandardCallbacksOfTheMainClassThatRead) {
  Poll_AddDevice(Callback, &data, 11, true);
  EXPECT_EQ(Called(), "add {1,0} flags 7 Callback data 5 type 2 info 11\n");
  Poll_AddDevice(Callback, &data, 11, false);
  EXPECT_EQ(Called(), "add {1,0} flags 6 Callback data 5 type 2 info 11\n");
  for (const bool result : {true, false}) {
    answer = result;
    EXPECT_EQ(Poll_RemoveDevice(Callback, &data, true), result);
    EXPECT_EQ(Called(), "remove {1,0} flags 7 Callback data 5 type 2\n");
    EXPECT_EQ(Poll_RemoveDevice(Callback, &data, false), result);
    EXPECT_EQ(Called(), "remove {1,0} flags 6 Callback data 5 type 2\n");
  }
}

const auto kPanics = testing::ExitedWithCode(255);
constexpr char kAssert[] = "^ASSERT lib/poll/poll\\.cc:[0-9]+\n";

using PollDeathTest = Poll;

TEST_F(PollDeathTest, ASecondInstallationPanics) {
  EXPECT_EXIT(Poll_Install(&kRecorder), kPanics, kAssert);
}

TEST_F(PollDeathTest, NothingIsThereBehindTheExit) {
  Poll_Exit();
  bool exit = false;
  EXPECT_EXIT(Poll_Exit(), kPanics, kAssert);
  EXPECT_EXIT(Poll_Run(false, &exit, 0), kPanics, kAssert);
  EXPECT_EXIT(Poll_AddTimer(Callback, nullptr, 1, false, nullptr), kPanics, kAssert);
  EXPECT_EXIT(Poll_RemoveTimer(Callback, nullptr, false), kPanics, kAssert);
}

TEST_F(PollDeathTest, NullFunctionsAndResultsPanic) {
  void *clientData = nullptr;
  EXPECT_EXIT(Poll_AddCallback({{1, 0}}, 0, nullptr, &data, POLL_TYPE_TIMER, 1, nullptr), kPanics, kAssert);
  EXPECT_EXIT(Poll_RemoveCallback({{1, 0}}, 0, nullptr, &data, POLL_TYPE_TIMER), kPanics, kAssert);
  EXPECT_EXIT(Poll_RemoveOneByFunction({{1, 0}}, 0, nullptr, POLL_TYPE_TIMER, &clientData), kPanics, kAssert);
  EXPECT_EXIT(Poll_RemoveOneByFunction({{1, 0}}, 0, Callback, POLL_TYPE_TIMER, nullptr), kPanics, kAssert);
  EXPECT_EXIT(Poll_AddTimer(nullptr, nullptr, 1, false, nullptr), kPanics, kAssert);
  EXPECT_EXIT(Poll_RemoveTimer(nullptr, nullptr, false), kPanics, kAssert);
  EXPECT_EXIT(Poll_AddDevice(nullptr, nullptr, 0, false), kPanics, kAssert);
  EXPECT_EXIT(Poll_RemoveDevice(nullptr, nullptr, false), kPanics, kAssert);
}

TEST_F(PollDeathTest, ALockPanics) {
  EXPECT_EXIT(Poll_AddTimer(Callback, nullptr, 1, false, &data), kPanics, kAssert);
  EXPECT_EXIT(Poll_AddCallback({{1, 0}}, 0, Callback, nullptr, POLL_TYPE_MAIN_LOOP, 0, &data), kPanics,
              kAssert);
}

TEST(PollClassSet, HasABitForEachOf128Classes) {
  for (unsigned eventClass = 0; eventClass < 128; eventClass++) {
    const PollClassSet set = PollClassSet_Singleton(eventClass);
    EXPECT_EQ(set.words[0], eventClass < 64 ? uint64_t{1} << eventClass : 0);
    EXPECT_EQ(set.words[1], eventClass < 64 ? 0 : uint64_t{1} << (eventClass - 64));
    for (unsigned other = 0; other < 128; other++) {
      EXPECT_EQ(PollClassSet_IsMember(set, other), other == eventClass);
    }
  }
}

TEST(PollClassSet, KeepsWhatItHasWhenMoreIsIncluded) {
  PollClassSet set{};
  PollClassSet_Include(&set, 0);
  PollClassSet_Include(&set, 127);
  EXPECT_TRUE(PollClassSet_Equal(set, {{1, uint64_t{1} << 63}}));
  EXPECT_FALSE(PollClassSet_Equal(set, {{1, 0}}));
  EXPECT_FALSE(PollClassSet_Equal(set, {{0, uint64_t{1} << 63}}));
}

TEST(PollClassSetDeathTest, PanicsAbove127) {
  constexpr char kInHeader[] = "^ASSERT lib/public/pollImpl\\.h:[0-9]+\n";
  PollClassSet set{};
  for (const unsigned eventClass : {128U, ~0U}) {
    EXPECT_EXIT(PollClassSet_IsMember(set, eventClass), kPanics, kInHeader);
    EXPECT_EXIT(PollClassSet_Include(&set, eventClass), kPanics, kInHeader);
    EXPECT_EXIT(PollClassSet_Singleton(eventClass), kPanics, kInHeader);
  }
}

}  // namespace
