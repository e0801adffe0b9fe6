#include "msgList.h"

#include <strings.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "log.h"
#include "msgMark.h"
#include "owned.h"
#include "panicUser.h"
#include "util_misc.h"

namespace {

using OwnedList = std::unique_ptr<MsgList, Releaser<MsgList_Free>>;

std::string_view IdOf(const char *idFormat, const char *text) {
  const std::string_view id = MsgMarkedId(idFormat, text);
  if (id.size() >= MSG_ID_SIZE) {
    NOT_IMPLEMENTED();
  }
  ASSERT(strncasecmp(id.data(), "msg.", 4) == 0);
  return id;
}

// Copies a string with a NUL behind it. Returns where that ends.
char *PutString(char *to, std::string_view string) {
  char *end = std::copy(string.begin(), string.end(), to);
  *end = '\0';
  return end + 1;
}

MsgList *CopyNode(const MsgList &message) {
  MsgList *copy = MsgList_New(message.id, message.format);
  copy->args = MsgFmt_CopyArgs(message.args, message.numArgs);
  ASSERT_MEM_ALLOC(copy->args != nullptr);
  copy->numArgs = message.numArgs;
  return copy;
}

}  // namespace

MsgList *MsgList_New(std::string_view id, std::string_view format) {
  auto *message =
      static_cast<MsgList *>(Util_SafeMalloc(sizeof(MsgList) + id.size() + 1 + format.size() + 1));
  *message = {};
  message->id = reinterpret_cast<char *>(message + 1);
  message->format = PutString(message->id, id);
  PutString(message->format, format);
  return message;
}

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
  OwnedList message(MsgList_New(IdOf(idFormat, text), text));
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
