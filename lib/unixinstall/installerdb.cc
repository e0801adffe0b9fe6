#include "installerdb.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include "file.h"
#include "fileIO.h"
#include "formatInt.h"
#include "grep.h"
#include "hashTable.h"
#include "installerdbInt.h"
#include "strutil.h"
#include "util_misc.h"

namespace {

constexpr uint32_t kBuckets = 4096;

// The replayed journal, from InstallerDB_Init to InstallerDB_DeInit.
struct Journal {
  Journal() { FileIO_Invalidate(&file); }

  FileIODescriptor file;         // at its end
  HashTable *files = nullptr;    // path to its time, an int64_t, or to null
  HashTable *answers = nullptr;  // key to value, or to null
  // What the tables' keys point into. A text stays when its key is removed: a change of mind is rare, and the
  // journal keeps both lines as well.
  std::vector<OwnedString> texts;
};
Journal journal;

int64_t *NewTime(int64_t seconds) {
  auto *time = static_cast<int64_t *>(Util_SafeMalloc(sizeof(int64_t)));
  *time = seconds;
  return time;
}

// Puts a value under a key, which points into `text`. Takes the value, from malloc, and the text over; both
// are freed when the key is there already.
bool Insert(HashTable *table, const char *key, void *value, OwnedString text) {
  if (!HashTable_Insert(table, key, value)) {
    free(value);
    return false;
  }
  journal.texts.push_back(std::move(text));
  return true;
}

// What stands behind the prefix, or null when the line has another one.
char *Argument(char *line, std::string_view prefix) {
  return std::string_view(line).starts_with(prefix) ? line + prefix.size() : nullptr;
}

// The next token of a blank-separated list, ended by a NUL, or null when there is none. Moves `*rest` behind
// it.
char *NextToken(char **rest) {
  char *token = *rest;
  while (*token == ' ') {
    token++;
  }
  if (*token == '\0') {
    return nullptr;
  }
  char *end = strchrnul(token, ' ');
  *rest = *end == '\0' ? end : end + 1;
  *end = '\0';
  return token;
}

void ReplayFile(char *argument, OwnedString line) {
  const char *path = NextToken(&argument);
  if (!path) {
    return;
  }
  const char *time = NextToken(&argument);
  Insert(journal.files, path, time ? NewTime(strtoll(time, nullptr, 10)) : nullptr, std::move(line));
}

void ReplayAnswer(char *argument, OwnedString line) {
  const char *key = NextToken(&argument);
  if (!key) {
    return;
  }
  Insert(journal.answers, key, Util_SafeStrdup(NextToken(&argument)), std::move(line));
}

// The fields of a line that adds end at a blank; the one field of a line that removes is all of its rest.
void Replay(OwnedString line) {
  char *text = line.get();
  if (char *file = Argument(text, "file ")) {
    ReplayFile(file, std::move(line));
  } else if (const char *removedFile = Argument(text, "remove_file ")) {
    HashTable_Delete(journal.files, removedFile);
  } else if (char *answer = Argument(text, "answer ")) {
    ReplayAnswer(answer, std::move(line));
  } else if (const char *removedAnswer = Argument(text, "remove_answer ")) {
    HashTable_Delete(journal.answers, removedAnswer);
  }
}

// Leaves the file open at its end, or closed.
bool OpenJournal(const char *path, bool readOnly) {
  const uint32_t access =
      readOnly ? FILEIO_ACCESS_READ : FILEIO_ACCESS_READ | FILEIO_ACCESS_WRITE | FILEIO_ACCESS_LOCK;
  if (FileIO_Open(&journal.file, path, access, FILEIO_OPEN) != FILEIO_SUCCESS) {
    fprintf(stderr, "Couldn't open %s! Failure!\n", path);
    return false;
  }
  if (FileIO_Seek(&journal.file, 0, FILEIO_SEEK_END) < 0) {
    FileIO_Close(&journal.file);
    return false;
  }
  return true;
}

bool ReplayJournal(const char *path) {
  const std::unique_ptr<char *, Releaser<free>> lines(Grep_ReadLines(path, "\n"));
  journal.files = HashTable_Alloc(kBuckets, HASH_STRING_KEY, free);
  journal.answers = HashTable_Alloc(kBuckets, HASH_STRING_KEY, free);
  if (!lines) {
    FileIO_Close(&journal.file);
    return false;
  }
  for (char **line = lines.get(); *line; ++line) {
    Replay(OwnedString(*line));
  }
  return true;
}

bool HaveTables() {
  return journal.files && journal.answers;
}

// Whether what stands before the position lacks the newline at its end. Leaves the position as it is.
bool BreaksOff(int64_t position) {
  char last = '\n';
  return pread(journal.file.posix, &last, 1, position - 1) == 1 && last != '\n';
}

// Appends one whole line. Half a line, as a full disk leaves it, is taken back: the next line would be lost
// in it. Half a line that stands there already gets its end, for the same reason.
bool Append(const OwnedString &line) {
  const int64_t end = FileIO_Seek(&journal.file, 0, FILEIO_SEEK_CURRENT);
  const OwnedString text = EngineFormat("%s%s", BreaksOff(end) ? "\n" : "", line.get());
  size_t written = 0;
  if (FileIO_Write(&journal.file, text.get(), strlen(text.get()), &written) == FILEIO_SUCCESS) {
    return true;
  }
  if (written > 0 && ftruncate(journal.file.posix, end) == 0) {
    FileIO_Seek(&journal.file, end, FILEIO_SEEK_BEGIN);
  }
  return false;
}

}  // namespace

bool InstallerDB_Init(const char *directory, bool readOnly) {
  if (FileIO_IsValid(&journal.file) && HaveTables()) {
    return true;
  }
  const OwnedString path = EngineFormat("%s/locations", directory);
  if (!FileIO_IsValid(&journal.file) && !OpenJournal(path.get(), readOnly)) {
    return false;
  }
  if (!HaveTables() && !ReplayJournal(path.get())) {
    return false;
  }
  InstallerDBSetMarker();
  if (!InstallerDB_HasRequiredAnswers()) {
    InstallerDB_DeInit();
    return false;
  }
  return true;
}

void InstallerDB_DeInit() {
  HashTable_Free(std::exchange(journal.files, nullptr));
  HashTable_Free(std::exchange(journal.answers, nullptr));
  journal.texts.clear();
  if (FileIO_IsValid(&journal.file)) {
    FileIO_Close(&journal.file);
  }
  InstallerDBClearMarker();
}

const char *InstallerDB_GetAnswer(const char *key) {
  ASSERT(InstallerDB_IsInitialized());
  void *value = nullptr;
  HashTable_Lookup(journal.answers, key, &value);
  return static_cast<const char *>(value);
}

const char *InstallerDB_GetBinDir() {
  return InstallerDB_GetAnswer("BINDIR");
}

const char *InstallerDB_GetLibDir() {
  return InstallerDB_GetAnswer("LIBDIR");
}

const char *InstallerDB_GetInitScriptsDir() {
  return InstallerDB_GetAnswer("INITSCRIPTSDIR");
}

bool InstallerDB_SetAnswer(char *key, char *value) {
  OwnedString ownedKey(key);
  OwnedString ownedValue(value);
  const OwnedString line = EngineFormat("answer %s %s\n", key, value);
  if (InstallerDB_GetAnswer(key)) {
    InstallerDB_RemoveAnswer(key);
  }
  return Append(line) && Insert(journal.answers, key, ownedValue.release(), std::move(ownedKey));
}

bool InstallerDB_RemoveAnswer(const char *key) {
  ASSERT(InstallerDB_IsInitialized());
  return HashTable_Delete(journal.answers, key) && Append(EngineFormat("remove_answer %s\n", key));
}

bool InstallerDB_IsFileKnown(const char *path) {
  ASSERT(InstallerDB_IsInitialized());
  return HashTable_Lookup(journal.files, path, nullptr);
}

bool InstallerDB_AddFile(const char *path, unsigned flags) {
  if (InstallerDB_IsFileKnown(path)) {
    InstallerDB_RemoveFile(path);
  }
  int64_t *time = nullptr;
  OwnedString line = EngineFormat("file %s\n", path);
  if (flags & INSTALLERDB_TIMESTAMP) {
    const int64_t seconds = File_GetModTime(path);
    if (seconds == -1) {
      return false;
    }
    time = NewTime(seconds);
    line = EngineFormat("file %s %lld\n", path, static_cast<long long>(seconds));
  }
  OwnedString key(Util_SafeStrdup(path));
  const char *keyText = key.get();
  return Insert(journal.files, keyText, time, std::move(key)) && Append(line);
}

bool InstallerDB_RemoveFile(const char *path) {
  ASSERT(InstallerDB_IsInitialized());
  return HashTable_Delete(journal.files, path) && Append(EngineFormat("remove_file %s\n", path));
}
