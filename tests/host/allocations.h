// Memory that runs out at a chosen moment.
//
//   const auto encode = [] { return OwnedString(Str_Asprintf(nullptr, "%d", 1)) != nullptr; };
//   const size_t count = testhost::CountAllocations(encode);
//   for (size_t i = 0; i < count; i++) {
//     const testhost::AllocationFault fault(i);
//     EXPECT_FALSE(encode()) << i;
//   }
//
// It sees what our own code allocates with malloc, calloc, realloc, strdup and strndup. What shared libraries
// allocate for themselves, and C++'s new, goes on as ever.
#ifndef OST_TESTS_HOST_ALLOCATIONS_H
#define OST_TESTS_HOST_ALLOCATIONS_H

#include <cstddef>
#include <functional>

namespace testhost {

// How many allocations `body` makes in this thread.
size_t CountAllocations(const std::function<void()> &body);

// While it lives, one allocation in this thread fails with ENOMEM. One at a time.
class AllocationFault {
 public:
  // nth  how many allocations still succeed before the one that fails
  explicit AllocationFault(size_t nth);
  ~AllocationFault();
  AllocationFault(const AllocationFault &) = delete;
  AllocationFault &operator=(const AllocationFault &) = delete;

  // Whether the failing allocation was reached.
  [[nodiscard]] bool Happened() const;
};

}  // namespace testhost

#endif
