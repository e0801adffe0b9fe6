#include <algorithm>
#include <atomic>
#include <cstring>
#include <string_view>

#include "codeset.h"
#include "hashTable.h"
#include "log.h"
#include "panicUser.h"
#include "unicodeInt.h"
#include "unicodeTableInt.h"

namespace {

constexpr uint32_t kCacheBuckets = 128;

// Both are filled at first use and live as long as the process.
struct {
  HashTable *volatile rows;                                      // the row of each name that was found
  std::atomic<StringEncoding> current{STRING_ENCODING_UNKNOWN};  // unknown while unset
} unicodeNames;

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

char LowerCase(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// The next letter or digit of a name, in lower case and whatever the locale; NUL at its end.
char NextNormalized(const char **name) {
  while (**name != '\0') {
    const char c = LowerCase(*(*name)++);
    if (IsDigit(c) || (c >= 'a' && c <= 'z')) {
      return c;
    }
  }
  return '\0';
}

int CompareNormalized(const char *a, const char *b) {
  while (true) {
    const char c = NextNormalized(&a);
    const char d = NextNormalized(&b);
    if (c != d || c == '\0') {
      return c - d;
    }
  }
}

const char *NameOf(const UnicodeNameReference &reference) {
  return xRef[reference.row].names[reference.name];
}

// Reads the number of a name such as "windows-1252"; one that no code page has is kUnicodeNoCodePage.
bool ParseCodePage(std::string_view name, uint32_t *codePage) {
  if (!name.starts_with("windows-") && !name.starts_with("Windows-")) {
    return false;
  }
  name.remove_prefix(strlen("windows-"));
  uint64_t number = 0;
  for (const char c : name) {
    if (!IsDigit(c)) {
      return false;
    }
    number = std::min<uint64_t>(number * 10 + static_cast<uint64_t>(c - '0'), kUnicodeNoCodePage);
  }
  *codePage = static_cast<uint32_t>(number);
  return true;
}

int FindCodePage(const char *name) {
  uint32_t codePage = 0;
  if (!ParseCodePage(name, &codePage) || codePage == kUnicodeNoCodePage) {
    return -1;
  }
  const auto *const row = std::find_if(
      std::begin(xRef), std::end(xRef),
      [codePage](const UnicodeXRef &candidate) { return candidate.windowsCodePage == codePage; });
  return row == std::end(xRef) ? -1 : static_cast<int>(row - xRef);
}

// What comparing the name to every name of every row, and then normalized in the same way, would find. Names
// that are equal are also alike, so that among the alike ones the equal one comes first.
int FindName(const char *name) {
  const auto *const first = std::lower_bound(std::begin(unicodeNameIndex), std::end(unicodeNameIndex), name,
                                             [](const UnicodeNameReference &reference, const char *wanted) {
                                               return CompareNormalized(NameOf(reference), wanted) < 0;
                                             });
  int row = -1;
  for (const auto *candidate = first;
       candidate != std::end(unicodeNameIndex) && CompareNormalized(NameOf(*candidate), name) == 0;
       candidate++) {
    if (strcmp(NameOf(*candidate), name) == 0) {
      return candidate->row;
    }
    if (row == -1) {
      row = candidate->row;
    }
  }
  return row;
}

int FindRow(const char *name) {
  const int row = FindCodePage(name);
  return row != -1 ? row : FindName(name);
}

}  // namespace

int UnicodeIANALookup(const char *name) {
  HashTable *cache = HashTable_AllocOnce(&unicodeNames.rows, kCacheBuckets,
                                         HASH_ISTRING_KEY | HASH_FLAG_ATOMIC | HASH_FLAG_COPYKEY, nullptr);
  void *cached = nullptr;
  if (HashTable_Lookup(cache, name, &cached)) {
    return static_cast<int>(reinterpret_cast<intptr_t>(cached));
  }
  const int row = FindRow(name);
  if (row == -1) {
    Log("%s: Did not find an IANA match for encoding \"%s\"\n", __func__, name);
    return -1;
  }
  // A number is what the table keeps. NOLINTNEXTLINE(performance-no-int-to-ptr)
  HashTable_Insert(cache, name, reinterpret_cast<void *>(static_cast<intptr_t>(row)));
  return row;
}

StringEncoding UnicodeResolveEncoding(StringEncoding encoding) {
  if (encoding != STRING_ENCODING_DEFAULT) {
    return encoding;
  }
  StringEncoding current = unicodeNames.current.load(std::memory_order_relaxed);
  if (current == STRING_ENCODING_UNKNOWN) {
    current = Unicode_GetCurrentEncoding();
    unicodeNames.current.store(current, std::memory_order_relaxed);
  }
  return current;
}

StringEncoding Unicode_EncodingNameToEnum(const char *name) {
  const int row = UnicodeIANALookup(name);
  if (row == -1) {
    return STRING_ENCODING_UNKNOWN;
  }
  if (xRef[row].isSupported) {
    return xRef[row].encoding;
  }
  if (row != UnicodeIANALookup(CodeSet_GetCurrentCodeSet())) {
    return STRING_ENCODING_UNKNOWN;
  }
  // The host uses it, so its iconv knows it, whatever ICU does.
  CodeSet_DontUseIcu();
  return xRef[row].encoding;
}

const char *Unicode_EncodingEnumToName(StringEncoding encoding) {
  const StringEncoding resolved = UnicodeResolveEncoding(encoding);
  if (!Unicode_IsEncodingValid(resolved)) {
    Log("%s: Unknown encoding %d.\n", __func__, resolved);
    NOT_REACHED();
  }
  const UnicodeXRef &row = xRef[unicodeRowOfEncoding[resolved]];
  return row.names[row.preferredMime];
}

bool Unicode_IsEncodingValid(StringEncoding encoding) {
  return encoding >= STRING_ENCODING_UTF8 && encoding < STRING_ENCODING_COUNT;
}

StringEncoding Unicode_GetCurrentEncoding() {
  const StringEncoding encoding = Unicode_EncodingNameToEnum(CodeSet_GetCurrentCodeSet());
  ASSERT(Unicode_IsEncodingValid(encoding));
  return encoding;
}
