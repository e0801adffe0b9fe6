// The line reader.
#ifndef OST_PUBLIC_OSTDIO_H
#define OST_PUBLIC_OSTDIO_H

#include <cstddef>
#include <cstdio>

enum StdIO_Status {
  StdIO_Error = 0,  // errno tells: E2BIG a line beyond the limit, ENOMEM, or a read error
  StdIO_EOF = 1,    // end of file with nothing read
  StdIO_Success = 2,
};

// Reads one line, which ends at a line feed, a carriage return, or both in this order.
//
// stream        open for reading
// buf           gets a new NUL-terminated string (free) on success, null otherwise
// maxBufLength  the most bytes a line may need, tested when the buffer grows; 0 for no limit
// count         if not null, gets the length in bytes without the NUL; set on success alone
StdIO_Status StdIO_ReadNextLine(FILE *stream, char **buf, size_t maxBufLength, size_t *count);

#endif
