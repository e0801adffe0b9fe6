#include <dirent.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "file.h"
#include "fileInt.h"
#include "owned.h"
#include "posixPosix.h"
#include "util_misc.h"

namespace {

constexpr mode_t kDirectoryMode = 0777;

bool IsDotName(const char *name) {
  return strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
}

// An entry of a directory.
struct Entry {
  OwnedUnicode name;
  unsigned char type;  // DT_UNKNOWN where the file system doesn't tell
};

// Hands each entry of a directory, in the system's order, to `take`. Returns false with errno when something
// failed: also for a name that can't be converted, since it could be given to no call.
template <typename Take>
bool ReadEntries(const char *path, Take take) {
  const OwnedDirectory directory(Posix_OpenDir(path));
  if (directory == nullptr) {
    return false;
  }
  const StringEncoding current = Unicode_GetCurrentEncoding();
  for (;;) {
    errno = 0;
    const dirent *entry = readdir(directory.get());
    if (entry == nullptr) {
      return errno == 0;
    }
    if (IsDotName(entry->d_name)) {
      continue;
    }
    OwnedUnicode name = FileFromSystem(entry->d_name, current);
    if (name == nullptr) {
      return false;
    }
    take(Entry{std::move(name), entry->d_type});
  }
}

using Names = std::vector<OwnedUnicode>;

// What a directory holds.
struct Contents {
  Names directories;
  Names links;
  Names others;
};

// The list that an entry belongs to. The file system may not have told what it is.
Names *ListFor(const Entry &entry, const std::string &directory, Contents *contents) {
  FileData data;
  const bool isAsked =
      entry.type == DT_UNKNOWN && FileLinkAttributes((directory + '/' + entry.name.get()).c_str(), &data);
  if (isAsked ? data.fileType == FILE_TYPE_DIRECTORY : entry.type == DT_DIR) {
    return &contents->directories;
  }
  const bool isLink = isAsked ? data.fileType == FILE_TYPE_SYMLINK : entry.type == DT_LNK;
  return isLink ? &contents->links : &contents->others;
}

// Whether a deletion left nothing behind: another's may have come first, such as that of a link to the file.
bool IsGone(int result) {
  return result == 0 || errno == ENOENT;
}

// Calls `remove` for the path of each name, which is made at the end of the directory's own. Returns whether
// all succeeded.
template <typename Remove>
bool RemoveEach(const Names &names, std::string *directory, Remove remove) {
  const size_t length = directory->size();
  bool isDone = true;
  for (const OwnedUnicode &name : names) {
    directory->append("/").append(name.get());
    isDone = remove(directory) && isDone;
    directory->resize(length);
  }
  return isDone;
}

bool DeleteTree(std::string *path) {
  Contents contents;
  const bool isRead = ReadEntries(path->c_str(), [&contents, path](Entry entry) {
    ListFor(entry, *path, &contents)->push_back(std::move(entry.name));
  });
  if (!isRead) {
    return errno == ENOENT;
  }
  // Most entries are known to be no links, so that nothing has to look for their targets.
  bool isDone = RemoveEach(contents.others, path, [](const std::string *entry) {
    return IsGone(File_UnlinkNoFollow(entry->c_str()));
  });
  isDone = RemoveEach(contents.links, path,
                      [](const std::string *entry) { return IsGone(File_Unlink(entry->c_str())); }) &&
           isDone;
  // The memory of these is free for the rest of the tree.
  contents.others = Names();
  contents.links = Names();
  isDone = RemoveEach(contents.directories, path, DeleteTree) && isDone;
  return IsGone(Posix_Rmdir(path->c_str())) && isDone;
}

}  // namespace

bool File_CreateDirectory(const char *path) {
  return Posix_Mkdir(path, kDirectoryMode) == 0;
}

bool File_EnsureDirectory(const char *path) {
  return File_CreateDirectory(path) || (errno == EEXIST && File_IsDirectory(path));
}

bool File_CreateDirectoryHierarchy(const char *path) {
  const std::string whole = path == nullptr ? "" : path;
  size_t end = 0;
  while (end < whole.size()) {
    end = std::min(whole.find('/', end + 1), whole.size());
    const std::string prefix = whole.substr(0, end);
    // Another process may make it in between.
    if (!File_IsDirectory(prefix.c_str()) && !File_EnsureDirectory(prefix.c_str())) {
      return false;
    }
  }
  return true;
}

bool File_DeleteEmptyDirectory(const char *path) {
  return Posix_Rmdir(path) == 0;
}

bool File_DeleteDirectoryTree(const char *path) {
  FileData data;
  if (!FileAttributes(path, &data)) {
    return errno == ENOENT || errno == ENOTDIR;
  }
  std::string tree = path;
  return DeleteTree(&tree);
}

bool File_IsEmptyDirectory(const char *path) {
  return File_ListDirectory(path, nullptr) == 0;
}

int File_ListDirectory(const char *path, char ***names) {
  Names found;
  if (!ReadEntries(path, [&found](Entry entry) { found.push_back(std::move(entry.name)); })) {
    return -1;
  }
  const int count = static_cast<int>(found.size());
  if (names != nullptr) {
    *names = static_cast<char **>(Util_SafeCalloc(found.size() + 1, sizeof(char *)));
    for (size_t index = 0; index < found.size(); index++) {
      (*names)[index] = const_cast<char *>(found[index].release());
    }
  }
  return count;
}

void File_FreeNames(char **names, int count) {
  for (int index = 0; index < count; index++) {
    free(names[index]);
  }
  free(names);
}
