#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "file.h"
#include "fileInt.h"
#include "log.h"
#include "owned.h"
#include "panicUser.h"
#include "posixPosix.h"
#include "util_misc.h"

namespace {

constexpr char kMountTable[] = "/etc/mtab";
constexpr unsigned kMaxBindMounts = 10;
// A line of the table in any encoding.
constexpr int kMountTexts = 16384;

struct MountEntry {
  std::string device;
  bool isBind;
};

bool IsBindMount(const mntent &entry) {
  return hasmntopt(&entry, "bind") != nullptr || hasmntopt(&entry, "rbind") != nullptr;
}

// What is mounted at a path, if anything is. Where there are several mounts the last covers the others.
std::optional<MountEntry> FindMount(const std::string &mountPoint) {
  std::optional<MountEntry> found;
  const std::unique_ptr<FILE, Releaser<endmntent>> table(Posix_Setmntent(kMountTable, "r"));
  if (table == nullptr) {
    return found;
  }
  const auto texts = std::make_unique<char[]>(kMountTexts);
  while (feof(table.get()) == 0 && ferror(table.get()) == 0) {
    mntent entry;
    // An entry that can't be converted is none for any path.
    if (Posix_Getmntent_r(table.get(), &entry, texts.get(), kMountTexts) != nullptr &&
        mountPoint == entry.mnt_dir) {
      found = MountEntry{entry.mnt_fsname, IsBindMount(entry)};
    }
  }
  return found;
}

// The mount that a path is in; `mountPoint` becomes where it is. Nothing when there is none up to the root.
std::optional<MountEntry> FindMountAbove(std::string *mountPoint) {
  std::optional<MountEntry> found = FindMount(*mountPoint);
  while (!found && FilePosixGetParent(mountPoint)) {
    found = FindMount(*mountPoint);
  }
  return found;
}

// The nearest part of a path that exists.
std::string ExistingPart(const char *path) {
  std::string part = path;
  struct stat data;
  while (Posix_Stat(part.c_str(), &data) == -1) {
    const size_t slash = part.rfind('/');
    if (slash == std::string::npos || slash == 0) {
      return File_IsFullPath(path) ? "/" : ".";
    }
    part.resize(slash);
  }
  return part;
}

// Puts a directory in the place of the mount point that a path begins with.
void FollowBindMount(const std::string &mountPoint, const std::string &directory, std::string *path) {
  std::string rest = mountPoint == "/" ? *path : path->substr(mountPoint.size());
  if (rest == "/") {
    rest.clear();
  }
  *path = directory == "/" && !rest.empty() ? rest : directory + rest;
}

}  // namespace

bool FilePosixGetParent(std::string *path) {
  const size_t slash = path->rfind('/');
  if (slash == std::string::npos || path->size() == 1) {
    return false;
  }
  path->resize(std::max<size_t>(slash, 1));
  return true;
}

char *FilePosixGetBlockDevice(const char *path) {
  ASSERT(path != nullptr);
  const OwnedString resolved(Posix_RealPath(ExistingPart(path).c_str()));
  if (resolved == nullptr) {
    return nullptr;
  }
  std::string place = resolved.get();
  for (unsigned round = 0; round <= kMaxBindMounts; round++) {
    std::string mountPoint = place;
    const std::optional<MountEntry> entry = FindMountAbove(&mountPoint);
    if (!entry) {
      return nullptr;
    }
    if (!entry->isBind) {
      return Util_SafeStrdup(entry->device.c_str());
    }
    FollowBindMount(mountPoint, entry->device, &place);
  }
  Warning("FILE: %s: The --[r]bind mount count exceeds %u. Giving up.\n", __func__, kMaxBindMounts);
  return nullptr;
}
