// Which machine this is.
#ifndef OST_PUBLIC_MACHINEID_H
#define OST_PUBLIC_MACHINEID_H

#include <cstdint>

// The machine's identity, looked up once in the process.
//
// hostNameHash  gets a hash of the host's name, or 0 when it has none
// hardwareID    gets the hardware address of the first of "eth0" to "eth7", or 0 when there is none
void Hostinfo_MachineID(uint32_t *hostNameHash, uint64_t *hardwareID);

#endif
