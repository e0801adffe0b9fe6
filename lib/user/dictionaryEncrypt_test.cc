#include "crypto.h"
#include "dictType.h"
#include "dictionaryInt.h"
#include "dictionaryTestInt.h"
#include "keySafe.h"
#include "panics.h"

namespace {

using dictionarytest::kPanics;

const auto kNoCipher = testhost::Panics("^NOT_IMPLEMENTED apps/kernprep/stub-crypto.cc:[0-9]+\n$");
const auto kNoKeySafe = testhost::Panics("^NOT_IMPLEMENTED apps/kernprep/stub-keySafe.cc:[0-9]+\n$");

class DictionaryEncrypt : public dictionarytest::DictionaryHost {
 protected:
  void TearDown() override { Dict()->keySafe = nullptr; }
  // What no program has, as a value that is only looked at.
  void PretendKeySafe() { Dict()->keySafe = reinterpret_cast<KeySafe *>(&pretended_); }
  const KeyLocator *Locator() const { return reinterpret_cast<const KeyLocator *>(&pretended_); }
  void LoadLocked() const { EXPECT_TRUE(Load("encryption.keySafe = s\nencryption.data = d\na = 1\n")); }

 private:
  char pretended_ = 0;
};

TEST_F(DictionaryEncrypt, IsThereWithAKeySafeOrWithBothOfItsEntries) {
  EXPECT_FALSE(Dictionary_IsEncrypted(Dict()));
  Dict_SetString(Dict(), "d", "encryption.data");
  EXPECT_FALSE(Dictionary_IsEncrypted(Dict()));
  Dict_SetString(Dict(), "s", "encryption.keySafe");
  EXPECT_TRUE(Dictionary_IsEncrypted(Dict()));
  Dictionary_Unset(Dict(), "encryption.data");
  EXPECT_FALSE(Dictionary_IsEncrypted(Dict()));
  PretendKeySafe();
  EXPECT_TRUE(Dictionary_IsEncrypted(Dict()));
}

TEST_F(DictionaryEncrypt, IsUnlockedWhereThereIsNothingToUnlock) {
  EXPECT_TRUE(Dictionary_Unlock(Dict(), nullptr, nullptr));
  EXPECT_EQ(OwnedString(Dict_GetString(Dict(), nullptr, "encryption.keySafe")), nullptr);
  EXPECT_TRUE(Dictionary_Unlock(Dict(), nullptr, nullptr));
  Dict_SetString(Dict(), "s", "encryption.keySafe");
  EXPECT_FALSE(Dictionary_Unlock(Dict(), nullptr, nullptr));
  PretendKeySafe();
  EXPECT_TRUE(Dictionary_Unlock(Dict(), nullptr, nullptr));
}

TEST_F(DictionaryEncrypt, NeedsAKeySafeToUnlock) {
  LoadLocked();
  EXPECT_EXIT(Dictionary_Unlock(Dict(), nullptr, "password"), kPanics, kNoKeySafe);
  EXPECT_EXIT(Dictionary_Unlock(Dict(), Locator(), nullptr), kPanics, kNoKeySafe);
}

TEST_F(DictionaryEncrypt, NeedsACipherToSave) {
  EXPECT_TRUE(Load("a = 1\n"));
  PretendKeySafe();
  EXPECT_EXIT(Saved(), kPanics, kNoCipher);
  EXPECT_EXIT(Dictionary_Write(Dict(), "/t/out"), kPanics, kNoCipher);
  EXPECT_NE(access("/t/out", F_OK), 0);
}

TEST_F(DictionaryEncrypt, IsLeftOutOfASaveThatDoesNotEncrypt) {
  EXPECT_TRUE(Load("b = 1\na = 1\n"));
  const int32_t value = 2;
  Dictionary_Set(Dict(), &value, DICT_LONG | DICT_FLAG_HEADER, "a");
  PretendKeySafe();
  char *text = nullptr;
  size_t size = 0;
  EXPECT_TRUE(Dictionary_WriteToBuffer(Dict(), false, &text, &size));
  // Header entries with a line go to the front here too.
  EXPECT_STREQ(OwnedString(text).get(), ".encoding = \"UTF-8\"\na = \"2\"\nb = 1\n");
}

TEST_F(DictionaryEncrypt, GivesALockedDictionaryANewKeyByDroppingWhatIsLocked) {
  LoadLocked();
  Dictionary_Rekey(Dict(), nullptr);
  EXPECT_EQ(Logged(), "Dictionary_Rekey: called on a locked, encrypted dictionary.\n");
  EXPECT_EQ(Entries(), "a=1;");
  Dictionary_Rekey(Dict(), nullptr);
  EXPECT_EQ(Logged(), "");
  const KeyLocator *locators[] = {Locator(), nullptr};
  EXPECT_EXIT(Dictionary_Rekey(Dict(), locators), kPanics, kNoKeySafe);
}

TEST_F(DictionaryEncrypt, IsNotLockedBesideAKeySafe) {
  LoadLocked();
  PretendKeySafe();
  EXPECT_EXIT(Dictionary_Rekey(Dict(), nullptr), kPanics,
              testhost::Panics("^ASSERT apps/kernprep/stub-keySafe.cc:[0-9]+\n$"));
  EXPECT_EQ(Logged().find("called on a locked"), std::string::npos);
}

TEST_F(DictionaryEncrypt, CopiesNoKeyWhereThereIsNone) {
  const OwnedDictionary target(Dictionary_Create());
  Dictionary_CopyKey(target.get(), Dict());
  EXPECT_EQ(target.get()->keySafe, nullptr);
  PretendKeySafe();
  EXPECT_EXIT(Dictionary_CopyKey(target.get(), Dict()), kPanics, kNoKeySafe);
}

TEST_F(DictionaryEncrypt, CannotDropWhatThereCannotBe) {
  PretendKeySafe();
  EXPECT_EXIT(Dictionary_Clear(Dict()), kPanics,
              testhost::Panics("^ASSERT apps/kernprep/stub-keySafe.cc:[0-9]+\n$"));
  char key = 0;
  EXPECT_EXIT(CryptoKey_Free(reinterpret_cast<CryptoKey *>(&key)), kPanics,
              testhost::Panics("^ASSERT apps/kernprep/stub-crypto.cc:[0-9]+\n$"));
  KeySafe_Free(nullptr);
  CryptoKey_Free(nullptr);
}

TEST_F(DictionaryEncrypt, HasNoneOfItsParts) {
  const CryptoKeyedHash *hash = nullptr;
  void *data = nullptr;
  size_t size = 0;
  char *text = nullptr;
  KeySafe *safe = nullptr;
  CryptoKey *key = nullptr;
  EXPECT_EXIT(CryptoError_ToString(1), kPanics, kNoCipher);
  EXPECT_EXIT(CryptoKey_Clone(nullptr), kPanics, kNoCipher);
  EXPECT_EXIT(CryptoKey_EncryptWithMAC(nullptr, nullptr, "", 0, &data, &size), kPanics, kNoCipher);
  EXPECT_EXIT(CryptoKey_DecryptWithMAC(nullptr, nullptr, "", 0, &data, &size), kPanics, kNoCipher);
  EXPECT_EXIT(CryptoKeyedHash_FromString("HMAC-SHA-1", &hash), kPanics, kNoCipher);
  EXPECT_EXIT(KeySafeError_ToString(1), kPanics, kNoKeySafe);
  EXPECT_EXIT(KeySafe_Clone(nullptr), kPanics, kNoKeySafe);
  EXPECT_EXIT(KeySafe_Create(nullptr, &safe, &key), kPanics, kNoKeySafe);
  EXPECT_EXIT(KeySafe_Export(nullptr, &text, &size), kPanics, kNoKeySafe);
  EXPECT_EXIT(KeySafe_Unseal("", nullptr, nullptr, &safe, &key), kPanics, kNoKeySafe);
}

}  // namespace
