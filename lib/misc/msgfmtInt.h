// What taking and printing arguments share.
#ifndef OST_MISC_MSGFMTINT_H
#define OST_MISC_MSGFMTINT_H

#include "msgfmt.h"

// The record of a format's arguments while it is parsed.
struct MsgFmtParseState {
  MsgFmt_Arg *args = nullptr;
  int numArgs = 0;
  int maxArgs = 0;
  char *error = nullptr;
  // The buffer that all of this is in, or null for the heap. Its first bytes are the table, behind it are the
  // strings; an error takes the place of both.
  char *buf = nullptr;
  char *bufPtr = nullptr;  // what is left begins here
  char *bufEnd = nullptr;
};

// The specifier callback that claims a position in the table of a MsgFmtParseState.
int MsgFmtGetArg1(void *clientData, const char *position, size_t positionLength, const char *type,
                  size_t typeLength);

// The type that a specifier takes, by the letters of MsgFmt_ParseSpec; MSGFMT_ARG_INVALID when there is none.
inline MsgFmt_ArgType MsgFmtTypeOf(char lengthModifier, char conversion) {
  const bool longLong = lengthModifier == 'L' || lengthModifier == 'j';
  const bool longer = longLong || lengthModifier == 'l';
  switch (conversion) {
    case 'a':
    case 'A':
    case 'e':
    case 'E':
    case 'f':
    case 'F':
    case 'g':
    case 'G':
      return longLong ? MSGFMT_ARG_INVALID : MSGFMT_ARG_FLOAT64;
    case 'c':
    case 'C':
      return MSGFMT_ARG_INT32;
    case 'd':
    case 'i':
    case 'o':
    case 'u':
    case 'x':
    case 'X':
      return longer || lengthModifier == 't' || lengthModifier == 'z' ? MSGFMT_ARG_INT64 : MSGFMT_ARG_INT32;
    case 'p':
      return MSGFMT_ARG_PTR64;
    case 's':
      return longer ? MSGFMT_ARG_STRING32 : MSGFMT_ARG_STRING8;
    case 'S':
      return MSGFMT_ARG_STRING32;
    default:
      return MSGFMT_ARG_INVALID;
  }
}

#endif
