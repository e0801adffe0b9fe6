#include "hostinfoDaemon.h"

#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <sstream>

#include "hostinfoTestInt.h"
#include "log.h"
#include "owned.h"
#include "panics.h"
#include "posixPosixTestInt.h"
#include "systemCalls.h"

namespace {

using posixtest::HoldsInChild;
using posixtest::InChild;

constexpr char kSleep[] = "/bin/sleep";
constexpr char kPidPath[] = "/t/pid";
constexpr char kMissing[] = "/t/missing";
constexpr unsigned kKeepSession = HOSTINFO_DAEMONIZE_KEEP_SESSION;

// Starts a program that runs for as long as the test's host.
bool Start(unsigned flags, const char *path = kSleep, const char *pidPath = kPidPath,
           const std::vector<int> &keepFds = {}) {
  const char *const arguments[] = {"sleeper", "1000", nullptr};
  return Hostinfo_Daemonize(path, arguments, flags, pidPath, keepFds.data(), keepFds.size());
}

std::vector<int> OpenDescriptors(pid_t process) {
  std::vector<int> found;
  for (const auto &entry : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/fd")) {
    found.push_back(std::stoi(entry.path().filename()));
  }
  std::sort(found.begin(), found.end());
  return found;
}

// What can be seen of a daemon.
class Running {
 public:
  explicit Running(const std::string &pidPath = kPidPath) {
    const std::string text = testhost::ReadFile(pidPath);
    std::istringstream(text) >> pid_;
    EXPECT_EQ(text, std::to_string(pid_) + "\n");
  }

  [[nodiscard]] std::string Link(const std::string &name) const {
    std::error_code error;
    return std::filesystem::read_symlink(Path(name), error);
  }
  [[nodiscard]] std::string File(const std::string &name) const { return testhost::ReadFile(Path(name)); }

  // The number at a place of the stat file, counted from the process's state as 0.
  [[nodiscard]] int Stat(int field) const {
    const std::string text = File("stat");
    std::istringstream fields(text.substr(text.rfind(')') + 1));
    std::string value;
    for (int i = 0; i <= field; i++) {
      fields >> value;
    }
    return std::stoi(value);
  }
  [[nodiscard]] int Parent() const { return Stat(1); }
  [[nodiscard]] int Session() const { return Stat(3); }

  // The line of the status file that begins so.
  [[nodiscard]] std::string Status(const std::string &key) const {
    std::istringstream lines(File("status"));
    for (std::string line; std::getline(lines, line);) {
      if (line.starts_with(key + ":\t")) {
        return line.substr(key.size() + 2);
      }
    }
    return "(none)";
  }

  // Those of the program at its work: before that its loader has some, too.
  [[nodiscard]] std::vector<int> Descriptors() const {
    const std::string sleeping = std::to_string(SYS_clock_nanosleep) + " ";
    for (int turn = 0; turn < 10000 && !File("syscall").starts_with(sleeping); turn++) {
      usleep(1000);
    }
    return OpenDescriptors(pid_);
  }
  // How a descriptor was opened: O_RDONLY or O_WRONLY and the like.
  [[nodiscard]] int Access(int fd) const {
    const std::string text = File("fdinfo/" + std::to_string(fd));
    return std::stoi(text.substr(text.find("flags:") + 6), nullptr, 8) & O_ACCMODE;
  }

  [[nodiscard]] pid_t Pid() const { return pid_; }

 private:
  [[nodiscard]] std::string Path(const std::string &name) const {
    return "/proc/" + std::to_string(pid_) + "/" + name;
  }

  pid_t pid_ = 0;
};

bool Exists(const char *path) {
  return access(path, F_OK) == 0;
}

class Daemon : public posixtest::PosixHost {
 protected:
  void SetUp() override {
    PosixHost::SetUp();
    ASSERT_EQ(chdir("/t"), 0);
  }

  // What a start that must fail with an error number, in a child after `prepare`, writes to standard error.
  template <typename Prepare>
  static std::string Failure(int error, Prepare prepare, unsigned flags = kKeepSession,
                             const char *path = kSleep, const char *pidPath = kPidPath) {
    return posixtest::Written(STDERR_FILENO, [&] {
      prepare();
      errno = 0;
      EXPECT_FALSE(Start(flags, path, pidPath));
      EXPECT_EQ(errno, error);
      EXPECT_FALSE(Exists(kPidPath));
    });
  }

  static std::string ChildExited(const std::string &text, const std::string &how) {
    std::istringstream lines(testhost::WithoutPosts(text));
    std::string first;
    std::string second;
    std::getline(lines, first);
    std::getline(lines, second);
    const std::string begin = "Hostinfo_Daemonize: Child ";
    EXPECT_TRUE(second.starts_with(begin)) << text;
    EXPECT_TRUE(second.ends_with(" exited with " + how)) << text;
    return first + "\n";
  }
};

constexpr auto kNothing = [] {};

TEST_F(Daemon, IsTheProgramWithItsArguments) {
  ASSERT_TRUE(Start(0));
  const Running daemon;
  EXPECT_EQ(daemon.File("cmdline"), std::string("sleeper\0001000\0", 13));
  EXPECT_EQ(daemon.Link("exe"), std::filesystem::canonical(kSleep));
}

TEST_F(Daemon, IsAnOrphanInASessionOfItsOwn) {
  ASSERT_TRUE(Start(0));
  const Running daemon;
  EXPECT_EQ(daemon.Parent(), 1);
  EXPECT_NE(daemon.Session(), getsid(0));
  // Its leader, the first child, is gone, so that no terminal can become the daemon's.
  EXPECT_NE(daemon.Session(), daemon.Pid());
  EXPECT_FAILS(-1, ESRCH, kill(daemon.Session(), 0));
  EXPECT_FAILS(-1, ECHILD, wait(nullptr));
}

TEST_F(Daemon, RunsInTheRootWithoutATerminal) {
  ASSERT_TRUE(Start(0));
  const Running daemon;
  EXPECT_EQ(daemon.Link("cwd"), "/");
  EXPECT_EQ(daemon.Descriptors(), (std::vector<int>{0, 1, 2}));
  for (int fd = 0; fd <= 2; fd++) {
    EXPECT_EQ(daemon.Link("fd/" + std::to_string(fd)), "/dev/null");
    EXPECT_EQ(daemon.Access(fd), fd == 0 ? O_RDONLY : O_WRONLY);
  }
}

TEST_F(Daemon, KeepsTheDirectoryWhenToldTo) {
  ASSERT_TRUE(Start(HOSTINFO_DAEMONIZE_NO_CHDIR));
  EXPECT_EQ(Running().Link("cwd"), "/t");
}

TEST_F(Daemon, KeepsTheSessionAndTheStandardStreamsWhenToldTo) {
  EXPECT_TRUE(HoldsInChild([] {
    ASSERT_EQ(dup2(open("/t/file", O_RDWR), STDIN_FILENO), STDIN_FILENO);
    ASSERT_TRUE(Start(kKeepSession));
    const Running daemon;
    EXPECT_EQ(daemon.Session(), getsid(0));
    EXPECT_EQ(daemon.Link("fd/0"), "/t/file");
    for (const char *name : {"fd/1", "fd/2"}) {
      EXPECT_EQ(daemon.Link(name), std::filesystem::read_symlink(std::string("/proc/self/") + name)) << name;
    }
    EXPECT_EQ(daemon.Link("cwd"), "/");
    EXPECT_EQ(daemon.Parent(), 1);
  }));
}

TEST_F(Daemon, KeepsTheDescriptorsItIsGiven) {
  for (const int fd : {3, 4, 20, 30, 40}) {
    ASSERT_EQ(dup2(STDOUT_FILENO, fd), fd);
  }
  ASSERT_TRUE(Start(0, kSleep, kPidPath, {40, 4, 20}));
  EXPECT_EQ(Running().Descriptors(), (std::vector<int>{0, 1, 2, 4, 20, 40}));
}

// One that isn't open may get the number that the pipe has.
TEST_F(Daemon, KeepsNoDescriptorThatIsNotOpen) {
  const int next = testhost::NextDescriptor();
  ASSERT_TRUE(Start(0, kSleep, kPidPath, {next, next + 1, -1, 1000000, next}));
  EXPECT_EQ(Running().Descriptors(), (std::vector<int>{0, 1, 2}));
}

TEST_F(Daemon, LeavesTheCallersDescriptorsAsTheyWere) {
  const std::vector<int> before = OpenDescriptors(getpid());
  ASSERT_TRUE(Start(0));
  EXPECT_EQ(OpenDescriptors(getpid()), before);
  EXPECT_FALSE(Start(0, kMissing));
  EXPECT_EQ(OpenDescriptors(getpid()), before);
}

TEST_F(Daemon, HasFreshSignals) {
  signal(SIGUSR1, SIG_IGN);
  signal(SIGUSR2, [](int) {});
  sigset_t all;
  sigfillset(&all);
  sigprocmask(SIG_SETMASK, &all, nullptr);
  ASSERT_TRUE(Start(0));
  const Running daemon;
  const std::string none = "0000000000000000";
  EXPECT_EQ(daemon.Status("SigBlk"), none);
  EXPECT_EQ(daemon.Status("SigIgn"), none);
  EXPECT_EQ(daemon.Status("SigCgt"), none);
  // The caller's are as they were.
  sigset_t now;
  sigprocmask(SIG_SETMASK, nullptr, &now);
  EXPECT_EQ(sigismember(&now, SIGHUP), 1);
}

TEST_F(Daemon, PidFileIsMadeOrCutWithItsMode) {
  umask(0);
  ASSERT_TRUE(Start(0));
  struct stat info;
  ASSERT_EQ(stat(kPidPath, &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0644U);
  testhost::WriteFile("/t/old", std::string(5000, 'x'));
  ASSERT_TRUE(Start(0, kSleep, "/t/old"));
  EXPECT_GT(Running("/t/old").Pid(), 0);
}

TEST_F(Daemon, NeedsNoPidFile) {
  EXPECT_TRUE(Start(0, kSleep, nullptr));
}

TEST_F(Daemon, PidPathIsRelativeToTheDaemonsDirectory) {
  ASSERT_TRUE(Start(0, kSleep, "relative"));
  EXPECT_GT(Running("/relative").Pid(), 0);
  ASSERT_TRUE(Start(HOSTINFO_DAEMONIZE_NO_CHDIR, kSleep, "relative"));
  EXPECT_GT(Running("/t/relative").Pid(), 0);
}

// The pipe that carries failures ends when the program begins, and not when it ends.
TEST_F(Daemon, SuccessIsToldByThePipesEnd) {
  testhost::SystemCalls calls({SYS_read});
  ASSERT_TRUE(Start(0));
  EXPECT_GE(calls.Count(SYS_read), 1U);
  EXPECT_EQ(kill(Running().Pid(), 0), 0);
}

TEST_F(Daemon, WaitsAndReadsOnWhenInterrupted) {
  EXPECT_TRUE(HoldsInChild([] {
    testhost::SystemCalls calls({SYS_read, SYS_wait4});
    calls.Fail(SYS_wait4, EINTR, {.count = 2});
    calls.Fail(SYS_read, EINTR, {.count = 2});
    EXPECT_FAILS(false, ENOENT, Start(0, kMissing));
    EXPECT_GE(calls.Count(SYS_wait4), 3U);
    EXPECT_GE(calls.Count(SYS_read), 3U);
  }));
}

TEST_F(Daemon, StartsUnderACallerThatReapsNoChildren) {
  signal(SIGCHLD, SIG_IGN);
  EXPECT_TRUE(Start(0));
  EXPECT_FAILS(false, ENOENT, Start(0, kMissing));
}

// The pipe would be what the daemon connects to the null device.
TEST_F(Daemon, StartsUnderACallerWithoutStandardStreams) {
  EXPECT_TRUE(HoldsInChild([] {
    for (int fd = 0; fd <= 2; fd++) {
      close(fd);
    }
    EXPECT_FAILS(false, ENOENT, Start(0, kMissing));
    ASSERT_TRUE(Start(0));
    EXPECT_EQ(Running().Descriptors(), (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(Running().Link("fd/2"), "/dev/null");
  }));
}

TEST_F(Daemon, KeepsTheStreamsThatItCannotConnect) {
  EXPECT_TRUE(HoldsInChild([] {
    ASSERT_EQ(mount("none", "/dev", "tmpfs", 0, nullptr), 0);
    ASSERT_TRUE(Start(0));
    EXPECT_EQ(Running().Link("fd/1"), std::filesystem::read_symlink("/proc/self/fd/1"));
  }));
}

TEST_F(Daemon, CallerExitsWhenToldTo) {
  EXPECT_EQ(InChild([] {
              Start(HOSTINFO_DAEMONIZE_EXIT_PARENT);
              _exit(1);
            }),
            0);
  EXPECT_EQ(kill(Running().Pid(), 0), 0);
}

TEST_F(Daemon, CallerStaysAfterAFailure) {
  EXPECT_EQ(InChild([] { _exit(Start(HOSTINFO_DAEMONIZE_EXIT_PARENT, kMissing) ? 1 : 2); }), 2);
}

TEST_F(Daemon, NullStopsTheProgram) {
  const char *const arguments[] = {"sleeper", nullptr};
  const char *assertion = "ASSERT lib/misc/hostinfoDaemon\\.cc:[0-9]+\n";
  EXPECT_EXIT(Hostinfo_Daemonize(nullptr, arguments, 0, nullptr, nullptr, 0), posixtest::kPanic, assertion);
  EXPECT_EXIT(Hostinfo_Daemonize(kSleep, nullptr, 0, nullptr, nullptr, 0), posixtest::kPanic, assertion);
  EXPECT_EXIT(Hostinfo_Daemonize(kSleep, arguments, 0, nullptr, nullptr, 1), posixtest::kPanic, assertion);
}

// ---- Failures

TEST_F(Daemon, FailsWithoutAPipe) {
  EXPECT_EQ(Failure(EMFILE,
                    [] {
                      const rlimit none = {0, 0};
                      setrlimit(RLIMIT_NOFILE, &none);
                    }),
            "Hostinfo_Daemonize: Couldn't create pipe, error 24.\n");
}

TEST_F(Daemon, FailsWithoutMemory) {
  EXPECT_EQ(posixtest::Written(STDERR_FILENO,
                               [] {
                                 const testhost::AllocationFault fault(0);
                                 EXPECT_FAILS(false, ENOMEM, Start(0));
                               }),
            "Hostinfo_Daemonize: Couldn't allocate memory, error 12.\n");
}

TEST_F(Daemon, FailsWithoutCloseOnExec) {
  int number = 0;
  const std::string text = Failure(EPERM, [] { testhost::FailSystemCall(SYS_fcntl, EPERM); });
  EXPECT_EQ(
      sscanf(text.c_str(), "Hostinfo_Daemonize: Couldn't set close-on-exec for fd %d, error 1.\n", &number),
      1)
      << text;
  EXPECT_GT(number, 2);
}

TEST_F(Daemon, FailsWithoutAFirstChild) {
  EXPECT_EQ(Failure(EAGAIN, [] { testhost::FailSystemCall(SYS_clone, EAGAIN); }),
            "Hostinfo_Daemonize: Couldn't fork first child, error 11.\n");
}

TEST_F(Daemon, FailsWithoutASession) {
  const std::string text = Failure(
      EINVAL, [] { testhost::FailSystemCall(SYS_setsid, EPERM); }, 0);
  EXPECT_EQ(ChildExited(text, "error 1."), "Hostinfo_Daemonize: Couldn't create new session, error 1.\n");
}

TEST_F(Daemon, FailsWithoutASecondChild) {
  std::string text = posixtest::Written(STDERR_FILENO, [] {
    testhost::SystemCalls calls({SYS_clone});
    calls.Fail(SYS_clone, EAGAIN, {.from = 1});
    EXPECT_FAILS(false, EINVAL, Start(0));
    EXPECT_EQ(calls.Count(SYS_clone), 2U);
  });
  EXPECT_EQ(ChildExited(text, "error 1."), "Hostinfo_Daemonize: Couldn't fork second child, error 11.\n");
}

TEST_F(Daemon, FailsWhenTheFirstChildIsKilled) {
  const std::string text = Failure(
      EINVAL, [] { posixtest::AnswerSystemCalls({SYS_setsid}, SECCOMP_RET_KILL_PROCESS); }, 0);
  EXPECT_EQ(ChildExited("\n" + text, "signal 31."), "\n");
}

TEST_F(Daemon, FailsWhenTheFirstChildPanics) {
  const std::string text = Failure(EINVAL, [] { testhost::FailSystemCall(SYS_iopl, EPERM); });
  EXPECT_TRUE(ChildExited(text, "error 255.").starts_with("NOT_IMPLEMENTED lib/misc/hostinfoProcess.cc:"));
}

std::string CouldNotExec(const std::string &path, int error) {
  return "Hostinfo_Daemonize: Child could not exec " + path + ", read 4, error " + std::to_string(error) +
         ".\n";
}

TEST_F(Daemon, FailsWithoutARootDirectory) {
  EXPECT_EQ(Failure(EACCES, [] { testhost::FailSystemCall(SYS_chdir, EACCES); }),
            "Hostinfo_Daemonize: Couldn't chdir to /, error 13.\n" + CouldNotExec(kSleep, 13));
  EXPECT_TRUE(HoldsInChild([] {
    testhost::FailSystemCall(SYS_chdir, EACCES);
    EXPECT_TRUE(Start(HOSTINFO_DAEMONIZE_NO_CHDIR));
  }));
}

TEST_F(Daemon, FailsWithoutThePidFilesDirectory) {
  EXPECT_EQ(Failure(ENOENT, kNothing, kKeepSession, kSleep, "/t/none/pid"),
            "Hostinfo_Daemonize: Couldn't open PID path [/t/none/pid], error 2.\n" + CouldNotExec(kSleep, 2));
}

TEST_F(Daemon, FailsWhenThePidFileTakesNothing) {
  ASSERT_EQ(symlink("/dev/full", kPidPath), 0);
  EXPECT_EQ(
      Failure(ENOSPC, kNothing),
      "Hostinfo_Daemonize: Couldn't write PID to path [/t/pid], error 28.\n" + CouldNotExec(kSleep, 28));
  EXPECT_TRUE(Exists("/dev/full"));
}

TEST_F(Daemon, FailsWhenThePidFileTakesTooLittle) {
  EXPECT_TRUE(HoldsInChild([] {
    // The limit is that of every file, and so of what standard error may be.
    dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
    const rlimit one = {1, 1};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &one), 0);
    EXPECT_FAILS(false, ENOSPC, Start(0));
    EXPECT_FALSE(Exists(kPidPath));
  }));
}

TEST_F(Daemon, FailsWhenNoFileMayTakeAnything) {
  EXPECT_TRUE(HoldsInChild([] {
    dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
    const rlimit none = {0, 0};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &none), 0);
    EXPECT_FAILS(false, EFBIG, Start(0));
    EXPECT_FALSE(Exists(kPidPath));
  }));
}

// Standard error is a pipe that nobody reads.
TEST_F(Daemon, FailsWhereNoWarningCanBeWritten) {
  EXPECT_TRUE(HoldsInChild([] {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    dup2(ends[1], STDERR_FILENO);
    signal(SIGPIPE, SIG_IGN);
    EXPECT_FAILS(false, ENOENT, Start(kKeepSession, kMissing));
    EXPECT_FAILS(false, ENOENT, Start(kKeepSession, kSleep, "/t/none/pid"));

    ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
    testhost::FailSystemCall(SYS_setsid, EPERM);
    EXPECT_FAILS(false, EINVAL, Start(0));
    EXPECT_NE(testhost::ReadFile(Log_GetFileName()).find(" exited with error 1.\n"), std::string::npos);
  }));
}

TEST_F(Daemon, FailsWithoutTheProgram) {
  EXPECT_EQ(Failure(ENOENT, kNothing, kKeepSession, kMissing),
            "Hostinfo_Daemonize: Couldn't exec /t/missing, error 2.\n" + CouldNotExec(kMissing, 2));
  // Without the session the daemon has nowhere to say so.
  EXPECT_EQ(Failure(ENOENT, kNothing, 0, kMissing), CouldNotExec(kMissing, 2));
}

TEST_F(Daemon, FailsWithAFileThatIsNoProgram) {
  EXPECT_EQ(Failure(EACCES, kNothing, 0, "/t/file"), CouldNotExec("/t/file", EACCES));
  ASSERT_EQ(chmod("/t/file", 0755), 0);
  EXPECT_EQ(Failure(ENOEXEC, kNothing, 0, "/t/file"), CouldNotExec("/t/file", ENOEXEC));
  // It isn't looked for on the path.
  EXPECT_EQ(Failure(ENOENT, kNothing, 0, "sleep"), CouldNotExec("sleep", ENOENT));
  const std::string longPath(4096, 'p');
  EXPECT_EQ(Failure(ENAMETOOLONG, kNothing, 0, longPath.c_str()).substr(0, 100),
            CouldNotExec(longPath, ENAMETOOLONG).substr(0, 100));
}

TEST_F(Daemon, AFailureRemovesThePidFileOfAnEarlierDaemon) {
  testhost::WriteFile(kPidPath, "1\n");
  EXPECT_EQ(Failure(EAGAIN, [] { testhost::FailSystemCall(SYS_clone, EAGAIN); }),
            "Hostinfo_Daemonize: Couldn't fork first child, error 11.\n");
}

// The caller hears of no failure then.
TEST_F(Daemon, LogsAFailureThatItCannotTell) {
  const auto written = [](unsigned flags, const char *path, const char *pidPath) {
    return posixtest::Written(STDERR_FILENO, [&] {
      const int writeEnd = testhost::NextDescriptor() + 1;
      testhost::FailSystemCall(SYS_write, EIO, writeEnd);
      EXPECT_TRUE(Start(flags, path, pidPath));
    });
  };
  EXPECT_EQ(written(kKeepSession, kMissing, nullptr),
            "Hostinfo_Daemonize: Couldn't exec /t/missing, error 2.\n"
            "Couldn't write to parent pipe: 5, original error: 2.\n");
  EXPECT_EQ(written(kKeepSession, kSleep, "/t/none/pid"),
            "Hostinfo_Daemonize: Couldn't open PID path [/t/none/pid], error 2.\n"
            "Hostinfo_Daemonize: Couldn't write to parent pipe: 5, original error: 2.\n");
}

// A pid file that somebody must read holds the daemon until its caller has gone.
TEST_F(Daemon, LogsAFailureThatNobodyWaitsFor) {
  ASSERT_EQ(mkfifo(kPidPath, 0600), 0);
  const pid_t caller = fork();
  if (caller == 0) {
    dup2(open("/t/written", O_CREAT | O_WRONLY, 0600), STDERR_FILENO);
    Start(kKeepSession, kMissing);
    _exit(0);
  }
  const std::string reading = std::to_string(SYS_read) + " ";
  const std::string state = "/proc/" + std::to_string(caller) + "/syscall";
  for (int turn = 0; turn < 10000 && !testhost::ReadFile(state).starts_with(reading); turn++) {
    usleep(1000);
  }
  kill(caller, SIGKILL);
  ASSERT_EQ(waitpid(caller, nullptr, 0), caller);

  const pid_t daemon = Running().Pid();
  for (int turn = 0; turn < 10000 && kill(daemon, 0) == 0; turn++) {
    usleep(1000);
  }
  EXPECT_EQ(testhost::ReadFile("/t/written"),
            "Hostinfo_Daemonize: Couldn't exec /t/missing, error 2.\n"
            "Couldn't write to parent pipe: 32, original error: 2.\n");
}

// ---- The log and what else is the caller's

TEST_F(Daemon, FailuresAreInTheCallersLogToo) {
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  Log("before\n");
  EXPECT_FALSE(Start(0, kMissing));
  Log("behind\n");
  const std::string log = testhost::ReadFile(Log_GetFileName());
  EXPECT_NE(log.find("| before\n"), std::string::npos);
  EXPECT_NE(log.find("| " + CouldNotExec(kMissing, 2)), std::string::npos);
  EXPECT_TRUE(log.ends_with("| behind\n"));
}

// The file's descriptor has the number that the log's had in the caller: all below are kept.
TEST_F(Daemon, NothingIsLoggedIntoThePidFile) {
  ASSERT_TRUE(Log_Init(nullptr, "setup.log.filename", "setup"));
  Log("before\n");
  const int logFd = hostinfotest::LogDescriptor();
  ASSERT_GT(logFd, STDERR_FILENO);
  std::vector<int> kept;
  for (int fd = STDERR_FILENO + 1; fd < logFd; fd++) {
    ASSERT_NE(fcntl(fd, F_GETFD), -1) << fd;
    kept.push_back(fd);
  }
  testhost::WriteFile(kPidPath, "old");
  ASSERT_EQ(link(kPidPath, "/t/pid2"), 0);
  EXPECT_TRUE(HoldsInChild([&] {
    testhost::SystemCalls calls({SYS_write});
    calls.Fail(SYS_write, ENOSPC, {.count = 1, .first = logFd});
    EXPECT_FAILS(false, ENOSPC, Start(0, kSleep, kPidPath, kept));
  }));
  EXPECT_EQ(testhost::ReadFile("/t/pid2"), "");
}

TEST_F(Daemon, WhatTheCallerHasBufferedIsWrittenOnce) {
  OwnedStream stream(fopen("/t/out", "w"));
  fputs("once", stream.get());
  EXPECT_FALSE(Start(kKeepSession, kMissing));
  EXPECT_TRUE(Start(0));
  stream.reset();
  EXPECT_EQ(testhost::ReadFile("/t/out"), "once");
}

class Latin1Daemon : public posixtest::Latin1Host {};

TEST_F(Latin1Daemon, TextsAreConverted) {
  std::filesystem::copy_file(kSleep, "/t/say" LATIN1_NAME);
  const char *const arguments[] = {NAME, "1000", nullptr};
  ASSERT_TRUE(Hostinfo_Daemonize("/t/say" NAME, arguments, 0, "/t/pid" NAME, nullptr, 0));
  const Running daemon("/t/pid" LATIN1_NAME);
  EXPECT_EQ(daemon.File("cmdline"), std::string(LATIN1_NAME "\0001000\0", 10));
}

TEST_F(Latin1Daemon, TextsThatCannotBeConvertedFailBeforeThereIsAChild) {
  const char *const good[] = {"sleeper", nullptr};
  const char *const bad[] = {"sleeper", posixtest::kNotLatin1, nullptr};
  const auto failure = [](const char *path, const char *const *arguments, const char *pidPath) {
    return posixtest::Written(STDERR_FILENO, [&] {
      testhost::FailSystemCall(SYS_clone, EAGAIN);
      EXPECT_FAILS(false, EINVAL, Hostinfo_Daemonize(path, arguments, 0, pidPath, nullptr, 0));
    });
  };
  const std::string path = "Hostinfo_Daemonize: Couldn't convert path [/t/\u20AC] to default encoding.\n";
  EXPECT_EQ(failure(posixtest::kNotLatin1, good, nullptr), path);
  EXPECT_EQ(failure(kSleep, good, posixtest::kNotLatin1), path);
  EXPECT_EQ(failure(kSleep, bad, nullptr),
            "Hostinfo_Daemonize: Couldn't convert arguments to default encoding.\n");
}

TEST_F(Latin1Daemon, MessagesHaveTheProgramsText) {
  const char *const arguments[] = {"sleeper", nullptr};
  EXPECT_EQ(posixtest::Written(STDERR_FILENO,
                               [&] {
                                 EXPECT_FAILS(
                                     false, EACCES,
                                     Hostinfo_Daemonize("/t/" NAME, arguments, 0, nullptr, nullptr, 0));
                               }),
            CouldNotExec("/t/" NAME, EACCES));
}

}  // namespace
