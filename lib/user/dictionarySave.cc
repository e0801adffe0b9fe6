#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "dictionaryInt.h"
#include "err.h"
#include "log.h"
#include "msg.h"
#include "panicUser.h"
#include "posixPosix.h"

namespace {

class OwnedDynBuf {
 public:
  OwnedDynBuf() { DynBuf_Init(&buf); }
  ~OwnedDynBuf() { DynBuf_Destroy(&buf); }
  OwnedDynBuf(const OwnedDynBuf &) = delete;
  OwnedDynBuf &operator=(const OwnedDynBuf &) = delete;

  DynBuf buf;
};

enum class Result {
  kDone,
  kFailed,  // memory is out, or the encryption failed
  kRetry,   // the encoding can't express a value, which a message tells
};

// The text of a dictionary in the making.
class DictionaryText {
 public:
  DictionaryText(Dictionary *dict, bool encrypt)
      : dict_(dict), encrypts_(encrypt && dict->keySafe != nullptr), next_(dict->lines.begin()) {}

  Result Make() {
    ClearWritten();
    const bool made = PutLeadingComments() && PutEncoding() && PutHeader() && BeginEncrypted() &&
                      PutLines() && PutNewEntries() && PutEmptySection() && EndEncrypted() && Put("", 1);
    return made ? Result::kDone : failure_;
  }

  // Hands the text over, its NUL included.
  char *Detach(size_t *size) {
    *size = section_.buf.size;
    return static_cast<char *>(DynBuf_Detach(&section_.buf));
  }

 private:
  bool Put(const void *bytes, size_t size) { return DynBuf_Append(&section_.buf, bytes, size); }
  bool PutKey(const char *name, const void *value, size_t size) {
    return DictLL_MarshalLine(&section_.buf, name, value, size);
  }
  bool PutText(const DictLine *line) { return Put(line->text, line->size) && Put("\n", 1); }
  bool PutFreshLine(DictEntry *entry);
  void SetWritten(DictEntry *entry) {
    unwritten_ -= entry->written ? 0 : 1;
    entry->written = true;
  }

  void ClearWritten();
  bool PutLeadingComments();
  bool PutEncoding();
  bool PutHeader();
  bool BeginEncrypted();
  bool PutLines();
  bool PutNewEntries();
  bool PutEmptySection() { return section_.buf.size != 0 || Put("\n", 1); }
  bool EndEncrypted();

  Dictionary *dict_;
  bool encrypts_;
  DictRing<DictLine>::Iterator next_;  // the first line that isn't in the text
  OwnedDynBuf output_;                 // what stands before the encrypted section
  OwnedDynBuf section_;
  Result failure_ = Result::kFailed;
  // How many there are of these, so that large dictionaries aren't walked in vain.
  size_t unwritten_ = 0;
  size_t headers_ = 0;
};

void DictionaryText::ClearWritten() {
  for (DictEntry *entry : dict_->entries) {
    entry->written = false;
    unwritten_++;
    headers_ += entry->header ? 1 : 0;
  }
}

bool DictionaryText::PutLeadingComments() {
  for (; next_ != dict_->lines.end() && (*next_)->text[0] == '#'; ++next_) {
    ASSERT((*next_)->entry == nullptr);
    if (!PutText(*next_)) {
      return false;
    }
  }
  return true;
}

bool DictionaryText::PutEncoding() {
  const char *name = Unicode_EncodingEnumToName(dict_->encoding);
  return PutKey(".encoding", name, strlen(name));
}

// Writes the entry from its value, in the dictionary's encoding.
bool DictionaryText::PutFreshLine(DictEntry *entry) {
  SetWritten(entry);
  OwnedString made;
  const char *text = DictionaryValueText(entry, DictWords::kUpper, &made);
  if (text == nullptr) {
    text = "";
  }
  if (dict_->encoding == STRING_ENCODING_UTF8 || text[0] == '\0') {
    return PutKey(entry->name, text, strlen(text));
  }
  const OwnedString bytes(Unicode_GetAllocBytes(text, dict_->encoding));
  if (bytes == nullptr) {
    DictionaryReportBadOutput(dict_, entry);
    failure_ = Result::kRetry;
    return false;
  }
  return PutKey(entry->name, bytes.get(),
                static_cast<size_t>(Unicode_LengthInBytes(bytes.get(), dict_->encoding)));
}

bool DictionaryText::PutHeader() {
  if (headers_ == 0) {
    return true;
  }
  for (DictEntry *entry : dict_->entries) {
    const bool wanted =
        entry->header && !entry->written && (entry->line == nullptr || dict_->keySafe != nullptr);
    if (wanted && !PutFreshLine(entry)) {
      return false;
    }
  }
  return true;
}

// What follows goes into a section of its own, behind the plain entries.
bool DictionaryText::BeginEncrypted() {
  if (!encrypts_) {
    return true;
  }
  for (DictEntry *entry : dict_->entries) {
    if (entry->plain && !entry->written && !PutFreshLine(entry)) {
      return false;
    }
  }
  std::swap(output_.buf, section_.buf);
  return true;
}

bool DictionaryText::PutLines() {
  for (; next_ != dict_->lines.end(); ++next_) {
    DictEntry *entry = (*next_)->entry;
    if (entry != nullptr && entry->written) {
      continue;
    }
    const bool fresh = entry != nullptr && entry->modified && !entry->isDefault;
    if (fresh ? !PutFreshLine(entry) : !PutText(*next_)) {
      return false;
    }
    if (entry != nullptr) {
      SetWritten(entry);
    }
  }
  return true;
}

bool DictionaryText::PutNewEntries() {
  if (unwritten_ == 0) {
    return true;
  }
  for (DictEntry *entry : dict_->entries) {
    if (entry->written) {
      continue;
    }
    ASSERT(entry->line == nullptr);
    SetWritten(entry);
    if (!entry->isDefault && !PutFreshLine(entry)) {
      return false;
    }
  }
  return true;
}

bool DictionaryText::EndEncrypted() {
  if (!encrypts_) {
    return true;
  }
  if (!DictionaryEncryptData(dict_, &section_.buf, &output_.buf)) {
    return false;
  }
  std::swap(output_.buf, section_.buf);
  return true;
}

void DictionaryUpgradeEncoding(Dictionary *dict) {
  ASSERT(dict->encoding != STRING_ENCODING_UTF8);
  Msg_Reset(true);
  Log("%s: upgrading encoding from %s to %s\n", "Dictionary_WriteToBuffer",
      Unicode_EncodingEnumToName(dict->encoding), Unicode_EncodingEnumToName(STRING_ENCODING_UTF8));
  Dictionary_ChangeEncoding(dict, STRING_ENCODING_UTF8);
}

// Opens a file to be written anew. Null with a message.
OwnedStream DictionaryOpenToWrite(const char *fileName) {
  OwnedStream stream(Posix_Fopen(fileName, "w"));
  if (stream != nullptr) {
    return stream;
  }
  switch (errno) {
    case EACCES:
    case EPERM:
    case EROFS:
      Msg_Append(
          MSGID(dictionary.permissions) "Access to \"%s\" failed due to file system permissions issues\n",
          fileName);
      break;
    case ENAMETOOLONG:
      Msg_Append(MSGID(dictionary.nameTooLong) "%s", Err_ErrString());
      break;
    default:
      Msg_Append(MSGID(dictionary.open) "Cannot open configuration file \"%s\": %s.\n", fileName,
                 Err_ErrString());
  }
  return nullptr;
}

// Writes a text. Only a failure to write is one; the others leave a message.
bool DictionaryWriteText(FILE *stream, const char *fileName, const char *text, size_t size) {
  const bool written = fwrite(text, 1, size, stream) == size;
  if (!written) {
    Msg_Append(MSGID(dictionary.write) "An error occurred while writing configuration file \"%s\": %s.\n",
               fileName, Err_ErrString());
  } else if (fflush(stream) != 0) {
    Msg_Append(MSGID(dictionary.flush) "An error occurred while flushing configuration file \"%s\": %s.\n",
               fileName, Err_ErrString());
  }
  if (written && fsync(fileno(stream)) == -1) {
    Msg_Append(MSGID(dictionary.sync) "An error occurred while syncing configuration file \"%s\": %s.\n",
               fileName, Err_ErrString());
  }
  return written;
}

// The same for an open file, with messages of its own.
bool DictionaryWriteTextOfFile(FILE *stream, const char *fileName, const char *text, size_t size) {
  if (fwrite(text, 1, size, stream) != size) {
    Msg_Append(MSGID(dictionary.writefile.write) "An error occurred while writing configuration file \"%s\": "
                                                 "%s.\n",
               fileName, Err_ErrString());
    return false;
  }
  if (fflush(stream) != 0) {
    Msg_Append(MSGID(dictionary.writefile.flush) "An error occurred while flushing configuration file \"%s\": "
                                                 "%s.\n",
               fileName, Err_ErrString());
  }
  if (fsync(fileno(stream)) == -1) {
    Msg_Append(MSGID(dictionary.writefile.sync) "An error occurred while syncing configuration file \"%s\": "
                                                "%s.\n",
               fileName, Err_ErrString());
  }
  return true;
}

bool DictionaryEmptyFile(FileIODescriptor *file, const char *fileName) {
  if (FileIO_Seek(file, 0, FILEIO_SEEK_BEGIN) == -1) {
    Msg_Append(MSGID(dictionary.writefile.seek) "An error occurred while seeking within configuration file "
                                                "\"%s\":%s.\n",
               fileName, Err_ErrString());
    return false;
  }
  if (!FileIO_Truncate(file, 0)) {
    Msg_Append(MSGID(dictionary.writefile.truncate) "An error occurred while truncating configuration file "
                                                    "\"%s\":%s.\n",
               fileName, Err_ErrString());
    return false;
  }
  return true;
}

}  // namespace

bool Dictionary_WriteToBuffer(Dictionary *dict, bool encrypt, char **outBuffer, size_t *outSize) {
  ASSERT(dict != nullptr && outBuffer != nullptr && outSize != nullptr);
  *outBuffer = nullptr;
  *outSize = 0;
  if (dict->encoding == STRING_ENCODING_UNKNOWN) {
    dict->encoding = Unicode_GetCurrentEncoding();
  }
  while (true) {
    DictionaryText text(dict, encrypt);
    switch (text.Make()) {
      case Result::kDone:
        *outBuffer = text.Detach(outSize);
        return true;
      case Result::kRetry:
        DictionaryUpgradeEncoding(dict);
        break;
      default:
        return false;
    }
  }
}

bool Dictionary_Write(Dictionary *dict, const char *fileName) {
  ASSERT(fileName != nullptr);
  char *text = nullptr;
  size_t size = 0;
  if (!Dictionary_WriteToBuffer(dict, true, &text, &size)) {
    Msg_Append(MSGID(dictionary.export) "An error occurred while exporting a dictionary to a buffer.\n");
    return false;
  }
  const OwnedString owned(text);
  OwnedStream stream = DictionaryOpenToWrite(fileName);
  if (stream == nullptr) {
    return false;
  }
  const bool written = DictionaryWriteText(stream.get(), fileName, text, size - 1);
  if (fclose(stream.release()) != 0) {
    Msg_Append(MSGID(dictionary.close) "An error occurred while closing configuration file \"%s\": %s.\n",
               fileName, Err_ErrString());
    return false;
  }
  return written;
}

bool Dictionary_WriteFile(Dictionary *dict, FileIODescriptor *file) {
  ASSERT(file != nullptr);
  char *text = nullptr;
  size_t size = 0;
  if (!Dictionary_WriteToBuffer(dict, true, &text, &size)) {
    Msg_Append(MSGID(dictionary.writefile.export) "An error occured while exporting a dictionary to a "
                                                  "buffer.\n");
    return false;
  }
  const OwnedString owned(text);
  const char *fileName = FileIO_Filename(file);
  const OwnedStream stream(FileIO_DescriptorToStream(file, true));
  if (stream == nullptr) {
    Msg_Append(MSGID(dictionary.writefile.descToStream) "An error occurred while converting the descriptor of "
                                                        "file \"%s\" while it is open: %s.\n",
               fileName, Err_ErrString());
    return false;
  }
  return DictionaryEmptyFile(file, fileName) &&
         DictionaryWriteTextOfFile(stream.get(), fileName, text, size - 1);
}

bool Dictionary_MakeExecutable(const char *fileName) {
  ASSERT(fileName != nullptr);
  struct stat data {};
  if (Posix_Stat(fileName, &data) == -1) {
    Log("%s: cannot stat configuration file %s: %s\n", __func__, fileName, Err_ErrString());
    return false;
  }
  const mode_t execute = (data.st_mode >> 2) & (S_IXUSR | S_IXGRP | S_IXOTH);
  if (Posix_Chmod(fileName, (data.st_mode & 07777) | execute) == -1) {
    Log("%s: cannot change mode of file %s: %s\n", __func__, fileName, Err_ErrString());
    return false;
  }
  return true;
}
