// An ordered table of named, typed values that loads from a small text format and saves back to it without
// disturbing what it didn't change: comments, blank lines, unknown keys and their order all survive.
//
//   const OwnedDictionary dict(Dictionary_Create());
//   if (!Dictionary_Load(dict.get(), path)) { Msg_Reset(true); ... }
//   const int32_t port = Dict_GetLong(dict.get(), 80, "server%d.port", i);      // dictType.h
//   Dict_SetLong(dict.get(), port + 1, "server%d.port", i);
//   Dictionary_Write(dict.get(), path);
//
// Names are the same in upper and lower case. A null dictionary, an empty name, and a name that begins with
// "." stop the program. Values are text in UTF-8 until the first typed read fixes their type; another type
// later stops the program. The file tells its encoding in a line ".encoding"; other names of that line are
// config.encoding, preferences.encoding, ostlist.encoding and snapshot.encoding.
//
// Where a function returns false, messages say why. A dictionary belongs to one thread.
#ifndef OST_PUBLIC_DICTIONARY_H
#define OST_PUBLIC_DICTIONARY_H

#include <cstddef>
#include <cstdint>

#include "fileIO.h"
#include "owned.h"
#include "unicode.h"

struct Dictionary;
struct DictEntry;
// One place where the key of an encrypted dictionary can be found.
struct KeyLocator;

// What a value slot holds. A type and flags travel in one word.
enum DictType : uint32_t {
  DICT_ANY = 0,     // char *, of no type yet
  DICT_STRING = 1,  // char *, may be null
  DICT_BOOL = 2,    // bool
  DICT_LONG = 3,    // int32_t
  DICT_DOUBLE = 4,
  DICT_TRISTATE = 5,  // int32_t: 0 false, 1 true, -1 default
  DICT_INT64 = 6,     // int64_t

  DICT_FLAG_HEADER = 0x1000,  // a set marks the entry a header entry, and not modified
  DICT_FLAG_PLAIN = 0x2000,   // means entries that stay outside the encrypted section
};

// ---- Life

Dictionary *Dictionary_Create();
// Null is accepted.
void Dictionary_Free(Dictionary *dict);
// Drops all entries and lines, the encoding and the keys.
void Dictionary_Clear(Dictionary *dict);

using OwnedDictionary = std::unique_ptr<Dictionary, Releaser<Dictionary_Free>>;

// ---- Load
//
// A null file name is a success that reads nothing; "-" is standard input. A file without an encoding line is
// in UTF-8 if it begins with that mark and its bytes allow, and otherwise in the default encoding, which is
// the current one unless told otherwise. A key that is defined twice and a bad encoding line fail a load at
// its end; any other error ends it at once. What was read until then stays in the dictionary. All of these
// but the forms that append clear the dictionary first.

bool Dictionary_Load(Dictionary *dict, const char *fileName);
bool Dictionary_LoadWithDefaultEncoding(Dictionary *dict, const char *fileName,
                                        StringEncoding defaultEncoding);
bool Dictionary_Append(Dictionary *dict, const char *fileName);
// Loads, then unlocks.
bool Dictionary_LoadAndUnlock(Dictionary *dict, const char *fileName, const KeyLocator *keyLocator,
                              const char *password);

// The same with an open file, which is read from its start and stands there again afterwards.
bool Dictionary_LoadFile(Dictionary *dict, FileIODescriptor *file);
bool Dictionary_LoadFileWithDefaultEncoding(Dictionary *dict, FileIODescriptor *file,
                                            StringEncoding defaultEncoding);
bool Dictionary_AppendFile(Dictionary *dict, FileIODescriptor *file);
bool Dictionary_LoadFileAndUnlock(Dictionary *dict, FileIODescriptor *file, const KeyLocator *keyLocator,
                                  const char *password);

// Reads a NUL-terminated text, in which LF and CRLF end a line, and a lone CR doesn't.
//
// append  whether the dictionary isn't cleared first
bool Dictionary_LoadFromBuffer(Dictionary *dict, const char *buffer, bool append,
                               StringEncoding defaultEncoding = STRING_ENCODING_DEFAULT);

// ---- Save
//
// Leading comments come first, then the line of the encoding and the header entries, then the lines as they
// were read, with those of modified entries made anew, then the new entries. A value that the encoding can't
// express turns the whole dictionary to UTF-8.

// Write in place. A failed flush or sync leaves a message, but is a success.
bool Dictionary_Write(Dictionary *dict, const char *fileName);
bool Dictionary_WriteFile(Dictionary *dict, FileIODescriptor *file);
// Makes the text.
//
// encrypt    whether a dictionary with a key safe encrypts what isn't plain
// outBuffer  gets a new string (free), null on failure
// outSize    gets its size in bytes, the NUL included
bool Dictionary_WriteToBuffer(Dictionary *dict, bool encrypt, char **outBuffer, size_t *outSize);
// Lets those execute a file who may read it. A failure is in the log.
bool Dictionary_MakeExecutable(const char *fileName);

// Puts comment lines in front of the file's lines, unless these begin with them already.
//
// lines  ended by a null
void Dictionary_AddHeaderLines(const char *const *lines, Dictionary *dict);
// Puts a line "#!<interpreter>" first. Returns false when such a line is there.
bool Dictionary_AddInterpreterLine(Dictionary *dict, const char *interpreter);

// ---- Entries

// Finds a value.
//
// defaultValue  points to the value that stands for bad text, which a warning is posted for, and that is kept
//               for a name that isn't there, but not saved; later reads get that first default. May be null
//               when the name is there: bad text then counts as far as it goes.
// typeAndFlags  DICT_ANY takes the value with the type that it has
//
// Returns the value's slot, borrowed until the value is changed.
void *Dictionary_Get(Dictionary *dict, const void *defaultValue, uint32_t typeAndFlags, const char *name);
// The same, but null, and nothing kept, for a name that isn't there.
void *Dictionary_GetDefined(Dictionary *dict, const void *defaultValue, uint32_t typeAndFlags,
                            const char *name);
// Sets a value, which is copied.
//
// value         points to it
// typeAndFlags  a text of DICT_ANY is read as the type that the entry has
void Dictionary_Set(Dictionary *dict, const void *value, uint32_t typeAndFlags, const char *name);
// Sets a value by a text "name=value".
//
// failIfDefined  whether an entry that is there is left alone, with an error posted
// modified       whether a save must write the value, even if it is the one that was there
//
// Returns the entry.
DictEntry *Dictionary_SetFromString(Dictionary *dict, const char *text, bool failIfDefined, bool modified);
// The value as text, borrowed until it is changed or asked for again; null when absent.
const char *Dictionary_GetAsString(Dictionary *dict, const char *name);
bool Dictionary_IsDefined(const Dictionary *dict, const char *name);
// Whether the name is absent or has only a default that was read.
bool Dictionary_NotSet(const Dictionary *dict, const char *name);
// Makes a value that is there one to be written by a save, even if it is a default.
void Dictionary_Touch(Dictionary *dict, const char *name);
bool Dictionary_IsModified(const Dictionary *dict);

// Remove an entry and its line.
void Dictionary_Unset(Dictionary *dict, const char *name);
void Dictionary_UnsetWithFormat(Dictionary *dict, const char *format, ...)
    __attribute__((format(printf, 2, 3)));
// Of each name that begins so, in either case.
void Dictionary_UnsetPrefix(Dictionary *dict, const char *prefix);
// Sets each entry of this type, or of none yet, whose name begins so. Case counts here.
void Dictionary_SetAll(Dictionary *dict, const char *prefix, const void *value, DictType type);

// ---- The whole

using DictionaryCallback = void (*)(const char *name, const char *value, int index, void *clientData);
// Calls `callback` for each entry in order, counting from 0. Returns the count.
int Dictionary_Iterate(Dictionary *dict, DictionaryCallback callback, void *clientData, bool includeDefaults);

// Write a record for each entry: its name, NUL, and then byte 0, the value's text and NUL, or byte 1 for a
// null. The first leaves out the defaults that were read.
//
// outBuffer  gets a new block (free), null when there is no record
// outSize    gets its size in bytes
void Dictionary_Export(Dictionary *dict, char **outBuffer, size_t *outSize);
void Dictionary_ExportAll(Dictionary *dict, char **outBuffer, size_t *outSize);

// Gives `target` the values of `source`, of which the types are fixed by those of `target` and the other way
// round. Two types that differ leave the target's value, with a warning in the log. Nothing is removed.
void Dictionary_Merge(Dictionary *target, Dictionary *source);
// Writes the entries to the log, but for defaults that were read.
void Dictionary_Log(const Dictionary *dict);
// Makes a file's name from the value of `key`, or of "<key>.<suffix>", and the directory of `baseFileName`.
//
// suffix  may be null
//
// Returns a new string (free), or null without a value, or with a warning in the log.
char *Dictionary_DeriveFileName(Dictionary *dict, const char *baseFileName, const char *key,
                                const char *suffix);

// ---- Encoding

// STRING_ENCODING_UNKNOWN until a file, a call or the first save fixes it.
StringEncoding Dictionary_GetEncoding(const Dictionary *dict);
// Fixes the encoding and leaves the values alone.
void Dictionary_SetEncoding(Dictionary *dict, StringEncoding encoding);
// Changes a known encoding; a save then writes all text anew. Returns false, with nothing changed, when a
// value can't be expressed.
bool Dictionary_ChangeEncoding(Dictionary *dict, StringEncoding encoding);

// ---- The encrypted section
//
// This system has no cipher: what needs a key stops the program.

bool Dictionary_IsEncrypted(const Dictionary *dict);
// Decrypts the encrypted section, if there is one that isn't yet. False, without a message, when both the
// key locator and the password are null.
bool Dictionary_Unlock(Dictionary *dict, const KeyLocator *keyLocator, const char *password);
// Gives the dictionary a new key, or none. What a locked dictionary has encrypted is lost, with a line in the
// log.
//
// keyLocators  ended by a null; may be null
void Dictionary_Rekey(Dictionary *dict, const KeyLocator *const *keyLocators);
void Dictionary_CopyKey(Dictionary *target, const Dictionary *source);

#endif
