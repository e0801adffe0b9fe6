// Progress.

#include "log.h"
#include "msgInt.h"
#include "panicUser.h"

namespace {

constexpr int kPercentStarts = -1;
constexpr int kPercentEnded = 101;

// A message of progress, which lives on the stack, so that a report costs little; or none.
class ProgressMessage {
 public:
  // function  in whose name a format that can't be read stops the program
  ProgressMessage(const char *function, const char *idFormat, va_list args) {
    if (idFormat == nullptr) {
      return;
    }
    const char *text = MsgGetText(idFormat, nullptr, id_);
    char *error = nullptr;
    if (!MsgFmt_GetArgs(text, args, &message_.args, &message_.numArgs, &error)) {
      Log("%s error: %s\nformat <%s>\n", function, error, idFormat);
      PANIC();
    }
    message_.id = id_;
    message_.format = const_cast<char *>(text);
    rendered_ = MsgRenderNew(&message_, MsgGetState()->dictionary.get());
  }
  ProgressMessage(const ProgressMessage &) = delete;
  ProgressMessage &operator=(const ProgressMessage &) = delete;
  ~ProgressMessage() { MsgFmt_FreeArgs(message_.args, message_.numArgs); }

  const char *Id() const { return message_.id; }
  const char *Text() const { return rendered_ == nullptr ? "" : rendered_.get(); }
  MsgList *List() { return message_.id == nullptr ? nullptr : &message_; }

 private:
  char id_[MSG_ID_SIZE];
  MsgList message_{};
  OwnedString rendered_;
};

int Report(int percent, bool cancelButton, ProgressMessage *message) {
  const MsgCallback &callback = MsgGetState()->callback;
  int result = 0;
  if (callback.progress != nullptr) {
    result = callback.progress(message->Id(), message->Text(), percent, cancelButton);
  }
  if (callback.progressList != nullptr) {
    result = callback.progressList(message->List(), percent, cancelButton);
  }
  return result;
}

}  // namespace

int Msg_Progress(int percent, bool cancelButton, const char *idFormat, ...) {
  va_list args;
  va_start(args, idFormat);
  ProgressMessage message(__func__, idFormat, args);
  va_end(args);
  return Report(percent, cancelButton, &message);
}

int Msg_ProgressScaled(int percent, int opsDone, int opsTotal, bool cancelButton) {
  ASSERT(opsTotal >= 0);
  if (opsTotal == 0) {
    return Msg_Progress(percent, cancelButton, nullptr);
  }
  ASSERT(opsDone >= 0 && opsDone < opsTotal);
  if (percent == kPercentStarts || percent == kPercentEnded) {
    return 0;
  }
  const int64_t begin = int64_t{opsDone} * 100 / opsTotal;
  const int64_t end = (int64_t{opsDone} * 100 + 100) / opsTotal;
  return Msg_Progress(static_cast<int>(begin + (end - begin) * percent / 100), cancelButton, nullptr);
}

void *Msg_LazyProgressStart(bool allowCancel, const char *idFormat, ...) {
  const MsgCallback &callback = MsgGetState()->callback;
  if (callback.lazyProgressStart == nullptr && callback.lazyProgressStartList == nullptr) {
    return nullptr;
  }
  va_list args;
  va_start(args, idFormat);
  ProgressMessage message(__func__, idFormat, args);
  va_end(args);
  void *handle = nullptr;
  if (callback.lazyProgressStart != nullptr) {
    handle = callback.lazyProgressStart(message.Id(), message.Text(), allowCancel);
  }
  if (callback.lazyProgressStartList != nullptr) {
    handle = callback.lazyProgressStartList(message.List());
  }
  return handle;
}

bool Msg_LazyProgress(void *handle, bool allowCancel, int percent, const char *idFormat, ...) {
  const MsgCallback &callback = MsgGetState()->callback;
  if (callback.lazyProgress == nullptr) {
    return false;
  }
  va_list args;
  va_start(args, idFormat);
  const ProgressMessage message(__func__, idFormat, args);
  va_end(args);
  return callback.lazyProgress(handle, message.Id(), message.Text(), allowCancel, percent);
}

void Msg_LazyProgressEnd(void *handle) {
  const MsgCallback &callback = MsgGetState()->callback;
  if (callback.lazyProgressEnd != nullptr) {
    callback.lazyProgressEnd(handle);
  }
}
