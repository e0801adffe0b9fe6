#include "msg.h"

#include <strings.h>

#include <cstdarg>
#include <cstring>
#include <string>
#include <vector>

#include "log.h"
#include "owned.h"
#include "panicUser.h"
#include "str.h"

namespace {

constexpr char kMarker[] = "@&!*@*@";
constexpr size_t kMarkerLength = sizeof kMarker - 1;
constexpr size_t kMaxIdLength = 127;

struct PendingMessage {
  std::string id;
  OwnedString text;
};

// Messages that no layer has shown or dropped yet, oldest first; made by the first message, and kept, emptied
// or not, until the process ends.
std::vector<PendingMessage> *pendingMessages;

// The id of a marked format. A format without one is a programming error.
std::string MsgId(const char *idFormat) {
  ASSERT(strncmp(idFormat, kMarker, kMarkerLength) == 0 && idFormat[kMarkerLength] == '(');
  const char *id = idFormat + kMarkerLength + 1;
  const char *end = strchr(id, ')');
  ASSERT(end != nullptr);
  const auto length = static_cast<size_t>(end - id);
  if (length > kMaxIdLength) {
    NOT_IMPLEMENTED();
  }
  ASSERT(strncasecmp(id, "msg.", 4) == 0);
  return {id, length};
}

void MsgLogPending(const char *title) {
  Log("%s:\n", title);
  for (const PendingMessage &message : *pendingMessages) {
    Log("[%s] %s", message.id.c_str(), message.text.get());
  }
  Log("----------------------------------------\n");
}

}  // namespace

void Msg_Append(const char *idFormat, ...) {
  std::string id = MsgId(idFormat);
  const char *format = strchr(idFormat, ')') + 1;
  va_list args;
  va_start(args, idFormat);
  OwnedString text(Str_SafeVasprintf(nullptr, format, args));
  va_end(args);
  if (pendingMessages == nullptr) {
    pendingMessages = new std::vector<PendingMessage>;
  }
  pendingMessages->push_back({std::move(id), std::move(text)});
}

bool Msg_Present() {
  return pendingMessages != nullptr && !pendingMessages->empty();
}

void Msg_Reset(bool log) {
  if (!Msg_Present()) {
    return;
  }
  if (log) {
    MsgLogPending(__func__);
  }
  pendingMessages->clear();
}
