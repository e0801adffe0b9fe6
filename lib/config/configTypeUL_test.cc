#include "config.h"
#include "dictionary.h"
#include "panics.h"
#include "preferenceTestInt.h"

namespace {

using preferencetest::kHostDefaults;
using preferencetest::kPanics;
using preferencetest::Take;
using testhost::WriteFile;

class Config : public preferencetest::SettingsHost {};

TEST_F(Config, ReadsByAFormattedKey) {
  WriteFile(kHostDefaults,
            "s1.bool = yes\ns2.long = 7\ns3.int64 = 0x100000000\ns4.double = 0.5\ns5.tri = auto\n"
            "s6.text = \"~\"\n");
  Start();
  EXPECT_TRUE(Config_GetBool(false, "s%d.%s", 1, "bool"));
  EXPECT_EQ(Config_GetLong(0, "s%d.%s", 2, "long"), 7);
  EXPECT_EQ(Config_GetInt64(0, "s%d.%s", 3, "int64"), int64_t{1} << 32);
  EXPECT_EQ(Config_GetDouble(0, "s%d.%s", 4, "double"), 0.5);
  EXPECT_EQ(Config_GetTriState(1, "s%d.%s", 5, "tri"), -1);
  EXPECT_EQ(Take(Config_GetString(nullptr, "s%d.%s", 6, "text")), "~");
  EXPECT_EQ(Take(Config_GetStringPlain(nullptr, "s%d.%s", 6, "text")), "~");
  EXPECT_EQ(Take(Config_GetPathName(nullptr, "s%d.%s", 6, "text")), "/home/person");
  EXPECT_FALSE(Config_NotSet("s%d.%s", 6, "text"));
  EXPECT_TRUE(Config_NotSet("s%d.%s", 7, "text"));
}

TEST_F(Config, GivesTheFirstDefaults) {
  Start();
  for (int turn = 0; turn < 2; turn++) {
    const bool first = turn == 0;
    EXPECT_TRUE(Config_GetBool(first, "bool"));
    EXPECT_EQ(Config_GetLong(first ? 5 : 7, "x"), 5);
    EXPECT_EQ(Config_GetInt64(first ? INT64_MAX : 0, "int64"), INT64_MAX);
    EXPECT_EQ(Config_GetDouble(first ? 0.25 : 0, "double"), 0.25);
    EXPECT_EQ(Config_GetTriState(first ? -1 : 1, "tri"), -1);
    EXPECT_EQ(Take(Config_GetString(first ? "text" : "late", "text")), "text");
    EXPECT_EQ(Take(Config_GetString(first ? nullptr : "late", "null")), "(null)");
    EXPECT_EQ(Take(Config_GetPathName(first ? "~" : "late", "path")), "/home/person");
    EXPECT_EQ(Take(Config_GetPathName(first ? nullptr : "late", "nullPath")), "(null)");
    EXPECT_TRUE(Config_NotSet("bool"));
  }
}

TEST_F(Config, GivesDefaultsBeforeTheSettingsAreUp) {
  EXPECT_EQ(Config_GetLong(5, "answer.%s", "x"), 5);
  EXPECT_EQ(Take(Config_GetString(nullptr, "answer.%s", "y")), "(null)");
  EXPECT_TRUE(Config_NotSet("answer.%s", "z"));
  EXPECT_EQ(Logged(),
            "PREF early PreferenceGet(answer.x), using default\n"
            "PREF early PreferenceGet(answer.y), using default\n");
}

TEST_F(Config, CutsALongKey) {
  const std::string whole(1023, 'k');
  WriteFile(kHostDefaults, whole + " = 1\n" + whole + "k = 2\n" + std::string(1022, 'k') + " = 3\n");
  Start();
  EXPECT_EQ(Config_GetLong(0, "%s", whole.c_str()), 1);
  EXPECT_EQ(Config_GetLong(0, "%sk", whole.c_str()), 1);
  EXPECT_EQ(Config_GetLong(0, "%s%s", whole.c_str(), whole.c_str()), 1);
}

TEST_F(Config, KeysOfSettingsReadWithoutAFormatKeepTheirBytes) {
  WriteFile(kHostDefaults, "answer.100% = yes\n");
  Start();
  EXPECT_EQ(Take(Config_GetString(nullptr, "answer.%s", "100%")), "yes");
}

TEST_F(Config, WrittenByTypeStopsTheProgram) {
  const auto stop = testhost::Panics("^NOT_IMPLEMENTED lib/config/configTypeUL\\.cc:[0-9]+\n$");
  const char *const choices[] = {"a", nullptr};
  EXPECT_EXIT(Config_GetStringEnum("a", choices, "%s", "x"), kPanics, stop);
  EXPECT_EXIT(Config_SetBool(true, "%s", "x"), kPanics, stop);
  EXPECT_EXIT(Config_SetLong(1, "%s", "x"), kPanics, stop);
  EXPECT_EXIT(Config_SetInt64(1, "%s", "x"), kPanics, stop);
  EXPECT_EXIT(Config_SetDouble(1, "%s", "x"), kPanics, stop);
  EXPECT_EXIT(Config_SetTriState(1, "%s", "x"), kPanics, stop);
  EXPECT_EXIT(Config_SetString("a", "%s", "x"), kPanics, stop);
  EXPECT_EXIT(Config_SetAny("a", "%s", "x"), kPanics, stop);
}

TEST_F(Config, WrittenOtherwiseStopsTheProgram) {
  const auto stop = testhost::Panics("^NOT_IMPLEMENTED lib/config/configUL\\.cc:[0-9]+\n$");
  EXPECT_EXIT(Config_SetFromString("x=1", true), kPanics, stop);
  EXPECT_EXIT(Config_Unset("%s", "x"), kPanics, stop);
  EXPECT_EXIT(Config_UnsetPrefix("x"), kPanics, stop);
  EXPECT_EXIT(Config_Write(), kPanics, stop);
}

TEST_F(Config, ReachedWithoutATypeStopsTheProgram) {
  const auto stop = testhost::Panics("^NOT_REACHED lib/config/configUL\\.cc:[0-9]+\n$");
  const int32_t value = 1;
  EXPECT_EXIT(Config_Get(&value, DICT_LONG, "x"), kPanics, stop);
  EXPECT_EXIT(Config_Set(&value, DICT_LONG, "x"), kPanics, stop);
}

}  // namespace
