#include "dictll.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "allocations.h"
#include "panics.h"

namespace {

using namespace std::string_literals;

DictLL_Line Unmarshal(const std::string &text) {
  auto *copy = static_cast<char *>(malloc(text.size() + 1));
  memcpy(copy, text.c_str(), text.size() + 1);
  return DictLL_UnmarshalLine(OwnedString(copy), text.size());
}

// "name>value<", "-" for a line that is none of a key, and the text as it was.
std::string Parsed(const std::string &text) {
  const DictLL_Line line = Unmarshal(text);
  EXPECT_EQ(std::string(line.text.get(), line.textSize), text);
  EXPECT_EQ(line.text.get()[line.textSize], '\0');
  if (line.name.data() == nullptr) {
    EXPECT_EQ(line.value.data(), nullptr);
    return "-";
  }
  EXPECT_NE(line.value.data(), nullptr);
  return std::string(line.name) + ">" + std::string(line.value) + "<";
}

TEST(UnmarshalLine, TakesABareValue) {
  EXPECT_EQ(Parsed("a=b"), "a>b<");
  EXPECT_EQ(Parsed(" \t a \t = \t b \t "), "a>b<");
  EXPECT_EQ(Parsed("a = b # note"), "a>b<");
  EXPECT_EQ(Parsed("a = b#note"), "a>b<");
  EXPECT_EQ(Parsed("a = b=c"), "a>b=c<");
  EXPECT_EQ(Parsed("a == b"), "-");
  EXPECT_EQ(Parsed("a =="), "a>=<");
  EXPECT_EQ(Parsed("a = b\"c"), "a>b\"c<");
  EXPECT_EQ(Parsed("a = b\"c d\""), "-");
}

TEST(UnmarshalLine, TakesAnEmptyValue) {
  EXPECT_EQ(Parsed("a ="), "a><");
  EXPECT_EQ(Parsed("a = "), "a><");
  EXPECT_EQ(Parsed("a = # note"), "a><");
  EXPECT_EQ(Parsed("a = \"\""), "a><");
}

TEST(UnmarshalLine, TakesAQuotedValue) {
  EXPECT_EQ(Parsed("a = \"x y # z = |\""), "a>x y # z = |<");
  EXPECT_EQ(Parsed("a=\"x\"# note"), "a>x<");
  EXPECT_EQ(Parsed("a = \"x\" \t# note \"quoted\""), "a>x<");
  EXPECT_EQ(Parsed("a = \"\r\v\xFF\""), "a>\r\v\xFF<");
}

TEST(UnmarshalLine, TakesAnyNameWithoutBlankHashOrEquals) {
  EXPECT_EQ(Parsed("a\"b|41.c\r\xFF=x"), "a\"b|41.c\r\xFF>x<");
  EXPECT_EQ(Parsed("\"a\" = x"), "\"a\">x<");
  EXPECT_EQ(Parsed("\va = x"), "\va>x<");
}

TEST(UnmarshalLine, UndoesEscapes) {
  EXPECT_EQ(Parsed("a = x|0Ay|7cz"), "a>x\ny|z<");
  EXPECT_EQ(Parsed("a = \"|22|20|23|3D\""), "a>\" #=<");
  EXPECT_EQ(Parsed("a = \"x|00y\""), "a>x\0y<"s);
  EXPECT_EQ(Parsed("a = |zz|4|"), "a>|zz|4|<");
  EXPECT_EQ(Parsed("a = |7C41"), "a>|41<");
  // An escaped quote ends no value, and a quoted hash begins no comment.
  EXPECT_EQ(Parsed("a = \"|22\" # |22"), "a>\"<");
}

TEST(UnmarshalLine, RefusesWhatIsNoKeyLine) {
  for (const char *text :
       {"", " ", "\t", "# a = b", "  # a = b", "a", "a b", "a b = c", "=b", " = b", "a # = b", "a = x y",
        "a = \"x", "a = \"", "a = \"x\"y", "a = \"x\" y", "a = \"x\"\"y\"", "a = x\"y z"}) {
    EXPECT_EQ(Parsed(text), "-") << text;
  }
}

TEST(UnmarshalLine, RefusesANulButInTheComment) {
  EXPECT_EQ(Parsed("a\0 = x"s), "-");
  EXPECT_EQ(Parsed("a = x\0"s), "-");
  EXPECT_EQ(Parsed("a = \0"s), "-");
  EXPECT_EQ(Parsed("a = \"x\0\""s), "-");
  EXPECT_EQ(Parsed("a = \"x\"\0"s), "-");
  EXPECT_EQ(Parsed("\0a = x"s), "-");
  EXPECT_EQ(Parsed("a = x #\0y"s), "a>x<");
}

TEST(UnmarshalLineDeathTest, StopsWhenMemoryIsOut) {
  EXPECT_EXIT(
      {
        OwnedString text(strdup("a = |41"));
        const testhost::AllocationFault fault(0);
        DictLL_UnmarshalLine(std::move(text), 7);
      },
      testing::ExitedWithCode(255), testhost::Panics("^MEM_ALLOC lib/dict/dictll.cc:[0-9]+\n$"));
}

std::string Marshal(const char *name, const std::string &value) {
  DynBuf buf;
  DynBuf_Init(&buf);
  EXPECT_TRUE(DynBuf_Append(&buf, "before\n", 7));
  EXPECT_TRUE(DictLL_MarshalLine(&buf, name, value.data(), value.size()));
  std::string text(buf.data, buf.size);
  DynBuf_Destroy(&buf);
  EXPECT_TRUE(text.starts_with("before\n"));
  return text.substr(7);
}

TEST(MarshalLine, QuotesTheValue) {
  EXPECT_EQ(Marshal("a", "x"), "a = \"x\"\n");
  EXPECT_EQ(Marshal("a.b", ""), "a.b = \"\"\n");
  EXPECT_EQ(Marshal("a", "x y # = \t"), "a = \"x y # = \t\"\n");
}

TEST(MarshalLine, EscapesExactlyControlsQuoteBarAndDelete) {
  for (int byte = 0; byte < 256; byte++) {
    const bool escaped = (byte < 0x20 && byte != '\t') || byte == '"' || byte == '|' || byte == 0x7F;
    char code[4];
    snprintf(code, sizeof code, "|%02X", static_cast<unsigned>(byte));
    const std::string raw(1, static_cast<char>(byte));
    EXPECT_EQ(Marshal("n", "<" + raw + ">"), "n = \"<" + (escaped ? code : raw) + ">\"\n") << byte;
  }
}

TEST(MarshalLine, IsReadBackAsItWas) {
  std::string every;
  for (int byte = 0; byte < 256; byte++) {
    every += static_cast<char>(byte);
  }
  for (const std::string &value : {every, "|41"s, "||0A"s, "\"\""s, " lead and trail "s, "#"s}) {
    std::string line = Marshal("key", value);
    ASSERT_EQ(line.back(), '\n');
    line.pop_back();
    EXPECT_EQ(Parsed(line), "key>" + value + "<");
  }
}

TEST(MarshalLine, FailsWhenMemoryIsOut) {
  const auto marshal = [] {
    DynBuf buf;
    DynBuf_Init(&buf);
    const bool done = DictLL_MarshalLine(&buf, "name", "value", 5);
    DynBuf_Destroy(&buf);
    return done;
  };
  const size_t count = testhost::CountAllocations([&] { EXPECT_TRUE(marshal()); });
  ASSERT_GE(count, 2U);
  for (size_t i = 0; i < count; i++) {
    const testhost::AllocationFault fault(i);
    EXPECT_FALSE(marshal()) << i;
  }
}

TEST(ReadLine, GivesEachLineToTheEnd) {
  std::string content = "a = 1\r\n\n# note\rb = \"2\"\nlast = x";
  const OwnedStream stream(fmemopen(content.data(), content.size(), "r"));
  std::vector<std::string> texts;
  std::vector<std::string> names;
  DictLL_Line line;
  while (DictLL_ReadLine(stream.get(), &line) == DICTLL_LINE) {
    texts.emplace_back(line.text.get(), line.textSize);
    names.emplace_back(line.name);
  }
  EXPECT_EQ(texts, (std::vector<std::string>{"a = 1", "", "# note", "b = \"2\"", "last = x"}));
  EXPECT_EQ(names, (std::vector<std::string>{"a", "", "", "b", "last"}));
  EXPECT_EQ(DictLL_ReadLine(stream.get(), &line), DICTLL_EOF);
}

TEST(ReadLine, TellsAReadError) {
  const OwnedStream stream(fopen("/", "r"));
  DictLL_Line line;
  errno = 0;
  EXPECT_EQ(DictLL_ReadLine(stream.get(), &line), DICTLL_ERROR);
  EXPECT_EQ(errno, EISDIR);
}

}  // namespace
