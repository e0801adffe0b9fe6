#include "machineID.h"

#include <net/if.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <optional>

#include "err.h"
#include "hostinfoPosix.h"
#include "log.h"
#include "owned.h"
#include "panicUser.h"
#include "str.h"

namespace {

constexpr unsigned kInterfaces = 8;
constexpr size_t kAddressSize = 6;

struct MachineIdentity {
  uint32_t hostNameHash;
  uint64_t hardwareID;
};

// Looked up by the first question, while others wait, and kept for the process's life.
struct {
  std::mutex guard;
  std::optional<MachineIdentity> identity;
} known;

// A fork waits too. No thread of the child would give the guard back.
const int forksWait =
    pthread_atfork([] { known.guard.lock(); }, [] { known.guard.unlock(); }, [] { known.guard.unlock(); });

uint32_t HashHostName() {
  const OwnedString name(Hostinfo_HostName());
  if (name == nullptr) {
    Warning("%s Hostinfo_HostName failure; providing default.\n", "Hostinfo_MachineID");
    return 0;
  }
  uint32_t hash = 5381;
  for (const char *byte = name.get(); *byte != '\0'; byte++) {
    hash = hash * 33 + static_cast<unsigned char>(*byte);
  }
  return hash;
}

// Asks for the hardware address of an interface. Returns an error number, or 0.
int HardwareAddress(unsigned number, uint64_t *address) {
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  if (fd == -1) {
    return errno;
  }
  ifreq request = {};
  Str_Snprintf(request.ifr_name, sizeof request.ifr_name, "eth%u", number);
  const int error = ioctl(fd, SIOCGIFHWADDR, &request) == -1 ? errno : 0;
  close(fd);
  if (error == 0) {
    memcpy(address, request.ifr_hwaddr.sa_data, kAddressSize);
  }
  return error;
}

// The address of the first interface that exists; 0 when none does. Returns an error number, or 0.
int ObtainHardwareID(uint64_t *hardwareID) {
  *hardwareID = 0;
  for (unsigned number = 0; number < kInterfaces; number++) {
    const int error = HardwareAddress(number, hardwareID);
    if (error == 0) {
      return 0;
    }
    if (error != ENODEV) {
      Warning("%s unexpected failure: %d.\n", __func__, error);
      return error;
    }
  }
  return 0;
}

MachineIdentity LookUpIdentity() {
  MachineIdentity identity = {HashHostName(), 0};
  const int error = ObtainHardwareID(&identity.hardwareID);
  if (error != 0) {
    Warning("%s ObtainHardwareID failure (%s); providing default.\n", "Hostinfo_MachineID",
            Err_Errno2String(error));
  }
  return identity;
}

}  // namespace

void Hostinfo_MachineID(uint32_t *hostNameHash, uint64_t *hardwareID) {
  ASSERT_MEM_ALLOC(forksWait == 0);
  const std::lock_guard<std::mutex> locked(known.guard);
  if (!known.identity) {
    known.identity = LookUpIdentity();
  }
  *hostNameHash = known.identity->hostNameHash;
  *hardwareID = known.identity->hardwareID;
}
