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
    const std::string file = files + "/" + name;
    const std::string kernelsFile = kernels + "/" + name;
    if (IsDirectory(file) && IsDirectory(kernelsFile)) {
      isAll = BindFiles(file, kernelsFile) && isAll;
    } else if (IsRegularFile(file) && IsRegularFile(kernelsFile)) {
      Check(mount(file.c_str(), kernelsFile.c_str(), nullptr, MS_BIND, nullptr),
            "cannot mount " + file + " over " + kernelsFile);
    } else {
      isAll = false;
    }
  }
  return isAll;
}

bool IsNumber(const std::string &text) {
  return std::all_of(text.begin(), text.end(), isdigit);
}

// Shows the kernel's directory with what the description adds to it and takes from it.
void MakeDirectory(const std::string &path, const std::set<std::string> &removed) {
  const std::string shown = kShown + path;
  const std::string kernels = kKernels + path;
  const std::string files = kProcFiles + path;
  if (IsDirectory(kernels)) {
    for (const std::string &name : NamesIn(kernels)) {
      const bool isProcess = path.empty() && IsNumber(name);
      if (removed.count(shown + "/" + name) != 0 || isProcess) {
        continue;
      }
      if (IsDirectory(files + "/" + name)) {
        Check(mkdir((shown + "/" + name).c_str(), 0555), "cannot make " + shown + "/" + name);
        MakeDirectory(path + "/" + name, removed);
      } else if (!Exists(files + "/" + name) || IsRegularFile(kernels + "/" + name)) {
        Check(symlink((kernels + "/" + name).c_str(), (shown + "/" + name).c_str()),
              "cannot link " + kernels + "/" + name);
      }
    }
  }
  TreeCopy copy;
  copy.takes = [&](int, const std::string &, const std::string &added, const struct stat &) {
    return !Exists(shown + added);
  };
  copy.Copy(OpenDirectory(AT_FDCWD, files).Get(), OpenDirectory(AT_FDCWD, shown).Get());
}

void LinkProcesses(const std::set<std::string> &removed) {
  const Descriptor shown = OpenDirectory(AT_FDCWD, kShown);
  for (int pid = 1; pid <= kHighestPid; ++pid) {
    const std::string name = std::to_string(pid);
    if (removed.count(kShown + ("/" + name)) == 0) {
      // Fails where the description has put something of its own.
      (void)symlinkat((kKernels + ("/" + name)).c_str(), shown.Get(), name.c_str());
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
