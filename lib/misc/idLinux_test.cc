#include "idLinux.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

#include "systemCalls.h"
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

TEST(Id, TheUserWhoIsThereIsNotChanged) {
  testhost::Host host;
  host.User(kUser).Enter();
  testhost::SystemCalls calls({SYS_setresuid});
  Id_EndSuperUser(kUser);
  EXPECT_EQ(calls.Count(SYS_setresuid), 0U);
}

// The kernel's -1 stands for no user.
TEST(Id, AUserThatIsNoneStopsTheProgram) {
  testhost::Host host;
  host.Enter();
  testhost::FailSystemCall(SYS_geteuid, 1);
  EXPECT_EXIT(Id_BeginSuperUser(), ::testing::ExitedWithCode(255),
              "NOT_IMPLEMENTED lib/misc/idLinux\\.cc:[0-9]+\n");
}

TEST(Id, ChangesUserAndGroupForGood) {
  testhost::Host host;
  host.Enter();
  EXPECT_EQ(Id_SetGid(kUser), 0);
  EXPECT_EQ(Id_SetUid(kUser), 0);
  uid_t real = 0;
  uid_t effective = 0;
  uid_t saved = 0;
  ASSERT_EQ(getresgid(&real, &effective, &saved), 0);
  EXPECT_TRUE(real == kUser && effective == kUser && saved == kUser);
  ASSERT_EQ(getresuid(&real, &effective, &saved), 0);
  EXPECT_TRUE(real == kUser && effective == kUser && saved == kUser);
}

TEST(Id, OrdinaryUserCanBeNoOther) {
  testhost::Host host;
  host.User(kUser).Enter();
  EXPECT_EQ(Id_SetUid(0), -1);
  EXPECT_EQ(errno, EPERM);
  errno = 0;
  EXPECT_EQ(Id_SetGid(0), -1);
  EXPECT_EQ(errno, EPERM);
}

TEST(Id, OtherThreadsStayWhoTheyAre) {
  testhost::Host host;
  host.Enter();
  std::thread([] {
    EXPECT_EQ(Id_SetGid(kUser), 0);
    EXPECT_EQ(Id_SetUid(kUser), 0);
    EXPECT_EQ(geteuid(), kUser);
  }).join();
  EXPECT_EQ(getuid(), 0U);
  EXPECT_EQ(getgid(), 0U);
}

TEST(Id, RootIsNoUserToGoBackTo) {
  testhost::Host host;
  host.User(kUser).Enter();
  EXPECT_EXIT(Id_EndSuperUser(0), ::testing::ExitedWithCode(255), "ASSERT lib/misc/idLinux\\.cc:[0-9]+");
}

}  // namespace
