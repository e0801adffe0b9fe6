#include "idLinux.h"

#include <sys/syscall.h>
#include <unistd.h>

#include "panicUser.h"

namespace {

constexpr auto kNobody = static_cast<uid_t>(-1);

// Without the C library's change of all threads.
void SetEffectiveUser(uid_t user) {
#ifdef SYS_setresuid32
  constexpr long kCall = SYS_setresuid32;
#else
  constexpr long kCall = SYS_setresuid;
#endif
  syscall(kCall, kNobody, user, kNobody);
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
