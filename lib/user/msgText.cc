// Texts of formats.

#include <cstring>

#include "msgInt.h"
#include "owned.h"
#include "panicUser.h"
#include "str.h"
#include "util_misc.h"

const char *MsgDictionaryText(Dictionary *dictionary, const char *id) {
  // Of the ids that a value may bring, a catalogue can't be asked for these.
  if (dictionary == nullptr || *id == '\0' || *id == '.') {
    return nullptr;
  }
  // An id that is missing must stay so, or a file that has it could no more be added.
  const void *slot = Dictionary_GetDefined(dictionary, nullptr, DICT_STRING, id);
  return slot == nullptr ? nullptr : *static_cast<const char *const *>(slot);
}

const char *MsgGetText(const char *idFormat, Dictionary *dictionary, char *idBuffer) {
  const char *text = MsgMarkedText(idFormat);
  ASSERT(text != nullptr);
  const std::string_view id = MsgMarkedId(idFormat, text);
  if (id.size() >= MSG_ID_SIZE) {
    NOT_IMPLEMENTED();
  }
  char localBuffer[MSG_ID_SIZE];
  char *idCopy = idBuffer == nullptr ? localBuffer : idBuffer;
  memcpy(idCopy, id.data(), id.size());
  idCopy[id.size()] = '\0';
  const char *local = MsgDictionaryText(dictionary, idCopy);
  return local == nullptr ? text : local;
}

char *MsgStripAccelerators(const char *label) {
  OwnedString plain(Util_SafeStrdup(label));
  char *to = plain.get();
  bool hasAccelerator = false;
  for (; *label != '\0'; label++) {
    if (*label != '_') {
      *to++ = *label;
    } else if (label[1] == '_') {
      *to++ = *label++;
    } else {
      ASSERT(!hasAccelerator);
      hasAccelerator = true;
    }
  }
  *to = '\0';
  return plain.release();
}

const char *Msg_GetString(const char *idFormat) {
  return MsgGetText(idFormat, MsgGetState()->dictionary.get(), nullptr);
}

char *Msg_GetStringCopy(const char *idFormat) {
  return Util_SafeStrdup(Msg_GetString(idFormat));
}

char *Msg_GetStringSafe(const char *string) {
  return Util_SafeStrdup(MsgIsMarked(string) ? Msg_GetString(string) : string);
}

char *Msg_GetPlainButtonText(const char *idFormat) {
  return MsgStripAccelerators(Msg_GetString(idFormat));
}

char *Msg_Format(const char *idFormat, ...) {
  va_list args;
  va_start(args, idFormat);
  char *text = Msg_VFormat(idFormat, args);
  va_end(args);
  return text;
}

char *Msg_VFormat(const char *idFormat, va_list args) {
  return Str_SafeVasprintf(nullptr, Msg_GetString(idFormat), args);
}
