#include "util.h"

#include <pwd.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>
#include <unwind.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "file.h"
#include "log.h"
#include "msg.h"
#include "owned.h"
#include "panicUser.h"
#include "posixPosix.h"
#include "random.h"
#include "str.h"
#include "strutil.h"
#include "util_misc.h"

namespace {

constexpr size_t kMaxChunks = 100;
constexpr char kProductPrefix[] = "ostrel";
constexpr int kMaxRandomNames = 251;

constexpr unsigned kMaxFrames = 500;
constexpr unsigned kMaxInnerFrames = 10;

// The one safe directory of the process, made by the first request, tested again by each and replaced when it
// fails the test. Null until then.
char *safeTmpDir;

// --- Path expansion

size_t UtilNameLength(std::string_view text) {
  size_t length = 0;
  while (length < text.size() &&
         (isalnum(static_cast<unsigned char>(text[length])) != 0 || text[length] == '_')) {
    length++;
  }
  return length;
}

size_t UtilChunkLength(std::string_view text, bool first) {
  if (text.front() == '$') {
    return 1 + UtilNameLength(text.substr(1));
  }
  return std::min(text.find(first && text.front() == '~' ? '/' : '$'), text.size());
}

// Cuts a file name into texts, "$NAME"s and a leading "~user".
std::vector<std::string> UtilCutChunks(std::string_view fileName) {
  std::vector<std::string> chunks;
  while (!fileName.empty()) {
    const size_t length = UtilChunkLength(fileName, chunks.empty());
    chunks.emplace_back(fileName.substr(0, length));
    fileName.remove_prefix(length);
  }
  return chunks;
}

// What "~" or "~user" stands for; the chunk itself when that can't be found.
std::string UtilExpandHome(const std::string &chunk) {
  if (chunk == "~") {
    const char *home = Posix_Getenv("HOME");
    if (home == nullptr) {
      Log("Could not expand environment variable HOME.\n");
      return chunk;
    }
    return home;
  }
  const char *user = chunk.c_str() + 1;
  const struct passwd *entry = Posix_Getpwnam(user);
  if (entry == nullptr) {
    Log("Could not get information for user '%s'.\n", user);
    return chunk;
  }
  return entry->pw_dir;
}

std::string UtilExpandVariable(const std::string &chunk, const char *fileName) {
  const char *name = chunk.c_str() + 1;
  if (name[0] == '\0') {
    return chunk;
  }
  const char *value = Posix_Getenv(name);
  if (value != nullptr) {
    return value;
  }
  if (strcasecmp(name, "PID") == 0) {
    char pid[16];
    Str_Snprintf(pid, sizeof pid, "%d", getpid());
    return pid;
  }
  if (strcasecmp(name, "USER") == 0) {
    const struct passwd *entry = Posix_Getpwuid(getuid());
    return entry == nullptr ? "unknown" : entry->pw_name;
  }
  Warning("Environment variable '%s' not defined in '%s'.\n", name, fileName);
  return {};
}

void UtilExpandChunks(std::vector<std::string> *chunks, const char *fileName) {
  for (size_t i = 0; i < chunks->size(); i++) {
    std::string &chunk = (*chunks)[i];
    if (i == 0 && chunk.front() == '~') {
      chunk = UtilExpandHome(chunk);
    } else if (chunk.front() == '$') {
      chunk = UtilExpandVariable(chunk, fileName);
    }
  }
}

// A new string (free), or null when memory is out.
char *UtilJoin(const std::vector<std::string> &chunks) {
  size_t length = 0;
  for (const std::string &chunk : chunks) {
    length += chunk.size();
  }
  auto *result = static_cast<char *>(malloc(length + 1));
  if (result == nullptr) {
    return nullptr;
  }
  char *end = result;
  for (const std::string &chunk : chunks) {
    memcpy(end, chunk.data(), chunk.size());
    end += chunk.size();
  }
  *end = '\0';
  return result;
}

// --- The safe temporary directory

bool UtilAcceptableSafeTmpDir(const char *path, uid_t userId) {
  if (Posix_Mkdir(path, 0700) == 0) {
    return true;
  }
  if (errno != EEXIST) {
    return false;
  }
  struct stat data {};
  if (Posix_Lstat(path, &data) == -1) {
    return false;
  }
  return S_ISDIR(data.st_mode) && data.st_uid == userId &&
         (data.st_mode & 07777 & ~static_cast<mode_t>(S_ISGID)) == 0700;
}

// A new string (free), or null with a warning.
char *UtilGetUserName(uid_t userId) {
  const long size = sysconf(_SC_GETPW_R_SIZE_MAX);
  if (size == -1) {
    Warning("%s: sysconf(_SC_GETPW_R_SIZE_MAX) failed.\n", __func__);
    return nullptr;
  }
  const OwnedString buffer(static_cast<char *>(malloc(static_cast<size_t>(size))));
  if (buffer == nullptr) {
    Warning("%s: Not enough memory.\n", __func__);
    return nullptr;
  }
  struct passwd entry {};
  struct passwd *found = nullptr;
  if (Posix_Getpwuid_r(userId, &entry, buffer.get(), static_cast<size_t>(size), &found) != 0 ||
      found == nullptr) {
    Warning("%s: Unable to retrieve the username associated with user ID %u.\n", __func__, userId);
    return nullptr;
  }
  return Util_SafeStrdup(entry.pw_name);
}

// The part of the directory's name that tells the user, a new string (free).
char *UtilGetUserPart(uid_t userId) {
  char *name = UtilGetUserName(userId);
  if (name != nullptr) {
    return name;
  }
  Warning("%s: UtilGetUserName failed, using numeric ID as username instead.\n", "Util_GetSafeTmpDir");
  return Str_SafeAsprintf(nullptr, "uid-%d", static_cast<int>(userId));
}

// The first acceptable "<base>/ostrel-<user>-..." that is already there, a new string (free), or null.
char *UtilFindListedSafeTmpDir(const char *base, const char *user, uid_t userId) {
  const OwnedString prefix(Str_SafeAsprintf(nullptr, "%s-%s-", kProductPrefix, user));
  char **names = nullptr;
  const int count = File_ListDirectory(base, &names);
  if (count < 0) {
    return nullptr;
  }
  OwnedString found;
  for (int i = 0; i < count && found == nullptr; i++) {
    if (!StrUtil_StartsWith(names[i], prefix.get())) {
      continue;
    }
    OwnedString path(Str_SafeAsprintf(nullptr, "%s/%s", base, names[i]));
    if (File_IsDirectory(path.get()) && UtilAcceptableSafeTmpDir(path.get(), userId)) {
      found = std::move(path);
    }
  }
  File_FreeNames(names, count);
  return found.release();
}

// A directory with a random name, a new string (free), or null with a warning.
char *UtilCreateSafeTmpDir(const char *base, const char *user, uid_t userId) {
  OwnedString path;
  for (int i = 0; i < kMaxRandomNames; i++) {
    uint32_t number = 0;
    if (!Random_Crypto(sizeof number, &number)) {
      Warning("%s: Call to Random_Crypto failed.\n", __func__);
      return nullptr;
    }
    path.reset(Str_SafeAsprintf(nullptr, "%s/%s-%s-%u", base, kProductPrefix, user, number));
    if (UtilAcceptableSafeTmpDir(path.get(), userId)) {
      return path.release();
    }
  }
  Warning(
      "%s: Failed to create a safe temporary directory, path \"%s\". The maximum number of attempts was "
      "exceeded.\n",
      __func__, path.get());
  return nullptr;
}

// A new string (free), or null with a warning.
char *UtilFindSafeTmpDir(bool useConf, uid_t userId) {
  const OwnedString base(File_GetTmpDir(useConf));
  if (base == nullptr) {
    Warning("%s: File_GetTmpDir failed.\n", "Util_GetSafeTmpDir");
    return nullptr;
  }
  const OwnedString user(UtilGetUserPart(userId));
  OwnedString path(Str_SafeAsprintf(nullptr, "%s/%s-%s", base.get(), kProductPrefix, user.get()));
  if (UtilAcceptableSafeTmpDir(path.get(), userId)) {
    return path.release();
  }
  path.reset(UtilFindListedSafeTmpDir(base.get(), user.get(), userId));
  if (path != nullptr) {
    return path.release();
  }
  return UtilCreateSafeTmpDir(base.get(), user.get(), userId);
}

// --- Back traces

struct BacktraceWalk {
  Util_OutputFn outFunc;
  void *outData;
  uintptr_t limit;  // frames go upward from here
  unsigned frames;  // written so far
  unsigned inner;   // passed over: the unwinder's own
};

// The processor's numbers of the registers that a call preserves.
enum : int { kRbx = 3, kRbp = 6, kR12 = 12, kR13 = 13, kR14 = 14, kR15 = 15 };

_Unwind_Reason_Code UtilBacktraceFrame(struct _Unwind_Context *context, void *data) {
  auto *walk = static_cast<BacktraceWalk *>(data);
  const uintptr_t frame = _Unwind_GetCFA(context);
  if (frame < walk->limit) {
    const bool mayPass = walk->frames == 0 && walk->inner < kMaxInnerFrames;
    walk->inner++;
    return mayPass ? _URC_NO_REASON : _URC_END_OF_STACK;
  }
  const auto value = [context](int number) {
    return static_cast<unsigned long>(_Unwind_GetGR(context, number));
  };
  walk->outFunc(walk->outData,
                "Backtrace[%u] %016lx rip=%016lx rbx=%016lx rbp=%016lx r12=%016lx r13=%016lx r14=%016lx "
                "r15=%016lx\n",
                walk->frames, static_cast<unsigned long>(frame),
                static_cast<unsigned long>(_Unwind_GetIP(context)), value(kRbx), value(kRbp), value(kR12),
                value(kR13), value(kR14), value(kR15));
  walk->limit = frame + sizeof(void *);
  walk->frames++;
  return walk->frames < kMaxFrames ? _URC_NO_REASON : _URC_END_OF_STACK;
}

void UtilOutputToLog(void * /*outData*/, const char *format, ...) __attribute__((format(printf, 2, 3)));
void UtilOutputToLog(void * /*outData*/, const char *format, ...) {
  char line[509];
  va_list args;
  va_start(args, format);
  Str_Vsnprintf(line, sizeof line, format, args);
  va_end(args);
  Log("%s%s", line, StrUtil_EndsWith(line, "\n") ? "" : "\n");
}

}  // namespace

char *Util_ExpandString(const char *fileName) {
  ASSERT(fileName != nullptr);
  if (fileName[0] != '~' && strchr(fileName, '$') == nullptr) {
    return Util_SafeStrdup(fileName);
  }
  std::vector<std::string> chunks = UtilCutChunks(fileName);
  if (chunks.size() > kMaxChunks) {
    Msg_Append(MSGID(util.expandStringTooManyChunks) "Filename \"%s\" has too many chunks.\n", fileName);
    return nullptr;
  }
  UtilExpandChunks(&chunks, fileName);
  char *result = UtilJoin(chunks);
  if (result == nullptr) {
    Msg_Append(MSGID(util.expandStringNoMemForResult) "Cannot allocate memory for the expansion of \"%s\".\n",
               fileName);
  }
  return result;
}

char *Util_GetSafeTmpDir(bool useConf) {
  const uid_t userId = geteuid();
  if (safeTmpDir == nullptr || !UtilAcceptableSafeTmpDir(safeTmpDir, userId)) {
    char *found = UtilFindSafeTmpDir(useConf, userId);
    if (found == nullptr) {
      return nullptr;
    }
    free(safeTmpDir);
    safeTmpDir = found;
  }
  return Util_SafeStrdup(safeTmpDir);
}

char *Util_DeriveFileName(const char *source, const char *name, const char *ext) {
  if (source == nullptr || (name == nullptr && ext == nullptr)) {
    Warning("invalid use of function\n");
    return nullptr;
  }
  char *directory = nullptr;
  char *base = nullptr;
  File_GetPathName(source, &directory, &base);
  const OwnedString ownedDirectory(directory);
  const OwnedString ownedBase(base);
  if (name == nullptr) {
    char *extension = strrchr(base, '.');
    if (extension != nullptr) {
      *extension = '\0';
    }
  }
  const char *stem = name == nullptr ? base : name;
  const bool isUnder = !File_IsFullPath(stem) && directory[0] != '\0' && strcmp(directory, ".") != 0;
  return Str_SafeAsprintf(nullptr, "%s%s%s%s%s", isUnder ? directory : "", isUnder ? "/" : "", stem,
                          ext == nullptr ? "" : ".", ext == nullptr ? "" : ext);
}

void Util_Backtrace(int bugNumber) {
  Util_BacktraceWithFunc(bugNumber, UtilOutputToLog, nullptr);
}

void Util_BacktraceWithFunc(int bugNumber, Util_OutputFn outFunc, void *outData) {
  if (bugNumber != 0) {
    outFunc(outData, "Backtrace for bugNr=%d\n", bugNumber);
  } else {
    outFunc(outData, "Backtrace:\n");
  }
  const auto here = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
  BacktraceWalk walk{outFunc, outData, here, 0, 0};
  _Unwind_Backtrace(UtilBacktraceFrame, &walk);
}
