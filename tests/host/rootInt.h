// The root of a test host: an overlay on every real file system, and a /proc of its own.
#ifndef OST_TESTS_HOST_ROOTINT_H
#define OST_TESTS_HOST_ROOTINT_H

#include <set>
#include <string>
#include <vector>

#include "treeInt.h"

namespace testhost {

// Where the host keeps what it needs itself, as seen in the host.
constexpr char kOwnDirectory[] = "/testhost";
// What the description puts below /proc, until /proc is there.
constexpr char kProcFiles[] = "/testhost/files/proc";

// Each real file system is laid under two layers, so that what the description says and what happens in the
// host later can be told apart.
class Root {
 public:
  // Takes a mount namespace of the process's own, in which the layers lie in memory.
  Root();

  // Makes the root of the description the process's root, and leaves it again.
  void BeginSetUp();
  void EndSetUp();
  // After EndSetUp: hides what the real system may come to have at a path, unless the description has it.
  void Hide(const std::string &path) const;
  // Moves the process's mount namespace into the finished root.
  void Enter();

  // Copies what was changed after Enter to a directory, with a list of what was removed.
  void Keep(int directory) const;

 private:
  enum class Layer { kSetUp, kChanges };
  struct FileSystem {
    std::string path;  // "" for the root
    bool isRegularFile;
    std::string type;
  };

  static std::vector<FileSystem> RealFileSystems();
  void MountAll(Layer layer) const;
  void MountOne(size_t index, Layer layer) const;
  size_t IndexOf(const std::string &path) const;
  std::string LayerPath(size_t index, const char *name) const;
  bool IsUntouchedDirectory(size_t index, const std::string &path, const struct stat &info) const;
  void KeepFileSystem(size_t index, int directory, std::string *removed) const;

  std::vector<FileSystem> fileSystems_;
  Descriptor realRoot_;
  Descriptor stage_;
};

// Mounts /proc, for the process ids of the calling process, with the files of kProcFiles in front and without
// the removed ones.
void MountProc(const std::set<std::string> &removed);

}  // namespace testhost

#endif
