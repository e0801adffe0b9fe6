// File trees as a test host makes, copies and takes them away. What fails ends the program.
#ifndef OST_TESTS_HOST_TREEINT_H
#define OST_TESTS_HOST_TREEINT_H

#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace testhost {

// Ends the process with status 125 and a message that closes with errno's text.
[[noreturn]] void Fail(const std::string &what);
// Fails when a system call's result is -1.
void Check(long result, const std::string &what);

// A descriptor, closed with the object.
class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() { Close(); }
  Descriptor(Descriptor &&other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
  Descriptor(const Descriptor &) = delete;
  Descriptor &operator=(const Descriptor &) = delete;
  Descriptor &operator=(Descriptor &&other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }

  int Get() const { return fd_; }
  void Close() {
    if (fd_ >= 0) {
      close(fd_);
    }
    fd_ = -1;
  }

 private:
  int fd_;
};

Descriptor OpenDirectory(int parent, const std::string &path);

// The names in a directory, sorted, without "." and "..".
std::vector<std::string> Names(int directory);

// Makes a directory and those above it. A directory that is there keeps its mode.
void MakeDirectories(const std::string &path, mode_t mode = 0755);
std::string Join(const std::string &directory, const std::string &name);
// The part of a path before its last slash, nothing where there is none.
std::string Parent(const std::string &path);
// Whether `path` lies below `directory`.
bool IsBelow(const std::string &path, const std::string &directory);

void RemoveTree(const std::string &path);

struct TreeCopy {
  // Decides, by its path from the tree's root, whether an entry of directory `from` is copied. May be null.
  std::function<bool(int from, const std::string &name, const std::string &path, const struct stat &info)>
      takes;
  // What belongs to this user and group comes to belong to root.
  uid_t foreignUser = 0;
  gid_t foreignGroup = 0;

  // Copies what is in one directory to another, over what is there, with owners, modes and times. Directories
  // that are there keep theirs.
  void Copy(int from, int to, const std::string &path = "") const;

 private:
  void CopyEntry(int from, int to, const std::string &name, const std::string &path) const;
  void CopyDirectory(int from, int to, const std::string &name, const std::string &path,
                     const struct stat &info) const;
  void CopyAttributes(int to, const std::string &name, const struct stat &info) const;
};

}  // namespace testhost

#endif
