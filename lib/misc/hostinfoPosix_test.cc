#include "hostinfoPosix.h"

#include <sched.h>
#include <sys/syscall.h>

#include "owned.h"
#include "posixPosixTestInt.h"

namespace {

// Enters a host of this name, with these lines in its /etc/hosts.
void EnterHost(const std::string &name, const std::string &hosts) {
  testhost::Host host;
  host.File("/etc/nsswitch.conf", "hosts: files\n").File("/etc/hosts", hosts);
  host.Enter();
  ASSERT_EQ(unshare(CLONE_NEWUTS), 0);
  ASSERT_EQ(sethostname(name.data(), name.size()), 0);
}

std::string HostName() {
  const OwnedString name(Hostinfo_HostName());
  return name == nullptr ? "(null)" : name.get();
}

TEST(HostinfoHostName, PrefersTheCanonicalName) {
  EnterHost("node", "127.0.0.1 node.example.org node other\n");
  EXPECT_EQ(HostName(), "node.example.org");
}

TEST(HostinfoHostName, IsTheNodesNameWhereNothingElseIsKnown) {
  EnterHost("node", "127.0.0.1 localhost\n");
  EXPECT_EQ(HostName(), "node");
}

// As when the buffer of 1024 bytes isn't enough.
TEST(HostinfoHostName, IsTheNodesNameWhereTheEntryIsTooLong) {
  EnterHost("node", "127.0.0.1 node.example.org node " + std::string(1200, 'x') + "\n");
  EXPECT_EQ(HostName(), "node");
}

TEST(HostinfoHostName, AnEmptyNameIsNone) {
  EnterHost("", "127.0.0.1 localhost\n");
  EXPECT_EQ(HostName(), "(null)");
}

TEST(HostinfoHostName, IsNoneWhenTheSystemDoesNotTell) {
  EnterHost("node", "127.0.0.1 node\n");
  posixtest::AnswerSystemCalls({SYS_uname}, SECCOMP_RET_ERRNO | EIO);
  EXPECT_EQ(HostName(), "(null)");
}

TEST(HostinfoHostName, EndsAtAByteThatIsNotAscii) {
  EnterHost("caf\xE9-1", "127.0.0.1 localhost\n");
  EXPECT_EQ(HostName(), "caf");
}

}  // namespace
