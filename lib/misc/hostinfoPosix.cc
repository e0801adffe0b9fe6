#include "hostinfoPosix.h"

#include <netdb.h>
#include <sys/utsname.h>

#include "util_misc.h"

char *Hostinfo_HostName() {
  utsname names;
  if (uname(&names) != 0 || names.nodename[0] == '\0') {
    return nullptr;
  }
  char buffer[1024];
  hostent host;
  hostent *found = nullptr;
  int error = 0;
  if (gethostbyname_r(names.nodename, &host, buffer, sizeof buffer, &found, &error) == 0 &&
      found != nullptr && found->h_name != nullptr) {
    return Util_SafeStrdup(found->h_name);
  }
  return Util_SafeStrdup(names.nodename);
}
