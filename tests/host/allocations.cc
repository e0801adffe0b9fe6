#include "allocations.h"

#include <cerrno>
#include <cstdlib>
#include <limits>

namespace {

constexpr size_t kNever = std::numeric_limits<size_t>::max();

// One record per thread, from the thread's start to its end.
thread_local struct {
  size_t made = 0;
  size_t failing = kNever;  // the value of `made` at which the next allocation fails
} allocations;

bool Fails() {
  if (allocations.made++ != allocations.failing) {
    return false;
  }
  errno = ENOMEM;
  return true;
}

}  // namespace

// A test program is linked so that its calls of these functions come here, and the __real_ ones are theirs.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real_realloc(void *block, size_t size);
char *__real_strdup(const char *text);
char *__real_strndup(const char *text, size_t length);

void *__wrap_malloc(size_t size) {
  return Fails() ? nullptr : __real_malloc(size);
}

void *__wrap_calloc(size_t count, size_t size) {
  return Fails() ? nullptr : __real_calloc(count, size);
}

void *__wrap_realloc(void *block, size_t size) {
  return Fails() ? nullptr : __real_realloc(block, size);
}

char *__wrap_strdup(const char *text) {
  return Fails() ? nullptr : __real_strdup(text);
}

char *__wrap_strndup(const char *text, size_t length) {
  return Fails() ? nullptr : __real_strndup(text, length);
}
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)

namespace testhost {

size_t CountAllocations(const std::function<void()> &body) {
  const size_t before = allocations.made;
  body();
  return allocations.made - before;
}

AllocationFault::AllocationFault(size_t nth) {
  allocations.failing = allocations.made + nth;
}

AllocationFault::~AllocationFault() {
  allocations.failing = kNever;
}

bool AllocationFault::Happened() const {
  return allocations.made > allocations.failing;
}

}  // namespace testhost
