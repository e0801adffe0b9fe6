// Whole-file operations by name. Paths are UTF-8; a returned path is new and freed with free.
#ifndef OST_PUBLIC_FILE_H
#define OST_PUBLIC_FILE_H

#include <sys/types.h>

#include <cstdint>

enum FileCreatePromptValue { FILE_PROMPT_RETRY = 0, FILE_PROMPT_OVERWRITE = 1, FILE_PROMPT_CANCEL = 2 };

bool File_Exists(const char *path);
bool File_IsFile(const char *path);
bool File_IsDirectory(const char *path);
// Seconds since 1970, or -1 with errno.
int64_t File_GetModTime(const char *path);

// Makes one directory, mode 0777 less the umask; false when it exists.
bool File_CreateDirectory(const char *path);
// Deletes a tree, carrying on after failures. True when nothing is left, also when nothing was there.
bool File_DeleteDirectoryTree(const char *path);
// Deletes a file, and for a symbolic link its target first. 0, or -1 with errno.
int File_Unlink(const char *path);
// The same, but a missing file counts as deleted.
int File_UnlinkIfExists(const char *path);
bool File_SetFilePermissions(const char *path, mode_t mode);
// Copies a file's content.
//
// prompt  what to do when the destination exists, a FileCreatePromptValue
//
// On failure no half-made destination stays, a message is pending and the result is false.
bool File_CopyFromNameToName(const char *source, const char *destination, int prompt);
// The path from the root on without links, but for a link that the path itself names; a path that can't be
// resolved keeps its own words. Null or an empty path is the working directory. Null, with a message pending,
// when the working directory is unknown.
char *File_FullPathKeepLink(const char *path);
// Lists a directory in the system's order, without "." and "..".
//
// names  if not null, gets a new array of `count` new strings (free each, then the array; File_FreeNames)
//
// Returns the count, or -1 with errno.
int File_ListDirectory(const char *path, char ***names);
void File_FreeNames(char **names, int count);
// The first usable temporary directory, as a new string (free), or null with a warning.
char *File_GetTmpDir(bool useConfiguration);

#endif
