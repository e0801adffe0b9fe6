#include <dirent.h>
#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>

#include "treeInt.h"

namespace testhost {

namespace {

constexpr int kStatusNoHost = 125;

void CopySymLink(int from, int to, const std::string &name) {
  char target[4096];
  const ssize_t length = readlinkat(from, name.c_str(), target, sizeof target - 1);
  Check(length, "cannot read the link " + name);
  target[length] = '\0';
  Check(symlinkat(target, to, name.c_str()), "cannot make the link " + name);
}

void CopyFile(int from, int to, const std::string &name, const struct stat &info) {
  const Descriptor source(openat(from, name.c_str(), O_RDONLY | O_CLOEXEC));
  Check(source.Get(), "cannot read " + name);
  const Descriptor copy(openat(to, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  Check(copy.Get(), "cannot make " + name);
  off_t left = info.st_size;
  while (left > 0) {
    const ssize_t count = sendfile(copy.Get(), source.Get(), nullptr, static_cast<size_t>(left));
    Check(count, "cannot copy " + name);
    if (count == 0) {
      break;
    }
    left -= count;
  }
}

bool IsDirectory(int parent, const std::string &name) {
  struct stat info;
  return fstatat(parent, name.c_str(), &info, 0) == 0 && S_ISDIR(info.st_mode);
}

void RemoveOther(int directory, const std::string &name) {
  if (unlinkat(directory, name.c_str(), 0) == 0 || errno == ENOENT) {
    return;
  }
  Fail("cannot replace " + name);
}

}  // namespace

void Fail(const std::string &what) {
  const char *const reason = strerror(errno);
  fflush(stdout);
  fprintf(stderr, "testhost: %s: %s\n", what.c_str(), reason);
  _exit(kStatusNoHost);
}

void Check(long result, const std::string &what) {
  if (result == -1) {
    Fail(what);
  }
}

Descriptor OpenDirectory(int parent, const std::string &path) {
  Descriptor directory(openat(parent, path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  Check(directory.Get(), "cannot open the directory " + path);
  return directory;
}

std::vector<std::string> Names(int directory) {
  const int copy = openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  Check(copy, "cannot read a directory");
  const std::unique_ptr<DIR, int (*)(DIR *)> stream(fdopendir(copy), closedir);
  std::vector<std::string> names;
  while (const dirent *entry = readdir(stream.get())) {  // NOLINT(concurrency-mt-unsafe)
    const std::string name = entry->d_name;
    if (name != "." && name != "..") {
      names.push_back(name);
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

void MakeDirectories(const std::string &path, mode_t mode) {
  struct stat info;
  if (path.empty() || (stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode))) {
    return;
  }
  MakeDirectories(Parent(path));
  Check(mkdir(path.c_str(), 0700), "cannot make the directory " + path);
  Check(chmod(path.c_str(), mode), "cannot set the mode of " + path);
}

std::string Join(const std::string &directory, const std::string &name) {
  return directory + "/" + name;
}

std::string Parent(const std::string &path) {
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? "" : path.substr(0, slash);
}

bool IsBelow(const std::string &path, const std::string &directory) {
  return path.compare(0, directory.size() + 1, directory + "/") == 0;
}

void RemoveTree(const std::string &path) {
  std::error_code error;
  std::filesystem::remove_all(path, error);
  if (error) {
    errno = error.value();
    Fail("cannot take away " + path);
  }
}

void TreeCopy::Copy(int from, int to, const std::string &path) const {
  for (const std::string &name : Names(from)) {
    CopyEntry(from, to, name, Join(path, name));
  }
}

void TreeCopy::CopyEntry(int from, int to, const std::string &name, const std::string &path) const {
  struct stat info;
  Check(fstatat(from, name.c_str(), &info, AT_SYMLINK_NOFOLLOW), "cannot find " + path);
  if (takes && !takes(from, name, path, info)) {
    return;
  }
  if (S_ISDIR(info.st_mode)) {
    CopyDirectory(from, to, name, path, info);
    return;
  }
  RemoveOther(to, name);
  if (S_ISLNK(info.st_mode)) {
    CopySymLink(from, to, name);
  } else if (S_ISREG(info.st_mode)) {
    CopyFile(from, to, name, info);
  } else {
    Check(mknodat(to, name.c_str(), info.st_mode, info.st_rdev), "cannot make " + path);
  }
  CopyAttributes(to, name, info);
}

void TreeCopy::CopyDirectory(int from, int to, const std::string &name, const std::string &path,
                             const struct stat &info) const {
  const bool isNew = !IsDirectory(to, name);
  if (isNew) {
    RemoveOther(to, name);
    Check(mkdirat(to, name.c_str(), 0700), "cannot make the directory " + path);
  }
  Copy(OpenDirectory(from, name).Get(), OpenDirectory(to, name).Get(), path);
  if (isNew) {
    CopyAttributes(to, name, info);
  }
}

void TreeCopy::CopyAttributes(int to, const std::string &name, const struct stat &info) const {
  const uid_t user = info.st_uid == foreignUser ? 0 : info.st_uid;
  const gid_t group = info.st_gid == foreignGroup ? 0 : info.st_gid;
  Check(fchownat(to, name.c_str(), user, group, AT_SYMLINK_NOFOLLOW), "cannot give away " + name);
  if (!S_ISLNK(info.st_mode)) {
    Check(fchmodat(to, name.c_str(), info.st_mode & 07777, 0), "cannot set the mode of " + name);
  }
  const timespec times[] = {info.st_atim, info.st_mtim};
  Check(utimensat(to, name.c_str(), times, AT_SYMLINK_NOFOLLOW), "cannot set the times of " + name);
}

}  // namespace testhost
