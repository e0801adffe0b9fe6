// System calls that fail, or answer otherwise than the real kernel would.
//
//   testhost::SystemCalls calls({SYS_write, SYS_statfs});
//   calls.Fail(SYS_write, EDQUOT, {.from = 2});               // from the third call on
//   calls.Fail(SYS_write, EINTR, {.count = 1});               // the first call alone
//   calls.Return(SYS_write, 3, {.from = 1, .count = 1});      // the second: "3 bytes written", and none are
//   calls.AnswerStatfs(0x6969);                               // each file system is one of NFS
//
// These stand in for a kernel, a disk or a network that a test can't have. They are seccomp filters: those of
// FailSystemCall stay for ever and are the same for each call; those of SystemCalls ask a process of the
// test's own, which knows what was told. After the first of either, programs of another user's (sudo) are run
// without that user's rights.
#ifndef OST_TESTS_HOST_SYSTEMCALLS_H
#define OST_TESTS_HOST_SYSTEMCALLS_H

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <optional>

namespace testhost {

// From here on a system call fails with an error number in this process and in all that it starts. With an
// error number of 0 it does nothing and gives 0.
//
// first  if given, fails only the calls with this first argument
void FailSystemCall(int number, int errorNumber, std::optional<uint32_t> first = std::nullopt);

// The descriptor that the next open gives.
int NextDescriptor();

// Makes the next descriptor fail in some system calls, for as long as this lives and nothing else takes it.
class FailingDescriptor {
 public:
  FailingDescriptor(std::initializer_list<int> systemCalls, int errorNumber);
  // Takes it away from others, whom the calls would fail too.
  ~FailingDescriptor();
  FailingDescriptor(const FailingDescriptor &) = delete;
  FailingDescriptor &operator=(const FailingDescriptor &) = delete;

 private:
  int fd_;
};

// Which calls get an answer. Calls are counted from the moment the answer is told.
struct Which {
  size_t from = 0;  // how many the kernel still answers
  size_t count = std::numeric_limits<size_t>::max();
  std::optional<uint32_t> first = std::nullopt;  // if given, only the calls with this first argument count
};

// While it lives, calls of this thread, and of all processes and threads that it starts from then on, are
// answered as told. Where several answers meet, the last that was told counts. One in a process, and after
// Host::Enter; what can't be made ends the program.
class SystemCalls {
 public:
  // numbers  the calls that may be answered; each of them costs a turn of another process
  explicit SystemCalls(std::initializer_list<int> numbers);
  ~SystemCalls();
  SystemCalls(const SystemCalls &) = delete;
  SystemCalls &operator=(const SystemCalls &) = delete;

  void Fail(int number, int errorNumber, const Which &which = {});
  // Makes a call give `value`, and do nothing.
  void Return(int number, int64_t value, const Which &which = {});
  // Makes statfs and fstatfs tell this type of file system, with all else zero.
  void AnswerStatfs(uint32_t type, const Which &which = {});
  // Ends all answers so far.
  void Clear();

  // How often a call was made since this began.
  [[nodiscard]] size_t Count(int number) const;
  // What it was given when it was made last.
  [[nodiscard]] std::array<uint64_t, 6> LastArguments(int number) const;

  struct Told;

 private:
  Told *told_;  // shared with the process that answers
};

}  // namespace testhost

#endif
