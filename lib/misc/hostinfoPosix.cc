#include "hostinfoPosix.h"

#include <netdb.h>
#include <sys/utsname.h>

#include "unicode.h"

namespace {

// What a name is looked up as at most.
constexpr size_t kHostEntrySize = 1024;

// The bytes of a host's name as a new string.
char *NewHostName(const char *bytes) {
  return const_cast<char *>(Unicode_Alloc(bytes, STRING_ENCODING_US_ASCII));
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
