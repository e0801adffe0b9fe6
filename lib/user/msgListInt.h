// Making messages of a list by hand.
#ifndef OST_USER_MSGLISTINT_H
#define OST_USER_MSGLISTINT_H

#include <string_view>

#include "msgList.h"

// A new list of one message without arguments (MsgList_Free).
MsgList *MsgListNew(std::string_view id, std::string_view format);

#endif
