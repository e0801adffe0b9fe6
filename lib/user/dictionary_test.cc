#include "dictionary.h"

#include "dictType.h"
#include "dictionaryInt.h"
#include "dictionaryTestInt.h"
#include "panics.h"

namespace {

using dictionarytest::AssertIn;
using dictionarytest::kPanics;

class DictionaryEntries : public dictionarytest::DictionaryHost {
 protected:
  template <typename T>
  void Set(T value, uint32_t typeAndFlags, const char *name) const {
    Dictionary_Set(Dict(), &value, typeAndFlags, name);
  }
  const DictEntry *Entry(const char *name) const { return DictionaryFindVisible(Dict(), name, 0); }
  bool IsModified(const char *name) const { return Entry(name)->modified; }
};

TEST_F(DictionaryEntries, BeginEmpty) {
  EXPECT_EQ(Entries(true), "");
  EXPECT_EQ(Dictionary_GetEncoding(Dict()), STRING_ENCODING_UNKNOWN);
  EXPECT_FALSE(Dictionary_IsModified(Dict()));
  EXPECT_EQ(Dict()->entryCount, 0);
  Dictionary_Free(nullptr);
}

TEST_F(DictionaryEntries, AreClearedToTheFirstState) {
  EXPECT_TRUE(Load("# note\na = 1\nb = 2\n"));
  const HashTable *table = Dict()->entryTable;
  EXPECT_EQ(Dict()->entryCount, 2);
  Dictionary_Clear(Dict());
  EXPECT_EQ(Dict()->entryCount, 0);
  EXPECT_EQ(Dict()->entryTable, table);
  EXPECT_EQ(Dictionary_GetEncoding(Dict()), STRING_ENCODING_UNKNOWN);
  EXPECT_FALSE(Dictionary_IsDefined(Dict(), "a"));
  EXPECT_EQ(Saved(), ".encoding = \"UTF-8\"\n");
}

TEST_F(DictionaryEntries, KeepTheFirstDefaultOfAName) {
  EXPECT_EQ(Dict_GetLong(Dict(), 5, "a"), 5);
  EXPECT_EQ(Dict_GetLong(Dict(), 7, "A"), 5);
  EXPECT_EQ(Entries(true), "a=5;");
  EXPECT_EQ(Entries(), "");
  EXPECT_EQ(Saved(), ".encoding = \"UTF-8\"\n");
}

TEST_F(DictionaryEntries, CopyADefaultText) {
  std::string text = "x";
  const char *value = text.c_str();
  void *slot = Dictionary_Get(Dict(), &value, DICT_STRING, "a");
  text = "y";
  EXPECT_STREQ(*static_cast<char **>(slot), "x");
  EXPECT_EQ(Dictionary_Get(Dict(), nullptr, DICT_STRING, "a"), slot);
}

TEST_F(DictionaryEntries, AreFoundOnlyWhenDefined) {
  const int32_t value = 5;
  EXPECT_EQ(Dictionary_GetDefined(Dict(), &value, DICT_LONG, "a"), nullptr);
  EXPECT_TRUE(Load("a = 7\nb = x\n"));
  void *slot = Dictionary_GetDefined(Dict(), &value, DICT_LONG, "A");
  ASSERT_NE(slot, nullptr);
  EXPECT_EQ(*static_cast<int32_t *>(slot), 7);
  slot = Dictionary_GetDefined(Dict(), &value, DICT_LONG, "b");
  ASSERT_NE(slot, nullptr);
  EXPECT_EQ(*static_cast<int32_t *>(slot), 5);
  EXPECT_EQ(Dictionary_GetDefined(Dict(), &value, DICT_LONG, "c"), nullptr);
  EXPECT_EQ(Entries(true), "a=7;b=5;");
}

TEST_F(DictionaryEntries, StopTheProgramWithoutADefault) {
  EXPECT_EXIT(Dictionary_Get(Dict(), nullptr, DICT_LONG, "a"), kPanics, AssertIn("dictionary"));
}

TEST_F(DictionaryEntries, StopTheProgramWhenReadAsAnotherType) {
  EXPECT_TRUE(Load("a = 1\n"));
  const int32_t number = 0;
  const char *text = "";
  EXPECT_EQ(*static_cast<int32_t *>(Dictionary_Get(Dict(), &number, DICT_LONG, "a")), 1);
  EXPECT_EXIT(Dictionary_Get(Dict(), &text, DICT_STRING, "a"), kPanics,
              testhost::Panics("^ASSERT lib/user/dictionary.cc:[0-9]+ bugNr=[0-9]+\n$"));
  // Any type will do.
  EXPECT_EQ(*static_cast<int32_t *>(Dictionary_Get(Dict(), &text, DICT_ANY, "a")), 1);
}

TEST_F(DictionaryEntries, StayWithoutATypeWhenReadAsAny) {
  EXPECT_TRUE(Load("a = 1\n"));
  EXPECT_STREQ(*static_cast<char **>(Dictionary_Get(Dict(), nullptr, DICT_ANY, "a")), "1");
  EXPECT_EQ(Entry("a")->type, DICT_ANY);
  EXPECT_EQ(Dict_GetLong(Dict(), 0, "a"), 1);
  EXPECT_EQ(Entry("a")->type, DICT_LONG);
}

TEST_F(DictionaryEntries, StopTheProgramForATypeThatThereIsNot) {
  const int64_t value = 0;
  const auto reached = testhost::Panics("^NOT_REACHED lib/user/dictionaryValue.cc:[0-9]+\n$");
  EXPECT_EXIT(Dictionary_Get(Dict(), &value, 7, "a"), kPanics, reached);
  EXPECT_EXIT(Dictionary_Set(Dict(), &value, 0xFFF, "a"), kPanics, reached);
  EXPECT_TRUE(Load("a = 1\n"));
  EXPECT_EXIT(Dictionary_Get(Dict(), &value, 7, "a"), kPanics, reached);
}

TEST_F(DictionaryEntries, StopTheProgramForABadName) {
  for (const char *name : {"", ".", ".encoding"}) {
    EXPECT_EXIT(Dict_GetLong(Dict(), 1, "%s", name), kPanics, AssertIn("dictionary"));
    EXPECT_EXIT(Dict_SetLong(Dict(), 1, "%s", name), kPanics, AssertIn("dictionary"));
    EXPECT_EXIT(Dictionary_IsDefined(Dict(), name), kPanics, AssertIn("dictionary"));
  }
  EXPECT_EXIT(Dictionary_SetFromString(Dict(), "=x", false, true), kPanics, AssertIn("dictionary"));
  EXPECT_EXIT(Dictionary_IsDefined(nullptr, "a"), kPanics, AssertIn("dictionary"));
  EXPECT_EXIT(Dictionary_Clear(nullptr), kPanics, AssertIn("dictionary"));
}

TEST_F(DictionaryEntries, AreMadeBySetting) {
  Set<const char *>("x", DICT_STRING, "s");
  Set<int32_t>(-7, DICT_LONG, "l");
  EXPECT_EQ(Entries(), "s=x;l=-7;");
  EXPECT_TRUE(IsModified("s"));
  EXPECT_TRUE(Dictionary_IsModified(Dict()));
  EXPECT_EQ(Saved(), ".encoding = \"UTF-8\"\ns = \"x\"\nl = \"-7\"\n");
}

TEST_F(DictionaryEntries, AreModifiedEvenByTheirOwnValue) {
  EXPECT_TRUE(Load("a = x # note\n"));
  Set<const char *>("x", DICT_STRING, "a");
  EXPECT_TRUE(IsModified("a"));
  EXPECT_EQ(Saved(), ".encoding = \"UTF-8\"\na = \"x\"\n");
}

TEST_F(DictionaryEntries, TakeTheirOwnValueBack) {
  EXPECT_TRUE(Load("a = x\n"));
  const void *slot = Dictionary_Get(Dict(), nullptr, DICT_STRING, "a");
  Dictionary_Set(Dict(), slot, DICT_STRING, "a");
  EXPECT_EQ(GetText("a"), "x");
}

TEST_F(DictionaryEntries, StayWhereTheyAreWhenSetToTheirEqual) {
  Set<const char *>("x", DICT_STRING, "s");
  Set<double>(0.0, DICT_DOUBLE, "d");
  const char *text = Dictionary_GetAsString(Dict(), "s");
  Set<const char *>("x", DICT_STRING, "s");
  Dict_SetAny(Dict(), "x", "s");
  Dictionary_SetFromString(Dict(), "s=x", false, true);
  EXPECT_EQ(Dictionary_GetAsString(Dict(), "s"), text);
  EXPECT_STREQ(text, "x");
  Set<double>(-0.0, DICT_DOUBLE, "d");
  EXPECT_EQ(GetText("d"), "0");
}

TEST_F(DictionaryEntries, AreModifiedAsAHeaderOnlyByAnotherValue) {
  EXPECT_TRUE(Load("a = x\nb = x\n"));
  Set<const char *>("x", DICT_STRING | DICT_FLAG_HEADER, "a");
  Set<const char *>("y", DICT_STRING | DICT_FLAG_HEADER, "b");
  Set<const char *>("z", DICT_STRING | DICT_FLAG_HEADER, "c");
  EXPECT_FALSE(IsModified("a"));
  EXPECT_TRUE(IsModified("b"));
  EXPECT_FALSE(IsModified("c"));
  EXPECT_TRUE(Entry("a")->header);
  EXPECT_EQ(Saved(), ".encoding = \"UTF-8\"\nc = \"z\"\na = x\nb = \"y\"\n");
}

TEST_F(DictionaryEntries, StayHeaderAndPlainOnce) {
  Set<int32_t>(1, DICT_LONG | DICT_FLAG_HEADER | DICT_FLAG_PLAIN, "a");
  Set<int32_t>(2, DICT_LONG, "a");
  EXPECT_TRUE(Entry("a")->header);
  EXPECT_TRUE(Entry("a")->plain);
  EXPECT_TRUE(IsModified("a"));
}

TEST_F(DictionaryEntries, AreNoDefaultsOnceTheyAreSet) {
  EXPECT_EQ(Dict_GetLong(Dict(), 5, "a"), 5);
  EXPECT_TRUE(Dictionary_IsDefined(Dict(), "a"));
  EXPECT_TRUE(Dictionary_NotSet(Dict(), "a"));
  Set<int32_t>(5, DICT_LONG, "a");
  EXPECT_FALSE(Dictionary_NotSet(Dict(), "a"));
  EXPECT_EQ(Saved(), ".encoding = \"UTF-8\"\na = \"5\"\n");
}

TEST_F(DictionaryEntries, AreReadAsTheTypeOfTheirNewValue) {
  EXPECT_TRUE(Load("a = 5\n"));
  Set<int32_t>(6, DICT_LONG, "a");
  EXPECT_EQ(Entry("a")->type, DICT_LONG);
  EXPECT_EQ(GetText("a"), "6");
  EXPECT_EXIT(Set<const char *>("x", DICT_STRING, "a"), kPanics, AssertIn("dictionary"));
  EXPECT_EXIT(Set<bool>(true, DICT_BOOL, "a"), kPanics, AssertIn("dictionary"));
}

TEST_F(DictionaryEntries, ReadATextOfAnyTypeAsTheirOwn) {
  Set<bool>(false, DICT_BOOL, "b");
  Dict_SetAny(Dict(), "yes", "b");
  EXPECT_EQ(GetText("b"), "true");
  Set<const char *>("x", DICT_STRING, "s");
  Dict_SetAny(Dict(), "7", "s");
  EXPECT_EQ(Entry("s")->type, DICT_STRING);
  EXPECT_EQ(GetText("s"), "7");
  Set<int32_t>(1, DICT_LONG, "l");
  Dict_SetAny(Dict(), "0x10", "l");
  EXPECT_EQ(GetText("l"), "16");
  Logged();
  testing::internal::CaptureStderr();
  Dict_SetAny(Dict(), "12x", "l");
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(GetText("l"), "12");
  EXPECT_EQ(Logged(), Post("Warning",
                           "[msg.dictionary.notInteger] Value \"12x\" for variable \"l\" is not a "
                           "valid integer value. Using value \"12\".\n"));
  Dict_SetAny(Dict(), "free", "new");
  EXPECT_EQ(Entry("new")->type, DICT_ANY);
}

TEST_F(DictionaryEntries, HoldANull) {
  Set<const char *>(nullptr, DICT_STRING, "s");
  EXPECT_EQ(GetText("s"), "(null)");
  EXPECT_TRUE(Dictionary_IsDefined(Dict(), "s"));
  Dictionary_SetEncoding(Dict(), STRING_ENCODING_ISO_8859_1);
  EXPECT_EQ(Saved(), ".encoding = \"ISO-8859-1\"\ns = \"\"\n");
  Set<const char *>(nullptr, DICT_STRING | DICT_FLAG_HEADER, "s");
  Set<const char *>("", DICT_STRING, "s");
  EXPECT_EQ(GetText("s"), "");
}

TEST_F(DictionaryEntries, CompareByTheirType) {
  const auto isModifiedBy = [this](auto first, auto second, DictType type) {
    Dictionary_Clear(Dict());
    Set(first, type | DICT_FLAG_HEADER, "a");
    Set(second, type | DICT_FLAG_HEADER, "a");
    return IsModified("a");
  };
  const char *none = nullptr;
  EXPECT_FALSE(isModifiedBy("x", "x", DICT_STRING));
  EXPECT_TRUE(isModifiedBy("x", "X", DICT_STRING));
  EXPECT_FALSE(isModifiedBy(none, none, DICT_STRING));
  EXPECT_TRUE(isModifiedBy(none, "", DICT_STRING));
  EXPECT_TRUE(isModifiedBy("", none, DICT_ANY));
  EXPECT_FALSE(isModifiedBy(true, true, DICT_BOOL));
  EXPECT_TRUE(isModifiedBy(true, false, DICT_BOOL));
  EXPECT_FALSE(isModifiedBy(7, 7, DICT_LONG));
  EXPECT_TRUE(isModifiedBy(7, 8, DICT_LONG));
  EXPECT_TRUE(isModifiedBy(-1, 0, DICT_TRISTATE));
  EXPECT_FALSE(isModifiedBy(0.5, 0.5, DICT_DOUBLE));
  EXPECT_TRUE(isModifiedBy(0.5, 0.25, DICT_DOUBLE));
  EXPECT_FALSE(isModifiedBy(int64_t{1} << 40, int64_t{1} << 40, DICT_INT64));
  EXPECT_TRUE(isModifiedBy(int64_t{1} << 40, int64_t{1} << 41, DICT_INT64));
}

TEST_F(DictionaryEntries, AreSetFromAString) {
  DictEntry *entry = Dictionary_SetFromString(Dict(), "a=b=c", false, false);
  EXPECT_EQ(Entry("a"), entry);
  EXPECT_FALSE(entry->modified);
  Dictionary_SetFromString(Dict(), "b", false, true);
  Dictionary_SetFromString(Dict(), "c=", false, true);
  EXPECT_EQ(Entries(), "a=b=c;b=;c=;");
  EXPECT_TRUE(IsModified("b"));
  EXPECT_EQ(Dictionary_SetFromString(Dict(), "A=b=c", false, false), entry);
  EXPECT_FALSE(entry->modified);
  Dictionary_SetFromString(Dict(), "a=b=c", false, true);
  EXPECT_TRUE(entry->modified);
}

TEST_F(DictionaryEntries, AreModifiedByAnotherValueFromAStringWhateverIsAsked) {
  EXPECT_TRUE(Load("a = 1\n"));
  Dictionary_SetFromString(Dict(), "a=2", false, false);
  EXPECT_TRUE(IsModified("a"));
}

TEST_F(DictionaryEntries, AreLeftAloneByAStringThatMustNotFindThem) {
  EXPECT_TRUE(Load("a = 1\n"));
  testing::internal::CaptureStderr();
  EXPECT_EQ(Dictionary_SetFromString(Dict(), "A=2", true, true), Entry("a"));
  const std::string shown = testing::internal::GetCapturedStderr();
  EXPECT_TRUE(shown.ends_with(" Error:\nVariable \"A\" is already defined.\n\n")) << shown;
  EXPECT_EQ(Logged(),
            Post("Error", "[msg.dictionary.alreadyDefined.string] Variable \"A\" is already defined.\n"));
  EXPECT_EQ(Entries(), "a=1;");
  EXPECT_FALSE(IsModified("a"));
}

TEST_F(DictionaryEntries, AreGivenAsText) {
  Set<const char *>("x", DICT_STRING, "string");
  Set<bool>(true, DICT_BOOL, "bool");
  Set<int32_t>(-5, DICT_LONG, "long");
  Set<double>(0.1, DICT_DOUBLE, "double");
  Set<int32_t>(-1, DICT_TRISTATE, "default");
  Set<int32_t>(0, DICT_TRISTATE, "false");
  Set<int32_t>(1, DICT_TRISTATE, "true");
  Set<int64_t>(INT64_MIN, DICT_INT64, "int64");
  EXPECT_EQ(Entries(),
            "string=x;bool=true;long=-5;double=0.1;default=default;false=false;true=true;"
            "int64=-9223372036854775808;");
  EXPECT_EQ(Saved(),
            ".encoding = \"UTF-8\"\nstring = \"x\"\nbool = \"TRUE\"\nlong = \"-5\"\ndouble = \"0.1\"\n"
            "default = \"DEFAULT\"\nfalse = \"FALSE\"\ntrue = \"TRUE\"\nint64 = \"-9223372036854775808\"\n");
  EXPECT_EQ(GetText("none"), "(null)");
}

TEST_F(DictionaryEntries, KeepTheTextThatTheyGave) {
  Set<int32_t>(1, DICT_LONG, "a");
  const char *text = Dictionary_GetAsString(Dict(), "a");
  Set<int32_t>(2, DICT_LONG, "b");
  EXPECT_STREQ(Dictionary_GetAsString(Dict(), "b"), "2");
  EXPECT_STREQ(text, "1");
}

TEST_F(DictionaryEntries, AreTouched) {
  EXPECT_TRUE(Load("a = 1 # note\n"));
  EXPECT_EQ(Dict_GetLong(Dict(), 5, "b"), 5);
  EXPECT_FALSE(Dictionary_IsModified(Dict()));
  Dictionary_Touch(Dict(), "a");
  Dictionary_Touch(Dict(), "B");
  Dictionary_Touch(Dict(), "c");
  EXPECT_TRUE(Dictionary_IsModified(Dict()));
  EXPECT_FALSE(Dictionary_NotSet(Dict(), "b"));
  EXPECT_EQ(Saved(), ".encoding = \"UTF-8\"\na = \"1\"\nb = \"5\"\n");
}

TEST_F(DictionaryEntries, GoWithTheirLines) {
  EXPECT_TRUE(Load("# 1\na1 = 1\n# 2\nb2 = 2\nc = 3\n"));
  Dictionary_Unset(Dict(), "A1");
  Dictionary_UnsetWithFormat(Dict(), "%s%d", "b", 2);
  Dictionary_Unset(Dict(), "none");
  EXPECT_EQ(Entries(), "c=3;");
  EXPECT_EQ(Dict()->entryCount, 1);
  EXPECT_EQ(Saved(), "# 1\n# 2\n.encoding = \"UTF-8\"\nc = 3\n");
  Dict_SetLong(Dict(), 4, "a1");
  EXPECT_EQ(Entries(), "c=3;a1=4;");
}

TEST_F(DictionaryEntries, GoByAPrefixInEitherCase) {
  EXPECT_TRUE(Load("a.x = 1\nA.Y = 2\nab = 3\na = 4\n"));
  Dictionary_UnsetPrefix(Dict(), "A.");
  EXPECT_EQ(Entries(), "ab=3;a=4;");
  Dictionary_UnsetPrefix(Dict(), "");
  EXPECT_EQ(Entries(), "");
}

TEST_F(DictionaryEntries, AreSetByAPrefixInItsCase) {
  EXPECT_TRUE(Load("a.x = 1\nA.y = 1\na.z = 1\nb = 1\n"));
  EXPECT_EQ(Dict_GetLong(Dict(), 0, "a.z"), 1);
  Set<const char *>("text", DICT_STRING, "a.s");
  EXPECT_EQ(Dict_GetLong(Dict(), 3, "a.default"), 3);
  const int32_t value = 9;
  Dictionary_SetAll(Dict(), "a.", &value, DICT_LONG);
  EXPECT_EQ(Entries(), "a.x=9;A.y=1;a.z=9;b=1;a.s=text;a.default=9;");
  EXPECT_TRUE(IsModified("a.x"));
  EXPECT_TRUE(IsModified("a.default"));
  EXPECT_FALSE(IsModified("A.y"));
}

TEST_F(DictionaryEntries, AreHiddenBesideAKeySafeUnlessAskedFor) {
  char safe = 0;
  Dict_SetLongPlain(Dict(), 1, "plain");
  Dict_SetLong(Dict(), 2, "secret");
  Dict()->keySafe = reinterpret_cast<KeySafe *>(&safe);
  EXPECT_FALSE(Dictionary_IsDefined(Dict(), "plain"));
  EXPECT_TRUE(Dictionary_NotSet(Dict(), "plain"));
  EXPECT_EQ(GetText("plain"), "(null)");
  EXPECT_TRUE(Dictionary_IsDefined(Dict(), "secret"));
  EXPECT_EQ(Dict_GetLongPlain(Dict(), 7, "plain"), 1);
  Dict()->keySafe = nullptr;
  EXPECT_EQ(Dict_GetLong(Dict(), 7, "plain"), 1);
}

class DictionaryHeader : public DictionaryEntries {
 protected:
  void AddLines(std::vector<const char *> lines) const {
    lines.push_back(nullptr);
    Dictionary_AddHeaderLines(lines.data(), Dict());
  }
};

TEST_F(DictionaryHeader, StandsBeforeTheLines) {
  EXPECT_TRUE(Load("# old\na = 1\n"));
  AddLines({"# one", "# two"});
  EXPECT_EQ(Saved(), "# one\n# two\n# old\n.encoding = \"UTF-8\"\na = 1\n");
  AddLines({"# one", "# two"});
  EXPECT_EQ(Saved(), "# one\n# two\n# old\n.encoding = \"UTF-8\"\na = 1\n");
}

TEST_F(DictionaryHeader, StandsThereTwiceWhereAPartWas) {
  EXPECT_TRUE(Load("# one\n# other\n"));
  AddLines({"# one", "# two"});
  EXPECT_EQ(Saved(), "# one\n# two\n# one\n# other\n.encoding = \"UTF-8\"\n");
  EXPECT_TRUE(Load("# one\n"));
  AddLines({"# one", "# two"});
  EXPECT_EQ(Saved(), "# one\n# two\n# one\n.encoding = \"UTF-8\"\n");
}

TEST_F(DictionaryHeader, MayBeEmpty) {
  AddLines({});
  EXPECT_EQ(Saved(), ".encoding = \"UTF-8\"\n");
  AddLines({"# one"});
  EXPECT_EQ(Saved(), "# one\n.encoding = \"UTF-8\"\n");
}

TEST_F(DictionaryHeader, BeginsWithTheInterpreterOnce) {
  EXPECT_TRUE(Dictionary_AddInterpreterLine(Dict(), "/bin/x"));
  EXPECT_FALSE(Dictionary_AddInterpreterLine(Dict(), "/bin/y"));
  EXPECT_EQ(Saved(), "#!/bin/x\n.encoding = \"UTF-8\"\n");
  EXPECT_TRUE(Load("# note\n#!/bin/x\n"));
  EXPECT_TRUE(Dictionary_AddInterpreterLine(Dict(), "/bin/y"));
  EXPECT_EQ(Saved(), "#!/bin/y\n# note\n#!/bin/x\n.encoding = \"UTF-8\"\n");
}

}  // namespace
