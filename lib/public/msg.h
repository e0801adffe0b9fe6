// What foundation code says to the user, whether a window, a terminal or nobody is there: messages that lower
// layers leave behind and higher layers show or drop, questions, hints and progress.
//
//   Msg_Append(MSGID(disk.full) "No room on \"%s\".\n", path);                // where it is known
//   Msg_Post(3, MSGID(backup.failed) "The backup of \"%s\" failed.\n", name);   // where it is decided
//
//   static const char *const names[] = {MSGID_BUTTON(yes) "_Yes", MSGID_BUTTON(no) "_No", nullptr};
//   if (Msg_Question(names, 1, MSGID(backup.again) "Try \"%s\" again?\n", name) == 0) { ... }
//
// A text for the user is a format "@&!*@*@(msg.id)wording": a marker, an id of at most 127 bytes and the
// default wording, which a catalogue of a locale may replace. A function that takes a format stops the
// program for one without an id, and so do those that make a message for an id that doesn't begin with
// "msg.", and for a format that MsgFmt_GetArgs refuses. A text in a message's values may be marked itself,
// and is told in the words of the same catalogue.
//
// Preferences answer for a user who isn't there: msg.autoAnswer, msg.noOK, msg.noOKnoWarning and
// answer.<id>. What the user sees is up to a table of callbacks; the built-in ones use the terminal.
//
// All of this belongs to the main thread.
#ifndef OST_PUBLIC_MSG_H
#define OST_PUBLIC_MSG_H

#include <cstdarg>
#include <cstdint>

#include "msgList.h"

#define MSGID(id) "@&!*@*@(msg." #id ")"
#define MSGID_BUTTON(id) "@&!*@*@(button." #id ")"

enum { MSG_SEVERITIES = 9 };
// The titles of the severities as messages; null for a severity that has none.
extern const char *const Msg_Severities[MSG_SEVERITIES];

// ---- The pending list

// Append a message. Return it, borrowed for as long as it is pending.
MsgList *Msg_Append(const char *idFormat, ...) __attribute__((format(printf, 1, 2)));
MsgList *Msg_VAppend(const char *idFormat, va_list args) __attribute__((format(printf, 1, 0)));
// Appends a copy of the one message `message`, whose arguments it takes: afterwards that has none, and is
// still the caller's.
MsgList *Msg_AppendMsgList(MsgList *message);

// Empties the list. Returns what it held (MsgList_Free), null for nothing.
MsgList *Msg_DetachMsgList();
// What the list holds, borrowed until it is emptied; null for nothing.
MsgList *Msg_GetMsgList();
bool Msg_Present();
// Empties the list; with `log`, writes what it held to the log first.
void Msg_Reset(bool log);

// The text of all that is pending, empty for nothing. Borrowed until the next call of the same function. The
// second also empties the list.
const char *Msg_GetMessages();
const char *Msg_GetMessagesAndReset();

// ---- Telling and asking

// Append a message and post all that is pending as one: to the log, and unless preferences tell otherwise to
// the user.
//
// severity  below 9, or the program stops: 2 for a bad value that has a fallback, 3 for an error
// message   taken as by Msg_AppendMsgList
void Msg_Post(int severity, const char *idFormat, ...) __attribute__((format(printf, 2, 3)));
void Msg_PostMsgList(int severity, MsgList *message);

// Appends a message and asks all that is pending as one question.
//
// names          the buttons' formats, ended by a null; the user is offered the first nine
// defaultAnswer  the index of one of them
//
// Returns the index of the answer. The built-in callback doesn't return before it has one, not even at the
// end of standard input.
int Msg_Question(const char *const *names, int defaultAnswer, const char *idFormat, ...)
    __attribute__((format(printf, 3, 4)));

enum MsgHintType { MSG_HINT_TYPE_OK = 0, MSG_HINT_TYPE_OK_CANCEL = 1 };
enum MsgHintResult { MSG_HINT_OK = 0, MSG_HINT_CANCEL = 1, MSG_HINT_NOT_SHOWN = 2 };

// Offer a hint. The pending list has no part in it.
//
// defaultShow  has no effect
// hintType     a MsgHintType; a larger one stops the program
// message      stays the caller's
MsgHintResult Msg_Hint(bool defaultShow, int hintType, const char *idFormat, ...)
    __attribute__((format(printf, 3, 4)));
MsgHintResult Msg_HintMsgList(bool defaultShow, int hintType, MsgList *message);

// ---- Progress
//
// The id of these messages may begin with anything. A null format gives callbacks no id and an empty text.

// Reports how far something has come.
//
// percent       only with a negative one does the built-in callback take the text, an empty one too; one
//               above 100 ends its line
// cancelButton  whether the user may cancel
//
// Returns what the callback returns; the built-in one 0.
int Msg_Progress(int percent, bool cancelButton, const char *idFormat, ...)
    __attribute__((format(printf, 3, 4)));
// Reports the percent of one of several operations as part of the whole.
//
// opsDone   how many operations have ended, below `opsTotal`, or the program stops
// opsTotal  how many there are; with 0 the percent is that of the whole, and a negative one stops the program
//
// Returns as Msg_Progress, and 0, with nothing reported, for a percent of -1 or 101 of an operation.
int Msg_ProgressScaled(int percent, int opsDone, int opsTotal, bool cancelButton);

// Progress that a callback may choose to show late or never; the built-in table has none of it.
//
// Returns the callback's handle, null without one.
void *Msg_LazyProgressStart(bool allowCancel, const char *idFormat, ...)
    __attribute__((format(printf, 2, 3)));
// Returns what the callback returns, false without one.
bool Msg_LazyProgress(void *handle, bool allowCancel, int percent, const char *idFormat, ...)
    __attribute__((format(printf, 4, 5)));
void Msg_LazyProgressEnd(void *handle);

// ---- Text

// The wording of a format in the words of the catalogue. Borrowed: from the format, or until the catalogue
// changes.
const char *Msg_GetString(const char *idFormat);
// The same as a new string (free).
char *Msg_GetStringCopy(const char *idFormat);
// The same; a string without marker is copied as it is.
char *Msg_GetStringSafe(const char *string);
// The wording of a button without accelerators, as a new string (free): each "_" is dropped, and "__" is one
// "_". More than one accelerator stops the program.
char *Msg_GetPlainButtonText(const char *idFormat);

// Print into a new string (free), with the wording of the catalogue.
char *Msg_Format(const char *idFormat, ...) __attribute__((format(printf, 1, 2)));
char *Msg_VFormat(const char *idFormat, va_list args) __attribute__((format(printf, 1, 0)));
// A size in the largest unit of which there is one, as a new string (free): "1.5 KB".
char *Msg_FormatSizeInBytes(uint64_t size);

// ---- Callbacks

// What the user sees. Texts, names and lists are borrowed until the callback returns. Texts are in the words
// of the catalogue, and so are `localizedNames`, at most nine; `names` are the caller's formats. Both end in
// a null. Of two that return a value, the one that takes a list is called last, and counts.
struct MsgCallback {
  void (*post)(int severity, const char *id, const char *text);
  int (*question)(const char *const *localizedNames, int defaultAnswer, const char *id, const char *text);
  int (*progress)(const char *id, const char *text, int percent, bool cancelButton);
  MsgHintResult (*hint)(int hintType, const char *id, const char *text);
  void *(*lazyProgressStart)(const char *id, const char *text, bool allowCancel);
  bool (*lazyProgress)(void *handle, const char *id, const char *text, bool allowCancel, int percent);
  void (*lazyProgressEnd)(void *handle);
  void (*postList)(int severity, MsgList *messages);
  int (*questionList)(const char *const *names, int defaultAnswer, MsgList *messages);
  int (*progressList)(MsgList *messages, int percent, bool cancelButton);
  MsgHintResult (*hintList)(int hintType, MsgList *messages);
  void *(*lazyProgressStartList)(MsgList *messages);
};

// Copies a table. Of post, question, progress and hint each must have one of its two forms, or the program
// stops.
void Msg_SetCallback(const MsgCallback *callback);
// Gets the table in force.
void Msg_GetCallback(MsgCallback *callback);

// ---- Catalogues

// Changes to the catalogue "<libdir>/messages/<locale>/<binaryName>.ostmsg". One that can't be loaded leaves
// everything as it was, with the reason in the log and, unless the locale begins with "en", a warning.
//
// locale  null for the default wording; then `binaryName` has no effect
void Msg_SetLocale(const char *locale, const char *binaryName);
// Adds a file to the catalogue, or makes it the catalogue, under this locale, where there is none. A failure
// is told as by Msg_SetLocale.
//
// locale    may be null
// fileName  null fails without a word
//
// Returns whether it was loaded.
bool Msg_LoadMessageFile(const char *locale, const char *fileName);
// The locale of the catalogue, borrowed until that changes; null for none.
const char *Msg_GetLocale();

// Drops all that is pending, the catalogue and the callbacks.
void Msg_Exit();

#endif
