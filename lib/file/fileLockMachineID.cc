#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "base64.h"
#include "fileLockInt.h"
#include "log.h"
#include "machineID.h"
#include "panicUser.h"

namespace {

constexpr size_t kRawMachineID = 12;
constexpr size_t kHardwareIDOffset = 4;

// The identity in its written form, as a new string.
char *MakeMachineID() {
  uint32_t hostNameHash = 0;
  uint64_t hardwareID = 0;
  Hostinfo_MachineID(&hostNameHash, &hardwareID);
  uint8_t raw[kRawMachineID];
  memcpy(raw, &hostNameHash, kHardwareIDOffset);
  memcpy(raw + kHardwareIDOffset, &hardwareID, sizeof hardwareID);
  char *text = nullptr;
  ASSERT_MEM_ALLOC(Base64_EasyEncode(raw, sizeof raw, &text));
  std::replace(text, text + strlen(text), '/', '-');
  return text;
}

bool DecodeMachineID(std::string text, uint8_t raw[kRawMachineID]) {
  std::replace(text.begin(), text.end(), '-', '/');
  size_t length = 0;
  return Base64_Decode(text.c_str(), raw, kRawMachineID, &length) && length == kRawMachineID;
}

// Whether two identities share their hardware, whatever the host is called now.
bool OldMachineIDMatch(const char *secondMachineID) {
  uint8_t first[kRawMachineID];
  uint8_t second[kRawMachineID];
  if (!DecodeMachineID(FileLockGetMachineID(), first)) {
    Warning("%s: unexpected decode problem #1 (%s)\n", __func__, FileLockGetMachineID());
    return false;
  }
  if (!DecodeMachineID(secondMachineID, second)) {
    Warning("%s: unexpected decode problem #2 (%s)\n", __func__, secondMachineID);
    return false;
  }
  return memcmp(first + kHardwareIDOffset, second + kHardwareIDOffset, kRawMachineID - kHardwareIDOffset) ==
         0;
}

}  // namespace

const char *FileLockGetMachineID() {
  // Made by the first question and kept.
  static std::atomic<char *> machineID;
  if (machineID == nullptr) {
    char *made = MakeMachineID();
    char *none = nullptr;
    if (!machineID.compare_exchange_strong(none, made)) {
      free(made);
    }
  }
  return machineID;
}

bool FileLockMachineIDMatch(const char *hostMachineID, const char *secondMachineID) {
  constexpr std::string_view kPrefix = "uuid=";
  const std::string_view host(hostMachineID);
  const std::string_view second(secondMachineID);
  if (host.starts_with(kPrefix) && !second.starts_with(kPrefix)) {
    return OldMachineIDMatch(secondMachineID);
  }
  return host == second;
}
