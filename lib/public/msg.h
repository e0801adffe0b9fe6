// Messages for the user that lower layers leave behind and higher layers show or drop.
//
// A message is a format "@&!*@*@(msg.id)text": a marker, an id and the wording.
#ifndef OST_PUBLIC_MSG_H
#define OST_PUBLIC_MSG_H

#define MSGID(id) "@&!*@*@(msg." #id ")"

// Appends a message to the pending list of the process.
void Msg_Append(const char *idFormat, ...) __attribute__((format(printf, 1, 2)));
// Whether messages are pending.
bool Msg_Present();
// Empties the pending list; with `log`, writes what it held to the log first.
void Msg_Reset(bool log);

#endif
