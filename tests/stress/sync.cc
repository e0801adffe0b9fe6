// Crowds under one lock of the foundation, and the proof that no wake-up is lost: a wait that reaches its end
// of five seconds is one.
//
//   sync_stress [--crowd N] [--kind eventfd|pipe|named|processes] [--rounds N] [SECONDS]
//
// Each of the crowd takes the lock, counts, holds it for a random while, leaves it, and comes again after
// another. With --rounds each stops after its share of them. Prints what happened; the status is 0 when
// nothing was lost.
#include <getopt.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <new>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "syncMutex.h"
#include "systemCalls.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Options {
  size_t crowd = 8;
  std::string kind = "eventfd";
  uint64_t rounds = 0;  // no end but the time
  int seconds = 60;
};

// What the crowd shares, as threads or as processes.
struct Shared {
  SyncMutex mutex;
  uint64_t counter = 0;  // under the lock, and nothing else
  std::atomic<uint64_t> rounds = 0;
  std::atomic<uint64_t> waits = 0;
  std::atomic<uint64_t> timeOuts = 0;
  std::atomic<uint64_t> failures = 0;
  std::atomic<bool> stopping = false;
};
Shared *shared;

}  // namespace

// A stand-in for the C library's, which sees how each wait ends.
extern "C" int poll(pollfd *fds, nfds_t count, int timeOutMs) {
  const auto ready = static_cast<int>(syscall(SYS_poll, fds, count, timeOutMs));
  shared->waits++;
  shared->timeOuts += ready == 0 ? 1 : 0;
  return ready;
}

namespace {

// Mostly next to nothing, now and then so long that others must wait or run meanwhile.
void Linger(std::minstd_rand *random) {
  const unsigned choice = (*random)() % 256;
  if (choice == 0) {
    usleep(static_cast<useconds_t>((*random)() % 20));
  } else if (choice < 8) {
    sched_yield();
  } else {
    for (unsigned i = 0; i < choice / 4; i++) {
      std::atomic_signal_fence(std::memory_order_seq_cst);  // keeps the loop
    }
  }
}

void TakePart(unsigned seed, uint64_t rounds) {
  std::minstd_rand random(seed);
  for (uint64_t i = 0; i < rounds && !shared->stopping; i++) {
    if (!SyncMutex_Lock(&shared->mutex)) {
      shared->failures++;
      continue;
    }
    const uint64_t before = shared->counter;
    Linger(&random);
    shared->counter = before + 1;
    SyncMutex_Unlock(&shared->mutex);
    shared->rounds++;
    Linger(&random);
  }
}

Options ParseOptions(int argc, char **argv) {
  Options options;
  static const option names[] = {{"crowd", required_argument, nullptr, 'c'},
                                 {"kind", required_argument, nullptr, 'k'},
                                 {"rounds", required_argument, nullptr, 'r'},
                                 {nullptr, 0, nullptr, 0}};
  for (;;) {
    switch (getopt_long(argc, argv, "", names, nullptr)) {
      case 'c':
        options.crowd = std::stoul(optarg);
        break;
      case 'k':
        options.kind = optarg;
        break;
      case 'r':
        options.rounds = std::stoull(optarg);
        break;
      case -1:
        if (optind < argc) {
          options.seconds = std::stoi(argv[optind]);
        }
        return options;
      default:
        exit(2);
    }
  }
}

bool Make(const Options &options, const std::string &directory) {
  void *memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    return false;
  }
  shared = new (memory) Shared;
  if (options.kind == "pipe") {
    testhost::FailSystemCall(SYS_eventfd2, ENOSYS);
  }
  const bool isNamed = options.kind == "named" || options.kind == "processes";
  return SyncMutex_Init(&shared->mutex, isNamed ? (directory + "/lock").c_str() : nullptr) &&
         shared->mutex.queue.usesEventFd == (options.kind == "eventfd");
}

void StopLater(int seconds, const std::atomic<bool> *isOver) {
  const Clock::time_point end = Clock::now() + std::chrono::seconds(seconds);
  while (Clock::now() < end && !*isOver) {
    usleep(10000);
  }
  shared->stopping = true;
}

void RunThreads(size_t crowd, uint64_t rounds) {
  std::vector<std::thread> threads;
  for (size_t i = 0; i < crowd; i++) {
    threads.emplace_back(TakePart, static_cast<unsigned>(i + 1), rounds);
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
}

void RunProcesses(size_t crowd, uint64_t rounds) {
  std::vector<pid_t> children;
  for (size_t i = 0; i < crowd; i++) {
    const pid_t child = fork();
    if (child == 0) {
      TakePart(static_cast<unsigned>(i + 1), rounds);
      _exit(0);
    }
    children.push_back(child);
  }
  for (const pid_t child : children) {
    int status = -1;
    shared->failures += waitpid(child, &status, 0) == child && status == 0 ? 0 : 1;
  }
}

void Run(const Options &options) {
  const uint64_t rounds =
      options.rounds == 0 ? std::numeric_limits<uint64_t>::max() : options.rounds / options.crowd;
  std::atomic<bool> isOver = false;
  std::thread stopper(StopLater, options.seconds, &isOver);
  (options.kind == "processes" ? RunProcesses : RunThreads)(options.crowd, rounds);
  isOver = true;
  stopper.join();
}

// Prints what happened. Returns whether all is well.
bool Report(const std::string &directory) {
  const uint64_t rounds = shared->rounds;
  const uint64_t lost = rounds - shared->counter;
  SyncMutex_Destroy(&shared->mutex);
  const auto left = std::filesystem::directory_iterator(directory);
  const auto files = static_cast<uint64_t>(std::distance(begin(left), end(left)));
  printf(
      "rounds %lu, waits %lu, of which to the end of their time %lu, counts lost %lu, failures %lu, files "
      "left behind %lu\n",
      rounds, shared->waits.load(), shared->timeOuts.load(), lost, shared->failures.load(), files);
  return rounds > 0 && shared->waits > 0 && shared->timeOuts + lost + shared->failures + files == 0;
}

}  // namespace

int main(int argc, char **argv) {
  const Options options = ParseOptions(argc, argv);
  char directory[] = "/tmp/sync-stress-XXXXXX";
  if (mkdtemp(directory) == nullptr || !Make(options, directory)) {
    perror("sync_stress");
    return 2;
  }
  Run(options);
  const bool well = Report(directory);
  std::filesystem::remove_all(directory);
  return well ? 0 : 1;
}
