// Settings by type.
#include <cstdarg>

#include "config.h"
#include "panicUser.h"
#include "preference.h"
#include "str.h"

namespace {

constexpr size_t kKeySize = 1024;

}  // namespace

// The key that a caller's format and arguments make.
#define CONFIG_KEY(key, format)                    \
  char key[kKeySize];                              \
  do {                                             \
    va_list args;                                  \
    va_start(args, format);                        \
    Str_Vsnprintf(key, sizeof(key), format, args); \
    va_end(args);                                  \
  } while (false)

bool Config_GetBool(bool defaultValue, const char *format, ...) {
  CONFIG_KEY(key, format);
  return Preference_GetBool(defaultValue, key);
}

int32_t Config_GetLong(int32_t defaultValue, const char *format, ...) {
  CONFIG_KEY(key, format);
  return Preference_GetLong(defaultValue, key);
}

int64_t Config_GetInt64(int64_t defaultValue, const char *format, ...) {
  CONFIG_KEY(key, format);
  return Preference_GetInt64(defaultValue, key);
}

double Config_GetDouble(double defaultValue, const char *format, ...) {
  CONFIG_KEY(key, format);
  return Preference_GetDouble(defaultValue, key);
}

int32_t Config_GetTriState(int32_t defaultValue, const char *format, ...) {
  CONFIG_KEY(key, format);
  return Preference_GetTriState(defaultValue, key);
}

char *Config_GetString(const char *defaultValue, const char *format, ...) {
  CONFIG_KEY(key, format);
  return Preference_GetString(defaultValue, key);
}

char *Config_GetStringPlain(const char *defaultValue, const char *format, ...) {
  CONFIG_KEY(key, format);
  return Preference_GetString(defaultValue, key);
}

char *Config_GetPathName(const char *defaultValue, const char *format, ...) {
  CONFIG_KEY(key, format);
  return Preference_GetPathName(defaultValue, key);
}

bool Config_NotSet(const char *format, ...) {
  CONFIG_KEY(key, format);
  return Preference_NotSet(key);
}

char *Config_GetStringEnum(const char * /*defaultValue*/, const char *const * /*choices*/,
                           const char * /*format*/, ...) {
  NOT_IMPLEMENTED();
}

void Config_SetBool(bool /*value*/, const char * /*format*/, ...) {
  NOT_IMPLEMENTED();
}

void Config_SetLong(int32_t /*value*/, const char * /*format*/, ...) {
  NOT_IMPLEMENTED();
}

void Config_SetInt64(int64_t /*value*/, const char * /*format*/, ...) {
  NOT_IMPLEMENTED();
}

void Config_SetDouble(double /*value*/, const char * /*format*/, ...) {
  NOT_IMPLEMENTED();
}

void Config_SetTriState(int32_t /*value*/, const char * /*format*/, ...) {
  NOT_IMPLEMENTED();
}

void Config_SetString(const char * /*value*/, const char * /*format*/, ...) {
  NOT_IMPLEMENTED();
}

void Config_SetAny(const char * /*value*/, const char * /*format*/, ...) {
  NOT_IMPLEMENTED();
}
