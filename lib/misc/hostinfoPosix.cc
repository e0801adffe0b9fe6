#include "hostinfoPosix.h"

#include <netdb.h>
#include <pwd.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>

#include "err.h"
#include "hostinfoOs.h"
#include "idLinux.h"
#include "log.h"
#include "owned.h"
#include "panicUser.h"
#include "posixPosix.h"
#include "unicode.h"
#include "util_misc.h"

namespace {

// What a name is looked up as at most.
constexpr size_t kHostEntrySize = 1024;
constexpr size_t kUserEntrySize = 8192;

// Null until a thread has found a name; the first one's stays until the process ends.
std::atomic<const char *> hostName;

// The bytes of a host's name as a new string.
char *NewHostName(const char *bytes) {
  return const_cast<char *>(Unicode_Alloc(bytes, STRING_ENCODING_US_ASCII));
}

// The path of the running program, a new string (free). Null with errno, which no change of user disturbs.
char *ReadModulePath(unsigned privilege) {
  constexpr char kLink[] = "/proc/self/exe";
  if (privilege == HOSTINFO_MODULE_PATH_AS_SELF) {
    return Posix_ReadLink(kLink);
  }
  const uid_t user = Id_BeginSuperUser();
  char *path = Posix_ReadLink(kLink);
  const int error = errno;
  Id_EndSuperUser(user);
  errno = error;
  return path;
}

}  // namespace

char *Hostinfo_HostName() {
  utsname names;
  if (uname(&names) != 0 || names.nodename[0] == '\0') {
    return nullptr;
  }
  char buffer[kHostEntrySize];
  hostent host;
  hostent *found = nullptr;
  int error = 0;
  if (gethostbyname_r(names.nodename, &host, buffer, sizeof buffer, &found, &error) == 0 &&
      found != nullptr && found->h_name != nullptr) {
    return NewHostName(found->h_name);
  }
  return NewHostName(names.nodename);
}

const char *Hostinfo_NameGet() {
  const char *name = hostName.load(std::memory_order_acquire);
  if (name != nullptr) {
    return name;
  }
  OwnedString found(Hostinfo_HostName());
  if (found == nullptr || !hostName.compare_exchange_strong(name, found.get(), std::memory_order_acq_rel)) {
    return name;
  }
  return found.release();
}

char *Hostinfo_GetUser() {
  char buffer[kUserEntrySize];
  passwd entry;
  passwd *found = nullptr;
  if (Posix_Getpwuid_r(getuid(), &entry, buffer, sizeof buffer, &found) == 0 && found != nullptr &&
      found->pw_name != nullptr) {
    return Util_SafeStrdup(found->pw_name);
  }
  return Util_SafeStrdup(Posix_Getenv("USER"));
}

char *Hostinfo_GetModulePath(unsigned privilege) {
  if (privilege != HOSTINFO_MODULE_PATH_AS_ROOT && privilege != HOSTINFO_MODULE_PATH_AS_SELF) {
    Warning("%s: invalid privilege parameter\n", __func__);
    return nullptr;
  }
  // Each number is looked at alone, so that 3.1 is refused: this is wanted.
  ASSERT(Hostinfo_OSVersion(0) > 1 && Hostinfo_OSVersion(1) > 1);
  char *path = ReadModulePath(privilege);
  if (path == nullptr) {
    Warning("HOSTINFO: %s: readlink failed: %s\n", __func__, Err_ErrString());
  }
  return path;
}
