#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "allocations.h"
#include "owned.h"
#include "preference.h"
#include "regexes.h"
#include "systemCalls.h"
#include "testhost.h"
#include "util.h"

namespace {

// Whether the system doesn't tell how large a user's record can be.
bool recordSizeIsUnknown;

}  // namespace

// A stand-in for the C library's, whose answer can't be had otherwise.
extern "C" long sysconf(int name) noexcept {
  static const auto real = reinterpret_cast<long (*)(int)>(dlsym(RTLD_NEXT, "sysconf"));
  return recordSizeIsUnknown && name == _SC_GETPW_R_SIZE_MAX ? -1 : real(name);
}

namespace {

namespace fs = std::filesystem;

std::string SafeTmpDir() {
  const OwnedString result(Util_GetSafeTmpDir(true));
  return result == nullptr ? "(null)" : result.get();
}

// A host whose temporary directory is empty, for the user root.
void EnterHost(testhost::Host host = {}) {
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
  return testhost::RegexMatch(path, "/tmp/base/ostrel-root-[0-9]+");
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

TEST(SafeTmpDir, RefusesAFileOfItsOwnName) {
  EnterHost();
  testhost::WriteFile("/tmp/base/ostrel-root", "", 0700);
  EXPECT_TRUE(IsRandomName(SafeTmpDir()));
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
  EXPECT_TRUE(testhost::RegexMatch(
      testing::internal::GetCapturedStderr(),
      "UtilCreateSafeTmpDir: Failed to create a safe temporary directory, path "
      "\"/tmp/base/ostrel-root-[0-9]+\"\\. The maximum number of attempts was exceeded\\.\n"));
}

TEST(SafeTmpDir, GivesUpWithoutRandomNumbers) {
  EnterHost();
  MakeDirectory("/tmp/base/ostrel-root", 0755);
  ASSERT_EQ(mount("/dev/null", "/dev/urandom", nullptr, MS_BIND, nullptr), 0);
  testing::internal::CaptureStderr();
  EXPECT_EQ(SafeTmpDir(), "(null)");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "UtilCreateSafeTmpDir: Call to Random_Crypto failed.\n");
}

TEST(SafeTmpDir, WithoutAListOfUsersAUserGetsTheNumber) {
  testhost::Host host;
  // Some hosts know their root without a list.
  host.Remove("/etc/passwd").File("/etc/nsswitch.conf", "passwd: files\n");
  EnterHost(host);
  testing::internal::CaptureStderr();
  EXPECT_EQ(SafeTmpDir(), "/tmp/base/ostrel-uid-0");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "UtilGetUserName: Unable to retrieve the username associated with user ID 0.\n"
            "Util_GetSafeTmpDir: UtilGetUserName failed, using numeric ID as username instead.\n");
}

TEST(SafeTmpDir, AUserWhoseRecordIsOfUnknownSizeGetsTheNumber) {
  EnterHost();
  recordSizeIsUnknown = true;
  testing::internal::CaptureStderr();
  EXPECT_EQ(SafeTmpDir(), "/tmp/base/ostrel-uid-0");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "UtilGetUserName: sysconf(_SC_GETPW_R_SIZE_MAX) failed.\n"
            "Util_GetSafeTmpDir: UtilGetUserName failed, using numeric ID as username instead.\n");
}

// What a child of ours writes on standard error, whose `nth` allocation fails while it asks for its
// directory.
std::string ErrorsWithoutMemory(size_t nth) {
  const pid_t child = fork();
  if (child == 0) {
    EXPECT_NE(freopen("/tmp/errors", "w", stderr), nullptr);
    const testhost::AllocationFault fault(nth);
    const bool isNumbered = SafeTmpDir() == "/tmp/base/ostrel-uid-0";
    fflush(stderr);
    _exit(isNumbered ? 0 : 1);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return testhost::ReadFile("/tmp/errors") + (status == 0 ? "" : "failed");
}

TEST(SafeTmpDir, WithoutMemoryForTheRecordAUserGetsTheNumber) {
  EnterHost();
  // What is only made once is there from now on, and the directory is looked for again.
  EXPECT_EQ(SafeTmpDir(), "/tmp/base/ostrel-root");
  ASSERT_EQ(chmod("/tmp/base/ostrel-root", 0755), 0);
  bool seen = false;
  for (size_t i = 0; i < 50 && !seen; i++) {
    seen = ErrorsWithoutMemory(i) ==
           "UtilGetUserName: Not enough memory.\n"
           "Util_GetSafeTmpDir: UtilGetUserName failed, using numeric ID as username instead.\n";
  }
  EXPECT_TRUE(seen);
}

TEST(SafeTmpDir, TriesOneNameAndThen251RandomOnes) {
  EnterHost();
  // That a directory is there doesn't help when it can't be said that it was.
  SafeTmpDir();
  testhost::SystemCalls calls({SYS_mkdir});
  calls.Fail(SYS_mkdir, EACCES);
  testing::internal::CaptureStderr();
  EXPECT_EQ(SafeTmpDir(), "(null)");
  testing::internal::GetCapturedStderr();
  // The directory that was the process's is tested first.
  EXPECT_EQ(calls.Count(SYS_mkdir), 1U + 1 + 251);
}

// A host whose configuration names a temporary directory.
void EnterConfiguredHost() {
  testhost::Host host;
  host.File("/etc/ostrel/config", "tmpDirectory = \"/tmp/configured\"\n").Directory("/tmp/configured", 01777);
  EnterHost(host);
  Preference_DisablePolling();
  ASSERT_TRUE(Preference_Init());
}

TEST(SafeTmpDir, IsWhereTheConfigurationSaysWhenThatMay) {
  EnterConfiguredHost();
  EXPECT_STREQ(OwnedString(Util_GetSafeTmpDir(false)).get(), "/tmp/base/ostrel-root");
  fs::remove("/tmp/base/ostrel-root");
  testhost::WriteFile("/tmp/base/ostrel-root", "", 0600);
  EXPECT_STREQ(OwnedString(Util_GetSafeTmpDir(true)).get(), "/tmp/configured/ostrel-root");
}

TEST(SafeTmpDir, IsForTheEffectiveUser) {
  EnterHost();
  EXPECT_EQ(SafeTmpDir(), "/tmp/base/ostrel-root");
  ASSERT_EQ(seteuid(54321), 0);
  testing::internal::CaptureStderr();
  EXPECT_EQ(SafeTmpDir(), "/tmp/base/ostrel-uid-54321");
  testing::internal::GetCapturedStderr();
  ASSERT_EQ(seteuid(0), 0);
  EXPECT_EQ(SafeTmpDir(), "/tmp/base/ostrel-root");
}

// A file that Util_MakeSafeTemp made, or "(null)" with errno.
std::string MakeSafeTemp(const char *tag) {
  char *name = nullptr;
  const int fd = Util_MakeSafeTemp(tag, &name);
  const OwnedString owned(name);
  if (fd == -1) {
    return "(null)";
  }
  EXPECT_EQ(write(fd, "x", 1), 1);
  close(fd);
  EXPECT_EQ(testhost::ReadFile(name), "x");
  struct stat data {};
  EXPECT_EQ(lstat(name, &data), 0);
  EXPECT_EQ(data.st_mode, S_IFREG | 0600U);
  return name;
}

TEST(MakeSafeTemp, PutsItsFileIntoTheSafeDirectory) {
  EnterHost();
  EXPECT_EQ(MakeSafeTemp(nullptr), "/tmp/base/ostrel-root/ostrel0");
  EXPECT_EQ(MakeSafeTemp(nullptr), "/tmp/base/ostrel-root/ostrel1");
  EXPECT_EQ(MakeSafeTemp("tag"), "/tmp/base/ostrel-root/tag0");
}

TEST(MakeSafeTemp, AsksTheConfiguration) {
  EnterConfiguredHost();
  EXPECT_EQ(MakeSafeTemp(nullptr), "/tmp/configured/ostrel-root/ostrel0");
}

TEST(MakeSafeTemp, ATagMayNameADirectory) {
  EnterHost();
  EXPECT_EQ(MakeSafeTemp("/tmp/base/tag"), "/tmp/base/tag0");
  EXPECT_EQ(MakeSafeTemp("/tag"), "/tag0");
  ASSERT_EQ(chdir("/tmp"), 0);
  EXPECT_EQ(MakeSafeTemp("base/tag"), "base/tag1");
  EXPECT_EQ(MakeSafeTemp("./tag"), "./tag0");
  // None of them took the safe directory.
  EXPECT_FALSE(fs::exists("/tmp/base/ostrel-root"));
}

TEST(MakeSafeTemp, FailsWhereItCannotWrite) {
  EnterHost();
  EXPECT_EQ(MakeSafeTemp("/tmp/base/no/tag"), "(null)");
  EXPECT_EQ(errno, ENOENT);
  ASSERT_EQ(mount("none", "/tmp/base", "tmpfs", MS_RDONLY, nullptr), 0);
  testing::internal::CaptureStderr();
  EXPECT_EQ(MakeSafeTemp("tag"), "(null)");
  EXPECT_EQ(errno, EFAULT);
  testing::internal::GetCapturedStderr();
}

}  // namespace
