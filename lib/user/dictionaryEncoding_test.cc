#include <locale.h>

#include "dictType.h"
#include "dictionaryInt.h"
#include "dictionaryTestInt.h"

namespace {

using namespace std::string_literals;
using dictionarytest::AssertIn;
using dictionarytest::kPanics;

class DictionaryEncoding : public dictionarytest::DictionaryHost {
 protected:
  void ExpectFails(const std::string &content, const std::string &messages,
                   StringEncoding defaultEncoding = STRING_ENCODING_DEFAULT) {
    EXPECT_FALSE(Load(content, defaultEncoding)) << content;
    EXPECT_EQ(Messages(), messages) << content;
  }
  StringEncoding Encoding() const { return Dictionary_GetEncoding(Dict()); }
};

TEST_F(DictionaryEncoding, IsToldByEachNameInEitherCase) {
  for (const char *name : {".encoding", "config.encoding", "preferences.encoding", "ostlist.encoding",
                           "snapshot.encoding", ".Encoding", "CONFIG.ENCODING", "OstList.Encoding"}) {
    EXPECT_EQ(LoadedAndSaved("# note\na = 1\n"s + name + " = iso-8859-1 # note\nb = 2\n"),
              "# note\n.encoding = \"ISO-8859-1\"\na = 1\nb = 2\n");
    EXPECT_EQ(Entries(), "a=1;b=2;");
  }
}

TEST_F(DictionaryEncoding, IsNoneOfOtherNames) {
  EXPECT_TRUE(
      Load("encoding = x\nother.encoding = x\nconfig.encoding2 = x\nxconfig.encoding = x\n"
           "config.Xencoding = x\nconfigencoding = x\n"));
  EXPECT_EQ(Encoding(), STRING_ENCODING_UTF8);
  EXPECT_EQ(Dict()->entryCount, 6);
}

TEST_F(DictionaryEncoding, IsToldByANameAlikeInEveryLocale) {
  ASSERT_EQ(testhost::Run("localedef -i tr_TR -f ISO-8859-9 /usr/lib/locale/tr_TR >/dev/null 2>&1; test -d "
                          "/usr/lib/locale/tr_TR"),
            0);
  ASSERT_NE(setlocale(LC_ALL, "tr_TR"), nullptr);
  EXPECT_TRUE(Load("CONFIG.ENCODING = ISO-8859-1\n"));
  EXPECT_EQ(Encoding(), STRING_ENCODING_ISO_8859_1);
}

TEST_F(DictionaryEncoding, TurnsTextBeforeAndBehindItsLineIntoUtf8) {
  EXPECT_TRUE(Load("a = \"\xE9\"\n.encoding = \"ISO-8859-1\"\nb = \"|E9\"\n"));
  EXPECT_EQ(Entries(), "a=\xC3\xA9;b=\xC3\xA9;");
  EXPECT_EQ(Saved(), ".encoding = \"ISO-8859-1\"\na = \"\xE9\"\nb = \"|E9\"\n");
  Dict_SetString(Dict(), "\xC3\xA8", "a");
  EXPECT_EQ(Saved(), ".encoding = \"ISO-8859-1\"\na = \"\xE8\"\nb = \"|E9\"\n");
}

TEST_F(DictionaryEncoding, ThatIsUnknownFailsTheLoadAtItsEnd) {
  ExpectFails("a = 1\n.encoding = klingon\nb = 2\n",
              "[msg.dictionary.unknownEncoding] File \"/t/file\" (line 2) specifies a character encoding "
              "(klingon) that is not supported.\n");
  EXPECT_EQ(Entries(), "a=1;b=2;");
  EXPECT_EQ(Encoding(), STRING_ENCODING_UNKNOWN);
  ExpectFails(".encoding =\n",
              "[msg.dictionary.unknownEncoding] File \"/t/file\" (line 1) specifies a character "
              "encoding () that is not supported.\n");
  ExpectFails(".encoding = \xFF\n",
              "[msg.dictionary.unknownEncoding] File \"/t/file\" (line 1) specifies a "
              "character encoding (\\xFF) that is not supported.\n");
  EXPECT_FALSE(Dictionary_LoadFromBuffer(Dict(), ".encoding = klingon", false));
  EXPECT_EQ(Messages(),
            "[msg.dictionary.unknownEncodingNoFile] Character encoding \"klingon\" is not supported.\n");
  EXPECT_FALSE(Dictionary_LoadFromBuffer(Dict(), ".encoding = \xFF", false));
  EXPECT_EQ(Messages(),
            "[msg.dictionary.unknownEncodingNoFile] Character encoding \"\\xFF\" is not supported.\n");
}

TEST_F(DictionaryEncoding, ThatIsAnotherFailsTheLoadAtItsEnd) {
  ExpectFails(".encoding = UTF-8\n.encoding = ISO-8859-1\nb = 2\n",
              "[msg.dictionary.hasEncoding] File \"/t/file\" (line 2) already has encoding \"UTF-8\".\n");
  EXPECT_EQ(Entries(), "b=2;");
  EXPECT_FALSE(Dictionary_LoadFromBuffer(Dict(), ".encoding = UTF-8\n.encoding = ascii\n", false));
  EXPECT_EQ(Messages(),
            "[msg.dictionary.hasEncodingNoFile] The dictionary already has encoding \"UTF-8\".\n");
}

TEST_F(DictionaryEncoding, MayBeToldAgain) {
  EXPECT_TRUE(Load(".encoding = ISO-8859-1\na = \"\xE9\"\nconfig.encoding = latin1\n"));
  EXPECT_EQ(Entries(), "a=\xC3\xA9;");
}

TEST_F(DictionaryEncoding, HasItsTextChecked) {
  ExpectFails(
      ".encoding = UTF-8\na = 1\nb = \"\xE9\"\nc = 3\n",
      "[msg.dictionary.badEncodedInput] File \"/t/file\" line 3: Value \"\\xE9\" for variable \"b\" is not "
      "valid in encoding \"UTF-8\".\n");
  EXPECT_EQ(Entries(), "a=1;");
  EXPECT_EQ(Saved(), ".encoding = \"UTF-8\"\na = 1\n");
  EXPECT_FALSE(Dictionary_LoadFromBuffer(Dict(), ".encoding = UTF-8\nb = \"\xE9\"", false));
  EXPECT_EQ(Messages(),
            "[msg.dictionary.badEncodedInputNoFile] Value \"\\xE9\" for variable \"b\" is not valid "
            "in encoding \"UTF-8\".\n");
}

TEST_F(DictionaryEncoding, HasTheTextBeforeItsLineCheckedAndNoneConverted) {
  ExpectFails(
      "a = \"\xC3\xA9\"\nb = \"\xE9\"\n.encoding = UTF-8\nc = 3\n",
      "[msg.dictionary.badEncodedInput] File \"/t/file\" line 3: Value \"\\xE9\" for variable \"b\" is not "
      "valid in encoding \"UTF-8\".\n");
  EXPECT_EQ(Entries(), "a=\xC3\xA9;b=\xE9;c=3;");
  EXPECT_EQ(Encoding(), STRING_ENCODING_UNKNOWN);
  ExpectFails(
      "a = \"x\"\nb = \"\xE9\"\n.encoding = ascii\n",
      "[msg.dictionary.badEncodedInput] File \"/t/file\" line 3: Value \"\\xE9\" for variable \"b\" is not "
      "valid in encoding \"ASCII\".\n");
}

TEST_F(DictionaryEncoding, IsTheDefaultWhenNoneIsTold) {
  EXPECT_TRUE(Load("a = \"\xC3\xA9\"\n"));
  EXPECT_EQ(Encoding(), STRING_ENCODING_UTF8);
  EXPECT_TRUE(Load("a = \"\xC3\xA9\"\n", STRING_ENCODING_ISO_8859_1));
  EXPECT_EQ(GetText("a"), "\xC3\x83\xC2\xA9");
  EXPECT_EQ(Encoding(), STRING_ENCODING_ISO_8859_1);
}

TEST_F(DictionaryEncoding, ThatIsTheDefaultMustFitToo) {
  ExpectFails(
      "a = 1\nb = \"\xE9\"\n",
      "[msg.dictionary.badEncodedInputNoLine] File \"/t/file\": Value \"\\xE9\" for variable \"b\" is not "
      "valid in encoding \"UTF-8\".\n"
      "[msg.dictionary.badDefaultEncoding] An error occured while decoding file \"/t/file\" using the "
      "default character encoding.\n");
  EXPECT_FALSE(Dictionary_LoadFromBuffer(Dict(), "b = \"\xE9\"", false));
  EXPECT_EQ(Messages(),
            "[msg.dictionary.badEncodedInputNoFile] Value \"\\xE9\" for variable \"b\" is not valid "
            "in encoding \"UTF-8\".\n"
            "[msg.dictionary.badDefaultEncodingNoFile] Failed to decode the dictionary in the "
            "default character encoding.\n");
}

TEST_F(DictionaryEncoding, IsUtf8BehindAByteOrderMarkIfTheBytesAllow) {
  const std::string mark = "\xEF\xBB\xBF";
  EXPECT_TRUE(Load(mark + "a = \"\xC3\xA9\"\n", STRING_ENCODING_ISO_8859_1));
  EXPECT_EQ(Encoding(), STRING_ENCODING_UTF8);
  EXPECT_EQ(GetText("a"), "\xC3\xA9");
  Msg_Append(MSGID(test.before) "Before.\n");
  Logged();
  EXPECT_TRUE(Load(mark + "a = \"\xE9\"\n", STRING_ENCODING_ISO_8859_1));
  EXPECT_EQ(Encoding(), STRING_ENCODING_ISO_8859_1);
  EXPECT_EQ(GetText("a"), "\xC3\xA9");
  // The try that failed leaves no word, and takes what was pending with it.
  EXPECT_FALSE(Msg_Present());
  EXPECT_EQ(Logged(), "");
  EXPECT_TRUE(Load(mark + ".encoding = ISO-8859-1\na = \"\xC3\xA9\"\n"));
  EXPECT_EQ(Encoding(), STRING_ENCODING_ISO_8859_1);
  // Where UTF-8 is the default too, it isn't tried twice.
  Msg_Append(MSGID(test.before) "Before.\n");
  ExpectFails(
      mark + "a = \"\xE9\"\n",
      "[msg.test.before] Before.\n"
      "[msg.dictionary.badEncodedInputNoLine] File \"/t/file\": Value \"\\xE9\" for variable \"a\" is not "
      "valid in encoding \"UTF-8\".\n"
      "[msg.dictionary.badDefaultEncoding] An error occured while decoding file \"/t/file\" using the "
      "default character encoding.\n");
}

TEST_F(DictionaryEncoding, OfTheDictionaryHoldsForWhatIsAppended) {
  EXPECT_TRUE(Load(".encoding = ISO-8859-1\n"));
  testhost::WriteFile("/t/more", "a = \"\xE9\"\n");
  EXPECT_TRUE(Dictionary_Append(Dict(), "/t/more"));
  EXPECT_EQ(GetText("a"), "\xC3\xA9");
  testhost::WriteFile("/t/more", ".encoding = UTF-8\n");
  EXPECT_FALSE(Dictionary_Append(Dict(), "/t/more"));
  EXPECT_EQ(Messages(),
            "[msg.dictionary.hasEncoding] File \"/t/more\" (line 1) already has encoding \"ISO-8859-1\".\n");
}

TEST_F(DictionaryEncoding, OfWhatIsAppendedHoldsForAValueThatWasSetBefore) {
  EXPECT_FALSE(Load("a = x\na = 2\n"));
  EXPECT_EQ(Encoding(), STRING_ENCODING_UNKNOWN);
  Dict_SetAny(Dict(), "y\xE9z", "a");
  testhost::WriteFile("/t/more", ".encoding = ISO-8859-1\n");
  EXPECT_TRUE(Dictionary_Append(Dict(), "/t/more"));
  EXPECT_EQ(GetText("a"), "y\xC3\xA9z");
}

TEST_F(DictionaryEncoding, MayBeOneOfWideCharacters) {
  EXPECT_TRUE(Load(".encoding = UTF-16LE\na = \"x|00\xE9|00\"\n"));
  EXPECT_EQ(GetText("a"), "x\xC3\xA9");
  Dict_SetString(Dict(), "y\"", "a");
  Dict_SetLong(Dict(), 7, "b");
  const std::string saved = Saved();
  EXPECT_EQ(saved, ".encoding = \"UTF-16LE\"\na = \"y|00|22|00\"\nb = \"7|00\"\n");
  EXPECT_EQ(LoadedAndSaved(saved), saved);
  EXPECT_EQ(Entries(), "a=y\";b=7;");
  ExpectFails(
      ".encoding = UTF-16LE\na = \"x\"\n",
      "[msg.dictionary.badEncodedInput] File \"/t/file\" line 2: Value \"x\" for variable \"a\" is not "
      "valid in encoding \"UTF-16LE\".\n");
}

TEST_F(DictionaryEncoding, ComesBackFromASaveInEachEncoding) {
  const std::string text = "\xC3\xA9|\"\t\n x";
  for (int value = 0; value < STRING_ENCODING_COUNT; value++) {
    const auto encoding = static_cast<StringEncoding>(value);
    const std::string name = Unicode_EncodingEnumToName(encoding);
    if (Unicode_EncodingNameToEnum(name.c_str()) != encoding ||
        !Unicode_CanGetBytesWithEncoding(text.c_str(), encoding)) {
      continue;
    }
    Dictionary_Clear(Dict());
    Dictionary_SetEncoding(Dict(), encoding);
    Dict_SetString(Dict(), text.c_str(), "a");
    const std::string saved = Saved();
    EXPECT_TRUE(saved.starts_with(".encoding = \"" + name + "\"\n")) << saved;
    EXPECT_EQ(LoadedAndSaved(saved), saved) << name;
    EXPECT_EQ(GetText("a"), text) << name;
  }
}

TEST_F(DictionaryEncoding, IsUpgradedByAValueThatItCannotExpress) {
  EXPECT_TRUE(Load("# \xE9\n.encoding = ISO-8859-1\na = \"\xE9\" # note\nb = 2 # note\nc = \"x\"\n"));
  EXPECT_EQ(Dict_GetLong(Dict(), 0, "b"), 2);
  Dict_SetString(Dict(), "\xE2\x82\xAC", "new");
  Logged();
  const std::string saved =
      ".encoding = \"UTF-8\"\na = \"\xC3\xA9\"\nb = 2 # note\nc = \"x\"\nnew = \"\xE2\x82\xAC\"\n";
  EXPECT_EQ(Saved(), "# \xE9\n" + saved);
  EXPECT_EQ(Logged(),
            "Msg_Reset:\n"
            "[msg.dictionary.badEncodedOutput] Value \"\xE2\x82\xAC\" for variable \"new\" is not valid in "
            "the \"ISO-8859-1\" encoding.\n"
            "----------------------------------------\n"
            "Dictionary_WriteToBuffer: upgrading encoding from ISO-8859-1 to UTF-8\n");
  EXPECT_EQ(Encoding(), STRING_ENCODING_UTF8);
  EXPECT_FALSE(Msg_Present());
  EXPECT_EQ(Saved(), "# \xE9\n" + saved);
}

TEST_F(DictionaryEncoding, HasNoPartInAnEmptyValue) {
  // Known by its name, and not to convert even that.
  int value = 0;
  while (Unicode_CanGetBytesWithEncoding("", static_cast<StringEncoding>(value))) {
    value++;
  }
  const auto encoding = static_cast<StringEncoding>(value);
  Dictionary_SetEncoding(Dict(), encoding);
  Dict_SetString(Dict(), "", "empty");
  Dict_SetString(Dict(), nullptr, "null");
  EXPECT_EQ(Saved(),
            ".encoding = \""s + Unicode_EncodingEnumToName(encoding) + "\"\nempty = \"\"\nnull = \"\"\n");
  EXPECT_EQ(Encoding(), encoding);
}

TEST_F(DictionaryEncoding, IsTheCurrentOneAtTheFirstSave) {
  Dict_SetLong(Dict(), 1, "a");
  EXPECT_EQ(Encoding(), STRING_ENCODING_UNKNOWN);
  EXPECT_EQ(Saved(), ".encoding = \"UTF-8\"\na = \"1\"\n");
  EXPECT_EQ(Encoding(), STRING_ENCODING_UTF8);
}

TEST(DictionaryEncodingOfHost, IsTheDefaultAndTheFirst) {
  setenv("G_FILENAME_ENCODING", "ISO-8859-1", 1);
  testhost::Host host;
  host.File("/t/file", "a = \"\xE9\"\n");
  host.Enter();
  const OwnedDictionary dict(Dictionary_Create());
  EXPECT_TRUE(Dictionary_Load(dict.get(), "/t/file"));
  EXPECT_EQ(Dictionary_GetEncoding(dict.get()), STRING_ENCODING_ISO_8859_1);
  EXPECT_STREQ(Dictionary_GetAsString(dict.get(), "a"), "\xC3\xA9");
  const OwnedDictionary empty(Dictionary_Create());
  EXPECT_TRUE(Dictionary_Write(empty.get(), "/t/out"));
  EXPECT_EQ(testhost::ReadFile("/t/out"), ".encoding = \"ISO-8859-1\"\n");
}

TEST_F(DictionaryEncoding, ChangesAllTextThatThereIs) {
  EXPECT_TRUE(Load("a = \"\xC3\xA9\" # note\nb = 2\n"));
  EXPECT_EQ(Dict_GetLong(Dict(), 0, "b"), 2);
  Dict_SetString(Dict(), nullptr, "n");
  DictionaryFindVisible(Dict(), "n", 0)->modified = false;
  EXPECT_TRUE(Dictionary_ChangeEncoding(Dict(), STRING_ENCODING_UTF8));
  EXPECT_FALSE(Dictionary_IsModified(Dict()));
  EXPECT_TRUE(Dictionary_ChangeEncoding(Dict(), STRING_ENCODING_ISO_8859_1));
  EXPECT_EQ(Saved(), ".encoding = \"ISO-8859-1\"\na = \"\xE9\"\nb = 2\nn = \"\"\n");
  EXPECT_FALSE(DictionaryFindVisible(Dict(), "n", 0)->modified);
}

TEST_F(DictionaryEncoding, DoesNotChangeToOneThatCannotExpressAValue) {
  EXPECT_TRUE(Load("a = \"\xC3\xA9\"\n"));
  EXPECT_FALSE(Dictionary_ChangeEncoding(Dict(), STRING_ENCODING_US_ASCII));
  EXPECT_EQ(Encoding(), STRING_ENCODING_UTF8);
  EXPECT_FALSE(Dictionary_IsModified(Dict()));
}

TEST_F(DictionaryEncoding, ChangesOnlyFromOneToAnother) {
  EXPECT_EXIT(Dictionary_ChangeEncoding(Dict(), STRING_ENCODING_UTF8), kPanics,
              AssertIn("dictionaryEncoding"));
  EXPECT_TRUE(Load(""));
  EXPECT_EXIT(Dictionary_ChangeEncoding(Dict(), STRING_ENCODING_DEFAULT), kPanics,
              AssertIn("dictionaryEncoding"));
  EXPECT_EXIT(Dictionary_SetEncoding(Dict(), STRING_ENCODING_UNKNOWN), kPanics,
              AssertIn("dictionaryEncoding"));
}

// A file that is being loaded, where a line isn't.
TEST_F(DictionaryEncoding, NamesTheFileAloneBetweenTheLines) {
  Dict()->fileName = "f";
  EXPECT_FALSE(DictionaryApplyEncoding(Dict(), "klingon", STRING_ENCODING_UNKNOWN));
  EXPECT_EQ(Messages(),
            "[msg.dictionary.unknownEncodingNoLine] File \"f\": Character encoding \"klingon\" is not "
            "supported.\n");
  EXPECT_TRUE(DictionaryApplyEncoding(Dict(), nullptr, STRING_ENCODING_DEFAULT));
  EXPECT_FALSE(DictionaryApplyEncoding(Dict(), "ascii", STRING_ENCODING_UNKNOWN));
  EXPECT_EQ(Messages(), "[msg.dictionary.hasEncodingNoLine] File \"f\" already has encoding \"UTF-8\".\n");
  Dict()->fileName = nullptr;
}

}  // namespace
