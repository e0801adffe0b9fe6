// The event loop beside GLib's and libevent's. This one is there as it comes, which waits by epoll and reads
// a clock of the system's ticks, and in the likeness of ours, which waits by poll and reads the precise
// clock. A registration's end is told to ours by its function and data, to them by its handle, and ours alone
// asks the system whether a descriptor is open when it is added.
#include <benchmark/benchmark.h>
#include <event2/event.h>
#include <fcntl.h>
#include <glib-unix.h>
#include <glib.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "ostpoll.h"
#include "owned.h"

namespace {

// Pipes whose first ones hold a byte that nobody takes out.
class Pipes {
 public:
  Pipes(int64_t count, int64_t ready) {
    rlimit limit = {4096, 4096};
    setrlimit(RLIMIT_NOFILE, &limit);
    for (int64_t i = 0; i < count; i++) {
      std::array<int, 2> ends{};
      if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0 || (i < ready && write(ends[1], "x", 1) != 1)) {
        abort();
      }
      pipes_.push_back(ends);
    }
  }
  ~Pipes() {
    for (const auto &ends : pipes_) {
      close(ends[0]);
      close(ends[1]);
    }
  }
  Pipes(const Pipes &) = delete;
  Pipes &operator=(const Pipes &) = delete;

  [[nodiscard]] const std::vector<std::array<int, 2>> &All() const { return pipes_; }

 private:
  std::vector<std::array<int, 2>> pipes_;
};

// Callbacks count how often they are called.
struct Counter {
  int64_t count = 0;
};

// The loops, with the same interface.

class Ours {
 public:
  Ours() { Poll_InitDefault(); }
  ~Ours() { Poll_Exit(); }
  Ours(const Ours &) = delete;
  Ours &operator=(const Ours &) = delete;

  static void AddReader(int fd, Counter *counter) { Poll_AddDevice(Count, counter, fd, true); }
  static void RemoveReaders(const std::vector<Counter *> &counters) {
    for (Counter *counter : counters) {
      Poll_RemoveDevice(Count, counter, true);
    }
  }
  static void AddTimer(int delay, Counter *counter) { Poll_AddTimer(Count, counter, delay, false, nullptr); }
  static void RemoveTimers(const std::vector<Counter *> &counters) {
    for (Counter *counter : counters) {
      Poll_RemoveTimer(Count, counter, false);
    }
  }
  static void Turn() { Poll_RunTimed(false, nullptr, 0, 0); }

 private:
  static void Count(void *data) { static_cast<Counter *>(data)->count++; }
};

class Glib {
 public:
  Glib() : context_(g_main_context_new()) {}
  ~Glib() { g_main_context_unref(context_); }
  Glib(const Glib &) = delete;
  Glib &operator=(const Glib &) = delete;

  void AddReader(int fd, Counter *counter) {
    GSource *source = g_unix_fd_source_new(fd, G_IO_IN);
    const GUnixFDSourceFunc count = [](int, GIOCondition, void *data) { return Count(data); };
    g_source_set_callback(source, G_SOURCE_FUNC(count), counter, nullptr);
    Attach(source);
  }
  void RemoveReaders(const std::vector<Counter *> &counters) { RemoveTimers(counters); }
  void AddTimer(int delay, Counter *counter) {
    GSource *source = g_timeout_source_new(static_cast<unsigned>(delay / 1000));
    g_source_set_callback(
        source,
        [](void *data) {
          Count(data);
          return static_cast<int>(G_SOURCE_REMOVE);
        },
        counter, nullptr);
    Attach(source);
  }
  // By their order, which is that of the counters'.
  void RemoveTimers(const std::vector<Counter *> &counters) {
    for (const Counter *counter : counters) {
      g_source_destroy(sources_[static_cast<size_t>(counter - first_)]);
    }
  }
  void Turn() { g_main_context_iteration(context_, FALSE); }
  void Begin(const Counter *first) {
    first_ = first;
    sources_.clear();
  }

 private:
  static int Count(void *data) {
    static_cast<Counter *>(data)->count++;
    return G_SOURCE_CONTINUE;
  }
  void Attach(GSource *source) {
    g_source_attach(source, context_);
    g_source_unref(source);  // the context keeps it
    sources_.push_back(source);
  }

  GMainContext *context_;
  const Counter *first_ = nullptr;
  std::vector<GSource *> sources_;
};

using OwnedEventConfig = std::unique_ptr<event_config, Releaser<event_config_free>>;
using OwnedEventBase = std::unique_ptr<event_base, Releaser<event_base_free>>;
using OwnedEvent = std::unique_ptr<event, Releaser<event_free>>;

template <bool likeOurs>
class Libevent {
 public:
  Libevent() {
    const OwnedEventConfig config(event_config_new());
    if (likeOurs) {
      event_config_avoid_method(config.get(), "epoll");
      event_config_set_flag(config.get(), EVENT_BASE_FLAG_PRECISE_TIMER);
    }
    base_.reset(event_base_new_with_config(config.get()));
    if (std::string(event_base_get_method(base_.get())) != (likeOurs ? "poll" : "epoll")) {
      abort();
    }
  }

  void AddReader(int fd, Counter *counter) {
    Add(event_new(base_.get(), fd, EV_READ | EV_PERSIST, Count, counter), nullptr);
  }
  void RemoveReaders(const std::vector<Counter *> &counters) { RemoveTimers(counters); }
  void AddTimer(int delay, Counter *counter) {
    const timeval time = {delay / 1000000, delay % 1000000};
    Add(event_new(base_.get(), -1, 0, Count, counter), &time);
  }
  void RemoveTimers(const std::vector<Counter *> &counters) {
    for (const Counter *counter : counters) {
      events_[static_cast<size_t>(counter - first_)].reset();
    }
  }
  void Turn() { event_base_loop(base_.get(), EVLOOP_ONCE | EVLOOP_NONBLOCK); }
  void Begin(const Counter *first) {
    first_ = first;
    events_.clear();
  }

 private:
  static void Count(int, short, void *data) { static_cast<Counter *>(data)->count++; }
  void Add(event *one, const timeval *time) {
    events_.emplace_back(one);
    event_add(one, time);
  }

  OwnedEventBase base_;
  const Counter *first_ = nullptr;
  std::vector<OwnedEvent> events_;
};

template <typename Loop>
void Begin(Loop &loop, const std::vector<Counter> &counters) {
  if constexpr (!std::is_same_v<Loop, Ours>) {
    loop.Begin(counters.data());
  }
}

std::vector<Counter *> Pointers(std::vector<Counter> &counters) {
  std::vector<Counter *> pointers;
  pointers.reserve(counters.size());
  for (Counter &counter : counters) {
    pointers.push_back(&counter);
  }
  return pointers;
}

// The same in an order that is neither theirs nor its reverse.
std::vector<Counter *> Shuffled(std::vector<Counter> &counters) {
  std::vector<Counter *> shuffled;
  for (size_t i = 0; i < counters.size(); i++) {
    shuffled.push_back(&counters[i * 7919 % counters.size()]);
  }
  return shuffled;
}

// (descriptors, those that are ready): a turn that doesn't wait.
template <typename Loop>
void Turn(benchmark::State &state) {
  const int64_t count = state.range(0);
  const int64_t ready = state.range(1);
  const Pipes pipes(count, ready);
  std::vector<Counter> counters(static_cast<size_t>(count));
  Loop loop;
  Begin(loop, counters);
  for (size_t i = 0; i < counters.size(); i++) {
    loop.AddReader(pipes.All()[i][0], &counters[i]);
  }
  for (int i = 0; i < 10; i++) {
    loop.Turn();  // one peer learns how many descriptors may be ready at once
  }
  for (Counter &counter : counters) {
    counter.count = 0;
  }
  int64_t turns = 0;
  for (auto _ : state) {
    loop.Turn();
    turns++;
  }
  int64_t fired = 0;
  for (const Counter &counter : counters) {
    fired += counter.count;
  }
  if (fired != turns * ready) {
    state.SkipWithError("not every callback was called");
  }
  loop.RemoveReaders(Pointers(counters));
}

// Descriptors that are added and removed again.
template <typename Loop>
void AddRemoveReaders(benchmark::State &state) {
  const Pipes pipes(state.range(0), 0);
  std::vector<Counter> counters(static_cast<size_t>(state.range(0)));
  const std::vector<Counter *> order = Shuffled(counters);
  Loop loop;
  for (auto _ : state) {
    Begin(loop, counters);
    for (size_t i = 0; i < counters.size(); i++) {
      loop.AddReader(pipes.All()[i][0], &counters[i]);
    }
    loop.RemoveReaders(order);
  }
}

// Timers far ahead, with delays in no order, that are added and removed again.
template <typename Loop>
void AddRemoveTimers(benchmark::State &state) {
  std::vector<Counter> counters(static_cast<size_t>(state.range(0)));
  const std::vector<Counter *> order = Shuffled(counters);
  Loop loop;
  for (auto _ : state) {
    Begin(loop, counters);
    for (size_t i = 0; i < counters.size(); i++) {
      loop.AddTimer(static_cast<int>(1000000000 + i * 104729 % counters.size() * 1000), &counters[i]);
    }
    loop.RemoveTimers(order);
  }
}

// Timers that are due at once, added and fired.
template <typename Loop>
void FireTimers(benchmark::State &state) {
  std::vector<Counter> counters(static_cast<size_t>(state.range(0)));
  Loop loop;
  int64_t rounds = 0;
  for (auto _ : state) {
    Begin(loop, counters);
    for (Counter &counter : counters) {
      loop.AddTimer(0, &counter);
    }
    rounds++;
    while (counters.front().count != rounds || counters.back().count != rounds) {
      loop.Turn();
    }
  }
}

// A turn while timers wait that are far ahead.
template <typename Loop>
void IdleTimers(benchmark::State &state) {
  std::vector<Counter> counters(static_cast<size_t>(state.range(0)));
  Loop loop;
  Begin(loop, counters);
  for (Counter &counter : counters) {
    loop.AddTimer(1000000000, &counter);
  }
  for (auto _ : state) {
    loop.Turn();
  }
  loop.RemoveTimers(Pointers(counters));
}

void Readers(benchmark::internal::Benchmark *bench) {
  for (const int64_t count : {1, 50, 500}) {
    bench->Args({count, 1});
    if (count > 1) {
      bench->Args({count, count / 10})->Args({count, count});
    }
  }
}
void ReaderCounts(benchmark::internal::Benchmark *bench) {
  bench->Arg(1)->Arg(50)->Arg(500);
}
void TimerCounts(benchmark::internal::Benchmark *bench) {
  bench->Arg(1)->Arg(10)->Arg(100)->Arg(1000)->Arg(10000);
}

// NOLINTBEGIN(bugprone-macro-parentheses): a template's name
#define LOOPS(subject, arguments)                                                                 \
  BENCHMARK(subject<Ours>)->Name("BM_Ours_Loop_" #subject)->Apply(arguments);                     \
  BENCHMARK(subject<Glib>)->Name("BM_Peer_GLib_Loop_" #subject)->Apply(arguments);                \
  BENCHMARK(subject<Libevent<false>>)->Name("BM_Peer_libevent_Loop_" #subject)->Apply(arguments); \
  BENCHMARK(subject<Libevent<true>>)->Name("BM_Peer_libeventPoll_Loop_" #subject)->Apply(arguments)
// NOLINTEND(bugprone-macro-parentheses)

LOOPS(Turn, Readers);
LOOPS(AddRemoveReaders, ReaderCounts);
LOOPS(AddRemoveTimers, TimerCounts);
LOOPS(FireTimers, TimerCounts);
LOOPS(IdleTimers, TimerCounts);

}  // namespace
