// The program's one string type, and its one vocabulary of character encodings.
//
//   OwnedUnicode name(Unicode_Alloc(bytes, STRING_ENCODING_DEFAULT));    // in from the file system
//   OwnedString path(Unicode_GetAllocBytes(name.get(), STRING_ENCODING_DEFAULT));    // and out again
//
// Inside the program text is a Unicode: valid, NUL-terminated UTF-8 on the heap. Bytes in other encodings are
// there at the borders only, and pass them through these functions.
//
// A new string or list is the caller's (Unicode_Free, Unicode_FreeList); new bytes are freed with free.
// Making a string stops the program when memory is out. An encoding may be STRING_ENCODING_DEFAULT, which
// stands for the current one; one that isn't in the table stops the program where its name is needed.
#ifndef OST_PUBLIC_UNICODE_H
#define OST_PUBLIC_UNICODE_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#include "owned.h"

using Unicode = const char *;
using utf16_t = uint16_t;
// A count of code units, which are bytes; -1 means up to the end or, as a result, nothing found.
using UnicodeIndex = int64_t;

// The values that have no name here belong to the other rows of the table of character sets.
enum StringEncoding : int32_t {
  STRING_ENCODING_UNKNOWN = -2,
  STRING_ENCODING_DEFAULT = -1,  // the current encoding
  STRING_ENCODING_UTF8 = 0,
  STRING_ENCODING_UTF16_LE = 1,
  STRING_ENCODING_UTF16_BE = 2,
  STRING_ENCODING_UTF16_XE = 3,
  STRING_ENCODING_UTF32_LE = 4,
  STRING_ENCODING_UTF32_BE = 5,
  STRING_ENCODING_UTF32_XE = 6,
  STRING_ENCODING_US_ASCII = 7,
  STRING_ENCODING_ISO_8859_1 = 8,
  STRING_ENCODING_ISO_8859_2,
  STRING_ENCODING_ISO_8859_3,
  STRING_ENCODING_ISO_8859_4,
  STRING_ENCODING_ISO_8859_5,
  STRING_ENCODING_ISO_8859_6,
  STRING_ENCODING_ISO_8859_7,
  STRING_ENCODING_ISO_8859_8,
  STRING_ENCODING_ISO_8859_9,
  STRING_ENCODING_ISO_8859_10,
  STRING_ENCODING_WINDOWS_1250 = 34,
  STRING_ENCODING_WINDOWS_1251,
  STRING_ENCODING_WINDOWS_1252,
  STRING_ENCODING_WINDOWS_1253,
  STRING_ENCODING_WINDOWS_1254,
  STRING_ENCODING_WINDOWS_1255,
  STRING_ENCODING_WINDOWS_1256,
  STRING_ENCODING_WINDOWS_1257,
  STRING_ENCODING_WINDOWS_1258,
  STRING_ENCODING_UCS2 = 131,
  STRING_ENCODING_UCS4 = 132,
  STRING_ENCODING_COUNT = 316,
};

// Start-up.
//
// Choose the engine of the conversions, check that the current encoding can be converted, and put new lists
// of UTF-8 in the place of the arguments and the environment, with the null behind them. Only the first call
// does anything; calls at once from several threads wait for it. A failure stops the program with its reason.
//
// argc        the count of arguments without the null behind them
// argv, envp  where the vectors' addresses stand; may be null
void Unicode_Init(int argc, char ***argv, char ***envp);
// icuDataDir  where ICU's data file is; null for the default
void Unicode_InitEx(int argc, char ***argv, char ***envp, const char *icuDataDir);
// wargv, wenvp  vectors in UTF-16LE, which are read instead of those at `argv` and `envp`; may be null
void Unicode_InitW(int argc, utf16_t **wargv, utf16_t **wenvp, char ***argv, char ***envp);
// What stands behind the three.
void Unicode_InitInternal(int argc, const char *icuDataDir, utf16_t **wargv, utf16_t **wenvp, char ***argv,
                          char ***envp);

// Makes a string of bytes in an encoding.
//
// lengthInBytes  -1 when the buffer is terminated, by a NUL as wide as the encoding's units
//
// Returns a new string, or null for a null buffer, which must not have a positive length. Bytes that aren't
// in the encoding are substituted; where that can't be done the bytes are logged and the program stops.
Unicode Unicode_AllocWithLength(const void *buffer, ssize_t lengthInBytes, StringEncoding encoding);
Unicode Unicode_Alloc(const void *buffer, StringEncoding encoding);
// A copy; null stays null.
Unicode Unicode_Duplicate(Unicode str);
// Null is accepted. Keeps errno.
void Unicode_Free(Unicode str);

// Makes a string of a literal.
//
// asciiBytes  ASCII, anything else stops the program
// unescape    whether "\uXXXX" and "\UXXXXXXXX" stand for code points, and a backslash before any other
//             character for that character; an escape that is none of these stops the program
//
// Returns a new string.
Unicode Unicode_AllocStatic(const char *asciiBytes, bool unescape);

// Prints into a new string; null on failure.
Unicode Unicode_Format(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Makes a list of strings of a list of bytes.
//
// length  how many entries there are, null ones among them; -1 when a null ends the list
//
// Returns a new array of new strings, with the null behind it when `length` is -1; null for a null list,
// which must not have a positive length, or when there is no memory for the array.
char **Unicode_AllocList(const char *const *list, ssize_t length, StringEncoding encoding);
// Frees a list's strings, up to the first null when `length` is -1, and the list. Null is accepted unless
// `length` is positive.
void Unicode_FreeList(char **list, ssize_t length);

// New bytes of a string in an encoding, with a NUL behind them as wide as the encoding's units. Null when
// `str` is null or the encoding can't express it.
char *Unicode_GetAllocBytes(Unicode str, StringEncoding encoding);
// lengthInBytes  how much of `str` is taken; -1 for all
char *Unicode_GetAllocBytesWithLength(Unicode str, StringEncoding encoding, ssize_t lengthInBytes);
// The same for a list, as in Unicode_AllocList; null entries stay null. Null also when an entry can't be
// expressed.
char **Unicode_GetAllocList(const Unicode *list, ssize_t length, StringEncoding encoding);

// Converts a string into a buffer.
//
// maxLengthInBytes  the buffer's size, with room for the terminator: one NUL byte, in UTF-16LE two. A buffer
//                   that hasn't even that room is left alone.
// retLength         if not null, gets the bytes without the terminator
//
// Returns false when the text was cut, or when it can't be expressed; then it is empty. UTF-8 and UTF-16LE
// are cut between characters, other encodings anywhere.
bool Unicode_CopyBytes(void *destBuffer, Unicode srcBuffer, size_t maxLengthInBytes, size_t *retLength,
                       StringEncoding encoding);
// How large a buffer is always enough for the string in the encoding, terminator included.
size_t Unicode_BytesRequired(Unicode str, StringEncoding encoding);

// Whether bytes are well-formed text in an encoding. A null buffer is, and must not have a positive length.
//
// lengthInBytes  -1 when the buffer is terminated
bool Unicode_IsBufferValid(const void *buffer, ssize_t lengthInBytes, StringEncoding encoding);
// Whether the encoding can express the string.
bool Unicode_CanGetBytesWithEncoding(Unicode str, StringEncoding encoding);
// The bytes before the terminator, a NUL as wide as the encoding's units.
ssize_t Unicode_LengthInBytes(const void *buffer, StringEncoding encoding);
// Shows bytes of any kind in printable ASCII: each byte outside of it, and each backslash, as "\x" and two
// hexadecimal digits.
//
// lengthInBytes  -1 when the buffer is terminated in the manner of `encoding`
//
// Returns a new string, null when memory is out.
char *Unicode_EscapeBuffer(const void *buffer, ssize_t lengthInBytes, StringEncoding encoding);
// A copy (free) of a terminated UTF-16 string; null stays null.
utf16_t *Unicode_UTF16Strdup(const utf16_t *str);

// The encoding of a name in any of its spellings, STRING_ENCODING_UNKNOWN when there is none or this program
// can't convert it. The host's own encoding can always be converted: if only iconv can, ICU is switched off
// for the process.
StringEncoding Unicode_EncodingNameToEnum(const char *name);
// The primary name of an encoding, borrowed for ever. A value that has none stops the program.
const char *Unicode_EncodingEnumToName(StringEncoding encoding);
// Whether this is one of the table's encodings; STRING_ENCODING_DEFAULT isn't.
bool Unicode_IsEncodingValid(StringEncoding encoding);
// The encoding of file names. One that is unknown stops the program.
StringEncoding Unicode_GetCurrentEncoding();

// Operations by byte index. Each range is fitted to its string first: a start that is negative or past the
// end becomes the end, a length that is negative or too long what remains.

// The index of the first, or last, place of one range in another, or -1. An empty range is found at the
// start.
UnicodeIndex Unicode_FindSubstrInRange(Unicode str, UnicodeIndex strStart, UnicodeIndex strLength,
                                       Unicode strToFind, UnicodeIndex strToFindStart,
                                       UnicodeIndex strToFindLength);
UnicodeIndex Unicode_FindLastSubstrInRange(Unicode str, UnicodeIndex strStart, UnicodeIndex strLength,
                                           Unicode strToFind, UnicodeIndex strToFindStart,
                                           UnicodeIndex strToFindLength);
// A new string of a range.
Unicode Unicode_Substr(Unicode str, UnicodeIndex start, UnicodeIndex length);
// A new string, with a range of `source` in the place of a range of `destination`.
Unicode Unicode_ReplaceRange(Unicode destination, UnicodeIndex destinationStart,
                             UnicodeIndex destinationLength, Unicode source, UnicodeIndex sourceStart,
                             UnicodeIndex sourceLength);
// A new string of all arguments up to a null; null when the first is null.
Unicode Unicode_Join(Unicode first, ...) __attribute__((sentinel));
// Compares two ranges by code point: -1, 0 or 1, and -1 when a range isn't valid text or memory is out.
//
// ignoreCase  whether characters of the Basic Multilingual Plane are folded first
int Unicode_CompareRange(Unicode str1, UnicodeIndex str1Start, UnicodeIndex str1Length, Unicode str2,
                         UnicodeIndex str2Start, UnicodeIndex str2Length, bool ignoreCase);

using OwnedUnicode = std::unique_ptr<const char, Releaser<Unicode_Free>>;

struct UnicodeListReleaser {
  void operator()(char **list) const { Unicode_FreeList(list, -1); }
};
// Of a list that a null ends.
using OwnedUnicodeList = std::unique_ptr<char *[], UnicodeListReleaser>;

// A string as UTF-8, which it is.
inline const char *UTF8(Unicode str) {
  return str;
}

UnicodeIndex Unicode_LengthInCodeUnits(Unicode str);

#endif
