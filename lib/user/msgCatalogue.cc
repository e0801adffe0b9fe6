// Catalogues: the wording of a locale.

#include <cstring>
#include <utility>

#include "config.h"
#include "log.h"
#include "msgInt.h"
#include "str.h"
#include "util_misc.h"

namespace {

constexpr char kDefaultLibDir[] = "/usr/lib/ostrel";
constexpr char kExtension[] = "ostmsg";

void SetCatalogue(OwnedDictionary dictionary, const char *locale) {
  MsgState *msg = MsgGetState();
  msg->dictionary = std::move(dictionary);
  msg->locale.reset(Util_SafeStrdup(locale));
}

// Tells of a catalogue that can't be loaded. English needs none.
void TellOfFailure(const char *locale, const char *fileName) {
  Msg_Reset(true);
  if (locale == nullptr || strncmp(locale, "en", 2) != 0) {
    Warning("Cannot load message dictionary \"%s\".\n", fileName);
  }
}

bool LoadCatalogue(const char *locale, const char *fileName) {
  OwnedDictionary dictionary(Dictionary_Create());
  if (!Dictionary_LoadWithDefaultEncoding(dictionary.get(), fileName, STRING_ENCODING_UTF8)) {
    return false;
  }
  SetCatalogue(std::move(dictionary), locale);
  return true;
}

}  // namespace

void Msg_SetLocale(const char *locale, const char *binaryName) {
  Log("%s: HostLocale=%s UserLocale=%s\n", __func__, Unicode_EncodingEnumToName(Unicode_GetCurrentEncoding()),
      locale == nullptr ? "NULL" : locale);
  if (locale == nullptr) {
    SetCatalogue(nullptr, nullptr);
    return;
  }
  const OwnedString libDir(Config_GetPathName(kDefaultLibDir, "libdir"));
  const OwnedString path(Str_SafeAsprintf(nullptr, "%s%smessages%s%s%s%s.%s", libDir.get(), "/", "/", locale,
                                          "/", binaryName, kExtension));
  if (libDir == nullptr || !LoadCatalogue(locale, path.get())) {
    TellOfFailure(locale, path.get());
  }
}

bool Msg_LoadMessageFile(const char *locale, const char *fileName) {
  if (fileName == nullptr) {
    return false;
  }
  Dictionary *dictionary = MsgGetState()->dictionary.get();
  const bool loaded =
      dictionary == nullptr ? LoadCatalogue(locale, fileName) : Dictionary_Append(dictionary, fileName);
  if (!loaded) {
    TellOfFailure(locale, fileName);
  }
  return loaded;
}

const char *Msg_GetLocale() {
  return MsgGetState()->locale.get();
}
