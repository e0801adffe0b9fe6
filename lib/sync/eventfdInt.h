// Event descriptors on kernels of any age. The C library's calls know just the newest way.
#ifndef OST_SYNC_EVENTFDINT_H
#define OST_SYNC_EVENTFDINT_H

#include <cstdint>

namespace sync_kernel {

// Makes an event descriptor. What the kernel has is found once for the process.
//
// count  readable from the beginning unless 0
// flags  O_NONBLOCK, O_CLOEXEC, or 0
//
// Returns -1 with errno: ENOSYS when the kernel has none, EINVAL when it has none with flags.
int eventfd(unsigned count, int flags);
// Adds `value` to an event descriptor. Returns 0, or -1 with errno: EINVAL for a part of the eight bytes.
int eventfd_write(int fd, uint64_t value);

}  // namespace sync_kernel

#endif
