// The program's settings: six dictionaries, one above the other. A key is read from the first that holds it.
//
//   Preference_DisablePolling();
//   Preference_Init();
//   const bool append = Preference_GetBool(false, "log.append");    // config.h reads by a printf-style key
//   Preference_Exit();
//
// The layers, the strongest first:
//   GLOBAL_SETTINGS   <libdir>/settings, which no user can override
//   (command line)    what Preference_SetFromString sets
//   USER_PREFERENCES  ~/.ostrel/preferences, which also keeps the defaults that were read
//   USER_DEFAULTS     ~/.ostrel/config
//   HOST_DEFAULTS     /etc/ostrel/config, which alone tells <libdir> and "disableUserPreferences"
//   SITE_DEFAULTS     <libdir>/config
//
// A file that is missing or bad leaves its layer empty or partial, with lines in the log: nothing here stops
// the program but a wrong order of calls. A process whose real and effective user differ reads no file of the
// user's. The settings belong to one thread.
#ifndef OST_PUBLIC_PREFERENCE_H
#define OST_PUBLIC_PREFERENCE_H

#include <cstdint>

// ---- Life

// Loads the layers and, unless that is disabled, arms a timer that reads the user's preferences again when
// their file has changed; Poll must be up then. A second call stops the program. Returns true.
bool Preference_Init();
// Frees everything; reads give their defaults from then on. Nothing when there is nothing.
void Preference_Exit();
// Let Preference_Init arm no timer, and the second also leave out ~/.ostrel/preferences. One of them, once,
// and before Preference_Init: anything else stops the program.
void Preference_DisablePolling();
void Preference_DisableUserPreferences();

// ---- Reading
//
// Before Preference_Init and after Preference_Exit a read gives its default, with a line in the log.
// Otherwise the first default given for a key that no layer holds is kept: later reads get that one. A text
// that isn't of the type posts a warning and gives the default; lower layers aren't asked then. Where the
// timer or Preference_SetFromString brings such a text for a key that was read before, it counts as far as it
// goes: "12x" is 12 then. The type of the first read holds for a key: another one stops the program.

bool Preference_GetBool(bool defaultValue, const char *key);
int32_t Preference_GetLong(int32_t defaultValue, const char *key);
int64_t Preference_GetInt64(int64_t defaultValue, const char *key);
double Preference_GetDouble(double defaultValue, const char *key);
// 0 false, 1 true, -1 default.
int32_t Preference_GetTriState(int32_t defaultValue, const char *key);
// Return a new string (free); a null value or default is null.
char *Preference_GetString(const char *defaultValue, const char *key);
char *Preference_GetStringPlain(const char *defaultValue, const char *key);
// The same with "~" and "$NAME" expanded; null with a message pending where that fails.
char *Preference_GetPathName(const char *defaultValue, const char *key);
// Reads a string that must be one of some choices, as Dict_GetStringEnum does. The choices aren't applied to
// the default of a key that no layer holds, and such a key is read as a printf format; both are wanted.
//
// choices  ended by a null
//
// Returns a new string (free), or null.
char *Preference_GetStringEnum(const char *defaultValue, const char *const *choices, const char *key);
// Whether no layer holds the key, or only a default that was read.
bool Preference_NotSet(const char *key);

// ---- The command line's layer

// Sets a value of this process by a text "name=value". The preferences must be up.
//
// overwrite  whether a value that the layer has is replaced; otherwise it stays, with an error posted
void Preference_SetFromString(const char *text, bool overwrite);

// ---- For the log
//
// Nothing when the preferences aren't up.

// Logs the five files' names.
void Preference_LogFileNames();
// Logs the values of the user's, the host's and the site's files.
void Preference_LogAll();

#endif
