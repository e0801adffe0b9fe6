#include "posixPosix.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "owned.h"
#include "testhost.h"

namespace {

class Posix : public ::testing::Test {
 protected:
  void SetUp() override {
    testhost::Host host;
    host.File("/t/file", "content").SymLink("/t/link", "file").Directory("/t/dir");
    host.Enter();
    umask(022);
  }
};

mode_t ModeOf(const char *path) {
  struct stat data;
  EXPECT_EQ(stat(path, &data), 0) << path;
  return data.st_mode & 07777;
}

// Runs `call` in a child and returns the child's exit status.
template <typename Call>
int InChild(Call call) {
  const pid_t pid = fork();
  if (pid == 0) {
    call();
    _exit(99);
  }
  int status = 0;
  EXPECT_EQ(waitpid(pid, &status, 0), pid);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

#define EXPECT_FAILS(failure, number, call) \
  do {                                      \
    errno = 0;                              \
    EXPECT_EQ(call, failure);               \
    EXPECT_EQ(errno, number) << #call;      \
  } while (false)

TEST_F(Posix, NullPathIsAnsweredWithEFAULT) {
  struct stat data;
  EXPECT_FAILS(-1, EFAULT, Posix_Open(nullptr, O_RDONLY));
  EXPECT_FAILS(-1, EFAULT, Posix_Stat(nullptr, &data));
  EXPECT_FAILS(-1, EFAULT, Posix_Lstat(nullptr, &data));
  EXPECT_FAILS(-1, EFAULT, Posix_Unlink(nullptr));
  EXPECT_FAILS(-1, EFAULT, Posix_Rmdir(nullptr));
  EXPECT_FAILS(-1, EFAULT, Posix_Mkdir(nullptr, 0777));
  EXPECT_FAILS(-1, EFAULT, Posix_Chmod(nullptr, 0777));
  EXPECT_FAILS(-1, EFAULT, Posix_Access(nullptr, F_OK));
  EXPECT_FAILS(-1, EFAULT, Posix_Rename(nullptr, "/t/new"));
  EXPECT_FAILS(-1, EFAULT, Posix_Rename("/t/file", nullptr));
  EXPECT_FAILS(-1, EFAULT, Posix_Symlink(nullptr, "/t/new"));
  EXPECT_FAILS(-1, EFAULT, Posix_Link("/t/file", nullptr));
#ifndef __SANITIZE_ADDRESS__  // whose readlink reads the path itself
  EXPECT_FAILS(nullptr, EFAULT, Posix_ReadLink(nullptr));
#endif
  EXPECT_FAILS(nullptr, EFAULT, Posix_OpenDir(nullptr));
  EXPECT_FAILS(nullptr, EFAULT, Posix_Fopen(nullptr, "r"));
  EXPECT_FAILS(-1, EFAULT, Posix_Execl(nullptr, "name", nullptr));
  // realpath's own answer.
  EXPECT_FAILS(nullptr, EINVAL, Posix_RealPath(nullptr));
  EXPECT_EQ(testhost::ReadFile("/t/file"), "content");
}

TEST_F(Posix, FailuresAreThoseOfTheCall) {
  struct stat data;
  EXPECT_FAILS(-1, ENOENT, Posix_Open("/t/missing", O_RDONLY));
  EXPECT_FAILS(-1, EEXIST, Posix_Open("/t/file", O_CREAT | O_EXCL | O_WRONLY, 0600));
  EXPECT_FAILS(-1, ENOTDIR, Posix_Stat("/t/file/below", &data));
  EXPECT_FAILS(-1, EISDIR, Posix_Unlink("/t/dir"));
  EXPECT_FAILS(-1, ENOTDIR, Posix_Rmdir("/t/file"));
  EXPECT_FAILS(-1, EEXIST, Posix_Mkdir("/t/dir", 0777));
  EXPECT_FAILS(nullptr, EINVAL, Posix_ReadLink("/t/file"));
  EXPECT_FAILS(nullptr, ENOENT, Posix_RealPath("/t/missing"));
  EXPECT_FAILS(nullptr, ENOTDIR, Posix_OpenDir("/t/file"));
  EXPECT_FAILS(-1, ENAMETOOLONG, Posix_Access(std::string(5000, 'x').c_str(), F_OK));
}

TEST_F(Posix, SuccessLeavesErrnoAlone) {
  struct stat data;
  errno = ECHILD;
  EXPECT_EQ(Posix_Stat("/t/file", &data), 0);
  EXPECT_EQ(Posix_Chmod("/t/file", 0600), 0);
  EXPECT_EQ(Posix_Rename("/t/file", "/t/other"), 0);
  const OwnedString target(Posix_ReadLink("/t/link"));
  EXPECT_STREQ(target.get(), "file");
  setenv("OST_A", "1", 1);
  EXPECT_STREQ(Posix_Getenv("OST_A"), "1");
  EXPECT_EQ(errno, ECHILD);
}

TEST_F(Posix, OpenUsesTheModeOfANewFile) {
  const int fd = Posix_Open("/t/new", O_CREAT | O_WRONLY, 0664);
  ASSERT_GE(fd, 0);
  close(fd);
  EXPECT_EQ(ModeOf("/t/new"), 0644);
}

TEST_F(Posix, CallsReachTheirSystemCall) {
  struct stat data;
  EXPECT_EQ(Posix_Lstat("/t/link", &data), 0);
  EXPECT_TRUE(S_ISLNK(data.st_mode));
  EXPECT_EQ(Posix_Stat("/t/link", &data), 0);
  EXPECT_TRUE(S_ISREG(data.st_mode));
  EXPECT_EQ(Posix_Mkdir("/t/dir/below", 0750), 0);
  EXPECT_EQ(ModeOf("/t/dir/below"), 0750);
  EXPECT_EQ(Posix_Rmdir("/t/dir/below"), 0);
  EXPECT_EQ(Posix_Symlink("a/b", "/t/dir/symbolic"), 0);
  EXPECT_EQ(Posix_Link("/t/file", "/t/dir/hard"), 0);
  EXPECT_EQ(Posix_Stat("/t/dir/hard", &data), 0);
  EXPECT_EQ(data.st_nlink, 2U);
  const OwnedString target(Posix_ReadLink("/t/dir/symbolic"));
  EXPECT_STREQ(target.get(), "a/b");
  const OwnedStream stream(Posix_Fopen("/t/file", "r"));
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(fgetc(stream.get()), 'c');
  EXPECT_EQ(Posix_Unlink("/t/file"), 0);
  EXPECT_NE(access("/t/file", F_OK), 0);
}

TEST_F(Posix, RealPathResolvesLinks) {
  const OwnedString resolved(Posix_RealPath("/t/dir/../link"));
  EXPECT_STREQ(resolved.get(), "/t/file");
}

TEST_F(Posix, ReadLinkGivesUpTo4095Bytes) {
  const std::string target(4095, 'x');
  ASSERT_EQ(symlink(target.c_str(), "/t/dir/long"), 0);
  const OwnedString read(Posix_ReadLink("/t/dir/long"));
  EXPECT_EQ(read.get(), target);
}

TEST_F(Posix, CommandsGoToTheShell) {
  EXPECT_EQ(WEXITSTATUS(Posix_System("exit 3")), 3);
  FILE *stream = Posix_Popen("echo a; exit 4", "r");
  ASSERT_NE(stream, nullptr);
  char line[10] = "";
  EXPECT_STREQ(fgets(line, sizeof line, stream), "a\n");
  EXPECT_EQ(WEXITSTATUS(pclose(stream)), 4);
}

TEST_F(Posix, ExeclReplacesTheProcess) {
  EXPECT_EQ(InChild([] { Posix_Execl("/bin/sh", "sh", "-c", "exit $1", "x", "7", nullptr); }), 7);
  EXPECT_FAILS(-1, ENOENT, Posix_Execl("/t/missing", "missing", nullptr));
}

TEST_F(Posix, SpawnStartsAChildWithItsFiles) {
  const int output = open("/t/output", O_CREAT | O_RDWR | O_CLOEXEC, 0600);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  pid_t child = -1;
  const char *const arguments[] = {"name", "-c", "echo $0; exit $1", "x", "7", nullptr};
  EXPECT_EQ(Posix_Spawn(&child, "/bin/sh", &actions, arguments), 0);
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(WEXITSTATUS(status), 7);
  EXPECT_EQ(testhost::ReadFile("/t/output"), "x\n");
  posix_spawn_file_actions_destroy(&actions);
  close(output);
}

TEST_F(Posix, SpawnLeavesNoChildWhereTheProgramCannotRun) {
  pid_t child = -1;
  const char *const arguments[] = {"name", nullptr};
  EXPECT_EQ(Posix_Spawn(&child, "/t/missing", nullptr, arguments), ENOENT);
  EXPECT_EQ(Posix_Spawn(&child, "/t/file", nullptr, arguments), EACCES);
#ifndef __SANITIZE_ADDRESS__  // whose posix_spawn reads the path itself
  EXPECT_EQ(Posix_Spawn(&child, nullptr, nullptr, arguments), EFAULT);
#endif
  EXPECT_FAILS(-1, ECHILD, wait(nullptr));
}

TEST_F(Posix, NullModeAsserts) {
  EXPECT_EXIT(Posix_Fopen("/t/file", nullptr), ::testing::ExitedWithCode(255),
              "ASSERT lib/misc/posixPosix\\.cc:[0-9]+");
  EXPECT_EXIT(Posix_Popen("true", nullptr), ::testing::ExitedWithCode(255),
              "ASSERT lib/misc/posixPosix\\.cc:[0-9]+");
}

TEST(PosixGetenv, UnsetIsNull) {
  unsetenv("OST_A");
  EXPECT_EQ(Posix_Getenv("OST_A"), nullptr);
}

TEST(PosixGetenv, SameValueGivesTheSamePointer) {
  setenv("CC", "gcc-4.1", 1);
  const char *first = Posix_Getenv("CC");
  EXPECT_STREQ(first, "gcc-4.1");
  EXPECT_EQ(Posix_Getenv("CC"), first);
  // The pointer isn't the environment's own, which a new value of the same length would overwrite.
  EXPECT_NE(first, getenv("CC"));
}

TEST(PosixGetenv, ValueStaysReadableUntilTheSecondChange) {
  setenv("CC", "one", 1);
  const char *first = Posix_Getenv("CC");
  setenv("CC", "two", 1);
  const char *second = Posix_Getenv("CC");
  EXPECT_STREQ(second, "two");
  EXPECT_STREQ(first, "one");
  setenv("CC", "three", 1);
  EXPECT_STREQ(Posix_Getenv("CC"), "three");
  EXPECT_STREQ(second, "two");
}

TEST(PosixGetenv, UnsettingKeepsWhatWasHandedOut) {
  setenv("CC", "one", 1);
  const char *first = Posix_Getenv("CC");
  unsetenv("CC");
  EXPECT_EQ(Posix_Getenv("CC"), nullptr);
  EXPECT_STREQ(first, "one");
  setenv("CC", "one", 1);
  EXPECT_EQ(Posix_Getenv("CC"), first);
}

TEST(PosixGetenv, NamesAreKeptApart) {
  setenv("OST_A", "a", 1);
  setenv("OST_B", "b", 1);
  const char *first = Posix_Getenv("OST_A");
  EXPECT_STREQ(Posix_Getenv("OST_B"), "b");
  EXPECT_EQ(Posix_Getenv("OST_A"), first);
}

TEST(PosixGetenv, ThreadsShareOneValue) {
  setenv("CC", "gcc", 1);
  std::vector<const char *> values(8);
  std::vector<std::thread> threads;
  threads.reserve(values.size());
  for (const char *&value : values) {
    threads.emplace_back([&value] { value = Posix_Getenv("CC"); });
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
  for (const char *value : values) {
    EXPECT_EQ(value, values[0]);
    EXPECT_STREQ(value, "gcc");
  }
}

}  // namespace
