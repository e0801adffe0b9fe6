#include "testhost.h"

#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <linux/magic.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "runInt.h"

namespace testhost {
namespace {

using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::KilledBySignal;
using testing::Not;
using testing::StartsWith;

mode_t ModeOf(const std::string &path) {
  struct stat info;
  return lstat(path.c_str(), &info) == 0 ? info.st_mode & 07777 : 0;
}

std::string ThisProgram() {
  return std::filesystem::read_symlink("/proc/self/exe");
}

TEST(ReadFile, EndsQuietlyWhereReadingFails) {
  EXPECT_EQ(testhost::ReadFile("/proc/self/mem"), "");
  EXPECT_EQ(testhost::ReadFile("/no/such/file"), "");
}

TEST(HostFiles, StandOverTheRootWithTheirModesAndDirectories) {
  Host host;
  host.File("/etc/some/new/release", "line\n", 0640).File("/etc/debian_version", std::string("a\0b", 3));
  host.Directory("/var/empty/here", 0711)
      .SymLink("/opt/link", "target")
      .SymLink("/etc/hostname", "/opt/link");
  host.Enter();
  EXPECT_EQ(ReadFile("/etc/some/new/release"), "line\n");
  EXPECT_EQ(ModeOf("/etc/some/new/release"), 0640u);
  EXPECT_EQ(ModeOf("/etc/some/new"), 0755u);
  EXPECT_EQ(ReadFile("/etc/debian_version"), std::string("a\0b", 3));
  EXPECT_EQ(ModeOf("/var/empty/here"), 0711u);
  EXPECT_EQ(std::filesystem::read_symlink("/opt/link"), "target");
  EXPECT_EQ(std::filesystem::read_symlink("/etc/hostname"), "/opt/link");
}

TEST(HostFiles, TakeTheModesAskedForWhateverTheUmask) {
  umask(077);
  Host host;
  host.File("/opt/a/file", "", 0666).Directory("/opt/b/directory", 0777);
  host.Enter();
  EXPECT_EQ(ModeOf("/opt/a/file"), 0666u);
  EXPECT_EQ(ModeOf("/opt/a"), 0755u);
  EXPECT_EQ(ModeOf("/opt/b/directory"), 0777u);
  EXPECT_EQ(OutputOf("umask"), "0022\n");
}

TEST(HostFiles, ReplaceALinkAndNotWhatItNames) {
  const std::string target = std::filesystem::read_symlink("/etc/mtab");
  Host host;
  host.File("/etc/mtab", "mine\n");
  host.Enter();
  EXPECT_FALSE(std::filesystem::is_symlink("/etc/mtab"));
  EXPECT_EQ(ReadFile("/etc/mtab"), "mine\n");
  EXPECT_THAT(ReadFile("/etc/" + target), Not(HasSubstr("mine")));
}

TEST(HostFiles, GoWhereALinkedDirectoryLeads) {
  ASSERT_TRUE(std::filesystem::is_symlink("/lib"));
  Host host;
  host.File("/lib/modules/1.2.3/modules.dep", "x");
  host.Enter();
  EXPECT_TRUE(std::filesystem::is_symlink("/lib"));
  EXPECT_EQ(ReadFile("/usr/lib/modules/1.2.3/modules.dep"), "x");
  EXPECT_EQ(RunCommand("ls /lib/modules/1.2.3").output, "modules.dep\n");
}

TEST(HostFiles, CanBeTakenAway) {
  Host host;
  host.Remove("/etc/passwd").Remove("/usr/include").Remove("/no/such/file");
  host.File("/opt/first", "").Remove("/opt/first").Remove("/opt/second").File("/opt/second", "again");
  host.Enter();
  EXPECT_FALSE(std::filesystem::exists("/etc/passwd"));
  EXPECT_FALSE(std::filesystem::exists("/usr/include"));
  EXPECT_FALSE(std::filesystem::exists("/opt/first"));
  EXPECT_EQ(ReadFile("/opt/second"), "again");
}

TEST(WriteFile, MakesTheDirectoriesThatAreMissing) {
  Host host;
  host.Enter();
  WriteFile("/opt/a/b/file", "text", 0600);
  EXPECT_EQ(ReadFile("/opt/a/b/file"), "text");
  EXPECT_EQ(ModeOf("/opt/a/b/file"), 0600u);
  ASSERT_EQ(chdir("/opt"), 0);
  WriteFile("file", "here");
  EXPECT_EQ(ReadFile("/opt/file"), "here");
  EXPECT_EQ(ReadFile("/opt/missing"), "");
}

class LaidOver : public testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/testhost-files-XXXXXX";
    directory_ = mkdtemp(name);
    EXPECT_EQ(
        testhost::Run(
            "cd " + directory_ +
            " && chown 4321:4321 . && mkdir -p etc/a lib/modules/9.9 proc home/b &&"
            " echo text >etc/a/file && chmod 0604 etc/a/file && chown 4321:4321 etc/a/file &&"
            " chown 77:88 home/b && chmod 0700 home/b etc && ln -s nowhere etc/a/link && mkfifo etc/a/fifo &&"
            " echo dep >lib/modules/9.9/dep && echo Mine >proc/version && echo sym >proc/ksyms"),
        0);
  }

  std::string directory_;
};

// Runs expectations in a host with the directory laid over its root, in a process of its own, so that the
// directory can be taken away afterwards.
//
// Returns the process's status, 0 when all went well.
int RunInHost(const std::string &directory, void (*test)()) {
  const pid_t child = fork();
  if (child == 0) {
    Host host;
    host.Overlay(directory);
    host.Enter();
    test();
    fflush(nullptr);
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = -1;
  waitpid(child, &status, 0);
  std::filesystem::remove_all(directory);
  return status;
}

TEST_F(LaidOver, ComesWithModesOwnersLinksAndSpecialFiles) {
  EXPECT_EQ(RunInHost(directory_,
                      [] {
                        EXPECT_EQ(ReadFile("/etc/a/file"), "text\n");
                        EXPECT_EQ(OutputOf("stat -c '%a %u %g' /etc/a/file /home/b"), "604 0 0\n700 77 88\n")
                            << "what belonged to the owner of the files is root's";
                        EXPECT_EQ(std::filesystem::read_symlink("/etc/a/link"), "nowhere");
                        EXPECT_TRUE(std::filesystem::is_fifo("/etc/a/fifo"));
                        EXPECT_EQ(ModeOf("/etc"), 0755u) << "a directory that is there keeps its mode";
                        EXPECT_EQ(ReadFile("/usr/lib/modules/9.9/dep"), "dep\n");
                        EXPECT_NE(ReadFile("/etc/passwd"), "");
                      }),
            0);
}

TEST_F(LaidOver, PutsItsProcInFrontOfTheKernels) {
  EXPECT_EQ(RunInHost(directory_,
                      [] {
                        EXPECT_EQ(ReadFile("/proc/version"), "Mine\n");
                        EXPECT_EQ(ReadFile("/proc/ksyms"), "sym\n");
                        EXPECT_NE(ReadFile("/proc/cpuinfo"), "");
                      }),
            0);
}

TEST(HostProc, ShowsAFileInFrontOfTheKernels) {
  Host host;
  host.File("/proc/version", "Linux version 2.6.18\n").File("/proc/sys/kernel/osrelease", "2.6.18\n");
  host.Enter();
  EXPECT_EQ(ReadFile("/proc/version"), "Linux version 2.6.18\n");
  EXPECT_EQ(ReadFile("/proc/sys/kernel/osrelease"), "2.6.18\n");
  EXPECT_EQ(ReadFile("/proc/sys/kernel/ostype"), "Linux\n");
  struct statfs info;
  ASSERT_EQ(statfs("/proc", &info), 0);
  EXPECT_EQ(info.f_type, PROC_SUPER_MAGIC);
}

TEST(HostProc, ShowsOnlyTheHostsProcesses) {
  Host host;
  host.Enter();
  EXPECT_LT(getpid(), 10);
  EXPECT_EQ(getpgrp(), getpid());
  EXPECT_EQ(getppid(), 1);
  EXPECT_EQ(std::filesystem::read_symlink("/proc/self"), std::to_string(getpid()));
  EXPECT_FALSE(std::filesystem::exists("/proc/" + std::to_string(getpid() + 1000)));
}

// What must hold whether /proc is the kernel's or made.
void ExpectThatProcWorks() {
  EXPECT_NE(ReadFile("/proc/cpuinfo"), "");
  EXPECT_NE(ReadFile("/proc/meminfo"), "");
  EXPECT_EQ(ThisProgram(), OutputOf("exec readlink -n /proc/$PPID/exe"));
  EXPECT_THAT(OutputOf("exec readlink /proc/self/exe"), HasSubstr("/usr/bin/readlink"));
  EXPECT_THAT(ReadFile("/proc/self/stat"), StartsWith(std::to_string(getpid()) + " ("));
  EXPECT_THAT(OutputOf("exec cat /proc/self/stat"), HasSubstr(" (cat) "));
  EXPECT_THAT(OutputOf("exec cat /proc/$$/stat"), HasSubstr(" (cat) "));
  EXPECT_NE(ReadFile("/proc/thread-self/comm"), "");
  EXPECT_THAT(ReadFile("/proc/mounts"), HasSubstr(" /proc "));
  EXPECT_EQ(OutputOf("exec 9</etc/passwd; readlink /proc/self/fd/9"), "/etc/passwd\n");
  EXPECT_EQ(ReadFile("/proc/sys/kernel/ostype"), "Linux\n");
}

TEST(HostProc, WorksUnchanged) {
  Host host;
  host.Enter();
  ExpectThatProcWorks();
}

TEST(HostProc, ShowsAFileThatTheKernelLacks) {
  ASSERT_FALSE(std::filesystem::exists("/proc/ksyms"));
  Host host;
  host.File("/proc/ksyms", "c0100000 symbol\n", 0444).File("/proc/version", "Mine\n");
  host.Enter();
  EXPECT_EQ(ReadFile("/proc/ksyms"), "c0100000 symbol\n");
  EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status("/proc/ksyms")));
  EXPECT_EQ(ModeOf("/proc/ksyms"), 0444u);
  EXPECT_EQ(ReadFile("/proc/version"), "Mine\n");
  ExpectThatProcWorks();
}

TEST(HostProc, AddsToADirectoryAndToTheProcesses) {
  const std::string interrupts = OutputOf("ls /proc/irq");
  ASSERT_THAT(interrupts, HasSubstr("0\n")) << "a number that is no process";
  Host host;
  host.File("/proc/irq/extra", "")
      .File("/proc/sys/kernel/extra", "1\n")
      .File("/proc/4242/stat", "4242 (made) S 1\n");
  host.SymLink("/proc/link", "version").SymLink("/proc/uptime", "/etc/debian_version");
  host.Enter();
  EXPECT_EQ(OutputOf("ls /proc/irq | grep -vx extra"), interrupts);
  EXPECT_TRUE(std::filesystem::exists("/proc/irq/extra"));
  EXPECT_EQ(ReadFile("/proc/sys/kernel/extra"), "1\n");
  EXPECT_EQ(ReadFile("/proc/4242/stat"), "4242 (made) S 1\n");
  EXPECT_EQ(ReadFile("/proc/link"), ReadFile("/proc/version"));
  EXPECT_EQ(ReadFile("/proc/uptime"), ReadFile("/etc/debian_version"));
  ExpectThatProcWorks();
}

TEST(HostProc, LosesWhatIsTakenAway) {
  ASSERT_TRUE(std::filesystem::exists("/proc/kallsyms"));
  Host host;
  host.Remove("/proc/kallsyms").Remove("/proc/sys/kernel/osrelease");
  host.Enter();
  EXPECT_FALSE(std::filesystem::exists("/proc/kallsyms"));
  EXPECT_FALSE(std::filesystem::exists("/proc/sys/kernel/osrelease"));
  ExpectThatProcWorks();
}

TEST(HostKernel, AnswersInTheTestsOwnProcess) {
  Host host;
  host.Release("2.6.9-5.ELsmp").Version("#1 SMP Wed Jan 5 19:30:39 EST 2005").Machine("i686");
  utsname real, names;
  ASSERT_EQ(uname(&real), 0);
  EXPECT_STRNE(real.release, "2.6.9-5.ELsmp");
  host.Enter();
  ASSERT_EQ(uname(&names), 0);
  EXPECT_STREQ(names.release, "2.6.9-5.ELsmp");
  EXPECT_STREQ(names.version, "#1 SMP Wed Jan 5 19:30:39 EST 2005");
  EXPECT_STREQ(names.machine, "i686");
  EXPECT_STREQ(names.sysname, real.sysname);
  EXPECT_STREQ(names.nodename, real.nodename);
}

TEST(HostKernel, AnswersInEveryProgram) {
  Host host;
  host.System("SunOS").Release("2.4.21").Version("#7").Machine("i586");
  host.Enter();
  const std::string answer = "SunOS 2.4.21 #7 i586\n";
  EXPECT_EQ(OutputOf("exec uname -srvm"), answer);
  EXPECT_EQ(OutputOf("sh -c 'sh -c \"uname -srvm\"'"), answer);
  EXPECT_EQ(OutputOf("exec perl -MPOSIX -e 'print join(\" \", (POSIX::uname())[0, 2..4]), \"\\n\"'"), answer);
  EXPECT_EQ(OutputOf("exec env -i uname -srvm"), answer);
}

TEST(HostKernel, AnswersBehindSudo) {
  Host host;
  host.Release("2.4.21").Version("#7").Machine("i586").User(1234);
  host.File("/etc/sudoers.d/test", "user1234 ALL=(ALL) NOPASSWD: ALL\n", 0440);
  host.Enter();
  EXPECT_EQ(OutputOf("exec sudo -n uname -rvm 2>/dev/null"), "2.4.21 #7 i586\n");
}

TEST(HostKernel, IsTheRealOneWhereNothingElseIsSaid) {
  utsname real, names;
  ASSERT_EQ(uname(&real), 0);
  Host host;
  host.Machine("i386");
  host.Enter();
  ASSERT_EQ(uname(&names), 0);
  EXPECT_STREQ(names.machine, "i386");
  EXPECT_STREQ(names.release, real.release);
  EXPECT_STREQ(names.version, real.version);
  EXPECT_EQ(OutputOf("uname -r"), std::string(real.release) + "\n");
}

TEST(HostKernel, TakesAnEmptyTextForAnAnswer) {
  Host host;
  host.Release("");
  host.Enter();
  EXPECT_EQ(OutputOf("exec uname -r"), "\n");
}

TEST(HostKernel, CannotBeGivenModules) {
  Host host;
  host.Enter();
  // Bit 16 of the rights that a program can have.
  const std::string bits = OutputOf("sed -n 's/^CapEff:[[:space:]]*//p' /proc/self/status");
  EXPECT_EQ(std::stoull(bits, nullptr, 16) >> 16 & 1, 0u);
  EXPECT_EQ(std::stoull(bits, nullptr, 16) >> 21 & 1, 1u) << "root's other rights are left";
}

TEST(HostKernel, LetsASanitizedProgramRun) {
  Host host;
  host.Release("2.6.9");
  host.File("/opt/names.c",
            "#include <stdio.h>\n#include <sys/utsname.h>\n"
            "int main(void) { struct utsname n; uname(&n); puts(n.release); return 0; }\n");
  host.Enter();
  const std::string build =
      "cd /opt && gcc -g -fsanitize=address,undefined -static-libasan -static-libubsan ";
  ASSERT_EQ(RunCommand(build + "-o names names.c").output, "");
  EXPECT_EQ(OutputOf("/opt/names"), "2.6.9\n");
}

TEST(HostUser, IsMadeWithAHome) {
  const gid_t group = 4;
  ASSERT_EQ(setgroups(1, &group), 0);
  Host host;
  host.User(1234);
  host.Enter();
  EXPECT_EQ(prctl(PR_GET_DUMPABLE), 1) << "a leak checker can trace the test";
  EXPECT_EQ(getuid(), 1234u);
  EXPECT_EQ(geteuid(), 1234u);
  EXPECT_EQ(getgid(), 1234u);
  EXPECT_EQ(getgroups(0, nullptr), 0);
  EXPECT_EQ(OutputOf("id"), "uid=1234(user1234) gid=1234(user1234) groups=1234(user1234)\n");
  EXPECT_EQ(OutputOf("echo $HOME $USER $LOGNAME $SHELL; stat -c '%a %U %G' $HOME"),
            "/home/user1234 user1234 user1234 /bin/sh\n755 user1234 user1234\n");
  EXPECT_EQ(RunCommand("echo mine >$HOME/file").status, 0);
  EXPECT_NE(RunCommand("echo mine >/etc/file").status, 0);
  EXPECT_EQ(RunCommand("echo mine >/tmp/file && echo mine >/dev/shm/file").status, 0);
}

TEST(HostUser, CanBeOneThatIsThere) {
  Host host;
  host.User(65534);
  host.Enter();
  EXPECT_EQ(OutputOf("id -un; id -gn; id -u"), "nobody\nnogroup\n65534\n");
}

TEST(HostUser, CanBeOneOfTheDescription) {
  Host host;
  host.User(500).File("/etc/passwd", "ann:x:500:4::/srv/ann:/bin/bash\n");
  host.Enter();
  EXPECT_EQ(OutputOf("id -un; id -g; echo $HOME $SHELL"), "ann\n4\n/srv/ann /bin/bash\n");
}

TEST(HostUser, IsRootUnlessSaid) {
  Host host;
  host.Enter();
  EXPECT_EQ(getuid(), 0u);
  EXPECT_EQ(OutputOf("echo $HOME $USER"), "/root root\n");
}

TEST(HostUser, BecomesRootBySudoOnTheHostsPath) {
  Host host;
  host.User(1234)
      .Program("modprobe", "id -u")
      .File("/etc/sudoers.d/test", "user1234 ALL=(ALL) NOPASSWD: ALL\n", 0440);
  host.Enter();
  EXPECT_EQ(OutputOf("sudo -n modprobe it 2>/dev/null"), "0\n");
  EXPECT_THAT(Calls("modprobe"), ElementsAre(Call{"it"}));
}

TEST(HostPrograms, ComeFirstAndRecordTheirCalls) {
  Host host;
  host.Program("uname", "echo \"$2-$1\"; exit 3").Program("gcc");
  host.Enter();
  const Outcome outcome = RunCommand("uname one two");
  EXPECT_EQ(outcome.status, 3);
  EXPECT_EQ(outcome.output, "two-one\n");
  EXPECT_EQ(RunCommand("/usr/bin/env uname three").status, 3);
  EXPECT_THAT(Calls("uname"), ElementsAre(Call{"one", "two"}, Call{"three"}));
  EXPECT_THAT(Calls("gcc"), IsEmpty());
  EXPECT_EQ(RunCommand("gcc").status, 0);
  EXPECT_THAT(Calls("gcc"), ElementsAre(Call{}));
  EXPECT_THAT(Calls("nothing"), IsEmpty());
}

TEST(HostPrograms, RecordAnyArgument) {
  Host host;
  host.Program("it");
  host.Enter();
  EXPECT_EQ(
      RunCommand("it '' ' a  b ' \"'\" '\"' 'new\nline\n' '\\n%s$x`' -n -- '*' '\xff\xfe' '3'; it ''").status,
      0);
  EXPECT_THAT(Calls("it"), ElementsAre(Call{"", " a  b ", "'", "\"", "new\nline\n", "\\n%s$x`", "-n", "--",
                                            "*", "\xff\xfe", "3"},
                                       Call{""}));
}

TEST(HostPrograms, KeepCallsApartThatHappenAtOnce) {
  Host host;
  host.Program("it");
  host.Enter();
  // Longer than what the shell writes at once.
  ASSERT_EQ(RunCommand("long=$(head -c 30000 /dev/zero | tr '\\0' x); "
                       "for i in $(seq 100); do it $i $long $i $long $i & done; wait")
                .status,
            0);
  const std::vector<Call> calls = Calls("it");
  ASSERT_EQ(calls.size(), 100u);
  const std::string text(30000, 'x');
  std::vector<int> numbers;
  for (const Call &call : calls) {
    ASSERT_FALSE(call.empty());
    EXPECT_THAT(call, ElementsAre(call[0], text, call[0], text, call[0]));
    numbers.push_back(std::stoi(call[0]));
  }
  std::sort(numbers.begin(), numbers.end());
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(numbers[static_cast<size_t>(i)], i + 1);
  }
}

TEST(HostPrograms, RecordForEveryUser) {
  Host host;
  host.Program("it", "exit 4").User(1234);
  host.Enter();
  EXPECT_EQ(RunCommand("it x").status, 4);
  EXPECT_THAT(Calls("it"), ElementsAre(Call{"x"}));
}

TEST(HostPrograms, CanBeTakenAway) {
  ASSERT_EQ(RunCommand("command -v make").status, 0);
  Host host;
  host.NoProgram("make").NoProgram("nothing-like-it");
  host.Enter();
  EXPECT_EQ(RunCommand("command -v make").status, 127);
  EXPECT_FALSE(std::filesystem::exists("/bin/make"));
  EXPECT_EQ(RunCommand("command -v gcc").status, 0);
}

TEST(HostPrograms, TakenAwayAndGivenIsTheRecordedOneOnly) {
  Host host;
  host.NoProgram("make").Program("make", "exit 9");
  host.Enter();
  EXPECT_EQ(RunCommand("make").status, 9);
  EXPECT_FALSE(std::filesystem::exists("/usr/bin/make"));
}

TEST(HostPrograms, IncludeTheBuiltOnes) {
  Host host;
  host.Enter();
  EXPECT_EQ(RunCommand("testhost --help").status, 0);
}

TEST(HostEnvironment, IsTheHostsAndNotTheCallers) {
  setenv("TMPDIR", "/var/tmp", 1);
  setenv("DISPLAY", ":77", 1);
  setenv("SUDO_UID", "1000", 1);
  setenv("HOME", "/elsewhere", 1);
  setenv("PATH", "/elsewhere", 1);
  setenv("OTHER", "kept", 1);
  Host host;
  host.Enter();
  EXPECT_EQ(getenv("TMPDIR"), nullptr);
  EXPECT_EQ(getenv("DISPLAY"), nullptr);
  EXPECT_EQ(getenv("SUDO_UID"), nullptr);
  EXPECT_STREQ(getenv("HOME"), "/root");
  EXPECT_STREQ(getenv("OTHER"), "kept");
  EXPECT_STREQ(
      getenv("PATH"),
      "/testhost/bin:/testhost/programs:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin");
}

TEST(HostEnvironment, KeepsTheDirectoryWhereTheHostHasIt) {
  ASSERT_EQ(chdir("/usr/include"), 0);
  Host host;
  host.Enter();
  EXPECT_EQ(OutputOf("pwd -P"), "/usr/include\n");
}

TEST(HostEnvironment, FallsBackToTheRootDirectory) {
  ASSERT_EQ(chdir("/usr/include"), 0);
  Host host;
  host.Remove("/usr/include");
  host.Enter();
  EXPECT_EQ(OutputOf("pwd -P"), "/\n");
}

TEST(HostEnvironment, HasAnEmptyPlaceForDisplays) {
  Host host;
  host.User(1234);
  host.Enter();
  EXPECT_EQ(OutputOf("cd /tmp && stat -c %a .X11-unix .ICE-unix; ls -A .X11-unix .ICE-unix"),
            "1777\n1777\n.ICE-unix:\n\n.X11-unix:\n");
}

TEST(HostEnd, IsTheTestsStatus) {
  const auto end = [](int status) {
    Host host;
    host.Enter();
    exit(status);  // NOLINT(concurrency-mt-unsafe)
  };
  EXPECT_EXIT(end(0), ExitedWithCode(0), "");
  EXPECT_EXIT(end(77), ExitedWithCode(77), "");
}

TEST(HostEnd, IsTheTestsSignal) {
  const auto end = [](int signal) {
    Host host;
    host.Enter();
    raise(signal);
    _exit(0);
  };
  EXPECT_EXIT(end(SIGTERM), KilledBySignal(SIGTERM), "");
  EXPECT_EXIT(end(SIGKILL), KilledBySignal(SIGKILL), "");
  EXPECT_EXIT(end(SIGINT), KilledBySignal(SIGINT), "");
}

TEST(HostEnd, IsAnAbort) {
  const auto end = [] {
    Host host;
    host.User(1234).Enter();
    abort();
  };
  EXPECT_EXIT(end(), KilledBySignal(SIGABRT), "");
}

TEST(HostEnd, DoesNotWaitForWhatIsLeftRunning) {
  const auto end = [] {
    Host host;
    host.Enter();
    _exit(testhost::Run("sleep 600 & setsid sleep 600 & exit 6"));
  };
  EXPECT_EXIT(end(), ExitedWithCode(6), "");
}

TEST(HostEnd, PrintsTheResultOnce) {
  const Outcome outcome = RunCommand(ThisProgram() + " --gtest_filter=HostProc.WorksUnchanged");
  EXPECT_EQ(outcome.status, 0);
  const std::string passed = "[  PASSED  ] 1 test.";
  const size_t first = outcome.output.find(passed);
  ASSERT_NE(first, std::string::npos);
  EXPECT_EQ(outcome.output.find(passed, first + 1), std::string::npos);
  EXPECT_EQ(outcome.output.find("Running main"), outcome.output.rfind("Running main"));
}

TEST(HostEnd, PrintsOnceWhatWasStillUnprintedAtEnter) {
  if (getenv("TESTHOST_PRINT")) {
    printf("unprinted");
    Host host;
    host.Enter();
    return;
  }
  const std::string output = OutputOf("TESTHOST_PRINT=1 " + ThisProgram() +
                                      " --gtest_filter=HostEnd.PrintsOnceWhatWasStillUnprintedAtEnter");
  const size_t first = output.find("unprinted");
  ASSERT_NE(first, std::string::npos);
  EXPECT_EQ(output.find("unprinted", first + 1), std::string::npos);
}

TEST(HostEnd, IsAFailureWhenAnExpectationFails) {
  if (getenv("TESTHOST_FAIL")) {
    Host host;
    host.Enter();
    FAIL() << "as asked for";
  }
  const Outcome outcome = RunCommand("TESTHOST_FAIL=1 " + ThisProgram() +
                                     " --gtest_filter=HostEnd.IsAFailureWhenAnExpectationFails");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.output, HasSubstr("as asked for"));
}

TEST(HostFailure, IsAFailureWithoutRoot) {
  const auto enter = [] {
    ASSERT_EQ(setuid(65534), 0);
    Host host;
    host.Enter();
  };
  EXPECT_EXIT(enter(), ExitedWithCode(125),
              "testhost: cannot make a host.*needs root.*: Operation not permitted");
}

TEST(HostFailure, IsAFailureWhenTheFilesAreMissing) {
  const auto enter = [] {
    Host host;
    host.Overlay("/no/such/directory").Enter();
  };
  EXPECT_EXIT(enter(), ExitedWithCode(125), "testhost: .*/no/such/directory: No such file or directory");
}

TEST(HostFailure, IsAFailureWhenAFileCannotBePut) {
  const auto enter = [] {
    Host host;
    host.File("/etc/passwd/file", "").Enter();
  };
  EXPECT_EXIT(enter(), ExitedWithCode(125), "testhost: .*/etc/passwd.*");
}

TEST(HostFailure, IsAFailureToEnterASecondHost) {
  const auto enter = [] {
    Host first, second;
    first.Enter();
    second.Enter();
  };
  EXPECT_EXIT(enter(), ExitedWithCode(125), "one host only");
}

TEST(HostFailure, IsAFailureWithASecondThread) {
  const auto enter = [] {
    pthread_t thread;
    pthread_create(
        &thread, nullptr,
        [](void *) -> void * {
          pause();
          return nullptr;
        },
        nullptr);
    Host host;
    host.Enter();
  };
  EXPECT_EXIT(enter(), ExitedWithCode(125), "more than one thread");
}

TEST(Run, GivesTheStatusAndBothOutputs) {
  const Outcome outcome = RunCommand("echo out; echo err >&2; exit 5");
  EXPECT_EQ(outcome.status, 5);
  EXPECT_EQ(outcome.output, "out\nerr\n");
  EXPECT_EQ(RunCommand("kill -9 $$").status, 128 + SIGKILL);
  EXPECT_EQ(RunCommand("no-such-command 2>/dev/null").status, 127);
}

TEST(Run, DoesNotWaitForWhatItsCommandLeavesRunning) {
  Host host;
  host.Enter();
  EXPECT_EQ(RunCommand("sleep 600 & echo started").output, "started\n");
}

}  // namespace
}  // namespace testhost
