// System error texts that live for the whole process: one number always gives the same pointer.
#ifndef OST_PUBLIC_ERR_H
#define OST_PUBLIC_ERR_H

using Err_Number = int;

// The errno of this thread.
Err_Number Err_Errno();

// The text of the current errno. Borrowed, lives for ever; errno is kept.
const char *Err_ErrString();
// The text of an error number other than -1. Borrowed, lives for ever; errno is kept.
const char *Err_Errno2String(Err_Number errorNumber);
// The number of a text that Err_Errno2String gave, found by its address, or -1.
Err_Number Err_String2Errno(const char *text);
// The same, found by its wording; a text that was copied on its way is logged.
Err_Number Err_String2ErrnoDebug(const char *text);
// The text in the user's language, or null: this system has none.
const char *Err_Errno2LocalString(Err_Number errorNumber);

#endif
