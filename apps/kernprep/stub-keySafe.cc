// The program has no key safes.
#include "keySafe.h"
#include "panicUser.h"

const char *KeySafeError_ToString(KeySafeError /*error*/) {
  NOT_IMPLEMENTED();
}

void KeySafe_Free(KeySafe *safe) {
  ASSERT(safe == nullptr);
}

KeySafe *KeySafe_Clone(const KeySafe * /*safe*/) {
  NOT_IMPLEMENTED();
}

KeySafeError KeySafe_Create(const KeyLocator *const * /*keyLocators*/, KeySafe ** /*safe*/,
                            CryptoKey ** /*key*/) {
  NOT_IMPLEMENTED();
}

KeySafeError KeySafe_Export(const KeySafe * /*safe*/, char ** /*text*/, size_t * /*length*/) {
  NOT_IMPLEMENTED();
}

KeySafeError KeySafe_Unseal(const char * /*text*/, const KeyLocator * /*keyLocator*/,
                            const char * /*password*/, KeySafe ** /*safe*/, CryptoKey ** /*key*/) {
  NOT_IMPLEMENTED();
}
