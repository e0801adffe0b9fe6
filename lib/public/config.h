// Settings by a printf-style key.
//
//   const OwnedString level(Config_GetString("none", "log.%s.level", name));
//
// The getters give what the Preference_Get functions do (preference.h), with the default first. A key is cut
// at 1023 bytes.
#ifndef OST_PUBLIC_CONFIG_H
#define OST_PUBLIC_CONFIG_H

#include <cstdint>

#define OST_PRINTF(index, first) __attribute__((format(printf, index, first)))

bool Config_GetBool(bool defaultValue, const char *format, ...) OST_PRINTF(2, 3);
int32_t Config_GetLong(int32_t defaultValue, const char *format, ...) OST_PRINTF(2, 3);
int64_t Config_GetInt64(int64_t defaultValue, const char *format, ...) OST_PRINTF(2, 3);
double Config_GetDouble(double defaultValue, const char *format, ...) OST_PRINTF(2, 3);
// 0 false, 1 true, -1 default.
int32_t Config_GetTriState(int32_t defaultValue, const char *format, ...) OST_PRINTF(2, 3);
// Return a new string (free); a null value or default is null. The two are the same: no file of settings has
// an encrypted section.
char *Config_GetString(const char *defaultValue, const char *format, ...) OST_PRINTF(2, 3);
char *Config_GetStringPlain(const char *defaultValue, const char *format, ...) OST_PRINTF(2, 3);
// The same with "~" and "$NAME" expanded; null with a message pending where that fails.
char *Config_GetPathName(const char *defaultValue, const char *format, ...) OST_PRINTF(2, 3);
// Whether no layer holds the key, or only a default that was read.
bool Config_NotSet(const char *format, ...) OST_PRINTF(1, 2);

// ---- What settings have no use for
//
// Settings are read, never written, and read by type. Each of these stops the program.

[[noreturn]] void *Config_Get(const void *defaultValue, uint32_t typeAndFlags, const char *name);
[[noreturn]] void Config_Set(const void *value, uint32_t typeAndFlags, const char *name);
[[noreturn]] void Config_SetFromString(const char *text, bool overwrite);
[[noreturn]] void Config_Unset(const char *format, ...) OST_PRINTF(1, 2);
[[noreturn]] void Config_UnsetPrefix(const char *prefix);
[[noreturn]] bool Config_Write();

[[noreturn]] char *Config_GetStringEnum(const char *defaultValue, const char *const *choices,
                                        const char *format, ...) OST_PRINTF(3, 4);
[[noreturn]] void Config_SetBool(bool value, const char *format, ...) OST_PRINTF(2, 3);
[[noreturn]] void Config_SetLong(int32_t value, const char *format, ...) OST_PRINTF(2, 3);
[[noreturn]] void Config_SetInt64(int64_t value, const char *format, ...) OST_PRINTF(2, 3);
[[noreturn]] void Config_SetDouble(double value, const char *format, ...) OST_PRINTF(2, 3);
[[noreturn]] void Config_SetTriState(int32_t value, const char *format, ...) OST_PRINTF(2, 3);
[[noreturn]] void Config_SetString(const char *value, const char *format, ...) OST_PRINTF(2, 3);
[[noreturn]] void Config_SetAny(const char *value, const char *format, ...) OST_PRINTF(2, 3);

#undef OST_PRINTF

#endif
