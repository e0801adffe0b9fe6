// The cipher of encrypted dictionaries. This system has none: each of these stops the program, but for
// dropping a key that isn't there.
#ifndef OST_PUBLIC_CRYPTO_H
#define OST_PUBLIC_CRYPTO_H

#include <cstddef>

struct CryptoKey;
struct CryptoKeyedHash;

using CryptoError = int;
enum : CryptoError { CRYPTO_ERROR_SUCCESS = 0 };

// Borrowed for ever.
const char *CryptoError_ToString(CryptoError error);

// Null is accepted.
void CryptoKey_Free(CryptoKey *key);
// A new key (CryptoKey_Free); null stays null.
CryptoKey *CryptoKey_Clone(const CryptoKey *key);
// Give a new block (free) and its size in bytes.
CryptoError CryptoKey_EncryptWithMAC(const CryptoKey *key, const CryptoKeyedHash *hash, const void *data,
                                     size_t size, void **outData, size_t *outSize);
CryptoError CryptoKey_DecryptWithMAC(const CryptoKey *key, const CryptoKeyedHash *hash, const void *data,
                                     size_t size, void **outData, size_t *outSize);

// Finds a keyed hash by its name. Borrowed for ever.
CryptoError CryptoKeyedHash_FromString(const char *name, const CryptoKeyedHash **hash);

#endif
