#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <sstream>

#include "rootInt.h"
#include "testhost.h"

namespace testhost {

namespace {

// The one place that is a mount point on every machine and that a host replaces anyway.
constexpr char kStage[] = "/proc";
constexpr char kView[] = "/proc/view";
constexpr char kRemovedList[] = ".removed";

std::string UnescapeMountPoint(const std::string &text) {
  std::string path;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 3 < text.size()) {
      path += static_cast<char>(std::stoi(text.substr(i + 1, 3), nullptr, 8));
      i += 3;
    } else {
      path += text[i];
    }
  }
  return path;
}

// A path as a part of overlayfs' options.
std::string EscapeForOverlay(const std::string &path) {
  std::string text;
  for (const char c : path) {
    if (c == '\\' || c == ':' || c == ',') {
      text += '\\';
    }
    text += c;
  }
  return text;
}

bool IsOrIsBelow(const std::string &path, const std::string &directory) {
  return path == directory || IsBelow(path, directory);
}

void Mount(const char *source, const std::string &target, const char *type, unsigned long flags,
           const char *options = nullptr) {
  Check(mount(source, target.c_str(), type, flags, options), "cannot mount " + target);
}

// A directory with the owner and mode of another, which an overlay takes from its upper layer.
void MakeLike(const std::string &path, const std::string &model) {
  struct stat info;
  Check(stat(model.c_str(), &info), "cannot find " + model);
  MakeDirectories(path, info.st_mode & 07777);
  Check(chown(path.c_str(), info.st_uid, info.st_gid), "cannot give away " + path);
}

bool IsWhiteout(const struct stat &info) {
  return S_ISCHR(info.st_mode) && info.st_rdev == 0;
}

bool IsOpaque(int parent, const std::string &name) {
  const Descriptor directory = OpenDirectory(parent, name);
  char value = 0;
  return fgetxattr(directory.Get(), "trusted.overlay.opaque", &value, 1) == 1 && value == 'y';
}

bool HaveSameAttributes(const struct stat &a, const struct stat &b) {
  return a.st_mode == b.st_mode && a.st_uid == b.st_uid && a.st_gid == b.st_gid;
}

}  // namespace

Root::Root() : fileSystems_(RealFileSystems()), realRoot_(OpenDirectory(AT_FDCWD, "/")), stage_(-1) {
  Check(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "cannot make the mounts private");
  Mount("testhost", kStage, "tmpfs", 0, "mode=0755");
  Check(mkdir(kView, 0755), "cannot make the root's directory");
}

// Every mounted file system but those that are no place for files. /proc and /sys stand for all below them,
// and a host in a host makes its own directory anew.
std::vector<Root::FileSystem> Root::RealFileSystems() {
  std::vector<FileSystem> found = {{"", false, ""}};
  std::ifstream mounts("/proc/self/mountinfo");
  std::string line;
  while (std::getline(mounts, line)) {
    std::istringstream fields(line);
    std::string skipped, path, type;
    fields >> skipped >> skipped >> skipped >> skipped >> path;
    std::istringstream(line.substr(line.find(" - ") + 3)) >> type;
    path = UnescapeMountPoint(path);
    const bool isKnown =
        std::any_of(found.begin(), found.end(), [&](const FileSystem &each) { return each.path == path; });
    struct stat info;
    if (path == "/" || isKnown || IsOrIsBelow(path, "/proc") || IsOrIsBelow(path, "/sys") ||
        IsOrIsBelow(path, kOwnDirectory) || stat(path.c_str(), &info) != 0) {
      continue;
    }
    if (S_ISDIR(info.st_mode) || S_ISREG(info.st_mode)) {
      found.push_back({path, S_ISREG(info.st_mode), type});
    }
  }
  return found;
}

std::string Root::LayerPath(size_t index, const char *name) const {
  return std::string(kStage) + "/" + std::to_string(index) + "/" + name;
}

void Root::MountOne(size_t index, Layer layer) const {
  const FileSystem &fileSystem = fileSystems_[index];
  const std::string source = fileSystem.path.empty() ? "/" : fileSystem.path;
  const std::string target = kView + fileSystem.path;
  if (fileSystem.type == "devpts") {
    Mount(source.c_str(), target, nullptr, MS_BIND);
    return;
  }
  // Memory that processes share is not to be shared with those outside.
  if (fileSystem.path == "/dev/shm") {
    Mount("testhost", target, "tmpfs", 0, "mode=1777");
    return;
  }
  // A file that is a mount of its own can't be replaced, but its copy can.
  if (fileSystem.isRegularFile) {
    if (layer == Layer::kSetUp) {
      WriteFile(target, ReadFile(source));
    }
    return;
  }
  const char *const upper = layer == Layer::kSetUp ? "setup" : "changes";
  const char *const work = layer == Layer::kSetUp ? "setup.work" : "changes.work";
  MakeLike(LayerPath(index, upper), source);
  MakeDirectories(LayerPath(index, work));
  std::string options = "lowerdir=";
  if (layer == Layer::kChanges) {
    options += LayerPath(index, "setup") + ":";
  }
  options += EscapeForOverlay(source) + ",upperdir=" + LayerPath(index, upper) +
             ",workdir=" + LayerPath(index, work);
  if (mount("testhost", target.c_str(), "overlay", 0, options.c_str()) == 0) {
    return;
  }
  if (fileSystem.path.empty()) {
    Fail("cannot lay a file system over the root");
  }
  // Some file systems can't be overlaid; what lies there can be read, at least.
  Mount(source.c_str(), target, nullptr, MS_BIND);
  Mount(nullptr, target, nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY);
}

void Root::MountAll(Layer layer) const {
  for (size_t i = 0; i < fileSystems_.size(); ++i) {
    MountOne(i, layer);
  }
}

void Root::BeginSetUp() {
  MountAll(Layer::kSetUp);
  Check(chroot(kView), "cannot change the root");
  Check(chdir("/"), "cannot change the directory");
}

void Root::EndSetUp() {
  Check(fchdir(realRoot_.Get()), "cannot change the directory");
  Check(chroot("."), "cannot change the root");
  Check(umount2(kView, MNT_DETACH), "cannot unmount the root");
}

// The file system that a path lies on: the one with the longest mount point above it.
size_t Root::IndexOf(const std::string &path) const {
  size_t best = 0;
  for (size_t i = 0; i < fileSystems_.size(); ++i) {
    const std::string &mountPoint = fileSystems_[i].path;
    if (IsBelow(path, mountPoint) && mountPoint.size() > fileSystems_[best].path.size()) {
      best = i;
    }
  }
  return best;
}

void Root::Hide(const std::string &path) const {
  const size_t index = IndexOf(path);
  const std::string file = LayerPath(index, "setup") + path.substr(fileSystems_[index].path.size());
  if (mknod(file.c_str(), S_IFCHR, 0) != 0 && errno != EEXIST) {
    Fail("cannot hide " + path);
  }
}

void Root::Enter() {
  MountAll(Layer::kChanges);
  Mount("/sys", std::string(kView) + "/sys", nullptr, MS_BIND | MS_REC);
  stage_ = OpenDirectory(AT_FDCWD, kStage);
  Check(chdir(kView), "cannot change the directory");
  Check(syscall(SYS_pivot_root, ".", "."), "cannot change the root");
  Check(umount2(".", MNT_DETACH), "cannot leave the real root");
  Check(chdir("/"), "cannot change the directory");
}

// What is left in a changed directory, when nothing in it is, has been looked into only.
bool Root::IsUntouchedDirectory(size_t index, const std::string &path, const struct stat &info) const {
  const std::string inSetUp = std::to_string(index) + "/setup" + path;
  const std::string inReal = "." + fileSystems_[index].path + path;
  struct stat before;
  return (fstatat(stage_.Get(), inSetUp.c_str(), &before, AT_SYMLINK_NOFOLLOW) == 0 ||
          fstatat(realRoot_.Get(), inReal.c_str(), &before, AT_SYMLINK_NOFOLLOW) == 0) &&
         HaveSameAttributes(before, info);
}

void Root::KeepFileSystem(size_t index, int directory, std::string *removed) const {
  const std::string &mountPoint = fileSystems_[index].path;
  TreeCopy copy;
  copy.takes = [&](int from, const std::string &name, const std::string &path, const struct stat &info) {
    const std::string whole = mountPoint + path;
    if (whole == kOwnDirectory) {
      return false;
    }
    if (IsWhiteout(info) || (S_ISDIR(info.st_mode) && IsOpaque(from, name))) {
      *removed += whole + "\n";
    }
    if (S_ISDIR(info.st_mode)) {
      return !Names(OpenDirectory(from, name).Get()).empty() || !IsUntouchedDirectory(index, path, info);
    }
    return !IsWhiteout(info);
  };
  const Descriptor changes = OpenDirectory(stage_.Get(), std::to_string(index) + "/changes");
  if (mountPoint.empty()) {
    copy.Copy(changes.Get(), directory);
    return;
  }
  if (Names(changes.Get()).empty()) {
    return;
  }
  Descriptor target(dup(directory));
  std::istringstream parts(mountPoint.substr(1));
  for (std::string part; std::getline(parts, part, '/');) {
    mkdirat(target.Get(), part.c_str(), 0755);
    target = OpenDirectory(target.Get(), part);
  }
  copy.Copy(changes.Get(), target.Get());
}

void Root::Keep(int directory) const {
  std::string removed;
  for (size_t i = 0; i < fileSystems_.size(); ++i) {
    struct stat info;
    const std::string changes = std::to_string(i) + "/changes";
    if (fstatat(stage_.Get(), changes.c_str(), &info, 0) == 0) {
      KeepFileSystem(i, directory, &removed);
    }
  }
  if (removed.empty()) {
    return;
  }
  const Descriptor list(openat(directory, kRemovedList, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  Check(list.Get(), "cannot write the list of what was removed");
  Check(write(list.Get(), removed.data(), removed.size()), "cannot write the list of what was removed");
}

}  // namespace testhost
