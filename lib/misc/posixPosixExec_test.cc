#include <fstream>

#include "posixPosix.h"
#include "posixPosixTestInt.h"

namespace {

using posixtest::InChild;
using posixtest::kNotLatin1;

constexpr char kProgram[] = "/t/bin" LATIN1_NAME "/show" LATIN1_NAME;
constexpr char kProgramText[] = "/t/bin" NAME "/show" NAME;

// Writes down its arguments and a variable, a line each, and fails with 7.
void AddProgram(testhost::Host *host) {
  host->File(kProgram, "#!/bin/sh\nprintf '%s\\n' \"$@\" \"$OST_A\" >/t/shown\nexit 7\n", 0755);
}

class PosixExec : public posixtest::PosixHost {};
class PosixExecLatin1 : public posixtest::Latin1Host {
  void Describe(testhost::Host *host) override { AddProgram(host); }
};

std::string Shown() {
  return testhost::ReadFile("/t/shown");
}

TEST_F(PosixExec, CommandsGoToTheShell) {
  EXPECT_EQ(WEXITSTATUS(Posix_System("exit 3")), 3);
  FILE *stream = Posix_Popen("echo a; exit 4", "r");
  ASSERT_NE(stream, nullptr);
  char line[10] = "";
  EXPECT_STREQ(fgets(line, sizeof line, stream), "a\n");
  EXPECT_EQ(WEXITSTATUS(pclose(stream)), 4);
  stream = Posix_Popen("read -r line; test \"$line\" = b", "w");
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(fputs("b\n", stream), 1);
  EXPECT_EQ(pclose(stream), 0);
}

TEST_F(PosixExec, NoCommandAsksForAShell) {
  EXPECT_NE(Posix_System(nullptr), 0);
}

TEST_F(PosixExecLatin1, CommandsAreConverted) {
  EXPECT_EQ(WEXITSTATUS(Posix_System("'/t/bin" NAME "/show" NAME "' " NAME)), 7);
  EXPECT_EQ(Shown(), LATIN1_NAME "\n\n");
  FILE *stream = Posix_Popen("echo " NAME, "r");
  ASSERT_NE(stream, nullptr);
  char line[10] = "";
  EXPECT_STREQ(fgets(line, sizeof line, stream), LATIN1_NAME "\n");
  EXPECT_EQ(pclose(stream), 0);
}

TEST_F(PosixExec, ExeclReplacesTheProcess) {
  EXPECT_EQ(InChild([] { Posix_Execl("/bin/sh", "sh", "-c", "exit $1", "x", "7", nullptr); }), 7);
  EXPECT_FAILS(-1, ENOENT, Posix_Execl("/t/missing", "missing", nullptr));
  EXPECT_FAILS(-1, EFAULT, Posix_Execl(nullptr, "name", nullptr));
}

TEST_F(PosixExec, ExeclTakesManyArgumentsAndNone) {
  EXPECT_EQ(InChild([] {
              Posix_Execl("/bin/sh", "sh", "-c", "exit $#", "x", "1", "2", "3", "4", "5", "6", "7", "8", "9",
                          "10", "11", "12", nullptr);
            }),
            12);
  EXPECT_FAILS(-1, ENOENT, Posix_Execl("/t/missing", static_cast<const char *>(nullptr), nullptr));
}

TEST_F(PosixExec, OnlyTheFormsWithPSearchThePath) {
  const char *const arguments[] = {"sh", "-c", "exit 5", nullptr};
  const char *const environment[] = {"PATH=/bin", nullptr};
  EXPECT_EQ(InChild([&] { Posix_Execvp("sh", arguments); }), 5);
  EXPECT_EQ(InChild([] { Posix_Execlp("sh", "sh", "-c", "exit 6", nullptr); }), 6);
  EXPECT_FAILS(-1, ENOENT, Posix_Execv("sh", arguments));
  EXPECT_FAILS(-1, ENOENT, Posix_Execl("sh", "sh", "-c", "exit 7", nullptr));
  EXPECT_FAILS(-1, ENOENT, Posix_Execve("sh", arguments, environment));
}

TEST_F(PosixExecLatin1, ExecConvertsPathAndArguments) {
  const char *const arguments[] = {"show", "a" NAME, "b", nullptr};
  const char *const environment[] = {"OST_A=" NAME, nullptr};
  setenv("OST_A", LATIN1_NAME "!", 1);
  const std::string shown = "a" LATIN1_NAME "\nb\n" LATIN1_NAME;
  EXPECT_EQ(InChild([] { Posix_Execl(kProgramText, "show", "a" NAME, "b", nullptr); }), 7);
  EXPECT_EQ(Shown(), shown + "!\n");
  EXPECT_EQ(InChild([&] { Posix_Execv(kProgramText, arguments); }), 7);
  EXPECT_EQ(Shown(), shown + "!\n");
  EXPECT_EQ(InChild([&] { Posix_Execve(kProgramText, arguments, environment); }), 7);
  EXPECT_EQ(Shown(), shown + "\n");
}

TEST_F(PosixExecLatin1, TheFormsWithPConvertToo) {
  const char *const arguments[] = {"show", NAME, nullptr};
  unsetenv("OST_A");
  ASSERT_EQ(Posix_Setenv("PATH", "/t/bin" NAME ":/bin:/usr/bin", 1), 0);
  EXPECT_EQ(InChild([&] { Posix_Execvp("show" NAME, arguments); }), 7);
  EXPECT_EQ(Shown(), LATIN1_NAME "\n\n");
  EXPECT_EQ(InChild([] { Posix_Execlp("show" NAME, "show", NAME, "c", nullptr); }), 7);
  EXPECT_EQ(Shown(), LATIN1_NAME "\nc\n\n");
}

TEST_F(PosixExecLatin1, OneBadArgumentAmongGoodOnesIsEnough) {
  EXPECT_FAILS(-1, EINVAL, Posix_Execl(kProgramText, "show", "a", kNotLatin1, "b", nullptr));
  EXPECT_FALSE(std::ifstream("/t/shown").good());
}

TEST_F(PosixExecLatin1, LackOfMemoryStartsNoProgram) {
  const char *const arguments[] = {"show", NAME, nullptr};
  const auto start = [&] { return Posix_Execl("/t/missing", "show", NAME, "b", nullptr); };
  const size_t count = posixtest::CountAllocations(start);
  ASSERT_GE(count, 5U);
  for (size_t i = 0; i < count; i++) {
    const testhost::AllocationFault fault(i);
    SCOPED_TRACE(i);
    EXPECT_FAILS(-1, EINVAL, start());
  }
  const auto replace = [&] { return Posix_Execve("/t/missing", arguments, arguments); };
  const size_t replaceCount = posixtest::CountAllocations(replace);
  for (size_t i = 0; i < replaceCount; i++) {
    const testhost::AllocationFault fault(i);
    SCOPED_TRACE(i);
    EXPECT_FAILS(-1, EINVAL, replace());
  }
}

TEST_F(PosixExec, NullListsGoOnAsNull) {
  // The kernel takes them for empty ones.
  EXPECT_FAILS(-1, ENOENT, Posix_Execv("/t/missing", nullptr));
  EXPECT_FAILS(-1, ENOENT, Posix_Execve("/t/missing", nullptr, nullptr));
  setenv("OST_A", "6", 1);
  const char *const arguments[] = {"sh", "-c", "exit ${OST_A:-5}", nullptr};
  EXPECT_EQ(InChild([&] { Posix_Execve("/bin/sh", arguments, nullptr); }), 5);
}

TEST_F(PosixExec, NoNameIsNotLookedForOnThePath) {
  const char *const arguments[] = {"name", nullptr};
  EXPECT_FAILS(-1, EFAULT, Posix_Execvp(nullptr, arguments));
  EXPECT_FAILS(-1, EFAULT, Posix_Execlp(nullptr, "name", nullptr));
}

// The C library starts the shell for a script that doesn't tell its own.
TEST_F(PosixExec, NullListsAreEmptyOnesToTheCLibraryToo) {
  testhost::WriteFile("/t/dir/script", "exit 5\n");
  chmod("/t/dir/script", 0755);
  EXPECT_EQ(InChild([] { Posix_Execvp("/t/dir/script", nullptr); }), 5);
  pid_t child = -1;
  ASSERT_EQ(Posix_Spawn(&child, "/bin/true", nullptr, nullptr), 0);
  EXPECT_EQ(waitpid(child, nullptr, 0), child);
}

TEST_F(PosixExec, SpawnStartsAChildWithItsFiles) {
  const int output = open("/t/output", O_CREAT | O_RDWR | O_CLOEXEC, 0600);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  pid_t child = -1;
  const char *const arguments[] = {"name", "-c", "echo $0 $OST_A; exit $1", "x", "7", nullptr};
  setenv("OST_A", "inherited", 1);
  EXPECT_EQ(Posix_Spawn(&child, "/bin/sh", &actions, arguments), 0);
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(WEXITSTATUS(status), 7);
  EXPECT_EQ(testhost::ReadFile("/t/output"), "x inherited\n");
  posix_spawn_file_actions_destroy(&actions);
  close(output);
}

TEST_F(PosixExecLatin1, SpawnConvertsPathAndArguments) {
  const char *const arguments[] = {"show", NAME, nullptr};
  unsetenv("OST_A");
  pid_t child = -1;
  EXPECT_EQ(Posix_Spawn(&child, kProgramText, nullptr, arguments), 0);
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(WEXITSTATUS(status), 7);
  EXPECT_EQ(Shown(), LATIN1_NAME "\n\n");
}

TEST_F(PosixExec, SpawnLeavesNoChildWhereTheProgramCannotRun) {
  pid_t child = -1;
  const char *const arguments[] = {"name", nullptr};
  EXPECT_EQ(Posix_Spawn(&child, "/t/missing", nullptr, arguments), ENOENT);
  EXPECT_EQ(Posix_Spawn(&child, "/t/file", nullptr, arguments), EACCES);
#ifndef __SANITIZE_ADDRESS__  // whose posix_spawn reads the path itself
  EXPECT_EQ(Posix_Spawn(&child, nullptr, nullptr, arguments), EFAULT);
#endif
  EXPECT_FAILS(-1, ECHILD, wait(nullptr));
}

}  // namespace
