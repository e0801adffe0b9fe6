#include "testhost.h"

#include <fcntl.h>
#include <glob.h>
#include <grp.h>
#include <linux/capability.h>
#include <poll.h>
#include <pwd.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

#include "rootInt.h"
#include "unameInt.h"

namespace testhost {

namespace {

constexpr char kRecorded[] = "/testhost/bin";
constexpr char kCalls[] = "/testhost/calls";
constexpr char kBuilt[] = "/testhost/programs";
constexpr char kUnameLibrary[] = "/testhost/lib/uname.so";
constexpr char kSystemPath[] = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

struct Person {
  uid_t user;
  gid_t group;
  std::string name, home, shell;
};

std::string HostPath() {
  return std::string(kRecorded) + ":" + kBuilt + ":" + kSystemPath;
}

std::vector<std::string> Split(const std::string &text, char delimiter) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, delimiter);) {
    parts.push_back(part);
  }
  return parts;
}

// What is below /proc is kept elsewhere until the host has a /proc.
std::string SetUpPath(const std::string &path) {
  return IsBelow(path, "/proc") ? "/testhost/files" + path : path;
}

void PutFile(const std::string &path, const std::string &content, mode_t mode) {
  struct stat info;
  if (lstat(path.c_str(), &info) == 0 && !S_ISREG(info.st_mode)) {
    RemoveTree(path);
  }
  WriteFile(path, content, mode);
}

void PutDirectory(const std::string &path, mode_t mode) {
  MakeDirectories(path, mode);
  Check(chmod(path.c_str(), mode), "cannot set the mode of " + path);
}

void PutSymLink(const std::string &path, const std::string &target) {
  RemoveTree(path);
  MakeDirectories(Parent(path));
  Check(symlink(target.c_str(), path.c_str()), "cannot make the link " + path);
}

void LayOver(const Descriptor &directory) {
  struct stat info;
  Check(fstat(directory.Get(), &info), "cannot look at a directory to lay over the root");
  TreeCopy copy;
  // Who wrote the files down in the real host is nobody in this one.
  copy.foreignUser = info.st_uid;
  copy.foreignGroup = info.st_gid;
  copy.takes = [](int, const std::string &, const std::string &path, const struct stat &) {
    return path != "/proc";
  };
  copy.Copy(directory.Get(), OpenDirectory(AT_FDCWD, "/").Get());
  copy.takes = nullptr;
  if (faccessat(directory.Get(), "proc", F_OK, 0) == 0) {
    copy.Copy(OpenDirectory(directory.Get(), "proc").Get(), OpenDirectory(AT_FDCWD, kProcFiles).Get());
  }
}

void MakeOwnDirectories() {
  RemoveTree(kOwnDirectory);
  for (const char *directory : {kRecorded, kCalls, kBuilt, kProcFiles}) {
    MakeDirectories(directory);
  }
}

// Every host starts without what others have left in /tmp, and with the places that the window system needs.
void CleanTmp() {
  MakeDirectories("/tmp", 01777);
  for (const char *pattern : {"/tmp/ostrel-*", "/tmp/.X*", "/tmp/.ICE-unix"}) {
    glob_t found;
    if (glob(pattern, 0, nullptr, &found) == 0) {
      for (size_t i = 0; i < found.gl_pathc; ++i) {
        RemoveTree(found.gl_pathv[i]);
      }
      globfree(&found);
    }
  }
  MakeDirectories("/tmp/.X11-unix", 01777);
  MakeDirectories("/tmp/.ICE-unix", 01777);
}

void PutUname(const std::string &library, const std::optional<std::string> &system,
              const std::optional<std::string> &release, const std::optional<std::string> &version,
              const std::optional<std::string> &machine) {
  std::string answer;
  const auto add = [&](char which, const std::optional<std::string> &text) {
    if (text) {
      answer += which + *text + '\0';
    }
  };
  add('s', system);
  add('r', release);
  add('v', version);
  add('m', machine);
  if (answer.empty()) {
    return;
  }
  PutFile(testhost_uname_file, answer, 0644);
  PutFile(kUnameLibrary, library, 0755);
  PutFile("/etc/ld.so.preload", ReadFile("/etc/ld.so.preload") + kUnameLibrary + "\n", 0644);
}

// One call is the number of its arguments and the arguments, each ended by NUL.
void PutProgram(const std::string &name, const std::string &body) {
  const std::string calls = Join(kCalls, name);
  PutFile(calls, "", 0666);
  PutFile(
      Join(kRecorded, name),
      "#!/bin/sh\n{ /usr/bin/flock 9 && printf '%s\\0' \"$#\" \"$@\" >&9; } 9>>" + calls + "\n" + body + "\n",
      0755);
}

void TakeProgramAway(const std::string &name) {
  for (const std::string &directory : Split(TESTHOST_PROGRAM_DIR ":" + std::string(kSystemPath), ':')) {
    RemoveTree(Join(directory, name));
  }
}

void AppendLine(const std::string &path, const std::string &line) {
  std::ofstream(path, std::ios::app) << line << '\n';
}

std::optional<Person> FindPerson(uid_t user) {
  const std::unique_ptr<FILE, int (*)(FILE *)> file(fopen("/etc/passwd", "re"), fclose);
  while (const passwd *entry = file ? fgetpwent(file.get()) : nullptr) {
    if (entry->pw_uid == user) {
      return Person{entry->pw_uid, entry->pw_gid, entry->pw_name, entry->pw_dir, entry->pw_shell};
    }
  }
  return std::nullopt;
}

Person FindOrMakePerson(uid_t user) {
  if (std::optional<Person> person = FindPerson(user)) {
    return *std::move(person);
  }
  if (user == 0) {
    return {0, 0, "root", "/root", "/bin/sh"};
  }

  const std::string name = "user" + std::to_string(user);
  Person person = {user, user, name, "/home/" + name, "/bin/sh"};
  const std::string ids = std::to_string(user);
  AppendLine("/etc/passwd", name + ":*:" + ids + ":" + ids + "::" + person.home + ":" + person.shell);
  AppendLine("/etc/group", name + ":x:" + ids + ":");
  PutDirectory(person.home, 0755);
  Check(chown(person.home.c_str(), user, user), "cannot give away " + person.home);
  return person;
}

// sudo has a search path of its own, which is to be the host's.
void PutSudoPath() {
  if (access("/etc/sudoers.d", F_OK) == 0) {
    PutFile("/etc/sudoers.d/testhost", "Defaults secure_path=\"" + HostPath() + "\"\n", 0440);
  }
}

void SetEnvironment(const Person &person) {
  // What belongs to whoever started the test is not there for the host.
  for (const char *name : {"TMPDIR", "DISPLAY", "WAYLAND_DISPLAY", "XAUTHORITY", "DBUS_SESSION_BUS_ADDRESS",
                           "XDG_RUNTIME_DIR", "XDG_CURRENT_DESKTOP", "SUDO_COMMAND", "SUDO_USER", "SUDO_UID",
                           "SUDO_GID", "GNOME_DESKTOP_SESSION_ID", "KDE_FULL_SESSION", "THROUGHXDG"}) {
    unsetenv(name);
  }
  setenv("PATH", HostPath().c_str(), 1);
  setenv("HOME", person.home.c_str(), 1);
  setenv("USER", person.name.c_str(), 1);
  setenv("LOGNAME", person.name.c_str(), 1);
  setenv("SHELL", person.shell.c_str(), 1);
}

void BecomePerson(const Person &person) {
  // The kernel's modules are the one thing that no namespace keeps apart.
  Check(prctl(PR_CAPBSET_DROP, CAP_SYS_MODULE), "cannot give up the right to load modules");
  if (person.user == 0) {
    return;
  }
  Check(setgroups(0, nullptr), "cannot leave the supplementary groups");
  Check(setgid(person.group), "cannot take the group");
  Check(setuid(person.user), "cannot take the user");
  Check(prctl(PR_SET_DUMPABLE, 1), "cannot stay traceable");
}

// Gives the terminal to a process group, if the caller's group has it.
void GiveTerminal(pid_t group) {
  const sighandler_t before = signal(SIGTTOU, SIG_IGN);
  tcsetpgrp(STDIN_FILENO, group);
  signal(SIGTTOU, before);
}

bool HasTerminal() {
  return isatty(STDIN_FILENO) != 0 && tcgetpgrp(STDIN_FILENO) == getpgrp();
}

// A group of its own, which has a number in the host.
void StartGroup(bool hasTerminal) {
  Check(setpgid(0, 0), "cannot start a process group");
  if (hasTerminal) {
    GiveTerminal(getpgrp());
  }
}

// The directory of the real host that the process came from, if the host has it too.
void GoTo(const std::string &directory) {
  if (chdir(directory.c_str()) != 0) {
    Check(chdir("/"), "cannot change the directory");
  }
}

int WaitFor(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) {
      Fail("cannot wait for a child");
    }
  }
  return status;
}

[[noreturn]] void EndWithStatus(int status) {
  if (WIFSIGNALED(status)) {
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_CORE, &none);
    signal(WTERMSIG(status), SIG_DFL);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, WTERMSIG(status));
    sigprocmask(SIG_UNBLOCK, &set, nullptr);
    raise(WTERMSIG(status));
    _exit(128 + WTERMSIG(status));
  }
  _exit(WEXITSTATUS(status));
}

// Outside the host: waits for its first process and ends as the test ended.
[[noreturn]] void EndAsHost(pid_t init, int statusPipe, bool hasTerminal) {
  int status = WaitFor(init);
  int testStatus = 0;
  if (read(statusPipe, &testStatus, sizeof testStatus) == sizeof testStatus) {
    status = testStatus;
  }
  if (hasTerminal) {
    GiveTerminal(getpgrp());
  }
  EndWithStatus(status);
}

// The host's first process: takes over orphans until the test has ended.
int ReapUntil(pid_t test) {
  int status = 0;
  for (;;) {
    const pid_t ended = waitpid(-1, &status, 0);
    if (ended == test) {
      return status;
    }
    if (ended < 0 && errno != EINTR) {
      Fail("cannot wait for the test");
    }
  }
}

void EndOthers() {
  kill(-1, SIGKILL);
  while (waitpid(-1, nullptr, 0) > 0 || errno == EINTR) {
  }
}

// Makes the calling process end with its parent, whose end of the status pipe tells if it has ended already.
void EndWithParent(int statusPipe) {
  Check(prctl(PR_SET_PDEATHSIG, SIGKILL), "cannot bind the host to its parent");
  pollfd parent = {statusPipe, 0, 0};
  if (poll(&parent, 1, 0) > 0 && (parent.revents & POLLERR) != 0) {
    _exit(1);
  }
}

// The process is copied, which a thread would not outlive.
void CheckThreads() {
  if (Names(OpenDirectory(AT_FDCWD, "/proc/self/task").Get()).size() > 1) {
    errno = EBUSY;
    Fail("a process with more than one thread cannot enter a host");
  }
}

// A root on a root can be laid over a third time only by a process outside.
void CheckFirstEntry() {
  static bool hasEntered = false;
  if (hasEntered) {
    errno = EALREADY;
    Fail("a process can enter one host only; run each test by ctest or with --gtest_filter");
  }
  hasEntered = true;
}

void BindBuiltPrograms() {
  if (access(TESTHOST_PROGRAM_DIR, F_OK) == 0) {
    Check(mount(TESTHOST_PROGRAM_DIR, kBuilt, nullptr, MS_BIND, nullptr), "cannot show the built programs");
  }
}

}  // namespace

Host &Host::File(const std::string &path, const std::string &content, mode_t mode) {
  entries_.push_back({Entry::Kind::kFile, path, content, mode});
  return *this;
}

Host &Host::Directory(const std::string &path, mode_t mode) {
  entries_.push_back({Entry::Kind::kDirectory, path, "", mode});
  return *this;
}

Host &Host::SymLink(const std::string &path, const std::string &target) {
  entries_.push_back({Entry::Kind::kSymLink, path, target, 0});
  return *this;
}

Host &Host::Remove(const std::string &path) {
  entries_.push_back({Entry::Kind::kRemove, path, "", 0});
  return *this;
}

Host &Host::Overlay(const std::string &directory) {
  entries_.push_back({Entry::Kind::kOverlay, "/", directory, 0});
  return *this;
}

Host &Host::System(const std::string &name) {
  system_ = name;
  return *this;
}

Host &Host::Release(const std::string &release) {
  release_ = release;
  return *this;
}

Host &Host::Version(const std::string &version) {
  version_ = version;
  return *this;
}

Host &Host::Machine(const std::string &machine) {
  machine_ = machine;
  return *this;
}

Host &Host::User(uid_t uid) {
  user_ = uid;
  return *this;
}

Host &Host::Program(const std::string &name, const std::string &body) {
  programs_[name] = body;
  return *this;
}

Host &Host::NoProgram(const std::string &name) {
  missingPrograms_.push_back(name);
  return *this;
}

Host &Host::Keep(const std::string &directory) {
  kept_ = directory;
  return *this;
}

void Host::PutEntries(const std::vector<Descriptor> &overlays) const {
  size_t overlay = 0;
  for (const Entry &entry : entries_) {
    const std::string path = SetUpPath(entry.path);
    switch (entry.kind) {
      case Entry::Kind::kFile:
        PutFile(path, entry.content, entry.mode);
        break;
      case Entry::Kind::kDirectory:
        PutDirectory(path, entry.mode);
        break;
      case Entry::Kind::kSymLink:
        PutSymLink(path, entry.content);
        break;
      case Entry::Kind::kRemove:
        RemoveTree(path);
        MakeDirectories(path == entry.path ? "" : Parent(path));
        break;
      case Entry::Kind::kOverlay:
        LayOver(overlays[overlay++]);
        break;
    }
  }
}

std::set<std::string> Host::RemovedBelowProc() const {
  std::set<std::string> removed;
  for (const Entry &entry : entries_) {
    if (entry.kind == Entry::Kind::kRemove && IsBelow(entry.path, "/proc")) {
      removed.insert(entry.path);
    }
  }
  return removed;
}

void Host::Enter() {
  CheckFirstEntry();
  CheckThreads();
  fflush(nullptr);
  std::vector<Descriptor> overlays;
  for (const Entry &entry : entries_) {
    if (entry.kind == Entry::Kind::kOverlay) {
      overlays.push_back(OpenDirectory(AT_FDCWD, entry.content));
    }
  }
  const Descriptor kept(kept_ ? OpenDirectory(AT_FDCWD, *kept_) : Descriptor(-1));
  const std::string unameLibrary = ReadFile(TESTHOST_UNAME_LIBRARY);
  const std::string directory = std::filesystem::current_path();
  const bool hasTerminal = HasTerminal();
  int statusPipe[2];
  Check(pipe2(statusPipe, O_CLOEXEC), "cannot make a pipe");
  signal(SIGCHLD, SIG_DFL);

  Check(unshare(CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWIPC | CLONE_NEWUTS),
        "cannot make a host (this needs root)");
  const pid_t init = fork();
  Check(init, "cannot start the host");
  if (init > 0) {
    close(statusPipe[1]);
    EndAsHost(init, statusPipe[0], hasTerminal);
  }
  close(statusPipe[0]);
  EndWithParent(statusPipe[1]);

  Root root;
  root.BeginSetUp();
  MakeOwnDirectories();
  CleanTmp();
  PutEntries(overlays);
  for (const auto &[name, body] : programs_) {
    PutProgram(name, body);
  }
  for (const std::string &name : missingPrograms_) {
    TakeProgramAway(name);
  }
  PutUname(unameLibrary, system_, release_, version_, machine_);
  PutSudoPath();
  const Person person = FindOrMakePerson(user_.value_or(0));
  root.EndSetUp();
  root.Hide("/tmp/ostrel-root");
  root.Hide("/tmp/ostrel-" + person.name);
  root.Enter();
  BindBuiltPrograms();
  MountProc(RemovedBelowProc());

  const pid_t test = fork();
  Check(test, "cannot start the test");
  if (test == 0) {
    close(statusPipe[1]);
    StartGroup(hasTerminal);
    GoTo(directory);
    umask(022);
    SetEnvironment(person);
    BecomePerson(person);
    return;
  }
  const int status = ReapUntil(test);
  EndOthers();
  if (kept.Get() >= 0) {
    root.Keep(kept.Get());
  }
  Check(write(statusPipe[1], &status, sizeof status), "cannot tell how the test ended");
  _exit(0);
}

std::vector<Call> Calls(const std::string &name) {
  const std::vector<std::string> fields = Split(ReadFile(Join(kCalls, name)), '\0');
  std::vector<Call> calls;
  for (size_t i = 0; i < fields.size();) {
    const size_t count = std::stoul(fields[i++]);
    const auto first = fields.begin() + static_cast<ptrdiff_t>(i);
    calls.emplace_back(first, first + static_cast<ptrdiff_t>(count));
    i += count;
  }
  return calls;
}

std::string ReadFile(const std::string &path) {
  const std::ifstream stream(path, std::ios::binary);
  std::ostringstream content;
  content << stream.rdbuf();  // ends quietly where reading fails
  return content.str();
}

void WriteFile(const std::string &path, const std::string &content, mode_t mode) {
  MakeDirectories(Parent(path));
  std::ofstream stream(path, std::ios::binary | std::ios::trunc);
  stream.write(content.data(), static_cast<std::streamsize>(content.size()));
  stream.close();
  Check(stream ? 0 : -1, "cannot write " + path);
  Check(chmod(path.c_str(), mode), "cannot set the mode of " + path);
}

int Run(const std::string &command, std::string *output) {
  // A file, since a pipe would wait for whatever the command leaves running.
  Descriptor file(output ? memfd_create("output", MFD_CLOEXEC) : -1);
  fflush(nullptr);
  const pid_t child = fork();
  Check(child, "cannot run " + command);
  if (child == 0) {
    if (output) {
      dup2(file.Get(), STDOUT_FILENO);
      dup2(file.Get(), STDERR_FILENO);
    }
    execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    _exit(127);
  }
  const int status = WaitFor(child);
  if (output) {
    *output = ReadFile("/proc/self/fd/" + std::to_string(file.Get()));
  }
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace testhost
