// No path of the foundation or the engine reaches a system call but through the wrappers.

#include <gtest/gtest.h>

#include "testhost.h"

namespace {

TEST(PathCalls, GoThroughTheWrappers) {
  std::string found;
  EXPECT_EQ(testhost::Run(PATHCALLS " " FOUNDATION_LIBRARY " " ENGINE_LIBRARY, &found), 0) << found;
  EXPECT_EQ(found, "");
}

TEST(PathCalls, AreToldWithTheirPlaces) {
  std::string found;
  EXPECT_EQ(testhost::Run(PATHCALLS " " SAMPLE_LIBRARY, &found), 1);
  EXPECT_EQ(found,
            "pathcallsSample.cc.o: a file of the standard library\n"
            "tests/pathcallsSample.cc:13: stat\n"
            "tests/pathcallsSample.cc:14: opendir\n"
            "tests/pathcallsSample.cc:16: fopen\n");
}

TEST(PathCalls, OfALibraryThatIsNotThereAreNotJudged) {
  std::string found;
  EXPECT_NE(testhost::Run(PATHCALLS " /missing.a", &found), 0);
}

}  // namespace
