// Copies between a flat buffer and the entries of an I/O vector, in order, until either runs out.
//
// An entry that is looked at and has a base of 0 or 0xF0F0 stops the program.
#ifndef OST_PUBLIC_IOVECTOR_H
#define OST_PUBLIC_IOVECTOR_H

#include <sys/uio.h>

#include <cstddef>

// Copy at most `size` bytes, and `count` entries.
void IOV_WriteBufToIov(const void *buf, size_t size, const struct iovec *iov, int count);
void IOV_WriteIovToBuf(const struct iovec *iov, int count, void *buf, size_t size);

// Finds the entry that holds the byte at `offset` of the vector.
//
// entryOffset  gets the byte's offset within its entry; left alone when there is none
//
// Returns the entry's index, or `count`, with a line in the log, when the offset is past the end.
int IOV_FindEntry(const struct iovec *iov, int count, size_t offset, size_t *entryOffset);

#endif
