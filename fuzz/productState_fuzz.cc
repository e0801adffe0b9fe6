// Product records: what is read is what a plain reading of the text gives, and what is written comes back.
// The first byte is the mask of what is written.

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>

#include "owned.h"
#include "productState.h"

namespace {

using Items = std::map<std::string, std::string>;

void Expect(bool holds) {
  if (!holds) {
    abort();
  }
}

std::string Unescaped(const std::string &text) {
  const auto isDigit = [&](size_t at) {
    return at < text.size() && isxdigit(static_cast<unsigned char>(text[at])) != 0;
  };
  std::string result;
  for (size_t i = 0; i < text.size();) {
    if (text[i] != '#') {
      result += text[i++];
    } else if (isDigit(i + 1) && isDigit(i + 2)) {
      result += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
      i += 3;
    } else {
      // The byte that breaks an escape is no new one.
      const size_t broken = isDigit(i + 1) ? 3 : 2;
      result += text.substr(i, broken);
      i += broken;
    }
  }
  return result;
}

// Whether it is a decimal number up to the greatest, which has no leading zero.
bool IsNumber(const std::string &text, const std::string &greatest) {
  if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) {
    return false;
  }
  const std::string digits = text.substr(std::min(text.find_first_not_of('0'), text.size() - 1));
  return digits.size() < greatest.size() || (digits.size() == greatest.size() && digits <= greatest);
}

bool IsValue(const std::string &key, const std::string &value) {
  if (key == "product" || key == "buildnumber") {
    return IsNumber(value, "4294967295");
  }
  return key == "capabilities" ? IsNumber(value, "18446744073709551615") : key == "name" || key == "version";
}

// The values of the keys that a text sets.
Items Read(std::string text) {
  Items items;
  text += ';';
  for (size_t at = 0; at < text.size();) {
    const size_t end = text.find(';', at);
    const std::string item = text.substr(at, end - at);
    const size_t separator = item.find('=');
    at = end + 1;
    if (separator == std::string::npos || separator + 1 == item.size()) {
      continue;
    }
    const std::string value = Unescaped(item.substr(separator + 1));
    if (IsValue(item.substr(0, separator), value)) {
      items[item.substr(0, separator)] = value;
    }
  }
  return items;
}

uint32_t MaskOf(const Items &items) {
  uint32_t mask = 0;
  uint32_t bit = 1;
  for (const char *key : {"product", "name", "version", "buildnumber", "capabilities"}) {
    mask |= items.count(key) == 1 ? bit : 0;
    bit <<= 1;
  }
  return mask;
}

void CheckValues(const Items &items) {
  const auto value = [&](const std::string &key, const std::string &otherwise) {
    const auto found = items.find(key);
    return found == items.end() ? otherwise : found->second;
  };
  const auto number = [&](const std::string &key) { return std::stoull(value(key, "7")); };
  Expect(ProductState_GetProduct() == number("product"));
  Expect(ProductState_GetBuildNumber() == number("buildnumber"));
  Expect(ProductState_GetCapabilities() == number("capabilities"));
  // A text ends at a NUL, which an escape may stand for.
  Expect(std::string(ProductState_GetName()) == value("name", "name").c_str());
  Expect(std::string(ProductState_GetVersion()) == value("version", "version").c_str());
}

std::string Written(uint32_t mask) {
  const OwnedString text(ProductState_Serialize(mask));
  return text.get();
}

// Changes the record to what comes back.
void CheckComesBack(uint32_t mask) {
  const std::string text = Written(mask);
  ProductState_Reset();
  ProductState_Deserialize(text.c_str());
  // An empty text isn't told from one that is missing.
  Expect(Written(mask) == text || text.find("=;") != std::string::npos);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) {
    return 0;
  }
  const std::string bytes(reinterpret_cast<const char *>(data) + 1, size - 1);
  const std::string text = bytes.substr(0, bytes.find('\0'));
  ProductState_Set(7, "name", "version", 7, 7);
  const Items items = Read(text);
  Expect(ProductState_Deserialize(text.c_str()) == MaskOf(items));
  CheckValues(items);

  CheckComesBack(~0U);
  CheckComesBack(data[0]);
  ProductState_Reset();
  return 0;
}
