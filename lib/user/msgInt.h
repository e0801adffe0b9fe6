// What the parts of the user messages share.
#ifndef OST_USER_MSGINT_H
#define OST_USER_MSGINT_H

#include <cstddef>

#include "dictionary.h"
#include "dynbuf.h"
#include "msg.h"
#include "msgMark.h"
#include "owned.h"

using OwnedMsgList = std::unique_ptr<MsgList, Releaser<MsgList_Free>>;

// A setting that is being read, on the stack of its reader: the way to a panic's post needs no memory for it.
struct MsgSettingRead {
  const char *key;
  const MsgSettingRead *outer;
};

// The record of the process. Made by the first use of any function, freed by Msg_Exit.
struct MsgState {
  MsgCallback callback;
  // The pending list, and the link that the next message is put into.
  MsgList *head = nullptr;
  MsgList **tailLink = &head;
  OwnedString locale;
  OwnedDictionary dictionary;                       // the catalogue, or null
  const char *severityTitles[MSG_SEVERITIES] = {};  // filled by the first post
  const MsgSettingRead *reads = nullptr;            // the innermost

  MsgState();
  MsgState(const MsgState &) = delete;
  MsgState &operator=(const MsgState &) = delete;
  ~MsgState();
};

MsgState *MsgGetState();
// A setting that answers for the user; false unless it is set, and while it is being read.
bool MsgGetSetting(const char *key);

// The table of the terminal.
extern const MsgCallback msgConsoleCallback;

inline bool MsgIsMarked(const char *string) {
  return MsgMarkedText(string) != nullptr;
}
// The wording of a format. One without an id, and a longer id than there may be, stop the program.
//
// dictionary  the catalogue that may have it in other words; null for the default wording
// idBuffer    if not null, gets the id; of MSG_ID_SIZE bytes
//
// Returns it borrowed, from the format or the catalogue.
const char *MsgGetText(const char *idFormat, Dictionary *dictionary, char *idBuffer);
// What a catalogue has for an id, borrowed from it; null without one.
const char *MsgDictionaryText(Dictionary *dictionary, const char *id);
// The label of a button without accelerators, as a new string (free). A second one stops the program.
char *MsgStripAccelerators(const char *label);
// The title of a severity in its default wording, empty where there is none.
const char *MsgSeverityTitle(int severity);

// Appends the text of a list with a NUL, which isn't counted, to a buffer.
//
// dictionary  the catalogue; null for the default wording
void MsgRender(MsgList *messages, Dictionary *dictionary, DynBuf *text);
// The same as a new string.
OwnedString MsgRenderNew(MsgList *messages, Dictionary *dictionary);
// Writes a block with a list in its default wording to the log.
//
// subtitle  may be empty
void MsgLogList(const char *title, const char *subtitle, const MsgList *messages);

#endif
