// Questions and hints.

#include <array>
#include <optional>

#include "config.h"
#include "log.h"
#include "msgInt.h"
#include "panicUser.h"
#include "unicode.h"

namespace {

constexpr size_t kMaxLocalizedNames = 9;
// In the log lines of a question that is answered without the user.
constexpr char kAnsweredBy[] = "MsgIsQuestionAnswered";

bool SameLabel(Unicode label, Unicode other) {
  return Unicode_CompareRange(label, 0, -1, other, 0, -1, true) == 0;
}

// The answer that preferences give to this very question.
std::optional<int> ConfiguredAnswer(const char *const *names, const char *id) {
  const OwnedString value(Config_GetString(nullptr, "answer.%s", id));
  if (value == nullptr) {
    return std::nullopt;
  }
  const OwnedString answer(MsgStripAccelerators(value.get()));
  for (int i = 0; names[i] != nullptr; i++) {
    if (SameLabel(OwnedString(Msg_GetPlainButtonText(names[i])).get(), answer.get())) {
      Log("%s: Using config default '%s' as the answer for '%s'\n", kAnsweredBy, value.get(), id);
      return i;
    }
  }
  return std::nullopt;
}

// The answer of preferences, to this question or to all.
std::optional<int> PresetAnswer(const char *const *names, int defaultAnswer, const char *id) {
  std::optional<int> answer = ConfiguredAnswer(names, id);
  if (!answer && MsgGetSetting("msg.autoAnswer")) {
    Log("%s: Using builtin default '%s' as the answer for '%s'\n", kAnsweredBy,
        Msg_GetString(names[defaultAnswer]), id);
    answer = defaultAnswer;
  }
  if (answer) {
    Msg_Reset(false);
  }
  return answer;
}

int AskUser(const char *const *names, int defaultAnswer, const char *id, MsgList *messages) {
  const MsgState *msg = MsgGetState();
  int reply = 0;
  if (msg->callback.question != nullptr) {
    std::array<const char *, kMaxLocalizedNames + 1> localizedNames{};
    for (size_t i = 0; i < kMaxLocalizedNames && names[i] != nullptr; i++) {
      localizedNames[i] = Msg_GetString(names[i]);
    }
    const OwnedString text = MsgRenderNew(messages, msg->dictionary.get());
    reply = msg->callback.question(localizedNames.data(), defaultAnswer, id, text.get());
  }
  if (msg->callback.questionList != nullptr) {
    reply = msg->callback.questionList(names, defaultAnswer, messages);
  }
  return reply;
}

// The log line of a hint.
void LogHint(MsgList *message, const char *shown) {
  Log("%s: %s (%ssent)\n%s---------------------------------------\n", "MsgHint", message->id, shown,
      MsgRenderNew(message, nullptr).get());
}

}  // namespace

int Msg_Question(const char *const *names, int defaultAnswer, const char *idFormat, ...) {
  ASSERT(defaultAnswer >= 0);
  for (int i = 0; i <= defaultAnswer; i++) {
    ASSERT(names[i] != nullptr);
  }
  va_list args;
  va_start(args, idFormat);
  const char *id = Msg_VAppend(idFormat, args)->id;
  va_end(args);
  const OwnedMsgList messages(Msg_DetachMsgList());
  MsgLogList(__func__, "", messages.get());
  const std::optional<int> preset = PresetAnswer(names, defaultAnswer, id);
  const int reply = preset ? *preset : AskUser(names, defaultAnswer, id, messages.get());
  Log("%s: %s reply=%d\n", "MsgQuestion", id, reply);
  return reply;
}

MsgHintResult Msg_Hint(bool defaultShow, int hintType, const char *idFormat, ...) {
  va_list args;
  va_start(args, idFormat);
  const OwnedMsgList message(MsgList_VCreate(idFormat, args));
  va_end(args);
  return Msg_HintMsgList(defaultShow, hintType, message.get());
}

MsgHintResult Msg_HintMsgList(bool, int hintType, MsgList *message) {
  ASSERT(hintType >= MSG_HINT_TYPE_OK && hintType <= MSG_HINT_TYPE_OK_CANCEL);
  if (MsgGetSetting("msg.autoAnswer") || MsgGetSetting("msg.noOK")) {
    LogHint(message, "not ");
    return MSG_HINT_NOT_SHOWN;
  }
  LogHint(message, "");
  const MsgState *msg = MsgGetState();
  MsgHintResult result = MSG_HINT_NOT_SHOWN;
  if (msg->callback.hint != nullptr) {
    const OwnedString text = MsgRenderNew(message, msg->dictionary.get());
    result = msg->callback.hint(hintType, message->id, text.get());
  }
  return msg->callback.hintList == nullptr ? result : msg->callback.hintList(hintType, message);
}
