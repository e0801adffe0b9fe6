#include "dynbuf.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "panicUser.h"

namespace {

constexpr size_t kFirstSize = 1024;
// Growth doubles below this size and adds this much from there on.
constexpr size_t kLinearFrom = 0x40000;

size_t DynBufNextSize(size_t allocated) {
  if (allocated == 0) {
    return kFirstSize;
  }
  return allocated < kLinearFrom ? allocated * 2 : allocated + kLinearFrom;
}

}  // namespace

void DynBuf_Init(DynBuf *buf) {
  *buf = DynBuf{};
}

void DynBuf_Destroy(DynBuf *buf) {
  free(buf->data);
  DynBuf_Init(buf);
}

void DynBuf_Attach(DynBuf *buf, size_t size, void *data) {
  free(buf->data);
  *buf = DynBuf{static_cast<char *>(data), size, size};
}

void *DynBuf_Detach(DynBuf *buf) {
  void *data = buf->data;
  buf->data = nullptr;
  buf->allocated = 0;
  return data;
}

void *DynBuf_AllocGet(const DynBuf *buf) {
  auto *copy = static_cast<char *>(malloc(buf->size + 1));
  if (copy == nullptr) {
    return nullptr;
  }
  if (buf->size != 0) {
    memcpy(copy, buf->data, buf->size);
  }
  copy[buf->size] = '\0';
  return copy;
}

bool DynBuf_Copy(const DynBuf *src, DynBuf *dest) {
  return DynBuf_Append(dest, src->data, src->size);
}

bool DynBuf_Realloc(DynBuf *buf, size_t newSize) {
  if (newSize == 0) {
    free(buf->data);
    buf->data = nullptr;
    buf->allocated = 0;
    return true;
  }
  auto *data = static_cast<char *>(realloc(buf->data, newSize));
  if (data == nullptr) {
    return false;
  }
  buf->data = data;
  buf->allocated = newSize;
  return true;
}

bool DynBuf_Enlarge(DynBuf *buf, size_t minSize) {
  return DynBuf_Realloc(buf, std::max(DynBufNextSize(buf->allocated), minSize));
}

bool DynBuf_Trim(DynBuf *buf) {
  return DynBuf_Realloc(buf, buf->size);
}

void DynBufSafeAppendInt(DynBuf *buf, const void *data, size_t size, const char *file, unsigned line) {
  if (!DynBuf_Append(buf, data, size)) {
    Panic("Unrecoverable memory allocation failure at %s:%u\n", file, line);
  }
}
