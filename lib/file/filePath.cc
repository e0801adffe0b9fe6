#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <string>
#include <string_view>

#include "err.h"
#include "file.h"
#include "fileInt.h"
#include "log.h"
#include "msg.h"
#include "owned.h"
#include "panicUser.h"
#include "posixPosix.h"
#include "str.h"
#include "util_misc.h"

namespace {

constexpr char kPathSeparator = ';';
constexpr size_t kPathSize = 4096;

char *NewString(std::string_view text) {
  return Util_SafeStrndup(text.data(), text.size());
}

void SetString(char **out, std::string_view text) {
  if (out != nullptr) {
    *out = NewString(text);
  }
}

std::string_view WithoutTrailingSlashes(std::string_view text) {
  return text.substr(0, text.find_last_not_of('/') + 1);
}

// A path in two: all up to the last slash, that included, and what is behind it.
struct SplitPath {
  std::string_view directory;
  std::string_view base;
};

SplitPath Split(std::string_view path) {
  const size_t length = path.rfind('/') + 1;
  return {path.substr(0, length), path.substr(length)};
}

// A new string (free), or null with a message pending.
char *AbsolutePath(const char *path) {
  if (File_IsFullPath(path)) {
    return Util_SafeStrdup(path);
  }
  OwnedString workingDirectory(File_Cwd(nullptr));
  if (workingDirectory == nullptr || path == nullptr || path[0] == '\0') {
    return workingDirectory.release();
  }
  return File_PathJoin(workingDirectory.get(), path);
}

// The base name without the extension that is to go.
//
// count       how many extensions there are; 0 means that any goes
// extensions  what may go
std::string_view WithoutExtension(std::string_view base, size_t count, va_list extensions) {
  const size_t dot = base.rfind('.');
  bool isStripped = count == 0;
  for (size_t index = 0; index < count; index++) {
    // The list is started by the caller. NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
    const char *extension = va_arg(extensions, const char *);
    ASSERT(extension != nullptr && extension[0] == '.');
    isStripped = isStripped || (dot != std::string_view::npos && base.substr(dot) == extension);
  }
  return isStripped ? base.substr(0, dot) : base;
}

// Where a file of that base name would be for an item of a search path; nothing for an empty item.
std::string PlaceOfItem(std::string_view item, const char *workingDirectory, std::string_view base) {
  if (item.empty()) {
    return {};
  }
  std::string place;
  if (item.front() != '/') {
    place.append(workingDirectory).append("/");
  }
  if (item != ".") {
    place.append(item).append("/");
  }
  return place.append(base);
}

// The first place of a search path where there is a file of that base name, or nothing.
std::string FindInSearchPath(std::string_view base, std::string_view searchPath,
                             const char *workingDirectory) {
  while (!searchPath.empty()) {
    const size_t end = std::min(searchPath.find(kPathSeparator), searchPath.size());
    std::string place = PlaceOfItem(searchPath.substr(0, end), workingDirectory, base);
    if (!place.empty() && File_Exists(place.c_str())) {
      return place;
    }
    searchPath.remove_prefix(std::min(end + 1, searchPath.size()));
  }
  return {};
}

}  // namespace

bool File_IsFullPath(const char *path) {
  return path != nullptr && path[0] == '/';
}

void File_SplitName(const char *path, char **volume, char **directory, char **base) {
  ASSERT(path != nullptr);
  const SplitPath split = Split(path);
  SetString(volume, "");
  SetString(directory, split.directory);
  SetString(base, split.base);
}

void File_GetPathName(const char *path, char **directory, char **base) {
  ASSERT(path != nullptr);
  const SplitPath split = Split(path);
  SetString(directory, WithoutTrailingSlashes(split.directory));
  SetString(base, split.base);
}

char *File_PathJoin(const char *directory, const char *base) {
  ASSERT(directory != nullptr && base != nullptr);
  const bool hasSlash = std::string_view(directory).ends_with('/');
  return Str_SafeAsprintf(nullptr, "%s%s%s", directory, hasSlash ? "" : "/", base);
}

char *File_FullPath(const char *path) {
  const OwnedString absolute(AbsolutePath(path));
  if (absolute == nullptr) {
    return nullptr;
  }
  char *resolved = Posix_RealPath(absolute.get());
  return resolved != nullptr ? resolved : File_StripFwdSlashes(absolute.get());
}

char *File_FullPathKeepLink(const char *path) {
  if (path == nullptr || !File_IsSymLink(path)) {
    return File_FullPath(path);
  }
  const SplitPath split = Split(path);
  const OwnedString directory(File_FullPath(std::string(split.directory).c_str()));
  return directory == nullptr ? nullptr : File_PathJoin(directory.get(), std::string(split.base).c_str());
}

char *File_StripFwdSlashes(const char *path) {
  ASSERT(path != nullptr);
  std::string collapsed;
  for (const char *byte = path; *byte != '\0'; byte++) {
    if (*byte != '/' || !collapsed.ends_with('/')) {
      collapsed += *byte;
    }
  }
  return NewString(collapsed);
}

char *File_StripSlashes(const char *path) {
  ASSERT(path != nullptr);
  const std::string_view whole = path;
  if (!Split(whole).base.empty()) {
    return NewString(whole);
  }
  const size_t length = WithoutTrailingSlashes(whole).size();
  return NewString(whole.substr(0, std::max<size_t>(length, 1)));
}

char *File_ReplaceExtension(const char *path, const char *newExtension, size_t count, ...) {
  ASSERT(path != nullptr);
  ASSERT(newExtension != nullptr && newExtension[0] == '.');
  const SplitPath split = Split(path);
  va_list extensions;
  va_start(extensions, count);
  const std::string_view base = WithoutExtension(split.base, count, extensions);
  va_end(extensions);
  return NewString(std::string(split.directory).append(base).append(newExtension));
}

char *File_PrependToPath(const char *searchPath, const char *element) {
  ASSERT(searchPath != nullptr && element != nullptr);
  const std::string_view item = element;
  std::string path = std::string(item) + kPathSeparator + searchPath;
  size_t separator = item.size();
  while (separator != std::string::npos) {
    const size_t start = separator + 1;
    const size_t end = path.find(kPathSeparator, start);
    if (std::string_view(path).substr(start, end - start) == item) {
      path.erase(separator, end - separator);
      break;
    }
    separator = end;
  }
  return NewString(path);
}

bool File_FindFileInSearchPath(const char *file, const char *searchPath, const char *workingDirectory,
                               char **result) {
  ASSERT(file != nullptr && searchPath != nullptr && workingDirectory != nullptr);
  std::string found = File_IsFullPath(file) ? file : std::string(workingDirectory) + '/' + file;
  if (!File_Exists(found.c_str())) {
    found = FindInSearchPath(Split(file).base, searchPath, workingDirectory);
  }
  if (found.empty()) {
    return false;
  }
  if (result == nullptr) {
    return true;
  }
  *result = File_FullPath(found.c_str());
  return *result != nullptr;
}

char *File_MapPathPrefix(const char *path, const char *const *oldPrefixes, const char *const *newPrefixes,
                         size_t count) {
  ASSERT(path != nullptr);
  const std::string_view whole = path;
  for (size_t index = 0; index < count; index++) {
    const OwnedString oldPrefix(File_StripSlashes(oldPrefixes[index]));
    const OwnedString newPrefix(File_StripSlashes(newPrefixes[index]));
    const std::string_view rest = whole.substr(std::min(strlen(oldPrefix.get()), whole.size()));
    if (whole.starts_with(oldPrefix.get()) && (rest.empty() || rest.front() == '/')) {
      const std::string mapped = newPrefix.get() + std::string(rest);
      ASSERT(!mapped.empty());
      return NewString(mapped);
    }
  }
  return nullptr;
}

char *File_Cwd(const char *drive) {
  if (drive != nullptr && drive[0] != '\0') {
    Warning("FILE: %s: Drive letter %s on Linux?\n", __func__, drive);
  }
  char buffer[kPathSize];
  const OwnedUnicode directory(getcwd(buffer, sizeof buffer) == nullptr
                                   ? nullptr
                                   : FileFromSystem(buffer, Unicode_GetCurrentEncoding()));
  if (directory == nullptr) {
    const char *reason = Err_ErrString();
    Msg_Append(MSGID(filePosix.getcwd) "Unable to retrieve the current working directory: %s. Check if the "
               "directory has been deleted or unmounted.\n",
               reason);
    Warning("FILE: %s: getcwd() failed: %s\n", __func__, reason);
    return nullptr;
  }
  return Util_SafeStrdup(directory.get());
}
