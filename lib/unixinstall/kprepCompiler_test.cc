#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdlib>

#include "kprepTestInt.h"

namespace {

using kpreptest::Engine;
using kpreptest::ErrorsOf;
using kpreptest::Lines;
using kpreptest::Path;
using kpreptest::Product;
using kpreptest::Whole;
using testhost::Call;
using testhost::Calls;
using testhost::WriteFile;

std::string KernelCompiler() {
  return Whole(OwnedString(KernPrep_GetKernelCompilerVersion()));
}
std::string CompilerText(const char *path) {
  return Whole(OwnedString(KernPrep_GetCompilerVersion(path)));
}
std::string Found() {
  return Whole(OwnedString(KernPrep_FindCompiler()));
}

// A compiler that says the version, outside the search path.
std::string PutCompiler(const std::string &body) {
  static int count = 0;
  std::string path = "/opt/compilers/cc" + std::to_string(++count);
  WriteFile(path, "#!/bin/sh\n" + body + "\n", 0755);
  return path;
}

void ExpectState(int major, int minor) {
  EXPECT_EQ(kernPrep.kernel.compilerMajor, major);
  EXPECT_EQ(kernPrep.kernel.compilerMinor, minor);
}

int CountOpenFiles() {
  int count = 0;
  for (int fd = 0; fd < sysconf(_SC_OPEN_MAX); ++fd) {
    count += fcntl(fd, F_GETFD) != -1 ? 1 : 0;
  }
  return count;
}

// A host with only those compilers that a test adds.
class CompilerHost : public Product {
 public:
  CompilerHost() {
    for (const char *name : {"gcc", "egcs", "kgcc", "gcc-4.1", "gcc-3.3", "gcc-3.4"}) {
      NoProgram(name);
    }
    unsetenv("CC");
  }
};

// The kernel's compiler

void ExpectKernelCompiler(const std::string &procVersion, const std::string &expected) {
  Product host;
  host.File("/proc/version", procVersion);
  host.Enter();
  EXPECT_EQ(KernelCompiler(), expected);
}

TEST(KernelCompilerVersion, StandsBehindItsIntroduction) {
  ExpectKernelCompiler("Linux version 2.6.18 (b@h) (gcc version 4.1.2 20071124) #1 SMP\n", "4.1.2");
}

TEST(KernelCompilerVersion, IsFreedOfTheEgcsPrefix) {
  ExpectKernelCompiler("Linux version 2.2.14 (b@h) (gcc version egcs-2.91.66 19990314) #1\n", "2.91.66");
}

TEST(KernelCompilerVersion, NeedsABlankBehindIt) {
  ExpectKernelCompiler("Linux version 2.6.18 (gcc version 4.1.2\n", "(none)");
}

TEST(KernelCompilerVersion, IsUnknownWithoutIntroduction) {
  ExpectKernelCompiler("Linux version 6.1.0 (b@h) (gcc-12 (Distribution 12.2.0) 12.2.0, ld 2.40) #1\n",
                       "(none)");
}

TEST(KernelCompilerVersion, IsUnknownForAnEmptyFile) {
  ExpectKernelCompiler("", "(none)");
}

TEST(KernelCompilerVersion, MayBeEmpty) {
  ExpectKernelCompiler("gcc version  x", "");
}

TEST(KernelCompilerVersion, IsLookedForInTheFirst255BytesOnly) {
  const std::string text = "gcc version 4.1.2 ";
  ExpectKernelCompiler(std::string(255 - text.size(), 'x') + text, "4.1.2");
}

TEST(KernelCompilerVersion, IsUnknownWhenItsBlankIsByte256) {
  const std::string text = "gcc version 4.1.2 ";
  ExpectKernelCompiler(std::string(256 - text.size(), 'x') + text, "(none)");
}

TEST(KernelCompilerVersion, IsUnknownForBinaryText) {
  ExpectKernelCompiler(std::string("\0\xff gcc version 4.1.2 ", 21), "(none)");
}

TEST(KernelCompilerVersion, IsUnknownWithoutFile) {
  Product host;
  host.Enter();
  ASSERT_EQ(mount("none", "/proc", "tmpfs", 0, nullptr), 0);
  EXPECT_EQ(KernelCompiler(), "(none)");
  ASSERT_EQ(umount("/proc"), 0);
}

TEST(KernelCompilerVersion, IsUnknownWhenTheFileCannotBeRead) {
  Product host;
  host.Enter();
  ASSERT_EQ(mount("none", "/proc", "tmpfs", 0, nullptr), 0);
  std::filesystem::create_directories("/proc/version");
  EXPECT_EQ(KernelCompiler(), "(none)");
  ASSERT_EQ(umount("/proc"), 0);
}

// A compiler's own version

TEST(CompilerVersion, IsWhatTheCompilerAnswers) {
  Product host;
  host.Program("gcc", "echo 4.1.2");
  host.Enter();
  EXPECT_EQ(CompilerText(Path("gcc").c_str()), "4.1.2");
  EXPECT_EQ(Calls("gcc"), std::vector<Call>({{"-dumpversion"}}));
}

TEST(CompilerVersion, ComesFromTheRealCompiler) {
  Product host;
  host.Enter();
  std::string expected;
  ASSERT_EQ(testhost::Run("gcc -dumpversion", &expected), 0);
  EXPECT_EQ(CompilerText("/usr/bin/gcc") + "\n", expected);
}

TEST(CompilerVersion, GivesTheCompilerItsPathAsName) {
  Product host;
  host.Enter();
  // A program that doesn't know the option begins its complaint with the name that it was given.
  const std::string complaint = ErrorsOf([] { EXPECT_EQ(CompilerText("/usr/bin/cat"), "(none)"); });
  EXPECT_TRUE(complaint.starts_with("/usr/bin/cat: ")) << complaint;
}

TEST(CompilerVersion, LeavesTheCompilerNoStandardInput) {
  Product host;
  host.Enter();
  const std::string path = PutCompiler("if [ -e \"/proc/$$/fd/0\" ]; then echo open; else echo none; fi");
  EXPECT_EQ(CompilerText(path.c_str()), "none");
}

TEST(CompilerVersion, IsUnknownWhenTheCompilerFails) {
  Product host;
  host.Enter();
  for (const char *body : {"echo 4.1.2; exit 1", "echo 4.1.2; kill -9 $$", "exit 0", "echo"}) {
    EXPECT_EQ(CompilerText(PutCompiler(body).c_str()), "(none)") << body;
  }
}

TEST(CompilerVersion, IsUnknownForWhatCannotRun) {
  Product host;
  host.Enter();
  WriteFile("/opt/text", "4.1.2\n");
  EXPECT_EQ(CompilerText("/no/such/compiler"), "(none)");
  EXPECT_EQ(CompilerText("/opt"), "(none)");
  EXPECT_EQ(CompilerText("/opt/text"), "(none)");
  EXPECT_EQ(CompilerText(""), "(none)");
}

TEST(CompilerVersion, LosesItsLastByteWhateverThatIs) {
  Product host;
  host.Enter();
  EXPECT_EQ(CompilerText(PutCompiler("printf 4.1.2").c_str()), "4.1.");
  EXPECT_EQ(CompilerText(PutCompiler("printf '4.1.2\\nmore\\n'").c_str()), "4.1.2\nmore");
}

TEST(CompilerVersion, IsCutAt254Bytes) {
  Product host;
  host.Enter();
  EXPECT_EQ(CompilerText(PutCompiler("printf %0300d 7").c_str()), std::string(254, '0'));
}

TEST(CompilerVersion, KeepsTwoPipeEndsOpenForEachQuestion) {
  Product host;
  host.Enter();
  const std::string path = PutCompiler("echo 4.1.2");
  const int before = CountOpenFiles();
  CompilerText(path.c_str());
  EXPECT_EQ(CountOpenFiles(), before + 2);
  CompilerText(path.c_str());
  EXPECT_EQ(CountOpenFiles(), before + 4);
  CompilerText("/no/such/compiler");
  EXPECT_EQ(CountOpenFiles(), before + 6);
}

TEST(CompilerVersion, IsUnknownWithoutFreeDescriptors) {
  Product host;
  host.Enter();
  const std::string path = PutCompiler("echo 4.1.2");
  std::vector<int> taken;
  for (int fd = dup(0); fd != -1; fd = dup(0)) {
    taken.push_back(fd);
  }
  ASSERT_GT(taken.size(), 20U);
  const int all = CountOpenFiles();
  for (int free = 0; free < 4; ++free) {
    EXPECT_EQ(CompilerText(path.c_str()), "(none)") << free;
    EXPECT_EQ(CountOpenFiles(), all - free);
    close(taken.back());
    taken.pop_back();
  }
  for (int more = 0; more < 8; ++more) {  // the shell wants some of its own
    close(taken.back());
    taken.pop_back();
  }
  EXPECT_EQ(CompilerText(path.c_str()), "4.1.2");
}

TEST(CompilerVersion, IsUnknownWithoutRoomForAChild) {
  Product host;
  host.User(4711);  // no limit holds for root
  host.Enter();
  ASSERT_EQ(CompilerText("/usr/bin/echo"), "-dumpversion");
  rlimit before = {};
  ASSERT_EQ(getrlimit(RLIMIT_NPROC, &before), 0);
  const rlimit none = {.rlim_cur = 0, .rlim_max = before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NPROC, &none), 0);
  const int open = CountOpenFiles();
  EXPECT_EQ(CompilerText("/usr/bin/echo"), "(none)");
  EXPECT_EQ(CountOpenFiles(), open);
  ASSERT_EQ(setrlimit(RLIMIT_NPROC, &before), 0);
}

TEST(CompilerVersion, IsWaitedForThroughASignal) {
  Product host;
  host.Enter();
  const std::string path = PutCompiler("sleep 0.3; echo 4.1.2");
  static volatile sig_atomic_t signals = 0;
  struct sigaction action = {};  // without SA_RESTART, so that the wait ends
  action.sa_handler = [](int /*signal*/) { signals = signals + 1; };
  ASSERT_EQ(sigaction(SIGALRM, &action, nullptr), 0);
  const itimerval once = {.it_interval = {}, .it_value = {.tv_sec = 0, .tv_usec = 100'000}};
  ASSERT_EQ(setitimer(ITIMER_REAL, &once, nullptr), 0);
  EXPECT_EQ(CompilerText(path.c_str()), "4.1.2");
  EXPECT_EQ(signals, 1);
}

TEST(CompilerVersion, TakesTheFirstChildThatEndsForTheCompiler) {
  Product host;
  host.Enter();
  const pid_t other = fork();
  if (other == 0) {
    _exit(1);
  }
  siginfo_t ended = {};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(other), &ended, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(CompilerText("/usr/bin/echo"), "(none)");
  EXPECT_EQ(waitpid(other, nullptr, WNOHANG), -1);  // it is gone, and the compiler is still there to wait for
  EXPECT_GT(wait(nullptr), 0);
}

// Parsers

TEST(ParseCompilerVersion, NeedsTwoNumbers) {
  Product host;
  Engine engine(host);
  const struct {
    const char *text;
    bool expected;
    int major, minor;
  } rows[] = {{"4.1.2", true, 4, 1},   {"4.1", true, 4, 1},    {"12.2.0", true, 12, 2},
              {"257.258", true, 1, 2}, {"4.1abc", true, 4, 1}, {"4", false, 99, 99},
              {"4.", false, 99, 99},   {"", false, 99, 99},    {"egcs-2.91", false, 99, 99},
              {"4.x", false, 99, 99},  {"4 .1", false, 99, 99}};
  for (const auto &row : rows) {
    uint8_t major = 99, minor = 99;
    EXPECT_EQ(KernPrep_ParseCompilerVersion(row.text, &major, &minor), row.expected) << row.text;
    EXPECT_EQ(major, row.major) << row.text;
    EXPECT_EQ(minor, row.minor) << row.text;
    EXPECT_EQ(engine.NewLog(), row.expected ? Lines() : Lines({"Unable to parse gcc version"})) << row.text;
  }
}

TEST(ParseVersion, NeedsThreeNumbers) {
  const struct {
    const char *text;
    bool expected;
    uint32_t parts[4];
  } rows[] = {{"2.6.18-92.el5", true, {2, 6, 18, 0}},
              {"2.6.18.1-x", true, {2, 6, 18, 1}},
              {"2.6.18.", true, {2, 6, 18, 0}},
              {"3.0", false, {3, 0, 0, 0}},
              {"", false, {0, 0, 0, 0}},
              {"x2.6.18", false, {0, 0, 0, 0}}};
  for (const auto &row : rows) {
    uint32_t parts[4] = {7, 7, 7, 7};
    EXPECT_EQ(KernPrep_ParseVersion(row.text, parts), row.expected) << row.text;
    for (int i = 0; i < 4; ++i) {
      EXPECT_EQ(parts[i], row.parts[i]) << row.text << " " << i;
    }
  }
}

// Comparing

TEST(CompareCompiler, TellsHowTheNumbersDiffer) {
  Product host;
  Engine engine(host);
  EXPECT_EQ(KernPrep_CompareCompiler(PutCompiler("echo 4.1.9").c_str()), KERNPREP_COMPILER_MATCH);
  EXPECT_EQ(KernPrep_CompareCompiler(PutCompiler("echo 4.2.2").c_str()), KERNPREP_COMPILER_OTHER_MINOR);
  EXPECT_EQ(KernPrep_CompareCompiler(PutCompiler("echo 3.1.2").c_str()), KERNPREP_COMPILER_OTHER_MAJOR);
  EXPECT_EQ(KernPrep_CompareCompiler(PutCompiler("echo 4").c_str()), KERNPREP_COMPILER_UNKNOWN);
  EXPECT_EQ(KernPrep_CompareCompiler("/no/such/compiler"), KERNPREP_COMPILER_UNKNOWN);
  ExpectState(0, 0);
}

TEST(CompareCompiler, KnowsNothingWithoutTheKernels) {
  Product host;
  host.File("/proc/version", "Linux version 2.6.18\n");
  Engine engine(host);
  EXPECT_EQ(KernPrep_CompareCompiler(PutCompiler("echo 4.1.2").c_str()), KERNPREP_COMPILER_UNKNOWN);
}

TEST(CompareCompiler, KnowsNothingWhenTheKernelsHasOneNumber) {
  Product host;
  host.Compiler("4");
  Engine engine(host);
  EXPECT_EQ(KernPrep_CompareCompiler(PutCompiler("echo 4.1.2").c_str()), KERNPREP_COMPILER_UNKNOWN);
  EXPECT_EQ(engine.NewLog(), Lines({"Unable to parse gcc version"}));
}

// Finding

TEST(FindCompiler, TakesAnExactCandidateAtOnce) {
  CompilerHost host;
  host.Compiler("3.4.6").Program("gcc", "echo 3.4.3").Program("gcc-3.4", "echo 3.4.6");
  Engine engine(host);
  EXPECT_EQ(Found(), Path("gcc"));
  ExpectState(3, 4);
  EXPECT_EQ(engine.NewLog(), Lines({"Your GCC version: 3.4"}));
  EXPECT_TRUE(Calls("gcc-3.4").empty());
}

TEST(FindCompiler, WorksWithTheRealCompiler) {
  CompilerHost host;
  host.Compiler("12.2.0").Program("gcc", "exec gcc-12 -dumpfullversion");
  Engine engine(host);
  EXPECT_EQ(Found(), Path("gcc"));
  ExpectState(12, 2);
}

TEST(FindCompiler, NeedsTheKernelsCompiler) {
  CompilerHost host;
  host.File("/proc/version", "Linux version 2.6.18\n").Program("gcc", "echo 4.1.2");
  Engine engine(host);
  EXPECT_EQ(Found(), "(none)");
  EXPECT_EQ(engine.NewLog(), Lines({"Unable to determine numerical version info for kernel GCC"}));
  EXPECT_TRUE(Calls("gcc").empty());
}

TEST(FindCompiler, NeedsTheKernelsVersionLine) {
  CompilerHost host;
  host.Program("gcc", "echo 4.1.2");
  Engine engine(host);
  const std::string unknown = "Unable to determine numerical version info for kernel GCC";
  ASSERT_EQ(mount("none", "/proc", "tmpfs", 0, nullptr), 0);
  EXPECT_EQ(Found(), "(none)") << "without the file";
  EXPECT_EQ(engine.NewLog(), Lines({unknown}));
  EXPECT_EQ(KernPrep_CompareCompiler(Path("gcc").c_str()), KERNPREP_COMPILER_UNKNOWN);
  std::filesystem::create_directories("/proc/version");
  EXPECT_EQ(Found(), "(none)") << "with a directory in its place";
  EXPECT_EQ(engine.NewLog(), Lines({"read failed, errno=21, Is a directory", unknown}));
  EXPECT_EQ(KernPrep_CompareCompiler(Path("gcc").c_str()), KERNPREP_COMPILER_UNKNOWN);
  ASSERT_EQ(umount("/proc"), 0);
  EXPECT_EQ(Found(), Path("gcc"));
}

TEST(FindCompiler, NeedsTwoNumbersOfTheKernelsCompiler) {
  CompilerHost host;
  host.Compiler("4").Program("gcc", "echo 4.1.2");
  Engine engine(host);
  EXPECT_EQ(Found(), "(none)");
  EXPECT_EQ(engine.NewLog(), Lines({"Unable to parse gcc version",
                                    "Unable to determine numerical version info for kernel GCC"}));
}

TEST(FindCompiler, AsksTheCompilerOfTheEnvironmentFirst) {
  CompilerHost host;
  host.Program("clang", "echo 4.1.9").Program("gcc", "echo 4.1.2");
  Engine engine(host);
  setenv("CC", "clang", 1);
  EXPECT_EQ(Found(), Path("clang"));
  EXPECT_EQ(Calls("clang"), std::vector<Call>({{"-dumpversion"}}));
  EXPECT_TRUE(Calls("gcc").empty());
}

TEST(FindCompiler, FallsThroughAMissingCompilerOfTheEnvironment) {
  CompilerHost host;
  host.Program("gcc", "echo 4.1.2");
  Engine engine(host);
  for (const char *value : {"/no/such/file", "", "gcc -m32"}) {
    setenv("CC", value, 1);
    EXPECT_EQ(Found(), Path("gcc")) << value;
  }
}

TEST(FindCompiler, TriesGccBeforeTheOtherNames) {
  CompilerHost host;
  host.Program("gcc", "echo 4.1.2").Program("egcs", "echo 4.1.2").Program("kgcc", "echo 4.1.2");
  Engine engine(host);
  EXPECT_EQ(Found(), Path("gcc"));
  EXPECT_TRUE(Calls("egcs").empty());
  EXPECT_TRUE(Calls("kgcc").empty());
}

TEST(FindCompiler, TriesEgcsBehindGcc) {
  CompilerHost host;
  host.Program("egcs", "echo 4.1.2").Program("kgcc", "echo 4.1.2");
  Engine engine(host);
  EXPECT_EQ(Found(), Path("egcs"));
  EXPECT_EQ(Calls("egcs").size(), 1U);
}

TEST(FindCompiler, TriesKgccLast) {
  CompilerHost host;
  host.Program("kgcc", "echo 4.1.2");
  Engine engine(host);
  EXPECT_EQ(Found(), Path("kgcc"));
}

TEST(FindCompiler, GivesUpOnACandidateThatDoesNotAnswer) {
  CompilerHost host;
  host.Program("gcc", "exit 1").Program("gcc-4.1", "echo 4.1.2");
  Engine engine(host);
  EXPECT_EQ(Found(), "(none)");
  EXPECT_EQ(engine.NewLog(), Lines({"Unable to read version info from gcc " + Path("gcc")}));
  ExpectState(0, 0);
}

TEST(FindCompiler, GivesUpOnACandidateWithoutNumbers) {
  CompilerHost host;
  host.Program("gcc", "echo 12").Program("gcc-4.1", "echo 4.1.2");
  Engine engine(host);
  EXPECT_EQ(Found(), "(none)");
  EXPECT_EQ(engine.NewLog(), Lines({"Unable to parse gcc version",
                                    "Unable to determine numerical version info for " + Path("gcc")}));
  ExpectState(0, 0);
}

TEST(FindCompiler, PrefersTheNamedCompilerToTheUsersOther) {
  CompilerHost host;
  host.Program("clang", "echo 4.2.1").Program("gcc-4.1", "echo 4.1.2");
  Engine engine(host);
  setenv("CC", "clang", 1);
  EXPECT_EQ(Found(), Path("gcc-4.1"));
  ExpectState(4, 1);
  EXPECT_EQ(engine.NewLog(), Lines({"Your GCC version: 4.2", "Searching for GCC 4.1.",
                                    "Kernel compiled with: GCC 4.1", "Your GCC version: 4.1"}));
}

TEST(FindCompiler, FindsTheNamedCompilerAlone) {
  CompilerHost host;
  host.Program("gcc-4.1", "echo 4.1.2");
  Engine engine(host);
  EXPECT_EQ(Found(), Path("gcc-4.1"));
  EXPECT_EQ(engine.NewLog(),
            Lines({"Searching for GCC 4.1.", "Kernel compiled with: GCC 4.1", "Your GCC version: 4.1"}));
}

TEST(FindCompiler, FindsNothingWithoutAnyCompiler) {
  CompilerHost host;
  Engine engine(host);
  kernPrep.kernel.compilerMajor = 7;
  kernPrep.kernel.compilerMinor = 8;
  EXPECT_EQ(Found(), "(none)");
  ExpectState(7, 8);
  EXPECT_EQ(engine.NewLog(), Lines({"Searching for GCC 4.1."}));
}

TEST(FindCompiler, RefusesAnotherMinorOnAnOldKernel) {
  CompilerHost host;
  host.Compiler("3.3.6").Program("gcc", "echo 3.4.3").Release("2.6.9");
  Engine engine(host);
  EXPECT_EQ(Found(), "(none)");
  ExpectState(3, 4);
  EXPECT_EQ(engine.NewLog(),
            Lines({"Your GCC version: 3.4", "Searching for GCC 3.3.",
                   "Your kernel is too old for you to use your GCC 3.4 instead of the required GCC 3.3."}));
}

TEST(FindCompiler, RefusesAnotherMajorOnAnOldKernel) {
  CompilerHost host;
  host.Compiler("3.3.6").Program("gcc", "echo 4.3.3").Release("2.6.9");
  Engine engine(host);
  EXPECT_EQ(Found(), "(none)");
  EXPECT_EQ(engine.NewLog(), Lines({"Your GCC version: 4.3", "Searching for GCC 3.3.",
                                    "Unable to find compatible compiler for GCC 3.3"}));
}

TEST(FindCompiler, CountsThe18thAsOld) {
  CompilerHost host;
  host.Compiler("3.3.6").Program("gcc", "echo 3.4.3").Release("2.6.18");
  Engine engine(host);
  EXPECT_EQ(Found(), "(none)");
}

TEST(FindCompiler, AcceptsAnyCompilerOnANewKernel) {
  CompilerHost host;
  host.Compiler("3.3.6").Program("gcc", "echo 3.4.3").Program("clang", "echo 14.0").Release("2.6.19");
  Engine engine(host);
  EXPECT_EQ(Found(), Path("gcc"));
  setenv("CC", "clang", 1);
  EXPECT_EQ(Found(), Path("clang"));
  EXPECT_EQ(engine.NewLog(),
            Lines({"Your GCC version: 3.4", "Searching for GCC 3.3.",
                   "Kernel is new enough; using PROBABLY compatible GCC 3.4 instead of desired 3.3",
                   "Your GCC version: 14.0", "Searching for GCC 3.3.",
                   "Kernel is new enough; using PROBABLY compatible GCC 14.0 instead of desired 3.3"}));
}

TEST(FindCompiler, AcceptsANamedCompilerOfAnotherVersionOnANewKernel) {
  CompilerHost host;
  host.Program("gcc-4.1", "echo 4.2.0").Release("2.6.19");
  Engine engine(host);
  EXPECT_EQ(Found(), Path("gcc-4.1"));
  ExpectState(4, 2);
  EXPECT_EQ(engine.NewLog(),
            Lines({"Searching for GCC 4.1.", "Kernel compiled with: GCC 4.1", "Your GCC version: 4.2",
                   "Kernel is new enough; using PROBABLY compatible GCC 4.2 instead of desired 4.1"}));
}

// The candidate lies in the program search's buffer, which the search for the named compiler overwrites.

TEST(FindCompiler, GivesTheNamedCompilersPathUnderTheOthersNumbersWhenItIsMute) {
  CompilerHost host;
  host.Program("gcc", "echo 4.2.1").Program("gcc-4.1", "exit 1").Release("2.6.19");
  Engine engine(host);
  EXPECT_EQ(Found(), Path("gcc-4.1"));
  ExpectState(4, 2);
  EXPECT_EQ(engine.NewLog(),
            Lines({"Your GCC version: 4.2", "Searching for GCC 4.1.",
                   "Kernel is new enough; using PROBABLY compatible GCC 4.2 instead of desired 4.1"}));
}

TEST(FindCompiler, GivesTheNamedCompilersPathUnderTheOthersNumbersWhenItHasNoNumbers) {
  CompilerHost host;
  host.Program("gcc", "echo 4.2.1").Program("gcc-4.1", "echo unknown").Release("2.6.19");
  Engine engine(host);
  EXPECT_EQ(Found(), Path("gcc-4.1"));
  ExpectState(4, 2);
  EXPECT_EQ(engine.NewLog(),
            Lines({"Your GCC version: 4.2", "Searching for GCC 4.1.", "Kernel compiled with: GCC 4.1",
                   "Unable to parse gcc version",
                   "Kernel is new enough; using PROBABLY compatible GCC 4.2 instead of desired 4.1"}));
}

TEST(FindCompiler, JudgesAnOldKernelByTheOthersNumbersWhenTheNamedCompilerIsMute) {
  CompilerHost host;
  host.Program("gcc", "echo 4.2.1").Program("gcc-4.1", "exit 1");
  Engine engine(host);
  EXPECT_EQ(Found(), "(none)");
  ExpectState(4, 2);
  EXPECT_EQ(engine.NewLog().back(),
            "Your kernel is too old for you to use your GCC 4.2 instead of the required GCC 4.1.");
}

TEST(FindCompiler, FindsNothingWhenOnlyAMuteNamedCompilerIsThere) {
  CompilerHost host;
  host.Program("gcc-4.1", "exit 1").Release("2.6.19");
  Engine engine(host);
  EXPECT_EQ(Found(), "(none)");
  ExpectState(0, 0);
  EXPECT_EQ(engine.NewLog(), Lines({"Searching for GCC 4.1."}));
}

TEST(FindCompiler, FindsNothingWhenOnlyANamedCompilerWithoutNumbersIsThere) {
  CompilerHost host;
  host.Program("gcc-4.1", "echo unknown").Release("2.6.19");
  Engine engine(host);
  EXPECT_EQ(Found(), "(none)");
  ExpectState(0, 0);
  EXPECT_EQ(engine.NewLog(), Lines({"Searching for GCC 4.1.", "Kernel compiled with: GCC 4.1",
                                    "Unable to parse gcc version"}));
}

}  // namespace
