#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "base64.h"
#include "crypto.h"
#include "dictType.h"
#include "dictionaryInt.h"
#include "keySafe.h"
#include "log.h"
#include "panicUser.h"

namespace {

constexpr char kKeySafeName[] = "encryption.keySafe";
constexpr char kDataName[] = "encryption.data";
constexpr char kHashName[] = "HMAC-SHA-1";

// The text of a key safe, which doesn't stay in memory.
class ExportedKeySafe {
 public:
  ExportedKeySafe() = default;
  ~ExportedKeySafe() {
    if (text != nullptr) {
      explicit_bzero(text, length);
    }
    free(text);
  }
  ExportedKeySafe(const ExportedKeySafe &) = delete;
  ExportedKeySafe &operator=(const ExportedKeySafe &) = delete;

  char *text = nullptr;
  size_t length = 0;
};

// The section encrypted, as text. Null with a line in the log.
OwnedString DictionaryEncryptSection(const Dictionary *dict, const DynBuf *section, const char *caller) {
  const CryptoKeyedHash *hash = nullptr;
  CryptoError error = CryptoKeyedHash_FromString(kHashName, &hash);
  if (error != CRYPTO_ERROR_SUCCESS) {
    Log("%s: CryptoKeyedHash_FromString failed: %s.\n", caller, CryptoError_ToString(error));
    return nullptr;
  }
  void *data = nullptr;
  size_t size = 0;
  error = CryptoKey_EncryptWithMAC(dict->cryptoKey, hash, section->data, section->size, &data, &size);
  if (error != CRYPTO_ERROR_SUCCESS) {
    Log("%s: error encrypting data: %s.\n", caller, CryptoError_ToString(error));
    return nullptr;
  }
  const OwnedString owned(static_cast<char *>(data));
  char *text = nullptr;
  Base64_EasyEncode(static_cast<const uint8_t *>(data), size, &text);
  return OwnedString(text);
}

// Decrypts the text and adds what it holds. A failure is in the log.
bool DictionaryLoadEncrypted(Dictionary *dict, const CryptoKey *key, const char *text, const char *caller) {
  uint8_t *data = nullptr;
  size_t size = 0;
  if (!Base64_EasyDecode(text, &data, &size)) {
    Log("%s: base-64 decoding failed", caller);
    return false;
  }
  const OwnedString ownedData(reinterpret_cast<char *>(data));
  const CryptoKeyedHash *hash = nullptr;
  CryptoError error = CryptoKeyedHash_FromString(kHashName, &hash);
  void *plain = nullptr;
  size_t plainSize = 0;
  if (error == CRYPTO_ERROR_SUCCESS) {
    error = CryptoKey_DecryptWithMAC(key, hash, data, size, &plain, &plainSize);
  }
  if (error != CRYPTO_ERROR_SUCCESS) {
    Log("%s: CryptoKey_DecryptWithMAC failed: %s.\n", caller, CryptoError_ToString(error));
    return false;
  }
  const OwnedString ownedPlain(static_cast<char *>(plain));
  return Dictionary_LoadFromBuffer(dict, ownedPlain.get(), true);
}

void DictionaryUnsetEncrypted(Dictionary *dict) {
  Dictionary_Unset(dict, kKeySafeName);
  Dictionary_Unset(dict, kDataName);
}

}  // namespace

void DictionaryDropKeys(Dictionary *dict) {
  KeySafe_Free(dict->keySafe);
  dict->keySafe = nullptr;
  CryptoKey_Free(dict->cryptoKey);
  dict->cryptoKey = nullptr;
}

bool DictionaryEncryptData(const Dictionary *dict, const DynBuf *section, DynBuf *output) {
  const OwnedString data = DictionaryEncryptSection(dict, section, __func__);
  if (data == nullptr) {
    return false;
  }
  ExportedKeySafe safe;
  const KeySafeError error = KeySafe_Export(dict->keySafe, &safe.text, &safe.length);
  if (error != KEYSAFE_ERROR_SUCCESS) {
    Log("%s: error exporting key safe: %s.\n", __func__, KeySafeError_ToString(error));
    return false;
  }
  return DictLL_MarshalLine(output, kKeySafeName, safe.text, safe.length) &&
         DictLL_MarshalLine(output, kDataName, data.get(), strlen(data.get()));
}

bool Dictionary_IsEncrypted(const Dictionary *dict) {
  ASSERT(dict != nullptr);
  return dict->keySafe != nullptr ||
         (Dictionary_IsDefined(dict, kDataName) && Dictionary_IsDefined(dict, kKeySafeName));
}

bool Dictionary_Unlock(Dictionary *dict, const KeyLocator *keyLocator, const char *password) {
  ASSERT(dict != nullptr);
  if (dict->keySafe != nullptr || Dictionary_NotSet(dict, kKeySafeName)) {
    return true;
  }
  if (keyLocator == nullptr && password == nullptr) {
    return false;
  }
  const OwnedString safeText(Dict_GetString(dict, nullptr, kKeySafeName));
  const OwnedString data(Dict_GetString(dict, nullptr, kDataName));
  KeySafe *safe = nullptr;
  CryptoKey *key = nullptr;
  if (KeySafe_Unseal(safeText.get(), keyLocator, password, &safe, &key) != KEYSAFE_ERROR_SUCCESS) {
    return false;
  }
  if (!DictionaryLoadEncrypted(dict, key, data.get(), __func__)) {
    KeySafe_Free(safe);
    CryptoKey_Free(key);
    return false;
  }
  DictionaryUnsetEncrypted(dict);
  dict->keySafe = safe;
  dict->cryptoKey = key;
  return true;
}

void Dictionary_Rekey(Dictionary *dict, const KeyLocator *const *keyLocators) {
  ASSERT(dict != nullptr);
  if (dict->keySafe == nullptr && Dictionary_IsEncrypted(dict)) {
    Log("%s: called on a locked, encrypted dictionary.", __func__);
    DictionaryUnsetEncrypted(dict);
  }
  DictionaryDropKeys(dict);
  if (keyLocators != nullptr) {
    KeySafe_Create(keyLocators, &dict->keySafe, &dict->cryptoKey);
  }
}

void Dictionary_CopyKey(Dictionary *target, const Dictionary *source) {
  ASSERT(target != nullptr && source != nullptr);
  DictionaryDropKeys(target);
  if (source->keySafe != nullptr) {
    target->keySafe = KeySafe_Clone(source->keySafe);
    target->cryptoKey = CryptoKey_Clone(source->cryptoKey);
  }
}
