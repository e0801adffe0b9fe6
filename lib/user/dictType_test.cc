#include "dictType.h"

#include "dictionaryInt.h"
#include "dictionaryTestInt.h"

namespace {

using namespace std::string_literals;

class DictTypeTest : public dictionarytest::DictionaryHost {
 protected:
  bool IsPlain(const char *name) const { return DictionaryFindVisible(Dict(), name, DICT_FLAG_PLAIN)->plain; }
};

TEST_F(DictTypeTest, ReadsByAFormattedName) {
  EXPECT_TRUE(Load("s1.a = text\ns2.b = yes\ns3.l = 7\ns4.i = 0x100000000\ns5.d = 0.5\n"));
  EXPECT_STREQ(OwnedString(Dict_GetString(Dict(), "none", "s%d.%s", 1, "a")).get(), "text");
  EXPECT_TRUE(Dict_GetBool(Dict(), false, "s%d.%s", 2, "b"));
  EXPECT_EQ(Dict_GetLong(Dict(), 0, "s%d.%s", 3, "l"), 7);
  EXPECT_EQ(Dict_GetInt64(Dict(), 0, "s%d.%s", 4, "i"), int64_t{1} << 32);
  EXPECT_EQ(Dict_GetDouble(Dict(), 0, "s%d.%s", 5, "d"), 0.5);
  EXPECT_EQ(Entries(true), Entries());
}

TEST_F(DictTypeTest, GivesTheDefaults) {
  EXPECT_STREQ(OwnedString(Dict_GetString(Dict(), "x", "a")).get(), "x");
  EXPECT_EQ(OwnedString(Dict_GetString(Dict(), nullptr, "n")), nullptr);
  EXPECT_TRUE(Dict_GetBool(Dict(), true, "b"));
  EXPECT_EQ(Dict_GetLong(Dict(), INT32_MIN, "l"), INT32_MIN);
  EXPECT_EQ(Dict_GetInt64(Dict(), INT64_MAX, "i"), INT64_MAX);
  EXPECT_EQ(Dict_GetDouble(Dict(), 0.25, "d"), 0.25);
  EXPECT_EQ(Entries(true), "a=x;n=(null);b=true;l=-2147483648;i=9223372036854775807;d=0.25;");
  EXPECT_EQ(Entries(), "");
}

TEST_F(DictTypeTest, SetsByAFormattedName) {
  Dict_SetString(Dict(), "text", "s%d", 1);
  Dict_SetBool(Dict(), true, "s%d", 2);
  Dict_SetLong(Dict(), 7, "s%d", 3);
  Dict_SetInt64(Dict(), int64_t{1} << 32, "s%d", 4);
  Dict_SetDouble(Dict(), 0.5, "s%d", 5);
  Dict_SetAny(Dict(), "any", "s%d", 6);
  EXPECT_EQ(Entries(), "s1=text;s2=true;s3=7;s4=4294967296;s5=0.5;s6=any;");
  EXPECT_FALSE(IsPlain("s1"));
}

TEST_F(DictTypeTest, MarksPlainEntries) {
  Dict_SetStringPlain(Dict(), "text", "s1");
  Dict_SetBoolPlain(Dict(), true, "s2");
  Dict_SetLongPlain(Dict(), 7, "s3");
  Dict_SetInt64Plain(Dict(), 8, "s4");
  EXPECT_STREQ(OwnedString(Dict_GetStringPlain(Dict(), "x", "g1")).get(), "x");
  EXPECT_TRUE(Dict_GetBoolPlain(Dict(), true, "g2"));
  EXPECT_EQ(Dict_GetLongPlain(Dict(), 5, "g3"), 5);
  EXPECT_EQ(Dict_GetInt64Plain(Dict(), 6, "g4"), 6);
  EXPECT_EQ(Entries(true), "s1=text;s2=true;s3=7;s4=8;g1=x;g2=true;g3=5;g4=6;");
  for (const char *name : {"s1", "s2", "s3", "s4", "g1", "g2", "g3", "g4"}) {
    EXPECT_TRUE(IsPlain(name)) << name;
  }
  // Reading one that is there marks nothing.
  Dict_SetLong(Dict(), 1, "open");
  EXPECT_EQ(Dict_GetLongPlain(Dict(), 0, "open"), 1);
  EXPECT_FALSE(IsPlain("open"));
}

TEST_F(DictTypeTest, CutsANameAt1023Bytes) {
  const std::string name(1023, 'n');
  Dict_SetLong(Dict(), 7, "%sx", name.c_str());
  EXPECT_EQ(Entries(), name + "=7;");
  EXPECT_EQ(Dict_GetLong(Dict(), 0, "%s", name.c_str()), 7);
}

TEST_F(DictTypeTest, CutsANameThatNeedsNoFormat) {
#define NAME_16 "nnnnnnnnnnnnnnnn"
#define NAME_64 NAME_16 NAME_16 NAME_16 NAME_16
#define NAME_256 NAME_64 NAME_64 NAME_64 NAME_64
#define NAME_1024 NAME_256 NAME_256 NAME_256 NAME_256
  const std::string name(1023, 'n');
  Dict_SetLong(Dict(), 7, "%s", NAME_1024);
  EXPECT_EQ(Entries(), name + "=7;");
  Dict_SetLong(Dict(), 8, NAME_1024);
  EXPECT_EQ(Entries(), name + "=8;");
}

TEST_F(DictTypeTest, TakesPercentSignsOfANameOnlyFromTheFormat) {
  Dict_SetLong(Dict(), 1, "%s", "100%d");
  Dict_SetLong(Dict(), 2, "100%%");
  Dict_SetLong(Dict(), 3, "%s%s", "%s", "");
  const char *volatile none = nullptr;
  Dict_SetLong(Dict(), 4, "%s", none);
  EXPECT_EQ(Entries(), "100%d=1;100%=2;%s=3;(null)=4;");
}

TEST_F(DictTypeTest, TakesAnEmptyTextForTrue) {
  EXPECT_TRUE(Load("a =\nb = maybe\n"));
  EXPECT_TRUE(Dict_GetBool(Dict(), true, "a"));
  EXPECT_EQ(Logged(), "");
  testing::internal::CaptureStderr();
  EXPECT_TRUE(Dict_GetBool(Dict(), true, "b"));
  EXPECT_NE(testing::internal::GetCapturedStderr().find("Value \"maybe\" for variable \"b\""),
            std::string::npos);
}

class DictGetStringEnum : public DictTypeTest {
 protected:
  std::string Get(const char *defaultValue) {
    const char *const choices[] = {"one", "two", nullptr};
    testing::internal::CaptureStderr();
    const OwnedString value(Dict_GetStringEnum(Dict(), defaultValue, choices, "%s", "key"));
    shown_ = testing::internal::GetCapturedStderr();
    return value == nullptr ? "(null)" : value.get();
  }
  std::string shown_;
};

TEST_F(DictGetStringEnum, TakesAChoice) {
  EXPECT_TRUE(Load("key = two\n"));
  EXPECT_EQ(Get("one"), "two");
  EXPECT_EQ(Get(nullptr), "two");
  EXPECT_EQ(shown_, "");
}

TEST_F(DictGetStringEnum, GivesTheDefaultWithoutAValue) {
  EXPECT_EQ(Get("two"), "two");
  EXPECT_EQ(Logged(), "");
}

TEST_F(DictGetStringEnum, GivesNullWithoutAValueAndDefault) {
  EXPECT_EQ(Get(nullptr), "(null)");
  // A null that stands there is replaced without a word.
  EXPECT_EQ(Get("one"), "one");
  EXPECT_EQ(Logged(), "");
}

TEST_F(DictGetStringEnum, PostsAnErrorForAnotherText) {
  for (const char *text : {"three", "Two", "on"}) {
    EXPECT_TRUE(Load("key = "s + text + "\n"));
    Logged();
    EXPECT_EQ(Get("one"), "one");
    EXPECT_EQ(Logged(),
              Post("Error", "[msg.dictionary.notEnum] Value \""s + text +
                                "\" for variable \"key\" is not a valid value. Using value \"one\".\n"));
    EXPECT_TRUE(shown_.ends_with(" Error:\nValue \""s + text +
                                 "\" for variable \"key\" is not a valid value. Using value \"one\".\n\n"));
    EXPECT_EQ(Get(nullptr), "(null)");
    EXPECT_EQ(Logged(), Post("Error", "[msg.dictionary.notEnumAndNoDefault] Value \""s + text +
                                          "\" for variable \"key\" is not a valid value.\n"));
  }
}

TEST_F(DictGetStringEnum, ReplacesAnEmptyTextWithoutAWord) {
  EXPECT_TRUE(Load("key =\n"));
  EXPECT_EQ(Get("one"), "one");
  EXPECT_EQ(Get(nullptr), "(null)");
  EXPECT_EQ(Logged(), "");
}

TEST_F(DictGetStringEnum, StopsTheProgramForADefaultThatIsNoChoice) {
  const char *const choices[] = {"one", nullptr};
  EXPECT_EXIT(Dict_GetStringEnum(Dict(), "three", choices, "key"), dictionarytest::kPanics,
              dictionarytest::AssertIn("dictType"));
}

}  // namespace
