#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>

#include "rootInt.h"
#include "testhost.h"

namespace testhost {

namespace {

constexpr char kShown[] = "/proc";
// The kernel's own /proc, where a made one stands in front of it.
constexpr char kKernels[] = "/testhost/proc";
// Processes that start later are found through links that are there already. A host's process ids start at 1.
constexpr int kHighestPid = 32768;

bool Exists(const std::string &path) {
  struct stat info;
  return lstat(path.c_str(), &info) == 0;
}

bool IsDirectory(const std::string &path) {
  struct stat info;
  return lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool IsRegularFile(const std::string &path) {
  struct stat info;
  return lstat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

std::vector<std::string> NamesIn(const std::string &path) {
  return Names(OpenDirectory(AT_FDCWD, path).Get());
}

// Binds what the description gives over the kernel's files of the same names.
//
// Returns whether that is all of it.
bool BindFiles(const std::string &files, const std::string &kernels) {
  bool isAll = true;
  for (const std::string &name : NamesIn(files)) {
    const std::string file = Join(files, name);
    const std::string kernelsFile = Join(kernels, name);
    if (IsDirectory(file) && IsDirectory(kernelsFile)) {
      isAll = BindFiles(file, kernelsFile) && isAll;
    } else if (IsRegularFile(file) && IsRegularFile(kernelsFile)) {
      Check(mount(file.c_str(), kernelsFile.c_str(), nullptr, MS_BIND, nullptr),
            "cannot put a file over " + kernelsFile);
    } else {
      isAll = false;
    }
  }
  return isAll;
}

bool IsNumber(const std::string &text) {
  return std::all_of(text.begin(), text.end(), isdigit);
}

void MakeDirectory(const std::string &path, const std::set<std::string> &removed);

// Shows what the kernel has at a path, unless the description has something else there.
void ShowKernels(const std::string &path, const std::set<std::string> &removed) {
  const std::string shown = kShown + path;
  const std::string kernels = kKernels + path;
  const std::string file = kProcFiles + path;
  if (removed.count(shown) != 0) {
    return;
  }
  if (IsDirectory(file) && IsDirectory(kernels)) {
    Check(mkdir(shown.c_str(), 0555), "cannot make " + shown);
    MakeDirectory(path, removed);
    return;
  }
  const bool isBound = IsRegularFile(file) && IsRegularFile(kernels);
  if (isBound || !Exists(file)) {
    Check(symlink(kernels.c_str(), shown.c_str()), "cannot link " + kernels);
  }
}

// Fills a directory with what the kernel has there and what the description adds.
void MakeDirectory(const std::string &path, const std::set<std::string> &removed) {
  for (const std::string &name : NamesIn(kKernels + path)) {
    if (!path.empty() || !IsNumber(name)) {
      ShowKernels(Join(path, name), removed);
    }
  }
  const std::string shown = kShown + path;
  TreeCopy copy;
  copy.takes = [&](int, const std::string &, const std::string &added, const struct stat &) {
    return !Exists(shown + added);
  };
  copy.Copy(OpenDirectory(AT_FDCWD, kProcFiles + path).Get(), OpenDirectory(AT_FDCWD, shown).Get());
}

void LinkProcesses(const std::set<std::string> &removed) {
  const Descriptor shown = OpenDirectory(AT_FDCWD, kShown);
  for (int pid = 1; pid <= kHighestPid; ++pid) {
    const std::string name = std::to_string(pid);
    if (removed.count(Join(kShown, name)) == 0) {
      // Fails where the description has put something of its own.
      (void)symlinkat(Join(kKernels, name).c_str(), shown.Get(), name.c_str());
    }
  }
}

void MountKernels(const char *path) {
  Check(mount("proc", path, "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr),
        std::string("cannot mount ") + path);
}

}  // namespace

void MountProc(const std::set<std::string> &removed) {
  MountKernels(kShown);
  if (BindFiles(kProcFiles, kShown) && removed.empty()) {
    return;
  }
  MakeDirectories(kKernels, 0555);
  Check(mount(kShown, kKernels, nullptr, MS_BIND | MS_REC, nullptr), "cannot move /proc");
  Check(mount("testhost", kShown, "tmpfs", 0, "mode=0555"), "cannot mount a made /proc");
  MakeDirectory("", removed);
  LinkProcesses(removed);
}

}  // namespace testhost
