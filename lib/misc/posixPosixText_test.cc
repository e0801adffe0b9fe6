// What every wrapper does with a text that can't be converted.

#include <iconv.h>
#include <sys/syscall.h>
#include <ucontext.h>

#include <csignal>
#include <functional>

#include "owned.h"
#include "posixPosix.h"
#include "posixPosixTestInt.h"

namespace {

using posixtest::kNotLatin1;
using posixtest::kNotUtf8;

// How many calls the kernel turned back.
volatile sig_atomic_t trappedCalls = 0;

void CountTrappedCall(int /*signal*/, siginfo_t * /*info*/, void *context) {
  trappedCalls = trappedCalls + 1;
  static_cast<ucontext_t *>(context)->uc_mcontext.gregs[REG_RAX] = -ENOSYS;
}

// Every call that takes a path, and those that make a process.
void TrapSystemCalls() {
  struct sigaction action {};
  action.sa_sigaction = CountTrappedCall;
  action.sa_flags = SA_SIGINFO | SA_NODEFER;
  ASSERT_EQ(sigaction(SIGSYS, &action, nullptr), 0);
  posixtest::AnswerSystemCalls(
      {SYS_open,     SYS_openat,    SYS_creat,    SYS_stat,       SYS_lstat,    SYS_newfstatat, SYS_statx,
       SYS_statfs,   SYS_unlink,    SYS_unlinkat, SYS_rmdir,      SYS_mkdir,    SYS_mkdirat,    SYS_chdir,
       SYS_chmod,    SYS_fchmodat,  SYS_chown,    SYS_lchown,     SYS_fchownat, SYS_truncate,   SYS_utime,
       SYS_utimes,   SYS_utimensat, SYS_access,   SYS_faccessat,  SYS_mknod,    SYS_mknodat,    SYS_rename,
       SYS_renameat, SYS_renameat2, SYS_symlink,  SYS_symlinkat,  SYS_link,     SYS_linkat,     SYS_readlink,
       SYS_mount,    SYS_umount2,   SYS_execve,   SYS_readlinkat, SYS_fork,     SYS_vfork,      SYS_clone,
       SYS_clone3},
      SECCOMP_RET_TRAP);
}

// A wrapper with a text; tells whether the result was that of a failure.
struct Call {
  const char *name;
  std::function<bool(const char *text)> fails;
};

const char *const kNoTexts[] = {nullptr};

bool SpawnFails(const char *path, const char *const *arguments) {
  pid_t child = -1;
  return Posix_Spawn(&child, path, nullptr, arguments) == EINVAL && child == -1;
}

std::vector<Call> Calls() {
  static struct stat data;
  static struct statfs system;
  static char buffer[4096];
  static passwd user;
  static group group;
  return {
      {"Open", [](const char *text) { return Posix_Open(text, O_RDONLY) == -1; }},
      {"Open of a new file", [](const char *text) { return Posix_Open(text, O_CREAT | O_RDWR, 0600) == -1; }},
      {"Creat", [](const char *text) { return Posix_Creat(text, 0600) == -1; }},
      {"Stat", [](const char *text) { return Posix_Stat(text, &data) == -1; }},
      {"Lstat", [](const char *text) { return Posix_Lstat(text, &data) == -1; }},
      {"Statfs", [](const char *text) { return Posix_Statfs(text, &system) == -1; }},
      {"Unlink", [](const char *text) { return Posix_Unlink(text) == -1; }},
      {"Rmdir", [](const char *text) { return Posix_Rmdir(text) == -1; }},
      {"Mkdir", [](const char *text) { return Posix_Mkdir(text, 0700) == -1; }},
      {"Chdir", [](const char *text) { return Posix_Chdir(text) == -1; }},
      {"Chmod", [](const char *text) { return Posix_Chmod(text, 0700) == -1; }},
      {"Chown", [](const char *text) { return Posix_Chown(text, 0, 0) == -1; }},
      {"Lchown", [](const char *text) { return Posix_Lchown(text, 0, 0) == -1; }},
      {"Truncate", [](const char *text) { return Posix_Truncate(text, 0) == -1; }},
      {"Utime", [](const char *text) { return Posix_Utime(text, nullptr) == -1; }},
      {"Utimes", [](const char *text) { return Posix_Utimes(text, nullptr) == -1; }},
      {"Access", [](const char *text) { return Posix_Access(text, F_OK) == -1; }},
      {"Pathconf", [](const char *text) { return Posix_Pathconf(text, _PC_NAME_MAX) == -1; }},
      {"Mkfifo", [](const char *text) { return Posix_Mkfifo(text, 0600) == -1; }},
      {"Mknod", [](const char *text) { return Posix_Mknod(text, S_IFREG | 0600, 0) == -1; }},
      {"OpenDir", [](const char *text) { return Posix_OpenDir(text) == nullptr; }},
      {"Fopen", [](const char *text) { return Posix_Fopen(text, "r") == nullptr; }},
      {"Freopen", [](const char *text) { return Posix_Freopen(text, "r", stdin) == nullptr; }},
      {"Popen", [](const char *text) { return Posix_Popen(text, "r") == nullptr; }},
      {"System", [](const char *text) { return Posix_System(text) == -1; }},
      {"Umount", [](const char *text) { return Posix_Umount(text) == -1; }},
      {"Setmntent", [](const char *text) { return Posix_Setmntent(text, "r") == nullptr; }},
      {"Rename", [](const char *text) { return Posix_Rename(text, "/t/new") == -1; }},
      {"Rename to", [](const char *text) { return Posix_Rename("/t/file", text) == -1; }},
      {"Symlink", [](const char *text) { return Posix_Symlink(text, "/t/new") == -1; }},
      {"Symlink at", [](const char *text) { return Posix_Symlink("/t/file", text) == -1; }},
      {"Link", [](const char *text) { return Posix_Link(text, "/t/new") == -1; }},
      {"Link at", [](const char *text) { return Posix_Link("/t/file", text) == -1; }},
      {"Mount", [](const char *text) { return Posix_Mount(text, "/t/dir", "tmpfs", 0, nullptr) == -1; }},
      {"Mount at", [](const char *text) { return Posix_Mount("none", text, "tmpfs", 0, nullptr) == -1; }},
      {"ReadLink", [](const char *text) { return Posix_ReadLink(text) == nullptr; }},
      {"RealPath", [](const char *text) { return Posix_RealPath(text) == nullptr; }},
      {"Getenv", [](const char *text) { return Posix_Getenv(text) == nullptr; }},
      {"Setenv", [](const char *text) { return Posix_Setenv(text, "value", 1) == -1; }},
      {"Setenv to", [](const char *text) { return Posix_Setenv("OST_A", text, 1) == -1; }},
      {"Unsetenv", [](const char *text) { return Posix_Unsetenv(text) == -1; }},
      {"Printf", [](const char *text) { return Posix_Printf("%s", text) == -1; }},
      {"Fprintf", [](const char *text) { return Posix_Fprintf(stderr, "%s", text) == -1; }},
      {"Execl", [](const char *text) { return Posix_Execl(text, "name", nullptr) == -1; }},
      {"Execl with", [](const char *text) { return Posix_Execl("/bin/true", "name", text, nullptr) == -1; }},
      {"Execlp", [](const char *text) { return Posix_Execlp(text, "name", nullptr) == -1; }},
      {"Execlp with", [](const char *text) { return Posix_Execlp("true", "name", text, nullptr) == -1; }},
      {"Execv", [](const char *text) { return Posix_Execv(text, kNoTexts) == -1; }},
      {"Execv with",
       [](const char *text) {
         const char *const texts[] = {"name", text, nullptr};
         return Posix_Execv("/bin/true", texts) == -1;
       }},
      {"Execvp", [](const char *text) { return Posix_Execvp(text, kNoTexts) == -1; }},
      {"Execvp with",
       [](const char *text) {
         const char *const texts[] = {"name", text, nullptr};
         return Posix_Execvp("true", texts) == -1;
       }},
      {"Execve", [](const char *text) { return Posix_Execve(text, kNoTexts, kNoTexts) == -1; }},
      {"Execve with",
       [](const char *text) {
         const char *const texts[] = {"name", text, nullptr};
         return Posix_Execve("/bin/true", texts, kNoTexts) == -1;
       }},
      {"Execve in",
       [](const char *text) {
         const char *const texts[] = {"A=1", text, nullptr};
         return Posix_Execve("/bin/true", kNoTexts, texts) == -1;
       }},
      {"Spawn", [](const char *text) { return SpawnFails(text, kNoTexts); }},
      {"Spawn with",
       [](const char *text) {
         const char *const texts[] = {"name", text, nullptr};
         return SpawnFails("/bin/true", texts);
       }},
      {"Perror",
       [](const char *text) {
         Posix_Perror(text);
         return true;
       }},
      {"Getpwnam", [](const char *text) { return Posix_Getpwnam(text) == nullptr; }},
      {"Getpwnam_r",
       [](const char *text) {
         passwd *found = &user;
         return Posix_Getpwnam_r(text, &user, buffer, sizeof buffer, &found) == EINVAL && found == nullptr;
       }},
      {"Getgrnam", [](const char *text) { return Posix_Getgrnam(text) == nullptr; }},
      {"Getgrnam_r",
       [](const char *text) {
         ::group *found = &group;
         return Posix_Getgrnam_r(text, &group, buffer, sizeof buffer, &found) == EINVAL && found == nullptr;
       }},
      {"Getgrouplist",
       [](const char *text) {
         gid_t groups[5] = {};
         int count = 5;
         return Posix_Getgrouplist(text, 77, groups, &count) == 1 && count == 1 && groups[0] == 77;
       }},
  };
}

// The process is of no other use after this.
void ExpectNoSystemCall(const char *text) {
  TrapSystemCalls();
  for (const Call &call : Calls()) {
    errno = 0;
    EXPECT_TRUE(call.fails(text)) << call.name;
    EXPECT_EQ(errno, EINVAL) << call.name;
  }
  EXPECT_EQ(trappedCalls, 0);
  // The kernel does turn back a call that is made.
  EXPECT_FAILS(-1, ENOSYS, Posix_Access("/t/file", F_OK));
  EXPECT_EQ(trappedCalls, 1);
}

class PosixText : public posixtest::PosixHost {};
class PosixTextLatin1 : public posixtest::Latin1Host {};

TEST_F(PosixTextLatin1, WhatLatin1DoesNotHaveReachesNoSystemCall) {
  EXPECT_EQ(Posix_Access("/t/file", F_OK), 0);
  // Keep the C library's converters loaded.
  iconv_t out = iconv_open("ISO-8859-1", "UTF-8");
  iconv_t in = iconv_open("UTF-8", "ISO-8859-1");
  EXPECT_TRUE(posixtest::HoldsInChild([] { ExpectNoSystemCall(kNotLatin1); }));
  iconv_close(out);
  iconv_close(in);
}

TEST_F(PosixTextLatin1, WhatIsNoTextAtAllCannotBeConverted) {
  EXPECT_FAILS(-1, EINVAL, Posix_Access(kNotUtf8, F_OK));
}

TEST_F(PosixText, WhatIsNotUtf8StillNamesItsFile) {
  for (const char *text : {"\x80", "\xC0\x80", "\xC3", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xF4\x90\x80\x80",
                           "\xFF", "a\xFFz", "\xE2\x82", "\xF0\x9F\x98"}) {
    const std::string path = std::string("/t/dir/") + text;
    EXPECT_EQ(Posix_Mkdir(path.c_str(), 0700), 0);
    EXPECT_EQ(access(path.c_str(), F_OK), 0);
    const char *const arguments[] = {"rmdir", path.c_str(), nullptr};
    pid_t child = -1;
    ASSERT_EQ(Posix_Spawn(&child, "/bin/rmdir", nullptr, arguments), 0);
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_EQ(access(path.c_str(), F_OK), -1);
  }
}

TEST_F(PosixText, AsciiAllowsNothingElse) {
  setenv("G_FILENAME_ENCODING", "US-ASCII", 1);
  EXPECT_EQ(Posix_Access("/t/file", F_OK), 0);
  EXPECT_FAILS(-1, EINVAL, Posix_Access("/t/" NAME, F_OK));
  ASSERT_EQ(symlink(LATIN1_NAME, "/t/dir/latin"), 0);
  EXPECT_FAILS(nullptr, EINVAL, Posix_ReadLink("/t/dir/latin"));
}

// The system would read them up to the first NUL, and take the root for the file.
TEST_F(PosixText, BytesOfWideCharactersReachNoSystemCall) {
  for (const char *encoding : {"UTF-16LE", "UTF-16BE", "UTF-16", "UTF-32LE", "UTF-32BE", "UTF-32"}) {
    EXPECT_TRUE(posixtest::HoldsInChild([&] {
      setenv("G_FILENAME_ENCODING", encoding, 1);
      EXPECT_FAILS(-1, EINVAL, Posix_Access("/t/file", F_OK));
      const char *const arguments[] = {"", "name", nullptr};
      EXPECT_FAILS(-1, EINVAL, Posix_Execv("", arguments));
      EXPECT_FAILS(-1, ENOENT, Posix_Execv("", kNoTexts));
    })) << encoding;
  }
}

// An encoding that the program knows by the C library alone.
TEST_F(PosixText, TheHostsOwnEncodingServesWhateverItIs) {
  setenv("G_FILENAME_ENCODING", "KOI8-R,UTF-8", 1);
  EXPECT_EQ(Posix_Mkdir("/t/\u0416", 0755), 0);
  EXPECT_EQ(access("/t/\xF6", F_OK), 0);
}

TEST_F(PosixText, TheLocalesEncodingServesWhenItIsToldTo) {
  setenv("G_BROKEN_FILENAMES", "1", 1);
  setenv("LC_ALL", "C", 1);
  EXPECT_FAILS(-1, EINVAL, Posix_Access("/t/" NAME, F_OK));
}

TEST_F(PosixText, FindingTheEncodingLeavesNoTrace) {
  setenv("G_BROKEN_FILENAMES", "1", 1);
  setenv("LC_ALL", "no-such-locale", 1);
  errno = ECHILD;
  EXPECT_EQ(Posix_Access("/t/file", F_OK), 0);
  EXPECT_EQ(errno, ECHILD);
}

}  // namespace
