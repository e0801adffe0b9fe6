#include "hostinfoProcess.h"

#include <sys/io.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>

#include "idLinux.h"
#include "panicUser.h"
#include "posixPosix.h"

namespace {

constexpr int kExecFailed = 127;

void StopTimers() {
  const itimerval none{};
  for (const auto timer : {ITIMER_REAL, ITIMER_VIRTUAL, ITIMER_PROF}) {
    setitimer(timer, &none, nullptr);
  }
}

void ResetSignals() {
  struct sigaction action {};
  action.sa_handler = SIG_DFL;
  sigfillset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  // Those that can't be handled fail, which is as good.
  for (int signal = 1; signal <= NSIG; signal++) {
    sigaction(signal, &action, nullptr);
  }
}

void CloseFrom(int first, int last) {
  if (first > last || close_range(static_cast<unsigned>(first), static_cast<unsigned>(last), 0) == 0) {
    return;
  }
  // An older kernel.
  for (int fd = last; fd >= first; fd--) {
    close(fd);
  }
}

// Closes all descriptors above the standard ones but those to keep. It allocates nothing and needs no order,
// since a fresh child can't count on either.
void CloseDescriptors(const int *keepFds, size_t count) {
  int last = static_cast<int>(sysconf(_SC_OPEN_MAX)) - 1;
  while (last > STDERR_FILENO) {
    int kept = STDERR_FILENO;
    std::for_each(keepFds, keepFds + count, [&](int fd) { kept = fd <= last ? std::max(kept, fd) : kept; });
    CloseFrom(kept + 1, last);
    last = kept - 1;
  }
}

void RaiseAddressSpace() {
  rlimit limit;
  if (getrlimit(RLIMIT_AS, &limit) == 0) {
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_AS, &limit);
  }
}

void DropPrivilege() {
  ASSERT(geteuid() != 0 || getuid() == 0);
  const uid_t user = Id_BeginSuperUser();
  const int result = iopl(0);
  const int error = errno;
  Id_EndSuperUser(user);
  // A kernel without the call has no such privilege.
  if (result != 0 && error != ENOSYS) {
    NOT_IMPLEMENTED();
  }
}

// Returns what Hostinfo_Execute does.
int WaitFor(pid_t child) {
  int status = 0;
  if (TEMP_FAILURE_RETRY(waitpid(child, &status, 0)) == -1) {
    return errno == ECHILD ? 0 : -1;
  }
  return status;
}

}  // namespace

void Hostinfo_ResetProcessState(const int *keepFds, size_t count) {
  StopTimers();
  ResetSignals();
  CloseDescriptors(keepFds, count);
  RaiseAddressSpace();
  DropPrivilege();
}

int Hostinfo_Execute(const char *path, const char *const *arguments, bool wait) {
  if (path == nullptr) {
    return 1;
  }
  const pid_t child = fork();
  if (child == -1) {
    return -1;
  }
  if (child == 0) {
    Hostinfo_ResetProcessState(nullptr, 0);
    Posix_Execvp(path, arguments);
    _exit(kExecFailed);
  }
  return wait ? WaitFor(child) : 0;
}
