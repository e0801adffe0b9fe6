// The program has no cipher.
#include "crypto.h"
#include "panicUser.h"

const char *CryptoError_ToString(CryptoError /*error*/) {
  NOT_IMPLEMENTED();
}

void CryptoKey_Free(CryptoKey *key) {
  ASSERT(key == nullptr);
}

CryptoKey *CryptoKey_Clone(const CryptoKey * /*key*/) {
  NOT_IMPLEMENTED();
}

CryptoError CryptoKey_EncryptWithMAC(const CryptoKey * /*key*/, const CryptoKeyedHash * /*hash*/,
                                     const void * /*data*/, size_t /*size*/, void ** /*outData*/,
                                     size_t * /*outSize*/) {
  NOT_IMPLEMENTED();
}

CryptoError CryptoKey_DecryptWithMAC(const CryptoKey * /*key*/, const CryptoKeyedHash * /*hash*/,
                                     const void * /*data*/, size_t /*size*/, void ** /*outData*/,
                                     size_t * /*outSize*/) {
  NOT_IMPLEMENTED();
}

CryptoError CryptoKeyedHash_FromString(const char * /*name*/, const CryptoKeyedHash ** /*hash*/) {
  NOT_IMPLEMENTED();
}
