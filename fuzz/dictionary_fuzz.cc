// Whole dictionaries: what loads is saved, and what was saved loads to the same values and is saved to the
// same bytes; also after every value was written anew.

#include <string>
#include <vector>

#include "dictType.h"
#include "fuzzFile.h"
#include "msg.h"

namespace {

void Expect(bool holds) {
  if (!holds) {
    abort();
  }
}

std::string Save(Dictionary *dict) {
  char *text = nullptr;
  size_t size = 0;
  Expect(Dictionary_WriteToBuffer(dict, true, &text, &size));
  const OwnedString owned(text);
  return {text, size - 1};
}

using Values = std::vector<std::string>;

Values ValuesOf(Dictionary *dict) {
  Values values;
  Dictionary_Iterate(
      dict,
      [](const char *name, const char *value, int /*index*/, void *data) {
        static_cast<Values *>(data)->push_back(std::string(name) + "=" + value);
      },
      &values, true);
  return values;
}

bool Load(Dictionary *dict, const std::string &text) {
  const std::string path =
      fuzz::WriteInput("dictionary", reinterpret_cast<const uint8_t *>(text.data()), text.size());
  const bool loaded = Dictionary_Load(dict, path.c_str());
  Expect(loaded != Msg_Present());
  Msg_Reset(true);
  return loaded;
}

// Saves, and loads that.
void CheckSaved(Dictionary *dict) {
  const std::string saved = Save(dict);
  const Values values = ValuesOf(dict);
  const OwnedDictionary again(Dictionary_Create());
  Expect(Load(again.get(), saved));
  Expect(ValuesOf(again.get()) == values);
  Expect(Save(again.get()) == saved);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string text(reinterpret_cast<const char *>(data), size);
  const OwnedDictionary dict(Dictionary_Create());
  if (Load(dict.get(), text)) {
    CheckSaved(dict.get());
    for (const std::string &value : ValuesOf(dict.get())) {
      Dictionary_Touch(dict.get(), value.substr(0, value.find('=')).c_str());
    }
    CheckSaved(dict.get());
  } else {
    Save(dict.get());
  }
  Dictionary_LoadFromBuffer(dict.get(), text.c_str(), false, STRING_ENCODING_ISO_8859_1);
  Msg_Reset(false);
  Save(dict.get());
  return 0;
}
