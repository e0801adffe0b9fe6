#include "idLinux.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "testhost.h"

namespace {

constexpr uid_t kUser = 1234;
constexpr auto kNobody = static_cast<uid_t>(-1);

TEST(Id, RootStaysRoot) {
  testhost::Host host;
  host.Enter();
  const uid_t user = Id_BeginSuperUser();
  EXPECT_EQ(user, kNobody);
  EXPECT_EQ(geteuid(), 0U);
  Id_EndSuperUser(user);
  EXPECT_EQ(geteuid(), 0U);
}

TEST(Id, BecomesRootForAMoment) {
  testhost::Host host;
  host.Enter();
  ASSERT_EQ(setresuid(kUser, kUser, 0), 0);
  const uid_t user = Id_BeginSuperUser();
  EXPECT_EQ(user, kUser);
  EXPECT_EQ(geteuid(), 0U);
  EXPECT_EQ(getuid(), kUser);
  Id_EndSuperUser(user);
  EXPECT_EQ(geteuid(), kUser);
  ASSERT_EQ(setresuid(0, 0, 0), 0);
}

TEST(Id, OrdinaryUserStaysWhoItIs) {
  testhost::Host host;
  host.User(kUser).Enter();
  const uid_t user = Id_BeginSuperUser();
  EXPECT_EQ(geteuid(), kUser);
  Id_EndSuperUser(user);
  EXPECT_EQ(geteuid(), kUser);
}

TEST(Id, RootIsNoUserToGoBackTo) {
  testhost::Host host;
  host.User(kUser).Enter();
  EXPECT_EXIT(Id_EndSuperUser(0), ::testing::ExitedWithCode(255), "ASSERT lib/misc/idLinux\\.cc:[0-9]+");
}

}  // namespace
