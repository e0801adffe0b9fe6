// What the files of the dictionary share.
#ifndef OST_USER_DICTIONARYINT_H
#define OST_USER_DICTIONARYINT_H

#include <cstdint>
#include <string>
#include <string_view>

#include "dictionary.h"
#include "dictll.h"
#include "dynbuf.h"
#include "hashTable.h"
#include "owned.h"
#include "unicode.h"

struct CryptoKey;
struct KeySafe;

constexpr uint32_t kDictTypeMask = 0xFFF;

// The links of a circular doubly linked list, which its head and its elements have.
struct DictLink {
  DictLink *prev;
  DictLink *next;

  void Unlink() const {
    prev->next = next;
    next->prev = prev;
  }
};

// The list itself; its elements belong to others.
template <typename T>
struct DictRing {
  DictLink head;

  class Iterator {
   public:
    explicit Iterator(DictLink *link) : link_(link) {}
    T *operator*() const { return static_cast<T *>(link_); }
    Iterator &operator++() {
      link_ = link_->next;
      return *this;
    }
    bool operator==(const Iterator &other) const = default;

   private:
    DictLink *link_;
  };

  void Init() { head.prev = head.next = &head; }
  bool IsEmpty() const { return head.next == &head; }
  Iterator begin() const { return Iterator(head.next); }
  Iterator end() const { return Iterator(const_cast<DictLink *>(&head)); }
  void Append(T *element) { Insert(head.prev, element); }
  void Prepend(T *element) { Insert(&head, element); }
  // Calls `visit` for each element, which it may remove.
  template <typename Visit>
  void ForEachSafely(Visit visit) {
    for (DictLink *link = head.next; link != &head;) {
      DictLink *next = link->next;
      visit(static_cast<T *>(link));
      link = next;
    }
  }

 private:
  static void Insert(DictLink *before, T *element) {
    element->prev = before;
    element->next = before->next;
    before->next->prev = element;
    before->next = element;
  }
};

union DictValue {
  char *text;  // owned; DICT_ANY and DICT_STRING
  bool boolean;
  int32_t number;  // DICT_LONG and DICT_TRISTATE
  double real;
  int64_t number64;
};
static_assert(sizeof(DictValue) == 8);

struct DictLine : DictLink {
  char *text;  // as it was read, without the line end; owned, or with the entry
  size_t size;
  DictEntry *entry;  // whose part this record is; null for a comment, a blank line, or another
                     // that is only kept
};

struct DictEntry : DictLink {
  char *name;  // stands behind this record
  uint32_t type;
  DictValue value;
  bool modified;      // a save writes the value, not the line
  bool written;       // the save that is under way has it
  bool isDefault;     // made by a read; not saved
  bool header;        // saved before the lines
  bool plain;         // stays outside the encrypted section
  char *stringCache;  // owned; what Dictionary_GetAsString gave last
  DictLine *line;     // the line that holds it, which points back; may be null
  // Most entries come from a file and stay as they are. All that these need lies in a block of the
  // dictionary.
  char *firstText;   // behind the name, what was read; null for another entry
  size_t firstSize;  // its bytes, of which some may be NULs, until the encoding is known
  DictLine firstLine;
};

// Memory of entries that were read; given back when the dictionary is cleared.
struct DictBlock {
  DictBlock *next;
  size_t size;  // bytes behind this record
  size_t used;
};

struct Dictionary {
  DictRing<DictEntry> entries;  // in the order in which they were made
  DictRing<DictLine> lines;     // as in the file
  const char *fileName;         // of the file that is being loaded, for messages; borrowed
  int32_t lineNumber;           // the line that is being parsed; 0 outside of a load
  HashTable *entryTable;        // by name, without regard to case
  KeySafe *keySafe;
  CryptoKey *cryptoKey;
  int32_t entryCount;
  StringEncoding encoding;
  DictBlock *blocks;  // the one in use first
};

// A text for a message or the log, in which bytes that aren't UTF-8 are shown by their numbers. A text of
// other bytes couldn't be cut.
class DictPrintable {
 public:
  // Null is shown too.
  explicit DictPrintable(const char *text);
  explicit DictPrintable(std::string_view text);
  const char *Text() const { return text_.c_str(); }

 private:
  std::string text_;
};

// ---- Entries

// The entry, or null when there is none that `flags` let see.
DictEntry *DictionaryFindVisible(const Dictionary *dict, const char *name, uint32_t flags);
// Adds an entry that takes over `value`. Its name must be new.
DictEntry *DictionaryAddEntry(Dictionary *dict, std::string_view name, uint32_t type, DictValue value);
// Adds an entry of DICT_ANY for a key line, with that line. It and the value's text are as they were read.
//
// Returns null when the name is there.
DictEntry *DictionaryAddReadEntry(Dictionary *dict, const DictLL_Line &line);
// Gives an entry a copy of a value, as Dictionary_Set does.
void DictionaryUpdateEntry(DictEntry *entry, const void *value, uint32_t type, bool modified);
// Appends a line of no entry, which takes over the text.
DictLine *DictionaryAppendLine(Dictionary *dict, OwnedString text, size_t size);

// ---- Values

// Whether the entry is a text that has one.
bool DictionaryHasText(const DictEntry *entry);
// A copy of the value at `value`. A type that there isn't stops the program.
DictValue DictionaryCopyValue(const void *value, uint32_t type);
// Puts a value in the place of the entry's, which is freed. The entry's type says what either is.
void DictionaryReplaceValue(DictEntry *entry, DictValue value);
// Whether the values at `a` and `b` are.
bool DictionaryValuesEqual(const void *a, const void *b, uint32_t type);
// Gives an entry of DICT_ANY a type by its text.
//
// defaultValue  replaces bad text; may be null
void DictionaryResolveEntry(DictEntry *entry, const void *defaultValue, uint32_t type);
// Reads a text, which may be null, as a value of another type than text.
DictValue DictionaryParseValue(const char *name, const char *text, const void *defaultValue, uint32_t type);

// How a value's text begins its words: a save writes "TRUE", a reader gets "true".
enum class DictWords { kUpper, kLower };
// The value as text: borrowed from the entry, or new, in `storage`. Null for a null text.
const char *DictionaryValueText(const DictEntry *entry, DictWords words, OwnedString *storage);
// Dictionary_GetAsString of an entry.
const char *DictionaryEntryAsString(DictEntry *entry);

// ---- Encoding

// Fixes the encoding by its name or, when that is null, by `fallback`, and turns all text from it to UTF-8. A
// failure leaves messages, and nothing changed.
bool DictionaryApplyEncoding(Dictionary *dict, const char *name, StringEncoding fallback);
// Turns an entry's text, as it was read, from the dictionary's encoding, which is known, to UTF-8. A failure
// leaves a message.
bool DictionaryDecodeEntry(const Dictionary *dict, DictEntry *entry);
// Says that a value can't be written in the dictionary's encoding.
void DictionaryReportBadOutput(const Dictionary *dict, const DictEntry *entry);

// ---- Encrypted section

// Forgets key safe and key.
void DictionaryDropKeys(Dictionary *dict);
// Appends the lines that hold `section` in its encrypted form. A failure is in the log.
bool DictionaryEncryptData(const Dictionary *dict, const DynBuf *section, DynBuf *output);

#endif
