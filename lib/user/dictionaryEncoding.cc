#include <cstdlib>
#include <cstring>

#include "dictionaryInt.h"
#include "msg.h"
#include "panicUser.h"

namespace {

StringEncoding DictionaryResolve(StringEncoding encoding) {
  return encoding == STRING_ENCODING_DEFAULT ? Unicode_GetCurrentEncoding() : encoding;
}

void DictionaryReportUnknownEncoding(const Dictionary *dict, const char *name) {
  const DictPrintable printable(name);
  if (dict->fileName == nullptr) {
    Msg_Append(MSGID(dictionary.unknownEncodingNoFile) "Character encoding \"%s\" is not supported.\n",
               printable.Text());
  } else if (dict->lineNumber < 1) {
    Msg_Append(
        MSGID(dictionary.unknownEncodingNoLine) "File \"%s\": Character encoding \"%s\" is not supported.\n",
        dict->fileName, printable.Text());
  } else {
    Msg_Append(MSGID(dictionary.unknownEncoding) "File \"%s\" (line %d) specifies a character encoding (%s) "
                                                 "that is not supported.\n",
               dict->fileName, dict->lineNumber, printable.Text());
  }
}

void DictionaryReportHasEncoding(const Dictionary *dict) {
  const char *name = Unicode_EncodingEnumToName(dict->encoding);
  if (dict->fileName == nullptr) {
    Msg_Append(MSGID(dictionary.hasEncodingNoFile) "The dictionary already has encoding \"%s\".\n", name);
  } else if (dict->lineNumber < 1) {
    Msg_Append(MSGID(dictionary.hasEncodingNoLine) "File \"%s\" already has encoding \"%s\".\n",
               dict->fileName, name);
  } else {
    Msg_Append(MSGID(dictionary.hasEncoding) "File \"%s\" (line %d) already has encoding \"%s\".\n",
               dict->fileName, dict->lineNumber, name);
  }
}

void DictionaryReportBadInput(const Dictionary *dict, std::string_view name, std::string_view value,
                              StringEncoding encoding) {
  const DictPrintable printableName(name);
  const OwnedString escaped(
      Unicode_EscapeBuffer(value.data(), static_cast<ssize_t>(value.size()), STRING_ENCODING_UTF8));
  ASSERT_MEM_ALLOC(escaped != nullptr);
  const char *encodingName = Unicode_EncodingEnumToName(encoding);
  if (dict->fileName == nullptr) {
    Msg_Append(MSGID(dictionary.badEncodedInputNoFile) "Value \"%s\" for variable \"%s\" is not valid in "
                                                       "encoding \"%s\".\n",
               escaped.get(), printableName.Text(), encodingName);
  } else if (dict->lineNumber < 1) {
    Msg_Append(MSGID(dictionary.badEncodedInputNoLine) "File \"%s\": Value \"%s\" for variable \"%s\" is not "
                                                       "valid in encoding \"%s\".\n",
               dict->fileName, escaped.get(), printableName.Text(), encodingName);
  } else {
    Msg_Append(MSGID(dictionary.badEncodedInput) "File \"%s\" line %d: Value \"%s\" for variable \"%s\" is not "
                                                 "valid in encoding \"%s\".\n",
               dict->fileName, dict->lineNumber, escaped.get(), printableName.Text(), encodingName);
  }
}

// An entry's text as bytes. They may hold NULs where they are still as they were read.
std::string_view DictionaryBytes(const DictEntry *entry) {
  return entry->firstSize != 0 ? std::string_view(entry->value.text, entry->firstSize) : entry->value.text;
}

bool DictionaryCheckEntry(const Dictionary *dict, const DictEntry *entry, StringEncoding encoding) {
  const std::string_view bytes = DictionaryBytes(entry);
  if (Unicode_IsBufferValid(bytes.data(), static_cast<ssize_t>(bytes.size()), encoding)) {
    return true;
  }
  DictionaryReportBadInput(dict, entry->name, bytes, encoding);
  return false;
}

// Whether all text, which is still as it was read, is valid. Leaves a message about the first that isn't.
bool DictionaryCheckText(const Dictionary *dict, StringEncoding encoding) {
  for (const DictEntry *entry : dict->entries) {
    if (DictionaryHasText(entry) && !DictionaryCheckEntry(dict, entry, encoding)) {
      return false;
    }
  }
  return true;
}

// Turns valid bytes into UTF-8, where they aren't already.
void DictionaryConvertEntry(DictEntry *entry, StringEncoding encoding) {
  if (encoding == STRING_ENCODING_UTF8 || encoding == STRING_ENCODING_US_ASCII) {
    entry->firstSize = 0;
    return;
  }
  const std::string_view bytes = DictionaryBytes(entry);
  DictValue converted{};
  converted.text =
      const_cast<char *>(Unicode_AllocWithLength(bytes.data(), static_cast<ssize_t>(bytes.size()), encoding));
  DictionaryReplaceValue(entry, converted);
}

void DictionaryConvertText(Dictionary *dict, StringEncoding encoding) {
  for (DictEntry *entry : dict->entries) {
    if (DictionaryHasText(entry)) {
      DictionaryConvertEntry(entry, encoding);
    }
  }
}

}  // namespace

bool DictionaryApplyEncoding(Dictionary *dict, const char *name, StringEncoding fallback) {
  const StringEncoding encoding =
      name == nullptr ? DictionaryResolve(fallback) : Unicode_EncodingNameToEnum(name);
  if (encoding == STRING_ENCODING_UNKNOWN) {
    DictionaryReportUnknownEncoding(dict, name);
    return false;
  }
  if (dict->encoding == encoding) {
    // What was read before has been converted already.
    return true;
  }
  if (dict->encoding != STRING_ENCODING_UNKNOWN) {
    DictionaryReportHasEncoding(dict);
    return false;
  }
  if (!DictionaryCheckText(dict, encoding)) {
    return false;
  }
  DictionaryConvertText(dict, encoding);
  dict->encoding = encoding;
  return true;
}

bool DictionaryDecodeEntry(const Dictionary *dict, DictEntry *entry) {
  if (!DictionaryCheckEntry(dict, entry, dict->encoding)) {
    return false;
  }
  DictionaryConvertEntry(entry, dict->encoding);
  return true;
}

void DictionaryReportBadOutput(const Dictionary *dict, const DictEntry *entry) {
  Msg_Append(MSGID(dictionary.badEncodedOutput) "Value \"%s\" for variable \"%s\" is not valid in the \"%s\" "
                                                "encoding.\n",
             DictPrintable(entry->value.text).Text(), DictPrintable(entry->name).Text(),
             Unicode_EncodingEnumToName(dict->encoding));
}

StringEncoding Dictionary_GetEncoding(const Dictionary *dict) {
  ASSERT(dict != nullptr);
  return dict->encoding;
}

void Dictionary_SetEncoding(Dictionary *dict, StringEncoding encoding) {
  ASSERT(dict != nullptr && Unicode_IsEncodingValid(encoding));
  dict->encoding = encoding;
}

bool Dictionary_ChangeEncoding(Dictionary *dict, StringEncoding encoding) {
  ASSERT(dict != nullptr && dict->encoding != STRING_ENCODING_UNKNOWN);
  ASSERT(Unicode_IsEncodingValid(encoding));
  for (const DictEntry *entry : dict->entries) {
    if (DictionaryHasText(entry) && !Unicode_CanGetBytesWithEncoding(entry->value.text, encoding)) {
      return false;
    }
  }
  if (dict->encoding == encoding) {
    return true;
  }
  for (DictEntry *entry : dict->entries) {
    entry->modified |= DictionaryHasText(entry);
  }
  dict->encoding = encoding;
  return true;
}
