#include "idLinux.h"

#include <sys/syscall.h>
#include <unistd.h>

#include "panicUser.h"

namespace {

constexpr auto kNobody = static_cast<uid_t>(-1);

// The system calls themselves, since the C library's functions change all threads.
#ifdef SYS_setresuid32
constexpr long kSetEffectiveUser = SYS_setresuid32;
constexpr long kSetUser = SYS_setuid32;
constexpr long kSetGroup = SYS_setgid32;
#else
constexpr long kSetEffectiveUser = SYS_setresuid;
constexpr long kSetUser = SYS_setuid;
constexpr long kSetGroup = SYS_setgid;
#endif

void SetEffectiveUser(uid_t user) {
  syscall(kSetEffectiveUser, kNobody, user, kNobody);
}

}  // namespace

uid_t Id_BeginSuperUser() {
  const uid_t user = geteuid();
  if (user == 0) {
    return kNobody;
  }
  if (user == kNobody) {
    NOT_IMPLEMENTED();
  }
  SetEffectiveUser(0);
  return user;
}

void Id_EndSuperUser(uid_t user) {
  if (user == kNobody || user == geteuid()) {
    return;
  }
  ASSERT(user != 0);
  SetEffectiveUser(user);
}

int Id_SetUid(uid_t user) {
  return static_cast<int>(syscall(kSetUser, user));
}

int Id_SetGid(gid_t group) {
  return static_cast<int>(syscall(kSetGroup, group));
}
