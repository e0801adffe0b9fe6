#include "util.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "log.h"
#include "msg.h"
#include "owned.h"
#include "testhost.h"

namespace {

namespace fs = std::filesystem;

// The expansion, or "(null)".
std::string Expand(const std::string &name) {
  const OwnedString result(Util_ExpandString(name.c_str()));
  return result == nullptr ? "(null)" : result.get();
}

std::string SafeTmpDir() {
  const OwnedString result(Util_GetSafeTmpDir(true));
  return result == nullptr ? "(null)" : result.get();
}

// A host whose temporary directory is empty, for the user root.
void EnterHost() {
  testhost::Host host;
  host.Directory("/tmp/base", 01777);
  host.Enter();
  setenv("TMPDIR", "/tmp/base", 1);
}

mode_t ModeOf(const std::string &path) {
  struct stat data {};
  EXPECT_EQ(lstat(path.c_str(), &data), 0) << path;
  return data.st_mode & 07777;
}

void MakeDirectory(const std::string &path, mode_t mode) {
  ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
  ASSERT_EQ(chmod(path.c_str(), mode), 0);
}

bool IsRandomName(const std::string &path) {
  return std::regex_match(path, std::regex("/tmp/base/ostrel-root-[0-9]+"));
}

TEST(ExpandString, CopiesWhatHasNothingToExpand) {
  EXPECT_EQ(Expand("/plain/x~y"), "/plain/x~y");
  EXPECT_EQ(Expand(""), "");
}

TEST(ExpandString, HomeIsFromTheEnvironment) {
  setenv("HOME", "/home/me", 1);
  EXPECT_EQ(Expand("~/x"), "/home/me/x");
  EXPECT_EQ(Expand("~"), "/home/me");
  EXPECT_EQ(Expand("a/~/x"), "a/~/x");
  EXPECT_EQ(Expand("$HOME/~"), "/home/me/~");
}

TEST(ExpandString, KeepsTheTildeWithoutAHome) {
  testhost::Host host;
  host.Enter();
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  unsetenv("HOME");
  EXPECT_EQ(Expand("~/x"), "~/x");
  EXPECT_NE(testhost::ReadFile(Log_GetFileName()).find("| Could not expand environment variable HOME.\n"),
            std::string::npos);
}

TEST(ExpandString, FindsAUsersDirectory) {
  EXPECT_EQ(Expand("~root/x"), "/root/x");
  EXPECT_EQ(Expand("~root"), "/root");
}

TEST(ExpandString, KeepsAnUnknownUser) {
  testhost::Host host;
  host.Enter();
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  EXPECT_EQ(Expand("~nobody-of-this-name/x"), "~nobody-of-this-name/x");
  // The user's name runs up to the slash, whatever it holds.
  setenv("SOME", "root", 1);
  EXPECT_EQ(Expand("~$SOME/x"), "~$SOME/x");
  const std::string log = testhost::ReadFile(Log_GetFileName());
  EXPECT_NE(log.find("| Could not get information for user 'nobody-of-this-name'.\n"), std::string::npos);
  EXPECT_NE(log.find("| Could not get information for user '$SOME'.\n"), std::string::npos);
}

TEST(ExpandString, ReplacesVariablesOfTheEnvironment) {
  setenv("A_1", "one", 1);
  setenv("EMPTY", "", 1);
  EXPECT_EQ(Expand("x/$A_1.y$A_1$A_1"), "x/one.yoneone");
  EXPECT_EQ(Expand("$EMPTY/x"), "/x");
  EXPECT_EQ(Expand("$A_1"), "one");
}

TEST(ExpandString, KeepsALoneDollar) {
  setenv("A", "one", 1);
  EXPECT_EQ(Expand("$"), "$");
  EXPECT_EQ(Expand("a$/$A"), "a$/one");
  EXPECT_EQ(Expand("$$A"), "$one");
}

TEST(ExpandString, AnUnsetVariableGivesNothingAndAWarning) {
  unsetenv("UNSET");
  testing::internal::CaptureStderr();
  EXPECT_EQ(Expand("$UNSET/x"), "/x");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Environment variable 'UNSET' not defined in '$UNSET/x'.\n");
}

TEST(ExpandString, KnowsProcessIdAndUserInAnyCase) {
  unsetenv("PID");
  unsetenv("Pid");
  unsetenv("USER");
  unsetenv("user");
  EXPECT_EQ(Expand("a-$PID.log"), "a-" + std::to_string(getpid()) + ".log");
  EXPECT_EQ(Expand("$Pid"), std::to_string(getpid()));
  EXPECT_EQ(Expand("$user"), "root");
  setenv("PID", "mine", 1);
  EXPECT_EQ(Expand("$PID"), "mine");
  EXPECT_EQ(Expand("$Pid"), std::to_string(getpid()));
  setenv("USER", "other", 1);
  EXPECT_EQ(Expand("$USER"), "other");
}

TEST(ExpandString, AUserWithoutANameIsUnknown) {
  unsetenv("USER");
  ASSERT_EQ(setresuid(54321, 54321, 0), 0);
  EXPECT_EQ(Expand("$USER"), "unknown");
  ASSERT_EQ(setresuid(0, 0, 0), 0);
}

TEST(ExpandString, RefusesMoreThan100Chunks) {
  testhost::Host host;
  host.Enter();
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  setenv("A", "x", 1);
  std::string name;
  std::string expected;
  for (int i = 0; i < 50; i++) {
    name += "$A/";
    expected += "x/";
  }
  EXPECT_EQ(Expand(name), expected);
  EXPECT_FALSE(Msg_Present());
  name += "$A";
  EXPECT_EQ(Expand(name), "(null)");
  Msg_Reset(true);
  EXPECT_NE(
      testhost::ReadFile(Log_GetFileName())
          .find("| [msg.util.expandStringTooManyChunks] Filename \"" + name + "\" has too many chunks.\n"),
      std::string::npos);
}

TEST(ExpandStringDeathTest, TakesNoNull) {
  EXPECT_EXIT(Util_ExpandString(nullptr), testing::ExitedWithCode(255), "^ASSERT lib/user/util.cc:[0-9]+\n$");
}

TEST(SafeTmpDir, IsMadeOnceWithMode0700) {
  EnterHost();
  EXPECT_EQ(SafeTmpDir(), "/tmp/base/ostrel-root");
  EXPECT_EQ(ModeOf("/tmp/base/ostrel-root"), 0700U);
  EXPECT_EQ(SafeTmpDir(), "/tmp/base/ostrel-root");
}

TEST(SafeTmpDir, StaysTheSameForTheWholeProcess) {
  EnterHost();
  EXPECT_EQ(SafeTmpDir(), "/tmp/base/ostrel-root");
  setenv("TMPDIR", "/tmp", 1);
  EXPECT_EQ(SafeTmpDir(), "/tmp/base/ostrel-root");
}

TEST(SafeTmpDir, TakesADirectoryThatIsThere) {
  EnterHost();
  MakeDirectory("/tmp/base/ostrel-root", 02700);
  EXPECT_EQ(SafeTmpDir(), "/tmp/base/ostrel-root");
  EXPECT_EQ(ModeOf("/tmp/base/ostrel-root"), 02700U);
}

TEST(SafeTmpDir, RefusesOtherModes) {
  for (const mode_t mode : {0755U, 0600U, 01700U, 04700U}) {
    EXPECT_EXIT(
        {
          EnterHost();
          MakeDirectory("/tmp/base/ostrel-root", mode);
          const std::string path = SafeTmpDir();
          exit(IsRandomName(path) && ModeOf(path) == 0700U && ModeOf("/tmp/base/ostrel-root") == mode ? 0
                                                                                                      : 1);
        },
        testing::ExitedWithCode(0), "")
        << std::oct << mode;
  }
}

TEST(SafeTmpDir, RefusesADirectoryOfSomebodyElse) {
  EnterHost();
  MakeDirectory("/tmp/base/ostrel-root", 0700);
  ASSERT_EQ(chown("/tmp/base/ostrel-root", 54321, 0), 0);
  EXPECT_TRUE(IsRandomName(SafeTmpDir()));
}

TEST(SafeTmpDir, RefusesALinkAndAFile) {
  EnterHost();
  MakeDirectory("/tmp/base/mine", 0700);
  ASSERT_EQ(symlink("/tmp/base/mine", "/tmp/base/ostrel-root"), 0);
  ASSERT_EQ(symlink("/tmp/base/mine", "/tmp/base/ostrel-root-3"), 0);
  testhost::WriteFile("/tmp/base/ostrel-root-4", "", 0700);
  const std::string path = SafeTmpDir();
  EXPECT_TRUE(IsRandomName(path)) << path;
  EXPECT_NE(path, "/tmp/base/ostrel-root-3");
  EXPECT_NE(path, "/tmp/base/ostrel-root-4");
}

TEST(SafeTmpDir, TakesAListedDirectoryNext) {
  EnterHost();
  MakeDirectory("/tmp/base/ostrel-root", 0755);
  MakeDirectory("/tmp/base/ostrel-root-1", 0755);
  MakeDirectory("/tmp/base/ostrel-root-7", 0700);
  MakeDirectory("/tmp/base/ostrel-rooty", 0700);
  EXPECT_EQ(SafeTmpDir(), "/tmp/base/ostrel-root-7");
}

TEST(SafeTmpDir, IsMadeAgainWhenItIsGone) {
  EnterHost();
  EXPECT_EQ(SafeTmpDir(), "/tmp/base/ostrel-root");
  fs::remove_all("/tmp/base/ostrel-root");
  EXPECT_EQ(SafeTmpDir(), "/tmp/base/ostrel-root");
  EXPECT_EQ(ModeOf("/tmp/base/ostrel-root"), 0700U);
}

TEST(SafeTmpDir, IsNotTrustedAgainWhenItWasReplaced) {
  EnterHost();
  EXPECT_EQ(SafeTmpDir(), "/tmp/base/ostrel-root");
  fs::remove_all("/tmp/base/ostrel-root");
  MakeDirectory("/tmp/base/ostrel-root", 0777);
  const std::string other = SafeTmpDir();
  EXPECT_TRUE(IsRandomName(other));
  EXPECT_EQ(SafeTmpDir(), other);
}

TEST(SafeTmpDir, AUserWithoutANameGetsTheNumber) {
  EnterHost();
  ASSERT_EQ(setresuid(54321, 54321, 0), 0);
  testing::internal::CaptureStderr();
  EXPECT_EQ(SafeTmpDir(), "/tmp/base/ostrel-uid-54321");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "UtilGetUserName: Unable to retrieve the username associated with user ID 54321.\n"
            "Util_GetSafeTmpDir: UtilGetUserName failed, using numeric ID as username instead.\n");
  ASSERT_EQ(setresuid(0, 0, 0), 0);
}

TEST(SafeTmpDir, GivesUpWithoutATemporaryDirectory) {
  EnterHost();
  unsetenv("TMPDIR");
  unsetenv("HOME");
  testing::internal::CaptureStderr();
  ASSERT_EQ(chmod("/tmp", 0755), 0);
  ASSERT_EQ(chdir("/"), 0);
  ASSERT_EQ(setresuid(54321, 54321, 0), 0);
  EXPECT_EQ(SafeTmpDir(), "(null)");
  ASSERT_EQ(setresuid(0, 0, 0), 0);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("\nUtil_GetSafeTmpDir: File_GetTmpDir failed.\n"),
            std::string::npos);
}

TEST(SafeTmpDir, GivesUpAfterItsAttempts) {
  EnterHost();
  ASSERT_EQ(mount("none", "/tmp/base", "tmpfs", MS_RDONLY, nullptr), 0);
  testing::internal::CaptureStderr();
  EXPECT_EQ(SafeTmpDir(), "(null)");
  EXPECT_TRUE(std::regex_match(
      testing::internal::GetCapturedStderr(),
      std::regex("UtilCreateSafeTmpDir: Failed to create a safe temporary directory, path "
                 "\"/tmp/base/ostrel-root-[0-9]+\"\\. The maximum number of attempts was exceeded\\.\n")));
}

TEST(SafeTmpDir, GivesUpWithoutRandomNumbers) {
  EnterHost();
  MakeDirectory("/tmp/base/ostrel-root", 0755);
  ASSERT_EQ(mount("/dev/null", "/dev/urandom", nullptr, MS_BIND, nullptr), 0);
  testing::internal::CaptureStderr();
  EXPECT_EQ(SafeTmpDir(), "(null)");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "UtilCreateSafeTmpDir: Call to Random_Crypto failed.\n");
}

std::string Derive(const char *source, const char *name, const char *ext) {
  const OwnedString result(Util_DeriveFileName(source, name, ext));
  return result == nullptr ? "(null)" : result.get();
}

TEST(DeriveFileName, PutsARelativeNameUnderTheDirectory) {
  EXPECT_EQ(Derive("/a/b/vm.cfg", "disk", nullptr), "/a/b/disk");
  EXPECT_EQ(Derive("/a/b/vm.cfg", "disk", "img"), "/a/b/disk.img");
  EXPECT_EQ(Derive("a/vm.cfg", "sub/disk.x", "img"), "a/sub/disk.x.img");
  EXPECT_EQ(Derive("../vm.cfg", "disk", nullptr), "../disk");
}

TEST(DeriveFileName, LeavesAFullNameAndOneWithoutADirectoryAlone) {
  EXPECT_EQ(Derive("/a/vm.cfg", "/x/disk", "img"), "/x/disk.img");
  EXPECT_EQ(Derive("vm.cfg", "disk", nullptr), "disk");
  EXPECT_EQ(Derive("./vm.cfg", "disk", "img"), "disk.img");
  // The directory of a file in the root is the empty one.
  EXPECT_EQ(Derive("/vm.cfg", "disk", nullptr), "disk");
}

TEST(DeriveFileName, ExchangesTheLastExtension) {
  EXPECT_EQ(Derive("/a.d/vm.tar.gz", nullptr, "img"), "/a.d/vm.tar.img");
  EXPECT_EQ(Derive("/a.d/vm", nullptr, "img"), "/a.d/vm.img");
  EXPECT_EQ(Derive("vm.cfg", nullptr, "img"), "vm.img");
  EXPECT_EQ(Derive("./vm.cfg", nullptr, "img"), "vm.img");
}

TEST(DeriveFileName, WarnsWithoutWhatItNeeds) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(Derive(nullptr, "disk", "img"), "(null)");
  EXPECT_EQ(Derive("/a/vm.cfg", nullptr, nullptr), "(null)");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "invalid use of function\ninvalid use of function\n");
}

void Collect(void *data, const char *format, ...) __attribute__((format(printf, 2, 3)));
void Collect(void *data, const char *format, ...) {
  char line[600];
  va_list args;
  va_start(args, format);
  // The list is started above. NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
  vsnprintf(line, sizeof line, format, args);
  va_end(args);
  static_cast<std::vector<std::string> *>(data)->emplace_back(line);
}

// Goes `depth` frames down before it asks for the back trace.
[[gnu::noinline]] int TraceFrom(int depth, std::vector<std::string> *lines) {
  if (depth == 0) {
    Util_BacktraceWithFunc(0, Collect, lines);
    return 0;
  }
  const int below = TraceFrom(depth - 1, lines);
  // Work after the call, so that the compiler keeps the frame.
  asm volatile("" ::: "memory");
  return below + 1;
}

TEST(Backtrace, WritesAFrameALineUpwards) {
  std::vector<std::string> lines;
  TraceFrom(20, &lines);
  ASSERT_GT(lines.size(), 22U);
  EXPECT_EQ(lines[0], "Backtrace:\n");
  unsigned long last = 0;
  for (size_t i = 1; i < lines.size(); i++) {
    unsigned index = 0;
    unsigned long frame = 0;
    unsigned long rip = 0;
    ASSERT_EQ(sscanf(lines[i].c_str(), "Backtrace[%u] %lx rip=%lx rbx=", &index, &frame, &rip), 3)
        << lines[i];
    EXPECT_EQ(index, i - 1);
    EXPECT_GT(frame, last);
    // The frame that the process began with returns nowhere.
    EXPECT_EQ(rip == 0, i == lines.size() - 1);
    last = frame;
  }
}

TEST(Backtrace, StopsAfter500Frames) {
  std::vector<std::string> lines;
  TraceFrom(1000, &lines);
  EXPECT_EQ(lines.size(), 501U);
}

TEST(Backtrace, HeadingNamesTheBug) {
  std::vector<std::string> lines;
  Util_BacktraceWithFunc(4711, Collect, &lines);
  EXPECT_EQ(lines[0], "Backtrace for bugNr=4711\n");
}

TEST(Backtrace, GoesToTheLog) {
  testhost::Host host;
  host.Enter();
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  Util_Backtrace(12);
  EXPECT_TRUE(std::regex_search(
      testhost::ReadFile(Log_GetFileName()),
      std::regex(R"(\| Backtrace for bugNr=12\n[^\n]*\| Backtrace\[0\] [^\n]* r15=[0-9a-f]{16}\n)")));
}

}  // namespace
