// What the tests of the wrappers share.
#ifndef OST_MISC_POSIXPOSIXTESTINT_H
#define OST_MISC_POSIXPOSIXTESTINT_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "allocations.h"
#include "testhost.h"

namespace posixtest {

// A name as the program has it, and as it stands on a disk of Latin-1 names.
#define NAME "caf\u00E9"
#define LATIN1_NAME "caf\xE9"

// What Latin-1 has no byte for, and what isn't text at all.
inline constexpr char kNotLatin1[] = "/t/\u20AC";
inline constexpr char kNotUtf8[] = "/t/caf\xE9";

inline const auto kPanic = ::testing::ExitedWithCode(255);

#define EXPECT_FAILS(failure, number, call) \
  do {                                      \
    errno = 0;                              \
    EXPECT_EQ(call, failure);               \
    EXPECT_EQ(errno, number) << #call;      \
  } while (false)

// Before the first wrapper is called.
inline void UseLatin1() {
  setenv("G_FILENAME_ENCODING", "ISO-8859-1", 1);
}

// A host with some files, by names in Latin-1 too.
class PosixHost : public ::testing::Test {
 protected:
  void SetUp() override {
    testhost::Host host;
    host.File("/t/file", "content").SymLink("/t/link", "file").Directory("/t/dir");
    host.File("/t/" LATIN1_NAME, "latin").Directory("/t/dir" LATIN1_NAME);
    host.SymLink("/t/link" LATIN1_NAME, LATIN1_NAME);
    Describe(&host);
    host.Enter();
    umask(022);
  }

  virtual void Describe(testhost::Host * /*host*/) {}
};

class Latin1Host : public PosixHost {
 protected:
  void SetUp() override {
    UseLatin1();
    PosixHost::SetUp();
  }
};

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

// Runs `call` in a child. Returns whether all that it expects is so.
template <typename Call>
bool HoldsInChild(Call call) {
  return InChild([&] {
           call();
           fflush(nullptr);
           _exit(::testing::Test::HasFailure() ? 1 : 0);
         }) == 0;
}

// How many allocations `call` makes each time but the first, when the current encoding is looked up.
template <typename Call>
size_t CountAllocations(const Call &call) {
  call();
  return testhost::CountAllocations(call);
}

// What `call` writes to a descriptor.
template <typename Call>
std::string Written(int descriptor, Call call) {
  const char path[] = "/t/written";
  EXPECT_TRUE(HoldsInChild([&] {
    dup2(open(path, O_CREAT | O_TRUNC | O_WRONLY, 0600), descriptor);
    call();
  }));
  return testhost::ReadFile(path);
}

// From now on the kernel answers these system calls of this process with a seccomp action, as
// SECCOMP_RET_TRAP or SECCOMP_RET_ERRNO | EIO.
inline void AnswerSystemCalls(const std::vector<unsigned> &numbers, unsigned action) {
  const auto count = static_cast<unsigned char>(numbers.size());
  std::vector<sock_filter> filter = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
  for (unsigned char i = 0; i < count; i++) {
    const auto steps = static_cast<unsigned char>(count - i);
    filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, numbers[i], steps, 0));
  }
  filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  filter.push_back(BPF_STMT(BPF_RET | BPF_K, action));
  const sock_fprog program = {static_cast<unsigned short>(filter.size()), filter.data()};
  ASSERT_EQ(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
  ASSERT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program), 0);
}

}  // namespace posixtest

#endif
