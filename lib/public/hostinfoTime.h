// The host's clocks, all in microseconds.
#ifndef OST_PUBLIC_HOSTINFOTIME_H
#define OST_PUBLIC_HOSTINFOTIME_H

#include <cstdint>

// The time since 1970, which goes back when somebody sets the host's clock back. 0, with a line in the log,
// when the system doesn't tell.
uint64_t Hostinfo_RawSystemTimerUS();
// The same; nothing is checked.
void Hostinfo_GetTimeOfDay(int64_t *result);

// A clock that never goes backward: when the host's clock has been set back, it steps by 1 and runs on from
// there. 0 when the system doesn't tell. Safe in every thread, and across all of them; a lock for that which
// can't be made or waited for stops the program.
int64_t Hostinfo_SystemTimerUS();

// The time since the host was started. 0, with a warning, when the system doesn't tell. Safe in every thread.
// It keeps /proc/uptime open; where that descriptor has gone it opens the file each time.
uint64_t Hostinfo_SystemUpTime();

#endif
