#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "err.h"
#include "fileLockInt.h"
#include "log.h"
#include "owned.h"
#include "posixPosix.h"
#include "str.h"
#include "strutil.h"

namespace {

constexpr size_t kDigits = 5;
constexpr size_t kMinFields = 4;
constexpr size_t kMaxFields = 16;

// ".lck" and "/Mnnnnn.lck" are all that a member's path has beyond the locked path's.
static_assert((sizeof kLockSuffix - 1) + 2 + kDigits + (sizeof kLockSuffix - 1) <= 15);

// The fields are parts of `text`.
std::vector<std::string_view> SplitAtBlanks(std::string_view text) {
  std::vector<std::string_view> fields;
  fields.reserve(kMaxFields);
  while (!text.empty()) {
    const size_t length = std::min(text.find(' '), text.size());
    if (length > 0) {
      fields.push_back(text.substr(0, length));
    }
    text.remove_prefix(std::min(length + 1, text.size()));
  }
  return fields;
}

bool ParseAttribute(std::string_view field, LockValues *member) {
  const size_t equals = field.find('=');
  if (equals == 0 || equals == std::string_view::npos || equals + 1 == field.size()) {
    return false;
  }
  if (field.substr(0, equals) == "lc") {
    member->locationChecksum = field.substr(equals + 1);
  }
  return true;
}

bool ParseMember(const std::vector<std::string_view> &fields, LockValues *member) {
  if (fields.size() < kMinFields || fields.size() > kMaxFields) {
    return false;
  }
  member->machineID = fields[0];
  member->executionID = fields[1];
  const std::string number(fields[2]);
  const char *end = number.c_str();
  if (!StrUtil_DecimalStrToUint(&member->lamportNumber, &end) || end != number.c_str() + number.size()) {
    return false;
  }
  member->lockType = fields[3];
  if (member->lockType != kSharedLock && member->lockType != kExclusiveLock) {
    return false;
  }
  if (fields.size() == kMinFields) {
    return true;
  }
  member->payload = fields[kMinFields] == "[" ? std::string_view() : fields[kMinFields];
  return std::all_of(fields.begin() + kMinFields + 1, fields.end(),
                     [member](std::string_view field) { return ParseAttribute(field, member); });
}

// Deletes a member file that says nothing. Returns an error number; ENOENT when it is gone.
int RemoveProblematicFile(const std::string &path, const std::vector<std::string_view> &fields) {
  constexpr const char *kReader = "FileLockMemberValues";
  Warning("FILE: %s removing problematic lock file '%s'\n", kReader, path.c_str());
  if (!fields.empty()) {
    Log("FILE: %s '%s' contents are:\n", kReader, path.c_str());
    for (size_t index = 0; index < std::min(fields.size(), kMaxFields); index++) {
      Log("FILE: %s %s argv[%d]: '%s'\n", kReader, path.c_str(), static_cast<int>(index),
          std::string(fields[index]).c_str());
    }
  }
  return Posix_Unlink(path.c_str()) == -1 ? errno : ENOENT;
}

// Reads a member file of the right size. Returns an error number, or 0; `*problematic` tells a wrong size.
int ReadMemberFile(int fd, const std::string &path, char buffer[kMemberSize], bool *problematic) {
  constexpr const char *kReader = "FileLockMemberValues";
  struct stat data;
  if (fstat(fd, &data) == -1) {
    const int error = errno;
    Warning("FILE: %s file size failure on '%s': %s\n", kReader, path.c_str(), Err_Errno2String(error));
    return error;
  }
  *problematic = data.st_size != static_cast<off_t>(kMemberSize);
  if (*problematic) {
    Warning("FILE: %s file '%s': size %lu, required size %u\n", kReader, path.c_str(),
            static_cast<unsigned long>(data.st_size), static_cast<unsigned>(kMemberSize));
    return 0;
  }
  const ssize_t length = read(fd, buffer, kMemberSize);
  if (length == -1) {
    const int error = errno;
    Warning("FILE: %s read failure on '%s': %s\n", kReader, path.c_str(), Err_Errno2String(error));
    return error;
  }
  if (static_cast<size_t>(length) != kMemberSize) {
    Warning("FILE: %s read length issue on '%s': %u and %u\n", kReader, path.c_str(),
            static_cast<unsigned>(length), static_cast<unsigned>(kMemberSize));
    return EIO;
  }
  return 0;
}

}  // namespace

LockEntry FileLockEntryOfNumber(const std::string &lockDir, uint32_t number) {
  const OwnedString member(Str_SafeAsprintf(nullptr, "M%05u%s", number, kLockSuffix));
  const OwnedString directory(Str_SafeAsprintf(nullptr, "D%05u%s", number, kLockSuffix));
  const OwnedString file(Str_SafeAsprintf(nullptr, "E%05u%s", number, kLockSuffix));
  // cppcheck-suppress returnDanglingLifetime ; the entry copies the texts
  return {member.get(), lockDir + '/' + directory.get(), lockDir + '/' + file.get(),
          lockDir + '/' + member.get()};
}

bool FileLockIsValidName(const std::string &name) {
  return name.size() > kDigits && std::string_view("MDE").find(name[0]) != std::string_view::npos &&
         std::all_of(name.begin() + 1, name.begin() + 1 + kDigits,
                     [](char byte) { return isdigit(static_cast<unsigned char>(byte)) != 0; }) &&
         name.ends_with(kLockSuffix);
}

int FileLockFileType(const std::string &path, mode_t *type) {
  struct stat data;
  if (Posix_Lstat(path.c_str(), &data) == -1) {
    return errno;
  }
  *type = data.st_mode & S_IFMT;
  return 0;
}

int FileLockCreateMember(int fd, const LockValues &myValues, const LockEntry &entry) {
  constexpr const char *kWriter = "CreateMemberFile";
  char buffer[kMemberSize] = "";
  Str_Snprintf(buffer, sizeof buffer, "%s %s %u %s %s lc=%s", myValues.machineID.c_str(),
               myValues.executionID.c_str(), myValues.lamportNumber, myValues.lockType.c_str(),
               myValues.payload.empty() ? "[" : myValues.payload.c_str(), myValues.locationChecksum.c_str());
  const ssize_t length = write(fd, buffer, sizeof buffer);
  const int writeError = length == -1 ? errno : 0;
  const int closeError = close(fd) == -1 ? errno : 0;
  const char *path = entry.filePath.c_str();
  if (writeError != 0) {
    Warning("FILE: %s write of '%s' failed: %s\n", kWriter, path, Err_Errno2String(writeError));
    return writeError;
  }
  if (closeError != 0) {
    Warning("FILE: %s close of '%s' failed: %s\n", kWriter, path, Err_Errno2String(closeError));
    return closeError;
  }
  if (static_cast<size_t>(length) != sizeof buffer) {
    Warning("FILE: %s write length issue on '%s': %u and %zd\n", kWriter, path,
            static_cast<unsigned>(sizeof buffer), length);
    return EIO;
  }
  if (Posix_Rename(path, entry.memberPath.c_str()) == 0) {
    return 0;
  }
  const int error = errno;
  Warning("FILE: %s FileRename of '%s' to '%s' failed: %s\n", kWriter, path, entry.memberPath.c_str(),
          Err_Errno2String(error));
  for (const std::string *name : {&entry.filePath, &entry.memberPath}) {
    mode_t type = 0;
    Log("FILE: %s FileLockFileType() of '%s': %s\n", kWriter, name->c_str(),
        Err_Errno2String(FileLockFileType(*name, &type)));
  }
  return error;
}

int FileLockOpen(const std::string &path) {
  const int fd = Posix_Open(path.c_str(), O_RDONLY | O_NONBLOCK);
  return fd == -1 && errno == EAGAIN ? Posix_Open(path.c_str(), O_RDONLY) : fd;
}

int FileLockMemberValues(const std::string &lockDir, const std::string &fileName, LockValues *member) {
  const std::string path = lockDir + '/' + fileName;
  const int fd = FileLockOpen(path);
  if (fd == -1) {
    const int error = errno;
    if (error != ENOENT) {
      Warning("FILE: %s open failure on '%s': %s\n", __func__, path.c_str(), Err_Errno2String(error));
    }
    return error;
  }
  char buffer[kMemberSize];
  bool problematic = false;
  const int error = ReadMemberFile(fd, path, buffer, &problematic);
  close(fd);
  if (error != 0) {
    return error;
  }
  if (problematic) {
    return RemoveProblematicFile(path, {});
  }
  const auto fields = SplitAtBlanks({buffer, strnlen(buffer, sizeof buffer)});
  member->memberName = fileName;
  return ParseMember(fields, member) ? 0 : RemoveProblematicFile(path, fields);
}
