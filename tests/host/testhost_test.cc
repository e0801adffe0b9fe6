#include "testhost.h"

#include <gtest/gtest.h>

namespace testhost {
namespace {

TEST(Host, ShowsFilesOverTheRoot) {
  Host host;
  host.File("/etc/SuSE-release", "SUSE\n", 0640);
  host.Enter();
  EXPECT_EQ(ReadFile("/etc/SuSE-release"), "SUSE\n");
}

}  // namespace
}  // namespace testhost
