// Whole-file operations by name. Paths are UTF-8; a returned path is new and freed with free.
#ifndef OST_PUBLIC_FILE_H
#define OST_PUBLIC_FILE_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

enum FileCreatePromptValue { FILE_PROMPT_RETRY = 0, FILE_PROMPT_OVERWRITE = 1, FILE_PROMPT_CANCEL = 2 };

bool File_Exists(const char *path);
bool File_IsFile(const char *path);
bool File_IsDirectory(const char *path);
// Whether the name itself is a symbolic link.
bool File_IsSymLink(const char *path);
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
// Lists a directory in the system's order, without "." and "..".
//
// names  if not null, gets a new array of `count` new strings (free each, then the array; File_FreeNames)
//
// Returns the count, or -1 with errno.
int File_ListDirectory(const char *path, char ***names);
void File_FreeNames(char **names, int count);
// The first usable temporary directory, as a new string (free), or null with a warning.
char *File_GetTmpDir(bool useConfiguration);

// ---- Paths
//
// These work on the text alone, unless told otherwise, and take no null for a text.

// Whether a path begins at the root; null doesn't.
bool File_IsFullPath(const char *path);
// Splits a path behind its last "/": what comes before, the "/" included, and the name. Each out argument,
// unless it is null, gets a new string.
//
// volume  gets an empty string
void File_SplitName(const char *path, char **volume, char **directory, char **base);
// The same with every trailing "/" taken off the directory, so that the directory of "/x" is empty.
void File_GetPathName(const char *path, char **directory, char **base);
// Joins with a "/", unless the directory ends in one.
char *File_PathJoin(const char *directory, const char *base);
// The path from the root on without links and dots; a path that can't be resolved keeps its own words, with
// each run of "/" made one. Null or an empty path is the working directory. Null, with a message pending,
// when the path needs the working directory and that is unknown.
char *File_FullPath(const char *path);
// The same, but a symbolic link that the path itself names isn't resolved.
char *File_FullPathKeepLink(const char *path);
// Makes each run of "/" one.
char *File_StripFwdSlashes(const char *path);
// Takes the trailing "/" off a path, but for the one of the root.
char *File_StripSlashes(const char *path);
// Puts a new extension in the place of the old one or, where there is none to replace, behind the name.
//
// newExtension  begins with "."; what doesn't stops the program
// count, ...    the extensions that are replaced, each a string that begins with "."; any is when `count` is
// 0
char *File_ReplaceExtension(const char *path, const char *newExtension, size_t count, ...);
// Puts an element before a search path, whose items ";" separates, and takes the first item that equals it
// out of the rest.
char *File_PrependToPath(const char *searchPath, const char *element);
// Looks for a file where its path says, seen from a working directory, and then for its base name in each
// item of a search path. Items that don't begin at the root are seen from the working directory; empty ones
// are skipped.
//
// result  if not null, gets the full path of what was found, null when that can't be told; left alone when
//         nothing was found
//
// Returns whether the file was found, and its full path where that is wanted.
bool File_FindFileInSearchPath(const char *file, const char *searchPath, const char *workingDirectory,
                               char **result);
// Replaces the first of `count` old prefixes that covers whole components of the path with its new one. Null
// when there is none. A path of which nothing is left stops the program.
char *File_MapPathPrefix(const char *path, const char *const *oldPrefixes, const char *const *newPrefixes,
                         size_t count);
// The working directory, or null with a message pending and errno.
//
// drive  null or empty; anything else is warned of
char *File_Cwd(const char *drive);

#endif
