#include <strings.h>

#include <cstring>
#include <string>
#include <string_view>

#include "dictType.h"
#include "dictionaryInt.h"
#include "log.h"
#include "panicUser.h"
#include "str.h"
#include "util.h"
#include "util_misc.h"

namespace {

void DictionaryExport(Dictionary *dict, bool includeDefaults, char **outBuffer, size_t *outSize) {
  ASSERT(dict != nullptr && outBuffer != nullptr && outSize != nullptr);
  DynBuf records;
  DynBuf_Init(&records);
  for (DictEntry *entry : dict->entries) {
    if (!includeDefaults && !entry->modified && entry->isDefault) {
      continue;
    }
    const char *text = DictionaryEntryAsString(entry);
    DynBuf_SafeAppend(&records, entry->name, strlen(entry->name) + 1);
    DynBuf_SafeAppend(&records, text == nullptr ? "\1" : "", 1);
    if (text != nullptr) {
      DynBuf_SafeAppend(&records, text, strlen(text) + 1);
    }
  }
  *outSize = records.size;
  *outBuffer = static_cast<char *>(DynBuf_Detach(&records));
}

void DictionaryMergeNew(Dictionary *target, const DictEntry *from) {
  DictEntry *entry =
      DictionaryAddEntry(target, from->name, from->type, DictionaryCopyValue(&from->value, from->type));
  entry->modified = true;
  entry->plain = from->plain;
  entry->header = from->header;
}

// Fixes the type of the one of two entries that has none by the other's. Returns whether they agree then.
bool DictionaryMergeTypes(DictEntry *to, DictEntry *from) {
  if (to->type == DICT_ANY) {
    DictionaryResolveEntry(to, nullptr, from->type);
  } else if (from->type == DICT_ANY) {
    DictionaryResolveEntry(from, nullptr, to->type);
  }
  return to->type == from->type;
}

// Whether the value must not stand in a log.
bool DictionaryIsSecret(const Dictionary *dict, const char *name) {
  constexpr std::string_view kKey = ".key";
  if (dict->keySafe == nullptr && dict->cryptoKey == nullptr) {
    return false;
  }
  const size_t length = strlen(name);
  return strcasecmp(name, "dataFileKey") == 0 || strcasecmp(name, "annotation") == 0 ||
         (length > kKey.size() && strcasecmp(name + length - kKey.size(), kKey.data()) == 0);
}

void DictionaryLogEntry(const DictEntry *entry) {
  const DictPrintable name(entry->name);
  const DictValue &value = entry->value;
  switch (entry->type) {
    case DICT_ANY:
    case DICT_STRING:
      Log("DICT %25s = %s\n", name.Text(), DictPrintable(value.text == nullptr ? "" : value.text).Text());
      break;
    case DICT_BOOL:
      Log("DICT %25s = %s\n", name.Text(), value.boolean ? "TRUE" : "FALSE");
      break;
    case DICT_DOUBLE:
      Log("DICT %25s = %g\n", name.Text(), value.real);
      break;
    case DICT_LONG:
    case DICT_TRISTATE:
      Log("DICT %25s = %i\n", name.Text(), value.number);
      break;
    case DICT_INT64:
      Log("DICT %25s = %ld\n", name.Text(), value.number64);
      break;
    default:
      Log("DICT %25s = <unknown parameter type>\n", name.Text());
  }
}

}  // namespace

int Dictionary_Iterate(Dictionary *dict, DictionaryCallback callback, void *clientData,
                       bool includeDefaults) {
  ASSERT(dict != nullptr && callback != nullptr);
  int count = 0;
  for (DictEntry *entry : dict->entries) {
    if (includeDefaults || !entry->isDefault) {
      callback(entry->name, DictionaryEntryAsString(entry), count, clientData);
      count++;
    }
  }
  return count;
}

void Dictionary_Export(Dictionary *dict, char **outBuffer, size_t *outSize) {
  DictionaryExport(dict, false, outBuffer, outSize);
}

void Dictionary_ExportAll(Dictionary *dict, char **outBuffer, size_t *outSize) {
  DictionaryExport(dict, true, outBuffer, outSize);
}

void Dictionary_Merge(Dictionary *target, Dictionary *source) {
  ASSERT(target != nullptr && source != nullptr);
  const bool targetHasKey = target->keySafe != nullptr;
  for (DictEntry *from : source->entries) {
    const bool sourceSecret = source->keySafe != nullptr && !from->plain;
    void *found = nullptr;
    if (!HashTable_Lookup(target->entryTable, from->name, &found)) {
      if (!targetHasKey || sourceSecret) {
        DictionaryMergeNew(target, from);
      }
      continue;
    }
    auto *to = static_cast<DictEntry *>(found);
    if (!DictionaryMergeTypes(to, from)) {
      Warning("type mismatch updating %s -- not changing\n", DictPrintable(from->name).Text());
      continue;
    }
    const bool targetSecret = targetHasKey && !to->plain;
    if (!targetSecret || sourceSecret) {
      DictionaryUpdateEntry(to, &from->value, from->type, true);
    }
  }
}

void Dictionary_Log(const Dictionary *dict) {
  ASSERT(dict != nullptr);
  for (const DictEntry *entry : dict->entries) {
    if (entry->isDefault) {
      continue;
    }
    if (DictionaryIsSecret(dict, entry->name)) {
      Log("DICT %25s = <not printed>\n", DictPrintable(entry->name).Text());
    } else {
      DictionaryLogEntry(entry);
    }
  }
}

char *Dictionary_DeriveFileName(Dictionary *dict, const char *baseFileName, const char *key,
                                const char *suffix) {
  const OwnedString name(suffix == nullptr ? Dict_GetString(dict, nullptr, "%s", key)
                                           : Dict_GetString(dict, nullptr, "%s.%s", key, suffix));
  if (name == nullptr || name.get()[0] == '\0') {
    return nullptr;
  }
  char *path = Util_DeriveFileName(baseFileName, name.get(), nullptr);
  if (path == nullptr) {
    Warning("%s: couldn't get filename\n", __func__);
  }
  return path;
}
