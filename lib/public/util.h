// Helpers that other modules lean on: names of files, private temporary files, back traces, checksums, and
// what the process may ask of its system.
#ifndef OST_PUBLIC_UTIL_H
#define OST_PUBLIC_UTIL_H

#include <sys/types.h>
#include <sys/uio.h>

#include <cstddef>
#include <cstdint>

// ---- Names of files

// Expands "~", "~user" and "$NAME" in a file name. Returns a new string (free), or null with a message
// pending.
char *Util_ExpandString(const char *fileName);

// Makes a file's name from that of another.
//
// source  the other file, whose directory a relative result is put under when it isn't "."
// name    the new name, or null for that of `source` without its last extension
// ext     the extension to add, or null; one of the two must be given
//
// Returns a new string (free), or null with a warning in the log when an argument is missing.
char *Util_DeriveFileName(const char *source, const char *name, const char *ext);

// Makes a directory that isn't there yet, its parent being there, and looks whether the process may list,
// search and change it.
//
// path  expanded first
// mode  the permissions of a new one, before the process's mask
//
// Returns whether it is there and accessible; false with a message pending.
bool Util_MakeSureDirExistsAndAccessible(const char *path, mode_t mode);

// ---- Private temporary files

// The directory "<tmp>/ostrel-<user>", mode 0700 and owned by the effective user, made when it is missing.
// One directory serves the process; a directory that is no longer acceptable is not trusted again. Safe
// across threads.
//
// useConf  whether the configuration may name the temporary directory
//
// Returns a new string (free), or null with a warning in the log.
char *Util_GetSafeTmpDir(bool useConf);

// Makes a temporary file that nobody else can have prepared.
//
// tag      what its name begins with, "ostrel" when null; one with a directory part goes to that directory,
//          another to that of Util_GetSafeTmpDir
// outName  gets its path (free)
//
// Returns a descriptor to read and write it, or -1 with errno.
int Util_MakeSafeTemp(const char *tag, char **outName);

// ---- Back traces

// Takes one line of a back trace, a printf format with its values.
using Util_OutputFn [[gnu::format(printf, 2, 3)]] = void (*)(void *outData, const char *format, ...);

// Write the calling stack, at most 500 frames, under a heading that carries `bugNumber` when it isn't 0: to
// the log, or line by line to `outFunc`.
void Util_Backtrace(int bugNumber);
void Util_BacktraceWithFunc(int bugNumber, Util_OutputFn outFunc, void *outData);
// The same without a heading, of the frames that lie at `basePointer`, an address of the stack, or above it.
void Util_BacktraceFromPointer(const void *basePointer);
void Util_BacktraceFromPointerWithFunc(const void *basePointer, Util_OutputFn outFunc, void *outData);

// ---- Processes and limits

// The name of a process as the kernel tells it, with its NUL in a buffer of `bufferSize` bytes. Returns
// false, with the reason in the log, when it can't be found or doesn't fit.
bool Util_GetProcessName(pid_t pid, char *buffer, size_t bufferSize);

// Sees to it that the process may open 2048 files, with root's rights for the moment where that takes them
// and it may have them.
//
// outCurrent  gets the limit that was found; may be null
// outWanted   gets 2048; may be null
//
// Returns 0, also where the limit could be raised to the hard one alone, or an errno value with the reason in
// the log.
int Util_BumpNoFds(uint32_t *outCurrent, uint32_t *outWanted);

// ---- Numbers and bytes

// Whether the `count`th of many like events is to be told: all of the first 99, and then ever fewer.
bool Util_Throttle(uint32_t count);

// Compares versions of up to five numbers, "5.10.2"; a number that is missing counts as 0. Returns -1, 0 or
// 1 as `version1` is the lower, the same or the higher.
int Util_CompareDotted(const char *version1, const char *version2);

// The CRC-32 of zip and Ethernet. A length below 1 gives 0.
uint32_t Util_CRC32(const void *data, ssize_t length);
// The exclusive or of 32-bit words in the machine's byte order; `length` in bytes. Of Util_Checksum32 the
// bytes behind the last whole word don't count; of Util_Checksum each stands in the word at its place.
uint32_t Util_Checksum32(const void *data, size_t length);
uint32_t Util_Checksum(const void *data, size_t length);
// Util_Checksum of `count` pieces as if they were one.
uint32_t Util_Checksumv(const struct iovec *pieces, size_t count);

// The first prime that isn't below `start`. A start above 0xFFFFFFFB, the last prime of 32 bits, stops the
// program.
uint32_t Util_GetPrime(uint32_t start);

// Writes bytes as "0A FF", cut behind a whole byte where the buffer ends. Returns whether all fitted; false
// for a buffer without room for a NUL.
bool Util_Data2Buffer(char *buffer, size_t bufferSize, const void *data, size_t dataSize);

#endif
