#include "msgList.h"

#include <strings.h>

#include <cstdlib>
#include <memory>

#include "log.h"
#include "msgMarkInt.h"
#include "owned.h"
#include "panicUser.h"
#include "util_misc.h"

namespace {

using OwnedList = std::unique_ptr<MsgList, Releaser<MsgList_Free>>;

constexpr size_t kMaxIdLength = 127;

MsgList *NewNode() {
  return static_cast<MsgList *>(Util_SafeCalloc(1, sizeof(MsgList)));
}

char *CopyId(const char *idFormat, const char *text) {
  const std::string_view id = MsgMarkedId(idFormat, text);
  if (id.size() > kMaxIdLength) {
    NOT_IMPLEMENTED();
  }
  ASSERT(strncasecmp(id.data(), "msg.", 4) == 0);
  return Util_SafeStrndup(id.data(), id.size());
}

MsgList *CopyNode(const MsgList &message) {
  MsgList *copy = NewNode();
  copy->id = Util_SafeStrdup(message.id);
  copy->format = Util_SafeStrdup(message.format);
  copy->args = MsgFmt_CopyArgs(message.args, message.numArgs);
  ASSERT_MEM_ALLOC(copy->args != nullptr);
  copy->numArgs = message.numArgs;
  return copy;
}

}  // namespace

MsgList *MsgList_Create(const char *idFormat, ...) {
  va_list args;
  va_start(args, idFormat);
  MsgList *messages = MsgList_VCreate(idFormat, args);
  va_end(args);
  return messages;
}

MsgList *MsgList_VCreate(const char *idFormat, va_list args) {
  ASSERT(idFormat != nullptr);
  const char *text = MsgMarkedText(idFormat);
  ASSERT(text != nullptr);
  OwnedList message(NewNode());
  message->id = CopyId(idFormat, text);
  message->format = Util_SafeStrdup(text);
  char *error = nullptr;
  if (!MsgFmt_GetArgs(text, args, &message->args, &message->numArgs, &error)) {
    Log("%s error: %s\nformat <%s>\n", __func__, error, idFormat);
    PANIC();
  }
  return message.release();
}

MsgList *MsgList_Copy(const MsgList *messages) {
  MsgList *copies = nullptr;
  MsgList **link = &copies;
  for (; messages != nullptr; messages = messages->next) {
    *link = CopyNode(*messages);
    link = &(*link)->next;
  }
  return copies;
}

void MsgList_Free(MsgList *messages) {
  while (messages != nullptr) {
    MsgList *next = messages->next;
    free(messages->id);
    free(messages->format);
    MsgFmt_FreeArgs(messages->args, messages->numArgs);
    free(messages);
    messages = next;
  }
}

void MsgList_Log(const MsgList *messages) {
  for (; messages != nullptr; messages = messages->next) {
    const OwnedString text(MsgFmt_Asprintf(nullptr, messages->format, messages->args, messages->numArgs));
    ASSERT_MEM_ALLOC(text != nullptr);
    Log("[%s] %s", messages->id, text.get());
  }
}

const char *MsgList_GetMsgID(const MsgList *messages) {
  const char *id = nullptr;
  for (; messages != nullptr; messages = messages->next) {
    id = messages->id;
  }
  return id;
}
