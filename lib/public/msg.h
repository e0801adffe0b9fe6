// Messages for the user that lower layers leave behind and higher layers show or drop.
//
// A message is a format "@&!*@*@(msg.id)text": a marker, an id and the wording.
#ifndef OST_PUBLIC_MSG_H
#define OST_PUBLIC_MSG_H

#define MSGID(id) "@&!*@*@(msg." #id ")"

enum { MSG_SEVERITIES = 9 };
// The titles of the severities as messages; null for a severity that has none.
extern const char *const Msg_Severities[MSG_SEVERITIES];

// Appends a message to the pending list of the process.
void Msg_Append(const char *idFormat, ...) __attribute__((format(printf, 1, 2)));
// Appends a message and posts all that is pending as one text: to the log, and to the user on standard error.
//
// severity  below 9, or the program stops: 2 for a bad value that has a fallback, 3 for an error
void Msg_Post(int severity, const char *idFormat, ...) __attribute__((format(printf, 2, 3)));
// Whether messages are pending.
bool Msg_Present();
// Empties the pending list; with `log`, writes what it held to the log first.
void Msg_Reset(bool log);

#endif
