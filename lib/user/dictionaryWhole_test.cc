#include <map>
#include <random>
#include <vector>

#include "dictType.h"
#include "dictionaryInt.h"
#include "dictionaryTestInt.h"

namespace {

using namespace std::string_literals;

class DictionaryWhole : public dictionarytest::DictionaryHost {
 protected:
  // With a default that was read, and one that was then touched.
  void Fill() const {
    EXPECT_TRUE(Load("a = \"x\"\nb = \"\"\n"));
    EXPECT_EQ(Dict_GetLong(Dict(), 5, "c"), 5);
    EXPECT_EQ(OwnedString(Dict_GetString(Dict(), nullptr, "d")), nullptr);
    Dict_SetBool(Dict(), true, "e");
    Dict_SetString(Dict(), nullptr, "f");
  }
};

TEST_F(DictionaryWhole, IsIteratedInOrder) {
  Fill();
  struct Seen {
    std::vector<std::string> names;
    std::vector<int> indices;
  } seen;
  const auto see = [](const char *name, const char *value, int index, void *data) {
    auto *to = static_cast<Seen *>(data);
    to->names.push_back(name + "="s + (value == nullptr ? "(null)" : value));
    to->indices.push_back(index);
  };
  EXPECT_EQ(Dictionary_Iterate(Dict(), see, &seen, false), 4);
  EXPECT_EQ(seen.names, (std::vector<std::string>{"a=x", "b=", "e=true", "f=(null)"}));
  EXPECT_EQ(seen.indices, (std::vector<int>{0, 1, 2, 3}));
  seen = {};
  EXPECT_EQ(Dictionary_Iterate(Dict(), see, &seen, true), 6);
  EXPECT_EQ(seen.names, (std::vector<std::string>{"a=x", "b=", "c=5", "d=(null)", "e=true", "f=(null)"}));
  EXPECT_EQ(seen.indices.back(), 5);
}

std::string Exported(void (*exportTo)(Dictionary *, char **, size_t *), Dictionary *dict) {
  char *buffer = nullptr;
  size_t size = 7;
  exportTo(dict, &buffer, &size);
  const OwnedString owned(buffer);
  return buffer == nullptr ? "(null)" + std::to_string(size) : std::string(buffer, size);
}

TEST_F(DictionaryWhole, IsExportedAsRecords) {
  Fill();
  const std::string records = "a\0\0x\0b\0\0\0"s;
  EXPECT_EQ(Exported(Dictionary_Export, Dict()), records + "e\0\0true\0f\0\1"s);
  EXPECT_EQ(Exported(Dictionary_ExportAll, Dict()), records + "c\0\0005\0d\0\1e\0\0true\0f\0\1"s);
}

TEST_F(DictionaryWhole, IsExportedWithModifiedDefaults) {
  EXPECT_EQ(Dict_GetLong(Dict(), 5, "c"), 5);
  DictionaryFindVisible(Dict(), "c", 0)->modified = true;
  EXPECT_EQ(Exported(Dictionary_Export, Dict()), "c\0\0005\0"s);
}

TEST_F(DictionaryWhole, IsExportedAsNothingWhenEmpty) {
  EXPECT_EQ(Exported(Dictionary_Export, Dict()), "(null)0");
  EXPECT_EQ(Exported(Dictionary_ExportAll, Dict()), "(null)0");
  EXPECT_EQ(Dict_GetLong(Dict(), 5, "c"), 5);
  EXPECT_EQ(Exported(Dictionary_Export, Dict()), "(null)0");
}

TEST_F(DictionaryWhole, IsLoggedByType) {
  EXPECT_TRUE(Load("any = \"x y\"\nlonger.than.twenty.five.columns = 1\n"));
  Dict_SetString(Dict(), nullptr, "null");
  Dict_SetBool(Dict(), true, "bool");
  Dict_SetBool(Dict(), false, "bool2");
  Dict_SetDouble(Dict(), 0.5, "double");
  Dict_SetLong(Dict(), -5, "long");
  const int32_t tristate = -1;
  Dictionary_Set(Dict(), &tristate, DICT_TRISTATE, "tristate");
  Dict_SetInt64(Dict(), INT64_MIN, "int64");
  EXPECT_EQ(Dict_GetLong(Dict(), 5, "default"), 5);
  Dict_SetString(Dict(), "secret", "file.key");
  Dictionary_Log(Dict());
  EXPECT_EQ(Logged(),
            "DICT                       any = x y\n"
            "DICT longer.than.twenty.five.columns = 1\n"
            "DICT                      null = \n"
            "DICT                      bool = TRUE\n"
            "DICT                     bool2 = FALSE\n"
            "DICT                    double = 0.5\n"
            "DICT                      long = -5\n"
            "DICT                  tristate = -1\n"
            "DICT                     int64 = -9223372036854775808\n"
            "DICT                  file.key = secret\n");
}

TEST_F(DictionaryWhole, IsLoggedWithoutItsSecretsWhenItHasAKey) {
  for (const char *name : {"DataFileKey", "a.KEY", "x.key.y", ".key2", "Annotation", "annotations"}) {
    Dict_SetString(Dict(), "v", "%s%s", name[0] == '.' ? "x" : "", name);
  }
  DictValue value{};
  value.text = strdup("v");
  DictionaryAddEntry(Dict(), ".key", DICT_ANY, value);
  const std::string expected =
      "DICT               DataFileKey = <not printed>\n"
      "DICT                     a.KEY = <not printed>\n"
      "DICT                   x.key.y = v\n"
      "DICT                    x.key2 = v\n"
      "DICT                Annotation = <not printed>\n"
      "DICT               annotations = v\n"
      "DICT                      .key = v\n";
  char key = 0;
  Dict()->cryptoKey = reinterpret_cast<CryptoKey *>(&key);
  Dictionary_Log(Dict());
  Dict()->cryptoKey = nullptr;
  EXPECT_EQ(Logged(), expected);
  Dict()->keySafe = reinterpret_cast<KeySafe *>(&key);
  Dictionary_Log(Dict());
  Dict()->keySafe = nullptr;
  EXPECT_EQ(Logged(), expected);
}

TEST_F(DictionaryWhole, IsLoggedWithBytesThatAreNoText) {
  Dict_SetString(Dict(), std::string(10000, '\xFF').c_str(), "a");
  Dictionary_Log(Dict());
  EXPECT_TRUE(Logged().starts_with("DICT                         a = \\xFF\\xFF"));
}

TEST_F(DictionaryWhole, NamesAFileBesideAnother) {
  EXPECT_TRUE(Load("disk.file = d.img\nfull = /x/y\nempty =\n100%s = p.img\n"));
  const auto derive = [this](const char *base, const char *key, const char *suffix) {
    const OwnedString path(Dictionary_DeriveFileName(Dict(), base, key, suffix));
    return path == nullptr ? "(null)"s : path.get();
  };
  EXPECT_EQ(derive("/vm/a.cfg", "disk", "file"), "/vm/d.img");
  EXPECT_EQ(derive("/vm/a.cfg", "disk.file", nullptr), "/vm/d.img");
  EXPECT_EQ(derive("/vm/a.cfg", "full", nullptr), "/x/y");
  EXPECT_EQ(derive("/vm/a.cfg", "100%s", nullptr), "/vm/p.img");
  EXPECT_EQ(derive("/vm/a.cfg", "empty", nullptr), "(null)");
  EXPECT_EQ(derive("/vm/a.cfg", "none", "file"), "(null)");
  EXPECT_EQ(Logged(), "");
  testing::internal::CaptureStderr();
  EXPECT_EQ(derive(nullptr, "full", nullptr), "(null)");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "invalid use of function\nDictionary_DeriveFileName: couldn't get filename\n");
}

class DictionaryMerge : public DictionaryWhole {
 protected:
  Dictionary *Source() const { return source_.get(); }
  void LoadBoth(const std::string &target, const std::string &source) const {
    EXPECT_TRUE(Load(target));
    EXPECT_TRUE(Dictionary_LoadFromBuffer(Source(), source.c_str(), false));
  }

 private:
  OwnedDictionary source_{Dictionary_Create()};
};

TEST_F(DictionaryMerge, UpdatesAddsAndRemovesNothing) {
  LoadBoth("# note\na = 1 # note\nkept = 1\n", "new = 2\nA = 2\n");
  Dictionary_Merge(Dict(), Source());
  EXPECT_EQ(Entries(), "a=2;kept=1;new=2;");
  EXPECT_EQ(Saved(), "# note\n.encoding = \"UTF-8\"\na = \"2\"\nkept = 1\nnew = \"2\"\n");
}

TEST_F(DictionaryMerge, MarksWhatItUpdatesEvenIfItIsEqual) {
  LoadBoth("a = 1 # note\n", "a = 1\n");
  Dictionary_Merge(Dict(), Source());
  EXPECT_EQ(Saved(), ".encoding = \"UTF-8\"\na = \"1\"\n");
}

TEST_F(DictionaryMerge, MakesDefaultsOfTheSourceValues) {
  LoadBoth("", "");
  EXPECT_EQ(Dict_GetLong(Source(), 5, "a"), 5);
  EXPECT_EQ(Dict_GetLong(Dict(), 6, "b"), 6);
  EXPECT_EQ(Dict_GetLong(Source(), 7, "b"), 7);
  Dictionary_Merge(Dict(), Source());
  EXPECT_EQ(Saved(), ".encoding = \"UTF-8\"\nb = \"7\"\na = \"5\"\n");
}

TEST_F(DictionaryMerge, FixesTheTypeOfTheOneByTheOther) {
  LoadBoth("a = 1\nb = 1\nc = 1\n", "a = 0x10\nb = 2\nc = 3\n");
  EXPECT_EQ(Dict_GetLong(Dict(), 0, "a"), 1);
  EXPECT_EQ(Dict_GetLong(Source(), 0, "b"), 2);
  Dictionary_Merge(Dict(), Source());
  EXPECT_EQ(Entries(), "a=16;b=2;c=3;");
  EXPECT_EQ(Dict_GetLong(Source(), 0, "a"), 16);
  EXPECT_EQ(Dict_GetLong(Dict(), 0, "b"), 2);
  EXPECT_STREQ(OwnedString(Dict_GetString(Dict(), nullptr, "c")).get(), "3");
}

TEST_F(DictionaryMerge, LeavesAValueOfAnotherType) {
  LoadBoth("a = 1\nb = 1\n", "a = 2\nb = 2\n");
  EXPECT_EQ(Dict_GetLong(Dict(), 0, "a"), 1);
  EXPECT_TRUE(OwnedString(Dict_GetString(Source(), nullptr, "a")) != nullptr);
  testing::internal::CaptureStderr();
  Dictionary_Merge(Dict(), Source());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "type mismatch updating a -- not changing\n");
  EXPECT_EQ(Entries(), "a=1;b=2;");
}

TEST_F(DictionaryMerge, CopiesWhatAnEntryIs) {
  LoadBoth("", "");
  const int32_t value = 7;
  Dictionary_Set(Source(), &value, DICT_LONG | DICT_FLAG_HEADER | DICT_FLAG_PLAIN, "h");
  Dictionary_Merge(Dict(), Source());
  const DictEntry *entry = DictionaryFindVisible(Dict(), "h", 0);
  EXPECT_TRUE(entry->header && entry->plain && entry->modified && !entry->isDefault);
  EXPECT_EQ(entry->type, DICT_LONG);
}

// With a key safe in the target, only secrets of the source go where a secret is or would be.
TEST_F(DictionaryMerge, KeepsOpenValuesOutOfTheSecretOnes) {
  char safe = 0;
  LoadBoth("secret = 1\nopen = 1\n", "secret = 2\nopen = 2\nnew = 2\n");
  DictionaryFindVisible(Dict(), "open", 0)->plain = true;
  Dict()->keySafe = reinterpret_cast<KeySafe *>(&safe);
  Dictionary_Merge(Dict(), Source());
  Dict()->keySafe = nullptr;
  EXPECT_EQ(Entries(), "secret=1;open=2;");
}

TEST_F(DictionaryMerge, TakesSecretsIntoSecrets) {
  char safe = 0;
  LoadBoth("secret = 1\n", "secret = 2\nnew = 2\nplain = 2\n");
  DictionaryFindVisible(Source(), "plain", 0)->plain = true;
  Dict()->keySafe = Source()->keySafe = reinterpret_cast<KeySafe *>(&safe);
  Dictionary_Merge(Dict(), Source());
  Dict()->keySafe = Source()->keySafe = nullptr;
  EXPECT_EQ(Entries(), "secret=2;new=2;");
}

// Generated tables against a plain model.
TEST_F(DictionaryMerge, AgreesWithAPlainModel) {
  std::mt19937 random(4711);
  const auto number = [&](int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit)); };
  for (int round = 0; round < 300; round++) {
    std::vector<std::string> order;
    std::map<std::string, std::string> model;
    std::string target;
    std::string source;
    std::map<std::string, std::string> sourceModel;
    for (int i = number(20); i > 0; i--) {
      const std::string name = "k" + std::to_string(number(25));
      const std::string value = std::to_string(number(100));
      if (model.emplace(name, value).second) {
        order.push_back(name);
        target.append(name).append(" = ").append(value).append("\n");
      }
    }
    std::vector<std::string> added;
    for (int i = number(20); i > 0; i--) {
      const std::string name = "k" + std::to_string(number(25));
      const std::string value = std::to_string(number(100));
      if (sourceModel.emplace(name, value).second) {
        source.append(name).append(" = ").append(value).append("\n");
        added.push_back(name);
      }
    }
    LoadBoth(target, source);
    for (const auto &[name, value] : sourceModel) {
      // Some are typed before.
      if (number(3) == 0) {
        EXPECT_EQ(Dict_GetLong(number(2) == 0 ? Source() : Dict(), 0, "%s", name.c_str()) >= 0, true);
      }
    }
    Dictionary_Merge(Dict(), Source());
    std::map<std::string, std::string> expected = model;
    for (const auto &[name, value] : sourceModel) {
      expected[name] = value;
    }
    std::map<std::string, std::string> merged;
    for (const DictEntry *entry : Dict()->entries) {
      EXPECT_FALSE(entry->isDefault);
      merged[entry->name] = Dictionary_GetAsString(Dict(), entry->name);
    }
    EXPECT_EQ(merged, expected) << target << "---\n" << source;
    EXPECT_EQ(static_cast<size_t>(Dict()->entryCount), expected.size());
  }
}

}  // namespace
