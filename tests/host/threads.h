// A crowd of threads that begin together, so that they meet.
#ifndef OST_TESTS_HOST_THREADS_H
#define OST_TESTS_HOST_THREADS_H

#include <barrier>
#include <cstddef>
#include <thread>
#include <vector>

namespace testhost {

inline constexpr size_t kThreads = 8;

// Calls `function` with each number below kThreads, in a thread of its own, and waits for all.
template <typename Function>
void OnEightThreads(Function function) {
  std::barrier start(kThreads);
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (size_t number = 0; number < kThreads; number++) {
    threads.emplace_back([&start, &function, number] {
      start.arrive_and_wait();
      function(number);
    });
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
}

}  // namespace testhost

#endif
