// A growable byte buffer.
#ifndef OST_PUBLIC_DYNBUF_H
#define OST_PUBLIC_DYNBUF_H

#include <cstddef>
#include <cstring>

struct DynBuf {
  char *data;        // owned
  size_t size;       // bytes used
  size_t allocated;  // bytes owned
};

void DynBuf_Init(DynBuf *buf);
void DynBuf_Destroy(DynBuf *buf);
// Takes over `data`, a malloc'ed block of `size` bytes; what the buffer held is freed.
void DynBuf_Attach(DynBuf *buf, size_t size, void *data);
// Hands the block over to the caller (free); data and allocated are 0 afterwards. The size is wanted to stay,
// so DynBuf_Init comes before another use.
void *DynBuf_Detach(DynBuf *buf);
// A new block (free) with the content and one NUL behind it, or null.
void *DynBuf_AllocGet(const DynBuf *buf);
// Appends the content of `src` to `dest`. Returns false when memory is out.
bool DynBuf_Copy(const DynBuf *src, DynBuf *dest);
// Sets the exact allocation; 0 frees the block. On failure the old block stands and the result is false.
bool DynBuf_Realloc(DynBuf *buf, size_t newSize);
// Grows geometrically up to 256 KiB, then by 256 KiB, and to at least `minSize`.
bool DynBuf_Enlarge(DynBuf *buf, size_t minSize);
// Gives back what is allocated beyond the content.
bool DynBuf_Trim(DynBuf *buf);
// Appends `size` bytes; 0 bytes succeed without a look at `data`. Returns false when memory is out.
inline bool DynBuf_Append(DynBuf *buf, const void *data, size_t size) {
  if (size == 0) {
    return true;
  }
  const size_t newSize = buf->size + size;
  if (newSize < size || (newSize > buf->allocated && !DynBuf_Enlarge(buf, newSize))) {
    return false;
  }
  if (size == 1) {
    // Bytes come one by one often enough to spare them the call.
    buf->data[buf->size] = *static_cast<const char *>(data);
  } else {
    memcpy(buf->data + buf->size, data, size);
  }
  buf->size = newSize;
  return true;
}
void DynBufSafeAppendInt(DynBuf *buf, const void *data, size_t size, const char *file, unsigned line);
// The same, but a failure stops the program.
#define DynBuf_SafeAppend(buf, data, size) DynBufSafeAppendInt(buf, data, size, __FILE__, __LINE__)

#endif
