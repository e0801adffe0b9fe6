// Where the key of an encrypted dictionary is kept, itself encrypted. This system has none: each of these
// stops the program, but for dropping a key safe that isn't there.
#ifndef OST_PUBLIC_KEYSAFE_H
#define OST_PUBLIC_KEYSAFE_H

#include <cstddef>

struct CryptoKey;
struct KeyLocator;
struct KeySafe;

using KeySafeError = int;
enum : KeySafeError { KEYSAFE_ERROR_SUCCESS = 0 };

// Borrowed for ever.
const char *KeySafeError_ToString(KeySafeError error);

// Null is accepted.
void KeySafe_Free(KeySafe *safe);
// A new key safe (KeySafe_Free); null stays null.
KeySafe *KeySafe_Clone(const KeySafe *safe);
// Makes a new key safe, which these locators open, and its new key.
//
// keyLocators  ended by a null
KeySafeError KeySafe_Create(const KeyLocator *const *keyLocators, KeySafe **safe, CryptoKey **key);
// Gives the safe as a new string (free), and its length in bytes.
KeySafeError KeySafe_Export(const KeySafe *safe, char **text, size_t *length);
// Makes a key safe of its text and takes the key out of it.
KeySafeError KeySafe_Unseal(const char *text, const KeyLocator *keyLocator, const char *password,
                            KeySafe **safe, CryptoKey **key);

#endif
