// The running record of the process: one log file, and its two calls, Log and Warning.
//
//   Log_Init(nullptr, "setup.log.filename", "setup");
//   Log("Installing module %s from %s.\n", module, path);   // to the file alone
//   Warning("Logging to %s\n", Log_GetFileName());          // to the file and to standard error
//
// A line reads "Nov 14 09:30:05.123: <thread>| text". Logging never stops the work: text that has no file
// yet, or comes while the log is throttled, waits in a ring of 32 KiB that drops its oldest whole lines
// first, and what a full disk, or a pipe that nobody reads, doesn't take is lost.
//
// From Log_Init to Log_Exit all that reads no settings (preference.h) is safe in every thread that isn't
// cancelled inside it. Text may also be written in a child of fork, whatever other threads wrote, unless a
// function guards the log, and, in a program that logs in one thread only, in a signal's handler (see
// VThread_SetIsInSignal). Where a function leaves a message, it appends it to the pending ones (msg.h), which
// are the main thread's, for its caller to report.
#ifndef OST_PUBLIC_LOG_H
#define OST_PUBLIC_LOG_H

#include <cstdarg>
#include <cstdint>

// ---- Start and end

// How a log begins.
struct LogInitParams {
  const char *fileName;  // the log's path, or null for what Log_SetFile finds
  const char *config;    // the preference key that may hold the path, or null
  const char *suffix;    // what names a file that no one named; may be null
  const char *appName;   // the program's name and version in the file's first line
  const char *appVersion;
  bool enable;                   // whether there is a log at all
  bool append;                   // a file that is there already is kept and goes on
  int32_t keepOld;               // how many old files are kept by numbers in their names
  uint32_t throttleThreshold;    // bytes before the log can be throttled
  uint32_t throttleBytesPerSec;  // the rate from which it is; LOG_NO_LIMIT for none, 0 for any rate
  bool switchFile;               // old files are renumbered, and the file begins anew, unless `append`
  uint64_t rotateSize;           // bytes after which the next file begins; 0 for never, as in a child of fork
};

enum : uint32_t { LOG_NO_LIMIT = UINT32_MAX };

// Start the log with what the settings say; Log_InitForApp with another program's name than the product's.
//
// fileName  the log's path, or null for the configured one or "<safe temporary directory>/<suffix>-<pid>.log"
// config    the preference key that may name the file; may be null
// suffix    what the file's name begins with
//
// A file that `fileName` names goes on where it ends; one that is found otherwise begins anew, unless
// log.append says no. With neither a file's name nor a key, text waits until Log_SetFile, or goes on in the
// file of a log that has ended. Return whether the log started; when not, messages tell why, and text goes
// where it went. A log that has started already stops the program.
bool Log_Init(const char *fileName, const char *config, const char *suffix);
bool Log_InitForApp(const char *fileName, const char *config, const char *suffix, const char *appName,
                    const char *appVersion);
// What Log_Init starts with. The texts in `params` are borrowed from the arguments and from the product's
// state.
void Log_GetInitDefaults(const char *fileName, const char *config, const char *suffix, LogInitParams *params);
bool Log_InitEx(const LogInitParams *params);
// Ends the log but leaves its file open: text that comes still is written, under the prefix of a log that
// has not started. Comes when no other thread logs any more.
void Log_Exit();

// ---- Writing
//
// A text of more than 4095 bytes is cut, as Str_Vsnprintf does it. A text need not be a line: the next one
// goes on where it ends. All keep errno.

// Writes a text to the log file; drops it while there is no log.
void Log(const char *format, ...) __attribute__((format(printf, 1, 2)));
// The same, and the bare text to standard error unless warnings are quiet. Text for which there is no log
// waits for one.
void Warning(const char *format, ...) __attribute__((format(printf, 1, 2)));
// The same for what may repeat: add one to the caller's counter, and write only when Util_Throttle says that
// this count is worth it.
void Log_Throttled(uint32_t *count, const char *format, ...) __attribute__((format(printf, 2, 3)));
void Warning_Throttled(uint32_t *count, const char *format, ...) __attribute__((format(printf, 2, 3)));
// Log for text that comes from a guest, which has a limit of its own as well.
void GuestLog(const char *format, ...) __attribute__((format(printf, 1, 2)));
// Writes a text as it stands, whose lines are shorter than the ring; of a longer one the last lines that the
// ring holds. Goes to the file also where Log_RegisterFunctions has replaced Log, so that the replacement can
// use it.
void Log_WriteText(const char *text);

// The limit on a kind of text. Once its log is throttled, it stays so.
struct LogThrottleInfo {
  bool throttled;
  uint32_t threshold;    // bytes
  uint32_t bytesPerSec;  // LOG_NO_LIMIT for none
  uint64_t bytesLogged;
  uint64_t lastTimeUs;  // when the rate was last looked at, and how many bytes there were
  uint64_t lastBytes;
};

// That of a guest's text. Without a limit until Log_InitGuestThrottle fills it from the settings.
extern LogThrottleInfo guestLogThrottleInfo;
void Log_InitGuestThrottle();

// ---- The file

// Opens the log's file, or goes over to another.
//
// fileName  its path, or null for the one that the settings have under `config` or, without that, for
//           "<directory>/ostrel-<suffix>.log" in the directory of Log_SetDir or, without one,
//           "<safe temporary directory>/<suffix>-<pid>.log", which is then a temporary file
// config    may be null
// copy      whether the file begins with what the log has so far: an old file of that name is renumbered,
//           and the present file moves, or is copied and deleted. In a log that appends, the old file's text
//           stays before it. When false the file just goes on with what comes.
//
// Returns whether the log goes on there, or is not enabled; when not, messages tell why and the present file
// stays the log's. The name that the log has already changes nothing, not even where the next file couldn't
// be begun, and is no failure. A symbolic link and a directory are refused; a device stays as it is, and the
// log just goes on there; a file that has taken the present one's name is left alone. Without a temporary
// directory the program stops.
bool Log_SetFile(const char *fileName, const char *config, bool copy);
// The log file's path, borrowed until the log's file changes; null when it was given none.
const char *Log_GetFileName();
// Writes what the log's file holds to another file, which is made or emptied first; a log that appends adds
// to it. False with a message on failure: a pipe can't be emptied, and one that is added to may take nothing
// for a second.
bool Log_CopyFile(const char *destination);
// Ends the logging to the file and deletes it, unless it is to be kept: with `force` always, otherwise by the
// setting log.keep: a number above 0 keeps it, 0 doesn't, a negative one keeps what isn't a temporary file.
// Log_SetAlwaysKeep keeps it too. A device is left, but never deleted. Returns whether nothing failed;
// another file that has taken the name stays, and that is a failure.
bool Log_RemoveFile(bool force);
// Gives the file with this name another one, with a number, as the settings say, and deletes what is then too
// many. Failures are logged.
void Log_BackupOldFiles(const char *fileName);
// Where a file that has no name otherwise lies from now on; null for the temporary directory. Log_GetDir
// gives a new string (free), or null.
void Log_SetDir(const char *dir);
char *Log_GetDir();

// ---- Settings

// Overrides what the settings say of these, and reads the others anew.
//
// enable        whether text is written; a file that is open stays so
// append        whether Log_SetFile keeps what a file holds
// keepOld       how many old files are kept; 0 or less for none
// rotateSize    bytes; 0 for no limit
// fastRotation  gives an old file the next free number instead of renaming all
void Log_SetConfig(bool enable, bool append, int32_t keepOld, uint64_t rotateSize, bool fastRotation);
bool Log_Enabled();
// Lifts the limit on the log's rate until the settings are read anew. What waited is written with the next
// text.
void Log_DisableThrottling();
void Log_SetQuietWarnings(bool quiet);
bool Log_GetQuietWarnings();
void Log_SetAlwaysKeep(bool keep);
// Put functions in the place of Log and GuestLog, and of Warning; null for the log's own.
using LogFunction = void (*)(const char *format, va_list args);
void Log_RegisterFunctions(LogFunction logFn, LogFunction warningFn);
// Guards the log by a function instead of its own mutex: called with true before and with false after, and
// again inside. What it logs itself is lost. A second function stops the program; null takes the first away.
// Comes while no other thread logs. A fork doesn't call it: whether a child may log while another thread of
// its parent did is then up to the function's owner.
using LogLockFunction = void (*)(bool lock);
void Log_SetLockFunc(LogLockFunction lockFn);

#endif
