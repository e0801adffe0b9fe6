// Whole-file operations by name.
//
//   if (File_IsDirectory(path)) ...
//   const OwnedString full(File_FullPath(path));
//   if (!File_Copy(source, destination, true)) ...   // why is among the pending messages
//
// Paths are UTF-8, and "/" separates their directories. A returned path is new and freed with free.
//
// Copies, File_Replace and temporary files append the reason of a failure to the pending messages for their
// callers to show. All others return false, -1 or null, with errno unless told otherwise, and log a line at
// most.
#ifndef OST_PUBLIC_FILE_H
#define OST_PUBLIC_FILE_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "fileIO.h"

// ---- Tests and facts
//
// A path that is null, or whose file can't be reached, is none of the kinds.

bool File_Exists(const char *path);
bool File_IsFile(const char *path);
bool File_IsDirectory(const char *path);
bool File_IsCharDevice(const char *path);
// Whether the name itself is a symbolic link.
bool File_IsSymLink(const char *path);
// Whether this is a directory, one that can be listed, and there is nothing in it.
bool File_IsEmptyDirectory(const char *path);
// Whether a path is on a file system of the network. One whose file system can't be told is taken for remote.
bool File_IsRemote(const char *path);
// Whether two paths lead to the same file. Equal texts do, whether or not there is such a file.
bool File_IsSameFile(const char *path1, const char *path2);
// Bytes, or -1.
int64_t File_GetSize(const char *path);
// Seconds since 1970, or -1.
int64_t File_GetModTime(const char *path);
// The time of modification in words ("Fri Feb 13 23:31:30 2009"), by the local clock, as a new string (free).
// Null on failure.
char *File_GetModTimeString(const char *path);
// mode  gets the permission bits, those for running as owner or group and the sticky one among them
bool File_GetFilePermissions(const char *path, mode_t *mode);
bool File_SetFilePermissions(const char *path, mode_t mode);
// Adds what the file of a configuration needs to be run: reading, writing and running for the owner, and
// running for whom else may read.
//
// Returns true when nothing had to change or the change failed, false when it worked or there is no such
// file. This sense is wanted.
bool File_MakeCfgFileExecutable(const char *path);
// Times are in units of 100 nanoseconds since 1601.
//
// All get -1; then the times of the file, or of the link that the path names, replace it, but for the time of
// creation, which isn't known here.
bool File_GetTimes(const char *path, int64_t *createTime, int64_t *accessTime, int64_t *writeTime,
                   int64_t *changeTime);
// A time of 0 or less stays what it is, in whole seconds.
//
// createTime  ignored
bool File_SetTimes(const char *path, int64_t createTime, int64_t accessTime, int64_t writeTime);

// The size of the file system that a path is on, or would be on, in bytes. -1, with a warning, when that
// can't be told.
int64_t File_GetCapacity(const char *path);
// What an ordinary user can still write to that file system, in bytes. The same failure.
//
// doNotAscend  a path that doesn't exist is a failure; otherwise the nearest directory that does is asked
int64_t File_GetFreeSpace(const char *path, bool doNotAscend);
// Whether a file at, or in, the path can have more than 4 GiB.
bool File_SupportsLargeFiles(const char *path);
// Whether it can have `size` bytes. Sizes below 2 GiB always can, and nothing is looked at for them; for
// others a temporary file is made for a moment unless the path is a file that can be read.
bool File_SupportsFileSize(const char *path, uint64_t size);

// ---- Changing the file system

// Makes one directory, mode 0777 less the umask; false when it exists.
bool File_CreateDirectory(const char *path);
// The same, and an existing directory is as good.
bool File_EnsureDirectory(const char *path);
// Makes each directory of the path that is missing. There is nothing to do for null or an empty path.
bool File_CreateDirectoryHierarchy(const char *path);
bool File_DeleteEmptyDirectory(const char *path);
// Deletes a tree, carrying on after failures: directories by what is in them, and all else as File_Unlink
// does, so that a link to a file takes the file with it wherever that is, and a link to a directory stays,
// with the directory, and is a failure. True when nothing failed, also when nothing was there.
bool File_DeleteDirectoryTree(const char *path);
// Deletes a file, and for a symbolic link its target first: a target that is missing is no failure, and with
// one that can't be deleted the link stays. 0, or -1 with errno.
int File_Unlink(const char *path);
// Deletes the name alone.
int File_UnlinkNoFollow(const char *path);
// The same as File_Unlink, but a missing file counts as deleted.
int File_UnlinkIfExists(const char *path);
// Moves a file: by renaming or, where that can't be done, by a copy that overwrites and the deletion of the
// source. False, with the messages of File_Copy, when there is no copy; true also when only the deletion
// failed.
bool File_Move(const char *source, const char *destination);
// Gives a new file the permissions and the place of an old one, if there is an old one. On failure a message
// is pending, and errno is that of the failed step.
bool File_Replace(const char *oldFile, const char *newFile);

// Lists a directory in the system's order, without "." and "..".
//
// names  if not null, gets a new array of `count` new strings (free each, then the array; File_FreeNames);
//        left alone on failure
//
// Returns the count, or -1 with errno; EINVAL for a name that can't be converted.
int File_ListDirectory(const char *path, char ***names);
void File_FreeNames(char **names, int count);

// ---- Copying
//
// These copy a file's content. On failure no half-made destination stays, a message is pending and the result
// is false.

// What to do when there is a file where a new one is to be. Retrying never ends while it stays there.
enum FileCreatePromptValue {
  FILE_PROMPT_ASK_AGAIN = -2,  // the same as FILE_PROMPT_ASK
  FILE_PROMPT_ASK = -1,        // ask the user
  FILE_PROMPT_RETRY = 0,
  FILE_PROMPT_OVERWRITE = 1,
  FILE_PROMPT_CANCEL = 2,
};

// overwrite  whether a destination that exists is emptied first; it is a failure otherwise
bool File_Copy(const char *source, const char *destination, bool overwrite);
// prompt  a FileCreatePromptValue; any other stops the program. Cancelling leaves no message.
bool File_CopyFromNameToName(const char *source, const char *destination, int prompt);
// The same with what is still to be read of an open file, which stays open.
bool File_CopyFromFd(FileIODescriptor *file, const char *destination, bool overwrite);
bool File_CopyFromFdToName(FileIODescriptor *file, const char *destination, int prompt);
// Copies from one open file to another, from where each stands up to the first one's end.
bool File_CopyFromFdToFd(FileIODescriptor *source, FileIODescriptor *destination);
// Makes a new file and opens it, dealing with one that exists as `prompt` tells: FILEIO_CANCELLED when that
// is to cancel.
//
// file    invalid; gets the open file
// access  FILEIO_ACCESS flags, to which writing is added
FileIOResult File_CreatePrompt(FileIODescriptor *file, const char *name, uint32_t access, int prompt);

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

// ---- Temporary files

// The first directory for temporary files that there is and that this user can write, or null with a warning.
//
// useConfiguration  whether the configuration may name it
char *File_GetTmpDir(bool useConfiguration);
// Makes a new file, mode 0600, whose name no other has, and opens it for reading and writing.
//
// tag   what its name begins with, before a number; a path from the root names its directory as well, and
//       otherwise it is in that of File_GetTmpDir. Null for "ostrel".
// path  gets its path; left alone on failure
//
// Returns a descriptor, or -1 with errno and a message pending. Null for `path`, and a temporary directory
// that can't be found, give EFAULT and no message.
int File_MakeTemp(const char *tag, char **path);
// The same in a directory; null for any argument gives EFAULT.
int File_MakeTempEx(const char *directory, const char *name, char **path);

#endif
