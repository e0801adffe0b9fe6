#include "file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "err.h"
#include "fileIO.h"
#include "fileInt.h"
#include "log.h"
#include "msg.h"
#include "owned.h"
#include "posixPosix.h"
#include "unicode.h"
#include "util.h"
#include "util_misc.h"

namespace {

constexpr size_t kCopyBlock = 8192;
constexpr mode_t kDirectoryMode = 0777;

bool IsDotName(const char *name) {
  return strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
}

bool IsOfType(const char *path, mode_t type) {
  struct stat data;
  return Posix_Stat(path, &data) == 0 && (data.st_mode & S_IFMT) == type;
}

// Whether the name itself is of the type, not what a link leads to.
bool IsNameOfType(const char *path, mode_t type) {
  struct stat data;
  return Posix_Lstat(path, &data) == 0 && (data.st_mode & S_IFMT) == type;
}

// The names of a directory in the system's order, or nothing, with errno. A name that can't be converted
// could be given to no call, so it ends the reading.
std::optional<std::vector<std::string>> ReadNames(const char *path) {
  const OwnedDirectory directory(Posix_OpenDir(path));
  if (directory == nullptr) {
    return std::nullopt;
  }
  std::vector<std::string> names;
  for (;;) {
    errno = 0;
    const dirent *entry = readdir(directory.get());
    if (entry == nullptr) {
      break;
    }
    if (IsDotName(entry->d_name)) {
      continue;
    }
    const OwnedUnicode name = FileFromSystem(entry->d_name);
    if (name == nullptr) {
      return std::nullopt;
    }
    names.emplace_back(name.get());
  }
  if (errno != 0) {
    return std::nullopt;
  }
  return names;
}

// The path that a link leads to, seen from where the link is.
std::string LinkTargetPath(const char *linkPath, const char *target) {
  const char *slash = strrchr(linkPath, '/');
  if (target[0] == '/' || slash == nullptr) {
    return target;
  }
  return std::string(linkPath, slash + 1) + target;
}

// Unlinks what a link leads to; nothing being there counts as done. Returns an error number, or 0.
int UnlinkTarget(const char *linkPath) {
  const OwnedString target(Posix_ReadLink(linkPath));
  if (target == nullptr) {
    return errno;
  }
  const bool failed = Posix_Unlink(LinkTargetPath(linkPath, target.get()).c_str()) == -1;
  return failed && errno != ENOENT ? errno : 0;
}

// Returns an error number, or 0.
int FileDeletion(const char *path) {
  if (path == nullptr) {
    return EFAULT;
  }
  if (IsNameOfType(path, S_IFLNK)) {
    const int error = UnlinkTarget(path);
    if (error != 0) {
      return error;
    }
  }
  return Posix_Unlink(path) == -1 ? errno : 0;
}

// 0, or -1 with errno.
int CallResult(int error) {
  if (error == 0) {
    return 0;
  }
  errno = error;
  return -1;
}

// Opens a new file for writing, dealing with one that exists as `prompt` tells.
FileIOResult CreatePrompt(FileIODescriptor *file, const char *name, int prompt) {
  FileIOAction action = FILEIO_OPEN_CREATE_SAFE;
  for (;;) {
    const FileIOResult result = FileIO_Open(file, name, FILEIO_ACCESS_WRITE, action);
    if (result != FILEIO_FILE_EXISTS) {
      return result;
    }
    if (prompt == FILE_PROMPT_CANCEL) {
      return FILEIO_CANCELLED;
    }
    if (prompt == FILE_PROMPT_OVERWRITE) {
      action = FILEIO_OPEN_CREATE_EMPTY;
    }
  }
}

bool CopyContent(FileIODescriptor *source, FileIODescriptor *destination) {
  char block[kCopyBlock];
  FileIOResult readResult = FILEIO_SUCCESS;
  while (readResult == FILEIO_SUCCESS) {
    size_t count = 0;
    readResult = FileIO_Read(source, block, sizeof block, &count);
    if (readResult != FILEIO_SUCCESS && readResult != FILEIO_READ_PAST_EOF) {
      Msg_Append(MSGID(File.CopyFromFdToFd.read.failure) "Read error: %s.\n\n",
                 FileIO_ErrorEnglish(readResult));
      return false;
    }
    const FileIOResult writeResult = FileIO_Write(destination, block, count, nullptr);
    if (writeResult != FILEIO_SUCCESS) {
      Msg_Append(MSGID(File.CopyFromFdToFd.write.failure) "Write error: %s.\n\n",
                 FileIO_ErrorEnglish(writeResult));
      return false;
    }
  }
  return true;
}

bool CopyToName(FileIODescriptor *source, const char *destination, int prompt) {
  FileIODescriptor copy;
  FileIO_Invalidate(&copy);
  const FileIOResult created = CreatePrompt(&copy, destination, prompt);
  if (created != FILEIO_SUCCESS) {
    if (created != FILEIO_CANCELLED) {
      Msg_Append(MSGID(File.CopyFromFdToName.create.failure) "Unable to create a new '%s' file: %s.\n\n",
                 destination, FileIO_ErrorEnglish(created));
    }
    return false;
  }
  const bool copied = CopyContent(source, &copy);
  const bool closed = !FileIO_Close(&copy);
  if (!closed) {
    Msg_Append(MSGID(File.CopyFromFdToName.close.failure) "Unable to close the '%s' file: %s.\n\n",
               destination, Err_ErrString());
  }
  if (!copied || !closed) {
    File_Unlink(destination);
    return false;
  }
  return true;
}

// Whether the process has the group among its supplementary ones.
bool FileIsGroupsMember(gid_t group) {
  std::vector<gid_t> groups;
  for (;;) {
    const int count = getgroups(0, nullptr);
    if (count >= 0) {
      groups.resize(static_cast<size_t>(count));
      // The list may have grown since it was counted.
      const int got = getgroups(count, groups.data());
      if (got >= 0) {
        return std::find(groups.begin(), groups.begin() + got, group) != groups.begin() + got;
      }
      if (errno == EINVAL) {
        continue;
      }
    }
    Warning("FILE: %s: Couldn't getgroups\n", __func__);
    return false;
  }
}

// Whether this user can write and search a directory.
bool IsWritableDirectory(const char *path) {
  struct stat data;
  if (Posix_Stat(path, &data) == -1 || !S_ISDIR(data.st_mode)) {
    return false;
  }
  const uid_t user = geteuid();
  if (user == 0) {
    return true;
  }
  mode_t needed = S_IWOTH | S_IXOTH;
  if (data.st_uid == user) {
    needed = S_IWUSR | S_IXUSR;
  } else if (FileIsGroupsMember(data.st_gid)) {
    needed = S_IWGRP | S_IXGRP;
  }
  return (data.st_mode & needed) == needed;
}

// The directory in its expanded form, or null when it can't serve.
OwnedString UsableTmpDir(const char *directory) {
  if (directory == nullptr) {
    return nullptr;
  }
  OwnedString expanded(Util_ExpandString(directory));
  if (expanded == nullptr || !IsWritableDirectory(expanded.get())) {
    return nullptr;
  }
  return expanded;
}

}  // namespace

OwnedUnicode FileFromSystem(const char *bytes) {
  if (Unicode_GetCurrentEncoding() == STRING_ENCODING_UTF8) {
    return OwnedUnicode(Unicode_Duplicate(bytes));
  }
  if (!Unicode_IsBufferValid(bytes, -1, STRING_ENCODING_DEFAULT)) {
    errno = EINVAL;
    return nullptr;
  }
  return OwnedUnicode(Unicode_Alloc(bytes, STRING_ENCODING_DEFAULT));
}

bool File_Exists(const char *path) {
  return FileIO_Access(path, FILEIO_TEST_EXISTS) == FILEIO_SUCCESS;
}

bool File_IsFile(const char *path) {
  return IsOfType(path, S_IFREG);
}

bool File_IsDirectory(const char *path) {
  return IsOfType(path, S_IFDIR);
}

bool File_IsSymLink(const char *path) {
  return IsNameOfType(path, S_IFLNK);
}

int64_t File_GetModTime(const char *path) {
  struct stat data;
  return Posix_Stat(path, &data) == 0 ? data.st_mtime : -1;
}

bool File_CreateDirectory(const char *path) {
  return Posix_Mkdir(path, kDirectoryMode) == 0;
}

bool File_DeleteDirectoryTree(const char *path) {
  struct stat data;
  if (Posix_Stat(path, &data) == -1) {
    return errno == ENOENT || errno == ENOTDIR;
  }
  const auto names = ReadNames(path);
  if (!names) {
    return false;
  }
  bool done = true;
  for (const std::string &name : *names) {
    const std::string entry = std::string(path) + '/' + name;
    // A link to a directory is no part of the tree.
    const bool gone = IsNameOfType(entry.c_str(), S_IFDIR) ? File_DeleteDirectoryTree(entry.c_str())
                                                           : File_Unlink(entry.c_str()) == 0;
    done = gone && done;
  }
  return Posix_Rmdir(path) == 0 && done;
}

int File_Unlink(const char *path) {
  return CallResult(FileDeletion(path));
}

int File_UnlinkIfExists(const char *path) {
  const int error = FileDeletion(path);
  return CallResult(error == ENOENT ? 0 : error);
}

bool File_SetFilePermissions(const char *path, mode_t mode) {
  if (Posix_Chmod(path, mode) == 0) {
    return true;
  }
  Log("FILE: %s: failed to change permissions on file \"%s\": %s\n", __func__, path, Err_ErrString());
  return false;
}

bool File_CopyFromNameToName(const char *source, const char *destination, int prompt) {
  FileIODescriptor original;
  FileIO_Invalidate(&original);
  const FileIOResult opened = FileIO_Open(&original, source, FILEIO_ACCESS_READ, FILEIO_OPEN);
  if (opened != FILEIO_SUCCESS) {
    Msg_Append(MSGID(File.CopyFromNameToName.open.failure) "Unable to open the '%s' file for read access: "
               "%s.\n\n",
               source, FileIO_ErrorEnglish(opened));
    return false;
  }
  const bool copied = CopyToName(&original, destination, prompt);
  if (FileIO_Close(&original)) {
    Msg_Append(MSGID(File.CopyFromNameToName.close.failure) "Unable to close the '%s' file: %s.\n\n", source,
               Err_ErrString());
    return false;
  }
  return copied;
}

int File_ListDirectory(const char *path, char ***names) {
  const auto found = ReadNames(path);
  if (!found) {
    return -1;
  }
  const int count = static_cast<int>(found->size());
  if (names != nullptr) {
    *names = static_cast<char **>(Util_SafeCalloc(found->size() + 1, sizeof(char *)));
    for (size_t index = 0; index < found->size(); index++) {
      (*names)[index] = Util_SafeStrdup((*found)[index].c_str());
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

char *File_GetTmpDir(bool) {
  // "/tmp" is tried twice; this is wanted.
  for (const char *directory : {Posix_Getenv("TMPDIR"), "/tmp", "/tmp", "~"}) {
    OwnedString usable = UsableTmpDir(directory);
    if (usable != nullptr) {
      return usable.release();
    }
  }
  const OwnedString workingDirectory(File_Cwd(nullptr));
  for (const char *directory : {static_cast<const char *>(workingDirectory.get()), "/"}) {
    OwnedString usable = UsableTmpDir(directory);
    if (usable != nullptr) {
      return usable.release();
    }
  }
  Warning("%s: Couldn't get a temporary directory\n", __func__);
  return nullptr;
}
