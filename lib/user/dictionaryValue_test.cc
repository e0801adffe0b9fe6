#include <cmath>
#include <utility>
#include <vector>

#include "dictType.h"
#include "dictionaryInt.h"
#include "dictionaryTestInt.h"
#include "panics.h"

namespace {

class DictionaryValueTest : public dictionarytest::DictionaryHost {
 protected:
  // Reads a text as a type; `posted` gets what was told of it.
  template <typename T>
  T Read(const char *text, T defaultValue, DictType type, std::string *posted = nullptr) {
    Dictionary_Clear(Dict());
    Dict_SetAny(Dict(), text, "key");
    Logged();
    testing::internal::CaptureStderr();
    const T value = *static_cast<T *>(Dictionary_Get(Dict(), &defaultValue, type, "key"));
    shown_ = testing::internal::GetCapturedStderr();
    const std::string logged = Logged();
    if (posted == nullptr) {
      EXPECT_EQ(logged, "") << text;
    } else {
      *posted = logged;
    }
    return value;
  }

  bool IsTrue(const char *text) {
    return Read<bool>(text, false, DICT_BOOL) && Read<bool>(text, true, DICT_BOOL);
  }
  bool IsFalse(const char *text) {
    return !Read<bool>(text, false, DICT_BOOL) && !Read<bool>(text, true, DICT_BOOL);
  }

  // Whether a bad text gives the default, with this message.
  template <typename T>
  void ExpectBad(const char *text, T defaultValue, DictType type, const std::string &message) {
    std::string posted;
    EXPECT_EQ(Read<T>(text, defaultValue, type, &posted), defaultValue) << text;
    EXPECT_EQ(posted, Post("Warning", message)) << text;
    EXPECT_TRUE(shown_.ends_with(" Warning:\n" + message.substr(message.find("] ") + 2) + "\n")) << shown_;
  }

  static std::string Told(const std::string &id, const std::string &text, const std::string &rest) {
    return "[msg.dictionary." + id + "] Value \"" + text + "\" for variable \"key\" is " + rest + "\n";
  }

 private:
  std::string shown_;
};

TEST_F(DictionaryValueTest, IsABooleanInEachSpelling) {
  for (const char *text : {"", "true", "t", "yes", "y", "on", "1", "TRUE", "True", "T", "YES", "Y", "oN"}) {
    EXPECT_TRUE(IsTrue(text)) << text;
  }
  for (const char *text : {"false", "f", "no", "n", "off", "0", "FALSE", "False", "F", "NO", "N", "oFF"}) {
    EXPECT_TRUE(IsFalse(text)) << text;
  }
}

TEST_F(DictionaryValueTest, IsNoBooleanInAnyOther) {
  for (const char *text :
       {"maybe", "2", "-1", "00", "01", " true", "true ", "default", "yess", "truefalse"}) {
    ExpectBad(text, true, DICT_BOOL,
              Told("notBoolean", text, "not a valid boolean value. Using value \"TRUE\"."));
    ExpectBad(text, false, DICT_BOOL,
              Told("notBoolean", text, "not a valid boolean value. Using value \"FALSE\"."));
  }
  ExpectBad(nullptr, true, DICT_BOOL,
            Told("notBoolean", "(null)", "not a valid boolean value. Using value \"TRUE\"."));
}

TEST_F(DictionaryValueTest, IsATristateInEachSpelling) {
  for (const char *text : {"default", "dontcare", "auto", "DEFAULT", "DontCare", "AUTO"}) {
    EXPECT_EQ(Read<int32_t>(text, 1, DICT_TRISTATE), -1) << text;
  }
  for (const char *text : {"", "TRUE", "t", "yes", "y", "on", "1"}) {
    EXPECT_EQ(Read<int32_t>(text, -1, DICT_TRISTATE), 1) << text;
  }
  for (const char *text : {"False", "f", "no", "n", "off", "0"}) {
    EXPECT_EQ(Read<int32_t>(text, -1, DICT_TRISTATE), 0) << text;
  }
}

TEST_F(DictionaryValueTest, IsNoTristateInAnyOther) {
  for (const auto &[value, word] :
       std::vector<std::pair<int32_t, std::string>>{{0, "FALSE"}, {1, "TRUE"}, {-1, "default"}}) {
    for (const char *text : {"maybe", "-1", "automatic"}) {
      ExpectBad(text, value, DICT_TRISTATE,
                Told("notTristate", text, "not a valid tristate value. Using value \"" + word + "\"."));
    }
    ExpectBad<int32_t>(
        nullptr, value, DICT_TRISTATE,
        Told("notTristate", "(null)", "not a valid tristate value. Using value \"" + word + "\"."));
  }
}

TEST_F(DictionaryValueTest, IsALong) {
  const std::vector<std::pair<const char *, int32_t>> cases = {
      {"", 0},
      {"0", 0},
      {"42", 42},
      {"-42", -42},
      {"+42", 42},
      {"  42", 42},
      {"0x1F", 31},
      {"-0x1f", -31},
      {"017", 15},
      {"2147483647", INT32_MAX},
      {"-2147483648", INT32_MIN},
      // The upper half is dropped.
      {"2147483648", INT32_MIN},
      {"4294967295", -1},
      {"4294967301", 5},
      {"18446744073709551615", -1},
      {"-9223372036854775809", -1},
  };
  for (const auto &[text, value] : cases) {
    EXPECT_EQ(Read<int32_t>(text, 7, DICT_LONG), value) << text;
  }
}

TEST_F(DictionaryValueTest, IsNoLong) {
  for (const char *text : {"x", "12x", "1 2", "12 ", "0x", "08", "1.5", "--1", "true"}) {
    ExpectBad<int32_t>(text, 7, DICT_LONG,
                       Told("notInteger", text, "not a valid integer value. Using value \"7\"."));
  }
  for (const char *text :
       {"18446744073709551616", "-18446744073709551616", "0x10000000000000000", "99999999999999999999x"}) {
    ExpectBad<int32_t>(text, -7, DICT_LONG, Told("integerTooBig", text, "too large. Using value \"-7\"."));
  }
  ExpectBad<int32_t>(nullptr, 7, DICT_LONG,
                     Told("notInteger", "(null)", "not a valid integer value. Using value \"7\"."));
}

TEST_F(DictionaryValueTest, IsAnInt64) {
  const std::vector<std::pair<const char *, int64_t>> cases = {
      {"", 0},
      {"42", 42},
      {"-42", -42},
      {"0x1F", 31},
      {"017", 15},
      {"9223372036854775807", INT64_MAX},
      {"-9223372036854775808", INT64_MIN},
      // Read without a sign.
      {"9223372036854775808", INT64_MIN},
      {"18446744073709551615", -1},
  };
  for (const auto &[text, value] : cases) {
    EXPECT_EQ(Read<int64_t>(text, 7, DICT_INT64), value) << text;
  }
}

TEST_F(DictionaryValueTest, IsNoInt64) {
  for (const char *text : {"x", "12x", "12 ", "0x", "08", "1.5"}) {
    ExpectBad<int64_t>(text, 7, DICT_INT64,
                       Told("notInteger64", text, "not a valid integer value. Using value \"7\"."));
  }
  for (const char *text : {"18446744073709551616", "-18446744073709551616", "99999999999999999999x"}) {
    ExpectBad<int64_t>(text, INT64_MIN, DICT_INT64,
                       Told("integer64TooBig", text, "too large. Using value \"-9223372036854775808\"."));
  }
  ExpectBad<int64_t>(nullptr, 7, DICT_INT64,
                     Told("notInteger64", "(null)", "not a valid integer value. Using value \"7\"."));
}

TEST_F(DictionaryValueTest, IsADouble) {
  const std::vector<std::pair<const char *, double>> cases = {
      {"", 0},      {"1.5", 1.5},   {"-1.5e3", -1500},   {".25", 0.25},
      {"0x10", 16}, {"  2.5", 2.5}, {"1e999", HUGE_VAL}, {"inf", HUGE_VAL},
  };
  for (const auto &[text, value] : cases) {
    EXPECT_EQ(Read<double>(text, 7, DICT_DOUBLE), value) << text;
  }
  EXPECT_TRUE(std::isnan(Read<double>("nan", 7, DICT_DOUBLE)));
}

TEST_F(DictionaryValueTest, IsNoDouble) {
  for (const char *text : {"x", "1.5x", "1.5 ", "1,5", "1e"}) {
    ExpectBad<double>(text, 7.5, DICT_DOUBLE,
                      Told("notFloat", text, "not a valid floating point value. Using value \"7.500000\"."));
  }
  ExpectBad<double>(
      nullptr, 7.5, DICT_DOUBLE,
      Told("notFloat", "(null)", "not a valid floating point value. Using value \"7.500000\"."));
}

TEST_F(DictionaryValueTest, GoesAsFarAsItIsGoodWithoutADefault) {
  const auto read = [this](const char *text, DictType type) {
    Dictionary_Clear(Dict());
    Dict_SetAny(Dict(), text, "key");
    testing::internal::CaptureStderr();
    Dictionary_Get(Dict(), nullptr, type, "key");
    return GetText("key") + "; " + testing::internal::GetCapturedStderr();
  };
  const auto expect = [](const std::string &told, const std::string &value, const std::string &shown) {
    EXPECT_TRUE(told.starts_with(value + "; ")) << told;
    EXPECT_TRUE(told.ends_with("Using value \"" + shown + "\".\n\n")) << told;
  };
  expect(read("12x", DICT_LONG), "12", "12");
  expect(read("99999999999999999999", DICT_LONG), "-1", "-1");
  expect(read("12x", DICT_INT64), "12", "12");
  expect(read("1.5x", DICT_DOUBLE), "1.5", "1.500000");
  expect(read("maybe", DICT_BOOL), "false", "FALSE");
  expect(read("maybe", DICT_TRISTATE), "default", "default");
}

TEST_F(DictionaryValueTest, IsFixedByTheFirstRead) {
  std::string posted;
  EXPECT_EQ(Read<int32_t>("bad", 7, DICT_LONG, &posted), 7);
  EXPECT_EQ(Dict_GetLong(Dict(), 8, "key"), 7);
  EXPECT_EQ(Logged(), "");
  EXPECT_EQ(GetText("key"), "7");
}

TEST_F(DictionaryValueTest, ShowsBytesThatAreNoTextByTheirNumbers) {
  ExpectBad("\xFF|", true, DICT_BOOL,
            Told("notBoolean", "\\xFF|", "not a valid boolean value. Using value \"TRUE\"."));
  std::string posted;
  EXPECT_TRUE(Read<bool>(std::string(10000, '\xFF').c_str(), true, DICT_BOOL, &posted));
  EXPECT_NE(posted.find("Value \"\\xFF\\xFF"), std::string::npos);
}

TEST_F(DictionaryValueTest, IsSavedAsItsTypeWritesItAfterAChange) {
  EXPECT_TRUE(Load("a = yes\nb = 0x10\nc = auto\nd = 1.50\n"));
  EXPECT_TRUE(Dict_GetBool(Dict(), false, "a"));
  EXPECT_EQ(Dict_GetLong(Dict(), 0, "b"), 16);
  const int32_t none = 0;
  EXPECT_EQ(*static_cast<int32_t *>(Dictionary_Get(Dict(), &none, DICT_TRISTATE, "c")), -1);
  EXPECT_EQ(Dict_GetDouble(Dict(), 0, "d"), 1.5);
  EXPECT_EQ(Saved(), ".encoding = \"UTF-8\"\na = yes\nb = 0x10\nc = auto\nd = 1.50\n");
  for (const char *name : {"a", "b", "c", "d"}) {
    Dictionary_Touch(Dict(), name);
  }
  EXPECT_EQ(Saved(), ".encoding = \"UTF-8\"\na = \"TRUE\"\nb = \"16\"\nc = \"DEFAULT\"\nd = \"1.5\"\n");
}

TEST_F(DictionaryValueTest, OfAnUnknownTypeStopsTheProgram) {
  Dict_SetAny(Dict(), nullptr, "key");
  DictEntry *entry = DictionaryFindVisible(Dict(), "key", 0);
  entry->type = 7;
  EXPECT_EXIT(Saved(), dictionarytest::kPanics,
              testhost::Panics("^Dictionary internal error - unknown parameter type\n$"));
  EXPECT_EXIT(Dictionary_GetAsString(Dict(), "key"), dictionarytest::kPanics,
              testhost::Panics("^NOT_REACHED lib/user/dictionaryValue.cc:[0-9]+\n$"));
  Logged();
  Dictionary_Log(Dict());
  EXPECT_EQ(Logged(), "DICT                       key = <unknown parameter type>\n");
  entry->type = DICT_ANY;
}

}  // namespace
