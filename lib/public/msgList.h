// Messages as data, in a list: an id, the default wording and the arguments.
//
//   MsgList *messages = MsgList_Create(MSGID(disk.full) "No room on \"%s\".\n", path);
//   MsgList_Log(messages);
//   MsgList_Free(messages);
//
// Running out of memory stops the program.
#ifndef OST_PUBLIC_MSGLIST_H
#define OST_PUBLIC_MSGLIST_H

#include <cstdarg>
#include <cstdint>
#include <string_view>

#include "msgfmt.h"

struct MsgList {
  MsgList *next;
  // Both are in the block of the message, and stay there as long as it does.
  char *id;          // without marker and parentheses
  char *format;      // the default wording
  MsgFmt_Arg *args;  // owned
  int32_t numArgs;
};

// A new list of one message (MsgList_Free). A format without marker and an id that begins with "msg.", and
// one that MsgFmt_GetArgs refuses, stop the program.
MsgList *MsgList_Create(const char *idFormat, ...) __attribute__((format(printf, 1, 2)));
MsgList *MsgList_VCreate(const char *idFormat, va_list args) __attribute__((format(printf, 1, 0)));

// A new list of one message without arguments (MsgList_Free), whatever its id is.
MsgList *MsgList_New(std::string_view id, std::string_view format);

// A deep copy (MsgList_Free); null of null. A wide string in an argument stops the program.
MsgList *MsgList_Copy(const MsgList *messages);
// Frees the whole list; null is allowed.
void MsgList_Free(MsgList *messages);

// Writes each message in its default wording to the log.
void MsgList_Log(const MsgList *messages);
// The id of the last message, borrowed; null for a null list.
const char *MsgList_GetMsgID(const MsgList *messages);

#endif
