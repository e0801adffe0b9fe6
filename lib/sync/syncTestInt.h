// What the tests of the locks share.
#ifndef OST_SYNC_SYNCTESTINT_H
#define OST_SYNC_SYNCTESTINT_H

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iterator>
#include <string>
#include <utility>

#include "systemCalls.h"

namespace synctest {

inline bool IsReadable(int fd) {
  pollfd waiting = {fd, POLLIN, 0};
  return poll(&waiting, 1, 0) == 1;
}

inline bool IsOpen(int fd) {
  return fcntl(fd, F_GETFD) != -1;
}

inline size_t CountDescriptors() {
  const std::filesystem::directory_iterator descriptors("/proc/self/fd");
  return static_cast<size_t>(std::distance(begin(descriptors), end(descriptors)));
}

inline void LimitDescriptors(rlim_t count) {
  const rlimit limit = {count, 4096};
  setrlimit(RLIMIT_NOFILE, &limit);
}

// Leaves the process no descriptors but those below a limit. Its exit handlers, which belong to the
// sanitizers and the test's library, have some again.
inline void UseUpDescriptors(rlim_t limit = static_cast<rlim_t>(testhost::NextDescriptor())) {
  atexit([] { LimitDescriptors(4096); });
  LimitDescriptors(limit);
}

// Ends the process by SIGSYS at its next system call but that of LeaveQuietly.
inline void ForbidSystemCalls() {
  sock_filter steps[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_K | BPF_JEQ, SYS_exit_group, 1, 0),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog program = {std::size(steps), steps};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
    abort();
  }
}

// Ends the process with status 0. The sanitizers make system calls where they know that a function won't
// return.
inline void LeaveQuietly() {
  syscall(SYS_exit_group, 0);
}

// Something to be done once, at a moment that only a stand-in for a function of the C library knows.
class Interruption {
 public:
  void Plan(std::function<void()> act) { act_ = std::move(act); }
  void Happen() {
    if (act_) {
      std::exchange(act_, nullptr)();
    }
  }

 private:
  std::function<void()> act_;
};

// A directory of the test's own, with all that is in it.
class Scratch {
 public:
  Scratch() {
    char name[] = "/tmp/sync-test-XXXXXX";
    path_ = mkdtemp(name) == nullptr ? "" : name;
  }
  ~Scratch() { std::filesystem::remove_all(path_); }
  Scratch(const Scratch &) = delete;
  Scratch &operator=(const Scratch &) = delete;

  [[nodiscard]] std::string Path(const std::string &name) const { return path_ + '/' + name; }

 private:
  std::string path_;
};

}  // namespace synctest

#endif
