// The running record of the process: one log file, and its two calls, Log and Warning.
//
//   Log_Init(nullptr, "setup.log.filename", "setup");
//   Log("Installing module %s from %s.\n", module, path);   // to the file alone
//   Warning("Logging to %s\n", Log_GetFileName());          // to the file and to standard error
//
// A line reads "Nov 14 09:30:05.123: <thread>| text". Logging never stops the work: text that has no file yet
// waits in a ring of 32 KiB that drops its oldest whole lines first.
#ifndef OST_PUBLIC_LOG_H
#define OST_PUBLIC_LOG_H

// Opens the log.
//
// fileName  the log's path, or null for the configured one or "<safe temporary directory>/<suffix>-<pid>.log"
// config    the preference key that may name the file; may be null
// suffix    what the file's name begins with
//
// Returns whether the log started.
bool Log_Init(const char *fileName, const char *config, const char *suffix);
void Log_Exit();

// Writes a text to the log file. A text of more than 4095 bytes is cut. Keeps errno.
void Log(const char *format, ...) __attribute__((format(printf, 1, 2)));
// The same, and the bare text to standard error unless warnings are quiet.
void Warning(const char *format, ...) __attribute__((format(printf, 1, 2)));

// The log file's path, borrowed until the log's file changes; null when there is none.
const char *Log_GetFileName();
// Ends the logging to the file and deletes it, unless it is to be kept: with `force` always, otherwise only a
// file of the temporary directory that Log_SetAlwaysKeep doesn't protect. Returns whether nothing failed.
bool Log_RemoveFile(bool force);
void Log_SetQuietWarnings(bool quiet);
bool Log_GetQuietWarnings();
void Log_SetAlwaysKeep(bool keep);
void Log_DisableThrottling();

#endif
