// Path expansion, the user's private temporary directory, and back traces.
#ifndef OST_PUBLIC_UTIL_H
#define OST_PUBLIC_UTIL_H

// Expands "~", "~user" and "$NAME" in a file name. Returns a new string (free), or null with a message
// pending.
char *Util_ExpandString(const char *fileName);

// The directory "<tmp>/ostrel-<user>", mode 0700 and owned by the effective user, made when it is missing.
// One directory serves the process; a directory that is no longer acceptable is not trusted again.
//
// useConf  whether the configuration may name the temporary directory
//
// Returns a new string (free), or null with a warning in the log.
char *Util_GetSafeTmpDir(bool useConf);

// Makes a file's name from that of another.
//
// source  the other file, whose directory a relative result is put under when it isn't "."
// name    the new name, or null for that of `source` without its last extension
// ext     the extension to add, or null; one of the two must be given
//
// Returns a new string (free), or null with a warning in the log when an argument is missing.
char *Util_DeriveFileName(const char *source, const char *name, const char *ext);

// Takes one line of a back trace, a printf format with its values.
using Util_OutputFn [[gnu::format(printf, 2, 3)]] = void (*)(void *outData, const char *format, ...);

// Write the calling stack, at most 500 frames, under a heading that carries `bugNumber` when it isn't 0: to
// the log, or line by line to `outFunc`.
void Util_Backtrace(int bugNumber);
void Util_BacktraceWithFunc(int bugNumber, Util_OutputFn outFunc, void *outData);

#endif
