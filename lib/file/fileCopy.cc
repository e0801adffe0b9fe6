#include <cerrno>

#include "err.h"
#include "file.h"
#include "fileInt.h"
#include "msg.h"
#include "panicUser.h"
#include "posixPosix.h"

namespace {

constexpr size_t kCopyBlock = 8192;

// What the user wants done with a file that exists: a FileCreatePromptValue.
int AskWhatToDo(const char *name) {
  // The answers stand at their values.
  static constexpr const char *kNames[] = {MSGID_BUTTON(file.create.retry) "Retry",
                                           MSGID_BUTTON(file.create.overwrite) "Overwrite",
                                           MSGID_BUTTON(cancel) "Cancel", nullptr};
  return Msg_Question(kNames, FILE_PROMPT_CANCEL,
                      MSGID(File.CreatePrompt.question)
                      "The file '%s' already exists.\n"
                      "To overwrite the content of the file, select Overwrite.\n"
                      "To retry the operation after you have moved the file to another location, select Retry.\n"
                      "To cancel the operation, select Cancel.\n",
                      name);
}

// Ends a copy: closes the destination, and deletes it unless all went well.
bool FinishCopy(FileIODescriptor *copy, const char *destination, bool copied) {
  const bool closed = !FileIO_Close(copy);
  if (!closed) {
    Msg_Append(MSGID(File.CopyFromFdToName.close.failure) "Unable to close the '%s' file: %s.\n\n",
               destination, Err_ErrString());
  }
  if (!copied || !closed) {
    File_Unlink(destination);
    return false;
  }
  return true;
}

// Copies into the destination that `created` tells of.
bool CopyToNew(FileIODescriptor *source, FileIODescriptor *copy, const char *destination,
               FileIOResult created) {
  if (created == FILEIO_SUCCESS) {
    return FinishCopy(copy, destination, File_CopyFromFdToFd(source, copy));
  }
  if (created != FILEIO_CANCELLED) {
    Msg_Append(MSGID(File.CopyFromFdToName.create.failure) "Unable to create a new '%s' file: %s.\n\n",
               destination, FileIO_MsgError(created));
  }
  return false;
}

// What tells of a source in the name of a copy.
struct SourceMessages {
  const char *openFailure;   // with the path and the reason
  const char *closeFailure;  // the same
};

// Opens the source and hands it to `copy`.
template <typename Copy>
bool CopyFromName(const char *source, const SourceMessages &messages, Copy copy) {
  FileIODescriptor original;
  FileIO_Invalidate(&original);
  const FileIOResult opened = FileIO_Open(&original, source, FILEIO_ACCESS_READ, FILEIO_OPEN);
  if (opened != FILEIO_SUCCESS) {
    Msg_Append(messages.openFailure, source, FileIO_MsgError(opened));
    return false;
  }
  const bool isCopied = copy(&original);
  if (FileIO_Close(&original)) {
    Msg_Append(messages.closeFailure, source, Err_ErrString());
    return false;
  }
  return isCopied;
}

bool ReplacePathIsConvertible(const char *path) {
  if (FileIsConvertible(path)) {
    return true;
  }
  Msg_Append(MSGID(filePosix.replaceConversionFailed) "Failed to convert file path \"%s\" to current "
             "encoding\n",
             path);
  errno = EINVAL;
  return false;
}

// Gives a new file the permissions of an old one, if there is that.
bool DuplicatePermissions(const char *oldFile, const char *newFile) {
  mode_t mode = 0;
  if (!File_GetFilePermissions(oldFile, &mode) || Posix_Chmod(newFile, mode) == 0) {
    return true;
  }
  const int error = errno;
  Msg_Append(MSGID(filePosix.replaceChmodFailed) "Failed to duplicate file permissions from \"%s\" to "
             "\"%s\": %s\n",
             oldFile, newFile, Err_Errno2String(error));
  errno = error;
  return false;
}

}  // namespace

FileIOResult File_CreatePrompt(FileIODescriptor *file, const char *name, uint32_t access, int prompt) {
  FileIOAction action = FILEIO_OPEN_CREATE_SAFE;
  for (;;) {
    const FileIOResult result = FileIO_Open(file, name, access | FILEIO_ACCESS_WRITE, action);
    if (result != FILEIO_FILE_EXISTS) {
      return result;
    }
    const bool asks = prompt == FILE_PROMPT_ASK || prompt == FILE_PROMPT_ASK_AGAIN;
    switch (asks ? AskWhatToDo(name) : prompt) {
      case FILE_PROMPT_RETRY:
        break;
      case FILE_PROMPT_OVERWRITE:
        action = FILEIO_OPEN_CREATE_EMPTY;
        break;
      case FILE_PROMPT_CANCEL:
        return FILEIO_CANCELLED;
      default:
        NOT_REACHED();
    }
  }
}

bool File_CopyFromFdToFd(FileIODescriptor *source, FileIODescriptor *destination) {
  char block[kCopyBlock];
  FileIOResult readResult = FILEIO_SUCCESS;
  while (readResult == FILEIO_SUCCESS) {
    size_t count = 0;
    readResult = FileIO_Read(source, block, sizeof block, &count);
    if (readResult != FILEIO_SUCCESS && readResult != FILEIO_READ_PAST_EOF) {
      Msg_Append(MSGID(File.CopyFromFdToFd.read.failure) "Read error: %s.\n\n", FileIO_MsgError(readResult));
      return false;
    }
    const FileIOResult writeResult = FileIO_Write(destination, block, count, nullptr);
    if (writeResult != FILEIO_SUCCESS) {
      Msg_Append(MSGID(File.CopyFromFdToFd.write.failure) "Write error: %s.\n\n",
                 FileIO_MsgError(writeResult));
      return false;
    }
  }
  return true;
}

bool File_CopyFromFdToName(FileIODescriptor *file, const char *destination, int prompt) {
  FileIODescriptor copy;
  FileIO_Invalidate(&copy);
  return CopyToNew(file, &copy, destination, File_CreatePrompt(&copy, destination, 0, prompt));
}

bool File_CopyFromFd(FileIODescriptor *file, const char *destination, bool overwrite) {
  FileIODescriptor copy;
  FileIO_Invalidate(&copy);
  const FileIOAction action = overwrite ? FILEIO_OPEN_CREATE_EMPTY : FILEIO_OPEN_CREATE_SAFE;
  return CopyToNew(file, &copy, destination, FileIO_Open(&copy, destination, FILEIO_ACCESS_WRITE, action));
}

bool File_CopyFromNameToName(const char *source, const char *destination, int prompt) {
  static constexpr SourceMessages kMessages = {
      MSGID(File.CopyFromNameToName.open.failure) "Unable to open the '%s' file for read access: %s.\n\n",
      MSGID(File.CopyFromNameToName.close.failure) "Unable to close the '%s' file: %s.\n\n"};
  return CopyFromName(source, kMessages, [destination, prompt](FileIODescriptor *original) {
    return File_CopyFromFdToName(original, destination, prompt);
  });
}

bool File_Copy(const char *source, const char *destination, bool overwrite) {
  static constexpr SourceMessages kMessages = {
      MSGID(File.Copy.open.failure) "Unable to open the '%s' file for read access: %s.\n\n",
      MSGID(File.Copy.close.failure) "Unable to close the '%s' file: %s.\n\n"};
  return CopyFromName(source, kMessages, [destination, overwrite](FileIODescriptor *original) {
    return File_CopyFromFd(original, destination, overwrite);
  });
}

bool File_Move(const char *source, const char *destination) {
  if (Posix_Rename(source, destination) == 0) {
    return true;
  }
  if (!File_Copy(source, destination, true)) {
    return false;
  }
  File_Unlink(source);
  return true;
}

bool File_Replace(const char *oldFile, const char *newFile) {
  if (!ReplacePathIsConvertible(newFile) || !ReplacePathIsConvertible(oldFile) ||
      !DuplicatePermissions(oldFile, newFile)) {
    return false;
  }
  if (Posix_Rename(newFile, oldFile) == 0) {
    return true;
  }
  const int error = errno;
  Msg_Append(MSGID(filePosix.replaceRenameFailed) "Failed to rename \"%s\" to \"%s\": %s\n", newFile, oldFile,
             Err_Errno2String(error));
  errno = error;
  return false;
}
