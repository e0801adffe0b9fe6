#include "machineID.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <utility>

#include "hostinfoPosix.h"
#include "log.h"
#include "owned.h"
#include "systemCalls.h"
#include "testhost.h"

// What happens at this thread's next socket.
static thread_local std::function<void()> atSocket;

// Stands in front of the library's.
extern "C" int socket(int domain, int type, int protocol) noexcept {
  if (const auto event = std::exchange(atSocket, nullptr)) {
    event();
  }
  return static_cast<int>(syscall(SYS_socket, domain, type, protocol));
}

namespace {

// A host with a name and a network of its own, without an interface but the loopback.
class MachineID : public ::testing::Test {
 protected:
  void SetUp() override {
    testhost::Host host;
    host.File("/etc/hosts", "127.0.0.1 maple.example maple\n").File("/etc/resolv.conf", "");
    host.Enter();
    ASSERT_EQ(unshare(CLONE_NEWUTS | CLONE_NEWNET), 0);
    NameHost("maple");
    ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  }

  static void NameHost(const std::string &name) { ASSERT_EQ(sethostname(name.data(), name.size()), 0); }

  static void AddInterface(const std::string &name, const std::string &address) {
    std::string output;
    ASSERT_EQ(
        testhost::Run("ip tuntap add " + name + " mode tap && ip link set " + name + " address " + address,
                      &output),
        0)
        << output;
  }

  void Ask() { Hostinfo_MachineID(&hash_, &hardware_); }

  uint32_t hash_ = 1;
  uint64_t hardware_ = 1;
};

uint32_t HashOf(const std::string &text) {
  uint32_t hash = 5381;
  for (const char byte : text) {
    hash = hash * 33 + static_cast<unsigned char>(byte);
  }
  return hash;
}

std::string HostName() {
  const OwnedString name(Hostinfo_HostName());
  return name == nullptr ? "none" : name.get();
}

TEST_F(MachineID, HostNameIsTheCanonicalOne) {
  EXPECT_EQ(HostName(), "maple.example");
}

TEST_F(MachineID, HostNameIsTheNodeNameOfAnUnknownHost) {
  NameHost("birch");
  EXPECT_EQ(HostName(), "birch");
}

TEST_F(MachineID, HostWithoutANameGivesTheDefault) {
  NameHost("");
  EXPECT_EQ(HostName(), "none");
  Ask();
  EXPECT_EQ(hash_, 0U);
  EXPECT_NE(testhost::ReadFile(Log_GetFileName())
                .find("Hostinfo_MachineID Hostinfo_HostName failure; providing default.\n"),
            std::string::npos);
}

TEST_F(MachineID, HardwareIsTheAddressOfTheFirstInterface) {
  AddInterface("eth5", "02:11:11:11:11:11");
  AddInterface("eth2", "02:03:04:05:06:f7");
  Ask();
  EXPECT_EQ(hash_, HashOf("maple.example"));
  EXPECT_EQ(hardware_, 0xf70605040302U);
}

TEST_F(MachineID, InterfacesWithOtherNamesDoNotCount) {
  AddInterface("enp3s0", "02:03:04:05:06:07");
  AddInterface("eth8", "02:03:04:05:06:07");
  Ask();
  EXPECT_EQ(hardware_, 0U);
}

// What isn't ASCII ends a name.
TEST_F(MachineID, AnEmptyNameHasTheHashOfNothing) {
  NameHost("\xE9t\xE9");
  EXPECT_EQ(HostName(), "");
  Ask();
  EXPECT_EQ(hash_, 5381U);
}

TEST_F(MachineID, AsksForEightInterfacesWithASocketEach) {
  testhost::SystemCalls calls({SYS_ioctl});
  calls.Fail(SYS_ioctl, ENODEV);
  const int next = testhost::NextDescriptor();
  Ask();
  EXPECT_EQ(calls.Count(SYS_ioctl), 8U);
  EXPECT_EQ(hardware_, 0U);
  EXPECT_EQ(testhost::NextDescriptor(), next);
}

TEST_F(MachineID, AnInterfaceThatDoesNotAnswerEndsTheSearch) {
  AddInterface("eth1", "02:03:04:05:06:07");
  testhost::FailSystemCall(SYS_ioctl, EPERM);
  Ask();
  EXPECT_EQ(hardware_, 0U);
  EXPECT_EQ(hash_, HashOf("maple.example"));
  const std::string log = testhost::ReadFile(Log_GetFileName());
  EXPECT_NE(log.find("ObtainHardwareID unexpected failure: 1.\n"), std::string::npos);
  EXPECT_NE(
      log.find("Hostinfo_MachineID ObtainHardwareID failure (Operation not permitted); providing default.\n"),
      std::string::npos);
}

TEST_F(MachineID, IsLookedUpOnce) {
  Ask();
  const uint32_t hash = hash_;
  NameHost("birch");
  AddInterface("eth0", "02:03:04:05:06:07");
  Ask();
  EXPECT_EQ(hash_, hash);
  EXPECT_EQ(hardware_, 0U);
}

TEST_F(MachineID, ProcessForkedDuringTheFirstLookUpIsNotHindered) {
  std::atomic<bool> inside = false;
  std::thread other([&inside] {
    atSocket = [&inside] {
      inside = true;
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
    };
    uint32_t hash = 0;
    uint64_t hardware = 1;
    Hostinfo_MachineID(&hash, &hardware);
    EXPECT_EQ(hash, HashOf("maple.example"));
  });
  while (!inside) {
    std::this_thread::yield();
  }
  const pid_t child = fork();
  if (child == 0) {
    alarm(5);
    Ask();
    _exit(hash_ == HashOf("maple.example") && hardware_ == 0 ? 0 : 1);
  }
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  other.join();
}

TEST_F(MachineID, UnexpectedFailureGivesTheDefault) {
  const OwnedStream log(fopen(Log_GetFileName(), "r"));
  AddInterface("eth0", "02:03:04:05:06:07");
  rlimit before;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit none{0, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  uint32_t hash = 1;
  uint64_t hardware = 1;
  Hostinfo_MachineID(&hash, &hardware);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(hardware, 0U);
  std::string text(100000, '\0');
  text.resize(fread(text.data(), 1, text.size(), log.get()));
  EXPECT_NE(text.find("ObtainHardwareID unexpected failure: 24.\n"), std::string::npos);
  EXPECT_NE(
      text.find("Hostinfo_MachineID ObtainHardwareID failure (Too many open files); providing default.\n"),
      std::string::npos);
}

}  // namespace
