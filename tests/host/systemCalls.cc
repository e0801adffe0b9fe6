#include "systemCalls.h"

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <new>
#include <utility>
#include <vector>

#include "treeInt.h"

namespace testhost {

namespace {

constexpr size_t kMostNumbers = 32;
constexpr size_t kMostAnswers = 64;

struct Answer {
  enum class Kind { kFail, kReturn, kStatfs };
  Kind kind;
  int number;
  int64_t value;
  Which which;
  size_t seen;
};

// Returns the listener of the filter, where `flags` ask for one.
long AddFilter(std::vector<sock_filter> steps, unsigned flags) {
  const sock_fprog program = {static_cast<uint16_t>(steps.size()), steps.data()};
  Check(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), "cannot give up new privileges");
  const long listener = syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, flags, &program);
  Check(listener, "cannot filter system calls");
  return listener;
}

// A filter that tells a listener of some calls.
int ListenTo(std::initializer_list<int> numbers) {
  std::vector<sock_filter> steps = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
  auto stepsToNotify = static_cast<uint8_t>(numbers.size());
  for (const int number : numbers) {
    steps.push_back(BPF_JUMP(BPF_JMP | BPF_K | BPF_JEQ, static_cast<uint32_t>(number), stepsToNotify--, 0));
  }
  steps.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  steps.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF));
  // A signal waits until a call that is being answered has its answer.
  return static_cast<int>(
      AddFilter(std::move(steps), SECCOMP_FILTER_FLAG_NEW_LISTENER | SECCOMP_FILTER_FLAG_WAIT_KILLABLE_RECV));
}

// One byte with a descriptor beside it.
struct DescriptorMessage {
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
  char byte = 0;
  iovec part = {&byte, 1};
  msghdr header = {nullptr, 0, &part, 1, control, sizeof control, 0};
};

void SendDescriptor(int socket, int descriptor) {
  DescriptorMessage message;
  cmsghdr *control = CMSG_FIRSTHDR(&message.header);
  control->cmsg_level = SOL_SOCKET;
  control->cmsg_type = SCM_RIGHTS;
  control->cmsg_len = CMSG_LEN(sizeof descriptor);
  memcpy(CMSG_DATA(control), &descriptor, sizeof descriptor);
  Check(sendmsg(socket, &message.header, 0), "cannot send a descriptor");
}

// Returns -1 when the other end is gone.
int ReceiveDescriptor(int socket) {
  DescriptorMessage message;
  const cmsghdr *control =
      recvmsg(socket, &message.header, MSG_CMSG_CLOEXEC) == 1 ? CMSG_FIRSTHDR(&message.header) : nullptr;
  int descriptor = -1;
  if (control != nullptr) {
    memcpy(&descriptor, CMSG_DATA(control), sizeof descriptor);
  }
  return descriptor;
}

// Writes to another process's memory, which costs it nothing. Returns 0 or a negative error number.
int WriteStatfs(pid_t process, uint64_t address, int64_t type) {
  struct statfs system {};
  system.f_type = type;
  system.f_bsize = 4096;
  const iovec from = {&system, sizeof system};
  // NOLINTNEXTLINE(performance-no-int-to-ptr): an address in the other process
  const iovec to = {reinterpret_cast<void *>(address), sizeof system};
  return process_vm_writev(process, &from, 1, &to, 1, 0) == sizeof system ? 0 : -errno;
}

bool Matches(Answer *answer, const seccomp_data &call) {
  if (answer->number != call.nr || answer->which.first.value_or(static_cast<uint32_t>(call.args[0])) !=
                                       static_cast<uint32_t>(call.args[0])) {
    return false;
  }
  const size_t index = answer->seen++;
  return index >= answer->which.from && index - answer->which.from < answer->which.count;
}

}  // namespace

// What the test has told, and what has happened.
struct SystemCalls::Told {
  Answer answers[kMostAnswers];
  std::atomic<size_t> answerCount;
  int numbers[kMostNumbers];
  std::atomic<size_t> counts[kMostNumbers];
  std::array<uint64_t, 6> arguments[kMostNumbers];
  size_t numberCount;

  [[nodiscard]] size_t IndexOf(int number) const {
    return static_cast<size_t>(std::find(numbers, numbers + numberCount, number) - numbers);
  }

  void Tell(int number, Answer::Kind kind, int64_t value, const Which &which) {
    errno = EINVAL;
    Check(IndexOf(number) < numberCount ? 0 : -1, "this system call isn't listened to");
    Check(answerCount < kMostAnswers ? 0 : -1, "too many answers");
    answers[answerCount] = {kind, number, value, which, 0};
    answerCount++;
  }

  // The last answer that was told; all that could be meant count the call.
  Answer *AnswerTo(const seccomp_data &call) {
    Answer *found = nullptr;
    std::for_each(answers, answers + answerCount, [&](Answer &answer) {
      if (Matches(&answer, call)) {
        found = &answer;
      }
    });
    return found;
  }
};

namespace {

void AnswerCall(SystemCalls::Told *told, const seccomp_notif &call, seccomp_notif_resp *response) {
  const size_t index = told->IndexOf(call.data.nr);
  std::copy(std::begin(call.data.args), std::end(call.data.args), told->arguments[index].begin());
  told->counts[index]++;
  const Answer *answer = told->AnswerTo(call.data);
  if (answer == nullptr) {
    response->flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
    return;
  }
  if (answer->kind == Answer::Kind::kFail) {
    response->error = -static_cast<int>(answer->value);
  } else if (answer->kind == Answer::Kind::kReturn) {
    response->val = answer->value;
  } else {
    response->error = WriteStatfs(static_cast<pid_t>(call.pid), call.data.args[1], answer->value);
  }
}

// The life of the process that answers: as long as somebody is there to be answered.
[[noreturn]] void AnswerAll(SystemCalls::Told *told, int listener) {
  for (;;) {
    pollfd ready = {listener, POLLIN, 0};
    if (poll(&ready, 1, -1) == -1 || (ready.revents & POLLIN) == 0) {
      _exit(0);
    }
    seccomp_notif call = {};
    if (ioctl(listener, SECCOMP_IOCTL_NOTIF_RECV, &call) == -1) {
      continue;  // who asked is gone
    }
    seccomp_notif_resp response = {};
    response.id = call.id;
    AnswerCall(told, call, &response);
    ioctl(listener, SECCOMP_IOCTL_NOTIF_SEND, &response);
  }
}

// Keeps nothing open that others could wait for the end of.
[[noreturn]] void RunAnswerer(SystemCalls::Told *told, int socket) {
  dup2(socket, 0);
  close_range(1, ~0U, 0);
  const int listener = ReceiveDescriptor(0);
  close(0);
  AnswerAll(told, listener);
}

// Starts the process that answers, which is no child of this one, so that no wait finds it.
void StartAnswerer(SystemCalls::Told *told, int socket) {
  const pid_t child = fork();
  Check(child, "cannot start who answers system calls");
  if (child == 0) {
    const pid_t answerer = fork();
    if (answerer == 0) {
      RunAnswerer(told, socket);
    }
    _exit(answerer == -1 ? 1 : 0);
  }
  int status = -1;
  Check(waitpid(child, &status, 0) == child && status == 0 ? 0 : -1, "cannot start who answers system calls");
}

}  // namespace

void FailSystemCall(int number, int errorNumber, std::optional<uint32_t> first) {
  const auto sameFirst = static_cast<uint16_t>(BPF_JMP | BPF_K | (first ? BPF_JEQ : BPF_JGE));
  AddFilter(
      {
          BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
          BPF_JUMP(BPF_JMP | BPF_K | BPF_JEQ, static_cast<uint32_t>(number), 0, 3),
          BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args)),
          BPF_JUMP(sameFirst, first.value_or(0), 0, 1),
          BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<uint32_t>(errorNumber)),
          BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
      },
      0);
}

int NextDescriptor() {
  const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(fd);
  return fd;
}

FailingDescriptor::FailingDescriptor(std::initializer_list<int> systemCalls, int errorNumber)
    : fd_(NextDescriptor()) {
  for (const int number : systemCalls) {
    FailSystemCall(number, errorNumber, static_cast<uint32_t>(fd_));
  }
}

FailingDescriptor::~FailingDescriptor() {
  const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
  Check(fd == fd_ ? 0 : -1, "the failing descriptor was left open");
}

SystemCalls::SystemCalls(std::initializer_list<int> numbers) {
  errno = E2BIG;
  Check(numbers.size() <= kMostNumbers ? 0 : -1, "too many system calls");
  void *shared = mmap(nullptr, sizeof(Told), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  Check(shared == MAP_FAILED ? -1 : 0, "cannot share memory");
  told_ = new (shared) Told();
  std::copy(numbers.begin(), numbers.end(), told_->numbers);
  told_->numberCount = numbers.size();

  int sockets[2];
  Check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets), "cannot make sockets");
  Descriptor ours(sockets[0]);
  Descriptor theirs(sockets[1]);
  StartAnswerer(told_, theirs.Get());
  theirs.Close();
  const Descriptor listener(ListenTo(numbers));
  SendDescriptor(ours.Get(), listener.Get());
}

// The memory stays: the process that answers lets the kernel do it from now on.
SystemCalls::~SystemCalls() {
  Clear();
}

void SystemCalls::Fail(int number, int errorNumber, const Which &which) {
  told_->Tell(number, Answer::Kind::kFail, errorNumber, which);
}

void SystemCalls::Return(int number, int64_t value, const Which &which) {
  told_->Tell(number, Answer::Kind::kReturn, value, which);
}

void SystemCalls::AnswerStatfs(uint32_t type, const Which &which) {
  for (const int number : {SYS_statfs, SYS_fstatfs}) {
    if (told_->IndexOf(number) < told_->numberCount) {
      told_->Tell(number, Answer::Kind::kStatfs, type, which);
    }
  }
}

void SystemCalls::Clear() {
  told_->answerCount = 0;
}

size_t SystemCalls::Count(int number) const {
  return told_->counts[told_->IndexOf(number)];
}

std::array<uint64_t, 6> SystemCalls::LastArguments(int number) const {
  return told_->arguments[told_->IndexOf(number)];
}

}  // namespace testhost
