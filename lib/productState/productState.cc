#include "productState.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>

#include "dynbuf.h"
#include "escape.h"
#include "owned.h"
#include "panicUser.h"
#include "str.h"
#include "strutil.h"
#include "util_misc.h"

namespace {

constexpr char kDefaultName[] = "Ostrel Tools";
constexpr char kBuildVersion[] = OST_VERSION;
constexpr uint32_t kBuildNumber = OST_BUILD_NUMBER;
constexpr char kDevelopmentVersion[] = "e.x.p";

constexpr char kEscape = '#';
constexpr char kItemEnd = ';';

struct FieldKey {
  ProductStateFields field;
  const char *key;
};

constexpr FieldKey kFields[] = {
    {PRODUCTSTATE_PRODUCT, "product"},           {PRODUCTSTATE_NAME, "name"},
    {PRODUCTSTATE_VERSION, "version"},           {PRODUCTSTATE_BUILD_NUMBER, "buildnumber"},
    {PRODUCTSTATE_CAPABILITIES, "capabilities"},
};

// What was set, until it is reset. It owns by plain pointers, so that it can be asked while the process ends.
struct ProductRecord {
  uint32_t product;
  char *name;
  char *version;
  uint32_t buildNumber;
  bool buildNumberSet;
  uint64_t capabilities;

  // Made by whoever asks first, and kept until the reset.
  char *buildNumberString;
  char *fullVersion;
  char *registryPath;
};
ProductRecord record;

// The version's numbers: read by whoever asks first, and the same until the process ends.
struct VersionNumbers {
  bool known;
  unsigned numbers[3];
};
VersionNumbers versionNumbers;

// A copy of all current values.
struct Values {
  uint32_t product = ProductState_GetProduct();
  std::string name = ProductState_GetName();
  std::string version = ProductState_GetVersion();
  uint32_t buildNumber = ProductState_GetBuildNumber();
  uint64_t capabilities = ProductState_GetCapabilities();
};

// ---- Reading

bool Parse(const std::string &text, std::string *value) {
  *value = text;
  return true;
}

// Decimal, and all of the text.
template <typename Number>
bool Parse(const std::string &text, Number *value) {
  const char *end = text.data() + text.size();
  Number number = 0;
  const std::from_chars_result result = std::from_chars(text.data(), end, number);
  if (result.ec != std::errc() || result.ptr != end) {
    return false;
  }
  *value = number;
  return true;
}

bool ParseField(ProductStateFields field, const std::string &text, Values *values) {
  switch (field) {
    case PRODUCTSTATE_PRODUCT:
      return Parse(text, &values->product);
    case PRODUCTSTATE_NAME:
      return Parse(text, &values->name);
    case PRODUCTSTATE_VERSION:
      return Parse(text, &values->version);
    case PRODUCTSTATE_BUILD_NUMBER:
      return Parse(text, &values->buildNumber);
    case PRODUCTSTATE_CAPABILITIES:
      return Parse(text, &values->capabilities);
  }
  NOT_REACHED();
}

std::string Unescape(std::string_view text) {
  size_t size = 0;
  const OwnedString result(Escape_Undo(kEscape, text.data(), text.size(), &size));
  ASSERT_MEM_ALLOC(result != nullptr);
  return {result.get(), size};
}

// Takes an item into the values. Returns its field, or 0 when it is skipped.
uint32_t ReadItem(std::string_view item, Values *values) {
  const size_t separator = item.find('=');
  if (separator == std::string_view::npos || separator + 1 == item.size()) {
    return 0;
  }
  for (const FieldKey &known : kFields) {
    if (item.substr(0, separator) == known.key) {
      const bool isRead = ParseField(known.field, Unescape(item.substr(separator + 1)), values);
      return isRead ? uint32_t{known.field} : 0;
    }
  }
  return 0;
}

// ---- Writing

void AppendText(DynBuf *text, const char *key, const char *value) {
  bool special[256] = {};
  special[static_cast<unsigned char>(kEscape)] = true;
  special[static_cast<unsigned char>(kItemEnd)] = true;
  const OwnedString escaped(Escape_Do(kEscape, special, value, strlen(value), nullptr));
  ASSERT_MEM_ALLOC(escaped != nullptr);
  StrUtil_SafeDynBufPrintf(text, "%s=%s;", key, escaped.get());
}

void AppendField(DynBuf *text, const FieldKey &known) {
  switch (known.field) {
    case PRODUCTSTATE_PRODUCT:
      return StrUtil_SafeDynBufPrintf(text, "%s=%u;", known.key, ProductState_GetProduct());
    case PRODUCTSTATE_NAME:
      return AppendText(text, known.key, ProductState_GetName());
    case PRODUCTSTATE_VERSION:
      return AppendText(text, known.key, ProductState_GetVersion());
    case PRODUCTSTATE_BUILD_NUMBER:
      return StrUtil_SafeDynBufPrintf(text, "%s=%u;", known.key, ProductState_GetBuildNumber());
    case PRODUCTSTATE_CAPABILITIES:
      return StrUtil_SafeDynBufPrintf(text, "%s=%lu;", known.key, ProductState_GetCapabilities());
  }
}

// ---- Keeping

void Replace(char **text, char *newText) {
  free(*text);
  *text = newText;
}

bool ScanVersion(const char *text, unsigned (&numbers)[3]) {
  return sscanf(text, "%u.%u.%u", &numbers[0], &numbers[1], &numbers[2]) == 3;
}

}  // namespace

uint32_t ProductState_GetProduct() {
  return record.product;
}

bool ProductState_IsProduct(uint32_t mask) {
  return (record.product & mask) != 0;
}

const char *ProductState_GetName() {
  return record.name != nullptr ? record.name : kDefaultName;
}

const char *ProductState_GetVersion() {
  return record.version != nullptr ? record.version : kBuildVersion;
}

uint32_t ProductState_GetBuildNumber() {
  return record.buildNumberSet ? record.buildNumber : kBuildNumber;
}

uint64_t ProductState_GetCapabilities() {
  return record.capabilities;
}

void ProductState_GetVersionNumber(unsigned *major, unsigned *minor, unsigned *patch) {
  if (!versionNumbers.known) {
    const char *version = ProductState_GetVersion();
    const bool isDevelopment = strcmp(version, kDevelopmentVersion) == 0;
    versionNumbers.known = ScanVersion(isDevelopment ? kBuildVersion : version, versionNumbers.numbers);
    ASSERT(versionNumbers.known);
  }
  unsigned *const outputs[] = {major, minor, patch};
  for (size_t i = 0; i < std::size(outputs); i++) {
    if (outputs[i] != nullptr) {
      *outputs[i] = versionNumbers.numbers[i];
    }
  }
}

const char *ProductState_GetBuildNumberString() {
  if (record.buildNumberString == nullptr) {
    record.buildNumberString = Str_SafeAsprintf(nullptr, "build-%05u", ProductState_GetBuildNumber());
  }
  return record.buildNumberString;
}

const char *ProductState_GetFullVersion() {
  if (record.fullVersion == nullptr) {
    record.fullVersion =
        Str_SafeAsprintf(nullptr, "%s %s", ProductState_GetVersion(), ProductState_GetBuildNumberString());
  }
  return record.fullVersion;
}

const char *ProductState_GetRegistryPath() {
  if (record.registryPath == nullptr) {
    record.registryPath = ProductState_GetRegistryPathForProduct(ProductState_GetName());
  }
  return record.registryPath;
}

char *ProductState_GetRegistryPathForProduct(const char *name) {
  return Str_SafeAsprintf(nullptr, "SOFTWARE\\Ostrel, Inc.\\%s", name);
}

void ProductState_Set(uint32_t product, const char *name, const char *version, uint32_t buildNumber,
                      uint64_t capabilities) {
  // The record's own texts may be given.
  char *newName = Util_SafeStrdup(name);
  char *newVersion = Util_SafeStrdup(version);
  Replace(&record.name, newName);
  Replace(&record.version, newVersion);
  record.product = product;
  record.buildNumber = buildNumber;
  record.buildNumberSet = true;
  record.capabilities = capabilities;
}

void ProductState_Reset() {
  for (char *text :
       {record.name, record.version, record.buildNumberString, record.fullVersion, record.registryPath}) {
    free(text);
  }
  record = {};
}

char *ProductState_Serialize(uint32_t mask) {
  DynBuf text;
  DynBuf_Init(&text);
  for (const FieldKey &known : kFields) {
    if ((mask & known.field) != 0) {
      AppendField(&text, known);
    }
  }
  DynBuf_SafeAppend(&text, "", 1);
  return static_cast<char *>(DynBuf_Detach(&text));
}

uint32_t ProductState_Deserialize(const char *text) {
  Values values;
  uint32_t fields = 0;
  for (std::string_view rest = text; !rest.empty();) {
    const std::string_view item = rest.substr(0, rest.find(kItemEnd));
    fields |= ReadItem(item, &values);
    rest.remove_prefix(std::min(rest.size(), item.size() + 1));
  }
  ProductState_Set(values.product, values.name.c_str(), values.version.c_str(), values.buildNumber,
                   values.capabilities);
  return fields;
}
