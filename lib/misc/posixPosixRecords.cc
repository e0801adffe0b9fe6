#include <algorithm>
#include <cstdint>
#include <cstring>

#include "panicUser.h"
#include "posixPosix.h"
#include "posixPosixInt.h"

namespace {

// What the plain forms returned last, with the strings that it owns. From the first call of each to the end
// of the process.
struct {
  passwd ofUsers;
  group ofGroups;
  mntent ofMounts;
} lastRecords;

// The texts of each kind of record.
constexpr char *passwd::*kUserTexts[] = {&passwd::pw_name, &passwd::pw_passwd, &passwd::pw_gecos,
                                         &passwd::pw_dir, &passwd::pw_shell};
constexpr char *group::*kGroupTexts[] = {&group::gr_name, &group::gr_passwd};
constexpr char *mntent::*kMountTexts[] = {&mntent::mnt_fsname, &mntent::mnt_dir, &mntent::mnt_type,
                                          &mntent::mnt_opts};

constexpr const auto &TextsOf(const passwd *) {
  return kUserTexts;
}
constexpr const auto &TextsOf(const group *) {
  return kGroupTexts;
}
constexpr const auto &TextsOf(const mntent *) {
  return kMountTexts;
}

size_t CountMembers(char *const *members) {
  size_t count = 0;
  while (members[count] != nullptr) {
    count++;
  }
  return count;
}

// Frees the strings and leaves an empty record.
template <typename Record>
void FreeTexts(Record *record) {
  for (const auto text : TextsOf(record)) {
    free(record->*text);
  }
  if constexpr (std::is_same_v<Record, group>) {
    for (char **member = record->gr_mem; member != nullptr && *member != nullptr; member++) {
      free(*member);
    }
    free(record->gr_mem);
  }
  *record = {};
}

bool ConvertText(const char *bytes, char **text) {
  *text = bytes == nullptr ? nullptr : PosixFromSystem(bytes);
  return bytes == nullptr || *text != nullptr;
}

// Null stays null. On failure leaves the members that were converted.
bool ConvertMembers(char *const *members, char ***converted) {
  *converted = nullptr;
  if (members == nullptr) {
    return true;
  }
  const size_t count = CountMembers(members);
  // An array of pointers is meant. NOLINTNEXTLINE(bugprone-sizeof-expression)
  *converted = static_cast<char **>(calloc(count + 1, sizeof(char *)));
  for (size_t i = 0; *converted != nullptr && i < count; i++) {
    if (!ConvertText(members[i], &(*converted)[i])) {
      return false;
    }
  }
  return *converted != nullptr;
}

// Fills a record with new strings of what the system's says. Returns false, with an empty record and ENOMEM,
// when one can't be converted.
template <typename Record>
bool ConvertRecord(const Record &bytes, Record *record) {
  *record = bytes;
  bool isConverted = true;
  for (const auto text : TextsOf(record)) {
    isConverted = ConvertText(bytes.*text, &(record->*text)) && isConverted;
  }
  if constexpr (std::is_same_v<Record, group>) {
    isConverted = ConvertMembers(bytes.gr_mem, &record->gr_mem) && isConverted;
  }
  if (!isConverted) {
    FreeTexts(record);
    errno = ENOMEM;
  }
  return isConverted;
}

// What a plain form returns for what the system returned. `last` gets the new strings in the place of the old
// ones.
template <typename Record>
Record *KeepRecord(const Record *bytes, Record *last) {
  FreeTexts(last);
  return bytes != nullptr && ConvertRecord(*bytes, last) ? last : nullptr;
}

// The part of a caller's buffer that is still free.
struct Room {
  char *next;
  size_t size;
};

// Takes aligned room, or returns null when there isn't enough.
void *TakeRoom(Room *room, size_t size, size_t alignment) {
  const size_t padding = (alignment - reinterpret_cast<uintptr_t>(room->next) % alignment) % alignment;
  if (room->size < padding || room->size - padding < size) {
    return nullptr;
  }
  void *taken = room->next + padding;
  room->next += padding + size;
  room->size -= padding + size;
  return taken;
}

// Copies the text at `text` into the buffer and points it there. Null stays null.
bool PlaceText(char **text, Room *room) {
  if (*text == nullptr) {
    return true;
  }
  const size_t size = strlen(*text) + 1;
  void *copy = TakeRoom(room, size, 1);
  if (copy == nullptr) {
    return false;
  }
  *text = static_cast<char *>(memcpy(copy, *text, size));
  return true;
}

bool PlaceMembers(char ***members, Room *room) {
  if (*members == nullptr) {
    return true;
  }
  // Arrays of pointers are meant. NOLINTNEXTLINE(bugprone-sizeof-expression)
  const size_t size = (CountMembers(*members) + 1) * sizeof(char *);
  void *list = TakeRoom(room, size, alignof(char *));
  if (list == nullptr) {
    return false;
  }
  *members = static_cast<char **>(memcpy(list, *members, size));
  for (char **member = *members; *member != nullptr; member++) {
    if (!PlaceText(member, room)) {
      return false;
    }
  }
  return true;
}

template <typename Record>
bool PlaceTexts(Record *record, Room *room) {
  for (const auto text : TextsOf(record)) {
    if (!PlaceText(&(record->*text), room)) {
      return false;
    }
  }
  if constexpr (std::is_same_v<Record, group>) {
    return PlaceMembers(&record->gr_mem, room);
  } else {
    return true;
  }
}

// Converts the texts of a record, which may lie in the buffer, and puts them there. Returns 0 or an errno
// value.
template <typename Record>
int PlaceRecord(Record *record, char *buffer, size_t size) {
  Record converted;
  if (!ConvertRecord(*record, &converted)) {
    return ENOMEM;
  }
  Record placed = converted;
  Room room = {buffer, size};
  const bool isPlaced = PlaceTexts(&placed, &room);
  FreeTexts(&converted);
  if (!isPlaced) {
    return ERANGE;
  }
  *record = placed;
  return 0;
}

// What a reentrant form returns, given what its system call returned.
template <typename Record>
int PlaceResult(int error, Record *record, char *buffer, size_t size, Record **result) {
  if (error != 0 || *result == nullptr) {
    return error;
  }
  const int placing = PlaceRecord(record, buffer, size);
  if (placing != 0) {
    *result = nullptr;
    errno = placing;
  }
  return placing;
}

// A reentrant form by name.
template <typename Record>
int GetByName(int (*call)(const char *, Record *, char *, size_t, Record **), const char *name,
              Record *record, char *buffer, size_t size, Record **result) {
  *result = nullptr;
  if (name == nullptr) {
    errno = EFAULT;
    return EFAULT;
  }
  const PosixText bytes(name);
  return bytes ? PlaceResult(call(bytes.Bytes(), record, buffer, size, result), record, buffer, size, result)
               : EINVAL;
}

// Reads the next line that tells a mount; `texts` gets what the record's fields point at. The system call
// cuts a line that is longer than its buffer, so it has each by itself and with room enough.
bool ReadMount(FILE *stream, mntent *record, OwnedString *texts) {
  char *line = nullptr;
  size_t room = 0;
  ssize_t length = 0;
  bool isRead = false;
  while (!isRead && (length = getline(&line, &room, stream)) > 0) {
    const OwnedStream alone(fmemopen(line, static_cast<size_t>(length), "r"));
    texts->reset(static_cast<char *>(malloc(static_cast<size_t>(length) + 1)));
    if (alone == nullptr || *texts == nullptr) {
      errno = ENOMEM;
      break;
    }
    isRead = getmntent_r(alone.get(), record, texts->get(), static_cast<int>(length) + 1) != nullptr;
  }
  free(line);
  return isRead;
}

// The groups of a user whose name means nothing to the system.
int JustTheGroup(gid_t group, gid_t *groups, int *count) {
  const bool hasRoom = *count >= 1;
  *count = 1;
  if (!hasRoom) {
    return -1;
  }
  groups[0] = group;
  return 1;
}

}  // namespace

passwd *Posix_Getpwnam(const char *name) {
  return KeepRecord(PosixCallNonNull(getpwnam, name), &lastRecords.ofUsers);
}

passwd *Posix_Getpwuid(uid_t user) {
  return KeepRecord(getpwuid(user), &lastRecords.ofUsers);
}

passwd *Posix_Getpwent() {
  return KeepRecord(getpwent(), &lastRecords.ofUsers);
}

int Posix_Getpwnam_r(const char *name, passwd *record, char *buffer, size_t size, passwd **result) {
  return GetByName(getpwnam_r, name, record, buffer, size, result);
}

int Posix_Getpwuid_r(uid_t user, passwd *record, char *buffer, size_t size, passwd **result) {
  return PlaceResult(getpwuid_r(user, record, buffer, size, result), record, buffer, size, result);
}

group *Posix_Getgrnam(const char *name) {
  return KeepRecord(PosixCallNonNull(getgrnam, name), &lastRecords.ofGroups);
}

int Posix_Getgrnam_r(const char *name, group *record, char *buffer, size_t size, group **result) {
  return GetByName(getgrnam_r, name, record, buffer, size, result);
}

int Posix_Getgrouplist(const char *user, gid_t group, gid_t *groups, int *count) {
  if (user == nullptr) {
    errno = EFAULT;
    return JustTheGroup(group, groups, count);
  }
  const PosixText bytes(user);
  return bytes ? getgrouplist(bytes.Bytes(), group, groups, count) : JustTheGroup(group, groups, count);
}

FILE *Posix_Setmntent(const char *path, const char *mode) {
  ASSERT(mode != nullptr);
  return PosixCall(setmntent, path, mode);
}

mntent *Posix_Getmntent(FILE *stream) {
  return KeepRecord(getmntent(stream), &lastRecords.ofMounts);
}

mntent *Posix_Getmntent_r(FILE *stream, mntent *record, char *buffer, int size) {
  OwnedString texts;
  if (!ReadMount(stream, record, &texts)) {
    return nullptr;
  }
  const int error = PlaceRecord(record, buffer, static_cast<size_t>(std::max(size, 0)));
  if (error != 0) {
    errno = error;
    return nullptr;
  }
  return record;
}
