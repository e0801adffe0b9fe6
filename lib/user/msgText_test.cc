#include "msgInt.h"
#include "msgTestInt.h"

namespace {

using msgtest::kPanics;
using msgtest::PanicIn;

constexpr char kMarked[] = "@&!*@*@(msg.test.one)Text) of %d";

// Takes over a new string.
std::string Take(char *text) {
  return OwnedString(text).get();
}

std::string Plain(const std::string &label) {
  return Take(Msg_GetPlainButtonText(("@&!*@*@(button.x)" + label).c_str()));
}

TEST(MsgIsMarked, NeedsMarkerParenthesisAndItsEnd) {
  // Not constant, so that the compiler doesn't look past the ends of what is none.
  const auto isMarked = [](const std::string &text) { return MsgIsMarked(text.c_str()); };
  EXPECT_TRUE(isMarked("@&!*@*@(msg.x)text"));
  EXPECT_TRUE(isMarked("@&!*@*@()"));
  EXPECT_FALSE(isMarked("@&!*@*@msg.x)text"));
  EXPECT_FALSE(isMarked("@&!*@*@(msg.x"));
  EXPECT_FALSE(isMarked("@&!*@*(msg.x)"));
  EXPECT_FALSE(isMarked(" @&!*@*@(msg.x)"));
  EXPECT_FALSE(isMarked(""));
}

TEST(MsgText, IsBorrowedFromItsFormat) {
  EXPECT_EQ(Msg_GetString(kMarked), kMarked + sizeof "@&!*@*@(msg.test.one)" - 1);
  EXPECT_STREQ(Msg_GetString("@&!*@*@(button.ok)OK"), "OK");
  EXPECT_STREQ(Msg_GetString("@&!*@*@()"), "");
}

TEST(MsgText, IsCopied) {
  EXPECT_EQ(Take(Msg_GetStringCopy(kMarked)), "Text) of %d");
  EXPECT_EQ(Take(Msg_GetStringSafe(kMarked)), "Text) of %d");
  EXPECT_EQ(Take(Msg_GetStringSafe("plain")), "plain");
  EXPECT_EQ(Take(Msg_GetStringSafe("")), "");
}

TEST(MsgText, IsPrinted) {
  EXPECT_EQ(Take(Msg_Format(kMarked, 7)), "Text) of 7");
}

TEST(MsgTextDeathTest, AFormatWithoutAnIdStopsTheProgram) {
  const auto text = PanicIn("ASSERT", "user/msgText");
  EXPECT_EXIT(Msg_GetString("plain"), kPanics, text);
  EXPECT_EXIT(Msg_GetStringCopy("@&!*@*@(x"), kPanics, text);
  EXPECT_EXIT(Msg_GetPlainButtonText("OK"), kPanics, text);
  const char *volatile plain = "plain";
  EXPECT_EXIT(Msg_Format(plain, 0), kPanics, text);
}

TEST(MsgTextDeathTest, AnIdOf128BytesStopsTheProgram) {
  const auto format = [](size_t size) { return "@&!*@*@(" + std::string(size, 'i') + ")text"; };
  EXPECT_STREQ(Msg_GetString(format(127).c_str()), "text");
  EXPECT_EXIT(Msg_GetString(format(128).c_str()), kPanics, PanicIn("NOT_IMPLEMENTED", "user/msgText"));
  char id[MSG_ID_SIZE];
  EXPECT_STREQ(MsgGetText(format(127).c_str(), nullptr, id), "text");
  EXPECT_EQ(std::string(id), std::string(127, 'i'));
}

// ---- Accelerators

TEST(PlainButtonText, HasNoAccelerator) {
  EXPECT_EQ(Plain("OK"), "OK");
  EXPECT_EQ(Plain("_Yes"), "Yes");
  EXPECT_EQ(Plain("E_xit"), "Exit");
  EXPECT_EQ(Plain("Exit_"), "Exit");
  EXPECT_EQ(Plain("_"), "");
  EXPECT_EQ(Plain(""), "");
}

TEST(PlainButtonText, KeepsOneOfTwoUnderscores) {
  EXPECT_EQ(Plain("my__file"), "my_file");
  EXPECT_EQ(Plain("__"), "_");
  EXPECT_EQ(Plain("____"), "__");
  EXPECT_EQ(Plain("___x"), "_x");
  EXPECT_EQ(Plain("_a__b__c"), "a_b_c");
}

TEST(PlainButtonTextDeathTest, ASecondAcceleratorStopsTheProgram) {
  const auto text = PanicIn("ASSERT", "user/msgText");
  EXPECT_EXIT(Plain("_Yes_"), kPanics, text);
  EXPECT_EXIT(Plain("_Yes and _no"), kPanics, text);
  EXPECT_EXIT(Plain("_a__b_c"), kPanics, text);
}

}  // namespace
