#include "dictionary.h"

#include <strings.h>

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "dictionaryInt.h"
#include "msg.h"
#include "panicUser.h"
#include "str.h"
#include "strutil.h"
#include "util_misc.h"

namespace {

constexpr uint32_t kBuckets = 512;
constexpr size_t kFirstBlockSize = 0x4000;
constexpr size_t kLastBlockSize = 0x100000;

// The line of an entry goes with that.
void DictionaryFreeLine(DictLine *line) {
  if (line->entry == nullptr) {
    free(line->text);
    free(line);
  }
}

void DictionaryFreeEntry(DictEntry *entry) {
  DictionaryReplaceValue(entry, {});
  free(entry->stringCache);
  if (entry->firstText == nullptr) {
    free(entry);
  }
}

void DictionaryCheckName(const Dictionary *dict, const char *name) {
  ASSERT(dict != nullptr);
  ASSERT(name != nullptr && name[0] != '\0' && name[0] != '.');
}

DictEntry *DictionaryFind(const Dictionary *dict, const char *name) {
  DictionaryCheckName(dict, name);
  if (dict->entryCount == 0) {
    return nullptr;
  }
  void *entry = nullptr;
  HashTable_Lookup(dict->entryTable, name, &entry);
  return static_cast<DictEntry *>(entry);
}

// Writes a text with a NUL behind it to `to`, and moves that behind them. Returns the text.
char *PutText(char **to, std::string_view text) {
  char *put = *to;
  memcpy(put, text.data(), text.size());
  put[text.size()] = '\0';
  *to += text.size() + 1;
  return put;
}

// Adds a block with room for `minSize` bytes, twice as large as the last one as long as that isn't large.
void DictionaryAddBlock(Dictionary *dict, size_t minSize) {
  const size_t next =
      dict->blocks == nullptr ? kFirstBlockSize : std::min(2 * dict->blocks->size, kLastBlockSize);
  const size_t size = std::max(minSize, next);
  auto *block = static_cast<DictBlock *>(Util_SafeMalloc(sizeof(DictBlock) + size));
  *block = DictBlock{dict->blocks, size, 0};
  dict->blocks = block;
}

// Memory of the dictionary's that is aligned for any record.
void *DictionaryTake(Dictionary *dict, size_t size) {
  const size_t aligned = (size + alignof(DictEntry) - 1) / alignof(DictEntry) * alignof(DictEntry);
  if (dict->blocks == nullptr || dict->blocks->size - dict->blocks->used < aligned) {
    DictionaryAddBlock(dict, aligned);
  }
  DictBlock *block = dict->blocks;
  block->used += aligned;
  return reinterpret_cast<char *>(block + 1) + block->used - aligned;
}

void DictionaryFreeBlocks(Dictionary *dict) {
  for (DictBlock *block = std::exchange(dict->blocks, nullptr); block != nullptr;) {
    free(std::exchange(block, block->next));
  }
}

// Makes `memory` an entry, with its name behind it, unless that is there. Returns whether it isn't.
bool DictionaryInsert(Dictionary *dict, void *memory, std::string_view name) {
  auto *entry = static_cast<DictEntry *>(memory);
  *entry = DictEntry{};
  auto *behind = reinterpret_cast<char *>(entry + 1);
  entry->name = PutText(&behind, name);
  if (!HashTable_Insert(dict->entryTable, entry->name, entry)) {
    return false;
  }
  dict->entries.Append(entry);
  dict->entryCount++;
  return true;
}

// Gives the entry a copy of a value of its type. One that is equal changes nothing: callers may hold the
// text.
void DictionaryStoreValue(DictEntry *entry, const void *value) {
  if (DictionaryValuesEqual(&entry->value, value, entry->type)) {
    return;
  }
  // The copy comes first: the value may lie in the entry's own.
  DictionaryReplaceValue(entry, DictionaryCopyValue(value, entry->type));
  entry->modified = true;
}

DictEntry *DictionaryAddCopy(Dictionary *dict, const char *name, const void *value, uint32_t type) {
  return DictionaryAddEntry(dict, name, type, DictionaryCopyValue(value, type));
}

void DictionaryRemoveEntry(Dictionary *dict, DictEntry *entry) {
  HashTable_Delete(dict->entryTable, entry->name);
  entry->Unlink();
  dict->entryCount--;
  if (entry->line != nullptr) {
    entry->line->Unlink();
  }
  DictionaryFreeEntry(entry);
}

void DictionaryPrependLine(Dictionary *dict, OwnedString text) {
  DictLine *line = DictionaryAppendLine(dict, std::move(text), 0);
  line->size = strlen(line->text);
  line->Unlink();
  dict->lines.Prepend(line);
}

bool DictionaryBeginsWith(const Dictionary *dict, const char *const *lines) {
  auto line = dict->lines.begin();
  for (; *lines != nullptr; lines++, ++line) {
    if (line == dict->lines.end() || strcmp((*line)->text, *lines) != 0) {
      return false;
    }
  }
  return true;
}

}  // namespace

DictPrintable::DictPrintable(const char *text)
    : DictPrintable(std::string_view(text == nullptr ? "(null)" : text)) {}

DictPrintable::DictPrintable(std::string_view text) : text_(text) {
  const auto length = static_cast<ssize_t>(text.size());
  if (Unicode_IsBufferValid(text_.c_str(), length, STRING_ENCODING_UTF8)) {
    return;
  }
  const OwnedString escaped(Unicode_EscapeBuffer(text_.c_str(), length, STRING_ENCODING_UTF8));
  ASSERT_MEM_ALLOC(escaped != nullptr);
  text_ = escaped.get();
}

DictEntry *DictionaryFindVisible(const Dictionary *dict, const char *name, uint32_t flags) {
  DictEntry *entry = DictionaryFind(dict, name);
  if (entry == nullptr) {
    return nullptr;
  }
  const bool hidden = dict->keySafe != nullptr && entry->plain && (flags & DICT_FLAG_PLAIN) == 0;
  return hidden ? nullptr : entry;
}

DictEntry *DictionaryAddEntry(Dictionary *dict, std::string_view name, uint32_t type, DictValue value) {
  auto *entry = static_cast<DictEntry *>(Util_SafeMalloc(sizeof(DictEntry) + name.size() + 1));
  const bool isNew = DictionaryInsert(dict, entry, name);
  ASSERT(isNew);
  entry->type = type;
  entry->value = value;
  return entry;
}

DictEntry *DictionaryAddReadEntry(Dictionary *dict, const DictLL_Line &line) {
  const size_t size = sizeof(DictEntry) + line.name.size() + line.value.size() + line.textSize + 3;
  auto *entry = static_cast<DictEntry *>(DictionaryTake(dict, size));
  if (!DictionaryInsert(dict, entry, line.name)) {
    return nullptr;
  }
  char *behind = entry->name + line.name.size() + 1;
  entry->firstText = PutText(&behind, line.value);
  entry->firstSize = line.value.size();
  entry->value.text = entry->firstText;
  entry->firstLine = DictLine{{}, PutText(&behind, {line.text.get(), line.textSize}), line.textSize, entry};
  entry->line = &entry->firstLine;
  dict->lines.Append(entry->line);
  return entry;
}

void DictionaryUpdateEntry(DictEntry *entry, const void *value, uint32_t type, bool modified) {
  DictValue parsed{};
  if (type == DICT_ANY && entry->type != DICT_ANY && entry->type != DICT_STRING) {
    parsed = DictionaryParseValue(entry->name, *static_cast<char *const *>(value), nullptr, entry->type);
    value = &parsed;
    type = entry->type;
  } else if (type == DICT_ANY) {
    type = entry->type;
  } else if (entry->type == DICT_ANY) {
    DictionaryResolveEntry(entry, nullptr, type);
  }
  ASSERT(entry->type == type);
  DictionaryStoreValue(entry, value);
  entry->isDefault = false;
  entry->modified |= modified;
}

DictLine *DictionaryAppendLine(Dictionary *dict, OwnedString text, size_t size) {
  auto *line = static_cast<DictLine *>(Util_SafeMalloc(sizeof(DictLine)));
  *line = DictLine{{}, text.release(), size, nullptr};
  dict->lines.Append(line);
  return line;
}

Dictionary *Dictionary_Create() {
  auto *dict = static_cast<Dictionary *>(Util_SafeMalloc(sizeof(Dictionary)));
  *dict = Dictionary{};
  dict->entries.Init();
  dict->lines.Init();
  dict->entryTable = HashTable_Alloc(kBuckets, HASH_ISTRING_KEY, nullptr);
  dict->encoding = STRING_ENCODING_UNKNOWN;
  return dict;
}

void Dictionary_Free(Dictionary *dict) {
  if (dict == nullptr) {
    return;
  }
  Dictionary_Clear(dict);
  HashTable_Free(dict->entryTable);
  free(dict);
}

void Dictionary_Clear(Dictionary *dict) {
  ASSERT(dict != nullptr);
  HashTable_Clear(dict->entryTable);
  dict->lines.ForEachSafely(DictionaryFreeLine);
  dict->lines.Init();
  dict->entries.ForEachSafely(DictionaryFreeEntry);
  dict->entries.Init();
  dict->entryCount = 0;
  DictionaryFreeBlocks(dict);
  dict->encoding = STRING_ENCODING_UNKNOWN;
  DictionaryDropKeys(dict);
}

void *Dictionary_Get(Dictionary *dict, const void *defaultValue, uint32_t typeAndFlags, const char *name) {
  void *slot = Dictionary_GetDefined(dict, defaultValue, typeAndFlags, name);
  if (slot != nullptr) {
    return slot;
  }
  ASSERT(defaultValue != nullptr);
  DictEntry *entry = DictionaryAddCopy(dict, name, defaultValue, typeAndFlags & kDictTypeMask);
  entry->isDefault = true;
  entry->plain = (typeAndFlags & DICT_FLAG_PLAIN) != 0;
  return &entry->value;
}

void *Dictionary_GetDefined(Dictionary *dict, const void *defaultValue, uint32_t typeAndFlags,
                            const char *name) {
  const uint32_t type = typeAndFlags & kDictTypeMask;
  DictEntry *entry = DictionaryFindVisible(dict, name, typeAndFlags);
  if (entry == nullptr) {
    return nullptr;
  }
  if (entry->type == DICT_ANY && type != DICT_ANY) {
    DictionaryResolveEntry(entry, defaultValue, type);
  }
  ASSERT_BUG(1, type == DICT_ANY || entry->type == type);
  return &entry->value;
}

void Dictionary_Set(Dictionary *dict, const void *value, uint32_t typeAndFlags, const char *name) {
  const uint32_t type = typeAndFlags & kDictTypeMask;
  const bool modified = (typeAndFlags & DICT_FLAG_HEADER) == 0;
  DictEntry *entry = DictionaryFind(dict, name);
  if (entry != nullptr) {
    DictionaryUpdateEntry(entry, value, type, modified);
  } else {
    entry = DictionaryAddCopy(dict, name, value, type);
    entry->modified = modified;
  }
  entry->plain |= (typeAndFlags & DICT_FLAG_PLAIN) != 0;
  entry->header |= !modified;
}

DictEntry *Dictionary_SetFromString(Dictionary *dict, const char *text, bool failIfDefined, bool modified) {
  ASSERT(text != nullptr);
  const char *equals = strchrnul(text, '=');
  const std::string name(text, equals);
  const char *value = *equals == '=' ? equals + 1 : equals;
  DictEntry *entry = DictionaryFind(dict, name.c_str());
  if (entry == nullptr) {
    entry = DictionaryAddCopy(dict, name.c_str(), &value, DICT_ANY);
    entry->modified = modified;
  } else if (failIfDefined) {
    Msg_Post(3, MSGID(dictionary.alreadyDefined.string) "Variable \"%s\" is already defined.\n",
             DictPrintable(name).Text());
  } else {
    DictionaryUpdateEntry(entry, &value, DICT_ANY, modified);
  }
  return entry;
}

const char *Dictionary_GetAsString(Dictionary *dict, const char *name) {
  DictEntry *entry = DictionaryFindVisible(dict, name, 0);
  return entry == nullptr ? nullptr : DictionaryEntryAsString(entry);
}

bool Dictionary_IsDefined(const Dictionary *dict, const char *name) {
  return DictionaryFindVisible(dict, name, 0) != nullptr;
}

bool Dictionary_NotSet(const Dictionary *dict, const char *name) {
  const DictEntry *entry = DictionaryFindVisible(dict, name, 0);
  return entry == nullptr || entry->isDefault;
}

void Dictionary_Touch(Dictionary *dict, const char *name) {
  DictEntry *entry = DictionaryFind(dict, name);
  if (entry != nullptr) {
    entry->modified = true;
    entry->isDefault = false;
  }
}

bool Dictionary_IsModified(const Dictionary *dict) {
  ASSERT(dict != nullptr);
  for (const DictEntry *entry : dict->entries) {
    if (entry->modified) {
      return true;
    }
  }
  return false;
}

void Dictionary_Unset(Dictionary *dict, const char *name) {
  DictEntry *entry = DictionaryFind(dict, name);
  if (entry != nullptr) {
    DictionaryRemoveEntry(dict, entry);
  }
}

void Dictionary_UnsetWithFormat(Dictionary *dict, const char *format, ...) {
  va_list args;
  va_start(args, format);
  const OwnedString name(Str_SafeVasprintf(nullptr, format, args));
  va_end(args);
  Dictionary_Unset(dict, name.get());
}

void Dictionary_UnsetPrefix(Dictionary *dict, const char *prefix) {
  ASSERT(dict != nullptr && prefix != nullptr);
  dict->entries.ForEachSafely([=](DictEntry *entry) {
    if (StrUtil_CaselessStartsWith(entry->name, prefix)) {
      DictionaryRemoveEntry(dict, entry);
    }
  });
}

void Dictionary_SetAll(Dictionary *dict, const char *prefix, const void *value, DictType type) {
  ASSERT(dict != nullptr && prefix != nullptr);
  for (DictEntry *entry : dict->entries) {
    const bool fits = entry->type == DICT_ANY || entry->type == type;
    // That case counts here, and not where a prefix is unset, is wanted.
    if (fits && StrUtil_StartsWith(entry->name, prefix)) {
      DictionaryUpdateEntry(entry, value, type, true);
    }
  }
}

void Dictionary_AddHeaderLines(const char *const *lines, Dictionary *dict) {
  ASSERT(dict != nullptr && lines != nullptr);
  if (DictionaryBeginsWith(dict, lines)) {
    return;
  }
  size_t count = 0;
  while (lines[count] != nullptr) {
    count++;
  }
  // A part of the lines that is there already is wanted to stay, behind them all.
  while (count-- > 0) {
    DictionaryPrependLine(dict, OwnedString(Util_SafeStrdup(lines[count])));
  }
}

bool Dictionary_AddInterpreterLine(Dictionary *dict, const char *interpreter) {
  ASSERT(dict != nullptr && interpreter != nullptr);
  if (!dict->lines.IsEmpty() && StrUtil_StartsWith((*dict->lines.begin())->text, "#!")) {
    return false;
  }
  DictionaryPrependLine(dict, OwnedString(Str_SafeAsprintf(nullptr, "#!%s", interpreter)));
  return true;
}
