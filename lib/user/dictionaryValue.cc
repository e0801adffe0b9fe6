#include <strings.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "dictionaryInt.h"
#include "msg.h"
#include "panicUser.h"
#include "str.h"
#include "util_misc.h"

namespace {

enum : int32_t { kTristateFalse = 0, kTristateTrue = 1, kTristateDefault = -1 };

constexpr int kWarning = 2;

// A text being read as a value: where it comes from, for the message, and what stands for it when it is bad.
struct BadText {
  const char *name;
  const char *text;
  const void *defaultValue;  // may be null
};

template <typename T>
T DictionaryDefault(const BadText &bad, T otherwise) {
  return bad.defaultValue == nullptr ? otherwise : *static_cast<const T *>(bad.defaultValue);
}

bool DictionaryIsOneOf(const char *text, std::initializer_list<const char *> words) {
  for (const char *word : words) {
    if (strcasecmp(text, word) == 0) {
      return true;
    }
  }
  return false;
}

// 1, 0, or -1 when it is neither.
int DictionaryReadBool(const char *text) {
  // That an empty text is true is wanted.
  if (DictionaryIsOneOf(text, {"", "true", "t", "yes", "y", "on", "1"})) {
    return 1;
  }
  return DictionaryIsOneOf(text, {"false", "f", "no", "n", "off", "0"}) ? 0 : -1;
}

bool DictionaryParseBool(const BadText &source) {
  const int read = source.text == nullptr ? -1 : DictionaryReadBool(source.text);
  if (read != -1) {
    return read == 1;
  }
  const bool value = DictionaryDefault(source, false);
  Msg_Post(kWarning,
           MSGID(dictionary.notBoolean) "Value \"%s\" for variable \"%s\" is not a valid boolean value. Using "
                                        "value \"%s\".\n",
           DictPrintable(source.text).Text(), DictPrintable(source.name).Text(), value ? "TRUE" : "FALSE");
  return value;
}

const char *DictionaryTristateText(int32_t value, const char *falseText, const char *trueText,
                                   const char *defaultText) {
  switch (value) {
    case kTristateFalse:
      return falseText;
    case kTristateTrue:
      return trueText;
    default:
      return defaultText;
  }
}

int32_t DictionaryParseTristate(const BadText &source) {
  const int read = source.text == nullptr ? -1 : DictionaryReadBool(source.text);
  if (read != -1) {
    return read;
  }
  if (source.text != nullptr && DictionaryIsOneOf(source.text, {"default", "dontcare", "auto"})) {
    return kTristateDefault;
  }
  const int32_t value = DictionaryDefault<int32_t>(source, kTristateDefault);
  Msg_Post(kWarning,
           MSGID(dictionary.notTristate) "Value \"%s\" for variable \"%s\" is not a valid tristate value. "
                                         "Using value \"%s\".\n",
           DictPrintable(source.text).Text(), DictPrintable(source.name).Text(),
           DictionaryTristateText(value, "FALSE", "TRUE", "default"));
  return value;
}

// Whether a number ended before its text did. A null text is no number.
bool DictionaryHasRest(const BadText &source, const char *end) {
  return source.text == nullptr || *end != '\0';
}

int32_t DictionaryParseLong(const BadText &source) {
  const char *text = source.text == nullptr ? "" : source.text;
  char *end = nullptr;
  errno = 0;
  long number = strtol(text, &end, 0);
  if (errno == ERANGE) {
    errno = 0;
    number = static_cast<long>(strtoul(text, &end, 0));
  }
  // That the upper half is dropped without a word is wanted.
  auto value = static_cast<int32_t>(number);
  if (errno == ERANGE) {
    value = DictionaryDefault(source, value);
    Msg_Post(kWarning,
             MSGID(dictionary.integerTooBig) "Value \"%s\" for variable \"%s\" is too large. Using value "
                                             "\"%d\".\n",
             DictPrintable(source.text).Text(), DictPrintable(source.name).Text(), value);
  } else if (DictionaryHasRest(source, end)) {
    value = DictionaryDefault(source, value);
    Msg_Post(kWarning,
             MSGID(dictionary.notInteger) "Value \"%s\" for variable \"%s\" is not a valid integer value. "
                                          "Using value \"%d\".\n",
             DictPrintable(source.text).Text(), DictPrintable(source.name).Text(), value);
  }
  return value;
}

int64_t DictionaryParseInt64(const BadText &source) {
  char *end = nullptr;
  errno = 0;
  auto value = static_cast<int64_t>(strtoull(source.text == nullptr ? "" : source.text, &end, 0));
  if (errno == ERANGE) {
    value = DictionaryDefault(source, value);
    Msg_Post(kWarning,
             MSGID(dictionary.integer64TooBig) "Value \"%s\" for variable \"%s\" is too large. Using value "
                                               "\"%ld\".\n",
             DictPrintable(source.text).Text(), DictPrintable(source.name).Text(), value);
  } else if (DictionaryHasRest(source, end)) {
    value = DictionaryDefault(source, value);
    Msg_Post(kWarning,
             MSGID(dictionary.notInteger64) "Value \"%s\" for variable \"%s\" is not a valid integer value. "
                                            "Using value \"%ld\".\n",
             DictPrintable(source.text).Text(), DictPrintable(source.name).Text(), value);
  }
  return value;
}

double DictionaryParseDouble(const BadText &source) {
  char *end = nullptr;
  double value = strtod(source.text == nullptr ? "" : source.text, &end);
  if (DictionaryHasRest(source, end)) {
    value = DictionaryDefault(source, value);
    Msg_Post(kWarning,
             MSGID(dictionary.notFloat) "Value \"%s\" for variable \"%s\" is not a valid floating point "
                                        "value. Using value \"%f\".\n",
             DictPrintable(source.text).Text(), DictPrintable(source.name).Text(), value);
  }
  return value;
}

bool DictionaryIsTextType(uint32_t type) {
  return type == DICT_ANY || type == DICT_STRING;
}

template <typename T>
bool DictionarySame(const void *a, const void *b) {
  return *static_cast<const T *>(a) == *static_cast<const T *>(b);
}

bool DictionaryTextsEqual(const char *a, const char *b) {
  return a == nullptr || b == nullptr ? a == b : strcmp(a, b) == 0;
}

}  // namespace

bool DictionaryHasText(const DictEntry *entry) {
  return DictionaryIsTextType(entry->type) && entry->value.text != nullptr;
}

DictValue DictionaryCopyValue(const void *value, uint32_t type) {
  DictValue copy{};
  switch (type) {
    case DICT_ANY:
    case DICT_STRING:
      copy.text = Util_SafeStrdup(*static_cast<const char *const *>(value));
      return copy;
    case DICT_BOOL:
      copy.boolean = *static_cast<const bool *>(value);
      return copy;
    case DICT_LONG:
    case DICT_TRISTATE:
      copy.number = *static_cast<const int32_t *>(value);
      return copy;
    case DICT_DOUBLE:
      copy.real = *static_cast<const double *>(value);
      return copy;
    case DICT_INT64:
      copy.number64 = *static_cast<const int64_t *>(value);
      return copy;
    default:
      NOT_REACHED();
  }
}

void DictionaryReplaceValue(DictEntry *entry, DictValue value) {
  if (DictionaryIsTextType(entry->type) && entry->value.text != entry->firstText) {
    free(entry->value.text);
  }
  entry->firstSize = 0;
  entry->value = value;
}

bool DictionaryValuesEqual(const void *a, const void *b, uint32_t type) {
  switch (type) {
    case DICT_ANY:
    case DICT_STRING:
      return DictionaryTextsEqual(*static_cast<const char *const *>(a), *static_cast<const char *const *>(b));
    case DICT_BOOL:
      return DictionarySame<bool>(a, b);
    case DICT_LONG:
    case DICT_TRISTATE:
      return DictionarySame<int32_t>(a, b);
    case DICT_DOUBLE:
      return DictionarySame<double>(a, b);
    case DICT_INT64:
      return DictionarySame<int64_t>(a, b);
    default:
      NOT_REACHED();
  }
}

DictValue DictionaryParseValue(const char *name, const char *text, const void *defaultValue, uint32_t type) {
  const BadText source{name, text, defaultValue};
  DictValue value{};
  switch (type) {
    case DICT_BOOL:
      value.boolean = DictionaryParseBool(source);
      return value;
    case DICT_LONG:
      value.number = DictionaryParseLong(source);
      return value;
    case DICT_DOUBLE:
      value.real = DictionaryParseDouble(source);
      return value;
    case DICT_TRISTATE:
      value.number = DictionaryParseTristate(source);
      return value;
    case DICT_INT64:
      value.number64 = DictionaryParseInt64(source);
      return value;
    default:
      NOT_REACHED();
  }
}

void DictionaryResolveEntry(DictEntry *entry, const void *defaultValue, uint32_t type) {
  if (!DictionaryIsTextType(type)) {
    DictionaryReplaceValue(entry, DictionaryParseValue(entry->name, entry->value.text, defaultValue, type));
  }
  entry->type = type;
}

const char *DictionaryValueText(const DictEntry *entry, DictWords words, OwnedString *storage) {
  const bool upper = words == DictWords::kUpper;
  const DictValue &value = entry->value;
  switch (entry->type) {
    case DICT_ANY:
    case DICT_STRING:
      return value.text;
    case DICT_BOOL:
      return DictionaryTristateText(value.boolean ? 1 : 0, upper ? "FALSE" : "false", upper ? "TRUE" : "true",
                                    nullptr);
    case DICT_TRISTATE:
      return DictionaryTristateText(value.number, upper ? "FALSE" : "false", upper ? "TRUE" : "true",
                                    upper ? "DEFAULT" : "default");
    case DICT_LONG:
      storage->reset(Str_SafeAsprintf(nullptr, "%d", value.number));
      return storage->get();
    case DICT_DOUBLE:
      storage->reset(Str_SafeAsprintf(nullptr, "%g", value.real));
      return storage->get();
    case DICT_INT64:
      storage->reset(Str_SafeAsprintf(nullptr, "%ld", value.number64));
      return storage->get();
    default:
      if (upper) {
        Panic("Dictionary internal error - unknown parameter type\n");
      }
      NOT_REACHED();
  }
}

const char *DictionaryEntryAsString(DictEntry *entry) {
  OwnedString made;
  const char *text = DictionaryValueText(entry, DictWords::kLower, &made);
  if (made == nullptr) {
    return text;
  }
  free(entry->stringCache);
  entry->stringCache = made.release();
  return entry->stringCache;
}
