// The state, and the pending list.

#include "msg.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "config.h"
#include "msgInt.h"
#include "panicUser.h"
#include "util_misc.h"

namespace {

MsgState *state;

MsgList *AppendToPending(MsgList *message) {
  MsgState *msg = MsgGetState();
  *msg->tailLink = message;
  msg->tailLink = &message->next;
  return message;
}

// Makes the text of messages that aren't pending while it does, so that a panic, which posts what is pending,
// doesn't render them again.
void RenderDetached(MsgList *messages, DynBuf *text) {
  text->size = 0;
  MsgRender(messages, MsgGetState()->dictionary.get(), text);
}

}  // namespace

MsgState::MsgState() : callback(msgConsoleCallback) {}

MsgState::~MsgState() {
  MsgList_Free(head);
}

MsgState *MsgGetState() {
  if (state == nullptr) {
    state = new (Util_SafeMalloc(sizeof(MsgState))) MsgState;
  }
  return state;
}

bool MsgGetSetting(const char *key) {
  MsgState *msg = MsgGetState();
  // A bad value is told by a post, which would read it again.
  for (const MsgSettingRead *read = msg->reads; read != nullptr; read = read->outer) {
    if (strcmp(read->key, key) == 0) {
      return false;
    }
  }
  const MsgSettingRead read{key, msg->reads};
  msg->reads = &read;
  const bool value = Config_GetBool(false, "%s", key);
  msg->reads = read.outer;
  return value;
}

MsgList *Msg_Append(const char *idFormat, ...) {
  va_list args;
  va_start(args, idFormat);
  MsgList *message = Msg_VAppend(idFormat, args);
  va_end(args);
  return message;
}

MsgList *Msg_VAppend(const char *idFormat, va_list args) {
  return AppendToPending(MsgList_VCreate(idFormat, args));
}

MsgList *Msg_AppendMsgList(MsgList *message) {
  MsgList *copy = MsgList_New(message->id, message->format);
  copy->args = std::exchange(message->args, nullptr);
  copy->numArgs = std::exchange(message->numArgs, 0);
  return AppendToPending(copy);
}

MsgList *Msg_DetachMsgList() {
  MsgState *msg = MsgGetState();
  msg->tailLink = &msg->head;
  return std::exchange(msg->head, nullptr);
}

MsgList *Msg_GetMsgList() {
  return MsgGetState()->head;
}

bool Msg_Present() {
  return MsgGetState()->head != nullptr;
}

void Msg_Reset(bool log) {
  const OwnedMsgList dropped(Msg_DetachMsgList());
  if (log && dropped != nullptr) {
    MsgLogList(__func__, "", dropped.get());
  }
}

const char *Msg_GetMessages() {
  static DynBuf text;
  MsgState *msg = MsgGetState();
  MsgList **tailLink = msg->tailLink;
  MsgList *messages = Msg_DetachMsgList();
  RenderDetached(messages, &text);
  msg->head = messages;
  msg->tailLink = tailLink;
  return text.data;
}

const char *Msg_GetMessagesAndReset() {
  static DynBuf text;
  const OwnedMsgList messages(Msg_DetachMsgList());
  RenderDetached(messages.get(), &text);
  return text.data;
}

void Msg_SetCallback(const MsgCallback *callback) {
  ASSERT(callback->post != nullptr || callback->postList != nullptr);
  ASSERT(callback->question != nullptr || callback->questionList != nullptr);
  ASSERT(callback->progress != nullptr || callback->progressList != nullptr);
  ASSERT(callback->hint != nullptr || callback->hintList != nullptr);
  MsgGetState()->callback = *callback;
}

void Msg_GetCallback(MsgCallback *callback) {
  *callback = MsgGetState()->callback;
}

void Msg_Exit() {
  if (state != nullptr) {
    std::destroy_at(state);
    free(std::exchange(state, nullptr));
  }
}
