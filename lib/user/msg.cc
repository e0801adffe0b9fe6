#include "msg.h"

#include <strings.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "log.h"
#include "owned.h"
#include "panicUser.h"
#include "productState.h"
#include "str.h"

namespace {

constexpr char kMarker[] = "@&!*@*@";
constexpr size_t kMarkerLength = sizeof kMarker - 1;
constexpr size_t kMaxIdLength = 127;

struct PendingMessage {
  std::string id;
  OwnedString text;
};
using PendingMessages = std::vector<PendingMessage>;

// Messages that no layer has shown or dropped yet, oldest first; made by the first message, and kept, emptied
// or not, until the process ends.
PendingMessages *pendingMessages;

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

// The wording of a marked format.
const char *MsgWording(const char *idFormat) {
  return strchr(idFormat, ')') + 1;
}

void MsgVAppend(const char *idFormat, va_list args) __attribute__((format(printf, 1, 0)));
void MsgVAppend(const char *idFormat, va_list args) {
  std::string id = MsgId(idFormat);
  OwnedString text(Str_SafeVasprintf(nullptr, MsgWording(idFormat), args));
  if (pendingMessages == nullptr) {
    pendingMessages = new PendingMessages;
  }
  pendingMessages->push_back({std::move(id), std::move(text)});
}

// subtitle  may be empty
void MsgLogList(const char *title, const char *subtitle, const PendingMessages &messages) {
  Log("%s:%s%s\n", title, subtitle[0] == '\0' ? "" : " ", subtitle);
  for (const PendingMessage &message : messages) {
    Log("[%s] %s", message.id.c_str(), message.text.get());
  }
  Log("----------------------------------------\n");
}

std::string MsgRender(const PendingMessages &messages) {
  std::string text;
  for (const PendingMessage &message : messages) {
    text += message.text.get();
  }
  return text;
}

// The title of a severity, empty where there is none.
const char *MsgSeverityTitle(int severity) {
  const char *title = Msg_Severities[severity];
  return title == nullptr ? "" : MsgWording(title);
}

// Raw, as warnings are, so that a terminal of any encoding gets the text.
void MsgPostStderr(const char *title, const char *text) {
  const OwnedString output(Str_SafeAsprintf(nullptr, "\n%s %s:\n%s\n", ProductState_GetName(), title, text));
  fputs(output.get(), stderr);
}

}  // namespace

const char *const Msg_Severities[MSG_SEVERITIES] = {
    MSGID(msg.info) "Information",
    MSGID(msg.info) "Information",
    MSGID(msg.warning) "Warning",
    MSGID(msg.error) "Error",
    MSGID(msg.configEditor) "Configuration editor",
    nullptr,
    nullptr,
    nullptr,
    MSGID(msg.homePageInfo) "Home page information",
};

void Msg_Append(const char *idFormat, ...) {
  va_list args;
  va_start(args, idFormat);
  MsgVAppend(idFormat, args);
  va_end(args);
}

void Msg_Post(int severity, const char *idFormat, ...) {
  ASSERT(severity >= 0 && severity < MSG_SEVERITIES);
  va_list args;
  va_start(args, idFormat);
  MsgVAppend(idFormat, args);
  va_end(args);
  const PendingMessages posted = std::exchange(*pendingMessages, {});
  const char *title = MsgSeverityTitle(severity);
  MsgLogList(__func__, title, posted);
  MsgPostStderr(title, MsgRender(posted).c_str());
}

bool Msg_Present() {
  return pendingMessages != nullptr && !pendingMessages->empty();
}

void Msg_Reset(bool log) {
  if (!Msg_Present()) {
    return;
  }
  if (log) {
    MsgLogList(__func__, "", *pendingMessages);
  }
  pendingMessages->clear();
}
