#include "initializer.h"

#include <gtest/gtest.h>

#include <string>

namespace kernprep {
namespace {

std::string events;

bool Start(const char *name, bool result) {
  events += std::string("+") + name;
  return result;
}

void End(const char *name) {
  events += std::string("-") + name;
}

sigc::slot<bool> Starts(const char *name, bool result = true) {
  return sigc::bind(sigc::ptr_fun(Start), name, result);
}

sigc::slot<void> Ends(const char *name) {
  return sigc::bind(sigc::ptr_fun(End), name);
}

std::string FailureOf(const sigc::slot<bool> &init, const sigc::slot<void> &deinit) {
  try {
    const Initializer guard(init, deinit, "Unable to initialize a");
  } catch (const InitializeError &error) {
    return error.what();
  }
  return "";
}

TEST(Initializer, StartsAtOnceAndEndsWithTheScope) {
  {
    const Initializer guard(Starts("a"), Ends("a"), "Unable to initialize a");
    EXPECT_EQ(events, "+a");
  }
  EXPECT_EQ(events, "+a-a");
}

TEST(Initializer, ThrowsTheMessageAndEndsNothingWhenTheStartFails) {
  EXPECT_EQ(FailureOf(Starts("a", false), Ends("a")), "Unable to initialize a");
  EXPECT_EQ(events, "+a");
}

TEST(Initializer, ThrowsForAnEmptyStart) {
  EXPECT_EQ(FailureOf(sigc::slot<bool>(), Ends("a")), "Unable to initialize a");
  EXPECT_EQ(events, "");
}

TEST(Initializer, ThrowsForABlockedStart) {
  sigc::slot<bool> start = Starts("a");
  start.block();
  EXPECT_EQ(FailureOf(start, Ends("a")), "Unable to initialize a");
  EXPECT_EQ(events, "");
}

TEST(Initializer, NeedsNoEnd) {
  { const Initializer guard(Starts("a"), sigc::slot<void>(), ""); }
  EXPECT_EQ(events, "+a");
}

TEST(Initializer, DoesNotCallABlockedEnd) {
  sigc::slot<void> end = Ends("a");
  end.block();
  { const Initializer guard(Starts("a"), end, ""); }
  EXPECT_EQ(events, "+a");
}

TEST(Initializer, KeepsItsOwnCopyOfTheSlots) {
  {
    sigc::slot<bool> start = Starts("a");
    sigc::slot<void> end = Ends("a");
    const Initializer guard(start, end, "");
    end = Ends("b");
  }
  EXPECT_EQ(events, "+a-a");
}

TEST(Initializer, EndsInReverseOrderAlsoWhenALaterStartFails) {
  try {
    const Initializer first(Starts("a"), Ends("a"), "a");
    const Initializer second(Starts("b"), Ends("b"), "b");
    const Initializer third(Starts("c", false), Ends("c"), "c");
    FAIL();
  } catch (const InitializeError &error) {
    EXPECT_STREQ(error.what(), "c");
  }
  EXPECT_EQ(events, "+a+b+c-b-a");
}

TEST(InitializeError, CarriesItsTextUnchanged) {
  EXPECT_STREQ(InitializeError("für 100%s").what(), "für 100%s");
}

}  // namespace
}  // namespace kernprep
