#include "dictType.h"

#include <cstdarg>
#include <cstring>

#include "dictionaryInt.h"
#include "msg.h"
#include "panicUser.h"
#include "str.h"
#include "util_misc.h"

namespace {

constexpr size_t kKeySize = 1024;

template <typename T>
T DictGet(Dictionary *dict, T defaultValue, uint32_t typeAndFlags, const char *key) {
  return *static_cast<const T *>(Dictionary_Get(dict, &defaultValue, typeAndFlags, key));
}

char *DictGetText(Dictionary *dict, const char *defaultValue, uint32_t flags, const char *key) {
  return Util_SafeStrdup(DictGet(dict, defaultValue, DICT_STRING | flags, key));
}

template <typename T>
void DictSet(Dictionary *dict, T value, uint32_t typeAndFlags, const char *key) {
  Dictionary_Set(dict, &value, typeAndFlags, key);
}

bool DictIsChoice(const char *value, const char *const *choices) {
  for (; *choices != nullptr; choices++) {
    if (strcmp(value, *choices) == 0) {
      return true;
    }
  }
  return false;
}

void DictPostNotEnum(const char *value, const char *key, const char *defaultValue) {
  const DictPrintable printableValue(value);
  const DictPrintable printableKey(key);
  if (defaultValue != nullptr) {
    Msg_Post(3,
             MSGID(dictionary.notEnum) "Value \"%s\" for variable \"%s\" is not a valid value. Using value "
                                       "\"%s\".\n",
             printableValue.Text(), printableKey.Text(), defaultValue);
  } else {
    Msg_Post(3,
             MSGID(dictionary.notEnumAndNoDefault) "Value \"%s\" for variable \"%s\" is not a valid value.\n",
             printableValue.Text(), printableKey.Text());
  }
}

// A name that no format need make: one that is the only argument, or the format itself. Null for any other.
const char *DictPlainKey(const char *format, va_list args) __attribute__((format(printf, 1, 0)));
const char *DictPlainKey(const char *format, va_list args) {
  const char *key = format;
  if (strcmp(format, "%s") == 0) {
    va_list copy;
    va_copy(copy, args);
    // It was started by va_copy. NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
    key = va_arg(copy, const char *);
    va_end(copy);
  } else if (strchr(format, '%') != nullptr) {
    return nullptr;
  }
  return key != nullptr && strlen(key) < kKeySize ? key : nullptr;
}

// The name that a format and its arguments make, in `buffer` unless it is there already.
const char *DictKey(char (&buffer)[kKeySize], const char *format, va_list args)
    __attribute__((format(printf, 2, 0)));
const char *DictKey(char (&buffer)[kKeySize], const char *format, va_list args) {
  const char *plain = DictPlainKey(format, args);
  if (plain != nullptr) {
    return plain;
  }
  Str_Vsnprintf(buffer, sizeof buffer, format, args);
  return buffer;
}

}  // namespace

// Declares `key`, the name that a caller's format and arguments make.
#define DICT_KEY(format)                           \
  char buffer[kKeySize];                           \
  va_list args;                                    \
  va_start(args, format);                          \
  const char *key = DictKey(buffer, format, args); \
  va_end(args)

char *Dict_GetString(Dictionary *dict, const char *defaultValue, const char *format, ...) {
  DICT_KEY(format);
  return DictGetText(dict, defaultValue, 0, key);
}

char *Dict_GetStringPlain(Dictionary *dict, const char *defaultValue, const char *format, ...) {
  DICT_KEY(format);
  return DictGetText(dict, defaultValue, DICT_FLAG_PLAIN, key);
}

bool Dict_GetBool(Dictionary *dict, bool defaultValue, const char *format, ...) {
  DICT_KEY(format);
  return DictGet(dict, defaultValue, DICT_BOOL, key);
}

bool Dict_GetBoolPlain(Dictionary *dict, bool defaultValue, const char *format, ...) {
  DICT_KEY(format);
  return DictGet(dict, defaultValue, DICT_BOOL | DICT_FLAG_PLAIN, key);
}

int32_t Dict_GetLong(Dictionary *dict, int32_t defaultValue, const char *format, ...) {
  DICT_KEY(format);
  return DictGet(dict, defaultValue, DICT_LONG, key);
}

int32_t Dict_GetLongPlain(Dictionary *dict, int32_t defaultValue, const char *format, ...) {
  DICT_KEY(format);
  return DictGet(dict, defaultValue, DICT_LONG | DICT_FLAG_PLAIN, key);
}

int64_t Dict_GetInt64(Dictionary *dict, int64_t defaultValue, const char *format, ...) {
  DICT_KEY(format);
  return DictGet(dict, defaultValue, DICT_INT64, key);
}

int64_t Dict_GetInt64Plain(Dictionary *dict, int64_t defaultValue, const char *format, ...) {
  DICT_KEY(format);
  return DictGet(dict, defaultValue, DICT_INT64 | DICT_FLAG_PLAIN, key);
}

double Dict_GetDouble(Dictionary *dict, double defaultValue, const char *format, ...) {
  DICT_KEY(format);
  return DictGet(dict, defaultValue, DICT_DOUBLE, key);
}

void Dict_SetString(Dictionary *dict, const char *value, const char *format, ...) {
  DICT_KEY(format);
  DictSet(dict, value, DICT_STRING, key);
}

void Dict_SetStringPlain(Dictionary *dict, const char *value, const char *format, ...) {
  DICT_KEY(format);
  DictSet(dict, value, DICT_STRING | DICT_FLAG_PLAIN, key);
}

void Dict_SetBool(Dictionary *dict, bool value, const char *format, ...) {
  DICT_KEY(format);
  DictSet(dict, value, DICT_BOOL, key);
}

void Dict_SetBoolPlain(Dictionary *dict, bool value, const char *format, ...) {
  DICT_KEY(format);
  DictSet(dict, value, DICT_BOOL | DICT_FLAG_PLAIN, key);
}

void Dict_SetLong(Dictionary *dict, int32_t value, const char *format, ...) {
  DICT_KEY(format);
  DictSet(dict, value, DICT_LONG, key);
}

void Dict_SetLongPlain(Dictionary *dict, int32_t value, const char *format, ...) {
  DICT_KEY(format);
  DictSet(dict, value, DICT_LONG | DICT_FLAG_PLAIN, key);
}

void Dict_SetInt64(Dictionary *dict, int64_t value, const char *format, ...) {
  DICT_KEY(format);
  DictSet(dict, value, DICT_INT64, key);
}

void Dict_SetInt64Plain(Dictionary *dict, int64_t value, const char *format, ...) {
  DICT_KEY(format);
  DictSet(dict, value, DICT_INT64 | DICT_FLAG_PLAIN, key);
}

void Dict_SetDouble(Dictionary *dict, double value, const char *format, ...) {
  DICT_KEY(format);
  DictSet(dict, value, DICT_DOUBLE, key);
}

void Dict_SetAny(Dictionary *dict, const char *value, const char *format, ...) {
  DICT_KEY(format);
  DictSet(dict, value, DICT_ANY, key);
}

char *Dict_GetStringEnum(Dictionary *dict, const char *defaultValue, const char *const *choices,
                         const char *format, ...) {
  ASSERT(defaultValue == nullptr || DictIsChoice(defaultValue, choices));
  DICT_KEY(format);
  OwnedString value(DictGetText(dict, defaultValue, 0, key));
  if (value == nullptr ? defaultValue == nullptr : DictIsChoice(value.get(), choices)) {
    return value.release();
  }
  if (value != nullptr && value.get()[0] != '\0') {
    DictPostNotEnum(value.get(), key, defaultValue);
  }
  return Util_SafeStrdup(defaultValue);
}
