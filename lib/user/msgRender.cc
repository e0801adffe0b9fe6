// Lists of messages as text, for the user and for the log.

#include "err.h"
#include "log.h"
#include "msgInt.h"
#include "panicUser.h"
#include "util_misc.h"

namespace {

// The text of an error in the user's language, as a new string; null where its own text is to be shown.
char *LocalErrorText(const MsgFmt_Arg &arg, Dictionary *dictionary) {
  const char *local = arg.errorKind == MSGFMT_ERROR_ERRNO ? Err_Errno2LocalString(arg.errorCode) : nullptr;
  if (local != nullptr) {
    return Util_SafeStrdup(local);
  }
  if (dictionary == nullptr) {
    return nullptr;
  }
  if (arg.errorKind == MSGFMT_ERROR_WINDOWS) {
    return Msg_Format(MSGID(msg.systemErrorWindows) "Error %d (0x%x) [%s]", arg.errorCode,
                      static_cast<unsigned>(arg.errorCode), arg.value.string8);
  }
  return Msg_Format(MSGID(msg.systemError) "Error %d [%s]", arg.errorCode, arg.value.string8);
}

void Localize(MsgFmt_Arg *arg, Dictionary *dictionary) {
  if (arg->type == MSGFMT_ARG_ERRNO) {
    arg->localString = LocalErrorText(*arg, dictionary);
  } else if (arg->type == MSGFMT_ARG_STRING8 && arg->value.string8 != nullptr &&
             MsgIsMarked(arg->value.string8)) {
    arg->localString = const_cast<char *>(MsgGetText(arg->value.string8, dictionary, nullptr));
  }
}

void Unlocalize(MsgFmt_Arg *arg) {
  if (arg->type == MSGFMT_ARG_ERRNO) {
    free(arg->localString);
  }
  arg->localString = nullptr;
}

// Makes room for `length` bytes and a NUL behind what the buffer has.
void Reserve(DynBuf *text, size_t length) {
  const size_t needed = text->size + length + 1;
  ASSERT_MEM_ALLOC(needed <= text->allocated || DynBuf_Enlarge(text, needed));
}

// Appends a message in this wording. Returns false when that doesn't suit the values.
bool AppendMessage(const char *format, const MsgList &message, DynBuf *text) {
  size_t length = 0;
  for (;;) {
    Reserve(text, length);
    char *at = text->data + text->size;
    const size_t room = text->allocated - text->size;
    const int printed = MsgFmt_Snprintf(&at, room, format, message.args, message.numArgs);
    if (printed < 0) {
      return false;
    }
    length = static_cast<size_t>(printed);
    if (length < room) {
      text->size += length;
      return true;
    }
  }
}

void RenderMessage(const MsgList &message, Dictionary *dictionary, DynBuf *text) {
  const char *local = MsgDictionaryText(dictionary, message.id);
  // A wording of the catalogue that doesn't suit the values is a fault of its translator, for which the
  // default wording stands in.
  if (local == nullptr || !AppendMessage(local, message, text)) {
    ASSERT_MEM_ALLOC(AppendMessage(message.format, message, text));
  }
}

}  // namespace

void MsgRender(MsgList *messages, Dictionary *dictionary, DynBuf *text) {
  Reserve(text, 0);
  text->data[text->size] = '\0';
  for (; messages != nullptr; messages = messages->next) {
    for (int i = 0; i < messages->numArgs; i++) {
      Localize(&messages->args[i], dictionary);
    }
    RenderMessage(*messages, dictionary, text);
    for (int i = 0; i < messages->numArgs; i++) {
      Unlocalize(&messages->args[i]);
    }
  }
}

OwnedString MsgRenderNew(MsgList *messages, Dictionary *dictionary) {
  DynBuf text;
  DynBuf_Init(&text);
  MsgRender(messages, dictionary, &text);
  return OwnedString(static_cast<char *>(DynBuf_Detach(&text)));
}

void MsgLogList(const char *title, const char *subtitle, const MsgList *messages) {
  Log("%s:%s%s\n", title, subtitle[0] == '\0' ? "" : " ", subtitle);
  MsgList_Log(messages);
  Log("----------------------------------------\n");
}
