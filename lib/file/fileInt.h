// What the modules of the file operations share.
#ifndef OST_FILE_FILEINT_H
#define OST_FILE_FILEINT_H

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "unicode.h"

// ---- Facts

enum FileType : int32_t {
  FILE_TYPE_REGULAR = 0,
  FILE_TYPE_DIRECTORY = 1,
  FILE_TYPE_BLOCKDEVICE = 2,
  FILE_TYPE_CHARDEVICE = 3,
  FILE_TYPE_SYMLINK = 4,
  FILE_TYPE_UNCERTAIN = 7,
};

struct FileData {
  int64_t fileAccessTime;    // seconds since 1970, as the other times
  int64_t fileCreationTime;  // when the file's data or facts changed last
  int64_t fileModificationTime;
  int64_t fileSize;  // bytes
  FileType fileType;
  mode_t fileMode;  // the permission bits
  uid_t fileOwner;
  gid_t fileGroup;
};

// Tells the facts of a file. Returns false, with errno and `*data` left alone, on failure.
bool FileAttributes(const char *path, FileData *data);
// The same of a link itself.
bool FileLinkAttributes(const char *path, FileData *data);

// ---- Text

// A name that the system gave, or null with EINVAL when it can't be converted. Where the system's names are
// UTF-8 one that is no text stays as it is, so that its file can still be reached.
//
// current  the current encoding, which takes longer to find than most names to convert
OwnedUnicode FileFromSystem(const char *bytes, StringEncoding current);
// Whether the current encoding can express a path, so that a call can be made with it; EINVAL when it can't.
bool FileIsConvertible(const char *path);

// ---- Deleting

// Deletes a name.
//
// handleLink  whether a symbolic link takes its target with it
//
// Returns 0 or an errno value.
int FileDeletion(const char *path, bool handleLink);

// ---- Temporary files

// File_MakeTempEx with the numbers from `first` on and no null argument.
int FileMakeTempFrom(uint32_t first, const char *directory, const char *name, char **path);

// ---- The host

// The device that holds the nearest existing part of a path, as the mount table names it, seen through up to
// 10 bind mounts. A new string (free), or null.
char *FilePosixGetBlockDevice(const char *path);
// Cuts a path down to its parent's. Returns false, with the path left alone, when it has none.
bool FilePosixGetParent(std::string *path);

#endif
