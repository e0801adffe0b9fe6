// The program `testhost`, and what it leaves of itself on the real system: nothing. These tests stay outside.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <thread>
#include <vector>

#include "runInt.h"

namespace testhost {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const std::string kProgram = TESTHOST_PROGRAM;

Outcome Testhost(const std::string &arguments) {
  return RunCommand("exec " + kProgram + " " + arguments);
}

// A directory of the real system, for the life of one test.
class Program : public testing::Test {
 protected:
  Program() {
    char name[] = "/tmp/testhost-test-XXXXXX";
    directory_ = mkdtemp(name);
    mark_ = std::filesystem::path(directory_).filename();
  }
  ~Program() override { std::filesystem::remove_all(directory_); }

  std::string directory_;
  // A name that nothing else has.
  std::string mark_;
};

bool IsRunning(const std::string &mark) {
  for (const auto &process : std::filesystem::directory_iterator("/proc")) {
    const std::string name = process.path().filename();
    if (name != "self" && name != std::to_string(getpid()) &&
        ReadFile(process.path() / "cmdline").find(mark) != std::string::npos) {
      return true;
    }
  }
  return false;
}

bool WaitUntil(const std::function<bool()> &condition) {
  for (int i = 0; i < 500; ++i) {
    if (condition()) {
      return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return false;
}

TEST_F(Program, TellsHowItIsUsed) {
  const Outcome outcome = Testhost("--help");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.output, StartsWith("Usage: testhost [OPTION ...] [--] COMMAND [ARG ...]\n"));
  for (const char *option :
       {"--files", "--release", "--version", "--machine", "--user", "--keep", "--help"}) {
    EXPECT_THAT(outcome.output, HasSubstr(option));
  }
}

TEST_F(Program, RefusesABadCommandLine) {
  for (const std::string arguments :
       {"", "--", "--nothing true", "--release", "--user x true", "--user -1 true", "--user '' true",
        "--user 4294967295 true", "--files /no/such/directory true", "--files /etc/passwd true",
        "--keep /no/such/parent/directory true", "--keep /etc true", "--keep /etc/passwd true"}) {
    const Outcome outcome = Testhost(arguments);
    EXPECT_EQ(outcome.status, 2) << arguments;
    EXPECT_THAT(outcome.output, HasSubstr("Try 'testhost --help'.")) << arguments;
  }
}

TEST_F(Program, EndsAsItsCommandEnds) {
  EXPECT_EQ(Testhost("true").status, 0);
  EXPECT_EQ(Testhost("sh -c 'exit 77'").status, 77);
  EXPECT_EQ(Testhost("-- sh -c 'kill -SEGV $$'").status, 128 + SIGSEGV);
  EXPECT_EQ(Testhost("sh -c 'kill -TERM 0'").status, 128 + SIGTERM);
}

TEST_F(Program, SaysThatACommandCannotBeRun) {
  const Outcome missing = Testhost("no-such-command");
  EXPECT_EQ(missing.status, 127);
  EXPECT_EQ(missing.output, "testhost: cannot run no-such-command: No such file or directory\n");
  const Outcome directory = Testhost("/etc");
  EXPECT_EQ(directory.status, 126);
  EXPECT_EQ(directory.output, "testhost: cannot run /etc: Permission denied\n");
}

TEST_F(Program, SaysThatThereIsNoHostWithoutRoot) {
  // Where no other user reaches the built program.
  const std::string copy = directory_ + "/testhost";
  std::filesystem::copy_file(kProgram, copy);
  ASSERT_EQ(chmod(directory_.c_str(), 0755), 0);
  const Outcome outcome = RunCommand("exec setpriv --reuid 65534 --clear-groups " + copy + " echo ran");
  EXPECT_EQ(outcome.status, 125);
  EXPECT_THAT(outcome.output, HasSubstr("needs root"));
  EXPECT_THAT(outcome.output, Not(HasSubstr("ran\n")));
}

TEST_F(Program, LeavesTheCommandsOptionsAlone) {
  EXPECT_EQ(Testhost("echo --release x --help").output, "--release x --help\n");
  EXPECT_EQ(Testhost("-- echo -- --user").output, "-- --user\n");
}

TEST_F(Program, AnswersForAnotherKernel) {
  EXPECT_EQ(Testhost("--release 2.6.18-8 --version '#1 SMP' --machine i686 -- uname -rvm").output,
            "2.6.18-8 #1 SMP i686\n");
}

TEST_F(Program, RunsAsAnotherUser) {
  EXPECT_EQ(Testhost("--user 1234 id -un").output, "user1234\n");
  EXPECT_EQ(Testhost("--user 0 id -un").output, "root\n");
}

TEST_F(Program, LaysFilesOverTheRoot) {
  ASSERT_EQ(RunCommand("cd " + directory_ +
                       " && mkdir -p etc/ostrel-tools lib/modules/9.9 proc/net &&"
                       " echo answer >etc/ostrel-tools/locations && echo dep >lib/modules/9.9/modules.dep &&"
                       " echo Mine >proc/version && echo sym >proc/ksyms")
                .status,
            0);
  EXPECT_EQ(
      Testhost(
          "--files " + directory_ +
          " sh -c 'cat /etc/ostrel-tools/locations /lib/modules/9.9/modules.dep /proc/version /proc/ksyms'")
          .output,
      "answer\ndep\nMine\nsym\n");
  EXPECT_EQ(RunCommand("cd " + directory_ + " && " + kProgram + " --files . cat /proc/version").output,
            "Mine\n");
}

TEST_F(Program, HidesWhatOthersLeftInTmp) {
  const std::string left = "/tmp/ostrel-" + mark_;
  ASSERT_TRUE(std::filesystem::create_directory(left));
  WriteFile(left + "/file", "x");
  WriteFile(directory_ + "/seen", "y");
  EXPECT_EQ(Testhost("sh -c 'ls -d /tmp/ostrel-* 2>/dev/null; cat " + directory_ + "/seen'").output, "y");
  EXPECT_EQ(ReadFile(left + "/file"), "x");
  std::filesystem::remove_all(left);
}

TEST_F(Program, HidesWhatOthersPutIntoTmpMeanwhile) {
  const Outcome outcome = RunCommand(
      "cd " + directory_ + " && mkfifo in && { " + kProgram +
      " --user 65534 sh -c 'echo up; read line; mkdir /tmp/ostrel-nobody /tmp/ostrel-root && ls -A "
      "/tmp/ostrel-nobody'"
      " <in >out 2>&1 & } && exec 3>in && until grep -q up out; do sleep 0.02; done &&"
      " mkdir -p /tmp/ostrel-nobody/sub && echo go >&3 && wait $! && cat out && rm -r /tmp/ostrel-nobody");
  EXPECT_EQ(outcome.output, "up\n");
  EXPECT_EQ(outcome.status, 0);
}

TEST_F(Program, LeavesNothingBehind) {
  const std::vector<std::string> places = {"/",         "/etc/",         "/tmp/",    "/var/tmp/",
                                           "/run/",     "/dev/",         "/root/",   "/home/",
                                           "/usr/bin/", "/lib/modules/", "/dev/shm/"};
  const std::string mounts = ReadFile("/proc/self/mountinfo");
  const std::string queues = OutputOf("ipcs -q");
  const std::string name = OutputOf("hostname");
  std::string command =
      "hostname other-name && ipcmk -Q && rm -r /etc/passwd /usr/include && mkdir -p /lib/modules";
  for (const std::string &place : places) {
    command += " && echo x >" + place + "left-" + mark_;
  }
  command += "; status=$?; echo x >" + directory_ + "/x; (setsid sh -c 'sleep 600; : " + mark_ +
             "' &) ; sh -c 'sleep 600; : " + mark_ + "' & exit $status";
  const Outcome outcome = Testhost("--release 1.2.3 sh -c " + Quoted(command));
  EXPECT_EQ(outcome.status, 0) << outcome.output;

  for (const std::string &place : places) {
    EXPECT_FALSE(std::filesystem::exists(place + "left-" + mark_)) << place;
  }
  EXPECT_TRUE(std::filesystem::is_empty(directory_));
  EXPECT_TRUE(std::filesystem::exists("/etc/passwd"));
  EXPECT_TRUE(std::filesystem::exists("/usr/include"));
  EXPECT_FALSE(std::filesystem::exists("/testhost"));
  EXPECT_EQ(ReadFile("/etc/ld.so.preload").find("testhost"), std::string::npos);
  EXPECT_EQ(ReadFile("/proc/self/mountinfo"), mounts);
  EXPECT_EQ(OutputOf("ipcs -q"), queues);
  EXPECT_EQ(OutputOf("hostname"), name);
  EXPECT_FALSE(IsRunning(mark_));
}

// A signal that a host is killed by from outside.
class KilledProgram : public Program, public testing::WithParamInterface<std::string> {};

TEST_P(KilledProgram, TakesItsHostWithIt) {
  const std::string stubborn = "trap \"\" TERM; echo ready; while :; do sleep 0.1; : " + mark_ + "; done";
  const std::string output = directory_ + "/output";
  std::string pid;
  ASSERT_EQ(testhost::Run(kProgram + " sh -c " + Quoted(stubborn) + " >" + output + " & echo $!", &pid), 0);
  ASSERT_TRUE(WaitUntil([&] { return ReadFile(output) == "ready\n"; }));
  ASSERT_TRUE(IsRunning(mark_));
  ASSERT_EQ(testhost::Run("kill -" + GetParam() + " " + pid), 0);
  EXPECT_TRUE(WaitUntil([&] { return !IsRunning(mark_); }));
}

INSTANTIATE_TEST_SUITE_P(By, KilledProgram, testing::Values("KILL", "TERM"));

TEST_F(Program, GivesOtherFileSystemsTheSameProtection) {
  WriteFile(directory_ + "/file", "real\n");
  const std::string command =
      "mount -t tmpfs none /mnt && echo inner >/mnt/inner && mount --bind " + directory_ +
      "/file /etc/hostname && mkdir '/mnt/a:b,c d' && mount -t tmpfs none '/mnt/a:b,c d' && " + kProgram +
      " sh -c 'cat /mnt/inner /etc/hostname && echo x >/mnt/inner && echo y >/etc/hostname && echo z "
      ">\"/mnt/a:b,c d/z\""
      " && cat /mnt/inner /etc/hostname /mnt/a*/z' && cat /mnt/inner /etc/hostname && ls -A /mnt/a*";
  const Outcome outcome = RunCommand("unshare --mount sh -c " + Quoted(command));
  EXPECT_EQ(outcome.output, "inner\nreal\nx\ny\nz\ninner\nreal\n");
  EXPECT_EQ(outcome.status, 0);
}

class Keep : public Program {
 protected:
  // Runs a shell command in a host and keeps what it changed.
  void KeepAfter(const std::string &command, const std::string &options = "") {
    const Outcome outcome = Testhost(options + " --keep " + kept_ + " sh -c " + Quoted(command));
    ASSERT_EQ(outcome.status, 0) << outcome.output;
  }
  // The paths below what was kept.
  std::string Kept() const { return OutputOf("cd " + kept_ + " && find . -mindepth 1 | LC_ALL=C sort"); }

  const std::string kept_ = directory_ + "/kept";
};

TEST_F(Keep, HoldsWhatIsNewAndChanged) {
  KeepAfter(
      "mkdir -p /opt/new/sub && echo new >/opt/new/sub/file && echo more >>/etc/debian_version &&"
      " ln -s target /opt/new/link && mkfifo /opt/new/fifo && mkdir /opt/new/empty");
  EXPECT_EQ(Kept(),
            "./etc\n./etc/debian_version\n./opt\n./opt/new\n./opt/new/empty\n./opt/new/fifo\n./opt/new/link\n"
            "./opt/new/sub\n./opt/new/sub/file\n");
  EXPECT_EQ(ReadFile(kept_ + "/opt/new/sub/file"), "new\n");
  EXPECT_EQ(ReadFile(kept_ + "/etc/debian_version"), ReadFile("/etc/debian_version") + "more\n");
  EXPECT_EQ(std::filesystem::read_symlink(kept_ + "/opt/new/link"), "target");
  EXPECT_TRUE(std::filesystem::is_fifo(kept_ + "/opt/new/fifo"));
}

TEST_F(Keep, HoldsOwnersModesAndTimes) {
  KeepAfter(
      "cd /opt && echo x >file && chown 12:34 file && chmod 4751 file && touch -d @1000000000 file &&"
      " mkdir -m 1770 directory && chown 56:78 directory && chmod 0751 /srv && ln -s x link && chown -h 9:8 "
      "link");
  EXPECT_EQ(OutputOf("cd " + kept_ + " && stat -c '%n %a %u %g' opt/* srv && stat -c %Y opt/file"),
            "opt/directory 1770 56 78\nopt/file 4751 12 34\nopt/link 777 9 8\nsrv 751 0 0\n1000000000\n");
}

TEST_F(Keep, TellsWhatWasRemoved) {
  KeepAfter("rm /etc/debian_version && rm -r /usr/include && mkdir /usr/include && echo x >/usr/include/x.h");
  EXPECT_EQ(ReadFile(kept_ + "/.removed"), "/etc/debian_version\n/usr/include\n");
  EXPECT_EQ(Kept(), "./.removed\n./etc\n./usr\n./usr/include\n./usr/include/x.h\n");
}

TEST_F(Keep, HoldsNothingWhereNothingWasChanged) {
  KeepAfter("touch /etc/x && rm /etc/x && ls /usr >/dev/null");
  EXPECT_EQ(Kept(), "");
}

TEST_F(Keep, LeavesOutWhatTheHostWasGiven) {
  ASSERT_EQ(RunCommand("mkdir -p " + directory_ + "/files/opt && echo a >" + directory_ +
                       "/files/opt/a && echo b >" + directory_ + "/files/opt/b")
                .status,
            0);
  KeepAfter("echo c >>/opt/b; rm /opt/a; touch /testhost/x",
            "--release 1.2 --user 0 --files " + directory_ + "/files");
  EXPECT_EQ(Kept(), "./.removed\n./opt\n./opt/b\n");
  EXPECT_EQ(ReadFile(kept_ + "/opt/b"), "b\nc\n");
  EXPECT_EQ(ReadFile(kept_ + "/.removed"), "/opt/a\n");
}

TEST_F(Keep, CanBeLaidOverTheRootAgain) {
  KeepAfter("echo x >/opt/x && chown 12:34 /opt/x && chmod 0640 /opt/x");
  EXPECT_EQ(Testhost("--files " + kept_ + " stat -c '%a %u %g' /opt/x").output, "640 12 34\n");
}

TEST_F(Keep, HoldsWhatLiesOnOtherFileSystems) {
  const Outcome outcome =
      RunCommand("unshare --mount sh -c " +
                 Quoted("mount -t tmpfs none /mnt && mkdir /mnt/a && echo old >/mnt/a/old && exec " +
                        kProgram + " --keep " + kept_ + " sh -c 'echo new >/mnt/a/new && rm /mnt/a/old'"));
  EXPECT_EQ(outcome.status, 0) << outcome.output;
  EXPECT_EQ(Kept(), "./.removed\n./mnt\n./mnt/a\n./mnt/a/new\n");
  EXPECT_EQ(ReadFile(kept_ + "/.removed"), "/mnt/a/old\n");
}

TEST_F(Keep, HoldsTheChangesOfACommandThatFails) {
  EXPECT_EQ(Testhost("--keep " + kept_ + " sh -c 'echo x >/opt/x; exit 3'").status, 3);
  EXPECT_EQ(ReadFile(kept_ + "/opt/x"), "x\n");
}

TEST_F(Keep, RefusesADirectoryWithSomethingInIt) {
  ASSERT_TRUE(std::filesystem::create_directory(kept_));
  WriteFile(kept_ + "/precious", "x");
  const Outcome outcome = Testhost("--keep " + kept_ + " touch /opt/ran");
  EXPECT_EQ(outcome.status, 2);
  EXPECT_THAT(outcome.output, HasSubstr("it isn't empty"));
  EXPECT_EQ(Kept(), "./precious\n");
}

}  // namespace
}  // namespace testhost
