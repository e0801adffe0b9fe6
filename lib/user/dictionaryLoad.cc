#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "dictionaryInt.h"
#include "err.h"
#include "log.h"
#include "msg.h"
#include "panicUser.h"
#include "posixPosix.h"
#include "util_misc.h"

namespace {

using std::string_view;

constexpr size_t kReadSize = 0x4000;
constexpr string_view kBlanks = " \t";
constexpr string_view kByteOrderMark = "\xEF\xBB\xBF";

enum ParseResult {
  PARSE_OK,
  PARSE_CONTINUE,  // an error was reported; the load goes on, and fails at its end
  PARSE_FATAL,
};

// A load that is under way: what messages say of it.
class Loading {
 public:
  Loading(Dictionary *dict, const char *fileName) : dict_(dict) {
    ASSERT(dict->fileName == nullptr && dict->lineNumber == 0);
    dict->fileName = fileName;
  }
  ~Loading() {
    dict_->fileName = nullptr;
    dict_->lineNumber = 0;
  }
  Loading(const Loading &) = delete;
  Loading &operator=(const Loading &) = delete;

 private:
  Dictionary *dict_;
};

void DictionaryReportSyntaxError(const Dictionary *dict) {
  if (dict->fileName == nullptr) {
    Msg_Append(MSGID(dictionary.read.syntaxErrorNoFile) "Syntax error.\n");
  } else if (dict->lineNumber < 1) {
    Msg_Append(MSGID(dictionary.read.syntaxErrorNoLine) "File \"%s\": Syntax error.\n", dict->fileName);
  } else {
    Msg_Append(MSGID(dictionary.read.syntaxError) "File \"%s\" line %d: Syntax error.\n", dict->fileName,
               dict->lineNumber);
  }
}

void DictionaryReportAlreadyDefined(const Dictionary *dict, string_view name) {
  const DictPrintable printable(name);
  if (dict->fileName == nullptr) {
    Msg_Append(MSGID(dictionary.alreadyDefinedNoFile) "Variable \"%s\" is already defined.\n",
               printable.Text());
  } else if (dict->lineNumber < 1) {
    Msg_Append(MSGID(dictionary.alreadyDefinedNoLine) "File \"%s\": Variable \"%s\" is already defined.\n",
               dict->fileName, printable.Text());
  } else {
    Msg_Append(MSGID(dictionary.alreadyDefined) "File \"%s\" line %d: Variable \"%s\" is already defined.\n",
               dict->fileName, dict->lineNumber, printable.Text());
  }
}

char ToLower(char c) {
  return static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
}

// Whether the name, in whatever case, is one of those that tell the encoding. Alike in every locale.
bool DictionaryIsMetadataName(string_view name) {
  constexpr string_view kSuffix = ".encoding";
  const auto same = [](char a, char b) { return ToLower(a) == b; };
  const size_t start = name.size() - std::min(name.size(), kSuffix.size());
  const string_view tail = name.substr(start);
  if (!std::equal(tail.begin(), tail.end(), kSuffix.begin(), kSuffix.end(), same)) {
    return false;
  }
  const string_view owner = name.substr(0, start);
  constexpr string_view kOwners[] = {"", "config", "preferences", "ostlist", "snapshot"};
  return std::any_of(std::begin(kOwners), std::end(kOwners), [&](string_view known) {
    return std::equal(owner.begin(), owner.end(), known.begin(), known.end(), same);
  });
}

ParseResult DictionaryParseNoKey(Dictionary *dict, DictLL_Line *line) {
  const string_view text(line->text.get(), line->textSize);
  const size_t start = text.find_first_not_of(kBlanks);
  if (start != string_view::npos && text[start] != '#') {
    DictionaryReportSyntaxError(dict);
    return PARSE_FATAL;
  }
  DictionaryAppendLine(dict, std::move(line->text), line->textSize);
  return PARSE_OK;
}

ParseResult DictionaryParseReadLine(Dictionary *dict, DictLL_Line *line) {
  ASSERT((line->name.data() == nullptr) == (line->value.data() == nullptr));
  dict->lineNumber++;
  const string_view name = line->name;
  if (name.data() == nullptr) {
    return DictionaryParseNoKey(dict, line);
  }
  if (DictionaryIsMetadataName(name)) {
    const bool applied =
        DictionaryApplyEncoding(dict, std::string(line->value).c_str(), STRING_ENCODING_UNKNOWN);
    return applied ? PARSE_OK : PARSE_CONTINUE;
  }
  if (name.front() == '.') {
    Log("%s: \"%s\" line %d: unrecognized metavariable \"%s\"\n", __func__, dict->fileName, dict->lineNumber,
        DictPrintable(name).Text());
    return PARSE_OK;
  }
  DictEntry *entry = DictionaryAddReadEntry(dict, *line);
  if (entry == nullptr) {
    DictionaryReportAlreadyDefined(dict, name);
    DictionaryAppendLine(dict, std::move(line->text), line->textSize);
    return PARSE_CONTINUE;
  }
  if (dict->encoding != STRING_ENCODING_UNKNOWN && !DictionaryDecodeEntry(dict, entry)) {
    Dictionary_Unset(dict, entry->name);
    return PARSE_FATAL;
  }
  return PARSE_OK;
}

bool DictionaryApplyDefaultEncoding(Dictionary *dict, bool hasMark, StringEncoding defaultEncoding) {
  const StringEncoding encoding =
      defaultEncoding == STRING_ENCODING_DEFAULT ? Unicode_GetCurrentEncoding() : defaultEncoding;
  if (hasMark && encoding != STRING_ENCODING_UTF8) {
    if (DictionaryApplyEncoding(dict, nullptr, STRING_ENCODING_UTF8)) {
      return true;
    }
    Msg_Reset(false);
  }
  if (DictionaryApplyEncoding(dict, nullptr, encoding)) {
    return true;
  }
  if (dict->fileName == nullptr) {
    Msg_Append(MSGID(dictionary.badDefaultEncodingNoFile) "Failed to decode the dictionary in the default "
                                                          "character encoding.\n");
  } else {
    Msg_Append(MSGID(dictionary.badDefaultEncoding) "An error occured while decoding file \"%s\" using the "
                                                    "default character encoding.\n",
               dict->fileName);
  }
  return false;
}

// Parses all lines that `nextLine` gives.
//
// hasMark  whether a byte-order mark stood before them
template <typename NextLine>
bool DictionaryLoadLines(Dictionary *dict, NextLine nextLine, bool hasMark, StringEncoding defaultEncoding) {
  bool good = true;
  DictLL_Line line;
  DictLL_Status status = nextLine(&line);
  for (; status == DICTLL_LINE; status = nextLine(&line)) {
    const ParseResult result = DictionaryParseReadLine(dict, &line);
    if (result == PARSE_FATAL) {
      return false;
    }
    good = good && result == PARSE_OK;
  }
  if (status == DICTLL_ERROR) {
    Msg_Append(MSGID(dictionary.read.readError) "File \"%s\" line %d: %s.\n", dict->fileName,
               dict->lineNumber, Err_ErrString());
    return false;
  }
  dict->lineNumber = 0;
  if (!good) {
    return false;
  }
  return dict->encoding != STRING_ENCODING_UNKNOWN ||
         DictionaryApplyDefaultEncoding(dict, hasMark, defaultEncoding);
}

// Takes the mark off the front of the stream. Returns whether it was there.
bool DictionarySkipMark(FILE *stream) {
  for (size_t i = 0; i < kByteOrderMark.size(); i++) {
    const int c = getc(stream);
    if (c == static_cast<unsigned char>(kByteOrderMark[i])) {
      continue;
    }
    if (c != EOF) {
      ungetc(c, stream);
    }
    while (i-- > 0) {
      ungetc(static_cast<unsigned char>(kByteOrderMark[i]), stream);
    }
    return false;
  }
  return true;
}

bool DictionaryLoadStream(Dictionary *dict, FILE *stream, const char *fileName,
                          StringEncoding defaultEncoding) {
  const Loading loading(dict, fileName);
  const bool hasMark = stream != stdin && DictionarySkipMark(stream);
  const auto nextLine = [stream](DictLL_Line *line) { return DictLL_ReadLine(stream, line); };
  return DictionaryLoadLines(dict, nextLine, hasMark, defaultEncoding);
}

// A stream on a file that can be read as one. Null with a message.
OwnedStream DictionaryOpen(const char *fileName) {
  OwnedStream stream(Posix_Fopen(fileName, "r"));
  if (stream == nullptr) {
    Msg_Append(MSGID(dictionary.load.openFailed) "Cannot open file \"%s\": %s.\n", fileName, Err_ErrString());
    return nullptr;
  }
  struct stat data {};
  if (fstat(fileno(stream.get()), &data) == -1) {
    Msg_Append(MSGID(dictionary.load.statFailed) "Unable to get information about file \"%s\": %s.\n",
               fileName, Err_ErrString());
    return nullptr;
  }
  if (S_ISDIR(data.st_mode)) {
    Msg_Append(MSGID(dictionary.load.isDirectory) "\"%s\" is a directory.\n", fileName);
    return nullptr;
  }
  return stream;
}

bool DictionaryLoadPath(Dictionary *dict, const char *fileName, StringEncoding defaultEncoding) {
  ASSERT(dict != nullptr);
  if (fileName == nullptr) {
    return true;
  }
  if (strcmp(fileName, "-") == 0) {
    return DictionaryLoadStream(dict, stdin, "<stdin>", defaultEncoding);
  }
  char buffer[kReadSize];  // the stream's, which it outlives
  const OwnedStream stream = DictionaryOpen(fileName);
  if (stream == nullptr) {
    return false;
  }
  setvbuf(stream.get(), buffer, _IOFBF, sizeof buffer);
  return DictionaryLoadStream(dict, stream.get(), fileName, defaultEncoding);
}

bool DictionaryRewind(FileIODescriptor *file) {
  if (FileIO_Seek(file, 0, FILEIO_SEEK_BEGIN) != -1) {
    return true;
  }
  Msg_Append(MSGID(dictionary.loadFile.seekFailed) "Cannot seek file \"%s\": %s.\n", FileIO_Filename(file),
             Err_ErrString());
  return false;
}

bool DictionaryLoadDescriptor(Dictionary *dict, FileIODescriptor *file, StringEncoding defaultEncoding) {
  ASSERT(dict != nullptr && file != nullptr);
  if (!DictionaryRewind(file)) {
    return false;
  }
  const OwnedStream stream(FileIO_DescriptorToStream(file, true));
  if (stream == nullptr) {
    Msg_Append(MSGID(dictionary.load.openFailed) "Cannot open file \"%s\": %s.\n", FileIO_Filename(file),
               Err_ErrString());
    return false;
  }
  const bool loaded = DictionaryLoadStream(dict, stream.get(), FileIO_Filename(file), defaultEncoding);
  return DictionaryRewind(file) && loaded;
}

// Takes the next line off the front of a text.
DictLL_Status DictionaryNextLine(string_view *rest, DictLL_Line *line) {
  if (rest->empty()) {
    return DICTLL_EOF;
  }
  const size_t lineFeed = std::min(rest->find('\n'), rest->size());
  string_view text = rest->substr(0, lineFeed);
  const bool ended = lineFeed < rest->size();
  rest->remove_prefix(ended ? lineFeed + 1 : lineFeed);
  if (ended && text.ends_with('\r')) {
    text.remove_suffix(1);
  }
  *line = DictLL_UnmarshalLine(OwnedString(Util_SafeStrndup(text.data(), text.size())), text.size());
  return DICTLL_LINE;
}

}  // namespace

bool Dictionary_Load(Dictionary *dict, const char *fileName) {
  return Dictionary_LoadWithDefaultEncoding(dict, fileName, STRING_ENCODING_DEFAULT);
}

bool Dictionary_LoadWithDefaultEncoding(Dictionary *dict, const char *fileName,
                                        StringEncoding defaultEncoding) {
  Dictionary_Clear(dict);
  return DictionaryLoadPath(dict, fileName, defaultEncoding);
}

bool Dictionary_Append(Dictionary *dict, const char *fileName) {
  return DictionaryLoadPath(dict, fileName, STRING_ENCODING_DEFAULT);
}

bool Dictionary_LoadAndUnlock(Dictionary *dict, const char *fileName, const KeyLocator *keyLocator,
                              const char *password) {
  return Dictionary_Load(dict, fileName) && Dictionary_Unlock(dict, keyLocator, password);
}

bool Dictionary_LoadFile(Dictionary *dict, FileIODescriptor *file) {
  return Dictionary_LoadFileWithDefaultEncoding(dict, file, STRING_ENCODING_DEFAULT);
}

bool Dictionary_LoadFileWithDefaultEncoding(Dictionary *dict, FileIODescriptor *file,
                                            StringEncoding defaultEncoding) {
  Dictionary_Clear(dict);
  return DictionaryLoadDescriptor(dict, file, defaultEncoding);
}

bool Dictionary_AppendFile(Dictionary *dict, FileIODescriptor *file) {
  return DictionaryLoadDescriptor(dict, file, STRING_ENCODING_DEFAULT);
}

bool Dictionary_LoadFileAndUnlock(Dictionary *dict, FileIODescriptor *file, const KeyLocator *keyLocator,
                                  const char *password) {
  return Dictionary_LoadFile(dict, file) && Dictionary_Unlock(dict, keyLocator, password);
}

bool Dictionary_LoadFromBuffer(Dictionary *dict, const char *buffer, bool append,
                               StringEncoding defaultEncoding) {
  ASSERT(dict != nullptr && buffer != nullptr);
  if (!append) {
    Dictionary_Clear(dict);
  }
  const Loading loading(dict, nullptr);
  string_view rest(buffer);
  const auto nextLine = [&rest](DictLL_Line *line) { return DictionaryNextLine(&rest, line); };
  return DictionaryLoadLines(dict, nextLine, false, defaultEncoding);
}
