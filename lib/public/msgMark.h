// The mark of a text that the user can see: "@&!*@*@(msg.id)text".
#ifndef OST_PUBLIC_MSGMARK_H
#define OST_PUBLIC_MSGMARK_H

#include <cstring>
#include <string_view>

// Of a buffer that holds any id, with the NUL.
constexpr size_t MSG_ID_SIZE = 128;

// What stands before the id.
constexpr std::string_view MSG_MARK = "@&!*@*@(";

// Returns the text behind marker and id, or null for a string that has none.
inline const char *MsgMarkedText(const char *string) {
  // Most strings aren't, which their first byte tells.
  if (*string != MSG_MARK.front() || strncmp(string, MSG_MARK.data(), MSG_MARK.size()) != 0) {
    return nullptr;
  }
  const char *close = strchr(string + MSG_MARK.size(), ')');
  return close == nullptr ? nullptr : close + 1;
}

// The id of a string that is marked; `text` is its marked text.
inline std::string_view MsgMarkedId(const char *string, const char *text) {
  return {string + MSG_MARK.size(), text - 1};
}

#endif
