#include "hostinfoDaemon.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "hostinfoProcess.h"
#include "log.h"
#include "owned.h"
#include "panicUser.h"
#include "posixPosix.h"
#include "posixPosixInt.h"
#include "str.h"

namespace {

using OwnedFds = std::unique_ptr<int, Releaser<free>>;

constexpr char kCaller[] = "Hostinfo_Daemonize";

// What the caller asks for.
struct Request {
  const char *path;
  const char *const *arguments;
  unsigned flags;
  const char *pidPath;
  const int *keepFds;
  size_t keepCount;

  [[nodiscard]] bool Has(HostinfoDaemonizeFlags flag) const { return (flags & flag) != 0; }
};

// What the children go by: the request, and what was made of it while there was nothing to be undone.
struct Plan {
  const Request &request;
  const char *pathBytes;
  const char *pidPathBytes;
  char *const *argumentBytes;
  int errorFd;  // takes the error number of the daemon's start; a successful exec closes it
  const int *keepFds;
  size_t keepCount;
};

class PipeEnd {
 public:
  PipeEnd() = default;
  ~PipeEnd() { Close(); }
  PipeEnd(const PipeEnd &) = delete;
  PipeEnd &operator=(const PipeEnd &) = delete;

  [[nodiscard]] int Get() const { return fd_; }
  void Close() { Reset(-1); }
  void Reset(int fd) {
    if (fd_ != -1) {
      close(fd_);
    }
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};

// ---- The daemon
//
// Steps return false with errno and a warning.

bool TellCaller(const Plan &plan, int error) {
  return write(plan.errorFd, &error, sizeof error) == sizeof error;
}

[[noreturn]] void FailDaemon(const Plan &plan) {
  const int error = errno;
  if (!TellCaller(plan, error)) {
    Warning("%s: Couldn't write to parent pipe: %u, original error: %u.\n", kCaller, errno, error);
  }
  _exit(1);
}

bool ChangeDirectory(const Plan &plan) {
  if (!plan.request.Has(HOSTINFO_DAEMONIZE_NO_CHDIR) && Posix_Chdir("/") == -1) {
    Warning("%s: Couldn't chdir to /, error %u.\n", kCaller, errno);
    return false;
  }
  return true;
}

// Makes the standard descriptors from `first` to `last` those of the null device, where it can be opened.
void ConnectToNull(int first, int last, int flags) {
  const int null = Posix_Open("/dev/null", flags);
  if (null == -1) {
    return;
  }
  for (int fd = first; fd <= last; fd++) {
    dup2(null, fd);
  }
  if (null > STDERR_FILENO) {
    close(null);
  }
}

void ConnectStandardStreams(const Plan &plan) {
  if (!plan.request.Has(HOSTINFO_DAEMONIZE_KEEP_SESSION)) {
    ConnectToNull(STDIN_FILENO, STDIN_FILENO, O_RDONLY);
    ConnectToNull(STDOUT_FILENO, STDERR_FILENO, O_WRONLY);
  }
}

// Writes the process id. Returns false with errno.
bool WritePid(int fd) {
  char text[32];
  const int length = Str_Sprintf(text, sizeof text, "%ld\n", static_cast<long>(getpid()));
  const ssize_t written = write(fd, text, static_cast<size_t>(length));
  if (written >= 0 && written < length) {
    errno = ENOSPC;  // a short write sets none
  }
  return written == length;
}

bool WritePidFile(const Plan &plan) {
  if (plan.pidPathBytes == nullptr) {
    return true;
  }
  const int fd = open(plan.pidPathBytes, O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (fd == -1) {
    Warning("%s: Couldn't open PID path [%s], error %d.\n", kCaller, plan.request.pidPath, errno);
    return false;
  }
  const bool isWritten = WritePid(fd);
  const int error = errno;
  // Closed before anything is logged, since its number may be the one that the log's file had.
  close(fd);
  errno = error;
  if (!isWritten) {
    Warning("%s: Couldn't write PID to path [%s], error %d.\n", kCaller, plan.request.pidPath, error);
  }
  return isWritten;
}

[[noreturn]] void ExecDaemon(const Plan &plan) {
  execv(plan.pathBytes, plan.argumentBytes);
  const int error = errno;
  Warning("%s: Couldn't exec %s, error %d.\n", kCaller, plan.request.path, error);
  if (!TellCaller(plan, error)) {
    Warning("Couldn't write to parent pipe: %u, original error: %u.\n", errno, error);
  }
  _exit(1);
}

[[noreturn]] void RunDaemon(const Plan &plan) {
  if (!ChangeDirectory(plan)) {
    FailDaemon(plan);
  }
  ConnectStandardStreams(plan);
  if (!WritePidFile(plan)) {
    FailDaemon(plan);
  }
  ExecDaemon(plan);
}

// ---- The first child

void UnblockSignals() {
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

// Lets a write that fails say so, to a pipe that nobody reads or to a file at its limit, where a default
// action would end the child without a word to the caller. The program doesn't inherit handlers.
void OutliveFailedWrites() {
  struct sigaction action {};
  action.sa_handler = [](int) {};
  for (const int signal : {SIGPIPE, SIGXFSZ}) {
    sigaction(signal, &action, nullptr);
  }
}

// Children end by _exit: what the caller has buffered, and its exit handlers, are the caller's.
[[noreturn]] void RunFirstChild(const Plan &plan) {
  Hostinfo_ResetProcessState(plan.keepFds, plan.keepCount);
  UnblockSignals();
  OutliveFailedWrites();
  if (!plan.request.Has(HOSTINFO_DAEMONIZE_KEEP_SESSION) && setsid() == -1) {
    Warning("%s: Couldn't create new session, error %d.\n", kCaller, errno);
    _exit(1);
  }
  const pid_t daemon = fork();
  if (daemon == -1) {
    Warning("%s: Couldn't fork second child, error %d.\n", kCaller, errno);
    _exit(1);
  }
  if (daemon == 0) {
    RunDaemon(plan);
  }
  _exit(0);
}

// ---- The caller

// Moves an end above the standard descriptors, which the daemon connects anew. Returns false with errno.
bool LiftAboveStandard(PipeEnd *end) {
  if (end->Get() > STDERR_FILENO) {
    return true;
  }
  const int lifted = fcntl(end->Get(), F_DUPFD, STDERR_FILENO + 1);
  if (lifted == -1) {
    return false;
  }
  end->Reset(lifted);
  return true;
}

// Returns false with errno.
bool MakePipe(PipeEnd *reader, PipeEnd *writer) {
  int ends[2];
  if (pipe(ends) == -1) {
    return false;
  }
  reader->Reset(ends[0]);
  writer->Reset(ends[1]);
  return LiftAboveStandard(reader) && LiftAboveStandard(writer);
}

// The descriptor, and those of the request behind it; null with errno when memory is out.
OwnedFds ListKept(int fd, const Request &request) {
  OwnedFds list(static_cast<int *>(calloc(request.keepCount + 1, sizeof(int))));
  if (list != nullptr) {
    *list = fd;
    std::copy_n(request.keepFds, request.keepCount, list.get() + 1);
  }
  return list;
}

// Returns false with a warning when the first child failed.
bool WaitForFirstChild(pid_t child) {
  int status = 0;
  if (TEMP_FAILURE_RETRY(waitpid(child, &status, 0)) == -1) {
    return true;  // reaped by somebody else; what counts is what the pipe tells
  }
  if (WIFSIGNALED(status)) {
    Warning("%s: Child %d exited with signal %d.\n", kCaller, child, WTERMSIG(status));
    return false;
  }
  if (WEXITSTATUS(status) != 0) {
    Warning("%s: Child %d exited with error %d.\n", kCaller, child, WEXITSTATUS(status));
    return false;
  }
  return true;
}

// Reads the daemon's error number, and gets an end of file from one that runs. Returns the number or 0.
int ReadError(int fd, const Request &request) {
  int error = EINVAL;
  const auto length = static_cast<int>(TEMP_FAILURE_RETRY(read(fd, &error, sizeof error)));
  if (length <= 0) {
    return 0;
  }
  Warning("%s: Child could not exec %s, read %d, error %u.\n", kCaller, request.path, length, error);
  return error;
}

// Starts the daemon. Returns 0, or an error number with a warning.
int Start(const Request &request) {
  PipeEnd reader;
  PipeEnd writer;
  if (!MakePipe(&reader, &writer)) {
    const int error = errno;
    Warning("%s: Couldn't create pipe, error %u.\n", kCaller, error);
    return error;
  }
  const OwnedFds keepFds = ListKept(writer.Get(), request);
  if (keepFds == nullptr) {
    const int error = errno;
    Warning("%s: Couldn't allocate memory, error %u.\n", kCaller, error);
    return error;
  }
  if (fcntl(writer.Get(), F_SETFD, FD_CLOEXEC) == -1) {
    const int error = errno;
    Warning("%s: Couldn't set close-on-exec for fd %d, error %u.\n", kCaller, writer.Get(), error);
    return error;
  }

  const PosixText path(request.path);
  const PosixText pidPath(request.pidPath);
  if (!path || !pidPath) {
    Warning("%s: Couldn't convert path [%s] to default encoding.\n", kCaller,
            path ? request.pidPath : request.path);
    return EINVAL;
  }
  const PosixTexts arguments(request.arguments);
  if (!arguments) {
    Warning("%s: Couldn't convert arguments to default encoding.\n", kCaller);
    return EINVAL;
  }

  const pid_t child = fork();
  if (child == -1) {
    const int error = errno;
    Warning("%s: Couldn't fork first child, error %u.\n", kCaller, error);
    return error;
  }
  if (child == 0) {
    reader.Close();  // its number may be one to keep
    RunFirstChild({request, path.Bytes(), pidPath.Bytes(), arguments.Bytes(), writer.Get(), keepFds.get(),
                   request.keepCount + 1});
  }
  writer.Close();
  return WaitForFirstChild(child) ? ReadError(reader.Get(), request) : EINVAL;
}

}  // namespace

bool Hostinfo_Daemonize(const char *path, const char *const *arguments, unsigned flags, const char *pidPath,
                        const int *keepFds, size_t keepCount) {
  ASSERT(path != nullptr && arguments != nullptr);
  ASSERT(keepFds != nullptr || keepCount == 0);
  const Request request = {path, arguments, flags, pidPath, keepFds, keepCount};
  const int error = Start(request);
  if (error != 0) {
    if (pidPath != nullptr) {
      Posix_Unlink(pidPath);
    }
    errno = error;
    return false;
  }
  if (request.Has(HOSTINFO_DAEMONIZE_EXIT_PARENT)) {
    exit(EXIT_SUCCESS);
  }
  return true;
}
