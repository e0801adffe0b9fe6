// Posts.

#include "log.h"
#include "msgInt.h"
#include "panicUser.h"

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

namespace {

constexpr int kError = 3;

void FillTitles(MsgState *msg) {
  for (int i = 0; i < MSG_SEVERITIES; i++) {
    msg->severityTitles[i] =
        Msg_Severities[i] == nullptr ? "" : MsgGetText(Msg_Severities[i], nullptr, nullptr);
  }
}

// Posts all that is pending, in the name of its last message.
void Post(int severity, const MsgList &message) {
  ASSERT(severity >= 0 && severity < MSG_SEVERITIES);
  MsgState *msg = MsgGetState();
  const OwnedMsgList messages(Msg_DetachMsgList());
  MsgLogList("Msg_Post", MsgSeverityTitle(severity), messages.get());
  if (MsgGetSetting("msg.autoAnswer")) {
    return;
  }
  if (severity != kError && MsgGetSetting("msg.noOK")) {
    if (!MsgGetSetting("msg.noOKnoWarning")) {
      Warning("MSG: %s\n", MsgRenderNew(messages.get(), msg->dictionary.get()).get());
    }
    return;
  }
  if (msg->callback.postList != nullptr) {
    msg->callback.postList(severity, messages.get());
  }
  if (msg->callback.post != nullptr) {
    const OwnedString text = MsgRenderNew(messages.get(), msg->dictionary.get());
    msg->callback.post(severity, message.id, text.get());
  }
}

}  // namespace

const char *MsgSeverityTitle(int severity) {
  MsgState *msg = MsgGetState();
  if (msg->severityTitles[0] == nullptr) {
    FillTitles(msg);
  }
  return msg->severityTitles[severity];
}

void Msg_Post(int severity, const char *idFormat, ...) {
  va_list args;
  va_start(args, idFormat);
  const MsgList *message = Msg_VAppend(idFormat, args);
  va_end(args);
  Post(severity, *message);
}

void Msg_PostMsgList(int severity, MsgList *message) {
  Post(severity, *Msg_AppendMsgList(message));
}
