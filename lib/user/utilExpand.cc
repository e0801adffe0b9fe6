#include <pwd.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "log.h"
#include "msg.h"
#include "panicUser.h"
#include "posixPosix.h"
#include "str.h"
#include "util.h"
#include "util_misc.h"

namespace {

constexpr size_t kMaxChunks = 100;
// No user has a longer name, and what the C library asks for users may end the program that comes with one of
// megabytes.
constexpr size_t kMaxUserName = 4096;
// What the name of a variable consists of, whatever the locale takes for a letter.
constexpr std::string_view kNameBytes = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_";

size_t UtilChunkLength(std::string_view text, bool first) {
  if (text.front() == '$') {
    return std::min(text.find_first_not_of(kNameBytes, 1), text.size());
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
  const struct passwd *entry = strlen(user) > kMaxUserName ? nullptr : Posix_Getpwnam(user);
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
